"""One row of a sweep: its recipe, its run, its key results, and the status file that marks it as done."""

from __future__ import annotations

import functools
import json
import os
from pathlib import Path
from typing import Any

import numpy as np

from .._base.files import replace_file
from .._base.version import __version__
from .._recipe.recipe import Recipe
from .._recipe.scheme import scheme_of
from .._runs.run import Run, SimulationError
from .._runs.simulate import run
from .._runs.status import read_status
from .folder import remove_table
from .plan import RowFiles, row_files, row_recipe, sha256

FINISHED = ("ok", "failed")  # the run has a definite outcome: such a row is not run again
RECORDED = (*FINISHED, "timeout", "crashed")  # in a status file; rows that are "error" or "lost" are not
LAYER_VALUES = ("thickness", "x_in", "x_ga", "x_al")  # for each layer, as Run.layers has them
END_VALUES = ("z", "rho_td_t", "rho_td_z", "v_defects_t", "eps_xx_t")  # of the finished structure's surface
FILE_TEXTS = (  # of failures that are not the recipe's: such a row is run again
    "Unable to open file", "Failed to open file", "Error reading file", "the file ends before the run does",
)

Row = dict[str, Any]  # status, text, values, and result: whether there is a result file


def empty_row(status: str, text: str = "") -> Row:
    """A row without result."""
    return {"status": status, "text": text, "values": {}, "result": False}


def _number(value: float) -> float | None:
    return float(value) if np.isfinite(value) else None


def key_results(simulated: Run) -> dict[str, float | None]:
    """The result values of a row in the table of a sweep; None where a number is not finite."""
    end = simulated.end
    values = {name: _number(end[name]) for name in END_VALUES if name != "v_defects_t"}
    values["v_defects_t"] = _number(end["rho_vd0_t"] / 2.0)
    layers = simulated.layers
    for name in LAYER_VALUES:
        for number, value in zip(layers.index, layers[name]):
            values[f"{name}_{number}"] = _number(value)
    return values


def recorded_row(files: RowFiles, recipe: bytes) -> Row | None:
    """The row in its status file; None unless recipe, scheme, version and the hashes of all files match."""
    status = read_status(files.result)
    expected = {"recipe_sha256": sha256(recipe), "scheme": scheme_of(recipe), "version": __version__}
    if any(status.get(key) != value for key, value in expected.items()):
        return None
    row: Any = status.get("row")
    if status.get("row_sha256") != _hash_of_row(row) or _hash_of(files.recipe) != expected["recipe_sha256"]:
        return None
    kept = files.result if row["result"] else files.failed
    wanted = status.get("result_sha256")
    if row["result"] and (wanted is None or status.get("result") != 0):
        return None
    return dict(row) if wanted is None or wanted == _hash_of(kept) else None


def _hash_of_row(row: object) -> str:
    return sha256(json.dumps(row, sort_keys=True).encode())


def _hash_of(path: Path) -> str | None:
    try:
        return sha256(path.read_bytes())
    except OSError:
        return None


def add_row(path: Path, row: Row) -> None:
    """Adds the row and its hash to the status file of its run, which marks the row as done."""
    status = json.loads(path.read_text(encoding="utf-8"))
    status |= {"row": row, "row_sha256": _hash_of_row(row)}
    replace_file(path, (json.dumps(status, indent=1) + "\n").encode())


@functools.lru_cache(maxsize=4)
def _base_recipe(folder: str, recipe_sha256: str) -> Recipe:
    content = Path(folder, "recipe.xml").read_bytes()
    if sha256(content) != recipe_sha256:
        raise ValueError(f"{folder}/recipe.xml was changed by another program")
    return Recipe(content)


def do_row(task: dict[str, Any]) -> Row:
    """Runs one row of a sweep and returns its row of the table. Whatever fails, other rows can be run afterwards."""
    try:
        return _do_row(task)
    except Exception as error:  # no rights, a full disk, a folder that was removed
        return empty_row("error", f"{type(error).__name__}: {error}")


def start_row(task: dict[str, Any], folder: Path) -> tuple[bytes, Row | None]:
    """The recipe of a row, and the row if it is finished. Otherwise removes its old files and writes its recipe.

    folder  that of the task, or a relative path to it
    """
    files = row_files(folder, task["number"])
    content = row_recipe(_base_recipe(task["folder"], task["base_sha256"]), task["values"])
    if task["resume"]:
        done = recorded_row(files, content)
        if done is not None and done["status"] in FINISHED:
            return content, done
    remove_table(folder)
    for path in (files.status, files.result, files.failed):
        path.unlink(missing_ok=True)
    replace_file(files.recipe, content)
    return content, None


def _do_row(task: dict[str, Any]) -> Row:
    """Paths are relative to the folder of the sweep, so that failure texts do not depend on where it is."""
    os.chdir(task["folder"])
    files = row_files(Path(), task["number"])
    content, done = start_row(task, Path())
    if done is not None:
        return done
    try:
        simulated = run(Recipe(content, files.recipe), files.result, check=False)  # whatever becomes of the file
        row = empty_row("ok") | {"values": key_results(simulated), "result": True}
    except SimulationError as error:
        row = empty_row("failed", error.text)
        if any(text in error.text for text in FILE_TEXTS):
            return empty_row("error", error.text)
        if not files.status.exists():
            return empty_row("error", f"{error.text}\n{files.status} could not be written")
    add_row(files.status, row)
    return row
