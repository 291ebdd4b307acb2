"""Sweeps on this machine: their rows, and runs that fail, crash or hang."""

from __future__ import annotations

import json
import os
import signal
from concurrent.futures import ProcessPoolExecutor
from concurrent.futures.process import BrokenProcessPool
from pathlib import Path

import pandas as pd
import pytest

import vorlen
from sweeps import P, T, TMIN, quiet_sweep
from vorlen._sweep import plan as _plan
from vorlen._sweep.table import ranges


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
        recipe[T] = tuple(table.loc[row.Index, [f"{T}_begin", f"{T}_end"]])
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


def test_any_executor_of_concurrent_futures_works(layer, tmp_path):
    parameters = {T: [1000, 1010, 1020]}
    serial = quiet_sweep(layer, parameters, workers=1, out=tmp_path / "serial")
    with ProcessPoolExecutor(2) as executor:
        quiet_sweep(layer, parameters, executor=executor, out=tmp_path / "pool")
    assert (tmp_path / "pool" / "table.csv").read_bytes() == (tmp_path / "serial" / "table.csv").read_bytes()
    assert len(serial) == 3


def test_rows_that_a_broken_executor_loses_are_rows_and_are_run_on_resuming(layer, tmp_path):
    with ProcessPoolExecutor(1) as executor:
        with pytest.raises(BrokenProcessPool):
            executor.submit(os.kill, executor.submit(os.getpid).result(), signal.SIGKILL).result()
        table = quiet_sweep(layer, {T: [1000, 1010]}, executor=executor, out=tmp_path / "s")
    assert list(table.status) == ["lost", "lost"]
    assert "BrokenProcessPool" in table.text[0]
    assert list(quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s").status) == ["ok", "ok"]


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
