// What the Python package knows of the recipe's elements (recipe/recipe_table.h).
#pragma once

#include <string>

namespace vorlen::recipe {

// The module vorlen/_recipe/elements.py of the Python package.
std::string recipe_elements_module();

}  // namespace vorlen::recipe
