"""Run.to_csv and Run.to_netcdf: every digit and every unit arrives."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import V_DEFECTS
from vorlen._result_file import COLUMN_NAMES


def test_comma_separated_values_keep_every_digit(tmp_path: Path) -> None:
    run = vorlen.run(V_DEFECTS)
    run.to_csv(tmp_path / "profile.csv")
    again = pd.read_csv(tmp_path / "profile.csv", float_precision="round_trip")
    assert np.array_equal(again[list(COLUMN_NAMES)].to_numpy(), run.profile[list(COLUMN_NAMES)].to_numpy())
    run.to_csv(tmp_path / "layers.csv", "layers")
    assert list(pd.read_csv(tmp_path / "layers.csv")["name"]) == list(run.layers["name"])
    with pytest.raises(ValueError, match="profile"):
        run.to_csv(tmp_path / "x.csv", "rows")


def test_netcdf_keeps_every_bit_with_units(tmp_path: Path) -> None:
    import xarray

    run = vorlen.run(V_DEFECTS)
    run.to_netcdf(tmp_path / "r.nc")
    with xarray.open_dataset(tmp_path / "r.nc") as data:
        for column in COLUMN_NAMES:
            assert np.array_equal(data[column].to_numpy(), run.profile[column].to_numpy())
        assert data["rho_td_t"].attrs["units"] == "cm^-2" and data["layer_thickness"].attrs["units"] == "nm"
        assert list(data["layer_name"].to_numpy()) == list(run.layers["name"])
        assert np.array_equal(data["active"].to_numpy() == 1, run.profile["active"].to_numpy())
