"""vorlen check: every problem of a recipe with its place, and first the text of runSurfChem."""
import ctypes
import json
import os
import re
import resource
import subprocess
import unittest

from support import EXAMPLES, LIBRARY, SOURCE, VORLEN, InAFolder, changed_example, example, without_integration

STORED = os.path.join(SOURCE, "tests", "data", "bad")


class Checks(InAFolder):
    def check(self, *arguments):
        return self.run_tool("check", *arguments)

    def recipe(self, *replacements, name="recipe.xml", base="ingan_gan_mqw"):
        """An example with pieces of its text replaced, once each."""
        text = changed_example(base, *replacements)
        self.write(name, text)
        return text

    def problems(self, *replacements, base="ingan_gan_mqw"):
        """The problems of such an example, from the JSON report."""
        self.recipe(*replacements, base=base)
        return self.problems_of_file()

    def problems_of_file(self):
        run = self.check("--format", "json", "recipe.xml")
        self.assertEqual(run.stderr, "")
        return json.loads(run.stdout)["files"][0]["problems"]

    def one_problem(self, *replacements, base="ingan_gan_mqw"):
        problems = self.problems(*replacements, base=base)
        self.assertEqual(len(problems), 1, problems)
        return problems[0]


def place_of(text, piece):
    """Line and column, from 1, of the first occurrence of the piece in the text."""
    at = text.index(piece)
    return text.count("\n", 0, at) + 1, at - text.rfind("\n", 0, at)


class StoredRecipes(Checks):
    """The stored recipes with their expected messages. Runs that fail are not errors of the recipe."""

    RUN_FAILURES = ("Step size has become too small", "Matrix is repeatedly singular",
                    "Maximum number of time steps reached")

    def test_the_first_error_is_that_of_a_run(self):
        with open(os.path.join(STORED, "expected.json"), encoding="utf-8") as file:
            cases = json.load(file)
        # A result file that can't be opened is not an error of the recipe.
        cases = [case for case in cases if case["file"] and case["output"] in ("file", "none")]
        self.assertGreater(len(cases), 450)
        paths = [os.path.join(STORED, case["file"]) for case in cases]
        run = self.check("--format", "json", *paths)
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        n_refused = 0
        for case, path, checked in zip(cases, paths, json.loads(run.stdout)["files"], strict=True):
            with self.subTest(case["id"]):
                self.assertEqual(checked["file"], path)
                errors = [problem["text"] for problem in checked["problems"] if problem["severity"] == "error"]
                text = case["text"] if "text" in case else bytes.fromhex(case["text_hex"]).decode("utf-8", "replace")
                if text is None or text in self.RUN_FAILURES:
                    self.assertEqual(errors, [])
                else:
                    self.assertEqual(errors[0], text.replace("{INPUT}", path))
                    n_refused += 1
        self.assertGreater(n_refused, 400)

    def test_the_first_error_is_that_of_the_library_itself(self):
        if os.environ.get("VORLEN_PRELOAD") or "-fsanitize" in os.environ.get("VORLEN_CFLAGS", ""):
            self.skipTest("the library can't be loaded here")
        self.recipe(('<tau val="70"/>', '<tau val="-1"/>'), ('<T val="1080"', '<T val="x"'))
        library = ctypes.CDLL(LIBRARY)
        library.runSurfChem.argtypes = [ctypes.c_char_p] * 3
        text = ctypes.create_string_buffer(2048)
        path = self.path("recipe.xml")
        self.assertEqual(library.runSurfChem(path.encode(), b"", text), 1)
        run = self.check("--format", "json", path)
        self.assertEqual(json.loads(run.stdout)["files"][0]["problems"][0]["text"], text.value.decode())


class Reports(Checks):
    def test_examples_have_no_problems(self):
        run = self.check("--strict", *[example(name) for name in EXAMPLES])
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout, "".join(f"{example(name)}: no problems\n" for name in EXAMPLES))

    def test_all_errors_are_reported_at_once_with_their_places(self):
        text = self.recipe(('<tau val="70"/>', '<tau val="-1"/>'), ('<material val="InGaN"/>', '<material val="InGan2"/>'),
                           ('<n_post_stages val="1"/>', '<n_post_stages val="x"/>'))
        run = self.check("recipe.xml")
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        expected = []
        for piece, message, stage, hint in (
                ('val="InGan2"', 'Material "InGan2" is not recognized', None,
                 "did you mean InGaN? Allowed: InGaN, AlGaN, AlInN, AlInGaN"),
                ('val="-1"', "Duration tau is less than 1e-4 s in stage_1_3", 'stage_1_3 "InGaN well"',
                 "duration: at least 1e-4 s"),
                ('val="x"', 'Failed to get integer number from value "x" of attribute val in element '
                 "NonstSurfChem:post_stages:n_post_stages", None, "number of post-stages: 0 to 9999")):
            line, column = place_of(text, piece)
            expected.append(f"recipe.xml:{line}:{column}: error: {message}")
            if stage:
                expected.append(f"    stage: {stage}")
            expected.append(f"    hint: {hint}")
        expected.append("recipe.xml: 3 errors")
        self.assertEqual(run.stdout.splitlines(), expected)

    def test_the_json_report(self):
        text = self.recipe(('<tau val="70"/>', '<tau val="-1"/>'))
        self.recipe(name="good.xml")
        run = self.check("--format", "json", "recipe.xml", "good.xml")
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        line, column = place_of(text, 'val="-1"')
        self.assertEqual(json.loads(run.stdout), {
            "version": os.environ["VORLEN_VERSION"],
            "files": [
                {"file": "recipe.xml", "errors": 1, "warnings": 0, "problems": [{
                    "severity": "error", "kind": "not-allowed", "line": line, "column": column,
                    "path": "NonstSurfChem:process_stages:stage_1:stage_1_3:tau", "stage": "stage_1_3",
                    "stage_name": "InGaN well", "text": "Duration tau is less than 1e-4 s in stage_1_3",
                    "hint": "duration: at least 1e-4 s", "also_in": []}]},
                {"file": "good.xml", "errors": 0, "warnings": 0, "problems": []}]})

    def test_warnings_are_errors_only_with_strict_and_can_be_allowed(self):
        self.recipe(('<tau val="70"/>', '<tau val="70 s"/>'))
        for arguments, status in (([], 0), (["--strict"], 1), (["--strict", "--allow", "trailing-characters"], 0),
                                  (["--strict", "--allow", "duplicate"], 1)):
            with self.subTest(arguments):
                self.assertEqual(self.check("recipe.xml", *arguments).returncode, status)
        self.assertIn("recipe.xml: 1 warning\n", self.check("recipe.xml").stdout)

    def test_several_kinds_can_be_allowed(self):
        self.recipe(('<tau val="70"/>', '<tau val="70 s"/><tau val="3"/>'))
        arguments = ["--strict", "--allow", "trailing-characters", "--allow", "duplicate"]
        self.assertEqual(self.check("recipe.xml", *arguments).returncode, 0)
        self.assertEqual(self.check(*arguments, "recipe.xml").returncode, 0)

    def test_an_unknown_kind_cannot_be_allowed(self):
        self.recipe()
        for kind, guess in (("rate-units", ["rate-units: did you mean rate-unit?"]), ("Unit", ["Unit: did you mean unit?"]),
                            ("xyz", []), ("missing-element", [])):
            run = self.check("recipe.xml", "--allow", kind)
            self.assertEqual((run.returncode, run.stdout), (2, ""))
            self.assertEqual(run.stderr.splitlines()[:-1], [f'--allow: unknown kind of warning "{kind}"', *guess])

    def test_columns_count_characters_and_a_tab_is_one(self):
        text = self.recipe(('<tau val="70"/>', '\t\t<tau val="70 s"/>'))
        line, column = place_of(text, 'val="70 s"')
        self.assertTrue(self.check("recipe.xml").stdout.startswith(f"recipe.xml:{line}:{column}: warning: "))


class Hints(Checks):
    def test_a_misspelt_element(self):
        problems = self.problems(('<tau val="70"/>', '<tua val="70"/>'))
        self.assertEqual([(problem["severity"], problem["kind"]) for problem in problems],
                         [("error", "missing-element"), ("warning", "unknown-element")])
        self.assertRegex(problems[0]["hint"], r"^<tua> on line \d+ is not read: should it be <tau>\?$")
        self.assertEqual(problems[1]["hint"], "did you mean tau?")

    def test_a_misspelt_attribute(self):
        problems = self.problems(('<T val="1080" end="1010"/>', '<T val="1080" ende="1010"/>'))
        self.assertEqual([problem["kind"] for problem in problems], ["missing-attribute", "unknown-attribute"])
        self.assertEqual(problems[0]["hint"], "ende is not read: should it be end?")
        self.assertEqual(problems[1]["hint"], "did you mean end?")

    def test_a_misspelt_keyword(self):
        problem = self.one_problem(('<disl_model val="inherited"/>', '<disl_model val="inherit"/>'))
        self.assertEqual(problem["kind"], "unknown-keyword")
        self.assertEqual(problem["hint"], "did you mean inherited? Allowed: given, inherited")

    def test_an_alloy_with_its_metals_in_another_order(self):
        for word, alloy in (("AlGaInN", "AlInGaN"), ("GaInN", "InGaN"), ("GaAlN", "AlGaN"), ("InAlN", "AlInN")):
            problem = self.one_problem(('<material val="InGaN"/>', f'<material val="{word}"/>'))
            self.assertEqual(problem["kind"], "unknown-keyword")
            self.assertTrue(problem["hint"].startswith(f"did you mean {alloy}? "), problem["hint"])

    def test_a_missing_element(self):
        problem = self.one_problem(('<tau val="70"/>', ""))
        self.assertEqual(problem["hint"], 'add <tau val="..."/>: duration')

    def test_an_existing_sub_stage_is_not_taken_for_a_misspelt_one(self):
        problem = self.problems(("<stage_1_2>", "<stage_x>"), ("</stage_1_2>", "</stage_x>"))[0]
        self.assertEqual(problem["text"], "Element NonstSurfChem:process_stages:stage_1:stage_1_2 is not found")
        self.assertRegex(problem["hint"], "^<stage_x> on line")
        problem = self.one_problem(('<n_stages val="4"/>', '<n_stages val="5"/>'))
        self.assertEqual(problem["hint"], "n_stages is 5, and 4 are given")

    def test_one_entry_for_a_count_that_is_too_high(self):
        problem = self.one_problem(('<n_stages val="2"/>', '<n_stages val="9000"/>'))
        self.assertEqual(problem["text"], "Element NonstSurfChem:process_stages:stage_3 is not found")
        self.assertEqual(problem["hint"], "n_stages is 9000, and 2 are given")
        problem = self.one_problem(('<n_post_stages val="1"/>', '<n_post_stages val="2"/>'))
        self.assertEqual(problem["hint"], "n_post_stages is 2, and 1 is given")


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


class Integration(Checks):
    """The element integration, and warnings about the continuous scheme."""

    END = "</NonstSurfChem>"
    STAGED = '<integration><scheme val="staged"/></integration>'
    ADD_IT = f"add {STAGED} to the recipe, or run it with --scheme staged"

    def write_with(self, xml):
        """Writes an example with its element integration replaced by this one, and returns its text."""
        text = without_integration(changed_example("ingan_gan_mqw")).replace(self.END, xml + self.END)
        self.write("recipe.xml", text)
        return text

    def with_integration(self, xml):
        self.write_with(xml)
        return self.problems_of_file()

    def test_valid_elements_are_accepted(self):
        for xml in (self.STAGED, '<integration><scheme val="CONTINUOUS"/></integration>', "<integration/>",
                    '<integration><scheme val="Staged"/><tolerance val="1e-3"/></integration>'):
            with self.subTest(xml):
                self.assertEqual(self.with_integration(xml), [])

    def test_a_misspelt_scheme(self):
        text = self.write_with('<integration><scheme val="stagged"/></integration>')
        problem, = self.problems_of_file()
        self.assertEqual((problem["severity"], problem["kind"], problem["path"]),
                         ("error", "unknown-keyword", "NonstSurfChem:integration:scheme"))
        self.assertEqual(problem["text"], 'Integration scheme "stagged" is not recognized')
        self.assertEqual(problem["hint"], "did you mean staged? Allowed: continuous, staged")
        self.assertEqual((problem["line"], problem["column"]), place_of(text, 'val="stagged"'))

    def test_a_tolerance_outside_its_limits(self):
        for value in ("1e-11", "0.01", "0", "-1e-6"):
            problem, = self.with_integration(
                f'<integration><scheme val="staged"/><tolerance val="{value}"/></integration>')
            self.assertEqual((problem["severity"], problem["kind"]), ("error", "not-allowed"))
            self.assertEqual(problem["text"], "Integration tolerance is beyond [1e-10;1e-3]")
            self.assertIn("1e-10 to 1e-3", problem["hint"])

    def test_a_tolerance_that_is_nan_is_an_error_and_a_warning(self):
        problems = self.with_integration('<integration><scheme val="staged"/><tolerance val="nan"/></integration>')
        self.assertEqual([(problem["severity"], problem["kind"]) for problem in problems],
                         [("error", "not-allowed"), ("warning", "not-finite")])

    def test_what_is_not_read(self):
        for xml, kind, hint in (
                ('<integraton><scheme val="staged"/></integraton>', "unknown-element", "did you mean integration?"),
                ('<scheme val="staged"/>', "unknown-element", "it belongs in integration"),
                ('<integration><shceme val="staged"/></integration>', "unknown-element", "did you mean scheme?"),
                ('<integration scheme="staged"/>', "unknown-attribute", "the element has no attributes"),
                ("<integration>staged</integration>", "stray-text", "attributes"),
                (self.STAGED + "<integration/>", "duplicate", "the first one")):
            with self.subTest(xml):
                problem, = self.with_integration(xml)
                self.assertEqual((problem["severity"], problem["kind"]), ("warning", kind))
                self.assertIn(hint, problem["hint"])

    def test_a_missing_value(self):
        problem, = self.with_integration("<integration><scheme/></integration>")
        self.assertEqual((problem["severity"], problem["kind"]), ("error", "missing-attribute"))
        problem, = self.with_integration('<integration><scheme val="staged"/><tolerance val="tight"/></integration>')
        self.assertEqual((problem["severity"], problem["kind"]), ("error", "no-number"))

    def test_a_tolerance_without_the_staged_scheme_has_no_effect(self):
        for before, hint in (("", 'add <scheme val="staged"/> to the element integration, or '),
                             ('<scheme val="continuous"/>', 'write <scheme val="staged"/> in the element integration, or ')):
            problem, = self.with_integration(f'<integration>{before}<tolerance val="1e-5"/></integration>')
            self.assertEqual((problem["severity"], problem["kind"]), ("warning", "no-effect"))
            self.assertEqual(problem["text"],
                             "element NonstSurfChem:integration:tolerance has no effect with the continuous scheme")
            self.assertEqual(problem["hint"], hint + "run it with --scheme staged")

    def test_an_unknown_scheme_causes_no_warnings_about_the_continuous_one(self):
        self.assertEqual([problem["kind"] for problem in self.with_integration(
            '<integration><scheme val="stagged"/><tolerance val="1e-5"/></integration>')], ["unknown-keyword"])


class Output(Checks):
    """The element output."""

    def with_output(self, xml):
        return self.problems(("</NonstSurfChem>", xml + "</NonstSurfChem>"))

    def test_good_elements_are_no_problem(self):
        for xml in ("<output/>", '<output><detail val="true"/></output>', '<output><detail val="FALSE"/></output>'):
            with self.subTest(xml):
                self.assertEqual(self.with_output(xml), [])

    def test_another_word(self):
        problem, = self.with_output('<output><detail val="ture"/></output>')
        self.assertEqual((problem["severity"], problem["kind"], problem["path"], problem["text"], problem["hint"]),
                         ("error", "unknown-keyword", "NonstSurfChem:output:detail",
                          'Output detail "ture" is not recognized', "did you mean true? Allowed: true, false"))

    def test_its_faults_follow_those_of_the_model(self):
        self.recipe(("</NonstSurfChem>", '<output><detail/></output><integration><scheme val="x"/></integration></NonstSurfChem>'),
                    ('<disl_model val="given"/>', '<disl_model val="inherited"/>'), ('<integration>', '<ignored>'),
                    ('</integration>', '</ignored>'))
        texts = [problem["text"] for problem in self.problems_of_file() if problem["severity"] == "error"]
        self.assertEqual(texts, ["Cannot inherit dislocation density for first pre-stage",
                                 'Integration scheme "x" is not recognized',
                                 "Attribute val of element NonstSurfChem:output:detail is not found"])

    def test_the_child_outside_of_its_element(self):
        problem, = self.with_output('<detail val="true"/>')
        self.assertEqual((problem["severity"], problem["kind"], problem["hint"]),
                         ("warning", "unknown-element", "it belongs in output"))


class ContinuousScheme(Checks):
    """Warnings about processes that need the staged scheme. Stages are given as (T_val, T_end, TMIn, TEGa, TMAl)."""

    KINDS = ("hot-pause", "spacer", "no-effect")

    @staticmethod
    def stage(label, values):
        t_val, t_end, indium, gallium, aluminium = values
        # A flow is one number, or its values at the start and the end.
        flows = {"TMIn": indium, "TMGa": 0, "TEGa": gallium, "TMAl": aluminium, "N2": 8000, "NH3": 8000, "H2": 0}
        pairs = {name: flow if isinstance(flow, tuple) else (flow, flow) for name, flow in flows.items()}
        return (f'<{label}><name val="{label}"/><tau val="30"/><T val="{t_val}" end="{t_end}"/>'
                '<P val="40000" end="40000"/><dislocations><disl_model val="inherited"/></dislocations>'
                '<delta val="0.008"/><gas_species><Q>' +
                "".join(f'<{name} val="{val}" end="{end}"/>' for name, (val, end) in pairs.items()) +
                f"</Q></gas_species></{label}>")

    def write_process(self, *stages, stress="none", end=""):
        """A recipe of single stages. A list is a periodic stage of three periods, or of as many as its first item
        says."""
        text = without_integration(changed_example("ingan_gan_mqw", ('<material val="InGaN"/>', '<material val="AlInGaN"/>')))
        text = text.replace("</NonstSurfChem>", end + "</NonstSurfChem>")
        if stress != "none":
            text = text.replace('<model val="none"/>', f'<model val="{stress}"/><cut_angle val="0"/><V_angle_05 val="17"/>'
                                '<X_ref val="0.1"/>', 1)
        body = f'<n_stages val="{len(stages)}"/>'
        for number, stage in enumerate(stages, 1):
            label = f"stage_{number}"
            if isinstance(stage, tuple):
                body += self.stage(label, stage)
                continue
            periods, *inner = stage if isinstance(stage[0], int) else (3, *stage)
            body += (f'<{label}><type val="periodic"/><n_periods val="{periods}"/><n_stages val="{len(inner)}"/>' +
                     "".join(self.stage(f"{label}_{m}", values) for m, values in enumerate(inner, 1)) + f"</{label}>")
        self.write("recipe.xml", re.sub("<process_stages>.*</process_stages>",
                                        f"<process_stages>{body}</process_stages>", text, flags=re.DOTALL))

    def found(self, *stages, **options):
        """[(kind, stage)] of the warnings of these kinds; there must be no errors."""
        self.write_process(*stages, **options)
        problems = self.problems_of_file()
        self.assertEqual([problem for problem in problems if problem["severity"] == "error"], [])
        return [(problem["kind"], problem["stage"]) for problem in problems if problem["kind"] in self.KINDS]

    @staticmethod
    def grow(temperature, indium=0):
        return (temperature, temperature, indium, 0.5, 0)

    @staticmethod
    def pause(t_val, t_end=None):
        return (t_val, t_val if t_end is None else t_end, 0, 0, 0)

    def test_a_hot_pause_before_growth(self):
        self.assertEqual(self.found(self.grow(1200), self.pause(1200), self.grow(1200)), [("hot-pause", "stage_2")])
        problem, = [problem for problem in self.problems_of_file() if problem["kind"] == "hot-pause"]
        self.assertEqual((problem["severity"], problem["path"]), ("warning", "NonstSurfChem:process_stages:stage_2:T"))
        self.assertEqual(problem["text"], "stage_2 is at 1200 K without group-III flow, and stage_3 grows after it: the "
                         "continuous scheme may fail or give unphysical results")
        self.assertEqual(problem["hint"], Integration.ADD_IT)

    def test_hot_is_1150_K_at_any_time(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1149), pause(1149), grow(1149)), [])
        self.assertEqual(self.found(grow(1150), pause(1150), grow(1150)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1150), pause(1150, 1000), grow(1000)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1140), pause(1140, 1150), grow(1150)), [("hot-pause", "stage_2")])
        # A stage at the end, or with flows, is not a pause.
        self.assertEqual(self.found(grow(1200), pause(1200)), [])
        self.assertEqual(self.found(grow(1200), (1200, 1200, 0, 0, 0.1), grow(1200)), [])
        self.assertEqual(self.found(grow(1200), (1200, 1200, 0, (0, 0.5), 0), grow(1200)), [])

    def test_heating_by_more_than_20_K(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1030), pause(1030, 1050), grow(1050)), [])
        self.assertEqual(self.found(grow(1030), pause(1030, 1051), grow(1051)), [("hot-pause", "stage_2")])
        self.assertIn("stage_2 heats up from 1030 K to 1051 K without group-III flow, and stage_3 grows after it",
                      self.problems_of_file()[0]["text"])
        self.assertEqual(self.found(grow(1080), pause(1080, 1010), grow(1010)), [], "cooling")
        # Over two stages, by a jump, and after cooling.
        self.assertEqual(self.found(grow(1030), pause(1030, 1045), pause(1045, 1060), grow(1060)),
                         [("hot-pause", "stage_3")])
        self.assertEqual(self.found(grow(1030), pause(1060), grow(1060)), [("hot-pause", "stage_2")])
        self.assertEqual(self.found(grow(1060), pause(1060, 1030), pause(1030, 1060), grow(1060)),
                         [("hot-pause", "stage_3")])
        # Growth between two pauses separates them.
        self.assertEqual(self.found(grow(1030), pause(1030, 1045), grow(1045), pause(1045, 1060), grow(1060)), [])
        # A process may start with one.
        self.assertEqual(self.found(pause(1000, 1060), grow(1060)), [("hot-pause", "stage_1")])

    def test_one_warning_for_each_pause(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found(grow(1200), pause(1200), pause(1250), grow(1200), pause(1100, 1200), grow(1200)),
                         [("hot-pause", "stage_2"), ("hot-pause", "stage_5")])

    def test_growth_may_follow_later(self):
        self.assertEqual(self.found(self.grow(1200), self.pause(1200), self.pause(1000), self.grow(1000)),
                         [("hot-pause", "stage_2")])

    def test_the_last_sub_stage_precedes_the_first_of_the_next_period(self):
        grow, pause = self.grow, self.pause
        self.assertEqual(self.found([grow(1200), pause(1200)]), [("hot-pause", "stage_1_2")])
        self.assertIn("and stage_1_1 grows after it", self.problems_of_file()[0]["text"])
        self.assertEqual(self.found([1, grow(1200), pause(1200)]), [], "one period")
        # 15 K at the end of a period and 15 K at the start of the next.
        self.assertEqual(self.found([pause(1015, 1030), grow(1030), pause(1000, 1015)]), [("hot-pause", "stage_1_1")])
        self.assertEqual(self.found([1, pause(1015, 1030), grow(1030), pause(1000, 1015)]), [])
        self.assertEqual(self.found([pause(1200), grow(1200)], [grow(1200), pause(1200)], grow(1000)),
                         [("hot-pause", "stage_1_1"), ("hot-pause", "stage_2_2")])

    def test_a_spacer_before_indium_with_relaxation(self):
        grow = self.grow
        relaxed = {"stress": "V_dislocation"}
        self.assertEqual(self.found(grow(1030), grow(1030, 0.2), grow(1030), **relaxed), [("spacer", "stage_2")])
        problem, = [problem for problem in self.problems_of_file() if problem["kind"] == "spacer"]
        self.assertEqual((problem["severity"], problem["path"]),
                         ("warning", "NonstSurfChem:process_stages:stage_2:gas_species:Q:TMIn"))
        self.assertEqual(problem["text"], "with V_dislocation, stage_1 grows without indium before TMIn flows in stage_2: "
                         "the continuous scheme may fail or give unphysical V-defects")
        self.assertEqual(problem["hint"], Integration.ADD_IT)
        self.assertEqual(self.found(grow(1030), grow(1030, 0.2)), [], "without relaxation")
        self.assertEqual(self.found(grow(1030, 0.2), grow(1030), grow(1030, 0.2), **relaxed), [], "no spacer")
        self.assertEqual(self.found(grow(1030, (0, 0.2)), grow(1030, 0.2), **relaxed), [], "a ramp of indium")
        self.assertEqual(self.found(grow(1030), grow(1030), **relaxed), [], "no indium")
        # A pause is not a layer, and a ramp that starts without indium has some.
        self.assertEqual(self.found(self.pause(1030), grow(1030, 0.2), **relaxed), [])
        self.assertEqual(self.found(self.pause(1030), grow(1030), grow(1030), grow(1030, (0, 0.2)), **relaxed),
                         [("spacer", "stage_4")])
        self.assertEqual(self.found([grow(1030), grow(1030, 0.2)], **relaxed), [("spacer", "stage_1_2")])

    def test_the_staged_scheme_causes_none_of_them(self):
        stages = (self.grow(1200), self.pause(1200), self.grow(1200), self.grow(1030, 0.2))
        for end, kinds in (("", ["hot-pause", "spacer"]), ('<integration><scheme val="continuous"/></integration>',
                                                           ["hot-pause", "spacer"]),
                           ('<integration><tolerance val="1e-5"/></integration>', ["hot-pause", "spacer", "no-effect"]),
                           ('<integration><scheme val="STAGED"/><tolerance val="1e-5"/></integration>', [])):
            with self.subTest(end):
                self.assertEqual(sorted(kind for kind, _ in self.found(*stages, stress="V_dislocation", end=end)),
                                 sorted(kinds))

    def test_they_can_be_allowed(self):
        self.write_process(self.grow(1200), self.pause(1200), self.grow(1200))
        self.assertEqual(self.check("recipe.xml").returncode, 0)
        self.assertEqual(self.check("--strict", "recipe.xml").returncode, 1)
        self.assertEqual(self.check("--strict", "--allow", "hot-pause", "recipe.xml").returncode, 0)

    def test_a_pause_with_an_invalid_value_is_not_reported(self):
        for old, new in (('<T val="1200" end="1200"/>', '<T val="x" end="1200"/>'), ('<TMAl val="0" end="0"/>', ""),
                         ('<TMAl val="0" end="0"/>', '<TMAl val="-1" end="0"/>'),
                         ('<TMAl val="0" end="0"/>', '<TMAl val="nan" end="nan"/>')):
            with self.subTest(new):
                self.write_process(self.grow(1100), self.pause(1200), self.grow(1100), stress="V_dislocation")
                text = self.read("recipe.xml").decode()
                at = text.index("<stage_2>")
                self.assertIn(old, text[at:])
                self.write("recipe.xml", text[:at] + text[at:].replace(old, new, 1))
                kinds = [problem["kind"] for problem in self.problems_of_file()]
                self.assertFalse(set(kinds) & set(self.KINDS), kinds)
                self.assertNotEqual(kinds, [])

    def test_a_count_that_is_too_high_does_not_hide_them(self):
        self.write_process(self.grow(1200), self.pause(1200), self.grow(1200))
        text = self.read("recipe.xml").decode().replace('<n_stages val="3"/>', '<n_stages val="9"/>')
        self.write("recipe.xml", text)
        self.assertEqual([problem["kind"] for problem in self.problems_of_file()], ["missing-element", "hot-pause"])


class ThePage(Checks):
    """docs/checking-a-recipe.md"""

    def setUp(self):
        super().setUp()
        with open(os.path.join(SOURCE, "docs", "checking-a-recipe.md"), encoding="utf-8") as file:
            self.page = file.read()

    def test_its_kinds_are_those_of_the_sources(self):
        documented = set()
        for line in re.findall(r"^\| (`[a-z-]+`(?:, `[a-z-]+`)*) \|", self.page.split("### Usual ranges")[0], re.MULTILINE):
            documented.update(re.findall(r"`([a-z-]+)`", line))
        used = set()
        folder = os.path.join(SOURCE, "tools", "check")
        for name in os.listdir(folder):
            if re.fullmatch(r"(recipe_(reading|unread|process|check|whole|values|layers|sequence)|value_search)\.cpp", name):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    used.update(re.findall(r'(?:\badd\(reading,|\bsearch\.add\(|\bwarn\((?:\s*warnings,)?|kind =|Severity::\w+,|'
                                           r'warning_at\(|^      \{)\s*"([a-z-]+)"', file.read(), re.MULTILINE))
        self.assertGreater(len(used), 15)
        self.assertEqual(documented, used)

    def test_its_kinds_of_warnings_are_those_of_allow(self):
        table = self.page.split("### Kinds of warnings")[1].split("### Usual ranges")[0]
        kinds = re.findall(r"^\| `([a-z-]+)` \|", table, re.MULTILINE)
        self.assertGreater(len(kinds), 20)
        listed = self.run_tool("check", "--help").stdout.split("Kinds of warnings:\n")[1].split("\n\n")[0]
        self.assertEqual(re.findall(r"[a-z-]+", listed), kinds)
        self.assertLessEqual(max(map(len, listed.splitlines())), 100)
        self.assertEqual(self.run_tool("__complete", "check", "--allow", "").stdout.split(), kinds)
        self.recipe()
        for kind in kinds:
            self.assertEqual(self.check("recipe.xml", "--allow", kind).returncode, 0, kind)


class Faults(Checks):
    def test_files_that_cannot_be_read_do_not_keep_others_from_being_checked(self):
        os.mkdir(self.path("folder.xml"))
        self.write("broken.xml", "<NonstSurfChem>\n<material>\n")
        self.recipe(name="good.xml")
        run = self.check("none.xml", "folder.xml", "broken.xml", "good.xml")
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        lines = run.stdout.splitlines()
        self.assertIn("none.xml: error: Error reading file none.xml Failed to open file", lines)
        self.assertIn("folder.xml: error: Error reading file folder.xml Failed to open file", lines)
        self.assertTrue(any(line.startswith("broken.xml") and "error: Error reading file broken.xml" in line
                            for line in lines))
        self.assertEqual(lines[-1], "good.xml: no problems")
        for name in ("none.xml", "folder.xml", "broken.xml"):
            self.assertIn(f"{name}: 1 error", lines)

    @unittest.skipIf(os.geteuid() == 0, "root may read everything")
    def test_a_file_without_read_permission(self):
        self.recipe()
        os.chmod(self.path("recipe.xml"), 0)
        self.assertEqual(self.check("recipe.xml").returncode, 1)

    def test_the_place_of_an_xml_error(self):
        self.write("broken.xml", "<NonstSurfChem>\n  <material val=InGaN\"/>\n</Nonst>\n")
        run = self.check("--format", "json", "broken.xml")
        problem = json.loads(run.stdout)["files"][0]["problems"][0]
        self.assertEqual(problem["kind"], "file")
        self.assertEqual(problem["line"], int(problem["text"].split("Line:")[1].split("\n")[0]))

    def test_deep_nesting_is_an_error_of_the_file(self):
        self.write("deep.xml", "<a>" * 100000)
        run = self.check("deep.xml")
        self.assertEqual((run.returncode, run.stderr), (1, ""))
        self.assertIn("nested deeper than 100 levels", run.stdout)

    def test_values_in_another_encoding(self):
        with open(self.path("latin.xml"), "wb") as file:
            file.write(b'<NonstSurfChem><material val="\xe9"/></NonstSurfChem>')
        run = self.check("--format", "json", "latin.xml")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(json.loads(run.stdout)["files"][0]["problems"][0]["text"], 'Material "\ufffd" is not recognized')

    def test_wrong_command_lines(self):
        for arguments in ([], ["--format", "xml", "a.xml"], ["--quick", "a.xml"], ["a.xml", "--allow"]):
            self.expect_not_understood("check", *arguments)

    def test_help_has_an_example(self):
        self.expect_help_with_example("check")

    @unittest.skipIf(os.environ["VORLEN_PRELOAD"], "the address sanitizer needs more than a small address space")
    def test_a_recipe_too_large_for_the_memory(self):
        path = self.path("large.xml")
        with open(path, "w", encoding="utf-8") as file:
            file.write("<NonstSurfChem>" + 4000000 * "<b/>" + "</NonstSurfChem>")
        limit = 150 << 20  # bytes; the tree of that recipe takes about 700 million
        run = subprocess.run([VORLEN, "check", path], capture_output=True, encoding="utf-8", check=False,
                             preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        self.assertEqual((run.returncode, run.stdout, run.stderr), (1, "", "vorlen: Out of memory\n"))

    @unittest.skipUnless(os.path.exists("/dev/full"), "no device that is always full")
    def test_a_full_disk(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            run = subprocess.run([VORLEN, "check", example("ingan_gan_mqw")], stdout=full, stderr=subprocess.PIPE,
                                 encoding="utf-8", check=False)
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: standard output can't be written\n"))


if __name__ == "__main__":
    unittest.main()
