"""What the live page shows of a run: layers, stack, sentence, reading aids, sizes. Numbers are those of the library."""

from __future__ import annotations

import json
import re
import subprocess
from pathlib import Path

import numpy as np
import pytest

import vorlen
from browser import Browser
from live import Live
from live_growth import axis_range, box_of_panel, heads, press, rows_of_table, texts, value
from support import MQW, ROOT, V_DEFECTS
from test_report import luminance

pytestmark = pytest.mark.usefixtures("whole_depth")


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


def test_the_colours_of_the_pictures_are_those_of_the_reports() -> None:
    styles = (ROOT / "python/vorlen/assets/page.css").read_text("utf-8").split("@media", 2)[:2]
    light, dark = (dict(re.findall(r"--(\w+): (#\w{6})", style)) for style in styles)
    reports = {name: [colour, dark[name]] for name, colour in light.items() if name in dark}
    own = re.findall(r'(\w+): \["(#\w{6})", "(#\w{6})"\]', (ROOT / "live/page/growth/palette.js").read_text("utf-8"))
    shared = [(name, [light, dark]) for name, light, dark in own if name in reports]
    assert len(shared) == 11
    for name, colours in shared:
        assert colours == reports[name], name


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


def test_on_paper_are_both_halves_without_controls(live: Live) -> None:
    live.browser.command("Emulation.setEmulatedMedia", media="print")
    live.browser.command("Emulation.setDeviceMetricsOverride", width=688, height=1000, deviceScaleFactor=1, mobile=False)  # A4
    boxes = "return arguments[0].map(s => [...document.querySelectorAll(s)].filter(n => n.getClientRects().length).length)"
    controls = ["button:not(.growth button)", ".tools", ".dock", ".growth-controls", ".growth-files", ".compare", ".all-periods"]
    shown = ["#pane-table tr.stage", ".growth-layers", ".charts", ".stack"]
    for half in ("Recipe", "Growth"):
        live.browser.run("document.getElementById('half-' + arguments[0].toLowerCase()).click()", half)
        assert live.browser.run(boxes, controls) == [0] * len(controls), half
        assert all(live.browser.run(boxes, shown)), half
    # No stage is cut off.
    assert live.browser.run("const s = document.querySelector('.stages-scroll'); return s.scrollHeight - s.clientHeight") <= 1
    pages = live.browser.print_page()
    live.browser.run("document.getElementById('half-recipe').click()")
    live.browser.command("Emulation.setEmulatedMedia", media="")
    live.browser.command("Emulation.setDeviceMetricsOverride", width=1440, height=900, deviceScaleFactor=1, mobile=False)
    assert len(pages) > 20_000
