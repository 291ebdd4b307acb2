"""Run.layers: the values of layers, on profiles whose values are calculated manually."""

from __future__ import annotations

import json
import subprocess
import time
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import EXAMPLES, V_DEFECTS, failed_run, failing_recipe, recipe_with_nan, result, row, table_of, tool


def layers_of(text: str) -> pd.DataFrame:
    return vorlen.Run(text.encode()).layers


def test_kinds_come_from_the_ends_of_the_rows() -> None:
    rows = (
        [row(False, time=t) for t in (0, 1, 1, 3)]
        + [row(time=t) for t in (3, 4, 5)]
        + [row(False, time=t) for t in (5, 9)]
    )
    layers = layers_of(result([("a", 1, 1), ("b", 2, 1), ("c", 1, 1), ("d", 1, 1), ("e", 4, 1)], rows))
    assert list(layers["kind"]) == ["pre", "pre", "active", "active", "post"]
    assert list(layers["begin"]) == [0, 1, 3, 4, 5] and list(layers["end"]) == [1, 3, 4, 5, 9]


def test_the_mean_composition_is_weighted_with_the_height() -> None:
    # x rises from 0 to 1 in 10 s while the layer grows at a constant rate, and stays at 1 for 10 s at twice the rate:
    # (0.5 * 10 + 1 * 20) / 30 over both; in the layer of the first 5 s the mean is 0.25.
    rows = [row(time=0, z=0, x_in=0), row(time=10, z=10, x_in=1), row(time=20, z=30, x_in=1)]
    assert layers_of(result([("all", 20, 30)], rows))["x_in"][1] == pytest.approx(25 / 30, rel=1e-15)
    parts = layers_of(result([("a", 5, 5), ("b", 5, 5), ("c", 10, 20)], rows))
    assert list(parts["x_in"]) == pytest.approx([0.25, 0.75, 1.0], rel=1e-15)


def test_a_layer_in_which_nothing_grew_has_no_mean_composition() -> None:
    rows = [row(time=0, z=5, x_in=0.2), row(time=10, z=5, x_in=0.4)]
    layers = layers_of(result([("pause", 10, 0)], rows))
    assert np.isnan(layers["x_in"][1]) and layers["x_in_end"][1] == 0.4 and layers["mean_rate"][1] == 0.0


def test_a_stage_that_evaporates_has_a_negative_thickness_and_no_composition_and_its_run_is_complete() -> None:
    """Its rows are finite and their fractions between 0 and 1: evaporation is not a fault of the run."""
    rows = [row(time=t, z=z, x_ga=1.0) for t, z in ((0, 0), (10, 500), (20, -300))]
    run = vorlen.Run(result([("GaN", 10, 500), ("no ammonia", 10, -800)], rows).encode())
    assert run.layers["thickness"].tolist() == [500, -800] and run.layers["mean_rate"][2] == -80
    for column in ("x_in", "x_ga", "x_al", "x_in_mid", "x_ga_mid", "x_al_mid"):
        assert np.isnan(run.layers[column][2]) and not np.isnan(run.layers[column][1])
    assert run.layers["x_ga_end"][2] == 1.0
    assert (run.complete, run.unphysical, run.failed) == (True, "", False)


def exponential_layer(duration: float = 20.0) -> str:
    """20 nm at 1 nm/s in which indium is incorporated with a delay: x = 0.2 (1 - exp(-z / 4 nm))."""
    heights = np.linspace(0.0, 20.0, 4001)
    rows = [row(time=z * duration / 20.0, z=z, x_in=0.2 * (1 - np.exp(-z / 4.0))) for z in heights]
    return result([("a", duration, 20)], rows)


def evaporating_layer() -> str:
    """16 nm with x = 0.1, of which 6 nm evaporate, a pause, and 10 nm with x = 0.3."""
    points = ((0, 0, 0.1), (4, 16, 0.1), (6, 10, 0.1), (7, 10, 0.3), (10, 20, 0.3))
    return result([("a", 10, 20)], [row(time=t, z=z, x_in=x) for t, z, x in points])


def test_the_middle_half_of_an_exponential_profile() -> None:
    # The integral of 1 - exp(-z / 4) from 5 to 15 is 10 + 4 (exp(-15 / 4) - exp(-5 / 4)). 4001 rows: 1e-6 of it.
    expected = 0.2 * (1 + 0.4 * (np.exp(-3.75) - np.exp(-1.25)))
    layers = layers_of(exponential_layer())
    assert layers["x_in_mid"][1] == pytest.approx(expected, rel=1e-6)
    assert layers["x_in"][1] == pytest.approx(0.2 * (1 - 0.2 * (1 - np.exp(-5))), rel=1e-6)


def test_the_middle_half_contains_no_interfaces() -> None:
    # x rises from 0 to 0.2 over the first 5 nm and returns to 0 over the last 5 nm of 20.
    rows = [row(time=t, z=t, x_in=x, x_ga=1 - x) for t, x in ((0, 0.0), (5, 0.2), (15, 0.2), (20, 0.0))]
    layers = layers_of(result([("a", 20, 20)], rows))
    assert layers["x_in"][1] == pytest.approx(0.15, rel=1e-15)
    assert layers["x_in_mid"][1] == pytest.approx(0.2, rel=1e-15)
    assert layers["x_ga_mid"][1] == pytest.approx(0.8, rel=1e-15)
    assert layers["x_al_mid"][1] == 0.0


def test_in_the_middle_half_only_what_is_left_counts() -> None:
    layers = layers_of(evaporating_layer())
    assert layers["x_in_mid"][1] == pytest.approx(0.2, rel=1e-15)  # 5 nm of each
    # Over time, the evaporated 6 nm count as well as those that replaced them.
    assert layers["x_in"][1] == pytest.approx((10 * 0.1 + 10 * 0.3) / 20, rel=1e-15)


def test_a_layer_between_rows_has_a_middle_half() -> None:
    # x = z / 100 and 1 nm/s; from 2 to 6 s the middle half is from 3 to 5 nm.
    rows = [row(time=t, z=t, x_in=t / 100) for t in (0.0, 10.0)]
    layers = layers_of(result([("a", 2, 2), ("b", 4, 4), ("c", 4, 4)], rows))
    assert layers["x_in_mid"].tolist() == pytest.approx([0.01, 0.04, 0.08], rel=1e-14)


@pytest.mark.parametrize("duration", [10.0, 11.0])
def test_a_layer_that_is_lost_again_has_no_middle(duration: float) -> None:
    rows = [row(time=t, z=z, x_in=0.2) for t, z in ((0, 4), (5, 9), (10, 4), (11, 3))]
    layers = layers_of(result([("a", duration, 0)], rows))
    assert np.isnan(layers["x_in_mid"][1]) and np.isnan(layers["x_in"][1])


@pytest.mark.parametrize(
    "text",
    [exponential_layer(), exponential_layer(7.0), evaporating_layer()],
    ids=["exponential", "in 7 s", "evaporating"],
)
def test_the_tool_computes_the_same_middle(text: str, tmp_path: Path) -> None:
    (tmp_path / "r.txt").write_text(text)
    shown = subprocess.run([tool(), "show", "--json", tmp_path / "r.txt"], capture_output=True, text=True, check=True)
    (theirs,) = json.loads(shown.stdout)["layers"]
    ours = layers_of(text).loc[1]
    for metal in ("x_in_mid", "x_ga_mid", "x_al_mid"):
        assert ours[metal] == pytest.approx(theirs[metal], rel=1e-12), metal


@pytest.mark.parametrize(("top", "x_al"), [(2.0, 0.25), (0.0, None)], ids=["2 nm", "nothing"])
def test_a_layer_below_counts_by_its_height(top: float, x_al: float | None, tmp_path: Path) -> None:
    # Numbers near 1e13 are 0.002 apart: a layer of 1e-4 s starts and ends at the same time.
    below = [row(False, time=1e13, z=z, x_al=0.25, x_ga=0.75) for z in (0.0, top)]
    above = [row(False, time=1e13 + 1, z=z, x_al=0.25, x_ga=0.75) for z in (top + 1, 2 * top + 1)]
    active = [row(time=1e13, z=top, x_ga=1), row(time=1e13 + 1, z=top + 1, x_ga=1)]
    text = result([("below", 1e-4, top), ("grown", 1, 1), ("above", 1e-4, top)], [*below, *active, *above])
    (tmp_path / "r.txt").write_text(text)
    shown = subprocess.run([tool(), "show", "--json", tmp_path / "r.txt"], capture_output=True, text=True, check=True)
    layers = layers_of(text)
    for number, theirs in zip((1, 3), json.loads(shown.stdout)["layers"][::2]):
        assert theirs["x_al"] == theirs["x_al_mid"] == x_al
        ours = layers.loc[number, ["x_al", "x_al_mid"]].tolist()
        assert ours == [x_al, x_al] if x_al is not None else np.isnan(ours).all()


@pytest.mark.filterwarnings("error")
@pytest.mark.parametrize(
    ("middle", "top"),
    [
        (1.0, 5e-324),  # 1 nm grew and evaporated again, but for the smallest number there is
        (1.0, 1e-310),
        (1.0, float("inf")),
        (float("inf"), float("inf")),
        (float("inf"), 1.0),
        (float("nan"), float("nan")),
    ],
)
def test_a_mean_composition_that_is_not_finite_is_nan_without_a_warning(middle: float, top: float) -> None:
    # (0.2 + 0.3) / 2 * 1 nm - (0.3 + 0.4) / 2 * 1 nm = -0.1 nm of indium, divided by a net growth of almost 0 nm
    rows = [row(time=0, z=0, x_in=0.2), row(time=5, z=middle, x_in=0.3), row(time=10, z=top, x_in=0.4)]
    layers = layers_of(result([("pause", 10, 0)], rows))
    assert np.isnan(layers["x_in"][1]) and layers["x_in_end"][1] == 0.4
    # What is left is the lowest part of the first nanometre; half of 5e-324 is 0.
    assert layers["x_in_mid"][1] == pytest.approx(0.2 if top in (1e-310, 1.0) else np.nan, nan_ok=True)


@pytest.mark.filterwarnings("error")
def test_the_mean_composition_of_a_layer_that_hardly_grew_is_that_of_what_grew() -> None:
    rows = [row(time=0, z=0, x_in=0.2), row(time=10, z=1e-300, x_in=0.4)]
    assert layers_of(result([("a", 10, 0)], rows))["x_in"][1] == pytest.approx(0.3, rel=1e-12)


def test_end_values_are_those_of_the_last_row_within_the_layer() -> None:
    # The first layer ends between two rows; the last row of the second lies beyond its end by rounding only.
    rows = [row(time=t, z=t, x_in=t / 100, rho_vd0_t=t) for t in (0.0, 4.0, 9.0, 10.000000000001)]
    layers = layers_of(result([("a", 6, 6), ("b", 4, 4)], rows))
    assert list(layers["x_in_end"]) == pytest.approx([0.04, 0.1]) and list(layers["v_defects_t"]) == pytest.approx(
        [2, 5]
    )


def test_the_row_at_the_start_of_a_layer_belongs_to_the_previous_one() -> None:
    rows = [row(time=t, z=t, x_in=t / 100) for t in (0.0, 6.0, 12.0)]
    layers = layers_of(result([("a", 6, 6), ("b", 3, 3), ("c", 3, 3)], rows))
    assert layers["x_in_end"][1] == 0.06 and np.isnan(layers["x_in_end"][2]) and layers["x_in_end"][3] == 0.12


def test_relaxation_is_measured_from_the_substrate_to_the_layer_s_own_lattice() -> None:
    # Own lattice constant 3.30 on 3.20: with 3.22 a fifth of the mismatch is relieved.
    pre = [row(False, time=t, a_eff_z=3.2) for t in (0, 1)]
    rows = [row(time=2, z=1, a_eff_z=3.22, eps_xx_z=3.22 / 3.30 - 1)]
    layers = layers_of(result([("pre", 1, 1), ("a", 1, 1)], pre + rows))
    assert layers["relaxation"][2] == pytest.approx(0.2, rel=1e-12) and np.isnan(layers["relaxation"][1])


def test_layers_that_a_failed_run_did_not_reach_have_no_values() -> None:
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(failing_recipe())
    layers = caught.value.run.layers
    assert list(layers["kind"]) == ["pre", "active", "active", "active"]  # no row belongs to the last
    assert np.isnan(layers["x_in_end"][3]) and np.isnan(layers["eps_xx_z"][4])
    assert layers["x_in"][2] == pytest.approx(0.19, abs=0.01)  # as the example's comment says


def test_nan_rows_give_a_warning() -> None:
    (warning,) = failed_run(recipe_with_nan()).warnings
    assert warning.startswith("Unphysical values in ") and warning.endswith(" is NaN")
    assert vorlen.run(V_DEFECTS).warnings == []


def test_names_units_and_meanings_of_the_columns_are_those_of_the_manual() -> None:
    layers = layers_of(result([("a", 1, 1)], [row(time=0), row(time=1, z=1)]))
    columns = table_of("python.md", "| column of `layers` | unit | meaning |")
    assert [[name, layers.attrs["units"][name], layers.attrs["meanings"][name]] for name in layers] == columns
    assert len(columns) == 22
    names = [name for cells in table_of("result-format.md", "| identifier | unit | value |") for name in cells[0].split()]
    assert {name.rstrip(",") for name in names} == set(layers)


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_thickness_and_growth_agree(path: Path) -> None:
    run = vorlen.run(path)
    layers = run.layers
    assert layers["thickness"].sum() == pytest.approx(run.end["z"], rel=1e-9)
    fractions = layers[["x_in", "x_ga", "x_al"]].sum(axis=1)
    assert fractions.to_numpy() == pytest.approx(np.ones(len(layers)), abs=1e-9)


@pytest.mark.parametrize("recipe", [*EXAMPLES, failing_recipe], ids=lambda recipe: getattr(recipe, "stem", "failing"))
def test_the_command_line_tool_gives_the_same_values(recipe, tmp_path: Path) -> None:
    path = tmp_path / "r.result.txt"
    try:
        run = vorlen.run(recipe if isinstance(recipe, Path) else recipe(), path)
    except vorlen.SimulationError as error:
        run = error.run
    shown = subprocess.run([tool(), "show", "--json", run.path], capture_output=True, text=True, check=True)
    table = json.loads(shown.stdout)["layers"]
    assert len(table) == len(run.layers)
    for ours, theirs in zip(run.layers.to_dict("records"), table):
        assert set(ours) == set(theirs) - {"number"}
        for name in ours:
            if isinstance(ours[name], str):
                assert ours[name] == theirs[name], name
            elif theirs[name] is None:
                assert np.isnan(ours[name]), name
            else:
                assert ours[name] == pytest.approx(theirs[name], rel=1e-9, abs=1e-12), name


def test_thousands_of_layers_take_no_longer_per_layer_than_a_few() -> None:
    """4000 layers in less than half a second; each was compared with all rows before, which took 40 s."""
    count = 4000
    rows = [row(time=t / 10, z=t / 10, x_in=0.1 + 0.1 * (t // 10 % 2)) for t in range(10 * count + 1)]
    run = vorlen.Run(result([("layer", 1.0, 1.0)] * count, rows).encode())
    _ = run.profile
    durations = []
    for table in ("layers", "interfaces"):
        begin = time.process_time()
        assert len(getattr(run, table)) > count - 2
        durations.append(time.process_time() - begin)
    assert max(durations) < 1.0, durations
    layers = run.layers
    # The last tenth of a layer leads to the fraction of the next one: 0.9 of it at one value, 0.1 at the mean of both.
    assert layers["x_in"][1] == pytest.approx(0.105) and layers["x_in"][count] == pytest.approx(0.195)


def test_rows_that_go_back_in_time_or_have_none_belong_to_the_layers_of_their_times() -> None:
    points = ((0, 0, 0.0), (3, 3, 0.3), (1, 1, 0.1), (np.nan, 9, 0.9), (4, 4, 0.4))
    rows = [row(time=t, z=z, x_in=x) for t, z, x in points]
    layers = layers_of(result([("a", 2, 2), ("b", 2, 2)], rows))
    assert list(layers["x_in_end"]) == [0.1, 0.4]  # of the last row in each layer
