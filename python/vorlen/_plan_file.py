"""Plans in files, for batch systems:

    {"recipe": "mqw.xml", "parameters": {"process_stages/stage_1/T": [1000, 1010, 1020]}, "mode": "grid",
     "scheme": "staged", "timeout": 60, "out": "temperatures"}

Paths in it are relative to the folder of the file. Instead of "parameters", "table" names a file of comma-separated
values with a column per parameter and a line per row. "scheme" is the integration scheme; by default it is the
recipe's. "recipe_sha256" is in the plans that sweeps keep in their folders: the recipe must have this hash.
"""

from __future__ import annotations

import csv
import json
import os
from collections.abc import Iterable, Mapping
from pathlib import Path
from typing import Any

import pandas as pd

from ._files import check_place, replace_file
from ._plan import Plan, PlanError, sha256
from ._plan_values import make_plan
from ._recipe import Recipe
from ._source import RecipeSource

PLAN_KEYS = ("recipe", "parameters", "table", "mode", "timeout", "out", "scheme", "recipe_sha256")


def write_plan(
    path: str | os.PathLike[str],
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    *,
    mode: str = "grid",
    scheme: str | None = None,
    timeout: float | None = None,
    out: str | os.PathLike[str] | None = None,
    overwrite: bool = False,
) -> Path:
    """Writes a plan for `vorlen sweep`, and its recipe as NAME.recipe.xml beside it. Returns path.

    out        folder for the sweep, relative to that of the plan; None: the plan's name without its suffix
    overwrite  True: replace a NAME.recipe.xml with other content. False: that is an error
    The other arguments are those of sweep().
    """
    path = Path(path)
    plan = make_plan(recipe, parameters, mode, timeout, scheme)
    folder = path.stem if out is None else os.fspath(out)
    if not folder:
        raise PlanError("out must be the path of a folder, got an empty text")
    check_place(path, [RecipeSource.of(recipe).path])
    copy = path.with_name(f"{path.stem}.recipe.xml")
    if not overwrite and copy.exists() and copy.read_bytes() != plan.recipe:
        raise PlanError(f"{copy} exists and is another recipe. Give the plan another name, or pass overwrite=True")
    if not copy.exists() or copy.read_bytes() != plan.recipe:
        replace_file(copy, plan.recipe)
    replace_file(path, plan_content(plan, copy.name, folder))
    return path


def plan_content(plan: Plan, recipe: str, out: str, **more: str) -> bytes:
    """A plan as the content of a file; recipe and out are paths relative to it."""
    content = {
        "recipe": recipe, "parameters": plan.parameters, "mode": plan.mode, "timeout": plan.timeout, "out": out,
    }
    return (json.dumps(content | more, indent=1) + "\n").encode()


def read_plan(path: str | os.PathLike[str]) -> tuple[Plan, Path]:
    """The plan in a file, and the folder of its sweep. Raises PlanError with the name of the file."""
    path = Path(path)
    try:
        return _read_plan(path)
    except json.JSONDecodeError as error:
        raise PlanError(f"{path}: not valid JSON: {error}") from error
    except (OSError, ValueError) as error:
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) and error.filename else error
        raise PlanError(f"{path}: {text}") from error


def _read_plan(path: Path) -> tuple[Plan, Path]:
    if not path.exists():
        raise PlanError("plan not found")
    content = json.loads(path.read_text(encoding="utf-8"), object_pairs_hook=_unique)
    if not isinstance(content, dict):
        raise PlanError(f"a plan must be a JSON object; its keys are {', '.join(PLAN_KEYS)}")
    unknown = sorted(set(content) - set(PLAN_KEYS))
    if unknown:
        raise PlanError(f"unknown key {unknown[0]!r}; the keys of a plan are {', '.join(PLAN_KEYS)}")
    if "recipe" not in content or ("parameters" in content) == ("table" in content):
        raise PlanError('a plan needs "recipe", and either "parameters" or "table"')
    for key in ("recipe", "table", "out", "recipe_sha256"):
        if key in content and not (isinstance(content[key], str) and content[key]):
            raise PlanError(f'"{key}" must be a text, got {content[key]!r}')
    recipe = path.parent / content["recipe"]
    mode = content.get("mode", "zip" if "table" in content else "grid")
    if "table" in content:
        if mode != "zip":
            raise PlanError(f'with "table", "mode" can only be "zip", got {mode!r}')
        parameters: Any = _read_table(path.parent / content["table"])
    else:
        parameters = content["parameters"]
        if not isinstance(parameters, dict) or not all(isinstance(values, list) for values in parameters.values()):
            raise PlanError('"parameters" must be an object with a list of values for each path: expected a list of '
                            f"values, got {parameters!r}")
    plan = make_plan(recipe, parameters, mode, content.get("timeout"), content.get("scheme"))
    if content.get("recipe_sha256", sha256(plan.recipe)) != sha256(plan.recipe):
        raise PlanError(f"{recipe} is not the recipe of this plan: its SHA-256 hash differs")
    return plan, path.parent / content.get("out", path.stem)


def _unique(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    content = dict(pairs)
    if len(content) < len(pairs):
        names = [name for name, _ in pairs]
        raise PlanError(f"the key {next(name for name in names if names.count(name) > 1)!r} is given twice")
    return content


def _read_table(path: Path) -> pd.DataFrame:
    """A file of comma-separated values, with all values as they are written."""
    if not path.exists():
        raise PlanError(f"table not found: {path}")
    with open(path, encoding="utf-8-sig", newline="") as file:
        try:
            lines = [line for line in csv.reader(file, strict=True) if line]
        except csv.Error as error:
            raise PlanError(f"{path}: {error}") from error
    if len(lines) < 2:
        raise PlanError(f"{path} must have a line with the paths and at least one line of values")
    for number, line in enumerate(lines[1:]):
        if len(line) != len(lines[0]):
            raise PlanError(f"{path}: row {number} has {len(line)} values, but there are {len(lines[0])} columns")
        if "" in line:
            raise PlanError(f"{path}: row {number} has no value for {lines[0][line.index('')]}")
    return pd.DataFrame(lines[1:], columns=[name.strip() for name in lines[0]], dtype=object)
