"""Knobs of a design: values of the recipe that it may change, each as one variable.

Durations, flows and pressures are multiplied by the exponential of the variable, temperatures are shifted by 40 K times
the variable: over 40 K an activated rate changes by about a factor of e. A ramp moves as a whole, and so do the
values of several stages of one name.
"""

from __future__ import annotations

import math
import operator
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
import pandas as pd

from .._recipe.elements import Element
from .._recipe.kinds import known_element
from .._recipe.limits import limits_of
from .._recipe.recipe import Recipe
from .._recipe.stages import RAMPS

SHIFT = 40.0  # K per unit of the variable
DIGITS = 7  # of the values in the recipe
FLOWS = tuple(name for name in RAMPS if name not in ("T", "P"))
PERIODS = "periods"
KNOBS = {"tau": "tau", **RAMPS, PERIODS: "n_periods"}  # name: path below a stage
ALIASES = {"duration": "tau", "time": "tau", "temperature": "T", "pressure": "P", "n_periods": PERIODS}
# limits of a knob for which none are given: factors of the start, or distances in K
DEFAULT_FACTORS = {"tau": 1000.0, "P": 3.0, PERIODS: 10.0}
DEFAULT_FACTOR_OF_FLOWS = 10.0
DEFAULT_SHIFT = 100.0  # K
SMALLEST_SHARE = 1e-4  # of the upper limit: a lower limit of 0 counts as this for knobs that are multiplied


@dataclass(frozen=True)
class Knob:
    """One variable of a design.

    layer   of the target that names it, as the caller wrote it
    start   value of each path at variable 0: a number or a pair
    low, high        of the variable
    limits           in the unit of the knob
    default_limits   True if the caller gave none
    stage            of a knob that is given by its path; empty if it is the target's
    """

    layer: str
    name: str
    unit: str
    paths: tuple[str, ...]
    start: tuple[Any, ...]
    low: float
    high: float
    limits: tuple[float, float]
    default_limits: bool
    stage: str = ""

    @property
    def owner(self) -> str:
        return self.stage or self.layer

    @property
    def label(self) -> str:
        return f"{self.name} of {self.owner}"

    def name_for(self, layer: str) -> str:
        """What texts about a layer call it."""
        return self.name if self.owner == layer else self.label

    @property
    def is_integer(self) -> bool:
        return self.name == PERIODS

    def values(self, variable: float) -> dict[str, Any]:
        """The value of each path, as make_task takes them."""
        return {path: self._moved(start, variable) for path, start in zip(self.paths, self.start)}

    def shown(self, variable: float) -> Any:
        """The value of the first path: a number, or a pair for a ramp."""
        value = self._moved(self.start[0], variable)
        return (value[0] if value[0] == value[1] else tuple(value)) if isinstance(value, list) else value

    def snapped(self, variable: float) -> float:
        """The variable of the nearest value that the recipe can have."""
        if not self.is_integer:
            return variable
        return math.log(self._moved(self.start[0], variable) / self.start[0])

    def difference(self, variable: float, step: float) -> float:
        """A step for a difference quotient, inside the limits if possible; at least one period."""
        if self.is_integer:
            number = self._moved(self.start[0], variable)
            low, high = self.limits
            other = number + 1 if number + 1 <= high else max(number - 1, math.ceil(low))
            return math.log(other / number)
        return step if variable + step <= self.high else -step

    def shifted(self, start: float, variable: float) -> float:
        """Another value that moves as those of this knob do."""
        if variable == 0.0:
            return start  # with all its digits
        moved = start + SHIFT * variable if self.name == "T" else start * math.exp(variable)
        return float(f"{moved:.{DIGITS}g}")

    def _moved(self, start: Any, variable: float) -> Any:
        if isinstance(start, tuple):
            return [self._moved(end, variable) for end in start]
        if self.is_integer:
            return max(1, round(start * math.exp(variable)))
        return self.shifted(start, variable)


def make_knob(
    recipe: Recipe, layer: str, name: str, paths: Sequence[str], limits: tuple[float, float] | None, stage: str = ""
) -> Knob:
    """A knob for these paths of a recipe. Raises ValueError if it can't be changed within the limits."""
    known = known_element(paths[0])
    unit = known.unit if known is not None else ""
    label = f"{name} of {stage or layer}"
    start = tuple(recipe[path] for path in paths)
    numbers = [end for value in start for end in (value if isinstance(value, tuple) else (value,))]
    if not all(isinstance(number, (int, float)) for number in numbers):
        raise ValueError(f"{label} is {start[0]!r} in the recipe, not a number")
    given = limits is not None
    if limits is not None and name in FLOWS and not any(numbers):
        start, numbers = _flow_in(limits, start)
    if name != "T" and not all(number >= 0.0 for number in numbers):
        raise ValueError(f"{label} is negative in the recipe")
    if name != "T" and not any(numbers):
        raise ValueError(f"{label} is 0 in the recipe: set a start value there, or give limits for {name}")
    top, bottom = max(numbers), min(number for number in numbers if number > 0.0 or name == "T")
    if limits is None:
        factor = DEFAULT_FACTORS.get(name, DEFAULT_FACTOR_OF_FLOWS)
        limits = (bottom - DEFAULT_SHIFT, top + DEFAULT_SHIFT) if name == "T" else (bottom / factor, top * factor)
        limits = (max(1.0, round(limits[0])), round(limits[1])) if name == PERIODS else limits
        limits = (max(limits[0], _lowest(known)), limits[1])
    low, high = _variable_limits(name, bottom, top, limits)
    if not low < high:
        span = f"{limits[0]:g} to {limits[1]:g}{f' {unit}' if unit else ''}"
        raise ValueError(f"{label}: the recipe's values range from {bottom:g} to {top:g}, which can't move in {span}")
    return Knob(layer, name, unit, tuple(paths), start, low, high, limits, not given, stage)


def _lowest(known: Element | None) -> float:
    """The lowest value that the library takes."""
    limits = limits_of(known.allowed) if known is not None else ()
    return max((limit for compare, limit in limits if compare is operator.ge), default=0.0)


def _flow_in(limits: tuple[float, float], start: Sequence[Any]) -> tuple[tuple[Any, ...], list[float]]:
    """A start for flows that are 0 in the recipe: between the limits."""
    low, high = limits
    flow = math.sqrt(max(low, 0.01 * high) * high)
    return tuple((flow, flow) for _ in start), [flow]


def _variable_limits(name: str, bottom: float, top: float, limits: tuple[float, float]) -> tuple[float, float]:
    """Of the variable, so that all values are within the limits. Zeros in a ramp stay 0."""
    if name == "T":
        return (limits[0] - bottom) / SHIFT, (limits[1] - top) / SHIFT
    lowest = limits[0] if limits[0] > 0.0 else SMALLEST_SHARE * limits[1]
    return float(np.log(lowest / bottom)), float(np.log(limits[1] / top))


def usual_knob(name: str) -> str | None:
    """The name of a knob as the table spells it; None if it is not one."""
    for known in KNOBS:
        if name.lower() == known.lower():
            return known
    return ALIASES.get(name.lower())


def label_of(timeline: pd.DataFrame, path: str) -> str:
    """Such as "TMIn of InGaN well" for a path of a stage, otherwise the path, also if several stages have the name."""
    stages = timeline.drop_duplicates("path")
    for stage, layer in zip(stages.path, stages.name):
        for knob, below in KNOBS.items():
            if path == f"{stage}/{below}":
                return f"{knob} of {layer}" if (stages.name == layer).sum() == 1 else path
    return path
