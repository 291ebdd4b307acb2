"""Runs the Python and shell blocks of a documentation page in their order, as a reader would.

Blocks are fenced with ```python, ```sh or ```text:

- python blocks of a page share their names. An expression in the last line of a block, with a ```text block after the
  code, must print as that block says; `...` in it stands for anything.
- sh blocks run under bash -e. `vorlen` is the command-line host, `python3` the interpreter of the tests.
- A block after <!-- not run: REASON --> is skipped; one after <!-- raises: ErrorName --> must end in that error.

All blocks of a page run in a separate folder, with the example recipes in examples/. Figures that they save there are
the pictures of the page.
"""

from __future__ import annotations

import ast
import contextlib
import io
import os
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
LARGEST_PICTURE = 80_000  # bytes
_FENCE = re.compile(
    r"(?:<!-- (?P<note>(?:not run|raises): [^\n]*?) -->\n)?```(?P<language>\w+)\n(?P<text>.*?)^```$",
    re.DOTALL | re.MULTILINE,
)


@dataclass
class Block:
    """One fenced block."""

    language: str
    text: str
    line: int  # of its fence, from 1
    note: str  # of the comment in front of it
    expected: str | None = None  # the text block right after it


def blocks_of(page: Path) -> list[Block]:
    """The blocks of a page that can be run."""
    text = page.read_text("utf-8")
    blocks: list[Block] = []
    end = 0
    for match in _FENCE.finditer(text):
        if match["language"] == "text":
            if blocks and not text[end : match.start()].strip():
                blocks[-1].expected = match["text"]
            continue
        line = text.count("\n", 0, match.start()) + 1
        blocks.append(Block(match["language"], match["text"], line, match["note"] or ""))
        end = match.end()
    return [block for block in blocks if block.language in ("python", "sh")]


def run_page(page: Path, folder: Path) -> int:
    """Runs the blocks of a page in folder and returns their number. An AssertionError names place and reason."""
    (folder / "examples").symlink_to(ROOT / "examples")
    names: dict[str, Any] = {"__name__": "__main__"}
    count = 0
    for block in blocks_of(page):
        if block.note.startswith("not run:"):
            continue
        place = f"{page.name}, line {block.line}"
        printed = (
            _run_python(block, names, folder, place) if block.language == "python" else _run_shell(block, folder, place)
        )
        if block.expected is not None and not matches(printed, block.expected):
            raise AssertionError(f"{place}: printed\n{printed}\nbut the page says\n{block.expected}")
        count += 1
    return count


def figures_of(page: Path) -> list[str]:
    """The names of the figures that a page shows."""
    return re.findall(r"^!\[[^\]]+\]\(figures/(\w+\.svg)\)$", page.read_text("utf-8"), re.MULTILINE)


def draw_page(page: Path, folder: Path, output: Path) -> int:
    """Runs a page in folder, an empty one, and stores its figures without their date in output; number of blocks."""
    import matplotlib

    from vorlen._base.figures import STYLE

    with matplotlib.rc_context(STYLE):
        count = run_page(page, folder)
    for name in figures_of(page):
        text = re.sub(r"\n *<dc:date>.*?</dc:date>", "", (folder / name).read_text("utf-8"))
        (output / name).write_text(text, "utf-8")
    return count


def check_pictures(page: Path, folder: Path) -> int:
    """Asserts that the pictures of a page are those that its blocks draw in a folder; number of blocks.

    Labels and titles are compared, without shares of random runs and deviations of fits.
    """
    import matplotlib.pyplot as plt

    work, drawn = folder / "work", folder / "drawn"
    work.mkdir()
    drawn.mkdir()
    count = draw_page(page, work, drawn)
    plt.close("all")
    assert figures_of(page) != []
    for name in figures_of(page):
        shown = ROOT / "docs" / "figures" / name
        assert _labels(drawn / name) == _labels(shown) != [], name
        assert shown.stat().st_size < LARGEST_PICTURE, name
    return count


def _labels(path: Path) -> list[str]:
    texts: list[str] = re.findall("<text [^>]*>([^<]*)</text>", path.read_text("utf-8"))
    return [re.sub(r"\d+\.\d %|rms [\d.]+|[+\u2212]0\.\d+\u00b0", "...", text) for text in texts]


def matches(printed: str, expected: str) -> bool:
    """True if printed matches expected, where `...` matches anything and trailing blanks are ignored."""
    tidy = ["\n".join(line.rstrip() for line in text.strip().split("\n")) for text in (printed, expected)]
    pattern = ".*?".join(re.escape(part) for part in tidy[1].split("..."))
    return re.fullmatch(pattern, tidy[0], re.DOTALL) is not None


def _run_python(block: Block, names: dict[str, Any], folder: Path, place: str) -> str:
    tree = ast.parse(block.text, place)
    last = tree.body.pop() if tree.body and isinstance(tree.body[-1], ast.Expr) and block.expected is not None else None
    output = io.StringIO()
    wanted = block.note.removeprefix("raises: ") if block.note.startswith("raises: ") else None
    with contextlib.chdir(folder), contextlib.redirect_stdout(output):
        try:
            exec(compile(tree, place, "exec"), names)
            if last is not None:
                value = eval(compile(ast.Expression(last.value), place, "eval"), names)
                if value is not None:
                    print(value)
        except Exception as error:
            if type(error).__name__ == wanted:
                return f"{output.getvalue()}{error}"
            raise AssertionError(f"{place}: {type(error).__name__}: {error}") from error
    if wanted is not None:
        raise AssertionError(f"{place}: no {wanted} was raised")
    return output.getvalue()


def _run_shell(block: Block, folder: Path, place: str) -> str:
    tools = folder / ".bin"
    if not tools.is_dir():
        tools.mkdir()
        (tools / "python3").symlink_to(sys.executable)
        if os.environ.get("VORLEN"):
            (tools / "vorlen").symlink_to(os.environ["VORLEN"])
    path = [str(ROOT / "python"), os.environ.get("PYTHONPATH", "")]
    environment = os.environ | {"PATH": f"{tools}:{os.environ['PATH']}", "PYTHONPATH": ":".join(filter(None, path))}
    done = subprocess.run(
        ["bash", "-euo", "pipefail", "-c", block.text],
        cwd=folder,
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )
    if done.returncode != 0:
        raise AssertionError(f"{place}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout
