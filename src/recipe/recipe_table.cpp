// The table of the recipe. Messages are part of the library's interface: doubled names and missing blanks stay.
#include "recipe/recipe_table.h"

#include <cstddef>

#include "recipe/species_data.h"

namespace vorlen::recipe {

namespace {

// ---- Keywords

constexpr Keyword MATERIALS[] = {
    {"InGaN", MATERIAL_InGaN}, {"AlGaN", MATERIAL_AlGaN}, {"AlInN", MATERIAL_AlInN}, {"AlInGaN", MATERIAL_AlInGaN}};
constexpr Keyword VACANCY_MODELS[] = {{"vacancy_In", VACANCY_In}, {"vacancy_none", VACANCY_none}};
constexpr Keyword STRESS_MODELS[] = {{"V_dislocation", STRESS_V_dislocation}};
constexpr Keyword TRANSPORT_MODELS[] = {{"fixed_thickness", TRANSPORT_fixed_thickness},
                                        {"thick_GaN", TRANSPORT_thick_GaN},
                                        {"InGaN_GR_X", TRANSPORT_InGaN_GR_X},
                                        {"InGaN_GR", TRANSPORT_InGaN_GR}};
constexpr Keyword REACTORS[] = {{"CCS", REACTOR_CCS}, {"TDR", REACTOR_TDR}, {"HFR", REACTOR_HFR}};
constexpr Keyword SCHEMES[] = {{"continuous", SCHEME_continuous}, {"staged", SCHEME_staged}};
constexpr Keyword TRUTH_VALUES[] = {{"true", 1}, {"false", 0}};
constexpr Keyword STAGE_TYPES[] = {{"single", STAGE_single}, {"periodic", STAGE_periodic}};
constexpr Keyword DISLOCATION_MODELS[] = {{"given", DISL_given}, {"inherited", DISL_inherited}};

// ---- Limits

constexpr Limits ANY = {};
constexpr Limits FRACTION = {.low = 0.0, .high = 1.0};
constexpr Limits PRESCRIBED_FRACTION = {.low = 1e-10, .high = 0.99999};
constexpr Limits FLOW = {.low = -1e-10, .shown = "at least 0", .negative_is_zero = true};
constexpr Limits TOLERANCE = {.low = 1e-10, .high = 1e-3, .shown = "1e-10 to 1e-3", .nan_rejected = true};
constexpr Limits NOT_ZERO = {.not_zero = true, .late = true};
constexpr double STAGE_COUNT_MAX = 9999;    // the numbers in the names of stages have at most four digits
constexpr double COMPOSITION_MIN = 0.9999;  // sum of the three fractions of a layer
constexpr double COMPOSITION_MAX = 1.0001;

constexpr Limits at_least(double low) { return {.low = low}; }
constexpr Limits count_from(double low) { return {.low = low, .high = STAGE_COUNT_MAX}; }

// ---- Fields

Field field_of(double& value) { return {.numbers = {&value}}; }
Field field_of(ValueRange& range) { return {.numbers = {&range.val, &range.end}}; }
Field field_of(std::int32_t& word) { return {.word = &word}; }
Field field_of(bool& flag) { return {.flag = &flag}; }
Field field_of(std::string& text) { return {.text = &text}; }

template <auto member>
Field in_recipe(Records& records) {
  return field_of(records.recipe.*member);
}
template <auto member>
Field in_stage(Records& records) {
  return field_of(records.stage->*member);
}
template <auto member>
Field in_layer(Records& records) {
  return field_of(records.layer->*member);
}
template <auto member>
Field in_reading(Records& records) {
  return field_of(records.*member);
}
template <std::size_t k>
Field desorption(Records& records) {
  ProcessRecipe& recipe = records.recipe;
  return {.numbers = {&recipe.Kd_A[k], &recipe.Kd_Ta[k], &recipe.Kd_Tn[k]}};
}
template <std::size_t k>
Field incorporation(Records& records) {
  ProcessRecipe& recipe = records.recipe;
  return {.numbers = {&recipe.K_plus_A[k], &recipe.K_plus_Ta[k], &recipe.K_plus_Tn[k]}};
}
template <GasSpecies species>
Field reference_flow(Records& records) {
  return field_of(records.recipe.Q_ref[species]);
}
template <GasSpecies species>
Field flow(Records& records) {
  return field_of(records.stage->Q[species]);
}

// The fractions of a layer add up to 1. Without a fault only if all three could be read; NaN passes.
const char* composition_fault(const Records& records) {
  const PrePostStageRecord& layer = *records.layer;
  if (layer.X_In_average < 0.0 || layer.X_Ga_average < 0.0 || layer.X_Al_average < 0.0) return nullptr;
  const double sum = layer.X_In_average + layer.X_Ga_average + layer.X_Al_average;
  if (!(sum < COMPOSITION_MIN || sum > COMPOSITION_MAX)) return nullptr;
  return "Sum of X_In_average, X_Ga_average, and X_Al_average is not 1.0000{stage}";
}

// ---- Rows

using FieldOf = Field(Records& records);

constexpr Row group_row(Section section, const char* name, Section children, Condition condition, const char* meaning) {
  return {.name = name, .section = section, .children = children, .condition = condition, .meaning = meaning};
}

constexpr Row dislocations_row(Section section, Section children, Condition condition) {
  Row row = group_row(section, "dislocations", children, condition, "dislocation density of the layer");
  row.reports_missing_name = true;
  return row;
}

constexpr Row list_row(Section section, const char* name, Section children, const char* meaning) {
  return {.name = name, .section = section, .kind = Kind::stage_list, .children = children, .meaning = meaning};
}

constexpr Row keyword_row(Section section, const char* name, std::span<const Keyword> keywords, FieldOf* field,
                          const char* rejection, const char* meaning) {
  return {.name = name,
          .section = section,
          .kind = Kind::keyword,
          .keywords = keywords,
          .rejection = rejection,
          .field = field,
          .meaning = meaning};
}

constexpr Row disl_model_row(Section section, FieldOf* field, const char* meaning) {
  Row row = keyword_row(section, "disl_model", DISLOCATION_MODELS, field, "Unknown dislocation model: {path}", meaning);
  row.reports_missing_name = true;
  return row;
}

constexpr Row type_row(Section section, const char* meaning) {
  return keyword_row(section, "type", STAGE_TYPES, in_reading<&Records::stage_type>,
                     "Stage type can be either \"single\" or \"periodic\": {path}", meaning);
}

constexpr Row optional_row(Row row, const char* default_value) {
  row.condition = Condition::optional;
  row.default_value = default_value;
  return row;
}

constexpr Row value_row(Section section, const char* name, Kind kind, Condition condition, const char* unit,
                        const Limits& limits, FieldOf* field, const char* rejection, const char* meaning) {
  return {.name = name,
          .section = section,
          .kind = kind,
          .condition = condition,
          .unit = unit,
          .limits = limits,
          .rejection = rejection,
          .field = field,
          .meaning = meaning};
}

constexpr Row count_row(Section section, const char* name, double low, const char* rejection, const char* meaning) {
  Row row = value_row(section, name, Kind::integer, Condition::always, "", count_from(low),
                      in_reading<&Records::n_stages>, rejection, meaning);
  row.rejection_above = "Number of stages is greater than 9999: {path}";
  return row;
}

constexpr Row name_row(Section section, Condition condition, FieldOf* field) {
  return value_row(section, "name", Kind::text, condition, "", ANY, field, "", "name of the layer in the result file");
}

constexpr Row constant_row(const char* name, const char* unit, FieldOf* field, const char* meaning) {
  return value_row(Section::chemistry, name, Kind::arrhenius, Condition::always, unit, ANY, field, "", meaning);
}

constexpr Row reference_flow_row(const char* name, FieldOf* field, const Limits& limits, const char* rejection,
                                 const char* meaning) {
  return value_row(Section::Q_ref, name, Kind::real, Condition::always, "sccm", limits, field, rejection, meaning);
}

constexpr Row flow_row(const char* name, FieldOf* field, const char* meaning) {
  return value_row(Section::Q, name, Kind::range, Condition::always, "sccm", FLOW, field,
                   "Negative input value for species {name} in {stage}", meaning);
}

constexpr Row with_check(Row row, const char* (*also)(const Records& records)) {
  row.also = also;
  return row;
}

constexpr const char* METAL_UNIT = "1/s, K, 1";
constexpr const char* GAS_UNIT = "m²/(kmol s), K, 1";
constexpr const char* LOW_DURATION = "Duration tau is less than 1e-4 s in {stage}";
constexpr const char* LOW_DISLOCATION_DENSITY = "Given dislocation density is less than 1e3 cm^-2 in {stage}";
// A periodic stage without periods or sub-stages adds a stage without name and duration.
constexpr const char* EMPTY_PERIODIC_STAGE =
    "Active stage  is not set correctly. Stage duration is zero or not specified";

using enum Section;
using enum Kind;
using enum Condition;
using Recipe = ProcessRecipe;
using Stage = StageRecord;
using Layer = PrePostStageRecord;

constexpr Row ROWS[] = {
    group_row(document, "NonstSurfChem", root, always, "the root"),

    keyword_row(root, "material", MATERIALS, in_recipe<&Recipe::material>, "Material \"{value}\" is not recognized",
                "names the alloy. All three metals are carried in every run, so the flows decide what grows"),
    group_row(root, "chemistry", chemistry, always, "kinetic constants"),
    group_row(root, "stress", stress, always, "strain and its relaxation"),
    group_row(root, "transport", transport, always, "transport of the gases to the surface"),
    group_row(root, "pre_stages", pre_stages, always, "the layers below; required even if there are none"),
    group_row(root, "process_stages", process_stages, always, "the stages that are simulated"),
    group_row(root, "post_stages", post_stages, always, "the layers above; required even if there are none"),
    group_row(root, "integration", integration, optional, "how the process is integrated in time"),
    group_row(root, "output", output, optional, "what the result file contains"),

    keyword_row(chemistry, "vacancy_model", VACANCY_MODELS, in_recipe<&Recipe::vacancy_model>,
                "chemistry:vacancy_model \"{value}\" is not recognized",
                "`vacancy_In`: indium on the surface blocks sites for indium; `vacancy_none`: no blocking"),
    constant_row("Kd_In", METAL_UNIT, desorption<0>, "desorption of indium"),
    constant_row("K_InN_plus", GAS_UNIT, incorporation<0>, "incorporation of InN"),
    constant_row("Kd_Ga", METAL_UNIT, desorption<1>, "desorption of gallium"),
    constant_row("K_GaN_plus", GAS_UNIT, incorporation<1>, "incorporation of GaN"),
    constant_row("Kd_Al", METAL_UNIT, desorption<2>, "desorption of aluminium"),
    constant_row("K_AlN_plus", GAS_UNIT, incorporation<2>, "incorporation of AlN"),
    constant_row("Kd_N2", GAS_UNIT, desorption<3>, "desorption of nitrogen as N2"),
    constant_row("Kd_H2", GAS_UNIT, desorption<4>, "desorption of hydrogen as H2"),

    keyword_row(stress, "model", STRESS_MODELS, in_recipe<&Recipe::stress_model>, "",
                "`V_dislocation`: strain, relaxation by inclined dislocations, V-defects. Any other text (`none`, "
                "`relax`, ...) is accepted without a message as \"no relaxation\": the layers grow on the lattice of "
                "the last pre-stage"),
    value_row(stress, "cut_angle", real, stress_on, "", ANY, in_recipe<&Recipe::cut_angle>, "",
              "cut angle of the substrate. Required, but no equation uses it"),
    value_row(stress, "V_angle_05", real, stress_on, "degree",
              {.low = 0.0, .high = 89.99, .low_inclusive = false, .high_inclusive = false, .late = true},
              in_recipe<&Recipe::V_angle_05>, "Dislocation angle is beyond [0;90] degrees or not specified",
              "inclination of the dislocations"),
    value_row(stress, "X_ref", real, stress_on, "fraction", {.low = 0.0, .high = 1.0, .late = true},
              in_recipe<&Recipe::X_ref>,
              "Reference solid composition for relaxation model is beyond [0;1] or not specified",
              "indium fraction at which the shear modulus is evaluated"),

    keyword_row(transport, "model", TRANSPORT_MODELS, in_recipe<&Recipe::transport_model>,
                "Transport model \"{value}\" is not recognized",
                "how the thickness of the diffusion layer above the surface is found"),
    group_row(transport, "parameters", parameters, thick_GaN, "the reference conditions"),

    keyword_row(parameters, "reactor", REACTORS, in_recipe<&Recipe::reactor>,
                "Reactor type \"{value}\" is not recognized",
                "close-coupled showerhead, turbo-disc, horizontal reactor"),
    value_row(parameters, "GR_ref", real, always, "nm/s", {.low = 1e-10, .late = true}, in_recipe<&Recipe::GR_ref>,
              "Refence growth rate is less than 1e-10", "known growth rate of GaN at the reference conditions"),
    value_row(parameters, "P_ref", real, always, "Pa", NOT_ZERO, in_recipe<&Recipe::P_ref>,
              "Reference pressure is zero or not specified for transport model 'thick_GaN'", "reference pressure"),
    value_row(parameters, "T_ref", real, always, "K", NOT_ZERO, in_recipe<&Recipe::T_ref>,
              "Reference temperature is zero or not specified for transport model 'thick_GaN'",
              "reference temperature"),
    value_row(parameters, "omega_TDR_ref", real, thick_GaN_TDR, "rpm", NOT_ZERO, in_recipe<&Recipe::omega_TDR_ref>,
              "Reference rotation rate is zero or not specified for transport model 'thick_GaN' and reactor 'TDR'",
              "reference rotation rate"),
    group_row(parameters, "Q_ref", Q_ref, always, "the reference flows; their sum must be at least 1e-10 sccm"),

    reference_flow_row("N2", reference_flow<N2_g>, ANY, "", "reference flow of N2"),
    reference_flow_row("H2", reference_flow<H2_g>, ANY, "", "reference flow of H2"),
    reference_flow_row("NH3", reference_flow<NH3_g>, ANY, "", "reference flow of NH3"),
    reference_flow_row("TMGa", reference_flow<TMGa_g>, {.low = 1e-10, .late = true},
                       "Refence flow rates of TMGa and TEGa are less than 1e-10 sccm", "reference flow of TMGa"),

    optional_row(keyword_row(integration, "scheme", SCHEMES, in_recipe<&Recipe::scheme>,
                             "Integration scheme \"{value}\" is not recognized",
                             "`staged`: stage by stage, recommended; `continuous`: in one sweep over all stages"),
                 "continuous"),
    optional_row(value_row(integration, "tolerance", real, always, "", TOLERANCE, in_recipe<&Recipe::tolerance>,
                           "Integration tolerance is beyond [1e-10;1e-3]",
                           "relative tolerance of the scheme `staged`; no effect with `continuous`"),
                 "1e-6"),

    optional_row(
        keyword_row(output, "detail", TRUTH_VALUES, in_recipe<&Recipe::detail_output>,
                    "Output detail \"{value}\" is not recognized", "`true`: further columns in the result file"),
        "false"),

    value_row(pre_stages, "t0", real, always, "s", at_least(0.0), in_recipe<&Recipe::t0>, "Begin time t0 is negative",
              "start of the process"),
    count_row(pre_stages, "n_pre_stages", 0, "Number of pre-stages is negative", "number of pre-stages"),
    list_row(pre_stages, "pre_stage_#", layer, "`pre_stage_1` to the number"),

    count_row(process_stages, "n_stages", 1, "Number of active stages should be positive",
              "number of active stages, a periodic one counting once"),
    list_row(process_stages, "stage_#", stage, "`stage_1` to the number"),

    count_row(post_stages, "n_post_stages", 0, "Number of post-stages is negative", "number of post-stages"),
    list_row(post_stages, "post_stage_#", layer, "`post_stage_1` to the number"),

    name_row(layer, name_of_layer, in_layer<&Layer::name>),
    value_row(layer, "tau", real, always, "s", at_least(1e-4), in_layer<&Layer::tau>, LOW_DURATION, "duration"),
    value_row(layer, "GR_average", real, always, "µm/h", at_least(0.0), in_layer<&Layer::GR_average>,
              "GR_average is negative in {stage}", "growth rate; only printed"),
    value_row(layer, "thickness", real, always, "nm", at_least(1e-4), in_layer<&Layer::thickness>,
              "Layer thickness is less than 1e-4 nm in {stage}", "thickness of the layer"),
    value_row(layer, "X_In_average", real, always, "fraction", FRACTION, in_layer<&Layer::X_In_average>,
              "X_In_average is not between 0 and 1 in {stage}", "indium fraction"),
    value_row(layer, "X_Ga_average", real, always, "fraction", FRACTION, in_layer<&Layer::X_Ga_average>,
              "X_Ga_averageX_Ga_average is not between 0 and 1 in {stage}", "gallium fraction"),
    with_check(value_row(layer, "X_Al_average", real, always, "fraction", FRACTION, in_layer<&Layer::X_Al_average>,
                         "X_Al_averageX_Al_average is not between 0 and 1 in {stage}",
                         "aluminium fraction; the three must add up to 0.9999 to 1.0001"),
               composition_fault),
    dislocations_row(layer, layer_dislocations, always),
    value_row(layer, "stress_state", real, always, "", at_least(0.0), in_layer<&Layer::stress_state>,
              "Value of stress state is negative in {stage}",
              "below 1.0000000001: degree of relaxation, 0 keeps the lattice of the layer below, 1 gives the layer its "
              "own. From 1.0000000001 up: the in-plane lattice constant itself, in angstrom"),

    disl_model_row(layer_dislocations, in_layer<&Layer::disl_model>,
                   "`inherited`: the density of the layer below. Not in `pre_stage_1`"),
    value_row(layer_dislocations, "rho_D", real, given, "cm⁻²", at_least(1000.0), in_layer<&Layer::rho_D>,
              LOW_DISLOCATION_DENSITY, "dislocation density"),

    optional_row(type_row(stage, "a periodic stage has other children, see below"), "single"),
    name_row(stage, name_of_stage, in_stage<&Stage::name>),
    value_row(stage, "tau", real, always, "s", at_least(1e-4), in_stage<&Stage::tau>, LOW_DURATION, "duration"),
    value_row(stage, "T", range, always, "K", at_least(1e-4), in_stage<&Stage::T>,
              "Very low or negative temperature in {stage}", "temperature of the surface"),
    value_row(stage, "P", range, always, "Pa", at_least(1.0), in_stage<&Stage::P>,
              "Very low or negative pressure in {stage}", "pressure"),
    dislocations_row(stage, stage_dislocations, stress_off),
    value_row(stage, "delta", real, fixed_thickness, "m", at_least(1e-6), in_stage<&Stage::delta>,
              "delta is less than 1e-6 m in {stage}",
              "thickness of the diffusion layer, the same for all species; 0.005 to 0.008 is usual"),
    value_row(stage, "omega_TDR", range, thick_GaN_TDR, "rpm", at_least(1.0), in_stage<&Stage::omega_TDR>,
              "omega_TDR is less than 1 rpm in {stage}", "rotation rate"),
    value_row(stage, "GR_average", real, prescribed_rate, "nm/s", at_least(1e-5), in_stage<&Stage::GR_average>,
              "GR_average is less than 1e-5 mkm/hr in {stage}",
              "prescribed growth rate; **acts as nm/s**, whatever the text of the message says"),
    value_row(stage, "XIn_average", real, InGaN_GR_X, "fraction", PRESCRIBED_FRACTION, in_stage<&Stage::XIn_average>,
              "XIn_average should be between 0 and 1 in {stage}", "prescribed indium fraction"),
    value_row(stage, "XAl_average", real, InGaN_GR_X, "fraction", PRESCRIBED_FRACTION, in_stage<&Stage::XAl_average>,
              "XAl_average should be between 0 and 1 in {stage}",
              "prescribed aluminium fraction; at least 1e-10, also in InGaN"),
    group_row(stage, "gas_species", gas_species, always, "the gases"),

    disl_model_row(stage_dislocations, in_stage<&Stage::disl_model>,
                   "`inherited`: the density at the end of the previous stage; in the first stage, that of the last "
                   "pre-stage, which must then exist"),
    value_row(stage_dislocations, "rho_D", range, given, "cm⁻²", at_least(1000.0), in_stage<&Stage::rho_D>,
              LOW_DISLOCATION_DENSITY, "dislocation density"),

    group_row(gas_species, "Q", Q, always, "the flows"),

    flow_row("TMIn", flow<TMIn_g>, "flow of trimethylindium"),
    flow_row("TMGa", flow<TMGa_g>, "flow of trimethylgallium"),
    flow_row("TEGa", flow<TEGa_g>, "flow of triethylgallium"),
    flow_row("TMAl", flow<TMAl_g>, "flow of trimethylaluminium"),
    flow_row("N2", flow<N2_g>, "flow of nitrogen"),
    flow_row("NH3", flow<NH3_g>, "flow of ammonia"),
    flow_row("H2", flow<H2_g>, "flow of hydrogen"),

    type_row(periodic, "`periodic`"),
    value_row(periodic, "n_periods", integer, always, "", {.low = 1, .shown = "above 0"},
              in_reading<&Records::n_periods>, EMPTY_PERIODIC_STAGE, "how often the sequence is grown"),
    count_row(periodic, "n_stages", 1, EMPTY_PERIODIC_STAGE, "number of sub-stages"),
    list_row(periodic, "stage_N_#", stage, "single stages with the children of the table above"),
};

// ---- Lookup

constexpr std::size_t N_ROWS = std::size(ROWS);
constexpr std::size_t N_SECTIONS = static_cast<std::size_t>(Section::none);

constexpr std::array<const Row*, N_ROWS> POINTERS = [] {
  std::array<const Row*, N_ROWS> pointers{};
  for (std::size_t k = 0; k < N_ROWS; ++k) pointers[k] = &ROWS[k];
  return pointers;
}();

struct Part {
  std::size_t begin = 0;
  std::size_t count = 0;
};

constexpr std::array<Part, N_SECTIONS> PARTS = [] {
  std::array<Part, N_SECTIONS> parts{};
  for (std::size_t k = 0; k < N_ROWS; ++k) {
    Part& part = parts[static_cast<std::size_t>(ROWS[k].section)];
    if (part.count++ == 0) part.begin = k;
  }
  return parts;
}();

constexpr bool sections_are_contiguous() {
  for (std::size_t k = 0; k < N_ROWS; ++k) {
    const Part& part = PARTS[static_cast<std::size_t>(ROWS[k].section)];
    if (k - part.begin >= part.count) return false;
  }
  return true;
}
static_assert(sections_are_contiguous());

}  // namespace

std::span<const Row> rows() { return ROWS; }

std::span<const Row* const> rows_of(Section section) {
  if (section == Section::none) return {};
  const Part& part = PARTS[static_cast<std::size_t>(section)];
  return std::span(POINTERS).subspan(part.begin, part.count);
}

}  // namespace vorlen::recipe
