"""Complete structures from targets: the gallery with flows and temperatures that are far off, and fitted constants."""

from __future__ import annotations

import math

import numpy as np
import pytest

import vorlen
from support import ROOT
from vorlen._sweep.pool import LocalPool

EXAMPLES = ROOT / "examples"
STRUCTURES = ("blue_led", "hemt", "laser", "mirror", "uv_led")
METALS = ("TMIn", "TMGa", "TEGa", "TMAl")
COLUMNS = {"thickness": "thickness", "In": "x_in", "Al": "x_al"}

LAYER = EXAMPLES / "notebooks" / "ingan_layer.xml"
STAGE = "process_stages/stage_1"
INCORPORATION, DESORPTION = "chemistry/K_InN_plus/A", "chemistry/Kd_In/A"
TRUE = {INCORPORATION: 1e19, DESORPTION: 1e13}
SIGMA = {"x_in": 0.001, "thickness": 0.01}  # of the measurements


@pytest.fixture(scope="module")
def pool():
    with LocalPool(2) as workers:
        yield workers


def off(recipe: vorlen.Recipe, factor: float, shift: float) -> vorlen.Recipe:
    """The recipe with all flows of metals multiplied and all temperatures shifted."""
    for stage in dict.fromkeys(recipe.timeline().query("kind == 'active'").path):
        for metal in METALS:
            flow = f"{stage}/gas_species/Q/{metal}"
            recipe[flow] = tuple(factor * np.array(recipe[flow]))
        recipe[f"{stage}/T"] = tuple(shift + np.array(recipe[f"{stage}/T"]))
    return recipe


@pytest.mark.parametrize(("factor", "shift"), [(3.0, -40.0), (1.0 / 3.0, 40.0)])
@pytest.mark.parametrize("name", STRUCTURES)
def test_a_structure_is_designed_from_flows_off_by_three_and_40_k(pool, tmp_path, name, factor, shift):
    start = off(vorlen.Recipe.load(EXAMPLES / f"{name}.xml"), factor, shift)
    made = vorlen.design(
        start, EXAMPLES / "targets" / f"{name}.yaml", executor=pool, out=tmp_path / "runs", check=False
    )
    # The contact of the ultraviolet diode directly follows a layer with another temperature.
    jump = "check of the designed recipe: the temperature jumps "
    assert made.success and made.runs < 25
    assert [text for text in made.warnings if name != "uv_led" or not text.startswith(jump)] == []
    layers = vorlen.run(made.recipe).layers
    for row in made.table.itertuples():
        reached = layers[(layers.name == row.layer) & (layers.kind == "active")][COLUMNS[row.quantity]].mean()
        if row.bound:
            assert row.bound == "at least" and reached >= row.target
        elif row.quantity == "thickness":
            assert math.isclose(reached, row.target, rel_tol=1e-3), row
        else:
            assert abs(reached - row.target) <= 1e-3, row


def test_every_structure_of_the_gallery_has_targets():
    gallery = sorted(path.stem for path in (EXAMPLES / "gallery").glob("*.py"))
    assert gallery == sorted(path.stem for path in (EXAMPLES / "targets").iterdir()) == sorted(STRUCTURES)


def test_a_contact_that_evaporates_costs_the_layer_below_nothing(pool, tmp_path):
    """A blocking layer of pure AlN would keep more of the contact, by far too little."""
    start = off(vorlen.Recipe.load(EXAMPLES / "uv_led.xml"), 1.0, 40.0)
    blocking = {"layer": "p-AlGaN blocking layer", "thickness": 12, "Al": 0.7, "by": ["tau", "TMAl"]}
    contact = {"layer": "p-GaN contact", "thickness": 30, "by": "tau"}
    targets = {"layers": [blocking, contact], "limits": {"TMAl": "0.0005 .. 50 sccm"}}
    made = vorlen.design(start, targets, executor=pool, out=tmp_path / "runs", check=False)
    assert list(made.table.met) == [True, True, False]
    layers = vorlen.run(made.recipe).layers.set_index("name")
    assert math.isclose(layers.thickness["p-AlGaN blocking layer"], 12.0, rel_tol=1e-3)
    assert abs(layers.x_al["p-AlGaN blocking layer"] - 0.7) <= 1e-3
    # The reason holds: 10 K colder the contact grows.
    (text,) = made.warnings
    colder = made.recipe.copy()
    heat = f"{colder.timeline().path.iloc[-1]}/T"
    colder[heat] = colder[heat][0] - 10.0
    thickness = vorlen.run(colder).layers.thickness.iloc[-1]
    assert thickness > 1.0 and f"Metals evaporate: 10 K lower it would be {thickness:.3g} nm" in text


# ---- constants that were fitted


def layer(temperature: float, constants: dict[str, float]) -> vorlen.Recipe:
    recipe = vorlen.Recipe.load(LAYER)
    for path, value in {f"{STAGE}/T": temperature, **constants}.items():
        recipe[path] = value
    return recipe


def grown(recipe: vorlen.Recipe, constants: dict[str, float]) -> np.ndarray:
    """Indium fraction and thickness with these constants."""
    for path, value in constants.items():
        recipe = recipe.copy().set(path, value)
    return vorlen.run(recipe).layers.loc[2, list(SIGMA)].to_numpy(dtype=float)


def test_a_design_with_fitted_constants_grows_its_targets_in_the_reactor_that_was_measured(pool, tmp_path):
    """The reactor has other constants than the recipe. What it grows deviates by no more than the fit's covariance says."""
    random = np.random.default_rng(4)
    recipes = {f"{temperature} K": layer(temperature, {DESORPTION: 2e12}) for temperature in (850, 910, 970, 1030)}
    measurements = {
        name: {
            f"{quantity}_2": (value + sigma * random.standard_normal(), sigma)
            for (quantity, sigma), value in zip(SIGMA.items(), grown(recipe, TRUE))
        }
        for name, recipe in recipes.items()
    }
    fitted = vorlen.fit(
        recipes, {INCORPORATION: (1e17, 1e22), DESORPTION: (1e11, 1e15)}, measurements, executor=pool,
        out=tmp_path / "fit",
    )
    targets = {"layers": [{"layer": 2, "In": 0.12, "thickness": 4, "by": ["tau", "TMIn"]}]}
    options = {"executor": pool, "out": tmp_path / "runs", "check": False}

    made = vorlen.design(fitted.recipes["970 K"], targets, **options)
    assert made.success
    constants = dict(fitted.constants["value"])
    np.testing.assert_allclose(grown(made.recipe, {}), [0.12, 4.0], rtol=1e-3, atol=1e-3)

    # Linear propagation of the errors: the covariance is that of the logarithms of the constants.
    columns = [
        (grown(made.recipe, constants | {path: constants[path] * 1.02})
         - grown(made.recipe, constants | {path: constants[path] / 1.02})) / (2.0 * math.log(1.02))
        for path in constants
    ]
    jacobian = np.column_stack(columns)
    errors = np.sqrt(np.diag(jacobian @ fitted.covariance.to_numpy() @ jacobian.T))
    assert np.all(errors < [0.002, 0.05])  # with wide ones everything would agree
    away = np.abs(grown(made.recipe, TRUE) - [0.12, 4.0])
    assert np.all(away <= 3.0 * errors + [1e-3, 4e-3])

    # Without the fit the reactor would grow something else.
    unfitted = vorlen.design(recipes["970 K"], targets, **options)
    assert unfitted.success and np.abs(grown(unfitted.recipe, TRUE) - [0.12, 4.0])[0] > 10.0 * (3.0 * errors[0] + 1e-3)
