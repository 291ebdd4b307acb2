"""A run as one self-contained HTML page: vorlen.report(run, "run.html"), or python3 -m vorlen report RESULT.

The page needs no network and no other file. This module gathers its content. Its layout is in assets/report.html,
report.css and report.js; report_charts.py makes the data of the charts, report_stack.py the picture of the layers.
"""

from __future__ import annotations

import argparse
import hashlib
import json
import math
import os
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from ._files import replace_file
from ._version import __version__
from ._run import Run, SimulationError, read
from ._source import RecipeSource
from ._status import read_status

ASSETS = Path(__file__).resolve().parent / "assets"
CHECK_TIMEOUT = 60  # s


def report(run: Run | SimulationError, path: str | os.PathLike[str]) -> Path:
    """Writes the report of a run, complete or failed, and returns its path.

    run   a Run, or the SimulationError of a failed run
    path  path of the page. An existing file is replaced when the new page is complete
    """
    text = render(run)
    return replace_file(path, text.encode("utf-8", "replace"))


def render(run: Run | SimulationError) -> str:
    """The HTML text of a report."""
    import jinja2

    from ._report_charts import charts
    from ._report_stack import layer_stack

    error = run if isinstance(run, SimulationError) else None
    if error is not None:
        source = RecipeSource() if error.recipe is None else RecipeSource.of(error.recipe)
        run = error.run or Run(b"", recipe_source=source, text=error.text)
    has_rows = bool(run.content) and not run.profile.empty
    figures = charts(run) if has_rows else {}
    environment = jinja2.Environment(autoescape=True, trim_blocks=True, lstrip_blocks=True)
    environment.filters["number"] = number
    template = environment.from_string((ASSETS / "report.html").read_text("utf-8"))
    return template.render(
        title=_title(run),
        version=__version__,
        failed=run.failed if run.content else True,
        failure=_failure(run),
        facts=_facts(run),
        warnings=_warnings(run) if has_rows else unread_elements(run),
        layers=run.layers.reset_index().to_dict("records") if run.content else [],
        interfaces=run.interfaces.reset_index().to_dict("records") if has_rows else [],
        stack=layer_stack(run) if run.content else "",
        summary=_chart_summary(run) if has_rows else "",
        charts=sorted(figures),
        data=json.dumps(figures, separators=(",", ":"), allow_nan=False).replace("<", "\\u003c"),
        css=(ASSETS / "report.css").read_text("utf-8"),
        script=(ASSETS / "report.js").read_text("utf-8"),
        plotly=chart_library() if figures else "",
    )


def chart_library() -> str:
    """The JavaScript that draws the charts, from the installation or from a build of the source tree."""
    builds = ASSETS.parents[2] / "build"
    places = [ASSETS, *(builds / preset / "python" for preset in ("release", "run"))]
    for place in (folder / "plotly.min.js" for folder in places):
        if place.is_file():
            return place.read_text("utf-8")
    raise FileNotFoundError(
        f"the chart library of reports is missing, {ASSETS / 'plotly.min.js'}. Install the Debian packages python3-plotly and esbuild "
        "(apt-get install python3-plotly esbuild), then build or install VorlenSolver again"
    )


def number(value: Any, digits: int = 4, unit: str = "") -> str:
    """A number for display: this many digits, true minus signs, a dash for NaN or None."""
    if value is None or (isinstance(value, float) and math.isnan(value)):
        return "\u2013"
    if abs(value) < 1e-9:
        value = 0.0
    text = f"{value:.{digits}g}"
    if "e" in text:
        mantissa, exponent = text.split("e")
        text = f"{mantissa}\u00d710" + str(int(exponent)).translate(str.maketrans("-0123456789", "⁻⁰¹²³⁴⁵⁶⁷⁸⁹"))
    return text.replace("-", "\u2212") + (f"\u00a0{unit}" if unit else "")


def _title(run: Run) -> str:
    for path in (run.recipe_source.path, run.path):
        if path is not None:
            return path.name
    return "VORLEN run"


def _failure(run: Run) -> dict[str, str]:
    """Text of a failed run, and where it stopped."""
    if run.content and not run.failed:
        return {}
    cut_off = "The result file ends before the last layer does, and no status file gives the reason."
    text = run.text or run.unphysical or cut_off
    if not run.content or run.profile.empty:
        return {"text": text, "place": "Nothing was simulated: the result has no rows."}
    last = run.end
    if run.complete:
        return {"text": text, "place": "The rows are kept for finding the cause. Do not use their values."}
    layers = run.layers
    reached = layers[layers["begin"] <= last["time"] * (1 + 1e-9)]
    # A run that stopped at the end of a layer could not start the next one.
    name = f"layer {reached.index[-1]}, {reached['name'].iloc[-1]}" if len(reached) else "the first layer"
    place = f"It stopped at {last['time']:.10g} s, at a height of {last['z']:.7g} nm, in {name}."
    ahead = layers[(layers["end"] > last["time"]) & (layers["kind"] == "active")]
    if len(ahead) and abs(ahead["end"].iloc[0] - last["time"]) < 0.01 * ahead["duration"].iloc[0] and len(ahead) > 1:
        place += f" The next layer, {ahead['name'].iloc[1]}, was not started."
    return {"text": text, "place": place}


def _facts(run: Run) -> list[tuple[str, str]]:
    """Facts about the run: pairs of a name and a value."""
    status = read_status(run.path) if run.path else {}
    if status.get("result_sha256") != run.sha256:
        status = {}
    facts = [("Result", str(run.path.name) if run.path else "not saved to a file")]
    if run.content:
        facts += [("SHA-256 of the result", run.sha256), ("Rows", str(len(run.profile)))]
    source = run.recipe_source
    facts.append(("Recipe", source.path.name if source.path else str(status.get("recipe") or "unknown")))
    if source.content is not None:
        facts.append(("SHA-256 of the recipe", hashlib.sha256(source.content).hexdigest()))
    elif status.get("recipe_sha256"):
        facts.append(("SHA-256 of the recipe", str(status["recipe_sha256"])))
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
    if run.content and not run.profile.empty:
        facts.append(("Process", f"{run.profile['time'].iloc[0]:.10g} s to {run.end['time']:.10g} s"))
        facts.append(("Total height", f"{run.end['z']:.7g} nm"))
    facts.append(("Report by", f"VorlenSolver {__version__}"))
    return facts


def _warnings(run: Run) -> list[str]:
    found = [warning for warning in run.warnings if warning not in _failure(run).get("text", "")]
    opened = v_defects_open(run)
    if opened is not None:
        found.append(
            f"V-defects opened at {opened['time']:.7g} s, {opened['z']:.7g} nm, in {opened['layer']}. "
            f"The final density is {number(run.end['rho_vd0_t'] / 2, 3)} per cm\u00b2."
        )
    found += unread_elements(run)
    return found


def v_defects_open(run: Run) -> dict[str, Any] | None:
    """Time [s], height [nm] and layer of the first row with V-defects; None if no row has any."""
    rows = run.profile[run.profile["rho_vd0_t"] > 0]
    if rows.empty:
        return None
    first = rows.iloc[0]
    layers = run.layers
    inside = layers[(layers["begin"] <= first["time"]) & (layers["end"] >= first["time"])]
    name = f"layer {inside.index[0]}, {inside['name'].iloc[0]}" if len(inside) else "the structure"
    return {"time": float(first["time"]), "z": float(first["z"]), "layer": name}


def find_tool() -> str | None:
    """The command-line tool: named by the environment variable VORLEN, in this installation or tree, or on PATH."""
    package = Path(__file__).resolve().parent
    places = [Path(sys.prefix) / "bin" / "vorlen"]
    if package.parent.name in ("dist-packages", "site-packages"):
        places.insert(0, package.parents[3] / "bin" / "vorlen")
    places += [package.parents[1] / "build" / preset / "tools" / "vorlen" for preset in ("release", "run")]
    named = os.environ.get("VORLEN")
    return named or next((str(place) for place in places if place.is_file()), None) or shutil.which("vorlen")


def unread_elements(run: Run) -> list[str]:
    """Findings of `vorlen check` about the recipe, such as elements that are not read."""
    if run.recipe_source.content is None:
        return ["The recipe is unknown, so it was not checked for elements that are not read. Name it with --recipe."]
    tool = find_tool()
    if tool is None:
        return ["The command vorlen was not found, so the recipe was not checked. Set VORLEN to its path."]
    import tempfile

    with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
        path = Path(folder, "recipe.xml")
        path.write_bytes(run.recipe_source.content)
        try:
            answer = subprocess.run(
                [tool, "check", "--format", "json", str(path)],
                capture_output=True,
                timeout=CHECK_TIMEOUT,
                check=False,
                encoding="utf-8",
                errors="replace",
            )
            findings = _findings(json.loads(answer.stdout))
        except (OSError, ValueError, LookupError, subprocess.TimeoutExpired):
            return ["The command vorlen could not check the recipe for unread elements."]
    return findings


def _findings(answer: dict[str, Any]) -> list[str]:
    """The findings in the output of `vorlen check --format json`."""
    texts = []
    for problem in answer["files"][0]["problems"]:
        line = f", line {problem['line']}" if problem.get("line") else ""
        hint = f" ({problem['hint']})" if problem.get("hint") else ""
        texts.append(f"Recipe{line}: {problem['text']}{hint}")
    return texts


def _chart_summary(run: Run) -> str:
    """The charts in words, for screen readers."""
    rows = run.profile[run.profile["active"]] if run.profile["active"].any() else run.profile
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


def add_command(commands: Any) -> None:
    """Adds `report` to the subcommands."""
    command = commands.add_parser("report", help="write a report of a result file: one page for a browser")
    command.add_argument("result", metavar="RESULT", help="result file")
    command.add_argument("--recipe", metavar="RECIPE", help="its recipe (default: the one named in the status file)")
    command.add_argument("-o", "--output", metavar="PAGE", help="page to write (default: the result's name with .html)")
    command.set_defaults(function=run_command)


def run_command(options: argparse.Namespace) -> int:
    """vorlen report RESULT [--recipe R] [-o PAGE]"""
    result = Path(options.result)
    stem = result.name.removesuffix(".txt").removesuffix(".result")
    page = Path(options.output) if options.output else result.with_name(stem + ".html")
    if page.exists() and result.exists() and page.samefile(result):
        raise ValueError(f"the report would overwrite the result {result}")
    status = read_status(result)
    if not result.exists() and status.get("text"):
        # The recipe was rejected before the first row: there is only a status file.
        print(report(SimulationError(str(status["text"]), status.get("recipe")), page))
        return 0
    run = read(result, options.recipe or _recipe_of(result, status))
    print(report(run, page))
    return 0


def _recipe_of(result: Path, status: dict[str, Any]) -> Path | None:
    """The recipe named in the status file, if it has not changed since."""
    if not status.get("recipe"):
        return None
    for path in (Path(status["recipe"]), result.parent / Path(status["recipe"]).name):
        if path.is_file() and hashlib.sha256(path.read_bytes()).hexdigest() == status.get("recipe_sha256"):
            return path
    return None
