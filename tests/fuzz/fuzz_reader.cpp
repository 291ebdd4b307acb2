// The reader, on any file: it returns one of its three statuses, and a text if and only if it rejects the file. The
// check of an accepted recipe returns a text if and only if it fails.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "input_file.h"
#include "recipe/read_recipe.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vorlen_fuzz::InputFile file;
  vorlen::ProcessRecipe recipe;
  std::string error = "from the call before";
  const std::int32_t status = vorlen::read_recipe(file.fill(data, size), recipe, error);
  require(status == 0 || status == 1 || status == -1);
  if (status != 0) {
    require(!error.empty());
    return 0;
  }
  std::string fault;
  require(recipe.validate_recipe(fault) == fault.empty());
  require(!recipe.active_stages.empty() || fault == "Number of stages is zero");
  return 0;
}
