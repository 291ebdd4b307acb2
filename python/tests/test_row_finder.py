"""RowFinder finds the rows that a comparison with every row finds."""

from __future__ import annotations

import math

import numpy as np
from hypothesis import given, settings
from hypothesis import strategies as st

from vorlen._runs.row_finder import RowFinder

NUMBERS = st.one_of(
    st.integers(-3, 9).map(float), st.sampled_from([math.nan, math.inf, -math.inf]), st.floats(allow_nan=True)
)


@settings(max_examples=500, deadline=None)
@given(st.lists(NUMBERS, max_size=20), NUMBERS, NUMBERS, st.booleans())
def test_it_finds_what_a_comparison_with_every_row_finds(
    numbers: list[float], low: float, high: float, ordered: bool
) -> None:
    values = np.array(sorted(numbers) if ordered else numbers)
    finder = RowFinder(values)
    assert np.array_equal(finder.between(low, high), np.flatnonzero((values > low) & (values < high)))
    assert np.array_equal(finder.up_to(low, high), np.flatnonzero((values > low) & (values <= high)))
    if not math.isnan(high):
        last = np.flatnonzero(values <= high)
        assert finder.last_up_to(high) == (last[-1] if len(last) else -1)


def test_only_rows_in_the_range_are_looked_at_if_the_values_increase() -> None:
    finder = RowFinder(np.arange(1000.0))
    assert finder.window(100.0, 200.0) == slice(101, 201)
