"""Numbers with units: "757 degC", "8 slm", or a Quantity of pint, as the number that a recipe holds.

pint knows the units and is imported when the first unit is converted. Flows of gas are amounts of substance per time,
as mass flow controllers state them: 1 sccm is one cm^3 of an ideal gas at 0 degC and 1 atm per minute, 1/22414 mol/min.
"""

from __future__ import annotations

import functools
import math
import numbers
import re
from typing import Any

MOLAR_VOLUME = 22414  # of an ideal gas at 0 degC and 1 atm, cm^3/mol
DEFINITIONS = (f"sccm = mole / {MOLAR_VOLUME} / minute = _ = SCCM", "percent = 0.01", "@alias torr = Torr")
EXAMPLES = {"K": "K or degC", "Pa": "Pa, mbar or Torr", "sccm": "sccm, slm or umol/min", "s": "s, min or h"}
AMPERE = 'A is ampere, 0.1 nm are "angstrom"'  # a hint
DIGITS = 12  # of a converted number, so that 0.8 slm is 800 and not 800.0000000000001

_NUMBER = re.compile(r"\s*([-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)\s*(.*?)\s*", re.ASCII | re.DOTALL)
_UNIT = re.compile(r"(?:[^\W\d_]|[%\u00b0]|1\s*/)[\w\s%\u00b0\u00b7\u207b*/^().+-]*")
# pint's slm is a power, of a litre per minute at 1 atm; the Greek letter is the sign for micro
_IN_PINT = {
    r"\bfraction\b": "", r"\b(slm|slpm|SLM|standard_liter_per_minute)\b": "ksccm", "\u03bc": "\u00b5", "%": "percent",
}


def is_quantity(value: object) -> bool:
    """True for a Quantity of any unit registry."""
    return hasattr(value, "magnitude") and hasattr(value, "units")


def has_unit(value: object) -> bool:
    """True for a text of a number and a unit, and for a Quantity."""
    if isinstance(value, str):
        match = _NUMBER.fullmatch(value)
        return match is not None and _UNIT.fullmatch(match[2]) is not None
    return is_quantity(value)


def number_in(value: Any, name: str, unit: str) -> float | int:
    """The number that a value is in a unit.

    value  a number, which is in that unit already; a text of a number with or without a unit; or a Quantity
    name   what messages call the value
    unit   as in the table of elements: K, sccm, cm⁻², "" for a number without a unit

    Raises ImportError if pint is needed and missing, TypeError for another type, ValueError if the unit does not fit or
    the number is not finite.
    """
    if is_quantity(value):
        if not isinstance(value.magnitude, numbers.Real):
            raise TypeError(f"{name} takes a single number, got {value}")
        return _converted(float(value.magnitude), str(value.units), value, name, unit)
    if isinstance(value, str):
        match = _NUMBER.fullmatch(value)
        if match is None or (match[2] and not has_unit(value)):
            hint = "; the decimal separator is the point" if re.search(r"\d,\d", value) else ""
            raise ValueError(f"{name} takes a number with or without a unit, got {value!r}{hint}")
        if match[2] not in ("", unit):
            return _converted(float(match[1]), match[2], value, name, unit)
        value = float(match[1])
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        shown = f"{value!r}" if value is None or isinstance(value, bool) else type(value).__name__
        raise TypeError(f"{name} takes a number or a text with a unit, such as {_example(unit)}, got {shown}")
    if not _is_finite(value):
        raise ValueError(f"{name} takes a finite number, got {value}")
    return int(value) if isinstance(value, numbers.Integral) else float(value)


def _is_finite(number: numbers.Real | float) -> bool:
    try:
        return math.isfinite(number)
    except OverflowError:  # an integer beyond all floats
        return False


@functools.lru_cache(maxsize=1)
def _registry() -> Any:
    """The units of pint and those that it lacks."""
    import pint

    registry = pint.UnitRegistry()
    for line in DEFINITIONS:
        registry.define(line)
    return registry


def _converted(magnitude: float, given: str, value: Any, name: str, unit: str) -> float:
    """The magnitude of a value in unit; given is its own unit."""
    try:
        registry = _registry()
    except ImportError as error:
        raise ImportError(
            f"{name}: units such as that of {str(value)!r} need pint: install python3-pint (Debian) or pint (pip), "
            f"or give a number{f' in {unit}' if unit else ''}"
        ) from error
    import pint

    wrong = f"{name}: {str(value)!r} has the unit {given or '1'}, expected {_expected(unit)}"
    if "delta_" in given:
        raise ValueError(f"{wrong}; a difference of temperatures is not a temperature")
    try:
        found = registry.Quantity(1.0, _in_pint(given)).units
    except Exception as error:  # of pint's parser, or of Python's below it
        if not is_quantity(value):
            raise ValueError(f"{name}: unknown unit {given!r} in {value!r}, expected {_expected(unit)}") from error
        value = value.to_root_units()  # a unit that only its own registry knows
        magnitude, found = float(value.magnitude), registry.Quantity(1.0, str(value.units)).units
    if unit == "rpm" and not re.search("revolution|turn|radian|degree", str(found)):
        raise ValueError(f"{wrong}; a number of events per time is not an angle per time")
    try:
        number = float(registry.Quantity(magnitude, found).to(_in_pint(unit)).magnitude)
    except pint.errors.PintError as error:
        hint = ""
        if unit == "K" and given in ("C", "c"):
            hint = '; degrees Celsius are "degC"'
        elif unit in ("nm", "um") and given == "A":
            hint = f"; {AMPERE}"
        elif unit == "sccm" and found.is_compatible_with("l/min"):
            hint = "; litres per minute at 0 degC and 1 atm are slm"
        raise ValueError(f"{wrong}{hint}") from error
    if not math.isfinite(number):
        raise ValueError(f"{name} takes a finite number, got {value}")
    return float(f"{number:.{DIGITS}g}")


def _in_pint(unit: str) -> str:
    """A unit as pint spells it."""
    for ours, others in _IN_PINT.items():
        unit = re.sub(ours, others, unit)
    return unit


def _expected(unit: str) -> str:
    return EXAMPLES.get(unit, unit if unit not in ("", "fraction") else "a number without a unit")


def _example(unit: str) -> str:
    return repr(f"8 {unit}") if unit not in ("", "fraction") else "0.5"
