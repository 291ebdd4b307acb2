"""The hosts in C# and Python on the page about Windows, here with the library of this system."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

LIBRARY = os.environ["VORLEN_LIBRARY"]
SOURCE = os.environ["VORLEN_SOURCE"]
RECIPE = os.path.join(SOURCE, "tests", "data", "recipes", "algan_gan_hemt.xml")
MISSING = "Error reading file fehlt 日本.xml\nFailed to open file\n"


def block(language):
    with open(os.path.join(SOURCE, "docs", "windows.md"), encoding="utf-8") as file:
        [text] = re.findall(rf"^```{language}\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
    return text


class Hosts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        shutil.copy(RECIPE, os.path.join(self.folder, "Rezept 日本.xml"))

    def write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)

    def run_host(self, *command):
        return subprocess.run(command, cwd=self.folder, capture_output=True, check=False, encoding="utf-8", env={
            **os.environ, "LD_LIBRARY_PATH": os.path.dirname(LIBRARY), "LC_ALL": "C.UTF-8", "HOME": self.folder})

    def check(self, done, result):
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        with open(os.path.join(self.folder, result), "rb") as file:
            self.assertIn(b'"GaN channel"', file.read())

    @unittest.skipUnless(shutil.which("mcs") and shutil.which("mono"), "Mono is missing (packages mono-mcs, mono-runtime)")
    def test_c_sharp(self):
        self.write("host.cs", block("csharp"))
        compiled = self.run_host("mcs", "-warnaserror", "-out:host.exe", "host.cs")
        self.assertEqual(compiled.returncode, 0, compiled.stdout + compiled.stderr)
        self.check(self.run_host("mono", "host.exe", "Rezept 日本.xml", "Ergebnis 日本.txt"), "Ergebnis 日本.txt")
        failed = self.run_host("mono", "host.exe", "fehlt 日本.xml", "")
        self.assertEqual((failed.returncode, failed.stderr), (1, MISSING))

    def test_python(self):
        text = block("python").replace('os.path.abspath("VorlenSolver.dll")', repr(LIBRARY))
        self.assertIn(repr(LIBRARY), text)
        self.write("host.py", text.replace("recipe.xml", "Rezept 日本.xml"))
        self.check(self.run_host(sys.executable, "host.py"), "result.txt")
        self.write("host.py", text.replace("recipe.xml", "fehlt 日本.xml"))
        failed = self.run_host(sys.executable, "host.py")
        self.assertEqual((failed.returncode, failed.stderr), (1, MISSING))


if __name__ == "__main__":
    unittest.main()
