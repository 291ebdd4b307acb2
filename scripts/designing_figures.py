#!/usr/bin/env python3
"""Draws the pictures of docs/designing-an-led.md to docs/figures: scripts/designing_figures.py [FOLDER]

Runs the blocks of the page, which save the figures, and stores these without their date. Takes about 20 s. The command
vorlen is the one on PATH, or that of the environment variable VORLEN.
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

PAGE = ROOT / "docs" / "designing-an-led.md"


def main() -> None:
    output = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "figures"
    with tempfile.TemporaryDirectory() as work:
        draw_page(PAGE, Path(work), output)


if __name__ == "__main__":
    main()
