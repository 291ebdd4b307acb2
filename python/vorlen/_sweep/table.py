"""The table of a sweep: one row per run, in the order of the plan.

It holds nothing that depends on the machine or the time, so that a sweep run in parts gives the same table, byte for
byte, as one run as a whole. Durations, hosts and dates are in the status file of each row. A parameter of which any
value is a ramp has two columns, PATH_begin and PATH_end. Sweep.to_xarray() gives the table as a dataset.
"""

from __future__ import annotations

import re
from collections import Counter
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.files import replace_file
from .._base.version import __version__
from .._recipe.recipe import Recipe
from .folder import TABLE_NAME
from .plan import Plan, row_files, row_recipe
from .plan_values import BEGIN, END, NUMERIC, known_parameter
from .row import END_VALUES, LAYER_VALUES, RECORDED, Row, empty_row, recorded_row

if TYPE_CHECKING:
    import xarray

FILE_COLUMNS = ("recipe_file", "result_file", "status_file")
UNITS = {
    "z": "nm", "rho_td_t": "cm^-2", "rho_td_z": "cm^-2", "v_defects_t": "cm^-2", "eps_xx_t": "1",
    "thickness": "nm", "x_in": "1", "x_ga": "1", "x_al": "1",
}


def result_columns(rows: list[Row]) -> list[str]:
    """Columns of key results: first of the whole structure, then layer by layer."""
    counts = [
        int(match[1]) for row in rows for name in row["values"] if (match := re.fullmatch(r"thickness_(\d+)", name))
    ]
    return [
        *END_VALUES,
        *(f"{name}_{number}" for number in range(1, max(counts, default=0) + 1) for name in LAYER_VALUES),
    ]


def parameter_columns(inputs: list[dict[str, Any]]) -> dict[str, list[str]]:
    """The columns of each parameter: one, or two if any value is a ramp."""
    ramps = {path for values in inputs for path, value in values.items() if isinstance(value, list)}
    return {path: [path + BEGIN, path + END] if path in ramps else [path] for path in inputs[0]}


def parameter_unit(path: str) -> str:
    """The unit of a parameter; "1" if it is dimensionless, "" if it is not known to be a number."""
    known, attribute = known_parameter(path)
    if known is None or known.kind not in NUMERIC:
        return ""
    units = known.unit.split(", ")  # of an Arrhenius constant: one for each attribute
    if attribute and len(units) == len(known.attributes):
        return units[known.attributes.index(attribute)]
    return known.unit or "1"


def make_table(inputs: list[dict[str, Any]], rows: list[Row]) -> pd.DataFrame:
    """The table as a data frame. File paths are relative to the folder of the sweep."""
    parameters = parameter_columns(inputs)
    results = result_columns(rows)
    records = []
    for number, (values, row) in enumerate(zip(inputs, rows)):
        files = row_files(Path(), number)
        record: dict[str, Any] = {}
        for path, columns in parameters.items():
            pair = values[path] if isinstance(values[path], list) else [values[path]] * 2
            record.update(zip(columns, pair))
        record.update(status=row["status"], text=row["text"])
        record.update((name, row["values"].get(name)) for name in results)
        record["recipe_file"] = str(files.recipe)
        record["result_file"] = str(files.result) if row["result"] else ""
        record["status_file"] = str(files.status) if row["status"] in RECORDED else ""
        records.append(record)
    table = pd.DataFrame(records)
    ramps = [name for columns in parameters.values() if len(columns) == 2 for name in columns]
    table = table.astype({name: float for name in [*ramps, *results]})
    table.index.name = "row"
    units = {name: parameter_unit(path) for path, columns in parameters.items() for name in columns}
    units |= {name: UNITS[re.sub(r"_\d+$", "", name)] for name in results}
    table.attrs["units"] = {name: unit for name, unit in units.items() if unit}
    return table


def write_table(table: pd.DataFrame, folder: Path) -> Path:
    """Writes the table into the folder of the sweep."""
    return replace_file(folder / TABLE_NAME, table.to_csv(lineterminator="\n").encode())


def with_folder(table: pd.DataFrame, folder: Path) -> pd.DataFrame:
    """A copy of the table with file paths that are valid from the current folder."""
    placed = table.assign(**{
        name: [str(folder / path) if path else "" for path in table[name]] for name in FILE_COLUMNS
    })
    placed.attrs = {"units": dict(table.attrs["units"])}
    return placed


def sweep_dataset(plan: Plan, table: pd.DataFrame) -> xarray.Dataset:
    """Key results, status and text of a table. Dimensions: the parameters of a grid, otherwise row."""
    import xarray

    parameters = parameter_columns(plan.rows())
    units = table.attrs["units"]
    grid = plan.mode == "grid"
    dimensions = [_named(path) for path in plan.parameters] if grid else ["row"]
    shape = [len(values) for values in plan.parameters.values()] if grid else [len(table)]

    def attributes(name: str) -> dict[str, str]:
        return {"units": units[name]} if name in units else {}

    def values_of(name: str) -> np.ndarray[Any, Any]:
        column: np.ndarray[Any, Any] = table[name].to_numpy()
        return np.array(column, dtype=str) if column.dtype == object else column

    coordinates: dict[str, Any] = {} if grid else {"row": table.index.to_numpy()}
    for axis, (path, columns) in enumerate(parameters.items()):
        for name in columns:
            values = values_of(name)
            if grid:  # along its own axis; the same everywhere else
                values = np.moveaxis(values.reshape(shape), axis, 0).reshape(shape[axis], -1)[:, 0]
            about = {"long_name": name} | attributes(name)
            coordinates[_named(name)] = (_named(path) if grid else "row", values, about)
    inputs = [name for columns in parameters.values() for name in columns]
    variables = {
        name: (dimensions, values_of(name).reshape(shape), attributes(name))
        for name in table.columns
        if name not in inputs and not name.endswith("_file")
    }
    return xarray.Dataset(variables, coordinates, {"source": f"VorlenSolver {__version__}"})


def collect_rows(plan: Plan, folder: Path) -> list[Row]:
    """Rows of a sweep from its status files. "missing" where recipe, scheme, version or a hash do not match."""
    base = Recipe(plan.recipe)
    rows = []
    for number, values in enumerate(plan.rows()):
        files = row_files(folder, number)
        row = recorded_row(files, row_recipe(base, values)) if files.status.exists() else None
        rows.append(row or empty_row("missing"))
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


def count_text(rows: list[Row]) -> str:
    """The number of rows by status: 12 rows: 10 ok, 2 failed."""
    counts = Counter(row["status"] for row in rows)
    parts = [f"{count} {status}" for status, count in sorted(counts.items(), reverse=True)]
    return f"{len(rows)} rows: " + ", ".join(parts)


def _named(path: str) -> str:
    return path.replace("/", ".")
