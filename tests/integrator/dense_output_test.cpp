// Dense output inside step_callback.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "integrator/dense_output.h"
#include "integrator/integrator_call.h"
#include "integrator/radau_constants.h"
#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

// The findings of the checks over the steps of a run.
struct Findings {
  std::int32_t steps = 0;
  double worst_start = 0.0;   // |value at x_old - y at the end of the step before| / |y|
  double worst_inside = 0.0;  // |value - exact| inside the steps
  bool end_is_exact = true;
  bool nothing_changed = true;
  bool outside_is_the_cubic = true;
  std::vector<double> y_before;
};

void CheckStep(std::int32_t accepted_index, double x_old, double x, const double* y, const double* CONT,
               std::int32_t cont_size, std::int32_t n, void*, void* model_context, std::int32_t&) {
  auto& findings = *static_cast<Findings*>(model_context);
  if (accepted_index > 1) {
    findings.steps += 1;
    const std::vector<double> before(CONT, CONT + cont_size);
    const DenseOutput record = dense_output;
    for (std::int32_t i = 1; i <= n; ++i) {
      if (RadauDenseValue(i, x, CONT, cont_size) != y[i - 1]) findings.end_is_exact = false;
      const double start = findings.y_before[static_cast<std::size_t>(i - 1)];
      findings.worst_start =
          std::max(findings.worst_start, std::abs(RadauDenseValue(i, x_old, CONT, cont_size) - start));
      for (const double part : {0.2, 0.5, 0.9}) {
        const double t = x_old + part * (x - x_old);
        const double exact = i == 1 ? std::cos(t) : -std::sin(t);
        findings.worst_inside =
            std::max(findings.worst_inside, std::abs(RadauDenseValue(i, t, CONT, cont_size) - exact));
      }
      // Three steps further on: the formula, written out.
      const double s = 3.0;
      const double cubic =
          CONT[i - 1] +
          s * (CONT[i - 1 + n] +
               (s - radau::c2_minus_1) * (CONT[i - 1 + 2 * n] + (s - radau::c1_minus_1) * CONT[i - 1 + 3 * n]));
      const double outside = RadauDenseValue(i, x + 3.0 * (x - x_old), CONT, cont_size);
      if (std::abs(outside - cubic) > 1e-12) findings.outside_is_the_cubic = false;
    }
    const bool same_cont = std::vector<double>(CONT, CONT + cont_size) == before;
    const bool same_record = record.x_sol == dense_output.x_sol && record.h_sol == dense_output.h_sol;
    if (!same_cont || !same_record || record.x_sol != x) findings.nothing_changed = false;
  }
  findings.y_before.assign(y, y + n);
}

void CircleRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = y[1];
  f[1] = -y[0];
}

Findings RunCircle(double tolerance) {
  Findings findings;
  IntegratorCall call(CircleRhs, {1.0, 0.0}, 6.0);
  call.SetTolerance(tolerance, tolerance);
  call.iout = 1;
  call.step_callback = CheckStep;
  call.model_context = &findings;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  // The callback is called at the start and after each accepted step; one step does not cover an arc of 6 rad.
  EXPECT_EQ(findings.steps, call.ReadCounters().accepted_count);
  EXPECT_GT(findings.steps, 5);
  return findings;
}

}  // namespace

TEST(DenseOutput, AtTheEndOfTheStepItIsTheStateExactly) { EXPECT_TRUE(RunCircle(1e-6).end_is_exact); }

TEST(DenseOutput, AtTheStartOfTheStepItIsTheStateBeforeUpToRounding) { EXPECT_LT(RunCircle(1e-6).worst_start, 1e-14); }

TEST(DenseOutput, InsideTheStepItIsNearTheSolution) {
  EXPECT_LT(RunCircle(1e-6).worst_inside, 1e-4);
  EXPECT_LT(RunCircle(1e-10).worst_inside, 1e-7);
}

TEST(DenseOutput, OutsideTheStepTheCubicIsEvaluated) { EXPECT_TRUE(RunCircle(1e-6).outside_is_the_cubic); }

TEST(DenseOutput, ItReadsOnly) { EXPECT_TRUE(RunCircle(1e-6).nothing_changed); }

TEST(DenseOutput, RunsOnDifferentThreadsAreIndependent) {
  const Findings alone = RunCircle(1e-9);
  Findings first, second;
  std::thread a([&first] {
    for (int k = 0; k < 20; ++k) first = RunCircle(1e-9);
  });
  std::thread b([&second] {
    for (int k = 0; k < 20; ++k) second = RunCircle(1e-9);
  });
  a.join();
  b.join();
  for (const Findings& findings : {first, second}) {
    EXPECT_EQ(findings.steps, alone.steps);
    EXPECT_EQ(findings.worst_inside, alone.worst_inside);
    EXPECT_TRUE(findings.end_is_exact);
  }
}

}  // namespace vorlen::test
