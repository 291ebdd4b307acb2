"""Reader of result files; docs/result-format.md describes the format.

The reader is strict: any deviation from the format is an error with the line number. Values may be infinite or NaN. The
file of a failed run is valid; it has fewer rows.
"""

from __future__ import annotations

import re
import warnings
from typing import NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, Mask
from .columns import RELAXATION_COLUMNS, RESULT_COLUMNS, SURFACE_COLUMNS, Column

TITLE = b'"VORLEN output file, version 2.0"'
LAYERS_BEGIN = b"<LAYERS>"
LAYERS_END = b"</LAYERS>"

# (t): when this depth was the surface; (z): in the finished structure.
COLUMNS = RESULT_COLUMNS
COLUMN_NAMES = tuple(column.name for column in COLUMNS)
# The tables that a file may contain, by their heading: with the detail columns of the recipe's output/detail or without.
_TABLES = {
    ("#" + " ".join(column.heading for column in columns)).encode(): columns
    for columns in (COLUMNS, COLUMNS + SURFACE_COLUMNS, COLUMNS + SURFACE_COLUMNS + RELAXATION_COLUMNS)
}
HEADING = next(iter(_TABLES))
_WIDEST = len(COLUMNS + SURFACE_COLUMNS + RELAXATION_COLUMNS)

TIME_TOLERANCE = 1e-9  # relative; the rounding of a sum of many durations

_NUMBER = re.compile(rb"-?(?:nan|inf|\d+(?:\.\d*)?(?:e[+-]?\d+)?)")
_LAYER_END = re.compile(rb'" [^ ]+ [^ ]+\Z')  # of its last line
_LAYER = re.compile(rb'"(.*)" ([^ \n]+) ([^ \n]+)', re.DOTALL)
_BYTES_OF_ROWS = b"0123456789+-.einfa \n"


class ResultFileError(ValueError):
    """A file is not a result file, or is damaged. The text names the file and the line."""


def _number(text: bytes) -> float | None:
    return float(text) if _NUMBER.fullmatch(text) else None


def _layer(text: bytes) -> tuple[str, float, float] | None:
    """Name, duration and thickness of a layer; None if the text is not a layer."""
    match = _LAYER.fullmatch(text)
    if match is None:
        return None
    duration, thickness = _number(match[2]), _number(match[3])
    if duration is None or thickness is None:
        return None
    return match[1].decode("utf-8", "surrogateescape"), duration, thickness


def _split_layers(text: bytes, name: str) -> list[tuple[str, float, float]]:
    """The layers from their lines, which start at line 3 of the file.

    A name may contain line breaks: a layer ends where its text is complete and the next line starts with a quote.
    """
    layers: list[tuple[str, float, float]] = []
    lines = text.split(b"\n")[:-1]
    begin = last_begin = 0
    for index in range(len(lines)):
        last = index + 1 == len(lines)
        if not last and not lines[index + 1].startswith(b'"'):
            continue
        # A quick test, so that a long name is not joined again for each of its lines.
        ended = _LAYER_END.search(lines[index]) is not None
        if ended and (layer := _layer(b"\n".join(lines[begin : index + 1]))):
            layers.append(layer)
            last_begin, begin = begin, index + 1
        elif ended and layers and (layer := _layer(b"\n".join(lines[last_begin : index + 1]))):
            layers[-1] = layer  # what looked like the previous layer was the start of this name
            begin = index + 1
        elif last:
            raise ResultFileError(f"{name}, line {begin + 3}: not a layer")
    return layers


class _Head(NamedTuple):
    layers: list[tuple[str, float, float]]
    rows: int  # offset
    first_line: int  # number of the first row's line
    columns: tuple[Column, ...]


def _parse_head(content: bytes, name: str) -> _Head:
    if not content.startswith(TITLE + b"\n"):
        raise ResultFileError(f"{name} is not a result file: its first line is not {TITLE.decode()}")
    head = TITLE + b"\n" + LAYERS_BEGIN + b"\n"
    if not content.startswith(head):
        raise ResultFileError(f"{name}, line 2: expected {LAYERS_BEGIN.decode()}")
    # A name may contain lines that look like part of the format; rows contain only numbers.
    tails = {b"\n" + LAYERS_END + b"\n" + heading + b"\n": columns for heading, columns in _TABLES.items()}
    end, tail = max((content.rfind(tail, len(head) - 1), tail) for tail in tails)
    if end < 0:
        lines = content.split(b"\n")[:-1]  # the last one is empty or truncated
        if LAYERS_END in lines:
            raise ResultFileError(f"{name}, line {lines.index(LAYERS_END) + 2}: expected {HEADING.decode()}")
        raise ResultFileError(f"{name}, line {len(lines)}: the list of layers is not closed")
    rows = end + len(tail)
    layers = _split_layers(content[len(head) : end + 1], name)
    return _Head(layers, rows, content.count(b"\n", 0, rows) + 1, tails[tail])


def _first_fault(body: bytes, first_line: int, width: int) -> tuple[int, str]:
    """Line number and fault of the first line of body that is not a row."""
    for number, line in enumerate(body.split(b"\n")[:-1], first_line):
        words = (line if width == _WIDEST else line.removesuffix(b" ")).split(b" ")
        if len(words) != width or not all(_NUMBER.fullmatch(word) for word in words):
            return number, f"not a row of {width} numbers"
    raise AssertionError("the fast reader rejected rows that the slow one accepts")


def _parse_rows(body: bytes, name: str, first_line: int, width: int) -> tuple[Array, Mask]:
    """The numbers, one row per line, and which of the rows are active."""
    codes = np.frombuffer(body, np.uint8)
    separators = np.flatnonzero((codes == ord(" ")) | (codes == ord("\n")))
    is_line_end = codes[separators] == ord("\n")
    line_ends = np.flatnonzero(is_line_end)  # as indices into separators
    count = len(line_ends)
    if body and body[-1:] != b"\n":
        raise ResultFileError(f"{name}, line {first_line + count}: the last line is truncated")
    if count == 0:
        return np.empty((0, width)), np.empty(0, bool)
    # Numbers separated by one blank. An active row has a trailing blank, except in the widest table.
    length_before = np.diff(separators, prepend=-1) - 1
    blanks = np.diff(line_ends, prepend=-1) - 1
    active = (blanks > 0) & (length_before[line_ends] == 0)
    well_formed = (
        not body.translate(None, _BYTES_OF_ROWS)
        and bool(np.all(blanks == width - 1 + active))
        and int(np.count_nonzero(length_before)) == count * width
        and not (width == _WIDEST and bool(np.any(active)))
    )
    values = None
    if well_formed:
        with warnings.catch_warnings():
            warnings.simplefilter("error", DeprecationWarning)  # how numpy reports words that are not numeric
            try:
                values = np.fromstring(body, sep=" ")
            except (DeprecationWarning, ValueError):
                pass
    if values is None or values.size != count * width:
        line, text = _first_fault(body, first_line, width)
        raise ResultFileError(f"{name}, line {line}: {text}")
    values = values.reshape(count, width)
    if width == _WIDEST:
        # Rows of pre-stages and post-stages have a sum of 1 and zeros in the detail columns.
        detail = values[:, len(COLUMNS) :]
        active = (detail[:, 0] != 1.0) | np.any(detail[:, 1:] != 0.0, axis=1)
    return values, active


def parse_layers(content: bytes, name: str = "result") -> pd.DataFrame:
    """The layers: name, duration [s] and thickness [nm], numbered from 1. name is used in error texts."""
    layers = _parse_head(content, name).layers
    table = pd.DataFrame(layers, columns=["name", "duration", "thickness"], index=range(1, len(layers) + 1))
    table.index.name = "layer"
    return table


def parse_profile(content: bytes, name: str = "result") -> pd.DataFrame:
    """The rows: COLUMNS, the detail columns if the file has them, and active, true for rows of simulated stages."""
    head = _parse_head(content, name)
    values, active = _parse_rows(content[head.rows :], name, head.first_line, len(head.columns))
    profile = pd.DataFrame(values, columns=[column.name for column in head.columns])
    profile["active"] = active
    profile.attrs["units"] = {column.name: column.unit for column in head.columns}
    profile.attrs["meanings"] = {column.name: column.meaning for column in head.columns}
    return profile


def has_rows(content: bytes) -> bool:
    """True if the head is complete and rows follow."""
    try:
        head = _parse_head(content, "result")
    except ResultFileError:
        return False
    return len(content) > head.rows


def bytes_of_rows(content: bytes) -> bytes:
    """The part of the file after the heading."""
    return content[_parse_head(content, "result").rows :]


def reaches_the_end(content: bytes, name: str = "result") -> bool:
    """True if the table ends with a complete row at the end time of the last layer."""
    layers, begin, *_ = _parse_head(content, name)
    lines = content[begin:].rsplit(b"\n", 2)
    if len(lines) < 2 or lines[-1] or not lines[-2]:
        return False
    first, last = _number(content[begin:].split(b" ", 1)[0]), _number(lines[-2].split(b" ", 1)[0])
    if first is None or last is None:
        return False
    gap = abs(last - first - sum(duration for _, duration, _ in layers))
    return not gap > TIME_TOLERANCE * abs(last)  # NaN passes
