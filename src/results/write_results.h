// The result file (docs/result-format.md).
#pragma once

#include "model/surfchem_nonst.h"

namespace vorlen {

// Writes the whole file and closes it; does nothing if it is not open. Sums up the thicknesses of the active stages and
// sets the lattice of the post-stages. success: with the rows of the post-stages.
void write_results(SurfChemNonst& m, bool success);

}  // namespace vorlen
