"""The notebooks run from top to bottom, and are stored with the outputs of a run."""

from __future__ import annotations

import base64
import importlib.util
import math
import os
import re
from pathlib import Path

import nbformat
import pytest

ROOT = Path(__file__).resolve().parents[2]
NOTEBOOKS = sorted((ROOT / "examples" / "notebooks").glob("*.ipynb"))
PICTURES = {  # in each notebook
    "1_first_look": 2,
    "2_indium_against_temperature": 2,
    "3_how_v_defects_open": 2,
    "4_a_500_run_sweep": 1,
    "5_a_fit": 1,
}
LONGEST_TABLE = 10_000  # bytes of HTML
TOLERANCE = 5e-3  # relative, of printed numbers: other processors round differently, so numbers of rows may differ
NUMBER = re.compile(r"[-+]?\d+\.?\d*(?:e[-+]?\d+)?")


def script():
    """scripts/notebooks.py as a module."""
    specification = importlib.util.spec_from_file_location("notebooks", ROOT / "scripts" / "notebooks.py")
    module = importlib.util.module_from_spec(specification)
    specification.loader.exec_module(module)
    return module


notebooks = script()
each_notebook = pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)


def code_cells(notebook):
    return [cell for cell in notebook.cells if cell.cell_type == "code"]


def contents(notebook, kind: str) -> list[str]:
    """The contents of one kind in the outputs."""
    data = [output.get("data", {}) for _, output in notebooks.outputs(notebook)]
    return [one[kind] for one in data if kind in one]


def pictures(notebook) -> list[bytes]:
    """The pictures in the outputs."""
    return [base64.b64decode(text) for text in contents(notebook, "image/png")]


def kinds(cell) -> list[tuple[str, ...]]:
    """What a cell shows: for each output its type, and the stream or the types of its content."""
    return [(one.output_type, one.get("name", ""), *sorted(one.get("data", {}))) for one in cell.outputs]


def plain_texts(cell) -> list[str]:
    """What a cell prints, without tables in HTML."""
    return [one.get("text") or one.get("data", {}).get("text/plain", "") for one in cell.outputs]


def same_text(one: str, other: str) -> bool:
    """True if two texts have the same words and, apart from rounding, the same numbers."""
    words = [" ".join(NUMBER.sub("#", text).split()) for text in (one, other)]
    numbers = [[float(number) for number in NUMBER.findall(text)] for text in (one, other)]
    close = (math.isclose(a, b, rel_tol=TOLERANCE, abs_tol=1e-9) for a, b in zip(*numbers))
    return words[0] == words[1] and all(close)


def test_there_are_five():
    assert [path.stem for path in NOTEBOOKS] == list(PICTURES)


@each_notebook
def test_a_notebook_is_stored_with_its_outputs(path):
    notebook = nbformat.read(path, as_version=4)
    nbformat.validate(notebook)
    assert path.stat().st_size < notebooks.LARGEST and notebooks.faults(notebook) == []
    assert [cell.execution_count for cell in code_cells(notebook)] == list(range(1, len(code_cells(notebook)) + 1))
    stored = pictures(notebook)
    assert len(stored) == PICTURES[path.stem] and all(picture.startswith(b"\x89PNG\r\n") for picture in stored)
    assert all(len(table) < LONGEST_TABLE for table in contents(notebook, "text/html"))
    # nothing that depends on the machine or the time of the run
    assert notebook.metadata["language_info"] == {"name": "python"}
    assert all(cell.metadata == {} for cell in notebook.cells)


def test_what_a_cell_prints_in_a_row_is_one_output():
    out = lambda text, name="stdout": nbformat.v4.new_output("stream", name=name, text=text)  # noqa: E731
    table = nbformat.v4.new_output("execute_result", data={"text/plain": "5"})
    shown = [out("a\n"), out("b\n"), out("c\n"), out("x", "stderr"), out("d"), table, out("e")]
    notebooks.join_streams(shown)
    assert [one.get("text", "5") for one in shown] == ["a\nb\nc\n", "x", "d", "5", "e"]


@each_notebook
def test_a_notebook_runs_and_shows_what_is_stored(path, tmp_path):
    stored = nbformat.read(path, as_version=4)
    run = notebooks.executed(path, tmp_path)
    if os.environ.get("VORLEN_KEEP_NOTEBOOKS"):  # to look at the pictures
        nbformat.write(run, Path(os.environ["VORLEN_KEEP_NOTEBOOKS"], path.name))
    assert notebooks.faults(run) == [] and len(pictures(run)) == PICTURES[path.stem]
    for old, new in zip(code_cells(stored), code_cells(run), strict=True):
        place = f"{path.name}, cell {new.execution_count}: run scripts/notebooks.py"
        assert kinds(old) == kinds(new), place
        for before, now in zip(plain_texts(old), plain_texts(new), strict=True):
            assert same_text(before, now), f"{place}\n{before}\nis now\n{now}"


def test_texts_are_compared_by_their_words_and_numbers():
    assert same_text("x  1.0000 a\n", "x 1.0001 a") and same_text("1.8e+12", "1.8001e+12") and same_text("", "")
    assert not same_text("1.00", "1.01")
    assert not same_text("x 1.0", "x 1.1") and not same_text("x 1", "y 1") and not same_text("1", "1 1")
    assert not same_text("1e12", "1e13") and not same_text("0.5", "-0.5")


@pytest.mark.parametrize(
    ("output", "fault"),
    [
        (nbformat.v4.new_output("stream", name="stderr", text="a warning"), "a warning"),
        (nbformat.v4.new_output("error", ename="E", evalue="division by zero"), "division by zero"),
        (nbformat.v4.new_output("stream", name="stdout", text="in /tmp/x"), "this machine: /tmp/"),
        (nbformat.v4.new_output("stream", name="stdout", text="at 12:30:01"), "this machine: 12:30:01"),
        (nbformat.v4.new_output("execute_result", {"text/html": f"<p>{ROOT}</p>"}), "this machine"),
        (nbformat.v4.new_output("display_data", {"image/png": "A" * 300_000}), "the file would have 300"),
    ],
)
def test_faults_of_outputs_are_noticed(output, fault):
    cell = nbformat.v4.new_code_cell("1", outputs=[output])
    (found,) = notebooks.faults(nbformat.v4.new_notebook(cells=[cell]))
    assert fault in found
