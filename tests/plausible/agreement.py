#!/usr/bin/env python3
"""Compares the layers that both integration schemes grow from the same recipes.

    agreement.py LIBRARY [--count 250] [--seed dev] [--family mqw ...]

Counts the recipes that the continuous scheme solves (result 0, all numbers finite, fractions in [-0.001, 1.001]), and
prints every quantity of a layer in which the staged scheme differs from it by more than the bounds in runs.py.
"""
import argparse
import multiprocessing
import os
import sys
import tempfile

import plausible
import runs

SLACK = 1e-3  # of the fractions of the continuous scheme


def compare(library, family, stress, number, seed="dev"):
    """Runs one recipe under both schemes. Returns why it can't be compared, empty if it can, and the differences."""
    run = runs.library(library)
    of_scheme = {}
    with tempfile.TemporaryDirectory() as folder:
        recipe, result = os.path.join(folder, "recipe.xml"), os.path.join(folder, "result.txt")
        for scheme in ("continuous", "staged"):
            with open(recipe, "w", encoding="utf-8") as file:
                file.write(plausible.recipe(family, stress, number, seed, scheme))
            text = run(recipe, result)
            if text:
                return f"{scheme}: {text}", []
            of_scheme[scheme] = runs.read(result)
            fault = runs.fault_of(of_scheme[scheme], -SLACK, 1.0 + SLACK)
            if fault:
                return f"{scheme}: {fault}", []
    return "", runs.differences(of_scheme["continuous"], of_scheme["staged"])


def compare_job(job):
    return job, compare(*job)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("library")
    parser.add_argument("--count", type=int, default=250, help="recipes of each family and stress model")
    parser.add_argument("--seed", default="dev")
    parser.add_argument("--family", nargs="*", choices=plausible.FAMILIES, default=list(plausible.FAMILIES))
    a = parser.parse_args()
    jobs = [(a.library, family, stress, number, a.seed)
            for family in a.family for stress in (False, True) for number in range(a.count)]
    compared = different = 0
    with multiprocessing.Pool() as pool:
        for (_, family, stress, number, _), (fault, differences) in pool.imap(compare_job, jobs):
            if fault.startswith("staged"):
                print(f"{family}_{int(stress)}_{number:04d}: {fault}")
                different += 1
            compared += not fault
            different += bool(differences)
            for difference in differences:
                print(f"{family}_{int(stress)}_{number:04d}: {difference}")
    print(f"{len(jobs)} recipes, {compared} compared, {different} differ")
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
