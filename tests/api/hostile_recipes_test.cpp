// Recipes with meaningless numbers and recipes of the largest size: every run ends, with or without a text. A limit of
// steps replaces the patience of a host.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "api/run_simulation.h"
#include "api/run_support.h"
#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr std::int32_t STEPS = 5;

const std::vector<const char*> ODD_NUMBERS = {"nan", "inf",      "-inf",      "1e308",     "-1e308",
                                              "-0",  "4.9e-324", "-4.9e-324", "2147483647"};

struct Place {
  std::size_t begin;
  std::size_t length;
};

// The numeric attribute values of the recipe.
std::vector<Place> numbers_of(const std::string& text) {
  std::vector<Place> places;
  for (std::size_t quote = text.find('"', text.find("<NonstSurfChem")); quote != std::string::npos;) {
    const std::size_t end = text.find('"', quote + 1);
    if (text.find_first_not_of("-+.e0123456789", quote + 1) == end) places.push_back({quote + 1, end - quote - 1});
    quote = text.find('"', end + 1);
  }
  return places;
}

// Steps that a run may take. The staged scheme allows 200 more per stage.
std::int32_t step_limit(const vorlen::ProcessRecipe& recipe) {
  const auto stages = static_cast<std::int32_t>(recipe.active_stages.size());
  return STEPS + (recipe.scheme == vorlen::SCHEME_staged ? 200 * stages : 0);
}

// The first row of the active stages whose time, height, rate or fractions are not finite; empty if there is none. Rows
// of the layers below and above repeat values of the recipe.
std::string odd_row(const std::string& result, const RecipeOptions& options) {
  std::istringstream file(result.substr(result.find("#time")));
  std::vector<std::string> rows;
  for (std::string line; std::getline(file, line);) rows.push_back(line);
  const auto first = 1 + 2 * static_cast<std::size_t>(options.n_pre_stages);
  const auto end = rows.size() - 2 * static_cast<std::size_t>(options.n_post_stages);
  for (std::size_t i = first; i < end; ++i) {
    std::istringstream words(rows[i]);
    std::string word;
    for (int k = 0; k < 6 && words >> word; ++k) {
      if (word.find('n') != std::string::npos) return rows[i];
    }
  }
  return "";
}

class OddNumbers : public testing::TestWithParam<std::tuple<RecipeOptions, const char*>> {};

TEST_P(OddNumbers, InEveryPlaceGiveATextOrAResult) {
  const TempFolder folder;
  RecipeBuilder builder(std::get<0>(GetParam()));
  builder.make_periodic(2, 2, 1).set("integration/scheme", std::get<1>(GetParam()));
  const std::string good = builder.text();
  const std::vector<Place> places = numbers_of(good);
  ASSERT_LT(70u, places.size());
  int rejected = 0;
  int ran = 0;
  for (const Place& place : places) {
    for (const char* number : ODD_NUMBERS) {
      const std::string text = std::string(good).replace(place.begin, place.length, number);
      SCOPED_TRACE(std::string(number) + " for " + good.substr(place.begin - 30, 30 + place.length));
      vorlen::ProcessRecipe recipe;
      std::string error;
      const std::string path = write_file(folder.path("recipe.xml"), text);
      if (vorlen::read_recipe(path.c_str(), recipe, error) != 0) {
        EXPECT_NE("", error);
        ++rejected;
        continue;
      }
      vorlen::RunCounters counters;
      const std::int32_t status =
          vorlen::run_simulation(recipe, folder.path("out.txt").c_str(), error, &counters, {.max_steps = STEPS});
      EXPECT_EQ(status == 0, error.empty());
      EXPECT_GE(step_limit(recipe) + 1, counters.step_count);
      if (status == 0 && recipe.scheme == vorlen::SCHEME_staged) {
        EXPECT_EQ("", odd_row(read_file(folder.path("out.txt")), std::get<0>(GetParam())));
      }
      ++ran;
    }
  }
  // At least every "-inf" is rejected where there is a limit. Some values run in any case, such as 0 as a flow.
  EXPECT_LT(100, rejected);
  EXPECT_LT(100, ran);
}

INSTANTIATE_TEST_SUITE_P(
    Recipes, OddNumbers,
    testing::Combine(
        testing::Values(RecipeOptions{.n_pre_stages = 2, .n_stages = 2, .n_post_stages = 1},
                        RecipeOptions{.stress_model = "relax",
                                      .transport_model = "thick_GaN",
                                      .reactor = "TDR",
                                      .n_pre_stages = 2,
                                      .n_stages = 2,
                                      .n_post_stages = 1},
                        RecipeOptions{
                            .transport_model = "InGaN_GR_X", .n_pre_stages = 2, .n_stages = 2, .n_post_stages = 1}),
        testing::Values("continuous", "staged")),
    [](const auto& instance) {
      return std::get<0>(instance.param).transport_model + "_" + std::get<1>(instance.param);
    });

// The exported function, without a limit of steps, with numbers that are rejected before the first step.
TEST(HostileRecipes, RejectedNumbersGiveATerminatedText) {
  const TempFolder folder;
  for (const char* number : {"-inf", "-1e308", "", "abc", "1e-320"}) {
    const std::string path = RecipeBuilder().set("process_stages/stage_1/tau", number).write(folder.path("recipe.xml"));
    const CallOutcome got = call_library(path, folder.path("out.txt"));
    EXPECT_EQ(1, got.result) << number;
    EXPECT_TRUE(got.terminated && got.guarded) << number;
    EXPECT_NE("", got.text) << number;
  }
}

TEST(HostileRecipes, TwoBillionPeriodsAreRejectedAtOnce) {
  const TempFolder folder;
  const std::string path = RecipeBuilder().make_periodic(1, 2147483647, 1).write(folder.path("recipe.xml"));
  const CallOutcome got = call_library(path, folder.path("out.txt"));
  EXPECT_EQ(1, got.result);
  EXPECT_EQ("Number of active stages is greater than 1000000", got.text);
}

struct StackCall {
  std::string recipe, output;
  CallOutcome outcome;
};

TEST(HostileRecipes, ARunFitsOnAThreadWithAStackOf256KiB) {
  const TempFolder folder;
  StackCall call{RecipeBuilder({.n_pre_stages = 2, .n_stages = 2, .n_post_stages = 1}).write(folder.path("recipe.xml")),
                 folder.path("out.txt"),
                 {}};
  const auto run = [](void* argument) -> void* {
    StackCall& one = *static_cast<StackCall*>(argument);
    one.outcome = call_library(one.recipe, one.output);
    return nullptr;
  };
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &call));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(0, call.outcome.result) << call.outcome.text;
  EXPECT_TRUE(std::filesystem::exists(call.output));
}

// Child elements name_1 to name_count, each with the content of name_1 in the recipe.
std::string list_of(const std::string& recipe, const std::string& name, int count) {
  const std::string begin = "<" + name + "1>";
  const std::string end = "</" + name + "1>";
  const std::size_t first = recipe.find(begin) + begin.size();
  const std::string content = recipe.substr(first, recipe.find(end) - first);
  std::string list;
  for (int i = 1; i <= count; ++i) {
    const std::string number = std::to_string(i);
    list.append("<").append(name).append(number).append(">").append(content);
    list.append("</").append(name).append(number).append(">\n");
  }
  return list;
}

TEST(HostileRecipes, ListsOf9999StagesEachAreReadAndRun) {
  const std::string builder =
      RecipeBuilder({.stress_model = "relax", .n_pre_stages = 1, .n_stages = 1, .n_post_stages = 1}).text();
  std::string text = builder;
  for (const std::string name : {"pre_stage_", "stage_", "post_stage_"}) {
    const std::string list = list_of(builder, name, 9999);
    const std::string end = "</" + name + "1>";
    const std::size_t first = text.find("<" + name + "1>");
    text.replace(first, text.find(end) + end.size() - first, list);
    const std::string count = "<n_" + name.substr(0, name.size() - 1) + "s val=\"";
    text.replace(text.find(count) + count.size(), 1, "9999");
  }
  const TempFolder folder;
  vorlen::ProcessRecipe recipe;
  std::string error;
  const std::string path = write_file(folder.path("recipe.xml"), text);
  ASSERT_EQ(0, vorlen::read_recipe(path.c_str(), recipe, error)) << error;
  EXPECT_EQ(9999u, recipe.pre_stages.size());
  EXPECT_EQ(9999u, recipe.active_stages.size());
  EXPECT_EQ(9999u, recipe.post_stages.size());
  // Consecutive stages of 10 s.
  EXPECT_EQ(99990.0, recipe.active_stages.front().begin_time());
  EXPECT_EQ(299970.0, recipe.post_stages.back().end_time());
  EXPECT_EQ(vorlen::RUN_GAVE_UP_ON_STEPS,
            vorlen::run_simulation(recipe, folder.path("out.txt").c_str(), error, nullptr, {.max_steps = STEPS}));
  const std::string result = read_file(folder.path("out.txt"));
  EXPECT_LT(3u * 9999u, static_cast<std::size_t>(std::count(result.begin(), result.end(), '\n')));
}

}  // namespace
}  // namespace vorlen_test
