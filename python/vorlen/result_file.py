"""Reader of result files; docs/result-format.md describes the format.

The reader is strict: any deviation from the format is an error with the line number. Values may be infinite or NaN. The
file of a failed run is valid; it has fewer rows.
"""

from __future__ import annotations

import re
import warnings

import numpy as np
import pandas as pd

TITLE = b'"VORLEN output file, version 2.0"'
LAYERS_BEGIN = b"<LAYERS>"
LAYERS_END = b"</LAYERS>"
HEADING = (
    b"#time(sec) z(nm) Vg xIn xGa xAl rho_TD(t) rho_VD0(t) a_eff(t) eps_xx(t) eps_yy(t) eps_zz(t) eps_yz(t) "
    b"rho_TD(z) a_eff(z) eps_xx(z) eps_yy(z) eps_zz(z) eps_yz(z)"
)

# name, unit, meaning of the columns in file order. (t): when this depth was the surface; (z): in the finished structure.
COLUMNS = (
    ("time", "s", "time of the process"),
    ("z", "nm", "height above the bottom of the first pre-stage"),
    ("rate", "nm/s", "growth rate (um/h, as the recipe gives it, in rows of pre-stages and post-stages)"),
    ("x_in", "1", "indium in the solid, of all metal"),
    ("x_ga", "1", "gallium in the solid, of all metal"),
    ("x_al", "1", "aluminium in the solid, of all metal"),
    ("rho_td_t", "cm^-2", "density of threading dislocations, when this depth was the surface"),
    ("rho_vd0_t", "cm^-2", "two times the density of V-defects, when this depth was the surface"),
    ("a_eff_t", "angstrom", "in-plane lattice constant, when this depth was the surface"),
    ("eps_xx_t", "1", "in-plane strain, positive when stretched, when this depth was the surface"),
    ("eps_yy_t", "1", "in-plane strain across, when this depth was the surface"),
    ("eps_zz_t", "1", "strain along the growth direction, when this depth was the surface"),
    ("eps_yz_t", "1", "shear strain, when this depth was the surface"),
    ("rho_td_z", "cm^-2", "density of threading dislocations, in the finished structure"),
    ("a_eff_z", "angstrom", "in-plane lattice constant, in the finished structure"),
    ("eps_xx_z", "1", "in-plane strain, positive when stretched, in the finished structure"),
    ("eps_yy_z", "1", "in-plane strain across, in the finished structure"),
    ("eps_zz_z", "1", "strain along the growth direction, in the finished structure"),
    ("eps_yz_z", "1", "shear strain, in the finished structure"),
)
COLUMN_NAMES = tuple(name for name, _, _ in COLUMNS)
COLUMN_COUNT = len(COLUMNS)

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


def _parse_layers(content: bytes, name: str) -> tuple[list[tuple[str, float, float]], int, int]:
    """The layers, the offset of the rows and the number of their first line."""
    if not content.startswith(TITLE + b"\n"):
        raise ResultFileError(f"{name} is not a result file: its first line is not {TITLE.decode()}")
    head = TITLE + b"\n" + LAYERS_BEGIN + b"\n"
    if not content.startswith(head):
        raise ResultFileError(f"{name}, line 2: expected {LAYERS_BEGIN.decode()}")
    # A name may contain lines that look like part of the format; rows contain only numbers.
    tail = b"\n" + LAYERS_END + b"\n" + HEADING + b"\n"
    end = content.rfind(tail, len(head) - 1)
    if end < 0:
        lines = content.split(b"\n")[:-1]  # the last one is empty or truncated
        if LAYERS_END in lines:
            raise ResultFileError(f"{name}, line {lines.index(LAYERS_END) + 2}: expected {HEADING.decode()}")
        raise ResultFileError(f"{name}, line {len(lines)}: the list of layers is not closed")
    rows = end + len(tail)
    return _split_layers(content[len(head) : end + 1], name), rows, content.count(b"\n", 0, rows) + 1


def _first_fault(body: bytes, first_line: int) -> tuple[int, str]:
    """Line number and fault of the first line of body that is not a row."""
    for number, line in enumerate(body.split(b"\n")[:-1], first_line):
        words = line.removesuffix(b" ").split(b" ")
        if len(words) != COLUMN_COUNT or not all(_NUMBER.fullmatch(word) for word in words):
            return number, "not a row of 19 numbers"
    raise AssertionError("the fast reader rejected rows that the slow one accepts")


def _parse_rows(body: bytes, name: str, first_line: int) -> tuple[np.ndarray, np.ndarray]:
    """The numbers, one row per line, and which of the rows are active."""
    codes = np.frombuffer(body, np.uint8)
    separators = np.flatnonzero((codes == ord(" ")) | (codes == ord("\n")))
    is_line_end = codes[separators] == ord("\n")
    line_ends = np.flatnonzero(is_line_end)  # as indices into separators
    count = len(line_ends)
    if body and body[-1:] != b"\n":
        raise ResultFileError(f"{name}, line {first_line + count}: the last line is truncated")
    if count == 0:
        return np.empty((0, COLUMN_COUNT)), np.empty(0, bool)
    # 19 numbers separated by one blank, with a trailing blank in an active row
    length_before = np.diff(separators, prepend=-1) - 1
    blanks = np.diff(line_ends, prepend=-1) - 1
    active = (blanks > 0) & (length_before[line_ends] == 0)
    well_formed = (
        not body.translate(None, _BYTES_OF_ROWS)
        and bool(np.all(blanks == COLUMN_COUNT - 1 + active))
        and int(np.count_nonzero(length_before)) == count * COLUMN_COUNT
    )
    values = None
    if well_formed:
        with warnings.catch_warnings():
            warnings.simplefilter("error", DeprecationWarning)  # numpy's report of text that is not a number
            try:
                values = np.fromstring(body, sep=" ")
            except (DeprecationWarning, ValueError):
                pass
    if values is None or values.size != count * COLUMN_COUNT:
        line, text = _first_fault(body, first_line)
        raise ResultFileError(f"{name}, line {line}: {text}")
    return values.reshape(count, COLUMN_COUNT), active


def parse_layers(content: bytes, name: str = "result") -> pd.DataFrame:
    """The layers: name, duration [s] and thickness [nm], numbered from 1. name is used in error texts."""
    layers, _, _ = _parse_layers(content, name)
    table = pd.DataFrame(layers, columns=["name", "duration", "thickness"], index=range(1, len(layers) + 1))
    table.index.name = "layer"
    return table


def parse_profile(content: bytes, name: str = "result") -> pd.DataFrame:
    """The rows: the columns of COLUMNS, and active, which is true for rows of simulated stages."""
    _, begin, first_line = _parse_layers(content, name)
    values, active = _parse_rows(content[begin:], name, first_line)
    profile = pd.DataFrame(values, columns=list(COLUMN_NAMES))
    profile["active"] = active
    profile.attrs["units"] = {column: unit for column, unit, _ in COLUMNS}
    profile.attrs["meanings"] = {column: meaning for column, _, meaning in COLUMNS}
    return profile


def has_rows(content: bytes) -> bool:
    """True if the head is complete and rows follow."""
    try:
        _, begin, _ = _parse_layers(content, "result")
    except ResultFileError:
        return False
    return len(content) > begin


def bytes_of_rows(content: bytes) -> bytes:
    """The part of the file after the heading."""
    return content[_parse_layers(content, "result")[1] :]


def reaches_the_end(content: bytes, name: str = "result") -> bool:
    """True if the table ends with a complete row at the end time of the last layer."""
    layers, begin, _ = _parse_layers(content, name)
    lines = content[begin:].rsplit(b"\n", 2)
    if len(lines) < 2 or lines[-1] or not lines[-2]:
        return False
    first, last = _number(content[begin:].split(b" ", 1)[0]), _number(lines[-2].split(b" ", 1)[0])
    if first is None or last is None:
        return False
    gap = abs(last - first - sum(duration for _, duration, _ in layers))
    return not gap > TIME_TOLERANCE * abs(last)  # NaN passes
