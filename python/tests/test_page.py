"""The frame that all pages share: what is embedded, what is escaped, and when the file is written."""

from __future__ import annotations

import re
from pathlib import Path

import pandas as pd
import pytest

from vorlen._design.report import write_report
from vorlen._pages.numbers import fraction, number
from vorlen._pages.page import ASSETS, page, write_page


def design(**content: object) -> str:
    shown = {"targets": [], "knobs": [], "warnings": [], "success": True, "met": 0, "runs": 3}
    return page("design.html", "led.xml", **shown | content)


def test_every_layout_uses_the_frame_and_every_asset_is_used() -> None:
    layouts = {path.name: path.read_text("utf-8") for path in ASSETS.glob("*.html")}
    frame = layouts.pop("base.html")
    included = set(re.findall(r'{% include "([^"]+)"', "".join(layouts.values())))
    for name, text in layouts.items():
        assert name in included or text.startswith('{% extends "base.html" %}'), name
        assert "<html" not in text and "<script" not in text and "<style" not in text, name
    sources = frame + "".join(layouts.values()) + (ASSETS.parent / "_pages" / "page.py").read_text("utf-8")
    for path in [*ASSETS.glob("*.js"), *ASSETS.glob("*.css")]:
        assert f'"{path.name}"' in sources or path.name == "plotly.min.js", path.name


def test_a_page_embeds_what_its_layout_names() -> None:
    text = page("map.html", "a.xml", data={"key": 1}, axes=[{}, {}], sentences=["One."], warnings=[])
    scripts = re.findall(r"<script[^>]*>(.*?)</script>", text, re.DOTALL)
    assert scripts[0] == '{"key":1}' and scripts[-1] == (ASSETS / "map.js").read_text("utf-8")
    assert (ASSETS / "map.css").read_text("utf-8") in text and "<li>One.</li>" in text
    assert "<title>a.xml – process map</title>" in text and "licences are in the source" in text
    plain = design()
    assert "<script" not in plain and 'class="sentences"' not in plain and 'class="warnings"' not in plain


def test_texts_are_escaped_and_data_cannot_end_its_script() -> None:
    text = design(warnings=["<b>&"], data={"name": "</script><b>"})
    assert "<b>" not in text and "&lt;b&gt;&amp;" in text
    assert text.count("</script") == 1 and r'{"name":"\u003c/script>\u003cb>"}' in text


def test_data_that_is_not_json_is_an_error() -> None:
    with pytest.raises(ValueError, match="JSON"):
        design(data={"x": float("nan")})


def test_a_place_that_cannot_be_written_is_found_before_the_work(tmp_path: Path) -> None:
    source = tmp_path / "led.xml"
    source.write_text("<recipe/>")
    with pytest.raises(ValueError, match="is an input"):
        write_page(source, lambda: pytest.fail("the page was made"), inputs=iter([None, source]))
    with pytest.raises(FileNotFoundError):
        write_page(tmp_path / "none" / "page.html", lambda: pytest.fail("the page was made"))
    assert source.read_text() == "<recipe/>"


def test_the_old_page_stays_if_the_new_one_cannot_be_made(tmp_path: Path) -> None:
    path = tmp_path / "page.html"
    path.write_text("old")
    with pytest.raises(ZeroDivisionError):
        write_page(path, lambda: str(1 // 0))
    assert path.read_text() == "old" and list(tmp_path.iterdir()) == [path]


def test_a_design_has_no_character_that_reverses_text(tmp_path: Path) -> None:
    reverse = "\u202e"
    columns = ("knob", "unit", "before", "after", "low", "high", "at_limit")
    target = {"layer": f"well{reverse}", "quantity": "thickness", "unit": "nm", "target": 3.0, "bound": "",
              "start": 2.0, "reached": 3.0, "tolerance": 0.1, "met": True}
    made = write_report(pd.DataFrame([target]), pd.DataFrame(columns=columns), [], 1, None, tmp_path / "d.html")
    text = made.read_text("utf-8")
    assert reverse not in text and ">well<" in text


@pytest.mark.parametrize(
    ("value", "digits", "unit", "text"),
    [
        (None, 4, "nm", "–"), (float("nan"), 4, "", "–"), (0.0, 4, "", "0"), (-1e-12, 4, "", "0"),
        (-2.5, 4, "", "−2.5"), (12.3456, 3, "nm", "12.3\u00a0nm"), (1.5e9, 3, "", "1.5×10⁹"), (-2e-8, 3, "", "−2×10⁻⁸"),
        (7, 4, "", "7"),
    ],
)
def test_numbers_are_typeset(value: float | None, digits: int, unit: str, text: str) -> None:
    assert number(value, digits, unit) == text


@pytest.mark.parametrize(
    ("value", "text"),
    [(None, "–"), (float("nan"), "–"), (0.0, "0"), (1.0, "1"), (0.99996, "1"), (0.12345, "0.1235"), (-0.2, "−0.2000")],
)
def test_fractions_have_four_decimals(value: float | None, text: str) -> None:
    assert fraction(value) == text
