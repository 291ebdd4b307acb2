// The whole-recipe checks: each message, both sides of each limit, and the order.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "recipe/process_recipe.h"

namespace vorlen {
namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

ProcessRecipe valid_recipe() {
  ProcessRecipe recipe;
  recipe.active_stages.resize(1);
  recipe.transport_model = TRANSPORT_fixed_thickness;
  recipe.Kd_A[4] = 1.0;
  recipe.K_plus_A[2] = 1.0;
  return recipe;
}

ProcessRecipe thick_GaN_recipe() {
  ProcessRecipe recipe = valid_recipe();
  recipe.transport_model = TRANSPORT_thick_GaN;
  recipe.reactor = REACTOR_TDR;
  recipe.GR_ref = 0.5;
  recipe.P_ref = 20000.0;
  recipe.T_ref = 1300.0;
  recipe.omega_TDR_ref = 800.0;
  recipe.Q_ref[3] = 1.0;
  return recipe;
}

ProcessRecipe dislocation_recipe() {
  ProcessRecipe recipe = valid_recipe();
  recipe.stress_model = STRESS_V_dislocation;
  recipe.V_angle_05 = 17.0;
  recipe.X_ref = 0.1;
  return recipe;
}

// Empty for a valid recipe.
std::string fault_of(const ProcessRecipe& recipe) {
  std::string error = "old";
  const bool valid = recipe.validate_recipe(error);
  EXPECT_EQ(valid, error.empty());
  return error;
}

TEST(ValidateRecipe, ACompleteRecipePassesAndEmptiesTheError) {
  EXPECT_EQ(fault_of(valid_recipe()), "");
  EXPECT_EQ(fault_of(thick_GaN_recipe()), "");
  EXPECT_EQ(fault_of(dislocation_recipe()), "");
}

TEST(ValidateRecipe, ChecksInOrder) {
  ProcessRecipe recipe;
  recipe.t0 = -1.0;
  EXPECT_EQ(fault_of(recipe), "Number of stages is zero");
  recipe.active_stages.resize(1);
  EXPECT_EQ(fault_of(recipe), "Begin time is not specified");
  recipe.t0 = 0.0;
  EXPECT_EQ(fault_of(recipe), "Transport model is not specified");
  recipe.transport_model = TRANSPORT_thick_GaN;
  EXPECT_EQ(fault_of(recipe), "Reactor type is zero or not specified for transport model 'thick_GaN'");
  recipe.reactor = REACTOR_TDR;
  EXPECT_EQ(fault_of(recipe), "Reference growth rate is zero or not specified for transport model 'thick_GaN'");
  recipe.GR_ref = 0.5;
  EXPECT_EQ(fault_of(recipe), "Reference pressure is zero or not specified for transport model 'thick_GaN'");
  recipe.P_ref = 1.0;
  EXPECT_EQ(fault_of(recipe), "Reference temperature is zero or not specified for transport model 'thick_GaN'");
  recipe.T_ref = 1.0;
  EXPECT_EQ(fault_of(recipe),
            "Reference rotation rate is zero or not specified for transport model 'thick_GaN' and reactor 'TDR'");
  recipe.omega_TDR_ref = 1.0;
  EXPECT_EQ(fault_of(recipe), "All reference flow rates are zero or not specified for transport model 'thick_GaN'");
  recipe.Q_ref[10] = 1.0;
  recipe.stress_model = STRESS_V_dislocation;
  EXPECT_EQ(fault_of(recipe), "Dislocation angle is beyond [0;90] degrees or not specified");
  recipe.V_angle_05 = 45.0;
  EXPECT_EQ(fault_of(recipe), "Reference solid composition for relaxation model is beyond [0;1] or not specified");
  recipe.X_ref = 0.5;
  EXPECT_EQ(fault_of(recipe), "Predexponents of all desorption constants are zeros or not specified");
  recipe.Kd_A[0] = 1.0;
  EXPECT_EQ(fault_of(recipe), "Predexponents of all incorporation constants are zeros or not specified");
  recipe.K_plus_A[0] = 1.0;
  EXPECT_EQ(fault_of(recipe), "");
}

TEST(ValidateRecipe, AnAngleOf8998PassesAnd0And8999And90Fail) {
  ProcessRecipe recipe = dislocation_recipe();
  for (double angle : {1e-300, 89.98, std::nextafter(89.99, 0.0)}) {
    recipe.V_angle_05 = angle;
    EXPECT_EQ(fault_of(recipe), "") << angle;
  }
  for (double angle : {0.0, -1.0, 89.99, 90.0, NOT_A_NUMBER}) {
    recipe.V_angle_05 = angle;
    EXPECT_EQ(fault_of(recipe), "Dislocation angle is beyond [0;90] degrees or not specified") << angle;
  }
}

TEST(ValidateRecipe, TheReferenceCompositionLiesFrom0To1Inclusive) {
  ProcessRecipe recipe = dislocation_recipe();
  for (double X : {0.0, 1.0}) {
    recipe.X_ref = X;
    EXPECT_EQ(fault_of(recipe), "") << X;
  }
  for (double X : {-1e-300, std::nextafter(1.0, 2.0), NOT_A_NUMBER}) {
    recipe.X_ref = X;
    EXPECT_EQ(fault_of(recipe), "Reference solid composition for relaxation model is beyond [0;1] or not specified")
        << X;
  }
}

TEST(ValidateRecipe, WithoutTheStressModelAngleAndReferenceCompositionDoNotMatter) {
  ProcessRecipe recipe = dislocation_recipe();
  recipe.V_angle_05 = 0.0;
  recipe.X_ref = -1.0;
  recipe.stress_model = STRESS_OFF;
  EXPECT_EQ(fault_of(recipe), "");
}

TEST(ValidateRecipe, NaNAsStartTimeFails) {
  ProcessRecipe recipe = valid_recipe();
  recipe.t0 = NOT_A_NUMBER;
  EXPECT_EQ(fault_of(recipe), "Begin time is not specified");
}

TEST(ValidateRecipe, TrimethylgalliumAloneIsEnoughOfReferenceFlows) {
  ProcessRecipe recipe = thick_GaN_recipe();
  recipe.Q_ref = {};
  recipe.Q_ref[3] = 2.5;
  EXPECT_EQ(fault_of(recipe), "");
}

TEST(ValidateRecipe, TheRotationRateMattersForReactorTDROnly) {
  ProcessRecipe recipe = thick_GaN_recipe();
  recipe.omega_TDR_ref = 0.0;
  for (std::int32_t reactor : {REACTOR_CCS, REACTOR_HFR}) {
    recipe.reactor = reactor;
    EXPECT_EQ(fault_of(recipe), "");
  }
}

TEST(ValidateRecipe, ANegativeReferenceGrowthRatePasses) {
  ProcessRecipe recipe = thick_GaN_recipe();
  recipe.GR_ref = -1.0;
  EXPECT_EQ(fault_of(recipe), "");
}

TEST(ValidateRecipe, OnlyThickGaNNeedsReferenceConditions) {
  ProcessRecipe recipe = valid_recipe();
  for (std::int32_t model : {TRANSPORT_fixed_thickness, TRANSPORT_InGaN_GR_X, TRANSPORT_InGaN_GR}) {
    recipe.transport_model = model;
    EXPECT_EQ(fault_of(recipe), "");
  }
}

TEST(ValidateRecipe, AllDesorptionOrAllIncorporationConstantsZeroFail) {
  ProcessRecipe no_desorption = valid_recipe();
  no_desorption.Kd_A = {};
  EXPECT_EQ(fault_of(no_desorption), "Predexponents of all desorption constants are zeros or not specified");
  ProcessRecipe no_incorporation = valid_recipe();
  no_incorporation.K_plus_A = {};
  EXPECT_EQ(fault_of(no_incorporation), "Predexponents of all incorporation constants are zeros or not specified");
}

}  // namespace
}  // namespace vorlen
