"""The targets of designs: files, units, layers, knobs, limits. Nothing is run here."""

from __future__ import annotations

import math
import re
from pathlib import Path

import numpy as np
import pytest

import vorlen
from support import MQW, ROOT
from vorlen._design.knobs import KNOBS, SHIFT
from vorlen._design.targets import read_spec

LED = ROOT / "examples" / "blue_led.xml"
WELL = "process_stages/stage_4/stage_4_3"
ENTRY = {"layer": "InGaN well", "thickness": "3 nm", "by": "tau"}


@pytest.fixture(scope="module")
def led() -> vorlen.Recipe:
    return vorlen.Recipe.load(LED)


def spec(recipe, *entries, **others):
    return read_spec(recipe, {"layers": list(entries), **others})


def knobs(recipe, *entries, **others):
    made = spec(recipe, *entries, **others)
    return made.knobs[: made.hints.start]


def written(folder: Path, text: str) -> Path:
    path = folder / "targets.yaml"
    path.write_text(text, encoding="utf-8")
    return path


# ---- files


def test_a_file_means_the_same_as_a_mapping(led, tmp_path):
    path = written(tmp_path, """\
layers:
  - {layer: n-GaN,      thickness: 2 um,  by: tau}
  - {layer: InGaN well, thickness: 3.0 nm, In: 15 %, by: [tau, TMIn]}
limits: {TMIn: 0.02 .. 0.6 sccm}      # a comment with [1, 2] sccm
prefer: {V/III: high}
""")
    given = spec(
        led,
        {"layer": "n-GaN", "thickness": 2000, "by": ["tau"]},
        {"layer": "InGaN well", "thickness": 3, "In": 0.15, "by": ["tau", "TMIn"]},
        limits={"TMIn": (0.02, 0.6)}, prefer={"V/III": "high"},
    )
    assert read_spec(led, path) == given == read_spec(led, str(path))


@pytest.mark.parametrize(
    ("limits", "expected"),
    [
        ("{TMIn: [0.02, 0.6] sccm, tau: [60, 70] s}", {"TMIn": (0.02, 0.6), "tau": (60, 70)}),
        ("{TMIn: [ 2e-2 , +6E-1 ]sccm}  # or [1, 2] slm", {"TMIn": (0.02, 0.6)}),
        ("\n  TMIn: [0.02, 0.6] sccm # usual\n  tau: [1, 2] min", {"TMIn": (0.02, 0.6), "tau": (60, 120)}),
        ("{TMIn: [0.02 sccm, 0.6 sccm], tau: [60, 70]}", {"TMIn": (0.02, 0.6), "tau": (60, 70)}),
    ],
)
def test_a_unit_after_brackets_is_that_of_both_limits(led, tmp_path, limits, expected):
    entry = {"layer": "InGaN well", "thickness": "3.0 nm", "by": ["tau", "TMIn"]}
    path = written(tmp_path, f"layers: [{{layer: InGaN well, thickness: 3.0 nm, by: [tau, TMIn]}}]\nlimits: {limits}\n")
    assert read_spec(led, path) == spec(led, entry, limits=expected)


@pytest.mark.parametrize("name", ["'[1, 2] sccm'", '"[1, 2] sccm"'])
def test_brackets_in_a_quoted_name_stay(led, tmp_path, name):
    with pytest.raises(ValueError, match=r"the recipe has no layer '\[1, 2\] sccm'"):
        read_spec(led, written(tmp_path, f"layers: [{{layer: {name}, thickness: 3 nm, by: tau}}]"))


@pytest.mark.parametrize(
    ("text", "error"),
    [
        ("layers: {", "line 1"),
        ("limits:\n  by: [tau, T] K", "line 2, column "),
        ("layers: []\nlayers: []", "line 2, column 1: the key 'layers' is given twice"),
        ("layers: &a [*a]", "aliases are not supported"),
        ("", "is empty"),
        ("# only a comment", "is empty"),
        ("[1, 2]", "targets.yaml must be a mapping with the key layers, not a list"),
        ("layers", "must be a mapping with the key layers, not a text"),
        ("3", "must be a mapping with the key layers, not a number"),
        ("layers: !!python/object:os.system x", "could not determine a constructor"),
        pytest.param("[" * 5000, "nested too deeply", id="deep"),
    ],
)
def test_a_mistake_in_a_file_is_named_with_its_place(led, tmp_path, text, error):
    with pytest.raises((TypeError, ValueError), match=error):
        read_spec(led, written(tmp_path, text))


def test_a_unit_after_a_list_is_that_of_both_values(led, tmp_path):
    for text in ("{TMIn: [0.02, 0.6] sccm, T: [980,1060] K}", "{TMIn: [2e-2, .6]sccm, T: '[980, 1060] K'}",
                 "\n  TMIn: [0.02, 0.6] sccm  # usual\n  T: [ 980 , 1060 ] K"):
        layers = "layers: [{layer: InGaN well, thickness: 3, In: 0.1, by: [TMIn, T]}]\n"
        made = read_spec(led, written(tmp_path, f"{layers}limits: {text}"))
        assert [knob.limits for knob in made.knobs] == [(0.02, 0.6), (980.0, 1060.0)]


def test_a_file_that_is_missing_or_not_text_is_an_error(led, tmp_path):
    with pytest.raises(FileNotFoundError):
        read_spec(led, tmp_path / "none.yaml")
    path = tmp_path / "targets.yaml"
    path.write_bytes(b"layers: \xff")
    with pytest.raises(ValueError, match="not UTF-8"):
        read_spec(led, path)


def test_words_that_yaml_takes_for_truth_values_are_texts(layer, tmp_path):
    path = written(tmp_path, "layers: [{layer: on, thickness: 3, V-defects: no, by: tau}]")
    recipe = vorlen.Recipe.load(layer)
    recipe["process_stages/stage_1/name"] = "on"
    assert [target.goal for target in read_spec(recipe, path).targets] == ["3", "none"]


# ---- values


@pytest.mark.parametrize(
    ("quantity", "given", "name", "value", "bound"),
    [
        ("thickness", "0.003 um", "thickness", 3.0, ""),
        ("rate", "3.6 um/h", "rate", 1.0, ""),
        ("growth rate", 1.0, "rate", 1.0, ""),
        ("In", "15 %", "In", 0.15, ""),
        ("x_in_mid", 0.15, "In middle", 0.15, ""),
        ("In final", 0.15, "In final", 0.15, ""),
        ("al", 0.15, "Al", 0.15, ""),
        ("strain", "-1 %", "strain", -0.01, ""),
        ("dislocations", "< 5e8 cm^-2", "dislocations", 5e8, "at most"),
        ("dislocation density", "at most 5e12 m^-2", "dislocations", 5e8, "at most"),
        ("upper interface", "at least 1 nm", "upper interface", 1.0, "at least"),
        ("V-defects", "none", "V-defects", 0.0, "at most"),
    ],
)
def test_values_have_units_and_bounds(led, quantity, given, name, value, bound):
    (target,) = spec(led, {"layer": "InGaN well", quantity: given, "by": "tau"}).targets
    assert target.quantity.name == name and target.bound == bound
    assert math.isclose(target.value, value, rel_tol=1e-9, abs_tol=0.0)


@pytest.mark.parametrize(
    ("entry", "error"),
    [
        ({"thickness": "3 K"}, "expected nm"),
        ({"thickness": 0}, "above 0"),
        ({"thickness": True}, "takes a number"),
        ({"In": 15}, "fraction from 0 to 1, got 15; write 15 % for per cent"),
        ({"In": -0.1}, "fraction"),
        ({"strain": 1}, "write 1 % for 0.01"),
        ({"V-defects": 1e8}, "can only be none"),
        ({"thicknes": 3}, "unknown target of InGaN well: 'thicknes'.*Did you mean 'thickness'"),
        ({"thickness": 3, "limit": {"tau": [1, 2]}}, "unknown target of InGaN well: 'limit'.*Did you mean 'limits'"),
        ({}, "InGaN well has no target"),
        ({"thickness": 3, "by": "TMin2"}, "unknown knob of InGaN well: 'TMin2'.*Did you mean 'TMIn'"),
        ({"thickness": 3, "by": []}, "has no knobs"),
        ({"thickness": 3, "by": None}, r"has no knobs; add by:"),
        ({"thickness": 3, "by": [3]}, "must be texts"),
        ({"Al": 0.1, "by": "TMAl"}, "TMAl of InGaN well is 0 in the recipe: set a start value there, or give limits"),
        ({"thickness": 3, "by": "process_stages/stage_1/delta"}, "is not a knob"),
        ({"thickness": 3, "limits": {"TMIn": [0, 1]}}, "limits of InGaN well: knob 'TMIn'; the entry has tau"),
        ({"layer": "stage_4", "In": 0.1, "by": "periods"}, "can only have a thickness or a rate"),
        ({"layer": "stage_4", "thickness": 90, "by": "tau"}, "its knob is periods, or the path"),
        ({"layer": "n-GaN", "thickness": 90, "by": "periods"}, "n-GaN is not in a periodic stage"),
    ],
)
def test_a_mistake_in_an_entry_is_an_error(led, entry, error):
    with pytest.raises((TypeError, ValueError), match=error):
        spec(led, {"layer": "InGaN well", "by": "tau"} | entry)


@pytest.mark.parametrize(
    ("others", "error"),
    [
        ({"limits": {"tau": [60, 6]}}, "lower one must be below"),
        ({"limits": {"tau": [60]}}, "must be two values"),
        ({"limits": {"tau": "60 s"}}, "must be two values"),
        ({"limits": {"tau": [0, 60]}}, "at least 1e-4"),
        ({"limits": {"tau": ["1 K", "60 s"]}}, "expected s"),
        ({"limits": {"TMin2": [0, 1]}}, "unknown limits: knob 'TMin2'; known are tau, .* Did you mean 'TMIn'"),
        ({"limits": {"stage_1/T": [900, 1000]}}, "unknown limits: knob 'stage_1/T'"),
        ({"limits": {"T": [1000, 900]}}, "the limits of T: the lower one must be below"),
        ({"limits": [1, 2]}, "must be a mapping"),
        ({"prefer": {"V/III": "higher"}}, "expected high or low"),
        ({"prefer": {"quality": "high"}}, "unknown preference 'quality'"),
        ({"prefer": "V/III"}, "must be a mapping"),
        ({"limit": {}}, "unknown key 'limit'; targets have layers, limits, prefer. Did you mean 'limits'"),
        ({"layers": []}, "need layers"),
        ({"layers": "InGaN well"}, "need layers"),
        ({"layers": ["InGaN well"]}, "entry 1 of layers must be a mapping"),
        ({"layers": [{"thickness": 3}]}, "entry 1 of layers has no key layer"),
        ({"layers": [ENTRY, ENTRY]}, "thickness of InGaN well is given twice"),
    ],
)
def test_a_mistake_elsewhere_is_an_error(led, others, error):
    with pytest.raises((TypeError, ValueError), match=error):
        read_spec(led, {"layers": [ENTRY]} | others)


# ---- layers


def test_a_layer_is_a_name_a_number_or_the_path_of_a_stage(led):
    for given in ("InGaN well", "ingan WELL", 7, "7", 12, WELL, "stage_4/stage_4_3", "stage_4_3"):
        (target,) = spec(led, ENTRY | {"layer": given}).targets
        assert target.stages == (WELL,) and not target.whole
    (whole,) = spec(led, {"layer": "stage_4", "thickness": 90, "by": "periods"}).targets
    assert whole.whole and len(whole.stages) == 5


@pytest.mark.parametrize(
    ("given", "error"),
    [
        ("InGaN wel", "the recipe has no layer 'InGaN wel'; did you mean 'InGaN well'"),
        ("well", "did you mean 'InGaN well'"),
        ("substrate", "the layers are n-GaN, change to nitrogen"),
        ("GaN template", "GaN template is a pre-stage: it is not simulated"),
        (1, "pre-stage"),
        (34, "layer 34 does not exist: the recipe has 33 layers"),
        (0, "layer 0 does not exist"),
        (True, "must be a name, a number or the path of a stage"),
        (["InGaN well"], "must be a name"),
    ],
)
def test_an_unknown_layer_is_an_error_with_a_suggestion(led, given, error):
    with pytest.raises(ValueError, match=error):
        spec(led, ENTRY | {"layer": given})


def test_names_that_differ_in_case_only_are_ambiguous(led):
    recipe = led.copy()
    recipe["process_stages/stage_5/name"] = "gan BARRIER"
    assert spec(recipe, ENTRY | {"layer": "GaN barrier"}).targets[0].stages == ("process_stages/stage_4/stage_4_1",)
    with pytest.raises(ValueError, match="'GAN BARRIER' is ambiguous: it can be 'GaN barrier' and 'gan BARRIER'"):
        spec(recipe, ENTRY | {"layer": "GAN BARRIER"})


# ---- knobs


def test_stages_of_one_name_share_their_knob_and_keep_their_ratio(led):
    recipe = led.copy()
    recipe["process_stages/stage_5/name"] = "GaN barrier"
    recipe["process_stages/stage_5/tau"] = 115
    (knob,) = knobs(recipe, ENTRY | {"layer": "GaN barrier"})
    assert knob.values(math.log(2.0)) == {
        "process_stages/stage_4/stage_4_1/tau": 460.0, "process_stages/stage_5/tau": 230.0
    }


def test_a_ramp_moves_as_a_whole_and_stays_within_the_limits(led):
    entry = {"layer": "change to nitrogen", "thickness": 1, "by": ["T", "H2"]}
    temperature, hydrogen = spec(led, entry, limits={"T": "900 .. 1100 degC"}).knobs
    (path,) = temperature.paths
    begin, end = temperature.values(10.0 / SHIFT)[path]
    assert (begin, end) == (1333.15, 1233.15)
    assert temperature.values(temperature.high)[path] == [1373.15, 1273.15]
    assert temperature.values(temperature.low)[path] == [1273.15, 1173.15]
    assert hydrogen.values(math.log(0.5))[hydrogen.paths[0]] == [4000.0, 0.0]
    with pytest.raises(ValueError, match="range from 1223.15 to 1323.15, which can't move in 1273.15 to 1323.15 K"):
        spec(led, entry, limits={"T": "1000 .. 1050 degC"})


def values_at(made, **variables):
    """The values at a point where the knobs of these names have these variables."""
    return made.values_of([variables.get(f"{knob.name} of {knob.owner}".replace(" ", "_"), 0.0) for knob in made.knobs])


def test_what_continues_a_temperature_moves_with_it(led):
    made = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "T"})
    values = values_at(made, T_of_InGaN_well=-10.0 / SHIFT)
    ramps = {"4_2": [1123.15, 1023.15], "4_3": [1023.15, 1023.15], "4_4": [1023.15, 1023.15], "4_5": [1023.15, 1123.15]}
    assert values == {f"process_stages/stage_4/stage_{place}/T": ends for place, ends in ramps.items()}
    # The last barrier continues the ramp after the last period.
    made = spec(led, {"layer": "GaN barrier", "In": 0.2, "by": "T"})
    values = values_at(made, T_of_GaN_barrier=10.0 / SHIFT)
    assert values["process_stages/stage_5/T"] == [1133.15, 1133.15] and len(values) == 6
    assert values["process_stages/stage_3/T"] == [1223.15, 1133.15]
    assert values["process_stages/stage_6/T"] == [1133.15, 1273.15]


def test_a_temperature_that_is_a_knob_does_not_follow_another(led):
    made = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "T"}, {"layer": "GaN cap", "thickness": 2, "by": ["tau", "T"]})
    values = values_at(made, T_of_InGaN_well=-10.0 / SHIFT, T_of_GaN_cap=20.0 / SHIFT)
    ramps = {"4_2": [1123.15, 1023.15], "4_3": [1023.15, 1023.15], "4_4": [1053.15, 1053.15], "4_5": [1053.15, 1123.15]}
    assert {path: ends for path, ends in values.items() if path.endswith("/T")} == {
        f"process_stages/stage_4/stage_{place}/T": ends for place, ends in ramps.items()
    }


def test_a_layer_whose_temperature_follows_belongs_to_the_group_of_the_knob(led):
    cap = {"layer": "GaN cap", "thickness": 2, "by": "tau"}
    made = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "T"}, cap)
    assert made.groups == [([0, 1], [0, 1])] and len(made.hints) == 0  # its temperature is not tried separately
    made = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "TMIn"}, cap)
    assert made.groups == [([0], [0]), ([1], [1])] and len(made.hints) == 2
    # A temperature that is tried takes the others with it as well.
    assert values_at(made, T_of_InGaN_well=-0.25)["process_stages/stage_4/stage_4_4/T"] == [1023.15, 1023.15]
    assert values_at(made, T_of_GaN_cap=-0.25)["process_stages/stage_4/stage_4_4/T"] == [1023.15, 1023.15]


def test_a_jump_of_the_temperature_stays_a_jump(led):
    recipe = led.copy()
    recipe[f"{WELL}/T"] = 1030.0
    made = spec(recipe, {"layer": "InGaN well", "In": 0.2, "by": "T"})
    assert values_at(made, T_of_InGaN_well=-0.25) == {f"{WELL}/T": [1020.0, 1020.0]}


def test_the_scale_of_a_thickness_goes_on_where_a_layer_evaporates(led):
    (target,) = spec(led, ENTRY).targets
    values = [-1e5, -10.0, -1.0, -1e-3, 0.0, 1e-3, 1.0, 3.0, 10.0]
    places = [target.coordinate(value) for value in values]
    assert places == sorted(set(places)) and target.coordinate(3.0) == 0.0


def test_limits_can_be_written_in_several_ways(led):
    entry = ENTRY | {"by": "TMIn"}
    for given in ("0.02 .. 0.6 sccm", "[0.02, 0.6] sccm", "0.02 sccm .. 0.6 sccm", "0.02..0.6", "0.02 to 0.6 sccm",
                  "0.02 - 0.6 sccm", "2e-2 sccm to 0.6 sccm", "0.02\u20130.6 sccm", [0.02, 0.6], ["0.02 sccm", "0.6 sccm"],
                  ("20e-6 slm", 0.6)):
        (knob,) = knobs(led, entry, limits={"tmin": given})
        assert knob.limits == (0.02, 0.6) and not knob.default_limits
        assert spec(led, entry | {"limits": {"TMIn": given}}, limits={"TMIn": [1, 2]}).knobs[0].limits == (0.02, 0.6)


@pytest.mark.parametrize("given", ["740 .. 800", [740, 800], ["740", "800"], "740 to 800"])
def test_limits_in_kelvin_that_would_fit_in_degrees_celsius_are_an_error(led, given):
    text = "740 .. 800 without a unit, are in K, far below the 1033.15 K of InGaN well; if degC is meant, write 740 .. 800 degC"
    for limits in ({"limits": {"T": given}}, {}):
        with pytest.raises(ValueError, match=re.escape(text)):
            spec(led, {"layer": "InGaN well", "In": 0.2, "by": "T"} | limits, limits={"T": given})
    with pytest.raises(ValueError, match="the 1323.15 to 1223.15 K of change to|the 1223.15 to 1323.15 K of change to"):
        spec(led, {"layer": "change to nitrogen", "thickness": 1, "by": "T"}, limits={"T": "950 .. 1050"})


@pytest.mark.parametrize("given", ["740 .. 800 K", ["740 K", "800 K"], "940 .. 1000", "400 .. 500", "740 .. 800 degC"])
def test_limits_with_a_unit_or_near_the_recipe_are_taken_as_they_are(led, given):
    (knob,) = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "T"}, limits={"T": given}).knobs
    numbers = [float(number) for number in re.findall(r"\d+", str(given))]
    offset = 273.15 if "degC" in given else 0.0
    assert knob.limits == pytest.approx([number + offset for number in numbers])


def test_knobs_can_be_separated_by_commas(led):
    assert spec(led, ENTRY | {"by": "tau, TMIn"}) == spec(led, ENTRY | {"by": ["tau", "TMIn"]})


@pytest.mark.parametrize(
    ("entry", "error"),
    [
        ({"thickness": "2.9 .. 3.1 nm"}, "is one value with a tolerance: write 3 +- 0.1 nm, got '2.9 .. 3.1 nm'"),
        ({"In": "14 % to 16 %"}, "write 0.15 +- 0.01, got"),
        ({"thickness": "30 A"}, 'A is ampere, 0.1 nm are "angstrom"'),
        ({"thickness": "3,0 nm"}, "the decimal separator is the point"),
        ({"thickness": 3, "0 nm": None}, "unknown target '0 nm'; the decimal separator is the point, as in 3.0 nm"),
        ({"thickness": 3, "TMIn": None}, "unknown target 'TMIn'; several knobs need brackets, as in by: [tau, TMIn]"),
    ],
)
def test_other_ways_of_writing_are_explained(led, entry, error):
    with pytest.raises(ValueError, match=re.escape(error)):
        spec(led, {"layer": "InGaN well", "by": "tau"} | entry)


def test_angstroms_are_a_unit(led):
    (target,) = spec(led, ENTRY | {"thickness": "30 angstrom"}).targets
    assert math.isclose(target.value, 3.0)


def test_limits_may_name_knobs_that_no_layer_uses(led):
    assert knobs(led, ENTRY, limits={"TMIn": [0, 1], "T": "980 .. 1060 K"}) == knobs(led, ENTRY)
    # The temperature that is tried if a target is out of reach stays within its limits.
    (_, hint) = spec(led, {"layer": "InGaN well", "In": 0.2, "by": "TMIn"}, limits={"T": [1030, 1040]}).knobs
    assert math.isclose(hint.low, -3.15 / SHIFT)


def test_a_flow_that_is_0_starts_between_its_limits(led):
    (knob,) = knobs(led, ENTRY | {"by": "TMAl"}, limits={"TMAl": [0.01, 1]})
    assert knob.values(0.0)[knob.paths[0]] == [0.1, 0.1]
    (knob,) = knobs(led, ENTRY | {"by": "TMAl"}, limits={"TMAl": [0, 1]})
    assert knob.values(knob.low)[knob.paths[0]][0] <= 1e-4


@pytest.mark.parametrize(("knob", "value", "lowest"), [("tau", 1e-6, 1e-4), ("P", 2.0, 1.0), ("T", 50.0, 1e-4)])
def test_default_limits_are_values_that_a_recipe_can_have(led, knob, value, lowest):
    recipe = led.copy()
    path = f"{WELL}/{KNOBS[knob]}"
    recipe[path] = value
    (made,) = knobs(recipe, ENTRY | {"by": knob})
    assert made.limits[0] == lowest and math.isclose(np.mean(made.values(made.low)[path]), lowest, rel_tol=1e-6)


def test_entries_that_share_a_stage_or_a_knob_are_one_group():
    recipe = vorlen.Recipe.load(MQW)
    apart = spec(recipe, ENTRY, {"layer": "last GaN barrier", "thickness": 6, "by": "tau"})
    assert apart.groups == [([0], [0]), ([1], [1])]
    shared = spec(recipe, ENTRY, {"layer": "stage_1", "thickness": 90, "by": "periods"})
    assert shared.groups == [([0, 1], [0, 1])]
    by_path = spec(recipe, ENTRY, {"layer": "last GaN barrier", "strain": 0, "by": "stage_1/stage_1_3/T"})
    assert by_path.groups == [([0, 1], [0, 1])] and by_path.knobs[1].name == "T"
    for path in ("stage_1_3/T", "process_stages/stage_1/stage_1_3/T"):
        assert spec(recipe, ENTRY, {"layer": "last GaN barrier", "strain": 0, "by": path}) == by_path
    for path in ("stage_1/periods", "process_stages/stage_1/n_periods"):
        assert spec(recipe, ENTRY | {"by": path}).knobs[0].paths == ("process_stages/stage_1/n_periods",)


def test_the_same_knob_of_two_entries_is_one(led):
    made = spec(led, ENTRY, {"layer": WELL, "In": 0.15, "by": ["tau", "TMIn"]})
    assert [knob.name for knob in made.knobs] == ["tau", "TMIn", "T"] and list(made.hints) == [2]
    assert made.groups == [([0, 1], [0, 1])]
