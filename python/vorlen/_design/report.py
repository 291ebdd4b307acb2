"""A design as one page: targets, knobs and warnings. Its layout is in assets/design.html."""

from __future__ import annotations

from pathlib import Path

import pandas as pd

from .._base.types import PathLike
from .._pages.numbers import number
from .._pages.page import page, write_page
from .answer import knob_text


def write_report(
    table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, recipe: Path | None, path: PathLike
) -> Path:
    """Writes the page of a design and returns its path. recipe: the file of the start, which stays."""
    title = recipe.name if recipe is not None else "Recipe"
    return write_page(path, lambda: render(table, knobs, warnings, runs, title), inputs=[recipe])


def render(table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, title: str) -> str:
    """The HTML text."""
    shown = knobs.assign(
        before=knobs.before.map(knob_text), after=knobs.after.map(knob_text),
        limits=[f"{number(row.low)} to {number(row.high)}" for row in knobs.itertuples()],
    )
    return page(
        "design.html",
        title,
        success=bool(table.met.all()),
        met=int(table.met.sum()),
        targets=table.to_dict("records"),
        knobs=shown.to_dict("records"),
        warnings=warnings,
        runs=runs,
    )
