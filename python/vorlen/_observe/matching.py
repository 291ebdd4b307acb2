"""Simulated curves beside measured ones: what is adjusted, the deviations, and how many of them are independent.

Intensities of X-rays are compared as decimal logarithms: the measured scale is arbitrary, and layer peaks that are five
decades below that of the substrate carry the information. Scale s and background b of s (I + b) are those with the
smallest weighted sum of squares, so neither matters. The weight of a point is 1 / (1 + (0.434 / 0.05)^2 / N), with N the
counts of the point: counting noise is 0.434 / sqrt(N) decades, and 0.05 decades is what a good model misses. Points
without counts are taken at one count, or at the smallest intensity of the curve.

Curvature and reflectance have an absolute scale, and their deviations are differences. If the sensor was
not calibrated, the zero of the curvature, which is the bow of the wafer before growth, and the factor of the reflectance,
which is the gain, are those with the smallest sum of squares.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import NamedTuple

import numpy as np

from .._base.types import Array, Mask
from .curve import Curve

DECADE_OF_COUNTS = np.log10(np.e)  # 0.434: relative deviation in decades
MODEL_DECADES = 0.05  # deviation of a good model from a curve without noise
BACKGROUNDS = 24  # values tried before the best one is refined
SHIFTS = 41
REFINEMENTS = 60  # steps of the golden section; each shrinks an interval to 0.618 of it
FEWEST_POINTS = 5
GOLDEN = 0.5 * (np.sqrt(5.0) - 1.0)
ADJUSTED = {"curvature": ("background",), "reflectance": ("scale",)}  # fields of a match, without a calibration
UNITS = {"xrd": "decades", "curvature": "1/km", "reflectance": "1", "emission": "nm"}  # of deviations


class Match(NamedTuple):
    """A simulated curve adjusted to a measured one."""

    x: Array  # places of the measured curve that are compared
    measured: Array
    simulated: Array  # at the same places, adjusted
    deviations: Array  # simulated less measured; decades for xrd
    weights: Array  # 1, or less for points with few counts
    scale: float  # of the simulated curve, 1 if it is not adjusted
    background: float  # added to it, in the unit of the measured curve; 0 if it is not adjusted
    shift: float  # by which the simulated curve is moved along the abscissa

    @property
    def rms(self) -> float:
        """Root of the weighted mean square of the deviations."""
        return float(np.sqrt(np.sum(self.weights * self.deviations**2) / np.sum(self.weights)))


class Places(NamedTuple):
    """The measured points to compare with."""

    curve: Curve
    chosen: Mask  # that are within the range of the simulated curve, whatever the shift
    shifts: tuple[float, float] | None  # range of the shift; None: it is 0


def places_of(simulated: Curve, measured: Curve, shifts: tuple[float, float] | None) -> Places:
    """The points of the measured curve that the simulated one reaches. Raises ValueError if there are too few."""
    low, high = shifts or (0.0, 0.0)
    ends = (simulated.x.min() + high, simulated.x.max() + low) if len(simulated.x) else (np.inf, -np.inf)
    chosen: Mask = (measured.x >= ends[0]) & (measured.x <= ends[1])
    if chosen.sum() < FEWEST_POINTS:
        name = measured.name or measured.kind
        raise ValueError(
            f"{name}: {int(chosen.sum())} of its points, {measured.x.min():.6g} to {measured.x.max():.6g}, are in the range of "
            f"the simulated curve, {ends[0]:.6g} to {ends[1]:.6g}; at least {FEWEST_POINTS} are needed"
        )
    return Places(measured, chosen, shifts)


def adjusted(measured: Curve) -> tuple[str, ...]:
    """Which of scale and background are adjusted to a measured curve."""
    if measured.kind == "xrd":
        return "scale", "background"
    return () if measured.settings.get("calibrated", True) else ADJUSTED.get(measured.kind, ())


def matched(simulated: Curve, places: Places) -> Match:
    """The simulated curve with the scale, background and shift that agree best with the measured one."""
    x, measured = places.curve.x[places.chosen], places.curve.y[places.chosen]
    logarithmic = places.curve.kind == "xrd"
    if logarithmic:
        floor = smallest_intensity(places.curve)
        target, weights = np.log10(np.maximum(measured, floor)), weights_of(places.curve)[places.chosen]
        logs = np.log(np.maximum(simulated.y, 1e-300))

        def at(shift: float) -> Match:
            model = np.exp(np.interp(x - shift, simulated.x, logs))
            scale, background = scale_and_background(model, target, weights)
            found = scale * model + background
            return Match(x, measured, found, np.log10(found) - target, weights, scale, background, shift)
    else:
        ones = np.ones(len(x))
        free = adjusted(places.curve)

        def at(shift: float) -> Match:
            model = np.interp(x - shift, simulated.x, simulated.y)
            power = float(model @ model)
            scale = float(model @ measured) / power if "scale" in free and power > 0 else 1.0
            zero = float(np.mean(measured - model)) if "background" in free else 0.0
            found = scale * model + zero
            return Match(x, measured, found, found - measured, ones, scale, zero, shift)

    if places.shifts is None:
        return at(0.0)
    tried = np.linspace(*places.shifts, SHIFTS)
    sums = [at(float(shift)).rms for shift in tried]
    best = int(np.argmin(sums))
    low, high = tried[max(best - 1, 0)], tried[min(best + 1, SHIFTS - 1)]
    return at(_minimum(lambda shift: at(shift).rms, low, high))


def smallest_intensity(measured: Curve) -> float:
    """What stands for an intensity of 0: one count, or the smallest positive value. Raises ValueError without any."""
    positive = measured.y[measured.y > 0]
    if len(positive) == 0:
        raise ValueError(f"{measured.name or measured.kind} has no positive intensity")
    unit = measured.table.attrs.get("units", {}).get(measured.table.columns[1], "1")
    seconds = measured.settings.get("seconds")
    one = 1.0 if unit == "counts" else 1.0 / seconds if unit == "cps" and seconds else 0.0
    return float(max(positive.min(), one))


def weights_of(measured: Curve) -> Array:
    """1, less for points with few counts. Without a unit that gives the counts, all are 1."""
    unit = measured.table.attrs.get("units", {}).get(measured.table.columns[1], "1")
    seconds = measured.settings.get("seconds")
    if unit == "cps" and seconds:
        counts = measured.y * seconds
    elif unit == "counts":
        counts = measured.y
    else:
        return np.ones(len(measured.y))
    weights: Array = 1.0 / (1.0 + (DECADE_OF_COUNTS / MODEL_DECADES) ** 2 / np.maximum(counts, 1.0))
    return weights


def scale_and_background(model: Array, target: Array, weights: Array) -> tuple[float, float]:
    """s and b >= 0 with the smallest weighted sum of squares of log10(s model + b) - target.

    For a background relative to the scale, b = s r, the best s is known in closed form, so only r is searched for.
    """
    share = weights / weights.sum()

    def spread(ratio: float) -> float:
        difference = target - np.log10(model + ratio)
        mean = share @ difference
        return float(share @ (difference - mean) ** 2)

    tried = np.concatenate([[0.0], np.geomspace(max(model.min(), 1e-12 * model.max()) * 1e-3, model.max(), BACKGROUNDS)])
    spreads = [spread(ratio) for ratio in tried]
    best = int(np.argmin(spreads))
    ratio = 0.0
    if best > 0:
        low, high = np.log(tried[max(best - 1, 1)] * (1e-3 if best == 1 else 1.0)), np.log(tried[min(best + 1, len(tried) - 1)])
        ratio = float(np.exp(_minimum(lambda log: spread(np.exp(log)), low, high)))
    scale = 10.0 ** float(share @ (target - np.log10(model + ratio)))
    return scale, scale * ratio


def _minimum(function: Callable[[float], float], low: float, high: float) -> float:
    """The minimum of a function with one in the interval, by the golden section."""
    a, b = high - GOLDEN * (high - low), low + GOLDEN * (high - low)
    at_a, at_b = function(a), function(b)
    for _ in range(REFINEMENTS):
        if at_a < at_b:
            high, b, at_b = b, a, at_a
            a = high - GOLDEN * (high - low)
            at_a = function(a)
        else:
            low, a, at_a = a, b, at_b
            b = low + GOLDEN * (high - low)
            at_b = function(b)
        if high - low <= 1e-12 * max(abs(low), abs(high)):
            break
    return float(0.5 * (low + high))


def independent_points(deviations: Array) -> float:
    """How many independent deviations are worth as much as these: their number over the autocorrelation time.

    The time is 1 + 2 (r_1 + r_2 + ...), with the autocorrelations up to the first that is not positive. Deviations of
    noise alone are all independent; those of a model that misses a broad peak count as few.
    """
    count = len(deviations)
    power = np.abs(np.fft.rfft(deviations, 2 * count)) ** 2
    correlation = np.fft.irfft(power)[:count]
    if not correlation[0] > 0:
        return float(count)
    ratios = correlation / correlation[0]
    ends = np.flatnonzero(ratios <= 0)
    last = int(ends[0]) if len(ends) else count
    return float(max(count / (1.0 + 2.0 * ratios[1:last].sum()), 1.0))
