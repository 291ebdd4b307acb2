"""X-ray diffraction curve of the finished structure: Run.xrd().

Contents: the curve; the reference layer; ranges and points; positions of layers and satellites.
"""

from __future__ import annotations

import math
import re
from collections.abc import Iterable, Sequence
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.arguments import check_number
from .._base.types import Array
from .._recipe.quantities import AMPERE, has_unit, is_quantity, number_in
from .blocks import PHASE, Blocks, blocks_of, strained_c
from .constants import HC_ANGSTROM
from .curve import Curve
from .reflections import (
    Reflection,
    angles_on_rod,
    bragg_angles,
    check_reach,
    given_reflection,
    smallest_angle,
    two_theta_on_rod,
)
from .slices import Slices
from .stack_model import energy_of, imported_xrayutilities, intensities

BLOCKS_MAX = 2000
POINTS, POINTS_MAX = 2001, 100_000
POINTS_PER_FRINGE = 5  # of all that is not infinitely thick, by default
DEFAULT_POINTS_MAX = 20_001
MARGIN, MARGIN_MAX = 0.6, 2.5  # deg of 2 theta beyond the outermost layer, by default
SATELLITES = 2.5  # distances of satellites in that margin
ORDERS = 5  # of satellites, on both sides
SMALLEST_STEP = 0.005  # fraction; smaller changes make no satellites
TEMPLATE_MIN = 300.0  # nm; a thinner pre-stage is a nucleation layer
THIN = 0.5  # nm; thinner layers have no peak
FWHM = 2.0 * math.sqrt(2.0 * math.log(2.0))  # full width at half maximum per standard deviation
GEOMETRIES = ("grazing incidence", "grazing exit")
TEMPLATES = ("infinite", "finite")

COLUMNS = (
    ("two_theta", "deg", "angle between the incident and the diffracted beam"),
    ("intensity", "1", "intensity per that of the incident beam"),
    ("omega", "deg", "angle between the incident beam and the surface"),
)


class Stack(NamedTuple):
    """What a curve is computed from."""

    slices: Slices
    layers: pd.DataFrame  # Run.layers
    periods: Sequence[tuple[int, int, int]]  # repeated groups: first layer, layers in a period, number of periods
    inputs: Sequence[Path | None]  # files of the run


def xrd_curve(
    stack: Stack, hkl: Any, energy: Any, two_theta: Any, points: Any, resolution: Any, background: Any, reference: Any,
    template: Any, geometry: Any, polarization: Any, monochromator: Any, phase: float = PHASE,
) -> Curve:
    """The curve described at Run.xrd. phase: see blocks.py."""
    imported_xrayutilities()  # first of all, so that a missing package is reported before any wrong argument
    reflection = given_reflection(hkl)
    photon = given_energy(energy)
    wavenumber = 2.0 * math.pi * photon / HC_ANGSTROM
    _check_choice("template", template, TEMPLATES)
    _check_choice("geometry", geometry, GEOMETRIES)
    _check_choice("polarization", polarization, ("S", "P", "both"))
    check_number(monochromator, "monochromator must be a number from 0 to 1", -1e-12, 1.0 + 1e-12)
    check_number(background, "background must be 0 or more", -1e-300)
    width = number_in(resolution, "resolution", "arcsec")
    check_number(width, "resolution must be 0 arcsec or more", -1e-300, 3600.0)

    number = reference_layer(stack.layers, stack.slices, reference)
    blocks, bottom = _blocks_above(stack.slices, number, template, reflection, phase)
    sign = 1.0 if geometry == "grazing exit" else -1.0
    base = int(np.flatnonzero(stack.slices.layer == number)[0])
    qx = sign * float(reflection.qx(stack.slices.a[base]))
    check_reach(reflection, qx, float(reflection.qz(strained_c(stack.slices)[base])), wavenumber)
    peaks = _peaks(stack, bottom, number, reflection, sign, wavenumber)
    ends, given = _range(two_theta, peaks, qx, wavenumber)
    film = float(blocks.thickness[template == "infinite" :].sum())
    omega = _grid(ends, points, film, qx, wavenumber)

    values = intensities(
        blocks, reflection, photon, omega, geometry == "grazing exit", polarization, monochromator,
        template == "infinite",
    )
    values = _smoothed(values, (omega[1] - omega[0]) * 3600.0, width) + background
    angles = two_theta_on_rod(omega, qx, wavenumber)
    if given is not None:
        values, omega = np.exp(np.interp(given, angles, np.log(values))), np.interp(given, angles, omega)
        angles = given
    table = pd.DataFrame({"two_theta": angles, "intensity": values, "omega": omega})
    table.attrs["units"] = {name: unit for name, unit, _ in COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in COLUMNS}
    settings = {
        "hkl": tuple(reflection), "energy": photon, "two_theta": (float(angles[0]), float(angles[-1])),
        "points": len(table), "resolution": float(width), "background": float(background), "reference": number,
        "template": template, "geometry": geometry, "polarization": polarization, "monochromator": float(monochromator),
    }
    notes = _notes(stack, number, template, reflection)
    return Curve("xrd", table, str(reflection), settings, notes, peaks=peaks, inputs=stack.inputs)


def _blocks_above(
    slices: Slices, number: int, template: str, reflection: Reflection, phase: float
) -> tuple[Blocks, int]:
    """The blocks of the curve, and the lowest slice in it. An infinite template is the thickest block of its layer."""
    blocks = blocks_of(slices, reflection, phase)
    start = 0
    if template == "infinite":
        inside = np.flatnonzero(slices.layer[blocks.first] == number)
        if not len(inside):  # a block that starts below the layer
            inside = np.flatnonzero(blocks.first <= np.flatnonzero(slices.layer == number)[0])[-1:]
        start = int(inside[np.argmax(blocks.thickness[inside])])
    if len(blocks.first) - start > BLOCKS_MAX:
        raise ValueError(f"the structure needs {len(blocks.first) - start} slices, more than the {BLOCKS_MAX} possible")
    return blocks.above(start), int(blocks.first[start])


def _notes(stack: Stack, number: int, template: str, reflection: Reflection) -> list[str]:
    notes = ["crystals are perfect: without dislocations, mosaic blocks, curvature, rough interfaces and vibrations"]
    name = stack.layers.loc[number, "name"]
    if template == "infinite":
        below = stack.slices.layer < number
        rest = f"; {stack.slices.thickness[below].sum():.0f} nm below it are left out" if below.any() else ""
        notes.append(f"layer {number} ({name}) is infinitely thick{rest}")
    else:
        notes.append("what is below the first layer does not scatter")
    if not reflection.symmetric:
        notes.append("layers with other in-plane lattice constants are added at their own angles of incidence")
    return notes


# ---- arguments


def given_energy(energy: Any) -> float:
    """The photon energy, eV, of a line, an energy or a wavelength. Raises TypeError or ValueError."""
    if isinstance(energy, str) and re.match(r"\s*[A-Za-z]", energy):
        return energy_of(energy.strip())
    try:
        value = float(number_in(energy, "energy", "eV"))
    except ValueError:
        if not (has_unit(energy) or is_quantity(energy)):
            raise
        try:
            wavelength = float(number_in(energy, "energy", "angstrom"))
        except ValueError:
            hint = f"; {AMPERE}" if isinstance(energy, str) and re.search(r"[\d.\s]A\s*$", energy) else ""
            raise ValueError(
                'energy must be an energy such as "8.05 keV", a wavelength such as "1.5406 angstrom", or the name of a '
                f"line, got {energy!r}{hint}"
            ) from None
        value = HC_ANGSTROM / wavelength if wavelength > 0.0 else math.nan
    if not 1000.0 <= value <= 100_000.0:
        raise ValueError(f"energy must be 1 to 100 keV, which is 0.124 to 12.4 angstrom, got {energy!r}")
    return value


def _check_choice(name: str, value: Any, choices: Sequence[str]) -> None:
    if value not in choices:
        raise ValueError(f"{name} must be one of {', '.join(map(repr, choices))}, got {value!r}")


def reference_layer(layers: pd.DataFrame, slices: Slices, reference: Any) -> int:
    """The number of the reference layer: given as number or name.

    By default the thickest pre-stage, or the thickest layer if no pre-stage is a template by its thickness.
    Raises TypeError or ValueError, also if nothing is left of the layer.
    """
    if not len(slices.layer):
        raise ValueError("nothing has grown")
    left = np.unique(slices.layer)
    if reference is None:
        thickness = pd.Series(slices.thickness).groupby(slices.layer).sum()
        below = thickness[(layers["kind"][thickness.index] == "pre").to_numpy()]
        return int((below if below.max() >= TEMPLATE_MIN else thickness).idxmax())
    if isinstance(reference, str):
        numbers = layers.index[layers["name"] == reference]
        if not len(numbers):
            names = ", ".join(layers["name"].unique())
            raise ValueError(f"reference: no layer is named {reference!r}; there are {names}")
        number = int(numbers[0])
    elif isinstance(reference, bool) or not hasattr(reference, "__index__"):
        raise TypeError(f"reference must be the number or the name of a layer, got {reference!r}")
    else:
        number = reference.__index__()
        if number not in layers.index:
            raise ValueError(f"reference must be a layer from 1 to {len(layers)}, got {number}")
    if number not in left:
        raise ValueError(f"reference: nothing is left of layer {number} ({layers.loc[number, 'name']})")
    return number


def _range(two_theta: Any, peaks: pd.DataFrame, qx: float, wavenumber: float) -> tuple[Array, Array | None]:
    """Both ends of 2 theta, deg, and the angles if there are more than two. Raises TypeError or ValueError."""
    grazing = smallest_angle(wavenumber)
    lowest = max(2.0 * grazing, math.degrees(2.0 * math.asin(min(abs(qx) / (2.0 * wavenumber), 1.0))))
    if two_theta is None:
        spacing = float((peaks.x[peaks.order == 1].max() - peaks.x[peaks.order == -1].max()) / 2.0)
        margin = min(max(MARGIN, SATELLITES * np.nan_to_num(spacing)), MARGIN_MAX)
        places = peaks.x[peaks.kind != "satellite"]
        ends = np.array([max(places.min() - margin, lowest + 0.1), min(places.max() + margin, 179.0)])
        while (_flattest(ends, qx, wavenumber) < grazing).any() and ends[1] - ends[0] > 0.01:
            ends = ends + 0.05 * (float(places.iloc[0]) - ends)  # towards the peak of the template
        return ends, None
    if isinstance(two_theta, (str, bytes)) or not isinstance(two_theta, Iterable):
        raise TypeError(f"two_theta must be a pair or an array of angles in deg, got {two_theta!r}")
    values = np.array([number_in(value, "two_theta", "deg") for value in two_theta], float)
    if len(values) < 2 or not (np.diff(values) > 0.0).all():
        raise ValueError("two_theta must have two or more angles in ascending order")
    ends = values[[0, -1]]
    flattest = _flattest(ends, qx, wavenumber) if 0.0 < ends[0] and ends[1] < 180.0 else np.array([math.nan])
    if not (flattest >= grazing).all():
        raise ValueError(
            f"two_theta from {ends[0]:g} to {ends[1]:g} deg is out of reach: both beams must be {grazing:.3g} deg or "
            "more above the surface"
        )
    return ends, values if len(values) > 2 else None


def _flattest(two_theta: Array, qx: float, wavenumber: float) -> Array:
    """The smaller angle of both beams and the surface, deg; NaN where the rod is not reached."""
    omega = angles_on_rod(two_theta, qx, wavenumber)
    return np.minimum(omega, two_theta - omega)


def _grid(ends: Array, points: Any, film: float, qx: float, wavenumber: float) -> Array:
    """Angles of incidence at equal distances, deg.

    ends    of 2 theta, deg
    points  their number; None: enough for the fringes of the film, within limits
    film    thickness, angstrom
    """
    omega = angles_on_rod(ends, qx, wavenumber)
    if points is None:
        qz = np.sqrt((2.0 * wavenumber * np.sin(np.radians(ends) / 2.0)) ** 2 - qx**2)
        fringes = (qz[1] - qz[0]) * film / (2.0 * math.pi)
        points = min(max(POINTS, int(POINTS_PER_FRINGE * fringes)), DEFAULT_POINTS_MAX)
    elif isinstance(points, bool) or not hasattr(points, "__index__"):
        raise TypeError(f"points must be an integer or None, got {points!r}")
    elif not 2 <= points.__index__() <= POINTS_MAX:
        raise ValueError(f"points must be 2 to {POINTS_MAX}, got {points}")
    angles: Array = np.linspace(omega[0], omega[1], points)
    return angles


def _smoothed(values: Array, step: float, width: float) -> Array:
    """The values convoluted with a Gaussian of full width at half maximum width, in the unit of step."""
    if width == 0.0:
        return values
    from scipy.ndimage import gaussian_filter1d

    smooth: Array = gaussian_filter1d(values, width / FWHM / step, mode="nearest")
    return smooth


# ---- positions of layers and satellites


def _peaks(
    stack: Stack, bottom: int, number: int, reflection: Reflection, sign: float, wavenumber: float
) -> pd.DataFrame:
    """Positions by Bragg's law: the reference layer, satellites of repeated layers, the other layers.

    Columns: label, kind (layer, satellite, or part for a layer of a repeated group, whose label is empty), order (of a
    satellite), layer (number), two_theta and omega [deg], and x: 2 theta of the curve at this omega.
    bottom  the lowest slice in the curve
    """
    slices = stack.slices.above(bottom)
    qz, qx = reflection.qz(strained_c(slices)), sign * reflection.qx(slices.a)
    thickness = slices.thickness
    rows: list[tuple[str, str, int, int, float, float]] = []
    repeated: set[int] = set()
    for first, size, count in stack.periods:
        inside = (slices.layer >= first) & (slices.layer < first + size * count)
        if not inside.any() or np.ptp(slices.x[inside], axis=0).max() < SMALLEST_STEP:
            continue
        repeated.update(range(first, first + size * count))
        period = 10.0 * thickness[inside].sum() / count
        mean_qz, mean_qx = (np.average(q[inside], weights=thickness[inside]) for q in (qz, qx))
        for order in sorted(range(-ORDERS, ORDERS + 1), key=abs):
            place = mean_qz + 2.0 * math.pi * order / period
            rows.append((f"SL{order:+d}" if order else "SL0", "satellite", order, first, mean_qx, place))
    names = stack.layers["name"]
    total = pd.Series(thickness).groupby(slices.layer).sum().sort_values(ascending=False, kind="stable")
    for layer in total.index[total >= THIN].tolist():
        inside = slices.layer == layer
        kind = "part" if layer in repeated else "layer"
        label = "" if layer in repeated else str(names[layer])
        mean_qx, mean_qz = (np.average(q[inside], weights=thickness[inside]) for q in (qx, qz))
        rows.insert(0 if layer == number else len(rows), (label, kind, 0, layer, mean_qx, mean_qz))
    table = pd.DataFrame(rows, columns=["label", "kind", "order", "layer", "qx", "qz"])
    table["two_theta"], table["omega"] = bragg_angles(table.pop("qx"), table.pop("qz"), wavenumber)
    reference = sign * float(reflection.qx(slices.a[slices.layer == number][0]))
    table["x"] = two_theta_on_rod(table["omega"].to_numpy(), reference, wavenumber)
    return table.dropna().reset_index(drop=True)
