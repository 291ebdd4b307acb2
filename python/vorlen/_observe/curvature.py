"""Curvature of the wafer while the film grows: an elastic plate of layers, each with its own modulus and misfit.

If the wafer were held flat, a layer with the biaxial modulus M and the strain e would pull with the force M e per
length and thickness. The plate is let go: its strain becomes e + e0 - k z, where the mean strain e0 and the curvature k
leave neither a force nor a moment:

    k = (A Q - S F) / (A D - S^2),    A, S, D = integrals of M, M z, M z^2 dz,    F, Q = those of M e, M e z

over substrate and film. This is linear plate theory without a limit on the thickness of the film [1], [2]; two layers
are Timoshenko's bimetal [3], and of a film much thinner than the substrate it is Stoney's formula
k = 6 M_f e h_f / (M_s h_s^2) [4].

[1] P. H. Townsend, D. M. Barnett, T. A. Brunner, J. Appl. Phys. 62, 4438 (1987)
[2] L. B. Freund, S. Suresh, Thin Film Materials, Cambridge University Press (2003), chapter 2
[3] S. P. Timoshenko, J. Opt. Soc. Am. 11, 233 (1925)
[4] G. G. Stoney, Proc. R. Soc. London A 82, 172 (1909)
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._recipe.quantities import number_in
from .curve import Curve
from .growth import RELIEF, Growth, Points, growth_of, points_of, summed, wafer_of
from .substrates import Substrate, film_expansions, film_moduli, substrate_named

ROOM_TEMPERATURE = 300.0  # K
SPANS = ("active", "all")
NODES = 65  # densities of V-defects at which the strain of the whole film is computed
THINNEST, THICKEST = 10.0, 1e5  # um, of a wafer; what is beyond is a number in another unit
DIAMETER = 50.8e-3  # m, of the smallest usual wafer
COLUMNS = (
    ("time", "s", "time of the process"),
    ("curvature", "1/km", "curvature of the wafer, positive when concave seen from the film"),
    ("mismatch", "1/km", "the part of lattice mismatch"),
    ("thermal", "1/km", "the part of thermal expansion and of the temperature gradient"),
)
NOTES = (
    "Elastic plate: initial bow, plastic deformation of the substrate, the edge and large deflections are neglected.",
    "Growth stress other than lattice mismatch (coalescence, doping, dislocations in tension) is not included.",
)
NO_TEMPERATURE = "The recipe or its temperatures are unknown: without the thermal part."


def curvature(
    profile: pd.DataFrame,
    timeline: pd.DataFrame | None,
    name: str,
    inputs: Sequence[PathLike | None] = (),
    *,
    substrate: str,
    thickness: Any,
    gradient: Any,
    span: str,
) -> Curve:
    """Run.curvature() from the tables of a run.

    timeline  of the recipe; None if it is unknown
    name      of the run, for messages
    inputs    files of the run, which no figure or table may replace
    """
    wafer = substrate_named(substrate)
    height = checked_thickness(thickness)
    slope = number_in(gradient, "gradient", "K/mm")
    check_span(span)
    points = points_of(profile, timeline)
    if not len(points.time):
        raise ValueError(f"{name} has no rows to compute a curvature from")
    points, wafer, height, own = on_own_wafer(points, wafer, height)
    growth = growth_of(points)
    begin, end = (points.first, points.last) if span == "active" else (0, len(points.time) - 1)
    mismatch, per_kelvin = _mismatch_and_thermal(growth, points, wafer, 1e-6 * height)
    heat = points.temperature - points.temperature[points.first]
    thermal = per_kelvin * heat + 1e6 * wafer.expansion * slope * _gradient_share(points, heat)
    unknown = bool(np.isnan(thermal).any())
    if unknown:
        thermal = np.full_like(mismatch, np.nan)
    if span == "active":
        mismatch, thermal = (part - part[begin] for part in (mismatch, thermal))
    total = mismatch if unknown else mismatch + thermal
    columns = (points.time, total, mismatch, thermal)
    table = pd.DataFrame({row[0]: column[begin : end + 1] for row, column in zip(COLUMNS, columns)})
    table.attrs["units"] = {column: unit for column, unit, _ in COLUMNS}
    table.attrs["meanings"] = {column: meaning for column, _, meaning in COLUMNS}
    settings = {"substrate": wafer.name, "thickness": height, "gradient": slope, "span": span}
    notes = [*NOTES, *own, *([NO_TEMPERATURE] if unknown else []), *_beyond(total[begin : end + 1], growth, height)]
    return Curve("curvature", table, settings=settings, notes=notes, inputs=inputs)


def checked_thickness(thickness: Any) -> float:
    """Thickness of a wafer in um. Raises TypeError or ValueError."""
    height = number_in(thickness, "thickness", "um")
    if not THINNEST <= height <= THICKEST:
        raise ValueError(f"thickness must be from 10 um to 100 mm, as it is that of the substrate, got {thickness}")
    return float(height)


def _beyond(total: Array, growth: Growth, height: float) -> list[str]:
    """Notes if linear plate theory no longer holds, or the wafer is probably not the one that was meant.

    total   curvature, 1/km
    height  of the wafer, um
    """
    notes, film = [], 1e-3 * float(growth.top.max())  # um
    bow = 1e-3 * float(np.abs(total).max()) * DIAMETER**2 / 8  # m
    if bow > 1e-6 * height:
        notes.append(
            f"The bow of a 2-inch wafer would be {1e6 * bow:.0f} um, more than its thickness of {height:.0f} um: it bends "
            "less than linear plate theory says."
        )
    if film > height:
        notes.append(f"The film, pre-stages included, is {film:.0f} um thick, more than the substrate.")
    return notes


def on_own_wafer(points: Points, wafer: Substrate, height: float) -> tuple[Points, Substrate, float, list[str]]:
    """The film, its wafer and the thickness of that, um: the first pre-stage if it is a wafer. And a note if it is."""
    own = wafer_of(points)
    if own is None:
        return points, wafer, height, []
    name, thickness, above = own
    note = f"The first pre-stage is the substrate: {1e-3 * thickness:.6g} um of {name}."
    return above, substrate_named(name), 1e-3 * thickness, [note]


def check_span(span: str) -> None:
    """Raises ValueError for an unknown span."""
    if span not in SPANS:
        raise ValueError(f'span must be "active" or "all", got {span!r}')


def _gradient_share(points: Points, heat: Array) -> Array:
    """The temperature gradient over that at the start: in proportion to the temperature above room temperature."""
    above = points.temperature[points.first] - ROOM_TEMPERATURE
    return np.asarray(1.0 + heat / above) if above > 0.0 else np.ones_like(heat)


def _mismatch_and_thermal(growth: Growth, points: Points, wafer: Substrate, height: float) -> tuple[Array, Array]:
    """Curvature of lattice mismatch, 1/km, and that of thermal expansion for each kelvin above the start, 1/(km K).

    height  of the wafer, m
    """
    low, high = 1e-9 * growth.bottom, 1e-9 * growth.top  # m above the wafer
    moduli = film_moduli(growth.x)
    force = moduli * (high - low)
    moment = moduli * (high**2 - low**2) / 2
    stiffness = summed(growth.below, np.column_stack((force, moment, moduli * (high**3 - low**3) / 3)))
    A, S, D = (stiffness + wafer.modulus * np.array([height, -(height**2) / 2, height**3 / 3])).T
    F, Q = _mismatch(growth, points, force, moment)
    expansion = wafer.expansion - film_expansions(growth.x)
    thermal_F, thermal_Q = summed(growth.below, expansion[:, None] * np.column_stack((force, moment))).T
    determinant = A * D - S**2
    return 1e3 * (A * Q - S * F) / determinant, 1e3 * (A * thermal_Q - S * thermal_F) / determinant


def _mismatch(growth: Growth, points: Points, force: Array, moment: Array) -> tuple[Array, Array]:
    """Force and moment of the lattice mismatch at each point, from those of each slice for a strain of 1.

    Lines of V-defects relieve strain by C ln(1 + q density) with an unknown q of each slice. The strains at two
    densities are known, that when the slice grew and that of the finished structure, and exp(strain / C) is linear in
    between. The film is summed at selected densities; the sums are linear in the density between these.
    """
    density = np.maximum.accumulate(points.values[:, 5])
    nodes = np.unique(density)
    if len(nodes) > NODES:
        nodes = nodes[np.linspace(0, len(nodes) - 1, NODES).round().astype(int)]
    rise = density[-1] - growth.lines
    rise = np.where(rise > 0.0, rise, np.inf)
    relieved = np.expm1(np.clip((growth.final - growth.grown) / RELIEF, -30.0, 300.0))
    total = np.zeros((2, len(density)))
    for node, hat in zip(nodes, np.eye(len(nodes))):
        share = np.clip((node - growth.lines) / rise, 0.0, 1.0)
        strain = growth.grown + RELIEF * np.log1p(relieved * share)
        sums = summed(growth.below, np.column_stack((force * strain, moment * strain)))
        total += np.interp(density, nodes, hat) * sums.T
    return total[0], total[1]
