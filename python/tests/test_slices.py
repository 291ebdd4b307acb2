"""The slices of the finished structure, on profiles whose values are calculated manually."""

from __future__ import annotations

import numpy as np
import pytest

import vorlen
from support import MQW, ROOT, failed_run, failing_recipe, result, row
from vorlen._observe.nitrides import NITRIDES
from vorlen._observe.slices import Slices, alloy, slices_of


def slices(rows: list[str], layers: list[tuple[str, float, float]], change: float = 1.0) -> Slices:
    run = vorlen.Run(result(layers, rows).encode())
    return slices_of(run.profile, run.layers, change)


def grown(*points: tuple[float, float, float]) -> list[str]:
    """Simulated rows of (time, z, x_in)."""
    return [row(time=t, z=z, x_in=x, x_ga=1 - x, a_eff_z=3.19) for t, z, x in points]


def test_a_slice_has_the_values_of_its_middle_and_the_times_of_its_growth() -> None:
    rows = [
        row(time=0, z=0, x_in=0.1, x_ga=0.9, a_eff_z=3.18, eps_xx_z=-0.01, eps_zz_z=0.006),
        row(time=10, z=4, x_in=0.3, x_ga=0.5, x_al=0.2, a_eff_z=3.20, eps_xx_z=-0.03, eps_zz_z=0.010),
    ]
    found = slices(rows, [("a", 10, 4)])
    assert [column.tolist() for column in (found.bottom, found.top, found.begin, found.end)] == [[0], [4], [0], [10]]
    assert found.x[0] == pytest.approx([0.2, 0.7, 0.1])
    assert (found.a[0], found.eps_xx[0], found.eps_zz[0]) == pytest.approx((3.19, -0.02, 0.008))
    assert found.layer.tolist() == [1] and found.thickness.tolist() == [4]


def test_a_step_through_which_the_composition_changes_is_divided() -> None:
    # 0 to 0.2 over 10 nm in 20 s, in parts of which each changes by 0.05 or less; a constant layer stays whole.
    found = slices(grown((0, 0, 0.0), (20, 10, 0.2), (30, 15, 0.2)), [("graded", 20, 10), ("b", 10, 5)], change=0.05)
    assert found.bottom.tolist() == [0, 2.5, 5, 7.5, 10] and found.top.tolist() == [2.5, 5, 7.5, 10, 15]
    assert found.x[:, 0] == pytest.approx([0.025, 0.075, 0.125, 0.175, 0.2])
    assert found.begin.tolist() == [0, 5, 10, 15, 20] and found.layer.tolist() == [1, 1, 1, 1, 2]


def test_only_the_part_of_a_step_that_is_left_is_divided() -> None:
    # Of the step from 0 to 0.2 over 10 nm, 2 nm are left, with a change of 0.04.
    found = slices(grown((0, 0, 0.0), (20, 10, 0.2), (22, 2, 0.0)), [("a", 22, 2)], change=0.02)
    assert found.top.tolist() == [1, 2] and found.x[:, 0] == pytest.approx([0.01, 0.03])


def test_what_evaporated_again_is_not_in_the_structure() -> None:
    # 16 nm in 4 s, of which 6 nm evaporate; 10 nm with other contents. The first step ends at 10 nm, which it
    # reached after 2.5 s; there x was 0.1 + 0.2 * 10 / 16, and in the middle of what is left 0.1 + 0.2 * 5 / 16.
    found = slices(grown((0, 0, 0.1), (4, 16, 0.3), (6, 10, 0.0), (7, 10, 0.5), (10, 20, 0.5)), [("a", 10, 20)])
    assert found.bottom.tolist() == [0, 10] and found.top.tolist() == [10, 20]
    assert found.x[:, 0] == pytest.approx([0.1625, 0.5])
    assert found.begin.tolist() == [0, 7] and found.end.tolist() == [2.5, 10]


def test_a_layer_can_lose_all_of_itself_and_part_of_the_one_below() -> None:
    rows = grown((0, 0, 0.0), (10, 10, 0.0), (11, 12, 0.2), (13, 8, 0.0), (20, 15, 0.1))
    found = slices(rows, [("GaN", 10, 10), ("InGaN", 1, 2), ("pause", 2, -4), ("cap", 7, 7)])
    assert found.layer.tolist() == [1, 4] and found.top.tolist() == [8, 15]


def test_stages_before_and_after_have_their_layers_and_times() -> None:
    def given(time: float, z: float, x_al: float, a: float) -> str:
        return row(False, time=time, z=z, x_al=x_al, x_ga=1 - x_al, a_eff_z=a)

    rows = [given(0, 0, 1, 3.112), given(5, 50, 1, 3.112), given(5, 50, 0, 3.18), given(9, 90, 0, 3.18)]
    rows += grown((9, 90, 0.0), (19, 95, 0.2)) + [given(19, 95, 0.5, 3.19), given(20, 99, 0.5, 3.19)]
    found = slices(rows, [("AlN", 5, 50), ("GaN", 4, 40), ("InGaN", 10, 5), ("cap", 1, 4)])
    assert found.layer.tolist() == [1, 2, 3, 4]
    assert found.x.tolist() == [[0, 0, 1], [0, 1, 0], [pytest.approx(0.1), pytest.approx(0.9), 0], [0, 0.5, 0.5]]
    assert found.bottom.tolist() == [0, 50, 90, 95] and found.top.tolist() == [50, 90, 95, 99]
    assert found.begin.tolist() == [0, 5, 9, 19] and found.a.tolist() == [3.112, 3.18, 3.19, 3.19]


def test_stages_that_were_not_simulated_are_enough() -> None:
    rows = [row(False, time=t, z=z, x_ga=1.0, a_eff_z=3.189) for t, z in ((0, 0), (1, 5), (1, 5), (2, 5))]
    found = slices(rows, [("a", 1, 5), ("of thickness 0", 1, 0)])
    assert found.layer.tolist() == [1] and found.top.tolist() == [5]


def test_a_border_of_layers_between_two_rows_divides_the_step() -> None:
    # x = z / 100 and 1 nm/s; layers of 2, 4 and 4 nm between two rows
    found = slices(grown((0, 0, 0.0), (10, 10, 0.1)), [("a", 2, 2), ("b", 4, 4), ("c", 4, 4)])
    assert found.layer.tolist() == [1, 2, 3] and found.top.tolist() == [2, 6, 10]
    assert found.x[:, 0] == pytest.approx([0.01, 0.04, 0.08])


def test_a_jump_of_the_composition_at_a_border_stays_one() -> None:
    found = slices(grown((0, 0, 0.0), (5, 5, 0.0), (5, 5, 0.2), (10, 10, 0.2)), [("a", 5, 5), ("b", 5, 5)])
    assert found.x[:, 0].tolist() == [0.0, 0.2] and found.layer.tolist() == [1, 2]


def test_a_layer_of_no_thickness_and_one_without_duration_have_no_slice() -> None:
    rows = grown((0, 0, 0.0), (5, 5, 0.0), (8, 5, 0.0), (10, 10, 0.1))
    found = slices(rows, [("a", 5, 5), ("pause", 3, 0), ("instant", 0, 0), ("b", 2, 5)])
    assert found.layer.tolist() == [1, 4]


def test_a_result_without_rows_has_no_slices() -> None:
    found = slices([], [("a", 5, 5)])
    assert [len(column) for column in found] == [0] * 9 and found.x.shape == (0, 3)


def test_a_result_of_one_row_has_no_slices() -> None:
    assert len(slices(grown((0, 0, 0.1)), [("a", 5, 5)]).top) == 0


@pytest.mark.parametrize("column", ["time", "z", "x_in", "x_al", "a_eff_z", "eps_zz_z"])
@pytest.mark.parametrize("value", [np.nan, np.inf])
def test_the_structure_ends_below_the_first_row_that_is_not_finite(column: str, value: float) -> None:
    values = {"x_ga": 1.0, "a_eff_z": 3.189}
    bad = row(**(values | {"time": 4, "z": 4, column: value}))
    rows = [row(time=t, z=t, **values) for t in (0, 2)] + [bad] + [row(time=t, z=t, **values) for t in (6, 8)]
    assert slices(rows, [("a", 8, 8)]).top.tolist() == [2]


def test_a_failed_run_has_what_grew_before_the_failure() -> None:
    run = failed_run(failing_recipe())
    found = slices_of(run.profile, run.layers)
    assert found.top[-1] == run.profile["z"].iloc[-1] > 1000
    reached = run.layers["begin"] < run.profile["time"].iloc[-1]
    assert set(found.layer) == set(run.layers.index[reached]) and not reached.all()


@pytest.mark.parametrize("path", [MQW, ROOT / "examples" / "algan_gan_hemt.xml"], ids=lambda path: path.stem)
def test_thickness_and_composition_of_each_layer_are_those_of_the_layers(path: object) -> None:
    run = vorlen.run(path)
    found, layers = slices_of(run.profile, run.layers), run.layers
    assert found.thickness.sum() == pytest.approx(layers["thickness"].sum(), rel=1e-12)
    assert found.bottom[1:] == pytest.approx(found.top[:-1], abs=1e-9)
    for number, expected in layers.iterrows():
        mine = found.layer == number
        assert found.thickness[mine].sum() == pytest.approx(expected["thickness"], rel=1e-9)
        indium = (found.x[mine, 0] * found.thickness[mine]).sum() / expected["thickness"]
        assert indium == pytest.approx(expected["x_in"], abs=1e-9)


def test_alloys_follow_vegards_law() -> None:
    # docs/physics.md, section 6: the lattice constant of In0.20Ga0.80N is 3.25920 angstrom
    found = alloy(np.array([[0.2, 0.8, 0.0], [0.0, 0.0, 1.0]]))
    assert found.a == pytest.approx([3.2592, 3.112], abs=1e-12)
    assert found.C33 == pytest.approx([0.2 * 224 + 0.8 * 405, 373], abs=1e-9)
    assert list(NITRIDES) == ["In", "Ga", "Al"]
