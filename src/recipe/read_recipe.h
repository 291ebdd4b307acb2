// The reader of the XML recipe.
#pragma once

#include <cstdint>
#include <string>

#include "recipe/load_document.h"
#include "recipe/process_recipe.h"

namespace vorlen {

// Reads the recipe file at path into a fresh recipe.
//
// Returns 0 when the file was read to its end, 1 for a bad recipe and -1 for a file that can't be read or parsed, both
// with the whole message in error, which is emptied first. Two faults return 0 all the same. A first pre-stage whose
// stress_state is not a lattice constant ends the reading: the recipe is incomplete, and validate_recipe rejects it.
// A fault in the elements integration and output is left in recipe.late_fault, which the run reports.
// The decimal separator is the point, whatever the locale of the process or the thread.
std::int32_t read_recipe(const char* path, ProcessRecipe& recipe, std::string& error);

// The same for a recipe in memory.
std::int32_t read_recipe(const RecipeText& text, ProcessRecipe& recipe, std::string& error);

}  // namespace vorlen
