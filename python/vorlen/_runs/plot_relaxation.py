"""The relaxation diagram of a run: lattice constants over height, and at the tops of the layers."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from .._base.figures import DASHES, GALLIUM, INDIUM, WIDTH
from .drawn import DrawnTables
from .row_finder import RowFinder

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure


def _own_lattice(rows: pd.DataFrame) -> pd.Series:
    """In-plane lattice constant that each depth would have without strain, angstrom."""
    return rows["a_eff_z"] / (1.0 + rows["eps_xx_z"])


def relaxation_diagram(tables: DrawnTables, span: str) -> Figure:
    """Lattice constants over height, and degrees of relaxation of the tops of the layers."""
    import matplotlib.pyplot as plt

    rows, profile, layers = tables.rows(span), tables.profile, tables.layers
    z = rows["z"].to_numpy() - tables.reference_height
    pre = profile.iloc[: int(profile["active"].to_numpy().argmax())]
    substrate = float((pre if len(pre) else rows.head(1))["a_eff_z"].iloc[-1])
    ends = layers[(layers["kind"] == "active") | (span == "all")]

    figure, (left, right) = plt.subplots(1, 2, figsize=(WIDTH, 3.0))
    figure.subplots_adjust(left=0.1, right=0.93, top=0.84, bottom=0.16, wspace=0.36)
    left.plot(z, _own_lattice(rows), color=INDIUM, label="without strain")
    left.plot(z, rows["a_eff_t"], color=GALLIUM, label="at growth (t)")
    left.plot(z, rows["a_eff_z"], color=GALLIUM, linestyle=DASHES, label="finished (z)")
    left.axhline(substrate, color="#777777", linewidth=0.8, linestyle=":", label="substrate")
    left.set_xlabel(tables.height_label)
    left.set_ylabel("in-plane lattice constant (\u00c5)")
    left.ticklabel_format(axis="y", useOffset=False)
    left.set_xlim(np.nanmin(z), np.nanmax(z)) if np.nanmax(z) > np.nanmin(z) else None
    left.legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=2, borderaxespad=0.2, handlelength=1.8)

    _draw_layer_ends(right, profile, ends, substrate)
    return figure


def _draw_layer_ends(axis: Axes, profile: pd.DataFrame, layers: pd.DataFrame, substrate: float) -> None:
    """In-plane lattice constant of the layers' tops against their unstrained one, with lines of equal relaxation."""
    finder = RowFinder(profile["time"].to_numpy())
    measured, own_lattice = profile["a_eff_z"].to_numpy(), _own_lattice(profile).to_numpy()
    points = []
    for layer in layers.itertuples():
        row = finder.last_up_to(layer.end * (1 + 1e-9))
        if row >= 0 and not np.isnan(layer.x_in_end):
            points.append((float(own_lattice[row]), float(measured[row]), layer))
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
    points.sort(key=lambda point: point[0])
    axis.plot([own for own, _, _ in points], [top for _, top, _ in points], "o", color=GALLIUM, markersize=4, zorder=3)
    named: list[float] = []
    for own, top, layer in points:
        # Points at the same place, such as the periods of a superlattice, share one name.
        if all(abs(own - other) > 0.04 * (high - low) for other in named):
            relaxation = f"\nR = {round(layer.relaxation, 3) + 0.0:g}" if np.isfinite(layer.relaxation) else ""
            level = sum(abs(own - other) < 0.35 * (high - low) for other in named)
            axis.annotate(
                f"{layer.name}{relaxation}",
                (own, top),
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
