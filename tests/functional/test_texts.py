"""vorlen new and vorlen explain: the recipes and the page of messages compiled into the tool."""
import json
import os
import re
import unittest

from support import EXAMPLES, SOURCE, InAFolder, changed_example, example


class New(InAFolder):
    def test_the_kinds_are_the_examples(self):
        run = self.run_tool("new")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        lines = [re.fullmatch(r"  (\S+) +(\S.*\.)", line).groups() for line in run.stdout.splitlines()[1:]]
        self.assertEqual([kind for kind, _ in lines], EXAMPLES)
        self.assertIn(("ingan_gan_mqw", "Three InGaN quantum wells of 3.5 nm between GaN barriers, nitrogen carrier."),
                      lines)

    def test_a_new_recipe_is_the_example_byte_for_byte(self):
        for name in EXAMPLES:
            with open(example(name), "rb") as file:
                expected = file.read()
            run = self.run_tool("new", name)
            self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", f"vorlen: wrote {name}.xml\n"))
            self.assertEqual(self.read(name + ".xml"), expected)
            run = self.run_tool("new", name, "-o", "-")
            self.assertEqual((run.returncode, run.stdout.encode(), run.stderr), (0, expected, ""))
        self.assertEqual(sorted(os.listdir(self.folder)), [name + ".xml" for name in EXAMPLES])

    def test_a_file_is_replaced_only_with_force(self):
        self.write("a.xml", "mine")
        run = self.run_tool("new", "algan_tension", "-o", "a.xml")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "vorlen: a.xml already exists (use --force to replace it)\n")
        self.assertEqual(self.read("a.xml"), b"mine")
        self.assertEqual(self.run_tool("new", "algan_tension", "-o", "a.xml", "--force").returncode, 0)
        self.assertNotEqual(self.read("a.xml"), b"mine")

    def test_paths_that_cannot_be_written(self):
        os.mkdir(self.path("folder"))
        run = self.run_tool("new", "algan_tension", "--force", "-o", "folder")
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: folder is not a regular file\n"))
        run = self.run_tool("new", "algan_tension", "-o", "no/a.xml")
        self.assertEqual((run.returncode, run.stderr),
                         (1, "vorlen: no/a.xml can't be written: folder not found: no\n"))

    def test_an_unknown_kind(self):
        run = self.run_tool("new", "diamond")
        self.assertEqual((run.returncode, run.stdout, os.listdir(self.folder)), (2, "", []))
        self.assertIn("algan_gan_hemt", run.stderr)


class Explain(InAFolder):
    def explain(self, text):
        run = self.run_tool("explain", text)
        self.assertEqual((run.returncode, run.stderr), (0, ""), text)
        return run.stdout

    def test_every_message_of_the_page_is_found_with_its_variable_parts_filled_in(self):
        with open(os.path.join(SOURCE, "docs", "messages.md"), encoding="utf-8") as file:
            rows = re.findall(r"^\| (`.*?`) \| (.*?) \|", file.read(), re.MULTILINE)
        self.assertGreater(len(rows), 70)
        for texts, meaning in rows:
            for text in re.findall("`(.*?)`", texts):
                shown = self.explain(re.sub("<[^<>]*>", "stage_3", text))
                self.assertIn(text, shown)
                self.assertIn(meaning.replace("`", ""), shown)

    def test_messages_about_faulty_recipes_are_explained(self):
        """As issued by the library, with values and names filled in."""
        with open(os.path.join(SOURCE, "tests", "data", "bad", "expected.json"), encoding="utf-8") as file:
            texts = sorted({case["text"] for case in json.load(file) if case["ret"] == 1 and case.get("text")})
        self.assertGreater(len(texts), 20)
        for text in texts[::7]:
            with self.subTest(text):
                self.assertIn("  Meaning:     ", self.explain(text))

    def test_the_explanation_says_what_to_do(self):
        self.assertEqual(self.explain("vorlen: b.xml: Very low or negative pressure in stage_2"),
                         "Very low or negative pressure in <stage>\n"
                         "  Section:     Active stages\n"
                         "  Meaning:     P is below 1 at the start or the end of the stage\n"
                         "  What to do:  give it in Pa\n")

    def test_a_message_within_a_longer_text(self):
        shown = self.explain("Active stage  is not set correctly. Stage duration is zero or not specified")
        self.assertIn("Active stage <stage> is not set correctly. <reason>\n", shown)
        self.assertIn("\nStage duration is zero or not specified\n", shown)

    def test_a_message_of_two_lines_from_standard_input(self):
        run = self.run_tool("run", "none.xml")
        run = self.run_tool("explain", input=run.stderr)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("Failed to open file\n", run.stdout)

    def test_messages_of_the_tool_itself(self):
        shown = self.explain("vorlen: a.result.txt: the file ends before the run does. Is the disk full?")
        self.assertIn("  Section:     Command line\n", shown)

    def kinds_explained(self, text):
        return set(re.findall(r'^  Section:     Warnings of "vorlen check", kind (\S+)$', self.explain(text), re.MULTILINE))

    def test_warnings_of_the_check_are_explained(self):
        text = changed_example("ingan_gan_mqw")
        found = set()
        for old, new in (('<T val="1010" end="1010"/>', '<T val="757" end="757"/>'), ('"1080"', '"1280"'),
                         ("<material ", "<operator/><material "), ('<tau val="70"/>', '<tau val="70"/><tau val="7"/>'),
                         ('<tau val="70"/>', '<tau val="7,0" unit="s"/>'), ('<n_stages val="2"/>', '<n_stages val="1"/>'),
                         ('<TMIn val="0.2" end="0.2"/>', '<TMIn val="0" end="0"/>'),
                         ('<TMIn val="0.2" end="0.2"/>', '<TMIn val="8" end="8"/>'),
                         ('<NH3 val="8000" end="8000"/>', '<NH3 val="0" end="0"/>'), ('val="InGaN"/>', 'val="AlGaN"/>'),
                         ('<TEGa val="0.5" end="0.5"/>', '<TEGa val="0" end="0"/>'), ("<process_stages>", "<process_stages>x"),
                         ('<P val="40000" end="40000"/>', '<P val="3e9" end="3e9"/>')):
            self.assertIn(old, text)
            self.write("recipe.xml", text.replace(old, new))
            for problem in json.loads(self.run_tool("check", "--format", "json", "recipe.xml").stdout)["files"][0]["problems"]:
                if problem["severity"] == "warning":
                    self.assertIn(problem["kind"], self.kinds_explained(problem["text"]), problem["text"])
                    found.add(problem["kind"])
        self.assertGreater(len(found), 10, found)
        self.assertEqual(self.kinds_explained("the temperature jumps from 1080 K at the end of stage_1 to 1010 K in "
                                              "stage_2 while nothing grows"), {"temperature-jump"})
        self.assertEqual(self.kinds_explained("hot-pause\n"), {"hot-pause"})
        self.assertIn("see \"Kinds of warnings\" in docs/checking-a-recipe.md", self.explain("spacer"))

    def test_every_kind_of_warning_is_explained(self):
        with open(os.path.join(SOURCE, "docs", "checking-a-recipe.md"), encoding="utf-8") as file:
            table = re.search("<!-- table: kinds of warnings -->(.*?)<!-- end", file.read(), re.DOTALL)[1]
        rows = re.findall(r"^\| `(.*?)` \|", table, re.MULTILINE)
        self.assertGreater(len(rows), 20)
        for kind in rows:
            self.assertEqual(self.kinds_explained(kind), {kind})

    def test_an_unknown_text_shows_the_most_similar_messages(self):
        run = self.run_tool("explain", "step size became small")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "vorlen: no known message matches. The most similar are:\n")
        self.assertTrue(run.stdout.startswith("Step size has become too small\n"), run.stdout)
        self.assertEqual(run.stdout.count("  Section:"), 3)

    def test_words_without_quotes_are_one_text(self):
        for words in ("Step size has become too small", "b.xml: Very low or negative pressure in stage_2",
                      "run check Out of memory"):  # names of commands are words like others
            run = self.run_tool("explain", *words.split())
            self.assertEqual((run.returncode, run.stdout, run.stderr), (0, self.explain(words), ""))
        self.assertIn("Out of memory\n", self.explain("[Out of memory]"))

    def test_a_few_words_of_a_message_are_enough(self):
        for words in ("step size", "Size STEP", "small, step"):
            run = self.run_tool("explain", *words.split())
            self.assertEqual((run.returncode, run.stderr), (0, ""), words)
            self.assertEqual(run.stdout.split("\n")[0], "Step size has become too small")
            self.assertLessEqual(run.stdout.count("  Section:"), 5)
        self.assertEqual(self.explain("out of memory").split("\n")[0], "Out of memory")
        for words in ("in stage", "step siz", "..."):  # in too many messages, not a whole word, no word
            run = self.run_tool("explain", words)
            self.assertEqual((run.returncode, run.stderr),
                             (1, "vorlen: no known message matches. The most similar are:\n"), words)

    def test_options_among_the_words(self):
        run = self.run_tool("explain", "step", "size", "--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("Usage: vorlen explain ", run.stdout)
        run = self.run_tool("explain", "step", "--size")
        self.assertEqual((run.returncode, run.stdout), (2, ""))
        self.assertEqual(run.stderr.split("\n")[0], "The following argument was not expected: --size")
        run = self.run_tool("explain", "--", "--size", "Out of memory")
        self.assertEqual((run.returncode, run.stdout.split("\n")[0]), (0, "Out of memory"))

    def test_no_text(self):
        run = self.run_tool("explain", input=" \n")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (2, "", "vorlen: no text to explain\n"))
        for words in ([""], ["", " "]):
            run = self.run_tool("explain", *words, input="Out of memory")
            self.assertEqual((run.returncode, run.stdout, run.stderr), (2, "", "vorlen: no text to explain\n"))


if __name__ == "__main__":
    unittest.main()
