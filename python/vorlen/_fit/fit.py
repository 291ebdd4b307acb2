"""Calibration: kinetic constants from measured thicknesses and compositions, by least squares.

    fit = vorlen.fit(
        {"cold": "cold.xml", "hot": "hot.xml"},
        {"chemistry/Kd_In/A": (1e12, 1e14)},
        {"cold": {"x_in_2": (0.24, 0.005)}, "hot": {"x_in_2": (0.13, 0.005), "thickness_2": (2.7, 0.1)}},
    )
    fit.constants

The constants are fitted as logarithms: they are positive and known only to orders of magnitude, and the standard error
of a logarithm is a relative error. lmfit does the fit (Levenberg-Marquardt). The covariance of the estimates is the
inverse of J'J, J being the derivatives of the residuals at the solution, by central differences.
"""

from __future__ import annotations

import re
from collections.abc import Mapping
from concurrent.futures import Executor
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from .._base.arguments import check_flags, check_number, check_timeout, given_executor, is_number
from .._base.types import PathLike
from .._recipe.check import warn_about
from .._recipe.recipe import Recipe, place_in
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .._sweep.plan_values import given_recipe
from .._sweep.run_rows import pool_of
from .measurements import measurement_table
from .model import STEP, Array, FitModel, fit_folder
from .plot import plot_fit

if TYPE_CHECKING:
    from lmfit import Parameters
    from lmfit.minimizer import MinimizerResult
    from matplotlib.figure import Figure

FAILED_RESIDUAL = 1e6  # in standard deviations, where a run fails: the fit turns back there
TOLERANCES = {"ftol": 1e-5, "xtol": 1e-6}  # relative; about 0.01 of a standard error, reached in a few steps
START_DISTANCE = 1e-4  # of a start from its bounds, as a share of the logarithmic range
FIRST_STEP = 0.3  # of the Levenberg-Marquardt method; long first steps lead to regions where runs are slow or fail
SINGULAR = 1e-10  # smallest to largest singular value of the derivatives, below which the constants are undetermined
NAME_OF_A_SINGLE_RECIPE = "recipe"


@dataclass(frozen=True, eq=False, repr=False)
class Fit:
    """The result of a fit.

    Attributes
    ----------
    constants : pandas.DataFrame
        A row per path: start, value, low and high of the confidence interval, relative_error, and at_bound: "low" or
        "high" if the estimate is at that bound, otherwise "". Errors that are not determined are NaN.
        attrs["level"] is the confidence level.
    covariance : pandas.DataFrame
        Covariance of the logarithms of the constants, labelled by path; NaN for constants at a bound, which count as
        fixed, and if the measurements do not determine the constants.
    correlation : pandas.DataFrame
        The same, normalised.
    history : pandas.DataFrame
        A row per point that was run, in order: kind (step or derivative), the constants, chi_square (NaN if a run
        failed), text of the failure. With out, the index is the number of the files.
    fitted : pandas.DataFrame
        A row per measurement: recipe, quantity, measured, sigma (NaN if none is given), fitted, and residual: fitted
        less measured, in standard deviations, or relative to the measured value if none are given.
    recipes : dict of str to Recipe
        The recipes with the fitted constants, and with the scheme if one is given. A single recipe has the name
        recipe.
    chi_square : float
        Sum of the squared residuals.
    degrees_of_freedom : int
        Number of measurements less that of constants that are not at a bound.
    success : bool
        True if the fit converged.
    message : str
        How it ended, in the words of the method.
    warnings : list of str
        Texts about doubtful results; usually empty.
    runs : int
        Number of simulations.
    lmfit : lmfit.minimizer.MinimizerResult
        lmfit's result; its parameters are the logarithms of the constants, named ln_PATH.
    """

    constants: pd.DataFrame
    covariance: pd.DataFrame
    correlation: pd.DataFrame
    history: pd.DataFrame
    fitted: pd.DataFrame
    recipes: dict[str, Recipe]
    chi_square: float
    degrees_of_freedom: int
    success: bool
    message: str
    warnings: list[str]
    runs: int
    lmfit: MinimizerResult

    def plot(self, *, path: PathLike | None = None) -> Figure:
        """Fitted against measured values, a panel for each kind of quantity; on the line they are equal.

        Needs matplotlib.

        Parameters
        ----------
        path : path, optional
            File to save the figure to, in the format of its ending; None: it is not saved.

        Returns
        -------
        matplotlib.figure.Figure
            The figure.

        Raises
        ------
        TypeError
            If path is not a path.
        ValueError
            If path is one of the recipes, not a regular file, or without the ending of a format.
        OSError
            If the figure can't be written.
        """
        inputs = [recipe.path for recipe in self.recipes.values()]
        return plot_fit(self.fitted, path, inputs)

    def __repr__(self) -> str:
        state = "" if self.success else ", not converged"
        return f"<Fit, {len(self.constants)} constants, {len(self.fitted)} measurements{state}>"

    def __str__(self) -> str:
        chi_square = f"chi square {self.chi_square:.4g}, {self.degrees_of_freedom} degrees of freedom"
        return "\n".join([self.constants.to_string(float_format="{:.4g}".format), chi_square, *self.warnings])


def fit(
    recipe: RecipeLike | Mapping[str, RecipeLike],
    parameters: Mapping[str, tuple[float, float] | tuple[float, float, float]],
    measurements: Mapping[str, Any] | pd.DataFrame,
    *,
    level: float = 0.95,
    scheme: str | None = None,
    timeout: float | None = None,
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    check: bool = True,
) -> Fit:
    """Fits constants of one recipe, or of several at once, to measurements.

    Needs lmfit and scipy.

    Parameters
    ----------
    recipe : str, bytes, path, Recipe, or mapping of str to these
        A path, the XML itself, or a Recipe; for several recipes, a mapping of names to them.
    parameters : mapping of str to tuple
        Path in the recipes: (low, high) or (low, start, high), all above 0. The default start is the value in the first
        recipe. All recipes get the same value. A ramp must have equal ends, and both are set.
    measurements : mapping or pandas.DataFrame
        For one recipe, quantity: (value, standard deviation), or the value alone; for several recipes, a mapping of
        their names to such mappings; or a data frame with the columns recipe, quantity, value, sigma. Quantities are
        the key results of sweep(): thickness_2 (nm), x_in_2, z (nm), ... Without standard deviations, relative
        deviations are minimised, and their scatter gives the errors. Names of recipes that are numbers may be written
        differently, such as 12, 12.0 and "0012", as long as only one recipe has that number.
    level : float, optional
        Confidence level of the intervals, between 0 and 1.
    scheme : str, optional
        Integration scheme of all runs, "continuous" or "staged"; None: those of the recipes.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    out : path, optional
        Folder for the files of the runs, in a folder recipe_N for each recipe; runs that are there already are not
        repeated. None: the files are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    check : bool, optional
        True: issue one RecipeWarning for each recipe that `vorlen check` has warnings about, with the first three,
        before the runs.

    Returns
    -------
    Fit
        Constants with their errors, fitted values and all runs.

    Raises
    ------
    TypeError
        If an argument has a wrong type, such as a text for a number. Nothing was run.
    ValueError
        If the fit is impossible: an unknown path or quantity, bounds that are not 0 < low < start < high, fewer
        measurements than constants. Nothing was run.
    RecipeError
        If a recipe is not well-formed XML or not a recipe.
    OSError
        If a recipe can't be read, or the folder can't be written or has files of something else.
    BusyError
        If another fit is running in out.
    SimulationError
        If a run fails at the start, or has no result for a reason other than the constants.
    """
    from lmfit import minimize

    check_number(level, "level must be a number between 0 and 1, such as 0.95", 0.0, 1.0)
    check_timeout(timeout)
    check_flags(check=check)
    executor = given_executor(workers, executor, out)
    recipes = _given_recipes(recipe, scheme)
    start, paths = _start_parameters(recipes, parameters)
    table = measurement_table(measurements, recipes)
    if len(table) < len(paths):
        raise ValueError(f"{len(table)} measurements can't determine {len(paths)} constants")
    if check:
        for name, one in recipes.items():
            called = name if isinstance(recipe, Mapping) else one.path
            warn_about(one.to_bytes(), called, in_file=one.path is not None)

    with pool_of(workers, executor) as pool, fit_folder(out, len(recipes)) as folder:
        model = FitModel(
            recipes, paths, table, folder=folder, keep=out is not None, executor=pool, timeout=timeout
        )

        def residual(current: Parameters) -> Array:
            (values,) = model.at([_point(current)], "step")
            return np.full(len(table), FAILED_RESIDUAL) if isinstance(values, str) else model.residual(values)

        def jacobian(current: Parameters) -> Array:
            scaled: Array = model.derivatives(_point(current)) / model.scale[:, None]
            return scaled

        (first,) = model.at([_point(start)], "step")
        if isinstance(first, str):
            raise SimulationError(first, recipe)
        found = minimize(
            residual, start, method="leastsq", scale_covar=not model.weighted, Dfun=jacobian, factor=FIRST_STEP,
            **TOLERANCES,
        )
        derivatives = jacobian(found.params)
        (values,) = model.at([_point(found.params)], "step")
    assert not isinstance(values, str)
    return _result(model, recipes, found, start, values, derivatives, level)


def _point(current: Parameters) -> Array:
    return np.array([one.value for one in current.values()], dtype=float)


def _given_recipes(recipe: RecipeLike | Mapping[str, RecipeLike], scheme: str | None) -> dict[str, Recipe]:
    named = recipe if isinstance(recipe, Mapping) else {NAME_OF_A_SINGLE_RECIPE: recipe}
    recipes: dict[str, Recipe] = {}
    for name, one in named.items():
        if str(name) in recipes:
            raise ValueError(f"two recipes have the name {name}")
        recipes[str(name)] = given_recipe(one, scheme)
    if not recipes:
        raise ValueError("give at least one recipe")
    return recipes


def _start_parameters(recipes: dict[str, Recipe], parameters: Mapping[str, Any]) -> tuple[Parameters, list[str]]:
    """lmfit's parameters (logarithms, named ln_PATH) and the paths in the same order."""
    from lmfit import Parameters

    if not isinstance(parameters, Mapping):
        raise TypeError(f"parameters must be a mapping of paths to bounds, got {type(parameters).__name__}")
    if not parameters:
        raise ValueError("give at least one parameter")
    first = next(iter(recipes.values()))
    made, paths = Parameters(), list(parameters)
    for number, path in enumerate(paths):
        for name, recipe in recipes.items():
            if path not in recipe:
                raise ValueError(f"{name} has no {path}")
        place = place_in(first, path)
        for other in paths[:number]:
            if place.overlaps(place_in(first, other)):
                raise ValueError(f"{other} and {path} mean the same constant")
        if place.kind == "integer":
            raise ValueError(f"{path} takes integers; only real numbers can be fitted")
        present = [_present_value(name, recipe, path) for name, recipe in recipes.items()]
        low, start, high = _bounds(path, parameters[path], present[0])
        name = "ln_" + re.sub(r"\W", "_", place.short_name, flags=re.ASCII)
        made.add(name if name not in made else f"{name}_{number}", np.log(start), min=np.log(low), max=np.log(high))
    return made, paths


def _present_value(name: str, recipe: Recipe, path: str) -> Any:
    """The value at a path; of a ramp whose ends are equal, one number. Raises ValueError for other ramps."""
    value = recipe[path]
    if not isinstance(value, tuple):
        return value
    if value[0] != value[1]:
        raise ValueError(
            f"{path} of {name} is a ramp from {value[0]} to {value[1]}; only a ramp with equal ends can be fitted, or one "
            f"end, {path}/val or {path}/end"
        )
    return value[0]


def _bounds(path: str, given: Any, present: Any) -> tuple[float, float, float]:
    """Low, start and high."""
    values = tuple(given) if isinstance(given, (tuple, list, np.ndarray)) else ()
    if len(values) not in (2, 3) or not all(map(is_number, values)):
        raise ValueError(f"{path}: expected (low, high) or (low, start, high), finite numbers, got {given!r}")
    low, start, high = values if len(values) == 3 else (values[0], present, values[1])
    if not is_number(start):
        raise ValueError(f"{path} is {start!r}, not a single number; give the path of an attribute, as in {path}/A")
    if not 0.0 < low < start < high:
        raise ValueError(f"{path}: bounds must satisfy 0 < low < start < high, got {low:g}, {start:g}, {high:g}")
    # A start at a bound would stay there: the derivative of lmfit's transformation is almost 0.
    place = np.log(start / low) / np.log(high / low)
    if not START_DISTANCE <= place <= 1.0 - START_DISTANCE:
        raise ValueError(f"{path}: the start {start:g} is too close to a bound of {low:g} to {high:g} to move from there")
    return float(low), float(start), float(high)


def _result(
    model: FitModel, recipes: dict[str, Recipe], found: MinimizerResult, start: Parameters, values: Array,
    derivatives: Array, level: float,
) -> Fit:
    residual = model.residual(values)
    at_bound = _at_bounds(found.params, residual, derivatives)
    free = np.array([bound == "" for bound in at_bound])
    chi_square, freedom = float(residual @ residual), len(residual) - int(free.sum())
    variance = 1.0 if model.weighted else chi_square / freedom if freedom else np.nan
    covariance = _inverse_normal_matrix(derivatives, free) * variance
    errors = np.sqrt(np.diag(covariance))
    constants = _constants(model, start, found.params, errors, _quantile(model.weighted, level, freedom))
    constants["at_bound"] = at_bound
    constants.attrs["level"] = level
    return Fit(
        constants=constants,
        covariance=pd.DataFrame(covariance, model.paths, model.paths),
        correlation=pd.DataFrame(covariance / np.outer(errors, errors), model.paths, model.paths),
        history=model.history(),
        fitted=model.measurements.assign(fitted=values, residual=residual),
        recipes={name: _with_constants(one, constants["value"]) for name, one in recipes.items()},
        chi_square=chi_square,
        degrees_of_freedom=freedom,
        success=bool(found.success),
        message=str(found.message),
        warnings=_doubts(constants, found, freedom, model.weighted),
        runs=len(model.history()) * len(recipes),
        lmfit=found,
    )


def _constants(model: FitModel, start: Parameters, params: Parameters, errors: Array, width: float) -> pd.DataFrame:
    best = _point(params)
    with np.errstate(over="ignore"):
        return pd.DataFrame(
            {
                "start": np.exp(_point(start)),
                "value": np.exp(best),
                "low": np.exp(best - width * errors),
                "high": np.exp(best + width * errors),
                "relative_error": errors,
            },
            index=pd.Index(model.paths, name="path"),
        )


def _with_constants(recipe: Recipe, values: pd.Series) -> Recipe:
    fitted = recipe.copy()
    for path, value in values.items():
        fitted[path] = float(value)
    return fitted


def _at_bounds(params: Parameters, residual: Array, derivatives: Array) -> list[str]:
    """For each constant "low" or "high" if the sum of squares still falls across that bound, otherwise ""."""
    found = []
    for one, column in zip(params.values(), derivatives.T):
        with np.errstate(divide="ignore", invalid="ignore"):
            best = one.value - (column @ residual) / (column @ column)  # minimum along this constant; NaN: no effect
        near_low, near_high = one.value - one.min < STEP, one.max - one.value < STEP
        found.append("low" if near_low and best <= one.min else "high" if near_high and best >= one.max else "")
    return found


def _inverse_normal_matrix(derivatives: Array, free: npt.NDArray[np.bool_]) -> Array:
    """The inverse of J'J for the free constants; NaN for the others, and if the derivatives are singular."""
    inverse = np.full((len(free), len(free)), np.nan)
    if free.any():
        _, sizes, directions = np.linalg.svd(derivatives[:, free], full_matrices=False)
        if sizes[-1] > SINGULAR * sizes[0]:
            inverse[np.ix_(free, free)] = (directions.T / sizes**2) @ directions
    return inverse


def _quantile(weighted: bool, level: float, freedom: int) -> float:
    """Normal quantile for known standard deviations, Student's for one that is estimated from the scatter."""
    from scipy import stats

    return float(stats.norm.ppf(0.5 + level / 2) if weighted else stats.t.ppf(0.5 + level / 2, freedom))


def _doubts(constants: pd.DataFrame, found: MinimizerResult, freedom: int, weighted: bool) -> list[str]:
    """Texts about doubtful results."""
    texts = [] if found.success else [f"the fit did not converge: {found.message}"]
    if freedom == 0 and not weighted:
        texts.append("as many constants as measurements: without standard deviations their errors are unknown")
    for (path, row), one in zip(constants.iterrows(), found.params.values()):
        if row.at_bound:
            bound = f"{'lower' if row.at_bound == 'low' else 'upper'} bound {row['value']:.4g}"
            texts.append(f"{path} is at its {bound}: its error is unknown, and the other errors hold for this value")
        elif np.isnan(row.relative_error) and (freedom or weighted):
            texts.append(f"the measurements do not determine {path}, or only together with another constant")
        elif row.low <= np.exp(one.min) and row.high >= np.exp(one.max):
            texts.append(f"the measurements do not determine {path}: its interval exceeds its bounds")
    return texts
