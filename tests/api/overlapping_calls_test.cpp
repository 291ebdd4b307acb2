// Calls on several threads at the same time give what they give one after the other.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

TEST(OverlappingCalls, GiveTheBytesOfSerialCalls) {
  const TempFolder folder;
  const std::vector<std::string> recipes = {
      RecipeBuilder({.stress_model = "relax", .n_stages = 2}).write(folder.path("0.xml")),
      RecipeBuilder({.stress_model = "relax", .transport_model = "thick_GaN", .reactor = "HFR"})
          .write(folder.path("1.xml")),
      RecipeBuilder({.transport_model = "InGaN_GR_X"}).write(folder.path("2.xml")),
      RecipeBuilder({.stress_model = "relax"}).remove("transport").write(folder.path("3.xml")),
  };
  std::vector<CallOutcome> serial;
  for (std::size_t i = 0; i < recipes.size(); ++i) {
    serial.push_back(call_library(recipes[i], folder.path("serial" + std::to_string(i))));
  }
  EXPECT_EQ(0, serial[0].result) << serial[0].text;
  EXPECT_EQ(1, serial[3].result);

  constexpr int REPEATS = 5;
  std::vector<CallOutcome> overlapping(recipes.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < recipes.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int k = 0; k < REPEATS; ++k) {
        overlapping[i] = call_library(recipes[i], folder.path("thread" + std::to_string(i)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < recipes.size(); ++i) {
    EXPECT_EQ(serial[i].result, overlapping[i].result);
    EXPECT_EQ(serial[i].text, overlapping[i].text);
    EXPECT_EQ(read_file(folder.path("serial" + std::to_string(i))),
              read_file(folder.path("thread" + std::to_string(i))));
  }
}

}  // namespace
}  // namespace vorlen_test
