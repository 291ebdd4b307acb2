"""Changed examples and what vorlen check says about them, for its tests."""
import json

from support import InAFolder, changed_example


class Checks(InAFolder):
    """A test that checks recipes in a temporary folder."""

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
