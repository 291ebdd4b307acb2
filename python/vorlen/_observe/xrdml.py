"""Scans in XRDML, PANalytical's published XML format for X-ray diffraction, versions 1.x and 2.x."""

from __future__ import annotations

from typing import Any, NamedTuple
from xml.etree import ElementTree

import numpy as np

from .._base.types import Array
from .constants import HC_ANGSTROM

SIZE_MAX = 50_000_000  # bytes
DEPTH_MAX = 100  # of nested elements; a scan has 6
POINTS_MAX = 1_000_000
COPPER = 1.5406  # angstrom, wavelength of Cu K-alpha 1
AXES = {"2Theta": "two_theta", "Omega": "omega"}


class Scan(NamedTuple):
    """One scan of a file."""

    axis: str  # as the file names it: "2Theta-Omega", "Gonio", ...
    two_theta: Array  # deg
    omega: Array
    intensity: Array  # counts, or counts per second if the file has these; corrected for attenuators
    unit: str  # of the intensity, "counts" or "cps"
    seconds: float | None  # of a point
    hkl: tuple[int, int, int] | None
    wavelength: float | None  # angstrom

    @property
    def label(self) -> str:
        """The scan in a list of scans."""
        return f"{self.axis or 'scan'} {self.two_theta[0]:.6g} to {self.two_theta[-1]:.6g} deg, {len(self.two_theta)} points"

    @property
    def energy(self) -> str | None:
        """The energy of the X-rays, as Run.xrd() takes it; None if it is unknown."""
        if self.wavelength is None:
            return None
        return "CuKa1" if abs(self.wavelength - COPPER) < 2e-4 else f"{HC_ANGSTROM / self.wavelength:.8g} eV"


def scans_of(content: bytes, name: str) -> list[Scan]:
    """All scans of a file. Raises ValueError, with name and what is wrong."""
    root = _parsed(content, name)
    if root.tag != "xrdMeasurements":
        raise ValueError(f"{name} is not an XRDML file: its root element is {root.tag[:40]}, not xrdMeasurements")
    found: list[Scan] = []
    for measurement in root.iter("xrdMeasurement"):
        for scan in measurement.iter("scan"):
            found.append(_scan(scan, measurement, f"{name}, scan {len(found) + 1}"))
    if not found:
        raise ValueError(f"{name} has no scan")
    return found


class _Builder(ElementTree.TreeBuilder):
    """A tree without namespaces. A document type, which may declare entities, and deep nesting are errors."""

    depth = 0

    def doctype(self, *_: Any) -> None:
        raise ValueError("it has a document type declaration, which XRDML files do not have")

    def start(self, tag: Any, attributes: Any) -> Any:
        self.depth += 1
        if self.depth > DEPTH_MAX:
            raise ValueError(f"elements are nested more than {DEPTH_MAX} deep")
        return super().start(tag.rpartition("}")[2], attributes)

    def end(self, tag: Any) -> Any:
        self.depth -= 1
        return super().end(tag.rpartition("}")[2])


def _parsed(content: bytes, name: str) -> ElementTree.Element:
    parser = ElementTree.XMLParser(target=_Builder())
    try:
        parser.feed(content)
        root = parser.close()
    except ElementTree.ParseError as error:
        raise ValueError(f"{name} is not well-formed XML, or incomplete: {error}") from None
    except (ValueError, LookupError) as error:
        raise ValueError(f"{name}: {error}") from None
    assert isinstance(root, ElementTree.Element)
    return root


def _scan(scan: ElementTree.Element, measurement: ElementTree.Element, name: str) -> Scan:
    points = scan.find("dataPoints")
    if points is None:
        raise ValueError(f"{name}: no dataPoints")
    intensity, unit = _intensity(points, name)
    angles = {key: _positions(points, axis, len(intensity), name) for axis, key in AXES.items()}
    axis = scan.get("scanAxis", "")
    moving = [key for key, values in angles.items() if values is not None and len(set(values[[0, -1]])) == 2]
    if len(moving) == 1 and all(values is not None for values in angles.values()):
        raise ValueError(f"{name}: only {moving[0]} moves (axis {axis}), expected a scan of omega and 2theta together")
    two_theta, omega = angles["two_theta"], angles["omega"]
    if two_theta is None:
        raise ValueError(f"{name}: no positions of 2Theta" + (f"; its axis is {axis}" if axis else ""))
    seconds = _number(points.findtext("commonCountingTime"), f"{name}: commonCountingTime")
    indices = [_number(scan.findtext(f"reflection/hkl/{index}"), f"{name}: {index}") for index in "hkl"]
    whole = [int(index) for index in indices if index is not None]
    return Scan(
        axis, two_theta, 0.5 * two_theta if omega is None else omega, intensity, unit, seconds,
        (whole[0], whole[1], whole[2]) if len(whole) == 3 and any(whole) else None, _wavelength(measurement, name),
    )


def _intensity(points: ElementTree.Element, name: str) -> tuple[Array, str]:
    """Intensities are corrected for attenuators in the file, counts are not."""
    corrected, raw = points.find("intensities"), points.find("counts")
    element = raw if corrected is None else corrected
    if element is None:
        raise ValueError(f"{name}: neither intensities nor counts")
    values = _numbers(element.text, f"{name}: {element.tag}")
    if len(values) < 2:
        raise ValueError(f"{name}: {len(values)} points")
    if element is raw:
        factors = _numbers(points.findtext("beamAttenuationFactors"), f"{name}: beamAttenuationFactors")
        if len(factors) not in (0, 1, len(values)):
            raise ValueError(f"{name}: {len(values)} counts, but {len(factors)} beamAttenuationFactors")
        values = values * factors if len(factors) else values
    return values, "cps" if element.get("unit") == "cps" else "counts"


def _positions(points: ElementTree.Element, axis: str, count: int, name: str) -> Array | None:
    """The angles of all points in degrees; None if the file has no such axis."""
    element = next((one for one in points.iter("positions") if one.get("axis") == axis), None)
    if element is None:
        return None
    if element.get("unit", "deg") != "deg":
        raise ValueError(f"{name}: positions of {axis} in {element.get('unit')}, expected deg")
    what = f"{name}: positions of {axis}"
    listed, common = element.findtext("listPositions"), element.findtext("commonPosition")
    if listed is not None:
        values = _numbers(listed, what)
        if len(values) != count:
            raise ValueError(f"{what}: {len(values)} for {count} intensities")
        return values
    if common is not None:
        return np.full(count, _number(common, what))
    ends = [_number(element.findtext(end), what) for end in ("startPosition", "endPosition")]
    if ends[0] is None or ends[1] is None:
        raise ValueError(f"{what}: neither a list nor start and end")
    return np.linspace(ends[0], ends[1], count)


def _wavelength(measurement: ElementTree.Element, name: str) -> float | None:
    """That of K-alpha 1, angstrom."""
    element = measurement.find("usedWavelength/kAlpha1")
    if element is None:
        return None
    value = _number(element.text, f"{name}: kAlpha1")
    factor = {"Angstrom": 1.0, "nm": 10.0}.get(element.get("unit", "Angstrom"))
    return None if value is None or factor is None or value <= 0 else factor * value


def _numbers(text: str | None, what: str) -> Array:
    """Numbers separated by blanks. Unlike those of numpy, ends with an error at a word."""
    words = (text or "").split()
    if len(words) > POINTS_MAX:
        raise ValueError(f"{what}: more than {POINTS_MAX} numbers")
    try:
        values = np.array([float(word) for word in words])
    except ValueError as error:
        raise ValueError(f"{what}: {error}") from None
    if not np.isfinite(values).all():
        raise ValueError(f"{what}: a number is not finite")
    return values


def _number(text: str | None, what: str) -> float | None:
    """One number; None for an empty text."""
    values = _numbers(text, what)
    return None if len(values) == 0 else float(values[0])
