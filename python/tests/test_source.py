"""A recipe as an argument: every function takes the same kinds and raises the same errors."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

import vorlen
from support import V_DEFECTS
from vorlen._recipe.source import RecipeSource

BROKEN = "<NonstSurfChem><integration></NonstSurfChem>"


@pytest.fixture(params=["run", "read"])
def use(request: pytest.FixtureRequest, tmp_path: Path) -> Callable[[Any], Any]:
    """A function that takes a recipe."""
    if request.param == "run":
        return vorlen.run
    vorlen.run(V_DEFECTS, tmp_path / "r.txt")
    return lambda recipe: vorlen.read(tmp_path / "r.txt", recipe=recipe)


def test_a_path_text_bytes_and_a_recipe_are_taken(use: Callable[[Any], Any]) -> None:
    text = V_DEFECTS.read_text("utf-8")
    shifted = "\n " + text.split("?>")[1]
    for recipe in (V_DEFECTS, str(V_DEFECTS), text, shifted, text.encode(), vorlen.Recipe.load(V_DEFECTS)):
        try:
            run = use(recipe)
        except ValueError as error:
            assert "was computed from" in str(error) and recipe is shifted  # other bytes
        else:
            assert run.recipe is not None and not run.failed


def test_a_recipe_that_can_not_be_read_raises_the_error_of_opening_it(
    use: Callable[[Any], Any], tmp_path: Path
) -> None:
    (tmp_path / "loop.xml").symlink_to("loop.xml")
    os.mkfifo(tmp_path / "pipe.xml")
    for recipe, error in (
        (tmp_path / "none.xml", FileNotFoundError), ("", ValueError), (tmp_path, IsADirectoryError),
        (V_DEFECTS / "below", NotADirectoryError), (tmp_path / "loop.xml", OSError), ("n" * 300, OSError),
        (tmp_path / "pipe.xml", ValueError), ("/dev/zero", ValueError), ("a\0b", ValueError),
    ):
        with pytest.raises(error):
            use(recipe)


@pytest.mark.parametrize("recipe", [3, ["r.xml"], {"r.xml": 1}, bytearray(b"<a/>")])
def test_other_types_are_rejected(use: Callable[[Any], Any], recipe: object) -> None:
    with pytest.raises(TypeError, match=f"recipe must be a path, XML .*, got {type(recipe).__name__}"):
        use(recipe)


@pytest.mark.parametrize("scheme", [None, "staged"])
def test_text_that_is_not_well_formed_is_a_fault_of_the_recipe(scheme: str | None, tmp_path: Path) -> None:
    (tmp_path / "r.xml").write_text(BROKEN)
    for recipe in (BROKEN, BROKEN.encode(), b"", tmp_path / "r.xml"):
        with pytest.raises(vorlen.RecipeError) as caught:
            vorlen.run(recipe, scheme=scheme)
        assert str(caught.value) and "/proc" not in str(caught.value)
    with pytest.raises(vorlen.RecipeError, match="Error"):
        vorlen.run(BROKEN)


def test_what_the_library_rejects_of_well_formed_xml_is_a_failed_run() -> None:
    for text in ("<other/>", "<NonstSurfChem/>"):
        with pytest.raises(vorlen.SimulationError) as caught:
            vorlen.run(text)
        assert caught.value.recipe == text and caught.value.recipe_source.content == text.encode()


def test_what_the_library_accepts_runs_although_the_package_can_not_parse_it() -> None:
    # The library does not look at what follows the root element.
    content = V_DEFECTS.read_bytes() + b"<"
    assert not RecipeSource.of(content).is_well_formed
    try:
        run = vorlen.run(content)
    except vorlen.RecipeError:
        pytest.skip("the library rejects it too")
    assert run.recipe is None and not run.failed
