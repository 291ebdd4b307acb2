"""Sensitivity of the results to one parameter at a time, and tornado plots.

    table = vorlen.sensitivity("mqw.xml", ["chemistry/Kd_In/A", "process_stages/stage_1/T"])
    vorlen.tornado(table, "x_in_2")
"""

from __future__ import annotations

import os
import tempfile
from collections.abc import Iterable, Mapping
from concurrent.futures import Executor
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from ._scheme import check_scheme
from ._recipe import Recipe
from ._run import SimulationError
from ._source import RecipeSource
from ._sweep import sweep

if TYPE_CHECKING:
    from matplotlib.figure import Figure

COLUMNS = ("parameter", "quantity", "value", "change", "base", "below", "above", "derivative", "elasticity", "text")


def _moved(value: Any, change: float) -> Any:
    """value + change; both ends of a ramp are shifted."""
    return tuple(end + change for end in value) if isinstance(value, tuple) else value + change


def _changes(recipe: Recipe, parameters: Iterable[str] | Mapping[str, float], step: float) -> dict[str, float]:
    changes = {}
    for path in parameters:
        if path not in recipe:
            raise ValueError(f"the recipe has no {path}")
        ends = recipe[path] if isinstance(recipe[path], tuple) else (recipe[path],)
        if isinstance(ends[0], (str, dict)):
            raise ValueError(f"{path} is {ends[0]!r}; only numbers can be varied")
        change = float(parameters[path]) if isinstance(parameters, Mapping) else step * float(np.mean(ends))
        if change == 0.0 or not np.isfinite(change):
            raise ValueError(f"{path}: can't change by {change:g}; state the change, as in {{path: change}}")
        changes[path] = abs(change)
    if not changes:
        raise ValueError("give at least one parameter")
    return changes


def sensitivity(
    recipe: str | os.PathLike[str] | Recipe,
    parameters: Iterable[str] | Mapping[str, float],
    step: float = 0.01,
    workers: int | None = None,
    executor: Executor | None = None,
    out: str | os.PathLike[str] | None = None,
    progress: bool = False,
    timeout: float | None = None,
    scheme: str | None = None,
) -> pd.DataFrame:
    """Varies one parameter at a time, up and down, and computes central differences of all key results.

    recipe      a path, a Recipe, or the XML itself
    parameters  paths, each varied by step times its value; or a mapping of paths to changes in the parameter's unit.
                Both ends of a ramp are shifted together
    out         folder for the files of the runs; None: the files are deleted
    workers, executor, progress, timeout, scheme  as for sweep()

    Returns one row per parameter and quantity (the key results of sweep()):
      value, change         of the parameter; for a ramp, value is the mean of its ends
      base, below, above    the quantity with the parameter unchanged, decreased and increased by change
      derivative            (above - below) / (2 change), in units of the quantity per unit of the parameter
      elasticity            per cent change of the quantity per per cent change of the parameter
      text                  why a run failed; the differences are NaN then
    Raises SimulationError if the unchanged recipe fails.
    """
    check_scheme(scheme)
    source = RecipeSource.of(recipe)
    if source.content is None:
        raise FileNotFoundError(f"recipe not found: {recipe}")
    base_recipe = Recipe(source.content, source.path)
    changes = _changes(base_recipe, list(parameters) if not isinstance(parameters, Mapping) else parameters, step)
    present = {path: base_recipe[path] for path in changes}
    rows = [present]
    for path, change in changes.items():
        rows += [present | {path: _moved(present[path], sign * change)} for sign in (-1.0, 1.0)]
    with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
        runs = sweep(
            base_recipe, pd.DataFrame(rows), workers=workers, executor=executor, out=Path(out or folder),
            progress=progress, timeout=timeout, scheme=scheme,
        )
    if runs.status[0] != "ok":
        raise SimulationError(runs.text[0], recipe)
    records = []
    for number, (path, change) in enumerate(changes.items()):
        below, above = runs.loc[2 * number + 1], runs.loc[2 * number + 2]
        text = next((row.text for row in (below, above) if row.status != "ok"), "")
        value = float(np.mean(present[path]))
        for quantity in runs.attrs["units"]:
            base = runs.loc[0, quantity]
            derivative = (above[quantity] - below[quantity]) / (2.0 * change)
            elasticity = derivative * value / base if base != 0.0 else np.nan
            records.append(
                (path, quantity, value, change, base, below[quantity], above[quantity], derivative, elasticity, text)
            )
    table = pd.DataFrame(records, columns=list(COLUMNS))
    table.attrs["units"] = runs.attrs["units"]
    return table


def tornado(
    table: pd.DataFrame, quantity: str, most: int = 12, path: str | os.PathLike[str] | None = None
) -> Figure:
    """A tornado plot: the effect of each parameter on a quantity, the strongest on top.

    table     the table returned by sensitivity()
    quantity  one of its quantities, such as x_in_2
    most      number of parameters shown
    path      file to save the figure to; None: it is not saved
    """
    import matplotlib.pyplot as plt

    from ._plot import BLACK, GALLIUM, INDIUM, STYLE

    rows = table[table.quantity == quantity]
    if rows.empty:
        raise ValueError(f"unknown quantity {quantity}; the table has {', '.join(dict.fromkeys(table.quantity))}")
    rows = rows.assign(width=(rows.above - rows.below).abs()).dropna(subset="width")
    rows = rows.sort_values("width", kind="stable").tail(most)
    if rows.empty:
        raise ValueError(f"every parameter has a failed run: {table.text[table.text != ''].iloc[0]}")
    base = rows.base.iloc[0]
    unit = table.attrs.get("units", {}).get(quantity, "1")
    with plt.rc_context(STYLE):
        figure, axes = plt.subplots(figsize=(6.3, 0.9 + 0.32 * len(rows)), constrained_layout=True)
        places = np.arange(len(rows))
        axes.barh(places, rows.below - base, left=base, height=0.6, color=GALLIUM, label="parameter lowered")
        axes.barh(places, rows.above - base, left=base, height=0.6, color=INDIUM, label="parameter raised")
        axes.axvline(base, color=BLACK, linewidth=0.7)
        axes.set_yticks(places, [f"{row.parameter}\n± {row.change:.4g}" for row in rows.itertuples()])
        axes.set_xlabel(quantity + ("" if unit == "1" else f" ({unit})"))
        axes.legend(loc="lower right")
        if path is not None:
            figure.savefig(path)
    return figure
