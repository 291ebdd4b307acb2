"""Measured curves: reading the files of instruments, vorlen.measured.read("scan.xrdml"), and the position of a peak."""

from __future__ import annotations

import os
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from .._base.arguments import check_flags
from .._base.files import as_path, read_file
from .._base.types import Array, PathLike
from .._recipe.quantities import number_in
from . import text_table, xrdml
from .constants import HC
from .curve import KINDS, Curve
from .headings import QUANTITIES, Heading, heading_of, unit_in
from .text_table import TextTable, decoded, parse_table

__all__ = ["peak", "read"]

AXES: dict[str, tuple[tuple[str, ...], str]] = {  # what the two columns of a curve are, by kind
    "xrd": (("two_theta", "omega", "scan_angle"), "intensity"),
    "curvature": (("time",), "curvature"),
    "reflectance": (("time",), "reflectance"),
    "emission": (("wavelength", "energy"), "intensity"),
}
SETTINGS = {  # what a simulation of the same curve may need to know, by kind
    "xrd": ("hkl", "energy", "resolution", "reference", "template", "geometry", "polarization", "monochromator"),
    "curvature": ("substrate", "thickness", "gradient", "span"),
    "reflectance": ("wavelength", "substrate", "thickness", "back", "temperature", "span"),
    "emission": ("temperature", "screening", "field", "constants"),
}
MEANINGS = {
    "two_theta": "angle between the incident and the diffracted beam", "omega": "angle of incidence",
    "time": "time", "wavelength": "wavelength in vacuum", "intensity": "measured intensity",
    "curvature": "curvature of the wafer, positive when concave seen from the film",
    "reflectance": "share of the light that is reflected",
}
NOT_CALIBRATED = ("curvature", "reflectance")  # kinds of sensors that may lack a calibration
LARGEST_REFLECTANCE = 1.5  # more is a percentage whose unit is missing
PEAK_HEIGHT = 0.5  # of the maximum, above which points belong to a peak


def read(
    path: PathLike,
    kind: str | None = None,
    *,
    columns: Sequence[str | int] | None = None,
    units: Sequence[str | None] | Mapping[str, str] | None = None,
    axis: str | None = None,
    center: Any = None,
    scan: int | None = None,
    name: str | None = None,
    calibrated: bool = True,
    **settings: Any,
) -> Curve:
    """Reads a measured curve: XRDML, or a text file with columns of numbers such as .csv, .txt, .dat and .xy.

    Delimiter, decimal separator, encoding, headings and units of text files are found. Points are sorted by the first
    column, gaps are left out, and points at the same place are averaged. Units need pint unless they are those of the
    curve.

    Parameters
    ----------
    path : path
        The file. Its content decides how it is read, not its ending.
    kind : str, optional
        "xrd" (two_theta in deg, intensity), "curvature" (time in s, 1/km), "reflectance" (time in s, 1) or "emission"
        (wavelength in nm, intensity). None: what the headings say.
    columns : pair of str or int, optional
        Abscissa and curve, each as a heading or a number from 1. None: found by their headings; without headings, the
        columns of a file that has two.
    units : pair of str, or mapping of headings to units, optional
        Units of the two columns; they have priority over those of the headings. None in a pair: that of the heading.
    axis : str, optional
        For xrd, whether angles are "two_theta" or "omega", if the heading leaves it open ("omega-2theta").
    center : number or str, optional
        For xrd, the angle 2theta of the 0 of a relative scan, deg or with a unit.
    scan : int, optional
        Number of a scan of an XRDML file with several, from 1.
    name : str, optional
        Name for legends. None: that of the file without its ending.
    calibrated : bool, optional
        False for a curvature whose zero, or a reflectance whose factor, is not known: comparisons and fits adjust it.
        Other kinds have no calibration.
    settings : any
        As keywords, what is needed to simulate the same curve: hkl and energy for xrd, substrate and thickness for curvature,
        wavelength and substrate for reflectance.

    Returns
    -------
    Curve
        The curve. Its notes say what was assumed or left out. XRDML files give the settings hkl and energy themselves.

    Raises
    ------
    ImportError
        If a unit has to be converted and pint is missing.
    OSError
        If the file can't be read.
    TypeError
        If an argument has another type, or a setting is not one of the kind.
    ValueError
        If the file has no curve, is too large, or it is unclear which columns or units are meant; the text lists what was
        found.
    """
    place = as_path(path, "path")
    if kind is not None and kind not in AXES:
        raise ValueError(f"kind must be one of {', '.join(AXES)}, got {kind!r}")
    check_flags(calibrated=calibrated)
    content = _content(place)
    shown = str(place)
    is_xml = content.lstrip(b"\xef\xbb\xbf \t\r\n").startswith(b"<") or content.startswith((b"\xff\xfe<", b"\xfe\xff\0<"))
    if is_xml:
        for argument, value in (("columns", columns), ("units", units), ("axis", axis), ("center", center)):
            if value is not None:
                raise ValueError(f"{argument} is for text files, and {shown} is XML")
        if kind not in (None, "xrd"):
            raise ValueError(f"{shown} is XML, which is read as X-ray diffraction, not as {kind}")
        return _named(_curve_of_scan(xrdml.scans_of(content, shown), scan, shown), place, name, calibrated, settings)
    if scan is not None:
        raise ValueError(f"scan is for XRDML files, and {shown} is a text file")
    table = parse_table(decoded(content, shown), shown)
    curve = _curve_of_text(table, kind, columns, units, axis, center, calibrated, settings, shown)
    return _named(curve, place, name, calibrated, settings)


def peak(curve: Curve, how: str = "top") -> float:
    """The position of the highest peak of a curve, in the unit of its abscissa.

    Parameters
    ----------
    curve : Curve
        The curve, for example a spectrum.
    how : str, optional
        "top": vertex of the parabola through the logarithms of the points above half of the maximum, three or more,
        exact for a Gaussian peak; "centroid": centre of the area of these points.

    Returns
    -------
    float
        The position; for a spectrum the wavelength in nm.

    Raises
    ------
    TypeError
        If curve is not a Curve.
    ValueError
        If how is unknown, or the curve has no peak of three positive points, or is highest at an end.
    """
    if not isinstance(curve, Curve):
        raise TypeError(f"curve must be a Curve, got {type(curve).__name__}")
    if how not in ("top", "centroid"):
        raise ValueError(f'how must be "top" or "centroid", got {how!r}')
    x, y = curve.x, curve.y
    top = int(np.argmax(y)) if len(y) else 0
    below = np.flatnonzero(~(y > PEAK_HEIGHT * y[top])) if len(y) else np.array([], int)
    first = below[below < top].max(initial=-1) + 1
    last = below[below > top].min(initial=len(y))
    first, last = min(first, max(top - 1, 0)), max(last, min(top + 2, len(y)))  # at least both neighbours
    x, y = x[first:last], y[first:last]
    if len(x) < 3 or not (y > 0).all():
        raise ValueError(f"{curve.name or curve.kind} has no peak of three points or more")
    if how == "centroid":
        return float(np.trapz(x * y, x) / np.trapz(y, x))
    middle = x[top - first]
    curved, slope, _ = np.polyfit(x - middle, np.log(y), 2, w=y)
    place = middle - 0.5 * slope / curved if curved < 0 else np.inf
    if not x[0] <= place <= x[-1]:
        raise ValueError(f"{curve.name or curve.kind} has no peak: it is highest at the end of the range")
    return float(place)


def _content(place: Path) -> bytes:
    """The content of a file that is not too large."""
    size = os.stat(place).st_size
    limit = xrdml.SIZE_MAX if place.suffix.lower() == ".xrdml" else text_table.SIZE_MAX
    if size > limit:
        raise ValueError(f"{place} is too large for a curve: {size / 1e6:.0f} MB, at most {limit / 1e6:.0f} MB")
    content = read_file(place)
    if not content.strip():
        raise ValueError(f"{place} is empty")
    return content


def _named(curve: Curve, place: Path, name: str | None, calibrated: bool, settings: Mapping[str, Any]) -> Curve:
    """The curve with its name, path and settings."""
    unknown = [setting for setting in settings if setting not in SETTINGS[curve.kind]]
    if unknown:
        known = ", ".join(SETTINGS[curve.kind]) or "there are none"
        raise TypeError(f"read() has no argument {unknown[0]!r}; settings of {curve.kind}: {known}")
    curve.settings |= settings
    if not calibrated and curve.kind in NOT_CALIBRATED:
        curve.settings["calibrated"] = False
    curve.path = place
    curve.name = place.stem if name is None else name
    return curve


# ---- XRDML


def _curve_of_scan(scans: list[xrdml.Scan], number: int | None, name: str) -> Curve:
    if number is None and len(scans) > 1:
        listed = "; ".join(f"{place}: {scan.label}" for place, scan in enumerate(scans, 1))
        raise ValueError(f"{name} has {len(scans)} scans; choose one, such as scan=1 ({listed})")
    if number is not None and (isinstance(number, bool) or not isinstance(number, int)):
        raise TypeError(f"scan must be an integer from 1, got {number!r}")
    if number is not None and not 1 <= number <= len(scans):
        raise ValueError(f"scan must be from 1 to {len(scans)}, the number of scans in {name}, got {number}")
    scan = scans[(number or 1) - 1]
    settings: dict[str, Any] = {"hkl": scan.hkl, "energy": scan.energy, "seconds": scan.seconds}
    values = {"two_theta": scan.two_theta, "intensity": scan.intensity, "omega": scan.omega}
    made = _made("xrd", values, {"intensity": scan.unit}, [])
    made.settings |= {key: value for key, value in settings.items() if value is not None}
    return made


# ---- text files


def _curve_of_text(
    table: TextTable, kind: str | None, columns: Sequence[str | int] | None, units: Any, axis: str | None, center: Any,
    calibrated: bool, settings: Mapping[str, Any], name: str,
) -> Curve:
    found = [heading_of(heading, unit) for heading, unit in zip(table.headings, table.unit_line)]
    if columns is not None:
        places = _given_columns(columns, table, name)
        kind = kind or _kind_of([found[place] for place in places], table, found, name)
    else:
        kind = kind or _kind_of(found, table, found, name)
        places = _columns_of(kind, table, found, settings, name)
    if kind != "xrd" and (axis is not None or center is not None):
        raise ValueError(f"axis and center are for xrd, and the kind of {name} is {kind}")
    notes = list(table.notes)
    meanings = [_meaning(found[place], side, kind) for side, place in enumerate(places)]
    stated = _given_units(units, places, table, name)
    values = {}
    for place, meaning, unit in zip(places, meanings, stated):
        shown = f"{name}, column {table.headings[place] or place + 1}"
        if meaning.quantity == "reflectance" and not calibrated:
            values["reflectance"] = table.numbers[:, place]  # in any unit, such as volts
        else:
            values[meaning.quantity] = _converted(table.numbers[:, place], meaning, unit, shown, notes)
    intensity = _unit_of_intensity(stated[1], meanings[1]) if meanings[1].quantity == "intensity" else ""
    if kind == "xrd":
        of_omega = [place for place, one in enumerate(found) if one is not None and one.quantity == "omega" and place not in places]
        if len(of_omega) == 1 and "two_theta" in values and center is None:
            omega = found[of_omega[0]]
            assert omega is not None
            values["omega"] = _converted(table.numbers[:, of_omega[0]], omega, None, f"{name}, omega", [])
        values = _angles(values, meanings[0].quantity, axis, center, table.headings[places[0]], name, notes)
    if "energy" in values:
        values = _per_wavelength(values, name, notes)
    curve = _made(kind, values, {"intensity": intensity}, notes)
    if kind == "reflectance" and meanings[1].light is not None and "wavelength" not in settings:
        curve.settings["wavelength"] = f"{meanings[1].light:g} nm"
    return curve


def _listed(table: TextTable, found: Sequence[Heading | None]) -> str:
    """The columns of a file, for messages."""
    if not any(table.headings):
        return f"{len(table.headings)} columns without headings, first line {table.first!r}"
    names = (f"{heading!r} ({one.quantity if one else 'unknown'})" for heading, one in zip(table.headings, found))
    return f"columns: {', '.join(names)}"


def _kind_of(among: Sequence[Heading | None], table: TextTable, found: Sequence[Heading | None], name: str) -> str:
    quantities = {one.quantity for one in among if one is not None}
    kinds = [kind for kind, (x, y) in AXES.items() if quantities & set(x) and y in quantities]
    if len(kinds) == 1:
        return kinds[0]
    reason = f"may be {' or '.join(kinds)}" if kinds else "is of an unknown kind"
    raise ValueError(f'{name} {reason}: give kind="{kinds[0] if kinds else "xrd"}" or another, and columns=. It has {_listed(table, found)}')


def _given_columns(columns: Sequence[str | int], table: TextTable, name: str) -> list[int]:
    if isinstance(columns, str) or not isinstance(columns, Sequence) or len(columns) != 2:
        raise TypeError(f"columns must be a pair, abscissa and curve, each as a heading or a number from 1, got {columns!r}")
    places = []
    for one in columns:
        if isinstance(one, str):
            same = [place for place, heading in enumerate(table.headings) if heading.casefold() == one.strip().casefold()]
            if len(same) != 1:
                raise ValueError(f"{name} has {len(same) or 'no'} columns {one!r}; it has {_listed(table, [None] * len(table.headings))}")
            places.append(same[0])
        elif isinstance(one, bool) or not isinstance(one, int) or not 1 <= one <= len(table.headings):
            raise ValueError(f"a column must be a heading or a number from 1 to {len(table.headings)}, got {one!r}")
        else:
            places.append(one - 1)
    if places[0] == places[1]:
        raise ValueError(f"columns must be two different columns, got {columns!r}")
    return places


def _columns_of(
    kind: str, table: TextTable, found: Sequence[Heading | None], settings: Mapping[str, Any], name: str
) -> list[int]:
    """The abscissa and the curve of that kind."""
    if not any(found):
        if len(table.headings) == 2:
            return [0, 1]
        raise ValueError(f"give columns=, such as (1, 2): {name} has {_listed(table, found)}")
    x, y = AXES[kind]
    of_x = [[place for place, one in enumerate(found) if one is not None and one.quantity == quantity] for quantity in x]
    of_x = [places for places in of_x if places]
    of_y = [place for place, one in enumerate(found) if one is not None and one.quantity == y]
    if kind == "reflectance" and len(of_y) > 1 and "wavelength" in settings:
        light = float(number_in(settings["wavelength"], "wavelength", "nm"))
        of_y = [place for place in of_y if (one := found[place]) is not None and one.light == light] or of_y
    if not of_x or len(of_x[0]) != 1 or len(of_y) != 1:
        which = "abscissa" if not of_x or len(of_x[0]) != 1 else y
        more = " or wavelength=" if kind == "reflectance" and len(of_y) > 1 else ""
        raise ValueError(f"it is unclear which column of {name} is the {which}: give columns={more}. It has {_listed(table, found)}")
    return [of_x[0][0], of_y[0]]


def _meaning(found: Heading | None, side: int, kind: str) -> Heading:
    """What a chosen column is: by its heading if that fits the kind, otherwise the usual one."""
    x, y = AXES[kind]
    usual = x if side == 0 else (y,)
    return found if found is not None and found.quantity in usual else Heading(usual[0], None)


def _given_units(units: Any, places: Sequence[int], table: TextTable, name: str) -> list[str | None]:
    """The units in the argument for the two columns; None where none is given."""
    if units is None:
        return [None, None]
    if isinstance(units, Mapping):
        names = [table.headings[place] for place in places]
        unknown = [heading for heading in units if heading not in names]
        if unknown:
            raise ValueError(f"units has {unknown[0]!r}, but the columns of {name} are {' and '.join(map(repr, names))}")
        pair = [units.get(heading) for heading in names]
    elif isinstance(units, str) or not isinstance(units, Sequence) or len(units) != 2:
        raise TypeError(f"units must be a pair, such as (\"min\", \"1/km\"), or a mapping of headings to units, got {units!r}")
    else:
        pair = list(units)
    if not all(unit is None or isinstance(unit, str) for unit in pair):
        raise TypeError(f"a unit must be a text, got {pair!r}")
    return pair


def _unit_of_intensity(given: str | None, meaning: Heading) -> str:
    unit = meaning.unit if given is None else unit_in(given)
    return unit if unit in ("counts", "cps") else "1"


def _converted(values: Array, meaning: Heading, given: str | None, shown: str, notes: list[str]) -> Array:
    """Values in the unit of the quantity."""
    if meaning.quantity == "intensity":
        return values  # its unit has no meaning for the shape of a curve
    wanted = QUANTITIES[meaning.quantity][0]
    unit = meaning.unit if given is None else unit_in(given) if unit_in(given) is not None else given
    if unit is None:
        if meaning.quantity == "reflectance" and np.nanmax(values) > LARGEST_REFLECTANCE:
            raise ValueError(
                f"{shown} has values up to {np.nanmax(values):.4g} and no unit: give units=, such as (None, '%'), or "
                "calibrated=False"
            )
        if wanted:
            notes.append(f"{meaning.quantity} without a unit is taken to be in {wanted}")
        return values
    if unit == wanted:
        return values
    converted: Array = values * float(number_in(f"1 {unit}" if unit else 1, shown, wanted))
    return converted


def _angles(
    values: dict[str, Array], quantity: str, axis: str | None, center: Any, heading: str, name: str, notes: list[str]
) -> dict[str, Array]:
    """Both angles of a scan in which omega is half of 2theta if it is not in the file."""
    if axis not in (None, "two_theta", "omega"):
        raise ValueError(f'axis must be "two_theta" or "omega", got {axis!r}')
    angle = values[quantity]
    if quantity == "scan_angle" and axis is None:
        raise ValueError(
            f"{name}: {heading!r} may be omega or 2theta, {np.nanmin(angle):.6g} to {np.nanmax(angle):.6g} deg: give "
            'axis="omega" or axis="two_theta"'
        )
    chosen = axis or quantity
    two_theta = 2.0 * angle if chosen == "omega" else angle
    if center is not None:
        two_theta = two_theta + float(number_in(center, "center", "deg"))
    elif np.nanmin(two_theta) <= 0:
        raise ValueError(
            f"{name}: angles from {np.nanmin(angle):.6g} to {np.nanmax(angle):.6g} deg are relative: give center=, the angle "
            "2theta of their 0"
        )
    elif chosen == "omega":
        notes.append("omega is taken as that of a symmetric scan: 2theta is twice omega")
    omega = values["omega"] if quantity == "two_theta" and "omega" in values else 0.5 * two_theta
    if not (np.nanmax(two_theta) < 180 and np.nanmax(omega) < 180):
        raise ValueError(f"{name}: 2theta reaches {np.nanmax(two_theta):.6g} deg; is its unit right?")
    return {"two_theta": two_theta, "intensity": values["intensity"], "omega": omega}


def _per_wavelength(values: dict[str, Array], name: str, notes: list[str]) -> dict[str, Array]:
    """A spectrum over the photon energy as one over the wavelength: I(lambda) = I(E) E^2 / hc."""
    energy = values["energy"]
    if not np.nanmin(energy) > 0:
        raise ValueError(f"{name}: photon energies must be positive, got {np.nanmin(energy):.6g} eV")
    notes.append("converted from photon energy, intensities too: per nm instead of per eV")
    return {"wavelength": HC / energy, "intensity": values["intensity"] * energy**2 / HC}


def _made(kind: str, values: dict[str, Array], units: Mapping[str, str], notes: list[str]) -> Curve:
    """The curve, sorted, without gaps, and with the mean of points at the same place."""
    table = pd.DataFrame(values)
    x, y = table.columns[:2]
    whole = table.dropna()
    if len(whole) < len(table):
        notes.append(f"points with gaps, left out: {len(table) - len(whole)} of {len(table)}")
    once = whole.groupby(x, sort=True, as_index=False).mean()
    if len(once) < len(whole):
        notes.append(f"points at the place of another one, averaged: {len(whole) - len(once)}")
    if len(once) < 2:
        raise ValueError(f"a curve needs two points or more, and {len(once)} are left of {len(table)}")
    once.attrs["units"] = {column: units.get(column, QUANTITIES[column][0] or "1") for column in once}
    once.attrs["meanings"] = {column: MEANINGS[column] for column in once}
    return Curve(kind, once, notes=notes)


assert set(AXES) == set(KINDS)
