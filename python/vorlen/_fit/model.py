"""The model of a fit: the measured quantities as a function of the logarithms of the constants.

The runs of all points that are needed at once are submitted together.
"""

from __future__ import annotations

import contextlib
from collections.abc import Iterable
from concurrent.futures import Executor
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from .._base.files import replace_file
from .._base.types import PathLike
from .._recipe.recipe import Recipe
from .._runs.run import SimulationError
from .._sweep.own_folder import own_folder
from .._sweep.plan import ROWS_FOLDER, Plan, make_task
from .._sweep.run_rows import run_tasks

Array = npt.NDArray[np.float64]
STEP = 0.01  # of a logarithm, for differences: far above the integration tolerance, yet a small change
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
    ) -> None:
        self.paths, self.measurements, self.executor, self.keep = paths, measurements, executor, keep
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
            make_task(plan, self.folders[name], first + number, self.constants(key), resume=True)
            for number, key in enumerate(new)
            for name, plan in self.plans.items()
        ]
        rows = iter(run_tasks(tasks, self.executor, progress=False))
        for key in new:
            self._known[key] = self._quantities({name: next(rows) for name in self.plans})
            self._kinds.append(kind)
        return [self._known[key] for key in keys]

    def constants(self, point: Iterable[float]) -> dict[str, float]:
        """The constants at a point, by path."""
        return {path: float(np.exp(value)) for path, value in zip(self.paths, point)}

    def residual(self, values: Array) -> Array:
        """Fitted less measured, in standard deviations, or relative to the measured value if none are given."""
        residual: Array = (values - self.measured) / self.scale
        return residual

    def _quantities(self, rows: dict[str, dict[str, Any]]) -> Array | str:
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
        return np.array(values, dtype=float)

    def derivatives(self, point: Array) -> Array:
        """One column per constant: central differences, or one-sided ones where a run fails on one side."""
        steps = STEP * np.eye(len(point))
        centre, *sides = self.at([point, *(point + steps), *(point - steps)], "derivative")
        if isinstance(centre, str):
            raise SimulationError(centre)
        pairs = zip(self.paths, sides[: len(point)], sides[len(point) :])
        return np.column_stack([_difference(path, centre, above, below) for path, above, below in pairs])

    def history(self) -> pd.DataFrame:
        """A row per point in the order of the runs: kind, constants, chi_square, and text if a run failed."""
        records = []
        for (key, values), kind in zip(self._known.items(), self._kinds):
            text = values if isinstance(values, str) else ""
            chi_square = np.nan if isinstance(values, str) else float(np.sum(self.residual(values) ** 2))
            records.append({"kind": kind, **self.constants(key), "chi_square": chi_square, "text": text})
        return pd.DataFrame(records, index=pd.RangeIndex(len(records), name="run"))


def _difference(path: str, centre: Array, above: Array | str, below: Array | str) -> Array:
    if isinstance(above, str):
        if isinstance(below, str):
            raise SimulationError(f"no derivative with respect to {path}: the runs on both sides fail: {above}")
        return (centre - below) / STEP
    if isinstance(below, str):
        return (above - centre) / STEP
    return (above - below) / (2.0 * STEP)
