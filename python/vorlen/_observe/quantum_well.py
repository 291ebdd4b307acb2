"""The lowest state of a particle in one dimension: Schrödinger's equation with a mass that depends on the place.

-hbar^2/2 d/dz (1/m dpsi/dz) + V psi = E psi (BenDaniel and Duke) in finite volumes of equal size, of second order in
their size. psi is 0 at both ends. The lowest eigenvalue of the tridiagonal matrix is found by bisection.
"""

from __future__ import annotations

import numpy as np

from .._base.types import Array

KINETIC = 0.0380998212  # hbar^2 / (2 electron masses), eV nm^2


def lowest_state(potential: Array, mass: Array, cell: float) -> tuple[float, Array]:
    """Energy of the lowest state, eV, and its probability in each cell, with the sum 1.

    potential  eV, mean of each cell
    mass  electron masses, of each cell
    cell  size of the cells, nm

    Needs scipy. Two cells or more; walls are half a cell beyond the middle of the first and of the last one.
    """
    from scipy.linalg import eigh_tridiagonal

    between = KINETIC / cell**2 / (0.5 * (mass[1:] + mass[:-1]))
    walls = 2 * KINETIC / cell**2 / mass[[0, -1]]  # at half the distance
    below, above = np.concatenate((walls[:1], between)), np.concatenate((between, walls[1:]))
    energies, states = eigh_tridiagonal(potential + below + above, -between, select="i", select_range=(0, 0))
    return float(energies[0]), states[:, 0] ** 2
