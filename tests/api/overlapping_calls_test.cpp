// Simultaneous calls on several threads give the same results as serial calls.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "api/breakdown_recipes.h"
#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr int REPEATS = 200;  // of each thread

// With and without relaxation, with different transport and conditions, under both schemes, one whose integration fails
// and one with an error. Each thread alternates between them, so that thread-local records hold data of another recipe.
TEST(OverlappingCalls, GiveTheBytesOfSerialCalls) {
  constexpr std::size_t N_THREADS = 4;
  const TempFolder folder;
  const auto of_one_second = [](const RecipeOptions& options) {
    RecipeBuilder recipe(options);
    recipe.set("process_stages/stage_1/tau", "1");
    return recipe;
  };
  const std::vector<std::string> recipes = {
      of_one_second({.stress_model = "relax", .n_stages = 2}).write(folder.path("0.xml")),
      of_one_second({.stress_model = "relax", .transport_model = "thick_GaN", .reactor = "HFR"})
          .write(folder.path("1.xml")),
      of_one_second({.transport_model = "InGaN_GR_X"}).write(folder.path("2.xml")),
      breakdown_recipe(ALUMINIUM_FIRST).write(folder.path("3.xml")),
      of_one_second({.stress_model = "relax"}).remove("transport").write(folder.path("4.xml")),
      of_one_second({.stress_model = "relax", .n_stages = 2})
          .set("integration/scheme", "staged")
          .write(folder.path("5.xml")),
      of_one_second({.n_stages = 2}).set("integration/scheme", "staged").write(folder.path("6.xml")),
      RecipeBuilder({.n_stages = 2})
          .set("integration/scheme", "staged")
          .set("process_stages/stage_1/tau", "200")
          .write(folder.path("7.xml")),
  };
  std::vector<CallOutcome> serial;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < recipes.size(); ++i) {
    const std::string output = folder.path("serial" + std::to_string(i));
    serial.push_back(call_library(recipes[i], output));
    files.push_back(read_file(output));
  }
  EXPECT_EQ(0, serial[0].result) << serial[0].text;
  EXPECT_EQ(0, serial[1].result) << serial[1].text;
  EXPECT_EQ(0, serial[2].result) << serial[2].text;
  EXPECT_EQ("Step size has become too small", serial[3].text);
  EXPECT_EQ("Element NonstSurfChem:transport is not found", serial[4].text);
  for (std::size_t i : {5u, 6u, 7u}) EXPECT_EQ(0, serial[i].result) << serial[i].text;

  std::vector<int> differences(N_THREADS, 0);
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < N_THREADS; ++thread) {
    threads.emplace_back([&, thread] {
      const std::string output = folder.path("thread" + std::to_string(thread));
      for (std::size_t k = 0; k < REPEATS; ++k) {
        const std::size_t i = (thread + k) % recipes.size();
        write_file(output, "");
        const CallOutcome got = call_library(recipes[i], output);
        const bool same = got.result == serial[i].result && got.untouched == serial[i].untouched &&
                          got.text == serial[i].text && read_file(output) == files[i];
        if (!same) ++differences[thread];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::vector<int>(N_THREADS, 0), differences);
}

}  // namespace
}  // namespace vorlen_test
