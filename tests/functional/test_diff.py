"""The layers that vorlen diff compares: which correspond, what is shown, how it is rounded."""
import json
import os
import unittest

from support import InAFolder
from test_show import HEADING, TITLE

UTF8 = {**os.environ, "LC_ALL": "C.UTF-8"}
PLAIN = {**os.environ, "LC_ALL": "C"}


def layer(name, tau=10.0, thickness=20.0, x_in=0.0, x_al=0.0, eps=0.0, rho_td=1e9, v_defects=0.0):
    return {"name": name, "tau": tau, "thickness": thickness, "x_in": x_in, "x_al": x_al, "eps": eps, "rho_td": rho_td,
            "v_defects": v_defects}


def stack(*layers, edge=None, rows=None):
    """A result of simulated layers of constant composition. edge: x_in at the very start of each. rows: that many only."""
    lines = [TITLE, "<LAYERS>", *(f'"{each["name"]}" {each["tau"]} {each["thickness"]}' for each in layers), "</LAYERS>",
             HEADING]
    time = z = 0.0
    points = []
    for each in layers:
        shares = (0.0, 1.0) if edge is None else (0.0, 0.1, 1.0)
        for share in shares:
            x_in = edge if edge is not None and share == 0.0 else each["x_in"]
            state = [each["rho_td"], 3.2, each["eps"], each["eps"], 0, 0]
            points.append([time + share * each["tau"], z + share * each["thickness"], 2, x_in,
                           1 - x_in - each["x_al"], each["x_al"], each["rho_td"], 2 * each["v_defects"], *state[1:],
                           *state])
        time, z = time + each["tau"], z + each["thickness"]
    lines += [" ".join(repr(float(value)) for value in point) + " " for point in points[:rows]]
    return "\n".join(lines) + "\n"


QUANTUM_WELLS = [layer("buffer", 100, 500), *[layer("QB", 30, 12), layer("QW", 10, 3, x_in=0.125)] * 3, layer("cap")]


class DiffCase(InAFolder):
    def diff(self, a, b, *options, env=UTF8, stderr=""):
        self.write("a.txt", a)
        self.write("b.txt", b)
        run = self.run_tool("diff", "a.txt", "b.txt", *options, env=env)
        self.assertRegex(run.stderr, f"^{stderr}$")
        self.assertIn(run.returncode, (0, 1))
        return run

    def lines(self, a, b, *options, **more):
        return self.diff(stack(*a), stack(*b), *options, **more).stdout.splitlines()

    def pairs(self, a, b):
        """The numbers of the layers that correspond."""
        layers = json.loads(self.diff(stack(*a), stack(*b), "--json").stdout)["layers"]
        return [tuple(each[side] and each[side]["number"] for side in "ab") for each in layers]


class Table(DiffCase):
    def test_equal_wells_are_one_line(self):
        # Wells grown for 12 s instead of 10: 3.6 nm instead of 3 at the same 0.3 nm/s.
        longer = [layer("QW", 12, 3.6, x_in=0.125) if each["name"] == "QW" else each for each in QUANTUM_WELLS]
        self.assertEqual(self.lines(QUANTUM_WELLS, longer), [
            "      No.  Layer  Duration, s  Change  Thickness, nm  Change  Rate, nm/s  Change  In      Change",
            "  3, 5, 7  QW     10 → 12          +2  3.000 → 3.600  +0.600  0.3000           0  0.1250       0",
            "",
            "5 other layers are the same.",
            "The largest change is in layers 3, 5, 7, QW: their thickness rises from 3.000 to 3.600 nm (+0.600 nm)."])

    def test_interfaces_are_not_in_the_values(self):
        # Every layer starts with 0.3 indium, which falls to its own fraction within a tenth of its thickness.
        a, b = [layer("a", x_in=0.1)], [layer("a", x_in=0.12)]
        out = self.diff(stack(*a, edge=0.3), stack(*b, edge=0.25)).stdout
        self.assertIn("0.1000 → 0.1200  +0.0200", out)
        self.assertIn("its indium fraction rises from 0.1000 to 0.1200 (+0.0200).", out)

    def test_only_metals_and_quantities_that_occur(self):
        heading = self.lines([layer("a")], [layer("a", thickness=21)])[0]
        self.assertEqual(heading.split(), ["No.", "Layer", "Thickness,", "nm", "Change"])
        heading = self.lines([layer("a", x_al=0.2, eps=0.001)], [layer("a", x_al=0.2, eps=0.001, thickness=21)])[0]
        self.assertEqual(heading.split(), ["No.", "Layer", "Thickness,", "nm", "Change", "Al", "Change", "Strain,",
                                           "%", "Change"])

    def test_the_change_has_the_digits_of_the_values(self):
        for a, b, cell, change in ((20, 20.0004, "20.000", "<0.001"), (20, 20.0011, "20.000 → 20.001", "+0.001"),
                                   (20, 19.9989, "20.000 → 19.999", "-0.001"), (20, 20, "20.000", "0"),
                                   (20, 20.001, "20.000 → 20.001", "+0.001"), (20, 20.0009, "20.000 → 20.001", "<0.001"),
                                   (20.0004, 20.0006, "20.000 → 20.001", "<0.001")):
            with self.subTest((a, b)):
                lines = self.lines([layer("a", thickness=a), layer("z")], [layer("a", thickness=b), layer("z", x_in=0.1)])
                row = next((line for line in lines if line.split()[:2] == ["1", "a"]), None)
                if change in ("0", "<0.001"):
                    self.assertIsNone(row)
                    self.assertIn("1 other layer " + ("is the same." if change == "0" else
                                                      "differs by less than the digits show."), lines)
                    # In a line with another difference:
                    lines = self.lines([layer("a", thickness=a)], [layer("a", thickness=b, x_in=0.1)])
                    row = lines[1]
                self.assertTrue(" ".join(row.split()).startswith(f"1 a {cell} {change}"), row)

    def test_the_change_is_that_of_the_shown_numbers(self):
        # The true differences are 0.0052 and 0.0078.
        for a, b, cell in ((20.0014, 20.0066, "20.001 → 20.007  +0.006"), (20.0066, 20.0014, "20.007 → 20.001  -0.006"),
                           (20.0016, 20.0094, "20.002 → 20.009  +0.007")):
            with self.subTest((a, b)):
                lines = self.lines([layer("a", thickness=a)], [layer("a", thickness=b)])
                self.assertIn(cell, lines[1])
                self.assertIn(f"({cell.split()[-1]} nm)", lines[-1])

    def test_differences_below_the_digits_do_not_split_equal_layers(self):
        a = [layer("QW", x_in=0.1)] * 3
        b = [layer("QW", x_in=0.2, thickness=20 + excess) for excess in (0, 1e-5, 2e-5)]
        lines = self.lines(a, b)
        self.assertEqual(lines[1].split(), ["1-3", "QW", "20.000", "<0.001", "0.1000", "→", "0.2000", "+0.1000"])
        self.assertTrue(lines[-1].startswith("The largest change is in layers 1-3, QW: their indium fraction rises"))

    def test_slivers_are_one_line(self):
        """Pauses, in which next to nothing grows, of another composition, duration and thickness."""
        a = [layer("GaN"), layer("pause", 5, 0.002, x_in=0.1, x_al=0.3), layer("QW", x_in=0.1), layer("pause", 5, 0.01),
             layer("end", 5, 0)]
        b = [layer("GaN"), layer("pause", 9, 0.09, x_in=0.3), layer("QW", x_in=0.101), layer("pause", 5, 0.09), layer("end", 5, 0)]
        lines = self.lines(a, b)
        self.assertEqual(lines[0].split(), ["No.", "Layer", "Thickness,", "nm", "Change", "In", "Change"])
        self.assertEqual([line.split()[1] for line in lines[1:2]], ["QW"])
        self.assertEqual(lines[2:], ["", "2 other layers are the same.", "2 layers thinner than 0.1 nm differ.",
                                     "The largest change is in layer 3, QW: its indium fraction rises from 0.1000 to "
                                     "0.1010 (+0.0010)."])
        found = json.loads(self.diff(stack(*a), stack(*b), "--json").stdout)["layers"]
        self.assertEqual([any(value["visible"] for value in each["values"].values()) for each in found],
                         [False, False, True, False, False])
        lines = self.lines(a, [*b[:2], a[2], *b[3:]])
        self.assertEqual(lines, ["3 layers are the same.", "2 layers thinner than 0.1 nm differ.",
                                 "The only change is in layers thinner than 0.1 nm."])
        # A layer that grows from 0.09 to 0.11 nm is compared.
        self.assertIn("  1  a  ", self.lines([layer("a", thickness=0.09)], [layer("a", thickness=0.11)])[1])

    def test_duration_and_rate_that_compensate_each_other(self):
        lines = self.lines([layer("n-GaN", 3470, 2000), layer("QW", 10, 3, x_in=0.125)],
                           [layer("n-GaN", 2776, 2000), layer("QW", 10, 3, x_in=0.13)])
        self.assertEqual(lines[-1], "The largest change is in layer 1, n-GaN: its duration falls from 3470 to 2776 s "
                                    "(-694 s).")
        # Of a layer of 0.2 nm it counts a fifth of that.
        lines = self.lines([layer("thin", 10, 0.2), layer("QW", 10, 3, x_in=0.125)],
                           [layer("thin", 8, 0.2), layer("QW", 10, 3, x_in=0.13)])
        self.assertIn("in layer 2, QW: its indium fraction", lines[-1])

    def test_a_metal_that_rounds_to_0_has_no_column(self):
        a, b = [layer("a", x_al=4e-5)], [layer("a", x_al=3e-5, thickness=21)]
        self.assertNotIn("Al", self.lines(a, b)[0].split())
        self.assertIn("Al", self.lines(a, [layer("a", x_al=6e-5, thickness=21)])[0].split())

    def test_densities_have_three_digits(self):
        lines = self.lines([layer("a", rho_td=6.1234e11)], [layer("a", rho_td=6.1449e11)])
        self.assertIn("6.12e+11 → 6.14e+11", lines[1])
        self.assertTrue(lines[1].endswith("+2e+09"), lines[1])  # 2.15e9, of which the last digit shown is 1e9
        lines = self.lines([layer("a", rho_td=6.1234e11)], [layer("a", rho_td=6.1235e11)])
        self.assertEqual(lines[0], "1 layer differs by less than the digits show.")

    def test_without_utf8_the_arrow_is_ascii(self):
        lines = self.lines([layer("a")], [layer("a", thickness=21)], env=PLAIN)
        self.assertEqual(lines[1], "     1  a      20.000 -> 21.000  +1.000")

    def test_many_layers_are_abbreviated(self):
        a = [layer("W", x_in=0.1), layer("B")] * 10
        b = [layer("W", x_in=0.2), layer("B")] * 10
        self.assertEqual(self.lines(a, b)[-1], "The largest change is in layers 1, 3, 5, ..., 19, W: "
                                               "their indium fraction rises from 0.1000 to 0.2000 (+0.1000).")
        self.assertIn("layers 1-4, W: ", self.lines([layer("W", x_in=0.1)] * 4, [layer("W", x_in=0.2)] * 4)[-1])

    def test_a_composition_that_only_one_has(self):
        lines = self.lines([layer("pause", thickness=0), layer("b")], [layer("pause", x_in=0.1), layer("b")])
        self.assertEqual(lines[1].split(), ["1", "pause", "0.000", "→", "20.000", "+20.000", "-", "→", "0.1000", "-"])
        lines = self.lines([layer("pause", thickness=0, x_in=0.1), layer("b", x_in=0.1)],
                           [layer("pause", thickness=0, x_in=0.2), layer("b", x_in=0.2)])
        self.assertNotIn("pause", "".join(lines))  # nothing grew in either

    def test_a_negligible_layer_is_not_the_largest_change(self):
        # 0.002 to 0.004 nm is twice as much, 20 to 22 nm a tenth.
        lines = self.lines([layer("a", thickness=0.002), layer("b")],
                           [layer("a", thickness=0.004), layer("b", thickness=22)])
        self.assertIn("in layer 2, b: its thickness rises from 20.000 to 22.000 nm (+2.000 nm).", lines[-1])

    def test_a_composition_comes_before_the_strain_it_causes(self):
        lines = self.lines([layer("a", x_in=0.1, eps=-0.010)], [layer("a", x_in=0.11, eps=-0.0111)])
        self.assertIn("its indium fraction rises from 0.1000 to 0.1100", lines[-1])
        lines = self.lines([layer("a", x_in=0.1, eps=-0.010)], [layer("a", x_in=0.1, eps=-0.005)])
        self.assertIn("its in-plane strain rises from -1.000 to -0.500 % (+0.500 %).", lines[-1])

    def test_the_tolerance_hides_smaller_differences(self):
        a = [layer("a", x_in=0.1), layer("b", thickness=10)]
        b = [layer("a", x_in=0.1009), layer("b", thickness=12)]
        lines = self.lines(a, b, "--tolerance", "0.01")
        self.assertNotIn("  1  a", "".join(lines))
        self.assertIn("1 other layer differs by less than the digits show or the tolerance.", lines)
        run = self.diff(stack(*a), stack(*b), "--tolerance", "0.5")
        self.assertEqual(run.returncode, 0)
        self.assertTrue(run.stdout.startswith("The same within the tolerance of 0.5.\nThe largest relative deviation of "
                                              "a column is "), run.stdout)

    def test_differences_below_the_digits(self):
        lines = self.lines([layer("a", x_in=0.2)], [layer("a", x_in=0.2 + 1e-9)])
        self.assertEqual(lines[0], "1 layer differs by less than the digits show.")
        # 1e-9 of 0.2, or of 0.8 for gallium
        self.assertRegex(lines[1], r"^The largest relative deviation of a column is 5e-09, of x_in at \S+ nm, in a "
                                   r"\(--columns lists all\)\.$")
        self.assertEqual(len(lines), 2)

    def test_the_same(self):
        run = self.diff(stack(*QUANTUM_WELLS), stack(*QUANTUM_WELLS))
        self.assertEqual((run.returncode, run.stdout), (0, "No difference in 8 layers and 16 rows.\n"))

    def test_a_run_that_ended_early(self):
        text = stack(*QUANTUM_WELLS, rows=5)
        run = self.diff(stack(*QUANTUM_WELLS), text,
                        stderr=r"vorlen: warning: b\.txt: The run ended at 130 s, at the start of layer 3 \(QW\)\n")
        self.assertEqual(run.returncode, 1)
        self.assertIn("0.1250 → -", run.stdout)

    def test_names_with_line_breaks_stay_on_one_line(self):
        lines = self.lines([layer("a\nb")], [layer("a\nb", thickness=30)])
        self.assertIn("a b", lines[1])

    def test_json_has_every_layer_and_the_texts_of_the_table(self):
        longer = [layer("QW", 12, 3.6, x_in=0.125) if each["name"] == "QW" else each for each in QUANTUM_WELLS]
        found = json.loads(self.diff(stack(*QUANTUM_WELLS), stack(*longer), "--json").stdout)
        self.assertEqual([each["quantity"] for each in found["quantities"] if each["shown"]],
                         ["duration", "thickness", "mean_rate", "x_in_mid"])
        self.assertEqual(len(found["layers"]), 8)
        well = found["layers"][2]
        self.assertEqual(well["a"], {"number": 3, "name": "QW", "kind": "active"})
        thickness = well["values"]["thickness"]
        self.assertEqual((thickness["a"], thickness["b"], thickness["visible"]), (3.0, 3.6, True))
        self.assertAlmostEqual(thickness["difference"], 0.6, delta=1e-15)
        self.assertEqual(thickness["text"], ["3.000", "3.600", "+0.600"])
        self.assertFalse(found["layers"][0]["values"]["thickness"]["visible"])
        self.assertIn("The largest change is in layers 3, 5, 7, QW", found["largest_change"])


class Matching(DiffCase):
    def test_inserted_and_missing_layers(self):
        names = [layer(name) for name in "abcd"]
        inserted = [*names[:2], layer("x"), *names[2:]]
        self.assertEqual(self.pairs(names, inserted), [(1, 1), (2, 2), (None, 3), (3, 4), (4, 5)])
        self.assertEqual(self.pairs(inserted, names), [(1, 1), (2, 2), (3, None), (4, 3), (5, 4)])
        self.assertEqual(self.pairs(names, names[1:]), [(1, None), (2, 1), (3, 2), (4, 3)])
        self.assertEqual(self.pairs(names, names[:1]), [(1, 1), (2, None), (3, None), (4, None)])
        self.assertEqual(self.lines(names, inserted), [
            "4 layers are the same.", "Only in the second:", "  layer 3, x, 20.000 nm",
            "The largest change: 1 layer is only in the second."])

    def test_as_many_names_as_possible_correspond(self):
        # "abcbdab" and "bdcaba" have a longest common subsequence of four letters.
        a, b = ([layer(name) for name in text] for text in ("abcbdab", "bdcaba"))
        self.assertEqual(sum(None not in pair for pair in self.pairs(a, b)), 4)

    def test_a_renamed_layer_keeps_its_place(self):
        a, b = [layer("a"), layer("b"), layer("c")], [layer("a"), layer("B", x_al=0.1), layer("c")]
        self.assertEqual(self.pairs(a, b), [(1, 1), (2, 2), (3, 3)])
        self.assertIn("  2  b → B  ", self.lines(a, b)[1])

    def test_other_names_alone_are_reported(self):
        lines = self.lines([layer("a"), layer("b")], [layer("a"), layer("c")])
        self.assertEqual(lines[:2], ["2 layers are the same.", "1 of them has another name."])

    def test_added_periods(self):
        more = [*QUANTUM_WELLS[:-1], *QUANTUM_WELLS[1:3], QUANTUM_WELLS[-1]]
        pairs = self.pairs(QUANTUM_WELLS, more)
        self.assertEqual(sum(None not in pair for pair in pairs), 8)
        self.assertEqual(pairs[-1], (8, 10))

    def test_of_layers_of_the_same_name_the_similar_ones_correspond(self):
        # "Layer" and the number is the name of a layer without one, so an inserted layer changes those after it.
        a = [layer("Layer1", 100, 500), layer("Layer2", 10, 3, x_in=0.15), layer("Layer3", 30, 12)]
        b = [layer("Layer1", 100, 500), layer("Layer2", 20, 8), layer("Layer3", 10, 3, x_in=0.15),
             layer("Layer4", 30, 12)]
        self.assertEqual(self.pairs(a, b), [(1, 1), (None, 2), (2, 3), (3, 4)])
        lines = self.lines(a, [*b[:2], layer("Layer3", 10, 3, x_in=0.16), b[3]])
        self.assertEqual(lines[0].split()[:4], ["No.", "in", "the", "second"])
        self.assertIn("in layer 2 (in the second 3), Layer2 → Layer3: its indium fraction", lines[-1])

    def test_no_common_names(self):
        a, b = [layer("a"), layer("b")], [layer("c"), layer("d", x_al=0.3)]
        lines = self.lines(a, b)
        self.assertEqual(lines[0], "The two have no layer name in common; layers are compared by their number.")
        self.assertIn("  2  b → d  ", lines[2] + lines[3])
        self.assertEqual(self.lines(a, b + [layer("e")])[0], "No layer of one corresponds to a layer of the other.")

    def test_thousands_of_layers(self):
        """2000 layers and one more in the middle; with an alignment, but not by an exponential search."""
        a = [layer(f"n{number}") for number in range(2000)]
        pairs = self.pairs(a, [*a[:1000], layer("x"), *a[1000:]])
        self.assertEqual(pairs[999:1002], [(1000, 1000), (None, 1001), (1001, 1002)])


if __name__ == "__main__":
    unittest.main()
