"""Temperatures that follow a knob T, so that the temperature of the process stays without jumps.

A reactor can't change its temperature at once: where the temperature of a stage continues in the next one, both move
together. Ramps beside a stage keep their other end; a stage beside it at the same constant temperature, such as the cap
of a well, moves with it, and so does what adjoins that stage. Temperatures that are knobs themselves do not follow.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import pandas as pd

from .._recipe.recipe import Recipe
from .knobs import Knob

SAME = 1e-6  # K
TEMPERATURE = "/T"

End = tuple[str, int]  # the path of a stage, and 0 for its start or 1 for its end


@dataclass(frozen=True)
class Neighbour:
    """The temperature of a stage that follows knobs.

    stage  its path
    start  its temperatures in the recipe, K: begin and end
    knobs  places of the knobs that begin and end follow; None: it stays
    """

    stage: str
    name: str
    start: tuple[float, float]
    knobs: tuple[int | None, int | None]

    def values(self, knobs: Sequence[Knob], point: Sequence[float]) -> dict[str, Any]:
        """Its temperatures by path, as make_task takes them; empty if it stays."""
        if not any(place is not None and point[place] for place in self.knobs):
            return {}
        ends = [
            end if place is None else knobs[place].shifted(end, float(point[place]))
            for end, place in zip(self.start, self.knobs)
        ]
        return {self.stage + TEMPERATURE: ends}


def neighbours_of(recipe: Recipe, knobs: Sequence[Knob], hints: Sequence[Knob] = ()) -> list[Neighbour]:
    """The temperatures that follow knobs. A knob takes no stage from one before it.

    hints  temperatures that are only tried, with places after those of the knobs; they can follow each other
    """
    active = recipe.timeline()
    active = active[active.kind == "active"]
    moved = {path.removesuffix(TEMPERATURE) for knob in knobs if knob.name == "T" for path in knob.paths}
    if not moved and not hints:
        return []
    stages = active.drop_duplicates("path").set_index("path")
    heat = {(path, end): float(stages.loc[path, ("T_begin", "T_end")[end]]) for path in stages.index for end in (0, 1)}
    joined = _joined_ends(active, heat)
    owner: dict[End, int] = {}
    for place, knob in enumerate([*knobs, *hints]):
        if knob.name != "T":
            continue
        waiting = [(path.removesuffix(TEMPERATURE), end) for path in knob.paths for end in (0, 1)]
        while waiting:
            for other in joined.get(waiting.pop(), ()):
                if other[0] not in moved and other not in owner:
                    owner[other] = place
                    waiting.append(other)
    return [
        Neighbour(path, str(stages.loc[path, "name"]), (heat[path, 0], heat[path, 1]),
                  (owner.get((path, 0)), owner.get((path, 1))))
        for path in stages.index if (path, 0) in owner or (path, 1) in owner
    ]


def _joined_ends(active: pd.DataFrame, heat: dict[End, float]) -> dict[End, list[End]]:
    """The ends of stages at which the temperature is the same, because they meet or the stage keeps its temperature."""
    order = list(active.path)
    pairs: list[tuple[End, End]] = [((one, 1), (other, 0)) for one, other in zip(order, order[1:])]
    pairs += [((path, 0), (path, 1)) for path in order]
    joined: dict[End, list[End]] = {}
    for one, other in dict.fromkeys(pairs):
        if abs(heat[one] - heat[other]) <= SAME:
            joined.setdefault(one, []).append(other)
            joined.setdefault(other, []).append(one)
    return joined


def names_of(neighbours: Sequence[Neighbour], place: int) -> list[str]:
    """The stages that follow a knob, by their names."""
    return list(dict.fromkeys(one.name for one in neighbours if place in one.knobs))
