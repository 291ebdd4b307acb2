#!/usr/bin/env python3
"""How much faster a sweep is on two processors than on one: python/bench/sweep.py [--runs N]

Runs the same sweep of the multi-quantum well with one worker process, then with two, including the start of the workers.
Both tables must be identical. Exit status 1 if the speed-up is below 1.9.
"""

from __future__ import annotations

import argparse
import os
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))

import vorlen  # noqa: E402  # of this tree

REQUIRED = 1.9
GALLIUM = "process_stages/stage_1/stage_1_1/gas_species/Q/TEGa"


def seconds(workers: int, runs: int, out: Path) -> float:
    """Wall time of the sweep, s."""
    flows = [0.4 + 0.2 * number / runs for number in range(runs)]
    begin = time.perf_counter()
    sweep = vorlen.sweep(
        ROOT / "examples" / "ingan_gan_mqw.xml", {GALLIUM: flows}, workers=workers, out=out, progress=False
    )
    end = time.perf_counter()
    print(
        f"{workers} worker{'s' * (workers > 1)}: {end - begin:7.2f} s, {1e3 * (end - begin) / runs:6.2f} ms per run, "
        f"{(sweep.table.status == 'ok').sum()} of {runs} ok",
        flush=True,
    )
    return end - begin


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=1000)
    runs = parser.parse_args().runs
    with tempfile.TemporaryDirectory() as folder:
        serial, parallel = Path(folder, "serial"), Path(folder, "parallel")
        speed_up = seconds(1, runs, serial) / seconds(2, runs, parallel)
        same = (serial / "table.csv").read_bytes() == (parallel / "table.csv").read_bytes()
    print(
        f"speed-up {speed_up:.2f} on {os.cpu_count()} processors, load of the machine {os.getloadavg()[0]:.1f}; "
        f"tables {'the same' if same else 'DIFFER'}"
    )
    return 0 if same and speed_up >= REQUIRED else 1


if __name__ == "__main__":
    sys.exit(main())
