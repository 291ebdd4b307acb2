// The residual allocates nothing, under any model and at any time. The program counts the calls of operator new.
#include <new>

#include "model/model_fixture.h"
#include "support/allocation_counter.h"

namespace vorlen_test {

namespace {

using namespace vorlen;

// Evaluates the residual at times all over the process, forward, backward and outside; returns the allocations made.
long allocations_of_evaluations(const ProcessRecipe& recipe) {
  BuiltModel model(recipe);
  EXPECT_EQ(model.err, 0) << model->error_text;
  std::array<double, N_STATE_MAX> y{};
  std::array<double, N_STATE_MAX> f{};
  model->init_state(y.data());
  const double span = model->t_end - model->t_begin;
  int evaluated = 0;
  const long before = allocations;
  for (double part : {0.0, 0.3, 0.6, 1.0, 0.7, 0.1, 2.0, -1.0}) {
    if (model->eval_rhs(model->t_begin + part * span, y.data(), f.data()) == 0) ++evaluated;
    y[STATE_Z] += 1e-9;
  }
  const long made = allocations - before;
  EXPECT_EQ(evaluated, recipe.conditions_vary ? 6 : 8);
  return made;
}

}  // namespace

TEST(Allocations, TheCounterCounts) {
  const long before = allocations;
  ::operator delete(::operator new(100));
  EXPECT_EQ(allocations - before, 1);
}

TEST(Allocations, TheResidualOfAConstantProcessMakesNone) {
  EXPECT_EQ(allocations_of_evaluations(recipe_of(RecipeOptions{})), 0);
  EXPECT_EQ(allocations_of_evaluations(recipe_of(RecipeOptions{.stress_model = "off"})), 0);
}

TEST(Allocations, TheResidualOfAVaryingProcessMakesNoneUnderAnyTransportModel) {
  for (const char* stress_model : {"off", "V_dislocation"}) {
    for (const char* transport_model : {"fixed_thickness", "thick_GaN", "InGaN_GR_X"}) {
      for (const char* reactor : {"CCS", "TDR", "HFR"}) {
        RecipeBuilder builder(
            {.stress_model = stress_model, .transport_model = transport_model, .reactor = reactor, .n_stages = 3});
        builder.set("process_stages/stage_2/T", "end", "1100");
        builder.set("process_stages/stage_2/gas_species/Q/TMAl", "end", "0.1");
        const ProcessRecipe recipe = recipe_of(builder);
        ASSERT_TRUE(recipe.conditions_vary);
        EXPECT_EQ(allocations_of_evaluations(recipe), 0) << stress_model << ' ' << transport_model << ' ' << reactor;
      }
    }
  }
}

TEST(Allocations, TheResidualOfTheReferenceRecipesMakesNone) {
  for (const char* name : {"ingan_v_defects", "algan_gan_mirror_tdr"})
    EXPECT_EQ(allocations_of_evaluations(reference_recipe(name)), 0) << name;
}

}  // namespace vorlen_test
