"""What all figures have in common: colours, style, and saving them."""

from __future__ import annotations

import io
from collections.abc import Iterable
from typing import TYPE_CHECKING

from .files import as_path, check_place, replace_file
from .types import PathLike

if TYPE_CHECKING:
    from matplotlib.figure import Figure

# Okabe and Ito's palette for colour-blind readers (jfly.uni-koeln.de/color)
INDIUM, GALLIUM, ALUMINIUM = "#D55E00", "#0072B2", "#009E73"
BLACK, PINK, ORANGE = "#222222", "#AA3377", "#B87500"
DASHES = (0, (4, 2))  # of curves of the finished structure
WIDTH = 6.3  # inches; a text column of A4
STYLE = {
    "font.size": 8.0,
    "axes.titlesize": 9.0,
    "axes.labelsize": 8.0,
    "axes.linewidth": 0.7,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.unicode_minus": True,
    "legend.fontsize": 7.0,
    "legend.frameon": False,
    "lines.linewidth": 1.3,
    "xtick.major.width": 0.7,
    "ytick.major.width": 0.7,
    "figure.dpi": 120.0,
    "savefig.dpi": 300.0,
    "pdf.fonttype": 42,  # text stays text in PDF, PostScript and SVG
    "ps.fonttype": 42,
    "svg.fonttype": "none",
    "svg.hashsalt": "vorlen",  # the same figure gives the same bytes
}


def save_or_close(figure: Figure, path: PathLike | None, inputs: Iterable[PathLike | None]) -> None:
    """Saves a new figure if there is a path. If that fails, the figure is closed."""
    import matplotlib.pyplot as plt

    if path is not None:
        try:
            save_figure(figure, path, inputs)
        except BaseException:
            plt.close(figure)
            raise


def check_figure(path: PathLike, inputs: Iterable[PathLike | None] = ()) -> str:
    """The format of a figure, by the ending of its path. Raises as check_place, and for an unknown format."""
    from matplotlib.backend_bases import FigureCanvasBase

    check_place(path, inputs)
    form = as_path(path, "path").suffix[1:].lower()
    formats = FigureCanvasBase.get_supported_filetypes()
    if form not in formats:
        raise ValueError(f"{path} must have the ending of a format for figures: .{', .'.join(sorted(formats))}")
    return form


def save_figure(figure: Figure, path: PathLike, inputs: Iterable[PathLike | None] = ()) -> None:
    """Saves a figure in the format that the ending of path names. inputs: files that must not be replaced."""
    form = check_figure(path, inputs)
    picture = io.BytesIO()
    figure.savefig(picture, format=form, metadata={"Date": None} if form == "svg" else None)
    replace_file(path, picture.getvalue(), inputs=inputs)
