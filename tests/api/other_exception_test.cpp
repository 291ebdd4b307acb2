// A host may replace operator new by one that throws another exception. That exception must not cross the C interface
// either. This program replaces operator new.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace {
bool fail_next = false;
}

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (fail_next) {
    fail_next = false;  // the exception allocates its text
    throw std::length_error("The host's memory manager says no");
  }
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace vorlen_test {
namespace {

TEST(OtherExceptions, EndTheCallWithTheirText) {
  const TempFolder folder;
  const std::string recipe = RecipeBuilder({.stress_model = "relax"}).write(folder.path("recipe.xml"));
  char text[VORLEN_ERROR_BUFFER_SIZE] = "";
  fail_next = true;
  EXPECT_EQ(1, runSurfChem(recipe.c_str(), "", text));
  EXPECT_FALSE(fail_next);
  EXPECT_STREQ("The host's memory manager says no", text);
  EXPECT_EQ(0, runSurfChem(recipe.c_str(), "", text)) << "the next call succeeds";
}

}  // namespace
}  // namespace vorlen_test
