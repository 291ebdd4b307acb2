"""The table of a sweep: one row per run, in the order of the plan.

It holds nothing that depends on the machine or the time, so that a sweep run in parts gives the same table, byte for
byte, as one run as a whole. Durations, hosts and dates are in the status file of each row.
"""

from __future__ import annotations

import json
import re
from collections import Counter
from pathlib import Path
from typing import Any

import pandas as pd

from ._plan import Plan, row_files, row_recipe
from ._row import END_VALUES, LAYER_VALUES, row_of_status
from ._files import replace_file
from ._recipe import Recipe
from ._status import read_status

TABLE_NAME = "table.csv"
UNITS = {
    "z": "nm", "rho_td_t": "cm^-2", "rho_td_z": "cm^-2", "v_defects_t": "cm^-2", "eps_xx_t": "1",
    "thickness": "nm", "x_in": "1", "x_ga": "1", "x_al": "1",
}


def _value_columns(rows: list[dict[str, Any]]) -> list[str]:
    """Columns of key results: first of the whole structure, then layer by layer."""
    counts = [
        int(match[1]) for row in rows for name in row["values"] if (match := re.fullmatch(r"thickness_(\d+)", name))
    ]
    return [
        *END_VALUES,
        *(f"{name}_{number}" for number in range(1, max(counts, default=0) + 1) for name in LAYER_VALUES),
    ]


def make_table(inputs: list[dict[str, Any]], rows: list[dict[str, Any]]) -> pd.DataFrame:
    """The table as a data frame. File paths are relative to the folder of the sweep."""
    columns = _value_columns(rows)
    records = []
    for number, (values, row) in enumerate(zip(inputs, rows)):
        files = row_files(Path(), number)
        record = {path: tuple(value) if isinstance(value, list) else value for path, value in values.items()}
        record.update(status=row["status"], text=row["text"])
        record.update((name, row["values"].get(name)) for name in columns)
        record["recipe_file"] = str(files.recipe)
        record["result_file"] = str(files.result) if row["result"] else ""
        record["status_file"] = str(files.status) if row["status"] not in ("lost", "missing") else ""
        records.append(record)
    table = pd.DataFrame(records)
    table = table.astype({name: float for name in columns})
    table.index.name = "row"
    table.attrs["units"] = {name: UNITS[re.sub(r"_\d+$", "", name)] for name in columns}
    return table


def write_table(table: pd.DataFrame, folder: Path) -> Path:
    """Writes the table into the folder of the sweep. A pair is written as [start, end]."""
    inputs = list(table.columns[: table.columns.get_loc("status")])
    written = table.assign(**{
        path: [json.dumps(value) if isinstance(value, tuple) else value for value in table[path]] for path in inputs
    })
    target = folder / TABLE_NAME
    replace_file(target, written.to_csv(lineterminator="\n").encode())
    return target


def with_folder(table: pd.DataFrame, folder: Path) -> pd.DataFrame:
    """The table with file paths that are valid from the current folder."""
    return table.assign(**{
        name: [str(folder / path) if path else "" for path in table[name]]
        for name in ("recipe_file", "result_file", "status_file")
    })


def collect_rows(plan: Plan, folder: Path) -> list[dict[str, Any]]:
    """Rows of a sweep from its status files. "missing" where no file matches recipe, scheme and version."""
    base = Recipe(plan.recipe)
    rows = []
    for number, values in enumerate(plan.rows()):
        status = read_status(row_files(folder, number).result)
        row = row_of_status(status, row_recipe(base, values)) if status else None
        rows.append(row or {"status": "missing", "text": "", "values": {}, "result": False})
    return rows


def ranges(numbers: list[int]) -> str:
    """Row numbers in the form of the option --rows: 3:5 9:10."""
    found: list[list[int]] = []
    for number in numbers:
        if found and found[-1][1] == number:
            found[-1][1] += 1
        else:
            found.append([number, number + 1])
    return " ".join(f"{first}:{last}" for first, last in found)


def count_text(rows: list[dict[str, Any]]) -> str:
    """The number of rows by status: 12 rows: 10 ok, 2 failed."""
    counts = Counter(row["status"] for row in rows)
    parts = [f"{count} {status}" for status, count in sorted(counts.items(), reverse=True)]
    return f"{len(rows)} rows: " + ", ".join(parts)
