"""vorlen.Run with recipes that are missing, not well-formed or have no timeline."""

from __future__ import annotations

from pathlib import Path

import pytest

import vorlen
from support import V_DEFECTS, result, row
from vorlen._recipe.source import RecipeSource

LAYERS = [("a", 10.0, 10.0), ("b", 10.0, 10.0)]
ROWS = [row(time=t, z=t, x_ga=1.0, rate=1.0, rho_td_t=1e8, rho_td_z=1e8) for t in (0, 10, 20)]


def recipe_without_a_number_of_stages() -> bytes:
    """A recipe whose stages can't be listed, so that it has no timeline."""
    changed = V_DEFECTS.read_bytes().replace(b"<n_stages ", b"<n_other ")
    with pytest.raises(vorlen.RecipeError, match="n_stages"):
        vorlen.Recipe(changed).timeline()
    return changed


@pytest.mark.parametrize("content", [None, b"<recipe", recipe_without_a_number_of_stages()])
def test_a_run_without_a_timeline_is_drawn_without_temperatures(content: bytes | None) -> None:
    run = vorlen.Run(result(LAYERS, ROWS).encode(), recipe_source=RecipeSource(content=content))
    assert run._drawn.timeline is None
    labels = [axis.get_ylabel() for axis in run.plot().axes]
    assert not any("temperature" in label for label in labels) and any("rate" in label for label in labels)


def test_a_run_with_a_timeline_is_drawn_with_temperatures() -> None:
    run = vorlen.run(V_DEFECTS)
    assert any("temperature" in axis.get_ylabel() for axis in run.plot().axes)


def test_a_run_is_shown_with_its_rows_state_and_file(tmp_path: Path) -> None:
    content = result(LAYERS, ROWS).encode()
    assert repr(vorlen.Run(content)) == "<Run, 3 rows, complete>"
    assert repr(vorlen.Run(content, text="too small")) == "<Run, 3 rows, failed: too small>"
    (tmp_path / "r.txt").write_bytes(content)
    assert repr(vorlen.read(tmp_path / "r.txt")) == f"<Run, 3 rows, complete, {tmp_path}/r.txt>"
