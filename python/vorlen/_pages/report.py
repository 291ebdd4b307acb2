"""A run as one page: vorlen.report(run, "run.html"), or python3 -m vorlen report RESULT.

This module gathers the content. The layout is in assets/report.html, which names the style sheets and scripts; report.js
has the controls. report_charts.py makes the data of the charts, report_stack.py the pictures of the layers,
report_tables.py the tables.
"""

from __future__ import annotations

import math
import os
import re
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any
from urllib.parse import quote

import numpy as np
import pandas as pd

from .._base.files import check_place, replace_file, valid_text
from .._base.tool import findings, live_page
from .._base.types import PathLike
from .._base.version import __version__
from .._recipe.source import RecipeSource
from .._runs.run import Run, SimulationError
from .._runs.status import read_matching_status
from .._runs.structure import Structure, structure_of
from .._runs.structure_text import sentence
from .numbers import number
from .observed import checked_observables, observed_section
from .observed import observe as observed
from .page import page, write_page
from .report_charts import charts
from .report_stack import layer_stack
from .report_tables import (
    csv_text,
    details_text,
    interface_groups,
    interface_table,
    layer_records,
    layer_table,
    records,
    shown_places,
)


def report(
    run: Run | SimulationError, path: PathLike, *, live: bool = False,
    observe: Sequence[str] | Mapping[str, Mapping[str, Any]] | None = None,
) -> Path:
    """Writes the report of a run: one page for a browser that needs no other file. Needs jinja2.

    Parameters
    ----------
    run : Run or SimulationError
        The run, complete or failed.
    path : path
        The page. An existing file is replaced when the new page is complete, but never a file of the run.
    live : bool, optional
        Also writes the live page of the recipe (`vorlen live`) beside it, NAME-live.html for NAME.html, about 2 MB. A
        button of the report, "Change this recipe", opens it; to mail the report, send both files.
    observe : list of str, or dict, optional
        What can be measured on the wafer, to be shown too: "xrd", "curvature", "reflectance", "emission", each the method
        of Run with that name; a dict has the arguments, {"xrd": {"hkl": (0, 0, 4)}}. What the run does not allow becomes
        a warning.

    Returns
    -------
    pathlib.Path
        The path.

    Raises
    ------
    ImportError
        If jinja2 is missing.
    OSError
        If a page can't be written, or the chart library is missing.
    TypeError
        If an argument has another type.
    ValueError
        If a page is the recipe, the result, its status file, or not a regular file; with live, if the recipe is unknown;
        if observe has an unknown name.
    RuntimeError
        With live, if the command vorlen is missing or was built without the live page.
    """
    drawn = _run_of(run)
    wanted = {} if observe is None else checked_observables(observe)

    def make() -> str:
        return render(drawn, _write_live_page(drawn, Path(path)) if live else None, wanted)

    return write_page(path, make, inputs=drawn._own_files)


def _write_live_page(run: Run, page: Path) -> Path:
    """The live page of a run's recipe, beside its report."""
    recipe = run.recipe_source.content
    if recipe is None:
        raise ValueError("live=True needs the recipe of the run, which is unknown: vorlen.read(path, recipe=...)")
    beside = page.with_name(f"{page.stem}-live.html")
    check_place(beside, run._own_files)
    return replace_file(beside, live_page(recipe, recipe_file_name(_title(run))), inputs=run._own_files)


def recipe_file_name(title: str) -> str:
    """The name of a recipe in the live page, from the title of a report."""
    return title if title.endswith(".xml") else f"{_stem(title)}.xml"


def _run_of(run: Run | SimulationError) -> Run:
    """The run of an error; one without content if nothing was simulated."""
    if isinstance(run, SimulationError):
        return run.run or Run(b"", recipe_source=run.recipe_source, text=run.text)
    if not isinstance(run, Run):
        raise TypeError(f"run must be a Run or a SimulationError, got {type(run).__name__}")
    return run


def render(
    run: Run | SimulationError, beside: Path | None = None, wanted: Mapping[str, Mapping[str, Any]] | None = None
) -> str:
    """The HTML text of a report.

    beside  the live page that its button opens
    wanted  what can be measured and is shown, with arguments
    """
    run = _run_of(run)
    has_rows = bool(run.content) and not run._profile.empty
    failed = run.failed if run.content else True
    title = _title(run)
    layers = layer_table(run._layers, float(run.end["time"]) if has_rows else math.inf) if run.content else None
    structure = structure_of(layers[layers["reached"]]) if layers is not None else None
    data: dict[str, Any] = {"stem": _stem(title), "tables": {}}
    content: dict[str, Any] = {"layers": [], "interfaces": [], "has_periods": False, "stack": "", "summary": ""}
    content |= {"quantities": "", "details": "", "observed": None}
    if layers is not None and structure is not None:
        content["layers"] = layer_records(layers)
        content["details"] = details_text(content["layers"])
        content["stack"] = layer_stack(layers[layers["reached"]], structure)
        data["tables"]["layers"] = {"name": f"{data['stem']}-layers.csv", "text": csv_text(layers)}
    if has_rows:
        drawn = run._drawn
        interfaces = interface_table(drawn.interfaces, drawn.reference_height)
        groups = interface_groups(interfaces)
        content["interfaces"] = records(interfaces, groups, "Interfaces")
        content["has_periods"] = bool(interfaces["period"].notna().any())
        data["tables"]["interfaces"] = {"name": f"{data['stem']}-interfaces.csv", "text": csv_text(interfaces)}
        data["charts"] = charts(drawn, structure, np.array(shown_places(groups), np.intp), failed=failed)
        content["summary"] = _chart_summary(drawn.rows("active"))
        content["quantities"] = _quantities(data["charts"]["panels"])
    problems: list[str] = []
    if has_rows and wanted:
        found = observed(run, wanted, [], lenient=True)
        content["observed"] = observed_section(found, data["stem"])
        data["observed"] = content["observed"]["charts"]
        data["tables"] |= content["observed"]["tables"]
        problems = found.problems
    return page(
        "report.html",
        title,
        data=data,
        failed=failed,
        grew=_grew(run, structure) if layers is not None else "",
        failure=_failure(run),
        live_name=valid_text(beside.name) if beside else "",
        live=quote(os.fsencode(beside.name)) if beside else "",
        facts=_facts(run),
        height_note=_height_note(run) if has_rows else "",
        recipe_note=_recipe_note(run),
        warnings=[*_warnings(run), *problems] if has_rows else _findings(run.recipe_source),
        has_charts=has_rows,
        **content,
    )


def _stem(title: str) -> str:
    """The title as the start of file names."""
    stem = re.sub(r"\.(xml|txt)$", "", title).removesuffix(".result").removesuffix(".failed")
    return re.sub(r"[^\w.-]+", "-", stem).strip("-.") or "run"


def _title(run: Run) -> str:
    for path in (run.recipe_source.path, run.path):
        if path is not None:
            return path.name
    return "VORLEN run"


def _grew(run: Run, structure: Structure | None) -> str:
    """The sentence about what grew."""
    if run.unphysical:
        return "The result is unphysical: do not use its values."
    text = sentence(run._layers, structure, failed=run.failed)
    return text[0].upper() + text[1:]


def _height_note(run: Run) -> str:
    """How the heights of the page relate to the result file."""
    reference = run._drawn.reference_height
    if not (run._layers["kind"] == "pre").any():
        return "Heights on this page are z of the result file."
    shown = f"{reference:.10g} nm" if math.isfinite(reference) else "the height of the first simulated row"
    return f"Heights on this page are above the pre-stages: 0 is z = {shown} in the result file."


def _recipe_note(run: Run) -> str:
    """What is missing without the recipe, and how to get it."""
    if run.recipe_source.content is not None or run.recipe_source.problem:
        return ""
    return (
        "The recipe is unknown, so flows, pressure, V/III and temperature are not shown, and the recipe was not "
        "checked. Name it with --recipe, in Python with vorlen.read(path, recipe=...)."
    )


def _quantities(panels: list[dict[str, Any]]) -> str:
    """The quantities of the charts in words."""
    titles = [re.sub(r"<sub>(\w+)</sub>", r" \1", panel["title"]) for panel in panels if not panel.get("hidden")]
    text = ", ".join(titles)
    return text[0].upper() + text[1:]


def _failure(run: Run) -> dict[str, str]:
    """Text of a failed run, and where it stopped."""
    if run.content and not run.failed:
        return {}
    cut_off = "The result file ends before the last layer does, and no status file gives the reason."
    text = run.text or run.unphysical or cut_off
    if not run.content or run._profile.empty:
        return {"text": text, "place": "Nothing was simulated: the result has no rows."}
    last = run.end
    if run.complete:
        return {"text": text, "place": "The rows are kept for finding the cause. Do not use their values."}
    layers = run._layers
    reached = layers[layers["begin"] <= last["time"] * (1 + 1e-9)]
    # A run that stopped at the end of a layer could not start the next one.
    name = f"layer {reached.index[-1]}, {reached['name'].iloc[-1]}" if len(reached) else "the first layer"
    height = last["z"] - run._drawn.reference_height
    place = f"It stopped at {last['time']:.10g} s, {height:.7g} nm above the pre-stages, in {name}."
    ahead = layers[(layers["end"] > last["time"]) & (layers["kind"] == "active")]
    if len(ahead) and abs(ahead["end"].iloc[0] - last["time"]) < 0.01 * ahead["duration"].iloc[0] and len(ahead) > 1:
        place += f" The next layer, {ahead['name'].iloc[1]}, was not started."
    return {"text": text, "place": place}


def _facts(run: Run) -> list[tuple[str, str]]:
    """Facts about the run: pairs of a name and a value."""
    status = read_matching_status(run.path, run.content) if run.path else {}
    facts = [("Result", run.path.name if run.path and run.content else "not saved to a file")]
    if run.content:
        facts += [("SHA-256 of the result", run.sha256), ("Rows", str(len(run._profile)))]
    source = run.recipe_source
    facts.append(("Recipe", source.path.name if source.path else str(status.get("recipe") or "unknown")))
    recipe_hash = source.sha256 or status.get("recipe_sha256")
    if recipe_hash:
        facts.append(("SHA-256 of the recipe", recipe_hash))
    wall_time = run.wall_time if run.wall_time is not None else status.get("wall_time_s")
    if wall_time is not None:
        facts.append(("Simulated in", f"{wall_time:.3g} s"))
    if run.scheme or status.get("scheme"):
        facts.append(("Integration scheme", str(run.scheme or status["scheme"])))
    if status.get("version") and status["version"] != __version__:
        facts.append(("Simulated by", f"VorlenSolver {status['version']}"))
    for key, name in (("host", "Host"), ("finished", "Finished")):
        if status.get(key):
            facts.append((name, str(status[key])))
    if run.content and not run._profile.empty:
        facts.append(("Process", f"{run._profile['time'].iloc[0]:.10g} s to {run.end['time']:.10g} s"))
        top = run._profile.loc[run._profile["active"], "z"].iloc[-1:] - run._drawn.reference_height
        facts += [("Height of the simulated layers", f"{height:.7g} nm") for height in top]
    facts.append(("Report by", f"VorlenSolver {__version__}"))
    return facts


def _warnings(run: Run) -> list[str]:
    found = [warning for warning in run.warnings if warning not in _failure(run).get("text", "")]
    opened = v_defects_open(run)
    if opened is not None:
        found.append(
            f"V-defects opened at {opened['time']:.7g} s, {opened['height']:.4g} nm above the pre-stages, "
            f"in {opened['layer']}. "
            f"The final density is {number(run.end['rho_vd0_t'] / 2, 3)} per cm\u00b2."
        )
    found += _findings(run.recipe_source)
    return found


def v_defects_open(run: Run) -> dict[str, Any] | None:
    """Time [s], height above the pre-stages [nm] and layer of the first row with V-defects; None if no row has any."""
    rows = run._profile[run._profile["rho_vd0_t"] > 0]
    if rows.empty:
        return None
    first = rows.iloc[0]
    layers = run._layers
    inside = layers[(layers["begin"] <= first["time"]) & (layers["end"] >= first["time"])]
    name = f"layer {inside.index[0]}, {inside['name'].iloc[0]}" if len(inside) else "the structure"
    return {"time": float(first["time"]), "height": float(first["z"]) - run._drawn.reference_height, "layer": name}


def _findings(source: RecipeSource) -> list[str]:
    """What is to be said about the recipe: findings of `vorlen check`, or why there are none."""
    if source.problem:
        return [f"{source.problem} The charts therefore have no temperature and flows, and the recipe was not checked."]
    if source.content is None:
        return []  # _recipe_note
    return findings(source.content)


def _chart_summary(rows: pd.DataFrame) -> str:
    """The charts in words, for screen readers. rows: those that are drawn."""
    parts = [f"{len(rows)} rows from {rows['time'].iloc[0]:.6g} to {rows['time'].iloc[-1]:.6g} s"]
    for column, name, factor, unit in (
        ("x_in", "indium", 100, "%"),
        ("x_al", "aluminium", 100, "%"),
        ("rate", "growth rate", 1, "nm/s"),
        ("eps_xx_t", "strain at growth", 100, "%"),
        ("rho_td_t", "dislocations at growth", 1, "per cm\u00b2"),
    ):
        values = factor * rows[column].to_numpy()
        values = values[np.isfinite(values)]
        if len(values) and (np.abs(values) > 1e-6).any():
            parts.append(f"{name} {number(float(values.min()), 3)} to {number(float(values.max()), 3)} {unit}")
    return "; ".join(parts) + "."
