// The growth expected from supply and transport, compared with what follows from the definition of the transport layers
// and from the proportions of diffusion through a stagnant layer.
#include "check/expected_growth.h"

#include <gtest/gtest.h>

#include <cmath>

#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr const char* STAGE = "process_stages/stage_1";
constexpr const char* FLOWS = "process_stages/stage_1/gas_species/Q/";

std::vector<recipe::ExpectedGrowth> growth_of(const RecipeBuilder& builder) {
  const TempFolder folder;
  vorlen::ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(vorlen::read_recipe(builder.write(folder.path("recipe.xml")).c_str(), recipe, error), 0) << error;
  std::int32_t err = 0;
  vorlen::SurfChemNonst model(recipe, "", err);
  EXPECT_EQ(err, 0) << model.error_text;
  return recipe::expected_growth(model);
}

double rate_of(const RecipeBuilder& builder) { return growth_of(builder).front().rate; }

RecipeBuilder with_flows(const RecipeOptions& options, const char* TMIn, const char* TMGa, const char* TEGa,
                         const char* TMAl) {
  RecipeBuilder builder(options);
  const std::string flows = FLOWS;
  builder.set_range(flows + "TMIn", TMIn, TMIn).set_range(flows + "TMGa", TMGa, TMGa);
  return builder.set_range(flows + "TEGa", TEGa, TEGa).set_range(flows + "TMAl", TMAl, TMAl);
}

// The reference layer is defined by this rate under these conditions.
TEST(ExpectedGrowth, IsTheReferenceRateUnderReferenceConditions) {
  for (const char* reactor : {"CCS", "TDR", "HFR"}) {
    RecipeBuilder builder({.transport_model = "thick_GaN", .reactor = reactor});
    EXPECT_NEAR(rate_of(builder), 0.5, 0.5 * 1e-9) << reactor;
  }
}

// The layer of a rotating disc is inversely proportional to the square root of the rotation.
TEST(ExpectedGrowth, DoublesWithFourTimesTheRotation) {
  RecipeBuilder builder({.transport_model = "thick_GaN", .reactor = "TDR"});
  builder.set_range(std::string(STAGE) + "/omega_TDR", "3200", "3200");
  EXPECT_NEAR(rate_of(builder), 1.0, 1e-9);
}

// The layers of InGaN_GR_X are those through which the gallium flow gives the prescribed rate at the prescribed
// composition: 1 part of GaN in 0.05 nm/s with next to no other metal.
TEST(ExpectedGrowth, IsThePrescribedRateOfGaN) {
  RecipeBuilder builder = with_flows({.transport_model = "InGaN_GR_X"}, "0", "0", "0.5", "0");
  builder.set(std::string(STAGE) + "/XIn_average", "1e-10");
  EXPECT_NEAR(rate_of(builder), 0.05, 1e-9);
}

TEST(ExpectedGrowth, IsInverselyProportionalToTheLayer) {
  RecipeBuilder builder;
  const double rate = rate_of(builder);
  EXPECT_GT(rate, 0.0);
  EXPECT_NEAR(rate_of(builder.set(std::string(STAGE) + "/delta", "0.002")), 4.0 * rate, 1e-9 * rate);
}

// J V = p D / (R T delta) V with D T^-1 nearly independent of the flows: doubling a dilute flow doubles its part.
TEST(ExpectedGrowth, IsTheSumOverThePrecursors) {
  const double indium = rate_of(with_flows({}, "0.2", "0", "0", "0"));
  const double gallium = rate_of(with_flows({}, "0", "0.3", "0.5", "0"));
  const double aluminium = rate_of(with_flows({}, "0", "0", "0", "0.1"));
  const double all = rate_of(with_flows({}, "0.2", "0.3", "0.5", "0.1"));
  EXPECT_NEAR(all, indium + gallium + aluminium, 1e-3 * all);
  EXPECT_NEAR(rate_of(with_flows({}, "0.4", "0", "0", "0")), 2.0 * indium, 1e-3 * indium);
}

// Molar volumes of InN, GaN and AlN: sqrt(3)/4 a^2 c N_A with the lattice constants 3.545 and 5.703, 3.189 and 5.185,
// 3.112 and 4.982 angstrom (I. Vurgaftman, J. R. Meyer, J. Appl. Phys. 94, 3675 (2003)). The gallium and aluminium
// precursors TMGa and TMAl diffuse about equally fast.
TEST(ExpectedGrowth, TakesTheVolumeOfTheNitride) {
  const double gallium = rate_of(with_flows({}, "0", "0.5", "0", "0"));
  const double aluminium = rate_of(with_flows({}, "0", "0", "0", "0.5"));
  const double volumes = (3.112 * 3.112 * 4.982) / (3.189 * 3.189 * 5.185);
  EXPECT_NEAR(aluminium / gallium, volumes, 0.1 * volumes);
}

// The flux is linear in a dilute flow, so the mean over a ramp from 0 is half of the end.
TEST(ExpectedGrowth, IntegratesRamps) {
  RecipeBuilder builder = with_flows({}, "0", "0", "0.5", "0");
  const double rate = rate_of(builder);
  builder.set_range(std::string(FLOWS) + "TEGa", "0", "0.5");
  const recipe::ExpectedGrowth ramp = growth_of(builder).front();
  EXPECT_NEAR(ramp.rate, 0.5 * rate, 1e-4 * rate);
  EXPECT_DOUBLE_EQ(ramp.thickness, ramp.rate * 10.0);
}

// D grows with T^1.5 and more, p / (R T) with 1/T: the mean over a small ramp of temperature is that of the middle.
TEST(ExpectedGrowth, IntegratesRampsOfTemperature) {
  RecipeBuilder builder;
  const double middle = rate_of(builder);
  builder.set_range(std::string(STAGE) + "/T", "990", "1070");
  EXPECT_NEAR(rate_of(builder), middle, 2e-3 * middle);
  builder.set_range(std::string(STAGE) + "/T", "1070", "1070");
  EXPECT_GT(rate_of(builder), 1.01 * middle);
}

// The model keeps a trace of gallium in the gas of stages without a gallium flow.
TEST(ExpectedGrowth, IsZeroInAPause) {
  const recipe::ExpectedGrowth pause = growth_of(with_flows({}, "0", "0", "0", "0")).front();
  EXPECT_EQ(pause.rate, 0.0);
  EXPECT_EQ(pause.thickness, 0.0);
}

TEST(ExpectedGrowth, IsTheSameInEachPeriod) {
  RecipeBuilder builder({.n_stages = 2});
  builder.make_periodic(1, 3, 2);
  const std::string second = "process_stages/stage_1/stage_1_2/";
  builder.set(second + "tau", "40").set_range(second + "gas_species/Q/TEGa", "0.5", "0.1");
  const std::vector<recipe::ExpectedGrowth> growth = growth_of(builder);
  ASSERT_EQ(growth.size(), 7u);
  EXPECT_NE(growth[0].rate, growth[1].rate);
  for (const std::size_t k : {2u, 4u}) {
    EXPECT_EQ(growth[k].rate, growth[0].rate);
    EXPECT_EQ(growth[k + 1].thickness, growth[1].thickness);
  }
  EXPECT_EQ(growth[6].rate, growth[0].rate);
}

TEST(ExpectedGrowth, IsNaNWithoutNumbers) {
  RecipeBuilder builder;
  builder.set_range(std::string(STAGE) + "/T", "nan", "nan");
  // A temperature that is not above 0 is taken as 0, at which nothing diffuses.
  EXPECT_FALSE(std::isfinite(rate_of(builder)) && rate_of(builder) > 0.0);
}

}  // namespace
}  // namespace vorlen_test
