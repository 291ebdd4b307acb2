// Between the first and the last step a run allocates nothing except for the history.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "integrator/radau_integrator.h"
#include "model/surfchem_nonst.h"
#include "recipe/read_recipe.h"
#include "strain/record_step.h"
#include "support/allocation_counter.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

// Counts the allocations between calls of record_step.
struct Watched {
  SurfChemNonst& model;
  long count_at_last_step = -1;
  long allocated = 0;
  int steps = 0;
};

void rhs(std::int32_t, double x, const double* y, double* f, void*, void* context) {
  static_cast<Watched*>(context)->model.eval_rhs(x, y, f);
}

void mass(std::int32_t n, double* FMAS, std::int32_t, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) FMAS[j] = j < n - N_ALGEBRAIC ? 1.0 : 0.0;
}

void step(std::int32_t, double, double x, const double* y, const double*, std::int32_t, std::int32_t, void*,
          void* context, std::int32_t&) {
  Watched& watched = *static_cast<Watched*>(context);
  if (watched.count_at_last_step >= 0) watched.allocated += allocations - watched.count_at_last_step;
  ++watched.steps;
  record_step(watched.model, x, y);
  watched.count_at_last_step = allocations;
}

class Allocations : public testing::TestWithParam<const char*> {};

// record_step itself may allocate: it grows the history.
TEST_P(Allocations, NoneBetweenTheFirstAndTheLastStep) {
  const TempFolder folder;
  const RecipeBuilder builder({.stress_model = GetParam(), .n_stages = 2});
  // With a ramp, each evaluation looks up the conditions.
  RecipeBuilder ramped = builder;
  ramped.set_range("process_stages/stage_2/T", "1030", "1050");
  ProcessRecipe recipe;
  std::string error;
  ASSERT_EQ(0, read_recipe(ramped.write(folder.path("recipe.xml")).c_str(), recipe, error)) << error;
  std::int32_t err = 0;
  SurfChemNonst model(recipe, "", err);
  ASSERT_EQ(0, err) << model.error_text;
  ASSERT_TRUE(model.conditions_vary);
  const std::int32_t n = model.n_state();
  double y[N_STATE_MAX] = {};
  model.init_state(y);

  std::vector<double> WORK(static_cast<std::size_t>(n * (5 * n + 12) + 20), 0.0);
  std::vector<std::int32_t> IWORK(static_cast<std::size_t>(5 * n + 20), 0);
  WORK[6] = 10.0;
  IWORK[1] = 100000;
  IWORK[4] = n - N_ALGEBRAIC;
  IWORK[5] = N_ALGEBRAIC;
  Watched watched{model};
  double t = model.t_begin, h = 1e-4, rtol = 1e-10, atol = 1e-14;
  std::int32_t mljac = n, mujac = n, mumas = 0, idid = 0;
  RadauIntegrator(n, rhs, t, y, model.t_end, h, &rtol, &atol, 0, nullptr, 0, mljac, mujac, mass, 1, 0, mumas, step, 1,
                  WORK.data(), static_cast<std::int32_t>(WORK.size()), IWORK.data(),
                  static_cast<std::int32_t>(IWORK.size()), nullptr, &watched, idid);
  EXPECT_EQ(1, idid);
  EXPECT_GT(watched.steps, 20);
  EXPECT_EQ(0, watched.allocated);
}

INSTANTIATE_TEST_SUITE_P(StressModel, Allocations, testing::Values("relax", "V_dislocation"),
                         [](const testing::TestParamInfo<const char*>& param) { return std::string(param.param); });

}  // namespace
}  // namespace vorlen_test
