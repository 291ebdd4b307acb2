"""Figures of a run for papers and slides: matplotlib, vector graphics with editable text, colour-blind-safe colours.

Contents: a figure of a run; panels over time or height. plot_relaxation has the relaxation diagram.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from .._base.figures import BLACK, DASHES, ORANGE, PINK, STYLE, WIDTH, check_figure, save_or_close
from .._base.types import Array, PathLike
from .drawn import DrawnTables, decades_of, densities_of, metals_of
from .plot_relaxation import relaxation_diagram

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

SHADES = ("#eef2f6", "#ffffff")  # of alternate stages
PANEL_HEIGHT = 1.25  # inches
LETTER_WIDTH = 0.058  # inches, of a letter in a stage's name
NAME_DISTANCE = 0.15  # inches; names of stages closer than this would overlap
SMALLEST_SHADE = 0.003  # inches; about a pixel of a printer. Narrower stages are not shaded

KINDS = ("time", "depth", "relaxation")
PANELS = ("composition", "rate", "temperature", "strain", "densities")


def plot_run(
    tables: DrawnTables,
    kind: str,
    span: str,
    panels: Sequence[str],
    path: PathLike | None,
    inputs: Iterable[PathLike | None],
) -> Figure:
    """A figure of a run, described at Run.plot. inputs: files that must not be replaced by the figure."""
    import matplotlib.pyplot as plt

    panels = checked_panels(kind, KINDS, span, panels)
    if tables.rows(span).empty:
        raise ValueError("the run has no rows to draw")
    if path is not None:
        check_figure(path, inputs)  # before the work
    with plt.rc_context(STYLE):
        if kind == "relaxation":
            figure = relaxation_diagram(tables, span)
        else:
            figure = _panels(tables, span, panels, over_time=kind == "time")
        save_or_close(figure, path, inputs)
    return figure


def checked_panels(kind: str, kinds: Sequence[str], span: str, panels: Sequence[str]) -> list[str]:
    """The panels as a list. Raises TypeError or ValueError for a wrong kind, span or panel."""
    if kind not in kinds:
        names = ", ".join(f'"{name}"' for name in kinds[:-1]) + f' or "{kinds[-1]}"'
        raise ValueError(f"kind must be {names}, got {kind!r}")
    if isinstance(panels, str) or not isinstance(panels, Iterable):
        raise TypeError(f"panels must be a list of names, got {panels!r}")
    panels = list(panels)
    wrong = next((panel for panel in panels if not isinstance(panel, str)), None)
    if wrong is not None:
        raise TypeError(f"panels must be names, got {wrong!r}")
    if not panels or not all(panel in PANELS for panel in panels):
        raise ValueError(f"panels must be one or more of {', '.join(PANELS)}, got {', '.join(map(str, panels))}")
    if span not in ("active", "all"):
        raise ValueError(f'span must be "active" or "all", got {span!r}')
    return panels


def shade_stages(axes: list[Axes], borders: pd.DataFrame) -> bool:
    """Shades the stages in all axes and names them above the first. Returns True if the names are slanted."""
    begin, end = axes[0].get_xlim()
    inches = axes[0].get_position().width * axes[0].figure.get_figwidth() / (end - begin)
    for number, stage in enumerate(borders.itertuples()):
        if len(borders) > 1 and (stage.end - stage.begin) * inches < SMALLEST_SHADE:
            continue
        for axis in axes:
            axis.axvspan(stage.begin, stage.end, facecolor=SHADES[number % 2], edgecolor="none", zorder=0)
    names = [" ".join(str(name).split()) for name in borders["name"]]
    names = [name if len(name) <= 28 else name[:27] + "\N{HORIZONTAL ELLIPSIS}" for name in names]
    widths = (borders["end"] - borders["begin"]).to_numpy() * inches
    upright = any(LETTER_WIDTH * len(name) > width for name, width in zip(names, widths))
    middles = 0.5 * (borders["begin"].clip(lower=begin) + borders["end"].clip(upper=end)).to_numpy()
    chosen = _named(names, widths, (middles - begin) * inches) if upright else range(len(names))
    for number in chosen:
        axes[0].annotate(
            names[number],
            (middles[number], 1.0),
            xycoords=("data", "axes fraction"),
            xytext=(0, 3),
            textcoords="offset points",
            rotation=35 if upright else 0,
            ha="left" if upright else "center",
            va="bottom",
            fontsize=7,
            color="#333333",
            annotation_clip=False,
        )
    return upright


def _named(names: list[str], widths: Array, places: Array) -> list[int]:
    """The stages whose slanted names do not overlap: wide ones first, and repeated names after all others.

    widths, places  inches
    """
    order = [int(number) for number in np.argsort(-widths, kind="stable")]
    first: dict[str, int] = {}
    for number in order:
        first.setdefault(names[number], number)
    chosen: list[int] = []
    for number in [*first.values(), *(number for number in order if first[names[number]] != number)]:
        if all(abs(places[number] - places[other]) >= NAME_DISTANCE for other in chosen):
            chosen.append(number)
    return sorted(chosen)


def _panels(tables: DrawnTables, span: str, panels: Sequence[str], over_time: bool) -> Figure:
    import matplotlib.pyplot as plt

    rows = tables.rows(span)
    x = rows["time"].to_numpy() if over_time else rows["z"].to_numpy() - tables.reference_height
    curve = tables.temperature_curve(span)
    drawers: dict[str, Callable[[Axes], None]] = {
        "composition": lambda axis: _draw_composition(axis, x, rows),
        "rate": lambda axis: _draw_rate(axis, x, rows),
        "strain": lambda axis: _draw_strain(axis, x, rows),
        "densities": lambda axis: _draw_densities(axis, x, rows),
    }
    if curve is not None and np.isfinite(curve[2]).any():
        places, heat = curve[0 if over_time else 1], curve[2]
        drawers["temperature"] = lambda axis: _draw_temperature(axis, places, heat)
    drawers = {name: drawers[name] for name in panels if name in drawers}
    if not drawers:
        raise ValueError("the temperature is unknown without the recipe; use vorlen.read(result, recipe)")
    height = 0.95 + PANEL_HEIGHT * len(drawers)  # inches
    figure, grid = plt.subplots(len(drawers), 1, sharex=True, squeeze=False, figsize=(WIDTH, height))
    axes = list(grid[:, 0])
    figure.subplots_adjust(left=0.15, right=0.8, bottom=0.42 / height, hspace=0.14)
    for axis, draw in zip(axes, drawers.values()):
        draw(axis)
        axis.grid(axis="y", color="#d8d8d8", linewidth=0.5, zorder=0.5)
        axis.set_axisbelow(True)
        axis.yaxis.set_label_coords(-0.125, 0.5)
        if axis.get_legend_handles_labels()[1]:
            axis.legend(loc="center left", bbox_to_anchor=(1.005, 0.5), borderaxespad=0.0, handlelength=1.6)
    finite = x[np.isfinite(x)]
    if len(finite) and finite.max() > finite.min():
        axes[0].set_xlim(finite.min(), finite.max())
    axes[-1].set_xlabel("time (s)" if over_time else tables.height_label)
    upright = shade_stages(axes, tables.stage_borders(over_time, span))
    figure.subplots_adjust(top=1 - (0.7 if upright else 0.25) / height)
    return figure


def _draw_composition(axis: Axes, x: Array, rows: pd.DataFrame) -> None:
    for column, label, colour in metals_of(rows):
        axis.plot(x, rows[column], color=colour, label=label)
    axis.set_ylim(-0.03, 1.03)
    axis.set_ylabel("composition")


def _draw_rate(axis: Axes, x: Array, rows: pd.DataFrame) -> None:
    # Rows of pre-stages and post-stages contain the recipe's number, in another unit.
    axis.plot(x, rows["rate"].where(rows["active"]), color=BLACK)
    axis.set_ylabel("growth rate\n(nm/s)")
    axis.set_ylim(bottom=min(0.0, axis.get_ylim()[0]))


def _draw_temperature(axis: Axes, x: Array, heat: Array) -> None:
    axis.plot(x, heat, color=ORANGE)
    axis.margins(y=0.2)
    axis.ticklabel_format(axis="y", useOffset=False)
    axis.set_ylabel("temperature\n(K)")


def _draw_strain(axis: Axes, x: Array, rows: pd.DataFrame) -> None:
    axis.axhline(0.0, color="#999999", linewidth=0.6)
    axis.plot(x, 100 * rows["eps_xx_t"], color=PINK, label="at growth (t)")
    axis.plot(x, 100 * rows["eps_xx_z"], color=PINK, linestyle=DASHES, label="finished (z)")
    axis.set_ylabel("strain \u03b5$_{xx}$\n(%)")


def _draw_densities(axis: Axes, x: Array, rows: pd.DataFrame) -> None:
    from matplotlib.ticker import NullFormatter

    densities = densities_of(rows)
    for values, name, colour, dashed in densities:
        axis.plot(x, values, color=colour, label=name, linestyle=DASHES if dashed else "-")
    axis.set_yscale("log")
    axis.set_ylim(*(10.0**decade for decade in decades_of(densities)))
    axis.yaxis.set_minor_formatter(NullFormatter())
    axis.set_ylabel("density\n(cm$^{-2}$)")
