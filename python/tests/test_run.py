"""vorlen.run: the call, its failures, the files it writes."""

from __future__ import annotations

import hashlib
import json
import os
import pickle
import subprocess
import sys
import threading
from pathlib import Path

import pytest

import vorlen
from support import EXAMPLES, failing_recipe
from vorlen._library import simulate
from vorlen._status import status_path


def bytes_of_the_library(recipe: Path, folder: Path) -> bytes:
    """What a direct call of the library writes for a recipe."""
    path = folder / "bare.txt"
    assert simulate(recipe, path) == (0, "")
    return path.read_bytes()


def test_a_path_a_text_and_a_recipe_give_the_bytes_of_a_direct_call(examples: Path, tmp_path: Path) -> None:
    path = examples / "algan_gan_hemt.xml"
    expected = bytes_of_the_library(path, tmp_path)
    for recipe in (path, str(path), path.read_text(), vorlen.Recipe.load(path)):
        assert vorlen.run(recipe).content == expected


def test_the_result_file_and_its_status_file_are_saved(examples: Path, tmp_path: Path) -> None:
    path, result = examples / "algan_gan_hemt.xml", tmp_path / "hemt.result.txt"
    run = vorlen.run(path, result)
    assert run.path == result and result.read_bytes() == run.content
    status = json.loads((tmp_path / "hemt.status.json").read_text())
    assert status["result"] == 0 and status["text"] == "" and status["wall_time_s"] > 0
    assert status["version"] == vorlen.__version__
    assert status["result_sha256"] == hashlib.sha256(result.read_bytes()).hexdigest()
    assert status["recipe_sha256"] == hashlib.sha256(path.read_bytes()).hexdigest()
    assert sorted(entry.name for entry in tmp_path.iterdir()) == ["hemt.result.txt", "hemt.status.json"]


@pytest.mark.parametrize(
    ("result", "status"),
    [("a.result.txt", "a.status.json"), ("a.txt", "a.status.json"), ("a.out", "a.out.status.json")],
)
def test_the_status_file_has_the_name_of_the_result(result: str, status: str) -> None:
    assert status_path(result).name == status


def test_a_rejected_recipe_raises_the_library_s_text_and_leaves_an_older_result(examples: Path, tmp_path: Path) -> None:
    recipe = vorlen.Recipe.load(examples / "algan_gan_hemt.xml")
    recipe["process_stages/stage_1/T"] = 0
    result = tmp_path / "old.txt"
    result.write_text("older")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe, result)
    assert caught.value.text == "Very low or negative temperature in stage_1"  # docs/messages.md
    assert caught.value.run is None and caught.value.recipe is recipe
    assert result.read_text() == "older"
    assert json.loads((tmp_path / "old.status.json").read_text())["result_sha256"] is None


def test_a_missing_recipe_raises_the_library_s_text(tmp_path: Path) -> None:
    with pytest.raises(vorlen.SimulationError, match="missing.xml"):
        vorlen.run(tmp_path / "missing.xml")


def test_the_result_never_overwrites_the_recipe(examples: Path, tmp_path: Path) -> None:
    recipe = tmp_path / "r.xml"
    recipe.write_bytes((examples / "algan_gan_hemt.xml").read_bytes())
    with pytest.raises(ValueError, match="would overwrite the recipe"):
        vorlen.run(recipe, recipe)
    assert recipe.read_bytes() == (examples / "algan_gan_hemt.xml").read_bytes()


def test_a_result_without_a_folder_is_rejected_before_the_run(examples: Path, tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError, match="nowhere"):
        vorlen.run(examples / "algan_gan_hemt.xml", tmp_path / "nowhere" / "r.txt")
    with pytest.raises(IsADirectoryError):
        vorlen.run(examples / "algan_gan_hemt.xml", tmp_path)


def test_runs_in_threads_give_the_same_bytes_as_one_by_one(examples: Path) -> None:
    paths = sorted(examples.glob("*.xml"))
    expected = [vorlen.run(path).content for path in paths]
    results: list[bytes] = [b""] * len(paths)

    def work(index: int) -> None:
        results[index] = vorlen.run(paths[index]).content

    threads = [threading.Thread(target=work, args=(index,)) for index in range(len(paths))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == expected


def test_a_run_and_an_error_survive_pickling(examples: Path) -> None:
    run = vorlen.run(examples / "algan_gan_hemt.xml")
    again = pickle.loads(pickle.dumps(run))
    assert again.content == run.content and again.layers.equals(run.layers)
    error = pickle.loads(pickle.dumps(vorlen.SimulationError("text", "recipe.xml", run)))
    assert error.text == "text" and error.run.content == run.content


def test_the_rows_of_a_failed_run_are_kept_beside_the_older_result(tmp_path: Path) -> None:
    result, failed = tmp_path / "r.result.txt", tmp_path / "r.failed.txt"
    result.write_bytes(b"older")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(failing_recipe(), result)
    assert result.read_bytes() == b"older"
    assert failed.read_bytes() == caught.value.run.content and caught.value.run.path == failed
    status = json.loads((tmp_path / "r.status.json").read_text())
    assert (status["result"], status["text"]) == (1, caught.value.text)
    assert status["result_file"] == str(failed)
    assert vorlen.read(failed).text == caught.value.text
    good = vorlen.run(EXAMPLES[0], result)
    assert good.path == result and not failed.exists()


def test_an_unreadable_recipe_leaves_the_files_of_an_earlier_run(tmp_path: Path) -> None:
    recipe, result = tmp_path / "r.xml", tmp_path / "r.result.txt"
    recipe.write_bytes(failing_recipe().to_bytes())
    result.write_bytes(b"older")
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe, result)
    recipe.unlink()
    before = {path.name: path.read_bytes() for path in tmp_path.iterdir()}
    assert sorted(before) == ["r.failed.txt", "r.result.txt", "r.status.json"]
    with pytest.raises(vorlen.SimulationError, match="Failed to open file"):
        vorlen.run(recipe, result)
    assert {path.name: path.read_bytes() for path in tmp_path.iterdir()} == before


RUN_WITH_A_LIMIT = """
import resource, signal, sys, vorlen
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (int(sys.argv[3]),) * 2)
try:
    vorlen.run(sys.argv[1], sys.argv[2])
except vorlen.SimulationError as error:
    print(error.text)
    print(0 if error.run is None else len(error.run.profile))
"""


@pytest.mark.parametrize("limit", [100, 10000, 10001])
def test_what_fits_on_a_full_disk_is_kept_in_whole_rows(limit: int, tmp_path: Path) -> None:
    """A limit on the size of files simulates the disk."""
    whole = vorlen.run(EXAMPLES[0]).content
    assert limit < len(whole)
    command = [sys.executable, "-c", RUN_WITH_A_LIMIT, EXAMPLES[0], tmp_path / "r.txt", str(limit)]
    search_path = {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    run = subprocess.run(command, env=os.environ | search_path, capture_output=True, text=True, timeout=60, check=True)
    lines = run.stdout.splitlines()
    assert lines[0] == f"{tmp_path}/r.txt: the file ends before the run does. Is the disk full?"
    assert not (tmp_path / "r.txt").exists()
    if limit == 100:  # within the list of layers
        assert lines[1:] == ["No row could be written", "0"]
        assert not (tmp_path / "r.failed.txt").exists()
        return
    kept = (tmp_path / "r.failed.txt").read_bytes()
    assert kept == whole[: whole.rindex(b"\n", 0, limit) + 1]
    assert int(lines[1]) == len(vorlen.read(tmp_path / "r.failed.txt").profile) > 0
    status = json.loads((tmp_path / "r.status.json").read_text())
    assert (status["result"], status["result_sha256"]) == (1, hashlib.sha256(kept).hexdigest())


def test_a_pipe_or_the_name_of_a_failed_run_is_rejected_as_a_result(tmp_path: Path) -> None:
    os.mkfifo(tmp_path / "pipe.txt")
    for name in ("pipe.txt", "r.failed.txt"):
        with pytest.raises(ValueError, match=name):
            vorlen.run(EXAMPLES[0], tmp_path / name)
    assert (tmp_path / "pipe.txt").is_fifo() and len(list(tmp_path.iterdir())) == 1


def test_a_link_and_permissions_of_an_older_result_stay(tmp_path: Path) -> None:
    (tmp_path / "real.txt").write_bytes(b"older")
    (tmp_path / "real.txt").chmod(0o640)
    (tmp_path / "r.txt").symlink_to("real.txt")
    run = vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert (tmp_path / "r.txt").is_symlink() and (tmp_path / "real.txt").read_bytes() == run.content
    assert (tmp_path / "real.txt").stat().st_mode & 0o777 == 0o640


def test_rows_that_can_not_be_renamed_are_not_lost(tmp_path: Path) -> None:
    (tmp_path / "r.failed.txt").mkdir()
    with pytest.raises(OSError, match="the rows are in ") as caught:
        vorlen.run(failing_recipe(), tmp_path / "r.txt")
    left = Path(str(caught.value).split("the rows are in ")[1].split(":")[0].strip("'"))
    assert vorlen.read(left).failed


