// Steady growth under the staged scheme: the root of the equations that the continuous scheme solves, and no trace of
// the exchange layer.
#include <gtest/gtest.h>

#include <cmath>

#include "physics/model_fixture.h"
#include "physics/stage_loop.h"
#include "physics/staged_growth.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

class SteadyGrowth : public testing::TestWithParam<Conditions> {};

Conditions alingan() {
  Conditions c = ingan_in_nitrogen();
  c.TMAl = 0.1;
  return c;
}

INSTANTIATE_TEST_SUITE_P(Layers, SteadyGrowth,
                         testing::Values(gan_in_hydrogen(), ingan_in_nitrogen(), algan_in_hydrogen(),
                                         alinn_in_nitrogen(), alingan()));

// The model's own residual of the continuous scheme: balances of the surface, x_a R_b = x_b R_a, the sum of the
// fractions and the growth rate.
TEST_P(SteadyGrowth, IsARootOfTheEquationsOfTheContinuousScheme) {
  const Grown grown = grow_staged(process_recipe("off", {constant(2000.0, GetParam())}), 1e-9);
  ASSERT_EQ(grown.layer_nm.size(), 1u);
  SurfChemNonst& m = *grown.model;
  m.GR = m.history.Vg.back();
  std::array<double, N_STATE_MAX> y{}, f{};
  m.pack_state(y.data());
  ASSERT_EQ(m.eval_rhs(m.t, y.data(), f.data()), 0);
  const double S = std::abs(m.surface.R_b[InN_b] + m.surface.R_b[GaN_b] + m.surface.R_b[AlN_b]);
  for (std::size_t k : {In_a, Ga_a, Al_a}) EXPECT_NEAR(f[k], 0.0, 1e-8 * S);
  EXPECT_NEAR(f[6], 0.0, 1e-8 * S) << "x_In R_Ga = x_Ga R_In";
  EXPECT_NEAR(f[7], 0.0, 1e-8 * S) << "x_Ga R_Al = x_Al R_Ga";
  EXPECT_NEAR(f[8], 0.0, 1e-14) << "sum of the fractions";
  EXPECT_NEAR(f[9], 0.0, 1e-8 * m.GR) << "growth rate";
}

TEST_P(SteadyGrowth, HasTheRateAndCompositionOfTheContinuousScheme) {
  const RecipeBuilder recipe = process_recipe("off", {constant(2000.0, GetParam())});
  const Grown grown = grow_staged(recipe, 1e-9);
  const RunResult continuous = run_recipe(recipe);
  ASSERT_EQ(grown.layer_nm.size(), 1u);
  ASSERT_FALSE(continuous.rows.empty());
  const Row& last = continuous.rows.back();
  const SurfChemNonst& m = *grown.model;
  EXPECT_NEAR(m.history.Vg.back() * 1e9, last[RATE], 1e-8 * last[RATE]);
  EXPECT_NEAR(m.x_b[InN_b], last[X_IN], 1e-8);
  EXPECT_NEAR(m.x_b[GaN_b], last[X_GA], 1e-8);
  EXPECT_NEAR(m.x_b[AlN_b], last[X_AL], 1e-8);
}

// A process of 60 nm with changes of everything.
TEST(ExchangeLayer, HardlyMattersToTheThickness) {
  Conditions gan = ingan_in_nitrogen(), well = ingan_in_nitrogen();
  gan.TMIn = 0.0;
  const Conditions buffer{.T = 1300.0, .P = 40000.0, .delta = 0.008, .TMGa = 1.0, .NH3 = 6000.0, .H2 = 9000.0};
  std::vector<StagePlan> stages = {constant(200.0, buffer), {60.0, without_metals(buffer), without_metals(gan)}};
  for (int k = 0; k < 3; ++k) {
    stages.insert(stages.end(), {constant(100.0, gan), constant(60.0, well), constant(10.0, without_metals(well))});
  }
  stages.insert(stages.end(), {constant(100.0, gan), constant(100.0, alingan())});
  const auto total_nm = [&](double monolayers) {
    StageLoop loop(make_model(process_recipe("off", stages)));
    loop.equations.gamma = monolayers * MONOLAYER;
    double nm = 0.0;
    for (std::size_t k = 0; k < stages.size(); ++k) nm += loop.run_stage({}, 1e-7);
    return nm;
  };
  const double usual = total_nm(EXCHANGE_LAYER);
  EXPECT_GT(usual, 50.0);
  for (const double monolayers : {0.1, 0.001, 0.0001}) {
    EXPECT_NEAR(total_nm(monolayers), usual, 0.01) << monolayers << " monolayers";
  }
  EXPECT_NEAR(total_nm(0.1), total_nm(0.0001), 0.01);
}

}  // namespace
}  // namespace vorlen
