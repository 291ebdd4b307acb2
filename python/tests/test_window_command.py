"""vorlen window: options, exit statuses, JSON, and the page in a browser."""

from __future__ import annotations

import csv
import io
import json
import os
from pathlib import Path

import numpy as np
import pytest

import vorlen
from browser import Browser
from support import MQW, ROOT
from vorlen.__main__ import main
from vorlen._design.window_page import window_model

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"
WORDS = ["--spread", "T=2 K", "--quiet"]


@pytest.fixture
def targets(tmp_path, monkeypatch) -> Path:
    monkeypatch.chdir(tmp_path)
    path = tmp_path / "targets.yaml"
    path.write_text("layers: [{layer: 2, thickness: 2.84 +- 0.03 nm, In: 19 % +- 0.5 %}]")
    return path


def test_the_result_as_text_and_as_json_and_the_folder_beside_the_recipe(targets, tmp_path, capsys):
    recipe = tmp_path / "layer.xml"
    recipe.write_bytes(LAYER.read_bytes())
    words = ["window", str(recipe), "--targets", str(targets), *WORDS, "--samples", "8", "-j", "1"]
    assert main(words) == 0
    text = capsys.readouterr().out
    kept = {"out": tmp_path / "layer.runs", "time_limit": 1e-6}
    window = vorlen.window(recipe, targets, {"T": "2 K"}, samples=8, grid=0, **kept)
    assert text.splitlines() == window.sentences and text.startswith("All targets hold in ")
    assert sorted(path.name for path in tmp_path.iterdir()) == ["layer.runs", "layer.xml", "targets.yaml"]
    assert main([*words, "--json"]) == 0
    made = json.loads(capsys.readouterr().out)
    assert made["yield"] == window.yield_ and made["interval"] == list(window.interval) and made["runs"] == 8
    assert made["statuses"] == {"ok": 8} and made["sentences"] == window.sentences and made["warnings"] == []
    assert [one["quantity"] for one in made["targets"]] == ["thickness", "In"]
    assert made["targets"][1]["nominal"] == window.targets.nominal[1] and made["targets"][1]["bound"] == ""
    assert [one["change"] for one in made["sensitivities"]] == window.sensitivities.change.tolist()


def test_unknown_numbers_are_null_in_json_and_missing_runs_give_the_exit_status_1(targets, capsys):
    words = ["window", str(LAYER), "--targets", str(targets), *WORDS, "--samples", "3", "--out", "runs", "--json"]
    assert main([*words, "--time-limit", "1e-6"]) == 1
    made = json.loads(capsys.readouterr().out)
    assert made["yield"] is None and made["statuses"] == {"missing": 3}
    assert made["targets"][0]["mean"] is None and "within the time limit" in made["warnings"][0]
    assert main(words) == 0 and json.loads(capsys.readouterr().out)["statuses"] == {"ok": 3}


@pytest.mark.parametrize(
    ("words", "status", "error"),
    [
        (["--spread", "T"], 2, 'expected NAME=SIZE, such as T="2 K", got \'T\''),
        (["--spread", "T="], 2, "expected NAME=SIZE"),
        (["--spread", "T=1", "--spread", "T=2"], 2, "--spread T is given twice"),
        ([], 2, "--spread"),
        (["--spread", "T=1", "--samples", "0"], 2, "the number of runs must be an integer of at least 1, got '0'"),
        (["--spread", "T=1", "--seed", "-1"], 2, "argument --seed"),
        (["--spread", "T=1", "--time-limit", "0"], 2, "the time limit must be positive"),
        (["--spread", "T=1", "--sample", "x"], 2, "integer of at least 1"),
        (["--spread", "T=1", "--spreads", "P=1 %"], 2, "did you mean --spread"),
        (["--spread", "TMGa=1 %"], 1, "TMGa is 0 in all stages"),
        (["--spread", "TMInn=1 %"], 1, "did you mean TMIn?"),
        (["--spread", "T=0 K"], 1, "must be above 0, got '0 K'; leave out what does not vary"),
        (["--spread", "T=1", "--grid", "1"], 1, "grid must be 2 or more, or 0 for no map"),
        (["--spread", "T=1", "-o", "targets.yaml"], 1, "which is an input"),
        (["--spread", "T=1", "--out", "targets.yaml"], 1, "targets.yaml"),
    ],
)
def test_mistakes_are_messages_before_anything_runs(targets, tmp_path, words, status, error, capsys):
    words = ["window", str(LAYER), "--targets", str(targets), *words]
    if status == 2:
        with pytest.raises(SystemExit) as end:
            main(words)
        assert end.value.code == 2
    else:
        assert main(words) == status
    assert error in capsys.readouterr().err
    assert [path.name for path in tmp_path.iterdir()] == ["targets.yaml"]


def test_a_recipe_that_fails_without_deviations_is_an_error(targets, tmp_path, capsys):
    recipe = vorlen.Recipe.load(LAYER)
    recipe["process_stages/stage_1/P"] = 0.5
    recipe.save(tmp_path / "low.xml")
    assert main(["window", "low.xml", "--targets", str(targets), *WORDS, "--samples", "2", "-j", "1"]) == 1
    assert "low.xml fails without deviations: Very low or negative pressure in stage_1" in capsys.readouterr().err


def test_a_plan_has_the_runs_of_the_window_and_of_the_map(targets, tmp_path, capsys):
    """Rows that `vorlen sweep` has run are used; the others are run."""
    words = ["window", str(LAYER), "--targets", str(targets), *WORDS, "--samples", "5", "--out", "parts/runs"]
    assert main([*words, "--plan", "plans/window.json"]) == 1  # the folder does not exist
    assert "plans" in capsys.readouterr().err
    assert main([*words, "--plan", "window.json"]) == 0
    assert capsys.readouterr().out == "8 runs in window.json\n" and not Path("parts").exists()
    assert main(["sweep", "window.json", "--rows", "2:5", "--quiet", "--workers", "1"]) == 0
    before = {path.name: path.stat().st_mtime_ns for path in Path("parts/runs/rows").glob("*.result.txt")}
    assert sorted(before) == [f"00000{number}.result.txt" for number in (2, 3, 4)]
    capsys.readouterr()
    assert main(words) == 0
    after = {path.name: path.stat().st_mtime_ns for path in Path("parts/runs/rows").glob("*.result.txt")}
    assert before.items() < after.items() and len(after) == 8
    alone = vorlen.window(LAYER, targets, {"T": "2 K"}, samples=5, grid=0, workers=1, check=False)
    assert capsys.readouterr().out.splitlines() == alone.sentences
    heat, flow = "process_stages/stage_1/T", "process_stages/stage_1/gas_species/Q/TMIn"
    words = ["map", str(LAYER), "--x", f"{heat}=1000,1010", "--y", f"{flow}=0.1:0.3:0.1", "--layer", "InGaN"]
    assert main([*words, "--plan", "map.json", "--out", "map"]) == 0
    assert capsys.readouterr().out == "6 runs in map.json\n"
    assert main(["sweep", "map.json", "--count"]) == 0 and capsys.readouterr().out == "6\n"


# ---- the page


def test_histograms_count_each_run_once_and_bars_are_the_effects(tmp_path):
    targets = {"layers": [{"layer": 2, "thickness": "at most 2.85 nm", "In": "19 % +- 0.2 %"}]}
    made = vorlen.window(LAYER, targets, {"T": "2 K", "tau": "1 %"}, samples=20, grid=0, workers=1, check=False)
    thickness, indium = window_model(made.table, made.targets, made.sensitivities, made._labels)
    for model, row in zip((thickness, indium), made.targets.itertuples()):
        assert sum(model["histogram"]["all"]) == 20 and len(model["histogram"]["edges"]) == 10
        assert sum(model["histogram"]["within"]) == round(20 * row.held) < 20
    assert thickness["low"] is None and thickness["high"] == 2.85
    assert (indium["low"], indium["high"]) == pytest.approx((0.188, 0.192), rel=1e-8)
    assert [one["name"] for one in thickness["effects"]] == ["tau \u00b11 %", "T \u00b12 K"]  # the largest first
    tau = made.sensitivities.iloc[2]
    change = tau.above - made.targets.nominal[0]
    assert tau.knob == "tau" and thickness["effects"][0]["above"] == pytest.approx(change, rel=1e-6)


def test_pages_of_windows_with_one_run_or_without_values_are_complete(tmp_path):
    one = vorlen.window(LAYER, {"layers": [{"layer": 2, "In": 0.5}]}, {"T": "2 K"}, samples=1, workers=1, check=False)
    assert one.yield_ == 0.0 and one.interval[0] == 0.0 and one.interval[1] == pytest.approx(0.7935, abs=1e-4)
    assert "misses its target 0.5: design the recipe first" in one.warnings[0]
    none = {"layers": [{"layer": 2, "upper interface": "1 nm"}]}  # it is the last layer
    empty = vorlen.window(LAYER, none, {"T": "2 K", "P": "1 %"}, samples=2, workers=1, check=False)
    assert empty.yield_ == 0.0 and empty.map is not None and empty.warnings == [
        "upper interface of layer 2 (InGaN) has no value without deviations; every run without a value is a miss",
        "2 of 2 runs have no value of upper interface of layer 2 (InGaN) and count as misses: runs 0 and 1",
    ]
    for number, made in enumerate((one, empty)):
        page = made.report(tmp_path / f"{number}.html").read_text()
        assert "nan" not in page.partition("<script")[0].lower()
        made.plot(path=tmp_path / f"{number}.svg")


def test_the_page_in_a_browser(browser: Browser, targets, tmp_path, capsys):
    goals = tmp_path / "wells.yaml"
    goals.write_text("layers: [{layer: InGaN well, thickness: 3.45 +- 0.04 nm, In: 22.5 % +- 0.5 %}]")
    words = ["--spread", "T=2 K", "--spread", "TMIn=2 %", "--spread", "TEGa=1 %", "--samples", "24", "--grid", "3"]
    words = ["window", str(MQW), "--targets", str(goals), *words, "--out", "runs", "-o", "window.html", "--quiet"]
    assert main(words) == 0
    text = capsys.readouterr().out
    assert text.endswith("page in window.html\n")
    browser.open(tmp_path / "window.html", width=1440)
    sentences = browser.run("return [...document.querySelectorAll('.sentences li')].map((line) => line.textContent)")
    assert sentences == text.splitlines()[:-1]
    names = "return [...document.querySelectorAll('.chart')].map((chart) => chart.data.map((one) => one.name))"
    charts = browser.run(names)
    assert charts[1] == charts[3] == ["one standard deviation less", "more"]
    assert charts[4][:3] == ["all targets hold", "In of InGaN well", "thickness of InGaN well (nm)"]
    # The histogram: the area of both kinds of bars is the number of runs, drawn as one picture each.
    sums = "return document.querySelectorAll('.chart')[2].data.map((one) => one.y.reduce((a, b) => a + b))"
    counts = browser.run(sums)
    held = json.loads(browser.run("return document.getElementById('data').textContent"))["targets"][1]["histogram"]
    assert counts == [24, sum(held["within"])] and 0 < sum(held["within"]) < 24
    rows = browser.run(
        "return [...document.querySelectorAll('#effects-head ~ .scroll tbody tr')].map((row) => row.textContent)"
    )
    assert len(rows) == 6 and "TEGa" in rows[4]
    paths = "chart.querySelectorAll('.scatterlayer path').length"
    drawn = browser.run(f"return [...document.querySelectorAll('.chart')].map((chart) => {paths})")
    assert len(drawn) == 5 and all(count > 0 for count in drawn)
    saved = tmp_path / "saved"
    saved.mkdir()
    table = list(csv.DictReader(io.StringIO(browser.downloaded(saved, "[data-csv=runs]").read_text("utf-8"))))
    assert len(table) == 24 and np.isfinite(float(table[3]["In of InGaN well"]))
    (saved / "runs.csv").unlink()
    assert "standard deviation" in browser.downloaded(saved, "[data-svg=tornado-0]").read_text("utf-8")
    for width, phone, dark in ((1440, False, False), (1440, False, True), (390, True, False), (390, True, True)):
        browser.open(tmp_path / "window.html", width=width, phone=phone, dark=dark)
        assert browser.run("return document.documentElement.scrollWidth <= window.innerWidth")
        if os.environ.get("VORLEN_SCREENSHOTS"):
            name = f"window_{width}_{'dark' if dark else 'light'}.png"
            browser.screenshot(Path(os.environ["VORLEN_SCREENSHOTS"]) / name)
    assert browser.console() == []
