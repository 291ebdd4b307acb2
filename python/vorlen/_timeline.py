"""The timeline of a recipe: one row per layer of the result, with periods expanded."""

from __future__ import annotations

from typing import Any

import pandas as pd

from ._document import Document
from ._kinds import KNOWN, children_of_kind, leading_integer, leading_number
from ._stages import PROCESS, is_periodic, stages
from ._xml_bytes import RecipeError

STAGE = "process_stages/stage_#"
# columns of the timeline: paths of their values in a stage
RAMPS = {"T": "T", "P": "P"} | {
    flow: f"gas_species/Q/{flow}" for flow in children_of_kind(f"{STAGE}/gas_species/Q", "range")
}
ACTIVE_STAGE_COUNT_MAX = 1000000  # that of the library
UNITS = {"begin": "s", "end": "s", "duration": "s"} | {
    f"{column}_{when}": KNOWN[f"{STAGE}/{below}"].unit for column, below in RAMPS.items() for when in ("begin", "end")
}


def timeline(document: Document) -> pd.DataFrame:
    """The table that Recipe.timeline describes."""
    rows: list[dict[str, Any]] = []
    clock = leading_number(document.attribute("pre_stages/t0"))
    for group, kind in (("pre_stages", "pre"), (PROCESS, "active"), ("post_stages", "post")):
        paths = _layers(document, group)
        values = {path: _stage_values(document, path, kind) for path in dict.fromkeys(paths)}
        for path in paths:
            row = values[path].copy()
            row["name"] = row["name"] or f"Layer{len(rows) + 1}"
            row["begin"] = clock
            row["end"] = clock = clock + row["duration"]
            rows.append(row)
    columns = ["name", "kind", "stage", "path", *UNITS]
    table = pd.DataFrame(rows, columns=columns, index=pd.RangeIndex(1, len(rows) + 1, name="layer"))
    table.attrs["units"] = dict(UNITS)
    return table


def _stage_values(document: Document, path: str, kind: str) -> dict[str, Any]:
    """The columns of a stage that do not depend on its place."""
    stage = document.element(path)
    values = {"name": stage.attribute("name"), "kind": kind, "stage": path.rsplit("/", 1)[-1], "path": path}
    numbers = {"duration": leading_number(stage.attribute("tau"))}
    for column, below in RAMPS.items() if kind == "active" else ():
        for when, attribute in (("begin", "val"), ("end", "end")):
            numbers[f"{column}_{when}"] = leading_number(stage.attribute(below, attribute))
    return values | numbers


def _layers(document: Document, group: str) -> list[str]:
    """Paths of the single stages of a group in the order of growth; none if the recipe has no such group."""
    paths: list[str] = []
    for path in stages(document, group) if document.root.child(group) is not None else ():
        inner, periods = [path], 1
        if group == PROCESS and is_periodic(document, path):
            inner, periods = stages(document, path), leading_integer(document.attribute(f"{path}/n_periods")) or 0
        if len(paths) + len(inner) * periods > ACTIVE_STAGE_COUNT_MAX:
            raise RecipeError(f"{document.name}: {path} gives more than {ACTIVE_STAGE_COUNT_MAX} stages")
        paths += inner * periods
    return paths
