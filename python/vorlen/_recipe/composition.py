"""Nitrides by their formula: the keyword of a material, the fractions of the metals, the lattice constant."""

from __future__ import annotations

import difflib
import math
import re
from collections.abc import Mapping

from .kinds import KNOWN

# In-plane lattice constants of InN, GaN and AlN as in the model, angstrom (docs/physics.md, section 5).
LATTICES = {"In": 3.540, "Ga": 3.189, "Al": 3.112}
FRACTION_SUM_DEVIATION_MAX = 1e-4  # that of the library

_MATERIAL = re.compile("((?:In|Ga|Al)+)N", re.IGNORECASE)
_FORMULA = re.compile(r"((?:(?:In|Ga|Al)(?:\d+\.?\d*|\.\d+)?)+)N")
_PART = re.compile(r"(In|Ga|Al)([\d.]*)")


def material_keyword(text: str) -> str:
    """The keyword of a recipe's material. The metals may be in any order: "AlGaInN" is AlInGaN.

    Raises ValueError for another material, with a similar one.
    """
    if not isinstance(text, str):
        raise TypeError(f"material must be a text, got {type(text).__name__}")
    keywords = KNOWN["material"].keywords
    for keyword in keywords:
        if _metals(text) and _metals(text) == _metals(keyword):
            return keyword
    near = difflib.get_close_matches(text, keywords, 1, 0.3)
    hint = f"; did you mean {near[0]}?" if near else ""
    raise ValueError(f"material must be one of {', '.join(keywords)}, got {text!r}{hint}")


def _metals(material: str) -> list[str]:
    """The metals of a material without fractions, sorted; empty if it is not one."""
    match = _MATERIAL.fullmatch(material.strip())
    return sorted(re.findall("in|ga|al", match[1].lower())) if match else []


def fractions_of(formula: str, given: Mapping[str, float | None]) -> dict[str, float]:
    """The fractions of In, Ga and Al in a nitride such as GaN, Al0.1Ga0.9N, or AlGaN with the fraction of Al given.

    given  fractions that are not in the formula, by metal; None: not given. One metal may be the rest.
    Raises ValueError if the fractions are unknown or do not add up to 1.
    """
    if not isinstance(formula, str):
        raise TypeError(f"composition must be a text such as 'Al0.1Ga0.9N', got {type(formula).__name__}")
    match = _FORMULA.fullmatch(formula.strip())
    parts = _PART.findall(match[1]) if match else []
    metals = [metal for metal, _ in parts]
    if not parts or len(set(metals)) < len(metals):
        raise ValueError(f"composition must be a nitride such as 'GaN' or 'Al0.1Ga0.9N', got {formula!r}")
    found = {metal: float(text) if text else None for metal, text in parts}
    for metal, fraction in given.items():
        if fraction is None:
            continue
        if metal not in found or found[metal] is not None:
            reason = "it is in the formula already" if metal in found else "the formula has no such metal"
            raise ValueError(f"x_{metal.lower()} can't be given for {formula!r}: {reason}")
        found[metal] = fraction
    known = [fraction for fraction in found.values() if fraction is not None]
    unknown = [metal for metal, fraction in found.items() if fraction is None]
    if len(unknown) > 1:
        raise ValueError(f"the fractions of {formula!r} are unknown: write 'Al0.1Ga0.9N', or give x_al=0.1")
    rest = round(1.0 - math.fsum(known), 12)
    if rest < 0.0 if unknown else abs(rest) > FRACTION_SUM_DEVIATION_MAX:
        raise ValueError(f"the fractions of {formula!r} must add up to 1, got {math.fsum(known):g}")
    return {metal: rest if metal in unknown else found.get(metal) or 0.0 for metal in ("In", "Ga", "Al")}


def lattice_of(fractions: Mapping[str, float]) -> float:
    """The in-plane lattice constant of the relaxed layer by Vegard's law, angstrom."""
    return round(math.fsum(fraction * LATTICES[metal] for metal, fraction in fractions.items()), 6)
