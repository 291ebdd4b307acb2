// The thickness of the transport layer: the reference layer of thick_GaN, its scaling by reactor, and the layers of a
// prescribed growth rate and composition.
#include <cmath>

#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

RecipeOptions thick_GaN(const char* reactor) {
  return {.stress_model = "off", .transport_model = "thick_GaN", .reactor = reactor, .n_stages = 2};
}

const RecipeOptions GR_X{.stress_model = "off", .transport_model = "InGaN_GR_X", .n_stages = 3};

// Diffusion coefficients in the mixture of the given flows, sccm.
std::array<double, N_GAS> diffusion_in(const SurfChemNonst& m, double T, double P,
                                       const std::array<double, N_FLOWS>& flows) {
  std::array<double, N_GAS> x{}, D{};
  double sum = 0.0;
  for (double flow : flows) sum += flow;
  for (std::size_t i = 0; i < N_FLOWS; ++i) x[i] = flows[i] / sum;
  m.mix_diffusion(T, P, x.data(), D.data());
  return D;
}

std::array<double, N_FLOWS> mean_flows(const StageRecord& stage) {
  std::array<double, N_FLOWS> flows{};
  for (std::size_t i = 0; i < N_FLOWS; ++i)
    flows[i] = stage.Q[i].undefined() ? 0.0 : 0.5 * (stage.Q[i].val + stage.Q[i].end);
  return flows;
}

void expect_close(double expected, double actual, const std::string& what = "") {
  EXPECT_NEAR(actual, expected, 1e-13 * std::fabs(expected)) << what;
}

// The residual at a bare surface, which scales the layers.
void evaluate(SurfChemNonst& m, double t) {
  std::array<double, N_STATE_MAX> y{}, f{};
  ASSERT_EQ(m.update_conditions(t, true), 0);
  m.pack_state(y.data());
  ASSERT_EQ(m.eval_rhs(t, y.data(), f.data()), 0);
}

// The layer through which a flux x P D / (R T delta) grows the solid of the molar volume [m^3/kmol] at GR [m/s].
double layer(double GR, double x, double T, double P, double D, double molar_volume) {
  return x * P * D * molar_volume / (8314.0 * T * GR);
}

}  // namespace

TEST(ReferenceLayer, LetsTheReferenceFlowGrowAtTheReferenceRate) {
  // Recipe: TMGa 1 of 14001 sccm, 1300 K, 20 kPa, 0.5 nm/s.
  BuiltModel model(recipe_of(thick_GaN("CCS")));
  ASSERT_EQ(model.err, 0);
  EXPECT_EQ(model->Q_ref_total, 14001.0);
  EXPECT_EQ(model->GR_ref, 0.5 * 1e-9);
  const double D = diffusion_in(model.m, 1300.0, 20000.0, model->Q_ref)[TMGa_g];
  for (const StageRecord& stage : model->active_stages) {
    expect_close(D, stage.delta_ref);
    expect_close(layer(0.5e-9, 1.0 / 14001.0, 1300.0, 20000.0, D, 84.0 / 6150.0), stage.delta);
  }
}

TEST(ReferenceLayer, UsesTMGaAloneWhenBothPrecursorsFlow) {
  ProcessRecipe recipe = recipe_of(thick_GaN("CCS"));
  recipe.Q_ref[TEGa_g] = 100.0;
  BuiltModel model(recipe);
  const double D = diffusion_in(model.m, 1300.0, 20000.0, model->Q_ref)[TMGa_g];
  expect_close(D, model->active_stages[0].delta_ref);
  expect_close(layer(0.5e-9, 1.0 / 14101.0, 1300.0, 20000.0, D, 84.0 / 6150.0), model->active_stages[0].delta);
}

TEST(ReferenceLayer, UsesTEGaWhenItFlowsAlone) {
  ProcessRecipe recipe = recipe_of(thick_GaN("CCS"));
  recipe.Q_ref[TMGa_g] = 0.99e-10;  // counts as none
  recipe.Q_ref[TEGa_g] = 2.0;
  BuiltModel model(recipe);
  const double D = diffusion_in(model.m, 1300.0, 20000.0, model->Q_ref)[TEGa_g];
  for (const StageRecord& stage : model->active_stages) {
    expect_close(D, stage.delta_ref);
    expect_close(layer(0.5e-9, 2.0 / 14002.0, 1300.0, 20000.0, D, 84.0 / 6150.0), stage.delta);
  }
}

TEST(ReferenceLayer, OfTheShowerheadStaysForTheWholeRun) {
  BuiltModel model(recipe_of(thick_GaN("CCS")));
  std::array<double, N_GAS> delta_0;
  delta_0.fill(model->active_stages[0].delta);
  EXPECT_EQ(model->transport_layers({}), delta_0);
  model->active_stages[1].T.set_both(1400.0);
  evaluate(model.m, 25.0);
  EXPECT_EQ(model->T, 1400.0);
  EXPECT_EQ(model->condition_terms().delta, delta_0);
}

TEST(LayerScaling, OfTheRotatingDiskFollowsDiffusionAndRotation) {
  ProcessRecipe recipe = recipe_of(thick_GaN("TDR"));  // reference 800 rpm
  recipe.active_stages[1].omega_TDR = {400.0, 600.0};
  BuiltModel model(recipe);
  evaluate(model.m, 25.0);
  EXPECT_EQ(model->omega_TDR, 500.0);
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (!model->gas_present[i]) continue;
    const StageRecord& S = model->active_stages[1];
    expect_close(S.delta * std::sqrt(model->condition_terms().D[i] / S.delta_ref) * std::sqrt(800.0 / 500.0),
                 model->condition_terms().delta[i]);
  }
}

TEST(LayerScaling, AtTheReferenceConditionsTheReferencePrecursorHasTheReferenceLayer) {
  for (const char* reactor : {"TDR", "HFR"}) {
    BuiltModel model(recipe_of(thick_GaN(reactor)));
    evaluate(model.m, 15.0);
    expect_close(model->active_stages[0].delta, model->condition_terms().delta[TMGa_g], reactor);
    EXPECT_GT(model->condition_terms().delta[H2_g], model->condition_terms().delta[TMGa_g])
        << "hydrogen diffuses faster";
  }
}

TEST(LayerScaling, OfTheHorizontalReactorFollowsFlowTemperatureAndPressure) {
  ProcessRecipe recipe = recipe_of(thick_GaN("HFR"));  // reference 1300 K, 20 kPa, 14001 sccm
  recipe.active_stages[0].T.set_both(1100.0);
  recipe.active_stages[0].P.set_both(30000.0);
  recipe.active_stages[0].Q[H2_g].set_both(16000.0);
  BuiltModel model(recipe);
  evaluate(model.m, 15.0);
  const StageRecord& S = model->active_stages[0];
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (!model->gas_present[i]) continue;
    const double factor = (14001.0 / 22001.0) * (1300.0 / 1100.0) * (30000.0 / 20000.0);
    expect_close(S.delta * std::sqrt(model->condition_terms().D[i] / S.delta_ref * factor),
                 model->condition_terms().delta[i]);
  }
}

TEST(LayerScaling, OfTheHorizontalReactorAloneKnowsPressureTemperatureAndFlow) {
  // With the coefficient held, the layer goes as the root of P, of 1/T and of 1/Q.
  BuiltModel model(recipe_of(thick_GaN("HFR")));
  evaluate(model.m, 15.0);
  const std::array<double, N_GAS> D = model->condition_terms().D;
  const double before = model->condition_terms().delta[TMGa_g];
  model->P *= 4.0;
  expect_close(2.0 * before, model->transport_layers(D)[TMGa_g]);
  model->T *= 4.0;
  expect_close(before, model->transport_layers(D)[TMGa_g]);
  model->terms.mixtures.last().Q_total *= 4.0;
  expect_close(0.5 * before, model->transport_layers(D)[TMGa_g]);

  BuiltModel rotating(recipe_of(thick_GaN("TDR")));
  evaluate(rotating.m, 15.0);
  const ConditionTerms& of_disk = rotating->condition_terms();
  rotating->P *= 4.0;
  rotating->terms.mixtures.last().Q_total *= 4.0;
  EXPECT_EQ(rotating->transport_layers(of_disk.D), of_disk.delta);
}

TEST(LayerScaling, AnAbsentSpeciesHasALayerOfZero) {
  for (const char* reactor : {"TDR", "HFR"}) {
    BuiltModel model(recipe_of(thick_GaN(reactor)));
    evaluate(model.m, 15.0);
    EXPECT_EQ(model->condition_terms().delta[MMIn_g], 0.0) << reactor;
  }
}

TEST(LayerScaling, ARotationRateOfZeroIsNotGuarded) {
  BuiltModel model(recipe_of(thick_GaN("TDR")));
  evaluate(model.m, 15.0);
  const std::array<double, N_GAS> D = model->condition_terms().D;
  model->omega_TDR = 0.0;
  EXPECT_TRUE(std::isinf(model->transport_layers(D)[TMGa_g]));
}

TEST(PrescribedGrowth, TheLayersLetTheGalliumFlowGrowTheAlloy) {
  // Each kmol of gallium brings X_In/X_Ga of InN and X_Al/X_Ga of AlN with it.
  ProcessRecipe recipe = recipe_of(GR_X);
  StageRecord& stage = recipe.active_stages[0];
  stage.T = {1000.0, 1060.0};
  stage.P = {30000.0, 50000.0};
  stage.Q[TEGa_g] = {0.25, 0.75};
  stage.XIn_average = 0.15;
  stage.XAl_average = 0.05;
  BuiltModel model(recipe);
  ASSERT_EQ(model.err, 0);
  const std::array<double, N_FLOWS> flows = mean_flows(model->active_stages[0]);
  const std::array<double, N_GAS> D = diffusion_in(model.m, 1030.0, 40000.0, flows);
  const double molar_volume = 84.0 / 6150.0 + 0.15 / 0.8 * 129.0 / 6810.0 + 0.05 / 0.8 * 41.0 / 3255.0;
  const double reference =
      layer(stage.GR_average * 1e-9, 0.5 / (0.2 + 0.5 + 16000.0), 1030.0, 40000.0, D[TEGa_g], molar_volume);
  for (std::size_t i = 0; i < N_GAS; ++i)
    expect_close(reference * std::sqrt(D[i] / D[TEGa_g]), model->active_stages[0].delta_species[i]);
}

TEST(PrescribedGrowth, AbsentSpeciesHaveALayerOfZero) {
  BuiltModel model(recipe_of(GR_X));
  EXPECT_EQ(model->active_stages[0].delta_species[MMIn_g], 0.0);
  EXPECT_GT(model->active_stages[0].delta_species[Al_g], 0.0);
}

TEST(PrescribedGrowth, TMGaIsPreferredAsReference) {
  ProcessRecipe recipe = recipe_of(GR_X);
  recipe.active_stages[0].Q[TMGa_g].set_both(0.1);
  recipe.active_stages[1].Q[TMGa_g].set_both(1e-10);  // on the limit: counts
  recipe.active_stages[2].Q[TMGa_g].set_both(0.99e-10);
  BuiltModel model(recipe);
  for (std::size_t k = 0; k < 3; ++k) {
    const StageRecord& stage = model->active_stages[k];
    const GasSpecies r = k < 2 ? TMGa_g : TEGa_g;
    const std::array<double, N_FLOWS> flows = mean_flows(stage);
    double total = 0.0;
    for (double flow : flows) total += flow;
    const std::array<double, N_GAS> D = diffusion_in(model.m, 1030.0, 40000.0, flows);
    const double X_Ga = 1.0 - 0.19 - 1e-10;
    const double molar_volume = 84.0 / 6150.0 + 0.19 / X_Ga * 129.0 / 6810.0 + 1e-10 / X_Ga * 41.0 / 3255.0;
    const double expected = layer(0.05e-9, flows[r] / total, 1030.0, 40000.0, D[r], molar_volume);
    EXPECT_NEAR(stage.delta_species[r], expected, 1e-12 * expected) << k;
  }
}

TEST(PrescribedGrowth, TheMeanOfARampDecidesWhetherGalliumFlows) {
  ProcessRecipe recipe = recipe_of(GR_X);
  recipe.active_stages[0].Q[TEGa_g].set_both(0.0);
  recipe.active_stages[0].Q[TMGa_g] = {0.0, 2e-10};
  EXPECT_EQ(BuiltModel(recipe).err, 0);
  recipe.active_stages[0].Q[TMGa_g] = {0.0, 1.9e-10};
  EXPECT_EQ(BuiltModel(recipe).err, 1);
}

TEST(PrescribedGrowth, ALaterStageWithoutGalliumTakesTheLayersOfTheStageBefore) {
  ProcessRecipe recipe = recipe_of(GR_X);
  recipe.active_stages[0].GR_average = 0.1;
  recipe.active_stages[2].Q[TEGa_g].set_both(0.0);
  recipe.active_stages[2].T.set_both(1200.0);
  {
    BuiltModel model(recipe);
    ASSERT_EQ(model.err, 0);
    EXPECT_GT(model->active_stages[1].delta_species[TEGa_g], model->active_stages[0].delta_species[TEGa_g]);
    EXPECT_EQ(model->active_stages[2].delta_species, model->active_stages[1].delta_species);
  }
  recipe.active_stages[1].Q[TEGa_g].set_both(0.0);  // a copy of a copy
  BuiltModel model(recipe);
  EXPECT_EQ(model->active_stages[1].delta_species, model->active_stages[0].delta_species);
  EXPECT_EQ(model->active_stages[2].delta_species, model->active_stages[0].delta_species);
}

TEST(PrescribedGrowth, TheLayersGrowAsTheGrowthRateFalls) {
  ProcessRecipe recipe = recipe_of(GR_X);
  recipe.active_stages[1].GR_average = 0.5 * recipe.active_stages[0].GR_average;
  BuiltModel model(recipe);
  expect_close(2.0 * model->active_stages[0].delta_species[NH3_g], model->active_stages[1].delta_species[NH3_g]);
}

TEST(FixedThickness, AllSpeciesHaveThatOfTheRecipe) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{});
  std::array<double, N_GAS> expected;
  expected.fill(0.008);
  for (std::int32_t reactor : {-1, 0, 1, 2}) {
    recipe.reactor = reactor;  // no reactor scales it
    BuiltModel model(recipe);
    EXPECT_EQ(model->condition_terms().delta, expected);
    evaluate(model.m, 15.0);
    EXPECT_EQ(model->condition_terms().delta, expected);
  }
}
