"""The plan of a sweep: a recipe, the values to vary, and the resulting numbered rows with their files."""

from __future__ import annotations

import hashlib
import itertools
from collections.abc import Mapping
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

from .._base.arguments import check_timeout
from .._recipe.recipe import Recipe
from .._recipe.scheme import with_scheme
from .._recipe.values import with_values
from .._runs.status import failed_path

MODES = ("grid", "zip")
ROWS_FOLDER = "rows"
MAX_ROWS = 1_000_000


class PlanError(ValueError):
    """The plan of a sweep is invalid; the text says what to change. Nothing was run."""


@dataclass(frozen=True)
class Plan:
    """Everything that determines the rows of a sweep."""

    recipe: bytes  # XML of the base recipe
    parameters: dict[str, list[Any]]  # path in the recipe: its values
    mode: str = "grid"  # grid: every combination, the last parameter varies fastest; zip: the n-th values together
    timeout: float | None = None  # s for one row, None: no limit

    def __post_init__(self) -> None:
        if self.mode not in MODES:
            raise PlanError(f'mode must be "grid" or "zip", got {self.mode!r}')
        check_timeout(self.timeout)
        if self.timeout is not None and not isinstance(self.timeout, int):
            object.__setattr__(self, "timeout", float(self.timeout))  # such as numpy's, which JSON doesn't know

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

    @property
    def failed(self) -> Path:
        """The rows up to a failure."""
        return failed_path(self.result)


def row_files(folder: Path, number: int) -> RowFiles:
    """The files of row number, counted from 0. folder may be relative."""
    stem = f"{number:06d}"
    rows = folder / ROWS_FOLDER
    return RowFiles(rows / f"{stem}.xml", rows / f"{stem}.result.txt", rows / f"{stem}.status.json")


def row_recipe(base: Recipe, values: Mapping[str, Any]) -> bytes:
    """XML of a row's recipe: the base with the row's values."""
    return with_values(base._document, values).content


def sha256(content: bytes) -> str:
    return hashlib.sha256(content).hexdigest()
