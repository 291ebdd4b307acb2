"""Where the library and the tool that belong to this package may be, for library.py and tool.py.

An installation by pip has them in the package. One by CMake or from a Debian package has them in the prefix that the
package is in, and a source tree has them in its build folders.
"""

from __future__ import annotations

import sys
import sysconfig
from pathlib import Path

PREFERRED_BUILDS = ("release", "run")


def library_names(platform: str = sys.platform) -> tuple[str, ...]:
    """File names of the shared library on a platform, with the names that sys.platform has. The first is installed."""
    if platform == "win32":
        return ("VorlenSolver.dll",)
    if platform == "darwin":
        return ("libVorlenSolver.1.dylib", "libVorlenSolver.dylib")
    return ("libVorlenSolver.so.1", "libVorlenSolver.so")


def tool_name(platform: str = sys.platform) -> str:
    return "vorlen.exe" if platform == "win32" else "vorlen"


def _package() -> Path:
    return Path(__file__).resolve().parents[1]


def _prefixes() -> list[Path]:
    """Installation prefixes: of the package, as PREFIX/lib/python3/dist-packages/vorlen, and of the environment."""
    package = _package()
    own = [package.parents[3]] if package.parent.name in ("dist-packages", "site-packages") else []
    return [*own, Path(sys.prefix)]


def source_tree() -> Path | None:
    """The source tree that contains this package."""
    tree = _package().parents[1]
    return tree if (tree / "src" / "api" / "vorlen_solver.h").is_file() else None


def library_folders() -> list[Path]:
    """Folders that may contain the shared library, in search order. They need not exist."""
    multiarch = sysconfig.get_config_var("MULTIARCH") or ""
    names = ["bin"] if sys.platform == "win32" else ["lib", *([f"lib/{multiarch}"] if multiarch else []), "lib64"]
    folders = [prefix / name for prefix in [_package() / "_native", *_prefixes()] for name in names]
    tree = source_tree()
    if tree is not None:
        builds = sorted(tree.glob("build/*/src/api"), key=lambda folder: folder.stat().st_mtime, reverse=True)
        preferred = [tree / "build" / preset / "src" / "api" for preset in PREFERRED_BUILDS]
        folders += preferred + [folder for folder in builds if folder not in preferred]
    return folders


def tool_places() -> list[Path]:
    """Files that may be the tool, in search order. They need not exist."""
    places = [prefix / "bin" / tool_name() for prefix in [_package() / "_native", *_prefixes()]]
    tree = source_tree()
    if tree is not None:
        places += [tree / "build" / preset / "tools" / tool_name() for preset in PREFERRED_BUILDS]
    return places
