"""The map of a window: the two values with the largest effects, up to three standard deviations to each side."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array
from .._recipe.recipe import Recipe
from .map import ProcessMap, map_of
from .map_page import Axis
from .measured import Measured
from .quantities import QUANTITIES, Target
from .window_spread import Drift

REACH = 3.0  # standard deviations
METALS = ("In", "Al")
LEAST = 1e-3  # mean fraction of a metal that is shown
DIGITS = 10  # of a deviation on an axis

Runner = Callable[[Sequence[Target], Sequence[dict[str, Any]]], Measured]


def map_around(
    base: Recipe, goals: list[Target], drifts: Sequence[Drift], found: pd.DataFrame, nominal: Array, grid: int,
    run: Runner,
) -> ProcessMap | None:
    """The map around the recipe; None if a single value varies or no run of the grid has a result.

    found    effects of one standard deviation
    nominal  values of the targets without deviations
    grid     points per side
    run      runs the recipe with the values of each row and measures targets
    """
    if len(drifts) < 2:
        return None
    sizes = _sizes(goals, found, nominal)
    one, other = (int(place) for place in np.argsort(-sizes.max(axis=1), kind="stable")[:2])
    main, second = (goals[int(np.argmax(sizes[place]))] for place in (one, other))
    deviations = np.linspace(-REACH, REACH, grid).tolist()
    rows: list[dict[str, Any]] = []
    for across in deviations:
        for up in deviations:
            rows.append({})
            for place, drift in enumerate(drifts):  # all of them, so that runs with one deviation are found again
                rows[-1] |= drift.values({one: across, other: up}.get(place, 0.0))
    candidates = _candidates(main, goals)
    if (second.stages, second.whole) != (main.stages, main.whole) and second.quantity.name != "V-defects":
        candidates.append(second)
    made = run([*candidates, *goals], rows)
    if not np.isfinite(made.values).any():
        return None
    shown = _shown(candidates, made.values)
    columns = [*shown, *range(len(candidates), made.values.shape[1])]
    axes = (_axis(drifts[one], deviations), _axis(drifts[other], deviations))
    made = Measured(made.values[:, columns], made.statuses, made.texts)
    return map_of(base, axes, [candidates[place] for place in shown], goals, made)


def _sizes(goals: Sequence[Target], found: pd.DataFrame, nominal: Array) -> Array:
    """Effects, drifts x targets, as shares of the tolerance, or of the distance from a bound; 0 if unknown."""
    changes = found.change.abs().to_numpy().reshape(-1, len(goals))
    room = [
        target.allowed or max(abs(float(value) - target.value), 1e-3 * abs(target.value), 1e-12)
        for target, value in zip(goals, nominal)
    ]
    return np.asarray(np.nan_to_num(changes / np.array(room), nan=0.0))


def _candidates(main: Target, goals: Sequence[Target]) -> list[Target]:
    """Quantities of the layer of a target: its targets, and thickness and composition if they are not among them."""
    own = [goal for goal in goals if goal.stages == main.stages and goal.whole == main.whole]
    made = {goal.quantity.name: Target(main.layer, main.stages, main.whole, goal.quantity, 1.0) for goal in own}
    made.pop("V-defects", None)
    if not {"thickness", "rate"} & set(made):
        made["thickness"] = Target(main.layer, main.stages, main.whole, QUANTITIES["thickness"], 1.0)
    if not main.whole and not any(name.split()[0] in METALS for name in made):
        for metal in METALS:
            made[metal] = Target(main.layer, main.stages, main.whole, QUANTITIES[metal], 1.0)
    return sorted(made.values(), key=lambda target: target.quantity.name.split()[0] not in METALS)  # first, as in maps


def _shown(candidates: Sequence[Target], values: Array) -> list[int]:
    """Places of the candidates that have values; metals of which the layer has next to nothing are left out."""
    places = []
    for place, target in enumerate(candidates):
        known = values[np.isfinite(values[:, place]), place]
        if len(known) and (target.quantity.name not in METALS or float(known.mean()) > LEAST):
            places.append(place)
    return places


def _axis(drift: Drift, deviations: Sequence[float]) -> Axis:
    """An axis of deviations, in the unit of the spread."""
    values = [float(f"{deviation * drift.shown_spread:.{DIGITS}g}") for deviation in deviations]
    return Axis(drift.name, f"deviation of {drift.label}", drift.shown_unit, values, 0.0)
