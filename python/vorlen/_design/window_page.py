"""A process window as one page. Its layout is in assets/window.html and window.js."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._pages.numbers import MISSING, number
from .._pages.page import page, write_page
from .._recipe.recipe import Recipe
from .map import ProcessMap
from .map_page import goal_text, map_model

LEAST_BINS, MOST_BINS = 9, 31  # of a histogram; an odd number: one is centred at the nominal value
SMALLEST_RANGE = 1e-6  # of a histogram, of the nominal value
DIGITS = 7


def write_window(
    path: PathLike, recipe: Recipe, sentences: Sequence[str], warnings: Sequence[str], table: pd.DataFrame,
    targets: pd.DataFrame, sensitivities: pd.DataFrame, around: ProcessMap | None, labels: Mapping[str, str],
) -> Path:
    """Writes the page of a window and returns its path. labels: of the values that vary, by their names."""

    def text() -> str:
        model = window_model(table, targets, sensitivities, labels)
        tables = {"runs": ("runs.csv", table), "effects": ("effects.csv", sensitivities)}
        if around is not None:
            tables["map"] = ("map.csv", around.table)
        return page(
            "window.html",
            recipe.path.name if recipe.path is not None else "Recipe",
            data={
                "targets": model,
                "map": None if around is None else _map_model(around),
                "tables": {key: {"name": name, "text": own.to_csv()} for key, (name, own) in tables.items()},
            },
            sentences=sentences,
            warnings=[*warnings, *(around.warnings if around is not None else [])],
            targets=[
                row | {"title": one["title"], "label": one["label"], "alternative": one["alternative"]}
                for row, one in zip(targets.to_dict("records"), model)
            ],
            effects=[row | {"label": labels[row["knob"]]} for row in sensitivities.to_dict("records")],
            around=around,
            goals=[] if around is None else [goal_text(target) for target in around._targets],
            runs=len(table) + 2 * sensitivities.knob.nunique() + 1,
        )

    return write_page(path, text, inputs=[recipe.path])


def _map_model(around: ProcessMap) -> dict[str, Any]:
    return map_model(around._axes, around._shown, around._targets, around.table)


def window_model(
    table: pd.DataFrame, targets: pd.DataFrame, sensitivities: pd.DataFrame, labels: Mapping[str, str]
) -> list[dict[str, Any]]:
    """Each target as data for window.js: a histogram of its values, and the effects on it, the largest first."""
    made = []
    for row in targets.itertuples():
        label = f"{row.quantity} of {row.layer}"
        own = sensitivities[(sensitivities.layer == row.layer) & (sensitivities.quantity == row.quantity)]
        own = own.assign(size=own.change.abs()).sort_values("size", ascending=False, kind="stable")
        low, high = _limits(row)
        values = table[label].to_numpy(float)
        within = (values >= (-np.inf if low is None else low)) & (values <= (np.inf if high is None else high))
        made.append({
            "label": label, "unit": row.unit,
            "title": f"{label} ({row.unit})" if row.unit else label,
            "low": low, "high": high, "target": row.target, "nominal": _known(row.nominal),
            "histogram": _histogram(values, within, row.nominal),
            "effects": [
                {
                    "name": f"{labels[one.knob]} \u00b1{one.spread:.3g} {one.knob_unit}",
                    "below": _change(one.below, row.nominal), "above": _change(one.above, row.nominal),
                }
                for one in own.itertuples()
            ],
            "alternative": _alternative(label, row),
        })
    return made


def _limits(row: Any) -> tuple[float | None, float | None]:
    """The range in which a target holds; None: without a limit."""
    if row.bound == "at most":
        return None, row.target
    if row.bound == "at least":
        return row.target, None
    slack = 1e-9 * abs(row.target)  # of rounding, as Target.holds has it
    return row.target - row.tolerance - slack, row.target + row.tolerance + slack


def _histogram(values: Array, within: Array, nominal: float) -> dict[str, Any]:
    """The edges of bins, and the number of runs in each: all of them, and those within the limits."""
    known = np.isfinite(values)
    if not known.any():
        return {"edges": [], "all": [], "within": []}
    centre = nominal if np.isfinite(nominal) else float(values[known].mean())
    away = max(float(np.abs(values[known] - centre).max()), SMALLEST_RANGE * max(abs(centre), 1e-9))
    bins = min(max(2 * round(float(np.sqrt(known.sum()))) + 1, LEAST_BINS), MOST_BINS)
    edges = np.linspace(centre - away, centre + away, bins + 1)
    return {
        "edges": [_rounded(edge) for edge in edges.tolist()],
        "all": np.histogram(values[known], edges)[0].tolist(),
        "within": np.histogram(values[known & within], edges)[0].tolist(),
    }


def _alternative(label: str, row: Any) -> str:
    """What the charts of a target show, in words."""
    parts = [f"{label} holds in {100 * row.held:.1f} % of the runs" if np.isfinite(row.held) else f"{label} is unknown"]
    named = (("mean", number(row.mean, 5)), ("standard deviation", number(row.std, 2)))
    return ", ".join([*parts, *(f"{name} {text}" for name, text in named if text != MISSING)]) + "."


def _change(value: float, nominal: float) -> float | None:
    return _known(_rounded(value - nominal)) if np.isfinite(value - nominal) else None


def _known(value: float) -> float | None:
    return float(value) if np.isfinite(value) else None


def _rounded(value: float) -> float:
    return float(f"{value:.{DIGITS}g}")
