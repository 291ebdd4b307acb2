#!/usr/bin/env python3
"""Measures the time that Python adds to the library: python/bench/overhead.py

Measures the overhead of vorlen.run over a direct call for each example, and the time to read results of 100000 rows and
of 100 MB. Exit status 1 if a limit is exceeded. Times are processor times of this process, which other load on the
machine hardly affects; each is the shortest of many alternating measurements. Everything runs on one thread.
"""

from __future__ import annotations

import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))

import vorlen  # noqa: E402
from vorlen._base.library import simulate  # noqa: E402

REPEATS = 41
OVERHEAD_LIMIT = 1e-3  # s, and
ROW_LIMIT = 4e-6  # s for each row
READING_LIMIT = 1.0  # s, for 100000 rows


def shortest(*actions: Callable[[], object], repeats: int = REPEATS) -> list[float]:
    """Shortest processor time of each action in s. The actions alternate."""
    durations: list[list[float]] = [[] for _ in actions]
    for _ in range(repeats):
        for action, found in zip(actions, durations):
            begin = time.process_time()
            action()
            found.append(time.process_time() - begin)
    return [min(found) for found in durations]


def overheads(folder: Path) -> float:
    """Prints the overhead for each example and returns the largest one, relative to its limit."""
    largest = 0.0
    print("recipe                   rows   bare call   vorlen.run    overhead   with the table and layers")
    for recipe in sorted((ROOT / "examples").glob("*.xml")):
        rows = len(vorlen.run(recipe).profile)
        bare, run, table = shortest(
            lambda: simulate(recipe, folder / "bare.txt"), lambda: vorlen.run(recipe), lambda: vorlen.run(recipe).layers
        )
        largest = max(largest, (run - bare) / (OVERHEAD_LIMIT + ROW_LIMIT * rows))
        times = [f"{1e3 * duration:8.2f} ms" for duration in (bare, run, run - bare, table - bare)]
        print(f"{recipe.stem:22} {rows:6} {' '.join(times)}")
    return largest


def reading(folder: Path, rows: int) -> float:
    """Prints the time to read a file with this number of rows and returns it in s."""
    content = vorlen.run(ROOT / "examples" / "ingan_v_defects.xml").content
    begin = content.index(b"\n", content.index(b"#time")) + 1
    lines = [line for line in content[begin:].splitlines(keepends=True) if line.endswith(b" \n")]
    path = folder / "large.txt"
    path.write_bytes(content[:begin] + b"".join(lines * (rows // len(lines) + 1)))
    large = vorlen.read(path)
    (duration,) = shortest(lambda: vorlen.read(path), repeats=7)
    size = path.stat().st_size / 1e6
    print(f"read {len(large.profile)} rows, {size:.0f} MB: {duration:.2f} s, {size / duration:.0f} MB/s")
    return duration


def main() -> int:
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        overhead = overheads(folder)
        print()
        duration = reading(folder, 100_000)
        reading(folder, 220_000)
    limit = f"{1e3 * OVERHEAD_LIMIT:g} ms and {1e6 * ROW_LIMIT:g} us per row"
    print(f"\nlargest overhead {100 * overhead:.0f} % of the limit ({limit})")
    print(f"100000 rows in {duration:.2f} s (limit {READING_LIMIT:g} s)")
    return 0 if overhead < 1 and duration < READING_LIMIT else 1


if __name__ == "__main__":
    sys.exit(main())
