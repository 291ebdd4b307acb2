"""The picture of a fit: fitted against measured values."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, GALLIUM, INDIUM, PINK, STYLE, WIDTH, check_figure, save_figure
from .._base.types import PathLike
from .._runs.agreement import Agreement
from .._runs.plot_agreement import draw_into, height_of
from .._sweep.table import UNITS

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

PANEL = (3.1, 3.0)  # inches
LABELS = {"thickness": "Thickness", "x_in": "Indium", "x_ga": "Gallium", "x_al": "Aluminium", "z": "Height"}


def plot_fit(
    fitted: pd.DataFrame, path: PathLike | None, inputs: Iterable[PathLike | None] = (),
    curves: Mapping[tuple[str, str], Agreement] | None = None,
) -> Figure:
    """A panel for each kind of quantity in Fit.fitted, and below them the curves, by recipe and name.

    inputs  files that the figure must not replace
    """
    import matplotlib.pyplot as plt

    if path is not None:
        check_figure(path, inputs)  # before the work
    kinds = fitted.quantity.str.replace(r"_\d+$", "", regex=True)
    present = list(dict.fromkeys(kinds))
    names = list(dict.fromkeys(fitted.recipe))
    below = list((curves or {}).values())
    width = max(PANEL[0] * len(present), WIDTH if below else 0.0)
    heights = [PANEL[1] if present else 0.0, height_of(below)]
    with plt.rc_context(STYLE):
        figure = plt.figure(figsize=(width, sum(heights)), layout="constrained")
        parts = iter(figure.subfigures(2, 1, height_ratios=heights) if present and below else [figure])
        if present:
            _draw_values(next(parts), fitted, kinds, present, names)
        if below:
            draw_into(next(parts), below, [recipe for recipe, _ in curves or {}])
        if path is not None:
            save_figure(figure, path, inputs)
    return figure


def _draw_values(figure: Any, fitted: pd.DataFrame, kinds: pd.Series, present: list[str], names: list[str]) -> None:
    """Fitted against measured values, in a figure or a part of one."""
    panels = figure.subplots(1, len(present), squeeze=False)
    for panel, kind in zip(panels[0], present):
        _draw_panel(panel, fitted[kinds == kind], names)
        unit = UNITS.get(kind, "1")
        title = LABELS.get(kind, kind) + ("" if unit == "1" else f" ({unit})")
        panel.set(xlabel=f"{title}, measured", ylabel=f"{title}, fitted")
    if len(names) > 1:
        panels[0][0].legend(loc="upper left")


def _draw_panel(panel: Axes, rows: pd.DataFrame, names: list[str]) -> None:
    colours = [GALLIUM, INDIUM, ALUMINIUM, PINK]
    ends = np.array([rows[["measured", "fitted"]].min().min(), rows[["measured", "fitted"]].max().max()])
    ends += np.array([-0.06, 0.06]) * max(ends[1] - ends[0], 0.02 * abs(ends[1]))
    panel.plot(ends, ends, color=BLACK, linewidth=0.7, zorder=1)
    for number, name in enumerate(names):
        of_recipe = rows[rows.recipe == name]
        sigma = None if of_recipe.sigma.isna().any() else of_recipe.sigma
        panel.errorbar(
            of_recipe.measured, of_recipe.fitted, xerr=sigma, fmt="os^Dv"[number % 5], markersize=4,
            color=colours[number % 4], elinewidth=0.8, label=name, zorder=2,
        )
    panel.set(xlim=ends, ylim=ends)
    panel.set_aspect("equal")
