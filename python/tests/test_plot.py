"""Run.plot: the content of the figures, and that their text stays text."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt
import numpy as np
import pytest

import vorlen
from vorlen._runs.plot import _named
from support import (
    EXAMPLES,
    MQW,
    ROOT,
    V_DEFECTS,
    failed_run,
    failing_recipe,
    recipe_with_a_pause,
    recipe_with_nan,
    result,
    row,
)


@pytest.fixture(autouse=True)
def close_figures():
    yield
    plt.close("all")


def labels(figure) -> list[str]:
    return [axis.get_ylabel().split("\n")[0] for axis in figure.axes]


def line(axis, label: str):
    return next(line for line in axis.lines if line.get_label() == label)


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
@pytest.mark.parametrize("kind", ["time", "depth", "relaxation"])
@pytest.mark.parametrize("span", ["active", "all"])
def test_every_kind_of_every_example_is_drawn(path: Path, kind: str, span: str) -> None:
    figure = vorlen.run(path).plot(kind, span=span)
    figure.canvas.draw()
    assert len(figure.axes) == (2 if kind == "relaxation" else 5)


def test_over_time_the_curves_are_the_columns_of_the_result() -> None:
    run = vorlen.run(V_DEFECTS)
    rows = run.profile[run.profile["active"]]
    figure = run.plot("time")
    composition, rate, temperature, strain, densities = figure.axes
    assert labels(figure)[:3] == ["composition", "growth rate", "temperature"]
    for axis, label, values in (
        (composition, "In", rows["x_in"]),
        (strain, "at growth (t)", 100 * rows["eps_xx_t"]),
        (strain, "finished (z)", 100 * rows["eps_xx_z"]),
        (densities, "dislocations (t)", rows["rho_td_t"]),
        (densities, "dislocations (z)", rows["rho_td_z"]),
    ):
        assert np.array_equal(line(axis, label).get_xdata(), rows["time"])
        assert np.array_equal(line(axis, label).get_ydata(), values)
    # the column of V-defects holds two times the density; where there are none, nothing is drawn
    drawn = line(densities, "V-defects (t)").get_ydata()
    opened = rows["rho_vd0_t"].to_numpy() > 0
    assert np.array_equal(drawn[opened], rows["rho_vd0_t"].to_numpy()[opened] / 2) and np.isnan(drawn[~opened]).all()
    assert densities.get_yscale() == "log" and strain.get_yscale() == "linear"
    assert "In" in [text.get_text() for text in composition.get_legend().get_texts()]


def test_over_depth_the_height_is_counted_from_the_first_simulated_row() -> None:
    run = vorlen.run(V_DEFECTS)
    rows = run.profile[run.profile["active"]]
    axis = run.plot("depth").axes[0]
    assert np.array_equal(line(axis, "In").get_xdata(), rows["z"] - rows["z"].iloc[0])
    assert rows["z"].iloc[0] == pytest.approx(2000.0)  # the template
    assert "nm" in run.plot("depth").axes[-1].get_xlabel()


def test_the_temperature_has_the_corners_of_the_recipe() -> None:
    figure = vorlen.run(MQW).plot("time")
    curve = figure.axes[2].lines[0]
    # 150 s at 1080 K from 3000 s on, 20 s down to 1010 K, 70 s there, 20 s up
    for time, heat in (
        (3000, 1080),
        (3150, 1080),
        (3160, 1045),
        (3170, 1010),
        (3240, 1010),
        (3250, 1045),
        (3260, 1080),
    ):
        assert np.interp(time, curve.get_xdata(), curve.get_ydata()) == pytest.approx(heat)


def test_stages_are_shaded_and_named() -> None:
    figure = vorlen.run(MQW).plot("time")
    names = [text.get_text() for text in figure.axes[0].texts]
    assert names[:3] == ["GaN barrier", "cooling", "InGaN well"] and names[-1] == "last GaN barrier"
    assert len(figure.axes[3].patches) == 13  # three periods of four, and the last barrier


def test_without_a_recipe_there_is_no_temperature(tmp_path: Path) -> None:
    vorlen.run(V_DEFECTS, tmp_path / "r.txt")
    run = vorlen.read(tmp_path / "r.txt")
    assert "temperature" not in labels(run.plot())
    with pytest.raises(ValueError, match="temperature"):
        run.plot(panels=["temperature"])
    assert "temperature" in labels(vorlen.read(tmp_path / "r.txt", recipe=V_DEFECTS).plot())


def test_the_relaxation_diagram_has_the_layers_tops() -> None:
    run = vorlen.run(V_DEFECTS)
    axis = run.plot("relaxation").axes[1]
    (line,) = (line for line in axis.lines if line.get_marker() == "o")
    points = sorted(line.get_xydata().tolist())
    top = run.profile[run.profile["time"] <= 3724 * (1 + 1e-9)].iloc[-1]  # the end of the InGaN
    own, measured = top["a_eff_z"] / (1 + top["eps_xx_z"]), top["a_eff_z"]
    assert points[-1] == pytest.approx([own, measured])
    # docs/result-format.md, "Values of a layer": the part of the mismatch to the last pre-stage that is relieved
    substrate = run.profile["a_eff_z"][~run.profile["active"] & (run.profile["time"] <= 3600)].iloc[-1]
    degree = (measured - substrate) / (own - substrate)
    assert 0.01 < degree < 0.5  # partly relaxed: neither end of the scale
    assert f"InGaN\nR = {round(degree, 3)}" in [text.get_text() for text in axis.texts]


@pytest.mark.parametrize("kind", ["time", "depth", "relaxation"])
def test_failed_runs_and_nan_are_drawn_as_far_as_possible(kind: str) -> None:
    for recipe in (failing_recipe(), recipe_with_nan(), recipe_with_a_pause()):
        failed_run(recipe).plot(kind).canvas.draw()


@pytest.mark.parametrize("option", [{"kind": "spiral"}, {"span": "none"}, {"panels": ["colour"]}, {"panels": []}])
def test_an_unknown_option_is_rejected(option: dict[str, object]) -> None:
    ((name, _),) = option.items()
    with pytest.raises(ValueError, match=f"^{name} must be "):
        vorlen.run(V_DEFECTS).plot(**option)


def test_saved_figures_keep_text_as_text_and_are_the_same_each_time(tmp_path: Path) -> None:
    run = vorlen.run(V_DEFECTS)
    for name in ("a.svg", "b.svg"):
        run.plot("depth", path=tmp_path / name)
    svg = (tmp_path / "a.svg").read_text()
    assert svg == (tmp_path / "b.svg").read_text()
    assert ">composition</text>" in svg and ">GaN cap</text>" in svg
    run.plot("depth", path=tmp_path / "a.pdf")
    assert b"/Type3" not in (tmp_path / "a.pdf").read_bytes()  # journals reject Type 3 fonts


def test_the_picture_of_the_readme_is_what_its_script_draws(tmp_path: Path) -> None:
    kept = ROOT / "docs" / "figures" / "v_defects.svg"
    vorlen.run(V_DEFECTS).plot("depth", panels=("composition", "strain", "densities"), path=tmp_path / "r.svg")
    assert (tmp_path / "r.svg").read_bytes() == kept.read_bytes()
    assert kept.stat().st_size < 300_000
    assert "docs/figures/v_defects.svg" in (ROOT / "README.md").read_text()


def test_the_picture_of_the_schemes_is_what_its_script_draws(tmp_path: Path) -> None:
    script = ROOT / "scripts" / "integration_figure.py"
    subprocess.run([sys.executable, "-B", script, tmp_path / "r.svg"], check=True)
    assert (tmp_path / "r.svg").read_bytes() == (ROOT / "docs" / "figures" / "integration.svg").read_bytes()
    assert "figures/integration.svg" in (ROOT / "docs" / "integration.md").read_text()


def test_the_colours_of_metals_are_distinguishable_for_the_colour_blind() -> None:
    """Distance in CIELAB as a deuteranope and a protanope see the colours (matrices of Machado et al., 2009)."""
    from matplotlib.colors import to_rgb

    from vorlen._base.figures import ALUMINIUM, GALLIUM, INDIUM

    seen_by = {
        "deuteranope": [
            [0.367322, 0.860646, -0.227968],
            [0.280085, 0.672501, 0.047413],
            [-0.011820, 0.042940, 0.968881],
        ],
        "protanope": [
            [0.152286, 1.052583, -0.204868],
            [0.114503, 0.786281, 0.099216],
            [-0.003882, -0.048116, 1.051998],
        ],
    }
    to_xyz = np.array([[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]])

    def lab(colour: str, matrix: list[list[float]]) -> np.ndarray:
        rgb = np.array(to_rgb(colour))
        linear = np.where(rgb <= 0.04045, rgb / 12.92, ((rgb + 0.055) / 1.055) ** 2.4)
        x, y, z = (to_xyz @ np.clip(np.array(matrix) @ linear, 0, 1)) / np.array([0.9505, 1.0, 1.089])
        fx, fy, fz = (np.cbrt(v) if v > 0.008856 else 7.787 * v + 16 / 116 for v in (x, y, z))
        return np.array([116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)])

    for matrix in seen_by.values():
        for a, b in ((INDIUM, GALLIUM), (INDIUM, ALUMINIUM), (GALLIUM, ALUMINIUM)):
            assert np.linalg.norm(lab(a, matrix) - lab(b, matrix)) > 20  # 2 to 3 is just noticeable


def test_a_figure_is_saved_whole_or_not_at_all(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    run = vorlen.run(V_DEFECTS, tmp_path / "r.result.txt")
    (tmp_path / "old.svg").write_text("old")
    (tmp_path / "old.svg").chmod(0o640)
    (tmp_path / "link.svg").symlink_to("old.svg")
    run.plot(path=tmp_path / "link.svg")
    assert (tmp_path / "link.svg").is_symlink() and (tmp_path / "old.svg").stat().st_mode & 0o777 == 0o640
    picture = (tmp_path / "old.svg").read_bytes()
    assert picture.endswith(b"</svg>\n")
    for path, error in (
        (tmp_path / "r.result.txt", ValueError),
        (tmp_path / "none" / "r.svg", FileNotFoundError),
        (tmp_path, IsADirectoryError),
        (tmp_path / "r.unknown", ValueError),
        ("/dev/full", ValueError),
        (3, TypeError),
    ):
        with pytest.raises(error):
            run.plot(path=path)
    before = (tmp_path / "r.result.txt").read_bytes()
    (tmp_path / "result.svg").symlink_to("r.result.txt")
    (tmp_path / "status.svg").symlink_to("r.status.json")
    for name in ("result.svg", "status.svg"):
        with pytest.raises(ValueError, match="is an input"):
            run.plot(path=tmp_path / name)
    assert (tmp_path / "r.result.txt").read_bytes() == before
    assert plt.get_fignums() == [1]  # figures that could not be saved are closed
    assert not list(tmp_path.glob(".*"))


@pytest.mark.parametrize("name", ["figure", "figure.", ".svg", "figure.docx"])
def test_a_path_without_the_ending_of_a_format_is_rejected_and_nothing_is_drawn(name: str, tmp_path: Path) -> None:
    with pytest.raises(ValueError, match=rf"{re.escape(name)} must have the ending of a format for figures: .*\.svg"):
        vorlen.run(V_DEFECTS).plot(path=tmp_path / name)
    assert not list(tmp_path.iterdir()) and not plt.get_fignums()


def test_thick_layers_are_named_before_pauses_and_other_layers_before_repeats() -> None:
    names = ["buffer", "pause", "barrier", "well", "barrier", "well", "block", "cap"]
    widths = np.array([4.0, 0.001, 0.1, 0.03, 0.1, 0.03, 0.2, 0.5])
    places = np.cumsum(widths) - widths / 2.0
    assert [names[number] for number in _named(names, widths, places)] == ["buffer", "barrier", "block", "cap"]
    assert 2 in _named(names, widths, places)  # the first of two barriers
    wide = 10.0 * widths
    assert _named(names, wide, np.cumsum(wide) - wide / 2.0) == list(range(8))  # there is room for all


@pytest.mark.parametrize(
    ("arguments", "options"),
    [
        (("time", "all"), {}),
        ((), {"panels": "strain"}),
        ((), {"panels": None}),
        ((), {"panels": [3]}),
        ((), {"panels": [["strain"]]}),
        ((), {"kinds": "time"}),
    ],
)
def test_options_of_plot_have_names_and_types(arguments: tuple[str, ...], options: dict[str, object]) -> None:
    with pytest.raises(TypeError):
        vorlen.run(V_DEFECTS).plot(*arguments, **options)


@pytest.mark.parametrize("options", [{"kind": []}, {"span": None}])
def test_values_of_other_types_are_rejected_as_unknown(options: dict[str, object]) -> None:
    with pytest.raises(ValueError, match="must be"):
        vorlen.run(V_DEFECTS).plot(**options)


def test_stages_too_narrow_to_be_seen_are_not_shaded() -> None:
    layers = [("a", 1000.0, 1.0), *[("b", 0.01, 1.0)] * 50, ("c", 1000.0, 1.0)]
    rows = [row(time=t, z=z) for t, z in ((0, 0), (1000, 1), (1000.5, 51), (2000.5, 52))]
    axis = vorlen.Run(result(layers, rows).encode()).plot().axes[0]
    assert len(axis.patches) == 2


def test_no_figure_has_the_temperatures_of_a_recipe_that_was_changed_later() -> None:
    run = vorlen.run(V_DEFECTS)
    before = run.plot().axes[2].lines[0].get_ydata().copy()
    run.recipe["process_stages/stage_1/T"] = 500
    assert np.array_equal(run.plot().axes[2].lines[0].get_ydata(), before)
