// The rows of pre-stages and post-stages: two for each, at its start and at its end.
#include <gtest/gtest.h>

#include "results/written_file.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

double at(const std::vector<double>& row, std::size_t column) { return row.at(column - 1); }

PrePostStageRecord algan(double stress_state, double thickness) {
  PrePostStageRecord layer = small_layer(stress_state);
  layer.X_In_average = 0.1;
  layer.X_Ga_average = 0.6;
  layer.X_Al_average = 0.3;
  layer.thickness = thickness;
  layer.GR_average = 36.0;
  layer.rho_D = 7e8;
  return layer;
}

// GaN and AlInGaN, an active stage, AlInGaN again.
ProcessRecipe stacked_recipe(std::int32_t stress_model) {
  ProcessRecipe recipe = bare_recipe(stress_model);
  add_pre(recipe, small_layer(3.18));
  add_pre(recipe, algan(0.5, 40.25));
  add(recipe, small_stage(5.0));
  add_post(recipe, algan(0.25, 30.5));
  return recipe;
}

TEST(StageRows, ColumnsOfAPreStage) {
  WritingModel model(stacked_recipe(STRESS_OFF));
  const auto rows = model.write().rows;
  ASSERT_EQ(rows.size(), 6u);
  const double a_own = 0.1 * 3.54 + 0.6 * 3.189 + 0.3 * 3.112;
  const double a = (a_own - 3.18) * 0.5 + 3.18;
  const double e = a / a_own - 1.0;
  const double ratio = (0.1 * 92 + 0.6 * 103 + 0.3 * 108) / (0.1 * 224 + 0.6 * 405 + 0.3 * 373);
  for (std::size_t i : {2u, 3u}) {
    SCOPED_TRACE(i);
    EXPECT_EQ(at(rows[i], 3), 36.0) << "in the recipe's unit";
    EXPECT_EQ(at(rows[i], 4), 0.1);
    EXPECT_EQ(at(rows[i], 5), 0.6);
    EXPECT_EQ(at(rows[i], 6), 0.3);
    for (std::size_t column : {7u, 14u}) EXPECT_EQ(at(rows[i], column), 7e8);
    EXPECT_EQ(at(rows[i], 8), 0.0);
    for (std::size_t first : {9u, 15u}) {
      EXPECT_DOUBLE_EQ(at(rows[i], first), a);
      EXPECT_NEAR(at(rows[i], first + 1), e, 1e-15);
      EXPECT_EQ(at(rows[i], first + 2), at(rows[i], first + 1));
      EXPECT_NEAR(at(rows[i], first + 3), -2.0 * ratio * e, 1e-15);
      EXPECT_EQ(at(rows[i], first + 4), 0.0);
    }
  }
}

TEST(StageRows, TimeAndDepthRunThroughTheWholeStack) {
  WritingModel model(stacked_recipe(STRESS_OFF));
  add_history(*model, 20.0, model->z_start);
  add_history(*model, 25.0, 1.6e-7);
  model->z = 1.6e-7;
  const auto rows = model.write().rows;
  const double times[] = {0.0, 10.0, 10.0, 20.0, 20.0, 25.0, 25.0, 35.0};
  const double depths[] = {0.0, 100.0, 100.0, 140.25, 140.25, 160.0, 160.0, 190.5};
  ASSERT_EQ(rows.size(), 8u);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(at(rows[i], 1), times[i]) << i;
    EXPECT_NEAR(at(rows[i], 2), depths[i], 1e-12) << i;
  }
  EXPECT_TRUE(same_bits(1.6e-7 * 1e9, at(rows[6], 2))) << "the final thickness of the model";
}

TEST(StageRows, BothRowsOfAStageDifferInTimeAndDepthAlone) {
  WritingModel model(stacked_recipe(STRESS_V_dislocation));
  model->detail_output = true;
  const auto rows = model.write().rows;
  for (std::size_t i = 0; i + 1 < rows.size(); i += 2) {
    for (std::size_t column = 3; column <= 39; ++column)
      EXPECT_TRUE(same_bits(at(rows[i], column), at(rows[i + 1], column))) << i << ", " << column;
  }
}

TEST(StageRows, OnlyPostStagesShowTheFinalDensityOfTheDefects) {
  WritingModel model(stacked_recipe(STRESS_V_dislocation));
  model->rho_VD = 3e13;
  const auto rows = model.write().rows;
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(at(rows[i], 8), 0.0);
  for (std::size_t i = 4; i < 6; ++i) EXPECT_DOUBLE_EQ(at(rows[i], 8), 6e9);
}

TEST(StageRows, InDetailTheyGoOnWithOneAndZeros) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    WritingModel model(stacked_recipe(stress_model));
    model->detail_output = true;
    for (const std::vector<double>& row : model.write().rows) {
      EXPECT_EQ(at(row, 20), 1.0);
      for (std::size_t column = 21; column <= row.size(); ++column)
        EXPECT_TRUE(same_bits(0.0, at(row, column))) << column;
    }
  }
}

TEST(StageRows, AGrowthRateThatTheRecipeDidNotGiveShowsItsDefault) {
  WritingModel model(small_recipe(STRESS_OFF));
  const WrittenFile file = model.write();
  EXPECT_EQ(at(file.rows[0], 3), -1e20);
  EXPECT_NE(file.row_lines[0].find(" -1.0000000000000000e+020 "), std::string::npos);
}

TEST(StageRows, PostStagesAreResolvedWhenTheFileIsWritten) {
  WritingModel model(stacked_recipe(STRESS_V_dislocation));
  EXPECT_EQ(model->post_stages[0].a_lattice, -1.0);
  model->z = model->z_start + 1e-6;
  model->a_bulk = 3.2;
  const auto rows = model.write().rows;
  const double rho = 7e12;  // of the last pre-stage, m^-2
  const double surface =
      std::log(rho * REACTION_LENGTH * 1e-6 + 1.0) * 0.5 * B_BURGERS / REACTION_LENGTH * 3.2 + model->a_ref;
  const double a_own = 0.1 * 3.54 + 0.6 * 3.189 + 0.3 * 3.112;
  EXPECT_TRUE(close_to((a_own - surface) * 0.25 + surface, at(rows[4], 9)));
}

TEST(StageRows, AFailedRunStillResolvesThem) {
  WritingModel model(stacked_recipe(STRESS_OFF));
  model.write(false);
  EXPECT_GT(model->post_stages[0].a_lattice, 3.0);
}

}  // namespace
}  // namespace vorlen_test
