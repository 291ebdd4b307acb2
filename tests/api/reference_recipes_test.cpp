// Complete runs of realistic recipes, compared with result files and counters computed independently of this code
// (tests/data/recipes, tests/data/results, tests/data/summary.json).
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "api/run_simulation.h"
#include "api/run_support.h"
#include "recipe/read_recipe.h"
#include "support/libm_probe.h"
#include "support/recipe_builder.h"
#include "support/result_compare.h"

namespace vorlen_test {
namespace {

using nlohmann::json;

const std::string FOLDER = std::string(VORLEN_TEST_DATA) + "/";

json record_of(const std::string& name) {
  std::ifstream file(FOLDER + "summary.json");
  return json::parse(file).at(name);
}

class ReferenceRecipe : public testing::TestWithParam<const char*> {};

TEST_P(ReferenceRecipe, GivesItsResultFile) {
  const json record = record_of(GetParam());
  const TempFolder folder;
  const CallOutcome got = call_library(FOLDER + record.at("recipe").get<std::string>(), folder.path("result.txt"));
  EXPECT_EQ(record.at("return_code").get<int>(), got.result);
  EXPECT_TRUE(got.untouched) << got.text;
  // With another C library a run differs as if the last bit of a constant were changed. The factor is a margin.
  const double spread = record.at("spread").at("by_time_bracketed");
  EXPECT_TRUE(same_result(read_file(FOLDER + record.at("result").get<std::string>()),
                          read_file(folder.path("result.txt")), std::max(1e-6, 10.0 * spread)));
}

TEST_P(ReferenceRecipe, TakesItsStepsAndEvaluations) {
  if (!announced_libm_matches_reference()) GTEST_SKIP() << "counters follow the last bits of the C library";
  const json record = record_of(GetParam());
  vorlen::ProcessRecipe recipe;
  std::string error;
  ASSERT_EQ(0, vorlen::read_recipe((FOLDER + record.at("recipe").get<std::string>()).c_str(), recipe, error)) << error;
  vorlen::RunCounters got;
  EXPECT_EQ(0, vorlen::run_simulation(recipe, "", error, &got)) << error;
  const json& want = record.at("counters");
  EXPECT_EQ(record.at("idid").get<int>(), got.idid);
  EXPECT_EQ(want.at("rhs_calls").get<int>(), got.rhs_calls);
  EXPECT_EQ(want.at("jacobian_count").get<int>(), got.jacobian_count);
  EXPECT_EQ(want.at("step_count").get<int>(), got.step_count);
  EXPECT_EQ(want.at("accepted_count").get<int>(), got.accepted_count);
  EXPECT_EQ(want.at("rejected_count").get<int>(), got.rejected_count);
  EXPECT_EQ(want.at("factorisation_count").get<int>(), got.factorisation_count);
  EXPECT_EQ(want.at("solve_count").get<int>(), got.solve_count);
  EXPECT_EQ(record.at("eval_rhs_calls").get<std::int64_t>(), got.eval_rhs_calls);
}

// Reusing terms of the residual from one evaluation to the next saves work and changes no bit.
TEST_P(ReferenceRecipe, IsTheSameWithoutReusedTerms) {
  vorlen::ProcessRecipe recipe;
  std::string error;
  const std::string path = FOLDER + record_of(GetParam()).at("recipe").get<std::string>();
  ASSERT_EQ(0, vorlen::read_recipe(path.c_str(), recipe, error)) << error;
  const TempFolder folder;
  vorlen::RunCounters reused, computed;
  EXPECT_EQ(0, vorlen::run_simulation(recipe, folder.path("reused.txt").c_str(), error, &reused));
  EXPECT_EQ(
      0, vorlen::run_simulation(recipe, folder.path("computed.txt").c_str(), error, &computed, {.reuse_terms = false}));
  EXPECT_EQ(computed.eval_rhs_calls, reused.eval_rhs_calls);
  const std::string text = read_file(folder.path("reused.txt"));
  EXPECT_FALSE(text.empty());
  EXPECT_TRUE(text == read_file(folder.path("computed.txt")));
}

INSTANTIATE_TEST_SUITE_P(All, ReferenceRecipe,
                         testing::Values("algan_gan_hemt", "algan_gan_mirror_tdr", "alinn_gan_hemt", "gan_template_ccs",
                                         "ingan_gan_mqw_periodic", "ingan_led_hfr", "ingan_v_defects",
                                         "ingan_wells_gr_x"),
                         [](const testing::TestParamInfo<const char*>& param) { return std::string(param.param); });

}  // namespace
}  // namespace vorlen_test
