// Processes of several stages, grown under the staged scheme, with the model as the run leaves it.
#include "physics/staged_growth.h"

#include <gtest/gtest.h>

#include <sstream>

#include "api/staged_run.h"
#include "physics/model_fixture.h"
#include "results/profiles.h"

namespace vorlen_test {

namespace {

std::string number(double value) {
  std::ostringstream text;
  text.precision(17);
  text << value;
  return text.str();
}

struct Flow {
  const char* species;
  double Conditions::*value;
};
constexpr Flow FLOWS[] = {{"TMIn", &Conditions::TMIn}, {"TMGa", &Conditions::TMGa}, {"TEGa", &Conditions::TEGa},
                          {"TMAl", &Conditions::TMAl}, {"N2", &Conditions::N2},     {"NH3", &Conditions::NH3},
                          {"H2", &Conditions::H2}};

}  // namespace

StagePlan constant(double tau, const Conditions& conditions) { return {tau, conditions, conditions}; }

Conditions without_metals(Conditions c) {
  c.TMIn = c.TMGa = c.TEGa = c.TMAl = 0.0;
  return c;
}

RecipeBuilder process_recipe(const std::string& stress_model, const std::vector<StagePlan>& stages, double t0) {
  RecipeBuilder recipe(
      {.material = "AlInGaN", .stress_model = stress_model, .n_stages = static_cast<int>(stages.size())});
  recipe.set("pre_stages/t0", number(t0));
  int k = 0;
  for (const StagePlan& plan : stages) {
    const std::string stage = "process_stages/stage_" + std::to_string(++k);
    recipe.set(stage + "/tau", number(plan.tau)).set(stage + "/delta", number(plan.from.delta));
    recipe.set_range(stage + "/T", number(plan.from.T), number(plan.to.T));
    recipe.set_range(stage + "/P", number(plan.from.P), number(plan.to.P));
    for (const Flow& flow : FLOWS) {
      recipe.set_range(stage + "/gas_species/Q/" + flow.species, number(plan.from.*flow.value),
                       number(plan.to.*flow.value));
    }
  }
  return recipe;
}

Grown grow_staged(std::unique_ptr<vorlen::SurfChemNonst> model, double tolerance) {
  Grown grown;
  if (!model) return grown;
  std::string error;
  const std::int32_t status = vorlen::run_staged(*model, tolerance, {}, grown.counters, error);
  EXPECT_EQ(status, vorlen::RUN_OK) << error;
  if (status == vorlen::RUN_OK) {
    sum_stage_thicknesses(*model);
    for (const vorlen::StageRecord& stage : model->active_stages) grown.layer_nm.push_back(stage.thickness);
  }
  grown.model = std::move(model);
  return grown;
}

Grown grow_staged(const RecipeBuilder& recipe, double tolerance) { return grow_staged(make_model(recipe), tolerance); }

}  // namespace vorlen_test
