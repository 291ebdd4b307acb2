"""Reflections of wurtzite crystals with a c-plane surface: where they are in reciprocal space, and their angles.

Reciprocal lengths are 2 pi / d, in 1/angstrom. The x axis is in the surface and in the plane of diffraction; z is the
normal of the surface.
"""

from __future__ import annotations

import math
from typing import Any, NamedTuple

import numpy as np

from .._base.types import Array

# Smallest angle between a beam and the surface, deg, and the same per wavelength in angstrom: beyond total reflection,
# where the roots of the dispersion equation are too close to each other
GRAZING, GRAZING_PER_WAVELENGTH = 0.6, 0.5


class Reflection(NamedTuple):
    h: int
    k: int
    l: int  # noqa: E741

    @property
    def symmetric(self) -> bool:
        """True if the planes are parallel to the surface."""
        return self.h == self.k == 0

    def qx(self, a: Any) -> Any:
        """Length in the surface for the lattice constant a [angstrom]; arrays too."""
        return 4.0 * math.pi / math.sqrt(3.0) * math.sqrt(self.h**2 + self.h * self.k + self.k**2) / a

    def qz(self, c: Any) -> Any:
        """Length along the normal for the lattice constant c [angstrom]; arrays too."""
        return 2.0 * math.pi * self.l / c

    def __str__(self) -> str:
        return "".join(f"{index}" if 0 <= index < 10 else f"({index})" for index in self)


def given_reflection(hkl: Any) -> Reflection:
    """The reflection of three Miller indices, or of four of which the third is -(h + k).

    Raises TypeError for what is not a sequence of integers; ValueError for a forbidden reflection, and one of planes
    that are normal to the surface or face down.
    """
    rule = f"hkl must be three integers such as (0, 0, 2), or four such as (1, 0, -1, 5), got {hkl!r}"
    if isinstance(hkl, (str, bytes)) or not hasattr(hkl, "__len__") or not hasattr(hkl, "__iter__"):
        raise TypeError(rule)
    if any(isinstance(index, bool) or not hasattr(index, "__index__") for index in hkl) or len(hkl) not in (3, 4):
        raise TypeError(rule)
    indices = [index.__index__() for index in hkl]
    if len(indices) == 4:
        if indices[2] != -(indices[0] + indices[1]):
            raise ValueError(f"the third of four indices must be -(h + k), got {hkl!r}")
        del indices[2]
    found = Reflection(*indices)
    if found.l <= 0:
        raise ValueError(f"l must be positive, got {hkl!r}: planes normal to the surface don't reflect through it")
    if found.l % 2 and (found.h + 2 * found.k) % 3 == 0:
        raise ValueError(f"{found} is forbidden in wurtzite crystals: h + 2k is a multiple of 3 and l is odd")
    return found


def angles_on_rod(two_theta: Array, qx: float, wavenumber: float) -> Array:
    """Angle of incidence, deg, at which a rod with the length qx in the surface scatters by two_theta [deg].

    qx  positive: the exit is the flatter one of both beams; negative: the incidence
    NaN where the rod is not reached.
    """
    q = 2.0 * wavenumber * np.sin(np.radians(two_theta) / 2.0)
    with np.errstate(invalid="ignore"):
        angles: Array = two_theta / 2.0 + np.degrees(np.arctan(qx / np.sqrt(q**2 - qx**2)))
    return angles


def two_theta_on_rod(omega: Array, qx: float, wavenumber: float) -> Array:
    """The inverse of angles_on_rod(), deg."""
    angles: Array = omega + np.degrees(np.arccos(np.cos(np.radians(omega)) + qx / wavenumber))
    return angles


def bragg_angles(qx: Any, qz: Any, wavenumber: float) -> tuple[Any, Any]:
    """2 theta and the angle of incidence, deg, of a point of reciprocal space by Bragg's law; NaN out of reach.

    The sign of qx is that of angles_on_rod().
    """
    with np.errstate(invalid="ignore"):
        theta = np.degrees(np.arcsin(np.hypot(qx, qz) / (2.0 * wavenumber)))
    return 2.0 * theta, theta + np.degrees(np.arctan2(qx, qz))


def smallest_angle(wavenumber: float) -> float:
    """The smallest angle between a beam and the surface, deg."""
    return max(GRAZING, GRAZING_PER_WAVELENGTH * 2.0 * math.pi / wavenumber)


def check_reach(reflection: Reflection, qx: float, qz: float, wavenumber: float) -> None:
    """Raises ValueError unless both beams are far enough above the surface. The sign of qx does not matter."""
    two_theta, omega = bragg_angles(abs(qx), qz, wavenumber)
    wavelength = 2.0 * math.pi / wavenumber
    if not np.isfinite(two_theta):
        raise ValueError(
            f"{reflection} can't be reached with {wavelength:.4g} angstrom: the distance of its planes, "
            f"{2.0 * math.pi / math.hypot(qx, qz):.4g} angstrom, is less than half of it"
        )
    if two_theta - omega < smallest_angle(wavenumber):
        raise ValueError(
            f"{reflection} can't be reached from the surface with {wavelength:.4g} angstrom: its planes are inclined "
            f"by {omega - two_theta / 2.0:.4g} deg, but the Bragg angle is {two_theta / 2.0:.4g} deg"
        )
