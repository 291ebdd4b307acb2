// The checks of the whole recipe: what neither a single value nor a single stage can show.
//
// A value is tested for its allowed range, so NaN is rejected wherever a range is required.
#include <algorithm>

#include "recipe/process_recipe.h"
#include "recipe/recipe_table.h"

namespace vorlen {

namespace recipe {

namespace {

template <typename Array>
bool all_zero(const Array& values) {
  return std::all_of(values.begin(), values.end(), [](double value) { return value == 0.0; });
}

using enum Section;
using enum Condition;

constexpr WholeCheck CHECKS[] = {
    {always,
     process_stages,
     {},
     "Number of stages is zero",
     [](const ProcessRecipe& recipe) { return recipe.active_stages.empty(); }},
    {always,
     pre_stages,
     {"t0"},
     "Begin time is not specified",
     [](const ProcessRecipe& recipe) { return !(recipe.t0 >= 0.0); }},
    {always,
     transport,
     {},
     "Transport model is not specified",
     [](const ProcessRecipe& recipe) { return recipe.transport_model == NOT_SPECIFIED; }},
    {thick_GaN,
     parameters,
     {},
     "Reactor type is zero or not specified for transport model 'thick_GaN'",
     [](const ProcessRecipe& recipe) { return recipe.reactor == NOT_SPECIFIED; }},
    {thick_GaN,
     parameters,
     {"GR_ref"},
     "Reference growth rate is zero or not specified for transport model 'thick_GaN'",
     [](const ProcessRecipe& recipe) { return recipe.GR_ref == 0.0; }},
    {thick_GaN, parameters, {"P_ref"}},
    {thick_GaN, parameters, {"T_ref"}},
    {thick_GaN_TDR, parameters, {"omega_TDR_ref"}},
    {thick_GaN,
     Q_ref,
     {"N2", "H2", "NH3", "TMGa"},
     "All reference flow rates are zero or not specified for transport model 'thick_GaN'",
     [](const ProcessRecipe& recipe) { return all_zero(recipe.Q_ref); }},
    {stress_on, stress, {"V_angle_05"}},
    {stress_on, stress, {"X_ref"}},
    {always,
     chemistry,
     {"Kd_In", "Kd_Ga", "Kd_Al", "Kd_N2", "Kd_H2"},
     "Predexponents of all desorption constants are zeros or not specified",
     [](const ProcessRecipe& recipe) { return all_zero(recipe.Kd_A); }},
    {always,
     chemistry,
     {"K_InN_plus", "K_GaN_plus", "K_AlN_plus"},
     "Predexponents of all incorporation constants are zeros or not specified",
     [](const ProcessRecipe& recipe) { return all_zero(recipe.K_plus_A); }},
};

}  // namespace

std::span<const WholeCheck> whole_checks() { return CHECKS; }

const char* fault_of(const WholeCheck& check, const ProcessRecipe& recipe, bool stress_known) {
  if (asked(check.condition, recipe, stress_known) != Asked::yes) return nullptr;
  if (check.fails != nullptr) return check.fails(recipe) ? check.fault : nullptr;
  const Row& row = *find_row(check.section, check.names[0]);
  return row.limits.allows(value_of(row, recipe)) ? nullptr : row.refusal;
}

}  // namespace recipe

bool ProcessRecipe::validate_recipe(std::string& error) const {
  error.clear();
  for (const recipe::WholeCheck& check : recipe::whole_checks()) {
    const char* fault = recipe::fault_of(check, *this);
    if (fault == nullptr) continue;
    error = fault;
    return false;
  }
  return true;
}

}  // namespace vorlen
