// The single-point layout of the result file. See single_point.cpp.
#pragma once

#include "model/surfchem_nonst.h"

namespace vorlen {

// Writes the whole file and closes it; the file is open. The history needs the lists of detail_output.
void write_single_point(SurfChemNonst& m);

}  // namespace vorlen
