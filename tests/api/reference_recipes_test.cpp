// Complete runs of realistic recipes, compared with result files and counters computed independently of this code
// (tests/data/recipes, tests/data/results, tests/data/summary.json).
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
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

// With another C library a run differs as if the last bit of a constant were changed: by the spread of such runs, and
// the factor is a margin. At a change of stage the rows have other times, and a fraction may be off by a point there;
// what is grown agrees to five digits.
ResultTolerance tolerance_of(const json& record) {
  const json& spread = record.at("spread");
  const double column = std::max(1e-6, 10.0 * spread.at("by_time_bracketed").get<double>());
  return {.thickness = std::max(1e-6, 10.0 * spread.at("layer_thickness").get<double>()),
          .column = column,
          .fraction = std::min(column, 0.01),
          .mean_fraction = 1e-5};
}

// Moves change from the gallium fraction to the indium fraction in the rows from first_row on.
std::string with_fraction_moved(const std::string& text, std::size_t first_row, double change) {
  std::istringstream lines(text.substr(first_row));
  std::ostringstream changed;
  changed.precision(17);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    double value = 0.0;
    for (int column = 0; words >> value; ++column) {
      changed << value + (column == 3 ? change : column == 4 ? -change : 0.0) << ' ';
    }
    changed << '\n';
  }
  return text.substr(0, first_row) + changed.str();
}

// The thickness of the first layer, multiplied by factor.
std::string with_first_thickness(const std::string& text, double factor) {
  const std::size_t line_end = text.find('\n', text.find("<LAYERS>") + 9);
  const std::size_t at = text.rfind(' ', line_end) + 1;
  std::string changed = text;
  return changed.replace(at, line_end - at, std::to_string(factor * std::stod(text.substr(at))));
}

class ReferenceRecipe : public testing::TestWithParam<const char*> {};

TEST_P(ReferenceRecipe, GivesItsResultFile) {
  const json record = record_of(GetParam());
  const TempFolder folder;
  const CallOutcome got = call_library(FOLDER + record.at("recipe").get<std::string>(), folder.path("result.txt"));
  EXPECT_EQ(record.at("return_code").get<int>(), got.result);
  EXPECT_TRUE(got.untouched) << got.text;
  EXPECT_TRUE(same_result(read_file(FOLDER + record.at("result").get<std::string>()),
                          read_file(folder.path("result.txt")), tolerance_of(record)));
}

// What the tolerances of another C library still notice, on every machine: the stored files, changed.
TEST_P(ReferenceRecipe, IsDistinguishedFromAWrongResultByTolerance) {
  const json record = record_of(GetParam());
  const std::string text = read_file(FOLDER + record.at("result").get<std::string>());
  const auto same = [&](const std::string& changed) {
    return static_cast<bool>(same_layers_and_columns(text, changed, tolerance_of(record)));
  };
  ASSERT_TRUE(same(text));
  const std::size_t first_row = text.find('\n', text.find("#time")) + 1;
  const std::size_t middle = text.find('\n', (first_row + text.size()) / 2) + 1;
  std::string changed = text;
  changed.replace(middle, 23, "nan                    ");  // a time that is not a number
  EXPECT_FALSE(same(changed));
  for (std::size_t column = 1; column < 19; ++column) {
    changed = text;
    std::size_t at = middle;
    for (std::size_t k = 0; k < column; ++k) at = text.find(' ', at) + 1;
    changed.replace(at, text.find_first_of(" \n", at) - at, "nan");
    EXPECT_FALSE(same(changed)) << "a NaN in column " << column + 1;
  }
  EXPECT_FALSE(same(text.substr(0, text.rfind('\n', text.size() - 2) + 1))) << "without the last row";
  EXPECT_FALSE(same(text.substr(0, middle))) << "half the rows";
  EXPECT_FALSE(same(with_fraction_moved(text, first_row, 2e-4))) << "indium changed by 0.02 points";
  EXPECT_FALSE(same(with_first_thickness(text, 1.001))) << "a layer thicker by a thousandth";
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
