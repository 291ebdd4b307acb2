"""Run.reflectance(): against thin-film optics in closed form, an independent matrix method, and published indices."""

from __future__ import annotations

import math
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import EXAMPLES, failed_run, failing_recipe, result, row
from vorlen._observe.growth import growth_of, points_of
from vorlen._observe.optics import nitride_index, substrate_index
from vorlen._observe.reflectance import reflectance, stacks

GAN, ALN = {"x_ga": 1.0}, {"x_al": 1.0}
ROOM = np.array([300.0])


def run_of(rows: list[str]) -> vorlen.Run:
    return vorlen.Run(result([("layer", 1.0, 1.0)], rows).encode())


def layers_of(*layers: tuple[float, dict[str, float]]) -> vorlen.Run:
    """A run of layers, each with its thickness in nm and its composition, 1 s each."""
    rows, z = [], 0.0
    for second, (thickness, values) in enumerate(layers):
        rows += [row(time=second, z=z, **values), row(time=second + 1, z=z + thickness, **values)]
        z += thickness
    return run_of(rows)


def test_a_pre_stage_as_thick_as_a_wafer_is_the_substrate() -> None:
    """A layer on 300 um of GaN, without the fringes of such a plate on sapphire."""
    low, high = {"x_al": 0.5, "x_ga": 0.5}, 300e3
    rows = [row(False, time=0, z=0, x_ga=1.0), row(False, time=5, z=high, x_ga=1.0)]
    rows += [row(time=5, z=high, **low), row(time=6, z=high + 100, **low)]
    run = vorlen.Run(result([("wafer", 5, high), ("film", 1, 100)], rows).encode())
    curve = run.reflectance("633 nm", temperature=300)
    assert curve.y[0] == pytest.approx(fresnel(index_of({"x_ga": 1.0}, 633.0)), rel=1e-12)
    expected = run_of([row(time=0, z=0, **low), row(time=1, z=100, **low)]).reflectance("633 nm", substrate="GaN", temperature=300)
    assert curve.y == pytest.approx(expected.y, rel=1e-12)
    assert curve.settings["substrate"] == "GaN" and "The first pre-stage is the substrate: 300 um of GaN." in curve.notes


def index_of(values: dict[str, float], wavelength: float, temperature: float = 300.0) -> complex:
    x = np.array([[values.get(name, 0.0) for name in ("x_in", "x_ga", "x_al")]])
    return complex(nitride_index(x, wavelength, np.array([temperature]))[0, 0])


def fresnel(index: complex) -> float:
    return abs((1 - index) / (1 + index)) ** 2


def characteristic(layers: list[tuple[complex, float]], substrate: complex, wavelength: float) -> float:
    """Reflectance by the characteristic matrices of Abeles, layers from the bottom up: index, thickness."""
    field = np.array([1.0, substrate])
    for index, thickness in layers:
        phase = 2 * np.pi * np.conj(index) * thickness / wavelength
        n = np.conj(index)  # n - ik in this form
        field = np.array([[np.cos(phase), 1j * np.sin(phase) / n], [1j * n * np.sin(phase), np.cos(phase)]]) @ field
    return float(abs((field[0] - field[1]) / (field[0] + field[1])) ** 2)


@pytest.mark.parametrize(
    ("name", "wavelength", "n", "k"),
    [
        ("sapphire", 589.3, 1.768, 0.0),  # Malitson and Dodge (1972)
        ("4H-SiC", 633, 2.633, 0.0),  # Wang et al. (2013)
        ("6H-SiC", 589, 2.652, 0.0),  # Shaffer (1971)
        ("Si(111)", 632.8, 3.88, 0.02),  # Aspnes and Studna (1983)
        ("Si(111)", 405, 5.43, 0.34),
    ],
)
def test_substrates_have_published_indices_and_a_bare_one_reflects_as_fresnel_says(
    name: str, wavelength: float, n: float, k: float
) -> None:
    index = substrate_index(name, wavelength, ROOM)[0]
    assert index.real == pytest.approx(n, abs=0.01) and index.imag == pytest.approx(k, abs=0.01)
    curve = layers_of((0.0, GAN)).reflectance(wavelength, substrate=name)
    expected = ((n - 1) ** 2 + k**2) / ((n + 1) ** 2 + k**2)
    assert curve.y == pytest.approx(expected, abs=0.002)
    assert curve.kind == "reflectance" and list(curve.table) == ["time", "reflectance"]
    assert curve.table.attrs["units"] == {"time": "s", "reflectance": "1"}
    assert curve.settings == {
        "wavelength": wavelength, "substrate": name, "thickness": 430, "back": "rough", "span": "active",
    }  # fmt: skip


@pytest.mark.parametrize("wavelength", [400, 450, 550, 633, 800, 950])
def test_gan_and_aln_follow_their_sellmeier_formulas(wavelength: float) -> None:
    """GaN: A. S. Barker, M. Ilegems (1973); AlN: J. Pastrnak, L. Roskovcova (1966); wavelengths in um."""
    square = (wavelength / 1000) ** 2
    gan = math.sqrt(3.60 + 1.75 * square / (square - 0.256**2) + 4.1 * square / (square - 17.86**2))
    aln = math.sqrt(3.1399 + 1.3786 * square / (square - 0.1715**2) + 3.861 * square / (square - 15.03**2))
    assert index_of(GAN, wavelength) == pytest.approx(gan, rel=0.007)
    assert index_of(ALN, wavelength) == pytest.approx(aln, rel=0.001)


def test_absorption_starts_at_the_gap() -> None:
    """GaN is transparent at 405 nm at 300 K; at 1300 K its gap is at 2.79 eV by Varshni's formula, below 3.06 eV."""
    assert index_of(GAN, 405).imag == 0.0 and index_of(GAN, 440, 1300).imag > 0.0 == index_of(GAN, 450, 1300).imag
    # 0.36 eV above the gap the absorption is about 1.2e5 1/cm: J. F. Muth et al., Appl. Phys. Lett. 71, 2572 (1997)
    k = nitride_index(np.array([[0.0, 1.0, 0.0]]), 1239.842 / 3.8, ROOM)[0, 0].imag
    assert 0.8e5 < 4 * math.pi * k / (1239.842 / 3.8 * 1e-7) < 3e5
    assert index_of({"x_in": 0.2, "x_ga": 0.8}, 405).imag > 0.0 == index_of(ALN, 350, 1300).imag


@pytest.mark.parametrize("substrate", ["sapphire", "6H-SiC", "Si(111)"])
def test_a_quarter_wave_and_a_half_wave_film(substrate: str) -> None:
    n, base = index_of(GAN, 633).real, substrate_index(substrate, 633, ROOM)[0]
    quarter, half = 633 / (4 * n), 633 / (2 * n)
    curve = layers_of((quarter, GAN)).reflectance(633, substrate=substrate)
    assert curve.y[0] == pytest.approx(fresnel(base), rel=1e-12)
    assert curve.y[-1] == pytest.approx(fresnel(n**2 / base), rel=1e-12)
    assert layers_of((half, GAN)).reflectance(633, substrate=substrate).y[-1] == pytest.approx(fresnel(base), rel=1e-9)


def test_layers_and_absorption_agree_with_characteristic_matrices() -> None:
    layers = [(300.0, GAN), (37.0, ALN), (55.0, {"x_in": 0.2, "x_ga": 0.8})]
    layers += [(21.0, {"x_in": 0.18, "x_al": 0.82}), (40.0, GAN)]
    for temperature, wavelength in ((300, 405), (1100, 405), (1300, 520)):
        for substrate in ("sapphire", "Si(111)", "GaN"):
            curve = layers_of(*layers).reflectance(wavelength, substrate=substrate, temperature=temperature)
            stack = [(index_of(values, wavelength, temperature), thickness) for thickness, values in layers]
            base = np.conj(substrate_index(substrate, wavelength, np.array([float(temperature)]))[0])
            assert curve.y[-1] == pytest.approx(characteristic(stack, base, wavelength), rel=1e-9)


def test_light_is_neither_lost_nor_created_in_transparent_films() -> None:
    rng = np.random.default_rng(3)
    layers = [(thickness, {"x_ga": 1 - x, "x_al": x}) for thickness, x in rng.uniform((5, 0), (150, 1), (20, 2))]
    points = points_of(layers_of(*layers).profile, None)
    base = substrate_index("sapphire", 633, ROOM)
    stack = stacks(growth_of(points), 633.0, ROOM, np.full(len(points.time), 300.0), base)
    passed = base[0].real * np.abs(stack.t) ** 2
    assert np.abs(np.abs(stack.r) ** 2 + passed - 1).max() < 1e-12
    assert np.abs(np.abs(stack.s) ** 2 + passed - 1).max() < 1e-12
    assert np.ptp(passed) > 0.1
    absorbing = points_of(layers_of((50.0, {"x_in": 0.3, "x_ga": 0.7})).profile, None)
    stack = stacks(growth_of(absorbing), 405.0, ROOM, np.full(2, 300.0), base)
    assert (np.abs(stack.r) ** 2 + base[0].real * np.abs(stack.t) ** 2)[-1] < 0.95


def test_a_polished_back_adds_its_reflection_without_interference() -> None:
    """Two surfaces of equal reflectance R: 2R/(1 + R). Silicon lets no light of 405 nm through."""
    run = layers_of((0.0, GAN))
    front = run.reflectance(633).y[0]
    assert run.reflectance(633, back="polished").y[0] == pytest.approx(2 * front / (1 + front), rel=1e-12)
    silicon = [run.reflectance(405, substrate="Si", back=back).y[0] for back in ("rough", "polished")]
    assert silicon[0] == silicon[1]
    # GaN at 1300 K absorbs blue light within 1 um, and nothing of 633 nm
    gan = [run.reflectance(light, substrate="GaN", back="polished", temperature=1300).y[0] for light in (405, 633)]
    assert gan[0] == pytest.approx(fresnel(index_of(GAN, 405, 1300)), rel=1e-12)
    one = fresnel(index_of(GAN, 633, 1300))
    assert gan[1] == pytest.approx(2 * one / (1 + one), rel=1e-12)


def test_a_bragg_mirror_reaches_the_reflectance_of_the_formula() -> None:
    """R = ((1 - Y)/(1 + Y))^2, Y = n_s (n_H/n_L)^(2N) for N pairs of quarter waves: Born and Wolf, section 1.6.5."""
    high, low = index_of(GAN, 450).real, index_of(ALN, 450).real
    base = substrate_index("sapphire", 450, ROOM)[0].real
    pairs = 15
    layers = [(450 / (4 * low), ALN), (450 / (4 * high), GAN)] * pairs
    contrast = (high / low) ** (2 * pairs)
    for below, admittance in (([], base * contrast), ([(450 / (4 * high), GAN)], high**2 / base * contrast)):
        curve = layers_of(*below, *layers).reflectance(450, temperature=300)
        assert curve.y[-1] == pytest.approx(((1 - admittance) / (1 + admittance)) ** 2, rel=1e-9)
        assert curve.y[-1] > 0.9


def test_the_growth_rate_follows_from_the_period_of_the_fringes() -> None:
    """One period is wavelength/(2n) of growth: from the times of the minima in the longest stage."""
    run = vorlen.run(next(path for path in EXAMPLES if path.stem == "gan_thick_ccs"))
    stage = run.layers.loc[4]
    curve = run.reflectance("633 nm")
    inside = (curve.x > stage["begin"]) & (curve.x < stage["end"])
    time, y = curve.x[inside], curve.y[inside]
    low = np.flatnonzero((y[1:-1] < y[:-2]) & (y[1:-1] < y[2:])) + 1
    minima = []
    for point in low:  # the vertex of a parabola
        a, b, _ = np.polyfit(time[point - 1 : point + 2] - time[point], y[point - 1 : point + 2], 2)
        minima.append(time[point] - b / (2 * a))
    n = index_of(GAN, 633, 1320).real
    assert len(minima) >= 2
    rate = (len(minima) - 1) * 633 / (2 * n) / (minima[-1] - minima[0])
    assert rate == pytest.approx(stage["mean_rate"], rel=0.01)


def test_absorbed_fringes_fade_into_the_reflectance_of_the_bulk() -> None:
    curve = layers_of((3000.0, GAN)).reflectance(405, temperature=1300)
    assert np.ptp(curve.y[: len(curve.y) // 20]) > 0.05
    assert curve.y[-1] == pytest.approx(fresnel(index_of(GAN, 405, 1300)), rel=1e-9)


def test_what_evaporates_no_longer_reflects() -> None:
    values = [(0, 0, GAN), (1, 200, GAN), (1, 200, ALN), (2, 260, ALN), (3, 120, GAN), (3, 120, ALN), (4, 150, ALN)]
    curve = run_of([row(time=t, z=z, **x) for t, z, x in values]).reflectance(633, temperature=300)
    assert curve.y[-1] == pytest.approx(layers_of((120, GAN), (30, ALN)).reflectance(633).y[-1], rel=1e-12)
    assert curve.y[curve.x == 3] == pytest.approx(layers_of((120, GAN)).reflectance(633).y[-1], rel=1e-12)
    bare = run_of([row(time=t, z=z, **x) for t, z, x in [*values[:4], (3, -50, ALN)]]).reflectance(633)
    assert bare.y[-1] == pytest.approx(bare.y[0], rel=1e-12)


def test_stacks_between_two_temperatures_are_close_to_those_at_the_temperature() -> None:
    """A ramp by 300 K on 3 um of GaN: the fringes of the ramp, at temperatures between those that are computed."""
    run = layers_of((3000.0, GAN))
    timeline = pd.DataFrame(
        [("active", 0.0, 1.0, 1300.0, 1300.0), ("active", 1.0, 2.0, 1300.0, 1000.0)],
        columns=["kind", "begin", "end", "T_begin", "T_end"],
    )
    profile = pd.concat([run.profile, run.profile.iloc[-1:].assign(time=2.0)], ignore_index=True)
    arguments = {"substrate": "sapphire", "thickness": 430, "back": "rough", "span": "active"}
    curve = reflectance(profile, timeline, "", wavelength=520, temperature=None, **arguments)
    ramp = curve.x > 1.0
    heat = 1300 - 300 * (curve.x[ramp] - 1.0)
    exact = [reflectance(profile, None, "", wavelength=520, temperature=t, **arguments).y[-1] for t in heat]
    assert np.ptp(exact) > 0.05 and np.abs(curve.y[ramp] - exact).max() < 0.002
    between = profile.assign(time=[0.0, 1.0, 1.995])
    late = reflectance(between, timeline, "", wavelength=520, temperature=None, **arguments)
    exact_late = reflectance(between, None, "", wavelength=520, temperature=1001.5, **arguments)
    assert late.y[-1] == pytest.approx(exact_late.y[-1], abs=0.002)


def test_pre_stages_belong_to_the_stack_and_all_shows_how_they_grow() -> None:
    rows = [row(False, time=0, z=0, **GAN), row(False, time=100, z=1000, **GAN)]
    rows += [row(time=100, z=1000, **ALN), row(time=110, z=1050, **ALN)]
    rows += [row(False, time=110, z=1050, **GAN), row(False, time=120, z=1100, **GAN)]
    run = vorlen.Run(result([("a", 100, 1000), ("b", 10, 50), ("c", 10, 50)], rows).encode())
    part, whole = run.reflectance(633), run.reflectance(633, span="all")
    assert part.x[[0, -1]].tolist() == [100, 110] and whole.x[[0, -1]].tolist() == [0, 120]
    assert part.y[-1] == pytest.approx(layers_of((1000, GAN), (50, ALN)).reflectance(633).y[-1], rel=1e-9)
    assert part.y[0] == pytest.approx(whole.y[whole.x == 100][0], rel=1e-9)
    periods = np.count_nonzero(np.diff(np.sign(np.diff(whole.y[whole.x <= 100]))) < 0)
    assert periods == pytest.approx(1000 / (633 / (2 * index_of(GAN, 633).real)), abs=1)


def test_without_the_recipe_indices_are_those_at_300_kelvin_with_a_note() -> None:
    run = layers_of((100.0, GAN))
    curve, known = run.reflectance(), run.reflectance(temperature="300 K")
    assert curve.y == pytest.approx(known.y, rel=1e-12)
    assert "temperature" in known.settings and "temperature" not in curve.settings
    assert any("300 K" in note for note in curve.notes) and not any("300 K" in note for note in known.notes)


def test_a_failed_run_gives_the_reflectance_up_to_its_end() -> None:
    run = failed_run(failing_recipe())
    curve = run.reflectance()
    assert curve.x[-1] == run.profile["time"].iloc[-1] and np.isfinite(curve.y).all()
    rows = [row(time=0, z=0, **GAN), row(time=1, z=9, **GAN), row(time=2, z=math.inf, **GAN)]
    assert run_of(rows).reflectance().x[-1] == 1
    for broken in ([], [row(time=math.nan, **GAN)]):
        with pytest.raises(ValueError, match="has no rows"):
            run_of(broken).reflectance()
    assert len(run_of(rows[:1]).reflectance().y) == 1


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ({"wavelength": "2 um"}, ValueError, "wavelength must be between 350 and 1000 nm, got 2 um"),
        ({"wavelength": -405}, ValueError, "wavelength must be between"),
        ({"wavelength": "3 eV"}, ValueError, "wavelength.*expected nm"),
        ({"wavelength": [405]}, TypeError, "wavelength"),
        ({"substrate": "4H SCi"}, ValueError, "did you mean"),
        ({"thickness": -1}, ValueError, "thickness must be from 10 um"),
        ({"back": "matt"}, ValueError, 'back must be "rough" or "polished"'),
        ({"temperature": -5}, ValueError, "temperature must be between 0 and 2000 K"),
        ({"temperature": "750 nm"}, ValueError, "temperature.*expected K"),
        ({"span": ""}, ValueError, "span"),
    ],
)
def test_nonsense_is_rejected(arguments: dict[str, object], error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text):
        layers_of((1.0, GAN)).reflectance(**arguments)  # type: ignore[arg-type]


def test_fractions_slightly_out_of_range_do_no_harm() -> None:
    """The continuous scheme writes tiny fractions of either sign."""
    values = {"x_in": -4e-17, "x_ga": 1.0, "x_al": 4e-17}
    assert layers_of((99.0, values)).reflectance().y == pytest.approx(layers_of((99.0, GAN)).reflectance().y, rel=1e-12)


def test_the_curve_does_not_replace_the_files_of_its_run(tmp_path: Path) -> None:
    path = tmp_path / "a.result.txt"
    path.write_text(result([("layer", 1.0, 1.0)], [row(time=t, z=t, **GAN) for t in (0, 1)]))
    with pytest.raises(ValueError):
        vorlen.read(path).reflectance().to_csv(path)
