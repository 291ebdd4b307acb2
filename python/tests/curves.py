"""Curves as an instrument would measure them, for tests."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd

import vorlen

LAYER = Path(__file__).resolve().parents[2] / "examples" / "notebooks" / "ingan_layer.xml"
ANGLES = np.linspace(33.2, 35.0, 361)  # deg; from the fringes of a thin layer to beyond the peak of GaN
COUNTS = 2e6  # at the highest point


def as_measured(curve: vorlen.Curve, seed: int | None = 1, *, scale: float = 1.0, background: float = 3.0, name: str = "scan") -> vorlen.Curve:
    """A diffraction curve in counts, with counting noise unless seed is None. The scale is on top of COUNTS."""
    mean = scale * (COUNTS * curve.y / curve.y.max() + background)
    counts = mean if seed is None else np.random.default_rng(seed).poisson(mean).astype(float)
    table = pd.DataFrame({"two_theta": curve.x, "intensity": counts, "omega": 0.5 * curve.x})
    table.attrs["units"] = {"two_theta": "deg", "intensity": "counts" if seed is not None else "1", "omega": "deg"}
    return vorlen.Curve("xrd", table, name)


def over_time(kind: str, times: object, values: object, name: str = "sensor") -> vorlen.Curve:
    return vorlen.Curve(kind, pd.DataFrame({"time": times, kind: values}), name)
