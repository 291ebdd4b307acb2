"""vorlen show and vorlen diff on small result files whose values can be calculated manually, and on faulty ones."""
import csv
import io
import json
import os
import re
import unittest

from support import EXAMPLES, InAFolder, Result, example

TITLE = '"VORLEN output file, version 2.0"'
HEADING = ("#time(sec) z(nm) Vg xIn xGa xAl rho_TD(t) rho_VD0(t) a_eff(t) eps_xx(t) eps_yy(t) eps_zz(t) eps_yz(t) "
           "rho_TD(z) a_eff(z) eps_xx(z) eps_yy(z) eps_zz(z) eps_yz(z)")
# A template, two layers whose boundary (20 s) lies between rows, a cap. In the second layer a = 3.21 where the free
# lattice constant is 3.22 and the template's is 3.20: half relaxed.
LAYERS = [("template", 10, 100), ("a,\"1\"", 10, 20), ("b", 10, 20), ("cap", 5, 50)]
HALF = 3.21 / 3.22 - 1
ROWS = [(0, 0, 0.0, 3.2, 0.0), (10, 100, 0.0, 3.2, 0.0),
        (10, 100, 0.0, 3.2, 0.0), (15, 110, 0.1, 3.2, -0.01), (25, 130, 0.3, 3.2, -0.02), (30, 140, 0.3, 3.21, HALF),
        (30, 140, 0.0, 3.2, 0.0), (35, 190, 0.0, 3.2, 0.0)]
NUMBERS = ["begin", "end", "duration", "thickness", "mean_rate", "x_in", "x_ga", "x_al", "x_in_mid", "x_ga_mid",
           "x_al_mid", "x_in_end", "x_ga_end", "x_al_end", "eps_xx_t", "eps_xx_z", "rho_td_t", "rho_td_z", "v_defects_t", "relaxation"]


def result_text(layers=LAYERS, rows=ROWS, active=range(2, 6)):
    """rows: (time, z, x_in, a_eff, eps_xx)."""
    lines = [TITLE, "<LAYERS>", *(f'"{name}" {tau} {thickness}' for name, tau, thickness in layers), "</LAYERS>",
             HEADING]
    for number, (time, z, x_in, a_eff, eps) in enumerate(rows):
        state = [1e9, a_eff, eps, eps, 0, 0]
        values = [time, z, 2, x_in, 1 - x_in, 0, state[0], 4e8, *state[1:], *state]
        lines.append(" ".join(map(repr, map(float, values))) + (" " if number in active else ""))
    return "\n".join(lines) + "\n"


class Show(InAFolder):
    def layers_of(self, text):
        self.write("r.txt", text)
        run = self.run_tool("show", "--json", "r.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return json.loads(run.stdout)["layers"]

    def test_values_calculated_manually(self):
        layers = self.layers_of(result_text())
        self.assertEqual([layer["name"] for layer in layers], ["template", 'a,"1"', "b", "cap"])
        self.assertEqual([layer["kind"] for layer in layers], ["pre", "active", "active", "post"])
        for layer in layers:
            self.assertEqual(list(layer), ["number", "name", "kind", *NUMBERS])
            self.assertEqual((layer["rho_td_t"], layer["v_defects_t"]), (1e9, 2e8))  # the column holds it twice
        a, b = layers[1:3]
        self.assertEqual((a["begin"], a["end"], a["mean_rate"]), (10, 20, 2))
        # From 10 to 15 s x rises from 0 to 0.1 over 10 nm, from 15 to 20 s from 0.1 to 0.2 over 10 nm.
        self.assertAlmostEqual(a["x_in"], (0.05 * 10 + 0.15 * 10) / 20, delta=1e-15)
        self.assertAlmostEqual(a["x_ga"], 0.9, delta=1e-15)
        self.assertEqual((a["x_in_end"], a["eps_xx_t"]), (0.1, -0.01))  # the last row up to 20 s
        self.assertAlmostEqual(b["x_in"], (0.25 * 10 + 0.3 * 10) / 20, delta=1e-15)
        self.assertEqual(b["x_in_end"], 0.3)
        self.assertAlmostEqual(b["relaxation"], 0.5, delta=1e-12)
        self.assertAlmostEqual(a["relaxation"], 0.0, delta=1e-12)  # a_eff is that of the template
        self.assertIsNone(layers[0]["relaxation"])  # the template relative to itself
        self.assertEqual([layer["x_in"] for layer in (layers[0], layers[3])], [0, 0])

    def test_the_substrate_is_the_end_of_the_last_pre_stage(self):
        layers = [("wafer", 5, 50), ("buffer", 5, 50), *LAYERS[1:]]
        rows = [(0, 0, 0.0, 3.17, 0.0), (5, 50, 0.0, 3.18, 0.0), (5, 50, 0.0, 3.19, 0.0), *ROWS[1:2],
                *((time, z, x_in, 3.207, -0.01) for time, z, x_in, _, _ in ROWS[2:5]), *ROWS[5:]]
        found = self.layers_of(result_text(layers=layers, rows=rows, active=range(4, 8)))
        self.assertEqual([layer["kind"] for layer in found], ["pre", "pre", "active", "active", "post"])
        self.assertAlmostEqual(found[3]["relaxation"], 0.5, delta=1e-12)  # between 3.20 and 3.22

    def test_without_a_pre_stage_the_substrate_is_the_first_row(self):
        rows = [ROWS[2], *((time, z, x_in, 3.207, -0.01) for time, z, x_in, _, _ in ROWS[3:5]), *ROWS[5:]]
        found = self.layers_of(result_text(layers=LAYERS[1:], rows=rows, active=range(4)))
        self.assertEqual([layer["kind"] for layer in found], ["active", "active", "post"])
        self.assertAlmostEqual(found[1]["relaxation"], 0.5, delta=1e-12)

    def test_layers_that_a_failed_run_has_not_reached(self):
        layers = self.layers_of(result_text(rows=ROWS[:4]))
        self.assertEqual([layer["kind"] for layer in layers], ["pre", "active", "active", "active"])
        self.assertAlmostEqual(layers[1]["x_in"], 0.05, delta=1e-15)  # of the part that has grown
        for layer in layers[2:]:
            self.assertEqual([layer[name] for name in NUMBERS[5:]], [None] * 15)
        self.assertEqual(self.run_tool("show", "r.txt").returncode, 0)

    def test_a_pause_has_no_mean_composition(self):
        rows = [*ROWS[:3], (20, 100, 0.5, 3.2, 0.0), *ROWS[5:]]
        layers = self.layers_of(result_text(rows=rows, active=range(2, 5)))
        self.assertEqual([layers[1][name] for name in ("x_in", "x_ga", "x_al", "x_in_mid", "x_ga_mid", "x_al_mid",
                                                       "x_in_end")], [None] * 6 + [0.5])

    def test_the_middle_half_leaves_out_the_interfaces(self):
        # x rises from 0 to 0.2 over the first 5 nm of 20 and returns to 0 over the last: 0.2 in between.
        rows = [*ROWS[:2], (10, 100, 0.0, 3.2, 0.0), (12.5, 105, 0.2, 3.2, 0.0), (17.5, 115, 0.2, 3.2, 0.0),
                (20, 120, 0.0, 3.2, 0.0), *ROWS[5:]]
        layer = self.layers_of(result_text(rows=rows, active=range(2, 7)))[1]
        self.assertAlmostEqual(layer["x_in"], 0.15, delta=1e-15)
        self.assertAlmostEqual(layer["x_in_mid"], 0.2, delta=1e-15)
        self.assertAlmostEqual(layer["x_ga_mid"], 0.8, delta=1e-15)
        self.assertEqual(layer["x_al_mid"], 0)

    def test_in_the_middle_half_only_what_is_left_counts(self):
        # 16 nm with 0.1 grow, 6 nm of them evaporate, and 10 nm with 0.3 grow: half of 5 to 15 nm each.
        rows = [*ROWS[:2], (10, 100, 0.1, 3.2, 0.0), (14, 116, 0.1, 3.2, 0.0), (16, 110, 0.1, 3.2, 0.0),
                (17, 110, 0.3, 3.2, 0.0), (20, 120, 0.3, 3.2, 0.0), *ROWS[5:]]
        layer = self.layers_of(result_text(rows=rows, active=range(2, 8)))[1]
        self.assertAlmostEqual(layer["x_in_mid"], 0.2, delta=1e-15)

    def test_a_row_at_the_end_of_a_layer_belongs_to_it_also_at_0_s(self):
        """Where a tolerance relative to the time is 0."""
        rows = [(time - 20, *values) for time, *values in (*ROWS[:4], (20, 120, 0.2, 3.2, -0.02), *ROWS[5:])]
        layers = self.layers_of(result_text(rows=rows))
        self.assertEqual([(layer["end"], layer["x_in_end"]) for layer in layers[1:3]], [(0, 0.2), (10, 0.3)])

    def test_a_file_without_rows(self):
        layers = self.layers_of(result_text(rows=[]))
        self.assertEqual([layer["begin"] for layer in layers], [None] * 4)

    def test_csv_contains_the_same_numbers_as_json(self):
        layers = self.layers_of(result_text())
        run = self.run_tool("show", "--csv", "r.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        rows = list(csv.DictReader(io.StringIO(run.stdout, newline="")))
        self.assertEqual(len(rows), len(layers))
        for row, layer in zip(rows, layers):
            self.assertEqual((row["name"], row["kind"]), (layer["name"], layer["kind"]))
            for name in NUMBERS:
                self.assertEqual(float(row[name]) if row[name] else None, layer[name], name)

    def test_names_that_look_like_lines_of_the_file(self):
        for name in ('a" 1 2\nb', 'a" 1 2\n', '" 1 2\nb', "a\n</LAYERS>\nb", f"a\n</LAYERS>\n{HEADING}\nb", '\n"'):
            for names in ([name, "b"], ["b", name], [name, name]):
                with self.subTest(names):
                    layers = [LAYERS[0], (names[0], 10, 20), (names[1], 10, 20), LAYERS[3]]
                    self.assertEqual([layer["name"] for layer in self.layers_of(result_text(layers=layers))],
                                     ["template", *names, "cap"])

    def test_the_table_for_people(self):
        self.write("r.txt", result_text())
        run = self.run_tool("show", "r.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        growth, strain = run.stdout.split("\n\n")
        self.assertEqual(growth.splitlines()[3].split(),
                         ["3", "b", "active", "10", "20.000", "2.0000", "7.200", "In0.275Ga0.725N", "In0.300Ga0.700N"])
        self.assertEqual(strain.splitlines()[3].split(),
                         ["3", "b", "-0.311", "-0.311", "50.0", "1e+09", "1e+09", "2e+08"])
        self.assertEqual(strain.splitlines()[1].split()[4], "-")
        self.assertEqual(growth.splitlines()[4].split()[-2:], ["GaN", "GaN"])

    def test_the_layers_of_every_example_add_up(self):
        for name in EXAMPLES:
            with self.subTest(name):
                self.assertEqual(self.run_tool("run", example(name)).returncode, 0)
                result = Result(self.path(name + ".result.txt"))
                run = self.run_tool("show", "--json", name + ".result.txt")
                layers = json.loads(run.stdout)["layers"]
                self.assertEqual([(layer["name"], layer["duration"], layer["thickness"]) for layer in layers],
                                 result.layers)
                for layer in layers:
                    self.assertLess(layer["begin"], layer["end"])
                    if layer["x_in"] is not None:
                        self.assertAlmostEqual(layer["x_in"] + layer["x_ga"] + layer["x_al"], 1, delta=1e-9)
                self.assertEqual(layers[-1]["x_ga_end"], result.rows[-1][4])


class Diff(InAFolder):
    def diff(self, a, b, *options, unphysical=""):
        """unphysical: the names of the files about which the tool warns."""
        self.write("a.txt", a)
        self.write("b.txt", b)
        run = self.run_tool("diff", "a.txt", "b.txt", "--json", *options)
        warnings = "".join(rf"vorlen: warning: {name}\.txt: Unphysical values in .*\n" for name in unphysical)
        self.assertRegex(run.stderr, f"^{warnings}$")
        found = json.loads(run.stdout)
        self.assertEqual(run.returncode, 0 if found["same"] else 1)
        return found, {column.pop("column"): column for column in found["columns"]}

    def test_the_files_are_named(self):
        found, _ = self.diff(result_text(), result_text(), "--tolerance", "0.25")
        self.assertEqual((found["a"], found["b"], found["tolerance"]), ("a.txt", "b.txt", 0.25))
        self.assertEqual(list(found), ["a", "b", "same", "tolerance", "structure", "rows", "row_by_row", "z_range",
                                       "columns", "quantities", "layers", "largest_change"])

    def test_a_file_and_itself(self):
        found, columns = self.diff(result_text(), result_text())
        self.assertTrue(found["same"])
        self.assertTrue(found["row_by_row"])
        self.assertEqual((found["structure"], found["rows"], found["z_range"]), ([], [8, 8], [0, 190]))
        self.assertEqual({column["largest"] for column in columns.values()}, {0})
        self.assertEqual(len(columns), 18)
        run = self.run_tool("diff", "a.txt", "b.txt")
        self.assertEqual((run.returncode, run.stdout), (0, "No difference in 4 layers and 8 rows.\n"))
        run = self.run_tool("diff", "--columns", "a.txt", "b.txt")
        self.assertEqual((run.returncode, run.stdout), (0, "8 rows, compared one by one\nNo column differs.\n"))

    def test_one_value_in_a_pause(self):
        """Rows at the same height are compared one by one: interpolation over height would miss the middle one."""
        def text(x):
            pause = [(12, 100, 0.2, 3.2, 0), (14, 100, x, 3.2, 0), (16, 100, 0.2, 3.2, 0)]
            return result_text(rows=ROWS[:3] + pause + ROWS[4:], active=range(2, 8))

        found, columns = self.diff(text(0.2), text(0.25))
        self.assertFalse(found["same"])
        self.assertAlmostEqual(columns["x_in"]["largest"], 0.05, delta=1e-15)
        self.assertAlmostEqual(columns["x_in"]["relative"], 0.05 / 0.3, delta=1e-15)
        self.assertEqual((columns["x_in"]["z"], columns["x_in"]["layer"]), (100, 'a,"1"'))
        self.assertEqual((columns["x_in"]["a"], columns["x_in"]["b"]), (0.2, 0.25))
        self.assertEqual(columns["rate"]["largest"], 0)

    def test_other_rows_are_compared_on_a_common_depth_axis(self):
        # b has rows at 100, 120 and 140 nm: x is 0.275 at 130 nm there and 0.3 in a; at 140 nm it is 0.35 and 0.3.
        rows = [*ROWS[:3], (20, 120, 0.2, 3.2, -0.015), (30, 140, 0.35, 3.21, HALF), *ROWS[6:]]
        other = result_text(rows=rows, active=range(2, 5))
        found, columns = self.diff(result_text(), other)
        self.assertEqual((found["same"], found["row_by_row"], found["rows"]), (False, False, [8, 7]))
        self.assertEqual(found["structure"], ["8 rows and 7"])
        self.assertAlmostEqual(columns["x_in"]["largest"], 0.05, delta=1e-15)
        self.assertEqual((columns["x_in"]["z"], columns["x_in"]["layer"]), (140, "b"))
        self.assertLess(columns["time"]["largest"], 1e-12)
        # 0.05 / 0.35 is 0.143; with a tolerance, a different number of rows is not a difference.
        self.assertFalse(self.diff(result_text(), other, "--tolerance", "0.1")[0]["same"])
        self.assertFalse(self.diff(result_text(), other, "--tolerance", "0.14")[0]["same"])
        found, _ = self.diff(result_text(), other, "--tolerance", "0.6")
        self.assertEqual((found["same"], found["structure"]), (True, []))

    def test_layers_that_differ(self):
        layers = [LAYERS[0], ("c", 10, 20), ("b", 10, 20.5), LAYERS[3]]
        found, _ = self.diff(result_text(), result_text(layers=layers), "--tolerance", "0.01")
        self.assertEqual(found["structure"], ['layer 2, "a,"1"": the other\'s name is "c"',
                                              'layer 3, "b": thickness 20 nm and 20.5 nm'])
        self.assertFalse(found["same"])
        found, _ = self.diff(result_text(), result_text(layers=LAYERS[:3]))
        self.assertEqual(found["structure"], ["4 layers and 3"])

    def test_nan(self):
        nan = result_text(rows=[*ROWS[:3], (15, 110, float("nan"), 3.2, -0.01), *ROWS[4:]])
        found, columns = self.diff(nan, nan, unphysical="ab")
        self.assertTrue(found["same"])
        found, columns = self.diff(result_text(), nan, "--tolerance", "1e9", unphysical="b")
        self.assertFalse(found["same"])
        self.assertIsNone(columns["x_in"]["largest"])  # JSON has no infinity
        lost = result_text(rows=[*ROWS[:3], (15, float("nan"), 0.1, 3.2, -0.01), *ROWS[4:]])
        found, columns = self.diff(result_text(), lost, unphysical="b")
        self.assertEqual((found["same"], columns), (False, {}))
        self.assertIn("no common depth axis", found["structure"][-1])

    def test_the_table_of_columns_names_the_places(self):
        self.write("a.txt", result_text())
        self.write("b.txt", result_text(rows=[*ROWS[:3], (15, 110, 0.15, 3.25, -0.01), *ROWS[4:]]))
        run = self.run_tool("diff", "--columns", "a.txt", "b.txt", env={**os.environ, "LC_ALL": "C"})
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        lines = {line.split()[0]: line.split() for line in run.stdout.splitlines() if line.startswith("  ")}
        self.assertEqual(lines["x_in"], ["x_in", "0.05", "0.167", "110.000", "0.1", "0.15", 'a,"1"'])
        self.assertEqual(lines["a_eff_t"], ["a_eff_t", "A", "0.05", "0.0154", "110.000", "3.2", "3.25", 'a,"1"'])
        self.assertTrue(run.stdout.endswith("\nDifferent.\n"))


class Faults(InAFolder):
    def test_files_that_are_not_results(self):
        self.write("good.txt", result_text())
        self.write("empty.txt", "")
        self.write("cut.txt", result_text()[:-5])
        self.write("other.txt", "hello\n")
        os.mkdir(self.path("folder"))
        os.symlink("nowhere", self.path("dangling"))
        for name in ("none.txt", "empty.txt", "cut.txt", "other.txt", "folder", "dangling"):
            with self.subTest(name):
                run = self.run_tool("show", name)
                self.assertEqual((run.returncode, run.stdout), (1, ""))
                self.assertRegex(run.stderr, f"^vorlen: {name}[ ,].*\n$")
                for arguments in ([name, "good.txt"], ["good.txt", name]):
                    run = self.run_tool("diff", *arguments)
                    self.assertEqual((run.returncode, run.stdout), (2, ""))
                    self.assertRegex(run.stderr, f"^vorlen: {name}[ ,].*\n$")

    def test_messages_name_the_line(self):
        other = 'is not a result file: its first line is not "VORLEN output file, version 2.0"'
        for text, message in (("hello", f" {other}"), ("hello\n", f" {other}"), ("\n", f" {other}"),
                           (TITLE, f" {other}"), (TITLE + "\n", ", line 2: expected <LAYERS>"),
                           (TITLE + "\n<LAYERS>\n", ", line 2: the list of layers has no end"),
                           (TITLE + "\n<LAYERS>\n</LAYERS>\n", ", line 4: expected " + HEADING),
                           (result_text(layers=[("a", 1, 2), ("b", "x", 3)]), ", line 4: not a layer"),
                           (result_text() + "1 2\n", ", line 17: not a row of 19 numbers"),
                           (result_text()[:-2], ", line 16: the last line is cut off")):
            with self.subTest(message):
                self.write("r.txt", text)
                run = self.run_tool("show", "r.txt")
                self.assertEqual((run.returncode, run.stderr), (1, f"vorlen: r.txt{message}\n"))

    def test_unphysical_rows_are_shown_with_a_warning(self):
        wild = result_text(rows=[*ROWS[:4], (25, 130, 4.86, 3.2, -0.02), *ROWS[5:]])
        self.write("r.txt", wild)
        text = "Unphysical values in 1 of 8 rows, first at 25 s in layer 3 (b): indium fraction is 4.86"
        for options in ([], ["--csv"], ["--json"]):
            run = self.run_tool("show", "r.txt", *options)
            self.assertEqual((run.returncode, run.stderr), (0, f"vorlen: warning: r.txt: {text}\n"))
            self.assertIn("template", run.stdout)
        self.assertEqual(json.loads(run.stdout)["unphysical"], text)
        self.write("r.txt", result_text())
        self.assertIsNone(json.loads(self.run_tool("show", "r.txt", "--json").stdout)["unphysical"])

    def test_the_place_of_an_unphysical_row(self):
        # Boundaries are at 10, 20 and 30 s; a row of an active layer there belongs to the one that ends.
        for number, place in enumerate(("1 (template)", "1 (template)", '2 (a,"1")', '2 (a,"1")', "3 (b)", "3 (b)",
                                        "4 (cap)", "4 (cap)")):
            with self.subTest(number):
                rows = list(ROWS)
                rows[number] = (*ROWS[number][:3], float("inf"), ROWS[number][4])
                self.write("r.txt", result_text(rows=rows))
                self.assertRegex(self.run_tool("show", "r.txt").stderr,
                                 rf" in layer {re.escape(place)}: in-plane lattice constant \(t\) is infinite\n$")

    def test_the_limits_of_fractions(self):
        for number in (3, 0, 7):  # an active row, and rows of a pre-stage and a post-stage, which are not simulated
            for x, physical in ((-0.001, True), (1.001, True), (-0.0010001, False), (1.0010001, False)):
                with self.subTest((number, x)):
                    rows = list(ROWS)
                    rows[number] = (*ROWS[number][:2], x, *ROWS[number][3:])
                    self.write("r.txt", result_text(rows=rows))
                    stderr = self.run_tool("show", "r.txt").stderr
                    self.assertEqual(stderr == "", physical or number != 3, stderr)

    def test_wrong_command_lines(self):
        self.write("r.txt", result_text())
        for arguments in (["show"], ["show", "r.txt", "r.txt"], ["show", "--csv", "--json", "r.txt"], ["diff", "r.txt"],
                          ["diff", "r.txt", "r.txt", "--tolerance", "-1"], ["diff", "r.txt", "r.txt", "--tolerance"],
                          ["diff", "--json", "--columns", "r.txt", "r.txt"]):
            self.expect_not_understood(*arguments)


if __name__ == "__main__":
    unittest.main()
