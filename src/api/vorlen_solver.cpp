// The exported function: joins reader and driver, and turns every failure into result 1 and a text.
#include "api/vorlen_solver.h"

#include <cfenv>
#include <exception>
#include <new>
#include <string>

#include "api/error_buffer.h"
#include "api/run_simulation.h"
#include "recipe/read_recipe.h"

namespace {

std::int32_t fail(const char* text, char* error_buffer) {
  vorlen::copy_error_text(text, error_buffer);
  return 1;
}

// The calling thread has the default floating-point environment while this object exists, then that of the host again.
// So the host's rounding mode does not change the numbers, and its traps do not end the process.
class DefaultFloatingPoint {
 public:
  DefaultFloatingPoint() {
    std::fegetenv(&host_);
    std::fesetenv(FE_DFL_ENV);
  }
  ~DefaultFloatingPoint() { std::fesetenv(&host_); }
  DefaultFloatingPoint(const DefaultFloatingPoint&) = delete;
  DefaultFloatingPoint& operator=(const DefaultFloatingPoint&) = delete;

 private:
  std::fenv_t host_;
};

std::int32_t run(const char* input_path, const char* output_path, char* error_buffer) {
  vorlen::ProcessRecipe recipe;
  std::string err;
  if (vorlen::read_recipe(input_path, recipe, err) != 0) return fail(err.c_str(), error_buffer);
  if (vorlen::run_simulation(recipe, output_path, err) != 0) return fail(err.c_str(), error_buffer);
  return 0;
}

}  // namespace

extern "C" std::int32_t runSurfChem(const char* input_path, const char* output_path, char* error_buffer) {
  if (input_path == nullptr) return fail("Input path is not specified", error_buffer);
  if (output_path == nullptr) return fail("Output path is not specified", error_buffer);
  const DefaultFloatingPoint default_floating_point;
  // The standard library and the host's operator new may throw. No exception may cross the C interface.
  try {
    return run(input_path, output_path, error_buffer);
  } catch (const std::bad_alloc&) {
    return fail("Out of memory", error_buffer);
  } catch (const std::exception& e) {
    return fail(e.what(), error_buffer);
  }
}
