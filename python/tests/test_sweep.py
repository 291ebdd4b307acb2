"""Sweeps on this machine: rows, crashes and hangs, and continuing after an interruption."""

from __future__ import annotations

import json
import os
import signal
import subprocess
import sys
import time
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

import pandas as pd
import pytest

import vorlen
from vorlen import _library, _plan
from vorlen.__main__ import main
from vorlen._table import ranges

T = "process_stages/stage_1/T"
P = "process_stages/stage_1/P"
TMIN = "process_stages/stage_1/gas_species/Q/TMIn"


@pytest.fixture
def layer(examples: Path) -> Path:
    """A recipe of one InGaN layer that runs within milliseconds."""
    return examples / "notebooks" / "ingan_layer.xml"


@pytest.fixture
def faulty_library(tmp_path_factory: pytest.TempPathFactory, monkeypatch: pytest.MonkeyPatch) -> None:
    """Worker processes use a library that crashes, hangs or exits at certain pressures."""
    library = tmp_path_factory.mktemp("library") / "libFaulty.so"
    source = Path(__file__).with_name("faulty_library.c")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source, "-ldl"], check=True)
    monkeypatch.setenv("TEST_REAL_LIBRARY", _library.find_library())
    monkeypatch.setenv("VORLEN_LIBRARY", str(library))


def quiet_sweep(recipe, parameters, **options) -> pd.DataFrame:
    if "executor" not in options:
        options.setdefault("workers", 1)  # starting a worker takes longer than the few runs here
    return vorlen.sweep(recipe, parameters, progress=False, **options)


def test_a_grid_has_every_combination_and_the_last_parameter_varies_fastest(layer, tmp_path):
    table = quiet_sweep(layer, {T: [1000, 1030], TMIN: [0.1, 0.2, 0.3]}, out=tmp_path / "s")
    assert list(zip(table[T], table[TMIN])) == [
        (1000, 0.1), (1000, 0.2), (1000, 0.3), (1030, 0.1), (1030, 0.2), (1030, 0.3),
    ]
    assert set(table.status) == {"ok"}


def test_zip_takes_the_values_together(layer, tmp_path):
    table = quiet_sweep(layer, {T: [1000, 1030], TMIN: [0.1, 0.2]}, mode="zip", out=tmp_path / "s")
    assert list(zip(table[T], table[TMIN])) == [(1000, 0.1), (1030, 0.2)]


def test_a_data_frame_has_a_row_for_each_run(layer, tmp_path):
    frame = pd.DataFrame({T: [1000.0, 1010.0], TMIN: [0.1, 0.2]}, index=[7, 3])
    table = quiet_sweep(layer, frame, out=tmp_path / "s")
    assert list(zip(table[T], table[TMIN])) == [(1000, 0.1), (1010, 0.2)]
    assert list(table.index) == [0, 1]


def test_the_values_of_a_row_are_those_of_a_separate_run(layer, tmp_path):
    table = quiet_sweep(layer, {T: [(1000, 1040), (1030, 1030)]}, out=tmp_path / "s")
    recipe = vorlen.Recipe.load(layer)
    for row in table.itertuples():
        recipe[T] = table.loc[row.Index, T]
        alone = vorlen.run(recipe)
        assert row.thickness_2 == alone.layers.thickness[2]
        assert (row.x_in_2, row.x_ga_2, row.x_al_2) == tuple(alone.layers.loc[2, ["x_in", "x_ga", "x_al"]])
        assert (row.z, row.rho_td_t, row.eps_xx_t) == tuple(alone.end[["z", "rho_td_t", "eps_xx_t"]])
        assert vorlen.read(row.result_file).layers.thickness[2] == row.thickness_2
        assert vorlen.Recipe.load(row.recipe_file) == recipe
    assert table.attrs["units"]["thickness_2"] == "nm"
    assert table.x_in_2[0] != table.x_in_2[1]  # a ramp with the same mean gives another layer


def test_v_defects_are_half_of_the_column_in_the_file(examples, tmp_path):
    table = quiet_sweep(examples / "ingan_v_defects.xml", {"stress/X_ref": [0.1]}, out=tmp_path / "s")
    assert table.v_defects_t[0] == vorlen.read(table.result_file[0]).end["rho_vd0_t"] / 2 > 0


def test_a_recipe_that_the_library_rejects_is_a_row_with_its_text(layer, tmp_path):
    table = quiet_sweep(layer, {T: [1030, -5, 1040]}, out=tmp_path / "s")
    assert list(table.status) == ["ok", "failed", "ok"]
    assert table.text[1] == "Very low or negative temperature in stage_1"  # docs/messages.md
    assert pd.isna(table.thickness_2[1]) and pd.notna(table.thickness_2[2])
    status = json.loads(Path(table.status_file[1]).read_text())
    assert (status["result"], status["text"]) == (1, table.text[1])


def test_crash_hang_and_exit_are_rows_and_the_others_are_right(layer, tmp_path, faulty_library):
    table = quiet_sweep(
        layer, {P: [40000, 40013, 40001, 40017, 40019, 40002]}, workers=1, timeout=2, out=tmp_path / "s"
    )
    assert list(table.status) == ["ok", "crashed", "ok", "timeout", "crashed", "ok"]
    assert table.text[1] == "the worker process ended by signal 11, SIGSEGV"
    assert table.text[3] == "not finished within 2 s"
    assert table.text[4] == "the worker process ended with exit status 7"
    for number in (1, 3, 4):
        status = json.loads(Path(table.status_file[number]).read_text())
        assert (status["result"], status["text"], status["result_sha256"]) == (1, table.text[number], None)
        recipe = Path(table.recipe_file[number]).read_bytes()
        assert status["recipe_sha256"] == _plan.sha256(recipe)
    recipe = vorlen.Recipe.load(layer)
    recipe[P] = 40002
    assert table.thickness_2[5] == vorlen.run(recipe).layers.thickness[2]
    assert not list((tmp_path / "s" / "rows").glob(".*"))


def test_rows_that_crashed_are_run_again_and_the_others_are_not(layer, tmp_path, faulty_library, monkeypatch):
    parameters, out = {P: [40000, 40013, -1]}, tmp_path / "s"
    first = quiet_sweep(layer, parameters, workers=1, out=out)
    assert list(first.status) == ["ok", "crashed", "failed"]
    kept = [Path(first.status_file[number]).stat().st_mtime_ns for number in (0, 2)]
    monkeypatch.setenv("VORLEN_LIBRARY", os.environ["TEST_REAL_LIBRARY"])
    second = quiet_sweep(layer, parameters, workers=1, out=out)
    assert list(second.status) == ["ok", "ok", "failed"]
    assert [Path(second.status_file[number]).stat().st_mtime_ns for number in (0, 2)] == kept


def test_a_row_is_run_again_when_its_recipe_version_or_result_is_not_that_of_the_status(layer, tmp_path):
    out = tmp_path / "s"
    first = quiet_sweep(layer, {T: [1000, 1010, 1020, 1030]}, out=out)
    for number, (key, value) in enumerate([("recipe_sha256", "0" * 64), ("version", "0.9.0")]):
        path = Path(first.status_file[number])
        path.write_text(json.dumps(json.loads(path.read_text()) | {key: value}))
    Path(first.result_file[2]).unlink()
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    second = quiet_sweep(layer, {T: [1000, 1010, 1020, 1030]}, out=out)
    after = [Path(path).stat().st_mtime_ns for path in second.status_file]
    assert [old != new for old, new in zip(before, after)] == [True, True, True, False]
    pd.testing.assert_frame_equal(first, second)


def test_resume_off_runs_all_rows_again(layer, tmp_path):
    first = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s", resume=False)
    assert all(Path(path).stat().st_mtime_ns != old for path, old in zip(first.status_file, before))


def test_a_folder_with_different_rows_is_an_error_but_rows_can_be_added(layer, tmp_path):
    first = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    with pytest.raises(ValueError, match="holds a sweep with a different recipe or different rows"):
        quiet_sweep(layer, {T: [1000, 1020]}, out=tmp_path / "s")
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    longer = quiet_sweep(layer, {T: [1000, 1010, 1020]}, out=tmp_path / "s")
    assert [Path(path).stat().st_mtime_ns for path in longer.status_file[:2]] == before
    assert len(longer) == 3


def test_an_interrupted_sweep_continues_where_it_stopped(layer, tmp_path, faulty_library):
    # Row 3 hangs forever, so it is running when the interrupt arrives, and its worker must end with the process.
    plan = vorlen.write_plan(tmp_path / "plan.json", layer, {P: [40000, 40001, 40002, 40017, 40003]})
    command = [sys.executable, "-m", "vorlen", "sweep", str(plan), "--workers", "1", "--quiet"]
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    process = subprocess.Popen(command, env=environment, stderr=subprocess.DEVNULL)
    rows = tmp_path / "plan" / "rows"
    deadline = time.monotonic() + 60
    while not (rows / "000003.xml").exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    time.sleep(0.3)
    workers = _children(process.pid)
    assert len(workers) == 1
    process.send_signal(signal.SIGINT)
    assert process.wait(30) != 0
    deadline = time.monotonic() + 10
    while Path(f"/proc/{workers[0]}").exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    assert not Path(f"/proc/{workers[0]}").exists()
    assert sorted(path.name for path in rows.glob("*.status.json")) == [f"00000{n}.status.json" for n in range(3)]
    before = (rows / "000000.status.json").stat().st_mtime_ns
    table = quiet_sweep(layer, {P: [40000, 40001, 40002, 40017, 40003]}, timeout=1, out=tmp_path / "plan")
    assert list(table.status) == ["ok", "ok", "ok", "timeout", "ok"]
    assert (rows / "000000.status.json").stat().st_mtime_ns == before


def _children(pid: int) -> list[int]:
    listing = subprocess.run(["ps", "-o", "pid=", "--ppid", str(pid)], capture_output=True, text=True, check=False)
    return [int(word) for word in listing.stdout.split()]


def test_a_worker_that_hangs_ends_when_its_parent_is_killed(layer, tmp_path, faulty_library):
    plan = vorlen.write_plan(tmp_path / "plan.json", layer, {P: [40017]})
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    process = subprocess.Popen([sys.executable, "-m", "vorlen", "sweep", str(plan), "--quiet"], env=environment)
    deadline = time.monotonic() + 60
    while not (tmp_path / "plan" / "rows" / "000000.xml").exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    (worker,) = _children(process.pid)
    process.kill()
    process.wait()
    deadline = time.monotonic() + 10
    while Path(f"/proc/{worker}").exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    assert not Path(f"/proc/{worker}").exists()


def test_any_executor_of_concurrent_futures_works(layer, tmp_path):
    parameters = {T: [1000, 1010, 1020]}
    serial = quiet_sweep(layer, parameters, workers=1, out=tmp_path / "serial")
    with ProcessPoolExecutor(2) as executor:
        quiet_sweep(layer, parameters, executor=executor, out=tmp_path / "pool")
    assert (tmp_path / "pool" / "table.csv").read_bytes() == (tmp_path / "serial" / "table.csv").read_bytes()
    assert len(serial) == 3


def test_rows_that_a_broken_executor_loses_are_rows_and_are_run_on_resuming(layer, tmp_path):
    with ProcessPoolExecutor(1) as executor:
        with pytest.raises(Exception):
            executor.submit(os.kill, executor.submit(os.getpid).result(), signal.SIGKILL).result()
        table = quiet_sweep(layer, {T: [1000, 1010]}, executor=executor, out=tmp_path / "s")
    assert list(table.status) == ["lost", "lost"]
    assert "BrokenProcessPool" in table.text[0]
    assert list(quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s").status) == ["ok", "ok"]


def test_parts_merged_are_the_table_of_the_serial_run_byte_for_byte(layer, tmp_path, capsys):
    parameters = {T: [(1000, 1020), 1030, -1.5], "process_stages/stage_1/name": ["a", 'b, "c"']}
    quiet_sweep(layer, parameters, workers=1, out=tmp_path / "serial")
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, parameters, out="parts"))
    assert main(["sweep", plan, "--count"]) == 0
    assert capsys.readouterr().out == "6\n"
    for rows in ("4:6", "0:2"):
        assert main(["sweep", plan, "--rows", rows, "--quiet"]) == 0
    assert main(["sweep", plan, "--merge"]) == 1
    assert "rows 2:4 are missing" in capsys.readouterr().err
    assert main(["sweep", plan, "--rows", "2:100", "--quiet", "--workers", "1"]) == 0
    assert main(["sweep", plan, "--merge"]) == 0
    assert "6 rows: 4 ok, 2 failed" in capsys.readouterr().out
    assert (tmp_path / "parts" / "table.csv").read_bytes() == (tmp_path / "serial" / "table.csv").read_bytes()


def test_a_plan_can_read_its_rows_from_a_table_such_as_that_of_a_sweep(layer, tmp_path):
    first = quiet_sweep(layer, {T: [(1000, 1020), 1030], TMIN: [0.1]}, out=tmp_path / "first")
    pd.read_csv(tmp_path / "first" / "table.csv")[[T, TMIN]].to_csv(tmp_path / "rows.csv", index=False)
    (tmp_path / "plan.json").write_text(json.dumps({"recipe": str(layer), "table": "rows.csv"}))
    assert main(["sweep", str(tmp_path / "plan.json"), "--quiet"]) == 0
    again = pd.read_csv(tmp_path / "plan" / "table.csv")
    assert list(again.thickness_2) == list(first.thickness_2)


@pytest.mark.parametrize(
    ("plan", "text"),
    [
        ("[]", "a plan must be a JSON object"),
        ("{", "is not valid JSON"),
        ('{"recipe": "r.xml", "parameters": {}, "colour": 1}', "unknown key 'colour'"),
        ('{"recipe": "r.xml"}', 'either "parameters" or "table"'),
        ('{"recipe": "none.xml", "parameters": {"material": ["InGaN"]}}', "No such file or directory: "),
        ('{"recipe": "r.xml", "parameters": {"material": "InGaN"}}', "expected a list of values"),
    ],
)
def test_an_invalid_plan_is_reported(layer, tmp_path, capsys, plan, text):
    (tmp_path / "r.xml").write_bytes(layer.read_bytes())
    (tmp_path / "plan.json").write_text(plan)
    assert main(["sweep", str(tmp_path / "plan.json")]) == 1
    assert text in capsys.readouterr().err


@pytest.mark.parametrize("rows", ["3", "5:5", "a:b", "-1:3"])
def test_an_invalid_range_of_rows_is_a_usage_error(tmp_path, rows):
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(tmp_path / "plan.json"), f"--rows={rows}"])
    assert ended.value.code == 2


@pytest.mark.parametrize(
    ("parameters", "options", "text"),
    [
        ({"process_stages/stage_9/T": [1000]}, {}, "can't be set to 1000: .* has no process_stages/stage_9/T"),
        ({T: []}, {}, "at least one value for each"),
        ({}, {}, "at least one parameter"),
        ({T: [1000, float("nan")]}, {}, "nan is not finite"),
        ({T: [(1, 2, 3)]}, {}, "a list must be a pair"),
        ({T: [None]}, {}, "a value must be a number"),
        ({T: 1000}, {}, "expected a list of values"),
        ({T: [1000, 1010], P: [1e4]}, {"mode": "zip"}, "the same number of values"),
        ({T: [1000]}, {"mode": "all"}, 'mode must be "grid" or "zip"'),
        ({T: [1000]}, {"timeout": 0}, "timeout must be a positive number of seconds"),
        ({T: [1000]}, {"workers": 0}, "workers must be 1 or more"),
    ],
)
def test_a_sweep_that_is_impossible_is_rejected_before_anything_runs(layer, tmp_path, parameters, options, text):
    with pytest.raises(ValueError, match=text):
        quiet_sweep(layer, parameters, out=tmp_path / "s", **options)
    assert not list((tmp_path / "s").glob("rows/*"))


def test_an_installation_without_library_is_reported_at_once(layer, tmp_path, monkeypatch):
    monkeypatch.setenv("VORLEN_LIBRARY", str(tmp_path / "none.so"))
    with pytest.raises(RuntimeError, match="the worker process could not be started: the library of VorlenSolver"):
        quiet_sweep(layer, {T: [1000]}, out=tmp_path / "s")


def test_progress_goes_to_standard_error(layer, tmp_path, capsys):
    vorlen.sweep(layer, {T: [1000, -1]}, out=tmp_path / "s")
    written = capsys.readouterr()
    assert "2/2" in written.err and "1 not ok" in written.err and written.out == ""


def test_ranges_of_rows():
    assert ranges([2, 3, 4, 7]) == "2:5 7:8"
