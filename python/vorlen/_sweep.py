"""Sweeps: one recipe, many values, one table.

    table = vorlen.sweep("mqw.xml", {"process_stages/stage_1/T": range(1000, 1061, 5)}, out="temperatures")

Runs take place in worker processes. A run that fails, crashes or hangs is recorded as a row of the table. A sweep that
is called again continues where it stopped: rows that are done are not run again.
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
from ._recipe import Recipe

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
    """Runs a recipe once for each combination of values.

    recipe      a path, a Recipe, or the XML itself
    parameters  the values of each path in the recipe; a pair (start, end) is a ramp. Or a data frame with a column for
                each path and a row for each run
    workers     number of concurrent runs on this machine; None: one per processor
    executor    an executor with the interface of concurrent.futures, such as that of a Dask client or an MPI pool,
                instead of worker processes on this machine. Its processes must have access to the folder out
    out         folder for the files of the sweep. It may contain the same sweep, or its first rows, from earlier
    resume      True: rows that are in the folder already are reused if recipe, scheme and version are the same;
                False: all rows are run, and older ones replaced
    progress    True: show a progress bar on standard error, if tqdm is installed
    mode        "grid": every combination, the last parameter varies fastest; "zip": the n-th values of all together
    timeout     time limit of one run, s; a run that takes longer is killed
    scheme      integration scheme, "continuous" or "staged"; None: the scheme of the recipe

    Returns one row per run: the values, status, text, key results, files. status is
      ok        the run ended normally
      failed    the library rejected the recipe or stopped, or rows are unphysical; text gives the reason
      timeout   the run exceeded timeout
      crashed   the worker process ended during the run
      error     files could not be read or written
      lost      the executor lost the run
    Key results are values of the finished structure (height z, densities and strain of its surface) and of each layer
    (thickness_N, mean composition x_in_N, x_ga_N, x_al_N); attrs["units"] has their units. They are NaN in rows that
    are not ok. Rows that are neither ok nor failed are run again when the sweep is resumed.
    The folder contains the same table as table.csv.
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
    """Runs the rows with these numbers; the folder must be prepared. Returns status, text and values of each."""
    if workers is not None and executor is not None:
        raise ValueError("give either workers or executor, not both: an executor has its own workers")
    if workers is not None and workers < 1:
        raise ValueError(f"workers must be 1 or more, got {workers}")
    inputs = plan.rows()
    tasks = [make_task(plan, folder, number, inputs[number], resume) for number in numbers]
    if executor is not None:
        return run_tasks(tasks, executor, progress)
    with LocalPool(min(workers or default_workers(), len(tasks))) as pool:
        return run_tasks(tasks, pool, progress)


def run_tasks(tasks: list[dict[str, Any]], executor: Executor, progress: bool) -> list[dict[str, Any]]:
    """Submits tasks to an executor and waits for all of them. Returns their rows in the same order."""
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
    except RuntimeError as error:  # a broken pool accepts no tasks
        rejected: Future[dict[str, Any]] = Future()
        rejected.set_exception(error)
        return rejected


def _row_of(future: Future[dict[str, Any]], local: bool) -> dict[str, Any]:
    try:
        return future.result()
    except WorkerStartError as error:
        if local:  # on this machine every other row would fail too
            raise
        return _lost(error)
    except Exception as error:  # whatever happens to an executor, the other rows continue
        return _lost(error)


def _lost(error: Exception) -> dict[str, Any]:
    return {"status": "lost", "text": f"{type(error).__name__}: {error}", "values": {}, "result": False}


def _progress_bar(total: int) -> Any:
    """A progress bar on standard error; None if tqdm is not installed."""
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    return tqdm(total=total, unit="run", smoothing=0.05)
