// The body of the integrator: carries the solution from x to x_end by steps of the three-stage Radau IIA method of
// order 5.
#pragma once

#include <cstdint>

#include "integrator/radau_callbacks.h"
#include "integrator/stage_system.h"

namespace vorlen {

// Result codes of RadauIntegrator.
enum RadauResult : std::int32_t {
  RADAU_DONE = 1,                  // x_end reached
  RADAU_STOPPED = 2,               // stopped by step_callback
  RADAU_REFUSED = -1,              // inconsistent arguments; nothing was called
  RADAU_TOO_MANY_STEPS = -2,       // max_steps steps did not reach x_end
  RADAU_STEP_TOO_SMALL = -3,       // the step is too small for the position
  RADAU_REPEATEDLY_SINGULAR = -4,  // the fifth singular factorisation
};

// What was done, in the order of IWORK(14) to IWORK(20).
struct RadauCounters {
  std::int32_t rhs_calls = 0;       // without those of the numerical Jacobian
  std::int32_t jacobian_count = 0;  // Jacobians computed
  std::int32_t step_count = 0;      // steps computed, accepted or not
  std::int32_t accepted_count = 0;
  std::int32_t rejected_count = 0;       // counted only once a step has been accepted
  std::int32_t factorisation_count = 0;  // pairs of a real and a complex one
  std::int32_t solve_count = 0;          // without those of the error estimate
};

// Parameters of the control, checked, with the defaults in place.
struct RadauSettings {
  double unit_roundoff = 0.0;
  double safety_factor = 0.0;
  double jacobian_reuse_limit = 0.0;
  double newton_stop_factor = 0.0;
  double keep_step_low = 0.0;
  double keep_step_high = 0.0;
  double max_step = 0.0;
  double quot_max = 0.0;
  double quot_min = 0.0;
  std::int32_t max_steps = 0;
  std::int32_t max_newton_iterations = 0;
  bool zero_start = false;
  bool predictive_control = false;
  std::int32_t index1_count = 0;
  std::int32_t index2_count = 0;
  std::int32_t index3_count = 0;
};

// The problem as the caller gives it. rtol and atol are the transformed tolerances, one real each (itol 0) or n.
struct RadauProblem {
  RhsFunction rhs;
  RadauJacobianCallback jacobian_callback = nullptr;  // null: numerical Jacobian
  RadauMassCallback mass_callback = nullptr;          // null: identity mass
  RadauStepCallback step_callback = nullptr;          // null: no calls
  double x_end = 0.0;
  const double* rtol = nullptr;
  const double* atol = nullptr;
  std::int32_t itol = 0;
};

// Integrates from x to problem.x_end and returns a RadauResult. x, y (n reals) and h are advanced; system.matrix_case
// is that without block structure and is raised by 10 when block_count > 0. Counters start from their values at entry.
std::int32_t RadauStepLoop(const RadauProblem& problem, const RadauSettings& settings, StageSystem& system,
                           const StageArrays& arrays, double& x, double* y, double& h, RadauCounters& counters);

}  // namespace vorlen
