"""What must survive: finished rows of a sweep, tables that describe their rows, stages that an edit does not name."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

import vorlen
from support import PLAIN_LAYER

FLOW = "process_stages/stage_1/gas_species/Q/TMIn"


def recipe_of(*stages: tuple[int, str], count: int) -> vorlen.Recipe:
    """The plain layer with these stages (number, name) in file order."""
    text = PLAIN_LAYER.read_text("utf-8")
    match = re.search(r"<stage_1>.*</stage_1>", text, re.DOTALL)
    assert match
    copies = (match[0].replace("stage_1>", f"stage_{number}>").replace('"InGaN"', f'"{name}"') for number, name in stages)
    text = text.replace('<n_stages val="1"/>', f'<n_stages val="{count}"/>')
    return vorlen.Recipe(text.replace(match[0], "\n    ".join(copies)))


def grown(recipe: vorlen.Recipe) -> list[str]:
    return list(vorlen.run(recipe).layers["name"])[1:]


def edited(edit: object, recipe: vorlen.Recipe) -> list[str]:
    """The layers that grow after an edit. An edit that is rejected leaves the recipe as it was."""
    before = recipe.to_bytes()
    try:
        edit(recipe)  # type: ignore[operator]
    except ValueError:
        assert recipe.to_bytes() == before
        return ["rejected"]
    return grown(recipe)


def test_removing_a_stage_does_not_reveal_a_hidden_one() -> None:
    recipe = recipe_of((1, "a"), (2, "b"), (2, "hidden"), (3, "c"), count=3)
    assert grown(recipe) == ["a", "b", "c"]
    assert edited(lambda one: one.remove_stage("process_stages/stage_2"), recipe) == ["rejected"]


@pytest.mark.parametrize(
    "stages", [((1, "a"), (2, "b"), (2, "hidden"), (3, "c")), ((1, "a"), (3, "c"), (2, "b"))], ids=["hidden", "between"]
)
def test_periods_leave_other_stages_as_they_are(stages: tuple[tuple[int, str], ...]) -> None:
    recipe = recipe_of(*stages, count=3)
    result = edited(lambda one: one.make_periodic("process_stages/stage_1", "process_stages/stage_2", 2), recipe)
    assert result == ["rejected"]


def test_a_timeout_does_not_replace_a_finished_row(tmp_path: Path) -> None:
    values = [0.1, 0.2, 0.3]
    vorlen.sweep(PLAIN_LAYER, {FLOW: values}, out=tmp_path / "s", progress=False, workers=1)
    again = vorlen.sweep(PLAIN_LAYER, {FLOW: values}, out=tmp_path / "s", progress=False, workers=1, timeout=1e-6)
    assert list(again.table["status"]) == ["ok"] * 3
    assert list(vorlen.read_sweep(tmp_path / "s").table["status"]) == ["ok"] * 3


def test_a_row_has_the_values_of_its_own_recipe(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """Another program replaces the recipe of the row between writing and running it."""
    from vorlen._sweep import row as _row
    from vorlen._sweep.plan import make_task
    from vorlen._sweep.plan_values import make_plan
    from vorlen._sweep.folder import prepare_folder

    folder = tmp_path / "s"
    plan = make_plan(PLAIN_LAYER, {FLOW: [0.1]})
    prepare_folder(plan, folder, True)
    write = _row.replace_file

    def write_and_spoil(path: Path, content: bytes) -> Path:
        write(path, content)
        if path.suffix == ".xml":
            path.write_bytes(PLAIN_LAYER.read_bytes())
        return path

    monkeypatch.setattr(_row, "replace_file", write_and_spoil)
    monkeypatch.chdir(tmp_path)
    row = _row.do_row(make_task(plan, folder, 0, {FLOW: 0.1}, False))
    right = vorlen.run(vorlen.Recipe.load(PLAIN_LAYER).set(FLOW, 0.1)).end["z"]
    assert row["status"] == "ok" and row["values"]["z"] == right


def test_another_recipe_is_rejected_without_status_file(tmp_path: Path) -> None:
    vorlen.run(PLAIN_LAYER, tmp_path / "r.txt")
    (tmp_path / "r.status.json").unlink()
    with pytest.raises(ValueError):
        vorlen.read(tmp_path / "r.txt", recipe=recipe_of((1, "other"), count=1))


def test_times_in_hexadecimal_are_those_of_the_library() -> None:
    recipe = vorlen.Recipe(PLAIN_LAYER.read_text("utf-8").replace('<tau val="60"/>', '<tau val="0x10"/>'))
    assert vorlen.run(recipe).layers["duration"].iloc[1] == recipe.timeline()["duration"].iloc[1] == 16
