"""Emission of wells and thick layers: band gap, lowest transition between an electron and a hole, its wavelength.

A coarse guide: bulk band edges (bands.py), one particle in one dimension (quantum_well.py), the field of the
polarisation. Excitons and the localisation of carriers in fluctuations of the composition are one constant per fraction
of indium. The filling of bands at high currents and the coupling of wells through thin barriers are neglected.
"""

from __future__ import annotations

import math
from collections.abc import Mapping, Sequence
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, Mask
from .._recipe.quantities import number_in
from .bands import CONSTANTS, ERRORS, ROOM_TEMPERATURE, Constants, Edges, edges_of, polarisation_of
from .constants import HC
from .quantum_well import lowest_state
from .slices import Slices

VACUUM = 8.8541878128e-12  # permittivity, F/m
PER_MV_CM = 1e8  # V/m
V_PER_NM = 0.1  # of 1 MV/cm

CELL = 0.05  # nm
TAIL = 15.0  # nm, how far the barrier continues, without a field, beyond the part that belongs to a well
OUTER = 10.0  # nm of barrier that belong to a single well on each side, at most
BULK = 15.0  # nm, thickness of the thickest layer with levels of a well
SLACK = 0.01  # by which a fraction may be outside of 0 to 1
THIN = 3.0  # nm, thickness of a barrier below which wells couple

# name, unit, meaning of the columns of Run.emission()
EMISSION_COLUMNS = (
    ("layer", "", "number of the layer, as in layers"),
    ("name", "", "name of the layer"),
    ("kind", "", "well, or bulk: a thick layer, or one of a structure without wells"),
    ("bottom", "nm", "height of its bottom, on the z axis of the result file"),
    ("thickness", "nm", "thickness"),
    ("x_in", "1", "indium, mean over the middle half of the thickness"),
    ("x_ga", "1", "gallium, likewise"),
    ("x_al", "1", "aluminium, likewise"),
    ("eps_xx", "1", "in-plane strain in the finished structure, likewise"),
    ("gap", "eV", "band gap of this strained composition"),
    ("hole", "", "uppermost hole: heavy, or split (by the crystal field)"),
    ("electron", "eV", "lowest level of electrons without a field, above the band edge of this composition"),
    ("hole_level", "eV", "lowest level of holes without a field, likewise"),
    ("field", "MV/cm", "mean electric field in the well, negative towards the substrate"),
    ("overlap", "1", "squared overlap of electron and hole in this field"),
    ("localisation", "eV", "energy by which emission is below the lowest transition"),
    ("energy_flat", "eV", "energy of emission without a field: gap + electron + hole_level - localisation"),
    ("wavelength_flat", "nm", "its wavelength"),
    ("energy", "eV", "energy of emission in this field"),
    ("energy_error", "eV", "its standard deviation, from those of the constants"),
    ("wavelength", "nm", "wavelength of emission in this field"),
    ("wavelength_low", "nm", "the same with one standard deviation more energy"),
    ("wavelength_high", "nm", "the same with one standard deviation less energy"),
    ("note", "", "why values are missing, or what makes them worse; usually empty"),
)
NOTES = (
    "a coarse guide: compare changes between runs rather than single values",
    "neglected: filling of the bands, coupling of wells, field of the junction",
)


class Emitter(NamedTuple):
    """A layer that emits."""

    layer: int  # number of the layer
    name: str
    bottom: float  # nm, on the z axis of the result file
    top: float
    is_well: bool
    below: float = math.inf  # thickness of the layer below it, nm
    above: float = math.inf  # and above it


class Settings(NamedTuple):
    """What does not depend on the run."""

    temperature: float  # K
    field: float | None  # MV/cm, in wells; None: that of the polarisation
    screening: float  # share of that field that charge screens
    constants: Constants
    errors: Constants


class Cells(NamedTuple):
    """Equal cells from the bottom up, with mean values."""

    size: float  # nm
    columns: Array  # (n, 5): fractions of In, Ga, Al, strain eps_xx and eps_zz
    in_well: Mask
    has_field: Mask  # the part computed from the run
    is_wall: tuple[bool, bool]  # whether the structure ends below the first and above the last cell


class Transition(NamedTuple):
    """The lowest transition of a well. Energies are NaN without a bound state of an electron and a hole."""

    energy: float  # eV
    electron: float  # levels, eV on the scale of the band edges
    hole: float
    is_split: bool  # whether the hole is a split one
    density: tuple[Array, Array]  # probabilities of electron and hole in the cells
    unbound: str  # what is not bound; empty if both are


def settings_of(
    temperature: Any = ROOM_TEMPERATURE,
    field: Any = None,
    screening: Any = 0.0,
    constants: Mapping[str, Any] | None = None,
) -> Settings:
    """The arguments of Run.emission() as numbers. TypeError or ValueError for wrong ones."""
    kelvin = number_in(temperature, "temperature", "K")
    if not 0.0 <= kelvin <= 1500.0:
        raise ValueError(f"temperature must be from 0 to 1500 K, got {kelvin}")
    share = number_in(screening, "screening", "")
    if not 0.0 <= share <= 1.0:
        raise ValueError(f"screening must be from 0 to 1, got {share}")
    given = None if field is None else number_in(field, "field", "MV/cm")
    values, errors = CONSTANTS._asdict(), ERRORS._asdict()
    if not isinstance(constants, (Mapping, type(None))):
        raise TypeError(f"constants must be a dict of names and values, got {constants!r}")
    for name, value in (constants or {}).items():
        if name not in values:
            raise ValueError(f"unknown constant {name!r}; known are {', '.join(values)}")
        pair = value if isinstance(value, (tuple, list)) else (value, errors[name])
        if len(pair) != 2:
            raise ValueError(f"{name} takes a number, or a pair of value and standard deviation, got {value!r}")
        values[name], errors[name] = (float(number_in(number, name, "")) for number in pair)
        if errors[name] < 0.0:
            raise ValueError(f"{name}: the standard deviation must be 0 or more, got {errors[name]}")
    return Settings(float(kelvin), given, float(share), Constants(**values), Constants(**errors))


def emission_table(slices: Slices, emitters: Sequence[Emitter], settings: Settings) -> pd.DataFrame:
    """Run.emission(): one row for each emitter, numbered from 1.

    slices  the finished structure
    emitters  from the bottom up
    """
    wells = [one for one in emitters if _is_thin(one)]
    spaces = [above.bottom - below.top for below, above in zip(wells, wells[1:])]
    outer = 0.5 * float(np.mean(spaces)) if spaces else OUTER
    rooms = {
        one: (min(0.5 * below, one.below), min(0.5 * above, one.above))
        for one, below, above in zip(wells, [2 * outer, *spaces], [*spaces, 2 * outer])
    }
    records = [_record(slices, one, rooms.get(one, (0.0, 0.0)), settings) for one in emitters]
    names = [name for name, _, _ in EMISSION_COLUMNS]
    table = pd.DataFrame(records, columns=names, index=pd.RangeIndex(1, len(records) + 1, name="well"))
    table.attrs["units"] = {name: unit for name, unit, _ in EMISSION_COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in EMISSION_COLUMNS}
    screened = settings.screening > 0.0 and settings.field is None
    table.attrs["notes"] = [*NOTES, *([f"{settings.screening:.3g} of the field is screened"] if screened else [])]
    return table


def _is_thin(emitter: Emitter) -> bool:
    return emitter.is_well and emitter.top - emitter.bottom <= BULK


def _record(slices: Slices, emitter: Emitter, room: tuple[float, float], settings: Settings) -> dict[str, Any]:
    """One row; room is the thickness of barrier below and above that belongs to a well."""
    row: dict[str, Any] = {name: "" if not unit else math.nan for name, unit, _ in EMISSION_COLUMNS}
    row.update(layer=emitter.layer, name=emitter.name, kind="well" if _is_thin(emitter) else "bulk")
    row.update(bottom=emitter.bottom, thickness=emitter.top - emitter.bottom)
    middle = _middle(slices, emitter)
    if middle is None:
        return row | {"note": "unknown composition"}
    row.update(zip(("x_in", "x_ga", "x_al", "eps_xx"), middle))
    if not -SLACK <= middle[:3].min() <= middle[:3].max() <= 1.0 + SLACK:
        return row | {"note": "unphysical composition"}
    edges = _edges(middle[None, :], settings.temperature, settings.constants)
    row.update(gap=float(edges.gap[0]), hole="split" if edges.split[0] > edges.heavy[0] else "heavy")
    row.update(localisation=settings.constants.localisation * row["x_in"])
    if not row["gap"] > row["localisation"]:
        return row | {"note": "the strain closes the gap"}
    if not _is_thin(emitter):
        cells, found = _bulk(middle, row["gap"], row["hole"] == "split")
        note = f"thicker than {BULK:g} nm: levels of a well neglected" if emitter.is_well else ""
        flat = row["gap"] - row["localisation"]
        row.update(energy_flat=flat, wavelength_flat=HC / flat)
        return row | _with_error(cells, found, row["x_in"], settings) | {"note": note}

    cells = _cells(slices, emitter, room)
    without = _transition(cells, np.zeros(len(cells.columns)), settings)
    row.update(field=_mean_field(cells, settings), hole="split" if without.is_split else "heavy")
    if without.unbound:
        return row | {"note": f"too shallow: {without.unbound} not bound"}
    holes = edges.split if without.is_split else edges.heavy
    flat = without.energy - row["localisation"]
    row.update(electron=without.electron - float(edges.electron[0]), hole_level=float(holes[0]) - without.hole)
    row.update(energy_flat=flat, wavelength_flat=HC / flat)
    found = _transition(cells, _drop(cells, settings, settings.constants), settings)
    if found.unbound:
        return row | {"note": f"{found.unbound} not bound in the field"}
    if not found.energy > row["localisation"]:
        return row | {"note": "the field closes the gap"}
    electron, hole = found.density
    row.update(hole="split" if found.is_split else "heavy", overlap=float(np.sqrt(electron * hole).sum() ** 2))
    return row | _with_error(cells, found, row["x_in"], settings) | {"note": _note(cells, room)}


def _bulk(middle: Array, gap: float, is_split: bool) -> tuple[Cells, Transition]:
    """A thick layer as one cell, and the transition across its gap."""
    cells = Cells(1.0, middle[None, :], np.ones(1, bool), np.zeros(1, bool), (False, False))
    return cells, Transition(gap, 0.0, 0.0, is_split, (np.ones(1), np.ones(1)), "")


def _note(cells: Cells, room: tuple[float, float]) -> str:
    if any(cells.is_wall):
        return f"the structure ends {'above' if cells.is_wall[1] else 'below'} it, in a wall"
    return f"barrier thinner than {THIN:g} nm: coupling neglected" if 2 * min(room) < THIN else ""


def _edges(columns: Array, temperature: float, constants: Constants) -> Edges:
    return edges_of(columns[:, :3], columns[:, 3], columns[:, 4], temperature, constants)


# ---- the structure as cells


def _means(slices: Slices, start: float, stop: float, borders: Array) -> Array | None:
    """Mean composition and strain (n, 5) between borders; beyond start and stop that of the slices there.

    None if no slice is between start and stop.
    """
    inside = (slices.top > start) & (slices.bottom < stop)
    if not inside.any():
        return None
    values = np.column_stack((slices.x, slices.eps_xx, slices.eps_zz))[inside]
    first, last = min(borders[0], start), max(borders[-1], stop)
    places = np.array([first, start, *slices.top[inside][:-1], stop, last])
    values = np.concatenate((values[:1], values, values[-1:]))
    integral = np.concatenate((np.zeros((1, 5)), np.cumsum(values * np.diff(places)[:, None], axis=0)))
    at_borders = np.column_stack([np.interp(borders, places, column) for column in integral.T])
    return np.asarray(np.diff(at_borders, axis=0) / np.diff(borders)[:, None])


def _middle(slices: Slices, emitter: Emitter) -> Array | None:
    """Mean composition and strain of the middle half of an emitter; None if unknown."""
    quarter = 0.25 * (emitter.top - emitter.bottom)
    low, high = emitter.bottom + quarter, emitter.top - quarter
    means = _means(slices, low, high, np.array([low, high])) if quarter > 0.0 else None
    return None if means is None else means[0]


def _cells(slices: Slices, emitter: Emitter, room: tuple[float, float]) -> Cells:
    """A well with parts of the barriers beside it, which continue with a constant composition.

    Where the structure ends within these parts, the cells end too.
    """
    slack = 1e-6  # nm
    bottom, top = float(slices.bottom[0]), float(slices.top[-1])
    start, stop = max(emitter.bottom - room[0], bottom), min(emitter.top + room[1], top)
    is_wall = start <= bottom + slack, stop >= top - slack
    first, last = start - TAIL * (not is_wall[0]), stop + TAIL * (not is_wall[1])
    borders = np.linspace(first, last, math.ceil((last - first) / CELL) + 1)
    middles = 0.5 * (borders[1:] + borders[:-1])
    columns = _means(slices, start, stop, borders)
    assert columns is not None  # the emitter is between start and stop
    in_well = (middles > emitter.bottom) & (middles < emitter.top)
    has_field = (middles > start) & (middles < stop)
    return Cells(float(borders[1] - borders[0]), columns, in_well, has_field, is_wall)


# ---- the field


def _fields(cells: Cells, settings: Settings, constants: Constants) -> Array:
    """Electric field in each cell, MV/cm, negative towards the substrate.

    A given field is that in the well. That of the polarisation P follows from a displacement D = eps F + P that is the
    same in all cells, and from no voltage over the well with its barriers, as if they were repeated: Fiorentini et al.,
    Phys. Rev. B 60, 8849 (1999).
    """
    if not cells.has_field.any():
        return np.zeros(len(cells.columns))
    if settings.field is not None:
        return np.where(cells.in_well, settings.field, 0.0)
    polarisation, dielectric = polarisation_of(cells.columns[:, :3], cells.columns[:, 3], constants)
    inverse = np.where(cells.has_field, 1.0 / dielectric, 0.0)
    displacement = np.sum(polarisation * inverse) / np.sum(inverse)
    fields: Array = (displacement - polarisation) * inverse / VACUUM / PER_MV_CM
    return (1.0 - settings.screening) * fields


def _mean_field(cells: Cells, settings: Settings) -> float:
    return float(_fields(cells, settings, settings.constants)[cells.in_well].mean())


def _drop(cells: Cells, settings: Settings, constants: Constants) -> Array:
    """Energy that the field adds to both bands in the middle of each cell, eV."""
    steps: Array = V_PER_NM * _fields(cells, settings, constants) * cells.size
    return np.cumsum(steps) - 0.5 * steps


# ---- the transition


def _transition(cells: Cells, drop: Array, settings: Settings) -> Transition:
    """The lowest states of an electron and of a hole in the band edges plus a drop."""
    edges = _edges(cells.columns, settings.temperature, settings.constants)
    electron, density = lowest_state(edges.electron + drop, edges.electron_mass, cells.size)
    wells = [-(edges.heavy + drop), -(edges.split + drop)]  # energies of holes count downwards
    hole, hole_density = lowest_state(wells[0], edges.heavy_mass, cells.size)
    is_split = False
    if wells[1].min() < hole:
        other, other_density = lowest_state(wells[1], edges.split_mass, cells.size)
        if other < hole:
            hole, hole_density, is_split = other, other_density, True
    free = [
        name
        for name, level, well in (("electron", electron, edges.electron + drop), ("hole", hole, wells[is_split]))
        if any(level >= edge for edge, is_wall in zip((well[0], well[-1]), cells.is_wall) if not is_wall)
    ]
    unbound = f"{' and '.join(free)} {'is' if len(free) == 1 else 'are'}" if free else ""
    energy = math.nan if free else electron + hole
    return Transition(energy, electron, -hole, is_split, (density, hole_density), unbound)


def _with_error(cells: Cells, found: Transition, x_in: float, settings: Settings) -> dict[str, float]:
    """Energy and wavelength of emission with their standard deviations, as columns.

    The change of the energy with each constant is that of first-order perturbation theory: the mean of the change of
    the band edges over the density of electron and hole. The constants are independent.
    """
    variance = 0.0
    for name, error in settings.errors._asdict().items():
        changes = [_energy_change(cells, found, x_in, settings, name, side * error) for side in (1.0, -1.0)]
        variance += (0.5 * (changes[0] - changes[1])) ** 2
    energy, error = found.energy - settings.constants.localisation * x_in, math.sqrt(variance)
    low, high = HC / (energy + error), HC / (energy - error) if energy > error else math.inf
    return {
        "energy": energy, "energy_error": error, "wavelength": HC / energy,
        "wavelength_low": low, "wavelength_high": high,
    }


def _energy_change(
    cells: Cells, found: Transition, x_in: float, settings: Settings, name: str, change: float
) -> float:
    """Energy of emission with a changed constant and the old densities, eV; only differences have a meaning."""
    constants = settings.constants._replace(**{name: getattr(settings.constants, name) + change})
    edges = _edges(cells.columns, settings.temperature, constants)
    drop = _drop(cells, settings, constants)
    electron, hole = found.density
    holes = edges.split if found.is_split else edges.heavy
    transition = np.sum(electron * (edges.electron + drop)) - np.sum(hole * (holes + drop))
    return float(transition) - constants.localisation * x_in
