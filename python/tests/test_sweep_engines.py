"""Sweeps on real engines: a Dask cluster that loses a worker, MPI, a Slurm job array. All on this machine."""

from __future__ import annotations

import json
import subprocess
import sys

import pytest

import vorlen
from engines import cannot_run, dask_cluster, environment, require_commands, require_module, slurm_cluster, wait_for
from support import tool

T = "process_stages/stage_1/T"
TEMPERATURES = range(1000, 1060, 5)  # those of the examples


@pytest.fixture(scope="module")
def serial_table(layer, tmp_path_factory) -> bytes:
    """The table of the sweep of the examples, run by one worker process."""
    out = tmp_path_factory.mktemp("serial") / "s"
    table = vorlen.sweep(layer, {T: TEMPERATURES}, workers=1, out=out, progress=False).table
    assert set(table.status) == {"ok"}
    return (out / "table.csv").read_bytes()


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


def test_the_dask_example_gives_the_serial_table(layer, examples, tmp_path, serial_table):
    require_module("distributed")
    with dask_cluster(tmp_path / "cluster", workers=1) as (scheduler_file, _):
        script = examples / "cluster" / "sweep_dask.py"
        command = [sys.executable, script, scheduler_file, layer, tmp_path / "out"]
        run = subprocess.run(command, env=environment(), capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    assert run.stdout.split() == ["ok", "12"]
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table


def test_the_mpi_example_under_mpiexec_gives_the_serial_table(layer, examples, tmp_path, serial_table):
    require_module("mpi4py")
    require_commands("mpiexec")
    mpiexec = [
        "mpiexec", "--allow-run-as-root", "--oversubscribe", "-n", "2",
        "--mca", "btl", "self,vader", "--mca", "oob_tcp_if_include", "lo",
    ]
    trial = subprocess.run([*mpiexec, "true"], env=environment(), capture_output=True, text=True, timeout=60)
    if trial.returncode != 0:
        cannot_run(f"mpiexec does not start processes here: {trial.stderr}")
    script = examples / "cluster" / "sweep_mpi.py"
    run = subprocess.run(
        [*mpiexec, sys.executable, "-m", "mpi4py.futures", script, layer, tmp_path / "out"],
        env=environment(), capture_output=True, text=True, timeout=120,
    )
    assert run.returncode == 0, run.stderr
    assert run.stdout.split() == ["ok", "12"]
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table


def test_a_slurm_array_of_packed_tasks_gives_the_serial_table(layer, examples, tmp_path, serial_table):
    plan = vorlen.write_plan(tmp_path / "plan.json", layer, {T: TEMPERATURES}, out="out")
    command = [sys.executable, "-m", "vorlen"]
    with slurm_cluster(tmp_path / "slurm") as variables:
        settings = environment(**variables, PLAN=str(plan), ROWS="5", VORLEN=tool(), VORLEN_PYTHON=sys.executable)

        def call(*words: object) -> str:
            run = subprocess.run(
                [str(word) for word in words], env=settings, cwd=tmp_path, capture_output=True, text=True, timeout=60
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
    assert (tmp_path / "out" / "table.csv").read_bytes() == serial_table
    statuses = [json.loads(path.read_text()) for path in (tmp_path / "out" / "rows").glob("*.status.json")]
    assert len(statuses) == 12 and {status["result"] for status in statuses} == {0}
