// The integration scheme of a recipe, "continuous" or "staged", and how to run a recipe with another one.
#pragma once

#include <string>
#include <vector>

#include "platform/files.h"

// The schemes that a recipe can choose.
std::vector<std::string> scheme_names();

// The scheme chosen by the recipe at path; "continuous" if it chooses none or cannot be read.
std::string scheme_of_recipe(const std::string& path);

// The text of the recipe at path with this scheme; a tolerance is kept. Empty if the recipe can be used unchanged,
// because it has this scheme already or is so faulty that it does not run at all. Throws std::runtime_error if the
// scheme cannot be set.
std::string recipe_under_scheme(const std::string& path, const std::string& scheme);

// The path of the copy of a recipe for another scheme. Throws std::runtime_error if the copy could not be created.
const std::string& path_of_copy(const platform::PrivateFile& copy);
