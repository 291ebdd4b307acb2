"""vorlen._base.system: what differs between systems is there and nowhere else, with macOS and Windows imitated."""

from __future__ import annotations

import ast
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

import pytest

import vorlen
from engines import wait_for
from support import tool
from sweeps import LAYER, is_running
from vorlen._base import system
from vorlen._base.library import find_library
from vorlen._base.tool import _is_tool

PACKAGE = Path(vorlen.__file__).parent
ROOM = {"_base/system.py", "_base/windows.py"}

# Modules and names that some system lacks, or that mean something else there.
MODULES = {
    "_winapi", "crypt", "fcntl", "grp", "mmap", "msvcrt", "nt", "posix", "pty", "pwd", "resource", "select", "spwd",
    "syslog", "termios", "tty", "winreg",
}  # fmt: skip
NAMES = {
    "LockFileEx", "WinDLL", "WinError", "chown", "creationflags", "fchmod", "fchown", "flock", "fork", "forkpty",
    "geteuid", "getgid", "getppid", "getuid", "kill_pg", "killpg", "lchown", "lockf", "memfd_create", "mkfifo", "pass_fds",
    "pipe2", "prctl", "preexec_fn", "pthread_kill", "pthread_sigmask", "sched_getaffinity", "sched_setaffinity",
    "setpgrp", "setsid", "sigwait", "start_new_session", "startupinfo", "statvfs", "umask", "uname", "windll",
    "O_CLOEXEC", "O_DIRECTORY", "O_NOFOLLOW", "O_NONBLOCK", "O_TMPFILE", "SIGALRM", "SIGCHLD", "SIGHUP", "SIGKILL",
    "SIGPIPE", "SIGQUIT", "SIGSTOP", "SIGUSR1", "SIGUSR2",
}  # fmt: skip
TEXTS = ("/proc/", "/dev/", "/tmp")


def dependences(source: str) -> list[str]:
    """What a module uses that some system lacks."""
    found = []
    for node in ast.walk(ast.parse(source)):
        if isinstance(node, ast.Import):
            found += [one.name for one in node.names if one.name in MODULES]
        elif isinstance(node, ast.ImportFrom):
            found += [node.module] if not node.level and node.module in MODULES else []
            found += [one.name for one in node.names if one.name in NAMES]
        elif isinstance(node, ast.Attribute) and node.attr in NAMES:
            found.append(node.attr)
        elif isinstance(node, ast.keyword) and node.arg in NAMES:
            found.append(node.arg)
        elif isinstance(node, ast.Constant) and isinstance(node.value, str) and node.value.startswith(TEXTS):
            found.append(node.value)
    return found


def test_only_the_modules_for_it_depend_on_the_system() -> None:
    found = {
        str(path.relative_to(PACKAGE)): names
        for path in sorted(PACKAGE.rglob("*.py"))
        if (names := dependences(path.read_text("utf-8")))
    }
    assert set(found) == ROOM, found


def test_files_of_text_are_read_and_written_with_an_encoding() -> None:
    """The default of Windows is not UTF-8."""
    for path in sorted(PACKAGE.rglob("*.py")):
        for node in ast.walk(ast.parse(path.read_text("utf-8"))):
            if isinstance(node, ast.Call) and isinstance(node.func, ast.Attribute):
                named = {word.arg for word in node.keywords}
                where = f"{path.relative_to(PACKAGE)}:{node.lineno}"
                assert node.func.attr != "read_text" or node.args or "encoding" in named, where
                assert node.func.attr != "write_text" or len(node.args) > 1 or "encoding" in named, where


@pytest.mark.parametrize(
    "source, expected",
    [
        ("import fcntl", ["fcntl"]),
        ("def f():\n    from select import poll", ["select"]),
        ("from os import fork", ["fork"]),
        ("import os\nos.open('a', os.O_RDONLY | os.O_NONBLOCK)", ["O_NONBLOCK"]),
        ("subprocess.run([], pass_fds=[3])", ["pass_fds"]),
        ("open(f'/proc/self/fd/{n}')", ["/proc/self/fd/"]),
        ("import os, signal\nfrom . import system\nos.replace('a', 'b')\nsignal.SIGTERM", []),
    ],
)
def test_dependences_on_a_system_are_found(source: str, expected: list[str]) -> None:
    assert dependences(source) == expected


def run_there(platform: str, program: str, folder: Path) -> str:
    """What a program prints that imports the package where another system is imitated."""
    path = folder / "stand_in"
    path.mkdir()
    shutil.copy(Path(__file__).with_name("system_stand_in.py"), path / "sitecustomize.py")
    (folder / "layer.xml").write_bytes(LAYER.read_bytes())
    temporary = folder / "temporary"
    temporary.mkdir()
    environment = os.environ | {
        "PYTHONPATH": os.pathsep.join([str(path), str(PACKAGE.parent)]), "STAND_IN": platform, "TMPDIR": str(temporary),
        "VORLEN": tool(), "VORLEN_LIBRARY": find_library(),
    }
    done = subprocess.run(
        [sys.executable, "-B", "-c", program], cwd=folder, env=environment, capture_output=True, text=True, timeout=120,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    assert list(temporary.iterdir()) == []
    return done.stdout


RUNS = """
import os, pathlib, sys, vorlen
assert "vorlen._base.system" in sys.modules and not hasattr(os, "memfd_create")
run = vorlen.run("layer.xml", "r.txt")
assert vorlen.read("r.txt").content == run.content
print(vorlen.run("layer.xml").content == run.content)
try:
    vorlen.run(b"<chemistry", check=False)
except vorlen.RecipeError as error:
    print(str(error).splitlines()[0])
print(len(vorlen.check("layer.xml")), len(vorlen.check(b"<chemistry><gas/></chemistry>")) > 0)
from vorlen._runs.compare_layers import compared_layers
print(len(compared_layers(run, run)["layers"]) == len(run.layers) > 0)
from vorlen._base.files import BusyError, is_part_locked, locked_part
place = pathlib.Path("r.txt").absolute()
with locked_part(place):
    print(is_part_locked(place))
    try:
        vorlen.run("layer.xml", "r.txt")
    except BusyError:
        print("busy")
print(is_part_locked(place), sorted(os.listdir()))
"""
FILES = ["layer.xml", "r.status.json", "r.txt", "stand_in", "temporary"]
EXPECTED = f"True\nError reading file recipe.xml\n0 True\nTrue\nTrue\nbusy\nFalse {FILES}\n"


def test_a_run_a_check_and_a_diff_without_what_macos_lacks(tmp_path: Path) -> None:
    assert run_there("darwin", RUNS, tmp_path) == EXPECTED
    vorlen.run(LAYER, tmp_path / "here.txt")
    assert (tmp_path / "here.txt").read_bytes() == (tmp_path / "r.txt").read_bytes()


def test_a_run_a_check_and_a_diff_with_stand_ins_for_the_calls_of_windows(tmp_path: Path) -> None:
    program = RUNS + """
import sitecustomize as there
places = {(first, count) for first, count, kind in there.locked}
print(places == {(0x4000000000000000, 1)}, {kind for _, _, kind in there.locked} == {1, 3})
"""
    assert run_there("win32", program, tmp_path) == EXPECTED + "True True\n"


def test_a_sweep_without_what_macos_lacks(tmp_path: Path) -> None:
    program = """
import vorlen
sweep = vorlen.sweep("layer.xml", {"process_stages/stage_1/T": [900, 950]}, workers=1, progress=False)
print(list(sweep.table.status))
"""
    assert run_there("darwin", program, tmp_path) == "['ok', 'ok']\n"


def test_without_pdeathsig_a_process_ends_soon_after_its_parent(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    child = "import time; from vorlen._base import system; system.die_with_parent(); print('x', flush=True); time.sleep(60)"
    program = f"""
import subprocess, sys
child = subprocess.Popen([sys.executable, "-c", {child!r}], stdout=subprocess.PIPE)
child.stdout.read(1)
print(child.pid)
"""
    pid = int(run_there("darwin", program, tmp_path))
    assert wait_for(lambda: not is_running(pid), 10)


def test_sigterm_during_a_run_leaves_no_temporary_file(tmp_path: Path) -> None:
    program = """
import os, pathlib, signal, subprocess, sys
from vorlen._base.system import memory_file
from vorlen._base.termination import exit_on_sigterm, removed_on_sigterm
if os.fork() != 0:
    print(os.WEXITSTATUS(os.wait()[1]))
else:
    with exit_on_sigterm(), memory_file(b"recipe") as file, removed_on_sigterm(pathlib.Path("part")):
        assert file.path.read_bytes() == b"recipe" and not file.descriptors
        os.kill(os.getpid(), signal.SIGTERM)
        subprocess.run(["sleep", "20"])
"""
    assert run_there("darwin", program, tmp_path) == "143\n"


def test_a_process_ends_with_a_status_a_signal_or_an_exception() -> None:
    assert system.ending_of(1) == "with exit status 1"
    assert system.ending_of(-9) == "by signal 9, SIGKILL"
    assert system.ending_of(0xC0000005) == "by exception 0xC0000005"


def test_input_is_waited_for_until_the_time_is_over() -> None:
    reader, writer = os.pipe()
    with open(reader, "rb", buffering=0) as pipe:
        begin = time.monotonic()
        assert not system.has_input(pipe, 0.1) and time.monotonic() - begin >= 0.1
        os.write(writer, b"x")
        assert system.has_input(pipe, 10) and pipe.read(9) == b"x"
        os.close(writer)
        assert system.has_input(pipe, 10) and pipe.read(9) == b""


@pytest.mark.parametrize("text, expected", [(b"", True), (b"from vorlen_command import main", False)])
def test_the_command_of_pip_on_windows_is_not_taken_for_the_tool(text: bytes, expected: bool, tmp_path: Path) -> None:
    program = tmp_path / "vorlen.exe"
    program.write_bytes(b"MZ" + bytes(100_000) + b"#!python.exe\nPK" + text + bytes(200))
    program.chmod(0o755)
    assert _is_tool(program) is expected
