"""The schemas of share/vorlen against the library: what it accepts, xmllint and jing accept with recipe.rng and recipe.xsd.

The recipes are the examples, the stored ones of tests/data, good and faulty, and those faulty ones again whose one fault
was put at their end to stop the reading there: without it they show what the library passes over.
"""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from support import SOURCE, VORLEN, without_integration

SHARE = os.path.join(SOURCE, "share", "vorlen")
RNG = os.path.join(SHARE, "recipe.rng")
XSD = os.path.join(SHARE, "recipe.xsd")
# The library's parser takes these, a second root and text behind the root; a strict one stops before the schema counts.
NOT_WELL_FORMED = {"duplicate_013.xml", "xml_form_010.xml"}


def recipes_of(folder):
    return sorted(os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".xml"))


def accepted_by_library(paths):
    """The paths of recipes that the library would run, by vorlen check."""
    run = subprocess.run([VORLEN, "check", "--format", "json", *paths], capture_output=True, encoding="utf-8", check=False)
    return {one["file"] for one in json.loads(run.stdout)["files"] if one["errors"] == 0}


def xmllint(*options, paths):
    """(paths that validate, paths that are no well-formed XML)"""
    run = subprocess.run(["xmllint", "--noout", *options, *paths], capture_output=True, encoding="utf-8",
                         errors="replace", check=False)
    valid = set(re.findall(r"^(.*) validates$", run.stderr, re.MULTILINE))
    told = set(re.findall(r"^(.*) fails to validate$", run.stderr, re.MULTILINE))
    return valid, set(paths) - valid - told


def refused_by_jing(schema, paths):
    """Paths that jing refuses with the schema, for whatever reason."""
    run = subprocess.run(["jing", schema, *paths], capture_output=True, encoding="utf-8", errors="replace", check=False)
    return {line.split(":")[0] for line in run.stdout.splitlines() if re.match(r".*: (error|fatal):", line)}


class Schemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for tool in ("xmllint", "jing"):
            if shutil.which(tool) is None:
                raise AssertionError(f"{tool} is missing: scripts/setup.sh test")
        cls.temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.examples = recipes_of(os.path.join(SOURCE, "examples"))
        cls.good = recipes_of(os.path.join(SOURCE, "tests", "data", "recipes"))
        cls.stored = recipes_of(os.path.join(SOURCE, "tests", "data", "bad"))
        cls.continued = []
        for path in cls.stored:
            with open(path, "rb") as file:
                text = file.read()
            changed = re.sub(rb'<n_post_stages val="-1"', b'<n_post_stages val="0"', text)
            if changed != text:
                cls.continued.append(os.path.join(cls.temporary.name, os.path.basename(path)))
                with open(cls.continued[-1], "wb") as file:
                    file.write(changed)
        cls.all = cls.examples + cls.good + cls.stored + cls.continued
        cls.accepted = accepted_by_library(cls.all)
        cls.rng_valid, cls.rng_broken = xmllint("--relaxng", RNG, paths=cls.all)
        cls.xsd_valid, cls.xsd_broken = xmllint("--schema", XSD, paths=cls.all)

    def test_there_is_something_to_test(self):
        self.assertEqual(self.accepted & set(self.examples + self.good), set(self.examples + self.good))
        self.assertGreater(len(self.accepted & set(self.continued)), 50)

    def test_xmllint_refuses_no_recipe_that_the_library_accepts(self):
        for valid, broken in ((self.rng_valid, self.rng_broken), (self.xsd_valid, self.xsd_broken)):
            self.assertEqual(sorted(self.accepted - valid - broken), [])
            self.assertEqual({os.path.basename(path) for path in self.accepted & broken}, NOT_WELL_FORMED)

    def test_jing_refuses_no_recipe_that_the_library_accepts(self):
        parsed = sorted(self.accepted - self.rng_broken)
        self.assertEqual(sorted(refused_by_jing(RNG, parsed)), [])

    def test_jing_and_xmllint_agree_on_faulty_recipes(self):
        faulty = sorted(set(self.stored) - self.accepted - self.rng_broken)
        self.assertEqual(sorted(refused_by_jing(RNG, faulty)), sorted(set(faulty) - self.rng_valid))

    def test_the_relax_ng_schema_finds_most_faults(self):
        # Without those that are good but for the fault put at their end.
        ended = {os.path.basename(path) for path in self.accepted & set(self.continued)}
        faulty = {path for path in set(self.stored) - self.accepted if os.path.basename(path) not in ended}
        found = faulty - self.rng_valid
        print(f"recipe.rng refuses {len(found)} of {len(faulty)} faulty recipes, "
              f"recipe.xsd {len(faulty - self.xsd_valid)}")
        self.assertGreater(len(found), 0.5 * len(faulty))

    def test_the_optional_element_integration(self):
        with open(self.examples[0], encoding="utf-8") as file:
            text = without_integration(file.read())
        good = ('<integration/>', '<integration scheme="staged">text<other/></integration>',
                '<integration><scheme val="sTaged"/></integration>',
                '<integration><tolerance val="1e-10"/><scheme val="continuous"/></integration>',
                '<integration><tolerance val=" 1e-3 relative"/></integration>',
                '<integration><scheme val="staged"/><scheme val="x"/></integration><integration><scheme/></integration>')
        bad = ('<integration><scheme val="x"/></integration>', '<integration><scheme/></integration>',
               '<integration><tolerance val="0.01"/></integration>', '<integration><tolerance val="1e-11"/></integration>',
               '<integration><tolerance val="tight"/></integration>', '<integration><tolerance/></integration>')
        # Before the first element, and after the last one.
        for mark, place in (("<material", "{}<material"), ("</NonstSurfChem>", "{}</NonstSurfChem>")):
            paths = {}
            for number, xml in enumerate(good + bad):
                path = os.path.join(self.temporary.name, f"integration_{number}.xml")
                paths[path] = xml in good
                with open(path, "w", encoding="utf-8") as file:
                    file.write(text.replace(mark, place.format(xml), 1))
            expected = {path for path, is_good in paths.items() if is_good}
            self.assertEqual(accepted_by_library(list(paths)), expected)
            self.assertEqual(xmllint("--relaxng", RNG, paths=list(paths)), (expected, set()))
            self.assertEqual(refused_by_jing(RNG, list(paths)), set(paths) - expected)
            self.assertEqual(xmllint("--schema", XSD, paths=list(paths)), (set(paths), set()))

    def test_a_misspelt_element_of_a_stage_is_refused(self):
        with open(self.examples[0], encoding="utf-8") as file:
            text = file.read()
        path = os.path.join(self.temporary.name, "misspelt.xml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace("<tau ", "<tua ", 1))
        self.assertEqual(xmllint("--relaxng", RNG, paths=[path]), (set(), set()))


if __name__ == "__main__":
    unittest.main()
