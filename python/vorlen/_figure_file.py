"""Saving figures: whole files, never replacing a device or an input."""

from __future__ import annotations

import io
import os
from collections.abc import Iterable
from pathlib import Path
from typing import TYPE_CHECKING

from ._files import replace_file

if TYPE_CHECKING:
    from matplotlib.figure import Figure


def save_figure(
    figure: Figure, path: str | os.PathLike[str], inputs: Iterable[str | os.PathLike[str] | None] = ()
) -> None:
    """Saves a figure in the format that the ending of path names; without one, in matplotlib's default format.

    inputs  files that must not be replaced
    """
    import matplotlib

    if not isinstance(path, (str, os.PathLike)):
        raise TypeError(f"path must be the path of a file for the figure, got {type(path).__name__}")
    place = Path(path)
    if not place.suffix:
        place = place.with_name(f"{place.name}.{matplotlib.rcParams['savefig.format']}")
    picture = io.BytesIO()
    form = place.suffix[1:].lower()
    figure.savefig(picture, format=form, metadata={"Date": None} if form == "svg" else None)
    replace_file(place, picture.getvalue(), inputs=inputs)
