"""Recipes and results shared by several tests."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

import vorlen
from vorlen._runs.result_file import COLUMN_NAMES

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted((ROOT / "examples").glob("*.xml"))
V_DEFECTS = ROOT / "examples" / "ingan_v_defects.xml"
MQW = ROOT / "examples" / "ingan_gan_mqw.xml"
PLAIN_LAYER = Path(__file__).with_name("plain_layer.xml")  # states no scheme

TITLE = '"VORLEN output file, version 2.0"\n'
HEADING = (
    "#time(sec) z(nm) Vg xIn xGa xAl rho_TD(t) rho_VD0(t) a_eff(t) eps_xx(t) eps_yy(t) eps_zz(t) eps_yz(t) "
    "rho_TD(z) a_eff(z) eps_xx(z) eps_yy(z) eps_zz(z) eps_yz(z)\n"
)


def tool() -> str:
    """The command-line tool, with which results are compared."""
    path = os.environ.get("VORLEN") or shutil.which("vorlen")
    assert path, "the command-line tool was not found; set VORLEN to its path"
    return path


def table_of(page: str, heading: str) -> list[list[str]]:
    """The cells of a table of the manual without backquotes, by its first line and without it."""
    lines = (ROOT / "docs" / page).read_text("utf-8").splitlines()
    begin = lines.index(heading) + 2
    cells = []
    for line in lines[begin:]:
        if not line.startswith("|"):
            break
        cells.append([cell.strip().replace("`", "") for cell in line[1:-1].split("|")])
    return cells


def row(active: bool = True, **values: float) -> str:
    """One row of a result file. Columns that are not named are 0."""
    numbers = [values.get(name, 0.0) for name in COLUMN_NAMES]
    return " ".join(f"{number:.16e}" for number in numbers) + (" \n" if active else "\n")


def result(layers: list[tuple[str, float, float]], rows: list[str]) -> str:
    """A result file of layers (name, duration in s, thickness in nm) and rows."""
    lines = "".join(f'"{name}" {duration!r} {thickness!r}\n' for name, duration, thickness in layers)
    return f"{TITLE}<LAYERS>\n{lines}</LAYERS>\n{HEADING}{''.join(rows)}"


def without_integration(path: Path) -> vorlen.Recipe:
    """The recipe of a file without its element integration, so that the default scheme applies."""
    return vorlen.Recipe(re.sub(r"\s*<integration>.*?</integration>", "", path.read_text("utf-8"), flags=re.DOTALL))


def failing_recipe() -> vorlen.Recipe:
    """A recipe in which no step converges after 3724 s: continuous scheme, and the temperature jumps by 130 K there."""
    recipe = without_integration(V_DEFECTS)
    recipe["process_stages/stage_2/T"] = 900
    return recipe


def failed_run(recipe: vorlen.Recipe | str | Path) -> vorlen.Run:
    """The rows of a failed run."""
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe)
    assert caught.value.run is not None
    return caught.value.run


def recipe_with_a_pause() -> vorlen.Recipe:
    """A transistor with a pause of 5 s without metals before the barrier, which the continuous scheme can't handle.

    Its fractions leave the range from 0 to 1 in the barrier, stage_3, after 3785 s. The run reaches its end.
    """
    recipe = without_integration(ROOT / "examples" / "algan_gan_hemt.xml")
    barrier = "process_stages/stage_2"
    no_metal = {f"gas_species/Q/{flow}": 0 for flow in ("TMIn", "TMGa", "TEGa", "TMAl")}
    recipe.add_stage(barrier, "pause", before=barrier, values={"tau": 5} | no_metal)
    return recipe


def recipe_with_nan() -> vorlen.Recipe:
    """A recipe whose result is NaN: reference flows without carrier gas give no diffusion coefficient.

    Under the staged scheme such a run fails.
    """
    recipe = without_integration(ROOT / "examples" / "gan_thick_ccs.xml")
    for gas in ("N2", "H2", "NH3"):
        recipe[f"transport/parameters/Q_ref/{gas}"] = 0
    return recipe


def scripted_library(folder: Path) -> Path:
    """A library controlled by environment variables; see scripted_library.c."""
    library = folder / "libScripted.so"
    source = Path(__file__).with_name("scripted_library.c")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
    return library
