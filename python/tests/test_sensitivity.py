"""Sensitivities compared with known laws, and tornado plots."""

from __future__ import annotations

import re
from concurrent.futures import Executor, Future
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen

STAGE = "process_stages/stage_1/"
TEGA, TAU = STAGE + "gas_species/Q/TEGa", STAGE + "tau"


LAYER = Path(__file__).resolve().parents[2] / "examples" / "notebooks" / "ingan_layer.xml"


class Model(Executor):
    """Answers each run with what a function of its values gives: the quantities, or the text of a failure."""

    def __init__(self, function) -> None:
        self.function = function
        self.given = []

    def submit(self, call, task):
        self.given.append(task["values"])
        answer = self.function(task["values"])
        failed = isinstance(answer, str)
        row = {"status": "failed" if failed else "ok", "text": answer if failed else "", "result": False}
        future = Future()
        future.set_result(row | {"values": {} if failed else answer})
        return future


@pytest.fixture(scope="module")
def recipe(examples) -> vorlen.Recipe:
    return vorlen.Recipe.load(examples / "notebooks" / "ingan_layer.xml")


@pytest.fixture(scope="module")
def table(recipe):
    return vorlen.sensitivity(recipe, [TEGA, TAU, STAGE + "T", "chemistry/Kd_Al/A"], workers=1)


def pick(table, parameter, quantity):
    (row,) = table[(table.parameter == parameter) & (table.quantity == quantity)].itertuples()
    return row


def test_thickness_follows_time_and_gallium_but_not_a_constant_of_an_absent_metal(table):
    # After the first second the layer grows at a constant rate: one per cent more time, one per cent more thickness.
    assert pick(table, TAU, "thickness_2").elasticity == pytest.approx(1.0, abs=0.02)
    # Growth is limited by the transport of the metals: gallium is 81 % of them, and what indium does is less.
    assert 0.8 < pick(table, TEGA, "thickness_2").elasticity < 1.0
    assert pick(table, "chemistry/Kd_Al/A", "thickness_2").elasticity == pytest.approx(0.0, abs=1e-4)
    assert pick(table, STAGE + "T", "x_in_2").derivative < 0.0  # hot surfaces hold less indium
    assert pick(table, TAU, "thickness_1").derivative == 0.0  # the template is there already


def test_differences_are_those_of_single_runs(recipe, table):
    row = pick(table, TEGA, "x_in_2")
    values = []
    for flow in (0.495, 0.5, 0.505):
        moved = recipe.copy()
        moved[TEGA] = flow
        values.append(vorlen.run(moved).layers.x_in[2])
    assert [row.below, row.base, row.above] == values
    assert (row.value, row.change) == (0.5, 0.005)
    assert row.derivative == pytest.approx((values[2] - values[0]) / 0.01)


def test_both_ends_of_a_ramp_are_moved_by_a_change_in_its_own_unit(recipe):
    ramp = recipe.copy()
    ramp[STAGE + "T"] = (1020, 1040)
    row = pick(vorlen.sensitivity(ramp, {STAGE + "T": 5}, workers=1), STAGE + "T", "x_in_2")
    ramp[STAGE + "T"] = (1025, 1045)
    assert row.above == vorlen.run(ramp).layers.x_in[2]
    assert (row.value, row.change) == (1030, 5)


def test_a_number_of_periods_changes_by_whole_periods(examples):
    path = "process_stages/stage_1/n_periods"
    recipe = vorlen.Recipe.load(examples / "ingan_gan_mqw.xml")
    rows = vorlen.sensitivity(recipe, [path], workers=2)
    heights = [vorlen.run(recipe.copy().set(path, periods)).end["z"] for periods in (2, 3, 4)]
    row = pick(rows, path, "z")
    assert (row.value, row.change) == (3, 1) and [row.below, row.base, row.above] == heights
    assert row.derivative == pytest.approx((heights[2] - heights[0]) / 2)
    # Layer 11 is in another period, or in none, with another number of periods.
    layer = pick(rows, path, "x_in_11")
    assert np.isnan([layer.below, layer.above, layer.derivative, layer.elasticity]).all() and np.isfinite(layer.base)
    assert layer.text == "the number of layers changes, so their values are not comparable" and row.text == ""


@pytest.mark.parametrize(("step", "change"), [(0.01, 1), (0.5, 2), (0.7, 2), (1.0, 3)])
def test_a_step_of_an_integer_is_rounded_and_at_least_1(step, change, examples, tmp_path):
    recipe = vorlen.Recipe.load(examples / "ingan_gan_mqw.xml")
    path = "process_stages/stage_1/n_periods"
    model = Model(lambda values: {"z": 10.5 * values[path]})
    (row,) = vorlen.sensitivity(recipe, [path], step=step, executor=model, out=tmp_path).itertuples()
    assert (row.change, row.derivative) == (change, 10.5)
    assert [type(given[path]) for given in model.given] == [int] * 3
    assert [given[path] for given in model.given] == [3, 3 - change, 3 + change]


def test_derivatives_and_elasticities_of_a_known_function(recipe, tmp_path):
    """y = T^2 tau: central differences are exact for a parabola."""
    ramp = recipe.copy().set(STAGE + "T", (1000, 1040))
    model = Model(lambda values: {"z": (sum(values[STAGE + "T"]) / 2) ** 2 * values[TAU], "x_in_2": 0.0})
    table = vorlen.sensitivity(ramp, {STAGE + "T": 2, TAU: 0.5}, executor=model, out=tmp_path)
    heat, time = pick(table, STAGE + "T", "z"), pick(table, TAU, "z")
    tau = recipe[TAU]
    assert heat.derivative == pytest.approx(2 * 1020 * tau) and heat.elasticity == pytest.approx(2.0)
    assert time.derivative == pytest.approx(1020**2) and time.elasticity == pytest.approx(1.0)
    assert (heat.below, heat.above) == pytest.approx((1018**2 * tau, 1022**2 * tau))
    assert model.given[1] == {STAGE + "T": [998, 1038], TAU: tau}
    assert np.isnan(pick(table, TAU, "x_in_2").elasticity) and pick(table, TAU, "x_in_2").derivative == 0.0


def test_a_parameter_that_is_0_has_a_derivative_but_no_elasticity(recipe, tmp_path):
    model = Model(lambda values: {"z": 5.0 + 3.0 * values[STAGE + "gas_species/Q/TMGa"][0]})
    (row,) = vorlen.sensitivity(
        recipe, {STAGE + "gas_species/Q/TMGa": 0.5}, executor=model, out=tmp_path
    ).itertuples()
    assert row.derivative == pytest.approx(3.0) and row.value == 0.0 and np.isnan(row.elasticity)


def test_one_end_of_a_ramp_is_varied_alone(recipe, tmp_path):
    model = Model(lambda values: {"z": 3.0 * values[STAGE + "T/end"]})
    (row,) = vorlen.sensitivity(recipe, [STAGE + "T/end"], executor=model, out=tmp_path).itertuples()
    assert row.derivative == pytest.approx(3.0)


def test_a_failing_side_leaves_a_gap_with_its_reason(recipe):
    table = vorlen.sensitivity(recipe, {STAGE + "P": 40000, TAU: 1}, workers=1)
    failed = pick(table, STAGE + "P", "x_in_2")
    assert np.isnan(failed.derivative) and failed.text == "below: Very low or negative pressure in stage_1"
    assert np.isnan(failed.below) and np.isfinite(failed.above)
    assert pick(table, TAU, "x_in_2").text == ""
    assert len(vorlen.tornado(table, "x_in_2").axes[0].get_yticklabels()) == 1


def test_failures_of_both_sides_are_reported(recipe, tmp_path):
    def only_the_middle(values):
        return {"z": 1.0} if values[TAU] == recipe[TAU] else f"fails at {values[TAU]}"

    (row,) = vorlen.sensitivity(recipe, {TAU: 1}, executor=Model(only_the_middle), out=tmp_path).itertuples()
    assert row.text == f"below: fails at {recipe[TAU] - 1}; above: fails at {recipe[TAU] + 1}"


def test_the_tornado_has_the_strongest_on_top_and_bars_from_the_base(table, tmp_path):
    figure = vorlen.tornado(table, "x_in_2", path=tmp_path / "tornado.svg")
    labels = [label.get_text().split("\n")[0] for label in figure.axes[0].get_yticklabels()]
    rows = table[table.quantity == "x_in_2"].assign(width=lambda rows: (rows.above - rows.below).abs())
    assert labels == list(rows.sort_values("width").parameter)
    below, above = figure.axes[0].containers
    top = rows.sort_values("width").iloc[-1]
    assert below[-1].get_x() + below[-1].get_width() == pytest.approx(top.below)
    assert above[-1].get_x() + above[-1].get_width() == pytest.approx(top.above)
    assert (tmp_path / "tornado.svg").stat().st_size > 5000
    assert len(vorlen.tornado(table, "x_in_2", most=2).axes[0].get_yticklabels()) == 2


@pytest.mark.parametrize(
    ("parameters", "text"),
    [
        (["process_stages/stage_7/T"], "has no process_stages/stage_7/T"),
        ([3], "has no 3"),
        (["material"], "only numbers can be varied"),
        (["chemistry/Kd_In"], "only numbers can be varied"),
        ([STAGE + "gas_species/Q/TMGa"], "can't change by 0; state the change"),
        ({TAU: 0}, "can't change by 0; state the change"),
        ({TAU: -1}, "can't change by -1; state the change"),
        ({TAU: 1e-20}, "can't change by 1e-20; state the change"),
        ({TAU: float("nan")}, "stage_1/tau: a change must be a finite number, got nan"),
        ({"process_stages/n_stages": 0.5}, "n_stages takes integers, so it can't change by 0.5"),
        ([TAU, "process_stages:stage_1:tau"], "process_stages/stage_1/tau and .* mean the same value"),
        ([TAU, TAU + "/val"], "mean the same value; vary them in separate calls"),
        # In each run the second would set back what the first changes.
        ([STAGE + "T", STAGE + "T/end"], "mean the same value; vary them in separate calls"),
        ([], "at least one parameter"),
    ],
)
def test_what_can_not_be_varied_is_rejected_before_anything_runs(recipe, parameters, text, tmp_path):
    model = Model(None)
    with pytest.raises(ValueError, match=text):
        vorlen.sensitivity(recipe, parameters, executor=model, out=tmp_path)
    assert not model.given


def test_a_ramp_with_a_faulty_end_is_rejected(recipe):
    faulty = vorlen.Recipe(re.sub('(<T val="[^"]*" end=)"[^"]*"', r'\1"hot"', str(recipe), count=1))
    with pytest.raises(ValueError, match="'hot'.; only numbers can be varied"):
        vorlen.sensitivity(faulty, {STAGE + "T": 1})


@pytest.mark.parametrize(
    ("arguments", "options", "error", "text"),
    [
        ((LAYER, TAU), {}, TypeError, "parameters must be a list of paths, or a mapping of paths to changes, got 'proc"),
        ((LAYER, 5), {}, TypeError, "parameters must be a list of paths"),
        ((LAYER, {TAU: "1"}), {}, TypeError, "a change must be a finite number, got '1'"),
        ((LAYER, {TAU: (1, 2)}), {}, TypeError, r"a change must be a finite number, got \(1, 2\)"),
        ((LAYER, {TAU: True}), {}, TypeError, "a change must be a finite number, got True"),
        ((LAYER, {TAU: None}), {}, TypeError, "a change must be a finite number, got None"),
        ((5, [TAU]), {}, TypeError, "recipe must be a path, XML as text or bytes, or a Recipe, got int"),
        (("none.xml", [TAU]), {}, FileNotFoundError, "none.xml"),
        ((b"<a>", [TAU]), {}, vorlen.RecipeError, "line 1: no element found"),
        ((LAYER, [TAU]), {"step": 0}, ValueError, "step must be a positive number, got 0"),
        ((LAYER, [TAU]), {"step": -0.1}, ValueError, "step must be a positive number"),
        ((LAYER, [TAU]), {"step": float("inf")}, ValueError, "step must be a positive number"),
        ((LAYER, [TAU]), {"step": "1 %"}, TypeError, "step must be a positive number, got '1 %'"),
        ((LAYER, [TAU]), {"workers": 0}, ValueError, "workers must be 1 or more, got 0"),
        ((LAYER, [TAU]), {"timeout": -1}, ValueError, "timeout must be a positive"),
        ((LAYER, [TAU], 0.01), {}, TypeError, "positional"),
    ],
)
def test_a_wrong_argument_is_named(arguments, options, error, text):
    with pytest.raises(error, match=text):
        vorlen.sensitivity(*arguments, **options)


def test_xml_as_bytes_is_a_recipe(recipe, tmp_path):
    model = Model(lambda values: {"z": values[TAU]})
    table = vorlen.sensitivity(LAYER.read_bytes(), [TAU], executor=model, out=tmp_path)
    assert table.derivative[0] == pytest.approx(1.0)


def test_a_recipe_that_fails_itself_is_an_error(recipe):
    broken = recipe.copy()
    broken[STAGE + "T"] = -1
    with pytest.raises(vorlen.SimulationError, match="Very low or negative temperature"):
        vorlen.sensitivity(broken, [TAU], workers=1)


def test_an_unknown_quantity_is_an_error_that_lists_the_known_ones(table):
    with pytest.raises(ValueError, match="unknown quantity x_in_9; the table has z, "):
        vorlen.tornado(table, "x_in_9")


@pytest.mark.parametrize(
    ("arguments", "options", "error", "text"),
    [
        (([1], "z"), {}, TypeError, "table must be the data frame that sensitivity.. returns"),
        ((pd.DataFrame({"z": [1]}), "z"), {}, TypeError, "table must be the data frame"),
        ((None, 5), {}, TypeError, "quantity must be a text, such as z, got 5"),
        ((None, "z"), {"most": 0}, ValueError, "most must be a positive integer, got 0"),
        ((None, "z"), {"most": 2.5}, ValueError, "most must be a positive integer, got 2.5"),
        ((None, "z"), {"path": 3}, TypeError, "path must be a path, got int"),
        ((None, "z", 3), {}, TypeError, "positional"),
    ],
)
def test_a_wrong_argument_of_a_tornado_is_named(table, arguments, options, error, text):
    arguments = tuple(table if one is None else one for one in arguments)
    with pytest.raises(error, match=text):
        vorlen.tornado(*arguments, **options)


def test_a_tornado_of_failures_only_gives_the_reason(recipe, tmp_path):
    model = Model(lambda values: {"z": 1.0, "x_in_2": None} if values[TAU] == recipe[TAU] else "no convergence")
    table = vorlen.sensitivity(recipe, [TAU], executor=model, out=tmp_path)
    with pytest.raises(ValueError, match="no parameter has a difference: below: no convergence; above: no"):
        vorlen.tornado(table, "z")
    assert np.isnan(pick(table, TAU, "x_in_2").base)


def test_a_tornado_never_replaces_the_recipe(tmp_path):
    place = tmp_path / "layer.svg"
    place.write_bytes(LAYER.read_bytes())
    model = Model(lambda values: {"z": values[TAU]})
    table = vorlen.sensitivity(place, [TAU], executor=model, out=tmp_path / "runs")
    with pytest.raises(ValueError, match="which is an input"):
        vorlen.tornado(table, "z", path=place)
    assert place.read_bytes() == LAYER.read_bytes()
