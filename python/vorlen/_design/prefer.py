"""Preferences of a design: what to make large or small among several solutions. They need no simulation."""

from __future__ import annotations

import math
from typing import Any

import numpy as np

from .._base.types import Array
from .model import DesignModel
from .targets import V_III

METALS = ("TMIn", "TMGa", "TEGa", "TMAl")


def preference_of(model: DesignModel, x: Array) -> float:
    """The sum of the preferences: logarithms of V/III, durations, flows, pressures; temperatures by 40 K."""
    total = 0.0
    knobs = model.spec.knobs
    for name, sign in model.spec.preferences.items():
        if name == V_III:
            total += sign * _log_v_iii(model, x)
        else:
            hints = model.spec.hints
            total += sign * sum(float(x[place]) for place in range(hints.start) if knobs[place].name == name)
    return total


def _log_v_iii(model: DesignModel, x: Array) -> float:
    """The mean logarithm of V/III, over the stages of the targets in which both flow."""
    changed = model.values_of(x)
    stages = dict.fromkeys(stage for target in model.spec.targets for stage in target.stages)
    found = []
    for stage in stages:
        ammonia, *metals = (_mean_flow(model, changed, f"{stage}/gas_species/Q/{name}") for name in ("NH3", *METALS))
        if ammonia > 0.0 and sum(metals) > 0.0:
            found.append(math.log(ammonia / sum(metals)))
    return float(np.mean(found)) if found else 0.0


def _mean_flow(model: DesignModel, changed: dict[str, Any], path: str) -> float:
    value = changed.get(path, model.recipe.get(path, 0.0))
    return float(np.mean(value))
