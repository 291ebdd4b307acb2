"""Numbers as pages show them."""

from __future__ import annotations

import math
from typing import Any

MISSING = "\u2013"
RISE = str.maketrans("-0123456789", "⁻⁰¹²³⁴⁵⁶⁷⁸⁹")


def number(value: Any, digits: int = 4, unit: str = "") -> str:
    """This many digits, true minus signs, a dash for NaN or None."""
    if value is None or (isinstance(value, float) and math.isnan(value)):
        return MISSING
    if abs(value) < 1e-9:
        value = 0.0
    text = f"{value:.{digits}g}"
    if "e" in text:
        mantissa, exponent = text.split("e")
        text = f"{mantissa}\u00d710" + str(int(exponent)).translate(RISE)
    return text.replace("-", "\u2212") + (f"\u00a0{unit}" if unit else "")


def fraction(value: float | None) -> str:
    """Four decimals, of a whole number none, a dash for NaN or None."""
    if value is None or math.isnan(value):
        return MISSING
    text = f"{round(value)}" if abs(value - round(value)) < 5e-5 else f"{value:.4f}"
    return text.replace("-", "\u2212")
