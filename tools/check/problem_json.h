// The report on recipes as JSON (docs/checking-a-recipe.md).
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "check/recipe_check.h"

namespace vorlen::recipe {

struct CheckedFile {
  std::string file;
  std::vector<Problem> problems;

  std::ptrdiff_t count(Severity severity) const;
};

// "error" or "warning".
const char* severity_word(Severity severity);

// One file: its name, the numbers of errors and warnings, and the list of problems.
nlohmann::ordered_json json_of(const CheckedFile& checked);

// What "vorlen check --format json" prints.
std::string json_text(const std::vector<CheckedFile>& files);

}  // namespace vorlen::recipe
