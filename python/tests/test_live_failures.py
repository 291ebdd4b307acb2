"""What the live page shows of runs that fail, are cancelled, or take long."""

from __future__ import annotations

import json
import re
import subprocess
from pathlib import Path

import pytest

import vorlen
from live import Live
from live_growth import hotter, plain, rows_of_table, texts, value
from support import MQW, ROOT, V_DEFECTS, failing_recipe

pytestmark = pytest.mark.usefixtures("whole_depth")


def test_a_failed_run_shows_its_rows_and_the_last_good_one_in_grey(live: Live) -> None:
    live.set(V_DEFECTS.read_text("utf-8"), "good.xml")
    recipe = failing_recipe()
    live.set(recipe.to_bytes().decode(), "bad.xml")
    with pytest.raises(vorlen.SimulationError) as caught:
        vorlen.run(recipe)
    failed = caught.value.run
    assert live.text(".growth-failure h3") == "The run failed"
    message = live.text(".growth-failure .message")
    assert message and message in plain(str(caught.value.text))
    assert live.text(".growth-failure .stage") and live.text(".growth-failure .remedy").startswith("What to do")
    grey = live.browser.run("return document.querySelectorAll('.charts [data-panel=composition] .ghost').length")
    assert grey == 1
    names = [row[1] for row in rows_of_table(live) if len(row) > 1]
    assert names == ["GaN template", "InGaN", "GaN cap (not reached)", "p-GaN (not reached)"]
    layer = next(row for row in rows_of_table(live) if row[1] == "InGaN")
    assert value(layer[2]) == pytest.approx(failed.layers.loc[2, "thickness"], rel=1e-3)
    assert not any("p-GaN" in name for name in texts(live, ".stack text[data-layer]"))
    assert live.browser.run("return document.querySelector('.keep').disabled")


def test_a_rejected_recipe_leaves_the_last_picture_in_grey(live: Live) -> None:
    indium = texts(live, ".growth-sentence")
    before = live.runs()
    live.browser.run("vorlen.pane.setXml(arguments[0], 'bad.xml')", MQW.read_text("utf-8").replace('<material val="InGaN"/>', ""))
    live.wait_for_run(before)
    assert live.text(".growth-failure h3") == "The recipe can’t be simulated"
    assert "material" in live.text(".growth-failure .message")
    live.browser.wait("return Number(getComputedStyle(document.querySelector('.growth-pictures')).opacity) < 0.6", 5)
    assert live.browser.run("return document.querySelector('.growth').classList.contains('stale')")
    assert texts(live, ".growth-sentence") == indium and len(texts(live, ".stack text[data-layer]")) > 4
    live.set(MQW.read_text("utf-8"), "wells.xml")
    assert live.browser.run("return document.querySelector('.growth-failure').hidden")
    assert not live.browser.run("return document.querySelector('.growth').classList.contains('stale')")


@pytest.mark.parametrize(("status", "head"), [("crashed", "The solver has stopped"), ("cancelled", "The run was cancelled")])
def test_crashes_and_cancelled_runs_are_reported_without_a_blank(status: str, head: str, live: Live) -> None:
    live.browser.run(
        "vorlen.growth.show({status: arguments[0], message: 'Out of memory', stage: '', remedy: '', unphysical: '', seconds: 0,"
        "result: new Uint8Array(), columns: {}, layers: []}, '<a/>', 'x.xml')", status
    )
    assert live.text(".growth-failure h3") == head and live.text(".growth-failure .message") == "Out of memory"
    assert live.text(".growth-failure .pictured") == "The pictures below show the last run that succeeded."
    assert live.browser.run("return document.querySelector('.charts').getBoundingClientRect().height") > 300
    live.set(hotter(1), "wells.xml")
    assert live.browser.run("return document.querySelector('.growth-failure').hidden")


def test_only_a_long_run_is_announced_and_it_can_be_cancelled(live: Live) -> None:
    # A run of the wells takes a few milliseconds.
    live.browser.run("window.seen = 0; new MutationObserver(() => { seen += !document.querySelector('.growth-busy').hidden })"
                     ".observe(document.querySelector('.growth-busy'), {attributes: true})")
    live.set(hotter(2), "wells.xml")
    assert live.browser.run("return seen") == 0
    many = vorlen.Recipe.load(MQW)
    many["process_stages/stage_1/n_periods"] = 20000
    before = live.runs()
    live.browser.run("vorlen.pane.setXml(arguments[0], 'many.xml')", many.to_bytes().decode())
    live.browser.wait("return !document.querySelector('.growth-busy').hidden", 10)
    assert re.fullmatch(r"Simulating\s?\d+\.\d s", live.text(".growth-busy"))
    cancels = "return [...document.querySelectorAll('button')].filter(b => /Cancel/.test(b.textContent) && b.getClientRects().length).length"
    live.browser.wait(f"{cancels} === 1", 10)
    live.press("Cancel the run")
    live.wait_for_run(before)
    assert (live.text("#status-word"), live.status()) == ("Cancelled", "The run was cancelled")
    assert live.text(".growth-failure .message") == ""
    assert not any("failed" in text for text in texts(live, ".run-failure:not([hidden]), .message-row"))
    assert live.text(".growth-failure h3") == "The run was cancelled"
    assert live.browser.run("return document.querySelector('.growth-busy').hidden")


# ---- what to do


def advice(live: Live) -> list[str]:
    """All texts of the page that say what to do."""
    return texts(live, ".growth-failure .remedy, .message-row, .problems li, .run-failure:not([hidden])")


def test_a_remedy_can_be_followed_on_the_page(live: Live) -> None:
    before = str(failing_recipe())
    live.set(before, "bad.xml")
    live.browser.wait("return document.querySelectorAll('.problems .hint').length > 0", 10)
    assert "choose the scheme “staged” in “Models and constants”" in live.text(".growth-failure .remedy")
    assert not any(re.search(r"--|Python|docs/|<scheme", text) for text in advice(live))
    live.browser.run("document.querySelector('details.settings').open = true")
    live.press("Choose the scheme staged")
    live.settled()
    assert live.status().startswith("Grown: ")
    assert live.recipe()["integration/scheme"] == "staged"
    assert live.browser.run("return document.querySelector('.settings .scheme')") is None
    live.press("Undo")
    assert live.xml() == before


def test_a_failure_under_the_staged_scheme_counts_what_was_reached(live: Live) -> None:
    recipe = vorlen.Recipe.load(MQW)
    recipe["process_stages/stage_2/T"] = 1e308
    live.set(str(recipe), "hot.xml")
    live.wait_for_status("The run failed: ")
    layers = vorlen.run(MQW).layers  # the same up to there
    reached = layers[(layers["kind"] == "active") & (layers["thickness"] > 0)].iloc[:-1]
    assert f"Before: {len(reached)} layers, {float(f'{reached.thickness.sum():.3g}'):g} nm" in live.status()
    assert live.text(".growth-failure .remedy").startswith("What to do: look at the values of this stage")
    assert not any("docs/" in text for text in advice(live))


def test_text_that_is_not_well_formed_takes_the_failure_of_another_recipe_away(live: Live) -> None:
    before = live.runs()
    live.browser.run("vorlen.pane.setXml('<NonstSurfChem/>', 'bad.xml')")
    live.wait_for_run(before)
    assert not live.browser.run("return document.querySelector('.growth-failure').hidden")
    live.browser.run("vorlen.pane.setXml('<NonstSurfChem', 'draft.xml')")
    assert live.status().startswith("Not run: ")
    assert live.browser.run("return document.querySelector('.growth-failure').hidden")
    assert live.browser.run("return document.querySelector('.growth').classList.contains('stale')")


SCHEMES = {
    "<R/>": "<R><integration><scheme val=\"staged\"/></integration></R>",
    "<R>\r\n  <a/>\r\n</R>": "<R>\r\n  <a/>\r\n  <integration><scheme val=\"staged\"/></integration>\r\n</R>",
    "<R><integration /></R>": "<R><integration><scheme val=\"staged\"/></integration></R>",
    "<R><integration>\n\t<tolerance val='1'/> <!-- x -->\n</integration></R>":
        "<R><integration>\n\t<tolerance val='1'/> <!-- x -->\n\t<scheme val=\"staged\"/>\n</integration></R>",
    "<R><integration><scheme val='continuous'/></integration></R>": "<R><integration><scheme val='staged'/></integration></R>",
}


def test_the_scheme_is_added_where_it_is_missing(tmp_path: Path) -> None:
    script = tmp_path / "scheme.mjs"
    script.write_text(
        f"import {{ withScheme }} from {json.dumps((ROOT / 'live/page/recipe/scheme.js').as_uri())};\n"
        f"console.log(JSON.stringify({json.dumps(list(SCHEMES))}.map(text => withScheme(text, 'staged'))));"
    )
    answer = subprocess.run(["node", script], capture_output=True, encoding="utf-8", check=True, timeout=30).stdout
    assert json.loads(answer) == list(SCHEMES.values())
