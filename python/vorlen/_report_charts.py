"""The charts of a report as data for plotly: panels over time, the same over height, and one for the interfaces."""

from __future__ import annotations

import html
from collections.abc import Iterable
from typing import Any

import numpy as np
import pandas as pd

from ._drawn import BLACK, ORANGE, PINK, DrawnTables, decades_of, densities_of, metals_of
from ._row_finder import RowFinder
from ._types import Array, Rows

MAX_ROWS = 4000  # per curve; more make a page slow and large
GAP = 0.035  # between panels, as a share of the height
SMALLEST_NAMED = 0.012  # smallest share of the width for which a stage is named


def charts(tables: DrawnTables) -> dict[str, Any]:
    """Data and layouts of all charts by name, ready for JSON."""
    kept = thin(tables.rows("active"))
    z = kept["z"].to_numpy() - tables.reference_height
    figures = {
        "time": _panels(tables, kept, kept["time"].to_numpy(), over_time=True),
        "depth": _panels(tables, kept, z, over_time=False),
        # Links the two charts: the height at each time. NaN becomes null.
        "link": {"time": _values(kept["time"]), "depth": _values(z)},
    }
    if len(tables.interfaces):
        figures["interface"] = _interface_chart(tables)
    return figures


def thin(rows: pd.DataFrame) -> pd.DataFrame:
    """At most MAX_ROWS rows, evenly spaced, including the first and the last."""
    if len(rows) <= MAX_ROWS:
        return rows
    return rows.iloc[np.unique(np.linspace(0, len(rows) - 1, MAX_ROWS).astype(int))]


def _values(values: Any, digits: int = 9) -> list[float | None]:
    """Numbers for JSON: as many digits as a chart needs, null for values that are not finite."""
    return [float(f"{value:.{digits}g}") if np.isfinite(value) else None for value in np.asarray(values, float)]


def _curve(x: Any, y: Any, name: str, colour: str, dashed: bool, *, axis: int = 1, unit: str = "") -> dict[str, Any]:
    return {
        "type": "scatter",
        "mode": "lines",
        "x": _values(x),
        "y": _values(y, 6),
        "name": name,
        "xaxis": "x",
        "yaxis": f"y{axis if axis > 1 else ''}",
        "line": {"color": colour, "width": 2, "dash": "dash" if dashed else "solid"},
        "hovertemplate": f"%{{y:.4~g}}{unit}",
        "showlegend": True,
    }


def _panels(tables: DrawnTables, rows: pd.DataFrame, x: Array, over_time: bool) -> dict[str, Any]:
    panels: list[tuple[str, str, list[dict[str, Any]]]] = []

    def add(title: str, unit: str, curves: Iterable[tuple[Any, Any, str, str, bool]], kind: str = "linear") -> None:
        axis = len(panels) + 1
        panels.append((title, kind, [_curve(*curve, axis=axis, unit=unit) for curve in curves]))

    add("composition", "", [(x, rows[column], name, colour, False) for column, name, colour in metals_of(rows)])
    add("growth rate<br>(nm/s)", " nm/s", [(x, rows["rate"].where(rows["active"]), "growth rate", BLACK, False)])
    curve = tables.temperature_curve("active")
    if curve is not None and np.isfinite(curve[2]).any():
        times, heights, heat = (values[_even(len(curve[0]))] for values in curve)
        add("temperature<br>(K)", " K", [(times if over_time else heights, heat, "temperature", ORANGE, False)])
    strains = (("eps_xx_t", "strain at growth (t)", False), ("eps_xx_z", "strain, finished (z)", True))
    curves = [(x, 100 * rows[column], name, PINK, dashed) for column, name, dashed in strains]
    add("strain \u03b5<sub>xx</sub><br>(%)", " %", curves)
    densities = densities_of(rows)
    add("density<br>(cm\u207b\u00b2)", " cm\u207b\u00b2", [(x, *density) for density in densities], "log")

    share = (1 - GAP * (len(panels) - 1)) / len(panels)
    layout = _layout("time (s)" if over_time else "height above the pre-stages (nm)")
    layout["height"] = 120 + 165 * len(panels)
    for number, (title, kind, _) in enumerate(panels, 1):
        top = 1 - (number - 1) * (share + GAP)
        layout[f"yaxis{number if number > 1 else ''}"] = _y_axis(title, kind, max(top - share, 0.0), top)
    if curve is not None and np.nanmax(curve[2]) - np.nanmin(curve[2]) < 2.0:
        layout["yaxis3"]["range"] = [np.nanmin(curve[2]) - 20.0, np.nanmax(curve[2]) + 20.0]
    layout[f"yaxis{len(panels)}"]["range"] = decades_of(densities)
    layout["xaxis"]["anchor"] = f"y{len(panels)}"
    layout["xaxis"]["range"] = _range(x)
    _shade(layout, tables.stage_borders(over_time, "active"), layout["xaxis"]["range"])
    return {"data": [curve for _, _, curves in panels for curve in curves], "layout": layout}


def _even(count: int) -> Rows:
    return np.asarray(np.unique(np.linspace(0, count - 1, min(count, MAX_ROWS)).astype(int)))


def _range(x: Array) -> list[float]:
    finite = x[np.isfinite(x)]
    if len(finite) == 0 or not finite.max() > finite.min():
        middle = float(finite[0]) if len(finite) else 0.0
        return [middle - 1.0, middle + 1.0]
    return [float(finite.min()), float(finite.max())]


def _layout(x_title: str) -> dict[str, Any]:
    return {
        "font": {"family": "system-ui, Segoe UI, Roboto, Helvetica, Arial, sans-serif", "size": 13, "color": "#1c2733"},
        "margin": {"l": 74, "r": 14, "t": 70, "b": 46},
        "paper_bgcolor": "rgba(0,0,0,0)",
        "plot_bgcolor": "rgba(0,0,0,0)",
        "hovermode": "x unified",
        "hoverdistance": -1,  # the nearest row at any distance
        "hoverlabel": {"font": {"size": 12}},
        "separators": ".",  # no thousands separators
        "modebar": {"bgcolor": "rgba(0,0,0,0)", "color": "#4a5866", "activecolor": "#0b5a8f"},
        "legend": {"orientation": "h", "y": -46 / 900, "yanchor": "top", "x": 0, "font": {"size": 12}},
        "xaxis": {
            "title": {"text": x_title, "standoff": 6},
            "showgrid": False,
            "showline": True,
            "linecolor": "#44525f",
            "ticks": "outside",
            "hoverformat": ".7~g",
            "exponentformat": "none",
        },
        "shapes": [],
        "annotations": [],
    }


def _y_axis(title: str, kind: str, bottom: float, top: float) -> dict[str, Any]:
    return {
        "title": {"text": title, "font": {"size": 12}},
        "type": kind,
        "domain": [bottom, top],
        "gridcolor": "#d5dbe1",
        "zeroline": False,
        "showline": True,
        "linecolor": "#44525f",
        "ticks": "outside",
        "exponentformat": "power",
        "dtick": 1 if kind == "log" else None,
        "minexponent": 5,
        "fixedrange": True,
        "automargin": False,
    }


def _shade(layout: dict[str, Any], borders: pd.DataFrame, span: list[float]) -> None:
    """Shades every other stage, and names those with enough room."""
    width = span[1] - span[0]
    for number, stage in enumerate(borders.itertuples()):
        begin, end = max(float(stage.begin), span[0]), min(float(stage.end), span[1])
        if number % 2 == 0:
            layout["shapes"].append(
                {"type": "rect", "xref": "x", "yref": "paper", "x0": begin, "x1": end, "y0": 0, "y1": 1}
                | {"fillcolor": "#e9eef3", "line": {"width": 0}, "layer": "below"}
            )
    for stage in borders.assign(width=borders["end"] - borders["begin"]).itertuples():
        if stage.width > SMALLEST_NAMED * width or len(borders) <= 3:
            layout["annotations"].append(
                {"x": 0.5 * (max(stage.begin, span[0]) + min(stage.end, span[1])), "xref": "x", "y": 1, "yref": "paper"}
                | {"yanchor": "bottom", "xanchor": "left", "textangle": -28, "showarrow": False, "font": {"size": 11}}
                | {"text": html.escape(" ".join(str(stage.name).split())[:30])}
            )


def _interface_chart(tables: DrawnTables) -> dict[str, Any]:
    """All metals over height, and for each interface the range to zoom to and the positions of 10 % and 90 %."""
    rows = tables.profile
    offset = tables.reference_height
    places: list[dict[str, Any]] = []
    for interface in tables.interfaces.itertuples():
        width = interface.width if np.isfinite(interface.width) else 1.0
        reach = max(3.0 * width, 0.05)
        middle = interface.z - offset
        places.append(
            {
                "range": [middle - reach, middle + reach + width],
                "y": sorted((interface.x_below, interface.x_above)),
                "marks": _values([interface.z10 - offset, interface.z90 - offset]),
                "label": f"{interface.below} / {interface.above}",
                "width": None if np.isnan(interface.width) else f"{interface.width:.3g}",
            }
        )
    # All rows near an interface are kept, because the curve is steep there.
    z = rows["z"].to_numpy() - offset
    near, finder = np.zeros(len(rows), bool), RowFinder(z)
    for place in places:
        near[finder.up_to(np.nextafter(place["range"][0], -np.inf), place["range"][1])] = True
    kept = rows[near] if len(rows) > MAX_ROWS else rows
    kept_z = kept["z"].to_numpy() - offset
    data = []
    for column, name, colour in metals_of(kept):
        if name != "Ga":
            markers = {"mode": "lines+markers", "marker": {"size": 4}}
            data.append(_curve(kept_z, kept[column], name, colour, False) | markers)
    layout = _layout("height above the pre-stages (nm)")
    layout["height"] = 340
    layout["margin"]["t"] = 20
    layout["yaxis"] = _y_axis("composition", "linear", 0.0, 1.0)
    layout["legend"]["y"] = -0.2
    return {"data": data, "layout": layout, "places": places}
