"""The charts of a report as data, on profiles whose curves, ranges and marks are calculated manually. No browser."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import result, row
from vorlen._pages.report_charts import MAX_ROWS, charts, inner_part, thin
from vorlen._pages.report_recipe import GASES, METALS

LAYERS = [("a", 10.0, 10.0), ("b", 10.0, 10.0)]


def charts_of(rows: list[str], layers: list[tuple[str, float, float]] | None = None) -> dict[str, Any]:
    return charts(vorlen.Run(result(layers or LAYERS, rows).encode())._drawn)


def panel(figures: dict[str, Any], key: str) -> dict[str, Any]:
    (found,) = [each for each in figures["panels"] if each["key"] == key]
    return found


def curve(figures: dict[str, Any], name: str) -> dict[str, Any]:
    (found,) = [each for part in figures["panels"] for each in part["curves"] if each["name"] == name]
    return found


def test_a_density_of_zero_is_not_drawn_on_the_logarithmic_axis() -> None:
    values = [(0, 0.0, 0.0, 0.0), (10, 1e8, 2e7, 0.0), (20, 4e8, 8e8, 6e8)]
    rows = [row(time=t, z=t, rho_td_t=a, rho_td_z=b, rho_vd0_t=c) for t, a, b, c in values]
    figures = charts_of(rows)
    assert curve(figures, "dislocations (t)")["y"] == [None, 1e8, 4e8]
    assert curve(figures, "dislocations (z)")["y"] == [None, 2e7, 8e8]
    assert curve(figures, "V-defects (t)")["y"] == [None, None, 3e8]  # the column has twice the density
    densities = panel(figures, "densities")
    assert densities["log"] is True and list(densities["range"]) == [7, 9]  # whole decades around 2e7 and 8e8
    assert [each["key"] for each in figures["panels"] if "log" in each] == ["densities"]


def test_without_v_defects_there_is_no_curve_of_them() -> None:
    figures = charts_of([row(time=t, z=t, rho_td_t=1e8, rho_td_z=1e8) for t in (0, 20)])
    assert [each["name"] for each in panel(figures, "densities")["curves"]] == ["dislocations (t)", "dislocations (z)"]


@pytest.mark.parametrize(
    ("lowest", "highest", "decades"),
    [
        (1e8, 1e9, [7, 10]),  # a fifth of room below and above
        (1.3e8, 8e8, [8, 9]),
        (1.1e8, 8.5e8, [7, 10]),
        (5.0, 2e9, [3, 10]),  # of curves over more than six decades the lowest part is cut off
        (0.0, 0.0, [0, 1]),
    ],
)
def test_the_axis_of_densities_has_whole_decades(lowest: float, highest: float, decades: list[float]) -> None:
    rows = [row(time=t, z=t, rho_td_t=density, rho_td_z=density) for t, density in ((0, lowest), (20, highest))]
    assert list(panel(charts_of(rows), "densities")["range"]) == decades


def test_metals_have_panels_of_their_own_gallium_is_hidden_and_absent_ones_have_none() -> None:
    figures = charts_of([row(time=t, z=t, x_ga=0.9, x_in=0.1, x_al=1e-7) for t in (0, 20)])
    assert [each["key"] for each in figures["panels"]] == ["indium", "gallium", "rate", "strain", "densities"]
    assert [each["key"] for each in figures["panels"] if each.get("hidden")] == ["gallium"]
    figures = charts_of([row(time=t, z=t, x_al=1.0) for t in (0, 20)])
    assert [each["key"] for each in figures["panels"]] == ["aluminium", "rate", "strain", "densities"]


def test_strains_are_in_percent_and_growth_rates_as_they_are() -> None:
    rows = [row(time=t, z=t, rate=rate, eps_xx_t=-0.01, eps_xx_z=0.002) for t, rate in ((0, 0.25), (20, 0.5))]
    figures = charts_of(rows)
    assert curve(figures, "growth rate")["y"] == [0.25, 0.5]
    assert curve(figures, "strain (t)")["y"] == [-1.0, -1.0]
    assert curve(figures, "strain (z)")["y"] == [0.2, 0.2]


def test_lines_are_dashed_for_the_finished_structure() -> None:
    figures = charts_of([row(time=t, z=t, rho_td_t=1e8, rho_td_z=1e8, rho_vd0_t=1e8) for t in (0, 20)])
    curves = [each for part in figures["panels"] for each in part["curves"]]
    assert [each["name"] for each in curves if each.get("dashed")] == ["strain (z)", "dislocations (z)"]
    assert len(curves) == 6


def test_heights_start_at_the_first_simulated_row() -> None:
    layers = [("base", 5.0, 100.0), *LAYERS]
    rows = [
        row(False, time=0, z=0), row(False, time=5, z=100),
        *(row(time=t, z=z) for t, z in ((5, 100), (15, 110), (20, 117), (25, 120))),
    ]
    figures = charts_of(rows, layers)
    assert figures["points"] == {"rows": {"time": [5, 15, 20, 25], "height": [0, 10, 17, 20]}}
    assert curve(figures, "growth rate")["points"] == "rows"
    assert figures["regions"][0] == {"label": "Whole run", "time": [5, 25], "height": [0, 20]}
    assert figures["axes"]["height"] == "height above the pre-stages (nm)"


@pytest.mark.parametrize(("time", "limits"), [(0.0, [-1, 1]), (7.0, [6, 8])])
def test_a_chart_of_one_time_has_room_on_both_sides(time: float, limits: list[float]) -> None:
    figures = charts_of([row(time=time, z=0), row(time=time, z=0)])
    assert figures["regions"][0]["time"] == limits


def test_stages_have_their_ranges_and_wells_are_named_before_ramps() -> None:
    # x_in 0.2 in a layer of 3 nm between two of 10 nm; the pause grows nothing, the last layer is not reached.
    layers = [("a  b", 10.0, 10.0), ("well", 3.0, 3.0), ("pause", 2.0, 0.0), ("top", 10.0, 10.0), ("later", 10.0, 10.0)]
    points = [(0, 0, 0), (10, 10, 0), (10.01, 10.01, 0.2), (13, 13, 0.2), (13.01, 13, 0), (15, 13, 0), (25, 23, 0)]
    figures = charts_of([row(time=t, z=z, x_in=x, x_ga=1 - x) for t, z, x in points], layers)
    assert [(each["number"], each["name"], each["rank"]) for each in figures["stages"]] == [
        (1, "a b", 1), (2, "well", 2), (3, "pause", 0), (4, "top", 1)
    ]
    assert [each["time"] for each in figures["stages"]] == [[0, 10], [10, 13], [13, 15], [15, 25]]
    assert [each["height"] for each in figures["stages"]] == [[0, 10], [10, 13], [13, 13], [13, 23]]
    # 10 nm on both sides of a single well
    assert figures["regions"][1] == {"label": "Active region", "time": [0, 25], "height": [0, 23]}


def test_the_active_region_is_drawn_without_its_ends_unless_the_run_ends_there() -> None:
    assert inner_part([10, 20], [0, 100]) == pytest.approx([10.08, 19.92])
    assert inner_part([0, 20], [0, 100]) == pytest.approx([0, 19.84])
    assert inner_part([10, 100], [0, 100]) == pytest.approx([10.72, 100])
    assert inner_part([0, 100], [0, 100]) == [0, 100]


# ---- what the recipe states


def timeline(*stages: dict[str, Any]) -> pd.DataFrame:
    """Recipe.timeline of simulated stages: duration and, as number or pair, T, P and flows."""
    rows, clock = [], 0.0
    for stage in stages:
        record: dict[str, Any] = {"kind": "active", "begin": clock, "end": clock + stage["duration"]}
        record["duration"] = stage["duration"]
        for name in ("T", "P", *METALS, *GASES):
            value = stage.get(name, 0.0)
            record[f"{name}_begin"], record[f"{name}_end"] = value if isinstance(value, tuple) else (value, value)
        rows.append(record)
        clock = record["end"]
    return pd.DataFrame(rows)


def with_recipe(*stages: dict[str, Any], last: float = 20.0) -> dict[str, Any]:
    run = vorlen.Run(result(LAYERS, [row(time=t, z=2 * t) for t in (0.0, last / 2, last)]).encode())
    return charts(run._drawn._replace(timeline=timeline(*stages)))


def test_flows_pressure_and_ratio_are_those_of_the_recipe() -> None:
    base = {"duration": 10.0, "T": 1000.0, "P": 40000.0, "NH3": 8000.0, "N2": 6000.0}
    figures = with_recipe(base | {"TMGa": 3.0, "TMAl": 1.0}, base | {"P": 20000.0})
    assert figures["points"]["recipe"] == {"time": [0, 10, 10, 20], "height": [0, 20, 20, 40]}
    assert curve(figures, "TMGa")["y"] == [3, 3, 0, 0] and curve(figures, "TMAl")["y"] == [1, 1, 0, 0]
    assert curve(figures, "N\u2082")["y"] == [6000] * 4 and curve(figures, "NH\u2083")["y"] == [8000] * 4
    assert curve(figures, "pressure")["y"] == [40, 40, 20, 20]  # kPa
    assert curve(figures, "V/III")["y"] == [2000, 2000, None, None]  # 8000 / (3 + 1); no metal flows in the second stage
    assert [each["key"] for each in figures["panels"]] == [
        "rate", "temperature", "metals", "gases", "ratio", "pressure", "strain", "densities"
    ]
    assert [each["name"] for each in panel(figures, "metals")["curves"]] == ["TMGa", "TMAl"]  # no TMIn, no TEGa
    assert [each["name"] for each in panel(figures, "gases")["curves"]] == ["N\u2082", "NH\u2083"]


def test_a_ramp_of_a_flow_has_points_between_its_ends() -> None:
    figures = with_recipe({"duration": 20.0, "TMGa": (1.0, 3.0), "NH3": 600.0, "T": (1000.0, 1100.0)})
    assert len(curve(figures, "TMGa")["y"]) == 17
    # in the middle: 600 / 2, 1050 K
    assert (curve(figures, "TMGa")["y"][8], curve(figures, "V/III")["y"][8], curve(figures, "temperature")["y"][8]) == (
        2, 300, 1050
    )
    assert figures["points"]["recipe"]["height"][8] == 20


def test_the_recipe_ends_with_the_rows_of_a_failed_run() -> None:
    ramp = {"duration": 10.0, "T": (1000.0, 1100.0)}
    figures = with_recipe(ramp, ramp, ramp, last=15.0)
    assert figures["points"]["recipe"]["time"][-1] == 15
    assert curve(figures, "temperature")["y"][-1] == 1050
    assert len(curve(figures, "temperature")["y"]) == 2 * 17


@pytest.mark.parametrize(("metal", "log"), [((1.0, 20.0), False), ((1.0, 21.0), True)])
def test_a_wide_ratio_has_a_logarithmic_axis(metal: tuple[float, float], log: bool) -> None:
    stages = [{"duration": 10.0, "TMGa": flow, "NH3": 1000.0} for flow in metal]
    assert panel(with_recipe(*stages), "ratio").get("log", False) is log


def test_a_recipe_without_metals_has_no_panels_of_them() -> None:
    figures = with_recipe({"duration": 20.0, "T": 1000.0, "N2": 5.0})
    keys = [each["key"] for each in figures["panels"]]
    assert "metals" not in keys and "ratio" not in keys and "gases" in keys


def test_values_that_a_recipe_does_not_state_are_left_out() -> None:
    nan = float("nan")
    figures = with_recipe({"duration": 20.0, "T": nan, "P": nan, "TMGa": nan, "NH3": 5.0})
    assert [each["key"] for each in figures["panels"]] == ["rate", "gases", "strain", "densities"]


def test_rate_and_temperature_have_two_units() -> None:
    figures = with_recipe({"duration": 20.0, "T": 1000.0})
    # factor and offset: 1 nm/s is 3600 nm/h, 0 K is -273.15 degrees
    assert panel(figures, "rate")["units"] == (("nm/s", 1, 0), ("µm/h", 3.6, 0))
    assert panel(figures, "temperature")["units"] == (("K", 1, 0), ("°C", 1, -273.15))


# ---- interfaces


def test_an_interface_has_its_range_and_its_marks() -> None:
    # Indium rises from 0 at 10 nm to 0.2 at 12 nm: 10 % at 10.2 nm and 90 % at 11.8 nm, 1.6 nm apart.
    points = [(0, 0, 0.0), (10, 10, 0.0), (12, 12, 0.2), (20, 20, 0.2)]
    figure = charts_of([row(time=t, z=z, x_in=x, x_ga=1 - x) for t, z, x in points])["interfaces"]
    (place,) = figure["places"]
    assert place["label"] == "1. a / b" and place["width"] == "1.6" and place["y"] == pytest.approx([0, 0.2])
    assert place["marks"] == pytest.approx([10.2, 11.8])
    assert place["range"] == pytest.approx([10 - 3 * 1.6, 10 + 3 * 1.6 + 1.6])
    assert [each["name"] for each in figure["curves"]] == ["indium"]
    assert figure["height"] == [0, 10, 12, 20]


def test_a_sharp_interface_keeps_a_range() -> None:
    points = [(0, 5, 0.3), (10, 15, 0.3), (10, 15, 0.0), (20, 25, 0.0)]
    (place,) = charts_of([row(time=t, z=z, x_al=x) for t, z, x in points])["interfaces"]["places"]
    assert place["range"] == pytest.approx([9.95, 10.05]) and place["y"] == pytest.approx([0, 0.3])
    assert place["marks"] == [10, 10] and place["width"] == "0"


def test_an_interface_whose_step_is_not_complete_has_no_width() -> None:
    points = [(0, 0, 0.0), (10, 10, 0.0), (11, 11, np.nan), (12, 12, 0.2), (20, 20, 0.2)]
    (place,) = charts_of([row(time=t, z=z, x_in=x) for t, z, x in points])["interfaces"]["places"]
    assert place["width"] is None and place["marks"] == [None, None]
    assert place["range"] == pytest.approx([10 - 3, 10 + 3 + 1])  # as of a width of 1 nm


def test_layers_of_one_composition_have_no_chart_of_interfaces() -> None:
    assert "interfaces" not in charts_of([row(time=t, z=t, x_in=0.1) for t in (0, 20)])


@pytest.mark.parametrize("count", [1, 2, MAX_ROWS - 1, MAX_ROWS])
def test_few_rows_are_all_drawn(count: int) -> None:
    assert thin(pd.DataFrame({"z": np.arange(count)}))["z"].to_list() == list(range(count))


@pytest.mark.parametrize("count", [MAX_ROWS + 1, 2 * MAX_ROWS, 10 * MAX_ROWS + 3])
def test_of_many_rows_evenly_spaced_ones_are_drawn(count: int) -> None:
    kept = thin(pd.DataFrame({"z": np.arange(count)}))["z"].to_numpy()
    assert len(kept) == MAX_ROWS and kept[0] == 0 and kept[-1] == count - 1
    assert np.ptp(np.diff(kept)) <= 1


def test_near_an_interface_of_many_rows_all_are_drawn() -> None:
    # 12001 rows, 600 per nm; indium rises from 0 to 0.2 between 10 and 10.1 nm: a width of 0.08 nm.
    z = np.linspace(0, 20, 12001)
    x = np.clip((z - 10) / 0.1, 0, 1) * 0.2
    figures = charts_of([row(time=t, z=t, x_in=value) for t, value in zip(z, x)])
    (place,) = figures["interfaces"]["places"]
    low, high = place["range"]
    assert (low, high) == pytest.approx((10 - 0.24, 10 + 0.24 + 0.08), abs=1e-6)
    expected = z[(z >= low) & (z <= high)]
    assert figures["interfaces"]["height"] == pytest.approx(expected, abs=1e-6)
    assert len(curve(figures, "indium")["y"]) == MAX_ROWS
