"""vorlen observe and the panels of reports: options, failures, and the page in a real browser.

With VORLEN_SCREENSHOTS set to a folder, pictures of the page are left there.
"""

from __future__ import annotations

import os
import re
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from browser import Browser
from curves import ANGLES, LAYER, as_measured
from support import ROOT, failed_run, failing_recipe
from vorlen.__main__ import main
from vorlen._pages.observe_command import miller_indices
from vorlen._pages.observed import MAX_POINTS, thinned


@pytest.fixture(scope="module")
def folder(tmp_path_factory) -> Path:
    """A result, a scan and a spectrum."""
    place = tmp_path_factory.mktemp("observe")
    run = vorlen.run(vorlen.Recipe.load(LAYER), place / "layer.result.txt")
    scan = as_measured(run.xrd(two_theta=ANGLES))
    pd.DataFrame({"2Theta (deg)": scan.x, "counts": scan.y}).to_csv(place / "scan.csv", index=False)
    scan.table.iloc[:, :2].to_csv(place / "plain.xy", index=False, header=False, sep=" ")
    x = np.linspace(350, 600, 251)
    pd.DataFrame({"wavelength (nm)": x, "intensity": np.exp(-0.5 * ((x - 450) / 10) ** 2)}).to_csv(place / "pl.csv", index=False)
    light = [run.reflectance(wavelength, substrate="Si", thickness=650) for wavelength in (405, 633)]
    columns = {f"R {curve.settings['wavelength']:g} nm": np.interp(light[1].x, curve.x, curve.y) for curve in light}
    pd.DataFrame({"time (s)": light[1].x} | columns).to_csv(place / "colours.csv", index=False)
    pd.DataFrame({"time (s)": light[1].x, "R 633 nm": 1000 * light[1].y}).to_csv(place / "volts.csv", index=False)
    return place


@pytest.fixture
def page_of(folder, monkeypatch, capsys):
    """Runs the command and returns its page as text."""
    monkeypatch.chdir(folder)

    def made(*words: str) -> str:
        assert main(["observe", "layer.result.txt", "-o", "page.html", *words]) == 0
        assert capsys.readouterr().out == "page.html\n"
        return Path("page.html").read_text()

    return made


HEADINGS = {
    "xrd": ">X-ray diffraction<", "curvature": ">Curvature of the wafer<", "reflectance": ">Reflectance<",
    "emission": ">Emission of the wells: a coarse guide<",
}


@pytest.mark.parametrize(
    "words, shown, texts",
    [
        ((), ("xrd", "curvature", "reflectance", "emission"), ()),
        (("--xrd",), ("xrd",), ("Reflection 002",)),
        (("--xrd", "004", "--emission"), ("xrd", "emission"), ("Reflection 004",)),
        (("--xrd", "1,0,-1,5"), ("xrd",), ("Reflection 105",)),
        (("--curvature", "Si"), ("curvature",), ("ubstrate ",)),
        (("--reflectance", "633 nm"), ("reflectance",), ("633 nm",)),
        (("--reflectance", "633", "--curvature", "Si"), ("curvature", "reflectance"), ("633 nm, substrate Si(111)",)),
        (("--reflectance", "--thickness", "0.65 mm"), ("reflectance",), ("405 nm, substrate sapphire, 650 \u00b5m thick",)),
        (("--emission", "--screening", "50 %"), ("emission",), ("<li>0.5 of the field is screened",)),
        (("--thickness", "650"), ("xrd", "curvature", "reflectance", "emission"), (">Substrate sapphire, 650 \u00b5m thick<",)),
    ],
)
def test_options_choose_what_is_shown(page_of, words, shown, texts):
    page = page_of(*words)
    assert [name for name, heading in HEADINGS.items() if heading in page] == list(shown)
    assert all(text in page for text in texts)


def test_measured_files_are_drawn_with_the_simulated_curve(page_of):
    page = page_of("--measured", "scan.csv", "pl.csv", "--angle-offset", "-0.02", "0.02")
    assert ">X-ray diffraction: scan<" in page and ">Emission: pl<" in page and 'id="deviations"' in page
    assert HEADINGS["curvature"] not in page
    both = page_of("--xrd", "--measured", "xrd=plain.xy")
    assert ">X-ray diffraction: plain<" in both and HEADINGS["xrd"] not in both  # one chart with both curves


def test_measured_files_have_the_wafer_of_the_options(page_of):
    wafer = ("--curvature", "Si", "--thickness", "650")
    page = page_of("--measured", "volts.csv", "--not-calibrated", *wafer)
    # a reflectance at a wavelength that reaches the substrate: nothing is left but rounding
    assert "633 nm, substrate Si(111), 650 \u00b5m thick. Rms " in page
    assert float(page.split("650 \u00b5m thick. Rms ")[1].split("<")[0].replace("\u2212", "-")) < 1e-6
    page = page_of("--reflectance", "633", "--measured", "reflectance=colours.csv", *wafer)
    assert "633 nm, substrate Si(111), 650 \u00b5m thick. Rms " in page
    assert "0.3 of the field screened" in page_of("--screening", "0.3", "--measured", "pl.csv")


@pytest.mark.parametrize(
    "words, message",
    [
        (["--xrd", "00x"], "--xrd must be a reflection such as 002, 004, 105 or 1,0,-1,5, got '00x'"),
        (["--curvature", "cheese"], "cheese"),
        (["--reflectance", "5 kg"], "wavelength"),
        (["--thickness", "430 nm"], "thickness must be from 10 um to 100 mm, as it is that of the substrate, got 430 nm"),
        (["--thickness", "thin"], "thickness takes a number with or without a unit, got 'thin'"),
        (["--xrd", "--thickness", "-430"], "thickness must be from 10 um to 100 mm"),
        (["--screening", "50"], "screening must be from 0 to 1, got 50"),
        (["--screening", "-0.1"], "screening must be from 0 to 1, got -0.1"),
        (["--emission", "--screening", "half"], "screening takes a number with or without a unit, got 'half'"),
        (["--measured", "volts.csv"], "or calibrated=False"),
        (["--measured", "plain.xy"], "give kind="),
        (["--measured", "missing.csv"], "missing.csv can't be read: No such file or directory"),
        (["--time-offset", "5", "1"], "--time-offset: low must be less than high, got 5 and 1"),
        (["-o", "scan.csv", "--measured", "scan.csv"], "scan.csv would overwrite scan.csv, which is an input"),
        (["-o", "layer.result.txt"], "which is an input"),
    ],
)
def test_failures_are_one_line(folder, monkeypatch, capsys, words, message):
    monkeypatch.chdir(folder)
    before = (folder / "scan.csv").read_bytes()
    assert main(["observe", "layer.result.txt", "-o", "none.html", *words]) == 1
    error = capsys.readouterr().err
    assert error.startswith("vorlen: ") and message in error and error.count("\n") == 1
    assert not Path("none.html").exists() and (folder / "scan.csv").read_bytes() == before


def test_the_manual_lists_all_options(capsys):
    with pytest.raises(SystemExit):
        main(["observe", "--help"])
    options = set(re.findall(r"(?<!\S)--[a-z-]+", capsys.readouterr().out)) - {"--help", "--output"}
    manual = (ROOT / "docs" / "measured.md").read_text("utf-8")
    listed = set(re.findall(r"`(--[a-z-]+)", manual.split("| option |")[1].split("\n\n")[0]))
    assert listed == options and {"--thickness", "--screening"} < options


@pytest.mark.parametrize(
    "text, indices",
    [("002", (0, 0, 2)), ("105", (1, 0, 5)), ("10-5", (1, 0, -5)), ("1,0,-5", (1, 0, -5)), ("0 0 12", (0, 0, 12)),
     ("0002", (0, 0, 2)), ("10-15", (1, 0, 5)), ("1, 0, -1, 5", (1, 0, 5))],
)
def test_reflections(text, indices):
    assert miller_indices(text) == indices


@pytest.mark.parametrize("text", ["", "2", "1105", "0.5,0,1", "abc", "00002", "0,0,123"])
def test_what_is_not_a_reflection(text):
    with pytest.raises(ValueError, match="must be a reflection"):
        miller_indices(text)


def test_peaks_stay_in_charts_of_long_curves():
    x = np.arange(50000.0)
    y = np.where(x == 31234, 100.0, np.sin(x))
    few, values = thinned(x, y)
    assert len(few) <= MAX_POINTS and values.max() == 100 and 31234 in few and (np.diff(few) > 0).all()


def test_a_report_has_what_is_asked_for(folder, capsys):
    run = vorlen.read(folder / "layer.result.txt", recipe=LAYER)
    text = vorlen.report(run, folder / "report.html", observe={"xrd": {"hkl": (0, 0, 4)}, "emission": {}}).read_text()
    assert HEADINGS["xrd"] in text and "Reflection 004" in text and HEADINGS["curvature"] not in text
    assert HEADINGS["xrd"] not in vorlen.report(run, folder / "report.html").read_text()
    words = ["report", str(folder / "layer.result.txt"), "-o", str(folder / "report.html"), "--observe", "reflectance, emission"]
    assert main(words) == 0
    text = (folder / "report.html").read_text()
    assert HEADINGS["reflectance"] in text and HEADINGS["emission"] in text
    assert main([*words[:-1], "rheed"]) == 1
    assert "observe must be one or more of xrd, curvature, reflectance, emission, got 'rheed'" in capsys.readouterr().err
    with pytest.raises(TypeError, match="observe must be a list of names"):
        vorlen.report(run, folder / "report.html", observe="xrd")
    with pytest.raises(TypeError, match="the arguments of xrd must be a dict"):
        vorlen.report(run, folder / "report.html", observe={"xrd": 4})


def test_a_report_of_a_failed_run_says_what_is_not_shown(tmp_path):
    text = vorlen.report(failed_run(failing_recipe()), tmp_path / "failed.html", observe=["xrd"]).read_text()
    assert "X-ray diffraction is not shown: the run failed" in text


def test_the_page_in_a_browser(page_of, folder, browser: Browser, tmp_path):
    page_of("--xrd", "--curvature", "--emission", "--measured", "scan.csv")
    shots = Path(os.environ["VORLEN_SCREENSHOTS"]) if "VORLEN_SCREENSHOTS" in os.environ else None
    for name, options in (("light", {}), ("dark", {"dark": True}), ("phone", {"width": 390, "height": 844, "phone": True})):
        browser.open(folder / "page.html", **options)
        assert browser.console() == []
        width = options.get("width", 1280)
        assert browser.run("return document.documentElement.scrollWidth") <= width
        charts = browser.run("return [...document.querySelectorAll('.chart')].map(one => one.getBoundingClientRect().right)")
        assert len(charts) == 2 and max(charts) <= width
        if shots:
            browser.screenshot(shots / f"observe_{name}.png")
    browser.open(folder / "page.html")
    layout = "document.getElementById('observed-1')._fullLayout"
    assert browser.run(f"return {layout}.yaxis.type") == "log"
    low, high = browser.run(f"return {layout}.xaxis.range")
    assert [low, high] == pytest.approx([ANGLES[0], ANGLES[-1]])
    # Dragging across the middle half zooms; a double click shows everything again.
    browser.run("document.getElementById('observed-1').scrollIntoView({block: 'center'})")
    box = browser.run("return document.querySelector('#observed-1 .nsewdrag').getBoundingClientRect().toJSON()")
    y = box["y"] + 0.5 * box["height"]
    browser.drag((box["x"] + 0.25 * box["width"], y), (box["x"] + 0.75 * box["width"], y))
    browser.wait(f"return {layout}.xaxis.range[1] - {layout}.xaxis.range[0] < {0.6 * (high - low)}")
    names = browser.run(f"return {layout}.annotations.map(one => one.text)")
    peaks = vorlen.read(folder / "layer.result.txt", recipe=LAYER).xrd(two_theta=ANGLES).peaks
    assert set(names) == {label for label, x in zip(peaks.label, peaks.x) if label and ANGLES[0] < x < ANGLES[-1]}
    assert len(names) == 2
    data = "document.getElementById('observed-1').data"
    assert browser.run(f"return {data}.map(one => one.name)") == ["scan", "ingan_layer", "difference"]
    saved = browser.downloaded(tmp_path, "[data-csv=observed-1]")
    table = pd.read_csv(saved)
    assert list(table) == ["two_theta", "intensity", "omega", "simulated_intensity", "deviation"] and len(table) == len(ANGLES)
    assert browser.console() == []
