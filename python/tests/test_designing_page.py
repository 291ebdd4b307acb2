"""The tutorial on designing runs as shown, and its pictures are those that its blocks draw."""

from __future__ import annotations

import importlib.util
import re
from pathlib import Path

import matplotlib.pyplot as plt
import pytest

ROOT = Path(__file__).resolve().parents[2]
FIGURES = ROOT / "docs" / "figures"
LARGEST = 80_000  # bytes of a picture
TEXT = re.compile(r"<text [^>]*>([^<]*)</text>")
PERCENT = re.compile(r"\d+\.\d %")  # shares of random runs


def script():
    """scripts/designing_figures.py as a module."""
    path = ROOT / "scripts" / "designing_figures.py"
    specification = importlib.util.spec_from_file_location("designing_figures", path)
    module = importlib.util.module_from_spec(specification)
    specification.loader.exec_module(module)
    return module


def texts(path: Path) -> list[str]:
    """Labels and titles of a figure."""
    return [PERCENT.sub("...", text) for text in TEXT.findall(path.read_text("utf-8"))]


@pytest.mark.filterwarnings("error::vorlen.RecipeWarning")
def test_the_page_runs_and_its_pictures_are_what_its_blocks_draw(tmp_path: Path) -> None:
    designing = script()
    work, drawn = tmp_path / "work", tmp_path / "drawn"
    work.mkdir()
    drawn.mkdir()
    assert designing.draw(work, drawn) > 10
    plt.close("all")
    assert len(designing.figures()) == 5
    for name in designing.figures():
        assert texts(drawn / name) == texts(FIGURES / name) != [], name
        assert (FIGURES / name).stat().st_size < LARGEST, name
