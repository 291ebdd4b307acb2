// Reads a recipe file and stops at its first fault.
#include "recipe/read_recipe.h"

#include <tinyxml.h>

#include "platform/classic_locale.h"
#include "recipe/recipe_reader.h"

namespace vorlen {

namespace {

struct FirstFault {
  ProcessRecipe& recipe;
  std::string& error;
  bool is_bad_recipe = false;
};

bool keep_first_fault(void* context, const recipe::Fault& fault) {
  FirstFault& first = *static_cast<FirstFault*>(context);
  (fault.late ? first.recipe.late_fault : first.error) = fault.text;
  // An incomplete recipe goes to the model, whose validate_recipe rejects a recipe without active stages.
  first.is_bad_recipe = !fault.late && fault.kind != recipe::FaultKind::incomplete;
  return false;
}

// source is a path or a RecipeText.
template <class Source>
std::int32_t read_from(const Source& source, ProcessRecipe& recipe, std::string& error) {
  constexpr std::int32_t READ = 0, BAD_RECIPE = 1, BAD_FILE = -1;
  const ClassicLocaleScope classic_locale;
  error.clear();
  TiXmlDocument document;
  if (!load_document(source, document, error)) return BAD_FILE;
  FirstFault first{recipe, error};
  recipe::read_document(document, recipe, {.context = &first, .fault = keep_first_fault});
  return first.is_bad_recipe ? BAD_RECIPE : READ;
}

}  // namespace

std::int32_t read_recipe(const char* path, ProcessRecipe& recipe, std::string& error) {
  return read_from(path, recipe, error);
}

std::int32_t read_recipe(const RecipeText& text, ProcessRecipe& recipe, std::string& error) {
  return read_from(text, recipe, error);
}

}  // namespace vorlen
