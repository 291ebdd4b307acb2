"""vorlen.read: every digit, every layer name, and the line number of every fault."""

from __future__ import annotations

import math
import re
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import vorlen
from support import HEADING, MQW, TITLE, V_DEFECTS, failing_recipe, result, row
from vorlen._runs.columns import RELAXATION_COLUMNS, SURFACE_COLUMNS
from vorlen._runs.result_check import looks_physical, unphysical_text
from vorlen._runs.result_file import COLUMN_NAMES, parse_layers, parse_profile


def test_numbers_are_read_to_the_last_bit() -> None:
    content = vorlen.run(V_DEFECTS).content.decode()
    rows = content.split(HEADING)[1].splitlines()
    expected = [[float(word) for word in line.split()] for line in rows]
    profile = parse_profile(content.encode())
    assert np.array_equal(profile[list(COLUMN_NAMES)].to_numpy(), np.array(expected))
    assert list(profile["active"]) == [line.endswith(" ") for line in rows]


@settings(max_examples=50, deadline=None)
@given(st.lists(st.floats(width=64), min_size=19, max_size=19), st.booleans())
def test_any_double_survives_the_file(numbers: list[float], active: bool) -> None:
    words = []
    for number in numbers:  # as the library writes them, including the sign of NaN
        text = f"{number:.16e}".replace("e+", "e+0").replace("e-", "e-0")
        words.append("-nan" if math.isnan(number) and math.copysign(1, number) < 0 else text)
    line = " ".join(words) + (" \n" if active else "\n")
    read = parse_profile(result([], [line]).encode())
    assert np.array_equal(read[list(COLUMN_NAMES)].to_numpy()[0], np.array(numbers), equal_nan=True)
    assert bool(read["active"][0]) is active


@settings(max_examples=100, deadline=None)
@given(st.lists(st.text(st.characters(blacklist_categories=("Cs",)), max_size=20), max_size=5))
def test_any_layer_name_survives_the_file(names: list[str]) -> None:
    # Two layers can't be distinguished from one whose name contains the text between them.
    names = [name for name in names if not re.search(r'" \S+ \S+\n"', name)]
    content = result([(name, 1.5, 2e-05) for name in names], [row()])
    layers = parse_layers(content.encode())
    assert list(layers["name"]) == names
    assert list(layers["duration"]) == [1.5] * len(names) and list(layers["thickness"]) == [2e-05] * len(names)


@pytest.mark.parametrize(
    "name",
    [
        'a" 1 2\nb',
        'a" 1 2\n',
        '" 1 2\nb',
        "</LAYERS>",
        "a\n</LAYERS>\nb",
        f"a\n</LAYERS>\n{HEADING}b",
        f'a" 1 2\n</LAYERS>\n{HEADING}{row()}',
        "<LAYERS>",
        '"',
        '\n"',
    ],
)
def test_a_name_that_looks_like_lines_of_the_file_survives(name: str) -> None:
    for names in ([name], ["x", name, "y"], [name, name]):
        layers = parse_layers(result([(each, 3, 4) for each in names], [row(), row()]).encode())
        assert list(layers["name"]) == names and list(layers["duration"]) == [3] * len(names)


@pytest.mark.parametrize(
    ("content", "message"),
    [
        ("", "is empty"),
        ("something else\n", 'is not a result file: its first line is not "VORLEN'),
        ("something else", 'is not a result file: its first line is not "VORLEN'),
        (TITLE, "line 2: expected <LAYERS>"),
        (TITLE + "<LAYERS>\n", "line 2: the list of layers is not closed"),
        (TITLE + "<LAYERS>\nGaN 1 2\n</LAYERS>\n" + HEADING, "line 3: not a layer"),
        (TITLE + '<LAYERS>\n"GaN" 1\n</LAYERS>\n' + HEADING, "line 3: not a layer"),
        (TITLE + '<LAYERS>\n"a" 1 2\n"b\n" 1\n</LAYERS>\n' + HEADING, "line 4: not a layer"),
        (TITLE + "<LAYERS>\n</LAYERS>\n#time z\n", "line 4: expected #time"),
        (result([("a", 1, 1)], [row(), row()[:-2]]), "line 7: the last line is truncated"),
        (result([("a", 1, 1)], [row(), row()[23:], row()]), "line 7: not a row of 19 numbers"),
        (result([("a", 1, 1)], [row(), "\n"]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row()[:-1] + " \n"]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), " " + row()]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row().replace(" ", "  ", 1)]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row().replace(" ", "\t", 1)]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row().replace("0", "x", 1)]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row().replace("e+00", "e", 1)]), "line 7: not a row"),
        (result([("a", 1, 1)], [row(), row(active=False).replace("\n", " 1.0\n")]), "line 7: not a row"),
        # 18 numbers in one line and 20 in the next together are as many as in two rows
        (result([("a", 1, 1)], [row()[23:], "1.0 " + row()]), "line 6: not a row"),
        (result([("a", 1, 1)], [row().replace(" ", "-", 1), row()]), "line 6: not a row"),
    ],
    ids=range(21),
)
def test_a_damaged_file_is_rejected_with_the_line_number(content: str, message: str, tmp_path: Path) -> None:
    path = tmp_path / "r.txt"
    path.write_text(content)
    with pytest.raises(vorlen.ResultFileError) as caught:
        vorlen.read(path)
    assert message in str(caught.value) and str(path) in str(caught.value)


@settings(max_examples=150, deadline=None)
@given(st.data())
def test_no_change_of_one_byte_in_a_row_goes_unnoticed_or_ends_in_another_error(data: st.DataObject) -> None:
    content = bytearray(result([("a", 1, 1)], [row(time=float(i), z=1.5) for i in range(3)]).encode())
    begin = content.index(b"#time")
    place = data.draw(st.integers(begin, len(content) - 1))
    content[place] = data.draw(st.integers(0, 255))
    try:
        profile = parse_profile(bytes(content))
    except vorlen.ResultFileError as error:
        assert "line " in str(error)
    else:
        assert profile.shape == (3, 20)


def test_the_file_of_a_failed_run_can_be_read(tmp_path: Path) -> None:
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(failing_recipe(), tmp_path / "r.result.txt")
    run = vorlen.read(tmp_path / "r.failed.txt")
    assert run.failed and run.text.split("\n")[0] == "Step size has become too small"  # from the status file
    (tmp_path / "r.status.json").unlink()
    run = vorlen.read(tmp_path / "r.failed.txt")
    assert run.failed and run.text == ""


def test_the_status_file_of_another_run_is_ignored(examples: Path, tmp_path: Path) -> None:
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(failing_recipe(), tmp_path / "r.result.txt")
    (tmp_path / "r.result.txt").write_bytes(vorlen.run(examples / "algan_gan_hemt.xml").content)
    assert not vorlen.read(tmp_path / "r.result.txt").failed


def test_every_column_has_a_unit_and_a_meaning() -> None:
    profile = vorlen.run(V_DEFECTS).profile
    assert set(profile.attrs["units"]) == set(profile.attrs["meanings"]) == set(COLUMN_NAMES)
    assert profile.attrs["units"]["rho_td_t"] == "cm^-2"


def detailed(recipe: Path) -> vorlen.Recipe:
    text = recipe.read_text("utf-8")
    return vorlen.Recipe(text.replace("</NonstSurfChem>", '<output><detail val="true"/></output></NonstSurfChem>'))


@pytest.mark.parametrize("scheme", ["staged", "continuous"])
@pytest.mark.parametrize(("recipe", "more"), [(MQW, 6), (V_DEFECTS, 20)])
def test_detail_columns_follow_the_others_and_change_nothing_else(recipe: Path, more: int, scheme: str) -> None:
    plain = vorlen.run(recipe, scheme=scheme)
    run = vorlen.run(detailed(recipe), scheme=scheme)
    names = [*COLUMN_NAMES, *(column.name for column in SURFACE_COLUMNS + RELAXATION_COLUMNS)][: 19 + more]
    assert list(run.profile) == [*names, "active"]
    assert set(run.profile.attrs["units"]) == set(names)
    assert run.profile[[*COLUMN_NAMES, "active"]].equals(plain.profile[[*COLUMN_NAMES, "active"]])
    assert run.layers.equals(plain.layers)
    assert (run.profile.loc[run.profile["active"], "c_n"] > 0).all()
    assert (run.profile.loc[~run.profile["active"], names[20:]] == 0).all(axis=None)


def test_a_blank_at_the_end_of_a_row_of_the_widest_table_is_a_fault(tmp_path: Path) -> None:
    content = vorlen.run(detailed(V_DEFECTS)).content
    assert len(parse_profile(content)) > 100
    with pytest.raises(vorlen.ResultFileError, match="not a row of 39 numbers"):
        parse_profile(content[:-1] + b" \n")


@pytest.mark.parametrize("columns", [6, 20])
def test_unphysical_rows_are_found_in_files_with_detail(columns: int) -> None:
    headings = " ".join(column.heading for column in (SURFACE_COLUMNS + RELAXATION_COLUMNS)[:columns])
    detail = " ".join(["1.0", "1.0", *["0.0"] * (columns - 2)])
    rows = [row(x_in=x, x_ga=1 - x).removesuffix(" \n") + " " + detail + (" \n" if columns == 6 else "\n") for x in (0.1, 4.8)]
    content = result([("a", 1, 1)], rows).replace(HEADING, HEADING.removesuffix("\n") + f" {headings}\n")
    profile = parse_profile(content.encode())
    assert list(profile["active"]) == [True, True]
    assert profile["c_in"].tolist() == [1.0, 1.0]
    assert "indium fraction is 4.8" in unphysical_text(profile, list)
    # 19 rows, so that the number of words is a multiple of that of the main columns
    assert not looks_physical("".join([rows[0]] * 18 + rows[1:]).encode())
    assert looks_physical("".join([rows[0]] * 19).encode())
