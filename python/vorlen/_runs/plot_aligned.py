"""Several runs on one axis over time or height, with corresponding layers on top of each other.

The axis consists of one place for each layer of the first run, and between them places for layers that only other runs
have. Within a place, a run is shifted and, if asked for, stretched.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, Mask, Rows
from .drawn import DrawnTables
from .result_file import TIME_TOLERANCE

ALIGNMENTS = ("stage", "start", "none")

Match = Sequence[tuple[int | None, int | None]]  # positions of layers in the first run and in another


class Place(NamedTuple):
    """Where a layer is on the axis, s or nm."""

    name: str
    begin: float
    width: float

    @property
    def end(self) -> float:
        return self.begin + self.width


@dataclass
class PlacedRun:
    """The points of a run's curves. Where the run has nothing, there is a point at NaN, which interrupts the curves."""

    x: Array  # on the axis
    row: Rows  # the row before each point
    share: Array  # of the way to the next row; NaN where curves are interrupted
    layer: Rows  # position of the layer
    time: Array  # s

    def values(self, column: pd.Series) -> Array:
        """A column of the profile at the points; linear between rows."""
        values = column.to_numpy()
        below, above = values[self.row], values[np.minimum(self.row + 1, len(values) - 1)]
        with np.errstate(invalid="ignore"):  # infinity - infinity
            between = below + self.share * (above - below)
        return np.where(self.share == 0.0, below, between)

    def temperature(self, timeline: pd.DataFrame | None) -> Array | None:
        """Temperature at the points, K; None if the recipe is unknown."""
        if timeline is None:
            return None
        begin, duration, start, end = (
            timeline[name].to_numpy(float)[self.layer] for name in ("begin", "duration", "T_begin", "T_end")
        )
        with np.errstate(all="ignore"):
            share = np.clip((self.time - begin) / duration, 0.0, 1.0)
        return np.asarray(start + np.where(np.isnan(share), 0.0, share) * (end - start) + 0.0 * self.share)


class _LayerSpan(NamedTuple):
    """A layer of a run: its times, its height and thickness, s and nm."""

    begin: float
    end: float
    z: float
    thickness: float

    def extent(self, over_time: bool) -> float:
        return self.end - self.begin if over_time else self.thickness


def place_runs(
    runs: Sequence[DrawnTables], matches: Sequence[Match], over_time: bool, align: str, span: str
) -> tuple[list[Place], list[PlacedRun]]:
    """The places of the layers, and the points of each run.

    runs     the first decides the places of its layers
    matches  for each run, which of its layers correspond to layers of the first
    align    "stage": stretched to the first run's layers; "start": each layer starts at the same place, and there is
             room for the thickest or longest; "none": as they are
    """
    spans = [_spans(tables) for tables in runs]
    kept = [_kept(tables, span) for tables in runs]
    if align == "none":
        own = [_own_places(tables, spans[i], kept[i], over_time) for i, tables in enumerate(runs)]
        points = [_points(tables, spans[i], own[i], over_time, False) for i, tables in enumerate(runs)]
        return list(own[0].values()), points
    places, of_layers = _common_places(runs, spans, kept, matches, over_time, align)
    stretch = align == "stage"
    points = [_points(tables, spans[i], of_layers[i], over_time, stretch) for i, tables in enumerate(runs)]
    return places, points


def _spans(tables: DrawnTables) -> list[_LayerSpan]:
    profile = tables.profile
    time, z = profile["time"].to_numpy(), profile["z"].to_numpy()
    begin, end = (tables.layers[name].to_numpy(float) for name in ("begin", "end"))
    heights = np.interp(np.concatenate((begin, end)), time, z)
    bottom, top = np.split(heights, 2)
    return [_LayerSpan(*values) for values in zip(begin.tolist(), end.tolist(), bottom.tolist(), (top - bottom).tolist())]


def _kept(tables: DrawnTables, span: str) -> Mask:
    """Which layers are drawn."""
    active: Mask = (tables.layers["kind"] == "active").to_numpy(bool)
    return active if span == "active" and active.any() else np.ones(len(active), bool)


def _origin(tables: DrawnTables, over_time: bool) -> float:
    """What is subtracted from the heights of a run."""
    return 0.0 if over_time else tables.reference_height


def _own_places(tables: DrawnTables, spans: list[_LayerSpan], kept: Mask, over_time: bool) -> dict[int, Place]:
    origin = _origin(tables, over_time)
    names = tables.layers["name"].tolist()
    return {
        layer: Place(names[layer], (span.begin if over_time else span.z) - origin, span.extent(over_time))
        for layer, span in enumerate(spans)
        if kept[layer]
    }


def _common_places(
    runs: Sequence[DrawnTables],
    spans: list[list[_LayerSpan]],
    kept: list[Mask],
    matches: Sequence[Match],
    over_time: bool,
    align: str,
) -> tuple[list[Place], list[dict[int, Place]]]:
    """All places in order, and for each run the places of its layers."""
    # Slots: a layer of the first run, or what comes after it: the number of the layer before, the names, the position.
    slots: dict[tuple[int, tuple[str, ...], int], list[tuple[int, int]]] = {}
    for run, match in enumerate(matches):
        before, extra = -1, list[int]()
        for first, other in [*match, (len(spans[0]), None)]:
            if first is None and other is not None:
                extra.append(other)
                continue
            names = tuple(runs[run].layers["name"].iloc[layer] for layer in extra)
            for position, layer in enumerate(extra):
                slots.setdefault((before, names, position), []).append((run, layer))
            before, extra = first if first is not None else before, []
            if other is not None and first is not None:
                slots.setdefault((first, (), -1), []).append((run, other))
    places: list[Place] = []
    of_layers: list[dict[int, Place]] = [{} for _ in runs]
    start = next((span for span, keep in zip(spans[0], kept[0]) if keep), None)
    at = 0.0 if start is None else (start.begin if over_time else start.z) - _origin(runs[0], over_time)
    for key in sorted(slots, key=lambda slot: (slot[0], slot[2] >= 0, slot[1], slot[2])):
        members = [(run, layer) for run, layer in slots[key] if kept[run][layer]]
        if not members:
            continue
        extents = [spans[run][layer].extent(over_time) for run, layer in members]
        run, layer = members[0]
        width = extents[0] if align == "stage" else max(extents)
        place = Place(runs[run].layers["name"].iloc[layer], at, width if np.isfinite(width) else 0.0)
        places.append(place)
        at = place.end
        for run, layer in members:
            of_layers[run][layer] = place
    return places, of_layers


def _points(
    tables: DrawnTables, spans: list[_LayerSpan], places: dict[int, Place], over_time: bool, stretch: bool
) -> PlacedRun:
    """The points of a run: its rows in each layer, and the layer's ends where there is no row."""
    time, z = tables.profile["time"].to_numpy(), tables.profile["z"].to_numpy()
    x: list[Array] = []
    found: list[tuple[Rows, Array, int]] = []
    last = np.nan
    for layer, place in places.items():
        rows, share = _rows_of(time, spans[layer].begin, spans[layer].end)
        if len(rows) == 0:
            continue
        after = np.minimum(rows + 1, len(time) - 1)
        values = time if over_time else z
        here = values[rows] + share * (values[after] - values[rows])
        here = here - (spans[layer].begin if over_time else spans[layer].z)
        extent = spans[layer].extent(over_time)
        whole = spans[layer].end <= time[-1] * (1.0 + TIME_TOLERANCE)  # the run did not end within the layer
        factor = place.width / extent if stretch and whole and extent > 0.0 and place.width > 0.0 else 1.0
        here = place.begin + factor * here
        if x and not abs(here[0] - last) <= 1e-6 * (1.0 + abs(last)):  # nothing between the two layers
            x.append(np.array([np.nan]))
            found.append((rows[:1], np.array([np.nan]), layer))
        x.append(here)
        found.append((rows, share, layer))
        last = here[-1]
    if not x:
        empty = np.array([], float)
        return PlacedRun(empty, empty.astype(np.intp), empty, empty.astype(np.intp), empty)
    row = np.concatenate([rows for rows, _, _ in found]).astype(np.intp)
    share = np.concatenate([share for _, share, _ in found])
    layers = np.concatenate([np.full(len(rows), layer, np.intp) for rows, _, layer in found])
    times = time[row] + share * (time[np.minimum(row + 1, len(time) - 1)] - time[row])
    return PlacedRun(np.concatenate(x), row, share, layers, times)


def _rows_of(time: Array, begin: float, end: float) -> tuple[Rows, Array]:
    """The rows from begin to end, as the row before each point and the share of the way to the next one.

    If no row is at begin or end, a point between two rows is added there. Nothing if the run ended before.
    """
    slack = TIME_TOLERANCE * max(abs(begin), abs(end))
    if len(time) == 0 or (begin >= time[-1] - slack and end > begin + slack):
        return np.array([], np.intp), np.array([], float)
    # Of several rows at a border, the last is of the layer above it and the first of the one below.
    first = int(np.searchsorted(time, begin + slack, "right")) - 1
    past = int(np.searchsorted(time, end - slack, "left")) + 1
    edges: list[tuple[int, float]] = []
    if first < 0 or time[first] < begin - slack:
        if first >= 0:
            edges.append((first, (begin - time[first]) / (time[first + 1] - time[first])))
        first += 1
    if past > len(time) or time[past - 1] > end + slack:
        past -= 1
        if past < len(time):
            edges.append((past - 1, (end - time[past - 1]) / (time[past] - time[past - 1])))
    rows, share = np.arange(first, past, dtype=np.intp), np.zeros(max(past - first, 0))
    for row, part in edges:
        at = 0 if row < first else len(rows)
        rows, share = np.insert(rows, at, row), np.insert(share, at, part)
    return rows, share
