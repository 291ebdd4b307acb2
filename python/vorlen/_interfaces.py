"""Interfaces between layers and their widths.

The width of an interface is the distance between the heights at which a metal's fraction has completed 10 % and 90 % of
its step from the middle of the layer below to the middle of the layer above.
"""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

if TYPE_CHECKING:
    from ._run import Run

SMALLEST_STEP = 0.005  # fraction; a smaller change does not count as an interface
METALS = {"x_in": "In", "x_ga": "Ga", "x_al": "Al"}
COLUMNS = (
    ("below", "", "layer below"),
    ("above", "", "layer above"),
    ("z", "nm", "height of the border between the layers"),
    ("metal", "", "the metal whose fraction changes most, other than Ga"),
    ("x_below", "1", "its fraction in the middle of the layer below"),
    ("x_above", "1", "its fraction in the middle of the layer above"),
    ("z10", "nm", "height at which 10 % of the step is complete"),
    ("z90", "nm", "height at which 90 % of the step is complete"),
    ("width", "nm", "z90 - z10"),
)


def interfaces(run: Run) -> pd.DataFrame:
    """One row per interface at which the composition changes, from the bottom up.

    Heights and width are NaN if the step is not complete between the middles of the two layers.
    """
    layers = run.layers[run.layers["begin"] < run.profile["time"].iloc[-1]]
    tops = layers["thickness"].cumsum().to_numpy() + float(run.profile["z"].iloc[0])
    z = run.profile["z"].to_numpy()
    records = []
    for index in range(len(layers) - 1):
        below, above = layers.iloc[index], layers.iloc[index + 1]
        low, high = tops[index] - below["thickness"] / 2, tops[index] + above["thickness"] / 2
        inside = (z > low) & (z < high)
        best = None
        for column in ("x_in", "x_al"):
            x = run.profile[column].to_numpy()
            x_low, x_high = _value_at(z, x, low), _value_at(z, x, high)
            if best is None or abs(x_high - x_low) > abs(best[2] - best[1]):
                best = (column, x_low, x_high, np.concatenate(([x_low], x[inside], [x_high])))
        column, x_low, x_high, x = best
        if not abs(x_high - x_low) > SMALLEST_STEP:
            continue
        heights = np.concatenate(([low], z[inside], [high]))
        share = (x - x_low) / (x_high - x_low)
        z10 = _crossing(heights, share, 0.1)
        z90 = _crossing(heights, share, 0.9)
        records.append((below["name"], above["name"], tops[index], METALS[column], x_low, x_high, z10, z90, z90 - z10))
    table = pd.DataFrame(records, columns=[name for name, _, _ in COLUMNS])
    table.index = pd.RangeIndex(1, len(table) + 1, name="interface")
    table.attrs["units"] = {name: unit for name, unit, _ in COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in COLUMNS}
    return table


def _value_at(z: np.ndarray, x: np.ndarray, height: float) -> float:
    """x at a height, by linear interpolation between rows."""
    place = int(np.clip(np.searchsorted(z, height), 1, len(z) - 1))
    span = z[place] - z[place - 1]
    if not span > 0.0:
        return float(x[place])
    return float(x[place - 1] + (x[place] - x[place - 1]) * (height - z[place - 1]) / span)


def _crossing(heights: np.ndarray, share: np.ndarray, level: float) -> float:
    """The first height at which share rises through level."""
    for place in range(1, len(share)):
        if share[place - 1] < level <= share[place]:
            part = (level - share[place - 1]) / (share[place] - share[place - 1])
            return float(heights[place - 1] + part * (heights[place] - heights[place - 1]))
    return float("nan")
