"""Measurements that constants are fitted to: what the caller gives, checked before anything runs."""

from __future__ import annotations

import math
import re
from collections import Counter
from collections.abc import Iterable, Iterator, Mapping
from decimal import Decimal
from typing import Any, NamedTuple

import pandas as pd

from .._base.arguments import check_number
from .._observe.curve import Curve
from .._recipe.recipe import Recipe
from .._runs.agreement import checked_curves
from .._sweep.row import END_VALUES, LAYER_VALUES

COLUMNS = ("recipe", "quantity", "value", "sigma")
Record = tuple[Any, Any, Any, Any]  # recipe, quantity, value, standard deviation or None


class MeasuredCurve(NamedTuple):
    """A curve that constants are fitted to."""

    recipe: str
    name: str
    curve: Curve
    sigma: float | None  # standard deviation of a point, in the unit of deviations; None: estimated by the fit


def without_curves(measurements: Any, recipes: Mapping[str, Recipe]) -> tuple[Any, list[MeasuredCurve]]:
    """The measurements that are not curves, in the form in which they are given, and the curves.

    Raises ValueError or TypeError.
    """
    names = list(recipes)
    if _is_curves(measurements):
        if len(names) > 1:
            raise ValueError(f"for several recipes, give measurements by recipe: {{{names[0]!r}: {{...}}, ...}}")
        measurements = {names[0]: measurements}
    if not isinstance(measurements, Mapping):
        return measurements, []
    values = list(measurements.values())
    by_recipe = all(isinstance(value, Mapping) or _is_curves(value) for value in values) and all(
        _recipe_name(name, recipes) in recipes for name, value in measurements.items() if not isinstance(value, Mapping)
    )
    if not by_recipe:
        if len(names) > 1 or any(isinstance(value, Mapping) for value in values):
            return measurements, []  # which measurement_table() rejects
        kept, curves = _split(names[0], measurements)
        return kept, curves
    others, found = {}, []
    for name, given in measurements.items():
        recipe = _recipe_name(name, recipes)
        kept, curves = _split(recipe, given if isinstance(given, Mapping) else _by_name(given))
        others[name] = kept
        found += curves
    return others, found


def _is_curve(value: object) -> bool:
    """A curve, or a pair of a curve and a standard deviation."""
    if isinstance(value, (tuple, list)) and len(value) == 2:
        return isinstance(value[0], Curve) and not isinstance(value[1], Curve)
    return isinstance(value, Curve)


def _is_curves(value: object) -> bool:
    """A curve, or a list of curves with or without standard deviations."""
    return _is_curve(value) or (isinstance(value, (tuple, list)) and len(value) > 0 and all(map(_is_curve, value)))


def _by_name(given: Any) -> dict[str, Any]:
    """Curves by their names, with a number after a name that is used already."""
    named: dict[str, Any] = {}
    for one in [given] if _is_curve(given) else given:
        curve = one if isinstance(one, Curve) else one[0]
        name = start = curve.name or curve.kind
        while name in named:
            name = f"{start} {len(named) + 1}"
        named[name] = one
    return named


def _split(recipe: str, given: Mapping[str, Any]) -> tuple[dict[str, Any], list[MeasuredCurve]]:
    kept, curves = {}, []
    for name, value in given.items():
        if not _is_curve(value):
            kept[name] = value
            continue
        curve, sigma = value if isinstance(value, (tuple, list)) else (value, None)
        if sigma is not None:
            check_number(sigma, f"{name} of {recipe}: the standard deviation must be a positive number", 0.0)
        elif curve.kind == "emission":
            raise ValueError(f"{name} of {recipe}: give the spectrum with the standard deviation of its peak, nm: (curve, 2.0)")
        checked_curves(curve)
        curves.append(MeasuredCurve(recipe, str(name), curve, None if sigma is None else float(sigma)))
    return kept, curves


def measurement_table(
    measurements: Mapping[str, Any] | pd.DataFrame, recipes: Mapping[str, Recipe], curves: Iterable[MeasuredCurve] = ()
) -> pd.DataFrame:
    """Columns recipe, quantity, measured, sigma (NaN where none is given). Raises ValueError or TypeError.

    curves  those that were given with the measurements
    """
    measured = {curve.recipe for curve in curves}
    if isinstance(measurements, pd.DataFrame):
        records = list(_records_of_frame(measurements, list(recipes)))
    elif isinstance(measurements, Mapping):
        records = list(_records_of_mapping(measurements, list(recipes)))
    else:
        kind = type(measurements).__name__
        raise TypeError(f"measurements must be a mapping of quantities to values or a data frame, got {kind}")
    records = [(_recipe_name(record[0], recipes), *record[1:]) for record in records]
    _check_names(records, recipes, measured)
    for record in records:
        _check_numbers(*record)
    table = pd.DataFrame(records, columns=["recipe", "quantity", "measured", "sigma"])
    table = table.astype({"measured": float, "sigma": float})
    given = table.sigma.notna()
    if given.any() and not given.all():
        raise ValueError("give a standard deviation for all measurements or for none")
    if measured and not given.all():
        raise ValueError("with curves, all other measurements need standard deviations")
    if not given.any() and (table.measured == 0).any():
        raise ValueError("a measured 0 needs a standard deviation: without one, deviations are relative")
    return table


def _records_of_frame(frame: pd.DataFrame, names: list[str]) -> Iterator[Record]:
    columns = list(frame.columns)
    unknown = [column for column in columns if column not in COLUMNS or columns.count(column) > 1]
    missing = [column for column in ("quantity", "value") if column not in columns]
    if "recipe" not in columns and len(names) > 1:
        missing = ["recipe", *missing]
    if missing or unknown:
        reason = f"no column {missing[0]}" if missing else f"the column {unknown[0]}, unknown or twice"
        raise ValueError(f"the measurements have {reason}; the columns are {', '.join(COLUMNS)}")
    recipe = frame["recipe"] if "recipe" in columns else [names[0]] * len(frame)
    sigma = frame["sigma"] if "sigma" in columns else [None] * len(frame)
    yield from zip(recipe, frame["quantity"], frame["value"], sigma)


def _records_of_mapping(given: Mapping[str, Any], names: list[str]) -> Iterator[Record]:
    nested = [isinstance(value, Mapping) for value in given.values()]
    if any(nested) and not all(nested):
        raise ValueError("the measurements of some recipes are mappings of quantities to values, those of others are not")
    if not any(nested):
        if len(names) > 1:
            raise ValueError(f"for several recipes, give measurements by recipe: {{{names[0]!r}: {{...}}, ...}}")
        given = {names[0]: given}
    for name, quantities in given.items():
        for quantity, value in quantities.items():
            pair = value if isinstance(value, (tuple, list)) else (value, None)
            if len(pair) != 2:
                raise ValueError(f"{quantity} of {name}: expected a value and its standard deviation, got {value!r}")
            yield name, quantity, pair[0], pair[1]


def _recipe_name(given: object, recipes: Mapping[str, Recipe]) -> str:
    """The name of the recipe that is meant: the same text, or the only one with the same number.

    pandas reads a column of numbers as integers or floats, and 0012 as 12. Raises ValueError if the name is missing or
    fits several recipes.
    """
    if pd.api.types.is_scalar(given) and pd.isna(given):
        raise ValueError("a measurement has no recipe: its place in the column recipe is empty")
    text = str(given)
    if isinstance(given, str) and text in recipes:
        return text
    number = _number_in(text)
    same = [name for name in recipes if number is not None and _number_in(name) == number]
    if len(same) > 1:
        names = ", ".join(map(repr, same))
        reason = f"which may mean the recipes {names}; give the name as a text"
        raise ValueError(f"measurements are given for {given!r}, {reason}")
    return same[0] if same else text


def _number_in(text: str) -> Decimal | None:
    """The number that a name consists of; None for other names."""
    return Decimal(text) if re.fullmatch(r"[-+]?\d{1,30}(\.\d*)?", text.strip(), re.ASCII) else None


def _check_names(records: list[Record], recipes: Mapping[str, Recipe], measured: set[str]) -> None:
    names = list(recipes)
    for name in dict.fromkeys(record[0] for record in records):
        if name not in recipes:
            raise ValueError(f"measurements are given for {name}, which is not one of the recipes {', '.join(names)}")
    counts = {name: _layer_count(recipe) for name, recipe in recipes.items()}
    for name, quantity, *_ in records:
        _check_quantity(name, quantity, counts[name])
    for (name, quantity), count in Counter((record[0], record[1]) for record in records).items():
        if count > 1:
            raise ValueError(f"{quantity} of {name} is given {count} times; give the mean and its standard deviation")
    missing = [name for name in names if all(record[0] != name for record in records) and name not in measured]
    if missing and (records or measured):
        raise ValueError(f"no measurement is given for {missing[0]}")


def _layer_count(recipe: Recipe) -> int | None:
    """The number of layers of the result; None if it can't be known."""
    try:
        return len(recipe.timeline())
    except (KeyError, ValueError):
        return None


def _check_quantity(name: str, quantity: object, count: int | None) -> None:
    layer = re.fullmatch(rf"({'|'.join(LAYER_VALUES)})_([1-9]\d*)", quantity) if isinstance(quantity, str) else None
    if quantity in END_VALUES or (layer is not None and (count is None or int(layer[2]) <= count)):
        return
    known = ", ".join([*END_VALUES, *(f"{value}_N" for value in LAYER_VALUES)])
    layers = "" if count is None else f", with N from 1 to {count}"
    raise ValueError(f"unknown quantity {quantity} in {name}; known are {known}{layers}")


def _check_numbers(name: str, quantity: str, value: object, sigma: Any) -> None:
    check_number(value, f"{quantity} of {name}: a measurement must be a finite number")
    if sigma is not None and not (isinstance(sigma, float) and math.isnan(sigma)):
        check_number(sigma, f"{quantity} of {name}: the standard deviation must be a positive number", 0.0)
