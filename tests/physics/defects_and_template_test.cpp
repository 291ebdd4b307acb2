// V-defects of the staged scheme depend on the strained film alone: not on how much of a template of GaN has evaporated
// before, nor on whether the recipe has a template with hardly a dislocation.
#include <gtest/gtest.h>

#include <cmath>

#include "physics/staged_growth.h"

namespace vorlen_test {
namespace {

constexpr Conditions INGAN = {
    .T = 1020.0, .P = 40000.0, .delta = 0.008, .TMIn = 0.1, .TEGa = 0.5, .N2 = 8000.0, .NH3 = 8000.0};
constexpr Conditions BAKE = {.T = 1400.0, .P = 10000.0, .NH3 = 3000.0, .H2 = 10000.0};

// Strained InGaN in which V-defects open, after a bake of so many seconds.
Grown after_bake(double tau) {
  std::vector<StagePlan> stages;
  if (tau > 0.0) stages.push_back(constant(tau, BAKE));
  stages.push_back(constant(900.0, INGAN));
  return grow_staged(process_recipe("V_dislocation", stages));
}

TEST(DefectsAndTemplate, ABakeOfTheTemplateChangesNothing) {
  const Grown plain = after_bake(0.0);
  ASSERT_FALSE(plain.layer_nm.empty());
  ASSERT_LT(1e14, plain.model->rho_VD);
  ASSERT_GT(1e17, plain.model->rho_VD);
  for (double tau : {20.0, 120.0, 400.0}) {
    SCOPED_TRACE(tau);
    const Grown baked = after_bake(tau);
    ASSERT_EQ(2u, baked.layer_nm.size());
    EXPECT_GT(-1.0, baked.layer_nm[0]);
    EXPECT_NEAR(plain.layer_nm[0], baked.layer_nm[1], 1e-3);
    EXPECT_NEAR(plain.model->rho_VD, baked.model->rho_VD, 1e-3 * plain.model->rho_VD);
  }
}

TEST(DefectsAndTemplate, NoTemplateIsAsGoodAsOneWithHardlyADislocation) {
  RecipeBuilder few = process_recipe("V_dislocation", {constant(900.0, INGAN)});
  few.set("pre_stages/pre_stage_1/dislocations/rho_D", "1e3");
  RecipeBuilder none = process_recipe("V_dislocation", {constant(900.0, INGAN)});
  none.set("pre_stages/n_pre_stages", "0");
  const Grown with = grow_staged(few), without = grow_staged(none);
  ASSERT_FALSE(with.layer_nm.empty());
  ASSERT_FALSE(without.layer_nm.empty());
  ASSERT_LT(1e14, with.model->rho_VD);
  ASSERT_GT(1e17, with.model->rho_VD);
  EXPECT_NEAR(with.model->rho_VD, without.model->rho_VD, 1e-3 * with.model->rho_VD);
}

TEST(DefectsAndTemplate, EvaporationBelowTheOpeningLeavesTheDensity) {
  const StagePlan heat = {5.0, without_metals(INGAN), BAKE};
  const Grown grown = grow_staged(process_recipe("V_dislocation", {constant(900.0, INGAN)}));
  ASSERT_FALSE(grown.layer_nm.empty());
  for (double tau : {20.0, 60.0, 100.0}) {
    SCOPED_TRACE(tau);
    const Grown left =
        grow_staged(process_recipe("V_dislocation", {constant(900.0, INGAN), heat, constant(tau, BAKE)}));
    ASSERT_EQ(3u, left.layer_nm.size());
    EXPECT_GT(-1.0, left.layer_nm[2]);
    // What is adsorbed at the end of the growth is still incorporated.
    EXPECT_NEAR(grown.model->rho_VD, left.model->rho_VD, 1e-4 * grown.model->rho_VD);
  }
}

}  // namespace
}  // namespace vorlen_test
