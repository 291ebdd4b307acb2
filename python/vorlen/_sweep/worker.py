"""The worker process of a sweep: python -m vorlen._sweep.worker

Reads one request per line from standard input, {"id": ..., "task": ...}, and answers each with one line, {"id": ...,
"row": ...}; both are JSON. If a run crashes the process, no other row is affected: vorlen._sweep.pool notices and starts
another worker.
"""

from __future__ import annotations

import contextlib
import ctypes
import json
import os
import signal
import sys

from .._base.library import LibraryNotFoundError, _load, find_library
from .row import do_row

PR_SET_PDEATHSIG = 1  # <sys/prctl.h>


def _die_with_parent() -> None:
    """Ends the worker with its parent, even while it hangs in the library."""
    parent = os.getppid()
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    if os.getppid() != parent:
        sys.exit()


def main() -> None:
    """Answers requests until the parent closes the pipe or ends."""
    with contextlib.suppress(BrokenPipeError):
        _serve()


def _serve() -> None:
    _die_with_parent()
    answers = os.fdopen(os.dup(1), "wb", buffering=0)
    os.dup2(2, 1)  # output of the library must not be mistaken for an answer
    try:
        _load(find_library())
    except LibraryNotFoundError as error:
        answers.write(f"{error}\n".encode())
        return
    answers.write(b"ready\n")
    for line in sys.stdin.buffer:
        request = json.loads(line)
        answer = {"id": request["id"], "row": do_row(request["task"])}
        answers.write(json.dumps(answer).encode() + b"\n")


if __name__ == "__main__":
    main()
