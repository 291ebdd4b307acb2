"""The limits of numbers in a recipe, from the words of the table of elements."""

from __future__ import annotations

import functools
import operator
import re
from collections.abc import Callable

from .elements import Element

_WORDS: dict[str, Callable[[float, float], bool]] = {
    "at least": operator.ge, "above": operator.gt, "below": operator.lt, "not": operator.ne,
}  # fmt: skip


@functools.lru_cache(maxsize=256)
def limits_of(allowed: str) -> tuple[tuple[Callable[[float, float], bool], float], ...]:
    """The comparisons that a number must pass. Raises ValueError for words that it does not know."""
    if allowed == "any":
        return ()
    if match := re.fullmatch(r"([\d.e+-]+) to ([\d.e+-]+)", allowed):
        return (operator.ge, float(match[1])), (operator.le, float(match[2]))
    found = [re.fullmatch(rf"({'|'.join(_WORDS)}) ([\d.e+-]+)", part) for part in allowed.split(" and ")]
    if not all(found):
        raise ValueError(f"unknown limits: {allowed}")
    return tuple((_WORDS[match[1]], float(match[2])) for match in found if match)


def check_limits(number: float, name: str, known: Element) -> None:
    """Raises ValueError with the name if a number is outside of the limits of an element."""
    if not all(compare(number, limit) for compare, limit in limits_of(known.allowed)):
        unit = "" if known.unit in ("", "fraction") else f" {known.unit}"
        raise ValueError(f"{name} must be {known.allowed}{unit}, got {number:g}")
