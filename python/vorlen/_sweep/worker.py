"""The worker process of a sweep: python -m vorlen._sweep.worker

Reads one request per line from standard input, {"id": ..., "task": ...}, and answers each with one line, {"id": ...,
"row": ...}; both are JSON. If a run crashes the process, no other row is affected: vorlen._sweep.pool notices and starts
another worker.
"""

from __future__ import annotations

import contextlib
import json
import os
import sys

from .._base.library import LibraryNotFoundError, _load, find_library
from .._base.system import die_with_parent
from .row import do_row


def main() -> None:
    """Answers requests until the parent closes the pipe or ends."""
    with contextlib.suppress(BrokenPipeError):
        _serve()


def _serve() -> None:
    die_with_parent()
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
