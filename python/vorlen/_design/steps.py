"""Gauss-Newton steps of a design by groups of targets and knobs that belong together.

The knobs of one group affect mainly its own targets, so the difference quotients of all groups are found together: one
run changes a knob of every group (coloured finite differences). Between them each block of the derivatives is kept up
to date by Broyden's update. Each group has its own trust region.
"""

from __future__ import annotations

from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from .._base.types import Array, Mask
from .model import CLOSE, DesignModel, Outcome, violations

STEP = 0.03  # of a variable, for differences
FIRST_RADIUS, LARGEST_RADIUS = 1.5, 4.0  # of a step
SMALLEST_STEP = 1e-6
STEPS_MAX = 20  # of step 1
DAMPING = 1.0  # tolerances per unit of a variable: of several solutions, the nearest one
POOR = 0.3  # of the predicted decrease: less than this, and derivatives are found again
SMALLEST_GAIN = 1e-3  # predicted decrease of the deviations, relative to them, below which a group rests
SMALLEST_DECREASE = 0.1  # the same in tolerances
REJECTIONS_MAX = 4
INTEGER_STEPS = 3  # after so many steps integers are kept
FAILED = 1e4  # coordinate of all targets where a run fails


@dataclass(eq=False)
class Group:
    """Targets and knobs that belong together, and the state of their search."""

    targets: npt.NDArray[np.int_]
    knobs: npt.NDArray[np.int_]
    radius: float = FIRST_RADIUS
    fresh: bool = False  # the derivatives are from differences at this point
    stale: bool = True
    rests: bool = False
    rejections: int = 0

    def wake(self) -> None:
        self.radius, self.stale, self.rests, self.rejections = FIRST_RADIUS, True, False, 0


@dataclass(eq=False)
class Search:
    """A point, its deviations and derivatives.

    exact    False: the deviations are from several runs, each for other groups
    dropped  targets that are out of reach and no longer count
    """

    model: DesignModel
    x: Array
    coordinates: Array
    close: Mask
    jacobian: Array
    groups: list[Group]
    exact: bool = True
    low: Array = field(default_factory=lambda: np.empty(0))
    high: Array = field(default_factory=lambda: np.empty(0))
    dropped: Mask = field(default_factory=lambda: np.empty(0, dtype=bool))

    def __post_init__(self) -> None:
        if not len(self.dropped):
            self.dropped = np.zeros(len(self.coordinates), dtype=bool)

    def norm(self, group: Group, coordinates: Array | None = None) -> float:
        return self.norm_of(group, (self.coordinates if coordinates is None else coordinates)[group.targets])

    def norm_of(self, group: Group, coordinates: Array) -> float:
        """Of coordinates of the group's targets."""
        left = np.where(self.one_sided(group), np.maximum(coordinates, 0.0), coordinates)
        return float(np.linalg.norm(left[~self.dropped[group.targets]]))

    def one_sided(self, group: Group) -> Mask:
        return np.array([bool(self.model.spec.targets[row].bound) for row in group.targets])

    def reached(self, group: Group) -> bool:
        return bool(np.all(self.close[group.targets] | self.dropped[group.targets]))


def is_close(model: DesignModel, outcome: Outcome) -> Mask:
    """True for each target that is reached with some margin, and for bounds that hold."""
    found: Mask = (model.deviations(outcome) <= CLOSE) | (np.abs(violations(model.spec, outcome.coordinates)) <= CLOSE)
    return found


def newton(search: Search) -> None:
    """Gauss-Newton steps until every group has reached its targets or rests."""
    for step in range(STEPS_MAX):
        moving = [group for group in search.groups if not search.reached(group) and not group.rests]
        if not moving:
            if search.exact:
                return
            evaluate_here(search)
            continue
        _difference(search, [group for group in moving if group.stale])
        if step == INTEGER_STEPS:
            _keep_integers(search)
        direction = np.zeros_like(search.x)
        for group in moving:
            direction[group.knobs] = _group_step(search, group)
        trial = snapped(search.model, np.clip(search.x + direction, search.low, search.high))
        direction = trial - search.x
        moved = [group for group in moving if np.max(np.abs(direction[group.knobs])) > SMALLEST_STEP]
        for group in moving:
            if group not in moved:
                group.rests, group.stale = group.fresh, True
                trial[group.knobs], direction[group.knobs] = search.x[group.knobs], 0.0
        if moved:
            (outcome,) = search.model.at([trial], "step")
            _accept(search, moved, trial, direction, outcome)
    if not search.exact:
        evaluate_here(search)


def _accept(search: Search, moved: list[Group], trial: Array, direction: Array, outcome: Outcome) -> None:
    """Takes the step for each group that it brings closer to its targets."""
    if outcome.text:
        for group in moved:
            _shrink(group, direction)
        return
    rejected = False
    close = is_close(search.model, outcome)
    for group in moved:
        rows, columns = group.targets, group.knobs
        d = direction[columns]
        predicted = search.coordinates[rows] + search.jacobian[np.ix_(rows, columns)] @ d
        before, after = search.norm(group), search.norm(group, outcome.coordinates)
        promised = before - search.norm_of(group, predicted)
        informative = np.abs(outcome.coordinates[rows]) < FAILED
        error = np.where(informative, outcome.coordinates[rows] - predicted, 0.0)
        search.jacobian[np.ix_(rows, columns)] += np.outer(error, d) / (d @ d)
        group.fresh = False
        if after < before:
            search.x[columns] = trial[columns]
            search.coordinates[rows], search.close[rows] = outcome.coordinates[rows], close[rows]
            group.radius = min(2.0 * group.radius, LARGEST_RADIUS)
            group.stale = before - after < POOR * promised
            group.rejections = 0
        else:
            rejected = True
            _shrink(group, direction)
    if rejected:
        search.exact = False
    else:
        search.coordinates, search.close, search.exact = outcome.coordinates.copy(), close.copy(), True


def _shrink(group: Group, direction: Array) -> None:
    group.radius = 0.25 * float(np.max(np.abs(direction[group.knobs])))
    group.stale = not group.fresh
    group.rejections += 1
    group.rests = group.rejections >= REJECTIONS_MAX


def evaluate_here(search: Search) -> None:
    """Replaces deviations from several runs by those of one run at the point."""
    (outcome,) = search.model.at([search.x], "step")
    if outcome.text:
        best = search.model.best()
        search.x, outcome = np.array(best), search.model.known[best]
    search.coordinates, search.close, search.exact = outcome.coordinates.copy(), is_close(search.model, outcome), True


def _difference(search: Search, groups: list[Group]) -> None:
    """Derivatives of these groups: run number k changes knob number k of each."""
    if not groups:
        return
    points, steps = [], []
    for colour in range(max(len(group.knobs) for group in groups)):
        point = search.x.copy()
        for group in groups:
            if colour < len(group.knobs):
                place = group.knobs[colour]
                point[place] += search.model.spec.knobs[place].difference(point[place], STEP)
        points.append(point)
        steps.append(point - search.x)
    outcomes = search.model.at(points, "derivative")
    for colour, (step, outcome) in enumerate(zip(steps, outcomes)):
        for group in groups:
            if colour < len(group.knobs):
                place = group.knobs[colour]
                if not outcome.text:
                    change = outcome.coordinates[group.targets] - search.coordinates[group.targets]
                    search.jacobian[group.targets, place] = change / step[place]
    for group in groups:
        group.stale, group.fresh = False, True


def _group_step(search: Search, group: Group) -> Array:
    """The step that least squares of the linear model give within limits and trust region; 0 if it gains nothing."""
    jacobian = search.jacobian[np.ix_(group.targets, group.knobs)]
    coordinates = search.coordinates[group.targets]
    x = search.x[group.knobs]
    low = np.maximum(search.low[group.knobs] - x, -group.radius)
    high = np.minimum(search.high[group.knobs] - x, group.radius)
    counts = ~search.dropped[group.targets]
    d = least_squares_step(jacobian[counts], coordinates[counts], search.one_sided(group)[counts], low, high)
    norm = search.norm(group)
    if norm - search.norm_of(group, jacobian @ d + coordinates) < max(SMALLEST_GAIN * norm, SMALLEST_DECREASE):
        return np.zeros_like(d)
    return d


def least_squares_step(jacobian: Array, coordinates: Array, one_sided: Mask, low: Array, high: Array) -> Array:
    """Minimises |J d + r|^2 + |damping d|^2 for low <= d <= high, where one-sided rows may be negative.

    Each of these gets a slack variable s >= 0: the row is J d + r + s.
    """
    from scipy.optimize import lsq_linear

    free = high - low > 1e-12
    found: Array = np.clip(np.zeros(len(low)), low, high)
    if not free.any():
        return found
    count, slacks = int(free.sum()), np.eye(len(coordinates))[:, one_sided]
    matrix = np.block([[jacobian[:, free], slacks], [DAMPING * np.eye(count), np.zeros((count, slacks.shape[1]))]])
    right = np.concatenate([-coordinates - jacobian[:, ~free] @ found[~free], np.zeros(count)])
    bounds = (
        np.concatenate([low[free], np.zeros(slacks.shape[1])]),
        np.concatenate([high[free], np.full(slacks.shape[1], np.inf)]),
    )
    solution = lsq_linear(matrix, right, bounds, method="bvls", max_iter=200)
    found[free] = solution.x[:count]
    return found


def snapped(model: DesignModel, x: Array) -> Array:
    return np.array([knob.snapped(value) for knob, value in zip(model.spec.knobs, x)])


def _keep_integers(search: Search) -> None:
    """No more steps of integers: the other knobs take what is left."""
    for place, knob in enumerate(search.model.spec.knobs):
        if knob.is_integer:
            search.low[place] = search.high[place] = search.x[place]


def full_derivatives(search: Search) -> None:
    """Derivatives of all groups at the point."""
    _difference(search, search.groups)
