"""Process maps: lines and regions of fields that are known, grids of made-up and real runs, the page in a browser."""

from __future__ import annotations

import csv
import io
import math
import os
from pathlib import Path

import numpy as np
import pytest

import vorlen
from browser import Browser
from support import MQW, ROOT
from vorlen._design import map as _map
from vorlen._pages import page as _page
from vorlen.__main__ import main
from vorlen._design.targets import read_goals
from vorlen._design.map_lines import levels_of, lines_of, region_of
from vorlen._design.map_page import map_model
from vorlen._design.measured import Measured

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one layer, InGaN, that runs within milliseconds
STAGE = "process_stages/stage_1"
HEAT, FLOW = f"{STAGE}/T", f"{STAGE}/gas_species/Q/TMIn"
X, Y = np.linspace(0.0, 4.0, 5), np.linspace(10.0, 20.0, 6)
PLANE = 0.1 + 0.02 * X[None, :] + 0.01 * (Y[:, None] - 10.0)  # 0.1 to 0.28


def targets(**goals) -> list:
    return read_goals(vorlen.Recipe.load(LAYER), {"layers": [{"layer": 2, **goals}]})


def area(polygons) -> float:
    """Of closed polygons; those that run clockwise count as negative."""
    return sum(
        0.5 * float(np.sum(points[:-1, 0] * points[1:, 1] - points[1:, 0] * points[:-1, 1])) for points in polygons
    )


# ---- lines and regions


@pytest.mark.parametrize(
    ("low", "high", "expected"),
    [
        (0.1, 0.28, [0.1, 0.12, 0.14, 0.16, 0.18, 0.2, 0.22, 0.24, 0.26, 0.28]),
        (2.9, 3.55, [2.9, 3.0, 3.1, 3.2, 3.3, 3.4, 3.5]),
        (-0.01, 0.01, [-0.01, -0.0075, -0.005, -0.0025, 0.0, 0.0025, 0.005, 0.0075, 0.01]),
        (3.0, 3.0, []),
        (math.nan, math.nan, []),
    ],
)
def test_levels_are_round_numbers_within_the_values(low, high, expected):
    assert levels_of(np.array([[low, math.nan], [high, low]])) == pytest.approx(expected, abs=1e-12)


def test_lines_of_a_plane_are_where_the_plane_has_their_level():
    lines = lines_of(X, Y, PLANE)
    assert {line.level for line in lines} >= {0.12, 0.2, 0.26}
    for line in lines:
        for piece in line.pieces:
            assert 0.1 + 0.02 * piece[:, 0] + 0.01 * (piece[:, 1] - 10.0) == pytest.approx(line.level, abs=1e-12)
    assert lines_of(X, Y, np.full_like(PLANE, 3.0)) == []


def test_a_run_without_a_result_leaves_the_cells_around_it_empty():
    values = PLANE.copy()
    values[2, 2] = math.nan  # x = 2, y = 14
    for line in lines_of(X, Y, values):
        for piece in line.pieces:
            middles = (piece[1:] + piece[:-1]) / 2.0
            assert not ((np.abs(middles[:, 0] - 2.0) < 0.5) & (np.abs(middles[:, 1] - 14.0) < 1.0)).any()


def test_the_region_of_a_band_has_the_area_of_the_band():
    # 0.02 x + 0.01 (y - 10) is 0.06 to 0.1 for y - 10 from 6 - 2 x to 10 - 2 x, which is 4 high, less what is below
    # 10 for x above 3: a triangle of 1 x 2.
    goals = targets(In="0.18 +- 0.02")
    polygons = region_of(X, Y, [PLANE], goals)
    assert area(polygons) == pytest.approx(15.0, rel=1e-6)
    # The half below x = 2 is whole.
    goals = targets(In="0.18 +- 0.02", thickness="at most 2 nm")
    assert area(region_of(X, Y, [PLANE, np.broadcast_to(X, PLANE.shape)], goals)) == pytest.approx(8.0, rel=0.02)


def test_a_narrow_region_between_the_runs_is_found():
    goals = targets(In="0.205 +- 0.002")  # no run is within it
    assert not ((PLANE > 0.203) & (PLANE < 0.207)).any()
    # y - 10 from 10.3 - 2 x to 10.7 - 2 x, 0.4 high; above 20 are 0.06 for x up to 0.15 and 0.04 for x up to 0.35
    assert area(region_of(X, Y, [PLANE], goals)) == pytest.approx(1.5, rel=1e-6)


def test_a_region_without_points_and_one_with_a_hole():
    assert region_of(X, Y, [PLANE], targets(In=0.5)) == []
    assert region_of(X, Y, [np.full_like(PLANE, math.nan)], targets(In=0.5)) == []
    side = np.linspace(-1.0, 1.0, 41)
    bowl = 10.0 * (side[None, :] ** 2 + side[:, None] ** 2) + 1.0
    polygons = region_of(side, side, [bowl], targets(thickness="at least 3.5 nm"))
    assert area(polygons) == pytest.approx(4.0 - math.pi * 0.25, rel=0.01)
    assert min(area([polygon]) for polygon in polygons) < 0.0


def test_v_defects_are_excluded_up_to_the_runs_without_them():
    density = np.where(X[None, :] > 2.5, 1e8, 0.0) * np.ones_like(PLANE)
    assert 18.0 < area(region_of(X, Y, [density], targets(**{"V-defects": "none"}))) <= 22.0


# ---- grids


@pytest.fixture
def reactor(monkeypatch):
    """vorlen.process_map() on a made-up reactor: values(first, second) gives the values, or the text of a failure."""

    def run(values, parameters, **options):
        def measured(bench, base, lists, mode, wanted):
            assert mode == "grid"
            answers = [values(first, second) for first in list(lists.values())[0] for second in list(lists.values())[1]]
            texts = [answer if isinstance(answer, str) else "" for answer in answers]
            found = [[math.nan] * len(wanted) if text else answer for answer, text in zip(answers, texts)]
            return Measured(np.array(found, dtype=float), ["failed" if text else "ok" for text in texts], texts)

        monkeypatch.setattr(_map, "measured", measured)
        return vorlen.process_map(LAYER, parameters, **options)

    return run


def test_the_axes_are_not_exchanged_and_failed_runs_are_empty(reactor):
    def values(heat, flow):
        return "too cold" if heat < 905 and flow > 0.25 else [0.1 + 0.001 * (heat - 900.0) + 0.1 * flow, 10.0 * flow]

    made = reactor(values, {HEAT: [920, 900, 910], FLOW: [0.1, 0.3]})  # sorted for the axis
    assert made.table[[HEAT, FLOW]].values.tolist() == [
        [heat, flow] for heat in (900.0, 910.0, 920.0) for flow in (0.1, 0.3)
    ]
    name = made.layer
    row = made.table[(made.table[HEAT] == 910) & (made.table[FLOW] == 0.3)].iloc[0]
    assert row[f"In of {name}"] == pytest.approx(0.14) and row[f"thickness of {name}"] == pytest.approx(3.0)
    assert len(made.warnings) == 1 and "1 of 6 runs have no result; the first, T of " in made.warnings[0]
    assert made.warnings[0].endswith("900, TMIn of InGaN 0.3: too cold")
    model = map_model(made._axes, made._shown, [], made.table)
    assert model["x"]["range"] == [900, 920] and model["y"]["range"] == [0.1, 0.3]
    assert "(K)" in model["x"]["title"] and "(sccm)" in model["y"]["title"]
    thickness = model["curves"][1]["lines"]
    assert {line["text"] for line in thickness} >= {"1.5", "2", "2.5"}
    for line in thickness:  # equal thickness is equal flow: horizontal
        assert all(y == pytest.approx(float(line["text"]) / 10.0) for piece in line["pieces"] for y in piece["y"])
    assert model["runs"]["ok"].count(False) == 1 and model["region"] == []


def test_targets_add_columns_and_a_region(reactor):
    goals = {"layers": [{"layer": 2, "thickness": "2 +- 0.5 nm", "In": "at most 0.2"}]}
    made = reactor(
        lambda heat, flow: [10.0 * flow, 10.0 * flow, 0.1], {HEAT: [900, 920], FLOW: [0.1, 0.2, 0.3]},
        show=["thickness"], targets=goals,
    )
    assert made.table.holds.tolist() == [False, True, False] * 2
    assert {"In of layer 2 (InGaN)", "thickness of layer 2 (InGaN)", "thickness of InGaN"} < set(made.table)
    region = map_model(made._axes, made._shown, made._targets, made.table)["region"]
    assert min(y for part in region for y in part["y"]) == pytest.approx(0.15, abs=1e-3)
    assert max(y for part in region for y in part["y"]) == pytest.approx(0.25, abs=1e-3)


def test_the_figure_has_lines_the_region_and_the_recipe(reactor, tmp_path):
    goals = {"layers": [{"layer": 2, "thickness": "2 +- 0.5 nm"}]}
    heat, flow = (vorlen.Recipe.load(LAYER)[path][0] for path in (HEAT, FLOW))
    made = reactor(
        lambda hot, much: "too hot" if hot > heat + 15 and much > 0.25 else [10.0 * much, 10.0 * much],
        {HEAT: [heat - 10, heat, heat + 20], FLOW: [0.1, 0.2, 0.3]}, show=["thickness"], targets=goals,
    )
    figure = made.plot(path=tmp_path / "map.svg")
    (axes,) = figure.axes
    (region,) = axes.patches  # from 1.5 to 2.5 nm, of the cells with results
    assert region.get_path().vertices[:, 1].min() == pytest.approx(0.15, abs=1e-3)
    assert region.get_path().vertices[:, 1].max() == pytest.approx(0.25, abs=1e-3)
    legend = [text.get_text() for text in axes.get_legend().get_texts()]
    assert legend == ["all targets hold", "thickness of InGaN (nm)", "run", "run without a result", "recipe"]
    star = next(line for line in axes.lines if line.get_label() == "recipe")
    assert star.get_xydata().tolist() == [[heat, flow]]
    picture = (tmp_path / "map.svg").read_text("utf-8")
    assert "T of InGaN (K)" in picture and "TMIn of InGaN (sccm)" in picture and ">1.75<" in picture
    with pytest.raises(ValueError, match="ending of a format"):
        made.plot(path=tmp_path / "map.xyz")


def test_a_map_of_failures_is_an_error(reactor):
    with pytest.raises(vorlen.SimulationError, match="never"):
        reactor(lambda heat, flow: "never", {HEAT: [900, 910], FLOW: [0.1, 0.2]})


@pytest.mark.parametrize(
    ("parameters", "options", "error"),
    [
        ({HEAT: [900, 910]}, {}, "a map needs two paths with their values, got 1"),
        ([HEAT, FLOW], {}, "parameters must be a mapping of two paths"),
        ({HEAT: [900], FLOW: [0.1, 0.2]}, {}, "a map needs two or more different values"),
        ({HEAT: [900, 900], FLOW: [0.1, 0.2]}, {}, "a map needs two or more different values"),
        ({HEAT: [(900, 910), (910, 920)], FLOW: [0.1, 0.2]}, {}, "the values of a map must be numbers"),
        ({f"{STAGE}/X": [900, 910], FLOW: [0.1, 0.2]}, {}, "process_stages/stage_1/X"),
        ({HEAT: [900, 910], FLOW: [0.1, 0.2]}, {"show": "In"}, "show must be a list"),
        ({HEAT: [900, 910], FLOW: [0.1, 0.2]}, {"show": []}, "show is empty"),
        ({HEAT: [900, 910], FLOW: [0.1, 0.2]}, {"show": ["thicknes"]}, "Did you mean 'thickness'"),
        ({HEAT: [900, 910], FLOW: [0.1, 0.2]}, {"layer": "well"}, "the recipe has no layer 'well'"),
    ],
)
def test_mistakes_are_messages_before_anything_runs(parameters, options, error):
    with pytest.raises((TypeError, ValueError), match=error):
        vorlen.process_map(LAYER, parameters, **options)


def test_a_structure_without_wells_needs_the_name_of_a_layer():
    transistor = ROOT / "examples" / "algan_gan_hemt.xml"
    with pytest.raises(ValueError, match="the recipe grows no wells; name the layer to show, one of "):
        vorlen.process_map(transistor, {f"{STAGE}/T": [1300, 1310], f"{STAGE}/P": [10000, 20000]}, check=False)


def test_a_whole_periodic_stage_is_measured_with_every_number_of_periods():
    made = vorlen.process_map(
        MQW, {f"{STAGE}/n_periods": [2, 4], f"{STAGE}/stage_1_3/T": [1000, 1040]}, show=["thickness"], layer="stage_1",
        workers=1, check=False,
    )
    total = made.table["thickness of stage_1"]
    assert total[2] == pytest.approx(2.0 * total[0], rel=1e-3) and total[3] == pytest.approx(2.0 * total[1], rel=1e-3)
    with pytest.raises(ValueError, match="stage_1 is a whole periodic stage, which can only show thickness and rate"):
        vorlen.process_map(MQW, {f"{STAGE}/n_periods": [2, 4], f"{STAGE}/stage_1_3/T": [1000, 1040]}, layer="stage_1")


# ---- the command, and the page of real runs in a browser


def test_the_map_of_wells_in_a_browser(browser: Browser, tmp_path: Path, capsys) -> None:
    well = "process_stages/stage_1/stage_1_3"
    page, goals = tmp_path / "map.html", tmp_path / "targets.yaml"
    goals.write_text("layers: [{layer: InGaN well, thickness: 3.4 +- 0.1 nm, In: 20 % +- 1 %}]")
    words = ["map", str(MQW), "--x", f"{well}/T=1010:1050:20", "--y", f"{well}/gas_species/Q/TMIn=0.1,0.175,0.25"]
    assert main([*words, "--show", "x_in,thickness", "--targets", str(goals), "-o", str(page), "--quiet"]) == 0
    assert capsys.readouterr().out == f"{page}\n"
    browser.open(page)
    if os.environ.get("VORLEN_SCREENSHOTS"):
        browser.screenshot(Path(os.environ["VORLEN_SCREENSHOTS"]) / "map.png")
    names = browser.run("return document.querySelector('.chart').data.map((curve) => curve.name)")
    assert names == ["all targets hold", "In of InGaN well", "thickness of InGaN well (nm)", "run", "recipe"]
    assert browser.run("return document.querySelectorAll('.chart .scatterlayer .trace').length") == 5
    labels = browser.run("return [...document.querySelectorAll('.annotation-text')].map((text) => text.textContent)")
    assert "0.2" in labels and "3.4" in labels
    heading = browser.run("return [...document.querySelectorAll('.sentences li')].map((line) => line.textContent)")
    assert heading[0].startswith("In of InGaN well: 0.") and heading[2].startswith("All targets hold in ")
    # A dot shows its values, which are those of a separate run.
    place = browser.run(
        "const points = document.querySelectorAll('.chart .points path.point');"
        "const box = points[4].getBoundingClientRect(); return [box.x + box.width / 2, box.y + box.height / 2]"
    )
    browser.hover(*place)
    browser.wait("return document.querySelector('.hoverlayer').textContent.includes('TMIn of InGaN well 0.175')")
    recipe = vorlen.Recipe.load(MQW).with_scheme("staged")
    recipe[f"{well}/T"], recipe[f"{well}/gas_species/Q/TMIn"] = 1030, 0.175
    layer = vorlen.run(recipe).layers.query("name == 'InGaN well'")
    saved = tmp_path / "saved"
    saved.mkdir()
    rows = list(csv.DictReader(io.StringIO(browser.downloaded(saved, "[data-csv]").read_text("utf-8"))))
    assert len(rows) == 9 and float(rows[4]["In of InGaN well"]) == pytest.approx(layer.x_in.mean(), rel=1e-12)
    assert float(rows[4]["thickness of InGaN well"]) == pytest.approx(layer.thickness.mean(), rel=1e-12)
    (saved / "map.csv").unlink()
    picture = browser.downloaded(saved, "[data-svg]").read_text("utf-8")
    assert picture.startswith("<svg") and "thickness of InGaN well" in picture
    browser.open(page, width=420, phone=True, dark=True)
    assert browser.run("return document.documentElement.scrollWidth <= window.innerWidth")
    assert browser.console() == []


@pytest.mark.parametrize(
    ("words", "status", "error"),
    [
        (["--x", "T", "--y", "P=1,2"], 2, "expected PATH=VALUES"),
        (["--x", f"{HEAT}=1000:1050", "--y", f"{FLOW}=0.1,0.2"], 1, "a range is START:END:STEP"),
        (["--x", f"{HEAT}=1000,1050", "--y", f"{HEAT}=1000,1010"], 1, "is set twice"),
        (["--x", f"{HEAT}=1000,1050"], 2, "--y"),
    ],
)
def test_mistakes_on_the_command_line(words, status, error, capsys, tmp_path):
    words = ["map", str(LAYER), *words, "-o", str(tmp_path / "map.html")]
    if status == 2:
        with pytest.raises(SystemExit) as end:
            main(words)
        assert end.value.code == 2
    else:
        assert main(words) == status
    assert error in capsys.readouterr().err and not list(tmp_path.iterdir())


def test_a_missing_chart_library_is_reported_before_the_runs(tmp_path, capsys, monkeypatch):
    def missing():
        raise FileNotFoundError("the chart library of reports is missing")

    monkeypatch.setattr(_page, "chart_library", missing)
    axes = ["--x", f"{HEAT}=1000,1050", "--y", f"{FLOW}=0.1,0.2"]
    goals = tmp_path / "targets.yaml"
    goals.write_text("layers: [{layer: 2, thickness: 3 nm}]")
    for words in (["map", str(LAYER), *axes], ["window", str(LAYER), "--targets", str(goals), "--spread", "T=2 K"]):
        runs = tmp_path / "runs"
        assert main([*words, "-o", str(tmp_path / "page.html"), "--out", str(runs)]) == 1
        assert "the chart library of reports is missing" in capsys.readouterr().err and not runs.exists()


def test_inputs_are_never_replaced(tmp_path, capsys):
    recipe = tmp_path / "layer.xml"
    recipe.write_bytes(LAYER.read_bytes())
    assert main(["map", str(recipe), "--x", f"{HEAT}=1000,1050", "--y", f"{FLOW}=0.1,0.2", "-o", str(recipe)]) == 1
    assert "which is an input" in capsys.readouterr().err and recipe.read_bytes() == LAYER.read_bytes()
