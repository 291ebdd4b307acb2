// Accepted steps: growth rate, depth segments, which points are recorded, and which lists grow.
#include <gtest/gtest.h>

#include <limits>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double SPACING = 0.0009999999999;  // recorded points are further apart, s

// No pre-stage, one stage from 0 to 10 s: times and depths are those of the step.
std::unique_ptr<SurfChemNonst> model_from_zero(std::int32_t stress_model, const std::string& output_path = "") {
  ProcessRecipe recipe = bare_recipe(stress_model);
  add(recipe, small_stage(10.0));
  return model_of(recipe, output_path);
}

TEST(History, TheFirstPointIsTheInitialStateAtTheStartWithoutGrowthRate) {
  const auto m = small_model(STRESS_OFF);
  accept(*m, 10.0, {.z = 1e-7});
  EXPECT_EQ(m->history.t, std::vector<double>{10.0});
  EXPECT_EQ(m->history.z, std::vector<double>{m->z_start});
  EXPECT_EQ(m->history.Vg, std::vector<double>{0.0});
}

TEST(History, TheGrowthRateIsThatOfTheLastStepAlone) {
  const auto m = small_model(STRESS_OFF);
  accept(*m, 10.0, {.z = 1e-7});
  accept(*m, 11.0, {.z = 1.02e-7});
  EXPECT_TRUE(close_to(2e-9, m->Vg, 1e-7));
  accept(*m, 11.5, {.z = 1.05e-7});
  EXPECT_EQ(m->Vg, (1.05e-7 - 1.02e-7) / 0.5);
  EXPECT_EQ(m->history.Vg.back(), m->Vg);
  EXPECT_EQ(m->z_prev, 1.05e-7);
  EXPECT_EQ(m->t_prev, 11.5);
}

TEST(History, EqualOrEarlierTimesGiveNoGrowthRate) {
  const auto m = small_model(STRESS_OFF);
  accept(*m, 11.0, {.z = 1.1e-7});
  accept(*m, 11.0, {.z = 1.2e-7});
  EXPECT_EQ(m->Vg, 0.0);
  accept(*m, 10.5, {.z = 1.3e-7});
  EXPECT_EQ(m->Vg, 0.0);
}

TEST(History, AThicknessBelowTheStartIsRaisedToIt) {
  const auto m = small_model(STRESS_OFF);
  accept(*m, 10.0, {.z = 0.9e-7});
  EXPECT_EQ(m->history.z.back(), m->z_start);
}

TEST(History, HalfMillisecondStepsAreThinnedToEverySecondOne) {
  const auto m = model_from_zero(STRESS_OFF);
  for (int k = 0; k <= 9; ++k) accept(*m, k * 0.0005, {});
  EXPECT_EQ(m->history.t, (std::vector<double>{0.0, 0.001, 0.002, 0.003, 0.004}));
  EXPECT_EQ(m->t_prev, 9 * 0.0005) << "a step that is not recorded still is the last step";
}

TEST(History, TheSpacingCountsFromTheLastRecordedPoint) {
  const auto m = model_from_zero(STRESS_OFF);
  for (double t : {0.0, 0.0009, 0.0012, 0.0021, 0.0023}) accept(*m, t, {});
  EXPECT_EQ(m->history.t, (std::vector<double>{0.0, 0.0012, 0.0023}));
}

TEST(History, APointExactlyAtTheSpacingIsNotRecordedTheNextNumberIs) {
  const auto m = model_from_zero(STRESS_OFF);
  accept(*m, 0.0, {});
  accept(*m, SPACING, {});
  EXPECT_EQ(m->history.t.size(), 1u);
  accept(*m, std::nextafter(SPACING, 1.0), {});
  EXPECT_EQ(m->history.t.size(), 2u);
}

TEST(History, TheLastPointIsRecordedHoweverCloseItIs) {
  const auto m = model_from_zero(STRESS_OFF);
  ASSERT_EQ(m->t_end, 10.0);
  accept(*m, 0.0, {});
  accept(*m, 10.0 - 1e-6, {});
  accept(*m, 10.0 - 2e-10, {});
  EXPECT_EQ(m->history.t.size(), 2u) << "2e-10 s before the end is not the end";
  accept(*m, 10.0 - 0.9e-10, {});
  EXPECT_EQ(m->history.t.size(), 3u);
  accept(*m, 10.0, {});
  EXPECT_EQ(m->history.t.size(), 4u);
  EXPECT_EQ(m->history.t.back(), 10.0);
  accept(*m, 10.0 + 2e-10, {});
  EXPECT_EQ(m->history.t.size(), 4u) << "nor is 2e-10 s after it";
}

TEST(History, TheCompositionIsKeptUnclipped) {
  const auto m = small_model(STRESS_OFF);
  accept(*m, 10.0, {.z = 1e-7, .x_b = {-0.01, 1.02, -0.01}});
  EXPECT_EQ(m->history.x_In.back(), -0.01);
  EXPECT_EQ(m->history.x_Ga.back(), 1.02);
  EXPECT_EQ(m->history.x_Al.back(), -0.01);
  EXPECT_EQ(m->x_b_clip[0], 0.0);
  EXPECT_EQ(m->x_b_clip[1], 1.0);
}

TEST(History, UnderTheSinglePointLayoutEveryStepIsRecordedWhileTheFileIsOpen) {
  const TempFolder folder;
  const auto m = model_from_zero(STRESS_OFF, folder.path("out.txt"));
  m->single_point.selected = true;
  m->detail_output = true;
  for (double t : {0.0, 1e-6, 2e-6}) accept(*m, t, {});
  EXPECT_EQ(m->history.t.size(), 3u);
  m->out.close();
  accept(*m, 5.0, {});
  accept(*m, 10.0, {});
  EXPECT_EQ(m->history.t.size(), 3u);
}

TEST(History, UnderTheSinglePointLayoutNothingIsRecordedWithoutAFile) {
  const auto m = model_from_zero(STRESS_OFF);
  m->single_point.selected = true;
  accept(*m, 0.0, {});
  EXPECT_TRUE(m->history.t.empty());
}

TEST(History, WithoutRelaxationSegmentsAndRelaxationListsStayEmpty) {
  const auto m = small_model(STRESS_OFF);
  m->eps_xx_last_trial = 0.01;
  for (int k = 0; k < 5; ++k) accept(*m, 10.0 + k, {.z = 1e-7 + k * 1e-9});
  EXPECT_EQ(m->history.t.size(), 5u);
  EXPECT_TRUE(m->segments.relaxing.empty());
  EXPECT_TRUE(m->segments.tensile.empty());
  for (const auto* list :
       {&m->history.h, &m->history.rho_VD, &m->history.I0, &m->history.I1, &m->history.J0_0, &m->history.J0_1})
    EXPECT_TRUE(list->empty());
}

TEST(History, SurfaceConcentrationsAreKeptWithDetailOutputAlone) {
  for (bool detail : {false, true}) {
    const auto m = small_model(STRESS_OFF);
    m->detail_output = detail;
    accept(*m, 10.0, {.z = 1e-7, .c_a = {1.0, 2.0, 3.0, 4.0, 5.0}});
    const std::vector<double>* lists[] = {&m->history.c_In, &m->history.c_Ga, &m->history.c_Al, &m->history.c_N,
                                          &m->history.c_H};
    double expected = 1.0;
    for (const auto* list : lists) {
      if (detail) {
        EXPECT_EQ(*list, std::vector<double>{expected++});
      } else {
        EXPECT_TRUE(list->empty());
      }
    }
    EXPECT_TRUE(m->history.K1.empty()) << "energy terms belong to the relaxation";
  }
}

TEST(FileSegment, AnAdjoiningIntervalExtendsTheLastSegment) {
  const auto m = small_model(STRESS_V_dislocation);
  std::vector<DepthSegment>& list = m->segments.relaxing;
  const auto append = [&](double z_from, double z_to, double h_from) {
    m->z_prev = z_from;
    m->z = z_to;
    m->h_prev = h_from;
    file_segment(*m, -1e-3);
  };
  append(1e-7, 2e-7, 3e-9);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].z_from, 1e-7);
  EXPECT_EQ(list[0].z_to, 2e-7);
  EXPECT_EQ(list[0].h_from, 3e-9);
  append(2e-7, 3e-7, 9e-9);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].z_to, 3e-7);
  EXPECT_EQ(list[0].h_from, 3e-9) << "h at the start of the segment stays";
  append(3e-7 + 0.9e-14, 4e-7, 9e-9);
  EXPECT_EQ(list.size(), 1u) << "a gap below 1e-14 m";
  append(4e-7 + 1.1e-14, 5e-7, 9e-9);
  ASSERT_EQ(list.size(), 2u) << "a gap above 1e-14 m";
  EXPECT_EQ(list[1].h_from, 9e-9);
  append(1e-7, 1.5e-7, 0.0);
  ASSERT_EQ(list.size(), 2u) << "the difference is signed: an interval far below continues the segment, too";
  EXPECT_EQ(list[1].z_to, 1.5e-7);
}

TEST(FileSegment, AGapOfExactlyTheLimitStartsANewSegment) {
  const auto m = small_model(STRESS_V_dislocation);
  std::vector<DepthSegment>& list = m->segments.tensile;
  list = {{-1.0, 0.0, 0.0}};
  m->z = 1.0;
  m->z_prev = 1e-14;
  file_segment(*m, 1e-3);
  EXPECT_EQ(list.size(), 2u);
  list.resize(1);
  m->z_prev = std::nextafter(1e-14, 0.0);
  file_segment(*m, 1e-3);
  EXPECT_EQ(list.size(), 1u);
}

TEST(History, StepsAreFiledByTheStrainOfTheLastTrialState) {
  const auto m = small_model(STRESS_V_dislocation);
  m->eps_xx_last_trial = 0.0;
  accept(*m, 10.0, {.z = 1e-7});
  ASSERT_EQ(m->segments.relaxing.size(), 1u) << "no strain counts as compression";
  EXPECT_EQ(m->segments.relaxing[0].z_from, m->segments.relaxing[0].z_to) << "the first segment has no length";
  accept(*m, 10.0001, {.z = 1.1e-7});
  ASSERT_EQ(m->segments.relaxing.size(), 1u);
  EXPECT_EQ(m->segments.relaxing[0].z_to, 1.1e-7) << "points that are not recorded count, too";

  m->eps_xx_last_trial = std::numeric_limits<double>::denorm_min();
  accept(*m, 10.0002, {.z = 1.2e-7, .h = 1e-9});
  ASSERT_EQ(m->segments.tensile.size(), 1u);
  EXPECT_EQ(m->segments.tensile[0].z_from, 1.1e-7);
  EXPECT_EQ(m->segments.tensile[0].h_from, 0.0) << "h at the start of the step";

  m->eps_xx_last_trial = -1e-3;
  accept(*m, 10.0003, {.z = 1.3e-7, .h = 1e-9});
  ASSERT_EQ(m->segments.relaxing.size(), 2u) << "the tensile interval separates the compressive ones";
  EXPECT_EQ(m->segments.relaxing[1].z_from, 1.2e-7);
  EXPECT_EQ(m->segments.relaxing[1].z_to, 1.3e-7);
  EXPECT_EQ(m->segments.relaxing[1].h_from, 1e-9);
}

TEST(History, GrowthBetweenTheTwoThresholdsIsTensileButDoesNotCountForH) {
  const auto m = small_model(STRESS_V_dislocation);
  m->rho_TD0 = 0.0;
  m->z = m->z_start;
  m->a_bulk = m->a_ref / (1.0 + 5e-5);  // a strain of 5e-5, between 0 and 1e-4
  double f[5];
  m->relaxation_rows(1e-9, f);
  EXPECT_NEAR(m->eps_xx_last_trial, 5e-5, 1e-15);
  EXPECT_EQ(f[0], 0.0);
  accept(*m, 10.0, {.z = 1e-7});
  EXPECT_EQ(m->segments.tensile.size(), 1u);
  EXPECT_TRUE(m->segments.relaxing.empty());
}

// Points 2 nm apart. From the fourth on the integral I1 makes the balance of earlier depths negative, so that z0 is
// found there, and J0_0 keeps it negative, so that the density of V-defects rises.
struct GrowthWithDefects {
  std::unique_ptr<SurfChemNonst> m = small_model(STRESS_V_dislocation);
  explicit GrowthWithDefects(bool detail = false) { m->detail_output = detail; }
  void grow(int first, int last) {
    for (int k = first; k <= last; ++k)
      accept(*m, 10.0 + k,
             {.z = 1e-7 + k * 2e-9, .I0 = k * 1e-9, .I1 = k < 3 ? k * 1e-22 : -1e-15, .J0_0 = k < 3 ? 0.0 : -1e-15});
  }
};

TEST(History, TheIntegralsAreKeptUpToThePointAtWhichDefectsOpen) {
  GrowthWithDefects growth;
  const SurfChemNonst& m = *growth.m;
  growth.grow(0, 2);
  EXPECT_LT(m.z0, 0.0);
  EXPECT_EQ(m.history.I0, (std::vector<double>{0.0, 1e-9, 2e-9}));
  EXPECT_EQ(m.history.I1, (std::vector<double>{0.0, 1e-22, 2e-22}));
  EXPECT_EQ(m.history.J0_0.size(), 3u);
  EXPECT_EQ(m.history.J0_1.size(), 3u);
  growth.grow(3, 3);
  EXPECT_GE(m.z0, m.z_start);
  ASSERT_LT(m.z0_index, 3u);
  EXPECT_EQ(m.z0, m.history.z[m.z0_index]);
  growth.grow(4, 6);
  EXPECT_EQ(m.history.t.size(), 7u);
  EXPECT_EQ(m.history.h.size(), 7u);
  EXPECT_EQ(m.history.rho_VD.size(), 7u);
  for (const auto* list : {&m.history.I0, &m.history.I1, &m.history.J0_0, &m.history.J0_1}) EXPECT_EQ(list->size(), 3u);
  EXPECT_EQ(m.history.rho_VD[2], 0.0);
  EXPECT_GT(m.history.rho_VD[3], 0.0);
  EXPECT_EQ(m.history.rho_VD[6], m.rho_VD);
}

TEST(History, TheEnergyTermsBeforeTheDefectsAreThoseOfALoopFromTheStart) {
  GrowthWithDefects growth(true);
  const SurfChemNonst& m = *growth.m;
  growth.grow(0, 2);
  ASSERT_EQ(m.history.deltaE.size(), 3u);
  for (std::size_t k = 0; k < 3; ++k) {
    const double K = m.history.I1[k] - m.history.I1[0];
    EXPECT_DOUBLE_EQ(m.history.K1[k], 1e10 * K);
    EXPECT_DOUBLE_EQ(m.history.deltaE[k], 1e10 * (K + loop_energy(m, m.history.z[k] - m.z_start, 0.0)));
    EXPECT_DOUBLE_EQ(m.history.E_V_loop[k], 1e10 * loop_energy(m, m.history.z[k], -1e-9));
    EXPECT_EQ(m.history.J0[k], 0.0);
    EXPECT_EQ(m.history.J1[k], 0.0);
    EXPECT_EQ(m.history.J2[k], 0.0);
    EXPECT_EQ(m.history.r[k], 0.0);
  }
}

TEST(History, TheEnergyTermsWithDefectsAreThoseOfTheBalance) {
  GrowthWithDefects growth(true);
  SurfChemNonst& m = *growth.m;
  growth.grow(0, 3);
  m.surface.mismatch = -0.75;
  growth.grow(4, 4);
  const double E = loop_energy(m, m.z, m.z0);
  EXPECT_DOUBLE_EQ(m.history.deltaE.back(), 1e10 * (E + m.J0 + m.J1 + J2_of(m, m.rho_VD)));
  EXPECT_DOUBLE_EQ(m.history.E_V_loop.back(), 1e10 * E);
  EXPECT_DOUBLE_EQ(m.history.J0.back(), 1e10 * m.J0);
  EXPECT_DOUBLE_EQ(m.history.J1.back(), 1e10 * m.J1);
  EXPECT_DOUBLE_EQ(m.history.J2.back(), 1e10 * m.J2);
  EXPECT_DOUBLE_EQ(m.history.K1.back(), 1e10 * -1e-15);
  EXPECT_EQ(m.history.r.back(), -0.75);
  EXPECT_EQ(m.history.deltaE.size(), m.history.t.size());
}

TEST(History, TheZeroFactorOfTheIntegralTermLetsNaNThrough) {
  const auto m = small_model(STRESS_V_dislocation);
  m->detail_output = true;
  accept(*m, 10.0, {.z = 1e-7});
  accept(*m, 11.0, {.z = 1e-7, .I0 = std::numeric_limits<double>::infinity(), .I1 = 1.0});
  EXPECT_TRUE(std::isnan(m->history.K1.back()));
  EXPECT_TRUE(std::isnan(m->history.deltaE.back()));
}

TEST(History, EveryListOfTheRunHasRoomFor1024EntriesAtConstruction) {
  const auto m = small_model(STRESS_V_dislocation);
  for (const auto* list :
       {&m->history.t, &m->history.z, &m->history.h, &m->history.Vg, &m->history.x_In, &m->history.x_Ga,
        &m->history.x_Al, &m->history.rho_VD, &m->history.I0, &m->history.I1, &m->history.J0_0, &m->history.J0_1}) {
    EXPECT_TRUE(list->empty());
    EXPECT_GE(list->capacity(), 1024u);
  }
}

}  // namespace
}  // namespace vorlen_test
