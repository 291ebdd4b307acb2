"""Errors of fitted constants: estimates at bounds, the covariance, quantiles, and doubts about the result."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt
import pandas as pd

from ._fit_model import STEP, Array

if TYPE_CHECKING:
    from lmfit import Parameters
    from lmfit.minimizer import MinimizerResult

SINGULAR = 1e-10  # smallest to largest singular value of the derivatives, below which the constants are undetermined


def at_bounds(params: Parameters, residual: Array, derivatives: Array) -> list[str]:
    """For each constant "low" or "high" if the sum of squares still falls across that bound, otherwise ""."""
    found = []
    for one, column in zip(params.values(), derivatives.T):
        with np.errstate(divide="ignore", invalid="ignore"):
            best = one.value - (column @ residual) / (column @ column)  # minimum along this constant; NaN: no effect
        near_low, near_high = one.value - one.min < STEP, one.max - one.value < STEP
        found.append("low" if near_low and best <= one.min else "high" if near_high and best >= one.max else "")
    return found


def inverse_normal_matrix(derivatives: Array, free: npt.NDArray[np.bool_]) -> Array:
    """The inverse of J'J for the free constants; NaN for the others, and if the derivatives are singular."""
    inverse = np.full((len(free), len(free)), np.nan)
    if free.any():
        _, sizes, directions = np.linalg.svd(derivatives[:, free], full_matrices=False)
        if sizes[-1] > SINGULAR * sizes[0]:
            inverse[np.ix_(free, free)] = (directions.T / sizes**2) @ directions
    return inverse


def quantile(weighted: bool, level: float, freedom: int) -> float:
    """Normal quantile for known standard deviations, Student's for one that is estimated from the scatter."""
    from scipy import stats

    return float(stats.norm.ppf(0.5 + level / 2) if weighted else stats.t.ppf(0.5 + level / 2, freedom))


def doubts(constants: pd.DataFrame, found: MinimizerResult, freedom: int, weighted: bool) -> list[str]:
    """Texts about doubtful results."""
    texts = [] if found.success else [f"the fit did not converge: {found.message}"]
    if freedom == 0 and not weighted:
        texts.append("as many constants as measurements: without standard deviations their errors are unknown")
    for (path, row), one in zip(constants.iterrows(), found.params.values()):
        if row.at_bound:
            bound = f"{'lower' if row.at_bound == 'low' else 'upper'} bound {row['value']:.4g}"
            texts.append(f"{path} is at its {bound}: its error is unknown, and the other errors hold for this value")
        elif np.isnan(row.relative_error) and (freedom or weighted):
            texts.append(f"the measurements do not determine {path}, or only together with another constant")
        elif row.low <= np.exp(one.min) and row.high >= np.exp(one.max):
            texts.append(f"the measurements do not determine {path}: its interval exceeds its bounds")
    return texts
