"""Finds the shared library of VorlenSolver and calls its one function.

Search order: the file that the environment variable VORLEN_LIBRARY names; the package itself, where pip installs it; the
library folders of the prefix that this package is installed in, and of the Python environment; the build folders of the
source tree that contains this package; the search path of the system's loader.
"""

from __future__ import annotations

import ctypes
import functools
import os
from pathlib import Path

from .places import library_folders, library_names, source_tree
from .types import PathLike

ERROR_BUFFER_SIZE = 2048  # bytes, as vorlen_solver.h states it


class LibraryNotFoundError(ImportError):
    """The shared library was not found or can't be loaded; the text names the places searched."""


def _candidates() -> list[Path]:
    """Possible paths of the library in search order. They need not exist."""
    return [folder / name for folder in library_folders() for name in library_names()]


def find_library() -> str:
    """Path of the shared library, or its bare name, for the system's loader, if it is in none of the known places."""
    named = os.environ.get("VORLEN_LIBRARY")
    if named:
        return named
    for candidate in _candidates():
        if candidate.is_file():
            return str(candidate)
    return library_names()[0]


@functools.lru_cache(maxsize=None)
def _load(path: str) -> ctypes.CDLL:
    try:
        library = ctypes.CDLL(path)  # CDLL, not PyDLL: other Python threads run during a call
        function = library.runSurfChem
    except (OSError, AttributeError) as error:
        places = sorted({str(candidate.parent) for candidate in _candidates()})
        remedy = "Build it with ./run.sh, set" if source_tree() else "Set"
        raise LibraryNotFoundError(
            f"the library of VorlenSolver can't be loaded: {error}. {remedy} VORLEN_LIBRARY to its path, or install it "
            f"in one of: {', '.join(places)}"
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
    # The library takes paths as bytes: on Windows in UTF-8, which is what os.fsencode returns there.
    paths = [os.fsencode(recipe), b"" if result is None else os.fsencode(result)]
    if any(b"\0" in path for path in paths):
        raise ValueError("a path contains a null byte")
    buffer = ctypes.create_string_buffer(ERROR_BUFFER_SIZE)
    status = _load(find_library()).runSurfChem(paths[0], paths[1], buffer)
    return status, buffer.value.decode("utf-8", "replace") if status != 0 else ""
