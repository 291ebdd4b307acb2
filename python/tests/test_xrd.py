"""Diffraction curves: peaks, fringes and satellites against Bragg's law and other independent calculations."""

from __future__ import annotations

import math
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from scipy.integrate import solve_ivp

import vorlen
from support import failed_run, failing_recipe, result, row

pytest.importorskip("xrayutilities")

from vorlen._observe.blocks import PHASE, blocks_of  # noqa: E402
from vorlen._observe.reflections import given_reflection  # noqa: E402
from vorlen._observe.slices import LARGEST_CHANGE, slices_of  # noqa: E402
from vorlen._observe.xrd import xrd_curve  # noqa: E402

CU = 1.540593  # angstrom, Cu K alpha 1: Hoelzer et al., Physical Review A 56, 4554 (1997)
R_E = 2.8179403e-5  # classical electron radius, angstrom
# a, c [angstrom] and 2 C13/C33 of this model's nitrides: docs/physics.md, section 6
LATTICE = {"In": (3.54, 5.705, 2 * 92 / 224), "Ga": (3.189, 5.185, 2 * 103 / 405), "Al": (3.112, 4.982, 2 * 108 / 373)}


def strained(x_in: float = 0.0, x_al: float = 0.0, relaxation: float = 0.0) -> tuple[float, float, float, float]:
    """a, c, eps_xx and eps_zz of a layer on GaN."""
    shares = {"In": x_in, "Ga": 1 - x_in - x_al, "Al": x_al}
    free_a, free_c = (sum(share * LATTICE[metal][i] for metal, share in shares.items()) for i in (0, 1))
    c13 = x_in * 92 + (1 - x_in - x_al) * 103 + x_al * 108
    c33 = x_in * 224 + (1 - x_in - x_al) * 405 + x_al * 373
    a = 3.189 + relaxation * (free_a - 3.189)
    eps = a / free_a - 1
    return a, free_c * (1 - 2 * c13 / c33 * eps), eps, -2 * c13 / c33 * eps


def grown(*layers: tuple[float, dict[str, float]], template: float = 2000.0) -> vorlen.Run:
    """A GaN template, and layers of thickness [nm] and the arguments of strained()."""
    values = {"x_ga": 1.0, "a_eff_z": 3.189}
    rows = [row(False, time=t, z=z, **values) for t, z in ((0.0, 0.0), (1.0, template))]
    lines, time, z = [("template", 1.0, template)], 1.0, template
    for thickness, arguments in layers:
        a, _, eps_xx, eps_zz = strained(**arguments)
        x_in, x_al = arguments.get("x_in", 0.0), arguments.get("x_al", 0.0)
        values = dict(x_in=x_in, x_al=x_al, x_ga=1 - x_in - x_al, a_eff_z=a, eps_xx_z=eps_xx, eps_zz_z=eps_zz)
        rows += [row(time=time, z=z, **values), row(time=time + 1.0, z=z + thickness, **values)]
        kind = "InGaN" if x_in else "AlGaN" if x_al else "GaN"
        lines.append((kind, 1.0, thickness))
        time, z = time + 1.0, z + thickness
    if not layers:
        rows.append(row(time=time, z=z, **values))
    return vorlen.Run(result(lines, rows).encode())


def bragg(c: float, order: int = 2, wavelength: float = CU) -> float:
    """2 theta of the planes 00l, deg: lambda = 2 (c / l) sin theta."""
    return 2 * math.degrees(math.asin(order * wavelength / (2 * c)))


def peak(curve: vorlen.Curve, low: float, high: float) -> float:
    """Centre of mass of the upper half of the highest peak in a range."""
    inside = (curve.x > low) & (curve.x < high)
    x, y = curve.x[inside], curve.y[inside]
    top = y > 0.5 * y.max()
    return float((x[top] * y[top]).sum() / y[top].sum())


SUPERLATTICE = grown(*[(7.0, {}), (3.0, {"x_in": 0.15})] * 20)


# ---- positions


def test_bulk_gan_has_its_peak_at_34_57_degrees() -> None:
    # c = 5.185 angstrom; refraction shifts theta by 2 delta / sin 2theta and 2 theta by 0.0069 deg, delta = 1.71e-5.
    curve = grown().xrd()
    found = peak(curve, 34.5, 34.65)
    assert bragg(5.185) == pytest.approx(34.570, abs=0.001)
    assert found - bragg(5.185) == pytest.approx(0.0069, abs=0.001)
    assert curve.peaks is not None and curve.peaks.x[0] == pytest.approx(bragg(5.185), abs=1e-4)
    assert curve.table["omega"].to_numpy() == pytest.approx(curve.x / 2)


@pytest.mark.parametrize("arguments", [{"x_in": 0.1}, {"x_al": 0.3}, {"x_in": 0.1, "relaxation": 1.0}])
@pytest.mark.parametrize("order", [2, 4])
def test_a_film_has_its_peak_where_braggs_law_puts_it(arguments: dict[str, float], order: int) -> None:
    # The distance from GaN, in which refraction cancels but for the difference of densities, 0.001 deg.
    curve = grown((300.0, arguments)).xrd((0, 0, order), resolution=0, points=4001)
    _, c, *_ = strained(**arguments)
    expected = bragg(c, order) - bragg(5.185, order)
    here = peak(curve, bragg(c, order) - 0.1, bragg(c, order) + 0.1)
    gan = bragg(5.185, order)
    assert here - peak(curve, gan - 0.1, gan + 0.1) == pytest.approx(expected, abs=0.003)


def test_numbers_calculated_manually() -> None:
    # In0.10Ga0.90N on GaN, docs/physics.md: eps_xx = -0.0108868, eps_zz = 0.0057346; c = 5.237 (1.0057346) = 5.26703,
    # so 2theta = 2 asin(1.540593 / 5.26703) = 34.0151 deg. AlN without strain: 2 asin(1.540593 / 4.982) = 36.0259 deg.
    table = grown((20.0, {"x_in": 0.1}), (20.0, {"x_al": 1.0, "relaxation": 1.0})).xrd().peaks
    assert table is not None
    found = dict(zip(table.label, table.two_theta))
    assert found["InGaN"] == pytest.approx(34.0151, abs=2e-4)
    assert found["AlGaN"] == pytest.approx(36.0259, abs=2e-4)


def test_the_period_from_the_satellites() -> None:
    # 7 nm and 3 nm, so 0.87 deg between satellites: 2theta of the first one below the zeroth is near 33.4 deg.
    curve = SUPERLATTICE.xrd(resolution=0, polarization="S", two_theta=(32.0, 34.8))
    q = [4 * math.pi / CU * math.sin(math.radians(peak(curve, low, low + 0.6)) / 2) for low in (33.1, 32.2)]
    assert 2 * math.pi / (q[0] - q[1]) / 10 == pytest.approx(10.0, rel=0.005)
    assert curve.peaks is not None
    satellites = curve.peaks[curve.peaks.kind == "satellite"].set_index("label").two_theta
    assert [satellites["SL-1"], satellites["SL-2"]] == pytest.approx(
        [2 * math.degrees(math.asin(CU * q / (4 * math.pi))) for q in q], abs=0.02
    )


def test_the_zeroth_satellite_has_the_mean_composition() -> None:
    # 3 nm of 10 nm with 0.15 are 0.045 on average.
    curve = SUPERLATTICE.xrd(resolution=0, polarization="S", two_theta=(34.1, 34.6))
    _, c, *_ = strained(x_in=0.045)
    place = peak(curve, bragg(c) - 0.1, bragg(c) + 0.1) - (peak(curve, 34.5, 34.6) - bragg(5.185))
    c_found = 2 * CU / (2 * math.sin(math.radians(place) / 2))
    c_more = strained(x_in=0.055)[1]
    assert 0.01 * (c_found - c) / (c_more - c) == pytest.approx(0.0, abs=0.002)
    assert curve.peaks is not None
    assert curve.peaks.set_index("label").two_theta["SL0"] == pytest.approx(bragg(c), abs=0.001)


def test_fringes_have_the_thickness_of_the_film() -> None:
    curve = grown((80.0, {"x_al": 0.3})).xrd(resolution=0, points=4001, two_theta=(35.2, 37.0))
    _, c, *_ = strained(x_al=0.3)
    q = 4 * math.pi / CU * np.sin(np.radians(curve.x / 2))
    far = q > 4 * math.pi / c + 2 * math.pi / 800 * 2.5
    minima = q[1:-1][(curve.y[1:-1] < curve.y[:-2]) & (curve.y[1:-1] < curve.y[2:]) & far[1:-1]]
    assert len(minima) > 5
    assert 2 * math.pi / np.diff(minima).mean() / 10 == pytest.approx(80.0, rel=0.005)


# ---- intensities


def test_a_thick_crystal_reflects_almost_all_over_the_darwin_width() -> None:
    # FWHM of a perfect crystal without absorption: 3 sqrt(2) / 4 of 2 |chi_h| / sin 2theta, with chi_h = r_e lambda^2
    # F / (pi V). F(002) = 2 |f_Ga + i f_N| with 24.5 and 4.9 at sin(theta) / lambda = 0.193 / angstrom
    # (International Tables for Crystallography C, section 6.1.1): 50.0. Absorption narrows it by a few per cent.
    curve = grown().xrd(resolution=0, polarization="S", two_theta=(34.5, 34.65), points=3001)
    volume = math.sqrt(3) / 2 * 3.189**2 * 5.185
    chi = R_E * CU**2 * 50.0 / (math.pi * volume)
    expected = 3 / math.sqrt(8) * 2 * chi / math.sin(math.radians(34.57))  # of omega
    above = curve.table["omega"][curve.y > curve.y.max() / 2]
    assert math.radians(above.max() - above.min()) == pytest.approx(expected, rel=0.1)
    assert 0.85 < curve.y.max() < 1.0


def test_a_thin_film_has_the_kinematical_intensity() -> None:
    # Integrated over omega: (r_e lambda F / V)^2 lambda t / sin(2 theta) / sin(theta), in the limit of a thin film;
    # B. E. Warren, X-ray Diffraction (1969), chapter 4. Relaxed AlN on a substrate that does not scatter, far below
    # extinction; F(002) = 2 |f_Al + i f_N| with 9.0 and 4.9: 20.5.
    run = grown((30.0, {"x_al": 1.0, "relaxation": 1.0}), template=0.5)
    curve = run.xrd(reference="AlGaN", template="finite", resolution=0, polarization="S", two_theta=(35.0, 37.05))
    volume = math.sqrt(3) / 2 * 3.112**2 * 4.982
    theta = math.radians(bragg(4.982) / 2)
    expected = (R_E * CU * 20.5 / volume) ** 2 * CU * 300 / (math.sin(2 * theta) * math.sin(theta))
    found = np.trapz(curve.y, np.radians(curve.table["omega"]))
    assert found == pytest.approx(expected, rel=0.1)


def test_the_curve_is_that_of_takagi_and_taupins_equations() -> None:
    # dX/dz = i k / (2 sin theta) (chi_h (1 + X^2) + (2 chi_0 - alpha) X), integrated numerically from the bottom up.
    # The deviation alpha is exact in qz, which makes the equations right far from a peak.
    run = grown((100.0, {"x_in": 0.15}), (50.0, {}))
    curve = run.xrd(resolution=0, polarization="S", two_theta=(31.0, 36.6), points=29)
    chis = {0.0: (-3.424e-5 + 7.60e-7j, -2.2705e-5 + 7.43e-7j)}  # of GaN at 8048 eV: 92.4 and 50 electrons per cell
    chis[0.15] = chis_of(0.15)
    blocks = [(0.0, 5.185, None), (0.15, strained(x_in=0.15)[1], 1000.0), (0.0, 5.185, 500.0)]
    wavenumber = 2 * math.pi / CU
    logs = []
    for omega, value in zip(np.radians(curve.table["omega"]), curve.y):
        sine, x = math.sin(omega), 0j
        for x_in, c, thickness in blocks:
            chi_0, chi_h = chis[x_in]
            rate = 1j * wavenumber / (2 * sine)
            middle = 2 * chi_0 - 2 * sine * (4 * math.pi / c - 2 * wavenumber * sine) / wavenumber
            if thickness is None:
                x = min(np.roots([chi_h, middle, chi_h]), key=abs)
                continue

            def change(_: float, y: Any, rate: complex = rate, middle: complex = middle, chi_h: complex = chi_h) -> Any:
                return rate * (chi_h * (1 + y * y) + middle * y)

            x = solve_ivp(change, (0, thickness), [x + 0j], rtol=1e-6, atol=1e-12).y[0, -1]
        logs.append(math.log10(value / abs(x) ** 2))
    assert np.abs(logs).max() < 0.02


def chis_of(x_in: float) -> tuple[complex, complex]:
    """chi_0 and chi_h of coherent InGaN for 002, from atomic scattering factors."""
    import xrayutilities
    from xrayutilities.materials import elements

    a, c, *_ = strained(x_in=x_in)
    energy = xrayutilities.lam2en(CU)
    found = []
    for q in (0.0, 4 * math.pi / c):
        metal = x_in * elements.In.f(q, energy) + (1 - x_in) * elements.Ga.f(q, energy)
        nitrogen = elements.N.f(q, energy) * np.exp(1j * q * 0.375 * c)
        real = abs(metal.real + nitrogen.real) if q == 0 else math.hypot(metal.real, elements.N.f(q, energy).real)
        imaginary = abs(metal.imag + elements.N.f(q, energy).imag * (1 if q == 0 else 1j))
        scale = R_E * CU**2 / (math.pi * math.sqrt(3) / 2 * a * a * c)
        found.append(2 * scale * complex(-real, imaginary))
    return found[0], found[1]


# ---- slices


GRADED = [row(time=t, z=2000 + z, x_in=x, x_ga=1 - x, a_eff_z=3.189, eps_xx_z=strained(x)[2], eps_zz_z=strained(x)[3])
          for t, z, x in ((1, 0, 0.0), (11, 40, 0.2), (21, 50, 0.0))]


def test_the_curve_of_a_graded_layer_converges() -> None:
    # 40 nm from 0 to 0.2 and 10 nm back, with finer and finer blocks. Compared are decades: 0.01 is 2 % of intensity.
    below = [row(False, time=t, z=z, x_ga=1.0, a_eff_z=3.189) for t, z in ((0, 0), (1, 2000))]
    run = vorlen.Run(result([("template", 1, 2000), ("up", 10, 40), ("down", 10, 10)], [*below, *GRADED]).encode())

    def curve(phase: float, change: float = LARGEST_CHANGE) -> Any:
        arguments: dict[str, Any] = dict(
            hkl=(0, 0, 2), energy="CuKa1", two_theta=(32.0, 36.0), points=401, resolution=12, background=0.0,
            reference=None, template="infinite", geometry="grazing exit", polarization="S", monochromator=1,
        )
        stack = run._stack._replace(slices=slices_of(run.profile, run.layers, change))
        return np.log10(xrd_curve(stack, **arguments, phase=phase).y)

    fine = curve(PHASE / 16, LARGEST_CHANGE / 5)
    errors = [np.abs(curve(phase) - fine).mean() for phase in (16 * PHASE, 4 * PHASE, PHASE)]
    assert errors[0] > errors[1] > errors[2] and errors[2] < 0.01 < errors[1]
    assert np.abs(curve(PHASE) - fine).max() < 0.05  # in a minimum


def test_layers_of_one_composition_are_one_block() -> None:
    blocks = blocks_of(grown((5.0, {}), (5.0, {}))._stack.slices, given_reflection((0, 0, 2)))
    assert blocks.thickness.tolist() == pytest.approx([20100.0]) and blocks.c.tolist() == pytest.approx([5.185])


def test_too_many_slices_are_an_error(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("vorlen._observe.xrd.BLOCKS_MAX", 3)
    with pytest.raises(ValueError, match="needs 4 slices, more than the 3 possible"):
        grown((5.0, {"x_in": 0.2}), (5.0, {}), (5.0, {"x_in": 0.2})).xrd()


# ---- the template


def test_a_finite_template_shows_the_layers_below_it() -> None:
    # AlN below GaN: its peak at 36.03 deg is in the curve of finite layers only.
    rows = [row(False, time=t, z=z, x_al=1.0, a_eff_z=3.112) for t, z in ((0, 0), (1, 50))]
    rows += [row(False, time=t, z=z, x_ga=1.0, a_eff_z=3.189) for t, z in ((1, 50), (2, 850))]
    run = vorlen.Run(result([("AlN", 1, 50), ("GaN", 1, 800)], rows).encode())
    infinite, finite = (run.xrd(template=template, two_theta=(34.0, 37.0)) for template in ("infinite", "finite"))
    near = (finite.x > 35.9) & (finite.x < 36.15)
    assert finite.y[near].max() > 100 * infinite.y[near].max()
    assert infinite.notes[1] == "layer 2 (GaN) is infinitely thick; 50 nm below it are left out"
    assert finite.notes[1] == "what is below the first layer does not scatter"
    assert list(infinite.peaks.label) == ["GaN"] and list(finite.peaks.label) == ["GaN", "AlN"]  # type: ignore


def test_what_is_below_a_finite_film_has_no_peak_itself() -> None:
    # 200 nm of GaN with fringes that are smoothed away: the curve rises to the peak and falls from there.
    curve = grown(template=200.0).xrd(template="finite", two_theta=(33.0, 36.0), resolution=300)
    assert (np.diff(np.sign(np.diff(np.log(curve.y[::100])))) != 0).sum() == 1


def test_the_default_reference_is_the_template() -> None:
    assert grown((3000.0, {"x_in": 0.05})).xrd(points=2).settings["reference"] == 1
    assert grown((3000.0, {}), (5.0, {"x_in": 0.1}), template=25.0).xrd(points=2).settings["reference"] == 2
    run = grown((10.0, {}), (10.0, {"x_in": 0.1}))
    assert run.xrd(points=2, reference="InGaN").settings["reference"] == 3
    assert run.xrd(points=2, reference=2).settings["reference"] == 2


# ---- planes that are inclined to the surface


@pytest.mark.parametrize("geometry", ["grazing exit", "grazing incidence"])
def test_the_angles_of_105(geometry: str) -> None:
    # d(105) = 1 / sqrt(4/3 / a^2 + 25 / c^2) = 0.97085 angstrom, theta = 52.51 deg; inclination of the planes
    # atan(2 / sqrt(3) c / (5 a)) = 20.58 deg; omega is theta plus it at grazing exit, minus it at grazing incidence.
    curve = grown().xrd((1, 0, 5), geometry=geometry, polarization="S")
    spacing = 1 / math.sqrt(4 / 3 / 3.189**2 + 25 / 5.185**2)
    theta = math.degrees(math.asin(CU / 2 / spacing))
    inclination = math.degrees(math.atan(2 / math.sqrt(3) * 5.185 / (5 * 3.189)))
    assert (theta, inclination) == pytest.approx((52.51, 20.58), abs=0.01)
    place = curve.table.iloc[curve.y.argmax()]
    sign = 1 if geometry == "grazing exit" else -1
    assert place["two_theta"] == pytest.approx(2 * theta, abs=0.02)
    assert place["omega"] == pytest.approx(theta + sign * inclination, abs=0.02)


@pytest.mark.parametrize("relaxation", [0.0, 1.0])
def test_a_relaxed_layer_has_its_inclined_peak_at_its_own_angle(relaxation: float) -> None:
    run = grown((300.0, {"x_in": 0.1, "relaxation": relaxation}))
    curve = run.xrd((1, 0, 5), polarization="S", resolution=0)
    a, c, *_ = strained(0.1, relaxation=relaxation)
    theta = math.degrees(math.asin(CU / 2 * math.sqrt(4 / 3 / a**2 + 25 / c**2)))
    omega = theta + math.degrees(math.atan(2 / math.sqrt(3) * c / (5 * a)))
    near = curve.table[(curve.table["omega"] - omega).abs() < 0.2]
    assert near["omega"][near["intensity"].idxmax()] == pytest.approx(omega, abs=0.02)


@pytest.mark.parametrize(("hkl", "energy"), [((1, 0, 3), "CuKa1"), ((1, 0, 5), "MoKa1"), ((1, 1, 6), "MoKa1")])
@pytest.mark.filterwarnings("error")
def test_flat_beams_are_computed_or_rejected(hkl: tuple[int, ...], energy: str) -> None:
    # A relaxed layer, whose beams are flatter than those of the template; 103 has 1.3 deg of incidence.
    run = grown((300.0, {"x_al": 0.5, "relaxation": 1.0}), (5.0, {"x_in": 0.3}))
    for geometry in ("grazing incidence", "grazing exit"):
        try:
            curve = run.xrd(hkl, energy, geometry=geometry, polarization="S", points=101)
        except ValueError as error:
            assert f"{''.join(map(str, hkl))} can't be reached from the surface" in str(error)
        else:
            assert np.isfinite(curve.y).all() and 0.0 < curve.y.max() < 1.0
            exits = curve.x - curve.table["omega"]
            assert min(curve.table["omega"].min(), exits.min()) >= 0.6


def test_a_failure_of_xrayutilities_is_explained(monkeypatch: pytest.MonkeyPatch) -> None:
    from xrayutilities.simpack import DynamicalModel

    def failing(*_: Any, **__: Any) -> None:
        raise ValueError("cannot reshape array")

    monkeypatch.setattr(DynamicalModel, "simulate", failing)
    with pytest.raises(ValueError, match="002 can't be computed with omega from 16..* deg: a beam is too close"):
        grown().xrd()


def test_four_indices_are_the_same_as_three() -> None:
    first, second = (grown((10.0, {"x_in": 0.1})).xrd(hkl, points=21) for hkl in ((1, 0, 5), (1, 0, -1, 5)))
    assert first.y.tolist() == second.y.tolist() and second.settings["hkl"] == (1, 0, 5)


# ---- arguments


def test_the_settings_repeat_the_curve() -> None:
    run = grown((10.0, {"x_in": 0.1}))
    first = run.xrd(points=101, resolution="0.01 deg", background=1e-6, monochromator=0.5)
    assert run.xrd(**first.settings).y.tolist() == pytest.approx(first.y.tolist(), rel=1e-5)  # rounding of angles
    assert first.settings["resolution"] == pytest.approx(36.0)


def test_the_curve_at_given_angles() -> None:
    run = grown((10.0, {"x_in": 0.1}))
    angles = [34.0, 34.1, 34.5, 34.9]
    found = run.xrd(two_theta=angles, resolution=60)
    whole = run.xrd(two_theta=(34.0, 34.9), points=9001, resolution=60)
    assert found.x.tolist() == angles and found.table["omega"].tolist() == pytest.approx([17, 17.05, 17.25, 17.45])
    assert np.log(found.y) == pytest.approx(np.log(np.interp(angles, whole.x, whole.y)), abs=0.02)


def test_energies() -> None:
    run = grown()
    found = [run.xrd(energy=energy, points=3) for energy in ("CuKa1", 8047.8231, " 8047.8231", "8.0478231 keV", "1.540593 angstrom")]
    assert [curve.settings["energy"] for curve in found] == pytest.approx([8047.823] * 5, abs=0.02)
    molybdenum = run.xrd(energy="MoKa1", polarization="S")
    assert peak(molybdenum, 15.6, 15.9) == pytest.approx(bragg(5.185, 2, 0.709319), abs=0.005)


def test_resolution_keeps_the_area_and_widens_the_peak() -> None:
    sharp, wide = (grown().xrd(resolution=width, two_theta=(34.2, 34.9), points=4001) for width in (0, 100))
    assert np.trapz(wide.y, wide.x) == pytest.approx(np.trapz(sharp.y, sharp.x), rel=0.01)
    above = wide.table["omega"][wide.y > wide.y.max() / 2]
    assert (above.max() - above.min()) * 3600 == pytest.approx(math.hypot(100, 17), rel=0.05)


def test_the_background_is_added() -> None:
    plain, raised = (grown().xrd(points=101, background=value) for value in (0.0, 1e-3))
    assert raised.y - plain.y == pytest.approx(1e-3, rel=1e-9)


def test_polarizations_are_averaged() -> None:
    # P is weaker by cos(2 theta) in amplitude; far from the peaks |cos 34.57 deg|^2 = 0.678 in intensity.
    run = grown((20.0, {"x_in": 0.1}))
    s, p, both, filtered = (
        run.xrd(two_theta=(33.0, 34.2), points=50, resolution=0, polarization=kind, monochromator=factor).y
        for kind, factor in (("S", 1), ("P", 1), ("both", 1), ("both", 0.5))
    )
    assert both == pytest.approx((s + p) / 2, rel=1e-6) and filtered == pytest.approx((s + 0.5 * p) / 1.5, rel=1e-6)
    assert np.median(p / s) == pytest.approx(math.cos(math.radians(33.6)) ** 2, rel=0.02)


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ({"hkl": (0, 0, 1)}, ValueError, "001 is forbidden in wurtzite crystals"),
        ({"hkl": (1, 1, 3)}, ValueError, "113 is forbidden"),
        ({"hkl": (1, 0, 0)}, ValueError, "l must be positive"),
        ({"hkl": (0, 0, -2)}, ValueError, "l must be positive"),
        ({"hkl": (1, 0, 1, 5)}, ValueError, "the third of four indices must be"),
        ({"hkl": "002"}, TypeError, "hkl must be three integers"),
        ({"hkl": (0, 0, 2.0)}, TypeError, "hkl must be three integers"),
        ({"hkl": (0, 2)}, TypeError, "hkl must be three integers"),
        ({"hkl": 2}, TypeError, "hkl must be three integers"),
        ({"hkl": (0, 0, 8)}, ValueError, "008 can't be reached with 1.541 angstrom: the distance of its planes, 0.6"),
        ({"hkl": (1, 0, 1)}, ValueError, "can't be reached from the surface"),
        ({"energy": "CuKa"}, ValueError, "energy must be one of CuKa1, "),
        ({"energy": "3 nm/s"}, ValueError, "or the name of a line, got '3 nm/s'"),
        ({"energy": "1.54 A"}, ValueError, "got '1.54 A'; A is ampere, 0.1 nm are \"angstrom\""),
        ({"energy": "1.54A"}, ValueError, "A is ampere"),
        ({"energy": ""}, ValueError, "energy takes a number"),
        ({"energy": 8.05}, ValueError, "energy must be 1 to 100 keV"),
        ({"energy": "0 angstrom"}, ValueError, "energy must be 1 to 100 keV"),
        ({"energy": None}, TypeError, "energy takes a number"),
        ({"two_theta": "34"}, TypeError, "two_theta must be a pair"),
        ({"two_theta": (35, 34)}, ValueError, "in ascending order"),
        ({"two_theta": (34,)}, ValueError, "two or more angles"),
        ({"two_theta": (0, 34)}, ValueError, "out of reach"),
        ({"two_theta": (34, 180)}, ValueError, "out of reach"),
        ({"hkl": (1, 0, 5), "two_theta": (20, 104)}, ValueError, "out of reach"),
        ({"points": 1}, ValueError, "points must be 2 to 100000"),
        ({"points": 100.0}, TypeError, "points must be an integer"),
        ({"points": True}, TypeError, "points must be an integer"),
        ({"resolution": -1}, ValueError, "resolution must be 0 arcsec or more"),
        ({"resolution": "1 nm"}, ValueError, "resolution"),
        ({"background": -1e-6}, ValueError, "background must be 0 or more"),
        ({"monochromator": 1.5}, ValueError, "monochromator must be a number from 0 to 1"),
        ({"reference": "sapphire"}, ValueError, "no layer is named 'sapphire'; there are template, InGaN"),
        ({"reference": 3}, ValueError, "reference must be a layer from 1 to 2, got 3"),
        ({"reference": 1.0}, TypeError, "reference must be the number or the name"),
        ({"template": "thick"}, ValueError, "template must be one of 'infinite', 'finite'"),
        ({"geometry": "steep"}, ValueError, "geometry must be one of"),
        ({"polarization": "s"}, ValueError, "polarization must be one of"),
    ],
    ids=lambda value: str(value) if isinstance(value, dict) else "",
)
def test_wrong_arguments(arguments: dict[str, Any], error: type[Exception], text: str) -> None:
    with pytest.raises(error) as caught:
        grown((10.0, {"x_in": 0.1})).xrd(**arguments)
    assert text in str(caught.value)


def test_nothing_grown_and_a_failed_run_are_errors() -> None:
    rows = [row(time=t, z=0.0, x_ga=1.0, a_eff_z=3.189) for t in (0.0, 10.0)]
    with pytest.raises(ValueError, match="nothing has grown"):
        vorlen.Run(result([("pause", 10, 0)], rows).encode()).xrd()
    run = failed_run(failing_recipe())
    for method in (run.xrd, run.reciprocal_space, run.plot_reciprocal_space):
        with pytest.raises(ValueError, match="the run failed, so its structure is not complete: "):
            method()
    early = vorlen.Run(result([("GaN", 20, 0)], [row(time=t, z=t, x_ga=1.0, a_eff_z=3.189) for t in (0, 10)]).encode())
    with pytest.raises(ValueError, match="its table ends early"):
        early.xrd()


def test_a_reference_that_evaporated_is_an_error() -> None:
    rows = [row(time=t, z=z, x_ga=1.0, a_eff_z=3.189) for t, z in ((0, 0), (1, 10), (2, 12), (3, 9))]
    run = vorlen.Run(result([("GaN", 1, 10), ("lost", 1, 2), ("pause", 1, -3)], rows).encode())
    with pytest.raises(ValueError, match=r"reference: nothing is left of layer 2 \(lost\)"):
        run.xrd(reference="lost")
    assert run.xrd(points=2).settings["reference"] == 1


def test_a_missing_package_is_named() -> None:
    program = """
import sys
sys.modules["xrayutilities"] = None
import vorlen
from test_xrd_support import RUN
try:
    RUN.xrd()
except ImportError as error:
    print(error)
"""
    program = program.replace("from test_xrd_support import RUN\n", f"RUN = vorlen.Run({grown().content!r})\n")
    done = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True, check=True,
                          cwd=Path(vorlen.__file__).parents[1])
    assert done.stdout == (
        "diffraction curves need xrayutilities: install python3-xrayutilities (Debian) or xrayutilities (pip)\n"
    )


def test_the_files_of_the_run_are_not_replaced(tmp_path: Path) -> None:
    path = tmp_path / "run.txt"
    path.write_bytes(grown().content)
    curve = vorlen.read(path).xrd(points=3)
    with pytest.raises(ValueError, match="which is an input"):
        curve.to_csv(path)
    curve.plot(tmp_path / "curve.svg")
    assert "template" in (tmp_path / "curve.svg").read_text()
