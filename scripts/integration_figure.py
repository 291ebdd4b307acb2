#!/usr/bin/env python3
"""Draws docs/figures/integration.svg, the picture of docs/integration.md: scripts/integration_figure.py [OUTPUT]

The transistor of examples/algan_gan_hemt.xml with 5 s without metals before the barrier, under both schemes: the
aluminium fraction over the height, and the height over time. The same library gives the same bytes.
"""

from __future__ import annotations

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt  # noqa: E402

import vorlen  # noqa: E402
from vorlen._base.figures import STYLE  # noqa: E402

SCHEMES = {"staged": ("#0072b2", "-"), "continuous": ("#d55e00", "--")}
PAUSE = 5  # s
START = -20  # s from the start of the pause, where the picture starts
TOP = 24  # nm


def recipe_with_a_pause() -> vorlen.Recipe:
    recipe = vorlen.Recipe.load(ROOT / "examples" / "algan_gan_hemt.xml")
    barrier = "process_stages/stage_2"
    no_metals = {f"gas_species/Q/{source}": 0 for source in ("TMIn", "TMGa", "TEGa", "TMAl")}
    recipe.add_stage(barrier, "pause", before=barrier, values={"tau": PAUSE} | no_metals)
    return recipe


def rows_of(recipe: vorlen.Recipe) -> vorlen.Run:
    """The run of a recipe, also if it fails under way."""
    try:
        return vorlen.run(recipe)
    except vorlen.SimulationError as error:
        if error.run is None:
            raise
        return error.run


def main() -> None:
    output = sys.argv[1] if len(sys.argv) > 1 else ROOT / "docs" / "figures" / "integration.svg"
    recipe = recipe_with_a_pause()
    with plt.rc_context(STYLE):
        figure, (left, right) = plt.subplots(1, 2, figsize=(8, 3.2), constrained_layout=True)
        for scheme, (colour, dashes) in SCHEMES.items():
            run = rows_of(recipe.with_scheme(scheme))
            pause = run.layers[run.layers.name == "pause"].iloc[0]
            rows = run.profile[run.profile.active]
            ground = run.profile.z[run.profile.time >= pause.begin].iloc[0]
            left.plot(rows.z - ground, rows.x_al, dashes, color=colour, label=scheme)
            right.plot(rows.time - pause.begin, rows.z - ground, dashes, color=colour, label=scheme)
        right.axvspan(0, PAUSE, color="#e4e8ec", zorder=0)
        right.annotate("pause", (PAUSE / 2, 8), ha="center", rotation=90)
        left.set(xlabel="height above the GaN channel (nm)", ylabel="aluminium fraction")
        left.set(xlim=(-8, TOP), ylim=(-3.2, 0.6))
        left.legend(frameon=False)
        right.set(xlabel="time from the start of the pause (s)", ylabel="height above the GaN channel (nm)")
        right.set(xlim=(START, 52), ylim=(-8, TOP))
        figure.savefig(output, metadata={"Date": None} if str(output).endswith(".svg") else None)


if __name__ == "__main__":
    main()
