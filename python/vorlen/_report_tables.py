"""The tables of a report: rows to show, with repeated groups once if there are many, and CSV with all digits."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from ._interfaces import period_numbers
from ._repeats import Group, repeats
from ._structure import groups_of, heights

SHOWN_MAX = 200  # rows of a table; of more, repeated groups are shown once
HEIGHTS = {"z": "height", "z10": "height_10", "z90": "height_90"}  # of interfaces: columns and their names in CSV


def layer_table(layers: pd.DataFrame, last: float) -> pd.DataFrame:
    """Run.layers with the heights of bottom and top above the pre-stages, nm, and whether each layer was reached.

    last  time of the last row, s. Layers that begin later were not reached; they have no heights.
    """
    table = layers.copy()
    table["reached"] = ~(layers["begin"] >= last)  # NaN counts as reached
    table["bottom"], table["top"] = heights(layers)
    table.loc[~table["reached"], ["bottom", "top"]] = np.nan
    table.attrs = {"units": layers.attrs.get("units", {}) | {"bottom": "nm", "top": "nm"}}
    return table


def interface_table(interfaces: pd.DataFrame, reference_height: float) -> pd.DataFrame:
    """Run.interfaces with heights above the pre-stages, and with numbers of the interfaces between equal layers."""
    table = interfaces.copy()
    table["period"] = pd.Series(period_numbers(interfaces), table.index, dtype=object)
    table[list(HEIGHTS)] -= reference_height
    table.attrs = {"units": dict(interfaces.attrs.get("units", {}))}
    return table


def layer_groups(layers: pd.DataFrame) -> list[Group]:
    """The groups in which the layers are shown: single layers, or repeated groups if there are many layers."""
    return groups_of(layers) if len(layers) > SHOWN_MAX else _single(len(layers))


def interface_groups(interfaces: pd.DataFrame) -> list[Group]:
    """The same for interfaces: those with equal layers, steps and widths."""
    if len(interfaces) <= SHOWN_MAX:
        return _single(len(interfaces))
    names = (interfaces["below"].astype(str) + "\n" + interfaces["above"].astype(str) + "\n" + interfaces["metal"])
    _, codes = np.unique(names.to_numpy(str), return_inverse=True)
    widths = np.nan_to_num(interfaces["width"].to_numpy(float))
    return repeats(codes, widths, interfaces[["x_below", "x_above"]].to_numpy(float))


def _single(count: int) -> list[Group]:
    return [Group(place, 1, 1) for place in range(count)]


def shown_places(groups: Sequence[Group]) -> list[int]:
    """Positions of the rows that are shown: the first period of each group."""
    return [place for group in groups for place in range(group.first, group.first + group.size)]


def records(table: pd.DataFrame, groups: Sequence[Group], what: str) -> list[dict[str, Any]]:
    """The rows to show as dictionaries, and before each repeated group a row with a note."""
    rows = table.reset_index()
    found: list[dict[str, Any]] = []
    for group in groups:
        if group.periods > 1:
            last = group.first + group.size * group.periods
            first_number, last_number = table.index[group.first], table.index[last - 1]
            numbers = f"{what} {first_number} to {last_number}"
            note = f"{numbers}: {group.periods} periods of {group.size}, of which the first is shown"
            found.append({"note": note})
        found += rows.iloc[group.first : group.first + group.size].to_dict("records")
    return found


def csv_text(table: pd.DataFrame) -> str:
    """Comma-separated values with all digits. The header has the units: thickness [nm]."""
    units = table.attrs["units"]
    shown = table.rename(columns=HEIGHTS | {"bottom": "height_bottom", "top": "height_top"})
    shown.columns = pd.Index([
        f"{name} [{units[column]}]" if units.get(column) else name for name, column in zip(shown.columns, table.columns)
    ])
    text: str = shown.to_csv(index=True, lineterminator="\n")
    return text
