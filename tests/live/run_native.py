"""Runs recipes with the shared library: run_native.py LIBRARY OUTPUT_FOLDER RECIPE...

Writes and prints what run_module.mjs writes and prints, without the status.
"""
import json
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "plausible"))

import runs  # noqa: E402


def main(library, folder, *recipes):
    run = runs.library(library)
    for recipe in recipes:
        name = os.path.splitext(os.path.basename(recipe))[0]
        start = time.perf_counter()
        message = run(recipe, os.path.join(folder, name + ".txt"))
        milliseconds = 1000.0 * (time.perf_counter() - start)
        print(json.dumps({"name": name, "message": message, "milliseconds": milliseconds}))


if __name__ == "__main__":
    main(*sys.argv[1:])
