// The records' defaults, ValueRange, the time axis, and the comparison of each stage with the previous one.
#include "recipe/process_recipe.h"

#include <gtest/gtest.h>

#include <limits>

namespace vorlen {
namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

StageRecord stage_of(double tau) {
  StageRecord stage;
  stage.label = "stage_7";
  stage.tau = tau;
  stage.T = {1000.0, 1000.0};
  stage.P = {40000.0, 40000.0};
  stage.Q[8] = {8000.0, 8000.0};
  return stage;
}

PrePostStageRecord layer_of(double tau) {
  PrePostStageRecord layer;
  layer.tau = tau;
  return layer;
}

// Adds the stages in order; all of them must be accepted.
ProcessRecipe recipe_of(const std::vector<StageRecord>& stages) {
  ProcessRecipe recipe;
  std::string error;
  for (const StageRecord& stage : stages) EXPECT_TRUE(recipe.add_active_stage(stage, error)) << error;
  return recipe;
}

TEST(ProcessRecipe, AFreshRecipeHasItsDefaults) {
  const ProcessRecipe recipe;
  EXPECT_EQ(recipe.t0, 0.0);
  EXPECT_EQ(recipe.X_ref, -1.0);
  EXPECT_EQ(recipe.material, -1);
  EXPECT_EQ(recipe.stress_model, -1);
  EXPECT_EQ(recipe.vacancy_model, -1);
  EXPECT_EQ(recipe.transport_model, -1);
  EXPECT_EQ(recipe.reactor, -1);
  EXPECT_FALSE(recipe.conditions_vary);
  EXPECT_EQ(recipe.cut_angle, 0.0);
  EXPECT_EQ(recipe.V_angle_05, 0.0);
  EXPECT_EQ(recipe.GR_ref, 0.0);
  EXPECT_EQ(recipe.P_ref, 0.0);
  EXPECT_EQ(recipe.T_ref, 0.0);
  EXPECT_EQ(recipe.omega_TDR_ref, 0.0);
  for (double flow : recipe.Q_ref) EXPECT_EQ(flow, 0.0);
  for (double A : recipe.Kd_A) EXPECT_EQ(A, 0.0);
  for (double A : recipe.K_plus_A) EXPECT_EQ(A, 0.0);
  EXPECT_TRUE(recipe.active_stages.empty());
  EXPECT_TRUE(recipe.pre_stages.empty());
  EXPECT_TRUE(recipe.post_stages.empty());
  EXPECT_EQ(recipe.scheme, SCHEME_continuous);
  EXPECT_FALSE(recipe.detail_output);
  EXPECT_EQ(recipe.late_fault, "");
}

TEST(ProcessRecipe, AFreshActiveStageHasNoAluminiumAndNoThickness) {
  const StageRecord stage;
  EXPECT_EQ(stage.XIn_average, -1.0);
  EXPECT_EQ(stage.XAl_average, 0.0);
  EXPECT_EQ(stage.thickness, 0.0);
  EXPECT_EQ(stage.GR_average, -1e20);
  EXPECT_EQ(stage.period, -1);
  EXPECT_EQ(stage.tau, -1.0);
  EXPECT_EQ(stage.disl_model, -1);
  EXPECT_EQ(stage.delta, -1.0);
  EXPECT_EQ(stage.delta_ref, -1.0);
  for (double delta : stage.delta_species) EXPECT_EQ(delta, -1.0);
  for (const ValueRange& range : {stage.time, stage.rho_D, stage.T, stage.P, stage.omega_TDR}) {
    EXPECT_EQ(range.val, -1.0);
    EXPECT_EQ(range.end, -1.0);
  }
  for (const ValueRange& flow : stage.Q) EXPECT_TRUE(flow.undefined());
  EXPECT_FALSE(stage.flows_vary);
}

TEST(ProcessRecipe, AFreshPreOrPostStageHasNothingSpecified) {
  const PrePostStageRecord layer;
  for (double value : {layer.X_In_average, layer.X_Ga_average, layer.X_Al_average, layer.thickness, layer.tau,
                       layer.rho_D, layer.stress_state, layer.a_lattice, layer.c_lattice, layer.eps_xx}) {
    EXPECT_EQ(value, -1.0);
  }
  EXPECT_EQ(layer.GR_average, -1e20);
  EXPECT_EQ(layer.period, -1);
  EXPECT_EQ(layer.disl_model, -1);
}

TEST(ValueRange, IsUndefinedWhenEitherValueIsNegative) {
  EXPECT_TRUE((ValueRange{-1.0, 1.0}).undefined());
  EXPECT_TRUE((ValueRange{1.0, -1.0}).undefined());
  EXPECT_TRUE((ValueRange{-1e-300, 0.0}).undefined());
  EXPECT_FALSE((ValueRange{0.0, 0.0}).undefined());
}

// The difference 1e-6 lies below 1e-8 * 2000.000001, 0.1 does not.
TEST(ValueRange, VariesRelativeToTheSum) {
  EXPECT_FALSE((ValueRange{1000.0, 1000.000001}).varies());
  EXPECT_TRUE((ValueRange{1000.0, 1000.1}).varies());
  EXPECT_FALSE((ValueRange{0.0, 0.0}).varies());
  EXPECT_TRUE((ValueRange{0.0, 1e-300}).varies());
  // 1e-8 of the sum 200000000 is exactly the difference 2: not above it.
  EXPECT_FALSE((ValueRange{99999999.0, 100000001.0}).varies());
  EXPECT_TRUE((ValueRange{99999998.5, 100000001.5}).varies());
}

TEST(ValueRange, IsEqualToAnotherWithinTheSameTolerance) {
  const ValueRange range{1000.0, 2000.0};
  EXPECT_TRUE(range.equal_to({1000.000001, 2000.000001}));
  EXPECT_FALSE(range.equal_to({1000.1, 2000.0}));
  EXPECT_FALSE(range.equal_to({1000.0, 2000.1}));
  EXPECT_TRUE((ValueRange{}).equal_to({}));
  EXPECT_TRUE((ValueRange{0.0, 0.0}).equal_to({0.0, 0.0}));
  EXPECT_FALSE((ValueRange{}).equal_to({1.0, 1.0}));
  // "Does not exceed" is the negation of "exceeds": NaN exceeds nothing.
  EXPECT_TRUE((ValueRange{NOT_A_NUMBER, 1.0}).equal_to({1.0, 1.0}));
}

TEST(ValueRange, AveragesAndSetsBothValues) {
  ValueRange range{1.0, 4.0};
  EXPECT_EQ(range.average(), 2.5);
  range.set_both(7.0);
  EXPECT_EQ(range.val, 7.0);
  EXPECT_EQ(range.end, 7.0);
}

TEST(TimeAxis, WithoutPreStagesTheFirstActiveStageStartsAtT0) {
  ProcessRecipe recipe;
  recipe.t0 = 5.0;
  std::string error = "old";
  ASSERT_TRUE(recipe.add_active_stage(stage_of(10.0), error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(recipe.active_stages[0].begin_time(), 5.0);
  EXPECT_EQ(recipe.active_stages[0].end_time(), 15.0);
}

TEST(TimeAxis, OnePreStageAndTwoActiveStages) {
  ProcessRecipe recipe;
  recipe.t0 = 5.0;
  std::string error;
  recipe.add_pre_stage(layer_of(100.0));
  recipe.add_active_stage(stage_of(10.0), error);
  recipe.add_active_stage(stage_of(20.0), error);
  EXPECT_EQ(recipe.pre_stages[0].begin_time(), 5.0);
  EXPECT_EQ(recipe.pre_stages[0].end_time(), 105.0);
  EXPECT_EQ(recipe.active_stages[0].begin_time(), 105.0);
  EXPECT_EQ(recipe.active_stages[0].end_time(), 115.0);
  EXPECT_EQ(recipe.active_stages[1].begin_time(), 115.0);
  EXPECT_EQ(recipe.active_stages[1].end_time(), 135.0);
}

TEST(TimeAxis, PreStagesFollowEachOther) {
  ProcessRecipe recipe;
  recipe.t0 = 1.0;
  recipe.add_pre_stage(layer_of(2.0));
  recipe.add_pre_stage(layer_of(4.0));
  EXPECT_EQ(recipe.pre_stages[1].begin_time(), 3.0);
  EXPECT_EQ(recipe.pre_stages[1].end_time(), 7.0);
}

TEST(TimeAxis, PostStagesFollowTheLastActiveStageAndEachOther) {
  ProcessRecipe recipe;
  std::string error;
  recipe.add_active_stage(stage_of(10.0), error);
  recipe.add_post_stage(layer_of(3.0));
  recipe.add_post_stage(layer_of(4.0));
  EXPECT_EQ(recipe.post_stages[0].begin_time(), 10.0);
  EXPECT_EQ(recipe.post_stages[1].begin_time(), 13.0);
  EXPECT_EQ(recipe.post_stages[1].end_time(), 17.0);
}

TEST(TimeAxis, WithoutActiveStagesPostStagesFollowThePreStagesOrT0) {
  ProcessRecipe recipe;
  recipe.t0 = 2.0;
  ProcessRecipe bare = recipe;
  bare.add_post_stage(layer_of(3.0));
  EXPECT_EQ(bare.post_stages[0].begin_time(), 2.0);
  recipe.add_pre_stage(layer_of(5.0));
  recipe.add_post_stage(layer_of(3.0));
  EXPECT_EQ(recipe.post_stages[0].begin_time(), 7.0);
}

TEST(AddActiveStage, CopiesTheRecordWithAllItsFields) {
  StageRecord stage = stage_of(10.0);
  stage.name = "well";
  stage.period = 3;
  stage.delta_species[13] = 0.25;
  const ProcessRecipe recipe = recipe_of({stage});
  EXPECT_EQ(recipe.active_stages[0].label, "stage_7");
  EXPECT_EQ(recipe.active_stages[0].name, "well");
  EXPECT_EQ(recipe.active_stages[0].period, 3);
  EXPECT_EQ(recipe.active_stages[0].delta_species[13], 0.25);
  EXPECT_EQ(stage.time.val, -1.0) << "the caller's record stays as it was";
}

TEST(AddActiveStage, ASingleConstantStageLeavesConditionsConstant) {
  const ProcessRecipe recipe = recipe_of({stage_of(10.0)});
  EXPECT_FALSE(recipe.conditions_vary);
  EXPECT_FALSE(recipe.active_stages[0].flows_vary);
}

TEST(AddActiveStage, StagesThatDifferInOneFlowSetFlowsVaryOnTheLaterOneOnly) {
  StageRecord later = stage_of(10.0);
  later.Q[8] = {7000.0, 7000.0};
  const ProcessRecipe recipe = recipe_of({stage_of(10.0), later});
  EXPECT_TRUE(recipe.conditions_vary);
  EXPECT_FALSE(recipe.active_stages[0].flows_vary);
  EXPECT_TRUE(recipe.active_stages[1].flows_vary);
}

TEST(AddActiveStage, AFlowRampSetsFlowsVaryAndConditionsVary) {
  StageRecord ramp = stage_of(10.0);
  ramp.Q[10] = {0.0, 100.0};
  const ProcessRecipe recipe = recipe_of({ramp});
  EXPECT_TRUE(recipe.conditions_vary);
  EXPECT_TRUE(recipe.active_stages[0].flows_vary);
}

TEST(AddActiveStage, TemperatureAndPressureSetConditionsVaryOnly) {
  for (ValueRange StageRecord::*quantity : {&StageRecord::T, &StageRecord::P, &StageRecord::omega_TDR}) {
    StageRecord ramp = stage_of(10.0);
    ramp.*quantity = {900.0, 901.0};
    const ProcessRecipe within = recipe_of({ramp});
    EXPECT_TRUE(within.conditions_vary);
    EXPECT_FALSE(within.active_stages[0].flows_vary);

    StageRecord step = stage_of(10.0);
    step.*quantity = {901.0, 901.0};
    const ProcessRecipe between = recipe_of({stage_of(10.0), step});
    EXPECT_TRUE(between.conditions_vary);
    EXPECT_FALSE(between.active_stages[1].flows_vary);
    EXPECT_FALSE(recipe_of({step, step}).conditions_vary);
  }
}

TEST(AddActiveStage, AnUndefinedRotationRateDoesNotVaryWithinItsStage) {
  StageRecord stage = stage_of(10.0);
  stage.omega_TDR = {-1.0, 5.0};
  EXPECT_FALSE(recipe_of({stage}).conditions_vary);
  EXPECT_TRUE(recipe_of({stage_of(10.0), stage}).conditions_vary) << "but it differs from the stage before";
}

TEST(AddActiveStage, OtherQuantitiesDoNotCount) {
  StageRecord other = stage_of(10.0);
  other.rho_D = {1e8, 2e8};
  other.delta = 0.01;
  other.GR_average = 1.0;
  other.XIn_average = 0.5;
  other.XAl_average = 0.25;
  const ProcessRecipe recipe = recipe_of({stage_of(10.0), other});
  EXPECT_FALSE(recipe.conditions_vary);
  EXPECT_FALSE(recipe.active_stages[1].flows_vary);
}

TEST(AddActiveStage, ABadStageIsReportedWithItsLabelAndStaysInTheList) {
  ProcessRecipe recipe;
  std::string error;
  EXPECT_FALSE(recipe.add_active_stage(stage_of(0.0), error));
  EXPECT_EQ(error, "Active stage stage_7 is not set correctly. Stage duration is zero or not specified");
  EXPECT_EQ(recipe.active_stages.size(), 1u);
}

TEST(ValidateStage, ChecksInOrderDurationTimesTemperaturePressureFlows) {
  const ProcessRecipe recipe;
  StageRecord stage;
  std::string error;
  const auto rejected = [&] { return !recipe.validate_stage(stage, error); };
  EXPECT_TRUE(rejected());
  EXPECT_EQ(error, "Stage duration is zero or not specified");
  stage.tau = 10.0;
  EXPECT_TRUE(rejected());
  EXPECT_EQ(error, "Stage begin and end time moments are not calculated correctly inside the code");
  stage.set_times(0.0);
  EXPECT_TRUE(rejected());
  EXPECT_EQ(error, "Temperature is wrong or not specified");
  stage.T = {0.0, 0.0};
  EXPECT_TRUE(rejected());
  EXPECT_EQ(error, "Pressure is wrong or not specified");
  stage.P = {0.0, 0.0};
  EXPECT_TRUE(rejected());
  EXPECT_EQ(error, "Flow rates are wrong or not specified");
  stage.Q[10] = {0.0, 0.0};
  EXPECT_FALSE(rejected());
}

TEST(ValidateStage, TheLeastDurationIsTenNanosecondsAndNaNPasses) {
  const ProcessRecipe recipe;
  std::string error;
  StageRecord stage = stage_of(1e-8);
  stage.set_times(0.0);
  EXPECT_TRUE(recipe.validate_stage(stage, error));
  for (double tau : {0.99e-8, 0.0, -1.0}) {
    stage.tau = tau;
    EXPECT_FALSE(recipe.validate_stage(stage, error)) << tau;
  }
  stage.tau = NOT_A_NUMBER;
  EXPECT_TRUE(recipe.validate_stage(stage, error));
}

}  // namespace
}  // namespace vorlen
