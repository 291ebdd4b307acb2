"""Worker processes: an answer reaches the row that asked for it, or none."""

from __future__ import annotations

import json
import multiprocessing
import signal
import threading
from concurrent.futures import ThreadPoolExecutor

import pytest

import vorlen
from engines import wait_for
from sweeps import HANG, P, T, children, is_running, quiet_sweep
from vorlen._sweep import pool as _pool
from vorlen._sweep.plan import make_task
from vorlen._sweep.plan_values import make_plan

ASK = _pool.WorkerProcess.ask


@pytest.fixture
def worker():
    started = _pool.WorkerProcess()
    yield started
    started.close()


@pytest.fixture
def tasks(layer, tmp_path):
    """The tasks of three rows whose results differ."""
    quiet_sweep(layer, {T: [850, 900, 950]}, out=tmp_path / "s")
    plan = make_plan(layer, {T: [850, 900, 950]})
    return [make_task(plan, tmp_path / "s", number, values, resume=False) for number, values in enumerate(plan.rows())]


def test_after_an_exception_the_worker_is_replaced_and_no_row_gets_the_answer_of_another(tasks, monkeypatch):
    expected = [_pool.run_row(task)["values"]["x_in_2"] for task in tasks]
    assert len(set(expected)) == 3
    read = _pool.WorkerProcess._read_line
    for error in (KeyboardInterrupt, OverflowError, MemoryError):
        used = _pool._thread.worker

        def fail(self, timeout, error=error):
            raise error

        monkeypatch.setattr(_pool.WorkerProcess, "_read_line", fail)
        with pytest.raises(error):
            _pool.run_row(tasks[0])
        monkeypatch.setattr(_pool.WorkerProcess, "_read_line", read)
        assert used.process.poll() is not None
        assert [_pool.run_row(task)["values"]["x_in_2"] for task in tasks[1:]] == expected[1:]
        assert _pool._thread.worker is not used


def test_an_interrupt_while_a_row_runs_ends_its_worker(layer, tmp_path, faulty_library, monkeypatch):
    monkeypatch.setattr(_pool, "_thread", threading.local())  # no worker with the usual library
    quiet_sweep(layer, {P: [40000]}, out=tmp_path / "s")
    plan = make_plan(layer, {P: [40000, HANG]})
    tasks = [make_task(plan, tmp_path / "s", n, values, resume=False) for n, values in enumerate(plan.rows())]
    # A signal, unlike _thread.interrupt_main, also ends a wait for the answer of the worker.
    interrupt = threading.Timer(1.0, signal.pthread_kill, (threading.main_thread().ident, signal.SIGINT))
    interrupt.start()
    with pytest.raises(KeyboardInterrupt):
        _pool.run_row(tasks[1])
    assert _pool.run_row(tasks[0])["status"] == "ok"


def test_an_answer_to_another_request_is_an_error_and_ends_the_worker(worker, tasks, monkeypatch):
    assert worker.ask(tasks[0])["status"] == "ok"
    worker.unread = json.dumps({"id": 1, "row": {"status": "ok"}}).encode() + b"\n"  # an answer that nobody read
    with pytest.raises(RuntimeError, match="answered another request"):
        worker.ask(tasks[1])
    assert worker.process.poll() is not None


def test_a_worker_that_ended_between_two_rows_is_replaced(tasks):
    assert _pool.run_row(tasks[0])["status"] == "ok"
    _pool._thread.worker.process.kill()
    _pool._thread.worker.process.wait()
    row = _pool.run_row(tasks[1])
    assert row["status"] == "crashed" and row["text"] == "the worker process ended by signal 9, SIGKILL"
    assert _pool.run_row(tasks[1])["status"] == "ok"


def test_a_very_long_timeout_is_no_error(worker, tasks):
    assert worker.ask(tasks[0] | {"timeout": 1e300})["status"] == "ok"


def test_a_request_larger_than_a_pipe_arrives(worker, tasks):
    values = tasks[0]["values"] | {"process_stages/stage_1/name": "n" * 1_000_000}
    assert worker.ask(tasks[0] | {"values": values})["status"] in ("ok", "failed")


def _ask_in_child(task, answers) -> None:
    answers.put((_pool.run_row(task)["values"], _pool._thread.worker.process.pid))


def test_a_forked_process_has_a_worker_of_its_own(tasks):
    values = _pool.run_row(tasks[0])["values"]
    mine = _pool._thread.worker
    context = multiprocessing.get_context("fork")
    answers = context.Queue()
    child = context.Process(target=_ask_in_child, args=(tasks[1], answers))
    child.start()
    others, pid = answers.get(timeout=60)
    child.join(30)
    assert pid != mine.process.pid and others != values
    assert mine.process.poll() is None and _pool.run_row(tasks[0])["values"] == values


def test_the_workers_of_an_executor_end_with_its_threads(layer, tmp_path):
    import os

    before = set(children(os.getpid()))
    with ThreadPoolExecutor(2) as executor:
        quiet_sweep(layer, {T: [1000, 1010, 1020]}, executor=executor, out=tmp_path / "s")
        started = set(children(os.getpid())) - before
        assert started
    assert wait_for(lambda: not any(is_running(pid) for pid in started), 10)


def test_a_sweep_on_this_machine_leaves_no_process(layer, tmp_path):
    import os

    before = set(children(os.getpid()))
    vorlen.sweep(layer, {T: [1000, 1010]}, workers=2, out=tmp_path / "s", progress=False)
    assert set(children(os.getpid())) <= before


@pytest.fixture
def lost_worker(monkeypatch):
    """Every worker is killed before it has looked at its row."""
    monkeypatch.setattr(_pool, "_thread", threading.local())

    def lose(self, task):
        self.close()
        raise _pool.WorkerEnded("timeout", "not finished within 1 s")

    monkeypatch.setattr(_pool.WorkerProcess, "ask", lose)


def test_a_finished_row_stays_if_its_worker_is_lost_before_it_has_checked_the_row(layer, tmp_path, lost_worker):
    with pytest.MonkeyPatch.context() as usual:
        usual.setattr(_pool.WorkerProcess, "ask", ASK)
        quiet_sweep(layer, {T: [1000, -5]}, out=tmp_path / "s")
    files = {path: path.read_bytes() for path in (tmp_path / "s").rglob("*") if path.is_file()}
    assert list(quiet_sweep(layer, {T: [1000, -5]}, out=tmp_path / "s").status) == ["ok", "failed"]
    assert {path: path.read_bytes() for path in (tmp_path / "s").rglob("*") if path.is_file()} == files
    assert list(quiet_sweep(layer, {T: [1000, -5]}, out=tmp_path / "s", resume=False).status) == ["timeout"] * 2


def test_the_status_of_a_lost_row_is_that_of_its_own_recipe(layer, tmp_path, lost_worker):
    out = tmp_path / "s"
    with pytest.MonkeyPatch.context() as usual:
        usual.setattr(_pool.WorkerProcess, "ask", ASK)
        quiet_sweep(layer, {T: [1000]}, out=out)
    for folder in (out, tmp_path / "new"):
        assert list(quiet_sweep(layer, {T: [1010]}, out=folder, resume=False).status) == ["timeout"]
        assert list(vorlen.read_sweep(folder).table.status) == ["timeout"]
        assert vorlen.Recipe.load(folder / "rows" / "000000.xml")[T] == (1010, 1010)
        assert sorted(path.name for path in (folder / "rows").iterdir()) == ["000000.status.json", "000000.xml"]


def test_a_row_that_is_lost_after_its_base_recipe_was_changed_is_an_error(layer, tmp_path, lost_worker):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000]}, out=out)
    (out / "recipe.xml").write_bytes(layer.read_bytes().replace(b'"0.2"', b'"0.3"'))
    row = _pool.run_row(make_task(make_plan(layer, {T: [900, 950]}), out, 1, {T: 950}, resume=True) | {
        "base_sha256": "0" * 64
    })
    assert row["status"] == "error" and "not finished within 1 s" in row["text"]
    assert "recipe.xml was changed by another program" in row["text"]
