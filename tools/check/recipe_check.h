// What is wrong with a recipe, told without running it.
#pragma once

#include <string>
#include <vector>

namespace recipe {

enum class Severity { error, warning };

// One entry of the report.
struct Problem {
  Severity severity = Severity::error;
  const char* kind = "";   // a word for programs; docs/checking-a-recipe.md lists them
  int line = 0;            // from 1; 0 when the place is not known
  int column = 0;          // from 1, in characters; 0 when the place is not known
  std::string path;        // full name of the element, as in the library's texts; empty for the file as a whole
  std::string stage;       // element name of the stage; empty outside of stages
  std::string stage_name;  // the user's name of it
  std::string text;        // of an error: the library's own
  std::string hint;
};

// Reads the recipe and tells all that is wrong: the errors in the order in which the library would come upon them, so
// that the first one is what runSurfChem gives, then the warnings by line. Without errors the library accepts the
// recipe; whether its run succeeds is not known. The file's name as given stands in the texts of a file that can't be
// read.
std::vector<Problem> check_recipe(const std::string& file);

}  // namespace recipe
