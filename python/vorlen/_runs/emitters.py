"""The layers of a run that emit: its wells or, without wells, the layers with indium, or all simulated layers."""

from __future__ import annotations

import pandas as pd

from .._observe.emission import Emitter
from .structure import ABSENT, Slab, Structure, structure_of


def emitters_of(layers: pd.DataFrame, reference: float) -> list[Emitter]:
    """The emitting layers from the bottom up.

    layers  Run.layers
    reference  height of the top of the pre-stages, nm
    """
    structure = structure_of(layers)
    slabs = structure.wells or [slab for slab in structure.slabs if slab.kind == "active"]
    if not structure.wells and any(slab.x[0] > ABSENT for slab in slabs):
        slabs = [slab for slab in slabs if slab.x[0] > ABSENT]
    return [_emitter(layers, structure, slab, reference) for slab in slabs]


def _emitter(layers: pd.DataFrame, structure: Structure, slab: Slab, reference: float) -> Emitter:
    number = max(slab.numbers, key=lambda number: float(layers["thickness"][number]))  # the first of equal ones
    place = structure.slabs.index(slab)
    below = structure.slabs[place - 1].thickness if place > 0 else 0.0
    above = structure.slabs[place + 1].thickness if place + 1 < len(structure.slabs) else 0.0
    low, high = reference + slab.bottom, reference + slab.top
    return Emitter(number, str(layers["name"][number]), low, high, slab in structure.wells, below, above)
