"""The charts of a report as data, on profiles whose curves, axes and marks are calculated manually. No browser."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import result, row
from vorlen._report_charts import MAX_ROWS, charts, thin

LAYERS = [("a", 10.0, 10.0), ("b", 10.0, 10.0)]


def charts_of(rows: list[str], layers: list[tuple[str, float, float]] | None = None) -> dict[str, Any]:
    return charts(vorlen.Run(result(layers or LAYERS, rows).encode())._drawn)


def curve(figure: dict[str, Any], name: str) -> dict[str, Any]:
    (found,) = [each for each in figure["data"] if each["name"] == name]
    return found


def test_a_density_of_zero_is_not_drawn_on_the_logarithmic_axis() -> None:
    values = [(0, 0.0, 0.0, 0.0), (10, 1e8, 2e7, 0.0), (20, 4e8, 8e8, 6e8)]
    rows = [row(time=t, z=t, rho_td_t=a, rho_td_z=b, rho_vd0_t=c) for t, a, b, c in values]
    figures = charts_of(rows)
    for figure in (figures["time"], figures["depth"]):
        assert curve(figure, "dislocations (t)")["y"] == [None, 1e8, 4e8]
        assert curve(figure, "dislocations (z)")["y"] == [None, 2e7, 8e8]
        assert curve(figure, "V-defects (t)")["y"] == [None, None, 3e8]  # the column has twice the density
        # Panels: composition, growth rate, strain, densities. Whole decades around 2e7 and 8e8.
        assert figure["layout"]["yaxis4"]["type"] == "log"
        assert list(figure["layout"]["yaxis4"]["range"]) == [7, 9]
        assert all(figure["layout"][f"yaxis{number}"]["type"] == "linear" for number in ("", 2, 3))


def test_without_v_defects_there_is_no_curve_of_them() -> None:
    figures = charts_of([row(time=t, z=t, rho_td_t=1e8, rho_td_z=1e8) for t in (0, 20)])
    assert "V-defects (t)" not in [each["name"] for each in figures["time"]["data"]]


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
    assert list(charts_of(rows)["time"]["layout"]["yaxis4"]["range"]) == decades


def test_metals_that_are_absent_have_no_curve() -> None:
    rows = [row(time=t, z=t, x_ga=0.9, x_in=0.1, x_al=1e-7) for t in (0, 20)]
    names = [each["name"] for each in charts_of(rows)["time"]["data"] if each["yaxis"] == "y"]
    assert names == ["In", "Ga"]


def test_strains_are_in_percent_and_growth_rates_as_they_are() -> None:
    rows = [row(time=t, z=t, rate=rate, eps_xx_t=-0.01, eps_xx_z=0.002) for t, rate in ((0, 0.25), (20, 0.5))]
    figure = charts_of(rows)["time"]
    assert curve(figure, "growth rate")["y"] == [0.25, 0.5]
    assert curve(figure, "strain at growth (t)")["y"] == [-1.0, -1.0]
    assert curve(figure, "strain, finished (z)")["y"] == [0.2, 0.2]


def test_lines_are_solid_for_the_surface_and_dashed_for_the_finished_structure() -> None:
    figure = charts_of([row(time=t, z=t, rho_td_t=1e8, rho_td_z=1e8, rho_vd0_t=1e8) for t in (0, 20)])["time"]
    for each in figure["data"]:
        assert each["line"]["dash"] == ("dash" if "(z)" in each["name"] else "solid"), each["name"]
        # pixels; the colours of thinner lines are hard to distinguish
        assert each["line"]["width"] == 2 and each["mode"] == "lines"
        assert each["showlegend"] is True
    assert len([each for each in figure["data"] if each["line"]["dash"] == "dash"]) == 2


def test_heights_start_at_the_first_simulated_row_and_are_linked_to_times() -> None:
    layers = [("base", 5.0, 100.0), *LAYERS]
    rows = [
        row(False, time=0, z=0), row(False, time=5, z=100),
        *(row(time=t, z=z) for t, z in ((5, 100), (15, 110), (20, 117), (25, 120))),
    ]
    figures = charts_of(rows, layers)
    assert figures["link"] == {"time": [5, 15, 20, 25], "depth": [0, 10, 17, 20]}
    assert curve(figures["time"], "growth rate")["x"] == [5, 15, 20, 25]
    assert curve(figures["depth"], "growth rate")["x"] == [0, 10, 17, 20]
    assert figures["time"]["layout"]["xaxis"]["range"] == [5, 25]
    assert figures["depth"]["layout"]["xaxis"]["range"] == [0, 20]


@pytest.mark.parametrize(("time", "limits"), [(0.0, [-1, 1]), (7.0, [6, 8])])
def test_a_chart_of_one_time_has_room_on_both_sides(time: float, limits: list[float]) -> None:
    figure = charts_of([row(time=time, z=0), row(time=time, z=0)])["time"]
    assert figure["layout"]["xaxis"]["range"] == limits


def test_every_other_stage_is_shaded_and_stages_with_room_are_named() -> None:
    layers = [("wide", 500.0, 1.0), ("narrow", 11.0, 1.0), ("b < c", 13.0, 1.0), ("n" * 31, 476.0, 1.0)]
    layout = charts_of([row(time=t, z=t / 250) for t in (0, 1000)], layers)["time"]["layout"]
    shaded = [(shape["x0"], shape["x1"]) for shape in layout["shapes"]]
    assert shaded == [(0, 500), (511, 524)]
    # Names need 1.2 % of the width, 12 s; they have at most 30 letters, in the middle of their stage.
    named = [(text["x"], text["text"]) for text in layout["annotations"]]
    assert named == [(250, "wide"), (517.5, "b &lt; c"), (762, "n" * 30)]


def test_the_stages_of_a_short_process_are_all_named() -> None:
    layers = [("wide", 990.0, 1.0), ("narrow", 5.0, 1.0), ("last", 5.0, 1.0)]
    layout = charts_of([row(time=t, z=t / 250) for t in (0, 1000)], layers)["time"]["layout"]
    assert [text["text"] for text in layout["annotations"]] == ["wide", "narrow", "last"]


@pytest.mark.parametrize(("ramp", "limits"), [(0.0, [1080, 1120]), (1.9, [1080, 1121.9]), (2.0, None), (50.0, None)])
def test_a_constant_temperature_has_an_axis_of_40_k(ramp: float, limits: list[float] | None) -> None:
    stages = [("active", 0.0, 10.0, 10.0, 1100.0, 1100.0), ("active", 10.0, 20.0, 10.0, 1100.0, 1100.0 + ramp)]
    timeline = pd.DataFrame(stages, columns=["kind", "begin", "end", "duration", "T_begin", "T_end"])
    run = vorlen.Run(result(LAYERS, [row(time=t, z=t) for t in (0, 10, 20)]).encode())
    figure = charts(run._drawn._replace(timeline=timeline))["time"]
    assert curve(figure, "temperature")["x"] == [0, 10, 10, 20]  # the ends of each ramp
    assert curve(figure, "temperature")["y"] == [1100, 1100, 1100, 1100 + ramp]
    assert figure["layout"]["yaxis3"].get("range") == limits


def test_the_panels_are_apart_and_fill_the_height() -> None:
    layout = charts_of([row(time=t, z=t) for t in (0, 20)])["time"]["layout"]
    domains = [layout[f"yaxis{number}"]["domain"] for number in ("", 2, 3, 4)]
    assert domains[0][1] == 1 and domains[-1][0] == pytest.approx(0, abs=1e-12)
    gaps = [above[0] - below[1] for above, below in zip(domains, domains[1:])]
    assert gaps == pytest.approx([0.035] * 3)
    assert [top - bottom for bottom, top in domains] == pytest.approx([(1 - 3 * 0.035) / 4] * 4)
    assert layout["height"] == 120 + 4 * 165
    assert layout["xaxis"]["anchor"] == "y4"  # below the lowest panel


def test_an_interface_has_its_range_and_its_marks() -> None:
    # Indium rises from 0 at 10 nm to 0.2 at 12 nm: 10 % at 10.2 nm and 90 % at 11.8 nm, 1.6 nm apart.
    points = [(0, 0, 0.0), (10, 10, 0.0), (12, 12, 0.2), (20, 20, 0.2)]
    figure = charts_of([row(time=t, z=z, x_in=x, x_ga=1 - x) for t, z, x in points])["interface"]
    (place,) = figure["places"]
    assert place["label"] == "a / b" and place["width"] == "1.6" and place["y"] == pytest.approx([0, 0.2])
    assert place["marks"] == pytest.approx([10.2, 11.8])
    assert place["range"] == pytest.approx([10 - 3 * 1.6, 10 + 3 * 1.6 + 1.6])
    assert [each["name"] for each in figure["data"]] == ["In"]
    assert figure["data"][0]["x"] == [0, 10, 12, 20]


def test_a_sharp_interface_keeps_a_range() -> None:
    points = [(0, 5, 0.3), (10, 15, 0.3), (10, 15, 0.0), (20, 25, 0.0)]
    (place,) = charts_of([row(time=t, z=z, x_al=x) for t, z, x in points])["interface"]["places"]
    assert place["range"] == pytest.approx([9.95, 10.05]) and place["y"] == pytest.approx([0, 0.3])
    assert place["marks"] == [10, 10] and place["width"] == "0"


def test_an_interface_whose_step_is_not_complete_has_no_width() -> None:
    points = [(0, 0, 0.0), (10, 10, 0.0), (11, 11, np.nan), (12, 12, 0.2), (20, 20, 0.2)]
    (place,) = charts_of([row(time=t, z=z, x_in=x) for t, z, x in points])["interface"]["places"]
    assert place["width"] is None and place["marks"] == [None, None]
    assert place["range"] == pytest.approx([10 - 3, 10 + 3 + 1])  # as of a width of 1 nm


def test_layers_of_one_composition_have_no_chart_of_interfaces() -> None:
    assert "interface" not in charts_of([row(time=t, z=t, x_in=0.1) for t in (0, 20)])


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
    (place,) = figures["interface"]["places"]
    low, high = place["range"]
    assert (low, high) == pytest.approx((10 - 0.24, 10 + 0.24 + 0.08), abs=1e-6)
    expected = z[(z >= low) & (z <= high)]
    assert figures["interface"]["data"][0]["x"] == pytest.approx(expected, abs=1e-6)
    assert len(curve(figures["time"], "In")["x"]) == MAX_ROWS


def test_the_chart_library_knows_every_property() -> None:
    """It ignores a property that it doesn't know, so a misspelt one would show in no message."""
    go = pytest.importorskip("plotly.graph_objects")
    points = [(0, 0, 0.0), (10, 10, 0.0), (12, 12, 0.2), (20, 20, 0.2)]
    figures = charts_of([row(time=t, z=z, x_in=x, rho_vd0_t=2e8) for t, z, x in points])
    for name in ("time", "depth", "interface"):
        go.Figure(data=figures[name]["data"], layout=figures[name]["layout"])
    with pytest.raises(ValueError, match="linecolour"):
        go.Figure(layout={"xaxis": {"linecolour": "#44525f"}})
