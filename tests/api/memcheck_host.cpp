// A host for valgrind. Runs one recipe of each kind: with and without relaxation, staged, one whose integration fails
// and one with an error. Exit status 0 if each run ended as expected.
#include <cstdio>
#include <cstring>
#include <string>

#include "api/breakdown_recipes.h"
#include "api/vorlen_solver.h"
#include "support/recipe_builder.h"

namespace {

using namespace vorlen_test;

bool ends_with(const RecipeBuilder& recipe, const char* expected) {
  const TempFolder folder;
  const std::string input = recipe.write(folder.path("recipe.xml"));
  const std::string output = folder.path("out.txt");
  char text[VORLEN_ERROR_BUFFER_SIZE] = "";
  const int result = runSurfChem(input.c_str(), output.c_str(), text);
  if (std::strcmp(text, expected) == 0 && (result == 0) == (*expected == '\0')) return true;
  std::fprintf(stderr, "%d %s, expected %s\n", result, text, expected);
  return false;
}

}  // namespace

int main() {
  const char* const tau = "process_stages/stage_1/tau";
  const bool passed =
      ends_with(RecipeBuilder({.stress_model = "relax", .n_post_stages = 1}).set(tau, "1"), "") &&
      ends_with(RecipeBuilder({.n_post_stages = 1}).set(tau, "1"), "") &&
      ends_with(RecipeBuilder({.n_stages = 2}).set(tau, "200").set("integration/scheme", "staged"), "") &&
      ends_with(breakdown_recipe(ALUMINIUM_FIRST), "Step size has become too small") &&
      ends_with(RecipeBuilder().remove("transport"), "Element NonstSurfChem:transport is not found");
  return passed ? 0 : 1;
}
