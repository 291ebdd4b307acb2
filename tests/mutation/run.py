#!/usr/bin/env python3
"""Do the tests notice a wrong formula? tests/mutation/run.py [WORD]

Works on a copy of the tree, which is built once. Then each mutation of mutations.txt is made alone (those whose line
holds WORD, when one is given), the test program of its folder is built and run, and the first test that fails is told.
Exit status 1 when a mutation passes all tests of that program, 2 when one can't be made or built.
"""
import dataclasses
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
TIME_LIMIT = 600  # of one test program, s: a mutation may make a run endless


@dataclasses.dataclass
class Mutation:
    file: str  # below src/
    old: str   # stands exactly once in the file
    new: str

    @property
    def program(self) -> str:
        return self.file.split("/")[0] + "_tests"


def read_mutations(word: str) -> list[Mutation]:
    """The lines FILE | OLD | NEW of mutations.txt that hold word."""
    with open(os.path.join(HERE, "mutations.txt"), encoding="utf-8") as file:
        lines = [line.strip() for line in file]
    return [Mutation(*(part.strip() for part in line.split(" | ")))
            for line in lines if line and not line.startswith("#") and word in line]


def run(command: list[str], **options) -> subprocess.CompletedProcess:
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
                          errors="replace", check=False, **options)


def build(folder: str, *targets: str) -> bool:
    done = run(["cmake", "--build", folder, "--target", *targets])
    if done.returncode != 0:
        print(done.stdout)
    return done.returncode == 0


def first_failure(program: str) -> str:
    """The first test that fails; empty when all pass."""
    try:
        done = run([program, "--gtest_fail_fast", "--gtest_brief=1"], timeout=TIME_LIMIT)
    except subprocess.TimeoutExpired:
        return f"none in {TIME_LIMIT} s: the program does not end"
    if done.returncode == 0:
        return ""
    failed = re.search(r"^\[  FAILED  \] ([\w./]+)", done.stdout, re.MULTILINE)
    return failed[1] if failed else f"the program ends with status {done.returncode}"


def main() -> int:
    mutations = read_mutations(sys.argv[1] if len(sys.argv) > 1 else "")
    programs = sorted({mutation.program for mutation in mutations})
    survivors, broken = 0, 0
    with tempfile.TemporaryDirectory() as tree:
        for name in ("CMakeLists.txt", "cmake", "src", "tests", "examples", "docs"):
            source = os.path.join(ROOT, name)
            copy = shutil.copytree if os.path.isdir(source) else shutil.copy
            copy(source, os.path.join(tree, name))
        folder = os.path.join(tree, "build")
        # Not optimised: the numbers are the same, and the building is most of the time.
        configured = run(["cmake", "-G", "Ninja", "-S", tree, "-B", folder, "-DVORLEN_TOOLS=OFF"])
        if configured.returncode != 0:
            print(configured.stdout)
            return 2
        if not build(folder, *programs):
            return 2
        for program in programs:
            failure = first_failure(find_program(folder, program))
            if failure:
                print(f"{program} fails without any mutation: {failure}")
                return 2
        for mutation in mutations:
            path = os.path.join(tree, "src", mutation.file)
            with open(path, encoding="utf-8") as file:
                original = file.read()
            verdict = "can't be made: the text does not stand there once"
            if original.count(mutation.old) == 1:
                with open(path, "w", encoding="utf-8") as file:
                    file.write(original.replace(mutation.old, mutation.new))
                verdict = "does not compile"
                if build(folder, mutation.program):
                    verdict = first_failure(find_program(folder, mutation.program)) or "SURVIVES"
                with open(path, "w", encoding="utf-8") as file:
                    file.write(original)
            survivors += verdict == "SURVIVES"
            broken += verdict.startswith(("can't", "does not"))
            print(f"{mutation.file}: {mutation.old} -> {mutation.new}\n    {verdict}", flush=True)
    print(f"{len(mutations)} mutations, {survivors} survive" + (f", {broken} could not be tried" if broken else ""))
    return 2 if broken else 1 if survivors else 0


def find_program(folder: str, name: str) -> str:
    return os.path.join(folder, "tests", name.removesuffix("_tests"), name)


if __name__ == "__main__":
    sys.exit(main())
