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

bool has_no_stages(const ProcessRecipe& recipe) { return recipe.active_stages.empty(); }
bool has_no_start(const ProcessRecipe& recipe) { return !(recipe.t0 >= 0.0); }
bool has_no_transport_model(const ProcessRecipe& recipe) { return recipe.transport_model == NOT_SPECIFIED; }
bool has_no_reactor(const ProcessRecipe& recipe) { return recipe.reactor == NOT_SPECIFIED; }
bool has_no_GR_ref(const ProcessRecipe& recipe) { return recipe.GR_ref == 0.0; }
bool has_no_Q_ref(const ProcessRecipe& recipe) { return all_zero(recipe.Q_ref); }
bool has_no_desorption(const ProcessRecipe& recipe) { return all_zero(recipe.Kd_A); }
bool has_no_incorporation(const ProcessRecipe& recipe) { return all_zero(recipe.K_plus_A); }

constexpr const char* NO_REACTOR = "Reactor type is zero or not specified for transport model 'thick_GaN'";
constexpr const char* NO_GR_REF = "Reference growth rate is zero or not specified for transport model 'thick_GaN'";
constexpr const char* NO_Q_REF = "All reference flow rates are zero or not specified for transport model 'thick_GaN'";
constexpr const char* NO_DESORPTION = "Predexponents of all desorption constants are zeros or not specified";
constexpr const char* NO_INCORPORATION = "Predexponents of all incorporation constants are zeros or not specified";

using enum Section;
using enum Condition;

constexpr WholeCheck CHECKS[] = {
    {always, process_stages, {}, "Number of stages is zero", has_no_stages},
    {always, pre_stages, {"t0"}, "Begin time is not specified", has_no_start},
    {always, transport, {}, "Transport model is not specified", has_no_transport_model},
    {thick_GaN, parameters, {}, NO_REACTOR, has_no_reactor},
    {thick_GaN, parameters, {"GR_ref"}, NO_GR_REF, has_no_GR_ref},
    {thick_GaN, parameters, {"P_ref"}},
    {thick_GaN, parameters, {"T_ref"}},
    {thick_GaN_TDR, parameters, {"omega_TDR_ref"}},
    {thick_GaN, Q_ref, {"N2", "H2", "NH3", "TMGa"}, NO_Q_REF, has_no_Q_ref},
    {stress_on, stress, {"V_angle_05"}},
    {stress_on, stress, {"X_ref"}},
    {always, chemistry, {"Kd_In", "Kd_Ga", "Kd_Al", "Kd_N2", "Kd_H2"}, NO_DESORPTION, has_no_desorption},
    {always, chemistry, {"K_InN_plus", "K_GaN_plus", "K_AlN_plus"}, NO_INCORPORATION, has_no_incorporation},
};

}  // namespace

std::span<const WholeCheck> whole_checks() { return CHECKS; }

const char* fault_of(const WholeCheck& check, const ProcessRecipe& recipe, bool stress_known) {
  if (asked(check.condition, recipe, stress_known) != Asked::yes) return nullptr;
  if (check.fails != nullptr) return check.fails(recipe) ? check.fault : nullptr;
  const Row& row = *find_row(check.section, check.names[0]);
  return row.limits.allows(value_of(row, recipe)) ? nullptr : row.rejection;
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
