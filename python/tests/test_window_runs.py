"""Process windows with real runs: independent values, folders, limits of time, failures and interrupts."""

from __future__ import annotations

import math
import os
import signal
import subprocess
import sys
import time
from pathlib import Path
from statistics import NormalDist

import numpy as np
import pytest

import vorlen
from engines import PYTHON_PATH, wait_for
from support import MQW, ROOT
from vorlen._base.files import lock_file
from vorlen._design.map_lines import lines_of

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one layer, InGaN, that runs within milliseconds
STAGE = "process_stages/stage_1"
HEAT, FLOW = f"{STAGE}/T", f"{STAGE}/gas_species/Q/TMIn"
TARGETS = {"layers": [{"layer": 2, "thickness": "2.84 +- 0.03 nm", "In": "19 % +- 0.5 %"}]}
SPREAD = {"T": "3 K", "TMIn": "2 %"}
QUICK = {"grid": 0, "workers": 1, "check": False}


def layer_with(**values) -> vorlen.Recipe:
    """The recipe of the layer, with values by the last part of their paths."""
    recipe = vorlen.Recipe.load(LAYER).with_scheme("staged")
    for path, value in values.items():
        recipe[f"{STAGE}/gas_species/Q/{path}" if path == "TMIn" else f"{STAGE}/{path}"] = value
    return recipe


def grown(**values):
    return vorlen.run(layer_with(**values)).layers.loc[2]


def stamps(folder: Path) -> dict[str, int]:
    return {path.name: path.stat().st_mtime_ns for path in (folder / "rows").glob("*.result.txt")}


# ---- values from elsewhere


def test_the_yield_of_a_thickness_that_is_linear_in_the_duration_is_the_normal_integral():
    start = layer_with()[f"{STAGE}/tau"]
    middle, longer, longest = (grown(tau=start * share).thickness for share in (1.0, 1.05, 1.1))
    slope = (longest - middle) / 0.1
    assert longer == pytest.approx(middle + 0.05 * slope, rel=1e-7)  # linear
    target, tolerance, spread, samples = 2.85, 0.1, 0.03, 150
    targets = {"layers": [{"layer": 2, "thickness": f"{target} +- {tolerance} nm"}]}
    made = vorlen.window(LAYER, targets, {"tau": "3 %"}, samples=samples, **QUICK | {"workers": 2})
    # Run by run, and as a whole.
    expected = middle + slope * made.table.tau.to_numpy() / 100.0
    assert made.table.iloc[:, 1].to_numpy() == pytest.approx(expected, rel=1e-6)
    assert made.yield_ == np.mean(np.abs(expected - target) <= tolerance)
    normal = NormalDist(middle, slope * spread)
    integral = normal.cdf(target + tolerance) - normal.cdf(target - tolerance)
    assert 0.6 < integral < 0.9
    assert abs(made.yield_ - integral) < 4.0 * math.sqrt(integral * (1.0 - integral) / samples)
    assert made.sensitivities.change[0] == pytest.approx(slope * spread, rel=1e-5)
    assert made.map is None  # of a single value


def test_sensitivities_are_central_differences():
    made = vorlen.window(LAYER, TARGETS, SPREAD, samples=1, **QUICK)
    effects = made.sensitivities.set_index(["knob", "quantity"])
    flow = layer_with()[FLOW][0]
    for knob, below, above, spread in (
        ("T", grown(T=1027), grown(T=1033), 3.0), ("TMIn", grown(TMIn=0.98 * flow), grown(TMIn=1.02 * flow), 2.0),
    ):
        for quantity, column in (("thickness", "thickness"), ("In", "x_in")):
            row = effects.loc[(knob, quantity)]
            assert (row.below, row.above) == pytest.approx((below[column], above[column]), rel=1e-12)
            assert row.change == pytest.approx((above[column] - below[column]) / 2.0, rel=1e-12)
            assert row.derivative == pytest.approx((above[column] - below[column]) / 2.0 / spread, rel=1e-12)
    # In words: 10 K cost 1.6 points of indium or so, and the numbers of the sentence are those of the runs.
    change = 100.0 * (grown(T=1033).x_in - grown(T=1027).x_in) / 2.0
    text = f"{-change:.2g} points, {200.0 * -change:.0f} % of its tolerance"
    assert f"+3 K of T lowers In of layer 2 (InGaN) by {text}." in made.sentences


def test_lines_of_a_map_have_their_value_between_the_runs_too():
    made = vorlen.window(LAYER, TARGETS, SPREAD, samples=1, check=False, workers=2, grid=5)
    heats, flows = sorted(set(made.map.table["T"])), sorted(set(made.map.table["TMIn"]))
    assert heats == [-9.0, -4.5, 0.0, 4.5, 9.0] and flows == [-6.0, -3.0, 0.0, 3.0, 6.0]
    flow = layer_with()[FLOW][0]
    for label, column in (("In of layer 2 (InGaN)", "x_in"), ("thickness of layer 2 (InGaN)", "thickness")):
        values = made.map.table[label].to_numpy().reshape(5, 5).T
        # Linear interpolation in both directions is off by at most an eighth of the second differences.
        bound = sum(np.abs(np.diff(values, 2, axis=axis)).max() for axis in (0, 1)) / 8.0
        span = values.max() - values.min()
        assert 0.0 < bound < 0.01 * span
        lines = lines_of(np.array(heats), np.array(flows), values)
        assert len(lines) >= 4
        for line in lines[1:-1:2]:
            piece = line.pieces[0]
            at = len(piece) // 2
            heat, share = (piece[at - 1] + piece[at]) / 2.0  # between the points on the sides of a cell
            value = grown(T=1030.0 + heat, TMIn=flow * (1.0 + share / 100.0))[column]
            assert abs(value - line.level) <= 2.0 * bound, (label, line.level)


def test_the_map_shows_the_layer_with_the_largest_effects_and_its_region(tmp_path):
    wells = {"layer": "InGaN well", "In": "22.5 % +- 0.5 %"}
    targets = {"layers": [wells, {"layer": "GaN barrier", "thickness": "at most 12 nm"}]}
    spread = {"P": "0.1 %", "TMIn": "2 %", "T": "2 K"}
    made = vorlen.window(MQW, targets, spread, samples=2, grid=3, workers=2, check=False)
    assert made.map.layer == "InGaN well" and list(made.map.table)[:4] == [
        "T", "TMIn", "In of InGaN well", "thickness of InGaN well",
    ]
    assert made.map._axes[0].title == "deviation of T (K)"
    centre = made.map.table[(made.map.table["T"] == 0.0) & (made.map.table["TMIn"] == 0.0)].iloc[0]
    assert centre["In of InGaN well"] == made.targets.nominal[0]
    inside = (made.map.table["In of InGaN well"] - 0.225).abs() <= 0.005
    assert made.map.table.holds.tolist() == inside.tolist() and 0 < inside.sum() < 9
    assert made.map.report(tmp_path / "map.html").stat().st_size > 1e5


def test_the_map_of_two_layers_has_lines_of_both():
    wells = {"layer": "InGaN well", "In": "22.5 % +- 0.5 %"}
    targets = {"layers": [wells, {"layer": "GaN barrier", "thickness": "10 nm"}]}
    barrier = "process_stages/stage_1/stage_1_1/tau"
    made = vorlen.window(MQW, targets, {"T": "2 K", barrier: "2 %"}, samples=1, grid=2, workers=1, check=False)
    name = vorlen.Recipe.load(MQW)["process_stages/stage_1/stage_1_1/name"]
    assert made._labels == {"T": "T", barrier: f"tau of {name}"}
    assert set(made.map.layer.split(" and ")) == {"InGaN well", "GaN barrier"}
    assert {"In of InGaN well", "thickness of GaN barrier"} < set(made.map.table)
    assert any(f"+2 % of tau of {name} raises thickness of GaN barrier by " in text for text in made.sentences)


# ---- folders


def test_runs_are_found_again_by_their_recipe_whatever_window_made_them(tmp_path):
    folder = tmp_path / "runs"
    vorlen.window(LAYER, TARGETS, SPREAD, samples=6, out=folder, **QUICK)
    before = stamps(folder)
    assert len(before) == 6 + 5
    fewer = vorlen.window(LAYER, TARGETS, SPREAD, samples=3, out=folder, **QUICK)
    assert len(fewer.table) == 3 and stamps(folder) == before
    # Another spread shares the run without deviations, and a map its points.
    vorlen.window(LAYER, TARGETS, {"T": "1 K"}, samples=2, out=folder, **QUICK)
    after = stamps(folder)
    assert before.items() < after.items() and len(after) == 11 + 4
    vorlen.process_map(LAYER, {HEAT: [1029, 1031], FLOW: [0.2, 0.21]}, layer=2, out=folder, workers=1, check=False)
    assert after.items() < stamps(folder).items() and len(stamps(folder)) == 15 + 2
    # Other targets need no runs at all.
    rate = {"layers": [{"layer": 2, "rate": 0.047}]}
    again = vorlen.window(LAYER, rate, {"T": "1 K"}, samples=2, out=folder, **QUICK)
    assert len(stamps(folder)) == 17 and np.isfinite(again.table["rate of layer 2 (InGaN)"]).all()


def test_a_damaged_row_is_run_again(tmp_path):
    folder = tmp_path / "runs"
    made = vorlen.window(LAYER, TARGETS, SPREAD, samples=2, out=folder, **QUICK)
    result = folder / "rows" / "000006.result.txt"
    result.write_bytes(result.read_bytes()[:2000])
    before = stamps(folder)
    again = vorlen.window(LAYER, TARGETS, SPREAD, samples=2, out=folder, **QUICK)
    assert again.table.equals(made.table)
    assert [name for name, stamp in stamps(folder).items() if before[name] != stamp] == ["000006.result.txt"]


def test_folders_of_something_else_are_errors_and_stay(tmp_path):
    (tmp_path / "mine").mkdir()
    (tmp_path / "mine" / "recipe.xml").write_text("mine")
    with pytest.raises(FileExistsError, match="recipe.xml is not of a window or map and would be overwritten"):
        vorlen.window(LAYER, TARGETS, SPREAD, samples=1, out=tmp_path / "mine", **QUICK)
    assert [path.name for path in (tmp_path / "mine").iterdir()] == ["recipe.xml"]
    vorlen.sweep(LAYER, {HEAT: [1000]}, out=tmp_path / "sweep", progress=False, workers=1, check=False)
    table = (tmp_path / "sweep" / "table.csv").read_bytes()
    with pytest.raises(FileExistsError, match="holds a sweep of another recipe"):
        vorlen.window(layer_with(tau=50), TARGETS, SPREAD, samples=1, out=tmp_path / "sweep", **QUICK)
    assert (tmp_path / "sweep" / "table.csv").read_bytes() == table
    (tmp_path / "busy").mkdir()
    with lock_file(tmp_path / "busy" / ".lock", exclusive=True):
        with pytest.raises(vorlen.BusyError, match="another window, map or sweep is running in"):
            vorlen.window(LAYER, TARGETS, SPREAD, samples=1, out=tmp_path / "busy", **QUICK)


# ---- limits, failures


def test_after_the_time_limit_no_run_starts_and_the_next_call_continues(tmp_path):
    folder = tmp_path / "runs"
    options = QUICK | {"samples": 4, "out": folder}
    made = vorlen.window(LAYER, TARGETS, SPREAD, time_limit=1e-6, **options | {"grid": 3})
    assert list(made.table.status) == ["missing"] * 4 and made.map is None
    assert math.isnan(made.yield_) and made.interval == (0.0, 1.0) and made.sensitivities.change.isna().all()
    assert made.sentences == ["No run was finished: the yield is unknown."] and math.isfinite(made.targets.nominal[0])
    text = "4 of 4 runs were not started within the time limit and do not count; the same call with the same folder"
    assert made.warnings == [f"{text} continues"]
    made.plot(path=tmp_path / "window.svg")
    made.report(tmp_path / "window.html")
    before = stamps(folder)
    assert list(before) == ["000000.result.txt"]
    complete = vorlen.window(LAYER, TARGETS, SPREAD, **options)
    assert before.items() < stamps(folder).items() and set(complete.table.status) == {"ok"}
    # Runs that are there need no time.
    assert vorlen.window(LAYER, TARGETS, SPREAD, time_limit=1e-6, **options).table.equals(complete.table)
    more = vorlen.window(LAYER, TARGETS, SPREAD, time_limit=1e-6, **options | {"samples": 6})
    assert list(more.table.status) == ["ok"] * 4 + ["missing"] * 2 and more.yield_ == complete.yield_
    assert more.warnings[-1].startswith("2 of 6 runs were not started")


def test_a_map_after_the_time_limit_has_gaps(tmp_path):
    made = vorlen.process_map(
        LAYER, {HEAT: [1029, 1031], FLOW: [0.2, 0.21]}, layer=2, out=tmp_path / "runs", workers=1, check=False,
        time_limit=1e-6,
    )
    assert list(made.table.status) == ["ok"] + ["missing"] * 3
    assert made.warnings == [
        "3 of 4 runs were not started within the time limit; the same call with the same folder continues"
    ]
    assert made.report(tmp_path / "map.html").is_file()


@pytest.mark.parametrize(
    ("limit", "kind"), [(0, ValueError), (-1, ValueError), ("1 s", TypeError), (math.inf, ValueError)]
)
def test_wrong_time_limits_are_messages_before_anything_runs(limit, kind):
    with pytest.raises(kind, match="time_limit must be a positive number of seconds"):
        vorlen.window(LAYER, TARGETS, SPREAD, time_limit=limit)


def test_real_failures_are_counted_and_named():
    # Below 1 Pa the library rejects a pressure: with 25 % that needs four standard deviations, so it is near the limit.
    recipe = layer_with(P=1.2)
    made = vorlen.window(recipe, TARGETS, {"P": "25 %"}, samples=30, **QUICK)
    failed = made.table.index[made.table.status == "failed"]
    assert list(failed) == list(made.table.index[1.2 * (1.0 + made.table.P / 100.0) < 1.0]) and 2 <= len(failed) < 15
    text = next(text for text in made.warnings if "failed" in text)
    assert text.startswith(f"{len(failed)} of 30 runs failed and count as misses: runs {failed[0]}, {failed[1]}")
    assert "pressure" in text and len(made.table) == 30 and not made.table.holds[failed].any()
    assert made.sensitivities.below.isna().all()  # one standard deviation less is a failure, too


# ---- interrupts


CODE = """\
import sys
import vorlen
from test_window_runs import LAYER, SPREAD, TARGETS

vorlen.window(LAYER, TARGETS, SPREAD, samples=2000, out=sys.argv[1], check=False)
"""


def interrupted(words: list[object], folder: Path, number: signal.Signals) -> tuple[int, str]:
    """Exit status and standard error of a process that gets a signal after some runs."""
    settings = os.environ | {"PYTHONPATH": f"{PYTHON_PATH}:{Path(__file__).parent}"}
    process = subprocess.Popen([sys.executable, *map(str, words)], env=settings, stderr=subprocess.PIPE, text=True)
    try:
        assert wait_for(lambda: len(list((folder / "rows").glob("*.status.json"))) >= 8), process.poll()
        process.send_signal(number)
        begin = time.monotonic()
        _, error = process.communicate(timeout=60)
        assert time.monotonic() - begin < 30.0
    finally:
        process.kill()
        process.wait()
    assert not list((folder / "rows").glob(".*"))
    return process.returncode, error


def test_an_interrupt_keeps_the_runs_and_says_how_to_continue(tmp_path):
    folder = tmp_path / "runs"
    (tmp_path / "code.py").write_text(CODE)
    status, error = interrupted([tmp_path / "code.py", folder], folder, signal.SIGINT)
    assert status == -signal.SIGINT and error.splitlines()[-1] == "KeyboardInterrupt"
    (line,) = [line for line in error.splitlines() if line.startswith("window interrupted; 2005 rows: ")]
    done = int(line.partition(" rows: ")[2].partition(" ok")[0])
    assert done >= 5 and line.endswith(" missing. To continue: the same call")
    statuses = {path.name.partition(".")[0]: path.read_text() for path in (folder / "rows").glob("*.status.json")}
    recorded = {number for number, text in statuses.items() if '"row_sha256"' in text}  # others were cut off
    before = {name: stamp for name, stamp in stamps(folder).items() if name.partition(".")[0] in recorded}
    assert len(before) >= done
    again = vorlen.window(LAYER, TARGETS, SPREAD, samples=done, out=folder, **QUICK)
    assert before.items() < stamps(folder).items() and set(again.table.status) == {"ok"}  # none was run again


@pytest.mark.parametrize(
    ("name", "words", "count", "number"),
    [
        ("window", ["--targets", "targets.yaml", "--spread", "T=3 K", "--samples", "2000"], 2003, signal.SIGTERM),
        (
            "map", ["--layer", "InGaN", "--x", f"{HEAT}=1000:1001:0.02", "--y", f"{FLOW}=0.1:0.2:0.002"], 2601,
            signal.SIGINT,
        ),
    ],
)
def test_an_interrupted_command_says_what_is_done(tmp_path, monkeypatch, name, words, count, number):
    monkeypatch.chdir(tmp_path)
    Path("targets.yaml").write_text("layers: [{layer: 2, thickness: 2.84 +- 0.03 nm}]")
    words = ["-m", "vorlen", name, LAYER, *words, "--quiet", "--out", "runs", "-o", "page.html"]
    status, error = interrupted(words, tmp_path / "runs", number)
    assert status == 128 + number and not Path("page.html").exists()
    last = error.splitlines()[-1]
    assert last.startswith(f"vorlen {name}: interrupted; {count} rows: ") and last.endswith(
        " missing. To continue, give the same command again"
    )
