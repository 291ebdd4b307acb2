"""Sensitivity of the results to one parameter at a time, and its picture, a tornado plot.

    table = vorlen.sensitivity("mqw.xml", ["chemistry/Kd_In/A", "process_stages/stage_1/T"])
    vorlen.tornado(table, "x_in_2")
"""

from __future__ import annotations

import re
from collections.abc import Iterable, Mapping
from concurrent.futures import Executor
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.arguments import check_flags, check_number, given_executor, is_number
from .._base.figures import BLACK, GALLIUM, INDIUM, STYLE, check_figure, save_figure
from .._base.types import PathLike
from .._recipe.check import warn_about
from .._recipe.recipe import Recipe, place_in
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .folder import locked_folder
from .plan_values import given_recipe, make_plan
from .row import Row, empty_row
from .run_rows import run_rows, working_folder
from .table import UNITS

if TYPE_CHECKING:
    from matplotlib.figure import Figure

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
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
    check: bool = True,
) -> pd.DataFrame:
    """Varies one parameter at a time, up and down, and computes central differences of all key results.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    parameters : list of str, or mapping of str to float
        Paths, each varied by step times its value; or paths and the change of each in its unit, above 0. Both ends of
        a ramp are shifted together. Integers are varied by integers, at least by 1.
    step : float, optional
        Relative change of parameters whose change is not given.
    scheme : str, optional
        Integration scheme of all runs, "continuous" or "staged"; None: that of the recipe.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    out : path, optional
        Folder for the files of the runs; None: they are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    progress : bool, optional
        True: show a progress bar on standard error, if tqdm is installed.
    check : bool, optional
        True: if `vorlen check` has warnings about the recipe, issue one RecipeWarning before the runs, with the first
        three. The recipes of the runs are not checked.

    Returns
    -------
    pandas.DataFrame
        A row per parameter and quantity, the key results of sweep(). attrs["units"] has the units of the quantities,
        attrs["recipe"] the path of the recipe or None. The columns are

        - parameter, quantity
        - value, change: of the parameter, in its unit; for a ramp, value is the mean of its ends
        - base, below, above: the quantity with the parameter unchanged, decreased and increased by change; NaN if the
          run failed or the number of layers changed
        - derivative: (above - below) / (2 change), in units of the quantity per unit of the parameter
        - elasticity: per cent change of the quantity per per cent change of the parameter; NaN if either is 0
        - text: the reason if a difference is missing, otherwise empty

    Raises
    ------
    TypeError
        If an argument has a wrong type, such as a text for a number. Nothing was run.
    ValueError
        If a parameter does not exist or can't be varied, two mean the same value, or another argument has a wrong
        value. Nothing was run.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    OSError
        If the recipe can't be read or the folder can't be written.
    PlanError
        If out contains files of something else.
    BusyError
        If another sweep is running in out.
    SimulationError
        If the unchanged recipe fails.
    """
    check_flags(progress=progress, check=check)
    executor = given_executor(workers, executor, out)
    base = given_recipe(recipe, scheme)
    variations = _variations(base, parameters, step)
    present = {one.path: one.present for one in variations}
    points = [present, *(present | {one.path: one.moved(sign)} for one in variations for sign in (-1, 1))]
    lists = {path: [point[path] for point in points] for path in present}
    plan = make_plan(base, lists, mode="zip", timeout=timeout)
    if check:
        warn_about(plan.recipe, base.path)
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
    check_number(step, "step must be a positive number", 0.0)
    found: list[Variation] = []
    for path in parameters:
        if path not in recipe:
            raise ValueError(f"the recipe has no {path}")
        for other in found:
            if place_in(recipe, path).overlaps(place_in(recipe, other.path)):
                raise ValueError(f"{other.path} and {path} mean the same value; vary them in separate calls")
        found.append(_variation(recipe, path, parameters, step))
    if not found:
        raise ValueError("give at least one parameter")
    return found


def _variation(recipe: Recipe, path: str, parameters: Any, step: Any) -> Variation:
    present = recipe[path]
    ends = present if isinstance(present, tuple) else (present,)
    if not all(map(is_number, ends)):
        raise ValueError(f"{path} is {present!r}; only numbers can be varied")
    whole = place_in(recipe, path).kind == "integer"
    if isinstance(parameters, Mapping):
        change = parameters[path]
        check_number(change, f"{path}: a change must be a finite number")
    else:
        change = float(step * abs(np.mean(ends)))
        change = max(1, round(change)) if whole else change
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
        base, low, high = np.array([row["values"].get(quantity) for row in (centre, below, above)], float).tolist()
        if not comparable:
            low = high = np.nan
        derivative = (high - low) / (2.0 * one.change)
        elasticity = derivative * one.value / base if base != 0.0 and one.value != 0.0 else np.nan
        text = "; ".join(failures) or ("" if comparable else OTHER_LAYERS)
        records.append((one.path, quantity, one.value, one.change, base, low, high, derivative, elasticity, text))
    return records


def tornado(
    table: pd.DataFrame, quantity: str, *, most: int = 12, path: PathLike | None = None
) -> Figure:
    """A tornado plot: the effect of each parameter on a quantity, the strongest on top.

    Parameters that have no difference are left out. Needs matplotlib.

    Parameters
    ----------
    table : pandas.DataFrame
        The table that sensitivity() returned.
    quantity : str
        One of its quantities, such as x_in_2.
    most : int, optional
        Largest number of parameters to show.
    path : path, optional
        File to save the figure to, in the format of its ending; None: it is not saved.

    Returns
    -------
    matplotlib.figure.Figure
        The figure.

    Raises
    ------
    TypeError
        If table is not that of a sensitivity, or another argument has a wrong type.
    ValueError
        If the table does not have the quantity, no parameter has a difference, most is not a positive integer, or path
        is the recipe, not a regular file, or without the ending of a format.
    OSError
        If the figure can't be written.
    """
    import matplotlib.pyplot as plt

    rows = _shown_rows(table, quantity, most)
    inputs = [table.attrs.get("recipe")]
    if path is not None:
        check_figure(path, inputs)  # before the work
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
            save_figure(figure, path, inputs)
    return figure


def _shown_rows(table: pd.DataFrame, quantity: str, most: int) -> pd.DataFrame:
    """The rows of a quantity that have a difference, at most so many; the strongest is the last."""
    if not isinstance(table, pd.DataFrame) or not set(COLUMNS) <= set(table.columns):
        raise TypeError("table must be the data frame that sensitivity() returns")
    if not isinstance(quantity, str):
        raise TypeError(f"quantity must be a text, such as z, got {quantity!r}")
    if isinstance(most, bool) or not isinstance(most, int) or most < 1:
        raise ValueError(f"most must be a positive integer, got {most!r}")
    rows = table[table.quantity == quantity]
    if rows.empty:
        raise ValueError(f"unknown quantity {quantity}; the table has {', '.join(dict.fromkeys(table.quantity))}")
    shown = rows.assign(width=(rows.above - rows.below).abs()).dropna(subset=["base", "width"])
    if shown.empty:
        reasons = [text for text in rows.text if text] or [f"{quantity} is NaN"]
        raise ValueError(f"no parameter has a difference: {reasons[0]}")
    return shown.sort_values("width", kind="stable").tail(most)
