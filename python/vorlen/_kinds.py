"""Known elements of a recipe and their kinds: what a text in the file means, and the text that stands for a value.

Numbers are read as the library reads them. It stops at the first character that does not belong to the number, so
"12,5" is 12 and, where an integer is expected, "2.97" is 2; such texts are never written.
"""

from __future__ import annotations

import functools
import math
import numbers
import re
from decimal import Decimal

from ._elements import ELEMENTS, Element

# Known elements by their paths, in which # is a number.
KNOWN = {element.path: element for element in ELEMENTS}
SCHEMES = KNOWN["integration/scheme"].keywords
# optional elements outside of stages; setting their value adds them
OPTIONAL = tuple(path for path, known in KNOWN.items() if known.optional and known.attributes and "#" not in path)

_NUMBER = re.compile(r"\s*[-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?", re.ASCII)
_INTEGER = re.compile(r"\s*[-+]?\d+", re.ASCII)
_NOT_IN_XML = re.compile("[^\t\n\r\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")
_INTEGER_MAX = 2**31 - 1


@functools.lru_cache(maxsize=4096)
def known_element(path: str) -> Element | None:
    """The known element at a path without the root; None for an element that the library does not read."""
    single = re.sub(r"/stage_\d+_\d+(?=/)", "", path)  # a sub-stage has the elements of a stage
    return KNOWN.get(re.sub(r"(?<=stage_)\d+(?=/|$)", "#", single))


def children_of_kind(parent: str, kind: str) -> list[str]:
    """The names of the known children of that kind."""
    paths = [path.rpartition("/") for path, known in KNOWN.items() if known.kind == kind]
    return [name for above, _, name in paths if above == parent]


def leading_number(text: str | None) -> float:
    """The number at the start of a text, as the library reads it; NaN if there is none."""
    match = _NUMBER.match(text or "")
    return float(match[0]) if match else math.nan


def leading_integer(text: str | None) -> int | None:
    """The integer at the start of a text, as the library reads it; None if there is none."""
    match = _INTEGER.match(text or "")
    return int(match[0]) if match else None


def parse(text: str, known: Element | None) -> float | str:
    """What a text means: a number, or otherwise the text itself."""
    kind = known.kind if known else ""
    if kind in ("text", "keyword"):
        return text
    if kind == "integer":
        return int(text) if _is_whole(_INTEGER, text) else text
    try:
        value = float(text)
    except ValueError:
        return text
    return value if "_" not in text else text


def text_of(value: object, path: str, known: Element | None) -> str:
    """The text that stands for a value: a text as it is, a number in the shortest form that gives the same number.

    path  names the element in messages
    Raises TypeError or ValueError for a value that the element can't have, or that the library would misread.
    """
    if isinstance(value, bool) or not isinstance(value, (str, numbers.Real)):
        raise TypeError(f"{path}: a value in a recipe must be a number or a text, got {_shown(value)}")
    kind = known.kind if known else ""
    if known is not None and kind == "keyword":
        if not isinstance(value, str) or _lower(value) not in map(_lower, known.keywords):
            raise ValueError(f"{path} takes one of {', '.join(known.keywords)}, got {value!r}")
        return value
    if isinstance(value, str):
        wrong = _NOT_IN_XML.search(value)
        if wrong is not None:
            raise ValueError(f"{path}: a recipe can't contain the character {wrong[0]!r}, got {value!r}")
        return value if kind in ("", "text") else _checked_number(value, path, kind)
    if kind == "integer":
        if not abs(value) <= _INTEGER_MAX or value != int(value):  # NaN compares as False
            raise ValueError(f"{path} takes an integer, got {value}")
        return str(int(value))
    return _number_text(value, path)


def _checked_number(text: str, path: str, kind: str) -> str:
    if kind == "integer":
        if _is_whole(_INTEGER, text) and abs(int(text)) <= _INTEGER_MAX:
            return text
        raise ValueError(f"{path} takes an integer, got {text!r}")
    if _is_whole(_NUMBER, text) and math.isfinite(float(text)):
        return text
    hint = "; the decimal separator is the point" if re.search(r"\d,\d", text) else ""
    raise ValueError(f"{path} takes a number without a unit, got {text!r}{hint}")


def _lower(text: str) -> str:
    """In lower case; only the letters A to Z have one, as in the library."""
    return text.encode("utf-8", "replace").lower().decode()


def _is_whole(pattern: re.Pattern[str], text: str) -> bool:
    match = pattern.match(text)
    return match is not None and not text[match.end() :].strip(" \t\n\v\f\r")


def _number_text(value: numbers.Real, path: str) -> str:
    try:
        number = float(value)
    except OverflowError:
        number = math.inf
    if not math.isfinite(number):
        raise ValueError(f"{path}: {number} is not finite, so it can't be a value in a recipe")
    if isinstance(value, numbers.Integral):
        return str(int(value))
    if 1e-4 <= abs(number) < 1e6 or number == 0.0:
        return repr(number).removesuffix(".0")
    return f"{Decimal(repr(number)).normalize():e}".replace("e+", "e")


def _shown(value: object) -> str:
    return f"{value!r}" if value is None or isinstance(value, bool) else type(value).__name__
