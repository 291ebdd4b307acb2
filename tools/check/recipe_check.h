// The report on a recipe: every problem, without running it.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "recipe/load_document.h"

namespace vorlen::recipe {

enum class Severity { error, warning };

// One entry of the report.
struct Problem {
  Severity severity = Severity::error;
  const char* kind = "";   // a word for programs; docs/checking-a-recipe.md lists them
  int line = 0;            // from 1; 0 when the place is not known
  int column = 0;          // from 1, in characters; 0 when the place is not known
  std::string path;        // full name of the element, as in the library's messages; empty for the file as a whole
  std::string stage;       // element name of the stage; empty outside of stages
  std::string stage_name;  // the user's name of it
  std::string text;        // of an error: the library's own
  std::string hint;
  std::vector<std::string> also_in;  // element names of the other stages to which a warning applies
};

// A kind of warning.
struct WarningKind {
  const char* name;
  const char* meaning;      // one line of Markdown
  const char* texts;        // what the warnings say, separated by |; <...> matches any text
  bool loses_part = false;  // a part of the recipe is not simulated as written
};

// All kinds, in the order of the table in docs/checking-a-recipe.md.
std::span<const WarningKind> warning_kinds();

// Reads the recipe and reports every problem: the errors in the order in which the library would report them, so that
// the first one is that of runSurfChem, then the warnings by line. Without errors the library accepts the recipe;
// whether its run succeeds is not known. The texts on a file that can't be read contain its name as given.
std::vector<Problem> check_recipe(const std::string& file);

// The same for a recipe in memory.
std::vector<Problem> check_recipe(const vorlen::RecipeText& text);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
