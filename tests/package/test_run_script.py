"""run.sh and the scripts it calls; what it has built can be installed as the README says."""
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

SOURCE = os.environ["VORLEN_SOURCE"]
SCRIPTS = os.path.join(SOURCE, "scripts")
BUILD = os.path.join(SOURCE, "build", "run")
# Programs that the scripts call, besides those that a test replaces.
PROGRAMS = ("basename", "bash", "cat", "cut", "dirname", "env", "find", "mkdir", "mktemp", "rm", "sleep", "tail", "tr")


class Scripts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.realpath(folder.name)
        self.programs = os.path.join(self.folder, "programs")
        os.mkdir(self.programs)

    def write_program(self, name, script):
        """A shell script in the folder of programs."""
        path = os.path.join(self.programs, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/bash\n" + script + "\n")
        os.chmod(path, 0o755)

    def only(self, *names):
        """An environment in which there are only these programs and those of the test."""
        for name in names:
            if not os.path.lexists(os.path.join(self.programs, name)):
                os.symlink(shutil.which(name), os.path.join(self.programs, name))
        return {"PATH": self.programs}

    def run_script(self, *command, **environment):
        return subprocess.run(command, cwd=self.folder, env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                              capture_output=True, encoding="utf-8", timeout=900, check=False)


class Progress(Scripts):
    """with_progress.sh, with a sleep that is a hundred times as fast."""

    SCRIPT = os.path.join(SCRIPTS, "with_progress.sh")

    def setUp(self):
        super().setUp()
        self.write_program("sleep", f'[ "$1" = 10 ] && exec {shutil.which("sleep")} 0.1')
        self.path = {"PATH": self.programs + os.pathsep + os.environ["PATH"]}

    def with_progress(self, script):
        return self.run_script(self.SCRIPT, "log", "bash", "-c", script, **self.path)

    def test_a_quick_command_shows_nothing(self):
        run = self.with_progress("echo out; echo error >&2")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        with open(os.path.join(self.folder, "log"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "out\nerror\n")

    def test_of_a_long_one_the_last_line_is_shown_at_intervals(self):
        run = self.with_progress(f"for i in 1 2 3; do echo step $i of 3; {shutil.which('sleep')} 0.8; done; "
                                 f"printf '%0200d' 7; {shutil.which('sleep')} 0.8")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        lines = run.stdout.splitlines()
        for line in lines:
            self.assertRegex(line, r"^ +\d+ s  (step [123] of 3|0{100})$")
        self.assertEqual({line[11:] for line in lines}, {"step 1 of 3", "step 2 of 3", "step 3 of 3", "0" * 100})
        self.assertLessEqual(len(lines), 32)

    def test_of_a_failed_one_all_is_shown(self):
        run = self.with_progress("echo first; echo second >&2; exit 7")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (7, "", "first\nsecond\n"))
        run = self.run_script(self.SCRIPT, "no/log", "touch", "made", **self.path)
        self.assertEqual((run.returncode, os.path.exists(os.path.join(self.folder, "made"))), (1, False))

    def test_nothing_is_left_running(self):
        """Not even after a signal; otherwise a reader of the output would wait."""
        # The sleep of 10 s is the real one here.
        os.remove(os.path.join(self.programs, "sleep"))
        start = time.monotonic()
        self.assertEqual(self.with_progress("true").returncode, 0)
        for number in (signal.SIGINT, signal.SIGKILL):
            with subprocess.Popen([self.SCRIPT, "log", "bash", "-c", "echo begun; exec sleep 3"], cwd=self.folder,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True) as run:
                while not os.path.exists(os.path.join(self.folder, "log")) or not os.path.getsize(
                        os.path.join(self.folder, "log")):
                    time.sleep(0.01)
                os.killpg(run.pid, number)
                run.communicate(timeout=5)
                self.assertNotEqual(run.returncode, 0)
            os.remove(os.path.join(self.folder, "log"))
        self.assertLess(time.monotonic() - start, 8)


class Setup(Scripts):
    """setup.sh on a machine where python3-jinja2 and cmake are missing."""

    def setUp(self):
        super().setUp()
        self.write_program("dpkg-query", 'for name; do :; done; [[ $name =~ ^(python3-jinja2|cmake)$ ]] && exit 1; '
                                         'echo installed')
        self.write_program("apt-get", 'echo "$*" >>apt.log; echo "Setting up $2"; [ ! -e broken ]')
        self.write_program("sleep", "exec /bin/sleep 100")

    def setup_run(self, user, *programs):
        self.write_program("id", f"echo {user}")
        return self.run_script(os.path.join(SCRIPTS, "setup.sh"), "run", **self.only(*PROGRAMS, *programs))

    def calls(self):
        with open(os.path.join(self.folder, "apt.log"), encoding="utf-8") as file:
            return file.read().splitlines()

    INSTALL = ["update", "install -y --no-install-recommends cmake python3-jinja2"]

    def test_root_installs_what_is_missing(self):
        run = self.setup_run(0)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout, "setup: installing 2 packages and what they need: cmake python3-jinja2\n")
        self.assertEqual(self.calls(), self.INSTALL)

    def test_another_user_needs_sudo(self):
        run = self.setup_run(1000)
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "setup: this needs root, and sudo is not installed. As root, run:\n"
                                     "  apt-get update && apt-get " + self.INSTALL[1] + "\n")
        self.write_program("sudo", 'echo "$1" >>sudo.log; exec "$@"')
        run = self.setup_run(1000, "true")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(self.calls(), self.INSTALL)
        with open(os.path.join(self.folder, "sudo.log"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "true\nenv\nenv\n")

    def test_without_the_password_nothing_is_installed(self):
        self.write_program("sudo", "echo 'sudo: 3 incorrect password attempts' >&2; exit 1")
        run = self.setup_run(1000)
        self.assertEqual((run.returncode, run.stderr), (1, "sudo: 3 incorrect password attempts\nsetup: sudo failed\n"))
        self.assertFalse(os.path.exists(os.path.join(self.folder, "apt.log")))

    def test_a_failure_is_shown(self):
        with open(os.path.join(self.folder, "broken"), "w", encoding="utf-8"):
            pass
        run = self.setup_run(0)
        self.assertEqual((run.returncode, run.stderr), (1, "Setting up \nsetup: apt-get update failed\n"))

    def test_with_everything_installed_neither_root_nor_network_is_needed(self):
        self.write_program("dpkg-query", "echo installed")
        run = self.setup_run(1000)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assertFalse(os.path.exists(os.path.join(self.folder, "apt.log")))


class AnyFolder(Scripts):
    """run.sh in a folder whose name needs quoting, with programs that only pretend to build."""

    def setUp(self):
        super().setUp()
        self.root = os.path.join(self.folder, "Müller's $HOME \"growth\" tree")
        self.tools = os.path.join(self.root, "build", "run", "tools")
        os.makedirs(self.tools)
        shutil.copy(os.path.join(SOURCE, "run.sh"), self.root)
        shutil.copytree(SCRIPTS, os.path.join(self.root, "scripts"))
        self.write_program("dpkg-query", "echo installed")
        self.write_program("apt-get", "exit 1")
        self.write_program("cmake", 'echo "cmake $*"; [ ! -e broken ]')
        self.write_program("vorlen", 'echo "this is vorlen, $1"')
        shutil.move(os.path.join(self.programs, "vorlen"), self.tools)

    def test_the_live_page_is_written_if_the_build_has_one(self):
        self.write_program("vorlen", 'echo "this is vorlen, $*"; [ "$1" != live ] || : >"$4"')
        os.replace(os.path.join(self.programs, "vorlen"), os.path.join(self.tools, "vorlen"))
        build = os.path.join(self.root, "build", "run")
        live = os.path.join(build, "ingan_gan_mqw.live.html")
        self.assertNotIn("this is vorlen, live", self.run_sh().stdout)
        os.makedirs(os.path.join(build, "wasi", "live"))
        with open(os.path.join(build, "wasi", "live", "live.html"), "w", encoding="utf-8"):
            pass
        run = self.run_sh()
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        recipe = os.path.join(self.root, "examples", "ingan_gan_mqw.xml")
        self.assertIn(f"this is vorlen, live {recipe} -o {live}\n", run.stdout)
        self.assertTrue(run.stdout.endswith(f"To change the recipe and watch the layers follow, open {live}.\n"))

    def run_sh(self, *arguments):
        return self.run_script(os.path.join(self.root, "run.sh"), *arguments, **self.only(*PROGRAMS))

    def test_the_last_lines_say_how_to_call_the_tool_and_where_the_report_is(self):
        run = self.run_sh()
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        lines = run.stdout.split("== Done\n")[1].splitlines()
        self.assertEqual(lines[0], f"The tool is {self.tools}/vorlen")
        page = os.path.join(self.root, "build", "run", "ingan_gan_mqw.html")
        self.assertEqual(lines[-1], f"To see the report, open {page} in a browser.")
        export, python = [line for line in lines if line.startswith("  export ")]
        self.assertEqual(lines[lines.index(python) - 1],
                         "To import vorlen in /usr/bin/python3, which has the packages that it needs, type:")
        for shell in ("bash", "sh"):
            called = self.run_script(shell, "-c", export + "\nvorlen x; echo \"$PATH\"", PATH="/usr/bin:/bin")
            self.assertEqual(called.stdout, f"this is vorlen, x\n{self.tools}:/usr/bin:/bin\n", called.stderr)
            called = self.run_script(shell, "-c", python + "\n/usr/bin/python3 -c 'import sys; print(sys.path[1])'",
                                     PATH="/usr/bin:/bin")
            self.assertEqual(called.stdout, os.path.join(self.root, "python") + "\n", called.stderr)

    def test_a_recipe_of_the_user(self):
        run = self.run_sh("my recipes/a b.xml")
        self.assertEqual(run.returncode, 0)
        self.assertIn("== Running my recipes/a b.xml\n", run.stdout)
        self.assertTrue(run.stdout.endswith("/build/run/a b.html in a browser.\n"))

    def test_a_failed_build_is_shown(self):
        with open(os.path.join(self.root, "broken"), "w", encoding="utf-8"):
            pass
        run = self.run_sh()
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, r"^cmake --preset release .*\nrun\.sh: command failed: cmake --preset release ")
        self.assertNotIn("== Running", run.stdout)

    def test_after_a_failed_recipe_the_tool_is_still_named(self):
        self.write_program("vorlen", 'echo "vorlen: no good" >&2; exit 1')
        shutil.move(os.path.join(self.programs, "vorlen"), os.path.join(self.tools, "vorlen"))
        run = self.run_sh()
        self.assertEqual(run.returncode, 1)
        self.assertIn(f"The tool is {self.tools}/vorlen\n", run.stdout)
        self.assertNotIn("report", run.stdout)
        self.assertEqual(run.stderr, "vorlen: no good\nThe recipe has failed, see above; the build has not.\n")

    @unittest.skipUnless(os.geteuid() == 0, "needs another user")
    def test_a_build_of_another_user_is_not_touched(self):
        subprocess.run(["chmod", "-R", "a+rX", self.folder], check=True)
        environment = self.only(*PROGRAMS)
        run = self.run_script(shutil.which("setpriv"), "--reuid=65534", "--regid=65534", "--clear-groups",
                              os.path.join(self.root, "run.sh"), **environment)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr.splitlines()[0],
                         f"run.sh: files in {self.root}/build/run belong to another user. To build again, type:")
        command = run.stderr.splitlines()[1].replace("sudo ", "")
        self.run_script("bash", "-c", command)
        self.assertFalse(os.path.exists(os.path.join(self.root, "build", "run")))

    def test_other_arguments_are_rejected(self):
        for arguments in (["--help"], ["a.xml", "b.xml"]):
            run = self.run_sh(*arguments)
            self.assertEqual((run.returncode, run.stdout, run.stderr), (2, "", "usage: ./run.sh [RECIPE]\n"))


@unittest.skipUnless(shutil.which("dpkg-query"), "not a Debian system")
class FirstUse(Scripts):
    """The real build, in build/run of the source tree."""

    def setUp(self):
        super().setUp()
        # Everything is installed already.
        for name in ("apt-get", "sudo"):
            self.write_program(name, f"echo {name} was called >&2; exit 1")
        self.path = self.programs + os.pathsep + os.environ["PATH"]

    def test_build_run_install(self):
        run = self.run_script(os.path.join(SOURCE, "run.sh"), PATH=self.path)
        self.assertEqual((run.returncode, run.stderr), (0, ""), run.stdout)
        self.assertRegex(run.stdout, r"\n +4  InGaN well +70 +3\.460\n")
        self.assertTrue(os.path.getsize(os.path.join(BUILD, "ingan_gan_mqw.html")) > 100000)
        (python,) = [line for line in run.stdout.splitlines() if line.startswith("  export PYTHONPATH=")]
        program = "/usr/bin/python3 -B -c 'import vorlen; print(vorlen.__file__)'"
        imported = self.run_script("bash", "-c", f"{python}\n{program}")
        self.assertEqual(imported.stdout, os.path.join(SOURCE, "python", "vorlen", "__init__.py\n"), imported.stderr)

        # Again, with a recipe from the current directory, and without a network where that is possible.
        shutil.copy(os.path.join(SOURCE, "examples", "algan_gan_hemt.xml"), self.folder)
        alone = ["unshare", "-r", "-n"]
        if not shutil.which("unshare") or self.run_script(*alone, "true").returncode != 0:
            alone = []
        run = self.run_script(*alone, os.path.join(SOURCE, "run.sh"), "algan_gan_hemt.xml", PATH=self.path)
        self.assertEqual((run.returncode, run.stderr), (0, ""), run.stdout)
        self.assertIn("  GaN channel ", run.stdout)

        self.check_installation()

    def check_installation(self):
        """As the README says, in a home that is empty."""
        with open(os.path.join(SOURCE, "README.md"), encoding="utf-8") as file:
            (block,) = [block for block in re.findall(r"^```sh\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
                        if "cmake --install" in block]
        program = "import vorlen; print(vorlen.__file__); print(len(vorlen.run('algan_gan_hemt.xml').layers))"
        script = f"""set -e
          cd "$1"
          {block}
          cd "$2"
          echo "results:"
          command -v vorlen
          vorlen run algan_gan_hemt.xml | grep -c 'GaN channel'
          vorlen report algan_gan_hemt.result.txt
          /usr/bin/python3 -B -c "{program}"
          pkg-config --modversion vorlensolver
          cc "$1/tests/package/consumer/host.c" $(pkg-config --cflags --libs vorlensolver) -o host
          LD_LIBRARY_PATH=~/.local/lib ./host algan_gan_hemt.xml host.txt
          cmake -S "$1/tests/package/consumer" -B consumer -DCMAKE_PREFIX_PATH=$HOME/.local >cmake.log
          cmake --build consumer >>cmake.log
          consumer/host_cpp algan_gan_hemt.xml host.txt"""
        home = os.path.join(self.folder, "home")
        os.mkdir(home)
        environment = {name: os.environ.get(name, "") for name in ("PATH", "LANG")}
        run = subprocess.run(["bash", "-c", script, "bash", SOURCE, self.folder], env={**environment, "HOME": home},
                             capture_output=True, encoding="utf-8", check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ""), run.stdout)
        installed = os.path.join(home, ".local")
        self.assertEqual(run.stdout.split("results:\n")[1].splitlines(),
                         [f"{installed}/bin/vorlen", "1", "algan_gan_hemt.html",
                          f"{installed}/lib/python3/dist-packages/vorlen/__init__.py", "6",
                          os.environ["VORLEN_VERSION"], "grown", "grown"])
        # Nothing outside of the prefix.
        with open(os.path.join(BUILD, "install_manifest.txt"), encoding="utf-8") as file:
            files = file.read().splitlines()
        self.assertGreater(len(files), 20)
        for path in files:
            self.assertEqual(os.path.commonpath([path, installed]), installed)


if __name__ == "__main__":
    unittest.main()
