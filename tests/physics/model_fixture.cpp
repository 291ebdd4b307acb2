// A growth model built from a recipe in memory.
#include "physics/model_fixture.h"

#include <gtest/gtest.h>

#include "recipe/read_recipe.h"

namespace vorlen_test {

std::unique_ptr<vorlen::SurfChemNonst> make_model(const RecipeBuilder& recipe) {
  const TempFolder folder;
  vorlen::ProcessRecipe process;
  std::string error;
  if (vorlen::read_recipe(recipe.write(folder.path("recipe.xml")).c_str(), process, error) != 0) {
    ADD_FAILURE() << error;
    return nullptr;
  }
  std::int32_t err = 0;
  auto model = std::make_unique<vorlen::SurfChemNonst>(process, "", err);
  if (err != 0) {
    ADD_FAILURE() << model->error_text;
    return nullptr;
  }
  return model;
}

}  // namespace vorlen_test
