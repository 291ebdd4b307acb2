"""The comparison of builds: a library is equal to itself, and one that differs is found."""
import os
import re
import subprocess
import sys
import tempfile
import unittest

from support import LIBRARY, SOURCE, example

SCRIPT = os.path.join(SOURCE, "tests", "functional", "same_bytes.py")

# A library whose result differs in the last digit.
OTHER = r"""
#include <stdint.h>
#include <stdio.h>
int32_t runSurfChem(const char* input, const char* output, char* error) {
  (void)input; (void)error;
  FILE* file = fopen(output, "w");
  if (!file) return 1;
  fputs("first line\nDIGIT\n", file);
  return fclose(file);
}
"""


class SameBytes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.environment = dict(os.environ)
        if os.environ["VORLEN_PRELOAD"]:
            # Python itself leaks memory.
            self.environment.update(LD_PRELOAD=os.environ["VORLEN_PRELOAD"], ASAN_OPTIONS="detect_leaks=0")

    def compare(self, *arguments):
        return subprocess.run([sys.executable, "-B", SCRIPT, *arguments], env=self.environment, capture_output=True,
                              encoding="utf-8", check=False)

    def build_other(self, digit):
        path = os.path.join(self.folder, f"libother{digit}.so")
        subprocess.run([os.environ["VORLEN_CC"], "-shared", "-fPIC", "-x", "c", "-", "-o", path],
                       input=OTHER.replace("DIGIT", digit), encoding="utf-8", check=True)
        return path

    def test_a_second_process_gives_the_same_bytes(self):
        run = self.compare(LIBRARY, LIBRARY, "--", example("algan_gan_hemt"), example("algan_tension"))
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout.count("the same from 2 libraries"), 2)

    def test_recipes_are_run_under_the_staged_scheme_too(self):
        open_scheme = os.path.join(SOURCE, "tests", "data", "recipes", "algan_gan_hemt.xml")
        run = self.compare(LIBRARY, LIBRARY, "--staged", "--", open_scheme, example("algan_tension"))
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        sizes = re.findall(r"(\w+)\.xml: (\d+) bytes, the same from 2 libraries", run.stdout)
        # The example names its scheme.
        self.assertEqual([name for name, _ in sizes], ["algan_gan_hemt", "algan_tension", "staged_0_algan_gan_hemt"])
        self.assertNotEqual(sizes[0][1], sizes[2][1])

    def test_a_difference_is_found_and_shown(self):
        run = self.compare(self.build_other("1"), self.build_other("2"), "--", example("algan_gan_hemt"))
        self.assertEqual(run.returncode, 1)
        self.assertIn("differ, line 2:\n  1\n  2\n", run.stdout)

    def test_a_failed_run_is_a_difference(self):
        run = self.compare(LIBRARY, LIBRARY, "--", os.path.join(self.folder, "none.xml"))
        self.assertEqual(run.returncode, 1)
        self.assertIn("Failed to open file", run.stderr)


if __name__ == "__main__":
    unittest.main()
