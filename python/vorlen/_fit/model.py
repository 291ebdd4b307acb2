"""The model of a fit: the measured quantities as a function of the logarithms of the constants.

The runs of all points that are needed at once are submitted together. A curve adds the deviations of its points, which
curves.py computes from the result files.
"""

from __future__ import annotations

import contextlib
from collections.abc import Iterable, Sequence
from concurrent.futures import Executor
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from .._base.files import replace_file
from .._base.types import PathLike
from .._recipe.recipe import Recipe
from .._recipe.source import RecipeSource
from .._runs.run import SimulationError, read_run
from .._sweep.own_folder import own_folder
from .._sweep.plan import ROWS_FOLDER, Plan, RowFiles, make_task, row_files
from .._sweep.run_rows import run_tasks
from .curves import CurveTarget

Array = npt.NDArray[np.float64]
STEP = 0.01  # of a logarithm, for differences: far above the integration tolerance, yet a small change
KELVIN_STEP = 0.25  # of the temperature offset; a rate with an activation temperature of 40000 K changes by 0.01
OFFSET = "temperature_offset"  # the name of this parameter
PLACELESS = ("lost", "error")  # statuses of rows that say nothing about the constants


def fit_folder(out: PathLike | None, recipes: int) -> contextlib.AbstractContextManager[Path]:
    """The folder of a fit with so many recipes. Raises as own_folder()."""
    return own_folder(out, "fit", map(recipe_folder, range(recipes)))


def recipe_folder(number: int) -> str:
    """The folder of the runs of a recipe, counted from 0, in that of the fit."""
    return f"recipe_{number + 1}"


class FitModel:
    """The runs of a fit, each done once.

    folder  has a folder for each recipe, with the files of its runs
    keep    False: files are replaced by those of later runs
    curves  that are fitted too
    offset  whether the last parameter is the temperature offset, K, instead of a logarithm
    """

    def __init__(
        self,
        recipes: dict[str, Recipe],
        paths: list[str],
        measurements: pd.DataFrame,
        *,
        folder: Path,
        keep: bool,
        executor: Executor,
        timeout: float | None,
        curves: Sequence[CurveTarget] = (),
        offset: bool = False,
    ) -> None:
        self.paths, self.measurements, self.executor, self.keep = paths, measurements, executor, keep
        self.curves, self.offset = curves, offset
        self.names = [*paths, *([OFFSET] if offset else [])]
        self.steps = np.array([STEP] * len(paths) + [KELVIN_STEP] * offset)
        self.heats = {name: _temperatures(recipe) for name, recipe in recipes.items()} if offset else {}
        self.measured = measurements.measured.to_numpy()
        self.weighted = bool(measurements.sigma.notna().all())
        self.scale = measurements.sigma.to_numpy() if self.weighted else np.abs(self.measured)
        self.plans = {name: Plan(recipe.to_bytes(), {}, timeout=timeout) for name, recipe in recipes.items()}
        self.folders = {name: folder / recipe_folder(number) for number, name in enumerate(recipes)}
        for name, place in self.folders.items():
            (place / ROWS_FOLDER).mkdir(parents=True, exist_ok=True)
            replace_file(place / "recipe.xml", self.plans[name].recipe)
        self._known: dict[tuple[float, ...], Array | str] = {}  # by constants: quantities, or a failure text
        self._kinds: list[str] = []  # of the points in _known

    def at(self, points: Iterable[Array], kind: str) -> list[Array | str]:
        """The quantities at each point, a list of logarithms of the constants; a text where a run failed.

        kind  of these points in the history
        """
        keys = [tuple(float(value) for value in point) for point in points]
        new = [key for key in dict.fromkeys(keys) if key not in self._known]
        first = len(self._known) if self.keep else 0
        tasks = [
            make_task(plan, self.folders[name], first + number, self.values(key, name), resume=True)
            for number, key in enumerate(new)
            for name, plan in self.plans.items()
        ]
        rows = iter(run_tasks(tasks, self.executor, progress=False))
        for number, key in enumerate(new):
            files = {name: row_files(place, first + number) for name, place in self.folders.items()}
            self._known[key] = self._quantities({name: next(rows) for name in self.plans}, files, key)
            self._kinds.append(kind)
        return [self._known[key] for key in keys]

    def constants(self, point: Iterable[float]) -> dict[str, float]:
        """The constants at a point, by path, and the temperature offset."""
        return {
            name: float(value) if name == OFFSET and self.offset else float(np.exp(value))
            for name, value in zip(self.names, point)
        }

    def values(self, point: Iterable[float], recipe: str) -> dict[str, float]:
        """What a recipe is changed to at a point, by path."""
        values = self.constants(point)
        if self.offset:
            shift = values.pop(OFFSET)
            values |= {path: heat + shift for path, heat in self.heats[recipe].items()}
        return values

    def weigh(self, values: Array) -> Array:
        """Sets the standard deviations of the curves' points from their deviations; returns the weights of the curves."""
        blocks = self._blocks(values)
        weights = [curve.weigh(block) for curve, block in zip(self.curves, blocks)]
        self.scale = np.concatenate([self.scale[: len(self.measurements)], *(curve.scale for curve in self.curves)])
        self.measured = np.concatenate([self.measured[: len(self.measurements)], np.zeros(sum(map(len, blocks)))])
        return np.array(weights)

    def _blocks(self, values: Array) -> list[Array]:
        """The deviations of each curve."""
        ends = len(self.measurements) + np.cumsum([0, *(curve.count for curve in self.curves)])
        return [values[begin:end] for begin, end in zip(ends, ends[1:])]

    def smoothed(self, residual: Array) -> Array:
        """Residuals, or derivatives of them, with those of diffraction curves averaged over neighbours."""
        blocks = self._blocks(residual)
        return np.concatenate(
            [residual[: len(self.measurements)], *(curve.smoothed(block) for curve, block in zip(self.curves, blocks))]
        )

    def residual(self, values: Array) -> Array:
        """Fitted less measured, in standard deviations, or relative to the measured value if none are given."""
        residual: Array = (values - self.measured) / self.scale
        return residual

    def _quantities(
        self, rows: dict[str, dict[str, Any]], files: dict[str, RowFiles], key: tuple[float, ...]
    ) -> Array | str:
        for name, row in rows.items():
            if row["status"] in PLACELESS:
                raise SimulationError(f"a run of {name} gave no result: {row['text']}")
            if row["status"] != "ok":
                return str(row["text"])
        values = []
        for name, quantity in zip(self.measurements.recipe, self.measurements.quantity):
            if quantity not in rows[name]["values"]:
                known = ", ".join(rows[name]["values"])
                raise ValueError(f"unknown quantity {quantity} in {name}; known are {known}")
            value = rows[name]["values"][quantity]
            if value is None:
                return f"{quantity} of {name} is NaN"
            values.append(value)
        try:
            runs = {  # each parsed once, for all of its curves
                name: read_run(files[name].result, RecipeSource.of(files[name].recipe))
                for name in dict.fromkeys(curve.target.recipe for curve in self.curves)
            }
            deviations = [curve.deviations(runs[curve.target.recipe], key) for curve in self.curves]
        except ValueError as error:
            return str(error)
        quantities: Array = np.concatenate([np.array(values, dtype=float), *deviations])
        return quantities

    def derivatives(self, point: Array) -> Array:
        """One column per constant: central differences, or one-sided ones where a run fails on one side."""
        steps = np.diag(self.steps)
        centre, *sides = self.at([point, *(point + steps), *(point - steps)], "derivative")
        if isinstance(centre, str):
            raise SimulationError(centre)
        pairs = zip(self.names, self.steps, sides[: len(point)], sides[len(point) :])
        return np.column_stack([_difference(name, step, centre, above, below) for name, step, above, below in pairs])

    def history(self) -> pd.DataFrame:
        """A row per point in the order of the runs: kind, constants, chi_square, and text if a run failed."""
        records = []
        for (key, values), kind in zip(self._known.items(), self._kinds):
            text = values if isinstance(values, str) else ""
            chi_square = np.nan if isinstance(values, str) else float(np.sum(self.residual(values) ** 2))
            records.append({"kind": kind, **self.constants(key), "chi_square": chi_square, "text": text})
        return pd.DataFrame(records, index=pd.RangeIndex(len(records), name="run"))


def _temperatures(recipe: Recipe) -> dict[str, float]:
    """The temperatures of all stages by path, both ends of ramps. Raises ValueError if there are none."""
    found: dict[str, float] = {}
    for path in recipe.paths():
        if path.endswith("/T") and "stage" in path.split("/")[0]:
            value = recipe[path]
            ends = {f"{path}/val": value[0], f"{path}/end": value[1]} if isinstance(value, tuple) else {path: value}
            found |= {place: float(heat) for place, heat in ends.items()}
    if not found:
        raise ValueError("temperature_offset: the recipe has no temperatures")
    return found


def _difference(path: str, step: float, centre: Array, above: Array | str, below: Array | str) -> Array:
    if isinstance(above, str):
        if isinstance(below, str):
            raise SimulationError(f"no derivative with respect to {path}: the runs on both sides fail: {above}")
        return (centre - below) / step
    if isinstance(below, str):
        return (above - centre) / step
    return (above - below) / (2.0 * step)
