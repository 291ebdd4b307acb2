"""Knobs return towards the start as far as a design loses next to nothing by it.

A target that is out of reach drives knobs with little effect on it far away: a well has next to the same indium after a
thousand times its duration. Such knobs move back until a target would be worse by its tolerance.
"""

from __future__ import annotations

import numpy as np

from .._base.types import Array
from .model import LimitReached, Outcome
from .solver import stopped_knobs
from .steps import Group, Search, evaluate_here, snapped

MOVED = 0.02  # of a variable; knobs that moved less stay
PARTS = 4  # of the way back that are run at once
ROUNDS = 3  # each divides the last part again


def retreat(search: Search, start: Array) -> None:
    """Moves the knobs of groups that miss targets back towards start, one after the other.

    Knobs stay that are at a limit which keeps a target from its value.
    """
    model = search.model
    before = model.known[tuple(float(value) for value in search.x)]
    try:
        for group in search.groups:
            if not search.close[group.targets].all():
                _retreat_group(search, group, start, before)
    except LimitReached:
        return  # the rest stays where it is


def _retreat_group(search: Search, group: Group, start: Array, before: Outcome) -> None:
    missed = [int(row) for row in group.targets if not search.close[row]]
    stopped = {place for row in missed for place in stopped_knobs(search, group, row)}
    moved = [
        int(place) for place in group.knobs
        if place not in stopped and abs(search.x[place] - start[place]) > MOVED
        and not search.model.spec.knobs[place].is_integer
    ]
    distances = {place: float(abs(search.x[place] - start[place])) for place in moved}
    for place in sorted(moved, key=lambda place: -distances[place]):
        near, far = 0.0, 1.0  # shares of the way from the start
        for step in range(ROUNDS):
            shares = np.linspace(near, far, PARTS, endpoint=False)[0 if step == 0 else 1 :]
            points = []
            for share in shares:
                point = search.x.copy()
                point[place] = start[place] + share * (search.x[place] - start[place])
                points.append(snapped(search.model, point))
            outcomes = search.model.at(points, "step")
            good = [number for number, outcome in enumerate(outcomes) if _is_as_good(search, outcome, before)]
            near, far = (
                (float(shares[good[0] - 1]) if good[0] else near, float(shares[good[0]])) if good
                else (float(shares[-1]), far)
            )
            if far == 0.0:
                break
        search.x[place] = start[place] + far * (search.x[place] - start[place])
        evaluate_here(search)


def _is_as_good(search: Search, outcome: Outcome, before: Outcome) -> bool:
    """Targets that were met stay met, the others lose at most their tolerance."""
    if outcome.text:
        return False
    old, new = search.model.deviations(before), search.model.deviations(outcome)
    return bool(np.all(np.where(old <= 1.0, new <= 1.0, new <= old + 1.0)))
