"""Types of arguments and tables that several modules use."""

from __future__ import annotations

import os

import numpy as np
from numpy.typing import NDArray

Array = NDArray[np.float64]
Mask = NDArray[np.bool_]
Rows = NDArray[np.intp]  # numbers of rows
PathLike = str | os.PathLike[str]
