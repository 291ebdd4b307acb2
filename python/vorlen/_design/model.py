"""The runs of a design: from the variables of the knobs to the deviations of the targets, each point run once."""

from __future__ import annotations

import contextlib
import sys
import time
from collections.abc import Iterable, Iterator, Sequence
from concurrent.futures import Executor
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from .._base.files import replace_file
from .._base.types import Array, PathLike
from .._recipe.recipe import Recipe
from .._runs.result_file import ResultFileError
from .._runs.run import Run, SimulationError
from .._runs.status import read_status
from .._sweep.own_folder import own_folder
from .._sweep.plan import ROWS_FOLDER, Plan, make_task, row_files, row_recipe, sha256
from .._sweep.run_rows import run_tasks
from .quantities import measure
from .targets import Spec

RECIPE_NAME = "recipe.xml"
PLACELESS = ("lost", "error")  # statuses of rows that say nothing about the recipe
CLOSE = 0.3  # of the tolerance: a target this near counts as reached for the solver
RATE = 0.2  # s between updates of the progress line


class LimitReached(Exception):
    """No more runs are allowed."""


@dataclass(frozen=True)
class Outcome:
    """One run: the value of each target and its coordinate; text if it failed."""

    values: Array
    coordinates: Array
    text: str = ""

    def __post_init__(self) -> None:
        self.values.flags.writeable = self.coordinates.flags.writeable = False  # the search must not change them


def design_folder(out: PathLike | None) -> contextlib.AbstractContextManager[Path]:
    """The folder of a design. Raises as own_folder()."""
    return own_folder(out, "design", (ROWS_FOLDER, RECIPE_NAME))


class DesignModel:
    """The runs of a design.

    folder  of its files. Runs that are there already, of this or another design, are used again
    """

    def __init__(
        self, recipe: Recipe, spec: Spec, *, folder: Path, executor: Executor, timeout: float | None,
        time_limit: float | None, max_runs: int, progress: bool,
    ) -> None:
        self.recipe, self.spec, self.folder, self.executor = recipe, spec, folder, executor
        self.plan = Plan(recipe.to_bytes(), {}, timeout=timeout)
        self.max_runs, self.time_limit = max_runs, time_limit
        self.begin = time.monotonic()
        self.known: dict[tuple[float, ...], Outcome] = {}  # by the variables
        self.kinds: list[str] = []  # of the points in known
        self._paths = list(recipe.timeline().path)
        self._grows = any(knob.is_integer for knob in spec.knobs)  # the number of layers changes
        (folder / ROWS_FOLDER).mkdir(parents=True, exist_ok=True)
        replace_file(folder / RECIPE_NAME, self.plan.recipe)
        self._numbers = dict(recorded_numbers(folder))
        self._next = 1 + max(self._numbers.values(), default=-1)
        self._line = _ProgressLine(progress)

    @property
    def runs(self) -> int:
        return len(self.known)

    def values_of(self, point: Iterable[float]) -> dict[str, Any]:
        """The value of each path in the recipe at a point."""
        return self.spec.values_of(list(point))

    def recipe_at(self, point: Iterable[float]) -> Recipe:
        return Recipe(row_recipe(self.recipe, self.values_of(point)), self.recipe.path)

    def at(self, points: Iterable[Iterable[float]], kind: str) -> list[Outcome]:
        """Runs points that are new. kind is what they are for, in the history.

        Raises LimitReached if time or runs are used up, SimulationError if files could not be read or written.
        """
        keys = [tuple(float(value) for value in point) for point in points]
        new = [key for key in dict.fromkeys(keys) if key not in self.known]
        if new and self.runs and self.runs + len(new) > self.max_runs:
            raise LimitReached(f"the largest number of runs, {self.max_runs}, is reached")
        if new and self.runs and self.time_limit is not None and time.monotonic() - self.begin > self.time_limit:
            raise LimitReached(f"the time limit of {self.time_limit:g} s is reached")
        tasks, recipes = [], []
        for key in new:
            values = self.values_of(key)
            recipes.append(row_recipe(self.recipe, values))
            number = self._numbers.get(sha256(recipes[-1]))
            if number is None:
                number, self._next = self._next, self._next + 1
                self._numbers[sha256(recipes[-1])] = number
            tasks.append(make_task(self.plan, self.folder, number, values, resume=True))
        different = {task["number"]: task for task in tasks}  # points may differ by less than the digits of a recipe
        rows = dict(zip(different, run_tasks(list(different.values()), self.executor, progress=False)))
        for key, task, content in zip(new, tasks, recipes):
            self.known[key] = self._outcome(rows[task["number"]], task["number"], content)
            self.kinds.append(kind)
        self._line.show(self)
        return [self.known[key] for key in keys]

    def _outcome(self, row: dict[str, Any], number: int, content: bytes) -> Outcome:
        nothing = np.full(len(self.spec.targets), np.nan)
        if row["status"] in PLACELESS:
            raise SimulationError(f"a run of the design gave no result: {row['text']}")
        if row["status"] != "ok":
            return Outcome(nothing, nothing, str(row["text"]))
        result = row_files(self.folder, number).result
        run = Run(result.read_bytes(), result)
        paths = list(Recipe(content).timeline().path) if self._grows else self._paths
        try:
            pairs = [measure(run, paths, target) for target in self.spec.targets]
        except ResultFileError as error:
            return Outcome(nothing, nothing, str(error))
        return Outcome(np.array([value for value, _ in pairs]), np.array([place for _, place in pairs]))

    def deviations(self, outcome: Outcome) -> Array:
        """In tolerances; infinite where a value is NaN."""
        away = [target.deviation(value) for target, value in zip(self.spec.targets, outcome.values)]
        return np.nan_to_num(np.array(away, dtype=float), nan=np.inf)

    def best(self) -> tuple[float, ...]:
        """The point at which most targets are reached; of several, that with the smallest deviations."""

        return min(self.known, key=self.rank)

    def rank(self, point: Iterable[float]) -> tuple[int, float]:
        """Targets that are missed at a point that was run, and by how much."""
        outcome = self.known[tuple(point)]
        if outcome.text:
            return len(self.spec.targets) + 1, np.inf
        return int(np.sum(self.deviations(outcome) > 1.0)), violation_norm(self.spec, outcome.coordinates)

    def close(self) -> None:
        self._line.end()


def violations(spec: Spec, coordinates: Array) -> Array:
    """Coordinates, 0 for bounds that hold."""
    bounds = np.array([bool(target.bound) for target in spec.targets])
    return np.where(bounds, np.maximum(coordinates, 0.0), coordinates)


def violation_norm(spec: Spec, coordinates: Array) -> float:
    return float(np.linalg.norm(violations(spec, coordinates)))


def recorded_numbers(folder: Path) -> Iterator[tuple[str, int]]:
    """The hash of the recipe and the number of each row that is recorded in a folder."""
    for path in sorted((folder / ROWS_FOLDER).glob("*.xml")):
        if path.stem.isdecimal():
            number = int(path.stem)
            status = read_status(row_files(folder, number).result)
            yield str(status.get("recipe_sha256", path.stem)), number


class _ProgressLine:
    """One line on standard error that is overwritten, if that is a terminal."""

    def __init__(self, wanted: bool) -> None:
        self.wanted = wanted and sys.stderr.isatty()
        self.text, self.width, self.shown = "", 0, -RATE

    def show(self, model: DesignModel) -> None:
        if self.wanted:
            self.text = progress_text(model.spec.targets, model)
            if time.monotonic() - self.shown >= RATE:
                self._write("")

    def end(self) -> None:
        if self.text:
            self._write("\n")
            self.text = ""

    def _write(self, end: str) -> None:
        sys.stderr.write(f"\r{self.text.ljust(self.width)}{end}")
        sys.stderr.flush()
        self.width, self.shown = len(self.text), time.monotonic()


def progress_text(targets: Sequence[Any], model: DesignModel) -> str:
    """Such as "run 7: 3 of 5 targets reached; In of InGaN well 0.143, target 0.15"."""
    best = model.known[model.best()]
    if best.text:
        return f"run {model.runs}: failed"
    away = model.deviations(best)
    text = f"run {model.runs}: {int(np.sum(away <= 1.0))} of {len(targets)} targets reached"
    worst = int(np.argmax(away))
    if away[worst] > 1.0:
        target = targets[worst]
        text += f"; {target.label} {best.values[worst]:.4g}, target {target.goal}"
    return text
