"""Status files: found from any folder, compared with recipe and result, and harmless when damaged."""

from __future__ import annotations

import hashlib
import json
import os
import re
import shutil
import subprocess
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

import vorlen
from support import EXAMPLES, MQW, PLAIN_LAYER, V_DEFECTS, failing_recipe
from vorlen.__main__ import main
from vorlen._pages.report import render
from vorlen._recipe.source import RecipeSource
from vorlen._runs.status import read_status, recipe_of_status, status_path
from vorlen._base.tool import find_tool


@pytest.fixture
def finished(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """A result run/r.txt of the recipe run/recipes/r.xml, from another working folder."""
    folder = tmp_path / "run"
    (folder / "recipes").mkdir(parents=True)
    (folder / "recipes" / "r.xml").write_bytes(V_DEFECTS.read_bytes())
    monkeypatch.chdir(tmp_path)
    vorlen.run("run/recipes/r.xml", "run/r.txt")
    return folder / "r.txt"


def has_temperature(page: str) -> bool:
    return '"temperature"' in page


def test_paths_below_the_folder_are_relative_and_others_absolute(finished: Path, tmp_path: Path) -> None:
    status = read_status(finished)
    assert (status["recipe"], status["result_file"]) == ("recipes/r.xml", "r.txt")
    (tmp_path / "outside.xml").write_bytes(V_DEFECTS.read_bytes())
    vorlen.run("outside.xml", finished)
    assert read_status(finished)["recipe"] == str(tmp_path / "outside.xml")


def test_the_recipe_is_found_from_any_working_folder_and_after_a_move(
    finished: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    for folder, name in ((tmp_path, "run/r.txt"), (finished.parent, "r.txt"), (Path("/"), str(finished))):
        monkeypatch.chdir(folder)
        page = tmp_path / "r.html"
        assert main(["report", name, "-o", str(page)]) == 0
        assert has_temperature(page.read_text("utf-8"))
    finished.parent.rename(tmp_path / "moved")
    assert main(["report", str(tmp_path / "moved" / "r.txt"), "-o", str(page)]) == 0
    assert has_temperature(page.read_text("utf-8"))
    (tmp_path / "moved" / "recipes" / "r.xml").rename(tmp_path / "moved" / "r.xml")  # beside the result
    assert main(["report", str(tmp_path / "moved" / "r.txt"), "-o", str(page)]) == 0
    assert has_temperature(page.read_text("utf-8"))


@pytest.mark.skipif(find_tool() is None, reason="the command-line tool was not found")
def test_paths_of_the_command_line_tool_are_found(finished: Path, tmp_path: Path) -> None:
    result = finished.parent / "tool.txt"
    command = [find_tool(), "run", finished.parent / "recipes" / "r.xml", "-o", result]
    subprocess.run(command, check=True, capture_output=True)
    assert recipe_of_status(read_status(result), result).sha256 == read_status(result)["recipe_sha256"]


@pytest.mark.parametrize("gone", [False, True])
def test_a_recipe_that_has_changed_since_the_run_gives_no_temperatures(
    gone: bool, finished: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    recipe = finished.parent / "recipes" / "r.xml"
    recipe.unlink() if gone else recipe.write_bytes(MQW.read_bytes())
    assert main(["report", str(finished), "-o", str(tmp_path / "r.html")]) == 0
    page = (tmp_path / "r.html").read_text("utf-8")
    assert not has_temperature(page)
    assert f"The recipe {recipe} {'was not found' if gone else 'has changed since the run'}. The charts therefore" in page
    assert hashlib.sha256(MQW.read_bytes()).hexdigest() not in page


@pytest.mark.parametrize("change", [False, True])
def test_a_rejected_recipe_that_has_changed_since_is_not_reported_as_that_of_the_run(
    change: bool, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["process_stages/stage_1/T"] = 0
    recipe.save(tmp_path / "r.xml")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(tmp_path / "r.xml", tmp_path / "r.result.txt")
    used = caught.value.recipe_source.sha256
    if change:
        (tmp_path / "r.xml").write_bytes(MQW.read_bytes())
    assert main(["report", str(tmp_path / "r.result.txt")]) == 0
    page = (tmp_path / "r.html").read_text("utf-8")
    assert "Very low or negative temperature in stage_1" in page
    assert ("has changed since the run" in page) is change and (used in page) is not change
    # The error itself remembers the recipe of the run.
    assert used in render(caught.value)
    (tmp_path / "r.xml").unlink()
    assert used in render(caught.value)


def test_the_rows_of_a_failed_run_are_reported_under_the_name_of_its_result(
    tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    (tmp_path / "r.xml").write_bytes(failing_recipe().to_bytes())
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(tmp_path / "r.xml", tmp_path / "r.result.txt")
    assert main(["report", str(tmp_path / "r.result.txt")]) == 0
    assert "It stopped at 3723.99" in (tmp_path / "r.html").read_text("utf-8")


def test_another_recipe_is_rejected_with_both_names(
    finished: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    for other in (MQW, MQW.read_bytes(), vorlen.Recipe.load(MQW)):
        text = r"r.txt was computed from recipes/r.xml \(SHA-256 .*\), not from "
        with pytest.raises(ValueError, match=text) as caught:
            vorlen.read(finished, recipe=other)
        assert (str(MQW) in str(caught.value)) is not isinstance(other, bytes)
    assert main(["report", str(finished), "--recipe", str(MQW), "-o", str(tmp_path / "r.html")]) == 1
    assert "r.txt was computed from recipes/r.xml" in capsys.readouterr().err and not (tmp_path / "r.html").exists()
    assert vorlen.read(finished, recipe=V_DEFECTS).recipe is not None  # the same bytes


CHANGES_OF_LAYERS = [
    ("process_stages/stage_1/name", "well", "it has a layer 2 named 'InGaN' instead of 'well'$"),
    ("process_stages/stage_1/tau", 60.00000000000002, "it has a layer 2 of 60 s instead of 60.00000000000002 s$"),
    ("pre_stages/pre_stage_1/tau", "nan", "it has a layer 1 of 3000 s instead of nan s$"),
    ("process_stages/n_stages", 0, "it has 2 layers instead of 1$"),
]


@pytest.mark.parametrize(("path", "value", "text"), CHANGES_OF_LAYERS)
@pytest.mark.parametrize("status", ["missing", "of another result", "without a hash"])
def test_without_a_matching_status_file_the_layers_have_to_be_those_of_the_recipe(
    path: str, value: object, text: str, status: str, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    result, status_file = tmp_path / "r.txt", tmp_path / "r.status.json"
    vorlen.run(PLAIN_LAYER, result)
    if status == "missing":
        status_file.unlink()
    else:
        key = "result_sha256" if status == "of another result" else "recipe_sha256"
        status_file.write_text(json.dumps(json.loads(status_file.read_text()) | {key: None}))
    assert vorlen.read(result, recipe=PLAIN_LAYER).recipe == vorlen.Recipe.load(PLAIN_LAYER)
    assert vorlen.read(result).recipe is None
    old = str(vorlen.Recipe.load(PLAIN_LAYER))
    new = old.replace('<tau val="3000"/>', '<tau val="nan"/>')
    other = vorlen.Recipe(new) if value == "nan" else vorlen.Recipe(old).set(path, value)
    with pytest.raises(ValueError, match=f"^{result} was not computed from the recipe given: {text}"):
        vorlen.read(result, recipe=other)
    other.save(tmp_path / "other.xml")
    page = tmp_path / "r.html"
    assert main(["report", str(result), "--recipe", str(tmp_path / "other.xml"), "-o", str(page)]) == 1
    assert f"was not computed from {tmp_path / 'other.xml'}: it has " in capsys.readouterr().err and not page.exists()


@pytest.mark.parametrize("encoding", ["UTF-8", "ISO-8859-1"])
@pytest.mark.parametrize("name", ["", "l\xe4yer", "a\nb", "a&#13;&amp;&#228;\tb", "\xe4"])
@pytest.mark.parametrize("duration", ["0x3p4", "60,5", "1234.5678901234567"])
def test_the_recipe_of_a_result_is_recognised_by_its_layers(
    encoding: str, name: str, duration: str, tmp_path: Path
) -> None:
    old, new = '"InGaN"/>\n      <tau val="60"', f'"{name}"/>\n      <tau val="{duration}"'
    text = PLAIN_LAYER.read_text("utf-8").replace(old, new)
    recipe = text.replace("UTF-8", encoding).encode(encoding)
    vorlen.run(recipe, tmp_path / "r.txt")
    (tmp_path / "r.status.json").unlink()
    assert vorlen.read(tmp_path / "r.txt", recipe=recipe).recipe is not None


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_the_examples_are_recognised_by_their_layers(path: Path, tmp_path: Path) -> None:
    vorlen.run(path, tmp_path / "r.txt")
    (tmp_path / "r.status.json").unlink()
    assert vorlen.read(tmp_path / "r.txt", recipe=path).recipe is not None
    with pytest.raises(ValueError, match="was not computed from"):
        vorlen.read(tmp_path / "r.txt", recipe=PLAIN_LAYER)


def test_nothing_is_compared_with_a_recipe_that_would_not_run(finished: Path) -> None:
    finished.with_name("r.status.json").unlink()
    text = MQW.read_text("utf-8")
    for recipe in (text + "<", text.replace("n_stages", "number")):
        assert vorlen.read(finished, recipe=recipe)._drawn.temperature_curve("all") is None


@pytest.mark.parametrize("scheme", ["staged", "continuous"])
def test_a_run_under_another_scheme_is_of_the_recipe_as_given(scheme: str, tmp_path: Path) -> None:
    vorlen.run(PLAIN_LAYER, tmp_path / "r.txt", scheme=scheme)
    run = vorlen.read(tmp_path / "r.txt", recipe=PLAIN_LAYER)
    assert run.recipe == vorlen.Recipe.load(PLAIN_LAYER) and run.scheme == scheme


def test_the_status_file_of_an_older_result_names_no_recipe(
    finished: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    vorlen.run(MQW, tmp_path / "other.txt")
    shutil.copy(tmp_path / "other.txt", finished)
    assert main(["report", str(finished), "-o", str(tmp_path / "r.html")]) == 0
    page = (tmp_path / "r.html").read_text("utf-8")
    assert not has_temperature(page) and "The recipe is unknown" in page
    assert vorlen.read(finished, recipe=MQW).recipe is not None


WRONG = {
    "empty": "", "truncated": '{"result": 0, "te', "list": "[]", "number": "3", "null": "null", "not UTF-8": "\udcff",
    "deep": "[" * 100_000, "object": "{}",
}
WRONG_VALUES = [
    ("result", "0"), ("result", True), ("result", 0.0), ("text", None), ("text", 3), ("wall_time_s", "1"),
    ("wall_time_s", None), ("wall_time_s", 10**400), ("wall_time_s", float("nan")), ("version", 1), ("recipe", 3),
    ("recipe", ["r.xml"]), ("recipe", "a\0b"), ("recipe_sha256", 3), ("recipe_sha256", {}), ("scheme", 3),
    ("scheme", []), ("result_file", None), ("result_file", 3), ("result_sha256", 3), ("host", None), ("host", []), ("finished", 3),
]


def check_counts_as_none(result: Path, tmp_path: Path) -> None:
    assert read_status(result) == {}
    run = vorlen.read(result, recipe=V_DEFECTS.read_bytes() + b"<!-- -->")  # whatever the status file says
    assert (run.text, run.wall_time, run.scheme) == ("", None, None)
    assert "Simulated in" not in render(run)
    assert main(["report", str(result), "-o", str(tmp_path / "r.html")]) == 0
    with pytest.raises(FileExistsError, match="is not a status file"):
        vorlen.run(V_DEFECTS, result)


@pytest.mark.parametrize("content", WRONG.values(), ids=WRONG)
def test_a_damaged_status_file_counts_as_none(
    content: str, finished: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    status_path(finished).write_bytes(content.encode("utf-8", "surrogateescape"))
    check_counts_as_none(finished, tmp_path)


@pytest.mark.parametrize(("key", "value"), WRONG_VALUES)
def test_a_status_file_with_a_wrong_value_counts_as_none(
    key: str, value: Any, finished: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    status = json.loads(status_path(finished).read_text())
    status_path(finished).write_text(json.dumps(status | {key: value}))
    check_counts_as_none(finished, tmp_path)


@pytest.mark.parametrize(
    "key",
    [
        "result", "text", "wall_time_s", "version", "recipe", "recipe_sha256", "result_file", "result_sha256", "host",
        "finished",
    ],
)
def test_a_status_file_without_a_key_counts_as_none(key: str, finished: Path) -> None:
    status = json.loads(status_path(finished).read_text())
    del status[key]
    status_path(finished).write_text(json.dumps(status))
    assert read_status(finished) == {}


@pytest.mark.parametrize(
    "make", [Path.mkdir, os.mkfifo, lambda path: path.symlink_to(path.name)], ids=["folder", "pipe", "loop"]
)
def test_something_else_in_the_place_of_the_status_file_counts_as_none(
    make: Callable[[Path], None], finished: Path
) -> None:
    status_path(finished).unlink()
    make(status_path(finished))
    assert read_status(finished) == {} and vorlen.read(finished).scheme is None


@pytest.mark.parametrize("path", ["r" * 5000, "..", ".", "/dev/zero", "\ud800", "none.xml"])
def test_odd_paths_of_recipes_are_harmless(path: str, tmp_path: Path) -> None:
    source = recipe_of_status({"recipe": path, "recipe_sha256": "0"}, tmp_path / "r.txt")
    assert source.content is None and source.problem


def test_names_of_files_that_are_not_utf_8(tmp_path: Path) -> None:
    folder = tmp_path / os.fsdecode(b"\xe4")
    folder.mkdir()
    result = folder / os.fsdecode(b"\xe4.txt")
    for _ in range(2):  # the second run recognises the files of the first one
        vorlen.run(V_DEFECTS, result)
    json.loads(status_path(result).read_bytes())
    assert RecipeSource.of(V_DEFECTS).sha256 == read_status(result)["recipe_sha256"]
    assert not vorlen.read(result).failed
    recipe = folder / os.fsdecode(b"\xe4.xml")
    recipe.write_text("<a>")
    with pytest.raises(vorlen.RecipeError, match=re.escape(str(recipe))):
        vorlen.run(recipe, result)
    status = json.loads(status_path(result).read_bytes())
    assert str(recipe).replace("\udce4", "\ufffd") in status["text"]
    assert "\ufffd.xml" in vorlen.report(vorlen.read(result, recipe=recipe), folder / "r.html").read_text("utf-8")
