"""The finished structure as slices, from the bottom up: composition, lattice and strain of what is left of each step.

A height belongs to the last step that rises through it, so that what evaporated again does not count. Between two rows
of the result file all values are linear in the height; a slice has those of its middle, and a step through which the
composition changes is divided into several slices.
"""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, Mask, Rows
from .nitrides import NITRIDES, Nitride

LARGEST_CHANGE = 0.005  # of a fraction within one slice
TIME_TOLERANCE = 1e-9  # relative; a border between layers this close to a row is at the row
COLUMNS = ("x_in", "x_ga", "x_al", "a_eff_z", "eps_xx_z", "eps_zz_z")


class Slices(NamedTuple):
    """Arrays with one entry per slice; bottom[i + 1] is top[i] up to rounding."""

    bottom: Array  # nm, on the z axis of the result file
    top: Array
    x: Array  # (n, 3): fractions of In, Ga, Al
    a: Array  # in-plane lattice constant, angstrom
    eps_xx: Array  # strain, positive when stretched
    eps_zz: Array
    begin: Array  # s, time at which the slice began to grow
    end: Array
    layer: Rows  # number as in Run.layers, from 1

    def above(self, start: int) -> Slices:
        """The slices from number start on."""
        return Slices(
            self.bottom[start:], self.top[start:], self.x[start:], self.a[start:], self.eps_xx[start:],
            self.eps_zz[start:], self.begin[start:], self.end[start:], self.layer[start:],
        )

    @property
    def thickness(self) -> Array:
        """Thickness of each slice, nm."""
        return self.top - self.bottom


def slices_of(profile: pd.DataFrame, layers: pd.DataFrame, change: float = LARGEST_CHANGE) -> Slices:
    """The slices of the finished structure, with pre-stages and post-stages; none if nothing has grown.

    profile, layers  the tables of a run
    change           the largest change of a fraction within one slice
    The structure ends below the first row with a value that is NaN or infinite. The time it takes is linear in layers
    and rows.
    """
    if profile.empty:
        none = np.empty(0)
        return Slices(none, none, np.empty((0, 3)), none, none, none, none, none, np.empty(0, int))
    rows = profile[["time", "z", *COLUMNS]].to_numpy()
    broken = np.flatnonzero(~np.isfinite(rows).all(axis=1))
    whole = broken[0] if len(broken) else len(rows)
    points, layer = _with_borders(rows[:whole], profile["active"].to_numpy()[:whole], layers)
    time, z, values = points[:, 0], points[:, 1], points[:, 2:]
    left = np.minimum.accumulate(z[::-1])[::-1]  # above it, nothing is left of the steps before
    bottom, top = z[:-1], left[1:]
    steps = np.flatnonzero((top > bottom) & (layer > 0))
    changes = np.abs(np.diff(values[:, :3], axis=0)).max(axis=1, initial=0.0)[steps]
    changes *= (top - bottom)[steps] / np.diff(z)[steps]  # of the part that is left
    parts = np.maximum(np.ceil(changes / change * (1.0 - TIME_TOLERANCE)), 1.0).astype(int)
    number = np.arange(parts.sum()) - np.repeat(np.cumsum(parts) - parts, parts)  # of a slice within its step
    steps, parts = np.repeat(steps, parts), np.repeat(parts, parts)
    bottom, height = bottom[steps], (top - bottom)[steps]
    bottom, top = bottom + height * (number / parts), bottom + height * ((number + 1) / parts)

    def at(columns: Array, height: Array) -> Array:
        share = (height - z[steps]) / (z[steps + 1] - z[steps])
        values: Array = columns[steps] + share[:, None] * (columns[steps + 1] - columns[steps])
        return values

    middle = at(values, 0.5 * (bottom + top))
    begin, end = at(time[:, None], bottom)[:, 0], at(time[:, None], top)[:, 0]
    return Slices(bottom, top, middle[:, :3], middle[:, 3], middle[:, 4], middle[:, 5], begin, end, layer[steps])


def _with_borders(rows: Array, active: Mask, layers: pd.DataFrame) -> tuple[Array, Rows]:
    """The rows, with one more at each border between simulated layers that has none, and the layer of each step.

    A step is that from one row to the next. Its layer is 0 if it is in none: between the rows of two pre-stages.
    """
    kinds = layers["kind"].to_numpy()
    pre_count, post_count = np.count_nonzero(kinds == "pre"), np.count_nonzero(kinds == "post")
    simulated = np.flatnonzero(active)
    first, last = (simulated[0], simulated[-1] + 1) if len(simulated) else (min(2 * pre_count, len(rows)), len(rows))
    before, within, after = rows[:first], rows[first:last], rows[last:]
    time = within[:, 0]
    ends = layers["end"].to_numpy()[kinds == "active"]
    if len(within):
        slack = TIME_TOLERANCE * np.abs(ends)
        new = ends[np.searchsorted(time, ends - slack) == np.searchsorted(time, ends + slack, "right")]
        new = np.unique(new[(new > time[0]) & (new < time[-1])])
        columns = [new, *(np.interp(new, time, column) for column in within.T[1:])]
        within = np.insert(within, np.searchsorted(time, new), np.transpose(columns), axis=0)
        middles = 0.5 * (within[:-1, 0] + within[1:, 0])
        numbers = np.append(1 + pre_count + np.minimum(np.searchsorted(ends, middles), len(ends) - 1), 0)
    else:
        numbers = np.empty(0, int)
    steps = [
        _steps_of_pairs(1, len(before)),
        numbers,
        _steps_of_pairs(1 + len(kinds) - post_count, len(after)),
    ]
    points = np.concatenate((before, within, after))
    return points, np.concatenate(steps)[: len(points) - 1]


def _steps_of_pairs(first: int, count: int) -> Rows:
    """The layer of each step of count rows, two for each layer from number first on."""
    rows = np.arange(count)
    return np.where(rows % 2 == 0, first + rows // 2, 0)


def alloy(x: Array) -> Nitride:
    """Unstrained lattice and elastic constants of alloys, as arrays: Vegard's law without bowing, as in the model.

    x  (n, 3), fractions of In, Ga, Al, in that order
    """
    table = np.array(list(NITRIDES.values()))
    columns: Any = (x @ table).T
    return Nitride(*columns)
