#!/usr/bin/env python3
"""Draws the pictures of docs/gallery.md to docs/figures: scripts/gallery_figures.py [FOLDER]

Each structure of examples/gallery as it grows: indium and aluminium over height, of the whole structure and of the part
that matters. The same library gives the same bytes.
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

# The part that matters: its first and last layer, and how much is shown around it, nm.
PARTS = {
    "blue_led": ("GaN barrier", "p-AlGaN blocking layer", 10),
    "hemt": ("AlN spacer", "GaN cap", 8),
    "laser": ("lower InGaN waveguide", "p-AlGaN blocking layer", 30),
    "mirror": ("AlInN", "GaN", 30),
    "uv_led": ("AlGaN barrier", "p-AlGaN blocking layer", 10),
}
METALS = {"x_in": ("In", "#0072b2"), "x_al": ("Al", "#d55e00")}


def draw(name: str, output: Path) -> None:
    """Draws one structure."""
    run = vorlen.run(ROOT / "examples" / f"{name}.xml")
    rows = run.profile[run.profile.active]
    ground = rows.z.iloc[0]
    first, last, margin = PARTS[name]
    begin, end = (run.layers[run.layers.name == layer].iloc[0] for layer in (first, last))
    part = [rows.z[rows.time >= time].iloc[0] - ground for time in (begin.begin, end.end)]
    figure, axes = plt.subplots(1, 2, figsize=(8, 2.2), sharey=True, constrained_layout=True)
    for axis in axes:
        for column, (metal, colour) in METALS.items():
            if rows[column].max() > 0.01:
                axis.plot(rows.z - ground, rows[column], color=colour, label=metal)
        axis.set_xlabel("height above the template (nm)")
    axes[0].set(ylabel="fraction", xlim=(0, rows.z.iloc[-1] - ground))
    axes[1].set(xlim=(part[0] - margin, part[1] + margin))
    axes[0].axvspan(*axes[1].get_xlim(), color="#e4e8ec", zorder=0)
    axes[1].legend(loc="center left", bbox_to_anchor=(1, 0.5))
    figure.savefig(output, metadata={"Date": None})
    plt.close(figure)


def main() -> None:
    folder = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "figures"
    with plt.rc_context(STYLE):
        for name in PARTS:
            draw(name, folder / f"{name}.svg")


if __name__ == "__main__":
    main()
