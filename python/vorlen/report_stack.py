"""The layers of a run as a picture to scale, in SVG: the whole structure, and beside it the simulated part enlarged."""

from __future__ import annotations

from html import escape
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

if TYPE_CHECKING:
    from .run import Run

HEIGHT, BAR, TOP = 420, 130, 34  # pixels of the picture
NAME_HEIGHT = 15  # pixels that a name needs
# Colours of the three nitrides; an alloy has the mixture by its composition.
INN, GAN, ALN = np.array([213, 94, 0]), np.array([158, 202, 225]), np.array([102, 194, 150])


def layer_stack(run: Run) -> str:
    """An SVG element with title and description. Empty when nothing has a thickness."""
    layers = run.layers[run.layers["thickness"] > 0]
    if layers.empty:
        return ""
    active = layers[layers["kind"] == "active"]
    bars = [("whole structure", layers)]
    if len(active) and len(active) < len(layers):
        bars.append(("simulated layers", active))
    parts = []
    for index, (title, shown) in enumerate(bars):
        parts.append(_bar(shown, 20 + index * 400, title))
    if len(bars) == 2:
        parts.append(_magnifier(layers))
    words = ", ".join(f"{layer.name} {layer.thickness:.4g} nm" for layer in layers.head(40).itertuples())
    return (
        f'<svg viewBox="0 0 {400 * len(bars)} {HEIGHT + TOP + 14}" role="img" aria-labelledby="stack-title stack-text" '
        f'style="max-width:{400 * len(bars)}px"><title id="stack-title">Layer stack to scale</title>'
        f'<desc id="stack-text">From the bottom up: {escape(words)}.</desc>{"".join(parts)}</svg>'
    )


def colour(layer: pd.Series) -> str:
    """Colour of a layer by its mean composition."""
    shares = np.array([layer["x_in"], layer["x_ga"], layer["x_al"]], float)
    if not np.isfinite(shares).all():
        return "#dddddd"
    shares = np.clip(shares, 0, 1)
    shares[0] = np.sqrt(shares[0])  # a little indium is to be seen
    shares = shares / max(shares.sum(), 1e-9)
    red, green, blue = (np.stack([INN, GAN, ALN]).T @ shares).astype(int)
    return f"#{red:02x}{green:02x}{blue:02x}"


def _bar(layers: pd.DataFrame, left: int, title: str) -> str:
    """One column of layers from the bottom up, names at its side as far as there is room."""
    total = float(layers["thickness"].sum())
    parts = [f'<text x="{left}" y="20" class="stack-head">{title}, {total:.5g} nm</text>']
    bottom = float(TOP + HEIGHT)
    last_name = bottom + NAME_HEIGHT
    for number, layer in layers.iterrows():
        height = HEIGHT * layer["thickness"] / total
        y = bottom - height
        parts.append(
            f'<rect x="{left}" y="{y:.2f}" width="{BAR}" height="{max(height, 0.3):.2f}" fill="{colour(layer)}" '
            f'stroke="#444" stroke-width="0.5"><title>{number}. {escape(str(layer["name"]))}, '
            f'{layer["thickness"]:.5g} nm</title></rect>'
        )
        middle = y + height / 2
        if last_name - middle >= NAME_HEIGHT:
            name = " ".join(str(layer["name"]).split())
            name = name if len(name) <= 26 else name[:25] + "\u2026"
            parts.append(
                f'<text x="{left + BAR + 8}" y="{middle + 4:.1f}" class="stack-name">{escape(name)} '
                f'<tspan class="stack-size">{layer["thickness"]:.4g} nm</tspan></text>'
            )
            last_name = middle
        bottom = y
    return "".join(parts)


def _magnifier(layers: pd.DataFrame) -> str:
    """Lines from the simulated part of the first bar to the second."""
    total = float(layers["thickness"].sum())
    kinds = layers["kind"].to_numpy()
    thickness = layers["thickness"].to_numpy()
    below = thickness[: int(np.argmax(kinds == "active"))].sum()
    top = below + thickness[kinds == "active"].sum()
    left, right = 20 + BAR, 420
    lines = []
    for height, end in ((below, TOP + HEIGHT), (top, TOP)):
        y = TOP + HEIGHT - HEIGHT * height / total
        lines.append(f'<path d="M{left} {y:.2f} L{right} {end}" stroke="#999" stroke-dasharray="3 3" fill="none"/>')
    return "".join(lines)
