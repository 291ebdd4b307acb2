// The first state vector: the estimates of the surface concentrations, the choice of the composition, and the growth
// rate that it starts with.
#include <cmath>

#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

const RecipeOptions PLAIN{.stress_model = "off"};

// The flows of a stage: group-III precursors as given, 8000 sccm of NH3 and N2 each, no H2.
ProcessRecipe with_flows(double TMIn, double TEGa, double TMAl, double T = 1030.0) {
  ProcessRecipe recipe = recipe_of(PLAIN);
  StageRecord& stage = recipe.active_stages[0];
  stage.T.set_both(T);
  stage.Q[TMIn_g].set_both(TMIn);
  stage.Q[TEGa_g].set_both(TEGa);
  stage.Q[TMAl_g].set_both(TMAl);
  return recipe;
}

struct Start {
  BuiltModel model;
  std::array<double, N_STATE_MAX> y;

  explicit Start(const ProcessRecipe& recipe) : model(recipe) {
    y.fill(-77.0);
    model->init_state(y.data());
  }
  SurfChemNonst* operator->() { return &model.m; }
  std::array<double, 3> composition() {
    const std::size_t n = static_cast<std::size_t>(model->n_state());
    return {y[n - 4], y[n - 3], y[n - 2]};
  }
};

// The model at a bare surface of pure GaN, from which the estimates are taken.
struct BareSurface {
  BuiltModel model;
  std::array<double, N_STATE_MAX> f{};

  explicit BareSurface(const ProcessRecipe& recipe) : model(recipe) {
    EXPECT_EQ(model->update_conditions(model->t_begin, true), 0);
    std::array<double, N_STATE_MAX> y{};
    y[STATE_Z] = model->z_start;
    y[static_cast<std::size_t>(model->n_state()) - 3] = 1.0;
    EXPECT_EQ(model->eval_rhs(model->t_begin, y.data(), f.data()), 0);
  }
  SurfChemNonst* operator->() { return &model.m; }
  // Rate at which bare GaN decomposes, kmol/(m^2 s).
  double decomposition() { return -model->surface.R_b[GaN_b]; }
};

void expect_close(double expected, double actual, double tolerance = 1e-12) {
  EXPECT_NEAR(actual, expected, tolerance * std::fabs(expected));
}

}  // namespace

TEST(InitialState, NitrogenAndHydrogenStartInBalance) {
  Start start(recipe_of(PLAIN));
  ASSERT_EQ(start->p[H2_g], 0.0) << "the estimate leaves the hydrogen of the inlet out";
  std::array<double, N_STATE_MAX> f{};
  start->eval_rhs(start->t, start.y.data(), f.data());
  EXPECT_GT(start.y[N_a], 1e-15);
  EXPECT_GT(start->surface.J[NH3_g], 0.0);
  EXPECT_NEAR(f[N_a], 0.0, 1e-11 * start->surface.J[NH3_g]);
  EXPECT_NEAR(f[H_a], 0.0, 1e-11 * start->surface.J[NH3_g]);
}

TEST(InitialState, TheRatioOfHydrogenToNitrogenIsThatOfTheirEscapes) {
  Start start(recipe_of(PLAIN));
  const auto& R = start->surface.R_gas;
  expect_close(
      std::sqrt(3.0 * R[H2_g] / R[N2_g] * composition_of(start.model.m).Kd_N2 / start->condition_terms().Kd[H_a]),
      start.y[H_a] / start.y[N_a]);
}

TEST(InitialState, WithoutAmmoniaNitrogenAndHydrogenStartAtTheFloor) {
  ProcessRecipe recipe = recipe_of(PLAIN);
  recipe.active_stages[0].Q[NH3_g].set_both(0.0);
  Start start(recipe);
  EXPECT_EQ(start.y[N_a], 1e-15);
  EXPECT_EQ(start.y[H_a], 1e-15);
}

TEST(InitialState, GalliumStartsInBalanceOfArrivalDecompositionEscapeAndIncorporation) {
  const ProcessRecipe recipe = recipe_of(PLAIN);
  Start start(recipe);
  BareSurface bare(recipe);
  const double c_N = start.y[N_a];
  const double arrival = bare->p[TEGa_g] / bare->surface.R_gas[TEGa_g] + bare->p[TMGa_g] / bare->surface.R_gas[TMGa_g];
  const double loss = bare->condition_terms().Kd[Ga_a] / bare->surface.R_gas[Ga_g] + bare->k_plus(GaN_b) * c_N;
  expect_close((arrival + bare.decomposition()) / loss, start.y[Ga_a]);
}

TEST(InitialState, IndiumStartsAtZeroWhateverItsFlow) {
  Start start(with_flows(5.0, 0.5, 0.0));
  ASSERT_GT(start->p[TMIn_g], 0.0);
  EXPECT_EQ(start.y[In_a], 0.0);
  EXPECT_EQ(start.composition()[0], 0.0);
}

TEST(InitialState, WithoutAluminiumTheSolidIsGaN) {
  Start start(with_flows(0.2, 0.5, 0.0));
  EXPECT_EQ(start->p[TMAl_g], 0.0);
  EXPECT_EQ(start.y[Al_a], 0.0);
  EXPECT_EQ(start.composition(), (std::array<double, 3>{0.0, 1.0, 0.0}));
}

TEST(InitialState, WithBothTheSolidHasTheRatioOfTheRates) {
  const ProcessRecipe recipe = with_flows(0.0, 0.5, 0.2);
  Start start(recipe);
  BareSurface bare(recipe);
  const double r_Ga = bare->k_plus(GaN_b) * start.y[Ga_a] * start.y[N_a] - bare.decomposition();
  const double r_Al = bare->k_plus(AlN_b) * start.y[Al_a] * start.y[N_a];
  ASSERT_GT(r_Ga, 0.0);
  ASSERT_GT(r_Al, 0.0);
  const std::array<double, 3> x = start.composition();
  EXPECT_EQ(x[0], 0.0);
  expect_close(r_Ga / (r_Ga + r_Al), x[1]);
  expect_close(r_Al / (r_Ga + r_Al), x[2]);
  EXPECT_NEAR(x[1] + x[2], 1.0, 1e-15);
  EXPECT_EQ(start->x_b_clip, x);
}

TEST(InitialState, AluminiumEscapesAsGalliumDoes) {
  ProcessRecipe recipe = with_flows(0.0, 0.5, 0.2);
  Start start(recipe);
  BareSurface bare(recipe);
  const double loss = bare->condition_terms().Kd[Ga_a] / bare->surface.R_gas[Ga_g] + bare->k_plus(AlN_b) * start.y[N_a];
  expect_close(bare->p[TMAl_g] / bare->surface.R_gas[TMAl_g] / loss, start.y[Al_a]);
  recipe.Kd_A[2] *= 1e6;
  EXPECT_EQ(Start(recipe).y[Al_a], start.y[Al_a]) << "aluminium's own desorption is not used";
}

TEST(InitialState, WithoutAnyPrecursorTheTraceOfGalliumRemains) {
  const ProcessRecipe recipe = with_flows(0.0, 0.0, 0.0);
  Start start(recipe);
  EXPECT_DOUBLE_EQ(start->p[TMGa_g], 5e-8 * 40000.0);
  EXPECT_GT(start.y[Ga_a], 0.0);
  EXPECT_EQ(start.composition(), (std::array<double, 3>{0.0, 1.0, 0.0}));
}

TEST(InitialState, WithAluminiumAloneTheTraceOfGalliumIsPartOfTheSolid) {
  Start start(with_flows(0.0, 0.0, 0.2));
  const std::array<double, 3> x = start.composition();
  EXPECT_GT(x[1], 0.0);
  EXPECT_GT(x[2], 0.99);
}

TEST(InitialState, WhenTheTraceCannotOutweighTheDecompositionTheSolidIsAlN) {
  const ProcessRecipe recipe = with_flows(0.0, 0.0, 0.2, 1500.0);
  Start start(recipe);
  BareSurface bare(recipe);
  ASSERT_LT(bare->k_plus(GaN_b) * start.y[Ga_a] * start.y[N_a], bare.decomposition());
  EXPECT_EQ(start.composition(), (std::array<double, 3>{0.0, 0.0, 1.0}));
  EXPECT_GT(start.y[Ga_a], 0.0) << "the estimate of gallium is kept";
}

TEST(InitialState, WhenNeitherGrowsTheSolidIsGaN) {
  const ProcessRecipe recipe = with_flows(0.0, 0.0, 0.0, 1500.0);
  Start start(recipe);
  BareSurface bare(recipe);
  ASSERT_LT(bare->k_plus(GaN_b) * start.y[Ga_a] * start.y[N_a], bare.decomposition());
  EXPECT_EQ(start.composition(), (std::array<double, 3>{0.0, 1.0, 0.0}));
}

TEST(InitialState, TheGrowthRateIsThatOfBareGaNAndNotTheEstimatedOne) {
  const ProcessRecipe recipe = recipe_of(PLAIN);
  Start start(recipe);
  BareSurface bare(recipe);
  EXPECT_LT(start.y[9], 0.0);
  EXPECT_EQ(start.y[9], bare.f[STATE_Z]);
  std::array<double, N_STATE_MAX> f{};
  start->eval_rhs(start->t, start.y.data(), f.data());
  EXPECT_GT(f[STATE_Z], 0.0);
  EXPECT_EQ(f[9], start.y[9] - f[STATE_Z]) << "so the last algebraic equation is not met at the start";
}

TEST(InitialState, WithoutRelaxationOnlyTenComponentsAreWritten) {
  Start start(recipe_of(PLAIN));
  EXPECT_EQ(start.y[STATE_Z], start->z_start);
  for (std::size_t i = 10; i < 15; ++i) EXPECT_EQ(start.y[i], -77.0) << i;
}

TEST(InitialState, WithRelaxationTheIntegralsStartAtZero) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  for (double* v : {&model->h, &model->I0, &model->I1, &model->J0_0, &model->J0_1}) *v = 0.5;
  std::array<double, N_STATE_MAX> y;
  y.fill(-77.0);
  model->init_state(y.data());
  EXPECT_EQ(y[STATE_Z], model->z_start);
  for (std::size_t i = 6; i < 11; ++i) EXPECT_EQ(y[i], 0.0) << i;
  EXPECT_EQ(y[12], 1.0);
  EXPECT_LT(y[14], 0.0);
}

TEST(InitialState, TheScratchFieldsFitTheState) {
  Start start(with_flows(0.2, 0.5, 0.2));
  const auto J = start->surface.J;
  const auto activity = composition_of(start.model.m).activity;
  std::array<double, N_STATE_MAX> f{};
  start->eval_rhs(start->t, start.y.data(), f.data());
  EXPECT_EQ(start->surface.J, J);
  EXPECT_EQ(composition_of(start.model.m).activity, activity);
  EXPECT_EQ(start->eval_rhs_calls, 3) << "two of the first state and this one";
}

TEST(InitialState, AStartOutsideTheProcessLeavesTheVectorAsItWas) {
  BuiltModel model(recipe_of(PLAIN));
  model->t_begin = 1e6;
  std::array<double, N_STATE_MAX> y, before;
  y.fill(-77.0);
  before = y;
  const auto x_b = model->x_b;
  model->init_state(y.data());
  EXPECT_EQ(y, before);
  EXPECT_EQ(model->x_b, x_b);
  EXPECT_EQ(model->eval_rhs_calls, 0);
}
