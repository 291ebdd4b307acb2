"""Rows that no process has: such a run fails, and the text names time, stage, value and remedy, as the tool's does."""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import vorlen
from vorlen._runs.result_file import COLUMN_NAMES
from support import (
    MQW,
    V_DEFECTS,
    failed_run,
    failing_recipe,
    recipe_with_a_pause,
    recipe_with_nan,
    result,
    row,
    scripted_library,
    tool,
    without_integration,
)
from vorlen._runs.result_check import looks_physical
from vorlen._recipe.source import RecipeSource
from vorlen._base.tool import find_tool

STAGED_REMEDY = 'What to do: run it with --scheme staged (in Python: scheme="staged")'
PAGE_REMEDY = "What to do: see docs/when-a-run-fails.md"
TEXTS_OF_INTEGRATION = (  # docs/messages.md
    "Step size has become too small",
    "Maximum number of time steps reached",
    "Matrix is repeatedly singular",
    "State is not finite",
)

# A pre-stage of 5 s, two periods of two layers of 10 s each, a post-stage of 5 s.
STAGES = [("ground", 5, 100), *[("well", 10, 20), ("barrier <b>", 10, 20)] * 2, ("top", 5, 50)]
LABELS = [
    "pre_stage_1 (ground)", "stage_1_1, period 1 (well)", "stage_1_2, period 1 (barrier <b>)",
    "stage_1_1, period 2 (well)", "stage_1_2, period 2 (barrier <b>)", "post_stage_1 (top)",
]


def periodic_recipe() -> vorlen.Recipe:
    recipe = without_integration(V_DEFECTS)
    for path, name, tau in (("stage_1", "well", 10), ("stage_2", "barrier <b>", 10)):
        recipe[f"process_stages/{path}/name"], recipe[f"process_stages/{path}/tau"] = name, tau
    recipe.make_periodic("process_stages/stage_1", "process_stages/stage_2", 2)
    for group, name in (("pre_stages/pre_stage_1", "ground"), ("post_stages/post_stage_1", "top")):
        recipe[f"{group}/name"], recipe[f"{group}/tau"] = name, 5
    return recipe


def rows_of(changes: dict[int, dict[str, float]], count: int = 13) -> list[str]:
    """The rows of STAGES, one each 5 s in active stages; changes: values of rows by their number from 0."""
    times = [0, 5, *range(5, 46, 5), 45, 50]
    made = []
    for number, time in enumerate(times[:count]):
        values = {"time": time, "z": time, "x_ga": 1.0} | changes.get(number, {})
        made.append(row(2 <= number <= 10, **values))
    return made


def run_of(changes: dict[int, dict[str, float]], with_recipe: bool = True) -> vorlen.Run:
    source = RecipeSource.of(periodic_recipe()) if with_recipe else RecipeSource()
    return vorlen.Run(result(STAGES, rows_of(changes)).encode(), recipe_source=source)


@pytest.fixture
def scripted(tmp_path_factory: pytest.TempPathFactory, monkeypatch: pytest.MonkeyPatch) -> pytest.MonkeyPatch:
    """Runs call a library that the environment directs."""
    monkeypatch.setenv("VORLEN_LIBRARY", str(scripted_library(tmp_path_factory.mktemp("library"))))
    return monkeypatch


def write_rows(monkeypatch: pytest.MonkeyPatch, folder: Path, rows: list[str]) -> None:
    (folder / "rows").write_text(result(STAGES, rows))
    monkeypatch.setenv("TEST_ROWS", str(folder / "rows"))


@pytest.mark.parametrize("number", range(13))
@pytest.mark.parametrize("column", ["z", "x_in", "x_ga", "x_al"])
@pytest.mark.parametrize("value", [-0.0010001, -0.001, 1.001, 1.0010001, 4.86, np.nan, np.inf, -np.inf])
def test_the_quick_look_at_rows_misses_nothing(number: int, column: str, value: float) -> None:
    """It may be wrong about fractions of rows that were not simulated, which are not its business."""
    rows = "".join(rows_of({number: {column: value}})).encode()
    if column == "z" and np.isfinite(value):
        assert looks_physical(rows)
    else:
        assert looks_physical(rows) == (np.isfinite(value) and -0.001 <= value <= 1.001)


def test_the_quick_look_passes_over_nothing_but_whole_rows() -> None:
    good = "".join(rows_of({})).encode()
    assert looks_physical(good)
    for rows in (b"", good[:-30], good + b"1 2\n", good.replace(b"1.0000000000000000e+00", b"1.0x00000000000000e+00", 1)):
        assert not looks_physical(rows)


@pytest.mark.parametrize("value", [-0.001, 0.0, 1.0, 1.001])
def test_fractions_within_the_limits_are_physical(value: float) -> None:
    run = run_of({4: {"x_al": value}})
    assert (run.unphysical, run.failed, run.warnings) == ("", False, [])


@pytest.mark.parametrize("column", ["x_in", "x_ga", "x_al"])
@pytest.mark.parametrize("value", [-0.0010001, 1.0010001, 4.86, -3e10])
def test_fractions_outside_of_the_limits_are_not(column: str, value: float) -> None:
    run = run_of({4: {column: value}})
    metal = {"x_in": "indium", "x_ga": "gallium", "x_al": "aluminium"}[column]
    assert run.unphysical == (
        "Unphysical values in 1 of 13 rows, first at 15 s in stage_1_1, period 1 (well): "
        f"{metal} fraction is {value:.6g}"
    )
    assert run.failed and run.warnings == [run.unphysical] and run.unphysical in repr(run)


@pytest.mark.parametrize("number", [0, 1, 11, 12])
def test_fractions_of_rows_that_were_not_simulated_are_the_recipe_s_own(number: int) -> None:
    assert run_of({number: {"x_ga": 4.86}}).unphysical == ""


@pytest.mark.parametrize("column", COLUMN_NAMES)
@pytest.mark.parametrize(("value", "shown"), [(np.nan, "NaN"), (np.inf, "infinite"), (-np.inf, "infinite")])
def test_nan_and_infinity_are_unphysical_in_every_column(column: str, value: float, shown: str) -> None:
    text = run_of({4: {column: value}}).unphysical
    assert text.endswith(f" is {shown}")
    place = "an unknown time:" if column == "time" else "15 s in stage_1_1, period 1 (well):"
    assert text.startswith(f"Unphysical values in 1 of 13 rows, first at {place} ")


@pytest.mark.parametrize(
    ("number", "place"),
    # Boundaries are at 15, 25 and 35 s; a row there belongs to the stage that ends.
    [(0, 0), (1, 0), (2, 1), (3, 1), (4, 1), (5, 2), (6, 2), (7, 3), (8, 3), (9, 4), (10, 4), (11, 5), (12, 5)],
)
def test_each_row_is_found_in_its_stage(number: int, place: int) -> None:
    bad = {number: {"rate": float("nan")}}
    assert f" s in {LABELS[place]}: growth rate is NaN" in run_of(bad).unphysical
    label = f"layer {place + 1} ({STAGES[place][0]})"
    assert f" s in {label}: growth rate is NaN" in run_of(bad, with_recipe=False).unphysical


def test_the_first_row_and_its_first_column_are_named_and_all_rows_counted() -> None:
    text = run_of({5: {"x_ga": 4.86, "x_al": -3.86}, 6: {"x_in": 2}, 8: {"z": float("nan")}}).unphysical
    assert text == (
        "Unphysical values in 3 of 13 rows, first at 20 s in stage_1_2, period 1 (barrier <b>): "
        "gallium fraction is 4.86"
    )


@pytest.mark.parametrize(
    ("name", "shown"),
    [("", " (Layer2)"), ("two\nlines", " (two lines)"), ("n" * 100, f" ({'n' * 100})"), ("n" * 101, "")],
)
def test_odd_names_of_layers_in_the_text(name: str, shown: str) -> None:
    layers = [STAGES[0], (name, 10, 20), *STAGES[2:]]
    run = vorlen.Run(result(layers, rows_of({3: {"x_in": 2}})).encode())
    assert f" in layer 2{shown}: " in run.unphysical


def test_a_run_with_unphysical_rows_fails_and_keeps_them_apart_from_an_older_result(tmp_path: Path) -> None:
    path, recipe = tmp_path / "r.result.txt", recipe_with_a_pause()
    path.write_bytes(b"older")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe, path)
    text, remedy = caught.value.text.split("\n")
    # The pause ends and the barrier starts 3785 s after the start.
    assert text.startswith("Unphysical values in ") and " s in stage_3 (AlGaN barrier): gallium fraction is " in text
    assert 3785 < float(text.split("first at ")[1].split()[0]) < 3825
    assert remedy == STAGED_REMEDY
    assert path.read_bytes() == b"older"
    failed = vorlen.read(tmp_path / "r.failed.txt")
    assert failed.failed and failed.text == caught.value.text and failed.content == caught.value.run.content
    status = json.loads((tmp_path / "r.status.json").read_text())
    assert (status["result"], status["text"], status["scheme"]) == (1, caught.value.text, "continuous")
    assert status["result_file"] == "r.failed.txt"


def test_nan_rows_fail_without_a_result_file_too() -> None:
    run = failed_run(recipe_with_nan())
    assert run.failed and " is NaN\n" in run.text and run.complete


def test_a_file_with_unphysical_rows_can_be_read_and_says_so(tmp_path: Path) -> None:
    path = tmp_path / "r.txt"
    path.write_text(result(STAGES, rows_of({5: {"x_ga": 4.86}})))
    run = vorlen.read(path)
    assert run.text == "" and run.complete and run.failed and len(run.profile) == 13
    assert "layer 3 (barrier <b>): gallium fraction is 4.86" in run.warnings[0]


@pytest.mark.parametrize("scheme", [None, "continuous", "staged"])
def test_the_remedy_depends_on_the_scheme_of_the_run(
    scripted: pytest.MonkeyPatch, tmp_path: Path, scheme: str | None
) -> None:
    write_rows(scripted, tmp_path, rows_of({5: {"x_ga": 4.86}}))
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(periodic_recipe(), tmp_path / "r.txt", scheme=scheme)
    assert caught.value.text.split("\n")[-1] == (PAGE_REMEDY if scheme == "staged" else STAGED_REMEDY)
    status = json.loads((tmp_path / "r.status.json").read_text())
    assert status["scheme"] == (scheme or "continuous")


@pytest.mark.parametrize("text", TEXTS_OF_INTEGRATION)
@pytest.mark.parametrize(
    ("count", "end"),
    [
        (6, "20 s in stage_1_2, period 1 (barrier <b>)"),
        (5, "15 s, at the start of stage_1_2, period 1 (barrier <b>)"),
        (3, "5 s, at the start of stage_1_1, period 1 (well)"),
        (11, "45 s in stage_1_2, period 2 (barrier <b>)"),
    ],
)
def test_an_integration_that_ended_early_has_time_stage_and_remedy(
    scripted: pytest.MonkeyPatch, tmp_path: Path, text: str, count: int, end: str
) -> None:
    write_rows(scripted, tmp_path, rows_of({}, count))
    scripted.setenv("TEST_TEXT", text)
    for scheme, remedy in (("continuous", STAGED_REMEDY), ("staged", PAGE_REMEDY)):
        with pytest.raises(vorlen.SimulationError) as caught:
            vorlen.run(periodic_recipe(), scheme=scheme)
        assert caught.value.text == f"{text}\nThe run ended at {end}\n{remedy}"
        assert caught.value.run.text == caught.value.text


def test_a_last_row_just_before_a_boundary_belongs_to_a_failure_after_it(
    scripted: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    scripted.setenv("TEST_TEXT", TEXTS_OF_INTEGRATION[0])
    for time, place in ((14.995, ", at the start of"), (14.9, " in")):
        write_rows(scripted, tmp_path, rows_of({4: {"time": time}}, 5))
        label = LABELS[2] if time > 14.99 else LABELS[1]
        with pytest.raises(vorlen.SimulationError, match=f"ended at {time} s{place} ") as caught:
            vorlen.run(periodic_recipe())
        assert f"{place} {label}\n" in caught.value.text


def test_an_integration_that_ended_early_after_unphysical_rows_names_both(
    scripted: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    write_rows(scripted, tmp_path, rows_of({4: {"x_in": 2}}, 6))
    scripted.setenv("TEST_TEXT", TEXTS_OF_INTEGRATION[2])
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(periodic_recipe())
    lines = caught.value.text.split("\n")
    assert [line.split()[0] for line in lines] == ["Matrix", "The", "Unphysical", "What"]


def test_an_integration_that_ended_before_its_first_row(scripted: pytest.MonkeyPatch) -> None:
    scripted.setenv("TEST_TEXT", TEXTS_OF_INTEGRATION[3])
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(periodic_recipe())
    assert caught.value.text == f"State is not finite\nThe run ended before its first row\n{STAGED_REMEDY}"


def test_faults_of_recipes_have_nothing_added(scripted: pytest.MonkeyPatch, tmp_path: Path) -> None:
    write_rows(scripted, tmp_path, rows_of({4: {"x_in": 2}}, 6))
    scripted.setenv("TEST_TEXT", "Very low or negative temperature in stage_1")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(periodic_recipe())
    assert caught.value.text == "Very low or negative temperature in stage_1"


def test_a_sweep_has_such_runs_as_failed_rows(tmp_path: Path) -> None:
    recipe = recipe_with_a_pause()
    table = vorlen.sweep(
        recipe, {"process_stages/stage_2/gas_species/Q/TMGa": [0, 1]}, out=tmp_path / "s", workers=1, progress=False
    ).table
    assert list(table.status) == ["failed", "ok"]  # with gallium the pause is a layer
    assert "in stage_3 (AlGaN barrier): gallium fraction is " in table.text[0] and STAGED_REMEDY in table.text[0]
    assert table.result_file[0] == "" and (tmp_path / "s" / "rows" / "000000.failed.txt").is_file()


@pytest.mark.parametrize("scheme", ["continuous", "staged"])
@pytest.mark.parametrize("make", [recipe_with_a_pause, recipe_with_nan, failing_recipe, None])
def test_the_command_line_tool_gives_the_same_text(make, scheme: str, tmp_path: Path) -> None:
    """make: a function that makes a recipe; None means a recipe that runs."""
    recipe = tmp_path / "r.xml"
    recipe.write_bytes(make().to_bytes() if make else MQW.read_bytes())
    subprocess.run([tool(), "run", "--scheme", scheme, recipe], cwd=tmp_path, capture_output=True, check=False)
    theirs = json.loads((tmp_path / "r.status.json").read_text())
    os.mkdir(tmp_path / "python")
    try:
        vorlen.run(recipe, tmp_path / "python" / "r.txt", scheme=scheme)
    except vorlen.SimulationError:
        pass
    ours = json.loads((tmp_path / "python" / "r.status.json").read_text())
    assert set(ours) == set(theirs)
    for key in ("result", "text", "scheme", "recipe_sha256", "result_sha256"):
        assert ours[key] == theirs[key], key
    if make is None:
        assert (ours["result"], ours["text"]) == (0, "")
