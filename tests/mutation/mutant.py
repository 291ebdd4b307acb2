"""A change of one place of a source file, and what the two scripts of this folder share: copies of the tree, processes
with a time limit, the first failing test of a Google Test program.
"""
import dataclasses
import filecmp
import os
import re
import shutil
import signal
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str   # below the root of the tree
    start: int  # bytes
    end: int
    new: str    # instead of the bytes from start to end
    kind: str

    def apply(self, source: bytes) -> bytes:
        return source[:self.start] + self.new.encode() + source[self.end:]

    def line(self, source: bytes) -> int:
        return source.count(b"\n", 0, self.start) + 1

    def texts(self, source: bytes) -> tuple[str, str]:
        """The lines of the place before and after the change, with single blanks: they survive moves of the lines."""
        first = source.rfind(b"\n", 0, self.start) + 1
        last = source.find(b"\n", self.end)
        last = len(source) if last < 0 else last
        after = source[first:self.start] + self.new.encode() + source[self.end:last]
        return tuple(" ".join(text.decode().split()) for text in (source[first:last], after))


def copy_tree(root: str, to: str) -> None:
    """Makes to a copy of the tree without builds and hidden files. Files that are the same keep their times, so that a
    build in to stays up to date."""
    wanted = set()
    for folder, folders, files in os.walk(root):
        folders[:] = [name for name in folders if not name.startswith((".", "__pycache__")) and (
            folder != root or not name.startswith("build")) and os.path.join(folder, name) != to]
        for name in files:
            source = os.path.join(folder, name)
            target = os.path.join(to, os.path.relpath(source, root))
            wanted.add(target)
            if not (os.path.isfile(target) and filecmp.cmp(source, target, shallow=False)):
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy(source, target)
    for name in os.listdir(to):
        if not name.startswith("build"):  # files of an earlier copy
            for folder, _, files in os.walk(os.path.join(to, name)):
                for path in {os.path.join(folder, file) for file in files} - wanted:
                    os.remove(path)


def run(command: list[str], timeout: float | None = None, **options) -> subprocess.CompletedProcess:
    """subprocess.run with the output in stdout; after timeout, s, the processes that it started end as well."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                          encoding="utf-8", errors="replace", start_new_session=True, **options) as process:
        try:
            output, _ = process.communicate(timeout=timeout)
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    return subprocess.CompletedProcess(command, process.returncode, output)


def build(folder: str, *targets: str) -> subprocess.CompletedProcess:
    return run(["cmake", "--build", folder, "--target", *targets])


def failed_case(output: str, status: int) -> str:
    """The first failing test of a Google Test program."""
    failed = re.search(r"^\[  FAILED  \] ([\w./]+)", output, re.MULTILINE)
    return failed[1] if failed else f"the program ends with status {status}"
