"""Warnings of `vorlen check` about a sweep: about its recipe, and about the rows with extreme values.

A value that is wrong in all rows, such as a temperature in degrees Celsius, is wrong in the rows with the smallest and
the largest value of its path. Only these rows are checked, together with the recipe in one call of the tool.
"""

from __future__ import annotations

from typing import Any

from .._base.types import PathLike
from .._recipe.check import SHOWN, count_text, in_order, is_rejected, reported, warning_text
from .._recipe.recipe import Recipe
from .plan import Plan, row_recipe

MOST_ROWS = 8  # that are checked
ROWS = "the rows with the smallest and largest values"


def sweep_text(plan: Plan, name: PathLike | None) -> str:
    """The text of a warning about a sweep; empty if there is nothing to report.

    name  what the text calls the recipe; None: it has no file
    Of the rows, those warnings count that the recipe does not have. Rows that the library will reject are left to the
    run.
    """
    rows = plan.rows()
    extreme = extreme_rows(rows)
    base = Recipe(plan.recipe)
    found = reported([plan.recipe, *(row_recipe(base, rows[number]) for number in extreme)])
    if isinstance(found, str):
        return found
    known = set() if is_rejected(found[0]) else {(one.kind, one.text) for one in found[0]}
    lines = []
    for (number, paths), problems in zip(extreme.items(), found[1:]):
        for one in () if is_rejected(problems) else in_order(problems):
            if (one.kind, one.text) not in known:
                known.add((one.kind, one.text))
                values = ", ".join(_value_text(path, rows[number], plan) for path in paths)
                lines.append(f"  row {number} ({values}): {one.named_sentence(False)}")
    text = warning_text(found[0], str(name or "recipe"), name is not None)
    if not lines:
        return text
    heading = f"{ROWS}: {count_text(len(lines))}"
    if len(lines) > SHOWN:
        heading += f", the first {SHOWN}"
    return "\n".join([*([text] if text else []), f"{heading}:", *lines[:SHOWN]])


def extreme_rows(rows: list[dict[str, Any]]) -> dict[int, list[str]]:
    """Numbers of the rows with the smallest or largest value of a path, in order, and these paths.

    A text has no size. Of several rows with the value, the first counts. There are at most MOST_ROWS.
    """
    found: dict[int, list[str]] = {}
    for path in rows[0] if rows else ():
        for pick, end in ((min, min), (max, max)):
            sizes = {
                number: end(value) if isinstance(value, list) else value
                for number, row in enumerate(rows)
                if not isinstance(value := row[path], str)
            }
            number = pick(sizes, key=sizes.__getitem__, default=None)
            if number is None or (number not in found and len(found) == MOST_ROWS):
                continue
            if path not in found.setdefault(number, []):
                found[number].append(path)
    return dict(sorted(found.items()))


def _value_text(path: str, row: dict[str, Any], plan: Plan) -> str:
    """The value of a path in a row: T = 750, by the last part of the path if no other path ends with it."""
    last = path.rsplit("/", 1)[-1]
    ends = [other.rsplit("/", 1)[-1] for other in plan.parameters]
    parts = row[path] if isinstance(row[path], list) else [row[path]]
    shown = " to ".join(part if isinstance(part, str) else f"{part:.10g}" for part in parts)
    return f"{last if ends.count(last) == 1 else path} = {shown}"
