"""Fits: ramps that hold one value, and recipes whose names are numbers."""

from __future__ import annotations

import io

import numpy as np
import pandas as pd
import pytest

import vorlen
from sweeps import LAYER, P, T, TMIN
from vorlen._fit.measurements import measurement_table

FLOW = 0.3  # sccm of TMIn, the true one


def layer(**values: object) -> vorlen.Recipe:
    """The recipe with other flows of TMIn, or temperatures [K]."""
    recipe = vorlen.Recipe.load(LAYER)
    for path, value in values.items():
        recipe[{"flow": TMIN, "temperature": T}[path]] = value
    return recipe


@pytest.fixture(scope="module")
def indium() -> float:
    """The indium fraction that the true flow gives."""
    return float(vorlen.run(layer(flow=FLOW)).layers.x_in[2])


def test_a_ramp_with_equal_ends_is_fitted_as_one_number_and_both_ends_are_set(indium):
    assert layer()[TMIN] == (0.2, 0.2)
    fit = vorlen.fit(LAYER, {TMIN: (0.05, 1.0)}, {"x_in_2": (indium, 0.001)}, workers=1)
    assert fit.constants.start[TMIN] == 0.2
    assert fit.constants.value[TMIN] == pytest.approx(FLOW, rel=1e-3)
    value = fit.constants.value[TMIN]
    assert fit.recipes["recipe"][TMIN] == (value, value)
    # what the fit minimised is the run with both ends at that value
    assert vorlen.run(fit.recipes["recipe"]).layers.x_in[2] == fit.fitted.fitted[0]


def test_one_end_of_a_ramp_can_be_fitted():
    recipe = layer(flow=(0.2, 0.25))
    measured = float(vorlen.run(layer(flow=(0.2, 0.3))).layers.x_in[2])
    fit = vorlen.fit(recipe, {f"{TMIN}/end": (0.05, 1.0)}, {"x_in_2": (measured, 0.001)}, workers=1)
    begin, end = fit.recipes["recipe"][TMIN]
    assert begin == 0.2 and end == pytest.approx(0.3, rel=1e-2)


@pytest.mark.parametrize("bounds", [(0.05, 1.0), (0.05, 0.2, 1.0)])
@pytest.mark.parametrize("ramped", ["first", "second"])
def test_a_ramp_with_different_ends_is_not_flattened(bounds, ramped):
    recipes = {name: layer(flow=(0.1, 0.4) if name == ramped else 0.2) for name in ("first", "second")}
    measured = {name: {"x_in_2": 0.2} for name in recipes}
    with pytest.raises(ValueError, match=rf"{TMIN} of {ramped} is a ramp from 0\.1 to 0\.4; .*{TMIN}/val or"):
        vorlen.fit(recipes, {TMIN: bounds}, measured)


def test_a_ramp_and_one_of_its_ends_mean_the_same_constant():
    with pytest.raises(ValueError, match="mean the same constant"):
        vorlen.fit(LAYER, {TMIN: (0.05, 1.0), f"{TMIN}/end": (0.05, 1.0)}, {"x_in_2": 0.2, "thickness_2": 2.5})


def names_of(recipes: dict[object, vorlen.Recipe], column: object) -> list[str]:
    """The recipes that the values of a column mean."""
    named = {str(name): recipe for name, recipe in recipes.items()}
    frame = pd.DataFrame({"recipe": column})
    frame["quantity"], frame["value"] = "x_in_2", 0.2
    return list(measurement_table(frame, named).recipe)


@pytest.mark.parametrize(
    ("names", "column", "expected"),
    [
        ([12, 13], [12, 13], ["12", "13"]),
        (["12", "13"], [13, 12], ["13", "12"]),
        ([12, 13], [12.0, 13.0], ["12", "13"]),  # pandas reads integers as floats if a field of the column is empty
        (["0012", "0013"], [12, 13], ["0012", "0013"]),
        (["0012", "0013"], ["0012", "0013"], ["0012", "0013"]),
        ([12, 13], ["0012", "13.0"], ["12", "13"]),
        ([12.0, 13.0], [12, 13], ["12.0", "13.0"]),
        (["0012", "12"], ["12", "0012"], ["12", "0012"]),  # texts are exact
        ([850.5, -3], np.array([850.5, -3.0]), ["850.5", "-3"]),
        (["A12", "12 K"], ["A12", "12 K"], ["A12", "12 K"]),
    ],
)
def test_a_recipe_is_found_by_its_number(names, column, expected):
    assert names_of({name: layer() for name in names}, column) == expected


@pytest.mark.parametrize("given", [12, 12.0, "12.0"])
def test_a_number_that_fits_several_recipes_is_an_error(given):
    with pytest.raises(ValueError, match=r"which may mean the recipes '0012', '12'; give the name as a text"):
        names_of({"0012": layer(), "12": layer()}, [given, "0012"])


@pytest.mark.parametrize("given", [14, 12.5, "A", "1e1", True])
def test_a_name_that_fits_no_recipe_is_an_error(given):
    with pytest.raises(ValueError, match=f"measurements are given for {given}, which is not one of the recipes 12, 13"):
        names_of({12: layer(), 13: layer()}, pd.Series([12, 13, given], dtype=object))


@pytest.mark.parametrize("given", [None, float("nan"), pd.NA])
def test_a_measurement_without_a_recipe_is_an_error(given):
    with pytest.raises(ValueError, match="its place in the column recipe is empty"):
        names_of({12: layer(), 13: layer()}, pd.Series([12, 13, given], dtype=object))


def test_two_spellings_of_a_name_are_one_recipe():
    with pytest.raises(ValueError, match="x_in_2 of 12 is given 2 times"):
        names_of({12: layer()}, ["12", "12.0"])


def test_a_table_from_a_file_is_fitted(tmp_path):
    """Samples 0012 and 0013, as pandas reads them: integers."""
    recipes = {"0012": layer(temperature=1010), "0013": layer(temperature=1030)}
    lines = [f"{name},x_in_2,{vorlen.run(recipe).layers.x_in[2]},0.001" for name, recipe in recipes.items()]
    table = pd.read_csv(io.StringIO("\n".join(["recipe,quantity,value,sigma", *lines])))
    assert list(table.recipe) == [12, 13]
    fit = vorlen.fit(recipes, {P: (2e4, 1e5)}, table, workers=1)
    assert list(fit.fitted.recipe) == ["0012", "0013"] and list(fit.recipes) == ["0012", "0013"]
    assert fit.constants.value[P] == pytest.approx(recipes["0012"][P][0], rel=1e-3)
