"""Export of the tables of a run as comma-separated values and netCDF."""

from __future__ import annotations

from collections.abc import Iterable
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from .._base.files import check_place, replace_file, valid_text
from .._base.types import PathLike
from .._base.version import __version__

if TYPE_CHECKING:
    import xarray



def write_csv(table: pd.DataFrame, path: PathLike, index: bool, inputs: Iterable[PathLike | None]) -> None:
    """Writes a table with all digits. inputs: files that must not be replaced."""
    text: str = table.to_csv(index=index, lineterminator="\n")
    replace_file(path, text.encode("utf-8", "surrogateescape"), inputs=inputs)


def write_netcdf(
    profile: pd.DataFrame, layers: pd.DataFrame, text: str, path: PathLike, inputs: Iterable[PathLike | None]
) -> None:
    """Writes the tables and text as one netCDF-4 file. inputs: files that must not be replaced."""
    import netCDF4
    from xarray.backends import NetCDF4DataStore

    check_place(path, inputs)  # before the work
    # In memory, because the HDF5 library may crash when a disk is full.
    file = netCDF4.Dataset("run.nc", "w", format="NETCDF4", memory=1)
    store: Any = NetCDF4DataStore  # which has no type hints
    to_dataset(profile, layers, text).dump_to_store(store(file))
    replace_file(path, bytes(file.close()), inputs=inputs)


def to_dataset(profile: pd.DataFrame, layers: pd.DataFrame, text: str) -> xarray.Dataset:
    """Profile (dimension row) and layers (dimension layer, names start with layer_), with units and meanings."""
    import xarray

    variables = {}
    for prefix, dimension, table in (("", "row", profile), ("layer_", "layer", layers)):
        for column in table:
            values = table[column].to_numpy()
            if values.dtype == object:
                values = np.array([valid_text(str(value)) for value in values], dtype=str)
            if values.dtype == bool:
                values = values.astype(np.int8)
            variables[f"{prefix}{column}"] = (dimension, values, _attributes(table, column))
    attributes = {
        "title": "VORLEN simulation run", "source": f"VorlenSolver {__version__}", "text": valid_text(text)
    }
    return xarray.Dataset(variables, {"layer": layers.index.to_numpy()}, attributes)


def _attributes(table: pd.DataFrame, column: Any) -> dict[str, str]:
    return {
        "units": table.attrs["units"].get(column, ""),
        "long_name": table.attrs["meanings"].get(column, "1 in rows of simulated stages, else 0"),
    }
