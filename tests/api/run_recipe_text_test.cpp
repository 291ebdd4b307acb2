// A run in memory gives the bytes and the text of a run with files.
#include "api/run_recipe_text.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "api/breakdown_recipes.h"
#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

struct MemoryRun {
  int result = 0;
  std::string text;
  std::string rows;
};

MemoryRun run_in_memory(const std::string& name, const std::string& recipe) {
  MemoryRun run;
  run.rows = "earlier content";
  std::array<char, VORLEN_ERROR_BUFFER_SIZE> buffer{};
  run.result = vorlen::run_recipe_text({name.c_str(), recipe}, run.rows, buffer.data());
  run.text = buffer.data();
  return run;
}

// Runs the recipe both ways and expects the same; returns the run in memory.
MemoryRun expect_the_same(const std::string& recipe) {
  const TempFolder folder;
  const std::string path = write_file(folder.path("recipe.xml"), recipe);
  const std::string output = folder.path("result.txt");
  const CallOutcome with_files = call_library(path, output);
  const MemoryRun run = run_in_memory(path, recipe);
  EXPECT_EQ(with_files.result, run.result);
  EXPECT_EQ(with_files.untouched ? "" : with_files.text, run.text);
  EXPECT_TRUE(read_file(output) == run.rows) << "the results differ";  // too long to print
  return run;
}

TEST(RunRecipeText, AGoodRecipeUnderBothSchemes) {
  RecipeBuilder recipe({.n_stages = 2, .n_post_stages = 1});
  const MemoryRun continuous = expect_the_same(recipe.text());
  EXPECT_EQ(0, continuous.result) << continuous.text;
  EXPECT_TRUE(continuous.rows.starts_with("\"VORLEN output file"));
  const MemoryRun staged = expect_the_same(recipe.set("integration/scheme", "staged").text());
  EXPECT_EQ(0, staged.result) << staged.text;
  EXPECT_NE(continuous.rows, staged.rows);
}

TEST(RunRecipeText, AStoredRecipe) {
  const std::string recipe = read_file(VORLEN_TEST_DATA "/bad/good_004.xml");
  EXPECT_EQ(0, expect_the_same(recipe).result);
}

TEST(RunRecipeText, ATextThatIsNotXmlAndAnEmptyOne) {
  const MemoryRun broken = expect_the_same("<process><oops");
  EXPECT_EQ(1, broken.result);
  EXPECT_TRUE(broken.text.starts_with("Error reading file ")) << broken.text;
  EXPECT_EQ("", broken.rows);
  EXPECT_EQ(1, expect_the_same("").result);
  EXPECT_EQ(1, expect_the_same(std::string("\0binary\xff\xfe", 9)).result);
}

TEST(RunRecipeText, ARecipeThatTheReaderRejects) {
  const MemoryRun run = expect_the_same(RecipeBuilder().set("process_stages/stage_1/T", "val", "warm").text());
  EXPECT_EQ(1, run.result);
  EXPECT_NE("", run.text);
}

TEST(RunRecipeText, ARecipeThatTheModelRejects) {
  RecipeBuilder recipe;
  for (const char* constant : {"Kd_In", "Kd_Ga", "Kd_Al", "Kd_N2", "Kd_H2"}) {
    recipe.set(std::string("chemistry/") + constant, "A", "0");
  }
  const MemoryRun run = expect_the_same(recipe.text());
  EXPECT_EQ(1, run.result);
  EXPECT_EQ("Predexponents of all desorption constants are zeros or not specified", run.text);
  EXPECT_EQ("", run.rows);
}

// The rows up to the failure are written.
TEST(RunRecipeText, ARunThatFails) {
  const MemoryRun run =
      expect_the_same(breakdown_recipe(ALUMINIUM_FIRST).set("integration/scheme", "continuous").text());
  EXPECT_EQ(1, run.result);
  EXPECT_TRUE(run.text.starts_with("Step size has become too small")) << run.text;
  EXPECT_TRUE(run.rows.starts_with("\"VORLEN output file"));
}

// The size is looked at before the text is copied.
TEST(RunRecipeText, ATextOfMoreThan64MiBIsRejectedAsTheFileIs) {
  std::string recipe = "<process>";
  recipe.resize((std::size_t{64} << 20) + 1, ' ');
  const MemoryRun run = expect_the_same(recipe);
  EXPECT_EQ(1, run.result);
  EXPECT_NE(std::string::npos, run.text.find("larger than 64 MiB")) << run.text;
}

TEST(RunRecipeText, TheErrorBufferMayBeMissing) {
  std::string rows;
  EXPECT_EQ(1, vorlen::run_recipe_text({"r.xml", "<"}, rows, nullptr));
}

}  // namespace
}  // namespace vorlen_test
