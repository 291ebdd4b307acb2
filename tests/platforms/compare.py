#!/usr/bin/env python3
"""Runs the same recipes on several platforms and compares the results with those of Linux on x86-64.

    compare.py [--scheme staged|continuous] [--count 25] [--platform NAME ...] [--json FILE] [--keep FOLDER]

Needs the builds of the presets release (with tests), arm64 and windows; a platform without a build is left out. Prints for
each platform and quantity the largest difference, the recipe that has it, and the median over all recipes.
differences.py explains the measure, which depends on the scheme.
"""
import argparse
import concurrent.futures
import dataclasses
import json
import math
import os
import statistics
import sys
import tempfile

import differences
import platforms
import recipes


@dataclasses.dataclass
class Comparison:
    """One platform against the reference."""
    title: str
    runs: int = 0
    same: int = 0        # result files that are the same bytes, but for the sign of NaN
    least_share: float = 1.0  # of rows with equal times
    compared: dict = dataclasses.field(default_factory=dict)  # by quantity: {recipe: difference}
    messages: list = dataclasses.field(default_factory=list)  # recipes whose messages differ
    failed: list = dataclasses.field(default_factory=list)    # recipes that fail on both

    def largest(self, quantity):
        """Difference and recipe. NaN counts as more than any number."""
        return max(((value, name) for name, value in self.compared[quantity].items()),
                   key=lambda item: math.inf if math.isnan(item[0]) else item[0])

    def record(self):
        """What the file of --json has."""
        table = {quantity: {"largest": self.largest(quantity)[0], "recipe": self.largest(quantity)[1],
                            "median": statistics.median(values.values()),
                            "percentile_90": sorted(values.values())[int(0.9 * len(values))]}
                 for quantity, values in self.compared.items()}
        return {"runs": self.runs, "same_bytes": self.same, "other_messages": self.messages,
                "failed_on_both": self.failed, "quantities": table}


def run_all(chosen, folder, paths, workers=None):
    """Runs the recipes on the platforms, several at once. By platform: {recipe: run}; results in folder/PLATFORM."""
    with concurrent.futures.ThreadPoolExecutor(workers or os.cpu_count()) as pool:
        runs = pool.map(lambda platform: platform.run(os.path.join(folder, platform.name), paths), chosen)
        return {platform.name: {run["name"]: run for run in of_platform} for platform, of_platform in zip(chosen, runs)}


def compare(scheme, reference, other, runs, folder, cache):
    """Compares the results of two platforms. cache: results of the reference that were read before."""
    found = Comparison(other.title)
    for name, run in runs[reference.name].items():
        found.runs += 1
        paths = [os.path.join(folder, platform.name, name + ".txt") for platform in (reference, other)]
        if runs[other.name][name]["message"] != run["message"]:
            found.messages.append(name)
            continue
        if run["message"]:
            found.failed.append(name)
            continue
        if name not in cache:
            cache[name] = differences.read(paths[0])
        if differences.same_text(*paths):
            found.same += 1
            result = cache[name]
        else:
            result = differences.read(paths[1])
        if scheme == "staged":
            values, share = differences.of_rows(cache[name], result)
            found.least_share = min(found.least_share, share)
        else:
            values = differences.of_layers(cache[name], result)
        for quantity, value in values.items():
            found.compared.setdefault(quantity, {})[name] = value
    return found


def compare_all(scheme, others, folder, texts):
    """A list of Comparison, of each of the other platforms."""
    reference = platforms.known()[platforms.REFERENCE]
    paths = recipes.write(os.path.join(folder, "recipes"), texts)
    # The slow one first.
    chosen = sorted((reference, *others), key=lambda platform: platform.name != "arm64")
    runs = run_all(chosen, folder, paths)
    for of_platform in runs.values():
        for run in of_platform.values():
            run["message"] = run["message"].rstrip("\n")
    cache = {}
    return [compare(scheme, reference, other, runs, folder, cache) for other in others]


def table(found):
    """The comparisons as text."""
    lines = []
    for one in found:
        lines.append(f"{one.title}: {one.runs} recipes, {one.same} with the same bytes, {len(one.failed)} fail on both, "
                     f"{len(one.messages)} end with another message")
        for quantity, values in one.compared.items():
            value, name = one.largest(quantity)
            lines.append(f"  {quantity:14} largest {value:9.2e} {name:32} median {statistics.median(values.values()):9.2e}")
    return "\n".join(lines)


def main():
    known = platforms.known()
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--scheme", choices=recipes.SCHEMES, default=recipes.SCHEMES[0])
    parser.add_argument("--count", type=int, default=recipes.COUNT, help="random recipes of each family and stress model")
    parser.add_argument("--platform", nargs="*", choices=[name for name in known if name != platforms.REFERENCE])
    parser.add_argument("--json", metavar="FILE", help="where the table is kept")
    parser.add_argument("--keep", metavar="FOLDER", help="where recipes and results are kept")
    a = parser.parse_args()
    if a.platform:
        others = [known[name] for name in a.platform]
    else:
        others = [one for name, one in known.items() if name != platforms.REFERENCE and one.is_built()]
    with tempfile.TemporaryDirectory() as scratch:
        found = compare_all(a.scheme, others, a.keep or scratch, recipes.texts(a.scheme, a.count))
    print(table(found))
    if a.json:
        with open(a.json, "w", encoding="utf-8") as file:
            json.dump({one.title: one.record() for one in found}, file, indent=1)
            file.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
