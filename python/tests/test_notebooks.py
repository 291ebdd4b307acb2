"""The notebooks run from top to bottom, and are stored without outputs."""

from __future__ import annotations

import os
import shutil
from pathlib import Path

import nbformat
import pytest
from nbclient import NotebookClient

import vorlen

ROOT = Path(__file__).resolve().parents[2]
NOTEBOOKS = sorted((ROOT / "examples" / "notebooks").glob("*.ipynb"))


PICTURES = {  # in each notebook
    "1_first_look": 2,
    "2_indium_against_temperature": 2,
    "3_how_v_defects_open": 2,
    "4_a_500_run_sweep": 1,
    "5_a_fit": 1,
}


def test_there_are_five():
    assert [path.stem for path in NOTEBOOKS] == list(PICTURES)


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_a_notebook_is_kept_without_outputs(path):
    notebook = nbformat.read(path, as_version=4)
    nbformat.validate(notebook)
    for cell in notebook.cells:
        assert cell.cell_type == "markdown" or (cell.outputs == [] and cell.execution_count is None)


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_a_notebook_runs(path, tmp_path, monkeypatch):
    shutil.copytree(ROOT / "examples", tmp_path / "examples", ignore=shutil.ignore_patterns("results"))
    search_path = [str(Path(vorlen.__file__).parents[1]), os.environ.get("PYTHONPATH", "")]
    monkeypatch.setenv("PYTHONPATH", os.pathsep.join(filter(None, search_path)))
    monkeypatch.delenv("MPLBACKEND", raising=False)
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path / "ipython"))
    notebook = nbformat.read(path, as_version=4)
    folder = tmp_path / "examples" / "notebooks"
    NotebookClient(notebook, timeout=300, kernel_name="python3", resources={"metadata": {"path": folder}}).execute()
    if os.environ.get("VORLEN_KEEP_NOTEBOOKS"):  # to look at the pictures
        nbformat.write(notebook, Path(os.environ["VORLEN_KEEP_NOTEBOOKS"], path.name))
    errors = [output for cell in notebook.cells for output in cell.get("outputs", []) if output.output_type == "error"]
    pictures = [
        output for cell in notebook.cells for output in cell.get("outputs", [])
        if "image/png" in output.get("data", {})
    ]
    assert not errors and len(pictures) == PICTURES[path.stem]
