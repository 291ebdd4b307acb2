"""A sweep as an xarray dataset."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from ._plan import Plan
from ._table import parameter_columns
from ._version import __version__

if TYPE_CHECKING:
    import xarray


def sweep_dataset(plan: Plan, table: pd.DataFrame) -> xarray.Dataset:
    """Key results, status and text of a table. Dimensions: the parameters of a grid, otherwise row.

    Names have dots for the slashes of paths, which the names of a netCDF file must not contain.
    """
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


def _named(path: str) -> str:
    return path.replace("/", ".")
