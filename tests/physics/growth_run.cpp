// Whole simulations of one constant stage, and the rows of a result file.
#include "physics/growth_run.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "api/run_simulation.h"
#include "recipe/read_recipe.h"

namespace vorlen_test {

namespace {

std::string number(double value) {
  std::ostringstream text;
  text.precision(17);
  text << value;
  return text.str();
}

// The numbers of a line, by strtod, which also reads nan and inf.
std::vector<double> numbers_of(const std::string& line) {
  std::vector<double> values;
  const char* at = line.c_str();
  for (char* end = nullptr;; at = end) {
    const double value = std::strtod(at, &end);
    if (end == at) return values;
    values.push_back(value);
  }
}

RunResult parse(const std::string& text) {
  RunResult result;
  std::istringstream lines(text);
  bool layers = false;
  bool table = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "<LAYERS>") {
      layers = true;
    } else if (line == "</LAYERS>") {
      layers = false;
    } else if (layers) {
      result.layer_nm.push_back(numbers_of(line.substr(line.rfind('"') + 1)).at(1));
    } else if (line.rfind("#time", 0) == 0) {
      table = true;
    } else if (table) {
      const std::vector<double> values = numbers_of(line);
      if (values.size() != N_COLUMNS) {
        ADD_FAILURE() << "a row with " << values.size() << " columns: " << line;
        return {};
      }
      Row row;
      std::copy(values.begin(), values.end(), row.begin());
      result.rows.push_back(row);
    }
  }
  return result;
}

}  // namespace

RunResult run_recipe(const RecipeBuilder& recipe) {
  const TempFolder folder;
  vorlen::ProcessRecipe process;
  std::string error;
  if (vorlen::read_recipe(recipe.write(folder.path("recipe.xml")).c_str(), process, error) != 0) {
    ADD_FAILURE() << error;
    return {};
  }
  const std::string output = folder.path("result.txt");
  const std::int32_t status = vorlen::run_simulation(process, output.c_str(), error);
  if (status != vorlen::RUN_OK) {
    ADD_FAILURE() << "status " << status << ": " << error;
    return {};
  }
  return parse(read_file(output));
}

RecipeBuilder constant_stage(const Conditions& c) {
  RecipeBuilder recipe({.stress_model = "off", .n_pre_stages = 0});
  const std::string stage = "process_stages/stage_1";
  recipe.set(stage + "/tau", "100").set(stage + "/delta", number(c.delta));
  recipe.set_range(stage + "/T", number(c.T), number(c.T)).set_range(stage + "/P", number(c.P), number(c.P));
  const auto flow = [&](const char* species, double value) {
    recipe.set_range(stage + "/gas_species/Q/" + species, number(value), number(value));
  };
  flow("TMIn", c.TMIn);
  flow("TMGa", c.TMGa);
  flow("TEGa", c.TEGa);
  flow("TMAl", c.TMAl);
  flow("N2", c.N2);
  flow("NH3", c.NH3);
  flow("H2", c.H2);
  return recipe;
}

Layer steady_layer(const RecipeBuilder& recipe) {
  const RunResult run = run_recipe(recipe);
  if (run.rows.size() < 2) {
    ADD_FAILURE() << "no rows";
    return {};
  }
  const Row& last = run.rows.back();
  const double settled = run.rows.front()[TIME] + 0.8 * (last[TIME] - run.rows.front()[TIME]);
  int compared = 0;
  for (const Row& row : run.rows) {
    if (row[TIME] < settled) continue;
    ++compared;
    EXPECT_NEAR(row[RATE] / last[RATE], 1.0, 1e-4) << "at " << row[TIME] << " s";
    EXPECT_NEAR(row[X_IN], last[X_IN], 1e-4) << "at " << row[TIME] << " s";
    EXPECT_NEAR(row[X_AL], last[X_AL], 1e-4) << "at " << row[TIME] << " s";
  }
  EXPECT_GE(compared, 2);
  return {last[RATE], last[X_IN], last[X_GA], last[X_AL]};
}

Layer grow(const Conditions& conditions) { return steady_layer(constant_stage(conditions)); }

Conditions gan_in_hydrogen() { return {.TMGa = 1.0, .N2 = 1000.0, .H2 = 8000.0}; }

Conditions ingan_in_nitrogen() {
  return {.T = 1030.0, .P = 40000.0, .delta = 0.008, .TMIn = 0.2, .TEGa = 0.5, .N2 = 8000.0, .NH3 = 8000.0};
}

Conditions algan_in_hydrogen() {
  return {.P = 10000.0, .delta = 0.006, .TMGa = 1.0, .TMAl = 0.3, .NH3 = 4000.0, .H2 = 10000.0};
}

Conditions alinn_in_nitrogen() {
  return {.T = 1070.0, .P = 10000.0, .delta = 0.006, .TMIn = 0.5, .TMAl = 0.5, .N2 = 8000.0, .NH3 = 6000.0};
}

}  // namespace vorlen_test
