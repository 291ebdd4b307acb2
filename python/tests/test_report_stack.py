"""The picture of the layers of a report. No browser."""

from __future__ import annotations

import re

import numpy as np
import pytest

import vorlen
from support import MQW, result, row
from test_structure import CAP, LAST, TEMPLATE, table, wells
from vorlen._pages.report_stack import HEIGHT, NAME_HEIGHT, TOP, _spread, colour, layer_stack


def pictures(text: str) -> dict[str, str]:
    """The pictures by key: active, whole."""
    return {match[1]: match[0] for match in re.finditer(r'<svg class="stack-(\w+)".*?</svg>', text)}


def names(picture: str) -> list[tuple[float, str]]:
    """Places in pixels and names beside the layers, from the bottom up."""
    found = re.findall(r'<text x="\d+" y="([\d.]+)" class="stack-name">(.*?) <tspan', picture)
    return sorted(((float(y) - 4, name) for y, name in found), reverse=True)


def rectangles(picture: str) -> list[tuple[float, float, str, str]]:
    """Upper edge, height, colour and tooltip of the layers."""
    found = re.findall(r'<rect x="\d+" y="([\d.]+)" width="\d+" height="([\d.]+)" fill="(#\w+)"><title>(.*?)</title>', picture)
    return [(float(y), float(height), shade, text) for y, height, shade, text in found]


def test_the_active_region_is_the_first_picture() -> None:
    text = layer_stack(table(TEMPLATE, *wells(5), LAST, CAP))
    assert re.findall(r'class="stack-head">(.*?)</text>', text) == ["Active region, 87 nm", "Whole structure, 2187 nm"]
    shown = pictures(text)
    # one period, 12 nm and 3 nm, and the last barrier, 12 nm: 27 nm on 400 pixels
    assert [(y, height) for y, height, _, _ in rectangles(shown["active"])] == [
        (pytest.approx(TOP + HEIGHT * (1 - top / 27), abs=0.01), pytest.approx(HEIGHT * size / 27, abs=0.25))
        for top, size in ((12, 12), (15, 3), (27, 12))
    ]
    assert re.findall(r'class="stack-times">(.*?)</text>', shown["active"]) == ["\u00d7\u00a05"]
    assert 'class="stack-region"' not in shown["active"] and 'class="stack-region"' in shown["whole"]
    assert re.search(r"<desc[^>]*>From the bottom up: barrier 12 nm, well 3 nm, last barrier 12 nm. "
                     r"Repeated: barrier to well times\s5\.</desc>", shown["active"])


def test_thin_layers_keep_their_colours_and_have_no_lines() -> None:
    # 1 nm wells in 100 nm barriers; drawn once in 301 nm, 1.3 pixels high.
    shown = pictures(layer_stack(table(TEMPLATE, *wells(3, 1.0, 0.2, 100), ("active", "last barrier", 200, 0, 0))))["active"]
    drawn = rectangles(shown)
    assert 'stroke="' not in shown and [text.split(",")[0] for *_, text in drawn] == ["2. barrier", "3. well", "8. last barrier"]
    assert [shade for _, _, shade, _ in drawn] == [colour([0, 1, 0]), colour([0.2, 0.8, 0]), colour([0, 1, 0])]
    assert colour([0.2, 0.8, 0]) != colour([0, 1, 0])
    assert all(height >= 1 for _, height, _, _ in drawn)
    assert shown.count("stack-line") == 0  # next to the well


def test_wells_are_named_before_ramps_and_names_do_not_overlap() -> None:
    period = [("active", "barrier", 12, 0, 0), ("active", "cooling", 0.3, 0, 0), ("active", "well", 0.5, 0.2, 0),
              ("active", "heating", 0.3, 0, 0)]
    # Periods that are not alike, so that 60 layers are drawn.
    layers = [(kind, name, size * (1 + 0.03 * number), x, y) for number in range(15) for kind, name, size, x, y in period]
    shown = names(pictures(layer_stack(table(TEMPLATE, *layers, LAST)))["active"])
    texts = [name for _, name in shown]
    assert texts.count("well") == 15 and texts.count("heating") == 0 and texts.count("cooling") == 0
    places = [y for y, _ in shown]
    assert all(low - high >= NAME_HEIGHT - 0.11 for low, high in zip(places, places[1:]))
    assert TOP <= min(places) and max(places) <= TOP + HEIGHT


@pytest.mark.parametrize("seed", range(5))
def test_names_are_inside_of_the_picture_for_any_thicknesses(seed: int) -> None:
    random = np.random.default_rng(seed)
    layers = [("active", f"layer {number}", 10 ** random.uniform(-2, 3), 0, random.choice([0, 0.1, 0.3])) for number in range(80)]
    for picture in pictures(layer_stack(table(TEMPLATE, *layers))).values():
        shown = names(picture)
        assert shown and all(TOP <= y <= TOP + HEIGHT for y, _ in shown)
        assert all(low[0] - high[0] >= NAME_HEIGHT - 0.11 for low, high in zip(shown, shown[1:]))
        numbers = [int(name.split()[-1]) for _, name in shown if name.startswith("layer")]
        assert numbers == sorted(numbers)


def test_names_move_apart_as_little_as_possible() -> None:
    assert _spread([100.0, 200.0]) == [100, 200]
    # Both wanted 100: half of the distance to each side.
    assert _spread([100.0, 100.0]) == [100 - NAME_HEIGHT / 2, 100 + NAME_HEIGHT / 2]
    assert _spread([TOP + 0.0, TOP + 1.0]) == [TOP + 4, TOP + 4 + NAME_HEIGHT]  # at the upper edge


def test_of_a_layer_that_is_partly_in_the_region_both_thicknesses_are_stated() -> None:
    layers = table(TEMPLATE, ("active", "channel", 70, 0, 0), ("active", "barrier", 20, 0, 0.25))
    shown = pictures(layer_stack(layers))["active"]
    assert re.findall(r'class="stack-size">(.*?)</tspan>', shown) == ["20\u00a0nm", "20 of 70\u00a0nm"]


def test_the_thickness_of_a_substrate_has_no_exponent() -> None:
    shown = pictures(layer_stack(table(("pre", "substrate", 300000, 0, 0), ("active", "a", 1234.56, 0, 0))))["whole"]
    assert re.findall(r'class="stack-size">(.*?)</tspan>', shown) == ["1235\u00a0nm", "300000\u00a0nm"]
    assert "Whole structure, 301200 nm" in shown  # four digits, as of all thicknesses


def test_a_long_name_is_shortened() -> None:
    shown = pictures(layer_stack(table(("active", "n" * 40, 5, 0, 0), LAST)))["whole"]
    assert names(shown)[0][1] == "n" * 21 + "\u2026"


def test_a_layer_of_unknown_composition_is_grey_and_without_thickness_there_is_no_picture() -> None:
    nan = float("nan")
    assert "#999999" in layer_stack(table(TEMPLATE, ("active", "later", 5, nan, nan)))
    assert layer_stack(table(("active", "a", 0, nan, nan))) == ""


def test_an_mqw_is_drawn_once_with_three_periods() -> None:
    shown = pictures(layer_stack(vorlen.run(MQW).layers))["active"]
    assert [text.split(",")[0] for *_, text in rectangles(shown)] == [
        "2. GaN barrier", "3. cooling", "4. InGaN well", "5. heating", "14. last GaN barrier"
    ]
    assert "\u00d7\u00a03" in shown


def test_all_layers_have_their_thickness_as_a_tooltip() -> None:
    layers = [("a", 10.0, 10.0), ("b", 1.0, 0.1), ("c", 1.0, 0.1), ("d", 10.0, 10.0)]
    rows = [row(time=t, z=z, x_ga=1.0) for t, z in ((0, 0), (10, 10), (11, 10.1), (12, 10.2), (22, 20.2))]
    picture = pictures(layer_stack(vorlen.Run(result(layers, rows).encode())._layers))["whole"]
    assert [text for *_, text in rectangles(picture)] == [
        "1. a, GaN, 10 nm", "2. b, GaN, 0.1 nm", "3. c, GaN, 0.1 nm", "4. d, GaN, 10 nm"
    ]
