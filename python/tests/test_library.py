"""Loading the shared library: a library that is missing or is another one is reported with its name."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

import vorlen
from support import PLAIN_LAYER
from vorlen._base import library as _library
from vorlen._base import places as _places
from vorlen._base import tool as _tool


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
    monkeypatch.setattr(_places, "__file__", str(module))
    library = tmp_path / "lib" / _places.library_names()[0]
    library.touch()
    assert _library.find_library() == str(library)


def test_what_is_in_the_package_comes_before_its_prefix(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    package = tmp_path / "lib" / "python3.11" / "site-packages" / "vorlen"
    monkeypatch.delenv("VORLEN_LIBRARY")
    monkeypatch.delenv("VORLEN", raising=False)
    monkeypatch.setattr(_places, "__file__", str(package / "_base" / "places.py"))
    files = [(package / "_native" / "lib" / _places.library_names()[0], _library.find_library)]
    files += [(package / "_native" / "bin" / "vorlen", _tool.find_tool)]
    for file, find in files:
        assert find() != str(file)
        for place in (file, tmp_path / file.parent.name / file.name):
            place.parent.mkdir(parents=True, exist_ok=True)
            place.write_text("program")
            place.chmod(0o755)
        assert find() == str(file)


def test_the_command_that_pip_installs_is_not_taken_for_the_tool(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    """It would start itself forever."""
    for name in ("environment", "path"):
        (tmp_path / name / "bin").mkdir(parents=True)
    command, tool = tmp_path / "environment" / "bin" / "vorlen", tmp_path / "path" / "bin" / "vorlen"
    command.write_text("#!/usr/bin/python3\nfrom vorlen_command import main\n")
    tool.write_text("#!/bin/sh\n")
    command.chmod(0o755)
    monkeypatch.delenv("VORLEN", raising=False)
    monkeypatch.setenv("PATH", f"{command.parent}:{tool.parent}")
    monkeypatch.setattr(_places, "__file__", str(tmp_path / "python" / "vorlen" / "_base" / "places.py"))
    monkeypatch.setattr(_places.sys, "prefix", str(tmp_path / "environment"))
    assert _tool.find_tool() is None  # neither can be run
    tool.chmod(0o755)
    assert _tool.find_tool() == str(tool)


def test_library_and_tool_have_the_names_of_the_platform() -> None:
    """As CMake names a shared library VorlenSolver with version 1 there."""
    assert _places.library_names("linux")[0] == "libVorlenSolver.so.1"
    assert _places.library_names("darwin")[0] == "libVorlenSolver.1.dylib"
    assert _places.library_names("win32")[0] == "VorlenSolver.dll"
    assert [_places.tool_name(each) for each in ("linux", "darwin", "win32")] == ["vorlen", "vorlen", "vorlen.exe"]


def test_in_the_source_tree_the_release_build_comes_first(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    (tmp_path / "src" / "api").mkdir(parents=True)
    (tmp_path / "src" / "api" / "vorlen_solver.h").touch()
    found = []
    for preset in ("asan", "run", "release"):  # the later one is newer
        folder = tmp_path / "build" / preset / "src" / "api"
        folder.mkdir(parents=True)
        (folder / _places.library_names()[0]).touch()
        found.append(folder)
    monkeypatch.delenv("VORLEN_LIBRARY")
    monkeypatch.setattr(_places, "__file__", str(tmp_path / "python" / "vorlen" / "_base" / "places.py"))
    monkeypatch.setattr(_places.sys, "prefix", str(tmp_path / "none"))
    for folder in reversed(found[1:]):
        assert _library.find_library() == str(folder / _places.library_names()[0])
        (folder / _places.library_names()[0]).unlink()
    assert _library.find_library() == str(found[0] / _places.library_names()[0])
    (found[0] / _places.library_names()[0]).unlink()
    assert _library.find_library() == _places.library_names()[0]  # the system's loader looks for it


def test_an_environment_variable_comes_before_all_places(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("VORLEN_LIBRARY", "/nowhere/lib.so")
    assert _library.find_library() == "/nowhere/lib.so"
