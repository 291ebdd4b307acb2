"""Runs that give unphysical values or stop early: the message of the tool, and the files that it keeps."""
import json
import os
import re
import shutil
import subprocess
import unittest

from support import SCRIPTED_VORLEN, InAFolder, Result, changed_example, example, without_integration

STAGED_REMEDY = 'What to do: run it with --scheme staged (in Python: scheme="staged")'
PAGE_REMEDY = "What to do: see docs/when-a-run-fails.md"
TEXTS_OF_INTEGRATION = (  # docs/messages.md
    "Step size has become too small",
    "Maximum number of time steps reached",
    "Matrix is repeatedly singular",
    "State is not finite",
)
X_GA = 4  # column


def recipe_with_a_pause():
    """A transistor with 5 s without metals before the barrier, where the continuous scheme fails."""
    text = without_integration(changed_example("algan_gan_hemt"))
    begin, end = text.index("<stage_2>"), text.index("</stage_2>") + len("</stage_2>")
    barrier = text[begin:end]
    pause = barrier
    for old, new in (('val="AlGaN barrier"', 'val="pause"'), ('<tau val="40"/>', '<tau val="5"/>'),
                     ('<TMGa val="1" end="1"/>', '<TMGa val="0" end="0"/>'),
                     ('<TMAl val="0.3" end="0.3"/>', '<TMAl val="0" end="0"/>')):
        assert old in pause, old
        pause = pause.replace(old, new)
    for bracket in ("<", "</"):
        text = text.replace(bracket + "stage_3>", bracket + "stage_4>")
    text = text.replace(barrier, pause + barrier.replace("stage_2>", "stage_3>"))
    return text.replace('<n_stages val="3"/>', '<n_stages val="4"/>')


class Unphysical(InAFolder):
    def test_a_pause_before_an_algan_barrier_under_the_continuous_scheme(self):
        self.write("a.xml", recipe_with_a_pause())
        self.write("a.result.txt", "of yesterday")
        run = self.run_tool("run", "a.xml", "--scheme", "continuous")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(self.read("a.result.txt"), b"of yesterday")
        rows = Result(self.path("a.failed.txt")).active_rows
        bad = [row for row in rows if not all(-0.001 <= row[column] <= 1.001 for column in (X_GA - 1, X_GA, X_GA + 1))]
        self.assertGreater(len(bad), 10)
        self.assertTrue(3785 < bad[0][0] < 3825, bad[0][0])  # in the barrier
        total = len(Result(self.path("a.failed.txt")).rows)
        text = (f"Unphysical values in {len(bad)} of {total} rows, first at {bad[0][0]:.10g} s in "
                f"stage_3 (AlGaN barrier): gallium fraction is {bad[0][X_GA]:.6g}\n{STAGED_REMEDY}")
        self.assertRegex(run.stderr, "^vorlen: warning: a.xml: line .* the continuous scheme may fail")
        self.assertTrue(run.stderr.endswith(f"\nvorlen: {text}\nThe rows up to there are in a.failed.txt\n"), run.stderr)
        status = json.loads(self.read("a.status.json"))
        self.assertEqual((status["result"], status["text"], status["scheme"]), (1, text, "continuous"))
        self.assertEqual(status["result_file"], "a.failed.txt")

    def test_one_of_several(self):
        self.write("a.xml", recipe_with_a_pause())
        shutil.copy(example("algan_gan_hemt"), self.path("b.xml"))
        run = self.run_tool("run", "a.xml", "b.xml", "--keep-going", "-j", "1")
        self.assertEqual(run.returncode, 1)
        self.assertIn("vorlen: a.xml: Unphysical values in ", run.stderr)
        self.assertRegex(run.stdout, r"(?m)^  a\.xml +failed .*\n  b\.xml +done ")


class Scripted(InAFolder):
    """A library for tests returns rows of a good run with changed values, and messages of the library."""

    def setUp(self):
        super().setUp()
        # 3 periods of wells and barriers from 3000 s on: stage_1_1 (150 s), stage_1_2 (20 s), stage_1_3 (70 s), ...
        self.write("r.xml", without_integration(changed_example("ingan_gan_mqw")))
        run = self.run_tool("run", "r.xml", "-o", "good.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.good = self.read("good.txt").decode()
        self.result = Result(self.path("good.txt"))

    def run_with(self, rows, *arguments, **changes):
        self.write("rows", rows)
        run = self.run_tool("run", "r.xml", "--force", *arguments, tool=SCRIPTED_VORLEN,
                            env={**os.environ, "TEST_ROWS": self.path("rows"), **changes})
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        return run.stderr

    def row_at(self, time):
        """The line of the first active row after a time."""
        number = next(i for i, row in enumerate(self.result.active_rows) if row[0] > time)
        return [line for line in self.good.splitlines(keepends=True) if line.endswith(" \n")][number]

    def test_a_wild_fraction_in_a_periodic_stage(self):
        # Four stages of 150, 20, 70 and 20 s make a period.
        self.assertEqual([duration for _, duration, _ in self.result.layers[1:6]], [150, 20, 70, 20, 150])
        line = self.row_at(3000 + 260 + 150 + 1)
        fields = line.split(" ")
        time = float(fields[0])
        fields[X_GA] = "4.8600000000000003e+000"
        for arguments, remedy in (([], STAGED_REMEDY), (["--scheme", "continuous"], STAGED_REMEDY),
                                  (["--scheme", "staged"], PAGE_REMEDY)):
            text = self.run_with(self.good.replace(line, " ".join(fields)), *arguments)
            self.assertEqual(text.splitlines()[0],
                             f"vorlen: Unphysical values in 1 of {len(self.result.rows)} rows, first at "
                             f"{time:.10g} s in stage_1_2, period 2 (cooling): gallium fraction is 4.86")
            self.assertEqual(text.splitlines()[1], remedy)

    def test_a_value_that_is_not_finite_in_each_column(self):
        line = self.row_at(3010)
        for column in range(19):
            for value, shown in (("nan", "NaN"), ("-nan", "NaN"), ("inf", "infinite"), ("-inf", "infinite")):
                with self.subTest((column, value)):
                    fields = line.split(" ")
                    fields[column] = value
                    text = self.run_with(self.good.replace(line, " ".join(fields)))
                    self.assertRegex(text, r"^vorlen: Unphysical values in 1 of \d+ rows, first at .*: .* is "
                                           rf"{shown}\n")
                    self.assertEqual("stage_1_1, period 1 (GaN barrier)" in text, column != 0)

    def test_an_integration_that_ended_early(self):
        cut = self.row_at(3200)
        rows = self.good[:self.good.index(cut)] + cut
        # The second layer of the first period lasts from 3150 to 3170 s, the third, the well, to 3240 s.
        for text in TEXTS_OF_INTEGRATION:
            for arguments, remedy in (([], STAGED_REMEDY), (["--scheme", "staged"], PAGE_REMEDY)):
                stderr = self.run_with(rows, *arguments, TEST_TEXT=text)
                self.assertEqual(stderr, f"vorlen: {text}\n"
                                         f"The run ended at {float(cut.split()[0]):.10g} s in "
                                         f"stage_1_3, period 1 (InGaN well)\n{remedy}\n"
                                         "The rows up to there are in r.failed.txt\n")

    def test_a_last_row_just_before_a_boundary(self):
        line = self.row_at(3100)
        head = self.good[:self.good.index(line)]
        for time, place in ((3149.995, ", at the start of stage_1_2, period 1 (cooling)"),
                            (3149.991, ", at the start of stage_1_2, period 1 (cooling)"),
                            (3149.989, " in stage_1_1, period 1 (GaN barrier)"),
                            (3150.0, ", at the start of stage_1_2, period 1 (cooling)")):
            fields = line.split(" ")
            fields[0] = repr(time)
            stderr = self.run_with(head + " ".join(fields), TEST_TEXT=TEXTS_OF_INTEGRATION[0])
            self.assertIn(f"\nThe run ended at {time:.10g} s{place}\n", stderr)

    def test_a_last_row_just_before_the_end_of_a_short_stage(self):
        self.write("r.xml", without_integration(changed_example("ingan_gan_mqw",
                                                                ('<tau val="150"/>', '<tau val="0.1"/>'))))
        line = self.row_at(3000)
        head = self.good[:self.good.index(line)]
        # The rows may end a hundredth of the stage, 1 ms, before it does.
        for time, place in ((3000.0991, ", at the start of stage_1_2, period 1 (cooling)"),
                            (3000.0989, " in stage_1_1, period 1 (GaN barrier)")):
            fields = line.split(" ")
            fields[0] = repr(time)
            stderr = self.run_with(head + " ".join(fields), TEST_TEXT=TEXTS_OF_INTEGRATION[0])
            self.assertIn(f"\nThe run ended at {time:.10g} s{place}\n", stderr)

    def test_unphysical_rows_before_an_integration_that_ended_early(self):
        line = self.row_at(3100)
        fields = line.split(" ")
        fields[X_GA] = "2"
        stderr = self.run_with(self.good[:self.good.index(line)] + " ".join(fields), TEST_TEXT=TEXTS_OF_INTEGRATION[2])
        self.assertEqual([text.split()[0] for text in stderr.splitlines()],
                         ["vorlen:", "The", "Unphysical", "What", "The"])

    def test_rows_that_cannot_be_put_in_place_are_kept_and_the_run_is_failed(self):
        os.mkfifo(self.path("rows"))  # the library waits for its writer, and the result becomes a folder meanwhile
        run = subprocess.Popen([SCRIPTED_VORLEN, "run", "r.xml", "-o", "out.txt"], cwd=self.folder,
                               env=os.environ | {"TEST_ROWS": self.path("rows")}, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, encoding="utf-8")
        self.addCleanup(run.kill)
        with open(self.path("rows"), "w", encoding="utf-8") as file:
            os.mkdir(self.path("out.txt"))
            file.write(self.good)
        output, errors = run.communicate(timeout=60)
        self.assertEqual((run.returncode, output), (1, ""))
        problem, kept = re.search(r"(out\.txt .*); the rows are in (\S+)", errors).groups()
        self.assertEqual(self.read(kept).decode(), self.good)
        status = json.loads(self.read("out.status.json"))
        self.assertEqual((status["result"], status["text"]), (1, f"{problem}; the rows are in {kept}"))

    def test_a_run_without_rows(self):
        stderr = self.run_with("", TEST_TEXT=TEXTS_OF_INTEGRATION[1])
        self.assertEqual(stderr, f"vorlen: {TEXTS_OF_INTEGRATION[1]}\nThe run ended before its first row\n"
                                 f"{STAGED_REMEDY}\n")

    def test_nothing_is_added_to_errors_in_recipes(self):
        stderr = self.run_with(self.good, TEST_TEXT="Very low or negative pressure in stage_2")
        self.assertEqual(stderr.splitlines()[0], "vorlen: Very low or negative pressure in stage_2")
        self.assertNotIn("What to do", stderr)

    def test_names_of_layers_in_the_message(self):
        line = self.row_at(3010)
        fields = line.split(" ")
        fields[X_GA] = "2"
        rows = self.good.replace(line, " ".join(fields))
        with open(example("ingan_gan_mqw"), encoding="utf-8") as file:
            recipe = file.read()
        for name, shown in (("", " (Layer2)"), ("two&#10;lines", " (two lines)"), ("n" * 100, f" ({'n' * 100})"),
                            ("n" * 101, "")):
            self.write("r.xml", recipe.replace('val="GaN barrier"', f'val="{name}"', 1))
            self.assertIn(f" in stage_1_1, period 1{shown}: gallium fraction is 2\n", self.run_with(rows))


if __name__ == "__main__":
    unittest.main()
