"""The figure of a fit, on tables of measured and fitted values: panels, labels, legend, colours."""

from __future__ import annotations

import matplotlib
import matplotlib.pyplot as plt
import numpy as np
import pandas as pd
import pytest

from vorlen._fit.plot import plot_fit

matplotlib.use("Agg")


def table(rows: list[tuple[str, str, float, float, float]]) -> pd.DataFrame:
    return pd.DataFrame(rows, columns=["recipe", "quantity", "measured", "fitted", "sigma"])


@pytest.mark.parametrize(("recipes", "has_legend"), [(["a.xml"], False), (["a.xml", "b.xml"], True)])
def test_only_several_recipes_have_a_legend(recipes: list[str], has_legend: bool) -> None:
    figure = plot_fit(table([(name, "x_in_1", 0.1, 0.11, 0.01) for name in recipes]), None)
    legend = figure.axes[0].get_legend()
    assert (legend is not None) == has_legend
    if legend is not None:
        assert [text.get_text() for text in legend.get_texts()] == recipes
    plt.close(figure)


def test_each_kind_of_quantity_has_a_panel_with_its_unit() -> None:
    rows = [("a", "x_in_1", 0.1, 0.12, 0.01), ("a", "thickness_2", 10.0, 11.0, 0.5), ("a", "x_in_12", 0.2, 0.21, 0.01)]
    figure = plot_fit(table(rows), None)
    assert len(figure.axes) == 2
    first, second = figure.axes
    assert "nm" in second.get_xlabel() and "nm" not in first.get_xlabel()
    for axis in figure.axes:
        assert axis.get_xlabel().endswith(", measured") and axis.get_ylabel().endswith(", fitted")
    (points,) = first.containers
    assert points.lines[0].get_xydata().tolist() == [[0.1, 0.12], [0.2, 0.21]]
    plt.close(figure)


def test_the_axes_are_equal_and_have_room_around_all_points() -> None:
    figure = plot_fit(table([("a", "x_in_1", 0.1, 0.2, 0.01), ("a", "x_in_2", 0.3, 0.15, 0.01)]), None)
    (axis,) = figure.axes
    # from 0.1 to 0.3, and 6 % of that on both sides
    assert axis.get_xlim() == pytest.approx((0.088, 0.312)) and axis.get_ylim() == axis.get_xlim()
    assert axis.get_aspect() == 1
    assert axis.lines[0].get_xydata() == pytest.approx(np.array([[0.088, 0.088], [0.312, 0.312]]))  # the diagonal
    plt.close(figure)


def test_one_point_on_the_diagonal_has_room_too() -> None:
    figure = plot_fit(table([("a", "x_in_1", 0.5, 0.5, 0.01)]), None)
    room = 0.06 * 0.02 * 0.5
    assert figure.axes[0].get_xlim() == pytest.approx((0.5 - room, 0.5 + room))
    plt.close(figure)


@pytest.mark.parametrize(("sigma", "bars"), [(0.01, True), (float("nan"), False)])
def test_known_uncertainties_are_drawn_as_bars(sigma: float, bars: bool) -> None:
    rows = [("a", "x_in_1", 0.1, 0.11, 0.01), ("a", "x_in_2", 0.2, 0.21, sigma)]
    figure = plot_fit(table(rows), None)
    (points,) = figure.axes[0].containers
    assert points.has_xerr == bars and not points.has_yerr
    if bars:
        (segments,) = [lines.get_segments() for lines in points.lines[2]]
        ends = [[[0.09, 0.11], [0.11, 0.11]], [[0.19, 0.21], [0.21, 0.21]]]
        assert np.array(segments) == pytest.approx(np.array(ends))
    plt.close(figure)


def test_recipes_differ_in_colour_and_marker() -> None:
    figure = plot_fit(table([(f"{n}", "x_in_1", 0.1 * n, 0.1, 0.01) for n in range(1, 6)]), None)
    lines = [points.lines[0] for points in figure.axes[0].containers]
    assert len(lines) == 5
    assert len({(line.get_color(), line.get_marker()) for line in lines}) == 5
    assert len({line.get_color() for line in lines}) == 4 and len({line.get_marker() for line in lines}) == 5
    plt.close(figure)
