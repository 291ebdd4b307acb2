"""The solver of designs: least squares with bounds for targets that fall into nearly independent groups.

1. Gauss-Newton steps by groups, in steps.py.
2. Groups that stop short of their targets get new starts from a Sobol sequence over their knobs. If a group has one
   target, and there are points on both sides of it, Brent's method finds it between them, however steep it is there.
3. What is still open goes to scipy's trust-region method for all knobs, with separate differences for each.
4. If there are more knobs than targets and a preference, linear programmes move along the solutions.
"""

from __future__ import annotations

import numpy as np

from .._base.types import Array, Mask
from .model import CLOSE, DesignModel, Outcome, violation_norm, violations
from .prefer import preference_of
from .steps import (
    DAMPING,
    FAILED,
    LARGEST_RADIUS,
    STEP,
    Group,
    Search,
    evaluate_here,
    full_derivatives,
    is_close,
    newton,
    snapped,
)

SAMPLES = {1: 3, 2: 4}  # logarithm to base 2 of their number, by the number of knobs
MOST_SAMPLES = 5
SEED = 1  # of the Sobol sequence: a design gives the same result each time
STARTS = 2  # from the best samples
OTHER_STARTS, START_RADIUS = 3, 2.5  # logarithm to base 2 of their number if the first run fails, and their distance
SAME = 0.01  # relative difference of deviations
AT_LIMIT = 0.01  # distance of a variable from its limit, below which it is there
TENTH = 0.1  # of a variable: a change for which effects are compared
SMALL_EFFECT = 0.02  # of what is missing or of the value: knobs with less effect are left out
FINAL_STEPS = 8  # of scipy's method
BRACKET_STEPS = 40  # of Brent's method
PREFERENCE_STEPS = 12
PREFERENCE_RADIUS = 0.6
PREFERENCE_GAIN = 0.01  # smallest gain of a step


def solve(model: DesignModel, start: Outcome, x: Array) -> Search:
    """Searches from x, whose outcome is start. Raises LimitReached when no more runs are allowed."""
    spec = model.spec
    groups = [Group(np.array(targets), np.array(knobs)) for targets, knobs in spec.groups]
    jacobian = np.zeros((len(spec.targets), len(spec.knobs)))
    search = Search(
        model, x, start.coordinates.copy(), is_close(model, start), jacobian, groups,
        low=np.array([knob.low for knob in spec.knobs]), high=np.array([knob.high for knob in spec.knobs]),
    )
    for place in spec.hints:
        search.low[place] = search.high[place] = search.x[place]
    newton(search)
    if not search.close.all():
        explore(search)
        bracket(search)
    if not search.close.all():
        refine(search)
    if not search.close.all():
        settle(search)
    if search.close.all() and spec.preferences:
        follow_preferences(search)
    return search


def first_point(model: DesignModel, x: Array) -> tuple[Array, Outcome]:
    """x and its outcome. If its run fails, the best of several points around it; if all fail, one that fails."""
    from scipy.stats import qmc

    (outcome,) = model.at([x], "start")
    if not outcome.text:
        return x, outcome
    low = np.array([max(knob.low, value - START_RADIUS) for knob, value in zip(model.spec.knobs, x)])
    high = np.array([min(knob.high, value + START_RADIUS) for knob, value in zip(model.spec.knobs, x)])
    shares = qmc.Sobol(len(x), scramble=True, seed=SEED).random_base2(OTHER_STARTS)
    points = [snapped(model, low + share * (high - low)) for share in shares]
    for point in points:
        point[model.spec.hints.start :] = x[model.spec.hints.start :]
    model.at(points, "start")
    best = model.best()
    return np.array(best), model.known[best]


# ---- step 2


def explore(search: Search) -> None:
    """New starts for the groups that have not reached their targets; the best of all points is kept."""
    from scipy.stats import qmc

    model = search.model
    open_groups = [group for group in search.groups if not search.reached(group)]
    sampled = {id(group): _sampled_knobs(model, group) for group in open_groups}
    open_groups = [group for group in open_groups if len(sampled[id(group)])]
    if not open_groups:
        return
    widest = max(len(places) for places in sampled.values())
    shares = qmc.Sobol(widest, scramble=True, seed=SEED).random_base2(SAMPLES.get(widest, MOST_SAMPLES))
    points = []
    for share in shares:
        point = search.x.copy()
        for group in open_groups:
            places = sampled[id(group)]
            point[places] = search.low[places] + share[: len(places)] * (search.high[places] - search.low[places])
        points.append(snapped(model, point))
    outcomes = model.at(points, "exploration")
    ranked = {id(group): _ranked(search, group, outcomes) for group in open_groups}
    for start in range(STARTS):
        before = (search.x.copy(), search.coordinates.copy(), search.close.copy(), search.jacobian.copy())
        pending = [group for group in open_groups if not search.reached(group) and start < len(ranked[id(group)])]
        if not pending:
            return
        for group in pending:
            chosen = ranked[id(group)][start]
            search.x[group.knobs] = points[chosen][group.knobs]
            _adjust_duration(search, group, outcomes[chosen])
            group.wake()
        evaluate_here(search)
        newton(search)
        if not search.close.all():
            norms = [(search.norm(group, before[1]), search.norm(group)) for group in pending]
            _keep_better(search, open_groups, before)
            if all(abs(new - old) < SAME * old for old, new in norms):
                return  # both ends are the same: it is the best there is


def _sampled_knobs(model: DesignModel, group: Group) -> Array:
    """Its knobs without durations, which thickness simply follows, and without integers."""
    knobs = model.spec.knobs
    return np.array([place for place in group.knobs if knobs[place].name != "tau" and not knobs[place].is_integer], int)


def _follows_duration(search: Search, group: Group, row: int) -> bool:
    names = [search.model.spec.knobs[place].name for place in group.knobs]
    return "tau" in names and search.model.spec.targets[row].quantity.name == "thickness"


def _ranked(search: Search, group: Group, outcomes: list[Outcome]) -> list[int]:
    """Samples from the best down, by targets that durations do not set."""
    rows = [row for row in group.targets if not _follows_duration(search, group, row)] or list(group.targets)
    scores = [
        np.inf if outcome.text else float(np.linalg.norm(violations(search.model.spec, outcome.coordinates)[rows]))
        for outcome in outcomes
    ]
    return [int(place) for place in np.argsort(scores, kind="stable") if np.isfinite(scores[place])]


def _adjust_duration(search: Search, group: Group, outcome: Outcome) -> None:
    """Changes the duration in proportion to the thickness that is missing."""
    knobs, targets = search.model.spec.knobs, search.model.spec.targets
    for row in group.targets:
        if _follows_duration(search, group, row) and outcome.values[row] > 0.0:
            missing = np.log(targets[row].value / outcome.values[row])
            for place in group.knobs:
                if knobs[place].name == "tau":
                    search.x[place] = np.clip(search.x[place] + missing, search.low[place], search.high[place])
            return


def _keep_better(search: Search, groups: list[Group], before: tuple[Array, Array, Mask, Array]) -> None:
    """Returns to the old point for groups that were better there."""
    x, coordinates, close, jacobian = before
    worse = [group for group in groups if search.norm(group) > search.norm(group, coordinates)]
    for group in worse:
        rows, columns = group.targets, group.knobs
        search.x[columns], search.coordinates[rows], search.close[rows] = x[columns], coordinates[rows], close[rows]
        search.jacobian[np.ix_(rows, columns)] = jacobian[np.ix_(rows, columns)]
    if worse:
        evaluate_here(search)


class _Reached(Exception):
    """The targets are reached: scipy's method can stop."""


def bracket(search: Search) -> None:
    """Groups of one target, on the line between the nearest two points on both sides of it."""
    from scipy.optimize import brentq

    model = search.model
    for group in [group for group in search.groups if len(group.targets) == 1 and not search.reached(group)]:
        (row,) = group.targets
        sides: tuple[list[Array], list[Array]] = ([], [])
        for key, outcome in model.known.items():
            if np.isfinite(outcome.values[row]):
                sides[bool(outcome.coordinates[row] > 0.0)].append(np.array(key)[group.knobs])
        pairs = [(low, high) for low in sides[0] for high in sides[1]]
        if not pairs:
            continue
        low, high = min(pairs, key=lambda pair: float(np.linalg.norm(pair[1] - pair[0])))

        def deviation(share: float, group: Group = group, low: Array = low, high: Array = high) -> float:
            x = search.x.copy()
            x[group.knobs] = low + share * (high - low)
            x = snapped(model, x)
            (outcome,) = model.at([x], "step")
            if is_close(model, outcome)[group.targets].all():
                search.x = x
                raise _Reached
            return float(outcome.coordinates[group.targets[0]])

        try:
            brentq(deviation, 0.0, 1.0, xtol=1e-9, maxiter=BRACKET_STEPS, disp=False)
        except _Reached:
            evaluate_here(search)
        except ValueError:
            pass  # the other groups have changed the signs, or a run fails there


# ---- step 3


def refine(search: Search) -> None:
    """scipy's least squares with bounds for all knobs but integers. The best of all points is kept."""
    from scipy.optimize import least_squares

    model, spec = search.model, search.model.spec
    free = np.array([place for place, knob in enumerate(spec.knobs) if not knob.is_integer], int)
    free = free[search.high[free] - search.low[free] > 1e-9]
    if not len(free):
        return

    def full(part: Array) -> Array:
        x = search.x.copy()
        x[free] = part
        return np.clip(x, search.low, search.high)

    def residual(part: Array) -> Array:
        (outcome,) = model.at([full(part)], "step")
        if not outcome.text and is_close(model, outcome).all():
            raise _Reached
        left = np.full(len(spec.targets), FAILED) if outcome.text else violations(spec, outcome.coordinates)
        return np.concatenate([left, DAMPING * (part - begin)])

    def jacobian(part: Array) -> Array:
        steps = [spec.knobs[place].difference(value, STEP) for place, value in zip(free, part)]
        points = [full(part + step * unit) for step, unit in zip(steps, np.eye(len(free)))]
        centre, *sides = model.at([full(part), *points], "derivative")
        columns = [
            np.zeros(len(spec.targets)) if side.text
            else (violations(spec, side.coordinates) - violations(spec, centre.coordinates)) / step
            for side, step in zip(sides, steps)
        ]
        return np.vstack([np.column_stack(columns), DAMPING * np.eye(len(free))])

    inside = 1e-6 * (search.high[free] - search.low[free])
    begin = np.clip(search.x[free], search.low[free] + inside, search.high[free] - inside)
    try:
        least_squares(
            residual, begin, jacobian, (search.low[free], search.high[free]), method="trf", x_scale=1.0, ftol=1e-3,
            xtol=1e-5, gtol=1e-8, max_nfev=FINAL_STEPS,
        )
    except _Reached:
        pass
    best = min(model.known, key=lambda key: _rank(search, key))
    search.x = np.array(best)
    search.coordinates = model.known[best].coordinates.copy()
    search.close, search.exact = is_close(model, model.known[best]), True


def _rank(search: Search, key: tuple[float, ...]) -> tuple[float, float]:
    """Groups that miss targets, and by how much: what one group can't reach must not cost another its targets."""
    outcome = search.model.known[key]
    if outcome.text:
        return np.inf, np.inf
    close = is_close(search.model, outcome)
    missed = sum(not close[group.targets].all() for group in search.groups)
    return missed, violation_norm(search.model.spec, outcome.coordinates)


def settle(search: Search) -> None:
    """Knobs that a target out of reach has driven to a limit stay there; the others serve the targets that are left.

    Targets that no knob affects are left out too.
    """
    stopped: list[int] = []
    for group in search.groups:
        for row in group.targets[~search.close[group.targets]]:
            places = stopped_knobs(search, group, int(row))
            stopped += places
            effects = effects_of(search, group, int(row))
            search.dropped[row] = bool(places) or not any(has_effect(search, int(row), effect) for effect in effects)
        group.wake()
    if not search.dropped.any():
        return
    before = search.x.copy()
    for place in stopped:
        upper = search.high[place] - search.x[place] < search.x[place] - search.low[place]
        search.x[place] = search.low[place] = search.high[place] = search.high[place] if upper else search.low[place]
    evaluate_here(search)
    newton(search)
    (missed, norm), (missed_before, norm_before) = (search.model.rank(map(float, x)) for x in (search.x, before))
    if missed >= missed_before and norm > (1.0 + SAME) * norm_before:
        search.x = before
        evaluate_here(search)


def stopped_knobs(search: Search, group: Group, row: int) -> list[int]:
    """The knobs that could bring a target closer if they were not at a limit."""
    knobs, missing = search.model.spec.knobs, missing_of(search, row)
    found = []
    for place, effect in zip(group.knobs, effects_of(search, group, row)):
        if has_effect(search, row, effect):
            at_high = knobs[place].high - search.x[place] < AT_LIMIT
            at_low = search.x[place] - knobs[place].low < AT_LIMIT
            if (at_high and effect * missing > 0.0) or (at_low and effect * missing < 0.0):
                found.append(int(place))
    return found


def effects_of(search: Search, group: Group, row: int) -> list[float]:
    """What a tenth of each knob of a group adds to a target: in its unit, for V-defects on the scale of the solver."""
    knobs = search.model.spec.knobs
    steps = [knobs[place].difference(search.x[place], STEP) for place in group.knobs]
    points = [search.x + step * unit for step, unit in zip(steps, np.eye(len(search.x))[group.knobs])]
    centre, *sides = search.model.at([search.x, *points], "derivative")
    values = [_value_of(search, row, outcome) for outcome in (centre, *sides)]
    return [TENTH * (value - values[0]) / step for value, step in zip(values[1:], steps)]


def missing_of(search: Search, row: int) -> float:
    """What is missing to a target at the point, in the same unit; the point must have been run."""
    target = search.model.spec.targets[row]
    here = _value_of(search, row, search.model.known[tuple(float(value) for value in search.x)])
    return -here if target.quantity.name == "V-defects" else target.value - here


def _value_of(search: Search, row: int, outcome: Outcome) -> float:
    is_density = search.model.spec.targets[row].quantity.name == "V-defects"
    return float((outcome.coordinates if is_density else outcome.values)[row])


def has_effect(search: Search, row: int, effect: float) -> bool:
    """False for a knob that hardly changes a target."""
    target = search.model.spec.targets[row]
    missing = missing_of(search, row)
    if target.quantity.name == "V-defects":
        return abs(effect) > min(1.0, SMALL_EFFECT * abs(missing))
    present = abs(target.value - missing)
    return abs(effect) > min(target.tolerance, SMALL_EFFECT * abs(missing), SMALL_EFFECT * present)


# ---- step 4


def follow_preferences(search: Search) -> None:
    """Moves along the solutions, as far as the preferences gain; linear programmes with a trust region."""
    from scipy.optimize import linprog

    model = search.model
    radius = PREFERENCE_RADIUS
    value = preference_of(model, search.x)
    for _ in range(PREFERENCE_STEPS):
        full_derivatives(search)
        units = 1e-4 * np.eye(len(search.x))
        gradient = np.array([(preference_of(model, search.x + unit) - value) / 1e-4 for unit in units])
        low = np.maximum(search.low - search.x, -radius)
        high = np.minimum(search.high - search.x, radius)
        one_sided = np.array([bool(target.bound) for target in model.spec.targets])
        below = -search.coordinates + CLOSE
        above = np.where(one_sided, np.inf, search.coordinates + CLOSE)
        rows = np.vstack([search.jacobian, -search.jacobian[~one_sided]])
        limits = np.concatenate([below, above[~one_sided]])
        found = linprog(-gradient, rows, limits, bounds=np.column_stack([low, high]), method="highs")
        if not found.success or gradient @ found.x < PREFERENCE_GAIN:
            return
        trial = _corrected(search, snapped(model, np.clip(search.x + found.x, search.low, search.high)))
        gained = preference_of(model, trial.x) - value
        if trial.close.all() and gained > 0.5 * PREFERENCE_GAIN:
            search.x, search.coordinates, search.close = trial.x, trial.coordinates, trial.close
            value += gained
            radius = min(2.0 * radius, LARGEST_RADIUS)
        else:
            radius *= 0.3
            if radius < 0.02:
                return


def _corrected(search: Search, x: Array) -> Search:
    """The point after steps back to the targets from x."""
    (outcome,) = search.model.at([x], "step")
    groups = [Group(group.targets, group.knobs, stale=False) for group in search.groups]
    trial = Search(
        search.model, x, outcome.coordinates.copy(), is_close(search.model, outcome), search.jacobian.copy(), groups,
        low=search.low, high=search.high,
    )
    if not outcome.text:
        newton(trial)
    return trial
