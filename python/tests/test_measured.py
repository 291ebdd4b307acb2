"""vorlen.measured: files of instruments, good and bad, and the position of peaks."""

from __future__ import annotations

import os
import sys
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import vorlen
from vorlen._observe import text_table, xrdml
from vorlen._observe.headings import heading_of
from vorlen._recipe.quantities import _registry

peak, read = vorlen.measured.peak, vorlen.measured.read


@pytest.fixture
def file(tmp_path):
    """Writes a file and returns its path."""

    def write(content: str | bytes, name: str = "curve.csv") -> Path:
        path = tmp_path / name
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        return path

    return write


def points(curve: vorlen.Curve) -> list[list[float]]:
    return curve.table.to_numpy().tolist()


# ---- text files


@pytest.mark.parametrize(
    "content",
    [
        "time (s),curvature (1/km)\n0,1.5\n1,2.5\n",
        "time (s);curvature (1/km)\r\n0,0;1,5\r\n1,0;2,5\r\n",  # a German spreadsheet
        "time [s]\tcurvature [km^-1]\n0\t1.5\n1\t2.5\n",
        "time/s  curvature/km-1\n0   1.5\n1   2.5\n",
        "# Time (s) Curvature (1/km)\n0 1.5\n\n# a remark\n1 2.5\n",
        "time;curvature\ns;1/km\n0;1.5\n1;2.5\n",  # a line of units
        '"time (s)","curvature (1/km)"\n"0","1.5"\n"1","2.5"\n',
        "Sample;4711\nDate;2024-01-02\n\ntime (s);curvature (1/km);\n0;1.5;\n1;2.5;\n",  # preamble, empty column
        "time (s),curvature (1/m)\n0,0.0015\n1,0.0025\n",
        "t/min,curvature (1/km)\n0,1.5\n0.016666666666666666,2.5\n",
        "time (s),curvature (1/km)\n1,2.5\n0,1.5\n",  # descending
        "time (s),temperature (K),curvature (1/km)\n0,900,1.5\n1,900,2.5\n",
        "time (s),curvature (1/km)\n0,1.5D0\n1,2.5e+00\n",
    ],
)
@pytest.mark.parametrize("encoding", ["utf-8", "utf-8-sig", "utf-16"])
def test_a_curvature_is_read_however_it_is_written(file, content, encoding):
    curve = read(file(content.encode(encoding)))
    assert curve.kind == "curvature" and list(curve.table) == ["time", "curvature"]
    np.testing.assert_allclose(curve.table, [[0, 1.5], [1, 2.5]], rtol=1e-12)
    assert curve.table.attrs["units"] == {"time": "s", "curvature": "1/km"}


@pytest.mark.parametrize("encoding", ["utf-8", "latin-1"])
def test_a_scan_has_both_angles(file, encoding):
    content = "2Theta (\u00b0);Intensity (counts)\n34,0;10\n34,5;200\n".encode(encoding)
    curve = read(file(content, "scan.csv"))
    assert points(curve) == [[34.0, 10.0, 17.0], [34.5, 200.0, 17.25]] and curve.kind == "xrd"
    assert curve.table.attrs["units"] == {"two_theta": "deg", "intensity": "counts", "omega": "deg"}
    assert curve.name == "scan" and curve.path is not None and curve.path.name == "scan.csv"


def test_angles_are_converted_or_asked_for(file):
    omega = file("omega (deg),cps\n17,1\n17.25,2\n", "omega.csv")
    assert points(read(omega)) == [[34.0, 1.0, 17.0], [34.5, 2.0, 17.25]]
    assert read(omega).notes == ["omega is taken as that of a symmetric scan: 2theta is twice omega"]
    both = file("2Theta,Omega,Intensity\n34,17.1,1\n34.5,17.35,2\n", "both.csv")
    assert points(read(both)) == [[34.0, 1.0, 17.1], [34.5, 2.0, 17.35]]  # a tilted substrate
    unclear = file("omega-2theta [deg],cps\n17,1\n17.25,2\n", "unclear.csv")
    with pytest.raises(ValueError, match=r"'omega-2theta \[deg\]' may be omega or 2theta, 17 to 17.25 deg"):
        read(unclear)
    assert points(read(unclear, axis="omega")) == points(read(omega))
    assert read(unclear, axis="two_theta").x.tolist() == [17.0, 17.25]


def test_relative_scans_need_the_angle_of_their_zero(file):
    path = file("omega (arcsec),counts\n-360,1\n0,5\n360,1\n")
    with pytest.raises(ValueError, match="angles from -0.1 to 0.1 deg are relative: give center="):
        read(path)
    np.testing.assert_allclose(read(path, center="34.5 deg").x, [34.3, 34.5, 34.7], rtol=1e-12)
    np.testing.assert_allclose(read(path, center=34.5).table.omega, [17.15, 17.25, 17.35], rtol=1e-12)


def test_reflectances_at_several_wavelengths_are_told_apart(file):
    path = file("time,R 405 nm (%),R 633 nm (%)\n0,20,30\n1,21,31\n")
    with pytest.raises(ValueError, match="unclear which column .* is the reflectance: give columns= or wavelength="):
        read(path)
    curve = read(path, wavelength="633 nm")
    assert curve.y.tolist() == pytest.approx([0.30, 0.31], rel=1e-12) and curve.settings == {"wavelength": "633 nm"}
    other = read(path, columns=("time", 2))
    assert other.y.tolist() == pytest.approx([0.20, 0.21], rel=1e-12) and other.settings == {"wavelength": "405 nm"}


def test_a_percentage_without_its_unit_is_not_taken_for_a_fraction(file):
    path = file("time (s),reflectance\n0,20\n1,21\n")
    with pytest.raises(ValueError, match="values up to 21 and no unit: give units="):
        read(path)
    assert read(path, units=(None, "%")).y.tolist() == pytest.approx([0.20, 0.21])
    assert read(path, units={"reflectance": "%"}).y.tolist() == pytest.approx([0.20, 0.21])
    with pytest.raises(ValueError, match="units has 'R', but the columns"):
        read(path, units={"R": "%"})
    with pytest.raises(ValueError, match="expected a number without a unit"):
        read(path, units=("s", "kg"))


def test_a_reflectance_that_is_not_calibrated_may_have_any_unit(file):
    path = file("time (s),reflectance\n0,2\n1,3\n2,2.5\n")
    with pytest.raises(ValueError, match="values up to 3 and no unit"):
        read(path)
    curve = read(path, calibrated=False)
    assert list(curve.y) == [2, 3, 2.5] and curve.settings["calibrated"] is False
    volts = read(path, units=("s", "V"), calibrated=False)
    assert list(volts.y) == [2, 3, 2.5]
    with pytest.raises(TypeError, match="calibrated must be True or False"):
        read(path, calibrated="no")
    assert "calibrated" not in read(file("time,curvature\n1,2\n2,3\n", "bow.csv")).settings
    assert "calibrated" not in read(file("2theta,counts\n34,2\n35,3\n", "scan.csv"), calibrated=False).settings


def test_columns_without_headings_need_a_kind(file):
    path = file("34.0 10\n34.1 20\n", "scan.xy")
    with pytest.raises(ValueError, match=r"unknown kind: give kind=.*2 columns without headings, first line '34.0 10'"):
        read(path)
    assert points(read(path, "xrd")) == [[34.0, 10.0, 17.0], [34.1, 20.0, 17.05]]
    assert read(path, "curvature").x.tolist() == [34.0, 34.1]
    three = file("34.0 17 10\n34.1 17.05 20\n", "three.xy")
    with pytest.raises(ValueError, match=r"give columns=, such as \(1, 2\)"):
        read(three, "xrd")
    assert read(three, "xrd", columns=(1, 3)).y.tolist() == [10.0, 20.0]
    remark = file("# two columns\n34.0 10\n34.1 20\n", "remark.xy")
    assert read(remark, "xrd").y.tolist() == [10.0, 20.0]


def test_a_file_with_two_curves_asks_for_the_kind(file):
    path = file("time,curvature,reflectance\n1,2,0.1\n2,3,0.2\n")
    with pytest.raises(ValueError, match="may be curvature or reflectance"):
        read(path)
    assert read(path, "curvature").y.tolist() == [2.0, 3.0]
    assert read(path, "reflectance").y.tolist() == [0.1, 0.2]
    assert read(path, columns=("time", "curvature")).kind == "curvature"


def test_gaps_are_left_out_and_points_at_one_place_are_averaged(file):
    curve = read(file("time (s),curvature (1/km)\n3,1\n1,NaN\n2,\n2,4\n3,2\n0,#N/A\n2,6\n"))
    assert points(curve) == [[2.0, 5.0], [3.0, 1.5]]
    assert curve.notes == ["points with gaps, left out: 3 of 7", "points at the place of another one, averaged: 2"]


def test_spectra_over_the_photon_energy_become_spectra_over_the_wavelength(file):
    # 1239.842 nm are 1 eV; dE/dlambda = E^2 / hc, so that equal areas stay equal
    energies = np.linspace(2.0, 3.5, 1501)
    counts = np.exp(-0.5 * ((energies - 2.75) / 0.02) ** 2)
    lines = "\n".join(f"{energy!r},{count!r}" for energy, count in zip(energies.tolist(), counts.tolist()))
    curve = read(file(f"Energy (eV),PL intensity (a.u.)\n{lines}\n"))
    assert curve.kind == "emission" and list(curve.table) == ["wavelength", "intensity"]
    assert curve.x[0] == pytest.approx(1239.841984 / 3.5) and curve.x[-1] == pytest.approx(1239.841984 / 2.0)
    assert np.trapz(curve.y, curve.x) == pytest.approx(np.trapz(counts, energies), rel=1e-4)


@pytest.mark.parametrize(
    "heading, expected",
    [
        ("2Theta (\u00b0)", ("two_theta", "deg")), ("omega-2theta [deg]", ("scan_angle", "deg")), ("time (s)", ("time", "s")),
        ("t/min", ("time", "min")), ("curvature (1/km)", ("curvature", "1/km")), ("km^-1", ("curvature", "1/km")),
        ("Curvature [km\u207b\u00b9]", ("curvature", "1/km")), ("reflectance (%)", ("reflectance", "%")),
        ("wavelength (nm)", ("wavelength", "nm")), ("counts", ("intensity", "counts")), ("cps", ("intensity", "cps")),
        ("Intensity", ("intensity", None)), ("Intensity (mV)", ("intensity", None)), ("time_s", ("time", "s")),
        ("two_theta", ("two_theta", None)), ("\u03c9 (arcsec)", ("omega", "arcsec")), ("Energy/eV", ("energy", "eV")),
    ],
)
def test_headings_with_units(heading, expected):
    assert heading_of(heading)[:2] == expected


@pytest.mark.parametrize("heading", ["T", "T (K)", "Temperature", "Date", "", "5", "#", "Pressure (mbar)"])
def test_unknown_headings(heading):
    assert heading_of(heading) is None


def test_the_points_of_a_curve_come_back_from_its_file(tmp_path):
    random = np.random.default_rng(1)
    for kind, names in (
        ("xrd", ("two_theta", "intensity", "omega")), ("curvature", ("time", "curvature")),
        ("reflectance", ("time", "reflectance")), ("emission", ("wavelength", "intensity")),
    ):
        table = pd.DataFrame({name: 30 + np.sort(random.random(50)) for name in names})
        if kind == "reflectance":
            table["reflectance"] -= 30
        vorlen.Curve(kind, table).to_csv(tmp_path / "curve.csv")
        again = read(tmp_path / "curve.csv")
        assert again.kind == kind
        pd.testing.assert_frame_equal(again.table, table, check_exact=True)


@given(
    st.lists(st.tuples(st.floats(1, 100), st.floats(-1e6, 1e6)), min_size=2, max_size=20, unique_by=lambda one: one[0]),
    st.sampled_from(["\t", ";", " ", ","]), st.booleans(),
)
@settings(max_examples=60, deadline=None)
def test_any_numbers_with_any_delimiter(tmp_path_factory, pairs, delimiter, comma):
    text = f"time (s){delimiter}curvature (1/km)\n"
    text += "".join(f"{x!r}{delimiter}{y!r}\n".replace(".", "," if comma and delimiter != "," else ".") for x, y in pairs)
    path = tmp_path_factory.mktemp("numbers") / "curve.dat"
    path.write_text(text)
    assert points(read(path, "curvature", columns=(1, 2), units=("s", "1/km"))) == [list(pair) for pair in sorted(pairs)]


# ---- files that are something else


@pytest.mark.parametrize(
    "content, message",
    [
        (b"", "is empty"),
        (b" \r\n \n", "is empty"),
        (b"hello\nworld\n", "has no line of numbers"),
        (b"1\n2\n3\n", "has no line of two or more numbers"),
        (b"time,curvature\n1,2\n", "a curve needs two points or more, and 1 are left of 1"),
        (b"time,curvature\n1,nan\n2,nan\n", "no line of two or more numbers|a curve needs two points"),
        (b"\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR", "not a text file: it contains null characters"),
        (bytes(range(1, 32)) * 10, "not a text file: it contains control characters"),
        (b"\xff\xfe\x00\xd8\x00", "not valid UTF-16"),
        (b"a,b\n1,5,2,5\n2,5,3,5\n", "comma both delimiter and decimal separator"),
        (b"t/min,kappa\n1,2\n2,3\n3,4\nerror 5\n4,5\n5,6\n", "line 5: the table is interrupted by 'error 5'"),
        (b"<html><p>Not found</p></html>", "its root element is html"),
        (b"2theta,counts\n340,1\n350,2\n", "2theta reaches 350 deg; is its unit right"),
        (b"Energy (eV),intensity\n0,1\n1,2\n", "photon energies must be positive"),
    ],
)
def test_bad_files_are_described(file, content, message):
    path = file(content)
    with pytest.raises(ValueError, match=message) as caught:
        read(path)
    assert len(str(caught.value)) < 300


def test_files_that_are_too_large_or_no_files(tmp_path, monkeypatch):
    path = tmp_path / "large.csv"
    with open(path, "wb") as large:
        large.truncate(10**12)  # sparse: takes no place
    with pytest.raises(ValueError, match="is too large for a curve: 1000000 MB, at most 20 MB"):
        read(path)
    with pytest.raises(FileNotFoundError):
        read(tmp_path / "missing.csv")
    with pytest.raises(IsADirectoryError):
        read(tmp_path)
    os.mkfifo(tmp_path / "pipe")
    with pytest.raises(ValueError, match="empty|not a regular file"):
        read(tmp_path / "pipe")
    with pytest.raises(TypeError, match="path must be a path, got int"):
        read(5)
    assert text_table.SIZE_MAX < xrdml.SIZE_MAX < 10**8


def test_a_file_that_was_cut_off_has_a_note(file):
    curve = read(file("time (s),curvature (1/km)\n1,2\n2,3\n3"))
    assert points(curve) == [[1.0, 2.0], [2.0, 3.0]] and curve.notes == ["line 4 is not part of the table: '3'"]


@pytest.mark.parametrize(
    "arguments, error, message",
    [
        ({"kind": "rheed"}, ValueError, "kind must be one of xrd, curvature"),
        ({"columns": "time"}, TypeError, "columns must be a pair"),
        ({"columns": ("time", 3)}, ValueError, "a heading or a number from 1 to 2, got 3"),
        ({"columns": ("time", True)}, ValueError, "a heading or a number from 1 to 2, got True"),
        ({"columns": ("time", "time")}, ValueError, "two different columns"),
        ({"columns": ("time", "bow")}, ValueError, "has no columns 'bow'; it has columns: 'time'"),
        ({"units": "min"}, TypeError, "units must be a pair"),
        ({"units": (1, 2)}, TypeError, "a unit must be a text"),
        ({"axis": "omega"}, ValueError, "axis and center are for xrd"),
        ({"scan": 1}, ValueError, "scan is for XRDML files"),
        ({"colums": (1, 2)}, TypeError, "no argument 'colums'; settings of curvature: substrate"),
        ({"hkl": (0, 0, 2)}, TypeError, "no argument 'hkl'; settings of curvature: substrate"),
    ],
)
def test_wrong_arguments(file, arguments, error, message):
    path = file("time,curvature\n1,2\n2,3\n")
    with pytest.raises(error, match=message):
        read(path, **arguments)


# ---- XRDML


POSITIONS = (
    '<positions axis="2Theta" unit="deg"><startPosition>34</startPosition><endPosition>35</endPosition></positions>'
    '<positions axis="Omega" unit="deg"><startPosition>17.1</startPosition><endPosition>17.6</endPosition></positions>'
)


def scan_file(
    version: str = "1.5", tag: str = "intensities", positions: str = POSITIONS, intensities: str = "1 2 3 4 5",
    more: str = "", scans: int = 1, head: str = "", wavelength: str = "1.5405980",
) -> str:
    scan = (
        '<scan appendNumber="0" mode="Continuous" scanAxis="2Theta-Omega" status="Completed"><reflection><hkl><h>0</h><k>0</k>'
        f"<l>4</l></hkl></reflection><dataPoints>{positions}<commonCountingTime unit=\"seconds\">0.5</commonCountingTime>"
        f'{more}<{tag} unit="counts">{intensities}</{tag}></dataPoints></scan>'
    )
    return (
        f'<?xml version="1.0" encoding="UTF-8"?>\n{head}<xrdMeasurements xmlns="http://www.xrdml.com/XRDMeasurement/{version}" '
        'status="Completed"><sample type="To be analyzed"/><xrdMeasurement measurementType="Scan" status="Completed">'
        f'<usedWavelength intended="K-Alpha 1"><kAlpha1 unit="Angstrom">{wavelength}</kAlpha1></usedWavelength>{scan * scans}'
        "</xrdMeasurement></xrdMeasurements>"
    )


def test_xrdml_of_both_versions(file):
    old = read(file(scan_file(), "old.xrdml"))
    assert points(old) == [[34, 1, 17.1], [34.25, 2, 17.225], [34.5, 3, 17.35], [34.75, 4, 17.475], [35, 5, 17.6]]
    assert old.settings == {"hkl": (0, 0, 4), "energy": "CuKa1", "seconds": 0.5} and old.kind == "xrd"
    # Of version 2, counts are as the detector saw them; the attenuator let through a tenth at the third point.
    factors = "<beamAttenuationFactors>1 1 10 1 1</beamAttenuationFactors>"
    new = read(file(scan_file("2.0", "counts", more=factors), "new.xrdml"))
    assert new.y.tolist() == [1, 2, 30, 4, 5] and new.x.tolist() == old.x.tolist()
    assert read(file(scan_file().replace("UTF-8", "UTF-16").encode("utf-16"), "wide.xrdml")).y.tolist() == [1, 2, 3, 4, 5]
    named = file(scan_file(), "scan.txt")  # the content decides
    assert read(named, hkl=(0, 0, 6)).settings["hkl"] == (0, 0, 6)


def test_xrdml_with_listed_positions_and_another_anode(file):
    listed = "".join(
        f'<positions axis="{axis}" unit="deg"><listPositions>{values}</listPositions></positions>'
        for axis, values in (("2Theta", "34 34.1 34.2 34.6 35"), ("Omega", "17 17.05 17.1 17.3 17.5"))
    )
    curve = read(file(scan_file(positions=listed, wavelength="1.7889600"), "scan.xrdml"))
    assert curve.x.tolist() == [34, 34.1, 34.2, 34.6, 35]
    # cobalt: 12.39842 keV angstrom / 1.78896 angstrom
    assert float(curve.settings["energy"].removesuffix(" eV")) == pytest.approx(12398.42 / 1.78896, rel=1e-6)


def test_one_of_several_scans_is_chosen(file):
    path = file(scan_file(scans=2), "two.xrdml")
    with pytest.raises(ValueError, match=r"has 2 scans; choose one, such as scan=1 \(1: 2Theta-Omega 34 to 35 deg, 5 points; 2"):
        read(path)
    assert read(path, scan=2).y.tolist() == [1, 2, 3, 4, 5]
    with pytest.raises(ValueError, match="scan must be from 1 to 2"):
        read(path, scan=3)
    with pytest.raises(TypeError, match="scan must be an integer"):
        read(path, scan="1")


ROCKING = POSITIONS.replace(
    "<startPosition>34</startPosition><endPosition>35</endPosition>", "<commonPosition>34</commonPosition>"
)
ENTITIES = '<!DOCTYPE x [<!ENTITY a "aaaaaaaaaa">' + "".join(
    f'<!ENTITY {name} "{("&" + before + ";") * 10}">' for before, name in zip("abcdefgh", "bcdefghi")
) + "]>"


@pytest.mark.parametrize(
    "content, message",
    [
        (scan_file()[:-30], "not well-formed XML, or incomplete"),
        (scan_file(intensities="1 2 x 4 5"), "intensities: could not convert string to float: 'x'"),
        (scan_file(intensities="1 2 nan 4 5"), "a number is not finite"),
        (scan_file(intensities=""), "0 points"),
        (scan_file(tag="other"), "neither intensities nor counts"),
        (scan_file(positions=""), "no positions of 2Theta"),
        (scan_file(positions=ROCKING), "only omega moves"),
        (scan_file(positions=POSITIONS.replace("deg", "rad")), "positions of 2Theta in rad, expected deg"),
        (scan_file("2.0", "counts", more="<beamAttenuationFactors>1 1</beamAttenuationFactors>"), "5 counts, but 2 beam"),
        (scan_file(scans=0), "has no scan"),
        (scan_file(head=ENTITIES, intensities="&i;"), "a document type declaration"),
        (scan_file(head='<!DOCTYPE x [<!ENTITY a SYSTEM "file:///etc/passwd">]>', intensities="&a;"), "a document type"),
        ("<xrdMeasurements>" + "<a>" * 200 + "</a>" * 200 + "</xrdMeasurements>", "nested more than 100 deep"),
        ("<?xml version='1.0' encoding='klingon'?><xrdMeasurements/>", "klingon|encoding"),
    ],
    ids=lambda text: text[-30:],
)
def test_bad_xrdml(file, content, message):
    with pytest.raises(ValueError, match=message) as caught:
        read(file(content, "scan.xrdml"))
    assert "scan.xrdml" in str(caught.value) and len(str(caught.value)) < 300


def test_arguments_for_the_other_format(file):
    path = file(scan_file(), "scan.xrdml")
    with pytest.raises(ValueError, match="columns is for text files"):
        read(path, columns=(1, 2))
    with pytest.raises(ValueError, match="read as X-ray diffraction, not as curvature"):
        read(path, "curvature")


# ---- peaks


def spectrum(x, y) -> vorlen.Curve:
    return vorlen.Curve("emission", pd.DataFrame({"wavelength": x, "intensity": y}))


@given(st.floats(-0.45, 0.45), st.floats(3, 20))
@settings(max_examples=30, deadline=None)
def test_the_top_of_a_gaussian_peak_is_exact(shift, width):
    x = np.arange(400.0, 500.0)
    assert peak(spectrum(x, 7 * np.exp(-0.5 * ((x - 450 - shift) / width) ** 2))) == pytest.approx(450 + shift, abs=1e-6)


def test_the_centroid_of_a_lopsided_peak():
    x = np.linspace(400, 500, 1001)
    triangle = np.clip(np.where(x < 450, (x - 440) / 10, (490 - x) / 40), 0, None)
    # above half of the maximum a trapezium from 445 to 470 nm; its centroid the mean of those of two trapezia, weighted by area
    left, right = (447.0 + 7 / 9, 3.75), (450 + 20 * 4 / 9, 15.0)
    expected = (left[0] * left[1] + right[0] * right[1]) / (left[1] + right[1])
    assert peak(spectrum(x, triangle), "centroid") == pytest.approx(expected, abs=0.05)
    assert peak(spectrum(x, triangle)) < peak(spectrum(x, triangle), "centroid")


def test_a_sharp_peak_has_its_place_between_three_points():
    """A Gaussian whose neighbours are below half of the maximum: its logarithm is still a parabola."""
    x = np.arange(400.0, 500.0)
    assert peak(spectrum(x, np.exp(-0.5 * ((x - 450.2) / 0.4) ** 2) + 1e-300)) == pytest.approx(450.2, abs=1e-9)


def test_a_curve_without_a_peak():
    x = np.linspace(400, 500, 101)
    for y, reason in ((x, "highest at the end"), (0 * x, "no peak of three points"), (np.where(x == 450, 1, 0), "three points")):
        with pytest.raises(ValueError, match=reason):
            peak(spectrum(x, y))
    with pytest.raises(ValueError, match='how must be "top" or "centroid"'):
        peak(spectrum(x, x), "median")
    with pytest.raises(TypeError, match="curve must be a Curve"):
        peak(x)


def test_units_of_the_curve_need_no_pint(file, monkeypatch):
    monkeypatch.setitem(sys.modules, "pint", None)
    _registry.cache_clear()
    try:
        assert len(read(file("time (s),curvature (1/km)\n0,1.5\n1,2.5\n")).x) == 2
        with pytest.raises(ImportError, match="need pint: install python3-pint"):
            read(file("time (min),curvature (1/km)\n0,1.5\n1,2.5\n"))
    finally:
        _registry.cache_clear()
