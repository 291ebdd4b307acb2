"""Slices of the finished structure joined into as few blocks as a diffraction curve needs.

A wave that is scattered by a lattice plane has a phase error of half the difference of qz through a block times the
distance from its middle if the block is replaced by a homogeneous one: at most a part in eight of thickness times
difference for a linear gradient.
"""

from __future__ import annotations

from typing import NamedTuple

import numpy as np

from .._base.types import Array, Rows
from .reflections import Reflection
from .slices import Slices, alloy

PHASE = 0.005  # largest phase error of a block, rad
# Relative difference of the in-plane lattice constants of blocks whose waves interfere: a lateral coherence length of a
# quarter of a micrometre, as between grains of nitrides on sapphire
SAME_ROD = 1e-3
CHANGE = 0.05  # largest difference of a fraction within a block: of its scattering power


class Blocks(NamedTuple):
    """Homogeneous blocks from the bottom up; arrays with one entry per block."""

    thickness: Array  # angstrom
    x: Array  # (n, 3): fractions of In, Ga, Al
    a: Array  # lattice constants of the strained crystal, angstrom
    c: Array
    first: Rows  # number of its lowest slice

    def above(self, start: int) -> Blocks:
        """The blocks from number start on."""
        return Blocks(self.thickness[start:], self.x[start:], self.a[start:], self.c[start:], self.first[start:])


def strained_c(slices: Slices) -> Array:
    """The lattice constant c of each slice, angstrom."""
    c: Array = alloy(slices.x).c * (1.0 + slices.eps_zz)
    return c


def blocks_of(slices: Slices, reflection: Reflection, phase: float = PHASE, change: float = CHANGE) -> Blocks:
    """The blocks for a reflection. Mean values are those over the thickness, of c the one that keeps the phase."""
    thickness = 10.0 * slices.thickness
    c = strained_c(slices)
    rod = np.zeros(len(c)) if reflection.symmetric else np.log(slices.a) / SAME_ROD
    columns = np.column_stack((reflection.qz(c) / (8.0 * phase), slices.x / change, rod))
    first = _firsts(thickness.tolist(), columns.tolist())
    total = np.add.reduceat(thickness, first)

    def mean(values: Array) -> Array:
        weighted: Array = (np.add.reduceat(values.T * thickness, first, axis=-1) / total).T
        return weighted

    return Blocks(total, mean(slices.x), mean(slices.a), 1.0 / mean(1.0 / c), first)


def _firsts(thickness: list[float], columns: list[list[float]]) -> Rows:
    """The first slice of each block.

    Within a block, the difference of the first column times its thickness, and those of the others alone, are up to 1.
    """
    first: list[int] = []
    low: list[float] = []
    high: list[float] = []
    total = 0.0
    for number, values in enumerate(columns):
        wider_low = [min(pair) for pair in zip(low, values)]
        wider_high = [max(pair) for pair in zip(high, values)]
        spans = [top - bottom for bottom, top in zip(wider_low, wider_high)]
        total += thickness[number]
        if not first or spans[0] * total > 1.0 or max(spans[1:]) > 1.0:
            first.append(number)
            wider_low, wider_high, total = values, values, thickness[number]
        low, high = wider_low, wider_high
    return np.array(first, int)
