"""The plan of a sweep: a recipe, the values to vary, and the resulting numbered rows.

A plan can be saved to a file, for batch systems:

    {"recipe": "mqw.xml", "parameters": {"process_stages/stage_1/T": [1000, 1010, 1020]}, "mode": "grid",
     "scheme": "staged", "timeout": 60, "out": "temperatures"}

Paths in it are relative to the folder of the file. Instead of "parameters", "table" names a file of comma-separated
values with a column per parameter and a line per row. "scheme" is the integration scheme; by default it is the
recipe's.
"""

from __future__ import annotations

import hashlib
import itertools
import json
import math
import os
from collections.abc import Iterable, Mapping
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

import pandas as pd

from ._scheme import STAGED, check_scheme, with_scheme
from ._files import replace_file
from ._recipe import Recipe
from ._source import RecipeSource

MODES = ("grid", "zip")
PLAN_KEYS = ("recipe", "parameters", "table", "mode", "timeout", "out", "scheme")
ROWS_FOLDER = "rows"


class PlanError(ValueError):
    """The plan of a sweep is invalid; the text says what to change."""


@dataclass(frozen=True)
class Plan:
    """Everything that determines the rows of a sweep."""

    recipe: bytes  # XML of the base recipe
    parameters: dict[str, list[Any]]  # path in the recipe: its values
    mode: str = "grid"  # grid: every combination, the last parameter varies fastest; zip: the n-th values together
    timeout: float | None = None  # s for one row, None: no limit

    def rows(self) -> list[dict[str, Any]]:
        """The values of each row. A ramp is a list of two numbers, [start, end]."""
        combine = itertools.product if self.mode == "grid" else zip
        return [dict(zip(self.parameters, values)) for values in combine(*self.parameters.values())]

    def under(self, scheme: str | None) -> Plan:
        """The plan with this integration scheme in its recipe; None: unchanged."""
        return self if scheme is None else replace(self, recipe=with_scheme(self.recipe, scheme))


def make_task(plan: Plan, folder: Path, number: int, values: dict[str, Any], resume: bool) -> dict[str, Any]:
    """The task of one row for a worker process, ready for JSON."""
    return {
        "folder": str(folder.resolve()), "number": number, "values": values, "base_sha256": sha256(plan.recipe),
        "timeout": plan.timeout, "resume": resume,
    }


@dataclass(frozen=True)
class RowFiles:
    """Paths of the files of one row, in the folder of the sweep."""

    recipe: Path
    result: Path
    status: Path


def row_files(folder: Path, number: int) -> RowFiles:
    """The files of row number, counted from 0. folder may be relative."""
    stem = f"{number:06d}"
    rows = folder / ROWS_FOLDER
    return RowFiles(rows / f"{stem}.xml", rows / f"{stem}.result.txt", rows / f"{stem}.status.json")


def row_recipe(base: Recipe, values: Mapping[str, Any]) -> bytes:
    """XML of a row's recipe: the base with the row's values."""
    recipe = base.copy()
    for path, value in values.items():
        recipe[path] = tuple(value) if isinstance(value, list) else value
    return recipe.to_bytes()


def sha256(content: bytes) -> str:
    return hashlib.sha256(content).hexdigest()


def recipe_bytes(recipe: str | os.PathLike[str] | Recipe) -> bytes:
    """XML of a recipe given as a path, a Recipe or the XML itself."""
    content = RecipeSource.of(recipe).content
    if content is None:
        raise FileNotFoundError(f"recipe not found: {recipe}")
    return content


def _plain_value(value: Any, path: str) -> Any:
    """A value as JSON stores it, so that a plan means the same in memory and in a file."""
    if hasattr(value, "item") and not isinstance(value, (str, bytes)):
        value = value.item() if getattr(value, "ndim", 0) == 0 else list(value)
    if isinstance(value, str) and value.startswith("["):
        value = json.loads(value)  # a pair in a column of a table
    if isinstance(value, (list, tuple)):
        if len(value) != 2:
            raise PlanError(f"{path}: a list must be a pair, start and end of a ramp, got {value!r}")
        return [_plain_value(part, path) for part in value]
    if isinstance(value, (int, float)) and not math.isfinite(value):
        raise PlanError(f"{path}: {value} is not finite, so it can't be a value in a recipe")
    if not isinstance(value, (int, float, str)):
        raise PlanError(f"{path}: a value must be a number, a text or a pair of numbers, got {value!r}")
    return value


def make_plan(
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    mode: str = "grid",
    timeout: float | None = None,
    scheme: str | None = None,
) -> Plan:
    """A plan that has been checked against the recipe: unknown paths are reported now, not in each row.

    scheme  integration scheme set in the plan's recipe and so in every row; None: the recipe's
    """
    check_scheme(scheme)
    if mode not in MODES:
        raise PlanError(f'mode must be "grid" or "zip", got {mode!r}')
    if timeout is not None and not timeout > 0:
        raise PlanError(f"timeout must be a positive number of seconds or None, got {timeout!r}")
    if isinstance(parameters, pd.DataFrame):
        parameters, mode = {str(name): parameters[name].tolist() for name in parameters.columns}, "zip"
    lists: dict[str, list[Any]] = {}
    for path, values in parameters.items():
        if isinstance(values, (str, bytes)) or not isinstance(values, Iterable):
            raise PlanError(f"{path}: expected a list of values, got {values!r}")
        lists[path] = [_plain_value(value, path) for value in values]
    if not lists or not all(lists.values()):
        raise PlanError("a sweep needs at least one parameter, and at least one value for each")
    if mode == "zip" and len({len(values) for values in lists.values()}) > 1:
        counts = ", ".join(f"{path}: {len(values)}" for path, values in lists.items())
        raise PlanError(f'with mode "zip" all parameters must have the same number of values, got {counts}')
    plan = Plan(recipe_bytes(recipe), lists, mode, timeout).under(scheme)
    trial = Recipe(plan.recipe)
    for path, values in lists.items():
        one_of_each_kind = {type(value): value for value in reversed(values)}
        for value in one_of_each_kind.values():
            try:
                trial[path] = tuple(value) if isinstance(value, list) else value
            except (KeyError, ValueError, TypeError) as error:
                reason = error.args[0] if error.args else error
                raise PlanError(f"{path} can't be set to {value!r}: {reason}") from error
    return plan


def write_plan(
    path: str | os.PathLike[str],
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    mode: str = "grid",
    timeout: float | None = None,
    out: str | os.PathLike[str] | None = None,
    scheme: str | None = None,
) -> Path:
    """Writes a plan for `vorlen sweep`, and its recipe as NAME.recipe.xml beside it. Arguments as for sweep()."""
    path = Path(path)
    plan = make_plan(recipe, parameters, mode, timeout, scheme)
    copy = path.with_name(f"{path.stem}.recipe.xml")
    replace_file(copy, plan.recipe)
    _write_plan_file(path, plan, copy.name, path.stem if out is None else os.fspath(out))
    return path


def _write_plan_file(path: Path, plan: Plan, recipe: str, out: str) -> None:
    content = {
        "recipe": recipe, "parameters": plan.parameters, "mode": plan.mode, "timeout": plan.timeout, "out": out,
    }
    replace_file(path, (json.dumps(content, indent=1) + "\n").encode())


def read_plan(path: str | os.PathLike[str]) -> tuple[Plan, Path]:
    """The plan in a file, and the folder of its sweep."""
    path = Path(path)
    try:
        content = json.loads(path.read_text(encoding="utf-8"))
    except ValueError as error:
        raise PlanError(f"{path} is not valid JSON: {error}") from error
    if not isinstance(content, dict):
        raise PlanError(f"{path}: a plan must be a JSON object; its keys are {', '.join(PLAN_KEYS)}")
    unknown = sorted(set(content) - set(PLAN_KEYS))
    if unknown:
        raise PlanError(f"{path}: unknown key {unknown[0]!r}; the keys of a plan are {', '.join(PLAN_KEYS)}")
    if not isinstance(content.get("recipe"), str) or ("parameters" in content) == ("table" in content):
        raise PlanError(f'{path}: a plan needs "recipe", and either "parameters" or "table"')
    if "table" in content:
        parameters = pd.read_csv(path.parent / content["table"], float_precision="round_trip")
    else:
        parameters = content["parameters"]
        if not isinstance(parameters, dict):
            raise PlanError(f'{path}: "parameters" must be an object with a list of values for each path')
    plan = make_plan(
        path.parent / content["recipe"], parameters, content.get("mode", "grid"), content.get("timeout"),
        content.get("scheme"),
    )
    return plan, path.parent / content.get("out", path.stem)


def prepare_folder(plan: Plan, folder: Path, resume: bool) -> None:
    """Creates the folder of a sweep, with its plan and recipe.

    Raises PlanError if the folder holds a different sweep and resume is True. Rows may be added after the old ones, and
    the scheme may change: then all rows are run again.
    """
    plan_path, recipe_path = folder / "plan.json", folder / "recipe.xml"
    if resume and plan_path.exists() and recipe_path.exists():
        old = read_plan(plan_path)[0]
        old_rows = old.rows()
        if old.under(STAGED).recipe != plan.under(STAGED).recipe or plan.rows()[: len(old_rows)] != old_rows:
            raise PlanError(
                f"{folder} holds a sweep with a different recipe or different rows. Choose another folder, or pass "
                f"resume=False to replace it"
            )
    (folder / ROWS_FOLDER).mkdir(parents=True, exist_ok=True)
    replace_file(recipe_path, plan.recipe)
    _write_plan_file(plan_path, plan, recipe_path.name, ".")
