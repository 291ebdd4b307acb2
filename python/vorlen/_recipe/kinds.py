"""Known elements of a recipe and their kinds: what a text in the file means, and the text that stands for a value.

Numbers are read as the library reads them, with C's scanf: hexadecimal numbers, infinity and NaN are numbers too. It
stops at the first character that does not belong to the number, so "12,5" is 12 and, where an integer is expected,
"2.97" is 2; such texts are never written.
"""

from __future__ import annotations

import functools
import math
import numbers
import re
from decimal import Decimal

from .elements import ELEMENTS, Element

# Known elements by their paths, in which # is a number.
KNOWN = {element.path: element for element in ELEMENTS}
SCHEMES = KNOWN["integration/scheme"].keywords
STRESS_MODELS = ("none", *KNOWN["stress/model"].keywords)  # the library takes any other text for none
# optional elements outside of stages; setting their value adds them
OPTIONAL = tuple(path for path, known in KNOWN.items() if known.optional and known.attributes and "#" not in path)

_DECIMAL = re.compile(r"\s*[-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?", re.ASCII)
_HEXADECIMAL = re.compile(r"\s*([-+]?0x)([\da-f]+\.?[\da-f]*|\.[\da-f]*)(p[-+]?\d+)?", re.ASCII | re.IGNORECASE)
_NOT_FINITE = re.compile(r"\s*[-+]?(infinity|inf(?!i)|nan)", re.ASCII | re.IGNORECASE)
_NO_DIGITS = re.compile(r"\s*[-+]?0x", re.ASCII | re.IGNORECASE)  # which is not read as 0
_INTEGER = re.compile(r"\s*([-+]?)(\d+)", re.ASCII)
_NOT_IN_XML = re.compile("[^\t\n\r\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")
_INTEGER_MAX = 2**31 - 1
_BLANKS = " \t\n\v\f\r"


@functools.lru_cache(maxsize=4096)
def known_element(path: str) -> Element | None:
    """The known element at a path without the root; None for an element that the library does not read."""
    single = re.sub(r"/stage_\d+_\d+(?=/)", "", path)  # a sub-stage has the elements of a stage
    return KNOWN.get(re.sub(r"(?<=stage_)\d+(?=/|$)", "#", single))


def children_of_kind(parent: str, kind: str) -> list[str]:
    """The names of the known children of that kind."""
    paths = [path.rpartition("/") for path, known in KNOWN.items() if known.kind == kind]
    return [name for above, _, name in paths if above == parent]


def unit_of(known: Element, attribute: str) -> str:
    """The unit of an attribute of a known element; empty for a number without one."""
    if known.kind != "arrhenius":
        return known.unit
    return known.unit.split(", ")[known.attributes.index(attribute)].removesuffix("1")


def leading_number(text: str | None) -> float:
    """The number at the start of a text, as the library reads it; NaN if there is none."""
    value, _ = _leading_number(text or "")
    return value


def _leading_number(text: str) -> tuple[float, int]:
    """The number at the start of a text and the length of its text; NaN and 0 if there is none."""
    if match := _HEXADECIMAL.match(text):
        return _hexadecimal(match[1], match[2], match[3] or ""), match.end()
    if _NO_DIGITS.match(text):
        return math.nan, 0
    match = _DECIMAL.match(text) or _NOT_FINITE.match(text)
    return (float(match[0]), match.end()) if match else (math.nan, 0)


def _hexadecimal(prefix: str, digits: str, exponent: str) -> float:
    """The value of a hexadecimal number; "." is 0."""
    try:
        return float.fromhex(f"{prefix}0{digits}{exponent}")
    except OverflowError:
        return -math.inf if prefix.startswith("-") else math.inf


def leading_integer(text: str | None) -> int | None:
    """The integer at the start of a text, as the library reads it; None if there is none.

    One beyond 64 bits is the nearest of 64 bits; the lower 32 bits of that count.
    """
    match = _INTEGER.match(text or "")
    if match is None:
        return None
    size = int(match[2].lstrip("0")[:20] or "0")  # 20 digits exceed 64 bits anyway
    value = max(-size, -(2**63)) if match[1] == "-" else min(size, 2**63 - 1)
    return (value + 2**31) % 2**32 - 2**31


def parse(text: str, known: Element | None) -> float | str:
    """What a text means: a number, or otherwise the text itself."""
    kind = known.kind if known else ""
    if kind in ("text", "keyword"):
        return text
    if kind == "integer":
        return int(text) if _is_whole(_INTEGER, text) else text
    value, length = _leading_number(text)
    return value if length > 0 and not text[length:].strip(_BLANKS) else text


def text_of(value: object, path: str, known: Element | None) -> str:
    """The text that stands for a value: a text as it is, a number in the shortest form that gives the same number.

    path  names the element in messages
    Raises TypeError or ValueError for a value that the element can't have, or that the library would misread.
    """
    if isinstance(value, bool) or not isinstance(value, (str, numbers.Real)):
        raise TypeError(f"{path}: a value in a recipe must be a number or a text, got {_shown(value)}")
    kind = known.kind if known else ""
    if known is not None and kind == "keyword":
        keywords = STRESS_MODELS if known.path == "stress/model" else known.keywords
        if not isinstance(value, str) or _lower(value) not in map(_lower, keywords):
            raise ValueError(f"{path} takes one of {', '.join(keywords)}, got {value!r}")
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
    if _is_whole(_DECIMAL, text) and math.isfinite(float(text)):
        return text
    hint = "; the decimal separator is the point" if re.search(r"\d,\d", text) else ""
    raise ValueError(f"{path} takes a number without a unit, got {text!r}{hint}")


def _lower(text: str) -> str:
    """In lower case; only the letters A to Z have one, as in the library."""
    return text.encode("utf-8", "replace").lower().decode()


def _is_whole(pattern: re.Pattern[str], text: str) -> bool:
    match = pattern.match(text)
    return match is not None and not text[match.end() :].strip(_BLANKS)


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
