// Runs that break down: the first stage supplies only aluminium, or the surface is near the equilibrium of GaN, where
// its net rate changes sign. However they end, they respect the limits of every run: 1000000 steps, recorded points at
// least 1 ms apart, lines of 19 columns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "api/breakdown_recipes.h"
#include "api/run_simulation.h"
#include "recipe/read_recipe.h"

namespace vorlen_test {
namespace {

const Breakdown BREAKDOWNS[] = {
    ALUMINIUM_FIRST,
    {"AluminiumFirstWithRelaxation", "V_dislocation", 10, "1538.2193740100456", "1538.2193740100456",
     "1621.1965229548452", "0.00039678459417824823", "0", "0.012045634965585097", "282.20087175210784", "0", "0"},
    {"ATraceOfAluminiumFirst", "relax", 1000, "1072", "1072", "7836", "0.032", "0", "8.5e-5", "430", "8000", "8000"},
    {"AMomentOfAluminiumFirst", "relax", 0.001, "1237.1829329938907", "1237.1829329938907", "12280.986087590421",
     "0.0006232667352867798", "0", "6.931480017460971e-08", "4.393084376846095", "8000", "0"},
    {"AMomentOfAluminiumFirstWithRelaxation", "V_dislocation", 0.001, "1009.5968082295981", "1009.5968082295981",
     "1686.8582291535452", "0.00024542586581746253", "0", "3.288168245512476e-08", "2.3011878828082852", "8000",
     "8000"},
    {"NearTheEquilibriumOfGaN", "relax", 2, "1510.2581522263063", "1510.2581522263063", "5642.603916338079",
     "0.019675128425321726", "0.005876605151808819", "0", "29.90734850234825", "0", "8000"},
    {"NearTheEquilibriumOfGaNWithRelaxation", "V_dislocation", 2, "1574.2396009602353", "1574.2396009602353",
     "4874.3902100012865", "0.01787319211452203", "0.22721823323375565", "0", "18.378589666371383", "8000", "0"},
    {"ThroughTheEquilibriumOfGaN", "relax", 2, "1300", "1500", "12811", "0.061", "0.38", "0", "55", "8000", "8000"},
};

class Breakdowns : public testing::TestWithParam<Breakdown> {};

struct Outcome {
  std::int32_t status = 0;
  std::string error;
  vorlen::RunCounters counters;
  double t_begin = 0.0, t_end = 0.0;      // of the active stage, s
  double thickness = 0.0;                 // of the active stage, nm
  std::vector<std::vector<double>> rows;  // of the active stage
};

constexpr std::size_t N_PRE_ROWS = 2, N_COLUMNS = 19;

// Runs the recipe and reads its result file, in which every row has all its columns.
Outcome run_breakdown(const Breakdown& breakdown, const char* scheme, const vorlen::RunOptions& options = {}) {
  const TempFolder folder;
  const std::string output = folder.path("out.txt");
  const RecipeBuilder builder = breakdown_recipe(breakdown).set("integration/scheme", scheme);
  vorlen::ProcessRecipe recipe;
  Outcome outcome;
  EXPECT_EQ(0, vorlen::read_recipe(builder.write(folder.path("recipe.xml")).c_str(), recipe, outcome.error));
  outcome.status = vorlen::run_simulation(recipe, output.c_str(), outcome.error, &outcome.counters, options);
  std::istringstream lines(read_file(output));
  bool in_rows = false;
  std::size_t n_rows = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("\"layer\"", 0) == 0) outcome.thickness = std::strtod(line.c_str() + line.rfind(' '), nullptr);
    if (in_rows) {
      std::vector<double> row;
      std::istringstream words(line);
      for (std::string word; words >> word;) row.push_back(std::strtod(word.c_str(), nullptr));
      EXPECT_EQ(row.size(), N_COLUMNS) << line;
      if (n_rows == N_PRE_ROWS - 1) outcome.t_begin = row[0];
      if (++n_rows > N_PRE_ROWS) outcome.rows.push_back(row);
    }
    in_rows = in_rows || line.rfind("#time", 0) == 0;
  }
  outcome.t_end = outcome.t_begin + breakdown.tau;
  return outcome;
}

bool is_finite(const std::vector<double>& row) {
  return std::all_of(row.begin(), row.end(), [](double value) { return std::isfinite(value); });
}

// The fractions of a row add up to 1. If gallium is the only metal, on a template of GaN, there is nothing else.
void expect_composition(const std::vector<double>& row, const Breakdown& breakdown) {
  EXPECT_NEAR(row[3] + row[4] + row[5], 1.0, 1e-9) << "at " << row[0] << " s";
  if (std::string(breakdown.TMAl) == "0") {
    EXPECT_NEAR(row[4], 1.0, 1e-9) << "at " << row[0] << " s";
  }
}

// The status, the text and the rows say the same: a run that ends well has reached the end of the recipe, and a failed
// one has not and keeps the good rows. NaNs occur only under status 0; they stay to the end.
TEST_P(Breakdowns, EndWithinTheLimitsOfEveryRun) {
  const Outcome outcome = run_breakdown(GetParam(), "continuous");
  ASSERT_FALSE(outcome.rows.empty());
  const double t_last = outcome.rows.back()[0];
  switch (outcome.status) {
    case vorlen::RUN_OK:
      EXPECT_EQ(outcome.error, "");
      EXPECT_NEAR(t_last, outcome.t_end, 1e-9 * outcome.t_end);
      break;
    case vorlen::RUN_GAVE_UP_ON_STEPS:
      EXPECT_THAT(outcome.error,
                  testing::AnyOf("Maximum number of time steps reached", "Step size has become too small"));
      EXPECT_LT(t_last, outcome.t_end);
      break;
    case vorlen::RUN_SINGULAR:
      EXPECT_EQ(outcome.error, "Matrix is repeatedly singular");
      EXPECT_LT(t_last, outcome.t_end);
      break;
    default:
      FAIL() << "status " << outcome.status << ": " << outcome.error;
  }
  EXPECT_LE(outcome.counters.step_count, 1000001);
  bool was_finite = true;
  for (std::size_t i = 0; i < outcome.rows.size(); ++i) {
    const std::vector<double>& row = outcome.rows[i];
    // 1 ms between recorded points, up to rounding of the times; the last one is where the run ends.
    if (i > 0 && i + 1 < outcome.rows.size()) {
      EXPECT_GT(row[0] - outcome.rows[i - 1][0], 0.001 * (1.0 - 1e-6));
    }
    if (is_finite(row)) {
      EXPECT_TRUE(was_finite) << "finite after NaN at " << row[0] << " s";
      expect_composition(row, GetParam());
    }
    was_finite = is_finite(row);
  }
  EXPECT_TRUE(was_finite || outcome.status == vorlen::RUN_OK);
  EXPECT_EQ(std::isfinite(outcome.thickness), was_finite);
}

// Without gallium on the surface the net rate and the composition have no value, so no first step is small enough.
TEST(Breakdown, OfAluminiumAloneFailsBeforeAnythingGrows) {
  const Outcome outcome = run_breakdown(ALUMINIUM_FIRST, "continuous");
  EXPECT_EQ(outcome.status, vorlen::RUN_GAVE_UP_ON_STEPS);
  EXPECT_EQ(outcome.error, "Step size has become too small");
  EXPECT_EQ(outcome.thickness, 0.0);
  ASSERT_EQ(outcome.rows.size(), 1u);
  EXPECT_EQ(outcome.rows[0][0], outcome.t_begin);
}

// Near its equilibrium GaN needs thousands of steps per second.
TEST(Breakdown, NearTheEquilibriumOfGaNEndsAtTheMaximumNumberOfSteps) {
  EXPECT_EQ(vorlen::RunOptions{}.max_steps, 1000000);
  const auto near = std::find_if(std::begin(BREAKDOWNS), std::end(BREAKDOWNS), [](const Breakdown& breakdown) {
    return std::string(breakdown.name) == "NearTheEquilibriumOfGaN";
  });
  const Outcome outcome = run_breakdown(*near, "continuous", {.max_steps = 1000});
  EXPECT_EQ(outcome.status, vorlen::RUN_GAVE_UP_ON_STEPS);
  EXPECT_EQ(outcome.error, "Maximum number of time steps reached");
  EXPECT_EQ(outcome.counters.step_count, 1001);  // the one after the last allowed
  ASSERT_FALSE(outcome.rows.empty());
  EXPECT_LT(outcome.rows.back()[0], outcome.t_end);
}

// The staged scheme runs them all: finite rows, increasing times, fractions from 0 to 1, and what the layer block says
// is the change of the height.
TEST_P(Breakdowns, RunUnderTheStagedScheme) {
  const Outcome outcome = run_breakdown(GetParam(), "staged");
  ASSERT_EQ(outcome.status, vorlen::RUN_OK) << outcome.error;
  EXPECT_EQ(outcome.error, "");
  EXPECT_LE(outcome.counters.step_count, 20000);
  ASSERT_GE(outcome.rows.size(), 2u);
  EXPECT_LE(outcome.rows.size(), 2002u);
  EXPECT_EQ(outcome.rows.front()[0], outcome.t_begin);
  EXPECT_NEAR(outcome.rows.back()[0], outcome.t_end, 1e-9 * outcome.t_end);
  double t_before = -1.0;
  for (const std::vector<double>& row : outcome.rows) {
    EXPECT_TRUE(is_finite(row)) << "at " << row[0] << " s";
    EXPECT_LT(t_before, row[0]);
    t_before = row[0];
    expect_composition(row, GetParam());
    for (std::size_t k : {3u, 4u, 5u}) EXPECT_TRUE(row[k] >= -1e-6 && row[k] <= 1.0 + 1e-6) << row[0] << " s";
  }
  const double grown = outcome.rows.back()[1] - outcome.rows.front()[1];
  EXPECT_NEAR(outcome.thickness, grown, 1e-12 * outcome.rows.front()[1]);
}

// GaN alone under constant conditions: after the moment in which the surface fills, the height changes at one rate.
TEST(Breakdown, OfGaNEvaporatesAtAConstantRateUnderTheStagedScheme) {
  int n_runs = 0;
  for (const Breakdown& breakdown : BREAKDOWNS) {
    if (std::string(breakdown.name).rfind("NearTheEquilibrium", 0) != 0) continue;
    ++n_runs;
    const Outcome outcome = run_breakdown(breakdown, "staged");
    ASSERT_FALSE(outcome.rows.empty());
    EXPECT_LT(outcome.thickness, 0.0) << breakdown.name;
    EXPECT_NEAR(outcome.thickness / (outcome.rows.back()[2] * breakdown.tau), 1.0, 1e-3) << breakdown.name;
  }
  EXPECT_EQ(n_runs, 2);
}

INSTANTIATE_TEST_SUITE_P(Recipe, Breakdowns, testing::ValuesIn(BREAKDOWNS),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace vorlen_test
