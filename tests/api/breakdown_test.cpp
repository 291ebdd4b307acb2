// Runs that break down: the first stage supplies only aluminium, or the surface is near the equilibrium of GaN, where
// its net rate changes sign. However they end, they respect the limits of every run: 1000000 steps, recorded points at
// least 1 ms apart, lines of 19 columns.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

#include "api/breakdown_recipes.h"
#include "api/run_simulation.h"
#include "recipe/read_recipe.h"

namespace vorlen_test {
namespace {

// 19 columns and a line feed. A column is a sign, a digit, a point, 16 digits, an e, a sign, three digits and a blank.
constexpr std::size_t LINE_MAX_BYTES = 19 * 25 + 1;
constexpr std::size_t HEADER_MAX_BYTES = 1000;

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

TEST_P(Breakdowns, EndWithinTheLimitsOfEveryRun) {
  const TempFolder folder;
  const std::string output = folder.path("out.txt");
  vorlen::ProcessRecipe recipe;
  std::string error;
  ASSERT_EQ(0,
            vorlen::read_recipe(breakdown_recipe(GetParam()).write(folder.path("recipe.xml")).c_str(), recipe, error))
      << error;
  vorlen::RunCounters counters;
  vorlen::run_simulation(recipe, output.c_str(), error, &counters);

  const std::set<std::string> texts = {"", "Maximum number of time steps reached", "Step size has become too small",
                                       "Matrix is repeatedly singular"};
  EXPECT_TRUE(texts.contains(error)) << error;
  EXPECT_LE(counters.step_count, 1000001);
  const std::string file = read_file(output);
  const auto lines = static_cast<double>(std::count(file.begin(), file.end(), '\n'));
  const double points = std::min(GetParam().tau / 0.001 + 2, 1000001.0);
  EXPECT_LE(lines, points + 20);
  EXPECT_LE(file.size(), static_cast<std::size_t>(points) * LINE_MAX_BYTES + HEADER_MAX_BYTES);
}

// Under the staged scheme a run that ends normally has finite rows, increasing times, and fractions from 0 to 1.
TEST_P(Breakdowns, EndUnderTheStagedSchemeWithATextOrAValidFilm) {
  const TempFolder folder;
  const std::string output = folder.path("out.txt");
  vorlen::ProcessRecipe recipe;
  std::string error;
  const RecipeBuilder builder = breakdown_recipe(GetParam()).set("integration/scheme", "staged");
  ASSERT_EQ(0, vorlen::read_recipe(builder.write(folder.path("recipe.xml")).c_str(), recipe, error)) << error;
  vorlen::RunCounters counters;
  const std::int32_t status = vorlen::run_simulation(recipe, output.c_str(), error, &counters);
  EXPECT_EQ(status == 0, error.empty());
  EXPECT_LE(counters.step_count, 20000) << error;
  RecordProperty("text", error);
  std::istringstream file(read_file(output));
  int rows = -1;  // including those of the pre-stage; -1 before the heading
  double t_before = 0.0;
  for (std::string line; std::getline(file, line);) {
    if (rows < 0) {
      if (line.rfind("#time", 0) == 0) rows = 0;
      continue;
    }
    if (++rows <= 2) continue;
    EXPECT_EQ(std::string::npos, line.find('n')) << line;
    std::istringstream words(line);
    double t = 0.0, z = 0.0, GR = 0.0, x[3] = {};
    words >> t >> z >> GR >> x[0] >> x[1] >> x[2];
    EXPECT_LT(t_before, t) << line;
    t_before = t;
    for (double fraction : x) EXPECT_TRUE(fraction >= -1e-6 && fraction <= 1.0 + 1e-6) << line;
  }
  EXPECT_LE(rows, 2004);
}

INSTANTIATE_TEST_SUITE_P(Recipe, Breakdowns, testing::ValuesIn(BREAKDOWNS),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace vorlen_test
