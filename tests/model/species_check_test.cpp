// The species lists of a model: which elements a recipe must contain, which species take part, and the
// constant factors of the binary diffusion coefficients.
#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "model/model_fixture.h"
#include "support/bits.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

// A recipe whose stages state the flows of these species alone, as no recipe file can.
ProcessRecipe with_flows_of(std::initializer_list<GasSpecies> species, double flow = 1.0) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{});
  for (StageRecord& stage : recipe.active_stages) {
    stage.Q.fill(ValueRange{});
    for (GasSpecies i : species) stage.Q[i].set_both(flow);
  }
  return recipe;
}

void expect_rejected(const ProcessRecipe& recipe, int err, const char* text) {
  BuiltModel model(recipe);
  EXPECT_EQ(model.err, err);
  EXPECT_EQ(model->error_text, text);
}

constexpr const char* NO_N = "Chemical element N is not present in precursor and bulk species";
constexpr const char* NO_H = "Chemical element H is not present in precursor species";
constexpr const char* NO_C = "Chemical element C is not present in precursor species";
constexpr const char* NO_PAIR = "At least 2 Group-III elements from In, Ga, Al should be present ";

}  // namespace

TEST(SpeciesCheck, WithoutNitrogenFlowsTheModelIsRejected) {
  // The solid holds nitrogen in any case, and N2 and NH3 are marked in any case, but neither counts.
  expect_rejected(with_flows_of({TMIn_g, TMGa_g, TMAl_g, H2_g}), 100, NO_N);
}

TEST(SpeciesCheck, WithoutHydrogenTheModelIsRejected) { expect_rejected(with_flows_of({N2_g}), 101, NO_H); }

TEST(SpeciesCheck, WithoutCarbonTheModelIsRejected) { expect_rejected(with_flows_of({N2_g, H2_g, NH3_g}), 102, NO_C); }

TEST(SpeciesCheck, WithOneGroupThreeElementTheModelIsRejectedAndTheTextEndsInABlank) {
  for (GasSpecies alone : {TMIn_g, TMGa_g, TEGa_g, TMAl_g})
    expect_rejected(with_flows_of({alone, NH3_g}), 103, NO_PAIR);
  // Two precursors of one element are one element.
  expect_rejected(with_flows_of({TMGa_g, TEGa_g, NH3_g}), 103, NO_PAIR);
}

TEST(SpeciesCheck, TheFirstMissingElementIsReported) {
  expect_rejected(with_flows_of({}), 100, NO_N);
  expect_rejected(with_flows_of({H2_g}), 100, NO_N);
  expect_rejected(with_flows_of({NH3_g}), 102, NO_C);
}

TEST(SpeciesCheck, AnyTwoGroupThreeElementsSuffice) {
  for (auto [first, second] : {std::pair{TMIn_g, TMGa_g}, {TMIn_g, TEGa_g}, {TMGa_g, TMAl_g}, {TMIn_g, TMAl_g}}) {
    BuiltModel model(with_flows_of({first, second, NH3_g}));
    EXPECT_EQ(model.err, 0) << model->error_text;
    EXPECT_EQ(std::count(model->gas_present.begin(), model->gas_present.end(), true), 10);
  }
}

TEST(SpeciesCheck, AFlowOfExactlyZeroMarksItsSpecies) {
  BuiltModel model(with_flows_of({TMIn_g, TMGa_g, NH3_g}, 0.0));
  EXPECT_EQ(model.err, 0) << model->error_text;
}

TEST(SpeciesCheck, AFlowThatIsNegativeAtOneEndOnlyMarksItsSpecies) {
  ProcessRecipe recipe = with_flows_of({TMGa_g, NH3_g});
  recipe.active_stages[0].Q[TMIn_g] = {-1.0, 0.5};
  EXPECT_EQ(BuiltModel(recipe).err, 0);
  recipe.active_stages[0].Q[TMIn_g] = {0.5, -1.0};
  EXPECT_EQ(BuiltModel(recipe).err, 0);
  recipe.active_stages[0].Q[TMIn_g] = {-0.5, -1.0};
  EXPECT_EQ(BuiltModel(recipe).err, 103);
}

TEST(SpeciesCheck, AFlowInAnyStageMarksItsSpecies) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.n_stages = 3});
  for (StageRecord& stage : recipe.active_stages) stage.Q[TMIn_g] = stage.Q[TMAl_g] = ValueRange{};
  EXPECT_EQ(BuiltModel(recipe).err, 103);
  recipe.active_stages[2].Q[TMIn_g].set_both(0.0);
  EXPECT_EQ(BuiltModel(recipe).err, 0);
}

TEST(SpeciesCheck, TheAluminiumSpeciesTakePartWithoutAFlow) {
  BuiltModel model(with_flows_of({TMIn_g, TMGa_g, NH3_g}));
  EXPECT_TRUE(model->gas_present[TMAl_g]);
  EXPECT_TRUE(model->gas_present[Al_g]);
}

TEST(SpeciesCheck, TheGasSpeciesOfARecipeFileAreThoseThatItCanState) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_EQ(model.err, 0);
  for (GasSpecies absent : {MMIn_g, TMInNH3_g, MMGa_g, TEGaNH3_g}) EXPECT_FALSE(model->gas_present[absent]) << absent;
  EXPECT_EQ(std::count(model->gas_present.begin(), model->gas_present.end(), true), 10);
}

TEST(SpeciesCheck, ASpeciesThatNoFileCanStateTakesPartWhenARecordStatesItsFlow) {
  BuiltModel model(with_flows_of({TMIn_g, MMIn_g, TMGa_g, NH3_g}));
  EXPECT_TRUE(model->gas_present[MMIn_g]);
  EXPECT_EQ(std::count(model->gas_present.begin(), model->gas_present.end(), true), 11);
  EXPECT_GT(model->D_binary[MMIn_g][N2_g], 0.0);
}

TEST(SpeciesCheck, TheListsHoldFourteenAndThreeSpeciesInTheOrderOfTheirNumbers) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  ASSERT_EQ(model->gas_species.size(), 14u);
  ASSERT_EQ(model->bulk_species.size(), 3u);
  EXPECT_EQ(model->gas_species[TMIn_g].name, "TMIn_g");
  EXPECT_EQ(model->gas_species[NH3_g].name, "NH3_g");
  EXPECT_EQ(model->gas_species[Al_g].name, "Al_g");
  EXPECT_EQ(model->bulk_species[AlN_b].name, "AlN_b");
}

TEST(BinaryDiffusion, TheFactorOfNitrogenAndHydrogenIsThatOfTheFormula) {
  // sqrt((1/2 + 1/28) / 2) * 0.02628 / 3.364^2, with 3.364 = (3.798 + 2.93) / 2
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_DOUBLE_EQ(model->D_binary[N2_g][H2_g], 0.0012018907773782453);
}

TEST(BinaryDiffusion, ASpeciesWithItselfHasAFactorToo) {
  // hydrogen: sqrt(1/2) * 0.02628 / 2.93^2
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_DOUBLE_EQ(model->D_binary[H2_g][H2_g], 0.0021645873812837038);
}

TEST(BinaryDiffusion, TheFactorsAreSymmetric) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_TRUE(same_bits(model->D_binary[N2_g][H2_g], model->D_binary[H2_g][N2_g]));
  for (std::size_t i = 0; i < N_GAS; ++i) {
    for (std::size_t j = 0; j < i; ++j) EXPECT_DOUBLE_EQ(model->D_binary[i][j], model->D_binary[j][i]) << i << ' ' << j;
  }
}

TEST(BinaryDiffusion, RowsAndColumnsOfAbsentSpeciesAreZero) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  for (std::size_t i = 0; i < N_GAS; ++i) {
    for (std::size_t j = 0; j < N_GAS; ++j) {
      const bool both_present = model->gas_present[i] && model->gas_present[j];
      EXPECT_EQ(model->D_binary[i][j] > 0.0, both_present) << i << ' ' << j;
      EXPECT_EQ(model->D_binary[i][j] == 0.0, !both_present) << i << ' ' << j;
    }
  }
  EXPECT_EQ(model->D_binary[MMIn_g], (std::array<double, N_GAS>{}));
}
