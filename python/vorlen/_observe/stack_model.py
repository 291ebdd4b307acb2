"""Dynamical diffraction of a stack of nitride crystals, by xrayutilities' DynamicalModel.

The model solves the two-beam dispersion equation with its four solutions in each block and joins them at the
interfaces, for reflections in any coplanar geometry; unlike Takagi and Taupin's equations it needs no reference
lattice. See S. A. Stepanov, E. A. Kondrashkina, R. Koehler, D. V. Novikov, G. Materlik, S. M. Durbin, Physical Review B
57, 4829 (1998). Each block is a separate crystal with the strained lattice constants given. Atomic scattering factors
are those of xrayutilities.
"""

from __future__ import annotations

import copy
import functools
import math
from typing import Any

import numpy as np

from .._base.types import Array, Mask
from .blocks import SAME_ROD, Blocks
from .constants import HC_ANGSTROM
from .reflections import Reflection, two_theta_on_rod

SPACE_GROUP = 186  # P6_3mc
ANION = 0.375  # height of nitrogen above the metal, in units of c: of ideal tetrahedra
GRAZING_EXIT = 0.05  # deg; smallest angle between the diffracted beam and the surface
Q_MAX, Q_STEP = 40.0, 0.05  # 1/angstrom, of the table of scattering factors
OUT_OF_REACH = 2.5  # qz per wavenumber of a block that only absorbs and refracts; beams reach points up to 2


def imported_xrayutilities() -> Any:
    """The package xrayutilities. Raises ImportError with a hint if it is missing."""
    try:
        import xrayutilities
        import xrayutilities.simpack
    except ImportError as error:
        raise ImportError(
            "diffraction curves need xrayutilities: install python3-xrayutilities (Debian) or xrayutilities (pip)"
        ) from error
    return xrayutilities


def energy_of(name: str) -> float:
    """The photon energy of an X-ray line such as CuKa1, eV. Raises ValueError for an unknown name."""
    from_name = imported_xrayutilities().utilities.energies
    if name not in from_name:
        raise ValueError(f"energy must be one of {', '.join(from_name)}, a number in eV, or a wavelength, got {name!r}")
    return float(from_name[name])


def intensities(
    blocks: Blocks, reflection: Reflection, energy: float, omega: Array, grazing_exit: bool, polarization: str,
    monochromator: float, infinite: bool,
) -> Array:
    """Intensity per that of the incident beam at the angles of incidence omega [deg].

    blocks         from the bottom up
    polarization   S, P or both
    monochromator  intensity of P per that of S in the incident beam, for both
    infinite       whether the lowest block has no lower end; otherwise it is on a crystal that does not scatter

    Blocks with different in-plane lattice constants scatter at different places of reciprocal space: each set of
    blocks with one constant is a stack of which the other blocks only absorb and refract, and intensities are added.
    All blocks scatter at one place for planes parallel to the surface.
    """
    total = np.zeros(len(omega))
    groups = np.zeros(len(blocks.a), int) if reflection.symmetric else rods_of(blocks)
    for group in range(groups.max() + 1):
        scatters, stack = _joined_absorbers(blocks, groups == group)
        a = stack.a if reflection.symmetric else np.full(len(stack.a), _common(stack, scatters))
        crystals = [
            _crystal(x, in_plane, c) if own else _absorber(x, in_plane, c, reflection, energy)
            for x, own, in_plane, c in zip(stack.x, scatters, a, stack.c)
        ]
        thickness = list(stack.thickness)
        if not infinite:
            crystals.insert(0, _absorber(stack.x[0], a[0], stack.c[0], reflection, energy))
            thickness.insert(0, math.inf)
        above = _is_above(omega, float(reflection.qx(a[0])) * (1.0 if grazing_exit else -1.0), energy)
        if above.any():
            total[above] += _simulated(
                crystals, thickness, reflection, energy, omega[above], grazing_exit, polarization, monochromator
            )
    return total


def _is_above(omega: Array, qx: float, energy: float) -> Mask:
    """Where the diffracted beam of a rod is above the surface. Elsewhere nothing leaves the crystal."""
    with np.errstate(invalid="ignore"):  # no such beam
        leaving = two_theta_on_rod(omega, qx, 2.0 * math.pi * energy / HC_ANGSTROM) - omega
    above: Mask = (leaving >= GRAZING_EXIT) & (leaving <= 180.0 - GRAZING_EXIT)
    return above


def _joined_absorbers(blocks: Blocks, scatters: Mask) -> tuple[Mask, Blocks]:
    """The blocks of which each sequence that does not scatter is joined to one block, and which of these scatter."""
    first = np.flatnonzero(scatters | np.insert(scatters[:-1], 0, True))
    total = np.add.reduceat(blocks.thickness, first)

    def mean(values: Array) -> Array:
        weighted: Array = (np.add.reduceat(values.T * blocks.thickness, first, axis=-1) / total).T
        return weighted

    return scatters[first], Blocks(total, mean(blocks.x), mean(blocks.a), mean(blocks.c), blocks.first[first])


def _common(blocks: Blocks, scatters: Mask) -> float:
    """The in-plane lattice constant of the blocks that scatter: of the lowest block if it does, otherwise the mean."""
    if scatters[0]:
        return float(blocks.a[0])
    return float(np.average(blocks.a[scatters], weights=blocks.thickness[scatters]))


def rods_of(blocks: Blocks) -> Any:
    """For each block the number of its set of blocks with one in-plane lattice constant, from 0."""
    order = np.argsort(blocks.a, kind="stable")
    numbers = np.zeros(len(order), int)
    number, lowest = 0, blocks.a[order[0]]
    for place in order:
        if blocks.a[place] > lowest * (1.0 + SAME_ROD):
            number, lowest = number + 1, blocks.a[place]
        numbers[place] = number
    return numbers


def _absorber(x: Array, a: float, c: float, reflection: Reflection, energy: float) -> Any:
    """A crystal with the density of the one with the lattice constants a and c, but with a reflection out of reach."""
    short = float(reflection.qz(1.0)) / (OUT_OF_REACH * 2.0 * math.pi * energy / HC_ANGSTROM)
    return _crystal(x, a, short, short / c)


def _crystal(x: Array, a: float, c: float, occupied: float = 1.0) -> Any:
    """A wurtzite crystal. occupied: the share of occupied sites."""
    materials = imported_xrayutilities().materials
    metals = [(_atom(name), share) for name, share in zip(("In", "Ga", "Al"), x) if share > 0.0]
    atoms = [atom for atom, _ in metals] + [_atom("N")]
    lattice = materials.SGLattice(
        SPACE_GROUP, a, c, atoms=atoms, pos=[("2b", 0.0)] * len(metals) + [("2b", ANION)],
        occ=[occupied * share for _, share in metals] + [occupied],
    )
    return materials.Crystal("nitride", lattice)


@functools.cache
def _atom(name: str) -> Any:
    """An element of xrayutilities that reads its scattering factors from the database once, not at each call."""
    from scipy.interpolate import CubicSpline

    element = getattr(imported_xrayutilities().materials.elements, name)
    atom, source = copy.deepcopy(element), copy.deepcopy(element)  # crystals copy their atoms: keep them small
    q = np.linspace(0.0, Q_MAX, int(Q_MAX / Q_STEP) + 1)
    f0: Any = CubicSpline(q, source.f0(q))

    @functools.cache
    def dispersion(energy: float) -> complex:
        return complex(source.f1(energy), source.f2(energy))

    atom.f = lambda q, en: f0(q) + dispersion(en)
    return atom


def _simulated(
    crystals: list[Any], thickness: list[float], reflection: Reflection, energy: float, omega: Array,
    grazing_exit: bool, polarization: str, monochromator: float,
) -> Array:
    """The intensity of a stack; the first crystal is infinite."""
    package = imported_xrayutilities()
    layers = [package.simpack.Layer(crystal, height) for crystal, height in zip(crystals, thickness)]
    geometry = package.HXRD(crystals[0].Q(1, 0, 0), crystals[0].Q(0, 0, 1), en=energy)
    model = package.simpack.DynamicalModel(
        package.simpack.LayerStack("stack", *layers), experiment=geometry, energy=energy, polarization=polarization,
        Cmono=monochromator,
    )
    side = "hi_lo" if grazing_exit else "lo_hi"
    try:
        found: Array = np.asarray(model.simulate(omega, hkl=tuple(reflection), geometry=side), float)
    except (ValueError, np.linalg.LinAlgError) as error:  # roots that it can't sort, or a singular matrix
        raise ValueError(
            f"{reflection} can't be computed with omega from {omega[0]:.4g} to {omega[-1]:.4g} deg: a beam is too close "
            "to the surface"
        ) from error
    return found
