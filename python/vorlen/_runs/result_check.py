"""Whether the rows of a result are physical, and where in the process a run failed.

tools/results/result_check.cpp gives the same texts. Stages are found by time. A row at the boundary of two stages
belongs to the first, but a run that ended there could not start the second.
"""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import TYPE_CHECKING, NamedTuple

import numpy as np

from .._base.types import Mask
from .result_file import COLUMN_NAMES, COLUMNS, TIME_TOLERANCE

if TYPE_CHECKING:
    import pandas as pd

    from .._recipe.recipe import Recipe

FRACTIONS = ("x_in", "x_ga", "x_al")
FRACTION_MIN, FRACTION_MAX = -0.001, 1.001  # rounding errors of the integration are far smaller
# Rows are at least 1 ms apart, so the last one may be that much earlier than the failure.
LAST_ROW_GAP = 0.01  # s
LAST_ROW_GAP_SHARE = 0.01  # of the duration of the stage
NAME_SIZE_MAX = 100  # bytes; a longer name is left out

TEXTS_OF_INTEGRATION = (
    "Step size has become too small",
    "Maximum number of time steps reached",
    "Matrix is repeatedly singular",
    "State is not finite",
)

COLUMN_WORDS = {column.name: column.words for column in COLUMNS}


class Stage(NamedTuple):
    """A stage of the process as texts name it: "stage_2 (GaN cap)", "stage_1_3, period 2 (InGaN well)"."""

    begin: float  # s
    end: float  # s
    active: bool  # simulated
    label: str


def _label(element: str, name: str, number: int) -> str:
    if len(name.encode("utf-8", "surrogateescape")) > NAME_SIZE_MAX:
        return element
    shown = "".join(" " if ord(letter) < 32 or ord(letter) == 127 else letter for letter in name)
    return f"{element} ({shown or f'Layer{number}'})"


def stages_of_recipe(recipe: Recipe) -> list[Stage]:
    """Pre-stages, active stages and post-stages, periods expanded. Empty if the recipe would not run."""
    try:
        timeline = recipe.timeline()
    except (KeyError, ValueError):
        return []
    stages: list[Stage] = []
    grown: dict[str, int] = {}  # how often each stage has been grown
    for number, row in enumerate(timeline.itertuples(), 1):
        element = row.stage
        if row.path.count("/") > 1:
            grown[row.path] = grown.get(row.path, 0) + 1
            element += f", period {grown[row.path]}"
        stages.append(Stage(row.begin, row.end, row.kind == "active", _label(element, row.name, number)))
    return stages if all(math.isfinite(stage.end) for stage in stages) else []


def stages_of_layers(layers: pd.DataFrame) -> list[Stage]:
    """The same from Run.layers, if the recipe is unknown."""
    return [
        Stage(row.begin, row.end, row.kind == "active", _label(f"layer {row.Index}", row.name, row.Index))
        for row in layers.itertuples()
    ]


def _active_stage(stages: list[Stage], is_it: Callable[[Stage], bool]) -> Stage | None:
    """The first active stage for which is_it holds, else the last active one; None if there is none."""
    active = [stage for stage in stages if stage.active]
    return next(filter(is_it, active), active[-1] if active else None)


def _bad_values(profile: pd.DataFrame) -> Mask:
    """Which values are unphysical: NaN or infinity anywhere, in an active row a fraction outside of the limits."""
    values = profile[list(COLUMN_NAMES)].to_numpy()
    bad: Mask = ~np.isfinite(values)
    first, last = COLUMN_NAMES.index(FRACTIONS[0]), COLUMN_NAMES.index(FRACTIONS[-1]) + 1
    fractions = values[:, first:last]
    with np.errstate(invalid="ignore"):
        outside = (fractions < FRACTION_MIN) | (fractions > FRACTION_MAX)
    bad[:, first:last] |= outside & profile["active"].to_numpy()[:, None]
    return bad


def _stage_of_row(profile: pd.DataFrame, index: int, stages: list[Stage]) -> Stage | None:
    """The stage of a row; None if it is unknown.

    Pre- and post-stages have one pair of rows each: those of pre-stages come first, those of post-stages last.
    """
    active = profile["active"].to_numpy()
    if not active[index]:
        number = len(stages) - 1 - (len(active) - 1 - index) // 2 if active[:index].any() else index // 2
        return stages[number] if 0 <= number < len(stages) else None
    time = float(profile["time"].iloc[index])
    if not math.isfinite(time):
        return None
    slack = TIME_TOLERANCE * abs(time)
    return _active_stage(stages, lambda stage: stage.end >= time - slack)


def unphysical_text(profile: pd.DataFrame, stages: Callable[[], list[Stage]]) -> str:
    """One line on the unphysical rows: how many, the first one's time and stage, and what is wrong with it.

    Empty if there are none. stages is called only if there are.
    """
    bad = _bad_values(profile)
    rows = np.flatnonzero(bad.any(axis=1))
    if len(rows) == 0:
        return ""
    column = COLUMN_NAMES[int(np.argmax(bad[rows[0]]))]
    value, time = (float(profile[name].iloc[rows[0]]) for name in (column, "time"))
    shown = "NaN" if math.isnan(value) else "infinite" if math.isinf(value) else f"{value:.6g}"
    stage = _stage_of_row(profile, int(rows[0]), stages())
    return (
        f"Unphysical values in {len(rows)} of {len(profile)} rows, first at "
        f"{f'{time:.10g} s' if math.isfinite(time) else 'an unknown time'}"
        f"{f' in {stage.label}' if stage else ''}: {COLUMN_WORDS[column]} is {shown}"
    )


def looks_physical(rows: bytes) -> bool:
    """True if all rows, as written by the library, are physical; faster than parsing them.

    False is not conclusive, because the fractions of rows that were not simulated are examined too.
    """
    if b"n" in rows:  # of nan and inf
        return False
    words = rows.split()
    width = len(rows.partition(b"\n")[0].split())
    if width < len(COLUMN_NAMES) or len(words) % width != 0:
        return False
    columns = (COLUMN_NAMES.index(name) for name in FRACTIONS)
    try:
        fractions = [float(word) for column in columns for word in words[column::width]]
    except ValueError:
        return False
    return min(fractions) >= FRACTION_MIN and max(fractions) <= FRACTION_MAX


def is_text_of_integration(text: str) -> bool:
    """True if the library's text reports an integration that ended early, False for faults of a recipe or file."""
    return text.startswith(TEXTS_OF_INTEGRATION)


def end_text(profile: pd.DataFrame | None, stages: list[Stage]) -> str:
    """One line on an integration that ended early: the time of the last row and the stage."""
    time = math.nan if profile is None or profile.empty else float(profile["time"].iloc[-1])
    if not math.isfinite(time):
        return "The run ended before its first row"

    def ends_later(stage: Stage) -> bool:
        return stage.end > time + min(LAST_ROW_GAP, LAST_ROW_GAP_SHARE * (stage.end - stage.begin))

    stage = _active_stage(stages, ends_later)
    if stage is None:
        return f"The run ended at {time:.10g} s"
    at_start = time <= stage.begin + TIME_TOLERANCE * abs(time)
    return f"The run ended at {time:.10g} s{', at the start of' if at_start else ' in'} {stage.label}"


def remedy_text(scheme: str) -> str:
    """One line: what to do after a run that failed under this scheme."""
    if scheme == "staged":
        return "What to do: see docs/when-a-run-fails.md"
    return 'What to do: run it with --scheme staged (in Python: scheme="staged")'
