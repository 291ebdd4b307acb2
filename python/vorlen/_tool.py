"""The command-line tool: finding it, and its check of a recipe."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

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


@dataclass(frozen=True)
class Finding:
    """One entry of the report of `vorlen check`."""

    severity: str  # error or warning
    kind: str
    line: int | None  # from 1
    text: str
    hint: str | None

    def sentence(self, place: str) -> str:
        """The place, the text and the hint. place precedes the line."""
        line = f"line {self.line}" if self.line else ""
        where = ", ".join(part for part in (place, line) if part)
        hint = f" ({self.hint})" if self.hint else ""
        return f"{where}: {self.text}{hint}" if where else f"{self.text}{hint}"


class ToolError(RuntimeError):
    """The tool could not check a recipe; the text says why."""


def check_recipe(recipe: bytes) -> list[Finding]:
    """The report of `vorlen check` on a recipe, in its order. Raises ToolError."""
    tool = find_tool()
    if tool is None:
        raise ToolError("the command vorlen was not found. Set VORLEN to its path")
    try:
        with memory_file(recipe) as file:
            answer = subprocess.run(
                [tool, "check", "--format", "json", path_of_descriptor(file)],
                stdin=subprocess.DEVNULL,
                capture_output=True,
                timeout=CHECK_TIMEOUT,
                check=False,
                encoding="utf-8",
                errors="replace",
                pass_fds=[file],
            )
        problems = json.loads(answer.stdout)["files"][0]["problems"]
        return [Finding(one["severity"], one["kind"], one["line"], one["text"], one["hint"]) for one in problems]
    except OSError as error:
        raise ToolError(f"{tool} could not be run: {error.strerror}") from error
    except subprocess.TimeoutExpired as error:
        raise ToolError(f"{tool} check did not finish within {CHECK_TIMEOUT} s") from error
    except (ValueError, LookupError, TypeError) as error:
        raise ToolError(f"the output of {tool} check is not a report") from error


def findings(recipe: bytes) -> list[str]:
    """Findings of `vorlen check` about a recipe, such as elements that are not read; or why it was not checked."""
    try:
        return [one.sentence("Recipe") for one in check_recipe(recipe)]
    except ToolError as error:
        return [f"The recipe was not checked: {error}."]
