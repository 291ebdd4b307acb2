"""What the runs of a window say: the yield with its confidence interval, effects of each value, and sentences."""

from __future__ import annotations

import math
from collections.abc import Sequence
from statistics import NormalDist

import numpy as np
import pandas as pd

from .._base.types import Array
from .measured import DECIDED
from .quantities import Target
from .window_spread import Drift

CONFIDENCE = 0.95
SMALL = 0.1  # of the tolerance: smaller effects of one standard deviation are not mentioned
MAX_SENTENCES = 6
MAX_NAMED = 5  # runs named in a warning


def wilson(good: int, count: int) -> tuple[float, float]:
    """Wilson's score interval of a proportion, good of count, for 95 % confidence."""
    if count == 0:
        return 0.0, 1.0
    z = NormalDist().inv_cdf(0.5 + CONFIDENCE / 2.0)
    share = good / count
    middle = share + z * z / (2.0 * count)
    half = z * math.sqrt(share * (1.0 - share) / count + z * z / (4.0 * count * count))
    whole = 1.0 + z * z / count
    return (middle - half) / whole if good else 0.0, (middle + half) / whole if good < count else 1.0


def effects(targets: Sequence[Target], drifts: Sequence[Drift], pairs: Array) -> pd.DataFrame:
    """Central differences: what one standard deviation of each value changes in each target.

    pairs  values of all targets, for each drift below and above: drifts x 2 x targets; NaN where a run failed
    """
    records = []
    for drift, (below, above) in zip(drifts, pairs):
        for target, low, high in zip(targets, below, above):
            change = float(high - low) / 2.0
            share = abs(change) / target.allowed if target.allowed > 0.0 else math.nan
            records.append((
                drift.name, drift.shown_spread, drift.shown_unit, target.layer, target.quantity.name,
                target.quantity.unit, float(low), float(high), change, change / drift.shown_spread, share,
            ))
    columns = [
        "knob", "spread", "knob_unit", "layer", "quantity", "unit", "below", "above", "change", "derivative",
        "share_of_tolerance",
    ]
    return pd.DataFrame(records, columns=columns)


def target_table(targets: Sequence[Target], nominal: Array, values: Array, good: Array) -> pd.DataFrame:
    """A row for each target: nominal value, mean and standard deviation, and in how many of the runs it holds.

    values  runs x targets;  good  the same, whether they hold
    """
    records = []
    for place, target in enumerate(targets):
        known = values[np.isfinite(values[:, place]), place]
        spread = float(known.std(ddof=1)) if len(known) > 1 else math.nan
        records.append((
            target.layer, target.quantity.name, target.quantity.unit, target.bound, target.value, target.allowed,
            float(nominal[place]), float(known.mean()) if len(known) else math.nan, spread,
            float(good[:, place].mean()) if len(good) else math.nan,
        ))
    columns = ["layer", "quantity", "unit", "bound", "target", "tolerance", "nominal", "mean", "std", "held"]
    return pd.DataFrame(records, columns=columns)


def sentences(
    good: int, count: int, targets: pd.DataFrame, drifts: Sequence[Drift], found: pd.DataFrame
) -> list[str]:
    """The yield, the target that is missed most often, and the largest effects."""
    if not count:
        return ["No run was finished: the yield is unknown."]
    low, high = wilson(good, count)
    made = [
        f"All targets hold in {good} of {count} runs: yield {_percent(good / count)} "
        f"(95 % confidence: {100 * low:.1f} to {100 * high:.1f} %)."
    ]
    worst = targets.loc[targets.held.idxmin()]
    if worst.held < 1.0 and len(targets) > 1:
        held = _percent(worst.held)
        made.append(f"{worst.quantity} of {worst.layer} is missed most often: it holds in {held} of the runs.")
    large = found[(found.share_of_tolerance >= SMALL) | (found.share_of_tolerance.isna() & (found.change != 0.0))]
    large = large[np.isfinite(large.change)].sort_values("share_of_tolerance", ascending=False)
    texts = {drift.name: f"{drift.text} of {drift.label}" for drift in drifts}
    for row in large.head(MAX_SENTENCES).itertuples():
        verb = "raises" if row.change > 0.0 else "lowers"
        share = f", {100 * row.share_of_tolerance:.0f} % of its tolerance" if row.share_of_tolerance > 0.0 else ""
        made.append(
            f"+{texts[row.knob]} {verb} {row.quantity} of {row.layer} by "
            f"{_amount(abs(row.change), row.quantity, row.unit)}{share}."
        )
    quiet = [drift.label for drift in drifts if drift.name not in set(large.knob)]
    if quiet:
        share = f"{100 * SMALL:g} % of its tolerance"
        made.append(f"{', '.join(quiet)}: one standard deviation changes no target by {share}.")
    return made


def doubts(
    goals: Sequence[Target], nominal: Array, values: Array, statuses: Sequence[str], texts: Sequence[str]
) -> list[str]:
    """Targets that the recipe misses without deviations, and runs that failed, have no value or are missing.

    values  of all targets, runs x targets
    """
    notes = []
    for target, value in zip(goals, nominal):
        if math.isnan(value):
            notes.append(f"{target.label} has no value without deviations; every run without a value is a miss")
        elif not target.holds(value):
            text = f"is {value:.4g} without deviations and misses its target {target.goal}"
            notes.append(f"{target.label} {text}: design the recipe first")
    count = sum(status in DECIDED for status in statuses)
    failed = [number for number, status in enumerate(statuses) if status in DECIDED and status != "ok"]
    if failed:
        text = f"{len(failed)} of {count} runs failed and count as misses"
        notes.append(f"{text}: {_named(failed)}; the first: {texts[failed[0]]}")
    for place, target in enumerate(goals):
        values_of = zip(statuses, values[:, place])
        empty = [number for number, (status, value) in enumerate(values_of) if status == "ok" and math.isnan(value)]
        if empty:
            text = f"runs have no value of {target.label} and count as misses"
            notes.append(f"{len(empty)} of {count} {text}: {_named(empty)}")
    missing = [number for number, status in enumerate(statuses) if status == "missing"]
    if missing:
        text = "were not started within the time limit and do not count; the same call with the same folder continues"
        notes.append(f"{len(missing)} of {len(statuses)} runs {text}")
    lost = [number for number, status in enumerate(statuses) if status not in DECIDED and status != "missing"]
    if lost:
        text = "runs gave no result for a reason other than the recipe and do not count"
        notes.append(f"{len(lost)} {text}: {_named(lost)}; the first: {texts[lost[0]]}")
    return notes


def _named(numbers: Sequence[int]) -> str:
    """Such as "runs 3, 17 and 40": the index of the table."""
    shown = [str(number) for number in numbers[:MAX_NAMED]]
    if len(numbers) > MAX_NAMED:
        return f"runs {', '.join(shown)}, ..."
    return f"runs {', '.join(shown[:-1])} and {shown[-1]}" if len(shown) > 1 else f"run {shown[0]}"


def _percent(share: float) -> str:
    return f"{100 * share:.1f} %"


def _amount(change: float, quantity: str, unit: str) -> str:
    """A change in words: 1.6 points for fractions, 0.12 nm."""
    if quantity.partition(" ")[0] in ("In", "Ga", "Al"):
        return f"{100 * change:.2g} points"
    return f"{change:.2g}{f' {unit}' if unit else ''}"
