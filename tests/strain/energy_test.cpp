// Energy terms of the V-defects: line energy, loop energy, the closed integral of a segment, and the defects' term.
//
// F_segment and J2_of are checked against quadrature of x ln(1 + k x), the rest against the formula with its numbers
// written out.
#include <gtest/gtest.h>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double PI_ = 3.141592653589793;

// Integral of x ln(1 + k x) from a to b by quadrature.
double integral(double k, double a, double b) {
  return simpson([k](double x) { return x * std::log1p(k * x); }, a, b, 20000);
}

TEST(LineEnergy, ItWeighsTheShearModuliOfInNAndGaNWithTheReferenceComposition) {
  for (double X : {0.0, 0.1, 1.0}) {
    ProcessRecipe recipe = small_recipe(STRESS_V_dislocation);
    recipe.X_ref = X;
    const auto m = model_of(recipe);
    // (C11 - C12) / 2: GaN (367 - 135) / 2 = 116 GPa, InN (223 - 115) / 2 = 54 GPa; cos(45 degrees).
    const double G = 116e9 * (1.0 - X) + 54e9 * X;
    const double E = 2.0 * 1.08521 * G * B_BURGERS * B_BURGERS / (4.0 * PI_ * 0.757) * std::sqrt(2.0);
    EXPECT_TRUE(close_to(E, m->E_line)) << X;
  }
}

TEST(LineEnergy, AnAngleNear90DegreesMakesItLargeButFinite) {
  ProcessRecipe recipe = small_recipe(STRESS_V_dislocation);
  const double at_45 = model_of(recipe)->E_line;
  recipe.V_angle_05 = 89.98;
  const double steep = model_of(recipe)->E_line;
  // cos(89.98 degrees) = sin(0.02 degrees).
  EXPECT_TRUE(close_to(at_45 * std::sqrt(0.5) / std::sin(0.02 * PI_ / 180.0), steep, 1e-10));
  EXPECT_TRUE(std::isfinite(steep));
}

TEST(LoopEnergy, ItGrowsWithTheHeightAndItsLogarithm) {
  const auto m = small_model(STRESS_V_dislocation);
  const double d = 5e-8;
  const double expected = d * m->E_line * std::log((d / 3.189e-10 - 1.0) * std::sqrt(0.5) + 1.0);
  EXPECT_TRUE(close_to(expected, loop_energy(*m, 1.5e-7, 1e-7), 1e-12));
  EXPECT_EQ(loop_energy(*m, 1e-7, 1e-7), 0.0);
}

TEST(LoopEnergy, TheBurgersVectorInTheLogarithmIsFixed) {
  const auto m = small_model(STRESS_V_dislocation);
  const double before = loop_energy(*m, 2e-7, 1e-7);
  m->b_burgers *= 2.0;
  EXPECT_EQ(loop_energy(*m, 2e-7, 1e-7), before);
}

TEST(FSegment, ItIsTheIntegralOfXTimesTheLogarithm) {
  for (double kx : {0.01, 0.1, 1.0, 10.0, 1000.0}) {
    const double k = 5e6;
    const double x = kx / k;
    // The closed form loses 1/(kx)^2 of its digits to cancellation.
    const double tolerance = 1e-12 + 4e-15 / (kx * kx);
    EXPECT_TRUE(close_to(integral(k, 0.0, x), F_segment(k, x), tolerance)) << "k x = " << kx;
  }
}

TEST(FSegment, AKnownValueAtOne) {
  // k = x = 1: 1/2 - 1/4 - ln(2) * 0.
  EXPECT_EQ(F_segment(1.0, 1.0), 0.25);
}

TEST(FSegment, SmallArgumentsGiveZero) {
  EXPECT_EQ(F_segment(1.0, 0.0), 0.0);
  EXPECT_EQ(F_segment(1.0, -5.0), 0.0);
  EXPECT_EQ(F_segment(1e6, -1e-7), 0.0);
  EXPECT_EQ(F_segment(1.0, std::nextafter(1e-6, 0.0)), 0.0);
  EXPECT_EQ(F_segment(0.0, 1.0), 0.0);
  // Above the cut the closed form is used, with the rounding error that it has there.
  const double x = 1e-6;
  EXPECT_EQ(F_segment(1.0, x), 0.5 * x - 0.25 * x * x - std::log(x + 1.0) * 0.5 * (1.0 - x * x));
}

struct WithDefects : testing::Test {
  std::unique_ptr<SurfChemNonst> m = small_model(STRESS_V_dislocation);
  const double z0 = 3e-7;
  WithDefects() {
    m->z0 = z0;
    m->h_z0 = 4e-8;
    m->rho_TD_z0 = 4e12;
  }
  // Reciprocal length of the defects' law, 1/m; tan(45 degrees) = 1.
  double k_of(double rho) const { return REACTION_LENGTH * (2.0 * rho + m->rho_TD_z0); }
  static constexpr double FACTOR = MODULUS * B_BURGERS * B_BURGERS / REACTION_LENGTH;
};
using J2 = WithDefects;

TEST_F(J2, WithoutAnyDislocationItIsZero) {
  // A segment of a metre, so that the smallest k still shows in its logarithm.
  m->segments.tensile = {{1.0, 2.0, 0.0}};
  m->rho_TD_z0 = 0.0;
  EXPECT_EQ(J2_of(*m, 0.0), 0.0);
  // k < 1e-10: 2 rho L_TD, so rho below 1e-10 / 6.2e-8.
  EXPECT_EQ(J2_of(*m, 0.99e-10 / 6.2e-8), 0.0);
  EXPECT_GT(J2_of(*m, 1.01e-10 / 6.2e-8), 0.0);
}

TEST_F(J2, WithoutSegmentsItIsZero) { EXPECT_EQ(J2_of(*m, 1e14), 0.0); }

TEST_F(J2, CompressiveSegmentsCountByTheIntegralOverTheirEffectiveThickness) {
  // No tension up to 5e-7, then 1e-8 of it before the second segment.
  m->segments.relaxing = {{z0, 5e-7, 4e-8}, {5.2e-7, 8e-7, 5e-8}};
  for (double rho : {0.0, 1e13, 1e16}) {
    const double k = k_of(rho);
    const double expected = FACTOR * (integral(k, 0.0, 2e-7) + integral(k, 2.1e-7, 4.9e-7));
    EXPECT_TRUE(close_to(expected, J2_of(*m, rho), 1e-9)) << rho;
  }
}

TEST_F(J2, TensileSegmentsCountWithAConstantIntegrand) {
  m->segments.tensile = {{5e-7, 5.2e-7, 4e-8}, {6e-7, 7e-7, 6e-8}};
  const double k = k_of(1e14);
  const double w1 = 2e-7;  // 200 nm above z0, no tension since
  const double w2 = 2.8e-7;
  const double expected = FACTOR * (std::log1p(k * w1) * w1 * 2e-8 + std::log1p(k * w2) * w2 * 1e-7);
  EXPECT_TRUE(close_to(expected, J2_of(*m, 1e14), 1e-12));
}

TEST_F(J2, SegmentsBelowTheFirstOnesThatCountAreLeftOut) {
  m->segments.relaxing = {{1e-7, 2e-7, 0.0}, {z0, 5e-7, 4e-8}};
  m->segments.tensile = {{2e-7, z0, 0.0}, {5e-7, 6e-7, 4e-8}};
  m->segments.relaxing_first = 1;
  m->segments.tensile_first = 1;
  const double k = k_of(1e14);
  const double w = 2e-7;
  const double expected = FACTOR * (integral(k, 0.0, w) + std::log1p(k * w) * w * 1e-7);
  EXPECT_TRUE(close_to(expected, J2_of(*m, 1e14), 1e-9));
  m->segments.relaxing_first = 2;
  m->segments.tensile_first = 2;
  EXPECT_EQ(J2_of(*m, 1e14), 0.0);
}

TEST_F(J2, ASegmentThatEndsBelowTheReferenceDepthAddsNothing) {
  m->segments.relaxing = {{1e-7, 2e-7, 4e-8}};
  EXPECT_EQ(J2_of(*m, 1e14), 0.0);
}

TEST_F(J2, ItRisesWithTheDensity) {
  m->segments.relaxing = {{z0, 5e-7, 4e-8}};
  double last = J2_of(*m, 0.0);
  for (double rho = 1e9; rho <= 1e17; rho *= 10.0) {
    EXPECT_GT(J2_of(*m, rho), last);
    last = J2_of(*m, rho);
  }
}

TEST_F(J2, TheBalanceIsTheSumOfItsFourTerms) {
  m->segments.relaxing = {{z0, 5e-7, 4e-8}};
  m->J0 = -3.0;
  m->J1 = 0.25;
  const double J2_value = J2_of(*m, 1e14);
  EXPECT_EQ(energy_balance(*m, 1.0, 1e14), 1.0 + -3.0 + 0.25 + J2_value);
  // Summed from left to right: the large first pair cancels before the small terms are added.
  m->J0 = -1e20;
  EXPECT_EQ(energy_balance(*m, 1e20, 1e14), 0.25 + J2_value);
}

}  // namespace
}  // namespace vorlen_test
