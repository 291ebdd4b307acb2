"""vorlen.compare: the page that compares runs, its tables, and its charts in a real browser.

With VORLEN_SCREENSHOTS set to a folder the pages are also left there as pictures.
"""

from __future__ import annotations

import csv
import html.parser
import io
import itertools
import os
import re
from pathlib import Path

import pytest

import vorlen
from browser import Browser
from support import MQW, V_DEFECTS, failed_run, failing_recipe, result, row
from vorlen.__main__ import main
from vorlen._pages.compare import render
from vorlen._runs.compare_layers import compared_layers, matching_layers, pairs_of
from vorlen._pages.compare_recipes import RecipeDifference, recipe_differences
from vorlen._pages.compare_table import grouped_lines, layer_lines, layers_csv


def stack(*layers: tuple[str, float, float, float]) -> vorlen.Run:
    """A run of simulated layers (name, duration, thickness, x_in) of constant composition."""
    rows, time, z = [], 0.0, 0.0
    for _, duration, thickness, x in layers:
        rows.append(row(time=time, z=z, x_in=x))
        time, z = time + duration, z + thickness
        rows.append(row(time=time, z=z, x_in=x))
    return vorlen.Run(result([(name, duration, thickness) for name, duration, thickness, _ in layers], rows).encode())


A = stack(("buffer", 10, 20, 0.0), ("QW", 5, 3, 0.125), ("QB", 9, 9, 0.0), ("QW", 5, 3, 0.125), ("cap", 9, 9, 0.0))
B = stack(("buffer", 10, 20, 0.0), ("QW", 5, 3, 0.25), ("QB", 9, 9, 0.0), ("QW", 5, 3, 0.25), ("cap", 9, 9, 0.0))
C = stack(("buffer", 10, 20, 0.0), ("QW", 5, 3, 0.125), ("spacer", 4, 2, 0.0), ("QB", 9, 9, 0.0), ("QW", 5, 3, 0.125))


# ---- tables


def test_pairs_of_layers_are_those_of_the_command() -> None:
    assert matching_layers(A, B) == [(place, place) for place in range(5)]
    assert pairs_of(compared_layers(A, B)) == matching_layers(A, B)  # the same, without the command
    assert matching_layers(A, C) == [(0, 0), (1, 1), (None, 2), (2, 3), (3, 4), (4, None)]


def test_layers_of_three_runs_are_in_one_table() -> None:
    lines = layer_lines([compared_layers(A, B), compared_layers(A, C)])
    assert [line.first["name"] for line in lines] == ["buffer", "QW", "spacer", "QB", "QW", "cap"]
    assert [line.visible for line in lines] == [False, True, True, False, True, True]
    well = lines[1].values["x_in_mid"]
    assert [cell and (cell.value, cell.text, cell.change) for cell in well] == [
        (0.125, "0.1250", ""), (0.25, "0.2500", "+0.1250"), (0.125, "0.1250", "0"),
    ]
    spacer = lines[2].values["thickness"]
    assert spacer[0] is None and spacer[1] is None and spacer[2] is not None and spacer[2].text == "2.000"
    assert [layer and layer["number"] for layer in lines[4].layers] == [4, 4, 5]
    assert lines[5].values["thickness"][2] is None  # the last run has no cap


def test_equal_lines_of_the_table_are_one() -> None:
    groups = grouped_lines(layer_lines([compared_layers(A, B)]), ["thickness", "x_in_mid"])
    assert [(group.numbers, group.name) for group in groups] == [("1", "buffer"), ("2, 4", "QW"), ("3", "QB"), ("5", "cap")]
    many = stack(*[("QB", 9, 9, 0.0), ("QW", 5, 3, 0.125)] * 9)
    groups = grouped_lines(layer_lines([compared_layers(many, many)]), ["thickness"])
    assert [group.numbers for group in groups] == ["1, 3, 5, \u2026, 17", "2, 4, 6, \u2026, 18"]


def test_changes_below_the_digits_shown_do_not_separate_periods() -> None:
    """Of the wells, the first is the same in both runs, the others differ by less than the 0.001 nm that are shown."""
    barrier = ("QB", 9, 9, 0.0)
    first = stack(*[barrier, ("QW", 5, 3, 0.125)] * 4, ("cap", 9, 9, 0.0))
    other = stack(*(part for extra in (0, 1e-5, 2e-5, 0) for part in (barrier, ("QW", 5, 3 + extra, 0.125))), ("cap", 9, 10, 0.0))
    lines = layer_lines([compared_layers(first, other)])
    changes = [line.values["thickness"][1].change for line in lines]
    assert changes == ["0", "0", "0", "<0.001", "0", "<0.001", "0", "0", "+1.000"]
    groups = grouped_lines(lines, ["thickness", "x_in_mid"])
    assert [(group.numbers, group.name) for group in groups] == [("1, 3, 5, 7", "QB"), ("2, 4, 6, 8", "QW"), ("9", "cap")]
    # A change of 0 would say that all wells are equal.
    assert [group.cells[0][1].change for group in groups] == ["0", "<0.001", "+1.000"]
    assert [group.visible for group in groups] == [False, False, True]
    # A change that is shown separates them.
    thicker = stack(*(part for extra in (0, 1e-5, 0.002, 0) for part in (barrier, ("QW", 5, 3 + extra, 0.125))), ("cap", 9, 9, 0.0))
    groups = grouped_lines(layer_lines([compared_layers(first, thicker)]), ["thickness"])
    assert [(group.numbers, group.cells[0][1].change) for group in groups] == [
        ("1, 3, 5, 7", "0"), ("2, 4, 8", "<0.001"), ("6", "+0.002"), ("9", "0")
    ]


def test_the_csv_has_all_layers_and_digits() -> None:
    text = layers_csv(layer_lines([compared_layers(A, B), compared_layers(A, C)]), ["a", "b,1", "c"])
    rows = list(csv.DictReader(io.StringIO(text)))
    assert [line["layer"] for line in rows] == ["buffer", "QW", "spacer", "QB", "QW", "cap"]
    assert float(rows[1]["x_in_mid, b,1"]) == 0.25 and float(rows[1]["x_in_mid, b,1 - a"]) == 0.125
    assert rows[2]["number, a"] == "" and rows[2]["thickness, a"] == "" and rows[2]["thickness, c - a"] == ""
    assert float(rows[2]["thickness, c"]) == 2.0 and rows[5]["number, c"] == ""


def test_recipes_differ_in_paths_and_values() -> None:
    first = vorlen.Recipe.load(MQW)
    other = first.copy()
    other["process_stages/stage_1/stage_1_3/tau"] = 72
    other["process_stages/stage_1/stage_1_2/T"] = (1080, 1000)
    assert recipe_differences(first, first) == []
    assert recipe_differences(first, other) == [
        RecipeDifference("process_stages/stage_1/stage_1_2/T", "cooling", "1080 to 1010", "1080 to 1000"),
        RecipeDifference("process_stages/stage_1/stage_1_3/tau", "InGaN well", "70", "72"),
    ]


def test_an_added_stage_of_a_recipe_is_one_difference() -> None:
    first = vorlen.Recipe.load(V_DEFECTS)
    other = first.copy()
    spacer = other.add_stage("process_stages/stage_1", name="spacer")
    assert recipe_differences(first, other) == [RecipeDifference(spacer, "spacer", None, "present")]
    assert recipe_differences(other, first) == [RecipeDifference(spacer, "spacer", "present", None)]
    # As a layer below, it moves the other stages up by one.
    other["process_stages/stage_1/name"], other[f"{spacer}/name"] = "spacer", "InGaN"
    names = [other[f"{stage}/name"] for stage in other.stages()]
    found = [one for one in recipe_differences(first, other) if one.first is None]
    assert names[0] == "spacer" and [one.path for one in found if one.stage == "spacer"] == ["process_stages/stage_1"]


# ---- the page


class Page(html.parser.HTMLParser):
    """The cells of each table, by its id, and the texts of list items and notes."""

    def __init__(self, text: str) -> None:
        super().__init__()
        self.tables: dict[str, list[list[str]]] = {}
        self.items: list[str] = []
        self._open: list[str] = []
        self._table = ""
        self._inside = ""
        self.feed(text)

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        if tag == "table":
            self._table = dict(attrs).get("id") or f"table {len(self.tables)}"
            self.tables[self._table] = []
        elif tag == "tr":
            self.tables[self._table].append([])
        elif tag in ("td", "th"):
            self.tables[self._table][-1].append("")
            self._inside = "cell"
        elif tag == "li":
            self.items.append("")
            self._inside = "item"

    def handle_endtag(self, tag: str) -> None:
        if tag in ("td", "th", "li"):
            self._inside = ""

    def handle_data(self, data: str) -> None:
        if self._inside == "cell":
            self.tables[self._table][-1][-1] += data
        elif self._inside == "item":
            self.items[-1] += data


def test_the_page_has_the_tables_and_sentences() -> None:
    page = Page(render([A, B, C], ["a", "b", "c"]))
    assert page.items[0] == (
        "b: the largest change is in layers 2, 4, QW: their indium fraction rises from 0.1250 to 0.2500 (+0.1250)."
    )
    assert page.items[1] == "c: the largest change: 1 layer is only in the first run, and 1 layer is only in it."
    both = Page(render([B, C], ["b", "c"])).items
    assert both == [
        "c: the largest change is in layers 2, 4 (in c 2, 5), QW: their indium fraction falls from 0.2500 to 0.1250 "
        "(-0.1250). 1 layer is only in it. 1 layer is only in the first run."
    ]
    assert Page(render([A, A], ["a", "same"])).items == ["same: no difference."]
    head, names, *lines = page.tables["layers"]
    assert head == ["No.", "Layer", "Thickness, nm", "In"] and names == ["a", "b", "c"] * 2
    assert ["2, 4", "QW", "3.000", "3.000", "0", "3.000", "0", "0.1250", "0.2500", "+0.1250", "0.1250", "0"] in lines
    assert ["3c", "spacer", "\u2013", "\u2013", "2.000", "", "\u2013", "\u2013", "0.0000", ""] in lines
    assert "The recipe of a is unknown, so recipes are not compared." in render([A, B], ["a", "b"])


def test_recipes_and_warnings_are_on_the_page() -> None:
    failed = failed_run(failing_recipe())
    text = render([vorlen.run(V_DEFECTS), failed], ["good", "failed"])
    page = Page(text)
    assert any(item.startswith("failed: ") for item in page.items)
    assert ["process_stages/stage_2/T", "GaN cap", "1030", "900"] in page.tables["recipes"]
    unknown = vorlen.Run(failed.content)
    assert "The recipe of x is unknown." in render([vorlen.run(V_DEFECTS), unknown], ["good", "x"])


def test_a_quantity_that_is_zero_has_no_column() -> None:
    text = render([A, B], ["a", "b"])
    assert Page(text).tables["layers"][0] == ["No.", "Layer", "Thickness, nm", "In"]
    assert not re.search(r'class="[^"]*idle', text.split("<table", 1)[1])
    # Indium is in a layer that agrees; of the layers that differ none has any.
    one, other = (stack(("well", 10, 5, 0.2), ("cap", 10, thickness, 0.0)) for thickness in (5, 6))
    text = render([one, other], ["one", "other"])
    heads = re.findall(r'<th scope="colgroup"[^>]*class="([^"]*)">([^<]*)<', text)
    assert ("of-first", "Thickness, nm") in heads and ("of-first idle", "In") in heads


def test_names_are_escaped() -> None:
    run = stack(("<b>&", 10, 20, 0.1))
    text = render([run, stack(("<b>&", 10, 21, 0.1))], ["</script><i>", "b"])
    assert "<i>" not in text and "</script>&lt;" not in text and "&lt;b&gt;&amp;" in text


def test_a_name_does_not_reverse_the_digits_after_it(tmp_path: Path) -> None:
    reverse = "\u202e"
    runs = [stack((f"well{reverse}", 10, thickness, 0.1)) for thickness in (20, 21)]
    for page in (vorlen.compare(runs, tmp_path / "c.html"), vorlen.report(runs[0], tmp_path / "r.html")):
        text = page.read_text("utf-8")
        assert reverse not in text and ">well<" in text


def test_runs_without_a_common_layer_are_compared_as_they_are() -> None:
    other = stack(("x", 10, 20, 0.1), ("y", 5, 4, 0.2))
    text = render([A, other], ["a", "b"])
    assert 'id="align"' not in text
    page = Page(text)
    assert len(page.tables["layers"]) == 2 + 6  # the wells of the first are one line
    assert page.items[0] == "b: none of its layers corresponds to a layer of the first run."


@pytest.fixture(scope="module")
def results(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A folder with the results of wells grown for 70 and 72 s, and of five of them."""
    folder = tmp_path_factory.mktemp("results")
    text = MQW.read_text("utf-8")
    for name, old, new in (
        ("w70", "", ""), ("w72", '<tau val="70"/>', '<tau val="72"/>'),
        ("five", '<n_periods val="3"/>', '<n_periods val="5"/>'),
    ):
        (folder / f"{name}.xml").write_text(text.replace(old, new) if old else text)
        vorlen.run(folder / f"{name}.xml", folder / f"{name}.result.txt")
    return folder


def test_the_command_writes_the_page(
    results: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch
) -> None:
    files = [str(results / f"{name}.result.txt") for name in ("w70", "w72", "five")]
    monkeypatch.chdir(tmp_path)
    assert main(["compare", *files]) == 0
    assert capsys.readouterr().out == "comparison.html\n"
    page = Page((tmp_path / "comparison.html").read_text("utf-8"))
    assert page.tables["recipes"][1:] == [
        ["process_stages/stage_1/stage_1_3/tau", "InGaN well", "70", "72", "70"],
        ["process_stages/stage_1/n_periods", "", "3", "3", "5"],
    ]
    assert main(["compare", *files[:2], "--label", "70 s", "--label", "72 s", "-o", "p.html"]) == 0
    assert "70 s and 72 s" in (tmp_path / "p.html").read_text("utf-8")


def test_the_command_says_what_is_wrong(
    results: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch
) -> None:
    good, other = (str(results / f"{name}.result.txt") for name in ("w70", "w72"))
    monkeypatch.chdir(tmp_path)
    Path("empty.txt").write_text("")
    before = Path(other).read_bytes()
    for arguments, text in (
        ([good], "compare needs at least two result files, got 1"),
        ([good, "none.txt"], "none.txt"),
        ([good, "empty.txt"], "empty.txt"),
        ([good, other, "--label", "a"], "--label must be given once for each result: 2, got 1"),
        ([good, other, "-o", other], "w72.result.txt"),
        ([good, other, "-o", str(results / "w70.xml")], "w70.xml"),
        ([good, other, "-o", "no/page.html"], "no"),
    ):
        assert main(["compare", *arguments]) == 1, arguments
        message = capsys.readouterr().err
        assert message.startswith("vorlen: ") and text in message, message
    assert Path(other).read_bytes() == before and sorted(tmp_path.iterdir()) == [tmp_path / "empty.txt"]


# ---- in a browser


def curves(browser: Browser, axis: str) -> list[dict]:
    """The curves of the first panel of the chart that is shown."""
    return browser.run(
        f"return [...document.querySelectorAll('.pair:not([hidden]) .chart.{axis}')][0].data"
        ".filter((curve) => curve.yaxis === 'y').map((curve) => ({ name: curve.name, x: curve.x, y: curve.y }))"
    )


def choose(browser: Browser, mode: str) -> None:
    browser.run("const s = document.getElementById('align'); s.value = arguments[0]; s.dispatchEvent(new Event('change'))", mode)
    browser.wait("return document.querySelectorAll('.pair:not([hidden]) .main-svg').length > 1")


def rises(curve: dict) -> list[float]:
    """Positions at which indium rises through 0.1."""
    points = [(x, y) for x, y in zip(curve["x"], curve["y"]) if x is not None]
    return [x for (_, before), (x, y) in zip(points, points[1:]) if before < 0.1 <= y]


def test_the_charts_in_a_browser(browser: Browser, results: Path, tmp_path: Path) -> None:
    runs = [vorlen.read(results / f"{name}.result.txt", recipe=results / f"{name}.xml") for name in ("w70", "w72", "five")]
    page = vorlen.compare(runs, tmp_path / "page.html", labels=["70 s", "72 s", "five"])
    browser.open(page)
    pictures = os.environ.get("VORLEN_SCREENSHOTS")
    if pictures:
        browser.screenshot(Path(pictures) / "compare.png")
    for axis, near in (("time", 1.0), ("height", 0.05)):
        drawn = curves(browser, axis)
        assert [curve["name"] for curve in drawn] == ["70 s", "72 s", "five"]
        third = [rises(curve)[2] for curve in drawn]
        assert max(third) - min(third) < near, (axis, third)
        assert len(rises(drawn[2])) == 5 and len(rises(drawn[0])) == 3
        assert None in drawn[0]["x"] and None not in drawn[2]["x"]  # two of the periods are not in the first run
    # Constant temperatures are drawn level: no line rises by a fraction of a pixel on a long way.
    paths = browser.run(
        "const chart = document.querySelector('.chart.time');"
        "const axis = chart._fullData.find((c) => Math.max(...c.y) > 900).yaxis.replace('y', '');"
        "return [...chart.querySelectorAll(`.xy${axis} .js-line`)].map((line) => line.getAttribute('d'))"
    )
    assert len(paths) == 2 + 2 + 1  # two runs are interrupted
    for path in paths:
        points = [[float(number) for number in point.split(",")] for point in re.findall(r"[\d.-]+,[\d.-]+", path)]
        assert len(points) > 10
        assert not any(
            abs(b[0] - a[0]) > 4 and 0.02 < abs(b[1] - a[1]) < 0.2 * abs(b[0] - a[0]) for a, b in itertools.pairwise(points)
        )
    place = browser.run(
        "const r = document.querySelector('.chart.time .nsewdrag').getBoundingClientRect();"
        "return [r.left + 0.5 * r.width, r.top + 0.5 * r.height]"
    )
    browser.hover(*place)
    browser.wait("return document.querySelectorAll('.readout:not([hidden]) tr').length > 0")
    names = browser.run("return [...document.querySelectorAll('.readout tr')].map((row) => row.cells[1].textContent)")
    assert {"indium, 72 s", "growth rate, 70 s", "strain, five", "temperature, 72 s"} <= set(names)
    assert browser.run("return document.querySelectorAll('.readout-place:not([hidden])').length") == 2
    choose(browser, "none")
    third = [rises(curve)[2] for curve in curves(browser, "time")]
    assert third[1] - third[0] == pytest.approx(4.0, abs=0.5)  # two wells of 2 s more
    choose(browser, "start")
    drawn = curves(browser, "time")
    third = [rises(curve)[2] for curve in drawn]
    assert max(third) - min(third) < 1.0
    assert len([x for x in drawn[0]["x"] if x is None]) >= 3  # after each well
    choose(browser, "stage")

    assert browser.run("return document.querySelectorAll('.pair').length") == 3
    assert browser.run("return [...document.querySelectorAll('.pair')].filter((pair) => pair.offsetHeight).length") == 1

    browser.run("document.querySelector('#runs input[value=\"2\"]').click()")
    browser.wait("return document.querySelector('.pair:not([hidden]) .chart.time').data.every((c) => !c.name.includes('five'))")
    browser.run("document.querySelector('#runs input[value=\"2\"]').click()")

    shown = "return [...document.querySelectorAll('#layers tbody tr')].filter((line) => line.offsetHeight).length"
    few = browser.run(shown)
    browser.run("document.getElementById('only-different').click()")
    assert browser.run(shown) > few

    saved = browser.downloaded(tmp_path_of(tmp_path, "csv"), "a[data-csv=layers]").read_text("utf-8")
    assert len(list(csv.reader(io.StringIO(saved)))) == 1 + 23
    picture = browser.downloaded(tmp_path_of(tmp_path, "svg"), ".pair:not([hidden]) a[data-svg=height]").read_text("utf-8")
    assert picture.startswith("<svg") and "72 s" in picture

    browser.open(page, dark=True)
    background = "return getComputedStyle(document.body).backgroundColor"
    dark = browser.run(background)
    assert sum(map(int, dark[4:-1].split(","))) < 150
    assert browser.run("return document.querySelector('.chart.time').data[0].line.color") != "#0072b2"
    if pictures:
        browser.screenshot(Path(pictures) / "compare_dark.png")
    browser.open(page, width=390, height=800, phone=True)
    assert browser.run("return document.documentElement.scrollWidth") <= 390
    assert browser.console() == []


def tmp_path_of(folder: Path, name: str) -> Path:
    """A new folder for downloads."""
    (folder / name).mkdir()
    return folder / name
