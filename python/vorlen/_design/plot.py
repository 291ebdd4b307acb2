"""The picture of a design: targets at the start and now, and how far each knob was moved."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, GALLIUM, INDIUM, STYLE, WIDTH, check_figure, save_figure
from .._base.types import PathLike

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

ROW_HEIGHT = 0.24  # inches
SMALLEST_RATIO = 0.01  # smaller values are drawn here


def plot_design(
    table: pd.DataFrame, knobs: pd.DataFrame, path: PathLike | None, inputs: Sequence[PathLike | None]
) -> Figure:
    """The figure that Design.plot describes. inputs: files that it must not replace."""
    import matplotlib.pyplot as plt

    if path is not None:
        check_figure(path, inputs)  # before the work
    with plt.rc_context(STYLE):
        figure, (left, right) = plt.subplots(
            1, 2, figsize=(WIDTH, 1.0 + ROW_HEIGHT * max(len(table), len(knobs))), constrained_layout=True
        )
        _draw_targets(left, table)
        _draw_knobs(right, knobs)
        if path is not None:
            save_figure(figure, path, inputs)
    return figure


def _draw_targets(axes: Axes, table: pd.DataFrame) -> None:
    places = np.arange(len(table))
    start, reached = (_ratios(table[column], table) for column in ("start", "reached"))
    axes.axvline(1.0, color=BLACK, linewidth=0.7)
    for place, first, last in zip(places, start, reached):
        axes.plot([first, last], [place, place], color="#9aa7b3", linewidth=1.0, zorder=1)
    axes.plot(start, places, "o", color=GALLIUM, markersize=4, markerfacecolor="white", label="start")
    for met, colour, name in ((True, ALUMINIUM, "reached"), (False, INDIUM, "out of reach")):
        chosen = table.met.to_numpy() == met
        if chosen.any():
            axes.plot(reached[chosen], places[chosen], "o", color=colour, markersize=5, label=name)
    axes.set_yticks(places, [f"{row.quantity}\n{row.layer}" for row in table.itertuples()])
    axes.set(xlabel="value / target", xscale="log", ylim=(len(table) - 0.5, -0.5))
    _tidy_ratios(axes)
    axes.legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=3, handletextpad=0.2, columnspacing=1.0)


def _ratios(values: pd.Series, table: pd.DataFrame) -> Any:
    """Values in units of their targets; a target of 0 that is met is 1, and one that is not has no place."""
    target = table.target.to_numpy()
    with np.errstate(divide="ignore", invalid="ignore"):
        ratios = values.to_numpy() / target
    ratios = np.where((target == 0.0) & (values.to_numpy() == 0.0), 1.0, ratios)
    return np.where(np.isfinite(ratios), np.maximum(ratios, SMALLEST_RATIO), np.nan)


def _draw_knobs(axes: Axes, knobs: pd.DataFrame) -> None:
    places = np.arange(len(knobs))
    before, after = (np.array([np.mean(value) for value in knobs[column]]) for column in ("before", "after"))
    shifted = knobs.knob.to_numpy() == "T"
    factors = np.where(shifted, 1.0, after / np.where(before == 0.0, after, before))
    axes.axvline(1.0, color=BLACK, linewidth=0.7)
    axes.barh(places, factors - 1.0, left=1.0, height=0.55, color=GALLIUM)
    labels = []
    for row, change in zip(knobs.itertuples(), after - before):
        notes = [f"{change:+.3g} K"] if row.knob == "T" else []
        notes += [f"{'upper' if row.at_limit == 'high' else 'lower'} limit"] if row.at_limit else []
        note = f" ({'; '.join(notes)})" if notes else ""
        labels.append(f"{row.knob}{note}\n{row.layer}")
    axes.set_yticks(places, labels)
    axes.set(xlabel="knob, after / before", xscale="log", ylim=(len(knobs) - 0.5, -0.5))
    _tidy_ratios(axes)


def _tidy_ratios(axes: Axes) -> None:
    """A logarithmic axis with plain numbers, at least a tenth wide on both sides of 1."""
    from matplotlib.ticker import LogLocator, NullLocator, ScalarFormatter

    low, high = axes.get_xlim()
    low, high = min(low, 0.9), max(high, 1.1)
    axes.set_xlim(low, high)
    if high / low < 5.0:
        axes.set_xscale("linear")
        axes.set_xlim(low, high)
    else:
        axes.xaxis.set_major_locator(LogLocator(subs=(1.0, 2.0, 5.0) if high / low < 50.0 else (1.0,)))
        axes.xaxis.set_minor_locator(NullLocator())
        axes.xaxis.set_major_formatter(ScalarFormatter())
