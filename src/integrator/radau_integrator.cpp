// Entry of the three-stage Radau IIA integrator: reads and checks the parameters, transforms the tolerances, selects
// the matrix case, lays out the work arrays, and calls the step loop. A failed check sets a flag and reading continues,
// so that all slots are checked; only sizes that make the slots themselves unreadable end the call at once.
#include "integrator/radau_integrator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "integrator/ordered_minmax.h"
#include "integrator/radau_step_loop.h"
#include "integrator/stage_system.h"

namespace vorlen {

namespace {

constexpr std::int32_t PARAMETER_SLOTS = 20;  // of WORK and of IWORK
constexpr std::int32_t FIRST_COUNTER = 14;    // slot of IWORK

constexpr double DEFAULT_UNIT_ROUNDOFF = 1e-16;
constexpr double DEFAULT_SAFETY_FACTOR = 0.9;
constexpr double DEFAULT_JACOBIAN_REUSE_LIMIT = 0.001;
constexpr double DEFAULT_KEEP_STEP_LOW = 1.0;
constexpr double DEFAULT_KEEP_STEP_HIGH = 1.2;
constexpr double DEFAULT_QUOT_MAX = 5.0;
constexpr double DEFAULT_QUOT_MIN = 0.125;
constexpr std::int32_t DEFAULT_MAX_STEPS = 100000;
constexpr std::int32_t DEFAULT_MAX_NEWTON_ITERATIONS = 7;

constexpr double MIN_UNIT_ROUNDOFF = 1e-19;
constexpr double MIN_SAFETY_FACTOR = 0.001;
constexpr double MAX_NEWTON_STOP_FACTOR = 0.03;  // of the default
constexpr double MIN_TOLERANCE_ROUNDOFFS = 10.0;

// The error estimate is of a lower order than the solution. The tolerances are scaled for it, so that the error of the
// solution is near the tolerance requested.
constexpr double TOLERANCE_EXPONENT = 0.6666666666666666;
constexpr double TOLERANCE_FACTOR = 0.1;

double ValueOr(double value, double default_value) { return value == 0.0 ? default_value : value; }

std::int32_t ValueOr(std::int32_t value, std::int32_t default_value) { return value == 0 ? default_value : value; }

// False when a component is out of range; that component is left unchanged.
bool TransformTolerances(std::int32_t count, double unit_roundoff, double* rtol, double* atol) {
  bool ok = true;
  for (std::int32_t i = 0; i < count; ++i) {
    if (atol[i] <= 0.0 || rtol[i] <= MIN_TOLERANCE_ROUNDOFFS * unit_roundoff) {
      ok = false;
      continue;
    }
    const double quotient = atol[i] / rtol[i];
    rtol[i] = TOLERANCE_FACTOR * std::pow(rtol[i], TOLERANCE_EXPONENT);
    atol[i] = rtol[i] * quotient;
  }
  return ok;
}

void RestoreTolerances(std::int32_t count, double* rtol, double* atol) {
  for (std::int32_t i = 0; i < count; ++i) {
    const double quotient = atol[i] / rtol[i];
    rtol[i] = std::pow(10.0 * rtol[i], 1.0 / TOLERANCE_EXPONENT);
    atol[i] = rtol[i] * quotient;
  }
}

// Reads the integer parameters; false when one is out of range.
bool ReadCounts(const std::int32_t* IWORK, RadauSettings& settings, StageSystem& system) {
  bool ok = true;
  const std::int32_t n = system.n;
  settings.max_steps = ValueOr(IWORK[1], DEFAULT_MAX_STEPS);
  if (settings.max_steps <= 0) ok = false;
  settings.max_newton_iterations = ValueOr(IWORK[2], DEFAULT_MAX_NEWTON_ITERATIONS);
  if (settings.max_newton_iterations <= 0) ok = false;
  settings.zero_start = IWORK[3] != 0;

  settings.index1_count = ValueOr(IWORK[4], n);
  settings.index2_count = IWORK[5];
  settings.index3_count = IWORK[6];
  if (settings.index1_count < 0 || settings.index2_count < 0 || settings.index3_count < 0) ok = false;
  if (std::int64_t{settings.index1_count} + settings.index2_count + settings.index3_count != n) ok = false;
  settings.predictive_control = IWORK[7] <= 1;

  system.block_count = IWORK[8];
  system.block_stride = system.block_count == 0 ? n : ValueOr(IWORK[9], system.block_count);
  const bool blocks_fit = system.block_count >= 0 && system.block_stride >= 0 &&
                          std::int64_t{system.block_count} + system.block_stride <= n &&
                          system.block_count % system.block_stride == 0;
  if (!blocks_fit) {
    ok = false;
    system.block_count = 0;
    system.block_stride = n;
  }
  return ok;
}

// Reads the real parameters; false when one is out of range. tol_ref is the transformed rtol(1).
bool ReadReals(const double* WORK, double tol_ref, double interval, RadauSettings& settings) {
  bool ok = true;
  const double unit_roundoff = settings.unit_roundoff;
  settings.safety_factor = ValueOr(WORK[1], DEFAULT_SAFETY_FACTOR);
  if (settings.safety_factor <= MIN_SAFETY_FACTOR || settings.safety_factor >= 1.0) ok = false;
  settings.jacobian_reuse_limit = ValueOr(WORK[2], DEFAULT_JACOBIAN_REUSE_LIMIT);
  if (settings.jacobian_reuse_limit >= 1.0) ok = false;
  if (WORK[3] == 0.0) {
    settings.newton_stop_factor = OrderedMax(MIN_TOLERANCE_ROUNDOFFS * unit_roundoff / tol_ref,
                                             OrderedMin(MAX_NEWTON_STOP_FACTOR, std::pow(tol_ref, 0.5)));
  } else {
    settings.newton_stop_factor = WORK[3];
    if (settings.newton_stop_factor <= unit_roundoff / tol_ref) ok = false;
  }
  settings.keep_step_low = ValueOr(WORK[4], DEFAULT_KEEP_STEP_LOW);
  if (settings.keep_step_low > 1.0) ok = false;
  settings.keep_step_high = ValueOr(WORK[5], DEFAULT_KEEP_STEP_HIGH);
  if (settings.keep_step_high < 1.0) ok = false;
  settings.max_step = ValueOr(WORK[6], interval);
  settings.quot_max = WORK[7] == 0.0 ? DEFAULT_QUOT_MAX : 1.0 / WORK[7];
  if (settings.quot_max < 1.0) ok = false;
  settings.quot_min = WORK[8] == 0.0 ? DEFAULT_QUOT_MIN : 1.0 / WORK[8];
  if (settings.quot_min > 1.0) ok = false;
  return ok;
}

// Row counts of the matrices, in 64 bits because the bandwidths have not been checked.
struct MatrixRows {
  std::int64_t jac = 0;     // rows of FJAC
  std::int64_t factor = 0;  // rows of E1, E2R and E2I
  std::int64_t mass = 0;    // rows of FMAS; 0 with an identity mass
};

// Sets the bandwidths, the rows and the matrix case; false when they do not fit together.
bool SelectCase(bool has_mass, bool hessenberg_switch, StageSystem& system, MatrixRows& rows) {
  bool ok = true;
  const std::int32_t n_reduced = system.n_reduced;
  const bool banded_jacobian = system.mljac < n_reduced;
  if (banded_jacobian) {
    rows.jac = std::int64_t{system.mljac} + system.mujac + 1;
    rows.factor = system.mljac + rows.jac;
    if (system.mljac < 0 || system.mujac < 0) ok = false;
    if (std::int64_t{system.block_count} + system.block_stride < system.n) ok = false;
  } else {
    system.mljac = n_reduced;
    system.mujac = n_reduced;
    rows.jac = n_reduced;
    rows.factor = n_reduced;
  }

  if (has_mass) {
    if (system.mlmas != n_reduced) {
      rows.mass = std::int64_t{system.mlmas} + system.mumas + 1;
      system.matrix_case = banded_jacobian ? 4 : 3;
    } else {
      system.mumas = n_reduced;
      rows.mass = n_reduced;
      system.matrix_case = 5;
    }
    if (system.mlmas < 0 || system.mumas < 0) ok = false;
    if (system.mlmas > system.mljac || system.mumas > system.mujac) ok = false;
  } else {
    system.matrix_case = banded_jacobian ? 2 : 1;
    if (system.matrix_case == 1 && system.n > 2 && hessenberg_switch) system.matrix_case = 7;
    if (system.matrix_case == 7 && system.block_count > 0) ok = false;
  }
  return ok;
}

// Lays out the storage after the parameter slots; false when an array is too small, then nothing is set.
bool LayOutStorage(const MatrixRows& rows, double* WORK, std::int32_t lwork, std::int32_t* IWORK, std::int32_t liwork,
                   StageSystem& system, StageArrays& arrays) {
  const std::int64_t n = system.n;
  const std::int64_t n_reduced = system.n_reduced;
  const std::int64_t limit = lwork;
  // Row counts above lwork cannot fit and would overflow the products.
  if (std::max({rows.jac, rows.factor, rows.mass}) > limit) return false;
  const std::int64_t last_real =
      PARAMETER_SLOTS + 12 * n + n * rows.jac + n_reduced * rows.mass + 3 * n_reduced * rows.factor;
  const std::int64_t last_integer = PARAMETER_SLOTS + 3 * n_reduced;
  if (last_real > limit || last_integer > liwork) return false;

  double* next = WORK + PARAMETER_SLOTS;
  const auto take = [&next](std::int64_t count) {
    double* first = next;
    next += count;
    return first;
  };
  arrays.Z1 = take(n);
  arrays.Z2 = take(n);
  arrays.Z3 = take(n);
  arrays.Y0 = take(n);
  arrays.SCAL = take(n);
  arrays.F1 = take(n);
  arrays.F2 = take(n);
  arrays.F3 = take(n);
  arrays.CONT = take(4 * n);
  system.FJAC = take(n * rows.jac);
  system.FMAS = take(n_reduced * rows.mass);
  system.E1 = take(n_reduced * rows.factor);
  system.E2R = take(n_reduced * rows.factor);
  system.E2I = take(n_reduced * rows.factor);
  system.jac_rows = static_cast<std::int32_t>(rows.jac);
  system.factor_rows = static_cast<std::int32_t>(rows.factor);
  system.mass_rows = static_cast<std::int32_t>(std::max<std::int64_t>(1, rows.mass));
  system.IP_real = IWORK + PARAMETER_SLOTS;
  system.IP_complex = system.IP_real + n_reduced;
  system.IPHES = system.IP_complex + n_reduced;
  return true;
}

}  // namespace

void RadauIntegrator(std::int32_t n, RadauRhsCallback rhs_callback, double& x, double* y, double x_end, double& h,
                     double* rtol, double* atol, std::int32_t itol, RadauJacobianCallback jacobian_callback,
                     std::int32_t ijac, std::int32_t& mljac, std::int32_t& mujac, RadauMassCallback mass_callback,
                     std::int32_t imas, std::int32_t mlmas, std::int32_t& mumas, RadauStepCallback step_callback,
                     std::int32_t iout, double* WORK, std::int32_t lwork, std::int32_t* IWORK, std::int32_t liwork,
                     void* real_context, void* model_context, std::int32_t& idid) {
  idid = RADAU_REFUSED;
  if (n <= 0 || lwork < PARAMETER_SLOTS || liwork < PARAMETER_SLOTS) return;

  bool ok = true;
  RadauCounters counters;
  RadauSettings settings;
  StageSystem system;
  StageArrays arrays;
  system.n = n;

  settings.unit_roundoff = ValueOr(WORK[0], DEFAULT_UNIT_ROUNDOFF);
  if (settings.unit_roundoff <= MIN_UNIT_ROUNDOFF || settings.unit_roundoff >= 1.0) ok = false;
  const std::int32_t tolerance_count = itol == 0 ? 1 : n;
  if (!TransformTolerances(tolerance_count, settings.unit_roundoff, rtol, atol)) ok = false;
  if (!ReadCounts(IWORK, settings, system)) ok = false;
  if (!ReadReals(WORK, rtol[0], x_end - x, settings)) ok = false;

  const bool has_mass = imas != 0;
  if (rhs_callback == nullptr || (ijac != 0 && jacobian_callback == nullptr) ||
      (has_mass && mass_callback == nullptr) || (iout != 0 && step_callback == nullptr)) {
    ok = false;
  }

  system.n_reduced = n - system.block_count;
  system.mljac = mljac;
  system.mujac = mujac;
  system.mlmas = has_mass ? mlmas : 0;
  system.mumas = has_mass ? mumas : 0;
  MatrixRows rows;
  if (!SelectCase(has_mass, IWORK[0] != 0, system, rows)) ok = false;
  mljac = system.mljac;
  mujac = system.mujac;
  if (has_mass) mumas = system.mumas;
  if (!ok || !LayOutStorage(rows, WORK, lwork, IWORK, liwork, system, arrays)) return;

  const RadauProblem problem{{rhs_callback, real_context, model_context},
                             ijac != 0 ? jacobian_callback : nullptr,
                             has_mass ? mass_callback : nullptr,
                             iout != 0 ? step_callback : nullptr,
                             x_end,
                             rtol,
                             atol,
                             itol};
  idid = RadauStepLoop(problem, settings, system, arrays, x, y, h, counters);

  std::int32_t* slot = IWORK + FIRST_COUNTER - 1;
  for (std::int32_t count : {counters.rhs_calls, counters.jacobian_count, counters.step_count, counters.accepted_count,
                             counters.rejected_count, counters.factorisation_count, counters.solve_count}) {
    *slot++ = count;
  }
  RestoreTolerances(tolerance_count, rtol, atol);
}

}  // namespace vorlen
