"""Lines of equal value on a grid of runs, and the region in which all targets hold.

Between the runs values are interpolated linearly. A run without a result leaves the cells around it empty.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np

from .._base.types import Array
from .quantities import Target

LINES = 9  # about, per quantity
REFINED = 8  # parts of a cell in which the region is found, at least
PARTS = 160  # parts of an axis, at least
ROUND = (1.0, 2.0, 2.5, 5.0, 10.0)


@dataclass(frozen=True)
class Line:
    """A line of equal value, in one or several pieces."""

    level: float
    pieces: list[Array]  # n x 2


def levels_of(values: Array) -> list[float]:
    """Round numbers between the smallest and the largest value; none without a range."""
    known = values[np.isfinite(values)]
    low, high = (float(known.min()), float(known.max())) if len(known) else (0.0, 0.0)
    if not high - low > 1e-9 * max(abs(low), abs(high)):
        return []
    rough = (high - low) / LINES
    decade = 10.0 ** math.floor(math.log10(rough))
    step = next(decade * factor for factor in ROUND if decade * factor >= rough * (1.0 - 1e-9))
    first = math.ceil(low / step)
    return [float(f"{number * step:.12g}") for number in range(first, math.floor(high / step) + 1)]


def lines_of(x: Array, y: Array, values: Array) -> list[Line]:
    """Lines of equal value on a grid. values: y x x, NaN without a result."""
    import contourpy

    generator = contourpy.contour_generator(x, y, values)
    made = [Line(level, list(generator.lines(level))) for level in levels_of(values)]
    return [line for line in made if line.pieces]


def region_of(x: Array, y: Array, values: Sequence[Array], targets: Sequence[Target]) -> list[Array]:
    """Where all targets hold: closed polygons, of which those that run clockwise are holes.

    values  of each target, y x x
    """
    import contourpy

    fine_x, fine_y = _refined(x), _refined(y)
    margins = [_margin(target, _interpolated(x, y, one, fine_x, fine_y)) for target, one in zip(targets, values)]
    margin = np.min(margins, axis=0)
    if not (margin > 0.0).any():  # also if all are NaN
        return []
    generator = contourpy.contour_generator(
        fine_x, fine_y, margin, fill_type=contourpy.FillType.OuterOffset
    )
    polygons = []
    for points, offsets in zip(*generator.filled(0.0, float(np.nanmax(margin)) + 1.0)):
        polygons += [points[begin:end] for begin, end in zip(offsets, offsets[1:])]
    return polygons


def _margin(target: Target, values: Array) -> Array:
    """Above 0 where the target holds, 0 at its limit."""
    if target.quantity.name == "V-defects":
        return np.where(np.isnan(values), np.nan, np.where(values == 0.0, 1.0, -1.0))
    scale = target.allowed or abs(target.value) or 1.0
    if target.bound:
        return np.asarray((target.value - values) * (1.0 if target.bound == "at most" else -1.0) / scale)
    return np.asarray(1.0 - np.abs(values - target.value) / scale)


def _refined(places: Array) -> Array:
    parts = max(REFINED, -(-PARTS // (len(places) - 1)))
    steps = np.arange(parts * (len(places) - 1) + 1) / parts
    return np.interp(steps, np.arange(len(places)), places)


def _interpolated(x: Array, y: Array, values: Array, fine_x: Array, fine_y: Array) -> Array:
    rows = np.array([np.interp(fine_x, x, row) for row in values])
    return np.array([np.interp(fine_y, y, column) for column in rows.T]).T
