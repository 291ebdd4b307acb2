"""A curve, measured or computed from a run as it would be measured: a table with what is needed to repeat it."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any, NamedTuple

import pandas as pd

from .._base.figures import BLACK, GALLIUM, INDIUM, STYLE, WIDTH, check_figure, save_figure, save_or_close
from .._base.files import replace_file
from .._base.types import Array, PathLike

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure


class Kind(NamedTuple):
    x: str  # labels of the axes
    y: str
    logarithmic: bool = False
    parts: tuple[str, ...] = ()  # columns drawn with the curve, if the table has them


KINDS = {
    "xrd": Kind("2\u03b8 (\u00b0)", "intensity", True),
    "curvature": Kind("time (s)", "curvature (1/km)", parts=("mismatch", "thermal")),
    "reflectance": Kind("time (s)", "reflectance"),
    "emission": Kind("wavelength (nm)", "intensity"),
}
PARTS = (INDIUM, GALLIUM)  # colours of the parts of a curve, such as those of a curvature
HEIGHT = 2.6  # inches
LABEL_ROOM = 0.022  # of the width; labels of peaks closer than this would overlap


@dataclass(repr=False, eq=False)
class Curve:
    """A curve, measured or simulated: Run.xrd(), Run.curvature() and others return one.

    Attributes
    ----------
    kind : str
        "xrd", "curvature", "reflectance" or "emission".
    table : pandas.DataFrame
        The points. The first column is the abscissa, the second one the curve. attrs["units"] and attrs["meanings"]
        describe the columns.
    name : str
        Name for legends.
    settings : dict
        How it was measured: what is needed to simulate the same, such as hkl and energy.
    notes : list of str
        What a simulation neglects, and warnings; one line each.
    path : pathlib.Path or None
        The file it was read from; None if it was simulated.
    peaks : pandas.DataFrame or None
        Positions on the abscissa and their names, in columns x and label: of layers and satellites in a diffraction
        curve. A position without a name has an empty label.
    inputs : list of path or None
        Further files that no figure or table may replace, such as those of the run.
    """

    kind: str
    table: pd.DataFrame
    name: str = ""
    settings: dict[str, Any] = field(default_factory=dict)
    notes: list[str] = field(default_factory=list)
    path: Path | None = None
    peaks: pd.DataFrame | None = None
    inputs: Sequence[PathLike | None] = ()

    def __post_init__(self) -> None:
        if self.kind not in KINDS:
            raise ValueError(f"kind must be one of {', '.join(KINDS)}, got {self.kind!r}")
        if len(self.table.columns) < 2:
            raise ValueError(f"a curve needs two columns or more, got {len(self.table.columns)}")

    @property
    def x(self) -> Array:
        """The first column."""
        values: Array = self.table.iloc[:, 0].to_numpy(float)
        return values

    @property
    def y(self) -> Array:
        """The second column."""
        values: Array = self.table.iloc[:, 1].to_numpy(float)
        return values

    def to_csv(self, path: PathLike) -> None:
        """Writes the points as comma-separated values with all digits.

        Parameters
        ----------
        path : path
            The file to write. An existing one is replaced when the new one is complete, but never the file that the
            curve was read from or one of the run.

        Raises
        ------
        OSError
            If the file can't be written.
        TypeError
            If path is not a path.
        ValueError
            If path is an input of the curve or not a regular file.
        """
        text: str = self.table.to_csv(index=False, lineterminator="\n")
        replace_file(path, text.encode(), inputs=self._files)

    def plot(self, path: PathLike | None = None, ax: Axes | None = None) -> Figure:
        """Draws the curve. Needs matplotlib.

        Parameters
        ----------
        path : path, optional
            File to save the figure to, in the format of its ending (.pdf, .svg, .png, ...), with text as text. None: it
            is not saved.
        ax : matplotlib.axes.Axes, optional
            Axes to draw the curve into, without its parts. None: a new figure.

        Returns
        -------
        matplotlib.figure.Figure
            The figure, open in pyplot.

        Raises
        ------
        ImportError
            If matplotlib is missing.
        OSError
            If the file can't be written.
        TypeError
            If path is not a path.
        ValueError
            If the curve has no points, or path has no ending of a format, is an input of the curve or not a regular
            file.
        """
        import matplotlib.pyplot as plt

        if self.table.empty:
            raise ValueError(f"the curve {self.name or self.kind} has no points to draw")
        if path is not None:
            check_figure(path, self._files)  # before the work
        if ax is not None:
            self._draw(ax)
            if path is not None:
                save_figure(ax.figure, path, self._files)
            return ax.figure
        with plt.rc_context(STYLE):
            figure, axes = plt.subplots(figsize=(WIDTH, HEIGHT), layout="constrained")
            self._draw(axes, color=BLACK)
            parts = [column for column in KINDS[self.kind].parts if column in self.table]
            for column, colour in zip(parts, PARTS):
                axes.plot(self.x, self.table[column], color=colour, linewidth=0.8, label=column)
            self._label_peaks(axes)
            if self.name or parts:
                axes.legend()
            save_or_close(figure, path, self._files)
        return figure

    def _draw(self, axes: Axes, **style: Any) -> None:
        kind = KINDS[self.kind]
        axes.plot(self.x, self.y, label=self.name or self.kind, **style)
        if kind.logarithmic and (self.y > 0.0).any():
            axes.set_yscale("log")
        axes.set_xlabel(kind.x)
        axes.set_ylabel(kind.y)

    def _label_peaks(self, axes: Axes) -> None:
        """Names the peaks above the axes."""
        for x, label in named_peaks(self, *axes.get_xlim()):
            axes.annotate(
                label, (x, 1.0), (0, 3), xycoords=axes.get_xaxis_transform(), textcoords="offset points",
                rotation=35, ha="left", va="bottom", fontsize=6.5, color="#333333", annotation_clip=False,
            )
            axes.axvline(x, color="#d0d0d0", linewidth=0.5, zorder=0)

    @property
    def _files(self) -> list[PathLike | None]:
        return [self.path, *self.inputs]

    def __repr__(self) -> str:
        return f"<Curve {self.kind}, {len(self.table)} points{', ' + self.name if self.name else ''}>"


def named_peaks(curve: Curve, low: float, high: float) -> list[tuple[float, str]]:
    """Positions and names of the peaks between low and high; of names that would overlap, the first one in the table."""
    named: list[tuple[float, str]] = []
    for peak in curve.peaks.itertuples() if curve.peaks is not None else ():
        apart = all(abs(peak.x - other) > LABEL_ROOM * (high - low) for other, _ in named)
        if peak.label and low <= peak.x <= high and apart:
            named.append((float(peak.x), str(peak.label)))
    return named
