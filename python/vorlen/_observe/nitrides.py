# Written by write_recipe_files from src/recipe/species_data.cpp: change it there.
"""Lattice and elastic constants of the nitrides, by metal."""

from typing import NamedTuple


class Nitride(NamedTuple):
    a: float  # lattice constants, angstrom
    c: float
    C11: float  # elastic constants, GPa
    C12: float
    C13: float
    C33: float


NITRIDES = {
    "In": Nitride(3.54, 5.705, 223, 115, 92, 224),
    "Ga": Nitride(3.189, 5.185, 367, 135, 103, 405),
    "Al": Nitride(3.112, 4.982, 396, 137, 108, 373),
}
