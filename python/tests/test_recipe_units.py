"""Numbers with units in recipes: conversion by pint, and clear errors for units that do not fit."""

from __future__ import annotations

import math
import subprocess
import sys
from typing import Any

import pint
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import vorlen
from support import MQW
from vorlen._recipe import quantities as _quantities
from vorlen._recipe.elements import ELEMENTS
from vorlen._recipe.quantities import number_in

# unit, unit in the recipe, factor or offset; from the definitions of the units, not from pint
UNITS = [
    ("mm", "m", 1e-3), ("um", "nm", 1e3), ("\u00b5m", "nm", 1e3), ("angstrom", "nm", 0.1), ("min", "s", 60.0),
    ("h", "s", 3600.0), ("mbar", "Pa", 100.0), ("kPa", "Pa", 1e3), ("Torr", "Pa", 101325 / 760),
    ("atm", "Pa", 101325.0),
    ("slm", "sccm", 1e3), ("umol/min", "sccm", 0.022414), ("\u03bcmol/min", "sccm", 0.022414),
    ("mol/s", "sccm", 22414 * 60.0), ("um/h", "nm/s", 1e3 / 3600), ("nm/s", "\u00b5m/h", 3.6),
    ("m^-2", "cm\u207b\u00b2", 1e-4),
    ("1/m^2", "cm\u207b\u00b2", 1e-4), ("rad", "degree", 180 / math.pi), ("%", "fraction", 0.01), ("K", "K", 1.0),
]  # fmt: skip


@settings(max_examples=100, deadline=None)
@given(st.sampled_from(UNITS), st.floats(1e-6, 1e9))
def test_a_value_with_a_unit_is_the_same_number_to_rounding(unit: tuple[str, str, float], number: float) -> None:
    given_unit, own, factor = unit
    assert math.isclose(number_in(f"{number!r} {given_unit}", "x", own), number * factor, rel_tol=5.1e-12)  # 12 digits


@given(st.floats(-273.0, 3000.0))
def test_degrees_celsius_have_an_offset(number: float) -> None:
    assert math.isclose(number_in(f"{number!r}degC", "T", "K"), number + 273.15, rel_tol=5.1e-12)
    assert math.isclose(number_in(f"{number!r} \u00b0C", "T", "K"), number + 273.15, rel_tol=5.1e-12)


@given(st.floats(allow_nan=False, allow_infinity=False))
def test_a_plain_number_and_its_text_stay_exactly_as_they_are(number: float) -> None:
    assert number_in(number, "x", "K") == number
    assert number_in(f" {number!r} ", "x", "K") == number


def test_a_converted_number_has_no_noise_in_its_last_digits() -> None:
    recipe = vorlen.Recipe.load(MQW)
    recipe["process_stages/stage_2/gas_species/Q/TMIn"] = "9 umol/min"
    recipe["process_stages/stage_2/T"] = ("757 degC", "1050 K")
    recipe["process_stages/stage_2/P"] = "400 mbar"
    recipe["process_stages/stage_2/delta"] = "8 mm"
    recipe["chemistry/Kd_In/A"] = "1e10 1/ms"
    text = str(recipe)
    for expected in (
        '<TMIn val="0.201726" end="0.201726"/>', '<T val="1030.15" end="1050"/>', '<P val="40000" end="40000"/>',
        '<delta val="0.008"/>', 'A="1e13"',
    ):  # fmt: skip
        assert expected in text
    # Pressure, delta and A are the same numbers as before, so their texts are too.
    assert recipe.to_bytes().count(b"\n") == MQW.read_bytes().count(b"\n")


def test_a_text_stays_a_text() -> None:
    recipe = vorlen.Recipe.load(MQW).set("process_stages/stage_2/name", "757 degC")
    assert recipe["process_stages/stage_2/name"] == "757 degC"
    with pytest.raises(ValueError, match="takes an integer, got '3 s'"):
        recipe["process_stages/stage_1/n_periods"] = "3 s"


@pytest.mark.parametrize(
    ("value", "unit", "text"),
    [
        ("8 s", "m", r"^delta: '8 s' has the unit s, expected m$"),
        ("8 l/min", "sccm", "has the unit l/min, expected sccm, slm or umol/min; litres per minute at 0 degC and 1 atm are slm"),
        ("8 K", "fraction", "expected a number without a unit"),
        ("757 C", "K", 'degrees Celsius are "degC"'),
        ("10 delta_degC", "K", "a difference of temperatures is not a temperature"),
        ("5 degC/min", "K", "has the unit degC/min, expected K or degC"),
        ("15 Hz", "rpm", "a number of events per time is not an angle per time"),
        ("5 foo", "K", "unknown unit 'foo' in '5 foo', expected K or degC"),
        ("5 s)", "s", "unknown unit"),
        ("5 s*2", "s", "unknown unit"),
        ("2 K;", "K", "takes a number with or without a unit"),
        ("12,5 K", "K", "the decimal separator is the point"),
        ("K", "K", "takes a number with or without a unit, got 'K'"),
        ("", "K", "takes a number"),
        ("1e400 s", "s", "takes a finite number"),
        (float("nan"), "s", "takes a finite number, got nan"),
        (10**400, "s", "takes a finite number"),
    ],
)
def test_a_value_that_does_not_fit_is_an_error_with_the_name_and_the_units(value: Any, unit: str, text: str) -> None:
    with pytest.raises(ValueError, match=text) as caught:
        number_in(value, "delta", unit)
    assert str(caught.value).startswith("delta")


@pytest.mark.parametrize("value", [None, True, [1], 1j, b"1"])
def test_another_type_is_an_error(value: Any) -> None:
    with pytest.raises(TypeError, match="T takes a number or a text with a unit, such as '8 K', got"):
        number_in(value, "T", "K")


def test_quantities_of_any_registry_are_numbers() -> None:
    theirs = pint.UnitRegistry()
    theirs.define("step = 200 micrometer")
    theirs.define("sccm = cm^3 / minute")  # as many define it; the name is what counts
    assert number_in(theirs.Quantity(757, "degC"), "T", "K") == 1030.15
    assert number_in(theirs.Quantity(8, "slm"), "N2", "sccm") == 8000  # in pint it is a power
    assert number_in(theirs.Quantity(3, "sccm"), "N2", "sccm") == 3
    assert number_in(theirs.Quantity(40, "step"), "delta", "m") == 0.008  # a unit that ours does not know
    assert number_in(pint.Quantity(400, "mbar"), "P", "Pa") == 40000
    assert number_in(theirs.Quantity(0.2), "x_al", "fraction") == 0.2
    with pytest.raises(ValueError, match="difference of temperatures"):
        number_in(theirs.Quantity(20, "degC") - theirs.Quantity(10, "degC"), "T", "K")
    with pytest.raises(ValueError, match="expected s, min or h"):
        number_in(theirs.Quantity(3.0, "m"), "tau", "s")
    with pytest.raises(TypeError, match="tau takes a single number"):
        number_in(theirs.Quantity([1, 2], "s"), "tau", "s")
    recipe = vorlen.Recipe.load(MQW).set("process_stages/stage_2/T", theirs.Quantity(757, "degC"))
    assert recipe["process_stages/stage_2/T"] == (1030.15, 1030.15)


def test_pint_knows_the_units_of_all_elements() -> None:
    units = {part.removesuffix("1") for known in ELEMENTS for part in known.unit.split(", ")}
    assert len(units) > 8
    for unit in units - {"", "fraction"}:
        assert number_in(f"2 {unit}", "x", unit) == 2.0


def test_without_pint_an_error_names_its_packages(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setitem(sys.modules, "pint", None)
    _quantities._registry.cache_clear()
    with pytest.raises(ImportError, match=r"T: units such as that of '757 degC' need pint: .*python3-pint .*pip"):
        number_in("757 degC", "T", "K")
    assert number_in("757", "T", "K") == 757 and number_in("757 K", "T", "K") == 757  # no conversion


def test_pint_is_imported_only_for_units() -> None:
    program = (
        "import sys, vorlen; r = vorlen.Recipe.new('InGaN', delta=0.008, pressure='40000');"
        "r.template('GaN', 2000, 3e8);"
        "r.grow('a', 60, T=(1000, '1010'), TEGa=0.5, NH3=8000); r['pre_stages/pre_stage_1/tau'] = '50';"
        "assert 'pint' not in sys.modules; r.pause('1 min'); assert 'pint' in sys.modules"
    )
    subprocess.run([sys.executable, "-c", program], check=True, cwd=MQW.parents[1] / "python")
