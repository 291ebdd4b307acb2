"""The result of one simulation, and reading it from a file."""

from __future__ import annotations

import functools
import hashlib
import os
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any

import pandas as pd

from ._layers import layer_values
from ._recipe import Recipe, RecipeError
from ._result_check import Stage, stages_of_layers, stages_of_recipe, unphysical_text
from ._result_file import ResultFileError, parse_layers, parse_profile, reaches_the_end
from ._source import RecipeLike, RecipeSource
from ._status import read_status

if TYPE_CHECKING:
    from matplotlib.figure import Figure


class SimulationError(RuntimeError):
    """A run failed.

    text    the library's text, explained in docs/messages.md; if the integration ended early or rows are unphysical,
            also the time, the stage and what to do
    recipe  the recipe passed to run()
    run     the rows up to the failure, as a Run; None if there are none
    """

    def __init__(self, text: str, recipe: Any = None, run: Run | None = None) -> None:
        super().__init__(text)
        self.text = text
        self.recipe = recipe
        self.run = run

    def __reduce__(self) -> tuple[Any, ...]:
        return SimulationError, (self.text, self.recipe, self.run)


@dataclass(repr=False, eq=False)
class Run:
    """The result of one simulation. The table is parsed when it is first used."""

    content: bytes = field(repr=False)  # of the result file
    path: Path | None = None  # the result file, if it was saved
    recipe_source: RecipeSource = field(default_factory=lambda: RecipeSource())
    text: str = ""  # why the run failed; empty if it ended normally or the reason is unknown
    wall_time: float | None = None  # of the call of the library, s
    scheme: str | None = None  # of the integration; None: unknown

    @functools.cached_property
    def profile(self) -> pd.DataFrame:
        """All rows; attrs["units"] and attrs["meanings"] describe the columns."""
        return parse_profile(self.content, self._name)

    @functools.cached_property
    def layers(self) -> pd.DataFrame:
        """One row per layer, numbered from 1. attrs["units"] and attrs["meanings"] describe the columns."""
        return layer_values(parse_layers(self.content, self._name), self.profile)

    @functools.cached_property
    def complete(self) -> bool:
        """True if the table reaches the end of the last layer."""
        return reaches_the_end(self.content, self._name)

    @functools.cached_property
    def unphysical(self) -> str:
        """One line on unphysical rows (NaN, infinity, a fraction far outside of 0 to 1). Empty if there are none."""
        return unphysical_text(self.profile, self._stages)

    @property
    def failed(self) -> bool:
        """True if the library reported a failure, rows are unphysical, or the table ends before the last layer does."""
        return bool(self.text) or not self.complete or bool(self.unphysical)

    @property
    def sha256(self) -> str:
        """SHA-256 hash of the result file."""
        return hashlib.sha256(self.content).hexdigest()

    @property
    def _name(self) -> str:
        return str(self.path or "result")

    @functools.cached_property
    def recipe(self) -> Recipe | None:
        """The recipe; None if it is unknown or not well-formed."""
        if self.recipe_source.content is None:
            return None
        try:
            return Recipe(self.recipe_source.content, self.recipe_source.path)
        except RecipeError:
            return None

    @functools.cached_property
    def interfaces(self) -> pd.DataFrame:
        """One row per interface with a change of composition, and its 10-90 % width; see vorlen.interfaces."""
        from ._interfaces import interfaces

        return interfaces(self)

    @property
    def warnings(self) -> list[str]:
        """Warnings about the values; usually empty."""
        return [self.unphysical] if self.unphysical else []

    def _stages(self) -> list[Stage]:
        """The stages as named in texts: from the recipe, or from the layers if it is unknown."""
        stages = stages_of_recipe(self.recipe) if self.recipe is not None else []
        return stages if len(stages) == len(self.layers) else stages_of_layers(self.layers)

    @property
    def end(self) -> pd.Series:
        """The last row: the surface at the end of the process."""
        return self.profile.iloc[-1]

    def to_csv(self, path: str | os.PathLike[str], what: str = "profile") -> None:
        """Writes "profile" or "layers" as comma-separated values with all digits."""
        self._table(what).to_csv(path, index=what == "layers")

    def to_netcdf(self, path: str | os.PathLike[str]) -> None:
        """Writes profile and layers as one netCDF-4 file, with units and meanings. Needs xarray and netCDF4."""
        from ._export import write_netcdf

        write_netcdf(self, Path(path))

    def _table(self, what: str) -> pd.DataFrame:
        if what not in ("profile", "layers"):
            raise ValueError(f'what must be "profile" or "layers", got {what!r}')
        return self.profile if what == "profile" else self.layers

    def plot(self, kind: str = "time", **options: Any) -> Figure:
        """A figure of the run; see vorlen.plot.plot_run for the kinds and options. Needs matplotlib."""
        from ._plot import plot_run

        return plot_run(self, kind, **options)

    def __repr__(self) -> str:
        state = f"failed: {self.text or self.unphysical or 'incomplete'}" if self.failed else "complete"
        place = f", {self.path}" if self.path else ""
        return f"<Run, {len(self.profile)} rows, {state}{place}>"


def read(path: str | os.PathLike[str], recipe: RecipeLike | None = None) -> Run:
    """Reads a result file, including that of a failed run.

    recipe  the recipe of the run, needed for temperatures and stages in figures and reports
    Raises ResultFileError, with the line number, if the file is not a valid result file. Text and duration of the run
    are read from its status file, if there is one that matches.
    """
    path = Path(path)
    content = path.read_bytes()
    if not content:
        raise ResultFileError(f"{path} is empty: the run ended before its first row")
    status = read_status(path)
    if status and status.get("result_sha256") != hashlib.sha256(content).hexdigest():
        status = {}
    source = RecipeSource() if recipe is None else RecipeSource.of(recipe)
    if recipe is not None and source.content is None:
        raise FileNotFoundError(f"recipe not found: {source.path}")
    result = Run(
        content, path, source, str(status.get("text") or ""), status.get("wall_time_s"), status.get("scheme")
    )
    _ = result.profile  # reports any fault of the file now
    return result
