"""The files of runs: what is replaced and what is kept, two runs at once, and what is left when writing fails."""
import hashlib
import json
import os
import resource
import shutil
import signal
import stat
import subprocess
import tempfile
import time
import unittest

from support import SCRIPTED_VORLEN, SOURCE, VORLEN, InAFolder, Result, example

BREAKS_DOWN = os.path.join(SOURCE, "tests", "data", "bad", "failed_run_001.xml")  # has one row, then fails
AWAY = ": move it away, or choose another output\n"


def children_of(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return [int(word) for word in file.read().split()]


class Files(InAFolder):
    def setUp(self):
        super().setUp()
        self.write_recipe("a.xml")
        self.write_recipe("b.xml", source="algan_tension")
        shutil.copy(BREAKS_DOWN, self.path("bad.xml"))

    def names(self, folder="."):
        """The files of the folder, without recipes."""
        return sorted(name for name in os.listdir(self.path(folder)) if not name.endswith(".xml"))

    def contents(self):
        return {name: self.read(name) for name in self.names()}

    def status_of(self, name):
        return json.loads(self.read(name + ".status.json"))

    def write_status(self, name, **changes):
        """Changes keys of a status file."""
        self.write(name + ".status.json", json.dumps({**self.status_of(name), **changes}))

    def expect_run(self, *arguments, status=0, error="", **options):
        run = self.run_tool("run", *arguments, **options)
        self.assertEqual((run.returncode, run.stderr), (status, error and f"vorlen: {error}"))
        return run

    def expect_rejected(self, error, *arguments):
        before = self.contents()
        self.expect_run(*arguments, status=1, error=error)
        self.assertEqual(self.contents(), before)

    def start(self, *arguments, tool=VORLEN, closed=(), **environment):
        run = subprocess.Popen([tool, "run", *arguments], cwd=self.folder, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, encoding="utf-8", env={**os.environ, **environment},
                               preexec_fn=lambda: [os.close(number) for number in closed])
        self.addCleanup(run.communicate)
        self.addCleanup(run.kill)
        return run

    def start_hanging(self, *arguments):
        """A run that has written its rows to the temporary file and does not end."""
        return self.start(*arguments, tool=SCRIPTED_VORLEN, TEST_ROWS=self.path("a.xml"), TEST_HANG="1")

    def wait_until(self, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)

    def wait_for(self, name):
        """Waits until the file has content."""
        self.wait_until(lambda: os.path.exists(self.path(name)) and self.read(name))


class Owners(Files):
    """Status files and rows of failed runs are replaced only by runs of the same result."""

    def test_the_rows_of_another_failed_run_stay(self):
        self.assertEqual(self.run_tool("run", "bad.xml", "-o", "r.result.txt").returncode, 1)
        self.assertEqual(self.names(), ["r.failed.txt", "r.status.json"])
        for output in ("r.txt", "r", "r.result.txt"):
            self.expect_rejected("r.failed.txt has the rows of bad.xml" + AWAY, "a.xml", "-o", output)
        # The same recipe replaces them, also under another name, and so does a recipe after they have been removed.
        os.rename(self.path("a.xml"), self.path("bad.xml"))
        self.expect_run("bad.xml", "-o", "r.result.txt")
        self.assertEqual(self.names(), ["r.result.txt", "r.status.json"])

    def test_the_rows_of_the_same_recipe_under_another_name_are_replaced(self):
        self.assertEqual(self.run_tool("run", "bad.xml", "-o", "r.txt").returncode, 1)
        os.rename(self.path("bad.xml"), self.path("renamed.xml"))
        self.assertEqual(self.run_tool("run", "renamed.xml", "-o", "r.txt").returncode, 1)
        self.assertEqual(self.status_of("r")["recipe"], "renamed.xml")

    def test_any_recipe_can_follow_when_the_rows_have_been_removed(self):
        self.assertEqual(self.run_tool("run", "bad.xml", "-o", "r.txt").returncode, 1)
        os.remove(self.path("r.failed.txt"))
        self.expect_run("a.xml", "-o", "r.txt")

    def test_a_good_result_with_the_name_of_failed_rows_stays(self):
        self.expect_run("a.xml", "-o", "r.txt")
        os.rename(self.path("r.txt"), self.path("x.failed.txt"))
        self.expect_rejected("x.failed.txt is not from a known run of x.txt" + AWAY, "b.xml", "-o", "x.txt")

    def test_the_status_file_of_another_result_stays(self):
        self.expect_run("a.xml", "-o", "r.txt")
        for output in ("r.result.txt", "r"):
            self.expect_rejected(f"r.status.json is the status file of r.txt, not of {output}" + AWAY,
                                 "b.xml", "-o", output, "--force")
        self.expect_run("b.xml", "-o", "r.txt")

    def test_a_copy_of_a_result_has_no_right_to_its_status_file(self):
        self.expect_run("a.xml", "-o", "r.result.txt")
        shutil.copy(self.path("r.result.txt"), self.path("r.txt"))
        self.expect_rejected("r.status.json is the status file of r.result.txt, not of r.txt" + AWAY,
                             "b.xml", "-o", "r.txt")

    def test_rows_that_the_status_file_does_not_name_stay(self):
        self.expect_run("a.xml", "-o", "r.txt")
        self.write("r.failed.txt", "mine")
        self.expect_rejected("r.failed.txt is not from a known run of r.txt" + AWAY, "b.xml", "-o", "r.txt")

    def test_every_file_in_the_way_is_reported(self):
        self.write("a.failed.txt", "mine")
        self.write("b.status.json", "mine")
        self.expect_rejected("a.failed.txt is not from a known run of a.result.txt" + AWAY +
                             "vorlen: b.status.json is not a status file" + AWAY, "a.xml", "b.xml")

    def test_a_status_file_may_name_the_result_in_other_ways(self):
        self.expect_run("a.xml", "-o", "r.txt")
        os.symlink("r.txt", self.path("link.txt"))
        for named in ("./r.txt", self.path("r.txt"), "link.txt"):
            self.write_status("r", result_file=named, result_sha256=None)
            self.expect_run("a.xml", "-o", "r.txt", "--force")
            self.assertEqual(self.status_of("r")["result_file"], "r.txt")

    def test_a_result_renamed_with_its_status_file_is_known_by_its_content(self):
        self.expect_run("a.xml", "-o", "r.txt")
        for ending in (".txt", ".status.json"):
            os.rename(self.path("r" + ending), self.path("new" + ending))
        self.assertIn("Up to date", self.expect_run("a.xml", "-o", "new.txt").stdout)
        self.expect_run("b.xml", "-o", "new.txt")
        self.write_status("new", result_file="gone.txt")
        self.write("new.txt", "changed")
        self.expect_rejected("new.status.json is the status file of gone.txt, not of new.txt" + AWAY,
                             "a.xml", "-o", "new.txt")

    def test_a_status_file_without_hashes_or_recipe_is_read(self):
        self.expect_run("a.xml", "-o", "r.txt")
        self.write_status("r", recipe=None, recipe_sha256=None, result_sha256=None)
        self.expect_run("a.xml", "-o", "r.txt")
        self.write("r.failed.txt", "rows")
        self.write_status("r", recipe=None, recipe_sha256=None, result_file="r.failed.txt", result_sha256=None)
        self.expect_rejected("r.failed.txt has the rows of another recipe" + AWAY, "a.xml", "-o", "r.txt")
        self.write_status("r", recipe_sha256=hashlib.sha256(self.read("a.xml")).hexdigest())
        self.expect_run("a.xml", "-o", "r.txt")


class Paths(Files):
    """Paths in status files."""

    def paths(self, name):
        status = self.status_of(name)
        return status["recipe"], status["result_file"]

    def test_paths_are_relative_to_the_folder_of_the_status_file_or_absolute(self):
        os.makedirs(self.path("out/deep"))
        shutil.copy(self.path("a.xml"), self.path("out/deep/c.xml"))
        real = os.path.realpath(self.folder)
        for recipe, output, expected in (
                ("a.xml", "r.txt", "a.xml"), ("./out/../a.xml", "r.txt", "a.xml"),
                (self.path("a.xml"), "r.txt", "a.xml"),
                ("a.xml", "out/r.txt", f"{real}/a.xml"), ("out/deep/c.xml", "out/r.txt", "deep/c.xml"),
                ("out/deep/c.xml", "r.txt", "out/deep/c.xml")):
            with self.subTest(recipe=recipe, output=output):
                self.expect_run(recipe, "-o", output, "--force")
                self.assertEqual(self.paths(output[:-4]), (expected, "r.txt"))
        self.expect_run("../../a.xml", "-o", "../r.txt", "--force", cwd=self.path("out/deep"))
        self.assertEqual(self.paths("out/r"), (f"{real}/a.xml", "r.txt"))

    def test_links_in_paths(self):
        os.makedirs(self.path("out/store"))
        os.symlink("a.xml", self.path("link.xml"))
        os.symlink("out", self.path("way"))
        os.symlink("store/real.txt", self.path("out/r.txt"))
        self.expect_run("link.xml", "-o", "r.txt")
        self.assertEqual(self.paths("r"), ("link.xml", "r.txt"))
        # The status file is beside the link, and so is its name of the result.
        self.expect_run("a.xml", "-o", "way/r.txt")
        self.assertEqual(self.paths("out/r"), (os.path.realpath(self.path("a.xml")), "r.txt"))
        self.assertEqual(self.names("out/store"), ["real.txt"])

    def test_failed_rows_and_moved_folders(self):
        os.mkdir(self.path("one"))
        os.rename(self.path("bad.xml"), self.path("one/bad.xml"))
        self.assertEqual(self.run_tool("run", "one/bad.xml", "-o", "one/r.txt").returncode, 1)
        self.assertEqual(self.paths("one/r"), ("bad.xml", "r.failed.txt"))
        os.rename(self.path("one"), self.path("two"))
        self.write_recipe("two/bad.xml")
        self.expect_run("two/bad.xml", "-o", "two/r.txt")
        self.assertEqual(self.names("two"), ["r.status.json", "r.txt"])

    def test_names_that_are_not_utf_8(self):
        os.rename(self.path("a.xml"), self.path("\udcff.xml"))
        for _ in range(2):
            run = self.run_tool("run", b"\xff.xml", "-o", b"\xfe.txt", "--force", encoding=None)
            self.assertEqual((run.returncode, run.stderr), (0, b""))
            self.assertEqual(self.paths("\udcfe"), ("\ufffd.xml", "\ufffd.txt"))


class TwoRuns(Files):
    def test_a_second_run_with_the_same_output_ends_at_once(self):
        os.symlink("r.txt", self.path("link.txt"))
        self.write("r.txt", "of yesterday")
        first = self.start_hanging("a.xml", "-o", "r.txt")
        self.wait_for(".r.txt.part")
        for output, error in (("r.txt", "another run is writing r.txt\n"),
                              ("./r.txt", "another run is writing ./r.txt\n"),
                              ("link.txt", "another run is writing link.txt\n"),
                              ("r.result.txt", "another run is writing r.txt, which has the same r.status.json\n"),
                              ("r", "another run is writing r.txt, which has the same r.status.json\n")):
            self.expect_rejected(error, "b.xml", "-o", output)
        # Other results are not affected.
        self.expect_run("b.xml", "-o", "r.other.txt")
        self.assertIsNone(first.poll())
        first.terminate()
        self.assertEqual(first.wait(60), 128 + signal.SIGTERM)
        self.assertEqual(self.names(), ["link.txt", "r.other.status.json", "r.other.txt", "r.txt"])
        self.assertEqual(self.read("r.txt"), b"of yesterday")

    def test_in_a_batch_only_the_recipe_with_a_busy_output_fails(self):
        first = self.start_hanging("a.xml")
        self.wait_for(".a.result.txt.part")
        run = self.run_tool("run", "-j", "1", "--keep-going", "a.xml", "b.xml")
        self.assertEqual(run.returncode, 1)
        self.assertIn("vorlen: a.xml: another run is writing a.result.txt\n", run.stderr)
        self.assertRegex(run.stdout, r"a\.xml +failed .*\n +b\.xml +done ")
        self.assertEqual(self.names(), [".a.result.txt.part", "b.result.txt", "b.status.json"])
        self.assertIsNone(first.poll())

    def test_the_file_that_a_killed_run_leaves_is_used_again(self):
        first = self.start_hanging("a.xml", "-o", "r.txt")
        self.wait_for(".r.txt.part")
        first.kill()
        first.wait(60)
        self.wait_until(lambda: self.run_tool("run", "a.xml", "-o", "r.txt").returncode == 0)  # its worker ends, too
        self.assertEqual(self.names(), ["r.status.json", "r.txt"])
        self.assertGreater(len(Result(self.path("r.txt")).rows), 100)

    def test_the_rows_that_a_killed_run_leaves_are_not_those_of_the_next(self):
        self.expect_run("a.xml", "-o", "r.txt")
        os.rename(self.path("r.txt"), self.path(".r.txt.part"))
        self.write("empty.xml", "")
        self.assertEqual(self.run_tool("run", "empty.xml", "-o", "r.txt").returncode, 1)
        self.assertEqual(self.names(), ["r.status.json"])

    def test_each_signal_that_ends_a_run_removes_its_file(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            first = self.start_hanging("a.xml", "-o", "r.txt")
            self.wait_for(".r.txt.part")
            first.send_signal(number)
            self.assertEqual(first.wait(60), 128 + number)
            self.assertEqual(self.names(), [])

    def test_a_run_outlives_the_reader_of_its_messages(self):
        """A pipe without reader ends a program that writes to it, unless it takes care."""
        read, write = os.pipe()
        os.close(read)
        run = subprocess.run([VORLEN, "run", "a.xml", "bad.xml", "b.xml", "--keep-going", "-j", "1"], cwd=self.folder,
                             stdout=subprocess.PIPE, stderr=write, check=False)
        os.close(write)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(self.names(), ["a.result.txt", "a.status.json", "b.result.txt", "b.status.json",
                                        "bad.failed.txt", "bad.status.json"])

    def test_very_long_names_share_their_temporary_file(self):
        """In one batch such runs wait for each other; another call is rejected."""
        names = ["a" * 220, "b" * 220]
        for name in names:
            self.write_recipe(name + ".xml")
        run = self.run_tool("run", "-j", "2", *(name + ".xml" for name in names))
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(self.names(), sorted(name + end for name in names for end in (".result.txt", ".status.json")))
        self.start_hanging(names[0] + ".xml", "--force")
        self.wait_for(".vorlen.part")
        self.expect_rejected(f"another run is writing {names[1]}.result.txt\n", names[1] + ".xml", "--force")

    def test_names_of_up_to_200_bytes_have_a_temporary_file_of_their_own(self):
        self.start_hanging("a.xml", "-o", "x" * 200)
        self.wait_for("." + "x" * 200 + ".part")
        self.start_hanging("a.xml", "-o", "y" * 201)
        self.wait_for(".vorlen.part")

    def test_a_worker_of_another_recipe_does_not_keep_the_lock(self):
        """Workers inherit the open files of the others."""
        run = self.start_hanging("-j", "2", "a.xml", "b.xml")
        self.wait_for(".b.result.txt.part")
        os.kill(children_of(run.pid)[0], signal.SIGKILL)
        self.wait_for("a.status.json")
        self.expect_run("a.xml")


class Writing(Files):
    def access(self, name):
        about = os.stat(self.path(name))
        return about.st_mode, about.st_uid, about.st_gid

    def test_permissions_and_owner_of_a_replaced_file_stay(self):
        for name, arguments in (("r.txt", ["run", "a.xml"]), ("new.xml", ["new", "algan_tension", "--force"])):
            self.write(name, "old")
            os.chmod(self.path(name), 0o604)
            if os.geteuid() == 0:
                os.chown(self.path(name), 65533, 65532)
            before = self.access(name)
            self.assertEqual(self.run_tool(*arguments, "-o", name).returncode, 0)
            self.assertNotEqual(self.read(name), b"old")
            self.assertEqual(self.access(name), before)

    def test_new_files_have_the_permissions_of_the_caller(self):
        for mask in (0, 0o002, 0o027, 0o077):
            self.assertEqual(self.run_tool("run", "a.xml", "-o", "r.txt", umask=mask).returncode, 0)
            self.assertEqual(self.run_tool("run", "bad.xml", "-o", "f.txt", umask=mask).returncode, 1)
            self.assertEqual(self.run_tool("new", "algan_tension", "-o", "new.xml", umask=mask).returncode, 0)
            for name in ("r.txt", "r.status.json", "f.failed.txt", "new.xml"):
                self.assertEqual(stat.S_IMODE(os.stat(self.path(name)).st_mode), 0o666 & ~mask, name)
                os.remove(self.path(name))
            os.remove(self.path("f.status.json"))

    def test_links_stay_and_their_targets_are_written(self):
        os.makedirs(self.path("far/away"))
        os.symlink("far/first.txt", self.path("r.txt"))
        os.symlink("away/real.txt", self.path("far/first.txt"))  # does not exist yet
        os.symlink("far/away/new.xml", self.path("link.xml"))
        self.expect_run("a.xml", "-o", "r.txt")
        self.assertEqual(self.run_tool("new", "algan_tension", "--force", "-o", "link.xml").returncode, 0)
        for name in ("r.txt", "far/first.txt", "link.xml"):
            self.assertTrue(os.path.islink(self.path(name)), name)
        self.assertEqual(self.names("far/away"), ["real.txt"])
        self.assertEqual(self.names(), ["far", "r.status.json", "r.txt"])
        self.assertGreater(len(Result(self.path("far/away/real.txt")).rows), 100)

    def test_a_link_to_another_file_system(self):
        """The rows of a failed run can't be renamed from the result's folder to that of NAME.failed.txt."""
        other = tempfile.TemporaryDirectory(dir="/dev/shm")
        self.addCleanup(other.cleanup)
        self.assertNotEqual(os.stat(other.name).st_dev, os.stat(self.folder).st_dev, "no second file system")
        os.symlink(os.path.join(other.name, "real.txt"), self.path("r.txt"))
        self.assertEqual(self.run_tool("run", "bad.xml", "-o", "r.txt").returncode, 1)
        self.assertEqual((self.names(), os.listdir(other.name)), (["r.failed.txt", "r.status.json", "r.txt"], []))
        self.assertGreater(len(Result(self.path("r.failed.txt")).rows), 0)

    def test_rows_that_can_not_be_put_in_place_are_set_aside(self):
        self.write_recipe("long.xml", '<n_periods val="3"/>', '<n_periods val="100"/>', source="ingan_gan_mqw")
        run = self.start("long.xml", "-o", "r.txt")  # takes about a second
        # All checks are done.
        self.wait_until(lambda: children_of(run.pid) and any(name.endswith(".part") for name in os.listdir(self.folder)))
        os.mkdir(self.path("r.txt"))
        _, error = run.communicate(timeout=60)
        self.assertEqual(run.returncode, 1)
        self.assertRegex(error, r"^vorlen: r\.txt is not a regular file; the rows are in \.r\.txt\.\w{6}\.part\n$")
        kept = error.split("the rows are in ")[1].rstrip()
        self.assertEqual(self.names(), sorted([kept, "r.status.json", "r.txt"]))
        self.assertEqual((self.status_of("r")["result"], self.status_of("r")["result_sha256"]), (1, None))
        # The next run leaves them alone.
        os.rmdir(self.path("r.txt"))
        self.expect_run("long.xml", "-o", "r.txt")
        self.assertEqual(self.read(kept), self.read("r.txt"))

    def test_a_status_file_that_can_not_be_written(self):
        self.expect_run("a.xml", "-o", "r.txt")
        # A line of a result has up to 1 KiB; only a status file with a longer text does not fit.
        text = "x" * 3000
        run = self.run_tool("run", "b.xml", "-o", "r.txt", tool=SCRIPTED_VORLEN,
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000)),
                            env={**os.environ, "TEST_TEXT": text})
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stderr.endswith("x\nr.status.json can't be written: File too large\n"), run.stderr)
        self.assertEqual(self.names(), ["r.status.json", "r.txt"])
        self.assertEqual(self.status_of("r")["result"], 0)

    def test_messages_do_not_get_into_a_result_when_standard_error_is_closed(self):
        """The next file that is opened would get the number of standard error."""
        run = self.start("-j", "2", "--keep-going", "a.xml", "b.xml", tool=SCRIPTED_VORLEN, closed=[2],
                         TEST_ROWS=self.path("a.xml"), TEST_HANG="1")
        self.wait_for(".a.result.txt.part")
        self.wait_for(".b.result.txt.part")
        os.kill(children_of(run.pid)[1], signal.SIGKILL)
        self.wait_for("b.status.json")
        time.sleep(0.3)  # the message follows the status file
        self.assertEqual(self.read(".a.result.txt.part"), self.read("a.xml"))

    def test_signals_wait_until_a_file_is_in_place(self):
        """fsync(), which comes before the renaming, raises a signal here."""
        self.write("shim.c", "#include <signal.h>\nint fsync(int file) { (void)file; raise(SIGTERM); return 0; }\n")
        shim = self.path("shim.so")
        subprocess.run([os.environ["VORLEN_CC"], "-shared", "-fPIC", "-o", shim, self.path("shim.c")], check=True)
        environment = {**os.environ, "LD_PRELOAD": shim, "ASAN_OPTIONS": "verify_asan_link_order=0"}
        run = self.run_tool("new", "algan_tension", "-o", "new.xml", env=environment)
        self.assertEqual(run.returncode, -signal.SIGTERM)
        self.assertEqual(self.names(), ["shim.c", "shim.so"])
        with open(example("algan_tension"), "rb") as file:
            self.assertEqual(self.read("new.xml"), file.read())


if __name__ == "__main__":
    unittest.main()
