"""Calibration recovers known constants from noisy data, with correct uncertainties."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from scipy import stats

import vorlen

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
    assert low < fitted.chisqr < high
    assert fitted.nfree == 6
    assert np.isclose(np.sum(fitted.fitted.residual**2), fitted.chisqr)


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


def test_a_constant_at_its_bound_stays_there():
    grown = vorlen.run(layer(850, TRUE)).layers.loc[2]
    result = vorlen.fit(
        layer(850, {}), {INCORPORATION: (5e19, 2e20, 1e21)}, {"x_in_2": (grown.x_in, 0.001)}, workers=1
    )
    assert result.constants["value"][INCORPORATION] == pytest.approx(5e19, rel=1e-3)


def test_the_picture_shows_each_measurement_against_its_fit(fitted, tmp_path):
    figure = vorlen.plot_fit(fitted, tmp_path / "fit.png")
    assert (tmp_path / "fit.png").stat().st_size > 10000
    shown = {axes.get_xlabel(): axes for axes in figure.axes}
    assert list(shown) == ["Indium, measured", "Thickness (nm), measured"]
    points = [tuple(map(float, np.ravel(bars[0].get_data()))) for bars in shown["Indium, measured"].containers]
    rows = fitted.fitted[fitted.fitted.quantity == "x_in_2"]
    assert points == list(zip(rows.measured, rows.fitted))


@pytest.mark.parametrize(
    ("parameters", "measurements", "text"),
    [
        ({"chemistry/Kd_Xx/A": (1, 2)}, {"x_in_2": (0.2, 0.01)}, "has no chemistry/Kd_Xx/A"),
        ({"chemistry/Kd_In": (1, 2)}, {"x_in_2": (0.2, 0.01)}, "not a single number"),
        ({DESORPTION: (0, 1e14)}, {"x_in_2": (0.2, 0.01)}, "0 < low <= start <= high"),
        ({DESORPTION: (1e14, 1e15)}, {"x_in_2": (0.2, 0.01)}, "0 < low <= start <= high"),
        ({DESORPTION: (1e12, 1e14)}, {}, "0 measurements can't determine 1 constants"),
        ({DESORPTION: (1e12, 1e14)}, {"x_in_9": (0.2, 0.01)}, "unknown quantity x_in_9 in recipe; known are z, "),
        ({DESORPTION: (1e12, 1e14)}, {"x_in_2": (0.2, 0.0)}, "its standard deviation positive"),
        ({DESORPTION: (1e12, 1e14)}, {"x_in_2": (0.2, 0.1), "z": 3}, "for all measurements or for none"),
        ({DESORPTION: (1e12, 1e14)}, {"other": {"x_in_2": 0.2}}, "not one of the recipes"),
    ],
)
def test_a_fit_that_is_impossible_is_rejected_with_a_reason(parameters, measurements, text):
    with pytest.raises(ValueError, match=text):
        vorlen.fit(LAYER, parameters, measurements, workers=1)


def test_a_recipe_that_fails_at_the_start_is_an_error_with_the_library_s_text():
    with pytest.raises(vorlen.SimulationError, match="Very low or negative temperature in stage_1"):
        vorlen.fit(layer(-1, {}), {DESORPTION: (1e12, 1e14)}, {"x_in_2": (0.2, 0.01)}, workers=1)
