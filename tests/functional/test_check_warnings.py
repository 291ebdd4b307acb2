"""vorlen check: warnings about what the library silently ignores or takes as it is."""
import os
import subprocess
import unittest

from check_recipes import Checks
from support import SOURCE, VORLEN, changed_example


class Warnings(Checks):
    """What the library silently ignores."""

    def expect(self, kind, hint, *replacements, base="ingan_gan_mqw"):
        problem = self.one_problem(*replacements, base=base)
        self.assertEqual((problem["severity"], problem["kind"]), ("warning", kind))
        self.assertIn(hint, problem["hint"] or "")
        return problem

    def test_an_unknown_element(self):
        self.expect("unknown-element", "", ("<material ", "<operator/><material "))

    def test_an_unknown_attribute(self):
        self.expect("unknown-attribute", "allowed: val", ('<tau val="70"/>', '<tau val="70" unit="s"/>'))

    def test_schema_attributes_of_the_root_are_accepted(self):
        self.assertEqual(self.problems((
            "<NonstSurfChem>", '<NonstSurfChem xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" '
            'xsi:noNamespaceSchemaLocation="recipe.xsd">')), [])

    def test_a_processing_instruction_for_the_schema_is_accepted(self):
        self.assertEqual(self.problems((
            "<NonstSurfChem>", '<?xml-model href="recipe.rng" type="application/xml" '
            'schematypens="http://relaxng.org/ns/structure/1.0"?>\n<NonstSurfChem>')), [])

    def test_characters_after_a_number(self):
        problem = self.expect("trailing-characters", "write only the number", ('<tau val="70"/>', '<tau val="12abc"/>'))
        self.assertIn('"12abc" of attribute val', problem["text"])
        self.assertIn("reads as 12", problem["text"])
        self.expect("trailing-characters", "the decimal separator is the point: 12.5",
                    ('<tau val="70"/>', '<tau val="12,5"/>'))
        self.expect("trailing-characters", "this is an integer", ('<n_periods val="3"/>', '<n_periods val="3.7"/>'))
        problem = self.expect("trailing-characters", "write only the number", ('<tau val="70"/>', '<tau val="70e"/>'))
        self.assertIn("reads as 70", problem["text"])

    def test_a_number_that_is_nan(self):
        problems = self.problems(('<cut_angle val="0.2"/>', '<cut_angle val="nan"/>'), base="ingan_v_defects")
        self.assertEqual([problem["kind"] for problem in problems], ["not-finite"])

    def test_a_second_element_of_a_name(self):
        problem = self.expect("duplicate", "the first one, on line ", ('<tau val="70"/>', '<tau val="70"/><tau val="x"/>'))
        self.assertIn("stage_1_3:tau is not read", problem["text"])

    def test_second_elements_in_several_stages_are_one_warning(self):
        text = changed_example("ingan_gan_mqw")
        self.write("recipe.xml", text.replace('<delta val="0.008"/>', '<delta val="0.008"/><delta val="1"/>'))
        (problem,) = self.problems_of_file()
        self.assertEqual([problem["kind"], problem["stage"]], ["duplicate", "stage_1_1"])
        self.assertEqual(problem["also_in"], ["stage_1_2", "stage_1_3", "stage_1_4", "stage_2"])

    def test_unknown_names_in_several_stages_are_one_warning_each(self):
        text = changed_example("ingan_gan_mqw").replace('<delta val="0.008"/>', '<delta val="0.008" unit="m"/><Mg/>')
        self.write("recipe.xml", text.replace('<TEGa val="0.5"', '<TEGa unit="sccm" val="0.5"'))
        found = [(one["kind"], one["path"].split(":")[-1], len(one["also_in"])) for one in self.problems_of_file()]
        self.assertEqual(found, [("unknown-attribute", "delta", 4), ("unknown-element", "Mg", 4),
                                 ("unknown-attribute", "TEGa", 4)])

    def test_each_repetition_of_an_element_is_a_warning(self):
        problems = self.problems(('<delta val="0.008"/>', '<delta val="0.008"/><delta val="1"/><delta val="2"/>'))
        self.assertEqual([one["kind"] for one in problems], ["duplicate", "duplicate"])
        self.assertRegex(problems[1]["text"], "^another element .*:delta is not read$")

    def test_elements_of_models_that_are_not_chosen(self):
        self.expect("not-read", "read only with V_dislocation",
                    ('<model val="none"/>', '<model val="none"/><X_ref val="0.1"/>'))
        self.expect("not-read", "model thick_GaN", ('<model val="fixed_thickness"/>',
                                                   '<model val="fixed_thickness"/><parameters/>'))
        self.expect("not-read", "only with disl_model given", ('<disl_model val="inherited"/>',
                                               '<disl_model val="inherited"/><rho_D val="1" end="1"/>'))

    def test_stages_above_their_number(self):
        self.expect("uncounted-stage", "n_stages is 1",
                    ('<n_stages val="2"/>', '<n_stages val="1"/>'))
        problem = self.expect("uncounted-stage", "n_stages is 1",
                              ('<n_stages val="4"/>', '<n_stages val="1"/>'))
        self.assertTrue(problem["text"].endswith("stage_1_2 is not read (nor stage_1_3, stage_1_4)"), problem["text"])
        self.assertEqual([problem["stage"], problem["stage_name"], problem["also_in"]],
                         ["stage_1_2", "cooling", ["stage_1_3", "stage_1_4"]])

    def test_a_name_of_a_periodic_stage(self):
        self.expect("unknown-element", "it belongs in stage_1_1",
                    ('<type val="periodic"/>', '<type val="periodic"/><name val="wells"/>'))

    def test_text_between_elements(self):
        self.expect("stray-text", "attributes", ("<material ", "1030 <material "))

    def test_a_misspelt_stress_model(self):
        self.expect("misspelt-keyword", "did you mean V_dislocation?", ('<model val="none"/>',
                                                                      '<model val="V_dislocations"/>'))

    def test_a_flow_of_a_metal_that_the_material_has_not(self):
        problem = self.expect("flow-not-in-material", "grows its metal anyway",
                              ('<TMAl val="0" end="0"/>', '<TMAl val="0" end="0.1"/>'))
        self.assertEqual(problem["text"], "TMAl flows in stage_1_1, but the material is InGaN")

    def test_the_unit_of_a_prescribed_rate(self):
        path = os.path.join(SOURCE, "tests", "data", "recipes", "ingan_wells_gr_x.xml")
        run = self.check(path)
        self.assertEqual(run.returncode, 0)
        self.assertEqual(run.stdout.count("GR_average of the model InGaN_GR_X acts as nm/s"), 1)

    def test_long_names_and_values_are_shortened(self):
        text = changed_example("ingan_gan_mqw", ('<TMIn val="0.2" end="0.2"/>', '<TMIn val="0" end="0.0"/>'),
                               ('<TMIn val="0" end="0"/>', '<TMIn val="0.2" end="0.2"/>'),
                               ("\"GaN barrier", "\"GaN" + "é" * 1000), ("\"InGaN well", "\"InGaN" + "x" * 100000))
        self.write("recipe.xml", text)
        shown = self.check("recipe.xml").stdout
        without, other = "InGaN" + "x" * 52 + "...", "GaN" + "é" * 54 + "..."
        self.assertIn(f'stage_1_3, "{without}", grows without TMIn, and stage_1_1, "{other}", with it\n'
                      f'    stage: stage_1_3 "{without}"\n', shown)
        self.assertLess(max(map(len, shown.splitlines())), 250)
        problem = self.one_problem(('<tau val="70"/>', '<tau val="70' + "x" * 100000 + '"/>'))
        self.assertTrue(problem["text"].endswith(" reads as 70"), problem["text"])

    def test_units_without_utf_8(self):
        path = os.path.join(SOURCE, "tests", "data", "recipes", "ingan_wells_gr_x.xml")
        for locale, unit in (("C", "um/h"), ("C.UTF-8", "µm/h")):
            run = subprocess.run([VORLEN, "check", path], env={**os.environ, "LC_ALL": locale}, capture_output=True,
                                 encoding="utf-8", check=False)
            self.assertIn(f"acts as nm/s, not as {unit}\n", run.stdout)

    def test_a_first_stage_without_gallium(self):
        problem = self.expect("no-gallium", "start with a stage that has TMGa or TEGa",
                              ('<TEGa val="0.5" end="0.5"/>', '<TEGa val="0" end="0"/>'))
        self.assertEqual(problem["stage"], "stage_1_1")

    def jumps(self, text):
        self.write("recipe.xml", text)
        return [problem for problem in self.problems_of_file() if problem["kind"] == "temperature-jump"]

    def test_a_jump_of_temperature_while_nothing_grows(self):
        problem = self.one_problem(('<T val="1080" end="1010"/>', '<T val="1010" end="1010"/>'))
        self.assertEqual(problem["kind"], "abrupt-change", "gallium flows on both sides")
        text = self.recipe(('<T val="1080" end="1010"/>', '<T val="1010" end="1010"/>'))
        at = text.index('<name val="cooling"/>')
        text = text[:at] + text[at:].replace('<TEGa val="0.5" end="0.5"/>', '<TEGa val="0" end="0"/>', 1)
        self.assertEqual(self.jumps(text), [], "the staged scheme takes jumps as they are")
        problems = self.jumps(text.replace('<scheme val="staged"/>', '<scheme val="continuous"/>'))
        self.assertEqual([(problem["kind"], problem["stage"]) for problem in problems],
                         [("temperature-jump", "stage_1_2")])
        self.assertEqual(problems[0]["text"], "the temperature jumps from 1080 K at the end of stage_1_1 to 1010 K in "
                         "stage_1_2 while nothing grows")

    def test_a_jump_back_to_the_start_of_a_period(self):
        text = self.recipe(('<T val="1010" end="1080"/>', '<T val="1010" end="1010"/>'))
        at = text.index('<name val="heating"/>')
        text = text[:at] + text[at:].replace('<TEGa val="0.5" end="0.5"/>', '<TEGa val="0" end="0"/>', 1)
        problems = self.jumps(text.replace('<scheme val="staged"/>', '<scheme val="continuous"/>'))
        self.assertEqual(sorted(problem["stage"] for problem in problems), ["stage_1_1", "stage_2"])


if __name__ == "__main__":
    unittest.main()
