"""The tutorial on designing runs as shown, and its pictures are those that its blocks draw."""

from __future__ import annotations

from pathlib import Path

import pytest

from doc_blocks import ROOT, check_pictures, figures_of

PAGE = ROOT / "docs" / "designing-an-led.md"


@pytest.mark.filterwarnings("error::vorlen.RecipeWarning")
def test_the_page_runs_and_its_pictures_are_what_its_blocks_draw(tmp_path: Path) -> None:
    assert len(figures_of(PAGE)) == 5
    assert check_pictures(PAGE, tmp_path) > 10
