"""Run.to_csv and Run.to_netcdf: every digit and every unit arrives."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import ROOT, V_DEFECTS, table_of
from vorlen._result_file import COLUMN_NAMES

RESULT_COLUMNS = "| no. | heading | name | unit | content |"  # first line of the tables in docs/result-format.md


def detailed() -> vorlen.Recipe:
    """A recipe whose result has all columns."""
    return vorlen.Recipe.load(V_DEFECTS).set("output/detail", "true")


def documented_columns() -> dict[str, tuple[str, str]]:
    """Unit and meaning of every column of a result file, as docs/result-format.md lists them in three tables."""
    page = (ROOT / "docs" / "result-format.md").read_text("utf-8")
    columns = {}
    for table in page.split(RESULT_COLUMNS)[1:]:
        for line in table.splitlines()[2:]:
            if not line.startswith("|"):
                break
            _, _, name, unit, content = (cell.strip().replace("`", "") for cell in line[1:-1].split("|"))
            columns[name] = (unit or "1", content)
    assert len(columns) == 39
    return columns


def test_names_units_and_meanings_of_the_profile_are_those_of_the_manual() -> None:
    profile = vorlen.run(detailed()).profile
    units, meanings = profile.attrs["units"], profile.attrs["meanings"]
    names = [name for name in profile if name != "active"]
    assert {name: (units[name], meanings[name]) for name in names} == documented_columns()
    assert names == list(documented_columns()) and list(profile)[-1] == "active"
    assert list(units) == list(meanings) == names


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

    run = vorlen.run(detailed())
    run.to_netcdf(tmp_path / "r.nc")
    with xarray.open_dataset(tmp_path / "r.nc") as data:
        columns = documented_columns()
        for column, (unit, meaning) in columns.items():
            assert np.array_equal(data[column].to_numpy(), run.profile[column].to_numpy())
            assert data[column].attrs == {"units": unit, "long_name": meaning}
        layers = table_of("python.md", "| column of `layers` | unit | meaning |")
        for column, unit, meaning in layers:
            assert data[f"layer_{column}"].attrs == {"units": unit, "long_name": meaning}
            if column not in ("name", "kind"):
                values = run.layers[column].to_numpy()
                assert np.array_equal(data[f"layer_{column}"].to_numpy(), values, equal_nan=True), column
        assert set(data.data_vars) == {*columns, "active", *(f"layer_{column}" for column, *_ in layers)}
        assert list(data["layer"].to_numpy()) == list(run.layers.index)
        assert list(data["layer_kind"].to_numpy()) == list(run.layers["kind"])
        assert list(data["layer_name"].to_numpy()) == list(run.layers["name"])
        assert np.array_equal(data["active"].to_numpy() == 1, run.profile["active"].to_numpy())
