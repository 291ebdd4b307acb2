// The files of the tree that are generated from the table of the recipe (recipe/recipe_table.h).
#pragma once

#include <string>

namespace recipe {

// The schema in RELAX NG, share/vorlen/recipe.rng.
std::string rng_text();
// The schema in XML Schema 1.0, share/vorlen/recipe.xsd.
std::string xsd_text();

// docs/recipe-format.md with its tables replaced: the text between the lines "<!-- table: NAME -->" and
// "<!-- end of table -->". An unknown name or a missing end is reported in error, and the page stays as it is from
// there.
std::string page_with_tables(const std::string& page, std::string& error);

}  // namespace recipe
