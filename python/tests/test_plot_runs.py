"""vorlen.plot: runs on top of each other, with corresponding layers at the same place."""

from __future__ import annotations

import functools
from pathlib import Path

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt
import numpy as np
import pytest

import vorlen
from support import MQW, V_DEFECTS, failed_run, failing_recipe, result, row
from vorlen._runs.plot_aligned import place_runs


@pytest.fixture(autouse=True)
def close_figures():
    yield
    plt.close("all")


def stack(*layers: tuple[str, float, float, float]) -> vorlen.Run:
    """A run of layers (name, duration, thickness, x_in) after a template of 5 s and 100 nm; x_in is constant in each."""
    rows, time, z = [row(False), row(False, time=5, z=100)], 5.0, 100.0
    for _, duration, thickness, x in layers:
        rows.append(row(time=time, z=z, x_in=x, rate=thickness / duration))
        time, z = time + duration, z + thickness
        rows.append(row(time=time, z=z, x_in=x, rate=thickness / duration))
    described = [("template", 5.0, 100.0), *[(name, duration, thickness) for name, duration, thickness, _ in layers]]
    return vorlen.Run(result(described, rows).encode())


def curve(figure, run: int, panel: int = 0) -> np.ndarray:
    """The points of a run's first curve; interruptions are NaN."""
    per_run = len([line for line in figure.axes[panel].lines if len(line.get_xdata()) > 2]) // 2
    lines = [line for line in figure.axes[panel].lines if len(line.get_xdata()) > 2]
    return np.array([lines[run * per_run].get_xdata(), lines[run * per_run].get_ydata()]).T


A = stack(("buffer", 10, 20, 0.0), ("well", 67, 3, 0.15), ("barrier", 100, 10, 0.0))
B = stack(("buffer", 30, 60, 0.0), ("well", 72, 3.5, 0.18), ("barrier", 100, 10, 0.0))


def test_by_stage_equal_layers_lie_on_top_of_each_other() -> None:
    for kind, borders in (("time", [5, 15, 15, 82, 82, 182]), ("depth", [0, 20, 20, 23, 23, 33])):
        figure = vorlen.plot([A, B], kind, panels=["composition"])
        first, second = curve(figure, 0), curve(figure, 1)
        assert first[:, 0] == pytest.approx(borders) and second[:, 0] == pytest.approx(borders)
        assert list(second[:, 1]) == [0, 0, 0.18, 0.18, 0, 0]


def test_by_start_layers_keep_their_length_and_curves_are_interrupted_where_a_layer_is_shorter() -> None:
    figure = vorlen.plot([A, B], "time", align="start", panels=["composition"])
    nan = np.nan
    assert curve(figure, 0)[:, 0] == pytest.approx([5, 15, nan, 35, 102, nan, 107, 207], nan_ok=True)
    assert curve(figure, 1)[:, 0] == pytest.approx([5, 35, 35, 107, 107, 207])
    figure = vorlen.plot([A, B], "depth", align="start", panels=["composition"])
    assert curve(figure, 0)[:, 0] == pytest.approx([0, 20, nan, 60, 63, nan, 63.5, 73.5], nan_ok=True)


def test_without_alignment_the_curves_are_the_columns() -> None:
    figure = vorlen.plot([A, B], "depth", align="none", panels=["composition"])
    assert curve(figure, 1)[:, 0] == pytest.approx([0, 60, 60, 63.5, 63.5, 73.5])
    runs = vorlen.run(MQW), vorlen.run(V_DEFECTS)
    figure = vorlen.plot(runs, align="none", panels=["strain"])
    for number, run in enumerate(runs):
        rows = run.profile[run.profile["active"]]
        lines = [line for line in figure.axes[0].lines if len(line.get_xdata()) > 2]
        drawn = lines[2 * number]
        times = np.linspace(rows["time"].iloc[0], rows["time"].iloc[-1], 997)
        expected = np.interp(times, rows["time"], 100 * rows["eps_xx_t"])
        assert np.interp(times, drawn.get_xdata(), drawn.get_ydata()) == pytest.approx(expected, abs=1e-9)


def test_a_layer_that_only_one_run_has_gets_its_own_place() -> None:
    more = stack(("buffer", 10, 20, 0.0), ("spacer", 7, 2, 0.05), ("well", 67, 3, 0.15), ("barrier", 100, 10, 0.0))
    nan = np.nan
    for pair, short, long in (((A, more), 0, 1), ((more, A), 1, 0)):
        figure = vorlen.plot(pair, "depth", panels=["composition"])
        assert curve(figure, short)[:, 0] == pytest.approx([0, 20, nan, 22, 25, 25, 35], nan_ok=True)
        assert curve(figure, long)[:, 0] == pytest.approx([0, 20, 20, 22, 22, 25, 25, 35])
        assert "spacer" in [text.get_text() for text in figure.axes[0].texts]


def test_extra_layers_of_the_same_name_share_a_place() -> None:
    extra = [stack(("buffer", 10, 20, 0.0), (name, 7, 2, 0.05), ("well", 67, 3, 0.15), ("barrier", 9, 10, 0.0))
             for name in ("spacer", "spacer", "other")]
    runs = [run._drawn for run in (A, *extra)]
    match = [(0, 0), (1, 1), (None, 2), (2, 3), (3, 4)]
    places, _ = place_runs(runs, [[(n, n) for n in range(4)], match, match, match], False, "stage", "active")
    assert [place.name for place in places] == ["buffer", "other", "spacer", "well", "barrier"]
    assert [place.begin for place in places] == pytest.approx([0, 20, 22, 24, 27])


def test_a_point_between_two_rows_is_interpolated() -> None:
    # The border at 10 s lies between the rows at 8 and 12 s, as under the continuous scheme.
    rows = [row(time=t, z=t, x_in=t / 100) for t in (0.0, 8.0, 12.0, 20.0)]
    run = vorlen.Run(result([("a", 10, 10), ("b", 10, 10)], rows).encode())
    points = curve(vorlen.plot([run, run], "time", panels=["composition"]), 1)
    assert points == pytest.approx(np.array([(t, t / 100) for t in (0, 8, 10, 10, 12, 20)]))


def test_evaporation_and_pauses_keep_their_heights() -> None:
    points = ((0, 0), (10, 10), (20, 8), (30, 8), (40, 18))
    rows = [row(time=t, z=z, x_in=0.1) for t, z in points]
    layers = [("a", 10, 10), ("etch", 10, -2), ("pause", 10, 0), ("b", 10, 10)]
    run = vorlen.Run(result(layers, rows).encode())
    drawn = curve(vorlen.plot([run, run], "depth", panels=["composition"]), 1)
    assert drawn[:, 0] == pytest.approx([0, 10, 10, 8, 8, 8, 8, 18])


def test_the_temperature_is_that_of_the_recipes() -> None:
    longer = vorlen.Recipe(MQW.read_text("utf-8").replace('<tau val="70"/>', '<tau val="140"/>'))
    figure = vorlen.plot([vorlen.run(MQW), vorlen.run(longer)], panels=["temperature"])
    for number in (0, 1):
        points = curve(figure, number)
        for time, heat in ((3000, 1080), (3160, 1045), (3205, 1010), (3250, 1045), (3260, 1080), (3440, 1010)):
            assert np.interp(time, points[:, 0], points[:, 1]) == pytest.approx(heat, abs=0.5), time


@functools.cache
def wells(duration: int) -> vorlen.Run:
    recipe = MQW.read_text("utf-8").replace('<tau val="70"/>', f'<tau val="{duration}"/>')
    return vorlen.run(vorlen.Recipe(recipe))


def test_wells_grown_for_67_and_72_s_lie_on_top_of_each_other() -> None:
    for kind in ("time", "depth"):
        figure = vorlen.plot([wells(67), wells(72)], kind, panels=["composition"])
        first, second = curve(figure, 0), curve(figure, 1)
        # The middles of the wells; without alignment the third is 10 s off.
        rising = [points[np.flatnonzero(np.diff((points[:, 1] > 0.1).astype(int)) == 1), 0] for points in (first, second)]
        assert len(rising[0]) == 3 and rising[0] == pytest.approx(rising[1], abs=0.3 if kind == "time" else 0.02)


@pytest.mark.parametrize("kind", ["time", "depth"])
@pytest.mark.parametrize("align", ["stage", "start", "none"])
@pytest.mark.parametrize("span", ["active", "all"])
def test_every_way_to_draw(kind: str, align: str, span: str) -> None:
    figure = vorlen.plot([wells(67), wells(72)], kind, align=align, span=span)
    figure.canvas.draw()
    assert [axis.get_ylabel().split("\n")[0] for axis in figure.axes] == [
        "composition", "growth rate", "temperature", "strain \u03b5$_{xx}$", "density"
    ]


def legend_of(figure) -> list[str]:
    return [text.get_text() for text in figure.legends[0].get_texts()]


def test_each_run_has_a_colour_and_a_label(tmp_path: Path) -> None:
    figure = vorlen.plot({"67 s": A, "72 s": B}, panels=["strain"])
    assert legend_of(figure) == ["67 s", "72 s"]
    lines = [line for line in figure.axes[0].lines if len(line.get_xdata()) > 2]
    assert [line.get_color() for line in lines] == ["#0072B2", "#0072B2", "#D55E00", "#D55E00"]
    assert [line.get_linestyle() for line in lines] == ["-", "--", "-", "--"]
    assert legend_of(vorlen.plot([A, B], labels=["x", "y"], panels=["rate"])) == ["x", "y"]
    assert legend_of(vorlen.plot([A, B], panels=["rate"])) == ["run 1", "run 2"]
    for name in ("a", "b"):
        (tmp_path / f"{name}.result.txt").write_bytes(A.content)
    runs = [vorlen.read(tmp_path / f"{name}.result.txt") for name in ("a", "b")]
    assert legend_of(vorlen.plot(runs, panels=["rate"])) == ["a", "b"]
    assert legend_of(vorlen.plot([runs[0]] * 2, panels=["rate"])) == ["a (1)", "a (2)"]
    many = vorlen.plot([A] * 9, panels=["rate"])
    assert len({handle.get_color() for handle in many.legends[0].get_lines()}) == 9


def test_aluminium_is_dashed_beside_indium_only() -> None:
    rows = [row(time=t, z=t, x_al=0.2) for t in (0, 5, 9)]
    al = vorlen.Run(result([("a", 9, 9)], rows).encode())
    styles = lambda runs: [line.get_linestyle() for line in vorlen.plot(runs, panels=["composition"]).axes[0].lines]  # noqa: E731
    assert styles([al, al]) == ["-", "-"]
    assert styles([al, A]) == ["-", "--", "-", "--"]


def test_of_one_run_the_figure_is_that_of_run_plot() -> None:
    for runs in (A, [A], {"a": A}):
        figure = vorlen.plot(runs, "depth", panels=["composition"])
        assert not figure.legends and len(figure.axes) == 1
    assert len(vorlen.plot(vorlen.run(V_DEFECTS), "relaxation").axes) == 2


def test_a_failed_run_is_drawn_up_to_its_end() -> None:
    failed = failed_run(failing_recipe())
    whole = vorlen.run(V_DEFECTS)
    points = curve(vorlen.plot([whole, failed], panels=["composition"]), 1)
    assert np.nanmax(points[:, 0]) == pytest.approx(3724, abs=1)


def test_runs_without_common_layers_are_not_aligned() -> None:
    other = stack(("x", 10, 20, 0.1), ("y", 5, 4, 0.2))
    with pytest.raises(ValueError, match='^the runs have no layer in common, so they can\'t be aligned by align="stage"'):
        vorlen.plot([A, other], align="stage")
    figure = vorlen.plot([A, other], "depth", panels=["composition"])  # as they are
    assert curve(figure, 1)[-1, 0] == pytest.approx(24) and "stretched" not in figure.axes[-1].get_xlabel()


def test_the_axis_says_how_runs_are_aligned() -> None:
    label = lambda **options: vorlen.plot({"p": A, "q": B}, panels=["rate"], **options).axes[-1].get_xlabel()  # noqa: E731
    assert label() == "time (s), others stretched layer by layer to p"
    assert label(kind="depth", align="start").startswith("height above the pre-stages (nm), layers of all runs start")
    assert label(align="none") == "time (s)"


def test_the_figure_is_saved_with_text_as_text(tmp_path: Path) -> None:
    vorlen.plot({"67 s": A, "72 s": B}, path=tmp_path / "f.svg")
    assert "67 s" in (tmp_path / "f.svg").read_text("utf-8")
    (tmp_path / "a.txt").write_bytes(A.content)
    run = vorlen.read(tmp_path / "a.txt")
    (tmp_path / "a.svg").symlink_to("a.txt")
    with pytest.raises(ValueError):
        vorlen.plot([B, run], path=tmp_path / "a.svg")
    assert (tmp_path / "a.txt").read_bytes() == A.content


@pytest.mark.parametrize(
    ("arguments", "options", "error", "text"),
    [
        (("a.txt",), {}, TypeError, "runs must be runs in a list or dict, got str"),
        (([A, "b"],), {}, TypeError, "runs must contain objects of type Run, got str"),
        (([],), {}, ValueError, "at least one run"),
        (([A, B], "relaxation"), {}, ValueError, 'kind must be "time" or "depth", got \'relaxation\''),
        (([A, B],), {"align": "layer"}, ValueError, "align must be"),
        (([A, B],), {"labels": ["a"]}, ValueError, "as many labels as runs: 2, got 1"),
        (([A, B],), {"labels": "ab"}, TypeError, "labels must be a list of names"),
        (([A, B],), {"labels": [1, 2]}, TypeError, "labels must be a list of names"),
        (({"a": A, "b": B},), {"labels": ["a", "b"]}, TypeError, "whose keys are the labels"),
        (([A, B],), {"span": "some"}, ValueError, "span must be"),
        (([A, B],), {"panels": ["colour"]}, ValueError, "panels must be one or more of"),
        (([A, B],), {"panels": ["temperature"]}, ValueError, "the temperature is unknown"),
        (([A, vorlen.Run(b"")],), {}, ValueError, "the run run 2 has no rows to draw"),
        (([A, B],), {"path": "figure.xyz"}, ValueError, "ending of a format"),
    ],
)
def test_wrong_arguments(arguments, options, error, text) -> None:
    with pytest.raises(error, match=text):
        vorlen.plot(*arguments, **options)
    assert not plt.get_fignums()


def test_without_the_command_runs_of_other_layers_are_not_compared(monkeypatch: pytest.MonkeyPatch) -> None:
    other = stack(("buffer", 10, 20, 0.0), ("cap", 5, 4, 0.2))
    monkeypatch.setattr("vorlen._runs.compare_layers.find_tool", lambda: None)
    vorlen.plot([A, B])  # the same names need no comparison
    with pytest.raises(RuntimeError, match="the command vorlen, which compares layers, was not found; set VORLEN"):
        vorlen.plot([A, other])
    monkeypatch.setattr("vorlen._runs.compare_layers.find_tool", lambda: "/bin/false")
    with pytest.raises(RuntimeError, match="not compared by /bin/false diff"):
        vorlen.plot([A, other])
