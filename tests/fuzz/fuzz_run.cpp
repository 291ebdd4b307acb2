// A complete call for small recipes with a limit of steps: reading, construction, integration. The result file is empty
// if the model cannot be built, and otherwise starts with the header.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "api/run_simulation.h"
#include "input_file.h"
#include "recipe/read_recipe.h"

namespace {

constexpr std::int32_t STEPS_MAX = 12;
constexpr std::size_t STAGES_MAX = 200;       // more take long and reach no other code
constexpr std::size_t STAGED_STAGES_MAX = 6;  // under the staged scheme,
constexpr std::int32_t STAGED_STEPS = 200;    // which allows this many more steps per stage

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vorlen_fuzz::InputFile input, output;
  vorlen::ProcessRecipe recipe;
  std::string error;
  if (vorlen::read_recipe(input.fill(data, size), recipe, error) != 0) return -1;  // not worth keeping in the corpus
  if (recipe.active_stages.size() > STAGES_MAX) return -1;
  // The last byte, which the parser does not need, selects the scheme if the recipe does not.
  if (recipe.scheme == vorlen::SCHEME_continuous && data[size - 1] % 2 == 1) recipe.scheme = vorlen::SCHEME_staged;
  const bool staged = recipe.scheme == vorlen::SCHEME_staged;
  if (staged && recipe.active_stages.size() > STAGED_STAGES_MAX) return -1;
  const auto stages = static_cast<std::int32_t>(recipe.active_stages.size());
  output.fill(nullptr, 0);
  vorlen::RunCounters counters;
  const std::int32_t status = vorlen::run_simulation(recipe, output.path(), error, &counters, {.max_steps = STEPS_MAX});
  require((status == 0) == error.empty());
  require(counters.step_count <= STEPS_MAX + 1 + (staged ? STAGED_STEPS * stages : 0));
  const std::string result = output.content();
  const bool ran = counters.idid != 0;
  require(ran == result.starts_with("\"VORLEN output file, version 2.0\"\n"));
  require(ran || result.empty());
  return 0;
}
