"""Shared by the functional tests: the tool as a process, its printed table, and a reader of result files.

The reader is written apart from the tool's own, so that the two check each other.
"""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

VORLEN = os.environ["VORLEN"]
SCRIPTED_VORLEN = os.environ["VORLEN_SCRIPTED"]  # the tool with the runSurfChem of python/tests/scripted_library.c
LIBRARY = os.environ["VORLEN_LIBRARY"]
SOURCE = os.environ["VORLEN_SOURCE"]
EXAMPLES_FOLDER = os.path.join(SOURCE, "examples")
EXAMPLES = sorted(name[:-4] for name in os.listdir(EXAMPLES_FOLDER) if name.endswith(".xml"))

# The columns of the table, from the left.
(TIME, Z, RATE, X_IN, X_GA, X_AL, RHO_TD_T, RHO_VD0_T, A_EFF_T, EPS_XX_T, EPS_YY_T, EPS_ZZ_T, EPS_YZ_T,
 RHO_TD_Z, A_EFF_Z, EPS_XX_Z, EPS_YY_Z, EPS_ZZ_Z, EPS_YZ_Z) = range(19)


def vorlen(*arguments, cwd, tool=VORLEN, **options):
    """Runs the tool. The result has returncode, stdout and stderr (as text). options: of subprocess.run"""
    options = {"encoding": "utf-8", **options}
    return subprocess.run([tool, *arguments], cwd=cwd, capture_output=True, check=False, **options)


def example(name):
    return os.path.join(EXAMPLES_FOLDER, name + ".xml")


def changed_example(name, *replacements):
    """The text of an example with pieces of it replaced, (old, new), once each."""
    with open(example(name), encoding="utf-8") as file:
        text = file.read()
    for old, new in replacements:
        assert old in text, old
        text = text.replace(old, new, 1)
    return text


def without_integration(text):
    """The text of a recipe without its element integration."""
    return re.sub(r"\s*<integration>.*?</integration>", "", text, flags=re.DOTALL)


class InAFolder(unittest.TestCase):
    """A test in which the tool runs in a temporary folder."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def run_tool(self, *arguments, **options):
        return vorlen(*arguments, **{"cwd": self.folder, **options})

    def run_without_privileges(self, *arguments, **options):
        """As root: runs a copy of the tool, which anyone may start, as a user whom permissions bind."""
        if os.geteuid() != 0:
            return self.run_tool(*arguments, **options)
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            return self.run_tool(*arguments, tool=shutil.copy(VORLEN, folder), user=65534, group=65534,
                                 extra_groups=[], **options)

    def expect_good(self, *arguments, **options):
        """Expects that the tool succeeds without a message, and returns what it prints."""
        run = self.run_tool(*arguments, **options)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return run.stdout

    def expect_not_understood(self, *arguments):
        """Expects exit status 2 and a message for the command line."""
        with self.subTest(arguments):
            run = self.run_tool(*arguments)
            self.assertEqual((run.returncode, run.stdout), (2, ""))
            self.assertNotEqual(run.stderr, "")

    def expect_help_with_example(self, command):
        run = self.run_tool(command, "--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn(f"Example:\n  vorlen {command} ", run.stdout)

    def write_recipe(self, name, old="", new="", source="algan_gan_hemt"):
        """Writes a copy of an example with one piece of its text replaced."""
        self.write(name, changed_example(source, *([(old, new)] if old else [])))


class Result:
    """A result file: layers as (name, duration, thickness), rows as lists of 19 numbers, active rows separately."""

    def __init__(self, path):
        with open(path, encoding="utf-8", newline="") as file:
            lines = file.read().split("\n")
        assert lines[0] == '"VORLEN output file, version 2.0"', lines[0]
        assert lines[1] == "<LAYERS>", lines[1]
        assert lines[-1] == "", "the last row has no line end"
        end = lines.index("</LAYERS>")
        self.layers = []
        for line in lines[2:end]:
            name, duration, thickness = re.fullmatch(r'"(.*)" (\S+) (\S+)', line).groups()
            self.layers.append((name, float(duration), float(thickness)))
        assert lines[end + 1].startswith("#time(sec) z(nm) Vg "), lines[end + 1]
        self.rows = []
        self.active_rows = []
        for line in lines[end + 2:-1]:
            row = [float(field) for field in line.split()]
            assert len(row) == 19, line
            self.rows.append(row)
            if line.endswith(" "):
                self.active_rows.append(row)


def printed_table(text):
    """The layer table that the tool prints: a list of (number, name, duration, thickness)."""
    table = []
    for line in text.split("\n\n")[0].splitlines()[1:]:
        number, name, duration, thickness = re.fullmatch(r" *(\d+)  (.*?) +(\S+) +(\S+)", line).groups()
        table.append((int(number), name, float(duration), float(thickness)))
    return table


def printed_words(text):
    """The numbers in the lines below the table, by the first two words: {"total thickness": [12.3], ...}"""
    words = {}
    for line in text.split("\n\n")[1].splitlines()[1:]:
        label, values = re.fullmatch(r"  (\S+(?: \S+)?) {2,}(.*)", line).groups()
        words[label] = [float(n) for n in re.findall(r"[-+]?(?:\d+(?:\.\d+)?(?:e[-+]?\d+)?|nan|inf)(?![\w^])", values)]
    return words

