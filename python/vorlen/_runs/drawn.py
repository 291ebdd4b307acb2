"""What figures and the charts of reports have in common: tables, colours, curves, rows, stages, temperature."""

from __future__ import annotations

from collections.abc import Iterable
from typing import NamedTuple

import numpy as np
import pandas as pd

from .._base.figures import ALUMINIUM, BLACK, GALLIUM, INDIUM
from .._base.types import Array
from .row_finder import RowFinder

SEEN = 1e-6  # fraction above which a metal is drawn
METALS = (("x_in", "In", INDIUM), ("x_ga", "Ga", GALLIUM), ("x_al", "Al", ALUMINIUM))


def metals_of(rows: pd.DataFrame) -> list[tuple[str, str, str]]:
    """Column, symbol and colour of the metals to draw."""
    return [metal for metal in METALS if (rows[metal[0]].abs() > SEEN).any()]


def densities_of(rows: pd.DataFrame) -> list[tuple[pd.Series, str, str, bool]]:
    """The curves of the densities, cm^-2: values, NaN where they are 0, name, colour, whether they are dashed."""
    defects = rows["rho_vd0_t"] / 2
    curves = [
        (rows["rho_td_t"], "dislocations (t)", GALLIUM, False), (rows["rho_td_z"], "dislocations (z)", GALLIUM, True),
        *([(defects, "V-defects (t)", INDIUM, False)] if (defects > 0).any() else []),
    ]
    return [(values.where(values > 0), name, colour, dashed) for values, name, colour, dashed in curves]


def decades_of(curves: Iterable[tuple[pd.Series, str, str, bool]]) -> tuple[float, float]:
    """Exponents of a logarithmic axis: whole decades. The first V-defects have tiny densities, which are cut off."""
    values = np.concatenate([values.to_numpy() for values, *_ in curves])
    values = values[np.isfinite(values)]
    if len(values) == 0:
        return 0.0, 1.0
    low, high = max(values.min(), values.max() * 1e-6), values.max()
    return float(np.floor(np.log10(low / 1.2))), float(np.ceil(np.log10(high * 1.2)))


class DrawnTables(NamedTuple):
    """The tables of a run that are drawn."""

    profile: pd.DataFrame
    layers: pd.DataFrame
    interfaces: pd.DataFrame
    timeline: pd.DataFrame | None  # of the recipe; None if it is unknown

    def rows(self, span: str) -> pd.DataFrame:
        """The rows to draw: all rows, or those of simulated stages. All if none was simulated."""
        profile = self.profile
        return profile if span == "all" or not profile["active"].any() else profile[profile["active"]]

    @property
    def reference_height(self) -> float:
        """Height of the first simulated row, nm: the origin of the height axis."""
        active = self.profile.loc[self.profile["active"], "z"]
        return float(active.iloc[0]) if len(active) else 0.0

    @property
    def height_label(self) -> str:
        """Label of the height axis."""
        return "height above the pre-stages (nm)" if (self.layers["kind"] == "pre").any() else "height (nm)"

    def temperature_curve(self, span: str) -> tuple[Array, Array, Array] | None:
        """Time in s, height in nm and temperature in K, with points at both ends of each ramp.

        None if the recipe is unknown.
        """
        if self.timeline is None:
            return None
        rows = self.rows(span)
        row_times = rows["time"].to_numpy()
        finder = RowFinder(row_times)
        pieces = []
        for stage in self.timeline[self.timeline["kind"] == "active"].itertuples():
            end = min(stage.end, row_times[-1])
            if not end > stage.begin:
                break
            times = np.concatenate(([stage.begin], row_times[finder.between(stage.begin, end)], [end]))
            share = (times - stage.begin) / stage.duration
            pieces.append((times, stage.T_begin + share * (stage.T_end - stage.T_begin)))
        if not pieces:
            return None
        times = np.concatenate([times for times, _ in pieces])
        heights = np.interp(times, row_times, rows["z"].to_numpy()) - self.reference_height
        return times, heights, np.concatenate([heat for _, heat in pieces])

    def stage_borders(self, over_time: bool, span: str) -> pd.DataFrame:
        """Columns name, begin and end of the layers to shade: s, or nm above the reference height."""
        layers = self.layers
        if over_time:
            borders = layers[["name", "begin", "end"]].copy()
        else:
            top = layers["thickness"].cumsum() + float(self.profile["z"].iloc[0])
            borders = pd.DataFrame({"name": layers["name"], "begin": top - layers["thickness"], "end": top})
            borders[["begin", "end"]] -= self.reference_height
        keep = (layers["begin"] < self.profile["time"].iloc[-1]) & np.isfinite(borders[["begin", "end"]]).all(axis=1)
        active = layers["kind"] == "active"
        return borders[keep & active] if span == "active" and active.any() else borders[keep]
