"""Several runs on one page: vorlen.compare([a, b], "page.html"), or vorlen compare A B -o page.html.

This module gathers the content: the layers with their differences, which `vorlen diff` computes, and those of the
recipes. The layout is in assets/compare.html, compare.css and compare.js; compare_charts.py makes the charts' data.
"""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

from .._base.types import PathLike
from .._runs.compare_layers import Pair, compared_layers, pairs_of
from .._runs.plot_runs import named_runs
from .._runs.run import Run
from .compare_charts import RUN_COLOURS, compare_charts
from .compare_recipes import recipe_differences
from .compare_table import all_zero, grouped_lines, layer_lines, layers_csv, shown_quantities
from .numbers import MISSING
from .page import page, write_page

MAX_RECIPE_LINES = 200


def compare(
    runs: Sequence[Run] | Mapping[str, Run], path: PathLike, *, labels: Sequence[str] | None = None
) -> Path:
    """Writes a page that compares runs: one file for a browser that needs no other file. Needs jinja2.

    The page has charts of all runs over time and over height, aligned layer by layer or not, the layers with their
    differences from the first run, and what differs between the recipes.

    Parameters
    ----------
    runs : list of Run, or dict of str to Run
        At least two runs, complete or failed, in a dict with their labels. The others are compared with the first.
    path : path
        The page. An existing file is replaced when the new page is complete, but never a file of a run.
    labels : list of str, optional
        The names of the runs on the page. None: the names of their recipes or results.

    Returns
    -------
    pathlib.Path
        The path.

    Raises
    ------
    ImportError
        If jinja2 is missing.
    OSError
        If the page can't be written, or the chart library is missing.
    RuntimeError
        If the command vorlen, which compares the layers, is missing or fails.
    TypeError
        If an argument has another type.
    ValueError
        If there are fewer than two runs, a run has no rows, or path is a file of a run or not a regular file.
    """
    if isinstance(runs, Run):
        raise TypeError("runs must be two or more runs in a list or dict, got one Run")
    chosen, names = named_runs(runs, labels)
    if len(chosen) < 2:
        raise ValueError(f"a comparison needs at least two runs, got {len(chosen)}")
    inputs = [file for run in chosen for file in run._own_files]
    return write_page(path, lambda: render(chosen, names), inputs=inputs)


def render(runs: list[Run], names: list[str]) -> str:
    """The HTML text of a comparison."""
    comparisons = [compared_layers(runs[0], run) for run in runs[1:]]
    itself: list[Pair] = [(place, place) for place in range(len(runs[0]._layers))]
    matches = [itself, *(pairs_of(comparison) for comparison in comparisons)]
    lines = layer_lines(comparisons)
    quantities = [one for one in shown_quantities(comparisons) if not all_zero(lines, one[0])]
    different = [line for line in lines if line.visible]
    data = {
        "charts": compare_charts(runs, names, matches),
        "tables": {"layers": {"name": "layers.csv", "text": layers_csv(lines, names)}},
    }
    recipe_lines, recipe_note = _recipe_lines(runs, names)
    return page(
        "compare.html",
        " and ".join(names) if len(names) == 2 else f"{names[0]} and {len(names) - 1} others",
        data=data,
        runs=[
            {"name": name, "colour": number % RUN_COLOURS, "facts": _facts(run)}
            for number, (name, run) in enumerate(zip(names, runs))
        ],
        sentences=[_sentence(name, comparison) for name, comparison in zip(names[1:], comparisons)],
        warnings=[f"{name}: {warning}" for name, run in zip(names, runs) for warning in _warnings(run)],
        headings=[_typeset(heading) for _, heading in quantities],
        idle=[bool(different) and all_zero(different, quantity) for quantity, _ in quantities],
        groups=grouped_lines(lines, [quantity for quantity, _ in quantities]),
        some_agree=any(not line.visible for line in lines),
        recipes=recipe_lines,
        recipe_note=recipe_note,
        summary=f"{len(runs)} runs: {', '.join(names)}.",
        aligned=len(data["charts"]["models"]) > 1,
    )


def _sentence(name: str, comparison: dict[str, Any]) -> str:
    """The largest change of a run, and how many layers are only in one of the two."""
    change = _typeset(str(comparison["largest_change"]))
    if not any(pair["a"] and pair["b"] for pair in comparison["layers"]):
        return f"{name}: none of its layers corresponds to a layer of the first run."
    if not change:
        same = comparison["same"]
        return f"{name}: no difference." if same else f"{name}: the layers agree in the digits shown."
    if change.startswith("The largest change is"):
        change = change.replace(" (in the second ", f" (in {name} ", 1)
        for side, where in (("a", "it"), ("b", "the first run")):
            count = sum(pair[side] is None for pair in comparison["layers"])
            if count:
                change += f" {count} {'layer is' if count == 1 else 'layers are'} only in {where}."
    else:
        change = change.replace("only in the second", "only in it").replace("only in the first", "only in the first run")
    return f"{name}: {change[0].lower()}{change[1:]}"


def _typeset(text: str) -> str:
    """A text of the command with the signs of printed units."""
    return text.replace("cm^-2", "cm\u207b\u00b2")


def _warnings(run: Run) -> list[str]:
    found = list(run.warnings)
    if run.failed and not found:
        found.append(run.text or "The result file ends before the last layer does.")
    return found


def _facts(run: Run) -> dict[str, str]:
    """Facts about a run by their names."""
    end = run.end
    return {
        "Result": run.path.name if run.path else "not saved to a file",
        "Recipe": run.recipe_source.path.name if run.recipe_source.path else MISSING,
        "Scheme": run.scheme or MISSING,
        "Layers": str(len(run._layers)),
        "End, s": f"{end['time']:.10g}",
        "Total height, nm": f"{end['z']:.7g}",
        "SHA-256 of the result": run.sha256,
    }


# ---- recipes


def _recipe_lines(runs: list[Run], names: list[str]) -> tuple[list[dict[str, Any]], str]:
    """What differs between the recipes: a line for each path with the values of all runs, and a remark."""
    recipes = [run._recipe for run in runs]
    first = recipes[0]
    if first is None:
        return [], f"The recipe of {names[0]} is unknown, so recipes are not compared."
    unknown = [name for name, recipe in zip(names, recipes) if recipe is None]
    lines: dict[tuple[str, bool, str], dict[str, Any]] = {}
    for other, recipe in enumerate(recipes):
        if recipe is None or other == 0:
            continue
        for found in recipe_differences(first, recipe):
            key = (found.path, found.first is None, found.stage if found.first is None else "")
            line = lines.setdefault(key, {"path": found.path, "stage": found.stage, "values": [None] * len(runs)})
            line["values"][0] = found.first
            line["values"][other] = found.other if found.other is not None else MISSING
    for line in lines.values():
        # A recipe without this difference has the value of the first one.
        own = MISSING if line["values"][0] is None else line["values"][0]
        line["values"] = [
            "" if recipes[number] is None else own if value is None else value
            for number, value in enumerate(line["values"])
        ]
    remarks = [f"The recipe of {', '.join(unknown)} is unknown."] if unknown else []
    if not lines and len(unknown) < len(runs) - 1:
        remarks.append("The recipes do not differ in any value.")
    if len(lines) > MAX_RECIPE_LINES:
        remarks.append(f"The first {MAX_RECIPE_LINES} of {len(lines)} differences.")
    return list(lines.values())[:MAX_RECIPE_LINES], " ".join(remarks)
