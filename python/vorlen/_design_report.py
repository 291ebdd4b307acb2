"""A design as one self-contained HTML page: targets, knobs and warnings. Its layout is in assets/design.html."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING

from ._design_answer import knob_text
from ._files import check_place, replace_file, valid_text
from ._report import ASSETS, number
from ._types import PathLike
from ._version import __version__

if TYPE_CHECKING:
    from ._design import Design

STYLES = ("page.css", "report.css")  # those of reports


def write_report(made: Design, path: PathLike) -> Path:
    """Writes the page and returns its path."""
    inputs = [made.recipe.path]
    check_place(path, inputs)  # before the work
    return replace_file(path, valid_text(render(made)).encode(), inputs=inputs)


def render(made: Design) -> str:
    """The HTML text."""
    import jinja2

    environment = jinja2.Environment(autoescape=True, trim_blocks=True, lstrip_blocks=True)
    environment.filters["number"] = number
    knobs = made.knobs.assign(
        before=made.knobs.before.map(knob_text), after=made.knobs.after.map(knob_text),
        limits=[f"{row.low:.4g} to {row.high:.4g}" for row in made.knobs.itertuples()],
    )
    page = environment.from_string((ASSETS / "design.html").read_text("utf-8")).render(
        title=made.recipe.path.name if made.recipe.path is not None else "Recipe",
        version=__version__,
        success=made.success,
        met=int(made.table.met.sum()),
        targets=made.table.to_dict("records"),
        knobs=knobs.to_dict("records"),
        warnings=made.warnings,
        runs=made.runs,
        css="".join((ASSETS / name).read_text("utf-8") for name in STYLES if (ASSETS / name).is_file()),
    )
    return str(page)
