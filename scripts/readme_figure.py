#!/usr/bin/env python3
"""Draws docs/figures/v_defects.svg, the picture of README.md: scripts/readme_figure.py [OUTPUT]

From examples/ingan_v_defects.xml: composition, strain and densities over depth. The same
library gives the same bytes.
"""

from __future__ import annotations

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))

import matplotlib

matplotlib.use("Agg")

import vorlen  # noqa: E402


def main() -> None:
    output = sys.argv[1] if len(sys.argv) > 1 else ROOT / "docs" / "figures" / "v_defects.svg"
    run = vorlen.run(ROOT / "examples" / "ingan_v_defects.xml")
    run.plot("depth", panels=("composition", "strain", "densities"), path=output)


if __name__ == "__main__":
    main()
