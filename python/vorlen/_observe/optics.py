"""Refractive indices n + ik for light along the c axis: nitrides by composition and temperature, and substrates.

Nitrides: the dielectric function of a three-dimensional band edge E_g [1], as is usual for these alloys [2],

    eps = A (2 - sqrt(1 + y) - sqrt(1 - y)) / y^2 + B,    y = E / E_g,

whose imaginary part above the gap is the absorption. A and B of GaN and AlN are fitted to the Sellmeier formulas of [3]
and [4] from 400 to 1000 nm, within 0.7 % and 0.1 % of n, and linear in the composition; InN has those of GaN, so that
InGaN is GaN with a smaller gap. The temperature acts through the gap alone.

[1] S. Adachi, Physical Review B 35, 7454 (1987)
[2] J. Peng, J. Piprek, Electronics Letters 32, 2285 (1996)
[3] A. S. Barker, M. Ilegems, Physical Review B 7, 743 (1973): GaN
[4] J. Pastrnak, L. Roskovcova, Physica Status Solidi 14, K5 (1966): AlN
[5] I. H. Malitson, M. J. Dodge, J. Opt. Soc. Am. 62, 1405 (1972): sapphire, ordinary index
[6] S. Wang et al., Laser & Photonics Reviews 7, 831 (2013): 4H-SiC, ordinary index
[7] P. T. B. Shaffer, Applied Optics 10, 1034 (1971): 6H-SiC, ordinary index
[8] D. E. Aspnes, A. A. Studna, Physical Review B 27, 985 (1983): Si from 1.5 eV up; below, M. A. Green, M. J. Keevers,
    Progress in Photovoltaics 3, 189 (1995)
"""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import NDArray

from .._base.types import Array
from .bands import ROOM_TEMPERATURE, band_gap
from .constants import HC
from .nitrides import NITRIDES

Complex = NDArray[np.complex128]

SHORTEST, LONGEST = 350.0, 1000.0  # nm; the constants are those of this range

AMPLITUDE = {"In": 9.94, "Ga": 9.94, "Al": 14.26}
BACKGROUND = {"In": 2.89, "Ga": 2.89, "Al": 0.94}

SILICON = np.array(  # eV, n, k at 300 K [8]
    [
        (1.24, 3.575, 0.0005), (1.305, 3.604, 0.0012), (1.5, 3.673, 0.005), (1.6, 3.714, 0.008), (1.7, 3.752, 0.010),
        (1.8, 3.796, 0.013), (1.9, 3.847, 0.016), (2.0, 3.906, 0.022), (2.1, 3.969, 0.030), (2.2, 4.042, 0.032),
        (2.3, 4.123, 0.048), (2.4, 4.215, 0.060), (2.5, 4.320, 0.073), (2.6, 4.442, 0.090), (2.7, 4.583, 0.130),
        (2.8, 4.753, 0.163), (2.9, 4.961, 0.203), (3.0, 5.222, 0.269), (3.1, 5.570, 0.387), (3.2, 6.062, 0.630),
        (3.3, 6.709, 1.321), (3.4, 6.522, 2.705), (3.5, 5.610, 3.014), (3.6, 5.296, 2.987),
    ]
)  # fmt: skip


def nitride_index(x: Array, wavelength: float, temperature: Any = ROOM_TEMPERATURE) -> Complex:
    """Refractive index n + ik of nitrides, without strain.

    x            (n, 3), fractions of In, Ga, Al
    wavelength   nm
    temperature  K: a number, or an array of m temperatures; the result is then (n, m)
    """
    x = np.clip(x, 0.0, 1.0)
    shape = (slice(None), *[None] * np.ndim(temperature))
    amplitude, background = (
        (x @ np.array([table[metal] for metal in NITRIDES]))[shape] for table in (AMPLITUDE, BACKGROUND)
    )
    x_in, x_ga, x_al = (column[shape] for column in x.T)
    y = HC / wavelength / band_gap(x_in, x_ga, x_al, temperature)
    edge = 2.0 - np.sqrt(1.0 + y) - np.conj(np.sqrt(1.0 - y + 0j))
    index: Complex = np.sqrt(amplitude * edge / y**2 + background)
    return index


def substrate_index(name: str, wavelength: float, temperature: Array) -> Complex:
    """Refractive index n + ik of a substrate at each temperature in K. That of foreign substrates is at 300 K."""
    if name in ("GaN", "AlN"):
        x = np.array([[0.0, name == "GaN", name == "AlN"]], float)
        return np.asarray(nitride_index(x, wavelength, temperature)[0])
    square = (1e-3 * wavelength) ** 2  # um^2
    if name == "sapphire":
        terms = ((1.4313493, 0.0726631**2), (0.65054713, 0.1193242**2), (5.3414021, 18.028251**2))
        index: complex = np.sqrt(1.0 + sum(strength * square / (square - pole) for strength, pole in terms))
    elif name == "4H-SiC":
        terms = ((0.20075, -12.07224), (5.54861, 0.02641), (35.65066, 1268.24708))
        index = np.sqrt(1.0 + sum(strength * square / (square - pole) for strength, pole in terms))
    elif name == "6H-SiC":
        index = 2.55378 + 0.03417 / square
    else:
        energy, n, k = SILICON.T
        index = complex(np.interp(HC / wavelength, energy, n), np.interp(HC / wavelength, energy, k))
    return np.full(len(temperature), index, complex)
