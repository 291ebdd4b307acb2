"""vorlen._base.files: files are put in place whole, and only where a file may be; locks of runs."""

from __future__ import annotations

import errno
import multiprocessing
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections.abc import Iterator
from multiprocessing.synchronize import Event
from pathlib import Path

import pytest

import vorlen
from support import V_DEFECTS
from vorlen._base.files import BusyError, check_place, is_part_locked, lock_file, locked_part, replace_file

NOBODY = 65534  # user without rights


def names(folder: Path) -> list[str]:
    return sorted(path.name for path in folder.iterdir())


def test_threads_that_save_at_once_leave_one_whole_file(tmp_path: Path) -> None:
    contents = [bytes([65 + number]) * 100_000 for number in range(8)]
    failures = []

    def save(content: bytes) -> None:
        try:
            for _ in range(20):
                replace_file(tmp_path / "r.xml", content)
        except OSError as error:
            failures.append(error)

    threads = [threading.Thread(target=save, args=(content,)) for content in contents]
    for thread in threads:
        thread.start()
    while any(thread.is_alive() for thread in threads):
        if (tmp_path / "r.xml").exists():
            assert (tmp_path / "r.xml").read_bytes() in contents
    assert failures == [] and names(tmp_path) == ["r.xml"]


def test_a_link_stays_and_its_target_is_replaced(tmp_path: Path) -> None:
    (tmp_path / "folder").mkdir()
    (tmp_path / "folder" / "real").write_bytes(b"old")
    (tmp_path / "link").symlink_to("folder/real")
    (tmp_path / "link_to_link").symlink_to("link")
    assert replace_file(tmp_path / "link_to_link", b"new") == tmp_path / "link_to_link"
    assert (tmp_path / "link").is_symlink() and (tmp_path / "link_to_link").is_symlink()
    assert (tmp_path / "folder" / "real").read_bytes() == b"new"


def test_a_dangling_link_gets_its_target(tmp_path: Path) -> None:
    (tmp_path / "link").symlink_to("real")
    replace_file(tmp_path / "link", b"new")
    assert (tmp_path / "link").is_symlink() and (tmp_path / "real").read_bytes() == b"new"
    (tmp_path / "astray").symlink_to("none/real")
    with pytest.raises(FileNotFoundError, match="folder not found"):
        replace_file(tmp_path / "astray", b"new")
    (tmp_path / "loop").symlink_to("loop")
    with pytest.raises(OSError) as caught:
        replace_file(tmp_path / "loop", b"new")
    assert caught.value.errno == errno.ELOOP and "loop" in str(caught.value)


def test_mode_and_owner_of_the_old_file_stay(tmp_path: Path) -> None:
    for mode in (0o600, 0o640, 0o664, 0o755, 0o2755):
        path = tmp_path / "r"
        path.write_bytes(b"old")
        os.chown(path, NOBODY, NOBODY) if os.geteuid() == 0 else None
        path.chmod(mode)
        old = path.stat()
        replace_file(path, b"new")
        new = path.stat()
        assert (new.st_mode, new.st_uid, new.st_gid) == (old.st_mode, old.st_uid, old.st_gid)


@pytest.mark.parametrize("mask", [0o022, 0o077, 0o002])
def test_a_new_file_has_the_mode_that_the_umask_gives(mask: int, tmp_path: Path) -> None:
    old = os.umask(mask)
    try:
        replace_file(tmp_path / "r", b"new")
    finally:
        os.umask(old)
    assert (tmp_path / "r").stat().st_mode & 0o777 == 0o666 & ~mask


def test_a_private_file_is_not_readable_by_others_while_it_is_replaced(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    (tmp_path / "r").touch(mode=0o600)
    modes = []
    chmod = Path.chmod
    monkeypatch.setattr(Path, "chmod", lambda path, mode: (modes.append(path.stat().st_mode), chmod(path, mode)))
    replace_file(tmp_path / "r", b"new")
    assert modes and all(mode & 0o077 == 0 for mode in modes)


@pytest.mark.parametrize("path", ["/dev/null", "/dev/full"])
def test_devices_are_rejected(path: str) -> None:
    before = os.stat(path).st_mode
    with pytest.raises((ValueError, OSError)):
        replace_file(path, b"new")
    assert os.stat(path).st_mode == before


def test_folders_and_pipes_are_rejected(tmp_path: Path) -> None:
    (tmp_path / "folder").mkdir()
    os.mkfifo(tmp_path / "pipe")
    (tmp_path / "link").symlink_to("pipe")
    for name, error in (("folder", IsADirectoryError), ("pipe", ValueError), ("link", ValueError)):
        with pytest.raises(error, match=name):
            replace_file(tmp_path / name, b"new")
    with pytest.raises(FileNotFoundError, match="folder not found"):
        replace_file(tmp_path / "pipe" / "r", b"new")
    assert names(tmp_path) == ["folder", "link", "pipe"] and (tmp_path / "pipe").is_fifo()


def test_an_input_is_not_overwritten_even_through_links(tmp_path: Path) -> None:
    (tmp_path / "input").write_bytes(b"old")
    (tmp_path / "link").symlink_to("input")
    os.link(tmp_path / "input", tmp_path / "hard")
    for path in ("input", "link", "hard"):
        for given in ("input", "link", "hard"):
            with pytest.raises(ValueError, match="is an input"):
                replace_file(tmp_path / path, b"new", inputs=[None, tmp_path / "missing", tmp_path / given])
    assert (tmp_path / "input").read_bytes() == b"old"
    replace_file(tmp_path / "other", b"new", inputs=[tmp_path / "input"])


@pytest.mark.parametrize("value", [None, 3, b"bytes", ["r"]])
def test_other_types_than_paths_are_rejected(value: object) -> None:
    with pytest.raises(TypeError, match="path must be a path, got"):
        check_place(value)
    with pytest.raises(ValueError, match="null"):
        check_place("a\0b")


def test_a_full_disk_leaves_the_old_file_and_no_litter(tmp_path: Path) -> None:
    """In another process, with a limit on the size of files."""
    (tmp_path / "r").write_bytes(b"old")
    program = """
import resource, signal
from vorlen._base.files import replace_file
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))
try:
    replace_file("r", b"x" * 2000)
except OSError as error:
    print(error.errno, error.filename)
"""
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    command = [sys.executable, "-c", program]
    done = subprocess.run(command, cwd=tmp_path, env=environment, capture_output=True, text=True, check=True)
    assert done.stdout == f"{errno.EFBIG} r\n"
    assert names(tmp_path) == ["r"] and (tmp_path / "r").read_bytes() == b"old"


@pytest.mark.parametrize("error", [OSError(errno.EIO, "Input/output error"), KeyboardInterrupt()])
def test_a_failure_of_the_last_step_leaves_the_old_file_and_no_litter(
    error: BaseException, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    (tmp_path / "r").write_bytes(b"old")

    def fail(*_: object) -> None:
        raise error

    monkeypatch.setattr(os, "replace", fail)
    with pytest.raises(type(error)) as caught:
        replace_file(tmp_path / "r", b"new")
    if isinstance(error, OSError):
        assert caught.value.filename == str(tmp_path / "r")
    assert names(tmp_path) == ["r"] and (tmp_path / "r").read_bytes() == b"old"


def test_a_name_of_the_greatest_length_can_be_written(tmp_path: Path) -> None:
    name = "n" * 255
    replace_file(tmp_path / name, b"new")
    with locked_part(tmp_path / name):
        assert is_part_locked(tmp_path / name)
    assert names(tmp_path) == [name]


@pytest.fixture
def open_folder() -> Iterator[Path]:
    """A folder that every user can reach."""
    folder = Path(tempfile.mkdtemp(prefix="vorlen-test-"))
    folder.chmod(0o755)
    yield folder
    shutil.rmtree(folder)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can become another user")
def test_missing_rights_are_an_error_and_nothing_is_lost(open_folder: Path) -> None:
    locked = open_folder / "locked"
    locked.mkdir()
    (locked / "r.txt").write_bytes(b"old")
    mine = open_folder / "mine"
    mine.mkdir()
    os.chown(mine, NOBODY, NOBODY)
    (mine / "foreign.txt").write_bytes(b"old")
    package = open_folder / "package"
    shutil.copytree(Path(vorlen.__file__).parent, package / "vorlen", ignore=shutil.ignore_patterns("__pycache__"))
    (open_folder / "recipe.xml").write_bytes(V_DEFECTS.read_bytes())
    program = """
import sys
import vorlen
from vorlen._base.files import replace_file
for path in ("locked/r.txt", "locked/new.txt", "mine/foreign.txt"):
    for write in (lambda: replace_file(path, b"new"), lambda: vorlen.run("recipe.xml", path)):
        try:
            write()
        except PermissionError as error:
            print(error)
replace_file("mine/new.txt", b"new")
"""
    environment = {"PYTHONPATH": str(package), "HOME": str(mine), "PATH": os.environ["PATH"]}
    done = subprocess.run(
        [sys.executable, "-B", "-c", program], cwd=open_folder, env=environment, user=NOBODY, group=NOBODY,
        extra_groups=[], capture_output=True, text=True, check=False,
    )
    assert done.returncode == 0, done.stderr
    lines = ["the folder of locked/r.txt is", "the folder of locked/new.txt is", "mine/foreign.txt is"]
    lines[0] = "locked/r.txt is"  # the file itself is not writable either
    assert done.stdout.splitlines() == [f"{line} not writable" for line in lines for _ in range(2)]
    assert names(locked) == ["r.txt"] and (locked / "r.txt").read_bytes() == b"old"
    assert names(mine) == ["foreign.txt", "new.txt"] and (mine / "foreign.txt").read_bytes() == b"old"


def hold_part(place: Path, ready: Event, release: Event) -> None:
    with locked_part(place) as part:
        part.write_bytes(b"unfinished")
        ready.set()
        release.wait(60)


@pytest.mark.parametrize("kind", [threading.Thread, multiprocessing.get_context("spawn").Process])
def test_a_second_run_on_the_same_output_is_rejected_at_once(kind: type, tmp_path: Path) -> None:
    place = tmp_path / "r.txt"
    context = multiprocessing.get_context("spawn")
    ready, release = context.Event(), context.Event()
    holder = kind(target=hold_part, args=(place, ready, release))
    holder.start()
    assert ready.wait(60)
    assert is_part_locked(place) and not is_part_locked(tmp_path / "other.txt")
    with pytest.raises(BusyError, match=f"another run is writing {place}"):
        with locked_part(place):
            pass
    assert (tmp_path / ".r.txt.part").read_bytes() == b"unfinished"
    release.set()
    holder.join(60)
    assert names(tmp_path) == [] and not is_part_locked(place)
    with locked_part(place):
        pass


def test_the_part_that_a_killed_run_has_left_is_used_again(tmp_path: Path) -> None:
    place = tmp_path / "r.txt"
    context = multiprocessing.get_context("spawn")
    ready, release = context.Event(), context.Event()
    holder = context.Process(target=hold_part, args=(place, ready, release))
    holder.start()
    assert ready.wait(60)
    holder.kill()
    holder.join(60)
    assert (tmp_path / ".r.txt.part").read_bytes() == b"unfinished" and not is_part_locked(place)
    with locked_part(place) as part:
        assert part.read_bytes() == b""
    assert names(tmp_path) == []


def test_something_else_under_the_name_of_the_part_is_left_alone(tmp_path: Path) -> None:
    part = tmp_path / ".r.txt.part"
    (tmp_path / "precious").write_bytes(b"old")
    os.link(tmp_path / "precious", part)
    with pytest.raises(ValueError, match="in the way"), locked_part(tmp_path / "r.txt"):
        pass
    part.unlink()
    part.symlink_to("precious")
    with pytest.raises(OSError, match="r.txt"), locked_part(tmp_path / "r.txt"):
        pass
    part.unlink()
    os.mkfifo(part)
    with pytest.raises(ValueError, match="in the way"), locked_part(tmp_path / "r.txt"):
        pass
    assert part.is_fifo() and (tmp_path / "precious").read_bytes() == b"old"


def test_a_part_that_was_put_in_place_is_not_removed_with_its_name(tmp_path: Path) -> None:
    with locked_part(tmp_path / "r.txt") as part:
        part.write_bytes(b"first")
        os.replace(part, tmp_path / "r.txt")
        part.write_bytes(b"of the next run")
    assert (tmp_path / "r.txt").read_bytes() == b"first" and part.read_bytes() == b"of the next run"


def test_locks_of_a_file_exclude_each_other_unless_both_are_shared(tmp_path: Path) -> None:
    path = tmp_path / "lock"
    with lock_file(path, exclusive=False), lock_file(path, exclusive=False):
        with pytest.raises(BlockingIOError), lock_file(path, exclusive=True):
            pass
    with lock_file(path, exclusive=True):
        with pytest.raises(BlockingIOError), lock_file(path, exclusive=False):
            pass
    with lock_file(path, exclusive=True, wait=True):
        pass
    assert path.exists()


def test_a_lock_ends_with_its_block_even_if_a_process_forked_meanwhile_lives_on(tmp_path: Path) -> None:
    with lock_file(tmp_path / "lock", exclusive=True):
        child = os.fork()
        if child == 0:
            time.sleep(60)
            os._exit(0)
    try:
        with lock_file(tmp_path / "lock", exclusive=True):
            pass
    finally:
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
