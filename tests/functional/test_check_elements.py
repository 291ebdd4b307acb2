"""vorlen check: the optional elements integration and output."""
import unittest

from check_recipes import Checks, place_of
from support import changed_example, without_integration

STAGED = '<integration><scheme val="staged"/></integration>'


class Integration(Checks):
    """The element integration."""

    END = "</NonstSurfChem>"

    def write_with(self, xml):
        """Writes an example with its element integration replaced by this one, and returns its text."""
        text = without_integration(changed_example("ingan_gan_mqw")).replace(self.END, xml + self.END)
        self.write("recipe.xml", text)
        return text

    def with_integration(self, xml):
        self.write_with(xml)
        return self.problems_of_file()

    def test_valid_elements_are_accepted(self):
        for xml in (STAGED, '<integration><scheme val="CONTINUOUS"/></integration>', "<integration/>",
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
                (STAGED + "<integration/>", "duplicate", "the first one")):
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


if __name__ == "__main__":
    unittest.main()
