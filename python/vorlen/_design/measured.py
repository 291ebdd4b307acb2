"""Sweeps of which only the values of targets are needed: run, read and measured row by row."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np

from .._base.types import Array
from .._recipe.recipe import Recipe
from .._runs.result_file import ResultFileError
from .._sweep.plan_values import known_parameter
from .._sweep.sweep import sweep
from .quantities import Target, measure

DECIDED = ("ok", "failed", "crashed", "timeout")  # statuses that say something about the recipe


@dataclass(frozen=True)
class Measured:
    """Values of all targets in all runs: runs x targets, NaN without a result; status and text of each run."""

    values: Array
    statuses: list[str]
    texts: list[str]


def measured(
    base: Recipe, parameters: Mapping[str, Sequence[Any]], mode: str, targets: Sequence[Target], **options: Any
) -> Measured:
    """Runs a sweep, with its options, and measures the targets in each row."""
    made = sweep(base, parameters, mode=mode, **options)
    kinds = [known_parameter(path)[0] for path in parameters]
    grows = any(known is not None and known.kind == "integer" for known in kinds)  # the number of layers changes
    paths = list(base.timeline().path)
    table = made.table
    values = np.full((len(table), len(targets)), np.nan)
    statuses, texts = list(table.status), list(table.text)
    for number, status in enumerate(statuses):
        if status != "ok":
            continue
        try:
            run = made.runs[number]
            own = run._recipe if grows else None
            places = paths if own is None else list(own.timeline().path)
            values[number] = [measure(run, places, target)[0] for target in targets]
        except ResultFileError as error:
            statuses[number], texts[number] = "error", str(error)
    return Measured(values, statuses, texts)
