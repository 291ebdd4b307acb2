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


def kinematic(run: vorlen.Run, hkl: object = (0, 0, 2), *, two_theta: np.ndarray) -> vorlen.Curve:
    """A diffraction curve in microseconds: a peak of the template beside the fringes of one thin layer.

    For tests of many fits, instead of Run.xrd.
    """
    layer = run.layers.loc[2]
    spacing = 2.5925 * (1.0 + 0.16 * layer.x_in)  # angstrom, between planes 002; InGaN strained to GaN
    q = 4.0 * np.pi / 1.5406 * np.sin(np.radians(0.5 * two_theta))
    phase = 0.5 * 10.0 * layer.thickness * (q - 2.0 * np.pi / spacing)
    film = 1e-5 * (layer.thickness * np.sinc(phase / np.pi)) ** 2
    intensity = 1.0 / (1.0 + ((two_theta - 34.57) / 0.01) ** 2) + film + 1e-7
    table = pd.DataFrame({"two_theta": two_theta, "intensity": intensity})
    return vorlen.Curve("xrd", table)
