"""Sweeps, windows and maps on real engines: a Dask cluster that loses a worker, MPI, a Slurm job array. All on this machine."""

from __future__ import annotations

import json
import subprocess
import sys
from pathlib import Path

import pytest

import vorlen
from engines import (
    PYTHON_PATH, cannot_run, dask_cluster, environment, require_commands, require_module, slurm_cluster, wait_for,
)
from support import tool
from vorlen._design.window_command import window_json

T = "process_stages/stage_1/T"
TMIN = "process_stages/stage_1/gas_species/Q/TMIn"
TEMPERATURES = range(1000, 1060, 5)  # those of the examples
TARGETS = {"layers": [{"layer": 2, "thickness": "2.84 +- 0.03 nm", "In": "19 % +- 0.5 %"}]}
SPREAD = {"T": "3 K", "TMIn": "2 %"}
AXES = {T: [1000, 1020], TMIN: [0.1, 0.2]}

# What windows_on() does, for processes that MPI starts.
MPI_SCRIPT = """\
import sys
from mpi4py.futures import MPIPoolExecutor
from test_sweep_engines import windows_on

if __name__ == "__main__":
    with MPIPoolExecutor() as executor:
        print(windows_on(sys.argv[1], sys.argv[2], executor=executor))
"""


@pytest.fixture(scope="module")
def serial_table(layer, tmp_path_factory) -> bytes:
    """The table of the sweep of the examples, run by one worker process."""
    out = tmp_path_factory.mktemp("serial") / "s"
    table = vorlen.sweep(layer, {T: TEMPERATURES}, workers=1, out=out, progress=False).table
    assert set(table.status) == {"ok"}
    return (out / "table.csv").read_bytes()


def windows_on(recipe, folder, **engine) -> str:
    """The tables of a window with its map, and of a map, on an engine, as a text."""
    options = {"out": folder, "check": False} | engine
    window = vorlen.window(recipe, TARGETS, SPREAD, samples=10, seed=3, grid=3, **options)
    area = vorlen.process_map(recipe, AXES, layer=2, **options)
    assert 0.0 < window.yield_ < 1.0 and window.warnings == []
    return "".join(table.to_csv() for table in (window.table, window.sensitivities, window.map.table, area.table))


@pytest.fixture(scope="module")
def local_windows(layer, tmp_path_factory) -> str:
    """Those of windows_on() on two worker processes of this machine."""
    return windows_on(layer, tmp_path_factory.mktemp("local") / "runs", workers=2)


def test_windows_do_not_depend_on_the_number_of_workers(layer, tmp_path, local_windows):
    assert windows_on(layer, tmp_path / "runs", workers=1) == local_windows


def test_a_dask_cluster_of_which_one_worker_is_killed_gives_the_serial_table(examples, tmp_path):
    distributed = require_module("distributed")
    recipe = examples / "ingan_v_defects.xml"
    parameters = {T: [1030 + 0.02 * number for number in range(60)]}
    with dask_cluster(tmp_path / "cluster", workers=2) as (scheduler_file, workers):
        with distributed.Client(scheduler_file=str(scheduler_file)) as client:
            client.wait_for_workers(2, timeout=60)
            rows = tmp_path / "dask" / "rows"

            def kill_one_when_some_rows_are_done() -> int:
                assert wait_for(lambda: len(list(rows.glob("*.status.json"))) >= 5)
                done = len(list(rows.glob("*.status.json")))
                workers[0].kill()
                return done

            from concurrent.futures import ThreadPoolExecutor

            with ThreadPoolExecutor(1) as thread:
                killed = thread.submit(kill_one_when_some_rows_are_done)
                table = vorlen.sweep(
                    recipe, parameters, executor=client, out=tmp_path / "dask", progress=False
                ).table
                assert 5 <= killed.result() < 60, "the worker was killed in the middle"
            assert workers[0].wait(10) == -9
            assert len(client.scheduler_info()["workers"]) == 1
    assert len(table) == 60 and "lost" not in set(table.status)
    vorlen.sweep(recipe, parameters, workers=2, out=tmp_path / "serial", progress=False)
    assert (tmp_path / "dask" / "table.csv").read_bytes() == (tmp_path / "serial" / "table.csv").read_bytes()


def test_the_dask_example_gives_the_serial_table_and_windows_the_local_ones(
    layer, examples, tmp_path, serial_table, local_windows
):
    distributed = require_module("distributed")
    with dask_cluster(tmp_path / "cluster", workers=1) as (scheduler_file, _):
        script = examples / "cluster" / "sweep_dask.py"
        command = [sys.executable, script, scheduler_file, layer, tmp_path / "out"]
        run = subprocess.run(command, env=environment(), capture_output=True, text=True, timeout=120)
        with distributed.Client(scheduler_file=str(scheduler_file)) as client:
            assert windows_on(layer, tmp_path / "windows", executor=client) == local_windows
    assert run.returncode == 0, run.stderr
    assert run.stdout.split() == ["ok", "12"]
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table


def test_the_mpi_example_under_mpiexec_gives_the_serial_table_and_windows_the_local_ones(
    layer, examples, tmp_path, serial_table, local_windows
):
    require_module("mpi4py")
    require_commands("mpiexec")
    mpiexec = [
        "mpiexec", "--allow-run-as-root", "--oversubscribe", "-n", "2",
        "--mca", "btl", "self,vader", "--mca", "oob_tcp_if_include", "lo",
    ]
    trial = subprocess.run([*mpiexec, "true"], env=environment(), capture_output=True, text=True, timeout=60)
    if trial.returncode != 0:
        cannot_run(f"mpiexec does not start processes here: {trial.stderr}")

    def call(script: Path, folder: Path) -> str:
        settings = environment(PYTHONPATH=f"{PYTHON_PATH}:{Path(__file__).parent}")
        run = subprocess.run(
            [*mpiexec, sys.executable, "-m", "mpi4py.futures", script, layer, folder],
            env=settings, capture_output=True, text=True, timeout=120,
        )
        assert run.returncode == 0, run.stderr
        return run.stdout

    assert call(examples / "cluster" / "sweep_mpi.py", tmp_path / "out").split() == ["ok", "12"]
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table
    script = tmp_path / "windows.py"
    script.write_text(MPI_SCRIPT)
    assert call(script, tmp_path / "windows").rstrip("\n") == local_windows.rstrip("\n")


def test_a_slurm_array_of_packed_tasks_gives_the_serial_table_and_windows_the_local_ones(
    layer, examples, tmp_path, serial_table
):
    plan = vorlen.write_plan(tmp_path / "plan.json", layer, {T: TEMPERATURES}, out="out")
    command = [sys.executable, "-m", "vorlen"]
    with slurm_cluster(tmp_path / "slurm") as variables:
        settings = environment(**variables, PLAN=str(plan), ROWS="5", VORLEN=tool(), VORLEN_PYTHON=sys.executable)

        def call(*words: object, **more: str) -> str:
            run = subprocess.run(
                [str(word) for word in words], env=settings | more, cwd=tmp_path, capture_output=True, text=True,
                timeout=60,
            )
            assert run.returncode == 0, run.stderr
            return run.stdout

        rows = int(call(*command, "sweep", plan, "--count"))
        assert rows == len(TEMPERATURES)
        last = (rows - 1) // 5
        script = examples / "cluster" / "array.sbatch"
        answer = call("sbatch", "--parsable", f"--array=0-{last}", script).strip()
        assert wait_for(lambda: not call("squeue", "-h", "-j", answer).strip(), 120), call("squeue")
        logs = {path.name: path.read_text() for path in tmp_path.glob("sweep-*.log")}
        assert logs == {
            f"sweep-{answer}_0.log": "5 rows: 5 ok\n",
            f"sweep-{answer}_1.log": "5 rows: 5 ok\n",
            f"sweep-{answer}_2.log": "2 rows: 2 ok\n",
        }
        assert "12 rows: 12 ok" in call(*command, "sweep", plan, "--merge")

        # A window and a map: one job each does all runs, and the command without --plan does none.
        (tmp_path / "targets.yaml").write_text(json.dumps(TARGETS))
        spreads = [f"--spread={name}={size}" for name, size in SPREAD.items()]
        window = ["window", layer, "--targets", "targets.yaml", *spreads, "--samples", 10, "--seed", 3, "--json"]
        area = ["map", layer, f"--x={T}=1000,1020", f"--y={TMIN}=0.1,0.2", "--layer", "InGaN"]
        jobs = []
        for words, count in ((window, 15), (area, 4)):
            name = words[0]
            assert call(*command, *words, "--out", name, "--plan", f"{name}.json") == f"{count} runs in {name}.json\n"
            jobs.append(call("sbatch", "--parsable", "--array=0", script, PLAN=f"{name}.json", ROWS="100").strip())
        assert wait_for(lambda: not call("squeue", "-h", "-j", ",".join(jobs)).strip(), 120), call("squeue")
        without_solver = {"VORLEN_LIBRARY": str(tmp_path / "none.so")}
        made = json.loads(call(*command, *window, "--out", "window", "--quiet", **without_solver))
        page = tmp_path / "map.html"
        call(*command, *area, "--out", "map", "-o", page, "--quiet", **without_solver)
        assert '"ok":[true,true,true,true]' in page.read_text()
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table
    local = vorlen.window(layer, TARGETS, SPREAD, samples=10, seed=3, grid=0, workers=1, check=False)
    assert made == json.loads(json.dumps(window_json(local)))
    statuses = [json.loads(path.read_text()) for path in (tmp_path / "out" / "rows").glob("*.status.json")]
    assert len(statuses) == 12 and {status["result"] for status in statuses} == {0}
