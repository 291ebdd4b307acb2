// Conditions at a time: the stage that holds it, quantities that move linearly inside the stage, quantities that a
// change of stage renews, and the trace of gallium.
//
// The recipes have one pre-stage and active stages of 10 s, so that active stage k lasts from 10 + 10 k s on.
#include <cmath>

#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

const RecipeOptions THREE_STAGES{.stress_model = "off", .n_stages = 3};

// Three stages that ramp everything, each differently.
ProcessRecipe ramps(const RecipeOptions& options = THREE_STAGES) {
  ProcessRecipe recipe = recipe_of(options);
  for (std::size_t k = 0; k < recipe.active_stages.size(); ++k) {
    StageRecord& stage = recipe.active_stages[k];
    const double base = 100.0 * static_cast<double>(k);
    stage.T = {1000.0 + base, 1050.0 + base};
    stage.P = {20000.0 + base, 40000.0 + base};
    stage.rho_D = {1e8 + base, 3e8 + base};
    stage.omega_TDR = {500.0 + base, 700.0 + base};
    stage.Q[N2_g] = {8000.0 + base, 4000.0 + base};
    stage.delta = 0.001 * static_cast<double>(k + 1);
    stage.flows_vary = true;
  }
  return recipe;
}

// The fields that a failed lookup must leave alone.
struct Snapshot {
  double T, P, rho_D, omega_TDR, Q_total;
  std::array<double, N_FLOWS> Q;
  std::array<double, N_GAS> x, p;
  std::uint32_t stage_index;
  explicit Snapshot(const SurfChemNonst& m)
      : T(m.T),
        P(m.P),
        rho_D(m.rho_D),
        omega_TDR(m.omega_TDR),
        Q_total(m.terms.mixtures.last().Q_total),
        Q(m.Q),
        x(m.terms.mixtures.last().x),
        p(m.p),
        stage_index(m.stage_index) {}
  bool operator==(const Snapshot&) const = default;
};

// Sets the flows of the model, not those of a stage, and looks up the conditions without renewing the flows.
void look_up_with_flows(SurfChemNonst& m, double Q_TMGa, double Q_TEGa, double Q_N2) {
  m.active_stages[0].flows_vary = false;
  m.Q.fill(0.0);
  m.Q[TMGa_g] = Q_TMGa;
  m.Q[TEGa_g] = Q_TEGa;
  m.Q[N2_g] = Q_N2;
  ASSERT_EQ(m.update_conditions(m.t_begin, false), 0);
}

}  // namespace

TEST(Interpolation, MovesLinearlyBetweenTheTwoValues) {
  EXPECT_EQ(interpolate({1000.0, 1050.0}, 0.0), 1000.0);
  EXPECT_EQ(interpolate({1000.0, 1050.0}, 0.25), 1012.5);
  EXPECT_EQ(interpolate({1000.0, 1050.0}, 1.0), 1050.0);
  EXPECT_EQ(interpolate({1050.0, 1000.0}, 0.5), 1025.0);
}

TEST(Interpolation, DoesNotLimitTheFraction) {
  EXPECT_EQ(interpolate({1000.0, 1050.0}, 1.5), 1075.0);
  EXPECT_EQ(interpolate({1000.0, 1050.0}, -0.5), 975.0);
}

TEST(Interpolation, AResultThatIsNotAboveZeroIsZero) {
  EXPECT_EQ(interpolate({100.0, -100.0}, 0.75), 0.0);
  EXPECT_EQ(interpolate({-1.0, -1.0}, 0.0), 0.0);
  EXPECT_EQ(interpolate({10.0, 0.0}, 1.0000001), 0.0);
  EXPECT_EQ(interpolate({std::nan(""), 1.0}, 0.5), 0.0);
}

TEST(Interpolation, EqualValuesAreTheResultWhateverTheFraction) {
  EXPECT_EQ(interpolate({0.3, 0.3}, 1e300), 0.3);
  EXPECT_EQ(interpolate({0.3, 0.3}, std::nan("")), 0.3);
}

TEST(Conditions, MoveLinearlyInsideAStage) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(12.5, true), 0);
  EXPECT_EQ(model->t, 12.5);
  EXPECT_EQ(model->T, 1012.5);
  EXPECT_EQ(model->P, 25000.0);
  EXPECT_EQ(model->rho_D, 1.5e8);
  EXPECT_EQ(model->Q[N2_g], 7000.0);
  EXPECT_EQ(model->Q[NH3_g], 8000.0);
  // 0.2 of TMIn and 0.5 of TEGa beside them
  EXPECT_DOUBLE_EQ(model->terms.mixtures.last().Q_total, 15000.7);
  EXPECT_DOUBLE_EQ(model->terms.mixtures.last().x[N2_g], 7000.0 / 15000.7);
  EXPECT_DOUBLE_EQ(model->p[N2_g], 25000.0 * 7000.0 / 15000.7);
  EXPECT_DOUBLE_EQ(model->p[TEGa_g], 25000.0 * 0.5 / 15000.7);
}

TEST(Conditions, AreThoseOfTheStageThatHoldsTheTime) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(25.0, true), 0);
  EXPECT_EQ(model->stage_index, 1u);
  EXPECT_EQ(model->T, 1125.0);
  EXPECT_EQ(model->Q[N2_g], 6100.0);
}

TEST(Conditions, TheMoleFractionsAddUpToOne) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(17.0, true), 0);
  double sum = 0.0;
  for (double x : model->terms.mixtures.last().x) sum += x;
  EXPECT_NEAR(sum, 1.0, 1e-15);
}

TEST(Conditions, VapoursAndAbsentSpeciesHaveNoInlet) {
  BuiltModel model(ramps());
  model->Q[MMIn_g] = 99.0;  // an absent species' slot is neither read nor written
  ASSERT_EQ(model->update_conditions(15.0, true), 0);
  EXPECT_EQ(model->Q[MMIn_g], 99.0);
  EXPECT_DOUBLE_EQ(model->terms.mixtures.last().Q_total, 6000.0 + 8000.0 + 0.7);
  for (GasSpecies i : {MMIn_g, In_g, Ga_g, Al_g}) {
    EXPECT_EQ(model->terms.mixtures.last().x[i], 0.0);
    EXPECT_EQ(model->p[i], 0.0);
  }
}

TEST(Conditions, ATotalFlowOfZeroIsNotGuarded) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 0.0, 0.0, 0.0);
  EXPECT_EQ(model->terms.mixtures.last().Q_total, 0.0);
  EXPECT_TRUE(std::isnan(model->terms.mixtures.last().x[N2_g]));
}

TEST(StageLookup, ATimeWithinTheToleranceAfterTheLastStageIsAccepted) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(40.0 + 0.5e-8, false), 0);
  EXPECT_EQ(model->stage_index, 2u);
  // A little beyond the end value, which is 1250 K, at 5 K/s
  EXPECT_NEAR(model->T - 1250.0, 2.5e-8, 1e-11);
}

TEST(StageLookup, ATimeAfterTheEndFailsAndLeavesTheConditions) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(35.0, true), 0);
  const Snapshot before(model.m);
  EXPECT_EQ(model->update_conditions(40.0 + 2e-8, true), 1);
  EXPECT_EQ(model->error_text, "t > t_end");
  EXPECT_EQ(model->t, 40.0 + 2e-8);
  EXPECT_TRUE(before == Snapshot(model.m));
}

TEST(StageLookup, ATimeBeforeTheStartFailsAndLeavesTheConditions) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(35.0, true), 0);
  const Snapshot before(model.m);
  EXPECT_EQ(model->update_conditions(10.0 - 2e-8, true), 1);
  EXPECT_EQ(model->error_text, "t < t_begin");
  EXPECT_TRUE(before == Snapshot(model.m));
  // Also when the first stage is current already.
  ASSERT_EQ(model->update_conditions(10.0 - 0.5e-8, false), 0);
  EXPECT_EQ(model->stage_index, 0u);
  EXPECT_EQ(model->update_conditions(0.0, false), 1);
  EXPECT_EQ(model->stage_index, 0u);
}

TEST(StageLookup, AFailedLookupDoesNotAffectTheNext) {
  BuiltModel model(ramps());
  EXPECT_EQ(model->update_conditions(1000.0, false), 1);
  EXPECT_EQ(model->update_conditions(25.0, false), 0);
  EXPECT_EQ(model->T, 1125.0);
}

TEST(StageLookup, ATimeWithinTheToleranceOfABoundaryBelongsToTheCurrentStage) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(20.0, true), 0);
  EXPECT_EQ(model->stage_index, 0u);
  ASSERT_EQ(model->update_conditions(20.0 + 0.9e-8, false), 0);
  EXPECT_EQ(model->stage_index, 0u);
  ASSERT_EQ(model->update_conditions(20.0 + 1.1e-8, false), 0);
  EXPECT_EQ(model->stage_index, 1u);
  ASSERT_EQ(model->update_conditions(20.0 - 0.9e-8, false), 0);
  EXPECT_EQ(model->stage_index, 1u);
  ASSERT_EQ(model->update_conditions(20.0 - 1.1e-8, false), 0);
  EXPECT_EQ(model->stage_index, 0u);
}

TEST(StageLookup, ASearchTakesTheFirstStageThatHoldsTheTimeWithinTheTolerance) {
  BuiltModel model(ramps());
  // Forward, stage 1 comes before stage 2; backward the other way round.
  ASSERT_EQ(model->update_conditions(30.0 + 0.5e-8, false), 0);
  EXPECT_EQ(model->stage_index, 1u);
  ASSERT_EQ(model->update_conditions(35.0, false), 0);
  ASSERT_EQ(model->update_conditions(20.0 - 0.5e-8, false), 0);
  EXPECT_EQ(model->stage_index, 1u);
}

TEST(StageLookup, ShortStagesAreSkippedInBothDirections) {
  RecipeBuilder builder(THREE_STAGES);
  builder.set("process_stages/stage_2/tau", "0.001");
  BuiltModel model(recipe_of(builder));
  ASSERT_EQ(model->active_stages[2].begin_time(), 20.001);
  ASSERT_EQ(model->update_conditions(25.0, false), 0);
  EXPECT_EQ(model->stage_index, 2u);
  ASSERT_EQ(model->update_conditions(15.0, false), 0);
  EXPECT_EQ(model->stage_index, 0u);
}

TEST(StageLookup, GoesForwardAndBackWithinOneStep) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(19.0, true), 0);
  const Snapshot before(model.m);
  ASSERT_EQ(model->update_conditions(21.0, false), 0);
  EXPECT_FALSE(before == Snapshot(model.m));
  ASSERT_EQ(model->update_conditions(19.0, false), 0);
  EXPECT_TRUE(before == Snapshot(model.m));
}

TEST(Flows, StayInAStageThatDoesNotVaryThemWhileFractionsAndPressuresFollow) {
  ProcessRecipe recipe = ramps();
  for (StageRecord& stage : recipe.active_stages) stage.flows_vary = false;
  BuiltModel model(recipe);
  ASSERT_EQ(model->update_conditions(10.0, true), 0);
  EXPECT_EQ(model->Q[N2_g], 8000.0);
  ASSERT_EQ(model->update_conditions(15.0, false), 0);
  EXPECT_EQ(model->Q[N2_g], 8000.0) << "the ramp of the flow is not followed";
  EXPECT_EQ(model->P, 30000.0);
  EXPECT_DOUBLE_EQ(model->p[N2_g], 30000.0 * 8000.0 / 16000.7);
}

TEST(Flows, OfAStageThatVariesThemFollowEveryLookup) {
  BuiltModel model(ramps());
  ASSERT_EQ(model->update_conditions(10.0, true), 0);
  ASSERT_EQ(model->update_conditions(15.0, false), 0);
  EXPECT_EQ(model->Q[N2_g], 6000.0);
}

TEST(Flows, AreRenewedWhenTheStageChangesOrTheCallerAsks) {
  ProcessRecipe recipe = ramps();
  for (StageRecord& stage : recipe.active_stages) stage.flows_vary = false;
  BuiltModel model(recipe);
  ASSERT_EQ(model->update_conditions(10.0, true), 0);
  ASSERT_EQ(model->update_conditions(15.0, true), 0);
  EXPECT_EQ(model->Q[N2_g], 6000.0);
  ASSERT_EQ(model->update_conditions(25.0, false), 0);
  EXPECT_EQ(model->Q[N2_g], 6100.0);
  ASSERT_EQ(model->update_conditions(15.0, false), 0);
  EXPECT_EQ(model->Q[N2_g], 6000.0);
}

TEST(Layers, OfFixedThicknessChangeWithTheStageAlone) {
  BuiltModel model(ramps());
  std::array<double, N_GAS> expected;
  expected.fill(0.001);
  EXPECT_EQ(model->transport_layers({}), expected) << "construction starts in the first stage";
  ASSERT_EQ(model->update_conditions(15.0, true), 0);
  EXPECT_EQ(model->transport_layers({}), expected);
  ASSERT_EQ(model->update_conditions(25.0, false), 0);
  expected.fill(0.002);
  EXPECT_EQ(model->transport_layers({}), expected);
}

TEST(Layers, OfPrescribedGrowthAreThoseOfEachSpecies) {
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off", .transport_model = "InGaN_GR_X", .n_stages = 2}));
  EXPECT_EQ(model->transport_layers({}), model->active_stages[0].delta_species);
  for (std::size_t i = 0; i < N_GAS; ++i) model->active_stages[1].delta_species[i] = 0.1 + static_cast<double>(i);
  ASSERT_EQ(model->update_conditions(15.0, true), 0);
  EXPECT_EQ(model->transport_layers({}), model->active_stages[0].delta_species);
  ASSERT_EQ(model->update_conditions(25.0, false), 0);
  EXPECT_EQ(model->transport_layers({}), model->active_stages[1].delta_species);
}

TEST(RotationRate, IsFollowedForTheReactorThatRotatesAlone) {
  RecipeOptions options{.stress_model = "off", .transport_model = "thick_GaN", .reactor = "TDR", .n_stages = 3};
  BuiltModel rotating(ramps(options));
  ASSERT_EQ(rotating->update_conditions(12.5, true), 0);
  EXPECT_EQ(rotating->omega_TDR, 550.0);

  for (const char* reactor : {"CCS", "HFR"}) {
    options.reactor = reactor;
    BuiltModel model(ramps(options));
    model->omega_TDR = 123.0;
    ASSERT_EQ(model->update_conditions(25.0, true), 0);
    EXPECT_EQ(model->omega_TDR, 123.0) << reactor;
  }
  BuiltModel fixed(ramps());
  fixed->reactor = REACTOR_TDR;
  fixed->omega_TDR = 123.0;
  ASSERT_EQ(fixed->update_conditions(25.0, true), 0);
  EXPECT_EQ(fixed->omega_TDR, 123.0);
}

TEST(GalliumFloor, WithoutGalliumATraceOfTMGaStaysInTheGas) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 0.0, 0.0, 1000.0);
  EXPECT_DOUBLE_EQ(model->p[TMGa_g], 5e-8 * 20000.0);
  EXPECT_EQ(model->terms.mixtures.last().x[TMGa_g], 0.0) << "the mole fraction is not changed";
  EXPECT_EQ(model->p[TEGa_g], 0.0);
}

TEST(GalliumFloor, LiftsTMGaThatIsBelow) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 1e-8, 1e-8, 1.0);
  EXPECT_DOUBLE_EQ(model->p[TMGa_g], 5e-8 * 20000.0);
  EXPECT_NEAR(model->p[TEGa_g], 1e-8 * 20000.0, 1e-11);
}

TEST(GalliumFloor, LeavesTMGaAtZeroBesideEnoughTEGa) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 0.0, 6e-8, 1.0);
  EXPECT_EQ(model->p[TMGa_g], 0.0);
}

TEST(GalliumFloor, LeavesTMGaThatIsAbove) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 1.0, 0.0, 999.0);
  EXPECT_DOUBLE_EQ(model->p[TMGa_g], 20.0);
}

TEST(GalliumFloor, TEGaExactlyAtTheFloorIsEnough) {
  BuiltModel model(ramps());
  look_up_with_flows(model.m, 0.0, 5e-8, 1.0 - 5e-8);
  ASSERT_EQ(model->terms.mixtures.last().Q_total, 1.0);
  ASSERT_EQ(model->p[TEGa_g], 5e-8 * model->P);
  EXPECT_EQ(model->p[TMGa_g], 0.0);
}

TEST(Conditions, ATemperatureThatRampsBelowZeroIsZero) {
  ProcessRecipe recipe = ramps();
  recipe.active_stages[0].T = {100.0, -100.0};
  BuiltModel model(recipe);
  ASSERT_EQ(model->update_conditions(19.0, true), 0);
  EXPECT_EQ(model->T, 0.0);
}
