"""Everything in this package that differs between Linux, macOS and Windows.

Other modules import none of the modules of one system, such as fcntl, and call none of the functions that some system
lacks: files and their locks, files in memory, signals, processes.
"""

from __future__ import annotations

import contextlib
import ctypes
import errno
import os
import select
import signal
import stat
import subprocess
import sys
import tempfile
import threading
import time
from collections.abc import Iterable, Iterator, Mapping, Sequence
from pathlib import Path
from typing import IO, NamedTuple

PR_SET_PDEATHSIG = 1  # <sys/prctl.h>
FIRST_EXCEPTION = 0xC0000000  # of the exit statuses of Windows that are exceptions
FILE_ATTRIBUTE_REPARSE_POINT = 0x400  # of Windows
PAUSE = 0.02  # s, between attempts

if sys.platform == "win32":
    from . import windows

    NEW_GROUP = subprocess.CREATE_NEW_PROCESS_GROUP
else:
    import fcntl

    NEW_GROUP = 0


# Files


def open_at_once(path: str, flags: int) -> int:
    """os.open() that does not wait for the other end of a pipe."""
    if sys.platform == "win32":
        return os.open(path, flags)
    return os.open(path, flags | os.O_NONBLOCK)


def create_new(path: Path, mode: int) -> None:
    """Creates an empty file. Raises FileExistsError if the name is taken."""
    os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, mode))


def open_to_lock(path: Path, *, follow: bool, create: bool) -> int:
    """A descriptor for lock(); others may rename and remove the file meanwhile.

    follow  False: a symbolic link is not opened, or is_plain() is false for it
    create  True: the file is created if it is missing, and opened for writing, too
    """
    if sys.platform == "win32":
        disposition = windows.OPEN_ALWAYS if create else windows.OPEN_EXISTING
        return windows.open_shared(str(path), write=create, disposition=disposition, follow=follow)
    kind = os.O_RDWR | os.O_CREAT if create else os.O_RDONLY
    return os.open(path, kind | os.O_CLOEXEC | (0 if follow else os.O_NOFOLLOW | os.O_NONBLOCK), 0o666)


def is_plain(opened: os.stat_result) -> bool:
    """True for a regular file with one name that is not a link."""
    is_link = getattr(opened, "st_file_attributes", 0) & FILE_ATTRIBUTE_REPARSE_POINT
    return stat.S_ISREG(opened.st_mode) and opened.st_nlink == 1 and not is_link


def lock(file: int, *, exclusive: bool, wait: bool) -> None:
    """Locks an open file as the command-line tool does. Raises BlockingIOError if it is locked and not wait."""
    if sys.platform == "win32":
        windows.lock(file, exclusive=exclusive, wait=wait)
    else:
        try:
            fcntl.flock(file, (fcntl.LOCK_EX if exclusive else fcntl.LOCK_SH) | (0 if wait else fcntl.LOCK_NB))
        except BlockingIOError:
            raise
        except OSError as error:
            if error.errno not in (errno.ENOLCK, errno.ENOTSUP, errno.ENOSYS):
                raise  # those network file systems have no locks; other processes are not noticed there


def unlock(file: int) -> None:
    """Ends the lock, also that of processes that were forked meanwhile."""
    if sys.platform == "win32":
        windows.unlock(file)
    else:
        fcntl.flock(file, fcntl.LOCK_UN)


def copy_access(old: os.stat_result, path: Path) -> None:
    """Gives a file the mode and, where that is allowed, the owner of another. On Windows it has those of its folder."""
    if sys.platform != "win32":
        with contextlib.suppress(PermissionError):
            os.chown(path, old.st_uid, old.st_gid)
        path.chmod(stat.S_IMODE(old.st_mode))


def rename(old: Path, new: Path) -> None:
    """Renames a file; one that has the new name is replaced.

    On Windows, other programs such as scanners for viruses may have the file open: attempts last half a second.
    """
    for _ in range(24 if sys.platform == "win32" else 0):
        try:
            os.replace(old, new)
            return
        except PermissionError:
            time.sleep(PAUSE)
    os.replace(old, new)


# Files in memory

_temporaries: set[Path] = set()  # of this process


class MemoryFile(NamedTuple):
    """A file that this process, and programs that run_program() starts with it, can open by its path."""

    path: Path
    descriptors: tuple[int, ...]  # that a program must inherit


@contextlib.contextmanager
def memory_file(content: bytes = b"") -> Iterator[MemoryFile]:
    """A file in memory with this content; except on Linux it is a temporary file."""
    if sys.platform == "linux":
        file = os.memfd_create("vorlen")
        try:
            with open(file, "wb", closefd=False) as writer:
                writer.write(content)
            yield MemoryFile(Path(f"/proc/self/fd/{file}"), (file,))
        finally:
            os.close(file)
    else:
        file, name = tempfile.mkstemp(prefix="vorlen-", suffix=".tmp")
        path = Path(name)
        _temporaries.add(path)
        try:
            with open(file, "wb") as writer:
                writer.write(content)
            yield MemoryFile(path, ())
        finally:
            _remove(path)
            _temporaries.discard(path)


def remove_temporaries() -> None:
    """Removes the files of memory_file() before a process ends without cleaning up."""
    for path in list(_temporaries):
        _remove(path)


def _remove(path: Path) -> None:
    with contextlib.suppress(OSError):
        path.unlink()


def run_program(
    command: Sequence[str | Path], files: Iterable[MemoryFile], timeout: float
) -> subprocess.CompletedProcess[str]:
    """Runs a program that reads these files, with its output as text. Raises as subprocess.run()."""
    return subprocess.run(
        command,
        stdin=subprocess.DEVNULL,
        capture_output=True,
        timeout=timeout,
        check=False,
        encoding="utf-8",
        errors="replace",
        pass_fds=[descriptor for file in files for descriptor in file.descriptors],
    )


# Signals and processes


def unblock(signals: Iterable[signal.Signals]) -> None:
    """Lets signals through that the program which started this one has blocked."""
    if sys.platform != "win32":
        signal.pthread_sigmask(signal.SIG_UNBLOCK, signals)


@contextlib.contextmanager
def _interrupts_blocked() -> Iterator[None]:
    """Blocks Ctrl-C in this thread and in the processes that it starts within the block."""
    if sys.platform == "win32":
        yield
    else:
        mask = signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGINT])
        try:
            yield
        finally:
            signal.pthread_sigmask(signal.SIG_SETMASK, mask)


def start_worker(command: Sequence[str], environment: Mapping[str, str]) -> subprocess.Popen[bytes]:
    """Starts a process that Ctrl-C in the terminal does not reach, with pipes for its input and output."""
    with _interrupts_blocked():
        return subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            bufsize=0,
            env=environment,
            start_new_session=True,  # without effect on Windows
            creationflags=NEW_GROUP,
        )


def die_with_parent() -> None:
    """From now on this process ends with its parent, even while it hangs in the library."""
    parent = os.getppid()
    if sys.platform == "linux":
        ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        if os.getppid() != parent:
            sys.exit()
    elif sys.platform == "win32":
        windows.end_with(parent)
    else:

        def watch() -> None:
            while os.getppid() == parent:
                time.sleep(0.5)
            remove_temporaries()
            os._exit(1)

        threading.Thread(target=watch, daemon=True).start()


def has_input(pipe: IO[bytes], timeout: float) -> bool:
    """Waits until a pipe can be read or its other end is closed. False after the time, in seconds."""
    if sys.platform == "win32":
        end = time.monotonic() + timeout
        while not windows.has_input(pipe.fileno()):
            if time.monotonic() >= end:
                return False
            time.sleep(PAUSE)
        return True
    return bool(select.select([pipe], [], [], timeout)[0])


def is_closed_pipe(error: OSError) -> bool:
    """True if a pipe could not be written because its reader has ended. Windows has another error for that."""
    return isinstance(error, BrokenPipeError) or (sys.platform == "win32" and error.errno == errno.EINVAL)


def ending_of(status: int) -> str:
    """How a process ended: "with exit status 1", "by signal 9, SIGKILL", on Windows "by exception 0xC0000005"."""
    if status < 0:
        return f"by signal {-status}, {signal.Signals(-status).name}"
    return f"with exit status {status}" if status < FIRST_EXCEPTION else f"by exception 0x{status:X}"


def processors() -> int:
    """The number of processors that this process may use; without such a limit, of those that there are."""
    if sys.platform == "linux":
        return len(os.sched_getaffinity(0))
    return os.cpu_count() or 1
