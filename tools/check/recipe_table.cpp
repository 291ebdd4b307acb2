// The table of the recipe, and how its cells are put into words.
#include "check/recipe_table.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace recipe {

namespace {

constexpr const char* MATERIALS[] = {"InGaN", "AlGaN", "AlInN", "AlInGaN"};
constexpr const char* VACANCY_MODELS[] = {"vacancy_In", "vacancy_none"};
constexpr const char* STRESS_MODELS[] = {"V_dislocation"};
constexpr const char* TRANSPORT_MODELS[] = {"fixed_thickness", "thick_GaN", "InGaN_GR_X", "InGaN_GR"};
constexpr const char* REACTORS[] = {"CCS", "TDR", "HFR"};
constexpr const char* SCHEMES[] = {"continuous", "staged"};
constexpr const char* STAGE_TYPES[] = {"single", "periodic"};
constexpr const char* DISLOCATION_MODELS[] = {"given", "inherited"};

constexpr Limits ANY = {};
constexpr Limits FRACTION = {.low = 0.0, .high = 1.0};
constexpr Limits PRESCRIBED_FRACTION = {.low = 1e-10, .high = 0.99999};
constexpr Limits FLOW = {.low = -1e-10, .shown = "at least 0"};
constexpr Limits TOLERANCE = {.low = 1e-10, .high = 1e-3, .shown = "1e-10 to 1e-3", .nan_refused = true};
constexpr Limits NOT_ZERO = {.not_zero = true, .late = true};

constexpr Limits at_least(double low) { return {.low = low}; }
constexpr Limits count(double low, const char* shown) { return {.low = low, .shown = shown}; }

constexpr Row group_row(Section section, const char* name, Section children, Condition condition, const char* meaning) {
  return {name, section, Kind::container, children, condition, "", ANY, {}, "", meaning};
}

constexpr Row keyword_row(Section section, const char* name, std::span<const char* const> keywords, const char* refusal,
                          const char* meaning, Condition condition = Condition::always) {
  return {name, section, Kind::keyword, Section::none, condition, "", ANY, keywords, refusal, meaning};
}

constexpr Row value_row(Section section, const char* name, Kind kind, Condition condition, const char* unit,
                        const Limits& limits, const char* refusal, const char* meaning) {
  return {name, section, kind, Section::none, condition, unit, limits, {}, refusal, meaning};
}

constexpr Row constant_row(const char* name, const char* unit, const char* meaning) {
  return value_row(Section::chemistry, name, Kind::arrhenius, Condition::always, unit, ANY, "", meaning);
}

constexpr Row reference_flow_row(const char* name, const char* meaning) {
  return value_row(Section::Q_ref, name, Kind::real, Condition::always, "sccm", ANY, "", meaning);
}

constexpr Row flow_row(const char* name, const char* meaning, const char* refusal) {
  return value_row(Section::Q, name, Kind::range, Condition::always, "sccm", FLOW, refusal, meaning);
}

constexpr const char* METAL_UNIT = "1/s, K, 1";
constexpr const char* GAS_UNIT = "m²/(kmol s), K, 1";

using enum Section;
using enum Kind;
using enum Condition;

// The doubled names and the missing blanks are part of the library's texts.
constexpr Row ROWS[] = {
    group_row(document, "NonstSurfChem", root, always, "the root"),

    keyword_row(root, "material", MATERIALS, "Material \"{value}\" is not recognized",
                "names the alloy. All three metals are carried in every run, so the flows decide what grows"),
    group_row(root, "chemistry", chemistry, always, "kinetic constants"),
    group_row(root, "stress", stress, always, "strain and its relaxation"),
    group_row(root, "transport", transport, always, "transport of the gases to the surface"),
    group_row(root, "pre_stages", pre_stages, always, "the layers below; needed also when there are none"),
    group_row(root, "process_stages", process_stages, always, "the stages that are simulated"),
    group_row(root, "post_stages", post_stages, always, "the layers above; needed also when there are none"),
    group_row(root, "integration", integration, optional, "how the process is integrated in time"),

    keyword_row(chemistry, "vacancy_model", VACANCY_MODELS, "chemistry:vacancy_model \"{value}\" is not recognized",
                "`vacancy_In`: indium on the surface blocks sites for indium; `vacancy_none`: no blocking"),
    constant_row("Kd_In", METAL_UNIT, "desorption of indium"),
    constant_row("K_InN_plus", GAS_UNIT, "incorporation of InN"),
    constant_row("Kd_Ga", METAL_UNIT, "desorption of gallium"),
    constant_row("K_GaN_plus", GAS_UNIT, "incorporation of GaN"),
    constant_row("Kd_Al", METAL_UNIT, "desorption of aluminium"),
    constant_row("K_AlN_plus", GAS_UNIT, "incorporation of AlN"),
    constant_row("Kd_N2", GAS_UNIT, "desorption of nitrogen as N2"),
    constant_row("Kd_H2", GAS_UNIT, "desorption of hydrogen as H2"),

    keyword_row(
        stress, "model", STRESS_MODELS, "",
        "`V_dislocation`: strain, relaxation by inclined dislocations, V-defects. Any other text (`none`, "
        "`relax`, ...) is taken without a message as \"no relaxation\": the layers grow on the lattice of the last "
        "pre-stage"),
    value_row(stress, "cut_angle", real, stress_on, "", ANY, "",
              "cut angle of the substrate. Must be there, but no equation uses it"),
    value_row(stress, "V_angle_05", real, stress_on, "degree",
              {.low = 0.0, .high = 89.99, .low_inclusive = false, .high_inclusive = false, .late = true},
              "Dislocation angle is beyond [0;90] degrees or not specified", "inclination of the dislocations"),
    value_row(stress, "X_ref", real, stress_on, "fraction", {.low = 0.0, .high = 1.0, .late = true},
              "Reference solid composition for relaxation model is beyond [0;1] or not specified",
              "indium fraction for which the shear modulus is taken"),

    keyword_row(transport, "model", TRANSPORT_MODELS, "Transport model \"{value}\" is not recognized",
                "how the thickness of the diffusion layer above the surface is found"),
    group_row(transport, "parameters", parameters, thick_GaN, "the reference conditions"),

    keyword_row(parameters, "reactor", REACTORS, "Reactor type \"{value}\" is not recognized",
                "close-coupled showerhead, turbo-disc, horizontal reactor"),
    value_row(parameters, "GR_ref", real, always, "nm/s", {.low = 1e-10, .late = true},
              "Refence growth rate is less than 1e-10", "known growth rate of GaN at the reference conditions"),
    value_row(parameters, "P_ref", real, always, "Pa", NOT_ZERO,
              "Reference pressure is zero or not specified for transport model 'thick_GaN'", "reference pressure"),
    value_row(parameters, "T_ref", real, always, "K", NOT_ZERO,
              "Reference temperature is zero or not specified for transport model 'thick_GaN'",
              "reference temperature"),
    value_row(parameters, "omega_TDR_ref", real, thick_GaN_TDR, "rpm", NOT_ZERO,
              "Reference rotation rate is zero or not specified for transport model 'thick_GaN' and reactor 'TDR'",
              "reference rotation rate"),
    group_row(parameters, "Q_ref", Q_ref, always, "the reference flows; their sum must be at least 1e-10 sccm"),

    reference_flow_row("N2", "reference flow of N2"),
    reference_flow_row("H2", "reference flow of H2"),
    reference_flow_row("NH3", "reference flow of NH3"),
    value_row(Q_ref, "TMGa", real, always, "sccm", {.low = 1e-10, .late = true},
              "Refence flow rates of TMGa and TEGa are less than 1e-10 sccm", "reference flow of TMGa"),

    keyword_row(integration, "scheme", SCHEMES, "Integration scheme \"{value}\" is not recognized",
                "`staged`: stage by stage, recommended; `continuous`, the default: in one sweep over all stages",
                optional),
    value_row(integration, "tolerance", real, optional, "", TOLERANCE, "Integration tolerance is beyond [1e-10;1e-3]",
              "relative tolerance of the scheme `staged`, 1e-6 if it is left out; no effect with `continuous`"),

    value_row(pre_stages, "t0", real, always, "s", at_least(0.0), "Begin time t0 is negative", "begin of the process"),
    value_row(pre_stages, "n_pre_stages", integer, always, "", count(0, "0 to 9999"),
              "Number of pre-stages is negative", "number of pre-stages"),
    {"pre_stage_#", pre_stages, stage_list, layer, always, "", ANY, {}, "", "`pre_stage_1` to the number"},

    value_row(process_stages, "n_stages", integer, always, "", count(1, "1 to 9999"),
              "Number of active stages should be positive", "number of active stages, a periodic one counting once"),
    {"stage_#", process_stages, stage_list, stage, always, "", ANY, {}, "", "`stage_1` to the number"},

    value_row(post_stages, "n_post_stages", integer, always, "", count(0, "0 to 9999"),
              "Number of post-stages is negative", "number of post-stages"),
    {"post_stage_#", post_stages, stage_list, layer, always, "", ANY, {}, "", "`post_stage_1` to the number"},

    value_row(layer, "name", text, name_of_layer, "", ANY, "", "name of the layer in the result file"),
    value_row(layer, "tau", real, always, "s", at_least(1e-4), "Duration tau is less than 1e-4 s in {stage}",
              "duration"),
    value_row(layer, "GR_average", real, always, "µm/h", at_least(0.0), "GR_average is negative in {stage}",
              "growth rate; only printed"),
    value_row(layer, "thickness", real, always, "nm", at_least(1e-4), "Layer thickness is less than 1e-4 nm in {stage}",
              "thickness of the layer"),
    value_row(layer, "X_In_average", real, always, "fraction", FRACTION,
              "X_In_average is not between 0 and 1 in {stage}", "indium fraction"),
    value_row(layer, "X_Ga_average", real, always, "fraction", FRACTION,
              "X_Ga_averageX_Ga_average is not between 0 and 1 in {stage}", "gallium fraction"),
    value_row(layer, "X_Al_average", real, always, "fraction", FRACTION,
              "X_Al_averageX_Al_average is not between 0 and 1 in {stage}",
              "aluminium fraction; the three must add up to 0.9999 to 1.0001"),
    group_row(layer, "dislocations", layer_dislocations, always, "dislocation density of the layer"),
    value_row(
        layer, "stress_state", real, always, "", at_least(0.0), "Value of stress state is negative in {stage}",
        "below 1.0000000001: degree of relaxation, 0 keeps the lattice of the layer below, 1 takes the layer's own. "
        "From 1.0000000001 on: the in-plane lattice constant itself, in angstrom"),

    keyword_row(layer_dislocations, "disl_model", DISLOCATION_MODELS, "Unknown dislocation model: {path}",
                "`inherited`: the density of the layer below. Not in `pre_stage_1`"),
    value_row(layer_dislocations, "rho_D", real, given, "cm⁻²", at_least(1000.0),
              "Given dislocation density is less than 1e3 cm^-2 in {stage}", "dislocation density"),

    keyword_row(stage, "type", STAGE_TYPES, "Stage type can be either \"single\" or \"periodic\": {path}",
                "`single` if it is left out; a periodic stage has other children, see below", optional),
    value_row(stage, "name", text, name_of_stage, "", ANY, "", "name of the layer in the result file"),
    value_row(stage, "tau", real, always, "s", at_least(1e-4), "Duration tau is less than 1e-4 s in {stage}",
              "duration"),
    value_row(stage, "T", range, always, "K", at_least(1e-4), "Very low or negative temperature in {stage}",
              "temperature of the surface"),
    value_row(stage, "P", range, always, "Pa", at_least(1.0), "Very low or negative pressure in {stage}", "pressure"),
    group_row(stage, "dislocations", stage_dislocations, stress_off, "dislocation density of the layer"),
    value_row(stage, "delta", real, fixed_thickness, "m", at_least(1e-6), "delta is less than 1e-6 m in {stage}",
              "thickness of the diffusion layer, the same for all species; 0.005 to 0.008 is usual"),
    value_row(stage, "omega_TDR", range, thick_GaN_TDR, "rpm", at_least(1.0), "omega_TDR is less than 1 rpm in {stage}",
              "rotation rate"),
    value_row(stage, "GR_average", real, prescribed_rate, "nm/s", at_least(1e-5),
              "GR_average is less than 1e-5 mkm/hr in {stage}",
              "growth rate to be met; **acts as nm/s**, whatever the text of the refusal says"),
    value_row(stage, "XIn_average", real, InGaN_GR_X, "fraction", PRESCRIBED_FRACTION,
              "XIn_average should be between 0 and 1 in {stage}", "indium fraction to be met"),
    value_row(stage, "XAl_average", real, InGaN_GR_X, "fraction", PRESCRIBED_FRACTION,
              "XAl_average should be between 0 and 1 in {stage}",
              "aluminium fraction to be met; at least 1e-10, also in InGaN"),
    group_row(stage, "gas_species", gas_species, always, "the gases"),

    keyword_row(
        stage_dislocations, "disl_model", DISLOCATION_MODELS, "Unknown dislocation model: {path}",
        "`inherited`: the density at the end of the stage before, for the first stage that of the last pre-stage, "
        "which must exist then"),
    value_row(stage_dislocations, "rho_D", range, given, "cm⁻²", at_least(1000.0),
              "Given dislocation density is less than 1e3 cm^-2 in {stage}", "dislocation density"),

    group_row(gas_species, "Q", Q, always, "the flows"),
    flow_row("TMIn", "flow of trimethylindium", "Negative input value for species TMIn in {stage}"),
    flow_row("TMGa", "flow of trimethylgallium", "Negative input value for species TMGa in {stage}"),
    flow_row("TEGa", "flow of triethylgallium", "Negative input value for species TEGa in {stage}"),
    flow_row("TMAl", "flow of trimethylaluminium", "Negative input value for species TMAl in {stage}"),
    flow_row("N2", "flow of nitrogen", "Negative input value for species N2 in {stage}"),
    flow_row("NH3", "flow of ammonia", "Negative input value for species NH3 in {stage}"),
    flow_row("H2", "flow of hydrogen", "Negative input value for species H2 in {stage}"),

    keyword_row(periodic, "type", STAGE_TYPES, "Stage type can be either \"single\" or \"periodic\": {path}",
                "`periodic`"),
    value_row(periodic, "n_periods", integer, always, "", count(1, "above 0"),
              "Active stage  is not set correctly. Stage duration is zero or not specified",
              "how often the sequence is grown"),
    value_row(periodic, "n_stages", integer, always, "", count(1, "1 to 9999"),
              "Active stage  is not set correctly. Stage duration is zero or not specified", "number of sub-stages"),
    {"stage_N_#",
     periodic,
     stage_list,
     stage,
     always,
     "",
     ANY,
     {},
     "",
     "single stages with the children of the table above"},
};

std::string bounds_words(const Limits& limits) {
  if (limits.shown != nullptr) return limits.shown;
  if (limits.not_zero) return "not 0";
  if (limits.low && limits.high && limits.low_inclusive && limits.high_inclusive) {
    return number_words(*limits.low) + " to " + number_words(*limits.high);
  }
  std::string words;
  if (limits.low) words = (limits.low_inclusive ? "at least " : "above ") + number_words(*limits.low);
  if (limits.high) {
    if (!words.empty()) words += " and ";
    words += (limits.high_inclusive ? "at most " : "below ") + number_words(*limits.high);
  }
  return words.empty() ? "any" : words;
}

}  // namespace

bool Limits::allows(double value) const {
  // Written as the reader writes it: a not-a-number passes what is tested while reading.
  if (not_zero) return value != 0.0;
  const bool too_low = low && (low_inclusive ? value < *low : value <= *low);
  const bool too_high = high && (high_inclusive ? value > *high : value >= *high);
  return !too_low && !too_high && !((late || nan_refused) && high && std::isnan(value));
}

std::span<const Row> rows() { return ROWS; }

std::vector<const Row*> rows_of(Section section) {
  std::vector<const Row*> found;
  for (const Row& row : ROWS) {
    if (row.section == section) found.push_back(&row);
  }
  return found;
}

int stage_number(std::string_view row_name, std::string_view name) {
  const std::string_view prefix = row_name.substr(0, row_name.size() - 1);  // without the "#"
  if (row_name.back() != '#' || !name.starts_with(prefix)) return 0;
  const std::string_view digits = name.substr(prefix.size());
  if (digits.empty() || digits.size() > 4 || digits.front() == '0') return 0;
  int number = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return 0;
    number = 10 * number + (c - '0');
  }
  return number;
}

const Row* find_row(Section section, std::string_view name) {
  for (const Row& row : ROWS) {
    if (row.section != section) continue;
    if (name == row.name || (row.kind == Kind::stage_list && stage_number(row.name, name) > 0)) return &row;
  }
  return nullptr;
}

std::vector<const char*> attributes_of(const Row& row) {
  switch (row.kind) {
    case Kind::container:
    case Kind::stage_list:
      return {};
    case Kind::range:
      return {"val", "end"};
    case Kind::arrhenius:
      return {"A", "Ta", "Tn"};
    default:
      return {"val"};
  }
}

std::string number_words(double value) {
  std::string words = fmt::format("{}", value);
  // 1e-04 to 1e-4: as the texts of the library write it.
  const std::size_t exponent = words.find("e-0");
  if (exponent != std::string::npos) words.erase(exponent + 2, 1);
  return words == "0.0001" ? "1e-4" : words;
}

std::string allowed_words(const Row& row) {
  switch (row.kind) {
    case Kind::container:
    case Kind::stage_list:
      return "";
    case Kind::text:
      return "any text, also empty";
    case Kind::keyword: {
      std::string words;
      for (const char* word : row.keywords) words += (words.empty() ? "`" : ", `") + std::string(word) + "`";
      if (*row.refusal == '\0') words += ", or any other text";
      return words;
    }
    default:
      return bounds_words(row.limits);
  }
}

std::string condition_words(Condition condition) {
  switch (condition) {
    case Condition::always:
    case Condition::name_of_layer:
      return "required";
    case Condition::optional:
      return "optional";
    case Condition::stress_on:
      return "with `V_dislocation`";
    case Condition::stress_off:
      return "unless `V_dislocation`";
    case Condition::thick_GaN:
      return "model `thick_GaN`";
    case Condition::thick_GaN_TDR:
      return "model `thick_GaN` with `TDR`";
    case Condition::fixed_thickness:
      return "model `fixed_thickness`";
    case Condition::InGaN_GR_X:
      return "model `InGaN_GR_X`";
    case Condition::prescribed_rate:
      return "models `InGaN_GR_X` and `InGaN_GR`";
    case Condition::given:
      return "with `given`";
    case Condition::name_of_stage:
      return "required, but optional with `V_dislocation`";
  }
  return "";
}

std::string read_words(const Row& row) {
  if (row.condition != Condition::always) return condition_words(row.condition);
  for (const Row& parent : ROWS) {
    if (parent.children == row.section && parent.kind == Kind::container) return read_words(parent);
  }
  return condition_words(Condition::always);
}

std::string plain(std::string_view markdown) {
  std::string text(markdown);
  std::erase(text, '`');
  std::erase(text, '*');
  return text;
}

}  // namespace recipe
