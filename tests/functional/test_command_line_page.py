"""docs/command-line.md keeps its word: its commands, typed in their order into one shell, print what stands there."""
import math
import os
import re
import subprocess
import unittest

from support import SOURCE, VORLEN, InAFolder

TIME_OF_A_RUN = re.compile(r"\d+\.\d\d|\d:\d\d")  # as 0.01 in a table, 0:00 in the line of progress


def same_word(shown, printed):
    if shown == printed or TIME_OF_A_RUN.fullmatch(shown) and TIME_OF_A_RUN.fullmatch(printed):
        return True
    try:
        # Another processor may round the last printed digit otherwise.
        return math.isclose(float(shown), float(printed), rel_tol=1e-3, abs_tol=1e-3)
    except ValueError:
        return False


class CommandLinePage(InAFolder):
    def test_each_command_prints_what_is_shown(self):
        with open(os.path.join(SOURCE, "docs", "command-line.md"), encoding="utf-8") as file:
            blocks = re.findall(r"^```console\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
        commands = [entry for block in blocks for entry in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]]
        self.assertGreater(len(commands), 8)
        path = os.path.dirname(VORLEN) + os.pathsep + os.environ["PATH"]
        for entry in commands:
            command, _, shown = entry.partition("\n")
            with self.subTest(command):
                run = subprocess.run(["bash", "-c", command + " 2>&1"], cwd=self.folder, capture_output=True,
                                     encoding="utf-8", check=False, env={**os.environ, "PATH": path, "LC_ALL": "C.UTF-8"})
                for line, expected in zip(run.stdout.splitlines(), shown.splitlines(), strict=True):
                    self.assertTrue(all(map(same_word, expected.split(), line.split())), f"{expected}\n{line}")
                    self.assertEqual(len(expected.split()), len(line.split()), f"{expected}\n{line}")


if __name__ == "__main__":
    unittest.main()
