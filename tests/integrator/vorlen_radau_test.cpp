// The public header vorlen_radau.h. Runs are compared bit by bit with the same run through the slots of
// RadauIntegrator, which the other tests check against published and independent values; what the header adds (results
// for bad records, workspace, counters, the check of the state, dense output from a step) has its own tests.
#include "integrator/vorlen_radau.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "integrator/integrator_call.h"
#include "integrator/reference_problems.h"
#include "integrator/stiff_problems.h"

namespace vorlen::test {

namespace {

using radau::Result;

constexpr double QUIET_NAN = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr std::int32_t INT_MAX_VALUE = std::numeric_limits<std::int32_t>::max();

// ---- The same run through both interfaces --------------------------------------------------------------------------

IntegratorCall& CallOf(void* user) { return *static_cast<IntegratorCall*>(user); }

radau::Shape ShapeOf(std::int32_t lower, std::int32_t upper, std::int32_t order) {
  return lower >= order ? radau::Full() : radau::Band(lower, upper);
}

// A problem and options that say what the slots of a call say.
struct Translated {
  radau::Problem problem;
  radau::Options options;
};

Translated Translate(IntegratorCall& call) {
  Translated result;
  radau::Problem& problem = result.problem;
  problem.n = call.n;
  problem.user = &call;
  problem.rhs = [](std::int32_t n, double x, const double* y, double* f, void* user) {
    const IntegratorCall& c = CallOf(user);
    c.rhs_callback(n, x, y, f, c.real_context, c.model_context);
  };
  if (call.ijac != 0) {
    problem.jacobian = [](std::int32_t n, double x, const double* y, double* A, std::int32_t rows, void* user) {
      const IntegratorCall& c = CallOf(user);
      c.jacobian_callback(n, x, y, A, rows, c.real_context, c.model_context);
    };
  }
  if (call.imas != 0) {
    problem.mass = [](std::int32_t order, double* A, std::int32_t rows, void* user) {
      const IntegratorCall& c = CallOf(user);
      c.mass_callback(order, A, rows, c.real_context, c.model_context);
    };
  }

  radau::Options& options = result.options;
  const std::int32_t order = call.n - call.Iwork(9);
  options.relative_tolerance = call.rtol[0];
  options.absolute_tolerance = call.atol[0];
  if (call.itol != 0) {
    options.relative_tolerances = call.rtol.data();
    options.absolute_tolerances = call.atol.data();
  }
  options.jacobian_shape = ShapeOf(call.mljac, call.mujac, order);
  options.mass_shape = ShapeOf(call.mlmas, call.mumas, order);
  options.unit_roundoff = call.Work(1);
  options.safety_factor = call.Work(2);
  options.jacobian_reuse_limit = call.Work(3);
  options.newton_stop_factor = call.Work(4);
  options.keep_step_low = call.Work(5);
  options.keep_step_high = call.Work(6);
  options.max_step = call.Work(7);
  options.min_step_factor = call.Work(8);
  options.max_step_factor = call.Work(9);
  options.hessenberg = call.Iwork(1) != 0;
  options.max_steps = call.Iwork(2);
  options.max_newton_iterations = call.Iwork(3);
  options.zero_start = call.Iwork(4) != 0;
  options.index1_count = call.Iwork(5);
  options.index2_count = call.Iwork(6);
  options.index3_count = call.Iwork(7);
  options.controller = call.Iwork(8) <= 1 ? radau::Controller::PREDICTIVE : radau::Controller::CLASSICAL;
  options.block_count = call.Iwork(9);
  options.block_stride = call.Iwork(10);
  return result;
}

void ExpectSameRun(IntegratorCall slots, std::int32_t expected_idid = 1) {
  IntegratorCall records = slots;
  slots.SizeAndRun();
  ASSERT_EQ(slots.idid, expected_idid);

  const Translated translated = Translate(records);
  radau::State state{records.x, records.y.data(), records.h, {}};
  const Result result = radau::Integrate(translated.problem, translated.options, records.x_end, state);
  EXPECT_EQ(static_cast<std::int32_t>(result), expected_idid) << radau::Describe(result);
  EXPECT_EQ(state.x, slots.x);
  EXPECT_EQ(state.step, slots.h);
  EXPECT_EQ(records.y, slots.y);
  const Counters counters = slots.ReadCounters();
  EXPECT_EQ(state.counters.rhs_calls, counters.rhs_calls);
  EXPECT_EQ(state.counters.jacobian_count, counters.jacobian_count);
  EXPECT_EQ(state.counters.step_count, counters.step_count);
  EXPECT_EQ(state.counters.accepted_count, counters.accepted_count);
  EXPECT_EQ(state.counters.rejected_count, counters.rejected_count);
  EXPECT_EQ(state.counters.factorisation_count, counters.factorisation_count);
  EXPECT_EQ(state.counters.solve_count, counters.solve_count);
}

IntegratorCall Hires() {
  IntegratorCall call(HiresRhs, {1, 0, 0, 0, 0, 0, 0, 0.0057}, 321.8122);
  call.SetTolerance(1e-6, 1e-9);
  return call;
}

IntegratorCall BandProblem() {
  IntegratorCall call(BandRhs, {0.12, 0.22, 0.3, 0.36, 0.4, 0.42, 0.42, 0.4, 0.36, 0.3, 0.22, 0.12}, 0.5);
  call.SetTolerance(1e-7, 1e-7);
  call.mljac = 2;
  call.mujac = 1;
  return call;
}

IntegratorCall Chain(std::int32_t bandwidth) {
  IntegratorCall call(Chain3Rhs, {1.0, -0.5, 0.25, 2.0, 0.0, 0.5, -1.0, 0.0, 0.0, 0.0, 0.0, 0.0}, 3.0);
  call.SetTolerance(1e-8, 1e-8);
  call.h = 1e-3;
  call.Iwork(9) = 8;
  call.Iwork(10) = 4;
  call.mljac = call.mujac = bandwidth;
  return call;
}

void SetMass(IntegratorCall& call, RadauMassCallback mass, std::int32_t bandwidth) {
  call.imas = 1;
  call.mass_callback = mass;
  call.mlmas = call.mumas = bandwidth;
}

// ---- Problems in the terms of the header ---------------------------------------------------------------------------

// The circle y = (cos x, -sin x).
void CircleRhs(std::int32_t, double, const double* y, double* f, void*) {
  f[0] = y[1];
  f[1] = -y[0];
}

radau::Problem Circle() {
  radau::Problem problem;
  problem.n = 2;
  problem.rhs = CircleRhs;
  return problem;
}

// M y' = A y with the solution y_i = exp(-(i + 1) x): A = -M diag(1, 2, .., 5). M is 2 on its diagonal, 1 on the first
// subdiagonal and 0.5 on the second one, so the matrices are bands that have a different width on each side.
constexpr std::int32_t LOWER_N = 5;

double LowerMassEntry(std::int32_t i, std::int32_t j) {
  if (i == j) return 2.0;
  if (i == j + 1) return 1.0;
  return i == j + 2 ? 0.5 : 0.0;
}

void LowerRhs(std::int32_t n, double, const double* y, double* f, void*) {
  for (std::int32_t i = 0; i < n; ++i) {
    f[i] = 0.0;
    for (std::int32_t j = 0; j < n; ++j) {
      f[i] -= LowerMassEntry(i, j) * (j + 1) * y[j];
    }
  }
}

// Writes the nonzero entries alone, to the places that the header draws; user holds the shapes.
struct LowerShapes {
  radau::Shape jacobian;
  radau::Shape mass;
};

void WriteLower(const radau::Shape& shape, std::int32_t order, double* A, std::int32_t rows, bool negative_rates) {
  for (std::int32_t j = 0; j < order; ++j) {
    for (std::int32_t i = j; i < std::min(order, j + 3); ++i) {
      const double value = negative_rates ? -LowerMassEntry(i, j) * (j + 1) : LowerMassEntry(i, j);
      if (shape.form == radau::Shape::FULL) {
        A[i + j * rows] = value;
      } else {
        A[(i - j + shape.upper) + j * rows] = value;
      }
    }
  }
}

void LowerJacobian(std::int32_t n, double, const double*, double* A, std::int32_t rows, void* user) {
  WriteLower(static_cast<LowerShapes*>(user)->jacobian, n, A, rows, true);
}

void LowerMass(std::int32_t order, double* A, std::int32_t rows, void* user) {
  WriteLower(static_cast<LowerShapes*>(user)->mass, order, A, rows, false);
}

// An algebraic equation that the start violates: y0' = -y0, 0 = y1 - cos x with y1(0) = 2.
radau::Problem InconsistentStart() {
  radau::Problem problem;
  problem.n = 2;
  problem.rhs = [](std::int32_t, double x, const double* y, double* f, void*) {
    f[0] = -y[0];
    f[1] = -(y[1] - std::cos(x));
  };
  problem.mass = [](std::int32_t, double* A, std::int32_t, void*) { A[0] = 1.0; };
  return problem;
}

}  // namespace

// ---- Runs ----------------------------------------------------------------------------------------------------------

TEST(VorlenRadau, TheDefaultsAreThoseOfTheSlots) { ExpectSameRun(Hires()); }

TEST(VorlenRadau, EveryMatrixFormGivesTheBitsOfTheSlots) {
  ExpectSameRun(BandProblem());
  IntegratorCall hessenberg = Hires();
  hessenberg.Iwork(1) = 1;
  ExpectSameRun(hessenberg);
  IntegratorCall diagonal_mass = Hires();
  SetMass(diagonal_mass, DiagonalIdentityMass, 0);
  ExpectSameRun(diagonal_mass);
  IntegratorCall full_mass = Hires();
  SetMass(full_mass, FullIdentityMass, 8);
  ExpectSameRun(full_mass);
  IntegratorCall band_and_mass = BandProblem();
  SetMass(band_and_mass, DiagonalIdentityMass, 0);
  ExpectSameRun(band_and_mass);
}

TEST(VorlenRadau, EveryBlockFormGivesTheBitsOfTheSlots) {
  for (const std::int32_t bandwidth : {1, 12}) {
    SCOPED_TRACE(bandwidth);
    ExpectSameRun(Chain(bandwidth));
    IntegratorCall band_mass = Chain(bandwidth);
    SetMass(band_mass, ReferenceMass("chain3_mass_band"), 1);
    ExpectSameRun(band_mass);
  }
  IntegratorCall full_mass = Chain(12);
  SetMass(full_mass, ReferenceMass("chain3_mass_full"), 4);
  ExpectSameRun(full_mass);
  ExpectSameRun(SpringChain().call);
}

TEST(VorlenRadau, SystemsOfIndexTwoAndThreeGiveTheBitsOfTheSlots) {
  for (const char* id : {"water", "caraxis", "transamp"}) {
    SCOPED_TRACE(id);
    IntegratorCall call = LoadStiffProblem(id).call;
    call.SetTolerance(1e-5, 1e-7);
    call.h = 1e-6;
    ExpectSameRun(call);
  }
}

TEST(VorlenRadau, EveryOptionReachesItsSlot) {
  const std::array<double, 9> reals = {1e-15, 0.8, 0.01, 0.01, 0.9, 1.5, 10.0, 0.3, 5.0};
  for (std::int32_t slot = 1; slot <= 9; ++slot) {
    SCOPED_TRACE("WORK(" + std::to_string(slot) + ")");
    IntegratorCall call = Hires();
    call.Work(slot) = reals[static_cast<std::size_t>(slot - 1)];
    ExpectSameRun(call);
  }
  IntegratorCall few_steps = Hires();
  few_steps.Iwork(2) = 10;
  ExpectSameRun(few_steps, -2);
  for (const auto& [slot, value] : {std::pair{3, 10}, {4, 1}, {8, 2}}) {
    SCOPED_TRACE("IWORK(" + std::to_string(slot) + ")");
    IntegratorCall call = Hires();
    call.Iwork(slot) = value;
    ExpectSameRun(call);
  }
}

TEST(VorlenRadau, TolerancesPerComponentGiveTheBitsOfTheSlotsAndStayUnchanged) {
  IntegratorCall call = Hires();
  call.itol = 1;
  call.rtol = {1e-6, 1e-5, 1e-7, 1e-6, 1e-6, 1e-4, 1e-6, 1e-8};
  call.atol = {1e-9, 1e-8, 1e-9, 1e-7, 1e-9, 1e-9, 1e-6, 1e-9};
  const std::vector<double> rtol = call.rtol, atol = call.atol;
  ExpectSameRun(call);

  const Translated translated = Translate(call);
  radau::State state{call.x, call.y.data(), call.h, {}};
  EXPECT_EQ(radau::Integrate(translated.problem, translated.options, call.x_end, state), Result::REACHED_END);
  EXPECT_EQ(call.rtol, rtol);
  EXPECT_EQ(call.atol, atol);
}

TEST(VorlenRadau, AnArrayForOneKindOfToleranceGoesWithANumberForTheOther) {
  const std::vector<double> tolerances(8, 1e-7);
  const auto solve = [&](bool arrays) {
    IntegratorCall call = Hires();
    Translated t = Translate(call);
    t.options.relative_tolerance = 1e-6;
    t.options.absolute_tolerance = arrays ? 123.0 : 1e-7;
    if (arrays) t.options.absolute_tolerances = tolerances.data();
    radau::State state{call.x, call.y.data(), call.h, {}};
    EXPECT_EQ(radau::Integrate(t.problem, t.options, call.x_end, state), Result::REACHED_END);
    return call.y;
  };
  EXPECT_EQ(solve(true), solve(false));
}

TEST(VorlenRadau, MatricesAreStoredAsTheHeaderDraws) {
  // Every shape gets the same entries, and all reach the closed form.
  const radau::Shape band = radau::Band(2, 0);
  for (const LowerShapes& shapes : {LowerShapes{radau::Full(), radau::Full()}, LowerShapes{radau::Full(), band},
                                    LowerShapes{band, band}, LowerShapes{radau::Band(3, 1), radau::Band(2, 1)}}) {
    for (const bool analytic : {false, true}) {
      LowerShapes user = shapes;
      radau::Problem problem;
      problem.n = LOWER_N;
      problem.rhs = LowerRhs;
      if (analytic) problem.jacobian = LowerJacobian;
      problem.mass = LowerMass;
      problem.user = &user;
      radau::Options options;
      options.relative_tolerance = options.absolute_tolerance = 1e-9;
      options.jacobian_shape = shapes.jacobian;
      options.mass_shape = shapes.mass;
      std::array<double, LOWER_N> y = {1.0, 1.0, 1.0, 1.0, 1.0};
      radau::State state{0.0, y.data(), 1e-4, {}};
      ASSERT_EQ(radau::Integrate(problem, options, 1.0, state), Result::REACHED_END);
      for (std::int32_t i = 0; i < LOWER_N; ++i) {
        EXPECT_NEAR(y[static_cast<std::size_t>(i)], std::exp(-(i + 1.0)), 1e-8);
      }
      // One evaluation per column of a full matrix, one per diagonal of a band.
      const radau::Shape& jacobian = shapes.jacobian;
      const std::int32_t per_jacobian =
          jacobian.form == radau::Shape::FULL ? LOWER_N : jacobian.lower + jacobian.upper + 1;
      EXPECT_EQ(state.counters.jacobian_rhs_calls, analytic ? 0 : per_jacobian * state.counters.jacobian_count);
      EXPECT_GE(state.counters.jacobian_count, 1);
    }
  }
}

TEST(VorlenRadau, TheCountersCountTheCallsOfTheRightHandSide) {
  std::int32_t calls = 0;
  radau::Problem problem;
  problem.n = 2;
  problem.user = &calls;
  problem.rhs = [](std::int32_t, double, const double* y, double* f, void* user) {
    *static_cast<std::int32_t*>(user) += 1;
    f[0] = y[1];
    f[1] = -y[0];
  };
  double y[2] = {1.0, 0.0};
  radau::State state{0.0, y, 1e-3, {}};
  ASSERT_EQ(radau::Integrate(problem, {}, 10.0, state), Result::REACHED_END);
  EXPECT_EQ(state.counters.rhs_calls + state.counters.jacobian_rhs_calls, calls);
  EXPECT_EQ(state.counters.jacobian_rhs_calls, 2 * state.counters.jacobian_count);
}

TEST(VorlenRadau, TheLimitOfStepsIsTheNumberOfStepsAttempted) {
  radau::Options options;
  options.max_steps = 10;
  double y[2] = {1.0, 0.0};
  radau::State state{0.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(Circle(), options, 100.0, state), Result::TOO_MANY_STEPS);
  EXPECT_EQ(state.counters.step_count, 11);  // the eleventh was counted, not computed
  EXPECT_GT(state.x, 0.0);
  // From there another run reaches the end.
  options.max_steps = 0;
  EXPECT_EQ(radau::Integrate(Circle(), options, 100.0, state), Result::REACHED_END);
  EXPECT_EQ(state.x, 100.0);
}

TEST(VorlenRadau, ItIntegratesBackward) {
  double y[2] = {std::cos(2.0), -std::sin(2.0)};
  radau::State state{2.0, y, 1e-3, {}};
  radau::Options options;
  options.relative_tolerance = options.absolute_tolerance = 1e-8;
  EXPECT_EQ(radau::Integrate(Circle(), options, 0.0, state), Result::REACHED_END);
  EXPECT_NEAR(y[0], 1.0, 1e-6);
  EXPECT_NEAR(y[1], 0.0, 1e-6);
}

TEST(VorlenRadau, AnIntervalWithoutLengthIsAStepTooSmall) {
  double y[2] = {1.0, 0.0};
  radau::State state{1.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, state), Result::STEP_TOO_SMALL);
}

TEST(VorlenRadau, AMatrixThatIsAlwaysSingularEndsTheRun) {
  radau::Problem problem;
  problem.n = 1;
  problem.rhs = [](std::int32_t, double, const double*, double* f, void*) { f[0] = 1.0; };
  problem.mass = [](std::int32_t, double*, std::int32_t, void*) {};  // 0 y' = 1
  double y[1] = {1.0};
  radau::State state{0.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(problem, {}, 1.0, state), Result::REPEATEDLY_SINGULAR);
  EXPECT_EQ(y[0], 1.0);
}

// ---- Steps ---------------------------------------------------------------------------------------------------------

TEST(VorlenRadau, TheStepCallbackSeesEveryStepAndStopsTheRun) {
  struct Log {
    std::vector<radau::Step> steps;
  } log;
  radau::Problem problem = Circle();
  problem.user = &log;
  problem.step = [](const radau::Step& step, void* user) {
    auto& steps = static_cast<Log*>(user)->steps;
    steps.push_back(step);
    return steps.size() == 4 ? radau::Next::STOP : radau::Next::CONTINUE;
  };
  double y[2] = {1.0, 0.0};
  radau::State state{0.5, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(problem, {}, 100.0, state), Result::STOPPED);
  ASSERT_EQ(log.steps.size(), 4U);
  EXPECT_EQ(log.steps[0].x, 0.5);
  EXPECT_EQ(log.steps[0].x_old, 0.5);
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(log.steps[k].index, static_cast<std::int32_t>(k));
    EXPECT_EQ(log.steps[k].n, 2);
    if (k == 0) continue;
    EXPECT_EQ(log.steps[k].x_old, log.steps[k - 1].x);
    EXPECT_GT(log.steps[k].x, log.steps[k].x_old);
  }
  EXPECT_EQ(state.x, log.steps[3].x);
  EXPECT_EQ(state.counters.accepted_count, 3);
}

TEST(VorlenRadau, TheStepCallbackMayStopAtTheStart) {
  radau::Problem problem = Circle();
  problem.step = [](const radau::Step&, void*) { return radau::Next::STOP; };
  double y[2] = {1.0, 0.0};
  radau::State state{0.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(problem, {}, 1.0, state), Result::STOPPED);
  EXPECT_EQ(state.x, 0.0);
  EXPECT_EQ(state.counters.rhs_calls, 0);
}

TEST(VorlenRadau, DenseOutputFollowsTheSolutionInsideEachStep) {
  struct Worst {
    double inside = 0.0;
    double at_end = 0.0;
    double at_start = 0.0;  // of the run
  } worst;
  radau::Problem problem = Circle();
  problem.user = &worst;
  problem.step = [](const radau::Step& step, void* user) {
    auto& w = *static_cast<Worst*>(user);
    for (std::int32_t i = 0; i < 2; ++i) {
      if (step.index == 0) {
        w.at_start = std::max(w.at_start, std::abs(radau::DenseValue(step, i, 7.0) - step.y[i]));
        continue;
      }
      w.at_end = std::max(w.at_end, std::abs(radau::DenseValue(step, i, step.x) - step.y[i]));
      for (const double part : {0.0, 0.3, 0.8}) {
        const double x = step.x_old + part * (step.x - step.x_old);
        const double exact = i == 0 ? std::cos(x) : -std::sin(x);
        w.inside = std::max(w.inside, std::abs(radau::DenseValue(step, i, x) - exact));
      }
    }
    return radau::Next::CONTINUE;
  };
  double y[2] = {1.0, 0.0};
  radau::State state{0.0, y, 1e-3, {}};
  radau::Options options;
  options.relative_tolerance = options.absolute_tolerance = 1e-10;
  ASSERT_EQ(radau::Integrate(problem, options, 6.0, state), Result::REACHED_END);
  EXPECT_EQ(worst.at_start, 0.0);
  EXPECT_EQ(worst.at_end, 0.0);
  EXPECT_LT(worst.inside, 1e-7);
  EXPECT_GT(worst.inside, 0.0);
}

// ---- States that are not finite ------------------------------------------------------------------------------------

TEST(VorlenRadau, ARightHandSideThatIsNaNEndsTheRunAtThatStep) {
  radau::Problem problem;
  problem.n = 1;
  problem.rhs = [](std::int32_t, double x, const double* y, double* f, void*) { f[0] = x > 0.5 ? QUIET_NAN : -y[0]; };
  double y[1] = {1.0};
  radau::State state{0.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(problem, {}, 1.0, state), Result::NOT_FINITE);
  EXPECT_GT(state.x, 0.5);
  EXPECT_LT(state.x, 1.0);
  EXPECT_TRUE(std::isnan(y[0]));
}

TEST(VorlenRadau, AStartThatIsNotFiniteIsReportedBeforeTheRightHandSideIsCalled) {
  for (const double value : {QUIET_NAN, INFINITE, -INFINITE}) {
    double y[2] = {1.0, value};
    radau::State state{0.0, y, 1e-3, {}};
    EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, state), Result::NOT_FINITE);
    EXPECT_EQ(state.counters.rhs_calls, 0);
  }
}

TEST(VorlenRadau, AnInconsistentStartAtZeroThatCannotMeetTheToleranceIsReported) {
  // The error test fails however short the step is. At x = 0 no step is too small, until 1 / step overflows.
  radau::Options options;
  options.relative_tolerance = options.absolute_tolerance = 1e-13;
  double y[2] = {1.0, 2.0};
  radau::State state{0.0, y, 1e-13, {}};
  EXPECT_EQ(radau::Integrate(InconsistentStart(), options, 1.0, state), Result::NOT_FINITE);
  EXPECT_LT(state.x, 1e-300);
  // The slots report success for the same run.
  IntegratorCall call(
      [](std::int32_t, double x, const double* u, double* f, void*, void*) {
        f[0] = -u[0];
        f[1] = -(u[1] - std::cos(x));
      },
      {1.0, 2.0}, 1.0);
  call.SetTolerance(1e-13, 1e-13);
  call.h = 1e-13;
  SetMass(
      call,
      [](std::int32_t, double* FMAS, std::int32_t rows, void*, void*) {
        FMAS[0] = 1.0;
        FMAS[rows] = 0.0;
      },
      0);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_TRUE(std::isnan(call.y[0]) && std::isnan(call.y[1]));
  // Away from 0 the step becomes too small.
  double y_at_one[2] = {1.0, 2.0};
  radau::State at_one{1.0, y_at_one, 1e-13, {}};
  EXPECT_EQ(radau::Integrate(InconsistentStart(), options, 2.0, at_one), Result::STEP_TOO_SMALL);
  // And a consistent start meets the same tolerance.
  double consistent[2] = {1.0, 1.0};
  radau::State fine{0.0, consistent, 1e-13, {}};
  EXPECT_EQ(radau::Integrate(InconsistentStart(), options, 1.0, fine), Result::REACHED_END);
  EXPECT_NEAR(consistent[1], std::cos(1.0), 1e-9);
}

// ---- Bad records ---------------------------------------------------------------------------------------------------

TEST(VorlenRadau, BadRecordsGiveTheirResultAndLeaveTheStateAlone) {
  using Change = std::function<void(radau::Problem&, radau::Options&)>;
  struct Case {
    const char* what;
    Result expected;
    Change change;
  };
  static const double bad_tolerances[12] = {1e-6, 1e-6, 1e-6, 1e-6, 1e-6, 1e-6, 1e-6, 0.0, 1e-6, 1e-6, 1e-6, 1e-6};
  const radau::MassCallback mass = [](std::int32_t, double*, std::int32_t, void*) {};
  const Case cases[] = {
      {"n = 0", Result::BAD_PROBLEM, [](auto& p, auto&) { p.n = 0; }},
      {"n < 0", Result::BAD_PROBLEM, [](auto& p, auto&) { p.n = -3; }},
      {"no rhs", Result::BAD_PROBLEM, [](auto& p, auto&) { p.rhs = nullptr; }},
      {"rtol 0", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.relative_tolerance = 0.0; }},
      {"rtol at rounding", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.relative_tolerance = 1e-15; }},
      {"rtol NaN", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.relative_tolerance = QUIET_NAN; }},
      {"atol 0", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.absolute_tolerance = 0.0; }},
      {"atol infinite", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.absolute_tolerance = INFINITE; }},
      {"rtol array", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.relative_tolerances = bad_tolerances; }},
      {"atol array", Result::BAD_TOLERANCE, [](auto&, auto& o) { o.absolute_tolerances = bad_tolerances; }},
      {"max_step < 0", Result::BAD_OPTION, [](auto&, auto& o) { o.max_step = -1.0; }},
      {"max_step NaN", Result::BAD_OPTION, [](auto&, auto& o) { o.max_step = QUIET_NAN; }},
      {"max_steps", Result::BAD_OPTION, [](auto&, auto& o) { o.max_steps = -1; }},
      {"Newton iterations", Result::BAD_OPTION, [](auto&, auto& o) { o.max_newton_iterations = -1; }},
      {"safety_factor", Result::BAD_OPTION, [](auto&, auto& o) { o.safety_factor = 1.0; }},
      {"safety_factor NaN", Result::BAD_OPTION, [](auto&, auto& o) { o.safety_factor = QUIET_NAN; }},
      {"min_step_factor", Result::BAD_OPTION, [](auto&, auto& o) { o.min_step_factor = 1.1; }},
      {"max_step_factor", Result::BAD_OPTION, [](auto&, auto& o) { o.max_step_factor = 0.9; }},
      {"max_step_factor < 0", Result::BAD_OPTION, [](auto&, auto& o) { o.max_step_factor = -8.0; }},
      {"keep_step_low", Result::BAD_OPTION, [](auto&, auto& o) { o.keep_step_low = 1.1; }},
      {"keep_step_high", Result::BAD_OPTION, [](auto&, auto& o) { o.keep_step_high = 0.9; }},
      {"newton_stop_factor", Result::BAD_OPTION, [](auto&, auto& o) { o.newton_stop_factor = 1e-16; }},
      {"jacobian_reuse_limit", Result::BAD_OPTION, [](auto&, auto& o) { o.jacobian_reuse_limit = 1.0; }},
      {"jacobian_reuse_limit", Result::BAD_OPTION, [](auto&, auto& o) { o.jacobian_reuse_limit = -INFINITE; }},
      {"unit_roundoff", Result::BAD_OPTION, [](auto&, auto& o) { o.unit_roundoff = 1e-19; }},
      {"controller", Result::BAD_OPTION, [](auto&, auto& o) { o.controller = static_cast<radau::Controller>(2); }},
      {"lower < 0", Result::BAD_MATRIX, [](auto&, auto& o) { o.jacobian_shape = radau::Band(-1, 0); }},
      {"upper < 0", Result::BAD_MATRIX, [](auto&, auto& o) { o.jacobian_shape = radau::Band(0, -1); }},
      {"lower = n", Result::BAD_MATRIX, [](auto&, auto& o) { o.jacobian_shape = radau::Band(12, 0); }},
      {"upper = n", Result::BAD_MATRIX, [](auto&, auto& o) { o.jacobian_shape = radau::Band(0, 12); }},
      {"form", Result::BAD_MATRIX, [](auto&, auto& o) { o.jacobian_shape.form = static_cast<radau::Shape::Form>(2); }},
      {"mass wider than the Jacobian", Result::BAD_MATRIX,
       [=](auto& p, auto& o) {
         p.mass = mass;
         o.jacobian_shape = radau::Band(1, 1);
         o.mass_shape = radau::Band(0, 2);
       }},
      {"full mass, band Jacobian", Result::BAD_MATRIX,
       [=](auto& p, auto& o) {
         p.mass = mass;
         o.jacobian_shape = radau::Band(1, 1);
         o.mass_shape = radau::Full();
       }},
      {"mass band below 0", Result::BAD_MATRIX,
       [=](auto& p, auto& o) {
         p.mass = mass;
         o.mass_shape = radau::Band(-1, 0);
       }},
      {"Hessenberg form of a band", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.hessenberg = true;
         o.jacobian_shape = radau::Band(1, 1);
       }},
      {"Hessenberg form with a mass", Result::BAD_MATRIX,
       [=](auto& p, auto& o) {
         o.hessenberg = true;
         p.mass = mass;
       }},
      {"Hessenberg form with blocks", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.hessenberg = true;
         o.block_count = 6;
       }},
      {"block_count < 0", Result::BAD_MATRIX, [](auto&, auto& o) { o.block_count = -4; }},
      {"block_count = n", Result::BAD_MATRIX, [](auto&, auto& o) { o.block_count = 12; }},
      {"block_stride not a divisor", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.block_count = 8;
         o.block_stride = 3;
       }},
      {"block_stride < 0", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.block_count = 8;
         o.block_stride = -4;
       }},
      {"blocks beyond 32 bits", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.block_count = INT_MAX_VALUE;
         o.block_stride = INT_MAX_VALUE;
       }},
      {"band with equations between blocks and end", Result::BAD_MATRIX,
       [](auto&, auto& o) {
         o.block_count = 4;
         o.jacobian_shape = radau::Band(1, 1);
       }},
      {"index counts too many", Result::BAD_INDEX_COUNTS, [](auto&, auto& o) { o.index2_count = 1; }},
      {"index counts too few", Result::BAD_INDEX_COUNTS, [](auto&, auto& o) { o.index1_count = 11; }},
      {"index count < 0", Result::BAD_INDEX_COUNTS,
       [](auto&, auto& o) {
         o.index1_count = 14;
         o.index3_count = -2;
       }},
      {"index counts beyond 32 bits", Result::BAD_INDEX_COUNTS,
       [](auto&, auto& o) { o.index1_count = o.index2_count = o.index3_count = INT_MAX_VALUE; }},
      {"too large", Result::BAD_WORKSPACE, [](auto& p, auto&) { p.n = 30000; }},
      {"n beyond all sizes", Result::BAD_WORKSPACE, [](auto& p, auto&) { p.n = INT_MAX_VALUE; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    static std::int32_t calls;
    calls = 0;
    radau::Problem problem;
    problem.n = 12;
    problem.rhs = [](std::int32_t, double, const double*, double*, void*) { ++calls; };
    radau::Options options;
    c.change(problem, options);
    std::array<double, 12> y{};
    radau::State state{0.5, y.data(), 0.25, {}};
    state.counters.rhs_calls = 99;
    EXPECT_EQ(radau::Integrate(problem, options, 1.0, state), c.expected);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(state.x, 0.5);
    EXPECT_EQ(state.step, 0.25);
    EXPECT_EQ(state.counters.rhs_calls, 0);
  }
}

TEST(VorlenRadau, ABadStateGivesItsResult) {
  double y[2] = {1.0, 0.0};
  radau::State no_y{0.0, nullptr, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, no_y), Result::BAD_PROBLEM);
  for (const double bad : {QUIET_NAN, INFINITE}) {
    radau::State bad_x{bad, y, 1e-3, {}};
    EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, bad_x), Result::BAD_OPTION);
    radau::State bad_step{0.0, y, bad, {}};
    EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, bad_step), Result::BAD_OPTION);
    radau::State good{0.0, y, 1e-3, {}};
    EXPECT_EQ(radau::Integrate(Circle(), {}, bad, good), Result::BAD_OPTION);
  }
}

TEST(VorlenRadau, EveryResultHasItsOwnDescription) {
  std::vector<std::string> seen;
  for (std::int32_t value = -11; value <= 2; ++value) {
    if (value == 0) continue;
    const std::string text = radau::Describe(static_cast<Result>(value));
    EXPECT_NE(text, "unknown result") << value;
    for (const std::string& other : seen) EXPECT_NE(text, other);
    seen.push_back(text);
  }
  for (const std::int32_t value : {0, 3, -12}) {
    EXPECT_STREQ(radau::Describe(static_cast<Result>(value)), "unknown result");
  }
}

// ---- Workspace -----------------------------------------------------------------------------------------------------

TEST(VorlenRadau, TheWorkspaceIsAsLongAsRequiredAndNothingBeyondItIsWritten) {
  IntegratorCall calls[] = {Hires(), BandProblem(), Chain(12), Chain(1), Hires()};
  calls[4].itol = 1;
  calls[4].rtol.assign(8, 1e-6);
  calls[4].atol.assign(8, 1e-9);
  for (IntegratorCall& call : calls) {
    const Translated t = Translate(call);
    const radau::WorkspaceSize size = radau::RequiredWorkspace(t.problem, t.options);
    call.SizeArrays();
    EXPECT_EQ(size.reals, call.lwork + (call.itol != 0 ? 2 * call.n : 0));
    EXPECT_EQ(size.integers, call.liwork);

    constexpr double GUARD = 4711.0;
    constexpr std::int32_t INTEGER_GUARD = 4711;
    std::vector<double> reals(static_cast<std::size_t>(size.reals) + 1, GUARD);
    std::vector<std::int32_t> integers(static_cast<std::size_t>(size.integers) + 1, INTEGER_GUARD);
    const std::vector<double> start = call.y;
    const auto run = [&](std::int64_t real_count, std::int64_t integer_count) {
      call.y = start;
      radau::State state{call.x, call.y.data(), call.h, {}};
      return radau::Integrate(t.problem, t.options, call.x_end, state,
                              {reals.data(), real_count, integers.data(), integer_count});
    };
    EXPECT_EQ(run(size.reals - 1, size.integers), Result::BAD_WORKSPACE);
    EXPECT_EQ(run(size.reals, size.integers - 1), Result::BAD_WORKSPACE);
    EXPECT_EQ(reals.front(), GUARD);
    EXPECT_EQ(run(size.reals, size.integers), Result::REACHED_END);
    EXPECT_EQ(reals.back(), GUARD);
    EXPECT_EQ(integers.back(), INTEGER_GUARD);
    const std::vector<double> first = call.y;
    EXPECT_EQ(run(size.reals, size.integers), Result::REACHED_END);
    EXPECT_EQ(call.y, first);
  }
}

TEST(VorlenRadau, ANullWorkspaceIsReported) {
  double y[2] = {1.0, 0.0};
  double reals[200];
  std::int32_t integers[100];
  radau::State state{0.0, y, 1e-3, {}};
  EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, state, {nullptr, 200, integers, 100}), Result::BAD_WORKSPACE);
  EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, state, {reals, 200, nullptr, 100}), Result::BAD_WORKSPACE);
  EXPECT_EQ(radau::Integrate(Circle(), {}, 1.0, state, {reals, 200, integers, 100}), Result::REACHED_END);
}

TEST(VorlenRadau, BadRecordsRequireNoWorkspace) {
  radau::Options options;
  options.jacobian_shape = radau::Band(-1, 0);
  EXPECT_EQ(radau::RequiredWorkspace(Circle(), options).reals, 0);
  EXPECT_EQ(radau::RequiredWorkspace(Circle(), options).integers, 0);
}

}  // namespace vorlen::test
