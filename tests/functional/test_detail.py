"""Recipes with output:detail, run under both schemes."""
import csv
import io
import unittest

from support import InAFolder, example

SCHEMES = ("staged", "continuous")


class Detail(InAFolder):
    def recipe(self, name, detail):
        with open(example(name), encoding="utf-8") as file:
            text = file.read()
        element = f'<output><detail val="{detail}"/></output>'
        self.write("r.xml", text.replace("</NonstSurfChem>", element + "</NonstSurfChem>"))

    def rows(self, scheme, active_only=True):
        run = self.run_tool("run", "r.xml", "--scheme", scheme, "-o", "r.result.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        shown = self.run_tool("show", "--rows", "r.result.txt")
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        rows = [{name: float(value) for name, value in row.items()} for row in csv.DictReader(io.StringIO(shown.stdout))]
        return [row for row in rows if row["active"] or not active_only]

    def test_the_main_columns_stay_as_they_are(self):
        for name, columns in (("ingan_gan_mqw", 25), ("ingan_v_defects", 39)):
            for scheme in SCHEMES:
                with self.subTest(name=name, scheme=scheme):
                    self.recipe(name, "false")
                    plain = self.rows(scheme, active_only=False)
                    self.recipe(name, "true")
                    detailed = self.rows(scheme, active_only=False)
                    self.assertEqual((len(plain[0]), len(detailed[0])), (1 + 19, 1 + columns))
                    self.assertEqual([{key: row[key] for key in plain[0]} for row in detailed], plain)

    def test_an_unknown_word_is_reported(self):
        self.recipe("ingan_gan_mqw", "yes")
        run = self.run_tool("run", "r.xml")
        self.assertEqual(run.returncode, 1)
        self.assertIn('Output detail "yes" is not recognized', run.stderr)

    def test_the_columns_fit_together(self):
        self.recipe("ingan_v_defects", "true")
        for scheme in SCHEMES:
            with self.subTest(scheme):
                rows = self.rows(scheme)
                opened = [row for row in rows if row["rho_vd"] > 0]
                self.assertGreater(len(opened), 100)
                for row in rows:
                    self.assertAlmostEqual(row["x_sum"], 1, delta=1e-9)
                    self.assertAlmostEqual(row["x_sum"], row["x_in"] + row["x_ga"] + row["x_al"], delta=1e-14)
                    self.assertGreater(row["c_n"], 0)
                    self.assertEqual(row["rho_vd0_t"], 2 * row["rho_vd"] * 1e-4)  # m^-2 to cm^-2
                for row in opened:
                    # The continuous scheme computes J2 before it changes the density.
                    if scheme == "staged":
                        balance = row["e_v_loop"] + row["j0"] + row["j1"] + row["j2"]
                        self.assertAlmostEqual(row["delta_e"], balance, delta=1e-12 * row["e_v_loop"])
                    self.assertEqual([row[name] for name in ("i0", "i1", "j0_0", "j0_1")], [0] * 4)
                before = [row for row in rows if row["i1"] != 0]
                self.assertGreater(len(before), 20)
                for row in before:
                    self.assertAlmostEqual(row["k1"], row["i1"], delta=1e-12 * abs(row["i1"]))  # I1 starts at 0

    def test_the_density_of_v_defects_keeps_the_balance_at_zero_while_it_rises(self):
        self.recipe("ingan_v_defects", "true")
        rows = self.rows("staged")
        rising = [b for a, b in zip(rows, rows[1:]) if b["rho_vd"] > a["rho_vd"] > 0]
        self.assertGreater(len(rising), 50)
        for row in rising:
            self.assertLess(abs(row["delta_e"]), 1e-6 * row["e_v_loop"])

    def test_both_schemes_give_the_same_terms(self):
        # The schemes sum the terms in different ways. Their densities differ by about 6 %, since the continuous one
        # holds its density to its steps; J0 and h do not depend on it directly.
        self.recipe("ingan_v_defects", "true")
        staged, continuous = (self.rows(scheme)[-1] for scheme in SCHEMES)
        for name, share in (("c_ga", 1e-4), ("c_n", 1e-4), ("c_h", 1e-4), ("h", 0.01), ("j0", 0.01), ("k1", 0.01),
                            ("e_v_loop", 0.01), ("rho_vd", 0.1), ("j2", 0.1), ("r", 1e-3), ("z0", 1e-6)):
            with self.subTest(name):
                self.assertAlmostEqual(staged[name], continuous[name], delta=share * abs(continuous[name]))


if __name__ == "__main__":
    unittest.main()
