"""Run.interfaces: widths calculated manually."""

from __future__ import annotations

import numpy as np
import pytest

import vorlen
from support import result, row, table_of
from vorlen._runs.interfaces import period_numbers


def run_of(rows: list[str], layers: list[tuple[str, float, float]]) -> vorlen.Run:
    return vorlen.Run(result(layers, rows).encode())


def test_a_linear_step_has_eight_tenths_of_its_length() -> None:
    # 0 up to 10 nm, rising to 0.2 at 12 nm, constant from there: 10 % at 10.2 nm and 90 % at 11.8 nm
    points = [(0, 0, 0.0), (10, 10, 0.0), (12, 12, 0.2), (20, 20, 0.2)]
    run = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], [("a", 10, 10), ("b", 10, 10)])
    (interface,) = run.interfaces.to_dict("records")
    assert (interface["below"], interface["above"], interface["metal"]) == ("a", "b", "In")
    assert interface["z"] == 10 and interface["x_above"] == pytest.approx(0.2)
    assert (interface["z10"], interface["z90"]) == pytest.approx((10.2, 11.8))
    assert interface["width"] == pytest.approx(1.6)


def test_a_fall_of_aluminium_is_an_interface_too() -> None:
    points = [(0, 0, 0.3), (10, 10, 0.3), (11, 11, 0.0), (20, 20, 0.0)]
    run = run_of([row(time=t, z=z, x_al=x) for t, z, x in points], [("a", 10, 10), ("b", 10, 10)])
    assert run.interfaces["metal"][1] == "Al" and run.interfaces["width"][1] == pytest.approx(0.8)


def test_a_jump_between_stages_that_were_not_simulated_has_no_width() -> None:
    rows = [row(False, time=t, z=z, x_in=x) for t, z, x in ((0, 0, 0.0), (1, 5, 0.0), (1, 5, 0.1), (2, 9, 0.1))]
    assert run_of(rows, [("a", 1, 5), ("b", 1, 4)]).interfaces["width"][1] == 0.0


def test_layers_of_one_composition_have_no_interface() -> None:
    rows = [row(time=t, z=t, x_in=0.1) for t in (0.0, 5.0, 10.0)]
    run = run_of(rows, [("a", 5, 5), ("b", 5, 5)])
    assert run.interfaces.empty


def test_names_units_and_meanings_of_the_columns_are_those_of_the_manual() -> None:
    points = [(0, 0, 0.3), (10, 10, 0.3), (11, 11, 0.0), (20, 20, 0.0)]
    rows = [row(time=t, z=z, x_al=x) for t, z, x in points]
    columns = table_of("python.md", "| column of `interfaces` | unit | meaning |")
    assert len(columns) == 9
    for count, table in ((1, run_of(rows, [("a", 10, 10), ("b", 10, 10)])), (0, run_of(rows, [("a", 20, 20)]))):
        found = table.interfaces
        assert len(found) == count
        assert [[name, found.attrs["units"][name], found.attrs["meanings"][name]] for name in found] == columns


def test_a_step_that_dips_below_ten_percent_again_is_measured_from_its_first_rise() -> None:
    points = [(0, 0, 0.0), (10, 10, 0.0), (11, 11, 0.1), (12, 12, 0.0), (13, 13, 0.1), (20, 20, 0.1)]
    run = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], [("a", 10, 10), ("b", 10, 10)])
    assert np.isclose(run.interfaces["z10"][1], 10.1) and np.isclose(run.interfaces["z90"][1], 10.9)


def test_a_layer_that_evaporated_again_is_not_in_the_finished_structure() -> None:
    # 10 nm of GaN, of which a pause takes 1 nm; then aluminium rises to 0.3 between 9 nm and 10 nm.
    grown = [(0, 0, 0.0), (10, 10, 0.0), (11, 9, 0.0), (12, 10, 0.3), (20, 18, 0.3)]
    run = run_of([row(time=t, z=z, x_al=x) for t, z, x in grown], [("GaN", 10, 10), ("pause", 1, -1), ("AlGaN", 9, 9)])
    (interface,) = run.interfaces.to_dict("records")
    assert (interface["below"], interface["above"], interface["z"]) == ("GaN", "AlGaN", 9)
    assert (interface["z10"], interface["z90"]) == pytest.approx((9.1, 9.9))


def test_indium_of_a_layer_that_evaporated_completely_is_gone() -> None:
    grown = [(0, 0, 0.0), (10, 10, 0.0), (11, 12, 0.2), (12, 10, 0.0), (13, 9.5, 0.0), (20, 20, 0.0)]
    layers = [("GaN", 10, 10), ("InGaN", 1, 2), ("pause", 2, -2.5), ("cap", 7, 10.5)]
    assert run_of([row(time=t, z=z, x_in=x) for t, z, x in grown], layers).interfaces.empty


def test_an_interface_is_not_named_after_a_pause() -> None:
    # In the pause of 1 s after 10 nm, 0.01 nm grow. In the one after 20 nm half of the indium goes, so it has steps itself.
    points = [(0, 0, 0.0), (10, 10, 0.0), (11, 10.01, 0.0), (11.1, 10.1, 0.2), (21, 20, 0.2), (22, 20.05, 0.0), (32, 30, 0.0)]
    layers = [("barrier", 10, 10), ("cooling", 1, 0.01), ("well", 10, 9.99), ("heating", 1, 0.05), ("cap", 10, 9.95)]
    found = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], layers).interfaces
    assert list(zip(found["below"], found["above"])) == [
        ("barrier", "well"), ("well", "heating"), ("heating", "cap")
    ]


def test_thin_layers_with_nothing_thicker_beside_them_have_their_own_names() -> None:
    points = [(0, 0, 0.0), (1, 0.05, 0.0), (2, 0.06, 0.3), (3, 0.1, 0.3)]
    run = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], [("a", 1, 0.05), ("b", 2, 0.05)])
    assert list(zip(run.interfaces["below"], run.interfaces["above"])) == [("a", "b")]


def test_interfaces_between_layers_of_the_same_names_are_numbered() -> None:
    points = [(0, 0, 0), (9, 9, 0), (11, 11, 0.2), (19, 19, 0.2), (21, 21, 0), (29, 29, 0), (31, 31, 0.2), (40, 40, 0.2)]
    layers = [("b", 10, 10), ("w", 10, 10), ("b", 10, 10), ("w", 10, 10)]
    found = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], layers).interfaces
    assert period_numbers(found) == [1, None, 2]
    assert period_numbers(found.iloc[:0]) == []


def test_a_layer_cut_off_in_a_pause_has_the_fraction_of_its_last_row() -> None:
    # The rows end at 12 nm, below the middle of layer b, with two rows at that height.
    points = [(0, 0, 0.0), (10, 10, 0.0), (12, 12, 0.2), (13, 12, 0.2)]
    run = run_of([row(time=t, z=z, x_in=x) for t, z, x in points], [("a", 10, 10), ("b", 10, 10)])
    (interface,) = run.interfaces.to_dict("records")
    assert (interface["x_below"], interface["x_above"]) == (0, 0.2)
    assert (interface["z10"], interface["z90"]) == pytest.approx((10.2, 11.8))
