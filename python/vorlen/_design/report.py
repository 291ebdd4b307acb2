"""A design as one self-contained HTML page: targets, knobs and warnings. Its layout is in assets/design.html."""

from __future__ import annotations

from pathlib import Path

import pandas as pd

from .._base.files import check_place, replace_file, valid_text
from .._base.types import PathLike
from .._base.version import __version__
from .._pages.report import ASSETS, number
from .answer import knob_text


def write_report(
    table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, recipe: Path | None, path: PathLike
) -> Path:
    """Writes the page of a design and returns its path. recipe: the file of the start, which stays."""
    check_place(path, [recipe])  # before the work
    page = render(table, knobs, warnings, runs, recipe.name if recipe is not None else "Recipe")
    return replace_file(path, valid_text(page).encode(), inputs=[recipe])


def render(table: pd.DataFrame, knobs: pd.DataFrame, warnings: list[str], runs: int, title: str) -> str:
    """The HTML text."""
    import jinja2

    environment = jinja2.Environment(autoescape=True, trim_blocks=True, lstrip_blocks=True)
    environment.filters["number"] = number
    shown = knobs.assign(
        before=knobs.before.map(knob_text), after=knobs.after.map(knob_text),
        limits=[f"{number(row.low)} to {number(row.high)}" for row in knobs.itertuples()],
    )
    page = environment.from_string((ASSETS / "design.html").read_text("utf-8")).render(
        title=title,
        version=__version__,
        success=bool(table.met.all()),
        met=int(table.met.sum()),
        targets=table.to_dict("records"),
        knobs=shown.to_dict("records"),
        warnings=warnings,
        runs=runs,
        css=(ASSETS / "page.css").read_text("utf-8"),
    )
    return str(page)
