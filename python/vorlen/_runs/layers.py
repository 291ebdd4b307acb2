"""The layers of a run, one row each: times, mean composition, strain and densities at the end.

The values are defined in docs/result-format.md; this package and the command-line tool compute the same.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, Mask
from .result_file import COLUMN_NAMES, TIME_TOLERANCE
from .row_finder import RowFinder

SMALLEST_MISMATCH = 1e-6  # angstrom; below it the degree of relaxation is undefined
METALS = ("x_in", "x_ga", "x_al")
END_COLUMNS = ("eps_xx_t", "eps_xx_z", "rho_td_t", "rho_td_z")  # values at the end of a layer

# name, unit, meaning of the columns of Run.layers
LAYER_COLUMNS = (
    ("name", "", "name in the recipe"),
    ("kind", "", "pre, active (simulated) or post"),
    ("begin", "s", "time at which the layer begins"),
    ("end", "s", "time at which it ends"),
    ("duration", "s", "duration"),
    ("thickness", "nm", "thickness"),
    ("mean_rate", "nm/s", "thickness by duration"),
    ("x_in", "1", "indium, mean over the thickness"),
    ("x_ga", "1", "gallium, mean over the thickness"),
    ("x_al", "1", "aluminium, mean over the thickness"),
    ("x_in_mid", "1", "indium, mean over the middle half of the thickness"),
    ("x_ga_mid", "1", "gallium, mean over the middle half of the thickness"),
    ("x_al_mid", "1", "aluminium, mean over the middle half of the thickness"),
    ("x_in_end", "1", "indium at the end"),
    ("x_ga_end", "1", "gallium at the end"),
    ("x_al_end", "1", "aluminium at the end"),
    ("eps_xx_t", "1", "in-plane strain of the surface at the end of the layer"),
    ("eps_xx_z", "1", "in-plane strain of the top of the layer in the finished structure"),
    ("rho_td_t", "cm^-2", "threading dislocations at the surface at the end of the layer"),
    ("rho_td_z", "cm^-2", "threading dislocations at the top of the layer in the finished structure"),
    ("v_defects_t", "cm^-2", "V-defects at the end of the layer"),
    ("relaxation", "1", "degree of relaxation of the top of the layer in the finished structure"),
)


def _kinds(active: Mask, layer_count: int) -> list[str]:
    """Kind of each layer (pre, active or post) from the kinds of the rows: pre- and post-stages have two rows each.

    A failed run has no rows of post-stages; they count as active stages that were not reached.
    """
    simulated = np.flatnonzero(active)
    pre = min(simulated[0] // 2 if len(simulated) else len(active) // 2, layer_count)
    post = (len(active) - 1 - simulated[-1]) // 2 if len(simulated) else 0
    post = min(post, layer_count - pre)
    return ["pre"] * pre + ["active"] * (layer_count - pre - post) + ["post"] * post


def _growth(
    rows: RowFinder, z: Array, x: Sequence[Array], begin: float, end: float
) -> tuple[Array, list[Array]] | None:
    """Height and composition between two times: in the simulated rows there, and at both ends.

    rows  finds simulated rows by time
    z, x  height and the fraction of each metal in these rows; linear in time between rows
    None if there is nothing between the two times.
    """
    time = rows.values
    begin, end = max(begin, time[0]), min(end, time[-1])
    times = np.concatenate((np.array([begin]), time[rows.between(begin, end)], np.array([end])))
    if times[-1] <= times[0]:
        return None
    with np.errstate(all="ignore"):  # infinity - infinity
        return np.interp(times, time, z), [np.interp(times, time, column) for column in x]


def _mean_composition(heights: Array, x: Sequence[Array]) -> Array | None:
    """Mean of x over the height grown: the integral of x dz by the trapezoid rule, divided by that height.

    None if nothing grew. NaN if the mean is not finite: an infinite height, or almost as much evaporated as grew.
    """
    with np.errstate(all="ignore"):  # infinity - infinity, and quotients of tiny numbers
        grown = heights[-1] - heights[0]
        if not grown > 0.0:
            return None
        steps = np.diff(heights)
        means = np.array([np.sum(0.5 * (column[1:] + column[:-1]) * steps) / grown for column in x])
    return np.where(np.isfinite(means), means, np.nan)


def _middle_composition(heights: Array, x: Sequence[Array]) -> Array | None:
    """Mean of x over the heights from 1/4 to 3/4 of what has grown, in the film that is there at the end of heights.

    A height belongs to the last step that rises through it, so that what evaporated again does not count.
    None if nothing grew or the height is infinite; NaN if the mean is not finite.
    """
    with np.errstate(all="ignore"):
        grown = heights[-1] - heights[0]
        if not 0.0 < grown < np.inf:
            return None
        low = heights[0] + 0.25 * grown
        high = low + 0.5 * grown
        left = np.fmin.accumulate(heights[::-1])[::-1]  # above it, nothing is left of the steps before
        bottom, top = np.maximum(heights[:-1], low), np.minimum(left[1:], high)
        steps = np.flatnonzero(top > bottom)
        below, above, bottom, top = heights[steps], heights[steps + 1], bottom[steps], top[steps]
        share = (0.5 * (bottom + top) - below) / (above - below)
        middles = [column[steps] + share * (column[steps + 1] - column[steps]) for column in x]
        means = np.array([np.sum(middle * (top - bottom)) / np.sum(top - bottom) for middle in middles])
    return np.where(np.isfinite(means), means, np.nan)


def _relaxation(a: float, strain: float, a_sub: float) -> float:
    """(a - a_sub) / (a0 - a_sub) in the finished structure, where a0 is the layer's unstrained lattice constant."""
    a0 = a / (1.0 + strain) if strain != -1.0 else math.inf
    if abs(a0 - a_sub) < SMALLEST_MISMATCH:
        return math.nan
    return (a - a_sub) / (a0 - a_sub)


def layer_values(layer_list: pd.DataFrame, profile: pd.DataFrame) -> pd.DataFrame:
    """Run.layers from the lines of the layers and the rows. The time it takes is linear in layers and rows."""
    names = [name for name, _, _ in LAYER_COLUMNS]
    active = profile["active"].to_numpy()
    numbers = {name: profile[name].to_numpy() for name in COLUMN_NAMES}
    kinds = _kinds(active, len(layer_list))
    active_rows = np.flatnonzero(active)
    pre_count, post_count = kinds.count("pre"), kinds.count("post")
    post_begin = active_rows[-1] + 1 if len(active_rows) else 2 * pre_count
    substrate_row = 2 * pre_count - 1 if pre_count else active_rows[0] if len(active_rows) else None
    a_sub = math.nan if substrate_row is None else float(numbers["a_eff_z"][substrate_row])
    simulated = RowFinder(numbers["time"][active_rows])
    height = numbers["z"][active_rows]
    metals = [numbers[name][active_rows] for name in METALS]

    records = []
    clock = numbers["time"][0] if len(profile) else np.nan
    for index, (name, duration, thickness) in enumerate(layer_list.itertuples(index=False)):
        kind = kinds[index]
        begin, end = clock, clock + duration
        clock = end
        mean = middle = None
        if kind == "active":
            slack = TIME_TOLERANCE * abs(end)
            rows = active_rows[simulated.up_to(begin + slack, end + slack)]
            if len(active_rows):
                grown = _growth(simulated, height, metals, begin, end)
                if grown is not None:
                    mean, middle = _mean_composition(*grown), _middle_composition(*grown)
        else:
            first = 2 * index if kind == "pre" else post_begin + 2 * (index - len(kinds) + post_count)
            rows = np.arange(first, min(first + 2, len(profile)))
            if len(rows) == 2 and 0.0 < numbers["z"][rows[1]] - numbers["z"][rows[0]] < np.inf:
                mean = middle = np.array([numbers[name][rows].mean() for name in METALS])
        record: dict[str, Any] = dict.fromkeys(names, np.nan)
        record.update(name=name, kind=kind, begin=begin, end=end, duration=duration, thickness=thickness)
        if duration != 0.0:
            record["mean_rate"] = thickness / duration
        if mean is not None:
            record.update(zip(METALS, mean))
        if middle is not None:
            record.update((f"{name}_mid", x) for name, x in zip(METALS, middle))
        if len(rows):
            last = rows[-1]
            record.update((f"{column}_end", numbers[column][last]) for column in METALS)
            record.update((column, numbers[column][last]) for column in END_COLUMNS)
            record["v_defects_t"] = numbers["rho_vd0_t"][last] / 2.0
            a, strain = float(numbers["a_eff_z"][last]), float(numbers["eps_xx_z"][last])
            record["relaxation"] = _relaxation(a, strain, a_sub)
        records.append(record)
    table = pd.DataFrame(records, columns=names, index=layer_list.index)
    table.attrs["units"] = {name: unit for name, unit, _ in LAYER_COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in LAYER_COLUMNS}
    return table
