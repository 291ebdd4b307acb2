// The driver of a run: builds the model, integrates it, writes the result file.
#pragma once

#include <cstdint>
#include <string>

#include "recipe/process_recipe.h"

namespace vorlen {

// Status of a run. A construction that fails has the codes -1, 1 and 100 to 103 (see SurfChemNonst).
enum RunStatus : std::int32_t {
  RUN_OK = 0,
  RUN_GAVE_UP_ON_STEPS = 2,  // too many steps, or a step too small
  RUN_SINGULAR = 3,          // the matrix of the Newton iteration stayed singular
  RUN_LATE_FAULT = 4,        // ProcessRecipe::late_fault
  RUN_NOT_FINITE = 5,        // the state is not finite, under the staged scheme
  RUN_REJECTED = 6           // the integrator rejected its arguments
};

// What the integrator did, for tests and benchmarks. Under the staged scheme: sums over all stages.
struct RunCounters {
  std::int32_t idid = 0;       // its last code, a RadauResult
  std::int32_t rhs_calls = 0;  // without those of the numerical Jacobian
  std::int32_t jacobian_count = 0;
  std::int32_t step_count = 0;
  std::int32_t accepted_count = 0;
  std::int32_t rejected_count = 0;
  std::int32_t factorisation_count = 0;
  std::int32_t solve_count = 0;
  std::int64_t eval_rhs_calls = 0;  // all evaluations of the residual, those of init_state included
};

// For tests, benchmarks and fuzzing. runSurfChem uses the defaults.
struct RunOptions {
  std::int32_t max_steps = 1000000;  // of the integrator
  double max_step = 0.0;             // of the integrator, s; 0: 10 s under the continuous scheme, else no limit
  bool reuse_terms = true;           // off: the residual keeps nothing from one evaluation to the next
};

// Runs the recipe and writes the result file to output_path, also when the integration fails; an empty path means no
// file. The content of the file goes to output_text instead if that is not null. Returns a RunStatus or the code of a
// failed construction. error is empty after RUN_OK, otherwise the reason. counters may be null, and is set only if the
// integration was started.
std::int32_t run_simulation(const ProcessRecipe& recipe, const char* output_path, std::string& error,
                            RunCounters* counters = nullptr, const RunOptions& options = {},
                            std::string* output_text = nullptr);

// Status of a run whose integration ended with idid: a RadauResult, but not RADAU_STOPPED, since no step callback ends
// a run. Sets error on a failure.
std::int32_t run_status_of(std::int32_t idid, std::string& error);

// Adds the counters that the integrator has left in IWORK, slots 14 to 20.
void add_counters(RunCounters& sum, const std::int32_t* IWORK);

}  // namespace vorlen
