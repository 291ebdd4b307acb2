"""Worker processes that run the rows of a sweep, and the function that executors call.

Each thread that runs rows owns one worker process. It is started with the first row and reused, because importing
pandas takes longer than many runs. A worker that crashes or hangs is replaced, and its row records that.
"""

from __future__ import annotations

import json
import os
import select
import signal
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from ._plan import row_files
from ._row import add_row
from ._scheme import scheme_of
from ._source import RecipeSource
from ._status import failed_path, write_status

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
    package_parent = str(Path(__file__).resolve().parents[1])
    paths = [package_parent, *environment.get("PYTHONPATH", "").split(os.pathsep)]
    environment["PYTHONPATH"] = os.pathsep.join(path for path in paths if path)
    for name in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
        environment.setdefault(name, "1")
    return environment


class WorkerProcess:
    """One worker process; it runs one row at a time."""

    def __init__(self) -> None:
        self.process = subprocess.Popen(
            [sys.executable, "-m", "vorlen._worker"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            bufsize=0,
            env=_worker_environment(),
            start_new_session=True,  # the caller handles an interrupt from the terminal
        )
        self.unread = b""
        try:
            greeting = self._read_line(None).decode()  # the imports are done: timeouts count from here
        except WorkerEnded as error:
            greeting = error.text
        if greeting != "ready":
            self.close()
            raise WorkerStartError(f"the worker process could not be started: {greeting}")

    def ask(self, task: dict[str, Any]) -> dict[str, Any]:
        """Runs a row in the worker. Raises WorkerEnded if the worker ends or times out; it can't be used again then."""
        try:
            self.process.stdin.write(json.dumps(task).encode() + b"\n")
        except BrokenPipeError:
            raise self._ended() from None
        return json.loads(self._read_line(task["timeout"]))

    def _read_line(self, timeout: float | None) -> bytes:
        deadline = None if timeout is None else time.monotonic() + timeout
        while b"\n" not in self.unread:
            left = None if deadline is None else max(0.0, deadline - time.monotonic())
            if not select.select([self.process.stdout], [], [], left)[0]:
                self.close()
                raise WorkerEnded("timeout", f"not finished within {timeout:g} s")
            part = self.process.stdout.read(65536)
            if not part:
                raise self._ended()
            self.unread += part
        line, self.unread = self.unread.split(b"\n", 1)
        return line

    def _ended(self) -> WorkerEnded:
        self.process.wait()
        self.close()
        code = self.process.returncode
        reason = f"by signal {-code}, {signal.Signals(-code).name}" if code < 0 else f"with exit status {code}"
        return WorkerEnded("crashed", f"the worker process ended {reason}")

    def close(self) -> None:
        """Kills the process."""
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


def run_row(task: dict[str, Any]) -> dict[str, Any]:
    """Runs one row of a sweep in the worker process of the calling thread. Executors call this, on any machine."""
    worker: WorkerProcess | None = getattr(_thread, "worker", None)
    if worker is None:
        worker = _thread.worker = WorkerProcess()
        getattr(_thread, "workers", []).append(worker)
    stopping = getattr(_thread, "stopping", threading.Event())
    if stopping.is_set():  # while the worker was starting
        worker.process.kill()
    begin = time.perf_counter()
    try:
        return worker.ask(task)
    except WorkerEnded as error:
        _thread.worker = None
        row = {"status": error.status, "text": error.text, "values": {}, "result": False}
        if not stopping.is_set():
            _record_loss(task, row, time.perf_counter() - begin)
        return row


def _record_loss(task: dict[str, Any], row: dict[str, Any], wall_time: float) -> None:
    """Writes the status file of a row whose worker could not."""
    files = row_files(Path(task["folder"]), task["number"])
    for part in files.result.parent.glob(f".{files.result.name}.*"):
        part.unlink(missing_ok=True)
    if files.recipe.exists():
        source = RecipeSource.of(files.recipe)
        scheme = scheme_of(source.content)
        write_status(files.result, failed_path(files.result), 1, row["text"], wall_time, source, b"", scheme)
        add_row(files.status, row)


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


def default_workers() -> int:
    """The number of processors that this process may use."""
    return len(os.sched_getaffinity(0))
