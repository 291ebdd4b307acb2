// The search for the density of V-defects that brings the energy balance back to zero.
//
// The balance is as simple as possible: no loop energy, one tensile segment of effective thickness w, so that
//   F(rho) = J0 + A ln(1 + 2 rho L_TD w)
// rises from J0 and has its root where we put it. A bisection ends at the middle of an interval whose width shows how
// often the bracket was halved: result = lower end + odd number * width / 2^(n+1).
#include <gtest/gtest.h>

#include <limits>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"
#include "strain/v_defects.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double CAP = 1e17;  // m^-2

struct RootSearch : testing::Test {
  std::unique_ptr<SurfChemNonst> m = small_model(STRESS_V_dislocation);
  RootSearch() {
    m->E_line = 0.0;
    m->z = 4e-7;
    m->z0 = 1e-7;
    m->rho_TD_z0 = 0.0;
    m->segments.tensile = {{3e-7, 4e-7, 0.0}};
  }
  // Shifts the balance so that its root is rho: F(rho) is exactly zero there.
  void put_root_at(double rho) { m->J0 = -J2_of(*m, rho); }
  double solve() const { return solve_rho_VD(*m); }
};

// result is the middle of one of the intervals that n halvings of [lower, upper] leave, the one with the root.
void expect_bisected(double lower, double upper, int n, double root, double result) {
  const double half = (upper - lower) / std::ldexp(1.0, n + 1);
  const double halves = (result - lower) / half;
  EXPECT_NEAR(halves, std::round(halves), 1e-9) << n << " halvings of [" << lower << ", " << upper << "]";
  EXPECT_EQ(std::fmod(std::round(halves), 2.0), 1.0) << n << " halvings of [" << lower << ", " << upper << "]";
  EXPECT_LE(std::fabs(result - root), half);
}

TEST_F(RootSearch, TheSyntheticBalanceIsTheFormulaAbove) {
  const double w = 2e-7;
  const double A = MODULUS * B_BURGERS * B_BURGERS / REACTION_LENGTH * w * 1e-7;
  m->J0 = -1e-3;
  EXPECT_TRUE(close_to(-1e-3 + A * std::log1p(2e15 * REACTION_LENGTH * w), energy_balance(*m, 0.0, 1e15), 1e-12));
}

TEST_F(RootSearch, AtTheCapTheDensityStaysThere) {
  for (double rho : {CAP, std::nextafter(CAP, 1e18), 1e20}) {
    m->rho_VD = rho;
    m->J0 = 1.0;
    EXPECT_EQ(solve(), CAP);
  }
}

TEST_F(RootSearch, JustBelowTheCapTheBalanceDecides) {
  const double rho = std::nextafter(CAP, 0.0);
  m->rho_VD = rho;
  m->J0 = 1.0;
  EXPECT_EQ(solve(), rho);
  m->J0 = -1.0;
  EXPECT_EQ(solve(), CAP);
}

TEST_F(RootSearch, ABalanceOfExactlyZeroChangesNothing) {
  m->rho_VD = 3e12;
  put_root_at(3e12);
  ASSERT_EQ(energy_balance(*m, 0.0, 3e12), 0.0);
  EXPECT_EQ(solve(), 3e12);
}

TEST_F(RootSearch, ABalanceCountsAsZeroAboveMinusTenToTheMinus40) {
  m->segments.tensile.clear();
  m->rho_VD = 3e12;
  m->J0 = std::nextafter(-1e-40, 0.0);
  EXPECT_EQ(solve(), 3e12);
  // Negative now, without a root: the first trial has the same balance, which is not below 1e-40 in size.
  m->J0 = -1e-40;
  EXPECT_EQ(solve(), CAP);
}

TEST_F(RootSearch, APositiveBalanceLeavesTheDensityAsItIs) {
  for (double rho : {0.0, 5e9, 9e16}) {
    m->rho_VD = rho;
    m->J0 = 1e-30;
    EXPECT_EQ(solve(), rho);
  }
}

TEST_F(RootSearch, TheFirstTrialFromZeroIsTenToTheNine) {
  // The tolerance of [0, 1e9] is 1e6, not 1e-4 * 1e9: 1e9 / 2^10 is the first width below it.
  for (double root : {2.3e7, 4.56e8, 9.87e8}) {
    put_root_at(root);
    m->rho_VD = 0.0;
    expect_bisected(0.0, 1e9, 10, root, solve());
  }
}

TEST_F(RootSearch, EachTrialIsTenTimesTheLastAndTheBracketIsBetweenTwoOfThem) {
  // Widths 9e9, 9e12 and a tolerance of 1e-4 of the upper end: 0.9 / 2^14 is the first below 1e-4.
  for (double decade : {1e9, 1e10, 1e13}) {
    const double root = 3.21 * decade;
    put_root_at(root);
    m->rho_VD = 0.0;
    expect_bisected(decade, 10.0 * decade, 14, root, solve());
  }
}

TEST_F(RootSearch, FromADensityAboveTenToTheEightTheFirstTrialIsTenTimesThat) {
  put_root_at(1.7e13);
  m->rho_VD = 4e12;
  expect_bisected(4e12, 4e13, 14, 1.7e13, solve());
}

TEST_F(RootSearch, FromADensityBelowTenToTheEightTheFirstTrialIsTenToTheNine) {
  put_root_at(5e8);
  m->rho_VD = 3e7;
  expect_bisected(3e7, 1e9, 10, 5e8, solve());
}

TEST_F(RootSearch, TheLastTrialIsTheCap) {
  put_root_at(7e16);
  m->rho_VD = 4e16;
  // Width 6e16, tolerance 1e13: 13 halvings leave 7.3e12.
  expect_bisected(4e16, CAP, 13, 7e16, solve());
}

TEST_F(RootSearch, TheBracketBelowTheCapNeeds14Halvings) {
  // 9e16 / 2^13 = 1.1e13 is still above the tolerance of 1e13.
  for (double root : {1.2e16, 5.5e16, 9.9e16}) {
    put_root_at(root);
    m->rho_VD = 1e16;
    expect_bisected(1e16, CAP, 14, root, solve());
  }
}

TEST_F(RootSearch, ABalanceThatStaysNegativeGivesTheCap) {
  m->J0 = -1.0;
  m->rho_VD = 0.0;
  EXPECT_EQ(solve(), CAP);
}

TEST_F(RootSearch, ARootExactlyAtATrialIsTakenAsItIs) {
  for (double root : {1e9, 1e10, 1e13}) {
    put_root_at(root);
    m->rho_VD = 0.0;
    EXPECT_EQ(solve(), root);
  }
  put_root_at(CAP);
  EXPECT_EQ(solve(), CAP);
}

TEST_F(RootSearch, ABracketWithinTheToleranceIsNotHalved) {
  put_root_at(99999.5e12);
  m->rho_VD = 99995e12;  // 5e12 below the cap, the tolerance is 1e13
  EXPECT_EQ(solve(), (99995e12 + 1e17) * 0.5);
}

TEST_F(RootSearch, ADensityOfNaNEndsAtTheLimitOfHalvings) {
  // No comparison holds then, so only the limit ends the loop.
  m->rho_VD = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(std::isnan(solve()));
}

TEST_F(RootSearch, ABalanceOfNaNGivesTheCap) {
  m->J0 = std::numeric_limits<double>::quiet_NaN();
  m->rho_VD = 0.0;
  EXPECT_EQ(solve(), CAP);
}

TEST_F(RootSearch, TheLoopEnergyIsPartOfTheBalance) {
  put_root_at(5e13);
  m->rho_VD = 0.0;
  // The loop energy lowers the density that is needed.
  const double without = solve();
  m->E_line = 1e-9;
  ASSERT_LT(loop_energy(*m, m->z, m->z0), -m->J0);
  EXPECT_LT(solve(), without);
}

}  // namespace
}  // namespace vorlen_test
