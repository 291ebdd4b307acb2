"""Calls of Windows that Python has no function for: files that others may rename while they are open, locks, pipes.

Only system.py imports this module. On other systems it is empty.
"""

from __future__ import annotations

import ctypes
import errno
import os
import sys
import threading

if sys.platform == "win32":
    import msvcrt

    GENERIC_READ, GENERIC_WRITE = 0x80000000, 0x40000000
    SHARE_ALL = 0x7  # reading, writing, and renaming or removing
    CREATE_NEW, OPEN_EXISTING, OPEN_ALWAYS = 1, 3, 4
    FILE_ATTRIBUTE_NORMAL, FILE_FLAG_OPEN_REPARSE_POINT = 0x80, 0x00200000
    INVALID_HANDLE = ctypes.c_void_p(-1).value
    LOCKFILE_FAIL_IMMEDIATELY, LOCKFILE_EXCLUSIVE_LOCK = 0x1, 0x2
    ERROR_LOCK_VIOLATION, ERROR_IO_PENDING = 33, 997
    OFFSET_HIGH = 0x40000000  # the locked byte is far beyond the end, because a locked byte can't be read by others
    SYNCHRONIZE, INFINITE = 0x00100000, 0xFFFFFFFF
    LONG = ctypes.c_uint32  # DWORD and BOOL

    class _Overlapped(ctypes.Structure):
        _fields_ = [
            ("internal", ctypes.c_void_p),
            ("internal_high", ctypes.c_void_p),
            ("offset", LONG),
            ("offset_high", LONG),
            ("event", ctypes.c_void_p),
        ]

    _kernel = ctypes.WinDLL("kernel32", use_last_error=True)
    _create_file = _kernel.CreateFileW
    _create_file.argtypes = [ctypes.c_wchar_p, LONG, LONG, ctypes.c_void_p, LONG, LONG, ctypes.c_void_p]
    _create_file.restype = ctypes.c_void_p
    _lock_file = _kernel.LockFileEx
    _lock_file.argtypes = [ctypes.c_void_p, LONG, LONG, LONG, LONG, ctypes.c_void_p]
    _unlock_file = _kernel.UnlockFileEx
    _unlock_file.argtypes = [ctypes.c_void_p, LONG, LONG, LONG, ctypes.c_void_p]
    _peek = _kernel.PeekNamedPipe
    _peek.argtypes = [ctypes.c_void_p, ctypes.c_void_p, LONG, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p]
    _open_process = _kernel.OpenProcess
    _open_process.argtypes = [LONG, LONG, LONG]
    _open_process.restype = ctypes.c_void_p
    _wait_for = _kernel.WaitForSingleObject
    _wait_for.argtypes = [ctypes.c_void_p, LONG]

    def open_shared(path: str, *, write: bool, disposition: int, follow: bool = True) -> int:
        """The descriptor of a file that others may read, write, rename and remove meanwhile, unlike with os.open()."""
        access = GENERIC_READ | (GENERIC_WRITE if write else 0)
        flags = FILE_ATTRIBUTE_NORMAL | (0 if follow else FILE_FLAG_OPEN_REPARSE_POINT)
        handle = _create_file(path, access, SHARE_ALL, None, disposition, flags, None)
        if handle is None or handle == INVALID_HANDLE:
            error = ctypes.WinError(ctypes.get_last_error())
            raise OSError(error.errno, error.strerror, path, error.winerror)
        return msvcrt.open_osfhandle(handle, os.O_NOINHERIT | (os.O_RDWR if write else os.O_RDONLY))

    def lock(file: int, *, exclusive: bool, wait: bool) -> None:
        """Locks the byte that vorlen.exe locks. Raises BlockingIOError if it is locked and not wait."""
        place = _Overlapped(offset_high=OFFSET_HIGH)
        kind = (LOCKFILE_EXCLUSIVE_LOCK if exclusive else 0) | (0 if wait else LOCKFILE_FAIL_IMMEDIATELY)
        if _lock_file(msvcrt.get_osfhandle(file), kind, 0, 1, 0, ctypes.byref(place)):
            return
        code = ctypes.get_last_error()
        if code in (ERROR_LOCK_VIOLATION, ERROR_IO_PENDING):
            raise BlockingIOError(errno.EAGAIN, os.strerror(errno.EAGAIN))
        raise ctypes.WinError(code)

    def unlock(file: int) -> None:
        place = _Overlapped(offset_high=OFFSET_HIGH)
        if not _unlock_file(msvcrt.get_osfhandle(file), 0, 1, 0, ctypes.byref(place)):
            raise ctypes.WinError(ctypes.get_last_error())

    def has_input(pipe: int) -> bool:
        """True if a pipe has bytes to read or its other end is closed."""
        count = LONG()
        return not _peek(msvcrt.get_osfhandle(pipe), None, 0, None, ctypes.byref(count), None) or count.value > 0

    def end_with(process: int) -> None:
        """Ends this process as soon as another one has ended."""
        handle = _open_process(SYNCHRONIZE, 0, process)
        if not handle:
            os._exit(1)  # it has ended already

        def watch() -> None:
            _wait_for(handle, INFINITE)
            os._exit(1)

        threading.Thread(target=watch, daemon=True).start()
