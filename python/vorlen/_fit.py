"""Calibration: kinetic constants from measured thicknesses and compositions, by least squares.

    result = vorlen.fit(
        {"cold": "cold.xml", "hot": "hot.xml"},
        {"chemistry/Kd_In/A": (1e12, 1e14)},
        {"cold": {"x_in_2": (0.24, 0.005)}, "hot": {"x_in_2": (0.13, 0.005), "thickness_2": (2.7, 0.1)}},
    )
    result.constants

The constants are fitted as logarithms: they are positive and known only to orders of magnitude, and the standard error
of a logarithm is a relative error. lmfit does the fit (Levenberg-Marquardt). Derivatives are central differences; all
their runs are submitted to the worker processes at once.
"""

from __future__ import annotations

import contextlib
import os
import re
import tempfile
from collections.abc import Iterator, Mapping
from concurrent.futures import Executor
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from ._plan import Plan, make_task, prepare_folder
from ._pool import LocalPool, default_workers
from ._scheme import check_scheme
from ._table import UNITS
from ._recipe import Recipe
from ._run import SimulationError
from ._source import RecipeSource
from ._sweep import run_tasks

if TYPE_CHECKING:
    from lmfit import Parameters
    from lmfit.minimizer import MinimizerResult
    from matplotlib.figure import Figure

RecipeLike = str | os.PathLike[str] | Recipe
STEP = 0.01  # of a logarithm, for differences: far above the integration tolerance, yet a small change
FAILED_RESIDUAL = 1e6  # in standard deviations, where a run fails: the fit turns back there
TOLERANCES = {"ftol": 1e-5, "xtol": 1e-6}  # relative; about 0.01 of a standard error, reached in a few steps
FIRST_STEP = 0.3  # of the Levenberg-Marquardt method; long first steps lead to regions where runs are slow or fail
NAME_OF_A_SINGLE_RECIPE = "recipe"


class _Model:
    """The measured quantities as a function of the constants, one worker process per run."""

    def __init__(
        self, recipes: dict[str, Recipe], paths: list[str], measurements: pd.DataFrame, folder: Path,
        executor: Executor, timeout: float | None,
    ) -> None:
        self.paths, self.measurements = paths, measurements
        self.executor = executor
        self.folders = {name: folder / f"recipe_{number}" for number, name in enumerate(recipes, 1)}
        self.plans = {name: Plan(recipe.to_bytes(), {}, timeout=timeout) for name, recipe in recipes.items()}
        for name, plan in self.plans.items():
            prepare_folder(plan, self.folders[name], resume=False)
        self.known: dict[tuple[float, ...], np.ndarray | str] = {}  # by constants: quantities, or a failure text

    def at(self, points: list[np.ndarray]) -> list[np.ndarray | str]:
        """The quantities at each point, a list of logarithms of the constants; a text where a run failed."""
        keys = [tuple(float(value) for value in point) for point in points]
        new = [key for key in dict.fromkeys(keys) if key not in self.known]
        tasks = [
            make_task(plan, self.folders[name], number, dict(zip(self.paths, map(float, np.exp(key)))), resume=False)
            for number, key in enumerate(new)
            for name, plan in self.plans.items()
        ]
        rows = run_tasks(tasks, self.executor, progress=False)
        count = len(self.folders)
        for number, key in enumerate(new):
            self.known[key] = self._quantities(dict(zip(self.folders, rows[number * count : (number + 1) * count])))
        return [self.known[key] for key in keys]

    def _quantities(self, rows: dict[str, dict[str, Any]]) -> np.ndarray | str:
        for name, row in rows.items():
            if row["status"] != "ok":
                return row["text"]
        values = []
        for name, quantity in zip(self.measurements.recipe, self.measurements.quantity):
            if quantity not in rows[name]["values"]:
                known = ", ".join(rows[name]["values"])
                raise ValueError(f"unknown quantity {quantity} in {name}; known are {known}")
            value = rows[name]["values"][quantity]
            if value is None:
                return f"{quantity} of {name} is NaN"
            values.append(value)
        return np.array(values)

    def derivatives(self, point: np.ndarray) -> np.ndarray:
        """One column per constant: central differences, or one-sided ones where a run fails on one side."""
        steps = STEP * np.eye(len(point))
        centre, *sides = self.at([point, *(point + steps), *(point - steps)])
        columns = []
        for path, above, below in zip(self.paths, sides[: len(point)], sides[len(point) :]):
            width = 2.0 * STEP
            if isinstance(above, str):
                above, width = centre, STEP
            if isinstance(below, str):
                below, width = centre, width - STEP
            if isinstance(above, str) or isinstance(below, str) or width < 0.5 * STEP:
                raise SimulationError(f"no derivative with respect to {path}: the runs on both sides fail")
            columns.append((above - below) / width)
        return np.column_stack(columns)


def _given_recipes(recipe: RecipeLike | Mapping[str, RecipeLike], scheme: str | None) -> dict[str, Recipe]:
    named = recipe if isinstance(recipe, Mapping) else {NAME_OF_A_SINGLE_RECIPE: recipe}
    recipes = {}
    for name, one in named.items():
        source = RecipeSource.of(one).under(scheme)
        if source.content is None:
            raise FileNotFoundError(f"recipe not found: {one}")
        recipes[str(name)] = Recipe(source.content, source.path)
    return recipes


def _measurement_table(measurements: Mapping[str, Any] | pd.DataFrame, names: list[str]) -> pd.DataFrame:
    """Columns recipe, quantity, measured, sigma (NaN where none is given)."""
    if isinstance(measurements, pd.DataFrame):
        missing = [column for column in ("quantity", "value") if column not in measurements]
        if missing:
            raise ValueError(f"the measurements have no column {missing[0]}")
        table = pd.DataFrame({
            "recipe": measurements["recipe"] if "recipe" in measurements else names[0],
            "quantity": measurements["quantity"],
            "measured": measurements["value"].astype(float),
            "sigma": measurements["sigma"].astype(float) if "sigma" in measurements else np.nan,
        }).reset_index(drop=True)
    else:
        nested = measurements if all(isinstance(value, Mapping) for value in measurements.values()) else {
            names[0]: measurements
        }
        records = [
            (str(name), quantity, *(map(float, value) if np.ndim(value) else (float(value), np.nan)))
            for name, quantities in nested.items()
            for quantity, value in quantities.items()
        ]
        table = pd.DataFrame(records, columns=["recipe", "quantity", "measured", "sigma"])
        table = table.astype({"measured": float, "sigma": float})
    unknown = sorted(set(table.recipe) - set(names))
    if unknown:
        raise ValueError(f"measurements are given for {unknown[0]}, which is not one of the recipes {', '.join(names)}")
    given = table.sigma.notna()
    if given.any() and not given.all():
        raise ValueError("give a standard deviation for all measurements or for none")
    if (table.sigma <= 0).any() or not np.isfinite(table.measured).all():
        raise ValueError("each measurement must be a finite number and its standard deviation positive")
    if not given.any() and (table.measured == 0).any():
        raise ValueError("a measured 0 needs a standard deviation: without one, deviations are relative")
    return table


def _start_parameters(recipes: dict[str, Recipe], parameters: Mapping[str, Any]) -> tuple[Parameters, list[str]]:
    """lmfit's parameters (logarithms, named ln_NAME) and the paths in the same order."""
    from lmfit import Parameters

    made = Parameters()
    for path, bounds in parameters.items():
        for name, recipe in recipes.items():
            if path not in recipe:
                raise ValueError(f"{name} has no {path}")
        present = next(iter(recipes.values()))[path]
        low, start, high = bounds if len(bounds) == 3 else (bounds[0], present, bounds[1])
        if not isinstance(start, (int, float)):
            raise ValueError(f"{path} is {start!r}, not a single number; give the path of an attribute, as in {path}/A")
        if not 0.0 < low < high or not low <= start <= high:
            raise ValueError(f"{path}: bounds must satisfy 0 < low <= start <= high, got {low:g}, {start:g}, {high:g}")
        name = "ln_" + re.sub(r"\W", "_", path.removeprefix("chemistry/"))
        made.add(name, value=np.log(start), min=np.log(low), max=np.log(high))
    return made, list(parameters)


@contextlib.contextmanager
def _working_folder(out: str | os.PathLike[str] | None) -> Iterator[Path]:
    if out is not None:
        Path(out).mkdir(parents=True, exist_ok=True)
        yield Path(out)
        return
    with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
        yield Path(folder)


def fit(
    recipe: RecipeLike | Mapping[str, RecipeLike],
    parameters: Mapping[str, tuple[float, float] | tuple[float, float, float]],
    measurements: Mapping[str, Any] | pd.DataFrame,
    workers: int | None = None,
    executor: Executor | None = None,
    out: str | os.PathLike[str] | None = None,
    timeout: float | None = None,
    level: float = 0.95,
    scheme: str | None = None,
) -> MinimizerResult:
    """Fits constants of one recipe, or of several at once, to measurements.

    recipe        a path, a Recipe or the XML itself; for several, a mapping of names to recipes
    parameters    path in the recipes: (low, high) or (low, start, high), all above 0; the default start is the value in
                  the first recipe. All recipes get the same value
    measurements  quantity: (value, standard deviation), or the value alone, for one recipe; for several, a mapping
                  of recipe names to such mappings; or a data frame with the columns recipe, quantity, value, sigma.
                  Quantities are the columns of a sweep's table: thickness_2 in nm, x_in_2, z, ...
                  Without standard deviations, relative deviations are minimised, and their scatter gives the errors
    workers, executor, timeout  as for sweep()
    out           folder for the files of the runs; None: a temporary one. It must be shared with executors on other
                  machines
    level         confidence level of the intervals
    scheme        integration scheme of all runs, "continuous" or "staged"; None: those of the recipes

    Returns lmfit's result, whose parameters are logarithms (ln_...), with these attributes added
      constants   a row per path: start, value, low and high of the confidence interval, relative_error
      fitted      a row per measurement: recipe, quantity, measured, sigma, fitted, residual
      recipes     the recipes with the fitted constants, and with the scheme if one is given
      runs        number of simulations
    Raises SimulationError if a run fails at the start of the fit.
    """
    from lmfit import minimize

    check_scheme(scheme)
    recipes = _given_recipes(recipe, scheme)
    table = _measurement_table(measurements, list(recipes))
    start, paths = _start_parameters(recipes, parameters)
    if not paths or len(table) < len(paths):
        raise ValueError(f"{len(table)} measurements can't determine {len(paths)} constants")
    weighted = bool(table.sigma.notna().all())
    measured = table.measured.to_numpy()
    scale = table.sigma.to_numpy() if weighted else np.abs(measured)
    local = LocalPool(workers or default_workers()) if executor is None else contextlib.nullcontext(executor)

    with _working_folder(out) as folder, local as pool:
        model = _Model(recipes, paths, table, folder, pool, timeout)

        def residual(current: Parameters) -> np.ndarray:
            (values,) = model.at([np.array([one.value for one in current.values()])])
            return np.full(len(table), FAILED_RESIDUAL) if isinstance(values, str) else (values - measured) / scale

        def jacobian(current: Parameters) -> np.ndarray:
            return model.derivatives(np.array([one.value for one in current.values()])) / scale[:, None]

        (first,) = model.at([np.array([one.value for one in start.values()])])
        if isinstance(first, str):
            raise SimulationError(first, recipe)
        result = minimize(
            residual, start, method="leastsq", scale_covar=not weighted, Dfun=jacobian, factor=FIRST_STEP, **TOLERANCES
        )
        (values,) = model.at([np.array([one.value for one in result.params.values()])])

    result.runs = len(model.known) * len(recipes)
    result.constants = _constants(result, start, paths, weighted, level)
    result.fitted = table.assign(fitted=values, residual=(values - measured) / scale)
    result.recipes = {name: _with_constants(one, result.constants) for name, one in recipes.items()}
    return result


def _with_constants(recipe: Recipe, constants: pd.DataFrame) -> Recipe:
    fitted = recipe.copy()
    for path, value in constants["value"].items():
        fitted[path] = float(value)
    return fitted


def _constants(
    result: MinimizerResult, start: Parameters, paths: list[str], weighted: bool, level: float
) -> pd.DataFrame:
    """Values and confidence intervals, from the covariance of the logarithms; NaN where undetermined."""
    from scipy import stats

    # Normal quantiles for known standard deviations, Student's for an estimated one.
    quantile = stats.norm.ppf(0.5 + level / 2) if weighted else stats.t.ppf(0.5 + level / 2, result.nfree)
    records = []
    for path, first, last in zip(paths, start.values(), result.params.values()):
        error = np.nan if last.stderr is None else last.stderr
        records.append({
            "start": np.exp(first.value),
            "value": np.exp(last.value),
            "low": np.exp(last.value - quantile * error),
            "high": np.exp(last.value + quantile * error),
            "relative_error": error,
        })
    table = pd.DataFrame(records, index=pd.Index(paths, name="path"))
    table.attrs["level"] = level
    return table


def plot_fit(result: MinimizerResult, path: str | os.PathLike[str] | None = None) -> Figure:
    """Fitted against measured values, a panel for each kind of quantity; on the line they are equal.

    path  file to save the figure to; None: it is not saved
    """
    import matplotlib.pyplot as plt

    from ._plot import BLACK, GALLIUM, INDIUM, STYLE

    labels = {"thickness": "Thickness", "x_in": "Indium", "x_ga": "Gallium", "x_al": "Aluminium", "z": "Height"}
    kinds = result.fitted.quantity.str.replace(r"_\d+$", "", regex=True)
    present = list(dict.fromkeys(kinds))
    colours = [GALLIUM, INDIUM, "#009E73", "#AA3377"]
    names = list(dict.fromkeys(result.fitted.recipe))
    with plt.rc_context(STYLE):
        figure, panels = plt.subplots(
            1, len(present), figsize=(3.1 * len(present), 3.0), squeeze=False, constrained_layout=True
        )
        for panel, kind in zip(panels[0], present):
            rows = result.fitted[kinds == kind]
            ends = np.array([rows[["measured", "fitted"]].min().min(), rows[["measured", "fitted"]].max().max()])
            ends += np.array([-0.06, 0.06]) * max(ends[1] - ends[0], 0.02 * abs(ends[1]))
            panel.plot(ends, ends, color=BLACK, linewidth=0.7, zorder=1)
            for number, name in enumerate(names):
                of_recipe = rows[rows.recipe == name]
                sigma = None if of_recipe.sigma.isna().any() else of_recipe.sigma
                panel.errorbar(
                    of_recipe.measured, of_recipe.fitted, xerr=sigma, fmt="os^Dv"[number % 5], markersize=4,
                    color=colours[number % 4], elinewidth=0.8, label=name, zorder=2,
                )
            unit = UNITS.get(kind, "1")
            title = labels.get(kind, kind) + ("" if unit == "1" else f" ({unit})")
            panel.set(xlabel=f"{title}, measured", ylabel=f"{title}, fitted", xlim=ends, ylim=ends)
            panel.set_aspect("equal")
        if len(names) > 1:
            panels[0][0].legend(loc="upper left")
        if path is not None:
            figure.savefig(path)
    return figure
