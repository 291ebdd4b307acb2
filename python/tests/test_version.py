"""The version of the package is that of the library."""

import re
from pathlib import Path

import vorlen

ROOT = Path(__file__).resolve().parents[2]


def test_the_version_is_that_of_the_cmake_project() -> None:
    text = (ROOT / "CMakeLists.txt").read_text()
    match = re.search(r"project\(VorlenSolver VERSION (\S+)", text)
    assert match is not None and match[1] == vorlen.__version__
