"""The layers of a run, one row each: times, mean composition, strain and densities at the end.

The values are defined in docs/result-format.md; this package and the command-line tool compute the same.
"""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd

from ._result_file import COLUMN_NAMES, TIME_TOLERANCE

SMALLEST_MISMATCH = 1e-6  # angstrom; below it the degree of relaxation is undefined

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


def _kinds(active: np.ndarray, layer_count: int) -> list[str]:
    """Kind of each layer (pre, active or post) from the kinds of the rows: pre- and post-stages have two rows each.

    A failed run has no rows of post-stages; they count as active stages that were not reached.
    """
    simulated = np.flatnonzero(active)
    pre = min(simulated[0] // 2 if len(simulated) else len(active) // 2, layer_count)
    post = (len(active) - 1 - simulated[-1]) // 2 if len(simulated) else 0
    post = min(post, layer_count - pre)
    return ["pre"] * pre + ["active"] * (layer_count - pre - post) + ["post"] * post


def _mean_composition(time: np.ndarray, z: np.ndarray, x: np.ndarray, begin: float, end: float) -> np.ndarray | None:
    """Mean of x over the height grown between two times. x has one column per metal.

    The integral of x dz by the trapezoid rule over each pair of consecutive rows, clipped to begin and end, x and z
    linear in time between rows. None if nothing grew. NaN if the mean is not finite: an infinite height, or almost as
    much evaporated as grew.
    """
    begin, end = max(begin, time[0]), min(end, time[-1])
    times = np.concatenate(([begin], time[(time > begin) & (time < end)], [end]))
    if times[-1] <= times[0]:
        return None
    heights = np.interp(times, time, z)
    with np.errstate(invalid="ignore"):  # infinity - infinity
        grown = heights[-1] - heights[0]
    if not grown > 0.0:
        return None
    columns = [np.interp(times, time, column) for column in x.T]
    with np.errstate(all="ignore"):
        steps = np.diff(heights)
        means = np.array([np.sum(0.5 * (column[1:] + column[:-1]) * steps) / grown for column in columns])
    return np.where(np.isfinite(means), means, np.nan)


def _relaxation(row: dict[str, float], a_sub: float) -> float:
    """(a - a_sub) / (a0 - a_sub) in the finished structure, where a0 is the layer's unstrained lattice constant."""
    a0 = row["a_eff_z"] / (1.0 + row["eps_xx_z"])
    if abs(a0 - a_sub) < SMALLEST_MISMATCH:
        return np.nan
    return (row["a_eff_z"] - a_sub) / (a0 - a_sub)


def layer_values(layer_list: pd.DataFrame, profile: pd.DataFrame) -> pd.DataFrame:
    """Run.layers from the lines of the layers and the rows."""
    names = [name for name, _, _ in LAYER_COLUMNS]
    active = profile["active"].to_numpy()
    numbers = {name: profile[name].to_numpy() for name in COLUMN_NAMES}
    kinds = _kinds(active, len(layer_list))
    active_rows = np.flatnonzero(active)
    pre_count = kinds.count("pre")
    post_begin = active_rows[-1] + 1 if len(active_rows) else 2 * pre_count
    substrate_row = 2 * pre_count - 1 if pre_count else (active_rows[0] if len(active_rows) else None)
    metals = np.column_stack([numbers["x_in"], numbers["x_ga"], numbers["x_al"]])

    records = []
    clock = numbers["time"][0] if len(profile) else np.nan
    for index, (name, duration, thickness) in enumerate(layer_list.itertuples(index=False)):
        kind = kinds[index]
        begin, end = clock, clock + duration
        clock = end
        slack = TIME_TOLERANCE * abs(end)
        if kind == "active":
            time = numbers["time"][active_rows]
            candidates = active_rows[(time > begin + slack) & (time <= end + slack)]
            mean = (
                _mean_composition(time, numbers["z"][active_rows], metals[active_rows], begin, end)
                if len(active_rows)
                else None
            )
        else:
            first = 2 * index if kind == "pre" else post_begin + 2 * (index - len(kinds) + kinds.count("post"))
            candidates = np.arange(first, min(first + 2, len(profile)))
            mean = metals[candidates].mean(axis=0) if len(candidates) == 2 else None
        record: dict[str, Any] = dict.fromkeys(names, np.nan)
        record.update(name=name, kind=kind, begin=begin, end=end, duration=duration, thickness=thickness)
        if duration != 0.0:
            record["mean_rate"] = thickness / duration
        if mean is not None:
            record.update(zip(("x_in", "x_ga", "x_al"), mean))
        if len(candidates):
            row = {column: float(numbers[column][candidates[-1]]) for column in COLUMN_NAMES}
            for column in ("x_in", "x_ga", "x_al"):
                record[f"{column}_end"] = row[column]
            for column in ("eps_xx_t", "eps_xx_z", "rho_td_t", "rho_td_z"):
                record[column] = row[column]
            record["v_defects_t"] = row["rho_vd0_t"] / 2.0
            record["relaxation"] = _relaxation(row, float(numbers["a_eff_z"][substrate_row]))
        records.append(record)
    table = pd.DataFrame(records, columns=names, index=layer_list.index)
    table.attrs["units"] = {name: unit for name, unit, _ in LAYER_COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in LAYER_COLUMNS}
    return table
