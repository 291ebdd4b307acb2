"""Runs, sweeps and fits report the warnings of `vorlen check` about their recipe."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import warnings
from pathlib import Path

import pandas as pd
import pytest

import vorlen
from support import EXAMPLES, MQW, PLAIN_LAYER, tool, without_integration
from sweeps import LAYER, P, T, small_sweep
from vorlen._recipe import check as _recipe_check
from vorlen._base import tool as _tool
from vorlen.__main__ import main
from vorlen._sweep.plan_values import make_plan
from vorlen._recipe.check import check_text, warning_text
from vorlen._sweep.check import MOST_ROWS, extreme_rows, sweep_text
from vorlen._base.tool import Finding, check_recipe

CLEAN = [*EXAMPLES, LAYER, PLAIN_LAYER]


@pytest.fixture(autouse=True)
def nothing_reported(monkeypatch):
    """As in a new process."""
    monkeypatch.setattr(_recipe_check, "_reasons", set())
    monkeypatch.setenv("VORLEN", tool())


@pytest.fixture
def calls(tmp_path_factory, monkeypatch):
    """The number of times that the tool was started, also by other processes."""
    folder = tmp_path_factory.mktemp("tool")
    script, log = folder / "vorlen", folder / "log"
    script.write_text(f'#!/bin/sh\necho "$@" >> {log}\nexec {tool()} "$@"\n')
    script.chmod(0o755)
    monkeypatch.setenv("VORLEN", str(script))
    return lambda: len(log.read_text().splitlines()) if log.exists() else 0


def odd_text() -> str:
    """A recipe with five warnings: three unknown elements in front of a second T and a stage that is not counted."""
    text = LAYER.read_text("utf-8")
    text = re.sub(r"(<NonstSurfChem[^>]*>)", r'\1<odd_1 val="1"/><odd_2 val="1"/><odd_3 val="1"/>', text, count=1)
    text = re.sub(r"(<T\s[^>]*/>)", r'\1<T val="1" end="2"/>', text, count=1)
    return text.replace("</process_stages>", '<stage_9><tau val="3"/></stage_9></process_stages>', 1)


def recorded(function) -> list[warnings.WarningMessage]:
    """The recipe warnings of a call."""
    with warnings.catch_warnings(record=True) as found:
        warnings.simplefilter("always")
        function()
    return [one for one in found if one.category is vorlen.RecipeWarning]


@pytest.mark.parametrize("path", CLEAN, ids=lambda path: path.stem)
def test_the_recipes_of_this_package_are_clean(path):
    assert check_text(path.read_bytes(), path.name) == ""


@pytest.mark.filterwarnings("error::vorlen.RecipeWarning")
def test_a_clean_recipe_runs_without_a_warning():
    assert vorlen.run(LAYER).complete


def test_a_run_issues_one_warning_with_the_number_and_the_first_three(tmp_path):
    path = tmp_path / "odd.xml"
    path.write_text(odd_text(), "utf-8")
    (warning,) = recorded(lambda: vorlen.run(path))
    lines = str(warning.message).splitlines()
    assert lines[0] == f"{path}: 5 warnings, the first 3 (vorlen check shows all):" and len(lines) == 4
    # what has no effect precedes the unknown elements, which are in earlier lines
    number = path.read_text("utf-8")[: odd_text().index("<T ")].count("\n") + 1
    assert lines[1].startswith(f"  line {number}: a second element NonstSurfChem:process_stages:stage_1:T is not read")
    assert "stage_9 is not read (n_stages is 1)" in lines[2] and "odd_1" in lines[3]
    assert warning.filename == __file__


def test_a_recipe_in_memory_has_no_name():
    (warning,) = recorded(lambda: vorlen.run(odd_text()))
    assert str(warning.message).startswith("recipe: 5 warnings, the first 3 ")
    assert "  line " not in str(warning.message)


def test_the_warning_about_a_recipe_built_in_python_names_the_layer_and_no_line(tmp_path):
    recipe = vorlen.Recipe.new("InGaN", delta="8 mm", pressure="400 mbar")
    recipe.template("GaN", 3000, 3e8)
    recipe.grow("n-GaN", 1, T=750, TMGa="180 umol/min", NH3="8 slm", H2="8 slm")
    (warning,) = recorded(lambda: vorlen.run(recipe))
    lines = str(warning.message).splitlines()
    assert lines[0] == "recipe: 1 warning:"
    assert lines[1].startswith('  T is 750 K in stage_1 "n-GaN", ')
    recipe.save(tmp_path / "n.xml")
    (warning,) = recorded(lambda: vorlen.run(tmp_path / "n.xml"))
    number = recipe.to_bytes()[: recipe.to_bytes().index(b"<T ")].count(b"\n") + 1
    assert f'  line {number}: T is 750 K in stage_1 "n-GaN", ' in str(warning.message)


def test_the_name_of_a_stage_is_added_where_the_text_names_its_element():
    def text(words: str, stage: str | None = "stage_1", name: str | None = "n-GaN") -> str:
        return Finding("warning", "unit", 4, words, None, stage, name).named_sentence(False)

    assert text("T is 1 K in stage_1: 2 K") == 'T is 1 K in stage_1 "n-GaN": 2 K'
    assert text("from stage_1_2 to stage_1") == 'from stage_1_2 to stage_1 "n-GaN"'
    assert text("T is 1 K") == 'stage_1 "n-GaN": T is 1 K'
    assert text('stage_1 "n-GaN" is hot') == 'stage_1 "n-GaN" is hot'
    assert text("NonstSurfChem:process_stages:stage_1:T is odd") == "NonstSurfChem:process_stages:stage_1:T is odd"
    assert text("T is 1 K", name=None) == text("T is 1 K", None, None) == "T is 1 K"


def test_the_order_is_duplicates_unread_parts_and_then_that_of_the_report():
    found = [
        Finding("warning", kind, number, kind, None)
        for number, kind in enumerate(("stray-text", "not-read", "unknown-element", "duplicate", "not-read"), 1)
    ]
    assert warning_text(found, "r").splitlines()[1:] == [
        "  line 4: duplicate", "  line 2: not-read", "  line 5: not-read",
    ]
    assert warning_text(found[:1], "r") == "r: 1 warning:\n  line 1: stray-text"
    assert warning_text([Finding("error", "no-number", 2, "wrong", None), *found], "r") == ""
    assert warning_text([Finding("warning", "initial-state", None, "NaN", "a hint")], "r").endswith("\n  NaN (a hint)")
    assert warning_text([], "r") == ""


def test_parts_that_are_not_simulated_are_all_shown():
    lost = [Finding("warning", kind, 1, kind, None) for kind in ("duplicate", "uncounted-stage") * 3]
    other = Finding("warning", "unit", 2, "unit", None)
    lines = warning_text([other, *lost], "r").splitlines()
    assert lines[0] == "r: 7 warnings, the first 6 (vorlen check shows all):" and len(lines) == 7
    assert "unit" not in "".join(lines[1:])
    assert warning_text(lost * 10, "r").startswith("r: 60 warnings, the first 20 (")


def test_check_false_starts_no_tool(calls):
    assert recorded(lambda: vorlen.run(odd_text(), check=False)) == [] and calls() == 0
    assert len(recorded(lambda: vorlen.run(odd_text()))) == 1 and calls() == 1
    with pytest.raises(TypeError, match="check must be True or False"):
        vorlen.run(LAYER, check="no")


def test_the_scheme_of_the_run_counts():
    recipe = without_integration(LAYER)
    recipe["integration/tolerance"] = 1e-5
    assert "no-effect" in [one.kind for one in check_recipe(recipe.to_bytes())]
    assert len(recorded(lambda: vorlen.run(recipe))) == 1
    assert recorded(lambda: vorlen.run(recipe, scheme="staged")) == []


def test_errors_of_a_recipe_are_left_to_the_run():
    recipe = vorlen.Recipe(odd_text())
    recipe[T] = -5

    def fail() -> None:
        with pytest.raises(vorlen.SimulationError, match="Very low or negative temperature"):
            vorlen.run(recipe)
        with pytest.raises(vorlen.RecipeError):
            vorlen.run("<NonstSurfChem>")
        with pytest.raises(vorlen.RecipeError):
            vorlen.run("<NonstSurfChem>", scheme="staged")

    assert recorded(fail) == []


def test_without_the_tool_runs_work_and_one_warning_of_the_process_says_that_nothing_is_checked():
    program = f"import vorlen\nfor _ in range(2):\n    vorlen.run({str(LAYER)!r})\nprint('done')\n"
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1]), "VORLEN": "/nowhere/vorlen"}
    words = [sys.executable, "-W", "always", "-c", program]
    done = subprocess.run(words, env=environment, capture_output=True, text=True, check=True)
    reason = "recipes are run without a check: /nowhere/vorlen could not be run: No such file or directory"
    assert done.stdout == "done\n" and done.stderr.count("RecipeWarning") == 1 and reason in done.stderr


def test_the_reason_names_the_way_out_if_no_tool_is_found(monkeypatch):
    monkeypatch.setattr(_tool, "find_tool", lambda: None)
    found = recorded(lambda: [vorlen.run(LAYER), vorlen.run(LAYER)])
    assert [str(one.message) for one in found] == [
        "recipes are run without a check: the command vorlen was not found. Set VORLEN to its path"
    ]


@pytest.mark.parametrize(
    ("answer", "reason"),
    [
        ("echo no report", "the output of {} check is not a report"),
        ("echo '{{\"files\": []}}'", "the output of {} check is not a report"),
        ("exec sleep 20", "{} check did not finish within 0.3 s"),
    ],
)
def test_a_tool_that_fails_does_not_stop_the_run(tmp_path, monkeypatch, answer, reason):
    script = tmp_path / "vorlen"
    script.write_text(f"#!/bin/sh\n{answer.format()}\n")
    script.chmod(0o755)
    monkeypatch.setenv("VORLEN", str(script))
    monkeypatch.setattr(_tool, "CHECK_TIMEOUT", 0.3)
    (warning,) = recorded(lambda: vorlen.run(LAYER))
    assert str(warning.message) == f"recipes are run without a check: {reason.format(script)}"


def test_values_of_a_sweep_that_are_in_another_unit_are_reported_with_their_rows(calls):
    """750 degC is 1023.15 K; the recipe itself is clean."""
    (warning,) = recorded(lambda: small_sweep(LAYER, {T: [760, 750, 755]}))
    lines = str(warning.message).splitlines()
    assert lines[0] == "the rows with the smallest and largest values: 2 warnings:" and len(lines) == 3
    assert lines[1].startswith("  row 0 (T = 760): T is 760 K in stage_1 ")
    assert lines[2].startswith("  row 1 (T = 750): T is 750 K in stage_1 ")
    assert warning.filename == str(Path(__file__).with_name("sweeps.py")) and calls() == 1
    assert recorded(lambda: small_sweep(LAYER, {T: [1020, 1030]})) == []


def test_what_the_recipe_has_already_is_not_repeated_for_rows():
    recipe = vorlen.Recipe.load(LAYER)
    recipe[T] = 750
    (warning,) = recorded(lambda: small_sweep(recipe, {P: [40000, 40001], T: [750]}))
    assert str(warning.message).count("T is 750 K") == 1 and "  row" not in str(warning.message)
    (warning,) = recorded(lambda: small_sweep(recipe, {T: [750, 760]}))
    lines = str(warning.message).splitlines()
    assert lines[0] == f"{LAYER}: 1 warning:"
    assert lines[2:3] == ["the rows with the smallest and largest values: 1 warning:"]
    assert lines[3].startswith("  row 1 (T = 760): T is 760 K")


def test_rows_that_the_library_rejects_are_left_to_the_run():
    assert recorded(lambda: small_sweep(LAYER, {T: [-5, 1020]})) == []
    recipe = vorlen.Recipe.load(LAYER)
    recipe[T] = -5
    (warning,) = recorded(lambda: small_sweep(recipe, {T: [1020, 750]}))
    assert "row 1 (T = 750): T is 750 K" in str(warning.message)


def test_the_extreme_rows_are_the_first_with_the_smallest_and_the_largest_value_of_each_path():
    rows = [{"a": a, "b": b} for a in (2, 1, 3) for b in (5.0, [4, 6])]
    assert extreme_rows(rows) == {1: ["b"], 2: ["a"], 4: ["a"]}
    assert extreme_rows([{"name": "x"}, {"name": "y"}]) == extreme_rows([]) == {}
    assert extreme_rows([{"a": 1}]) == {0: ["a"]}
    columns = [f"c{number}" for number in range(10)]
    many = [{name: int(number == place) for number, name in enumerate(columns)} for place in range(10)]
    assert len(extreme_rows(many)) == MOST_ROWS


def test_values_are_named_by_paths_where_last_parts_are_equal_and_ramps_by_both_ends():
    well, upper = "process_stages/stage_1/stage_1_3/T", "process_stages/stage_2/T"
    text = sweep_text(make_plan(MQW, {well: [750], upper: [[750, 760]]}), None)
    assert f"row 0 ({well} = 750, {upper} = 750 to 760): the temperatures of 2 stages look like °C: T is 750 K in " in text


def test_check_returns_the_report_as_a_table(tmp_path):
    path = tmp_path / "odd.xml"
    path.write_text(odd_text(), "utf-8")
    table = vorlen.check(path)
    assert list(table.columns) == ["severity", "kind", "stage", "name", "text", "hint", "line"]
    assert set(table["severity"]) == {"warning"} and len(table) == 5
    duplicate = table[table["kind"] == "duplicate"].iloc[0]
    name = vorlen.Recipe.load(LAYER)["process_stages/stage_1/name"]
    assert (duplicate["stage"], duplicate["name"]) == ("stage_1", name) and ":T is not read" in duplicate["text"]
    assert duplicate["line"] == odd_text()[: odd_text().index('<T val="1" end')].count("\n") + 1
    for same in (str(path), odd_text(), odd_text().encode(), vorlen.Recipe(odd_text())):
        pd.testing.assert_frame_equal(vorlen.check(same), table)


def test_check_of_a_clean_recipe_has_no_rows():
    table = vorlen.check(LAYER)
    assert table.empty and list(table.columns)[:2] == ["severity", "kind"]


def test_check_returns_errors_and_what_is_not_a_recipe():
    recipe = vorlen.Recipe.load(LAYER)
    recipe[T] = -5
    table = vorlen.check(recipe)
    assert table["severity"].iloc[0] == "error" and "temperature" in table["text"].iloc[0]
    (row,) = vorlen.check("<NonstSurfChem>").itertuples()
    assert (row.severity, row.kind, row.stage) == ("error", "file", "") and "/proc" not in row.text
    with pytest.raises(FileNotFoundError):
        vorlen.check("no.xml")
    with pytest.raises(TypeError, match="recipe must be a path"):
        vorlen.check(3)


def test_check_under_another_scheme():
    recipe = without_integration(LAYER)
    recipe["integration/tolerance"] = 1e-5
    assert "no-effect" in set(vorlen.check(recipe)["kind"]) and vorlen.check(recipe, scheme="staged").empty
    with pytest.raises(ValueError, match="scheme must be"):
        vorlen.check(recipe, scheme="fast")


def test_check_without_the_tool(monkeypatch):
    monkeypatch.setenv("VORLEN", "/nowhere/vorlen")
    with pytest.raises(RuntimeError, match="/nowhere/vorlen could not be run"):
        vorlen.check(LAYER)


def test_a_sweep_checks_everything_in_one_call(calls):
    (warning,) = recorded(lambda: small_sweep(odd_text(), {P: [40000, 40001, 40002]}))
    assert "5 warnings" in str(warning.message) and calls() == 1
    assert recorded(lambda: small_sweep(odd_text(), {P: [40000]}, check=False)) == [] and calls() == 1


def test_a_sensitivity_checks_its_recipe_once(calls):
    assert len(recorded(lambda: vorlen.sensitivity(odd_text(), [P], workers=1))) == 1 and calls() == 1
    assert recorded(lambda: vorlen.sensitivity(odd_text(), [P], workers=1, check=False)) == [] and calls() == 1


def test_a_fit_checks_each_recipe_once_and_names_it(calls):
    def fit(**options: object) -> None:
        vorlen.fit(
            {"odd": odd_text(), "even": LAYER}, {"chemistry/Kd_In/A": (1e10, 1e16)},
            {"odd": {"thickness_2": 2.5}, "even": {"thickness_2": 2.5}}, workers=1, **options,
        )

    (warning,) = recorded(fit)
    assert "  line " not in str(warning.message)  # odd is not a file
    assert str(warning.message).startswith("odd: 5 warnings") and warning.filename == __file__ and calls() == 2
    assert recorded(lambda: fit(check=False)) == [] and calls() == 2


def test_the_command_line_reports_the_warnings_once(tmp_path, capsys, calls):
    recipe = tmp_path / "odd.xml"
    recipe.write_text(odd_text(), "utf-8")
    words = ["--quiet", "--workers", "1"]
    assert main(["sweep", str(recipe), "--set", f"{P}=40000,40001", *words]) == 0
    written = capsys.readouterr().err.splitlines()
    assert written[0] == f"vorlen sweep: {recipe}: 5 warnings, the first 3 (vorlen check shows all):"
    assert len(written) == 4 and calls() == 1
    plan = vorlen.write_plan(tmp_path / "plan.json", odd_text(), {P: [40000]})
    assert main(["sweep", str(plan), "--count"]) == 0 and calls() == 1
    assert main(["sweep", str(plan), *words]) == 0
    assert capsys.readouterr().err.startswith(f"vorlen sweep: the recipe of {plan}: 5 warnings") and calls() == 2


def test_check_must_be_true_or_false():
    measured = {"thickness_2": 2.5}
    for call in (
        lambda: vorlen.sweep(LAYER, {P: [40000]}, check=1),
        lambda: vorlen.sensitivity(LAYER, [P], check=None),
        lambda: vorlen.fit(LAYER, {"chemistry/Kd_In/A": (1e10, 1e16)}, measured, check="yes"),
    ):
        with pytest.raises(TypeError, match="check must be True or False"):
            call()
