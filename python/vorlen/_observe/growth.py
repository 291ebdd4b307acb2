"""The film while it grows: what is there at each moment of a run, as a slice on top of an earlier film.

What evaporates uncovers what had grown at that depth, and what grows next lies on it. So the film at a point in time is
the film at an earlier point, usually the one before, and one slice more: sums over the depth, and the reflection of the
whole film, are updated by one slice for each point.
"""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, Rows
from .slices import TIME_TOLERANCE

COLUMNS = ("x_in", "x_ga", "x_al", "eps_xx_t", "eps_xx_z", "rho_vd0_t")
TOLERANCE = 1e-3  # of fractions, as for the check of result files
WAFER = 100e3  # nm; a first pre-stage of this thickness is the wafer, not a film on it
# Strain that dislocations relieve for a factor e in their density: Burgers vector over twice the reaction length
RELIEF = 3.189 / (2 * 310)


class Points(NamedTuple):
    """Moments of a run. All values are linear in time in between."""

    time: Array  # s
    z: Array  # height of the surface, nm
    values: Array  # (n, 6), COLUMNS
    temperature: Array  # K; NaN if it is unknown
    first: int  # index of the start of the simulated stages
    last: int  # index of their end


class Growth(NamedTuple):
    """Arrays with one entry per point. Values of a slice are those of its middle."""

    bottom: Array  # nm above the bottom of the film: the slice on top
    top: Array
    below: Rows  # the earlier point whose film the slice lies on; -1 for the first point, whose slice is empty
    x: Array  # (n, 3): fractions of In, Ga, Al
    grown: Array  # in-plane strain of the slice when it was the surface
    final: Array  # in the finished structure
    lines: Array  # lines of V-defects when the slice was the surface, cm^-2


def points_of(profile: pd.DataFrame, timeline: pd.DataFrame | None) -> Points:
    """The rows of a run up to the first unphysical one, and the borders between stages, with the temperature.

    timeline  of the recipe; None if it is unknown
    A row is unphysical if a value is NaN or infinite or a fraction outside of 0 to 1. The surface never sinks below the
    bottom of the first row.
    """
    rows = profile[["time", "z", *COLUMNS]].to_numpy(float)
    whole = np.isfinite(rows).all(axis=1) & (np.abs(rows[:, 2:5] - 0.5) <= 0.5 + TOLERANCE).all(axis=1)
    broken = np.flatnonzero(~whole)
    rows = rows[: broken[0]] if len(broken) else rows
    simulated = np.flatnonzero(profile["active"].to_numpy()[: len(rows)])
    first, last = (simulated[0], simulated[-1]) if len(simulated) else (len(rows) - 1,) * 2
    stages = None if timeline is None else timeline[timeline["kind"] == "active"]
    heat = np.full(len(rows), np.nan)
    if stages is not None and len(simulated):
        within, heat = _with_borders(rows[first : last + 1], stages)
        rows = np.concatenate((rows[:first], within, rows[last + 1 :]))
        heat = np.pad(heat, (first, len(rows) - first - len(heat)), "edge")
        last = first + len(within) - 1
    z = np.maximum(rows[:, 1], rows[0, 1]) if len(rows) else rows[:, 1]
    return Points(rows[:, 0], z, rows[:, 2:], heat, int(first), int(last))


def wafer_of(points: Points) -> tuple[str, float, Points] | None:
    """If the first pre-stage is a wafer of GaN or AlN: its material, its thickness in nm, and the points above it."""
    if points.first < 2 or not points.z[1] - points.z[0] >= WAFER:
        return None
    for name, column in (("GaN", 1), ("AlN", 2)):
        if (points.values[:2, column] >= 1.0 - TOLERANCE).all():
            z = np.maximum(points.z[1:], points.z[1])
            above = Points(points.time[1:], z, points.values[1:], points.temperature[1:], points.first - 1, points.last - 1)
            return name, float(points.z[1] - points.z[0]), above
    return None


def _with_borders(rows: Array, stages: pd.DataFrame) -> tuple[Array, Array]:
    """The rows of simulated stages with one more at each border that has none, and the temperature, K.

    Where the temperature jumps, the border is there twice.
    """
    heat = stages[["T_begin", "T_end"]].to_numpy(float)
    borders = stages["end"].to_numpy(float)[:-1]
    slack = TIME_TOLERANCE * np.abs(borders)
    reached = (borders - slack > rows[0, 0]) & (borders + slack < rows[-1, 0])
    time = rows[:, 0]
    missing = reached & (np.searchsorted(time, borders - slack) == np.searchsorted(time, borders + slack, "right"))
    new = np.unique(borders[missing])
    between = np.column_stack([np.interp(new, time, column) for column in rows.T])
    rows = np.insert(rows, np.searchsorted(time, new), between, axis=0)
    time = rows[:, 0]
    ramps = stages[["begin", "end"]].to_numpy(float)
    temperature = np.interp(time + TIME_TOLERANCE * np.abs(time), ramps.ravel(), heat.ravel())  # after a jump
    jump = reached & (heat[:-1, 1] != heat[1:, 0])
    place = np.searchsorted(time, (borders - slack)[jump])
    return np.insert(rows, place, rows[place], axis=0), np.insert(temperature, place, heat[:-1, 1][jump])


def refined(points: Points, begin: int, height: float, heat: float) -> Points:
    """The points with more of them in between, from index begin on.

    height, heat  the largest steps of the height, nm, and of the temperature, K
    """
    steps = np.fmax(np.abs(np.diff(points.z)) / height, np.abs(np.diff(points.temperature)) / heat)
    count = np.maximum(np.ceil(steps), 1).astype(int)
    count[:begin] = 1
    index = np.append(0, np.cumsum(count))  # of the points so far among the new ones
    place = np.interp(np.arange(index[-1] + 1), index, np.arange(len(index)))  # of the new ones among those so far

    def at(column: Array) -> Array:
        return np.interp(place, np.arange(len(column)), column)

    values = np.column_stack([at(column) for column in points.values.T])
    first, last = int(index[points.first]), int(index[points.last])
    return Points(at(points.time), at(points.z), values, at(points.temperature), first, last)


def growth_of(points: Points) -> Growth:
    """The slices of a run. The time it takes is linear in the points."""
    z = points.z - points.z[0]
    below = np.arange(-1, len(z) - 1)
    bottom = z[np.maximum(below, 0)]
    start, end = points.values[np.maximum(below, 0)], points.values.copy()  # at the bottom and the top of each slice
    if (np.diff(z) < 0.0).any():
        _uncover(z, below, bottom, start, end)
    middle = 0.5 * (start + end)
    return Growth(bottom, z, below, middle[:, :3], middle[:, 3], middle[:, 4], middle[:, 5])


def _uncover(z: Array, below: Rows, bottom: Array, start: Array, end: Array) -> None:
    """Replaces the slices of points at which the surface sank by what is left of the slice at that height."""
    heights = z.tolist()
    film = [0]  # the points whose slices make up the film, from the bottom up
    for point in range(1, len(heights)):
        height = heights[point]
        cut = -1
        while heights[film[-1]] > height:
            cut = film.pop()
        if cut >= 0:
            under = film[-1]
            share = (height - heights[under]) / (heights[cut] - heights[under])
            below[point], bottom[point], start[point] = under, heights[under], start[cut]
            end[point] = start[cut] + share * (end[cut] - start[cut])
        film.append(point)


def summed(below: Rows, slices: Array) -> Array:
    """Sums over the film at each point.

    slices  (n, ...), what the slice of each point adds
    """
    total = np.cumsum(slices, axis=0)
    breaks = np.flatnonzero(below != np.arange(-1, len(below) - 1))
    for begin, end in zip(breaks, [*breaks[1:], len(below)]):
        total[begin] = total[below[begin]] + slices[begin]
        if end > begin + 1:
            total[begin + 1 : end] = total[begin] + np.cumsum(slices[begin + 1 : end], axis=0)
    return total
