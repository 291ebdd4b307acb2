"""Where the live page is used: the figures of the manual, and the report that opens it with its recipe."""

from __future__ import annotations

import importlib.util
import os
import re
import subprocess
import sys
from pathlib import Path
from types import ModuleType
from typing import Any

import pytest

import vorlen
from browser import Browser
from live import write_page
from support import ROOT, V_DEFECTS, result, row, tool

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"
STAGE = "process_stages/stage_1"
FIGURES = ("indium-temperature", "indium-ceiling", "growth-rate", "v-defects")


@pytest.fixture(scope="module")
def page(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return write_page(tmp_path_factory.mktemp("figures") / "live.html")


def open_figure(browser: Browser, page: Path, name: str, width: int = 720, dark: bool = False) -> None:
    browser.driver.get("about:blank")
    browser.dark_mode(dark)
    browser.command("Emulation.setDeviceMetricsOverride", width=width, height=500, deviceScaleFactor=1, mobile=False)
    browser.driver.get(f"{page.as_uri()}#embed={name}")
    browser.wait("return document.documentElement.dataset.drawn === 'yes'")


def answer(browser: Browser) -> str:
    return " ".join(browser.run("return document.querySelector('.figure-answer').textContent").replace("\u00a0", " ").split())


def move(browser: Browser, slider: int, value: float) -> None:
    """Moves a slider and waits until the answer has changed."""
    before = answer(browser)
    browser.run(
        "const input = document.querySelectorAll('.figure-sliders input')[arguments[0]]; input.value = arguments[1];"
        "input.dispatchEvent(new Event('input'))", slider, value
    )
    browser.wait(f"return document.querySelector('.figure-answer').textContent.replaceAll('\\u00a0', ' ') !== {before!r}", 10)


def number(text: str) -> float:
    found = re.search(r"-?\d+(?:\.\d+)?", text)
    assert found, text
    return float(found[0])


def grown(recipe: Path, **values: Any) -> vorlen.Run:
    changed = vorlen.Recipe.load(recipe)
    for path, value in values.items():
        changed[path.replace("__", "/")] = value
    return vorlen.run(changed)


def last(run: vorlen.Run) -> Any:
    return run.profile[run.profile["active"]].iloc[-1]


@pytest.mark.parametrize(
    ("name", "path", "slider", "value", "factor", "column", "scale"),
    [
        ("indium-temperature", f"{STAGE}/T", 0, 1000, 1, "x_in", 100),
        ("indium-temperature", f"{STAGE}/gas_species/Q/TMIn", 1, 0.4, 1, "x_in", 100),
        ("indium-ceiling", "chemistry/Kd_In/A", 0, 15, None, "x_in", 100),
        ("growth-rate", f"{STAGE}/delta", 0, 4, 1e-3, "rate", 1),
        ("growth-rate", f"{STAGE}/gas_species/Q/TEGa", 1, 0.8, 1, "rate", 1),
    ],
)
def test_sweeps_show_the_values_of_the_library(
    name: str, path: str, slider: int, value: float, factor: float | None, column: str, scale: float, browser: Browser, page: Path
) -> None:
    open_figure(browser, page, name)
    assert number(answer(browser).split(":")[1]) == pytest.approx(scale * last(vorlen.run(LAYER))[column], rel=6e-3)
    move(browser, slider, value)
    recipe = vorlen.Recipe.load(LAYER)
    recipe[path] = 10.0**value if factor is None else value * factor
    expected = scale * last(vorlen.run(recipe))[column]
    assert number(answer(browser).split(":")[1]) == pytest.approx(expected, rel=6e-3)  # three digits
    if slider == 1:  # the curve at the start stays in grey
        browser.wait("return document.querySelectorAll('.charts .ghost').length === 1")
    assert browser.console() == []


def test_the_figure_of_v_defects_says_where_they_open(browser: Browser, page: Path) -> None:
    open_figure(browser, page, "v-defects")
    run = vorlen.run(V_DEFECTS)
    rows = run.profile[run.profile["active"]]
    opening = rows.loc[rows["rho_vd0_t"] > 0, "z"].iloc[0] - rows["z"].iloc[0]
    assert answer(browser).startswith(f"V-defects open at {opening:.2f} nm; at the end there are 4.8×10¹¹ per cm².")
    move(browser, 1, 60)
    top = last(grown(V_DEFECTS, process_stages__stage_1__tau=60))["z"] - 2000
    assert answer(browser) == f"No V-defects within {top:.2f} nm."
    link = browser.run("return document.querySelector('a').href")
    browser.driver.get("about:blank")
    browser.driver.get(link)
    browser.wait("return Number(document.documentElement.dataset.runs ?? 0) > 0")
    assert vorlen.Recipe(browser.run("return vorlen.pane.xml()").encode())[f"{STAGE}/tau"] == 60
    assert browser.run("return vorlen.pane.name()") == "ingan_v_defects.xml"


@pytest.mark.parametrize("name", FIGURES)
def test_figures_fit_into_the_frame_of_the_manual(name: str, browser: Browser, page: Path, hooks: ModuleType) -> None:
    for width in (720, 360):
        open_figure(browser, page, name, width=width)
        assert browser.run("return document.documentElement.scrollWidth") <= width
    open_figure(browser, page, name)
    assert browser.run("return document.documentElement.scrollHeight") <= hooks.HEIGHTS.get(name, hooks.HEIGHT)
    assert browser.run("return document.querySelector('.charts title').textContent && document.title")


def test_an_unknown_figure_is_named(browser: Browser, page: Path) -> None:
    browser.driver.get("about:blank")
    browser.driver.get(f"{page.as_uri()}#embed=nothing")
    browser.wait("return document.body.textContent.includes('Figure not found')")
    assert all(name in browser.run("return document.body.textContent") for name in FIGURES)


# ---- the manual


@pytest.fixture(scope="module")
def hooks() -> ModuleType:
    spec = importlib.util.spec_from_file_location("manual_hooks", ROOT / "scripts" / "manual_hooks.py")
    assert spec and spec.loader
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_the_manual_names_each_figure_once(hooks: ModuleType) -> None:
    named = [name for path in sorted((ROOT / "docs").glob("*.md")) for name in hooks.LIVE_FIGURE.findall(path.read_text("utf-8"))]
    assert sorted(named) == sorted(FIGURES)


def test_with_the_live_page_the_manual_has_a_frame_and_without_it_a_note(
    hooks: ModuleType, page: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    text = "before\n\n<!-- live: v-defects -->\n\nafter"
    monkeypatch.setenv("VORLEN_LIVE_PAGE", str(page))
    framed = hooks.on_page_markdown(text)
    assert '<iframe src="live_page.html#embed=v-defects" title="Live figure: V-defects"' in framed and "after" in framed
    monkeypatch.setenv("VORLEN_LIVE_PAGE", str(tmp_path / "missing.html"))
    noted = hooks.on_page_markdown(text)
    assert "iframe" not in noted and "`scripts/setup.sh run`" in noted


def test_a_page_of_the_manual_shows_its_figure_from_disk(
    browser: Browser, hooks: ModuleType, page: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("VORLEN_LIVE_PAGE", str(page))
    (tmp_path / "live_page.html").write_bytes(hooks.live_page().read_bytes())
    (tmp_path / "calibration.html").write_text(hooks.on_page_markdown("<!DOCTYPE html>\n<!-- live: indium-ceiling -->"))
    browser.driver.get((tmp_path / "calibration.html").as_uri())
    browser.driver.switch_to.frame(0)
    try:
        browser.wait("return document.documentElement.dataset.drawn === 'yes'")
        assert answer(browser).startswith("indium at the end: 19.1 %")  # as in the table of that page
    finally:
        browser.driver.switch_to.default_content()


# ---- the report


def test_a_report_opens_the_live_page_with_its_recipe(browser: Browser, tmp_path: Path) -> None:
    run = vorlen.run(V_DEFECTS)
    report = vorlen.report(run, tmp_path / "my report.html", live=True)
    assert sorted(path.name for path in tmp_path.iterdir()) == ["my report-live.html", "my report.html"]
    browser.open(report)
    browser.run("document.querySelector('a.button').click()")
    browser.wait("return location.pathname.endsWith('my%20report-live.html') && Number(document.documentElement.dataset.runs ?? 0) > 0")
    assert browser.run("return vorlen.pane.xml()") == V_DEFECTS.read_text("utf-8")
    assert browser.run("return vorlen.last.outcome.layers[1].thickness") == pytest.approx(run.layers.loc[2, "thickness"], rel=1e-6)


def test_a_report_without_it_has_no_button_and_stays_small(tmp_path: Path) -> None:
    run = vorlen.run(V_DEFECTS)
    plain = vorlen.report(run, tmp_path / "plain.html").read_bytes()
    assert [path.name for path in tmp_path.iterdir()] == ["plain.html"]
    assert b"Change this recipe" not in plain
    live = vorlen.report(run, tmp_path / "live.html", live=True).read_bytes()
    assert len(live) - len(plain) < 500  # bytes


def test_a_live_page_needs_the_recipe(tmp_path: Path) -> None:
    run = vorlen.Run(result([("GaN", 1.0, 1.0)], [row(time=0), row(time=1, z=1)]).encode())
    with pytest.raises(ValueError, match="needs the recipe of the run"):
        vorlen.report(run, tmp_path / "page.html", live=True)
    assert list(tmp_path.iterdir()) == []


def test_a_tool_without_the_live_page_is_reported(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    run = vorlen.run(LAYER)
    lonely = tmp_path / "bin" / "vorlen"
    lonely.parent.mkdir()
    lonely.write_bytes(Path(tool()).read_bytes())
    lonely.chmod(0o755)
    monkeypatch.setenv("VORLEN", str(lonely))
    with pytest.raises(RuntimeError, match="this build of vorlen has no live page"):
        vorlen.report(run, tmp_path / "page.html", live=True)


def test_the_command_writes_both_pages(tmp_path: Path) -> None:
    vorlen.run(LAYER, tmp_path / "layer.result.txt")
    done = subprocess.run(
        [sys.executable, "-m", "vorlen", "report", "layer.result.txt", "--live"], cwd=tmp_path, capture_output=True, encoding="utf-8",
        env=os.environ | {"PYTHONPATH": str(ROOT / "python")}, timeout=60,
    )
    assert (done.stdout, done.stderr) == ("layer.html\n", "")
    assert (tmp_path / "layer-live.html").is_file()
