"""Why a target of a design is out of reach, in words."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from .knobs import Knob
from .model import LimitReached, Outcome
from .quantities import Target
from .solver import AT_LIMIT, effects_of, has_effect, stopped_knobs
from .steps import Search

HINT = -0.25  # variable of a temperature 10 K lower
HINT_GAIN = 0.05  # share of what is missing that it must bring


def reasons(search: Search, explained: Sequence[int] = ()) -> list[str]:
    """A text for each target that is not reached. explained: places of targets with another text."""
    model, spec = search.model, search.model.spec
    outcome = model.known[tuple(float(value) for value in search.x)]
    missed = np.setdiff1d(np.flatnonzero(model.deviations(outcome) > 1.0), explained)
    if not len(missed):
        return []
    try:
        return [_reason(search, int(row), outcome) for row in missed]
    except LimitReached:
        so_far = "was reached, and the search is not complete"
        return [_missed(spec.targets[row], outcome.values[row], so_far) for row in missed]


def _missed(target: Target, value: float, found: str = "is the best within the limits") -> str:
    unit = f" {target.quantity.unit}" if target.quantity.unit else ""
    if target.quantity.name == "V-defects":
        return f"V-defects open in {target.layer}: {value:.3g} cm^-2 {found}"
    if np.isnan(value):
        missing = "the composition makes no step there" if "interface" in target.quantity.name else "nothing grows"
        return f"{target.label} is undefined, as {missing}; the target is {target.goal}{unit}"
    loss = ", as more evaporates than grows," if target.quantity.scale == "log" and value <= 0.0 else ""
    return f"{target.label}: {value:.4g}{unit}{loss} {found}, the target is {target.goal}{unit}"


def _reason(search: Search, row: int, outcome: Outcome) -> str:
    spec = search.model.spec
    target = spec.targets[row]
    group = next(group for group in search.groups if row in group.targets)
    text = _missed(target, outcome.values[row])
    if np.isnan(outcome.values[row]):
        return text
    effects = dict(zip(group.knobs, effects_of(search, group, row)))
    effective = [place for place in group.knobs if has_effect(search, row, effects[place])]
    stopped = stopped_knobs(search, group, row)
    if not effective:
        names = " and ".join(spec.knobs[place].name_for(target.layer) for place in group.knobs)
        changes = ", ".join(_effect(spec.knobs[place], effects[place], target) for place in group.knobs)
        text += f". Hardly affected by {names} there: {changes}"
    elif stopped:
        text += ". " + "; ".join(_at_limit(spec.knobs[place], search.x[place], target) for place in stopped)
        text += "; " + ", ".join(_effect(spec.knobs[place], effects[place], target) for place in stopped)
    elif any(spec.knobs[place].is_integer for place in effective):
        whole = next(spec.knobs[place] for place in effective if spec.knobs[place].is_integer)
        text += f". The number of periods is an integer, {whole.shown(search.x[list(spec.knobs).index(whole)])}"
        if len(effective) > 1:
            text += ", and the other knobs also set other targets"
    elif len(group.targets) > 1:
        names = ", ".join(spec.knobs[place].name_for(target.layer) for place in effective)
        others = ", ".join(spec.targets[place].label for place in group.targets if place != row)
        text = _missed(target, outcome.values[row], "is part of the best compromise")
        text += f". {_counted(len(group.targets), 'target')} share {_counted(len(group.knobs), 'knob')}: {names} also "
        return text + f"{'sets' if len(effective) == 1 else 'set'} {others}"
    else:
        text += ". The search found no better value of its knobs"
    return text + _hint(search, row)


def _counted(number: int, what: str) -> str:
    return f"{number} {what}{'' if number == 1 else 's'}"


def _at_limit(knob: Knob, variable: float, target: Target) -> str:
    upper = knob.high - variable < AT_LIMIT
    limit = knob.limits[1] if upper else knob.limits[0]
    unit = f" {knob.unit}" if knob.unit else ""
    default = ", a default that limits: can widen" if knob.default_limits else ""
    return f"{knob.name_for(target.layer)} is at its {'upper' if upper else 'lower'} limit {limit:.5g}{unit}{default}"


def _effect(knob: Knob, effect: float, target: Target) -> str:
    """Such as "10 % more TMIn changes it by about +0.0004"."""
    more = f"{'4 K' if knob.name == 'T' else '10 %'} more {knob.name_for(target.layer)}"
    if target.quantity.name == "V-defects":
        return f"{more} {'raises' if effect > 0.0 else 'lowers'} them"
    unit = f" {target.quantity.unit}" if target.quantity.unit else ""
    return f"{more} changes it by about {effect:+.2g}{unit}"


def _hint(search: Search, row: int) -> str:
    """What 10 K less would do for a layer that evaporates."""
    model, spec = search.model, search.model.spec
    target = spec.targets[row]
    places = [place for place in spec.hints if spec.knobs[place].layer == target.layer]
    if not target.evaporation or not places or not spec.knobs[places[0]].low <= HINT <= spec.knobs[places[0]].high:
        return ""  # the last: the limits exclude it
    if target.quantity.scale == "log" and model.known[tuple(float(value) for value in search.x)].values[row] <= 0.0:
        return f". {target.evaporation}: add T to its knobs"
    point = search.x.copy()
    point[places[0]] = HINT
    try:
        (outcome,) = model.at([point], "hint")
    except LimitReached:
        return ""
    missing = abs(search.coordinates[row])
    if outcome.text or not abs(outcome.coordinates[row]) < min((1.0 - HINT_GAIN) * missing, missing - 1.0):
        return ""
    unit = f" {target.quantity.unit}" if target.quantity.unit else ""
    return f". {target.evaporation}: 10 K lower it would be {outcome.values[row]:.3g}{unit}; add T to its knobs"


def knob_text(value: Any) -> str:
    """A knob's value for tables."""
    if isinstance(value, tuple):
        return f"{value[0]:.5g} to {value[1]:.5g}"
    return f"{value:.5g}"
