"""Rows whose time or height lies in a range, found without looking at all rows."""

from __future__ import annotations

import numpy as np

from .._base.types import Array, Rows


class RowFinder:
    """Searches values that usually increase with the row, such as time, and height except during evaporation."""

    def __init__(self, values: Array) -> None:
        """values  one per row; NaN is in no range"""
        self.values = values
        missing = np.isnan(values)
        self._highest_before = np.maximum.accumulate(np.where(missing, -np.inf, values))
        self._lowest_after = np.minimum.accumulate(np.where(missing, np.inf, values)[::-1])[::-1]

    def window(self, low: float, high: float) -> slice:
        """A range of rows outside of which no value is above low and at most high; as small as possible."""
        first = int(np.searchsorted(self._highest_before, low, "right"))
        return slice(first, max(first, int(np.searchsorted(self._lowest_after, high, "right"))))

    def between(self, low: float, high: float) -> Rows:
        """Numbers of the rows above low and below high."""
        window = self.window(low, high)
        values = self.values[window]
        return np.flatnonzero((values > low) & (values < high)) + np.intp(window.start)

    def up_to(self, low: float, high: float) -> Rows:
        """Numbers of the rows above low and at most high."""
        window = self.window(low, high)
        values = self.values[window]
        return np.flatnonzero((values > low) & (values <= high)) + np.intp(window.start)

    def last_up_to(self, high: float) -> int:
        """Number of the last row that is at most high; -1 if there is none."""
        row = int(np.searchsorted(self._lowest_after, high, "right")) - 1
        while row >= 0 and not self.values[row] <= high:  # NaN at the end, with an infinite limit
            row -= 1
        return row
