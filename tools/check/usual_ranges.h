// Usual ranges of the values of a recipe, and the units in which they are given by mistake. They are wide: what is
// outside of them is nearly always a slip, but it is only a warning. docs/checking-a-recipe.md shows the table.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen::recipe {

// Another unit: a value in it, times factor plus offset, is in the unit of the recipe. Or a conversion that was made
// twice, and that leads back to the value: then unit is that conversion, such as " times 100".
struct OtherUnit {
  const char* unit;
  double factor = 1.0;
  double offset = 0.0;
  bool twice = false;
};

enum class Quantity {
  T_indium,
  T_AlGaN,
  T_thick,
  T_gallium,
  T_other,
  T_ref,
  P,
  delta,
  omega,
  tau,
  GR_ref,
  GR_prescribed,
  TMIn,
  TMGa,
  TEGa,
  TMAl,
  gas_flow,
  total_flow,
  V_III_indium,
  V_III_gallium,
  V_III_AlN,
  rate_indium,
  rate,
  thickness_indium,
  thickness,
  layers_below,
  rho_D,
  lattice,
  V_angle
};

// One row of the table.
struct UsualRange {
  Quantity quantity;
  const char* name;  // in words
  double low = 0.0;
  double high = 0.0;
  const char* unit;
  std::span<const OtherUnit> others;  // units taken for this one
  const char* reason;                 // source, or reasoning
};

// All rows, in the order of Quantity.
std::span<const UsualRange> usual_ranges();
const UsualRange& usual_range(Quantity quantity);

// -1 below the range, 1 above it, 0 in it and for NaN.
int side_of(const UsualRange& range, double value);

// What value would be if it had been given in one of the other units, as far as that is in the range: "400 mbar is
// 40000 Pa, 400 Torr is 53328.8 Pa". Empty if none is.
std::string other_reading(const UsualRange& range, double value);

// A number of at most that many digits; whole ones have up to seven.
std::string value_words(double value, int digits = 6);

// The table of docs/checking-a-recipe.md, lines of Markdown.
std::string usual_ranges_table();

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
