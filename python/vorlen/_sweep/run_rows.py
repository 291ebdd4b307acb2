"""Runs rows of a sweep: on worker processes of this machine, or on an executor that the caller gives."""

from __future__ import annotations

import concurrent.futures
import contextlib
import queue
import sys
import tempfile
from collections.abc import Iterator, Sequence
from concurrent.futures import Executor, Future
from pathlib import Path
from typing import Any

from .._base.files import as_path
from .._base.system import processors
from .._base.types import PathLike
from .folder import remove_row_litter
from .plan import Plan, make_task
from .pool import LocalPool, WorkerStartError, run_row
from .row import Row, empty_row


def pool_of(workers: int | None, executor: Executor | None) -> contextlib.AbstractContextManager[Executor]:
    """The executor, or worker processes on this machine."""
    if executor is not None:
        return contextlib.nullcontext(executor)
    return LocalPool(workers or processors())


@contextlib.contextmanager
def working_folder(out: PathLike | None) -> Iterator[Path]:
    """The folder out, created if it is missing; None: a temporary one."""
    if out is None:
        with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
            yield Path(folder)
        return
    place = as_path(out, "out")
    place.mkdir(parents=True, exist_ok=True)
    yield place


def run_rows(
    plan: Plan,
    folder: Path,
    numbers: Sequence[int],
    rows: list[Row],
    *,
    workers: int | None = None,
    executor: Executor | None = None,
    resume: bool = True,
    progress: bool = True,
) -> None:
    """Runs the rows with these numbers and puts each into rows, which has a place for every row of the plan.

    The folder must be locked. After an interrupt, rows has what was done.
    """
    inputs = plan.rows()
    tasks = [make_task(plan, folder, number, inputs[number], resume) for number in numbers]
    try:
        with pool_of(min(workers or processors(), len(tasks)), executor) as pool:
            run_into(rows, numbers, tasks, pool, progress)
    finally:
        if executor is None:  # whose processes may still be writing
            remove_row_litter(folder, numbers)


def run_tasks(tasks: list[dict[str, Any]], executor: Executor, progress: bool) -> list[Row]:
    """Submits tasks to an executor and waits for all of them. Returns their rows in the same order."""
    rows: list[Row] = [{}] * len(tasks)
    run_into(rows, range(len(tasks)), tasks, executor, progress)
    return rows


def run_into(
    rows: list[Row], places: Sequence[int], tasks: list[dict[str, Any]], executor: Executor, progress: bool
) -> None:
    """Runs tasks and puts the row of each into its place of rows. After an interrupt, rows has what was done."""
    ended: queue.SimpleQueue[Future[Row]] = queue.SimpleQueue()
    place_of: dict[Future[Row], int] = {}
    bar = _progress_bar(len(tasks)) if progress else None
    troubles = 0
    try:
        for place, task in zip(places, tasks):
            future = _submit(executor, task)
            place_of[future] = place
            future.add_done_callback(ended.put)
        for _ in tasks:
            future = ended.get()
            row = rows[place_of[future]] = _row_of(future, isinstance(executor, LocalPool))
            if bar is not None and row["status"] != "missing":  # it was not run
                troubles += row["status"] != "ok"
                bar.set_postfix_str(f"{troubles} not ok" if troubles else "", refresh=False)
                bar.update()
    except BaseException:
        running = [future for future in place_of if not future.cancel()]
        try:
            if not isinstance(executor, LocalPool):  # whose runs are killed
                _wait_for(running)
        finally:
            for future in running:
                if future.done() and future.exception() is None:
                    rows[place_of[future]] = future.result()
        raise
    finally:
        if bar is not None:
            bar.close()


def _wait_for(running: list[Future[Row]]) -> None:
    """Waits for runs that can't be cancelled: they write to the folder, which would be free for others."""
    count = sum(not future.done() for future in running)
    if count:
        runs = "the run that" if count == 1 else f"{count} runs that"
        print(f"waiting for {runs} can't be cancelled; Ctrl-C stops waiting", file=sys.stderr, flush=True)
        concurrent.futures.wait(running)


def _submit(executor: Executor, task: dict[str, Any]) -> Future[Row]:
    try:
        return executor.submit(run_row, task)
    except Exception as error:  # a broken pool accepts no tasks
        rejected: Future[Row] = Future()
        rejected.set_exception(error)
        return rejected


def _row_of(future: Future[Row], local: bool) -> Row:
    try:
        return future.result()
    except Exception as error:  # whatever happens to an executor, the other rows continue
        if local and isinstance(error, WorkerStartError):  # on this machine every other row would fail too
            raise
        return empty_row("lost", f"{type(error).__name__}: {error}")


def _progress_bar(total: int) -> Any:
    """A progress bar on standard error; None if tqdm is not installed."""
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    return tqdm(total=total, unit="run", smoothing=0.05)
