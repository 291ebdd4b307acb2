"""Several runs in one figure: vorlen.plot([a, b]). A colour for each run, a line style for each quantity."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import TYPE_CHECKING, NamedTuple

import numpy as np
import pandas as pd

from .._base.figures import DASHES, STYLE, WIDTH, check_figure, save_or_close
from .._base.types import Array, PathLike
from .compare_layers import matching_layers
from .drawn import METALS, SEEN, decades_of
from .plot import PANEL_HEIGHT, PANELS, checked_panels, shade_stages
from .plot_aligned import ALIGNMENTS, Match, PlacedRun, place_runs
from .run import Run

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

# Okabe and Ito's palette for colour-blind readers, without the colours that are too light for lines
COLOURS = ("#0072B2", "#D55E00", "#009E73", "#CC79A7", "#222222", "#E69F00", "#56B4E9")
WIDEST, NARROWEST = 3.0, 1.2
SOLID, DOTS = "-", (0, (1, 1.5))


class Curve(NamedTuple):
    """A quantity of one run."""

    run: int
    values: Array
    quantity: str
    style: str | tuple[int, tuple[float, ...]]


def plot(
    runs: Run | Sequence[Run] | Mapping[str, Run],
    kind: str = "time",
    *,
    labels: Sequence[str] | None = None,
    align: str | None = None,
    span: str = "active",
    panels: Sequence[str] = PANELS,
    path: PathLike | None = None,
) -> Figure:
    """Draws runs on top of each other. Needs matplotlib.

    Each run has a colour, and each quantity of a panel a line style. Gallium is drawn only if no run has another metal.
    A single run is drawn as by Run.plot.

    Parameters
    ----------
    runs : Run, list of Run, or dict of str to Run
        The runs, in a dict with their labels. The axis is that of the first one.
    kind : str, optional
        "time": composition, growth rate, temperature, strain and densities over time; "depth": the same over height.
        For one run also "relaxation".
    labels : list of str, optional
        The names of the runs in the legend. None: the names of their recipes or results.
    align : str, optional
        "stage": each layer of the other runs is shifted and stretched to the place of the same layer in the first run,
        so that equal layers lie on top of each other; "start": only shifted, so that equal layers start at the same
        place and keep their length, with room for the longest; "none": nothing is shifted. Layers correspond as in
        `vorlen diff`; a layer that only some runs have gets its own place, and the curves of the others are interrupted
        there. None: "stage" if the runs have a simulated layer in common, otherwise "none".
    span : str, optional
        "active": the simulated layers; "all": pre-stages and post-stages too.
    panels : list of str, optional
        Which of "composition", "rate", "temperature", "strain", "densities" to draw, from the top down.
    path : path, optional
        File to save the figure to, in the format of its ending (.pdf, .svg, .png, ...), with text as text. None: it
        is not saved.

    Returns
    -------
    matplotlib.figure.Figure
        The figure, open in pyplot.

    Raises
    ------
    ImportError
        If matplotlib is missing.
    OSError
        If the file can't be written.
    RuntimeError
        If the layers of the runs have different names, and the command vorlen, which compares them, is missing.
    TypeError
        If runs is neither of these, labels or panels is not a list of names, or path is not a path.
    ValueError
        If an argument is unknown, there is nothing to draw, the runs to align have no layer in common, or path has no
        ending of a format, is a file of a run or not a regular file.
    """
    import matplotlib.pyplot as plt

    if isinstance(runs, Run):
        runs = [runs]
    chosen, names = named_runs(runs, labels)
    if align not in (None, *ALIGNMENTS):
        raise ValueError(f'align must be "stage", "start", "none" or None, got {align!r}')
    if len(chosen) == 1:
        return chosen[0].plot(kind, span=span, panels=panels, path=path)
    panels = checked_panels(kind, ("time", "depth"), span, panels)
    inputs = [file for run in chosen for file in run._own_files]
    if path is not None:
        check_figure(path, inputs)  # before the work
    matches = [matching_layers(chosen[0], run) for run in chosen]
    if align is None:
        align = "stage" if have_common_layers(chosen, matches, span) else "none"
    elif align != "none" and not have_common_layers(chosen, matches, span):
        raise ValueError(f'the runs have no layer in common, so they can\'t be aligned by align="{align}"; use "none"')
    with plt.rc_context(STYLE):
        figure = _figure(chosen, names, matches, align, span, panels, over_time=kind == "time")
        save_or_close(figure, path, inputs)
    return figure


def named_runs(runs: object, labels: Sequence[str] | None = None) -> tuple[list[Run], list[str]]:
    """The runs, all with rows, and their labels. Raises TypeError or ValueError."""
    if isinstance(runs, Mapping):
        if labels is not None:
            raise TypeError("labels can't be given with a dict of runs, whose keys are the labels")
        labels, runs = list(runs), list(runs.values())
    if isinstance(runs, (str, bytes)) or not isinstance(runs, Sequence):
        raise TypeError(f"runs must be runs in a list or dict, got {type(runs).__name__}")
    chosen = list(runs)
    for run in chosen:
        if not isinstance(run, Run):
            raise TypeError(f"runs must contain objects of type Run, got {type(run).__name__}")
    if not chosen:
        raise ValueError("runs must contain at least one run")
    if labels is None:
        names = _default_labels(chosen)
    elif isinstance(labels, str) or not all(isinstance(label, str) for label in labels):
        raise TypeError(f"labels must be a list of names, got {labels!r}")
    elif len(labels) != len(chosen):
        raise ValueError(f"there must be as many labels as runs: {len(chosen)}, got {len(labels)}")
    else:
        names = list(labels)
    for run, name in zip(chosen, names):
        if not run.content or run._profile.empty:
            raise ValueError(f"the run {name} has no rows to draw")
    return chosen, names


def _default_labels(runs: list[Run]) -> list[str]:
    """Names of recipes or results without what follows the first point; with numbers if they are not unique."""
    labels = []
    for number, run in enumerate(runs, 1):
        path = run.recipe_source.path or run.path
        labels.append(path.name.split(".")[0] if path is not None else f"run {number}")
    results = [run.path.name.removesuffix(".txt").removesuffix(".result") if run.path else "" for run in runs]
    if len(set(labels)) < len(labels) and len(set(results)) == len(results) and all(results):
        return results
    return [
        label if labels.count(label) == 1 else f"{label} ({number})" for number, label in enumerate(labels, 1)
    ]


def have_common_layers(runs: list[Run], matches: Sequence[Match], span: str) -> bool:
    """True if each run has a layer to draw that corresponds to one of the first run."""
    kinds = runs[0]._layers["kind"].to_numpy()
    wanted = kinds == "active" if span == "active" and (kinds == "active").any() else np.ones(len(kinds), bool)
    return all(any(a is not None and b is not None and wanted[a] for a, b in match) for match in matches)


def _figure(
    runs: list[Run],
    names: list[str],
    matches: Sequence[Match],
    align: str,
    span: str,
    panels: Sequence[str],
    over_time: bool,
) -> Figure:
    import matplotlib.pyplot as plt
    from matplotlib.lines import Line2D

    tables = [run._drawn for run in runs]
    places, placed = place_runs(tables, matches, over_time, align, span)
    drawn = {panel: curves for panel in panels if (curves := curves_of(panel, runs, placed))}
    if not drawn:
        raise ValueError("the temperature is unknown without the recipes; use vorlen.read(result, recipe)")
    colours = run_colours(len(runs))
    widths = np.linspace(WIDEST, NARROWEST, len(runs))  # points; where curves coincide, the first ones show as an edge
    height = 1.15 + PANEL_HEIGHT * len(drawn)  # inches
    figure, grid = plt.subplots(len(drawn), 1, sharex=True, squeeze=False, figsize=(WIDTH, height))
    axes = list(grid[:, 0])
    figure.subplots_adjust(left=0.15, right=0.8, bottom=0.62 / height, hspace=0.14)
    for axis, (panel, curves) in zip(axes, drawn.items()):
        _set_axis(axis, panel, curves)
        for curve in curves:
            look = {"color": colours[curve.run], "linewidth": widths[curve.run], "linestyle": curve.style}
            axis.plot(placed[curve.run].x, curve.values, **look)
        if panel == "rate":
            axis.set_ylim(bottom=min(0.0, axis.get_ylim()[0]))
        styles = {curve.quantity: curve.style for curve in curves}
        if panel in ("composition", "strain", "densities"):
            keys = [Line2D([], [], color="#555555", linestyle=style, label=name) for name, style in styles.items()]
            axis.legend(
                handles=keys, loc="center left", bbox_to_anchor=(1.005, 0.5), borderaxespad=0.0, handlelength=2.0
            )
        axis.grid(axis="y", color="#d8d8d8", linewidth=0.5, zorder=0.5)
        axis.set_axisbelow(True)
        axis.yaxis.set_label_coords(-0.125, 0.5)
    x = np.concatenate([run.x for run in placed])
    x = x[np.isfinite(x)]
    if len(x) and x.max() > x.min():
        axes[0].set_xlim(x.min(), x.max())
    axes[-1].set_xlabel(axis_label(names[0], tables[0].height_label, align, over_time))
    borders = pd.DataFrame(
        {"name": [place.name for place in places], "begin": [place.begin for place in places],
         "end": [place.end for place in places]}
    )
    upright = shade_stages(axes, borders)
    figure.subplots_adjust(top=1 - (0.7 if upright else 0.25) / height)
    figure.legend(
        handles=[
            Line2D([], [], color=colour, linewidth=width, label=name)
            for name, colour, width in zip(names, colours, widths)
        ],
        loc="lower center", ncol=min(len(names), 4), bbox_to_anchor=(0.475, 0.0), borderaxespad=0.2,
    )
    return figure


def axis_label(first: str, height_label: str, align: str, over_time: bool) -> str:
    """Label of the common axis."""
    label = "time (s)" if over_time else height_label
    if align == "stage":
        return f"{label}, others stretched layer by layer to {first}"
    return f"{label}, layers of all runs start at the same place" if align == "start" else label


def run_colours(count: int) -> list[str]:
    """A colour for each run; more runs than the palette has shades between blue and yellow."""
    if count <= len(COLOURS):
        return list(COLOURS[:count])
    from matplotlib import colormaps
    from matplotlib.colors import to_hex

    return [to_hex(colour) for colour in colormaps["viridis"](np.linspace(0.0, 0.9, count))]


def curves_of(panel: str, runs: list[Run], placed: list[PlacedRun]) -> list[Curve]:
    """The curves of a panel, run by run."""
    curves: list[Curve] = []
    profiles = [run._profile for run in runs]
    seen = {column: any((profile[column].abs() > SEEN).any() for profile in profiles) for column, _, _ in METALS}
    metals = [metal for metal in METALS if seen[metal[0]] and (metal[1] != "Ga" or not (seen["x_in"] or seen["x_al"]))]
    for number, (run, points, profile) in enumerate(zip(runs, placed, profiles)):

        def add(values: Array, quantity: str = "", style: str | tuple[int, tuple[float, ...]] = SOLID) -> None:
            curves.append(Curve(number, values, quantity, style))

        if panel == "composition":
            for column, name, _ in metals:
                add(points.values(profile[column]), name, DASHES if name == "Al" and len(metals) > 1 else SOLID)
        elif panel == "rate":
            # Rows of pre-stages and post-stages contain the recipe's number, in another unit.
            add(points.values(profile["rate"].where(profile["active"])))
        elif panel == "temperature":
            heat = points.temperature(run._drawn.timeline)
            if heat is not None and np.isfinite(heat).any():
                # Pre-stages and post-stages have no temperature.
                add(np.where((run._layers["kind"] == "active").to_numpy()[points.layer], heat, np.nan))
        elif panel == "strain":
            add(100 * points.values(profile["eps_xx_t"]), "at growth (t)")
            add(100 * points.values(profile["eps_xx_z"]), "finished (z)", DASHES)
        else:
            add(_positive(points.values(profile["rho_td_t"])), "dislocations (t)")
            add(_positive(points.values(profile["rho_td_z"])), "dislocations (z)", DASHES)
            if any((other["rho_vd0_t"] > 0).any() for other in profiles):
                add(_positive(points.values(profile["rho_vd0_t"] / 2)), "V-defects (t)", DOTS)
    return curves


def _positive(values: Array) -> Array:
    return np.where(values > 0, values, np.nan)


def _set_axis(axis: Axes, panel: str, curves: list[Curve]) -> None:
    from matplotlib.ticker import NullFormatter

    if panel == "composition":
        axis.set_ylim(-0.03, _top_fraction(curves))
        axis.set_ylabel("composition")
    elif panel == "rate":
        axis.set_ylabel("growth rate\n(nm/s)")
    elif panel == "temperature":
        axis.margins(y=0.2)
        axis.ticklabel_format(axis="y", useOffset=False)
        axis.set_ylabel("temperature\n(K)")
    elif panel == "strain":
        axis.axhline(0.0, color="#999999", linewidth=0.6)
        axis.set_ylabel("strain \u03b5$_{xx}$\n(%)")
    else:
        axis.set_yscale("log")
        decades = decades_of([(pd.Series(curve.values), curve.quantity, "", False) for curve in curves])
        axis.set_ylim(*(10.0**decade for decade in decades))
        axis.yaxis.set_minor_formatter(NullFormatter())
        axis.set_ylabel("density\n(cm$^{-2}$)")


def _top_fraction(curves: list[Curve]) -> float:
    """The upper end of the axis of compositions: a little above the greatest fraction."""
    values = np.concatenate([curve.values for curve in curves])
    values = values[np.isfinite(values)]
    return float(min(1.03, max(0.1, 1.15 * values.max()))) if len(values) else 1.03
