"""vorlen sweep: options, parts, exit status, interrupts."""

from __future__ import annotations

import resource
import signal

import pytest

import vorlen
from engines import wait_for
from sweeps import HANG, P, T, children, command, hanging_sweep, is_running, quiet_sweep
from vorlen.__main__ import main


@pytest.fixture
def small_files():
    """Files can't grow beyond the size given, as on a disk that is full by then; for worker processes too."""
    old = resource.getrlimit(resource.RLIMIT_FSIZE)
    handler = signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    yield lambda size: resource.setrlimit(resource.RLIMIT_FSIZE, (size, old[1]))
    resource.setrlimit(resource.RLIMIT_FSIZE, old)
    signal.signal(signal.SIGXFSZ, handler)


def test_parts_merged_are_the_table_of_the_serial_run_byte_for_byte(layer, tmp_path, capsys):
    parameters = {T: [(1000, 1020), 1030, -1.5], "process_stages/stage_1/name": ["a", 'b, "c"']}
    quiet_sweep(layer, parameters, workers=1, out=tmp_path / "serial")
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, parameters, out="parts"))
    assert main(["sweep", plan, "--count"]) == 0
    assert capsys.readouterr().out == "6\n"
    for rows in ("4:6", "0:2"):
        assert main(["sweep", plan, "--rows", rows, "--quiet"]) == 0
    assert main(["sweep", plan, "--merge"]) == 1
    assert "rows 2:4 are missing" in capsys.readouterr().err
    assert main(["sweep", plan, "--rows", "2:100", "--quiet", "--workers", "1"]) == 0
    assert main(["sweep", plan, "--merge"]) == 0
    assert "6 rows: 4 ok, 2 failed" in capsys.readouterr().out
    assert (tmp_path / "parts" / "table.csv").read_bytes() == (tmp_path / "serial" / "table.csv").read_bytes()



@pytest.mark.parametrize("rows", ["3", "5:5", "a:b", "-1:3"])
def test_an_invalid_range_of_rows_is_a_usage_error(tmp_path, rows):
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(tmp_path / "plan.json"), f"--rows={rows}"])
    assert ended.value.code == 2



@pytest.mark.parametrize(
    "option", ["--workers=0", "--workers=2.5", "--workers=two", "--scheme=quick", "--merge --count"]
)
def test_invalid_options_are_usage_errors(tmp_path, option):
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(tmp_path / "plan.json"), *option.split()])
    assert ended.value.code == 2


def test_a_range_beyond_the_plan_is_an_error(layer, tmp_path, capsys):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000, 1010]}))
    assert main(["sweep", plan, "--rows", "2:4"]) == 1
    assert "row 2 does not exist: the plan has 2 rows, counted from 0" in capsys.readouterr().err
    assert not (tmp_path / "plan").exists()


@pytest.mark.parametrize("name", ["", "table.csv"])
def test_there_is_nothing_to_merge_where_no_sweep_was_run(layer, tmp_path, capsys, name):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000]}, out="mine"))
    if name:
        (tmp_path / "mine").mkdir()
        (tmp_path / "mine" / name).write_text("mine")
    assert main(["sweep", plan, "--merge"]) == 1
    text = f"{tmp_path / 'mine'} does not hold a sweep: no row of the plan was run"
    assert capsys.readouterr().err == f"vorlen: {text}\n"
    assert not name or (tmp_path / "mine" / name).read_text() == "mine"


def test_the_rows_of_another_sweep_are_not_merged(layer, tmp_path, capsys):
    table = quiet_sweep(layer, {T: [1000, 1010]}, out=tmp_path / "s")
    before = (tmp_path / "s" / "table.csv").read_bytes()
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1010, 1020]}, out="s"))
    assert main(["sweep", plan, "--merge"]) == 1
    assert "different recipe or different rows" in capsys.readouterr().err
    assert (tmp_path / "s" / "table.csv").read_bytes() == before and len(table) == 2


def test_merge_under_another_scheme_than_that_of_the_rows_is_an_error_and_the_table_stays(layer, tmp_path, capsys):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000]}))
    assert main(["sweep", plan, "--scheme", "continuous", "--quiet"]) == 0
    table = (tmp_path / "plan" / "table.csv").read_bytes()
    for words in ([], ["--scheme", "staged"]):
        capsys.readouterr()
        assert main(["sweep", plan, "--merge", *words]) == 1
        text = f"the rows in {tmp_path / 'plan'} were run with another --scheme; give --merge the same one"
        assert capsys.readouterr().err == f"vorlen: {text}\n"
        assert (tmp_path / "plan" / "table.csv").read_bytes() == table
    assert main(["sweep", plan, "--merge", "--scheme", "continuous"]) == 0


def test_out_is_the_folder_instead_of_the_plan_s(layer, tmp_path):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000]}))
    assert main(["sweep", plan, "--out", str(tmp_path / "other"), "--quiet"]) == 0
    assert (tmp_path / "other" / "table.csv").is_file() and not (tmp_path / "plan").exists()


def test_timeout_is_used_instead_of_the_plan_s(layer, tmp_path, faulty_library, capsys):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {P: [HANG]}, timeout=1000))
    assert main(["sweep", plan, "--timeout", "1.5", "--quiet", "--workers", "1"]) == 0
    assert vorlen.read_sweep(tmp_path / "plan").table.text[0] == "not finished within 1.5 s"


def test_the_timeout_of_a_plan_is_used(layer, tmp_path, faulty_library, capsys):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {P: [HANG]}, timeout=1))
    assert main(["sweep", plan, "--rows", "0:1", "--quiet", "--workers", "1"]) == 0
    assert vorlen.read_sweep(tmp_path / "plan").table.text[0] == "not finished within 1 s"


def test_no_resume_runs_all_rows_again(layer, tmp_path):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000, 1010]}))
    stamps = []
    for words in ([], [], ["--no-resume"], ["--no-resume", "--rows", "1:2"]):
        assert main(["sweep", plan, "--quiet", "--workers", "1", *words]) == 0
        files = sorted((tmp_path / "plan" / "rows").glob("*.status.json"))
        stamps.append([path.stat().st_mtime_ns for path in files])
    assert stamps[0] == stamps[1]
    assert all(old != new for old, new in zip(stamps[1], stamps[2]))
    assert [old != new for old, new in zip(stamps[2], stamps[3])] == [False, True]


def test_the_exit_status_of_a_part_is_0_if_all_outcomes_are_recorded(layer, tmp_path, faulty_library, capsys):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {P: [40000, -1, 40013, HANG]}, timeout=1))
    assert main(["sweep", plan, "--rows", "0:4", "--quiet", "--workers", "1"]) == 0
    assert "4 rows: 1 timeout, 1 ok, 1 failed, 1 crashed" in capsys.readouterr().out
    assert main(["sweep", plan, "--merge"]) == 0


def test_the_exit_status_of_a_part_is_1_if_a_row_has_an_error(layer, tmp_path, capsys, small_files):
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000, 1010, 1020]}))
    part = ["sweep", plan, "--rows", "1:3", "--quiet", "--workers", "1"]
    small_files(layer.stat().st_size + 200)  # enough for the recipe, not for a result
    assert main(part) == 1
    written = capsys.readouterr()
    assert written.out == "2 rows: 2 error\n"
    assert written.err.startswith("vorlen sweep: rows 1:3 are not finished. Row 1: ")
    small_files(10**9)
    assert main(["sweep", plan, "--merge"]) == 1
    assert "rows 0:3 are missing" in capsys.readouterr().err
    assert main(part) == 0
    assert capsys.readouterr().out == "2 rows: 2 ok\n"


def test_a_row_that_was_lost_gives_the_exit_status_1(layer, tmp_path, capsys, monkeypatch):
    def fail(*_: object) -> None:
        raise RuntimeError("gone")

    monkeypatch.setattr("vorlen._sweep.pool.LocalPool.submit", fail)
    plan = str(vorlen.write_plan(tmp_path / "plan.json", layer, {T: [1000]}))
    for words in ([], ["--rows", "0:1"]):
        assert main(["sweep", plan, "--quiet", *words]) == 1
        assert "rows 0:1 are not finished. Row 0: RuntimeError: gone" in capsys.readouterr().err


def test_on_a_full_disk_rows_are_errors_with_the_reason(layer, tmp_path, small_files):
    """Large enough for the recipes of the rows, but not for their results."""
    out = tmp_path / "s"
    assert list(quiet_sweep(layer, {T: [1000]}, out=out).status) == ["ok"]
    small_files(layer.stat().st_size + 200)
    table = quiet_sweep(layer, {T: [1000, 1010, 1020]}, out=out)
    assert list(table.status) == ["ok", "error", "error"]
    assert "disk" in table.text[1] or "File too large" in table.text[1]
    assert list(table.status_file[1:]) == ["", ""] and not list(out.glob("rows/.*"))


def test_on_a_disk_that_is_full_from_the_start_the_folder_stays_as_it_was(layer, tmp_path, small_files):
    out = tmp_path / "s"
    quiet_sweep(layer, {T: [1000]}, out=out)
    files = {path: path.read_bytes() for path in out.rglob("*") if path.is_file()}
    small_files(100)
    with pytest.raises(OSError, match="File too large: '.*s/plan.json'"):
        quiet_sweep(layer, {T: [1000, 1010]}, out=out)
    assert {path: path.read_bytes() for path in out.rglob("*") if path.is_file()} == files


def test_without_space_for_the_table_the_sweep_is_returned_with_a_warning(layer, tmp_path, small_files, capsys):
    out, parameters = tmp_path / "s", {T: [1000 + 0.5 * number for number in range(60)]}
    table = quiet_sweep(layer, parameters, out=out)
    small_files((out / "table.csv").stat().st_size - 1)  # the other files need not be written again
    (out / "table.csv").unlink()
    with pytest.warns(RuntimeWarning, match=f"{out / 'table.csv'} could not be written: File too large"):
        again = quiet_sweep(layer, parameters, out=out)
    assert again.equals(table) and set(again.status) == {"ok"}
    assert main(["sweep", str(out / "plan.json"), "--quiet"]) == 1
    assert f"vorlen: [Errno 27] File too large: '{out / 'table.csv'}'" in capsys.readouterr().err
    assert not list(out.glob("table.csv")) and not list(out.glob(".*.part"))


def test_a_folder_that_disappears_gives_rows_with_the_reason(layer, tmp_path):
    from vorlen._sweep.plan import make_task
    from vorlen._sweep.plan_values import make_plan
    from vorlen._sweep.pool import run_row

    row = run_row(make_task(make_plan(layer, {T: [1000]}), tmp_path / "gone", 0, {T: 1000}, resume=True))
    assert row["status"] == "error" and f"No such file or directory: '{tmp_path / 'gone'}'" in row["text"]


def test_an_interrupted_sweep_says_what_is_done_and_continues_where_it_stopped(layer, tmp_path, faulty_library):
    # Row 3 hangs, so it is running when the interrupt arrives, and its worker must end with the process.
    parameters, rows = {P: [40000, 40001, 40002, HANG, 40003]}, tmp_path / "s" / "rows"
    with hanging_sweep(tmp_path / "s", parameters) as process:
        (worker,) = children(process.pid)
        (rows / ".000003.result.txt.part").write_text("what the worker has written")
        process.send_signal(signal.SIGINT)
        assert process.wait(30) == 130
        assert wait_for(lambda: not is_running(worker), 10)
        assert process.stderr.read() == (
            "vorlen sweep: interrupted; 5 rows: 3 ok, 2 missing. To continue, give the same command again\n"
        )
    assert sorted(path.name for path in rows.glob("*.status.json")) == [f"00000{n}.status.json" for n in range(3)]
    assert not list(rows.glob(".*"))
    before = (rows / "000000.status.json").stat().st_mtime_ns
    table = quiet_sweep(layer, parameters, timeout=1, out=tmp_path / "s")
    assert list(table.status) == ["ok", "ok", "ok", "timeout", "ok"]
    assert (rows / "000000.status.json").stat().st_mtime_ns == before


def test_an_interrupted_part_counts_its_own_rows(layer, tmp_path, faulty_library):
    with hanging_sweep(tmp_path / "s", {P: [40000, 40001, 40002, HANG, 40003]}, "--rows", "2:4") as process:
        process.send_signal(signal.SIGINT)
        assert process.wait(30) == 130
        assert "interrupted; 2 rows: 1 ok, 1 missing" in process.stderr.read()


def test_a_worker_that_hangs_ends_when_its_parent_is_killed(layer, tmp_path, faulty_library):
    with hanging_sweep(tmp_path / "s", {P: [HANG]}) as process:
        (worker,) = children(process.pid)
        process.kill()
        process.wait()
        assert wait_for(lambda: not is_running(worker), 10)
    # the rows of the killed sweep are run by the next
    assert list(quiet_sweep(layer, {P: [HANG]}, timeout=1, out=tmp_path / "s").status) == ["timeout"]
    assert not list((tmp_path / "s" / "rows").glob(".*"))


def test_rows_run_in_parallel(layer, tmp_path, faulty_library, monkeypatch):
    """Each of the two runs waits for the other one to start."""
    (tmp_path / "meet").mkdir()
    monkeypatch.setenv("TEST_MEET", str(tmp_path / "meet"))
    plan = vorlen.write_plan(tmp_path / "plan.json", layer, {P: [40021, 40023]}, timeout=60)
    with command(plan, "--workers", "2", "--quiet") as process:
        assert process.wait(100) == 0
        assert "2 rows: 2 ok" in process.stdout.read()


def test_one_worker_runs_one_row_at_a_time(layer, tmp_path, faulty_library, monkeypatch):
    (tmp_path / "meet").mkdir()
    monkeypatch.setenv("TEST_MEET", str(tmp_path / "meet"))
    table = quiet_sweep(layer, {P: [40021, 40023]}, timeout=1, workers=1, out=tmp_path / "s")
    assert list(table.status) == ["timeout", "ok"]  # the first one had started before the second
