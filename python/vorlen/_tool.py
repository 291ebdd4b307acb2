"""The command-line tool: finding it, and its check of a recipe."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Any

from ._files import memory_file, path_of_descriptor

CHECK_TIMEOUT = 60  # s


def find_tool() -> str | None:
    """The command-line tool: named by the environment variable VORLEN, in this installation or tree, or on PATH."""
    package = Path(__file__).resolve().parent
    places = [Path(sys.prefix) / "bin" / "vorlen"]
    if package.parent.name in ("dist-packages", "site-packages"):
        places.insert(0, package.parents[3] / "bin" / "vorlen")
    places += [package.parents[1] / "build" / preset / "tools" / "vorlen" for preset in ("release", "run")]
    named = os.environ.get("VORLEN")
    return named or next((str(place) for place in places if place.is_file()), None) or shutil.which("vorlen")


def findings(recipe: bytes) -> list[str]:
    """Findings of `vorlen check` about a recipe, such as elements that are not read; or why it was not checked."""
    tool = find_tool()
    if tool is None:
        return ["The command vorlen was not found, so the recipe was not checked. Set VORLEN to its path."]
    try:
        with memory_file(recipe) as file:
            answer = subprocess.run(
                [tool, "check", "--format", "json", path_of_descriptor(file)],
                capture_output=True,
                timeout=CHECK_TIMEOUT,
                check=False,
                encoding="utf-8",
                errors="replace",
                pass_fds=[file],
            )
        return _texts(json.loads(answer.stdout))
    except (OSError, ValueError, LookupError, TypeError, subprocess.TimeoutExpired):
        return ["The command vorlen could not check the recipe for unread elements."]


def _texts(answer: dict[str, Any]) -> list[str]:
    """The findings in the output of `vorlen check --format json`."""
    texts = []
    for problem in answer["files"][0]["problems"]:
        line = f", line {problem['line']}" if problem.get("line") else ""
        hint = f" ({problem['hint']})" if problem.get("hint") else ""
        texts.append(f"Recipe{line}: {problem['text']}{hint}")
    return texts
