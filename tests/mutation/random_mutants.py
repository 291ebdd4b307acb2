#!/usr/bin/env python3
"""Do the tests notice a random small change of the source?

    tests/mutation/random_mutants.py {src|tools|python} [--seed N] [--count N] [--jobs N] [--files GLOB]
        [--work FOLDER]

Picks lines at random and makes one change in each, alone: another operator, a constant changed by one or in its sign, a
negated condition, and/or, an early return, a removed statement, swapped arguments, another name of an option or column.
The same seed gives the same changes. A change that does not compile, or gives the same syntax tree (Python) or the same
object files (C++), is replaced by another one.

Works on a copy of the tree for each job, which --work keeps with its build for the next run. The tests nearest to the
changed file run first (those of the same name, then those of the modules that import it, or of its folder), then the
others; the first failure ends the trial. A test that needs more than TEST_LIMIT without any change is left out, and so
is one that fails then; a hang counts as noticed. The tests in Python need VORLEN and VORLEN_LIBRARY in the environment,
as pytest does.

The survivors that equivalent.txt lists with a reason are not counted. Exit status: 1 if another one survives, 2 if
nothing could be tried. --root is the tree (of a test of this script).
"""
import argparse
import fnmatch
import glob
import hashlib
import json
import os
import random
import re
import resource
import shutil
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
           "python": ["python/vorlen/*.py"]}
# Tables that a test compares with the library's, byte for byte.
GENERATED = ("python/vorlen/_elements.py", "python/vorlen/_columns.py")
# Real clusters, notebooks, installations: minutes. They run only for a file of their name.
SLOW = ("test_sweep_engines", "test_notebooks", "test_docs", "test_chart_library", "test_package")
LIBRARY_PROGRAMS = ("recipe/recipe_tests", "model/model_tests", "results/results_tests", "strain/strain_tests",
                    "integrator/integrator_tests", "api/api_tests", "physics/physics_tests",
                    "physics/staged_physics_tests", "api/allocation_tests", "recipe/recipe_allocation_tests")
TOOL_TESTS = {"check": "check timeline texts unphysical tools_tests schema", "run": "run failures scheme rows detail",
              "results": "show labels unphysical", "help": "texts manual terminal", "terminal": "terminal show run",
              "schema": "tools_tests written_from_the_tables schema", "": "terminal manual"}


class PythonTree:
    """A copy of the tree in which mutants of the package are tried. A test is a file."""

    def __init__(self, folder: str, root: str):
        copy_tree(root, folder)
        self.folder = folder
        for path in glob.glob("build/*/python/plotly.min.js", root_dir=root):  # the reports need it
            os.makedirs(os.path.dirname(os.path.join(folder, path)), exist_ok=True)
            shutil.copy(os.path.join(root, path), os.path.join(folder, path))

    def reason_to_discard(self, mutant: Mutant, source: bytes) -> str:
        return "" if mutate_python.is_other(source, mutant.apply(source)) else "same or invalid"

    def tests(self, file: str) -> list[str]:
        name = os.path.basename(file)[:-len(".py")]
        importers = [self._stem(path) for path in glob.glob(os.path.join(self.folder, "python/vorlen/*.py"))
                     if re.search(rf"import {name}\b|from (?:vorlen)?\.{name} import", self._read(path))]

        def rank(test: str) -> tuple:
            about = test.removeprefix("test_")
            near = next((k for k, words in enumerate(([name.strip("_")], [each.strip("_") for each in importers]))
                         if about in words or any(about.startswith(word + "_") for word in words)), 2)
            return near, test

        found = [self._stem(path) for path in glob.glob(os.path.join(self.folder, "python/tests/test_*.py"))]
        return [test for test in sorted(found, key=rank) if test not in SLOW or rank(test)[0] == 0]

    def failure(self, test: str, limit: float) -> str:
        done = run([sys.executable, "-B", "-m", "pytest", "-x", "-q", "-c", "python/pyproject.toml",
                    f"python/tests/{test}.py"], timeout=limit, cwd=self.folder)
        failed = re.search(r"^(?:FAILED|ERROR) \S*?(\w+\.py\S*)", done.stdout, re.MULTILINE)
        return "" if done.returncode in (0, 5) else failed[1] if failed else f"status {done.returncode} of {test}"

    @staticmethod
    def _stem(path: str) -> str:
        return os.path.basename(path)[:-len(".py")]

    @staticmethod
    def _read(path: str) -> str:
        with open(path, encoding="utf-8") as file:
            return file.read()


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

    def tests(self, file: str) -> list[str]:
        folder = os.path.dirname(file).partition("/")[2]
        if self.kind == "src":
            return sorted(LIBRARY_PROGRAMS, key=lambda program: not program.startswith(folder + "/"))
        words = (TOOL_TESTS.get(folder) or TOOL_TESTS[""]).split()
        words.insert(0, os.path.basename(file).partition(".")[0].removeprefix("command_"))

        def rank(test: str) -> tuple:
            return next((k for k, word in enumerate(words) if word in test), len(words)), test

        return sorted(["tools_tests", *self.scripts], key=rank)

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
        self.noticed, self.skipped, self.survivors = 0, 0, []

    def measure(self, tree, test: str) -> None:
        """Runs a test without any change."""
        start = time.monotonic()
        try:
            failure = tree.failure(test, TEST_LIMIT)
        except subprocess.TimeoutExpired:
            failure = f"needs more than {TEST_LIMIT} s"
        self.seconds[test] = None if failure else time.monotonic() - start
        print(f"{test}: {'left out: ' + failure if failure else f'{self.seconds[test]:.1f} s'}", flush=True)

    def judge(self, tree, mutant: Mutant, source: bytes) -> tuple[str, str]:
        """(noticed, by which test), (survives, "") or (discarded, why)."""
        path = os.path.join(tree.folder, mutant.file)
        write(path, mutant.apply(source))
        reason = tree.reason_to_discard(mutant, source)
        if reason:
            return "discarded", reason
        for test in tree.tests(mutant.file):
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

    def work(self, tree) -> None:
        while True:
            with self.lock:
                # A candidate that another thread has yet to judge may be discarded and need a successor.
                if self.open <= 0 or self.next >= len(self.queue):
                    return
                mutant = self.queue[self.next]
                self.next, self.open = self.next + 1, self.open - 1
            path = os.path.join(tree.folder, mutant.file)
            with open(path, "rb") as file:
                source = file.read()
            key, start = (mutant.file, *mutant.texts(source)), time.monotonic()
            verdict, why = "judged equivalent", ""
            if key not in self.equivalent:
                try:
                    verdict, why = self.judge(tree, mutant, source)
                finally:
                    write(path, source)
            with self.lock:
                self.open += verdict == "discarded"
                self.noticed += verdict == "noticed"
                self.skipped += verdict == "judged equivalent"
                if verdict == "survives":
                    self.survivors.append((mutant.file, mutant.line(source), *key[1:], mutant.kind))
                print(f"{verdict} in {time.monotonic() - start:.0f} s: {mutant.file}:{mutant.line(source)} "
                      f"({mutant.kind}) {why}", flush=True)

    def run(self, folder: str) -> int:
        kind, root = self.options.kind, self.options.root
        folders = [os.path.join(folder, str(k)) for k in range(self.options.jobs)]
        for each in folders:
            os.makedirs(each, exist_ok=True)
        trees = [PythonTree(each, root) if kind == "python" else CppTree(each, root, kind) for each in folders]
        if kind != "python":  # there a test is measured before its first use; a program would have to be built again
            for test in dict.fromkeys(test for mutant in self.queue for test in trees[0].tests(mutant.file)):
                self.measure(trees[0], test)
        threads = [threading.Thread(target=self.work, args=(tree,)) for tree in trees]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for file, line, old, new, kind in sorted(self.survivors):
            print(f"\n{file}:{line} ({kind})\n- {old}\n+ {new}")
        total = self.noticed + len(self.survivors)
        if not any(self.seconds.values()):
            print("\nno test passes without a change")
            return 2
        print(f"\n{self.noticed} of {total} noticed ({100 * self.noticed / max(total, 1):.0f} %)"
              + (f", {self.skipped} judged equivalent" if self.skipped else ""))
        return 2 if total == 0 else 1 if self.survivors else 0


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
    resource.setrlimit(resource.RLIMIT_DATA, (MEMORY_LIMIT, resource.getrlimit(resource.RLIMIT_DATA)[1]))
    with tempfile.TemporaryDirectory() as temporary:
        os.chmod(temporary, 0o755)  # some tests run a part as another user
        os.makedirs(os.path.join(temporary, "tmp"))
        os.chmod(os.path.join(temporary, "tmp"), 0o1777)
        os.environ["TMPDIR"] = os.path.join(temporary, "tmp")
        return Trials(options).run(os.path.abspath(options.work or temporary))


if __name__ == "__main__":
    sys.exit(main())
