"""Figures of a run for papers and slides: matplotlib, vector graphics with editable text, colour-blind-safe colours.

Contents: common parts; panels over time or height; the relaxation diagram.
"""

from __future__ import annotations

import os
from collections.abc import Callable, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

    from ._run import Run

# Okabe and Ito's palette for colour-blind readers (jfly.uni-koeln.de/color)
INDIUM, GALLIUM, ALUMINIUM = "#D55E00", "#0072B2", "#009E73"
BLACK, PINK, ORANGE = "#222222", "#AA3377", "#B87500"
SHADES = ("#eef2f6", "#ffffff")  # of alternate stages

STYLE = {
    "font.size": 8.0,
    "axes.titlesize": 9.0,
    "axes.labelsize": 8.0,
    "axes.linewidth": 0.7,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.unicode_minus": True,
    "legend.fontsize": 7.0,
    "legend.frameon": False,
    "lines.linewidth": 1.3,
    "xtick.major.width": 0.7,
    "ytick.major.width": 0.7,
    "figure.dpi": 120.0,
    "savefig.dpi": 300.0,
    "pdf.fonttype": 42,  # text stays text in PDF, PostScript and SVG
    "ps.fonttype": 42,
    "svg.fonttype": "none",
    "svg.hashsalt": "vorlen",  # the same figure gives the same bytes
}
WIDTH, PANEL_HEIGHT = 6.3, 1.25  # inches; a text column of A4
LETTER_WIDTH = 0.058  # inches, of a letter in a stage's name
NAME_DISTANCE = 0.15  # inches; names of stages closer than this would overlap
SEEN = 1e-6  # fraction above which a metal is drawn


PANELS = ("composition", "rate", "temperature", "strain", "densities")


def plot_run(
    run: Run,
    kind: str = "time",
    span: str = "active",
    panels: Sequence[str] = PANELS,
    path: str | os.PathLike[str] | None = None,
) -> Figure:
    """A figure of a run.

    kind  "time": composition, growth rate, temperature, strain and densities over time;
          "depth": the same over height; "relaxation": lattice constants and degrees of relaxation
    span  "active": the simulated layers; "all": pre-stages and post-stages too
    panels  which of "composition", "rate", "temperature", "strain", "densities" to draw, from the top down
    path  file to save it to (.pdf, .svg, .png, ...), with text as text; None: it is not saved
    Solid lines show each depth when it was the surface, dashed lines the finished structure. The temperature is drawn
    if the run has its recipe. Raises ValueError if there is nothing to draw.
    """
    import matplotlib.pyplot as plt

    if kind not in ("time", "depth", "relaxation"):
        raise ValueError(f'kind must be "time", "depth" or "relaxation", got {kind!r}')
    if not panels or not set(panels) <= set(PANELS):
        raise ValueError(f"panels must be one or more of {', '.join(PANELS)}, got {', '.join(map(str, panels))}")
    if span not in ("active", "all"):
        raise ValueError(f'span must be "active" or "all", got {span!r}')
    if drawn_rows(run, span).empty:
        raise ValueError("the run has no rows to draw")
    with plt.rc_context(STYLE):
        if kind == "relaxation":
            figure = _relaxation_diagram(run, span)
        else:
            figure = _panels(run, span, panels, over_time=kind == "time")
        if path is not None:
            metadata = {"Date": None} if str(path).lower().endswith(".svg") else None
            figure.savefig(path, metadata=metadata)
    return figure


def drawn_rows(run: Run, span: str) -> pd.DataFrame:
    """The rows to draw: all rows, or those of simulated stages. All if none was simulated."""
    profile = run.profile
    return profile if span == "all" or not profile["active"].any() else profile[profile["active"]]


def reference_height(run: Run) -> float:
    """Height of the first simulated row, nm: the origin of the height axis."""
    active = run.profile.loc[run.profile["active"], "z"]
    return float(active.iloc[0]) if len(active) else 0.0


def temperature_curve(run: Run, span: str) -> tuple[np.ndarray, np.ndarray, np.ndarray] | None:
    """Time in s, height in nm and temperature in K, with points at both ends of each ramp.

    None if the recipe is unknown.
    """
    if run.recipe is None:
        return None
    rows = drawn_rows(run, span)
    row_times = rows["time"].to_numpy()
    timeline = run.recipe.timeline()
    pieces = []
    for stage in timeline[timeline["kind"] == "active"].itertuples():
        end = min(stage.end, row_times[-1])
        if not end > stage.begin:
            break
        times = np.concatenate(([stage.begin], row_times[(row_times > stage.begin) & (row_times < end)], [end]))
        pieces.append((times, stage.T_begin + (times - stage.begin) / stage.duration * (stage.T_end - stage.T_begin)))
    if not pieces:
        return None
    times = np.concatenate([times for times, _ in pieces])
    heights = np.interp(times, row_times, rows["z"].to_numpy()) - reference_height(run)
    return times, heights, np.concatenate([heat for _, heat in pieces])


def stage_borders(run: Run, over_time: bool, span: str) -> pd.DataFrame:
    """Columns name, begin and end of the layers to shade: s, or nm above the reference height."""
    layers = run.layers
    if over_time:
        borders = layers[["name", "begin", "end"]].copy()
    else:
        top = layers["thickness"].cumsum() + float(run.profile["z"].iloc[0])
        borders = pd.DataFrame({"name": layers["name"], "begin": top - layers["thickness"], "end": top})
        borders[["begin", "end"]] -= reference_height(run)
    keep = (layers["begin"] < run.profile["time"].iloc[-1]) & np.isfinite(borders[["begin", "end"]]).all(axis=1)
    active = layers["kind"] == "active"
    return borders[keep & active] if span == "active" and active.any() else borders[keep]


def _shade_stages(axes: list[Axes], borders: pd.DataFrame) -> bool:
    """Shades the stages in all axes and names them above the first. Returns True if the names are slanted."""
    begin, end = axes[0].get_xlim()
    for number, stage in enumerate(borders.itertuples()):
        for axis in axes:
            axis.axvspan(stage.begin, stage.end, facecolor=SHADES[number % 2], edgecolor="none", zorder=0)
    inches = axes[0].get_position().width * axes[0].figure.get_figwidth() / (end - begin)
    names = [" ".join(str(name).split()) for name in borders["name"]]
    names = [name if len(name) <= 28 else name[:27] + "\N{HORIZONTAL ELLIPSIS}" for name in names]
    widths = (borders["end"] - borders["begin"]).to_numpy() * inches
    upright = any(LETTER_WIDTH * len(name) > width for name, width in zip(names, widths))
    last_place = -1.0
    for name, stage in zip(names, borders.itertuples()):
        middle = 0.5 * (max(stage.begin, begin) + min(stage.end, end))
        place = (middle - begin) * inches
        if upright and place - last_place < NAME_DISTANCE:
            continue  # the names would overlap
        last_place = place
        axes[0].annotate(
            name,
            (middle, 1.0),
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


def _panels(run: Run, span: str, panels: Sequence[str], over_time: bool) -> Figure:
    import matplotlib.pyplot as plt

    rows = drawn_rows(run, span)
    x = rows["time"].to_numpy() if over_time else rows["z"].to_numpy() - reference_height(run)
    curve = temperature_curve(run, span)
    drawers: dict[str, Callable[[Axes], None]] = {
        "composition": lambda axis: _draw_composition(axis, x, rows),
        "rate": lambda axis: _draw_rate(axis, x, rows),
        "strain": lambda axis: _draw_strain(axis, x, rows),
        "densities": lambda axis: _draw_densities(axis, x, rows),
    }
    if curve is not None and np.isfinite(curve[2]).any():
        drawers["temperature"] = lambda axis: _draw_temperature(axis, curve[0 if over_time else 1], curve[2])
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
    axes[-1].set_xlabel("time (s)" if over_time else _height_label(run))
    upright = _shade_stages(axes, stage_borders(run, over_time, span))
    figure.subplots_adjust(top=1 - (0.7 if upright else 0.25) / height)
    return figure


def _height_label(run: Run) -> str:
    return "height above the pre-stages (nm)" if (run.layers["kind"] == "pre").any() else "height (nm)"


def _draw_composition(axis: Axes, x: np.ndarray, rows: pd.DataFrame) -> None:
    for column, label, colour in (("x_in", "In", INDIUM), ("x_ga", "Ga", GALLIUM), ("x_al", "Al", ALUMINIUM)):
        if (rows[column].abs() > SEEN).any():
            axis.plot(x, rows[column], color=colour, label=label)
    axis.set_ylim(-0.03, 1.03)
    axis.set_ylabel("composition")


def _draw_rate(axis: Axes, x: np.ndarray, rows: pd.DataFrame) -> None:
    # Rows of pre-stages and post-stages contain the recipe's number, in another unit.
    axis.plot(x, rows["rate"].where(rows["active"]), color=BLACK)
    axis.set_ylabel("growth rate\n(nm/s)")
    axis.set_ylim(bottom=min(0.0, axis.get_ylim()[0]))


def _draw_temperature(axis: Axes, x: np.ndarray, heat: np.ndarray) -> None:
    axis.plot(x, heat, color=ORANGE)
    axis.margins(y=0.2)
    axis.ticklabel_format(axis="y", useOffset=False)
    axis.set_ylabel("temperature\n(K)")


def _draw_strain(axis: Axes, x: np.ndarray, rows: pd.DataFrame) -> None:
    axis.axhline(0.0, color="#999999", linewidth=0.6)
    axis.plot(x, 100 * rows["eps_xx_t"], color=PINK, label="at growth (t)")
    axis.plot(x, 100 * rows["eps_xx_z"], color=PINK, linestyle=(0, (4, 2)), label="finished (z)")
    axis.set_ylabel("strain \u03b5$_{xx}$\n(%)")


def _draw_densities(axis: Axes, x: np.ndarray, rows: pd.DataFrame) -> None:
    from matplotlib.ticker import NullFormatter

    def positive(values: pd.Series) -> pd.Series:
        return values.where(values > 0)

    axis.plot(x, positive(rows["rho_td_t"]), color=GALLIUM, label="dislocations (t)")
    axis.plot(x, positive(rows["rho_td_z"]), color=GALLIUM, linestyle=(0, (4, 2)), label="dislocations (z)")
    defects = positive(rows["rho_vd0_t"] / 2)
    if defects.notna().any():
        axis.plot(x, defects, color=INDIUM, label="V-defects (t)")
    axis.set_yscale("log")
    shown = [line.get_ydata() for line in axis.lines]
    values = np.concatenate([data[np.isfinite(data)] for data in shown])
    if len(values):
        low, high = values.min(), values.max()
        # The first V-defects have tiny densities; showing them would squeeze the rest.
        low = max(low, high * 1e-6)
        axis.set_ylim(10 ** np.floor(np.log10(low / 1.2)), 10 ** np.ceil(np.log10(high * 1.2)))
    axis.yaxis.set_minor_formatter(NullFormatter())
    axis.set_ylabel("density\n(cm$^{-2}$)")


def own_lattice(rows: pd.DataFrame, which: str = "z") -> pd.Series:
    """In-plane lattice constant that each depth would have without strain, angstrom."""
    return rows[f"a_eff_{which}"] / (1.0 + rows[f"eps_xx_{which}"])


def _relaxation_diagram(run: Run, span: str) -> Figure:
    import matplotlib.pyplot as plt

    rows = drawn_rows(run, span)
    z = rows["z"].to_numpy() - reference_height(run)
    pre = run.profile.iloc[: int(run.profile["active"].to_numpy().argmax())]
    substrate = float((pre if len(pre) else rows.head(1))["a_eff_z"].iloc[-1])
    layers = run.layers
    ends = layers[(layers["kind"] == "active") | (span == "all")]

    figure, (left, right) = plt.subplots(1, 2, figsize=(WIDTH, 3.0))
    figure.subplots_adjust(left=0.1, right=0.93, top=0.84, bottom=0.16, wspace=0.36)
    left.plot(z, own_lattice(rows), color=INDIUM, label="without strain")
    left.plot(z, rows["a_eff_t"], color=GALLIUM, label="at growth (t)")
    left.plot(z, rows["a_eff_z"], color=GALLIUM, linestyle=(0, (4, 2)), label="finished (z)")
    left.axhline(substrate, color="#777777", linewidth=0.8, linestyle=":", label="substrate")
    left.set_xlabel(_height_label(run))
    left.set_ylabel("in-plane lattice constant (\u00c5)")
    left.ticklabel_format(axis="y", useOffset=False)
    left.set_xlim(np.nanmin(z), np.nanmax(z)) if np.nanmax(z) > np.nanmin(z) else None
    left.legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=2, borderaxespad=0.2, handlelength=1.8)

    _draw_layer_ends(right, run, ends, substrate)
    return figure


def _layer_end_rows(run: Run, layers: pd.DataFrame) -> list[tuple[Any, pd.Series]]:
    """The last row of each layer that has one."""
    found = []
    for layer in layers.itertuples():
        inside = run.profile[run.profile["time"] <= layer.end * (1 + 1e-9)]
        if len(inside) and not np.isnan(layer.x_in_end):
            found.append((layer, inside.iloc[-1]))
    return found


def _draw_layer_ends(axis: Axes, run: Run, layers: pd.DataFrame, substrate: float) -> None:
    """In-plane lattice constant of the layers' tops against their unstrained one, with lines of equal relaxation."""
    points = []
    for layer, row in _layer_end_rows(run, layers):
        own = float(row["a_eff_z"] / (1.0 + row["eps_xx_z"]))
        points.append((own, float(row["a_eff_z"]), layer))
    values = [substrate, *(own for own, _, _ in points)]
    margin = max(0.2 * (max(values) - min(values)), 0.002)
    low, high = min(values) - margin, max(values) + margin
    far = high if high - substrate > substrate - low else low
    for degree in (0.0, 0.25, 0.5, 0.75, 1.0):
        ends = [substrate + degree * (own - substrate) for own in (low, high)]
        axis.plot([low, high], ends, color="#999999", linewidth=0.9 if degree in (0.0, 1.0) else 0.4, zorder=1)
        axis.annotate(
            f"R = {degree:g}",
            (far, substrate + degree * (far - substrate)),
            xytext=(3, 0 if far == high else 1),
            textcoords="offset points",
            ha="left",
            va="center" if far == high else "bottom",
            color="#555555",
            fontsize=6,
            annotation_clip=False,
        )
    named: list[float] = []
    for own, measured, layer in sorted(points, key=lambda point: point[0]):
        axis.plot(own, measured, "o", color=GALLIUM, markersize=4, zorder=3)
        # Points at the same place, such as the periods of a superlattice, share one name.
        if all(abs(own - other) > 0.04 * (high - low) for other in named):
            degree = f"\nR = {round(layer.relaxation, 3) + 0.0:g}" if np.isfinite(layer.relaxation) else ""
            level = sum(abs(own - other) < 0.35 * (high - low) for other in named)
            axis.annotate(
                f"{layer.name}{degree}",
                (own, measured),
                xytext=(0, 5 + 18 * level),
                textcoords="offset points",
                ha="right" if own > 0.7 * high + 0.3 * low else "left" if own < 0.7 * low + 0.3 * high else "center",
                va="bottom",
                fontsize=7,
            )
            named.append(own)
    axis.set_xlim(low, high)
    axis.set_ylim(low, high)
    axis.set_xlabel("lattice constant without strain (\u00c5)")
    axis.set_ylabel("lattice constant, finished structure (\u00c5)")
    axis.ticklabel_format(useOffset=False)
    axis.set_title("tops of the layers", fontsize=8)
