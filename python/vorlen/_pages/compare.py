"""Comparisons: several runs on one page, or a run with measured curves.

    vorlen.compare([a, b], "page.html")   or vorlen compare A B -o page.html
    vorlen.compare(run, scan)             a figure, drawn by plot_agreement.py

For pages of runs, this module gathers the content: the layers with their differences, which `vorlen diff` computes, and those of the
recipes. The layout is in assets/compare.html, compare.css and compare.js; compare_charts.py makes the charts' data.
"""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Any, overload

import pandas as pd

from .._base.files import as_path
from .._base.types import PathLike
from .._observe.curve import Curve
from .._runs.agreement import (
    Agreement,
    agreement_of,
    agreement_table,
    checked_curves,
    checked_offset,
    shifts_of,
)
from .._runs.compare_layers import Pair, compared_layers, pairs_of
from .._runs.plot_agreement import draw_agreements
from .._runs.plot_runs import named_runs
from .._runs.run import Run
from .compare_charts import RUN_COLOURS, compare_charts
from .compare_recipes import recipe_differences
from .compare_table import all_zero, grouped_lines, layer_lines, layers_csv, shown_quantities
from .numbers import MISSING
from .observed import observed_page, run_name
from .page import page, write_page

if TYPE_CHECKING:
    from matplotlib.figure import Figure

MAX_RECIPE_LINES = 200


@overload
def compare(
    runs: Sequence[Run] | Mapping[str, Run], path: PathLike, /, *, labels: Sequence[str] | None = None
) -> Path: ...


@overload
def compare(
    run: Run, measured: Curve | Sequence[Curve], path: PathLike | None = None, /, *, angle_offset: Any = None,
    time_offset: Any = None,
) -> Figure: ...


def compare(
    runs: Run | Sequence[Run] | Mapping[str, Run],
    other: Curve | Sequence[Curve] | PathLike,
    path: PathLike | None = None,
    /,
    *,
    labels: Sequence[str] | None = None,
    angle_offset: Any = None,
    time_offset: Any = None,
) -> Path | Figure:
    """Compares runs with each other, compare(runs, path), or a run with measured curves, compare(run, measured).

    Of several runs, it writes a page: one file for a browser that needs no other file, with charts over time and over
    height, aligned layer by layer or not, the layers with their differences from the first run, and what differs between
    the recipes. Needs jinja2.

    Of a run and measured curves, it draws a figure: each curve as the run gives it over the measured one, and their
    deviations. The intensity of a diffraction curve is adjusted by a scale and a background. Needs matplotlib.
    deviations() returns the numbers.

    Parameters
    ----------
    runs : Run, list of Run, or dict of str to Run
        One run, to compare with measured curves; or two or more, complete or failed, in a dict with their labels, of
        which the others are compared with the first.
    other : Curve, list of Curve, or path
        For one run, the measured curves, from measured.read(): their settings, such as hkl or wavelength, are those of
        the simulation. For several runs, the page. An existing file is replaced when the new one is complete, but never
        a file of a run or of a curve.
    path : path, optional
        For one run, file to save the figure to, in the format of its ending; for .html, a page with charts to zoom
        into, for which jinja2 is needed too. None: it is not saved.
    labels : list of str, optional
        For several runs, their names on the page. None: the names of their recipes or results.
    angle_offset : pair of float or str, optional
        For one run, lowest and highest offset of the measured angle 2theta, deg or with a unit; the best one is used.
        None: no offset.
    time_offset : pair of float or str, optional
        The same for the times of curvatures and reflectances, s or with a unit.

    Returns
    -------
    pathlib.Path or matplotlib.figure.Figure
        The path of the page of several runs; the figure of one run and measured curves, open in pyplot.

    Raises
    ------
    ImportError
        If jinja2, or for one run matplotlib, is missing.
    OSError
        If the file can't be written, or the chart library is missing.
    RuntimeError
        If the command vorlen, which compares the layers of runs, is missing or fails.
    TypeError
        If an argument has another type, or belongs to the other form.
    ValueError
        If there are fewer than two runs, a run has no rows, path is an input or not a regular file, or a curve can't be
        simulated or has no points where the simulated one is.
    """
    if isinstance(runs, Run):
        if labels is not None:
            raise TypeError("labels are the names of several runs; the names of measured curves are those of the curves")
        if isinstance(other, (str, Path)):
            raise TypeError(f"runs must be two or more runs in a list or dict, got one Run; to compare it with {other}, read that: compare(run, vorlen.measured.read({str(other)!r}))")
        return _with_measured(runs, other, path, angle_offset, time_offset)
    if path is not None or angle_offset is not None or time_offset is not None:
        raise TypeError("measured curves are compared with one run, got several runs in a list or dict")
    chosen, names = named_runs(runs, labels)
    if len(chosen) < 2:
        raise ValueError(f"a comparison needs at least two runs, got {len(chosen)}")
    page_path = as_path(other, "path")
    inputs = [file for run in chosen for file in run._own_files]
    return write_page(page_path, lambda: render(chosen, names), inputs=inputs)


def deviations(
    run: Run, measured: Curve | Sequence[Curve], *, angle_offset: Any = None, time_offset: Any = None
) -> pd.DataFrame:
    """How well a run agrees with measured curves: the numbers of the figure of compare().

    Parameters
    ----------
    run : Run
        The run.
    measured : Curve or list of Curve
        The measured curves, from measured.read().
    angle_offset, time_offset : pair, optional
        As for compare().

    Returns
    -------
    pandas.DataFrame
        A row per curve: points, rms of the deviations with its unit, scale and background of an intensity, shift, and
        the positions of the highest peaks. NaN where a number does not apply. attrs["units"] and attrs["meanings"]
        describe the columns.

    Raises
    ------
    TypeError
        If an argument has another type.
    ValueError
        If a curve can't be simulated, or is not where the simulated one is.
    """
    if not isinstance(run, Run):
        raise TypeError(f"run must be a Run, got {type(run).__name__}")
    return agreement_table(_agreements(run, checked_curves(measured), angle_offset, time_offset))


def _agreements(run: Run, curves: Sequence[Curve], angle_offset: Any, time_offset: Any) -> list[Agreement]:
    angles, times = checked_offset("angle_offset", angle_offset, "deg"), checked_offset("time_offset", time_offset, "s")
    return [agreement_of(run, curve, shifts_of(curve, angles, times)) for curve in curves]


def _with_measured(run: Run, measured: Any, path: PathLike | None, angle_offset: Any, time_offset: Any) -> Figure:
    curves = checked_curves(measured)
    inputs = [*run._own_files, *(curve.path for curve in curves)]
    agreements = _agreements(run, curves, angle_offset, time_offset)
    name = run_name(run)
    if path is None or as_path(path, "path").suffix.lower() not in (".html", ".htm"):
        return draw_agreements(agreements, name, path, inputs)
    write_page(path, lambda: observed_page(run, measured=agreements), inputs=inputs)
    return draw_agreements(agreements, name, None, inputs)


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
