"""The charts of a comparison as data for linked.js: the same points of each run, placed in each way to align."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, Rows
from .._runs.drawn import decades_of
from .._runs.plot import PANELS
from .._runs.plot_aligned import ALIGNMENTS, Match, Place, PlacedRun, place_runs
from .._runs.plot_runs import SOLID, Curve, curves_of, have_common_layers
from .._runs.run import Run
from .._runs.structure import structure_of
from .report_charts import MAX_ROWS, NAMES, inner_part

AXES = {"time": True, "height": False}  # whether the axis is time
TITLES = {
    "composition": ("fraction", ""),
    "rate": ("growth rate", "nm/s"),
    "temperature": ("temperature", "K"),
    "strain": ("strain \u03b5<sub>xx</sub>", "%"),
    "densities": ("dislocations", "cm\u207b\u00b2"),
}
WIDEST, NARROWEST = 4.0, 1.6  # pixels
SMALLEST_RAMP = 2.0  # K; the axis of a smaller one is wider
RUN_COLOURS = 7  # in compare.css


def compare_charts(runs: list[Run], names: Sequence[str], matches: Sequence[Match]) -> dict[str, Any]:
    """For each way to align, a model for Charts.linked. NaN becomes null."""
    tables = [run._drawn for run in runs]
    modes = [mode for mode in ALIGNMENTS if mode == "none" or have_common_layers(runs, matches, "active")]
    placed = {
        (mode, axis): place_runs(tables, matches, over_time, mode, "active")
        for mode in modes
        for axis, over_time in AXES.items()
    }
    rows = [_kept(points) for points in placed["none", "time"][1]]
    panels = _panels(runs, names, placed["none", "time"][1], rows)
    models = {}
    for mode in modes:
        points: dict[str, dict[str, list[float | None]]] = {}
        for number, kept in enumerate(rows):
            points[f"run{number}"] = {axis: _positions(placed[mode, axis][1][number], kept) for axis in AXES}
        first = {axis: _without_gaps(placed[mode, axis][1][0]) for axis in AXES}
        points["rows"] = {axis: _numbers(values) for axis, values in first.items()}
        whole = {"label": "Whole run"} | {axis: _range(placed[mode, axis][1]) for axis in AXES}
        regions = [whole, *_active_region(runs[0], placed[mode, "time"][1][0], first, whole)]
        models[mode] = {
            "points": points,
            "axes": {"time": "time (s)", "height": tables[0].height_label},
            "stages": _stages({axis: placed[mode, axis][0] for axis in AXES}),
            "regions": regions,
            "first": len(regions) - 1,  # the region that is shown first
        }
    return {"panels": panels, "models": models}


def _kept(points: PlacedRun) -> Rows:
    """Which points are drawn, counted without interruptions: the ends of layers, and the others evenly thinned."""
    layer = points.layer[~np.isnan(points.share)]
    if len(layer) <= MAX_ROWS:
        return np.arange(len(layer), dtype=np.intp)
    borders = np.flatnonzero(np.diff(layer) != 0)
    ends = np.concatenate((borders, borders + 1)) if len(borders) < MAX_ROWS // 4 else borders[:0]
    even = np.linspace(0, len(layer) - 1, MAX_ROWS).astype(int)
    return np.asarray(np.unique(np.concatenate((even, ends))), np.intp)


def _without_gaps(points: PlacedRun) -> Array:
    return points.x[~np.isnan(points.share)]


def _positions(points: PlacedRun, kept: Rows) -> list[float | None]:
    """Positions of the points, and one more between layers: null where the curve is interrupted."""
    real = np.flatnonzero(~np.isnan(points.share))
    interrupted = np.isnan(points.share)
    x = points.x[real][kept]
    layer = points.layer[real][kept]
    before = np.cumsum(interrupted)[real][kept]
    joints = np.flatnonzero(np.diff(layer) != 0) + 1
    between = np.where(before[joints] > before[joints - 1], np.nan, x[joints - 1])
    return _numbers(np.insert(x, joints, between))


def _numbers(values: Array, digits: int = 9) -> list[float | None]:
    """Numbers for JSON; null for values that are not finite."""
    return [float(f"{value:.{digits}g}") if np.isfinite(value) else None for value in values.tolist()]


def _panels(runs: list[Run], names: Sequence[str], placed: list[PlacedRun], rows: list[Rows]) -> list[dict[str, Any]]:
    panels = []
    for key in PANELS:
        curves = [curve for curve in curves_of(key, runs, placed) if np.isfinite(curve.values).any()]
        if not curves:
            continue
        relaxes = not _finished_as_grown(curves)
        if not relaxes:
            curves = [curve for curve in curves if not curve.quantity.endswith("(z)")]
        title, unit = TITLES[key]
        panel: dict[str, Any] = {"key": key, "title": title, "unit": unit, "curves": [
            _curve(curve, names[curve.run] + _suffix(curve, curves, relaxes), placed, rows)
            | {"label": f"{_quantity(curve, title, relaxes)}, {names[curve.run]}"}
            for curve in curves
        ]}
        if key == "composition":
            metals = sorted({curve.quantity for curve in curves}, reverse=True)
            panel |= {"title": f"fraction of {' and '.join(metals)}", "zero": True}
        if key == "temperature":
            heat = np.concatenate([curve.values for curve in curves])
            low, high = float(np.nanmin(heat)), float(np.nanmax(heat))
            if high - low < SMALLEST_RAMP:
                panel["range"] = [low - 10 * SMALLEST_RAMP, high + 10 * SMALLEST_RAMP]
        if key == "densities":
            decades = decades_of([(pd.Series(curve.values), "", "", False) for curve in curves])
            panel |= {"log": True, "range": list(decades)}
        panels.append(panel)
    return panels


def _finished_as_grown(curves: list[Curve]) -> bool:
    """Whether the finished structure has the values of growth, so that curves (z) are those of (t)."""
    found = {(curve.run, curve.quantity): curve.values for curve in curves}
    for (run, quantity), values in found.items():
        if quantity.endswith("(z)"):
            as_grown = found.get((run, quantity.replace("finished (z)", "at growth (t)").replace("(z)", "(t)")))
            if as_grown is None or not np.array_equal(values, as_grown, equal_nan=True):
                return False
    return True


def _suffix(curve: Curve, curves: list[Curve], relaxes: bool) -> str:
    """What is added to the name of the run where a panel has several curves of a run."""
    if curve.quantity.startswith("V-defects"):
        return ", V-defects (t)"
    if curve.quantity == "Al":
        return ", Al" if any(other.quantity != "Al" for other in curves) else ""
    return f" {curve.quantity[-3:]}" if relaxes and curve.quantity.endswith(("(t)", "(z)")) else ""


def _quantity(curve: Curve, title: str, relaxes: bool) -> str:
    """The quantity of a curve in words: indium, strain (t), dislocations."""
    if curve.quantity in NAMES:
        return NAMES[curve.quantity]
    if curve.quantity.startswith("V-defects"):
        return "V-defects (t)"
    return title.split(" \u03b5")[0] + (f" {curve.quantity[-3:]}" if relaxes and curve.quantity.endswith(")") else "")


def _curve(curve: Curve, name: str, placed: list[PlacedRun], rows: list[Rows]) -> dict[str, Any]:
    """A curve for linked.js. The first runs have wider lines, so that they show where curves coincide."""
    kept = rows[curve.run]
    points = placed[curve.run]
    real = np.flatnonzero(~np.isnan(points.share))
    layer = points.layer[real][kept]
    joints = np.flatnonzero(np.diff(layer) != 0) + 1
    values = curve.values[real][kept]
    made: dict[str, Any] = {
        "name": name,
        "run": curve.run,
        "points": f"run{curve.run}",
        "y": _numbers(np.insert(values, joints, values[joints - 1]), 6),
        "width": round(WIDEST - (WIDEST - NARROWEST) * curve.run / max(len(placed) - 1, 1), 2),
        "colour": f"run-{curve.run % RUN_COLOURS}",
    }
    if curve.quantity.startswith("V-defects"):
        made["dotted"] = True
    elif curve.style != SOLID:
        made["dashed"] = True
    return made


def _range(placed: Sequence[PlacedRun]) -> list[float]:
    x = np.concatenate([points.x for points in placed])
    x = x[np.isfinite(x)]
    if len(x) == 0:
        return [0.0, 1.0]
    low, high = float(x.min()), float(x.max())
    return [low, high] if high - low > 1e-6 else [low - 1.0, high + 1.0]


def _stages(places: dict[str, list[Place]]) -> list[dict[str, Any]]:
    stages = []
    for number, (time, height) in enumerate(zip(places["time"], places["height"]), 1):
        stages.append(
            {
                "number": number,
                "name": " ".join(time.name.split()),
                "rank": 1 if height.width > 1.0 else 0,
                "time": [time.begin, time.end],
                "height": sorted((height.begin, height.end)),
            }
        )
    return stages


def _active_region(
    run: Run, points: PlacedRun, first: dict[str, Array], whole: dict[str, Any]
) -> list[dict[str, Any]]:
    """The active region of the first run, where its times are on the axes."""
    region = structure_of(run._layers).region
    times = points.time[~np.isnan(points.share)]
    if region is None or len(times) == 0:
        return []
    ranges = {}
    for axis, x in first.items():
        finite = np.isfinite(x)
        low, high = np.interp([region.begin, region.end], times[finite], x[finite])
        if not high - low > 1e-6:
            return []
        ranges[axis] = inner_part([float(low), float(high)], whole[axis])
    return [] if all(ranges[axis] == whole[axis] for axis in AXES) else [{"label": "Active region", **ranges}]
