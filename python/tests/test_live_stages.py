"""Stages in the live page: copied, added, moved, repeated, removed. The package does the same to a recipe."""

from __future__ import annotations

import re

import vorlen
from live import TABLE, Live
from support import MQW

WELL, COOLING = "process_stages/stage_1/stage_1_3", "process_stages/stage_1/stage_1_2"  # of MQW


def comments(xml: str) -> list[str]:
    return re.findall(r"<!--.*?-->", xml, re.DOTALL)


def press_action(live: Live, path: str, words: str) -> None:
    live.select(path)
    live.press(words)


def same_process(live: Live, expected: vorlen.Recipe) -> None:
    columns = ["name", "stage", "duration", "T_begin", "T_end", "TMIn_begin", "N2_end"]
    assert live.recipe().timeline()[columns].equals(expected.timeline()[columns])


def test_a_stage_is_copied_and_removed(live: Live) -> None:
    before = live.xml()
    press_action(live, WELL, "Copy")
    expected = vorlen.Recipe.load(MQW)
    expected.add_stage(WELL, before="process_stages/stage_1/stage_1_4")
    same_process(live, expected)
    assert live.text(".panel h2") == "InGaN wellstage_1_4"  # the copy is selected
    live.settled()
    assert len(live.layers()) == len(vorlen.run(expected).layers)
    live.press("Remove")
    assert live.xml() == before


def test_an_added_stage_continues_with_the_conditions_at_the_end(live: Live) -> None:
    press_action(live, COOLING, "Add after")
    recipe, path = live.recipe(), "process_stages/stage_1/stage_1_3"
    assert recipe[f"{path}/name"] == "new stage"
    assert live.shown(f"{path}/T") == "1010"  # at the end of the cooling
    table = recipe.timeline().query("name == 'new stage'").iloc[0]
    assert table["T_begin"] == table["T_end"] == 1010 and table["duration"] == 20


def test_stages_move_also_into_and_out_of_periods(live: Live) -> None:
    first = live.xml()
    press_action(live, WELL, "↑")
    assert list(live.recipe().timeline()["name"][1:5]) == ["GaN barrier", "InGaN well", "cooling", "heating"]
    live.press("↓")
    assert live.xml() == first
    heating = "process_stages/stage_1/stage_1_4"
    press_action(live, heating, "↓")  # out of the periods, grown once
    names = list(live.recipe().timeline()["name"])
    assert names.count("heating") == 1 and names[10:12] == ["heating", "last GaN barrier"]
    live.press("↑")
    assert live.recipe().timeline().equals(vorlen.Recipe(first.encode()).timeline())
    assert comments(live.xml()) == comments(first)


def test_stages_are_repeated_and_released(live: Live) -> None:
    first = live.xml()
    live.select("process_stages/stage_1")
    live.press("Grow once")
    recipe = live.recipe()
    assert list(recipe.timeline()["name"]) == ["GaN template", "GaN barrier", "cooling", "InGaN well", "heating", "last GaN barrier", "p-GaN"]
    live.select("process_stages/stage_1")
    live.press("Repeat…")
    live.choose(".repeat select", "process_stages/stage_4")
    live.browser.run("document.querySelector('.repeat input').value = 3")
    live.press("Repeat")
    assert live.xml() == first  # the layout of the file is restored too
    live.enter("process_stages/stage_1/n_periods", "5", view=TABLE)
    live.settled()
    assert len(live.layers()) == 1 + 5 * 4 + 2


def test_layers_above_are_added_and_the_last_stage_stays(live: Live) -> None:
    press_action(live, "post_stages/post_stage_1", "Remove")
    assert live.recipe()["post_stages/n_post_stages"] == 0
    live.press("Add a layer")
    live.settled()
    assert [layer["kind"] for layer in live.layers()][-1] == "post"
    for name in ("stage_2", "stage_1"):
        live.select(f"process_stages/{name}")
        disabled = live.browser.run(
            "return [...document.querySelectorAll('.actions button')].find(b => b.textContent === 'Remove').disabled"
        )
        if name == "stage_2":
            assert not disabled
            live.press("Remove")
    assert disabled
