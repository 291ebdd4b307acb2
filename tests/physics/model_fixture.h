// A growth model built from a recipe in memory, for tests that ask its functions and not a run.
#pragma once

#include <memory>

#include "model/surfchem_nonst.h"
#include "support/recipe_builder.h"

namespace vorlen_test {

// Reads the recipe and constructs the model without a result file. Null, with a failure of the test, if that goes
// wrong.
std::unique_ptr<vorlen::SurfChemNonst> make_model(const RecipeBuilder& recipe);

}  // namespace vorlen_test
