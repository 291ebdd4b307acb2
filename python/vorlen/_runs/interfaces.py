"""Interfaces between layers and their widths.

The width of an interface is the distance between the heights at which a metal's fraction has completed 10 % and 90 % of
its step from the middle of the layer below to the middle of the layer above.
"""

from __future__ import annotations

import math

import numpy as np
import pandas as pd

from .._base.types import Array

SMALLEST_STEP = 0.005  # fraction; a smaller change does not count as an interface
THIN = 0.1  # nm; an interface is not named after a thinner layer, such as a pause
METALS = {"x_in": "In", "x_al": "Al"}  # gallium is the rest
COLUMNS = (
    ("below", "", "layer below, without pauses thinner than 0.1 nm in which the composition stays"),
    ("above", "", "layer above, likewise"),
    ("z", "nm", "height of the border between the layers"),
    ("metal", "", "the metal whose fraction changes most, other than Ga"),
    ("x_below", "1", "its fraction in the middle of the layer below"),
    ("x_above", "1", "its fraction in the middle of the layer above"),
    ("z10", "nm", "height at which 10 % of the step is complete"),
    ("z90", "nm", "height at which 90 % of the step is complete"),
    ("width", "nm", "z90 - z10"),
)


def interface_values(layers: pd.DataFrame, profile: pd.DataFrame) -> pd.DataFrame:
    """Run.interfaces from the other two tables: one row per interface at which the composition changes, bottom up.

    Only what is left in the finished structure counts: rows of material that evaporated later are left out, and so are
    layers of which nothing is left, such as a pause. Heights and width are NaN if the step is not complete between the
    middles of the two layers. The time it takes is linear in layers and rows.
    """
    reached = layers[layers["begin"] < profile["time"].iloc[-1]] if len(profile) else layers.iloc[:0]
    z = profile["z"].to_numpy()
    tops = _lowest_from_here(reached["thickness"].cumsum().to_numpy() + (float(z[0]) if len(z) else math.nan))
    thickness = np.diff(tops, prepend=z[:1])
    left = thickness > 0.0
    tops, thickness = tops[left], thickness[left]
    names = list(reached["name"][left])
    stays = z <= _lowest_from_here(z)
    z = z[stays]
    fractions = {column: profile[column].to_numpy()[stays] for column in METALS}
    records, borders = [], []
    for index in range(len(tops) - 1):
        low, high = tops[index] - thickness[index] / 2, tops[index] + thickness[index + 1] / 2
        steps = {column: (_value_at(z, x, low), _value_at(z, x, high)) for column, x in fractions.items()}
        column = max(steps, key=lambda name: _size(steps[name]))
        x_low, x_high = steps[column]
        if not abs(x_high - x_low) > SMALLEST_STEP:
            continue
        inside = slice(np.searchsorted(z, low, "right"), np.searchsorted(z, high))
        heights = np.concatenate(([low], z[inside], [high]))
        share = (np.concatenate(([x_low], fractions[column][inside], [x_high])) - x_low) / (x_high - x_low)
        z10, z90 = _crossing(heights, share, 0.1), _crossing(heights, share, 0.9)
        borders.append(index)
        records.append((tops[index], METALS[column], x_low, x_high, z10, z90, z90 - z10))
    neighbours = _neighbours(borders, thickness)
    table = pd.DataFrame(
        [(names[below], names[above], *record) for (below, above), record in zip(neighbours, records)],
        columns=[name for name, _, _ in COLUMNS],
    )
    table.index = pd.RangeIndex(1, len(table) + 1, name="interface")
    table.attrs["units"] = {name: unit for name, unit, _ in COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in COLUMNS}
    return table


def period_numbers(interfaces: pd.DataFrame) -> list[int | None]:
    """For each interface its number among those between layers of the same names; None if it is the only one."""
    same = interfaces.groupby(["below", "above"], sort=False)
    counts = same["z"].transform("size")
    return [number if count > 1 else None for number, count in zip((same.cumcount() + 1).tolist(), counts.tolist())]


def _neighbours(borders: list[int], thickness: Array) -> list[tuple[int, int]]:
    """For each interface the layers it is named after, from the layers below the borders with a step.

    A thin layer is skipped if there is a thicker one before the next step.
    """
    found = []
    for place, border in enumerate(borders):
        lowest = borders[place - 1] + 1 if place else 0
        highest = borders[place + 1] if place + 1 < len(borders) else len(thickness) - 1
        below = next((layer for layer in range(border, lowest - 1, -1) if thickness[layer] >= THIN), border)
        above = next((layer for layer in range(border + 1, highest + 1) if thickness[layer] >= THIN), border + 1)
        found.append((below, above))
    return found


def _lowest_from_here(heights: Array) -> Array:
    """The lowest of each height and those after it; NaN does not count."""
    return np.fmin.accumulate(heights[::-1])[::-1]


def _size(step: tuple[float, float]) -> float:
    return abs(step[1] - step[0])


def _value_at(z: Array, x: Array, height: float) -> float:
    """x at a height, by linear interpolation between rows."""
    place = min(max(int(np.searchsorted(z, height)), 1), len(z) - 1)
    span = z[place] - z[place - 1]
    if not span > 0.0:
        return float(x[place])
    return float(x[place - 1] + (x[place] - x[place - 1]) * (height - z[place - 1]) / span)


def _crossing(heights: Array, share: Array, level: float) -> float:
    """The first height at which share rises through level; NaN if there is none."""
    rises = np.flatnonzero((share[:-1] < level) & (level <= share[1:]))
    if len(rises) == 0:
        return math.nan
    place = int(rises[0]) + 1
    part = (level - share[place - 1]) / (share[place] - share[place - 1])
    return float(heights[place - 1] + part * (heights[place] - heights[place - 1]))
