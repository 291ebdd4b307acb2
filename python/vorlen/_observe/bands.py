"""Band edges, masses and polarisation of wurtzite AlInGaN grown along the c axis, strained in its plane.

The numbers are those of bulk nitrides with bowing for alloys, and the uncertain ones have a standard deviation. They
serve a coarse guide to emission and order nitrides by their gaps. Sources:

[1] I. Vurgaftman, J. R. Meyer, J. Appl. Phys. 94, 3675 (2003): gaps, Varshni parameters, masses, splittings,
    deformation potentials, bowing
[2] F. Bernardini, V. Fiorentini, D. Vanderbilt, Phys. Rev. Lett. 79, 3958 (1997): dielectric constants
[3] V. Fiorentini, F. Bernardini, O. Ambacher, Appl. Phys. Lett. 80, 1204 (2002): polarisation
[4] S. L. Chuang, C. S. Chang, Phys. Rev. B 54, 2491 (1996): valence bands of a strained layer
[5] J. Wu et al., J. Appl. Phys. 94, 4457 (2003): gap of InN, 0.69 eV at 0 K, for its standard deviation
[6] S. Chichibu et al., Appl. Phys. Lett. 69, 4188 (1996): emission of blue wells 0.1 eV below their absorption
"""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np

from .._base.types import Array

ROOM_TEMPERATURE = 300.0  # K


class Bands(NamedTuple):
    """One nitride."""

    alpha: float  # Varshni parameters of the gap: meV/K
    beta: float  # K
    crystal: float  # crystal-field splitting, eV
    spin_orbit: float  # spin-orbit splitting, eV
    mass: float  # of electrons along c, electron masses
    A1: float  # inverse masses of holes along c, 1/electron mass
    A3: float
    a1: float  # deformation potentials, eV: of the gap, along c and in the plane
    a2: float
    D3: float  # of the splittings of the valence band, along c and in the plane
    D4: float
    dielectric: float  # static dielectric constant along c
    spontaneous: float  # polarisation, C/m^2, positive towards the metal-polar surface
    piezo: float  # C/m^2, of the in-plane strain of a layer that is free along c
    piezo_compressed: float  # C/m^2, of its square, for a compressed layer
    piezo_stretched: float  # C/m^2, the same for a stretched layer


#              [1]                                                                    [2]    [3]
BANDS = {
    "In": Bands(0.245, 624, 0.040, 0.005, 0.07, -8.21, 7.57, -3.5, -3.5, 8.2, -4.1, 14.61, -0.042, -1.373, 7.559, 7.559),
    "Ga": Bands(0.909, 830, 0.010, 0.017, 0.20, -7.21, 6.68, -4.9, -11.3, 8.2, -4.1, 10.28, -0.034, -0.918, 9.541, 9.541),
    "Al": Bands(1.799, 1462, -0.169, 0.019, 0.32, -3.86, 3.58, -3.4, -11.8, 8.8, -3.9, 10.31, -0.090, -1.808, 5.624, -7.888),
}
PAIRS = (("In", "Ga"), ("Al", "Ga"), ("In", "Al"))
SPONTANEOUS_BOWING = (0.037, 0.021, 0.070)  # C/m^2, of these pairs; positive: less negative than Vegard's law [3]


class Constants(NamedTuple):
    """The constants that are uncertain. The gaps are those between the conduction band and the heavy holes."""

    gap_in: float = 0.78  # of InN without strain at 0 K, eV [1]
    gap_ga: float = 3.510  # of GaN [1]
    gap_al: float = 6.25  # of AlN [1]; its crystal-field holes are 0.16 eV above the heavy ones
    bowing_in_ga: float = 1.4  # eV [1]
    bowing_al_ga: float = 0.7  # eV [1]
    bowing_in_al: float = 2.5  # eV [1]
    offset: float = 0.7  # share of the conduction band in a step of the gap: 0.7 to 0.8 from the offsets of [1]
    deformation: float = 1.0  # factor of all deformation potentials
    polarisation: float = 1.0  # factor of all polarisation
    localisation: float = 0.6  # eV per fraction of indium by which emission is below the transition, from [6]


# Their standard deviations, about half the spread of published values
ERRORS = Constants(0.06, 0.01, 0.05, 0.3, 0.3, 1.5, 0.1, 0.2, 0.2, 0.3)
CONSTANTS = Constants()


def band_gap(x_in: Any, x_ga: Any, x_al: Any, temperature: float = ROOM_TEMPERATURE, constants: Constants = CONSTANTS) -> Any:
    """The gap between the conduction band and the heavy holes without strain, eV: Varshni's formula, and bowing.

    x_in, x_ga, x_al  fractions: numbers or arrays
    """
    gaps = [
        gap - 1e-3 * bands.alpha * temperature**2 / (temperature + bands.beta)
        for gap, bands in zip((constants.gap_in, constants.gap_ga, constants.gap_al), BANDS.values())
    ]
    bowing = (
        constants.bowing_in_ga * x_in * x_ga + constants.bowing_al_ga * x_al * x_ga + constants.bowing_in_al * x_in * x_al
    )
    return gaps[0] * x_in + gaps[1] * x_ga + gaps[2] * x_al - bowing


class Edges(NamedTuple):
    """Band edges of strained layers, as arrays: eV, on one scale for all layers; masses along c in electron masses."""

    electron: Array
    heavy: Array  # heavy holes
    split: Array  # the other holes that can be uppermost: those of the crystal field, mixed with light ones
    electron_mass: Array
    heavy_mass: Array
    split_mass: Array

    @property
    def gap(self) -> Array:
        """Between the conduction band and the uppermost holes, eV."""
        return np.asarray(self.electron - np.maximum(self.heavy, self.split))


def edges_of(
    x: Array, eps_xx: Array, eps_zz: Array, temperature: float = ROOM_TEMPERATURE, constants: Constants = CONSTANTS
) -> Edges:
    """Band edges of layers strained in the c plane, with the valence bands of Chuang and Chang [4].

    x  (n, 3), fractions of In, Ga, Al
    eps_xx, eps_zz  (n,), strain in the plane and along c, positive when stretched

    The bands of a layer are lambda + Delta_1 + Delta_2 + theta (heavy holes) and the two roots of the other 2 x 2 block.
    Parameters are linear in the composition except the gap; masses are those at the edge, 1/m linear. The step of the
    gap between heavy holes and conduction band is shared by the two bands as `offset` says.
    """
    mean = Bands(*(x @ np.array(list(BANDS.values()))).T)
    delta_1, delta_2 = mean.crystal, mean.spin_orbit / 3
    theta = constants.deformation * (mean.D3 * eps_zz + 2 * mean.D4 * eps_xx)
    gap = band_gap(x[:, 0], x[:, 1], x[:, 2], temperature, constants) - theta
    gap += constants.deformation * (mean.a1 * eps_zz + 2 * mean.a2 * eps_xx)
    electron = constants.offset * gap
    heavy = electron - gap

    half = 0.5 * (delta_1 - delta_2 + theta)
    root = np.sqrt(half**2 + 2 * delta_2**2)
    split = heavy + half + root - (delta_1 + delta_2 + theta)
    light = 0.5 * (1 + half / np.where(root > 0.0, root, 1.0))  # share of the light holes in that band
    electron_mass = 1.0 / (x @ np.array([1.0 / bands.mass for bands in BANDS.values()]))
    heavy_mass, split_mass = -1.0 / (mean.A1 + mean.A3), -1.0 / (mean.A1 + mean.A3 * light)
    return Edges(electron, heavy, split, electron_mass, np.asarray(heavy_mass), split_mass)


def polarisation_of(x: Array, eps_xx: Array, constants: Constants = CONSTANTS) -> tuple[Array, Array]:
    """Polarisation towards the metal-polar surface, C/m^2, and the static dielectric constant of layers.

    Spontaneous with bowing, and piezoelectric to second order in the strain, linear in the composition [3].

    x  (n, 3), fractions of In, Ga, Al
    eps_xx  (n,), strain in the plane, positive when stretched; along c the layer is free
    """
    mean = Bands(*(x @ np.array(list(BANDS.values()))).T)
    place = {metal: column for column, metal in enumerate(BANDS)}
    bowing = sum(
        value * x[:, place[one]] * x[:, place[other]] for (one, other), value in zip(PAIRS, SPONTANEOUS_BOWING)
    )
    square = np.where(eps_xx < 0.0, mean.piezo_compressed, mean.piezo_stretched)
    total = mean.spontaneous + bowing + mean.piezo * eps_xx + square * eps_xx**2
    return constants.polarisation * total, np.asarray(mean.dielectric)
