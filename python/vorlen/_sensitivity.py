"""Sensitivity of the results to one parameter at a time.

    table = vorlen.sensitivity("mqw.xml", ["chemistry/Kd_In/A", "process_stages/stage_1/T"])
    vorlen.tornado(table, "x_in_2")
"""

from __future__ import annotations

import os
import re
from collections.abc import Iterable, Mapping
from concurrent.futures import Executor
from dataclasses import dataclass
from typing import Any

import numpy as np
import pandas as pd

from ._measurements import is_number
from ._plan_values import make_plan
from ._recipe import Recipe, place_in
from ._row import Row, empty_row
from ._run import SimulationError
from ._run_rows import run_rows
from ._runner import given_executor, given_recipe, working_folder
from ._scheme import check_scheme
from ._source import RecipeLike
from ._sweep_folder import locked_folder
from ._table import UNITS

COLUMNS = ("parameter", "quantity", "value", "change", "base", "below", "above", "derivative", "elasticity", "text")
OTHER_LAYERS = "the number of layers changes, so their values are not comparable"


@dataclass(frozen=True)
class Variation:
    """A parameter that is varied, and how."""

    path: str
    present: Any  # its value: a number, or a pair for a ramp
    change: float  # in its unit

    @property
    def value(self) -> float:
        """For a ramp, the mean of its ends."""
        return float(np.mean(self.present))

    def moved(self, sign: int) -> Any:
        """The value after the change; both ends of a ramp are shifted."""
        if isinstance(self.present, tuple):
            return tuple(end + sign * self.change for end in self.present)
        return self.present + sign * self.change


def sensitivity(
    recipe: RecipeLike,
    parameters: Iterable[str] | Mapping[str, float],
    *,
    step: float = 0.01,
    scheme: str | None = None,
    timeout: float | None = None,
    out: str | os.PathLike[str] | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
) -> pd.DataFrame:
    """Varies one parameter at a time, up and down, and computes central differences of all key results.

    recipe      a path, a Recipe, or the XML itself
    parameters  paths, each varied by step times its value; or a mapping of paths to changes in the parameter's unit.
                Both ends of a ramp are shifted together. Integers are varied by integers, at least by 1
    out         folder for the files of the runs; None: the files are deleted. An executor needs it
    scheme, timeout, workers, executor, progress  as for sweep()

    Returns one row per parameter and quantity (the key results of sweep()); attrs["units"] has those of the quantities:
      value, change         of the parameter; for a ramp, value is the mean of its ends
      base, below, above    the quantity with the parameter unchanged, decreased and increased by change
      derivative            (above - below) / (2 change), in units of the quantity per unit of the parameter
      elasticity            per cent change of the quantity per per cent change of the parameter; NaN if either is 0
      text                  why there is no difference: the failure of a run, or, for a parameter that changes the number
                            of layers, that layers with the same number are not the same
    Raises TypeError or ValueError, before anything runs, for parameters that can't be varied; SimulationError if the
    unchanged recipe fails.
    """
    check_scheme(scheme)
    executor = given_executor(workers, executor, out)
    base = given_recipe(recipe, scheme)
    variations = _variations(base, parameters, step)
    present = {one.path: one.present for one in variations}
    points = [present, *(present | {one.path: one.moved(sign)} for one in variations for sign in (-1, 1))]
    lists = {path: [point[path] for point in points] for path in present}
    plan = make_plan(base, lists, mode="zip", timeout=timeout)
    numbers = range(len(points))
    rows = [empty_row("missing") for _ in numbers]
    with working_folder(out) as folder, locked_folder(plan, folder, numbers, whole=True, resume=True):
        run_rows(plan, folder, numbers, rows, workers=workers, executor=executor, progress=progress)
    centre, *sides = rows
    if centre["status"] != "ok":
        raise SimulationError(centre["text"], recipe)
    records = [
        record
        for one, below, above in zip(variations, sides[::2], sides[1::2])
        for record in _records(one, centre, below, above)
    ]
    table = pd.DataFrame(records, columns=list(COLUMNS))
    table.attrs["recipe"] = None if base.path is None else str(base.path)
    table.attrs["units"] = {name: UNITS[re.sub(r"_\d+$", "", name)] for name in centre["values"]}
    return table


def _variations(recipe: Recipe, parameters: Any, step: object) -> list[Variation]:
    if isinstance(parameters, (str, bytes)) or not isinstance(parameters, Iterable):
        raise TypeError(f"parameters must be a list of paths, or a mapping of paths to changes, got {parameters!r}")
    if not is_number(step) or not step > 0:  # type: ignore[operator]
        raise ValueError(f"step must be a positive number, got {step!r}")
    changes = parameters if isinstance(parameters, Mapping) else None
    found: list[Variation] = []
    for path in parameters:
        if path not in recipe:
            raise ValueError(f"the recipe has no {path}")
        for other in found:
            if place_in(recipe, path).overlaps(place_in(recipe, other.path)):
                raise ValueError(f"{other.path} and {path} mean the same value; vary them in separate calls")
        found.append(_variation(recipe, path, None if changes is None else changes[path], step))
    if not found:
        raise ValueError("give at least one parameter")
    return found


def _variation(recipe: Recipe, path: str, given: Any, step: Any) -> Variation:
    present = recipe[path]
    ends = present if isinstance(present, tuple) else (present,)
    if not all(map(is_number, ends)):
        raise ValueError(f"{path} is {present!r}; only numbers can be varied")
    whole = place_in(recipe, path).kind == "integer"
    change = given
    if given is None:
        change = float(step * abs(np.mean(ends)))
        change = max(1, round(change)) if whole else change
    if not is_number(change):
        raise ValueError(f"{path}: a change must be a finite number, got {change!r}")
    if whole:
        if change != int(change):
            raise ValueError(f"{path} takes integers, so it can't change by {change:g}")
        change = int(change)
    one = Variation(path, present, change)
    if change < 0 or one.moved(1) == present:
        raise ValueError(f"{path}: can't change by {change:g}; state the change, as in {{path: change}}, above 0")
    return one


def _records(one: Variation, centre: Row, below: Row, above: Row) -> list[tuple[Any, ...]]:
    """The rows of the table for one parameter."""
    failures = [f"{way}: {row['text']}" for way, row in (("below", below), ("above", above)) if row["status"] != "ok"]
    finished = [row["values"] for row in (below, above) if row["status"] == "ok"]
    same_layers = all(values.keys() == centre["values"].keys() for values in finished)
    records: list[tuple[Any, ...]] = []
    for quantity in centre["values"]:
        comparable = same_layers or re.search(r"_\d+$", quantity) is None
        base, low, high = (_number(row["values"].get(quantity)) for row in (centre, below, above))
        if not comparable:
            low = high = np.nan
        derivative = (high - low) / (2.0 * one.change)
        elasticity = derivative * one.value / base if base != 0.0 and one.value != 0.0 else np.nan
        text = "; ".join(failures) or ("" if comparable else OTHER_LAYERS)
        records.append((one.path, quantity, one.value, one.change, base, low, high, derivative, elasticity, text))
    return records


def _number(value: float | None) -> float:
    return np.nan if value is None else value
