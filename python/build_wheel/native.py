"""The library and the tool of a wheel: built by CMake in build/wheel, or taken from an installation by another build.

VORLEN_WHEEL_PREFIX names such an installation, as `cmake --install` makes it: for a wheel for another system.
CMAKE_ARGS has options for CMake, separated by blanks.
"""

from __future__ import annotations

import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]
BUILD = TREE / "build" / "wheel"
TOOLS = ("bin/vorlen", "bin/vorlen.exe")
# Each library at its place in an installation, with the multiarch folder if there is one.
LIBRARIES = ("lib*/libVorlenSolver.so.1", "lib/*/libVorlenSolver.so.1", "lib/libVorlenSolver.1.dylib",
             "bin/VorlenSolver.dll")
CHART_LIBRARY = "lib/python3/dist-packages/vorlen/assets/plotly.min.js"
LICENCES = Path("/usr/share/doc")  # of Debian's packages
# What the tool and the library contain, and the Debian packages that it is from.
CONTENTS = {"tinyxml": "libtinyxml-dev", "fmt": "libfmt-dev", "cli11": "libcli11-dev",
            "fast_float": "libfast-float-dev", "nlohmann_json": "nlohmann-json3-dev"}
POSIX_CONTENTS = {"nettle": "nettle-dev"}
WINDOWS_CONTENTS = {"gcc_runtime": "gcc-mingw-w64-base", "mingw_w64_runtime": "mingw-w64-common"}


def _missing_packages() -> str:
    """A sentence that names the Debian packages for a build. On Debian, only missing ones; empty if there are none."""
    text = (TREE / "scripts" / "setup.sh").read_text("utf-8")
    found = re.search(r"^BUILD_PACKAGES=\((.*?)\)", text, re.MULTILINE | re.DOTALL)
    names = found[1].split() if found else []
    if shutil.which("dpkg-query"):
        query = ["dpkg-query", "-W", "-f", "${binary:Package} ${db:Status-Status}\n", *names]
        printed = subprocess.run(query, capture_output=True, text=True, check=False).stdout
        there = {line.split()[0].partition(":")[0] for line in printed.splitlines() if line.endswith(" installed")}
        names = [name for name in names if name not in there]
    return f"On Debian, run: apt-get install {' '.join(names)}" if names else ""


def _run(*command: str) -> None:
    done = subprocess.run(command, stdout=sys.stderr, check=False)
    if done.returncode != 0:
        failed = shlex.join(command[:3])
        raise SystemExit(f"vorlen can't be built: {failed} failed, see above. {_missing_packages()}".rstrip())


def _build() -> Path:
    """Builds everything that is installed and returns the folder that it is installed in."""
    programs = {name: shutil.which(name) for name in ("cmake", "ninja", "pkg-config")}
    programs["a C++ compiler"] = os.environ.get("CXX") or shutil.which("c++")
    if absent := [name for name, place in programs.items() if not place]:
        raise SystemExit(f"vorlen can't be built without {' and '.join(absent)}. {_missing_packages()}".rstrip())
    prefix = BUILD / "prefix"
    shutil.rmtree(prefix, ignore_errors=True)
    options = shlex.split(os.environ.get("CMAKE_ARGS", ""))
    _run("cmake", "--preset", "wheel", "-S", str(TREE), "-B", str(BUILD), "--compile-no-warning-as-error", *options)
    _run("cmake", "--build", str(BUILD))
    for component in ("library", "tool"):
        _run("cmake", "--install", str(BUILD), "--prefix", str(prefix), "--component", component, "--strip")
    return prefix


def installation() -> Path:
    """The folder with library and tool as they are installed. Builds them if no folder is given."""
    given = os.environ.get("VORLEN_WHEEL_PREFIX")
    if not given:
        return _build()
    if not Path(given).is_absolute() or not Path(given).is_dir():
        raise SystemExit(f"VORLEN_WHEEL_PREFIX must be the absolute path of a folder, got {given}")
    return Path(given)


def programs_in(prefix: Path) -> list[Path]:
    """The library and the tool of an installation. Raises SystemExit if one of them is missing."""
    tool = [prefix / name for name in TOOLS if (prefix / name).is_file()]
    library = [place for pattern in LIBRARIES for place in sorted(prefix.glob(pattern))]
    if not tool or not library:
        raise SystemExit(f"{prefix} lacks {'the tool vorlen' if library else 'the library VorlenSolver'}")
    return [library[0], tool[0]]


def package_files(prefix: Path) -> dict[str, Path]:
    """The files that an installation adds to the package, by their places in it."""
    library, tool = programs_in(prefix)
    files = {
        f"_native/{'bin' if library.suffix == '.dll' else 'lib'}/{library.name}": library.resolve(),
        f"_native/bin/{tool.name}": tool,
    }
    files |= {f"_native/share/vorlen/{file.name}": file for file in sorted(prefix.glob("share/vorlen/*"))}
    if (prefix / CHART_LIBRARY).is_file():
        files["assets/plotly.min.js"] = prefix / CHART_LIBRARY
    system_contents = WINDOWS_CONTENTS if library.suffix == ".dll" else POSIX_CONTENTS
    return files | _licences(CONTENTS | system_contents)


def _licences(contents: dict[str, str]) -> dict[str, Path]:
    """Licences of what library and tool contain, and the texts that these refer to, by their places in the package."""
    files = {name: LICENCES / package / "copyright" for name, package in contents.items()}
    files = {name: file for name, file in files.items() if file.is_file()}
    for file in list(files.values()):
        for common in re.findall(r"/usr/share/common-licenses/[\w.-]*\w", file.read_text("utf-8")):
            if Path(common).is_file():
                files[Path(common).name] = Path(common).resolve()
    return {f"_native/licences/{name}.txt": file for name, file in files.items()}
