// What a good construction leaves in the model: the reference lattice, the densities of the stages, the time axis, the
// geometry of the dislocations, and what is copied.
#include <cmath>

#include "model/constants.h"
#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

// The densities of the active stages at their starts and ends.
using Densities = std::vector<std::pair<double, double>>;

Densities densities_of(const SurfChemNonst& m) {
  Densities all;
  for (const StageRecord& stage : m.active_stages) all.emplace_back(stage.rho_D.val, stage.rho_D.end);
  return all;
}

ProcessRecipe with_densities(const RecipeOptions& options, const Densities& given) {
  ProcessRecipe recipe = recipe_of(options);
  for (std::size_t k = 0; k < given.size(); ++k) {
    recipe.active_stages.at(k).rho_D = {given[k].first, given[k].second};
    recipe.active_stages[k].disl_model = DISL_given;
  }
  return recipe;
}

const RecipeOptions STRESS_OFF_3{.stress_model = "off", .n_pre_stages = 2, .n_stages = 3};

}  // namespace

TEST(ReferenceLattice, WithoutPreStagesItIsThatOfGaN) {
  BuiltModel model(recipe_of(RecipeOptions{.n_pre_stages = 0}));
  EXPECT_EQ(model->a_ref, 3.189);
  EXPECT_EQ(model->c_ref, 5.185);
  EXPECT_EQ(model->z, 0.0);
  EXPECT_EQ(model->z_start, 0.0);
}

TEST(ReferenceLattice, WithPreStagesItIsThatOfTheLastOne) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.n_pre_stages = 2});
  recipe.pre_stages[0].stress_state = 3.18;
  recipe.pre_stages[1].stress_state = 0.0;  // takes the lattice below over
  BuiltModel model(recipe);
  EXPECT_EQ(model->a_ref, 3.18);
  // GaN of a = 3.189 stretched to 3.18: c = (1 - 0.25 (3.18 / 3.189 - 1)) * 5.185
  EXPECT_DOUBLE_EQ(model->c_ref, (1.0 - 0.25 * (3.18 / 3.189 - 1.0)) * 5.185);
}

TEST(ReferenceLattice, AValueThatIsNotPositiveIsReplacedByThatOfGaN) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  model->set_reference_lattice(3.2, 5.2);
  EXPECT_EQ(model->a_ref, 3.2);
  EXPECT_EQ(model->c_ref, 5.2);
  model->set_reference_lattice(0.0, 5.3);
  EXPECT_EQ(model->a_ref, 3.189);
  EXPECT_EQ(model->c_ref, 5.3);
  model->set_reference_lattice(3.1, -1.0);
  EXPECT_EQ(model->a_ref, 3.1);
  EXPECT_EQ(model->c_ref, 5.185);
}

TEST(StageDensities, UnderRelaxationAllStagesHoldThatOfTheLastPreStagePerSquareMetre) {
  ProcessRecipe recipe = with_densities({.n_pre_stages = 2, .n_stages = 2}, {{1.0, 2.0}, {3.0, 4.0}});
  recipe.pre_stages[1].rho_D = 7e8;
  recipe.active_stages[1].disl_model = DISL_inherited;
  BuiltModel model(recipe);
  EXPECT_EQ(model->rho_TD0, 7e12);
  EXPECT_EQ(densities_of(model.m), (Densities{{7e12, 7e12}, {7e12, 7e12}}));
  EXPECT_EQ(model->pre_stages[1].rho_D, 7e8) << "the pre-stage keeps its value per square centimetre";
}

TEST(StageDensities, UnderRelaxationWithoutPreStagesAllAreZeroWhateverTheRecipeSays) {
  ProcessRecipe recipe = with_densities({.n_pre_stages = 0, .n_stages = 2}, {{1e8, 2e8}, {3e8, 4e8}});
  recipe.active_stages[0].disl_model = DISL_inherited;  // no error either
  BuiltModel model(recipe);
  EXPECT_EQ(model.err, 0);
  EXPECT_EQ(model->rho_TD0, 0.0);
  EXPECT_EQ(densities_of(model.m), (Densities{{0.0, 0.0}, {0.0, 0.0}}));
}

TEST(StageDensities, WithoutRelaxationGivenOnesStay) {
  BuiltModel model(with_densities(STRESS_OFF_3, {{1e8, 2e8}, {3e8, 4e8}, {5e8, 6e8}}));
  EXPECT_EQ(densities_of(model.m), (Densities{{1e8, 2e8}, {3e8, 4e8}, {5e8, 6e8}}));
  EXPECT_EQ(model->rho_TD0, 0.0);
}

TEST(StageDensities, WithoutRelaxationAnInheritedOneIsTheEndValueOfTheStageBefore) {
  ProcessRecipe recipe = with_densities(STRESS_OFF_3, {{1e8, 2e8}, {3e8, 4e8}, {5e8, 6e8}});
  recipe.active_stages[1].disl_model = DISL_inherited;
  EXPECT_EQ(densities_of(BuiltModel(recipe).m), (Densities{{1e8, 2e8}, {2e8, 2e8}, {5e8, 6e8}}));
  recipe.active_stages[2].disl_model = DISL_inherited;  // from a stage that inherits itself
  EXPECT_EQ(densities_of(BuiltModel(recipe).m), (Densities{{1e8, 2e8}, {2e8, 2e8}, {2e8, 2e8}}));
}

TEST(StageDensities, WithoutRelaxationAFirstStageInheritsFromTheLastPreStage) {
  ProcessRecipe recipe = with_densities(STRESS_OFF_3, {{1e8, 2e8}, {3e8, 4e8}, {5e8, 6e8}});
  recipe.pre_stages[0].rho_D = 7e8;
  recipe.pre_stages[1].rho_D = 9e8;
  recipe.active_stages[0].disl_model = DISL_inherited;
  recipe.active_stages[1].disl_model = DISL_inherited;
  EXPECT_EQ(densities_of(BuiltModel(recipe).m), (Densities{{9e8, 9e8}, {9e8, 9e8}, {5e8, 6e8}}));
  recipe.pre_stages[1].disl_model = DISL_inherited;  // the chain starts in the pre-stages
  EXPECT_EQ(densities_of(BuiltModel(recipe).m), (Densities{{7e8, 7e8}, {7e8, 7e8}, {5e8, 6e8}}));
}

TEST(StageDensities, WithoutRelaxationAGivenFirstStageKeepsItsValuesBesidePreStages) {
  ProcessRecipe recipe = with_densities(STRESS_OFF_3, {{1e8, 2e8}});
  recipe.pre_stages[1].rho_D = 9e8;
  EXPECT_EQ(densities_of(BuiltModel(recipe).m).front(), (std::pair{1e8, 2e8}));
}

TEST(TimeAxis, TheRunLastsFromTheFirstActiveStageToTheLast) {
  RecipeBuilder builder({.n_pre_stages = 2, .n_stages = 3, .n_post_stages = 1});
  builder.set("pre_stages/t0", "100");  // stages of 10 s each
  BuiltModel model(recipe_of(builder));
  EXPECT_EQ(model->t_begin, 120.0);
  EXPECT_EQ(model->t, 120.0);
  EXPECT_EQ(model->t_prev, 120.0);
  EXPECT_EQ(model->t_end, 150.0);
  EXPECT_EQ(model->stage_index, 0u);
}

TEST(TimeAxis, TheLayerStartsOnTopOfThePreStages) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.n_pre_stages = 2, .n_post_stages = 1});
  recipe.pre_stages[0].thickness = 2500.0;
  recipe.pre_stages[1].thickness = 40.0;
  BuiltModel model(recipe);
  EXPECT_EQ(model->z, 2540.0 * 1e-9);
  EXPECT_EQ(model->z_start, model->z);
  EXPECT_EQ(model->z_prev, model->z);
}

TEST(DislocationGeometry, SineTangentAndLineEnergyAreThoseOfTheFormula) {
  // Recipe: 17 degrees, reference composition 0.1.
  BuiltModel model(recipe_of(RecipeOptions{}));
  const double angle = 17.0 * PI / 180.0;
  EXPECT_EQ(model->V_angle_05, angle);
  EXPECT_DOUBLE_EQ(model->sin_V, std::sin(angle));
  EXPECT_NEAR(model->tan_V, std::tan(angle), 1e-15);
  EXPECT_EQ(model->b_burgers, 3.189 * 1e-10);
  // G = (C11 - C12)/2 of In0.1Ga0.9N: (0.9 * 232 + 0.1 * 108) / 2 GPa = 109.8 GPa; each half of the loop's line has
  // the energy 1.08521 G b^2 / (4 pi (1 - nu)), and the line is 1/cos longer than the layer is thick.
  const double b = 3.189e-10;
  const double E = 2.0 * 1.08521 * 109.8e9 * b * b / (4.0 * PI * 0.757) / std::cos(angle);
  EXPECT_NEAR(model->E_line, E, 1e-14 * E);
}

TEST(DislocationGeometry, WithoutRelaxationThereIsNone) {
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off"}));
  EXPECT_EQ(model->sin_V, 0.0);
  EXPECT_EQ(model->tan_V, 0.0);
  EXPECT_EQ(model->E_line, 0.0);
}

TEST(Construction, TheStateHasFiveMoreComponentsUnderRelaxation) {
  EXPECT_EQ(BuiltModel(recipe_of(RecipeOptions{}))->n_state(), 15);
  EXPECT_EQ(BuiltModel(recipe_of(RecipeOptions{.stress_model = "off"}))->n_state(), 10);
}

TEST(Construction, FieldsStartAsTheRunExpectsThem) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_EQ(model->z0, -1e-9);
  EXPECT_EQ(model->z0_index, 0xffffffffu);
  EXPECT_EQ(model->eps_xx_last_trial, -1.0);
  EXPECT_FALSE(model->single_point.selected);
  EXPECT_FALSE(model->detail_output);
  EXPECT_EQ(model->GR, 0.0);
  EXPECT_EQ(model->Vg, 0.0);
  EXPECT_EQ(model->h, 0.0);
  EXPECT_EQ(model->rho_VD, 0.0);
  EXPECT_TRUE(model->history.t.empty());
  EXPECT_TRUE(model->segments.relaxing.empty());
  EXPECT_GE(model->history.t.capacity(), 1024u);
  EXPECT_EQ(model->surface.free_sites, 1.0);
}

TEST(Construction, TheModelKeepsNoReferenceToTheRecipe) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.n_stages = 2});
  BuiltModel model(recipe);
  recipe.active_stages.clear();
  recipe.pre_stages.clear();
  recipe.Kd_A.fill(0.0);
  ASSERT_EQ(model->active_stages.size(), 2u);
  ASSERT_EQ(model->pre_stages.size(), 1u);
  EXPECT_EQ(model->Kd_A[0], 1e13);
  EXPECT_EQ(model->K_plus_Ta[GaN_b], 22000.0);
}

TEST(Construction, TheRecipeIsLeftAsItWas) {
  const ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off", .transport_model = "thick_GaN"});
  const double delta = recipe.active_stages[0].delta;
  const double GR_ref = recipe.GR_ref;
  BuiltModel model(recipe);
  EXPECT_EQ(recipe.active_stages[0].delta, delta);
  EXPECT_EQ(recipe.GR_ref, GR_ref);
  EXPECT_EQ(recipe.pre_stages[0].a_lattice, -1.0);
  EXPECT_NE(model->active_stages[0].delta, delta);
}

TEST(Construction, TheCutAngleChangesNothing) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{});
  BuiltModel flat(recipe);
  recipe.cut_angle = 4.0;
  BuiltModel cut(recipe);
  std::array<double, N_STATE_MAX> y_flat{}, y_cut{};
  flat->init_state(y_flat.data());
  cut->init_state(y_cut.data());
  EXPECT_EQ(y_flat, y_cut);
  EXPECT_EQ(flat->E_line, cut->E_line);
}
