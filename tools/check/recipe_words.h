// The table of the recipe in words: limits, keywords and conditions as the documentation, the schema and hints show
// them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "recipe/recipe_table.h"
#include "recipe/species_data.h"

namespace vorlen::recipe {

// The name of the root element.
const char* root_name();
// "at least 1e-4", "above 0 and below 89.99", "`InGaN`, `AlGaN`, ...", "any text, also empty".
std::string allowed_words(const Row& row);
// "required", "model `thick_GaN`", ...: when the element is read, given that its parent is there.
std::string condition_words(Condition condition);
// The same with the default of an optional value, and with the condition of the parent for a row without one.
std::string read_words(const Row& row);
// A gas flow of a stage: the name of its element, and its place in StageRecord::Q.
struct Flow {
  const char* name;
  vorlen::GasSpecies species;
};
// In the order of the table.
const std::vector<Flow>& flows();
// Without backticks and asterisks.
std::string plain(std::string_view markdown);
// A name as texts contain it: at most 60 characters of UTF-8, a longer one ends with "...".
std::string short_name(const std::string& name);
// A number in the shortest form: 1e-4, 0.99999, 1000.
std::string number_words(double value);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
