"""Figures of a run and measured curves: each simulated curve over the measured one, and their deviations."""

from __future__ import annotations

import re
from collections.abc import Iterable, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np

from .._base.figures import BLACK, GALLIUM, INDIUM, STYLE, WIDTH, check_figure, save_or_close
from .._base.types import PathLike
from .._observe.curve import KINDS
from .._observe.matching import UNITS, smallest_intensity
from .agreement import Agreement

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

HEIGHT, SMALL = 2.3, 0.8  # inches, of the panels of curves and of deviations


def draw_agreements(
    agreements: Sequence[Agreement], name: str, path: PathLike | None, inputs: Iterable[PathLike | None]
) -> Figure:
    """A panel with both curves and one with their deviations for each agreement, from the top down."""
    import matplotlib.pyplot as plt

    inputs = list(inputs)
    if path is not None:
        check_figure(path, inputs)  # before the work
    with plt.rc_context(STYLE):
        figure = plt.figure(figsize=(WIDTH, height_of(agreements)), layout="constrained")
        draw_into(figure, agreements, [name] * len(agreements))
        save_or_close(figure, path, inputs)
    return figure


def height_of(agreements: Sequence[Agreement]) -> float:
    """Height of the panels in inches."""
    return sum(HEIGHT + 0.5 + (0.0 if one.match is None else SMALL) for one in agreements)


def draw_into(figure: Any, agreements: Sequence[Agreement], names: Sequence[str]) -> None:
    """Draws all panels into a figure or a part of one. names: of the simulated curves."""
    heights = [height for one in agreements for height in ((HEIGHT,) if one.match is None else (HEIGHT, SMALL))]
    panels = iter(figure.subplots(len(heights), 1, squeeze=False, gridspec_kw={"height_ratios": heights})[:, 0])
    for one, name in zip(agreements, names):
        draw_agreement(next(panels), None if one.match is None else next(panels), one, name)


def draw_agreement(axes: Axes, below: Axes | None, agreement: Agreement, name: str) -> None:
    """One agreement; below: the panel of the deviations."""
    measured, match, kind = agreement.measured, agreement.match, KINDS[agreement.measured.kind]
    values = np.maximum(measured.y, smallest_intensity(measured)) if kind.logarithmic else measured.y
    axes.plot(measured.x, values, ".", markersize=2.5, color=GALLIUM, label=measured.name or "measured")
    if match is None:
        for number, wavelength in enumerate(sorted(set(agreement.wavelengths))):
            axes.axvline(wavelength, color=INDIUM, linewidth=0.9, label=name if number == 0 else None)
    else:
        axes.plot(match.x, match.simulated, color=INDIUM, linewidth=1.0, label=name)
    if kind.logarithmic:
        axes.set_yscale("log")
    axes.set_ylabel(kind.y)
    axes.set_title(agreement_text(agreement), loc="left", fontsize=7.0)
    axes.legend()
    lowest = axes
    if match is not None and below is not None:
        below.axhline(0.0, color="#999999", linewidth=0.6)
        below.plot(match.x, match.deviations, color=BLACK, linewidth=0.7)
        unit = UNITS[measured.kind]
        below.set_ylabel("difference" if unit == "1" else f"difference\n({unit})")
        below.sharex(axes)
        axes.tick_params(labelbottom=False)
        lowest = below
    lowest.set_xlabel(kind.x)


def agreement_text(agreement: Agreement) -> str:
    """The numbers of an agreement in a line."""
    row: dict[str, Any] = agreement.numbers()
    unit = "" if row["unit"] == "1" else f" {row['unit']}"
    of_x = "{:.4f}\u00b0" if agreement.measured.kind == "xrd" else "{:.1f} nm" if agreement.match is None else "{:.1f} s"
    parts = [] if agreement.match is None else [f"rms {row['rms']:.3g}{unit}"]
    shift = of_x.replace("{:", "{:+").format(row["peak_shift"])
    if np.isfinite(row["peak_shift"]) and re.search("[1-9]", shift):
        parts.append(f"peak {shift} from the measured one")
    if agreement.match is not None and row["shift"] != 0:
        parts.append(f"simulated curve moved by {of_x.format(row['shift'])}")
    return ", ".join(parts).replace("-", "\u2212")
