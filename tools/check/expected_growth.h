// The growth to expect from supply and transport alone: every metal atom that diffuses through the transport layer is
// built in, and none desorbs. It needs no run, so that a wrong unit shows before one.
#pragma once

#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen::recipe {

// Of one active stage. NaN where the conditions allow no number.
struct ExpectedGrowth {
  double rate = 0.0;       // mean over the stage, nm/s
  double thickness = 0.0;  // nm
};

// Growth rate [nm/s] in the current stage of the model at a fraction of its duration. Sets the model's conditions.
double expected_rate(vorlen::SurfChemNonst& model, double fraction);

// One entry for each active stage of a model that has been set up; ramps are integrated. Sets the model's conditions.
std::vector<ExpectedGrowth> expected_growth(vorlen::SurfChemNonst& model);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
