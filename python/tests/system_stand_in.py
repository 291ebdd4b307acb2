"""Makes Linux look like macOS or Windows to the package: the environment variable STAND_IN is "darwin" or "win32".

Tests put this file on PYTHONPATH as sitecustomize.py, so that processes which the package starts import it, too. The
modules of Python and numpy are imported first and stay those of Linux. The calls of Windows are those of Linux in
disguise: they show that the package works with the interface of Windows, as its documentation describes it.
"""

from __future__ import annotations

import ctypes
import errno
import fcntl
import os
import select
import signal
import subprocess
import sys
import sysconfig
import tempfile
import types
import uuid

import numpy
import pandas

sysconfig.get_config_vars()
BYTE = 0x4000000000000000  # that vorlen.exe locks
last_error = 0
locked: list[tuple[int, int, int]] = []  # first byte, number of bytes, kind


def reject(event: str, arguments: tuple) -> None:
    """macOS and Windows have no /proc and no prctl()."""
    if event == "open" and str(arguments[0]).startswith("/proc/"):
        raise FileNotFoundError(arguments[0])
    if event == "ctypes.dlsym" and arguments[1] == "prctl":
        raise AttributeError("prctl")


def remove(module: types.ModuleType, *names: str) -> None:
    for name in names:
        delattr(module, name)


def failed(code: int) -> int:
    global last_error
    last_error = code
    return 0


class Function:
    """A function of a DLL."""

    def __init__(self, call) -> None:
        self.call = call

    def __call__(self, *arguments):
        assert len(arguments) == len(self.argtypes)
        return self.call(*arguments)


def create_file(path, access, share, security, disposition, flags, template):
    assert (share, security, template) == (7, None, None)
    kind = os.O_RDWR if access == 0xC0000000 else os.O_RDONLY
    kind |= {3: 0, 4: os.O_CREAT}[disposition]
    try:
        return os.open(path, kind, 0o666)
    except FileNotFoundError:
        failed(2)
        return ctypes.c_void_p(-1).value


def place_of(overlapped) -> int:
    words = ctypes.cast(overlapped, ctypes.POINTER(ctypes.c_uint32))
    return words[4] + (words[5] << 32)  # after two words of the size of a pointer


def lock_file(handle, kind, reserved, low, high, overlapped):
    locked.append((place_of(overlapped), low + (high << 32), kind))
    try:
        fcntl.flock(handle, (fcntl.LOCK_EX if kind & 2 else fcntl.LOCK_SH) | (fcntl.LOCK_NB if kind & 1 else 0))
    except BlockingIOError:
        return failed(33)
    return 1


def unlock_file(handle, reserved, low, high, overlapped):
    assert (place_of(overlapped), low, high) == (BYTE, 1, 0)
    fcntl.flock(handle, fcntl.LOCK_UN)
    return 1


def windows_error(code: int) -> OSError:
    error = FileNotFoundError(errno.ENOENT, "not found") if code == 2 else OSError(code, "error")
    error.winerror = code
    return error


def peek(pipe, buffer, size, read, available, left):
    ready = bool(select.select([pipe], [], [], 0)[0])
    ctypes.cast(available, ctypes.POINTER(ctypes.c_uint32))[0] = ready
    return 1


sys.platform = os.environ["STAND_IN"]
sys.addaudithook(reject)
remove(os, "memfd_create", "sched_getaffinity", "sched_setaffinity", "posix_fadvise", "pipe2")
if sys.platform == "win32":
    for name in ("fcntl", "resource", "termios", "pwd", "grp", "pty"):
        sys.modules[name] = None
    remove(os, "chown", "fork", "getuid", "geteuid", "killpg", "mkfifo")
    remove(os, "O_CLOEXEC", "O_DIRECTORY", "O_NOFOLLOW", "O_NONBLOCK")
    remove(signal, "pthread_sigmask", "SIG_BLOCK", "SIG_UNBLOCK", "SIG_SETMASK", "SIGHUP", "SIGUSR1", "SIGALRM")
    kernel = types.SimpleNamespace(
        CreateFileW=Function(create_file), LockFileEx=Function(lock_file), UnlockFileEx=Function(unlock_file),
        PeekNamedPipe=Function(peek), OpenProcess=Function(None), WaitForSingleObject=Function(None),
    )
    ctypes.WinDLL = lambda name, use_last_error: kernel
    ctypes.get_last_error = lambda: last_error
    ctypes.WinError = windows_error
    os.O_NOINHERIT = 0
    subprocess.CREATE_NEW_PROCESS_GROUP = 0x200
    sys.modules["msvcrt"] = types.SimpleNamespace(
        open_osfhandle=lambda handle, flags: handle, get_osfhandle=lambda file: file
    )
