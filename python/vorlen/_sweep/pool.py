"""Worker processes that run the rows of a sweep, and the function that executors call.

Each thread that runs rows owns one worker process. It is started with the first row and reused, because importing
pandas takes longer than many runs. A worker that crashes or hangs is replaced, and its row records that.
"""

from __future__ import annotations

import json
import math
import os
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from .._base.system import ending_of, has_input, is_closed_pipe, start_worker
from .._recipe.scheme import scheme_of
from .._recipe.source import RecipeSource
from .._runs.status import write_status
from .plan import row_files
from .row import add_row, empty_row, start_row

LONGEST_WAIT = 1e6  # s, of one call of has_input(); select() has a limit

_thread = threading.local()


class WorkerStartError(RuntimeError):
    """A worker process could not start: something is wrong with the installation there."""


class WorkerEnded(Exception):
    """The worker process ended, or was killed, during a row. status and text are those of the row."""

    def __init__(self, status: str, text: str) -> None:
        super().__init__(text)
        self.status = status
        self.text = text


def _worker_environment() -> dict[str, str]:
    """The environment of this process, with this package on the path and numpy's own threads switched off."""
    environment = dict(os.environ)
    package_parent = str(Path(__file__).resolve().parents[2])
    paths = [package_parent, *environment.get("PYTHONPATH", "").split(os.pathsep)]
    environment["PYTHONPATH"] = os.pathsep.join(path for path in paths if path)
    for name in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
        environment.setdefault(name, "1")
    return environment


class WorkerProcess:
    """One worker process; it runs one row at a time."""

    def __init__(self) -> None:
        # The caller handles interrupts and kills the worker, which would print a traceback.
        process = start_worker([sys.executable, "-m", "vorlen._sweep.worker"], _worker_environment())
        assert process.stdin is not None and process.stdout is not None
        self.process = process
        self.requests_pipe, self.answers_pipe = process.stdin, process.stdout
        self.owner = os.getpid()
        self.unread = b""
        self.requests = 0
        try:
            greeting = self._read_line(None).decode()  # the imports are done: timeouts count from here
        except WorkerEnded as error:
            greeting = error.text
        if greeting != "ready":
            self.close()
            raise WorkerStartError(f"the worker process could not be started: {greeting}")

    def ask(self, task: dict[str, Any]) -> dict[str, Any]:
        """Runs a row in the worker. After any exception the worker is closed, so that no later row gets this answer.

        Raises WorkerEnded if the worker ends or times out.
        """
        self.requests += 1
        try:
            self._write(json.dumps({"id": self.requests, "task": task}).encode() + b"\n")
            answer: dict[str, Any] = json.loads(self._read_line(task["timeout"]))
            if answer["id"] != self.requests:
                raise RuntimeError("the worker process answered another request")
            row: dict[str, Any] = answer["row"]
            return row
        except BaseException:
            self.close()
            raise

    def _write(self, request: bytes) -> None:
        try:
            while request:
                request = request[self.requests_pipe.write(request) :]
        except OSError as error:
            if not is_closed_pipe(error):
                raise
            raise self._ended() from None

    def _read_line(self, timeout: float | None) -> bytes:
        deadline = None if timeout is None else time.monotonic() + timeout
        while b"\n" not in self.unread:
            left = LONGEST_WAIT if deadline is None else deadline - time.monotonic()
            if not has_input(self.answers_pipe, max(0.0, min(left, LONGEST_WAIT))):
                if left > LONGEST_WAIT or deadline is None:
                    continue
                raise WorkerEnded("timeout", f"not finished within {timeout:g} s")
            part = self.answers_pipe.read(65536)
            if not part:
                raise self._ended()
            self.unread += part
        line, self.unread = self.unread.split(b"\n", 1)
        return line

    def _ended(self) -> WorkerEnded:
        return WorkerEnded("crashed", f"the worker process ended {ending_of(self.process.wait())}")

    def close(self) -> None:
        """Kills the process."""
        self.process.kill()
        self.process.wait()
        self.requests_pipe.close()
        self.answers_pipe.close()

    def __del__(self) -> None:
        """The thread that used the worker has ended."""
        if getattr(self, "owner", None) == os.getpid():
            self.close()


def run_row(task: dict[str, Any]) -> dict[str, Any]:
    """Runs one row of a sweep in the worker process of the calling thread. Executors call this, on any machine.

    A task that has the key "start_by", in seconds since the epoch, is not run after that time: its row is "missing".
    """
    if time.time() > task.get("start_by", math.inf):
        return empty_row("missing")
    worker: WorkerProcess | None = getattr(_thread, "worker", None)
    if worker is None or worker.owner != os.getpid():  # a forked process must not share the worker of its parent
        worker = _thread.worker = WorkerProcess()
        getattr(_thread, "workers", []).append(worker)
    stopping = getattr(_thread, "stopping", threading.Event())
    if stopping.is_set():  # while the worker was starting
        worker.process.kill()
    begin = time.perf_counter()
    try:
        return worker.ask(task)
    except BaseException as error:
        _thread.worker = None
        if not isinstance(error, WorkerEnded):
            raise
        row = empty_row(error.status, error.text)
        return row if stopping.is_set() else _record_loss(task, row, time.perf_counter() - begin)


def _record_loss(task: dict[str, Any], row: dict[str, Any], wall_time: float) -> dict[str, Any]:
    """Writes the status file of a row whose worker could not. Returns the row; "error" if that is impossible.

    A row that was finished before, and that the worker was only to check, stays.
    """
    files = row_files(Path(task["folder"]), task["number"])
    try:
        for part in files.result.parent.glob(f".{task['number']:06d}.*"):
            part.unlink(missing_ok=True)
        content, done = start_row(task, Path(task["folder"]))
        if done is not None:
            return done
        source = RecipeSource(files.recipe, content)
        write_status(files.result, files.failed, 1, row["text"], wall_time, source, b"", scheme_of(content))
        add_row(files.status, row)
    except (OSError, ValueError) as error:
        return empty_row("error", f"{row['text']}\n{type(error).__name__}: {error}")
    return row


def _enter_pool(workers: list[WorkerProcess], stopping: threading.Event) -> None:
    _thread.workers, _thread.stopping = workers, stopping


class LocalPool(ThreadPoolExecutor):
    """An executor on this machine: threads that only wait for their worker processes."""

    def __init__(self, workers: int) -> None:
        self.stopping = threading.Event()
        self.workers: list[WorkerProcess] = []
        super().__init__(workers, "vorlen-sweep", _enter_pool, (self.workers, self.stopping))

    def __exit__(self, kind: Any, *_: Any) -> None:
        if kind is not None:  # an interrupt: do not wait for any row
            self.stopping.set()
            self.shutdown(wait=False, cancel_futures=True)
            for worker in list(self.workers):
                worker.process.kill()
        self.shutdown(wait=True)
        for worker in self.workers:
            worker.close()
