// A run in memory, without files.
#pragma once

#include <cstdint>
#include <string>

#include "recipe/load_document.h"

namespace vorlen {

// The same as runSurfChem for the content of a recipe file: result receives the content of the result file, which is
// empty if the run did not get as far as writing it. Returns 0 on success, otherwise 1 with a text in error_buffer, an
// array of VORLEN_ERROR_BUFFER_SIZE bytes, or null.
std::int32_t run_recipe_text(const RecipeText& recipe, std::string& result, char* error_buffer);

}  // namespace vorlen
