// The step loop of the integrator: advances the solution from x to x_end by steps of the three-stage Radau IIA method
// of order 5.
#pragma once

#include <cstdint>

#include "integrator/radau_callbacks.h"
#include "integrator/stage_system.h"

namespace vorlen {

// Result codes of RadauIntegrator.
enum RadauResult : std::int32_t {
  RADAU_DONE = 1,                  // x_end reached
  RADAU_STOPPED = 2,               // stopped by step_callback
  RADAU_REFUSED = -1,              // inconsistent arguments; no callback was called
  RADAU_TOO_MANY_STEPS = -2,       // max_steps steps did not reach x_end
  RADAU_STEP_TOO_SMALL = -3,       // the step is too small for the position
  RADAU_REPEATEDLY_SINGULAR = -4,  // the fifth singular factorisation
};

// Work of a run, in the order of IWORK(14) to IWORK(20).
struct RadauCounters {
  std::int32_t rhs_calls = 0;            // without those of the numerical Jacobian
  std::int32_t jacobian_count = 0;       // Jacobians computed
  std::int32_t step_count = 0;           // steps attempted, accepted or not
  std::int32_t accepted_count = 0;       // steps accepted
  std::int32_t rejected_count = 0;       // steps rejected by the error test after the first accepted step
  std::int32_t factorisation_count = 0;  // factorisations of a real and a complex matrix together
  std::int32_t solve_count = 0;          // Newton iterations; the solves of the error estimate are not counted
};

// Parameters of the run, checked and with the defaults filled in; radau_integrator.h gives their ranges.
struct RadauSettings {
  double unit_roundoff = 0.0;              // relative accuracy of the arithmetic
  double safety_factor = 0.0;              // of the step-size controller
  double jacobian_reuse_limit = 0.0;       // contraction up to which the Jacobian is kept; negative: never
  double newton_stop_factor = 0.0;         // Newton stops when the estimated scaled error is at most this
  double keep_step_low = 0.0;              // step ratios from here ..
  double keep_step_high = 0.0;             // .. to here keep step and factorisations
  double max_step = 0.0;                   // largest step, sign ignored
  double quot_max = 0.0;                   // largest old step / new step
  double quot_min = 0.0;                   // smallest old step / new step
  std::int32_t max_steps = 0;              // largest number of steps attempted
  std::int32_t max_newton_iterations = 0;  // per step attempted
  bool zero_start = false;                 // Newton starts from zero, not from the extrapolated last step
  bool predictive_control = false;         // predictive controller, not the classical one
  std::int32_t index1_count = 0;           // components of index 1, the first
  std::int32_t index2_count = 0;           // components of index 2, after those
  std::int32_t index3_count = 0;           // components of index 3, the last
};

// The problem as passed by the caller.
struct RadauProblem {
  RhsFunction rhs;                                    // f
  RadauJacobianCallback jacobian_callback = nullptr;  // null: numerical Jacobian
  RadauMassCallback mass_callback = nullptr;          // null: identity mass
  RadauStepCallback step_callback = nullptr;          // null: no calls
  double x_end = 0.0;                                 // end
  const double* rtol = nullptr;                       // transformed relative tolerances, 1 or n
  const double* atol = nullptr;                       // transformed absolute tolerances, 1 or n
  std::int32_t itol = 0;                              // 0: one tolerance for all components, else n
};

// Integrates from x to problem.x_end and returns a RadauResult. x, y (n reals) and h are advanced; system.matrix_case
// is that without block structure and is raised by 10 when block_count > 0. Counters start from their values at entry.
std::int32_t RadauStepLoop(const RadauProblem& problem, const RadauSettings& settings, StageSystem& system,
                           const StageArrays& arrays, double& x, double* y, double& h, RadauCounters& counters);

}  // namespace vorlen
