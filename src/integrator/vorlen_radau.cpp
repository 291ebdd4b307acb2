// The public interface of the integrator: checks the records, fills the parameter slots and the storage of
// RadauIntegrator, and passes the callbacks on. The numbers are those of RadauIntegrator, bit for bit.
//
//   checks of the records  ->  sizes  ->  callbacks  ->  parameter slots  ->  Integrate
#include "integrator/vorlen_radau.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>

#include "integrator/radau_integrator.h"

namespace vorlen::radau {

namespace {

constexpr std::int64_t PARAMETER_SLOTS = 20;  // of WORK and of IWORK
constexpr std::int64_t MAX_COUNT = std::numeric_limits<std::int32_t>::max();

constexpr double DEFAULT_UNIT_ROUNDOFF = 1e-16;
constexpr double MIN_TOLERANCE_ROUNDOFFS = 10.0;

// Order of the matrices to be solved: the equations after the block structure.
std::int32_t OrderOf(const Problem& problem, const Options& options) { return problem.n - options.block_count; }

bool IsFull(const Shape& shape) { return shape.form == Shape::FULL; }

bool HasToleranceArrays(const Options& options) {
  return options.relative_tolerances != nullptr || options.absolute_tolerances != nullptr;
}

// ---- Checks --------------------------------------------------------------------------------------------------------

bool RealsAreValid(const Options& options) {
  for (const double value :
       {options.max_step, options.safety_factor, options.min_step_factor, options.max_step_factor,
        options.keep_step_low, options.keep_step_high, options.newton_stop_factor, options.unit_roundoff}) {
    if (!std::isfinite(value) || value < 0.0) return false;
  }
  return std::isfinite(options.jacobian_reuse_limit);
}

bool TolerancesAreValid(const Problem& problem, const Options& options) {
  const double roundoff = options.unit_roundoff == 0.0 ? DEFAULT_UNIT_ROUNDOFF : options.unit_roundoff;
  const std::int32_t count = HasToleranceArrays(options) ? problem.n : 1;
  for (std::int32_t i = 0; i < count; ++i) {
    const double relative =
        options.relative_tolerances != nullptr ? options.relative_tolerances[i] : options.relative_tolerance;
    const double absolute =
        options.absolute_tolerances != nullptr ? options.absolute_tolerances[i] : options.absolute_tolerance;
    if (!std::isfinite(relative) || relative <= MIN_TOLERANCE_ROUNDOFFS * roundoff) return false;
    if (!std::isfinite(absolute) || absolute <= 0.0) return false;
  }
  return true;
}

bool ShapeIsValid(const Shape& shape, std::int32_t order) {
  if (IsFull(shape)) return true;
  return shape.form == Shape::BAND && shape.lower >= 0 && shape.lower < order && shape.upper >= 0 &&
         shape.upper < order;
}

bool BlocksAreValid(const Problem& problem, const Options& options) {
  const std::int32_t count = options.block_count;
  if (count == 0) return true;
  if (count < 0 || options.block_stride < 0) return false;
  const std::int32_t stride = options.block_stride == 0 ? count : options.block_stride;
  const std::int64_t end = std::int64_t{count} + stride;
  if (end > problem.n || count % stride != 0) return false;
  return IsFull(options.jacobian_shape) || end == problem.n;
}

bool MatricesAreValid(const Problem& problem, const Options& options) {
  if (!BlocksAreValid(problem, options)) return false;
  const std::int32_t order = OrderOf(problem, options);
  const Shape& jacobian = options.jacobian_shape;
  const Shape& mass = options.mass_shape;
  if (!ShapeIsValid(jacobian, order)) return false;
  if (options.hessenberg && (!IsFull(jacobian) || problem.mass != nullptr || options.block_count != 0)) return false;
  if (problem.mass == nullptr) return true;
  if (!ShapeIsValid(mass, order)) return false;
  if (IsFull(jacobian)) return true;
  return !IsFull(mass) && mass.lower <= jacobian.lower && mass.upper <= jacobian.upper;
}

bool IndexCountsAreValid(const Problem& problem, const Options& options) {
  const std::int32_t index1 = options.index1_count == 0 ? problem.n : options.index1_count;
  if (index1 < 0 || options.index2_count < 0 || options.index3_count < 0) return false;
  return std::int64_t{index1} + options.index2_count + options.index3_count == problem.n;
}

// The first fault of the records, REACHED_END without one. What is left is checked by RadauIntegrator.
Result Check(const Problem& problem, const Options& options) {
  if (problem.n <= 0 || problem.rhs == nullptr) return Result::BAD_PROBLEM;
  if (!RealsAreValid(options)) return Result::BAD_OPTION;
  if (options.controller != Controller::PREDICTIVE && options.controller != Controller::CLASSICAL) {
    return Result::BAD_OPTION;
  }
  if (!TolerancesAreValid(problem, options)) return Result::BAD_TOLERANCE;
  if (!MatricesAreValid(problem, options)) return Result::BAD_MATRIX;
  if (!IndexCountsAreValid(problem, options)) return Result::BAD_INDEX_COUNTS;
  return Result::REACHED_END;
}

// ---- Sizes ---------------------------------------------------------------------------------------------------------

// Length of WORK for records without fault, without the tolerance arrays; above MAX_COUNT for one that cannot be had.
std::int64_t SlotReals(const Problem& problem, const Options& options) {
  const std::int64_t n = problem.n;
  if (12 * n > MAX_COUNT) return 12 * n;  // beyond this the products below could overflow
  const std::int64_t order = OrderOf(problem, options);
  const Shape& jacobian = options.jacobian_shape;
  const std::int64_t jacobian_rows = IsFull(jacobian) ? order : std::int64_t{jacobian.lower} + jacobian.upper + 1;
  const std::int64_t factor_rows = IsFull(jacobian) ? order : jacobian_rows + jacobian.lower;
  std::int64_t mass_rows = 0;
  if (problem.mass != nullptr) {
    const Shape& mass = options.mass_shape;
    mass_rows = IsFull(mass) ? order : std::int64_t{mass.lower} + mass.upper + 1;
  }
  return PARAMETER_SLOTS + 12 * n + n * jacobian_rows + order * mass_rows + 3 * order * factor_rows;
}

std::int64_t SlotIntegers(const Problem& problem, const Options& options) {
  return PARAMETER_SLOTS + 3 * std::int64_t{OrderOf(problem, options)};
}

// ---- Callbacks -----------------------------------------------------------------------------------------------------

// The model_context of the callbacks below.
struct Call {
  const Problem& problem;
  std::int64_t rhs_calls = 0;
  bool not_finite = false;
};

void CallRhs(std::int32_t n, double x, const double* y, double* f, void*, void* context) {
  Call& call = *static_cast<Call*>(context);
  call.rhs_calls += 1;
  call.problem.rhs(n, x, y, f, call.problem.user);
}

void CallJacobian(std::int32_t n, double x, const double* y, double* FJAC, std::int32_t rows, void*, void* context) {
  const Problem& problem = static_cast<Call*>(context)->problem;
  std::fill_n(FJAC, std::int64_t{n} * rows, 0.0);
  problem.jacobian(n, x, y, FJAC, rows, problem.user);
}

void CallMass(std::int32_t order, double* FMAS, std::int32_t rows, void*, void* context) {
  const Problem& problem = static_cast<Call*>(context)->problem;
  std::fill_n(FMAS, std::int64_t{order} * rows, 0.0);
  problem.mass(order, FMAS, rows, problem.user);
}

void CallStep(std::int32_t accepted_index, double x_old, double x, const double* y, const double* CONT,
              std::int32_t /*cont_size*/, std::int32_t n, void*, void* context, std::int32_t& stop_flag) {
  Call& call = *static_cast<Call*>(context);
  const Problem& problem = call.problem;
  if (!std::all_of(y, y + n, [](double value) { return std::isfinite(value); })) {
    call.not_finite = true;
    stop_flag = -1;
    return;
  }
  if (problem.step == nullptr) return;
  const Step step = {accepted_index - 1, x_old, x, n, y, CONT};
  if (problem.step(step, problem.user) == Next::STOP) stop_flag = -1;
}

// ---- Parameter slots -----------------------------------------------------------------------------------------------

void SetSlots(const Options& options, double* WORK, std::int32_t* IWORK) {
  std::fill_n(WORK, PARAMETER_SLOTS, 0.0);
  WORK[0] = options.unit_roundoff;
  WORK[1] = options.safety_factor;
  WORK[2] = options.jacobian_reuse_limit;
  WORK[3] = options.newton_stop_factor;
  WORK[4] = options.keep_step_low;
  WORK[5] = options.keep_step_high;
  WORK[6] = options.max_step;
  WORK[7] = options.min_step_factor;
  WORK[8] = options.max_step_factor;

  std::fill_n(IWORK, PARAMETER_SLOTS, 0);
  IWORK[0] = options.hessenberg ? 1 : 0;
  IWORK[1] = options.max_steps;
  IWORK[2] = options.max_newton_iterations;
  IWORK[3] = options.zero_start ? 1 : 0;
  IWORK[4] = options.index1_count;
  IWORK[5] = options.index2_count;
  IWORK[6] = options.index3_count;
  IWORK[7] = options.controller == Controller::PREDICTIVE ? 1 : 2;
  IWORK[8] = options.block_count;
  IWORK[9] = options.block_stride;
}

Counters ReadCounters(const std::int32_t* IWORK, std::int64_t all_rhs_calls) {
  Counters counters;
  counters.rhs_calls = IWORK[13];
  counters.jacobian_rhs_calls = static_cast<std::int32_t>(all_rhs_calls - IWORK[13]);
  counters.jacobian_count = IWORK[14];
  counters.step_count = IWORK[15];
  counters.accepted_count = IWORK[16];
  counters.rejected_count = IWORK[17];
  counters.factorisation_count = IWORK[18];
  counters.solve_count = IWORK[19];
  return counters;
}

void CopyTolerances(const double* values, double value, std::int32_t count, double* copy) {
  if (values != nullptr) {
    std::copy_n(values, count, copy);
  } else {
    std::fill_n(copy, count, value);
  }
}

}  // namespace

const char* Describe(Result result) {
  switch (result) {
    case Result::REACHED_END:
      return "reached the end";
    case Result::STOPPED:
      return "stopped by the step callback";
    case Result::BAD_OPTION:
      return "option out of range";
    case Result::TOO_MANY_STEPS:
      return "too many steps";
    case Result::STEP_TOO_SMALL:
      return "step too small";
    case Result::REPEATEDLY_SINGULAR:
      return "matrix repeatedly singular";
    case Result::NOT_FINITE:
      return "state is NaN or infinite";
    case Result::BAD_PROBLEM:
      return "incomplete problem";
    case Result::BAD_TOLERANCE:
      return "tolerance out of range";
    case Result::BAD_MATRIX:
      return "matrix shapes do not fit together";
    case Result::BAD_INDEX_COUNTS:
      return "index counts do not add up to n";
    case Result::BAD_WORKSPACE:
      return "workspace too small, or problem too large";
    case Result::OUT_OF_MEMORY:
      return "out of memory";
  }
  return "unknown result";
}

WorkspaceSize RequiredWorkspace(const Problem& problem, const Options& options) {
  WorkspaceSize size;
  if (Check(problem, options) != Result::REACHED_END) return size;
  const std::int64_t slot_reals = SlotReals(problem, options);
  if (slot_reals > MAX_COUNT) return size;
  size.reals = slot_reals + (HasToleranceArrays(options) ? 2 * std::int64_t{problem.n} : 0);
  size.integers = SlotIntegers(problem, options);
  return size;
}

Result Integrate(const Problem& problem, const Options& options, double x_end, State& state,
                 const Workspace& workspace) {
  state.counters = Counters{};
  const Result fault = Check(problem, options);
  if (fault != Result::REACHED_END) return fault;
  if (state.y == nullptr) return Result::BAD_PROBLEM;
  if (!std::isfinite(state.x) || !std::isfinite(x_end) || !std::isfinite(state.step)) return Result::BAD_OPTION;
  const WorkspaceSize size = RequiredWorkspace(problem, options);
  if (size.reals == 0 || workspace.reals == nullptr || workspace.integers == nullptr ||
      workspace.real_count < size.reals || workspace.integer_count < size.integers) {
    return Result::BAD_WORKSPACE;
  }

  const std::int32_t n = problem.n;
  const std::int32_t order = OrderOf(problem, options);
  const auto lwork = static_cast<std::int32_t>(SlotReals(problem, options));
  const auto liwork = static_cast<std::int32_t>(size.integers);
  double* WORK = workspace.reals;
  std::int32_t* IWORK = workspace.integers;
  SetSlots(options, WORK, IWORK);

  // RadauIntegrator overwrites the tolerances while it runs.
  double scalar_tolerances[2] = {options.relative_tolerance, options.absolute_tolerance};
  double* rtol = scalar_tolerances;
  double* atol = scalar_tolerances + 1;
  if (HasToleranceArrays(options)) {
    rtol = WORK + lwork;
    atol = rtol + n;
    CopyTolerances(options.relative_tolerances, options.relative_tolerance, n, rtol);
    CopyTolerances(options.absolute_tolerances, options.absolute_tolerance, n, atol);
  }

  const Shape& jacobian = options.jacobian_shape;
  const Shape& mass = options.mass_shape;
  std::int32_t mljac = IsFull(jacobian) ? order : jacobian.lower;
  std::int32_t mujac = IsFull(jacobian) ? order : jacobian.upper;
  const std::int32_t mlmas = IsFull(mass) ? order : mass.lower;
  std::int32_t mumas = IsFull(mass) ? order : mass.upper;

  Call call{problem};
  std::int32_t idid = 0;
  RadauIntegrator(n, CallRhs, state.x, state.y, x_end, state.step, rtol, atol, HasToleranceArrays(options) ? 1 : 0,
                  CallJacobian, problem.jacobian != nullptr ? 1 : 0, mljac, mujac, CallMass,
                  problem.mass != nullptr ? 1 : 0, mlmas, mumas, CallStep, /*iout=*/1, WORK, lwork, IWORK, liwork,
                  /*real_context=*/nullptr, &call, idid);
  if (idid == RADAU_REFUSED) return Result::BAD_OPTION;
  state.counters = ReadCounters(IWORK, call.rhs_calls);
  return call.not_finite ? Result::NOT_FINITE : static_cast<Result>(idid);
}

Result Integrate(const Problem& problem, const Options& options, double x_end, State& state) {
  const WorkspaceSize size = RequiredWorkspace(problem, options);
  const std::unique_ptr<double[]> reals(new (std::nothrow) double[static_cast<std::size_t>(size.reals)]);
  const std::unique_ptr<std::int32_t[]> integers(new (std::nothrow)
                                                     std::int32_t[static_cast<std::size_t>(size.integers)]);
  if (reals == nullptr || integers == nullptr) {
    state.counters = Counters{};
    return Result::OUT_OF_MEMORY;
  }
  return Integrate(problem, options, x_end, state, {reals.get(), size.reals, integers.get(), size.integers});
}

double DenseValue(const Step& step, std::int32_t i, double x) {
  return step.index == 0 ? step.y[i] : RadauDenseValue(i + 1, x, step.dense_data, 4 * step.n);
}

}  // namespace vorlen::radau
