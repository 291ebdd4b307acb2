"""vorlen run --scheme: the recipe passed to the library, the status file, and when a result is up to date."""
import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest
import xml.etree.ElementTree

from support import SCRIPTED_VORLEN, SOURCE, InAFolder, example, without_integration

with open(example("algan_gan_hemt"), encoding="utf-8") as recipe_file:
    RECIPE = without_integration(recipe_file.read())
ROOT_TAG = "<NonstSurfChem>"
ROOT_END = "</NonstSurfChem>"
STAGED = '<integration><scheme val="staged"/></integration>'
SCHEME = '<scheme val="continuous"/>'
CONTINUOUS = f"<integration>{SCHEME}</integration>"
BREAKS_DOWN = os.path.join(SOURCE, "tests", "data", "bad", "failed_run_001.xml")


def asking_for(integration):
    """The recipe with this as its last element."""
    return RECIPE.replace(ROOT_END, integration + ROOT_END)


def integration_of(content):
    """Scheme and tolerance of the first element integration, None if missing."""
    element = xml.etree.ElementTree.fromstring(content).find("integration")
    found = [None if element is None else element.find(name) for name in ("scheme", "tolerance")]
    return tuple(None if one is None else one.get("val") for one in found)


class HandedOver(InAFolder):
    """The recipe that is passed to the library."""

    def run_scripted(self, *arguments, **changes):
        return self.run_tool("run", *arguments, tool=SCRIPTED_VORLEN, env={**os.environ, **changes})

    def handed_over(self, text, *arguments):
        """The bytes that are passed to the library for a recipe, and the scheme in the status file."""
        content = text if isinstance(text, bytes) else text.encode()
        with open(self.path("r.xml"), "wb") as file:
            file.write(content)
        if os.path.exists(self.path("recipes")):
            os.remove(self.path("recipes"))
        self.run_scripted("r.xml", *arguments, TEST_RECIPES=self.path("recipes"), TEST_TEXT="the end")
        self.assertEqual(self.read("r.xml"), content)
        return self.read("recipes"), json.loads(self.read("r.status.json"))["scheme"]

    def test_without_the_option_the_recipe_is_passed_unchanged(self):
        for text, scheme in ((RECIPE, "continuous"), (asking_for(STAGED), "staged"),
                             (asking_for(CONTINUOUS), "continuous"),
                             (asking_for(STAGED.replace("staged", "STAGED")), "staged"),
                             (asking_for("<!--" + STAGED + "-->"), "continuous"),
                             (asking_for("<x>" + STAGED + "</x>"), "continuous"),
                             (asking_for(CONTINUOUS + STAGED), "continuous"),
                             (asking_for('<integration><scheme val="odd"/></integration>'), "continuous"),
                             (asking_for("<integration/>"), "continuous")):
            with self.subTest(text[-120:]):
                self.assertEqual(self.handed_over(text), (text.encode(), scheme))

    def test_the_recipes_own_scheme_changes_no_byte(self):
        for text, scheme in ((RECIPE, "continuous"), (asking_for(STAGED), "staged"),
                             (asking_for(STAGED.replace("staged", "Staged")), "staged"),
                             (asking_for("<integration/>"), "continuous")):
            with self.subTest(text[-120:]):
                self.assertEqual(self.handed_over(text, "--scheme", scheme), (text.encode(), scheme))

    def test_another_scheme_is_inserted_and_nothing_else_changes(self):
        heads = ("", "\ufeff", "<?xml version='1.0'?>\n", "\n  <!-- c -->",
                 "<?xml version='1.0'?><!-- <NonstSurfChem> -->\r\n<!-- b -->\n")
        declaration = re.match(r"<\?xml.*?\?>\s*", RECIPE)
        bare = RECIPE[declaration.end():] if declaration else RECIPE
        for head in heads:
            for root in (ROOT_TAG, '<NonstSurfChem a="1>2" b=\'"/>\'>', "<NonstSurfChem\n>"):
                with self.subTest((head, root)):
                    handed, scheme = self.handed_over(head + bare.replace(ROOT_TAG, root), "--scheme", "staged")
                    added = STAGED.replace("/>", " />")
                    self.assertEqual(handed.decode(), head + bare.replace(ROOT_TAG, root + added))
                    self.assertEqual(scheme, "staged")

    def test_the_recipes_own_scheme_is_overridden_but_its_tolerance_is_kept(self):
        tolerance = '<tolerance val="1e-7"/>'
        for inside, kept in ((tolerance, "1e-7"), (tolerance + SCHEME, "1e-7"), (SCHEME + tolerance, "1e-7"),
                             ("", None), ('<scheme val="odd"/>', None),
                             ("<scheme/>" + tolerance, "1e-7")):
            with self.subTest(inside):
                text = asking_for(f"<integration>{inside}</integration>{STAGED}")
                handed, scheme = self.handed_over(text, "--scheme", "staged")
                self.assertEqual((integration_of(handed), scheme), (("staged", kept), "staged"))
                self.assertEqual(handed.count(b"\n"), text.count("\n"))  # line numbers are unchanged
        handed, scheme = self.handed_over(asking_for(STAGED), "--scheme", "continuous")
        self.assertEqual((integration_of(handed), scheme), (("continuous", None), "continuous"))

    def test_bytes_that_are_not_utf8(self):
        text = re.sub(r"<\?xml.*?\?>", '<?xml version="1.0" encoding="ISO-8859-1"?>', RECIPE)
        content = text.replace('val="AlGaN barrier"', 'val="L\xf6\xdf"').encode("latin-1")
        handed, _ = self.handed_over(content, "--scheme", "staged")
        self.assertEqual(len(handed), len(content) + len(STAGED) + 1)
        self.assertIn(b'val="L\xf6\xdf"', handed)

    def test_a_recipe_in_which_no_scheme_can_be_set(self):
        self.write("r.xml", "<other/>" + RECIPE[RECIPE.index(ROOT_TAG):])
        self.assertEqual(self.run_tool("run", "r.xml").returncode, 0)  # the reader accepts it
        run = self.run_tool("run", "r.xml", "--scheme", "staged", "--force")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertTrue(run.stderr.endswith("\nvorlen: The scheme can't be set in r.xml: put the element integration "
                                            "into it instead\n"), run.stderr)

    def test_messages_name_the_recipe_and_not_its_copy(self):
        self.write("r.xml", RECIPE)
        run = self.run_scripted("r.xml", "--scheme", "staged", TEST_TEXT="Error reading file %s: odd")
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: Error reading file r.xml: odd\n"))

    def test_the_copy_is_not_written_to_a_file(self):
        self.write("r.xml", RECIPE)
        run = subprocess.Popen([SCRIPTED_VORLEN, "run", "r.xml", "--scheme", "staged"], cwd=self.folder,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               env={**os.environ, "TEST_RECIPES": self.path("recipes"), "TEST_HANG": "1"})
        self.addCleanup(run.wait)
        self.addCleanup(run.kill)
        end = time.monotonic() + 60
        while not os.path.exists(self.path("recipes")) or b"staged" not in self.read("recipes"):
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)
        others = [name for name in sorted(os.listdir(self.folder)) if not name.endswith(".part")]  # that of the result
        self.assertEqual((others, len(os.listdir(self.folder))), (["r.xml", "recipes"], 3))
        run.send_signal(signal.SIGTERM)
        self.assertEqual(run.wait(timeout=30), 128 + signal.SIGTERM)
        self.assertEqual(sorted(os.listdir(self.folder)), ["r.xml", "recipes"])

    def test_a_crash_names_the_scheme_in_the_status_file(self):
        for text, arguments, scheme in ((RECIPE, [], "continuous"), (RECIPE, ["--scheme", "staged"], "staged"),
                                        (asking_for(STAGED), [], "staged")):
            self.write("r.xml", text)
            self.assertEqual(self.run_scripted("r.xml", *arguments, TEST_CRASH="1").returncode, 1)
            self.assertEqual(json.loads(self.read("r.status.json"))["scheme"], scheme)


class Schemes(InAFolder):
    def test_an_unknown_scheme_is_an_error_before_anything_runs(self):
        self.write("r.xml", RECIPE)
        for arguments in (["--scheme", "quick"], ["--scheme", "Staged"], ["--scheme="], ["--scheme"]):
            self.expect_not_understood("run", "r.xml", *arguments)
        self.assertEqual(os.listdir(self.folder), ["r.xml"])

    def test_every_recipe_runs_with_both_and_the_closing_line_names_the_scheme(self):
        self.write("r.xml", RECIPE)
        for scheme in ("staged", "continuous"):
            run = self.run_tool("run", "r.xml", "--scheme", scheme)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            self.assertRegex(run.stdout, rf"\nSimulated in \d+\.\d\d s, {scheme} scheme\. \d+ rows in r\.result\.txt")
            run = self.run_tool("run", "r.xml", "--scheme", scheme)
            self.assertRegex(run.stdout, rf"\nUp to date, simulated on .* s, {scheme} scheme \(--force ")
        self.assertEqual(sorted(os.listdir(self.folder)), ["r.result.txt", "r.status.json", "r.xml"])

    def test_a_result_of_another_scheme_is_not_up_to_date(self):
        def is_run(*arguments):
            run = self.run_tool("run", "r.xml", *arguments)
            self.assertEqual(run.returncode, 0)
            return run.stdout.splitlines()[-1].startswith("Simulated")

        self.write("r.xml", RECIPE)
        steps = ([], True), ([], False), (["--scheme", "continuous"], False), (["--scheme", "staged"], True), \
            (["--scheme", "staged"], False), ([], True), (["--scheme", "continuous"], False)
        for number, (arguments, expected) in enumerate(steps):
            self.assertEqual(is_run(*arguments), expected, number)
        self.write("r.xml", asking_for(STAGED))
        for number, (arguments, expected) in enumerate((([], True), (["--scheme", "staged"], False),
                                                        (["--scheme", "continuous"], True), ([], True))):
            self.assertEqual(is_run(*arguments), expected, number)

    def test_a_status_file_without_a_scheme_is_of_a_version_that_did_not_check_the_rows(self):
        self.write("r.xml", RECIPE)
        self.assertEqual(self.run_tool("run", "r.xml").returncode, 0)
        status = json.loads(self.read("r.status.json"))
        for value in (None, 1, ""):
            self.write("r.status.json", json.dumps({**status, "scheme": value}))
            self.assertIn("\nSimulated in ", self.run_tool("run", "r.xml").stdout)
        del status["scheme"]
        self.write("r.status.json", json.dumps(status))
        self.assertIn("\nSimulated in ", self.run_tool("run", "r.xml").stdout)
        self.assertEqual(json.loads(self.read("r.status.json"))["scheme"], "continuous")

    def test_errors_in_a_recipe_are_reported_as_without_the_option(self):
        faulty = {
            "material.xml": RECIPE.replace('<material val="AlGaN"/>', '<material val="GaAs"/>'),
            "broken.xml": RECIPE.replace("</process_stages>", ""),
            "empty.xml": "",
            "other.xml": "<other/>",
            "root.xml": "<NonstSurfChem/>",
            "hello.xml": "hello",
            "tolerance.xml": asking_for('<integration><tolerance val="1"/></integration>'),
        }
        for name, text in faulty.items():
            self.write(name, text)
        for name in [*faulty, "none.xml"]:
            with self.subTest(name):
                plain = self.run_tool("run", name)
                staged = self.run_tool("run", name, "--scheme", "staged")
                self.assertEqual(plain.returncode, 1)
                self.assertEqual((staged.returncode, staged.stderr), (1, plain.stderr))
                self.assertNotIn("What to do", plain.stderr)

    def test_several_recipes_run_under_the_scheme(self):
        self.write("a.xml", RECIPE)
        self.write("b.xml", asking_for(CONTINUOUS))
        self.assertEqual(self.run_tool("run", "a.xml", "b.xml", "--scheme", "staged").returncode, 0)
        for name in "ab":
            self.assertEqual(json.loads(self.read(name + ".status.json"))["scheme"], "staged")

    def test_the_option_is_completed_and_described(self):
        run = self.run_tool("__complete", "run", "--scheme", "")
        self.assertEqual(sorted(run.stdout.split()), ["continuous", "staged"])
        self.assertIn("--scheme", self.run_tool("run", "--help").stdout)

    def test_the_status_file_of_a_failed_run_names_the_scheme(self):
        shutil.copy(BREAKS_DOWN, self.path("a.xml"))
        self.assertEqual(self.run_tool("run", "a.xml").returncode, 1)
        self.assertEqual(json.loads(self.read("a.status.json"))["scheme"], "continuous")


if __name__ == "__main__":
    unittest.main()
