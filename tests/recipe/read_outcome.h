// Runs the reader over a recipe in a temporary file, and the checks that the tests of the reader share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "recipe/process_recipe.h"
#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {

struct ReadOutcome {
  std::int32_t status = 0;
  std::string error = "left over from an earlier call";  // the reader has to empty it
  vorlen::ProcessRecipe recipe;
};

inline ReadOutcome read_recipe_file(const std::string& path) {
  ReadOutcome outcome;
  outcome.status = vorlen::read_recipe(path.c_str(), outcome.recipe, outcome.error);
  return outcome;
}

inline ReadOutcome read_text(const std::string& text) {
  const TempFolder folder;
  return read_recipe_file(write_file(folder.path("recipe.xml"), text));
}

inline ReadOutcome read(const RecipeBuilder& recipe) { return read_text(recipe.text()); }

inline void expect_read(const RecipeBuilder& recipe) {
  const ReadOutcome outcome = read(recipe);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
}

inline void expect_refused(const RecipeBuilder& recipe, const std::string& text) {
  const ReadOutcome outcome = read(recipe);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, text);
}

// The name of an element in messages: the root and the path, joined by colons.
inline std::string full_name(std::string path) {
  for (char& c : path) {
    if (c == '/') c = ':';
  }
  return "NonstSurfChem:" + path;
}

// An element of a recipe that must be there, with attributes that must be there and, if they are numbers, convert.
struct RequiredElement {
  const char* path;
  std::vector<const char*> attributes;
  const char* number;       // "real" or "integer", null for a text
  const char* suffix = "";  // at the end of every message
};

// Takes each element away, then each attribute, then makes each number a word, one at a time, and expects the message.
inline void expect_all_required(const RecipeOptions& options, const std::vector<RequiredElement>& elements) {
  expect_read(RecipeBuilder(options));
  for (const RequiredElement& element : elements) {
    SCOPED_TRACE(element.path);
    const std::string name = full_name(element.path);
    expect_refused(RecipeBuilder(options).remove(element.path), "Element " + name + " is not found" + element.suffix);
    for (const char* attribute : element.attributes) {
      SCOPED_TRACE(attribute);
      expect_refused(RecipeBuilder(options).remove_attribute(element.path, attribute),
                     std::string("Attribute ") + attribute + " of element " + name + " is not found" + element.suffix);
      if (element.number == nullptr) continue;
      expect_refused(RecipeBuilder(options).set(element.path, attribute, "abc"),
                     std::string("Failed to get ") + element.number + " number from value \"abc\" of attribute " +
                         attribute + " in element " + name + element.suffix);
    }
  }
}

}  // namespace vorlen_test
