"""Shared by the tests of the Windows build: its programs under Wine, in a temporary folder."""
import os
import subprocess
import tempfile
import unittest

SOURCE = os.environ["VORLEN_SOURCE"]
BUILD = os.environ["VORLEN_BUILD"]
DLL = os.environ["VORLEN_DLL"]
WINE = os.environ["VORLEN_WINE"]
CC = os.environ["VORLEN_CC"]
LLD_LINK = os.environ["VORLEN_LLD_LINK"]
HEADER_FOLDER = os.path.join(SOURCE, "src", "api")
RECIPE = os.path.join(SOURCE, "tests", "data", "recipes", "algan_gan_hemt.xml")


def run(*command, cwd, **options):
    """Runs a program of this machine and returns what it printed; fails with all of it."""
    done = subprocess.run(command, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **options)
    text = done.stdout.decode("utf-8", "replace")
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: status {done.returncode}\n{text}")
    return text


def wine(*command, cwd, **options):
    """The same for a program of Windows."""
    return run(WINE, *command, cwd=cwd, **options)


def blocks(page, language):
    """The blocks of code in that language on a page of docs/."""
    with open(os.path.join(SOURCE, "docs", page), encoding="utf-8") as file:
        parts = file.read().split(f"```{language}\n")
    return [part.split("```\n")[0] for part in parts[1:]]


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()
