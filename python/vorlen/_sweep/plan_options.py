"""The plan of a sweep from options of the command line: vorlen sweep RECIPE --set PATH=VALUES --set PATH=VALUES

VALUES lists values and ranges, separated by commas. A range is START:END:STEP, END included. Its values are computed
with decimal numbers, so 0.1:0.3:0.1 ends with 0.3. A unit after the last value or step is that of all: 750:760:5 degC.
"""

from __future__ import annotations

import decimal
import re
from collections.abc import Sequence
from decimal import Decimal
from pathlib import Path

from .._base.files import read_file
from .._recipe.elements import Element
from .._recipe.kinds import text_of, unit_of
from .._recipe.quantities import has_unit, number_in
from .plan import MAX_ROWS, Plan, PlanError
from .plan_file import read_table
from .plan_values import NUMERIC, known_parameter, make_plan, takes_unit

_NUMBER_AND_UNIT = re.compile(r"\s*([-+.\d]+(?:[eE][-+]?\d+)?)\s*(.*?)\s*", re.ASCII | re.DOTALL)
DIGITS = 40  # of decimal numbers: more than a recipe states
RANGE_FORM = "a range is START:END:STEP"

Setting = tuple[str, str]  # a path and the text of its values


def split_setting(text: str) -> Setting:
    """The path and the values in PATH=VALUES. Raises ValueError."""
    path, equals, values = (part.strip() for part in text.partition("="))
    if not path or not equals or not values:
        raise ValueError(f"expected PATH=VALUES, such as process_stages/stage_1/T=1000:1050:5, got {text!r}")
    return path, values


def plan_of_options(recipe: Path, settings: Sequence[Setting], table: Path | None, mode: str | None) -> Plan:
    """The plan for a recipe and either settings or a table of comma-separated values.

    mode  of settings, "grid" or "zip"; None: "grid"
    Raises PlanError for faults of the values, otherwise as make_plan.
    """
    if looks_like_plan(recipe):
        raise PlanError(f"{recipe} is a plan and states its own values; --set and --table need a recipe")
    if table is not None:
        return make_plan(recipe, read_table(table))
    lists: dict[str, list[str]] = {}
    for path, values in settings:
        if path in lists:
            raise PlanError(f"{path} is set twice; list all its values in one --set")
        lists[path] = _values(path, values)
    return make_plan(recipe, lists, mode or "grid")


def looks_like_plan(path: Path) -> bool:
    """True for a file with a JSON object. Raises the OSError of reading it."""
    return read_file(path).removeprefix(b"\xef\xbb\xbf").lstrip().startswith(b"{")


def looks_like_recipe(path: Path) -> bool:
    """True for a file with XML; False also for a file that can't be read."""
    try:
        return read_file(path).removeprefix(b"\xef\xbb\xbf").lstrip().startswith(b"<")
    except (OSError, ValueError):
        return False


def _values(path: str, text: str) -> list[str]:
    """The values as texts, with ranges expanded. Elements that are not numbers have no ranges."""
    known, attribute = known_parameter(path)
    parts = [part.strip() for part in text.split(",")]
    if "" in parts:
        raise PlanError(f"{path}: a value is missing in {text!r}")
    if known is None or known.kind not in NUMERIC:
        return parts
    unit = ""
    if takes_unit(known, attribute):
        parts, unit = _without_unit(path, parts, text)
    values: list[str] = []
    for part in parts:
        values += _range(path, part, known) if ":" in part else [_number(path, part, known)]
        if len(values) > MAX_ROWS:
            raise PlanError(f"{path}: too many values in {text!r}; a sweep has at most {MAX_ROWS} rows")
    if not unit:
        return values
    try:
        return [repr(number_in(f"{value} {unit}", path, unit_of(known, attribute))) for value in values]
    except ValueError as error:
        raise PlanError(str(error)) from None


def _without_unit(path: str, parts: list[str], text: str) -> tuple[list[str], str]:
    """The values and ranges without their unit, and the unit: that of the last value, which is that of all."""
    found = [_NUMBER_AND_UNIT.fullmatch(number) for part in parts for number in part.split(":")]
    units = [match[2] for match in found if match is not None and has_unit(match[0])]
    if not units:
        return parts, ""
    last = found[-1]
    if last is None or last[2] != units[0] or len(units) > 1:
        raise PlanError(f"{path}: one unit follows the last value and is that of all, as in 750:760:5 degC, got {text!r}")
    parts[-1] = parts[-1].removesuffix(units[0]).rstrip()
    return parts, units[0]


def _number(path: str, text: str, known: Element) -> str:
    try:
        return text_of(text, path, known)
    except ValueError as error:
        hint = "; the start and the end of a ramp are set by PATH/val and PATH/end" if ".." in text else ""
        raise PlanError(f"{error}{hint}") from None


def _range(path: str, text: str, known: Element) -> list[str]:
    ends = text.split(":")
    if len(ends) != 3:
        raise PlanError(f"{path}: {RANGE_FORM}, got {text!r}")
    with decimal.localcontext(decimal.Context(prec=DIGITS)):
        start, end, step = (Decimal(_number(path, part.strip(), known)) for part in ends)
        if step == 0 or float(step) == 0.0:
            raise PlanError(f"{path}: the step in {text!r} is 0; {RANGE_FORM}")
        steps = (end - start) / step
        if steps < 0:
            raise PlanError(f"{path}: the step in {text!r} leads away from the end; {RANGE_FORM}")
        if steps >= MAX_ROWS:
            raise PlanError(f"{path}: too many values in {text!r}; a sweep has at most {MAX_ROWS} rows")
        return [str(start + number * step) for number in range(int(steps) + 1)]
