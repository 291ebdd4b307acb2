// Integrates a run under the staged scheme: stage by stage, each in its own time.
#pragma once

#include <cstdint>
#include <string>

#include "api/run_simulation.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

// Integrates the process and fills the history of the model. tolerance is relative. Returns a RunStatus, and sets error
// if that is not RUN_OK. counters receives the sums over all stages, without eval_rhs_calls.
std::int32_t run_staged(SurfChemNonst& model, double tolerance, const RunOptions& options, RunCounters& counters,
                        std::string& error);

}  // namespace vorlen
