"""Runs of several recipes, their status files, and what happens when a run, a process, a disk or the user ends one."""
import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

from support import SOURCE, VORLEN, InAFolder, Result, example, without_integration

VERSION = os.environ["VORLEN_VERSION"]
# Its integration fails after the first row.
BREAKS_DOWN = os.path.join(SOURCE, "tests", "data", "bad", "failed_run_001.xml")


def sha256(content):
    return hashlib.sha256(content).hexdigest()


def children_of(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return [int(word) for word in file.read().split()]


def state_of(pid):
    """R, S, T, Z, ... as shown by ps; None if the process does not exist."""
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii") as file:
            return file.read().rsplit(")", 1)[1].split()[0]
    except FileNotFoundError:
        return None


class Batch(InAFolder):
    def states(self, run):
        """The state of each recipe in the printed table: {"a.xml": "done", ...}."""
        lines = run.stdout.splitlines()[1:]
        return dict(re.match(r"  (\S+) +(done|failed|up to date|not run) ", line).groups() for line in lines)

    def status_of(self, name):
        return json.loads(self.read(name + ".status.json"))

    def write_long_recipe(self, name, periods=20000):
        """Runs for minutes; with 100 periods for about a second."""
        self.write_recipe(name, '<n_periods val="3"/>', f'<n_periods val="{periods}"/>', source="ingan_gan_mqw")

    def write_nan_recipe(self, name):
        """Nothing flows on any stage: transport layers of 0/0, which the continuous scheme does not notice."""
        with open(example("gan_thick_ccs"), encoding="utf-8") as file:
            text = without_integration(file.read())
        head, stages = text.split("<process_stages>")
        stages = re.sub(r'<(TM\w+|TEGa|NH3|N2|H2) val="[^"]*" end="[^"]*"/>', r'<\1 val="0" end="0"/>', stages)
        self.write(name, head + "<process_stages>" + stages)

    def start(self, *arguments):
        run = subprocess.Popen([VORLEN, "run", *arguments], cwd=self.folder, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, encoding="utf-8", start_new_session=True)
        self.addCleanup(run.communicate)
        self.addCleanup(run.kill)
        return run

    def worker_of(self, run):
        """The processes that simulate. Those that check the recipes before have no temporary file."""
        return children_of(run.pid) if any(name.endswith(".part") for name in os.listdir(self.folder)) else []

    def wait_until(self, what, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.02)

    def test_several_recipes_give_the_files_of_single_runs(self):
        names = ["algan_gan_hemt", "algan_tension", "gan_thick_ccs"]
        run = self.run_tool("run", "-j", "2", "--output-dir", "new/results", *map(example, names))
        self.assertEqual(run.returncode, 0)
        self.assertEqual(run.stderr.splitlines()[-1][:50], "3 of 3 done, 0 failed, 0 running, elapsed 0:00"[:50])
        self.assertEqual(sorted(os.listdir(self.path("new/results"))),
                         sorted(name + end for name in names for end in (".result.txt", ".status.json")))
        for name in names:
            self.assertEqual(self.run_tool("run", example(name)).returncode, 0)
            self.assertEqual(self.read(name + ".result.txt"), self.read(f"new/results/{name}.result.txt"))

    def test_the_status_file_describes_the_run(self):
        self.write_recipe("a.xml")
        self.assertEqual(self.run_tool("run", "a.xml", "-o", "b.txt").returncode, 0)
        status = self.status_of("b")
        self.assertEqual(list(status), ["result", "text", "wall_time_s", "version", "recipe", "recipe_sha256",
                                        "scheme", "result_file", "result_sha256", "host", "finished"])
        self.assertEqual((status["result"], status["text"], status["version"]), (0, "", VERSION))
        self.assertEqual((status["recipe"], status["result_file"]), ("a.xml", "b.txt"))
        self.assertEqual(status["scheme"], "staged")  # that of the example
        self.assertEqual(status["recipe_sha256"], sha256(self.read("a.xml")))
        self.assertEqual(status["result_sha256"], sha256(self.read("b.txt")))
        self.assertEqual(status["host"], os.uname().nodename)
        self.assertGreater(status["wall_time_s"], 0)
        finished = time.strptime(status["finished"], "%Y-%m-%dT%H:%M:%SZ")
        self.assertLess(abs(time.mktime(finished) - time.mktime(time.gmtime())), 600)

    def test_a_second_call_skips_what_is_done_and_unchanged(self):
        self.write_recipe("a.xml")
        self.write_recipe("b.xml", source="algan_tension")
        results = ["a.result.txt", "b.result.txt"]

        def run_again(*options):
            """The states, and which of the results are files of this call."""
            before = [os.stat(self.path(name)).st_ino for name in results]
            links = [os.open(self.path(name), os.O_RDONLY) for name in results]  # keeps the numbers from being reused
            run = self.run_tool("run", "a.xml", "b.xml", *options)
            new = [os.stat(self.path(name)).st_ino != old for name, old in zip(results, before)]
            for link in links:
                os.close(link)
            self.assertEqual(run.returncode, 0)
            return list(self.states(run).values()), new

        self.assertEqual(self.run_tool("run", "a.xml", "b.xml").returncode, 0)
        self.assertEqual(run_again(), (["up to date", "up to date"], [False, False]))
        self.assertEqual(run_again("--force"), (["done", "done"], [True, True]))
        self.write("a.xml", self.read("a.xml").decode() + "\n")
        self.assertEqual(run_again(), (["done", "up to date"], [True, False]))
        with open(self.path("b.result.txt"), "ab") as file:
            file.write(b"x")
        self.assertEqual(run_again(), (["up to date", "done"], [False, True]))
        self.write("a.status.json", self.read("a.status.json").decode().replace(f'"{VERSION}"', '"0.0.1"'))
        self.assertEqual(run_again(), (["done", "up to date"], [True, False]))

    def test_a_single_run_that_is_skipped_shows_the_same_table(self):
        self.write_recipe("a.xml")
        first = self.run_tool("run", "a.xml")
        second = self.run_tool("run", "a.xml")
        self.assertEqual((second.returncode, second.stderr), (0, ""))
        self.assertEqual(first.stdout.rsplit("\n\n", 1)[0], second.stdout.rsplit("\n\n", 1)[0])
        self.assertIn("Up to date, ", second.stdout)

    def test_after_a_failure_nothing_is_started_without_keep_going(self):
        self.write_recipe("a.xml")
        self.write_recipe("b.xml", '<material val="AlGaN"/>', '<material val="GaAs"/>')
        self.write_recipe("c.xml")
        run = self.run_tool("run", "-j", "1", "a.xml", "b.xml", "c.xml")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(self.states(run), {"a.xml": "done", "b.xml": "failed", "c.xml": "not run"})
        self.assertIn('vorlen: b.xml: Material "GaAs" is not recognized\n', run.stderr)
        run = self.run_tool("run", "-j", "1", "--keep-going", "a.xml", "b.xml", "c.xml")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(self.states(run), {"a.xml": "up to date", "b.xml": "failed", "c.xml": "done"})
        status = self.status_of("b")
        self.assertEqual((status["result"], status["text"]), (1, 'Material "GaAs" is not recognized'))
        self.assertEqual((status["recipe_sha256"], status["result_sha256"]), (sha256(self.read("b.xml")), None))

    def test_two_recipes_with_the_same_result_are_rejected(self):
        os.mkdir(self.path("other"))
        self.write_recipe("a.xml")
        self.write_recipe("other/a.xml")
        for folder in ([], ["--output-dir", "results"]):
            run = self.run_tool("run", *folder, "a.xml", "other/a.xml")
            self.assertEqual((run.returncode, run.stdout), (2, ""))
            self.assertRegex(run.stderr, "^vorlen: a.xml and other/a.xml would both write .*a.result.txt\n$")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.xml", "other"])

    def test_wrong_command_lines(self):
        for options in (["-j", "0"], ["-j", "x"], ["-o", "x.txt", "--output-dir", "d"], ["--output-dir", ""],
                        ["-o", "x.txt", example("algan_tension")]):
            self.expect_not_understood("run", example("algan_gan_hemt"), *options)
            self.assertEqual(os.listdir(self.folder), [])

    def test_the_rows_of_a_failed_run_are_kept_and_the_old_result_is_unchanged(self):
        shutil.copy(BREAKS_DOWN, self.path("a.xml"))
        self.write("a.result.txt", "of yesterday")
        run = self.run_tool("run", "a.xml")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        # The process starts at 20 s, and nothing of its first stage could be integrated.
        text = ("Step size has become too small\n"
                "The run ended at 20 s, at the start of stage_1 (first)\n"
                "What to do: run it with --scheme staged (in Python: scheme=\"staged\")")
        self.assertTrue(run.stderr.endswith(f"\nvorlen: {text}\nThe rows up to there are in a.failed.txt\n"), run.stderr)
        self.assertEqual(self.read("a.result.txt"), b"of yesterday")
        self.assertGreaterEqual(len(Result(self.path("a.failed.txt")).active_rows), 1)
        status = self.status_of("a")
        self.assertEqual((status["result"], status["text"]), (1, text))
        self.assertEqual((status["result_file"], status["result_sha256"]),
                         ("a.failed.txt", sha256(self.read("a.failed.txt"))))
        # A successful run removes it.
        self.write_recipe("a.xml")
        self.assertEqual(self.run_tool("run", "a.xml").returncode, 0)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.result.txt", "a.status.json", "a.xml"])

    def test_a_recipe_that_can_not_be_read_leaves_the_files_of_an_earlier_run(self):
        shutil.copy(BREAKS_DOWN, self.path("a.xml"))
        self.write("a.result.txt", "of yesterday")
        self.assertEqual(self.run_tool("run", "a.xml").returncode, 1)
        os.remove(self.path("a.xml"))
        names = sorted(os.listdir(self.folder))
        self.assertEqual(names, ["a.failed.txt", "a.result.txt", "a.status.json"])
        before = [self.read(name) for name in names]
        run = self.run_tool("run", "a.xml")
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: Error reading file a.xml\nFailed to open file\n"))
        self.assertEqual(sorted(os.listdir(self.folder)), names)
        self.assertEqual([self.read(name) for name in names], before)

    def test_rows_with_nan_are_noticed(self):
        self.write_nan_recipe("a.xml")
        run = self.run_tool("run", "a.xml")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        rows = Result(self.path("a.failed.txt")).rows
        bad = [row for row in rows if any(value != value for value in row)]
        self.assertRegex(run.stderr, f"(?m)^vorlen: Unphysical values in {len(bad)} of {len(rows)} rows, first at "
                                     f"{bad[0][0]:.10g} s in stage_1 .*: .* is NaN\n")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.failed.txt", "a.status.json", "a.xml"])

    def test_a_killed_worker_is_one_failed_recipe(self):
        for number in (signal.SIGKILL, signal.SIGABRT):
            with self.subTest(number):
                self.write_long_recipe("long.xml")
                self.write_recipe("a.xml")
                run = self.start("-j", "1", "--keep-going", "--force", "long.xml", "a.xml")
                self.wait_until("no worker", lambda: self.worker_of(run))
                os.kill(children_of(run.pid)[0], number)
                run.stdout_text, errors = run.communicate(timeout=60)
                self.assertEqual(run.returncode, 1)
                self.assertRegex(errors, rf"long\.xml: The simulation's process has crashed \(signal {int(number)}, ")
                self.assertRegex(run.stdout_text, r"long\.xml +failed ")
                self.assertRegex(run.stdout_text, r"a\.xml +done ")
                self.assertEqual(sorted(os.listdir(self.folder)),
                                 ["a.result.txt", "a.status.json", "a.xml", "long.status.json", "long.xml"])
                self.assertIn("has crashed", self.status_of("long")["text"])

    def test_an_interrupted_batch_leaves_only_finished_results(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                self.write_recipe("a.xml")
                self.write_long_recipe("long.xml")
                self.write_recipe("z.xml")
                run = self.start("-j", "1", "--force", "a.xml", "long.xml", "z.xml")
                self.wait_until("no result", lambda: os.path.exists(self.path("a.status.json")))
                self.wait_until("no second worker", lambda: children_of(run.pid))
                (worker,) = children_of(run.pid)
                # To the whole process group, as from a terminal.
                os.killpg(run.pid, number)
                text, errors = run.communicate(timeout=30)
                self.assertEqual(run.returncode, 128 + number)
                self.assertTrue(errors.endswith("vorlen: interrupted\n"), errors)
                self.assertRegex(text, r"a\.xml +done .*\n +long\.xml +not run .*\n +z\.xml +not run ")
                self.assertFalse(os.path.exists(f"/proc/{worker}"))
                self.assertEqual(sorted(os.listdir(self.folder)),
                                 ["a.result.txt", "a.status.json", "a.xml", "long.xml", "z.xml"])
                os.remove(self.path("a.status.json"))

    def test_a_run_that_ended_before_the_interruption_is_kept(self):
        """The tool is suspended, so that it sees the end of its worker and the signal at the same time."""
        self.write_long_recipe("a.xml", periods=100)
        run = self.start("a.xml")
        self.wait_until("no worker", lambda: self.worker_of(run))
        run.send_signal(signal.SIGSTOP)
        (worker,) = children_of(run.pid)
        self.wait_until("the worker does not end", lambda: state_of(worker) == "Z")
        run.send_signal(signal.SIGINT)
        run.send_signal(signal.SIGCONT)
        _, errors = run.communicate(timeout=30)
        self.assertEqual(run.returncode, 128 + signal.SIGINT)
        self.assertTrue(errors.endswith("vorlen: interrupted\n"), errors)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.result.txt", "a.status.json", "a.xml"])
        self.assertEqual(self.status_of("a")["result"], 0)

    def test_no_simulation_outlives_a_tool_that_is_killed(self):
        self.write_long_recipe("long.xml")
        run = self.start("long.xml")
        self.wait_until("no worker", lambda: self.worker_of(run))
        (worker,) = children_of(run.pid)
        time.sleep(0.3)  # the worker asks to be killed with its parent as its first action
        run.kill()
        run.communicate(timeout=30)

        self.wait_until("the worker still runs", lambda: state_of(worker) in ("Z", None))


class Places(InAFolder):
    def test_a_symbolic_link_to_a_result_and_its_permissions_are_kept(self):
        os.mkdir(self.path("store"))
        self.write("store/real.txt", "old")
        os.chmod(self.path("store/real.txt"), 0o640)
        os.symlink("store/real.txt", self.path("link.txt"))
        run = self.run_tool("run", example("algan_gan_hemt"), "-o", "link.txt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertTrue(os.path.islink(self.path("link.txt")))
        self.assertEqual(len(Result(self.path("store/real.txt")).layers), 6)
        self.assertEqual(os.stat(self.path("store/real.txt")).st_mode & 0o777, 0o640)

    def test_a_name_of_the_maximum_length(self):
        name = "r" * 243 + ".txt"  # the status file's name then has 255 bytes
        self.assertEqual(self.run_tool("run", example("algan_gan_hemt"), "-o", name).returncode, 0)
        self.assertIn(name, os.listdir(self.folder))

    def test_a_pipe_as_result(self):
        os.mkfifo(self.path("pipe"))
        run = self.run_tool("run", example("algan_gan_hemt"), "-o", "pipe", timeout=60)
        self.assertEqual((run.returncode, run.stderr),
                         (1, "vorlen: pipe is not a regular file\n"))

    def test_an_output_folder_that_is_a_file(self):
        self.write("file", "")
        run = self.run_tool("run", example("algan_gan_hemt"), "--output-dir", "file")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertRegex(run.stderr, "^vorlen: file can't be created: ")

    def test_standard_output_on_a_full_disk(self):
        for arguments in (["run", example("algan_gan_hemt")], ["new"], ["show", "algan_gan_hemt.result.txt"],
                          ["timeline", example("algan_gan_hemt")]):
            with open("/dev/full", "w", encoding="ascii") as full:
                run = subprocess.run([VORLEN, *arguments], cwd=self.folder, stdout=full, stderr=subprocess.PIPE,
                                     encoding="utf-8", check=False)
            self.assertEqual((run.returncode, run.stderr), (1, "vorlen: standard output can't be written\n"))

    def test_a_full_disk_leaves_the_old_result(self):
        # A file system of 24 KiB, in a mount namespace that ends with the shell; the result has more.
        mount = 'mount -t tmpfs -o size=24k none . && cd "$PWD"'
        script = 'echo old > a.result.txt; "$0" run "$1" -o a.result.txt; echo "status $?"; cat a.result.txt; ls -A'
        if not shutil.which("unshare"):
            self.skipTest("unshare is not there")
        in_namespace = ["unshare", "-m", "sh", "-c"]
        attempt = subprocess.run([*in_namespace, mount], cwd=self.folder, capture_output=True, encoding="utf-8",
                                 check=False)
        if attempt.returncode != 0:
            self.skipTest("a file system can't be mounted here: " + attempt.stderr.strip())
        run = subprocess.run([*in_namespace, f"{mount}; {script}", VORLEN, example("algan_gan_hemt")],
                             cwd=self.folder, capture_output=True, encoding="utf-8", check=False)
        self.assertIn("the file ends before the run does. Is the disk full?", run.stderr)
        self.assertIn("The rows up to there are in a.failed.txt\n", run.stderr)
        lines = run.stdout.splitlines()
        self.assertEqual(lines[:4], ["status 1", "old", "a.failed.txt", "a.result.txt"])
        self.assertIn(lines[4:], ([], ["a.status.json"]))

    def test_files_without_read_or_write_permission(self):
        os.chmod(self.folder, 0o755)
        os.mkdir(self.path("open"))
        os.chmod(self.path("open"), 0o777)
        self.write_recipe("secret.xml")
        os.chmod(self.path("secret.xml"), 0)
        self.write("kept.txt", "of yesterday")
        os.chmod(self.path("kept.txt"), 0o444)
        run = self.run_without_privileges("run", "secret.xml", "-o", "open/r.txt")
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: Error reading file secret.xml\n"
                                                           "Failed to open file\n"))
        self.write_recipe("a.xml")
        run = self.run_without_privileges("run", "a.xml", "-o", "kept.txt")
        self.assertEqual((run.returncode, run.stderr), (1, "vorlen: kept.txt can't be written: Permission denied\n"))
        self.assertEqual(self.read("kept.txt"), b"of yesterday")
        self.assertEqual(os.listdir(self.path("open")), [])


if __name__ == "__main__":
    unittest.main()
