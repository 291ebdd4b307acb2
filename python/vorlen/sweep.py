"""Sweeps: one recipe, many values, a table.

    table = vorlen.sweep("mqw.xml", {"process_stages/stage_1/T": range(1000, 1061, 5)}, out="temperatures")

Every run has a worker process to itself. A crash, a hang and a failure are rows of the table. A sweep that is called
again continues where it was: rows that are done are not run again.
"""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping
from concurrent.futures import Executor, Future, as_completed
from pathlib import Path
from typing import Any

import pandas as pd

from ._plan import Plan, make_plan, make_task, prepare_folder, write_plan
from ._pool import LocalPool, WorkerStartError, default_workers, run_row
from ._table import make_table, with_folder, write_table
from .recipe import Recipe

__all__ = ["run_rows", "sweep", "write_plan"]


def sweep(
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    workers: int | None = None,
    executor: Executor | None = None,
    out: str | os.PathLike[str] = "sweep",
    resume: bool = True,
    progress: bool = True,
    mode: str = "grid",
    timeout: float | None = None,
    scheme: str | None = None,
) -> pd.DataFrame:
    """Runs a recipe with many values.

    recipe      a path, a Recipe, or the XML itself
    parameters  for each path in the recipe the values it takes; a pair (begin, end) is a ramp. Or a data frame with a
                column for each path, and a row for each run
    workers     number of runs at a time on this machine; None: one per processor
    executor    any executor of the kind of concurrent.futures, in place of worker processes on this machine: that of a
                Dask client, or an MPI pool. Its processes must see the folder out
    out         folder for the files of the sweep. It may hold the same sweep, or the first rows of it, from before
    resume      True: rows that the folder holds already are taken from there, if recipe, scheme and version are the
                same; False: all rows are run, and older ones replaced
    progress    True: a bar on standard error, if tqdm is installed
    mode        "grid": every combination, the last parameter changing fastest; "zip": the n-th values of all together
    timeout     s for one run; a run that takes longer is ended
    scheme      "continuous" or "staged", the scheme of the integration; None: the scheme of the recipe

    Returns one row per run: the values, status, text, key results, files. status is
      ok        the run has ended normally
      failed    the library says no, or rows are unphysical; text is what it says
      timeout   the run was ended after timeout
      crashed   the worker process has come to an end in the middle of the run
      error     the files could not be read or written
      lost      the executor lost the run
    Key results are those of the finished structure (height z, densities and strain of its surface) and of each layer
    (thickness_N, mean composition x_in_N, x_ga_N, x_al_N); attrs["units"] has their units. They are NaN in rows that
    are not ok. Rows that are neither ok nor failed are run again when the sweep is resumed.
    The same table stands in the folder as table.csv.
    """
    plan = make_plan(recipe, parameters, mode, timeout, scheme)
    folder = Path(out)
    prepare_folder(plan, folder, resume)
    inputs = plan.rows()
    rows = run_rows(plan, folder, range(len(inputs)), workers, executor, resume, progress)
    table = make_table(inputs, rows)
    write_table(table, folder)
    return with_folder(table, folder)


def run_rows(
    plan: Plan,
    folder: Path,
    numbers: Iterable[int],
    workers: int | None = None,
    executor: Executor | None = None,
    resume: bool = True,
    progress: bool = True,
) -> list[dict[str, Any]]:
    """Runs the rows of these numbers of a plan whose folder is prepared. Returns status, text, values of each."""
    if workers is not None and executor is not None:
        raise ValueError("workers and executor exclude each other: an executor has its own workers")
    if workers is not None and workers < 1:
        raise ValueError(f"workers is 1 or more, not {workers}")
    inputs = plan.rows()
    tasks = [make_task(plan, folder, number, inputs[number], resume) for number in numbers]
    if executor is not None:
        return run_tasks(tasks, executor, progress)
    with LocalPool(min(workers or default_workers(), len(tasks))) as pool:
        return run_tasks(tasks, pool, progress)


def run_tasks(tasks: list[dict[str, Any]], executor: Executor, progress: bool) -> list[dict[str, Any]]:
    """Hands tasks to an executor and waits for all of them. Returns their rows in the same order."""
    futures = {_submit(executor, task): index for index, task in enumerate(tasks)}
    rows: list[dict[str, Any]] = [{}] * len(tasks)
    bar = _progress_bar(len(tasks)) if progress else None
    troubles = 0
    try:
        for future in as_completed(futures):
            row = _row_of(future, isinstance(executor, LocalPool))
            rows[futures[future]] = row
            if bar is not None:
                troubles += row["status"] != "ok"
                bar.set_postfix_str(f"{troubles} not ok" if troubles else "", refresh=False)
                bar.update()
    except BaseException:
        for future in futures:
            future.cancel()
        raise
    finally:
        if bar is not None:
            bar.close()
    return rows


def _submit(executor: Executor, task: dict[str, Any]) -> Future[dict[str, Any]]:
    try:
        return executor.submit(run_row, task)
    except RuntimeError as error:  # a broken pool takes nothing more
        refused: Future[dict[str, Any]] = Future()
        refused.set_exception(error)
        return refused


def _row_of(future: Future[dict[str, Any]], local: bool) -> dict[str, Any]:
    try:
        return future.result()
    except WorkerStartError as error:
        if local:  # here no other row will do better
            raise
        return _lost(error)
    except Exception as error:  # whatever befalls an executor, the other rows go on
        return _lost(error)


def _lost(error: Exception) -> dict[str, Any]:
    return {"status": "lost", "text": f"{type(error).__name__}: {error}", "values": {}, "result": False}


def _progress_bar(total: int) -> Any:
    """A bar on standard error; None where tqdm is not installed."""
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    return tqdm(total=total, unit="run", smoothing=0.05)
