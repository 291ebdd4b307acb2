// What is generated from the table of the recipe (recipe_table.h).
#pragma once

#include <string>

namespace vorlen::recipe {

// The RELAX NG schema recipe.rng.
std::string rng_text();

// docs/recipe-format.md with fresh tables between the lines "<!-- table: NAME -->" and "<!-- end of table -->". If a
// name is unknown or an end is missing, error describes it and the rest of the page is returned unchanged.
std::string page_with_tables(const std::string& page, std::string& error);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
