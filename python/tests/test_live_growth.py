"""What the live page shows of a run: stack, charts, table, kept variants, failures, files. Numbers are those of the library."""

from __future__ import annotations

import csv
import io
import json
import re
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import vorlen
from browser import Browser
from live import Live
from support import MQW, ROOT, V_DEFECTS, failing_recipe, tool
from test_report import luminance

SVG = "{http://www.w3.org/2000/svg}"
WELL = "process_stages/stage_1/stage_1_3"
PANELS = ["composition", "rate", "strain", "densities", "temperature"]


@pytest.fixture
def live(live: Live) -> Live:
    """The page with the recipe of wells, without kept variants, over the whole depth."""
    live.browser.run(
        "vorlen.growth.restore({axis: 'height', zoom: 'whole', panels: arguments[0], kept: []}); scrollTo(0, 0);"
        "document.querySelector('.all-periods input').checked = false;", PANELS
    )
    return live


@pytest.fixture(scope="module")
def wells() -> vorlen.Run:
    return vorlen.run(MQW)


@pytest.fixture(scope="module")
def defects() -> vorlen.Run:
    return vorlen.run(V_DEFECTS)


def plain(text: str) -> str:
    return " ".join(text.replace("\u00a0", " ").split())


def value(text: str) -> float:
    """A number as the page shows it: −0.0166, 4.8×10¹¹."""
    text = text.replace("−", "-")
    if "×10" in text:
        mantissa, exponent = text.split("×10")
        return float(mantissa) * 10.0 ** int(exponent.translate(str.maketrans("⁻⁰¹²³⁴⁵⁶⁷⁸⁹", "-0123456789")))
    return float(text)


def rows_of_table(live: Live) -> list[list[str]]:
    """The cells of the table of layers, without differences; rows that are notes have one cell."""
    rows = live.browser.run(
        "return [...document.querySelectorAll('.growth-layers tbody tr')].map(r => [...r.cells].map(c =>"
        "(c.querySelector('span') ?? c).textContent))"
    )
    return [[plain(cell) for cell in row] for row in rows]


def heads(live: Live) -> list[str]:
    return live.browser.run("return [...document.querySelectorAll('.growth-layers thead th')].map(c => c.innerText.replace('\\n', ' '))")


def texts(live: Live, selector: str) -> list[str]:
    found = live.browser.run("return [...document.querySelectorAll(arguments[0])].map(n => n.textContent)", selector)
    return [plain(text) for text in found]


def box_of_panel(live: Live, key: str) -> dict[str, float]:
    return live.browser.run(
        "return document.querySelector(`.charts [data-panel=${arguments[0]}] .frame`).getBoundingClientRect().toJSON()", key
    )


def axis_range(live: Live) -> tuple[float, float]:
    """The first and the last place that are visible, from the data of the ticks."""
    return live.browser.run(
        "const ticks = [...document.querySelectorAll('.charts > g > .tick')].map(t => [t.__data__, t.getBoundingClientRect()])"
        ".map(([v, b]) => [v, b.left + b.width / 2]);"
        "const frame = document.querySelector('.charts .frame').getBoundingClientRect();"
        "const [[a, x], [b, y]] = [ticks[0], ticks.at(-1)], k = (b - a) / (y - x);"
        "return [a + k * (frame.left - x), a + k * (frame.right - x)]"
    )


def hover(live: Live, place: float) -> None:
    """Moves the mouse over the charts to a place on their axis."""
    low, high = axis_range(live)
    box = box_of_panel(live, "rate")
    live.browser.hover(box["left"] + (place - low) / (high - low) * box["width"], box["top"] + 20)


def readout(live: Live, key: str) -> dict[str, str]:
    """The values beside the names of the curves of a panel."""
    parts = live.browser.run(
        "return [...document.querySelectorAll(`.charts [data-panel=${arguments[0]}] > text > tspan`)].map(t => "
        "t.childElementCount ? t.firstChild.textContent : t.textContent)", key
    )[1:]
    return {plain(name): plain(shown) for _, name, shown in zip(parts[::3], parts[1::3], parts[2::3])}


def press(live: Live, selector: str) -> None:
    live.browser.run("document.querySelector(arguments[0]).click()", selector)


# ---- what grew


def test_the_table_has_the_layers_of_the_library(live: Live, wells: vorlen.Run, defects: vorlen.Run) -> None:
    for recipe, run in ((MQW, wells), (V_DEFECTS, defects)):
        live.set(recipe.read_text("utf-8"), recipe.name)
        columns = heads(live)
        assert columns == ["No.", "Layer", "Thickness nm", "In", "In final", "Rate nm/s", "Strain %", "Dislocations cm⁻²", "V-defects cm⁻²"]
        rows = [row for row in rows_of_table(live) if len(row) > 1]
        assert len(rows) >= 4
        for cells in rows:
            layer = run.layers.loc[int(cells[0])]
            expected = [
                layer["thickness"], layer["x_in_mid"], layer["x_in_end"], layer["mean_rate"], 100 * layer["eps_xx_z"],
                layer["rho_td_z"], layer["v_defects_t"],
            ]
            assert cells[1] == layer["name"]
            # 5, 4, 3 digits; fractions have four decimals
            assert [value(cell) for cell in cells[2:]] == pytest.approx(expected, rel=6e-3, abs=6e-5)
            assert value(cells[2]) == pytest.approx(layer["thickness"], rel=5e-5)


def test_of_repeated_layers_the_first_period_is_shown_and_the_others_on_request(live: Live) -> None:
    rows = rows_of_table(live)
    assert ["Layers 2 to 13: 3 periods of 4, of which the first is shown"] in rows
    assert [row[0] for row in rows if len(row) > 1] == ["1", "2", "3", "4", "5", "14", "15"]
    press(live, ".all-periods input")
    assert [row[0] for row in rows_of_table(live)] == [str(number) for number in range(1, 16)]


def test_the_stack_names_the_layers_and_repeats(live: Live, wells: vorlen.Run) -> None:
    layers = wells.layers
    names = [" ".join(name.split()) for name in texts(live, ".stack text[data-layer]")]
    assert "× 3" in texts(live, ".stack text")
    well = layers.loc[4]
    assert any(re.fullmatch(rf"InGaN well ?{well.thickness:.2f} nm ?In {well.x_in_mid:.3f}", name) for name in names), names
    grown = layers.loc[layers["kind"] == "active", "thickness"].sum()
    assert f"Layers, {grown:.1f} nm grown" in texts(live, ".stack text")
    # Repeated layers are drawn once. The well is thicker than 4 pixels, in proportion to its barrier.
    boxes = dict(live.browser.run(
        "return [...document.querySelectorAll('.stack rect[data-layer]')].map(b => [b.dataset.layer, b.height.baseVal.value])"
    ))
    assert list(boxes) == ["1", "2", "3", "4", "5", "14", "15"]
    assert boxes["4"] > 10 and boxes["4"] / boxes["2"] == pytest.approx(well.thickness / layers.thickness[2], rel=0.02)
    # The template of 2 µm and the given p-GaN are cut; names don't overlap.
    assert live.browser.run("return document.querySelectorAll('.stack .cut').length") == 2
    places = sorted(live.browser.run("return [...document.querySelectorAll('.stack text[data-layer]')].map(t => t.getBBox().y)"))
    assert min(np.diff(places)) >= 14


def test_the_sentence_says_what_grew(live: Live, wells: vorlen.Run) -> None:
    thickness, x_in = wells.layers["thickness"], wells.layers["x_in_mid"]
    below = thickness[2] + thickness[3]
    assert live.text(".growth-sentence") == (
        f"From the bottom up: 3 × ({below:.2f} nm GaN / {thickness[4]:.2f} nm In {x_in[4]:.3f} / {thickness[5]:.3f} nm GaN), "
        f"{thickness[14]:.2f} nm GaN on 2.00 µm GaN."
    )


def test_a_sentence_about_many_layers_is_short(live: Live) -> None:
    live.set((ROOT / "examples" / "blue_led.xml").read_text("utf-8"), "led.xml")
    assert re.fullmatch(r"From the bottom up: 1\.50 µm GaN, 5 × \(.*In 0\.15\d.*\), 8\.64 nm GaN, 19\.9 nm Al 0\.152, 119 nm GaN on 3\.00 µm GaN\.",
                        live.text(".growth-sentence"))


def test_a_run_in_which_nothing_grows_is_shown(live: Live) -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    for stage in ("stage_1", "stage_2"):
        for metal in ("TMIn", "TEGa"):
            recipe[f"process_stages/{stage}/gas_species/Q/{metal}"] = 0
    recipe["process_stages/stage_1/name"] = "<b>pause</b> & \u202ewait"
    live.set(recipe.to_bytes().decode(), "pause.xml")
    assert live.text(".growth-sentence") == "Nothing grew on 2.00 µm GaN."
    assert "<b>pause</b> & \u202ewait" in [row[1] for row in rows_of_table(live)]
    assert live.browser.run("return document.querySelectorAll('.growth b').length") == 0
    assert "NaN" not in live.browser.run("return document.querySelector('.growth').innerHTML")
    press(live, "[data-choice=time]")
    assert axis_range(live) == pytest.approx([3600, 3734], abs=2)


@pytest.mark.parametrize("seed", range(3))
def test_repeated_groups_are_those_of_the_python_package(seed: int, tmp_path: Path) -> None:
    from vorlen._runs.repeats import repeats

    rng = np.random.default_rng(seed)
    sequences = []
    for _ in range(60):
        period = rng.integers(1, 5)
        codes = np.concatenate([rng.integers(0, 3, rng.integers(0, 4)), np.tile(rng.integers(0, 3, period), rng.integers(1, 6)),
                                rng.integers(0, 3, rng.integers(0, 4))])
        thickness = np.where(rng.random(len(codes)) < 0.1, 5.2, 5.0) + 0.01 * codes
        sequences.append((codes, thickness, np.tile([0.1, 0.9, 0.0], (len(codes), 1))))
    items = [[{"label": str(c), "thickness": float(t), "x": x.tolist()} for c, t, x in zip(*one)] for one in sequences]
    script = tmp_path / "groups.mjs"
    script.write_text(
        f"import {{ repeats }} from {json.dumps((ROOT / 'live/page/growth/repeats.js').as_uri())};\n"
        f"console.log(JSON.stringify({json.dumps(items)}.map(each => repeats(each).map(g => [g.first, g.size, g.periods]))));"
    )
    answer = json.loads(subprocess.run(["node", script], capture_output=True, encoding="utf-8", check=True, timeout=30).stdout)
    assert answer == [[list(group) for group in repeats(*one)] for one in sequences]
    assert any(group[2] > 1 for groups in answer for group in groups)


# ---- charts


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


# ---- kept variants


def hotter(kelvin: float) -> str:
    """The recipe of wells with hotter wells."""
    recipe = vorlen.Recipe.load(MQW)
    recipe[f"{WELL}/T"] = 1010 + kelvin
    return recipe.to_bytes().decode()


def test_kept_variants_are_drawn_thinner_and_compared_in_the_table(live: Live, wells: vorlen.Run) -> None:
    live.press("Keep this")
    live.set(hotter(10), "wells.xml")
    run = vorlen.run(vorlen.Recipe(hotter(10)))
    widths = live.browser.run(
        "return [...document.querySelectorAll('.charts [data-panel=composition] .curve')].map(c => {"
        "const s = getComputedStyle(c); return [parseFloat(s.strokeWidth), s.stroke]})"
    )
    (thin, colour), (thick, own) = widths  # the kept one is below the current one
    assert thin < thick and colour != own
    assert live.text(".charts .others") == "━Variant 1"
    # Differences in the row of the well: thickness and indium.
    changes = live.browser.run(
        "return [...document.querySelectorAll('.growth-layers tbody tr')].find(r => r.cells[0].textContent === '4')"
        ".querySelectorAll('.change').values().map(c => c.textContent).toArray()"
    )
    difference = {name: run.layers.loc[4, name] - wells.layers.loc[4, name] for name in ("thickness", "x_in_mid")}
    assert value(changes[0]) == pytest.approx(difference["thickness"], rel=0.01)
    assert value(changes[1]) == pytest.approx(difference["x_in_mid"], rel=0.01)
    # The cursor shows both values.
    hover(live, run.layers["thickness"].loc[2:4].sum() - 1.5)
    assert live.browser.run("return document.querySelectorAll('.charts [data-panel=composition] > text tspan tspan').length") == 1


def test_kept_variants_are_named_recalled_and_removed(live: Live) -> None:
    live.press("Keep this")
    live.browser.run(
        "const name = document.querySelector('.growth-kept input'); name.value = 'cold'; name.dispatchEvent(new Event('change'))"
    )
    assert texts(live, ".compare option") == ["nothing", "cold"]
    live.set(hotter(20), "wells.xml")
    before = live.runs()
    press(live, ".growth-kept .recall")
    live.wait_for_run(before)
    assert live.xml() == MQW.read_text("utf-8")
    press(live, ".growth-kept .remove")
    assert live.browser.run("return document.querySelectorAll('.charts .thin').length") == 0
    assert live.browser.run("return document.querySelector('.growth-kept').hidden")


def test_at_most_five_variants_are_kept_and_all_differ_in_colour(live: Live) -> None:
    for _ in range(5):
        live.press("Keep this")
    assert live.browser.run("return document.querySelector('.keep').disabled")
    live.browser.run("vorlen.growth.keep()")
    colours = live.browser.run("return [...document.querySelectorAll('.growth-kept .swatch')].map(s => getComputedStyle(s).backgroundColor)")
    assert len(colours) == len(set(colours)) == 5
    press(live, ".growth-kept .remove")
    assert not live.browser.run("return document.querySelector('.keep').disabled")


def test_the_state_brings_back_view_and_variants(live: Live) -> None:
    live.press("Keep this")
    press(live, "[data-choice=time]")
    press(live, ".panels input[data-panel=strain]")
    state = live.browser.run("return JSON.parse(JSON.stringify(vorlen.growth.state()))")
    assert state["axis"] == "time" and "strain" not in state["panels"] and state["kept"][0]["xml"] == MQW.read_text("utf-8")
    live.browser.run("vorlen.growth.restore({axis: 'height', panels: ['rate'], zoom: 'whole', kept: []})")
    live.set(hotter(10), "wells.xml")
    live.browser.run("vorlen.growth.restore(arguments[0])", state)
    live.browser.wait("return document.querySelectorAll('.charts [data-panel=composition] .thin').length === 1", 10)
    assert live.browser.run("return document.querySelector('[data-choice=time]').getAttribute('aria-pressed')") == "true"
    # What a reader has changed in a link does no harm.
    live.browser.run("vorlen.growth.restore({axis: 7, zoom: {axis: 'x'}, panels: 'a', kept: [{}, null, 3].filter(Boolean)})")


# ---- failures


def test_a_failed_run_shows_its_rows_and_the_last_good_one_in_grey(live: Live) -> None:
    live.set(V_DEFECTS.read_text("utf-8"), "good.xml")
    recipe = failing_recipe()
    live.set(recipe.to_bytes().decode(), "bad.xml")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe)
    failed = caught.value.run
    assert live.text(".growth-failure h3") == "The run failed"
    message = live.text(".growth-failure .message")
    assert message and message in plain(str(caught.value.text))
    assert live.text(".growth-failure .stage") and live.text(".growth-failure .remedy").startswith("What to do")
    grey = live.browser.run("return document.querySelectorAll('.charts [data-panel=composition] .ghost').length")
    assert grey == 1
    names = [row[1] for row in rows_of_table(live) if len(row) > 1]
    assert names == ["GaN template", "InGaN", "GaN cap (not reached)", "p-GaN (not reached)"]
    layer = next(row for row in rows_of_table(live) if row[1] == "InGaN")
    assert value(layer[2]) == pytest.approx(failed.layers.loc[2, "thickness"], rel=1e-3)
    assert not any("p-GaN" in name for name in texts(live, ".stack text[data-layer]"))
    assert live.browser.run("return document.querySelector('.keep').disabled")


def test_a_rejected_recipe_leaves_the_last_picture_in_grey(live: Live) -> None:
    indium = texts(live, ".growth-sentence")
    before = live.runs()
    live.browser.run("vorlen.pane.setXml(arguments[0], 'bad.xml')", MQW.read_text("utf-8").replace('<material val="InGaN"/>', ""))
    live.wait_for_run(before)
    assert live.text(".growth-failure h3") == "The recipe can’t be simulated"
    assert "material" in live.text(".growth-failure .message")
    live.browser.wait("return Number(getComputedStyle(document.querySelector('.growth-pictures')).opacity) < 0.6", 5)
    assert live.browser.run("return document.querySelector('.growth').classList.contains('stale')")
    assert texts(live, ".growth-sentence") == indium and len(texts(live, ".stack text[data-layer]")) > 4
    live.set(MQW.read_text("utf-8"), "wells.xml")
    assert live.browser.run("return document.querySelector('.growth-failure').hidden")
    assert not live.browser.run("return document.querySelector('.growth').classList.contains('stale')")


@pytest.mark.parametrize(("status", "head"), [("crashed", "The solver has stopped"), ("cancelled", "The run was cancelled")])
def test_crashes_and_cancelled_runs_are_reported_without_a_blank(status: str, head: str, live: Live) -> None:
    live.browser.run(
        "vorlen.growth.show({status: arguments[0], message: 'Out of memory', stage: '', remedy: '', unphysical: '', seconds: 0,"
        "result: new Uint8Array(), columns: {}, layers: []}, '<a/>', 'x.xml')", status
    )
    assert live.text(".growth-failure h3") == head and live.text(".growth-failure .message") == "Out of memory"
    assert live.text(".growth-failure .pictured") == "The pictures below show the last run that succeeded."
    assert live.browser.run("return document.querySelector('.charts').getBoundingClientRect().height") > 300
    live.set(hotter(1), "wells.xml")
    assert live.browser.run("return document.querySelector('.growth-failure').hidden")


def test_only_a_long_run_is_announced_and_it_can_be_cancelled(live: Live) -> None:
    # A run of the wells takes a few milliseconds.
    live.browser.run("window.seen = 0; new MutationObserver(() => { seen += !document.querySelector('.growth-busy').hidden })"
                     ".observe(document.querySelector('.growth-busy'), {attributes: true})")
    live.set(hotter(2), "wells.xml")
    assert live.browser.run("return seen") == 0
    many = vorlen.Recipe.load(MQW)
    many["process_stages/stage_1/n_periods"] = 20000
    before = live.runs()
    live.browser.run("vorlen.pane.setXml(arguments[0], 'many.xml')", many.to_bytes().decode())
    live.browser.wait("return !document.querySelector('.growth-busy').hidden", 10)
    assert re.fullmatch(r"Simulating\d+\.\d s\s?Cancel", live.text(".growth-busy").replace("Simulating ", "Simulating"))
    press(live, ".growth-busy button")
    live.wait_for_run(before)
    assert live.text(".growth-failure h3") == "The run was cancelled"
    assert live.browser.run("return document.querySelector('.growth-busy').hidden")


# ---- files


def test_the_result_file_and_the_tables_are_saved(live: Live, tmp_path: Path) -> None:
    folders = {name: tmp_path / name for name in ("result", "layers", "rows")}
    for folder in folders.values():
        folder.mkdir()
    files = {name: live.browser.downloaded(folder, f".growth-files [data-file={name}]") for name, folder in folders.items()}
    assert [path.name for path in files.values()] == ["wells.result.txt", "wells-layers.csv", "wells-rows.csv"]
    bytes_of_run = bytes(live.browser.run("return [...vorlen.last.outcome.result]"))
    assert files["result"].read_bytes() == bytes_of_run and len(bytes_of_run) > 400_000
    for name, option in (("layers", "--csv"), ("rows", "--rows")):
        expected = subprocess.run([tool(), "show", option, files["result"]], capture_output=True, encoding="utf-8", check=True).stdout
        saved, wanted = (list(csv.reader(io.StringIO(text, newline=""))) for text in (files[name].read_text("utf-8"), expected))
        assert saved[0] == wanted[0] and len(saved) == len(wanted)
        for one, other in zip(saved[1:], wanted[1:]):
            assert [number_or_text(cell) for cell in one] == [number_or_text(cell) for cell in other]


def number_or_text(cell: str) -> float | str:
    try:
        return float(cell)
    except ValueError:
        return cell


@pytest.mark.parametrize("name", ["charts", "stack"])
def test_saved_pictures_stand_alone_and_are_light(name: str, live: Live, tmp_path: Path) -> None:
    live.press("Keep this")
    live.browser.dark_mode(True)
    path = live.browser.downloaded(tmp_path, f".growth-files [data-file={name}]")
    live.browser.dark_mode(False)
    text = path.read_text("utf-8")
    root = ElementTree.fromstring(text)
    assert path.name == f"wells-{name}.svg" and root.tag == f"{SVG}svg"
    assert root.find(f"{SVG}rect").get("fill") == "#ffffff" and float(root.get("width")) > 200
    style = root.find(f"{SVG}style").text
    used = set(re.findall(r"var\((--[\w-]+)\)", text))
    assert used and used <= set(re.findall(r"(--[\w-]+):", style))
    assert "--plot-ink: #1c2733" in style and not re.search(r"href|url\((?!#clip)", text)
    words = "".join(root.itertext())
    assert "InGaN well" in words and ("Variant 1" in words) == (name == "charts")


# ---- reading aids, sizes, paper


def test_figures_and_the_table_have_text_for_screen_readers(live: Live) -> None:
    live.browser.wait("return document.querySelector('.charts desc').textContent.includes('indium')", 5)
    for name in ("charts", "stack"):
        labels = live.browser.run(
            "const svg = document.querySelector('.growth svg.' + arguments[0]);"
            "return [svg.getAttribute('role'), ...svg.getAttribute('aria-labelledby').split(' ').map(i => document.getElementById(i).textContent)]",
            name,
        )
        assert labels[0] == "img" and all(labels)
    assert re.search(r"indium 0 to 0\.22\d", live.text(".charts desc")) and "GaN barrier to heating 3 times" in live.text(".stack desc")
    scopes = live.browser.run("return [...document.querySelectorAll('.growth-layers th')].map(t => t.scope)")
    assert set(scopes) == {"col", "row", "rowgroup"} and live.text(".growth-layers caption")
    unnamed = live.browser.run(
        "return [...document.querySelectorAll('.growth button, .growth input, .growth select')].filter(n => !(n.textContent.trim() || n.ariaLabel "
        "|| n.labels?.length)).length"
    )
    assert unnamed == 0


@pytest.mark.parametrize("dark", [False, True])
def test_colours_have_contrast(dark: bool, live: Live) -> None:
    live.browser.dark_mode(dark)
    names = "ink soft axis indium gallium aluminium strain warm kept1 kept2 kept3 kept4 kept5 ghost paper".split()
    colours = live.browser.run(
        "const style = getComputedStyle(document.documentElement); return arguments[0].map(n => style.getPropertyValue('--plot-' + n).trim())", names
    )
    live.browser.dark_mode(False)
    paper, *others = (luminance(" ".join(str(part) for part in bytes.fromhex(colour[1:]))) for colour in reversed(colours))
    for name, bright in zip(reversed(names[:-1]), others):
        high, low = sorted((bright, paper), reverse=True)
        least = 4.5 if name in ("ink", "soft") else 2.8 if name == "ghost" else 3.0  # WCAG 2.1: text, graphics
        assert (high + 0.05) / (low + 0.05) >= least, name


def test_on_a_phone_everything_fits_and_a_tap_shows_values(browser: Browser, wells_page: Live) -> None:
    wells_page.open(390, 844, True)
    wells_page.press("Growth")
    assert browser.run("return document.documentElement.scrollWidth") <= 390
    for selector in (".charts", ".stack"):
        box = browser.run("return document.querySelector(arguments[0]).getBoundingClientRect().toJSON()", f".growth svg{selector}")
        assert box["left"] >= 0 and box["right"] <= 390 and box["height"] > 300
    browser.run("document.querySelector('.charts').scrollIntoView()")
    box = box_of_panel(wells_page, "rate")
    browser.tap(box["left"] + 0.5 * box["width"], box["top"] + 20)
    browser.wait("return document.querySelector('.charts > text.head').textContent !== ''", 5)
    widths = browser.run("return [...document.querySelectorAll('.charts [data-panel] > text')].map(t => t.getBoundingClientRect().right)")
    assert max(widths) <= 391
    assert browser.console() == []


def test_on_paper_there_are_no_controls(live: Live) -> None:
    live.browser.command("Emulation.setEmulatedMedia", media="print")
    hidden = live.browser.run(
        "return ['.growth-controls', '.growth-files', '.compare', '.all-periods'].map(s => document.querySelector(s).getClientRects().length)"
    )
    pages = live.browser.print_page()
    live.browser.command("Emulation.setEmulatedMedia", media="")
    assert hidden == [0, 0, 0, 0] and len(pages) > 20_000
