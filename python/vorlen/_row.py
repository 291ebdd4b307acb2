"""One row of a sweep: its recipe, its run, its key results, and the status file that marks it as done."""

from __future__ import annotations

import functools
import json
import os
from pathlib import Path
from typing import Any

import numpy as np

from ._plan import row_files, row_recipe, sha256
from ._scheme import scheme_of
from ._version import __version__
from ._files import replace_file
from ._recipe import Recipe
from ._run import Run, SimulationError
from ._simulate import run
from ._status import read_status

FINISHED = ("ok", "failed")  # the run has a definite outcome: such a row is not run again
LAYER_VALUES = ("thickness", "x_in", "x_ga", "x_al")  # for each layer, as Run.layers has them
END_VALUES = ("z", "rho_td_t", "rho_td_z", "v_defects_t", "eps_xx_t")  # of the finished structure's surface


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


def row_of_status(status: dict[str, Any], recipe: bytes) -> dict[str, Any] | None:
    """The row in a status file if recipe, scheme and version match; otherwise None."""
    if status.get("recipe_sha256") != sha256(recipe) or status.get("version") != __version__:
        return None
    if status.get("scheme") != scheme_of(recipe):
        return None
    return status.get("row")


def add_row(path: Path, row: dict[str, Any]) -> None:
    """Adds the row to the status file of its run, which marks the row as done."""
    status = json.loads(path.read_text(encoding="utf-8"))
    status["row"] = row
    replace_file(path, (json.dumps(status, indent=1) + "\n").encode())


@functools.lru_cache(maxsize=4)
def _base_recipe(folder: str, recipe_sha256: str) -> Recipe:
    content = Path(folder, "recipe.xml").read_bytes()
    if sha256(content) != recipe_sha256:
        raise ValueError(f"{folder}/recipe.xml was changed by another program")
    return Recipe(content)


def do_row(task: dict[str, Any]) -> dict[str, Any]:
    """Runs one row of a sweep and returns its row of the table: status, text, values.

    Paths are relative to the folder of the sweep, so that failure texts do not depend on where it is.
    """
    os.chdir(task["folder"])
    files = row_files(Path(), task["number"])
    content = row_recipe(_base_recipe(task["folder"], task["base_sha256"]), task["values"])
    if task["resume"]:
        done = row_of_status(read_status(files.result), content)
        if done is not None and done["status"] in FINISHED and done["result"] == files.result.exists():
            return done
    files.status.unlink(missing_ok=True)
    files.result.unlink(missing_ok=True)
    row: dict[str, Any] = {"status": "ok", "text": "", "values": {}}
    replace_file(files.recipe, content)
    try:
        row["values"] = key_results(run(files.recipe, files.result))
    except SimulationError as error:
        row.update(status="failed", text=error.text)
    except (OSError, ValueError) as error:
        row.update(status="error", text=f"{type(error).__name__}: {error}")
    row["result"] = files.result.exists()
    if files.status.exists():
        add_row(files.status, row)
    return row
