"""The source archive (sdist): the part of the source tree that a wheel is built from, at the same places.

pip reads pyproject.toml in the top folder of an archive. There it only names the hooks, which are in python/.
"""

from __future__ import annotations

import io
import os
import tarfile
from collections.abc import Iterator
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]
# Files, and folders with all that is in them.
PARTS = (
    "CHANGELOG.md", "CMakeLists.txt", "CMakePresets.json", "README.md", "cmake", "docs/messages.md", "examples", "live",
    "python", "scripts", "src", "tools",
)
LEFT_OUT = {"__pycache__", ".hypothesis", "examples/notebooks/results", "python/tests", "python/bench"}
HOOKS = b"""\
# The description of the package is in python/pyproject.toml.
[build-system]
requires = []
build-backend = "build_wheel.backend"
backend-path = ["python"]
"""
EARLIEST = 315532800  # s, 1980: a time of files that all formats can express, the same in every archive


def _is_left_out(path: Path) -> bool:
    return path.name in LEFT_OUT or path.name.endswith(".egg-info") or path.relative_to(TREE).as_posix() in LEFT_OUT


def _files() -> Iterator[Path]:
    """Files of the archive in the order of their names."""
    for part in sorted(PARTS):
        if (TREE / part).is_file():
            yield TREE / part
        for folder, folders, names in os.walk(TREE / part):
            folders[:] = sorted(name for name in folders if not _is_left_out(Path(folder, name)))
            yield from (Path(folder, name) for name in sorted(names))


def _add(archive: tarfile.TarFile, name: str, content: bytes, executable: bool = False) -> None:
    entry = tarfile.TarInfo(name)
    entry.size, entry.mode = len(content), 0o755 if executable else 0o644
    entry.mtime = int(os.environ.get("SOURCE_DATE_EPOCH", EARLIEST))
    archive.addfile(entry, io.BytesIO(content))


def write(folder: Path, metadata: bytes) -> str:
    """Writes the archive into the folder and returns its name. metadata: the description of the package, PKG-INFO."""
    fields = dict(line.split(": ", 1) for line in metadata.decode().splitlines()[:3])
    top = f"{fields['Name']}-{fields['Version']}"
    with tarfile.open(folder / f"{top}.tar.gz", "w:gz", format=tarfile.PAX_FORMAT) as archive:
        _add(archive, f"{top}/PKG-INFO", metadata)
        _add(archive, f"{top}/pyproject.toml", HOOKS)
        for file in _files():
            name = file.relative_to(TREE).as_posix()
            _add(archive, f"{top}/{name}", file.read_bytes(), os.access(file, os.X_OK))
    return f"{top}.tar.gz"
