"""A design as one page: targets, knobs, their picture and warnings. Its layout is in assets/design.html."""

from __future__ import annotations

import io
import re
from pathlib import Path

import pandas as pd

from .._base.figures import STYLE
from .._base.types import PathLike
from .._pages.numbers import number
from .._pages.page import page, write_page
from .answer import knob_text
from .plot import plot_design


def write_report(
    table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, recipe: Path | None, path: PathLike
) -> Path:
    """Writes the page of a design and returns its path. recipe: the file of the start, which stays."""
    title = recipe.name if recipe is not None else "Recipe"
    return write_page(path, lambda: render(table, knobs, warnings, runs, title), inputs=[recipe])


def render(table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, title: str) -> str:
    """The HTML text."""
    from markupsafe import Markup

    shown = knobs.assign(
        before=knobs.before.map(knob_text), after=knobs.after.map(knob_text),
        limits=[f"{number(row.low)} to {number(row.high)}" if row.limited else "" for row in knobs.itertuples()],
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
        picture=Markup(_picture(table, knobs)),
    )


def _picture(table: pd.DataFrame, knobs: pd.DataFrame) -> str:
    """The figure of the design as an element of the page; empty without matplotlib."""
    if knobs.empty:
        return ""
    try:
        import matplotlib.pyplot as plt
    except ImportError:
        return ""
    figure = plot_design(table, knobs, None, [])
    text = io.StringIO()
    with plt.rc_context(STYLE):
        figure.savefig(text, format="svg", metadata={"Date": None})
    plt.close(figure)
    element = "<svg" + text.getvalue().partition("<svg")[2]
    return re.sub(r' xmlns(?::\w+)?="[^"]*"|<metadata>.*?</metadata>', "", element, flags=re.DOTALL)  # not in HTML
