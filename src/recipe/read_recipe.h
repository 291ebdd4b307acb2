// The reader of the XML recipe.
#pragma once

#include <cstdint>
#include <string>

#include "recipe/process_recipe.h"

namespace vorlen {

// Reads the recipe file at path into recipe.
//
// Returns 0 when the file was read to its end, 1 for a bad recipe and -1 for a file that can't be read or parsed, both
// with the whole message in error, which is emptied first. One fault ends the reading with 0 although the recipe is
// incomplete: a first pre-stage whose stress_state is no lattice constant; validate_recipe refuses what is left.
// The decimal separator is the point, whatever the locale of the process or the thread.
std::int32_t read_recipe(const char* path, ProcessRecipe& recipe, std::string& error);

}  // namespace vorlen
