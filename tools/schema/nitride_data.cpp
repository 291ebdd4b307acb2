// Lattice and elastic constants of InN, GaN and AlN for the Python package.
#include "schema/nitride_data.h"

#include <fmt/core.h>

#include "recipe/species_data.h"

std::string nitrides_module() {
  std::string text = R"(# Written by write_recipe_files from src/recipe/species_data.cpp: change it there.
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
)";
  for (const vorlen::BulkSpeciesRecord& nitride : vorlen::builtin_bulk_species()) {
    const char* metal = nitride.n_In > 0 ? "In" : nitride.n_Ga > 0 ? "Ga" : "Al";
    text += fmt::format("    \"{}\": Nitride({}, {}, {}, {}, {}, {}),\n", metal, nitride.a, nitride.c, nitride.C11,
                        nitride.C12, nitride.C13, nitride.C33);
  }
  return text + "}\n";
}
