"""Runs of which only the values of targets are needed, for windows and maps: run, read and measured row by row.

Runs are kept in a folder and found again by the hash of their recipe, whatever window or map they were made for. The
folder of a sweep with the same recipe can be used too, so that `vorlen sweep` can do the runs in parts.
"""

from __future__ import annotations

import contextlib
import sys
import time
from collections.abc import Iterator, Mapping, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import numpy as np

from .._base.arguments import check_flags, check_number, check_timeout, given_executor
from .._base.files import BusyError, lock_file, replace_file
from .._base.types import Array, PathLike
from .._recipe.check import issue
from .._recipe.recipe import Recipe
from .._runs.result_file import ResultFileError
from .._runs.run import Run
from .._sweep.check import sweep_text
from .._sweep.folder import LOCK_NAME, RECIPE_NAME, holds_sweep, read_folder, remove_row_litter
from .._sweep.plan import ROWS_FOLDER, Plan, make_task, row_files, row_recipe, sha256
from .._sweep.plan_values import known_parameter, make_plan
from .._sweep.row import FINISHED, Row, empty_row, recorded_row
from .._sweep.run_rows import pool_of, run_into, working_folder
from .._sweep.table import count_text
from .model import recorded_numbers
from .quantities import Target, measure

DECIDED = ("ok", "failed", "crashed", "timeout")  # statuses that say something about the recipe


@dataclass(frozen=True)
class Measured:
    """Values of all targets in all runs: runs x targets, NaN without a result; status and text of each run."""

    values: Array
    statuses: list[str]
    texts: list[str]


@dataclass(frozen=True)
class RunOptions:
    """How runs take place: arguments of window() and process_map(), checked when the record is made."""

    timeout: float | None = 60.0
    time_limit: float | None = None
    out: PathLike | None = None
    workers: int | None = None
    executor: Executor | None = None
    progress: bool = False
    check: bool = True

    def __post_init__(self) -> None:
        check_timeout(self.timeout)
        if self.time_limit is not None:
            check_number(self.time_limit, "time_limit must be a positive number of seconds, or None for no limit", 0.0)
        check_flags(progress=self.progress, check=self.check)
        object.__setattr__(self, "executor", given_executor(self.workers, self.executor, self.out))


@dataclass
class Bench:
    """A locked folder and the executor that runs recipes in it.

    start_by  time after which no run starts, s since the epoch; None: no limit
    numbers   of the rows in the folder, by the hash of their recipe
    """

    folder: Path
    executor: Executor
    options: RunOptions
    start_by: float | None
    numbers: dict[str, int]
    used: set[int] = field(default_factory=set)

    @property
    def out_of_time(self) -> bool:
        return self.start_by is not None and time.time() > self.start_by


@contextlib.contextmanager
def open_bench(base: Recipe, options: RunOptions) -> Iterator[Bench]:
    """A place for runs of a recipe.

    Raises BusyError if something else is running in the folder, FileExistsError if it holds something else.
    """
    with working_folder(options.out) as folder, contextlib.ExitStack() as held:
        _check_folder(folder, base)
        try:
            held.enter_context(lock_file(folder / LOCK_NAME, exclusive=True))
        except BlockingIOError:
            raise BusyError(f"another window, map or sweep is running in {folder}") from None
        (folder / ROWS_FOLDER).mkdir(exist_ok=True)
        content = base.to_bytes()
        if not (folder / RECIPE_NAME).exists() or (folder / RECIPE_NAME).read_bytes() != content:
            replace_file(folder / RECIPE_NAME, content)
        used: set[int] = set()
        if options.executor is None:  # whose processes may still be writing
            held.callback(remove_row_litter, folder, used)
        executor = held.enter_context(pool_of(options.workers, options.executor))
        start_by = None if options.time_limit is None else time.time() + options.time_limit
        yield Bench(folder, executor, options, start_by, dict(recorded_numbers(folder)), used)


def _check_folder(folder: Path, base: Recipe) -> None:
    """Raises FileExistsError if a folder has files of something else."""
    if holds_sweep(folder):
        if read_folder(folder).recipe != base.to_bytes():
            raise FileExistsError(f"{folder} holds a sweep of another recipe; choose another folder")
    elif not (folder / LOCK_NAME).exists():
        for path in (folder / ROWS_FOLDER, folder / RECIPE_NAME):
            if path.exists():
                text = f"{path} is not of a window or map and would be overwritten; choose another folder"
                raise FileExistsError(text)


def say_interrupted(what: str, interrupt: KeyboardInterrupt, out: PathLike | None) -> None:
    """What is done, and how to continue, on standard error."""
    again = "name a folder with out; this one is removed" if out is None else "the same call"
    print(f"{what} interrupted{done_text(interrupt)}. To continue: {again}", file=sys.stderr)
    interrupt.args = ()  # said


def done_text(interrupt: KeyboardInterrupt) -> str:
    """Such as "; 405 rows: 21 ok, 384 missing"; empty before the first run."""
    return f"; {interrupt.args[0]}" if interrupt.args else ""


def measured(
    bench: Bench, base: Recipe, parameters: Mapping[str, Sequence[Any]], mode: str, targets: Sequence[Target]
) -> Measured:
    """Runs the rows of a plan that are not in the folder, and measures the targets in all of them.

    After the time limit rows that were not run are "missing"; the first one is run in any case. An interrupt has the
    number of rows by status as its argument.
    """
    plan = make_plan(base, parameters, mode, bench.options.timeout)
    if bench.options.check:
        issue(sweep_text(plan, base.path))
    inputs = plan.rows()
    contents = [row_recipe(base, values) for values in inputs]
    rows = _run(bench, plan, inputs, contents)
    kinds = [known_parameter(path)[0] for path in parameters]
    grows = any(known is not None and known.kind == "integer" for known in kinds)  # the number of layers changes
    paths = list(base.timeline().path)
    values = np.full((len(rows), len(targets)), np.nan)
    statuses, texts = [row["status"] for row in rows], [str(row["text"]) for row in rows]
    for number, content in enumerate(contents):
        if statuses[number] != "ok":
            continue
        result = row_files(bench.folder, bench.numbers[sha256(content)]).result
        try:
            run = Run(result.read_bytes(), result)
            places = list(Recipe(content).timeline().path) if grows else paths
            values[number] = [measure(run, places, target)[0] for target in targets]
        except (ResultFileError, OSError) as error:
            statuses[number], texts[number] = "error", str(error)
    return Measured(values, statuses, texts)


def _run(bench: Bench, plan: Plan, inputs: Sequence[dict[str, Any]], contents: Sequence[bytes]) -> list[Row]:
    """The row of each recipe, in their order. Equal recipes are run once."""
    hashes = [sha256(content) for content in contents]
    known: dict[str, Row] = {}
    tasks: dict[str, dict[str, Any]] = {}
    last = max(bench.numbers.values(), default=-1)
    for name, values, content in zip(hashes, inputs, contents):
        if name in known or name in tasks:
            continue
        if name in bench.numbers:
            row = recorded_row(row_files(bench.folder, bench.numbers[name]), content)
            if row is not None and row["status"] in FINISHED:
                known[name] = row
                continue
        else:
            last += 1
            bench.numbers[name] = last
        task = tasks[name] = make_task(plan, bench.folder, bench.numbers[name], values, resume=False)
        if bench.start_by is not None and (known or len(tasks) > 1):
            task["start_by"] = bench.start_by
    bench.used |= {task["number"] for task in tasks.values()}
    remove_row_litter(bench.folder, bench.used)
    made: list[Row] = [empty_row("missing") for _ in tasks]
    try:
        if tasks:
            run_into(made, range(len(made)), list(tasks.values()), bench.executor, bench.options.progress)
    except KeyboardInterrupt as interrupt:
        known |= zip(tasks, made)
        interrupt.args = (count_text([known[name] for name in hashes]),)
        raise
    known |= zip(tasks, made)
    return [known[name] for name in hashes]
