// The exported function, and the same run in memory: both join reader and driver, and turn every failure into result 1
// and a text.
#include "api/vorlen_solver.h"

#include <exception>
#include <new>
#include <string>

#include "api/error_buffer.h"
#include "api/run_recipe_text.h"
#include "api/run_simulation.h"
#include "platform/floating_point.h"
#include "recipe/read_recipe.h"

namespace {

std::int32_t fail(const char* text, char* error_buffer) {
  vorlen::copy_error_text(text, error_buffer);
  return 1;
}

// input is a path or a RecipeText. The result goes to output_text if that is not null, otherwise to output_path.
template <class Input>
std::int32_t run(const Input& input, const char* output_path, std::string* output_text, char* error_buffer) {
  vorlen::ProcessRecipe recipe;
  std::string err;
  if (vorlen::read_recipe(input, recipe, err) != 0) return fail(err.c_str(), error_buffer);
  if (vorlen::run_simulation(recipe, output_path, err, nullptr, {}, output_text) != 0) {
    return fail(err.c_str(), error_buffer);
  }
  return 0;
}

template <class Input>
std::int32_t run_guarded(const Input& input, const char* output_path, std::string* output_text, char* error_buffer) {
  const vorlen::DefaultFloatingPoint default_floating_point;
  // The standard library and the host's operator new may throw. No exception may cross the C interface.
  try {
    return run(input, output_path, output_text, error_buffer);
  } catch (const std::bad_alloc&) {
    return fail("Out of memory", error_buffer);
  } catch (const std::exception& e) {
    return fail(e.what(), error_buffer);
  }
}

}  // namespace

std::int32_t vorlen::run_recipe_text(const RecipeText& recipe, std::string& result, char* error_buffer) {
  result.clear();
  return run_guarded(recipe, "", &result, error_buffer);
}

extern "C" std::int32_t runSurfChem(const char* input_path, const char* output_path, char* error_buffer) {
  if (input_path == nullptr) return fail("Input path is not specified", error_buffer);
  if (output_path == nullptr) return fail("Output path is not specified", error_buffer);
  return run_guarded(input_path, output_path, nullptr, error_buffer);
}
