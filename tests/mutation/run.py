#!/usr/bin/env python3
"""Do the tests notice a wrong formula? tests/mutation/run.py [WORD]

Works on a copy of the tree, which is built once. Each mutation of mutations.txt (or those whose line contains WORD) is
applied alone, the test program of its folder is built and run, and the first failing test is printed. A mutation marked
tsan is built with the thread sanitizer, which must report a race in the tests of overlapping calls. Exit status: 1 if a
mutation passes all tests of its program, 2 if one cannot be applied or built.
"""
import dataclasses
import os
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from mutant import HERE, ROOT, build, copy_tree, failed_case, run  # noqa: E402

TIME_LIMIT = 600  # of one test program, s: a mutation may cause an endless loop


@dataclasses.dataclass
class Mutation:
    file: str  # below src/
    old: str   # occurs exactly once in the file
    new: str
    how: str = ""  # tsan, or the test program, or empty for that of the folder

    @property
    def preset(self) -> str:
        """Of the build: tsan, or empty for a plain one."""
        return "tsan" if self.how == "tsan" else ""

    @property
    def target(self) -> str:
        return "thread_tests" if self.preset else self.how or self.file.split("/")[0] + "_tests"

    @property
    def program(self) -> str:
        """Below the folder of the build."""
        folder = "api" if self.preset == "tsan" else self.file.split("/")[0]
        return os.path.join("tests", folder, self.target)


def read_mutations(word: str) -> list[Mutation]:
    """The lines FILE | OLD | NEW [| HOW] of mutations.txt that contain word."""
    with open(os.path.join(HERE, "mutations.txt"), encoding="utf-8") as file:
        lines = [line.strip() for line in file]
    return [Mutation(*(part.strip() for part in line.split(" | ")))
            for line in lines if line and not line.startswith("#") and word in line]


def configure(tree: str, preset: str, folder: str) -> bool:
    # A plain build is not optimised: the numbers are the same, and most of the time is spent on building.
    generator = ["--preset", preset] if preset else ["-G", "Ninja"]
    return succeeds(run(["cmake", *generator, "-B", folder, "-DVORLEN_TOOLS=OFF"], cwd=tree))


def succeeds(done: subprocess.CompletedProcess) -> bool:
    if done.returncode != 0:
        print(done.stdout)
    return done.returncode == 0


def first_failure(program: str, preset: str) -> str:
    """The first test that fails, or with tsan the place of the first race; empty if there is none."""
    try:
        done = run([program, "--gtest_fail_fast", "--gtest_brief=1"], timeout=TIME_LIMIT)
    except subprocess.TimeoutExpired:
        return f"none in {TIME_LIMIT} s: the program does not end"
    if preset == "tsan":
        race = re.search(r"^SUMMARY: (ThreadSanitizer: data race) \S*/src/(.*)", done.stdout, re.MULTILINE)
        return f"{race[1]} {race[2]}" if race else ""
    if done.returncode == 0:
        return ""
    return failed_case(done.stdout, done.returncode)


def main() -> int:
    mutations = read_mutations(sys.argv[1] if len(sys.argv) > 1 else "")
    presets = sorted({mutation.preset for mutation in mutations})
    survivors, broken = 0, 0
    with tempfile.TemporaryDirectory() as tree:
        copy_tree(ROOT, tree)
        for preset in presets:
            of_preset = [mutation for mutation in mutations if mutation.preset == preset]
            folder = os.path.join(tree, "build" + preset)
            if not configure(tree, preset, folder) or not succeeds(build(folder, *{each.target for each in of_preset})):
                return 2
            for program in sorted({mutation.program for mutation in of_preset}):
                failure = first_failure(os.path.join(folder, program), preset)
                if failure:
                    print(f"{program} fails without any mutation: {failure}")
                    return 2
        for mutation in mutations:
            path = os.path.join(tree, "src", mutation.file)
            folder = os.path.join(tree, "build" + mutation.preset)
            with open(path, encoding="utf-8") as file:
                original = file.read()
            verdict = "cannot be applied: the text does not occur exactly once"
            if original.count(mutation.old) == 1:
                with open(path, "w", encoding="utf-8") as file:
                    file.write(original.replace(mutation.old, mutation.new))
                verdict = "does not compile"
                if succeeds(build(folder, mutation.target)):
                    program = os.path.join(folder, mutation.program)
                    verdict = first_failure(program, mutation.preset) or "SURVIVES"
                with open(path, "w", encoding="utf-8") as file:
                    file.write(original)
            survivors += verdict == "SURVIVES"
            broken += verdict.startswith(("cannot", "does not"))
            print(f"{mutation.file}: {mutation.old} -> {mutation.new}\n    {verdict}", flush=True)
    print(f"{len(mutations)} mutations, {survivors} survive" + (f", {broken} could not be tried" if broken else ""))
    return 2 if broken else 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
