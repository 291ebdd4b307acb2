#!/usr/bin/env python3
"""Where the continuous scheme solves a recipe, the staged one grows the same layers, but for known exceptions.

agreement.py does the same for as many recipes as one likes.
"""
import os
import unittest

import agreement
import plausible
import runs

COUNT = 20  # of each family, without and with stress
LEAST_COMPARED = 100  # the continuous scheme solves about 70 % of the recipes

# Why the schemes differ.
SHARED = "the continuous scheme shares a step over the end of a stage by time"
STEP = "V-defects of the continuous scheme depend on its step; with 1 s and less the schemes agree"
TENSION = ("the continuous scheme books growth under a strain between 0 and 1e-4 as tensile without raising h; the "
           "effective thickness of that part is wrong, and may be negative, when V-defects reach down into it")
EXCEPTIONS = {
    "led_1_0012": TENSION, "led_1_0014": STEP, "led_1_0016": SHARED, "led_1_0017": TENSION,
    "mqw_1_0004": STEP, "mqw_1_0013": TENSION, "mqw_1_0018": STEP,
}


class Agreement(unittest.TestCase):
    def test_the_layers_agree(self):
        compared = 0
        for family in plausible.FAMILIES:
            for stress in (False, True):
                for number in range(COUNT):
                    name = f"{family}_{int(stress)}_{number:04d}"
                    fault, differences = agreement.compare(os.environ["VORLEN_LIBRARY"], family, stress, number)
                    self.assertFalse(fault.startswith("staged"), f"{name}: {fault}")
                    compared += not fault
                    cause = EXCEPTIONS.get(name)
                    with self.subTest(name):
                        if cause is None:
                            self.assertEqual(differences, [], "\n" + "\n".join(map(str, differences)))
                            continue
                        self.assertTrue(differences, "no exception any more")
                        if cause == SHARED:
                            self.assertEqual([d.what for d in differences], ["thickness"])
        self.assertGreater(compared, LEAST_COMPARED)


class TheBounds(unittest.TestCase):
    """What counts as a difference."""

    def differences(self, thickness, x_In, other_thickness, other_x_In):
        def run(d, x):
            return runs.Run([runs.Layer("well", d, (x, 1.0 - x, 0.0))], [])
        return [d.what for d in runs.differences(run(thickness, x_In), run(other_thickness, other_x_In))]

    def test_thickness(self):
        self.assertEqual(self.differences(0.01, 0, 0.0299, 0), [])
        self.assertEqual(self.differences(0.01, 0, 0.0301, 0), ["thickness"])
        self.assertEqual(self.differences(100.0, 0, 100.099, 0), [])
        self.assertEqual(self.differences(100.0, 0, 99.899, 0), ["thickness"])
        self.assertEqual(self.differences(100.0, 0, float("nan"), 0), ["thickness"])

    def test_composition(self):
        self.assertEqual(self.differences(2.0, 0.2, 2.0, 0.2009), [])
        self.assertEqual(self.differences(2.0, 0.2, 2.0, 0.2011), ["x_In", "x_Ga"])
        self.assertEqual(self.differences(0.99, 0.2, 0.99, 0.3), [], "a layer below 1 nm")

    def test_means_are_weighted_by_thickness_and_shared_out_at_the_end_of_a_stage(self):
        def row(t, z, x):
            return [t, z, 0.0, x, 1.0 - x, 0.0]
        layers = [runs.Layer("a", 3.0), runs.Layer("b", 3.0)]
        # 1 nm of 0.1, 2 nm from 0.1 to 0.3, 4 nm from 0.3 to 0.7 half of which belong to the next stage, 1 nm of 0.7.
        runs.set_means(layers, [5.0, 3.0, 3.0],
                       [row(5, 0, 0.1), row(6, 1, 0.1), row(7, 3, 0.3), row(9, 7, 0.7), row(11, 8, 0.7)])
        self.assertAlmostEqual(layers[0].mean[0], (1 * 0.1 + 2 * 0.2 + 2 * 0.4) / 5)
        self.assertAlmostEqual(layers[1].mean[0], (2 * 0.6 + 1 * 0.7) / 3)


if __name__ == "__main__":
    unittest.main()
