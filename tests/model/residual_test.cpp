// The residual of the equations: its layout, the balances of the elements, the fluxes, the incorporation, and what it
// leaves alone.
#include <cmath>

#include "model/constants.h"
#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

// A model and a state in the middle of growing InGaN with a little aluminium: none of the terms vanishes.
struct Growth {
  BuiltModel model;
  std::array<double, N_STATE_MAX> y{}, f{};

  explicit Growth(const ProcessRecipe& recipe) : model(recipe) {
    model->init_state(y.data());
    y[In_a] = 2e-10;
    y[Ga_a] = 1.5e-9;
    y[Al_a] = 3e-11;
    set_x_b(0.18, 0.79, 0.03);
    y[last()] = 5e-11;
    evaluate();
  }
  explicit Growth(const RecipeOptions& options = {.stress_model = "off"}) : Growth(recipe_of(options)) {}

  SurfChemNonst* operator->() { return &model.m; }
  const CompositionTerms& composition() { return composition_of(model.m); }
  std::size_t n() { return static_cast<std::size_t>(model->n_state()); }
  std::size_t last() { return n() - 1; }
  void set_x_b(double In, double Ga, double Al) {
    y[n() - 4] = In;
    y[n() - 3] = Ga;
    y[n() - 2] = Al;
  }
  void evaluate() {
    f.fill(-77.0);
    ASSERT_EQ(model->eval_rhs(model->t, y.data(), f.data()), 0);
  }
};

void expect_close(double expected, double actual, const std::string& what = "") {
  EXPECT_NEAR(actual, expected, 1e-13 * std::fabs(expected)) << what;
}

}  // namespace

TEST(State, IsPackedInTheOrderOfTheEquations) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  std::array<double, 15> y{}, back{};
  for (std::size_t i = 0; i < y.size(); ++i) y[i] = 0.01 * static_cast<double>(i + 1);
  model->unpack_state(y.data());
  EXPECT_EQ(model->c_a, (std::array<double, 5>{0.01, 0.02, 0.03, 0.04, 0.05}));
  EXPECT_EQ(model->z, y[5]);
  EXPECT_EQ(model->h, y[6]);
  EXPECT_EQ(model->I0, y[7]);
  EXPECT_EQ(model->I1, y[8]);
  EXPECT_EQ(model->J0_0, y[9]);
  EXPECT_EQ(model->J0_1, y[10]);
  EXPECT_EQ(model->x_b, (std::array<double, 3>{y[11], y[12], y[13]}));
  EXPECT_EQ(model->GR, y[14]);
  model->pack_state(back.data());
  EXPECT_EQ(back, y);
}

TEST(State, HasTenComponentsWithoutRelaxationAndNothingPastThemIsTouched) {
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off"}));
  std::array<double, 15> y, back;
  y.fill(-77.0);
  back.fill(-77.0);
  for (std::size_t i = 0; i < 10; ++i) y[i] = 0.01 * static_cast<double>(i + 1);
  model->h = 0.5;
  model->unpack_state(y.data());
  EXPECT_EQ(model->x_b, (std::array<double, 3>{y[6], y[7], y[8]}));
  EXPECT_EQ(model->GR, y[9]);
  EXPECT_EQ(model->h, 0.5);
  model->pack_state(back.data());
  EXPECT_EQ(back, y);
}

TEST(State, ATestValueBelowTheStartIsLiftedToIt) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  ASSERT_EQ(model->z_start, 100.0 * 1e-9);
  std::array<double, 15> y{};
  y[STATE_Z] = 0.99e-7;
  model->unpack_state(y.data());
  EXPECT_EQ(model->z, model->z_start);
  y[STATE_Z] = 1.01e-7;
  model->unpack_state(y.data());
  EXPECT_EQ(model->z, 1.01e-7);
}

TEST(State, FractionsAreClippedForTheLatticeConstantAlone) {
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off"}));
  std::array<double, 10> y{};
  y[6] = -0.1;
  y[7] = 1.2;
  y[8] = 0.5;
  model->unpack_state(y.data());
  EXPECT_EQ(model->x_b, (std::array<double, 3>{-0.1, 1.2, 0.5}));
  EXPECT_EQ(model->x_b_clip, (std::array<double, 3>{0.0, 1.0, 0.5}));
  EXPECT_DOUBLE_EQ(model->a_bulk, 3.189 + 0.5 * 3.112);
  y[7] = y[8] = 0.0;
  model->unpack_state(y.data());
  EXPECT_EQ(model->a_bulk, 1e-100) << "never exactly zero";
}

TEST(Residual, BothLayoutsHoldTheSameChemistry) {
  // GaN on its own lattice with no dislocations underneath: the relaxation state is -1 in both models.
  ProcessRecipe recipe = recipe_of(RecipeOptions{.n_pre_stages = 0});
  Growth relaxing(recipe);
  recipe.stress_model = STRESS_OFF;
  Growth plain(recipe);
  ASSERT_EQ(relaxing.n(), 15u);
  ASSERT_EQ(plain.n(), 10u);
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(relaxing.f[i], plain.f[i]) << i;
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(relaxing.f[11 + i], plain.f[6 + i]) << i;
  EXPECT_EQ(plain.f[10], -77.0) << "nothing is written past the last component";
  for (std::size_t i = 6; i < 11; ++i) EXPECT_NE(relaxing.f[i], -77.0) << i;
}

TEST(Residual, GroupThreeElementsAreBalancedBetweenFluxesAndIncorporation) {
  Growth g;
  const auto& J = g->surface.J;
  expect_close(J[TMIn_g] + J[In_g] - g->surface.R_b[InN_b], g.f[In_a]);
  expect_close(J[TMGa_g] + J[TEGa_g] + J[Ga_g] - g->surface.R_b[GaN_b], g.f[Ga_a]);
  expect_close(J[TMAl_g] + J[Al_g] - g->surface.R_b[AlN_b], g.f[Al_a]);
}

TEST(Residual, TheAbsentPrecursorsAddNothing) {
  Growth g;
  for (GasSpecies i : {MMIn_g, TMInNH3_g, MMGa_g, TEGaNH3_g}) EXPECT_EQ(g->surface.J[i], 0.0);
}

TEST(Residual, APrecursorThatNoFileCanStateEntersTheBalanceOfItsElement) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off"});
  for (GasSpecies i : {MMIn_g, TMInNH3_g, MMGa_g, TEGaNH3_g}) recipe.active_stages[0].Q[i].set_both(0.3);
  Growth g(recipe);
  const auto& J = g->surface.J;
  EXPECT_GT(J[MMIn_g], 0.0);
  EXPECT_GT(J[TEGaNH3_g], 0.0);
  expect_close(J[TMIn_g] + J[MMIn_g] + J[TMInNH3_g] + J[In_g] - g->surface.R_b[InN_b], g.f[In_a]);
  expect_close(J[TMGa_g] + J[MMGa_g] + J[TEGa_g] + J[TEGaNH3_g] + J[Ga_g] - g->surface.R_b[GaN_b], g.f[Ga_a]);
}

TEST(Residual, NitrogenAndHydrogenAreBalancedByTheirMoleculesWithoutIncorporation) {
  Growth g;
  EXPECT_EQ(g.f[N_a], 2.0 * g->surface.J[N2_g] + g->surface.J[NH3_g]);
  EXPECT_EQ(g.f[H_a], 3.0 * g->surface.J[NH3_g] + 2.0 * g->surface.J[H2_g]);
}

TEST(Residual, TheLayerGrowsByTheVolumeOfWhatIsIncorporated) {
  Growth g;
  const double GR = g->surface.R_b[InN_b] * 129.0 / 6810.0 + g->surface.R_b[GaN_b] * 84.0 / 6150.0 +
                    g->surface.R_b[AlN_b] * 41.0 / 3255.0;
  expect_close(GR, g.f[STATE_Z]);
}

TEST(Residual, TheSolidHasTheCompositionOfItsRates) {
  Growth g;
  EXPECT_EQ(g.f[6], 0.18 * g->surface.R_b[GaN_b] - 0.79 * g->surface.R_b[InN_b]);
  EXPECT_EQ(g.f[7], 0.79 * g->surface.R_b[AlN_b] - 0.03 * g->surface.R_b[GaN_b]);
  EXPECT_EQ(g.f[8], 1.0 - 0.18 - 0.79 - 0.03);
  EXPECT_EQ(g.f[9], 5e-11 - g.f[STATE_Z]);
}

TEST(Residual, TheGrowthRateOfTheStateActsOnItsOwnEquationAlone) {
  Growth g;
  const auto before = g.f;
  g.y[9] = 1.0;
  g.evaluate();
  for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(g.f[i], before[i]) << i;
  EXPECT_EQ(g.f[9], 1.0 - before[5]);
}

TEST(Residual, ABareSurfaceDoesNotGrow) {
  Growth g;
  for (std::size_t i = 0; i < 5; ++i) g.y[i] = 0.0;
  g.set_x_b(0.0, 1.0, 0.0);
  g.evaluate();
  EXPECT_LE(g.f[STATE_Z], 0.0);
  EXPECT_EQ(g->surface.R_b[InN_b], 0.0);
  EXPECT_LT(g->surface.R_b[GaN_b], 0.0) << "the solid's own pressure remains";
}

TEST(Fluxes, AreDrivingPressureLessDesorptionOverTheResistance) {
  Growth g;
  const auto& c = g->c_a;
  auto Kd = g->condition_terms().Kd;
  Kd[N_a] = g.composition().Kd_N2;
  const auto& R = g->surface.R_gas;
  const double s = 1.0 - c[In_a] / 1.901e-08;
  expect_close(g->p[TMIn_g] * s / R[TMIn_g], g->surface.J[TMIn_g]);
  expect_close(g->p[TEGa_g] / R[TEGa_g], g->surface.J[TEGa_g]);
  expect_close(-Kd[In_a] * c[In_a] / R[In_g], g->surface.J[In_g]);
  expect_close(-Kd[Ga_a] * c[Ga_a] / R[Ga_g], g->surface.J[Ga_g]);
  expect_close(-Kd[Al_a] * c[Al_a] / R[Al_g], g->surface.J[Al_g]);
  expect_close(-Kd[N_a] * c[N_a] * c[N_a] / R[N2_g], g->surface.J[N2_g]);
  expect_close((g->p[H2_g] - Kd[H_a] * c[H_a] * c[H_a]) / R[H2_g], g->surface.J[H2_g]);
  const double leaving = g.composition().K_NH3_des * c[N_a] * std::pow(c[H_a], 3.0);
  EXPECT_NEAR(g->surface.J[NH3_g] * R[NH3_g], g->p[NH3_g] - leaving, 1e-12 * leaving);
}

TEST(Fluxes, TheResistanceIsThatOfTheLayerPlusThatOfTheSurface) {
  Growth g;
  const ConditionTerms& c = g->condition_terms();
  const double s = 1.0 - g->c_a[In_a] / 1.901e-08;
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (!g->gas_present[i]) continue;
    const double site = i == TMIn_g || i == In_g ? s : 1.0;
    const double M = g->gas_species[i].molar_mass;
    const double mix = i == N2_g ? g.composition().N2_mix : 1.0;
    const double surface = std::sqrt(2.0 * PI * 8314.0 * M * g->T) / mix;
    expect_close(8314.0 * g->T * c.delta[i] / c.D[i] * site + surface, g->surface.R_gas[i], g->gas_species[i].name);
  }
}

TEST(Fluxes, OfNitrogenGasDoNotDependOnItsPressure) {
  Growth g;
  const double J = g->surface.J[N2_g];
  ASSERT_FALSE(g->conditions_vary) << "the pressures are not renewed by an evaluation";
  ASSERT_GT(g->p[N2_g], 0.0);
  g->p[N2_g] *= 3.0;
  g.evaluate();
  EXPECT_EQ(g->surface.J[N2_g], J);
  EXPECT_LT(J, 0.0);
}

TEST(Fluxes, OfHydrogenAndAmmoniaDo) {
  Growth g;
  const double J_H2 = g->surface.J[H2_g];
  const double J_NH3 = g->surface.J[NH3_g];
  g->p[H2_g] += 100.0;
  g->p[NH3_g] += 100.0;
  g.evaluate();
  EXPECT_GT(g->surface.J[H2_g], J_H2);
  EXPECT_GT(g->surface.J[NH3_g], J_NH3);
}

TEST(Vacancies, TheIndiumSitesFallWithTheCoverage) {
  Growth g;
  g.y[In_a] = 0.25 * 1.901e-08;
  g.evaluate();
  EXPECT_EQ(g->surface.free_sites, 0.75);
}

TEST(Vacancies, ACoverageAboveSaturationMakesTheFactorNegative) {
  Growth g;
  g.y[In_a] = 2.0 * 1.901e-08;
  g.evaluate();
  EXPECT_EQ(g->surface.free_sites, -1.0);
  EXPECT_LT(g->surface.J[TMIn_g] * g->surface.R_gas[TMIn_g], 0.0);
}

TEST(Vacancies, WithoutTheModelAllSitesAreFree) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off"});
  recipe.vacancy_model = VACANCY_none;
  Growth g(recipe);
  g.y[In_a] = 1e-8;
  g.evaluate();
  EXPECT_EQ(g->surface.free_sites, 1.0);
}

TEST(Residual, ATimeOutsideTheProcessLeavesItAsItWas) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off"});
  recipe.conditions_vary = true;
  Growth g(recipe);
  const auto f = g.f;
  const auto c_a = g->c_a;
  g.y[In_a] = 0.5;
  EXPECT_EQ(g->eval_rhs(1000.0, g.y.data(), g.f.data()), 1);
  EXPECT_EQ(g.f, f);
  EXPECT_EQ(g->c_a, c_a) << "the state is not unpacked either";
  EXPECT_EQ(g->error_text, "t > t_end");
  EXPECT_EQ(g->eval_rhs(0.0, g.y.data(), g.f.data()), 1);
  EXPECT_EQ(g->error_text, "t < t_begin");
  EXPECT_EQ(g.f, f);
}

TEST(Residual, OfAProcessWithoutChangesKeepsTheConditionsOfTheFirstLookup) {
  Growth g(recipe_of(RecipeOptions{.stress_model = "off", .n_stages = 2}));
  ASSERT_FALSE(g->conditions_vary);
  const auto f = g.f;
  EXPECT_EQ(g->eval_rhs(1e6, g.y.data(), g.f.data()), 0) << "no time is outside";
  EXPECT_EQ(g->t, g->t_begin);
  EXPECT_EQ(g->stage_index, 0u);
  EXPECT_EQ(g.f, f);
}

TEST(Residual, OfAVaryingProcessFollowsTheTime) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off", .n_stages = 2});
  recipe.active_stages[1].T.set_both(1100.0);
  recipe.conditions_vary = true;
  Growth g(recipe);
  EXPECT_EQ(g->T, 1030.0);
  EXPECT_EQ(g->eval_rhs(25.0, g.y.data(), g.f.data()), 0);
  EXPECT_EQ(g->T, 1100.0);
}

TEST(Residual, HasNoMemory) {
  Growth g;
  const auto f = g.f;
  const auto y = g.y;
  g.y.fill(0.1);
  g.evaluate();
  EXPECT_NE(g.f, f);
  g.y = y;
  g.evaluate();
  EXPECT_EQ(g.f, f);
}

TEST(Residual, CountsItsEvaluations) {
  Growth g;  // two of the first state, one of the fixture
  EXPECT_EQ(g->eval_rhs_calls, 3);
}

TEST(Residual, BadNumbersPassThrough) {
  Growth g;
  g.y[N_a] = std::nan("");
  g.evaluate();
  EXPECT_TRUE(std::isnan(g.f[N_a]));
  EXPECT_FALSE(std::isnan(g.f[8]));
}
