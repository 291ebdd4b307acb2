#!/usr/bin/env python3
"""Draws the pictures of the pages on measurements to docs/figures: scripts/observing_figures.py [FOLDER]

Runs the blocks of each page, which save the figures, and stores these without their date. The command vorlen is the
one on PATH, or that of the environment variable VORLEN.
"""

from __future__ import annotations

import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "python" / "tests")]

import matplotlib

matplotlib.use("Agg")

from doc_blocks import draw_page  # noqa: E402

PAGES = ("emission.md", "xrd.md", "curvature.md", "reflectance.md",
         "comparing-with-measurements.md")  # of docs/


def main() -> None:
    output = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "figures"
    for page in PAGES:
        with tempfile.TemporaryDirectory() as work:
            draw_page(ROOT / "docs" / page, Path(work), output)


if __name__ == "__main__":
    main()
