"""Plans in files, for batch systems:

    {"recipe": "mqw.xml", "parameters": {"process_stages/stage_1/T": [1000, 1010, 1020]}, "mode": "grid",
     "scheme": "staged", "timeout": 60, "out": "temperatures"}

Paths in it are relative to the folder of the file. Instead of "parameters", "table" names a file of comma-separated
values with a column per parameter and a line per row. "scheme" is the integration scheme; by default it is the
recipe's. "recipe_sha256" is in the plans that sweeps keep in their folders: the recipe must have this hash.
"""

from __future__ import annotations

import csv
import io
import json
from collections.abc import Iterable, Mapping
from pathlib import Path
from typing import Any

import pandas as pd

from .._base.arguments import check_flags
from .._base.files import as_path, check_place, read_file, replace_file
from .._base.types import PathLike
from .._recipe.source import RecipeLike
from .plan import Plan, PlanError, sha256
from .plan_values import given_recipe, make_plan

PLAN_KEYS = ("recipe", "parameters", "table", "mode", "timeout", "out", "scheme", "recipe_sha256")


def write_plan(
    path: PathLike,
    recipe: RecipeLike,
    parameters: Mapping[str, Iterable[Any]] | pd.DataFrame,
    *,
    mode: str = "grid",
    scheme: str | None = None,
    timeout: float | None = None,
    out: PathLike | None = None,
    overwrite: bool = False,
) -> Path:
    """Writes a plan for `vorlen sweep`, and its recipe as NAME.recipe.xml beside it.

    Parameters
    ----------
    path : path
        File to write, usually NAME.json. One that exists is replaced.
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    parameters : mapping of str to list, or pandas.DataFrame
        As for sweep().
    mode : str, optional
        "grid" or "zip", as for sweep().
    scheme : str, optional
        Integration scheme of all rows, "continuous" or "staged"; None: that of the recipe.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    out : path, optional
        Folder for the sweep, relative to that of the plan; None: the plan's name without its suffix.
    overwrite : bool, optional
        True: replace a NAME.recipe.xml with other content. False: that is an error.

    Returns
    -------
    pathlib.Path
        The path of the plan.

    Raises
    ------
    TypeError
        If an argument has a wrong type.
    ValueError
        If timeout or scheme has a wrong value, or a file would overwrite the recipe or is not a regular file.
    PlanError
        If the sweep is impossible, or NAME.recipe.xml has other content and overwrite is False.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    OSError
        If the recipe can't be read or a file can't be written.
    """
    path = as_path(path, "path")
    folder = path.stem if out is None else str(as_path(out, "out"))
    check_flags(overwrite=overwrite)
    base = given_recipe(recipe, scheme)
    plan = make_plan(base, parameters, mode, timeout)
    check_place(path, [base.path])
    copy = path.with_name(f"{path.stem}.recipe.xml")
    check_place(copy)
    present = read_file(copy) if copy.exists() else None
    if present != plan.recipe:
        check_place(copy, [base.path])
        if present is not None and not overwrite:
            raise PlanError(f"{copy} exists and is another recipe. Give the plan another name, or pass overwrite=True")
        replace_file(copy, plan.recipe)
    replace_file(path, plan_content(plan, copy.name, folder))
    return path


def plan_content(plan: Plan, recipe: str, out: str, **more: str) -> bytes:
    """A plan as the content of a file; recipe and out are paths relative to it."""
    content = {
        "recipe": recipe, "parameters": plan.parameters, "mode": plan.mode, "timeout": plan.timeout, "out": out,
    }
    return (json.dumps(content | more, indent=1) + "\n").encode()


def read_plan(path: PathLike) -> tuple[Plan, Path]:
    """The plan in a file, and the folder of its sweep. Raises PlanError with the name of the file."""
    path = as_path(path, "path")
    if not path.exists():
        raise PlanError(f"{path}: plan not found")
    content = read_file(path)
    try:
        return _plan_of(json.loads(content.decode("utf-8"), object_pairs_hook=_unique), path)
    except (json.JSONDecodeError, UnicodeDecodeError, RecursionError) as error:
        raise PlanError(f"{path} is not valid JSON: {error}") from error
    except (OSError, TypeError, ValueError) as error:
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) and error.filename else str(error)
        raise PlanError(f"{path}: {text}") from error


def _plan_of(content: Any, path: Path) -> tuple[Plan, Path]:
    """The plan that the file at path holds as JSON, and the folder of its sweep."""
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
        parameters: Any = read_table(path.parent / content["table"])
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


def read_table(path: Path) -> pd.DataFrame:
    """A file of comma-separated values, with all values as they are written."""
    try:
        text = read_file(path).decode("utf-8-sig")
        lines = [line for line in csv.reader(io.StringIO(text, newline=""), strict=True) if line]
    except (UnicodeDecodeError, csv.Error) as error:
        raise PlanError(f"{path}: {error}") from error
    if len(lines) < 2:
        raise PlanError(f"{path} must have a line with the paths and at least one line of values")
    names = [name.strip() for name in lines[0]]
    if len(set(names)) < len(names):
        raise PlanError(f"{path}: the column {max(names, key=names.count)} is given twice")
    for number, line in enumerate(lines[1:]):
        if len(line) != len(names):
            raise PlanError(f"{path}: row {number} has {len(line)} values, but there are {len(names)} columns")
        if "" in line:
            raise PlanError(f"{path}: the value of {names[line.index('')]} in row {number} is empty")
    return pd.DataFrame(lines[1:], columns=names, dtype=object)
