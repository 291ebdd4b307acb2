// Dislocation density, relieved strain, the five rows of the relaxation, and the relative mismatch.
//
// The density law and the strain relief are checked against each other: d(eps)/dw = 1/2 b tan(V) density. Other numbers
// are the laws in closed form with the constants of small_model.h, tan(45 degrees) = 1.
#include <gtest/gtest.h>

#include "strain/small_model.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double RHO_0 = 5e12;  // density below the active layer, m^-2

// V-defects of density 1e14 m^-2 since z0, 300 nm above the start; 50 nm of these were grown in tension.
std::unique_ptr<SurfChemNonst> model_with_defects() {
  auto m = small_model(STRESS_V_dislocation);
  m->z0 = m->z_start + 3e-7;
  m->h_z0 = 5e-8;
  m->rho_VD = 1e14;
  m->rho_TD_z0 = 1.0 / (1.0 / RHO_0 + REACTION_LENGTH * 2.5e-7);
  m->eps_r_z0 = m->eps_relaxed(0.0, m->z0, m->h_z0);
  return m;
}

TEST(Relaxation, TheAngleIsConvertedToRadians) {
  const auto m = small_model(STRESS_V_dislocation);
  EXPECT_DOUBLE_EQ(m->V_angle_05, 3.141592653589793 / 4);
  EXPECT_DOUBLE_EQ(m->sin_V, std::sqrt(0.5));
  EXPECT_DOUBLE_EQ(m->tan_V, 1.0);
}

TEST(Relaxation, AnAngleOf90DegreesIsRejectedBeforeItsCosineMatters) {
  ProcessRecipe recipe = small_recipe(STRESS_V_dislocation);
  recipe.V_angle_05 = 90.0;
  std::int32_t err = 0;
  const SurfChemNonst m(recipe, "", err);
  EXPECT_EQ(err, -1);
  EXPECT_EQ(m.error_text, "Dislocation angle is beyond [0;90] degrees or not specified");
}

TEST(Relaxation, TheModulusIsThatOfAFixedAlloy) { EXPECT_EQ(modulus_M(), 430880000000.0); }

TEST(Relaxation, TheDensityOfTheLastPreStageEntersInInverseSquareMetres) {
  ProcessRecipe recipe = small_recipe(STRESS_V_dislocation);
  recipe.pre_stages.back().rho_D = 1e8;
  const auto m = model_of(recipe);
  EXPECT_EQ(m->rho_TD0, 1e12);
  EXPECT_DOUBLE_EQ(m->rho_TD_at(0.0, m->z_start, 0.0), 1e8);
}

TEST(Relaxation, AGivenDensityOfAStageIsOverwrittenUnderVDislocation) {
  ProcessRecipe recipe = small_recipe(STRESS_V_dislocation);
  recipe.active_stages[0].rho_D = {1e3, 2e3};
  const auto m = model_of(recipe);
  EXPECT_EQ(m->active_stages[0].rho_D.val, RHO_0);
  EXPECT_EQ(m->active_stages[0].rho_D.end, RHO_0);
}

TEST(Relaxation, WithoutRelaxationStagesInheritTheEndOfTheStageBefore) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add_pre(recipe, small_layer(3.189));
  StageRecord inherited = small_stage(10.0);
  inherited.disl_model = DISL_inherited;
  StageRecord given = small_stage(10.0);
  given.rho_D = {1e7, 3e7};
  for (const StageRecord& stage : {inherited, inherited, given, inherited}) add(recipe, stage);
  const auto m = model_of(recipe);
  const double val[] = {5e8, 5e8, 1e7, 3e7};
  const double end[] = {5e8, 5e8, 3e7, 3e7};
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(m->active_stages[k].rho_D.val, val[k]) << k;
    EXPECT_EQ(m->active_stages[k].rho_D.end, end[k]) << k;
  }
  EXPECT_EQ(m->rho_TD0, 0.0);
}

TEST(Relaxation, AFirstStageCannotInheritWithoutPreStages) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  StageRecord stage = small_stage(10.0);
  stage.disl_model = DISL_inherited;
  add(recipe, stage);
  std::int32_t err = 0;
  const SurfChemNonst m(recipe, "", err);
  EXPECT_EQ(err, 1);
  EXPECT_EQ(m.error_text, "Cannot inherit dislocation density for first active stage: no pre-stages");
}

TEST(Relaxation, TheReciprocalOfTheDensityGrowsWithTheThicknessOutsideTension) {
  const auto m = small_model(STRESS_V_dislocation);
  const double z = m->z_start + 4e-6;
  EXPECT_TRUE(close_to(1e-4 / (1.0 / RHO_0 + REACTION_LENGTH * 3e-6), m->rho_TD_at(0.0, z, 1e-6)));
  EXPECT_TRUE(close_to(1e-4 / (1.0 / RHO_0 + REACTION_LENGTH * 3e-6), m->rho_TD_at(1e14, z, 1e-6)))
      << "V-defects count from z0 on alone";
}

TEST(Relaxation, ADensityBelowTheSmallestOneIsExactlyZero) {
  const auto m = small_model(STRESS_V_dislocation);
  m->rho_TD0 = std::nextafter(1e-5, 0.0);
  EXPECT_EQ(m->rho_TD_at(0.0, m->z_start, 0.0), 0.0);
  m->rho_TD0 = 1e-5;
  EXPECT_DOUBLE_EQ(m->rho_TD_at(0.0, m->z_start, 0.0), 1e-9);

  m->z0 = m->z_start;
  m->rho_TD_z0 = 0.0;
  EXPECT_EQ(m->rho_TD_at(4.9e-6, m->z_start, 0.0), 0.0) << "two dislocations for each defect: 9.8e-6";
  EXPECT_DOUBLE_EQ(m->rho_TD_at(5e-6, m->z_start, 0.0), 1e-9);
}

TEST(Relaxation, WithoutPreStagesNothingRelaxes) {
  ProcessRecipe recipe = bare_recipe(STRESS_V_dislocation);
  add(recipe, small_stage(10.0));
  const auto m = model_of(recipe);
  EXPECT_EQ(m->rho_TD0, 0.0);
  EXPECT_EQ(m->eps_relaxed(0.0, 1e-6, 0.0), 0.0);
  EXPECT_EQ(m->rho_TD_at(0.0, 1e-6, 0.0), 0.0);
  EXPECT_EQ(m->relative_mismatch(), -1.0);
}

TEST(Relaxation, NothingIsRelievedAtTheStartOrBelowIt) {
  const auto m = small_model(STRESS_V_dislocation);
  EXPECT_EQ(m->eps_relaxed(0.0, m->z_start, 0.0), 0.0);
  EXPECT_EQ(m->eps_relaxed(0.0, std::nextafter(m->z_start, 0.0), 0.0), 0.0);
  EXPECT_EQ(m->eps_relaxed(0.0, 0.0, 0.0), 0.0);
}

TEST(Relaxation, TheRelievedStrainIsTheIntegralOfTheDensityFromTheStart) {
  const auto m = small_model(STRESS_V_dislocation);
  for (double h : {0.0, 2e-7}) {
    const double z = m->z_start + h + 2e-6;
    const auto rate = [&](double z_at) { return 0.5 * B_BURGERS * m->tan_V * 1e4 * m->rho_TD_at(0.0, z_at, h); };
    EXPECT_TRUE(close_to(simpson(rate, m->z_start + h, z), m->eps_relaxed(0.0, z, h), 1e-12));
  }
}

TEST(Relaxation, AboveZ0TheRelievedStrainIsTheIntegralOfTheDensityFromThere) {
  const auto m = model_with_defects();
  const double rho = 1e14;
  const double h = 7e-8;  // 20 nm more of tension
  const double z = m->z0 + 5e-7;
  const double z_from = m->z0 + (h - m->h_z0);  // no effective thickness since z0
  const auto rate = [&](double z_at) { return 0.5 * B_BURGERS * m->tan_V * 1e4 * m->rho_TD_at(rho, z_at, h); };
  EXPECT_TRUE(close_to(m->eps_r_z0 + simpson(rate, z_from, z, 20000), m->eps_relaxed(rho, z, h), 1e-11));
}

TEST(Relaxation, AtZ0TheDensityTakesTheDefectsTheStrainDoesNot) {
  const auto m = model_with_defects();
  const double z0 = m->z0;
  const double h = m->h_z0;
  // Density: z0 <= z.
  EXPECT_DOUBLE_EQ(m->rho_TD_at(1e14, z0, h), (2e14 + m->rho_TD_z0) * 1e-4);
  EXPECT_TRUE(close_to(m->rho_TD_z0 * 1e-4, m->rho_TD_at(1e14, std::nextafter(z0, 0.0), h)));
  // Strain: z0 < z. A mark in the frozen strain shows which branch was taken.
  m->eps_r_z0 = 0.5;
  EXPECT_LT(m->eps_relaxed(1e14, z0, h), 0.1);
  EXPECT_GE(m->eps_relaxed(1e14, std::nextafter(z0, 1.0), h), 0.5);
}

TEST(Relaxation, WithoutDefectsTheLawFromTheStartContinuesAboveZ0) {
  const auto m = model_with_defects();
  const double z = m->z0 + 1e-6;
  const double w = z - m->z_start - m->h_z0;
  EXPECT_TRUE(close_to(1e-4 / (1.0 / RHO_0 + REACTION_LENGTH * w), m->rho_TD_at(0.0, z, m->h_z0)));
  EXPECT_TRUE(close_to(std::log(RHO_0 * REACTION_LENGTH * w + 1.0) * 0.5 * B_BURGERS / REACTION_LENGTH,
                       m->eps_relaxed(0.0, z, m->h_z0)));
}

TEST(Relaxation, AZ0ThatIsNotFoundKeepsTheLawFromTheStart) {
  const auto m = model_with_defects();
  m->eps_r_z0 = 0.5;
  m->z_start = 0.0;
  for (double z0 : {-1e-9, -1e-20}) {
    m->z0 = z0;
    EXPECT_LT(m->eps_relaxed(1e14, 1e-6, 0.0), 0.1) << z0;
    EXPECT_LT(m->rho_TD_at(1e14, 1e-6, 0.0), 1e9) << z0;
  }
  m->z0 = 0.0;
  EXPECT_GT(m->eps_relaxed(1e14, 1e-6, 0.0), 0.5);
  EXPECT_GT(m->rho_TD_at(1e14, 0.0, m->h_z0), 1e10);
}

TEST(RelaxationRows, TheyAreTheDerivativesOfTheEnergyIntegrals) {
  const auto m = small_model(STRESS_V_dislocation);
  m->a_bulk = 3.25;
  m->z = m->z_start + 5e-7;
  m->h = 1e-7;
  const double GR = 2e-10;
  double f[5];
  m->relaxation_rows(GR, f);
  const double w = 4e-7;
  const double eps_0 = 3.189 / 3.25 - 1.0;
  const double relieved = std::log(RHO_0 * REACTION_LENGTH * w + 1.0) * 0.5 * B_BURGERS / REACTION_LENGTH;
  const double stiff = MODULUS * 2.0 * B_BURGERS;
  EXPECT_TRUE(close_to(eps_0 + relieved, m->eps_xx_last_trial, 1e-12));
  EXPECT_EQ(f[0], 0.0) << "compressed";
  EXPECT_TRUE(close_to((relieved + eps_0) * stiff * GR, f[1], 1e-12));
  EXPECT_TRUE(close_to((relieved + eps_0) * stiff * GR * w, f[2], 1e-12));
  EXPECT_TRUE(close_to(eps_0 * stiff * GR * w, f[3], 1e-12));
  EXPECT_TRUE(close_to(eps_0 * stiff * GR, f[4], 1e-12));
}

TEST(RelaxationRows, OnlyTheStrainNoticesTheDefects) {
  const auto without = model_with_defects();
  const auto with = model_with_defects();
  without->rho_VD = 0.0;
  double f[5], g[5];
  for (auto* m : {without.get(), with.get()}) {
    m->a_bulk = 3.25;
    m->z = m->z0 + 5e-7;
    m->relaxation_rows(1e-10, m == with.get() ? g : f);
  }
  EXPECT_NE(without->eps_xx_last_trial, with->eps_xx_last_trial);
  for (int i = 1; i < 5; ++i) EXPECT_EQ(f[i], g[i]) << i;
}

TEST(RelaxationRows, TensionCountsAboveOneTenThousandthOnly) {
  const auto m = model_with_defects();
  // No mismatch and no thickness since z0: the strain is the frozen one, exactly.
  m->a_bulk = m->a_ref;
  m->z = m->z0 + 1e-7;
  m->h_z0 = 0.0;
  m->h = m->z - m->z0;
  double f[5];
  m->eps_r_z0 = 0.0001;
  m->relaxation_rows(3e-10, f);
  ASSERT_EQ(m->eps_xx_last_trial, 0.0001);
  EXPECT_EQ(f[0], 0.0);
  m->eps_r_z0 = std::nextafter(0.0001, 1.0);
  m->relaxation_rows(3e-10, f);
  EXPECT_EQ(f[0], 3e-10);
}

TEST(RelativeMismatch, BeforeZ0ItIsTheRelievedStrainInUnitsOfTheLattice) {
  const auto m = small_model(STRESS_V_dislocation);
  m->z = m->z_start + 5e-7;
  m->h = 1e-7;
  const double scale = m->a_ref * 1e-10 / B_BURGERS;
  EXPECT_TRUE(close_to(m->eps_relaxed(0.0, m->z, m->h) * scale - 1.0, m->relative_mismatch()));
  m->z0 = -1e-20;
  m->rho_TD_z0 = 1e20;
  EXPECT_TRUE(close_to(m->eps_relaxed(0.0, m->z, m->h) * scale - 1.0, m->relative_mismatch())) << "-1e-20 is not found";
}

TEST(RelativeMismatch, AboveZ0BothLogarithmsAddUp) {
  const auto m = model_with_defects();
  m->z = m->z0 + 5e-7;
  m->h = 8e-8;
  const double scale = m->a_ref * 1e-10 / B_BURGERS;
  EXPECT_TRUE(close_to(m->eps_relaxed(m->rho_VD, m->z, m->h) * scale - 1.0, m->relative_mismatch()));
  EXPECT_GT(m->relative_mismatch(), -1.0 + m->eps_r_z0 * scale);
}

TEST(RelativeMismatch, ItScalesWithTheReferenceLatticeNotWithTheBurgersVector) {
  const auto m = small_model(STRESS_V_dislocation);
  m->z = m->z_start + 5e-7;
  const double before = m->relative_mismatch() + 1.0;
  m->a_ref *= 2.0;
  EXPECT_TRUE(close_to(2.0 * before, m->relative_mismatch() + 1.0, 1e-10));
  m->b_burgers *= 2.0;
  EXPECT_TRUE(close_to(2.0 * before, m->relative_mismatch() + 1.0, 1e-10));
}

}  // namespace
}  // namespace vorlen_test
