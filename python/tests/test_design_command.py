"""vorlen design: options, files, exit status, interrupts; and the figure and the page of a design."""

from __future__ import annotations

import contextlib
import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import pytest

import vorlen
from engines import wait_for
from support import MQW, ROOT, tool
from vorlen.__main__ import main

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one layer, InGaN, that runs within milliseconds
TAU = "process_stages/stage_1/tau"
REACHABLE = "layers: [{layer: 2, thickness: 4 nm, by: tau}]"
BEYOND = "layers: [{layer: 2, thickness: 4 nm, by: tau}]\nlimits: {tau: 10 .. 61 s}"


@pytest.fixture
def files(tmp_path) -> Path:
    """A folder with a recipe and two files of targets."""
    (tmp_path / "start.xml").write_bytes(LAYER.read_bytes())
    (tmp_path / "targets.yaml").write_text(REACHABLE)
    (tmp_path / "beyond.yaml").write_text(BEYOND)
    return tmp_path


def run(folder: Path, *words: str, targets: str = "targets.yaml") -> int:
    return main(["design", str(folder / "start.xml"), "--targets", str(folder / targets), "--workers", "1", *words])


def test_the_recipe_and_the_page_are_written(files, capsys):
    page, output = files / "design.html", files / "grown.xml"
    assert run(files, "-o", str(output), "--report", str(page), "--out", str(files / "runs")) == 0
    shown = capsys.readouterr()
    assert f"recipe in {output}" in shown.out and f"report in {page}" in shown.out
    assert "layer 2 (InGaN)" in shown.out and "tau 60 →" in shown.out
    assert shown.err == ""  # the progress line is for terminals
    layers = vorlen.run(output).layers
    assert abs(layers.thickness[2] - 4.0) <= 4e-3
    text = page.read_text("utf-8")
    assert "1 of 1 targets reached" in text and ".warnings {" in text  # the styles
    # The runs are kept.
    assert run(files, "-o", str(output), "--force", "--quiet", "--out", str(files / "runs")) == 0
    assert capsys.readouterr().err == ""


def test_targets_out_of_reach_give_the_best_recipe_and_status_1(files, capsys):
    assert run(files, "--quiet", targets="beyond.yaml") == 1
    shown = capsys.readouterr()
    assert "tau is at its upper limit 61 s" in shown.err and shown.err.startswith("vorlen design: thickness of")
    assert vorlen.Recipe.load(files / "start_designed.xml")[TAU] == 61.0


def test_an_existing_recipe_is_only_replaced_on_request(files, capsys):
    (files / "start_designed.xml").write_text("mine")
    assert run(files, "--quiet") == 1
    assert "start_designed.xml exists; give another name with -o, or --force" in capsys.readouterr().err
    assert (files / "start_designed.xml").read_text() == "mine"


@pytest.mark.parametrize("place", ["start.xml", "targets.yaml"])
def test_inputs_are_never_replaced(files, capsys, place):
    content = (files / place).read_bytes()
    assert run(files, "--quiet", "--force", "-o", str(files / place)) == 1
    assert run(files, "--quiet", "--report", str(files / place)) == 1
    assert "which is an input" in capsys.readouterr().err
    assert (files / place).read_bytes() == content


def test_the_recipe_and_the_page_are_two_files(files, capsys):
    place = str(files / "same")
    assert run(files, "--quiet", "-o", place, "--report", place) == 1
    assert "can't be both" in capsys.readouterr().err


@pytest.mark.parametrize(
    ("text", "error"),
    [
        ("layers: [{layer: none, thickness: 4, by: tau}]", "the recipe has no layer 'none'"),
        ("layers: [{layer: 2, thickness: 4 nm, by: [tau, T]", "targets.yaml, line 1, column "),
        ("layers", "targets.yaml must be a mapping with the key layers, not a text"),
    ],
)
def test_mistakes_in_the_targets_are_messages(files, capsys, text, error):
    (files / "targets.yaml").write_text(text)
    assert run(files, "--quiet") == 1
    shown = capsys.readouterr().err
    assert shown.startswith("vorlen: ") and error in shown and "Traceback" not in shown


def test_a_file_of_targets_without_its_option_is_a_usage_error_that_says_where_it_belongs(files, capsys):
    for words in ([], ["--targets", "other.yaml"]):
        with pytest.raises(SystemExit) as end:
            main(["design", str(files / "start.xml"), "targets.yaml", *words])
        assert end.value.code == 2
        assert "targets.yaml: a file of targets belongs after --targets" in capsys.readouterr().err
    with pytest.raises(SystemExit):
        main(["design", "--targets", "targets.yaml"])
    assert "belongs" not in capsys.readouterr().err


def test_a_missing_file_is_a_message_like_that_of_other_commands(files, capsys):
    assert main(["design", "nope.xml", "--targets", str(files / "targets.yaml")]) == 1
    assert capsys.readouterr().err == "vorlen: nope.xml can't be read: No such file or directory\n"


def test_a_recipe_that_fails_is_a_message(files, capsys):
    recipe = vorlen.Recipe.load(files / "start.xml")
    recipe["process_stages/stage_1/P"] = -1
    recipe.save(files / "start.xml")
    assert run(files, "--quiet") == 1
    assert "start.xml fails, and with other values of the knobs too: " in capsys.readouterr().err
    assert not (files / "start_designed.xml").exists()


@pytest.mark.filterwarnings("default::vorlen.RecipeWarning")
def test_the_warnings_of_vorlen_check_are_reported_once(files, capsys, recwarn, monkeypatch):
    monkeypatch.setenv("VORLEN", tool())
    start = files / "start.xml"
    start.write_text(start.read_text("utf-8").replace("</NonstSurfChem>", '<odd val="1"/></NonstSurfChem>'), "utf-8")
    assert run(files, "--quiet") == 0
    shown = capsys.readouterr().err
    assert shown.startswith(f"vorlen design: {start}: 1 warning:") and shown.count("odd") == 1
    targets = files / "targets.yaml"
    vorlen.design(start, targets, workers=1, check=False)
    assert not [one for one in recwarn if one.category is vorlen.RecipeWarning]
    with pytest.warns(vorlen.RecipeWarning, match="1 warning") as found:
        vorlen.design(start, targets, workers=1)
    assert found[0].filename == __file__


@pytest.mark.parametrize(
    "option", ["--workers=0", "--workers=two", "--max-runs=0", "--max-runs=1.5", "--time-limit=-1", "--timeout=nan"]
)
def test_invalid_options_are_usage_errors(files, option):
    with pytest.raises(SystemExit) as ended:
        run(files, option)
    assert ended.value.code == 2


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interrupt_keeps_the_runs_and_leaves_the_best_so_far(files, number):
    """The design is stopped when its second run starts; the same command finishes it with the first run."""
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    recipe = vorlen.Recipe.load(MQW)
    recipe["process_stages/stage_1/n_periods"] = 25  # a run takes long enough to be interrupted
    recipe.save(files / "start.xml")
    (files / "targets.yaml").write_text("layers: [{layer: InGaN well, thickness: 3, In: 0.2, by: [tau, TMIn]}]")
    words = [sys.executable, "-m", "vorlen", "design", "start.xml"]
    words += ["--targets", "targets.yaml", "--out", "runs", "--quiet"]
    process = subprocess.Popen(
        words, cwd=files, env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    assert wait_for((files / "runs" / "rows" / "000001.xml").exists)
    process.send_signal(number)
    text, error = process.communicate(timeout=60)
    assert process.returncode == 128 + number  # of a program that the signal has ended
    assert "to continue, repeat the call" in error and "Traceback" not in error
    assert "the search is not complete: it was interrupted" in error
    assert "start_designed.xml is the best so far; repeat the command with --force" in error
    assert "recipe in start_designed.xml, 1 run\n" in text
    best = vorlen.Recipe.load(files / "start_designed.xml")
    assert best == recipe.with_scheme("staged")  # only the first run was complete
    first = files / "runs" / "rows" / "000000.result.txt"
    time = first.stat().st_mtime_ns
    again = subprocess.run(words, cwd=files, env=environment, capture_output=True, text=True, timeout=120)
    assert again.returncode == 1 and "start_designed.xml exists" in again.stderr
    done = subprocess.run([*words, "--force"], cwd=files, env=environment, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0 and "recipe in start_designed.xml" in done.stdout
    assert first.stat().st_mtime_ns == time


def test_a_terminal_shows_a_line_of_progress(files):
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    words = [sys.executable, "-m", "vorlen", "design", "start.xml", "--targets", "targets.yaml", "--workers", "1"]
    grown = vorlen.run(files / "start.xml", scheme="staged").layers.thickness[2]
    for options, shown in (([], True), (["--quiet", "--force"], False)):
        screen, terminal = os.openpty()
        subprocess.run([*words, *options], cwd=files, env=environment, stdout=subprocess.DEVNULL, stderr=terminal)
        os.close(terminal)
        text = b""
        with contextlib.suppress(OSError):  # the end of what a terminal shows
            while part := os.read(screen, 4096):
                text += part
        os.close(screen)
        first = f"\rrun 1: 0 of 1 targets reached; thickness of layer 2 (InGaN) {grown:.4g}, target 4".encode()
        last = rb"\rrun \d: 1 of 1 targets reached *\r\n"
        assert (text.startswith(first) and re.search(last + b"$", text)) if shown else text == b""


# ---- the figure and the page


@pytest.fixture(scope="module")
def made(tmp_path_factory) -> vorlen.Design:
    """A design with a target out of reach, and a name with characters of HTML."""
    recipe = vorlen.Recipe.load(LAYER)
    recipe["process_stages/stage_1/name"] = "<b>In & Ga</b>"
    path = tmp_path_factory.mktemp("design") / "start.xml"
    recipe.save(path)
    return vorlen.design(
        path,
        {
            "layers": [{"layer": 2, "thickness": 4, "In": 0.6, "V-defects": "none", "by": ["tau", "T"]}],
            "limits": {"T": [1000, 1060]},
        },
        workers=1,
    )


def test_the_page_has_targets_knobs_and_warnings_as_text(made, tmp_path):
    page = made.report(tmp_path / "design.html").read_text("utf-8")
    assert "2 of 3 targets reached" in page and "Warnings" in page
    assert "&lt;b&gt;In &amp; Ga&lt;/b&gt;" in page and "<b>" not in page
    assert "T is at its lower limit 1000 K" in page and "1000 to 1060" in page
    assert "<figure" in page and "value / target" in page and "knob, after / before" in page  # the picture
    assert page.count("1000 to 1060") == 1 and "0.06 to 6" not in page  # limits of tau were not given
    assert "http://" not in page and "https://" not in page and "<script" not in page
    with pytest.raises(ValueError, match="which is an input"):
        made.report(made.recipe.path)


def test_the_figure_shows_targets_and_knobs(made, tmp_path):
    figure = made.plot(path=tmp_path / "design.svg")
    targets, knobs = figure.axes
    assert [label.get_text().split("\n")[0] for label in targets.get_yticklabels()] == ["thickness", "In", "V-defects"]
    assert [label.get_text().split("\n")[0] for label in knobs.get_yticklabels()][1].endswith("lower limit)")
    picture = (tmp_path / "design.svg").read_text("utf-8")
    assert "value / target" in picture and "out of reach" in picture
    with pytest.raises(ValueError, match="ending of a format"):
        made.plot(path=tmp_path / "design.none")
    with pytest.raises(ValueError, match="which is an input"):
        made.plot(path=made.recipe.path)


def test_a_design_prints_its_table_and_its_warnings(made):
    assert repr(made) == f"<Design, 2 of 3 targets reached, {made.runs} runs>"
    lines = str(made).splitlines()
    assert lines[0].split() == ["layer", "quantity", "target", "start", "reached", "unit", "met", "knobs"]
    assert len(lines) == 1 + 3 + len(made.warnings)
