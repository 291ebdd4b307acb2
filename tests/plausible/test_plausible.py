#!/usr/bin/env python3
"""Recipes of the kinds that process engineers write, under the staged scheme: every one runs to a physical end."""
import os
import tempfile
import unittest

import plausible
import runs

COUNT = 25  # of each family, without and with stress
SLACK = 1e-6  # of the fractions


class PlausibleRecipes(unittest.TestCase):
    def test_all_end_normally_with_finite_numbers_and_fractions_from_0_to_1(self):
        run = runs.library(os.environ["VORLEN_LIBRARY"])
        faults = []
        with tempfile.TemporaryDirectory() as folder:
            result = os.path.join(folder, "result.txt")
            names = plausible.write(folder, COUNT, scheme="staged")
            for name in names:
                text = run(os.path.join(folder, name + ".xml"), result)
                fault = text or runs.fault_of(runs.read(result), -SLACK, 1.0 + SLACK)
                if fault:
                    faults.append(f"{name}: {fault}")
        self.assertEqual(len(names), 8 * COUNT)
        self.assertEqual(faults, [], "\n" + "\n".join(faults))


class TheJudge(unittest.TestCase):
    """What the test above finds when something is wrong."""

    ROW = [10.0, 100.0, 0.1, 0.2, 0.8, 0.0] + [0.0] * 13

    def fault(self, thickness=1.0, **changed):
        row = list(self.ROW)
        for column, value in changed.items():
            row[getattr(runs, column)] = value
        run = runs.Run([runs.Layer("well", thickness)], [list(self.ROW), row])
        return runs.fault_of(run, -SLACK, 1.0 + SLACK)

    def test_nothing_is_wrong_with_a_good_run(self):
        self.assertEqual(self.fault(), "")
        self.assertEqual(self.fault(X_IN=-0.9e-6, X_GA=1.0 + 0.9e-6), "")

    def test_fractions_out_of_bounds(self):
        self.assertEqual(self.fault(X_AL=-1.1e-6), "fractions from -1.1e-06 to 0.8")
        self.assertEqual(self.fault(X_GA=4.86), "fractions from 0 to 4.86")

    def test_numbers_that_are_not_finite(self):
        for value in (float("nan"), float("inf"), -float("inf")):
            self.assertEqual(self.fault(RATE=value), "a number is not finite at 10.0 s")
        self.assertEqual(self.fault(thickness=float("nan")), "thickness of well is not finite")

    def test_no_rows(self):
        self.assertEqual(runs.fault_of(runs.Run([], []), 0, 1), "no rows")


class TheRecipes(unittest.TestCase):
    def test_the_same_arguments_give_the_same_recipe_and_others_another(self):
        first = plausible.recipe("led", True, 3)
        self.assertEqual(first, plausible.recipe("led", True, 3))
        for other in (plausible.recipe("led", True, 4), plausible.recipe("led", True, 3, seed="other"),
                      plausible.recipe("led", False, 3), plausible.recipe("mqw", True, 3)):
            self.assertNotEqual(first, other)

    def test_the_scheme_is_all_that_changes_with_it(self):
        staged = plausible.recipe("hemt", True, 0, scheme="staged")
        element = '<integration><scheme val="staged"/></integration>\n'
        self.assertEqual(staged.replace(element, ""), plausible.recipe("hemt", True, 0))


if __name__ == "__main__":
    unittest.main()
