"""Ctrl-C and SIGTERM in the commands of this package, python3 -m vorlen: a line on stderr instead of a traceback.

vorlen/__init__.py imports this module first. From then on, and as long as the imports take, a signal ends the process at
once, because nothing has been done yet. While a command runs, a signal raises KeyboardInterrupt, so that the command can
say what is done. In other programs this module has no effect.
"""

from __future__ import annotations

import os
import signal
import sys
from collections.abc import Callable
from types import FrameType
from typing import Any, NoReturn

SIGNALS = {signal.SIGINT: signal.default_int_handler, signal.SIGTERM: signal.SIG_DFL}  # and their usual handlers
Handler = Callable[[int, FrameType | None], Any]


class Terminated(KeyboardInterrupt):
    """SIGTERM has arrived."""


def status_of(interrupt: KeyboardInterrupt) -> int:
    """The exit status of a command after an interrupt, as shells report the signal."""
    return 128 + (signal.SIGTERM if isinstance(interrupt, Terminated) else signal.SIGINT)


def run_command(command: Callable[[], int]) -> NoReturn:
    """Runs a command and ends the process with the status that it returns."""
    sys.unraisablehook = _end_if_interrupted
    _handle(_end, _raise)
    try:
        status = command()
    except KeyboardInterrupt as interrupt:
        _end(status_of(interrupt) - 128, None)
    _handle(_raise, signal.SIG_IGN)  # the rest takes only moments
    if status > 128:
        _flush()
        os._exit(status)  # without waiting for threads, which may have been interrupted anywhere
    sys.exit(status)


def _is_command() -> bool:
    """True while `python3 -m vorlen` imports the package."""
    return sys.argv[:1] == ["-m"] and sys.orig_argv[-len(sys.argv)] in ("vorlen", "-mvorlen")


def _handle(before: object, handler: Handler | signal.Handlers) -> None:
    """Replaces the handlers of the signals. Ignored signals, as after nohup, stay ignored."""
    for number, usual in SIGNALS.items():
        if signal.getsignal(number) in (before, usual):
            signal.signal(number, handler)


def _end(number: int, frame: FrameType | None) -> NoReturn:
    _flush()
    os.write(2, b"vorlen: interrupted\n")
    os._exit(128 + number)


def _raise(number: int, frame: FrameType | None) -> NoReturn:
    raise Terminated if number == signal.SIGTERM else KeyboardInterrupt


def _flush() -> None:
    for stream in (sys.stdout, sys.stderr):
        try:
            stream.flush()
        except (OSError, ValueError, RuntimeError, AttributeError):  # closed, or interrupted while it was written to
            pass


def _end_if_interrupted(unraisable: sys.UnraisableHookArgs) -> None:
    """An interrupt in a destructor or a callback, from which no exception can leave, ends the process all the same."""
    if isinstance(unraisable.exc_value, KeyboardInterrupt):
        _end(status_of(unraisable.exc_value) - 128, None)
    sys.__unraisablehook__(unraisable)


if _is_command():
    _handle(_end, _end)
    from .system import unblock  # not before the handlers are there

    unblock(SIGNALS)  # the tool blocks SIGINT while the interpreter starts
