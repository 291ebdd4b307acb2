"""Export of a run to netCDF."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from ._version import __version__

if TYPE_CHECKING:
    import xarray

    from ._run import Run


def to_dataset(run: Run) -> xarray.Dataset:
    """Profile (dimension row) and layers (dimension layer, names start with layer_), with units and meanings."""
    import xarray

    variables = {}
    for prefix, dimension, table in (("", "row", run.profile), ("layer_", "layer", run.layers)):
        for column in table:
            values = table[column].to_numpy()
            if values.dtype == object:
                values = np.array([str(value) for value in values], dtype=str)
            if values.dtype == bool:
                values = values.astype(np.int8)
            attributes = _attributes(table, column)
            variables[f"{prefix}{column}"] = (dimension, values, attributes)
    attributes = {"title": "VORLEN simulation run", "source": f"VorlenSolver {__version__}", "text": run.text}
    return xarray.Dataset(variables, {"layer": run.layers.index.to_numpy()}, attributes)


def _attributes(table: pd.DataFrame, column: str) -> dict[str, str]:
    return {
        "units": table.attrs["units"].get(column, ""),
        "long_name": table.attrs["meanings"].get(column, "1 in rows of simulated stages, else 0"),
    }


def write_netcdf(run: Run, path: Path) -> None:
    """Writes to_dataset(run) as one netCDF-4 file."""
    to_dataset(run).to_netcdf(path, format="NETCDF4", engine="netcdf4")
