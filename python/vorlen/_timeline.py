"""The timeline of a recipe: one row per layer of the result, with periods expanded."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import pandas as pd

from ._document import Document
from ._kinds import KNOWN, children_of_kind, leading_integer, leading_number
from ._stages import PROCESS, is_periodic, stages

STAGE = "process_stages/stage_#"
# columns of the timeline: paths of their values in a stage
RAMPS = {"T": "T", "P": "P"} | {
    flow: f"gas_species/Q/{flow}" for flow in children_of_kind(f"{STAGE}/gas_species/Q", "range")
}
UNITS = {"begin": "s", "end": "s", "duration": "s"} | {
    f"{column}_{when}": KNOWN[f"{STAGE}/{below}"].unit for column, below in RAMPS.items() for when in ("begin", "end")
}


def timeline(document: Document) -> pd.DataFrame:
    """The table that Recipe.timeline describes."""
    rows: list[dict[str, Any]] = []
    clock = leading_number(document.attribute("pre_stages/t0"))
    for group, kind in (("pre_stages", "pre"), (PROCESS, "active"), ("post_stages", "post")):
        for path in layers(document, group):
            stage = document.element(path)
            duration = leading_number(stage.attribute("tau"))
            name = stage.attribute("name") or f"Layer{len(rows) + 1}"
            row: dict[str, Any] = {"name": name, "kind": kind, "stage": path.rsplit("/", 1)[-1], "path": path}
            row.update(begin=clock, end=clock + duration, duration=duration)
            clock += duration
            for column, below in RAMPS.items() if kind == "active" else ():
                for when, attribute in (("begin", "val"), ("end", "end")):
                    row[f"{column}_{when}"] = leading_number(stage.attribute(below, attribute))
            rows.append(row)
    columns = ["name", "kind", "stage", "path", *UNITS]
    table = pd.DataFrame(rows, columns=columns, index=pd.RangeIndex(1, len(rows) + 1, name="layer"))
    table.attrs["units"] = dict(UNITS)
    return table


def layers(document: Document, group: str) -> Iterator[str]:
    """Paths of the single stages of a group in the order of growth; none if the recipe has no such group."""
    if document.root.child(group) is None:
        return
    for path in stages(document, group):
        if group == PROCESS and is_periodic(document, path):
            inner = stages(document, path)
            for _ in range(leading_integer(document.attribute(f"{path}/n_periods")) or 0):
                yield from inner
        else:
            yield path
