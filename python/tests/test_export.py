"""Run.to_csv and Run.to_netcdf: every digit and every unit arrives."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import vorlen
from support import ROOT, V_DEFECTS, result, row, table_of
from vorlen._runs.result_file import COLUMN_NAMES

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
    run.to_csv(tmp_path / "layers.csv", what="layers")
    assert list(pd.read_csv(tmp_path / "layers.csv")["name"]) == list(run.layers["name"])
    with pytest.raises(ValueError, match="profile"):
        run.to_csv(tmp_path / "x.csv", what="rows")


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


@pytest.mark.parametrize("name", ["r.csv", "r.nc"])
def test_a_table_is_saved_whole_or_not_at_all_and_never_replaces_the_run_s_own_files(name: str, tmp_path: Path) -> None:
    recipe = tmp_path / "recipe.xml"
    recipe.write_bytes(V_DEFECTS.read_bytes())
    run = vorlen.run(recipe, tmp_path / "r.txt")
    own = {path: path.read_bytes() for path in tmp_path.iterdir()}
    assert len(own) == 3  # result, status file, recipe
    save = run.to_csv if name == "r.csv" else run.to_netcdf
    for path in own:
        (tmp_path / f"link_to_{path.name}").symlink_to(path.name)
        for target in (path, tmp_path / f"link_to_{path.name}"):
            with pytest.raises(ValueError, match="is an input"):
                save(target)
    for target, error in (
        (tmp_path / "none" / name, FileNotFoundError), (tmp_path, IsADirectoryError), ("/dev/full", ValueError),
        (None, TypeError),
    ):
        with pytest.raises(error):
            save(target)
    assert {path: path.read_bytes() for path in own} == own
    (tmp_path / "real").write_text("old")
    (tmp_path / "real").chmod(0o600)
    (tmp_path / name).symlink_to("real")
    save(tmp_path / name)
    assert (tmp_path / name).is_symlink() and (tmp_path / "real").stat().st_mode & 0o777 == 0o600
    assert (tmp_path / "real").stat().st_size > 1000
    assert not list(tmp_path.glob(".*"))


def test_a_table_that_does_not_fit_on_the_disk_leaves_the_old_one(tmp_path: Path) -> None:
    """A limit on the size of files simulates the disk."""
    program = """
import resource, signal, sys, vorlen
run = vorlen.run(sys.argv[1])
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))
for save, path in ((run.to_csv, "r.csv"), (run.to_netcdf, "r.nc"), (lambda path: run.plot(path=path), "r.svg")):
    try:
        save(path)
    except OSError as error:
        print(error)
"""
    for name in ("r.csv", "r.nc", "r.svg"):
        (tmp_path / name).write_text("old")
    environment = os.environ | {"PYTHONPATH": str(Path(vorlen.__file__).parents[1]), "MPLBACKEND": "Agg"}
    command = [sys.executable, "-c", program, V_DEFECTS]
    done = subprocess.run(
        command, cwd=tmp_path, env=environment, capture_output=True, text=True, timeout=100, check=True
    )
    for name, line in zip(("r.csv", "r.nc", "r.svg"), done.stdout.splitlines(), strict=True):
        assert name in line and ".part" not in line
    left = {path.name: path.read_text() for path in tmp_path.iterdir()}
    assert left == dict.fromkeys(("r.csv", "r.nc", "r.svg"), "old")


def test_names_that_are_not_utf_8_are_exported(tmp_path: Path) -> None:
    import xarray

    content = result([("a", 1, 1)], [row(time=0), row(time=1, z=1)]).encode().replace(b'"a"', b'"a\xe4"')
    run = vorlen.Run(content)
    run.to_csv(tmp_path / "r.csv", what="layers")
    assert b",a\xe4," in (tmp_path / "r.csv").read_bytes().replace(b"1,", b",", 1)
    run.to_netcdf(tmp_path / "r.nc")
    with xarray.open_dataset(tmp_path / "r.nc") as data:
        assert data["layer_name"].to_numpy().tolist() == ["a\N{REPLACEMENT CHARACTER}"]
