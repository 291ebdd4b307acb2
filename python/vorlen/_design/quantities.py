"""Quantities that a design can aim at: how they are measured in a result, and on which scale the solver works.

The scale of each quantity makes it nearly linear in the knobs: a thickness is proportional to the duration and to the
flows, so both are taken as logarithms; the ratio x / (1 - x) of two metals is nearly proportional to that of their
flows, so a fraction is taken as the logarithm of this ratio (the logit).
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import pandas as pd

from .._runs.run import Run

FRACTION_MIN = 1e-5  # of the logit scale
SMALLEST_SHARE = 1e-9  # of the target: values from 0 to this count as this on a logarithmic scale
UNDEFINED = 3.0  # distance from the target, on the scale, of a value that is NaN
V_DEFECT_MARGIN = 0.01  # designs end a layer at least this share of its thickness before V-defects would open


@dataclass(frozen=True)
class Quantity:
    """A property of a layer.

    column     of Run.layers; "" if it is measured in another way
    scale      "log", "logit" or "linear"
    tolerance  of designs, which must hit their targets; allowed is that of windows, where the reactor varies
    """

    name: str
    unit: str
    column: str
    scale: str
    tolerance: float
    allowed: float
    is_relative: bool
    meaning: str

    def tolerance_at(self, target: float) -> float:
        """In the unit of the quantity."""
        return self.tolerance * abs(target) if self.is_relative else self.tolerance

    def allowed_at(self, target: float) -> float:
        """In the unit of the quantity."""
        return self.allowed * abs(target) if self.is_relative else self.allowed


def _metal(metal: str) -> list[Quantity]:
    column = f"x_{metal.lower()}"
    return [
        Quantity(metal, "", column, "logit", 1e-3, 5e-3, False, "mean over the thickness"),
        Quantity(f"{metal} middle", "", f"{column}_mid", "logit", 1e-3, 5e-3, False, "mean over the middle half"),
        Quantity(f"{metal} final", "", f"{column}_end", "logit", 1e-3, 5e-3, False, "at the end of the layer"),
    ]


QUANTITIES = {
    one.name: one
    for one in (
        Quantity("thickness", "nm", "thickness", "log", 1e-3, 0.02, True, "thickness"),
        Quantity("rate", "nm/s", "mean_rate", "log", 1e-3, 0.02, True, "mean growth rate"),
        *_metal("In"),
        *_metal("Ga"),
        *_metal("Al"),
        Quantity("strain", "", "eps_xx_z", "linear", 1e-5, 5e-4, False, "in-plane, at its top in the finished structure"),
        Quantity("dislocations", "cm^-2", "rho_td_z", "log", 1e-2, 0.2, True, "at its top in the finished structure"),
        Quantity("V-defects", "cm^-2", "", "linear", 0.0, 0.0, False, "none at the end of the layer"),
        Quantity("lower interface", "nm", "", "log", 1e-2, 0.1, True, "10-90 % width of the interface below"),
        Quantity("upper interface", "nm", "", "log", 1e-2, 0.1, True, "10-90 % width of the interface above"),
    )
}
ALIASES = {
    "growth rate": "rate",
    "dislocation density": "dislocations",
    "v defects": "V-defects",
    **{f"{metal} {word}": f"{metal} {name}" for metal in ("In", "Ga", "Al")
       for word, name in (("mid", "middle"), ("end", "final"))},
    **{one.column: name for name, one in QUANTITIES.items() if one.column},
    "v_defects_t": "V-defects",
}

# what a high temperature does to quantities whose names start with these words
EVAPORATION = {
    "In": "Indium desorbs", "Ga": "Gallium evaporates", "Al": "Gallium evaporates", "thickness": "Metals evaporate",
    "rate": "Metals evaporate",
}


@dataclass(frozen=True)
class Target:
    """What a layer shall be.

    layer   as the caller named it
    stages  paths of its stages in the recipe
    whole   True: the layer is a periodic stage as a whole; its thickness is that of all its layers together
    bound   "" for a value to reach, "at most" or "at least"
    given   tolerance after +- in the unit of the quantity, for windows; None: that of the quantity
    """

    layer: str
    stages: tuple[str, ...]
    whole: bool
    quantity: Quantity
    value: float
    bound: str = ""
    given: float | None = None

    @property
    def label(self) -> str:
        return f"{self.quantity.name} of {self.layer}"

    @property
    def evaporation(self) -> str:
        """What a high temperature does to it; empty if that is not evaporation."""
        return "" if self.whole else EVAPORATION.get(self.quantity.name.split()[0], "")

    @property
    def goal(self) -> str:
        """The target as a text without its unit."""
        if self.quantity.name == "V-defects":
            return "none"
        return f"{self.bound} {self.value:g}".strip()

    @property
    def tolerance(self) -> float:
        """In the unit of the quantity."""
        return self.quantity.tolerance_at(self.value)

    @property
    def allowed(self) -> float:
        """How far values of a window may be from the target, in the unit of the quantity; 0 for bounds."""
        if self.bound:
            return 0.0
        return self.quantity.allowed_at(self.value) if self.given is None else self.given

    def holds(self, value: float) -> bool:
        """Whether a value is within what is allowed. False for NaN."""
        slack = 1e-9 * abs(self.value)  # of rounding
        if self.bound == "at most":
            return value <= self.value + slack
        if self.bound == "at least":
            return value >= self.value - slack
        return abs(value - self.value) <= self.allowed + slack

    def deviation(self, value: float) -> float:
        """How far a value is from the target, in tolerances; 0 for a bound that holds. NaN if the value is."""
        if self.quantity.name == "V-defects":
            return 0.0 if value == 0.0 else math.inf
        away = (value - self.value) / self.tolerance if self.tolerance > 0.0 else math.nan
        if self.bound == "at most":
            return max(0.0, away)
        return max(0.0, -away) if self.bound == "at least" else abs(away)

    def coordinate(self, value: float) -> float:
        """The value on the scale of the solver, less the target, in tolerances; at most 0 where a bound holds."""
        if self.quantity.name == "V-defects":
            raise ValueError("the solver follows the height at which V-defects open, not their density")
        scale, target = self.quantity.scale, self.value
        if math.isnan(value):
            away, unit = UNDEFINED, self.tolerance
        elif scale == "log":
            away, unit = _log_ratio(value / target), self.tolerance / abs(target)
        elif scale == "logit":
            away = _logit(value) - _logit(target)
            unit = self.tolerance / max(target * (1.0 - target), self.tolerance)
        else:
            away, unit = value - target, self.tolerance
        return (-away if self.bound == "at least" else away) / unit


def _log_ratio(ratio: float) -> float:
    """The logarithm; where a layer loses thickness, further down the more it loses."""
    return math.log(max(ratio, SMALLEST_SHARE)) - math.log1p(max(-ratio, 0.0))


def _logit(fraction: float) -> float:
    inside = min(max(fraction, FRACTION_MIN), 1.0 - FRACTION_MIN)
    return math.log(inside / (1.0 - inside))


def measure(run: Run, paths: Sequence[str], target: Target) -> tuple[float, float]:
    """The value of a target in a result, the mean over all layers of its stages, and its coordinate.

    paths  of the stages of all layers, in the order of growth
    """
    rows = [number for number, path in enumerate(paths) if path in target.stages]
    layers = run._layers.iloc[rows]
    name, column = target.quantity.name, target.quantity.column
    if name == "V-defects":
        return _v_defects(run, layers)
    if target.whole and name in ("thickness", "rate"):
        value = float(layers["thickness"].sum())
        value = value if name == "thickness" else value / float(layers["duration"].sum())
    elif column:
        value = float(layers[column].mean())
    else:
        value = _interface_width(run, rows, upper=name.startswith("upper"))
    return value, target.coordinate(value)


def _v_defects(run: Run, layers: pd.DataFrame) -> tuple[float, float]:
    """Their density, and how much of the growth up to the end of the layer is above the height where they open.

    The coordinate is the logarithm of both heights' ratio, counted from the start of the layer in which they open: it
    is smooth in the knobs, while the density jumps from 0 to its value.
    """
    density = float(layers["v_defects_t"].max())
    if not density > 0.0:
        return density, -1.0
    profile = run._profile
    time, height = profile["time"].to_numpy(), profile["z"].to_numpy()
    opened = int(np.argmax(profile["rho_vd0_t"].to_numpy() > 0.0))
    end = layers["end"][layers["v_defects_t"] > 0.0].iloc[0]
    first = run._layers[run._layers["end"] >= time[opened]].iloc[0]
    bottom = float(np.interp(first["begin"], time, height))
    grown, until_open = (max(value - bottom, 1e-3) for value in (float(np.interp(end, time, height)), height[opened]))
    return density, max(math.log(grown / until_open) / V_DEFECT_MARGIN, 0.0) + 1.0


def _interface_width(run: Run, rows: Sequence[int], *, upper: bool) -> float:
    """Mean width of the interfaces above or below these layers; NaN if one of them has none."""
    layers, interfaces = run._layers, run._interfaces
    base = float(run._profile["z"].iloc[0])
    tops = base + layers["thickness"].cumsum().to_numpy()
    widths = []
    for row in rows:
        border = tops[row] if upper else tops[row - 1] if row else base
        near = np.abs(interfaces["z"].to_numpy() - border)
        if len(near) == 0 or near.min() > 1e-6 * max(abs(border), 1.0):
            return math.nan
        widths.append(float(interfaces["width"].iloc[int(near.argmin())]))
    return float(np.mean(widths)) if widths else math.nan
