"""The result of one simulation, and reading it from a file."""

from __future__ import annotations

import copy
import functools
import hashlib
import re
from collections.abc import Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any

import pandas as pd

from .._base.files import as_path, read_file
from .._base.types import PathLike
from .._observe.slices import slices_of
from .._observe.xrd import Stack
from .._recipe.recipe import Recipe
from .._recipe.source import RecipeLike, RecipeSource
from .._recipe.xml_bytes import RecipeError
from .drawn import DrawnTables
from .export import write_csv, write_netcdf
from .interfaces import interface_values
from .layers import layer_values
from .observables import Observables
from .plot import PANELS, plot_run
from .result_check import Stage, stages_of_layers, stages_of_recipe, unphysical_text
from .result_file import ResultFileError, parse_layers, parse_profile, reaches_the_end
from .status import check_recipe, read_matching_status, status_path
from .structure import groups_of

if TYPE_CHECKING:
    from matplotlib.figure import Figure


class SimulationError(RuntimeError):
    """A run failed.

    Attributes
    ----------
    text : str
        The library's text, explained in docs/messages.md; if the integration ended early or rows are unphysical, also
        the time, the stage and what to do.
    recipe : path, str, bytes, Recipe or None
        The recipe as it was passed.
    run : Run or None
        The rows up to the failure; None if there are none.
    recipe_source : object
        The path and the content of the recipe during the run, for reports.
    """

    def __init__(
        self, text: str, recipe: Any = None, run: Run | None = None, recipe_source: RecipeSource | None = None
    ) -> None:
        super().__init__(text)
        self.text = text
        self.recipe = recipe
        self.run = run
        self.recipe_source = recipe_source or (run.recipe_source if run is not None else RecipeSource())

    def __reduce__(self) -> tuple[Any, ...]:
        return SimulationError, (self.text, self.recipe, self.run, self.recipe_source)


@dataclass(repr=False, eq=False)
class Run(Observables):
    """The result of one simulation, complete or failed, from run() or read().

    The table is parsed when it is first used. profile, layers, interfaces and recipe are copies, which may be changed:
    assign them to a name to use them several times.

    Attributes
    ----------
    content : bytes
        Content of the result file.
    path : pathlib.Path or None
        The result file; None if it was not saved.
    recipe_source : object
        The path and the content of the recipe during the run, for reports.
    text : str
        Why the run failed; empty if it ended normally or the reason is unknown.
    wall_time : float or None
        Duration of the simulation, s; None if it is unknown.
    scheme : str or None
        Integration scheme, "continuous" or "staged"; None if it is unknown.
    """

    content: bytes
    path: Path | None = None
    recipe_source: RecipeSource = field(default_factory=RecipeSource)
    text: str = ""
    wall_time: float | None = None
    scheme: str | None = None

    @property
    def profile(self) -> pd.DataFrame:
        """All rows in file order, numbered from 0: a data frame with the columns of docs/result-format.md.

        The column active is true for rows of simulated stages. attrs["units"] and attrs["meanings"] describe the
        columns. Values may be NaN or infinite in a failed run.
        """
        return _copied(self._profile)

    @property
    def layers(self) -> pd.DataFrame:
        """One row per layer, numbered from 1 from the bottom up: times, mean composition, strain and densities.

        attrs["units"] and attrs["meanings"] describe the columns. Values of a layer that was not reached are NaN,
        and so is the mean composition of one in which nothing grew or more evaporated than grew.
        """
        return _copied(self._layers)

    @property
    def interfaces(self) -> pd.DataFrame:
        """One row per interface with a change of composition, with its 10-90 % width, numbered from 1 from the bottom up.

        attrs["units"] and attrs["meanings"] describe the columns. Width and heights are NaN if the composition does not
        complete its step within the two layers.
        """
        return _copied(self._interfaces)

    @functools.cached_property
    def _profile(self) -> pd.DataFrame:
        return parse_profile(self.content, self._name)

    @functools.cached_property
    def _layers(self) -> pd.DataFrame:
        return layer_values(parse_layers(self.content, self._name), self._profile)

    @functools.cached_property
    def _interfaces(self) -> pd.DataFrame:
        return interface_values(self._layers, self._profile)

    @functools.cached_property
    def complete(self) -> bool:
        """True if the table reaches the end of the last layer."""
        return reaches_the_end(self.content, self._name)

    @functools.cached_property
    def unphysical(self) -> str:
        """One line on unphysical rows (NaN, infinity, a fraction far outside of 0 to 1). Empty if there are none."""
        return unphysical_text(self._profile, self._stages)

    @property
    def failed(self) -> bool:
        """True if the library reported a failure, rows are unphysical, or the table ends before the last layer does."""
        return bool(self.text) or not self.complete or bool(self.unphysical)

    @property
    def sha256(self) -> str:
        """SHA-256 hash of the result file, as 64 hexadecimal digits."""
        return hashlib.sha256(self.content).hexdigest()

    @property
    def _name(self) -> str:
        return str(self.path or "result")

    @property
    def recipe(self) -> Recipe | None:
        """A copy of the recipe; None if it is unknown or not well-formed."""
        return None if self._recipe is None else self._recipe.copy()

    @functools.cached_property
    def _recipe(self) -> Recipe | None:
        if self.recipe_source.content is None:
            return None
        try:
            return Recipe(self.recipe_source.content, self.recipe_source.path)
        except RecipeError:
            return None

    @property
    def warnings(self) -> list[str]:
        """Warnings about the values, one line each; usually an empty list."""
        return [self.unphysical] if self.unphysical else []

    def _stages(self) -> list[Stage]:
        """The stages as named in texts: from the recipe, or from the layers if it is unknown."""
        stages = stages_of_recipe(self._recipe) if self._recipe is not None else []
        return stages if len(stages) == len(self._layers) else stages_of_layers(self._layers)

    @property
    def end(self) -> pd.Series:
        """The last row as a series: the surface at the end of the process. ValueError if there are no rows."""
        if self._profile.empty:
            raise ValueError(f"{self._name} has no rows")
        return self._profile.iloc[-1].copy()

    def to_csv(self, path: PathLike, *, what: str = "profile") -> None:
        """Writes a table as comma-separated values with all digits.

        Parameters
        ----------
        path : path
            The file to write. An existing one is replaced when the new one is complete, but never a file of the run.
        what : str, optional
            "profile" or "layers".

        Raises
        ------
        OSError
            If the file can't be written.
        TypeError
            If path is not a path.
        ValueError
            If what is unknown, or path is the recipe, the result, its status file, or not a regular file.
        """
        if what not in ("profile", "layers"):
            raise ValueError(f'what must be "profile" or "layers", got {what!r}')
        table = self._profile if what == "profile" else self._layers
        write_csv(table, path, what == "layers", self._own_files)

    def to_netcdf(self, path: PathLike) -> None:
        """Writes profile and layers as one netCDF-4 file, with units and meanings. Needs xarray and netCDF4.

        Parameters
        ----------
        path : path
            The file to write, as for to_csv().

        Raises
        ------
        ImportError
            If xarray or netCDF4 is missing.
        OSError
            If the file can't be written.
        TypeError
            If path is not a path.
        ValueError
            If path is the recipe, the result, its status file, or not a regular file.
        """
        write_netcdf(self._profile, self._layers, self.text, path, self._own_files)

    def plot(
        self,
        kind: str = "time",
        *,
        span: str = "active",
        panels: Sequence[str] = PANELS,
        path: PathLike | None = None,
    ) -> Figure:
        """Draws the run. Needs matplotlib.

        Solid lines show each depth when it was the surface, dashed lines the finished structure. The temperature is
        drawn if the run has its recipe.

        Parameters
        ----------
        kind : str, optional
            "time": composition, growth rate, temperature, strain and densities over time; "depth": the same over
            height; "relaxation": lattice constants and degrees of relaxation.
        span : str, optional
            "active": the simulated layers; "all": pre-stages and post-stages too.
        panels : list of str, optional
            Which of "composition", "rate", "temperature", "strain", "densities" to draw, from the top down. No effect
            on "relaxation".
        path : path, optional
            File to save the figure to, in the format of its ending (.pdf, .svg, .png, ...), with text as text. None: it
            is not saved.

        Returns
        -------
        matplotlib.figure.Figure
            The figure, open in pyplot.

        Raises
        ------
        ImportError
            If matplotlib is missing.
        OSError
            If the file can't be written.
        TypeError
            If panels is not a list of names, or path is not a path.
        ValueError
            If an argument is unknown, there is nothing to draw, or path has no ending of a format, is a file of the run
            or not a regular file.
        """
        return plot_run(self._drawn, kind, span, panels, path, self._own_files)

    @property
    def _stack(self) -> Stack:
        """The finished structure for diffraction. Raises ValueError if the run failed."""
        if self.failed:
            why = self.text or self.unphysical or "its table ends early"
            raise ValueError(f"the run failed, so its structure is not complete: {why}")
        periods = [
            (int(self._layers.index[group.first]), group.size, group.periods)
            for group in groups_of(self._layers)
            if group.periods > 1
        ]
        return Stack(slices_of(self._profile, self._layers), self._layers, periods, self._own_files)

    @property
    def _drawn(self) -> DrawnTables:
        """The tables for figures and reports."""
        return DrawnTables(self._profile, self._layers, self._interfaces, self._timeline)

    @property
    def _timeline(self) -> pd.DataFrame | None:
        """The timeline of the recipe; None if it is unknown or would not run."""
        try:
            return None if self._recipe is None else self._recipe.timeline()
        except (KeyError, ValueError):
            return None

    @property
    def _own_files(self) -> list[Path | None]:
        """Files that no figure, table or report may replace."""
        return [self.path, status_path(self.path) if self.path else None, self.recipe_source.path]

    def __repr__(self) -> str:
        state = f"failed: {self.text or self.unphysical or 'incomplete'}" if self.failed else "complete"
        place = f", {self.path}" if self.path else ""
        return f"<Run, {len(self._profile)} rows, {state}{place}>"


def _copied(table: pd.DataFrame) -> pd.DataFrame:
    copied = table.copy()
    copied.attrs = copy.deepcopy(table.attrs)
    return copied


def read(path: PathLike, *, recipe: RecipeLike | None = None) -> Run:
    """Reads a result file, including that of a failed run.

    Text, duration and scheme of the run are read from its status file, if there is one that matches.

    Parameters
    ----------
    path : path
        The result file.
    recipe : path, str, bytes or Recipe, optional
        The recipe of the run as a path, the XML itself or a Recipe. Needed for temperatures and stages in figures and
        reports.

    Returns
    -------
    Run
        The result.

    Raises
    ------
    OSError
        If a file can't be read.
    ResultFileError
        If the file is not a valid result file; the text has the line number.
    TypeError
        If an argument has another type.
    ValueError
        If the result was computed from another recipe: its status file says so or, without one that matches, its layers
        are not those of the recipe. If a path is not a regular file.
    """
    return read_run(as_path(path, "path"), RecipeSource() if recipe is None else RecipeSource.of(recipe))


def read_run(path: Path, source: RecipeSource) -> Run:
    """As read(), with a recipe that has been read already."""
    content = read_file(path)
    if not content:
        raise ResultFileError(f"{path} is empty: the run ended before its first row")
    status = read_matching_status(path, content)
    check_recipe(status, source, path)
    result = Run(content, path, source, status.get("text", ""), status.get("wall_time_s"), status.get("scheme"))
    _ = result._profile  # reports any fault of the file now
    if not status.get("recipe_sha256"):
        _check_layers(result)
    return result


def _check_layers(run: Run) -> None:
    """Raises ValueError if the layers of a result are not those of its recipe.

    Nothing is compared if the recipe is unknown or would not run.
    """
    timeline = run._timeline
    if timeline is None:
        return
    layers = run._layers[["name", "duration"]].itertuples(name=None)
    start = f"{run._name} was not computed from {run.recipe_source.path or 'the recipe given'}: it has "
    if len(timeline) != len(run._layers):
        raise ValueError(f"{start}{len(run._layers)} layers instead of {len(timeline)}")
    for (number, name, duration), expected in zip(layers, timeline.itertuples()):
        if _ascii(name) != _ascii(expected.name):
            raise ValueError(f"{start}a layer {number} named {name!r} instead of {expected.name!r}")
        shown, shown_expected = (f"{value:.16g} s" for value in (duration, expected.duration))  # as in the file
        if shown != shown_expected:
            raise ValueError(f"{start}a layer {number} of {shown} instead of {shown_expected}")


def _ascii(name: str) -> str:
    """The characters of a name that are the same in all encodings."""
    return re.sub("[^!-~]", "", name)
