"""Files that the right half of the live page saves."""

from __future__ import annotations

import csv
import io
import re
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from live import Live
from support import tool

SVG = "{http://www.w3.org/2000/svg}"

pytestmark = pytest.mark.usefixtures("whole_depth")


def test_the_result_file_and_the_tables_are_saved(live: Live, tmp_path: Path) -> None:
    folders = {name: tmp_path / name for name in ("result", "layers", "rows")}
    for folder in folders.values():
        folder.mkdir()
    files = {name: live.browser.downloaded(folder, f".growth-files [data-file={name}]") for name, folder in folders.items()}
    assert [path.name for path in files.values()] == ["wells.result.txt", "wells-layers.csv", "wells-rows.csv"]
    bytes_of_run = bytes(live.browser.run("return [...vorlen.last.outcome.result]"))
    assert files["result"].read_bytes() == bytes_of_run and len(bytes_of_run) > 400_000
    for name, option in (("layers", "--csv"), ("rows", "--rows")):
        expected = subprocess.run([tool(), "show", option, files["result"]], capture_output=True, encoding="utf-8", check=True).stdout
        saved, wanted = (list(csv.reader(io.StringIO(text, newline=""))) for text in (files[name].read_text("utf-8"), expected))
        assert saved[0] == wanted[0] and len(saved) == len(wanted)
        for one, other in zip(saved[1:], wanted[1:]):
            assert [number_or_text(cell) for cell in one] == [number_or_text(cell) for cell in other]


def test_files_have_the_name_of_the_recipe_also_if_only_the_name_changes(live: Live, tmp_path: Path) -> None:
    live.set(live.xml(), "renamed.xml")
    assert live.browser.run("return document.getElementById('name').textContent") == "renamed.xml"
    assert live.browser.downloaded(tmp_path, ".growth-files [data-file=layers]").name == "renamed-layers.csv"


def number_or_text(cell: str) -> float | str:
    try:
        return float(cell)
    except ValueError:
        return cell


@pytest.mark.parametrize("name", ["charts", "stack"])
def test_saved_pictures_stand_alone_and_are_light(name: str, live: Live, tmp_path: Path) -> None:
    live.press("Keep this")
    live.browser.dark_mode(True)
    path = live.browser.downloaded(tmp_path, f".growth-files [data-file={name}]")
    live.browser.dark_mode(False)
    text = path.read_text("utf-8")
    root = ElementTree.fromstring(text)
    assert path.name == f"wells-{name}.svg" and root.tag == f"{SVG}svg"
    assert root.find(f"{SVG}rect").get("fill") == "#ffffff" and float(root.get("width")) > 200
    style = root.find(f"{SVG}style").text
    used = set(re.findall(r"var\((--[\w-]+)\)", text))
    assert used and used <= set(re.findall(r"(--[\w-]+):", style))
    assert "--plot-ink: #1c2733" in style and not re.search(r"href|url\((?!#clip)", text)
    words = "".join(root.itertext())
    assert "InGaN well" in words and ("Variant 1" in words) == (name == "charts")
