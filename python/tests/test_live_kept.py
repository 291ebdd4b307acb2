"""Variants that are kept for comparison on the live page."""

from __future__ import annotations

import pytest

import vorlen
from live import Live
from live_growth import hotter, hover, press, texts, value
from support import MQW

pytestmark = pytest.mark.usefixtures("whole_depth")


def test_kept_variants_are_drawn_thinner_and_compared_in_the_table(live: Live, wells: vorlen.Run) -> None:
    live.press("Keep this")
    live.set(hotter(10), "wells.xml")
    run = vorlen.run(vorlen.Recipe(hotter(10)))
    widths = live.browser.run(
        "return [...document.querySelectorAll('.charts [data-panel=composition] .curve')].map(c => {"
        "const s = getComputedStyle(c); return [parseFloat(s.strokeWidth), s.stroke]})"
    )
    (thin, colour), (thick, own) = widths  # the kept one is below the current one
    assert thin < thick and colour != own
    assert live.text(".charts .others") == "━Variant 1"
    # Differences in the row of the well: thickness and indium.
    changes = live.browser.run(
        "return [...document.querySelectorAll('.growth-layers tbody tr')].find(r => r.cells[0].textContent === '4')"
        ".querySelectorAll('.change').values().map(c => c.textContent).toArray()"
    )
    difference = {name: run.layers.loc[4, name] - wells.layers.loc[4, name] for name in ("thickness", "x_in_mid")}
    assert value(changes[0]) == pytest.approx(difference["thickness"], rel=0.01)
    assert value(changes[1]) == pytest.approx(difference["x_in_mid"], rel=0.01)
    # The cursor shows both values.
    hover(live, run.layers["thickness"].loc[2:4].sum() - 1.5)
    assert live.browser.run("return document.querySelectorAll('.charts [data-panel=composition] > text tspan tspan').length") == 1


def test_kept_variants_are_named_recalled_and_removed(live: Live) -> None:
    live.press("Keep this")
    live.browser.run(
        "const name = document.querySelector('.growth-kept input'); name.value = 'cold'; name.dispatchEvent(new Event('change'))"
    )
    assert texts(live, ".compare option") == ["nothing", "cold"]
    live.set(hotter(20), "wells.xml")
    before = live.runs()
    press(live, ".growth-kept .recall")
    live.wait_for_run(before)
    assert live.xml() == MQW.read_text("utf-8")
    press(live, ".growth-kept .remove")
    assert live.browser.run("return document.querySelectorAll('.charts .thin').length") == 0
    assert live.browser.run("return document.querySelector('.growth-kept').hidden")


def test_at_most_five_variants_are_kept_and_all_differ_in_colour(live: Live) -> None:
    for _ in range(5):
        live.press("Keep this")
    assert live.browser.run("return document.querySelector('.keep').disabled")
    live.browser.run("vorlen.growth.keep()")
    colours = live.browser.run("return [...document.querySelectorAll('.growth-kept .swatch')].map(s => getComputedStyle(s).backgroundColor)")
    assert len(colours) == len(set(colours)) == 5
    press(live, ".growth-kept .remove")
    assert not live.browser.run("return document.querySelector('.keep').disabled")


def test_the_state_brings_back_view_and_variants(live: Live) -> None:
    live.press("Keep this")
    press(live, "[data-choice=time]")
    press(live, ".panels input[data-panel=strain]")
    state = live.browser.run("return JSON.parse(JSON.stringify(vorlen.growth.state()))")
    assert state["axis"] == "time" and "strain" not in state["panels"] and state["kept"][0]["xml"] == MQW.read_text("utf-8")
    live.browser.run("vorlen.growth.restore({axis: 'height', panels: ['rate'], zoom: 'whole', kept: []})")
    live.set(hotter(10), "wells.xml")
    live.browser.run("vorlen.growth.restore(arguments[0])", state)
    live.browser.wait("return document.querySelectorAll('.charts [data-panel=composition] .thin').length === 1", 10)
    assert live.browser.run("return document.querySelector('[data-choice=time]').getAttribute('aria-pressed')") == "true"
    # What a reader has changed in a link does no harm.
    live.browser.run("vorlen.growth.restore({axis: 7, zoom: {axis: 'x'}, panels: 'a', kept: [{}, null, 3].filter(Boolean)})")
