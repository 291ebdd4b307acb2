"""vorlen.fit with measured curves: constants come back from noisy curves, with correct intervals and weights."""

from __future__ import annotations

import matplotlib
import matplotlib.pyplot as plt
import numpy as np
import pandas as pd
import pytest

import vorlen
from curves import ANGLES, LAYER, as_measured, kinematic, over_time
from vorlen._fit.measurements import without_curves

matplotlib.use("Agg")
INCORPORATION, DESORPTION, HEAT = "chemistry/K_InN_plus/A", "chemistry/Kd_In/A", "process_stages/stage_1/T"
BOUNDS = {DESORPTION: (1e12, 1e14)}
TRUE, START = 1e13, 6e12  # at 1030 K, x_in is 0.112 and 0.136 with these


def layer(desorption: float, heat: float = 1030.0) -> vorlen.Recipe:
    recipe = vorlen.Recipe.load(LAYER)
    recipe[INCORPORATION], recipe[DESORPTION], recipe[HEAT] = 1e19, desorption, heat
    return recipe


@pytest.fixture(scope="module")
def grown():
    return vorlen.run(layer(TRUE))


@pytest.fixture(scope="module")
def curve(grown):
    return grown.xrd(two_theta=ANGLES)


@pytest.fixture(scope="module")
def fitted(curve):
    return vorlen.fit(layer(START), BOUNDS, as_measured(curve, seed=1), workers=2)


@pytest.fixture
def fast(grown, monkeypatch):
    """Run.xrd is a formula of one line in this test; the curve that it gives for the true constant."""
    monkeypatch.setattr(vorlen.Run, "xrd", kinematic)
    return grown.xrd(two_theta=ANGLES)


def test_a_constant_comes_back_from_a_noisy_curve(fitted):
    constant = fitted.constants.loc[DESORPTION]
    assert constant.low < TRUE < constant.high and constant.relative_error < 0.05
    assert abs(np.log(constant.start / TRUE)) > 10 * constant.relative_error
    assert fitted.success and fitted.warnings == []


def test_a_curve_with_noise_alone_counts_with_most_of_its_points(fitted):
    (row,) = fitted.fitted.to_dict("records")
    assert row["quantity"] == "scan" and np.isnan(row["measured"]) and row["residual"] == pytest.approx(1.0)
    assert 0.6 * len(ANGLES) < row["points"] <= len(ANGLES)
    assert row["chi_square"] == pytest.approx(row["points"]) == pytest.approx(fitted.chi_square)
    assert fitted.degrees_of_freedom == round(row["points"] - 2) - 1  # scale, background and the constant
    background = fitted.offsets.value[1]
    assert background == pytest.approx(3.0, abs=2.0)


def test_the_recipe_with_the_fitted_constant_gives_the_fitted_curve(fitted, curve):
    again = vorlen.deviations(vorlen.run(fitted.recipes["recipe"]), as_measured(curve, seed=1))
    deviations = fitted.curves["recipe", "scan"].deviation
    assert len(deviations) == len(ANGLES)
    assert again.rms[0] == pytest.approx(fitted.fitted.sigma[0], rel=1e-6)


def test_the_scatter_of_estimates_is_that_of_the_stated_errors(fast):
    """Four experiments: the sum of squared deviations in standard errors has a chi-square distribution."""
    away = []
    for seed in range(10, 14):
        constants = vorlen.fit(layer(9e12), BOUNDS, as_measured(fast, seed=seed), workers=1).constants.loc[DESORPTION]
        away.append(np.log(constants["value"] / TRUE) / constants.relative_error)
    low, high = 0.0908, 18.47  # 0.001 and 0.999 quantiles for 4 degrees of freedom, any table
    assert low < np.sum(np.square(away)) < high


def test_scale_and_background_of_the_curve_do_not_matter(fast):
    def found(scale: float) -> float:
        measured = as_measured(fast, None, scale=scale, background=scale)
        return float(vorlen.fit(layer(9e12), BOUNDS, measured, workers=1).constants["value"][0])

    small, large = found(1e-4), found(1e4)
    assert small == pytest.approx(TRUE, rel=1e-3) and small == pytest.approx(large, rel=1e-4)


def test_a_curve_that_the_model_misses_does_not_outweigh_a_layer(grown, fast):
    """A broad hump that no constant explains, in 361 points without noise, beside one good measurement."""
    hump = 1.0 + 0.8 * np.exp(-0.5 * ((ANGLES - 33.8) / 0.15) ** 2)
    bent = as_measured(vorlen.Curve("xrd", fast.table.assign(intensity=fast.y * hump)), None)
    measured = {"scan": bent, "x_in_2": (grown.layers.x_in[2], 0.0005)}
    fit = vorlen.fit(layer(START), BOUNDS, measured, workers=1)
    points = dict(zip(fit.fitted.quantity, fit.fitted.points))
    assert points["x_in_2"] == 1 and 1 <= points["scan"] < 30
    constant = fit.constants.loc[DESORPTION]
    assert constant.low < TRUE < constant.high


def test_offsets_of_temperature_and_angle_are_fitted_along(grown, fast):
    """Two growths separate the offset from the constant; the pyrometer shows 5 K too little."""
    recipes = {"hot": layer(START, 1025.0), "cold": layer(START, 965.0)}
    truth = {"hot": grown, "cold": vorlen.run(layer(TRUE, 970.0))}
    measured = {
        name: {
            "scan": as_measured(vorlen.Curve("xrd", run.xrd(two_theta=ANGLES).table.assign(two_theta=ANGLES + 0.01)), None),
            "x_in_2": (run.layers.x_in[2], 0.0003), "thickness_2": (run.layers.thickness[2], 0.002),
        }
        for name, run in truth.items()
    }
    fit = vorlen.fit(recipes, BOUNDS, measured, temperature_offset=(-20, 20), angle_offset=(-0.03, 0.03), workers=1)
    offsets = fit.offsets.set_index(["recipe", "name"])
    heat = offsets.loc["", "temperature_offset"]
    assert heat.low < 5.0 < heat.high and heat.high - heat.low < 10 and heat.unit == "K"
    assert offsets.value["hot", "angle_offset"] == pytest.approx(0.01, abs=1e-3)
    assert fit.constants.low[0] < TRUE < fit.constants.high[0]
    assert fit.recipes["hot"][HEAT][0] == pytest.approx(1025.0 + heat.value)
    assert list(fit.covariance) == [DESORPTION, "temperature_offset"] == list(fit.history.columns[1:3])


def test_a_local_minimum_is_reported(fast):
    """A curve of something else: nothing between the bounds follows it."""
    other = as_measured(vorlen.Curve("xrd", pd.DataFrame({"two_theta": ANGLES, "intensity": 1.0 + np.sin(9 * ANGLES) ** 2})), None)
    fit = vorlen.fit(layer(START), BOUNDS, other, workers=1)
    assert any("does not follow scan of recipe: it explains" in text for text in fit.warnings)


def test_curves_over_time_and_a_spectrum(grown):
    curvature = grown.curvature()
    times = np.linspace(curvature.x[0], curvature.x[-1], 80)
    random = np.random.default_rng(3)
    sensor = over_time("curvature", times, np.interp(times, curvature.x, curvature.y) + 0.002 * random.standard_normal(80))
    x = np.linspace(300, 600, 601)
    peak = float(grown.emission().wavelength.mean())
    spectrum = vorlen.Curve("emission", pd.DataFrame({"wavelength": x, "intensity": np.exp(-0.5 * ((x - peak) / 10) ** 2)}), "pl")
    fit = vorlen.fit(layer(START), BOUNDS, [(sensor, 0.002), (spectrum, 1.0)], workers=1)
    assert list(fit.fitted.quantity) == ["sensor", "pl"] and list(fit.fitted.sigma) == [0.002, 1.0]
    assert fit.constants.low[0] < TRUE < fit.constants.high[0] and fit.fitted.points[1] == 1


def test_a_sensor_that_is_not_calibrated_gives_the_same_constant(grown):
    curvature = grown.curvature()
    noise = 0.002 * np.random.default_rng(3).standard_normal(len(curvature.x))
    fits = []
    for bow in (0.0, 7.5):
        sensor = over_time("curvature", curvature.x, curvature.y + noise + bow)
        sensor.settings["calibrated"] = False
        fits.append(vorlen.fit(layer(START), BOUNDS, [(sensor, 0.002)], workers=1))
    zeros = [fit.offsets.set_index("name").value["background"] for fit in fits]
    assert zeros == pytest.approx([0.0, 7.5], abs=0.01)
    assert fits[1].constants.value[0] == pytest.approx(fits[0].constants.value[0], rel=1e-3)
    assert abs(np.log(fits[1].constants.value[0] / TRUE)) < 3.0 * fits[1].constants.relative_error[0] < 0.1


def test_the_figure_has_values_and_curves(fast, grown, tmp_path):
    measured = {"scan": as_measured(fast), "x_in_2": (grown.layers.x_in[2], 0.002)}
    fit = vorlen.fit(layer(9.5e12), BOUNDS, measured, workers=1)
    figure = fit.plot(path=tmp_path / "fit.svg")
    assert [axes.get_xlabel() for axes in figure.subfigs[0].axes] == ["Indium, measured"]
    assert [axes.get_ylabel() for axes in figure.subfigs[1].axes] == ["intensity", "difference\n(decades)"]
    plt.close("all")


# ---- arguments


CURVE = over_time("curvature", np.linspace(3001, 3059, 20), np.zeros(20))
SPECTRUM = vorlen.Curve("emission", pd.DataFrame({"wavelength": np.arange(400.0, 420), "intensity": np.ones(20)}), "pl")


@pytest.mark.parametrize(
    "given",
    [CURVE, [CURVE], (CURVE, 0.1), [(CURVE, 0.1)], {"sensor": CURVE}, {"sensor": (CURVE, 0.1)}, {"recipe": CURVE},
     {"recipe": {"sensor": CURVE}}, {"recipe": [CURVE]}],
)
def test_forms_of_measurements(given):
    (found,) = without_curves(given, {"recipe": layer(TRUE)})[1]
    assert (found.recipe, found.name) == ("recipe", "sensor") and found.curve is CURVE


def test_curves_with_one_name_are_numbered():
    _, found = without_curves({"a": [CURVE, CURVE], "b": {"z": (1, 0.1)}}, {"a": layer(TRUE), "b": layer(TRUE)})
    assert [one.name for one in found] == ["sensor", "sensor 2"] and {one.recipe for one in found} == {"a"}


@pytest.mark.parametrize(
    "measured, named, error, message",
    [
        ({"sensor": (CURVE, 0.0)}, {}, ValueError, "the standard deviation must be a positive number, got 0.0"),
        ({"sensor": (CURVE, "0.1")}, {}, TypeError, "the standard deviation must be a positive number"),
        ({"sensor": CURVE, "x_in_2": 0.1}, {}, ValueError, "with curves, all other measurements need standard deviations"),
        ({"pl": SPECTRUM}, {}, ValueError, r"give the spectrum with the standard deviation of its peak, nm: \(curve, 2.0\)"),
        ({"sensor": over_time("curvature", [1, 2], [0, 0])}, {}, ValueError, "sensor has 2 points"),
        (CURVE, {"temperature_offset": 5}, ValueError, r"temperature_offset: expected \(low, high\)"),
        (CURVE, {"temperature_offset": (1, 5)}, ValueError, "temperature_offset: bounds must satisfy low < start < high, got 1, 0"),
        (CURVE, {"time_offset": (5, 1)}, ValueError, "time_offset: low must be less than high"),
        (over_time("curvature", range(9), range(9)), {}, vorlen.SimulationError, "sensor: 0 of its points, 0 to 8, are in"),
    ],
)
def test_wrong_measurements(measured, named, error, message):
    with pytest.raises(error, match=message):
        vorlen.fit(layer(START), BOUNDS, measured, workers=1, **named)


def test_several_recipes_need_curves_by_recipe():
    recipes = {"a": layer(TRUE), "b": layer(TRUE)}
    with pytest.raises(ValueError, match="for several recipes, give measurements by recipe"):
        vorlen.fit(recipes, BOUNDS, CURVE)
    with pytest.raises(ValueError, match="no measurement is given for b"):
        vorlen.fit(recipes, BOUNDS, {"a": CURVE})
    with pytest.raises(ValueError, match="can't be fitted together with temperature_offset"):
        vorlen.fit(layer(TRUE), {HEAT: (900.0, 1100.0)}, CURVE, temperature_offset=(-5, 5))
