// Step loop of the three-stage Radau IIA method of order 5. An attempt at a step goes through
//
//   Jacobian -> factorisation -> step (starting values) -> Newton iteration -> error estimate -> accepted or rejected
//
// and the next attempt enters at the first of these points whose result is no longer valid. The file has the same
// order: setup, these points, acceptance, the loop.
#include "integrator/radau_step_loop.h"

#include <algorithm>
#include <cmath>

#include "integrator/dense_output.h"
#include "integrator/matrix_form.h"
#include "integrator/numerical_jacobian.h"
#include "integrator/ordered_minmax.h"
#include "integrator/radau_constants.h"
#include "integrator/stage_vectors.h"

namespace vorlen {

namespace {

constexpr double DEFAULT_STEP = 1e-6;           // used when the given step is negligible
constexpr double NO_STEP_ROUNDOFFS = 10.0;      // steps up to this many roundoffs are negligible
constexpr double LAST_STEP_STRETCH = 1.0001;    // a first step that reaches x_end when stretched so becomes the last
constexpr double SMALL_STEP_FACTOR = 0.1;       // of the step, in the test against the position
constexpr double FIRST_REJECTION_FACTOR = 0.1;  // of the step, while none has been accepted
constexpr double CARRY_EXPONENT = 0.8;          // carries the convergence factor into the next step
constexpr double MAX_CONTRACTION = 0.99;        // from here on the iteration is given up
constexpr double MIN_ERROR_EXCESS = 0.0001;     // bounds of the predicted Newton error in the step reduction
constexpr double MAX_ERROR_EXCESS = 20.0;
constexpr double NEWTON_REDUCTION = 0.8;        // factor of the step reduction by the predicted Newton error
constexpr double NEWTON_REDUCTION_ORDER = 4.0;  // in the exponent of that reduction
constexpr double ERROR_EXPONENT = 0.25;         // 1 / order of the error estimate
constexpr double MIN_PREV_ERR = 0.01;           // floor of the error that the predictive controller remembers
constexpr double FAILURE_FACTOR = 0.5;          // of the step, when Newton or a factorisation failed
constexpr std::int32_t MAX_SINGULAR_COUNT = 5;  // the singular factorisation that ends the run

// Where the next attempt enters.
enum class Entry { JACOBIAN, FACTORISATION, STEP, END };

// State of the loop, which the functions below read and write.
struct Loop {
  const RadauProblem& problem;
  const RadauSettings& settings;
  StageSystem& system;
  const StageArrays& arrays;
  double& x;
  double* y;
  double& h;
  RadauCounters& counters;

  std::int32_t n = 0;
  double step_sign = 1.0;       // +1 forward, -1 backward
  double h_limit = 0.0;         // largest magnitude of a step
  double h_old = 0.0;           // step of the last accepted step
  double h_opt = 0.0;           // value of h on return when x_end is reached
  double h_new = 0.0;           // step proposed by the controller
  double x_old = 0.0;           // start of the last accepted step
  double x_next = 0.0;          // end of this attempt
  bool first_step = true;       // no step has been accepted yet
  bool last_step = false;       // this attempt ends at x_end
  bool rejected = false;        // the previous attempt failed
  bool jacobian_fresh = false;  // the Jacobian was computed at the current x

  double conv_factor = 1.0;       // contraction / (1 - contraction), carried from step to step
  double iteration_safety = 0.0;  // lowers the safety factor with the number of Newton iterations
  double step_ratio = 0.0;        // pending division of SCAL for components of index 2 and 3
  double contraction = 0.0;       // contraction rate of the Newton iteration
  std::int32_t newton_count = 0;
  std::int32_t singular_count = 0;  // over the whole run
  std::int32_t zero_pivot = 0;
  std::int32_t stop_flag = 1;

  double prev_h_accepted = 0.0;  // memory of the predictive controller
  double prev_err_accepted = 0.0;

  std::int32_t idid = RADAU_DONE;
};

Entry End(Loop& loop, std::int32_t idid) {
  loop.idid = idid;
  return Entry::END;
}

// The Jacobian is computed at most once at any x.
Entry RetryEntry(const Loop& loop) { return loop.jacobian_fresh ? Entry::FACTORISATION : Entry::JACOBIAN; }

void EvaluateRhs(const Loop& loop, double x, const double* y, double* f) {
  const RhsFunction& rhs = loop.problem.rhs;
  rhs.callback(loop.n, x, y, f, rhs.real_context, rhs.model_context);
}

void SetScale(Loop& loop) {
  const RadauProblem& problem = loop.problem;
  for (std::int32_t i = 0; i < loop.n; ++i) {
    const std::int32_t k = problem.itol == 0 ? 0 : i;
    loop.arrays.SCAL[i] = problem.atol[k] + problem.rtol[k] * std::abs(loop.y[i]);
  }
}

// Reports the current point to the caller; false when the caller wants to stop.
bool ReportStep(Loop& loop, std::int32_t accepted_index) {
  if (loop.problem.step_callback == nullptr) return true;
  dense_output.x_sol = loop.x;
  dense_output.h_sol = loop.h_old;
  std::copy(loop.y, loop.y + loop.n, loop.arrays.CONT);
  const RhsFunction& rhs = loop.problem.rhs;
  loop.problem.step_callback(accepted_index, loop.x_old, loop.x, loop.y, loop.arrays.CONT, 4 * loop.n, loop.n,
                             rhs.real_context, rhs.model_context, loop.stop_flag);
  return !(loop.stop_flag < 0);
}

void SetRecords(const Loop& loop) {
  const StageSystem& system = loop.system;
  dense_output.n = loop.n;

  band_dims.factor_lower = system.mljac;
  band_dims.factor_upper = system.mujac;
  band_dims.jac_band_rows = system.mljac + system.mujac + 1;
  band_dims.factor_diag_row = system.mljac + system.mujac + 1;
  band_dims.mass_band_rows = system.mlmas + system.mumas + 1;
  band_dims.mass_row_offset = system.mljac + system.mujac - system.mumas;
  band_dims.mass_diag_row = system.mumas + 1;
}

// Normalises the first step, reports the start and evaluates there.
Entry Setup(Loop& loop) {
  const RadauProblem& problem = loop.problem;
  const RadauSettings& settings = loop.settings;
  StageSystem& system = loop.system;
  SetRecords(loop);
  if (problem.mass_callback != nullptr) {
    problem.mass_callback(system.n_reduced, system.FMAS, system.mass_rows, problem.rhs.real_context,
                          problem.rhs.model_context);
  }
  if (system.block_count > 0) system.matrix_case += BLOCK_CASES;

  loop.step_sign = problem.x_end - loop.x < 0.0 ? -1.0 : 1.0;
  loop.h_limit = OrderedMin(std::abs(settings.max_step), std::abs(problem.x_end - loop.x));
  if (std::abs(loop.h) <= NO_STEP_ROUNDOFFS * settings.unit_roundoff) loop.h = DEFAULT_STEP;
  loop.h = std::copysign(OrderedMin(std::abs(loop.h), loop.h_limit), loop.step_sign);
  loop.h_old = loop.h;
  if ((loop.x + loop.h * LAST_STEP_STRETCH - problem.x_end) * loop.step_sign >= 0.0) {
    loop.h = problem.x_end - loop.x;
    loop.last_step = true;
  }
  loop.h_opt = loop.h;
  loop.iteration_safety = settings.safety_factor * (1.0 + 2.0 * settings.max_newton_iterations);
  loop.x_old = loop.x;
  if (!ReportStep(loop, 1)) return End(loop, RADAU_STOPPED);
  SetScale(loop);
  loop.step_ratio = loop.h;
  EvaluateRhs(loop, loop.x, loop.y, loop.arrays.Y0);
  loop.counters.rhs_calls += 1;
  return Entry::JACOBIAN;
}

void ComputeJacobian(Loop& loop) {
  const RadauProblem& problem = loop.problem;
  StageSystem& system = loop.system;
  loop.counters.jacobian_count += 1;
  if (problem.jacobian_callback == nullptr) {
    NumericalJacobian(system, loop.arrays, problem.rhs, loop.settings.unit_roundoff, loop.x, loop.y);
  } else {
    problem.jacobian_callback(loop.n, loop.x, loop.y, system.FJAC, system.jac_rows, problem.rhs.real_context,
                              problem.rhs.model_context);
  }
  loop.jacobian_fresh = true;
  system.hessenberg_due = true;
}

// False when a matrix is singular.
bool Factorise(Loop& loop) {
  StageSystem& system = loop.system;
  system.real_shift = radau::real_eigenvalue / loop.h;
  system.complex_shift_re = radau::complex_eigenvalue_re / loop.h;
  system.complex_shift_im = radau::complex_eigenvalue_im / loop.h;
  FormMatrices(system, loop.zero_pivot);
  if (loop.zero_pivot != 0) return false;
  loop.counters.factorisation_count += 1;
  return true;
}

// The error of a component of index 2 is multiplied by h, of index 3 by h^2. SCAL still contains the division of the
// previous attempt, unless a step was accepted since; step_ratio is the factor still to divide by.
void ScaleIndexComponents(Loop& loop) {
  const RadauSettings& settings = loop.settings;
  double* SCAL = loop.arrays.SCAL;
  const std::int32_t index2_begin = settings.index1_count;
  const std::int32_t index3_begin = index2_begin + settings.index2_count;
  const std::int32_t index3_end = index3_begin + settings.index3_count;
  for (std::int32_t i = index2_begin; i < index3_begin; ++i) {
    SCAL[i] = SCAL[i] / loop.step_ratio;
  }
  for (std::int32_t i = index3_begin; i < index3_end; ++i) {
    SCAL[i] = SCAL[i] / (loop.step_ratio * loop.step_ratio);
  }
}

// Starts the Newton iteration from zero, or from the polynomial of the last step extrapolated.
void SetStartingValues(Loop& loop) {
  const StageArrays& a = loop.arrays;
  const std::int32_t n = loop.n;
  if (loop.first_step || loop.settings.zero_start) {
    for (double* values : {a.Z1, a.Z2, a.Z3, a.F1, a.F2, a.F3}) {
      std::fill(values, values + n, 0.0);
    }
    return;
  }
  const double q3 = loop.h / loop.h_old;
  const double q[3] = {radau::c1 * q3, radau::c2 * q3, q3};
  ExtrapolateStages(n, q, a.CONT + n, a.CONT + 2 * n, a.CONT + 3 * n, a.Z1, a.Z2, a.Z3, a.F1, a.F2, a.F3);
}

// Evaluates f at a stage, whose increments are in Z, and stores the value in Z.
void EvaluateStage(Loop& loop, double stage_x, double* Z) {
  double* CONT = loop.arrays.CONT;
  AddVectors(loop.n, loop.y, Z, CONT);
  EvaluateRhs(loop, stage_x, CONT, Z);
}

// One Newton iteration up to the update of the transformed variables, which is left in Z1, Z2, Z3; returns its norm.
double NewtonUpdate(Loop& loop) {
  const StageArrays& a = loop.arrays;
  EvaluateStage(loop, loop.x + radau::c1 * loop.h, a.Z1);
  EvaluateStage(loop, loop.x + radau::c2 * loop.h, a.Z2);
  EvaluateStage(loop, loop.x_next, a.Z3);
  loop.counters.rhs_calls += 3;
  ToTransformed(loop.n, a.Z1, a.Z2, a.Z3);
  SolveStageSystem(loop.system, a);
  loop.counters.solve_count += 1;
  return std::sqrt(SumOfScaledSquares(loop.n, a.Z1, a.Z2, a.Z3, a.SCAL) / (3.0 * loop.n));
}

double IntegerPower(double base, std::int32_t exponent) {
  double power = 1.0;
  while (exponent != 0) {
    if (exponent % 2 != 0) power *= base;
    exponent /= 2;
    if (exponent != 0) base *= base;
  }
  return power;
}

enum class NewtonResult { CONVERGED, TOO_SLOW, FAILED };

// The simplified Newton iteration. TOO_SLOW: it would not converge in the remaining iterations, and h has been reduced.
NewtonResult IterateNewton(Loop& loop) {
  const RadauSettings& settings = loop.settings;
  const std::int32_t max_count = settings.max_newton_iterations;
  double contraction_prev = 0.0;
  double update_norm_prev = 0.0;
  loop.newton_count = 0;
  loop.conv_factor = std::pow(OrderedMax(loop.conv_factor, settings.unit_roundoff), CARRY_EXPONENT);
  loop.contraction = std::abs(settings.jacobian_reuse_limit);
  while (loop.newton_count < max_count) {
    const double update_norm = NewtonUpdate(loop);
    loop.newton_count += 1;
    if (loop.newton_count > 1 && loop.newton_count < max_count) {
      const double ratio_now = update_norm / update_norm_prev;
      loop.contraction = loop.newton_count == 2 ? ratio_now : std::sqrt(ratio_now * contraction_prev);
      contraction_prev = ratio_now;
      if (!(loop.contraction < MAX_CONTRACTION)) return NewtonResult::FAILED;
      loop.conv_factor = loop.contraction / (1.0 - loop.contraction);
      const std::int32_t left = max_count - 1 - loop.newton_count;
      const double predicted_error =
          loop.conv_factor * update_norm * IntegerPower(loop.contraction, left) / settings.newton_stop_factor;
      if (predicted_error >= 1.0) {
        const double error_excess = OrderedMax(MIN_ERROR_EXCESS, OrderedMin(MAX_ERROR_EXCESS, predicted_error));
        loop.step_ratio = NEWTON_REDUCTION * std::pow(error_excess, -1.0 / (NEWTON_REDUCTION_ORDER + left));
        loop.h = loop.step_ratio * loop.h;
        loop.rejected = true;
        loop.last_step = false;
        return NewtonResult::TOO_SLOW;
      }
    }
    update_norm_prev = OrderedMax(update_norm, settings.unit_roundoff);
    const StageArrays& a = loop.arrays;
    AddUpdate(loop.n, a.Z1, a.Z2, a.Z3, a.F1, a.F2, a.F3);
    if (!(loop.conv_factor * update_norm > settings.newton_stop_factor)) return NewtonResult::CONVERGED;
  }
  return NewtonResult::FAILED;
}

// Newton diverged or ran out of iterations, or a factorisation was singular.
Entry Fail(Loop& loop) {
  if (loop.zero_pivot != 0) {
    loop.singular_count += 1;
    if (loop.singular_count >= MAX_SINGULAR_COUNT) return End(loop, RADAU_REPEATEDLY_SINGULAR);
  }
  loop.h = loop.h * FAILURE_FACTOR;
  loop.step_ratio = FAILURE_FACTOR;
  loop.rejected = true;
  loop.last_step = false;
  return RetryEntry(loop);
}

Entry Reject(Loop& loop) {
  loop.rejected = true;
  loop.last_step = false;
  if (loop.first_step) {
    loop.h = loop.h * FIRST_REJECTION_FACTOR;
    loop.step_ratio = FIRST_REJECTION_FACTOR;
  } else {
    loop.step_ratio = loop.h_new / loop.h;
    loop.h = loop.h_new;
  }
  if (loop.counters.accepted_count >= 1) loop.counters.rejected_count += 1;
  return RetryEntry(loop);
}

// The predictive controller uses the errors of two steps and can only lower the proposal.
void PredictStep(Loop& loop, double err, double step_divisor) {
  const RadauSettings& settings = loop.settings;
  if (loop.counters.accepted_count > 1) {
    double predicted_quot = (loop.prev_h_accepted / loop.h) *
                            std::pow(err * err / loop.prev_err_accepted, ERROR_EXPONENT) / settings.safety_factor;
    predicted_quot = OrderedMax(settings.quot_min, OrderedMin(settings.quot_max, predicted_quot));
    loop.h_new = loop.h / OrderedMax(step_divisor, predicted_quot);
  }
  loop.prev_h_accepted = loop.h;
  loop.prev_err_accepted = OrderedMax(MIN_PREV_ERR, err);
}

// Chooses the next step and where its attempt enters.
Entry ContinueAfterAccepted(Loop& loop) {
  const RadauSettings& settings = loop.settings;
  const double x_end = loop.problem.x_end;
  const bool keep_jacobian = loop.contraction <= settings.jacobian_reuse_limit;
  if ((loop.x + loop.h_new / settings.keep_step_low - x_end) * loop.step_sign >= 0.0) {
    loop.h = x_end - loop.x;
    loop.last_step = true;
  } else {
    const double step_change = loop.h_new / loop.h;
    loop.step_ratio = loop.h;
    if (keep_jacobian && step_change >= settings.keep_step_low && step_change <= settings.keep_step_high) {
      return Entry::STEP;
    }
    loop.h = loop.h_new;
  }
  loop.step_ratio = loop.h;
  return keep_jacobian ? Entry::FACTORISATION : Entry::JACOBIAN;
}

Entry Accept(Loop& loop, double err, double step_divisor) {
  loop.first_step = false;
  loop.counters.accepted_count += 1;
  if (loop.settings.predictive_control) PredictStep(loop, err, step_divisor);
  loop.x_old = loop.x;
  loop.h_old = loop.h;
  loop.x = loop.x_next;
  const StageArrays& a = loop.arrays;
  const std::int32_t n = loop.n;
  AdvanceState(n, a.Z1, a.Z2, a.Z3, loop.y, a.CONT + n, a.CONT + 2 * n, a.CONT + 3 * n);
  SetScale(loop);
  if (!ReportStep(loop, loop.counters.accepted_count + 1)) return End(loop, RADAU_STOPPED);
  loop.jacobian_fresh = false;
  if (loop.last_step) {
    loop.h = loop.h_opt;
    return End(loop, RADAU_DONE);
  }
  EvaluateRhs(loop, loop.x, loop.y, loop.arrays.Y0);
  loop.counters.rhs_calls += 1;
  loop.h_new = loop.step_sign * OrderedMin(std::abs(loop.h_new), loop.h_limit);
  loop.h_opt = OrderedMin(loop.h, loop.h_new);  // the signed minimum, backward too
  if (loop.rejected) loop.h_new = loop.step_sign * OrderedMin(std::abs(loop.h_new), std::abs(loop.h));
  loop.rejected = false;
  return ContinueAfterAccepted(loop);
}

// One attempt at a step, from the starting values on.
Entry TryStep(Loop& loop) {
  const RadauSettings& settings = loop.settings;
  loop.counters.step_count += 1;
  if (loop.counters.step_count > settings.max_steps) return End(loop, RADAU_TOO_MANY_STEPS);
  if (SMALL_STEP_FACTOR * std::abs(loop.h) <= std::abs(loop.x) * settings.unit_roundoff) {
    return End(loop, RADAU_STEP_TOO_SMALL);
  }
  ScaleIndexComponents(loop);
  loop.x_next = loop.x + loop.h;
  SetStartingValues(loop);
  switch (IterateNewton(loop)) {
    case NewtonResult::TOO_SLOW:
      return RetryEntry(loop);
    case NewtonResult::FAILED:
      return Fail(loop);
    case NewtonResult::CONVERGED:
      break;
  }
  double err = 0.0;
  EstimateError(loop.system, loop.arrays, loop.problem.rhs, loop.x, loop.y, loop.h, loop.first_step, loop.rejected,
                loop.counters.rhs_calls, err);
  const double adjusted_safety = OrderedMin(
      settings.safety_factor, loop.iteration_safety / (loop.newton_count + 2.0 * settings.max_newton_iterations));
  const double step_divisor =
      OrderedMax(settings.quot_min, OrderedMin(settings.quot_max, std::pow(err, ERROR_EXPONENT) / adjusted_safety));
  loop.h_new = loop.h / step_divisor;
  return err < 1.0 ? Accept(loop, err, step_divisor) : Reject(loop);
}

}  // namespace

std::int32_t RadauStepLoop(const RadauProblem& problem, const RadauSettings& settings, StageSystem& system,
                           const StageArrays& arrays, double& x, double* y, double& h, RadauCounters& counters) {
  Loop loop{problem, settings, system, arrays, x, y, h, counters};
  loop.n = system.n;
  Entry entry = Setup(loop);
  while (entry != Entry::END) {
    if (entry == Entry::JACOBIAN) ComputeJacobian(loop);
    if (entry != Entry::STEP && !Factorise(loop)) {
      entry = Fail(loop);
      continue;
    }
    entry = TryStep(loop);
  }
  return loop.idid;
}

}  // namespace vorlen
