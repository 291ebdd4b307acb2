// Edge cases of the step loop. The problems are so simple that steps, counts and codes can be derived manually: with f
// = 0 every step is accepted with the smallest error, 1e-10, and the next one is 8 times longer.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "integrator/integrator_call.h"
#include "integrator/probe.h"
#include "integrator/radau_constants.h"
#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

void ZeroRhs(std::int32_t n, double, const double*, double* f, void*, void*) {
  for (std::int32_t i = 0; i < n; ++i) {
    f[i] = 0.0;
  }
}

void DecayRhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  for (std::int32_t i = 0; i < n; ++i) {
    f[i] = -y[i];
  }
}

// The ends x + h of the tries, from the evaluations at the third stage: the evaluation after the two inner stages.
// Valid for runs whose n evaluations of the Jacobian and other calls at x itself come before.
std::vector<double> FirstTries(const Probe& probe, double x_start) {
  std::vector<double> ends;
  for (std::size_t k = 2; k < probe.rhs_x.size(); ++k) {
    if (probe.rhs_x[k - 2] != x_start && probe.rhs_x[k - 1] > probe.rhs_x[k - 2] &&
        probe.rhs_x[k] > probe.rhs_x[k - 1]) {
      if (ends.empty() || ends.back() != probe.rhs_x[k]) ends.push_back(probe.rhs_x[k]);
    }
  }
  return ends;
}

}  // namespace

TEST(StepLoop, AFirstTryThatFailsTheErrorTestMultipliesTheStepByATenth) {
  // Steps of 1 and 0.1 are far too long for a frequency of 20 (err >> 1, then still above); IWORK(2) stops the run at
  // the third try, whose step is then the one last tried.
  for (const auto& [max_steps, step] : {std::pair{1, 1.0 * 0.1}, std::pair{2, 1.0 * 0.1 * 0.1}}) {
    IntegratorCall call(OscillatorRhs, {1.0, 0.0}, 10.0);
    call.SetTolerance(1e-9, 1e-9);
    call.h = 1.0;
    call.Iwork(2) = max_steps;
    call.SizeAndRun();
    EXPECT_EQ(call.idid, -2);
    EXPECT_EQ(call.h, step);
    EXPECT_EQ(call.ReadCounters().rejected_count, 0);
    EXPECT_EQ(call.ReadCounters().accepted_count, 0);
    EXPECT_EQ(call.ReadCounters().jacobian_count, 1);  // at one x the Jacobian is computed once
    EXPECT_EQ(call.x, 0.0);
    EXPECT_EQ(call.y, (std::vector<double>{1.0, 0.0}));
  }
}

TEST(StepLoop, RejectionsCountOnceAStepWasAccepted) {
  IntegratorCall call(OscillatorRhs, {1.0, 0.0}, 10.0);
  call.h = 1.0;
  call.SizeAndRun();
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(call.idid, 1);
  EXPECT_GT(counters.rejected_count, 0);
  // The first tries were rejected too, uncounted.
  EXPECT_GT(counters.step_count, counters.accepted_count + counters.rejected_count);
}

TEST(StepLoop, NotANumberInTheFirstIterationIsAccepted) {
  IntegratorCall call(
      [](std::int32_t, double x, const double* y, double* f, void*, void*) { f[0] = x > 0.0 ? NOT_A_NUMBER : -y[0]; },
      {1.0}, 1.0);
  call.h = 0.5;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.x, 1.0);
  EXPECT_TRUE(std::isnan(call.y[0]));
  EXPECT_EQ(call.ReadCounters().accepted_count, call.ReadCounters().step_count);
  EXPECT_EQ(call.ReadCounters().solve_count, call.ReadCounters().step_count);
}

TEST(StepLoop, NotANumberInTheSecondIterationHalvesTheStep) {
  // Evaluations: 1 at the start, 1 for the Jacobian, 3 in the first iteration, then the second iteration.
  static int evaluations = 0;
  evaluations = 0;
  IntegratorCall call(
      [](std::int32_t, double, const double* y, double* f, void*, void*) {
        ++evaluations;
        f[0] = evaluations == 6 ? NOT_A_NUMBER : -y[0] * y[0];
      },
      {1.0}, 1.0);
  call.h = 0.25;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_NEAR(call.y[0], 0.5, 1e-6);  // y = 1 / (1 + x)
  EXPECT_EQ(probe.rhs_x[4], 0.25);
  EXPECT_EQ(probe.rhs_x[7], 0.25);
  EXPECT_EQ(probe.rhs_x[10], 0.125);
  EXPECT_EQ(call.ReadCounters().rejected_count, 0);
}

TEST(StepLoop, AConvergenceInOneIterationKeepsTheJacobianUnlessTheLimitIsNegative) {
  for (const double limit : {0.001, -0.001}) {
    IntegratorCall call(ZeroRhs, {1.0}, 2.0);
    call.h = 0.1;
    call.Work(3) = limit;
    call.SizeAndRun();
    const Counters counters = call.ReadCounters();
    EXPECT_EQ(counters.solve_count, counters.step_count);  // one iteration for each step
    EXPECT_EQ(counters.accepted_count, 3);
    EXPECT_EQ(counters.jacobian_count, limit > 0.0 ? 1 : 3);
  }
}

TEST(StepLoop, ReachingTheIterationLimitWithoutConvergenceHalvesTheStep) {
  // With one iteration allowed the contraction is not tested: the update of a problem that changes at once is above the
  // stop factor until the step is tiny. Attempts end at h, h/2, h/4, ..; each costs three evaluations.
  IntegratorCall call(
      [](std::int32_t, double, const double* y, double* f, void*, void*) { f[0] = 1e4 * std::cos(y[0]); }, {1.0}, 1.0);
  call.h = 0.5;
  call.Iwork(3) = 1;
  call.Iwork(2) = 4;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -2);
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(counters.solve_count, 4);
  EXPECT_EQ(counters.rhs_calls, 1 + 3 * 4);
  EXPECT_EQ(counters.rejected_count, 0);
  EXPECT_EQ(counters.jacobian_count, 1);
  EXPECT_EQ(FirstTries(probe, 0.0), (std::vector<double>{0.5, 0.25, 0.125, 0.0625}));
  EXPECT_EQ(call.h, 0.03125);
}

TEST(StepLoop, ARejectedLastStepIsNoLongerTheLast) {
  IntegratorCall call(OscillatorRhs, {1.0, 0.0}, 1.0);
  call.h = 1.0;  // the first try would end at x_end
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.x, 1.0);
  EXPECT_GT(call.ReadCounters().accepted_count, 10);
  EXPECT_NEAR(call.y[0], std::cos(20.0), 1e-3);
}

TEST(StepLoop, TheStepReturnedIsThatBeforeTheLast) {
  // Steps 0.1, 0.8 and the rest of 1.1. The proposal kept before the last step is min(0.8, 6.4).
  IntegratorCall call(ZeroRhs, {1.0}, 2.0);
  call.h = 0.1;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  ASSERT_EQ(probe.steps.size(), 4U);
  EXPECT_DOUBLE_EQ(probe.steps[1].x, 0.1);
  EXPECT_DOUBLE_EQ(probe.steps[2].x, 0.9);
  EXPECT_EQ(probe.steps[3].x, 2.0);
  EXPECT_DOUBLE_EQ(call.h, 0.8);
}

TEST(StepLoop, ARunOfOneStepReturnsTheStepUsed) {
  IntegratorCall call(ZeroRhs, {1.0}, 2.0);
  call.h = 5.0;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.ReadCounters().step_count, 1);
  EXPECT_EQ(call.h, 2.0);
}

TEST(StepLoop, BackwardTheReturnedStepIsTheOneOfLargerMagnitude) {
  // The same steps mirrored. The signed minimum of -0.8 and the limit -2 is -2.
  IntegratorCall call(ZeroRhs, {1.0}, -2.0);
  call.h = 0.1;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  ASSERT_EQ(probe.steps.size(), 4U);
  EXPECT_DOUBLE_EQ(probe.steps[1].x, -0.1);
  EXPECT_DOUBLE_EQ(probe.steps[2].x, -0.9);
  EXPECT_EQ(probe.steps[3].x, -2.0);
  EXPECT_EQ(call.h, -2.0);
}

TEST(StepLoop, BackwardIntegrationRetracesTheSolution) {
  IntegratorCall call(DecayRhs, {1.0, 2.0}, -3.0);
  call.SetTolerance(1e-9, 1e-9);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.x, -3.0);
  EXPECT_NEAR(call.y[0], std::exp(3.0), 1e-7);
  IntegratorCall back(DecayRhs, call.y, 0.0);
  back.x = -3.0;
  back.SetTolerance(1e-9, 1e-9);
  back.SizeAndRun();
  EXPECT_NEAR(back.y[0], 1.0, 1e-8);
  EXPECT_NEAR(back.y[1], 2.0, 2e-8);
}

TEST(StepLoop, TheSignOfTheFirstStepIsIgnored) {
  IntegratorCall forward(DecayRhs, {1.0}, 1.0);
  forward.h = -1e-3;
  forward.SizeAndRun();
  IntegratorCall plain(DecayRhs, {1.0}, 1.0);
  plain.h = 1e-3;
  plain.SizeAndRun();
  EXPECT_EQ(forward.y, plain.y);
  EXPECT_EQ(forward.h, plain.h);
}

TEST(StepLoop, AFirstStepOfNextToNothingBecomesAMillionth) {
  for (const double h : {0.0, 1e-15, -1e-15}) {
    IntegratorCall call(ZeroRhs, {1.0}, 1.0);
    call.h = h;
    Probe probe;
    Attach(probe, call);
    call.SizeAndRun();
    EXPECT_EQ(probe.steps[1].x, 1e-6);
  }
  IntegratorCall call(ZeroRhs, {1.0}, 1.0);
  call.h = 1.1e-15;  // just above ten roundoffs
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(probe.steps[1].x, 1.1e-15);
}

TEST(StepLoop, AFirstStepThatNearlyReachesTheEndIsStretchedToIt) {
  IntegratorCall call(ZeroRhs, {1.0}, 1.0);
  call.h = 0.99995;
  call.SizeAndRun();
  EXPECT_EQ(call.ReadCounters().step_count, 1);
  EXPECT_EQ(call.x, 1.0);
}

TEST(StepLoop, AnEndAtTheStartIsAStepTooSmall) {
  IntegratorCall call(DecayRhs, {1.0}, 5.0);
  call.x = 5.0;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -3);
  EXPECT_EQ(probe.steps.size(), 1U);
  EXPECT_EQ(call.h, 0.0);
  EXPECT_EQ(call.ReadCounters().step_count, 1);
  EXPECT_EQ(call.ReadCounters().accepted_count, 0);
}

TEST(StepLoop, AStepTooSmallForThePositionEndsTheRun) {
  IntegratorCall call(DecayRhs, {1.0}, 2e12);
  call.x = 1e12;
  call.h = 1e-5;  // a tenth of it is below 1e12 * 1e-16
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -3);
  EXPECT_EQ(call.x, 1e12);
  EXPECT_EQ(call.h, 1e-5);
}

TEST(StepLoop, TheStepLimitKeepsTheLastAcceptedPoint) {
  IntegratorCall call(DecayRhs, {1.0}, 10.0);
  call.h = 1e-3;
  call.Iwork(2) = 6;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -2);
  EXPECT_EQ(call.x, probe.steps.back().x);
  EXPECT_EQ(call.y, probe.steps.back().y);
}

TEST(StepLoop, FiveSingularFactorisationsInARowEndTheRun) {
  // 0 = 1 with nothing to solve for: both matrices are zero whatever the step.
  IntegratorCall call([](std::int32_t, double, const double*, double* f, void*, void*) { f[0] = 1.0; }, {1.0}, 1.0);
  call.imas = 1;
  call.mass_callback = [](std::int32_t, double* FMAS, std::int32_t, void*, void*) { FMAS[0] = 0.0; };
  call.h = 0.5;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -4);
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(counters.factorisation_count, 0);
  EXPECT_EQ(counters.step_count, 0);
  EXPECT_EQ(counters.jacobian_count, 1);
  EXPECT_EQ(counters.rhs_calls, 1);
  EXPECT_EQ(call.h, 0.5 / 16.0);  // halved by the first four
  EXPECT_EQ(call.x, 0.0);
}

TEST(StepLoop, FiveSingularFactorisationsFarApartEndTheRunToo) {
  // f = 0, and each Jacobian is the real eigenvalue over the step about to be tried, so that the real matrix is 0 once;
  // after the halving the step is accepted and stays, because a step after a failure does not grow.
  static double next_h = 0.0;
  next_h = 0.5;
  IntegratorCall call(ZeroRhs, {1.0}, 100.0);
  call.h = next_h;
  call.Work(3) = -0.001;  // a Jacobian after each step
  call.ijac = 1;
  call.jacobian_callback = [](std::int32_t, double, const double*, double* FJAC, std::int32_t, void*, void*) {
    FJAC[0] = radau::real_eigenvalue / next_h;
    next_h *= 0.5;
  };
  call.SizeAndRun();
  EXPECT_EQ(call.idid, -4);
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(counters.accepted_count, 4);
  EXPECT_EQ(counters.factorisation_count, 4);
  EXPECT_EQ(counters.jacobian_count, 5);
  EXPECT_DOUBLE_EQ(call.x, 0.25 + 0.125 + 0.0625 + 0.03125);
}

TEST(StepLoop, ASingularComplexMatrixIsNoFactorisation) {
  // J with the complex shift of the first step as eigenvalue; see the same matrix in the tests of the stage system.
  IntegratorCall call(ZeroRhs, {1.0, 1.0}, 100.0);
  call.h = radau::complex_eigenvalue_im;
  call.ijac = 1;
  call.jacobian_callback = [](std::int32_t, double, const double*, double* FJAC, std::int32_t, void*, void*) {
    const double re = radau::complex_eigenvalue_re / radau::complex_eigenvalue_im;
    FJAC[0] = re;
    FJAC[1] = 1.0;
    FJAC[2] = -1.0;
    FJAC[3] = re;
  };
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(probe.steps[1].x, radau::complex_eigenvalue_im * 0.5);
}

TEST(StepLoop, TheFirstCallTellsTheStart) {
  IntegratorCall call(DecayRhs, {1.0, 2.0, 3.0}, 1.5);
  call.x = 0.5;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  const StepRecord& first = probe.steps.front();
  EXPECT_EQ(first.accepted_index, 1);
  EXPECT_EQ(first.x_old, 0.5);
  EXPECT_EQ(first.x, 0.5);
  EXPECT_EQ(first.n, 3);
  EXPECT_EQ(first.cont_size, 12);
  EXPECT_EQ(first.stop_flag, 1);
  EXPECT_EQ(std::vector<double>(first.CONT.begin(), first.CONT.begin() + 3), (std::vector<double>{1.0, 2.0, 3.0}));
  EXPECT_EQ(first.y, (std::vector<double>{1.0, 2.0, 3.0}));
}

TEST(StepLoop, LaterCallsTellTheStepJustAccepted) {
  IntegratorCall call(DecayRhs, {1.0, 2.0}, 1.0);
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  for (std::size_t k = 1; k < probe.steps.size(); ++k) {
    const StepRecord& step = probe.steps[k];
    EXPECT_EQ(step.accepted_index, static_cast<std::int32_t>(k + 1));
    EXPECT_EQ(step.x_old, probe.steps[k - 1].x);
    EXPECT_GT(step.x, step.x_old);
    EXPECT_EQ(step.CONT[0], step.y[0]);
    EXPECT_EQ(step.CONT[1], step.y[1]);
  }
  EXPECT_EQ(probe.steps.back().x, 1.0);
  EXPECT_EQ(probe.steps.back().y, call.y);
}

TEST(StepLoop, ANegativeFlagStopsAtThePointJustReported) {
  for (const std::int32_t index : {1, 2, 5}) {
    IntegratorCall call(DecayRhs, {1.0}, 10.0);
    call.h = 1e-3;
    Probe probe;
    probe.stop_at_index = index;
    probe.stop_value = -7;
    Attach(probe, call);
    call.SizeAndRun();
    EXPECT_EQ(call.idid, 2);
    EXPECT_EQ(static_cast<std::int32_t>(probe.steps.size()), index);
    EXPECT_EQ(call.x, probe.steps.back().x);
    EXPECT_EQ(call.y, probe.steps.back().y);
    EXPECT_EQ(call.ReadCounters().accepted_count, index - 1);
    if (index == 1) {
      EXPECT_TRUE(probe.rhs_x.empty());
    }
  }
}

TEST(StepLoop, AStopAtTheEndIsStillAStop) {
  IntegratorCall call(ZeroRhs, {1.0}, 2.0);
  call.h = 5.0;
  Probe probe;
  probe.stop_at_index = 2;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 2);
  EXPECT_EQ(call.x, 2.0);
}

TEST(StepLoop, TheFlagIsSetOnceAndOtherValuesGoOn) {
  for (const std::int32_t value : {0, 5}) {
    IntegratorCall call(ZeroRhs, {1.0}, 2.0);
    call.h = 0.1;
    Probe probe;
    probe.stop_at_index = 2;
    probe.stop_value = value;
    Attach(probe, call);
    call.SizeAndRun();
    EXPECT_EQ(call.idid, 1);
    EXPECT_EQ(probe.steps[1].stop_flag, 1);
    EXPECT_EQ(probe.steps[2].stop_flag, value);
    EXPECT_EQ(probe.steps[3].stop_flag, value);
  }
}

TEST(StepLoop, WithoutOutputTheStepCallbackIsNotCalled) {
  IntegratorCall call(DecayRhs, {1.0}, 1.0);
  Probe probe;
  Attach(probe, call);
  call.iout = 0;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_TRUE(probe.steps.empty());
}

TEST(StepLoop, EvaluationsLeaveTheStateAsItWas) {
  // The state handed to the callback at one x is always the same but for the component perturbed for the Jacobian.
  static std::vector<double> at_start;
  at_start.clear();
  IntegratorCall call(
      [](std::int32_t, double x, const double* y, double* f, void*, void*) {
        if (x == 0.0) at_start.push_back(y[0]);
        f[0] = -y[0] + y[1];
        f[1] = -y[1];
      },
      {0.1, 0.3}, 1.0);
  call.SizeAndRun();
  ASSERT_EQ(at_start.size(), 3U);
  EXPECT_EQ(at_start[0], 0.1);
  EXPECT_NE(at_start[1], 0.1);
  EXPECT_EQ(at_start[2], 0.1);
}

TEST(StepLoop, TheErrorOfAComponentOfHigherIndexCountsMultipliedByTheStep) {
  // The classical controller proposes h * 0.9 / err^0.25 after one Newton iteration, so that the length of the second
  // step shows the error of the first. Only the second component has one.
  const double h = 0.01;
  const auto second_step = [h](std::int32_t index) {
    IntegratorCall call(
        [](std::int32_t, double x, const double*, double* f, void*, void*) {
          f[0] = 0.0;
          f[1] = 1e9 * std::pow(x, 5);
        },
        {0.0, 0.0}, 1e3);
    call.h = h;
    call.SetTolerance(1e-3, 1e-3);
    call.Work(4) = 1e12;  // one iteration is enough, its result is exact
    call.Work(9) = 1e9;   // no limit of the growth
    call.Iwork(8) = 2;
    call.Iwork(5) = index == 1 ? 2 : 1;
    call.Iwork(6) = index == 2 ? 1 : 0;
    call.Iwork(7) = index == 3 ? 1 : 0;
    call.Iwork(2) = 1;
    call.SizeAndRun();
    EXPECT_EQ(call.ReadCounters().accepted_count, 1);
    return call.h;
  };
  const double index1 = second_step(1);
  EXPECT_NEAR(second_step(2) / index1, std::pow(h, -0.25), 1e-9);
  EXPECT_NEAR(second_step(3) / index1, std::pow(h, -0.5), 1e-9);
}

}  // namespace vorlen::test
