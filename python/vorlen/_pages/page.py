"""Pages: HTML files for a browser that need no network and no other file.

A page has a layout in assets/, a jinja2 template that extends base.html and names the style sheets and scripts to embed.

    def content() -> str:
        return page("design.html", "led.xml", warnings=[], targets=rows)

    write_page("design.html", content, inputs=["led.xml"])
"""

from __future__ import annotations

import json
from collections.abc import Callable, Iterable
from pathlib import Path
from typing import Any

from .._base.files import check_place, page_bytes, replace_file
from .._base.types import PathLike
from .._base.version import __version__
from .numbers import fraction, number

ASSETS = Path(__file__).resolve().parents[1] / "assets"
CHARTS = ["page.js", "text.js", "charts.js"]  # the scripts that charts need, in the order of loading
LINKED_CHARTS = [*CHARTS, "axes.js", "stages.js", "readout.js", "hover.js", "linked.js"]  # over time and over height


def write_page(path: PathLike, make: Callable[[], str], *, inputs: Iterable[PathLike | None] = ()) -> Path:
    """Writes the page whose text make() returns, and returns path. An existing file stays until the page is complete.

    Raises as check_place(path, inputs), before make() is called.
    """
    inputs = list(inputs)
    check_place(path, inputs)
    return replace_file(path, page_bytes(make()), inputs=inputs)


def page(layout: str, title: str, *, data: Any = None, **content: Any) -> str:
    """The HTML text of a page.

    layout   name of a template in assets/
    title    heading of the page, usually the name of a file
    data     for the scripts of the page, which find it as JSON in the element #data; None: no such element
    content  what the layout shows; base.html shows sentences, warnings.html shows warnings
    Numbers are formatted by the filters number and fraction of numbers.py. Raises FileNotFoundError if the layout has
    charts and the chart library is missing.
    """
    import jinja2
    from markupsafe import Markup

    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(ASSETS), autoescape=True, trim_blocks=True, lstrip_blocks=True
    )
    environment.filters |= {"number": number, "fraction": fraction}
    environment.globals |= {
        "asset": lambda name: Markup((ASSETS / name).read_text("utf-8")),
        "chart_library": lambda: Markup(chart_library()),
        "CHARTS": CHARTS,
        "LINKED_CHARTS": LINKED_CHARTS,
    }
    if data is not None:
        # "<" would let a text within the data end the script.
        data = Markup(json.dumps(data, separators=(",", ":"), allow_nan=False).replace("<", "\\u003c"))
    return environment.get_template(layout).render(title=title, version=__version__, data=data, **content)


def check_pages(charts: bool = True) -> None:
    """Raises ImportError or FileNotFoundError if what pages need is missing: for before the work that they show."""
    import jinja2  # noqa: F401

    if charts:
        chart_library()


def chart_library() -> str:
    """The JavaScript that draws the charts, from the installation or from a build of the source tree."""
    builds = ASSETS.parents[2] / "build"
    places = [ASSETS, *(builds / preset / "python" for preset in ("release", "run"))]
    for place in (folder / "plotly.min.js" for folder in places):
        if place.is_file():
            return place.read_text("utf-8")
    raise FileNotFoundError(
        f"the chart library of reports is missing, {ASSETS / 'plotly.min.js'}. Install the Debian packages "
        "python3-plotly and esbuild (apt-get install python3-plotly esbuild), then build or install VorlenSolver again"
    )
