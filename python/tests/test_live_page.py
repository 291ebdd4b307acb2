"""The live page as a whole: files, links, state, odd recipes, keyboard, screen reader, sizes, colours."""

from __future__ import annotations

import base64
import json
import os
import re
import subprocess
import zlib
from pathlib import Path

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import vorlen
from browser import Browser
from live import TABLE, Live, write_page
from support import MQW, ROOT, V_DEFECTS, tool
from test_report import luminance

SIZES = {"desk": (1440, 900, False), "laptop": (1024, 768, False), "phone": (390, 844, True)}
WELL = "process_stages/stage_1/stage_1_3"
LAYER = Path(__file__).with_name("plain_layer.xml")


# ---- the file


def test_the_page_is_one_file_below_3_mb_that_needs_no_network(wells_page: Live) -> None:
    content = wells_page.page.read_bytes()
    assert len(content) < 3e6
    html = content.decode("utf-8")
    assert not re.search(r"""<(?:script|img|link|iframe)[^>]*\s(?:src|href)=(?!["']data:)""", html)
    assert not re.search(r"url\((?!['\"]?(?:data:|#))", html[: html.index("</style>")])
    # Nothing ends a script early: as many ends as starts.
    assert len(re.findall(r"<script[\s>]", html)) == len(re.findall(r"</script>", html)) == 3


def test_without_a_recipe_the_page_starts_with_an_example(browser: Browser, tmp_path: Path) -> None:
    live = Live(browser, write_page(tmp_path / "page.html"))
    live.open(1440, 900)
    assert live.status().startswith("Grown: ")
    assert live.browser.run("return document.title").endswith("live growth")


def test_the_titles_of_the_examples_are_those_of_vorlen_new(live: Live) -> None:
    listed = subprocess.run([tool(), "new"], capture_output=True, encoding="utf-8", check=True).stdout
    offered = live.browser.run("return [...document.querySelectorAll('.examples option')].slice(1).map(o => [o.value, o.title])")
    for name, title in offered:
        assert re.search(rf"{name} +{re.escape(title)}", listed), name


# ---- files


def test_a_file_is_opened_and_saved(live: Live, tmp_path: Path) -> None:
    live.browser.driver.find_element(By.CSS_SELECTOR, "input.file").send_keys(str(V_DEFECTS))
    live.browser.wait("return vorlen.pane.name() === 'ingan_v_defects.xml'")
    live.settled()
    assert live.xml() == V_DEFECTS.read_text("utf-8")
    assert live.text("#name") == "ingan_v_defects.xml"
    live.enter("process_stages/stage_1/tau", "100", view=TABLE)
    saved = live.browser.downloaded(tmp_path, "button.save")
    assert saved.name == "ingan_v_defects.xml"
    assert saved.read_text("utf-8") == live.xml()
    assert vorlen.Recipe.load(saved)["process_stages/stage_1/tau"] == 100


def drop(live: Live, name: str, content: bytes) -> None:
    live.browser.run(
        "const bytes = Uint8Array.from(atob(arguments[1]), c => c.charCodeAt(0)), data = new DataTransfer();"
        "data.items.add(new File([bytes], arguments[0]));"
        "document.body.dispatchEvent(new DragEvent('drop', {dataTransfer: data, bubbles: true, cancelable: true}))",
        name, base64.b64encode(content).decode(),
    )


def test_a_file_is_dropped_on_the_page(live: Live) -> None:
    drop(live, "led.xml", (ROOT / "examples" / "blue_led.xml").read_bytes())
    live.browser.wait("return vorlen.pane.name() === 'led.xml'")
    live.settled()
    assert len(live.layers()) == 33


def test_files_in_other_encodings(live: Live) -> None:
    recipe = vorlen.Recipe.load(MQW)
    recipe[f"{WELL}/name"] = "Schicht für Blau"
    text = str(recipe).replace('encoding="UTF-8"', 'encoding="ISO-8859-1"')
    drop(live, "latin.xml", text.encode("latin-1"))
    live.browser.wait("return vorlen.pane.name() === 'latin.xml'")
    assert "was in ISO-8859-1; here it is UTF-8" in live.note()
    live.settled()
    assert live.layers()[3]["name"] == "Schicht für Blau" and 'encoding="UTF-8"' in live.xml()
    before = live.xml()
    drop(live, "wide.xml", str(recipe).encode("utf-16"))
    live.browser.wait("return document.getElementById('note-text').textContent.includes('UTF-16')")
    drop(live, "wrong.xml", str(recipe).encode("latin-1"))
    live.browser.wait("return document.getElementById('note-text').textContent.includes('not the UTF-8 that it declares')")
    assert live.xml() == before


# ---- links and state


def link_of(live: Live) -> str:
    live.press("Link")
    live.browser.wait("return document.querySelector('.address') !== null")
    address = live.browser.run("return document.querySelector('.address').value")
    live.press("Close")
    return address


def test_a_link_carries_the_recipe(live: Live) -> None:
    live.enter(f"{WELL}/name", "well & <tag> ü", view=TABLE)
    live.settled()
    sent = live.xml()
    address = link_of(live)
    path, fragment = address.split("#recipe=")
    assert path == live.page.as_uri() and len(fragment) < 4000
    packed = base64.urlsafe_b64decode(fragment + "=" * (-len(fragment) % 4))
    assert json.loads(zlib.decompress(packed, wbits=-15))["xml"] == sent
    # In the page that is open, and in one that is loaded with the link; the state stored before gives way to it.
    for first in (True, False):
        live.set(LAYER.read_text("utf-8"))
        if not first:
            live.browser.driver.get("about:blank")
        live.browser.driver.get(address)
        live.browser.wait(f"return window.vorlen !== undefined && vorlen.pane.xml() === {json.dumps(sent)}")
        live.settled()
        assert live.text("#name") == "wells.xml"
        assert live.browser.run("return location.hash") == ""  # a reload shows later changes


def test_a_broken_link_gets_a_message(live: Live) -> None:
    before = live.xml()
    packer = zlib.compressobj(9, zlib.DEFLATED, -15)
    bomb = packer.compress(b'{"name":"a","xml":"' + b" " * 50_000_000) + packer.flush()
    whole = link_of(live).split("=", 1)[1]
    for broken in ("AAAA", "%%%", "", whole[:-300], base64.urlsafe_b64encode(bomb).decode().rstrip("=")):
        live.browser.run("document.getElementById('note-text').textContent = ''; location.hash = arguments[0]", f"#recipe={broken}")
        live.browser.wait("return document.getElementById('note-text').textContent.startsWith('The recipe in the link can')")
        assert live.xml() == before
    assert live.browser.run("return location.hash") == ""


def test_the_state_survives_a_reload_and_is_that_of_this_page(live: Live, tmp_path: Path) -> None:
    live.choose("[data-quantity=temperature]", "°C")
    live.enter(f"{WELL}/tau", "123", view=TABLE)
    live.settled()
    changed = live.xml()
    live.open(1440, 900, fresh=False)
    assert live.xml() == changed and live.text("#name") == "wells.xml"
    assert live.browser.run("return document.querySelector('[data-quantity=temperature]').value") == "°C"
    assert live.layers()[3]["duration"] == 123
    other = Live(live.browser, write_page(live.page, V_DEFECTS))  # the same place, another recipe
    try:
        other.open(1440, 900, fresh=False)
        assert other.xml() == V_DEFECTS.read_text("utf-8")
    finally:
        write_page(live.page, MQW)
        live.open(1440, 900)


def test_the_page_works_where_nothing_can_be_stored(live: Live) -> None:
    source = live.browser.command(
        "Page.addScriptToEvaluateOnNewDocument",
        source="Object.defineProperty(window, 'localStorage', {get() { throw new DOMException('denied', 'SecurityError'); }})",
    )["identifier"]
    try:
        live.browser.driver.get("about:blank")
        live.open(1440, 900, fresh=False)
        assert live.status().startswith("Grown: ") and live.note() == ""
    finally:
        live.browser.command("Page.removeScriptToEvaluateOnNewDocument", identifier=source)
        live.open(1440, 900)


# ---- odd recipes


ODD = {
    "empty": ("", "the text has no elements"),
    "blank": ("   \n", "the text has no elements"),
    "not XML": ("hello", "text outside of the root element"),
    "another root": ("<html></html>", "the root element is html, not NonstSurfChem"),
    "deep": ("<a>" * 5000, "nested more than 100 deep"),
    "not closed": ("<NonstSurfChem><a b='", "<a> is not complete"),
    "two roots": ("<NonstSurfChem/><NonstSurfChem/>", "a second root element"),
    "comment": ("<NonstSurfChem><!-- ", "a comment without an end"),
    "zero": ("<NonstSurfChem>\0</NonstSurfChem>", "zero byte"),
    "large": (f"<NonstSurfChem>{' ' * 4_100_000}</NonstSurfChem>", "4.1 million characters"),
    "attributes": (f"<NonstSurfChem {'a' * 100_000}", "is not complete"),
}


def test_odd_texts_get_a_message_and_the_page_continues(live: Live) -> None:
    for name, (text, message) in ODD.items():
        live.browser.run("vorlen.pane.setXml(arguments[0], 'odd.xml')", text)
        assert message in live.text("#pane-table .draft"), name
        assert live.status().startswith("Not run: "), name
        live.press("Undo")
        assert live.xml() == MQW.read_text("utf-8"), name
    live.settled()
    live.wait_for_status("Grown: ")


HOLES = (
    "",
    "<process_stages/>",
    "<process_stages><n_stages val='9999'/></process_stages>",
    "<process_stages><n_stages val='1'/><stage_1/></process_stages><stage_1 val='1'/>",
    "<!DOCTYPE a><process_stages><n_stages val='x'/><stage_1><T val='1'/><T val='2'/></stage_1></process_stages>",
    "<process_stages><n_stages val='1'/><stage_1><type val='periodic'/><n_stages val='1'/><stage_1_1><T/></stage_1_1></stage_1>"
    "</process_stages>",
)


def test_recipes_with_holes_are_shown_and_rejected_by_the_solver(live: Live) -> None:
    for inside in HOLES:
        runs = live.runs()
        live.browser.run("vorlen.pane.setXml(arguments[0], 'holes.xml')", f"<NonstSurfChem>{inside}</NonstSurfChem>")
        live.wait_for_run(runs)
        assert live.status().startswith("The recipe can't be run: "), inside
        live.browser.wait("return document.querySelector('.problems').classList.contains('bad')")
        for path in live.browser.run("return [...document.querySelectorAll('tr[data-path]')].map(row => row.dataset.path)"):
            live.select(path)
        assert live.note() == "", inside


def test_a_recipe_with_a_million_layers_gets_a_message_and_the_page_continues(live: Live) -> None:
    text = MQW.read_text("utf-8").replace('<n_periods val="3"/>', '<n_periods val="249999"/>')
    live.browser.run("vorlen.pane.setXml(arguments[0], 'many.xml')", text)
    live.browser.wait("return document.getElementById('status-word').textContent === 'Running'")
    # The page is not blocked meanwhile.
    live.select(WELL)
    assert live.shown(f"{WELL}/T") != ""
    live.press("Cancel the run")
    live.wait_for_status("The run was cancelled")
    live.press("Run again")
    live.browser.wait("return document.getElementById('status-word').textContent === 'Running'")
    live.press("Cancel the run")
    live.wait_for_status("The run was cancelled")
    live.press("Undo")
    live.wait_for_status("Grown: ")


def test_when_the_memory_is_exhausted_the_page_continues(live: Live) -> None:
    live.browser.run(
        "window.realRun = vorlen.engine.run; vorlen.engine.run = async () => ({status: 'crashed', message: 'Out of memory', stage: '',"
        "unphysical: '', remedy: '', seconds: 1, result: new Uint8Array(), columns: {}, layers: []})"
    )
    live.enter(f"{WELL}/tau", "90", view=TABLE)
    live.wait_for_status("The solver stopped: Out of memory")
    assert live.text(".run-failure").startswith("The solver stopped. Out of memory. What to do: make it smaller")
    assert live.text(".growth-failure .remedy").startswith("What to do: make it smaller")
    live.browser.run("vorlen.engine.run = window.realRun")
    live.enter(f"{WELL}/tau", "80", view=TABLE)
    live.wait_for_status("Grown: ")
    assert live.text(".run-failure") == "" or live.browser.run("return document.querySelector('.run-failure').hidden")


def test_a_table_of_very_many_stages_is_shown_in_parts(live: Live) -> None:
    recipe = MQW.read_text("utf-8")
    stage = re.search(r"<stage_2>.*?</stage_2>", recipe, re.DOTALL)[0]
    stages = "\n".join(stage.replace("stage_2", f"stage_{k}") for k in range(2, 600))
    live.set(recipe.replace(stage, stages).replace('<n_stages val="2"/>', '<n_stages val="599"/>'))
    rows = "return document.querySelectorAll('tr.stage').length"
    assert live.browser.run(rows) < 151
    live.press("Show 150 more")
    assert 250 < live.browser.run(rows) < 301
    milliseconds = live.browser.run(
        "const field = arguments[0]; field.focus(); const start = performance.now(); field.value = '151';"
        "field.dispatchEvent(new Event('input')); return performance.now() - start;",
        live.field("process_stages/stage_2/tau", view=TABLE),
    )
    assert milliseconds < 2000
    assert live.recipe()["process_stages/stage_2/tau"] == 151


# ---- keyboard and screen reader


def test_the_shortcuts_of_the_help_work(live: Live) -> None:
    live.browser.run("document.activeElement.blur()")
    live.keys("?")
    assert live.text("dialog[open] h2") == "Help"
    keys = live.browser.run("return [...document.querySelectorAll('dialog .keys th')].map(e => e.textContent)")
    assert {"Ctrl-Z, Ctrl-Shift-Z", "Ctrl-S", "Ctrl-O", "Alt-1, Alt-2"} <= set(keys)
    live.keys(Keys.ESCAPE)
    live.browser.wait("return document.querySelector('dialog') === null", 5)
    live.keys(Keys.ALT, "2")
    assert live.browser.run("return !document.getElementById('pane-xml').hidden")
    live.keys(Keys.ALT, "1")
    assert live.browser.run("return !document.getElementById('pane-table').hidden")
    # Arrow keys: a step in a number.
    live.field(f"{WELL}/T", view=TABLE).send_keys(Keys.ARROW_UP, Keys.ARROW_UP)
    assert live.recipe()[f"{WELL}/T"] == (1012, 1012)


def test_the_tab_key_reaches_the_fields_in_order_and_leaves_the_editor(live: Live) -> None:
    live.select(WELL)
    live.field(f"{WELL}/tau", view=TABLE).send_keys(Keys.TAB)
    assert live.browser.run("return document.activeElement.dataset.key") == f"{WELL}/T@val"
    live.slider(f"{WELL}/tau").send_keys(Keys.TAB)
    assert live.browser.run("return document.activeElement.dataset.key") == f"{WELL}/tau@val"
    live.browser.run("document.getElementById('tab-xml').click(); document.querySelector('.CodeMirror').CodeMirror.focus()")
    live.keys(Keys.TAB)
    assert live.browser.run("return document.activeElement.closest('.CodeMirror') === null")
    live.browser.run("document.getElementById('tab-xml').focus()")
    live.keys(Keys.ARROW_LEFT)
    assert live.browser.run("return document.activeElement.id") == "tab-table"


def test_controls_have_names_and_results_are_said_in_a_sentence(live: Live) -> None:
    live.select(WELL)
    tree = live.browser.command("Accessibility.getFullAXTree")["nodes"]
    nodes = [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in tree if not node["ignored"]]
    controls = [text for role, text in nodes if role in ("button", "combobox", "checkbox", "link", "slider", "textbox", "tab", "spinbutton")]
    assert len(controls) > 100 and all(text.strip() for text in controls)
    names = set(controls)
    assert {"Temperature, InGaN well", "Examples", "Unit: Temperature", "Table", "XML", "Undo", "Duration, last GaN barrier"} <= names
    assert ("tabpanel", "Table") in nodes
    live.enter(f"{WELL}/tau", "77", view=TABLE)
    live.settled()
    said = "return document.getElementById('live').textContent"
    live.browser.wait(f"{said.replace('return ', 'return /Grown: 13 layers, [0-9.]+ nm, up to [0-9.]+ % In/.test(')})", 5)
    assert live.browser.run("return document.getElementById('live').getAttribute('aria-live')") == "polite"


def test_about_names_versions_and_licences(live: Live) -> None:
    live.press("About")
    text = live.text("dialog")
    assert "VorlenSolver" in text and "works without a network" in text
    for name in ("CodeMirror", "d3-scale", "TinyXML", "fast_float", "wasi-libc"):
        assert name in text
    assert "Permission is hereby granted" in text and "Marijn Haverbeke" in text
    live.press("Close")


# ---- sizes and colours


@pytest.mark.parametrize("dark", [False, True], ids=["light", "dark"])
@pytest.mark.parametrize("name", SIZES)
def test_the_page_fits_and_can_be_read(name: str, dark: bool, browser: Browser, wells_page: Live) -> None:
    wells_page.open(*SIZES[name], dark=dark)
    wells_page.set(MQW.read_text("utf-8").replace('<T val="1010" end="1010"/>', '<T val="757" end="757"/>'))
    wells_page.browser.wait("return document.querySelector('tr.message-row') !== null")
    wells_page.select(WELL)
    halves = ("recipe", "growth") if name == "phone" else ("recipe",)
    for half in halves:
        if name == "phone":
            browser.run(f"document.getElementById('half-{half}').click()")
        assert browser.run("return document.documentElement.scrollWidth") <= SIZES[name][0], half
        if os.environ.get("VORLEN_SCREENSHOTS"):
            folder = Path(os.environ["VORLEN_SCREENSHOTS"])
            browser.screenshot(folder / f"live-{name}-{half}-{'dark' if dark else 'light'}.png")
    browser.run("document.getElementById('half-recipe').click()")
    texts = browser.run(
        """const found = [];
        for (const e of document.querySelectorAll('body *:not(script, style, option, noscript, noscript *)')) {
          const text = e.matches('input:not([type=range]), textarea, select') ? e.value : [...e.childNodes].filter(n => n.nodeType === 3).map(n => n.data).join('');
          if (!text.trim() || !e.getClientRects().length || e.disabled || e.closest('#growth, .hidden, .skip, :disabled')) continue;
          let ground = e, colour = 'rgba(0, 0, 0, 0)';
          while (ground && /, 0\\)$/.test(colour)) { colour = getComputedStyle(ground).backgroundColor; ground = ground.parentElement; }
          if (!colour.startsWith('rgb')) {  // color-mix: let the browser paint it
            const paint = document.createElement('canvas').getContext('2d');
            paint.fillStyle = colour; paint.fillRect(0, 0, 1, 1);
            colour = `rgb(${[...paint.getImageData(0, 0, 1, 1).data].slice(0, 3).join(', ')})`;
          }
          found.push([getComputedStyle(e).color, colour, text.slice(0, 40)]);
        }
        return found;"""
    )
    assert len(texts) > 60
    for text, background, words in texts:
        bright, dim = sorted((luminance(text), luminance(background)), reverse=True)
        assert (bright + 0.05) / (dim + 0.05) >= 4.5, (words, text, background)
    assert browser.console() == []


def test_on_a_phone_the_panel_is_below_its_row_and_fingers_fit(wells_page: Live) -> None:
    wells_page.open(*SIZES["phone"])
    wells_page.set(MQW.read_text("utf-8"))
    wells_page.select(WELL)
    assert wells_page.browser.run(f"return document.querySelector(\"tr[data-path='{WELL}']\").nextElementSibling.className") == "panel-row"
    heights = wells_page.browser.run(
        "return [...document.querySelectorAll('.panel button, .panel input, .panel select, .tools button, .tools select')]"
        ".filter(e => e.getClientRects().length && !e.closest('[hidden]')).map(e => [e.getBoundingClientRect().height, e.outerHTML.slice(0, 80)])"
    )
    assert len(heights) > 20
    for height, node in heights:
        assert height >= 39.5, node  # pixels
    box = wells_page.browser.run(
        "const e = document.getElementById('half-growth'); e.scrollIntoView({block: 'center'}); return e.getBoundingClientRect().toJSON()"
    )
    wells_page.browser.tap(box["x"] + box["width"] / 2, box["y"] + box["height"] / 2)
    wells_page.browser.wait("return getComputedStyle(document.getElementById('recipe-pane')).display === 'none'")
    assert wells_page.browser.run("return document.getElementById('growth').getClientRects().length") == 1
