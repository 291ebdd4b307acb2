#!/usr/bin/env python3
"""How reliable and how quick designs are: python/bench/design.py [--reachable N] [--unreachable N] [--workers N]

1. The structures of the gallery with the targets in examples/targets, from the examples and from starts that are off by
   a factor of three in all metal flows and by 40 K: runs, wall time including the start of the worker processes,
   largest deviations.
2. Random reachable targets: a recipe is run with random values of its knobs, so that its results can be reached; the
   design starts from the unchanged recipe. All must be reached.
3. Random unreachable targets: beyond the extremes of a scan of the knobs within the limits, or two targets for a knob
   that can't serve both. All must be recognised, and the best values must be as good as those of the scan.

Exit status 1 if one of these fails.
"""

from __future__ import annotations

import argparse
import math
import sys
import tempfile
import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))

import vorlen  # noqa: E402  # of this tree
from vorlen._design.knobs import KNOBS  # noqa: E402
from vorlen._sweep.pool import LocalPool  # noqa: E402

EXAMPLES = ROOT / "examples"
RUNS_MAX, SECONDS_MAX = 25, 6.0  # of a structure
METALS = ("TMIn", "TMGa", "TEGa", "TMAl")
COLUMNS = {"thickness": "thickness", "rate": "mean_rate", "In": "x_in", "In middle": "x_in_mid", "In final": "x_in_end",
           "Al": "x_al", "strain": "eps_xx_z", "dislocations": "rho_td_z"}


@dataclass
class Family:
    """Layers of a recipe with their targets and knobs."""

    recipe: str
    layers: list[tuple[str, list[str], list[str]]]  # name, quantities, knobs


LED = Family(
    "blue_led.xml",
    [
        ("n-GaN", ["thickness"], ["tau"]),
        ("InGaN well", ["thickness", "In"], ["tau", "TMIn"]),
        ("p-AlGaN blocking layer", ["thickness", "Al"], ["tau", "TMAl"]),
    ],
)
FAMILIES = [
    LED,
    Family("blue_led.xml", [
        ("GaN barrier", ["rate", "thickness"], ["TEGa", "tau"]),
        ("InGaN well", ["In middle", "thickness"], ["T", "tau"]),
    ]),
    Family("ingan_gan_mqw.xml", [
        ("InGaN well", ["In", "thickness", "rate"], ["TMIn", "TEGa", "tau"]),
        ("last GaN barrier", ["thickness"], ["tau", "TEGa"]),
    ]),
    Family("ingan_gan_mqw.xml", [("InGaN well", ["In final", "thickness"], ["TMIn", "T", "TEGa", "tau"])]),
    Family("hemt.xml", [
        ("GaN channel", ["thickness"], ["tau"]),
        ("AlGaN barrier", ["Al", "thickness"], ["TMAl", "tau"]),
        ("GaN cap", ["thickness"], ["tau"]),
    ]),
    Family("ingan_led_stack.xml", [
        ("InGaN underlayer", ["strain", "thickness"], ["TMIn", "tau"]),
        ("InGaN well", ["In", "thickness"], ["TMIn", "tau"]),
        ("GaN cap", ["thickness"], ["tau"]),
    ]),
    Family("ingan_v_defects.xml", [("InGaN", ["dislocations", "In"], ["TMIn", "tau"])]),
    Family("ingan_v_defects.xml", [("InGaN", ["strain", "thickness"], ["TMIn", "tau"])]),
]


def stage_path(recipe: vorlen.Recipe, layer: str) -> str:
    timeline = recipe.timeline()
    return str(timeline.path[(timeline.name == layer) & (timeline.kind == "active")].iloc[0])


def moved(value: Any, knob: str, share: float) -> Any:
    """A knob's value for a share from -1 to 1: by up to a factor of three, or 40 K."""
    if isinstance(value, tuple):
        return tuple(moved(end, knob, share) for end in value)
    return value + 40.0 * share if knob == "T" else value * 3.0**share


def with_knobs(base: vorlen.Recipe, family: Family, share: Callable[[], float]) -> vorlen.Recipe:
    recipe = base.copy()
    for layer, _, knobs in family.layers:
        for knob in knobs:
            path = f"{stage_path(recipe, layer)}/{KNOBS[knob]}"
            recipe[path] = moved(recipe[path], knob, share())
    return recipe


def values_of(recipe: vorlen.Recipe, layer: str, quantities: list[str]) -> dict[str, float]:
    layers = vorlen.run(recipe, check=False).layers
    rows = layers[(layers.name == layer) & (layers.kind == "active")]
    return {quantity: float(rows[COLUMNS[quantity]].mean()) for quantity in quantities}


def targets_of(family: Family, recipe: vorlen.Recipe) -> dict[str, Any]:
    return {
        "layers": [
            {"layer": layer, **values_of(recipe, layer, quantities), "by": knobs}
            for layer, quantities, knobs in family.layers
        ]
    }


def load(family: Family) -> vorlen.Recipe:
    return vorlen.Recipe.load(EXAMPLES / family.recipe).with_scheme("staged")


def starts(recipe: vorlen.Recipe) -> Iterator[tuple[str, vorlen.Recipe]]:
    """The recipe; and with all metal flows wrong by a factor of three and all temperatures by 40 K."""
    yield "example", recipe
    paths = [path for path in recipe.paths() if path.startswith("process_stages/")]
    for name, share, shift in (("flows x 3, -40 K", 1.0, -1.0), ("flows x 3, +40 K", 1.0, 1.0),
                               ("flows / 3, -40 K", -1.0, -1.0), ("flows / 3, +40 K", -1.0, 1.0)):
        start = recipe.copy()
        for path in paths:
            knob = path.rpartition("/")[2]
            if knob in ("T", *METALS):
                start[path] = moved(start[path], knob, shift if knob == "T" else share)
        yield name, start


def structures(workers: int) -> bool:
    """Each structure of the gallery with its targets."""
    good = True
    for path in sorted((EXAMPLES / "targets").glob("*.yaml")):
        worst = np.zeros(4)
        for name, start in starts(vorlen.Recipe.load(EXAMPLES / f"{path.stem}.xml").with_scheme("staged")):
            begin = time.perf_counter()
            made = vorlen.design(start, path, workers=workers, check=False)
            seconds = time.perf_counter() - begin
            table = made.table[made.table.bound == ""]
            away = (table.reached - table.target).abs()
            is_thickness = table.quantity == "thickness"
            errors = float((100.0 * away / table.target)[is_thickness].max()), float(away[~is_thickness].max())
            worst = np.maximum(worst, [made.runs, seconds, *errors])
            fine = made.success and made.runs < RUNS_MAX and seconds < SECONDS_MAX
            good &= fine
            print(f"{path.stem:8s} {name:16s}: {len(made.table):2d} targets, {_figures(made.runs, seconds, *errors)}"
                  f"{'' if fine else '  FAILED ' + '; '.join(made.warnings)}", flush=True)
        print(f"{path.stem:8s} {'worst':16s}:             {_figures(*worst)}", flush=True)
    return good


def _figures(runs: float, seconds: float, thickness: float, fraction: float) -> str:
    return f"{runs:3.0f} runs, {seconds:5.2f} s, thickness within {thickness:.3f} %, composition within {fraction:.5f}"


def reachable(count: int, pool: LocalPool, folder: Path) -> bool:
    random = np.random.default_rng(2024)
    runs, failed = [], 0
    begin = time.perf_counter()
    for number in range(count):
        family = FAMILIES[number % len(FAMILIES)]
        base = load(family)
        targets = targets_of(family, with_knobs(base, family, lambda: random.uniform(-1.0, 1.0)))
        out = folder / f"family_{number % len(FAMILIES)}"
        made = vorlen.design(base, targets, out=out, executor=pool, check=False)
        runs.append(made.runs)
        if not made.success:
            failed += 1
            print(f"reachable {number}, {family.recipe}, not reached: {targets}\n{made}", flush=True)
    seconds = time.perf_counter() - begin
    print(f"reachable: {count - failed} of {count} reached; runs: median {np.median(runs):.0f}, most {max(runs)}; "
          f"{seconds / count:.2f} s each", flush=True)
    return failed == 0


def unreachable(count: int, pool: LocalPool, folder: Path) -> bool:
    random = np.random.default_rng(7)
    begin = time.perf_counter()
    runs, failed = [], 0
    for number in range(count):
        recipe, targets, best = _beyond(number, random)
        made = vorlen.design(recipe, targets, out=folder / f"beyond_{number % 4}", executor=pool, check=False)
        runs.append(made.runs)
        reached = float(made.table.reached.iloc[0])
        recognised = not made.success and not made.table.met.iloc[0] and bool(made.warnings)
        as_good = math.isnan(best) or abs(reached - best) <= 0.002
        if not (recognised and as_good):
            failed += 1
            print(f"unreachable {number}, best of the scan {best:.4f}: {targets}\n{made}", flush=True)
    seconds = time.perf_counter() - begin
    print(f"unreachable: {count - failed} of {count} recognised; runs: median {np.median(runs):.0f}, most {max(runs)}; "
          f"{seconds / count:.2f} s each", flush=True)
    return failed == 0


def _beyond(number: int, random: np.random.Generator) -> tuple[vorlen.Recipe, dict[str, Any], float]:
    """A recipe, targets of which the first is out of reach, and its best value by a scan; NaN if that is unknown."""
    kind = number % 4
    family, layer, flow, quantity = (
        (LED, "InGaN well", "TMIn", "In") if kind in (0, 1) else (LED, "p-AlGaN blocking layer", "TMAl", "Al")
    )
    recipe = load(family)
    path = f"{stage_path(recipe, layer)}/gas_species/Q/{flow}"
    heat = f"{stage_path(recipe, layer)}/T"
    low, high = recipe[path][0] * random.uniform(0.3, 0.8), recipe[path][0] * random.uniform(1.2, 3.0)
    limits: dict[str, Any] = {flow: [low, high]}
    if kind == 3:  # two targets, one knob that sets the thickness alone
        present = values_of(recipe, layer, [quantity])[quantity]
        wrong = present + random.choice([-1.0, 1.0]) * random.uniform(0.01, 0.08)
        return recipe, {"layers": [{"layer": layer, "Al": wrong, "thickness": 20, "by": "tau"}]}, math.nan
    trials = [(flow_value, None) for flow_value in np.geomspace(low, high, 5)]
    knobs = [flow, "tau"]
    if kind == 1:
        cold = recipe[heat][0] - random.uniform(5.0, 30.0)
        limits["T"] = [cold, cold + 40.0]
        knobs = [flow, "T", "tau"]
        trials = [(value, heat_value) for value, _ in trials for heat_value in np.linspace(cold, cold + 40.0, 5)]
    found = []
    for flow_value, heat_value in trials:
        trial = recipe.copy().set(path, float(flow_value))
        if heat_value is not None:
            trial[heat] = float(heat_value)
        found.append(values_of(trial, layer, [quantity])[quantity])
    above = bool(random.random() < 0.7)
    best = max(found) if above else min(found)
    target = best + random.uniform(0.01, 0.1) if above else best - random.uniform(0.01, 0.03)
    entry = {"layer": layer, quantity: max(target, 0.002), "thickness": 5, "by": knobs}
    return recipe, {"layers": [entry], "limits": limits}, best


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--reachable", type=int, default=200, metavar="N")
    parser.add_argument("--unreachable", type=int, default=50, metavar="N")
    parser.add_argument("--workers", type=int, default=2, metavar="N")
    options = parser.parse_args()
    good = structures(options.workers)
    with tempfile.TemporaryDirectory() as place, LocalPool(options.workers) as pool:
        good = (not options.reachable or reachable(options.reachable, pool, Path(place))) and good
        good = (not options.unreachable or unreachable(options.unreachable, pool, Path(place))) and good
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
