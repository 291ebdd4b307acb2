"""The tool for Windows, run under Wine: paths, names, workers, locks, Ctrl-C, and the same layers as on Linux.

VORLEN is a script that starts it; its processes are those of Linux, so they can be looked for and killed here.
"""
import base64
import fcntl
import glob
import json
import os
import pty
import re
import shutil
import signal
import subprocess
import tempfile
import termios
import time
import unittest

from support import EXAMPLES, SOURCE, VORLEN, InAFolder, changed_example, example

NATIVE = os.environ["VORLEN_NATIVE"]  # the tool of this system
PYTHON = os.environ["VORLEN_WINDOWS_PYTHON"]
PREFIX = os.environ.get("WINEPREFIX", os.path.join(SOURCE, "build", "wine"))
NAME = "ä 氮 😀"
BREAKS_DOWN = os.path.join(SOURCE, "tests", "data", "bad", "failed_run_001.xml")


def windows_path(path):
    """A path of this system as Wine shows it to programs."""
    return "Z:" + os.path.realpath(path).replace("/", "\\")


def processes_with(word):
    """The processes with a command line that contains the word."""
    found = []
    for folder in glob.glob("/proc/[0-9]*"):
        try:
            with open(os.path.join(folder, "cmdline"), "rb") as file:
                if word.encode() in file.read():
                    found.append(int(os.path.basename(folder)))
        except OSError:
            pass  # it has ended
    return found


def processor_time(process):
    """In seconds; 0 if the process has ended."""
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8") as file:
            user, system = file.read().rpartition(")")[2].split()[11:13]
    except OSError:
        return 0.0
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")


class OnWindows(InAFolder):
    def status_of(self, name):
        return json.loads(self.read(name + ".status.json"))

    def names(self):
        return sorted(os.listdir(self.folder))

    def expect_failure(self, text, *arguments):
        run = self.run_tool(*arguments)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (1, "", f"vorlen: {text}\n"))

    def wait_until(self, what, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.05)


class Wine(OnWindows):
    def test_addresses_are_not_random(self):
        """With random ones, one of 3000 processes ends before it has started."""
        if subprocess.run(["setarch", "-R", "true"], check=False).returncode != 0:
            self.skipTest("not allowed here")
        run = subprocess.Popen([os.path.join(SOURCE, "scripts", "wine.sh"), "cmd", "/c", "pause"],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        run.stdout.read(1)  # it has started
        with open(f"/proc/{run.pid}/personality", encoding="utf-8") as file:
            personality = int(file.read(), 16)
        run.communicate(b"x")
        self.assertTrue(personality & 0x0040000)  # ADDR_NO_RANDOMIZE


class Results(OnWindows):
    def setUp(self):
        super().setUp()
        if not os.path.exists(NATIVE):
            self.skipTest(f"{NATIVE} is not built")

    def test_the_layers_of_all_examples_are_those_of_the_tool_of_this_system(self):
        recipes = [example(name) for name in EXAMPLES]
        for tool, folder in ((VORLEN, "windows"), (NATIVE, "native")):
            run = self.run_tool("run", "-j", "2", "--output-dir", folder, *recipes, tool=tool)
            self.assertEqual(run.returncode, 0, run.stderr)
        for name in EXAMPLES:
            with self.subTest(name):
                shown = [self.run_tool("show", f"{folder}/{name}.result.txt", tool=NATIVE).stdout.replace(folder, "")
                         for folder in ("windows", "native")]
                self.assertGreater(shown[0].count("\n"), 3)
                self.assertEqual(*shown)

    def test_commands_print_the_same(self):
        self.write_recipe("a.xml")
        self.write_recipe("b.xml", '<material val="AlGaN"/>', '<material val="GaAs"/>')
        self.expect_good("run", "a.xml")
        result = "a.result.txt"
        for arguments in (["--version"], ["--help"], ["run", "--help"], ["new"], ["check", "a.xml", "b.xml"],
                          ["timeline", "a.xml"], ["show", result], ["show", "--csv", result], ["diff", result, result],
                          ["explain", "Out of memory"], ["rum"], ["run", "--jobs", "0", "a.xml"]):
            with self.subTest(arguments):
                shown = [self.run_tool(*arguments, tool=tool, env={**os.environ, "LC_ALL": "C.UTF-8"})
                         for tool in (VORLEN, NATIVE)]
                self.assertEqual(*((run.returncode, run.stdout, run.stderr) for run in shown))


class Paths(OnWindows):
    def test_names_with_any_characters(self):
        self.write(NAME + ".xml", changed_example("algan_gan_hemt", ("AlGaN barrier", NAME)))
        os.makedirs(self.path("sub folder"))
        text = self.expect_good("run", NAME + ".xml", "-o", "sub folder\\täg.txt")
        self.assertRegex(text, rf"\n     5  {NAME} +40 +\d+\.\d\d\d\n")
        # The columns are those of a terminal, on which the second and the third word take two each.
        name, gap, right_aligned = len("Al0.4Ga0.6N transition") - 7, 2, len("Duration, s") - len("40")
        self.assertIn(f"\n     5  {NAME}" + " " * (name + gap + right_aligned) + "40", text)
        self.assertTrue(text.endswith("rows in sub folder\\täg.txt\n"), text)
        self.assertEqual(sorted(os.listdir(self.path("sub folder"))), ["täg.status.json", "täg.txt"])
        self.assertIn(f'"{NAME}" '.encode(), self.read("sub folder/täg.txt"))
        status = self.status_of("sub folder/täg")
        self.assertEqual((status["recipe"], status["result_file"]),
                         (windows_path(self.path(NAME + ".xml")).replace("\\", "/"), "täg.txt"))
        # The same file by other names.
        absolute = windows_path(self.path("sub folder/täg.txt"))
        for output in (absolute, absolute.lower(), ".\\sub folder/../sub folder\\täg.txt"):
            self.assertIn("\nUp to date, ", self.expect_good("run", NAME + ".xml", "-o", output))

    def test_paths_of_any_length(self):
        self.write_recipe("a.xml")
        folder = "\\".join(["d" * 100] * 3)
        self.expect_good("run", "a.xml", "--output-dir", folder)
        (found,) = glob.glob(self.path("d*/d*/d*"))
        self.assertEqual(sorted(os.listdir(found)), ["a.result.txt", "a.status.json"])
        recipe = folder + "\\r.xml"
        run = self.run_tool("new", "algan_tension", "-o", recipe)
        self.assertEqual((run.returncode, run.stderr), (0, f"vorlen: wrote {recipe}\n"))
        self.assertEqual(self.expect_good("check", folder + "\\?.xml"), f"{recipe}: no problems\n")
        self.expect_good("run", recipe)
        self.assertIn("1  ", self.expect_good("show", folder + "\\a.result.txt"))

    def test_patterns_are_replaced_by_the_files_that_they_fit(self):
        os.mkdir(self.path("in"))
        for name in ("b.xml", "a.xml", "ab.xml", "c.xml~", ".d.xml"):
            self.write_recipe(f"in/{name}")
        for pattern, fitting in (("?", ["a", "b"]), ("*", ["a", "ab", "b"])):
            self.assertEqual(self.expect_good("check", f"in\\{pattern}.xml"),
                             "".join(f"in\\{name}.xml: no problems\n" for name in fitting))
        run = self.run_tool("check", "in\\c*.xml")
        self.assertEqual(run.returncode, 1)
        self.assertIn("c*.xml", run.stdout + run.stderr)

    def test_files_that_can_not_be_written(self):
        self.write_recipe("a.xml")
        self.write("kept.txt", "old")
        os.chmod(self.path("kept.txt"), 0o444)
        for name in ("NUL", "nul.txt", "con.result.txt", "COM1", "sub\\LPT9.txt"):
            self.expect_failure(f"{name} is not a regular file", "run", "a.xml", "-o", name)
        for name, reason in (("kept.txt", "A"), ("a?b.txt", "I"), ("b.txt:c", "I")):
            run = self.run_tool("run", "a.xml", "-o", name)
            self.assertEqual((run.returncode, run.stdout), (1, ""))
            self.assertRegex(run.stderr, rf"^vorlen: {re.escape(name)} can't be written: {reason}[\w ,]+\n$")
        self.expect_failure("none\\r.txt can't be written: folder not found: none", "run", "a.xml", "-o", "none\\r.txt")
        self.assertEqual((self.names(), self.read("kept.txt")), (["a.xml", "kept.txt"], b"old"))

    def test_the_live_page_is_found_beside_the_tool(self):
        self.write_recipe("a.xml")
        self.write("live.html", '<script id="recipe" type="application/json">null</script>')
        shutil.copy(os.environ["VORLEN_EXE"], self.path("vorlen.exe"))
        run = self.run_tool(self.path("vorlen.exe"), "live", "a.xml", tool=os.path.join(SOURCE, "scripts", "wine.sh"))
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "a.live.html\n", ""))
        recipe = {"name": "a.xml", "base64": base64.b64encode(self.read("a.xml")).decode()}
        self.assertIn(json.dumps(recipe, separators=(",", ":")).encode(), self.read("a.live.html"))

    def test_two_recipes_with_the_same_result(self):
        """Names of files are the same in upper and lower case."""
        os.mkdir(self.path("other"))
        self.write_recipe("a.xml")
        self.write_recipe("other/A.xml")
        run = self.run_tool("run", "a.xml", "other\\A.xml")
        self.assertEqual((run.returncode, run.stdout, run.stderr),
                         (2, "", "vorlen: a.xml and other\\A.xml would both write A.result.txt\n"))

    def test_lines_end_as_on_linux_and_those_of_recipes_in_any_way(self):
        self.expect_good("run", example("algan_gan_hemt"), "-o", "a.txt")
        with open(example("algan_gan_hemt"), "rb") as file:
            text = file.read()
        with open(self.path("crlf.xml"), "wb") as file:
            file.write(text.replace(b"\n", b"\r\n"))
        self.expect_good("run", "crlf.xml", "-o", "b.txt")
        self.assertEqual(self.read("a.txt"), self.read("b.txt"))
        self.assertNotIn(b"\r", self.read("a.txt") + self.read("a.status.json"))


class Batches(OnWindows):
    def states(self, text):
        return dict(re.findall(r"(?m)^  (\S+) +(done|failed|up to date|not run) ", text))

    def write_long_recipe(self):
        """Runs for minutes. Its name is that of no other file, so that its worker can be found."""
        with tempfile.NamedTemporaryFile(prefix="long", suffix=".xml", dir=self.folder, delete=False) as file:
            name = os.path.basename(file.name)
        self.write_recipe(name, '<n_periods val="3"/>', '<n_periods val="20000"/>', source="ingan_gan_mqw")
        return name

    def workers_of(self, recipe):
        part = self.path(f".{recipe[:-4]}.result.txt.part")
        return processes_with(f"simulate\0{recipe}") if os.path.exists(part) else []

    def start(self, *arguments, recipe, **options):
        """Starts a batch, and waits until the worker of the recipe simulates, which takes longer than it starts."""
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "encoding": "utf-8", **options}
        run = subprocess.Popen([VORLEN, "run", *arguments], cwd=self.folder, **options)
        self.addCleanup(run.communicate)
        self.addCleanup(run.kill)
        self.wait_until("no worker", lambda: any(processor_time(one) > 0.5 for one in self.workers_of(recipe)))
        return run

    def test_states_and_options_of_a_batch(self):
        self.write_recipe("a.xml")
        self.write_recipe("b.xml", '<material val="AlGaN"/>', '<material val="GaAs"/>')
        shutil.copy(BREAKS_DOWN, self.path("c.xml"))
        self.write_recipe("d.xml", source="algan_tension")
        run = self.run_tool("run", "-j", "4", "--keep-going", "*.xml")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(self.states(run.stdout), {"a.xml": "done", "b.xml": "failed", "c.xml": "failed",
                                                   "d.xml": "done"})
        self.assertIn('vorlen: b.xml: Material "GaAs" is not recognized\n', run.stderr)
        self.assertIn("\nThe rows up to there are in c.failed.txt\n", run.stderr)
        self.assertEqual(self.names(), sorted(
            ["a.xml", "b.xml", "c.xml", "d.xml", "a.result.txt", "d.result.txt", "c.failed.txt"] +
            [f"{name}.status.json" for name in "abcd"]))
        for options, state, scheme in (([], "up to date", "staged"), (["--force"], "done", "staged"),
                                       (["--scheme", "continuous"], "done", "continuous"),
                                       (["--scheme", "continuous"], "up to date", "continuous")):
            run = self.run_tool("run", *options, "a.xml", "d.xml")
            self.assertEqual((run.returncode, self.states(run.stdout)), (0, {"a.xml": state, "d.xml": state}))
            self.assertEqual(self.status_of("a")["scheme"], scheme)
        # The copy of the recipe with another scheme.
        self.assertEqual(glob.glob(os.path.join(PREFIX, "drive_c/users/*/*emp/vorlen-*")), [])

    def test_a_killed_worker_is_one_failed_recipe(self):
        long = self.write_long_recipe()
        self.write_recipe("a.xml")
        run = self.start("-j", "1", "--keep-going", long, "a.xml", recipe=long)
        os.kill(self.workers_of(long)[0], signal.SIGKILL)
        text, errors = run.communicate(timeout=60)
        self.assertEqual(run.returncode, 1)
        self.assertRegex(errors, rf"{long}: The simulation's process has crashed \(ex")
        self.assertEqual(self.states(text), {long: "failed", "a.xml": "done"})
        self.assertIn("has crashed", self.status_of(long[:-4])["text"])
        self.assertEqual([name for name in self.names() if name.endswith(".part")], [])

    def test_a_lock_and_a_worker_end_with_the_tool(self):
        long = self.write_long_recipe()
        self.write_recipe("a.xml")
        result = long[:-4] + ".result.txt"
        run = self.start(long, recipe=long)
        self.expect_failure(f"another run is writing {result}", "run", "a.xml", "-o", result)
        self.expect_failure(f"another run is writing {result}, which has the same {long[:-4]}.status.json",
                            "run", "a.xml", "-o", long[:-4] + ".txt")
        run.kill()
        run.communicate(timeout=30)
        self.wait_until("the worker still runs", lambda: not self.workers_of(long))
        self.expect_good("run", "a.xml", "-o", result)
        self.assertEqual([name for name in self.names() if name.endswith(".part")], [])

    def test_ctrl_c_leaves_only_finished_results(self):
        long = self.write_long_recipe()
        self.write_recipe("a.xml")
        keyboard, terminal = pty.openpty()
        self.addCleanup(os.close, keyboard)
        run = self.start("-j", "1", "a.xml", long, recipe=long, stdin=terminal, start_new_session=True,
                         preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(terminal)
        os.write(keyboard, b"\x03")
        text, errors = run.communicate(timeout=60)
        self.assertEqual(run.returncode, 128 + signal.SIGINT)
        self.assertTrue(errors.endswith("vorlen: interrupted\n"), errors)
        self.assertEqual(self.states(text), {"a.xml": "done", long: "not run"})
        self.assertEqual(self.workers_of(long), [])
        self.assertEqual(self.names(), sorted(["a.result.txt", "a.status.json", "a.xml", long]))


class PythonCommands(OnWindows):
    def test_without_python_the_message_says_what_is_needed(self):
        for command, modules in (("sweep", "numpy, pandas"), ("report", "numpy, pandas, jinja2")):
            self.expect_failure(
                f"this command needs Python 3 with {modules} and the package vorlen (py -m pip install "
                f"{modules.replace(',', '')}). Tried without success: python, py -3.\n"
                "Set the environment variable VORLEN_PYTHON to another interpreter", command, "x")

    def test_an_interpreter_gets_the_arguments_and_the_places(self):
        shutil.copy(PYTHON, self.path("python.exe"))
        words = ["a b", 'say "no"', "back\\", 'x\\"', "", "%PATH%", NAME]
        others = {name: value for name, value in os.environ.items() if not name.startswith("VORLEN")}
        for changes in ({"WINEPATH": windows_path(self.folder)},
                        {"VORLEN_PYTHON": windows_path(self.path("python.exe"))}):
            run = self.run_tool("sweep", *words, env={**others, **changes})
            self.assertEqual((run.returncode, run.stderr), (7, ""))
            lines = run.stdout.split("\n")
            self.assertEqual(lines[:3 + len(words)], ["-m", "vorlen", "sweep", *words])
            self.assertRegex(lines[-4], r"^Z:\\.*\\tools\\vorlen\.exe$")
            self.assertRegex(lines[-3], r"^Z:\\.*\\VorlenSolver\.dll$")
            self.assertEqual(lines[-2], "1")  # PYTHONUTF8


if __name__ == "__main__":
    unittest.main()
