"""Elastic constants and thermal expansion of substrates, and the expansion of the nitrides.

Moduli are those at room temperature. Expansion is that in the plane of the wafer, as a mean from room temperature to
about 1100 K: at growth temperature it is higher, by about a fifth, in films and substrates alike. Sources:

[1] T. Goto, O. L. Anderson, I. Ohno, S. Yamamoto, J. Geophys. Res. 94, 7588 (1989): sapphire
[2] K. Kamitani et al., J. Appl. Phys. 82, 3152 (1997): 4H-SiC and 6H-SiC
[3] W. A. Brantley, J. Appl. Phys. 44, 534 (1973): biaxial modulus of Si (111), with M. A. Hopcroft, W. D. Nix,
    T. W. Kenny, J. Microelectromech. Syst. 19, 229 (2010) for the constants
[4] W. M. Yim, R. J. Paff, J. Appl. Phys. 45, 1456 (1974): sapphire and AlN, 293 to 1073 K
[5] Z. Li, R. C. Bradt, J. Appl. Phys. 60, 612 (1986), 4H-SiC, and J. Am. Ceram. Soc. 69, 863 (1986), 6H-SiC: the mean
    of their polynomials from 293 to 1073 K
[6] Y. Okada, Y. Tokumaru, J. Appl. Phys. 56, 314 (1984): Si, the mean of their formula from 293 to 1073 K
[7] H. P. Maruska, J. J. Tietjen, Appl. Phys. Lett. 15, 327 (1969): GaN, 300 to 900 K
[8] A. U. Sheleg, V. A. Savastenko, Vestsi Akad. Navuk BSSR, Ser. Fiz.-Mat. Navuk 3, 126 (1976): InN
"""

from __future__ import annotations

import difflib
import re
from typing import NamedTuple

import numpy as np

from .._base.types import Array
from .nitrides import NITRIDES, Nitride
from .slices import alloy


class Substrate(NamedTuple):
    """A substrate, isotropic in its plane."""

    name: str
    modulus: float  # biaxial, stress over strain, GPa
    expansion: float  # 1/K


def biaxial(C11: float, C12: float, C13: float, C33: float) -> float:
    """Biaxial modulus of the plane across the axis of a hexagonal or trigonal crystal, GPa; also of arrays."""
    return C11 + C12 - 2 * C13**2 / C33


def biaxial_111(C11: float, C12: float, C44: float) -> float:
    """Biaxial modulus of the plane (111) of a cubic crystal, GPa."""
    return 6 * C44 * (C11 + 2 * C12) / (C11 + 2 * C12 + 4 * C44)


def _biaxial_nitride(metal: str) -> float:
    constants: Nitride = NITRIDES[metal]
    return biaxial(constants.C11, constants.C12, constants.C13, constants.C33)


EXPANSION = {"In": 3.8e-6, "Ga": 5.59e-6, "Al": 5.27e-6}  # 1/K [8], [7], [4]
SUBSTRATES = {
    substrate.name: substrate
    for substrate in (
        Substrate("sapphire", biaxial(497.3, 162.8, 116.0, 500.9), 7.28e-6),  # [1], [4]
        Substrate("4H-SiC", biaxial(507, 108, 52, 547), 4.31e-6),  # [2], [5]; C13 is that of 6H-SiC
        Substrate("6H-SiC", biaxial(501, 111, 52, 553), 4.31e-6),  # [2], [5]
        Substrate("Si(111)", biaxial_111(165.7, 63.9, 79.6), 3.81e-6),  # [3], [6]
        Substrate("GaN", _biaxial_nitride("Ga"), EXPANSION["Ga"]),
        Substrate("AlN", _biaxial_nitride("Al"), EXPANSION["Al"]),
    )
}
OTHER_NAMES = {
    "al2o3": "sapphire", "si": "Si(111)", "silicon": "Si(111)", "sic": "4H-SiC", "sic4h": "4H-SiC", "sic6h": "6H-SiC",
}  # fmt: skip


def substrate_named(name: str) -> Substrate:
    """The substrate with that name; case, blanks, hyphens and brackets do not count.

    Raises TypeError if name is not a text, ValueError if the substrate is unknown.
    """
    if not isinstance(name, str):
        raise TypeError(f"substrate must be a text, one of {', '.join(SUBSTRATES)}; got {name!r}")
    known = {_plain(key): key for key in SUBSTRATES} | OTHER_NAMES
    word = _plain(name)
    if word in known:
        return SUBSTRATES[known[word]]
    near = difflib.get_close_matches(word, known, 1)
    hint = f"did you mean {known[near[0]]}?" if near else f"known are {', '.join(SUBSTRATES)}"
    raise ValueError(f"unknown substrate {name!r}; {hint}")


def _plain(name: str) -> str:
    return re.sub(r"[\W_]", "", name).lower()


def film_moduli(x: Array) -> Array:
    """Biaxial moduli of nitrides, GPa.

    x  (n, 3), fractions of In, Ga, Al
    """
    constants = alloy(x)
    return np.asarray(biaxial(constants.C11, constants.C12, constants.C13, constants.C33))


def film_expansions(x: Array) -> Array:
    """Thermal expansion of nitrides in the plane, 1/K, linear in the composition.

    x  (n, 3), fractions of In, Ga, Al
    """
    return np.asarray(x @ np.array([EXPANSION[metal] for metal in NITRIDES]))
