// Evaporation uncovers what was grown: hot pauses without metals under the staged scheme.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "physics/model_fixture.h"
#include "physics/staged_growth.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

constexpr double PRE_STAGE_NM = 100.0;
constexpr double NM = 1e-9;

// In hydrogen at 1400 K GaN loses a tenth of a nanometre per second.
Conditions hot_pause() { return {.T = 1400.0, .P = 10000.0, .NH3 = 3000.0, .H2 = 10000.0}; }

Conditions gan_in_nitrogen() {
  Conditions c = ingan_in_nitrogen();
  c.TMIn = 0.0;
  return c;
}

// A row of the history: height above the pre-stage in nm, and the indium of the surface.
struct Point {
  double z, x_In;
};

std::vector<Point> points_of_stages(const Grown& grown, std::size_t from, std::size_t to) {
  const SurfChemNonst& m = *grown.model;
  std::vector<Point> points;
  for (std::size_t i = 0; i < m.history.t.size(); ++i) {
    if (m.history.t[i] > m.active_stages[to].end_time() * (1.0 + 1e-14)) break;
    if (m.history.t[i] >= m.active_stages[from].begin_time()) {
      points.push_back({m.history.z[i] / NM - PRE_STAGE_NM, m.history.x_In[i]});
    }
  }
  return points;
}

// Indium that was grown at height z.
double grown_at(const std::vector<Point>& points, double z) {
  for (std::size_t i = 1; i < points.size(); ++i) {
    const Point &a = points[i - 1], &b = points[i];
    if (a.z <= z && z < b.z) return a.x_In + (b.x_In - a.x_In) * (z - a.z) / (b.z - a.z);
  }
  ADD_FAILURE() << "nothing was grown at " << z << " nm";
  return 0.0;
}

// Indium in what leaves the solid in the state and conditions of the model, as a fraction of the metals.
double evaporating_indium(SurfChemNonst& m) {
  // The strain of the surface is that of the top pre-stage when that evaporates.
  m.surface_rates();
  const double S = m.surface.R_b[InN_b] + m.surface.R_b[GaN_b] + m.surface.R_b[AlN_b];
  EXPECT_LT(S, 0.0) << "does not evaporate";
  return m.surface.R_b[InN_b] / S;
}

class Evaporation : public testing::TestWithParam<const char*> {
 protected:
  // GaN, a well of InGaN, a cap of about 3 nm of GaN, heating, and a hot pause.
  static Grown well_under_a_cap(double pause) {
    return grow_staged(process_recipe(GetParam(), {constant(100.0, gan_in_nitrogen()),
                                                   constant(40.0, ingan_in_nitrogen()),
                                                   constant(80.0, gan_in_nitrogen()),
                                                   {10.0, without_metals(gan_in_nitrogen()), hot_pause()},
                                                   constant(pause, hot_pause())}));
  }
};

INSTANTIATE_TEST_SUITE_P(Stress, Evaporation, testing::Values("off", "V_dislocation"));

TEST_P(Evaporation, BringsIndiumToTheSurfaceAtTheDepthsWhereItWasGrown) {
  const Grown grown = well_under_a_cap(40.0);
  ASSERT_EQ(grown.layer_nm.size(), 5u);
  ASSERT_GT(grown.layer_nm[1], 1.5) << "the well";
  ASSERT_NEAR(grown.layer_nm[2], 3.0, 0.3) << "the cap";
  const std::vector<Point> growing = points_of_stages(grown, 0, 2), falling = points_of_stages(grown, 4, 4);
  ASSERT_LT(falling.back().z, grown.layer_nm[0] - 0.3) << "the pause ends above the bottom of the well";
  int with = 0, without = 0;
  for (const Point& p : falling) {
    if (p.z > grown.layer_nm[0] + grown.layer_nm[1] + grown.layer_nm[2] - 0.1) continue;
    const double x = grown_at(growing, p.z);
    // At 1400 K a solid of 20 % indium has a surface with less than a thousandth: indium leaves at once.
    if (x > 0.02) {
      EXPECT_GT(p.x_In, 1e-6) << "at " << p.z << " nm, where x_In was " << x;
      ++with;
    } else if (x < 1e-5) {
      EXPECT_LT(p.x_In, 1e-6) << "at " << p.z << " nm, where x_In was " << x;
      ++without;
    }
  }
  EXPECT_GE(with, 1);
  EXPECT_GE(without, 1);
}

TEST_P(Evaporation, TakesTheThicknessOfTheCapAndThenGoesDeeper) {
  double before = INFINITY;
  for (double pause : {10.0, 20.0, 30.0, 40.0}) {
    const Grown grown = well_under_a_cap(pause);
    ASSERT_EQ(grown.layer_nm.size(), 5u);
    const double total = std::accumulate(grown.layer_nm.begin(), grown.layer_nm.end(), 0.0);
    EXPECT_NEAR(total, grown.model->z / NM - PRE_STAGE_NM, 1e-9);
    // GaN at 0.120 nm/s, and nothing in the solid that slows it down.
    EXPECT_LT(total, before - 1.1) << pause << " s";
    before = total;
  }
  EXPECT_LT(before, 3.3);
}

// In the steady state what leaves has the composition of what is uncovered, whatever the surface looks like.
TEST_P(Evaporation, TakesTheCompositionOfTheDepth) {
  const Grown grown = well_under_a_cap(28.0);
  ASSERT_EQ(grown.layer_nm.size(), 5u);
  const double z = grown.model->z / NM - PRE_STAGE_NM;
  ASSERT_GT(z, grown.layer_nm[0] + 0.2);
  ASSERT_LT(z, grown.layer_nm[0] + grown.layer_nm[1] - 0.5);
  const double x = grown_at(points_of_stages(grown, 0, 2), z);
  EXPECT_GT(x, 0.1);
  // Rows interpolate within 1e-3 of the range, and the composition changes slowly with depth.
  EXPECT_NEAR(evaporating_indium(*grown.model), x, 2e-3);
}

TEST_P(Evaporation, ReachesThePreStageAndTakesItsComposition) {
  for (const double x_template : {0.0, 0.1}) {
    RecipeBuilder recipe = process_recipe(GetParam(), {constant(20.0, gan_in_nitrogen()),
                                                       {10.0, without_metals(gan_in_nitrogen()), hot_pause()},
                                                       constant(40.0, hot_pause())});
    recipe.set("pre_stages/pre_stage_1/X_In_average", x_template > 0.0 ? "0.1" : "0");
    recipe.set("pre_stages/pre_stage_1/X_Ga_average", x_template > 0.0 ? "0.9" : "1");
    const Grown grown = grow_staged(recipe);
    ASSERT_EQ(grown.layer_nm.size(), 3u);
    const double total = std::accumulate(grown.layer_nm.begin(), grown.layer_nm.end(), 0.0);
    EXPECT_LT(total, -2.0) << "does not reach the pre-stage";
    EXPECT_NEAR(evaporating_indium(*grown.model), x_template, 1e-5);
  }
}

// A well that has evaporated is gone: GaN grown in its place evaporates as GaN.
TEST_P(Evaporation, ForgetsWhatHasEvaporated) {
  const Conditions cold = without_metals(gan_in_nitrogen());
  const Grown grown = grow_staged(process_recipe(GetParam(), {constant(100.0, gan_in_nitrogen()),
                                                              constant(40.0, ingan_in_nitrogen()),
                                                              {10.0, cold, hot_pause()},
                                                              constant(18.0, hot_pause()),
                                                              {10.0, hot_pause(), cold},
                                                              constant(80.0, gan_in_nitrogen()),
                                                              {10.0, cold, hot_pause()},
                                                              constant(12.0, hot_pause())}));
  ASSERT_EQ(grown.layer_nm.size(), 8u);
  const auto height_after = [&](std::ptrdiff_t stages) {
    return std::accumulate(grown.layer_nm.begin(), grown.layer_nm.begin() + stages, 0.0);
  };
  const double well_bottom = grown.layer_nm[0], well_top = well_bottom + grown.layer_nm[1];
  ASSERT_LT(height_after(5), well_bottom) << "the well has not evaporated";
  ASSERT_GT(height_after(6), well_top) << "GaN does not replace the well";
  ASSERT_GT(height_after(8), well_bottom + 0.2);
  ASSERT_LT(height_after(8), well_top - 0.5) << "the second pause does not end where the well was";
  EXPECT_NEAR(evaporating_indium(*grown.model), 0.0, 1e-6);
}

// Two pre-stages: first the upper one, then the lower.
TEST_P(Evaporation, GoesThroughThePreStages) {
  for (const double pause : {20.0, 60.0}) {
    RecipeBuilder recipe = process_recipe(GetParam(), {constant(pause, hot_pause())});
    RecipeBuilder two({.material = "AlInGaN", .stress_model = GetParam(), .n_pre_stages = 2});
    two.set("pre_stages/pre_stage_1/X_In_average", "0.1").set("pre_stages/pre_stage_1/X_Ga_average", "0.9");
    two.set("pre_stages/pre_stage_2/X_In_average", "0.02").set("pre_stages/pre_stage_2/X_Ga_average", "0.98");
    two.set("pre_stages/pre_stage_2/thickness", "4");
    std::unique_ptr<SurfChemNonst> model = make_model(two);
    ASSERT_NE(model, nullptr);
    const std::unique_ptr<SurfChemNonst> conditions = make_model(recipe);
    model->active_stages = conditions->active_stages;
    model->active_stages[0].set_times(model->t_begin);
    model->t_end = model->t_begin + pause;
    const Grown grown = grow_staged(std::move(model));
    ASSERT_EQ(grown.layer_nm.size(), 1u);
    const bool in_the_lower = pause > 30.0;
    EXPECT_EQ(grown.layer_nm[0] < -4.5, in_the_lower) << grown.layer_nm[0];
    EXPECT_NEAR(evaporating_indium(*grown.model), in_the_lower ? 0.1 : 0.02, 1e-5);
  }
}

}  // namespace
}  // namespace vorlen
