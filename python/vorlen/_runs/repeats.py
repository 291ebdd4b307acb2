"""Sequences that are repeated several times in a row, such as the periods of quantum wells or of a mirror."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np

from .._base.types import Array, Mask

PERIOD_MAX = 100  # items of the longest repeated group that is found


class Group(NamedTuple):
    """Layers grown several times in the same order. Positions count rows of the table from 0."""

    first: int  # position of the first layer of the first period
    size: int  # layers of one period
    periods: int  # 1 for a layer that is not repeated


def repeats(codes: Array, thickness: Array, fractions: Array) -> list[Group]:
    """Repeated groups of items with a code, a thickness and fractions; the groups cover all items in order."""
    count = len(codes)

    def same(first: slice, second: slice) -> Mask:
        slack = np.maximum(0.02 * np.abs(thickness[first]), 0.02)
        close = np.abs(thickness[first] - thickness[second]) <= slack
        close &= (np.abs(fractions[first] - fractions[second]) <= 0.005).all(axis=1)
        return np.asarray(close & (codes[first] == codes[second]))

    # best[i]: the group from item i that covers most items, of these the one with the shortest period
    best_size, best_covered = np.ones(count, int), np.ones(count, int)
    for size in range(1, min(PERIOD_MAX, count // 2) + 1):
        # items from i on that equal the item a period later
        run = _run_lengths(same(slice(0, count - size), slice(size, count)))
        covered = np.zeros(count, int)
        covered[: count - size] = np.where(run >= size, (run // size + 1) * size, 0)
        better = covered > best_covered
        best_size[better], best_covered[better] = size, covered[better]
    groups = []
    place = 0
    while place < count:
        size, reach = int(best_size[place]), int(best_covered[place])
        if reach > 1 and best_covered[place : place + reach].max() > reach:
            size = reach = 1  # a longer repetition starts within this one
        first = slice(place, place + size)
        periods = 1  # compared with the first one, against a slow drift
        while periods < reach // size:
            here = place + periods * size
            if not same(first, slice(here, here + size)).all():
                break
            periods += 1
        groups.append(Group(place, size, periods))
        place += size * periods
    return _singles(groups)


def _run_lengths(flags: Mask) -> Array:
    """For each flag the number of consecutive true flags from it on."""
    ends = np.flatnonzero(~np.append(flags, False))
    return np.asarray(ends[np.searchsorted(ends, np.arange(len(flags)))] - np.arange(len(flags)))


def _singles(groups: list[Group]) -> list[Group]:
    """The groups, with those of one period split into their items."""
    return [
        part
        for group in groups
        for part in (
            [group] if group.periods > 1 else [Group(group.first + item, 1, 1) for item in range(group.size)]
        )
    ]
