"""Design: from what the layers shall be to the recipe that grows them.

    design = vorlen.design("led.xml", "targets.yaml")
    design.table
    design.recipe.save("led_designed.xml")
"""

from __future__ import annotations

import contextlib
import sys
from collections.abc import Mapping
from concurrent.futures import Executor
from dataclasses import dataclass
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.arguments import check_flags, check_number, check_timeout, given_executor
from .._base.types import Array, PathLike
from .._recipe.check import new_findings, warn_about
from .._recipe.recipe import Recipe
from .._recipe.scheme import STAGED
from .._recipe.source import RecipeLike
from .._runs.run import SimulationError
from .._sweep.plan_values import given_recipe
from .._sweep.run_rows import pool_of
from .answer import knob_text, reasons
from .knobs import Knob
from .model import DesignModel, LimitReached, Outcome, design_folder
from .neighbours import names_of
from .plot import plot_design
from .prefer import METALS
from .quantities import Target
from .report import write_report
from .retreat import retreat
from .solver import first_point, solve
from .steps import snapped
from .targets import V_III, Spec, read_spec

if TYPE_CHECKING:
    from matplotlib.figure import Figure

RELAXING = "V_dislocation"  # the stress model that computes dislocations and V-defects


@dataclass(frozen=True, eq=False, repr=False)
class Design:
    """The result of a design.

    Attributes
    ----------
    recipe : Recipe
        The recipe with the new values of the knobs and the staged scheme. If targets are out of reach, the best one.
    table : pandas.DataFrame
        A row per target: layer, quantity, unit, target, bound ("at most", "at least" or ""), start (the value that the
        given recipe gives), reached, tolerance, met, and knobs: the knobs of
        the layer before and after, as a text. Values of layers that are grown several times are means over them.
    knobs : pandas.DataFrame
        A row per knob: layer (the stage, if the knob was given by its path), knob, unit, before, after (a pair for a
        ramp), low, high (the limits), limited (False
        for limits by default, where none are given), at_limit: "low", "high" or "", path: that of its first value in the recipe, and
        followers: the names of the stages beside it whose temperatures move with it, as a text.
    history : pandas.DataFrame
        A row per run, in order: kind (start, step, derivative, exploration, hint or recipe), knobs, targets, and text, the
        reason if it failed.
    success : bool
        True if all targets are reached.
    warnings : list of str
        Why targets are out of reach, and other doubts; usually empty.
    runs : int
        Number of simulations.
    """

    recipe: Recipe
    table: pd.DataFrame
    knobs: pd.DataFrame
    history: pd.DataFrame
    success: bool
    warnings: list[str]
    runs: int

    def plot(self, *, path: PathLike | None = None) -> Figure:
        """Targets at the start and now, and how far each knob was moved. Needs matplotlib.

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
            If path is the recipe, not a regular file, or without the ending of a format.
        OSError
            If the figure can't be written.
        """
        return plot_design(self.table, self.knobs, path, [self.recipe.path])

    def report(self, path: PathLike) -> Path:
        """Writes one page for a browser with the targets, the knobs, the warnings and the figure of plot().

        Needs jinja2; the figure needs matplotlib and is left out without it.

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
            If jinja2 is missing.
        TypeError
            If path is not a path.
        ValueError
            If path is the recipe or not a regular file.
        OSError
            If the page can't be written.
        """
        return write_report(self.table, self.knobs, self.warnings, self.runs, self.recipe.path, path)

    def __repr__(self) -> str:
        met = int(self.table.met.sum())
        return f"<Design, {met} of {len(self.table)} targets reached, {runs_text(self.runs)}>"

    def __str__(self) -> str:
        return "\n".join([design_text(self), *self.warnings])


class DesignInterrupted(KeyboardInterrupt):
    """Raised by design() after an interrupt: a KeyboardInterrupt that has the best so far.

    Attributes
    ----------
    design : Design
        The result with the best of the runs so far.
    """

    def __init__(self, best: Design) -> None:
        super().__init__("the design was interrupted")
        self.design = best


def design(
    recipe: RecipeLike,
    targets: Mapping[str, Any] | PathLike,
    *,
    max_runs: int = 300,
    time_limit: float | None = None,
    timeout: float | None = 60.0,
    out: PathLike | None = None,
    workers: int | None = None,
    executor: Executor | None = None,
    progress: bool = False,
    check: bool = True,
) -> Design:
    """Finds values of a recipe's knobs with which its layers reach given targets.

    All runs use the staged scheme. Needs scipy; PyYAML for targets in a file, pint for units.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe: the starting point.
    targets : mapping or path
        A mapping with the keys layers, limits and prefer, or the path of a YAML file with them, as docs/designing.md
        describes. layers is a list of mappings: layer (a name, the path of a stage, or the number of a layer),
        quantities with their targets, and by, the knobs. limits has a pair for each knob, prefer "high" or "low" for
        V/III or a knob. Numbers can have units, as in "2 um".
    max_runs : int, optional
        Largest number of simulations, at least 1.
    time_limit : float, optional
        No new runs are started after this time, s; None: no limit.
    timeout : float, optional
        Time limit of one run, s; None: no limit.
    out : path, optional
        Folder for the files of the runs. Recipes that it has results of are not run again, also for other targets.
        None: the files are deleted. Required with an executor.
    workers, executor : optional
        As for sweep().
    progress : bool, optional
        True: show a progress line if standard error is a terminal.
    check : bool, optional
        True: if `vorlen check` has warnings about the recipe, issue one RecipeWarning before the runs, with the first
        three. The recipes of the runs are not checked, the designed recipe always is: what `vorlen check` finds in it,
        but not in the given one, is in the warnings of the result.

    Returns
    -------
    Design
        The recipe, and tables of targets and knobs. If targets are out of reach, the best compromise, and warnings
        that explain why.

    Raises
    ------
    TypeError
        If an argument has a wrong type. Nothing was run.
    ValueError
        If a layer, a quantity or a knob is unknown or ambiguous, a unit does not fit, or limits are impossible.
        Nothing was run.
    RecipeError
        If the recipe is not well-formed XML or not a recipe.
    ImportError
        If scipy, or a package that targets need, is missing.
    OSError
        If a file can't be read, or the folder can't be written or has files of something else.
    BusyError
        If another design is running in out.
    SimulationError
        If the recipe fails, and with other values of the knobs too, or runs have no result for a reason other than the
        recipe.
    DesignInterrupted
        After Ctrl-C, if at least one run has succeeded; its attribute design is the best so far.
    """
    import scipy.optimize  # noqa: F401  # reports that it is missing before anything runs

    check_timeout(timeout)
    check_flags(progress=progress, check=check)
    if isinstance(max_runs, bool) or not isinstance(max_runs, int) or max_runs < 1:
        raise ValueError(f"max_runs must be a positive integer, got {max_runs!r}")
    if time_limit is not None:
        check_number(time_limit, "time_limit must be a positive number of seconds, or None for no limit", 0.0)
    executor = given_executor(workers, executor, out)
    base = given_recipe(recipe, STAGED)
    spec = read_spec(base, targets)
    if check:
        warn_about(base.to_bytes(), base.path)
    with design_folder(out) as folder, pool_of(workers, executor) as pool:
        model = DesignModel(
            base, spec, folder=folder, executor=pool, timeout=timeout, time_limit=time_limit, max_runs=max_runs,
            progress=progress,
        )
        try:
            return _search(model, recipe)
        except KeyboardInterrupt as interrupt:
            model.close()  # ends the progress line
            again = "to keep the runs, name a folder (out, --out)" if out is None else "to continue, repeat the call"
            print(f"design interrupted after {runs_text(model.runs)}; {again}", file=sys.stderr)
            if all(outcome.text for outcome in model.known.values()):
                raise
            notes = ["the search is not complete: it was interrupted"]
            raise DesignInterrupted(_result(model, np.array(model.best()), notes)) from interrupt
        finally:
            model.close()


def _search(model: DesignModel, recipe: RecipeLike) -> Design:
    spec = model.spec
    start = snapped(model, np.array([min(max(0.0, knob.low), knob.high) for knob in spec.knobs]))
    start[spec.hints.start :] = 0.0  # limits are for knobs: these temperatures stay
    notes = [
        f"{knob.label} is {knob_text(knob.shown(0.0))} in the recipe, outside of its limits; the search starts inside"
        for knob, variable in zip(spec.knobs, start) if abs(variable) > 1e-9
    ]
    notes += _model_notes(model)
    try:
        x, outcome = first_point(model, start)
        if not outcome.text:
            search = solve(model, outcome, x.copy())
            if not search.close.all():
                retreat(search, start)
            x = search.x
            notes = [*reasons(search, _uncomputed(model)), *_preference_notes(spec), *notes]
    except LimitReached as limit:
        x = np.array(model.best())
        notes = [f"the search is not complete: {limit}", *notes]
    failure = next(iter(model.known.values())).text
    if model.known[tuple(float(value) for value in x)].text:
        raise SimulationError(failure, recipe)
    if failure:
        notes.append(f"the recipe fails: {failure}; the search started from other values of its knobs")
    given = None
    if np.any(np.abs(start) > 1e-9):
        with contextlib.suppress(LimitReached):
            (given,) = model.at([np.zeros_like(start)], "recipe")
    return _result(model, x, notes, given)


def _preference_notes(spec: Spec) -> list[str]:
    spare = any(len(knobs) > len(targets) for targets, knobs in spec.groups)
    bounds = any(target.bound for target in spec.targets)
    if spec.preferences and not (spare or bounds):
        return ["prefer has no effect: no layer has more knobs than targets"]
    knobs = [V_III, *(knob.name for knob in spec.knobs[: spec.hints.start])]
    return [f"prefer {name} has no effect: {name} is not a knob" for name in spec.preferences if name not in knobs]


def _model_notes(model: DesignModel) -> list[str]:
    """Targets that the recipe can't have, whatever its knobs are."""
    stress = model.recipe.get("stress/model")
    notes = [
        f"{model.spec.targets[row].label}: the stress model of the recipe, {stress}, does not compute them; "
        f"{RELAXING} does" for row in _uncomputed(model)
    ]
    for name in dict.fromkeys(target.layer for target in model.spec.targets if _grows_by_itself(model, target)):
        notes.append(f"no metals flow in {name}: it can only grow from residues in the gas and on the surface")
    return notes


def _uncomputed(model: DesignModel) -> list[int]:
    """Targets that the stress model does not compute, by their places."""
    if model.recipe.get("stress/model") == RELAXING:
        return []
    return [row for row, target in enumerate(model.spec.targets) if target.quantity.name in ("dislocations", "V-defects")]


def _grows_by_itself(model: DesignModel, target: Target) -> bool:
    """True for a target of growth in a layer without flows of metals, neither in the recipe nor among the knobs."""
    if not target.evaporation or target.bound == "at most":
        return False
    paths = {f"{stage}/gas_species/Q/{metal}" for stage in target.stages for metal in METALS}
    if any(paths & set(knob.paths) for knob in model.spec.knobs):
        return False
    return not any(np.any(model.recipe.get(path, 0.0)) for path in paths)


def _result(model: DesignModel, x: Array, notes: list[str], given: Outcome | None = None) -> Design:
    """given: what the recipe grows, if its knobs are outside of their limits; None: the first run is that."""
    spec = model.spec
    notes = [*notes, *_new_findings(model, x)]
    first, last = next(iter(model.known.values())), model.known[tuple(float(value) for value in x)]
    met = model.deviations(last) <= 1.0
    knobs = [(knob, float(value)) for knob, value in zip(spec.knobs, x)][: spec.hints.start]
    table = pd.DataFrame(
        {
            "layer": [target.layer for target in spec.targets],
            "quantity": [target.quantity.name for target in spec.targets],
            "unit": [target.quantity.unit for target in spec.targets],
            "bound": [target.bound for target in spec.targets],
            "target": [target.value for target in spec.targets],
            "start": (given or first).values,
            "reached": last.values,
            "tolerance": [target.tolerance for target in spec.targets],
            "met": met,
            "knobs": [_knobs_text(spec, row, knobs) for row in range(len(spec.targets))],
        }
    )
    return Design(
        recipe=model.recipe_at(x), table=table, knobs=_knob_table(spec, knobs), history=_history(model),
        success=bool(met.all()), warnings=notes, runs=model.runs,
    )


def _new_findings(model: DesignModel, x: Array) -> list[str]:
    """What `vorlen check` finds in the designed recipe, but not in the given one."""
    found = new_findings(model.recipe.to_bytes(), model.recipe_at(x).to_bytes())
    return [f"check of the designed recipe: {one.named_sentence(False)}" for one in found]


def _knobs_text(spec: Spec, row: int, knobs: list[tuple[Knob, float]]) -> str:
    (places,) = (knobs_of for targets, knobs_of in spec.groups if row in targets)
    own = [place for place in places if knobs[place][0].layer == spec.targets[row].layer]
    shown = []
    for place in own or places:
        knob, variable = knobs[place]
        unit = f" {knob.unit}" if knob.unit else ""
        before, after = knob_text(knob.shown(0.0)), knob_text(knob.shown(variable))
        followers = names_of(spec.neighbours, place)
        also = f" (with {', '.join(followers)})" if followers else ""
        shown.append(f"{knob.name_for(spec.targets[row].layer)} {before} \u2192 {after}{unit}{also}")
    return ", ".join(shown)


def _knob_table(spec: Spec, knobs: list[tuple[Knob, float]]) -> pd.DataFrame:
    records = []
    for place, (knob, variable) in enumerate(knobs):
        at = "high" if knob.high - variable < 1e-3 else "low" if variable - knob.low < 1e-3 else ""
        records.append((
            knob.owner, knob.name, knob.unit, knob.shown(0.0), knob.shown(variable), *knob.limits,
            not knob.default_limits, at, knob.paths[0],
            ", ".join(names_of(spec.neighbours, place)),
        ))
    columns = ["layer", "knob", "unit", "before", "after", "low", "high", "limited", "at_limit", "path", "followers"]
    return pd.DataFrame(records, columns=columns)


def _history(model: DesignModel) -> pd.DataFrame:
    spec = model.spec
    records = []
    for (point, outcome), kind in zip(model.known.items(), model.kinds):
        knobs = {knob.label: knob.shown(value) for knob, value in zip(spec.knobs[: spec.hints.start], point)}
        targets = {target.label: value for target, value in zip(spec.targets, outcome.values)}
        records.append({"kind": kind, **knobs, **targets, "text": outcome.text})
    return pd.DataFrame(records, index=pd.RangeIndex(len(records), name="run"))


def runs_text(count: int) -> str:
    return f"{count} run{'' if count == 1 else 's'}"


def design_text(made: Design) -> str:
    """The table for a terminal."""
    shown = made.table.assign(
        target=[
            "none" if row.quantity == "V-defects" else f"{row.bound} {row.target:g}".strip()
            for row in made.table.itertuples()
        ],
        start=[f"{value:.5g}" for value in made.table.start],
        reached=[f"{value:.5g}" for value in made.table.reached],
        met=["yes" if met else "no" for met in made.table.met],
    )
    columns = ["layer", "quantity", "target", "start", "reached", "unit", "met", "knobs"]
    lines = [columns, *shown[columns].astype(str).values.tolist()]
    widths = [max(len(line[column]) for line in lines) for column in range(len(columns))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)
