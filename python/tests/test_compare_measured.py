"""vorlen.compare and vorlen.deviations: a run beside measured curves."""

from __future__ import annotations

from pathlib import Path

import matplotlib
import matplotlib.pyplot as plt
import numpy as np
import pandas as pd
import pytest

import vorlen
from curves import ANGLES, LAYER, as_measured, over_time
from vorlen._observe.matching import independent_points, matched, places_of, scale_and_background
from vorlen._runs.agreement import Agreement
from vorlen._runs.plot_agreement import agreement_text

matplotlib.use("Agg")


@pytest.fixture(scope="module")
def run():
    return vorlen.run(LAYER)


@pytest.fixture(scope="module")
def curve(run):
    return run.xrd(two_theta=ANGLES)


@pytest.fixture(autouse=True)
def _closed():
    yield
    plt.close("all")


# ---- numbers


@pytest.mark.parametrize(("scale", "background"), [(1.0, 0.0), (1e-6, 0.0), (37.0, 3.0), (1e5, 40.0)])
def test_neither_scale_nor_background_matters(run, curve, scale, background):
    measured = as_measured(curve, None, scale=scale, background=background)
    (row,) = vorlen.deviations(run, measured).to_dict("records")
    assert row["rms"] < 1e-6 and row["points"] == len(ANGLES)
    assert row["scale"] == pytest.approx(scale * 2e6 / curve.y.max(), rel=1e-5)
    assert row["background"] == pytest.approx(scale * background, rel=1e-4, abs=1e-4 * scale)
    assert row["peak_shift"] == pytest.approx(0.0, abs=1e-3)


def test_the_offset_of_the_angle_is_found(run, curve):
    shift = 0.0123
    moved = vorlen.Curve("xrd", curve.table.assign(two_theta=curve.x + shift), "scan")
    without = vorlen.deviations(run, moved)
    found = vorlen.deviations(run, moved, angle_offset=(-0.05, "0.05 deg"))
    assert found["shift"][0] == pytest.approx(shift, abs=2e-4) and without["shift"][0] == 0
    assert found.rms[0] < 0.05 * without.rms[0]
    assert without.peak_shift[0] == pytest.approx(-shift, abs=2e-3) and found.peak_shift[0] == pytest.approx(0, abs=2e-3)


def test_counting_noise_gives_the_deviations_of_counting_noise(run, curve):
    """A relative deviation of 1/sqrt(N) is 0.434/sqrt(N) decades, here weighted by 1/(1 + (0.434/0.05)^2/N)."""
    measured = as_measured(curve, 5, background=30.0)
    counts = 2e6 * curve.y / curve.y.max() + 30.0
    weights = 1 / (1 + (np.log10(np.e) / 0.05) ** 2 / counts)
    expected = np.sqrt(np.sum(weights * np.log10(np.e) ** 2 / counts) / weights.sum())
    # of 361 points: the relative standard error of an rms is 1/sqrt(2 * 361) = 4 %
    assert vorlen.deviations(run, measured).rms[0] == pytest.approx(expected, rel=0.15)


def test_times_are_matched_where_both_curves_are(run):
    simulated = run.curvature()
    times = np.linspace(simulated.x[0] - 50, simulated.x[-1] + 50, 400)
    measured = over_time("curvature", times, np.interp(times - 7.0, simulated.x, simulated.y))
    fixed = vorlen.deviations(run, measured)
    assert fixed.points[0] == np.sum((times >= simulated.x[0]) & (times <= simulated.x[-1])) and fixed.unit[0] == "1/km"
    found = vorlen.deviations(run, measured, time_offset=("-0.3 min", 20))
    assert found["shift"][0] == pytest.approx(7.0, abs=0.05) and found.rms[0] < 1e-3 * fixed.rms[0]
    assert np.isnan(found.scale[0]) and np.isnan(found.peak_shift[0])


def test_a_sensor_that_is_not_calibrated(run):
    for kind, change, scale, zero in (
        ("curvature", lambda y: y - 12.5, None, -12.5), ("reflectance", lambda y: 3.4 * y, 3.4, None),
    ):
        simulated = getattr(run, kind)()
        measured = over_time(kind, simulated.x, change(simulated.y))
        (as_it_is,) = vorlen.deviations(run, measured).to_dict("records")
        assert as_it_is["rms"] > 0.1 and np.isnan([as_it_is["scale"], as_it_is["background"]]).all()
        measured.settings["calibrated"] = False
        (row,) = vorlen.deviations(run, measured).to_dict("records")
        assert row["rms"] < 1e-12
        for name, expected in (("scale", scale), ("background", zero)):
            assert np.isnan(row[name]) if expected is None else row[name] == pytest.approx(expected, rel=1e-12)


def test_a_dark_simulation_leaves_the_factor_of_a_reflectance(run):
    dark = over_time("reflectance", np.arange(10.0), np.zeros(10))
    measured = over_time("reflectance", np.arange(10.0), np.ones(10))
    measured.settings["calibrated"] = False
    match = matched(dark, places_of(dark, measured, None))
    assert match.scale == 1.0 and match.rms == 1.0


def test_settings_of_the_measured_curve_are_those_of_the_simulation(run):
    simulated = run.reflectance("633 nm")
    measured = over_time("reflectance", simulated.x, simulated.y)
    measured.settings = {"wavelength": "633 nm", "seconds": 3}  # of which a reflectance takes the first
    assert vorlen.deviations(run, measured).rms[0] < 1e-12
    measured.settings = {"wavelength": "405 nm"}
    assert vorlen.deviations(run, measured).rms[0] > 1e-3


def test_a_scan_of_another_reflection_is_noticed(run):
    scan = as_measured(run.xrd((0, 0, 4), two_theta=np.linspace(70.0, 74.0, 201)), None)
    with pytest.raises(ValueError, match=r"70 to 74 deg is far from the peak of GaN template, 34.5\d+ deg in 002.*hkl="):
        vorlen.deviations(run, scan)
    scan.settings["hkl"] = (0, 0, 4)
    assert vorlen.deviations(run, scan).rms[0] < 0.1
    beside = as_measured(run.xrd(two_theta=(30.0, 34.0), points=201), None)  # the flank of 002, without its peak
    assert len(vorlen.deviations(run, beside)) == 1


def test_a_spectrum_is_compared_with_the_wells(run):
    expected = float(run.emission().wavelength.mean())
    x = np.linspace(expected - 60, expected + 60, 241)
    spectrum = vorlen.Curve("emission", pd.DataFrame({"wavelength": x, "intensity": np.exp(-0.5 * ((x - expected + 8) / 12) ** 2)}), "pl")
    (row,) = vorlen.deviations(run, spectrum).to_dict("records")
    assert row["peak_shift"] == pytest.approx(8.0, abs=1e-3) and row["rms"] == pytest.approx(8.0, abs=1e-3)
    assert row["points"] == 1 and row["unit"] == "nm"


def test_scale_and_background_are_the_best_ones():
    random = np.random.default_rng(2)
    model, weights = 10.0 ** random.uniform(-5, 0, 200), random.uniform(0.2, 1, 200)
    target = np.log10(50 * model + 0.01) + 0.1 * random.standard_normal(200)

    def cost(scale: float, background: float) -> float:
        return float(weights @ (np.log10(scale * model + background) - target) ** 2)

    scale, background = scale_and_background(model, target, weights)
    for change in (1.02, 0.98):
        assert cost(scale, background) < cost(change * scale, background)
        assert cost(scale, background) < cost(scale, change * background)
    assert scale == pytest.approx(50, rel=0.1) and background == pytest.approx(0.01, rel=0.2)


def test_independent_points_of_noise_and_of_averages():
    random = np.random.default_rng(4)
    noise = random.standard_normal(4000)
    assert independent_points(noise) > 3000
    # The mean of 20 neighbours has the autocorrelations 1 - k/20, and the time 1 + 2 * 9.5 = 20.
    averaged = np.convolve(noise, np.ones(20) / 20, "valid")
    assert independent_points(averaged) == pytest.approx(4000 / 20, rel=0.3)
    assert independent_points(np.ones(50)) < 2 and independent_points(np.zeros(50)) == 50


def test_points_outside_of_the_simulated_curve_are_left_out(curve):
    table = curve.table
    wide = vorlen.Curve("xrd", table)
    narrow = vorlen.Curve("xrd", table.iloc[100:200])
    assert len(matched(narrow, places_of(narrow, wide, None)).x) == 100
    with pytest.raises(ValueError, match="0 of its points, 33.2 to 35, are in the range of the simulated curve, 40 to"):
        places_of(vorlen.Curve("xrd", table.assign(two_theta=np.linspace(40, 41, len(table)))), wide, None)


# ---- figures and pages


def test_the_figure_has_both_curves_and_their_difference(run, curve, tmp_path):
    scan = as_measured(curve)
    sensor = over_time("curvature", np.linspace(3001, 3059, 50), np.zeros(50))
    figure = vorlen.compare(run, [scan, sensor], tmp_path / "both.svg")
    assert (tmp_path / "both.svg").read_text().count("difference") >= 2
    assert len(figure.axes) == 4 and figure.axes[0].get_yscale() == "log"
    points, line = figure.axes[0].lines
    assert points.get_label() == "scan" and line.get_label() == "ingan_layer"
    np.testing.assert_array_equal(points.get_xdata(), ANGLES)
    difference = figure.axes[1].lines[1].get_ydata()
    np.testing.assert_allclose(difference, np.log10(line.get_ydata()) - np.log10(np.maximum(scan.y, 1)), atol=1e-12)
    assert figure.axes[2].get_ylabel() == "curvature (1/km)"


def test_a_page_has_the_curves_and_the_numbers(run, curve, tmp_path):
    figure = vorlen.compare(run, as_measured(curve, name="<scan>"), tmp_path / "page.html")
    text = (tmp_path / "page.html").read_text()
    assert len(figure.axes) == 2
    assert "X-ray diffraction: &lt;scan&gt;" in text and 'id="deviations"' in text and "decades" in text


def test_no_file_of_a_run_or_a_curve_is_replaced(run, curve, tmp_path):
    scan = tmp_path / "scan.svg"
    scan.write_text("2theta,counts\n" + "".join(f"{x},{y * 1e6 + 1}\n" for x, y in zip(curve.x, curve.y)))
    measured = vorlen.measured.read(scan)
    with pytest.raises(ValueError, match="would overwrite .*scan.svg, which is an input"):
        vorlen.compare(run, measured, scan)
    assert scan.read_text().startswith("2theta")


@pytest.mark.parametrize(
    "arguments, named, error, message",
    [
        (("page.html",), {}, TypeError, "two or more runs in a list or dict, got one Run; to compare it with page.html, read"),
        ((5,), {}, TypeError, "measured must be a Curve or a list of Curves"),
        (([],), {}, ValueError, "give at least one measured curve"),
        ((["scan.csv"],), {}, TypeError, "measured must be a Curve or a list of Curves"),
        ((over_time("curvature", [1, 2], [0, 0]),), {}, ValueError, "sensor has 2 points; at least 5 are needed"),
        ((over_time("curvature", range(9), range(9)),), {}, ValueError, "sensor: 0 of its points, 0 to 8, are in the range"),
        ((over_time("curvature", range(3000, 3060), range(60)),), {"labels": ["a"]}, TypeError, "labels are the names of several"),
        ((over_time("curvature", range(3000, 3060), range(60)),), {"time_offset": 5}, TypeError, "time_offset must be a pair"),
        ((over_time("curvature", range(3000, 3060), range(60)),), {"time_offset": (5, 5)}, ValueError, "low must be less than high"),
        ((over_time("curvature", range(3000, 3060), range(60)), "x.xyz"), {}, ValueError, "must have the ending of a format"),
    ],
)
def test_wrong_arguments(run, arguments, named, error, message, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(error, match=message):
        vorlen.compare(run, *arguments, **named)
    assert list(tmp_path.iterdir()) == [] and plt.get_fignums() == []


def test_measured_curves_are_compared_with_one_run(run, curve):
    with pytest.raises(TypeError, match="measured curves are compared with one run"):
        vorlen.compare([run, run], as_measured(curve), "x.png")
    with pytest.raises(TypeError, match="path must be a path, got Curve"):
        vorlen.compare([run, run], as_measured(curve))
    with pytest.raises(TypeError, match="run must be a Run, got PosixPath"):
        vorlen.deviations(Path("x"), as_measured(curve))
    empty = vorlen.Curve("xrd", pd.DataFrame({"two_theta": ANGLES, "intensity": 0 * ANGLES}), "dark")
    with pytest.raises(ValueError, match="dark has no positive intensity"):
        vorlen.deviations(run, empty)


def test_the_title_leaves_out_a_shift_that_rounds_to_zero():
    table = pd.DataFrame({"two_theta": 34.0 + 0.01 * np.arange(21), "intensity": np.exp(-((np.arange(21) - 10) / 4.0) ** 2)})
    measured = vorlen.Curve("xrd", table, "scan")
    for moved, shown in ((0.0, ""), (2e-5, ""), (-2e-5, ""), (0.01, "+0.0100\u00b0"), (-0.01, "\u22120.0100\u00b0")):
        simulated = vorlen.Curve("xrd", table.assign(two_theta=table.two_theta + moved))
        agreement = Agreement(measured, simulated, matched(simulated, places_of(simulated, measured, None)), [], [])
        text = agreement_text(agreement)
        assert text.startswith("rms ") and (f"peak {shown} from" in text if shown else "peak" not in text)
