#!/usr/bin/env python3
"""The time that tables, figures and reports of a run of thousands of layers take: python/bench/layers.py [--periods N]

Runs the multi-quantum well with 1000 periods of four layers. Exit status 1 if a table takes longer than 0.5 s. Times
are processor times of this process; those of the tables are the shortest of five measurements.
"""

from __future__ import annotations

import argparse
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))

import matplotlib  # noqa: E402

matplotlib.use("Agg")

import vorlen  # noqa: E402  # of this tree
from vorlen._pages.report_charts import charts  # noqa: E402
from vorlen._pages.report_stack import layer_stack  # noqa: E402

LIMIT = 0.5  # s, for a table
TABLES = ("layers", "interfaces")


def seconds(action: Callable[[], object], repeats: int = 1) -> float:
    """Shortest processor time of an action, s."""
    durations = []
    for _ in range(repeats):
        begin = time.process_time()
        action()
        durations.append(time.process_time() - begin)
    return min(durations)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--periods", type=int, default=1000)
    recipe = vorlen.Recipe.load(ROOT / "examples" / "ingan_gan_mqw.xml")
    recipe["process_stages/stage_1/n_periods"] = parser.parse_args().periods
    run = vorlen.run(recipe)
    print(f"{len(run.layers)} layers, {len(run.profile)} rows, {len(run.interfaces)} interfaces")

    def table(name: str) -> None:
        vars(run).pop(f"_{name}")  # the cached one
        getattr(run, name)

    durations = {name: seconds(lambda: table(name), 5) for name in TABLES}
    for kind in ("time", "depth", "relaxation"):
        durations[f"figure over {kind}" if kind != "relaxation" else "relaxation diagram"] = seconds(
            lambda: run.plot(kind).canvas.draw()
        )
    durations["charts of a report"] = seconds(lambda: charts(run._drawn))
    durations["picture of the layers"] = seconds(lambda: layer_stack(run.layers))
    with tempfile.TemporaryDirectory() as folder:
        durations["whole report"] = seconds(lambda: vorlen.report(run, Path(folder, "r.html")))
    for name, duration in durations.items():
        print(f"{name:22} {duration:6.2f} s")
    return 0 if max(durations[name] for name in TABLES) < LIMIT else 1


if __name__ == "__main__":
    sys.exit(main())
