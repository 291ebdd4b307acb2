// The whole-recipe checks: what neither a single value nor a single stage can show.
//
// A value is tested for its good range, so a not-a-number is refused where a range is asked for.
#include <algorithm>

#include "recipe/process_recipe.h"

namespace vorlen {

namespace {

// The inclination angle lies strictly between 0 and this, degrees: at 90 its cosine vanishes.
constexpr double V_ANGLE_LIMIT = 89.99;

template <typename Array>
bool all_zero(const Array& values) {
  return std::all_of(values.begin(), values.end(), [](double value) { return value == 0.0; });
}

// The reference conditions of the transport model thick_GaN. Null when they are complete, otherwise the fault.
const char* thick_GaN_fault(const ProcessRecipe& recipe) {
  if (recipe.reactor == NOT_SPECIFIED) {
    return "Reactor type is zero or not specified for transport model 'thick_GaN'";
  }
  if (recipe.GR_ref == 0.0) {
    return "Reference growth rate is zero or not specified for transport model 'thick_GaN'";
  }
  if (recipe.P_ref == 0.0) {
    return "Reference pressure is zero or not specified for transport model 'thick_GaN'";
  }
  if (recipe.T_ref == 0.0) {
    return "Reference temperature is zero or not specified for transport model 'thick_GaN'";
  }
  if (recipe.reactor == REACTOR_TDR && recipe.omega_TDR_ref == 0.0) {
    return "Reference rotation rate is zero or not specified for transport model 'thick_GaN' and reactor 'TDR'";
  }
  if (all_zero(recipe.Q_ref)) {
    return "All reference flow rates are zero or not specified for transport model 'thick_GaN'";
  }
  return nullptr;
}

// Null for a recipe without fault, otherwise the first fault.
const char* recipe_fault(const ProcessRecipe& recipe) {
  if (recipe.active_stages.empty()) return "Number of stages is zero";
  if (!(recipe.t0 >= 0.0)) return "Begin time is not specified";
  if (recipe.transport_model == NOT_SPECIFIED) return "Transport model is not specified";
  if (recipe.transport_model == TRANSPORT_thick_GaN) {
    const char* fault = thick_GaN_fault(recipe);
    if (fault != nullptr) return fault;
  }
  if (recipe.stress_model == STRESS_V_dislocation) {
    if (!(recipe.V_angle_05 > 0.0 && recipe.V_angle_05 < V_ANGLE_LIMIT)) {
      return "Dislocation angle is beyond [0;90] degrees or not specified";
    }
    if (!(recipe.X_ref >= 0.0 && recipe.X_ref <= 1.0)) {
      return "Reference solid composition for relaxation model is beyond [0;1] or not specified";
    }
  }
  if (all_zero(recipe.Kd_A)) return "Predexponents of all desorption constants are zeros or not specified";
  if (all_zero(recipe.K_plus_A)) return "Predexponents of all incorporation constants are zeros or not specified";
  return nullptr;
}

}  // namespace

bool ProcessRecipe::validate_recipe(std::string& error) const {
  error.clear();
  const char* fault = recipe_fault(*this);
  if (fault == nullptr) return true;
  error = fault;
  return false;
}

}  // namespace vorlen
