// The chain of lattice constants through pre-stages and post-stages.
//
// Expected numbers: the chain written out in each test, with InN, GaN, AlN at a = 3.54, 3.189, 3.112 and
// c = 5.705, 5.185, 4.982 angstrom.
#include <gtest/gtest.h>

#include "strain/small_model.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

PrePostStageRecord layer(double x_In, double x_Ga, double x_Al, double stress_state) {
  PrePostStageRecord s = small_layer(stress_state);
  s.X_In_average = x_In;
  s.X_Ga_average = x_Ga;
  s.X_Al_average = x_Al;
  return s;
}

PrePostStageRecord inheriting(PrePostStageRecord s) {
  s.disl_model = DISL_inherited;
  s.rho_D = -1.0;
  return s;
}

// The model of pre-stages, one active stage and post-stages.
std::unique_ptr<SurfChemNonst> chain(std::int32_t stress_model, const std::vector<PrePostStageRecord>& pre,
                                     const std::vector<PrePostStageRecord>& post) {
  ProcessRecipe recipe = bare_recipe(stress_model);
  for (const PrePostStageRecord& s : pre) add_pre(recipe, s);
  add(recipe, small_stage(10.0));
  for (const PrePostStageRecord& s : post) add_post(recipe, s);
  return model_of(recipe);
}

// err and text of a construction that must be rejected.
void expect_refused(const ProcessRecipe& recipe, const std::string& text) {
  std::int32_t err = 0;
  const SurfChemNonst model(recipe, "", err);
  EXPECT_EQ(err, -1);
  EXPECT_EQ(model.error_text, text);
}

TEST(StageLattice, TheTableHoldsTheConstantsOfTheChain) {
  const auto m = small_model(STRESS_OFF);
  EXPECT_EQ(m->bulk_species[InN_b].a, 3.54);
  EXPECT_EQ(m->bulk_species[GaN_b].a, 3.189);
  EXPECT_EQ(m->bulk_species[AlN_b].a, 3.112);
  EXPECT_EQ(m->bulk_species[InN_b].c, 5.705);
  EXPECT_EQ(m->bulk_species[GaN_b].c, 5.185);
  EXPECT_EQ(m->bulk_species[AlN_b].c, 4.982);
  EXPECT_DOUBLE_EQ(m->bulk_species[InN_b].M, 262.42857142857144);
  EXPECT_DOUBLE_EQ(m->bulk_species[GaN_b].M, 449.6098765432099);
  EXPECT_DOUBLE_EQ(m->bulk_species[AlN_b].M, 470.4584450402145);
}

TEST(StageLattice, PureCompoundsTakeTheConstantsOfTheTableWhenFullyRelaxed) {
  const auto m =
      chain(STRESS_OFF, {small_layer(3.2), layer(1, 0, 0, 1.0), layer(0, 1, 0, 1.0), layer(0, 0, 1, 1.0)}, {});
  for (int k = 0; k < N_BULK; ++k) {
    const PrePostStageRecord& s = m->pre_stages[static_cast<std::size_t>(k) + 1];
    EXPECT_EQ(s.a_lattice, m->bulk_species[static_cast<std::size_t>(k)].a);
    EXPECT_EQ(s.c_lattice, m->bulk_species[static_cast<std::size_t>(k)].c);
    EXPECT_EQ(s.eps_xx, 0.0);
  }
}

TEST(StageLattice, PreStagesPassTheirLatticeOnFromLayerToLayer) {
  const auto m = chain(
      STRESS_OFF, {layer(0, 1, 0, 3.186), layer(0, 0.7, 0.3, 0.0), layer(0.1, 0.9, 0, 0.4), layer(0, 0, 1, 3.15)}, {});
  const double a1 = 3.186;
  const double a2_own = 0.7 * 3.189 + 0.3 * 3.112;
  const double a3_own = 0.1 * 3.54 + 0.9 * 3.189;
  const double a3 = a1 + 0.4 * (a3_own - a1);
  const std::vector<PrePostStageRecord>& s = m->pre_stages;
  EXPECT_EQ(s[0].a_lattice, a1);
  EXPECT_EQ(s[0].eps_xx, 3.186 / 3.189 - 1.0);
  EXPECT_EQ(s[1].a_lattice, a1) << "a coherent layer";
  EXPECT_DOUBLE_EQ(s[1].eps_xx, a1 / a2_own - 1.0);
  EXPECT_DOUBLE_EQ(s[1].c_lattice, (1.0 - 0.25 * (a1 / a2_own - 1.0)) * (0.7 * 5.185 + 0.3 * 4.982));
  EXPECT_DOUBLE_EQ(s[2].a_lattice, a3);
  EXPECT_NEAR(s[2].eps_xx, a3 / a3_own - 1.0, 1e-15);
  EXPECT_EQ(s[3].a_lattice, 3.15);
  EXPECT_EQ(s[3].eps_xx, 3.15 / 3.112 - 1.0);
  EXPECT_EQ(m->a_ref, 3.15);
}

TEST(StageLattice, AStressStateOfOneRelaxesALaterLayerFully) {
  const auto m = chain(STRESS_OFF, {small_layer(3.2), layer(0.2, 0.8, 0, 1.0)}, {});
  // (a_own - a_prev) + a_prev may miss a_own by one rounding.
  EXPECT_DOUBLE_EQ(m->pre_stages[1].a_lattice, 0.2 * 3.54 + 0.8 * 3.189);
  EXPECT_NEAR(m->pre_stages[1].eps_xx, 0.0, 3e-16);
}

TEST(StageLattice, AStressStateAtOrAboveTheLimitIsALatticeConstant) {
  const double limit = 1.0000000001;
  const auto m = chain(
      STRESS_OFF, {layer(0.3, 0.3, 0.4, 3.2), layer(0, 0, 1, limit), layer(0, 1, 0, std::nextafter(limit, 0.0))}, {});
  EXPECT_EQ(m->pre_stages[0].a_lattice, 3.2) << "whatever the composition";
  EXPECT_EQ(m->pre_stages[1].a_lattice, limit);
  // Just below the limit it is a degree of relaxation, slightly above full.
  EXPECT_NEAR(m->pre_stages[2].a_lattice, 3.189, 1e-9);
}

TEST(StageLattice, AFirstPreStageWithoutALatticeConstantIsRejected) {
  for (double stress_state : {0.0, 0.5, 1.0, std::nextafter(1.0000000001, 0.0)}) {
    ProcessRecipe recipe = bare_recipe(STRESS_OFF);
    add_pre(recipe, small_layer(stress_state));
    add(recipe, small_stage(10.0));
    expect_refused(recipe, "Lattice constant 'a' of first pre-stage is not defined");
  }
}

TEST(StageLattice, AFirstPreStageAtTheLimitIsAcceptedAsAboutOneAngstrom) {
  const auto m = chain(STRESS_OFF, {small_layer(1.0000000001)}, {});
  EXPECT_EQ(m->pre_stages[0].a_lattice, 1.0000000001);
  EXPECT_EQ(m->a_ref, 1.0000000001);
}

TEST(StageLattice, AFirstPreStageCannotInheritItsDensity) {
  ProcessRecipe recipe = bare_recipe(STRESS_V_dislocation);
  add_pre(recipe, inheriting(small_layer(3.189)));
  add(recipe, small_stage(10.0));
  expect_refused(recipe, "Cannot inherit dislocation density for first pre-stage");
}

TEST(StageLattice, TheMissingLatticeConstantIsReportedBeforeTheInheritedDensity) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add_pre(recipe, inheriting(small_layer(1.0)));
  add(recipe, small_stage(10.0));
  expect_refused(recipe, "Lattice constant 'a' of first pre-stage is not defined");
}

TEST(StageLattice, LaterPreStagesInheritTheDensityOfTheLayerBelow) {
  PrePostStageRecord first = small_layer(3.189);
  first.rho_D = 3e9;
  PrePostStageRecord given = small_layer(0.0);
  given.rho_D = 7e8;
  const auto m = chain(
      STRESS_OFF,
      {first, inheriting(small_layer(0.0)), inheriting(small_layer(0.0)), given, inheriting(small_layer(0.0))}, {});
  const double expected[] = {3e9, 3e9, 3e9, 7e8, 7e8};
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(m->pre_stages[i].rho_D, expected[i]) << i;
}

TEST(StageLattice, AnEmptyListIsAcceptedAtOnce) {
  const auto m = chain(STRESS_OFF, {}, {});
  m->error_text = "kept";
  EXPECT_TRUE(m->set_pre_stage_lattice());
  m->set_post_stage_lattice();
  EXPECT_EQ(m->error_text, "kept");
}

TEST(StageLattice, WithoutRelaxationPostStagesFollowOnTheLastPreStage) {
  const auto m = chain(STRESS_OFF, {small_layer(3.2), small_layer(3.15)}, {layer(0, 0, 1, 0.0), layer(0, 1, 0, 0.5)});
  m->a_bulk = 3.3;  // the grown layer has no influence
  m->set_post_stage_lattice();
  EXPECT_EQ(m->post_stages[0].a_lattice, 3.15);
  EXPECT_EQ(m->post_stages[0].eps_xx, 3.15 / 3.112 - 1.0);
  EXPECT_DOUBLE_EQ(m->post_stages[1].a_lattice, (3.15 + 3.189) / 2);
}

TEST(StageLattice, WithoutRelaxationAndPreStagesPostStagesFollowOnGaN) {
  const auto m = chain(STRESS_OFF, {}, {layer(0, 0, 1, 0.0)});
  m->set_post_stage_lattice();
  EXPECT_EQ(m->post_stages[0].a_lattice, 3.189);
}

TEST(StageLattice, UnderVDislocationPostStagesFollowOnTheSurface) {
  const auto m = chain(STRESS_V_dislocation, {small_layer(3.189)}, {layer(0, 1, 0, 0.0), layer(0, 0, 1, 1.0)});
  m->z = m->z_start + 1e-6;
  m->h = 2e-7;
  m->a_bulk = 3.25;
  m->set_post_stage_lattice();
  const double relieved = std::log(5e12 * 3.1e-8 * 8e-7 + 1.0) * B_BURGERS / 6.2e-8;
  EXPECT_TRUE(close_to(3.189 + relieved * 3.25, m->post_stages[0].a_lattice));
  EXPECT_GT(m->post_stages[0].eps_xx, 0.0);
  EXPECT_DOUBLE_EQ(m->post_stages[1].a_lattice, 3.112);
}

TEST(StageLattice, AFirstPostStageMayHaveADegreeOfRelaxation) {
  const auto m = chain(STRESS_OFF, {}, {layer(0, 0, 1, 1.0)});
  m->set_post_stage_lattice();
  EXPECT_DOUBLE_EQ(m->post_stages[0].a_lattice, 3.112);
}

TEST(StageLattice, WithoutRelaxationAFirstPostStageInheritsTheEndOfTheLastActiveStage) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  StageRecord stage = small_stage(10.0);
  stage.rho_D = {1e8, 4e8};
  add(recipe, stage);
  add_post(recipe, inheriting(layer(0, 1, 0, 1.0)));
  add_post(recipe, inheriting(layer(0, 1, 0, 1.0)));
  const auto m = model_of(recipe);
  m->set_post_stage_lattice();
  EXPECT_EQ(m->post_stages[0].rho_D, 4e8);
  EXPECT_EQ(m->post_stages[1].rho_D, 4e8);
}

TEST(StageLattice, UnderVDislocationAFirstPostStageInheritsTheDensityAtTheSurface) {
  const auto m = chain(STRESS_V_dislocation, {small_layer(3.189)}, {inheriting(layer(0, 1, 0, 1.0))});
  m->z = m->z_start + 1e-5;
  m->h = 2e-6;
  m->set_post_stage_lattice();
  // 1 / (1 / 5e12 m^-2 + L_TD tan(45) 8e-6 m), in cm^-2.
  EXPECT_TRUE(close_to(1e-4 / (2e-13 + 3.1e-8 * 8e-6), m->post_stages[0].rho_D));
}

TEST(StageLattice, AGivenFirstPostStageKeepsItsDensity) {
  PrePostStageRecord given = layer(0, 1, 0, 1.0);
  given.rho_D = 12345.0;
  const auto m = chain(STRESS_V_dislocation, {small_layer(3.189)}, {given});
  m->set_post_stage_lattice();
  EXPECT_EQ(m->post_stages[0].rho_D, 12345.0);
}

}  // namespace
}  // namespace vorlen_test
