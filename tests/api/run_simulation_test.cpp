// The driver: statuses, texts, and the result file of a run that ends early.
#include "api/run_simulation.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

ProcessRecipe recipe_of(const RecipeBuilder& builder) {
  const TempFolder folder;
  ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(0, read_recipe(builder.write(folder.path("recipe.xml")).c_str(), recipe, error)) << error;
  return recipe;
}

TEST(RunSimulation, MapsTheCodesOfTheIntegrator) {
  const auto mapped = [](std::int32_t idid) {
    std::string error;
    const std::int32_t status = run_status_of(idid, error);
    return std::to_string(status) + " " + error;
  };
  EXPECT_EQ("0 ", mapped(1));
  EXPECT_EQ("2 Maximum number of time steps reached", mapped(-2));
  EXPECT_EQ("2 Step size has become too small", mapped(-3));
  EXPECT_EQ("3 Matrix is repeatedly singular", mapped(-4));
  EXPECT_EQ("6 Integrator rejected its arguments", mapped(-1));
}

// The reader rejects such a tolerance; the integrator needs a positive one.
TEST(RunSimulation, ARejectedCallOfTheIntegratorIsAFailure) {
  ProcessRecipe recipe = recipe_of(RecipeBuilder().set("integration/scheme", "staged"));
  recipe.tolerance = 0.0;
  std::string error;
  RunCounters counters;
  EXPECT_EQ(RUN_REJECTED, run_simulation(recipe, "", error, &counters));
  EXPECT_EQ("Integrator rejected its arguments", error);
  EXPECT_EQ(-1, counters.idid);
  EXPECT_EQ(0, counters.step_count);
}

TEST(RunSimulation, EmptiesTheErrorTextAtTheStart) {
  std::string error = "from an earlier run";
  EXPECT_EQ(0, run_simulation(recipe_of(RecipeBuilder({.stress_model = "relax"})), "", error));
  EXPECT_EQ("", error);
}

TEST(RunSimulation, AnyOtherStressModelRunsWithoutRelaxation) {
  std::string error;
  for (const char* word : {"relax", "none", "V dislocation"}) {
    const ProcessRecipe recipe = recipe_of(RecipeBuilder({.stress_model = word}));
    EXPECT_EQ(STRESS_OFF, recipe.stress_model) << word;
    RunCounters counters;
    EXPECT_EQ(0, run_simulation(recipe, "", error, &counters)) << word << ": " << error;
    // Two evaluations of the start, and 10 for each Jacobian: the state has 10 components.
    EXPECT_EQ(counters.rhs_calls + 10 * counters.jacobian_count + 2, counters.eval_rhs_calls) << word;
  }
}

TEST(RunSimulation, AConstructionErrorHasItsOwnStatusAndText) {
  ProcessRecipe recipe = recipe_of(RecipeBuilder({.stress_model = "relax"}));
  std::string error;
  recipe.transport_model = NOT_SPECIFIED;
  EXPECT_EQ(-1, run_simulation(recipe, "", error));
  EXPECT_EQ("Transport model is not specified", error);
  recipe.transport_model = TRANSPORT_fixed_thickness;
  for (ValueRange& flow : recipe.active_stages[0].Q) flow = ValueRange{};
  EXPECT_EQ(100, run_simulation(recipe, "", error));
  EXPECT_EQ("Chemical element N is not present in precursor and bulk species", error);
}

TEST(RunSimulation, ARunCutOffByTheStepLimitWritesWhatItReached) {
  const RecipeBuilder builder({.stress_model = "relax", .n_pre_stages = 1, .n_stages = 2, .n_post_stages = 1});
  const TempFolder folder;
  std::string error;
  RunCounters counters;
  EXPECT_EQ(RUN_GAVE_UP_ON_STEPS,
            run_simulation(recipe_of(builder), folder.path("out.txt").c_str(), error, &counters, {.max_steps = 20}));
  EXPECT_EQ("Maximum number of time steps reached", error);
  EXPECT_EQ(-2, counters.idid);
  EXPECT_EQ(21, counters.step_count);

  std::istringstream lines(read_file(folder.path("out.txt")));
  std::string line, last;
  int layers = 0;
  bool in_layers = false;
  while (std::getline(lines, line)) {
    if (line == "</LAYERS>") in_layers = false;
    if (in_layers) ++layers;
    if (line == "<LAYERS>") in_layers = true;
    last = line;
  }
  EXPECT_EQ(4, layers);
  // The last row is an active one, which ends with a blank, and lies before the end of the process at 10 + 2 * 10 s.
  ASSERT_FALSE(last.empty());
  EXPECT_EQ(' ', last.back());
  EXPECT_LT(std::stod(last), 30.0);
}

}  // namespace
}  // namespace vorlen_test
