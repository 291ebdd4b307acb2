"""Sensitivities compared with known laws, and tornado plots."""

from __future__ import annotations

import numpy as np
import pytest

import vorlen

STAGE = "process_stages/stage_1/"
TEGA, TAU = STAGE + "gas_species/Q/TEGa", STAGE + "tau"


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


def test_a_failing_side_leaves_a_gap_with_its_reason(recipe):
    table = vorlen.sensitivity(recipe, {STAGE + "P": 40000, TAU: 1}, workers=1)
    failed = pick(table, STAGE + "P", "x_in_2")
    assert np.isnan(failed.derivative) and failed.text == "Very low or negative pressure in stage_1"
    assert pick(table, TAU, "x_in_2").text == ""
    assert len(vorlen.tornado(table, "x_in_2").axes[0].get_yticklabels()) == 1


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
        (["material"], "only numbers can be varied"),
        (["chemistry/Kd_In"], "only numbers can be varied"),
        ([STAGE + "gas_species/Q/TMGa"], "can't change by 0; state the change"),
        ([], "at least one parameter"),
    ],
)
def test_what_can_not_be_varied_is_rejected_with_a_reason(recipe, parameters, text):
    with pytest.raises(ValueError, match=text):
        vorlen.sensitivity(recipe, parameters)


def test_a_recipe_that_fails_itself_is_an_error(recipe):
    broken = recipe.copy()
    broken[STAGE + "T"] = -1
    with pytest.raises(vorlen.SimulationError, match="Very low or negative temperature"):
        vorlen.sensitivity(broken, [TAU], workers=1)


def test_an_unknown_quantity_is_an_error_that_lists_the_known_ones(table):
    with pytest.raises(ValueError, match="unknown quantity x_in_9; the table has z, "):
        vorlen.tornado(table, "x_in_9")
