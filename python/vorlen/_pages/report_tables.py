"""The tables of a report: rows to show, with repeated groups once if there are many, and CSV with all digits."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._runs.interfaces import period_numbers
from .._runs.repeats import Group, repeats
from .._runs.structure import groups_of, heights

SHOWN_MAX = 200  # rows of a table; of more, repeated groups are shown once
FEW = 12  # layers; of more, later periods and thin layers are shown on request
THIN = 0.1  # nm
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


def layer_records(layers: pd.DataFrame) -> list[dict[str, Any]]:
    """The layers to show as dictionaries, and before each repeated group a row with a note.

    Of more than FEW layers, those with detail True are shown on request: later periods, and pauses thinner than 0.1 nm.
    """
    if len(layers) <= FEW:
        return records(layers, _single(len(layers)), "Layers")
    found = records(layers, groups_of(layers), "Layers", all_periods=len(layers) <= SHOWN_MAX)
    for row in found:
        if "note" not in row:
            row["detail"] = row["later"] or (abs(row["thickness"]) < THIN and row["reached"])
    return found


def details_text(rows: list[dict[str, Any]]) -> str:
    """What is shown on request; empty if nothing is."""
    details = [row for row in rows if row["detail"]]
    periods, pauses = any(row["later"] for row in details), any(not row["later"] for row in details)
    parts = ["all periods"] * periods + [f"pauses thinner than {THIN:g} nm"] * pauses
    return f"Show {' and '.join(parts)}" if parts else ""


def interface_groups(interfaces: pd.DataFrame) -> list[Group]:
    """The groups in which interfaces are shown: single ones, or those with equal layers, steps and widths if there are many."""
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


def records(
    table: pd.DataFrame, groups: Sequence[Group], what: str, *, all_periods: bool = False
) -> list[dict[str, Any]]:
    """The rows to show as dictionaries, and before each repeated group a row with a note.

    all_periods: also those that are not the first one, with later True; the note is for a table without them
    """
    rows = table.reset_index().to_dict("records")
    found: list[dict[str, Any]] = []
    for group in groups:
        past = group.first + group.size * group.periods
        if group.periods > 1:
            numbers = f"{what} {table.index[group.first]} to {table.index[past - 1]}"
            note = f"{numbers}: {group.periods} periods of {group.size}, of which the first is shown"
            found.append({"note": note, "detail": False, "brief": all_periods})
        for place in range(group.first, past if all_periods else group.first + group.size):
            found.append(rows[place] | {"later": place >= group.first + group.size, "detail": False})
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
