"""Process windows: how often a recipe meets its targets in a reactor that varies from run to run.

    window = vorlen.window("led.xml", "targets.yaml", {"T": "2 K", "TMIn": "2 %"})
    print(window)
    window.report("window.html")
"""

from __future__ import annotations

import functools
from collections.abc import Mapping, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._recipe.recipe import Recipe
from .._recipe.scheme import STAGED
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .._sweep.plan_values import given_recipe
from .map import ProcessMap
from .measured import DECIDED, Bench, Measured, RunOptions, measured, open_bench, say_interrupted
from .quantities import Target
from .targets import read_goals
from .window_answer import doubts, effects, sentences, target_table, wilson
from .window_map import map_around
from .window_page import write_window
from .window_plot import plot_window
from .window_spread import Drift, read_spread

if TYPE_CHECKING:
    from matplotlib.figure import Figure

LIMIT = 100_000  # runs
GRID = 7  # points per side of the map: every standard deviation from -3 to 3
MOST_GRID = 101


@dataclass(frozen=True, eq=False, repr=False)
class Window:
    """The result of a process window.

    Attributes
    ----------
    yield_ : float
        Share of the runs in which all targets hold, 0 to 1. A run that fails is a miss. NaN if no run was finished.
    interval : tuple of float
        Wilson's interval of the yield for 95 % confidence: low and high.
    table : pandas.DataFrame
        A row per run: the deviation of each value that varies, in the unit of its spread ("%" for shares); the value of
        each target; holds, True if all targets hold; status and text as in a sweep. Runs with the status "missing" were
        not started within the time limit.
    targets : pandas.DataFrame
        A row per target: layer, quantity, unit, target, bound ("at most", "at least" or ""), tolerance, nominal (the
        value without deviations), mean, std (standard deviation), and held, the share of runs in which it holds.
    sensitivities : pandas.DataFrame
        A row per value that varies and target, from two more runs one standard deviation below and above: knob, spread,
        knob_unit, layer, quantity, unit, below and above (the target's values in these runs), change (half of their
        difference), derivative (change per knob_unit), share_of_tolerance. NaN where one of these runs failed.
    sentences : list of str
        The same in words, the largest effects first.
    warnings : list of str
        Runs that failed, have no value of a target or are missing, and other doubts about the yield; usually empty.
    map : ProcessMap or None
        The two values with the largest effects, up to three standard deviations to each side, with lines of equal
        composition and thickness and the region in which all targets hold. None if a single value varies, without a
        grid, or if the time limit was reached before.
    """

    yield_: float
    interval: tuple[float, float]
    table: pd.DataFrame
    targets: pd.DataFrame
    sensitivities: pd.DataFrame
    sentences: list[str]
    warnings: list[str]
    map: ProcessMap | None
    _recipe: Recipe = field(repr=False)
    _labels: dict[str, str] = field(repr=False)  # of the values that vary, by their names

    def plot(self, *, path: PathLike | None = None) -> Figure:
        """Distribution of each target, with its tolerance, and what each value contributes. Needs matplotlib.

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
        TypeError
            If path is not a path.
        ValueError
            If path is not a regular file or without the ending of a format.
        OSError
            If the figure can't be written.
        """
        return plot_window(self.table, self.targets, self.sensitivities, path)

    def report(self, path: PathLike) -> Path:
        """Writes one page for a browser: the yield, distributions, effects and the map. Needs jinja2.

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
            If jinja2 is missing, or contourpy for the map.
        TypeError
            If path is not a path.
        ValueError
            If path is the recipe or not a regular file.
        OSError
            If the page can't be written, or the chart library is missing.
        """
        return write_window(
            path, self._recipe, self.sentences, self.warnings, self.table, self.targets, self.sensitivities, self.map,
            self._labels,
        )

    def __repr__(self) -> str:
        low, high = self.interval
        share = f"{100 * self.yield_:.1f} % ({100 * low:.1f} to {100 * high:.1f} %)"
        return f"<Window, yield {share}, {len(self.table)} runs>"

    def __str__(self) -> str:
        return "\n".join([*self.sentences, *self.warnings])


def window(
    recipe: RecipeLike,
    targets: Mapping[str, Any] | PathLike,
    spread: Mapping[str, Any],
    *,
    samples: int = 400,
    seed: int = 0,
    grid: int = GRID,
    timeout: float | None = 60.0,
    time_limit: float | None = None,
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
    check: bool = True,
) -> Window:
    """How often a recipe meets its targets if the reactor varies from run to run: Monte Carlo.

    All runs use the staged scheme. Needs PyYAML for targets in a file, pint for units, contourpy for the map.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    targets : mapping or path
        As for design(); knobs, limits and preferences are ignored and can be missing. A tolerance follows the value,
        as in "3.0 +- 0.1 nm"; without one it is that of the table in docs/designing.md.
    spread : mapping
        One standard deviation of each value that varies, absolute as in "2 K" or relative as in "2 %". A spread of a
        temperature in degC is a difference: "2 degC" is "2 K". The names are those of knobs, such as T or TMIn, which
        vary in all stages together, or paths in the recipe. A value with a path varies separately.
    samples : int, optional
        Number of runs, at least 1. Two more for each value and one without deviations give the sensitivities.
    seed : int, optional
        Of the random numbers, at least 0. The same seed gives the same runs, wherever and by however many workers they
        are run; more samples start with those of fewer.
    grid : int, optional
        Number of points along each side of the map, whose runs are not part of the yield; 0: no map.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    time_limit : float, optional
        No runs are started after this time, s; the result is that of the runs so far. None: no limit.
    out : path, optional
        Folder that keeps the runs. Runs that are there already, of this or another window or map, are not repeated.
        None: they are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    progress : bool, optional
        True: show a progress bar on standard error, if tqdm is installed.
    check : bool, optional
        As for sweep().

    Returns
    -------
    Window
        The yield, tables of runs, targets and sensitivities, sentences and the map.

    Raises
    ------
    TypeError
        If an argument has a wrong type. Nothing was run.
    ValueError
        If a layer, a quantity or a value is unknown or ambiguous, a unit does not fit, or a number is out of its range.
        Nothing was run.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    ImportError
        If a package that targets or the map need is missing.
    OSError
        If a file can't be read, or the folder can't be written or has files of something else.
    BusyError
        If another window, map or sweep is running in the folder.
    SimulationError
        If the recipe fails without deviations.
    RuntimeError
        If the worker processes can't be started, for example because the library is missing.
    """
    options = RunOptions(timeout, time_limit, out, workers, executor, progress, check)
    try:
        return make_window(recipe, targets, spread, samples, seed, grid, options)
    except KeyboardInterrupt as interrupt:
        say_interrupted("window", interrupt, out)
        raise


def make_window(
    recipe: RecipeLike, targets: Mapping[str, Any] | PathLike, spread: Mapping[str, Any], samples: int, seed: int,
    grid: int, options: RunOptions,
) -> Window:
    """The window, without a text about an interrupt."""
    base, goals, drifts = read_window(recipe, targets, spread, samples, seed, grid)
    points = points_of(len(drifts), samples, seed)
    with open_bench(base, options) as bench:
        made = _run_points(bench, base, goals, [_values_at(drifts, point) for point in points])
        if made.statuses[0] != "ok":
            text = made.texts[0] or f"the recipe without deviations has the status {made.statuses[0]}"
            raise SimulationError(text, recipe)
        found = effects(goals, drifts, made.values[1 : 1 + 2 * len(drifts)].reshape(len(drifts), 2, len(goals)))
        around = None
        if grid and not bench.out_of_time:
            run = functools.partial(_run_points, bench, base)
            around = map_around(base, goals, drifts, found, made.values[0], grid, run)
    return _window(base, goals, drifts, points, made, found, around)


def read_window(
    recipe: RecipeLike, targets: Mapping[str, Any] | PathLike, spread: Mapping[str, Any], samples: int, seed: int,
    grid: int = 0,
) -> tuple[Recipe, list[Target], list[Drift]]:
    """The recipe with the staged scheme, the targets and what varies. Raises TypeError or ValueError for mistakes."""
    numbers = (("samples", samples, 1, LIMIT), ("seed", seed, 0, None), ("grid", grid, 0, MOST_GRID))
    for name, value, low, high in numbers:
        if isinstance(value, bool) or not isinstance(value, int):
            raise TypeError(f"{name} must be an integer, got {value!r}")
        if value < low:
            raise ValueError(f"{name} must be {low} or more, got {value}")
        if high is not None and value > high:
            raise ValueError(f"{name} can be at most {high}, got {value}")
    if grid == 1:
        raise ValueError("grid must be 2 or more, or 0 for no map, got 1")
    if grid:
        import contourpy  # noqa: F401  # reports that it is missing before anything runs
    base = given_recipe(recipe, STAGED)
    return base, read_goals(base, targets), read_spread(base, spread)


def points_of(count: int, samples: int, seed: int) -> Array:
    """The deviations of each run: none, one standard deviation below and above for each value, then random ones.

    They depend on nothing but the arguments and numpy's generator, so that every computer has the same.
    """
    single = np.zeros((2 * count, count))
    for place in range(count):
        single[2 * place : 2 * place + 2, place] = (-1.0, 1.0)
    random = np.random.default_rng(seed).standard_normal((samples, count))
    return np.vstack([np.zeros((1, count)), single, random])


def window_plan(drifts: Sequence[Drift], points: Array) -> dict[str, list[Any]]:
    """The values of each path, run by run, for a plan of a sweep."""
    rows = [_values_at(drifts, point) for point in points]
    return {path: [row[path] for row in rows] for path in rows[0]}


def _values_at(drifts: Sequence[Drift], point: Array) -> dict[str, Any]:
    values: dict[str, Any] = {}
    for drift, deviation in zip(drifts, point):
        values |= drift.values(float(deviation))
    return values


def _run_points(bench: Bench, base: Recipe, targets: Sequence[Target], rows: Sequence[dict[str, Any]]) -> Measured:
    """Runs the recipe with the values of each row, by path."""
    return measured(bench, base, {path: [row[path] for row in rows] for path in rows[0]}, "zip", targets)


def _window(
    base: Recipe, goals: list[Target], drifts: list[Drift], points: Array, made: Measured, found: pd.DataFrame,
    around: ProcessMap | None,
) -> Window:
    first = 1 + 2 * len(drifts)
    values, statuses, texts = made.values[first:], made.statuses[first:], made.texts[first:]
    holds = np.array([[target.holds(value) for target, value in zip(goals, row)] for row in values])
    decided = np.array([status in DECIDED for status in statuses])
    good, count = int(holds[decided].all(axis=1).sum()), int(decided.sum())
    names = {drift.name: points[first:, place] * drift.shown_spread for place, drift in enumerate(drifts)}
    table = pd.DataFrame(
        names | {target.label: values[:, place] for place, target in enumerate(goals)}
        | {"holds": holds.all(axis=1), "status": statuses, "text": texts},
    )
    table.index.name = "run"
    about = target_table(goals, made.values[0], values[decided], holds[decided])
    return Window(
        yield_=good / count if count else float("nan"), interval=wilson(good, count), table=table, targets=about,
        sensitivities=found, sentences=sentences(good, count, about, drifts, found),
        warnings=doubts(goals, made.values[0], values, statuses, texts), map=around, _recipe=base,
        _labels={drift.name: drift.label for drift in drifts},
    )
