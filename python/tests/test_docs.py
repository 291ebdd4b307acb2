"""The code blocks of the documentation run, and print what the pages show."""

from __future__ import annotations

from pathlib import Path

import pytest

from doc_blocks import ROOT, matches, run_page

PAGES = ("checking-a-recipe.md", "python.md", "recipes-in-python.md", "gallery.md", "sweeps.md", "clusters.md", "fitting.md",
         "designing.md")  # of docs/; test_designing_page runs designing-an-led.md


@pytest.mark.filterwarnings("error::vorlen.RecipeWarning")
@pytest.mark.parametrize("page", PAGES)
def test_every_block_of_a_page_runs(page: str, tmp_path: Path) -> None:
    assert run_page(ROOT / "docs" / page, tmp_path) > 0


def test_a_page_that_is_wrong_is_noticed(tmp_path: Path) -> None:
    for number, text in enumerate(
        ("```python\n1 / 0\n```\n", "```python\n1 + 1\n```\n```text\n3\n```\n", "```sh\nfalse\n```\n")
    ):
        page = tmp_path / f"{number}.md"
        page.write_text(text)
        folder = tmp_path / str(number)
        folder.mkdir()
        with pytest.raises(AssertionError, match=f"{number}.md, line 1"):
            run_page(page, folder)


def test_dots_in_an_expected_text_stand_for_anything() -> None:
    assert matches("a 12 b\n", "a ... b\n") and not matches("a 12 c\n", "a ... b\n") and matches("x  \ny", "x\ny\n")
