"""The hooks that pip calls (PEP 517, PEP 660): those of setuptools, and a source archive that contains the C++ sources.

pip hides the packages of the system from a build and downloads setuptools instead, which fails without a network. Here
the setuptools of this interpreter, or of the one that its environment was made from, is used if there is one.
"""

from __future__ import annotations

import contextlib
import importlib
import os
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from . import source_archive

PYTHON = Path(__file__).resolve().parents[1]  # the folder of setup.py
REQUIREMENTS = ["setuptools>=61", "wheel"]
PROBE = "import setuptools, wheel.bdist_wheel as b; print(setuptools.__path__[0]); print(b.__file__)"
Settings = dict[str, Any] | None


def _folders_of_setuptools(interpreter: str) -> list[str]:
    """Folders of sys.path with setuptools and wheel, as the interpreter finds them without pip's environment."""
    # -I: PYTHONPATH, by which pip hides packages, is ignored.
    done = subprocess.run([interpreter, "-I", "-W", "ignore", "-c", PROBE], capture_output=True, text=True, check=False)
    return [str(Path(line).parents[1 if line.endswith(".py") else 0]) for line in done.stdout.splitlines()]


def _has_setuptools() -> bool:
    """True if setuptools and wheel can be imported. Extends sys.path if they are in another environment."""
    for interpreter in ("", sys.executable, getattr(sys, "_base_executable", sys.executable)):
        if interpreter:
            sys.path += [folder for folder in _folders_of_setuptools(interpreter) if folder not in sys.path]
        with contextlib.suppress(ImportError):
            importlib.import_module("setuptools")
            importlib.import_module("wheel.bdist_wheel")
            return True
    return False


@contextlib.contextmanager
def _setuptools() -> Iterator[Any]:
    """The hooks of setuptools, with the folder of setup.py as the current one."""
    if not _has_setuptools():
        raise SystemExit(
            "vorlen can't be built without setuptools and wheel: install them in this environment, or on Debian run "
            "apt-get install python3-setuptools python3-wheel"
        )
    with contextlib.chdir(PYTHON):
        yield importlib.import_module("setuptools.build_meta")


def get_requires_for_build_wheel(config_settings: Settings = None) -> list[str]:
    return [] if _has_setuptools() else REQUIREMENTS


get_requires_for_build_sdist = get_requires_for_build_editable = get_requires_for_build_wheel


def prepare_metadata_for_build_wheel(metadata_directory: str, config_settings: Settings = None) -> str:
    folder = os.path.abspath(metadata_directory)
    with _setuptools() as hooks:
        return str(hooks.prepare_metadata_for_build_wheel(folder, config_settings))


def build_wheel(
    wheel_directory: str, config_settings: Settings = None, metadata_directory: str | None = None
) -> str:
    folder = os.path.abspath(wheel_directory)
    with _setuptools() as hooks:
        return str(hooks.build_wheel(folder, config_settings))


def build_editable(
    wheel_directory: str, config_settings: Settings = None, metadata_directory: str | None = None
) -> str:
    folder = os.path.abspath(wheel_directory)
    with _setuptools() as hooks:
        return str(hooks.build_editable(folder, config_settings))


def build_sdist(sdist_directory: str, config_settings: Settings = None) -> str:
    with tempfile.TemporaryDirectory() as folder:
        information = prepare_metadata_for_build_wheel(folder)
        metadata = Path(folder, information, "METADATA").read_bytes()
    return source_archive.write(Path(sdist_directory), metadata)
