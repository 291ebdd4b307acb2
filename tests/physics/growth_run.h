// Whole simulations of one constant stage, and the rows of a result file.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "support/recipe_builder.h"

namespace vorlen_test {

// Columns of the result file that the physical tests read, by index.
enum Column : std::size_t {
  TIME = 0,
  DEPTH = 1,  // nm
  RATE = 2,   // nm/s
  X_IN = 3,
  X_GA = 4,
  X_AL = 5,
  RHO_TD_T = 6,
  RHO_VD0_T = 7,
  A_EFF_T = 8,
  EPS_XX_T = 9,
  EPS_ZZ_T = 11,
  RHO_TD_Z = 13,
  A_EFF_Z = 14,
  EPS_XX_Z = 15,
  EPS_ZZ_Z = 17,
  N_COLUMNS = 19
};

using Row = std::array<double, N_COLUMNS>;

struct RunResult {
  std::vector<double> layer_nm;  // thicknesses of the layer block: pre-stages, active stages, post-stages
  std::vector<Row> rows;         // pre-stages (two rows each), active stages, post-stages
};

// Runs the recipe and reads its result file. The test fails, and the result is empty, when the run does not end well or
// a row does not have all its columns.
RunResult run_recipe(const RecipeBuilder& recipe);

// Conditions of one stage. T [K], P [Pa], delta [m], flows [sccm].
struct Conditions {
  double T = 1300.0, P = 20000.0, delta = 0.005;
  double TMIn = 0.0, TMGa = 0.0, TEGa = 0.0, TMAl = 0.0, N2 = 0.0, NH3 = 5000.0, H2 = 0.0;
};

// A recipe of one stage on unstrained GaN with constant conditions, stress off.
RecipeBuilder constant_stage(const Conditions& conditions);

// What grows in the steady state.
struct Layer {
  double rate = 0.0;  // nm/s
  double x_In = 0.0, x_Ga = 0.0, x_Al = 0.0;
};

// The last row of the run, after checking that rate and composition stand still within 1e-4 over its last fifth.
Layer steady_layer(const RecipeBuilder& recipe);
Layer grow(const Conditions& conditions);

// Series of conditions that the tests share: the base of each is the named layer at its usual conditions.
Conditions gan_in_hydrogen();    // 1300 K, 20 kPa, TMGa 1
Conditions ingan_in_nitrogen();  // 1030 K, 40 kPa, TMIn 0.2, TEGa 0.5
Conditions algan_in_hydrogen();  // 1300 K, 10 kPa, TMGa 1, TMAl 0.3
Conditions alinn_in_nitrogen();  // 1070 K, 10 kPa, TMIn 0.5, TMAl 0.5

}  // namespace vorlen_test
