"""How the tool handles input that it cannot use, and unusual but valid input."""
import os
import resource
import signal
import unittest

from support import InAFolder, Result, example

VERSION = os.environ["VORLEN_VERSION"]


class Failures(InAFolder):
    def expect_failure(self, text, *arguments):
        run = self.run_tool(*arguments)
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, f"vorlen: {text}\n")

    def test_a_missing_recipe(self):
        self.expect_failure("Error reading file none.xml\nFailed to open file", "run", "none.xml")
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_folder_as_recipe(self):
        os.mkdir(self.path("folder.xml"))
        self.expect_failure("Error reading file folder.xml\nFailed to open file", "run", "folder.xml")

    def test_a_faulty_recipe_leaves_the_old_result_alone(self):
        self.write_recipe("recipe.xml", '<material val="AlGaN"/>', '<material val="GaAs"/>')
        with open(self.path("recipe.result.txt"), "w", encoding="utf-8") as file:
            file.write("of yesterday")
        self.expect_failure('Material "GaAs" is not recognized\nvorlen: "vorlen check recipe.xml" explains it and shows all '
                            "problems", "run", "recipe.xml")
        with open(self.path("recipe.result.txt"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "of yesterday")

    def test_a_recipe_that_is_not_xml(self):
        with open(self.path("recipe.xml"), "w", encoding="utf-8") as file:
            file.write("hello")
        run = self.run_tool("run", "recipe.xml")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertTrue(run.stderr.startswith("vorlen: Error reading file recipe.xml\n"), run.stderr)

    def test_a_result_in_a_folder_that_does_not_exist(self):
        self.expect_failure("no/out.txt can't be written: folder not found: no", "run", example("algan_gan_hemt"), "-o",
                            "no/out.txt")

    def test_a_folder_as_result(self):
        os.mkdir(self.path("out"))
        self.expect_failure("out is not a regular file", "run", example("algan_gan_hemt"), "-o", "out")

    def test_a_result_that_is_the_recipe(self):
        self.write_recipe("recipe.xml")
        with open(self.path("recipe.xml"), encoding="utf-8") as file:
            before = file.read()
        self.expect_failure("the result would overwrite the recipe recipe.xml", "run", "recipe.xml", "-o",
                            "./recipe.xml")
        with open(self.path("recipe.xml"), encoding="utf-8") as file:
            self.assertEqual(file.read(), before)

    @unittest.skipUnless(os.path.exists("/dev/full"), "no device that is always full")
    def test_a_device_as_result(self):
        self.expect_failure("/dev/full is not a regular file", "run",
                            example("algan_gan_hemt"), "-o", "/dev/full")


class CommandLines(InAFolder):
    def test_help_and_version_go_to_stdout(self):
        for arguments in (["--help"], ["run", "--help"]):
            run = self.run_tool(*arguments)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            self.assertIn("run", run.stdout)
        run = self.run_tool("run", "--help")
        self.assertIn("RECIPE", run.stdout)
        self.assertIn("--output", run.stdout)
        run = self.run_tool("--version")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, f"vorlen {VERSION}\n", ""))

    def test_wrong_command_lines_have_status_2(self):
        recipe = example("algan_gan_hemt")
        for arguments in ([], ["run"], ["walk", recipe], ["run", recipe, recipe], ["run", "--fast", recipe],
                          ["run", recipe, "-o"], ["run", recipe, "-o", ""], ["run", recipe, "--output="]):
            self.expect_not_understood(*arguments)
            self.assertEqual(os.listdir(self.folder), [])


class OddNames(InAFolder):
    def test_a_recipe_name_outside_of_ascii(self):
        self.write_recipe("Größe Ω 氮化.xml")
        run = self.run_tool("run", "Größe Ω 氮化.xml")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("rows in Größe Ω 氮化.result.txt\n", run.stdout)
        self.assertTrue(os.path.exists(self.path("Größe Ω 氮化.result.txt")))

    def test_a_recipe_without_extension_in_another_folder(self):
        os.mkdir(self.path("recipes"))
        self.write_recipe("recipes/plain")
        run = self.run_tool("run", "recipes/plain")
        self.assertEqual(run.returncode, 0)
        self.assertEqual(sorted(os.listdir(self.folder)), ["plain.result.txt", "plain.status.json", "recipes"])

    def test_layer_names_with_quotes_line_breaks_numbers_and_umlauts(self):
        # The file contains the names unchanged; in the printed table a line break is a blank.
        for name, shown in (("say &quot;GaN&quot; 12 3.5", 'say "GaN" 12 3.5'), ("two&#10;lines", "two lines"),
                            ("&lt;/LAYERS&gt;", "</LAYERS>"), ("Löß", "Löß")):
            with self.subTest(name):
                self.write_recipe("recipe.xml", 'val="AlGaN barrier"', f'val="{name}"')
                run = self.run_tool("run", "recipe.xml")
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                rows = run.stdout.split("\n\n")[0].splitlines()
                self.assertIn(f"  {shown} ", rows[5])
                self.assertEqual(len({len(row) for row in rows}), 1, "the columns are not aligned")

    def test_a_name_that_looks_like_two_layers_is_not_taken_for_a_full_disk(self):
        self.write_recipe("recipe.xml", 'val="AlGaN barrier"', 'val="a&quot; 1e9 2&#10;&quot;b"')
        run = self.run_tool("run", "recipe.xml")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn(b'"a" 1e9 2\n"b" ', self.read("recipe.result.txt"))

    def test_an_unnamed_layer_is_shown_by_its_number(self):
        self.write_recipe("recipe.xml", 'val="AlGaN barrier"', 'val=""')
        run = self.run_tool("run", "recipe.xml")
        self.assertEqual(run.returncode, 0)
        self.assertIn("    5  Layer5 ", run.stdout)
        self.assertEqual(Result(self.path("recipe.result.txt")).layers[4][0], "Layer5")


class DamagedResults(InAFolder):
    """A full disk leaves a truncated file. Here a limit on the file size has the same effect."""

    def run_with_a_limit(self, limit):
        """A run whose result is limited to this number of bytes."""

        def limit_file_size():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

        return self.run_tool("run", example("algan_gan_hemt"), "-o", "cut.txt", preexec_fn=limit_file_size)

    def test_the_complete_rows_of_a_truncated_file_are_kept_as_failed(self):
        self.assertEqual(self.run_tool("run", example("algan_gan_hemt"), "-o", "whole.txt").returncode, 0)
        whole = self.read("whole.txt")
        end_of_row = whole.rfind(b"\n", 0, len(whole) // 2) + 1
        for limit in (end_of_row - 1, end_of_row, end_of_row + 1, len(whole) - 1):
            with self.subTest(limit):
                run = self.run_with_a_limit(limit)
                self.assertEqual((run.returncode, run.stdout), (1, ""))
                self.assertEqual(run.stderr, "vorlen: cut.txt: the file ends before the run does. Is the disk full?\n"
                                             "The rows up to there are in cut.failed.txt\n")
                self.assertNotIn("cut.txt", os.listdir(self.folder))
                self.assertEqual(self.read("cut.failed.txt"), whole[:whole.rfind(b"\n", 0, limit) + 1])
                self.assertGreater(len(Result(self.path("cut.failed.txt")).active_rows), 0)
                self.assertEqual(self.run_tool("show", "cut.failed.txt").returncode, 0)

    def test_a_file_truncated_before_its_first_row(self):
        run = self.run_with_a_limit(100)  # within the list of layers
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "vorlen: cut.txt: the file ends before the run does. Is the disk full?\n"
                                     "No row could be written\n"
                                     "cut.status.json can't be written: File too large\n")
        self.assertEqual(os.listdir(self.folder), [])


if __name__ == "__main__":
    unittest.main()
