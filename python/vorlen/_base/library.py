"""Finds the shared library of VorlenSolver and calls its one function.

Search order: the file that the environment variable VORLEN_LIBRARY names; the library folders of the prefix that this
package is installed in, and of the Python environment; the build folders of the source tree that contains this package;
the search path of the system's loader.
"""

from __future__ import annotations

import ctypes
import functools
import os
import sys
import sysconfig
from pathlib import Path

from .types import PathLike

FILE_NAMES = ("libVorlenSolver.so.1", "libVorlenSolver.so")
ERROR_BUFFER_SIZE = 2048  # bytes, as vorlen_solver.h states it


class LibraryNotFoundError(ImportError):
    """The shared library was not found or can't be loaded; the text names the places searched."""


def _library_folders(prefix: Path) -> list[Path]:
    """The folders of an installation prefix that may contain the shared library."""
    multiarch = sysconfig.get_config_var("MULTIARCH") or ""
    return [prefix / "lib", *([prefix / "lib" / multiarch] if multiarch else []), prefix / "lib64"]


def _candidates() -> list[Path]:
    """Possible paths of the library in search order. They need not exist."""
    package = Path(__file__).resolve().parents[1]
    folders: list[Path] = []
    # PREFIX/lib/python3/dist-packages/vorlen and PREFIX/lib/python3.11/site-packages/vorlen
    if package.parent.name in ("dist-packages", "site-packages"):
        folders += _library_folders(package.parents[3])
    folders += _library_folders(Path(sys.prefix))
    tree = package.parents[1]
    if (tree / "src" / "api" / "vorlen_solver.h").is_file():
        builds = sorted(tree.glob("build/*/src/api"), key=lambda folder: folder.stat().st_mtime, reverse=True)
        preferred = [tree / "build" / preset / "src" / "api" for preset in ("release", "run")]
        folders += preferred + [folder for folder in builds if folder not in preferred]
    return [folder / name for folder in folders for name in FILE_NAMES]


def find_library() -> str:
    """Path of the shared library, or its bare name, for the system's loader, if it is in none of the known places."""
    named = os.environ.get("VORLEN_LIBRARY")
    if named:
        return named
    for candidate in _candidates():
        if candidate.is_file():
            return str(candidate)
    return FILE_NAMES[0]


@functools.lru_cache(maxsize=None)
def _load(path: str) -> ctypes.CDLL:
    try:
        library = ctypes.CDLL(path)  # CDLL, not PyDLL: other Python threads run during a call
        function = library.runSurfChem
    except (OSError, AttributeError) as error:
        places = sorted({str(candidate.parent) for candidate in _candidates()})
        raise LibraryNotFoundError(
            f"the library of VorlenSolver can't be loaded: {error}. Set VORLEN_LIBRARY to its path, or install it in "
            f"one of: {', '.join(places)}"
        ) from None
    function.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p]
    function.restype = ctypes.c_int32
    return library


def simulate(recipe: PathLike, result: PathLike | None = None) -> tuple[int, str]:
    """Runs one simulation.

    recipe  path of the recipe
    result  path of the result file, which is overwritten; None: no file is written
    Returns the library's result, 0 or 1, and its text, which is empty when the result is 0.
    """
    paths = [os.fsencode(recipe), b"" if result is None else os.fsencode(result)]
    if any(b"\0" in path for path in paths):
        raise ValueError("a path contains a null byte")
    buffer = ctypes.create_string_buffer(ERROR_BUFFER_SIZE)
    status = _load(find_library()).runSurfChem(paths[0], paths[1], buffer)
    return status, buffer.value.decode("utf-8", "replace") if status != 0 else ""
