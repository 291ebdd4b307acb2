"""Tables of numbers in text files, as instruments and spreadsheets write them.

Delimiter and decimal separator are found by trying them; headings are the last line of texts before the numbers.
"""

from __future__ import annotations

import re
from typing import NamedTuple

import numpy as np

from .._base.types import Array
from .headings import unit_in

SIZE_MAX = 20_000_000  # bytes; about 500000 points
SAMPLE = 500  # lines by which the delimiter is chosen
DIALECTS = (  # delimiter (None: blanks), decimal separator; of those that fit equally well, the first is taken
    ("\t", "."), ("\t", ","), (";", "."), (";", ","), (",", "."), (None, "."), (None, ","),
)
GAPS = frozenset(("", "nan", "-", "--", "n/a", "na", "#n/a", "inf", "+inf", "-inf", "null", "none"))

_NUMBER = re.compile(r"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eEdD][-+]?\d+)?", re.ASCII)
_COMMENT = re.compile(r"\s*(?:[#;%!*']|//)+\s*")


class TextTable(NamedTuple):
    """The numbers of a text file."""

    headings: list[str]  # one for each column; empty texts if there are none
    unit_line: list[str]  # the texts of a line of units below the headings; empty texts if there is none
    numbers: Array  # (lines, columns), NaN for gaps
    first: str  # the first line of numbers, for messages
    notes: list[str]


def decoded(content: bytes, name: str) -> str:
    """The text of a file: UTF-8, UTF-16 with its mark, otherwise Windows-1252. Raises ValueError for what is not text."""
    if content.startswith((b"\xff\xfe", b"\xfe\xff")):
        try:
            return content.decode("utf-16")
        except UnicodeDecodeError:
            raise ValueError(f"{name} is not a text file: it is not valid UTF-16") from None
    if b"\0" in content:
        raise ValueError(f"{name} is not a text file: it contains null characters")
    try:
        text = content.decode("utf-8-sig")
    except UnicodeDecodeError:
        text = content.decode("cp1252", "replace")
    control = sum(char < " " and char not in "\t\r\n\f\x1a" for char in text[:4000])
    if control > 0:
        raise ValueError(f"{name} is not a text file: it contains control characters")
    return text


def parse_table(text: str, name: str) -> TextTable:
    """The longest block of lines with equally many numbers, two or more, and its headings. Raises ValueError."""
    lines = re.split(r"\r\n|\r|\n", text.replace("\x1a", "").replace("\f", "\n"))
    delimiter, decimal = _dialect(lines, name)
    rows = [_row(line, delimiter, decimal) for line in lines]
    begin, end = _longest_block(rows)
    notes = _check_rest(lines, rows, end, name)
    numbers = np.array([row for row in rows[begin:end] if row])
    headings, unit_line = _headings(lines[:begin], delimiter, numbers.shape[1], name)
    used = [place for place in range(len(headings)) if headings[place] or np.isfinite(numbers[:, place]).any()]
    return TextTable(
        [headings[place] for place in used], [unit_line[place] for place in used], numbers[:, used],
        " ".join(lines[begin].split())[:60], notes,
    )


def _row(line: str, delimiter: str | None, decimal: str) -> list[float] | None:
    """The numbers of a line; [] for a blank line or a comment, None for fewer than two fields and for texts."""
    if not line.strip() or _COMMENT.match(line):
        return []
    fields = line.split(delimiter) if delimiter is not None else line.split()
    if len(fields) < 2:
        return None
    found, real = [], False
    for field in fields:
        text = field.strip().strip('"').strip()
        if decimal == "," and "." not in text:
            text = text.replace(",", ".", 1)
        if _NUMBER.fullmatch(text):
            found.append(float(re.sub("[dD]", "e", text)))
            real = True
        elif text.lower() in GAPS:
            found.append(np.nan)
        else:
            return None
    return found if real else None


def _dialect(lines: list[str], name: str) -> tuple[str | None, str]:
    """The delimiter and the decimal separator with which most lines are numbers."""
    sample = [line for line in lines if re.search(r"\d", line) and not _COMMENT.match(line)]
    if not sample:
        raise ValueError(f"{name} has no line of numbers")
    # The start may be a long preamble, so some lines are from the middle.
    chosen = sample[:SAMPLE] + sample[len(sample) // 2 :][:SAMPLE]
    counts = [sum(bool(_row(line, *dialect)) for line in chosen) for dialect in DIALECTS]
    if max(counts) == 0:
        shown = " ".join(sample[0].split())[:60]
        raise ValueError(f"{name} has no line of two or more numbers; its first line with a digit is {shown!r}")
    return DIALECTS[counts.index(max(counts))]


def _longest_block(rows: list[list[float] | None]) -> tuple[int, int]:
    """The longest run of rows with the same number of columns: its first line and the one past its last."""
    best = (0, 0, 0)
    begin, length, columns = 0, 0, 0
    for place, row in enumerate(rows):
        if row == []:
            continue
        if row is None or len(row) != columns:
            begin, length, columns = place, 0, len(row or [])
        if row is not None:
            length += 1
            best = max(best, (length, -begin, place + 1))
    return -best[1], best[2]


def _check_rest(lines: list[str], rows: list[list[float] | None], end: int, name: str) -> list[str]:
    """Notes on what is below the numbers. Raises ValueError if there are further numbers."""
    rest = [place for place in range(end, len(rows)) if rows[place] != []]
    if not rest:
        return []
    shown = " ".join(lines[rest[0]].split())[:60]
    if len(rest) == 1:  # a file that was cut off, or a remark
        return [f"line {rest[0] + 1} is not part of the table: {shown!r}"]
    if any(rows[place] for place in rest):
        raise ValueError(f"{name}, line {rest[0] + 1}: the table is interrupted by {shown!r}")
    return [f"{len(rest)} lines below the table, from {shown!r} on, are not part of it"]


def _headings(lines: list[str], delimiter: str | None, columns: int, name: str) -> tuple[list[str], list[str]]:
    """Headings and units from the lines above the numbers; empty texts if no line has a text for each column."""
    texts = [fields for fields in (_texts(line, delimiter) for line in lines) if fields]
    none = [""] * columns
    if not texts or len(texts[-1]) != columns:
        if texts and len(texts[-1]) == 2 < columns and delimiter == ",":
            raise ValueError(
                f"{name}: the lines have {columns} numbers, the headings are {' and '.join(map(repr, texts[-1]))}; is the "
                "comma both delimiter and decimal separator?"
            )
        return none, none
    if len(texts) > 1 and len(texts[-2]) == columns and all(unit_in(text) is not None for text in texts[-1]):
        return texts[-2], texts[-1]
    return texts[-1], none


def _texts(line: str, delimiter: str | None) -> list[str]:
    """The fields of a line above the numbers, without the mark of a comment; [] for a blank line."""
    text = _COMMENT.sub("", line, count=1).strip() if _COMMENT.match(line) else line.strip(" \r")
    if not text:
        return []
    if delimiter is None:  # a unit in brackets belongs to the word before it
        text = re.sub(r"\s+(?=[(\[])", "\0", text)
        parts = re.split(r"[ \t]*(?:\t|  +)[ \t]*", text)
        parts = parts if len(parts) > 1 else text.split()
        return [part.replace("\0", " ") for part in parts]
    return [field.strip().strip('"').strip() for field in text.split(delimiter)]
