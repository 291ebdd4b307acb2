"""What the tests of sweeps share: a quick recipe, and processes of `vorlen sweep` that end with the test."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pandas as pd

import vorlen
from engines import wait_for

ROOT = Path(__file__).resolve().parents[2]
LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one InGaN layer that runs within milliseconds
T = "process_stages/stage_1/T"
P = "process_stages/stage_1/P"
TMIN = "process_stages/stage_1/gas_species/Q/TMIn"
NAME = "process_stages/stage_1/name"
HANG = 40017  # Pa: there faulty_library.c hangs


def quiet_sweep(recipe, parameters, **options) -> pd.DataFrame:
    """The table of a sweep."""
    return small_sweep(recipe, parameters, **options).table


def small_sweep(recipe, parameters, **options) -> vorlen.Sweep:
    if "executor" not in options:
        options.setdefault("workers", 1)  # starting a worker takes longer than the few runs here
    return vorlen.sweep(recipe, parameters, progress=False, **options)


def children(pid: int) -> list[int]:
    """The processes that a process has started and that have not ended."""
    return [int(word) for word in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()] + [
        int(word)
        for task in Path(f"/proc/{pid}/task").iterdir()
        if task.name != str(pid)
        for word in (task / "children").read_text().split()
    ]


def is_running(pid: int) -> bool:
    """True for a process that exists and is not a zombie."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


@contextlib.contextmanager
def command(*words: object, **options) -> Iterator[subprocess.Popen[str]]:
    """`vorlen sweep` with these words. It and its workers end with the block; otherwise the test fails."""
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    process = subprocess.Popen(
        [sys.executable, "-m", "vorlen", "sweep", *map(str, words)],
        env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options,
    )
    workers: list[int] = []
    try:
        yield process
    finally:
        if process.poll() is None:
            workers = children(process.pid)
            process.kill()
        process.communicate()
        ended = wait_for(lambda: not any(is_running(worker) for worker in workers), 10)
        for worker in workers:
            if is_running(worker):
                os.kill(worker, signal.SIGKILL)
        assert ended, "a worker process outlived its parent"


@contextlib.contextmanager
def hanging_sweep(folder: Path, parameters: dict, *words: object) -> Iterator[subprocess.Popen[str]]:
    """`vorlen sweep` in the folder NAME, while the row with the pressure HANG runs. NAME.json is its plan."""
    plan = vorlen.write_plan(folder.with_suffix(".json"), LAYER, parameters)
    number = parameters[P].index(HANG)
    with command(plan, "--workers", "1", "--quiet", *words) as process:
        assert wait_for((folder / "rows" / f"{number:06d}.xml").exists), process.poll()
        yield process
