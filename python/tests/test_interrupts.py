"""Ctrl-C and SIGTERM end the commands with a line and without a traceback, at any moment."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest

import vorlen
from engines import wait_for
from support import tool
from sweeps import HANG, LAYER, P, T, children, command, hanging_sweep, is_running

PACKAGE = str(Path(vorlen.__file__).parents[1])
SIGNALS = [signal.SIGINT, signal.SIGTERM]
KILL_YOURSELF = "import os, signal, sys, time\nos.kill(os.getpid(), signal.{})\ntime.sleep(1)\n"


def with_module(folder: Path, name: str, text: str) -> dict[str, str]:
    """An environment in which Python finds this module before others of its name."""
    (folder / f"{name}.py").write_text(text)
    return os.environ | {"PYTHONPATH": f"{folder}:{PACKAGE}"}


def ended(words: list[str], environment: dict[str, str]) -> tuple[int, str, str]:
    """Exit status, standard output and error of a process."""
    done = subprocess.run(words, env=environment, capture_output=True, text=True, timeout=60, check=False)
    return done.returncode, done.stdout, done.stderr


@pytest.mark.parametrize("number", SIGNALS)
@pytest.mark.parametrize("words", [["sweep", "plan.json"], ["report", "r.result.txt"]], ids=lambda words: words[0])
def test_a_command_that_is_interrupted_while_it_imports_pandas(tmp_path, number, words):
    environment = with_module(tmp_path, "pandas", KILL_YOURSELF.format(number.name))
    assert ended([sys.executable, "-m", "vorlen", *words], environment) == (128 + number, "", "vorlen: interrupted\n")


def test_ctrl_c_while_the_tool_starts_the_interpreter(tmp_path):
    text = "import sys\nif '-m' in sys.orig_argv:\n    import os, signal\n    os.kill(os.getpid(), signal.SIGINT)\n"
    environment = with_module(tmp_path, "sitecustomize", text) | {"VORLEN_PYTHON": sys.executable}
    assert ended([tool(), "sweep", "plan.json"], environment) == (130, "", "vorlen: interrupted\n")


@pytest.mark.parametrize("number", SIGNALS)
def test_a_report_that_is_interrupted_while_it_is_written_leaves_no_file(tmp_path, number):
    result = tmp_path / "r.result.txt"
    vorlen.run(LAYER, result)
    before = sorted(tmp_path.iterdir())
    modules = tmp_path.parent / f"{tmp_path.name}_modules"
    modules.mkdir()
    environment = with_module(modules, "jinja2", KILL_YOURSELF.format(number.name))
    assert ended([sys.executable, "-m", "vorlen", "report", str(result)], environment) == (
        128 + number, "", "vorlen: interrupted\n",
    )
    assert sorted(tmp_path.iterdir()) == before


def test_an_interrupt_in_a_destructor_ends_the_command_too(tmp_path):
    text = "class Odd:\n    def __del__(self):\n        import os, signal\n        os.kill(os.getpid(), signal.SIGINT)\nOdd()\n"
    vorlen.run(LAYER, tmp_path / "r.result.txt")
    environment = with_module(tmp_path, "jinja2", text)
    words = [sys.executable, "-m", "vorlen", "report", str(tmp_path / "r.result.txt")]
    assert ended(words, environment) == (130, "", "vorlen: interrupted\n")


def test_importing_the_package_leaves_the_signals_of_a_program_as_they_are():
    program = (
        "import signal, sys; sys.argv[0] = '-m'; import vorlen\n"
        "print(signal.getsignal(signal.SIGINT) is signal.default_int_handler)\n"
        "print(signal.getsignal(signal.SIGTERM) is signal.SIG_DFL)"
    )
    environment = os.environ | {"PYTHONPATH": PACKAGE}
    assert ended([sys.executable, "-c", program], environment) == (0, "True\nTrue\n", "")


def test_signals_that_are_ignored_stay_ignored(tmp_path):
    """As in a script in the background, or under nohup."""
    environment = with_module(tmp_path, "pandas", KILL_YOURSELF.format("SIGINT") + "raise ImportError('continued')\n")
    ignore = "import signal, os, sys; signal.signal(signal.SIGINT, signal.SIG_IGN); os.execv(sys.argv[1], sys.argv[1:])"
    status, _, errors = ended([sys.executable, "-c", ignore, sys.executable, "-m", "vorlen", "sweep", "p"], environment)
    assert status == 1 and errors.endswith("ImportError: continued\n")


@pytest.mark.parametrize("number", SIGNALS)
def test_an_interrupted_sweep_says_what_is_done_even_if_its_workers_get_the_signal_too(
    tmp_path, faulty_library, number
):
    with hanging_sweep(tmp_path / "s", {P: [40000, 40001, HANG, 40003]}) as process:
        (worker,) = children(process.pid)
        if number == signal.SIGINT:  # Python ends by SIGTERM without a word, and the row would count as crashed
            os.kill(worker, number)
        process.send_signal(number)
        assert process.wait(30) == 128 + number
        assert wait_for(lambda: not is_running(worker), 10)
        assert process.stderr.read() == (
            "vorlen sweep: interrupted; 4 rows: 2 ok, 2 missing. To continue, give the same command again\n"
        )
    assert not list((tmp_path / "s" / "rows").glob(".*"))


def test_an_interrupted_sweep_without_a_plan_is_continued_by_the_same_command(tmp_path, faulty_library):
    folder = tmp_path / "s"
    words = [LAYER, "--set", f"{P}=40000,40001,{HANG},40003", "-o", folder, "--workers", "1", "--quiet"]
    with command(*words) as process:
        assert wait_for((folder / "rows" / "000002.xml").exists), process.poll()
        process.send_signal(signal.SIGINT)
        assert process.wait(30) == 130
        assert process.stderr.read().splitlines()[-1] == (
            "vorlen sweep: interrupted; 4 rows: 2 ok, 2 missing. To continue, give the same command again"
        )
    first = folder / "rows" / "000000.status.json"
    before = first.stat().st_mtime_ns
    with command(*words, "--timeout", "1") as process:
        assert process.wait(60) == 0
        assert process.stdout.read() == f"4 rows: 1 timeout, 3 ok\ntable in {folder / 'table.csv'}\n"
    assert first.stat().st_mtime_ns == before


@contextlib.contextmanager
def sweep_whose_worker_is_starting(folder: Path) -> Iterator[tuple[subprocess.Popen[str], int]]:
    """A sweep of two rows, and the number of its worker process, which needs a second to start."""
    starting = folder / "starting"
    text = (
        "import os, sys, time\n"
        "if 'vorlen._sweep.worker' in sys.orig_argv:\n"
        f"    open({str(starting)!r}, 'w').write(str(os.getpid()))\n"
        "    time.sleep(1)\n"
    )
    environment = with_module(folder, "sitecustomize", text)
    words = ["sweep", str(LAYER), "--set", f"{T}=1000,1010", "-o", str(folder / "s"), "--quiet", "--workers", "1"]
    words = [sys.executable, "-m", "vorlen", *words]
    with subprocess.Popen(words, env=environment, stderr=subprocess.PIPE, text=True) as process:
        assert wait_for(lambda: starting.exists() and starting.read_text())
        yield process, int(starting.read_text())


@pytest.mark.parametrize("number", SIGNALS)
def test_a_sweep_that_is_interrupted_while_its_worker_starts(tmp_path, number):
    with sweep_whose_worker_is_starting(tmp_path) as (process, worker):
        if number == signal.SIGINT:
            os.kill(worker, number)
        process.send_signal(number)
        assert process.wait(30) == 128 + number
        assert wait_for(lambda: not is_running(worker), 10)
        assert process.stderr.read() == (
            "vorlen sweep: interrupted; 2 rows: 2 missing. To continue, give the same command again\n"
        )


def test_a_worker_whose_parent_is_killed_while_it_starts_prints_nothing(tmp_path):
    with sweep_whose_worker_is_starting(tmp_path) as (process, _):
        process.kill()
        assert process.stderr.read() == ""  # which the worker has inherited: this ends with the worker


def test_a_second_ctrl_c_ends_the_sweep_as_well(tmp_path, faulty_library):
    with hanging_sweep(tmp_path / "s", {P: [HANG, 40001]}) as process:
        process.send_signal(signal.SIGINT)
        process.send_signal(signal.SIGINT)
        assert process.wait(30) == 130
        assert "Traceback" not in process.stderr.read()


def test_an_interrupted_notebook_shows_what_is_done(tmp_path, faulty_library, monkeypatch):
    """The kernel of a notebook gets the signal as Jupyter sends it."""
    manager_module = pytest.importorskip("jupyter_client.manager")
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path / "ipython"))
    monkeypatch.setenv("PYTHONPATH", PACKAGE)
    manager, client = manager_module.start_new_kernel(kernel_name="python3", cwd=str(tmp_path))
    shown: list[str] = []

    def collect(message: dict) -> None:
        content = message["content"]
        shown.append(content.get("text", "") or content.get("ename", ""))

    def interrupt() -> None:
        if wait_for((tmp_path / "s" / "rows" / "000002.xml").exists):
            manager.interrupt_kernel()

    watcher = threading.Thread(target=interrupt)
    try:
        watcher.start()
        values = {P: [40000, 40001, HANG]}
        code = f"import vorlen; vorlen.sweep({str(LAYER)!r}, {values!r}, workers=1, out='s', progress=False)"
        client.execute_interactive(code, output_hook=collect, timeout=60)
        watcher.join()
    finally:
        client.stop_channels()
        manager.shutdown_kernel(now=True)
    text = 'sweep interrupted; 3 rows: 2 ok, 1 missing. To continue: vorlen.read_sweep("s").resume()\n'
    assert text in shown and "KeyboardInterrupt" in shown
    assert "".join(shown).count("Traceback") == 0  # of workers
