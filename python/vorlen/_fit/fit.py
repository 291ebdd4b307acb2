"""Calibration: kinetic constants from measured thicknesses, compositions and curves, by least squares.

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
from collections.abc import Mapping, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from .._base.arguments import check_flags, check_number, check_timeout, given_executor, is_number
from .._base.types import PathLike
from .._observe.curve import Curve
from .._observe.matching import adjusted
from .._recipe.check import warn_about
from .._recipe.recipe import Recipe, place_in
from .._recipe.source import RecipeLike
from .._runs.agreement import Agreement, checked_offset, shifts_of
from .._runs.run import SimulationError
from .._sweep.plan_values import given_recipe
from .._sweep.run_rows import pool_of
from .curves import FOLLOWS, CurveTarget
from .measurements import measurement_table, without_curves
from .model import OFFSET, Array, FitModel, fit_folder
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
PASSES = 5  # of a fit with curves, whose weights are found between passes
SETTLED = 0.2  # relative change of the weights, below which the last pass was enough
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
        less measured, in standard deviations, or relative to the measured value if none are given. chi_square is its
        share, and points is the number of independent measurements that it counts as: 1, except for curves. A curve has
        NaN for measured and fitted, and its residual is the root mean square.
    offsets : pandas.DataFrame
        What was adjusted besides the constants: recipe, quantity, name (temperature_offset, scale, background,
        angle_offset or time_offset), value, low and high (of the temperature offset, otherwise NaN) and unit.
    curves : dict of tuple of str to pandas.DataFrame
        For each curve, by recipe and name, its table with the simulated curve and the deviations.
    recipes : dict of str to Recipe
        The recipes with the fitted constants, and with the scheme if one is given. A single recipe has the name
        recipe.
    chi_square : float
        Sum of the squared residuals.
    degrees_of_freedom : int
        Number of measurements, independent points of curves included, less that of constants that are not at a bound
        and of offsets.
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
    offsets: pd.DataFrame
    curves: dict[tuple[str, str], pd.DataFrame]
    recipes: dict[str, Recipe]
    chi_square: float
    degrees_of_freedom: int
    success: bool
    message: str
    warnings: list[str]
    runs: int
    lmfit: MinimizerResult
    _agreements: dict[tuple[str, str], Agreement]

    def plot(self, *, path: PathLike | None = None) -> Figure:
        """Fitted against measured values, a panel for each kind of quantity; on the line they are equal. Needs matplotlib.

        Below them, each measured curve with the simulated one and their difference.

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
        inputs += [one.measured.path for one in self._agreements.values()]
        return plot_fit(self.fitted[self.fitted.measured.notna()], path, inputs, self._agreements)

    def __repr__(self) -> str:
        state = "" if self.success else ", not converged"
        return f"<Fit, {len(self.constants)} constants, {len(self.fitted)} measurements{state}>"

    def __str__(self) -> str:
        chi_square = f"chi square {self.chi_square:.4g}, {self.degrees_of_freedom} degrees of freedom"
        return "\n".join([self.constants.to_string(float_format="{:.4g}".format), chi_square, *self.warnings])


def fit(
    recipe: RecipeLike | Mapping[str, RecipeLike],
    parameters: Mapping[str, tuple[float, float] | tuple[float, float, float]],
    measurements: Mapping[str, Any] | pd.DataFrame | Curve | Sequence[Curve],
    *,
    temperature_offset: tuple[float, float] | tuple[float, float, float] | None = None,
    angle_offset: Any = None,
    time_offset: Any = None,
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
        A value may also be a Curve, under any name, or (curve, standard deviation of a point); instead of the mapping of a
        recipe, a curve or a list of them. The standard deviation is in decades of intensity for diffraction, in the unit
        of the curve for others, and estimated if it is not given; a spectrum needs that of its peak, nm. Other
        measurements need standard deviations then.
    temperature_offset : tuple, optional
        (low, high) or (low, start, high), K: one offset of all temperatures of all recipes is fitted too. The default
        start is 0.
    angle_offset, time_offset : pair, optional
        Lowest and highest offset of the angle 2theta of diffraction curves, deg, and of the times of curvatures and
        reflectances, s. Each curve has its own. None: no offset.
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

    angles, times = checked_offset("angle_offset", angle_offset, "deg"), checked_offset("time_offset", time_offset, "s")
    check_number(level, "level must be a number between 0 and 1, such as 0.95", 0.0, 1.0)
    check_timeout(timeout)
    check_flags(check=check)
    executor = given_executor(workers, executor, out)
    recipes = _given_recipes(recipe, scheme)
    start, paths = _start_parameters(recipes, parameters)
    if temperature_offset is not None:
        _add_offset(start, paths, temperature_offset)
    others, measured = without_curves(measurements, recipes)
    table = measurement_table(others, recipes, measured)
    curves = [CurveTarget(one, shifts_of(one.curve, angles, times)) for one in measured]
    count = len(table) + sum(1 if one.curve.kind == "emission" else len(one.curve.x) for one in measured)
    if count < len(start):
        raise ValueError(f"{count} measurements can't determine {len(start)} constants")
    if check:
        for name, one in recipes.items():
            called = name if isinstance(recipe, Mapping) else one.path
            warn_about(one.to_bytes(), called, in_file=one.path is not None)

    with pool_of(workers, executor) as pool, fit_folder(out, len(recipes)) as folder:
        model = FitModel(
            recipes, paths, table, folder=folder, keep=out is not None, executor=pool, timeout=timeout, curves=curves,
            offset=temperature_offset is not None,
        )
        coarse = False

        def residual(current: Parameters) -> Array:
            (values,) = model.at([_point(current)], "step")
            if isinstance(values, str):
                return np.full(len(model.measured), FAILED_RESIDUAL)
            return model.smoothed(model.residual(values)) if coarse else model.residual(values)

        def jacobian(current: Parameters) -> Array:
            scaled: Array = model.derivatives(_point(current)) / model.scale[:, None]
            return np.column_stack([model.smoothed(column) for column in scaled.T]) if coarse else scaled

        (values,) = model.at([_point(start)], "step")
        if isinstance(values, str):
            raise SimulationError(values, recipe)
        weights, settled, present = model.weigh(values), False, start
        # The first pass looks for the broad features of diffraction curves, which have fewer local minima.
        for coarse in [True] * any(one.curve.kind == "xrd" for one in measured) + [False] * (PASSES if curves else 1):
            found = minimize(
                residual, present, method="leastsq", scale_covar=not model.weighted, Dfun=jacobian, factor=FIRST_STEP,
                **TOLERANCES,
            )
            (values,) = model.at([_point(found.params)], "step")
            assert not isinstance(values, str)
            present, before, weights = found.params, weights, model.weigh(values)
            settled = bool(np.all(np.abs(weights / before - 1.0) < SETTLED))
            if settled and not coarse:
                break
        coarse = False
        derivatives = jacobian(found.params)
        (values,) = model.at([_point(found.params)], "step")
    assert not isinstance(values, str)
    return _result(model, recipes, found, start, values, derivatives, level, settled)


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


def _add_offset(start: Parameters, paths: list[str], given: Any) -> None:
    """Adds the temperature offset, K, to the parameters. Raises ValueError."""
    values = tuple(given) if isinstance(given, (tuple, list)) else ()
    if len(values) not in (2, 3) or not all(map(is_number, values)):
        raise ValueError(f"{OFFSET}: expected (low, high) or (low, start, high), finite numbers in K, got {given!r}")
    low, first, high = values if len(values) == 3 else (values[0], 0.0, values[1])
    if not low < first < high:
        raise ValueError(f"{OFFSET}: bounds must satisfy low < start < high, got {low:g}, {first:g}, {high:g}")
    heated = next((path for path in paths if re.search(r"/T(/(val|end))?$", path) and "stage" in path.split("/")[0]), None)
    if heated is not None:
        raise ValueError(f"{heated} can't be fitted together with {OFFSET}, which changes all temperatures")
    start.add(OFFSET, float(first), min=float(low), max=float(high))


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
    derivatives: Array, level: float, settled: bool,
) -> Fit:
    residual = model.residual(values)
    at_bound = _at_bounds(found.params, residual, derivatives, model.steps)
    free = np.array([bound == "" for bound in at_bound])
    counted = len(model.measurements) + round(sum(curve.independent - curve.nuisances for curve in model.curves))
    chi_square, freedom = float(residual @ residual), counted - int(free.sum())
    variance = 1.0 if model.weighted else chi_square / freedom if freedom else np.nan
    covariance = _inverse_normal_matrix(derivatives, free) * variance
    errors = np.sqrt(np.diag(covariance))
    width, logs = _quantile(model.weighted, level, freedom), len(model.paths)
    constants = _constants(model, start, found.params, errors[:logs], width)
    constants["at_bound"] = at_bound[:logs]
    constants.attrs["level"] = level
    key = tuple(float(value) for value in _point(found.params))
    agreements = {(one.target.recipe, one.target.name): one.agreement(key) for one in model.curves}
    best = model.constants(key)
    return Fit(
        constants=constants,
        covariance=pd.DataFrame(covariance, model.names, model.names),
        correlation=pd.DataFrame(covariance / np.outer(errors, errors), model.names, model.names),
        history=model.history(),
        fitted=_fitted(model, values, residual),
        offsets=_offsets(model, agreements, best.get(OFFSET), width * errors[-1]),
        curves={name: one.table() for name, one in agreements.items()},
        recipes={name: _with_constants(one, model.values(key, name)) for name, one in recipes.items()},
        chi_square=chi_square,
        degrees_of_freedom=freedom,
        success=bool(found.success) and settled,
        message=str(found.message) if settled else f"{found.message} The weights of the curves did not settle.",
        warnings=_doubts(constants, found, freedom, model.weighted) + _doubts_about_curves(model, key, settled)
        + _doubts_about_offset(found.params, at_bound[logs:], width * errors[logs:]),
        runs=len(model.history()) * len(recipes),
        lmfit=found,
        _agreements=agreements,
    )


def _fitted(model: FitModel, values: Array, residual: Array) -> pd.DataFrame:
    """Fit.fitted."""
    count = len(model.measurements)
    own = residual[:count]
    table = model.measurements.assign(fitted=values[:count], residual=own, chi_square=own**2, points=1.0)
    end = count
    for curve in model.curves:
        share = float(np.sum(residual[end : end + curve.count] ** 2))
        end += curve.count
        table.loc[len(table)] = {
            "recipe": curve.target.recipe, "quantity": curve.target.name, "measured": np.nan, "sigma": curve.sigma,
            "fitted": np.nan, "residual": np.sqrt(share / curve.independent), "chi_square": share,
            "points": curve.independent,
        }
    return table


def _offsets(
    model: FitModel, agreements: Mapping[tuple[str, str], Agreement], heat: float | None, error: float
) -> pd.DataFrame:
    """Fit.offsets. heat: temperature offset, K, None if it was not fitted; error: half of its interval."""
    rows = [] if heat is None else [("", "", OFFSET, heat, heat - error, heat + error, "K")]
    for curve, (place, one) in zip(model.curves, agreements.items()):
        if one.match is None:
            continue
        for name in adjusted(one.measured):
            unit = "1/km" if one.measured.kind == "curvature" else ""
            rows.append((*place, name, getattr(one.match, name), np.nan, np.nan, unit))
        if curve.shifts is not None:
            name, unit = ("angle_offset", "deg") if one.measured.kind == "xrd" else ("time_offset", "s")
            rows.append((*place, name, one.match.shift, np.nan, np.nan, unit))
    return pd.DataFrame(rows, columns=["recipe", "quantity", "name", "value", "low", "high", "unit"])


def _constants(model: FitModel, start: Parameters, params: Parameters, errors: Array, width: float) -> pd.DataFrame:
    first, best = (_point(one)[: len(errors)] for one in (start, params))
    with np.errstate(over="ignore"):
        return pd.DataFrame(
            {
                "start": np.exp(first),
                "value": np.exp(best),
                "low": np.exp(best - width * errors),
                "high": np.exp(best + width * errors),
                "relative_error": errors,
            },
            index=pd.Index(model.paths, name="path"),
        )


def _with_constants(recipe: Recipe, values: Mapping[str, float]) -> Recipe:
    fitted = recipe.copy()
    for path, value in values.items():
        fitted[path] = float(value)
    return fitted


def _at_bounds(params: Parameters, residual: Array, derivatives: Array, steps: Array) -> list[str]:
    """For each parameter "low" or "high" if the sum of squares still falls across that bound, otherwise ""."""
    found = []
    for one, column, step in zip(params.values(), derivatives.T, steps):
        with np.errstate(divide="ignore", invalid="ignore"):
            best = one.value - (column @ residual) / (column @ column)  # minimum along this constant; NaN: no effect
        near_low, near_high = one.value - one.min < step, one.max - one.value < step
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


def _doubts_about_offset(params: Parameters, at_bound: list[str], errors: Array) -> list[str]:
    """Texts about the temperature offset. at_bound, errors: its bound and half of its interval; empty without it."""
    if not at_bound:
        return []
    if at_bound[0]:
        return [f"{OFFSET} is at its {'lower' if at_bound[0] == 'low' else 'upper'} bound"]
    one = params[OFFSET]
    if np.isnan(errors[0]):
        return [f"the measurements do not determine {OFFSET}, or only together with a constant"]
    wide = one.value - errors[0] <= one.min and one.value + errors[0] >= one.max
    return [f"the measurements do not determine {OFFSET}: its interval exceeds its bounds"] if wide else []


def _doubts_about_curves(model: FitModel, key: tuple[float, ...], settled: bool) -> list[str]:
    """Texts about curves that are not followed."""
    texts = [] if settled else [f"the weights of the curves did not settle in {PASSES} passes: the errors are uncertain"]
    for curve in model.curves:
        agreement = curve.agreement(key)
        share = curve.explained(agreement)
        if share < FOLLOWS:
            texts.append(
                f"the simulated curve does not follow {curve.target.name} of {curve.target.recipe}: it explains "
                f"{max(share, 0.0):.0%} of its variance. The fit may have ended in a local minimum; try another start"
            )
        ends, match = curve.shifts, agreement.match
        if ends is not None and match is not None and min(match.shift - ends[0], ends[1] - match.shift) < 1e-3 * (ends[1] - ends[0]):
            texts.append(f"the offset of {curve.target.name} of {curve.target.recipe} is at a bound")
    return texts
