"""Makes the plan of a sweep from what the caller gives. Every fault is reported here, before anything runs.

A value must fit the kind of its element: whole numbers for integers, numbers or their texts for other numbers. In a
table (a data frame or CSV file) the columns PATH_begin and PATH_end are the start and the end of a ramp.
"""

from __future__ import annotations

import itertools
import math
import numbers
import os
import re
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import Any

import pandas as pd

from ._parameter import Parameter, parameter_of
from ._plan import Plan, PlanError
from ._recipe import Recipe
from ._scheme import check_scheme
from ._source import RecipeSource

BEGIN, END = "_begin", "_end"  # of the names of the columns of a ramp
_NUMBER = re.compile(r"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?")
_INTEGER = re.compile(r"[-+]?\d+")


def make_plan(
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    mode: str = "grid",
    timeout: float | None = None,
    scheme: str | None = None,
) -> Plan:
    """A plan that has been checked against the recipe.

    scheme  integration scheme set in the plan's recipe and so in every row; None: the recipe's
    Raises PlanError; OSError if the recipe can't be read; RecipeError if it is not a recipe.
    """
    try:
        check_scheme(scheme)
    except ValueError as error:
        raise PlanError(str(error)) from None
    base = _base_recipe(recipe)
    if isinstance(parameters, pd.DataFrame):
        names = list(parameters.columns)
        lists = table_columns(names, [parameters.iloc[:, place].tolist() for place in range(len(names))], base)
        mode = "zip"
    elif isinstance(parameters, Mapping):
        lists = {path: _value_list(path, values) for path, values in parameters.items()}
    else:
        raise PlanError(f"expected a mapping of paths to lists of values, or a data frame, got {parameters!r}")
    if not lists or not all(lists.values()):
        raise PlanError("a sweep needs at least one parameter, and at least one value for each")
    known = _check_paths(lists)
    plain = {path: [_plain_value(value, path, known[path]) for value in values] for path, values in lists.items()}
    if mode == "zip" and len({len(values) for values in plain.values()}) > 1:
        counts = ", ".join(f"{path}: {len(values)}" for path, values in plain.items())
        raise PlanError(f'with mode "zip" all parameters must have the same number of values, got {counts}')
    plan = Plan(base.to_bytes(), plain, mode, timeout).under(scheme)
    for path, values in plain.items():
        _try_values(base, path, values, known[path])
    return plan


def _base_recipe(recipe: str | os.PathLike[str] | Recipe) -> Recipe:
    try:
        source = RecipeSource.of(recipe)
        content = Path(source.path or "").read_bytes() if source.content is None else source.content
    except FileNotFoundError:
        raise FileNotFoundError(f"recipe not found: {recipe}") from None
    return Recipe(content, source.path)


def _value_list(path: object, values: Any) -> list[Any]:
    if not isinstance(path, str):
        raise PlanError(f"a path must be a text, got {path!r}")
    if isinstance(values, (str, bytes, Mapping)) or not isinstance(values, Iterable):
        raise PlanError(f"{path}: expected a list of values, got {values!r}")
    return list(values)


def table_columns(names: Sequence[Any], columns: Sequence[list[Any]], recipe: Recipe) -> dict[str, list[Any]]:
    """The values of each path in a table. A pair of columns PATH_begin and PATH_end becomes a column of pairs."""
    table: dict[str, list[Any]] = {}
    for number, (name, column) in enumerate(zip(names, columns)):
        if not isinstance(name, str) or not name.strip():
            raise PlanError(f"column {number} (counted from 0) must have a path as its name, not {name!r}")
        if name in table:
            raise PlanError(f"two columns have the name {name}")
        table[name] = column
    ramps = {
        name.removesuffix(ending)
        for name, ending in itertools.product(table, (BEGIN, END))
        if name.endswith(ending) and name not in recipe
    }
    lists: dict[str, list[Any]] = {}
    for name, column in table.items():
        path = next((name.removesuffix(end) for end in (BEGIN, END) if name.removesuffix(end) in ramps), None)
        if path is None or name in recipe:
            path, values = name, column
        elif name.endswith(BEGIN):
            if path + END not in table:
                raise PlanError(f"the column {name} needs a column {path}{END}")
            values = [[begin, end] for begin, end in zip(column, table[path + END])]
        else:
            if path + BEGIN not in table:
                raise PlanError(f"the column {name} needs a column {path}{BEGIN}")
            continue
        if path in lists:
            raise PlanError(f"the columns {path} and {path}{BEGIN} mean the same parameter")
        lists[path] = values
    return lists


def _check_paths(paths: Iterable[str]) -> dict[str, Parameter]:
    known: dict[str, Parameter] = {}
    places: dict[str, list[str]] = {}
    for path in paths:
        known[path] = parameter_of(path)
        for other in places.setdefault(known[path].element, []):
            if known[path].replaces(known[other]):
                raise PlanError(f"{path} would replace the value of {other}")
        places[known[path].element].append(path)
    return known


def _plain_value(value: Any, path: str, known: Parameter) -> Any:
    """A value as JSON stores it, so that a plan means the same in memory and in a file."""
    if getattr(value, "ndim", None) == 1:  # an array
        value = list(value)
    if isinstance(value, (list, tuple)):
        if len(value) != 2:
            raise PlanError(f"{path}: a list must be a pair, start and end of a ramp, got {value!r}")
        return [_plain_number(part, path, known) for part in value]
    return _plain_number(value, path, known) if known.numeric or not isinstance(value, str) else str(value)


def _plain_number(value: Any, path: str, known: Parameter) -> int | float:
    if isinstance(value, str):
        text = value.strip()
        if not _NUMBER.fullmatch(text):
            raise PlanError(f"{path}: {value!r} is not a number")
        value = int(text) if _INTEGER.fullmatch(text) else float(text)
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise PlanError(f"{path}: a value must be a number, a text or a pair of numbers, got {value!r}")
    try:
        number = float(value)
    except OverflowError:
        number = math.inf
    if not math.isfinite(number):
        raise PlanError(f"{path}: {value} is not finite, so it can't be a value in a recipe")
    whole = isinstance(value, numbers.Integral)
    if known.integer and not whole and not number.is_integer():
        raise PlanError(f"{path} must be an integer, got {value!r}")
    return int(value) if whole or known.integer else number


def _try_values(base: Recipe, path: str, values: list[Any], known: Parameter) -> None:
    """Sets every value in a copy of the recipe.

    Of the finite numbers for an element of real numbers one stands for all, because Recipe accepts all or none. A table
    may have 100 000 of them, and each attempt takes half a millisecond.
    """
    trial = base.copy()
    attempts: dict[object, Any] = {}
    for value in values:
        if isinstance(value, str) or known.integer:
            attempts.setdefault((type(value), str(value)), value)
        else:
            attempts.setdefault(type(value) is list, value)
    for value in attempts.values():
        try:
            trial[path] = tuple(value) if isinstance(value, list) else value
        except (KeyError, ValueError, TypeError) as error:
            reason = error.args[0] if error.args else error
            raise PlanError(f"{path} can't be set to {value!r}: {reason}") from error
