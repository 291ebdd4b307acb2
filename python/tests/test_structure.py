"""Repeated groups, wells, barriers, the active region and the sentence about what grew, on structures stated here.

The expected values are those with which each structure is built.
"""

from __future__ import annotations

import time
from typing import Any

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import MQW, ROOT, V_DEFECTS, failed_run, failing_recipe, recipe_with_a_pause, recipe_with_nan
from vorlen._pages.report_stack import layer_stack
from vorlen._runs.repeats import Group
from vorlen._runs.structure import groups_of, heights, structure_of
from vorlen._runs.structure_text import length, sentence

Layer = tuple[Any, ...]
NBSP = "\u00a0"


def table(*layers: Layer, **columns: Any) -> pd.DataFrame:
    """Run.layers of layers (kind, name, thickness in nm, In, Al[, In at the end, Al at the end]); 1 s per nm."""
    rows, clock = [], 0.0
    for kind, name, thickness, x_in, x_al, *end in layers:
        in_end, al_end = end or (x_in, x_al)
        duration = max(abs(np.nan_to_num(thickness)), 1.0)
        rows.append({
            "name": name, "kind": kind, "begin": clock, "end": clock + duration, "duration": duration,
            "thickness": float(thickness), "x_in": x_in, "x_ga": 1.0 - x_in - x_al, "x_al": x_al,
            "x_in_end": in_end, "x_ga_end": 1.0 - in_end - al_end, "x_al_end": al_end,
            "relaxation": float("nan"), "v_defects_t": 0.0,
        })
        clock += duration
    frame = pd.DataFrame(rows, index=pd.RangeIndex(1, len(rows) + 1, name="layer"))
    for name, values in columns.items():
        frame[name] = values
    return frame


def words(layers: pd.DataFrame, **options: Any) -> str:
    return sentence(layers, **options).replace(NBSP, " ")


TEMPLATE = ("pre", "template", 2000, 0, 0)
CAP = ("post", "p-GaN", 100, 0, 0)


def wells(count: int, well: float = 3.0, indium: float = 0.15, barrier: float = 12.0) -> list[Layer]:
    """Wells with a barrier below each."""
    period = [("active", "barrier", barrier, 0, 0), ("active", "well", well, indium, 0)]
    return period * count


LAST = ("active", "last barrier", 12, 0, 0)


@pytest.mark.parametrize(
    ("layers", "expected"),
    [
        ([TEMPLATE, *wells(5), LAST, CAP], "5 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template."),
        ([TEMPLATE, *wells(1), LAST], "1 well of 3.00 nm In 0.150 in GaN, on a 2.00 µm GaN template."),
        # the last well is at the surface
        ([TEMPLATE, *wells(3)], "3 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template."),
        # the first well lies on the template, which is its barrier
        ([TEMPLATE, *wells(3)[1:], LAST], "3 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template."),
        # wells and barriers that differ
        (
            [TEMPLATE, *wells(1), *wells(1, 3.5, 0.18, 11.0), *wells(1, 3.2, 0.16, 13.0), LAST],
            "3 wells of 3.00 to 3.50 nm In 0.150 to 0.180 in 11.0 to 13.0 nm GaN, on a 2.00 µm GaN template.",
        ),
        # ramps belong to the barrier: 10 + 1 + 1 nm
        (
            [TEMPLATE, *[
                ("active", "barrier", 10, 0, 0), ("active", "cooling", 1, 0, 0), ("active", "well", 3, 0.15, 0),
                ("active", "heating", 1, 0.004, 0),
            ] * 4, LAST],
            "4 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template.",
        ),
        # a thin start of the well, with less indium, belongs to one of its interfaces
        (
            [TEMPLATE, *[("active", "b", 9, 0, 0), ("active", "ramp", 0.5, 0.02, 0), ("active", "w", 3, 0.15, 0)] * 2, LAST],
            "2 wells of 3.00 nm In 0.150 in 9.50 nm GaN, on a 2.00 µm GaN template.",
        ),
        # wells of an ultraviolet LED
        (
            [("pre", "AlN", 3000, 0, 1), ("active", "n-AlGaN", 500, 0, 0.6), *[
                ("active", "barrier", 10, 0, 0.55), ("active", "well", 2, 0, 0.4)] * 3, ("active", "last", 10, 0, 0.55),
             ("active", "EBL", 15, 0, 0.75)],
            "3 wells of 2.00 nm Al 0.400 in 10.0 nm Al 0.550, on 500 nm Al 0.600 on a 3.00 µm AlN template, under 15.0 nm Al 0.750.",
        ),
        # barriers with indium, wells with aluminium, and an exposed layer on a well that is not another well
        (
            [TEMPLATE, *[("active", "b", 8, 0.02, 0), ("active", "w", 3, 0.2, 0.05)] * 2, ("active", "b", 8, 0.02, 0)],
            "2 wells of 3.00 nm In 0.200 Al 0.050 in 8.00 nm In 0.020, on a 2.00 µm GaN template.",
        ),
        (
            [TEMPLATE, *wells(2), ("active", "top", 3, 0.12, 0)],
            "2 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template, under 3.00 nm In 0.120.",
        ),
        # thick layers next to the wells are named, also if they are like the barriers
        (
            [("pre", "AlN", 3000, 0, 1), ("active", "GaN", 500, 0, 0), *wells(2), ("active", "GaN", 100, 0, 0)],
            "2 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on 512 nm GaN on a 3.00 µm AlN template, under 100 nm GaN.",
        ),
        (
            [("pre", "AlN", 3000, 0, 1), ("active", "n", 500, 0, 0.6), ("active", "w", 2, 0, 0.4), ("active", "b", 9, 0, 0.5),
             ("active", "w", 2, 0, 0.4), ("active", "b", 9, 0, 0.5)],
            "2 wells of 2.00 nm Al 0.400 in 9.00 nm Al 0.500, on 500 nm Al 0.600 on a 3.00 µm AlN template.",
        ),
        (
            [TEMPLATE, ("active", "w", 3, 0.2, 0), ("active", "EBL", 15, 0, 0.15)],
            "1 well of 3.00 nm In 0.200 between GaN and Al 0.150, on a 2.00 µm GaN template.",
        ),
        # an underlayer and a shallow superlattice are not wells
        (
            [TEMPLATE, ("active", "underlayer", 8, 0.03, 0), *wells(2), LAST],
            "2 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on 8.00 nm In 0.030 on a 2.00 µm GaN template.",
        ),
        (
            [TEMPLATE, *wells(20, 1.5, 0.04, 1.5), *wells(2), LAST],
            "2 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on 20 × (1.50 nm GaN / 1.50 nm In 0.040) on a 2.00 µm GaN template.",
        ),
        # one layer
        ([TEMPLATE, ("active", "InGaN", 50, 0.1, 0)], "50.0 nm In 0.100 on a 2.00 µm GaN template."),
        ([("active", "GaN", 900, 0, 0)], "900 nm GaN."),
        ([TEMPLATE, ("active", "GaN", 900, 0, 0), ("active", "GaN", 100, 0, 0)], "1.00 µm GaN on a 2.00 µm GaN template."),
        ([("pre", "s", 100, 0, 0), ("active", "InN", 30, 1, 0)], "30.0 nm InN on a given 100 nm GaN layer."),
        # transistors
        (
            [("pre", "buffer", 1600, 0, 0), ("active", "channel", 70, 0, 0), ("active", "barrier", 20.8, 0, 0.26)],
            "20.8 nm Al 0.260 on 70.0 nm GaN on a 1.60 µm GaN template.",
        ),
        (
            [("pre", "buffer", 1600, 0, 0), ("active", "channel", 70, 0, 0), ("active", "spacer", 1, 0, 1),
             ("active", "barrier", 20, 0, 0.25), ("active", "cap", 2, 0, 0)],
            "20.0 nm Al 0.250 on 1.00 nm AlN on 70.0 nm GaN on a 1.60 µm GaN template, under 2.00 nm GaN.",
        ),
        ([TEMPLATE, ("active", "AlInN", 9, 0.18, 0.82)], "9.00 nm In 0.180 Al 0.820 on a 2.00 µm GaN template."),
        # graded: from 0 at the bottom to 0.25 at the top, mean 0.125
        (
            [TEMPLATE, ("active", "graded", 20, 0, 0.125, 0, 0.25), ("active", "AlGaN", 200, 0, 0.25)],
            "200 nm Al 0.250 on 20.0 nm graded from GaN to Al 0.250 on a 2.00 µm GaN template.",
        ),
        (
            [TEMPLATE, ("active", "graded", 20, 0, 0.175, 0, 0.25)],
            "20.0 nm graded from Al 0.100 to Al 0.250 on a 2.00 µm GaN template.",
        ),
        # a transistor with a graded transition and two caps
        (
            [TEMPLATE, ("active", "graded", 7, 0, 0.125, 0, 0.25), ("active", "AlGaN", 26, 0, 0.25), ("active", "c", 3, 0, 0),
             ("active", "c2", 2, 0, 0)],
            "26.0 nm Al 0.250 on 7.00 nm graded from GaN to Al 0.250 on a 2.00 µm GaN template, under 5.00 nm GaN.",
        ),
        # a thick layer below a cap
        (
            [TEMPLATE, ("active", "InGaN", 38, 0.22, 0), ("active", "cap", 2, 0, 0)],
            "38.0 nm In 0.220 on a 2.00 µm GaN template, under 2.00 nm GaN.",
        ),
        # wells that differ by a little
        (
            [TEMPLATE, *wells(1, 2.40), *wells(1, 2.43), LAST],
            "2 wells of 2.42 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template.",
        ),
        # mirrors: layers thicker than wells
        (
            [TEMPLATE, *[("active", "AlInN", 45, 0.18, 0.82), ("active", "GaN", 40, 0, 0)] * 20],
            "20 pairs of 45.0 nm In 0.180 Al 0.820 and 40.0 nm GaN, on a 2.00 µm GaN template.",
        ),
        (
            [TEMPLATE, *[("active", "a", 45, 0.18, 0.82), ("active", "ramp", 2, 0, 0), ("active", "b", 38, 0, 0)] * 3,
             ("active", "cap", 100, 0, 0.1)],
            "3 pairs of 45.0 nm In 0.180 Al 0.820 and 40.0 nm GaN, on a 2.00 µm GaN template, under 100 nm Al 0.100.",
        ),
        # nothing grew
        # What is simulated and what is given are not added; "eight" and "eleven" start with a vowel.
        ([("pre", "a", 8000, 0, 0), ("active", "b", 1500, 0, 0), ("active", "c", 50, 0.1, 0)],
         "50.0 nm In 0.100 on 1.50 µm GaN on an 8.00 µm GaN template."),
        ([("pre", "a", 1100, 0, 0), ("active", "c", 50, 0.1, 0)], "50.0 nm In 0.100 on a 1.10 µm GaN template."),
        ([TEMPLATE, ("active", "pause", -1.2, 0, 0)], "nothing grew on a 2.00 µm GaN template; 1.20 nm evaporated."),
        ([TEMPLATE, ("active", "pause", 0, float("nan"), 0)], "nothing grew on a 2.00 µm GaN template."),
        ([TEMPLATE, ("active", "a", float("nan"), float("nan"), 0)], "what grew on a 2.00 µm GaN template is unknown."),
        ([TEMPLATE, ("active", "a", 5, -0.2, 0)], "The composition of what grew is unphysical."),
        # many different layers: the first, the number of the rest, and the layer at the bottom
        (
            [TEMPLATE, *[("active", "n", 20 + i, 0, 0.02 * (i % 7)) for i in range(300)]],
            "319 nm Al 0.100 on 318 nm Al 0.080 on 317 nm Al 0.060 on 297 more layers on a 2.00 µm GaN template.",
        ),
    ],
)
def test_the_sentence_describes_what_grew(layers: list[Layer], expected: str) -> None:
    assert words(table(*layers)) == expected


def test_the_sentence_of_a_failed_run_describes_what_grew_until_then() -> None:
    nan = float("nan")
    layers = table(TEMPLATE, *wells(2), ("active", "not reached", 12, nan, nan), ("active", "p-GaN", 100, nan, nan))
    # The second well has nothing above it, but is like the first.
    assert words(layers, failed=True) == "Before the run failed: 2 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template."


def test_the_sentence_says_how_far_a_layer_relaxed() -> None:
    layers = table(TEMPLATE, ("active", "InGaN", 80, 0.2, 0), relaxation=[float("nan"), 0.35], v_defects_t=[0, 4.8e11])
    assert words(layers) == "80.0 nm In 0.200 on a 2.00 µm GaN template; relaxed by 35 % with 4.8×10¹¹ V-defects per cm²."
    layers["v_defects_t"] = 0.0
    assert words(layers).endswith("; relaxed by 35 %.")
    layers["relaxation"] = 0.01
    assert words(layers) == "80.0 nm In 0.200 on a 2.00 µm GaN template."


def test_the_middle_of_a_layer_counts_where_it_is_known() -> None:
    layers = table(TEMPLATE, *wells(2), LAST)
    for metal, well, other in (("x_in", 0.2, 0.0), ("x_ga", 0.8, 1.0), ("x_al", 0.0, 0.0)):
        layers[f"{metal}_mid"] = [well if name == "well" else other for name in layers["name"]]
    assert words(layers).startswith("2 wells of 3.00 nm In 0.200 in")


def test_pauses_above_graded_wells_are_not_wells() -> None:
    # the wells become richer while they relax; what is left of the pause has less indium than their top
    period = [("active", "b", 12, 0, 0), ("active", "w", 7, 0.236, 0, 0.283, 0), ("active", "pause", 0.03, 0.245, 0, 0, 0)]
    layers = table(TEMPLATE, *period * 3, LAST, x_in_mid=[0, *(0, 0.229, 0.245) * 3, 0], x_ga_mid=0.8, x_al_mid=0)
    layers["x_ga_mid"] = 1 - layers["x_in_mid"]
    # a pause belongs to the well: 7 + 0.03 nm; its mean by thickness is that of the middle of the well
    assert words(layers) == "3 wells of 7.03 nm In 0.229 in 12.0 nm GaN, on a 2.00 µm GaN template."


def test_a_layer_that_starts_with_an_interface_is_not_graded() -> None:
    layers = table(TEMPLATE, ("active", "s", 2, 0, 0), ("active", "w", 4, 0.4, 0), ("active", "cap", 2.1, 0.032, 0, 0, 0))
    middle = layers.assign(x_in_mid=[0, 0, 0.4, 0], x_ga_mid=[1, 1, 0.6, 1], x_al_mid=0)
    assert words(middle) == "1 well of 4.00 nm In 0.400 in GaN, on a 2.00 µm GaN template."


def test_a_layer_with_a_steady_composition_is_graded_and_one_with_a_jump_is_not() -> None:
    layers = table(TEMPLATE, ("active", "a", 20, 0.18, 0, 0.23, 0))
    assert words(layers.assign(x_in_mid=[0, 0.18], x_ga_mid=[1, 0.82], x_al_mid=0)).startswith("20.0 nm graded from In 0.130 to")
    # 0.15 below and 0.23 above: no part of the layer has 0.13
    assert words(layers.assign(x_in_mid=[0, 0.17], x_ga_mid=[1, 0.83], x_al_mid=0)).startswith("20.0 nm In 0.170 on")


def test_what_is_thinner_than_a_monolayer_is_not_a_layer() -> None:
    below = [TEMPLATE, ("active", "GaN", 100, 0, 0), ("active", "AlGaN", 15, 0, 0.5)]
    assert words(table(*below, ("active", "cap", 0.005, 0, 0.45))) == "15.0 nm Al 0.500 on 100 nm GaN on a 2.00 µm GaN template."
    # nor below the surface, unlike a spacer of one and a half monolayers
    upper = ("active", "AlGaN", 15, 0, 0.2)
    assert words(table(*below[:2], ("active", "s", 0.1, 0, 0.9), upper)) == "15.1 nm Al 0.200 on 100 nm GaN on a 2.00 µm GaN template."
    assert words(table(*below[:2], ("active", "s", 0.4, 0, 1), upper)) == "15.0 nm Al 0.200 on 0.400 nm AlN on 100 nm GaN on a 2.00 µm GaN template."
    assert words(table(*below, ("active", "cap", 0.5, 0, 0))) == "15.0 nm Al 0.500 on 100 nm GaN on a 2.00 µm GaN template, under 0.500 nm GaN."


def test_wells_a_little_thicker_than_others_are_wells() -> None:
    layers = [TEMPLATE, *wells(1, 14.0, 0.5, 9.0), *wells(1, 16.0, 0.5, 9.0), ("active", "last barrier", 9, 0, 0)]
    assert words(table(*layers)) == "2 wells of 14.0 to 16.0 nm In 0.500 in 9.00 nm GaN, on a 2.00 µm GaN template."
    # alone, it is not a well
    assert words(table(TEMPLATE, *wells(1, 16.0), LAST)).startswith("16.0 nm In 0.150 on")


def test_the_rest_of_a_pause_does_not_count_for_the_relaxation() -> None:
    layers = table(TEMPLATE, *wells(1), ("active", "pause", 0.03, 0.1, 0), LAST)
    layers["relaxation"] = [np.nan, np.nan, 0.06, 0.76, np.nan]
    assert words(layers).endswith("; relaxed by 6 %.")


def test_an_evaporating_pause_makes_the_layer_below_thinner() -> None:
    layers = table(TEMPLATE, ("active", "a", 5, 0, 0), ("active", "b", 3, 0.1, 0), ("active", "pause", -4, 0, 0))
    assert words(layers) == "4.00 nm GaN on a 2.00 µm GaN template."
    assert structure_of(layers).roles == {1: "layer", 2: "layer", 3: "transition", 4: "transition"}


def test_lengths_have_three_digits() -> None:
    shown = {value: length(value).replace(NBSP, " ") for value in (0.75, 3.0, 12.04, 99.96, 100.4, 999.4, 999.6, 1670.0)}
    assert list(shown.values()) == [
        "0.750 nm", "3.00 nm", "12.0 nm", "100 nm", "100 nm", "999 nm", "1.00 µm", "1.67 µm"
    ]


def test_heights_start_at_the_first_simulated_layer() -> None:
    bottoms, tops = heights(table(("pre", "a", 50, 0, 1), TEMPLATE, ("active", "b", 7, 0, 0), LAST, CAP))
    assert list(bottoms) == [-2050, -2000, 0, 7, 19]
    assert list(tops) == [-2000, 0, 7, 19, 119]
    bottoms, tops = heights(table(("active", "b", 7, 0, 0), LAST))
    assert (list(bottoms), list(tops)) == ([0, 7], [7, 19])


# ---- repeated groups


def test_repeated_layers_are_one_group() -> None:
    layers = table(TEMPLATE, *wells(5), LAST, CAP)
    assert groups_of(layers) == [Group(0, 1, 1), Group(1, 2, 5), Group(11, 1, 1), Group(12, 1, 1)]


def test_layers_that_differ_a_little_are_repeated_and_others_are_not() -> None:
    def of(thickness: float, indium: float) -> list[Group]:
        return groups_of(table(*wells(2), ("active", "barrier", 12, 0, 0), ("active", "well", thickness, indium, 0)))

    assert of(3.05, 0.154) == [Group(0, 2, 3)]
    assert of(3.10, 0.15) == [Group(0, 2, 2), Group(4, 1, 1), Group(5, 1, 1)]  # 3 % thicker
    assert of(3.0, 0.156) == [Group(0, 2, 2), Group(4, 1, 1), Group(5, 1, 1)]


def test_layers_that_drift_are_not_one_group() -> None:
    # 1 % per period: within 2 % of the first are the first three.
    drifting = [("active", "n", 10 * 1.0099**period, 0, 0) for period in range(6)]
    assert groups_of(table(*drifting)) == [Group(0, 1, 3), Group(3, 1, 3)]


def test_the_longest_repetition_is_found_even_if_a_short_one_starts_earlier() -> None:
    one, two = ("active", "a", 5, 0, 0), ("active", "b", 5, 0.1, 0)
    assert groups_of(table(one, *[one, two] * 4)) == [Group(0, 1, 1), Group(1, 2, 4)]


def test_no_layers_have_no_groups_and_no_region() -> None:
    empty = table(TEMPLATE).iloc[:0]
    assert groups_of(empty) == [] and structure_of(empty).region is None
    assert structure_of(table(TEMPLATE)).region is None


def test_thousands_of_layers_take_little_time() -> None:
    layers = table(TEMPLATE, *wells(2000), LAST)
    start = time.process_time()
    assert groups_of(layers)[1] == Group(1, 2, 2000)
    assert words(layers) == "2000 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on a 2.00 µm GaN template."
    assert time.process_time() - start < 2.0  # s


def test_ramps_differ_from_barriers_by_what_is_between_the_wells() -> None:
    # The first barrier is joined with the buffer, but it is not a ramp: the wells are 4 + 1 nm apart.
    period = [("active", "cool", 0.5, 0, 0), ("active", "well", 3, 0.2, 0), ("active", "heat", 0.5, 0, 0), ("active", "barrier", 4, 0, 0)]
    layers = table(TEMPLATE, ("active", "n-GaN", 500, 0, 0), ("active", "barrier", 4, 0, 0), *period, *period)
    roles = structure_of(layers).roles
    named = {layers["name"][number]: {role for at, role in roles.items() if layers["name"][at] == layers["name"][number]}
             for number in roles}
    assert named == {
        "template": {"layer"}, "n-GaN": {"barrier"}, "barrier": {"barrier"}, "well": {"well"},
        "cool": {"transition"}, "heat": {"transition"},
    }


# ---- the active region


def region(layers: pd.DataFrame) -> tuple[str, float, float, float, float]:
    found = structure_of(layers).region
    assert found is not None
    return (found.why, *(pytest.approx(value) for value in (found.low, found.high, found.begin, found.end)))


def test_wells_and_the_barriers_next_to_them_are_the_active_region() -> None:
    # 100 nm GaN, then wells 3 nm in 12 nm, then 50 nm GaN: 12 nm on both sides. 1 s per nm; the template takes 2000 s.
    layers = table(TEMPLATE, ("active", "buffer", 100, 0, 0), *wells(3), ("active", "top", 50, 0, 0))
    assert region(layers) == ("wells", 100, 100 + 3 * 15 + 12, 2100, 2157)
    roles = structure_of(layers).roles
    assert [number for number, role in roles.items() if role == "well"] == [4, 6, 8]
    assert {number for number, role in roles.items() if role == "barrier"} == {2, 3, 5, 7, 9}


def test_slivers_of_layers_beside_the_barriers_are_not_in_the_region() -> None:
    # The wells are 12 nm apart. Of the barriers below and above 10 nm are left, 2 nm would be buffer and 2 nm top.
    layers = table(TEMPLATE, ("active", "buffer", 100, 0, 0), ("active", "barrier", 10, 0, 0.01), *wells(3)[1:],
                   ("active", "barrier", 10, 0, 0.01), ("active", "top", 50, 0, 0))
    found = structure_of(layers).region
    assert found is not None
    bottom, top = 110, 110 + 3 * 3 + 2 * 12  # of the wells
    assert (found.low, found.high) == pytest.approx((bottom - 10, top + 10))


def test_a_barrier_a_little_thicker_than_the_others_is_in_the_region_as_a_whole() -> None:
    first = ("active", "barrier", 12.001, 0, 0)
    region = structure_of(table(TEMPLATE, ("active", "n", 500, 0, 0.3), first, *wells(3)[1:], LAST)).region
    assert region is not None and region.low == 500


def test_a_transistor_s_region_is_its_barrier() -> None:
    layers = table(TEMPLATE, ("active", "channel", 70, 0, 0), ("active", "barrier", 20, 0, 0.25), ("active", "cap", 2, 0, 0))
    assert region(layers) == ("barrier", 50, 92, 2050, 2092)


def test_pairs_of_a_mirror_are_the_region() -> None:
    pairs = [("active", "AlInN", 45, 0.18, 0.82), ("active", "GaN", 40, 0, 0)] * 3
    layers = table(TEMPLATE, ("active", "buffer", 500, 0, 0), *pairs, ("active", "cap", 100, 0, 0.1))
    assert region(layers) == ("periods", 500, 755, 2500, 2755)


def test_a_thick_layer_with_indium_is_the_region() -> None:
    layers = table(TEMPLATE, ("active", "GaN", 100, 0, 0), ("active", "InGaN", 50, 0.1, 0), ("active", "GaN", 100, 0, 0))
    assert region(layers) == ("indium", 95, 155, 2095, 2155)


def test_the_region_of_a_thick_layer_under_a_cap_is_the_layer() -> None:
    # too thick for the barrier of a transistor; 0.1 of its thickness below it is shown
    layers = table(TEMPLATE, ("active", "GaN", 1800, 0, 0), ("active", "AlGaN", 150, 0, 0.13), ("active", "cap", 4, 0, 0))
    region = structure_of(layers).region
    assert region is not None and (region.low, region.high) == (1785, 1954)


def test_otherwise_the_uppermost_layer_is_the_region() -> None:
    layers = table(TEMPLATE, ("active", "GaN", 100, 0, 0), ("active", "AlGaN", 200, 0, 0.1))
    assert region(layers) == ("top", 80, 300, 2080, 2300)
    assert region(table(TEMPLATE, ("active", "GaN", 100, 0, 0))) == ("top", 0, 100, 2000, 2100)


@pytest.mark.parametrize("seed", range(100))
def test_any_layers_are_described(seed: int) -> None:
    """Random layers, also of pauses that evaporate and of unknown composition."""
    random = np.random.default_rng(seed)
    count = int(random.integers(1, 30))
    fractions = random.choice([0.0, 0.0, 0.1, 0.12, 0.25, 0.5], (count, 2)) * random.choice([1.0, 1.0, 0.97, np.nan], (count, 1))
    sizes = random.choice([0.01, 0.5, 3.0, 3.0, 12.0, 12.0, 80.0, 0.0, -0.5, -20.0, np.nan], count)
    kinds = ["pre"] * int(random.integers(0, 3)) + ["active"] * count + ["post"] * int(random.integers(0, 3))
    layers = table(*[
        (kind, random.choice(["a", "b", "c"]), sizes[at % count] if kind == "active" else 50.0, *fractions[at % count])
        for at, kind in enumerate(kinds)
    ])
    found = structure_of(layers)
    text = words(layers)
    assert text.endswith(".") and "nan" not in text and "  " not in text
    assert sum(group.size * group.periods for group in groups_of(layers)) == len(layers)
    assert set(found.roles) == set(layers.index)
    left = [slab for slab in found.slabs if slab.kind == "active"]
    assert all(slab.thickness > 0 for slab in left)
    assert all(low.top == pytest.approx(high.bottom) for low, high in zip(left, left[1:]))
    assert (found.region is None) == (not left)
    if found.region is not None:
        assert left[0].bottom <= found.region.low < found.region.high <= left[-1].top
        assert layers["begin"].iloc[0] <= found.region.begin <= found.region.end <= layers["end"].iloc[-1]
        assert found.region.numbers
    layer_stack(layers, found)  # no error


# ---- runs


@pytest.mark.parametrize(
    ("recipe", "start"),
    [
        # The comments of the examples give these numbers.
        (MQW, "3 wells of 3.46 nm In 0.2"),
        (ROOT / "examples" / "algan_gan_hemt.xml", "20.8 nm Al 0.25"),
        (V_DEFECTS, "1 well of 5.91 nm In 0.19"),
        (ROOT / "examples" / "gan_thick_ccs.xml", "1.09 µm GaN on a given 25.0 nm GaN layer."),
    ],
)
def test_examples_are_described(recipe: Any, start: str) -> None:
    run = vorlen.run(recipe)
    assert words(run.layers).startswith(start)
    found = structure_of(run.layers).region
    assert found is not None
    active = run.layers[run.layers["kind"] == "active"]
    assert active["begin"].iloc[0] <= found.begin < found.end <= active["end"].iloc[-1]
    assert 0 <= found.low < found.high <= active["thickness"].sum() + 1e-9


@pytest.mark.parametrize("recipe", [failing_recipe(), recipe_with_a_pause(), recipe_with_nan()])
def test_failed_runs_are_described(recipe: vorlen.Recipe) -> None:
    text = words(failed_run(recipe).layers, failed=True)
    assert text.startswith("Before the run failed: ") and text.endswith(".") and "nan" not in text
