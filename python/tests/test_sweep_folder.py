"""The folder of a sweep: continuing, damaged files, locks, and files that are not of the sweep."""

from __future__ import annotations

import json
import os
import shutil
from concurrent.futures import ProcessPoolExecutor, ThreadPoolExecutor
from pathlib import Path

import pandas as pd
import pytest

import vorlen
from sweeps import HANG, LAYER, P, T, hanging_sweep, quiet_sweep, small_sweep
from vorlen._base.files import lock_file
from vorlen._sweep.plan_values import make_plan
from vorlen._sweep.plan import make_task
from vorlen._sweep.pool import run_row
from vorlen._sweep.row import END_VALUES
from vorlen._sweep.folder import locked_folder


def test_a_row_is_run_again_when_its_status_names_another_recipe_or_version_or_its_result_is_gone(layer, tmp_path):
    out = tmp_path / "s"
    first = quiet_sweep(layer, {T: [1000, 1010, 1020, 1030]}, out=out)
    for number, (key, value) in enumerate([("recipe_sha256", "0" * 64), ("version", "0.9.0")]):
        path = Path(first.status_file[number])
        path.write_text(json.dumps(json.loads(path.read_text()) | {key: value}))
    Path(first.result_file[2]).unlink()
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    second = quiet_sweep(layer, {T: [1000, 1010, 1020, 1030]}, out=out)
    after = [Path(path).stat().st_mtime_ns for path in second.status_file]
    assert [old != new for old, new in zip(before, after)] == [True, True, True, False]
    pd.testing.assert_frame_equal(first, second)


def test_resume_off_runs_all_rows_again(layer, tmp_path):
    first = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s", resume=False)
    assert all(Path(path).stat().st_mtime_ns != old for path, old in zip(first.status_file, before))


def test_a_folder_with_different_rows_is_an_error_but_rows_can_be_added(layer, tmp_path):
    first = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    with pytest.raises(ValueError, match="holds a sweep with a different recipe or different rows"):
        quiet_sweep(layer, {T: [1000, 1020]}, out=tmp_path / "s")
    before = [Path(path).stat().st_mtime_ns for path in first.status_file]
    longer = quiet_sweep(layer, {T: [1000, 1010, 1020]}, out=tmp_path / "s")
    assert [Path(path).stat().st_mtime_ns for path in longer.status_file[:2]] == before
    assert len(longer) == 3



def stamps(table: pd.DataFrame) -> list[int]:
    return [Path(path).stat().st_mtime_ns for path in table.status_file]


def cut(path: Path) -> None:
    path.write_bytes(path.read_bytes()[:500])


def swap(one: str, other: str, *endings: str):
    def change(rows: Path) -> None:
        for ending in endings:
            first, second = (rows / one).with_suffix(ending), (rows / other).with_suffix(ending)
            content = first.read_bytes()
            first.write_bytes(second.read_bytes())
            second.write_bytes(content)

    return change


def edit_row(key: str, value: object):
    def change(rows: Path) -> None:
        path = rows / "000001.status.json"
        status = json.loads(path.read_text())
        status["row"][key] = value
        path.write_text(json.dumps(status))

    return change


def edit_value(name: str, value: object):
    def change(rows: Path) -> None:
        path = rows / "000001.status.json"
        status = json.loads(path.read_text())
        assert name in status["row"]["values"]
        status["row"]["values"][name] = value
        if value == "delete":
            del status["row"]["values"][name]
        path.write_text(json.dumps(status))

    return change


def edit(**changes: object):
    def change(rows: Path) -> None:
        path = rows / "000001.status.json"
        status = json.loads(path.read_text()) | changes
        path.write_text(json.dumps({key: value for key, value in status.items() if value != "delete"}))

    return change


DAMAGES = {  # name: what is done to the folder of the rows, and which of three rows must run again
    "result cut": (lambda rows: cut(rows / "000001.result.txt"), [1]),
    "result removed": (lambda rows: (rows / "000001.result.txt").unlink(), [1]),
    "result swapped": (swap("000001", "000002", ".result.txt"), [1, 2]),
    "all files swapped": (swap("000001", "000002", ".result.txt", ".status.json", ".xml"), [1, 2]),
    "recipe cut": (lambda rows: cut(rows / "000001.xml"), [1]),
    "recipe removed": (lambda rows: (rows / "000001.xml").unlink(), [1]),
    "status cut": (lambda rows: cut(rows / "000001.status.json"), [1]),
    "status is a list": (lambda rows: (rows / "000001.status.json").write_text("[]"), [1]),
    "status is empty": (lambda rows: (rows / "000001.status.json").write_text(""), [1]),
    "status is binary": (lambda rows: (rows / "000001.status.json").write_bytes(b"\xff\x00"), [1]),
    "failed rows": (lambda rows: (rows / "000003.status.json").unlink(), [3]),
    **{f"{key} is {value!r}": (edit(**{key: value}), [1]) for key in (
        "recipe_sha256", "result_sha256", "scheme", "version", "row", "row_sha256", "result"
    ) for value in ("delete", None, 5, [], {}, "x")},
    **{f"{key} of the row is {value!r}": (edit_row(key, value), [1]) for key, values in {
        "status": (None, 5, [], {}, "x", "missing", "failed"),
        "text": (None, 5, [], {}),
        "values": (None, 5, [], {}, "x", {"z": 1}),
        "result": (None, 1, [], {}, "x", False),
        "more": (1,),
    }.items() for value in values},
    **{f"a value of the row is {value!r}": (
        edit_row("values", dict.fromkeys(END_VALUES, 1.0) | {"z": value}), [1]
    ) for value in ("high", [], True, float("nan"))},
    "a value is another number": (edit_value("z", 9999.0), [1]),
    "a value is missing": (edit_value("x_in_2", "delete"), [1]),
    "row without a field": (edit(row={"status": "ok"}), [1]),
}


@pytest.fixture(scope="module")
def finished(tmp_path_factory) -> Path:
    """A sweep of four rows, of which the last one fails."""
    folder = tmp_path_factory.mktemp("finished") / "s"
    assert list(quiet_sweep(LAYER, {T: [1000, 1010, 1020, -5]}, out=folder).status) == ["ok"] * 3 + ["failed"]
    return folder


@pytest.mark.parametrize("name", DAMAGES)
def test_a_damaged_row_is_missing_and_is_run_again(finished, tmp_path, name):
    """Rows are checked where the worker process does it, without starting one."""
    folder = tmp_path / "s"
    shutil.copytree(finished, folder)
    damage, damaged = DAMAGES[name]
    damage(folder / "rows")
    table = vorlen.read_sweep(folder).table
    assert [number for number in table.index if table.status[number] == "missing"] == damaged
    plan = make_plan(LAYER, {T: [1000, 1010, 1020, -5]})
    before = {path: path.stat().st_mtime_ns for path in (folder / "rows").glob("*.status.json")}
    again = [
        run_row(make_task(plan, folder, number, values, resume=True)) for number, values in enumerate(plan.rows())
    ]
    changed = [path for path in (folder / "rows").glob("*.status.json") if before.get(path) != path.stat().st_mtime_ns]
    assert sorted(int(path.name[:6]) for path in changed) == damaged
    assert [row["status"] for row in again] == ["ok"] * 3 + ["failed"]
    pd.testing.assert_frame_equal(
        vorlen.read_sweep(folder).table.drop(columns=["recipe_file", "result_file", "status_file"]),
        vorlen.read_sweep(finished).table.drop(columns=["recipe_file", "result_file", "status_file"]),
    )


def test_rows_that_were_kept_of_a_failed_run_are_checked(tmp_path):
    from support import failing_recipe

    out = tmp_path / "s"
    parameters = {"process_stages/stage_2/name": ["a"]}
    assert list(quiet_sweep(failing_recipe(), parameters, out=out).status) == ["failed"]
    kept = out / "rows" / "000000.failed.txt"
    whole = kept.read_bytes()
    cut(kept)
    assert list(vorlen.read_sweep(out).table.status) == ["missing"]
    assert list(quiet_sweep(failing_recipe(), parameters, out=out).status) == ["failed"]
    assert kept.read_bytes() == whole


def test_a_base_recipe_that_changed_is_never_used(layer, tmp_path):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000]}, out=out)
    plan = make_plan(layer, {T: [1000, 1010]})
    (out / "recipe.xml").write_bytes(layer.read_bytes().replace(b'"0.2"', b'"0.3"'))
    row = run_row(make_task(plan, out, 1, {T: 1010}, resume=True))
    assert row["status"] == "error" and "recipe.xml was changed by another program" in row["text"]
    with pytest.raises(vorlen.PlanError, match="recipe.xml is not the recipe of this plan"):
        vorlen.read_sweep(out)
    assert list(quiet_sweep(layer, {T: [1000, 1010]}, out=out).status) == ["ok", "ok"]
    assert (out / "recipe.xml").read_bytes() == layer.read_bytes()


def test_files_of_the_last_run_of_a_row_do_not_remain_if_it_does_not_end(tmp_path, faulty_library, monkeypatch):
    from support import failing_recipe

    faulty = os.environ["VORLEN_LIBRARY"]
    for recipe, name in ((vorlen.Recipe.load(LAYER), "result.txt"), (failing_recipe(), "failed.txt")):
        out, parameters = tmp_path / name, {P: [HANG]}
        monkeypatch.setenv("VORLEN_LIBRARY", os.environ["TEST_REAL_LIBRARY"])
        quiet_sweep(recipe, parameters, out=out)
        assert (out / "rows" / f"000000.{name}").exists()
        monkeypatch.setenv("VORLEN_LIBRARY", faulty)
        assert list(quiet_sweep(recipe, parameters, out=out, resume=False, timeout=1).status) == ["timeout"]
        assert not (out / "rows" / f"000000.{name}").exists()


def test_a_folder_of_a_sweep_with_another_recipe_is_an_error(layer, tmp_path):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000]}, out=out)
    other = vorlen.Recipe.load(layer).set("process_stages/stage_1/tau", 50)
    files = {path: path.read_bytes() for path in out.rglob("*") if path.is_file()}
    with pytest.raises(vorlen.PlanError, match="holds a sweep with a different recipe"):
        quiet_sweep(other, {T: [1000]}, out=out)
    assert {path: path.read_bytes() for path in out.rglob("*") if path.is_file()} == files
    replaced = quiet_sweep(other, {T: [1000]}, out=out, resume=False)
    assert vorlen.Recipe.load(replaced.recipe_file[0])["process_stages/stage_1/tau"] == 50


@pytest.mark.parametrize("resume", [True, False])
@pytest.mark.parametrize("name", ["plan.json", "recipe.xml", "table.csv", "rows/notes.txt"])
def test_files_of_the_user_are_not_replaced(layer, tmp_path, name, resume):
    place = tmp_path / "mine" / name
    place.parent.mkdir(parents=True)
    place.write_text("mine")
    with pytest.raises(vorlen.PlanError, match="is not of a sweep and would be overwritten"):
        quiet_sweep(layer, {T: [1000]}, out=tmp_path / "mine", resume=resume)
    assert [path for path in (tmp_path / "mine").rglob("*") if path.is_file()] == [place]
    assert place.read_text() == "mine"


def test_the_plan_in_the_folder_of_a_sweep_continues_it(layer, tmp_path, capsys):
    from vorlen.__main__ import main

    table = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    before = stamps(table)
    assert main(["sweep", str(tmp_path / "s" / "plan.json"), "--quiet"]) == 0
    assert stamps(table) == before


def test_a_place_that_can_t_be_the_folder_is_reported_before_anything_runs(layer, tmp_path, monkeypatch):
    (tmp_path / "file").write_text("mine")
    for out in (tmp_path / "file", tmp_path / "file" / "below"):
        with pytest.raises(NotADirectoryError, match=f"{tmp_path / 'file'} is not a folder"):
            quiet_sweep(layer, {T: [1000]}, out=out)
    with pytest.raises(ValueError, match="out must be a path, got an empty text"):
        quiet_sweep(layer, {T: [1000]}, out="")
    monkeypatch.setattr("os.access", lambda path, mode: Path(path) != tmp_path)  # root has all rights
    with pytest.raises(PermissionError, match=f"no right to write to the folder {tmp_path}"):
        quiet_sweep(layer, {T: [1000]}, out=tmp_path / "s")
    assert [path.name for path in tmp_path.iterdir()] == ["file"]


@pytest.mark.parametrize("resume", [True, False])
def test_a_second_sweep_in_the_folder_is_busy(layer, tmp_path, faulty_library, resume):
    out = tmp_path / "s"
    with hanging_sweep(out, {P: [40000, HANG]}):
        files = {path: path.read_bytes() for path in out.rglob("*") if path.is_file()}
        for parameters in ({P: [40000, HANG]}, {T: [1000, 1010]}):
            with pytest.raises(vorlen.BusyError, match=f"another sweep is running in {out}$"):
                quiet_sweep(layer, parameters, out=out, resume=resume, timeout=5)
        assert {path: path.read_bytes() for path in out.rglob("*") if path.is_file()} == files
    assert list(quiet_sweep(layer, {P: [40000]}, out=out, resume=False).status) == ["ok"]


def test_parts_of_one_plan_run_together_and_nothing_else_does(layer, tmp_path, faulty_library, capsys):
    from vorlen.__main__ import main

    out, parameters = tmp_path / "s", {P: [HANG, 40000, 40001]}
    with hanging_sweep(out, parameters, "--rows", "0:1"):
        plan = str(tmp_path / "s.json")
        assert main(["sweep", plan, "--rows", "1:3", "--quiet"]) == 0
        assert "2 rows: 2 ok" in capsys.readouterr().out
        assert main(["sweep", plan, "--quiet", "--timeout", "5"]) == 1
        assert f"another sweep is running in {out}\n" in capsys.readouterr().err
        other = vorlen.write_plan(tmp_path / "other.json", layer, {P: [1e4, 2e4, 3e4]}, out="s")
        for words in ([str(other)], [str(other), "--no-resume"], [plan, "--scheme", "continuous"]):
            assert main(["sweep", *words, "--rows", "1:2", "--quiet"]) == 1
            assert f"another sweep is running in {out} with another plan" in capsys.readouterr().err
        assert main(["sweep", plan, "--merge"]) == 1
        assert "rows 0:1 are missing" in capsys.readouterr().err
        assert main(["sweep", plan, "--count"]) == 0
    assert main(["sweep", str(other), "--rows", "1:2", "--quiet"]) == 1
    assert "different recipe or different rows" in capsys.readouterr().err


def test_a_whole_sweep_holds_its_lock_against_parts(layer, tmp_path, faulty_library, capsys):
    from vorlen.__main__ import main

    with hanging_sweep(tmp_path / "s", {P: [40000, HANG]}):
        assert main(["sweep", str(tmp_path / "s.json"), "--rows", "0:1", "--quiet"]) == 1
        assert "another sweep is running" in capsys.readouterr().err


def test_the_lock_is_free_after_the_sweep_even_if_processes_were_forked_meanwhile(layer, tmp_path):
    with ProcessPoolExecutor(1) as executor:  # its process starts during the first sweep and outlives it
        quiet_sweep(layer, {T: [1000]}, executor=executor, out=tmp_path / "s")
        assert list(quiet_sweep(layer, {T: [1000, 1010]}, executor=executor, out=tmp_path / "s").status) == ["ok", "ok"]


def test_the_plan_is_compared_and_written_under_a_lock_of_its_own(layer, tmp_path):
    import threading

    plan, entered = make_plan(layer, {T: [1000]}), threading.Event()
    (tmp_path / "s").mkdir()

    def enter() -> None:
        with locked_folder(plan, tmp_path / "s", range(1), whole=False, resume=True):
            entered.set()

    with lock_file(tmp_path / "s" / ".plan.lock", exclusive=True):
        thread = threading.Thread(target=enter)
        thread.start()
        assert not entered.wait(0.3) and not (tmp_path / "s" / "plan.json").exists()
    thread.join(30)
    assert entered.is_set() and (tmp_path / "s" / "plan.json").exists()


def test_what_killed_runs_have_left_is_removed(layer, tmp_path, capsys):
    from vorlen.__main__ import main

    out = tmp_path / "s"
    small_sweep(layer, {T: [1000, 1010]}, out=out)
    names = [
        ".000000.xml.0123.part", ".000001.result.txt.part", ".000001.status.json.0123.part", ".000000.result.txt.ab"
    ]
    for name in names:
        (out / "rows" / name).write_text("part")
    (out / ".plan.json.0123.part").write_text("part")
    (out / ".mine.part").write_text("mine")
    main(["sweep", str(out / "plan.json"), "--rows", "1:2", "--quiet"])
    assert sorted(path.name for path in (out / "rows").glob(".*")) == [names[3], names[0]]
    with ThreadPoolExecutor(1) as executor:  # its runs may outlive a sweep, so only the next sweep removes what is left
        small_sweep(layer, {T: [1000, 1010]}, executor=executor, out=out)
    assert not list((out / "rows").glob(".*"))
    assert sorted(path.name for path in out.glob(".*")) == [".lock", ".mine.part", ".plan.lock"]


def part(plan: object, rows: str, *words: str) -> int:
    """The exit status of a part."""
    from vorlen.__main__ import main

    return main(["sweep", str(plan), "--rows", rows, "--quiet", "--workers", "1", *words])


@pytest.mark.parametrize("words", [[], ["--no-resume"]])
def test_a_part_with_rows_of_a_running_part_is_busy_and_touches_nothing(tmp_path, faulty_library, capsys, words):
    out = tmp_path / "s"
    with hanging_sweep(out, {P: [HANG, 40000, 40001, 40002]}, "--rows", "0:3"):
        assert part(tmp_path / "s.json", "3:4", *words) == 0
        (out / "rows" / ".000001.result.txt.part").write_text("what the other part is writing")
        files = {path: path.read_bytes() for path in out.rglob("*") if path.is_file()}
        for rows, common in (("1:4", "1:3"), ("0:3", "0:3"), ("2:3", "2:3")):
            capsys.readouterr()
            assert part(tmp_path / "s.json", rows, *words) == 1
            assert capsys.readouterr().err == f"vorlen: another sweep is running the rows {common} in {out}\n"
        assert {path: path.read_bytes() for path in out.rglob("*") if path.is_file()} == files


def test_parts_in_threads_of_one_process_do_not_share_rows(layer, tmp_path):
    out, plan = tmp_path / "s", make_plan(layer, {T: [1000, 1010, 1020, 1030]})

    def rows(first: int, end: int):
        return locked_folder(plan, out, range(first, end), whole=False, resume=True)

    with rows(0, 2):
        with rows(2, 4):
            for first, end, common in ((1, 3, "1:2"), (0, 4, "0:2"), (3, 4, "3:4")):
                with ThreadPoolExecutor(1) as thread:
                    with pytest.raises(vorlen.BusyError, match=f"the rows {common} in {out}"):
                        thread.submit(rows(first, end).__enter__).result()
        with rows(2, 3):
            pass
    with rows(1, 4):
        pass
    assert sorted(path.name for path in out.glob(".*")) == [".lock", ".plan.lock"]


@pytest.mark.parametrize("words", [[], ["--rows", "1:2"]])
def test_the_rows_of_a_killed_part_are_free(tmp_path, faulty_library, words):
    from vorlen.__main__ import main

    out = tmp_path / "s"
    with hanging_sweep(out, {P: [40000, HANG]}, "--rows", "0:2") as process:
        process.kill()
        process.wait()
        assert (out / ".rows.0-2.lock").exists()
    assert main(["sweep", str(tmp_path / "s.json"), "--quiet", "--workers", "1", "--timeout", "1", *words]) == 0
    assert sorted(path.name for path in out.glob(".*")) == [".lock", ".plan.lock"]


def test_a_table_never_has_the_rows_of_another_plan(layer, tmp_path, capsys):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000, 1010]}, out=out)
    other = vorlen.write_plan(tmp_path / "other.json", layer, {T: [1020, 1030]}, out="s")
    assert part(other, "0:1") == 1 and (out / "table.csv").exists()
    assert part(other, "0:1", "--no-resume") == 0
    assert not (out / "table.csv").exists()


def test_a_table_is_removed_with_the_plan_even_if_no_row_is_run(layer, tmp_path):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000, 1010]}, out=out)
    with locked_folder(make_plan(layer, {T: [1020]}), out, range(1), whole=True, resume=False):
        pass
    assert not (out / "table.csv").exists()


def test_a_table_is_removed_as_soon_as_one_of_its_rows_is_run_again(layer, tmp_path, capsys):
    from vorlen.__main__ import main

    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000, 1010]}, out=out)
    table = (out / "table.csv").read_bytes()
    plan = out / "plan.json"
    assert part(plan, "0:1") == 0  # done already
    assert (out / "table.csv").read_bytes() == table
    assert part(plan, "0:1", "--no-resume") == 0
    assert not (out / "table.csv").exists()
    assert main(["sweep", str(plan), "--merge"]) == 0
    assert (out / "table.csv").read_bytes() == table


def test_a_table_beside_rows_that_are_not_of_a_sweep_stays(layer, tmp_path):
    """As in the folder of a fit."""
    (tmp_path / "rows").mkdir()
    (tmp_path / "recipe.xml").write_bytes(layer.read_bytes())
    (tmp_path / "table.csv").write_text("mine")
    task = make_task(make_plan(layer, {T: [1000]}), tmp_path, 0, {T: 1000}, resume=True)
    assert run_row(task)["status"] == "ok" and (tmp_path / "table.csv").read_text() == "mine"


def test_a_row_is_that_of_its_values_even_if_another_program_replaces_its_recipe(layer, tmp_path, monkeypatch):
    from vorlen._sweep import row as _row

    monkeypatch.chdir(tmp_path)  # where the row's process is
    (tmp_path / "rows").mkdir()
    (tmp_path / "recipe.xml").write_bytes(layer.read_bytes())
    replace = _row.replace_file

    def replaced(path, content):
        replace(path, layer.read_bytes() if path.suffix == ".xml" else content)

    monkeypatch.setattr(_row, "replace_file", replaced)
    row = _row.do_row(make_task(make_plan(layer, {T: [900]}), tmp_path, 0, {T: 900}, resume=True))
    alone = vorlen.run(vorlen.Recipe.load(layer).set(T, 900))
    assert row["status"] == "ok" and row["values"]["x_in_2"] == alone.layers.x_in[2] != vorlen.run(layer).layers.x_in[2]
