#!/usr/bin/env python3
"""Runs the same recipes on several platforms and compares the results with those of Linux on x86-64.

    compare.py [--scheme staged|continuous] [--count 25] [--platform NAME ...] [--json FILE] [--keep FOLDER]

Needs the builds of the presets release (with tests), arm64 and windows; a platform without a build is left out. Prints for
each platform and quantity the largest difference, the recipe that has it, and the median over all recipes.
differences.py explains the measure, which depends on the scheme. The last lines are the error of the scheme: its difference from
the staged scheme with a hundredth of the default tolerance.
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


OWN_ERROR = "Error of the scheme"
FINE = 1e-8  # tolerance


@dataclasses.dataclass
class Comparison:
    """One platform against the reference."""
    title: str
    runs: int = 0
    same: int = 0        # result files that are the same bytes, but for the sign of NaN
    compared: dict = dataclasses.field(default_factory=dict)  # by quantity: {recipe: difference}
    messages: list = dataclasses.field(default_factory=list)  # recipes whose messages differ
    failed: list = dataclasses.field(default_factory=list)    # recipes that fail on both with the same message
    unphysical: list = dataclasses.field(default_factory=list)  # recipes without a physical result on one or both

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
                "failed_on_both": self.failed, "unphysical": self.unphysical, "quantities": table}


def run_all(chosen, folder, paths, workers=None):
    """Runs the recipes on the platforms, several at once. By platform: {recipe: run}; results in folder/PLATFORM."""
    with concurrent.futures.ThreadPoolExecutor(workers or os.cpu_count()) as pool:
        runs = pool.map(lambda platform: platform.run(os.path.join(folder, platform.name), paths), chosen)
        return {platform.name: {run["name"]: {**run, "message": run["message"].rstrip("\n")} for run in of_platform}
                for platform, of_platform in zip(chosen, runs)}


def compare(scheme, title, runs, folders, cache):
    """Compares two sets of results. runs: {recipe: run} of the reference and the other; folders: of their results; cache:
    results of the reference that were read before."""
    found = Comparison(title)
    for name, run in runs[0].items():
        found.runs += 1
        paths = [os.path.join(folder, name + ".txt") for folder in folders]
        if runs[1][name]["message"] != run["message"]:
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
        if not (differences.is_physical(cache[name]) and differences.is_physical(result)):
            found.unphysical.append(name)
            continue
        if scheme == "staged":
            values = differences.of_rows(cache[name], result)
        else:
            values = differences.of_layers(cache[name], result)
        for quantity, value in values.items():
            found.compared.setdefault(quantity, {})[name] = value
    return found


def compare_all(scheme, reference, others, folder, texts, finer=None):
    """A list of Comparison, of each of the other platforms. finer: the same recipes with better results; the last
    Comparison is then that of the reference with them."""
    paths = recipes.write(os.path.join(folder, "recipes"), texts)
    # The slow one first.
    chosen = sorted((reference, *others), key=lambda platform: platform.name != "arm64")
    runs = run_all(chosen, folder, paths)
    cache = {}
    first = os.path.join(folder, reference.name)
    found = [compare(scheme, other.title, (runs[reference.name], runs[other.name]),
                     (first, os.path.join(folder, other.name)), cache) for other in others]
    if finer is not None:
        second = os.path.join(folder, "finer")
        of_finer = run_all([reference], second, recipes.write(os.path.join(second, "recipes"), finer))[reference.name]
        found.append(compare(scheme, OWN_ERROR, (runs[reference.name], of_finer),
                             (first, os.path.join(second, reference.name)), cache))
    return found


def table(found):
    """The comparisons as text."""
    lines = []
    for one in found:
        lines.append(f"{one.title}: {one.runs} recipes, {one.same} with the same bytes; {len(one.failed)} fail on both, "
                     f"{len(one.messages)} on one, {len(one.unphysical)} are unphysical")
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
        finer = {name: recipes.with_scheme(text, "staged", FINE)
                 for name, text in recipes.texts("staged", a.count).items()}
        found = compare_all(a.scheme, known[platforms.REFERENCE], others, a.keep or scratch,
                            recipes.texts(a.scheme, a.count), finer)
    print(table(found))
    if a.json:
        with open(a.json, "w", encoding="utf-8") as file:
            json.dump({one.title: one.record() for one in found}, file, indent=1)
            file.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
