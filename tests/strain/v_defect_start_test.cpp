// The depth at which V-defects open, what is frozen there, and the update of the balance from then on.
#include <gtest/gtest.h>

#include <limits>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"
#include "strain/v_defects.h"
#include "strain/z0_search.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr std::uint32_t NO_INDEX = std::numeric_limits<std::uint32_t>::max();
constexpr double LEAST_DEPTH = 3e-10 * 3.189;  // three Burgers vectors, 9.567e-10 m

// A history of points at the depths z; the integrals stay at 0 in it. I1 of the current point steers the balance:
// without I0 it is loop_energy(z, z_i) + I1.
std::unique_ptr<SurfChemNonst> model_with_history(const std::vector<double>& depths, double z, double I1) {
  auto m = small_model(STRESS_V_dislocation);
  const std::vector<double> zeros(depths.size(), 0.0);
  m->history.z = depths;
  m->history.t = zeros;
  m->history.h = zeros;
  m->history.I0 = zeros;
  m->history.I1 = zeros;
  m->history.J0_0 = zeros;
  m->history.J0_1 = zeros;
  m->z = z;
  m->I1 = I1;
  return m;
}

TEST(FindZ0, TheDepthWithTheMostNegativeBalanceIsTaken) {
  const auto m = model_with_history({1.0e-7, 1.1e-7, 1.2e-7, 1.3e-7, 1.4e-7}, 1.5e-7, 0.0);
  // Integral terms that outweigh the loop energy of about 1e-15 J/m, most of all at the third point.
  m->history.I1 = {0.0, 1e-13, 3e-13, 2e-13, 0.0};
  find_z0(*m);
  EXPECT_EQ(m->z0_index, 2u);
  EXPECT_EQ(m->z0, 1.2e-7);
}

TEST(FindZ0, TheIntegralTermTakesTheEffectiveThicknessOfTheCandidate) {
  const auto m = model_with_history({}, 1.5e-7, 4e-13);
  m->I0 = 7e-6;
  // A candidate 40 nm above the start, 10 of them in tension.
  EXPECT_TRUE(close_to((4e-13 - 5e-14) - (7e-6 - 2e-6) * 3e-8, K1_of(*m, 1.4e-7, 1e-8, 2e-6, 5e-14), 1e-12));
}

TEST(FindZ0, ACandidateIsThreeBurgersVectorsBelowTheSurface) {
  const double z = 1.5e-7;
  const double limit = z - LEAST_DEPTH;
  const auto at = model_with_history({limit}, z, -1.0);
  find_z0(*at);
  EXPECT_EQ(at->z0, limit);
  const auto above = model_with_history({std::nextafter(limit, 1.0)}, z, -1.0);
  find_z0(*above);
  EXPECT_EQ(above->z0, -1e-9);
  EXPECT_EQ(above->z0_index, NO_INDEX);
}

TEST(FindZ0, GrowthThinnerThanThatNeverGivesACandidate) {
  const auto m = model_with_history({1e-7, 1.005e-7}, 1e-7 + 9.5e-10, -1.0);
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
}

TEST(FindZ0, TheSearchStopsAtTheFirstDepthTooCloseToTheSurface) {
  // Etched back: a later point is deeper again.
  const auto m = model_with_history({1.5e-7, 1.0e-7}, 1.5e-7, -1.0);
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
}

TEST(FindZ0, TheFirstOfEqualMinimaStays) {
  const auto m = model_with_history({1e-7, 1e-7, 1e-7}, 1.5e-7, -1.0);
  find_z0(*m);
  EXPECT_EQ(m->z0_index, 0u);
}

TEST(FindZ0, WithoutANegativeBalanceNothingChanges) {
  const auto m = model_with_history({1e-7, 1.1e-7, 1.2e-7}, 1.5e-7, 1.0);
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
  EXPECT_EQ(m->z0_index, NO_INDEX);
}

TEST(FindZ0, ABalanceOfExactlyZeroIsNotNegative) {
  const auto m = model_with_history({1e-7}, 1.5e-7, 0.0);
  m->E_line = 0.0;
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
  m->I1 = -std::numeric_limits<double>::denorm_min();
  find_z0(*m);
  EXPECT_EQ(m->z0, 1e-7);
}

TEST(FindZ0, AnEmptyHistoryGivesNothing) {
  const auto m = model_with_history({}, 1.5e-7, -1.0);
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
}

TEST(FindZ0, AThicknessOfNaNReadsNothingPastTheEndOfTheLists) {
  const auto m = model_with_history({1e-7, 1.1e-7}, std::numeric_limits<double>::quiet_NaN(), 0.0);
  // As in a recorded step: time and depth hold the current point already, the others do not.
  m->history.t.push_back(1.0);
  m->history.z.push_back(m->z);
  m->history.I1 = {1.0, 2.0};
  for (auto* list : {&m->history.t, &m->history.z, &m->history.h, &m->history.I0, &m->history.I1})
    list->shrink_to_fit();
  find_z0(*m);
  EXPECT_EQ(m->z0, -1e-9);
}

// Defects that open at the second of three points, 300 nm above the start.
struct Start : testing::Test {
  std::unique_ptr<SurfChemNonst> m = model_with_history({1e-7, 4e-7, 5e-7}, 6e-7, 0.0);
  Start() {
    m->z0 = 4e-7;
    m->z0_index = 1;
    m->history.h = {0.0, 5e-8, 6e-8};
    m->history.I0 = {0.0, 1.0, 2.0};
    m->history.I1 = {0.0, 3.0, 4.0};
    m->history.J0_0 = {0.0, 5.0, 6.0};
    m->history.J0_1 = {0.0, 7.0, 8.0};
  }
};

TEST_F(Start, TheValuesAtZ0AreFrozen) {
  m->rho_VD = 1e15;
  start_V_defects(*m);
  EXPECT_EQ(m->h_z0, 5e-8);
  EXPECT_EQ(m->J0_0_z0, 5.0);
  EXPECT_EQ(m->J0_1_z0, 7.0);
  EXPECT_EQ(m->rho_VD, 0.0);
  // 250 nm of effective thickness on 5e12 m^-2.
  EXPECT_TRUE(close_to(1.0 / (2e-13 + 3.1e-8 * 2.5e-7), m->rho_TD_z0));
  EXPECT_TRUE(close_to(m->rho_TD_z0, 1e4 * m->rho_TD_at(0.0, 4e-7, 5e-8)));
  EXPECT_TRUE(close_to(std::log(5e12 * 3.1e-8 * 2.5e-7 + 1.0) * B_BURGERS / 6.2e-8, m->eps_r_z0));
}

TEST_F(Start, WithoutDislocationsBelowThereAreNoneAtZ0) {
  m->rho_TD0 = std::nextafter(1e-5, 0.0);
  start_V_defects(*m);
  EXPECT_EQ(m->rho_TD_z0, 0.0);
  m->rho_TD0 = 1e-5;
  start_V_defects(*m);
  EXPECT_DOUBLE_EQ(m->rho_TD_z0, 1e-5);
}

TEST_F(Start, EmptySegmentListsBeginAtZero) {
  m->segments.relaxing_first = 9;
  m->segments.tensile_first = 9;
  start_V_defects(*m);
  EXPECT_EQ(m->segments.relaxing_first, 0u);
  EXPECT_EQ(m->segments.tensile_first, 0u);
}

TEST_F(Start, SegmentsBelowZ0DoNotCount) {
  m->segments.relaxing = {{1e-7, 2e-7, 0.0}, {3e-7, 4e-7, 1e-9}};
  m->segments.tensile = {{2e-7, 3e-7, 0.0}};
  start_V_defects(*m);
  EXPECT_EQ(m->segments.relaxing_first, 2u) << "a segment that ends at z0 is below it";
  EXPECT_EQ(m->segments.tensile_first, 1u);
  EXPECT_EQ(m->segments.relaxing[1].z_from, 3e-7);
  EXPECT_EQ(m->segments.tensile[0].z_from, 2e-7);
}

TEST_F(Start, ACompressiveSegmentAcrossZ0IsCutThere) {
  m->segments.relaxing = {{1e-7, 2e-7, 0.0}, {3e-7, 5e-7, 1e-9}, {5.5e-7, 6e-7, 2e-9}};
  start_V_defects(*m);
  EXPECT_EQ(m->segments.relaxing_first, 1u);
  EXPECT_EQ(m->segments.relaxing[1].z_from, 4e-7);
  EXPECT_EQ(m->segments.relaxing[1].z_to, 5e-7);
  EXPECT_EQ(m->segments.relaxing[1].h_from, 1e-9) << "no tension inside";
  EXPECT_EQ(m->segments.relaxing[2].z_from, 5.5e-7) << "only the first one that counts is touched";
}

TEST_F(Start, ACompressiveSegmentAboveZ0StaysWhereItStarts) {
  m->segments.relaxing = {{4.5e-7, 5e-7, 1e-9}};
  start_V_defects(*m);
  EXPECT_EQ(m->segments.relaxing_first, 0u);
  EXPECT_EQ(m->segments.relaxing[0].z_from, 4.5e-7);
}

TEST_F(Start, ATensileSegmentAcrossZ0IsCutThereWithTheTensionUpToIt) {
  m->segments.tensile = {{3e-7, 5e-7, 1e-9}};
  start_V_defects(*m);
  EXPECT_EQ(m->segments.tensile_first, 0u);
  EXPECT_EQ(m->segments.tensile[0].z_from, 4e-7);
  EXPECT_DOUBLE_EQ(m->segments.tensile[0].h_from, 1e-9 + 1e-7);
}

TEST_F(Start, ATensileSegmentAboveZ0IsMovedDownToIt) {
  m->segments.tensile = {{4.5e-7, 5e-7, 1e-9}, {5.5e-7, 6e-7, 2e-9}};
  start_V_defects(*m);
  EXPECT_EQ(m->segments.tensile[0].z_from, 4e-7);
  EXPECT_EQ(m->segments.tensile[0].h_from, 1e-9);
  EXPECT_EQ(m->segments.tensile[1].z_from, 5.5e-7);
}

// After the opening, one step from 500 to 600 nm; the balance is positive, so the density stays.
struct Update : Start {
  Update() {
    start_V_defects(*m);
    m->z_prev = 5e-7;
    m->h_prev = 6e-8;
    m->J1 = 0.0;
    m->E_line = 1e10;
  }
  // Stress of the strain relieved up to z0; tan(45 degrees) = 1.
  double relieved_stress() const { return 2.0 * MODULUS * B_BURGERS * m->eps_r_z0; }
};

TEST_F(Update, TheTermOfTheMismatchIsTheMomentAboutTheEffectiveThicknessAtZ0) {
  m->J0_0 = 5.5;
  m->J0_1 = 9.0;
  update_V_defects(*m, m->eps_xx_last_trial);
  const double w0 = 2.5e-7;
  EXPECT_TRUE(close_to(0.5 - 2.0 * w0, m->J0));
}

TEST_F(Update, CompressiveGrowthAddsTheIntegralOfTheThicknessAboveZ0) {
  update_V_defects(*m, 0.0);
  // Effective thickness since z0 at the middle of the step, 550 nm, with 10 nm of tension since z0; times 100 nm.
  EXPECT_TRUE(close_to(relieved_stress() * (1.5e-7 - 1e-8) * 1e-7, m->J1, 1e-12));
}

TEST_F(Update, TensileGrowthAddsWithTheThicknessAtTheStartOfTheStep) {
  update_V_defects(*m, std::numeric_limits<double>::denorm_min());
  EXPECT_TRUE(close_to(relieved_stress() * (1e-7 - 1e-8) * 1e-7, m->J1, 1e-12));
}

TEST_F(Update, TheTermOfTheRelievedStrainAccumulates) {
  update_V_defects(*m, 0.0);
  const double once = m->J1;
  update_V_defects(*m, m->eps_xx_last_trial);
  EXPECT_DOUBLE_EQ(m->J1, 2.0 * once);
}

TEST_F(Update, TheTermOfTheDefectsIsTakenAtTheDensityBeforeTheSearch) {
  m->segments.relaxing = {{4e-7, 6e-7, 5e-8}};
  m->rho_VD = 1e12;
  m->E_line = 0.0;
  m->J0_0 = m->J0_0_z0 - 1.0;  // far below zero
  const double J2_before = J2_of(*m, 1e12);
  update_V_defects(*m, m->eps_xx_last_trial);
  EXPECT_EQ(m->J2, J2_before);
  EXPECT_EQ(m->rho_VD, 1e17) << "no density balances it";
}

TEST_F(Update, APositiveBalanceLeavesTheDensity) {
  m->rho_VD = 1e12;
  m->J0_0 = m->J0_0_z0 + 1.0;
  update_V_defects(*m, m->eps_xx_last_trial);
  EXPECT_EQ(m->rho_VD, 1e12);
}

TEST_F(Update, StepsBetweenRecordedPointsAddNothing) {
  m->history.t = {9.0, 9.5, 10.0};
  m->t_prev = 10.0;
  m->eps_xx_last_trial = -1e-3;
  const double J0_0 = m->J0_0_z0 + 1.0;
  accept(*m, 10.0005, {.z = 5.5e-7, .h = 6e-8, .J0_0 = J0_0});
  EXPECT_EQ(m->J1, 0.0);
  accept(*m, 10.0015, {.z = 6e-7, .h = 6e-8, .J0_0 = J0_0});
  // Only the step from 550 to 600 nm counts, with its middle at 575 nm.
  EXPECT_TRUE(close_to(relieved_stress() * (1.75e-7 - 1e-8) * 5e-8, m->J1, 1e-12));
}

}  // namespace
}  // namespace vorlen_test
