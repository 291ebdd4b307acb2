"""The picture of a map: lines of equal value with their numbers, the region of the targets, the runs and the recipe."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, DASHES, GALLIUM, INDIUM, ORANGE, PINK, STYLE, WIDTH
from .._base.figures import check_figure, save_or_close
from .._base.types import PathLike
from .map_lines import levels_of, region_of
from .map_page import Axis, Shown, grid_of
from .quantities import Target

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

HEIGHT = 4.0  # inches
COLOURS = (INDIUM, GALLIUM, PINK, ORANGE, ALUMINIUM)  # by quantity


def plot_map(
    axes: tuple[Axis, Axis], shown: Sequence[Shown], targets: Sequence[Target], table: pd.DataFrame,
    path: PathLike | None, inputs: Sequence[PathLike | None],
) -> Figure:
    """The figure that ProcessMap.plot describes. inputs: files that it must not replace."""
    import matplotlib.pyplot as plt

    if path is not None:
        check_figure(path, inputs)  # before the work
    with plt.rc_context(STYLE):
        figure, place = plt.subplots(figsize=(WIDTH, HEIGHT), constrained_layout=True)
        _draw_region(place, axes, targets, table)
        _draw_lines(place, axes, shown, table)
        done = table.status == "ok"
        first, second = (axis.path for axis in axes)
        place.plot(table[first][done], table[second][done], ".", color=BLACK, markersize=2.5, label="run")
        if not done.all():
            place.plot(table[first][~done], table[second][~done], "x", color=BLACK, label="run without a result")
        here = [axis.present for axis in axes]
        if all(at is not None and axis.values[0] <= at <= axis.values[-1] for at, axis in zip(here, axes)):
            place.plot(*here, "*", color=BLACK, markersize=9, zorder=4, label="recipe")
        place.set(
            xlabel=axes[0].title, ylabel=axes[1].title, xlim=(axes[0].values[0], axes[0].values[-1]),
            ylim=(axes[1].values[0], axes[1].values[-1]),
        )
        place.ticklabel_format(useOffset=False)
        place.legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=3, columnspacing=1.2)
        save_or_close(figure, path, inputs)
    return figure


def _draw_region(place: Axes, axes: tuple[Axis, Axis], targets: Sequence[Target], table: pd.DataFrame) -> None:
    """The region in which all targets hold, as one path: polygons that run the other way are holes."""
    from matplotlib.patches import PathPatch
    from matplotlib.path import Path

    if not targets:
        return
    x, y = (np.array(axis.values, dtype=float) for axis in axes)
    polygons = region_of(x, y, [grid_of(axes, table, target.label) for target in targets], targets)
    if polygons:
        outline = Path.make_compound_path(*(Path(polygon, closed=True) for polygon in polygons))
        place.add_patch(PathPatch(
            outline, facecolor=ALUMINIUM, edgecolor="none", alpha=0.25, zorder=0, label="all targets hold"
        ))


def _draw_lines(place: Axes, axes: tuple[Axis, Axis], shown: Sequence[Shown], table: pd.DataFrame) -> None:
    """Lines of equal value of each quantity, with their numbers."""
    from matplotlib.lines import Line2D

    for number, one in enumerate(shown):
        grid = grid_of(axes, table, one.label)
        colour = COLOURS[number % len(COLOURS)]
        dashes = DASHES if number % 2 else "solid"
        levels = levels_of(grid)
        if levels:
            made = place.contour(
                axes[0].values, axes[1].values, grid, levels=levels, colors=colour, linewidths=1.1,
                linestyles=[dashes],
            )
            place.clabel(made, fmt=lambda level: f"{level:g}", fontsize=7)
        place.add_line(Line2D([], [], color=colour, linestyle=dashes, linewidth=1.1, label=one.title))
