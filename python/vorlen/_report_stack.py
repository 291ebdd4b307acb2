"""The layers of a run as pictures to scale, in SVG: the whole structure, and an enlargement of the simulated part."""

from __future__ import annotations

from html import escape
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

if TYPE_CHECKING:
    from ._run import Run

WIDTH, HEIGHT, BAR, TOP, LEFT = 400, 400, 120, 34, 20  # pixels of a picture
NAME_HEIGHT = 15  # pixels that a name needs
# Colours of the three nitrides; an alloy gets a mixture by its composition.
INN, GAN, ALN = np.array([226, 88, 14]), np.array([214, 224, 234]), np.array([32, 156, 112])


def layer_stack(run: Run) -> str:
    """One or two SVG elements with title and description. Empty if no layer has a thickness."""
    layers = run.layers[run.layers["thickness"] > 0]
    if layers.empty:
        return ""
    active = layers[layers["kind"] == "active"]
    bars = [("whole structure", layers)]
    if len(active) and len(active) < len(layers):
        bars.append(("simulated layers", active))
    return "".join(_picture(title, shown, index) for index, (title, shown) in enumerate(bars))


def _picture(title: str, layers: pd.DataFrame, index: int) -> str:
    words = ", ".join(f"{layer.name} {layer.thickness:.4g} nm" for layer in layers.head(40).itertuples())
    more = f" and {len(layers) - 40} more" if len(layers) > 40 else ""
    return (
        f'<svg viewBox="0 0 {WIDTH} {HEIGHT + TOP + 14}" role="img" aria-labelledby="stack-{index}-title '
        f'stack-{index}-text"><title id="stack-{index}-title">To scale: {title}</title>'
        f'<desc id="stack-{index}-text">From the bottom up: {escape(words)}{more}.</desc>{_bar(layers, LEFT, title)}'
        f"{_bracket(layers) if index == 0 else ''}</svg>"
    )


def colour(layer: pd.Series) -> str:
    """Colour of a layer by its mean composition."""
    shares = np.array([layer["x_in"], layer["x_ga"], layer["x_al"]], float)
    if not np.isfinite(shares).all():
        return "#dddddd"
    shares = np.clip(shares, 0, 1)
    shares[0] = np.sqrt(shares[0])  # makes a little indium visible
    shares = shares / max(shares.sum(), 1e-9)
    red, green, blue = (np.stack([INN, GAN, ALN]).T @ shares).astype(int)
    return f"#{red:02x}{green:02x}{blue:02x}"


def _bar(layers: pd.DataFrame, left: int, title: str) -> str:
    """One column of layers from the bottom up, with names beside it where there is room."""
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


def _bracket(layers: pd.DataFrame) -> str:
    """A bracket that marks the simulated layers in the whole structure."""
    total = float(layers["thickness"].sum())
    is_active = (layers["kind"] == "active").to_numpy()
    thickness = layers["thickness"].to_numpy()
    if not is_active.any() or is_active.all():
        return ""
    below = thickness[: int(np.argmax(is_active))].sum()
    top = below + thickness[is_active].sum()
    low, high = (TOP + HEIGHT - HEIGHT * height / total for height in (below, top))
    return f'<path d="M{LEFT - 4} {low:.2f} h-8 V{high:.2f} h8" stroke="#b3261e" stroke-width="2" fill="none"/>'
