// Drives a run under the staged scheme: stage by stage, each integrated in its own time.
#pragma once

#include <cstdint>
#include <string>

#include "api/run_simulation.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

// Integrates the process and fills the history of the model. Returns a RunStatus with its text in error. counters
// receives what the integrator did in all stages.
std::int32_t run_staged(SurfChemNonst& model, double tolerance, const RunOptions& options, RunCounters& counters,
                        std::string& error);

}  // namespace vorlen
