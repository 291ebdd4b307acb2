"""Curve: drawing, saving, and the files that it never replaces."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt
import pandas as pd
import pytest

import vorlen


def curve(kind: str = "xrd", **values: Any) -> vorlen.Curve:
    table = pd.DataFrame({"two_theta": [34.0, 34.1, 34.2], "intensity": [1e-5, 0.1, 1e-4], "omega": [17, 17.05, 17.1]})
    return vorlen.Curve(kind, table, **values)


def test_a_curve_has_its_first_two_columns_as_x_and_y() -> None:
    found = curve(name="wafer 7")
    assert found.x.tolist() == [34.0, 34.1, 34.2] and found.y.tolist() == [1e-5, 0.1, 1e-4]
    assert repr(found) == "<Curve xrd, 3 points, wafer 7>" and repr(curve()) == "<Curve xrd, 3 points>"


def test_a_wrong_kind_and_a_table_without_a_curve_are_errors() -> None:
    with pytest.raises(ValueError, match="kind must be one of xrd, curvature, reflectance, emission, got 'xray'"):
        curve("xray")
    with pytest.raises(ValueError, match="needs two columns or more, got 1"):
        vorlen.Curve("xrd", pd.DataFrame({"two_theta": [1.0]}))


def test_curves_of_two_wafers_share_no_settings() -> None:
    first, second = curve(), curve()
    first.settings["hkl"], first.notes = (0, 0, 2), ["note"]
    assert second.settings == {} and second.notes == []


@pytest.mark.parametrize("kind", ["xrd", "curvature", "reflectance", "emission"])
def test_each_kind_is_drawn_with_its_axes(kind: str) -> None:
    (axes,) = curve(kind, name="run").plot().axes
    labels = {"xrd": ("2\u03b8 (\u00b0)", "log"), "curvature": ("time (s)", "linear"),
              "reflectance": ("time (s)", "linear"), "emission": ("wavelength (nm)", "linear")}
    assert (axes.get_xlabel(), axes.get_yscale()) == labels[kind] and axes.get_ylabel()
    (line,) = axes.get_lines()
    assert line.get_ydata().tolist() == [1e-5, 0.1, 1e-4]
    assert [text.get_text() for text in axes.get_legend().get_texts()] == ["run"]
    plt.close("all")


def test_the_parts_of_a_curvature_are_drawn_too() -> None:
    table = pd.DataFrame({"time": [0, 1], "curvature": [0, 3], "mismatch": [0, 1], "thermal": [0, 2]})
    (axes,) = vorlen.Curve("curvature", table).plot().axes
    assert [line.get_label() for line in axes.get_lines()] == ["curvature", "mismatch", "thermal"]
    plt.close("all")


def test_a_curve_of_zeros_is_drawn() -> None:
    assert vorlen.Curve("xrd", pd.DataFrame({"two_theta": [1, 2], "intensity": [0, 0]})).plot().axes
    plt.close("all")


def test_two_curves_in_one_pair_of_axes(tmp_path: Path) -> None:
    figure, axes = plt.subplots()
    assert curve(name="a").plot(ax=axes) is figure and len(plt.get_fignums()) == 1
    curve(name="b").plot(tmp_path / "both.svg", axes)
    assert [line.get_label() for line in axes.get_lines()] == ["a", "b"]
    assert (tmp_path / "both.svg").read_text().startswith("<?xml")
    plt.close("all")


def test_a_curve_without_points_is_not_drawn() -> None:
    empty = vorlen.Curve("xrd", pd.DataFrame({"two_theta": [], "intensity": []}), "empty")
    with pytest.raises(ValueError, match="the curve empty has no points to draw"):
        empty.plot()
    assert plt.get_fignums() == []


def test_csv_has_all_digits(tmp_path: Path) -> None:
    curve().to_csv(tmp_path / "c.csv")
    lines = (tmp_path / "c.csv").read_text().splitlines()
    assert lines[:2] == ["two_theta,intensity,omega", "34.0,1e-05,17.0"]


def test_the_files_of_the_run_and_of_the_measurement_are_never_replaced(tmp_path: Path) -> None:
    for name in ("run.txt", "wafer.svg"):
        (tmp_path / name).write_text("kept")
    found = curve(path=tmp_path / "wafer.svg", inputs=[tmp_path / "run.txt", None])
    for path in (tmp_path / "run.txt", tmp_path / "wafer.svg"):
        with pytest.raises(ValueError, match="which is an input"):
            found.to_csv(path)
    figure, axes = plt.subplots()
    for arguments in ({}, {"ax": axes}):
        with pytest.raises(ValueError, match="which is an input"):
            found.plot(tmp_path / "wafer.svg", **arguments)
    assert plt.get_fignums() == [figure.number] and not axes.get_lines()
    plt.close("all")
    assert {path.read_text() for path in tmp_path.iterdir()} == {"kept"}


def test_a_figure_needs_the_ending_of_a_format(tmp_path: Path) -> None:
    with pytest.raises(ValueError, match="must have the ending of a format"):
        curve().plot(tmp_path / "curve.xyz")
    with pytest.raises(TypeError, match="path must be a path"):
        curve().plot(7)  # type: ignore[arg-type]
    assert plt.get_fignums() == []
