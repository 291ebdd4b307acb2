"""The charts of the live page: curves, values at the cursor, zoom. Numbers are those of the library."""

from __future__ import annotations

import re
import subprocess
from pathlib import Path

import numpy as np
import pytest

import vorlen
from live import Live
from live_growth import PANELS, axis_range, box_of_panel, hover, press, readout, texts, value
from support import ROOT, V_DEFECTS

pytestmark = pytest.mark.usefixtures("whole_depth")


def row_at(run: vorlen.Run, column: str, place: float) -> dict[str, float]:
    """The values of the active rows at a time or a height above the pre-stages."""
    rows = run.profile[run.profile["active"]]
    places = rows[column] - (rows["z"].iloc[0] if column == "z" else 0)
    return {name: float(np.interp(place, places, rows[name])) for name in rows.columns if name != "active"}


@pytest.mark.parametrize("axis", ["height", "time"])
def test_values_at_the_cursor_are_those_of_the_rows(axis: str, live: Live, wells: vorlen.Run) -> None:
    press(live, f"[data-choice={axis}]")
    well = wells.layers.loc[4]
    heights = wells.layers["thickness"].cumsum() - wells.layers["thickness"].iloc[0]
    middle = heights[4] - 0.5 * well.thickness if axis == "height" else 0.5 * (well.begin + well.end)
    hover(live, middle)
    row = row_at(wells, "z" if axis == "height" else "time", middle)
    assert value(readout(live, "composition")["indium"]) == pytest.approx(row["x_in"], abs=6e-5)
    assert value(readout(live, "rate")["rate"]) == pytest.approx(row["rate"], rel=6e-4)
    assert value(readout(live, "strain")["as grown (t)"]) == pytest.approx(100 * row["eps_xx_t"], rel=6e-4)
    assert value(readout(live, "densities")["dislocations (t)"]) == pytest.approx(row["rho_td_t"], rel=6e-4)
    assert readout(live, "temperature")["temperature"] == "1010"  # of the recipe
    head = live.text(".charts > text.head")
    assert re.fullmatch(r"[\d.]+ nm, [\d.]+ s, InGaN well", head)
    # One line goes through all panels.
    line = live.browser.run("return document.querySelector('.charts .cursor').getBoundingClientRect().toJSON()")
    first, last = box_of_panel(live, "composition"), box_of_panel(live, "temperature")
    assert line["top"] <= first["top"] and line["bottom"] >= last["bottom"]
    live.browser.hover(5, 5)
    assert live.text(".charts > text.head") == "" and readout(live, "rate")["rate"] == ""


def test_curves_are_in_the_units_that_were_chosen(live: Live) -> None:
    live.browser.run("vorlen.growth.restore({axis: 'height', zoom: 'whole', panels: ['temperature', 'flows', 'gases'], kept: []})")
    live.press("Keep this")
    expected = {  # in the well, by examples/ingan_gan_mqw.xml; 22414 cm³/mol
        ("temperature", "°C", "temperature"): ("temperature, °C", 1010 - 273.15),
        ("metal", "µmol/min", "flows"): ("metal flows, µmol/min", 0.2e6 / 22414),
        ("gas", "slm", "gases"): ("gas flows, slm", 8),
    }
    for quantity, unit, _ in expected:
        live.choose(f"[data-quantity={quantity}]", unit)
    press(live, "[data-choice=time]")
    well = next(layer for layer in live.layers() if layer["name"] == "InGaN well")
    box, (low, high) = box_of_panel(live, "temperature"), axis_range(live)
    middle = 0.5 * (well["begin"] + well["end"])
    live.browser.hover(box["left"] + (middle - low) / (high - low) * box["width"], box["top"] + 20)
    for (_, _, key), (head, number) in expected.items():
        assert texts(live, f".charts [data-panel={key}] tspan.head")[0] == head
        shown = [value(text) for text in readout(live, key).values()]
        assert any(one == pytest.approx(number, rel=1e-3) for one in shown), key
    # The kept run is the same: its values too.
    kept = texts(live, ".charts [data-panel=temperature] tspan tspan")
    assert [value(text) for text in kept] == pytest.approx([1010 - 273.15], rel=1e-3)


def test_curves_are_drawn_where_their_values_are(live: Live, wells: vorlen.Run) -> None:
    """The highest point of the indium curve, in pixels, against the ticks of its axis."""
    highest, zero, tick = live.browser.run(
        "const panel = document.querySelector('.charts [data-panel=composition]');"
        "const ys = [...panel.querySelector('.curve').getAttribute('d').matchAll(/,([\\d.]+)/g)].map(m => Number(m[1]));"
        "const at = v => { const t = [...panel.querySelectorAll('.tick')].find(t => t.__data__ === v);"
        "return Number(t.getAttribute('transform').match(/,([\\d.]+)/)[1]); };"
        "return [Math.min(...ys), at(0), at(0.2)]"
    )
    rows = wells.profile[wells.profile["active"]]
    assert (zero - highest) / (zero - tick) * 0.2 == pytest.approx(rows["x_in"].max(), abs=0.001)


def test_v_defects_and_relaxed_strain_are_drawn(live: Live, defects: vorlen.Run) -> None:
    live.set(V_DEFECTS.read_text("utf-8"), V_DEFECTS.name)
    top = defects.layers.loc[2, "thickness"]
    hover(live, top - 0.05)
    row = row_at(defects, "z", top - 0.05)
    shown = readout(live, "densities")
    assert value(shown["V-defects (t)"]) == pytest.approx(row["rho_vd0_t"] / 2, rel=0.03)  # within a pixel
    assert value(readout(live, "strain")["finished (z)"]) == pytest.approx(100 * row["eps_xx_z"], rel=0.01)
    hover(live, 1.0)
    assert readout(live, "densities")["V-defects (t)"] == "–"  # none yet


def test_names_of_layers_are_above_the_charts(live: Live) -> None:
    names = texts(live, ".charts > g[text-anchor] > text")
    assert names.count("InGaN well") == 3
    boxes = sorted(live.browser.run("return [...document.querySelectorAll('.charts > g[text-anchor] > text')].map(t => {"
                                    "const b = t.getBoundingClientRect(); return [b.left, b.right]})"))
    assert all(right <= left for (_, right), (left, _) in zip(boxes, boxes[1:]))


def test_dragging_zooms_and_a_double_click_shows_all(live: Live, wells: vorlen.Run) -> None:
    rows = wells.profile[wells.profile["active"]]
    whole = float(rows["z"].iloc[-1] - rows["z"].iloc[0])
    assert axis_range(live) == pytest.approx([0, whole], abs=0.1)
    box = box_of_panel(live, "strain")
    y = box["top"] + 10
    live.browser.drag((box["left"] + 0.25 * box["width"], y), (box["left"] + 0.5 * box["width"], y))
    assert axis_range(live) == pytest.approx([0.25 * whole, 0.5 * whole], abs=0.2)
    live.browser.run("document.querySelector('.charts').dispatchEvent(new MouseEvent('dblclick', {bubbles: true}))")
    assert axis_range(live) == pytest.approx([0, whole], abs=0.1)


def test_a_click_on_a_layer_zooms_to_it_and_the_other_axis_follows(live: Live, wells: vorlen.Run) -> None:
    press(live, ".growth-layers button[data-layer='4']")
    thickness = wells.layers["thickness"]
    low, high = thickness[2] + thickness[3], thickness[2] + thickness[3] + thickness[4]
    room = 0.15 * (high - low)
    assert axis_range(live) == pytest.approx([low - room, high + room], abs=0.1)
    press(live, "[data-choice=time]")
    begin, end = axis_range(live)
    assert begin < 3170 < 3240 < end and end - begin < 120  # s; the well is grown from 3170 to 3240 s
    press(live, "[data-choice=whole]")
    assert axis_range(live) == pytest.approx([3000, 3930], abs=5)


def test_thin_layers_above_a_thick_one_are_shown_first(live: Live) -> None:
    live.browser.run("vorlen.growth.restore({zoom: 'thin', kept: []})")
    live.set((ROOT / "examples" / "blue_led.xml").read_text("utf-8"), "led.xml")
    low, high = axis_range(live)
    assert 1480 < low < 1510 and 1590 < high < 1640  # n-GaN of 1502 nm below the wells
    press(live, "[data-choice=whole]")
    assert axis_range(live)[0] == pytest.approx(0, abs=6)  # nm; a pixel is 4 nm


def test_panels_are_chosen(live: Live) -> None:
    shown = "return [...document.querySelectorAll('.charts [data-panel]')].map(p => p.dataset.panel)"
    assert live.browser.run(shown) == PANELS
    for key in ("strain", "flows"):
        press(live, f".panels input[data-panel={key}]")
    assert live.browser.run(shown) == ["composition", "rate", "densities", "temperature", "flows"]
    hover(live, 3.0)
    assert readout(live, "flows")["TEGa"] == "0.5"


def test_long_runs_are_drawn_with_few_points(tmp_path: Path) -> None:
    """Of 200000 rows in 500 pixels: not more than 4 points a pixel, among them the peak of a single row."""
    script = tmp_path / "path.mjs"
    script.write_text(f"""import {{ pathOf }} from "{(ROOT / 'live/page/growth/paths.js').as_uri()}";
const n = 200000, xs = Float64Array.from({{length: n}}, (_, k) => k), ys = xs.map(x => Math.sin(x / 9));
ys[123456] = 7;
const text = pathOf(xs, ys, {{a: 500 / n, b: 0}}, {{a: -10, b: 100}}, [0, n], false);
console.log(text.match(/[ML]/g).length, text.match(/,[\\d.]+/g).filter(y => y === ",30").length, text.match(/M/g).length);
ys[1000] = NaN;
console.log(pathOf(xs, ys, {{a: 500 / n, b: 0}}, {{a: -10, b: 100}}, [0, n], false).match(/M/g).length);""")
    out = subprocess.run(["node", script], capture_output=True, encoding="utf-8", check=True, timeout=30).stdout.split()
    points, peaks, pieces, pieces_with_gap = map(int, out)
    assert points <= 2004 and peaks == 1 and pieces == 1 and pieces_with_gap == 2


def test_arrow_keys_move_the_cursor(live: Live) -> None:
    live.browser.run("document.querySelector('.charts').focus()")
    live.keys("\ue014")  # right
    first = live.text(".charts > text.head")
    live.keys("\ue014")
    assert first and live.text(".charts > text.head") != first
    live.browser.run("document.querySelector('.charts').blur()")
    assert live.text(".charts > text.head") == ""
