#!/usr/bin/env python3
"""Do the tests notice a random small change of the source?

    tests/mutation/random_mutants.py {src|tools|python} [--seed N] [--count N] [--jobs N] [--files GLOB]
        [--work FOLDER]

Picks lines at random and makes one change in each, alone: another operator, a constant changed by one or in its sign, a
negated condition, and/or, an early return, a removed statement, swapped arguments, another name of an option or column.
The same seed gives the same changes. A change that does not compile, or gives the same syntax tree (Python) or the same
object files (C++), is replaced by another one.

Works on a copy of the tree for each job, which --work keeps with its build for the next run. The tests nearest to the
changed file (of the same name or folder, or named in the tables below) try every change, then the others try the
survivors; the first failure ends a trial. A test that needs more than TEST_LIMIT without any change is left out, and so
is one that fails then (of a file in Python, the cases that fail); a hang counts as noticed. The tests in Python need
VORLEN and VORLEN_LIBRARY in the environment, as pytest does.

The survivors that equivalent.txt lists with a reason are not counted. Exit status: 1 if another one survives, 2 if
nothing could be tried. --root is the tree (of a test of this script).
"""
import argparse
import fnmatch
import functools
import glob
import hashlib
import json
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
import mutate_cpp  # noqa: E402
import mutate_python  # noqa: E402
from mutant import HERE, ROOT, Mutant, build, copy_tree, failed_case, run  # noqa: E402

TEST_LIMIT = 100  # s, of one test program or file without any change
MEMORY_LIMIT = 6 * 2**30  # bytes, of a process: a change may allocate without end
SOURCES = {"src": ["src/**/*.cpp", "src/**/*.h"], "tools": ["tools/**/*.cpp", "tools/**/*.h"],
           "python": ["python/vorlen/**/*.py"]}
# Tables that a test compares with the library's, byte for byte.
GENERATED = ("python/vorlen/_recipe/elements.py", "python/vorlen/_runs/columns.py",
             "python/vorlen/_observe/nitrides.py")
# Real clusters, notebooks, installations: minutes. They run only for a file of their name.
SLOW = ("test_sweep_engines", "test_notebooks", "test_docs", "test_chart_library", "test_package")
# The first words of the test files for modules of the package, nearest first.
PYTHON_TESTS = {"arguments document elements kinds stages types values xml_bytes": "recipe source scheme abuse",
                "plan plan_file plan_values": "sweep_plan abuse sweep_object sweep_folder",
                "scheme": "scheme run recipe", "source": "source abuse", "library": "run version",
                "pool worker": "sweep_pool sweep", "row run_rows table": "sweep_object sweep",
                "sweep sweep_folder": "sweep abuse", "sweep_command": "sweep_command",
                "termination": "run",
                "measurements": "fit sensitivity", "files": "files run abuse", "simulate": "run unphysical files abuse",
                "run": "run status plot export abuse", "status": "status run", "result_check": "unphysical run",
                "result_file": "result_file run", "row_finder": "row_finder layers plot",
                "drawn": "plot fit sensitivity", "plot plot_relaxation": "plot",
                "report report_charts report_stack report_command tool": "report unphysical status",
                "main init": "version report sweep_command"}
LIBRARY_PROGRAMS = ("recipe/recipe_tests", "model/model_tests", "results/results_tests", "strain/strain_tests",
                    "integrator/integrator_tests", "api/api_tests", "physics/physics_tests",
                    "physics/staged_physics_tests", "api/allocation_tests", "recipe/recipe_allocation_tests")
TOOL_TESTS = {"check": "check timeline texts unphysical tools_tests schema", "run": "run failures scheme rows detail",
              "results": "show labels unphysical", "help": "texts manual terminal", "terminal": "terminal show run",
              "schema": "tools_tests written_from_the_tables schema", "": "terminal manual"}


@functools.cache
def interpreter() -> str:
    """A Python with the modules that the tests need."""
    script = os.path.join(ROOT, "scripts", "interpreter.sh")
    return subprocess.run([script, "pandas", "pytest"], check=True, capture_output=True, text=True).stdout.strip()


class PythonTree:
    """A copy of the tree in which mutants of the package are tried. A test is a file."""

    def __init__(self, folder: str, root: str):
        copy_tree(root, folder)
        self.folder, self.failing = folder, {}
        for path in glob.glob("build/*/python/plotly.min.js", root_dir=root):  # the reports need it
            os.makedirs(os.path.dirname(os.path.join(folder, path)), exist_ok=True)
            shutil.copy(os.path.join(root, path), os.path.join(folder, path))

    def reason_to_discard(self, mutant: Mutant, source: bytes) -> str:
        return "" if mutate_python.is_other(source, mutant.apply(source)) else "same or invalid"

    def tests(self, file: str) -> list[tuple[str, bool]]:
        """The tests of a changed file in their order, and which of them are near."""
        room, name = (word.strip("_") for word in file[:-len(".py")].split("/")[-2:])
        names = (name, f"{room}_{name}")
        words = next((each.split() for keys, each in PYTHON_TESTS.items() if {*names} & {*keys.split()}), [])

        def rank(test: str) -> tuple:
            about = test.removeprefix("test_")
            if about.startswith(names):
                return 0, test
            if names[1].startswith(about + "_"):
                return 1, test
            return next((k for k, word in enumerate(words, 2) if about.startswith(word)), 100), test

        found = [os.path.basename(path)[:-len(".py")]
                 for path in glob.glob(os.path.join(self.folder, "python/tests/test_*.py"))]
        return [(test, rank(test)[0] < 100) for test in sorted(found, key=rank)
                if test not in SLOW or test == f"test_{name}"]

    def failure(self, test: str, limit: float) -> str:
        done = self._pytest(test, limit, "-x", *(f"--deselect={case}" for case in self.failing.get(test, ())))
        failed = re.search(r"^(?:FAILED|ERROR) \S*?(\w+\.py\S*)", done.stdout, re.MULTILINE)
        return "" if done.returncode in (0, 5) else failed[1] if failed else f"status {done.returncode} of {test}"

    def leave_out_failing_cases(self, test: str, limit: float) -> list[str]:
        """The cases of a test that fail without any change. The other cases of the file still try the changes."""
        done = self._pytest(test, limit)
        self.failing[test] = re.findall(r"^(?:FAILED|ERROR) python/(.*?)(?: - .*)?$", done.stdout, re.MULTILINE)
        return self.failing[test]

    def _pytest(self, test: str, limit: float, *options: str) -> subprocess.CompletedProcess:
        return run([interpreter(), "-B", "-m", "pytest", "-q", "-c", "python/pyproject.toml", *options,
                    f"python/tests/{test}.py"], timeout=limit, cwd=self.folder)


class CppTree:
    """A built copy of the tree in which mutants of src or tools are tried. A test is a program or a Python script."""

    def __init__(self, folder: str, root: str, kind: str):
        copy_tree(root, folder)
        self.folder, self.kind, self.build = folder, kind, os.path.join(folder, "build")
        tools = "ON" if kind == "tools" else "OFF"
        # -O1: most changes without an effect give the same object files, and the tests are not slow.
        command = ["cmake", "-G", "Ninja", "-B", self.build, "-DCMAKE_CXX_FLAGS=-O1 -g0", f"-DVORLEN_TOOLS={tools}"]
        if shutil.which("ccache"):  # for the file that is restored
            os.environ.setdefault("CCACHE_BASEDIR", os.path.dirname(folder))
            command += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
        self.targets = [] if kind == "src" else ["src/all", "tools/all", "python/all", "scripted_vorlen", "tools_tests"]
        all_targets = self.targets or [os.path.basename(program) for program in LIBRARY_PROGRAMS]
        for done in (run(command, cwd=folder), build(self.build, *all_targets)):
            if done.returncode != 0:
                sys.exit(done.stdout)
        listed = run(["ctest", "--show-only=json-v1"], cwd=self.build).stdout
        self.scripts = {} if kind == "src" else {
            test["name"].replace("functional.", ""): test for test in json.loads(listed[listed.index("{"):])["tests"]
            if test["name"].startswith(("functional.", "tools.written_from"))}
        self.original = self._objects()

    def _objects(self) -> dict:
        found = {}
        for path in glob.glob(os.path.join(self.build, self.kind, "**/*.o"), recursive=True):
            with open(path, "rb") as file:
                found[path] = hashlib.sha1(file.read()).digest()
        return found

    def reason_to_discard(self, mutant: Mutant, _: bytes) -> str:
        done = build(self.build, *(self.targets or ["vorlen_core"]))
        if done.returncode != 0:
            # The generated schema or manual page may notice the change while the tools are built.
            return "" if "error:" not in done.stdout and "] Linking" in done.stdout else "does not compile"
        return "same object files" if self._objects() == self.original else ""

    def tests(self, file: str) -> list[tuple[str, bool]]:
        """The tests of a changed file in their order, and which of them are near."""
        folder = os.path.dirname(file).partition("/")[2]
        if self.kind == "src":
            order = sorted(LIBRARY_PROGRAMS, key=lambda program: not program.startswith(folder + "/"))
            return [(program, program.startswith(folder + "/")) for program in order]
        words = (TOOL_TESTS.get(folder) or TOOL_TESTS[""]).split()
        words.insert(0, os.path.basename(file).partition(".")[0].removeprefix("command_"))

        def rank(test: str) -> tuple:
            return next((k for k, word in enumerate(words) if word in test), len(words)), test

        return [(test, rank(test)[0] < len(words)) for test in sorted(["tools_tests", *self.scripts], key=rank)]

    def failure(self, test: str, limit: float) -> str:
        if test in self.scripts:
            script = self.scripts[test]
            variables = next((p["value"] for p in script["properties"] if p["name"] == "ENVIRONMENT"), [])
            environment = os.environ | dict(variable.split("=", 1) for variable in variables)
            fail_fast = ["-f"] if script["command"][-1] == "-v" else []
            done = run(script["command"] + fail_fast, timeout=limit, env=environment, cwd=self.build)
            failed = re.search(r"^(?:FAIL|ERROR): (\w+)", done.stdout, re.MULTILINE)
            failed = f"{test}.{failed[1]}" if failed else f"status {done.returncode} of {test}"
            return failed if done.returncode != 0 else ""
        program = f"tools/{test}" if self.kind == "tools" else test
        if build(self.build, os.path.basename(program)).returncode != 0:
            return f"{program} does not compile"  # a static_assert, or a constant in a header
        command = [os.path.join(self.build, "tests", program), "--gtest_fail_fast", "--gtest_brief=1"]
        done = run(command, timeout=limit, cwd=self.build)
        return "" if done.returncode == 0 else failed_case(done.stdout, done.returncode)


def candidates(root: str, kind: str, pattern: str, seed: int) -> list[Mutant]:
    """One mutant for each line that has any, in random order."""
    chance, lines = random.Random(seed), {}
    files = {path for each in SOURCES[kind] for path in glob.glob(each, root_dir=root, recursive=True)}
    for path in sorted(files.difference(GENERATED)):
        if fnmatch.fnmatch(path, pattern):
            with open(os.path.join(root, path), "rb") as file:
                source = file.read()
            for mutant in (mutate_python if kind == "python" else mutate_cpp).mutants_of(path, source):
                lines.setdefault((path, mutant.line(source)), []).append(mutant)
    return [chance.choice(lines[line]) for line in chance.sample(sorted(lines), len(lines))]


def judged_equivalent() -> set[tuple]:
    """(file, old, new) of the entries of equivalent.txt."""
    with open(os.path.join(HERE, "equivalent.txt"), encoding="utf-8") as file:
        return {tuple(line.strip() for line in entry) for entry in
                re.findall(r"^([^#\s].*)\n- (.*)\n\+ ?(.*)\n", file.read(), re.MULTILINE)}


def write(path: str, content: bytes) -> None:
    with open(path, "wb") as file:
        file.write(content)


class Trials:
    """The first `count` candidates that are mutants at all, tried by several threads."""

    def __init__(self, options):
        self.options = options
        self.queue = candidates(options.root, options.kind, options.files, options.seed)
        self.equivalent = judged_equivalent()
        self.next, self.open, self.lock = 0, options.count, threading.Condition()
        self.seconds = {}  # of each test without any change; None: left out
        self.noticed, self.skipped, self.survivors, self.remaining = 0, 0, [], []

    def measure(self, tree, test: str) -> None:
        """Runs a test without any change."""
        start = time.monotonic()
        try:
            failure = tree.failure(test, TEST_LIMIT)
            if failure and isinstance(tree, PythonTree):
                cases = tree.leave_out_failing_cases(test, TEST_LIMIT)
                print(f"{test}: left out {len(cases)} cases that fail without any change, {cases[:1]}", flush=True)
                start = time.monotonic()
                failure = tree.failure(test, TEST_LIMIT)
        except subprocess.TimeoutExpired:
            failure = f"needs more than {TEST_LIMIT} s"
        self.seconds[test] = None if failure else time.monotonic() - start
        print(f"{test}: {'left out: ' + failure if failure else f'{self.seconds[test]:.1f} s'}", flush=True)

    def judge(self, tree, mutant: Mutant, source: bytes, last: bool) -> tuple[str, str]:
        """(noticed, by which test), (survives, "") or (discarded, why). `last`: by the tests that are not near."""
        path = os.path.join(tree.folder, mutant.file)
        write(path, mutant.apply(source))
        reason = tree.reason_to_discard(mutant, source)
        if reason:
            return "discarded", reason
        for test in (test for test, near in tree.tests(mutant.file) if near != last):
            if test not in self.seconds:
                write(path, source)
                self.measure(tree, test)
                write(path, mutant.apply(source))
            if self.seconds[test] is not None:
                limit = 20 + 4 * self.seconds[test]
                try:
                    failure = tree.failure(test, limit)
                except subprocess.TimeoutExpired:
                    failure = f"{test} does not end in {limit:.0f} s"
                if failure:
                    return "noticed", failure
        return "survives", ""

    def next_mutant(self, last: bool) -> Mutant | None:
        with self.lock:
            if last:
                return self.survivors.pop(0) if self.survivors else None
            # A candidate that another thread has yet to judge may be discarded and need a successor.
            if self.open <= 0 or self.next >= len(self.queue):
                return None
            self.next, self.open = self.next + 1, self.open - 1
            return self.queue[self.next - 1]

    def work(self, tree, last: bool) -> None:
        while mutant := self.next_mutant(last):
            path = os.path.join(tree.folder, mutant.file)
            with open(path, "rb") as file:
                source = file.read()
            old, new = mutant.texts(source)
            start, verdict, why = time.monotonic(), "judged equivalent", ""
            if (mutant.file, old, new) not in self.equivalent:
                try:
                    verdict, why = self.judge(tree, mutant, source, last)
                finally:
                    write(path, source)
            place = f"{mutant.file}:{mutant.line(source)} ({mutant.kind})"
            with self.lock:
                self.open += verdict == "discarded"
                self.noticed += verdict == "noticed"
                self.skipped += verdict == "judged equivalent"
                if verdict == "survives":
                    (self.remaining if last else self.survivors).append(mutant)
                    why = f"\n- {old}\n+ {new}"
                print(f"{verdict} in {time.monotonic() - start:.0f} s: {place} {why}", flush=True)

    def run(self, folder: str) -> int:
        kind, root = self.options.kind, self.options.root
        folders = [os.path.join(folder, str(k)) for k in range(self.options.jobs)]
        for each in folders:
            os.makedirs(each, exist_ok=True)
        trees = [PythonTree(each, root) if kind == "python" else CppTree(each, root, kind) for each in folders]
        if kind != "python":  # there a test is measured before its first use; a program would have to be built again
            for test in dict.fromkeys(test for mutant in self.queue for test, _ in trees[0].tests(mutant.file)):
                self.measure(trees[0], test)
        for last in (False, True):
            if last:
                print(f"the other tests try {len(self.survivors)} survivors", flush=True)
            threads = [threading.Thread(target=self.work, args=(tree, last)) for tree in trees]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        for mutant in sorted(self.remaining, key=lambda each: (each.file, each.start)):
            with open(os.path.join(root, mutant.file), "rb") as file:
                source = file.read()
            old, new = mutant.texts(source)
            print(f"\n{mutant.file}:{mutant.line(source)} ({mutant.kind})\n- {old}\n+ {new}")
        total = self.noticed + len(self.remaining)
        if not any(self.seconds.values()):
            print("\nno test passes without a change")
            return 2
        print(f"\n{self.noticed} of {total} noticed ({100 * self.noticed / max(total, 1):.0f} %)"
              + (f", {self.skipped} judged equivalent" if self.skipped else ""))
        return 2 if total == 0 else 1 if self.remaining else 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kind", choices=SOURCES)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--count", type=int, default=20)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--files", default="*", metavar="GLOB", help="below the root, such as 'tools/run/*'")
    parser.add_argument("--work", metavar="FOLDER", help="where the copies and their builds are kept")
    parser.add_argument("--root", default=ROOT, help=argparse.SUPPRESS)
    options = parser.parse_args()
    print(f"seed {options.seed}", flush=True)
    os.environ["PYTHONDONTWRITEBYTECODE"] = "1"  # a cached module may have the time and size of a changed one
    # A shell starts a job in the background with SIGINT ignored: the tests of interrupts would wait forever.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    resource.setrlimit(resource.RLIMIT_DATA, (MEMORY_LIMIT, resource.getrlimit(resource.RLIMIT_DATA)[1]))
    with tempfile.TemporaryDirectory() as temporary:
        os.chmod(temporary, 0o755)  # some tests run a part as another user
        os.makedirs(os.path.join(temporary, "tmp"))
        os.chmod(os.path.join(temporary, "tmp"), 0o1777)
        os.environ["TMPDIR"] = os.path.join(temporary, "tmp")
        return Trials(options).run(os.path.abspath(options.work or temporary))


if __name__ == "__main__":
    sys.exit(main())
