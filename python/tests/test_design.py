"""Designs reach their targets, and recognise what is out of reach. Results are checked by separate runs."""

from __future__ import annotations

import math
import threading

import numpy as np
import pytest

import vorlen
from support import MQW, ROOT, V_DEFECTS
from vorlen._design.knobs import KNOBS, SHIFT
from vorlen._design.steps import least_squares_step
from vorlen._sweep.pool import LocalPool

LED = ROOT / "examples" / "blue_led.xml"
LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one layer, InGaN, that runs within milliseconds
FLOW = "gas_species/Q/TMIn"
STAGE = "process_stages/stage_1"
WELL = "process_stages/stage_4/stage_4_3"
BLOCKING = "process_stages/stage_7"
LED_TARGETS = {
    "layers": [
        {"layer": "n-GaN", "thickness": "2 um", "by": "tau"},
        {"layer": "InGaN well", "thickness": "3 nm", "In": 0.15, "by": ["tau", "TMIn"]},
        {"layer": "p-AlGaN blocking layer", "thickness": "15 nm", "Al": 0.15, "by": ["tau", "TMAl"]},
    ]
}


@pytest.fixture(scope="module")
def pool():
    with LocalPool(2) as workers:
        yield workers


@pytest.fixture
def design(pool, tmp_path):
    """vorlen.design() with shared worker processes."""
    return lambda recipe, targets, **options: vorlen.design(
        recipe, targets, executor=pool, **{"out": tmp_path / "design", "check": False, **options}
    )


def name_of_layer() -> str:
    return str(vorlen.Recipe.load(LAYER).timeline().name[2])


def single(**entry) -> dict[str, list]:
    return {"layers": [{"layer": 2, **entry}]}


def grown(recipe: vorlen.Recipe, layer: str | int):
    """The layers of a name, or with a number, of a separate run."""
    layers = vorlen.run(recipe).layers
    return layers.loc[[layer]] if isinstance(layer, int) else layers[layers.name == layer]


# ---- targets that can be reached


@pytest.mark.parametrize(("factor", "shift"), [(1.0, 0.0), (3.0, -40.0), (1.0 / 3.0, 40.0)])
def test_a_diode_reaches_five_targets_from_flows_off_by_three_and_40_k(design, factor, shift):
    start = vorlen.Recipe.load(LED)
    for path in (f"{WELL}/{FLOW}", f"{BLOCKING}/gas_species/Q/TMAl"):
        start[path] = factor * start[path][0]
    for path in (f"{WELL}/T", f"{BLOCKING}/T"):
        start[path] = start[path][0] + shift
    made = design(start, LED_TARGETS)
    assert made.success and made.warnings == [] and made.table.met.all()
    assert made.runs <= 12  # 25 are allowed
    assert made.recipe["integration/scheme"] == "staged"
    layers = vorlen.run(made.recipe).layers
    for name, thickness, column, fraction in (
        ("n-GaN", 2000.0, None, None), ("InGaN well", 3.0, "x_in", 0.15), ("p-AlGaN blocking layer", 15.0, "x_al", 0.15)
    ):
        rows = layers[layers.name == name]
        assert math.isclose(rows.thickness.mean(), thickness, rel_tol=1e-3)
        assert column is None or abs(rows[column].mean() - fraction) <= 1e-3
    # Nothing else was changed.
    changed = set(made.knobs.path)
    for path in start.paths():
        assert path in changed or path == "integration/scheme" or made.recipe[path] == start[path]


def test_random_reachable_targets_are_reached(design):
    """The targets are results of the recipe with random knobs. python/bench/design.py has more and larger ones."""
    random = np.random.default_rng(5)
    base = vorlen.Recipe.load(LAYER).with_scheme("staged")
    for knobs, quantities in (
        (["TMIn", "tau"], {"In": "x_in", "thickness": "thickness"}),
        (["T", "TMIn", "tau"], {"In final": "x_in_end", "thickness": "thickness"}),
        (["T", "TEGa"], {"strain": "eps_xx_z", "rate": "mean_rate"}),
        (["TMIn", "TEGa", "P"], {"In middle": "x_in_mid", "rate": "mean_rate"}),
    ):
        for _ in range(3):
            recipe = base.copy()
            for knob in knobs:
                path = f"{STAGE}/{KNOBS[knob]}"
                value, share = np.mean(recipe[path]), random.uniform(-1.0, 1.0)
                recipe[path] = float(value + 40.0 * share if knob == "T" else value * 2.0**share)
            (_, row), = grown(recipe, 2).iterrows()
            wanted = {quantity: float(row[column]) for quantity, column in quantities.items()}
            made = design(base, single(**wanted, by=knobs))
            assert made.success, (knobs, wanted, made.warnings)
            (_, row), = grown(made.recipe, 2).iterrows()
            for quantity, column in quantities.items():
                tolerance = {"strain": 1e-5, "rate": 1e-3 * wanted[quantity], "thickness": 1e-3 * wanted[quantity]}
                assert abs(row[column] - wanted[quantity]) <= tolerance.get(quantity, 1e-3)


def test_more_knobs_than_targets_change_as_little_as_they_can(design):
    made = design(LAYER, single(thickness=6, by=["tau", "TEGa"]))
    assert made.success
    before, after = made.knobs.before, made.knobs.after
    assert after[0] / before[0] > 1.01 and after[1] / before[1] > 1.01  # both, as both have an effect
    alone = design(LAYER, single(thickness=6, by="tau")).knobs
    assert after[0] / before[0] < alone.after[0] / alone.before[0]


def test_a_preference_chooses_among_solutions(design):
    targets = single(In=0.15, thickness=4, by=["tau", "TMIn", "TEGa"]) | {
        "limits": {"TEGa": [0.2, 2.0], "TMIn": [0.01, 5.0]}
    }
    ratios = []
    for preference in ({}, {"V/III": "high"}, {"V/III": "low"}):
        made = design(LAYER, targets | {"prefer": preference})
        assert made.success and made.warnings == []
        metals = made.recipe[f"{STAGE}/gas_species/Q/TEGa"][0] + made.recipe[f"{STAGE}/{FLOW}"][0]
        ratios.append(made.recipe[f"{STAGE}/gas_species/Q/NH3"][0] / metals)
        (_, row), = grown(made.recipe, 2).iterrows()
        assert abs(row.x_in - 0.15) <= 1e-3 and abs(row.thickness - 4.0) <= 4e-3
    assert ratios[1] > 1.2 * ratios[0] and ratios[2] < 0.8 * ratios[0]
    # The fraction depends on the ratio of the flows, so the least of all metals is at the lowest gallium.
    assert math.isclose(made.recipe[f"{STAGE}/gas_species/Q/TEGa"][0], 2.0, rel_tol=0.02) or made.knobs.at_limit.any()


def test_densities_that_the_stress_model_does_not_compute_are_a_warning(design):
    made = design(LAYER, single(**{"thickness": 3, "V-defects": "none", "by": "tau"}))
    text = "the stress model of the recipe, none, does not compute them; V_dislocation does"
    assert made.success and made.warnings == [f"V-defects of layer 2 (InGaN): {text}"]
    # Nothing else is said about a target that is missed for this reason.
    made = design(LAYER, single(dislocations="at most 1e8", by="TMIn"))
    assert made.warnings == [f"dislocations of layer 2 (InGaN): {text}"] and not made.success


def test_a_target_of_growth_in_a_pause_without_metals_is_a_warning(design):
    recipe = vorlen.Recipe.load(LAYER)
    recipe[f"{STAGE}/{FLOW}"] = recipe[f"{STAGE}/gas_species/Q/TEGa"] = 0
    text = "no metals flow in layer 2 (InGaN): it can only grow from residues in the gas and on the surface"
    assert text in design(recipe, single(thickness="2 nm", by="tau"), max_runs=3).warnings
    # Not where metals can be turned on, and not for what does not grow.
    flow = single(thickness="2 nm", by="TEGa") | {"limits": {"TEGa": "0.1 .. 2 sccm"}}
    assert text not in design(recipe, flow, max_runs=1).warnings
    assert text not in design(recipe, single(thickness="at most 2 nm", by="tau"), max_runs=1).warnings


def test_a_preference_without_spare_knobs_is_a_warning(design):
    made = design(LAYER, single(thickness=4, by="tau") | {"prefer": {"V/III": "high"}})
    assert made.success and made.warnings == ["prefer has no effect: no layer has more knobs than targets"]


def test_a_preference_for_what_is_not_a_knob_is_a_warning(design):
    made = design(LAYER, single(thickness=4, by=["tau", "TEGa"]) | {"prefer": {"P": "low"}})
    assert made.success and made.warnings == ["prefer P has no effect: P is not a knob"]


def test_a_knob_of_another_stage_is_named_after_it(design):
    entry = {"layer": "last GaN barrier", "thickness": 10, "by": "stage_1_3/tau"}
    made = design(MQW, {"layers": [entry], "limits": {"tau": "50 .. 500 s"}})
    assert "Hardly affected by tau of stage_1/stage_1_3 there" in made.warnings[0]
    assert made.table.knobs[0].startswith("tau of stage_1/stage_1_3 ") and made.knobs.layer[0] == "stage_1/stage_1_3"


def test_repeated_layers_count_by_their_mean(design):
    made = design(MQW, {"layers": [{"layer": "InGaN well", "thickness": 3, "In": 0.2, "by": ["tau", "T"]}]})
    assert made.success
    wells = grown(made.recipe, "InGaN well")
    assert len(wells) == 3
    assert math.isclose(wells.thickness.mean(), 3.0, rel_tol=1e-3) and abs(wells.x_in.mean() - 0.2) <= 1e-3
    assert math.isclose(made.table.reached[0], wells.thickness.mean(), rel_tol=1e-12)


def test_the_number_of_periods_is_a_knob(design):
    one = vorlen.run(MQW, scheme="staged").layers.thickness[2:6].sum()
    made = design(MQW, {"layers": [{"layer": "stage_1", "thickness": float(7 * one), "by": "periods"}]})
    assert made.success and made.recipe["process_stages/stage_1/n_periods"] == 7
    made = design(MQW, {"layers": [{"layer": "stage_1", "thickness": float(6.4 * one), "by": "periods"}]})
    assert not made.success and made.recipe["process_stages/stage_1/n_periods"] == 6
    assert "The number of periods is an integer, 6" in made.warnings[0]
    # Another knob takes what is left.
    made = design(MQW, {"layers": [
        {"layer": "stage_1", "thickness": float(6.4 * one), "by": ["periods", "stage_1/stage_1_1/tau"]}
    ]})
    assert made.success


def test_a_ramp_moves_as_a_whole(design):
    recipe = vorlen.Recipe.load(LAYER)
    recipe[f"{STAGE}/T"] = (1000.0, 1020.0)
    made = design(recipe, single(In=0.12, by="T"))
    begin, end = made.recipe[f"{STAGE}/T"]
    assert made.success and begin != 1000.0 and math.isclose(end - begin, 20.0, abs_tol=1e-3)
    assert made.knobs.before[0] == (1000.0, 1020.0) and made.knobs.after[0] == (begin, end)


def test_a_colder_well_takes_its_cap_and_its_ramps_with_it(design):
    made = design(LED, {"layers": [{"layer": "InGaN well", "In": 0.22, "by": "T"}]})
    assert made.success and made.warnings == [] and vorlen.check(made.recipe).empty
    heat = made.recipe[f"{WELL}/T"][0]
    assert heat < 1000.0 and made.recipe["process_stages/stage_4/stage_4_4/T"] == (heat, heat)
    assert made.recipe["process_stages/stage_4/stage_4_5/T"] == (heat, 1123.15)
    assert made.knobs.followers[0] == "cooling, GaN cap, heating"
    assert made.table.knobs[0].endswith(" K (with cooling, GaN cap, heating)")


def test_what_the_check_finds_in_the_designed_recipe_alone_is_a_warning(design):
    start = vorlen.Recipe.load(LAYER)
    assert "stage_1" not in set(vorlen.check(start).stage)
    made = design(start, single(thickness="2 um", by="tau"))  # InGaN that thick relaxes
    found = vorlen.check(made.recipe)
    new = [text for text in made.warnings if text.startswith("check of the designed recipe: ")]
    assert made.success and len(new) == len(found) - len(vorlen.check(start)) > 0


def test_a_layer_ends_before_v_defects_open(design):
    before = grown(vorlen.Recipe.load(V_DEFECTS).with_scheme("staged"), "InGaN")
    assert before.v_defects_t.iloc[0] > 1e8
    entry = {"layer": "InGaN", "thickness": 5.5, "V-defects": "none", "by": ["tau", "TMIn"]}
    made = design(V_DEFECTS, {"layers": [entry]})
    after = grown(made.recipe, "InGaN").iloc[0]
    assert made.success and after.v_defects_t == 0.0 and math.isclose(after.thickness, 5.5, rel_tol=1e-3)
    # Less indium is the only way: at the old flow V-defects open at less than 5.5 nm.
    assert after.x_in < before.x_in.iloc[0]


def test_a_dislocation_density_just_above_the_flow_at_which_v_defects_open_is_reached(design):
    """There it rises by half within a relative change of the flow of 2e-6."""
    made = design(V_DEFECTS, {"layers": [{"layer": "InGaN", "dislocations": "8e8 cm^-2", "by": "TMIn"}]})
    assert made.success and math.isclose(grown(made.recipe, "InGaN").rho_td_z.iloc[0], 8e8, rel_tol=1e-2)


def test_a_bound_that_holds_is_left_alone(design):
    made = design(LAYER, single(thickness="at least 0.1 nm", In="at most 0.9", by="tau"))
    assert made.success and made.runs == 1 and (made.knobs.before == made.knobs.after).all()
    made = design(LAYER, single(thickness="at most 1 nm", by="tau"))
    assert made.success and grown(made.recipe, 2).thickness.iloc[0] <= 1.0


def test_the_width_of_an_interface_is_a_target(design):
    recipe = vorlen.Recipe.load(LED).with_scheme("staged")
    run = vorlen.run(recipe)
    width = run.interfaces[(run.interfaces.below == "InGaN well")].width.mean()
    made = design(recipe, {"layers": [{"layer": "InGaN well", "upper interface": float(1.1 * width), "by": "T"}]})
    run = vorlen.run(made.recipe)
    reached = run.interfaces[(run.interfaces.below == "InGaN well")].width.mean()
    assert made.success and math.isclose(reached, 1.1 * width, rel_tol=1e-2)


def test_an_interface_without_a_step_has_no_width(design):
    made = design(MQW, {"layers": [{"layer": "GaN barrier", "lower interface": "1 nm", "by": "tau"}]})
    assert not made.success and made.warnings == [
        "lower interface of GaN barrier is undefined, as the composition makes no step there; the target is 1 nm"
    ]


def test_a_start_outside_of_the_limits_is_moved_inside(design):
    made = design(LAYER, single(In=0.1, by="TMIn") | {"limits": {"TMIn": [0.01, 0.15]}})
    assert made.recipe[f"{STAGE}/{FLOW}"][0] <= 0.15
    own = grown(vorlen.Recipe.load(LAYER).with_scheme("staged"), 2).x_in.iloc[0]
    assert made.table.start[0] == own and made.knobs.before[0] == 0.2  # both as in the recipe, not as moved inside
    assert any("outside of its limits; the search starts inside" in text for text in made.warnings)


@pytest.mark.parametrize("limits", ["1000 .. 1010 K", "1040 .. 1050 K"])
def test_limits_of_a_temperature_that_is_no_knob_change_nothing(design, limits):
    made = design(LAYER, single(In=0.45, thickness=3, by=["tau", "TMIn"]) | {"limits": {"T": limits, "TMIn": [0.1, 0.3]}})
    assert made.recipe[f"{STAGE}/T"] == vorlen.Recipe.load(LAYER)[f"{STAGE}/T"]
    (text,) = made.warnings
    assert "TMIn is at its upper limit" in text and "10 K lower" not in text


def test_a_flow_that_is_0_can_be_turned_on(design):
    recipe = vorlen.Recipe.load(LAYER)
    recipe[f"{STAGE}/{FLOW}"] = 0
    made = design(recipe, single(In=0.1, by="TMIn") | {"limits": {"TMIn": "0 .. 2 sccm"}})
    assert made.success and abs(grown(made.recipe, 2).x_in.iloc[0] - 0.1) <= 1e-3


# ---- targets out of reach


def test_indium_beyond_the_limit_of_the_flow_is_recognised_with_the_best_that_can_be_had(design):
    limit = 0.3
    made = design(LAYER, single(In=0.6, thickness=3, by=["tau", "TMIn"]) | {"limits": {"TMIn": [0.05, limit]}})
    assert not made.success and list(made.table.met) == [False, True]
    (text,) = made.warnings
    assert "is the best within the limits, the target is 0.6" in text
    assert "TMIn is at its upper limit 0.3 sccm" in text
    # Indium rises with its flow, so the limit is the best.
    best = grown(vorlen.Recipe.load(LAYER).with_scheme("staged").set(f"{STAGE}/{FLOW}", limit), 2).x_in.iloc[0]
    assert abs(made.table.reached[0] - best) < 2e-3 and made.knobs.at_limit[1] == "high"
    assert math.isclose(grown(made.recipe, 2).thickness.iloc[0], 3.0, rel_tol=1e-3)
    assert "10 K lower it would be" in text
    limits = {"TMIn": [0.05, limit], "T": f"{vorlen.Recipe.load(LAYER)[STAGE + '/T'][0] - 5} .. 1100 K"}
    made = design(LAYER, single(In=0.6, thickness=3, by=["tau", "TMIn"]) | {"limits": limits})
    assert "10 K lower" not in made.warnings[0]


@pytest.mark.parametrize(("thickness", "factor"), [("1 mm", 1000.0), ("1e-4 nm", 1e-3)])
def test_a_thickness_that_is_far_out_of_reach_ends_at_the_limit_of_the_duration(design, thickness, factor):
    made = design(LAYER, single(thickness=thickness, by="tau"))
    start = vorlen.Recipe.load(LAYER)[f"{STAGE}/tau"]
    assert not made.success and math.isclose(made.recipe[f"{STAGE}/tau"], factor * start, rel_tol=1e-6)
    assert f"tau is at its {'upper' if factor > 1.0 else 'lower'} limit" in made.warnings[0]


@pytest.mark.parametrize(("indium", "limit"), [(0.0, "lower limit 0.05"), (1.0, "upper limit 0.3")])
def test_a_fraction_of_0_or_1_ends_at_the_limit_of_the_flow(design, indium, limit):
    made = design(LAYER, single(In=indium, by="TMIn") | {"limits": {"TMIn": [0.05, 0.3]}})
    assert not made.success and f"TMIn is at its {limit} sccm" in made.warnings[0]
    # Its effect is stated correctly: compared with a difference of two separate runs.
    flow = float(limit.split()[-1])
    values = [grown(vorlen.Recipe.load(LAYER).with_scheme("staged").set(f"{STAGE}/{FLOW}", factor * flow), 2)
              for factor in (1.0, 1.0 / 1.03 if indium else 1.03)]
    effect = 0.1 * (values[1].x_in.iloc[0] - values[0].x_in.iloc[0]) / math.log(1.0 / 1.03 if indium else 1.03)
    stated = float(made.warnings[0].split("changes it by about ")[1].split()[0].rstrip("."))
    assert math.isclose(stated, effect, rel_tol=0.1)


def test_a_knob_with_little_effect_on_a_target_out_of_reach_stays_near_its_start(design):
    start = vorlen.Recipe.load(LAYER).with_scheme("staged")
    made = design(start, single(In=0.6, by=["tau", "TMIn"]) | {"limits": {"TMIn": [0.05, 0.3]}})
    assert not made.success and made.knobs.at_limit.tolist() == ["", "high"]
    before, after = made.knobs.before[0], made.knobs.after[0]
    assert after < 10.0 * before  # 1000 times is the limit
    # No duration within the limits has more indium by more than the tolerance, 0.001, and the layer of a shorter one,
    # by a quarter of the way on the logarithmic scale, has less by more than that.
    def indium(duration):
        recipe = start.copy().set(f"{STAGE}/{FLOW}", 0.3).set(f"{STAGE}/tau", float(duration))
        return grown(recipe, 2).x_in.iloc[0]

    scan = [indium(before * factor) for factor in (1.0, 3.0, 10.0, 100.0, 990.0)]
    assert max(scan) - made.table.reached[0] <= 0.001 + 1e-6
    assert max(scan) - indium(before ** 0.25 * after**0.75) > 0.001 or after == before


def test_a_default_limit_is_named_as_one(design):
    made = design(LAYER, single(In=0.9, by="TMIn"))
    assert "TMIn is at its upper limit" in made.warnings[0]
    assert "a default that limits: can widen" in made.warnings[0]


def test_fewer_knobs_than_targets_are_a_compromise_that_is_explained(design):
    made = design(LAYER, single(In=0.25, thickness=9, by="T"))
    assert not made.success
    assert any("2 targets share 1 knob: T also sets" in text for text in made.warnings)


def test_a_knob_without_effect_is_named(design):
    made = design(LAYER, single(In=0.25, by="tau"))
    assert not made.success and "Hardly affected by tau there" in made.warnings[0]


def test_a_target_without_a_knob_for_it_leaves_the_others_exact(design):
    made = design(LAYER, single(thickness=3, rate=0.1, by="tau"))
    assert list(made.table.met) == [True, False] and len(made.warnings) == 1
    assert made.warnings[0].startswith("rate of layer 2 (InGaN): ") and "Hardly affected by tau" in made.warnings[0]
    assert math.isclose(grown(made.recipe, 2).thickness.iloc[0], 3.0, rel_tol=1e-3)


def test_a_layer_that_evaporates_is_named_as_one(design):
    start = vorlen.Recipe.load(LAYER)
    start[f"{STAGE}/T"] = 1500.0
    assert grown(start, 2).thickness.iloc[0] < -1.0
    made = design(start, single(thickness=3, by=["tau", "TMIn"]))
    assert not made.success and "nm, as more evaporates than grows, is the best" in made.warnings[0]
    assert made.warnings[0].endswith("Metals evaporate: add T to its knobs")
    made = design(start, single(thickness=3, by=["tau", "T"]))
    assert made.success and math.isclose(grown(made.recipe, 2).thickness.iloc[0], 3.0, rel_tol=1e-3)


def test_too_little_gallium_on_a_hot_surface_is_explained(design):
    start = vorlen.Recipe.load(ROOT / "examples" / "uv_led.xml")
    heat = f"{STAGE}/T"
    start[heat] = start[heat][0] + 40.0
    for metal in ("TMGa", "TMAl"):
        start[f"{STAGE}/gas_species/Q/{metal}"] = start[f"{STAGE}/gas_species/Q/{metal}"][0] / 3.0
    made = design(start, {"layers": [{"layer": "n-AlGaN", "Al": 0.55, "by": "TMAl"}]})
    assert not made.success
    best = made.recipe.copy().set(heat, start[heat][0] - 10.0)
    colder = grown(best, "n-AlGaN").x_al.iloc[0]
    assert f"Gallium evaporates: 10 K lower it would be {colder:.3g}; add T to its knobs" in made.warnings[0]


def test_v_defects_that_can_not_be_avoided_are_recognised(design):
    made = design(V_DEFECTS, {"layers": [{"layer": "InGaN", "thickness": 9, "V-defects": "none", "by": "tau"}]})
    assert not made.success
    assert any(text.startswith("V-defects open in InGaN:") for text in made.warnings)


# ---- runs


def test_a_folder_keeps_the_runs_for_later_designs(design, tmp_path):
    targets = single(In=0.2, thickness=3, by=["tau", "TMIn"])
    first = design(LAYER, targets)
    files = {path: path.stat().st_mtime_ns for path in (tmp_path / "design" / "rows").glob("*.result.txt")}
    assert len(files) == first.runs == len(first.history)
    again = design(LAYER, targets)
    assert again.recipe == first.recipe and again.history.equals(first.history)
    assert files == {path: path.stat().st_mtime_ns for path in (tmp_path / "design" / "rows").glob("*.result.txt")}
    other = design(LAYER, single(In=0.21, thickness=3, by=["tau", "TMIn"]))
    new = len(list((tmp_path / "design" / "rows").glob("*.result.txt"))) - len(files)
    assert 0 < new < other.runs  # its start and first derivatives were there


def test_a_design_without_a_folder_gives_the_same(design):
    targets = single(thickness=3, by="tau")
    assert vorlen.design(LAYER, targets, workers=1).recipe == design(LAYER, targets).recipe


def test_a_folder_of_something_else_is_left_alone(design, tmp_path):
    (tmp_path / "recipe.xml").write_text("mine")
    with pytest.raises(FileExistsError, match="recipe.xml is not of a design"):
        design(LAYER, single(thickness=3, by="tau"), out=tmp_path)
    assert (tmp_path / "recipe.xml").read_text() == "mine"


def test_a_folder_that_another_design_uses_is_busy(design, tmp_path):
    from vorlen._design.model import design_folder

    with design_folder(tmp_path / "design"), pytest.raises(vorlen.BusyError, match="another design is running"):
        design(LAYER, single(thickness=3, by="tau"))


@pytest.mark.parametrize(("limit", "text"), [({"max_runs": 3}, "the largest number of runs, 3, is reached"),
                                             ({"time_limit": 1e-6}, "the time limit of 1e-06 s is reached")])
def test_limits_of_runs_and_time_give_the_best_so_far(design, limit, text):
    made = design(LAYER, single(In=0.2, thickness=3, by=["tau", "TMIn"]), **limit)
    assert not made.success and 1 <= made.runs <= 3 and text in made.warnings[0]
    assert math.isclose(made.table.reached[1], grown(made.recipe, 2).thickness.iloc[0], rel_tol=1e-9)


def test_a_recipe_that_fails_at_the_start_is_an_error(design):
    recipe = vorlen.Recipe.load(LAYER)
    recipe[f"{STAGE}/T"] = -1
    with pytest.raises(vorlen.SimulationError):
        design(recipe, single(thickness=3, by="tau"))


def test_a_design_finds_its_way_from_a_recipe_that_fails(design, monkeypatch):
    from vorlen._design.model import DesignModel, Outcome

    measured = DesignModel._outcome

    def fails_first(self, row, number, content):
        nothing = np.full(len(self.spec.targets), np.nan)
        return measured(self, row, number, content) if number else Outcome(nothing, nothing.copy(), "it failed")

    monkeypatch.setattr(DesignModel, "_outcome", fails_first)
    targets = single(In=0.15, thickness=3, by=["TMIn", "tau"])
    made = design(LAYER, targets)
    assert made.success and np.isnan(made.table.start).all() and made.history.text[0] == "it failed"
    assert made.warnings == ["the recipe fails: it failed; the search started from other values of its knobs"]
    assert abs(grown(made.recipe, 2).x_in.iloc[0] - 0.15) <= 1e-3
    with pytest.raises(vorlen.SimulationError, match="it failed"):
        design(LAYER, targets, max_runs=1)


@pytest.mark.parametrize(
    "options", [{"max_runs": 0}, {"max_runs": 2.5}, {"max_runs": True}, {"time_limit": 0}, {"timeout": -1},
                {"progress": 1}, {"workers": 0}],
)
def test_wrong_options_are_errors(options):
    with pytest.raises((TypeError, ValueError)):
        vorlen.design(LAYER, single(thickness=3, by="tau"), **options)


def test_an_interrupt_names_how_to_continue(design, capsys, monkeypatch):
    from vorlen._design import solver as _design_solver

    def stop(*_):
        raise KeyboardInterrupt

    monkeypatch.setattr(_design_solver, "newton", stop)
    with pytest.raises(vorlen.DesignInterrupted) as interrupted:
        design(LAYER, single(thickness=3, by="tau"))
    assert "design interrupted after 1 run; to continue, repeat the call" in capsys.readouterr().err
    best = interrupted.value.design
    assert best.runs == 1 and best.recipe == vorlen.Recipe.load(LAYER).with_scheme("staged")
    assert not best.success and best.warnings == ["the search is not complete: it was interrupted"]
    assert threading.active_count() < 50


# ---- the linear problem of a step


def test_a_step_is_the_least_squares_solution_within_its_limits():
    """Compared with a general minimiser of the same function, started at several points."""
    from scipy.optimize import minimize

    random = np.random.default_rng(3)
    for case in range(20):
        rows, columns = 1 + case % 4, 1 + case % 3
        jacobian, right = 100.0 * random.normal(size=(rows, columns)), 100.0 * random.normal(size=rows)
        one_sided = random.random(rows) < 0.4
        low, high = -random.uniform(0.1, 2.0, columns), random.uniform(0.1, 2.0, columns)

        def cost(d, jacobian=jacobian, right=right, one_sided=one_sided):
            left = jacobian @ d + right
            left = np.where(one_sided, np.maximum(left, 0.0), left)
            return float(left @ left + d @ d)

        step = least_squares_step(jacobian, right, one_sided, low, high)
        assert np.all(step >= low - 1e-9) and np.all(step <= high + 1e-9)
        best = min(
            minimize(cost, random.uniform(low, high), bounds=list(zip(low, high)), method="L-BFGS-B").fun
            for _ in range(4)
        )
        assert cost(step) <= best * (1.0 + 1e-4) + 1e-6


def test_knobs_that_can_not_move_stay():
    low, high = np.array([0.0, -1.0]), np.array([0.0, 1.0])
    step = least_squares_step(np.ones((1, 2)), np.array([-1.0]), np.array([False]), low, high)
    assert step[0] == 0.0 and math.isclose(step[1], 0.5)


def test_40_k_are_a_unit_of_a_temperature():
    assert SHIFT == 40.0
