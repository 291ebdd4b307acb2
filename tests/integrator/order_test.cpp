// Observed orders of convergence with constant steps: 5 of the solution, 4 of the dense output, 3 of the algebraic
// components of a problem of index 2, 4 of the error estimate. A constant step is forced by a tolerance that is never
// exceeded and a largest step; the stop factor makes the Newton iteration converge to rounding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "integrator/integrator_call.h"
#include "integrator/probe.h"

namespace vorlen::test {

namespace {

// Sets up steps of length h: a power of two over the interval, so that they add up exactly.
void ForceSteps(IntegratorCall& call, double h) {
  call.SetTolerance(1e5, 1e5);  // transformed about 200
  call.Work(4) = 1e-15;
  call.Work(3) = -0.001;
  call.Work(7) = h;
  call.Iwork(3) = 20;
  call.h = h;
}

double ObservedOrder(double coarse_error, double fine_error) { return std::log2(coarse_error / fine_error); }

void NonlinearRhs(std::int32_t, double x, const double* y, double* f, void*, void*) {
  // Solution exp(sin x) and its logarithm sin x.
  f[0] = y[0] * std::cos(x);
  f[1] = std::cos(x) * y[0] / std::exp(y[1]);
}

double SolutionError(double h) {
  IntegratorCall call(NonlinearRhs, {1.0, 0.0}, 2.0);
  ForceSteps(call, h);
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  EXPECT_EQ(call.ReadCounters().accepted_count, static_cast<std::int32_t>(2.0 / h));
  return std::abs(call.y[0] - std::exp(std::sin(2.0)));
}

struct Worst {
  double value = 0.0;
};

void MeasureDense(std::int32_t accepted_index, double x_old, double x, const double*, const double* CONT,
                  std::int32_t cont_size, std::int32_t, void*, void* model_context, std::int32_t&) {
  if (accepted_index == 1) return;
  auto& worst = *static_cast<Worst*>(model_context);
  for (int k = 1; k < 16; ++k) {
    const double t = x_old + (x - x_old) * k / 16.0;
    worst.value = std::max(worst.value, std::abs(RadauDenseValue(1, t, CONT, cont_size) - std::exp(std::sin(t))));
  }
}

double DenseError(double h) {
  IntegratorCall call(NonlinearRhs, {1.0, 0.0}, 2.0);
  ForceSteps(call, h);
  Worst worst;
  call.model_context = &worst;
  call.iout = 1;
  call.step_callback = MeasureDense;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  return worst.value;
}

// A linear problem of index 2 with a varying coefficient: y1' = y2, y2' = -y1 + (2 + sin x) (z - p(x)),
// 0 = y1 + y2 - sin x - cos x, with p(x) = 2 + cos 3x. Its solution is y1 = sin x, y2 = cos x, z = p.
void Index2Rhs(std::int32_t, double x, const double* y, double* f, void*, void*) {
  const double weight = 2.0 + std::sin(x);
  const double p = 2.0 + std::cos(3.0 * x);
  f[0] = y[1];
  f[1] = -y[0] + weight * (y[2] - p);
  f[2] = y[0] + y[1] - std::sin(x) - std::cos(x);
}

void Index2Mass(std::int32_t, double* FMAS, std::int32_t rows, void*, void*) {
  FMAS[0] = FMAS[rows] = 1.0;
  FMAS[2 * rows] = 0.0;
}

struct Index2Errors {
  double differential = 0.0;
  double algebraic = 0.0;
};

Index2Errors ErrorOfIndex2(double h) {
  IntegratorCall call(Index2Rhs, {0.0, 1.0, 3.0}, 2.0);
  ForceSteps(call, h);
  call.Iwork(5) = 2;
  call.Iwork(6) = 1;
  call.imas = 1;
  call.mass_callback = Index2Mass;
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  return {std::abs(call.y[0] - std::sin(2.0)), std::abs(call.y[2] - (2.0 + std::cos(6.0)))};
}

// The error estimate of the first step, from the length that the classical controller proposes for the second:
// h_new = h * 0.9 / err^0.25 after one Newton iteration, which is exact for a pure quadrature.
double ErrorEstimate(double h) {
  IntegratorCall call([](std::int32_t, double x, const double*, double* f, void*, void*) { f[0] = std::exp(x); }, {1.0},
                      1e6);
  call.SetTolerance(1e-8, 1e-8);
  call.h = h;
  call.Work(4) = 1e12;
  call.Work(9) = 1e9;
  call.Iwork(8) = 2;
  call.Iwork(2) = 1;
  call.SizeAndRun();
  EXPECT_EQ(call.ReadCounters().accepted_count, 1);
  return std::pow(0.9 * h / call.h, 4);
}

}  // namespace

TEST(Order, TheSolutionIsOfOrderFive) {
  const double coarse = SolutionError(1.0 / 4.0);
  const double middle = SolutionError(1.0 / 8.0);
  const double fine = SolutionError(1.0 / 16.0);
  RecordProperty("order", std::to_string(ObservedOrder(middle, fine)));
  EXPECT_GT(ObservedOrder(coarse, middle), 4.8);
  EXPECT_GT(ObservedOrder(middle, fine), 4.8);
}

TEST(Order, TheDenseOutputIsOfOrderFour) {
  const double middle = DenseError(1.0 / 16.0);
  const double fine = DenseError(1.0 / 32.0);
  RecordProperty("order", std::to_string(ObservedOrder(middle, fine)));
  EXPECT_NEAR(ObservedOrder(middle, fine), 4.0, 0.25);
}

TEST(Order, TheAlgebraicComponentOfIndexTwoIsOfOrderThree) {
  const Index2Errors middle = ErrorOfIndex2(1.0 / 16.0);
  const Index2Errors fine = ErrorOfIndex2(1.0 / 32.0);
  RecordProperty("order", std::to_string(ObservedOrder(middle.algebraic, fine.algebraic)));
  EXPECT_NEAR(ObservedOrder(middle.algebraic, fine.algebraic), 3.0, 0.3);
  EXPECT_GT(ObservedOrder(middle.differential, fine.differential), 4.0);
}

TEST(Order, TheErrorEstimateIsOfOrderFour) {
  const double order = ObservedOrder(ErrorEstimate(0.02), ErrorEstimate(0.01));
  RecordProperty("order", std::to_string(order));
  EXPECT_NEAR(order, 4.0, 0.1);
}

}  // namespace vorlen::test
