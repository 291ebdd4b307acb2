// The columns of the active rows, in both stress models.
//
// Column numbers in the comments and in at(row, n) count from 1, as in the heading.
#include <gtest/gtest.h>

#include "results/written_file.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

double at(const std::vector<double>& row, std::size_t column) { return row.at(column - 1); }

// The rows between those of the single pre-stage and the end.
std::vector<std::vector<double>> active_rows(WritingModel& model) {
  WrittenFile file = model.write();
  file.rows.erase(file.rows.begin(), file.rows.begin() + 2);
  return file.rows;
}

const std::array<double, 3> X = {0.2, 0.5, 0.3};
const double A_OWN = 0.2 * 3.54 + 0.5 * 3.189 + 0.3 * 3.112;
const double RATIO = (0.2 * 92 + 0.5 * 103 + 0.3 * 108) / (0.2 * 224 + 0.5 * 405 + 0.3 * 373);

TEST(ActiveRows, TimeDepthGrowthRateAndComposition) {
  WritingModel model(small_recipe(STRESS_OFF));
  add_history(*model, 10.0, 1e-7);
  add_history(*model, 12.3456789, 1.23e-7, X);
  const auto rows = active_rows(model);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_TRUE(same_bits(12.3456789, at(rows[1], 1)));
  EXPECT_TRUE(same_bits(1.23e-7 * 1e9, at(rows[1], 2)));
  EXPECT_TRUE(same_bits(2e-10 * 1e9, at(rows[1], 3))) << "nm/s";
  for (std::size_t k = 0; k < 3; ++k) EXPECT_TRUE(same_bits(X[k], at(rows[1], 4 + k)));
}

TEST(ActiveRows, WithoutRelaxationTheStrainFollowsTheCompositionAlone) {
  WritingModel model(small_recipe(STRESS_OFF));
  model->rho_VD = 1e15;  // must not matter
  model->z0 = 1e-7;
  add_history(*model, 10.0, 1e-7, {0.0, 1.0, 0.0});
  add_history(*model, 11.0, 2e-7, X);
  add_history(*model, 12.0, 3e-7, X);
  for (const auto& row : active_rows(model)) {
    const double e = at(row, 4) == 0.0 ? 0.0 : 3.189 / A_OWN - 1.0;
    for (std::size_t first : {8u, 14u}) {
      SCOPED_TRACE(first);
      EXPECT_EQ(at(row, first + 1), 3.189) << "a_eff";
      EXPECT_NEAR(at(row, first + 2), e, 1e-15);
      EXPECT_EQ(at(row, first + 3), at(row, first + 2));
      EXPECT_NEAR(at(row, first + 4), -2.0 * RATIO * e, 1e-15);
      EXPECT_EQ(at(row, first + 5), 0.0);
    }
    EXPECT_EQ(at(row, 8), 0.0) << "rho_VD0";
    EXPECT_EQ(at(row, 7), at(row, 14));
  }
}

TEST(ActiveRows, TheCompositionIsTheRawStateNotTheClippedOne) {
  WritingModel model(small_recipe(STRESS_OFF));
  add_history(*model, 10.0, 1e-7, {-0.01, 1.02, -0.01});
  const auto rows = active_rows(model);
  EXPECT_EQ(at(rows[0], 4), -0.01);
  const double a = -0.01 * 3.54 + 1.02 * 3.189 - 0.01 * 3.112;
  EXPECT_NEAR(at(rows[0], 10), 3.189 / a - 1.0, 1e-15);
}

TEST(ActiveRows, WithoutRelaxationTheDensityMovesLinearlyInsideAStage) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add_pre(recipe, small_layer(3.189));
  StageRecord stage = small_stage(10.0);
  stage.rho_D = {1e8, 5e8};
  add(recipe, stage);
  stage.rho_D = {7e8, 7e8};
  add(recipe, stage);
  stage.rho_D = {0.0, 2e8};
  add(recipe, stage);
  WritingModel model(recipe);
  for (double t : {10.0, 12.5, 20.0, 20.001, 30.0, 31.0, 40.0}) add_history(*model, t, t * 1e-8);
  const auto rows = active_rows(model);
  // A point on a boundary belongs to the stage before.
  const double expected[] = {1e8, 2e8, 5e8, 7e8, 7e8, 2e7, 2e8};
  for (std::size_t i = 0; i < 7; ++i) {
    EXPECT_DOUBLE_EQ(at(rows[i], 7), expected[i]) << i;
    EXPECT_EQ(at(rows[i], 14), at(rows[i], 7)) << i;
  }
}

TEST(ActiveRows, ADensityThatIsNotPositiveIsZero) {
  WritingModel model(small_recipe(STRESS_OFF));
  model->active_stages[0].rho_D = {1e8, -1e8};
  for (double t : {10.0, 15.0, 20.0}) add_history(*model, t, 1e-7);
  const auto rows = active_rows(model);
  EXPECT_EQ(at(rows[0], 7), 1e8);
  EXPECT_EQ(at(rows[1], 7), 0.0);
  EXPECT_EQ(at(rows[2], 7), 0.0);
}

TEST(ActiveRows, OneStepMayJumpOverAWholeStage) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add_pre(recipe, small_layer(3.189));
  for (double rho : {1e8, 2e8, 3e8}) {
    StageRecord stage = small_stage(1.0);
    stage.rho_D = {rho, rho};
    add(recipe, stage);
  }
  WritingModel model(recipe);
  add_history(*model, 10.0, 1e-7);
  add_history(*model, 12.5, 2e-7);
  // A time after the end belongs to the last stage.
  add_history(*model, 13.5, 3e-7);
  const auto rows = active_rows(model);
  EXPECT_EQ(at(rows[1], 7), 3e8);
  EXPECT_EQ(at(rows[2], 7), 3e8);
}

// V_dislocation with defects since z0 = 400 nm; the pre-stage gives 5e12 m^-2 and ends at 100 nm.
struct RelaxedRows : testing::Test {
  static constexpr double Z0 = 4e-7;
  static constexpr double H_Z0 = 2e-8;
  WritingModel model{small_recipe(STRESS_V_dislocation)};
  RelaxedRows() {
    model->z0 = Z0;
    model->h_z0 = H_Z0;
    model->rho_TD_z0 = 3e12;
    model->eps_r_z0 = 1e-4;
    model->rho_VD = 5e14;
  }
  static double eps_from_start(double w) {
    return std::log(5e12 * REACTION_LENGTH * w + 1.0) * 0.5 * B_BURGERS / REACTION_LENGTH;
  }
  static double eps_from_z0(double rho, double w) {
    return 1e-4 + std::log((2.0 * rho + 3e12) * REACTION_LENGTH * w + 1.0) * 0.5 * B_BURGERS / REACTION_LENGTH;
  }
  static double density_from_z0(double rho, double w) {
    return 1e-4 / (REACTION_LENGTH * w + 1.0 / (2.0 * rho + 3e12));
  }
  // Columns of one group, (t) from 7 on or (z) from 14 on, for a strain e and a density in cm^-2.
  static void expect_group(const std::vector<double>& row, bool final_state, double density, double e) {
    SCOPED_TRACE(final_state ? "(z)" : "(t)");
    EXPECT_TRUE(close_to(density, at(row, final_state ? 14 : 7), 1e-12));
    const std::size_t a_eff = final_state ? 15 : 9;
    EXPECT_TRUE(close_to((e + 1.0) * A_OWN, at(row, a_eff)));
    EXPECT_TRUE(close_to(e, at(row, a_eff + 1), 1e-12));
    EXPECT_EQ(at(row, a_eff + 2), at(row, a_eff + 1));
    EXPECT_TRUE(close_to(-2.0 * RATIO * e, at(row, a_eff + 3), 1e-12));
    EXPECT_EQ(at(row, a_eff + 4), 0.0);
  }
};

TEST_F(RelaxedRows, AboveZ0BothGroupsTakeTheDensityOfTheirTime) {
  add_history(*model, 15.0, 6e-7, X, 5e-8, 1e13);
  const auto row = active_rows(model).at(0);
  const double e = 3.189 / A_OWN - 1.0;
  const double w = 6e-7 - Z0 - 5e-8 + H_Z0;
  expect_group(row, false, density_from_z0(1e13, w), e + eps_from_z0(1e13, w));
  expect_group(row, true, density_from_z0(5e14, w), e + eps_from_z0(5e14, w));
  EXPECT_DOUBLE_EQ(at(row, 8), 2e13 * 1e-4);
  EXPECT_GE(at(row, 14), at(row, 7));
  EXPECT_GE(at(row, 16), at(row, 10));
}

TEST_F(RelaxedRows, BelowZ0BothGroupsAreEqualWhateverTheFinalDensity) {
  add_history(*model, 10.0, 1e-7, X);
  add_history(*model, 12.0, 3e-7, X, 1e-8, 0.0);
  add_history(*model, 14.0, std::nextafter(Z0, 0.0), X, H_Z0, 0.0);
  const auto rows = active_rows(model);
  const double e = 3.189 / A_OWN - 1.0;
  for (std::size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const double w = model->history.z[i] - 1e-7 - model->history.h[i];
    for (bool final_state : {false, true})
      expect_group(rows[i], final_state, 1e-4 / (1.0 / 5e12 + REACTION_LENGTH * w), e + eps_from_start(w));
    for (std::size_t column : {7u, 9u, 10u, 12u})
      EXPECT_TRUE(same_bits(at(rows[i], column), at(rows[i], column < 9 ? column + 7 : column + 6))) << column;
    EXPECT_EQ(at(rows[i], 8), 0.0);
  }
}

TEST_F(RelaxedRows, AtZ0TheDensityTakesTheDefectsTheStrainDoesNot) {
  add_history(*model, 14.0, Z0, X, H_Z0, 0.0);
  const auto row = active_rows(model).at(0);
  const double e = 3.189 / A_OWN - 1.0;
  const double w = Z0 - 1e-7 - H_Z0;
  expect_group(row, false, 1e-4 / (1.0 / 5e12 + REACTION_LENGTH * w), e + eps_from_start(w));
  expect_group(row, true, (2.0 * 5e14 + 3e12) * 1e-4, e + eps_from_start(w));
}

TEST_F(RelaxedRows, WhereTheDensityRoseTheFinishedStructureIsRelaxedFurther) {
  for (int i = 0; i < 5; ++i) add_history(*model, 10.0 + i, 4.5e-7 + i * 5e-8, X, H_Z0, 1e12 * std::pow(10.0, i * 0.5));
  model->rho_VD = model->history.rho_VD.back();
  const auto rows = active_rows(model);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_GT(at(rows[i], 14), at(rows[i], 7)) << i;
    EXPECT_GT(at(rows[i], 16), at(rows[i], 10)) << i;
  }
  EXPECT_EQ(at(rows[4], 14), at(rows[4], 7));
  EXPECT_EQ(at(rows[4], 16), at(rows[4], 10));
}

TEST(ActiveRowsInDetail, WithoutRelaxationTheSurfaceConcentrationsFollow) {
  WritingModel model(small_recipe(STRESS_OFF));
  model->detail_output = true;
  add_history(*model, 10.0, 1e-7, {0.1, 0.2, 0.3});
  const auto row = active_rows(model).at(0);
  ASSERT_EQ(row.size(), 25u);
  EXPECT_TRUE(same_bits(0.1 + 0.2 + 0.3, at(row, 20)));
  for (std::size_t k = 0; k < 5; ++k) EXPECT_EQ(at(row, 21 + k), 101.0 + static_cast<double>(k));
}

struct DetailedRows : RelaxedRows {
  DetailedRows() { model->detail_output = true; }
};

TEST_F(DetailedRows, TheEnergyTermsFollowInTheOrderOfTheHeading) {
  add_history(*model, 10.0, 6e-7, X, 5e-8, 1e13);
  const auto row = active_rows(model).at(0);
  ASSERT_EQ(row.size(), 39u);
  // The lists hold 1001 to 1011 in the order I0, I1, J0_0, J0_1, K1, J0, J1, J2, deltaE, E_V_loop, r.
  const double expected[] = {Z0 * 1e9, 1e13,   1005.0, 5e-8 * 1e9, 1001.0, 1002.0 * 1e10, 1003.0,
                             1004.0,   1006.0, 1007.0, 1008.0,     1009.0, 1010.0,        1011.0};
  for (std::size_t k = 0; k < 14; ++k) EXPECT_EQ(at(row, 26 + k), expected[k]) << "column " << 26 + k;
}

TEST_F(DetailedRows, TheDepthOfTheDefectsShowsFromThatDepthOn) {
  add_history(*model, 10.0, std::nextafter(Z0, 0.0));
  add_history(*model, 11.0, Z0);
  add_history(*model, 12.0, 5e-7);
  const auto rows = active_rows(model);
  EXPECT_EQ(at(rows[0], 26), 0.0);
  EXPECT_EQ(at(rows[1], 26), Z0 * 1e9);
  EXPECT_EQ(at(rows[2], 26), Z0 * 1e9);
}

TEST_F(DetailedRows, WithoutDefectsTheDepthShowsMinusOne) {
  model->z0 = -1e-9;
  add_history(*model, 10.0, 1e-7);
  EXPECT_DOUBLE_EQ(at(active_rows(model).at(0), 26), -1.0);
}

TEST_F(DetailedRows, BehindTheEndOfTheIntegralsTheirColumnsAreZero) {
  for (int i = 0; i < 3; ++i) add_history(*model, 10.0 + i, 5e-7, X);
  for (auto* list : {&model->history.I0, &model->history.I1, &model->history.J0_0, &model->history.J0_1}) {
    list->resize(2);
    list->shrink_to_fit();
  }
  const auto rows = active_rows(model);
  for (std::size_t column = 30; column <= 33; ++column) {
    EXPECT_NE(at(rows[1], column), 0.0) << column;
    EXPECT_EQ(at(rows[2], column), 0.0) << column;
  }
  EXPECT_NE(at(rows[2], 34), 0.0) << "the others continue";
}

TEST_F(DetailedRows, ManyMegabytesOfRowsAreWrittenLikeTheFirst) {
  // Every eighth row has the other sign in most columns, so that the rows differ in length.
  constexpr std::size_t COUNT = 4000;
  for (std::size_t i = 0; i < COUNT; ++i) {
    add_history(*model, 10.0 + 0.25 * static_cast<double>(i), 6e-7 + 1e-11 * static_cast<double>(i), X, 5e-8, 1e13);
    if (i % 8 != 7) continue;
    for (auto* list : {&model->history.c_In, &model->history.c_Ga, &model->history.J0, &model->history.r})
      list->back() *= -1.0;
  }
  const auto rows = active_rows(model);
  ASSERT_EQ(rows.size(), COUNT);
  for (std::size_t i = 0; i < COUNT; ++i) {
    ASSERT_EQ(rows[i].size(), 39u);
    ASSERT_EQ(at(rows[i], 1), model->history.t[i]);
    ASSERT_EQ(at(rows[i], 21), model->history.c_In[i]);
    ASSERT_EQ(at(rows[i], 39), model->history.r[i]);
  }
}

}  // namespace
}  // namespace vorlen_test
