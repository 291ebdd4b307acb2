// Growth models of the tests: built from the reference recipes, from recipes made in memory, or from records that a
// test changes after reading.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "model/surfchem_nonst.h"
#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {

// A model with the status of its construction.
struct BuiltModel {
  std::int32_t err = -99;
  vorlen::SurfChemNonst m;

  explicit BuiltModel(const vorlen::ProcessRecipe& recipe, const std::string& output_path = "")
      : m(recipe, output_path.c_str(), err) {}
  vorlen::SurfChemNonst* operator->() { return &m; }
};

// The terms of the present composition.
inline const vorlen::CompositionTerms& composition_of(vorlen::SurfChemNonst& m) {
  return m.composition_terms(m.condition_terms());
}

inline vorlen::ProcessRecipe read_recipe_file(const std::string& path) {
  vorlen::ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(vorlen::read_recipe(path.c_str(), recipe, error), 0) << error;
  return recipe;
}

// One of tests/data/recipes, without the extension.
inline vorlen::ProcessRecipe reference_recipe(const std::string& name) {
  return read_recipe_file(std::string(VORLEN_TEST_DATA "/recipes/") + name + ".xml");
}

inline vorlen::ProcessRecipe recipe_of(const RecipeBuilder& builder) {
  TempFolder folder;
  return read_recipe_file(builder.write(folder.path("recipe.xml")));
}

inline vorlen::ProcessRecipe recipe_of(const RecipeOptions& options) { return recipe_of(RecipeBuilder(options)); }

}  // namespace vorlen_test
