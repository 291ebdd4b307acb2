"""The charts of a page as data for linked.js: curves in panels over time and height, stages, and ranges to zoom to.

Curves refer to a set of points, which has a time and a height for each, so that both charts share the values. Colours
are named; the page has one set for light and one for dark mode.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, Rows
from .._runs.drawn import METALS, SEEN, DrawnTables, decades_of, densities_of
from .._runs.interfaces import period_numbers
from .._runs.row_finder import RowFinder
from .._runs.structure import Structure, structure_of
from .report_recipe import GASES, RecipeCurves, recipe_curves
from .report_recipe import METALS as PRECURSORS

MAX_ROWS = 4000  # per curve; more make a page slow and large
WIDE = 20.0  # quotient of the largest and the smallest V/III above which its axis is logarithmic
INSIDE = 0.008  # share of the active region left out at its ends, where curves step to the values of the next layers
SMALLEST_SPAN = 1e-6  # nm or s; a range that is shorter is widened
RATE_UNITS = (("nm/s", 1.0, 0.0), ("µm/h", 3.6, 0.0))
TEMPERATURE_UNITS = (("K", 1.0, 0.0), ("°C", 1.0, -273.15))
COLOURS = {  # of curves with the colours of figures
    "In": "indium", "Ga": "gallium", "Al": "aluminium", "TMIn": "indium", "TMGa": "gallium", "TEGa": "triethyl",
    "TMAl": "aluminium", "N2": "gallium", "H2": "aluminium", "NH3": "indium",
}
NAMES = {"In": "indium", "Ga": "gallium", "Al": "aluminium"}
SUBSCRIPTS = {"N2": "N\u2082", "H2": "H\u2082", "NH3": "NH\u2083"}


def charts(
    tables: DrawnTables, structure: Structure | None = None, interfaces: Rows | None = None, *, failed: bool = False
) -> dict[str, Any]:
    """The charts of a run, ready for JSON. NaN becomes null.

    structure   structure_of(tables.layers), if known already
    interfaces  positions of the interfaces to offer; None: all
    failed      shows the whole run first instead of the active region
    """
    found = structure or structure_of(tables.layers)
    kept = thin(tables.rows("active"))
    heights = kept["z"].to_numpy() - tables.reference_height
    points = {"rows": {"time": _values(kept["time"]), "height": _values(heights)}}
    all_rows = tables.rows("active")
    recipe = recipe_curves(tables.timeline, float(all_rows["time"].iloc[-1]))
    if recipe is not None:
        z = np.interp(recipe.times, all_rows["time"], all_rows["z"]) - tables.reference_height
        points["recipe"] = {"time": _values(recipe.times), "height": _values(z)}
    whole = {"label": "Whole run", "time": _range(kept["time"].to_numpy()), "height": _range(heights)}
    regions = [whole, *_active_region(found, whole)]
    figures = {
        "points": points,
        "panels": _panels(kept, recipe),
        "axes": {"time": "time (s)", "height": tables.height_label},
        "stages": _stages(tables, found, whole),
        "regions": regions,
        "first": 0 if failed else len(regions) - 1,
    }
    chosen = tables.interfaces if interfaces is None else tables.interfaces.iloc[interfaces]
    if len(chosen):
        figures["interfaces"] = _interface_chart(tables, chosen) | {"first": _first_interface(tables, found, chosen)}
    return figures


def thin(rows: pd.DataFrame) -> pd.DataFrame:
    """At most MAX_ROWS rows, evenly spaced, including the first and the last."""
    if len(rows) <= MAX_ROWS:
        return rows
    return rows.iloc[np.unique(np.linspace(0, len(rows) - 1, MAX_ROWS).astype(int))]


def _values(values: Any, digits: int = 9) -> list[float | int | None]:
    """Numbers for JSON: as many digits as a chart needs, null for values that are not finite."""
    return [_short(float(f"{value:.{digits}g}")) if np.isfinite(value) else None for value in np.asarray(values, float)]


def _short(value: float) -> float | int:
    """A whole number without its decimal point."""
    return int(value) if value == int(value) and abs(value) < 1e9 else value


def _curve(values: Any, name: str, colour: str, *, points: str = "rows", dashed: bool = False) -> dict[str, Any]:
    curve = {"name": name, "points": points, "y": _values(values, 6), "colour": colour}
    return curve | ({"dashed": True} if dashed else {})


def _panel(key: str, title: str, unit: str, curves: list[dict[str, Any]], **more: Any) -> dict[str, Any]:
    """A panel. more: units to choose from; hidden at first; log; range, otherwise the axis fits what is visible, from
    zero with zero, and covers at least least.
    """
    return {"key": key, "title": title, "unit": unit, "curves": curves} | more


def _panels(rows: pd.DataFrame, recipe: RecipeCurves | None) -> list[dict[str, Any]]:
    """The panels from the top down."""
    panels = []
    for column, symbol, _ in (METALS[0], METALS[2], METALS[1]):
        values = rows[column]
        if (values.abs() > SEEN).any():
            more: dict[str, Any] = {"least": 0.02} | ({"hidden": True} if symbol == "Ga" else {"zero": True})
            name = NAMES[symbol]
            panels.append(_panel(name, name, "", [_curve(values, name, COLOURS[symbol])], **more))
    rate = _curve(rows["rate"].where(rows["active"]), "growth rate", "ink")
    panels.append(_panel("rate", "growth rate", "nm/s", [rate], units=RATE_UNITS, zero=True))
    if recipe is not None:
        panels += _recipe_panels(recipe)
    strains = (("eps_xx_t", "strain (t)", False), ("eps_xx_z", "strain (z)", True))
    curves = [_curve(100 * rows[column], name, "strain", dashed=dashed) for column, name, dashed in strains]
    panels.append(_panel("strain", "strain \u03b5<sub>xx</sub>", "%", curves, least=0.1))
    densities = densities_of(rows)
    curves = [
        _curve(values, name, "indium" if name.startswith("V") else "gallium", dashed=dashed)
        for values, name, _, dashed in densities
    ]
    panels.append(_panel("densities", "density", "cm\u207b\u00b2", curves, log=True, range=decades_of(densities)))
    return panels


def _recipe_panels(recipe: RecipeCurves) -> list[dict[str, Any]]:
    """Panels of what the recipe states; none for quantities that it does not state."""
    panels = []

    def add(key: str, title: str, unit: str, values: Sequence[tuple[Array, str, str]], **more: Any) -> None:
        stated = [(y, name, colour) for y, name, colour in values if np.isfinite(y).any()]
        if stated:
            curves = [_curve(y, name, colour, points="recipe") for y, name, colour in stated]
            panels.append(_panel(key, title, unit, curves, **more))

    heat = recipe.temperature
    add("temperature", "temperature", "K", [(heat, "temperature", "warm")], units=TEMPERATURE_UNITS, least=20.0)

    def flows(names: Sequence[str]) -> list[tuple[Array, str, str]]:
        used = [name for name in names if np.nanmax(recipe.flows[name], initial=0.0) > 0.0]
        return [(recipe.flows[name], SUBSCRIPTS.get(name, name), COLOURS[name]) for name in used]

    add("metals", "metal flows", "sccm", flows(PRECURSORS), zero=True)
    add("gases", "gas flows", "sccm", flows(GASES), zero=True)
    for panel in panels[-1:]:
        for curve in panel["curves"]:
            if curve["name"] == SUBSCRIPTS["NH3"]:  # often equal to another one
                curve["dotted"] = True
    span = _spread(recipe.ratio)
    log = span is not None and span[1] > WIDE * span[0] > 0.0
    add("ratio", "V/III", "", [(recipe.ratio, "V/III", "ink")], **({"log": True} if log else {"zero": True}))
    add("pressure", "pressure", "kPa", [(recipe.pressure / 1000.0, "pressure", "strain")], zero=True)
    return panels


def _spread(values: Array) -> tuple[float, float] | None:
    finite = values[np.isfinite(values)]
    return (float(finite.min()), float(finite.max())) if len(finite) else None


def _range(x: Array) -> list[float]:
    """The range of finite values; of a single one, a range around it."""
    finite = x[np.isfinite(x)]
    if len(finite) == 0:
        return [-1.0, 1.0]
    return _widened(float(finite.min()), float(finite.max()))


def _widened(low: float, high: float) -> list[float]:
    return [low, high] if high - low > SMALLEST_SPAN else [low - 1.0, high + 1.0]


def _stages(tables: DrawnTables, found: Structure, whole: dict[str, Any]) -> list[dict[str, Any]]:
    """The simulated stages that were reached: number, name, ranges, and the rank by which they are named."""
    ranks = {"well": 2, "barrier": 1, "layer": 1, "transition": 0}
    times, heights = (tables.stage_borders(over_time, "active") for over_time in (True, False))
    stages = []
    last = whole["time"][1]
    for number, name, begin, end in times.itertuples(name=None):
        low = high = 0.0
        if number in heights.index:
            low, high = float(heights["begin"][number]), float(heights["end"][number])
        rank = ranks[found.roles.get(number, "layer")]
        stages.append(
            {"number": int(number), "name": " ".join(str(name).split()), "rank": rank}
            | {"time": _values([begin, min(end, last)]), "height": _values([min(low, high), max(low, high)])}
        )
    return stages


def _active_region(found: Structure, whole: dict[str, Any]) -> list[dict[str, Any]]:
    region = found.region
    if region is None:
        return []
    time = _widened(region.begin, min(region.end, whole["time"][1]))
    height = _widened(max(region.low, whole["height"][0]), region.high)
    time, height = inner_part(time, whole["time"]), inner_part(height, whole["height"])
    return [{"label": "Active region", "time": _values(time), "height": _values(height)}]


def inner_part(region: list[float], whole: list[float]) -> list[float]:
    """A range without its ends, so that no line is drawn at the edge of a chart; with those of the whole run."""
    edge = INSIDE * (region[1] - region[0])
    low = region[0] + edge if region[0] > whole[0] + edge else region[0]
    return [low, region[1] - edge if region[1] < whole[1] - edge else region[1]]


def _first_interface(tables: DrawnTables, found: Structure, chosen: pd.DataFrame) -> int:
    """Position of the interface that is shown first: the lowest one in the active region."""
    if found.region is None:
        return 0
    z = chosen["z"].to_numpy() - tables.reference_height
    inside = np.flatnonzero((z >= found.region.low - SMALLEST_SPAN) & (z <= found.region.high + SMALLEST_SPAN))
    return int(inside[0]) if len(inside) else 0


def _interface_chart(tables: DrawnTables, chosen: pd.DataFrame) -> dict[str, Any]:
    """All metals over height, and for each interface the range to zoom to and the positions of 10 % and 90 %."""
    rows = tables.profile
    offset = tables.reference_height
    places: list[dict[str, Any]] = []
    numbers = dict(zip(tables.interfaces.index, period_numbers(tables.interfaces)))
    for interface in chosen.itertuples():
        period = numbers[interface.Index]
        width = interface.width if np.isfinite(interface.width) else 1.0
        reach = max(3.0 * width, 0.05)
        middle = interface.z - offset
        places.append(
            {
                "range": [middle - reach, middle + reach + width],
                "y": sorted((interface.x_below, interface.x_above)),
                "marks": _values([interface.z10 - offset, interface.z90 - offset]),
                "label": f"{interface.Index}. {interface.below} / {interface.above}"
                + (f", period {period}" if period else ""),
                "width": None if np.isnan(interface.width) else f"{interface.width:.3g}",
            }
        )
    # All rows near an interface are kept, because the curve is steep there.
    z = rows["z"].to_numpy() - offset
    near, finder = np.zeros(len(rows), bool), RowFinder(z)
    for place in places:
        near[finder.up_to(np.nextafter(place["range"][0], -np.inf), place["range"][1])] = True
    kept = rows[near] if len(rows) > MAX_ROWS else rows
    curves = [
        _curve(kept[column], NAMES[symbol], COLOURS[symbol])
        for column, symbol, _ in METALS
        if symbol != "Ga" and (kept[column].abs() > SEEN).any()
    ]
    return {"height": _values(kept["z"].to_numpy() - offset), "curves": curves, "places": places}
