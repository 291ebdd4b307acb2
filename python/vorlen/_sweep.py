"""Sweeps: one recipe, many values, one table.

    sweep = vorlen.sweep("mqw.xml", {"process_stages/stage_1/T": range(1000, 1061, 5)}, out="temperatures")
    sweep.table

Runs take place in worker processes. A run that fails, crashes or hangs is recorded as a row of the table. A sweep that
is called again continues where it stopped: rows that are done are not run again.
"""

from __future__ import annotations

import os
import shutil
import sys
import tempfile
import warnings
import weakref
from collections.abc import Iterable, Iterator, Mapping, Sequence
from concurrent.futures import Executor
from pathlib import Path
from typing import TYPE_CHECKING, Any, overload

import pandas as pd

from ._plan import Plan, PlanError, row_files, row_recipe, sha256
from ._plan_values import make_plan
from ._recipe import Recipe
from ._result_file import ResultFileError
from ._row import Row, empty_row
from ._run import Run, SimulationError
from ._run_rows import as_executor, check_flags, check_workers, run_rows
from ._source import RecipeSource
from ._status import read_status
from ._sweep_folder import TABLE_NAME, locked_folder, read_folder
from ._table import collect_rows, count_text, make_table, with_folder, write_table

if TYPE_CHECKING:
    import xarray


class Sweep:
    """The rows of a sweep and their runs.

    folder  the folder with the files of the sweep, as given
    """

    def __init__(self, plan: Plan, folder: Path, rows: list[Row], temporary: TemporaryFolder | None = None) -> None:
        self.folder = folder
        self._plan = plan
        self._inputs = plan.rows()
        self._absolute = folder.absolute()
        self._temporary = temporary
        self._rows = rows
        self._table: pd.DataFrame | None = None  # made when it is first used

    @property
    def _place(self) -> Path:
        """The folder as given, which texts should name, unless the current folder has changed."""
        return self.folder if self.folder.absolute() == self._absolute else self._absolute

    @property
    def table(self) -> pd.DataFrame:
        """A row per run: values, status, text, key results, files; attrs["units"] has units. A new copy each time."""
        return with_folder(self._bare_table(), self._place)

    def _bare_table(self) -> pd.DataFrame:
        """The table with paths relative to the folder."""
        if self._table is None:
            self._table = make_table(self._inputs, self._rows)
        return self._table

    @property
    def runs(self) -> Runs:
        """The results: runs[3] is the Run of row 3."""
        return Runs(self, range(len(self._rows)))

    @property
    def failed(self) -> pd.DataFrame:
        """The rows of the table that are not ok."""
        table = self.table
        return table[table.status != "ok"]

    def resume(
        self, *, workers: int | None = None, executor: Executor | None = None, progress: bool = True
    ) -> Sweep:
        """Runs the rows that are not finished, and those whose files were changed. Returns this object.

        workers, executor, progress  as for sweep()
        """
        check_workers(workers, executor)
        check_flags(progress=progress)
        executor = as_executor(executor)
        if executor is not None and self._temporary is not None:
            raise ValueError("a sweep without a named folder can't be run by an executor: name one with out")
        return self._run(True, workers, executor, progress, "the same call")

    def _run(
        self, resume: bool, workers: int | None, executor: Executor | None, progress: bool, continuation: str
    ) -> Sweep:
        numbers = range(len(self._rows))
        with locked_folder(self._plan, self._place, numbers, whole=True, resume=resume):
            self._rows, self._table = [empty_row("missing") for _ in numbers], None
            try:
                run_rows(
                    self._plan, self._place, numbers, self._rows, workers=workers, executor=executor, resume=resume,
                    progress=progress,
                )
            except KeyboardInterrupt:
                print(f"sweep interrupted; {count_text(self._rows)}. To continue: {continuation}", file=sys.stderr)
                raise
            try:
                write_table(self._bare_table(), self._place)
            except OSError as error:
                reason = error.strerror or error
                warnings.warn(f"{self.folder / TABLE_NAME} could not be written: {reason}", RuntimeWarning, 3)
        return self

    def to_xarray(self) -> xarray.Dataset:
        """The key results, status and text as an xarray dataset, with units. Needs xarray.

        A grid has a dimension for each parameter, named by its path, with the values as its coordinate; the coordinates
        of ramps are PATH_begin and PATH_end. Values taken together have the dimension row, with the same coordinates.
        The names of dimensions and coordinates have dots instead of slashes, so that to_netcdf() accepts them.
        """
        from ._sweep_dataset import sweep_dataset

        return sweep_dataset(self._plan, self.table)

    def __len__(self) -> int:
        return len(self._rows)

    def __repr__(self) -> str:
        place = "temporary folder" if self._temporary else self.folder
        return f"<Sweep, {count_text(self._rows)}, {place}>"

    def _repr_html_(self) -> str:
        import html

        return f"<p>{html.escape(repr(self)[1:-1])}</p>{self.table._repr_html_()}"

    def _read_run(self, number: int) -> Run:
        row = self._rows[number]
        if row["status"] != "ok":
            text = f": {row['text']}" if row["text"] else ""
            raise SimulationError(f"row {number} has no result, its status is {row['status']}{text}")
        files = row_files(self._place, number)
        recipe = row_recipe(Recipe(self._plan.recipe), self._inputs[number])
        content = files.result.read_bytes()
        status = read_status(files.result)
        if status.get("recipe_sha256") != sha256(recipe) or status.get("result_sha256") != sha256(content):
            raise ResultFileError(f"{files.result} is not the result of row {number}: resume() runs it again")
        source = RecipeSource(files.recipe, recipe)
        run = Run(content, files.result, source, "", status.get("wall_time_s"), status.get("scheme"))
        setattr(run, "_folder", self._temporary)  # which lives as long as the run
        return run


class Runs(Sequence[Run]):
    """The runs of a sweep, read when they are used. Their hashes are checked.

    Raises SimulationError for a row without result, and ResultFileError if the files of a row were changed.
    """

    def __init__(self, sweep: Sweep, numbers: range) -> None:
        self._sweep = sweep
        self._numbers = numbers

    def __len__(self) -> int:
        return len(self._numbers)

    @overload
    def __getitem__(self, place: int) -> Run: ...

    @overload
    def __getitem__(self, place: slice) -> Runs: ...

    def __getitem__(self, place: int | slice) -> Run | Runs:
        if isinstance(place, slice):
            return Runs(self._sweep, self._numbers[place])
        try:
            number = self._numbers[place]
        except IndexError:
            raise IndexError(f"row {place} does not exist: there are {len(self)} rows, counted from 0") from None
        return self._sweep._read_run(number)

    def __iter__(self) -> Iterator[Run]:
        return (self._sweep._read_run(number) for number in self._numbers)

    def __repr__(self) -> str:
        return f"<{len(self)} runs of {self._sweep!r}>"


class TemporaryFolder:
    """A folder that is removed with the last object that refers to this one, by the process that created it."""

    def __init__(self) -> None:
        self.path = Path(tempfile.mkdtemp(prefix="vorlen-"))
        weakref.finalize(self, _remove_folder, self.path, os.getpid())


def _remove_folder(path: Path, owner: int) -> None:
    if os.getpid() == owner:  # not a forked process
        shutil.rmtree(path, ignore_errors=True)


def sweep(
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    *,
    mode: str = "grid",
    scheme: str | None = None,
    timeout: float | None = None,
    out: str | os.PathLike[str] | None = None,
    resume: bool = True,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = True,
) -> Sweep:
    """Runs a recipe once for each combination of values.

    recipe      a path, a Recipe, or the XML itself
    parameters  the values of each path in the recipe; a pair (start, end) is a ramp. Or a data frame with a column for
                each path and a row for each run; the columns PATH_begin and PATH_end are a ramp
    mode        "grid": every combination, the last parameter varies fastest; "zip": the n-th values of all together
    scheme      integration scheme, "continuous" or "staged"; None: the scheme of the recipe
    timeout     time limit of one run, s; a run that takes longer is killed
    out         folder for the files of the sweep. It may contain the same sweep, or its first rows, from earlier.
                None: a temporary one that is removed with the returned object and its runs
    resume      True: rows that are in the folder already are reused if recipe, scheme, version and result are those of
                their status files; False: all rows are run, and older ones replaced
    workers     number of concurrent runs on this machine; None: one per processor
    executor    a Dask client, an MPI pool, or an executor with the interface of concurrent.futures, instead of worker
                processes on this machine. Its processes must have access to the folder out. After Ctrl-C, runs that it
                can't cancel are waited for
    progress    True: show a progress bar on standard error, if tqdm is installed

    The table of the returned Sweep has one row per run: the values, status, text, key results, files. status is
      ok        the run ended normally
      failed    the library rejected the recipe or stopped, or rows are unphysical; text gives the reason
      timeout   the run exceeded timeout
      crashed   the worker process ended during the run
      error     files could not be read or written
      lost      the executor lost the run
    Key results are values of the finished structure (height z, densities and strain of its surface) and of each layer
    (thickness_N, mean composition x_in_N, x_ga_N, x_al_N); attrs["units"] has the units. They are NaN in rows that are
    not ok. Rows that are neither ok nor failed are run again when the sweep is resumed.
    The folder contains the same table as table.csv.
    Raises PlanError, before anything runs, if the sweep is impossible; BusyError if another one runs in the folder.
    """
    check_workers(workers, executor)
    check_flags(resume=resume, progress=progress)
    executor = as_executor(executor)
    if executor is not None and out is None:
        raise ValueError("an executor needs out, a folder that its processes have access to")
    if out is not None and not os.fspath(out):
        raise PlanError("out must be the path of a folder, got an empty text")
    plan = make_plan(recipe, parameters, mode, timeout, scheme)
    temporary = TemporaryFolder() if out is None else None
    folder = temporary.path if temporary else Path(out or "")
    made = Sweep(plan, folder, [empty_row("missing")] * len(plan.rows()), temporary)
    again = "name a folder with out; this one is removed" if temporary else f'vorlen.read_sweep("{folder}").resume()'
    return made._run(resume, workers, executor, progress, again)


def read_sweep(folder: str | os.PathLike[str]) -> Sweep:
    """The sweep in a folder, from an earlier call of sweep() or from `vorlen sweep`. Nothing is run.

    Rows that were not run have the status "missing"; resume() runs them.
    """
    plan = read_folder(Path(folder))
    return Sweep(plan, Path(folder), collect_rows(plan, Path(folder)))
