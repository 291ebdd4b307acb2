"""vorlen sweep RECIPE --set PATH=VALUES: a sweep without a plan in a file."""

from __future__ import annotations

import json
import shutil

import pytest

import vorlen
from sweeps import NAME, T, TMIN, quiet_sweep
from vorlen.__main__ import main
from vorlen._sweep.plan import MAX_ROWS
from vorlen._sweep.plan_options import plan_of_options, split_setting

PERIODS = "process_stages/stage_1/n_periods"


@pytest.fixture
def recipe(layer, tmp_path):
    """A recipe in a folder where files can be written."""
    return shutil.copy(layer, tmp_path / "layer.xml")


def values(recipe, text, path=T):
    """What --set gives for a path."""
    return plan_of_options(recipe, [(path, text)], None, None).parameters[path]


def rejection(capsys, *words):
    """The text of a sweep that is an error, on one line of stderr."""
    assert main(["sweep", *map(str, words)]) == 1
    written = capsys.readouterr()
    assert written.out == "" and written.err.startswith("vorlen: ") and written.err.count("\n") == 1
    return written.err.removeprefix("vorlen: ").rstrip("\n")


@pytest.mark.parametrize(
    ("text", "expected"),
    [
        ("1000:1050:5", [1000, 1005, 1010, 1015, 1020, 1025, 1030, 1035, 1040, 1045, 1050]),
        ("1050:1000:-25", [1050, 1025, 1000]),
        ("0.1:0.3:0.1", [0.1, 0.2, 0.3]),  # in binary arithmetic, 0.1 + 2 * 0.1 exceeds 0.3
        ("0:1:0.1", [0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1]),
        ("1e3:1.01e3:5", [1000, 1005, 1010]),
        ("1000:1050:20", [1000, 1020, 1040]),  # the end is not one of the steps
        ("1000:1010:50", [1000]),
        ("1000:1000:5", [1000]),
        ("1000", [1000]),
        ("1000,1020.5, 1010", [1000, 1020.5, 1010]),
        ("900,1000:1020:10,1100", [900, 1000, 1010, 1020, 1100]),
        ("-5", [-5]),
    ],
)
def test_values(layer, text, expected):
    assert values(layer, text) == expected


@pytest.mark.parametrize(
    ("text", "expected"),
    [
        ("750 degC", [1023.15]),
        ("750:760:5 degC", [1023.15, 1028.15, 1033.15]),
        ("750, 760 degC", [1023.15, 1033.15]),
        ("700,750:760:10degC", [973.15, 1023.15, 1033.15]),
        ("1023.15 K", [1023.15]),
    ],
)
def test_a_unit_after_the_last_value_is_that_of_all(layer, text, expected):
    """0 degC is 273.15 K."""
    assert plan_of_options(layer, [(T, text)], None, None).parameters[T] == expected


@pytest.mark.parametrize("text", ["750 degC, 1030", "750 degC:760 degC:5 degC", "750 degC, 760 degC", "750 degC:760:5"])
def test_another_place_of_the_unit_is_an_error_that_shows_the_right_one(recipe, capsys, text):
    rule = "one unit follows the last value and is that of all, as in 750:760:5 degC"
    assert rejection(capsys, recipe, "--set", f"{T}={text}") == f"{T}: {rule}, got {text!r}"


def test_a_unit_that_does_not_fit_is_an_error(recipe, capsys):
    assert rejection(capsys, recipe, "--set", f"{T}=750:760:5 mbar").endswith("has the unit mbar, expected K or degC")
    assert "unknown unit 'x10'" in rejection(capsys, recipe, "--set", f"{T}=0x10")


def test_the_name_of_a_stage_is_answered_with_its_path(recipe, examples, capsys):
    text = rejection(capsys, examples / "ingan_gan_mqw.xml", "--set", "InGaN well/T=1000:1010:5")
    assert text.endswith(" has no InGaN well/T; InGaN well is process_stages/stage_1/stage_1_3; the path is "
                         "process_stages/stage_1/stage_1_3/T")


def test_a_fine_range_has_the_numbers_that_a_reader_would_write(layer):
    assert values(layer, "0.001:1:0.001") == [float(f"{number}e-3") for number in range(1, 1001)]


def test_values_of_an_integer_are_integers(examples):
    kept = values(examples / "ingan_gan_mqw.xml", "2:6:2", PERIODS)
    assert kept == [2, 4, 6] and {type(value) for value in kept} == {int}


def test_values_of_a_text_are_texts_and_have_no_ranges(layer):
    assert values(layer, "a:b:c,12", NAME) == ["a:b:c", "12"]
    assert values(layer, "staged,continuous", "integration/scheme") == ["staged", "continuous"]


def test_several_settings_are_a_grid_whose_last_one_varies_fastest(recipe, tmp_path, capsys):
    words = ["sweep", str(recipe), "--set", f"{T}=1000:1020:10", "--set", f"{TMIN}=0.1,0.2", "-o", str(tmp_path / "s")]
    assert main([*words, "--quiet", "--workers", "1"]) == 0
    assert capsys.readouterr().out == f"6 rows: 6 ok\ntable in {tmp_path / 's' / 'table.csv'}\n"
    same = quiet_sweep(recipe, {T: [1000, 1010, 1020], TMIN: [0.1, 0.2]}, out=tmp_path / "python")
    assert list(same[T]) == [1000, 1000, 1010, 1010, 1020, 1020]
    assert (tmp_path / "s" / "table.csv").read_bytes() == (tmp_path / "python" / "table.csv").read_bytes()
    plans = [json.loads((tmp_path / name / "plan.json").read_text()) for name in ("s", "python")]
    assert plans[0] == plans[1]  # the folder can be opened and continued like that of any other sweep


def test_a_value_of_a_ramp_sets_both_ends_and_each_end_has_a_path(recipe, tmp_path, capsys):
    words = ["--set", f"{T}=1010", "--set", f"{T}/end=1010,1050", "-o", str(tmp_path / "s"), "--quiet", "--workers", "1"]
    assert main(["sweep", str(recipe), *words]) == 0
    ends = [run.recipe[T] for run in vorlen.read_sweep(tmp_path / "s").runs]
    assert ends == [(1010.0, 1010.0), (1010.0, 1050.0)]


def test_the_folder_is_beside_the_recipe_unless_it_is_named(recipe, tmp_path, capsys):
    assert main(["sweep", str(recipe), "--set", f"{T}=1000", "--quiet"]) == 0
    assert capsys.readouterr().out.endswith(f"table in {tmp_path / 'layer.sweep' / 'table.csv'}\n")


def test_the_same_command_continues_and_another_one_is_rejected(recipe, tmp_path, capsys):
    words = ["sweep", str(recipe), "--set", f"{T}=1000:1010:10", "-o", str(tmp_path / "s"), "--quiet", "--workers", "1"]
    assert main([*words, "--rows", "0:1"]) == 0
    first = tmp_path / "s" / "rows" / "000000.status.json"
    before = first.stat().st_mtime_ns
    assert main(words) == 0
    assert first.stat().st_mtime_ns == before and len(vorlen.read_sweep(tmp_path / "s").failed) == 0
    table = (tmp_path / "s" / "table.csv").read_bytes()
    capsys.readouterr()
    for other in (f"{T}=1000:1020:20", f"{TMIN}=0.1"):
        text = rejection(capsys, recipe, "--set", other, "-o", tmp_path / "s")
        assert text == (f"{tmp_path / 's'} holds a sweep with a different recipe or different rows. Name another folder "
                        "with -o, or replace the sweep with --no-resume")
        text = rejection(capsys, recipe, "--set", other, "-o", tmp_path / "s", "--merge")
        assert text.endswith(" different rows. Name the folder of this sweep with -o")
    assert (tmp_path / "s" / "table.csv").read_bytes() == table


def test_count_rows_merge_and_mode_work_without_a_plan_too(recipe, tmp_path, capsys):
    words = ["sweep", str(recipe), "--set", f"{T}=1000,1010", "--set", f"{TMIN}=0.1,0.2", "-o", str(tmp_path / "s")]
    assert main([*words, "--count"]) == 0 and main([*words, "--mode", "zip", "--count"]) == 0
    assert capsys.readouterr().out == "4\n2\n"
    assert not (tmp_path / "s").exists()
    assert main([*words, "--mode", "zip", "--rows", "0:2", "--quiet", "--workers", "1"]) == 0
    assert main([*words, "--mode", "zip", "--merge"]) == 0
    table = vorlen.read_sweep(tmp_path / "s").table
    assert list(zip(table[T], table[TMIN])) == [(1000, 0.1), (1010, 0.2)]


def test_a_table_has_a_line_for_each_row(recipe, tmp_path, capsys):
    rows = tmp_path / "rows.csv"
    rows.write_text(f"{T}_begin,{T}_end,{TMIN}\n1000,1000,0.1\n1010,1050,0.2\n")
    assert main(["sweep", str(recipe), "--table", str(rows), "--quiet", "--workers", "1"]) == 0
    assert [run.recipe[T] for run in vorlen.read_sweep(tmp_path / "layer.sweep").runs] == [(1000, 1000), (1010, 1050)]


@pytest.mark.parametrize(
    ("text", "reason"),
    [
        ("1000:1050:0", "the step in '1000:1050:0' is 0; a range is START:END:STEP"),
        ("1000:1050:1e-400", "the step in '1000:1050:1e-400' is 0; a range is START:END:STEP"),
        ("1000:1050:-5", "the step in '1000:1050:-5' leads away from the end; a range is START:END:STEP"),
        ("1000:5:1050", "the step in '1000:5:1050' leads away from the end; a range is START:END:STEP"),
        ("1000:1050", "a range is START:END:STEP, got '1000:1050'"),
        ("1000,,1010", "a value is missing in '1000,,1010'"),
        ("0:1e9:1e-9", f"too many values in '0:1e9:1e-9'; a sweep has at most {MAX_ROWS} rows"),
        ("0:1e308:1e-300", f"too many values in '0:1e308:1e-300'; a sweep has at most {MAX_ROWS} rows"),
    ],
)
def test_an_impossible_list_of_values_is_an_error_with_its_path(recipe, tmp_path, capsys, text, reason):
    assert rejection(capsys, recipe, "--set", f"{T}={text}") == f"{T}: {reason}"
    assert [path.name for path in tmp_path.iterdir()] == ["layer.xml"]


@pytest.mark.parametrize("text", ["1000:1050:x", "nan", "inf", "1000:inf:5", "warm"])
def test_what_is_not_a_number_is_an_error(recipe, capsys, text):
    assert rejection(capsys, recipe, "--set", f"{T}={text}").startswith(f"{T} takes a number without a unit, got ")


def test_a_fraction_for_an_integer_is_an_error(examples, capsys):
    text = rejection(capsys, examples / "ingan_gan_mqw.xml", "--set", f"{PERIODS}=1:2:0.5", "--count")
    assert text == f"{PERIODS} takes an integer, got '0.5'"


def test_the_ends_of_a_ramp_in_one_value_are_an_error_with_a_hint(recipe, capsys):
    text = rejection(capsys, recipe, "--set", f"{T}=1000..1050")
    assert text.endswith("; the start and the end of a ramp are set by PATH/val and PATH/end")


def test_an_unknown_path_is_an_error_with_similar_paths(recipe, capsys):
    text = rejection(capsys, recipe, "--set", "process_stages/stage_1/Temp=1000:1050:5")
    assert text.startswith(f"{recipe} has no process_stages/stage_1/Temp; similar paths: {T}, ")


def test_a_group_has_no_value(recipe, capsys):
    assert "process_stages/stage_1 is a group" in rejection(capsys, recipe, "--set", "process_stages/stage_1=1")


def test_a_path_can_be_set_once(recipe, capsys):
    text = rejection(capsys, recipe, "--set", f"{T}=1000", "--set", f"{T}=1010")
    assert text == f"{T} is set twice; list all its values in one --set"
    other = T.replace("/", ":")
    text = rejection(capsys, recipe, "--set", f"{T}=1000", "--set", f"{other}=1010")
    assert text == f"{other} sets the same value as {T}, which comes before it"


def test_too_many_combinations_are_an_error_before_they_are_listed(recipe, capsys):
    words = [f"{path}=1:10000:1" for path in (T, TMIN)]
    text = rejection(capsys, recipe, "--set", words[0], "--set", words[1])
    assert text == f"a sweep has at most {MAX_ROWS} rows, this one would have 100000000"
    with pytest.raises(vorlen.PlanError, match="at most"):
        vorlen.sweep(recipe, {T: range(2000), TMIN: range(1, 2000)})


def test_a_plan_states_its_own_values(recipe, tmp_path, capsys):
    plan = vorlen.write_plan(tmp_path / "plan.json", recipe, {T: [1000]})
    reason = f"{plan} is a plan and states its own values; --set and --table need a recipe"
    assert rejection(capsys, plan, "--set", f"{T}=1000") == reason
    assert rejection(capsys, plan, "--table", recipe) == reason


def test_a_recipe_alone_is_an_error_with_a_hint(recipe, capsys):
    assert rejection(capsys, recipe) == f"{recipe} is a recipe; give the values to vary with --set PATH=VALUES"


def test_files_that_are_missing_or_not_recipes_are_errors(tmp_path, capsys):
    (tmp_path / "a.xml").write_text("<a>")
    assert "a.xml" in rejection(capsys, tmp_path / "a.xml", "--set", f"{T}=1000")
    assert "No such file" in rejection(capsys, tmp_path / "b.xml", "--set", f"{T}=1000")
    assert rejection(capsys, tmp_path / "b.json") == f"{tmp_path / 'b.json'}: plan not found"


@pytest.mark.parametrize(
    "words",
    [
        ["--set", T], ["--set", f"{T}="], ["--set", "=1000"], ["--set", ""],  # not PATH=VALUES
        ["plan.json", "--set", f"{T}=1000"],  # a recipe and a plan
        ["--set", f"{T}=1000", "--table", "rows.csv"],
        ["--table", "rows.csv", "--mode", "zip"], ["--mode", "grid"],
    ],
)
def test_options_that_do_not_go_together_are_usage_errors(recipe, words):
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(recipe), *words])
    assert ended.value.code == 2


def test_a_setting_is_split_at_its_first_sign_of_equality():
    assert split_setting(" a/b = c=d,e ") == ("a/b", "c=d,e")


def test_the_help_shows_how_to_sweep_without_a_plan(capsys):
    with pytest.raises(SystemExit):
        main(["sweep", "--help"])
    text = capsys.readouterr().out
    assert "vorlen sweep RECIPE --set PATH=VALUES" in text and "START:END:STEP" in text
