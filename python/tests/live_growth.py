"""The right half of the live page, what grows: what the tests of it share."""

from __future__ import annotations

import vorlen
from live import Live
from support import MQW

WELL = "process_stages/stage_1/stage_1_3"
PANELS = ["composition", "rate", "strain", "densities", "temperature"]


def over_depth(live: Live) -> None:
    """Shows the page without kept variants, over the whole depth."""
    live.browser.run(
        "vorlen.growth.restore({axis: 'height', zoom: 'whole', panels: arguments[0], kept: []}); scrollTo(0, 0);"
        "document.querySelector('.all-periods input').checked = false;", PANELS
    )


def plain(text: str) -> str:
    return " ".join(text.replace("\u00a0", " ").split())


def value(text: str) -> float:
    """A number as the page shows it: −0.0166, 4.8×10¹¹."""
    text = text.replace("−", "-")
    if "×10" in text:
        mantissa, exponent = text.split("×10")
        return float(mantissa) * 10.0 ** int(exponent.translate(str.maketrans("⁻⁰¹²³⁴⁵⁶⁷⁸⁹", "-0123456789")))
    return float(text)


def rows_of_table(live: Live) -> list[list[str]]:
    """The cells of the table of layers, without differences; rows that are notes have one cell."""
    rows = live.browser.run(
        "return [...document.querySelectorAll('.growth-layers tbody tr')].map(r => [...r.cells].map(c =>"
        "(c.querySelector('span') ?? c).textContent))"
    )
    return [[plain(cell) for cell in row] for row in rows]


def heads(live: Live) -> list[str]:
    return live.browser.run("return [...document.querySelectorAll('.growth-layers thead th')].map(c => c.innerText.replace('\\n', ' '))")


def texts(live: Live, selector: str) -> list[str]:
    found = live.browser.run("return [...document.querySelectorAll(arguments[0])].map(n => n.textContent)", selector)
    return [plain(text) for text in found]


def box_of_panel(live: Live, key: str) -> dict[str, float]:
    return live.browser.run(
        "return document.querySelector(`.charts [data-panel=${arguments[0]}] .frame`).getBoundingClientRect().toJSON()", key
    )


def axis_range(live: Live) -> tuple[float, float]:
    """The first and the last place that are visible, from the data of the ticks."""
    return live.browser.run(
        "const ticks = [...document.querySelectorAll('.charts > g > .tick')].map(t => [t.__data__, t.getBoundingClientRect()])"
        ".map(([v, b]) => [v, b.left + b.width / 2]);"
        "const frame = document.querySelector('.charts .frame').getBoundingClientRect();"
        "const [[a, x], [b, y]] = [ticks[0], ticks.at(-1)], k = (b - a) / (y - x);"
        "return [a + k * (frame.left - x), a + k * (frame.right - x)]"
    )


def hover(live: Live, place: float) -> None:
    """Moves the mouse over the charts to a place on their axis."""
    low, high = axis_range(live)
    box = box_of_panel(live, "rate")
    live.browser.hover(box["left"] + (place - low) / (high - low) * box["width"], box["top"] + 20)


def readout(live: Live, key: str) -> dict[str, str]:
    """The values beside the names of the curves of a panel."""
    parts = live.browser.run(
        "return [...document.querySelectorAll(`.charts [data-panel=${arguments[0]}] > text > tspan`)].map(t => "
        "t.childElementCount ? t.firstChild.textContent : t.textContent)", key
    )[1:]
    return {plain(name): plain(shown) for _, name, shown in zip(parts[::3], parts[1::3], parts[2::3])}


def press(live: Live, selector: str) -> None:
    live.browser.run("document.querySelector(arguments[0]).click()", selector)


def hotter(kelvin: float) -> str:
    """The recipe of wells with hotter wells."""
    recipe = vorlen.Recipe.load(MQW)
    recipe[f"{WELL}/T"] = 1010 + kelvin
    return recipe.to_bytes().decode()
