"""Maps of two values of a recipe: lines of equal composition and thickness, and where all targets hold.

    made = vorlen.process_map("mqw.xml", {"process_stages/stage_1/T": range(1000, 1041, 5), FLOW: [0.1, 0.15, 0.2]})
    made.report("map.html")
"""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass, field, replace
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.arguments import is_number
from .._base.types import Array, PathLike
from .._recipe.recipe import Recipe
from .._recipe.scheme import STAGED
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .._runs.simulate import run as run_once
from .._runs.structure import structure_of
from .._sweep.plan import PlanError
from .._sweep.plan_values import given_recipe, make_plan
from .._sweep.table import parameter_unit
from .knobs import label_of
from .map_page import Axis, Shown, write_map
from .map_plot import plot_map
from .measured import Measured, RunOptions, measured, open_bench, say_interrupted
from .quantities import Target
from .targets import Layer, find_layer, find_quantity, read_goals

if TYPE_CHECKING:
    from matplotlib.figure import Figure

SHOWN = ("In", "thickness")


@dataclass(frozen=True, eq=False, repr=False)
class ProcessMap:
    """The result of process_map().

    Attributes
    ----------
    table : pandas.DataFrame
        A row per run: the two values by their paths, the quantities shown ("In of InGaN well"), each target that is not
        shown, holds (True if all targets hold, only if there are some), status and text as in a sweep.
    layer : str
        The layer or layers whose quantities are shown.
    warnings : list of str
        Runs without a result; usually empty.
    """

    table: pd.DataFrame
    layer: str
    warnings: list[str]
    _axes: tuple[Axis, Axis] = field(repr=False)
    _shown: list[Shown] = field(repr=False)
    _targets: list[Target] = field(repr=False)
    _recipe: Recipe = field(repr=False)

    def plot(self, *, path: PathLike | None = None) -> Figure:
        """Lines of equal value, the region in which all targets hold, the runs and the recipe. Needs matplotlib.

        Parameters
        ----------
        path : path, optional
            File to save the figure to, in the format of its ending; None: it is not saved.

        Returns
        -------
        matplotlib.figure.Figure
            The figure.

        Raises
        ------
        ImportError
            If matplotlib or contourpy is missing.
        TypeError
            If path is not a path.
        ValueError
            If path is the recipe, not a regular file, or without the ending of a format.
        OSError
            If the figure can't be written.
        """
        return plot_map(self._axes, self._shown, self._targets, self.table, path, [self._recipe.path])

    def report(self, path: PathLike) -> Path:
        """Writes one page for a browser with the map. Needs jinja2 and contourpy.

        Parameters
        ----------
        path : path
            The page. An existing file is replaced when the new one is complete.

        Returns
        -------
        pathlib.Path
            The path.

        Raises
        ------
        ImportError
            If jinja2 or contourpy is missing.
        TypeError
            If path is not a path.
        ValueError
            If path is the recipe or not a regular file.
        OSError
            If the page can't be written, or the chart library is missing.
        """
        return write_map(
            path, self._recipe, self._axes, self._shown, self._targets, self.table, self.layer, self.warnings
        )

    def __repr__(self) -> str:
        names = ", ".join(one.label for one in self._shown)
        return f"<ProcessMap, {names}, {len(self.table)} runs>"


def process_map(
    recipe: RecipeLike,
    parameters: Mapping[str, Iterable[Any]],
    *,
    show: Sequence[str] = SHOWN,
    layer: str | int | None = None,
    targets: Mapping[str, Any] | PathLike | None = None,
    timeout: float | None = 60.0,
    time_limit: float | None = None,
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
    check: bool = True,
) -> ProcessMap:
    """Runs a recipe on a grid of two of its values, for a map of what grows.

    All runs use the staged scheme. Needs contourpy; PyYAML for targets in a file, pint for units.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    parameters : mapping of str to list
        Two paths in the recipe with their values, numbers: the horizontal axis, then the vertical one. A value of a
        ramp sets its start and its end.
    show : list of str, optional
        Quantities of the layer, as for the targets of design(): "In", "thickness", or a column such as "x_in_mid".
    layer : str or int, optional
        The layer, as for design(). None: the wells of the active region, or the only layer of the recipe.
    targets : mapping or path, optional
        Targets as for window(); the map shows the region in which all of them hold.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    time_limit : float, optional
        No runs are started after this time, s; the map has gaps where runs are missing. None: no limit.
    out : path, optional
        Folder that keeps the runs. Runs that are there already, of this or another map or window, are not repeated.
        None: they are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    progress : bool, optional
        True: show a progress bar on standard error, if tqdm is installed.
    check : bool, optional
        As for sweep().

    Returns
    -------
    ProcessMap
        The table of the runs; report() writes the page.

    Raises
    ------
    TypeError
        If an argument has a wrong type. Nothing was run.
    ValueError
        If there are not two paths with two or more values each, or a layer or quantity is unknown. Nothing was run.
    PlanError
        If the values do not fit the recipe. Nothing was run.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    ImportError
        If contourpy, or a package that targets need, is missing.
    OSError
        If a file can't be read, or the folder can't be written or has files of something else.
    BusyError
        If another map, window or sweep is running in the folder.
    SimulationError
        If no run has a result, or the recipe itself fails, which is run to find its wells.
    RuntimeError
        If the worker processes can't be started, for example because the library is missing.
    """
    options = RunOptions(timeout, time_limit, out, workers, executor, progress, check)
    try:
        return make_map(recipe, parameters, show, layer, targets, options)
    except KeyboardInterrupt as interrupt:
        say_interrupted("map", interrupt, out)
        raise


def make_map(
    recipe: RecipeLike, parameters: Mapping[str, Iterable[Any]], show: Sequence[str], layer: str | int | None,
    targets: Mapping[str, Any] | PathLike | None, options: RunOptions,
) -> ProcessMap:
    """The map, without a text about an interrupt."""
    import contourpy  # noqa: F401  # reports that it is missing before anything runs

    if isinstance(show, str) or not all(isinstance(name, str) for name in show):
        raise TypeError(f"show must be a list of quantities, got {show!r}")
    if not show:
        raise ValueError("show is empty; it needs a quantity, such as thickness")
    quantities = list(dict.fromkeys(find_quantity(name, "quantity") for name in show))
    if not isinstance(parameters, Mapping):
        raise TypeError(f"parameters must be a mapping of two paths to lists of values, got {parameters!r}")
    base = given_recipe(recipe, STAGED)
    plan = make_plan(base, parameters)
    axes = _axes(base, plan.parameters)
    goals = [] if targets is None else read_goals(base, targets)
    meant = _wells(base) if layer is None else find_layer(base, base.timeline(), layer)
    if meant.whole and any(one.name not in ("thickness", "rate") for one in quantities):
        raise ValueError(f"{meant.name} is a whole periodic stage, which can only show thickness and rate")
    wanted = [Target(meant.name, meant.stages, meant.whole, one, 1.0) for one in quantities]
    with open_bench(base, options) as bench:
        made = measured(bench, base, {axis.path: axis.values for axis in axes}, "grid", wanted + goals)
    return map_of(base, axes, wanted, goals, made)


def map_of(
    base: Recipe, axes: tuple[Axis, Axis], wanted: list[Target], goals: list[Target], made: Measured
) -> ProcessMap:
    """The map of runs on a grid, whose second axis varies fastest.

    wanted  the quantities that are shown
    made    the values of wanted, then of goals
    """
    lost = [number for number, status in enumerate(made.statuses) if status != "ok"]
    if len(lost) == len(made.statuses):
        raise SimulationError(made.texts[0] or "no run has a result")
    goals = [
        replace(goal, layer=f"{goal.layer} (target)")
        if any(goal.label == target.label and goal.stages != target.stages for target in wanted) else goal
        for goal in goals
    ]
    columns: dict[str, Any] = {axis.path: _places(axes)[:, number] for number, axis in enumerate(axes)}
    for number, target in enumerate(wanted + goals):
        columns.setdefault(target.label, made.values[:, number])
    if goals:
        holds = [[target.holds(value) for target, value in zip(goals, row[len(wanted) :])] for row in made.values]
        columns["holds"] = np.all(holds, axis=1)
    table = pd.DataFrame(columns | {"status": made.statuses, "text": made.texts})
    table.index.name = "run"
    shown = [Shown(target.label, target.quantity.unit) for target in wanted]
    layers = " and ".join(dict.fromkeys(target.layer for target in wanted))
    return ProcessMap(table, layers, _warnings(axes, made, lost), axes, shown, goals, base)


def _warnings(axes: tuple[Axis, Axis], made: Measured, lost: list[int]) -> list[str]:
    """About runs without a result."""
    notes, count = [], len(made.statuses)
    missing = [number for number in lost if made.statuses[number] == "missing"]
    others = [number for number in lost if made.statuses[number] != "missing"]
    if others:
        at = others[0]
        place = ", ".join(f"{axis.label} {value:g}" for axis, value in zip(axes, _places(axes)[at]))
        notes.append(f"{len(others)} of {count} runs have no result; the first, {place}: {made.texts[at]}")
    if missing:
        text = "were not started within the time limit; the same call with the same folder continues"
        notes.append(f"{len(missing)} of {count} runs {text}")
    return notes


def _places(axes: tuple[Axis, Axis]) -> Array:
    """The two values of each run: the second varies fastest, as in the grid of a sweep."""
    first, second = np.meshgrid(axes[0].values, axes[1].values, indexing="ij")
    return np.column_stack([first.ravel(), second.ravel()])


def _axes(base: Recipe, parameters: Mapping[str, list[Any]]) -> tuple[Axis, Axis]:
    if len(parameters) != 2:
        raise ValueError(f"a map needs two paths with their values, got {len(parameters)}")
    timeline = base.timeline()
    made = []
    for path, values in parameters.items():
        if not all(is_number(value) for value in values):
            raise PlanError(f"{path}: the values of a map must be numbers")
        ordered = sorted(values)
        if len(set(ordered)) < len(ordered) or len(ordered) < 2:
            raise ValueError(f"{path}: a map needs two or more different values, got {values}")
        present = base[path]
        ends = present if isinstance(present, tuple) else (present,)
        own = float(ends[0]) if is_number(ends[0]) and ends[0] == ends[-1] else None
        unit = parameter_unit(path)
        made.append(Axis(path, label_of(timeline, path), "" if unit == "1" else unit, ordered, own))
    return made[0], made[1]


def _wells(base: Recipe) -> Layer:
    """The layers that are wells of the active region, or the only layer, of a run of the recipe."""
    timeline = base.timeline()
    active = timeline[timeline.kind == "active"]
    paths = list(dict.fromkeys(active.path))
    if len(paths) != 1:
        structure = structure_of(run_once(base, check=False)._layers)
        region = structure.region
        numbers = [] if region is None else [
            number for number, role in structure.roles.items() if role == "well" and number in region.numbers
        ]
        paths = list(dict.fromkeys(timeline.path[numbers]))
        if not paths:
            names = ", ".join(dict.fromkeys(active.name))
            raise ValueError(f"the recipe grows no wells; name the layer to show, one of {names}")
    found = dict.fromkeys(active.name[active.path.isin(paths)])
    return Layer(" and ".join(found), tuple(paths), (), False)
