"""Runs the notebooks in examples/notebooks and stores them with their outputs, which viewers show without running them.

    /usr/bin/python3 scripts/notebooks.py [NAME]...

NAME is the name of a notebook, with or without .ipynb; by default all are run. They run in a copy of the examples, so
that no results are left there.
"""

from __future__ import annotations

import argparse
import os
import platform
import re
import shutil
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

import nbformat
from nbclient import NotebookClient

ROOT = Path(__file__).resolve().parents[1]
NOTEBOOKS = sorted((ROOT / "examples" / "notebooks").glob("*.ipynb"))
TIMEOUT = 300  # s, of one cell
LARGEST = 300_000  # bytes of a file; viewers are slow with larger ones
TRACES = re.compile(r"/(tmp|home|root|usr|var|mnt)/|ipykernel|\b\d\d:\d\d:\d\d\b")  # of a machine or a moment


def executed(path: Path, folder: Path) -> nbformat.NotebookNode:
    """The notebook with the outputs of a run. folder must be empty. Raises CellExecutionError if a cell fails."""
    shutil.copytree(ROOT / "examples", folder / "examples", ignore=shutil.ignore_patterns("results"))
    search_path = [str(ROOT / "python"), os.environ.get("PYTHONPATH", "")]
    environment = os.environ | {
        "PYTHONPATH": os.pathsep.join(filter(None, search_path)),
        "IPYTHONDIR": str(folder / "ipython"),  # not with the settings of the user
        "PYDEVD_DISABLE_FILE_VALIDATION": "1",  # which prints a warning
    }
    environment.pop("MPLBACKEND", None)
    notebook = nbformat.read(path, as_version=4)
    client = NotebookClient(
        notebook, timeout=TIMEOUT, kernel_name="python3", record_timing=False,
        resources={"metadata": {"path": folder / "examples" / "notebooks"}},
    )
    client.execute(env=environment)
    for cell in notebook.cells:
        join_streams(cell.get("outputs", []))
    notebook.metadata["language_info"] = {"name": "python"}  # without the versions of this machine
    return notebook


def join_streams(shown: list[nbformat.NotebookNode]) -> None:
    """Makes one output of what a cell prints in a row; where the kernel divides it depends on how busy the machine is."""
    for number in range(len(shown) - 1, 0, -1):
        before, after = shown[number - 1], shown[number]
        if before.output_type == after.output_type == "stream" and before.name == after.name:
            before.text += shown.pop(number).text


def outputs(notebook: nbformat.NotebookNode) -> Iterator[tuple[int, nbformat.NotebookNode]]:
    """The outputs of a notebook with the numbers of their cells."""
    for number, cell in enumerate(notebook.cells):
        for output in cell.get("outputs", []):
            yield number, output


def texts_of(output: nbformat.NotebookNode) -> list[str]:
    """The texts of an output: what was printed, and tables; no pictures."""
    return [output.get("text", ""), *(text for kind, text in output.get("data", {}).items() if kind.startswith("text/"))]


def faults(notebook: nbformat.NotebookNode) -> list[str]:
    """Why a notebook should not be stored as it is."""
    found = []
    for number, output in outputs(notebook):
        if output.output_type == "error" or output.get("name") == "stderr":
            found.append(f"cell {number} has an error or a warning: {output.get('text', output.get('evalue'))}")
        traces = [match[0] for text in texts_of(output) for match in [TRACES.search(text)] if match]
        traces += [name for text in texts_of(output) for name in [str(ROOT), *own_names()] if name in text]
        if traces:
            found.append(f"cell {number} shows something of this machine: {traces[0]}")
    size = len(nbformat.writes(notebook).encode())
    return found + ([f"the file would have {size} bytes; at most {LARGEST} are allowed"] if size > LARGEST else [])


def own_names() -> list[str]:
    """Names of this machine and user, if they are long enough to be recognised."""
    return [name for name in (platform.node(), os.environ.get("USER", "")) if len(name) > 4]


def main() -> int:
    """Runs the notebooks that are named on the command line."""
    parser = argparse.ArgumentParser(description="Runs the notebooks and stores them with their outputs.")
    parser.add_argument("names", nargs="*", metavar="NAME", help="name of a notebook; default: all")
    wanted = [name.removesuffix(".ipynb") for name in parser.parse_args().names]
    unknown = set(wanted) - {path.stem for path in NOTEBOOKS}
    if unknown:
        parser.error(f"not a notebook: {', '.join(sorted(unknown))}")
    for path in NOTEBOOKS:
        if not wanted or path.stem in wanted:
            with tempfile.TemporaryDirectory() as folder:
                notebook = executed(path, Path(folder))
            wrong = faults(notebook)
            if wrong:
                print(f"{path.relative_to(ROOT)} is not stored: {'; '.join(wrong)}", file=sys.stderr)
                return 1
            nbformat.write(notebook, path)
            print(f"{path.relative_to(ROOT)}: {path.stat().st_size / 1000:.0f} kB")
    return 0


if __name__ == "__main__":
    sys.exit(main())
