// Many runs in one process: each gives the same result as the first of its kind, and the memory does not grow.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "api/breakdown_recipes.h"
#include "api/run_support.h"
#include "support/recipe_builder.h"
#include "support/sanitizer.h"

namespace vorlen_test {
namespace {

long resident_bytes() {
  long size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

// In use by the program, without what malloc keeps for later.
std::size_t allocated_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

struct Kind {
  RecipeBuilder recipe;
  int result;
  const char* text;
};

// Alternates runs of each kind. A block takes 32 bytes or more, so one leaked in each run of one kind takes 64000. The
// pages of the process do not show that: malloc has free memory left, and pages that are first used late are added.
TEST(Endurance, ResultsAndMemoryStayConstantOver10000Runs) {
#ifdef VORLEN_ADDRESS_SANITIZER
  GTEST_SKIP() << "the sanitizer keeps what is given back";
#endif
  const TempFolder folder;
  const auto of_a_moment = [](const RecipeOptions& options) {
    RecipeBuilder recipe(options);
    recipe.set("process_stages/stage_1/tau", "0.001");
    return recipe;
  };
  const Kind kinds[] = {
      {of_a_moment({.stress_model = "relax"}), 0, ""},
      {of_a_moment({}), 0, ""},
      {breakdown_recipe(ALUMINIUM_FIRST), 1, "Step size has become too small"},
      {of_a_moment({}).remove("transport"), 1, "Element NonstSurfChem:transport is not found"},
      {of_a_moment({.n_stages = 2}).set("integration/scheme", "staged").set("process_stages/stage_2/tau", "0.01"), 0,
       ""},
  };
  constexpr std::size_t N_KINDS = std::size(kinds);
  std::vector<std::string> recipes, first_files;
  for (const Kind& kind : kinds) recipes.push_back(kind.recipe.write(folder.path(std::to_string(recipes.size()))));
  constexpr std::size_t WARM_UP = 500;
  constexpr std::size_t RUNS = 10000;
  long pages_before = 0;
  std::size_t allocated_before = 0;
  for (std::size_t k = 0; k < WARM_UP + RUNS; ++k) {
    if (k == WARM_UP) {
      pages_before = resident_bytes();
      allocated_before = allocated_bytes();
    }
    const Kind& kind = kinds[k % N_KINDS];
    const std::string output = folder.path("out.txt");
    std::filesystem::remove(output);
    const CallOutcome got = call_library(recipes[k % N_KINDS], output);
    ASSERT_EQ(got.result, kind.result) << "run " << k << ": " << got.text;
    ASSERT_EQ(got.untouched, kind.result == 0) << "run " << k;
    if (kind.result != 0) {
      ASSERT_EQ(got.text, kind.text) << "run " << k;
    }
    // No file if the recipe cannot be read; otherwise rows, also up to the failure.
    const std::string file = read_file(output);
    ASSERT_EQ(file.find("#time") == std::string::npos, k % N_KINDS == 3) << "run " << k;
    if (k < N_KINDS) first_files.push_back(file);
    ASSERT_TRUE(file == first_files[k % N_KINDS]) << "run " << k << " wrote another file than the first of its kind";
  }
  EXPECT_LT(allocated_bytes(), allocated_before + 32000);
  EXPECT_LT(resident_bytes() - pages_before, 80000);
}

}  // namespace
}  // namespace vorlen_test
