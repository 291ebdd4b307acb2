"""How much the values of a recipe vary from run to run: normal distributions, each given by one standard deviation.

A reactor drifts as a whole: a spread of T shifts the temperatures of all stages together, and one of a flow changes
that flow in all stages. Flows that are 0 are switched off and stay 0.
"""

from __future__ import annotations

import difflib
import re
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

import pandas as pd

from .._recipe.quantities import has_unit, is_quantity, number_in
from .._recipe.recipe import Recipe
from .._recipe.stages import PROCESS
from .._sweep.plan_values import known_parameter
from .knobs import ALIASES, DIGITS, KNOBS, PERIODS, label_of

LARGEST = 0.25  # of the smallest value: four standard deviations lead to 0
SMALLEST = 0.01  # of a value is left at least; beyond four standard deviations
_CELSIUS = re.compile(r"([\d.])\s*(?:delta_)?(?:degC|\u00b0\s?C|degrees?_?\s?[Cc]elsius|celsius)\s*$")
_KELVIN = re.compile(r"\d\s*(?:[a-z\u00b5]?K|(?:milli)?[Kk]elvin)\s*$")
NAMES = [name for name in KNOBS if name != PERIODS]


@dataclass(frozen=True)
class Drift:
    """Values of the recipe that vary together.

    name         the usual name of a knob, or the path
    label        what texts call it: the name, or "T of InGaN well" for a path
    unit         of the values
    paths, start their paths in the recipe, and their values there: numbers, or pairs for ramps
    spread       one standard deviation, in the unit or as a share of each value
    is_share     True: of each value
    """

    name: str
    label: str
    unit: str
    paths: tuple[str, ...]
    start: tuple[Any, ...]
    spread: float
    is_share: bool

    @property
    def shown_unit(self) -> str:
        return "%" if self.is_share else self.unit

    @property
    def shown_spread(self) -> float:
        """In shown_unit."""
        return 100.0 * self.spread if self.is_share else self.spread

    @property
    def text(self) -> str:
        """One standard deviation, such as "2 K"."""
        return f"{self.shown_spread:.4g} {self.shown_unit}".strip()

    def values(self, deviation: float) -> dict[str, Any]:
        """The value of each path, this many standard deviations away."""
        return {path: self._moved(start, deviation * self.spread) for path, start in zip(self.paths, self.start)}

    def _moved(self, start: Any, change: float) -> Any:
        if isinstance(start, tuple):
            return tuple(self._moved(end, change) for end in start)
        if start == 0.0 or change == 0.0:
            return start
        moved = start * (1.0 + change) if self.is_share else start + change
        if start > 0.0:
            moved = max(moved, SMALLEST * start)
        return float(f"{moved:.{DIGITS}g}")


def read_spread(recipe: Recipe, spread: Any) -> list[Drift]:
    """The values that vary, checked. Raises TypeError or ValueError for mistakes."""
    if not isinstance(spread, Mapping):
        raise TypeError(f'spread must be a mapping such as {{"T": "2 K", "TMIn": "2 %"}}, got {spread!r}')
    if not spread:
        raise ValueError('spread is empty; it needs at least one value that varies, such as {"T": "2 K"}')
    timeline = recipe.timeline()
    stages = list(dict.fromkeys(timeline.path[timeline.kind == "active"]))
    named: dict[str, tuple[list[str], Any]] = {}
    alone: set[str] = set()
    for given, size in spread.items():
        name, paths = _paths_of(recipe, stages, given)
        if name in named:
            raise ValueError(f"the spread of {name} is given twice")
        named[name] = (paths, size)
        alone |= set(paths) if "/" in name else set()
    made = []
    for name, (paths, size) in named.items():
        own = paths if "/" in name else [path for path in paths if path not in alone]
        if own:
            made.append(_drift(recipe, timeline, name, own, size))
    return made


def _paths_of(recipe: Recipe, stages: list[str], given: object) -> tuple[str, list[str]]:
    """The name of what varies, and the paths of its values."""
    if not isinstance(given, str):
        raise TypeError(f"spread: expected the name of a knob or a path, got {given!r}")
    if "/" in given:
        head, _, tail = given.rpartition("/")
        for path in (given, f"{PROCESS}/{given}", f"{head}/{KNOBS.get(tail, tail)}",
                     f"{PROCESS}/{head}/{KNOBS.get(tail, tail)}"):
            if path in recipe:
                return path, [path]
        try:
            recipe[f"{PROCESS}/{given}" if given.startswith("stage_") else given]
        except KeyError as error:
            raise ValueError(f"spread: {error.args[0]}") from None
    usual = {name.lower(): name for name in NAMES} | ALIASES
    name = usual.get(given.lower(), "")
    if name not in NAMES:
        near = difflib.get_close_matches(given.lower(), usual, 1, 0.5)
        hint = f"; did you mean {usual[near[0]]}?" if near else ""
        known = f"known are {', '.join(NAMES)}, and paths in the recipe"
        raise ValueError(f"spread: unknown name {given!r}; {known}{hint}")
    paths = [path for path in (f"{stage}/{KNOBS[name]}" for stage in stages) if path in recipe and _varies(recipe, path)]
    if not paths:
        raise ValueError(f"spread: {name} is 0 in all stages")
    return name, paths


def _varies(recipe: Recipe, path: str) -> bool:
    value = recipe[path]
    return any(value) if isinstance(value, tuple) else bool(value)


def _drift(recipe: Recipe, timeline: pd.DataFrame, name: str, paths: list[str], size: Any) -> Drift:
    known, _ = known_parameter(paths[0])
    unit = known.unit if known is not None else ""
    what = f"the spread of {name}"
    start = tuple(recipe[path] for path in paths)
    ends = [end for value in start for end in (value if isinstance(value, tuple) else (value,))]
    if not all(isinstance(end, float) for end in ends):
        raise ValueError(f"{what}: {paths[0]} is {start[0]!r}, not a real number")
    is_share = isinstance(size, str) and size.strip().endswith("%")
    if unit == "K" and not is_share:
        amount = _difference(size, what)
    else:
        amount = number_in(size, what, "" if is_share else unit)
    if not amount > 0.0:
        raise ValueError(f"{what} must be above 0, got {size!r}; leave out what does not vary")
    least = min((abs(end) for end in ends if end), default=0.0)
    if least == 0.0:
        raise ValueError(f"{what}: {paths[0]} is 0")
    if amount > LARGEST * (1.0 if is_share else least):
        most = f"{100 * LARGEST:g} %" if is_share else f"{LARGEST * least:.4g} {unit}".strip()
        raise ValueError(f"{what} can be at most {most}, a quarter of the smallest value, got {size!r}")
    return Drift(name, label_of(timeline, name), unit, tuple(paths), start, float(amount), is_share)


def _difference(size: Any, what: str) -> float | int:
    """A difference of temperatures in K: that of degrees Celsius is the same number."""
    if is_quantity(size):
        size = f"{size.magnitude} {size.units}"
    if isinstance(size, str):
        size = _CELSIUS.sub(r"\1 K", size)
        if has_unit(size) and not _KELVIN.search(size):
            raise ValueError(f"{what} is a difference of temperatures, in K or degC, got {size!r}")
    return number_in(size, what, "K")
