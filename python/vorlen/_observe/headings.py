"""What a heading of a measured table means: the quantity and its unit, "Curvature (1/km)", "t/min", "2Theta [deg]"."""

from __future__ import annotations

import re
from typing import NamedTuple

QUANTITIES = {  # quantity: unit in a Curve and words for it, as normalised by _word()
    "two_theta": ("deg", ("twotheta", "2theta", "2\u03b8", "tth", "2th", "ttheta", "twoth")),
    "omega": ("deg", ("omega", "om", "\u03c9", "theta", "th", "\u03b8")),
    # either angle, and perhaps counted from the substrate's peak
    "scan_angle": ("deg", (
        "omega2theta", "omegatwotheta", "\u03c92\u03b8", "2thetaomega", "twothetaomega", "2\u03b8\u03c9", "theta2theta",
        "\u03b82\u03b8", "th2th", "om2th", "angle",
    )),
    "time": ("s", ("time", "t", "elapsedtime", "runtime", "processtime", "zeit")),
    "wavelength": ("nm", ("wavelength", "wavelengths", "lambda", "\u03bb", "wl", "wellenl\u00e4nge")),
    "energy": ("eV", ("energy", "photonenergy", "e")),
    "curvature": ("1/km", ("curvature", "kappa", "\u03ba", "wafercurvature", "bow", "kr\u00fcmmung")),
    "reflectance": ("", ("reflectance", "reflectivity", "refl", "r", "reflexion", "reflection")),
    "intensity": ("", (
        "intensity", "int", "i", "counts", "count", "cts", "cps", "signal", "pl", "plintensity", "elintensity",
        "intensit\u00e4t", "detector", "spectrum", "xrdintensity",
    )),
}
PLAIN = {"counts": "counts", "count": "counts", "cts": "counts", "cps": "cps"}  # headings that are units of intensity
UNITS = {  # spellings of units that pint does not know, or knows as something else
    "\u00b0": "deg", "degree": "deg", "degrees": "deg", "\u00ba": "deg", "grad": "deg", '"': "arcsec", "\u2033": "arcsec",
    "arcsec": "arcsec", "arc sec": "arcsec", "arcseconds": "arcsec", "sec": "s", "seconds": "s", "second": "s",
    "minutes": "min", "minute": "min", "hours": "h", "hour": "h", "hr": "h",
    "km-1": "1/km", "km^-1": "1/km", "km^(-1)": "1/km", "km**-1": "1/km", "km\u207b\u00b9": "1/km", "1/km": "1/km",
    "m-1": "1/m", "m^-1": "1/m", "m\u207b\u00b9": "1/m", "1/m": "1/m",
    "a.u.": "", "a. u.": "", "au": "", "arb. units": "", "arb.u.": "", "arb. u.": "", "arb units": "", "rel. units": "",
    "1": "", "-": "", "percent": "%", "pct": "%",
    "count": "counts", "cts": "counts", "counts/s": "cps", "cts/s": "cps", "c/s": "cps", "counts/sec": "cps",
    "counts per second": "cps", "s^-1": "cps", "1/s": "cps",
}
KNOWN = frozenset((
    *UNITS.values(), "rad", "mrad", "arcmin", "ms", "\u00b5m", "um", "angstrom", "\u00c5", "meV", "%", "nm", "eV", "h", "min",
    "1/mm", "1/cm",
)) - {""}

_SUFFIX = re.compile(r"(.*?)\s*(?:\(([^()]*(?:\([^()]*\))?[^()]*)\)|\[([^\[\]]*)\]|/\s*(\S.*)|,\s*(\S.*)|\s+in\s+(\S+))\s*")
_LIGHT = re.compile(r"(?<![\d.])(\d{3,4}(?:\.\d+)?)\s*(?:nm)?(?![\w.])")


class Heading(NamedTuple):
    """A heading that was understood."""

    quantity: str  # of QUANTITIES
    unit: str | None  # as pint spells it, "counts" or "cps"; None: not stated
    light: float | None = None  # nm, of a reflectance whose heading has it


def heading_of(text: str, unit: str = "") -> Heading | None:
    """The meaning of a heading; None if it is unknown. unit: that of a line of units, if there is one."""
    name, stated = _split(text)
    if stated == "nm" and _quantity(name) != "wavelength":  # the light of a reflectance: "R 405 nm"
        name, stated = text, None
    given = unit_in(unit) if unit else stated
    quantity = _quantity(name)
    bracket = re.fullmatch(r"(.*?)\s*[(\[][^)\]]*[)\]]\s*", text)
    if quantity is None and bracket is not None and _quantity(bracket[1]) == "intensity":
        quantity = "intensity"  # in whatever unit: "Intensity (mV)"
    if quantity is None:  # a unit alone: "km^-1"
        quantity = {"1/km": "curvature", "1/m": "curvature", "cps": "intensity", "counts": "intensity"}.get(
            unit_in(text) or ""
        )
        return None if quantity is None else Heading(quantity, unit_in(text))
    if given is None and _word(name) in PLAIN:
        given = PLAIN[_word(name)]
    light = _LIGHT.search(name) if quantity == "reflectance" else None
    return Heading(quantity, given, float(light[1]) if light else None)


def unit_in(text: str) -> str | None:
    """A unit as pint spells it, "" for 1; None if the text is not a unit of a measured curve."""
    plain = text.strip().replace("\u03bc", "\u00b5").rstrip(".") if text.strip() != "a.u." else "a.u."
    for spelling in (text.strip(), plain, plain.lower()):
        if spelling in UNITS:
            return UNITS[spelling]
        if spelling in KNOWN:
            return spelling
    return None


def _split(text: str) -> tuple[str, str | None]:
    """Name and unit of a heading; None if no unit is stated."""
    match = _SUFFIX.fullmatch(text)
    if match is not None and match[1]:
        unit = unit_in(next(group for group in match.groups()[1:] if group is not None))
        if unit is not None:
            return match[1], unit
    last = text.strip().rpartition(" ")[2]
    for place in (last, text.strip().rpartition("_")[2]):  # "Time s", "time_s"
        unit = unit_in(place) if place not in ("1", "-", "", text.strip()) else None
        if unit is not None:
            return text.strip()[: -len(place)].rstrip(" _"), unit
    return text, None


def _quantity(name: str) -> str | None:
    """The quantity with this name; a wavelength of the light may be part of that of a reflectance."""
    word = "" if name.strip() == "T" else _word(name)  # T is a temperature
    for quantity, (_, words) in QUANTITIES.items():
        if word in words:
            return quantity
    without = _word(_LIGHT.sub("", name))
    return "reflectance" if without in QUANTITIES["reflectance"][1] and without != word else None


def _word(name: str) -> str:
    """Letters and digits of a name, in lower case."""
    return re.sub(r"[^\w]|_", "", name.casefold().replace("\u03d1", "\u03b8"))
