"""Reciprocal-space map: where each layer has its peak, and a figure with lines for coherent and for relaxed layers."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, DASHES, GALLIUM, INDIUM, STYLE, check_figure, save_or_close
from .._base.types import Array, PathLike
from .blocks import strained_c
from .reflections import Reflection, given_reflection
from .slices import alloy
from .xrd import Stack, reference_layer

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

SMALLEST_MISMATCH = 1e-6  # angstrom; below it the degree of relaxation is undefined
SEEN = 0.005  # fraction of a metal that counts
SIZE = 4.2  # of the figure, inches
SAME = 0.004  # of the range of an axis; peaks of layers of one name closer than this share one label

COLUMNS = (
    ("name", "", "name in the recipe"),
    ("kind", "", "pre, active (simulated) or post"),
    ("qx", "1/angstrom", "length in the surface, 2 pi / d"),
    ("qz", "1/angstrom", "length along the normal of the surface, 2 pi / d"),
    ("thickness", "nm", "thickness"),
    ("x_in", "1", "indium, mean over the thickness"),
    ("x_ga", "1", "gallium, mean over the thickness"),
    ("x_al", "1", "aluminium, mean over the thickness"),
    ("a", "angstrom", "in-plane lattice constant"),
    ("c", "angstrom", "lattice constant along the normal"),
    ("relaxation", "1", "degree of relaxation on the reference layer"),
)


class Peaks(NamedTuple):
    """The peaks of the layers and what they are drawn with."""

    table: pd.DataFrame
    reflection: Reflection
    reference: int  # number of the layer


def layer_peaks(stack: Stack, hkl: Any, reference: Any) -> Peaks:
    """The table described at Run.reciprocal_space, with the reflection and the reference layer."""
    reflection = given_reflection(hkl)
    slices, layers = stack.slices, stack.layers
    number = reference_layer(layers, slices, reference)
    left, first = np.unique(slices.layer, return_inverse=True)
    weights = slices.thickness

    def mean(values: Array) -> Array:
        total: Array = np.bincount(first, weights * values) / np.bincount(first, weights)
        return total

    x = np.column_stack([mean(column) for column in slices.x.T])
    a, c = 1.0 / mean(1.0 / slices.a), 1.0 / mean(1.0 / strained_c(slices))
    below = a[left == number][0]
    free = alloy(x).a
    with np.errstate(invalid="ignore", divide="ignore"):
        relaxation = (a - below) / (free - below) + 0.0  # without a sign of zero
    relaxation[(np.abs(free - below) < SMALLEST_MISMATCH) | (left < number)] = math.nan
    columns = (
        layers["name"][left].to_numpy(), layers["kind"][left].to_numpy(), reflection.qx(a), reflection.qz(c),
        np.bincount(first, weights), *x.T, a, c, relaxation,
    )
    table = pd.DataFrame(dict(zip((name for name, _, _ in COLUMNS), columns)), index=pd.Index(left, name="layer"))
    table.attrs["units"] = {name: unit for name, unit, _ in COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in COLUMNS}
    return Peaks(table, reflection, number)


def relaxation_path(x: Array, below: float, reflection: Reflection) -> tuple[Array, Array]:
    """qx and qz of an alloy that is coherent on a lattice constant below, and of the same alloy without strain.

    x  fractions of In, Ga, Al
    """
    free = alloy(x[None, :])
    strain = below / free.a - 1.0
    c: Array = free.c * np.append(1.0 - 2.0 * free.C13 / free.C33 * strain, 1.0)
    return reflection.qx(np.append(below, free.a)), reflection.qz(c)


def plot_peaks(stack: Stack, hkl: Any, reference: Any, path: PathLike | None) -> Figure:
    """The figure described at Run.plot_reciprocal_space."""
    import matplotlib.pyplot as plt

    peaks = layer_peaks(stack, hkl, reference)
    if peaks.reflection.symmetric:
        raise ValueError(f"{peaks.reflection} shows no relaxation, because its planes are parallel to the surface")
    if path is not None:
        check_figure(path, stack.inputs)  # before the work
    with plt.rc_context(STYLE):
        figure, axes = plt.subplots(figsize=(SIZE, SIZE), layout="constrained")
        _draw(axes, peaks)
        save_or_close(figure, path, stack.inputs)
    return figure


def _draw(axes: Axes, peaks: Peaks) -> None:
    table, reflection = peaks.table, peaks.reflection
    x = table[["x_in", "x_ga", "x_al"]].to_numpy()
    below = float(table.loc[peaks.reference, "a"])
    for column, metal in ((0, INDIUM), (2, ALUMINIUM)):
        if x[:, column].max() < SEEN:
            continue
        share = np.linspace(0.0, min(1.15 * x[:, column].max(), 1.0), 50)
        binary = np.eye(3)[column]
        free = alloy(share[:, None] * binary + (1.0 - share[:, None]) * np.eye(3)[1])
        label = "relaxed InGaN" if column == 0 else "relaxed AlGaN"
        axes.plot(reflection.qx(free.a), reflection.qz(free.c), color=metal, linewidth=0.8, label=label)
    paths = [relaxation_path(fractions, below, reflection) for fractions in x[table.index >= peaks.reference]]
    for qx, qz in paths:
        axes.plot(qx, qz, color="#999999", linewidth=0.7, linestyle=":")
    axes.axvline(reflection.qx(below), color=BLACK, linewidth=0.8, linestyle=DASHES, label="coherent")
    colours = [INDIUM if row[0] >= SEEN else ALUMINIUM if row[2] >= SEEN else GALLIUM for row in x]
    axes.scatter(table["qx"], table["qz"], s=22, c=colours, zorder=3)
    axes.margins(0.12)
    _name_peaks(axes, table)
    axes.set_xlabel("$q_x$ (1/\u00c5)")
    axes.set_ylabel(f"$q_z$ (1/\u00c5) of {reflection}")
    axes.legend(loc="best")


def _name_peaks(axes: Axes, table: pd.DataFrame) -> None:
    """Names beside the points: thick layers first, and no second name where there is one."""
    room_x, room_y = (SAME * float(np.ptp(limits)) for limits in (axes.get_xlim(), axes.get_ylim()))
    named: list[tuple[float, float]] = []
    for peak in table.sort_values("thickness", ascending=False, kind="stable").itertuples():
        if all(abs(peak.qx - qx) > room_x or abs(peak.qz - qz) > 8.0 * room_y for qx, qz in named):
            named.append((peak.qx, peak.qz))
            axes.annotate(peak.name, (peak.qx, peak.qz), (5, 3), textcoords="offset points", fontsize=6.5)
