// The readers of the single stages of a recipe, and the expansion of periodic stages.
//
// Each check stands right behind the reading of its value, so the first fault in the order of reading is reported. The
// tests are written as "below the limit is a fault": a not-a-number passes them.
#include "recipe/read_stages.h"

#include <cstddef>
#include <vector>

#include "recipe/keywords.h"
#include "recipe/species_data.h"
#include "recipe/xml_lookup.h"

namespace vorlen {

namespace {

constexpr double TAU_MIN = 1e-4;            // s
constexpr double THICKNESS_MIN = 1e-4;      // nm
constexpr double COMPOSITION_MIN = 0.9999;  // sum of the three fractions of a layer
constexpr double COMPOSITION_MAX = 1.0001;
constexpr double RHO_D_MIN = 1000.0;    // cm^-2
constexpr double T_MIN = 1e-4;          // K
constexpr double P_MIN = 1.0;           // Pa
constexpr double DELTA_MIN = 1e-6;      // m
constexpr double OMEGA_MIN = 1.0;       // rpm
constexpr double GR_MIN = 1e-5;         // mkm/hr
constexpr double FRACTION_MIN = 1e-10;  // prescribed fractions of InGaN_GR_X
constexpr double FRACTION_MAX = 0.99999;
constexpr double FLOW_MIN = -1e-10;  // sccm; a flow from here up to 0 is rounding and counts as 0

enum StageType : std::int32_t { STAGE_single, STAGE_periodic };
constexpr Keyword STAGE_TYPES[] = {{"single", STAGE_single}, {"periodic", STAGE_periodic}};
constexpr Keyword DISLOCATION_MODELS[] = {{"given", DISL_given}, {"inherited", DISL_inherited}};

struct FlowElement {
  const char* name;
  GasSpecies species;
};
// In the order of reading.
constexpr FlowElement FLOW_ELEMENTS[] = {{"TMIn", TMIn_g}, {"TMGa", TMGa_g}, {"TEGa", TEGa_g}, {"TMAl", TMAl_g},
                                         {"N2", N2_g},     {"NH3", NH3_g},   {"H2", H2_g}};

bool fail(std::string& error, const std::string& message) {
  error = message;
  return false;
}

bool below(const ValueRange& range, double limit) { return range.val < limit || range.end < limit; }
bool outside(double value, double low, double high) { return value < low || value > high; }

// Reads the child name into out. A missing child leaves null in name_element and its message in error, and is no
// failure yet: read_disl_model decides. A child without val fails at once.
bool read_name(const TiXmlElement& element, const TiXmlElement*& name_element, std::string& out, std::string& error) {
  name_element = require_child(element, "name", error);
  if (name_element == nullptr) return true;
  const char* text = require_attribute(*name_element, "val", error);
  if (text == nullptr) return false;
  out = text;
  return true;
}

// Reads dislocations:disl_model; dislocations receives the element that holds it. Here a missing name ends the
// reading too: its message stands in error, unless that of a missing disl_model has replaced it.
bool read_disl_model(const TiXmlElement& element, const TiXmlElement* name_element, const TiXmlElement*& dislocations,
                     std::int32_t& disl_model, std::string& error) {
  dislocations = require_child(element, "dislocations", error);
  if (dislocations == nullptr) return false;
  const TiXmlElement* model_element = require_child(*dislocations, "disl_model", error);
  if (name_element == nullptr || model_element == nullptr) return false;
  const char* text = require_attribute(*model_element, "val", error);
  if (text == nullptr) return false;
  if (!find_keyword(DISLOCATION_MODELS, text, disl_model)) {
    return fail(error, "Unknown dislocation model: " + element_full_name(model_element));
  }
  return true;
}

bool low_dislocation_density(const std::string& label, std::string& error) {
  return fail(error, "Given dislocation density is less than 1e3 cm^-2 in " + label);
}

// Duration, name, temperature, pressure and dislocations of a single active stage.
bool read_common_children(const TiXmlElement& element, std::int32_t stress_model, StageRecord& stage,
                          std::string& error) {
  const TiXmlElement* name_element = nullptr;
  if (!read_name(element, name_element, stage.name, error)) return false;

  double tau = 0.0;
  if (!read_child_real(element, "tau", tau, error)) return false;
  if (tau < TAU_MIN) return fail(error, "Duration tau is less than 1e-4 s in " + stage.label);
  stage.tau = tau;

  ValueRange range{0.0, 0.0};
  if (!read_real_range(element, "T", range, error)) return false;
  if (below(range, T_MIN)) return fail(error, "Very low or negative temperature in " + stage.label);
  stage.T = range;

  if (!read_real_range(element, "P", range, error)) return false;
  if (below(range, P_MIN)) return fail(error, "Very low or negative pressure in " + stage.label);
  stage.P = range;

  if (stress_model == STRESS_V_dislocation) return true;
  const TiXmlElement* dislocations = nullptr;
  if (!read_disl_model(element, name_element, dislocations, stage.disl_model, error)) return false;
  if (stage.disl_model != DISL_given) return true;
  if (!read_real_range(*dislocations, "rho_D", range, error)) return false;
  if (below(range, RHO_D_MIN)) return low_dislocation_density(stage.label, error);
  stage.rho_D = range;
  return true;
}

bool read_fixed_thickness(const TiXmlElement& element, StageRecord& stage, std::string& error) {
  if (!read_child_real(element, "delta", stage.delta, error)) return false;
  if (stage.delta < DELTA_MIN) return fail(error, "delta is less than 1e-6 m in " + stage.label);
  return true;
}

bool read_thick_GaN(const TiXmlElement& element, std::int32_t reactor, StageRecord& stage, std::string& error) {
  if (reactor != REACTOR_TDR) return true;
  ValueRange omega{0.0, 0.0};
  if (!read_real_range(element, "omega_TDR", omega, error)) return false;
  if (below(omega, OMEGA_MIN)) return fail(error, "omega_TDR is less than 1 rpm in " + stage.label);
  stage.omega_TDR = omega;
  return true;
}

bool read_InGaN_GR(const TiXmlElement& element, StageRecord& stage, std::string& error) {
  if (!read_child_real(element, "GR_average", stage.GR_average, error)) return false;
  if (stage.GR_average < GR_MIN) return fail(error, "GR_average is less than 1e-5 mkm/hr in " + stage.label);
  return true;
}

bool read_InGaN_GR_X(const TiXmlElement& element, StageRecord& stage, std::string& error) {
  if (!read_InGaN_GR(element, stage, error)) return false;
  if (!read_child_real(element, "XIn_average", stage.XIn_average, error)) return false;
  if (outside(stage.XIn_average, FRACTION_MIN, FRACTION_MAX)) {
    return fail(error, "XIn_average should be between 0 and 1 in " + stage.label);
  }
  if (!read_child_real(element, "XAl_average", stage.XAl_average, error)) return false;
  if (outside(stage.XAl_average, FRACTION_MIN, FRACTION_MAX)) {
    return fail(error, "XAl_average should be between 0 and 1 in " + stage.label);
  }
  return true;
}

// What the transport model asks for in each stage. Every failure here names the model behind its message.
bool read_transport_children(const TiXmlElement& element, const ProcessRecipe& recipe, StageRecord& stage,
                             std::string& error) {
  const char* model = "";
  bool ok = true;
  switch (recipe.transport_model) {
    case TRANSPORT_fixed_thickness:
      model = "fixed_thickness";
      ok = read_fixed_thickness(element, stage, error);
      break;
    case TRANSPORT_thick_GaN:
      model = "thick_GaN";
      ok = read_thick_GaN(element, recipe.reactor, stage, error);
      break;
    case TRANSPORT_InGaN_GR:
      model = "InGaN_GR";
      ok = read_InGaN_GR(element, stage, error);
      break;
    case TRANSPORT_InGaN_GR_X:
      model = "InGaN_GR_X";
      ok = read_InGaN_GR_X(element, stage, error);
      break;
    default:
      break;
  }
  if (!ok) error += std::string(" (model ") + model + ")";
  return ok;
}

bool read_flows(const TiXmlElement& element, StageRecord& stage, std::string& error) {
  const TiXmlElement* gas_species = require_child(element, "gas_species", error);
  if (gas_species == nullptr) return false;
  const TiXmlElement* flows = require_child(*gas_species, "Q", error);
  if (flows == nullptr) return false;
  for (const FlowElement& flow : FLOW_ELEMENTS) {
    ValueRange range{0.0, 0.0};
    if (!read_real_range(*flows, flow.name, range, error)) return false;
    if (below(range, FLOW_MIN)) {
      return fail(error, std::string("Negative input value for species ") + flow.name + " in " + stage.label);
    }
    if (range.val < 0.0) range.val = 0.0;
    if (range.end < 0.0) range.end = 0.0;
    stage.Q[static_cast<std::size_t>(flow.species)] = range;
  }
  return true;
}

// Reads the sub-stages once and adds them n_periods times, period by period.
bool expand_periodic_stage(const TiXmlElement& parent, const TiXmlElement& element, int depth, ProcessRecipe& recipe,
                           std::int64_t& periodic_names, StageRecord& stage, std::string& error) {
  std::int32_t n_periods = 0;
  if (!read_child_integer(element, "n_periods", n_periods, error)) return false;
  if (n_periods <= 0) {
    error = "n_periods is zero or negative: " + element_full_name(&parent);
    return true;
  }
  std::int32_t n_stages = 0;
  if (!read_child_integer(element, "n_stages", n_stages, error)) return false;
  if (n_stages <= 0) {
    error = "n_stages is zero or negative: " + element_full_name(&parent);
    return true;
  }
  if (!check_stage_count(n_stages, element, "n_stages", error)) return false;

  const ChildIndex sub_list(element);
  std::vector<StageRecord> sub_stages;
  std::int64_t names_of_period = 0;  // bytes
  for (std::int32_t m = 1; m <= n_stages; ++m) {
    StageRecord sub_stage;
    if (!read_active_stage(sub_list, m, depth + 1, recipe, periodic_names, sub_stage, error)) return false;
    names_of_period += static_cast<std::int64_t>(sub_stage.name.size());
    sub_stages.push_back(sub_stage);
  }
  stage.period = 0;

  const std::int64_t total =
      static_cast<std::int64_t>(recipe.active_stages.size()) + std::int64_t{n_periods} * std::int64_t{n_stages};
  if (total > ACTIVE_STAGE_COUNT_MAX) return fail(error, "Number of active stages is greater than 1000000");
  periodic_names += names_of_period * n_periods;
  if (periodic_names > PERIODIC_NAMES_MAX) {
    return fail(error, "Names of all periods take more than 256 MiB: " + element_full_name(&element));
  }
  for (std::int32_t p = 1; p <= n_periods; ++p) {
    for (StageRecord& sub_stage : sub_stages) {
      sub_stage.period = p;
      if (!recipe.add_active_stage(sub_stage, error)) return false;
    }
  }
  return true;
}

}  // namespace

bool check_stage_count(std::int32_t count, const TiXmlElement& parent, const char* name, std::string& error) {
  if (count <= STAGE_COUNT_MAX) return true;
  return fail(error, "Number of stages is greater than 9999: " + element_full_name(&parent) + ":" + name);
}

bool read_pre_post_stage(const ChildIndex& list, const char* label_prefix, std::int32_t number,
                         PrePostStageRecord& stage, std::string& error) {
  const std::string label = label_prefix + std::to_string(number);
  const TiXmlElement* element = list.require(label, error);
  if (element == nullptr) return false;
  stage.label = label;

  const TiXmlElement* name_element = nullptr;
  if (!read_name(*element, name_element, stage.name, error)) return false;

  if (!read_child_real(*element, "tau", stage.tau, error)) return false;
  if (stage.tau < TAU_MIN) return fail(error, "Duration tau is less than 1e-4 s in " + label);

  if (!read_child_real(*element, "GR_average", stage.GR_average, error)) return false;
  if (stage.GR_average < 0.0) return fail(error, "GR_average is negative in " + label);

  if (!read_child_real(*element, "thickness", stage.thickness, error)) return false;
  if (stage.thickness < THICKNESS_MIN) return fail(error, "Layer thickness is less than 1e-4 nm in " + label);

  if (!read_child_real(*element, "X_In_average", stage.X_In_average, error)) return false;
  if (outside(stage.X_In_average, 0.0, 1.0)) return fail(error, "X_In_average is not between 0 and 1 in " + label);

  // The doubled names and the missing blank below are part of the texts that hosts know.
  if (!read_child_real(*element, "X_Ga_average", stage.X_Ga_average, error)) return false;
  if (outside(stage.X_Ga_average, 0.0, 1.0)) {
    return fail(error, "X_Ga_averageX_Ga_average is not between 0 and 1 in " + label);
  }
  if (!read_child_real(*element, "X_Al_average", stage.X_Al_average, error)) return false;
  if (outside(stage.X_Al_average, 0.0, 1.0)) {
    return fail(error, "X_Al_averageX_Al_average is not between 0 and 1 in " + label);
  }
  const double sum = stage.X_In_average + stage.X_Ga_average + stage.X_Al_average;
  if (outside(sum, COMPOSITION_MIN, COMPOSITION_MAX)) {
    return fail(error, "Sum of X_In_average, X_Ga_average, and X_Al_average is not 1.0000" + label);
  }

  const TiXmlElement* dislocations = nullptr;
  if (!read_disl_model(*element, name_element, dislocations, stage.disl_model, error)) return false;
  if (stage.disl_model == DISL_given) {
    if (!read_child_real(*dislocations, "rho_D", stage.rho_D, error)) return false;
    if (stage.rho_D < RHO_D_MIN) return low_dislocation_density(label, error);
  }

  if (!read_child_real(*element, "stress_state", stage.stress_state, error)) return false;
  if (stage.stress_state < 0.0) return fail(error, "Value of stress state is negative in " + label);
  return true;
}

bool read_active_stage(const ChildIndex& list, std::int32_t number, int depth, ProcessRecipe& recipe,
                       std::int64_t& periodic_names, StageRecord& stage, std::string& error) {
  const std::string prefix = depth == 0 ? "stage_" : list.parent().ValueStr() + "_";
  const std::string label = prefix + std::to_string(number);
  const TiXmlElement* element = list.require(label, error);
  if (element == nullptr) return false;

  const TiXmlElement* type_element = require_child(*element, "type", error);
  std::int32_t type = STAGE_single;
  if (type_element == nullptr) {
    error.clear();
  } else {
    const char* text = require_attribute(*type_element, "val", error);
    if (text == nullptr) return false;
    if (!find_keyword(STAGE_TYPES, text, type)) {
      return fail(error, "Stage type can be either \"single\" or \"periodic\": " + element_full_name(type_element));
    }
  }
  if (type == STAGE_periodic) {
    if (depth > 0) {
      return fail(error, "Nested periodic stages are not supported: " + element_full_name(type_element));
    }
    return expand_periodic_stage(list.parent(), *element, depth, recipe, periodic_names, stage, error);
  }

  stage.label = label;
  return read_common_children(*element, recipe.stress_model, stage, error) &&
         read_transport_children(*element, recipe, stage, error) && read_flows(*element, stage, error);
}

}  // namespace vorlen
