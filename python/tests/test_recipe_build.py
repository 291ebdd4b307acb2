"""Recipes built in Python have the layers that the calls describe, run, and reject mistakes at once."""

from __future__ import annotations

import inspect
import json
import math
import pickle
import re
import subprocess
import tempfile
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import vorlen
from support import EXAMPLES, MQW, ROOT, V_DEFECTS, table_of, tool
from vorlen._recipe.build import CONDITIONS, CONSTANTS, FLOWS, METALS
from vorlen._recipe.composition import LATTICES
from vorlen._recipe.elements import ELEMENTS
from vorlen._recipe.kinds import KNOWN
from vorlen._recipe.limits import limits_of

GASES = {"NH3": 8000, "N2": 8000}
DRESSES: tuple[Callable[[str], str], ...] = (
    lambda text: text,
    lambda text: text.replace("\n", "\r\n"),
    lambda text: re.sub(r"^( +)", lambda match: "\t" * (len(match[1]) // 2), text, flags=re.M),
    lambda text: re.sub(r"\n\s*", "", text),
)


def started(material: str = "AlInGaN", **arguments: Any) -> vorlen.Recipe:
    """A recipe with a template and without grown stages."""
    recipe = vorlen.Recipe.new(material, **{"delta": 0.008, "pressure": 40000} | arguments)
    recipe.template("GaN", 2000, 3e8)
    return recipe


def grown(**arguments: Any) -> vorlen.Recipe:
    """A recipe with one grown stage."""
    recipe = started(**arguments)
    recipe.grow("barrier", 100, T=1050, TEGa=0.5, **GASES)
    return recipe


def problems(recipe: vorlen.Recipe) -> list[str]:
    """What vorlen check reports as an error."""
    with tempfile.NamedTemporaryFile(suffix=".xml") as file:
        Path(file.name).write_bytes(recipe.to_bytes())
        done = subprocess.run([tool(), "check", "--format", "json", file.name], capture_output=True, check=False)
    found = json.loads(done.stdout)["files"][0]["problems"]
    return [problem["text"] for problem in found if problem["severity"] == "error"]


# ---- the recipe that the manual starts with


def test_the_recipe_of_the_manual_is_built_and_runs() -> None:
    recipe = vorlen.Recipe.new("AlGaInN", delta="8 mm", pressure="400 mbar")
    recipe.template("GaN", thickness="2 um", dislocations=3e8)
    with recipe.periods(5):
        recipe.grow("GaN barrier", "331 s", T="1050 K", TEGa=0.5, NH3="8 slm", N2="8 slm")
        recipe.grow("InGaN well", "67 s", T="757 degC", TMIn="9 umol/min")
    assert recipe["material"] == "AlInGaN"
    assert recipe["process_stages/stage_1/stage_1_2/gas_species/Q/TMIn"] == (0.201726, 0.201726)
    assert recipe["process_stages/stage_1/stage_1_2/gas_species/Q/TEGa"] == (0.5, 0.5)
    assert recipe["process_stages/stage_1/stage_1_2/T"] == (1030.15, 1030.15)
    assert problems(recipe) == []
    run = vorlen.run(recipe)
    assert list(run.layers["name"]) == ["GaN", *["GaN barrier", "InGaN well"] * 5]
    assert run.scheme == "staged" and not run.failed


@pytest.mark.parametrize(
    ("material", "keyword"),
    [("InGaN", "InGaN"), ("GaInN", "InGaN"), ("ingan", "InGaN"), ("GaAlN", "AlGaN"), ("InAlN", "AlInN"),
     ("AlGaInN", "AlInGaN"), ("InGaAlN", "AlInGaN")],
)  # fmt: skip
def test_the_metals_of_a_material_may_be_in_any_order(material: str, keyword: str) -> None:
    assert vorlen.Recipe.new(material)["material"] == keyword


@pytest.mark.parametrize(("material", "near"), [("AlGaNN", "AlGaN"), ("InGaAs", "InGaN"), ("GaN", "InGaN|AlGaN")])
def test_an_unknown_material_is_an_error_with_a_similar_one(material: str, near: str) -> None:
    with pytest.raises(ValueError, match=f"material must be one of InGaN, .*, got '{material}'; did you mean ({near})"):
        vorlen.Recipe.new(material)
    with pytest.raises(TypeError, match="material must be a text"):
        vorlen.Recipe.new(3)  # type: ignore[arg-type]


# ---- random recipes against a model of what stays as it was

RAMPED = ("T", "pressure", *FLOWS)
NUMBER = {"T": st.integers(900, 1400), "pressure": st.integers(5000, 90000)} | {
    flow: st.floats(0, 5) if flow in METALS else st.floats(1000, 9000) for flow in FLOWS
}
OPTIONAL = {name: NUMBER[name] | st.tuples(NUMBER[name], NUMBER[name]) for name in RAMPED}
VALUES = st.fixed_dictionaries({}, optional=OPTIONAL)
STEP = st.tuples(st.sampled_from(("grow", "pause")), st.floats(1e-4, 1e4), VALUES)
PROGRAM = st.lists(STEP | st.tuples(st.integers(1, 4), st.lists(STEP, min_size=1, max_size=3)), max_size=4)


class Model:
    """The conditions that hold, and the layers that follow from the calls."""

    def __init__(self) -> None:
        self.now: dict[str, float] = dict.fromkeys(FLOWS, 0.0) | {"pressure": 40000.0}
        self.metals = dict.fromkeys(METALS, 0.0)
        self.rows: list[dict[str, float]] = []

    def stage(self, kind: str, duration: float, values: dict[str, Any]) -> dict[str, float]:
        before = self.now | self.metals
        if kind == "pause":
            values = {name: value for name, value in values.items() if name not in METALS} | dict.fromkeys(METALS, 0)
        pairs = {name: values.get(name, value) for name, value in before.items()}
        pairs = {name: pair if isinstance(pair, tuple) else (pair, pair) for name, pair in pairs.items()}
        self.now = {name: pair[1] for name, pair in pairs.items()}
        if any(value > 0 for metal in METALS for value in pairs[metal]):
            self.metals = {metal: pairs[metal][1] for metal in METALS}
        columns = {"pressure": "P"}
        row = {f"{columns.get(name, name)}_{when}": pair[place] for name, pair in pairs.items()
               for place, when in enumerate(("begin", "end"))}  # fmt: skip
        return row | {"duration": duration}


def apply(recipe: vorlen.Recipe, kind: str, duration: float, values: dict[str, Any]) -> None:
    if kind == "pause":
        recipe.pause(duration, **{name: value for name, value in values.items() if name not in METALS})
    else:
        recipe.grow("layer", duration, **values)


@settings(max_examples=40, deadline=None)
@given(PROGRAM)
def test_a_built_recipe_has_the_layers_that_were_asked_for(program: list[Any]) -> None:
    recipe, model = started(), Model()
    first = {"T": 1000, "TMGa": 1.0} | GASES
    recipe.grow("first", 10, **first)
    model.now["T"] = 0.0
    model.rows.append(model.stage("grow", 10, first))
    for step in program:
        if isinstance(step[0], str):
            apply(recipe, *step)
            model.rows.append(model.stage(*step))
            continue
        periods, stages = step
        with recipe.periods(periods):
            for stage in stages:
                apply(recipe, *stage)
        model.rows += [model.stage(*stage) for stage in stages] * periods
    again = vorlen.Recipe(recipe.to_bytes())
    assert {path: again[path] for path in again} == {path: recipe[path] for path in recipe}
    table = again.timeline()
    active = table[table["kind"] == "active"]
    assert len(active) == len(model.rows)
    for (_, row), expected in zip(active.iterrows(), model.rows):
        assert {name: row[name] for name in expected} == expected
    assert problems(recipe) == []


def test_what_is_not_given_stays_as_it_was_at_the_end_of_the_stage_before() -> None:
    recipe = grown()
    recipe.grow("ramp", 20, T=(1050, 1010), TMIn=(0, 0.2), pressure=(40000, 30000))
    path = recipe.grow("well", 60)
    assert recipe[f"{path}/T"] == (1010, 1010) and recipe[f"{path}/P"] == (30000, 30000)
    assert recipe[f"{path}/gas_species/Q/TMIn"] == (0.2, 0.2)
    assert recipe[f"{path}/gas_species/Q/NH3"] == (8000, 8000)
    assert recipe[f"{path}/delta"] == 0.008


def test_the_metals_after_a_pause_are_those_before_it_and_all_else_is_that_of_the_pause() -> None:
    recipe = grown()
    recipe.pause(15, T=(1050, 1000), N2=(8000, 0), H2=(0, 8000))
    recipe.pause(5, "second pause")
    path = recipe.grow("more", 10)
    assert recipe["process_stages/stage_3/gas_species/Q/TEGa"] == (0, 0)
    assert recipe[f"{path}/gas_species/Q/TEGa"] == (0.5, 0.5) and recipe[f"{path}/T"] == (1000, 1000)
    assert recipe[f"{path}/gas_species/Q/N2"] == (0, 0) and recipe[f"{path}/gas_species/Q/H2"] == (8000, 8000)
    assert list(recipe.timeline()["name"]) == ["GaN", "barrier", "pause", "second pause", "more"]


def test_a_stage_that_ramps_its_metals_to_zero_is_not_a_pause() -> None:
    recipe = grown()
    recipe.grow("closing", 10, TEGa=(0.5, 0))
    path = recipe.grow("nothing", 10)
    assert recipe[f"{path}/gas_species/Q/TEGa"] == (0, 0)


@pytest.mark.parametrize("dress", DRESSES)
def test_a_loaded_recipe_is_continued_in_its_own_layout(dress: Callable[[str], str]) -> None:
    source = dress(MQW.read_text()).encode()
    recipe = vorlen.Recipe(source)
    path = recipe.grow("one more \u2013 \u00b5m", 20, T=1090)
    assert path == "process_stages/stage_3" and recipe[f"{path}/name"] == "one more \u2013 \u00b5m"
    assert recipe[f"{path}/gas_species/Q/TEGa"] == recipe["process_stages/stage_2/gas_species/Q/TEGa"]
    assert recipe[f"{path}/delta"] == 0.008 and recipe[f"{path}/T"] == (1090, 1090)
    below, above = recipe.template("GaN", 100), recipe.cap("GaN", 50)
    assert recipe[f"{below}/tau"] == 180 and recipe[f"{above}/stress_state"] == 0  # 100 nm at 2 um/h
    content = recipe.to_bytes()
    assert content.count(b"\r\n") == (content.count(b"\n") if b"\r\n" in source else 0)
    indentations = re.findall(rb"^([ \t]*)</?stage_\d>$", content.replace(b"\r", b""), re.M)
    assert set(indentations) == {b"    "} or dress in DRESSES[2:]
    assert set(indentations) == {b"\t\t"} or dress is not DRESSES[2]
    assert problems(recipe) == []
    for stage in (path, below, above):
        recipe.remove_stage(stage)
    assert recipe.to_bytes() == source


def test_a_recipe_in_another_encoding_keeps_it() -> None:
    text = MQW.read_text().replace("UTF-8", "windows-1251").replace("last GaN barrier", "\u0441\u043b\u043e\u0439")
    recipe = vorlen.Recipe(text.encode("cp1251"))
    path = recipe.grow("\u0441\u043b\u043e\u0439 \u03b1", 20)
    assert recipe[f"{path}/name"] == "\u0441\u043b\u043e\u0439 \u03b1"
    recipe.to_bytes().decode("cp1251")


# ---- periods


def test_paths_that_grow_returns_hold_after_the_block() -> None:
    recipe = grown()
    with recipe.periods(3):
        first = recipe.grow("a", 10)
        second = recipe.pause(5)
    assert (first, second) == ("process_stages/stage_2/stage_2_1", "process_stages/stage_2/stage_2_2")
    assert recipe["process_stages/stage_2/n_periods"] == 3 and recipe[f"{second}/tau"] == 5
    assert recipe.grow("b", 10) == "process_stages/stage_3"
    assert list(recipe.timeline()["name"]) == ["GaN", "barrier", *["a", "pause"] * 3, "b"]


def test_one_period_and_one_stage_are_enough() -> None:
    recipe = started()
    with recipe.periods(1):
        recipe.grow("a", 10, T=1000, TEGa=1, **GASES)
    assert recipe["process_stages/stage_1/type"] == "periodic" and recipe["process_stages/n_stages"] == 1
    assert len(vorlen.run(recipe).layers) == 2


def test_after_an_error_in_a_block_the_recipe_is_as_it_was_before() -> None:
    recipe = grown()
    before = recipe.to_bytes()
    with pytest.raises(ValueError, match="T must be at least 1e-4 K, got -5"), recipe.periods(2):
        recipe.grow("a", 10)
        recipe["material"] = "InGaN"
        recipe.grow("b", 10, T=-5)
    assert recipe.to_bytes() == before
    with pytest.raises(KeyboardInterrupt), recipe.periods(2):
        recipe.grow("a", 10)
        raise KeyboardInterrupt
    assert recipe.to_bytes() == before
    with recipe.periods(2):  # and the next block works
        recipe.grow("a", 10)
    assert recipe["process_stages/stage_2/n_periods"] == 2


def test_blocks_that_make_no_sense_are_errors() -> None:
    recipe = grown()
    before = recipe.to_bytes()
    with pytest.raises(ValueError, match="periods can't be nested: a periodic stage can't contain another"):
        with recipe.periods(2):
            recipe.grow("a", 10)
            with recipe.periods(3):
                recipe.grow("b", 10)
    with pytest.raises(ValueError, match="nothing was grown in the block"), recipe.periods(2):
        pass
    for count in (0, -1, 2.0, True, "3", None):
        with pytest.raises(ValueError, match="periods must be a positive integer, got"):
            with recipe.periods(count):  # type: ignore[arg-type]
                recipe.grow("a", 10)
    with pytest.raises(ValueError, match="grows process_stages/stage_2, but stages of process_stages were changed"):
        with recipe.periods(2):
            recipe.grow("a", 10)
            recipe.add_stage("process_stages/stage_1")
            recipe.grow("b", 10)
    with pytest.raises(ValueError, match="stages of process_stages were changed"), recipe.periods(2):
        recipe.grow("a", 10)
        recipe.remove_stage("process_stages/stage_1")
    assert recipe.to_bytes() == before


def test_a_copy_and_a_pickle_are_independent_of_an_open_block() -> None:
    recipe = started()
    with recipe.periods(2):
        recipe.grow("a", 10, T=1000, TEGa=1, **GASES)
        copy = recipe.copy()
        copy.grow("b", 10)
    assert copy.stages() == ["process_stages/stage_1", "process_stages/stage_2"]
    assert recipe.stages() == ["process_stages/stage_1"]
    fresh = pickle.loads(pickle.dumps(started()))
    fresh.grow("a", 10, T=1000, TEGa=1, **GASES)  # pressure and delta of Recipe.new
    assert fresh["process_stages/stage_1/P"] == (40000, 40000)


# ---- stages between levels


def indentations_in(recipe: vorlen.Recipe, path: str) -> set[bytes]:
    """The indentations of the lines of a stage with its diffusion layer, or of its first sub-stage."""
    if recipe.get(f"{path}/type") == "periodic":
        return {indentation[:-2] if b" " in indentation else indentation[:-1]
                for indentation in indentations_in(recipe, recipe.stages(path)[0])}  # fmt: skip
    element = recipe._document.element(path)
    return set(re.findall(rb"\n([ \t]*)<(?:delta|tau)", recipe.to_bytes()[element.begin : element.end]))


@pytest.mark.parametrize("dress", DRESSES)
def test_a_stage_is_copied_between_a_periodic_stage_and_the_top_level_and_back(dress: Callable[[str], str]) -> None:
    source = dress(MQW.read_text()).encode()
    recipe = vorlen.Recipe(source)
    group, top = "process_stages/stage_1", "process_stages"
    for like, into in [(path, top) for path in recipe.stages(group)] + [(f"{top}/stage_2", group)]:
        values = {path.removeprefix(like): recipe[path] for path in recipe if path.startswith(like + "/")}
        for before in [*recipe.stages(into), None]:
            path = recipe.add_stage(like, into=into, before=before)
            assert path.rpartition("/")[0] == into
            number = recipe.stages(into).index(path) + 1
            assert before is None or number == recipe.stages(into).index(before) + 1
            copied = {each.removeprefix(path): recipe[each] for each in recipe if each.startswith(path + "/")}
            assert copied == values
            assert problems(recipe) == []
            assert indentations_in(recipe, path) == indentations_in(recipe, recipe.stages(into)[0 if number > 1 else 1])
            recipe.remove_stage(path)
            assert recipe.to_bytes() == source


def test_a_copy_of_a_well_after_the_periods_is_renamed_and_changed() -> None:
    recipe = vorlen.Recipe.load(MQW)
    well, before = "process_stages/stage_1/stage_1_3", "process_stages/stage_2"
    path = recipe.add_stage(well, "single well", before, {"tau": "2 min"}, into="process_stages")
    assert path == "process_stages/stage_2" and recipe["process_stages/stage_3/name"] == "last GaN barrier"
    assert recipe[f"{path}/tau"] == 120
    assert list(vorlen.run(recipe).layers["name"])[-3:] == ["single well", "last GaN barrier", "p-GaN"]


def test_a_given_layer_is_copied_above_the_simulated_ones() -> None:
    recipe = grown()
    path = recipe.add_stage("pre_stages/pre_stage_1", "cap", into="post_stages", values={"stress_state": 0})
    assert path == "post_stages/post_stage_1" and recipe["post_stages/n_post_stages"] == 1
    assert problems(recipe) == [] and list(vorlen.run(recipe).layers["name"]) == ["GaN", "barrier", "cap"]


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        (("process_stages/stage_1", "process_stages/stage_1"), ValueError, "can't contain another periodic stage"),
        (("process_stages/stage_2", "pre_stages"), ValueError, "one is simulated and the other is given"),
        (("post_stages/post_stage_1", "process_stages"), ValueError, "one is simulated and the other is given"),
        (("process_stages/stage_2", "process_stages/stage_2"), ValueError, "is not a group of stages"),
        (("process_stages/stage_2", "no_stages"), KeyError, "no_stages"),
        (("process_stages/stage_2", 3), TypeError, "must be a text"),
    ],
)
def test_a_copy_that_makes_no_sense_is_an_error(arguments: Any, error: type[Exception], text: str) -> None:
    recipe = vorlen.Recipe.load(MQW)
    like, into = arguments
    with pytest.raises(error, match=text):
        recipe.add_stage(like, into=into)
    with pytest.raises(ValueError, match="process_stages/stage_2 is not in process_stages/stage_1"):
        recipe.add_stage("process_stages/stage_2", into="process_stages/stage_1", before="process_stages/stage_2")
    assert recipe.to_bytes() == MQW.read_bytes()


# ---- given layers


def values_of(recipe: vorlen.Recipe, path: str) -> dict[str, Any]:
    return {place.removeprefix(path + "/"): recipe[place] for place in recipe if place.startswith(path + "/")}


def test_templates_are_stacked_and_their_durations_follow() -> None:
    recipe = vorlen.Recipe.new("AlGaN")
    first = recipe.template("AlN", "100 nm", "1e10 cm^-2", growth_rate="0.1 nm/s")
    second = recipe.template("Al0.4Ga0.6N", 233, 5e9, name="transition", relaxation=0.8, duration="700 s")
    third = recipe.template("AlGaN", 50, x_al=0.1)
    assert values_of(recipe, first) == {
        "name": "AlN", "tau": 1000, "GR_average": 0.36, "thickness": 100, "X_In_average": 0, "X_Ga_average": 0,
        "X_Al_average": 1, "dislocations/disl_model": "given", "dislocations/rho_D": 1e10, "stress_state": 3.112,
    }  # fmt: skip
    assert recipe[f"{second}/GR_average"] == pytest.approx(233e-3 / 700 * 3600, rel=1e-5)
    assert recipe[f"{second}/stress_state"] == 0.8 and recipe[f"{second}/name"] == "transition"
    assert (recipe[f"{third}/X_Al_average"], recipe[f"{third}/X_Ga_average"]) == (0.1, 0.9)
    assert recipe[f"{third}/stress_state"] == 0 and recipe[f"{third}/dislocations/disl_model"] == "inherited"
    assert recipe.template("GaN", 10, lattice="3.15 angstrom") == "pre_stages/pre_stage_4"
    assert recipe["pre_stages/pre_stage_4/stress_state"] == 3.15


def test_lattice_constants_are_those_of_the_manual() -> None:
    text = (ROOT / "docs" / "physics.md").read_text("utf-8")
    row = re.search(r"\| \$a\$, \$c\$, \u00c5 \|(.*)\|\n", text)
    assert row is not None
    constants = [float(cell.split(",")[0]) for cell in row[1].split("|")]
    assert [LATTICES[metal] for metal in ("In", "Ga", "Al")] == constants
    for cells in table_of("physics.md", "| coherent layer | $a$, \u00c5 | $\\varepsilon_{xx}$ | $\\varepsilon_{zz}$ |"):
        recipe = vorlen.Recipe.new("AlInGaN")
        path = recipe.template(cells[0].split()[0], 100, 1e8)
        assert recipe[f"{path}/stress_state"] == float(cells[1])


def test_kinetic_constants_are_those_of_the_examples() -> None:
    for path in EXAMPLES:
        example = vorlen.Recipe.load(path)
        for name in CONSTANTS:
            assert vorlen.Recipe.new("InGaN")[f"chemistry/{name}"] == example[f"chemistry/{name}"]


@pytest.mark.parametrize(
    ("arguments", "text"),
    [
        ({"composition": "GaAs"}, "composition must be a nitride such as 'GaN' or 'Al0.1Ga0.9N', got 'GaAs'"),
        ({"composition": "GaGaN"}, "must be a nitride"),
        ({"composition": "AlGaN"}, "the fractions of 'AlGaN' are unknown: write"),
        ({"composition": "Al0.3Ga0.8N"}, "must add up to 1, got 1.1"),
        ({"composition": "Al1.3GaN"}, "must add up to 1, got 1.3"),
        ({"composition": "GaN", "x_al": 0.1}, "x_al can't be given for 'GaN': the formula has no such metal"),
        ({"composition": "Al0.1Ga0.9N", "x_al": 0.1}, "x_al can't be given .*: it is in the formula already"),
        ({"thickness": 0}, "thickness must be at least 1e-4 nm, got 0"),
        ({"thickness": "2 s"}, "thickness: '2 s' has the unit s, expected nm"),
        ({"thickness": (1, 2)}, "thickness takes a single value"),
        ({"dislocations": None}, "dislocations must be given for the lowest layer"),
        ({"dislocations": "inherited"}, "dislocations must be given for the lowest layer"),
        ({"dislocations": 10}, "dislocations must be at least 1000 cm\u207b\u00b2, got 10"),
        ({"relaxation": 0.5}, "relaxation can't be given for the lowest layer"),
        ({"lattice": 0.5}, "lattice must be the in-plane lattice constant in angstrom, 2.5 to 4.5, got 0.5"),
        ({"duration": 0}, "duration must be at least 1e-4 s"),
        ({"growth_rate": -1}, "growth_rate must be at least 0"),
        ({"growth_rate": 0}, "growth_rate must be above 0 if duration is not given"),
    ],
)
def test_a_template_that_can_not_be_is_an_error(arguments: dict[str, Any], text: str) -> None:
    recipe = vorlen.Recipe.new("AlGaN")
    before = recipe.to_bytes()
    with pytest.raises(ValueError, match=text):
        recipe.template(**{"composition": "GaN", "thickness": 100, "dislocations": 1e8} | arguments)
    assert recipe.to_bytes() == before
    with pytest.raises(ValueError, match="give either lattice or relaxation"):
        grown().template("GaN", 100, lattice=3.2, relaxation=0.5)
    with pytest.raises(ValueError, match="relaxation must be 0 to 1, got 1.5"):
        grown().template("GaN", 100, relaxation=1.5)


def test_caps_are_layers_above() -> None:
    recipe = grown()
    assert recipe.cap("AlGaN", "20 nm", x_al="15 %", name="blocking") == "post_stages/post_stage_1"
    assert recipe.cap("GaN", 100) == "post_stages/post_stage_2"
    assert list(vorlen.run(recipe).layers["thickness"].round(6))[-2:] == [20, 100]


# ---- models


def test_the_reference_conditions_of_a_calibration_run_give_its_growth_rate() -> None:
    flows = {"TMGa": "60 umol/min", "NH3": "8 slm", "H2": "10 slm"}
    conditions = {"T": "1050 degC", "pressure": "200 mbar", **flows}
    for reactor, more in (("CCS", {}), ("HFR", {}), ("TDR", {"rotation": "1000 rpm"})):
        reference = {"growth_rate": "2.7 um/h", **conditions, **more}
        recipe = vorlen.Recipe.new("AlGaN", transport="thick_GaN", reactor=reactor, reference=reference)
        recipe.template("GaN", 2000, 3e8)
        recipe.grow("GaN", "10 min", **conditions, **more)
        assert problems(recipe) == []
        rate = vorlen.run(recipe).layers["mean_rate"][2]
        assert rate == pytest.approx(2.7 / 3.6, rel=0.05), reactor


def test_a_prescribed_growth_rate_and_composition_are_used() -> None:
    recipe = vorlen.Recipe.new("InGaN", pressure="400 mbar", transport="InGaN_GR_X")
    recipe.template("GaN", 2000, 3e8)
    recipe.grow("InGaN", 100, T=1030, TEGa=0.5, TMIn=0.2, growth_rate="0.18 um/h", x_in=0.15, **GASES)
    path = recipe.grow("GaN", 100, TMIn=0, x_in=1e-10)
    assert recipe[f"{path}/GR_average"] == 0.05 and recipe[f"{path}/XAl_average"] == 1e-10
    assert problems(recipe) == [] and not vorlen.run(recipe).failed
    with pytest.raises(ValueError, match="delta is not used by the transport model InGaN_GR_X"):
        recipe.grow("more", 10, delta=0.008)
    with pytest.raises(ValueError, match="the first stage needs TMGa or TEGa"):
        other = vorlen.Recipe.new("InGaN", pressure=1e4, transport="InGaN_GR_X")
        other.template("GaN", 2000, 3e8)
        other.grow("InN", 10, T=800, TMIn=1, growth_rate=0.1, x_in=0.9, **GASES)


def test_v_defects_open_in_a_built_recipe_as_in_the_example() -> None:
    recipe = vorlen.Recipe.new("InGaN", delta="8 mm", pressure="400 mbar", stress="V_dislocation", V_angle="17 deg")
    recipe.template("GaN", "2 um", 5e8)
    recipe.grow("InGaN", 124, T=1030, TMIn=0.2, TEGa=0.5, **GASES)
    recipe.grow("GaN cap", 10, TMIn=0)
    assert "process_stages/stage_1/dislocations/disl_model" not in recipe
    built, example = vorlen.run(recipe).layers, vorlen.run(V_DEFECTS).layers
    for column in ("thickness", "x_in", "v_defects_t", "relaxation"):  # the same active stages
        assert list(built[column][1:3]) == pytest.approx(list(example[column][1:3]), rel=0, abs=0, nan_ok=True)
    assert built["v_defects_t"][2] > 0
    with pytest.raises(ValueError, match="dislocations of grown layers follow from those of the template"):
        recipe.grow("more", 10, dislocations=1e8)


def test_dislocations_of_a_stage_are_given_or_inherited() -> None:
    recipe = started()
    first = recipe.grow("a", 10, T=1300, TMGa=1, dislocations=("7e8 cm^-2", 6e8), **GASES)
    second = recipe.grow("b", 10)
    assert recipe[f"{first}/dislocations/rho_D"] == (7e8, 6e8)
    assert recipe[f"{second}/dislocations/disl_model"] == "inherited"
    assert vorlen.run(recipe).layers["rho_td_t"][3] == pytest.approx(6e8)
    alone = vorlen.Recipe.new("AlGaN", delta=0.006, pressure=1e4)
    alone.grow("a", 10, T=1300, TMGa=1, dislocations=1e8, **GASES)  # no layer below is needed
    assert problems(alone) == [] and len(vorlen.run(alone).layers) == 1


def test_constants_tolerance_scheme_and_start_are_written() -> None:
    recipe = vorlen.Recipe.new(
        "InGaN", chemistry={"Kd_In": {"A": 2e13, "Ta": "23000 K"}, "vacancy_model": "vacancy_none"}, tolerance=1e-7,
        scheme="continuous", start="10 min",
    )  # fmt: skip
    assert recipe["chemistry/Kd_In"] == {"A": 2e13, "Ta": 23000, "Tn": 0}
    assert recipe["chemistry/Kd_Ga"] == {"A": 1e13, "Ta": 32500, "Tn": 0}
    assert recipe["chemistry/vacancy_model"] == "vacancy_none" and recipe["integration/tolerance"] == 1e-7
    assert recipe["integration/scheme"] == "continuous" and recipe["pre_stages/t0"] == 600
    assert vorlen.Recipe.new("AlGaN")["chemistry/vacancy_model"] == "vacancy_none"
    assert vorlen.Recipe.new("AlGaN")["integration/scheme"] == "staged"


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ({"delta": "8 nm"}, ValueError, "delta must be at least 1e-6 m, got 8e-09"),
        ({"delta": -1}, ValueError, "delta must be at least"),
        ({"pressure": "8 mm"}, ValueError, "pressure: '8 mm' has the unit mm, expected Pa, mbar or Torr"),
        ({"pressure": 0}, ValueError, "pressure must be at least 1 Pa"),
        ({"transport": "fixed"}, ValueError, "transport must be one of .*did you mean fixed_thickness"),
        ({"transport": "InGaN_GR"}, ValueError, "transport must be one of fixed_thickness, thick_GaN, InGaN_GR_X"),
        ({"transport": "InGaN_GR_X", "delta": 0.008}, ValueError, "delta is not used by the transport model InGaN_GR"),
        ({"transport": "thick_GaN"}, ValueError, "reactor must be one of CCS, TDR, HFR, got None"),
        ({"transport": "thick_GaN", "reactor": "CCS"}, ValueError, "reference lacks growth_rate"),
        ({"reactor": "CCS"}, ValueError, 'reactor has an effect only with transport="thick_GaN"'),
        ({"stress": "V_dislocations"}, ValueError, "stress must be one of none, V_dislocation.*did you mean V_disl"),
        ({"V_angle": 17}, ValueError, 'V_angle has an effect only with stress="V_dislocation"'),
        ({"stress": "V_dislocation", "V_angle": 90}, ValueError, "V_angle must be above 0 and below 89.99 degree"),
        ({"stress": "V_dislocation", "V_angle": 0}, ValueError, "V_angle must be above 0 and below 89.99 degree, got 0"),
        ({"stress": "V_dislocation", "x_ref": 2}, ValueError, "x_ref must be 0 to 1, got 2"),
        ({"scheme": "stages"}, ValueError, "scheme must be one of continuous, staged, got .*; did you mean staged"),
        ({"tolerance": 1}, ValueError, "tolerance must be 1e-10 to 1e-3, got 1"),
        ({"start": -1}, ValueError, "start must be at least 0 s, got -1"),
        ({"chemistry": {"KdIn": {}}}, ValueError, "a key of chemistry must be one of .*did you mean Kd_In"),
        ({"chemistry": {"Kd_In": {"E": 2}}}, ValueError, "a key of Kd_In must be one of A, Ta, Tn, got 'E'"),
        ({"chemistry": {"Kd_In": 3}}, TypeError, "Kd_In must be a mapping with A, Ta, Tn"),
        ({"chemistry": {"Kd_In": {"Ta": "2 eV"}}}, ValueError, "Kd_In: Ta.* expected K"),
        ({"chemistry": 3}, TypeError, "chemistry must be a mapping"),
        ({"description": "a -- b"}, ValueError, "description can't contain --"),
        ({"description": "a\0b"}, ValueError, "can't contain the character"),
        ({"description": 3}, TypeError, "description must be a text"),
    ],
)
def test_a_recipe_that_can_not_be_is_an_error(arguments: dict[str, Any], error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text):
        vorlen.Recipe.new("AlInGaN", **arguments)


@pytest.mark.parametrize(
    ("change", "text"),
    [
        ({"colour": 1}, "a key of reference must be one of"),
        ({"TMGa": 0}, "reference: TMGa must be at least 1e-10 sccm"),
        ({"NH3": 0}, "reference lacks the flows of NH3 and of the carrier gas"),
        ({"rotation": 100}, 'rotation has an effect only with reactor="TDR"'),
        ({"T": "3 m"}, "reference: T: '3 m' has the unit m"),
        ({"pressure": 0}, "reference: pressure must be not 0 Pa"),
    ],
)
def test_a_reference_that_can_not_be_is_an_error(change: dict[str, Any], text: str) -> None:
    reference = {"growth_rate": 0.7, "pressure": 2e4, "T": 1320, "TMGa": 1, "NH3": 8000} | change
    with pytest.raises(ValueError, match=text):
        vorlen.Recipe.new("AlGaN", transport="thick_GaN", reactor="CCS", reference=reference)
    with pytest.raises(ValueError, match="reference lacks rotation"):
        good = {"growth_rate": 0.7, "pressure": 2e4, "T": 1320, "TMGa": 1, "NH3": 8000}
        vorlen.Recipe.new("AlGaN", transport="thick_GaN", reactor="TDR", reference=good)


@pytest.mark.parametrize(
    ("arguments", "error", "text"),
    [
        ({"T": 0}, ValueError, "T must be at least 1e-4 K, got 0"),
        ({"T": "-300 degC"}, ValueError, "T must be at least 1e-4 K"),
        ({"T": (1000, 1010, 1020)}, ValueError, "T takes one value, or two for start and end"),
        ({"T": "8 mm"}, ValueError, "T: '8 mm' has the unit mm, expected K or degC"),
        ({"TMIn": -1}, ValueError, "TMIn must be at least 0 sccm, got -1"),
        ({"TMIn": "9 nm/s"}, ValueError, "TMIn: .* expected sccm, slm or umol/min"),
        ({"delta": (0.008, 0.009)}, ValueError, "delta takes a single value"),
        ({"duration": 0}, ValueError, "duration must be at least 1e-4 s, got 0"),
        ({"duration": None}, TypeError, "duration takes a number"),
        ({"rotation": 100}, ValueError, "rotation is not used by the transport model fixed_thickness"),
        ({"x_in": 0.1}, ValueError, "x_in is not used"),
        ({"N2": 0, "NH3": 0}, ValueError, "no gas flows: give NH3 and a carrier gas"),
        ({"name": 3}, TypeError, "name must be a text"),
        ({"name": "a\0"}, ValueError, "can't contain the character"),
        ({"dislocations": 1}, ValueError, "dislocations must be at least 1000"),
        ({"TMln": 1}, TypeError, "TMln"),
    ],
)
def test_a_stage_that_can_not_be_is_an_error_and_changes_nothing(
    arguments: dict[str, Any], error: type[Exception], text: str
) -> None:
    recipe = grown()
    before = recipe.to_bytes()
    with pytest.raises(error, match=text):
        recipe.grow(**{"name": "layer", "duration": 10} | arguments)
    assert recipe.to_bytes() == before


def test_what_the_first_stage_lacks_is_named() -> None:
    with pytest.raises(ValueError, match="T must be given: no stage before 'a' states it"):
        started().grow("a", 10, TEGa=1, **GASES)
    bare = vorlen.Recipe.new("InGaN", pressure=1e4)
    with pytest.raises(ValueError, match=r"delta must be given"):
        bare.grow("a", 10, T=1000, TEGa=1, **GASES)
    with pytest.raises(ValueError, match=r"the first grown layer needs a layer below it: call template\(\) first"):
        bare.grow("a", 10, T=1000, TEGa=1, delta=0.008, **GASES)
    relaxing = vorlen.Recipe.new("InGaN", delta=0.008, pressure=1e4, stress="V_dislocation")
    with pytest.raises(ValueError, match=r"call template\(\) first"):
        relaxing.grow("a", 10, T=1000, TEGa=1, **GASES)
    with pytest.raises(ValueError, match=r"no gas flows"):
        started().grow("a", 10, T=1000, TEGa=1)


def test_a_recipe_without_grown_stages_can_not_run() -> None:
    with pytest.raises(vorlen.SimulationError, match="Number of active stages should be positive"):
        vorlen.run(started())


# ---- the file


def test_a_new_recipe_is_laid_out_as_the_examples() -> None:
    description = "First sentence. Then <more> & more.\n\nParagraph \u00b5."
    recipe = vorlen.Recipe.new("InGaN", delta="8 mm", pressure="400 mbar", description=description)
    recipe.template("GaN", "2 um", 5e8, name="GaN template")
    recipe.grow("InGaN", "1 min", T=1030, TMIn=0.2, TEGa=0.5, **GASES)
    text = recipe.to_bytes().decode("utf-8")
    assert text.startswith(
        '<?xml version="1.0" encoding="UTF-8"?>\n<!--\n  First sentence. Then <more> & more.\n\n  Paragraph \u00b5.\n'
        "-->\n<NonstSurfChem>\n"
    )
    assert text.endswith("</NonstSurfChem>\n")
    example = (ROOT / "examples" / "ingan_v_defects.xml").read_text()
    for begin, end in (("  <!-- Each constant", "</chemistry>"), ("    <n_pre_stages", "</pre_stages>")):
        part = example[example.index(begin) : example.index(end)].replace(' val="3.6e3"', ' val="3600"')
        assert part in text
    assert max(map(len, text.splitlines())) <= 120
    assert all(line == line.rstrip() for line in text.splitlines())


NUMERIC = [known for known in ELEMENTS if known.kind in ("real", "range", "integer", "arrhenius")]


@pytest.mark.parametrize("known", NUMERIC)
def test_the_limits_of_all_numbers_are_understood(known: Any) -> None:
    limits = limits_of(known.allowed)
    assert (limits == ()) is (known.allowed == "any")


def test_unknown_limits_are_noticed() -> None:
    assert [limit for _, limit in limits_of("above 0 and below 89.99")] == [0, 89.99]
    with pytest.raises(ValueError, match="unknown limits: about 3"):
        limits_of("about 3")


def test_conditions_are_elements_of_a_stage() -> None:
    stage = "process_stages/stage_#/"
    own = {known.path.removeprefix(stage) for known in ELEMENTS if known.path.startswith(stage) and known.unit}
    assert set(CONDITIONS.values()) == own - {"tau", "dislocations/rho_D"}
    assert all(stage + below in KNOWN for below in CONDITIONS.values())


def test_a_new_recipe_is_saved_and_loaded(tmp_path: Path) -> None:
    recipe = grown(description="A layer.")
    recipe.save(tmp_path / "r.xml")
    again = vorlen.Recipe.load(tmp_path / "r.xml")
    assert again == recipe and again.grow("more", 10) == "process_stages/stage_2"
    assert math.isclose(vorlen.run(again).layers["duration"].sum(), again.timeline()["duration"].sum())


MISSPELT = [
    (lambda recipe: recipe.grow("n-GaN", 60, Tmga=1), "grow() has no argument 'Tmga'; did you mean TMGa?"),
    (lambda recipe: recipe.grow("n-GaN", 60, P=1), "grow() has no argument 'P'; did you mean pressure?"),
    (lambda recipe: recipe.grow("n-GaN", tau=60), "grow() has no argument 'tau'; did you mean duration?"),
    (lambda recipe: recipe.grow("n-GaN", 60, temprature=1), "grow() has no argument 'temprature'; did you mean T?"),
    (lambda recipe: recipe.grow("n-GaN", 60, XIn_average=1), "grow() has no argument 'XIn_average'; did you mean x_in?"),
    (lambda recipe: recipe.grow("n-GaN"), "grow() missing 1 required positional argument: 'duration'"),
    (lambda recipe: recipe.new("GaN", p=1), "new() has no argument 'p'; did you mean pressure?"),
    (lambda recipe: recipe.new("GaN", tolerence=1), "new() has no argument 'tolerence'; did you mean tolerance?"),
    (lambda recipe: recipe.template("GaN", 1, rho_D=1), "template() has no argument 'rho_D'; did you mean dislocations?"),
    (lambda recipe: recipe.cap("GaN", 1, tau=1), "cap() has no argument 'tau'; did you mean duration?"),
    (lambda recipe: recipe.pause(tau=1), "pause() has no argument 'tau'; did you mean duration?"),
    (lambda recipe: recipe.pause(1, TMGa=0), "pause() has no argument 'TMGa'; it has duration, name, T, pressure, N2, "
     "NH3, H2, delta, rotation"),
]  # fmt: skip


@pytest.mark.parametrize(("call", "text"), MISSPELT, ids=[text.split(";")[0] for _, text in MISSPELT])
def test_a_misspelt_argument_is_named_with_the_right_one(call, text):
    recipe = vorlen.Recipe.new("InGaN", delta=0.008, pressure=40000)
    with pytest.raises(TypeError) as error:
        call(recipe)
    assert str(error.value) == text and recipe.stages() == []


def test_the_signatures_of_the_building_methods_are_shown_in_full():
    parameters = inspect.signature(vorlen.Recipe.grow).parameters
    assert list(parameters)[:4] == ["self", "name", "duration", "T"] and vorlen.Recipe.grow.__doc__
    assert "material" in inspect.signature(vorlen.Recipe.new).parameters
