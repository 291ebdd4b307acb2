"""The command-line tool: finding it, and its check of a recipe."""

from __future__ import annotations

import contextlib
import json
import os
import re
import subprocess
import tempfile
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from .places import tool_name, tool_places
from .system import memory_file, run_program

CHECK_TIMEOUT = 60  # s
MISSING_TOOL = "the command vorlen was not found. Set VORLEN to its path"


def find_tool() -> str | None:
    """The command-line tool: named by the environment variable VORLEN, in this installation or tree, or on PATH."""
    named = os.environ.get("VORLEN")
    if named:
        return named
    on_path = [Path(folder) / tool_name() for folder in os.get_exec_path()]
    return next((str(place) for place in tool_places() + on_path if _is_tool(place)), None)


def _is_tool(place: Path) -> bool:
    """True for a program, but not for the command that pip installs, which looks for the tool here."""
    if not os.access(place, os.X_OK) or not place.is_file():
        return False
    try:
        with place.open("rb") as file:
            head = file.read(1024)
            if head.startswith(b"MZ"):  # on Windows pip appends an archive with the script to a program
                file.seek(max(0, place.stat().st_size - 2048))
                return b"vorlen_command" not in file.read()
    except OSError:  # it may be run but not read
        return True
    return not (head.startswith(b"#!") and b"vorlen_command" in head)


@dataclass(frozen=True)
class Finding:
    """One entry of the report of `vorlen check`."""

    severity: str  # error or warning
    kind: str
    line: int | None  # from 1
    text: str
    hint: str | None
    stage: str | None = None  # its element, such as stage_1_3
    stage_name: str | None = None  # the user's name of it

    def sentence(self, place: str) -> str:
        """The place, the text and the hint. place precedes the line."""
        line = f"line {self.line}" if self.line else ""
        return self._after(", ".join(part for part in (place, line) if part), self.text)

    def named_sentence(self, with_line: bool) -> str:
        """The line, if it is wanted, the text with the name of the stage, and the hint.

        A path with the stage stays as it is in the recipe.
        """
        text = self.text
        if self.stage and self.stage_name and f'"{self.stage_name}"' not in text:
            named = f'{self.stage} "{self.stage_name}"'
            element = re.escape(self.stage)
            if at := re.search(rf"(?<![\w:]){element}(?!\w|:\w)", text):
                text = f"{text[: at.start()]}{named}{text[at.end() :]}"
            elif not re.search(rf":{element}(?!\w)", text):
                text = f"{named}: {text}"
        return self._after(f"line {self.line}" if self.line and with_line else "", text)

    def _after(self, where: str, text: str) -> str:
        hint = f" ({self.hint})" if self.hint else ""
        return f"{where}: {text}{hint}" if where else f"{text}{hint}"


class ToolError(RuntimeError):
    """The tool could not check a recipe; the text says why."""


def check_recipe(recipe: bytes) -> list[Finding]:
    """The report of `vorlen check` on a recipe, in its order. Raises ToolError."""
    return check_recipes([recipe])[0]


def check_recipes(recipes: Sequence[bytes]) -> list[list[Finding]]:
    """The report of `vorlen check` on each of some recipes, from one call of the tool. Raises ToolError."""
    tool = find_tool()
    if tool is None:
        raise ToolError(MISSING_TOOL)
    try:
        with contextlib.ExitStack() as held:
            files = [held.enter_context(memory_file(recipe)) for recipe in recipes]
            places = [str(file.path) for file in files]
            answer = run_program([tool, "check", "--format", "json", *places], files, CHECK_TIMEOUT)
        reports = [report["problems"] for report in json.loads(answer.stdout)["files"]]
        if len(reports) != len(recipes):
            raise ValueError
        return [
            [
                Finding(
                    one["severity"], one["kind"], one["line"], _named(one["text"], place), one["hint"],
                    one["stage"], one["stage_name"],
                )
                for one in report
            ]
            for report, place in zip(reports, places)
        ]
    except OSError as error:
        raise ToolError(f"{tool} could not be run: {error.strerror}") from error
    except subprocess.TimeoutExpired as error:
        raise ToolError(f"{tool} check did not finish within {CHECK_TIMEOUT} s") from error
    except (ValueError, LookupError, TypeError) as error:
        raise ToolError(f"the output of {tool} check is not a report") from error


def _named(text: str, place: str) -> str:
    """The text with the word recipe instead of the file in memory that the tool has read."""
    return re.sub(rf"{re.escape(place)}(?!\d)", "recipe", text)


def findings(recipe: bytes) -> list[str]:
    """Findings of `vorlen check` about a recipe, such as elements that are not read; or why it was not checked."""
    try:
        return [one.sentence("Recipe") for one in check_recipe(recipe)]
    except ToolError as error:
        return [f"The recipe was not checked: {error}."]


def live_page(recipe: bytes, name: str) -> bytes:
    """The page that `vorlen live` writes for a recipe with this file name. Raises ToolError."""
    tool = find_tool()
    if tool is None:
        raise ToolError(MISSING_TOOL)
    with tempfile.TemporaryDirectory() as folder:
        source, page = Path(folder) / os.path.basename(name), Path(folder) / "page.live.html"
        source.write_bytes(recipe)
        try:
            done = run_program([tool, "live", str(source), "-o", str(page)], [], CHECK_TIMEOUT)
        except (OSError, subprocess.TimeoutExpired) as error:
            raise ToolError(f"{tool} live: {error}") from None
        if done.returncode != 0 or not page.is_file():
            raise ToolError(done.stderr.strip().removeprefix("vorlen: ") or f"{tool} live failed")
        return page.read_bytes()
