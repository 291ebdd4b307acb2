#!/usr/bin/env python3
"""The measure of differences finds what is different, and nothing else."""
import copy
import math
import os
import tempfile
import unittest

import compare
import differences
import platforms
import recipes

NAMES = [differences.TIME, *(name for names in differences.QUANTITIES.values() for name in names
                             if name != differences.TIME)]


def result(columns=None, durations=(10.0, 30.0), thicknesses=(20.0, 100.0)):
    """Two stages, with a switch at 10 s. Each column is 2 everywhere, but for time, height and those given."""
    all_columns = {name: [2.0] * 5 for name in NAMES}
    all_columns[differences.TIME] = [0.0, 10.0, math.nextafter(10.0, 11.0), 25.0, 40.0]
    all_columns[differences.HEIGHT] = [0.0, 20.0, 20.0, 70.0, 120.0]
    all_columns.update(columns or {})
    return differences.Result(all_columns, list(durations), list(thicknesses))


class Rows(unittest.TestCase):
    def test_a_result_does_not_differ_from_itself(self):
        self.assertEqual(set(differences.of_rows(result(), result()).values()), {0.0})

    def test_a_change_in_any_column_is_a_difference_of_its_quantity_alone(self):
        for quantity, names in differences.QUANTITIES.items():
            for name in names:
                if name in (differences.TIME, differences.HEIGHT):
                    continue
                with self.subTest(name):
                    changed = result()
                    changed.columns[name] = [2.0, 2.0, 2.0, 2.0, 2.0 + 2e-5]
                    found = differences.of_rows(result(), changed)
                    self.assertAlmostEqual(found.pop(quantity), 1e-5, delta=1e-12)
                    self.assertEqual(set(found.values()), {0.0})

    def test_nan_is_a_difference(self):
        changed = result({"xGa": [2.0, math.nan, 2.0, 2.0, 2.0]})
        self.assertTrue(math.isnan(differences.of_rows(result(), changed)["composition"]))

    def test_absent_metals_have_a_scale(self):
        found = differences.of_rows(result({"xIn": [1e-9] * 5}), result({"xIn": [2e-9] * 5}))
        self.assertAlmostEqual(found["composition"], 1e-6, delta=1e-12)

    def test_thickness_is_a_share_of_the_thickest_layer(self):
        found = differences.of_rows(result(), result(thicknesses=(20.0, 100.01)))
        self.assertAlmostEqual(found["thickness"], 1e-4, delta=1e-12)

    def test_rows_of_a_switch_are_compared_even_if_the_times_differ(self):
        later = result()
        later.columns[differences.TIME][1:3] = [10.1, math.nextafter(10.1, 11.0)]
        found = differences.of_rows(result(), later)
        self.assertAlmostEqual(found["time"], 0.1 / 40.0, delta=1e-12)
        later.columns["rho_VD0(t)"] = [2.0, 2.0, 3.0, 2.0, 2.0]
        self.assertEqual(differences.of_rows(result(), later)["V-defects"], 0.5)

    def test_the_two_sides_of_a_switch_are_not_mixed_up(self):
        columns = {"xIn": [0.0, 0.0, 1.0, 1.0, 1.0]}
        earlier = result(copy.deepcopy(columns))
        earlier.columns[differences.TIME][1:3] = [math.nextafter(10.0, 9.0), 10.0]
        self.assertEqual(differences.of_rows(result(columns), earlier)["composition"], 0.0)

    def test_another_number_of_switches_is_an_error(self):
        single = result({differences.TIME: [0.0, 10.0, 12.0, 25.0, 40.0]})
        with self.assertRaises(ValueError):
            differences.of_rows(result(), single)

    def test_the_height_is_compared_between_rows(self):
        """The middle row has no row of equal time, and is 5 nm off the line."""
        other = result({differences.TIME: [0.0, 10.0, math.nextafter(10.0, 11.0), 26.5, 40.0],
                        differences.HEIGHT: [0.0, 20.0, 20.0, 80.0, 120.0]})
        self.assertGreater(differences.of_rows(result(), other)["height"], 0.02)


class Layers(unittest.TestCase):
    def test_means_are_weighted_by_height(self):
        """The second layer: half of it at a mean of 2.5, half at 3.5."""
        one = result({"xIn": [0.0, 0.0, 2.0, 3.0, 4.0]})
        self.assertEqual(differences.means(one, ["xIn"]), [[0.0], [3.0]])

    def test_a_step_over_a_boundary_is_divided(self):
        one = result({differences.TIME: [0.0, 5.0, 15.0, 25.0, 40.0], differences.HEIGHT: [0.0, 10.0, 30.0, 70.0, 120.0],
                      "xIn": [0.0, 0.0, 4.0, 4.0, 4.0]})
        first, second = differences.means(one, ["xIn"])
        self.assertAlmostEqual(first[0], (10.0 * 0.0 + 10.0 * 1.0) / 20.0)
        self.assertAlmostEqual(second[0], (10.0 * 3.0 + 90.0 * 4.0) / 100.0)

    def test_thin_layers_have_no_mean(self):
        thin = result({differences.HEIGHT: [0.0, 0.9, 0.9, 70.0, 120.0]}, thicknesses=(0.9, 119.1))
        self.assertIsNone(differences.means(thin, ["xIn"])[0])
        other = result({differences.HEIGHT: [0.0, 0.9, 0.9, 70.0, 120.0]}, thicknesses=(0.8, 119.1))
        self.assertEqual(differences.of_layers(thin, other)["thickness"], 0.0)

    def test_each_quantity(self):
        changes = {"xAl": ("composition", 1e-3), "eps_xx(t)": ("strain", 5e-4), "rho_TD(t)": ("dislocations", 1e-3 / 2.001),
                   "rho_VD0(t)": ("V-defects", 1e-3 / 2.001)}
        for name, (quantity, expected) in changes.items():
            with self.subTest(name):
                found = differences.of_layers(result(), result({name: [2.001] * 5}))
                self.assertAlmostEqual(found.pop(quantity), expected, delta=1e-9)
                self.assertEqual(set(found.values()), {0.0})


class Files(unittest.TestCase):
    def files(self, *contents):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        paths = []
        for number, content in enumerate(contents):
            paths.append(os.path.join(folder.name, f"{number}.txt"))
            with open(paths[-1], "w", encoding="utf-8") as file:
                file.write(content)
        return paths

    def test_the_sign_of_nan_does_not_count(self):
        self.assertTrue(differences.same_text(*self.files("1 -nan nan\n", "1 nan -nan\n")))
        self.assertFalse(differences.same_text(*self.files("1 -nan\n", "1 -inf\n")))
        self.assertFalse(differences.same_text(*self.files("-1\n", "1\n")))

    def test_a_result_file_is_read(self):
        names = " ".join(NAMES)
        row = " ".join(["1e0"] * len(NAMES))
        path, = self.files(f'"VORLEN output file, version 2.0"\n<LAYERS>\n"a b" 10 20.5\n</LAYERS>\n{names}\n{row}\n{row} \n')
        found = differences.read(path)
        self.assertEqual((found.durations, found.thicknesses), ([10.0], [20.5]))
        self.assertEqual(found.columns["xIn"], [1.0, 1.0])

    def test_what_is_physical(self):
        self.assertTrue(differences.is_physical(result({"xIn": [0.0] * 5, "xGa": [1.0009] * 5, "xAl": [-0.0009] * 5})))
        self.assertFalse(differences.is_physical(result({"xIn": [0.0] * 5, "xGa": [1.01] * 5, "xAl": [0.0] * 5})))
        self.assertFalse(differences.is_physical(result({"xIn": [0.0] * 5, "xGa": [0.0] * 5, "xAl": [0.0] * 5,
                                                         "Vg": [math.inf] * 5})))


class TheLargest(unittest.TestCase):
    def test_nan_is_larger_than_any_number(self):
        one = compare.Comparison("a", compared={"strain": {"x": 1.0, "y": math.nan, "z": 2.0}})
        self.assertEqual(one.largest("strain")[1], "y")


class Recipes(unittest.TestCase):
    def test_only_the_scheme_changes(self):
        staged, continuous = recipes.texts("staged", 1), recipes.texts("continuous", 1)
        self.assertEqual(list(staged), list(continuous))
        self.assertGreater(len(staged), 8 + 10)
        for name, text in staged.items():
            self.assertTrue(text.count("<integration>") == text.count('<scheme val="staged"/>') == 1, name)
            changed = recipes.with_scheme(text, "continuous") == recipes.with_scheme(continuous[name], "continuous")
            self.assertTrue(changed, name)
        self.assertEqual(recipes.with_scheme("<NonstSurfChem></NonstSurfChem>", "staged", 1e-8),
                         '<NonstSurfChem><integration><scheme val="staged"/><tolerance val="1e-08"/></integration>'
                         "</NonstSurfChem>")

    def test_a_program_that_fails_is_reported_with_the_recipe_before(self):
        broken = platforms.Platform("broken", "Broken", ("sh", "-c", "echo '{\"name\": \"a\"}'; exit 3"))
        with tempfile.TemporaryDirectory() as folder:
            with self.assertRaisesRegex(RuntimeError, "Broken: exit status 3 after 1 of 2 recipes, the last one a"):
                broken.run(folder, ["a.xml", "b.xml"])


if __name__ == "__main__":
    unittest.main()
