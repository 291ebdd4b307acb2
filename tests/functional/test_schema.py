"""The schema for editors, recipe.rng, compared with vorlen check by means of xmllint and jing.

The schema accepts every recipe that vorlen check finds tidy: without errors, and without a warning about something that
the library ignores. The recipes are the examples and those of tests/data. Many of the faulty ones have a single fault at
their end, n_post_stages="-1", which only stops the reading there; they are tested with the fault and without it.
"""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from support import SOURCE, VORLEN, without_integration

SCHEMA = os.environ["VORLEN_SCHEMA"]
# Warnings about parts of a recipe that the library ignores.
UNTIDY = {"unknown-element", "unknown-attribute", "duplicate", "uncounted-stage", "not-read", "stray-text",
          "trailing-characters", "not-finite"}
# Tidy recipes that the schema rejects: a hexadecimal number, which XML Schema's type double does not know, and text after
# the root, with which the file is not well-formed XML, although the library reads it.
REJECTED_ALTHOUGH_TIDY = {"repaired_number_syntax_016.xml", "repaired_xml_form_010.xml"}


def recipes_of(folder):
    return sorted(os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".xml"))


def checked(paths):
    """{path: kinds of problems, or None if the library rejects the recipe}, from vorlen check."""
    run = subprocess.run([VORLEN, "check", "--format", "json", *paths], capture_output=True, encoding="utf-8", check=False)
    return {one["file"]: None if one["errors"] else {problem["kind"] for problem in one["problems"]}
            for one in json.loads(run.stdout)["files"]}


def validated_by_xmllint(paths):
    """(valid paths, paths of files that are not well-formed XML)"""
    run = subprocess.run(["xmllint", "--noout", "--relaxng", SCHEMA, *paths], capture_output=True, encoding="utf-8",
                         errors="replace", check=False)
    valid = set(re.findall(r"^(.*) validates$", run.stderr, re.MULTILINE))
    invalid = set(re.findall(r"^(.*) fails to validate$", run.stderr, re.MULTILINE))
    return valid, set(paths) - valid - invalid


def rejected_by_jing(paths):
    run = subprocess.run(["jing", SCHEMA, *paths], capture_output=True, encoding="utf-8", errors="replace", check=False)
    return {line.split(":")[0] for line in run.stdout.splitlines() if re.match(r".*: (error|fatal):", line)}


class Schema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for tool in ("xmllint", "jing"):
            if shutil.which(tool) is None:
                raise AssertionError(f"{tool} is missing: run scripts/setup.sh test")
        cls.temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.good = recipes_of(os.path.join(SOURCE, "examples")) + recipes_of(os.path.join(SOURCE, "tests/data/recipes"))
        cls.faulty = recipes_of(os.path.join(SOURCE, "tests/data/bad"))
        cls.repaired = [path for path in map(cls.without_the_last_fault, cls.faulty) if path is not None]
        cls.problems = checked(cls.good + cls.faulty + cls.repaired)
        cls.tidy = {path for path, kinds in cls.problems.items() if kinds is not None and not kinds & UNTIDY}
        cls.valid, cls.not_well_formed = validated_by_xmllint(list(cls.problems))

    @classmethod
    def without_the_last_fault(cls, path):
        """The path of a copy with the right number of post-stages; None if that is not the fault."""
        with open(path, "rb") as file:
            text = file.read()
        count = len(re.findall(rb"<post_stage_\d", text))
        changed = re.sub(rb'<n_post_stages val="-1"', rb'<n_post_stages val="%d"' % count, text)
        return None if changed == text else cls.write("repaired_" + os.path.basename(path), changed)

    @classmethod
    def write(cls, name, text):
        path = os.path.join(cls.temporary.name, name)
        with open(path, "wb") as file:
            file.write(text)
        return path

    def verdicts(self, texts):
        """For each text of a recipe: whether vorlen check finds it tidy, xmllint accepts it and jing accepts it."""
        paths = [self.write(f"recipe_{number}.xml", text.encode()) for number, text in enumerate(texts)]
        valid, not_well_formed = validated_by_xmllint(paths)
        self.assertEqual(not_well_formed, set())
        rejected = rejected_by_jing(paths)
        problems = checked(paths)
        return [(problems[path] is not None and not problems[path] & UNTIDY, path in valid, path not in rejected)
                for path in paths]

    def changed(self, old, new, example="ingan_gan_mqw"):
        with open(os.path.join(SOURCE, "examples", example + ".xml"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        return text.replace(old, new, 1)

    def test_there_are_recipes_to_compare(self):
        self.assertEqual(self.tidy & set(self.good), set(self.good))
        self.assertGreater(len(self.tidy & set(self.repaired)), 50)

    def test_xmllint_accepts_tidy_recipes(self):
        self.assertEqual({os.path.basename(path) for path in self.tidy - self.valid}, REJECTED_ALTHOUGH_TIDY)

    def test_jing_accepts_tidy_recipes(self):
        rejected = rejected_by_jing(sorted(self.tidy))
        self.assertEqual({os.path.basename(path) for path in rejected}, REJECTED_ALTHOUGH_TIDY)

    def test_jing_and_xmllint_agree_on_all_other_recipes(self):
        others = set(self.problems) - self.tidy - self.not_well_formed
        self.assertEqual(sorted(rejected_by_jing(sorted(others))), sorted(others - self.valid))

    def test_most_faulty_recipes_are_rejected(self):
        accepted = {os.path.basename(path) for path in self.repaired if self.problems[path] is not None}
        faulty = {path for path in self.faulty
                  if self.problems[path] is None and "repaired_" + os.path.basename(path) not in accepted}
        rejected = faulty - self.valid
        print(f"recipe.rng rejects {len(rejected)} of {len(faulty)} faulty recipes")
        self.assertGreater(len(rejected), 0.85 * len(faulty))

    def test_what_the_library_ignores_is_rejected(self):
        mistakes = [("<tau ", "<tua "), ("<material ", "<operator/><material "),
                    ('<tau val="70"/>', '<tau val="70"/><tau val="1"/>'),
                    ('<tau val="70"/>', '<tau val="70" unit="s"/>'), ('<tau val="70"/>', '<tau val="12,5"/>'),
                    ('<tau val="70"/>', '<tau val="70"/>s'), ('<tau val="70"/>', '<tau val="inf"/>'),
                    ('<n_periods val="3"/>', '<n_periods val="3.7"/>'),
                    ('<model val="none"/>', '<model val="none"/><X_ref val="0.1"/>'),
                    ('<disl_model val="inherited"/>', '<disl_model val="inherited"/><rho_D val="1e8" end="1e8"/>'),
                    ('<type val="periodic"/>', '<type val="periodic"/><name val="wells"/>')]
        verdicts = self.verdicts([self.changed(*mistake) for mistake in mistakes])
        for mistake, verdict in zip(mistakes, verdicts):
            with self.subTest(mistake):
                self.assertEqual(verdict, (False, False, False))

    def test_keywords_are_accepted_in_any_case(self):
        spellings = [('<material val="InGaN"/>', '<material val="ingan"/>'),
                     ('<type val="periodic"/>', '<type val="PERIODIC"/>')]
        self.assertEqual(self.verdicts([self.changed(*one) for one in spellings]), 2 * [(True, True, True)])
        self.assertEqual(self.verdicts([self.changed('<material val="InGaN"/>', '<material val="InGaN "/>')]),
                         [(False, False, False)])

    def test_attributes_that_editors_add_to_the_root_are_accepted(self):
        root = ('<?xml-model href="recipe.rng"?>\n<NonstSurfChem xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" '
                'xsi:noNamespaceSchemaLocation="x">')
        self.assertEqual(self.verdicts([self.changed("<NonstSurfChem>", root)]), [(True, True, True)])

    def test_stages_are_not_limited_in_number(self):
        text = self.changed("<n_pre_stages ", "<n_pre_stages ")
        layer = re.search(r"<pre_stage_1>.*</pre_stage_1>", text, re.DOTALL).group()
        layers = "".join(layer.replace("pre_stage_1>", f"pre_stage_{number}>") for number in range(1, 61))
        text = re.sub(r'<n_pre_stages val="\d+"', '<n_pre_stages val="60"', text.replace(layer, layers))
        self.assertEqual(self.verdicts([text]), [(True, True, True)])

    def test_the_optional_element_integration(self):
        text = without_integration(self.changed("<material", "<material"))
        tidy = ('<integration/>', '<integration><scheme val="sTaged"/></integration>',
                '<integration><tolerance val="1e-10"/><scheme val="staged"/></integration>',
                '<integration><scheme val="staged"/><tolerance val=" 1e-3"/></integration>')
        wrong = ('<integration><scheme val="x"/></integration>', '<integration><scheme/></integration>',
                 '<integration><tolerance val="0.01"/></integration>', '<integration><tolerance val="1e-11"/></integration>',
                 '<integration><tolerance val="tight"/></integration>', '<integration><tolerance/></integration>',
                 '<integration scheme="staged"/>', '<integration/><integration/>')
        # Before the first element, and after the last one.
        for mark, place in (("<material", "{}<material"), ("</NonstSurfChem>", "{}</NonstSurfChem>")):
            verdicts = self.verdicts([text.replace(mark, place.format(xml), 1) for xml in tidy + wrong])
            self.assertEqual(verdicts, len(tidy) * [(True, True, True)] + len(wrong) * [(False, False, False)])


if __name__ == "__main__":
    unittest.main()
