"""Limits of knobs: how they are written, and whether they can be meant."""

from __future__ import annotations

import math
import re
from collections.abc import Mapping, Sequence
from typing import Any

from .._recipe.kinds import known_element
from .._recipe.limits import check_limits
from .._recipe.quantities import has_unit, is_quantity, number_in
from .file import without_brackets
from .knobs import FLOWS, PERIODS, usual_knob

ZERO_CELSIUS = 273.15  # K
FAR = 100.0  # K; limits further away from the recipe than this are suspicious

_NUMBER = r"\s*[-+]?[\d.]+(?:[eE][-+]?\d+)?\s*"
_RANGE = re.compile(r"(.+?)\s*(?:\.\.\.?|\u2026|\u2013|\bto\b|(?<=\s)-(?=\s))\s*(.+)")


def named_limits(given: Any, what: str) -> dict[str, Any]:
    """Limits by the name or path of a knob, as given."""
    if given is None:
        return {}
    if not isinstance(given, Mapping):
        raise ValueError(f"{what} must be a mapping such as {{TMIn: 0.02 .. 0.6 sccm}}, got {given!r}")
    return {usual_knob(str(name)) or str(name): value for name, value in given.items()}


def as_range(text: str) -> tuple[str, str] | None:
    """The ends of "0.02 .. 0.6 sccm", of which the first gets the unit of the second; None if it is not a range."""
    match = _RANGE.fullmatch(without_brackets(text.strip()))
    if match is None:
        return None
    low, high = match[1], match[2]
    if re.fullmatch(_NUMBER, low):
        low = f"{low} {re.sub(f'^{_NUMBER}', '', high)}".strip()
    return low, high


def checked_limits(given: Any, name: str, path: str) -> tuple[float, float] | None:
    """The limits of a knob in its unit: [0.02 sccm, 0.6 sccm], 0.02 .. 0.6 sccm, or numbers."""
    if given is None:
        return None
    known = known_element(path)
    unit = known.unit if known is not None else ""
    what = f"the limits of {name}"
    pair: Any = as_range(given) if isinstance(given, str) else given
    if isinstance(pair, str) or not isinstance(pair, Sequence) or len(pair) != 2:
        raise ValueError(f"{what} must be two values, such as [0.02 sccm, 0.6 sccm] or 0.02 .. 0.6 sccm, got {given!r}")
    low, high = (float(number_in(end, what, unit)) for end in pair)
    if not low < high:
        raise ValueError(f"{what}: the lower one must be below the upper one, got {given!r}")
    if known is not None and not (name in FLOWS and low == 0.0):
        for end in (low, high):
            check_limits(end, what, known)
    if name == PERIODS:
        low, high = math.ceil(low), math.floor(high)
        if not low < high:
            raise ValueError(f"{what} must contain two integers, got {given!r}")
    return low, high


def check_celsius(given: Any, limits: tuple[float, float], values: Sequence[Any], layer: str) -> None:
    """Raises ValueError if limits of a temperature without a unit are far from the recipe, but would fit in degC.

    limits  the same in K
    values  temperatures in the recipe, K: numbers, or pairs for ramps
    """
    ends = [float(end) for value in values for end in (value if isinstance(value, tuple) else (value,))]
    pair: Any = as_range(given) if isinstance(given, str) else given
    if any(is_quantity(end) or has_unit(end) for end in pair):
        return
    low, high = limits
    low_celsius, high_celsius = low + ZERO_CELSIUS - FAR, high + ZERO_CELSIUS + FAR
    if high < min(ends) - FAR and low_celsius <= min(ends) and max(ends) <= high_celsius:
        shown = f"{ends[0]:g}" if min(ends) == max(ends) else f"{min(ends):g} to {max(ends):g}"
        raise ValueError(
            f"the limits of T, {low:g} .. {high:g} without a unit, are in K, far below the {shown} K of {layer}; "
            f"if degC is meant, write {low:g} .. {high:g} degC"
        )
