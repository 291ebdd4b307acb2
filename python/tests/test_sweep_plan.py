"""Plans: everything that makes a sweep impossible is reported before anything runs."""

from __future__ import annotations

import json
import time
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from sweeps import NAME, P, T, TMIN, quiet_sweep
from vorlen.__main__ import main
from vorlen._sweep.table import parameter_unit
from vorlen._sweep.plan import row_recipe
from vorlen._sweep.plan_file import read_plan
from vorlen._sweep.plan_values import make_plan

PERIODS = "process_stages/stage_1/n_periods"


def values_of(recipe: Path, parameters: object, path: str) -> list[object]:
    return make_plan(recipe, parameters).parameters[path]


@pytest.mark.parametrize(
    ("parameters", "options", "text"),
    [
        ({"process_stages/stage_9/T": [1000]}, {}, "ingan_layer.xml has no process_stages/stage_9/T; similar paths: process_stages/stage_1/T"),
        ({T: []}, {}, "at least one value for each"),
        ({}, {}, "at least one parameter"),
        ({T: [1000, float("nan")]}, {}, "nan is not finite"),
        ({T: [(1, 2, 3)]}, {}, "a list must be a pair"),
        ({T: [None]}, {}, "a value in a recipe must be a number or a text, got"),
        ({T: 1000}, {}, "expected a list of values"),
        ({T: [1000, 1010], P: [1e4]}, {"mode": "zip"}, "the same number of values"),
        ({T: [1000]}, {"mode": "all"}, 'mode must be "grid" or "zip"'),
        ({T: [1000]}, {"timeout": 0}, "timeout must be a positive, finite number of seconds"),
        ({T: [1000]}, {"workers": 0}, "workers must be 1 or more"),
    ],
)
def test_a_sweep_that_is_impossible_is_rejected_before_anything_runs(layer, tmp_path, parameters, options, text):
    with pytest.raises(ValueError, match=text):
        quiet_sweep(layer, parameters, out=tmp_path / "s", **options)
    assert not list((tmp_path / "s").glob("rows/*"))



@pytest.mark.parametrize(
    ("parameters", "text"),
    [
        ({5: [1000]}, "a path must be a text, got 5"),
        ({T: {"a": 1}}, "expected a list of values"),
        ({T: [True]}, "a value in a recipe must be a number or a text, got"),
        ({T: [1000, "hot"]}, "stage_1/T takes a number without a unit, got 'hot'"),
        ({T: ["1030 kg"]}, "stage_1/T: '1030 kg' has the unit kg, expected K or degC"),
        ({NAME + "/T": ["1030 K"]}, "has no "),
        ({T: [10**400]}, "is not finite"),
        ({T: [1000, (1000, float("inf"))]}, "inf is not finite"),
        ({T: [(1000, None)]}, "a value in a recipe must be a number or a text, got"),
        ({T: [1000], T.replace("/", ":"): [1010]}, f"stage_1:T sets the same value as {T}, which comes before it"),
        ({T: [1000], f"NonstSurfChem/{T}": [1010]}, "sets the same value as"),
        ({f"{T}/end": [1010], f"{T}/@end": [1010]}, "sets the same value as"),
        ({f"{T}/end": [1010], T: [1000]}, "sets the same value as"),
        ({f"{NAME}/val": ["a"], NAME: ["b"]}, "sets the same value as"),
        ({NAME: ["a"], f"{NAME}/val": ["b"]}, "sets the same value as"),
        ({NAME: ["plain", "bell \a"]}, r"can't contain the character '.x07', got 'bell"),
        (pd.DataFrame([[1000, 1010]], columns=[T, T]), f"the column {T} is given twice"),
        (pd.DataFrame([[1000]], columns=[0]), "must have a path as its name, not 0"),
        (pd.DataFrame({f"{T}_begin": [1000]}), f"the column {T}_begin needs a column {T}_end"),
        (pd.DataFrame({f"{T}_end": [1000]}), f"the column {T}_end needs a column {T}_begin"),
        (pd.DataFrame({T: [1], f"{T}_begin": [1], f"{T}_end": [1]}), "mean the same parameter"),
        (pd.DataFrame({T: [1000, None]}), "nan is not finite"),
        (pd.DataFrame({T: []}), "at least one value for each"),
    ],
)
def test_parameters_that_are_impossible_are_rejected(layer, parameters, text):
    with pytest.raises(vorlen.PlanError, match=text):
        make_plan(layer, parameters)


@pytest.mark.parametrize("parameters", [[T], T, {T}, None, 5])
def test_parameters_that_are_not_a_mapping_are_rejected(layer, parameters):
    text = f"parameters must be a mapping of paths .*, or a data frame, got {type(parameters).__name__}"
    with pytest.raises(TypeError, match=text):
        make_plan(layer, parameters)


def test_optional_elements_that_the_recipe_lacks_can_be_varied(layer):
    recipe = vorlen.Recipe.load(layer)
    assert "output/detail" not in recipe
    (values,) = make_plan(recipe, {"output/detail": ["true"]}).rows()
    assert vorlen.Recipe(row_recipe(recipe, values))["output/detail"] == "true"
    with pytest.raises(vorlen.PlanError, match="output/detail/val sets the same value as output/detail"):
        make_plan(recipe, {"output/detail": ["true"], "output/detail/val": ["false"]})


def test_an_element_that_the_library_does_not_read_can_be_varied():
    recipe = vorlen.Recipe('<NonstSurfChem><note val="1" end="2"/></NonstSurfChem>')
    plan = make_plan(recipe, {"note": [5, (1.5, 2)], "note/end": ["new"]})
    assert plan.parameters == {"note": [5, [1.5, 2]], "note/end": ["new"]}
    with pytest.raises(vorlen.PlanError, match="note sets the same value as note/@end"):
        make_plan(recipe, {"note/@end": ["new"], "note": [5]})
    with pytest.raises(vorlen.PlanError, match="note: start and end of a ramp must be numbers, got .'1', 2"):
        make_plan(recipe, {"note": [("1", 2)]})


def test_one_end_of_a_ramp_may_follow_the_ramp(layer):
    (values,) = make_plan(layer, {T: [1000], f"{T}/end": [1010], f"{T}/val": [990]}).rows()
    recipe = vorlen.Recipe(row_recipe(vorlen.Recipe.load(layer), values))
    assert recipe[T] == (990, 1010)


@pytest.mark.parametrize("timeout", [float("inf"), float("nan"), 0, -1, True, "60", [60], 10**400])
def test_a_timeout_must_be_positive_and_finite(layer, tmp_path, timeout):
    text = "timeout must be a positive, finite number of seconds"
    kind = TypeError if isinstance(timeout, (bool, str, list)) else ValueError
    with pytest.raises(kind, match=text):
        quiet_sweep(layer, {T: [1000]}, timeout=timeout, out=tmp_path / "s")
    with pytest.raises(kind, match=text):
        vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000]}, timeout=timeout)
    (tmp_path / "plan.json").write_text(
        json.dumps({"recipe": str(layer), "parameters": {T: [1000]}, "timeout": timeout})
    )
    with pytest.raises(vorlen.PlanError, match=f"plan.json: {text}"):
        read_plan(tmp_path / "plan.json")
    assert not (tmp_path / "s").exists()


@pytest.mark.parametrize("timeout", ["inf", "nan", "0", "-1", "soon"])
def test_a_timeout_on_the_command_line_must_be_positive_and_finite(tmp_path, capsys, timeout):
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(tmp_path / "plan.json"), f"--timeout={timeout}"])
    assert ended.value.code == 2 and "positive, finite number of seconds" in capsys.readouterr().err


@pytest.mark.parametrize("value", [2, 2.0, np.int64(2), np.float64(2), "2"])
def test_an_integer_is_written_as_one(examples, value):
    plan = make_plan(examples / "ingan_gan_mqw.xml", pd.DataFrame({PERIODS: pd.Series([value], dtype=object)}))
    (written,) = plan.parameters[PERIODS]
    assert (written, type(written)) == (2, int)


@pytest.mark.parametrize("value", [2.5, "2.5", np.float64(2.5), (2, 3)])
def test_a_value_that_is_no_integer_is_rejected_wherever_it_is(examples, value):
    with pytest.raises(vorlen.PlanError, match=f"{PERIODS} .*"):
        make_plan(examples / "ingan_gan_mqw.xml", {PERIODS: [2, 3, 4, value, 5]})
    if not isinstance(value, tuple):
        with pytest.raises(vorlen.PlanError, match=f"{PERIODS} takes an integer, got "):
            make_plan(examples / "ingan_gan_mqw.xml", {PERIODS: [2, 3, 4, value, 5]})


def test_every_value_is_checked_and_a_long_table_does_not_take_long(layer):
    values = np.linspace(1000, 1050, 100_000)
    begin = time.perf_counter()
    plan = make_plan(layer, pd.DataFrame({T: values, NAME: "one name"}))
    assert time.perf_counter() - begin < 20  # it takes 1 s; an attempt with each value, 50 s
    assert plan.parameters[T] == list(values)
    values[99_000] = np.nan
    with pytest.raises(vorlen.PlanError, match="nan is not finite"):
        make_plan(layer, pd.DataFrame({T: values, NAME: "one name"}))
    with pytest.raises(vorlen.PlanError, match="can't contain the character"):
        make_plan(layer, {NAME: ["a", "b", "c\0"]})


def test_values_are_plain_numbers_and_texts(layer):
    assert values_of(layer, {T: np.array([1000.5, 1010])}, T) == [1000.5, 1010.0]
    assert values_of(layer, {T: np.array([[1000, 1010]])}, T) == [[1000, 1010]]
    assert values_of(layer, {T: iter([1000, np.float32(0.5), " 1e3 "])}, T) == [1000, 0.5, 1000.0]
    assert values_of(layer, {NAME: ["007", " a "]}, NAME) == ["007", " a "]


@pytest.mark.parametrize(
    ("path", "unit"),
    [
        (T, "K"),
        (f"{T}/end", "K"),
        ("NonstSurfChem:process_stages:stage_3:stage_3_2:T", "K"),
        (TMIN, "sccm"),
        ("pre_stages/pre_stage_2/GR_average", "µm/h"),
        ("chemistry/Kd_In/A", "1/s"),
        ("chemistry/Kd_In/Ta", "K"),
        ("chemistry/Kd_In/@Tn", "1"),
        (PERIODS, "1"),
        (NAME, ""),
        ("material", ""),
        ("process_stages/stage_1/unknown", ""),
    ],
)
def test_the_unit_of_a_parameter(path, unit):
    assert parameter_unit(path) == unit


@pytest.mark.parametrize(
    ("plan", "text"),
    [
        ("[]", "a plan must be a JSON object"),
        ("{", "plan.json is not valid JSON: "),
        ('{"recipe": "r.xml", "parameters": {}, "colour": 1}', "unknown key 'colour'"),
        ('{"recipe": "r.xml"}', 'either "parameters" or "table"'),
        ('{"recipe": "none.xml", "parameters": {"material": ["InGaN"]}}', "none.xml: No such file"),
        ('{"recipe": "r.xml", "parameters": {"material": "InGaN"}}', "expected a list of values"),
        ('{"recipe": 5, "parameters": {}}', '"recipe" must be a text, got 5'),
        ('{"recipe": "r.xml", "table": 5}', '"table" must be a text, got 5'),
        ('{"recipe": "r.xml", "table": "none.csv"}', "none.csv: No such file"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "out": 5}', '"out" must be a text, got 5'),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "out": null}', '"out" must be a text'),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "out": ""}', '"out" must be a text'),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "mode": 5}', "mode must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "mode": ["zip"]}', "mode must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "scheme": 5}', "scheme must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "scheme": ["staged"]}', "scheme must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "timeout": "60"}', "timeout must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "timeout": Infinity}', "timeout must be"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"], "material": ["AlGaN"]}}', "'material' is given twice"),
        ('{"recipe": "r.xml", "parameters": {"material": ["InGaN"]}, "recipe_sha256": "0"}', "is not the recipe of this"),
        ('{"recipe": "bad.xml", "parameters": {"material": ["InGaN"]}}', "bad.xml"),
        ('{"recipe": ".", "parameters": {"material": ["InGaN"]}}', "Is a directory"),
    ],
)
def test_an_invalid_plan_is_reported(layer, tmp_path, capsys, plan, text):
    (tmp_path / "r.xml").write_bytes(layer.read_bytes())
    (tmp_path / "bad.xml").write_text("<a>")
    (tmp_path / "plan.json").write_text(plan)
    assert main(["sweep", str(tmp_path / "plan.json")]) == 1
    error = capsys.readouterr().err
    assert error.startswith(f"vorlen: {tmp_path / 'plan.json'}") and error.count("plan.json") == 1 and text in error
    assert sorted(path.name for path in tmp_path.iterdir()) == ["bad.xml", "plan.json", "r.xml"]


def test_a_plan_that_is_missing_is_named(tmp_path, capsys):
    assert main(["sweep", str(tmp_path / "none.json")]) == 1
    assert capsys.readouterr().err == f"vorlen: {tmp_path / 'none.json'}: plan not found\n"


def test_a_plan_that_is_not_text_is_reported(tmp_path, capsys):
    (tmp_path / "plan.json").write_bytes(b"\xff\xfe")
    assert main(["sweep", str(tmp_path / "plan.json")]) == 1
    assert f"{tmp_path / 'plan.json'} is not valid JSON: 'utf-8' codec" in capsys.readouterr().err


def test_mode_and_timeout_of_a_plan_are_used(layer, tmp_path):
    path = vorlen.write_plan(
        tmp_path / "plan.json", layer, {T: [1000, 1010], TMIN: [0.1, 0.2]}, mode="zip", timeout=7, out="folder"
    )
    plan, folder = read_plan(path)
    assert (plan.mode, plan.timeout, folder) == ("zip", 7, tmp_path / "folder")
    assert plan.rows() == [{T: 1000, TMIN: 0.1}, {T: 1010, TMIN: 0.2}]



def test_a_plan_can_read_its_rows_from_a_table_such_as_that_of_a_sweep(layer, tmp_path):
    first = quiet_sweep(layer, {T: [(1000, 1020), 1030], TMIN: [0.1]}, out=tmp_path / "first")
    table = pd.read_csv(tmp_path / "first" / "table.csv")
    table[[f"{T}_begin", f"{T}_end", TMIN]].to_csv(tmp_path / "rows.csv", index=False)
    (tmp_path / "plan.json").write_text(json.dumps({"recipe": str(layer), "table": "rows.csv"}))
    assert main(["sweep", str(tmp_path / "plan.json"), "--quiet"]) == 0
    again = pd.read_csv(tmp_path / "plan" / "table.csv")
    assert list(again.thickness_2) == list(first.thickness_2)



def table_plan(folder: Path, recipe: Path, lines: str, **keys: object) -> Path:
    (folder / "rows.csv").write_text(lines, encoding="utf-8-sig")
    (folder / "plan.json").write_text(json.dumps({"recipe": str(recipe), "table": "rows.csv"} | keys))
    return folder / "plan.json"


def test_values_of_a_table_are_kept_as_they_are_written(layer, tmp_path):
    lines = f"{NAME},{T},{TMIN}_begin,{TMIN}_end\n007,1000,1e-1,0.2\nNA,1.50,0,1\n"
    plan = read_plan(table_plan(tmp_path, layer, lines))
    assert plan[0].parameters == {NAME: ["007", "NA"], T: [1000, 1.5], TMIN: [[0.1, 0.2], [0, 1]]}


@pytest.mark.parametrize(
    ("lines", "keys", "text"),
    [
        (f"{T},{T}\n1000,1010\n", {}, f"rows.csv: the column {T} is given twice"),
        (f"{T},{TMIN}\n1000\n", {}, "row 0 has 1 values, but there are 2 columns"),
        (f"{T},{TMIN}\n1000,0.1\n1000,\n", {}, f"the value of {TMIN} in row 1 is empty"),
        (f"{T}\n", {}, "at least one line of values"),
        ("", {}, "at least one line of values"),
        (f",{T}\n0,1000\n", {}, "must have a path as its name, not ''"),
        (f"{T}\nnan\n", {}, "takes a number without a unit, got 'nan'"),
        (f"{T}\n1_000\n", {}, "takes a number without a unit, got '1_000'"),
        (f'{T}\n"[1000, 1010]"\n', {}, "takes a number without a unit, got '[1000, 1010]'"),
        (f"{T}\n1000\n", {"mode": "grid"}, '"mode" can only be "zip"'),
        (f'{T}\n"1000\n', {}, "rows.csv: "),
    ],
)
def test_an_invalid_table_is_reported(layer, tmp_path, lines, keys, text):
    with pytest.raises(vorlen.PlanError) as caught:
        read_plan(table_plan(tmp_path, layer, lines, **keys))
    assert str(caught.value).startswith(f"{tmp_path / 'plan.json'}: ") and text in str(caught.value)


def test_write_plan_does_not_replace_another_recipe(layer, tmp_path):
    path, copy = tmp_path / "x.json", tmp_path / "x.recipe.xml"
    copy.write_text("mine")
    with pytest.raises(vorlen.PlanError, match="x.recipe.xml exists and is another recipe"):
        vorlen.write_plan(path, layer, {T: [1000]})
    assert copy.read_text() == "mine" and not path.exists()
    vorlen.write_plan(path, layer, {T: [1000]}, overwrite=True)
    assert copy.read_bytes() == layer.read_bytes()
    vorlen.write_plan(path, layer, {T: [1010]})  # the same recipe
    assert read_plan(path)[0].parameters == {T: [1010]}


def test_write_plan_does_not_replace_its_own_recipe(layer, tmp_path):
    recipe = tmp_path / "r.xml"
    recipe.write_bytes(layer.read_bytes())
    with pytest.raises(ValueError, match="would overwrite"):
        vorlen.write_plan(recipe, recipe, {T: [1000]})
    assert recipe.read_bytes() == layer.read_bytes() and len(list(tmp_path.iterdir())) == 1


def test_write_plan_names_a_missing_folder(layer, tmp_path):
    with pytest.raises(FileNotFoundError, match="folder not found: .*none, for the file x.json"):
        vorlen.write_plan(tmp_path / "none" / "x.json", layer, {T: [1000]})


def test_a_recipe_that_is_missing_is_named(tmp_path):
    with pytest.raises(FileNotFoundError, match=str(tmp_path / "r.xml")):
        quiet_sweep(tmp_path / "r.xml", {T: [1000]}, out=tmp_path / "s")
    assert not (tmp_path / "s").exists()


def test_values_may_have_units(layer):
    """0 degC is 273.15 K, 1 mbar is 100 Pa."""
    assert values_of(layer, {T: ["750 degC", 1030, ("760 degC", 1040)]}, T) == [1023.15, 1030.0, [1033.15, 1040.0]]
    assert values_of(layer, {P: ["400 mbar"]}, P) == [40000.0]
    assert values_of(layer, {T + "/end": ["750 degC"]}, T + "/end") == [1023.15]
    activation = "chemistry/Kd_In/Ta"
    assert values_of(layer, {activation: ["23000 K"]}, activation) == [23000.0]
    assert values_of(layer, pd.DataFrame({T: ["750 degC", "1030"]}), T) == [1023.15, 1030]


def test_a_faulty_value_is_one_error_without_others_in_its_traceback(layer):
    for parameters in ({T: ["hot"]}, {T: ["1 kg"]}, {"T": [1]}, {T: [1], "chemistry/Kd_In": [2]}):
        with pytest.raises(vorlen.PlanError) as error:
            make_plan(layer, parameters)
        assert error.value.__cause__ is None and error.value.__suppress_context__


def test_the_name_of_a_stage_in_a_path_is_answered_with_its_path(layer, examples):
    name = vorlen.Recipe.load(layer)[NAME]
    with pytest.raises(vorlen.PlanError, match=f"has no {name}/T; {name} is process_stages/stage_1; the path is {T}$"):
        make_plan(layer, {f"{name}/T": [1000]})


def test_the_recipe_of_a_row_is_that_of_its_values_set_one_after_the_other(layer):
    base = vorlen.Recipe.load(layer)
    values = {
        T: [1000.5, 1020], f"{T}/end": 1040, "process_stages/stage_1/P": 20000, "output/detail": "true",
        "process_stages/stage_1/gas_species/Q/TMIn": [0.1, 0.2], "chemistry/Kd_In/A": 2e13, "integration/scheme": "staged",
        "process_stages/stage_1/name": 'a "name" & <more>', "integration/tolerance": 1e-7,
    }
    expected = base.copy()
    for path, value in values.items():
        expected[path] = tuple(value) if isinstance(value, list) else value
    assert row_recipe(base, values) == expected.to_bytes()
    assert vorlen.Recipe(row_recipe(base, values))[T] == (1000.5, 1040.0) and row_recipe(base, {}) == base.to_bytes()
    with pytest.raises(KeyError, match="stage_9"):
        row_recipe(base, {T: 1000, "process_stages/stage_9/T": 1000})
