"""Curves in a fit: their deviations at each point, and how much they count.

The deviations of neighbouring points of a curve are correlated as soon as the model is not perfect, so that 1000 points
are not 1000 measurements. Each curve counts as n independent measurements with one standard deviation sigma: n is the
number of points over the autocorrelation time of the deviations, and sigma, unless it is given, their root mean square.
The sum of squares of N points is therefore multiplied by n / N. Both are found from the deviations at the start, and
again after each pass of the fit, until the weights n / sigma^2 no longer change.

Scale, background and offsets of a curve need no simulation: they are the best ones at each point (variable projection),
so that the derivatives of the deviations count their uncertainty.
"""

from __future__ import annotations

import numpy as np

from .._base.types import Array
from .._observe.matching import Places, adjusted, independent_points, matched, places_of
from .._observe.measured import peak
from .._runs.agreement import Agreement, Range, agreement_of, simulated_like
from .._runs.run import Run
from .measurements import MeasuredCurve

SMALLEST_SIGMA = 1e-3  # of the standard deviation of the measured values: for curves without noise
SMOOTHING = 0.02  # width of the average of the first pass, as a share of the points
FOLLOWS = 0.5  # share of the variance of a curve that a simulated curve which follows it explains


class CurveTarget:
    """A curve that is fitted, with its weights."""

    def __init__(self, target: MeasuredCurve, shifts: Range) -> None:
        self.target, self.shifts = target, shifts
        self.count = 0  # of points that are compared; known after the first run
        self.scale = np.zeros(0)  # of the residuals of these points
        self.independent = 1.0
        self.sigma = target.sigma or np.nan
        self._places: Places | None = None
        self._weights = np.ones(1)
        self._spread = 1.0
        self._agreements: dict[tuple[float, ...], Agreement] = {}

    @property
    def nuisances(self) -> int:
        """The number of values that are adjusted without a simulation."""
        return len(adjusted(self.target.curve)) + (self.shifts is not None)

    def deviations(self, run: Run, key: tuple[float, ...]) -> Array:
        """Those of a run. key: of the point. Raises ValueError if the curve can't be simulated."""
        agreement = self._agreement(run)
        self._agreements[key] = agreement
        if agreement.match is None:
            if not agreement.wavelengths:
                raise ValueError(f"no layer emits, for {self.target.name}")
            self.count, self._weights = 1, np.ones(1)
            return np.array([np.mean(agreement.wavelengths) - peak(self.target.curve)])
        self.count, self._weights = len(agreement.match.x), agreement.match.weights
        self._spread = float(np.std(_target(agreement)))
        return agreement.match.deviations

    def _agreement(self, run: Run) -> Agreement:
        """With the points of the first run, so that their number stays."""
        curve = self.target.curve
        if self._places is None:
            agreement = agreement_of(run, curve, self.shifts)
            if agreement.simulated is not None:
                self._places = places_of(agreement.simulated, curve, self.shifts)
            return agreement
        simulated = simulated_like(run, curve, self.shifts)
        return Agreement(curve, simulated, matched(simulated, self._places), [], simulated.notes)

    def weigh(self, deviations: Array) -> float:
        """Sets the scale of the residuals from these deviations, and returns the weight of the curve."""
        share = self._weights * len(self._weights) / self._weights.sum()
        if self.count > 1:
            self.independent = independent_points(np.sqrt(share) * deviations)
        if self.target.sigma is None:
            rms = float(np.sqrt(np.mean(share * deviations**2)))
            self.sigma = max(rms, SMALLEST_SIGMA * self._spread)
        self.scale = self.sigma / np.sqrt(share * self.independent / self.count)
        return self.independent / self.sigma**2

    def smoothed(self, values: Array) -> Array:
        """Values at the points of a diffraction curve averaged with a Gaussian; those of others as they are."""
        width = SMOOTHING * self.count
        if self.target.curve.kind != "xrd" or width < 1.0:
            return values
        reach = int(np.ceil(3 * width))
        kernel = np.exp(-0.5 * (np.arange(-reach, reach + 1) / width) ** 2)
        padded = np.pad(values, reach, mode="edge")
        smooth: Array = np.convolve(padded, kernel / kernel.sum(), mode="valid")
        return smooth

    def agreement(self, key: tuple[float, ...]) -> Agreement:
        """The agreement at a point."""
        return self._agreements[key]

    def explained(self, agreement: Agreement) -> float:
        """The share of the variance of the measured values that the simulated curve explains; 1 for emission."""
        if agreement.match is None:
            return 1.0
        values, weights = _target(agreement), agreement.match.weights
        around = values - np.average(values, weights=weights)
        whole = float(np.sum(weights * around**2))
        return 1.0 - float(np.sum(weights * agreement.match.deviations**2)) / whole if whole > 0 else 1.0


def _target(agreement: Agreement) -> Array:
    """The measured values that deviations are from: decades of intensity for xrd."""
    assert agreement.match is not None
    if agreement.measured.kind != "xrd":
        return agreement.match.measured
    values: Array = np.log10(agreement.match.simulated) - agreement.match.deviations
    return values
