"""vorlen.run: the call, its failures, the files it writes."""

from __future__ import annotations

import errno
import hashlib
import json
import os
import pickle
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

import pytest

import vorlen
from support import EXAMPLES, failing_recipe, scripted_library
from vorlen._base.library import simulate
from vorlen._runs.simulate import _renamed
from vorlen._runs.status import status_path


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
    assert status["result_file"] == "r.failed.txt"
    assert vorlen.read(failed).text == caught.value.text
    good = vorlen.run(EXAMPLES[0].read_bytes(), result)
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
    with pytest.raises(FileNotFoundError, match="r.xml"):
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


@pytest.mark.parametrize("limit", [10000, 10001])
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
    kept = (tmp_path / "r.failed.txt").read_bytes()
    assert kept == whole[: whole.rindex(b"\n", 0, limit) + 1]
    assert int(lines[1]) == len(vorlen.read(tmp_path / "r.failed.txt").profile) > 0
    status = json.loads((tmp_path / "r.status.json").read_text())
    assert (status["result"], status["result_sha256"]) == (1, hashlib.sha256(kept).hexdigest())


def test_a_file_that_ends_within_the_list_of_layers_has_no_rows(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    (tmp_path / "rows").write_bytes(vorlen.run(EXAMPLES[0]).content[:100])
    monkeypatch.setenv("VORLEN_LIBRARY", str(scripted_library(tmp_path)))
    monkeypatch.setenv("TEST_ROWS", str(tmp_path / "rows"))
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    text = f"{tmp_path}/r.txt: the file ends before the run does. Is the disk full?\nNo row could be written"
    assert caught.value.text.startswith(text) and caught.value.run is None
    assert not (tmp_path / "r.txt").exists() and not (tmp_path / "r.failed.txt").exists()


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


def failing_file(folder: Path) -> Path:
    """The file of a recipe whose run fails with rows."""
    path = folder / "failing.xml"
    path.write_bytes(failing_recipe().to_bytes())
    return path


def contents(folder: Path) -> dict[str, bytes]:
    return {path.name: path.read_bytes() for path in folder.iterdir() if path.is_file()}


def test_rows_that_can_not_be_renamed_are_not_lost(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def fail(*_: object) -> None:
        raise OSError(errno.EIO, "Input/output error")

    monkeypatch.setattr("vorlen._runs.simulate.put_in_place", fail)
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    monkeypatch.setattr(tempfile, "tempdir", None)
    with pytest.raises(OSError, match="the rows are in ") as caught:
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    left = Path(str(caught.value).split("the rows are in ")[1])
    assert left.read_bytes() == vorlen.run(EXAMPLES[0]).content and not (tmp_path / "r.txt").exists()


def test_failed_rows_that_are_a_link_to_another_file_system_are_copied(tmp_path: Path) -> None:
    other = Path("/dev/shm")
    if not other.is_dir() or other.stat().st_dev == tmp_path.stat().st_dev:
        pytest.skip("there is no second file system")
    recipe = failing_file(tmp_path)
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe, tmp_path / "r.txt")
    target = other / f"vorlen-test-{os.getpid()}.txt"
    try:
        os.replace(shutil.copy(tmp_path / "r.failed.txt", target), target)
        (tmp_path / "r.failed.txt").unlink()
        (tmp_path / "r.failed.txt").symlink_to(target)
        with pytest.raises(vorlen.SimulationError):
            vorlen.run(recipe, tmp_path / "r.txt")
        assert (tmp_path / "r.failed.txt").is_symlink() and target.read_bytes() == caught.value.run.content
    finally:
        target.unlink(missing_ok=True)


def test_a_good_result_with_the_name_of_failed_rows_is_not_removed(tmp_path: Path) -> None:
    (tmp_path / "r.failed.txt").write_bytes(b"a good result of another run")
    before = contents(tmp_path)
    with pytest.raises(FileExistsError, match="r.failed.txt is not known to be of a failed run .*: move it away"):
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert contents(tmp_path) == before


def test_the_status_file_of_another_result_is_not_replaced(tmp_path: Path) -> None:
    vorlen.run(EXAMPLES[0], tmp_path / "r.result.txt")
    before = contents(tmp_path)
    for name in ("r.txt", "r"):
        with pytest.raises(FileExistsError, match="r.status.json is the status file of r.result.txt, not of .*: move"):
            vorlen.run(EXAMPLES[0], tmp_path / name)
    assert contents(tmp_path) == before
    vorlen.run(EXAMPLES[0], tmp_path / "r.result.txt")


@pytest.mark.parametrize("content", ["", "{}", "[]", "something of the user's", '{"result": 0}'])
def test_a_file_that_is_not_a_status_file_is_not_replaced(content: str, tmp_path: Path) -> None:
    (tmp_path / "r.status.json").write_text(content)
    with pytest.raises(FileExistsError, match="r.status.json is not a status file: move it away"):
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert contents(tmp_path) == {"r.status.json": content.encode()}


def test_failed_rows_are_replaced_by_runs_of_the_same_recipe_only(tmp_path: Path) -> None:
    recipe = failing_file(tmp_path)
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe, tmp_path / "r.result.txt")
    before = contents(tmp_path)
    with pytest.raises(FileExistsError, match="r.failed.txt has the rows of failing.xml: move it away"):
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert contents(tmp_path) == before
    with pytest.raises(vorlen.SimulationError):  # the same bytes under another name
        vorlen.run(failing_recipe(), tmp_path / "r.result.txt")
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe, tmp_path / "r.result.txt")
    recipe.write_bytes(EXAMPLES[0].read_bytes())  # the same recipe, repaired
    vorlen.run(recipe, tmp_path / "r.result.txt")
    assert sorted(contents(tmp_path)) == ["failing.xml", "r.result.txt", "r.status.json"]


def test_files_that_were_renamed_together_belong_together(tmp_path: Path) -> None:
    recipe = failing_file(tmp_path)
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe, tmp_path / "old.txt")
    (tmp_path / "old.failed.txt").rename(tmp_path / "new.failed.txt")
    (tmp_path / "old.status.json").rename(tmp_path / "new.status.json")
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe, tmp_path / "new.txt")


@pytest.mark.parametrize("name", ["r.failed.txt", "r.status.json", ".r.txt.part"])
def test_names_of_the_other_files_of_a_run_are_rejected_also_through_links(name: str, tmp_path: Path) -> None:
    (tmp_path / "link.txt").symlink_to(name)
    for target in (name, "link.txt"):
        with pytest.raises(ValueError, match="names ending in"):
            vorlen.run(EXAMPLES[0], tmp_path / target)
    assert contents(tmp_path) == {}


def test_a_recipe_in_the_place_of_another_file_of_the_run_is_not_overwritten(tmp_path: Path) -> None:
    for name in ("r.status.json", "r.failed.txt", ".r.txt.part"):
        recipe = tmp_path / name
        recipe.write_bytes(EXAMPLES[0].read_bytes())
        (tmp_path / "link.xml").symlink_to(name)
        for given in (recipe, tmp_path / "link.xml"):
            with pytest.raises(ValueError, match="would overwrite the recipe"):
                vorlen.run(given, tmp_path / "r.txt")
        assert recipe.read_bytes() == EXAMPLES[0].read_bytes()
        recipe.unlink()
        (tmp_path / "link.xml").unlink()


@pytest.fixture
def hanging(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> subprocess.Popen[str]:
    """A process in a call of the library that writes rows to run/r.txt and does not return."""
    (tmp_path / "run").mkdir()
    (tmp_path / "rows").write_bytes(vorlen.run(EXAMPLES[0]).content)
    variables = {
        "VORLEN_LIBRARY": str(scripted_library(tmp_path)), "TEST_ROWS": str(tmp_path / "rows"), "TEST_HANG": "1",
        "PYTHONPATH": str(Path(vorlen.__file__).parents[1]),
    }
    program = "import sys, vorlen; vorlen.run(sys.argv[1], sys.argv[2])"
    command = [sys.executable, "-c", program, EXAMPLES[0], tmp_path / "run" / "r.txt"]
    process = subprocess.Popen(command, env=os.environ | variables, stderr=subprocess.PIPE, text=True)
    part = tmp_path / "run" / ".r.txt.part"
    deadline = time.monotonic() + 60
    while not (part.exists() and part.stat().st_size == (tmp_path / "rows").stat().st_size):
        assert process.poll() is None and time.monotonic() < deadline
        time.sleep(0.02)
    yield process
    process.kill()
    process.communicate()


def test_a_second_run_on_the_same_result_is_rejected_at_once(hanging: subprocess.Popen[str], tmp_path: Path) -> None:
    (tmp_path / "run" / "link.txt").symlink_to("r.txt")
    for name in ("r.txt", "link.txt"):
        with pytest.raises(vorlen.BusyError, match="another run is writing .*r.txt"):
            vorlen.run(EXAMPLES[0], tmp_path / "run" / name)
    with pytest.raises(vorlen.BusyError, match="r.txt, which has the same r.status.json"):
        vorlen.run(EXAMPLES[0], tmp_path / "run" / "r.result.txt")
    assert sorted(contents(tmp_path / "run")) == [".r.txt.part"]
    vorlen.run(EXAMPLES[0], tmp_path / "run" / "other.txt")


def test_sigterm_ends_a_run_at_once_without_a_temporary_file(hanging: subprocess.Popen[str], tmp_path: Path) -> None:
    hanging.terminate()
    _, printed = hanging.communicate(timeout=20)
    assert (hanging.returncode, printed) == (128 + signal.SIGTERM, "")
    assert contents(tmp_path / "run") == {}


def test_the_next_run_cleans_up_after_one_that_was_killed(hanging: subprocess.Popen[str], tmp_path: Path) -> None:
    hanging.kill()
    hanging.wait(20)
    assert sorted(contents(tmp_path / "run")) == [".r.txt.part"]
    run = vorlen.run(EXAMPLES[0], tmp_path / "run" / "r.txt")
    assert sorted(contents(tmp_path / "run")) == ["r.status.json", "r.txt"]
    assert (tmp_path / "run" / "r.txt").read_bytes() == run.content


@pytest.mark.parametrize("place", ["vorlen._runs.simulate.simulate", "vorlen._runs.simulate.put_in_place"])
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interrupt_leaves_no_temporary_file(
    place: str, number: int, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def interrupt(*_: object) -> None:
        os.kill(os.getpid(), number)
        time.sleep(1)

    if (place, number) == ("vorlen._runs.simulate.simulate", signal.SIGTERM):
        pytest.skip("ends the process: see above")
    monkeypatch.setattr(place, interrupt)
    with pytest.raises(KeyboardInterrupt if number == signal.SIGINT else SystemExit):
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert contents(tmp_path) == {} and signal.getsignal(signal.SIGTERM) == signal.SIG_DFL


def test_a_program_that_handles_sigterm_keeps_its_handler(tmp_path: Path) -> None:
    def handler(*_: object) -> None: ...

    old = signal.signal(signal.SIGTERM, handler)
    try:
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
        assert signal.getsignal(signal.SIGTERM) is handler
    finally:
        signal.signal(signal.SIGTERM, old)
    vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert signal.getsignal(signal.SIGTERM) == signal.SIG_DFL and signal.set_wakeup_fd(-1) == -1


@pytest.mark.parametrize(
    ("arguments", "name"),
    [
        ((None,), "recipe"), ((3,), "recipe"), ((["r.xml"],), "recipe"), ((EXAMPLES[0], 3), "result"),
        ((EXAMPLES[0], b"r"), "result"),
    ],
)
def test_arguments_of_other_types_are_rejected_by_name(arguments: tuple[object, ...], name: str) -> None:
    with pytest.raises(TypeError, match=f"{name} must be a path.*, got {type(arguments[-1]).__name__}"):
        vorlen.run(*arguments)


def test_the_scheme_has_to_be_named() -> None:
    with pytest.raises(TypeError):
        vorlen.run(EXAMPLES[0], None, "staged")


def test_tables_are_copies() -> None:
    run = vorlen.run(EXAMPLES[0])
    for name in ("profile", "layers", "interfaces"):
        before, changed = getattr(run, name), getattr(run, name)
        assert len(before) and before.attrs["units"]
        changed.iat[0, 2] = -1.0
        changed.drop(columns=changed.columns[3], inplace=True)
        changed.attrs["units"].clear()
        assert getattr(run, name).equals(before) and getattr(run, name).attrs == before.attrs
    end = run.end
    end["z"] = -1
    assert run.end["z"] > 0
    recipe = run.recipe
    recipe["process_stages/stage_1/tau"] = 1
    assert run.recipe != recipe


def test_names_of_descriptors_in_texts_are_not_taken_for_longer_ones() -> None:
    text = "5: /proc/self/fd/5, 51: /proc/self/fd/51"
    assert _renamed(text, Path("/proc/self/fd/5"), r"\1") == r"5: \1, 51: /proc/self/fd/51"


def test_a_result_that_is_a_loop_of_links_is_an_error_of_the_system(tmp_path: Path) -> None:
    (tmp_path / "r.txt").symlink_to("r.txt")
    with pytest.raises(OSError) as caught:
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert caught.value.errno == errno.ELOOP


def test_a_result_without_status_file_is_reported(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def full(target: Path, *_: object) -> None:
        raise OSError(errno.ENOSPC, os.strerror(errno.ENOSPC), str(status_path(target)))

    monkeypatch.setattr(vorlen._runs.simulate, "write_status", full)
    with pytest.raises(OSError, match="No space left on device; the result itself is in place: '.*/r.status.json'"):
        vorlen.run(EXAMPLES[0], tmp_path / "r.txt")
    assert vorlen.read(tmp_path / "r.txt").complete
