"""What grew, in one sentence: "5 wells of 3.00 nm In 0.150 in 12.0 nm GaN, on 1.51 µm GaN on a 2.00 µm GaN template"."""

from __future__ import annotations

import re
from collections.abc import Sequence

import numpy as np
import pandas as pd

from .repeats import Group, repeats
from .structure import (
    ABSENT,
    MONOLAYER,
    SAME,
    THINNEST,
    Slab,
    Structure,
    alike,
    main_position,
    slabs_of,
    spacings,
    structure_of,
)

ITEMS_MAX = 4  # layers named below the main part of a structure
BARRIER_THIN = 10.0  # nm
TEMPLATE_MIN = 200.0  # nm; a thinner given layer, such as a nucleation layer, is not called a template
RELAXED = 0.02  # degree of relaxation that is mentioned
PHYSICAL = (-0.001, 1.001)  # limits of a fraction


def sentence(layers: pd.DataFrame, structure: Structure | None = None, *, failed: bool = False) -> str:
    """What grew in the simulated layers, on what, and whether it relaxed, as one sentence.

    layers     Run.layers
    structure  structure_of(layers), if known already
    failed     the run ended early or is unphysical: says that this is what grew until then
    """
    found = structure or structure_of(layers)
    active = [slab for slab in found.slabs if slab.kind == "active"]
    lead = "Before the run failed: " if failed else ""
    if not active:
        return lead + _nothing(layers, found.slabs)
    if any(not PHYSICAL[0] <= x <= PHYSICAL[1] for slab in active for x in slab.x):
        return "The composition of what grew is unphysical."
    text = _structure(layers, found) + _relaxation(layers)
    return lead + text + "."


def length(value: float) -> str:
    """A thickness with three digits: 3.00 nm, 12.0 nm, 1.67 µm."""
    value, unit = (value / 1000.0, "µm") if abs(value) >= 999.5 else (value, "nm")
    return f"{_digits(value)}\u00a0{unit}"


def alloy(x: Sequence[float]) -> str:
    """A composition: GaN, In 0.150, Al 0.254, In 0.180 Al 0.820."""
    return _alloy([x])


def _alloy(compositions: Sequence[Sequence[float]]) -> str:
    """One composition for several, with ranges where they differ."""
    values = np.array(compositions, float)
    parts = []
    for column, symbol in ((0, "In"), (2, "Al")):
        low, high = values[:, column].min(), values[:, column].max()
        if high > ABSENT:
            parts.append(f"{symbol}\u00a0{_range(low, high, 0.002, '.3f')}")
    if not parts:
        return "GaN"
    for column, name in ((0, "InN"), (2, "AlN")):
        if values[:, column].min() > 1.0 - ABSENT:
            return name
    return " ".join(parts)


def _range(low: float, high: float, slack: float, form: str) -> str:
    """A value, or the range of several that differ by more than slack."""
    if high - low <= slack:
        return f"{max(0.5 * (low + high), 0.0):{form}}"
    return f"{max(low, 0.0):{form}} to {high:{form}}"


def _digits(value: float) -> str:
    if 99.95 <= abs(value) < 1e6:
        return f"{value:.0f}"
    return f"{value:#.3g}".rstrip(".")


def _lengths(values: Sequence[float]) -> str:
    """One thickness, or the range of several that differ by more than two per cent."""
    low, high = min(values), max(values)
    if high - low <= max(0.02 * high, 0.01):
        return length(float(np.mean(values)))
    if low < 999.5 <= high:
        return f"{length(low)} to {length(high)}"
    number, unit = length(high).split("\u00a0")
    return f"{length(low).split()[0]} to {number}\u00a0{unit}"


def _described(slab: Slab) -> str:
    """A slab: 20.8 nm Al 0.254; 18.7 nm graded from GaN to Al 0.250."""
    if slab.graded:
        return f"{length(slab.thickness)} graded from {alloy(slab.x_first)} to {alloy(slab.x_last)}"
    return f"{length(slab.thickness)} {alloy(slab.x)}"


def _structure(layers: pd.DataFrame, found: Structure) -> str:
    slabs = [slab for slab in found.slabs if slab.kind != "post"]
    if found.wells:
        head = _wells(found)
        low, high = found.wells[0], found.wells[-1]
        below = [slab for slab in slabs if slab.top <= low.bottom + 1e-9]
        above = [slab for slab in slabs if slab.bottom >= high.top - 1e-9]
        # A barrier next to the wells is not named again, but a thick layer is.
        if len(below) > 1 and _is_barrier(below[-1], found):
            below = below[:-1]
        if above and _is_barrier(above[0], found):
            above = above[1:]
    elif found.periods is not None:
        group = found.periods
        inside = set(layers.index[group.first : group.first + group.size * group.periods])
        head = _periods(layers, found)
        below = [slab for slab in slabs if max(slab.numbers) < min(inside)]
        above = [slab for slab in slabs if min(slab.numbers) > max(inside)]
    else:
        place = main_position(slabs)
        head, below, above = _described(slabs[place]), slabs[:place], slabs[place + 1 :]
    text = head
    items = _below(below)
    if items:
        text += (", on " if found.wells or found.periods else " on ") + " on ".join(items)
    items = _items(above)
    return text + (f", under {' and '.join(items)}" if items else "")


def _is_barrier(slab: Slab, found: Structure) -> bool:
    """Whether a slab next to the wells is like the barriers between them; beside a single well, whether it is thin."""
    gaps = spacings(found.wells)
    if slab.kind != "active" or slab.graded or slab.thickness > 2.0 * max([BARRIER_THIN, *gaps]):
        return False
    return not gaps or any(alike(slab, other) for other in found.barriers[1:-1] or found.barriers)


def _wells(found: Structure) -> str:
    wells = found.wells
    thickness = _lengths([well.thickness for well in wells])
    text = f"{len(wells)} well{'s' if len(wells) > 1 else ''} of {thickness} {_alloy([well.x for well in wells])}"
    gaps = spacings(wells)
    if gaps:
        at = {slab.bottom: place for place, slab in enumerate(found.slabs)}
        between = [found.slabs[at[low.bottom] + 1 : at[high.bottom]] for low, high in zip(wells, wells[1:])]
        thickest = [max(slabs, key=lambda slab: slab.thickness) for slabs in between]
        return f"{text} in {_lengths(gaps)} {_alloy([slab.x for slab in thickest])}"
    below, above = _sides(found)
    if max(abs(a - b) for a, b in zip(below, above)) > SAME:
        return f"{text} between {alloy(below)} and {alloy(above)}"
    return f"{text} in {alloy(below)}"


def _sides(found: Structure) -> tuple[Sequence[float], Sequence[float]]:
    """Compositions below and above a single well, beyond what is thinner than 1 nm."""
    place = found.slabs.index(found.wells[0])
    thick = [slab.thickness >= THINNEST for slab in found.slabs]
    below = next((index for index in range(place - 1, -1, -1) if thick[index]), place - 1)
    above = next((index for index in range(place + 1, len(thick)) if thick[index]), place + 1)
    return found.slabs[below].x_last, found.slabs[above].x_first


def _periods(layers: pd.DataFrame, found: Structure) -> str:
    """20 pairs of 45.0 nm In 0.180 Al 0.820 and 40.0 nm GaN; 8 periods of three or more."""
    group = found.periods
    assert group is not None
    block = slabs_of(layers.iloc[group.first : group.first + group.size])
    if len(block) > 2 and alike(block[0], block[-1]):  # a ramp at the end of a period continues at its start
        block = [block[0]._replace(thickness=block[0].thickness + block[-1].thickness), *block[1:-1]]
    parts = [_described(slab) for slab in block[:ITEMS_MAX]]
    if len(block) > ITEMS_MAX:
        parts[-1] = f"{len(block) - ITEMS_MAX + 1} more layers"
    name = "pairs" if len(block) == 2 else "periods"
    return f"{group.periods} {name} of {', '.join(parts[:-1])} and {parts[-1]}"


def _template(slab: Slab) -> str:
    """What was given and not simulated: a 2.00 µm GaN template, a given 25.0 nm GaN layer."""
    text = _described(slab)
    if slab.thickness < TEMPLATE_MIN:
        return f"a given {text} layer"
    return f"{'an' if re.match('8|1[18][.]', text) else 'a'} {text} template"


def _below(slabs: list[Slab]) -> list[str]:
    """What is below the main part, from the top down: simulated slabs, and the uppermost given one, which ends the list."""
    base = [_template(slab) for slab in slabs if slab.kind == "pre"][-1:]
    return _items([slab for slab in slabs if slab.kind == "active"], base)


def _repeats(slabs: list[Slab]) -> list[Group]:
    fractions = np.array([slab.x for slab in slabs], float).reshape(-1, 3)
    return repeats(np.zeros(len(slabs), int), np.array([slab.thickness for slab in slabs]), fractions)


def _items(slabs: list[Slab], base: list[str] | None = None) -> list[str]:
    """Slabs in words, repeated ones once, at most four items: from the bottom up, or down to a base."""
    items: list[tuple[str, int]] = []
    for group in _repeats(slabs):
        block = [_described(slab) for slab in slabs[group.first : group.first + group.size]]
        shown = f"{group.periods} × ({' / '.join(block[:ITEMS_MAX])}{' / …' if len(block) > ITEMS_MAX else ''})"
        items.append((block[0] if group.periods == 1 else shown, group.size * group.periods))
    if base is not None:
        items = [*items[::-1], *((text, 1) for text in base)]
    if len(items) <= ITEMS_MAX:
        return [text for text, _ in items]
    # The layer at the bottom, on which all grew, is always named.
    last = items[-1:] if base is not None else []
    named = ITEMS_MAX - 1 - len(last)
    left = sum(count for _, count in items[named : len(items) - len(last)])
    return [*(text for text, _ in items[:named]), f"{left} more layers", *(text for text, _ in last)]


def _relaxation(layers: pd.DataFrame) -> str:
    """What is to be said about relaxed layers: the largest degree, and the final density of V-defects."""
    simulated = layers[layers["kind"] == "active"]
    alloyed = (simulated["x_in"] > ABSENT) | (simulated["x_al"] > ABSENT)
    degrees = simulated["relaxation"][alloyed & (simulated["thickness"] > MONOLAYER)]  # a thinner one is an interface
    degrees = degrees[(degrees > RELAXED) & (degrees < 1.05)]
    defects = simulated["v_defects_t"]
    defects = defects[np.isfinite(defects)]
    text = f"; relaxed by {100 * degrees.max():.0f} %" if len(degrees) else ""
    if len(defects) and defects.iloc[-1] > 0:
        mantissa, exponent = f"{defects.iloc[-1]:.1e}".split("e")
        power = str(int(exponent)).translate(str.maketrans("-0123456789", "⁻⁰¹²³⁴⁵⁶⁷⁸⁹"))
        text += f"{' with' if text else '; with'} {mantissa}×10{power} V-defects per cm²"
    return text


def _nothing(layers: pd.DataFrame, slabs: list[Slab]) -> str:
    """The sentence if no simulated layer has a thickness and a composition."""
    simulated = layers[layers["kind"] == "active"]
    total = simulated["thickness"][simulated["thickness"] < 0].sum()
    base = [slab for slab in slabs if slab.kind == "pre"][-1:]
    where = f" on {_template(base[0])}" if base else ""
    if simulated["thickness"].isna().any():
        return "what grew is unknown." if not base else f"what grew{where} is unknown."
    lost = f"; {length(-total)} evaporated" if total < -0.0005 else ""
    return f"nothing grew{where}{lost}."
