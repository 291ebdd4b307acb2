"""vorlen check: every error of a recipe with its place and a hint, first the text of runSurfChem; reports; broken files."""
import ctypes
import json
import os
import re
import resource
import subprocess
import unittest

from check_recipes import Checks, place_of
from support import EXAMPLES, LIBRARY, SOURCE, VORLEN, example

STORED = os.path.join(SOURCE, "tests", "data", "bad")


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
