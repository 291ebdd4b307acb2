"""What a recipe states over time: temperature, pressure, flows and their ratio V/III, as curves of the charts."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array

METALS = ("TMIn", "TMGa", "TEGa", "TMAl")
GASES = ("N2", "H2", "NH3")
POINTS = 17  # of a stage in which something is ramped: V/III and all curves over height are not straight there
STAGES_MAX = 10000  # more are thinned


class RecipeCurves(NamedTuple):
    """Values that the recipe states, with points at both ends of each simulated stage. NaN: not stated."""

    times: Array  # s
    temperature: Array  # K
    pressure: Array  # Pa
    flows: dict[str, Array]  # sccm, by gas
    ratio: Array  # V/III, ammonia by all metal precursors; NaN where no metal flows


def recipe_curves(timeline: pd.DataFrame | None, last: float) -> RecipeCurves | None:
    """The curves of a recipe up to the time of the last row [s]; None if it is unknown or no stage was reached."""
    if timeline is None:
        return None
    stages = timeline[(timeline["kind"] == "active") & (timeline["begin"] < last) & (timeline["duration"] > 0)]
    if stages.empty:
        return None
    if len(stages) > STAGES_MAX:
        stages = stages.iloc[np.unique(np.linspace(0, len(stages) - 1, STAGES_MAX).astype(int))]
    names = ["T", "P", *METALS, *GASES]
    begins, ends = (_table(stages, names, when) for when in ("begin", "end"))
    ramped = (begins != ends).any(axis=1)
    starts, durations = stages["begin"].to_numpy(float), stages["duration"].to_numpy(float)
    reach = np.minimum((last - starts) / durations, 1.0)  # the last stage of a failed run ends early
    counts = np.where(ramped, POINTS, 2)
    stage = np.repeat(np.arange(len(stages)), counts)
    share = np.concatenate([np.linspace(0.0, 1.0, count) for count in counts]) * reach[stage]
    values = begins[stage] + share[:, np.newaxis] * (ends[stage] - begins[stage])
    flows = dict(zip(names[2:], values[:, 2:].T))
    metals = np.nansum([flows[name] for name in METALS], axis=0)
    with np.errstate(divide="ignore", invalid="ignore"):
        ratio = np.where(metals > 0.0, flows["NH3"] / metals, np.nan)
    return RecipeCurves(starts[stage] + share * durations[stage], values[:, 0], values[:, 1], flows, ratio)


def _table(stages: pd.DataFrame, names: list[str], when: str) -> Array:
    columns = [f"{name}_{when}" for name in names]
    return np.column_stack([
        stages[column].to_numpy(float) if column in stages else np.full(len(stages), np.nan) for column in columns
    ])
