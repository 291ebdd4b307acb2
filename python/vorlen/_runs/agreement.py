"""A run beside a measured curve: the same curve simulated, adjusted, and how well the two agree."""

from __future__ import annotations

import inspect
from collections.abc import Iterable, Sequence
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from .._base.arguments import is_number
from .._observe.curve import Curve
from .._observe.matching import FEWEST_POINTS, UNITS, Match, adjusted, matched, places_of
from .._observe.measured import peak
from .._recipe.quantities import number_in
from .run import Run

Range = tuple[float, float] | None
FAR = 5.0  # deg of 2theta, from the template's peak: a scan of another reflection
COLUMNS = (  # of the table of agreements: column, unit, meaning
    ("curve", "", "name of the measured curve"),
    ("kind", "", "kind of the measured curve"),
    ("points", "1", "measured points that were compared"),
    ("rms", "", "root mean square of the deviations, in the unit beside it"),
    ("unit", "", "unit of rms: decades of intensity for xrd, nm for emission"),
    ("scale", "1", "factor of the simulated curve, if it was adjusted"),
    ("background", "", "background of the intensity, or zero of the curvature in 1/km, if it was adjusted"),
    ("shift", "", "by which the simulated curve was moved, deg or s"),
    ("peak_measured", "", "position of the highest measured peak, deg of 2theta or nm"),
    ("peak_simulated", "", "position of the highest simulated peak, or mean wavelength of the wells"),
    ("peak_shift", "", "simulated less measured position of the peak"),
)


class Agreement(NamedTuple):
    """A measured curve and what a run gives for it."""

    measured: Curve
    simulated: Curve | None  # as the run gives it; None for emission
    match: Match | None  # None for emission
    wavelengths: list[float]  # nm, of the wells, for emission
    notes: list[str]

    def numbers(self) -> dict[str, Any]:
        """A row of the table of agreements. NaN where a number does not apply."""
        row: dict[str, Any] = {name: np.nan for name, *_ in COLUMNS}
        row |= {"curve": self.measured.name, "kind": self.measured.kind, "unit": UNITS[self.measured.kind]}
        if self.measured.kind in ("xrd", "emission"):
            row["peak_measured"] = _peak(self.measured)
            if self.simulated is not None and self.match is not None:
                row["peak_simulated"] = _peak(self.simulated) + self.match.shift
            elif self.wavelengths:
                row["peak_simulated"] = float(np.mean(self.wavelengths))
            row["peak_shift"] = row["peak_simulated"] - row["peak_measured"]
        if self.match is None:
            return row | {"points": 1, "rms": abs(row["peak_shift"])}
        row |= {"points": len(self.match.x), "rms": self.match.rms, "shift": self.match.shift}
        return row | {name: getattr(self.match, name) for name in adjusted(self.measured)}

    def table(self) -> pd.DataFrame:
        """The measured points, and the simulated curve and the deviations where these are compared."""
        table = self.measured.table.copy()
        if self.match is not None:
            x, y = table.columns[:2]
            compared = pd.DataFrame(
                {x: self.match.x, f"simulated_{y}": self.match.simulated, "deviation": self.match.deviations}
            )
            table = table.merge(compared, on=x, how="left")
        return table


def agreement_of(run: Run, measured: Curve, shifts: Range) -> Agreement:
    """The agreement of one curve. Raises as the method of Run that simulates it, and as places_of()."""
    if measured.kind == "emission":
        wells = run.emission(**settings_for(run.emission, measured))
        found = wells["wavelength"].to_numpy(float)
        return Agreement(measured, None, None, found[np.isfinite(found)].tolist(), list(wells.attrs.get("notes", [])))
    simulated = simulated_like(run, measured, shifts)
    _check_reflection(measured, simulated)
    return Agreement(measured, simulated, matched(simulated, places_of(simulated, measured, shifts)), [], simulated.notes)


def simulated_like(run: Run, measured: Curve, shifts: Range = None) -> Curve:
    """What a run gives for a measured curve, with its settings; not for emission."""
    method = getattr(run, measured.kind)
    settings = settings_for(method, measured)
    if measured.kind == "xrd" and len(measured.x):
        low, high = shifts or (0.0, 0.0)
        margin = max(abs(low), abs(high))
        settings["two_theta"] = grid_of(measured.x, margin)
    simulated: Curve = method(**settings)
    return simulated


def _check_reflection(measured: Curve, simulated: Curve) -> None:
    """Raises ValueError if a diffraction scan is far from the peak of the template."""
    if measured.kind != "xrd" or simulated.peaks is None or simulated.peaks.empty:
        return
    template = simulated.peaks.iloc[0]
    low, high = measured.x.min(), measured.x.max()
    if low - FAR > template.x or high + FAR < template.x:
        raise ValueError(
            f"{measured.name or measured.kind}: 2theta from {low:.6g} to {high:.6g} deg is far from the peak of {template.label}, "
            f"{template.x:.4f} deg in {simulated.name}: is it a scan of another reflection (hkl=, or --xrd)?"
        )


def grid_of(angles: Any, margin: float) -> Any:
    """The measured angles with further ones at both ends, for shifts by up to margin."""
    if margin == 0:
        return angles
    step = np.median(np.diff(angles))
    more = step * np.arange(1, int(np.ceil(margin / step)) + 1)
    return np.concatenate([angles[0] - more[::-1], angles, angles[-1] + more])


def settings_for(method: Any, measured: Curve) -> dict[str, Any]:
    """The settings of a measured curve that a method of Run takes."""
    known = inspect.signature(method).parameters
    return {key: value for key, value in measured.settings.items() if key in known}


def checked_curves(measured: object) -> list[Curve]:
    """One or several measured curves as a list. Raises TypeError or ValueError."""
    given: list[Any] = list(measured) if isinstance(measured, Iterable) else [measured]
    curves: list[Curve] = []
    for curve in given:
        if not isinstance(curve, Curve):
            raise TypeError(f"measured must be a Curve or a list of Curves, as vorlen.measured.read() returns, got {curve!r:.60}")
        if len(curve.x) < FEWEST_POINTS:
            raise ValueError(f"{curve.name or curve.kind} has {len(curve.x)} points; at least {FEWEST_POINTS} are needed")
        curves.append(curve)
    if not curves:
        raise ValueError("give at least one measured curve")
    return curves


def shifts_of(curve: Curve, angle_offset: Range, time_offset: Range) -> Range:
    """The range of the shift of a curve."""
    return {"xrd": angle_offset, "emission": None}.get(curve.kind, time_offset)


def checked_offset(name: str, given: object, unit: str) -> Range:
    """A range (low, high) of an offset, in unit; None stays None. Raises TypeError or ValueError."""
    if given is None:
        return None
    if isinstance(given, str) or not isinstance(given, Sequence) or len(given) != 2:
        raise TypeError(f"{name} must be a pair (low, high), numbers in {unit} or texts with a unit, got {given!r}")
    low, high = (float(number_in(end, name, unit)) for end in given)
    if not (is_number(low) and low < high):
        raise ValueError(f"{name}: low must be less than high, got {low:g} and {high:g}")
    return low, high


def agreement_table(agreements: Sequence[Agreement]) -> pd.DataFrame:
    """A row per measured curve."""
    table = pd.DataFrame([one.numbers() for one in agreements], columns=[name for name, *_ in COLUMNS])
    table.attrs["units"] = {name: unit for name, unit, _ in COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in COLUMNS}
    return table


def _peak(curve: Curve) -> float:
    """The position of the highest peak; NaN if there is none."""
    try:
        return peak(curve)
    except ValueError:
        return float("nan")
