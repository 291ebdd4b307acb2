"""SIGTERM during a run: it ends the process without leaving a temporary file.

By default SIGTERM ends Python at once, without any clean-up. A handler of Python, on the other hand, runs only when the
call of the library returns, which may take minutes; so a thread that the signal wakes does the work during that call.
Both are active only in the main thread, and not in programs that handle SIGTERM themselves.
"""

from __future__ import annotations

import contextlib
import os
import signal
import socket
import threading
from collections.abc import Iterator
from pathlib import Path
from types import FrameType

from .system import remove_temporaries

EXIT_STATUS = 128 + signal.SIGTERM  # as shells report it


def _exit(number: int, frame: FrameType | None) -> None:
    raise SystemExit(EXIT_STATUS)


@contextlib.contextmanager
def exit_on_sigterm() -> Iterator[None]:
    """Within the block, SIGTERM raises SystemExit."""
    if threading.current_thread() is not threading.main_thread() or signal.getsignal(signal.SIGTERM) != signal.SIG_DFL:
        yield
        return
    signal.signal(signal.SIGTERM, _exit)
    try:
        yield
    finally:
        signal.signal(signal.SIGTERM, signal.SIG_DFL)


@contextlib.contextmanager
def removed_on_sigterm(path: Path) -> Iterator[None]:
    """Within the block, which calls the library, SIGTERM removes path and ends the process at once.

    Without effect outside of exit_on_sigterm().
    """
    if threading.current_thread() is not threading.main_thread() or signal.getsignal(signal.SIGTERM) is not _exit:
        yield
        return
    reader, writer = socket.socketpair()
    writer.setblocking(False)
    with reader, writer:
        before = signal.set_wakeup_fd(writer.fileno(), warn_on_full_buffer=False)
        watcher = threading.Thread(target=_end_on_sigterm, args=(reader, path), daemon=True)
        watcher.start()
        try:
            yield
        finally:
            signal.set_wakeup_fd(before)
            writer.close()
            watcher.join()


def _end_on_sigterm(reader: socket.socket, path: Path) -> None:
    """Waits for the numbers of signals until the other end is closed."""
    while numbers := reader.recv(64):
        if signal.SIGTERM in numbers:
            path.unlink(missing_ok=True)
            remove_temporaries()
            os._exit(EXIT_STATUS)
