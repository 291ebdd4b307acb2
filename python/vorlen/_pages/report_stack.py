"""The layers of a run as pictures to scale, in SVG: first the active region, then the whole structure.

Repeated groups are drawn once, with "× 5". Names beside the layers never overlap and are inside of the picture; wells
are named before other layers, ramps and pauses last.
"""

from __future__ import annotations

from collections.abc import Sequence
from html import escape
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.types import Array
from .._runs.structure import Region, Structure, composition, groups_of, heights, structure_of
from .._runs.structure_text import alloy

WIDTH, HEIGHT, BAR, TOP, LEFT = 400, 400, 96, 34, 34  # pixels of a picture
NAME_HEIGHT = 16  # pixels that a name needs
NAME_SHIFT = 60  # pixels by which a name may be moved from its layer
LINE_MIN = 5.0  # pixels; layers that are thinner have no line between them, so that their colours stay visible
RAMP_MIN = 8.0  # pixels; thinner ramps have no name
NAME_MAX = 22  # letters of a name
# Colours of the three nitrides; an alloy gets a mixture by its composition.
INN, GAN, ALN = np.array([226, 88, 14]), np.array([186, 204, 224]), np.array([32, 156, 112])
RANKS = {"well": 0, "barrier": 1, "layer": 1, "transition": 2}


class Item(NamedTuple):
    """One layer of a picture."""

    number: int  # of the layer
    name: str
    thickness: float  # nm
    drawn: float  # nm of it that are in the picture
    colour: str
    what: str  # composition in words
    rank: int  # names of lower ranks are placed first


class Bracket(NamedTuple):
    """A bracket beside items that are repeated."""

    first: int  # positions of the first and the last item
    last: int
    text: str


def layer_stack(layers: pd.DataFrame, structure: Structure | None = None) -> str:
    """One or two SVG elements with title and description. Empty if no layer has a thickness."""
    found = structure or structure_of(layers)
    pictures = []
    region = found.region
    if region is not None:
        items, brackets = _items(layers, found, region.low, region.high)
        if items:
            pictures.append(_picture("active region", items, brackets, region.high - region.low, "active"))
    items, brackets = _items(layers, found, -np.inf, np.inf)
    if items and (not pictures or len(items) > 1):
        total = float(sum(layers["thickness"][layers["thickness"] > 0]))
        pictures.append(_picture("whole structure", items, brackets, total, "whole", _marked(items, region)))
    return "".join(pictures)


def colour(x: Sequence[float]) -> str:
    """Colour of a composition In, Ga, Al."""
    shares = np.array(x, float)
    if not np.isfinite(shares).all():
        return "#999999"
    shares = np.clip(shares, 0, 1)
    shares[0] = 1.5 * shares[0] ** 0.4  # makes a little indium visible
    shares = shares / max(shares.sum(), 1e-9)
    red, green, blue = (np.stack([INN, GAN, ALN]).T @ shares).astype(int)
    return f"#{red:02x}{green:02x}{blue:02x}"


def _items(layers: pd.DataFrame, found: Structure, low: float, high: float) -> tuple[list[Item], list[Bracket]]:
    """The layers between two heights from the bottom up, repeated groups once."""
    bottoms, tops = heights(layers)
    fractions = composition(layers)
    thickness = layers["thickness"].to_numpy(float)
    shown = np.minimum(tops, high) - np.maximum(bottoms, low)
    items: list[Item] = []
    brackets: list[Bracket] = []
    # A period of which the region has only a part is not drawn as a repeated one.
    inside = [int(place) for place in np.flatnonzero((shown > 1e-6) & (thickness > 0))]
    if not inside:
        return [], []
    first, last = inside[0], inside[-1]
    is_whole = (shown > thickness - 1e-6) | (thickness <= 0)
    whole = [place for place in range(first, last + 1) if is_whole[place]]
    begin, end = (whole[0], whole[-1] + 1) if whole else (first, first)
    places = [(place, 1) for place in range(first, begin)]
    for group in groups_of(layers.iloc[begin:end]):
        start = len(places)
        places += [(begin + group.first + item, group.periods) for item in range(group.size)]
        drawn = [k for k in range(start, len(places)) if thickness[places[k][0]] > 0]
        if group.periods > 1 and drawn:
            brackets.append(Bracket(places[drawn[0]][0], places[drawn[-1]][0], f"\u00d7\u00a0{group.periods}"))
    places += [(place, 1) for place in range(end, last + 1)]
    positions = {}
    for place, _ in places:
        if thickness[place] > 0 and shown[place] > 0:
            number = int(layers.index[place])
            positions[place] = len(items)
            what = alloy(fractions[place]).replace("\u00a0", " ") if np.isfinite(fractions[place]).all() else "unknown"
            name = " ".join(str(layers["name"].iloc[place]).split())
            items.append(
                Item(number, name, float(thickness[place]), float(min(shown[place], thickness[place])),
                     colour(fractions[place]), what, RANKS[found.roles.get(number, "layer")])
            )
    return items, [
        Bracket(positions[low], positions[high], text)
        for low, high, text in brackets
        if low in positions and high in positions
    ]


def _marked(items: list[Item], region: Region | None) -> str:
    """A line beside the layers of the active region in the picture of the whole structure."""
    inside = [place for place, item in enumerate(items) if region is not None and item.number in region.numbers]
    if not inside or len(inside) == len(items):
        return ""
    edges = _edges(items)
    low, high = edges[inside[0]], edges[inside[-1] + 1]
    return f'<rect class="stack-region" x="{LEFT - 4}" y="{high:.2f}" width="3" height="{max(low - high, 2.0):.2f}"/>'


def _picture(title: str, items: list[Item], brackets: list[Bracket], total: float, key: str, mark: str = "") -> str:
    words = ", ".join(f"{item.name} {_rounded(item.thickness)} nm" for item in items[:40])
    more = f" and {len(items) - 40} more" if len(items) > 40 else ""
    repeated = "; ".join(
        f"{items[each.first].name} to {items[each.last].name} {each.text.replace(chr(215), 'times')}"
        for each in brackets[:5]
    )
    repeated = f" Repeated: {repeated}." if repeated else ""
    return (
        f'<svg class="stack-{key}" viewBox="0 0 {WIDTH} {HEIGHT + TOP + 14}" role="img" '
        f'aria-labelledby="stack-{key}-title stack-{key}-text"><title id="stack-{key}-title">To scale: {title}</title>'
        f'<desc id="stack-{key}-text">From the bottom up: {escape(words)}{more}.{escape(repeated)}</desc>'
        f'<text x="{LEFT}" y="20" class="stack-head">{title[0].upper()}{title[1:]}, {_rounded(total)} nm</text>'
        f"{_bar(items, brackets)}{mark}</svg>"
    )


def _edges(items: list[Item]) -> Array:
    """The edges of the layers in pixels downwards, from the bottom up."""
    drawn = np.cumsum([0.0, *(item.drawn for item in items)])
    return np.asarray(TOP + HEIGHT - HEIGHT * drawn / drawn[-1])


def _bar(items: list[Item], brackets: list[Bracket]) -> str:
    """One column of layers from the bottom up, with names beside it and brackets on the other side."""
    edges = _edges(items)
    parts = []
    for item, low, high in zip(items, edges, edges[1:]):
        tooltip = f"{item.number}. {item.name}, {item.what}, {_rounded(item.thickness, 5)} nm"
        # A little higher than the layer, so that no line of the ground shows between two layers. Wells are always seen.
        least = 2.0 if item.rank == 0 else 1.0
        parts.append(
            f'<rect x="{LEFT}" y="{high:.2f}" width="{BAR}" height="{max(low - high, least) + 0.2:.2f}" '
            f'fill="{item.colour}"><title>{escape(tooltip)}</title></rect>'
        )
    for lower, upper, y in zip(np.diff(-edges), np.diff(-edges)[1:], edges[1:]):
        if min(lower, upper) > LINE_MIN:
            parts.append(f'<path d="M{LEFT} {y:.2f} h{BAR}" class="stack-line"/>')
    middles = [float(0.5 * (low + high)) for low, high in zip(edges, edges[1:])]
    pixels = -np.diff(edges)
    for position, y in _placed([item.rank for item in items], pixels.tolist(), middles):
        item = items[position]
        name = item.name if len(item.name) <= NAME_MAX else item.name[: NAME_MAX - 1] + "\u2026"
        right = LEFT + BAR
        parts.append(
            f'<path d="M{right} {middles[position]:.1f} L{right + 12} {y:.1f}" class="stack-lead"/>'
            f'<text x="{right + 16}" y="{y + 4:.1f}" class="stack-name">{escape(name)} '
            f'<tspan class="stack-size">{_size(item)}</tspan></text>'
        )
    for bracket in brackets:
        low, high = edges[bracket.first], edges[bracket.last + 1]
        if low - high < 3.0:
            continue
        x, middle = LEFT - 6, 0.5 * (low + high)
        parts.append(f'<path d="M{x} {low - 1:.1f} h-5 V{high + 1:.1f} h5" class="stack-bracket"/>')
        parts.append(
            f'<text transform="translate({x - 10} {middle:.1f}) rotate(-90)" text-anchor="middle" class="stack-times">'
            f"{bracket.text}</text>"
        )
    return "".join(parts)


def _rounded(thickness: float, digits: int = 4) -> str:
    """A number of nanometres with this many significant digits, those of a substrate without an exponent: 300000."""
    return f"{float(f'{thickness:.{digits}g}'):.12g}"


def _size(item: Item) -> str:
    """The thickness of a layer, and how much of it is in the picture."""
    part = f"{_rounded(item.drawn, 3)} of " if item.drawn < item.thickness - 1e-6 else ""
    return f"{part}{_rounded(item.thickness)}\u00a0nm"


def _placed(ranks: list[int], sizes: list[float], middles: list[float]) -> list[tuple[int, float]]:
    """Which layers are named, and at which height in pixels; the most important names first.

    A name is as near to its layer as there is room. It is left out if it, or one that is already placed, would be too
    far from its layer. A name never passes another, so that the lines from layers to names don't cross.
    """
    chosen: list[int] = []
    for position in sorted(range(len(ranks)), key=lambda place: (ranks[place], -sizes[place], place)):
        if len(chosen) >= HEIGHT // NAME_HEIGHT:
            break
        if ranks[position] == RANKS["transition"] and sizes[position] < RAMP_MIN:
            continue
        tried = sorted([*chosen, position], reverse=True)  # downwards, as pixels
        wanted = [middles[place] for place in tried]
        limits = [NAME_SHIFT if ranks[place] < RANKS["transition"] else NAME_HEIGHT for place in tried]
        if all(abs(y - middle) <= limit for y, middle, limit in zip(_spread(wanted), wanted, limits)):
            chosen = tried
    chosen.sort(reverse=True)
    return list(zip(chosen, _spread([middles[place] for place in chosen])))


def _spread(wanted: list[float]) -> list[float]:
    """Increasing places with the distance of names, as near to the wanted ones as possible (least squares).

    Without the distances this is an isotonic regression: neighbours in the wrong order get their mean.
    """
    blocks: list[tuple[float, int]] = []  # mean and number of places
    for index, place in enumerate(wanted):
        mean, count = place - index * NAME_HEIGHT, 1
        while blocks and blocks[-1][0] > mean:
            other, others = blocks.pop()
            mean, count = (mean * count + other * others) / (count + others), count + others
        blocks.append((mean, count))
    top, bottom = TOP + 4.0, TOP + HEIGHT - 4.0 - (len(wanted) - 1) * NAME_HEIGHT
    means = [min(max(mean, top), bottom) for mean, count in blocks for _ in range(count)]
    return [mean + index * NAME_HEIGHT for index, mean in enumerate(means)]
