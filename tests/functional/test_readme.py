"""The programs in README.md run, and its recipe and table are those of the example."""
import json
import math
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

from support import LIBRARY, SOURCE, Result, example, vorlen

PRELOAD = os.environ["VORLEN_PRELOAD"]


def text_of(name):
    with open(os.path.join(SOURCE, name), encoding="utf-8") as file:
        return file.read()


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", text_of("README.md"), re.MULTILINE | re.DOTALL)


class Readme(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        # File names as in the text of the page.
        shutil.copy(LIBRARY, os.path.join(self.folder, "libVorlenSolver.so"))
        os.symlink("libVorlenSolver.so", os.path.join(self.folder, "libVorlenSolver.so.1"))
        shutil.copy(example("algan_gan_hemt"), os.path.join(self.folder, "recipe.xml"))

    def run_in_folder(self, command, **environment):
        return subprocess.run(command, cwd=self.folder, env={**os.environ, "LD_LIBRARY_PATH": ".", **environment},
                              capture_output=True, encoding="utf-8", check=False)

    def check_program(self, command, **environment):
        """With the recipe: a result and status 0. Without it: the message on stderr and status 1."""
        run = self.run_in_folder(command, **environment)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(len(Result(os.path.join(self.folder, "result.txt")).layers), 6)
        os.remove(os.path.join(self.folder, "recipe.xml"))
        run = self.run_in_folder(command, **environment)
        self.assertEqual(run.returncode, 1)
        self.assertIn("Error reading file recipe.xml\nFailed to open file", run.stderr)

    def test_the_c_program(self):
        (program,) = blocks("c")
        with open(os.path.join(self.folder, "host.c"), "w", encoding="utf-8") as file:
            file.write(program)
        compiler = [os.environ["VORLEN_CC"], *shlex.split(os.environ["VORLEN_CFLAGS"])]
        run = self.run_in_folder([*compiler, "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                                  "-I", os.path.join(SOURCE, "src", "api"), "host.c", "-L.", "-lVorlenSolver",
                                  "-o", "host"])
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.check_program(["./host"])

    def test_the_python_program(self):
        (program,) = blocks("python")
        with open(os.path.join(self.folder, "host.py"), "w", encoding="utf-8") as file:
            file.write(program)
        environment = {"LD_PRELOAD": PRELOAD, "ASAN_OPTIONS": "detect_leaks=0"} if PRELOAD else {}
        self.check_program([sys.executable, "-B", "host.py"], **environment)

    def test_the_names_in_the_section_about_installing(self):
        """Other tests install from the packages, by pip and from the archive."""
        page = text_of("README.md")
        (version,) = re.findall(r"^project\(VorlenSolver VERSION (\S+)", text_of("CMakeLists.txt"), re.MULTILINE)
        self.assertEqual(re.findall(r"VorlenSolver-(\S+)-windows-x86_64\.zip", page), [version])
        (first_run,) = re.findall(r"`(\.\\vorlen\.exe [^`]*)`", page)
        self.assertIn(first_run, text_of("cmake/windows/README.txt.in"))
        presets = [preset["name"] for preset in json.loads(text_of("CMakePresets.json"))["configurePresets"]]
        named = re.findall(r"\bpreset\s`(\w+)`", page)
        self.assertEqual(sorted(named), ["package", "windows"])
        self.assertLessEqual(set(named), set(presets))
        self.assertIn("`scripts/setup.sh run`", page)
        self.assertIn("\n  run) ", text_of("scripts/setup.sh"))
        self.assertIn("`pip install ./python`", page)
        self.assertTrue(os.path.exists(os.path.join(SOURCE, "python", "pyproject.toml")))

    def test_the_recipe_is_that_of_the_example(self):
        (excerpt,) = blocks("xml")
        with open(example("algan_gan_hemt"), encoding="utf-8") as file:
            text = re.sub(r"\s+", " ", file.read())
        for piece in excerpt.split("..."):
            self.assertIn(re.sub(r"\s+", " ", piece).strip(), text)

    def test_the_table_is_what_the_example_prints(self):
        (printed,) = [block for block in blocks("text") if "Thickness, nm" in block]
        run = vorlen("run", example("algan_gan_hemt"), cwd=self.folder)
        # Up to the last paragraph, which contains the time of the run and the number of rows.
        expected = run.stdout.rsplit("\n\n", 1)[0].split()
        shown = printed.rsplit("\n\n", 1)[0].split()
        self.assertEqual(len(shown), len(expected))
        for a, b in zip(shown, expected):
            try:
                # Another processor may round the last printed digit differently.
                self.assertTrue(math.isclose(float(a), float(b), rel_tol=1e-3, abs_tol=1e-3), f"{a} and {b}")
            except ValueError:
                self.assertEqual(a, b)


if __name__ == "__main__":
    unittest.main()
