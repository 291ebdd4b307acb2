"""What grew: repeated groups of layers, wells and barriers, the active region, and one sentence about all of it.

Pure functions on the table Run.layers. Layers of practically one composition are joined into slabs, so a barrier grown
as "barrier", "cooling" and the GaN part of "heating" is one slab. A well is a thin slab whose band gap is smaller than
that of both neighbours. The sentence itself is in structure_text.py.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array
from .._observe.bands import band_gap
from .repeats import Group, repeats

METALS = ("x_in", "x_ga", "x_al")
SAME = 0.01  # difference of a fraction up to which two layers have one composition
GRADED = 0.025  # difference between the end and the mean of a graded layer
ABSENT = 0.005  # fraction of a metal that does not count
MONOLAYER = 0.25  # nm; a thinner slab is not a layer
THINNEST = 1.0  # nm; a thinner slab between two others, with a composition between theirs, is part of an interface
WELL_MAX, WELL_RATIO = 15.0, 1.5  # nm, thickness of the thickest quantum well; or by this factor above the thinnest
SLIVER = 0.35  # of the room beside the wells; thinner parts of other layers are left out of the active region
LACK = 0.05  # of that room; a layer of which less is missing is in the active region as a whole
WELL_ROOM = 10.0  # nm, what is shown at least below a barrier and around a single well
BARRIER_MAX = 100.0  # nm, thickness of the thickest barrier of a transistor
DEPTH_MIN = 0.03  # eV by which the gap of a well is smaller than those of its neighbours
RAMP_SHARE, RAMP_MAX = 0.4, 5.0  # share of the thickest layer of a slab, and nm; thicker layers are never called ramps

Fractions = tuple[float, float, float]  # of In, Ga and Al


class Slab(NamedTuple):
    """Consecutive layers of practically one composition."""

    numbers: tuple[int, ...]  # of the layers, from the bottom up
    kind: str  # pre, active or post
    bottom: float  # height above the pre-stages, nm
    thickness: float  # nm
    x: Fractions  # In, Ga, Al: mean by thickness
    x_first: Fractions  # at the bottom; differs from x_last if the slab is graded
    x_last: Fractions  # at the top

    @property
    def top(self) -> float:
        """Height of the top above the pre-stages, nm."""
        return self.bottom + self.thickness

    @property
    def graded(self) -> bool:
        """Whether the composition changes through the slab."""
        return self.x_first != self.x_last

    @property
    def gap(self) -> float:
        """Band gap without strain at room temperature, eV; orders the slabs."""
        return float(band_gap(*self.x))


class Region(NamedTuple):
    """The active region: a range of times and of heights."""

    begin: float  # s
    end: float  # s
    low: float  # nm above the pre-stages
    high: float  # nm above the pre-stages
    why: str  # "wells", "periods", "barrier", "indium" or "top": what it was found by
    numbers: frozenset[int]  # of the layers, also of those of which only a part is in it


class Structure(NamedTuple):
    """What grew."""

    slabs: list[Slab]  # of the whole structure, from the bottom up
    wells: list[Slab]
    barriers: list[Slab]  # between and next to the wells
    periods: Group | None  # the repeated group of a structure without wells, such as a mirror; positions in the table
    region: Region | None  # None if nothing grew
    roles: dict[int, str]  # number of a layer: "well", "barrier", "transition" (ramp, pause) or "layer"


def structure_of(layers: pd.DataFrame) -> Structure:
    """Finds slabs, wells, barriers, repeated groups and the active region in Run.layers."""
    slabs = slabs_of(layers)
    active = [slab for slab in slabs if slab.kind == "active"]
    wells = _wells(slabs)
    barriers = _barriers(slabs, wells)
    periods = None if wells else _periods(layers)
    region = _region(layers, slabs, wells, periods) if active else None
    return Structure(slabs, wells, barriers, periods, region, _roles(layers, slabs, wells, barriers))


def heights(layers: pd.DataFrame) -> tuple[Array, Array]:
    """Heights of the bottoms and tops of all layers above the pre-stages, nm. A layer without a thickness has none."""
    thickness = np.nan_to_num(layers["thickness"].to_numpy(float), posinf=0.0, neginf=0.0)
    pre = int((layers["kind"] == "pre").sum())
    below = np.cumsum(thickness[:pre][::-1])[::-1]  # from the top of the pre-stages down
    above = np.cumsum(thickness[pre:])
    tops = np.concatenate((-below[1:], [0.0] * (pre > 0), above))
    bottoms = np.concatenate((-below, [0.0] * (pre < len(layers)), above[:-1]))
    return bottoms, tops


# ---- repeated groups


def groups_of(layers: pd.DataFrame) -> list[Group]:
    """Repeated groups of layers from the bottom up; layers that are not repeated are groups of one layer.

    Layers are alike if they have one name and kind, their thicknesses differ by less than 2 % or 0.02 nm, and their
    compositions by less than 0.005.
    """
    names = (layers["name"].astype(str) + "\n" + layers["kind"]).to_numpy(str)
    fractions = np.nan_to_num(composition(layers), nan=-1.0)
    thickness = np.nan_to_num(layers["thickness"].to_numpy(float), posinf=0.0, neginf=0.0)
    _, codes = np.unique(names, return_inverse=True)
    return repeats(codes, thickness, fractions)


def _periods(layers: pd.DataFrame) -> Group | None:
    """The largest repeated group of simulated layers with at least three periods of different compositions."""
    fractions = composition(layers)
    found = None
    for group in groups_of(layers):
        block = slice(group.first, group.first + group.size)
        grown = fractions[block][(layers["thickness"].iloc[block] > THINNEST).to_numpy()]
        if group.periods < 3 or layers["kind"].iloc[group.first] != "active" or not len(grown):
            continue
        is_largest = found is None or group.size * group.periods > found.size * found.periods
        if is_largest and np.ptp(grown, axis=0).max() > SAME:
            found = group
    return found


# ---- slabs


def composition(layers: pd.DataFrame) -> Array:
    """Fractions of In, Ga and Al of each layer without its interfaces; the mean of the layer if these are unknown."""
    means = layers[list(METALS)].to_numpy(float)
    middle = [f"{metal}_mid" for metal in METALS]
    if not set(middle) <= set(layers.columns):
        return np.asarray(means)
    values = layers[middle].to_numpy(float)
    return np.where(np.isfinite(values), values, means)


def slabs_of(layers: pd.DataFrame) -> list[Slab]:
    """The slabs of the finished structure. Layers that were not reached or whose composition is unknown are left out.

    Pre-stages, simulated layers and post-stages are never joined. A pause that evaporates material makes the slab below
    it thinner.
    """
    fractions = composition(layers)
    bottoms, _ = heights(layers)
    slabs: list[Slab] = []
    for position, layer in enumerate(layers.itertuples()):
        thickness, x = float(layer.thickness), fractions[position]
        if np.isfinite(thickness) and thickness <= 0.0:
            slabs = _evaporated(slabs, -thickness)
        if not (np.isfinite(thickness) and thickness > 0.0 and np.isfinite(x).all()):
            continue
        triple = (float(x[0]), float(x[1]), float(x[2]))
        ends = _ends(layer, triple, slabs[-1].x_last if slabs else triple)
        low = slabs[-1].top if slabs and slabs[-1].kind == layer.kind else float(bottoms[position])
        slabs.append(Slab((int(layer.Index),), str(layer.kind), low, thickness, triple, *ends))
    slabs = _joined(slabs)
    return _joined(_without_interfaces(slabs))


def _ends(layer: Any, x: Fractions, below: Fractions) -> tuple[Fractions, Fractions]:
    """Composition of a layer at its bottom and top; twice the mean unless the layer is graded.

    In a layer whose composition changes steadily the end is as far above the mean as the start is below it. If that is
    near the composition of the slab below, the layer starts with that. Where the middle half of the layer has another
    mean, the composition doesn't change steadily: the start is unknown, and the layer counts as not graded.
    """
    end = np.array([getattr(layer, f"{metal}_end", np.nan) for metal in METALS], float)
    mean = np.array([getattr(layer, metal) for metal in METALS], float)
    change = np.abs(end - mean).max()  # NaN if one of them is unknown
    steady = np.abs(mean - x).max() < 0.1 * change
    if not (layer.thickness > 2 * THINNEST and change > GRADED and steady):
        return x, x
    start = np.clip(2 * mean - end, 0.0, 1.0)
    if np.abs(start - below).max() < np.abs(end - below).max() / 3:
        start = np.array(below)
    return (float(start[0]), float(start[1]), float(start[2])), (float(end[0]), float(end[1]), float(end[2]))


def _evaporated(slabs: list[Slab], depth: float) -> list[Slab]:
    """The slabs after the uppermost nanometres of simulated slabs were lost."""
    slabs = slabs.copy()
    while slabs and slabs[-1].kind == "active" and depth > 0.0:
        top = slabs.pop()
        if top.thickness > depth:
            slabs.append(top._replace(thickness=top.thickness - depth))
        depth -= top.thickness
    return slabs


def alike(one: Slab, other: Slab) -> bool:
    """Whether two slabs have one composition."""
    pairs = zip((*one.x_first, *one.x_last), (*other.x_first, *other.x_last))
    return not (one.graded or other.graded) and all(abs(a - b) <= SAME for a, b in pairs)


def _joined(slabs: Sequence[Slab]) -> list[Slab]:
    """Neighbours of one kind and composition as one slab."""
    joined: list[Slab] = []
    for slab in slabs:
        if joined and joined[-1].kind == slab.kind and alike(joined[-1], slab):
            joined[-1] = _sum(joined[-1], slab)
        else:
            joined.append(slab)
    return joined


def _sum(below: Slab, above: Slab) -> Slab:
    """Two slabs as one with their mean composition."""
    total = below.thickness + above.thickness
    x = [(a * below.thickness + b * above.thickness) / total for a, b in zip(below.x, above.x)]
    mean = (x[0], x[1], x[2])
    return Slab(below.numbers + above.numbers, below.kind, below.bottom, total, mean, mean, mean)


def _without_interfaces(slabs: list[Slab]) -> list[Slab]:
    """Slabs thinner than 1 nm whose composition is between those next to them go to the more similar neighbour.

    So do all that are thinner than a monolayer. Neighbours are of one kind: simulated, or given below or above.
    """
    slabs = slabs.copy()
    kept: list[Slab] = []
    for index, slab in enumerate(slabs):
        above = slabs[index + 1] if index + 1 < len(slabs) and slabs[index + 1].kind == slab.kind else None
        below = kept[-1] if kept and kept[-1].kind == slab.kind else None
        if slab.thickness >= MONOLAYER and not _is_interface(slab, below, above):
            kept.append(slab)
        elif below is not None and (above is None or _distance(slab.x, below.x_last) <= _distance(slab.x, above.x_first)):
            kept[-1] = _grown(below, slab, below.numbers + slab.numbers, below.bottom)
        elif above is not None:
            slabs[index + 1] = _grown(above, slab, slab.numbers + above.numbers, slab.bottom)
        else:
            kept.append(slab)
    return kept


def _is_interface(slab: Slab, below: Slab | None, above: Slab | None) -> bool:
    """Whether a slab is thin and its composition between those of the slabs next to it."""
    if below is None or above is None or slab.thickness >= THINNEST:
        return False
    ends = zip(below.x_last, above.x_first, slab.x)
    return all(min(a, b) - SAME <= x <= max(a, b) + SAME for a, b, x in ends)


def _grown(slab: Slab, by: Slab, numbers: tuple[int, ...], bottom: float) -> Slab:
    """A slab with the thickness of another, and its own composition."""
    return slab._replace(numbers=numbers, bottom=bottom, thickness=slab.thickness + by.thickness)


def _distance(one: Fractions, other: Fractions) -> float:
    return max(abs(a - b) for a, b in zip(one, other))


# ---- wells, barriers and the active region


def _wells(slabs: list[Slab]) -> list[Slab]:
    """Simulated slabs of at most 15 nm with a smaller gap than both neighbours, without those of less than half depth.

    Shallow ones belong to an underlayer. A thicker one counts beside a thinner one of similar thickness. A last well
    without anything above it counts if it is like the others.
    """
    found: list[tuple[float, float, Slab]] = []  # depths below the lower and the higher of the neighbours
    for below, slab, above in zip(slabs, slabs[1:], slabs[2:]):
        depths = below.gap - slab.gap, above.gap - slab.gap
        if slab.kind == "active" and slab.thickness <= WELL_RATIO * WELL_MAX and min(depths) > DEPTH_MIN:
            found.append((min(depths), max(depths), slab))
    deepest = max((depth for depth, _, _ in found), default=0.0)
    wells = [slab for _, depth, slab in found if depth > 0.5 * deepest]
    thinnest = min((well.thickness for well in wells), default=0.0)
    thickest = max(WELL_MAX, WELL_RATIO * thinnest) if thinnest <= WELL_MAX else 0.0
    wells = [well for well in wells if well.thickness <= thickest]
    if wells and slabs[-1].kind == "active" and slabs[-1].thickness <= thickest:
        is_well = slabs[-1] != wells[-1] and slabs[-2].gap - slabs[-1].gap > DEPTH_MIN
        if is_well and _distance(slabs[-1].x, wells[-1].x) <= 5 * SAME:
            wells.append(slabs[-1])
    return wells


def _barriers(slabs: list[Slab], wells: list[Slab]) -> list[Slab]:
    """The slabs between the wells, the one below the first and the one above the last."""
    if not wells:
        return []
    places = {slab.bottom: index for index, slab in enumerate(slabs)}
    first, last = places[wells[0].bottom], places[wells[-1].bottom]
    chosen = {well.bottom for well in wells}
    return [slab for slab in slabs[max(first - 1, 0) : last + 2] if slab.bottom not in chosen]


def spacings(wells: Sequence[Slab]) -> list[float]:
    """Thicknesses of what is between the wells, nm."""
    return [above.bottom - below.top for below, above in zip(wells, wells[1:])]


def _region(
    layers: pd.DataFrame, slabs: list[Slab], wells: list[Slab], periods: Group | None
) -> Region:
    active = [slab for slab in slabs if slab.kind == "active"]
    bottom, top = active[0].bottom, active[-1].top
    low, high, why = bottom, top, "top"
    if wells:
        gaps = spacings(wells)
        room = float(np.mean(gaps)) if gaps else max(WELL_ROOM, wells[0].thickness)
        low, high, why = wells[0].bottom - room, wells[-1].top + room, "wells"
        low, high = _at_borders(layers, low, high, room)
    elif periods is not None:
        bottoms, tops = heights(layers)
        low, high, why = bottoms[periods.first], tops[periods.first + periods.size * periods.periods - 1], "periods"
    elif barrier := transistor_barrier(slabs):
        room = max(WELL_ROOM, barrier[-1].top - barrier[0].bottom)
        low, high, why = barrier[0].bottom - room, top, "barrier"
    elif with_indium := [slab for slab in active if max(slab.x_first[0], slab.x_last[0]) > ABSENT]:
        room = max(0.1 * (with_indium[-1].top - with_indium[0].bottom), 2.0)
        low, high, why = with_indium[0].bottom - room, with_indium[-1].top + room, "indium"
    elif len(active) > 1:
        main = active[main_position(active)]
        low = main.bottom - 0.1 * main.thickness
    low, high = max(low, bottom), min(high, top)
    begin, end = _time_at(layers, low, False), _time_at(layers, high, True)
    if end < begin:  # after evaporation, through layers of unknown composition
        simulated = layers[layers["kind"] == "active"]
        begin, end = float(simulated["begin"].iloc[0]), float(simulated["end"].iloc[-1])
    bottoms, tops = heights(layers)
    within = (layers["kind"] == "active").to_numpy() & (bottoms < high - 1e-6) & (tops > low + 1e-6)
    return Region(begin, end, float(low), float(high), why, frozenset(int(number) for number in layers.index[within]))


def _at_borders(layers: pd.DataFrame, low: float, high: float, room: float) -> tuple[float, float]:
    """A range of heights without thin parts of its first and last layers, and with all of those that lack little."""
    bottoms, tops = heights(layers)
    thin, little = SLIVER * room, LACK * room
    low = max(tops[(tops > low) & (tops < low + thin)], default=low)
    high = min(bottoms[(bottoms < high) & (bottoms > high - thin)], default=high)
    low = min(bottoms[(bottoms < low) & (bottoms > low - little)], default=low)
    high = max(tops[(tops > high) & (tops < high + little)], default=high)
    return float(low), float(high)


def transistor_barrier(slabs: list[Slab]) -> list[Slab]:
    """The barrier of a transistor from the bottom up: the uppermost simulated slabs with aluminium, on one without.

    They are thinner than 100 nm together and than what is below; caps without aluminium may be above. A spacer and a
    graded transition are part of the barrier. An empty list if there is none.
    """
    with_aluminium = [slab.kind == "active" and max(slab.x[2], slab.x_last[2]) > 5 * SAME for slab in slabs]
    if not any(with_aluminium):
        return []
    end = len(slabs) - with_aluminium[::-1].index(True)
    begin = end
    while begin > 0 and with_aluminium[begin - 1]:
        begin -= 1
    barrier = slabs[begin:end]
    total = sum(slab.thickness for slab in barrier)
    base = slabs[begin - 1] if begin > 0 else None
    if base is None or base.x[2] > 5 * SAME or base.thickness < total or total > BARRIER_MAX:
        return []
    return barrier


def main_position(slabs: list[Slab]) -> int:
    """Position of the slab that is named first: the top of a barrier, the one below a cap, or the uppermost."""
    barrier = transistor_barrier(slabs)
    if barrier:
        return slabs.index(barrier[-1])
    top = len(slabs) - 1
    alloys = [place for place, slab in enumerate(slabs) if slab.kind == "active" and max(slab.x[0], slab.x[2]) > ABSENT]
    if not alloys:
        return top
    cap = sum(slab.thickness for slab in slabs[alloys[-1] + 1 :])
    return alloys[-1] if slabs[alloys[-1]].thickness > cap else top


def _time_at(layers: pd.DataFrame, height: float, is_end: bool) -> float:
    """The time at which what is left at a height was grown, s: the last growth through it.

    At a border a region starts with the layer above it and ends with the layer below it.
    """
    bottoms, tops = heights(layers)
    growing = (layers["kind"] == "active").to_numpy() & np.isfinite(composition(layers)).all(axis=1)
    slack = 1e-9  # nm
    if is_end:
        inside = growing & (tops >= height - slack) & (bottoms < height - slack)
    else:
        inside = growing & (tops > height + slack) & (bottoms <= height + slack)
    places = np.flatnonzero(inside)
    if not len(places):  # below or above everything
        simulated = layers[layers["kind"] == "active"]
        return float(simulated["end"].iloc[-1] if is_end else simulated["begin"].iloc[0])
    place = int(places[-1])
    share = min(max((height - bottoms[place]) / (tops[place] - bottoms[place]), 0.0), 1.0)
    layer = layers.iloc[place]
    return float(layer["begin"] + share * (layer["end"] - layer["begin"]))


def _roles(
    layers: pd.DataFrame, slabs: list[Slab], wells: list[Slab], barriers: list[Slab]
) -> dict[int, str]:
    """A role for each layer. Thin parts of a slab, and layers in which nothing is left, are ramps and pauses."""
    roles = {int(number): "transition" for number in layers.index}
    named = [(slab, "well") for slab in wells] + [(slab, "barrier") for slab in barriers]
    special = {slab.numbers: role for slab, role in named}
    thickness = dict(zip(layers.index, layers["thickness"]))
    between = spacings(wells)
    typical = float(np.mean(between)) if between else np.inf
    for slab in slabs:
        role = special.get(slab.numbers, "layer")
        # Of a barrier that is joined with a thick buffer, what is between the wells counts.
        thickest = min(max(thickness[number] for number in slab.numbers), typical)
        for number in slab.numbers:
            if thickness[number] > min(RAMP_SHARE * thickest, RAMP_MAX):
                roles[number] = role
    return roles
