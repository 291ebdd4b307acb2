"""The pages on measurements run as shown, and their pictures are those that their blocks draw."""

from __future__ import annotations

from pathlib import Path

import pytest

from doc_blocks import ROOT, check_pictures

PAGES = ["emission.md", "xrd.md", "curvature.md", "reflectance.md", "comparing-with-measurements.md"]


@pytest.mark.filterwarnings("error::vorlen.RecipeWarning")
@pytest.mark.parametrize("page", PAGES)
def test_the_page_runs_and_its_pictures_are_what_its_blocks_draw(page: str, tmp_path: Path) -> None:
    assert check_pictures(ROOT / "docs" / page, tmp_path) > 0
