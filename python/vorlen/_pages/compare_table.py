"""The layers of several runs side by side, from comparisons of each run with the first by `vorlen diff`."""

from __future__ import annotations

import csv
import io
from dataclasses import dataclass, field
from typing import Any, NamedTuple

MAX_NUMBERS = 6  # of layers in one line


class Cell(NamedTuple):
    """A value of a layer in one run."""

    value: float | None  # None: undefined
    text: str  # rounded
    change: str  # from the first run; empty in the first run and for a layer that it lacks
    visible: bool  # whether the rounded values differ


@dataclass
class LayerLine:
    """Corresponding layers, one of each run; None for a run without it."""

    layers: list[dict[str, Any] | None]  # number, name, kind
    values: dict[str, list[Cell | None]] = field(default_factory=dict)  # by quantity
    visible: bool = False  # whether a shown value differs, or a run lacks the layer

    @property
    def first(self) -> dict[str, Any]:
        """The layer in the first run that has it."""
        return next(layer for layer in self.layers if layer is not None)


@dataclass
class LineGroup:
    """Lines with the same names and rounded values, which are one line of the table."""

    numbers: str
    name: str
    kind: str
    other_names: list[str]
    cells: list[list[Cell | None]]  # by quantity and run
    visible: bool
    owner: int  # the first run that has the layer


def shown_quantities(comparisons: list[dict[str, Any]]) -> list[tuple[str, str]]:
    """Identifiers and headings of the quantities that one of the comparisons shows."""
    return [
        (same[0]["quantity"], same[0]["heading"])
        for same in zip(*(comparison["quantities"] for comparison in comparisons))
        if any(one["shown"] for one in same)
    ]


def layer_lines(comparisons: list[dict[str, Any]]) -> list[LayerLine]:
    """A line for each layer of the first run, and for each that only another one has, after the layer below it."""
    count = len(comparisons) + 1
    of_first: dict[int, LayerLine] = {}
    extras: dict[int, list[LayerLine]] = {}
    for other, comparison in enumerate(comparisons, 1):
        below = 0
        for pair in comparison["layers"]:
            first, layer = pair["a"], pair["b"]
            if first is None:
                line = LayerLine([None] * count, visible=True)
                extras.setdefault(below, []).append(line)
            else:
                below = first["number"]
                line = of_first.setdefault(below, LayerLine([None] * count))
                line.layers[0] = first
            line.layers[other] = layer
            line.visible |= layer is None
            for quantity, value in pair["values"].items():
                cells = line.values.setdefault(quantity, [None] * count)
                text, other_text, change = value["text"]
                if first is not None:
                    cells[0] = Cell(value["a"], text, "", False)
                if layer is not None:
                    cells[other] = Cell(value["b"], other_text, change, first is not None and value["visible"])
    lines = list(extras.get(0, []))
    for number, line in sorted(of_first.items()):
        lines += [line, *extras.get(number, [])]
    shown = [quantity for quantity, _ in shown_quantities(comparisons)]
    for line in lines:
        line.visible |= any(cell is not None and cell.visible for quantity in shown for cell in line.values[quantity])
    return lines


def all_zero(lines: list[LayerLine], quantity: str) -> bool:
    """Whether a quantity is 0 in all runs and lines."""
    return all(cell is None or not cell.value for line in lines for cell in line.values[quantity])


def grouped_lines(lines: list[LayerLine], quantities: list[str]) -> list[LineGroup]:
    """The lines of the table in the order of their first layers. As in `vorlen diff`, a change below the digits shown, in
    one period and not in another, separates no lines.
    """
    alike: dict[tuple[Any, ...], list[LayerLine]] = {}
    for line in lines:
        names = [str(layer["name"]) if layer else None for layer in line.layers]
        shown = [
            cell and (cell.text, cell.visible and cell.change) for quantity in quantities for cell in line.values[quantity]
        ]
        alike.setdefault((*names, line.first["kind"], *shown), []).append(line)
    return [_group(same, quantities) for same in alike.values()]


def _group(lines: list[LayerLine], quantities: list[str]) -> LineGroup:
    line = lines[0]
    names = [str(layer["name"]) for layer in line.layers if layer]
    return LineGroup(
        _numbers_text([one.first["number"] for one in lines]), line.first["name"], line.first["kind"],
        [name for name in dict.fromkeys(names) if name != line.first["name"]],
        [[_largest(cells) for cells in zip(*(one.values[quantity] for one in lines))] for quantity in quantities],
        line.visible, next(run for run, layer in enumerate(line.layers) if layer is not None),
    )


def _largest(cells: tuple[Cell | None, ...]) -> Cell | None:
    """The cell for the same value in several lines: its change is 0 only if it is that in all of them."""
    return next((cell for cell in cells if cell is not None and cell.change not in ("", "0")), cells[0])


def _numbers_text(numbers: list[int]) -> str:
    texts = list(map(str, numbers))
    if len(texts) > MAX_NUMBERS:
        texts = [*texts[:3], "\u2026", texts[-1]]
    return ", ".join(texts)


def layers_csv(lines: list[LayerLine], names: list[str]) -> str:
    """All layers and quantities with all digits: of each run, and the difference from the first."""
    quantities = list(lines[0].values) if lines else []
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    header = ["layer", *(f"number, {name}" for name in names)]
    for quantity in quantities:
        header += [f"{quantity}, {name}" for name in names]
        header += [f"{quantity}, {name} - {names[0]}" for name in names[1:]]
    writer.writerow(header)
    for line in lines:
        row: list[Any] = [line.first["name"], *(layer["number"] if layer else "" for layer in line.layers)]
        for quantity in quantities:
            values = [cell.value if cell else None for cell in line.values[quantity]]
            first = values[0]
            row += ["" if value is None else value for value in values]
            row += ["" if value is None or first is None else value - first for value in values[1:]]
        writer.writerow(row)
    return text.getvalue()
