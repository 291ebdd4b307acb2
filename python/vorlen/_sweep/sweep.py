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
from collections.abc import Iterable, Mapping, Sequence
from concurrent.futures import Executor
from pathlib import Path
from typing import TYPE_CHECKING, Any, overload

import pandas as pd

from .._base.arguments import check_flags, given_executor
from .._base.files import as_path
from .._base.types import PathLike
from .._recipe.check import issue
from .._recipe.recipe import Recipe
from .._recipe.source import RecipeLike, RecipeSource
from .._runs.result_file import ResultFileError
from .._runs.run import Run, SimulationError
from .._runs.status import read_status
from .check import sweep_text
from .folder import TABLE_NAME, locked_folder, read_folder
from .plan import Plan, row_files, row_recipe, sha256
from .plan_values import given_recipe, make_plan
from .row import Row, empty_row
from .run_rows import run_rows
from .table import collect_rows, count_text, make_table, sweep_dataset, with_folder, write_table

if TYPE_CHECKING:
    import xarray

REMEDY = "Pass another folder as out, or resume=False to replace the sweep"


class Sweep:
    """The rows of a sweep and their runs; len() is the number of rows.

    Attributes
    ----------
    folder : pathlib.Path
        The folder with the files of the sweep, as given; without out, a temporary one that is removed with the last of
        this object and its runs.
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
        """A row per run with the columns described at sweep(). A new copy each time."""
        return with_folder(self._bare_table(), self._place)

    def _bare_table(self) -> pd.DataFrame:
        """The table with paths relative to the folder."""
        if self._table is None:
            self._table = make_table(self._inputs, self._rows)
        return self._table

    @property
    def runs(self) -> Runs:
        """A sequence of the results, read when they are used: runs[3] is the Run of row 3.

        Indexing raises SimulationError for a row without result, ResultFileError if the files of the row were changed.
        """
        return Runs(self, range(len(self._rows)))

    @property
    def failed(self) -> pd.DataFrame:
        """The rows of the table that are not ok."""
        table = self.table
        return table[table.status != "ok"]

    def resume(
        self, *, workers: int | None = None, executor: Executor | None = None, progress: bool = True
    ) -> Sweep:
        """Runs the rows that are not finished, and those whose files were changed.

        Parameters
        ----------
        workers, executor : optional
            As for sweep().
        progress : bool, optional
            True: show a progress bar on standard error, if tqdm is installed.

        Returns
        -------
        Sweep
            This object.

        Raises
        ------
        TypeError
            If an argument has a wrong type.
        ValueError
            If an executor is given and the folder is a temporary one, or workers is not positive.
        PlanError
            If the folder contains a different sweep by now.
        BusyError
            If another sweep is running in the folder.
        OSError
            If the folder can't be written.
        RuntimeError
            If the worker processes can't be started, for example because the library is missing.
        """
        check_flags(progress=progress)
        executor = given_executor(workers, executor, None if self._temporary else self.folder)
        return self._run(True, workers, executor, progress, "the same call")

    def _run(
        self, resume: bool, workers: int | None, executor: Executor | None, progress: bool, continuation: str
    ) -> Sweep:
        numbers = range(len(self._rows))
        with locked_folder(self._plan, self._place, numbers, whole=True, resume=resume, remedy=REMEDY):
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
        """The key results, status and text as an xarray dataset. Needs xarray.

        Returns
        -------
        xarray.Dataset
            A grid has a dimension for each parameter, named by its path, with the values as its coordinate; the
            coordinates of ramps are PATH_begin and PATH_end. Values taken together have the dimension row, with the
            same coordinates. Names have dots instead of slashes, so that to_netcdf() accepts them. The attribute units
            of a variable is its unit.
        """
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
    recipe: RecipeLike,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    *,
    mode: str = "grid",
    scheme: str | None = None,
    timeout: float | None = None,
    out: PathLike | None = None,
    resume: bool = True,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = True,
    check: bool = True,
) -> Sweep:
    """Runs a recipe once for each combination of values.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    parameters : mapping of str to list, or pandas.DataFrame
        The values of each path in the recipe: numbers in its units, texts such as "750 degC", or pairs (start, end),
        which are ramps. Or a data frame with a column for each path and a row for each run; the columns PATH_begin and
        PATH_end are a ramp.
    mode : str, optional
        "grid": every combination, the last parameter varies fastest; "zip": the n-th values of all together. A data
        frame is always taken row by row.
    scheme : str, optional
        Integration scheme of all rows, "continuous" or "staged"; None: that of the recipe.
    timeout : float, optional
        Time limit of one run, s, after which it is killed; None: no limit.
    out : path, optional
        Folder for the files of the sweep. It may contain the same sweep, or its first rows, from earlier. None: a
        temporary one that is removed with the returned object and its runs.
    resume : bool, optional
        True: rows that are in the folder already are reused if recipe, scheme, version and result are those of their
        status files. False: all rows are run, and older ones replaced.
    workers : int, optional
        Number of concurrent runs on this machine; None: one per processor.
    executor : optional
        A Dask client, an MPI pool, or an executor with the interface of concurrent.futures, instead of worker
        processes on this machine. Its processes must have access to the folder out. After Ctrl-C, runs that it can't
        cancel are waited for.
    progress : bool, optional
        True: show a progress bar on standard error, if tqdm is installed.
    check : bool, optional
        True: if `vorlen check` has warnings about the recipe, or others about the rows with the smallest and the
        largest value of each path, issue one RecipeWarning before the runs, with the first three of each. Of many
        such rows, eight are checked.

    Returns
    -------
    Sweep
        Its table has a row per run, numbered from 0; attrs["units"] has the units. The columns are

        - the paths, PATH_begin and PATH_end for ramps
        - status: "ok", the run ended normally; "failed", the library rejected the recipe or stopped, or rows are
          unphysical; "timeout"; "crashed", the worker process ended during the run; "error", files could not be read
          or written; "lost", the executor lost the run
        - text: the reason for another status than ok
        - key results of the finished structure: z (nm), rho_td_t, rho_td_z and v_defects_t (cm^-2), eps_xx_t; and of
          each layer N: thickness_N (nm), x_in_N, x_ga_N, x_al_N. NaN in rows that are not ok
        - recipe_file, result_file, status_file: paths; empty for a file that does not exist

        Rows that are neither ok nor failed are run again when the sweep is resumed. The folder contains the same table
        as table.csv.

    Raises
    ------
    TypeError
        If an argument has a wrong type. Nothing was run.
    ValueError
        If timeout, scheme, workers or out has a wrong value. Nothing was run.
    PlanError
        If parameters and values do not fit the recipe or each other, or the folder contains something else. Nothing
        was run.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    BusyError
        If another sweep is running in the folder.
    OSError
        If the recipe can't be read or the folder can't be written.
    RuntimeError
        If the worker processes can't be started, for example because the library is missing.
    """
    check_flags(resume=resume, progress=progress, check=check)
    executor = given_executor(workers, executor, out)
    temporary, folder = None, Path()
    if out is not None:
        folder = as_path(out, "out")
    base = given_recipe(recipe, scheme)
    plan = make_plan(base, parameters, mode, timeout)
    if check:
        issue(sweep_text(plan, base.path))
    if out is None:
        temporary = TemporaryFolder()
        folder = temporary.path
    made = Sweep(plan, folder, [empty_row("missing")] * len(plan.rows()), temporary)
    again = "name a folder with out; this one is removed" if temporary else f'vorlen.read_sweep("{folder}").resume()'
    return made._run(resume, workers, executor, progress, again)


def read_sweep(folder: PathLike) -> Sweep:
    """The sweep in a folder, from an earlier call of sweep() or from `vorlen sweep`. Nothing is run.

    Parameters
    ----------
    folder : path
        The folder of the sweep.

    Returns
    -------
    Sweep
        Rows that were not run have the status "missing"; resume() runs them.

    Raises
    ------
    TypeError
        If folder is not a path.
    ValueError
        If folder is an empty text or has a null character.
    PlanError
        If the folder does not contain a sweep, or its plan or recipe is damaged.
    """
    place = as_path(folder, "folder")
    plan = read_folder(place)
    return Sweep(plan, place, collect_rows(plan, place))
