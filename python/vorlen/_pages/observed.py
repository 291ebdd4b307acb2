"""What can be measured on a wafer as part of a page: charts of curves, simulated or beside measured ones, and wells.

The layout is in assets/observed_section.html, the charts are drawn by observed.js.
"""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array
from .._observe.curve import KINDS, Curve, named_peaks
from .._observe.matching import UNITS, smallest_intensity
from .._runs.agreement import COLUMNS, Agreement, agreement_table
from .._runs.plot_agreement import agreement_text
from .._runs.run import Run
from .numbers import MISSING, number
from .page import page

OBSERVABLES = ("xrd", "curvature", "reflectance", "emission")
TITLES = {
    "xrd": "X-ray diffraction", "curvature": "Curvature of the wafer", "reflectance": "Reflectance",
    "emission": "Emission",
}
SETTINGS = {  # in words, below a chart
    "hkl": "reflection {}", "energy": "{}", "substrate": "substrate {}", "wavelength": "{}", "thickness": "{} thick",
    "screening": "{} of the field screened", "two_theta": "",
}
WELL_COLUMNS = {  # of the many of Run.emission(): headings
    "layer": "Layer", "name": "Name", "thickness": "Thickness", "x_in": "In", "x_al": "Al", "field": "Field",
    "overlap": "Overlap", "energy": "Energy", "wavelength": "Wavelength", "wavelength_low": "\u2212\u03c3",
    "wavelength_high": "+\u03c3", "note": "Note",
}
MAX_POINTS = 4000  # of a curve in a chart; files have all
DIGITS = 7
PARTS = {"mismatch": "indium", "thermal": "gallium"}  # colours of the parts of a curvature


class Observed(NamedTuple):
    """What a page shows."""

    curves: list[Curve]  # simulated ones without a measured one
    wells: pd.DataFrame | None
    agreements: list[Agreement]
    problems: list[str]  # why something is not shown


def observe(run: Run, wanted: Mapping[str, Mapping[str, Any]], agreements: Sequence[Agreement], *, lenient: bool) -> Observed:
    """Simulates what is wanted; kinds that have an agreement are not drawn again.

    wanted   arguments of the methods of Run by their names
    lenient  True: what can't be simulated becomes a problem instead of a ValueError
    """
    found = Observed([], None, list(agreements), [])
    for kind, settings in wanted.items():
        try:
            if kind == "emission":
                found = found._replace(wells=run.emission(**settings))
            elif all(one.measured.kind != kind for one in agreements):
                found.curves.append(getattr(run, kind)(**settings))
        except ValueError as error:
            if not lenient:
                raise
            found.problems.append(f"{TITLES[kind]} is not shown: {error}")
    return found


def checked_observables(observe: object) -> dict[str, dict[str, Any]]:
    """The names, or names with arguments, as a dict. Raises TypeError or ValueError."""
    if isinstance(observe, str) or not isinstance(observe, Iterable):
        raise TypeError(f"observe must be a list of names, or a dict of names and arguments, got {observe!r}")
    wanted = dict(observe) if isinstance(observe, Mapping) else {name: {} for name in observe}
    for name, settings in wanted.items():
        if name not in OBSERVABLES:
            raise ValueError(f"observe must be one or more of {', '.join(OBSERVABLES)}, got {name!r}")
        if not isinstance(settings, Mapping):
            raise TypeError(f"the arguments of {name} must be a dict, got {settings!r}")
    return {name: dict(settings) for name, settings in wanted.items()}


def run_name(run: Run) -> str:
    """The name of a run in legends."""
    path = run.recipe_source.path or run.path
    return path.name.split(".")[0] if path is not None else "simulated"


def observed_page(run: Run, measured: Sequence[Agreement] = (), found: Observed | None = None) -> str:
    """The HTML text of a page with nothing else."""
    found = found or Observed([], None, list(measured), [])
    section = observed_section(found, run_name(run))
    path = run.recipe_source.path or run.path
    warnings = [*run.warnings, *found.problems]
    if run.failed:
        warnings.insert(0, "The run failed or is incomplete: only what had grown is shown.")
    return page(
        "observe.html", path.name if path is not None else "VORLEN run",
        data={"observed": section["charts"], "tables": section["tables"]}, warnings=warnings, observed=section,
    )


def observed_section(found: Observed, name: str) -> dict[str, Any]:
    """What the layout shows: charts, tables for files, rows of wells and of agreements."""
    drawn = [(_of_agreement(one, name), one.table()) for one in found.agreements]
    drawn += [(_of_curve(curve), curve.table) for curve in found.curves]
    charts, tables = [chart for chart, _ in drawn], {}
    for place, (chart, table) in enumerate(drawn, 1):
        chart["key"] = f"observed-{place}"
        chart["file"] = f"{name}-{chart['kind']}-{place}"
        tables[chart["key"]] = {"name": f"{chart['file']}.csv", "text": table.to_csv(index=False, lineterminator="\n")}
    section: dict[str, Any] = {"charts": charts, "tables": tables, "wells": None, "numbers": [], "problems": found.problems}
    if found.wells is not None:
        section["wells"] = _wells(found.wells)
        tables["wells"] = {"name": f"{name}-emission.csv", "text": found.wells.to_csv(lineterminator="\n")}
    if found.agreements:
        table = agreement_table(found.agreements)
        section["numbers"] = table.to_dict("records")
        tables["deviations"] = {"name": f"{name}-deviations.csv", "text": table[[column for column, *_ in COLUMNS]].to_csv(index=False)}
    return section


def _of_curve(curve: Curve) -> dict[str, Any]:
    """The chart of a simulated curve."""
    chart = _chart(curve.kind, curve, _settings(curve.settings))
    chart["curves"] = [_line(curve.x, curve.y, KINDS[curve.kind].y.split(" (")[0], "ink")]
    for part, colour in PARTS.items():
        if part in KINDS[curve.kind].parts and part in curve.table:
            chart["curves"].append(_line(curve.x, curve.table[part].to_numpy(float), part, colour, dashed=True))
    chart["notes"] = list(curve.notes)
    chart["peaks"] = named_peaks(curve, *chart["range"])
    return chart


def _of_agreement(agreement: Agreement, name: str) -> dict[str, Any]:
    """The chart of a measured curve and the simulated one."""
    measured, match, kind = agreement.measured, agreement.match, KINDS[agreement.measured.kind]
    simulated = agreement.simulated
    chart = _chart(measured.kind, measured, _settings(measured.settings if simulated is None else simulated.settings))
    values = np.maximum(measured.y, smallest_intensity(measured)) if kind.logarithmic else measured.y
    shown = measured.name or "measured"
    chart["title"] = f"{TITLES[measured.kind]}: {shown}"
    chart["curves"] = [_line(measured.x, values, shown, "gallium") | {"marks": True}]
    text = agreement_text(agreement)
    chart["text"] = text[:1].upper() + text[1:]
    chart["notes"] = [*measured.notes, *agreement.notes]
    if simulated is not None and match is not None:
        chart["peaks"] = [(x + match.shift, label) for x, label in named_peaks(simulated, *chart["range"])]
        chart["curves"].append(_line(match.x, match.simulated, name, "indium"))
        unit = UNITS[measured.kind]
        chart["difference"] = _line(match.x, match.deviations, "difference", "ink") | {
            "title": "difference" if unit == "1" else f"difference ({unit})"
        }
    chart["lines"] = [round(wavelength, 3) for wavelength in sorted(set(agreement.wavelengths))]
    chart["lines_name"] = name
    return chart


def _chart(kind: str, curve: Curve, settings: str) -> dict[str, Any]:
    x = curve.x[np.isfinite(curve.x)]
    return {
        "kind": kind, "title": TITLES[kind], "x": KINDS[kind].x, "y": KINDS[kind].y, "log": KINDS[kind].logarithmic,
        "settings": settings, "text": "", "lines": [], "lines_name": "", "peaks": [], "difference": None,
        "range": [float(x.min()), float(x.max())] if len(x) else [0.0, 1.0],
    }


def _settings(settings: Mapping[str, Any]) -> str:
    """The settings in words."""
    parts = []
    for key, value in settings.items():
        form = SETTINGS.get(key, "")
        if form:
            text = "".join(map(str, value)) if isinstance(value, (tuple, list)) else _text(key, value)
            parts.append(form.format(text))
    text = ", ".join(parts)
    return text[:1].upper() + text[1:]


def _text(key: str, value: Any) -> str:
    """A setting with its unit."""
    if isinstance(value, str):
        return value
    unit = {"wavelength": "nm", "thickness": "\u00b5m", "energy": "eV"}.get(key, "")
    return f"{value:.6g} {unit}".strip() if isinstance(value, (int, float)) else str(value)


def _line(x: Array, y: Array, name: str, colour: str, dashed: bool = False) -> dict[str, Any]:
    x, y = thinned(x, y)
    return {
        "name": name, "colour": colour, "x": _rounded(x), "y": _rounded(y), "dashed": dashed, "marks": False,
        "dotted": False,
    }


def thinned(x: Array, y: Array) -> tuple[Array, Array]:
    """At most MAX_POINTS points: of each group of neighbours those with the smallest and the largest y, so peaks stay."""
    if len(x) <= MAX_POINTS:
        return x, y
    kept = []
    for group in np.array_split(np.arange(len(x)), MAX_POINTS // 2):
        values = np.nan_to_num(y[group], nan=0.0)
        kept += sorted({int(group[values.argmin()]), int(group[values.argmax()])})
    return x[kept], y[kept]


def _rounded(values: Array) -> list[float | None]:
    return [float(f"{value:.{DIGITS}g}") if np.isfinite(value) else None for value in values.tolist()]


def _wells(table: pd.DataFrame) -> dict[str, Any]:
    """The table of wells: headings with units, and rows of texts."""
    units = table.attrs.get("units", {})
    columns = [column for column in WELL_COLUMNS if column in table]
    columns = [column for column in columns if column not in ("note", "x_in", "x_al") or table[column].astype(bool).any()]
    headings = []
    for column in columns:
        unit = units.get(column, "")
        headings.append({"name": WELL_COLUMNS[column], "unit": unit if unit not in ("", "1") else ""})
    rows = []
    for label, row in table.iterrows():
        cells = [_cell(row[column]) for column in columns]
        rows.append({"label": str(label), "cells": cells})
    return {"headings": headings, "rows": rows, "notes": list(table.attrs.get("notes", []))}


def _cell(value: Any) -> str:
    if isinstance(value, (bool, np.bool_)):
        return "yes" if value else "no"
    if isinstance(value, (int, float, np.number)):
        return number(float(value), 4)
    return str(value) if value is not None and str(value) else MISSING
