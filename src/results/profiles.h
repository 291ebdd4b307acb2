// The numbers of the result file: thickness of each active stage, and the data rows.
#pragma once

#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen {

// Sums up the thickness [nm] of each active stage from the history; a step over a boundary is shared out by time.
void sum_stage_thicknesses(SurfChemNonst& m);

// Writes a row for each recorded point to m.out.
void write_profile(SurfChemNonst& m);

// Writes two rows for each of the pre-stages or post-stages to m.out, the first at height z_start_nm. rho_VD is the
// density of V-defects in them, m^-2.
void write_stage_rows(SurfChemNonst& m, const std::vector<PrePostStageRecord>& stages, double z_start_nm,
                      double rho_VD);

}  // namespace vorlen
