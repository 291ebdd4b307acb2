"""The tool runs each example, and the printed table agrees with the result file."""
import math
import os
import tempfile
import unittest

from support import (EPS_XX_T, EXAMPLES, RATE, RHO_TD_T, RHO_VD0_T, TIME, X_AL, X_GA, X_IN, Z, Result, example,
                     printed_table, printed_words, vorlen)


class Examples(unittest.TestCase):
    def test_there_are_twelve(self):
        self.assertEqual(len(EXAMPLES), 12)

    def test_what_is_printed_agrees_with_the_file(self):
        for name in EXAMPLES:
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                run = vorlen("run", example(name), cwd=folder)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                # Default name and folder of the result, as described by --help.
                self.assertEqual(sorted(os.listdir(folder)), [name + ".result.txt", name + ".status.json"])
                result = Result(os.path.join(folder, name + ".result.txt"))
                self.check_table(run.stdout, result)
                self.check_words(run.stdout, result)
                self.assertIn(f"{len(result.rows)} rows in {name}.result.txt\n", run.stdout)

    def check_table(self, text, result):
        table = printed_table(text)
        self.assertEqual(len(table), len(result.layers))
        for index, (number, name, duration, thickness) in enumerate(table):
            self.assertEqual((number, name, duration), (index + 1, *result.layers[index][:2]))
            self.assertAlmostEqual(thickness, result.layers[index][2], delta=0.00051)  # three decimals are printed

    def check_words(self, text, result):
        words = printed_words(text)
        last = result.rows[-1]
        self.assertIn(f"At the end, {last[TIME]:.10g} s:\n", text)
        self.assertAlmostEqual(words["total thickness"][0], last[Z], delta=0.00051)
        self.assertAlmostEqual(words["growth rate"][0], last[RATE], delta=0.000051)
        for printed, column in zip(words["composition"], (X_IN, X_GA, X_AL), strict=True):
            self.assertAlmostEqual(printed, last[column], delta=0.00051)
        self.assertAlmostEqual(words["in-plane strain"][0], 100 * last[EPS_XX_T], delta=0.00051)
        self.assertTrue(math.isclose(words["dislocation density"][0], last[RHO_TD_T], rel_tol=0.0051))
        self.assertEqual("V-defects" in words, last[RHO_VD0_T] > 0)
        if last[RHO_VD0_T] > 0:
            self.assertTrue(math.isclose(words["V-defects"][0], last[RHO_VD0_T] / 2, rel_tol=0.0051))

    def test_the_rows_cover_all_layers_without_a_gap(self):
        for name in EXAMPLES:
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                vorlen("run", example(name), "-o", "out.txt", cwd=folder)
                result = Result(os.path.join(folder, "out.txt"))
                times = [row[TIME] for row in result.rows]
                self.assertEqual(times, sorted(times))
                self.assertTrue(math.isclose(times[-1] - times[0], sum(layer[1] for layer in result.layers)))
                self.assertTrue(math.isclose(result.rows[-1][Z], sum(layer[2] for layer in result.layers)))
                for row in result.rows:
                    self.assertFalse(any(map(math.isnan, row)))


if __name__ == "__main__":
    unittest.main()
