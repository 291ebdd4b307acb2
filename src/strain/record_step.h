// What an accepted step of the continuous scheme leaves in the model: its interval of growth and, at recorded points,
// an entry in the history. Only here do the history and the segments grow under that scheme.
#pragma once

#include "model/surfchem_nonst.h"

namespace vorlen {

// Takes in the accepted state y at time t_new [s]: growth rate, interval of growth, and history if the point is
// recorded.
void record_step(SurfChemNonst& m, double t_new, const double* y);

// Files the interval from z_prev to z: under tension if eps_xx is above 0. It extends the last segment of the list, or
// is a new one if there is a gap.
void file_segment(SurfChemNonst& m, double eps_xx);

}  // namespace vorlen
