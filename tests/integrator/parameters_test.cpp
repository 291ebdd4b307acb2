// The parameter slots: the default given explicitly changes no bit, another value takes effect, a value out of range is
// rejected before any callback runs. Then tolerances, counters and result codes.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "integrator/integrator_call.h"
#include "integrator/probe.h"
#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

constexpr std::int32_t INT_MAX_VALUE = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t INT_MIN_VALUE = std::numeric_limits<std::int32_t>::min();

using Change = std::function<void(IntegratorCall&)>;

IntegratorCall Hires() {
  IntegratorCall call(HiresRhs, {1, 0, 0, 0, 0, 0, 0, 0.0057}, 321.8122);
  call.SetTolerance(1e-6, 1e-9);
  return call;
}

IntegratorCall Growth() {
  IntegratorCall call(GrowthRhs,
                      {1e-10, 1e-10, 1e-11, 4e-09, 1e-10, 0.0, 0.3659782869802987, 0.5592001867925176,
                       0.07482152622718363, 1.2815532179804954e-10},
                      600.0);
  call.SetTolerance(1e-10, 1e-14);
  call.imas = 1;
  call.mass_callback = ReferenceMass("growth_mass");
  call.Work(7) = 10.0;
  call.Iwork(5) = 6;
  call.Iwork(6) = 4;
  return call;
}

// Two components with a large constant step change, the first step of which is rejected.
IntegratorCall Oscillator() {
  IntegratorCall call(OscillatorRhs, {1.0, 0.0}, 10.0);
  call.h = 1.0;
  return call;
}

IntegratorCall Chain() {
  IntegratorCall call(Chain3Rhs, {1.0, -0.5, 0.25, 2.0, 0.0, 0.5, -1.0, 0.0, 0.0, 0.0, 0.0, 0.0}, 3.0);
  call.SetTolerance(1e-8, 1e-8);
  call.h = 1e-3;
  call.Iwork(9) = 8;
  call.Iwork(10) = 4;
  return call;
}

IntegratorCall RunWith(IntegratorCall call, const Change& change) {
  change(call);
  call.SizeAndRun();
  return call;
}

Change NoChange() {
  return [](IntegratorCall&) {};
}

Change SetWork(std::int32_t slot, double value) {
  return [=](IntegratorCall& call) { call.Work(slot) = value; };
}

Change SetIwork(std::int32_t slot, std::int32_t value) {
  return [=](IntegratorCall& call) { call.Iwork(slot) = value; };
}

void ExpectSameRun(const IntegratorCall& a, const IntegratorCall& b) {
  EXPECT_EQ(a.idid, b.idid);
  EXPECT_EQ(a.x, b.x);
  EXPECT_EQ(a.h, b.h);
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.ReadCounters(), b.ReadCounters());
}

// The arguments must be rejected: idid -1, no callback, x, y, h and the slots of the counters as they were.
void ExpectRejected(IntegratorCall call, const std::string& what, const Change& change) {
  SCOPED_TRACE(what);
  Probe probe;
  Attach(probe, call);
  for (std::int32_t slot = 11; slot <= 20; ++slot) {
    call.Iwork(slot) = 1000 + slot;
  }
  call.SizeArrays();  // before the change, so that absurd values do not size anything
  change(call);
  const IntegratorCall before = call;
  call.Run();
  EXPECT_EQ(call.idid, -1);
  EXPECT_TRUE(probe.rhs_x.empty());
  EXPECT_EQ(probe.jacobian_calls, 0);
  EXPECT_EQ(probe.mass_calls, 0);
  EXPECT_TRUE(probe.steps.empty());
  EXPECT_EQ(call.x, before.x);
  EXPECT_EQ(call.h, before.h);
  EXPECT_EQ(call.y, before.y);
  EXPECT_EQ(call.ReadCounters(), before.ReadCounters());
}

double TransformedTolerance(double rtol) { return 0.1 * std::pow(rtol, 0.6666666666666666); }

constexpr double DRIVER_LIKE_RTOL = 1e-10;

}  // namespace

TEST(Parameters, TheDefaultOfEveryRealSlotGivenExplicitlyChangesNoBit) {
  for (const IntegratorCall& problem : {Hires(), Oscillator()}) {
    const double tol = TransformedTolerance(problem.rtol[0]);
    const double stop = std::max(10.0 * 1e-16 / tol, std::min(0.03, std::pow(tol, 0.5)));
    const double defaults[] = {1e-16, 0.9, 0.001, stop, 1.0, 1.2, problem.x_end - problem.x, 0.2, 8.0};
    const IntegratorCall plain = RunWith(problem, NoChange());
    ASSERT_EQ(plain.idid, 1);
    for (std::int32_t slot = 1; slot <= 9; ++slot) {
      SCOPED_TRACE("WORK(" + std::to_string(slot) + ")");
      ExpectSameRun(RunWith(problem, SetWork(slot, defaults[slot - 1])), plain);
    }
  }
}

TEST(Parameters, TheDefaultOfEveryIntegerSlotGivenExplicitlyChangesNoBit) {
  const std::int32_t defaults[] = {0, 100000, 7, 0, 8, 0, 0, 1, 0, 8};
  const IntegratorCall plain = RunWith(Hires(), NoChange());
  for (std::int32_t slot = 1; slot <= 10; ++slot) {
    SCOPED_TRACE("IWORK(" + std::to_string(slot) + ")");
    ExpectSameRun(RunWith(Hires(), SetIwork(slot, defaults[slot - 1])), plain);
  }
}

TEST(Parameters, TheDefaultStopFactorIsThatOfTheWorkedExample) {
  // For rtol 1e-10 the transformed tolerance is 2.154434690031886e-08 and the factor 0.00014677992676220703.
  EXPECT_EQ(TransformedTolerance(DRIVER_LIKE_RTOL), 2.154434690031886e-08);
  ExpectSameRun(RunWith(Growth(), SetWork(4, 0.00014677992676220703)), RunWith(Growth(), NoChange()));
}

TEST(Parameters, SlotsThatAreNotReadHaveNoInfluence) {
  const IntegratorCall plain = RunWith(Hires(), NoChange());
  ExpectSameRun(RunWith(Hires(),
                        [](IntegratorCall& call) {
                          for (std::int32_t slot = 10; slot <= 20; ++slot) {
                            call.Work(slot) = std::numeric_limits<double>::quiet_NaN();
                          }
                          for (std::int32_t slot = 11; slot <= 20; ++slot) {
                            call.Iwork(slot) = -slot;
                          }
                        }),
                plain);
}

TEST(Parameters, TheContentsOfTheStorageHaveNoInfluence) {
  for (const IntegratorCall& problem : {Hires(), Growth(), Chain()}) {
    IntegratorCall zeros = problem;
    zeros.SizeArrays();
    std::fill(zeros.WORK.begin() + 20, zeros.WORK.end(), 0.0);
    std::fill(zeros.IWORK.begin() + 20, zeros.IWORK.end(), 0);
    zeros.Run();
    ExpectSameRun(zeros, RunWith(problem, NoChange()));
  }
}

TEST(Parameters, UnitRoundoffSetsTheStepOfTheNumericalJacobian) {
  // delta = sqrt(unit_roundoff * max(1e-5, abs(y))): seen by the right-hand side.
  static double seen_y = 0.0;
  static std::int32_t calls = 0;
  const auto rhs = [](std::int32_t, double, const double* y, double* f, void*, void*) {
    if (++calls == 2) seen_y = y[0];
    f[0] = -y[0];
  };
  for (const double unit_roundoff : {1e-16, 4e-12}) {
    for (const double y_start : {3.0, 0.0}) {
      calls = 0;
      IntegratorCall call(rhs, {y_start}, 1.0);
      call.Work(1) = unit_roundoff;
      call.SizeAndRun();
      EXPECT_EQ(seen_y, y_start + std::sqrt(unit_roundoff * std::max(1e-5, y_start)));
    }
  }
}

TEST(Parameters, ASmallerSafetyFactorTakesMoreSteps) {
  EXPECT_GT(RunWith(Hires(), SetWork(2, 0.4)).ReadCounters().step_count,
            RunWith(Hires(), NoChange()).ReadCounters().step_count + 20);
}

TEST(Parameters, ANegativeReuseLimitComputesAJacobianAfterEachAcceptedStep) {
  const Counters counters = RunWith(Hires(), SetWork(3, -0.001)).ReadCounters();
  EXPECT_EQ(counters.jacobian_count, counters.accepted_count);
}

TEST(Parameters, AHighReuseLimitKeepsTheJacobianLonger) {
  EXPECT_LT(RunWith(Hires(), SetWork(3, 0.5)).ReadCounters().jacobian_count,
            RunWith(Hires(), NoChange()).ReadCounters().jacobian_count / 2);
}

TEST(Parameters, ALargerStopFactorIteratesLess) {
  const Counters loose = RunWith(Hires(), SetWork(4, 0.3)).ReadCounters();
  const Counters plain = RunWith(Hires(), NoChange()).ReadCounters();
  EXPECT_LT(loose.solve_count * plain.step_count, plain.solve_count * loose.step_count);
}

TEST(Parameters, AWiderRangeOfKeptStepsFactorisesLess) {
  const std::int32_t plain = RunWith(Hires(), SetWork(3, 0.1)).ReadCounters().factorisation_count;
  const auto with_reuse = [](std::int32_t slot, double value) {
    return [=](IntegratorCall& call) {
      call.Work(3) = 0.1;
      call.Work(slot) = value;
    };
  };
  EXPECT_LT(RunWith(Hires(), with_reuse(5, 0.5)).ReadCounters().factorisation_count, plain);
  EXPECT_LT(RunWith(Hires(), with_reuse(6, 4.0)).ReadCounters().factorisation_count, plain);
  EXPECT_GT(RunWith(Hires(), with_reuse(6, 1.0)).ReadCounters().factorisation_count, plain);
}

TEST(Parameters, NoStepIsLongerThanTheLargestGivenAndItsSignIsIgnored) {
  for (const double max_step : {2.0, -2.0}) {
    IntegratorCall call = Hires();
    Probe probe;
    Attach(probe, call);
    call.Work(7) = max_step;
    call.SizeAndRun();
    EXPECT_EQ(call.idid, 1);
    double longest = 0.0;
    for (const StepRecord& step : probe.steps) {
      longest = std::max(longest, step.x - step.x_old);
    }
    EXPECT_NEAR(longest, 2.0, 1e-12);
  }
}

TEST(Parameters, TheStepShrinksByNoMoreThanTheLargestDivisor) {
  // Rejected second tries of the oscillator: with the divisor limited to 1.25 the proposal is at least 0.8 of the step.
  IntegratorCall call = Oscillator();
  call.h = 0.01;
  Probe probe;
  Attach(probe, call);
  call.Work(8) = 0.8;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_NE(call.ReadCounters(), RunWith(Oscillator(), NoChange()).ReadCounters());
  for (std::size_t k = 2; k + 1 < probe.steps.size(); ++k) {
    const double before = probe.steps[k - 1].x - probe.steps[k - 1].x_old;
    const double now = probe.steps[k].x - probe.steps[k].x_old;
    EXPECT_GT(now / before, std::pow(0.8, 6)) << k;  // several rejections may follow each other
  }
}

TEST(Parameters, TheStepGrowsByNoMoreThanTheSmallestDivisorAllows) {
  const auto largest_growth = [](double work9) {
    IntegratorCall call = Hires();
    Probe probe;
    Attach(probe, call);
    call.Work(9) = work9;
    call.SizeAndRun();
    EXPECT_EQ(call.idid, 1);
    double growth = 0.0;
    for (std::size_t k = 2; k < probe.steps.size(); ++k) {
      growth = std::max(growth,
                        (probe.steps[k].x - probe.steps[k].x_old) / (probe.steps[k - 1].x - probe.steps[k - 1].x_old));
    }
    return growth;
  };
  EXPECT_NEAR(largest_growth(1.5), 1.5, 1e-6);
  EXPECT_GT(largest_growth(0.0), 2.0);
}

TEST(Parameters, TheHessenbergSwitchNeedsThreeComponentsAFullJacobianAndNoMass) {
  const IntegratorCall plain = RunWith(Hires(), NoChange());
  const IntegratorCall reduced = RunWith(Hires(), SetIwork(1, 1));
  EXPECT_NE(reduced.y, plain.y);  // another elimination, other rounding
  for (std::size_t i = 0; i < plain.y.size(); ++i) {
    EXPECT_NEAR(reduced.y[i], plain.y[i], 1e-9 * std::abs(plain.y[i]));
  }
  ExpectSameRun(RunWith(Oscillator(), SetIwork(1, 1)), RunWith(Oscillator(), NoChange()));
  ExpectSameRun(RunWith(Growth(), SetIwork(1, 1)), RunWith(Growth(), NoChange()));
}

TEST(Parameters, MoreStepsThanAllowedEndTheRun) {
  IntegratorCall call = RunWith(Hires(), SetIwork(2, 5));
  EXPECT_EQ(call.idid, -2);
  EXPECT_EQ(call.ReadCounters().step_count, 6);
  EXPECT_LT(call.x, call.x_end);
}

TEST(Parameters, AStepLimitOfZeroMeansAHundredThousand) {
  // A problem that needs more steps than that: max_step 1e-3 over 101.
  const auto rhs = [](std::int32_t, double, const double*, double* f, void*, void*) { f[0] = 0.0; };
  IntegratorCall call(rhs, {1.0}, 101.0);
  call.Work(7) = 1e-3;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -2);
  EXPECT_EQ(call.ReadCounters().step_count, 100001);
}

TEST(Parameters, TheNewtonLimitTakesEffect) {
  EXPECT_NE(RunWith(Hires(), SetIwork(3, 3)).ReadCounters(), RunWith(Hires(), NoChange()).ReadCounters());
}

TEST(Parameters, StartingNewtonFromZeroTakesMoreIterations) {
  EXPECT_GT(RunWith(Hires(), SetIwork(4, 1)).ReadCounters().solve_count,
            RunWith(Hires(), NoChange()).ReadCounters().solve_count);
}

TEST(Parameters, TheControllerIsPredictiveUpToOneAndClassicalFromTwo) {
  const IntegratorCall predictive = RunWith(Hires(), NoChange());
  ExpectSameRun(RunWith(Hires(), SetIwork(8, 1)), predictive);
  ExpectSameRun(RunWith(Hires(), SetIwork(8, -3)), predictive);
  const IntegratorCall classical = RunWith(Hires(), SetIwork(8, 2));
  ExpectSameRun(RunWith(Hires(), SetIwork(8, 9)), classical);
  EXPECT_NE(classical.ReadCounters(), predictive.ReadCounters());
}

TEST(Parameters, AStrideOfZeroIsTheBlockCount) {
  // y'(i) = y(i + 1) for one leading component: stride 0 becomes 1.
  const auto rhs = [](std::int32_t, double, const double* y, double* f, void*, void*) {
    f[0] = y[1];
    f[1] = -y[0];
  };
  IntegratorCall call(rhs, {0.0, 1.0}, 1.0);
  call.Iwork(9) = 1;
  IntegratorCall given = call;
  given.Iwork(10) = 1;
  call.SizeAndRun();
  given.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  ExpectSameRun(call, given);
}

TEST(Parameters, AStrideWithoutBlocksIsIgnored) {
  const IntegratorCall plain = RunWith(Hires(), NoChange());
  ExpectSameRun(RunWith(Hires(), SetIwork(10, -4)), plain);
  ExpectSameRun(RunWith(Hires(), SetIwork(10, 3)), plain);
}

TEST(Parameters, RealSlotsOutOfRangeAreRejected) {
  const double tol = TransformedTolerance(1e-6);
  const std::vector<std::pair<std::int32_t, double>> rejected = {
      {1, 1e-19}, {1, -1e-16},      {1, 1.0}, {1, 2.0},  {2, 0.001}, {2, -0.5}, {2, 1.0},  {3, 1.0},  {3, 3.0},
      {4, -1.0},  {4, 1e-16 / tol}, {5, 1.1}, {6, 0.99}, {6, -1.0},  {8, 1.1},  {8, -1.0}, {9, 0.99}, {9, 0.1}};
  for (const auto& [slot, value] : rejected) {
    ExpectRejected(Hires(), "WORK(" + std::to_string(slot) + ") = " + std::to_string(value), SetWork(slot, value));
  }
}

TEST(Parameters, RealSlotsOnTheirLimitsPass) {
  const double tol = TransformedTolerance(1e-6);
  const std::vector<std::pair<std::int32_t, double>> accepted = {
      {1, 1.1e-19}, {1, 1e-9}, {2, 0.999}, {3, 0.999}, {3, -5.0}, {4, 1.01e-16 / tol},
      {5, 1.0},     {5, 0.01}, {6, 1.0},   {8, 1.0},   {9, 1.0},  {9, -1.0}};
  for (const auto& [slot, value] : accepted) {
    SCOPED_TRACE("WORK(" + std::to_string(slot) + ") = " + std::to_string(value));
    IntegratorCall call = Hires();
    call.Work(slot) = value;
    call.Iwork(2) = 3;
    call.SizeAndRun();
    EXPECT_EQ(call.idid, -2);
  }
}

TEST(Parameters, IntegerSlotsOutOfRangeAreRejected) {
  const std::vector<std::pair<std::int32_t, std::int32_t>> rejected = {{2, -1},
                                                                       {3, -1},
                                                                       {5, 7},
                                                                       {5, 9},
                                                                       {5, -1},
                                                                       {6, 1},
                                                                       {6, -1},
                                                                       {7, 1},
                                                                       {7, -1},
                                                                       {9, -1},
                                                                       {9, INT_MIN_VALUE},
                                                                       {9, 8},
                                                                       {9, 5},
                                                                       {9, INT_MAX_VALUE}};
  for (const auto& [slot, value] : rejected) {
    ExpectRejected(Hires(), "IWORK(" + std::to_string(slot) + ") = " + std::to_string(value), SetIwork(slot, value));
  }
}

TEST(Parameters, IndexCountsMustAddUpAndNoneMayBeNegative) {
  const auto counts = [](std::int32_t first, std::int32_t second, std::int32_t third) {
    return [=](IntegratorCall& call) {
      call.Iwork(5) = first;
      call.Iwork(6) = second;
      call.Iwork(7) = third;
    };
  };
  ExpectRejected(Growth(), "one short", counts(6, 3, 0));
  ExpectRejected(Growth(), "one too many", counts(6, 4, 1));
  ExpectRejected(Growth(), "negative index 2, the right sum", counts(12, -2, 0));
  ExpectRejected(Growth(), "negative index 3, the right sum", counts(12, 0, -2));
  ExpectRejected(Growth(), "negative index 1, the right sum", counts(-2, 12, 0));
  ExpectRejected(Growth(), "a sum that wraps around in 32 bits", counts(INT_MAX_VALUE, INT_MAX_VALUE, 12));
  EXPECT_EQ(RunWith(Growth(), counts(6, 4, 0)).idid, 1);
}

TEST(Parameters, BlocksThatDoNotFitAreRejected) {
  ExpectRejected(Chain(), "stride below 0", SetIwork(10, -4));
  ExpectRejected(Chain(), "no multiple of the stride", SetIwork(10, 3));
  ExpectRejected(Chain(), "count and stride above n", SetIwork(10, 8));
  ExpectRejected(Chain(), "sum beyond 32 bits", SetIwork(10, INT_MAX_VALUE));
  ExpectRejected(Chain(), "the most negative pair", [](IntegratorCall& call) {
    call.Iwork(9) = INT_MIN_VALUE;
    call.Iwork(10) = -1;
  });
  ExpectRejected(Chain(), "banded with components after the blocks", [](IntegratorCall& call) {
    call.Iwork(9) = 4;
    call.mljac = call.mujac = 1;
  });
  ExpectRejected(Chain(), "Hessenberg form", SetIwork(1, 1));
}

TEST(Parameters, TolerancesOutOfRangeAreRejected) {
  const auto tolerance = [](double relative, double absolute) {
    return [=](IntegratorCall& call) { call.SetTolerance(relative, absolute); };
  };
  ExpectRejected(Hires(), "atol 0", tolerance(1e-6, 0.0));
  ExpectRejected(Hires(), "atol negative", tolerance(1e-6, -1e-6));
  ExpectRejected(Hires(), "rtol 0", tolerance(0.0, 1e-6));
  ExpectRejected(Hires(), "rtol at ten roundoffs", tolerance(10.0 * 1e-16, 1e-6));
  ExpectRejected(Hires(), "rtol 1e-16", tolerance(1e-16, 1e-6));
  ExpectRejected(Hires(), "one of many", [](IntegratorCall& call) {
    call.itol = 1;
    call.rtol.assign(8, 1e-6);
    call.atol.assign(8, 1e-6);
    call.atol[5] = 0.0;
  });
}

TEST(Parameters, BandwidthsOutOfRangeAreRejected) {
  const auto band = [](std::int32_t lower, std::int32_t upper) {
    return [=](IntegratorCall& call) {
      call.mljac = lower;
      call.mujac = upper;
    };
  };
  ExpectRejected(Hires(), "mljac negative", band(-1, 1));
  ExpectRejected(Hires(), "mljac most negative", band(INT_MIN_VALUE, 1));
  ExpectRejected(Hires(), "mujac negative", band(1, -1));
  ExpectRejected(Hires(), "rows of the band beyond 32 bits", band(7, INT_MAX_VALUE));
  const auto mass = [](std::int32_t lower, std::int32_t upper) {
    return [=](IntegratorCall& call) {
      call.mljac = call.mujac = 2;
      call.mlmas = lower;
      call.mumas = upper;
    };
  };
  ExpectRejected(Growth(), "mlmas above mljac", mass(3, 0));
  ExpectRejected(Growth(), "mumas above mujac", mass(0, 3));
  ExpectRejected(Growth(), "full mass with a band Jacobian", mass(10, 10));
  ExpectRejected(Growth(), "mlmas negative", mass(-1, 1));
  ExpectRejected(Growth(), "mumas negative", mass(1, -1));
  ExpectRejected(Growth(), "mlmas above n", [](IntegratorCall& call) { call.mlmas = 11; });
  ExpectRejected(Growth(), "rows of the mass beyond 32 bits", mass(INT_MAX_VALUE, INT_MAX_VALUE));
}

TEST(Parameters, NoComponentsAreRejected) {
  for (const std::int32_t n : {0, -1, INT_MIN_VALUE}) {
    ExpectRejected(Hires(), "n = " + std::to_string(n), [n](IntegratorCall& call) { call.n = n; });
  }
}

TEST(Parameters, AMissingCallbackIsRejected) {
  IntegratorCall no_rhs = Hires();
  no_rhs.SizeArrays();
  no_rhs.rhs_callback = nullptr;
  no_rhs.Run();
  EXPECT_EQ(no_rhs.idid, -1);
  ExpectRejected(Hires(), "Jacobian", [](IntegratorCall& call) { call.ijac = 1; });
  ExpectRejected(Hires(), "mass", [](IntegratorCall& call) {
    call.imas = 1;
    call.lwork += 100;
    call.WORK.resize(static_cast<std::size_t>(call.lwork));
  });
  IntegratorCall no_step = Hires();
  no_step.SizeArrays();
  no_step.iout = 1;
  no_step.Run();
  EXPECT_EQ(no_step.idid, -1);
}

TEST(Parameters, StorageOneTooSmallIsRejectedAndExactlyEnoughPasses) {
  IntegratorCall band(BandRhs, std::vector<double>(12, 0.1), 0.5);
  band.mljac = 2;
  band.mujac = 1;
  IntegratorCall full_mass = Growth();
  full_mass.mass_callback = FullIdentityMass;
  full_mass.mlmas = 10;
  for (const IntegratorCall& problem : {Hires(), Growth(), Chain(), Oscillator(), band, full_mass}) {
    IntegratorCall fits = problem;
    fits.Iwork(2) = 2;
    fits.SizeAndRun();
    EXPECT_EQ(fits.idid, -2);
    ExpectRejected(problem, "lwork", [](IntegratorCall& call) { call.lwork -= 1; });
    ExpectRejected(problem, "liwork", [](IntegratorCall& call) { call.liwork -= 1; });
  }
  for (const std::int32_t size : {19, 0, -1}) {
    ExpectRejected(Hires(), "lwork without the slots", [size](IntegratorCall& call) { call.lwork = size; });
    ExpectRejected(Hires(), "liwork without the slots", [size](IntegratorCall& call) { call.liwork = size; });
  }
}

TEST(Parameters, TheStorageOfTheWorkedExamplesIsEnough) {
  // Diagonal mass, full Jacobian: 550 and 50 for 10 components, 1115 and 65 for 15.
  for (const auto& [n, reals, integers] : {std::array{10, 550, 50}, std::array{15, 1115, 65}}) {
    IntegratorCall call(GrowthRhs, std::vector<double>(static_cast<std::size_t>(n), 1e-10), 1.0);
    call.imas = 1;
    call.mass_callback = ReferenceMass("growth_mass");
    call.SizeArrays();
    EXPECT_EQ(call.lwork, reals);
    EXPECT_EQ(call.liwork, integers);
    call.Iwork(2) = 1;
    call.Run();
    EXPECT_NE(call.idid, -1);
  }
}

TEST(Parameters, TolerancesAreTransformedDuringTheRunAndRestoredUpToRounding) {
  static const double* rtol = nullptr;
  static const double* atol = nullptr;
  static double seen_rtol = 0.0;
  static double seen_atol = 0.0;
  const auto rhs = [](std::int32_t, double, const double*, double* f, void*, void*) {
    seen_rtol = *rtol;
    seen_atol = *atol;
    f[0] = 0.0;
  };
  IntegratorCall call(rhs, {1.0}, 1.0);
  call.SetTolerance(1e-10, 1e-14);
  rtol = call.rtol.data();
  atol = call.atol.data();
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(seen_rtol, 2.154434690031886e-08);
  EXPECT_EQ(seen_atol, 2.1544346900318856e-12);
  EXPECT_NEAR(call.rtol[0], 1e-10, 1e-24);
  EXPECT_NEAR(call.atol[0], 1e-14, 1e-28);
}

TEST(Parameters, TolerancesAreRestoredForEveryCodeOfTheStepLoop) {
  IntegratorCall limit = RunWith(Hires(), SetIwork(2, 3));
  EXPECT_EQ(limit.idid, -2);
  EXPECT_NEAR(limit.rtol[0], 1e-6, 1e-20);
  IntegratorCall small(HiresRhs, std::vector<double>(8, 0.0), 0.0);
  small.SizeAndRun();
  EXPECT_EQ(small.idid, -3);
  EXPECT_NEAR(small.rtol[0], 1e-6, 1e-20);
}

TEST(Parameters, AfterARefusalTheTolerancesStayTransformed) {
  IntegratorCall call = Hires();
  call.Iwork(2) = -1;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -1);
  EXPECT_EQ(call.rtol[0], TransformedTolerance(1e-6));
}

TEST(Parameters, ARejectedToleranceOfManyStaysWhileTheOthersAreTransformed) {
  IntegratorCall call = Hires();
  call.itol = 1;
  call.rtol.assign(8, 1e-6);
  call.atol.assign(8, 1e-9);
  call.rtol[2] = 1e-17;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -1);
  EXPECT_EQ(call.rtol[2], 1e-17);
  EXPECT_EQ(call.rtol[1], TransformedTolerance(1e-6));
  EXPECT_EQ(call.rtol[7], TransformedTolerance(1e-6));
}

TEST(Parameters, EqualTolerancesForEachComponentGiveTheBitsOfOneForAll) {
  IntegratorCall many = Hires();
  many.itol = 1;
  many.rtol.assign(8, 1e-6);
  many.atol.assign(8, 1e-9);
  many.SizeAndRun();
  ExpectSameRun(many, RunWith(Hires(), NoChange()));
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_NEAR(many.rtol[i], 1e-6, 1e-20);
    EXPECT_NEAR(many.atol[i], 1e-9, 1e-23);
  }
}

TEST(Parameters, AToleranceOfItsOwnTakesEffect) {
  IntegratorCall many = Hires();
  many.itol = 1;
  many.rtol.assign(8, 1e-6);
  many.atol.assign(8, 1e-9);
  many.atol[7] = 1.0;
  many.rtol[7] = 1.0;
  many.atol[6] = 1.0;
  many.rtol[6] = 1.0;
  many.SizeAndRun();
  EXPECT_EQ(many.idid, 1);
  EXPECT_LT(many.ReadCounters().step_count, RunWith(Hires(), NoChange()).ReadCounters().step_count);
}

TEST(Parameters, TheCountersCountTheCallsMade) {
  IntegratorCall call = Growth();
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(static_cast<std::int32_t>(probe.rhs_x.size()), counters.rhs_calls + 10 * counters.jacobian_count);
  EXPECT_EQ(static_cast<std::int32_t>(probe.steps.size()), counters.accepted_count + 1);
  EXPECT_EQ(probe.mass_calls, 1);
  EXPECT_GE(counters.step_count, counters.accepted_count + counters.rejected_count);
  // Three evaluations for each Newton system, one at the start and after each accepted step but the last, and the
  // second error estimates.
  EXPECT_GE(counters.rhs_calls, 3 * counters.solve_count + counters.accepted_count);
  EXPECT_LE(counters.rhs_calls, 3 * counters.solve_count + counters.step_count);
}

TEST(Parameters, TheContextsReachEveryCallback) {
  static int real_marker = 0;
  static int model_marker = 0;
  static int wrong = 0;
  static int calls = 0;
  static const auto check = [](void* real_context, void* model_context) {
    ++calls;
    if (real_context != &real_marker || model_context != &model_marker) ++wrong;
  };
  IntegratorCall call(
      [](std::int32_t, double, const double* y, double* f, void* real_context, void* model_context) {
        check(real_context, model_context);
        f[0] = -y[0];
      },
      {1.0}, 1.0);
  call.ijac = 1;
  call.jacobian_callback = [](std::int32_t, double, const double*, double* FJAC, std::int32_t, void* real_context,
                              void* model_context) {
    check(real_context, model_context);
    FJAC[0] = -1.0;
  };
  call.imas = 1;
  call.mass_callback = [](std::int32_t, double* FMAS, std::int32_t, void* real_context, void* model_context) {
    check(real_context, model_context);
    FMAS[0] = 1.0;
  };
  call.iout = 1;
  call.step_callback = [](std::int32_t, double, double, const double*, const double*, std::int32_t, std::int32_t,
                          void* real_context, void* model_context,
                          std::int32_t&) { check(real_context, model_context); };
  call.real_context = &real_marker;
  call.model_context = &model_marker;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(calls, 10);
}

TEST(Parameters, BandwidthsOfAFullJacobianComeBackAsTheReducedOrder) {
  for (const std::int32_t width : {8, 9, INT_MAX_VALUE}) {
    IntegratorCall call = Hires();
    call.SizeArrays();
    call.mljac = width;
    call.mujac = -3;  // overwritten before it is looked at
    call.Run();
    EXPECT_EQ(call.idid, 1);
    EXPECT_EQ(call.mljac, 8);
    EXPECT_EQ(call.mujac, 8);
  }
  IntegratorCall chain = Chain();
  chain.SizeAndRun();
  EXPECT_EQ(chain.mljac, 4);
  EXPECT_EQ(chain.mujac, 4);
}

TEST(Parameters, BandwidthsOfABandStay) {
  IntegratorCall call(BandRhs, std::vector<double>(12, 0.1), 0.1);
  call.mljac = 2;
  call.mujac = 1;
  call.SizeAndRun();
  EXPECT_EQ(call.mljac, 2);
  EXPECT_EQ(call.mujac, 1);
}

TEST(Parameters, TheMassBandwidthsAreNotReadWithoutAMass) {
  IntegratorCall call = Hires();
  call.mlmas = INT_MIN_VALUE;
  call.mumas = INT_MAX_VALUE;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.mumas, INT_MAX_VALUE);
}

}  // namespace vorlen::test
