"""Process windows: how often a recipe meets its targets in a reactor that varies from run to run.

    window = vorlen.window("led.xml", "targets.yaml", {"T": "2 K", "TMIn": "2 %"})
    print(window)
"""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._recipe.recipe import Recipe
from .._recipe.scheme import STAGED
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .._sweep.plan_values import given_recipe
from .measured import DECIDED, Measured, measured
from .quantities import Target
from .targets import read_goals
from .window_answer import effects, sentences, target_table, wilson
from .window_plot import plot_window
from .window_spread import Drift, read_spread

if TYPE_CHECKING:
    from matplotlib.figure import Figure

LIMIT = 100_000  # runs


@dataclass(frozen=True, eq=False, repr=False)
class Window:
    """The result of a process window.

    Attributes
    ----------
    yield_ : float
        Share of the runs in which all targets hold, 0 to 1. A run that fails is a miss.
    interval : tuple of float
        Wilson's interval of the yield for 95 % confidence: low and high.
    table : pandas.DataFrame
        A row per run: the deviation of each value that varies, in the unit of its spread ("%" for shares); the value of
        each target; holds, True if all targets hold; status and text as in a sweep.
    targets : pandas.DataFrame
        A row per target: layer, quantity, unit, target, bound ("at most", "at least" or ""), tolerance, nominal (the
        value without deviations), mean, std (standard deviation), and held, the share of runs in which it holds.
    sensitivities : pandas.DataFrame
        A row per value that varies and target, from two more runs one standard deviation below and above: knob, spread,
        knob_unit, layer, quantity, unit, change (of the target for one standard deviation), derivative (change per
        knob_unit), share_of_tolerance. NaN where one of these runs failed.
    sentences : list of str
        The same in words, the largest effects first.
    warnings : list of str
        Doubts about the yield; usually empty.
    """

    yield_: float
    interval: tuple[float, float]
    table: pd.DataFrame
    targets: pd.DataFrame
    sensitivities: pd.DataFrame
    sentences: list[str]
    warnings: list[str]

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
    timeout: float | None = 60.0,
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
    check: bool = True,
) -> Window:
    """How often a recipe meets its targets if the reactor varies from run to run: Monte Carlo.

    All runs use the staged scheme. Needs PyYAML for targets in a file, pint for units.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    targets : mapping or path
        As for design(); knobs, limits and preferences are ignored and can be missing. A tolerance follows the value,
        as in "3.0 +- 0.1 nm"; without one it is that of the table in docs/designing.md.
    spread : mapping
        One standard deviation of each value that varies, absolute as in "2 K" or relative as in "2 %". The names are
        those of knobs, such as T or TMIn, which vary in all stages together, or paths in the recipe. A value with a
        path varies separately.
    samples : int, optional
        Number of runs, at least 2. Two more for each value and one without deviations give the sensitivities.
    seed : int, optional
        Of the random numbers, at least 0. The same seed gives the same runs; more samples start with those of fewer.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    out : path, optional
        Folder for the files of the sweep, which continues in it. None: the files are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    progress : bool, optional
        True: show a progress bar on standard error, if tqdm is installed.
    check : bool, optional
        As for sweep().

    Returns
    -------
    Window
        The yield, tables of runs, targets and sensitivities, and sentences.

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
        If a package that targets need is missing.
    OSError
        If a file can't be read, or the folder can't be written.
    PlanError
        If the folder contains something else.
    BusyError
        If another sweep is running in the folder.
    SimulationError
        If the recipe fails without deviations, or no run has a result.
    RuntimeError
        If the worker processes can't be started, for example because the library is missing.
    """
    for name, value, low in (("samples", samples, 2), ("seed", seed, 0)):
        if isinstance(value, bool) or not isinstance(value, int):
            raise TypeError(f"{name} must be an integer, got {value!r}")
        if value < low:
            raise ValueError(f"{name} must be {low} or more, got {value}")
    if samples > LIMIT:
        raise ValueError(f"samples can be at most {LIMIT}, got {samples}")
    base = given_recipe(recipe, STAGED)
    goals = read_goals(base, targets)
    drifts = read_spread(base, spread)
    points = _points(len(drifts), samples, seed)
    made = _run_points(
        base, goals, [_values_at(drifts, point) for point in points], timeout=timeout, out=out, workers=workers,
        executor=executor, progress=progress, check=check,
    )
    if made.statuses[0] != "ok":
        text = made.texts[0] or f"the recipe without deviations has the status {made.statuses[0]}"
        raise SimulationError(text, recipe)
    return _window(goals, drifts, points, made)


def _points(count: int, samples: int, seed: int) -> Array:
    """The deviations of each run: none, one standard deviation below and above for each value, then random ones."""
    single = np.zeros((2 * count, count))
    for place in range(count):
        single[2 * place : 2 * place + 2, place] = (-1.0, 1.0)
    random = np.random.default_rng(seed).standard_normal((samples, count))
    return np.vstack([np.zeros((1, count)), single, random])


def _values_at(drifts: Sequence[Drift], point: Array) -> dict[str, Any]:
    values: dict[str, Any] = {}
    for drift, deviation in zip(drifts, point):
        values |= drift.values(float(deviation))
    return values


def _run_points(base: Recipe, goals: Sequence[Target], rows: list[dict[str, Any]], **options: Any) -> Measured:
    """Runs the recipe with the values of each row, by path."""
    return measured(base, {path: [row[path] for row in rows] for path in rows[0]}, "zip", goals, **options)


def _window(goals: list[Target], drifts: list[Drift], points: Array, made: Measured) -> Window:
    first = 1 + 2 * len(drifts)
    values = made.values[first:]
    holds = np.array([[target.holds(value) for target, value in zip(goals, row)] for row in values])
    decided = np.array([status in DECIDED for status in made.statuses[first:]])
    good, count = int(holds[decided].all(axis=1).sum()), int(decided.sum())
    if not np.isfinite(values).any():
        raise SimulationError(next(filter(None, made.texts[first:]), "no run has a result"))
    names = {drift.name: points[first:, place] * drift.shown_spread for place, drift in enumerate(drifts)}
    table = pd.DataFrame(
        names | {target.label: values[:, place] for place, target in enumerate(goals)}
        | {"holds": holds.all(axis=1), "status": made.statuses[first:], "text": made.texts[first:]},
    )
    table.index.name = "run"
    about = target_table(goals, made.values[0], values[decided], holds[decided])
    found = effects(goals, drifts, made.values[1:first].reshape(len(drifts), 2, len(goals)))
    return Window(
        yield_=good / count, interval=wilson(good, count), table=table, targets=about, sensitivities=found,
        sentences=sentences(good, count, about, drifts, found), warnings=_warnings(goals, made, first, count),
    )


def _warnings(goals: list[Target], made: Measured, first: int, count: int) -> list[str]:
    notes = [
        f"{target.label} is {value:.4g} without deviations and misses its target {target.goal}: design the recipe first"
        for target, value in zip(goals, made.values[0]) if not target.holds(value)
    ]
    statuses = made.statuses[first:]
    failed = sum(status in DECIDED and status != "ok" for status in statuses)
    if failed:
        text = next(text for status, text in zip(statuses, made.texts[first:]) if status in DECIDED and status != "ok")
        notes.append(f"{failed} of {count} runs failed and count as misses; the first: {text}")
    lost = len(statuses) - count
    if lost:
        notes.append(f"{lost} runs gave no result for a reason other than the recipe; they do not count")
    return notes
