"""vorlen.Recipe: unchanged parts stay byte for byte, and the library reads the changed values."""

from __future__ import annotations

import csv
import ctypes
import io
import math
import pickle
import re
import subprocess
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from lxml import etree

import vorlen
from support import PLAIN_LAYER, tool
from vorlen._recipe.elements import ELEMENTS
from vorlen._recipe.kinds import KNOWN, known_element, leading_integer

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted((ROOT / "examples").glob("*.xml"))
V_DEFECTS = ROOT / "examples" / "ingan_v_defects.xml"
MQW = ROOT / "examples" / "ingan_gan_mqw.xml"


def values_of(content: bytes) -> dict[str, dict[str, str]]:
    """All attributes by the path of their element, read by another parser."""
    root = etree.fromstring(content)
    tree = root.getroottree()
    return {tree.getpath(element): dict(element.attrib) for element in root.iter(etree.Element)}


# ---- reading


def test_a_ramp_is_a_pair_and_a_single_value_a_number() -> None:
    recipe = vorlen.Recipe.load(MQW)
    assert recipe["process_stages/stage_1/stage_1_2/T"] == (1080.0, 1010.0)
    assert recipe["process_stages/stage_1/stage_1_2/T/end"] == 1010.0
    assert recipe["process_stages/stage_1/stage_1_2/tau"] == 20.0
    assert recipe["chemistry/Kd_In"] == {"A": 1e13, "Ta": 23200.0, "Tn": 0.0}
    assert recipe["chemistry:Kd_In:Ta"] == 23200.0  # a path as messages write it
    assert recipe["material"] == "InGaN"


def test_an_unknown_path_names_the_nearest_ones() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    with pytest.raises(KeyError, match=r"process_stages/stage_1/TT.*process_stages/stage_1/T\b"):
        recipe["process_stages/stage_1/TT"]
    with pytest.raises(KeyError, match="process_stages/stage_1/gas_species/Q/TMIn"):
        recipe["stage_1/TMIn"] = 3
    with pytest.raises(KeyError, match="group"):
        recipe["process_stages"]
    assert recipe.get("process_stages/stage_3/T", 5) == 5
    assert "process_stages/stage_1/T" in recipe and "process_stages/stage_1/TT" not in recipe


def test_all_listed_paths_can_be_read() -> None:
    for path in EXAMPLES:
        recipe = vorlen.Recipe.load(path)
        assert len(recipe.paths()) > 50
        for place in recipe.paths():
            assert recipe[place] is not None


def test_the_first_of_two_elements_counts_as_in_the_library() -> None:
    text = V_DEFECTS.read_text().replace('<tau val="124"/>', '<tau val="60"/><tau val="124"/>')
    recipe = vorlen.Recipe(text)
    assert recipe["process_stages/stage_1/tau"] == 60.0
    assert vorlen.run(recipe).layers["duration"][2] == 60.0


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("<NonstSurfChem><material></NonstSurfChem>", "line 1: mismatched tag"),
        ("", "no element found"),
        ("<other/>", "the root element is other, not NonstSurfChem"),
        ('<?xml version="1.0" encoding="no-such"?>\n<NonstSurfChem/>', "encoding"),
    ],
)
def test_text_that_is_not_a_recipe_is_rejected_with_a_reason(text: str, message: str) -> None:
    with pytest.raises(vorlen.RecipeError, match=message):
        vorlen.Recipe(text)


@pytest.mark.parametrize(
    ("source", "message"),
    [
        ("<NonstSurfChem/>".encode("utf-16"), "recipe: the encoding UTF-16 is not supported; save the recipe as UTF-8"),
        ('<?xml version="1.0" encoding="utf-16"?><NonstSurfChem/>', "not supported"),
        ('<?xml version="1.0" encoding="hex"?><NonstSurfChem/>', "recipe: .hex. is not a text encoding"),
        ('<NonstSurfChem note="\ud800"/>', "not Unicode, at character 21"),
        ("<NonstSurfChem>" + "<a>" * 100000, "recipe: elements are nested more than 500 deep"),
        (b"<NonstSurfChem/>\0", "line 1: not well-formed"),
    ],
)
def test_a_text_that_can_not_be_read_is_rejected_with_a_reason(source: str | bytes, message: str) -> None:
    with pytest.raises(vorlen.RecipeError, match=message):
        vorlen.Recipe(source)


# ---- changing values


def test_one_value_for_a_ramp_is_begin_and_end() -> None:
    recipe = vorlen.Recipe.load(MQW)
    recipe["process_stages/stage_1/stage_1_2/T"] = 1044.5
    assert b'<T val="1044.5" end="1044.5"/>' in recipe.to_bytes()


@pytest.mark.parametrize(
    ("path", "value", "error"),
    [
        ("process_stages/stage_1/tau", (1, 2), ValueError),
        ("process_stages/stage_1/T", (1, 2, 3), ValueError),
        ("process_stages/stage_1/tau", float("nan"), ValueError),
        ("process_stages/stage_1/tau", None, TypeError),
        ("process_stages/stage_1/tau", True, TypeError),
        ("chemistry/Kd_In", 3.0, ValueError),
        ("chemistry/Kd_In", {"B": 3.0}, KeyError),
        ("process_stages/stage_1/tau/end", 3.0, KeyError),
        ("process_stages/stage_9/tau", 3.0, KeyError),
    ],
)
def test_an_invalid_value_is_rejected_and_changes_nothing(path: str, value: object, error: type) -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    with pytest.raises(error):
        recipe[path] = value
    assert recipe.to_bytes() == V_DEFECTS.read_bytes()


TAU, PERIODS = "process_stages/stage_2/tau", "process_stages/stage_1/n_periods"


@pytest.mark.parametrize(
    ("path", "value", "error", "text"),
    [
        # The library would read 2 of each of the first three, and 12 of the next.
        (PERIODS, 2.97, ValueError, "stage_1/n_periods takes an integer, got 2.97"),
        (PERIODS, "2.97", ValueError, "takes an integer, got '2.97'"),
        (PERIODS, "2e1", ValueError, "takes an integer, got '2e1'"),
        (TAU, "12,5", ValueError, "takes a number without a unit, got '12,5'; the decimal separator is the point"),
        (TAU, "12 m", ValueError, "tau: '12 m' has the unit m, expected s"),
        (TAU, "abc", ValueError, "takes a number"),
        (TAU, "", ValueError, "takes a number"),
        (TAU, "nan", ValueError, "takes a number"),
        (TAU, "1e999", ValueError, "takes a number"),
        (TAU, "1_0", ValueError, "takes a number"),
        (TAU, "\u0661", ValueError, "takes a number"),  # a digit, but not one of the library's
        (TAU, 10**400, ValueError, "inf is not finite"),
        (TAU, float("-inf"), ValueError, "-inf is not finite"),
        (TAU, True, TypeError, "stage_2/tau: a value in a recipe must be a number or a text, got True"),
        (TAU, np.bool_(True), TypeError, "must be a number or a text, got bool_"),
        (TAU, 1j, TypeError, "must be a number or a text, got complex"),
        (PERIODS, True, TypeError, "got True"),
        (PERIODS, float("nan"), ValueError, "takes an integer, got nan"),
        (PERIODS, float("inf"), ValueError, "takes an integer, got inf"),
        (PERIODS, 2**31, ValueError, "takes an integer, got 2147483648"),
        (PERIODS, "2147483648", ValueError, "takes an integer"),
        ("process_stages/stage_2/T", (1000, "hot"), ValueError, "takes a number"),
        ("process_stages/stage_1/stage_1_2/gas_species/Q/TMIn/end", "0.5 l/min", ValueError, "expected sccm, slm"),
        (PERIODS, "3 s", ValueError, "takes an integer, got '3 s'"),
        ("integration/tolerance", "1e-6 s", ValueError, "takes a number without a unit"),
        ("chemistry/Kd_In", {"Ta": "2 eV"}, ValueError, "expected K"),
        ("chemistry/Kd_In/A", "?", ValueError, "takes a number"),
        ("material", "GaInN", ValueError, "material takes one of InGaN, AlGaN, AlInN, AlInGaN, got 'GaInN'"),
        ("material", " InGaN", ValueError, "takes one of"),
        ("material", 1, ValueError, "takes one of"),
        ("material", "\ud800", ValueError, "takes one of"),
        ("integration/scheme", "quick", ValueError, "integration/scheme takes one of continuous, staged, got 'quick'"),
        ("output/detail", True, TypeError, "got True"),
        ("integration/tolerance", "fine", ValueError, "takes a number"),
    ],
)
def test_a_value_that_the_library_would_misread_is_rejected(path, value, error, text) -> None:
    recipe = vorlen.Recipe.load(MQW)
    with pytest.raises(error, match=text):
        recipe[path] = value
    assert recipe.to_bytes() == MQW.read_bytes()


@pytest.mark.parametrize(
    ("path", "value", "written"),
    [
        (PERIODS, 3.0, "3"),
        (PERIODS, np.int64(4), "4"),
        (PERIODS, " +5 ", " +5 "),
        (TAU, "1.0E+01", "1.0E+01"),
        (TAU, " .5", " .5"),
        (TAU, np.float64(12.5), "12.5"),
        (TAU, "2 min", "120"),
        ("process_stages/stage_2/name", "12 s", "12 s"),
        ("material", "ingan", "ingan"),
        ("output/detail", "TRUE", "TRUE"),
        ("process_stages/stage_2/name", "3,5 nm", "3,5 nm"),
        ("process_stages/stage_2/name", 7, "7"),
    ],
)
def test_a_value_that_the_library_reads_as_it_is_meant_is_written(path, value, written) -> None:
    recipe = vorlen.Recipe.load(MQW).set(path, value)
    assert recipe._document.attribute(path) == written


def test_only_the_letters_a_to_z_have_two_cases() -> None:
    recipe = vorlen.Recipe.load(MQW)
    with pytest.raises(ValueError, match="takes one of"):
        recipe["pre_stages/pre_stage_1/dislocations/disl_model"] = "\u212a"  # the kelvin sign, k in lower case


def test_elements_and_attributes_that_the_library_does_not_read_take_any_text() -> None:
    own = '<own val="1" note="x"/><tau note="x" val="1"/></NonstSurfChem>'
    recipe = vorlen.Recipe(PLAIN.replace("</NonstSurfChem>", own))
    recipe = vorlen.Recipe(str(recipe).replace('<cut_angle val="', '<cut_angle note="" val="'))
    recipe["own"] = "12,5 K"
    recipe["own/note"] = "abc"
    recipe["tau"] = {"val": "long", "note": 2.5}
    recipe["stress/cut_angle/note"] = "from the supplier"
    assert recipe["own"] == {"val": "12,5 K", "note": "abc"} and recipe["tau"] == {"val": "long", "note": 2.5}


def test_integers_are_read_as_integers_and_names_as_texts() -> None:
    recipe = vorlen.Recipe.load(MQW).set("process_stages/stage_2/name", 7)
    assert repr(recipe[PERIODS]) == "3" and recipe["process_stages/stage_2/name"] == "7"
    assert vorlen.Recipe(str(recipe).replace('<n_periods val="3"', '<n_periods val="3.0"'))[PERIODS] == "3.0"


def test_every_known_path_is_found_with_numbers_for_its_signs() -> None:
    for path, known in KNOWN.items():
        if known.attributes:
            assert known_element(path.replace("#", "12")) is known
    stage = "process_stages/stage_#/"
    for path in KNOWN:
        if path.startswith(stage) and KNOWN[path].attributes:
            assert known_element(path.replace(stage, "process_stages/stage_3/stage_3_10/")) is KNOWN[path]
    assert known_element("process_stages/stage_x/tau") is None


@pytest.mark.parametrize(
    "call",
    [
        lambda recipe: recipe[3],
        lambda recipe: recipe.set(None, 1),
        lambda recipe: recipe.stages(1),
        lambda recipe: recipe.remove_stage(b"process_stages/stage_1"),
        lambda recipe: recipe.add_stage("process_stages/stage_1", values=["tau"]),
        lambda recipe: vorlen.Recipe(MQW),
        lambda recipe: vorlen.Recipe.load(3),
        lambda recipe: vorlen.Recipe("<NonstSurfChem/>", 3),
        lambda recipe: recipe.save(3),
    ],
)
def test_an_argument_of_a_wrong_type_is_named(call) -> None:
    recipe = vorlen.Recipe.load(MQW)
    with pytest.raises(TypeError, match="^(a path in a recipe|values|source|path) must be .*, got "):
        call(recipe)
    assert 3 not in recipe


def test_a_recipe_that_can_not_be_read(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError, match="none.xml"):
        vorlen.Recipe.load(tmp_path / "none.xml")
    (tmp_path / "r.xml").write_text("<NonstSurfChem>")
    with pytest.raises(vorlen.RecipeError, match="r.xml, line 1: "):
        vorlen.Recipe.load(tmp_path / "r.xml")


def test_setting_the_same_number_changes_no_byte() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["chemistry/Kd_In"] = {"A": 1.0e13, "Ta": 23200, "Tn": 0.0}
    recipe["process_stages/stage_1/T"] = 1030.0
    assert recipe.to_bytes() == V_DEFECTS.read_bytes()


TEXT = st.text(
    st.characters(blacklist_categories=("Cs", "Cc"), max_codepoint=0xFFFF, blacklist_characters="\ufffe\uffff")
)
# Variants that text editors produce: line ends, quotes, blanks, entities, comments, a byte order mark.
DRESSES = (
    lambda text: text,
    lambda text: text.replace("\n", "\r\n"),
    lambda text: re.sub(r'(\w+)="([^"]*)"', r"\1 = '\2'", text.split("?>", 1)[1]),
    lambda text: text.replace("/>", " />").replace("<material", "<!-- <T val='1'/> > --><material\n "),
    lambda text: text.replace('val="GaN cap"', 'val="&#71;aN &lt;cap&gt; a>b"').replace(
        "<stress>", "<stress><![CDATA[<x>]]>"
    ),
    lambda text: "\ufeff" + text,
    lambda text: re.sub(r"<tau val=\"(\d+)\"/>", r'<tau val="\1"></tau >', text),
)


def values_of_kind(path: str) -> st.SearchStrategy[object]:
    """Values that a known element can have."""
    known = known_element(path)
    assert known is not None
    if known.kind == "keyword":
        return st.sampled_from(known.keywords)
    if known.kind == "integer":
        return st.integers(-(2**31) + 1, 2**31 - 1)
    return TEXT if known.kind == "text" else st.floats(allow_nan=False, allow_infinity=False) | st.integers()


@settings(max_examples=60, deadline=None)
@given(st.data())
def test_a_change_affects_only_the_bytes_of_its_value(data: st.DataObject) -> None:
    source = data.draw(st.sampled_from(DRESSES))(data.draw(st.sampled_from(EXAMPLES)).read_text()).encode()
    recipe = vorlen.Recipe(source)
    assert recipe.to_bytes() == source
    path = data.draw(st.sampled_from(recipe.paths()))
    element = recipe._document.find(path).element
    attribute = data.draw(st.sampled_from(sorted(element.attributes)))
    value = data.draw(values_of_kind(path))
    before = values_of(source)
    recipe[f"{path}/{attribute}"] = value
    place = "/NonstSurfChem/" + path
    after = values_of(recipe.to_bytes())
    kept = after[place][attribute]
    assert kept == value if isinstance(value, str) else float(kept) == float(value)
    before[place][attribute] = kept
    assert after == before  # every other value of the file
    new = recipe.to_bytes()
    assert new[: element.begin] == source[: element.begin]
    assert new[len(new) - (len(source) - element.tag_end) :] == source[element.tag_end :]


@settings(max_examples=30, deadline=None)
@given(st.floats(allow_nan=False, allow_infinity=False, width=64))
def test_every_number_survives_a_round_trip_through_a_recipe(number: float) -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["chemistry/Kd_In/A"] = number
    assert recipe["chemistry/Kd_In/A"] == number


def test_a_recipe_in_another_encoding_keeps_it() -> None:
    source = V_DEFECTS.read_text().replace("UTF-8", "windows-1251").replace("GaN cap", "Покров").encode("cp1251")
    recipe = vorlen.Recipe(source)
    assert recipe["process_stages/stage_2/name"] == "Покров"
    recipe["process_stages/stage_2/name"] = "Слой №1 – µ"
    recipe["process_stages/stage_1/tau"] = 60
    again = vorlen.Recipe(recipe.to_bytes())
    assert again["process_stages/stage_2/name"] == "Слой №1 – µ"
    assert recipe.to_bytes().decode("cp1251").startswith('<?xml version="1.0" encoding="windows-1251"?>')


def test_saving_and_loading_keeps_every_byte(tmp_path: Path) -> None:
    source = V_DEFECTS.read_bytes().replace(b"\n", b"\r\n")
    vorlen.Recipe(source).save(tmp_path / "r.xml")
    assert (tmp_path / "r.xml").read_bytes() == source
    assert vorlen.Recipe.load(tmp_path / "r.xml") == vorlen.Recipe(source)
    assert [entry.name for entry in tmp_path.iterdir()] == ["r.xml"]


# ---- the optional element integration

PLAIN = re.sub(r"\s*<integration>.*?</integration>", "", V_DEFECTS.read_text(), flags=re.DOTALL)
INTEGRATION = '<integration><scheme val="continuous"/><tolerance val="1e-5"/></integration>'


def with_integration(xml: str) -> vorlen.Recipe:
    return vorlen.Recipe(PLAIN.replace("</NonstSurfChem>", xml + "</NonstSurfChem>"))


def test_the_element_integration_is_read_and_changed_like_any_other() -> None:
    recipe = with_integration(INTEGRATION)
    assert recipe["integration/scheme"] == "continuous" and recipe["integration:tolerance"] == 1e-5
    recipe["integration/scheme"] = "staged"
    recipe["integration/tolerance/val"] = 1e-7
    assert recipe == with_integration('<integration><scheme val="staged"/><tolerance val="1e-7"/></integration>')


def test_every_optional_element_outside_of_stages_can_be_added() -> None:
    recipe = vorlen.Recipe("<NonstSurfChem><stress/></NonstSurfChem>")
    recipe.set("output/detail", "true").set("integration/tolerance", 1e-7).set("integration/scheme", "staged")
    assert str(recipe) == (
        '<NonstSurfChem><stress/><output><detail val="true"/></output>'
        '<integration><tolerance val="1e-7"/><scheme val="staged"/></integration></NonstSurfChem>'
    )
    with pytest.raises(KeyError):
        recipe["process_stages/stage_1/type"] = "single"


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_the_elements_of_the_examples_are_known_with_their_attributes(path: Path) -> None:
    recipe = vorlen.Recipe.load(path)
    known = {element.path: set(element.attributes) for element in ELEMENTS}
    for name in recipe.paths():
        single = re.sub(r"/stage_\d+/(?=stage_\d+_\d+/)", "/", name)  # a sub-stage has the elements of a stage
        value = recipe[name]
        attributes = {"val", "end"} if isinstance(value, tuple) else set(value) if isinstance(value, dict) else {"val"}
        assert attributes == known[re.sub(r"stage_[\d_]+/", "stage_#/", single)], name


def test_a_recipe_without_the_element_has_no_such_path() -> None:
    recipe = vorlen.Recipe(PLAIN)
    assert "integration/scheme" not in recipe and "integration/scheme" not in recipe.paths()
    assert recipe.get("integration/scheme", "continuous") == "continuous"
    with pytest.raises(KeyError, match="optional, and setting a value adds it"):
        recipe["integration/tolerance"]
    assert str(recipe) == PLAIN


@pytest.mark.parametrize(
    "path", ["integration/scheme", "integration:scheme", "NonstSurfChem/integration/scheme", "integration/scheme/@val"]
)
def test_setting_a_missing_element_adds_it_before_the_end_tag_of_the_root(path: str) -> None:
    recipe = vorlen.Recipe(PLAIN)
    recipe[path] = "staged"
    lines = '  <integration>\n    <scheme val="staged"/>\n  </integration>\n'
    assert str(recipe) == PLAIN.replace("</NonstSurfChem>", lines + "</NonstSurfChem>")
    recipe["integration/tolerance"] = 1e-8
    lines = lines.replace("  </int", '    <tolerance val="1e-8"/>\n  </int')
    assert str(recipe) == PLAIN.replace("</NonstSurfChem>", lines + "</NonstSurfChem>")


@pytest.mark.parametrize(
    ("before", "after"),
    [
        ("<integration/>", '<integration><scheme val="staged"/></integration>'),
        ("<integration />", '<integration><scheme val="staged"/></integration>'),
        ("<integration></integration>", '<integration><scheme val="staged"/></integration>'),
        ("<integration><scheme/></integration>", '<integration><scheme val="staged"/></integration>'),
        (
            '<integration><tolerance val="1e-5"/> <!-- </integration> --> </integration>',
            '<integration><tolerance val="1e-5"/> <!-- </integration> --><scheme val="staged"/> </integration>',
        ),
        ("\n\t<integration/>\n", '\n\t<integration>\n\t\t<scheme val="staged"/>\n\t</integration>\n'),
        (
            "\n  <integration></integration>\n",
            '\n  <integration>\n    <scheme val="staged"/>\n  </integration>\n',
        ),
        (
            "\n  <integration>\n  </integration>\n",
            '\n  <integration>\n    <scheme val="staged"/>\n  </integration>\n',
        ),
        (
            '<integration><scheme value="a"/><scheme val="b"/></integration><integration/>',
            '<integration><scheme val="staged" value="a"/><scheme val="b"/></integration><integration/>',
        ),
    ],
)
def test_an_incomplete_element_is_completed(before: str, after: str) -> None:
    recipe = with_integration("<x/>" + before)
    assert recipe.get("integration/scheme") == ({"value": "a"} if 'value="a"' in before else None)
    recipe["integration/scheme"] = "staged"
    assert str(recipe) == str(with_integration("<x/>" + after))


@pytest.mark.parametrize(
    ("before", "after"),
    [
        ("<NonstSurfChem/>", '<NonstSurfChem><integration><scheme val="staged"/></integration></NonstSurfChem>'),
        (
            "<NonstSurfChem></NonstSurfChem>",
            '<NonstSurfChem><integration><scheme val="staged"/></integration></NonstSurfChem>',
        ),
        (
            "<NonstSurfChem><material/></NonstSurfChem><!-- end -->",
            '<NonstSurfChem><material/><integration><scheme val="staged"/></integration></NonstSurfChem><!-- end -->',
        ),
    ],
)
def test_the_element_is_added_to_recipes_without_line_breaks(before: str, after: str) -> None:
    assert str(vorlen.Recipe(before).with_scheme("staged")) == after


@pytest.mark.parametrize(
    ("path", "value", "error"),
    [
        ("integration/scheme", ("staged", "staged"), ValueError),
        ("integration/scheme", {"end": "staged"}, ValueError),
        ("integration/tolerance", None, TypeError),
        ("integration/tolerance", float("nan"), ValueError),
        ("integration/tolerance/end", 1e-6, KeyError),
        ("integration", "staged", KeyError),
        ("integration/order", 3, KeyError),
        ("scheme", "staged", KeyError),
    ],
)
def test_an_invalid_value_for_the_optional_element_adds_nothing(path: str, value: object, error: type) -> None:
    recipe = vorlen.Recipe(PLAIN)
    with pytest.raises(error):
        recipe[path] = value
    assert str(recipe) == PLAIN


def test_a_text_is_escaped_and_encoded() -> None:
    recipe = vorlen.Recipe(PLAIN.replace("UTF-8", "windows-1251"))
    recipe["process_stages/stage_1/name"] = 'a "<&µ'
    assert b'<name val="a &quot;&lt;&amp;' in recipe.to_bytes()
    assert vorlen.Recipe(recipe.to_bytes())["process_stages/stage_1/name"] == 'a "<&µ'


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
@pytest.mark.parametrize("dress", range(len(DRESSES)))
def test_a_recipe_with_another_scheme_is_a_copy_with_that_one_change(path: Path, dress: int) -> None:
    source = DRESSES[dress](path.read_text()).encode()
    recipe = vorlen.Recipe(source, path)
    place = source.rindex(b"</NonstSurfChem>")
    for scheme in ("staged", "continuous"):
        changed = recipe.with_scheme(scheme)
        assert recipe.to_bytes() == source and changed.path == path
        assert changed["integration/scheme"] == scheme
        expected = values_of(source)
        for tail, value in (("", {}), ("/scheme", {"val": scheme})):
            expected["/NonstSurfChem/integration" + tail] = value | expected.get("/NonstSurfChem/integration" + tail, {})
        expected["/NonstSurfChem/integration/scheme"] = {"val": scheme}
        assert values_of(changed.to_bytes()) == expected
        if "integration/scheme" not in recipe:
            kept = len(source[:place].rstrip())
            assert changed.to_bytes()[:kept] == source[:kept]
            assert changed.to_bytes().endswith(source[kept:])
        # And back: only the value is replaced.
        other = {"staged": "continuous", "continuous": "staged"}[scheme]
        again = changed.with_scheme(other)
        element = rb"(<scheme\s+val\s*=\s*.)" + scheme.encode()
        assert again.to_bytes() == re.sub(element, rb"\1" + other.encode(), changed.to_bytes())
        assert changed.with_scheme(scheme).to_bytes() == changed.to_bytes()


@pytest.mark.parametrize("scheme", ["stage", "Staged", "", None, 1])
def test_an_unknown_scheme_is_an_error_that_lists_the_known_ones(scheme: object) -> None:
    recipe = vorlen.Recipe(PLAIN)
    with pytest.raises(ValueError, match=f'the scheme must be "staged" or "continuous", got {scheme!r}'):
        recipe.with_scheme(scheme)  # type: ignore[arg-type]


def test_the_library_reads_an_added_element() -> None:
    recipe = vorlen.Recipe(PLAIN).set("integration/tolerance", 0.5)
    with pytest.raises(vorlen.SimulationError, match=r"Integration tolerance is beyond \[1e-10;1e-3\]"):
        vorlen.run(recipe)
    recipe = vorlen.Recipe(PLAIN).set("integration/scheme", "STAGED")
    assert not vorlen.run(recipe).failed


# ---- stages


def test_a_stage_is_added_at_the_end_with_its_changes() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    path = recipe.add_stage("process_stages/stage_1", name="second InGaN", values={"tau": 30, "T": (1030, 1020)})
    assert path == "process_stages/stage_3"
    assert recipe["process_stages/n_stages"] == 3
    assert recipe["process_stages/stage_3/T"] == (1030.0, 1020.0)
    assert recipe["process_stages/stage_1/tau"] == 124.0
    run = vorlen.run(recipe)
    assert list(run.layers["name"]) == ["GaN template", "InGaN", "GaN cap", "second InGaN", "p-GaN"]


def test_a_stage_is_inserted_before_another_which_is_renumbered() -> None:
    recipe = vorlen.Recipe.load(MQW)
    before = recipe["process_stages/stage_2/name"]
    path = recipe.add_stage("process_stages/stage_2", name="spacer", before="process_stages/stage_1")
    assert path == "process_stages/stage_1" and recipe["process_stages/stage_1/name"] == "spacer"
    assert recipe["process_stages/stage_2/stage_2_3/name"] == "InGaN well"  # the periodic one and its sub-stages
    assert recipe["process_stages/stage_3/name"] == before
    assert recipe.timeline()["name"][2] == "spacer"
    assert vorlen.run(recipe).layers["duration"].sum() == recipe.timeline()["duration"].sum()


def test_adding_and_removing_a_stage_gives_the_bytes_back() -> None:
    for path in EXAMPLES:
        for dress in DRESSES[:2]:
            source = dress(path.read_text()).encode()
            recipe = vorlen.Recipe(source)
            for group in ("pre_stages", "process_stages", "post_stages"):
                for stage in recipe.stages(group):
                    for before in [*recipe.stages(group), None]:
                        recipe.remove_stage(recipe.add_stage(stage, before=before))
                        assert recipe.to_bytes() == source, (path, stage, before)


def test_sub_stages_of_a_periodic_stage_are_added_and_removed() -> None:
    recipe = vorlen.Recipe.load(MQW)
    path = recipe.add_stage("process_stages/stage_1/stage_1_3", before="process_stages/stage_1/stage_1_4")
    assert path == "process_stages/stage_1/stage_1_4"
    assert recipe["process_stages/stage_1/n_stages"] == 5
    assert recipe["process_stages/stage_1/stage_1_5/name"] == "heating"
    recipe.remove_stage(path)
    assert recipe.to_bytes() == MQW.read_bytes()


def test_every_value_of_the_examples_can_be_set_to_itself(examples: Path) -> None:
    for path in sorted(examples.glob("*.xml")):
        recipe = vorlen.Recipe.load(path)
        for element in recipe:
            recipe[element] = recipe[element]
        assert list(recipe) == list(vorlen.Recipe.load(path))


def test_the_stress_model_can_be_switched_off_and_not_misspelt() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["stress/model"] = "none"
    assert recipe["stress/model"] == "none" and b'<model val="none"/>' in recipe.to_bytes()
    with pytest.raises(ValueError, match="takes one of none, V_dislocation, got 'V_dislocations'"):
        recipe["stress/model"] = "V_dislocations"


def test_single_stages_become_periods() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe["stress/model"] = "V_dislocation"
    recipe.add_stage("process_stages/stage_2", name="end")
    path = recipe.make_periodic("process_stages/stage_1", "process_stages/stage_2", 4)
    assert path == "process_stages/stage_1"
    assert recipe["process_stages/stage_1/type"] == "periodic" and recipe["process_stages/n_stages"] == 2
    names = list(recipe.timeline()["name"])
    assert names == ["GaN template", *["InGaN", "GaN cap"] * 4, "end", "p-GaN"]
    recipe["process_stages/stage_1/stage_1_1/tau"] = 5
    assert list(vorlen.run(recipe).layers["name"]) == names


@pytest.mark.parametrize(
    ("change", "error", "text"),
    [
        (lambda recipe: recipe.remove_stage("process_stages/stage_9"), KeyError, "stage_9"),
        (lambda recipe: recipe.remove_stage("chemistry/Kd_In"), ValueError, "chemistry is not a group of stages"),
        (lambda recipe: recipe.add_stage("process_stages"), KeyError, "process_stages"),
        (
            lambda recipe: recipe.add_stage("process_stages/stage_1", before="pre_stages/pre_stage_1"),
            ValueError, "pre_stages/pre_stage_1 is not in process_stages",
        ),
        (
            lambda recipe: recipe.add_stage("process_stages/stage_1", values={"no_such": 1}),
            KeyError, "stage_3/no_such",
        ),
        (
            lambda recipe: recipe.make_periodic("process_stages/stage_1", "process_stages/stage_2", 3),  # 1 is periodic
            ValueError, "can't contain another periodic stage",
        ),
        (
            lambda recipe: recipe.make_periodic("process_stages/stage_2", "process_stages/stage_2", 0),
            ValueError, "periods must be a positive integer, got 0",
        ),
        (
            lambda recipe: [recipe.remove_stage("process_stages/stage_1") for _ in range(2)],
            ValueError, "process_stages/stage_1 is the only stage",
        ),
    ],
)
def test_an_invalid_change_of_stages_is_rejected(change, error: type[Exception], text: str) -> None:
    recipe = vorlen.Recipe.load(MQW)
    with pytest.raises(error, match=text):
        change(recipe)


def test_a_rejected_change_of_stages_leaves_the_recipe_unchanged() -> None:
    recipe = vorlen.Recipe.load(MQW)
    with pytest.raises(KeyError):
        recipe.add_stage("process_stages/stage_1", values={"no_such": 1})
    assert recipe.to_bytes() == MQW.read_bytes()


def test_stages_beyond_the_count_stay_beyond_it() -> None:
    text = V_DEFECTS.read_text().replace('<n_stages val="2"/>', '<n_stages val="1"/>')
    recipe = vorlen.Recipe(text)
    recipe.add_stage("process_stages/stage_1", name="copy")
    assert recipe.stages() == ["process_stages/stage_1", "process_stages/stage_2"]
    assert recipe["process_stages/stage_2/name"] == "copy"
    assert recipe["process_stages/stage_3/name"] == "GaN cap"


LAYER = PLAIN_LAYER.read_text("utf-8")


def stage_text(number: int, name: str) -> str:
    """A stage as in the recipe of one layer, with another number and name."""
    text = re.search(r"<stage_1>.*</stage_1>", LAYER, re.DOTALL)[0]
    return text.replace("stage_1>", f"stage_{number}>").replace('"InGaN"', f'"{name}"')


def recipe_of_stages(*stages: tuple[int, str], between: str = "\n    ") -> vorlen.Recipe:
    """A recipe with these stages, given by number and name, in this order in the file."""
    inside = between.join(stage_text(number, name) for number, name in stages)
    text = re.sub(r"<stage_1>.*</stage_1>", lambda _: inside, LAYER, flags=re.DOTALL)
    return vorlen.Recipe(text.replace('<n_stages val="1"/>', f'<n_stages val="{max(stages)[0]}"/>'))


def grown(recipe: vorlen.Recipe) -> list[str]:
    """The names of the simulated layers, which the library and the timeline agree on."""
    layers = vorlen.run(recipe).layers["name"].tolist()
    assert layers == recipe.timeline()["name"].tolist()
    return layers[1:]  # without the template


FIRST, SECOND, THIRD = (f"process_stages/stage_{number}" for number in (1, 2, 3))
TWICE = [(1, "a"), (2, "b"), (2, "unread"), (3, "c")]


@pytest.mark.parametrize(
    ("stages", "change"),
    [
        (TWICE, lambda recipe: recipe.remove_stage(SECOND)),
        (TWICE, lambda recipe: recipe.make_periodic(FIRST, SECOND, 2)),
        (TWICE, lambda recipe: recipe.make_periodic(SECOND, THIRD, 2)),
        (TWICE, lambda recipe: recipe.make_periodic(SECOND, SECOND, 2)),
        ([(2, "b"), (1, "a"), (2, "unread")], lambda recipe: recipe.remove_stage(SECOND)),
    ],
)
def test_a_stage_that_occurs_twice_is_not_removed_or_combined(stages, change) -> None:
    recipe = recipe_of_stages(*stages)
    before = recipe.to_bytes()
    with pytest.raises(ValueError, match="process_stages/stage_2 occurs 2 times .*; remove the others"):
        change(recipe)
    assert recipe.to_bytes() == before


def test_sub_stages_that_occur_twice_are_not_removed() -> None:
    recipe = recipe_of_stages((1, "a"), (2, "b"))
    recipe.make_periodic(FIRST, SECOND, 2)
    recipe = vorlen.Recipe(str(recipe).replace("stage_1_2>", "stage_1_1>"))
    with pytest.raises(ValueError, match="stage_1/stage_1_1 occurs 2 times"):
        recipe.remove_stage(f"{FIRST}/stage_1_1")


@pytest.mark.parametrize(
    ("change", "names"),
    [
        (lambda recipe: recipe.remove_stage(FIRST), ["b", "c"]),
        (lambda recipe: recipe.remove_stage(THIRD), ["a", "b"]),
        (lambda recipe: recipe.make_periodic(FIRST, FIRST, 2), ["a", "a", "b", "c"]),
        (lambda recipe: recipe.make_periodic(THIRD, THIRD, 2), ["a", "b", "c", "c"]),
        (lambda recipe: recipe.add_stage(FIRST, "new", before=SECOND), ["a", "new", "b", "c"]),
        (lambda recipe: recipe.add_stage(FIRST, "new", before=THIRD), ["a", "b", "new", "c"]),
        (lambda recipe: recipe.add_stage(SECOND, "new"), ["a", "b", "c", "new"]),
    ],
)
def test_other_changes_leave_the_unread_one_of_two_stages_unread(change, names: list[str]) -> None:
    recipe = recipe_of_stages(*TWICE)
    change(recipe)
    assert grown(recipe) == names


@pytest.mark.parametrize(
    ("stages", "between", "found"),
    [
        ([(1, "a"), (3, "c"), (2, "b")], "", "stage_3"),
        ([(1, "a"), (7, "beyond"), (2, "b")], "", "stage_7"),
        ([(1, "a"), (2, "b")], '<n_stages val="9"/>', "n_stages"),
        ([(1, "a"), (2, "b")], "<note/>", "note"),
    ],
)
def test_periods_do_not_take_other_elements_with_them(stages, between: str, found: str) -> None:
    recipe = recipe_of_stages(*stages, between=between)
    recipe["process_stages/n_stages"] = 3 if found == "stage_3" else 2
    before = recipe.to_bytes()
    text = f"process_stages/{found} is between {FIRST} and {SECOND} in the file; move it before or after them$"
    with pytest.raises(ValueError, match=text):
        recipe.make_periodic(FIRST, SECOND, 2)
    assert recipe.to_bytes() == before


def test_a_stage_after_the_combined_ones_may_be_out_of_order() -> None:
    recipe = recipe_of_stages((3, "c"), (1, "a"), (2, "b"))
    recipe.make_periodic(FIRST, SECOND, 2)
    assert grown(recipe) == ["a", "b", "a", "b", "c"]


NAMES_WITH_LINE_ENDS = [
    # text in the file, name in the library
    ("a\nb", "a\nb"), ("a\r\n\tb", "a\n\tb"), ("a\rb", "a\nb"), ("\n a &amp;&lt;&#10;\nb> \t", "\n a &<\n\nb> \t"),
    ("\u03b1\n\u03b2&#x3b3;", "\u03b1\n\u03b2\u03b3"), ("a&#13;&#9;b", "a\r\tb"),
]


@pytest.mark.parametrize(("text", "name"), NAMES_WITH_LINE_ENDS)
@pytest.mark.parametrize("new_line", ["\n", "\r\n"])
def test_names_keep_their_line_ends(text: str, name: str, new_line: str) -> None:
    lines = LAYER.replace("\n", new_line).replace('<name val="InGaN"/>', f'<name\n  val="{text}"\n/><!-- "\n" -->')
    recipe = vorlen.Recipe(lines.encode())
    assert recipe[f"{FIRST}/name"] == name and grown(recipe) == [name]
    recipe[f"{FIRST}/name"] = name
    assert recipe.to_bytes() == lines.encode()
    recipe.make_periodic(FIRST, FIRST, 2)
    assert grown(recipe) == [name, name]
    recipe[f"{FIRST}/stage_1_1/name"] = name.replace("a", "c")
    assert grown(recipe) == [name.replace("a", "c")] * 2


def test_names_with_line_ends_in_another_encoding() -> None:
    text = LAYER.replace("UTF-8", "ISO-8859-1").replace('"InGaN"/>\n      <tau', '\'"\xe4\n\xf6"\'/>\n      <tau')
    assert vorlen.Recipe(text)[f"{FIRST}/name"] == '"\xe4\n\xf6"'


def test_a_declared_entity_in_a_name_with_a_line_end_is_read_as_xml_has_it() -> None:
    text = LAYER.replace("<NonstSurfChem>", '<!DOCTYPE NonstSurfChem [<!ENTITY well "InGaN">]>\n<NonstSurfChem>', 1)
    recipe = vorlen.Recipe(text.replace('"InGaN"/>\n      <tau', '"a\n&well;"/>\n      <tau'))
    assert recipe[f"{FIRST}/name"] == "a InGaN"


def test_periods_indent_lines_but_nothing_within_tags() -> None:
    between = '<!-- a > "\n    comment -->\n    <![CDATA[\n<]]>\n    <?note\n"?>\n    '
    recipe = recipe_of_stages((1, "a\n    a"), (2, "b"), between=between)
    recipe.make_periodic(FIRST, SECOND, 2)
    inside = '<!-- a > "\n      comment -->\n      <![CDATA[\n<]]>\n      <?note\n"?>\n      '
    assert f"</stage_1_1>{inside}<stage_1_2>" in str(recipe)
    assert '\n        <name val="a\n    a"/>\n        <tau' in str(recipe)


# ---- timeline


NUMBERS_OF_C = [
    # 0x1.8p+3 is (1 + 8/16) 2^3; the exponent of a decimal number is a digit of a hexadecimal one
    ("0x10", 16), ("0X1F", 31), ("0x1p4", 16), ("0x1.8p+3", 12), ("0x.8P5", 16), (" +0x1e1", 481), ("0x10 s", 16),
    ("0x1p", 1), ("12,5", 12), ("1e1e", 10), ("1.5.5", 1.5), ("0x1g", 1),
]


@pytest.mark.parametrize(("text", "value"), NUMBERS_OF_C)
def test_durations_are_read_as_the_library_reads_them(text: str, value: float, tmp_path: Path) -> None:
    recipe = vorlen.Recipe(LAYER.replace('<tau val="60"/>', f'<tau val="{text}"/>'))
    assert recipe.timeline()["duration"].tolist() == [3000, value]
    recipe.save(tmp_path / "r.xml")
    rows = subprocess.run([tool(), "timeline", "--csv", tmp_path / "r.xml"], capture_output=True, text=True, check=True)
    assert [float(row["duration_s"]) for row in csv.DictReader(io.StringIO(rows.stdout))] == [3000, value]


@pytest.mark.parametrize(
    ("text", "value"),
    [
        ("inf", math.inf), ("-INFINITY", -math.inf), ("Infx", math.inf), ("nan", math.nan), ("NaN(1)", math.nan),
        ("1e999", math.inf), ("0x1p9999", math.inf), ("-0x1p9999", -math.inf), ("0x.", 0), ("0x.p1", 0),
        # not numbers
        ("0x", math.nan), ("0xg", math.nan), ("infi", math.nan), ("in", math.nan), ("--1", math.nan), ("", math.nan),
    ],
)
def test_numbers_without_a_finite_value(text: str, value: float) -> None:
    recipe = vorlen.Recipe(LAYER.replace('<tau val="60"/>', f'<tau val="{text}"/>'))
    assert recipe.timeline()["duration"].iloc[-1] == pytest.approx(value, rel=0, nan_ok=True)


@pytest.mark.parametrize(
    ("text", "value"),
    [
        ("0x10", 16.0), (" 0x1p4 ", 16.0), ("1e3\t", 1000.0), ("-inf", -math.inf),
        ("0x", "0x"), ("0x10 s", "0x10 s"), ("12,5", "12,5"), ("1_0", "1_0"), ("\u0661", "\u0661"), ("", ""),
    ],
)
def test_a_number_is_a_value_if_nothing_follows_it(text: str, value: float | str) -> None:
    recipe = vorlen.Recipe(LAYER.replace('<tau val="60"/>', f'<tau val="{text.replace(chr(9), "&#9;")}"/>'))
    assert recipe[f"{FIRST}/tau"] == value


@pytest.mark.parametrize(
    ("text", "count"),
    [
        ("0x10", 0), ("+2", 2), ("-2", -2), ("2.97", 2), ("0" * 5000 + "3", 3), ("x", None),
        # The lower 32 bits of the nearest number of 64 bits
        ("2147483648", -(2**31)), ("4294967298", 2), ("-4294967295", 1), ("9" * 30, -1), ("-" + "9" * 30, 0),
    ],
)
def test_integers_are_read_as_the_library_reads_them(text: str, count: int | None) -> None:
    assert leading_integer(text) == count
    number = ctypes.c_int()
    found = ctypes.CDLL(None).sscanf(text.encode(), b"%d", ctypes.byref(number))
    assert (number.value if found == 1 else None) == count


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_the_timeline_has_the_layers_of_the_result(path: Path) -> None:
    timeline, layers = vorlen.Recipe.load(path).timeline(), vorlen.run(path).layers
    assert list(timeline["name"]) == list(layers["name"]) and list(timeline["kind"]) == list(layers["kind"])
    assert timeline["begin"].to_numpy() == pytest.approx(layers["begin"].to_numpy(), rel=1e-12)
    assert timeline["end"].to_numpy() == pytest.approx(layers["end"].to_numpy(), rel=1e-12)


def test_the_timeline_has_ramps_and_units() -> None:
    timeline = vorlen.Recipe.load(MQW).timeline()
    cooling = timeline[timeline["name"] == "cooling"]
    assert len(cooling) == 3 and set(cooling["stage"]) == {"stage_1_2"}
    assert set(cooling["T_begin"]) == {1080.0} and set(cooling["T_end"]) == {1010.0}
    assert timeline.attrs["units"]["TMIn_begin"] == "sccm" and timeline.attrs["units"]["T_end"] == "K"
    assert timeline["T_begin"].isna().sum() == (timeline["kind"] != "active").sum()


@pytest.mark.parametrize(
    ("old", "new", "names"),
    [
        # What the library makes of the number of periods, and of a number of stages that is missing
        ('<n_periods val="3"/>', '<n_periods val="1e1"/>', 1),
        ('<n_periods val="3"/>', '<n_periods val="-1"/>', 0),
        ('<n_periods val="3"/>', '<n_periods val="x"/>', 0),
        ('<n_periods val="3"/>', "", 0),
    ],
)
def test_the_timeline_of_a_recipe_with_a_faulty_number_of_periods(old: str, new: str, names: int) -> None:
    timeline = vorlen.Recipe(MQW.read_text().replace(old, new)).timeline()
    assert (timeline["name"] == "InGaN well").sum() == names


@pytest.mark.parametrize(
    ("group", "count"),
    [("pre_stages", "n_pre_stages"), ("process_stages", "n_stages"), ("post_stages", "n_post_stages")],
)
def test_a_group_without_the_number_of_its_stages_is_a_fault_of_the_recipe(group: str, count: str) -> None:
    recipe = vorlen.Recipe(re.sub(rf'<{count} val="\d+"/>', "", V_DEFECTS.read_text()))
    for call in (recipe.timeline, lambda: recipe.stages(group)):
        with pytest.raises(vorlen.RecipeError, match=f"recipe has no {group}/{count}, the number of stages"):
            call()
    with pytest.raises(vorlen.SimulationError):
        vorlen.run(recipe)


def test_a_timeline_has_at_most_as_many_active_stages_as_the_library_takes() -> None:
    recipe = vorlen.Recipe.load(V_DEFECTS)
    recipe.make_periodic("process_stages/stage_1", "process_stages/stage_2", 3)
    recipe["process_stages/stage_1/n_periods"] = 500001
    with pytest.raises(vorlen.RecipeError, match="process_stages/stage_1 gives more than 1000000 stages"):
        recipe.timeline()
    with pytest.raises(vorlen.SimulationError, match="Number of active stages is greater than 1000000"):
        vorlen.run(recipe)
    recipe["process_stages/stage_1/n_periods"] = 2
    recipe.add_stage("process_stages/stage_1")
    recipe["process_stages/stage_2/n_periods"] = 499999  # 999998 stages and the 4 of stage_1
    with pytest.raises(vorlen.RecipeError, match="process_stages/stage_2 gives more than 1000000 stages"):
        recipe.timeline()


def test_a_large_number_of_stages_takes_no_time() -> None:
    text = V_DEFECTS.read_text().replace('<n_stages val="2"/>', '<n_stages val="2000000000"/>')
    assert vorlen.Recipe(text).stages() == ["process_stages/stage_1", "process_stages/stage_2"]


def test_a_copy_and_its_original_change_independently() -> None:
    recipe = vorlen.Recipe.load(MQW)
    copy = recipe.copy()
    copy["material"] = "AlGaN"
    assert recipe.to_bytes() == MQW.read_bytes() and copy["material"] == "AlGaN" and copy.path == MQW
    assert pickle.loads(pickle.dumps(copy)) == copy and pickle.loads(pickle.dumps(copy)).path == MQW


def test_a_path_with_the_name_of_a_stage_is_answered_with_the_path_of_the_stage():
    recipe = vorlen.Recipe.load(MQW)
    well = "process_stages/stage_1/stage_1_3"
    recipe.add_stage("process_stages/stage_2", name="cap: thin/cold")

    def text(path: str) -> str:
        with pytest.raises(KeyError) as error:
            recipe[path]
        return error.value.args[0].partition("; ")[2]

    assert text("InGaN well/T") == text("process_stages/ingan WELL/T").replace("WELL", "well") == (
        f"InGaN well is {well}; the path is {well}/T"
    )
    assert text("InGaN well:T:end") == f"InGaN well is {well}; the path is {well}/T/end"
    assert text("InGaN well/Temp") == text("InGaN well") == f"InGaN well is {well}"
    last = recipe.stages()[-1]
    assert text("cap: thin/cold/T") == f"cap: thin/cold is {last}; the path is {last}/T"
    recipe[f"{last}/name"] = "cooling"
    assert text("cooling/T") == f"cooling is process_stages/stage_1/stage_1_2 and {last}"
    for number in range(3):
        recipe.add_stage("process_stages/stage_2", name="cooling")
    assert text("cooling/T").endswith(" and 2 more")
    recipe[f"{well}/name"] = "stage_1"  # the name of an element: the path is not by name
    assert text("process_stages/stage_1/Temp").startswith("similar paths: ")
