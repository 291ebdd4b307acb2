"""vorlen.report in a real browser: charts, hover, zoom, paper, phone, screen reader; and the reports of failed runs.

With VORLEN_SCREENSHOTS set to a folder the pages are also left there as pictures.
"""

from __future__ import annotations

import html.parser
import os
import re
import subprocess
import sys
import zlib
from pathlib import Path

import numpy as np
import pytest

import vorlen
from browser import Browser
from support import (
    MQW,
    ROOT,
    V_DEFECTS,
    failed_run,
    failing_recipe,
    recipe_with_a_pause,
    recipe_with_nan,
)
from vorlen.__main__ import main
from vorlen._pages.report import render
from vorlen._base.tool import find_tool, findings

# growth rate, temperature, metal flows, gas flows, V/III, pressure, strain, densities; and one for each of In and Al
PANELS = {"v_defects": 9, "wells": 9, "failed": 9, "nan": 8, "unphysical": 9}


@pytest.fixture(scope="module")
def pages(tmp_path_factory: pytest.TempPathFactory) -> dict[str, Path]:
    """Reports of a run with V-defects, of wells, of a failed run, of a rejected recipe, of NaN, of wild fractions."""
    folder = tmp_path_factory.mktemp("reports")
    runs: dict[str, vorlen.Run | vorlen.SimulationError] = {
        "v_defects": vorlen.run(V_DEFECTS, folder / "v_defects.result.txt"),
        "wells": vorlen.run(MQW),
    }
    rejected = vorlen.Recipe.load(V_DEFECTS)
    rejected["process_stages/stage_1/T"] = 0
    for name, recipe in (
        ("failed", failing_recipe()), ("rejected", rejected), ("nan", recipe_with_nan()),
        ("unphysical", recipe_with_a_pause()),
    ):
        with pytest.raises(vorlen.SimulationError) as caught:
            vorlen.run(recipe)
        runs[name] = caught.value
    return {name: vorlen.report(run, folder / f"{name}.html") for name, run in runs.items()}


def keep_picture(browser: Browser, name: str) -> None:
    if os.environ.get("VORLEN_SCREENSHOTS"):
        browser.screenshot(Path(os.environ["VORLEN_SCREENSHOTS"], f"{name}.png"))


@pytest.fixture(scope="module", params=("v_defects", "wells", "failed", "rejected", "nan", "unphysical"))
def name(request: pytest.FixtureRequest, browser: Browser, pages: dict[str, Path]) -> str:
    """Name of a page that is open in a wide window."""
    browser.console()
    browser.open(pages[request.param])
    return request.param


def test_a_page_draws_its_charts_without_a_network_and_without_console_messages(name: str, browser: Browser) -> None:
    assert browser.console() == []
    has_charts = name != "rejected"
    assert browser.run("return document.querySelectorAll('.chart').length > 0") is has_charts
    for chart in ("time", "height") if has_charts else ():
        panels = browser.run(f"return document.querySelectorAll('#chart-{chart} .ylines-above').length")
        assert panels == PANELS[name]
        lines = f"[...document.querySelectorAll('#chart-{chart} .js-line')]"
        drawn = f"return {lines}.filter(e => e.getBBox().width > 50).length"
        # The NaN run has no heights, and over time only what the recipe states.
        assert browser.run(drawn) >= ({"time": 5, "height": 0}[chart] if name == "nan" else 7)
    keep_picture(browser, name)


def test_a_page_contains_everything_it_needs(pages: dict[str, Path]) -> None:
    for path in pages.values():
        text = path.read_text()
        markup = re.sub(r"<script.*?</script>", "", text, flags=re.DOTALL)
        assert re.findall(r'(?:src|href)="(?!#|data:)[^"]*"', markup) == []
        assert "url(" not in markup and "@import" not in markup


def value_at(browser: Browser, chart: str, share: float) -> tuple[float, float, float]:
    """Place of the window in the first panel of a chart, at a share of its width, and the x value there."""
    browser.run(f"document.getElementById('chart-{chart}').scrollIntoView({{block: 'start'}})")
    return browser.run(
        f"""const chart = document.getElementById('chart-{chart}'), axis = chart._fullLayout.xaxis;
        const box = chart.querySelector('.nsewdrag[data-subplot="xy"]').getBoundingClientRect();
        const x = box.left + {share} * box.width;
        return [x, box.top + box.height / 2, axis.p2d({share} * box.width)];"""
    )


def readout(browser: Browser) -> tuple[list[str], dict[str, str]]:
    """The heading of the box beside the mouse, and its values by name."""
    browser.wait("return document.querySelector('.readout:not([hidden])') !== null")
    head = browser.run("return [...document.querySelectorAll('.readout-head')].map(e => e.textContent)")
    rows = browser.run("return [...document.querySelectorAll('.readout tr')].map(r => [...r.cells].slice(1).map(c => c.textContent))")
    return head, {name: value.replace("\u00a0", " ") for name, value in rows}


def assert_inside(browser: Browser, width: float, height: float) -> None:
    box = browser.run("return document.querySelector('.readout').getBoundingClientRect().toJSON()")
    assert box["left"] >= 0 and box["top"] >= 0 and box["right"] <= width and box["bottom"] <= height


def test_hovering_shows_the_values_there_in_both_charts(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["v_defects"])
    x, y, time = value_at(browser, "time", 0.5)
    browser.hover(x, y)
    head, shown = readout(browser)
    profile = vorlen.run(V_DEFECTS).profile
    at = {name: np.interp(time, profile["time"], profile[name]) for name in ("z", "x_in", "rate", "eps_xx_t")}
    assert float(re.fullmatch(r"time ([\d.]+) s, height [\d.]+ nm", head[0])[1]) == pytest.approx(time, rel=1e-3)
    assert head[1] == "InGaN"
    assert shown["temperature"] == "1030 K"
    assert float(shown["indium"]) == pytest.approx(at["x_in"], rel=1e-3)
    number, unit = shown["growth rate"].split()
    assert unit == "nm/s" and float(number) == pytest.approx(at["rate"], rel=1e-3)
    number, unit = shown["strain (t)"].split()
    assert unit == "%" and float(number.replace("\u2212", "-")) == pytest.approx(100 * at["eps_xx_t"], rel=1e-3)
    # The same place is marked in both charts.
    places = browser.run("return [...document.querySelectorAll('.readout-place:not([hidden])')].map(e => e.parentNode.id)")
    assert places == ["chart-time", "chart-height"]
    line = browser.run("return document.querySelector('#chart-time .readout-place').getBoundingClientRect().left")
    assert line == pytest.approx(x, abs=1.5)
    height = float(re.search(r"height ([\d.]+) nm", head[0])[1])
    assert height == pytest.approx(at["z"] - 2000, abs=0.05)
    # Over height, on another panel, it has the values of that chart's place.
    x, y, depth = value_at(browser, "height", 0.4)
    browser.hover(x, y)
    head, shown = readout(browser)
    assert float(re.search(r"height ([\d.]+) nm", head[0])[1]) == pytest.approx(depth, abs=0.02)
    browser.hover(5, 5)
    browser.wait("return document.querySelector('.readout:not([hidden]), .readout-place:not([hidden])') === null")


@pytest.mark.parametrize("share", [0.02, 0.5, 0.98])
@pytest.mark.parametrize("chart", ["time", "height"])
def test_the_values_are_inside_of_the_window(
    chart: str, share: float, browser: Browser, pages: dict[str, Path]
) -> None:
    """Also at the uppermost panel of a chart that is higher than the window."""
    browser.open(pages["wells"], width=1440, height=900)
    assert browser.run("return document.getElementById('chart-time').clientHeight") > 900
    x, y, _ = value_at(browser, chart, share)
    browser.hover(x, y)
    _, shown = readout(browser)
    assert shown["N\u2082"] == "8000 sccm"  # not 8e+3
    assert_inside(browser, 1440, 900)


def test_values_that_are_unknown_or_zero_are_shown_as_such(browser: Browser, tmp_path: Path) -> None:
    """V/III is shown only where metals flow, and a rest of a fraction beyond all digits is 0."""
    recipe = vorlen.Recipe.load(MQW)
    for stage in (2, 4):  # the ramps
        recipe[f"process_stages/stage_1/stage_1_{stage}/gas_species/Q/TEGa"] = 0
    browser.open(vorlen.report(vorlen.run(recipe), tmp_path / "pauses.html"))
    row = "document.getElementById('chart-time')._fullLayout.xaxis"
    for time, flows in ((3160, False), (3200, True)):  # in the first ramp; in the first well
        x, y, _ = value_at(browser, "time", 0.5)
        left = browser.run(f"return {row}._offset + {row}.l2p({time}) + document.getElementById('chart-time').getBoundingClientRect().left")
        browser.hover(left, y)
        head, shown = readout(browser)
        assert head[0].startswith(f"time {time}")
        assert ("V/III" in shown) is flows
        assert all(re.fullmatch(r"\u2212?[\d.]+(\u00d710[\u207b\u2070-\u2079\u00b2\u00b3\u00b9]+)?( .+)?", text) for text in shown.values()), shown
    assert browser.run("return [Readout.text(2.053e-15, 1e-6), Readout.text(1e4), Readout.text(1028.15), Readout.text(-0.25), Readout.text(4.8e11)]") == [
        "0", "10000", "1028.15", "\u22120.25", "4.8×10¹¹"
    ]


def test_zooming_in_one_chart_zooms_the_other(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    left, right = value_at(browser, "time", 0.25), value_at(browser, "time", 0.75)
    browser.drag((left[0], left[1]), (right[0], right[1]))
    full = "document.getElementById('chart-{}')._fullLayout.xaxis.range"
    pixel = (right[2] - left[2]) / (right[0] - left[0])  # s
    browser.wait(f"return {full.format('time')}[0] > {left[2] - pixel}")
    browser.wait(f"return {full.format('height')}[0] > 1")
    times, depths = (browser.run(f"return {full.format(chart)}") for chart in ("time", "height"))
    active = vorlen.run(MQW).profile.query("active")
    for time, depth in zip(times, depths):
        nearest = active.iloc[(active["time"] - time).abs().argsort()[:2]]["z"] - active["z"].iloc[0]
        assert nearest.min() - 0.5 < depth < nearest.max() + 0.5


def test_each_interface_can_be_selected_and_shows_its_width(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["wells"])
    table = vorlen.run(MQW).interfaces
    assert browser.run("return document.getElementById('interface-choice').options.length") == len(table) == 6
    for number in (1, 6):
        browser.run(
            f"""const choice = document.getElementById('interface-choice'); choice.value = '{number - 1}';
            choice.dispatchEvent(new Event('change'));"""
        )
        width = table.loc[number, "width"]
        caption = browser.run("return document.getElementById('interface-caption').textContent")
        names = f"{number}. {table.loc[number, 'below']} / {table.loc[number, 'above']}"
        assert caption.startswith(f"{names}, period {(number + 1) // 2}: ")  # three wells with two interfaces each
        assert f"10–90 % width {width:.3g} nm" in caption
        low, high = browser.run("return document.getElementById('chart-interface')._fullLayout.xaxis.range")
        height = table.loc[number, "z"] - 2000.0
        assert low < height < high and high - low < 20 * width


def test_a_page_prints_on_paper(browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages["v_defects"])
    pdf = browser.print_page()
    assert pdf.startswith(b"%PDF") and 2 <= len(re.findall(rb"/Type\s*/Page\b", pdf)) <= 6
    browser.command("Emulation.setEmulatedMedia", media="print")
    # A4 less margins is 182 mm, 688 CSS pixels.
    browser.command("Emulation.setDeviceMetricsOverride", width=688, height=1000, deviceScaleFactor=1, mobile=False)
    browser.run("window.dispatchEvent(new Event('beforeprint'))")
    for chart in ("time", "height", "interface"):
        box = browser.run(f"return document.querySelector('#chart-{chart} .main-svg').getBoundingClientRect().toJSON()")
        assert 500 < box["width"] <= 688 and box["right"] <= 688 and box["height"] < 950
    hidden = browser.run("return getComputedStyle(document.querySelector('div.no-print')).display")
    assert hidden == "none"
    widths = "return [...document.querySelectorAll('table')].map(t => t.getBoundingClientRect().right)"
    assert all(right <= 688 for right in browser.run(widths))
    browser.run("window.dispatchEvent(new Event('afterprint'))")
    browser.command("Emulation.setEmulatedMedia", media="")


@pytest.mark.parametrize("page", ["wells", "failed", "rejected"])
def test_a_page_is_readable_on_a_phone(page: str, browser: Browser, pages: dict[str, Path]) -> None:
    browser.open(pages[page], width=390, height=844, phone=True)
    assert browser.run("return document.documentElement.scrollWidth") <= 390
    small = browser.run(
        """return [...document.querySelectorAll('p, dd, dt, td, th, li, figcaption, .stack-name')]
        .filter(e => e.textContent.trim() && e.getBoundingClientRect().width > 0)
        .filter(e => parseFloat(getComputedStyle(e).fontSize) < 12.5).map(e => e.textContent)"""
    )
    assert small == []
    assert browser.console() == []
    keep_picture(browser, f"{page}-phone")


def test_a_page_is_readable_with_a_screen_reader(name: str, browser: Browser) -> None:
    tree = browser.command("Accessibility.getFullAXTree")["nodes"]
    nodes = [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in tree if not node["ignored"]]
    roles = [role for role, _ in nodes]
    assert browser.run("return document.documentElement.lang") == "en"
    for landmark in ("banner", "main", "contentinfo"):
        assert roles.count(landmark) == 1, landmark
    levels = browser.run("return [...document.querySelectorAll('h1, h2, h3')].map(h => Number(h.tagName[1]))")
    assert levels[0] == 1 and levels.count(1) == 1 and set(levels[1:]) <= {2}
    # Every picture has a description, every region and control a name, every table a caption and headers.
    for role, text in nodes:
        if role in ("image", "img", "region", "combobox", "table"):
            assert text.strip(), (role, text)
    if name != "rejected":
        pictures = 3 if name == "nan" else 4  # layers, over time, over height; and interfaces, if there are any
        assert sum(role in ("image", "img") for role, _ in nodes) >= pictures
        assert "columnheader" in roles and "rowheader" in roles
    assert browser.run("return [...document.querySelectorAll('th')].every(h => h.scope)") is True
    duplicates = browser.run(
        "const ids = [...document.querySelectorAll('body > * [id]:not(.chart *)')].map(e => e.id);"
        "return ids.length - new Set(ids).size"
    )
    assert duplicates == 0


def luminance(colour: str) -> float:
    """Relative luminance of rgb(...), as WCAG 2.1 defines it."""
    parts = [int(value) / 255 for value in re.findall(r"\d+", colour)[:3]]
    linear = [part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def test_all_text_has_the_contrast_that_wcag_requires(name: str, browser: Browser) -> None:
    pairs = browser.run(
        """const found = [];
        for (const e of document.querySelectorAll('body *:not(.chart *):not(script):not(style):not(title):not(desc)')) {
          if (![...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())) continue;
          let ground = e, colour = 'rgba(0, 0, 0, 0)';
          while (ground && colour === 'rgba(0, 0, 0, 0)') {
            colour = getComputedStyle(ground).backgroundColor;
            ground = ground.parentElement;
          }
          const style = getComputedStyle(e);
          found.push([e.ownerSVGElement ? style.fill : style.color, colour, e.textContent.slice(0, 40)]);
        }
        return found;"""
    )
    assert len(pairs) > (10 if name == "rejected" else 30)
    for text, ground, words in pairs:
        bright, dark = sorted((luminance(text), luminance(ground)), reverse=True)
        assert (bright + 0.05) / (dark + 0.05) >= 4.5, (words, text, ground)


def test_the_report_of_a_failed_run_has_its_text_and_where_it_stopped(pages: dict[str, Path]) -> None:
    text = re.sub(r"\s+", " ", pages["failed"].read_text())
    assert "Step size has become too small" in text  # docs/messages.md
    assert "It stopped at 3723.99" in text and "in layer 2, InGaN." in text and "GaN cap, was not started" in text
    rejected = pages["rejected"].read_text()
    assert "ingan_v_defects.xml" in rejected and "SHA-256 of the recipe" in rejected
    assert "Very low or negative temperature in stage_1" in rejected and "Nothing was simulated" in rejected


def test_a_run_with_unphysical_rows_is_reported_as_failed(pages: dict[str, Path], tmp_path: Path) -> None:
    path = tmp_path / "r.result.txt"
    path.write_bytes(failed_run(recipe_with_a_pause()).content)
    without_status = vorlen.report(vorlen.read(path), tmp_path / "r.html")
    for page, place in ((pages["unphysical"], "stage_3"), (without_status, "layer 6")):
        text = re.sub(r"\s+", " ", page.read_text())
        assert '<p class="status failed">Failed</p>' in text and '<h2 id="failure-head">' in text
        line = rf"Unphysical values in \d+ of \d+ rows, first at 3785\.\d+ s in {place} \(AlGaN barrier\)"
        assert len(re.findall(line, text)) == 1  # not among the warnings as well
        assert "Do not use their values" in text and "It stopped at" not in text


def test_the_scheme_is_among_the_facts(tmp_path: Path) -> None:
    fact = r"<dt>Integration scheme</dt>\s*<dd>staged</dd>"
    run = vorlen.run(V_DEFECTS, tmp_path / "r.txt", scheme="staged")
    assert re.search(fact, render(run)) and re.search(fact, render(vorlen.read(tmp_path / "r.txt")))
    (tmp_path / "r.status.json").unlink()
    assert "Integration scheme" not in render(vorlen.read(tmp_path / "r.txt"))


def rows_of(content: bytes) -> list[list[bytes]]:
    """The words of the rows of a result file without detail columns."""
    lines = content.splitlines()
    return [line.split() for line in lines[lines.index(b"</LAYERS>") + 2 :]]


def test_warnings_mention_v_defects_and_nan(pages: dict[str, Path]) -> None:
    # The place is the first row with a number in column 8. As the comment of the example says, it is 5.2 nm above the
    # template of 2000 nm.
    rows = rows_of(vorlen.run(V_DEFECTS).content)
    time, height = next((float(row[0]), float(row[1])) for row in rows if float(row[7]) > 0)
    assert round(height - 2000, 1) == 5.2
    warning = f"V-defects opened at {time:.7g} s, {height - 2000:.4g} nm above the pre-stages, in layer 2, InGaN."
    assert warning in pages["v_defects"].read_text()
    rows = rows_of(failed_run(recipe_with_nan()).content)
    bad = sum(any(word.endswith(b"nan") for word in row) for row in rows)
    assert 0 < bad < len(rows)
    assert f"Unphysical values in {bad} of {len(rows)} rows" in pages["nan"].read_text()


def test_elements_that_are_not_read_are_reported_with_their_line() -> None:
    text = V_DEFECTS.read_text().replace("<cut_angle", '<cut_angel val="1"/><cut_angle', 1)
    line = text[: text.index("<cut_angel")].count("\n") + 1
    assert findings(V_DEFECTS.read_bytes()) == []
    (warning,) = findings(text.encode())
    assert warning.startswith(f"Recipe, line {line}: ") and "cut_angel" in warning and "is ignored" in warning


def test_without_the_command_line_tool_the_report_says_that_nothing_was_checked(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("VORLEN", "/nowhere/vorlen")
    (warning,) = findings(V_DEFECTS.read_bytes())
    assert warning == "The recipe was not checked: /nowhere/vorlen could not be run: No such file or directory."


class Names(html.parser.HTMLParser):
    """Element names and texts of a page."""

    def __init__(self) -> None:
        super().__init__()
        self.tags: list[str] = []

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.tags.append(tag)


def test_names_from_the_recipe_are_escaped(browser: Browser, tmp_path: Path) -> None:
    nasty = "</script><script>document.title='bad'</script><img src=x onerror=\"document.title='bad'\">"
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["process_stages/stage_1/name"] = nasty
    page = vorlen.report(vorlen.run(recipe), tmp_path / "r.html")
    browser.open(page)
    assert browser.driver.title == "ingan_v_defects.xml – growth run"
    assert browser.run("return document.querySelector('.layers tbody tr:nth-child(2) th').textContent") == nasty
    names = Names()
    names.feed(page.read_text())
    assert "img" not in names.tags


def test_the_command_writes_the_page_and_finds_the_recipe_by_the_status_file(tmp_path: Path) -> None:
    vorlen.run(V_DEFECTS, tmp_path / "a.result.txt")
    command = [sys.executable, "-m", "vorlen", "report"]
    environment = os.environ | {"PYTHONPATH": str(ROOT / "python")}
    done = subprocess.run(
        [*command, "a.result.txt"], cwd=tmp_path, env=environment, capture_output=True, text=True, check=False
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "a.html\n", "")
    assert '"key":"temperature"' in (tmp_path / "a.html").read_text()
    for arguments, message in (
        (["none.txt"], "No such file"),
        (["a.html"], "a.html is not a result file"),
        (["a.result.txt", "--recipe", "none.xml"], "none.xml can't be read: No such file or directory"),
        (["a.result.txt", "-o", "a.result.txt"], "would overwrite"),
        (["a.result.txt", "-o", "nowhere/a.html"], "folder not found: nowhere"),
    ):
        done = subprocess.run(
            [*command, *arguments], cwd=tmp_path, env=environment, capture_output=True, text=True, check=False
        )
        assert done.returncode == 1 and message in done.stderr and "Traceback" not in done.stderr, done.stderr
    assert subprocess.run(command, env=environment, capture_output=True, check=False).returncode == 2


def test_the_same_run_gives_the_same_page(tmp_path: Path) -> None:
    run = vorlen.run(V_DEFECTS)
    assert render(run) == render(run)
    assert len(zlib.compress(render(run).encode())) < 1_000_000  # bytes: small enough to mail


def test_a_report_never_replaces_the_run_s_own_files_or_a_device(tmp_path: Path) -> None:
    (tmp_path / "a.xml").write_bytes(V_DEFECTS.read_bytes())
    run = vorlen.run(tmp_path / "a.xml", tmp_path / "a.result.txt")
    own = {path: path.read_bytes() for path in tmp_path.iterdir()}
    assert len(own) == 3
    for path in own:
        link = tmp_path / f"link_to_{path.name}"
        link.symlink_to(path.name)
        for page in (path, link):
            with pytest.raises(ValueError, match="is an input"):
                vorlen.report(run, page)
            with pytest.raises(ValueError, match="is an input"):
                vorlen.report(vorlen.read(tmp_path / "a.result.txt", recipe=tmp_path / "a.xml"), page)
            assert main(["report", str(tmp_path / "a.result.txt"), "-o", str(page)]) == 1
    for page, error in (
        ("/dev/full", ValueError), ("/dev/null", ValueError), (tmp_path, IsADirectoryError),
        (tmp_path / "none" / "r.html", FileNotFoundError), (3, TypeError),
    ):
        with pytest.raises(error):
            vorlen.report(run, page)
    assert {path: path.read_bytes() for path in own} == own
    assert Path("/dev/null").is_char_device() and Path("/dev/full").is_char_device()
    (tmp_path / "a.xml").write_bytes(MQW.read_bytes())  # a changed recipe is not replaced either
    assert main(["report", str(tmp_path / "a.result.txt"), "-o", str(tmp_path / "a.xml")]) == 1
    assert (tmp_path / "a.xml").read_bytes() == MQW.read_bytes()


def test_the_report_of_a_rejected_recipe_does_not_replace_recipe_or_status_file(tmp_path: Path) -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["process_stages/stage_1/T"] = 0
    recipe.save(tmp_path / "r.xml")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(tmp_path / "r.xml", tmp_path / "r.txt")
    before = {path: path.read_bytes() for path in tmp_path.iterdir()}
    assert len(before) == 2
    for path in before:
        assert main(["report", str(tmp_path / "r.txt"), "-o", str(path)]) == 1
    with pytest.raises(ValueError, match="is an input"):
        vorlen.report(caught.value, tmp_path / "r.xml")
    assert {path: path.read_bytes() for path in tmp_path.iterdir()} == before


@pytest.mark.parametrize("run", [None, "r.txt", 3])
def test_something_else_than_a_run_is_rejected(run: object, tmp_path: Path) -> None:
    with pytest.raises(TypeError, match="run must be a Run or a SimulationError, got"):
        vorlen.report(run, tmp_path / "r.html")
    with pytest.raises(TypeError, match="path must be a path, got"):
        vorlen.read(run) if not isinstance(run, str) else vorlen.read([run])


def test_a_page_that_does_not_fit_on_the_disk_is_an_error_without_a_traceback(tmp_path: Path) -> None:
    """A limit on the size of files simulates the disk."""
    vorlen.run(V_DEFECTS, tmp_path / "r.txt")
    (tmp_path / "r.html").write_text("old")
    program = """
import resource, signal, sys
from vorlen.__main__ import main
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (300_000, 300_000))
sys.exit(main(["report", "r.txt"]))
"""
    environment = os.environ | {"PYTHONPATH": str(ROOT / "python")}
    command = [sys.executable, "-c", program]
    done = subprocess.run(command, cwd=tmp_path, env=environment, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (1, "vorlen: [Errno 27] File too large: 'r.html'\n")
    assert (tmp_path / "r.html").read_text() == "old"
    assert sorted(path.name for path in tmp_path.iterdir()) == ["r.html", "r.status.json", "r.txt"]


def test_a_report_of_heights_that_are_not_finite(tmp_path: Path) -> None:
    content = vorlen.run(MQW).content.decode()
    head, rows = content.split("#time", 1)
    lines = ("#time" + rows).splitlines(keepends=True)
    broken = lines[40].split(" ")
    broken[1] = "inf"
    run = vorlen.Run((head + "".join([*lines[:40], " ".join(broken), *lines[41:]])).encode())
    assert run.failed and "height is infinite" in render(run)
