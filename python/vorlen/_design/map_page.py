"""A map of a process as one page. Its layout is in assets/map.html and map.js."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._pages.numbers import number
from .._pages.page import page, write_page
from .._recipe.recipe import Recipe
from .map_lines import lines_of, region_of
from .quantities import Target

COLOURS = ("indium", "gallium", "triethyl", "warm", "strain")  # of page.css, by quantity
DIGITS = 6


@dataclass(frozen=True)
class Axis:
    """One axis of a map."""

    path: str
    label: str
    unit: str
    values: list[float]  # rising
    present: float | None  # the value in the recipe; None for a ramp

    @property
    def title(self) -> str:
        return f"{self.label} ({self.unit})" if self.unit else self.label

    @property
    def short(self) -> str:
        return self.label.removeprefix("deviation of ")


@dataclass(frozen=True)
class Shown:
    """A quantity that is shown: a column of the table, and its unit."""

    label: str
    unit: str

    @property
    def title(self) -> str:
        return f"{self.label} ({self.unit})" if self.unit else self.label


def write_map(
    path: PathLike, recipe: Recipe, axes: tuple[Axis, Axis], shown: Sequence[Shown], targets: Sequence[Target],
    table: pd.DataFrame, layer: str, warnings: Sequence[str],
) -> Path:
    """Writes the page of a map and returns its path."""

    def text() -> str:
        model = map_model(axes, shown, targets, table)
        return page(
            "map.html",
            recipe.path.name if recipe.path is not None else "Recipe",
            data={"map": model, "tables": {"map": {"name": "map.csv", "text": table.to_csv(index=False)}}},
            layer=layer,
            sentences=sentences(shown, targets, table, bool(model["region"])),
            goals=[goal_text(target) for target in targets],
            warnings=warnings,
            axes=axes,
            runs=len(table),
        )

    return write_page(path, text, inputs=[recipe.path])


def goal_text(target: Target) -> str:
    """Such as "thickness of InGaN well: 3 ± 0.1 nm"."""
    tolerance = "" if target.bound else f" \u00b1 {target.allowed:.3g}"
    return f"{target.label}: {target.goal}{tolerance} {target.quantity.unit}".strip()


def sentences(
    shown: Sequence[Shown], targets: Sequence[Target], table: pd.DataFrame, has_region: bool
) -> list[str]:
    """The range of each quantity, and at how many points all targets hold."""
    made = []
    for one in shown:
        low, high = (number(value, 4) for value in (table[one.label].min(), table[one.label].max()))
        span = f"{low} to {high}" if low != high else low
        made.append(f"{one.label}: {span} {one.unit}".rstrip() + ("." if low != high else " everywhere."))
    if targets:
        count = int(table.holds.sum())
        text = f"All targets hold in {count} of {len(table)} runs."
        if not count:
            text += " Between the runs there is a region where they hold." if has_region else ""
        made.append(text)
    return made


def map_model(
    axes: tuple[Axis, Axis], shown: Sequence[Shown], targets: Sequence[Target], table: pd.DataFrame
) -> dict[str, Any]:
    """The chart as data for map.js."""
    x, y = (np.array(axis.values, dtype=float) for axis in axes)

    grids = [grid_of(axes, table, target.label) for target in targets]
    region = region_of(x, y, grids, targets) if targets else []
    present = [axis.present for axis in axes]
    inside = all(
        value is not None and axis.values[0] <= value <= axis.values[-1] for axis, value in zip(axes, present)
    )
    return {
        "x": {"title": axes[0].title, "range": [float(x[0]), float(x[-1])]},
        "y": {"title": axes[1].title, "range": [float(y[0]), float(y[-1])]},
        "curves": [
            {"name": one.title, "colour": COLOURS[place % len(COLOURS)], "dashed": place % 2 == 1, "lines": [
                {"text": f"{line.level:g}", "pieces": [_points(piece) for piece in line.pieces]}
                for line in lines_of(x, y, grid_of(axes, table, one.label))
            ]}
            for place, one in enumerate(shown)
        ],
        "region": [_points(polygon) for polygon in region],
        "present": present if inside else None,
        "runs": _runs(axes, shown, table),
    }


def grid_of(axes: tuple[Axis, Axis], table: pd.DataFrame, label: str) -> Array:
    """The values of a column as y x x."""
    return np.asarray(table[label].to_numpy(float).reshape(len(axes[0].values), len(axes[1].values)).T)


def _points(line: Array) -> dict[str, list[float]]:
    return {"x": _rounded(line[:, 0]), "y": _rounded(line[:, 1])}


def _rounded(values: Array) -> list[float]:
    return [float(f"{value:.{DIGITS}g}") for value in values.tolist()]


def _runs(axes: tuple[Axis, Axis], shown: Sequence[Shown], table: pd.DataFrame) -> dict[str, Any]:
    """The runs as points with texts."""
    texts = []
    for _, row in table.iterrows():
        lines = [f"{axis.label} {number(float(row[axis.path]), 7, axis.unit)}" for axis in axes]
        if row.status == "ok":
            lines += [f"{one.label} {number(float(row[one.label]), 5, one.unit)}" for one in shown]
        else:
            lines.append(f"no result: {row.text}"[:120])
        texts.append(lines)
    x, y = (table[axis.path].to_numpy(float).tolist() for axis in axes)
    return {"x": x, "y": y, "texts": texts, "ok": [status == "ok" for status in table.status]}
