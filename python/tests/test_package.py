"""The package installed by CMake beside the library. test_wheel.py is about pip."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

from support import MQW, ROOT
from vorlen._base.library import find_library

PROGRAM = """import sys, vorlen
print(vorlen.__version__, vorlen.__file__)
vorlen.report(vorlen.run(sys.argv[1]), sys.argv[2])
"""


def run_program(python: str, folder: Path, **variables: str) -> str:
    """Runs PROGRAM outside of the source tree and returns its output."""
    environment = {name: value for name, value in os.environ.items() if name not in ("PYTHONPATH", "VORLEN_LIBRARY")}
    command = [python, "-c", PROGRAM, str(MQW), str(folder / "run.html")]
    done = subprocess.run(command, cwd=folder, env=environment | variables, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    assert "plotly.js v" in (folder / "run.html").read_text("utf-8")
    return done.stdout


def test_an_installation_of_the_library_is_found_from_the_package_in_it(tmp_path: Path) -> None:
    prefix = tmp_path / "prefix"
    package = prefix / "lib" / "python3" / "dist-packages" / "vorlen"
    shutil.copytree(ROOT / "python" / "vorlen", package, ignore=shutil.ignore_patterns("__pycache__"))
    script, chart_library = ROOT / "python" / "chart_library.py", package / "assets" / "plotly.min.js"
    subprocess.run([sys.executable, "-B", script, chart_library], check=True)
    shutil.copy(Path(find_library()).resolve(), prefix / "lib" / "libVorlenSolver.so.1")
    printed = run_program(sys.executable, tmp_path, PYTHONPATH=str(package.parent))
    assert str(package) in printed


def test_a_missing_library_is_reported_with_the_places_searched(tmp_path: Path) -> None:
    done = subprocess.run(
        [sys.executable, "-c", "import vorlen; vorlen.run('<recipe/>')"],
        env=os.environ | {"VORLEN_LIBRARY": str(tmp_path / "none.so"), "PYTHONPATH": str(ROOT / "python")},
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 1 and "LibraryNotFoundError" in done.stderr
    assert "none.so" in done.stderr and "VORLEN_LIBRARY" in done.stderr


def test_importing_loads_no_plotting_library() -> None:
    program = "import sys, vorlen; print([m for m in ('matplotlib', 'jinja2', 'xarray', 'scipy') if m in sys.modules])"
    environment = os.environ | {"PYTHONPATH": str(ROOT / "python")}
    done = subprocess.run([sys.executable, "-c", program], env=environment, capture_output=True, text=True, check=True)
    assert done.stdout == "[]\n"
