"""vorlen show --rows, and result files with detail columns."""
import csv
import io
import json
import unittest

from support import InAFolder
from test_show import HEADING, ROWS, result_text

MAIN = ["time", "z", "rate", "x_in", "x_ga", "x_al", "rho_td_t", "rho_vd0_t", "a_eff_t", "eps_xx_t", "eps_yy_t",
        "eps_zz_t", "eps_yz_t", "rho_td_z", "a_eff_z", "eps_xx_z", "eps_yy_z", "eps_zz_z", "eps_yz_z"]
SURFACE = ["x_sum", "c_in", "c_ga", "c_al", "c_n", "c_h"]
RELAXATION = ["z0", "rho_vd", "k1", "h", "i0", "i1", "j0_0", "j0_1", "j0", "j1", "j2", "delta_e", "e_v_loop", "r"]
SURFACE_HEADING = " sumX In Ga Al N H"
RELAXATION_HEADING = " z0(nm) rho_VD K1 h I0 I1 J0_0 J0_1 J0 J1 J2 deltaE E_V_loop r"


def detailed_text(relaxes, c_in=3e-9):
    """The rows of test_show with detail columns: 7 in the last column of active rows, zeros in the other rows."""
    lines = result_text().splitlines()
    head = lines.index(HEADING)
    lines[head] += SURFACE_HEADING + (RELAXATION_HEADING if relaxes else "")
    for i in range(head + 1, len(lines)):
        active = lines[i].endswith(" ")
        detail = [1, c_in, 0, 0, 0, 0] if active else [1, 0, 0, 0, 0, 0]
        detail += ([0] * 13 + [7 if active else 0]) * relaxes
        end = " " if active and not relaxes else ""
        lines[i] = lines[i].rstrip() + "".join(f" {float(x)!r}" for x in detail) + end
    return "\n".join(lines) + "\n"


class Rows(InAFolder):
    def rows_of(self, text):
        self.write("r.txt", text)
        run = self.run_tool("show", "--rows", "r.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        reader = csv.reader(io.StringIO(run.stdout))
        names = next(reader)
        return names, [dict(zip(names, map(float, row))) for row in reader]

    def test_every_row_with_all_columns(self):
        names, rows = self.rows_of(result_text())
        self.assertEqual(names, ["active", *MAIN])
        self.assertEqual([(row["time"], row["z"], row["x_in"], row["a_eff_t"], row["eps_xx_t"]) for row in rows], ROWS)
        self.assertEqual([row["active"] for row in rows], [0, 0, 1, 1, 1, 1, 0, 0])

    def test_detail_without_relaxation(self):
        names, rows = self.rows_of(detailed_text(relaxes=False))
        self.assertEqual(names, ["active", *MAIN, *SURFACE])
        self.assertEqual([row["active"] for row in rows], [0, 0, 1, 1, 1, 1, 0, 0])
        self.assertEqual([row["c_in"] for row in rows], [0, 0, 3e-9, 3e-9, 3e-9, 3e-9, 0, 0])

    def test_detail_with_relaxation(self):
        names, rows = self.rows_of(detailed_text(relaxes=True))
        self.assertEqual(names, ["active", *MAIN, *SURFACE, *RELAXATION])
        self.assertEqual([row["active"] for row in rows], [0, 0, 1, 1, 1, 1, 0, 0])  # no row has a blank at its end
        self.assertEqual([row["r"] for row in rows], [0, 0, 7, 7, 7, 7, 0, 0])

    def test_layers_do_not_depend_on_the_detail(self):
        texts = []
        for text in (result_text(), detailed_text(False), detailed_text(True)):
            self.write("r.txt", text)
            texts.append(self.run_tool("show", "--csv", "r.txt").stdout)
        self.assertEqual(len(set(texts)), 1)

    def test_rows_of_another_width(self):
        wide = detailed_text(True)
        for text, line, width in ((wide.replace("7.0\n", "7.0 \n", 1), 11, 39), (wide.replace(" 7.0\n", "\n", 1), 11, 39),
                                  (detailed_text(False).replace(" 1.0 3e-09", " 3e-09", 1), 11, 25)):
            self.write("r.txt", text)
            run = self.run_tool("show", "--rows", "r.txt")
            self.assertEqual((run.returncode, run.stderr),
                             (1, f"vorlen: r.txt, line {line}: not a row of {width} numbers\n"))

    def test_rows_exclude_the_other_formats(self):
        self.write("r.txt", result_text())
        for option in ("--csv", "--json"):
            run = self.run_tool("show", "r.txt", "--rows", option)
            self.assertNotEqual(run.returncode, 0)
            self.assertIn("excludes", run.stderr)


class Differences(InAFolder):
    def diff(self, a, b):
        self.write("a.txt", a)
        self.write("b.txt", b)
        found = json.loads(self.run_tool("diff", "--json", "a.txt", "b.txt").stdout)
        return found, {column["column"]: column["largest"] for column in found["columns"]}

    def test_detail_columns_are_compared(self):
        found, largest = self.diff(detailed_text(True), detailed_text(True, c_in=4e-9))
        self.assertFalse(found["same"])
        self.assertEqual(list(largest), [name for name in MAIN + SURFACE + RELAXATION if name != "z"])
        self.assertAlmostEqual(largest["c_in"], 1e-9, delta=1e-20)
        self.assertEqual({name for name, value in largest.items() if value}, {"c_in"})

    def test_files_with_different_columns(self):
        found, largest = self.diff(detailed_text(True), result_text())
        self.assertEqual((found["same"], found["structure"]), (False, ["39 columns and 19"]))
        self.assertEqual(len(largest), 18)
        self.assertEqual(set(largest.values()), {0})


if __name__ == "__main__":
    unittest.main()
