"""Tornado plots of sensitivities."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from ._plot import STYLE, save_figure
from ._sensitivity import COLUMNS

if TYPE_CHECKING:
    from matplotlib.figure import Figure


def tornado(
    table: pd.DataFrame, quantity: str, *, most: int = 12, path: str | os.PathLike[str] | None = None
) -> Figure:
    """A tornado plot: the effect of each parameter on a quantity, the strongest on top.

    table     the table returned by sensitivity()
    quantity  one of its quantities, such as x_in_2
    most      number of parameters shown
    path      file to save the figure to; None: it is not saved
    Parameters with a failed run are left out.
    """
    import matplotlib.pyplot as plt

    from ._drawn import BLACK, GALLIUM, INDIUM

    rows = _shown_rows(table, quantity, most)
    base = rows.base.iloc[0]
    unit = table.attrs.get("units", {}).get(quantity, "1")
    with plt.rc_context(STYLE):
        figure, axes = plt.subplots(figsize=(6.3, 0.9 + 0.32 * len(rows)), constrained_layout=True)
        places = np.arange(len(rows))
        axes.barh(places, rows.below - base, left=base, height=0.6, color=GALLIUM, label="parameter lowered")
        axes.barh(places, rows.above - base, left=base, height=0.6, color=INDIUM, label="parameter raised")
        axes.axvline(base, color=BLACK, linewidth=0.7)
        axes.set_yticks(places, [f"{row.parameter}\n± {row.change:.4g}" for row in rows.itertuples()])
        axes.set_xlabel(quantity + ("" if unit == "1" else f" ({unit})"))
        axes.legend(loc="lower right")
        if path is not None:
            save_figure(figure, path, [table.attrs.get("recipe")])
    return figure


def _shown_rows(table: pd.DataFrame, quantity: str, most: int) -> pd.DataFrame:
    """The rows of a quantity that have a difference, at most so many; the strongest is the last."""
    if not isinstance(table, pd.DataFrame) or not set(COLUMNS) <= set(table.columns):
        raise TypeError("table must be the data frame that sensitivity() returns")
    if isinstance(most, bool) or not isinstance(most, int) or most < 1:
        raise ValueError(f"most must be a positive integer, got {most!r}")
    rows = table[table.quantity == quantity]
    if rows.empty:
        raise ValueError(f"unknown quantity {quantity}; the table has {', '.join(dict.fromkeys(table.quantity))}")
    shown = rows.assign(width=(rows.above - rows.below).abs()).dropna(subset=["base", "width"])
    if shown.empty:
        reasons = [text for text in rows.text if text] or [f"{quantity} is NaN"]
        raise ValueError(f"no parameter has a difference: {reasons[0]}")
    return shown.sort_values("width", kind="stable").tail(most)
