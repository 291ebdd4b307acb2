"""Reflectance of the wafer while the film grows, at normal incidence.

The film is a stack of thin slices that light crosses coherently. The stack below the surface acts on the light above
like one interface with the amplitudes r (reflected above), t (transmitted) and s (reflected below), across a gap of
vacuum of no thickness. A slice of thickness d with the amplitudes r' and t' changes them to Airy's sums of all
reflections in the gap,

    r <- r' + t'^2 r / (1 - r' r),    t <- t' t / (1 - r' r),    s <- s + N t^2 r' / (1 - r' r),

    r' = f (1 - p) / (1 - f^2 p),    t' = (1 - f^2) sqrt(p) / (1 - f^2 p),    f = (1 - n) / (1 + n),
    p = exp(4 pi i n d / wavelength),

with the index n of the slice and N of the substrate (M. Born, E. Wolf, Principles of Optics, section 1.6). So each
slice costs the same, however much has grown. The temperature changes all indices at once: stacks at several
temperatures grow side by side, and the amplitudes are linear in the temperature in between.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array, PathLike
from .._recipe.quantities import number_in
from .bands import ROOM_TEMPERATURE
from .curvature import check_span, checked_thickness, on_own_wafer
from .curve import Curve
from .growth import Growth, growth_of, points_of, refined
from .optics import LONGEST, SHORTEST, Complex, nitride_index, substrate_index
from .substrates import substrate_named

BACKS = ("rough", "polished")
PER_WAVELENGTH = 160  # points of the curve for the growth of one wavelength in vacuum; about 32 for one period
HEAT = 10.0  # K, largest distance of the temperatures at which stacks grow
BLOCK = 4096  # points whose slices are computed at once
COLUMNS = (
    ("time", "s", "time of the process"),
    ("reflectance", "1", "reflected share of the light, at normal incidence"),
)
NOTES = (
    "Roughness, strain, doping and the broadening of the band edge are not included: absorption starts at the gap.",
    "The temperature acts through the gap of the nitrides alone, which gives only a part of the measured change of the "
    "index; that of foreign substrates is that at room temperature.",
)
NO_TEMPERATURE = "The recipe or its temperatures are unknown: indices are those at 300 K."


class Stack(NamedTuple):
    """Amplitudes of a film on its substrate, one for each temperature."""

    r: Complex  # reflected, for light from above
    t: Complex  # transmitted into the substrate
    s: Complex  # reflected, for light from the substrate


def bare(index: Complex) -> Stack:
    """A substrate without a film."""
    r: Complex = (1.0 - index) / (1.0 + index)
    return Stack(r, 1.0 + r, -r)


def slice_amplitudes(index: Complex, thickness: Any, wavelength: float) -> tuple[Complex, Complex]:
    """Reflected and transmitted amplitude of slices in vacuum. Thickness and wavelength in nm."""
    f = (1.0 - index) / (1.0 + index)
    once = np.exp(2j * np.pi * index * thickness / wavelength)
    below = 1.0 - (f * once) ** 2
    return f * (1.0 - once**2) / below, (1.0 - f**2) * once / below


def covered(stack: Stack, r: Complex, t: Complex, substrate: Complex) -> Stack:
    """A stack with a slice of the amplitudes r and t on top. substrate: index of the substrate"""
    many = 1.0 / (1.0 - r * stack.r)
    passed = stack.t * many
    return Stack(r + t * t * stack.r * many, t * passed, stack.s + substrate * stack.t * passed * r)


def reflectance(
    profile: pd.DataFrame,
    timeline: pd.DataFrame | None,
    name: str,
    inputs: Sequence[PathLike | None] = (),
    *,
    wavelength: Any,
    substrate: str,
    thickness: Any,
    back: str,
    temperature: Any,
    span: str,
) -> Curve:
    """Run.reflectance() from the tables of a run.

    timeline  of the recipe; None if it is unknown
    name      of the run, for messages
    inputs    files of the run, which no figure or table may replace
    """
    wafer, height = substrate_named(substrate), checked_thickness(thickness)
    light = float(number_in(wavelength, "wavelength", "nm"))
    if not SHORTEST <= light <= LONGEST:
        raise ValueError(f"wavelength must be between {SHORTEST:.0f} and {LONGEST:.0f} nm, got {wavelength}")
    if back not in BACKS:
        raise ValueError(f'back must be "rough" or "polished", got {back!r}')
    check_span(span)
    points = points_of(profile, timeline)
    if not len(points.time):
        raise ValueError(f"{name} has no rows to compute a reflectance from")
    points, wafer, height, own = on_own_wafer(points, wafer, height)
    notes = [*NOTES, *own]
    if temperature is not None:
        heat = float(number_in(temperature, "temperature", "K"))
        if not 0.0 < heat < 2000.0:
            raise ValueError(f"temperature must be between 0 and 2000 K, got {temperature}")
        points = points._replace(temperature=np.full(len(points.time), heat))
    elif np.isnan(points.temperature).any():
        points = points._replace(temperature=np.full(len(points.time), ROOM_TEMPERATURE))
        notes.append(NO_TEMPERATURE)
    points = refined(points, points.first if span == "active" else 0, light / PER_WAVELENGTH, HEAT)
    begin, end = (points.first, points.last) if span == "active" else (0, len(points.time) - 1)
    nodes = _nodes(points.temperature)
    index = substrate_index(wafer.name, light, nodes)
    r, t, s = stacks(growth_of(points), light, nodes, points.temperature, index)
    reflected = _power(r)
    if back == "polished":
        base: Complex = np.interp(points.temperature, nodes, index)
        reflected = with_back(reflected, base.real * _power(t), _power(s), base, 1e3 * height / light)
    table = pd.DataFrame({"time": points.time[begin : end + 1], "reflectance": reflected[begin : end + 1]})
    table.attrs["units"] = {column: unit for column, unit, _ in COLUMNS}
    table.attrs["meanings"] = {column: meaning for column, _, meaning in COLUMNS}
    settings = {"wavelength": light, "substrate": wafer.name, "thickness": height, "back": back, "span": span}
    if temperature is not None:
        settings["temperature"] = heat
    return Curve("reflectance", table, settings=settings, notes=notes, inputs=inputs)


def _power(amplitude: Complex) -> Array:
    return np.asarray(np.abs(amplitude) ** 2)


def _nodes(temperature: Array) -> Array:
    """Temperatures in K at which stacks grow: all that occur if these are few, or else equidistant ones."""
    values = np.unique(temperature)
    count = int(np.ceil((values[-1] - values[0]) / HEAT)) + 1
    return np.asarray(values if len(values) <= count else np.linspace(values[0], values[-1], count))


def stacks(growth: Growth, wavelength: float, nodes: Array, temperature: Array, substrate: Complex) -> Stack:
    """Amplitudes of the film at each point, at the temperature of the point.

    wavelength   nm
    nodes        temperatures at which stacks grow, K
    temperature  of each point, K
    substrate    index of the substrate at the nodes
    """
    count = len(growth.top)
    below = growth.below.tolist()
    sunk = {low for point, low in enumerate(below) if low != point - 1}  # something evaporated down to these
    kept: dict[int, Stack] = {}
    amplitudes = np.empty((3, count), complex)
    stack = bare(substrate)
    for begin in range(0, count, BLOCK):
        block = slice(begin, begin + BLOCK)
        indices = nitride_index(growth.x[block], wavelength, nodes)
        slices = zip(*slice_amplitudes(indices, (growth.top - growth.bottom)[block, None], wavelength))
        at_nodes = np.empty((3, *indices.shape), complex)
        for place, (r, t) in enumerate(slices):
            point = begin + place
            if below[point] != point - 1:
                stack = kept[below[point]]
            stack = covered(stack, r, t, substrate)
            if point in sunk:
                kept[point] = stack
            at_nodes[0, place], at_nodes[1, place], at_nodes[2, place] = stack
        amplitudes[:, block] = _interpolated(at_nodes, nodes, temperature[block])
    return Stack(*amplitudes)


def _interpolated(values: Complex, nodes: Array, at: Array) -> Complex:
    """Values at one temperature for each point, linear between the nodes. values: (3, points, nodes)"""
    upper = np.minimum(np.searchsorted(nodes, at), len(nodes) - 1)
    lower = np.maximum(upper - 1, 0)
    gap = nodes[upper] - nodes[lower]
    share = np.where(gap > 0.0, (at - nodes[lower]) / np.where(gap > 0.0, gap, 1.0), 0.0)
    rows = np.arange(len(at))
    inner: Complex = (1.0 - share) * values[:, rows, lower] + share * values[:, rows, upper]
    return inner


def with_back(front: Array, through: Array, inside: Array, index: Complex, thickness: float) -> Array:
    """Reflectance with a polished back: light that crosses the wafer adds without interference.

    front, through, inside  reflectance of the film from above, transmittance, reflectance from below
    index      of the substrate
    thickness  of the wafer over the wavelength
    """
    passed = np.exp(-4.0 * np.pi * index.imag * thickness)
    mirror = np.abs((index - 1.0) / (index + 1.0)) ** 2 * passed**2
    return np.asarray(front + through**2 * mirror / (1.0 - inside * mirror))
