// The walk in the order of reading. Each fault gets the text that the reader gives it, and the walk goes on behind it.
#include "check/recipe_reading.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "check/nearest_word.h"
#include "recipe/keywords.h"
#include "recipe/xml_lookup.h"

namespace recipe {

namespace {

using vorlen::element_full_name;
using vorlen::ValueRange;

constexpr int STAGE_COUNT_MAX = 9999;
constexpr double ACTIVE_STAGE_COUNT_MAX = 1e6;
constexpr double PERIODIC_NAMES_MAX = 256.0 * 1024.0 * 1024.0;  // bytes
constexpr double COMPOSITION_MIN = 0.9999;
constexpr double COMPOSITION_MAX = 1.0001;
constexpr double FLOW_MIN = 1e-10;  // sccm; a smaller flow counts as none

// A value of the recipe that stands alone, kept for the checks of the whole.
struct Kept {
  const TiXmlElement* element = nullptr;
  double value = 0.0;
};

// What is known while the children of one element are read.
struct Scope {
  StagePlace place{};
  ReadStage* stage = nullptr;             // the active stage, if any
  std::optional<Problem> missing_name{};  // told when the reader comes upon the dislocations
  std::string disl_model{};               // as the table writes it
  const TiXmlElement* disl_model_element = nullptr;
  std::map<std::string, double> values{};  // of this element's children
};

std::string with(std::string text, std::string_view mark, const std::string& by) {
  const std::size_t at = text.find(mark);
  return at == std::string::npos ? text : text.replace(at, mark.size(), by);
}

// "temperature of the surface: at least 1e-4 K"
std::string value_hint(const Row& row) {
  const std::string unit = *row.unit != '\0' && row.kind != Kind::arrhenius ? std::string(" ") + row.unit : "";
  return plain(fmt::format("{}: {}{}", row.meaning, allowed_words(row), unit));
}

// <T val="..." end="..."/>
std::string element_words(const Row& row) {
  std::string text = std::string("<") + row.name;
  for (const char* attribute : attributes_of(row)) text += std::string(" ") + attribute + "=\"...\"";
  return text + (row.kind == Kind::container ? ">" : "/>");
}

// A child of parent that the table does not know and whose name is near to the wanted one.
const TiXmlElement* misspelt_child(const TiXmlNode& parent, Section section, const char* wanted) {
  for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
    const bool is_sub_stage =
        section == Section::periodic && stage_number(parent.ValueStr() + "_#", child->Value()) > 0;
    if (!is_sub_stage && find_row(section, child->Value()) == nullptr &&
        !nearest_word(child->Value(), {wanted}).empty())
      return child;
  }
  return nullptr;
}

struct Walk {
  const TiXmlDocument& document;
  Reading out{};
  std::map<std::pair<Section, std::string>, Kept> kept{};
  // The first record of a list is special in some checks of the whole.
  const TiXmlElement* inherited_pre_stage_1 = nullptr;
  const TiXmlElement* inherited_first_stage = nullptr;
  std::optional<int> n_pre_stages{};
  double n_active_stages = 0.0;
  double periodic_names = 0.0;  // bytes of the names of all periods so far

  void error(const char* kind, const TiXmlElement& element, const char* attribute, const StagePlace& place,
             std::string text, std::string hint = "") {
    out.errors.push_back(
        problem_at(Severity::error, kind, element, attribute, place, std::move(text), std::move(hint)));
  }
  void warning(const char* kind, const TiXmlElement& element, const char* attribute, const StagePlace& place,
               std::string text, std::string hint = "") {
    out.warnings.push_back(
        problem_at(Severity::warning, kind, element, attribute, place, std::move(text), std::move(hint)));
  }

  Problem missing_element(const TiXmlNode& parent, Section section, const Row& row, const char* name,
                          const StagePlace& place);
  const char* attribute_text(const TiXmlElement& element, const Row& row, const char* attribute,
                             const StagePlace& place);
  std::optional<double> read_number(const TiXmlElement& element, const Row& row, const char* attribute,
                                    const StagePlace& place);
  void warn_of_number(const TiXmlElement& element, const char* attribute, const char* text, int used, double value,
                      const StagePlace& place);
  std::optional<std::string> read_keyword(const TiXmlElement& element, const Row& row, const StagePlace& place);
  void read_value(const TiXmlElement& element, const Row& row, Scope& scope);
  void read_children(const TiXmlNode& parent, Section section, Scope& scope);
  void read_element(const TiXmlElement& element, const Row& row, Scope& scope);
  void read_list(const TiXmlElement& list, const Row& row, const Scope& scope);
  void read_layer(const TiXmlElement& element, const StagePlace& place, bool is_first_pre_stage);
  void read_stage(const TiXmlElement& element, const StagePlace& place, bool in_periodic);
  void read_periodic(const TiXmlElement& element, const StagePlace& place);
  void note(const TiXmlElement& element, const Row& row, Section children, const StagePlace& place) {
    out.elements[&element] = {children, &row, place, 0};
  }
  void check_composition(const TiXmlElement& layer_element, const Scope& scope);
  void check_whole();
  void check_reference_conditions();
  void check_late(Section section, const char* name);
  void read_integration(const TiXmlElement& root);
};

Problem Walk::missing_element(const TiXmlNode& parent, Section section, const Row& row, const char* name,
                              const StagePlace& place) {
  const TiXmlElement* holder = parent.ToElement();
  const std::string path = holder == nullptr ? name : element_full_name(holder) + ":" + name;
  Problem problem;
  if (holder != nullptr) problem = problem_at(Severity::error, "", *holder, nullptr, place, "", "");
  problem.kind = "missing-element";
  problem.path = path;
  problem.text = "Element " + path + " is not found";
  if (const TiXmlElement* misspelt = misspelt_child(parent, section, name)) {
    problem.hint =
        fmt::format("<{}> in line {} is not read: should it be <{}>?", misspelt->Value(), misspelt->Row(), name);
  } else if (row.kind == Kind::stage_list) {
    problem.hint = "the number of stages given in this element says that there is one";
  } else {
    problem.hint = fmt::format("add {}: {}", element_words(row), plain(row.meaning));
  }
  return problem;
}

// The text of an attribute; null with an error when it is not there.
const char* Walk::attribute_text(const TiXmlElement& element, const Row& row, const char* attribute,
                                 const StagePlace& place) {
  const char* text = element.Attribute(attribute);
  if (text != nullptr) return text;
  std::string hint = "write " + element_words(row);
  const std::vector<const char*> wanted = attributes_of(row);
  for (const TiXmlAttribute* other = element.FirstAttribute(); other != nullptr; other = other->Next()) {
    const bool known = std::any_of(wanted.begin(), wanted.end(),
                                   [other](const char* name) { return std::strcmp(name, other->Name()) == 0; });
    if (!known && !nearest_word(other->Name(), {attribute}).empty()) {
      hint = fmt::format("{} is not read: should it be {}?", other->Name(), attribute);
    }
  }
  error("missing-attribute", element, nullptr, place,
        fmt::format("Attribute {} of element {} is not found", attribute, element_full_name(&element)), hint);
  return nullptr;
}

void Walk::warn_of_number(const TiXmlElement& element, const char* attribute, const char* text, int used, double value,
                          const StagePlace& place) {
  const char* rest = text + used;
  if (!is_blank(rest)) {
    std::string hint = "write the number alone";
    if (*rest == ',') hint = "the decimal separator is the point: " + with(text, ",", ".");
    if (*rest == '.') hint = "this is a whole number";
    warning("trailing-characters", element, attribute, place,
            fmt::format("\"{}\" of attribute {} in element {} reads as {}", text, attribute,
                        element_full_name(&element), number_words(value)),
            hint);
  }
  if (!std::isfinite(value)) {
    warning("not-finite", element, attribute, place,
            fmt::format("\"{}\" of attribute {} in element {} is no finite number", text, attribute,
                        element_full_name(&element)),
            "the limits do not stop it, but nothing can be computed with it");
  }
}

// Converts as the reader does, by "%lf" and "%d": blanks before and anything behind the number pass.
std::optional<double> Walk::read_number(const TiXmlElement& element, const Row& row, const char* attribute,
                                        const StagePlace& place) {
  const char* text = attribute_text(element, row, attribute, place);
  if (text == nullptr) return std::nullopt;
  const bool whole = row.kind == Kind::integer;
  double value = 0.0;
  int whole_value = 0;
  int used = 0;
  // NOLINTNEXTLINE(cert-err34-c): what the conversion tolerates is the point here
  const int converted =
      whole ? std::sscanf(text, "%d%n", &whole_value, &used) : std::sscanf(text, "%lf%n", &value, &used);
  if (converted != 1) {
    error("no-number", element, attribute, place,
          fmt::format("Failed to get {} number from value \"{}\" of attribute {} in element {}",
                      whole ? "integer" : "real", text, attribute, element_full_name(&element)),
          value_hint(row));
    return std::nullopt;
  }
  if (whole) value = whole_value;
  warn_of_number(element, attribute, text, used, value, place);
  return value;
}

// The keyword as the table writes it.
std::optional<std::string> Walk::read_keyword(const TiXmlElement& element, const Row& row, const StagePlace& place) {
  const char* text = attribute_text(element, row, "val", place);
  if (text == nullptr) return std::nullopt;
  for (const char* word : row.keywords) {
    if (vorlen::equal_ignoring_case(word, text)) return word;
  }
  const std::string_view nearest = nearest_word(text, {row.keywords.begin(), row.keywords.end()});
  const std::string guess = nearest.empty() ? "" : fmt::format("did you mean {}? ", nearest);
  if (*row.refusal == '\0') {
    if (!nearest.empty()) {
      warning("misspelt-keyword", element, "val", place,
              fmt::format("\"{}\" in element {} is taken as \"no relaxation\"", text, element_full_name(&element)),
              fmt::format("did you mean {}?", nearest));
    }
    return text;
  }
  error("unknown-keyword", element, "val", place,
        with(with(row.refusal, "{value}", text), "{path}", element_full_name(&element)),
        guess + "Allowed: " + plain(allowed_words(row)));
  return std::nullopt;
}

void Walk::read_value(const TiXmlElement& element, const Row& row, Scope& scope) {
  const StagePlace& place = scope.place;
  bool allowed = true;
  std::optional<double> first;
  std::optional<double> last;
  const std::vector<const char*> attributes = attributes_of(row);
  for (const char* attribute : attributes) {
    const std::optional<double> value = read_number(element, row, attribute, place);
    if (attribute == attributes.front()) first = value;
    last = value;
    if (value && !row.limits.late && !row.limits.allows(*value)) allowed = false;
  }
  if (!allowed) {
    error("not-allowed", element, "val", place, with(row.refusal, "{stage}", place.label), value_hint(row));
  }
  if (!first) return;
  if (row.section == Section::layer) scope.values[row.name] = *first;
  if (row.kind == Kind::integer && allowed) {
    if (*first > STAGE_COUNT_MAX && std::strcmp(row.name, "n_periods") != 0) {
      error("not-allowed", element, "val", place,
            "Number of stages is greater than 9999: " + element_full_name(&element), value_hint(row));
    } else {
      scope.values[row.name] = *first;
    }
  }
  if (row.section < Section::layer) kept[{row.section, row.name}] = {&element, *first};
  if (scope.stage == nullptr || row.kind != Kind::range || !last || !allowed) return;
  const ValueRange both{*first, *last};
  if (row.section == Section::stage && std::strcmp(row.name, "T") == 0) scope.stage->T = both;
  for (std::size_t k = 0; row.section == Section::Q && k < N_METAL_FLOWS; ++k) {
    if (std::strcmp(row.name, METAL_FLOWS[k]) == 0) scope.stage->metals[k] = both;
  }
}

void Walk::read_element(const TiXmlElement& element, const Row& row, Scope& scope) {
  note(element, row, row.children, scope.place);
  switch (row.kind) {
    case Kind::container:
      read_children(element, row.children, scope);
      return;
    case Kind::text:
      attribute_text(element, row, "val", scope.place);
      return;
    case Kind::keyword: {
      const std::optional<std::string> word = read_keyword(element, row, scope.place);
      const std::string_view name = row.name;
      if (name == "disl_model") {
        scope.disl_model = word.value_or("");
        scope.disl_model_element = &element;
      } else if (row.section == Section::stress) {
        if (word) out.stress_on = *word == row.keywords.front();
      } else if (name == "material") {
        out.material = word.value_or("");
      } else if (name == "model") {
        out.transport_model = word.value_or("");
      } else if (name == "reactor") {
        out.reactor = word.value_or("");
      } else if (name == "scheme") {
        out.scheme = word.value_or("");
      }
      return;
    }
    default:
      read_value(element, row, scope);
  }
}

void Walk::read_children(const TiXmlNode& parent, Section section, Scope& scope) {
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::stage_list) {
      read_list(*parent.ToElement(), *row, scope);
      continue;
    }
    if (std::strcmp(row->name, "type") == 0) continue;    // read_stage has done it, to know the section
    if (row->children == Section::integration) continue;  // read_all reads it after the checks of the whole
    if (row->condition == Condition::given ? scope.disl_model != "given" : asked(row->condition, out) != Asked::yes) {
      continue;
    }
    const std::size_t n_errors = out.errors.size();
    const TiXmlElement* child = parent.FirstChildElement(row->name);
    const bool is_name = row->condition == Condition::name_of_layer || row->condition == Condition::name_of_stage;
    const bool tells_name = std::strcmp(row->name, "disl_model") == 0;
    if (child == nullptr && row->condition != Condition::optional) {
      Problem problem = missing_element(parent, section, *row, row->name, scope.place);
      if (is_name) {
        scope.missing_name = std::move(problem);
      } else {
        out.errors.push_back(std::move(problem));
      }
    }
    // A missing name is told at the dislocations, behind what is missing there.
    if ((tells_name || (child == nullptr && std::strcmp(row->name, "dislocations") == 0)) && scope.missing_name) {
      out.errors.push_back(*scope.missing_name);
      scope.missing_name.reset();
    }
    if (child != nullptr) read_element(*child, *row, scope);
    if (section == Section::layer && std::strcmp(row->name, "X_Al_average") == 0) {
      check_composition(*parent.ToElement(), scope);
    }
    // What the transport model asks for in each stage names the model.
    const bool of_model = section == Section::stage && row->condition >= Condition::thick_GaN &&
                          row->condition <= Condition::prescribed_rate;
    for (std::size_t k = n_errors; of_model && k < out.errors.size(); ++k) {
      out.errors[k].text += " (model " + out.transport_model + ")";
    }
  }
}

void Walk::check_composition(const TiXmlElement& layer_element, const Scope& scope) {
  double sum = 0.0;
  for (const char* name : {"X_In_average", "X_Ga_average", "X_Al_average"}) {
    const auto value = scope.values.find(name);
    if (value == scope.values.end() || value->second < 0.0 || value->second > 1.0) return;
    sum += value->second;
  }
  if (sum < COMPOSITION_MIN || sum > COMPOSITION_MAX) {
    error("not-allowed", layer_element, nullptr, scope.place,
          "Sum of X_In_average, X_Ga_average, and X_Al_average is not 1.0000" + scope.place.label,
          fmt::format("the three add up to {}", number_words(sum)));
  }
}

void Walk::read_list(const TiXmlElement& list, const Row& row, const Scope& scope) {
  const bool periodic = row.section == Section::periodic;
  const std::string prefix = periodic ? list.ValueStr() + "_" : std::string(row.name, std::strlen(row.name) - 1);
  std::unordered_map<std::string_view, const TiXmlElement*> by_name;
  for (const TiXmlElement* child = list.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
    by_name.emplace(child->ValueStr(), child);
  }
  const auto stage_at = [&](int number) -> const TiXmlElement* {
    const auto found = by_name.find(prefix + std::to_string(number));
    return found == by_name.end() ? nullptr : found->second;
  };
  const char* count_name = periodic || row.section == Section::process_stages ? "n_stages"
                           : row.section == Section::pre_stages               ? "n_pre_stages"
                                                                              : "n_post_stages";
  const auto count_read = scope.values.find(count_name);
  int count = 0;
  if (count_read != scope.values.end()) {
    count = static_cast<int>(count_read->second);
    if (row.section == Section::pre_stages) n_pre_stages = count;
  } else {
    // The number is faulty: the stages that follow each other from the first on are looked at.
    while (count < STAGE_COUNT_MAX && stage_at(count + 1) != nullptr) ++count;
  }
  out.elements[&list].stage_count = count;
  bool gap = false;
  for (int number = 1; number <= count; ++number) {
    const std::string label = prefix + std::to_string(number);
    const TiXmlElement* element = stage_at(number);
    if (element == nullptr) {
      // One entry for each gap: a wrong count would give thousands.
      if (!gap) out.errors.push_back(missing_element(list, row.section, row, label.c_str(), scope.place));
      gap = true;
      continue;
    }
    gap = false;
    StagePlace place{label, ""};
    const TiXmlElement* name_element = element->FirstChildElement("name");
    if (name_element != nullptr && name_element->Attribute("val") != nullptr)
      place.name = name_element->Attribute("val");
    if (row.children == Section::layer) {
      note(*element, row, Section::layer, place);
      read_layer(*element, place, row.section == Section::pre_stages && number == 1);
    } else {
      note(*element, row, Section::stage, place);
      read_stage(*element, place, periodic);
    }
  }
}

void Walk::read_layer(const TiXmlElement& element, const StagePlace& place, bool is_first_pre_stage) {
  Scope scope{.place = place};
  read_children(element, Section::layer, scope);
  if (!is_first_pre_stage) return;
  if (scope.disl_model == "inherited") inherited_pre_stage_1 = scope.disl_model_element;
  const auto stress_state = scope.values.find("stress_state");
  if (stress_state == scope.values.end() || stress_state->second < 0.0 ||
      !(stress_state->second < vorlen::STRESS_STATE_IS_LATTICE)) {
    return;
  }
  // The reader ends here, and what it has read so far holds no stages.
  error("not-allowed", *element.FirstChildElement("stress_state"), "val", place, "Number of stages is zero",
        "stress_state of the first pre-stage is its in-plane lattice constant in angstrom, such as 3.189 for GaN; a "
        "degree of relaxation has no layer below to refer to");
}

void Walk::read_stage(const TiXmlElement& element, const StagePlace& place, bool in_periodic) {
  const TiXmlElement* type_element = element.FirstChildElement("type");
  bool periodic = false;
  if (type_element != nullptr) {
    const Row& row = *find_row(Section::stage, "type");
    note(*type_element, row, Section::none, place);
    const std::optional<std::string> type = read_keyword(*type_element, row, place);
    periodic = type ? *type == "periodic" : element.FirstChildElement("n_periods") != nullptr;
  }
  if (periodic && in_periodic) {
    error("nested-periodic", *type_element, "val", place,
          "Nested periodic stages are not supported: " + element_full_name(type_element),
          "write the inner sequence out");
    out.elements[&element].children = Section::none;
    return;
  }
  if (periodic) {
    out.elements[&element].children = Section::periodic;
    read_periodic(element, place);
    return;
  }
  ++n_active_stages;
  ReadStage stage{.element = &element, .place = place, .T = {}, .metals = {}};
  Scope scope{.place = place, .stage = &stage};
  read_children(element, Section::stage, scope);
  if (out.stages.empty() && scope.disl_model == "inherited") inherited_first_stage = scope.disl_model_element;
  out.stages.push_back(stage);
}

void Walk::read_periodic(const TiXmlElement& element, const StagePlace& place) {
  const int first = static_cast<int>(out.stages.size());
  const double n_before = n_active_stages;
  Scope scope{.place = place};
  read_children(element, Section::periodic, scope);
  if (static_cast<int>(out.stages.size()) == first) return;
  const auto n_periods = scope.values.find("n_periods");
  const auto n_stages = scope.values.find("n_stages");
  if (n_periods == scope.values.end() || n_stages == scope.values.end()) return;
  std::size_t names_size = 0;
  for (std::size_t k = static_cast<std::size_t>(first); k < out.stages.size(); ++k) {
    names_size += out.stages[k].place.name.size();
  }
  periodic_names += static_cast<double>(names_size) * n_periods->second;
  if (n_periods->second > 1.0) out.stages.back().repeats_from = first;
  n_active_stages = n_before + n_periods->second * n_stages->second;
  if (n_active_stages > ACTIVE_STAGE_COUNT_MAX) {
    error("not-allowed", *element.FirstChildElement("n_periods"), "val", place,
          "Number of active stages is greater than 1000000",
          fmt::format("{} periods of {} stages, and {} stages before them", number_words(n_periods->second),
                      number_words(n_stages->second), number_words(n_before)));
  } else if (periodic_names > PERIODIC_NAMES_MAX) {
    error("not-allowed", element, nullptr, place,
          "Names of all periods take more than 256 MiB: " + element_full_name(&element), "shorten the names");
  }
}

// ---- Checks of the whole recipe and of the model's set-up, in the order of the library

void Walk::check_late(Section section, const char* name) {
  const auto found = kept.find({section, name});
  const Row& row = *find_row(section, name);
  if (found == kept.end() || row.limits.allows(found->second.value)) return;
  error("whole-recipe", *found->second.element, "val", {}, row.refusal, value_hint(row));
}

void Walk::check_reference_conditions() {
  const auto of = [this](Section section, const char* name) { return kept.find({section, name}); };
  const auto GR_ref = of(Section::parameters, "GR_ref");
  const bool GR_is_zero = GR_ref != kept.end() && GR_ref->second.value == 0.0;
  if (GR_is_zero) {
    error("whole-recipe", *GR_ref->second.element, "val", {},
          "Reference growth rate is zero or not specified for transport model 'thick_GaN'",
          value_hint(*find_row(Section::parameters, "GR_ref")));
  }
  check_late(Section::parameters, "P_ref");
  check_late(Section::parameters, "T_ref");
  if (out.reactor == "TDR") check_late(Section::parameters, "omega_TDR_ref");
  // The rest of the reference conditions is tested when the layers are computed; check_whole goes on there.
}

void Walk::check_whole() {
  const auto value = [this](Section section, const char* name) -> const Kept* {
    const auto found = kept.find({section, name});
    return found == kept.end() ? nullptr : &found->second;
  };
  const Kept* t0 = value(Section::pre_stages, "t0");
  if (t0 != nullptr && std::isnan(t0->value)) {
    error("whole-recipe", *t0->element, "val", {}, "Begin time is not specified", "t0 is not a number");
  }

  const bool thick_GaN = out.transport_model == "thick_GaN";
  // Flows in the order in which the library adds them up.
  constexpr const char* REFERENCE_FLOWS[] = {"TMGa", "N2", "H2", "NH3"};
  const TiXmlElement* Q_ref = nullptr;
  double total = 0.0;
  bool all_flows_zero = true;
  bool flows_known = true;
  for (const char* name : REFERENCE_FLOWS) {
    const Kept* flow = value(Section::Q_ref, name);
    if (flow == nullptr) {
      flows_known = false;
      continue;
    }
    Q_ref = flow->element->Parent()->ToElement();
    total += flow->value;
    all_flows_zero = all_flows_zero && flow->value == 0.0;
  }
  flows_known = flows_known && thick_GaN;
  if (thick_GaN) check_reference_conditions();
  if (flows_known && all_flows_zero) {
    error("whole-recipe", *Q_ref, nullptr, {},
          "All reference flow rates are zero or not specified for transport model 'thick_GaN'",
          "give the carrier gases, NH3 and TMGa of the known run");
  }

  if (out.stress_on.value_or(false)) {
    check_late(Section::stress, "V_angle_05");
    check_late(Section::stress, "X_ref");
  }

  const auto check_constants = [&](std::initializer_list<const char*> names, const char* text) {
    for (const char* name : names) {
      const Kept* A = value(Section::chemistry, name);
      if (A == nullptr || A->value != 0.0) return;
    }
    const TiXmlElement* chemistry = value(Section::chemistry, *names.begin())->element->Parent()->ToElement();
    error("whole-recipe", *chemistry, nullptr, {}, text, "at least one A must not be 0");
  };
  check_constants({"Kd_In", "Kd_Ga", "Kd_Al", "Kd_N2", "Kd_H2"},
                  "Predexponents of all desorption constants are zeros or not specified");
  check_constants({"K_InN_plus", "K_GaN_plus", "K_AlN_plus"},
                  "Predexponents of all incorporation constants are zeros or not specified");

  if (inherited_pre_stage_1 != nullptr) {
    error("model", *inherited_pre_stage_1, "val", {"pre_stage_1", ""},
          "Cannot inherit dislocation density for first pre-stage", "given, with rho_D");
  }
  if (inherited_first_stage != nullptr && n_pre_stages == 0) {
    error("model", *inherited_first_stage, "val", out.stages.front().place,
          "Cannot inherit dislocation density for first active stage: no pre-stages",
          "given, with rho_D; or add a pre-stage");
  }
  if (flows_known && !all_flows_zero) {
    if (total < FLOW_MIN) {
      error("model", *Q_ref, nullptr, {}, "Total refence flow rate is less than 1e-10 sccm",
            "the sum of the reference flows must be at least 1e-10 sccm");
    } else {
      check_late(Section::Q_ref, "TMGa");
    }
  }
  const Kept* GR_ref = value(Section::parameters, "GR_ref");
  if (thick_GaN && GR_ref != nullptr && GR_ref->value != 0.0) check_late(Section::parameters, "GR_ref");

  if (out.transport_model == "InGaN_GR_X" && !out.stages.empty()) {
    const ReadStage& first = out.stages.front();
    const auto& TMGa = first.metals[TMGA];
    const auto& TEGa = first.metals[TEGA];
    if (TMGa && TEGa && TMGa->average() < FLOW_MIN && TEGa->average() < FLOW_MIN) {
      error("model", *first.element, nullptr, first.place,
            "Flow rates of TMGa and TEGa are less than 1e-10 sccm on first stage. It is not compatible with transport "
            "model InGaN_GR_X.",
            "begin with a stage that has TMGa or TEGa");
    }
  }
  if (out.transport_model == "InGaN_GR") {
    const TiXmlElement* model =
        document.FirstChildElement("NonstSurfChem")->FirstChildElement("transport")->FirstChildElement("model");
    error("model", *model, "val", {}, "Transport model InGaN_GR is not supported: it defines no transport layer",
          "use InGaN_GR_X or fixed_thickness");
  }
}

// The run reports the faults of this element after all others.
void Walk::read_integration(const TiXmlElement& root) {
  out.integration = root.FirstChildElement("integration");
  if (out.integration == nullptr) return;
  Scope scope;
  read_element(*out.integration, *find_row(Section::root, "integration"), scope);
}

}  // namespace

Asked asked(Condition condition, const Reading& reading) {
  const auto holds = [](bool yes) { return yes ? Asked::yes : Asked::no; };
  const auto model_is = [&](const char* model) {
    return reading.transport_model.empty() ? Asked::unknown : holds(reading.transport_model == model);
  };
  switch (condition) {
    case Condition::stress_on:
      return reading.stress_on ? holds(*reading.stress_on) : Asked::unknown;
    case Condition::stress_off:
      return reading.stress_on ? holds(!*reading.stress_on) : Asked::unknown;
    case Condition::thick_GaN:
      return model_is("thick_GaN");
    case Condition::thick_GaN_TDR:
      if (model_is("thick_GaN") != Asked::yes) return model_is("thick_GaN");
      return reading.reactor.empty() ? Asked::unknown : holds(reading.reactor == "TDR");
    case Condition::fixed_thickness:
      return model_is("fixed_thickness");
    case Condition::InGaN_GR_X:
      return model_is("InGaN_GR_X");
    case Condition::prescribed_rate:
      return model_is("InGaN_GR") == Asked::yes ? Asked::yes : model_is("InGaN_GR_X");
    default:
      return Asked::yes;
  }
}

Problem problem_at(Severity severity, const char* kind, const TiXmlElement& element, const char* attribute,
                   const StagePlace& place, std::string text, std::string hint) {
  Problem problem;
  problem.severity = severity;
  problem.kind = kind;
  problem.line = element.Row();
  problem.column = element.Column();
  for (const TiXmlAttribute* one = element.FirstAttribute(); attribute != nullptr && one != nullptr;
       one = one->Next()) {
    if (std::strcmp(one->Name(), attribute) == 0) {
      problem.line = one->Row();
      problem.column = one->Column();
    }
  }
  problem.path = element_full_name(&element);
  problem.stage = place.label;
  problem.stage_name = place.name;
  problem.text = std::move(text);
  problem.hint = std::move(hint);
  return problem;
}

Reading read_all(const TiXmlDocument& document) {
  Walk walk{.document = document};
  Scope scope;
  walk.read_children(document, Section::document, scope);
  if (const TiXmlElement* root = document.FirstChildElement("NonstSurfChem"); root != nullptr) {
    walk.check_whole();
    walk.read_integration(*root);
  }
  return std::move(walk.out);
}

}  // namespace recipe
