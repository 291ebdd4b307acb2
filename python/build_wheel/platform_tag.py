"""The platform tag of a wheel: the systems on which its library and its tool run, read from these files.

On Linux the tag manylinux_X_Y promises that glibc X.Y is enough (PEP 600). X.Y is the newest version of glibc that a
file needs, if it needs nothing beyond what the rules of that tag allow. Otherwise the tag is that of the machine alone,
with which pip installs the wheel but no index accepts it.
"""

from __future__ import annotations

import os
import re
import shutil
import struct
import subprocess
import sysconfig
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

Version = tuple[int, ...]

# Libraries that every manylinux system has. ld-linux is the loader.
ALLOWED = re.compile(r"(libc|libm|libdl|libpthread|librt|libgcc_s|libstdc\+\+|ld-linux[\w-]*)\.so\.\d+")
# What comes with the compiler, by the first glibc whose manylinux tag allows it: the newest versions of symbols in
# libstdc++ (GLIBCXX, CXXABI) and in libgcc_s (GCC).
RUNTIMES: tuple[tuple[Version, dict[str, Version]], ...] = (
    ((2, 17), {"GLIBCXX": (3, 4, 19), "CXXABI": (1, 3, 7), "GCC": (4, 8, 0)}),
    ((2, 28), {"GLIBCXX": (3, 4, 24), "CXXABI": (1, 3, 11), "GCC": (7, 0, 0)}),
    ((2, 31), {"GLIBCXX": (3, 4, 28), "CXXABI": (1, 3, 12), "GCC": (7, 0, 0)}),
    ((2, 34), {"GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (7, 0, 0)}),
    ((2, 35), {"GLIBCXX": (3, 4, 30), "CXXABI": (1, 3, 13), "GCC": (12, 0, 0)}),
)
MACHINES = {"Advanced Micro Devices X86-64": "x86_64", "AArch64": "aarch64"}  # as readelf names them
PE_MACHINES = {0x8664: "win_amd64", 0xAA64: "win_arm64"}


@dataclass(frozen=True)
class Needs:
    """What a file in the format ELF needs from the system."""

    machine: str  # as readelf names it
    libraries: frozenset[str]
    versions: frozenset[str]  # of symbols, such as GLIBC_2.29


def needs_of(file: Path) -> Needs:
    """Raises SystemExit if readelf is missing or can't read the file."""
    if shutil.which("readelf") is None:
        raise SystemExit("readelf was not found; on Debian run apt-get install binutils")
    command = ["readelf", "--wide", "--file-header", "--dynamic", "--version-info", str(file)]
    done = subprocess.run(command, env=os.environ | {"LC_ALL": "C"}, capture_output=True, text=True, check=False)
    machine = re.search(r"Machine: +(.+)", done.stdout)
    if done.returncode != 0 or machine is None:
        raise SystemExit(f"readelf can't read {file}: {done.stderr.strip()}")
    needed = done.stdout.partition("Version needs section")[2]
    return Needs(
        machine[1].strip(),
        frozenset(re.findall(r"\(NEEDED\).*\[(.+)\]", done.stdout)),
        frozenset(re.findall(r"Name: (\S+)", needed)),
    )


def _version_of(symbol_version: str) -> tuple[str, Version] | None:
    """GLIBC_2.29 as its name and its numbers; None without numbers, as in GLIBC_PRIVATE."""
    if symbol_version == "GLIBC_ABI_DT_RELR":
        return "GLIBC", (2, 36)
    match = re.fullmatch(r"(\w+?)_([\d.]+)", symbol_version)
    return (match[1], tuple(int(number) for number in match[2].split("."))) if match else None


def glibc_for(needs: Iterable[Needs]) -> Version | None:
    """The oldest glibc whose manylinux tag files with these needs may have; None if no tag allows them."""
    least: Version = RUNTIMES[0][0]
    for one in needs:
        versions = [_version_of(version) for version in one.versions]
        if None in versions or not all(ALLOWED.fullmatch(library) for library in one.libraries):
            return None
        for name, number in filter(None, versions):
            if name == "GLIBC":
                fitting: Version | None = number[:2]
            else:
                fitting = next((glibc for glibc, newest in RUNTIMES if number <= newest.get(name, ())), None)
            if fitting is None:
                return None
            least = max(least, fitting)
    return least


def _linux_tag(files: list[Path]) -> str:
    needs = [needs_of(file) for file in files]
    machines = {MACHINES.get(one.machine, one.machine) for one in needs}
    if len(machines) != 1:
        raise SystemExit(f"library and tool are for different processors: {', '.join(sorted(machines))}")
    glibc = glibc_for(needs)
    system = "linux" if glibc is None else f"manylinux_{glibc[0]}_{glibc[1]}"
    return f"{system}_{machines.pop()}"


def platform_tag(files: list[Path]) -> str:
    """The platform tag of a wheel with these programs and libraries. Raises SystemExit if it can't be found out."""
    head = files[0].read_bytes()[:4096]
    if head.startswith(b"\x7fELF"):
        return _linux_tag(files)
    if head.startswith(b"MZ"):
        start = struct.unpack_from("<I", head, 0x3C)[0]  # of the header that names the processor
        machine = struct.unpack_from("<H", head, start + 4)[0]
        if machine not in PE_MACHINES:
            raise SystemExit(f"{files[0]} is for a processor without a known tag: {machine:#x}")
        return PE_MACHINES[machine]
    return re.sub(r"[-.]", "_", sysconfig.get_platform())  # of this interpreter
