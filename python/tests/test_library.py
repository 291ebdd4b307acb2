"""Loading the shared library: a library that is missing or is another one is reported with its name."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

import vorlen
from support import PLAIN_LAYER
from vorlen._base import library as _library


def test_a_library_that_is_missing_is_reported_with_its_path_and_the_places(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("VORLEN_LIBRARY", str(tmp_path / "none.so"))
    with pytest.raises(vorlen.LibraryNotFoundError) as caught:
        vorlen.run(PLAIN_LAYER)
    text = str(caught.value)
    assert "none.so" in text and "VORLEN_LIBRARY" in text
    places = text.rpartition("in one of: ")[2].split(", ")
    assert places == sorted({str(path.parent) for path in _library._candidates()}) and len(places) > 1


def test_a_library_without_the_function_is_another_library(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    (tmp_path / "other.c").write_text("int other(void) { return 0; }\n")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", tmp_path / "other.so", tmp_path / "other.c"], check=True)
    monkeypatch.setenv("VORLEN_LIBRARY", str(tmp_path / "other.so"))
    with pytest.raises(vorlen.LibraryNotFoundError, match="runSurfChem"):
        vorlen.run(PLAIN_LAYER)


@pytest.mark.parametrize("packages", ["dist-packages", "site-packages"])
def test_an_installed_package_looks_below_its_prefix_first(
    packages: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    """As PREFIX/lib/python3/dist-packages/vorlen/_base/library.py, it uses PREFIX/lib/libVorlenSolver.so.1."""
    module = tmp_path / "lib" / "python3" / packages / "vorlen" / "_base" / "library.py"
    module.parent.mkdir(parents=True)
    monkeypatch.delenv("VORLEN_LIBRARY")
    monkeypatch.setattr(_library, "__file__", str(module))
    library = tmp_path / "lib" / _library.FILE_NAMES[0]
    library.touch()
    assert _library.find_library() == str(library)


def test_in_the_source_tree_the_release_build_comes_first(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    (tmp_path / "src" / "api").mkdir(parents=True)
    (tmp_path / "src" / "api" / "vorlen_solver.h").touch()
    found = []
    for preset in ("asan", "run", "release"):  # the later one is newer
        folder = tmp_path / "build" / preset / "src" / "api"
        folder.mkdir(parents=True)
        (folder / _library.FILE_NAMES[0]).touch()
        found.append(folder)
    monkeypatch.delenv("VORLEN_LIBRARY")
    monkeypatch.setattr(_library, "__file__", str(tmp_path / "python" / "vorlen" / "_base" / "library.py"))
    monkeypatch.setattr(_library.sys, "prefix", str(tmp_path / "none"))
    for folder in reversed(found[1:]):
        assert _library.find_library() == str(folder / _library.FILE_NAMES[0])
        (folder / _library.FILE_NAMES[0]).unlink()
    assert _library.find_library() == str(found[0] / _library.FILE_NAMES[0])
    (found[0] / _library.FILE_NAMES[0]).unlink()
    assert _library.find_library() == _library.FILE_NAMES[0]  # the system's loader looks for it


def test_an_environment_variable_comes_before_all_places(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("VORLEN_LIBRARY", "/nowhere/lib.so")
    assert _library.find_library() == "/nowhere/lib.so"
