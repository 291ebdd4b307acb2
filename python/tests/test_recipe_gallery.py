"""The gallery: each script gives the stored recipe, which runs and meets the targets in its first comment."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import vorlen
from support import ROOT, tool
from vorlen._recipe.build import METALS

SCRIPTS = sorted((ROOT / "examples" / "gallery").glob("*.py"))
EXAMPLES = ROOT / "examples"
THICKNESS, FRACTION = 0.03, 0.01  # how near a target must be: relative, and absolute
# The targets in the docstrings: layer, thickness in nm, metal and its fraction in the middle of the layer.
TARGETS = {
    "blue_led": [
        ("n-GaN", 1500, "al", 0), ("InGaN well", 3, "in", 0.15), ("p-AlGaN blocking layer", 20, "al", 0.15),
        ("p-GaN", 120, "al", 0),
    ],
    "hemt": [
        ("GaN channel", 300, "al", 0), ("AlN spacer", 1, "al", 1), ("AlGaN barrier", 22, "al", 0.25),
        ("GaN cap", 2, "al", 0),
    ],
    "laser": [
        ("n-AlGaN cladding", 700, "al", 0.06), ("p-AlGaN cladding", 500, "al", 0.06),
        ("lower InGaN waveguide", 80, "in", 0.03), ("upper InGaN waveguide", 80, "in", 0.03),
        ("InGaN well", 3, "in", 0.13), ("p-AlGaN blocking layer", 15, "al", 0.18),
    ],
    "mirror": [("AlInN", 440 / 4 / 2.22, "in", 0.18)],  # a quarter of the wavelength in the layer
    "uv_led": [
        ("n-AlGaN", 1000, "al", 0.55), ("AlGaN well", 2.5, "al", 0.40), ("AlGaN barrier", 9, "al", 0.55),
        ("p-AlGaN blocking layer", 12, "al", 0.70), ("p-GaN contact", 30, "al", 0),
    ],
}  # fmt: skip
# Layers that count together: first and last name, thickness in nm.
SUMS = {
    "blue_led": [(("GaN cap", "heating", "GaN barrier", "cooling"), 10)],
    "laser": [(("GaN cap", "heating", "GaN barrier", "cooling"), 9)],
    "mirror": [(("GaN cap", "heating", "GaN"), 440 / 4 / 2.47)],
}


def fraction_in_the_middle(run: vorlen.Run, number: int, metal: str) -> float:
    """The mean fraction of a metal over the middle half of a layer, by height."""
    layer = run.layers.loc[number]
    rows = run.profile[(run.profile.time >= layer.begin) & (run.profile.time <= layer.end)]
    below, above = rows.z.iloc[0], rows.z.iloc[-1]
    heights = np.linspace(below + (above - below) / 4, above - (above - below) / 4, 101)
    return float(np.interp(heights, rows.z, rows[f"x_{metal}"]).mean())


def test_there_are_five_structures_with_targets() -> None:
    assert [path.stem for path in SCRIPTS] == sorted(TARGETS) and len(SCRIPTS) == 5


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda path: path.stem)
def test_a_script_gives_the_stored_recipe_and_the_page_shows_it(script: Path, tmp_path: Path) -> None:
    environment = os.environ | {"PYTHONPATH": str(ROOT / "python")}
    subprocess.run([sys.executable, "-B", script], cwd=tmp_path, env=environment, check=True)
    assert [path.name for path in tmp_path.iterdir()] == [f"{script.stem}.xml"]
    stored = EXAMPLES / f"{script.stem}.xml"
    assert (tmp_path / stored.name).read_text() == stored.read_text(), f"run {script} in examples"
    page = (ROOT / "docs" / "gallery.md").read_text("utf-8")
    assert f"```python\n{script.read_text()}```" in page and f"(figures/{script.stem}.svg)" in page
    assert len(script.read_text().splitlines()) < 50


@pytest.mark.parametrize("name", TARGETS)
def test_a_structure_meets_its_targets(name: str, tmp_path: Path) -> None:
    recipe = EXAMPLES / f"{name}.xml"
    check = subprocess.run([tool(), "check", "--strict", recipe], capture_output=True, text=True, check=False)
    assert (check.returncode, check.stdout) == (0, f"{recipe}: no problems\n")
    subprocess.run([tool(), "run", recipe, "-o", tmp_path / "r.txt"], capture_output=True, check=True, timeout=20)
    run = vorlen.run(recipe)
    assert run.content == (tmp_path / "r.txt").read_bytes() and not run.warnings
    layers = run.layers
    assert "post" not in set(layers["kind"])  # all above the template is simulated
    for layer, thickness, metal, fraction in TARGETS[name]:
        found = layers[(layers["name"] == layer) & (layers["kind"] == "active")]
        assert len(found) > 0, layer
        for number, row in found.iterrows():
            assert row["thickness"] == pytest.approx(thickness, rel=THICKNESS), layer
            assert fraction_in_the_middle(run, number, metal) == pytest.approx(fraction, abs=FRACTION), layer
    for names, thickness in SUMS.get(name, []):
        values = list(zip(layers["name"], layers["thickness"]))
        sums = [
            sum(value for _, value in values[place : place + len(names)])
            for place in range(len(values))
            if tuple(each for each, _ in values[place : place + len(names)]) == names
        ]
        assert sums and sums == pytest.approx([thickness] * len(sums), rel=THICKNESS), names


def test_the_mirror_is_matched_to_gan() -> None:
    layers = vorlen.run(EXAMPLES / "mirror.xml").layers
    matched = layers[layers["name"] == "AlInN"]
    assert len(matched) == 12 and abs(matched["eps_xx_t"]).max() < 1e-3


def test_temperature_and_carrier_gas_change_only_in_pauses() -> None:
    for name in TARGETS:
        table = vorlen.Recipe.load(EXAMPLES / f"{name}.xml").timeline()
        table = table[table["kind"] == "active"]
        for _, row in table.iterrows():
            metals = max(row[f"{flow}_{when}"] for flow in METALS for when in ("begin", "end"))
            for column in ("T", "P", "N2", "H2", "NH3"):
                assert metals == 0 or row[f"{column}_begin"] == row[f"{column}_end"]
        for column in ("T", "P", "N2", "H2", "NH3"):  # no jump from one stage to the next
            assert list(table[f"{column}_end"][:-1]) == list(table[f"{column}_begin"][1:]), (name, column)


def test_the_pictures_are_what_their_script_draws(tmp_path: Path) -> None:
    subprocess.run([sys.executable, "-B", ROOT / "scripts" / "gallery_figures.py", tmp_path], check=True)
    assert sorted(path.stem for path in tmp_path.iterdir()) == sorted(TARGETS)
    for path in tmp_path.iterdir():
        stored = ROOT / "docs" / "figures" / path.name
        assert path.read_bytes() == stored.read_bytes(), path.name
        assert stored.stat().st_size < 40_000
