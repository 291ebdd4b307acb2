// The thickness of each active stage: growth of the recorded steps, shared out over the stages in proportion to time.
#include <gtest/gtest.h>

#include <numeric>

#include "results/profiles.h"
#include "results/written_file.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

// Stages of the given lengths from 0 s on, without pre-stages, and a history of (time, depth in nm).
std::unique_ptr<SurfChemNonst> staged_model(const std::vector<double>& lengths,
                                            const std::vector<std::pair<double, double>>& points) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  for (double tau : lengths) add(recipe, small_stage(tau));
  auto m = model_of(recipe);
  for (const auto& [t, z_nm] : points) add_history(*m, t, z_nm * 1e-9);
  sum_stage_thicknesses(*m);
  return m;
}

void expect_thickness(const SurfChemNonst& m, const std::vector<double>& expected_nm) {
  ASSERT_EQ(m.active_stages.size(), expected_nm.size());
  for (std::size_t k = 0; k < expected_nm.size(); ++k)
    EXPECT_NEAR(m.active_stages[k].thickness, expected_nm[k], 1e-12) << "stage " << k;
}

TEST(StageThickness, StepsWithinAStageAddUp) {
  expect_thickness(*staged_model({10.0}, {{0, 0}, {3, 6}, {10, 8}}), {8.0});
}

TEST(StageThickness, AStepThatEndsOnTheBoundaryBelongsToTheStageBefore) {
  expect_thickness(*staged_model({2.0, 3.0}, {{0, 0}, {2, 4}, {5, 7}}), {4.0, 3.0});
}

TEST(StageThickness, AStepThatEndsOnABoundaryIsNotDividedAndMultipliedByItsLength) {
  // dz * dt / dt misses dz in the last bit for some of these steps, and (end - begin) differs from tau.
  for (int k = 1; k <= 50; ++k) {
    SCOPED_TRACE(k);
    const double tau = 0.1 * k;
    const auto single = staged_model({tau, 1.0}, {{0.0, 0.0}, {tau, 0.7 * k}, {tau + 1.0, 40.0}});
    EXPECT_TRUE(same_bits((single->history.z[1] - 0.0) * 1e9, single->active_stages[0].thickness));

    // From the middle of the first stage to the end of the second.
    const auto both = staged_model({tau, 0.3, 1.0}, {{0.0, 0.0}, {0.5 * tau, 1.0}, {tau + 0.3, 0.7 * k}});
    const StageRecord& second = both->active_stages[1];
    const double dt = both->history.t[2] - both->history.t[1];
    const double dz = (both->history.z[2] - both->history.z[1]) * 1e9;
    ASSERT_EQ(both->history.t[2], second.time.end);
    EXPECT_TRUE(same_bits((second.time.end - second.time.val) * dz / dt, second.thickness));
    EXPECT_EQ(both->active_stages[2].thickness, 0.0);
  }
}

TEST(StageThickness, AStepAcrossTheBoundaryIsSharedOutByTime) {
  // 4 nm from 1 s to 5 s: 1 s of it before the boundary, 3 s after it.
  expect_thickness(*staged_model({2.0, 3.0}, {{0, 0}, {1, 1}, {5, 5}}), {2.0, 3.0});
  // 8 nm from 1 s to 3 s with the boundary at 2.5 s.
  expect_thickness(*staged_model({2.5, 2.5}, {{0, 0}, {1, 1}, {3, 9}, {5, 10}}), {7.0, 3.0});
}

TEST(StageThickness, AStepOverAWholeShortStageGivesItItsShare) {
  // 20 nm from 1 s to 5 s over the stages [0, 2], [2, 2.5], [2.5, 6].
  expect_thickness(*staged_model({2.0, 0.5, 3.5}, {{0, 0}, {1, 3}, {5, 23}, {6, 24}}), {3.0 + 5.0, 2.5, 12.5 + 1.0});
  // The same over two short stages.
  expect_thickness(*staged_model({2.0, 0.5, 0.25, 3.25}, {{0, 0}, {1, 3}, {5, 23}, {6, 24}}),
                   {8.0, 2.5, 1.25, 11.25 + 1.0});
}

TEST(StageThickness, EtchingCountsNegative) {
  expect_thickness(*staged_model({2.0, 2.0}, {{0, 5}, {2, 9}, {4, 6}}), {4.0, -3.0});
}

TEST(StageThickness, TheSumIsTheGrowthOfTheRun) {
  const std::vector<double> lengths = {1.3, 0.01, 2.7, 0.4, 5.59};
  std::vector<std::pair<double, double>> points;
  for (int i = 0; i <= 100; ++i) points.emplace_back(0.1 * i, 7.0 + 0.3 * i + std::sin(i));
  const auto m = staged_model(lengths, points);
  const double sum = std::accumulate(m->active_stages.begin(), m->active_stages.end(), 0.0,
                                     [](double s, const StageRecord& stage) { return s + stage.thickness; });
  EXPECT_NEAR(sum, points.back().second - points.front().second, 1e-11);
}

TEST(StageThickness, StagesThatAFailedRunDidNotReachKeepZero) {
  const auto m = staged_model({2.0, 3.0, 4.0}, {{0, 0}, {1, 1}, {3, 3}});
  expect_thickness(*m, {2.0, 1.0, 0.0});
  EXPECT_EQ(m->active_stages[2].thickness, 0.0);
}

TEST(StageThickness, TheWalkStopsAtTheLastStage) {
  // A last time that exceeds the end by a rounding error: growth up to the end counts.
  const double after = std::nextafter(5.0, 6.0);
  expect_thickness(*staged_model({2.0, 3.0}, {{0, 0}, {2, 2}, {after, 5}}), {2.0, 3.0});
  expect_thickness(*staged_model({2.0, 3.0}, {{0, 0}, {1, 1}, {after, 5}}), {2.0, 3.0});
}

TEST(StageThickness, WithoutStagesOrHistoryNothingHappens) {
  expect_thickness(*staged_model({2.0}, {}), {0.0});
  expect_thickness(*staged_model({2.0}, {{0, 5}}), {0.0});
  const auto m = staged_model({2.0}, {{0, 0}, {2, 2}});
  m->active_stages.clear();
  sum_stage_thicknesses(*m);
  EXPECT_TRUE(m->active_stages.empty());
}

TEST(StageThickness, TheDepthBelowTheActiveStagesDoesNotCount) {
  ProcessRecipe recipe = small_recipe(STRESS_OFF);
  const auto m = model_of(recipe);
  add_history(*m, 10.0, m->z_start);
  add_history(*m, 20.0, m->z_start + 42e-9);
  sum_stage_thicknesses(*m);
  EXPECT_NEAR(m->active_stages[0].thickness, 42.0, 1e-12);
}

}  // namespace
}  // namespace vorlen_test
