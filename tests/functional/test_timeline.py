"""vorlen timeline: the expanded stages of a process, compared with manually calculated times and flows."""
import csv
import io
import os
import unittest

from support import EXAMPLES, SOURCE, InAFolder, Result, changed_example, example

FLOWS = ("TMIn", "TMGa", "TEGa", "TMAl", "N2", "NH3", "H2")


def csv_rows(text):
    return list(csv.DictReader(io.StringIO(text, newline="")))


class Timelines(InAFolder):
    def timeline(self, *arguments):
        return self.expect_good("timeline", *arguments)

    def write_changed(self, *replacements):
        self.write("recipe.xml", changed_example("ingan_gan_mqw", *replacements))
        return "recipe.xml"

    def test_a_periodic_stage_is_expanded(self):
        # ingan_gan_mqw.xml: a template of 3000 s; three times 150 s barrier, 20 s cooling, 70 s well, 20 s heating; a
        # barrier of 150 s; a cap of 500 s. One period takes 260 s.
        rows = csv_rows(self.timeline(example("ingan_gan_mqw"), "--csv"))
        expected = [("pre", "pre_stage_1", "", 0, 3000)]
        begin = 3000
        for period in (1, 2, 3):
            for number, duration in enumerate((150, 20, 70, 20), start=1):
                expected.append(("active", f"stage_1_{number}", str(period), begin, begin + duration))
                begin += duration
        expected += [("active", "stage_2", "", 3780, 3930), ("post", "post_stage_1", "", 3930, 4430)]
        self.assertEqual([(row["kind"], row["stage"], row["period"], float(row["begin_s"]), float(row["end_s"]))
                          for row in rows], expected)
        self.assertEqual([float(row["duration_s"]) for row in rows], [end - first for *_, first, end in expected])

    def test_conditions_of_stages_with_their_ramps(self):
        rows = {row["stage"]: row for row in csv_rows(self.timeline(example("ingan_gan_mqw"), "--csv"))}
        cooling = rows["stage_1_2"]
        self.assertEqual((cooling["name"], cooling["T_begin_K"], cooling["T_end_K"]), ("cooling", "1080", "1010"))
        self.assertEqual((cooling["P_begin_Pa"], cooling["P_end_Pa"]), ("40000", "40000"))
        well = rows["stage_1_3"]
        self.assertEqual([well[f"{gas}_begin_sccm"] for gas in FLOWS], ["0.2", "0", "0.5", "0", "8000", "8000", "0"])
        self.assertEqual([well[f"{gas}_end_sccm"] for gas in FLOWS], ["0.2", "0", "0.5", "0", "8000", "8000", "0"])
        self.assertEqual(well["omega_TDR_begin_rpm"], "")
        template = rows["pre_stage_1"]
        self.assertEqual((template["thickness_nm"], template["x_in"], template["x_ga"], template["x_al"]),
                         ("2000", "0", "1", "0"))
        self.assertEqual((template["T_begin_K"], template["TMIn_begin_sccm"]), ("", ""))

    def test_layers_without_a_name_have_that_of_the_result(self):
        path = self.write_changed(('name val="GaN template"', 'name val=""'), ('name val="InGaN well"', 'name val=""'))
        names = [row["name"] for row in csv_rows(self.timeline(path, "--csv"))]
        self.assertEqual([names[0], names[3], names[7], names[11]], ["Layer1", "Layer4", "Layer8", "Layer12"])
        self.expect_good("run", path, "-o", "out.txt")
        self.assertEqual(names, [layer[0] for layer in Result(self.path("out.txt")).layers])
        self.assertRegex(self.timeline(path), r"\n  stage_1_3 \(period 2\) +Layer8 +")

    def test_the_process_starts_at_t0(self):
        path = self.write_changed(('<t0 val="0"/>', '<t0 val="12.5"/>'))
        rows = csv_rows(self.timeline(path, "--csv"))
        self.assertEqual((rows[0]["begin_s"], rows[1]["begin_s"]), ("12.5", "3012.5"))

    def test_the_last_active_stage_ends_where_the_simulation_does(self):
        for name in EXAMPLES:
            with self.subTest(name):
                rows = csv_rows(self.timeline(example(name), "--csv"))
                active = [row for row in rows if row["kind"] == "active"]
                self.expect_good("run", example(name), "-o", "out.txt")
                result = Result(self.path("out.txt"))
                self.assertAlmostEqual(float(active[-1]["end_s"]), result.active_rows[-1][0], delta=1e-6)
                self.assertEqual(len(rows), len(result.layers))

    def test_the_table_shows_ramps_and_used_gases_only(self):
        path = self.write_changed(('name val="InGaN well"', 'name val="wéll &quot;A&quot;"'))
        text = self.timeline(path)
        lines = text.splitlines()
        heading = next(line for line in lines if line.startswith("  stage "))
        self.assertIn("TEGa, sccm", heading)
        self.assertNotIn("TMGa", heading)
        self.assertNotIn("rotation", heading)
        cooling = next(line for line in lines if "cooling" in line)
        self.assertRegex(cooling, r"^  stage_1_2 \(period 1\) +cooling +3150 +3170 +20 +1080 -> 1010 +40000 +0 +0\.5 ")
        self.assertIn('wéll "A"', text)
        stage_lines = lines[lines.index(heading):lines.index(heading) + 14]
        self.assertEqual(len({len(line) for line in stage_lines}), 1, "the columns are not aligned")
        self.assertRegex(lines[0], r"^  pre-stage +name +start, s")
        self.assertTrue(lines[-1].startswith("  post_stage_1"))

    def test_the_rotation_of_a_turbo_disc_is_shown(self):
        path = os.path.join(SOURCE, "tests", "data", "recipes", "algan_gan_mirror_tdr.xml")
        rows = csv_rows(self.timeline(path, "--csv"))
        self.assertTrue(all(float(row["omega_TDR_begin_rpm"]) > 0 for row in rows if row["kind"] == "active"))
        self.assertIn("rotation, rpm", self.timeline(path))

    def test_names_with_commas_and_quotes_in_csv(self):
        path = self.write_changed(('name val="InGaN well"', 'name val="a, &quot;b&quot;&#10;c"'))
        names = {row["name"] for row in csv_rows(self.timeline(path, "--csv"))}
        self.assertEqual([name for name in names if name.startswith("a, ")], ['a, "b"\nc'])


class Failures(InAFolder):
    def test_a_rejected_recipe_gives_its_message(self):
        run = self.run_tool("timeline", "none.xml")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "vorlen: Error reading file none.xml\nFailed to open file\n")
        for old, new, message in (
                ('<tau val="70"/>', '<tau val="0"/>', "Duration tau is less than 1e-4 s in stage_1_3"),
                ('stress_state val="3.189"', 'stress_state val="1"', "Number of stages is zero")):
            self.write("recipe.xml", changed_example("ingan_gan_mqw", (old, new)))
            run = self.run_tool("timeline", "recipe.xml")
            self.assertEqual((run.returncode, run.stdout, run.stderr), (1, "", f"vorlen: {message}\n"))

    def test_wrong_command_lines(self):
        for arguments in ([], ["a.xml", "b.xml"], ["--json", "a.xml"]):
            self.expect_not_understood("timeline", *arguments)

    def test_help_has_an_example(self):
        self.expect_help_with_example("timeline")


if __name__ == "__main__":
    unittest.main()
