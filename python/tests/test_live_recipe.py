"""The recipe half of the live page: fields, sliders, units, XML, undo, stages, problems."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from selenium.webdriver.common.keys import Keys

import vorlen
from browser import Browser
from live import TABLE, Live, write_page
from support import EXAMPLES, MQW, ROOT, failing_recipe
from vorlen._recipe.elements import ELEMENTS
from vorlen._recipe.kinds import known_element

LED = ROOT / "examples" / "blue_led.xml"
WELL, COOLING = "process_stages/stage_1/stage_1_3", "process_stages/stage_1/stage_1_2"  # of MQW
TIN = "gas_species/Q/TMIn"


def lines_changed(before: str, after: str) -> list[tuple[str, str]]:
    old, new = before.splitlines(), after.splitlines()
    assert len(old) == len(new)
    return [(a, b) for a, b in zip(old, new) if a != b]


def numbers_of(recipe: vorlen.Recipe) -> dict[str, bool]:
    """The attributes of all numbers that the library reads, as path@attribute; true for an end that equals its start.

    Numbers of stages are left out: they follow from the stages.
    """
    numbers = {}
    for path in recipe.paths():
        known = known_element(path)
        if known is None or known.kind not in ("real", "range", "arrhenius", "integer") or re.search(r"/n_(pre_|post_)?stages$", path):
            continue
        for name in known.attributes:
            value = recipe[path]
            numbers[f"{path}@{name}"] = name == "end" and value[0] == value[1] if known.kind == "range" else False
    return numbers


# ---- fields


@pytest.mark.parametrize("example", ["ingan_gan_mqw", "ingan_v_defects", "gan_thick_ccs", "algan_gan_hemt"])
def test_every_number_of_a_recipe_can_be_edited(example: str, live: Live) -> None:
    path = ROOT / "examples" / f"{example}.xml"
    live.set(path.read_text("utf-8"))
    live.browser.run("document.querySelector('.settings').open = true")
    found = live.browser.run(
        """const keys = new Set(), sliders = new Set();
        for (const path of [...document.querySelectorAll('tr[data-path]')].map(row => row.dataset.path)) {
          const button = [...document.querySelectorAll('button.select')].find(b => b.closest('tr').dataset.path === path);
          if (button.getAttribute('aria-expanded') !== 'true') button.click();
          for (const field of document.querySelectorAll('input[data-key]')) {
            if (field.type === 'range') sliders.add(field.dataset.key); else keys.add(field.dataset.key);
          }
        }
        return [[...keys], [...sliders]];"""
    )
    keys, sliders = set(found[0]), set(found[1])
    numbers = numbers_of(vorlen.Recipe.load(path))
    assert len(numbers) > 60
    assert {key for key, constant in numbers.items() if not constant} == keys - texts_of(keys)
    expected = {key.replace("@val", "@slider") for key in numbers if re.search(r"stage_\d+(?:_\d+)?/(?:tau|T|P|gas_species/Q/\w+)@val$", key)}
    assert sliders == expected


def texts_of(keys: set[str]) -> set[str]:
    return {key for key in keys if key.endswith("/name@val")}


def test_an_edit_in_the_table_changes_only_that_value(live: Live) -> None:
    before, thickness = live.xml(), live.layers()[3]["thickness"]
    live.enter(f"{WELL}/tau", "140", view=TABLE)
    live.settled()
    assert lines_changed(before, live.xml()) == [
        ('        <tau val="70"/>                         <!-- s -->', '        <tau val="140"/>                         <!-- s -->')
    ]
    # Twice as long, and twice as thick: the well takes up indium at a constant rate after its first 0.5 nm.
    assert live.layers()[3]["thickness"] == pytest.approx(2 * thickness, rel=0.02)
    assert live.layers()[3]["duration"] == 140


def test_the_page_and_the_library_give_the_same_layers(live: Live) -> None:
    live.enter(f"{WELL}/T", "1020", view=TABLE)
    live.settled()
    layers = vorlen.run(live.recipe()).layers
    assert [layer["thickness"] for layer in live.layers()] == pytest.approx(list(layers["thickness"]), rel=1e-6)  # as docs/command-line.md promises


def test_a_constant_value_is_one_number_and_a_ramp_two(live: Live) -> None:
    live.select(WELL)
    assert live.browser.run(f"return document.querySelectorAll(\"[data-key^='{WELL}/T@'][data-view=panel]\").length") == 1
    live.enter(f"{WELL}/T", "1015")
    assert '<T val="1015" end="1015"/>' in live.xml()
    live.browser.run(f"document.querySelector(\"[data-key='{WELL}/T@ramp']\").click()")
    live.enter(f"{WELL}/T", "1005", attribute="end")
    assert '<T val="1015" end="1005"/>' in live.xml()
    assert live.shown(f"{WELL}/T", "end", TABLE) == "1005"
    live.browser.run(f"document.querySelector(\"[data-key='{WELL}/T@ramp']\").click()")
    assert '<T val="1015" end="1015"/>' in live.xml()
    assert live.browser.run(f"return document.querySelectorAll(\"[data-key^='{WELL}/T@'][data-view=panel]\").length") == 1


def test_a_missing_end_of_a_value_can_be_added(live: Live) -> None:
    text = live.xml().replace('<T val="1010" end="1010"/>', '<T val="1010" />')
    live.browser.run("vorlen.pane.setXml(arguments[0])", text)
    live.wait_for_status("The recipe can't be run")
    live.enter(f"{WELL}/T", "1010", "end", TABLE)
    live.settled()
    assert live.xml() == text.replace('<T val="1010" />', '<T val="1010" end="1010" />')


NONSENSE = {
    "": "a number is missing", "1e": "the exponent is not complete", "abc": "“abc” is not a number",
    "12,5": "the decimal separator is the point", "7 0": "“7 0” is not a number", "1e999": "the number is too large",
}


def test_nonsense_in_a_field_is_reported_at_once_and_not_run(live: Live) -> None:
    before, runs = live.xml(), live.runs()
    live.select(WELL)
    field = live.field(f"{WELL}/P")
    for text, message in NONSENSE.items():
        live.enter(f"{WELL}/P", text)
        assert live.browser.run("return arguments[0].getAttribute('aria-invalid')", field) == "true", text
        assert live.text(f"[data-value='{WELL}/P'] .message") == message
        assert message in live.text("tr.message-row") and live.text(".problems summary") == "1 error"
        assert live.shown(f"{WELL}/P") == text
        # The 1 of 1e, which is a number, was not meant.
        assert live.xml() == before, text
        field.send_keys(Keys.ESCAPE)
        assert live.shown(f"{WELL}/P") == "40000"
        assert live.text(f"[data-value='{WELL}/P'] .message") == ""
    live.browser.run("return new Promise(done => setTimeout(done, 400))")
    assert live.runs() == runs


def test_fields_stay_while_a_number_is_typed(live: Live) -> None:
    # The only flow of TMIn is 0 for a moment, and the end of the ramp equals its start.
    live.enter(f"{WELL}/{TIN}", "0.25", view=TABLE)
    assert live.recipe()[f"{WELL}/{TIN}"] == (0.25, 0.25)
    live.enter(f"{COOLING}/T", "10805", attribute="end", view=TABLE)
    assert live.recipe()[f"{COOLING}/T"] == (1080, 10805)
    # A flow that begins to flow gets a column; the field in the panel keeps the focus.
    live.select(WELL)
    live.enter(f"{WELL}/gas_species/Q/TMAl", "0.125")
    assert live.recipe()[f"{WELL}/gas_species/Q/TMAl"] == (0.125, 0.125)
    assert live.shown(f"{WELL}/gas_species/Q/TMAl", view=TABLE) == "0.125"


def test_a_number_can_be_typed_through_nonsense(live: Live) -> None:
    live.enter(f"{WELL}/P", "3.5e4", view=TABLE)  # 3.5e alone is incomplete
    assert live.shown(f"{WELL}/P", view=TABLE) == "3.5e4"
    assert live.recipe()[f"{WELL}/P"] == (35000, 35000)
    assert live.text(".problems summary") != "1 error"


def test_texts_are_escaped_and_names_can_be_anything(live: Live) -> None:
    live.select(WELL)
    name = """<img src=x onerror="document.title='x'"> & 'well' </script>"""
    live.enter(f"{WELL}/name", name)
    live.settled()
    assert live.recipe()[f"{WELL}/name"] == name
    assert live.layers()[3]["name"] == name
    assert live.browser.run("return document.querySelectorAll('img').length") == 0


# ---- sliders


def test_arrow_keys_move_a_slider_by_a_step(live: Live) -> None:
    live.select(WELL)
    slider = live.slider(f"{WELL}/T")
    slider.send_keys(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
    assert '<T val="1013" end="1013"/>' in live.xml()
    assert live.shown(f"{WELL}/T") == live.shown(f"{WELL}/T", view=TABLE) == "1013"
    live.settled()
    assert live.browser.run("return arguments[0].getAttribute('aria-valuetext')", slider) == "1013 K"


def slide(live: Live, path: str, values: list[str]) -> None:
    """Moves a slider through values and releases it."""
    live.browser.run(
        "const [slider, values] = arguments; slider.focus();"
        "for (const value of values) { slider.value = value; slider.dispatchEvent(new Event('input', {bubbles: true})); }"
        "slider.dispatchEvent(new Event('change', {bubbles: true}));", live.slider(path), values,
    )


def test_a_slider_moves_a_ramp_as_a_whole(live: Live) -> None:
    live.select(COOLING)
    slide(live, f"{COOLING}/T", ["1090", "1100"])
    assert '<T val="1100" end="1030"/>' in live.xml()
    assert live.shown(f"{COOLING}/T", "end") == "1030"
    # A ramp of a flow down to 0 can't move further down.
    live.set(LED.read_text("utf-8"))
    change = "process_stages/stage_2/gas_species/Q/H2"
    live.select("process_stages/stage_2")
    slide(live, change, ["-5"])
    assert live.recipe()[change] == (8000, 0)


def test_a_movement_of_a_slider_is_one_step_of_undo(live: Live) -> None:
    before = live.xml()
    live.select(WELL)
    slide(live, f"{WELL}/T", [str(1010 + k) for k in range(1, 30)])
    moved = live.xml()
    slide(live, f"{WELL}/{TIN}", ["0.25", "0.3"])
    live.keys(Keys.CONTROL, "z")
    assert live.xml() == moved
    live.keys(Keys.CONTROL, "z")
    assert live.xml() == before
    assert live.shown(f"{WELL}/T") == "1010"
    live.keys(Keys.CONTROL, Keys.SHIFT, "z")
    assert live.xml() == moved
    live.press("Redo")
    assert '<TMIn val="0.3" end="0.3"/>' in live.xml()
    live.press("Undo")
    live.settled()
    assert live.xml() == moved


def test_the_growth_follows_a_slider(live: Live) -> None:
    live.select(WELL)
    runs, indium = live.runs(), live.layers()[3]["x_in"]
    slide(live, f"{WELL}/T", ["1000"])
    live.wait_for_run(runs)
    live.settled()
    assert live.layers()[3]["x_in"] > indium + 0.01  # a colder well takes up more
    assert "In" in live.status()


# ---- units


def test_units_of_the_screen_leave_the_recipe_as_it_is(live: Live) -> None:
    before = live.xml()
    live.select(WELL)
    shown = {
        ("temperature", "°C", f"{WELL}/T"): "736.85",  # 1010 - 273.15
        ("pressure", "mbar", f"{WELL}/P"): "400",
        ("metal", "µmol/min", f"{WELL}/{TIN}"): "8.92299455697",  # 0.2e6 / 22414
        ("gas", "slm", f"{WELL}/gas_species/Q/N2"): "8",
    }
    for (quantity, unit, path), number in shown.items():
        live.choose(f"[data-quantity={quantity}]", unit)
        assert live.shown(path) == live.shown(path, view=TABLE) == number
    assert live.xml() == before
    live.enter(f"{WELL}/T", "757")
    live.enter(f"{WELL}/P", "300")
    live.enter(f"{WELL}/{TIN}", "10")
    live.enter(f"{WELL}/gas_species/Q/N2", "7.5")
    recipe = live.recipe()
    # as the package converts "757 degC", "10 umol/min"
    expected = vorlen.Recipe.load(MQW)
    for path, text in (("T", "757 degC"), ("P", "300 mbar"), (TIN, "10 umol/min"), ("gas_species/Q/N2", "7.5 slm")):
        expected[f"{WELL}/{path}"] = text
        assert recipe[f"{WELL}/{path}"] == expected[f"{WELL}/{path}"]
    assert '<T val="1030.15" end="1030.15"/>' in live.xml() and '<TMIn val="0.22414" end="0.22414"/>' in live.xml()


def test_a_recipe_is_first_shown_in_the_units_in_which_it_was_written(browser: Browser, tmp_path: Path) -> None:
    page = Live(browser, write_page(tmp_path / "led.html", LED))
    page.open(1440, 900)
    units = page.browser.run("return [...document.querySelectorAll('select.units')].map(list => list.value)")
    assert units == ["°C", "mbar", "µmol/min", "slm"]  # as in examples/gallery/blue_led.py
    page.select("process_stages/stage_1")
    assert page.shown("process_stages/stage_1/T") == "1050"
    assert page.shown("process_stages/stage_1/gas_species/Q/TMGa") == "180"


# ---- XML


def test_an_edit_in_the_xml_is_in_the_table_at_once(live: Live) -> None:
    live.type_xml('<T val="1010" end="1010"/>', '<T val="1020" end="990"/>')
    live.browser.run("document.getElementById('tab-table').click()")
    assert [live.shown(f"{WELL}/T", name, TABLE) for name in ("val", "end")] == ["1020", "990"]
    live.settled()
    assert live.browser.run("return vorlen.last.xml") == live.xml()


def test_xml_that_is_not_well_formed_leaves_the_table_in_its_last_state(live: Live) -> None:
    good, runs = live.xml(), live.runs()
    live.type_xml('<tau val="70"/>', '<tau val="70">')
    assert "Line 107: </stage_1_3> where </tau> is expected" in live.text("#pane-xml .draft") or "where </tau>" in live.text("#pane-xml .draft")
    live.browser.run("document.getElementById('tab-table').click()")
    assert "The table shows the last state" in live.text("#pane-table .draft")
    assert live.shown(f"{WELL}/tau", view=TABLE) == "70"
    assert live.browser.run("return document.querySelector('fieldset.content').disabled")
    assert live.status().startswith("Not run: Line ")
    assert live.runs() == runs
    live.press("Discard the XML")
    assert live.xml() == good
    assert not live.browser.run("return document.querySelector('fieldset.content').disabled")
    # Correcting the text brings the table back as well.
    live.type_xml('<tau val="70"/>', '<tau val="71">')
    live.type_xml('<tau val="71">', '<tau val="71"/>')
    live.browser.run("document.getElementById('tab-table').click()")
    assert live.shown(f"{WELL}/tau", view=TABLE) == "71"


def test_line_ends_of_a_file_from_windows_are_kept(live: Live) -> None:
    text = MQW.read_text("utf-8").replace("\n", "\r\n")
    live.set(text)
    live.type_xml('<tau val="70"/>', '<tau val="75"/>\n        <!-- longer -->')
    assert live.xml() == text.replace('<tau val="70"/>', '<tau val="75"/>\r\n        <!-- longer -->')
    live.browser.run("document.getElementById('tab-table').click()")
    live.enter(f"{WELL}/tau", "80", view=TABLE)
    assert live.xml() == text.replace('<tau val="70"/>', '<tau val="80"/>\r\n        <!-- longer -->')


def test_undo_covers_the_xml_and_the_table(live: Live) -> None:
    first = live.xml()
    live.enter(f"{WELL}/tau", "75", view=TABLE)
    live.type_xml('<tau val="75"/>', '<tau val="76"/>')
    live.browser.run("document.querySelector('.CodeMirror').CodeMirror.focus()")
    live.keys(Keys.CONTROL, "z")
    assert '<tau val="75"/>' in live.xml()
    live.keys(Keys.CONTROL, "z")
    assert live.xml() == first
    assert live.browser.run("return document.querySelector('.CodeMirror').CodeMirror.getValue()") == first


# ---- problems


def test_warnings_are_next_to_their_field_while_typing(live: Live) -> None:
    live.select(WELL)
    live.enter(f"{WELL}/T", "757")
    message = f"[data-value='{WELL}/T'] .message"
    live.browser.wait(f"return document.querySelector(\"{message}\").textContent.includes('757 °C is 1030.15 K')", 10)
    assert "below the usual 870 to 1250 K" in live.text("tr.selected + tr.message-row")
    assert "warning" in live.text(".problems summary")
    live.browser.run("document.querySelector('.problems').open = true; document.activeElement.blur()")
    live.browser.run(
        "[...document.querySelectorAll('.problems .find')].find(b => b.textContent.includes('757 K')).click()"
    )
    assert live.browser.run("return document.activeElement.dataset.key") == f"{WELL}/T@val"
    live.enter(f"{WELL}/T", "1012")
    live.browser.wait(f"return document.querySelector(\"{message}\").textContent === ''", 10)
    assert live.text(".problems summary") == "No problems"


def test_an_error_of_the_check_is_marked_and_the_run_rejected(live: Live) -> None:
    live.select(WELL)
    live.enter(f"{WELL}/tau", "0")
    live.browser.wait("return document.querySelector('.problems summary').textContent.includes('1 error')", 10)
    assert live.browser.run("return arguments[0].getAttribute('aria-invalid')", live.field(f"{WELL}/tau")) == "true"
    assert "Duration tau is less than 1e-4 s in stage_1_3" in live.text(f"[data-value='{WELL}/tau'] .message")
    live.wait_for_status("The recipe can't be run")


def test_a_warning_about_several_stages_is_marked_in_all_and_listed_once(live: Live) -> None:
    live.set(MQW.read_text("utf-8").replace('<P val="40000" end="40000"/>', '<P val="400" end="400"/>'))
    live.browser.wait("return document.querySelector('.problems summary').textContent !== 'No problems'", 10)
    assert live.text(".problems summary") == "1 warning"
    marked = live.browser.run("return [...document.querySelectorAll('input.warned[data-view=table]')].map(e => e.dataset.key)")
    assert len(marked) == 5 and all(key.endswith("/P@val") for key in marked)


def test_a_run_that_fails_says_so_next_to_its_stage(live: Live) -> None:
    recipe = failing_recipe()
    live.set(str(recipe))
    live.browser.wait("return document.getElementById('status').className === 'status failed'", 20)
    with pytest.raises(vorlen.SimulationError) as failure:
        vorlen.run(recipe)
    stage = live.browser.run(
        "return [...document.querySelectorAll('tr.message-row')].filter(r => r.textContent.includes('What to do'))"
        ".map(r => [r.previousElementSibling.dataset.path, r.textContent])"
    )
    assert [path for path, _ in stage] == ["process_stages/stage_2"]  # whose jump of the temperature is too large
    assert str(failure.value).split("\n")[0].split(". ")[0] in stage[0][1]
    assert live.status().startswith("The run failed: ")


def test_all_examples_can_be_chosen_and_run(live: Live) -> None:
    offered = live.browser.run("return [...document.querySelector('.examples').options].map(o => o.value).filter(Boolean)")
    assert sorted(offered) == [path.stem for path in EXAMPLES]
    for name in offered:
        runs = live.runs()
        live.choose(".examples", name)
        live.wait_for_run(runs)
        live.settled()
        assert live.xml() == (ROOT / "examples" / f"{name}.xml").read_text("utf-8")
        assert live.status().startswith("Grown: "), name


def test_the_table_of_elements_is_complete(live: Live) -> None:
    carried = live.browser.run("return JSON.parse(document.getElementById('page-data').textContent).elements.map(e => e.path)")
    assert carried == [element.path for element in ELEMENTS]
