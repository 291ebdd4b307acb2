"""The object that a sweep returns, and what it is given: executors, workers, progress."""

from __future__ import annotations

import inspect
import os
import shutil
import signal
import subprocess
import sys
import threading
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from sweeps import NAME, P, T, TMIN, quiet_sweep, small_sweep
from vorlen._base.arguments import given_executor

GRID = {T: [1000, 1020, 1040], TMIN: [0.1, 0.2]}


@pytest.fixture(scope="module")
def sweep(layer, tmp_path_factory) -> vorlen.Sweep:
    """Six rows of a grid."""
    return small_sweep(layer, GRID, out=tmp_path_factory.mktemp("sweep") / "s")


@pytest.fixture(scope="module")
def troubled(layer, tmp_path_factory) -> vorlen.Sweep:
    """Three rows; the second one fails."""
    return small_sweep(layer, {T: [1000, -5, 1020]}, out=tmp_path_factory.mktemp("troubled") / "s")


def test_options_are_named():
    for function, count in ((vorlen.sweep, 2), (vorlen.write_plan, 3), (vorlen.Sweep.resume, 1)):
        kinds = [one.kind for one in inspect.signature(function).parameters.values()]
        assert kinds.count(inspect.Parameter.POSITIONAL_OR_KEYWORD) == count
        assert set(kinds[count:]) == {inspect.Parameter.KEYWORD_ONLY}


def test_the_columns_of_the_table_and_of_its_file(sweep):
    results = ["z", "rho_td_t", "rho_td_z", "v_defects_t", "eps_xx_t"]
    layers = [f"{name}_{layer}" for layer in (1, 2) for name in ("thickness", "x_in", "x_ga", "x_al")]
    columns = [T, TMIN, "status", "text", *results, *layers, "recipe_file", "result_file", "status_file"]
    assert list(sweep.table.columns) == columns
    assert sweep.table.index.name == "row" and list(sweep.table.index) == list(range(6))
    header = (sweep.folder / "table.csv").read_text().split("\n")[0]
    assert header.split(",") == ["row", *columns]
    assert sweep.table.attrs["units"] == {
        T: "K", TMIN: "sccm", "z": "nm", "rho_td_t": "cm^-2", "rho_td_z": "cm^-2", "v_defects_t": "cm^-2",
        "eps_xx_t": "1",
        **{name: "nm" if name.startswith("thickness") else "1" for name in layers},
    }


def test_a_ramp_has_two_columns_of_numbers(layer, tmp_path):
    table = quiet_sweep(layer, {T: [(1000, 1020), 1030], NAME: ["a"]}, out=tmp_path / "s")
    assert list(table.columns[:3]) == [f"{T}_begin", f"{T}_end", NAME]
    assert table[f"{T}_begin"].dtype == table[f"{T}_end"].dtype == float
    assert list(zip(table[f"{T}_begin"], table[f"{T}_end"])) == [(1000, 1020), (1030, 1030)]
    assert table.attrs["units"][f"{T}_end"] == "K" and NAME not in table.attrs["units"]
    lines = (tmp_path / "s" / "table.csv").read_text().split("\n")
    assert lines[0].startswith(f"row,{T}_begin,{T}_end,") and lines[1].startswith("0,1000.0,1020.0,a,ok,")
    again = quiet_sweep(layer, table[[f"{T}_begin", f"{T}_end"]], out=tmp_path / "again")
    assert list(again.x_in_2) == list(table.x_in_2)
    timeline = vorlen.Recipe.load(table.recipe_file[0]).timeline()
    assert (timeline.T_begin[2], timeline.T_end[2]) == (1000, 1020)


def test_the_table_is_a_copy(sweep):
    table = sweep.table
    table["x_in_2"] = 0.0
    table.attrs["units"]["x_in_2"] = "wrong"
    assert (sweep.table.x_in_2 > 0).all() and sweep.table.attrs["units"]["x_in_2"] == "1"


def test_each_run_is_that_of_its_row(sweep):
    for row, run in zip(sweep.table.itertuples(), sweep.runs, strict=True):
        assert run.recipe[T] == (sweep.table.loc[row.Index, T],) * 2
        assert run.layers.x_in[2] == row.x_in_2
        assert str(run.path) == row.result_file and not run.failed and run.scheme == "staged"
        assert run.wall_time > 0


def test_runs_are_a_sequence(sweep):
    assert len(sweep) == len(sweep.runs) == 6
    assert sweep.runs[-1].recipe[TMIN] == (0.2, 0.2) and sweep.runs[-1].recipe[T] == (1040, 1040)
    part = sweep.runs[1::2]
    assert len(part) == 3 and [run.recipe[TMIN][0] for run in part] == [0.2] * 3
    assert part[-1].content == sweep.runs[5].content
    assert sweep.runs[np.int64(2)].content == sweep.runs[2].content
    for place in (6, -7):
        with pytest.raises(IndexError, match=f"row {place} does not exist: there are 6 rows"):
            sweep.runs[place]
    with pytest.raises(TypeError):
        sweep.runs["1"]


def test_a_row_without_result_has_no_run(troubled):
    text = "row 1 has no result, its status is failed: Very low or negative temperature in stage_1"
    with pytest.raises(vorlen.SimulationError, match=text):
        troubled.runs[1]
    assert troubled.runs[2].recipe[T] == (1020, 1020)
    assert list(troubled.failed.index) == [1] and list(troubled.failed.status) == ["failed"]


@pytest.mark.parametrize("endings", [[".result.txt"], [".result.txt", ".status.json"]])
def test_a_run_whose_files_were_swapped_is_an_error(layer, tmp_path, endings):
    sweep = small_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    for ending in endings:
        one, other = (tmp_path / "s" / "rows" / f"00000{n}{ending}" for n in (0, 1))
        shutil.move(one, tmp_path / "kept")
        shutil.move(other, one)
        shutil.move(tmp_path / "kept", other)
    for number in (0, 1):
        with pytest.raises(vorlen.ResultFileError, match=f"is not the result of row {number}"):
            sweep.runs[number]
    assert list(sweep.resume(workers=1, progress=False).table.status) == ["ok", "ok"]
    assert [run.recipe[T][0] for run in sweep.runs] == [1000, 1010]
    alone = vorlen.run(vorlen.Recipe.load(layer).set(T, 1000))
    assert sweep.runs[0].content == alone.content


def test_resume_runs_what_is_not_finished(layer, tmp_path, faulty_library, monkeypatch):
    sweep = small_sweep(layer, {P: [40000, 40013, -1]}, out=tmp_path / "s")
    assert list(sweep.failed.status) == ["crashed", "failed"]
    before = [(tmp_path / "s" / "rows" / f"00000{n}.status.json").stat().st_mtime_ns for n in range(3)]
    monkeypatch.setenv("VORLEN_LIBRARY", os.environ["TEST_REAL_LIBRARY"])
    assert sweep.resume(workers=1, progress=False) is sweep
    assert list(sweep.table.status) == ["ok", "ok", "failed"] and sweep.runs[1].failed is False
    after = [(tmp_path / "s" / "rows" / f"00000{n}.status.json").stat().st_mtime_ns for n in range(3)]
    assert [old != new for old, new in zip(before, after)] == [False, True, False]
    assert pd.read_csv(tmp_path / "s" / "table.csv").status.to_list() == ["ok", "ok", "failed"]


def test_the_folder_of_a_sweep_can_be_opened_again(sweep, tmp_path, monkeypatch):
    again = vorlen.read_sweep(sweep.folder)
    pd.testing.assert_frame_equal(again.table, sweep.table)
    assert again.table.attrs == sweep.table.attrs and again.runs[3].content == sweep.runs[3].content
    shutil.copytree(sweep.folder, tmp_path / "copy")
    (tmp_path / "copy" / "rows" / "000004.status.json").unlink()
    monkeypatch.chdir(tmp_path)
    copy = vorlen.read_sweep("copy")
    assert list(copy.failed.index) == [4] and list(copy.failed.status) == ["missing"]
    monkeypatch.chdir("/")
    assert copy.runs[0].content == sweep.runs[0].content  # the folder is still found
    assert set(copy.resume(workers=1, progress=False).table.status) == {"ok"}
    assert Path(copy.table.result_file[4]).is_file()


@pytest.mark.parametrize("content", [None, "", "[]", "{}", '{"recipe": "recipe.xml", "out": "."}'])
def test_a_folder_without_a_sweep_can_t_be_opened(tmp_path, content):
    if content is not None:
        (tmp_path / "plan.json").write_text(content)
    with pytest.raises(vorlen.PlanError, match=f"{tmp_path} does not hold a sweep"):
        vorlen.read_sweep(tmp_path)


def test_a_temporary_folder_lives_as_long_as_the_sweep_and_its_runs(layer):
    sweep = small_sweep(layer, {T: [1000, 1010]})
    folder = sweep.folder
    assert (folder / "table.csv").is_file() and "temporary folder" in repr(sweep)
    run, runs = sweep.runs[1], sweep.runs
    del sweep
    assert runs[0].path.is_file()
    del runs
    assert run.path.is_file()
    del run
    assert not folder.exists()


def test_a_temporary_folder_is_removed_when_python_ends(layer):
    options = "workers=1, progress=False"
    code = f"import vorlen; s = vorlen.sweep({str(layer)!r}, {{{T!r}: [1000]}}, {options}); print(s.folder)"
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    done = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True, check=True)
    assert done.stdout.startswith("/") and not Path(done.stdout.strip()).exists() and done.stderr == ""


def dotted(path: str) -> str:
    """The path as a dataset has it."""
    return ".".join(path.split("/"))


def test_a_grid_as_a_dataset(layer, sweep):
    pytest.importorskip("xarray")
    data = sweep.to_xarray()
    t, tmin = dotted(T), dotted(TMIN)
    assert dict(data.sizes) == {t: 3, tmin: 2}
    assert list(data[t].values) == [1000, 1020, 1040] and list(data[tmin].values) == [0.1, 0.2]
    assert data[t].attrs == {"long_name": T, "units": "K"} and data.thickness_2.attrs == {"units": "nm"}
    for row in sweep.table.to_dict("records"):
        assert float(data.x_in_2.sel({t: row[T], tmin: row[TMIN]})) == row["x_in_2"]
        assert str(data.status.sel({t: row[T], tmin: row[TMIN]}).values) == "ok"
    assert "result_file" not in data


def test_ramps_texts_and_zipped_values_as_a_dataset(layer, tmp_path):
    pytest.importorskip("xarray")
    parameters = {NAME: ["a", "b"], T: [(1000, 1020), -5]}
    sweep = small_sweep(layer, parameters, mode="zip", out=tmp_path / "zip")
    data = sweep.to_xarray()
    t, name = dotted(T), dotted(NAME)
    assert dict(data.sizes) == {"row": 2} and data[f"{t}_end"].dims == ("row",)
    assert list(data[f"{t}_end"].values) == [1020, -5] and list(data[name].values) == ["a", "b"]
    assert np.isnan(data.x_in_2.values[1]) and data.x_in_2.values[0] == sweep.table.x_in_2[0]
    grid = small_sweep(layer, parameters, out=tmp_path / "grid").to_xarray()
    assert dict(grid.sizes) == {name: 2, t: 2}
    assert grid[f"{t}_begin"].dims == (t,) and list(grid[f"{t}_begin"].values) == [1000, -5]
    assert grid.status.values.tolist() == [["ok", "failed"]] * 2


@pytest.mark.parametrize("mode", ["grid", "zip"])
def test_a_dataset_can_be_written_as_netcdf(layer, tmp_path, mode):
    pytest.importorskip("xarray")
    netcdf = pytest.importorskip("netCDF4")
    parameters = {
        NAME: ["a", "µ b"], T: [(1000, 1020), -5], "NonstSurfChem:process_stages:stage_1:P": [4e4, 5e4],
        "chemistry/Kd_In/@Tn": [0, 0.5],
    }
    sweep = small_sweep(layer, parameters, mode=mode, out=tmp_path / "s")
    sweep.to_xarray().to_netcdf(tmp_path / "s.nc")
    t, pressure, tn = dotted(T), "NonstSurfChem:process_stages:stage_1:P", "chemistry.Kd_In.@Tn"
    dimensions = (dotted(NAME), t, pressure, tn) if mode == "grid" else ("row",)
    with netcdf.Dataset(tmp_path / "s.nc") as file:
        assert file["x_in_2"].dimensions == dimensions and file["x_in_2"].units == "1"
        values = np.ma.filled(file["x_in_2"][:], np.nan).ravel()
        np.testing.assert_array_equal(values, sweep.table.x_in_2)
        assert np.isnan(values).sum() == len(values) / 2  # those at -5 K
        assert file["status"][:].ravel().tolist() == list(sweep.table.status)
        assert file["text"][:].ravel().tolist() == list(sweep.table.text)
        assert file[dotted(NAME)][:].tolist() == ["a", "µ b"]
        assert file[f"{t}_end"][:].tolist() == [1020, -5]
        assert (file[f"{t}_end"].units, file[f"{t}_end"].long_name) == ("K", f"{T}_end")
        assert file[pressure][:].tolist() == [4e4, 5e4] and file[tn][:].tolist() == [0, 0.5]


def test_texts_of_a_sweep(troubled):
    assert repr(troubled) == f"<Sweep, 3 rows: 2 ok, 1 failed, {troubled.folder}>"
    page = troubled._repr_html_()
    assert page.startswith(f"<p>Sweep, 3 rows: 2 ok, 1 failed, {troubled.folder}</p>") and "<table" in page
    assert repr(troubled.runs[1:]) == f"<2 runs of {troubled!r}>"


@pytest.mark.parametrize("workers", [2.5, 2.0, True, "2", [2]])
def test_workers_must_be_an_integer(layer, tmp_path, workers):
    with pytest.raises(TypeError, match="workers must be a positive integer or None"):
        vorlen.sweep(layer, {T: [1000]}, workers=workers, out=tmp_path / "s")
    assert not (tmp_path / "s").exists()


def test_workers_and_executor_exclude_each_other(layer, tmp_path):
    with ThreadPoolExecutor(1) as executor:
        with pytest.raises(ValueError, match="give either workers or executor, not both"):
            vorlen.sweep(layer, {T: [1000]}, workers=1, executor=executor, out=tmp_path / "s")
        with pytest.raises(ValueError, match="an executor needs out"):
            vorlen.sweep(layer, {T: [1000]}, executor=executor)
    assert not (tmp_path / "s").exists()


@pytest.mark.parametrize("executor", [2, "dask", ThreadPoolExecutor, object()])
def test_what_is_not_an_executor_is_rejected(layer, tmp_path, executor):
    with pytest.raises(TypeError, match="executor must be a Dask client or have submit()"):
        vorlen.sweep(layer, {T: [1000]}, executor=executor, out=tmp_path / "s")
    assert not (tmp_path / "s").exists()


class Inline:
    """Has submit() and nothing else, and runs in the calling thread."""

    def submit(self, function, *arguments):
        future = Future()
        future.set_result(function(*arguments))
        return future


def test_whatever_has_submit_is_an_executor(layer, tmp_path):
    assert list(quiet_sweep(layer, {T: [1000, 1010]}, executor=Inline(), out=tmp_path / "s").status) == ["ok", "ok"]
    with ThreadPoolExecutor(1) as pool:
        assert given_executor(None, pool, "s") is pool


@pytest.mark.parametrize("option", ["progress", "resume"])
@pytest.mark.parametrize("value", [None, 1, "no"])
def test_flags_are_true_or_false(layer, tmp_path, option, value):
    with pytest.raises(TypeError, match=f"{option} must be True or False"):
        vorlen.sweep(layer, {T: [1000]}, out=tmp_path / "s", **{option: value})


def test_an_interrupt_in_python_says_what_is_done_and_how_to_continue(layer, tmp_path, capsys):
    class Interrupted(Inline):
        def __init__(self) -> None:
            self.left = 2

        def submit(self, function, *arguments):
            self.left -= 1
            if self.left < 0:
                raise KeyboardInterrupt
            return super().submit(function, *arguments)

    out = tmp_path / "s"
    with pytest.raises(KeyboardInterrupt):
        vorlen.sweep(layer, {T: [1000, 1010, 1020]}, executor=Interrupted(), out=out, progress=False)
    assert capsys.readouterr().err == (
        f'sweep interrupted; 3 rows: 2 ok, 1 missing. To continue: vorlen.read_sweep("{out}").resume()\n'
    )
    sweep = vorlen.read_sweep(out)
    with pytest.raises(KeyboardInterrupt):
        sweep.resume(executor=Interrupted(), progress=False)
    assert "To continue: the same call" in capsys.readouterr().err
    assert set(sweep.resume(workers=1, progress=False).table.status) == {"ok"}


class InThreads:
    """An executor that runs a row when it is released, and is interrupted when the second row is submitted.

    A moment later it calls the function given.
    """

    def __init__(self, function) -> None:
        self.timer = threading.Timer(0.5, function)
        self.released = threading.Event()
        self.futures: list[Future] = []

    def submit(self, function, *arguments):
        if self.futures:
            self.timer.start()
            raise KeyboardInterrupt
        future = Future()
        assert future.set_running_or_notify_cancel()
        self.futures.append(future)
        threading.Thread(target=self._run, args=(future, function, arguments)).start()
        return future

    def _run(self, future, function, arguments) -> None:
        self.released.wait(60)
        future.set_result(function(*arguments))


def test_after_an_interrupt_the_folder_stays_locked_until_the_runs_of_an_executor_have_ended(layer, tmp_path, capsys):
    out, busy = tmp_path / "s", []

    def look() -> None:
        try:
            small_sweep(layer, {T: [1000, 1010, 1020]}, executor=Inline(), out=out)
        except vorlen.BusyError as error:
            busy.append(str(error))
        executor.released.set()

    executor = InThreads(look)
    with pytest.raises(KeyboardInterrupt):
        vorlen.sweep(layer, {T: [1000, 1010, 1020]}, executor=executor, out=out, progress=False)
    assert executor.futures[0].done()
    executor.timer.join(60)
    assert busy == [f"another sweep is running in {out}"]
    assert capsys.readouterr().err == (
        "waiting for the run that can't be cancelled; Ctrl-C stops waiting\n"
        f'sweep interrupted; 3 rows: 1 ok, 2 missing. To continue: vorlen.read_sweep("{out}").resume()\n'
    )
    assert list(vorlen.read_sweep(out).table.status) == ["ok", "missing", "missing"]


def test_a_second_interrupt_does_not_wait(layer, tmp_path, capsys):
    executor = InThreads(lambda: signal.pthread_kill(threading.main_thread().ident, signal.SIGINT))
    with pytest.raises(KeyboardInterrupt):
        vorlen.sweep(layer, {T: [1000, 1010]}, executor=executor, out=tmp_path / "s", progress=False)
    executor.timer.cancel()
    assert not executor.futures[0].done()
    assert "sweep interrupted; 2 rows: 2 missing" in capsys.readouterr().err
    executor.released.set()
    executor.futures[0].result(60)
