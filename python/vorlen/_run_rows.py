"""Runs rows of a sweep: on worker processes of this machine, or on an executor that the caller gives."""

from __future__ import annotations

import concurrent.futures
import queue
import sys
from collections.abc import Sequence
from concurrent.futures import Executor, Future
from pathlib import Path
from typing import Any

from ._plan import Plan, make_task
from ._pool import LocalPool, WorkerStartError, default_workers, run_row
from ._row import Row, empty_row
from ._sweep_folder import remove_row_litter


def check_workers(workers: Any, executor: object) -> None:
    """Raises TypeError or ValueError unless at most one of the two is given, and workers is a positive integer."""
    if workers is None:
        return
    if isinstance(workers, bool) or not hasattr(workers, "__index__"):
        raise TypeError(f"workers must be a positive integer or None, got {workers!r}")
    if executor is not None:
        raise ValueError("give either workers or executor, not both: an executor has its own workers")
    if workers.__index__() < 1:
        raise ValueError(f"workers must be 1 or more, got {workers}")


def check_flags(**flags: object) -> None:
    """Raises TypeError for what is not a truth value."""
    for name, value in flags.items():
        if not isinstance(value, bool):
            raise TypeError(f"{name} must be True or False, got {value!r}")


def as_executor(executor: Any) -> Any:
    """The executor of a Dask client, or what has the method submit() itself. None stays None."""
    if executor is None:
        return None
    if not isinstance(executor, type):
        if callable(getattr(executor, "get_executor", None)):  # a Dask client, whose submit() is not the usual one
            return executor.get_executor()
        if callable(getattr(executor, "submit", None)):
            return executor
    raise TypeError(
        f"executor must be a Dask client or have submit() as executors of concurrent.futures do, got {executor!r}"
    )


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
    if executor is not None:
        _run_into(rows, numbers, tasks, executor, progress)
        return
    try:
        with LocalPool(min(workers or default_workers(), len(tasks))) as pool:
            _run_into(rows, numbers, tasks, pool, progress)
    finally:
        remove_row_litter(folder, numbers)


def run_tasks(tasks: list[dict[str, Any]], executor: Executor, progress: bool) -> list[Row]:
    """Submits tasks to an executor and waits for all of them. Returns their rows in the same order."""
    rows: list[Row] = [{}] * len(tasks)
    _run_into(rows, range(len(tasks)), tasks, executor, progress)
    return rows


def _run_into(
    rows: list[Row], places: Sequence[int], tasks: list[dict[str, Any]], executor: Executor, progress: bool
) -> None:
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
            if bar is not None:
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
    except WorkerStartError as error:
        if local:  # on this machine every other row would fail too
            raise
        return _lost(error)
    except Exception as error:  # whatever happens to an executor, the other rows continue
        return _lost(error)


def _lost(error: BaseException) -> Row:
    return empty_row("lost", f"{type(error).__name__}: {error}")


def _progress_bar(total: int) -> Any:
    """A progress bar on standard error; None if tqdm is not installed."""
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    return tqdm(total=total, unit="run", smoothing=0.05)
