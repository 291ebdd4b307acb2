"""Emission of wells: published gaps, levels with known solutions, fields, standard deviations, and the table of a run."""

from __future__ import annotations

import math
from typing import Any

import numpy as np
import pandas as pd
import pytest
from scipy.optimize import brentq
from scipy.special import ai_zeros

import vorlen
from support import MQW, ROOT, failed_run, failing_recipe, table_of
from vorlen._observe import emission
from vorlen._observe.bands import BANDS, CONSTANTS, ERRORS, PAIRS, SPONTANEOUS_BOWING, band_gap, edges_of
from vorlen._observe.emission import EMISSION_COLUMNS, Emitter, emission_table, settings_of
from vorlen._observe.quantum_well import KINETIC, lowest_state
from vorlen._observe.slices import Slices, alloy
from vorlen._runs.emitters import emitters_of

GAN = 3.189  # lattice constant of GaN, angstrom
Layer = tuple[float, float, float]  # thickness in nm, fractions of indium and aluminium


def stack(*layers: Layer, a: float = GAN) -> Slices:
    """Slices of layers on a lattice constant, free along c."""
    thickness, x_in, x_al = np.array(layers).T
    x = np.column_stack((x_in, 1.0 - x_in - x_al, x_al))
    bulk = alloy(x)
    eps_xx, top, none = a / bulk.a - 1.0, np.cumsum(thickness), np.zeros(len(x))
    eps_zz = -2.0 * bulk.C13 / bulk.C33 * eps_xx
    return Slices(top - thickness, top, x, np.full(len(x), a), eps_xx, eps_zz, none, none, np.arange(len(x)) + 1)


def wells_in(slices: Slices, *places: int) -> list[Emitter]:
    """The layers at these places as wells."""
    return [Emitter(place + 1, f"layer {place + 1}", slices.bottom[place], slices.top[place], True) for place in places]


def rows(slices: Slices, *places: int, **arguments: Any) -> pd.DataFrame:
    return emission_table(slices, wells_in(slices, *places), settings_of(**arguments))


def single(thickness: float = 3.0, x_in: float = 0.15, barrier: float = 50.0, **arguments: Any) -> pd.Series:
    """The row of one well in thick GaN."""
    return rows(stack((barrier, 0, 0), (thickness, x_in, 0), (barrier, 0, 0)), 1, **arguments).loc[1]


# ---- gaps


def test_gaps_of_the_nitrides_are_published_ones() -> None:
    # Vurgaftman and Meyer 2003: at 0 K as stated, at 300 K by their Varshni parameters
    x = np.eye(3)  # In, Ga, Al
    assert band_gap(*x, 0.0) == pytest.approx([0.78, 3.510, 6.25], abs=1e-12)
    assert band_gap(*x) == pytest.approx([0.756, 3.438, 6.158], abs=5e-4)
    # AlN: the exciton of the uppermost, crystal-field hole is near 6.04 eV at 10 K and bound with about 0.05 eV
    none = np.zeros(3)
    found = edges_of(x, none, none, 0.0)
    assert found.gap[1] == pytest.approx(3.51, abs=1e-9) and 6.05 < found.gap[2] < 6.13
    assert list(found.split > found.heavy) == [False, False, True]


def test_gaps_of_ingan_agree_with_an_independent_fit() -> None:
    # Wu et al., Appl. Phys. Lett. 80, 4741 (2002): 0.77 and 3.42 eV with a bowing of 1.43 eV, at 300 K
    x = np.linspace(0.0, 1.0, 21)
    published = 0.77 * x + 3.42 * (1 - x) - 1.43 * x * (1 - x)
    assert np.abs(band_gap(x, 1 - x, 0.0) - published).max() < 0.03


def test_bowing_lowers_the_gap_of_each_pair_by_a_quarter_in_the_middle() -> None:
    half = {"In": (0.5, 0.5, 0.0), "Al": (0.0, 0.5, 0.5)}
    for (one, other), bowing in zip(PAIRS, (1.4, 0.7, 2.5)):
        x = np.array(half[one] if other == "Ga" else (0.5, 0.0, 0.5))
        mean = x @ [0.78, 3.510, 6.25]
        assert band_gap(*x, 0.0) == pytest.approx(mean - bowing / 4)


def test_strain_shifts_the_gap_of_gan_as_measured() -> None:
    # Shikanai et al., J. Appl. Phys. 81, 417 (1997): the A exciton shifts by 15.4 eV times the strain along c
    strain = np.array([-1e-3, 0.0, 1e-3])
    along = -2 * 103 / 405 * strain
    gap = edges_of(np.tile([0.0, 1.0, 0.0], (3, 1)), strain, along).gap
    assert gap[0] > gap[1] > gap[2]  # compressed, free, stretched
    assert (gap[0] - gap[1]) / along[0] == pytest.approx(15.4, rel=ERRORS.deformation)
    # By the constants in docs/emission.md: 2 (a_2 - D_4) less 2 C13/C33 of a_1 - D_3
    assert (gap[1] - gap[0]) / 1e-3 == pytest.approx(2 * (-11.3 + 4.1) + 2 * 103 / 405 * (4.9 + 8.2), rel=1e-3)


def test_compression_in_the_plane_lifts_heavy_holes_of_aluminium_rich_layers() -> None:
    x = np.tile([0.0, 0.2, 0.8], (2, 1))
    strain = np.array([0.0, -0.02])
    found = edges_of(x, strain, -0.6 * strain)
    assert list(found.split > found.heavy) == [True, False]
    assert found.split_mass[0] < 0.4 < 2.0 < found.heavy_mass[0]  # light along c


# ---- levels


@pytest.mark.parametrize("mass", [0.2, 1.9])
def test_level_of_an_infinite_well(mass: float) -> None:
    exact = KINETIC / mass * (math.pi / 4.0) ** 2
    errors = []
    for count in (40, 80, 160):
        energy, density = lowest_state(np.zeros(count), np.full(count, mass), 4.0 / count)
        errors.append(abs(energy / exact - 1.0))
        assert density.sum() == pytest.approx(1.0)
    assert errors[-1] < 1e-4
    assert np.diff(np.log2(errors)) == pytest.approx([-2.0, -2.0], abs=0.05)  # second order


def test_level_of_a_triangular_well() -> None:
    slope, mass, cell = 0.3, 0.2, 0.01  # eV/nm
    place = (np.arange(2000) + 0.5) * cell
    exact = -ai_zeros(1)[0][0] * (KINETIC / mass * slope**2) ** (1 / 3)
    assert lowest_state(slope * place, np.full(2000, mass), cell)[0] == pytest.approx(exact, rel=1e-4)


def finite_well(depth: float, width: float, inside: float, outside: float) -> float:
    """Lowest level of a square well with two masses, eV: k/m tan(k w/2) = kappa/m."""

    def mismatch(energy: float) -> float:
        k = math.sqrt(energy * inside / KINETIC)
        kappa = math.sqrt((depth - energy) * outside / KINETIC)
        return k / inside * math.sin(k * width / 2) - kappa / outside * math.cos(k * width / 2)

    highest = min(depth, KINETIC / inside * (math.pi / width) ** 2)
    return float(brentq(mismatch, 1e-9, highest * (1 - 1e-9)))


@pytest.mark.parametrize(("thickness", "x_in"), [(1.0, 0.1), (3.0, 0.15), (6.03, 0.25)])
def test_levels_of_a_square_well_from_slices(thickness: float, x_in: float) -> None:
    row = single(thickness, x_in, screening=1)
    slices = stack((50, 0, 0), (thickness, x_in, 0))
    edges = edges_of(slices.x, slices.eps_xx, slices.eps_zz)
    masses = edges.electron_mass[::-1]
    depths = edges.electron[0] - edges.electron[1], edges.heavy[1] - edges.heavy[0]
    assert depths[0] / (depths[0] + depths[1]) == pytest.approx(0.7)
    assert row["electron"] == pytest.approx(finite_well(depths[0], thickness, *masses), abs=1e-3)
    assert row["hole_level"] == pytest.approx(finite_well(depths[1], thickness, *edges.heavy_mass[::-1]), abs=1e-3)
    total = row["gap"] + row["electron"] + row["hole_level"] - row["localisation"]
    assert row["energy_flat"] == pytest.approx(total) and row["energy"] == pytest.approx(total)
    assert row["wavelength_flat"] * row["energy_flat"] == pytest.approx(1239.84, abs=0.01)


def test_a_well_at_the_surface_has_a_wall_above() -> None:
    # the lowest state that is 0 in the middle of a well of twice the width: k/m cot(k w) = -kappa/m
    slices = stack((50, 0, 0), (3, 0.2, 0))
    row = rows(slices, 1, screening=1).loc[1]
    edges = edges_of(slices.x, slices.eps_xx, slices.eps_zz)
    (outside, inside), depth = edges.electron_mass, edges.electron[0] - edges.electron[1]

    def mismatch(energy: float) -> float:
        k = math.sqrt(energy * inside / KINETIC)
        return k / inside / math.tan(3 * k) + math.sqrt((depth - energy) * outside / KINETIC) / outside

    low, high = (KINETIC / inside * (part * math.pi / 3) ** 2 for part in (0.51, 0.99))
    assert row["electron"] == pytest.approx(brentq(mismatch, low, min(high, depth)), abs=1e-3)
    assert row["note"] == "the structure ends above it, in a wall"
    assert rows(stack((3, 0.2, 0), (50, 0, 0)), 0, screening=1)["note"][1] == "the structure ends below it, in a wall"


def test_cells_are_small_enough(monkeypatch: pytest.MonkeyPatch) -> None:
    coarse = [single(2.97)["energy"], single(2.97, screening=1)["energy"]]
    monkeypatch.setattr(emission, "CELL", emission.CELL / 4)
    fine = [single(2.97)["energy"], single(2.97, screening=1)["energy"]]
    assert coarse == pytest.approx(fine, abs=5e-4)


def test_a_well_of_many_slices_is_the_same_well() -> None:
    pieces = stack((50, 0, 0), *[(0.173, 0.15, 0)] * 17, (50, 0, 0))
    one = Emitter(2, "well", pieces.bottom[1], pieces.top[17], True)
    row = emission_table(pieces, [one], settings_of()).loc[1]
    assert row["energy"] == pytest.approx(single(17 * 0.173)["energy"], abs=1e-9)


def test_ramps_beside_a_well_count() -> None:
    # The same indium, 3 nm times 0.2, with ramps of 1 nm: narrower at the bottom, wider at the top.
    up = [(0.1, 0.2 * (step + 0.5) / 10, 0) for step in range(10)]
    slices = stack((50, 0, 0), *up, (2.0, 0.2, 0), *up[::-1], (50, 0, 0))
    well = Emitter(2, "well", 50.5, 53.5, True)
    graded = emission_table(slices, [well], settings_of(screening=1)).loc[1]
    square = single(3.0, 0.2, screening=1)
    narrow, wide = single(2.0, 0.2, screening=1), single(4.0, 0.2, screening=1)
    assert graded["gap"] == pytest.approx(square["gap"], abs=1e-3)
    assert wide["energy"] < square["energy"] < graded["energy"] < narrow["energy"]


# ---- field


def test_small_fields_shift_the_level_of_an_infinite_well_as_their_square() -> None:
    # second-order perturbation theory: (15 - pi^2) / (24 pi^4) m e^2 F^2 L^4 / hbar^2, downwards
    width, mass, count = 4.0, 0.2, 800
    place = (np.arange(count) + 0.5) * width / count - width / 2
    levels = [lowest_state(slope * place, np.full(count, mass), width / count)[0] for slope in (0.0, 0.005, 0.01)]
    shifts = levels[0] - np.array(levels[1:])
    factor = (15 - math.pi**2) / (24 * math.pi**4) * mass / (2 * KINETIC) * width**4
    assert shifts == pytest.approx(factor * np.array([0.005, 0.01]) ** 2, rel=2e-3)


def test_a_field_moves_emission_to_longer_wavelengths_as_its_square() -> None:
    none, small, double, opposite = (single(field=field)["energy"] for field in (0, "0.04 MV/cm", 0.08, -0.04))
    assert small < none and opposite == pytest.approx(small, abs=1e-9)
    assert (none - double) / (none - small) == pytest.approx(4.0, rel=0.01)
    assert single(field=0)["energy"] == pytest.approx(single(screening=1)["energy_flat"])


def test_field_of_alternating_layers() -> None:
    # The polarisation of Fiorentini, Bernardini and Ambacher 2002 and the formula of alternating layers, written out.
    x, strain = 0.15, GAN / (GAN + 0.15 * (3.54 - GAN)) - 1
    spontaneous = -0.042 * x - 0.034 * (1 - x) + 0.037 * x * (1 - x)
    piezo = x * (-1.373 * strain + 7.559 * strain**2) + (1 - x) * (-0.918 * strain + 9.541 * strain**2)
    inside, outside = 14.61 * x + 10.28 * (1 - x), 10.28
    slices = stack((50, 0, 0), (3, x, 0), (12, 0, 0), (3, x, 0), (50, 0, 0))
    step = -0.034 - spontaneous - piezo  # of the polarisation, barrier less well
    expected = step * 12 / (8.8542e-12 * (12 * inside + 3 * outside)) / 1e8  # MV/cm
    assert -2.0 < expected < -1.5
    found = rows(slices, 1, 3)["field"]
    assert found.to_numpy() == pytest.approx([expected, expected], rel=0.02)  # cells at the borders
    assert rows(slices, 1, 3, screening=0.4)["field"][1] == pytest.approx(0.6 * found[1])


def test_layers_stretched_in_the_plane_have_the_opposite_piezoelectric_field() -> None:
    # An unstrained step of AlGaN has the spontaneous part alone; a well stretched by its substrate has both signs less.
    relaxed = stack((50, 0, 0.2), (3, 0, 0), (50, 0, 0.2), a=3.20)
    compressed = stack((50, 0, 0.2), (3, 0, 0), (50, 0, 0.2), a=3.15)
    fields = [rows(slices, 1)["field"][1] for slices in (relaxed, compressed)]
    assert fields[0] < 0.0 and fields[1] < 0.0  # barriers of AlGaN are stretched more: P points down in them


def test_a_thin_well_of_blue_leds_emits_blue() -> None:
    # wells of 3 nm with 15 % indium between barriers of 12 nm: 440 to 470 nm at low current
    row = rows(stack((50, 0, 0), (3, 0.15, 0), (12, 0, 0), (3, 0.15, 0), (50, 0, 0)), 1, 3).loc[1]
    assert 440.0 < row["wavelength"] < 470.0
    assert row["wavelength_low"] < row["wavelength"] < row["wavelength_high"]
    assert row["wavelength_flat"] < row["wavelength"] - 20.0
    assert single(3.0, 0.25)["wavelength"] > 500.0 > 420.0 > single(3.0, 0.08)["wavelength"]


def test_aluminium_gallium_nitride_wells_emit_ultraviolet() -> None:
    # Al 0.40 in Al 0.55 on a template of AlGaN: LEDs of this kind emit at 265 to 290 nm
    slices = stack((50, 0, 0.55), (2.5, 0, 0.40), (12, 0, 0.55), (2.5, 0, 0.40), (50, 0, 0.55), a=3.15)
    table = rows(slices, 1, 3)
    assert table["wavelength"].between(265.0, 290.0).all() and (table["localisation"] == 0.0).all()
    assert (table["x_al"] == 0.40).all() and (table["note"] == "").all()


# ---- cases without levels


def test_a_shallow_well_beside_a_higher_barrier_has_no_bound_state() -> None:
    slices = stack((50, 0, 0), (1, 0.004, 0), (50, 0, 0.2))
    row = rows(slices, 1, screening=1).loc[1]
    assert row["note"] == "too shallow: electron and hole are not bound" and math.isfinite(row["gap"])
    assert all(math.isnan(row[name]) for name in ("energy_flat", "energy", "wavelength", "wavelength_low"))
    assert rows(slices, 1, screening=1)["kind"][1] == "well"
    assert math.isfinite(single(1.0, 0.05, screening=1)["energy"])  # a symmetric one has


def test_a_strong_field_empties_a_shallow_well() -> None:
    row = single(3.0, 0.02, field=-5)
    assert row["note"].endswith("not bound in the field") and math.isnan(row["energy"])
    assert math.isfinite(row["energy_flat"])


def test_thick_layers_are_bulk() -> None:
    thick = single(15.1)
    assert (thick["kind"], thick["note"]) == ("bulk", "thicker than 15 nm: levels of a well neglected")
    assert thick["energy"] == pytest.approx(thick["gap"] - 0.6 * 0.15) and math.isnan(thick["field"])
    assert single(14.9)["kind"] == "well" and single(14.9, screening=1)["energy"] > thick["energy"]
    assert single(14.9, screening=1)["energy"] == pytest.approx(thick["energy"], abs=0.02)


def test_thin_barriers_are_noted() -> None:
    slices = stack((50, 0, 0), (3, 0.15, 0), (2, 0, 0), (3, 0.15, 0), (50, 0, 0))
    assert set(rows(slices, 1, 3)["note"]) == {"barrier thinner than 3 nm: coupling neglected"}
    assert single()["note"] == ""


def test_a_layer_that_is_not_in_the_slices_is_unknown() -> None:
    slices = stack((50, 0, 0), (3, 0.15, 0))
    missing = Emitter(3, "missing", 60.0, 63.0, True)
    row = emission_table(slices, [missing], settings_of()).loc[1]
    assert row["note"] == "unknown composition" and math.isnan(row["gap"]) and row["name"] == "missing"
    nothing = Slices(*(column[:0] for column in slices))
    assert emission_table(nothing, [missing], settings_of())["note"][1] == "unknown composition"


def test_values_without_a_meaning_are_not_shown() -> None:
    row = rows(stack((50, 0, 0), (3, 1.4, 0), (50, 0, 0)), 1).loc[1]
    assert row["note"] == "unphysical composition" and math.isnan(row["gap"]) and row["x_in"] > 1.3
    row = single(6.0, 1.0)
    assert row["note"] == "the strain closes the gap" and math.isnan(row["energy_flat"])
    assert math.isnan(single(20.0, 1.0)["wavelength_flat"])
    row = single(6.0, 0.5)
    assert row["note"] == "the field closes the gap" and math.isnan(row["energy"]) and row["energy_flat"] > 0.0


# ---- standard deviations


@pytest.mark.parametrize("name", CONSTANTS._fields)
def test_standard_deviations_are_those_of_changed_constants(name: str) -> None:
    slices = stack((50, 0, 0.05), (3, 0.15, 0), (50, 0, 0.05))
    others = {one: (value, 0.0) for one, value in CONSTANTS._asdict().items()}
    value, error = getattr(CONSTANTS, name), getattr(ERRORS, name)

    def energy(change: float) -> pd.Series:
        return rows(slices, 1, constants=others | {name: (value + change, 0.0)}).loc[1]

    row = rows(slices, 1, constants=others | {name: (value, error)}).loc[1]
    expected = abs(energy(error)["energy"] - energy(-error)["energy"]) / 2
    assert row["energy_error"] == pytest.approx(expected, rel=0.1, abs=1e-3)  # eV; first order
    assert energy(0.0)["energy_error"] == 0.0
    low, high = 1239.84 / (row["energy"] + expected), 1239.84 / (row["energy"] - expected)
    assert (row["wavelength_low"], row["wavelength_high"]) == pytest.approx((low, high), rel=2e-3)


def test_standard_deviations_add_as_squares() -> None:
    slices = stack((50, 0, 0), (3, 0.15, 0), (50, 0, 0))
    none = {name: (value, 0.0) for name, value in CONSTANTS._asdict().items()}
    parts = [
        rows(slices, 1, constants=none | {name: (value, getattr(ERRORS, name))})["energy_error"][1]
        for name, value in CONSTANTS._asdict().items()
    ]
    assert rows(slices, 1)["energy_error"][1] == pytest.approx(math.hypot(*parts))


# ---- runs


@pytest.fixture(scope="module")
def mqw() -> vorlen.Run:
    return vorlen.run(MQW)


def test_wells_of_a_run(mqw: vorlen.Run) -> None:
    table = mqw.emission()
    assert list(table.index) == [1, 2, 3] and table.index.name == "well"
    assert list(table.columns) == list(table.attrs["units"]) == list(table.attrs["meanings"])
    assert any("coarse" in note for note in table.attrs["notes"])
    assert not any("screened" in note for note in table.attrs["notes"])
    layers = mqw.layers
    heights = layers["thickness"].cumsum()
    for row in table.itertuples():
        assert layers["name"][row.layer] == row.name and row.kind == "well" and row.note == ""
        assert row.bottom == pytest.approx(heights[row.layer - 1], abs=0.5)  # ramps belong to wells or barriers
        assert row.x_in == pytest.approx(layers["x_in_mid"][row.layer], abs=0.01)
    assert table["wavelength"].between(450.0, 600.0).all() and (table["wavelength_flat"] < table["wavelength"]).all()
    assert (mqw.emission(temperature="77 K")["energy"] > table["energy"]).all()
    assert (mqw.emission(constants={"bowing_in_ga": 1.8})["energy"] < table["energy"]).all()


def test_layers_of_a_run_without_wells_are_bulk() -> None:
    table = vorlen.run(ROOT / "examples" / "gan_thick_ccs.xml").emission()
    assert list(table["kind"]) == ["bulk"] and table["wavelength"][1] == pytest.approx(360.5, abs=1.5)


def test_emitters_without_wells_are_layers_with_indium() -> None:
    layers = pd.DataFrame({
        "name": ["template", "GaN", "InGaN"], "kind": ["pre", "active", "active"], "begin": [0.0, 0.0, 50.0],
        "end": [0.0, 50.0, 90.0], "duration": [0.0, 50.0, 40.0], "thickness": [2000.0, 50.0, 40.0],
        "x_in": [0.0, 0.0, 0.1], "x_ga": [1.0, 1.0, 0.9], "x_al": [0.0, 0.0, 0.0],
    }, index=pd.RangeIndex(1, 4))
    found = emitters_of(layers, 2000.0)
    assert found == [Emitter(3, "InGaN", 2050.0, 2090.0, False, 50.0, 0.0)]
    layers["x_in"], layers["x_ga"] = 0.0, 1.0
    assert [(one.name, one.bottom, one.top) for one in emitters_of(layers, 2000.0)] == [("GaN", 2000.0, 2090.0)]
    assert emitters_of(layers[:1], 2000.0) == []


def test_a_failed_run_has_the_wells_it_reached() -> None:
    table = failed_run(failing_recipe()).emission()
    assert list(table.columns) == [name for name, _, _ in EMISSION_COLUMNS]
    assert np.isfinite(table["wavelength"]).all() or (table["note"] != "").any()


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ({"temperature": -1}, ValueError, "temperature must be from 0 to 1500 K, got -1"),
        ({"temperature": None}, TypeError, "temperature takes"),
        ({"screening": 1.1}, ValueError, "screening must be from 0 to 1, got 1.1"),
        ({"field": "3 V"}, ValueError, "field: '3 V' has the unit V, expected MV/cm"),
        ({"constants": {"bowing": 1}}, ValueError, "unknown constant 'bowing'; known are gap_in, "),
        ({"constants": {"offset": (1, 2, 3)}}, ValueError, "offset takes a number, or a pair"),
        ({"constants": {"gap_in": (0.7, -0.1)}}, ValueError, "gap_in: the standard deviation must be 0 or more, got -0.1"),
        ({"constants": ["gap_in"]}, TypeError, "constants must be a dict of names and values"),
    ],
)
def test_wrong_arguments(mqw: vorlen.Run, arguments: dict[str, Any], error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text.replace("(", r"\(")):
        mqw.emission(**arguments)


# ---- the manual


def test_tables_of_the_manual_are_those_of_the_code() -> None:
    stated = {name: [float(number) for number in cells] for name, _, *cells, _ in
              table_of("emission.md", "| parameter | unit | InN | GaN | AlN | source |")}
    assert stated == {name: [getattr(bands, name) for bands in BANDS.values()] for name in stated}
    assert set(stated) == set(BANDS["Ga"]._fields)
    constants = {name: (float(value), float(error)) for name, _, value, error, _ in
                 table_of("emission.md", "| constant | unit | value | standard deviation | source |")}
    assert constants == {name: (value, getattr(ERRORS, name)) for name, value in CONSTANTS._asdict().items()}
    assert [list(cells) for cells in table_of("emission.md", "| column | unit | meaning |")] == [
        [name, unit or "", meaning] for name, unit, meaning in EMISSION_COLUMNS
    ]
    text = (ROOT / "docs" / "emission.md").read_text("utf-8")
    for (one, other), value in zip(PAIRS, SPONTANEOUS_BOWING):
        assert f"{value:.3f} ({one}{other}N)" in text
