"""The warnings of `vorlen check` about a recipe that is run: one Python warning with the first three of them."""

from __future__ import annotations

import warnings

from ._source import RecipeSource
from ._tool import Finding, ToolError, check_recipe
from ._types import PathLike
from ._xml_bytes import RecipeError

SHOWN = 3  # of the warnings
MOST_SHOWN = 20  # if they are about parts that are not simulated
LOST_KINDS = ("duplicate", "uncounted-stage")  # parts that are not simulated as written
FIRST_KINDS = (*LOST_KINDS, "not-read")  # parts without any effect; the others follow in the tool's order

_reasons: set[str] = set()  # why recipes were not checked, as far as this process has reported it


class RecipeWarning(UserWarning):
    """The library accepts a recipe that `vorlen check` warns about, or recipes could not be checked."""


def warn_about(content: bytes | None, name: PathLike | None, scheme: str | None = None, stacklevel: int = 3) -> None:
    """Issues a RecipeWarning if `vorlen check` has warnings about a recipe. Its errors are left to the run.

    content     of the recipe; None: nothing is known and nothing is done
    name        what the text calls the recipe; None: recipe
    scheme      that of the run; None: the recipe's
    stacklevel  as for warnings.warn; 3 is the caller of the function that calls this one
    """
    text = check_text(content, name, scheme)
    if text:
        warnings.warn(text, RecipeWarning, stacklevel)


def check_text(content: bytes | None, name: PathLike | None, scheme: str | None = None) -> str:
    """The text of warn_about(); empty if there is nothing to report.

    Why recipes can't be checked is reported once in a process.
    """
    try:
        source = RecipeSource(None, content).under(scheme)
        found = [] if source.content is None else check_recipe(source.content)
    except RecipeError:  # of the run, too
        return ""
    except ToolError as error:
        text = f"recipes are run without a check: {error}"
        if text in _reasons:
            return ""
        _reasons.add(text)
        return text
    return warning_text(found, str(name or "recipe"))


def warning_text(found: list[Finding], name: str) -> str:
    """The number of warnings and the first of them; empty if there are none, or errors, which end the run."""
    if not found or any(one.severity == "error" for one in found):
        return ""
    count = len(found)
    ordered = sorted(found, key=lambda one: FIRST_KINDS.index(one.kind) if one.kind in FIRST_KINDS else len(FIRST_KINDS))
    lost = sum(one.kind in LOST_KINDS for one in found)
    shown = max(SHOWN, min(lost, MOST_SHOWN))
    heading = "1 warning" if count == 1 else f"{count} warnings"
    if count > shown:
        heading += f", the first {shown} (vorlen check shows all)"
    lines = [f"  {one.sentence('')}" for one in ordered[:shown]]
    return "\n".join([f"{name}: {heading}:", *lines])
