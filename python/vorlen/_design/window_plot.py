"""The picture of a process window: the distribution of each target, and what each value that varies contributes."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, GALLIUM, INDIUM, STYLE, WIDTH, check_figure, save_figure
from .._base.types import Array, PathLike

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

ROW_HEIGHT = 1.25  # inches
BINS = 31  # an odd number: one is centred at the nominal value
SMALLEST_RANGE = 1e-6  # of histograms, of the nominal value


def plot_window(
    table: pd.DataFrame, targets: pd.DataFrame, sensitivities: pd.DataFrame, path: PathLike | None
) -> Figure:
    """The figure that Window.plot describes."""
    import matplotlib.pyplot as plt

    if path is not None:
        check_figure(path)  # before the work
    with plt.rc_context(STYLE):
        figure, axes = plt.subplots(
            len(targets), 2, figsize=(WIDTH, 0.4 + ROW_HEIGHT * len(targets)), constrained_layout=True, squeeze=False
        )
        for (left, right), row in zip(axes, targets.itertuples()):
            label = f"{row.quantity} of {row.layer}"
            _draw_distribution(left, table[label].to_numpy(), row, label)
            own = sensitivities[(sensitivities.layer == row.layer) & (sensitivities.quantity == row.quantity)]
            _draw_effects(right, own, row.unit)
        if path is not None:
            save_figure(figure, path)
    return figure


def _draw_distribution(axes: Axes, values: Array, row: Any, label: str) -> None:
    """A histogram of the runs; the range of the tolerance is shaded."""
    known = values[np.isfinite(values)]
    target, tolerance = row.target, row.tolerance
    centre = row.nominal if np.isfinite(row.nominal) else target
    away = max(float(np.abs(known - centre).max(initial=0.0)), SMALLEST_RANGE * max(abs(centre), 1e-9))
    axes.hist(known, bins=BINS, range=(centre - away, centre + away), color=GALLIUM)
    low, high = axes.get_xlim()
    if row.bound:
        axes.axvline(target, color=BLACK, linewidth=0.9)
        span = (low, target) if row.bound == "at most" else (target, high)
        axes.axvspan(*span, color=ALUMINIUM, alpha=0.18, zorder=0)
    else:
        axes.axvspan(target - tolerance, target + tolerance, color=ALUMINIUM, alpha=0.18, zorder=0)
        axes.axvline(target, color=BLACK, linewidth=0.7)
        low, high = min(low, target - 1.2 * tolerance), max(high, target + 1.2 * tolerance)
    axes.set(xlim=(low, high), ylabel="runs", xlabel=f"{label}{f', {row.unit}' if row.unit else ''}")
    if np.isfinite(row.held):
        axes.set_title(f"holds in {100 * row.held:.1f} %", fontsize="small", loc="right")
    axes.ticklabel_format(axis="x", useOffset=False)
    axes.locator_params(axis="x", nbins=4)  # of more the labels of fractions would overlap


def _draw_effects(axes: Axes, own: pd.DataFrame, unit: str) -> None:
    """What one standard deviation of each value changes."""
    places = np.arange(len(own))
    colours = [INDIUM if change < 0.0 else GALLIUM for change in own.change]
    axes.axvline(0.0, color=BLACK, linewidth=0.7)
    axes.barh(places, own.change, height=0.6, color=colours)
    names = [f"+{row.spread:.3g} {row.knob_unit} {row.knob.rpartition('stages/')[2]}" for row in own.itertuples()]
    axes.set_yticks(places, names)
    axes.set(xlabel=f"change{f', {unit}' if unit else ''}", ylim=(len(own) - 0.5, -0.5))
    axes.locator_params(axis="x", nbins=4)
