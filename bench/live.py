#!/usr/bin/env python3
"""Time of the WebAssembly module in node against that of the library: bench/live.py [--build build/release] [RECIPE ...]

Each recipe, by default each example, is run several times by both; the shortest times count. Node compiles the module
again while it runs, so its first runs are slower.
"""
import argparse
import math
import os
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tests", "numbers"))

import platforms  # noqa: E402


def shortest(runs):
    times = {}
    for run in runs:
        times[run["name"]] = min(run["milliseconds"], times.get(run["name"], math.inf))
    return times


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recipes", nargs="*", metavar="RECIPE")
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "release"))
    parser.add_argument("--repeat", type=int, default=10)
    a = parser.parse_args()
    examples = os.path.join(ROOT, "examples")
    recipes = a.recipes or sorted(os.path.join(examples, name) for name in os.listdir(examples) if name.endswith(".xml"))
    recipes = [os.path.abspath(recipe) for recipe in recipes for _ in range(a.repeat)]
    with tempfile.TemporaryDirectory() as folder:
        known = platforms.known(a.build)
        native = shortest(known[platforms.REFERENCE].run(folder, recipes))
        module = shortest(known["wasm"].run(folder, recipes))
    print(f"{'recipe':20} {'library, ms':>12} {'module, ms':>12} {'ratio':>6}")
    for name in native:
        print(f"{name:20} {native[name]:12.2f} {module[name]:12.2f} {module[name] / native[name]:6.2f}")
    ratios = [module[name] / native[name] for name in native]
    print(f"{'geometric mean':46} {math.exp(sum(map(math.log, ratios)) / len(ratios)):6.2f}")


if __name__ == "__main__":
    main()
