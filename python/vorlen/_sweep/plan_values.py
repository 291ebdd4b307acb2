"""Makes the plan of a sweep from what the caller gives. Every fault is reported here, before anything runs.

A value must fit the kind of its element: whole numbers for integers, numbers or their texts for other numbers, which
may have a unit: "757 degC" is stored as 1030.15. In a table (a data frame or CSV file) the columns PATH_begin and
PATH_end are the start and the end of a ramp.
"""

from __future__ import annotations

import itertools
import math
import numbers
from collections.abc import Iterable, Mapping, Sequence, Set
from typing import Any

import pandas as pd

from .._recipe.document import Place, split_path
from .._recipe.elements import Element
from .._recipe.kinds import known_element, text_of, unit_of
from .._recipe.quantities import has_unit, number_in
from .._recipe.recipe import Recipe, place_in
from .._recipe.scheme import check_scheme
from .._recipe.source import RecipeLike, RecipeSource
from .plan import MAX_ROWS, Plan, PlanError

BEGIN, END = "_begin", "_end"  # of the names of the columns of a ramp
NUMERIC = ("integer", "real", "range", "arrhenius")  # kinds of elements


def given_recipe(recipe: RecipeLike, scheme: str | None) -> Recipe:
    """The recipe with this integration scheme; None: its own.

    Raises OSError if its file can't be read, RecipeError if it is not a recipe, TypeError for other types.
    """
    check_scheme(scheme)
    source = RecipeSource.of(recipe).under(scheme)
    return Recipe(source.content or b"", source.path)


def make_plan(
    recipe: RecipeLike,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    mode: str = "grid",
    timeout: float | None = None,
    scheme: str | None = None,
) -> Plan:
    """A plan that has been checked against the recipe.

    scheme  integration scheme set in the plan's recipe and so in every row; None: the recipe's
    Raises PlanError for faults of parameters and values, otherwise as given_recipe.
    """
    base = given_recipe(recipe, scheme)
    if isinstance(parameters, pd.DataFrame):
        names = list(parameters.columns)
        lists = table_columns(names, [parameters.iloc[:, place].tolist() for place in range(len(names))], base)
        mode = "zip"
    elif isinstance(parameters, Mapping):
        lists = {path: _value_list(path, values) for path, values in parameters.items()}
    else:
        kind = type(parameters).__name__
        raise TypeError(f"parameters must be a mapping of paths to lists of values, or a data frame, got {kind}")
    if not lists or not all(lists.values()):
        raise PlanError("a sweep needs at least one parameter, and at least one value for each")
    count = math.prod(map(len, lists.values())) if mode == "grid" else max(map(len, lists.values()))
    if count > MAX_ROWS:
        raise PlanError(f"a sweep has at most {MAX_ROWS} rows, this one would have {count}")
    plain = {
        path: [_plain_value(value, path, *known_parameter(path)) for value in values] for path, values in lists.items()
    }
    if mode == "zip" and len({len(values) for values in plain.values()}) > 1:
        counts = ", ".join(f"{path}: {len(values)}" for path, values in plain.items())
        raise PlanError(f'with mode "zip" all parameters must have the same number of values, got {counts}')
    plan = Plan(base.to_bytes(), plain, mode, timeout)
    places: dict[str, Place] = {}
    for path, values in plain.items():
        place = _try_values(base, path, values)
        for other in places:
            if place.path == places[other].path and place.attributes >= places[other].attributes:
                raise PlanError(f"{path} sets the same value as {other}, which comes before it")
        places[path] = place
    return plan


def _value_list(path: object, values: Any) -> list[Any]:
    if not isinstance(path, str):
        raise PlanError(f"a path must be a text, got {path!r}")
    if isinstance(values, (str, bytes, Mapping, Set)) or not isinstance(values, Iterable):  # a set has no order
        raise PlanError(f"{path}: expected a list of values, got {values!r}")
    return list(values)


def table_columns(names: Sequence[Any], columns: Sequence[list[Any]], recipe: Recipe) -> dict[str, list[Any]]:
    """The values of each path in a table. A pair of columns PATH_begin and PATH_end becomes a column of pairs."""
    table: dict[str, list[Any]] = {}
    for number, (name, column) in enumerate(zip(names, columns)):
        if not isinstance(name, str) or not name.strip():
            raise PlanError(f"column {number} (counted from 0) must have a path as its name, not {name!r}")
        if name in table:
            raise PlanError(f"the column {name} is given twice")
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
        else:
            for ending in (BEGIN, END):
                if path + ending not in table:
                    raise PlanError(f"the column {name} needs a column {path}{ending}")
            if name.endswith(END):
                continue
            values = [[begin, end] for begin, end in zip(column, table[path + END])]
        if path in lists:
            raise PlanError(f"the columns {path} and {path}{BEGIN} mean the same parameter")
        lists[path] = values
    return lists


def known_parameter(path: str) -> tuple[Element | None, str]:
    """The known element that a path means, None if there is none, and the attribute; "" for the value as a whole."""
    parts = split_path(path)
    known = known_element("/".join(parts))
    if known is None and parts:
        above, attribute = known_element("/".join(parts[:-1])), parts[-1].lstrip("@")
        if above is not None and attribute in above.attributes:
            return above, attribute
    return known, ""


def takes_unit(known: Element | None, attribute: str) -> bool:
    """True for an element, or its attribute, whose values are numbers that may have a unit."""
    return known is not None and (known.kind in ("real", "range") or (known.kind == "arrhenius" and attribute != ""))


def _plain_value(value: Any, path: str, known: Element | None, attribute: str) -> Any:
    """A value as JSON stores it, so that a plan means the same in memory and in a file."""
    if getattr(value, "ndim", None) == 1:  # an array
        value = list(value)
    if not isinstance(value, (list, tuple)):
        return _plain_scalar(value, path, known, attribute)
    if len(value) != 2:
        raise PlanError(f"{path}: a list must be a pair, start and end of a ramp, got {value!r}")
    pair = [_plain_scalar(part, path, known, attribute) for part in value]
    if any(isinstance(part, str) for part in pair):
        raise PlanError(f"{path}: start and end of a ramp must be numbers, got {value!r}")
    return pair


def _plain_scalar(value: Any, path: str, known: Element | None, attribute: str) -> str | int | float:
    try:
        if known is not None and takes_unit(known, attribute) and has_unit(value):
            value = number_in(value, path, unit_of(known, attribute))
        text = text_of(value, path, known)
    except (TypeError, ValueError) as error:
        raise PlanError(str(error)) from None
    if isinstance(value, str):
        if known is None or known.kind not in NUMERIC:
            return str(value)
        return int(text) if text.strip().lstrip("+-").isdecimal() else float(text)
    whole = isinstance(value, numbers.Integral) or (known is not None and known.kind == "integer")
    return int(value) if whole else float(value)


def _try_values(base: Recipe, path: str, values: list[Any]) -> Place:
    """Sets each text, and one number and one pair, in a copy of the recipe. Returns what the path means there.

    Recipe accepts all numbers that text_of accepts, or none. A table may have 100 000 of them, and each attempt takes
    half a millisecond.
    """
    trial = base.copy()
    attempts = {value if isinstance(value, str) else isinstance(value, list): value for value in values}
    for value in attempts.values():
        try:
            trial[path] = tuple(value) if isinstance(value, list) else value
        except KeyError as error:
            raise PlanError(error.args[0]) from None
        except (ValueError, TypeError) as error:
            raise PlanError(f"{path} can't be set to {value!r}: {error.args[0]}") from None
    return place_in(trial, path)
