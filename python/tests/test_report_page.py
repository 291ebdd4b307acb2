"""What a report shows in a real browser: the first screen, zoom, units, dark mode, files, paper, a phone."""

from __future__ import annotations

import io
import itertools
import math
import re
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd
import pytest

import vorlen
from browser import Browser
from support import MQW, ROOT, V_DEFECTS, failed_run, failing_recipe
from test_report import luminance

HEMT = ROOT / "examples" / "algan_gan_hemt.xml"
SIZES = ((1440, 900, False), (820, 1180, False), (390, 844, True))
LAYOUT = "document.getElementById('chart-{}')._fullLayout"


@pytest.fixture(scope="module")
def runs(tmp_path_factory: pytest.TempPathFactory) -> dict[str, vorlen.Run]:
    folder = tmp_path_factory.mktemp("runs")
    many = vorlen.Recipe.load(MQW)
    many["process_stages/stage_1/n_periods"] = 60
    return {
        "wells": vorlen.run(MQW, folder / "wells.result.txt"),
        "transistor": vorlen.run(HEMT),
        "defects": vorlen.run(V_DEFECTS),
        "failed": failed_run(failing_recipe()),
        "unknown": vorlen.Run(vorlen.run(MQW).content),  # without a recipe
        "many": vorlen.run(many),  # 243 layers
    }


@pytest.fixture(scope="module")
def pages(runs: dict[str, vorlen.Run], tmp_path_factory: pytest.TempPathFactory) -> dict[str, Path]:
    folder = tmp_path_factory.mktemp("pages")
    return {name: vorlen.report(run, folder / f"{name}.html") for name, run in runs.items()}


def text_of(browser: Browser, selector: str) -> str:
    text = browser.run("return document.querySelector(arguments[0]).textContent", selector)
    return re.sub(r"\s+", " ", text.replace("\u00a0", " ")).strip()


def box_of(browser: Browser, selector: str) -> dict[str, float]:
    return browser.run("return document.querySelector(arguments[0]).getBoundingClientRect().toJSON()", selector)


def ranges(browser: Browser) -> list[list[float]]:
    """Ranges of the charts over time and over height."""
    return [browser.run(f"return {LAYOUT.format(axis)}.xaxis.range") for axis in ("time", "height")]


def wait_for_range(browser: Browser, axis: str, low: float, high: float) -> None:
    shown = f"{LAYOUT.format(axis)}.xaxis.range"
    browser.wait(f"return Math.abs({shown}[0] - {low}) + Math.abs({shown}[1] - {high}) < 1e-6", 10)


def choose(browser: Browser, selector: str, value: str) -> None:
    """Chooses an option of a list by its value."""
    browser.run(
        "const list = document.querySelector(arguments[0]); list.value = arguments[1];"
        "list.dispatchEvent(new Event('change'));", selector, value,
    )


def click(browser: Browser, words: str) -> None:
    """Clicks the button with these words."""
    browser.run("[...document.querySelectorAll('button')].find(b => b.textContent === arguments[0]).click()", words)


def curves(browser: Browser, axis: str = "time") -> dict[str, list[float | None]]:
    """The values of the curves that are drawn, by name."""
    return dict(browser.run(f"return document.getElementById('chart-{axis}')._fullData.map(c => [c.name, [...c.y]])"))


# ---- the first screen


@pytest.mark.parametrize(
    ("name", "status", "sentence"),
    [
        # thicknesses and fractions: comments of the examples
        ("wells", "Complete", r"3 wells of 3\.46 nm In 0\.2[23]\d in 7\.01 nm GaN, on a 2\.00 µm GaN template\."),
        ("transistor", "Complete", r"20\.8 nm Al 0\.25\d on 69\.6 nm GaN on a 1\.60 µm GaN template, under 2\.32 nm GaN\."),
        ("defects", "Complete", r"1 well of 5\.91 nm In 0\.19\d in GaN, on a 2\.00 µm GaN template; relaxed by 10 % with "
         r"4\.8×10¹¹ V-defects per cm²\."),
        ("failed", "Failed", r"Before the run failed: 5\.90 nm In 0\.19\d on a 2\.00 µm GaN template; relaxed by .*"),
    ],
)
def test_the_first_screen_has_the_status_what_grew_and_the_chart(
    name: str, status: str, sentence: str, browser: Browser, pages: dict[str, Path]
) -> None:
    browser.open(pages[name], width=1440, height=900)
    assert text_of(browser, ".status") == status
    assert re.fullmatch(sentence, text_of(browser, ".grew"))
    for selector in (".status", ".grew", "#zoom"):
        assert box_of(browser, selector)["bottom"] < 900
    panel = box_of(browser, "#chart-time .nsewdrag")  # the uppermost one
    assert panel["bottom"] < 900
    # Hashes and file names are at the bottom.
    facts = box_of(browser, ".facts")
    assert all(box_of(browser, other)["bottom"] < facts["top"] for other in (".layers", ".stack", "#chart-height"))
    assert "SHA-256 of the result" in text_of(browser, ".facts")


def test_the_active_region_is_shown_first(browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]) -> None:
    browser.open(pages["transistor"])
    # From as far below the interface as the barrier is thick (more than 10 nm) to the top of the cap.
    layers = runs["transistor"].layers
    channel, barrier, cap = layers["thickness"].iloc[3:]
    expected = [channel - barrier, channel + barrier + cap]
    # At the lower end the range is 0.8 % shorter; the upper one is that of the run.
    time, height = ranges(browser)
    expected[0] += 0.008 * (expected[1] - expected[0])
    assert height == pytest.approx(expected, abs=1e-6)
    begin, end = layers["begin"].iloc[3], layers["end"].iloc[3]
    expected = [begin + (end - begin) * (1 - barrier / channel), layers["end"].iloc[5]]
    expected[0] += 0.008 * (expected[1] - expected[0])
    assert time == pytest.approx(expected, rel=5e-9)  # nine digits
    assert browser.run("return document.querySelector('button[aria-pressed=true]').textContent") == "Active region"


def test_of_a_failed_run_everything_is_shown_first(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]
) -> None:
    browser.open(pages["failed"])
    assert ranges(browser)[0] == pytest.approx([3600, runs["failed"].end["time"]])
    assert browser.run("return document.querySelector('button[aria-pressed=true]').textContent") == "Whole run"


def test_layers_that_were_not_reached_are_marked_and_not_drawn(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["failed"])
    rows = browser.run(
        "return [...document.querySelectorAll('.layers tbody tr')].map(r => [...r.children].map(c => c.textContent))"
    )
    assert [(row[1], row[11], row[14] == "\u2013") for row in rows] == [
        ("GaN template", "pre", False), ("InGaN", "active", False), ("GaN cap", "not reached", True),
        ("p-GaN", "not reached", True),
    ]
    assert "p-GaN" not in text_of(browser, ".stack")


# ---- zoom


def test_buttons_zoom_both_charts_to_the_run_the_active_region_and_stages(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]
) -> None:
    browser.open(pages["transistor"])
    active_region = ranges(browser)
    layers = runs["transistor"].layers.query("kind == 'active'")
    labels = browser.run("return [...document.querySelectorAll('#zoom button')].map(b => b.textContent)")
    assert labels == ["Whole run", "Active region", "4. GaN channel", "5. AlGaN barrier", "6. GaN cap"]
    click(browser, "Whole run")
    wait_for_range(browser, "time", layers["begin"].iloc[0], layers["end"].iloc[-1])
    assert ranges(browser)[1] == pytest.approx([0, layers["thickness"].sum()], abs=1e-6)
    click(browser, "5. AlGaN barrier")
    low, high = 3780, 3820  # the stage is 40 s long, and 8 % on both sides are shown
    wait_for_range(browser, "time", low - 3.2, high + 3.2)
    bottom, thickness = layers["thickness"].iloc[0], layers["thickness"].iloc[1]
    assert ranges(browser)[1] == pytest.approx([bottom - 0.08 * thickness, bottom + 1.08 * thickness], abs=1e-6)
    assert browser.run("return [...document.querySelectorAll('button[aria-pressed=true]')].map(b => b.textContent)") == [
        "5. AlGaN barrier"
    ]
    click(browser, "Active region")
    wait_for_range(browser, "time", *active_region[0])
    assert ranges(browser) == active_region


def test_many_stages_are_in_a_list(browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]) -> None:
    browser.open(pages["wells"])
    options = browser.run("return [...document.getElementById('stage-choice').options].map(o => o.textContent)")
    assert len(options) == 1 + 13 and options[3] == "4. InGaN well"
    choose(browser, "#stage-choice", "2")
    wait_for_range(browser, "time", 3170 - 5.6, 3240 + 5.6)  # the well is grown from 3170 to 3240 s
    assert browser.run("return document.querySelectorAll('button[aria-pressed=true]').length") == 0
    click(browser, "Whole run")
    wait_for_range(browser, "time", 3000, 3930)
    assert browser.run("return document.getElementById('stage-choice').value") == ""


def axis_range(browser: Browser, curve: str, axis: str = "time") -> list[float]:
    """Range of the vertical axis on which a curve is drawn."""
    return browser.run(
        "const layout = document.getElementById('chart-' + arguments[0]);"
        "const curve = layout._fullData.find(c => c.name === arguments[1]);"
        "return layout._fullLayout[curve.yaxis.replace('y', 'yaxis')].range", axis, curve,
    )


def test_vertical_axes_fit_what_is_visible_alike_in_both_charts(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    click(browser, "Whole run")
    wait_for_range(browser, "time", 3000, 3930)
    low, high = axis_range(browser, "temperature")  # ramps between 1010 and 1080 K
    assert low == pytest.approx(1010 - 0.06 * 70, abs=0.5) and high == pytest.approx(1080 + 0.06 * 70, abs=0.5)
    choose(browser, "#stage-choice", "2")  # the first well, at 1010 K, and 5.6 s = 19.6 K of the ramps beside it
    wait_for_range(browser, "time", 3170 - 5.6, 3240 + 5.6)
    low, high = axis_range(browser, "temperature")
    assert 1005 < low < 1010 and 1029 < high < 1035
    choose(browser, "#unit-temperature", "1")
    browser.wait("return document.getElementById('chart-time')._fullData.find(c => c.name === 'temperature').y[0] < 1000")
    assert axis_range(browser, "temperature") == pytest.approx([low - 273.15, high - 273.15])
    click(browser, "Whole run")
    wait_for_range(browser, "time", 3000, 3930)
    assert axis_range(browser, "temperature")[1] == pytest.approx(1080 - 273.15 + 0.06 * 70, abs=0.5)
    for name in ("indium", "growth rate", "TEGa", "N₂", "strain (t)"):
        assert axis_range(browser, name) == axis_range(browser, name, "height")
    assert axis_range(browser, "TEGa")[0] == 0 and axis_range(browser, "TEGa")[1] == pytest.approx(1.06 * 0.5)


def test_a_constant_temperature_has_an_axis_of_20_k(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["transistor"])  # all at 1350 K
    low, high = axis_range(browser, "temperature")
    assert (low, high) == pytest.approx((1350 - 11.2, 1350 + 11.2))


# ---- panels and units


def test_flows_pressure_and_ratio_are_drawn(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    shown = curves(browser)
    # the recipe: TEGa 0.5 throughout, TMIn 0.2 in the wells, N2 and NH3 8000 sccm, 40 kPa
    assert set(shown["TMIn"]) == {0, 0.2} and set(shown["TEGa"]) == {0.5}
    assert set(shown["N₂"]) == set(shown["NH₃"]) == {8000} and set(shown["pressure"]) == {40}
    assert {round(value) for value in shown["V/III"]} == {round(8000 / 0.5), round(8000 / 0.7)}
    assert "TMGa" not in shown and "H₂" not in shown
    assert {round(value) for value in shown["temperature"]} >= {1010, 1080}
    axes = dict(browser.run("return document.getElementById('chart-time')._fullData.map(c => [c.name, c.yaxis])"))
    assert axes["TMIn"] == axes["TEGa"] != axes["N₂"] == axes["NH₃"]


def test_indium_has_an_axis_that_fits_it_and_gallium_is_drawn_on_request(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    shown = curves(browser)
    low, high = browser.run(f"return {LAYOUT.format('time')}.yaxis.range")
    assert low <= 0 and max(shown["indium"]) <= high < 1.3 * max(shown["indium"])
    assert "gallium" not in shown
    height = box_of(browser, "#chart-time")["height"]
    browser.run("document.getElementById('show-gallium').click()")
    browser.wait("return document.getElementById('chart-time')._fullData.some(c => c.name === 'gallium')")
    both = curves(browser)
    assert [a + b for a, b in zip(both["indium"], both["gallium"])] == pytest.approx([1] * len(both["indium"]), abs=1e-5)
    assert box_of(browser, "#chart-time")["height"] > height + 50
    browser.run("document.getElementById('show-gallium').click()")
    browser.wait("return !document.getElementById('chart-height')._fullData.some(c => c.name === 'gallium')")


def test_panels_are_apart_and_fill_the_chart(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    boxes = browser.run(
        "return [...document.querySelectorAll('#chart-time .nsewdrag')].map(e => e.getBoundingClientRect().toJSON())"
    )
    boxes.sort(key=lambda box: box["top"])
    assert len(boxes) == 9
    for above, below in itertools.pairwise(boxes):
        assert 20 < below["top"] - above["bottom"] < 50  # room for the names of the curves
    assert all(box["height"] == pytest.approx(boxes[0]["height"], abs=1.5) and box["height"] > 90 for box in boxes)


def test_units_of_rate_and_temperature_can_be_switched(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]
) -> None:
    browser.open(pages["wells"])
    before = curves(browser)
    choose(browser, "#unit-rate", "1")
    choose(browser, "#unit-temperature", "1")
    browser.wait("return document.getElementById('chart-height').textContent.includes('°C')")
    for axis in ("time", "height"):
        after = curves(browser, axis)
        assert after["growth rate"] == pytest.approx([3.6 * value for value in before["growth rate"]])
        assert after["temperature"] == pytest.approx([value - 273.15 for value in before["temperature"]])
    assert "growth rate (µm/h)" in text_of(browser, "#chart-time") and "temperature (°C)" in text_of(browser, "#chart-time")
    well = runs["wells"].layers.loc[4]
    cell = browser.run("return document.querySelectorAll('.layers tbody tr:not(.group)')[3].querySelector('td[data-rate]').textContent")
    assert float(cell) == pytest.approx(3.6 * well["mean_rate"], rel=1e-3)
    assert text_of(browser, ".rate-unit") == "µm/h"
    choose(browser, "#unit-rate", "0")
    browser.wait("return document.getElementById('chart-height').textContent.includes('nm/s')")
    assert curves(browser)["growth rate"] == before["growth rate"]
    cell = browser.run("return document.querySelectorAll('.layers tbody tr:not(.group)')[3].querySelector('td[data-rate]').textContent")
    assert float(cell) == pytest.approx(well["mean_rate"], rel=1e-3)


def test_without_a_recipe_one_note_says_what_is_missing(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["unknown"])
    assert set(curves(browser)) == {
        "indium", "growth rate", "strain (t)", "strain (z)", "dislocations (t)", "dislocations (z)"
    }
    page = text_of(browser, "main")
    assert page.count("The recipe is unknown") == 1
    note = text_of(browser, ".recipe-note")
    assert all(word in note for word in ("flows", "pressure", "V/III", "temperature", "--recipe"))
    assert browser.run("return document.getElementById('unit-temperature')") is None
    assert browser.run("return document.querySelectorAll('.warnings').length") == 0
    browser.open(pages["wells"])
    assert browser.run("return document.querySelectorAll('.recipe-note').length") == 0


@pytest.mark.parametrize("name", ["wells", "transistor", "defects", "failed"])
def test_the_chart_library_knows_every_property(name: str, browser: Browser, pages: dict[str, Path]) -> None:
    """It ignores a property that it doesn't know, so a misspelt one would show in no message."""
    browser.open(pages[name])
    for chart in ("time", "height", "interface"):
        if browser.run("return document.getElementById(arguments[0]) === null", f"chart-{chart}"):
            continue
        node = f"document.getElementById('chart-{chart}')"
        problems = browser.run(f"return (Plotly.validate({node}.data, {node}.layout) || []).map(p => p.msg)")
        assert problems == []


# ---- labels


def stage_names(browser: Browser, axis: str) -> list[dict[str, Any]]:
    """Names of stages above a chart, with their boxes and the place of their left end."""
    return browser.run(
        f"""const chart = document.getElementById('chart-{axis}'), layout = chart._fullLayout;
        const shown = layout.annotations.map((a, i) => [a, i]).filter(([a]) => a.name === 'stage');
        return shown.map(([a, i]) => {{
          const box = chart.querySelector(`.annotation[data-index="${{i}}"] text`).getBoundingClientRect();
          return {{ text: a.text, x: layout.xaxis.l2p(a.x), box: box.toJSON() }};
        }});"""
    )


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize(("page", "wells"), [("wells", 3), ("many", 5)])  # of many at least
def test_names_of_stages_are_whole_apart_and_begin_with_the_wells(
    page: str, wells: int, size: tuple[int, int, bool], browser: Browser, pages: dict[str, Path]
) -> None:
    browser.open(pages[page], *size)
    for axis in ("time", "height"):
        names = stage_names(browser, axis)
        chart = box_of(browser, f"#chart-{axis} .main-svg")
        named = sum(each["text"].startswith("InGaN") for each in names)
        assert named == wells if page == "wells" else named >= wells
        for each in names:
            assert chart["left"] <= each["box"]["left"] and each["box"]["right"] <= chart["right"]
            assert chart["top"] <= each["box"]["top"] and each["box"]["bottom"] <= chart["bottom"]
        # Slanted by 28 degrees: names are 12 pixels high, so their starts are more than 12 / sin 28 = 25 pixels apart.
        places = sorted(each["x"] for each in names)
        assert all(right - left > 12 / math.sin(math.radians(28)) for left, right in itertools.pairwise(places))


def test_names_follow_the_zoom(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["many"])
    # 60 wells in about 500 pixels: not all are named, and no ramp is.
    assert {each["text"].split()[0] for each in stage_names(browser, "time")} == {"InGaN"}
    choose(browser, "#stage-choice", "2")  # a well, and a part of the ramps before and after it
    browser.wait(f"return {LAYOUT.format('time')}.xaxis.range[1] < 3300")
    assert [each["text"] for each in stage_names(browser, "time")][0] == "InGaN well"


def test_the_first_interface_that_is_shown_is_in_the_active_region(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["transistor"], *SIZES[2])
    assert text_of(browser, "#interface-caption").startswith("3. GaN channel / AlGaN barrier: 10–90 % width")
    # The numbers below the chart are horizontal and apart, also of large heights.
    choose(browser, "#interface-choice", "0")
    browser.wait(f"return {LAYOUT.format('interface')}.xaxis.range[0] < -1800")
    ticks = browser.run(
        "return [...document.querySelectorAll('#chart-interface .xtick text')].map(e => e.getBoundingClientRect().toJSON())"
    )
    ticks.sort(key=lambda box: box["left"])
    assert len(ticks) >= 2 and all(left["right"] < right["left"] for left, right in itertools.pairwise(ticks))
    assert all(box["height"] < 20 for box in ticks)


def ticks(browser: Browser, axis: str) -> list[dict[str, float]]:
    """Boxes of the numbers below a chart from left to right."""
    boxes = browser.run(
        f"return [...document.querySelectorAll('#chart-{axis} .xtick text')].map(e => e.getBoundingClientRect().toJSON())"
    )
    return sorted(boxes, key=lambda box: box["left"])


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("page", ["wells", "transistor"])
def test_an_axis_has_three_numbers_at_least_that_are_apart(
    page: str, size: tuple[int, int, bool], browser: Browser, pages: dict[str, Path]
) -> None:
    browser.open(pages[page], *size)
    for region in ("Active region", "Whole run"):
        click(browser, region)
        browser.wait(f"return [...document.querySelectorAll('[aria-pressed=true]')].some(b => b.textContent === '{region}')")
        for axis in ("time", "height"):
            boxes = ticks(browser, axis)
            assert len(boxes) >= 3, (region, axis)
            assert all(left["right"] < right["left"] for left, right in itertools.pairwise(boxes))


@pytest.mark.parametrize("axis", ["time", "height"])
def test_every_second_layer_is_shaded(axis: str, browser: Browser, pages: dict[str, Path]) -> None:
    """Stages that can't be seen, such as the ramps over height, are neither shaded nor counted."""
    browser.open(pages["wells"])
    click(browser, "Whole run")
    low, high = browser.run(f"return {LAYOUT.format(axis)}.xaxis.range")
    bands = browser.run(f"return {LAYOUT.format(axis)}.shapes.map(s => [s.x0, s.x1])")
    stages = browser.run(f"return JSON.parse(document.getElementById('data').textContent).charts.stages.map(s => s['{axis}'])")
    seen = [stage for stage in stages if stage[1] - stage[0] > 0.003 * (high - low)]
    assert bands == seen[1::2] and len(bands) >= 4


# ---- heights


def test_a_height_is_above_the_pre_stages_everywhere(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run]
) -> None:
    browser.open(pages["defects"])
    run = runs["defects"]
    assert text_of(browser, ".height-note") == (
        "Heights on this page are above the pre-stages: 0 is z = 2000 nm in the result file."
    )
    first = browser.run("return document.querySelector('section[aria-labelledby=interfaces-head] tbody td:last-child').textContent")
    assert float(first) == pytest.approx(run.interfaces["z"].iloc[0] - 2000, abs=1e-3) == 0
    tops = browser.run("return [...document.querySelectorAll('.layers tbody td:last-child')].map(e => e.textContent)")
    thickness = run.layers["thickness"]
    assert [float(top) for top in tops] == pytest.approx(
        [0, thickness[2], thickness[2] + thickness[3], thickness[2] + thickness[3] + 100], rel=1e-5
    )
    assert re.search(r"opened at [\d.]+ s, 5\.\d+ nm above the pre-stages", text_of(browser, ".warnings"))
    assert f"{run.end['z'] - 2000 - 100:.5g}"[:4] in text_of(browser, ".facts")
    browser.open(pages["failed"])
    height = runs["failed"].end["z"] - 2000
    assert f"{height:.7g} nm above the pre-stages" in text_of(browser, ".failure")
    assert "2005.9" not in text_of(browser, "main")


# ---- files


def test_tables_are_saved_as_csv_with_units_and_all_digits(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run], tmp_path: Path
) -> None:
    browser.open(pages["wells"])
    run = runs["wells"]
    saved = browser.downloaded(folder_in(tmp_path, "layers"), "a[data-csv=layers]")
    assert saved.name == "ingan_gan_mqw-layers.csv"
    table = pd.read_csv(io.StringIO(saved.read_text("utf-8")), float_precision="round_trip")
    assert table["thickness [nm]"].to_list() == run.layers["thickness"].to_list()
    assert table["duration [s]"].to_list() == run.layers["duration"].to_list()
    assert table["name"].to_list() == run.layers["name"].to_list()
    assert np.array_equal(table["x_in_mid [1]"], run.layers["x_in_mid"], equal_nan=True)
    assert table["rho_td_z [cm^-2]"].to_list() == run.layers["rho_td_z"].to_list()
    assert table["height_top [nm]"].iloc[1] == run.layers["thickness"].iloc[1]
    saved = browser.downloaded(folder_in(tmp_path, "interfaces"), "a[data-csv=interfaces]")
    table = pd.read_csv(io.StringIO(saved.read_text("utf-8")), float_precision="round_trip")
    assert table["width [nm]"].to_list() == run.interfaces["width"].to_list()
    start = run.profile.query("active")["z"].iloc[0]
    assert table["height [nm]"].to_list() == [z - start for z in run.interfaces["z"]] and round(start, 9) == 2000


def folder_in(folder: Path, name: str) -> Path:
    made = folder / name
    made.mkdir()
    return made


@pytest.mark.parametrize("chart", ["time", "height", "interface"])
def test_charts_are_saved_as_svg_in_light_colours(chart: str, browser: Browser, pages: dict[str, Path], tmp_path: Path) -> None:
    browser.open(pages["wells"], dark=True)
    saved = browser.downloaded(tmp_path, f"a[data-svg={chart}]")
    assert saved.name == f"ingan_gan_mqw-{chart}.svg"
    text = saved.read_text("utf-8")
    root = ElementTree.fromstring(text)
    assert root.tag == "{http://www.w3.org/2000/svg}svg"
    words = "".join(root.itertext())
    assert "indium" in words and {"time": "time (s)"}.get(chart, "height above the pre-stages (nm)") in words
    # All text is dark on a white ground.
    assert re.search(r"rgb\(255, 255, 255\)", text)
    fills = set(re.findall(r"<text[^>]*fill: (rgb\([^)]*\))", text))
    assert fills and all(luminance(fill) < 0.05 for fill in fills)
    assert "dark" not in browser.run("return document.documentElement.className")
    assert "paper" not in browser.run("return document.documentElement.className")


def test_pictures_of_the_layers_are_saved_as_svg(browser: Browser, pages: dict[str, Path], tmp_path: Path) -> None:
    browser.open(pages["wells"], dark=True)
    for key in ("active", "whole"):
        saved = browser.downloaded(folder_in(tmp_path, key), f"a[data-svg=layers-{key}]")
        assert saved.name == f"ingan_gan_mqw-layers-{key}.svg"
        root = ElementTree.fromstring(saved.read_text("utf-8"))
        space = "{http://www.w3.org/2000/svg}"
        assert root[0].tag == f"{space}rect" and root[0].get("fill") == "#ffffff"
        texts = root.findall(f".//{space}text")
        assert any("InGaN well" in "".join(text.itertext()) for text in texts)
        assert all(luminance(text.get("fill", "")) < 0.15 for text in texts)
        assert root.findall(".//*[@class]") == []


# ---- dark mode and paper


def colour_of(browser: Browser, script: str) -> float:
    """Luminance of a colour that a script returns."""
    text = browser.run(f"return {script}")
    if text.startswith("#"):
        text = "rgb({}, {}, {})".format(*(int(text[place : place + 2], 16) for place in (1, 3, 5)))
    return luminance(text)


@pytest.mark.parametrize("name", ["wells", "failed"])
@pytest.mark.parametrize("dark", [False, True])
def test_all_colours_can_be_read_in_both_modes(dark: bool, name: str, browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages[name], dark=dark)
    ground = colour_of(browser, "getComputedStyle(document.querySelector('section')).backgroundColor")
    assert ground < 0.05 if dark else ground > 0.9
    # WCAG 2.1: 4.5 for text, 3 for lines
    texts = browser.run(
        """const found = [];
        for (const e of document.querySelectorAll('body *:not(script):not(style):not(title):not(desc):not(option)')) {
          if (![...e.childNodes].some(n => n.nodeType === 3 && n.data.trim()) || !e.getClientRects().length) continue;
          if (/^[—╌┈]$/.test(e.textContent.trim())) continue;  // samples of lines
          let ground = e, colour = 'rgba(0, 0, 0, 0)';
          while (ground && colour === 'rgba(0, 0, 0, 0)') {
            colour = getComputedStyle(ground).backgroundColor; ground = ground.parentElement;
          }
          const style = getComputedStyle(e);
          found.push([e.ownerSVGElement ? style.fill : style.color, colour, e.textContent.slice(0, 40)]);
        }
        return found;"""
    )
    assert len(texts) > 150
    for text, background, words in texts:
        bright, dim = sorted((luminance(text), luminance(background)), reverse=True)
        assert (bright + 0.05) / (dim + 0.05) >= 4.5, (words, text, background)
    lines = browser.run("return [...document.querySelectorAll('.chart .js-line')].map(e => getComputedStyle(e).stroke)")
    shade = colour_of(browser, "Charts.colours()('shade')")
    assert len(lines) > 15
    for line, background in itertools.product(set(lines), (ground, shade)):
        bright, dim = sorted((luminance(line), background), reverse=True)
        assert (bright + 0.05) / (dim + 0.05) >= 3, line
    assert browser.console() == []


def test_charts_follow_a_change_of_the_mode_and_paper_is_light(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    font = f"{LAYOUT.format('time')}.font.color"
    assert colour_of(browser, font) < 0.05
    browser.dark_mode(True)
    browser.wait(f"return {font} === '#e6ebf0'")  # the ink of dark mode in page.css
    browser.wait("return document.getElementById('chart-interface')._fullLayout.font.color === '#e6ebf0'")
    browser.run("window.dispatchEvent(new Event('beforeprint'))")
    browser.wait(f"return {font} === '#1c2733'")
    assert colour_of(browser, "getComputedStyle(document.querySelector('section')).backgroundColor") > 0.9
    browser.run("window.dispatchEvent(new Event('afterprint'))")
    browser.wait(f"return {font} === '#e6ebf0'")
    browser.dark_mode(False)
    browser.wait(f"return {font} === '#1c2733'")
    assert browser.console() == []


# ---- sizes


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("name", ["wells", "transistor", "defects", "failed", "many"])
def test_a_page_fits_the_width_of_the_window(
    name: str, size: tuple[int, int, bool], browser: Browser, pages: dict[str, Path]
) -> None:
    browser.open(pages[name], *size)
    assert browser.run("return document.documentElement.scrollWidth") <= size[0]
    # Names of curves are not cut off either.
    for axis in ("time", "height"):
        chart = box_of(browser, f"#chart-{axis} .main-svg")
        right = browser.run(
            f"return Math.max(...[...document.querySelectorAll('#chart-{axis} .annotation text')].map(e => "
            "e.getBoundingClientRect().right))"
        )
        assert right <= chart["right"] + 1
    assert browser.console() == []


def test_on_a_phone_thickness_and_composition_are_seen_first(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"], *SIZES[2])
    heads = browser.run(
        "return [...document.querySelectorAll('.layers thead th')].filter(e => e.getClientRects().length)"
        ".map(e => [e.textContent, e.getBoundingClientRect().right])"
    )
    seen = [text for text, right in heads if right <= 390]
    assert seen[:4] == ["Layer", "Thicknessnm", "In", "Al"]


def test_a_phone_is_operated_by_touch(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["transistor"], *SIZES[2])
    box = browser.run(
        "const b = [...document.querySelectorAll('button')].find(b => b.textContent === 'Whole run');"
        "b.scrollIntoView({block: 'center'}); return b.getBoundingClientRect().toJSON()"
    )
    assert box["height"] >= 40  # pixels, for a finger
    browser.tap(box["x"] + box["width"] / 2, box["y"] + box["height"] / 2)
    browser.wait(f"return {LAYOUT.format('height')}.xaxis.range[0] === 0")
    box = browser.run(
        "const e = document.querySelector('#chart-time .nsewdrag'); e.scrollIntoView({block: 'center'});"
        "return e.getBoundingClientRect().toJSON()"
    )
    browser.tap(box["x"] + box["width"] / 2, box["y"] + box["height"] / 2)
    browser.wait("return document.querySelector('.readout:not([hidden])')?.textContent.includes('aluminium') === true")
    readout = box_of(browser, ".readout")
    assert readout["left"] >= 0 and readout["right"] <= 390 and readout["top"] >= 0 and readout["bottom"] <= 844
    browser.wait("return document.querySelector('.readout-place:not([hidden])') !== null")
    shown = ranges(browser)
    assert browser.run("return document.querySelector('.readout').hidden") is False
    # A tap does not zoom. One elsewhere hides the values.
    stage = browser.run("const b = [...document.querySelectorAll('button')].find(b => b.textContent === '5. AlGaN barrier'); b.click()")
    assert stage is None
    browser.wait(f"return {LAYOUT.format('height')}.xaxis.range[0] > 1")
    zoomed = ranges(browser)
    assert zoomed != shown
    browser.tap(box["x"] + box["width"] / 2, box["y"] + box["height"] / 2)
    browser.wait("return document.querySelector('.readout:not([hidden])') !== null")
    assert ranges(browser) == zoomed
    browser.tap(5, 422)
    browser.wait("return document.querySelector('.readout').hidden")
    assert browser.console() == []


# ---- many layers


def test_of_many_layers_repeated_ones_are_listed_once(
    browser: Browser, pages: dict[str, Path], runs: dict[str, vorlen.Run], tmp_path: Path
) -> None:
    browser.open(pages["many"])
    assert len(runs["many"].layers) == 243
    rows = browser.run("return [...document.querySelectorAll('.layers tbody tr')].map(r => r.textContent.replace(/\\s+/g, ' ').trim())")
    assert rows[1].startswith("Layers 2 to 241: 60 periods of 4, of which the first is shown")
    assert len(rows) == 1 + 1 + 4 + 2  # template; note; one period; last barrier and p-GaN
    assert "×\u00a060" in browser.run("return document.querySelector('.stack-active').textContent")
    saved = browser.downloaded(tmp_path, "a[data-csv=layers]")
    assert len(saved.read_text("utf-8").splitlines()) == 1 + 243
    assert re.match(r"60 wells of 3\.46 nm In 0\.2", text_of(browser, ".grew"))


def test_later_periods_are_shown_on_request(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])  # a template, three periods of four layers, the last barrier, p-GaN
    visible = (
        "return [...document.querySelectorAll('.layers tbody tr')].filter(r => r.getClientRects().length)"
        ".map(r => r.cells[0].textContent)"
    )
    assert browser.run(visible) == [
        "1", "Layers 2 to 13: 3 periods of 4, of which the first is shown", "2", "3", "4", "5", "14", "15"
    ]
    assert text_of(browser, "label:has(#all-layers)") == "Show all periods"
    browser.run("document.getElementById('all-layers').click()")
    assert browser.run(visible) == [str(number) for number in range(1, 16)]


def test_a_wide_table_has_a_shadow_where_it_continues(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"], *SIZES[2])
    box = "document.querySelector('.scroll:has(.layers)')"
    assert browser.run(f"return {box}.scrollWidth > {box}.clientWidth")
    attachment = browser.run(f"return getComputedStyle({box}).backgroundAttachment")
    assert attachment == "local, local, scroll, scroll"


def test_controls_have_names_for_screen_readers(browser: Browser, pages: dict[str, Path]) -> None:
    for name in ("wells", "transistor"):
        browser.open(pages[name])
        tree = browser.command("Accessibility.getFullAXTree")["nodes"]
        nodes = [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in tree if not node["ignored"]]
        controls = [text for role, text in nodes if role in ("button", "combobox", "checkbox", "link")]
        assert all(text.strip() for text in controls)
        assert {"Whole run", "Active region", "Growth rate", "Temperature", "Gallium"} <= set(controls)
        pictures = [text for role, text in nodes if role in ("image", "img")]
        assert any(text.startswith("Indium, growth rate" if name == "wells" else "Aluminium, growth rate") for text in pictures)
        assert any("metal flows" in text and "V/III" in text for text in pictures)
