"""What `vorlen check` reports about a recipe: as a table, and, if it is run, as one Python warning with the first three
of its warnings."""

from __future__ import annotations

import warnings
from collections.abc import Iterable, Sequence

import pandas as pd

from .._base.tool import Finding, ToolError, check_recipe, check_recipes
from .._base.types import PathLike
from .scheme import check_scheme
from .source import RecipeLike, RecipeSource
from .xml_bytes import RecipeError

SHOWN = 3  # of the warnings
MOST_SHOWN = 20  # if they are about parts that are not simulated
LOST_KINDS = ("duplicate", "uncounted-stage")  # parts that are not simulated as written
FIRST_KINDS = (*LOST_KINDS, "not-read")  # parts without any effect; the others follow in the tool's order

_reasons: set[str] = set()  # why recipes were not checked, as far as this process has reported it


class RecipeWarning(UserWarning):
    """The library accepts a recipe that `vorlen check` warns about, or recipes could not be checked."""


def check(recipe: RecipeLike, *, scheme: str | None = None) -> pd.DataFrame:
    """Lists what `vorlen check` reports about a recipe. Nothing is run.

    Parameters
    ----------
    recipe : str, bytes, path or Recipe
        A path, the XML itself, or a Recipe.
    scheme : str, optional
        Integration scheme of the run that is meant, "continuous" or "staged"; None: that of the recipe.

    Returns
    -------
    pandas.DataFrame
        One row per problem in the order of the report, errors first; no rows if there are none. Columns:

        - severity: "error", for which the library rejects the recipe, or "warning"
        - kind: one of those in docs/checking-a-recipe.md
        - stage, name: element name of the stage, and the name that the recipe gives it; empty outside of stages
        - text, hint: what is wrong, and what to do; the hint may be empty
        - line: line in the XML, from 1; missing if the problem has none

    Raises
    ------
    OSError
        If the recipe can't be read.
    RecipeError
        If scheme is given and the XML is not well-formed.
    RuntimeError
        If the command-line tool is missing or fails.
    TypeError
        If recipe has another type.
    ValueError
        If scheme is unknown, or recipe is the path of something that is not a regular file.
    """
    check_scheme(scheme)
    source = RecipeSource.of(recipe).under(scheme)
    found = check_recipe(source.content or b"")
    rows = [
        (one.severity, one.kind, one.stage or "", one.stage_name or "", one.text, one.hint or "", one.line)
        for one in found
    ]
    table = pd.DataFrame(rows, columns=["severity", "kind", "stage", "name", "text", "hint", "line"], dtype=object)
    return table.astype({"line": "Int64"})


def warn_about(
    content: bytes | None,
    name: PathLike | None,
    scheme: str | None = None,
    stacklevel: int = 3,
    in_file: bool = True,
) -> None:
    """Issues a RecipeWarning if `vorlen check` has warnings about a recipe. Its errors are left to the run.

    content     of the recipe; None: nothing is known and nothing is done
    name        what the text calls the recipe; None: recipe
    scheme      that of the run; None: the recipe's
    stacklevel  as for warnings.warn; 3 is the caller of the function that calls this one
    in_file     false: the recipe has a name but no file, so lines mean nothing to its author
    """
    issue(check_text(content, name, scheme, in_file), stacklevel + 1)


def issue(text: str, stacklevel: int = 3) -> None:
    """Issues a RecipeWarning if the text is not empty."""
    if text:
        warnings.warn(text, RecipeWarning, stacklevel)


def check_text(content: bytes | None, name: PathLike | None, scheme: str | None = None, in_file: bool = True) -> str:
    """The text of warn_about(); empty if there is nothing to report."""
    try:
        source = RecipeSource(None, content).under(scheme)
    except RecipeError:  # of the run, too
        return ""
    if source.content is None:
        return ""
    found = reported([source.content])
    if isinstance(found, str):
        return found
    return warning_text(found[0], str(name or "recipe"), in_file and name is not None)


def reported(recipes: Sequence[bytes]) -> list[list[Finding]] | str:
    """What the tool reports about recipes; or the text that they can't be checked.

    This text is given once in a process, and is empty afterwards.
    """
    try:
        return check_recipes(recipes)
    except ToolError as error:
        text = f"recipes are run without a check: {error}"
        if text in _reasons:
            return ""
        _reasons.add(text)
        return text


def new_findings(before: bytes, after: bytes) -> list[Finding]:
    """What the tool reports about a changed recipe, but not about the one before; nothing if it can't check them."""
    found = reported([before, after])
    if isinstance(found, str):
        return []
    old = {(one.kind, one.stage) for one in found[0]}
    return in_order(one for one in found[1] if (one.kind, one.stage) not in old)


def is_rejected(found: Iterable[Finding]) -> bool:
    """True if there are errors, which end the run."""
    return any(one.severity == "error" for one in found)


def warning_text(found: list[Finding], name: str, with_lines: bool = True) -> str:
    """The number of warnings and the first of them; empty if there are none, or errors."""
    if not found or is_rejected(found):
        return ""
    ordered = in_order(found)
    lost = sum(one.kind in LOST_KINDS for one in found)
    shown = max(SHOWN, min(lost, MOST_SHOWN))
    heading = count_text(len(found))
    if len(found) > shown:
        heading += f", the first {shown} (vorlen check shows all)"
    return "\n".join([f"{name}: {heading}:", *(f"  {one.named_sentence(with_lines)}" for one in ordered[:shown])])


def count_text(count: int) -> str:
    """The number of warnings in words."""
    return "1 warning" if count == 1 else f"{count} warnings"


def in_order(found: Iterable[Finding]) -> list[Finding]:
    """Parts without any effect first, the others in the tool's order."""
    return sorted(found, key=lambda one: FIRST_KINDS.index(one.kind) if one.kind in FIRST_KINDS else len(FIRST_KINDS))
