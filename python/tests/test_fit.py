"""Calibration recovers known constants from noisy data, with correct uncertainties."""

from __future__ import annotations

from concurrent.futures import Executor, Future
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from scipy import stats

import vorlen
from vorlen._fit.model import FitModel

INCORPORATION, DESORPTION = "chemistry/K_InN_plus/A", "chemistry/Kd_In/A"
TRUE = {INCORPORATION: 1e19, DESORPTION: 1e13}
# Below 950 K indium is limited by its incorporation, above by the balance of incorporation and desorption: together they determine both.
TEMPERATURES = (850, 910, 970, 1030)
SIGMA = {"x_in_2": 0.001, "thickness_2": 0.01}
LAYER = Path(__file__).resolve().parents[2] / "examples" / "notebooks" / "ingan_layer.xml"


def layer(temperature: float, constants: dict[str, float]) -> vorlen.Recipe:
    recipe = vorlen.Recipe.load(LAYER)
    recipe["process_stages/stage_1/T"] = temperature
    for path, value in constants.items():
        recipe[path] = value
    return recipe


def measure(noise: float) -> dict[str, dict[str, tuple[float, float]]]:
    """What an experiment with the true constants gives; noise is a factor of the standard deviations."""
    random = np.random.default_rng(1)
    measurements = {}
    for temperature in TEMPERATURES:
        grown = vorlen.run(layer(temperature, TRUE)).layers.loc[2]
        measurements[f"{temperature} K"] = {
            quantity: (grown[quantity.removesuffix("_2")] + noise * sigma * random.standard_normal(), sigma)
            for quantity, sigma in SIGMA.items()
        }
    return measurements


@pytest.fixture(scope="module")
def recipes() -> dict[str, vorlen.Recipe]:
    """The same layers with the constants of the file, which are far from the true ones."""
    return {f"{temperature} K": layer(temperature, {DESORPTION: 2e12}) for temperature in TEMPERATURES}


@pytest.fixture(scope="module")
def fitted(recipes):
    return vorlen.fit(recipes, {INCORPORATION: (1e17, 1e22), DESORPTION: (1e11, 1e15)}, measure(noise=1.0), workers=2)


def test_true_constants_lie_in_the_stated_intervals(fitted):
    constants = fitted.constants
    for path, value in TRUE.items():
        assert constants.low[path] < value < constants.high[path]
        # A very wide interval would contain the true value as well.
        assert constants.high[path] / constants.low[path] < 1.5
        assert abs(np.log(constants.start[path] / value)) > 10 * constants.relative_error[path]


def test_residuals_are_those_of_noise_of_the_stated_size(fitted):
    # chi-square with 8 - 2 degrees of freedom lies between these two in 99.8 of 100 experiments
    low, high = stats.chi2.ppf([0.001, 0.999], 6)
    assert low < fitted.chi_square < high
    assert fitted.degrees_of_freedom == 6
    assert np.isclose(np.sum(fitted.fitted.residual**2), fitted.chi_square)
    assert fitted.success and fitted.warnings == []


def test_errors_are_those_of_linear_error_propagation(fitted):
    """The covariance of a least-squares estimate is the inverse of J'J (any textbook), with J from separate runs."""
    columns = []
    for path in TRUE:
        sides = []
        for sign in (1, -1):
            moved = dict(fitted.constants["value"])
            moved[path] *= np.exp(sign * 0.02)
            rows = [vorlen.run(layer(temperature, moved)).layers.loc[2] for temperature in TEMPERATURES]
            sides.append([row[name.removesuffix("_2")] / sigma for row in rows for name, sigma in SIGMA.items()])
        columns.append((np.array(sides[0]) - np.array(sides[1])) / 0.04)
    jacobian = np.column_stack(columns)
    expected = np.sqrt(np.diag(np.linalg.inv(jacobian.T @ jacobian)))
    # 3 %: the steps differ, and the model is curved
    np.testing.assert_allclose(fitted.constants.relative_error, expected, rtol=0.03)
    ratio = fitted.constants.high / fitted.constants["value"]
    np.testing.assert_allclose(np.log(ratio), 1.959964 * fitted.constants.relative_error)  # normal quantile of 95 %


def test_the_recipes_with_fitted_constants_give_the_fitted_values(fitted, recipes):
    assert list(fitted.recipes) == list(recipes)
    for row in fitted.fitted.itertuples():
        grown = vorlen.run(fitted.recipes[row.recipe]).layers.loc[2]
        assert grown[row.quantity.removesuffix("_2")] == pytest.approx(row.fitted, rel=1e-9)


def test_without_noise_the_constants_come_back(recipes):
    result = vorlen.fit(recipes, {INCORPORATION: (1e17, 1e22), DESORPTION: (1e11, 1e15)}, measure(noise=0.0), workers=2)
    for path, value in TRUE.items():
        # a tenth of a standard error: what the tolerance of the integration and of the fit leave
        assert abs(np.log(result.constants["value"][path] / value)) < 0.1 * result.constants.relative_error[path]


def test_one_recipe_and_values_without_standard_deviations(recipes):
    grown = vorlen.run(layer(850, TRUE)).layers.loc[2]
    measurements = pd.DataFrame({"quantity": ["x_in_2", "thickness_2"], "value": [grown.x_in, grown.thickness]})
    result = vorlen.fit(layer(850, {DESORPTION: 1e13}), {INCORPORATION: (1e17, 2e20, 1e22)}, measurements, workers=2)
    assert result.constants["value"][INCORPORATION] == pytest.approx(1e19, rel=1e-3)
    assert result.constants.start[INCORPORATION] == pytest.approx(2e20)


def test_the_picture_shows_each_measurement_against_its_fit(fitted, tmp_path):
    figure = fitted.plot(path=tmp_path / "fit.png")
    assert (tmp_path / "fit.png").stat().st_size > 10000
    shown = {axes.get_xlabel(): axes for axes in figure.axes}
    assert list(shown) == ["Indium, measured", "Thickness (nm), measured"]
    points = [tuple(map(float, np.ravel(bars[0].get_data()))) for bars in shown["Indium, measured"].containers]
    rows = fitted.fitted[fitted.fitted.quantity == "x_in_2"]
    assert points == list(zip(rows.measured, rows.fitted))


class NoExecutor(Executor):
    """An executor that must not be used."""

    def submit(self, call, task):
        raise AssertionError("a run was submitted")


GOOD, GOOD_BOUNDS = {"x_in_2": (0.2, 0.01)}, {DESORPTION: (1e12, 1e14)}
STAGE = "process_stages/stage_1/"


@pytest.mark.parametrize(
    ("parameters", "measurements", "text"),
    [
        ({"chemistry/Kd_Xx/A": (1, 2)}, GOOD, "has no chemistry/Kd_Xx/A"),
        ({3: (1, 2)}, GOOD, "has no 3"),
        ({"chemistry/Kd_In": (1, 2)}, GOOD, "not a single number"),
        ({"material": (1, 2)}, GOOD, "not a single number"),
        ({"process_stages/n_stages": (1, 3)}, GOOD, "process_stages/n_stages takes integers"),
        ({STAGE + "tau": (1, 1000), "process_stages:stage_1:tau/val": (1, 1000)}, GOOD, "mean the same constant"),
        ({DESORPTION: (0, 1e14)}, GOOD, "0 < low < start < high"),
        ({DESORPTION: (1e14, 1e15)}, GOOD, "0 < low < start < high"),
        ({DESORPTION: (1e13, 1e15)}, GOOD, "0 < low < start < high"),  # the start would stay at its bound
        ({DESORPTION: (1e12, 1e14, 1e14)}, GOOD, "0 < low < start < high"),
        ({DESORPTION: (1e12, float("inf"))}, GOOD, r"expected \(low, high\) or \(low, start, high\), finite numbers"),
        ({DESORPTION: (1e12, "1e14")}, GOOD, "finite numbers, got"),
        ({DESORPTION: (True, 1e14)}, GOOD, "finite numbers, got"),
        ({DESORPTION: (1e12,)}, GOOD, "finite numbers, got"),
        ({DESORPTION: 1e13}, GOOD, "finite numbers, got 1"),
        ({DESORPTION: "12"}, GOOD, "finite numbers, got '12'"),
        (GOOD_BOUNDS, {}, "0 measurements can't determine 1 constants"),
        ({}, GOOD, "give at least one parameter"),
        (GOOD_BOUNDS, {"x_in_9": (0.2, 0.01)}, "unknown quantity x_in_9 in recipe; known are z, .* N from 1 to 2$"),
        (GOOD_BOUNDS, {"x_in_0": (0.2, 0.01)}, "unknown quantity x_in_0"),
        (GOOD_BOUNDS, {"thickness": (2, 0.01)}, "unknown quantity thickness in recipe"),
        (GOOD_BOUNDS, {2: (2, 0.01)}, "unknown quantity 2 in recipe"),
        (GOOD_BOUNDS, {"x_in_2": (0.2, 0.0)}, "standard deviation must be a positive number, got 0.0"),
        (GOOD_BOUNDS, {"x_in_2": (0.2, -1)}, "x_in_2 of recipe: the standard deviation must be a positive number"),
        (GOOD_BOUNDS, {"x_in_2": (0.2, float("inf"))}, "standard deviation must be a positive number, got inf"),
        (GOOD_BOUNDS, {"x_in_2": float("nan")}, "x_in_2 of recipe: a measurement must be a finite number, got nan"),
        (GOOD_BOUNDS, {"x_in_2": float("inf")}, "must be a finite number, got inf"),
        (GOOD_BOUNDS, {"x_in_2": (0.2, 0.1, 0.1)}, "x_in_2 of recipe: expected a value and its standard deviation"),
        (GOOD_BOUNDS, {"x_in_2": (0.2, 0.1), "z": 3}, "for all measurements or for none"),
        (GOOD_BOUNDS, {"x_in_2": 0}, "a measured 0 needs a standard deviation"),
        (GOOD_BOUNDS, {"other": {"x_in_2": 0.2}}, "not one of the recipes"),
        (GOOD_BOUNDS, {"recipe": {"x_in_2": 0.2}, "z": 3}, "those of others are not"),
        (GOOD_BOUNDS, pd.DataFrame({"value": [1.0]}), "no column quantity; the columns are recipe, quantity, value"),
        (GOOD_BOUNDS, pd.DataFrame({"quantity": ["z"]}), "no column value"),
        (GOOD_BOUNDS, pd.DataFrame({"quantity": ["z"], "value": [1.0], "Sigma": [1.0]}), "the column Sigma, unknown"),
        (GOOD_BOUNDS, pd.DataFrame([["z", 1.0, 2.0]], columns=["quantity", "value", "value"]), "value, unknown or twice"),
        (GOOD_BOUNDS, pd.DataFrame({"quantity": ["z", "z"], "value": [1.0, 2.0]}), "z of recipe is given 2 times"),
        (GOOD_BOUNDS, pd.DataFrame({"recipe": [None], "quantity": ["z"], "value": [1.0]}), "a measurement has no recipe"),
    ],
)
def test_a_fit_that_is_impossible_is_rejected_before_anything_runs(parameters, measurements, text, tmp_path):
    with pytest.raises(ValueError, match=text):
        vorlen.fit(LAYER, parameters, measurements, executor=NoExecutor(), out=tmp_path)


@pytest.mark.parametrize(
    ("measurements", "text"),
    [
        ({"x_in_2": (0.2, "5 %")}, "standard deviation must be a positive number, got '5 %'"),
        ({"x_in_2": (0.2, True)}, "standard deviation must be a positive number, got True"),
        ({"x_in_2": "0.2"}, "must be a finite number, got '0.2'"),
        ({"x_in_2": True}, "must be a finite number, got True"),
        ({"x_in_2": None}, "must be a finite number, got None"),
        (pd.DataFrame({"quantity": ["z"], "value": ["thick"]}), "a finite number, got 'thick'"),
    ],
)
def test_measurements_that_are_not_numbers_are_rejected(measurements, text, tmp_path):
    with pytest.raises(TypeError, match=text):
        vorlen.fit(LAYER, GOOD_BOUNDS, measurements, executor=NoExecutor(), out=tmp_path)


@pytest.mark.parametrize("level", [95, 0, 1, -0.5, float("nan"), True, "0.95", None])
def test_a_level_that_is_no_probability_is_rejected(level, tmp_path):
    with pytest.raises(ValueError if type(level) in (int, float) else TypeError, match="level must be a number between 0 and 1, such as 0.95, got"):
        vorlen.fit(LAYER, GOOD_BOUNDS, GOOD, level=level, executor=NoExecutor(), out=tmp_path)


@pytest.mark.parametrize(
    ("measurements", "text"),
    [
        (GOOD, "for several recipes, give measurements by recipe: {'a': "),
        (pd.DataFrame({"quantity": ["z"], "value": [1.0]}), "the measurements have no column recipe"),
        ({"a": GOOD}, "no measurement is given for b"),
    ],
)
def test_measurements_of_several_recipes_name_the_recipe(measurements, text, tmp_path):
    with pytest.raises(ValueError, match=text):
        vorlen.fit({"a": LAYER, "b": LAYER}, GOOD_BOUNDS, measurements, executor=NoExecutor(), out=tmp_path)


@pytest.mark.parametrize(
    ("arguments", "options", "error", "text"),
    [
        ((LAYER, [DESORPTION], GOOD), {}, TypeError, "parameters must be a mapping of paths to bounds, got list"),
        ((LAYER, GOOD_BOUNDS, [0.2]), {}, TypeError, "measurements must be a mapping of quantities to values or a data"),
        ((5, GOOD_BOUNDS, GOOD), {}, TypeError, "recipe must be a path, XML as text or bytes, or a Recipe, got int"),
        (("none.xml", GOOD_BOUNDS, GOOD), {}, FileNotFoundError, "none.xml"),
        (("<a>", GOOD_BOUNDS, GOOD), {}, vorlen.RecipeError, "line 1: no element found"),
        (({}, GOOD_BOUNDS, GOOD), {}, ValueError, "at least one recipe"),
        (({1: LAYER, "1": LAYER}, GOOD_BOUNDS, GOOD), {}, ValueError, "two recipes have the name 1"),
        ((LAYER, GOOD_BOUNDS, GOOD), {"workers": 0}, ValueError, "workers must be 1 or more, got 0"),
        ((LAYER, GOOD_BOUNDS, GOOD), {"workers": 1.5}, TypeError, "workers must be a positive integer or None, got 1.5"),
        ((LAYER, GOOD_BOUNDS, GOOD), {"executor": 3, "out": "x"}, TypeError, "executor must "),
        ((LAYER, GOOD_BOUNDS, GOOD), {"timeout": 0}, ValueError, "timeout must be a positive, finite number"),
        ((LAYER, GOOD_BOUNDS, GOOD), {"out": 3}, TypeError, "out must be a path, got int"),
        ((LAYER, GOOD_BOUNDS, GOOD), {"out": ""}, ValueError, "out must be a path, got an empty text"),
        ((LAYER, GOOD_BOUNDS, GOOD, 0.9), {}, TypeError, "positional"),
    ],
)
def test_a_wrong_argument_is_named(arguments, options, error, text, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(error, match=text):
        vorlen.fit(*arguments, **options)


def test_an_executor_needs_a_folder_and_no_number_of_workers(tmp_path):
    with pytest.raises(ValueError, match="an executor needs out"):
        vorlen.fit(LAYER, GOOD_BOUNDS, GOOD, executor=NoExecutor())
    with pytest.raises(ValueError, match="either workers or executor"):
        vorlen.fit(LAYER, GOOD_BOUNDS, GOOD, executor=NoExecutor(), workers=2, out=tmp_path)


def test_a_recipe_that_fails_at_the_start_is_an_error_with_the_library_s_text():
    with pytest.raises(vorlen.SimulationError, match="Very low or negative temperature in stage_1"):
        vorlen.fit(layer(-1, {}), {DESORPTION: (1e12, 1e14)}, {"x_in_2": (0.2, 0.01)}, workers=1)


def test_the_files_of_the_runs_are_kept_and_not_computed_twice(tmp_path):
    def fit():
        return vorlen.fit(
            layer(850, {}), {INCORPORATION: (1e17, 2e20, 1e22)}, {"x_in_2": (0.02, 0.001)}, out=tmp_path, workers=2
        )

    first = fit()
    recipes = sorted(tmp_path.glob("recipe_1/rows/*.xml"))
    assert len(recipes) == len(first.history) == first.runs
    for path, (number, row) in zip(recipes, first.history.iterrows()):
        assert int(path.stem) == number
        assert vorlen.Recipe.load(path)[INCORPORATION] == row[INCORPORATION]
    stamps = [path.stat().st_mtime_ns for path in tmp_path.glob("recipe_1/rows/*")]
    assert fit().constants.equals(first.constants)
    assert [path.stat().st_mtime_ns for path in tmp_path.glob("recipe_1/rows/*")] == stamps


# ---- linear models instead of the library, with the closed-form solution


class Model(Executor):
    """Answers each run with the quantities that a function gives for the logarithms of the constants.

    A text from that function is a failed run, a dictionary with the key status is the row itself.
    """

    def __init__(self, function) -> None:
        self.function = function
        self.runs = 0

    def submit(self, call, task):
        self.runs += 1
        given = self.function(np.log(list(task["values"].values())))
        row = {"status": "ok", "text": "", "values": {}, "result": False}
        if isinstance(given, str):
            row.update(status="failed", text=given)
        else:
            row.update(given if "status" in given else {"values": given})
        future = Future()
        future.set_result(row)
        return future


QUANTITIES = ["z", "thickness_1", "thickness_2", "x_in_2", "x_ga_2"]
SLOPES = np.array([[1.0, 0.5], [0.2, -1.0], [2.0, 1.0], [-0.5, 0.3], [0.1, 0.8]])
CENTRE = np.log([1e20, 1e12])
OFFSETS = np.array([10.0, 20.0, 30.0, 15.0, 25.0])
MEASURED = OFFSETS + SLOPES @ [0.7, -0.4] + [0.05, -0.1, 0.08, 0.02, -0.06]
SIGMAS = np.array([0.1, 0.2, 0.1, 0.3, 0.2])
BOUNDS = {INCORPORATION: (1e17, 1e20, 1e23), DESORPTION: (1e10, 1e12, 1e14)}


def linear(logarithms):
    return dict(zip(QUANTITIES, OFFSETS + SLOPES[:, : len(logarithms)] @ (logarithms - CENTRE[: len(logarithms)])))


def fit_of(function, folder, bounds=BOUNDS, sigmas=SIGMAS, measured=MEASURED, **options):
    measurements = {
        name: value if sigmas is None else (value, sigma)
        for name, value, sigma in zip(QUANTITIES, measured, SIGMAS if sigmas is None else sigmas)
    }
    return vorlen.fit(LAYER, bounds, measurements, executor=Model(function), out=folder, **options)


def least_squares(weights, slopes=SLOPES):
    """The weighted linear least-squares estimate of the logarithms, relative to CENTRE, and its covariance."""
    weighted = slopes * weights[:, None]
    covariance = np.linalg.inv(weighted.T @ weighted)
    return covariance @ weighted.T @ (weights * (MEASURED - OFFSETS)), covariance


# Quantiles of the normal distribution and of Student's with three degrees of freedom, from tables
@pytest.mark.parametrize(("level", "quantile"), [(0.95, 1.959964), (0.99, 2.575829), (0.5, 0.674490)])
def test_known_standard_deviations_give_covariance_and_normal_intervals(level, quantile, tmp_path):
    result = fit_of(linear, tmp_path, level=level)
    best, covariance = least_squares(1 / SIGMAS)
    errors = np.sqrt(np.diag(covariance))
    # the fit stops within 1 % of a standard error
    assert np.all(np.abs(np.log(result.constants["value"]) - CENTRE - best) < 0.01 * errors)
    np.testing.assert_allclose(result.covariance, covariance, rtol=1e-6)
    np.testing.assert_allclose(result.correlation, covariance / np.outer(errors, errors), rtol=1e-6)
    assert list(result.covariance.index) == list(result.covariance.columns) == list(BOUNDS)
    np.testing.assert_allclose(result.constants.relative_error, errors, rtol=1e-6)
    for column, sign in (("low", -1), ("high", 1)):
        ratio = np.log(result.constants[column] / result.constants["value"])
        np.testing.assert_allclose(ratio, sign * quantile * errors, rtol=1e-5)
    assert result.constants.attrs["level"] == level
    residual = (MEASURED - OFFSETS - SLOPES @ best) / SIGMAS
    assert result.chi_square == pytest.approx(residual @ residual, rel=1e-3)
    assert list(result.constants.at_bound) == ["", ""] and result.warnings == []


@pytest.mark.parametrize(("level", "quantile"), [(0.95, 3.182446), (0.9, 2.353363)])
def test_without_standard_deviations_the_scatter_gives_student_s_intervals(level, quantile, tmp_path):
    result = fit_of(linear, tmp_path, sigmas=None, level=level)
    best, covariance = least_squares(1 / MEASURED)
    residual = (MEASURED - OFFSETS - SLOPES @ best) / MEASURED
    covariance *= residual @ residual / 3
    assert result.degrees_of_freedom == 3
    np.testing.assert_allclose(result.covariance, covariance, rtol=1e-3)
    ratio = np.log(result.constants.high / result.constants["value"])
    np.testing.assert_allclose(ratio, quantile * result.constants.relative_error, rtol=1e-5)


def test_as_many_constants_as_measurements_leave_no_scatter(tmp_path):
    result = vorlen.fit(LAYER, BOUNDS, {"z": 10.5, "thickness_1": 20.5}, executor=Model(linear), out=tmp_path)
    assert result.constants.relative_error.isna().all() and result.degrees_of_freedom == 0
    assert result.warnings == [
        "as many constants as measurements: without standard deviations their errors are unknown"
    ]


@pytest.mark.parametrize(("bounds", "side"), [((1e17, 1e19, 1.5e20), "high"), ((3e20, 1e21, 1e23), "low")])
def test_an_estimate_at_its_bound_is_marked_and_the_others_hold_for_it(bounds, side, tmp_path):
    """The free optimum is at 2.0e20."""
    result = fit_of(linear, tmp_path, bounds=BOUNDS | {INCORPORATION: bounds})
    assert list(result.constants.at_bound) == [side, ""]
    bound = bounds[2] if side == "high" else bounds[0]
    assert result.constants["value"][INCORPORATION] == pytest.approx(bound, rel=1e-2)
    assert result.constants.loc[INCORPORATION, ["low", "high", "relative_error"]].isna().all()
    slopes = SLOPES[:, 1] / SIGMAS
    assert result.covariance.loc[DESORPTION, DESORPTION] == pytest.approx(1 / (slopes @ slopes), rel=1e-6)
    fixed = np.log(result.constants["value"][INCORPORATION]) - CENTRE[0]
    best = slopes @ ((MEASURED - OFFSETS - SLOPES[:, 0] * fixed) / SIGMAS) / (slopes @ slopes)
    error = result.constants.relative_error[DESORPTION]
    assert np.log(result.constants["value"][DESORPTION]) - CENTRE[1] == pytest.approx(best, abs=0.02 * error)
    assert np.isnan(result.covariance.loc[INCORPORATION]).all() and result.degrees_of_freedom == 4
    (warning,) = result.warnings
    assert warning.startswith(f"{INCORPORATION} is at its {'upper' if side == 'high' else 'lower'} bound ")
    assert warning in str(result)


def test_an_optimum_just_inside_of_a_bound_is_not_at_it(tmp_path):
    free = fit_of(linear, tmp_path / "free").constants["value"][INCORPORATION]
    result = fit_of(linear, tmp_path / "bound", bounds=BOUNDS | {INCORPORATION: (1e17, 1e20, 1.005 * free)})
    assert list(result.constants.at_bound) == ["", ""]
    assert result.constants["value"][INCORPORATION] == pytest.approx(free, rel=1e-3)


def test_constants_of_which_only_the_ratio_matters_have_no_errors(tmp_path):
    def ratio(logarithms):
        step = logarithms[0] - CENTRE[0] - (logarithms[1] - CENTRE[1])
        return dict(zip(QUANTITIES, OFFSETS + SLOPES[:, 0] * step))

    result = fit_of(ratio, tmp_path)
    assert result.constants.relative_error.isna().all()
    assert [text[:43] for text in result.warnings] == ["the measurements do not determine chemistry"] * 2


def test_a_constant_that_hardly_matters_is_reported(tmp_path):
    def weak(logarithms):
        return linear(CENTRE + (logarithms - CENTRE) * [1.0, 1e-4])

    result = fit_of(weak, tmp_path, measured=OFFSETS + 0.7 * SLOPES[:, 0])
    assert result.warnings == [f"the measurements do not determine {DESORPTION}: its interval exceeds its bounds"]


def test_the_history_has_every_run_in_order(tmp_path):
    model = Model(linear)
    measurements = dict(zip(QUANTITIES, zip(MEASURED, SIGMAS)))
    result = vorlen.fit(LAYER, BOUNDS, measurements, executor=model, out=tmp_path)
    history = result.history
    assert model.runs == len(history) == result.runs
    assert list(history.columns) == ["kind", *BOUNDS, "chi_square", "text"] and history.index.name == "run"
    assert history.kind[0] == "step" and list(history.loc[0, list(BOUNDS)]) == pytest.approx(list(np.exp(CENTRE)))
    assert list(history.kind[1:5]) == ["derivative"] * 4
    for row in history.itertuples():
        values = linear(np.log([row[2], row[3]]))
        residual = (np.array([values[name] for name in QUANTITIES]) - MEASURED) / SIGMAS
        assert row.chi_square == pytest.approx(residual @ residual)
    final = history[(history[INCORPORATION] == result.constants["value"][INCORPORATION]) & (history.kind == "step")]
    assert final.chi_square.iloc[-1] == pytest.approx(result.chi_square)
    assert not history.duplicated(subset=list(BOUNDS)).any()


def test_the_fit_turns_back_where_runs_fail(tmp_path):
    """The optimum is 0.0005 below the constants at which runs fail, and the first steps lead past it."""

    def partly(logarithms):
        return "no convergence" if logarithms[0] > CENTRE[0] + 0.72 else linear(logarithms)

    result = fit_of(partly, tmp_path, bounds=BOUNDS | {INCORPORATION: (1e17, 1e18, 1e23)})
    best, covariance = least_squares(1 / SIGMAS)
    assert np.all(np.abs(np.log(result.constants["value"]) - CENTRE - best) < 0.05 * np.sqrt(np.diag(covariance)))
    failed = result.history[result.history.text != ""]
    assert set(failed.text) == {"no convergence"} and failed.chi_square.isna().all()


@pytest.mark.parametrize("status", ["lost", "error"])
def test_a_run_without_a_result_ends_the_fit(status, tmp_path):
    """It says nothing about the constants, unlike a run that fails."""
    answers = []

    def breaking(logarithms):
        answers.append(1)
        text = {"status": status, "text": "No space left on device"}
        return text if len(answers) > 7 else linear(logarithms)

    with pytest.raises(vorlen.SimulationError, match="a run of recipe gave no result: No space left on device"):
        fit_of(breaking, tmp_path)


def test_a_quantity_that_is_nan_is_a_failed_run(tmp_path):
    with pytest.raises(vorlen.SimulationError, match="x_in_2 of recipe is NaN"):
        fit_of(lambda logarithms: linear(logarithms) | {"x_in_2": None}, tmp_path)


def curved(logarithms):
    return {"z": np.sin(logarithms[0]), "thickness_1": np.exp(0.1 * logarithms[0])}


@pytest.mark.parametrize(
    ("fails", "error"),
    [
        (lambda x: False, 0.01**2 / 6),  # remainder of Taylor's formula: third derivatives are at most 1
        (lambda x: x > 1.3, 0.01 / 2),  # second derivatives are at most 1
        (lambda x: x < 1.3, 0.01 / 2),
    ],
)
def test_derivatives_are_one_sided_where_a_side_fails(fails, error, tmp_path):
    table = pd.DataFrame({"recipe": "recipe", "quantity": ["z", "thickness_1"], "measured": 1.0, "sigma": 1.0})
    model = FitModel(
        {"recipe": vorlen.Recipe.load(LAYER)}, [DESORPTION], table, folder=tmp_path, keep=True, timeout=None,
        executor=Model(lambda x: "failed" if fails(round(x[0], 9)) else curved(x)),
    )
    exact = np.array([[np.cos(1.3)], [0.1 * np.exp(0.13)]])
    difference = np.abs(model.derivatives(np.array([1.3])) - exact)
    assert np.all(difference < error)
    if error > 1e-3:  # one-sided: -h/2 of the second derivative
        assert difference[0, 0] > 0.9 * 0.01 / 2 * np.sin(1.3)


def test_no_derivative_where_both_sides_fail(tmp_path):
    table = pd.DataFrame({"recipe": "recipe", "quantity": ["z"], "measured": 1.0, "sigma": 1.0}, index=[0])
    model = FitModel(
        {"recipe": vorlen.Recipe.load(LAYER)}, [DESORPTION], table, folder=tmp_path, keep=True, timeout=None,
        executor=Model(lambda x: curved(x) if round(x[0], 9) == 1.3 else "too steep"),
    )
    with pytest.raises(vorlen.SimulationError, match="no derivative with respect to .*: the runs on both sides fail: too"):
        model.derivatives(np.array([1.3]))


def test_a_picture_never_replaces_a_recipe_or_a_folder(tmp_path):
    recipe = tmp_path / "layer.svg"
    recipe.write_bytes(LAYER.read_bytes())
    measurements = dict(zip(QUANTITIES, zip(MEASURED, SIGMAS)))
    result = vorlen.fit(recipe, BOUNDS, measurements, executor=Model(linear), out=tmp_path / "runs")
    with pytest.raises(ValueError, match="which is an input"):
        result.plot(path=recipe)
    (tmp_path / "folder.png").mkdir()
    with pytest.raises(IsADirectoryError):
        result.plot(path=tmp_path / "folder.png")
    with pytest.raises(TypeError, match="path must be a path, got int"):
        result.plot(path=3)
    assert recipe.read_bytes() == LAYER.read_bytes()
    result.plot(path=tmp_path / "again.svg")
    content = (tmp_path / "again.svg").read_bytes()
    result.plot(path=tmp_path / "again.svg")
    assert (tmp_path / "again.svg").read_bytes() == content and content.startswith(b"<?xml")


def test_two_fits_do_not_share_a_folder_at_the_same_time(tmp_path):
    def second(logarithms):
        with pytest.raises(vorlen.BusyError, match="another fit is running in "):
            fit_of(linear, tmp_path)
        return linear(logarithms)

    assert fit_of(second, tmp_path).success
    assert fit_of(linear, tmp_path).success


def test_files_that_are_not_of_a_fit_stay(tmp_path):
    (tmp_path / "recipe_1").mkdir()
    (tmp_path / "recipe_1" / "recipe.xml").write_text("mine")
    with pytest.raises(FileExistsError, match="recipe_1 is not of a fit and would be overwritten"):
        fit_of(linear, tmp_path)
    assert [path.name for path in tmp_path.rglob("*")] == ["recipe_1", "recipe.xml"]


class Client:
    """As a Dask client, whose own submit() is not that of an executor."""

    def __init__(self, executor):
        self.executor = executor

    def get_executor(self):
        return self.executor

    def submit(self, *_):
        raise AssertionError


def test_a_dask_client_is_an_executor(tmp_path):
    measurements = dict(zip(QUANTITIES, zip(MEASURED, SIGMAS)))
    result = vorlen.fit(LAYER, BOUNDS, measurements, executor=Client(Model(linear)), out=tmp_path / "fit")
    assert result.success
    model = Model(lambda logarithms: {"z": np.exp(logarithms[0])})
    table = vorlen.sensitivity(LAYER, [DESORPTION], executor=Client(model), out=tmp_path / "sensitivity")
    assert model.runs == 3 and table.elasticity[0] == pytest.approx(1.0)


@pytest.mark.parametrize("start", [1e13 * (1 + 1e-9), 1e14 * (1 - 1e-12)])
def test_a_start_beside_a_bound_is_rejected_since_the_fit_could_not_leave_it(start: float) -> None:
    with pytest.raises(ValueError, match="too close to a bound of 1e[+]13 to 1e[+]14"):
        vorlen.fit(LAYER, {DESORPTION: (1e13, start, 1e14)}, {"x_in_2": (0.2, 0.01)})
