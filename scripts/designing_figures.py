#!/usr/bin/env python3
"""Draws the pictures of docs/designing-an-led.md to docs/figures: scripts/designing_figures.py [FOLDER]

Runs the blocks of the page, which save the figures, and stores these without their date. Takes about 20 s. The command
vorlen is the one on PATH, or that of the environment variable VORLEN.
"""

from __future__ import annotations

import re
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "python" / "tests")]

import matplotlib

matplotlib.use("Agg")

from doc_blocks import run_page  # noqa: E402

from vorlen._base.figures import STYLE  # noqa: E402

PAGE = ROOT / "docs" / "designing-an-led.md"


def figures() -> list[str]:
    """The names of the figures that the page shows."""
    return re.findall(r"^!\[[^\]]+\]\(figures/(\w+\.svg)\)$", PAGE.read_text("utf-8"), re.MULTILINE)


def draw(work: Path, output: Path) -> int:
    """Runs the page in work, an empty folder, and stores its figures in output. Returns the number of blocks."""
    with matplotlib.rc_context(STYLE):
        count = run_page(PAGE, work)
    for name in figures():
        text = re.sub(r"\n *<dc:date>.*?</dc:date>", "", (work / name).read_text("utf-8"))
        (output / name).write_text(text, "utf-8")
    return count


def main() -> None:
    output = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "figures"
    with tempfile.TemporaryDirectory() as work:
        draw(Path(work), output)


if __name__ == "__main__":
    main()
