// The sink that collects what the library's reader finds, and turns it into problems with places and hints.
#include "check/recipe_reading.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "check/nearest_word.h"
#include "check/usual_ranges.h"
#include "recipe/read_value.h"
#include "recipe/recipe_reader.h"
#include "recipe/species_data.h"
#include "recipe/xml_lookup.h"

namespace vorlen::recipe {

namespace {

using vorlen::element_full_name;

// The sink's context.
struct Collection {
  Reading& reading;
  std::vector<Problem> late_errors;
};

Collection& collection_of(void* context) { return *static_cast<Collection*>(context); }

// ---- Hints

// <T val="..." end="..."/>
std::string element_words(const Row& row) {
  std::string text = std::string("<") + row.name;
  for (const char* attribute : attributes_of(row)) text += std::string(" ") + attribute + "=\"...\"";
  return text + (row.kind == Kind::container ? ">" : "/>");
}

// A child of parent that the table does not know, with a name close to the wanted one.
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

// How many stages the list has, next to how many it should have.
std::string missing_stage_hint(const Row& row, const TiXmlElement& list) {
  int count = 0;
  for (const TiXmlElement* child = list.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
    if (stage_number(list_prefix(row, list) + "#", child->Value()) > 0) ++count;
  }
  return fmt::format("{}, and {} {} given", stage_count_words(row.section, list), count, count == 1 ? "is" : "are");
}

std::string missing_element_hint(const Fault& fault) {
  const Row& row = *fault.row;
  if (const TiXmlElement* misspelt = misspelt_child(fault.node, row.section, fault.name.c_str())) {
    return fmt::format("<{}> on line {} is not read: should it be <{}>?", misspelt->Value(), misspelt->Row(),
                       fault.name);
  }
  if (row.kind == Kind::stage_list) return missing_stage_hint(row, *fault.node.ToElement());
  return fmt::format("add {}: {}", element_words(row), plain(row.meaning));
}

std::string missing_attribute_hint(const Fault& fault) {
  const std::span<const char* const> wanted = attributes_of(*fault.row);
  for (const TiXmlAttribute* other = fault.node.ToElement()->FirstAttribute(); other != nullptr;
       other = other->Next()) {
    const bool known = std::any_of(wanted.begin(), wanted.end(),
                                   [other](const char* name) { return std::strcmp(name, other->Name()) == 0; });
    if (!known && !nearest_word(other->Name(), {fault.attribute}).empty()) {
      return fmt::format("{} is not read: should it be {}?", other->Name(), fault.attribute);
    }
  }
  return "write " + element_words(*fault.row);
}

std::vector<std::string_view> words_of(const Row& row) {
  std::vector<std::string_view> words;
  for (const vorlen::Keyword& keyword : row.keywords) words.emplace_back(keyword.text);
  return words;
}

std::string keyword_hint(const Fault& fault) {
  const std::string_view nearest = nearest_word(fault.node.ToElement()->Attribute("val"), words_of(*fault.row));
  const std::string guess = nearest.empty() ? "" : fmt::format("did you mean {}? ", nearest);
  return guess + "Allowed: " + plain(allowed_words(*fault.row));
}

std::string value_fault_hint(const Fault& fault) {
  if (fault.row == nullptr) return "shorten the names";
  if (fault.attribute != nullptr) return value_hint(*fault.row);
  double sum = 0.0;
  for (const char* name : {"X_In_average", "X_Ga_average", "X_Al_average"}) {
    sum += number_of(*fault.node.FirstChildElement(name), "val", Kind::real);
  }
  return fmt::format("the three add up to {}", number_words(sum));
}

std::string first_lattice_hint(const Fault& fault) {
  const double value = number_of(*fault.node.ToElement(), "val", Kind::real);
  const std::string reading = other_reading(usual_range(Quantity::lattice), value);
  return "stress_state of the first pre-stage is its in-plane lattice constant in angstrom, such as 3.189 for GaN; "
         "a degree of relaxation has no layer below to refer to" +
         (reading.empty() ? "" : "; " + reading);
}

// ---- Faults

Problem problem_of(const Fault& fault, const StagePlace& place) {
  constexpr std::pair<const char*, std::string (*)(const Fault&)> KINDS[] = {
      {"missing-element", missing_element_hint},
      {"missing-attribute", missing_attribute_hint},
      {"no-number", [](const Fault& one) { return value_hint(*one.row); }},
      {"unknown-keyword", keyword_hint},
      {"not-allowed", value_fault_hint},
      {"nested-periodic", [](const Fault&) { return std::string("write out the inner sequence"); }},
      {"not-allowed", first_lattice_hint},
  };
  const auto& [kind, hint] = KINDS[static_cast<std::size_t>(fault.kind)];
  Problem problem;
  // An attribute that is missing has the place of its element.
  const char* attribute = fault.kind == FaultKind::missing_attribute ? nullptr : fault.attribute;
  if (const TiXmlElement* element = fault.node.ToElement()) {
    problem = problem_at(Severity::error, kind, *element, attribute, place, fault.text, hint(fault));
  } else {
    problem.kind = kind;
    problem.text = fault.text;
    problem.hint = hint(fault);
  }
  if (fault.kind == FaultKind::missing_element) {
    problem.path = vorlen::child_full_name(fault.node, fault.name.c_str());
  }
  // What the library says of the stages that it has not read.
  if (fault.kind == FaultKind::incomplete) problem.text = "Number of stages is zero";
  return problem;
}

bool collect_fault(void* context, const Fault& fault) {
  Collection& collection = collection_of(context);
  Reading& reading = collection.reading;
  const TiXmlElement* element = fault.node.ToElement();
  const auto read = reading.elements.find(element);
  const StagePlace place = read == reading.elements.end() ? StagePlace{} : read->second.place;
  (fault.late ? collection.late_errors : reading.errors).push_back(problem_of(fault, place));
  if (fault.row != nullptr) reading.faulty.insert(fault.row);
  // The children of a periodic stage inside another one mean nothing.
  if (fault.kind == FaultKind::nested_periodic)
    reading.elements[element->Parent()->ToElement()].children = Section::none;
  return true;
}

// ---- Elements and stages

void warn_of_number(Reading& reading, const TiXmlElement& element, const Row& row, const char* attribute,
                    const StagePlace& place) {
  const char* text = element.Attribute(attribute);
  if (text == nullptr) return;
  double value = 0.0;
  const char* rest = read_number(text, row.kind, value);
  if (rest == nullptr) return;
  const auto warn = [&](const char* kind, std::string words, std::string hint) {
    reading.warnings.push_back(
        problem_at(Severity::warning, kind, element, attribute, place, std::move(words), std::move(hint)));
  };
  if (!is_blank(rest)) {
    std::string hint = "write only the number";
    if (*rest == ',') {
      std::string with_point = text;
      with_point[with_point.find(',')] = '.';
      hint = "the decimal separator is the point: " + short_name(with_point);
    }
    if (*rest == '.') hint = "this is an integer";
    warn("trailing-characters",
         fmt::format("\"{}\" of attribute {} in element {} reads as {}", short_name(text), attribute,
                     element_full_name(&element), number_words(value)),
         hint);
  }
  if (!std::isfinite(value)) {
    warn("not-finite",
         fmt::format("\"{}\" of attribute {} in element {} is not finite", short_name(text), attribute,
                     element_full_name(&element)),
         "the limits do not reject it, but nothing can be computed with it");
  }
}

// A text close to a keyword, where any other text is allowed too.
void warn_of_free_keyword(Reading& reading, const TiXmlElement& element, const Row& row, const StagePlace& place) {
  const char* text = element.Attribute("val");
  if (text == nullptr) return;
  reading.stress_known = true;
  const std::string_view nearest = nearest_word(text, words_of(row));
  if (nearest.empty() || vorlen::equal_ignoring_case(text, nearest.data())) return;
  reading.warnings.push_back(
      problem_at(Severity::warning, "misspelt-keyword", element, "val", place,
                 fmt::format("\"{}\" in element {} means \"no relaxation\"", text, element_full_name(&element)),
                 fmt::format("did you mean {}?", nearest)));
}

void collect_element(void* context, const TiXmlElement& element, const Row& row, Section children) {
  Reading& reading = collection_of(context).reading;
  ReadElement& read = reading.elements[&element];
  if (read.row != nullptr) {
    read.children = children;  // a periodic stage
    return;
  }
  StagePlace place;
  if (row.kind == Kind::stage_list) {
    place.label = element.ValueStr();
    const TiXmlElement* name = element.FirstChildElement("name");
    if (name != nullptr && name->Attribute("val") != nullptr) place.name = name->Attribute("val");
  } else if (const TiXmlElement* parent = element.Parent()->ToElement()) {
    place = reading.elements.at(parent).place;
  }
  reading.elements[&element] = {children, &row, place};
  if (row.section < Section::layer) reading.outside_stages[&row] = &element;
  if (row.kind == Kind::keyword) {
    if (*row.rejection == '\0') warn_of_free_keyword(reading, element, row, place);
  } else if (row.kind != Kind::text) {
    for (const char* attribute : attributes_of(row)) warn_of_number(reading, element, row, attribute, place);
  }
}

void collect_stage(void* context, const TiXmlElement& element, const vorlen::StageRecord& record) {
  Reading& reading = collection_of(context).reading;
  ReadStage stage;
  stage.element = &element;
  stage.place = reading.elements.at(&element).place;
  stage.disl_model = record.disl_model;
  if (!record.T.undefined()) stage.T = record.T;
  if (!record.P.undefined()) stage.P = record.P;
  if (!record.omega_TDR.undefined()) stage.omega_TDR = record.omega_TDR;
  stage.tau = record.tau;
  stage.delta = record.delta;
  stage.GR_average = record.GR_average;
  for (std::size_t k = 0; k < stage.Q.size(); ++k) {
    if (!record.Q[k].undefined()) stage.Q[k] = record.Q[k];
  }
  reading.stages.push_back(stage);
}

// The last sub-stage of a periodic stage with several periods is followed by the first.
void mark_repetitions(Reading& reading) {
  std::vector<ReadStage>& stages = reading.stages;
  for (std::size_t first = 0, next = 0; first < stages.size(); first = next) {
    const TiXmlElement* parent = stages[first].element->Parent()->ToElement();
    for (next = first; next < stages.size() && stages[next].element->Parent() == parent; ++next) {
    }
    const TiXmlElement* n_periods = parent->FirstChildElement("n_periods");
    if (reading.elements.at(parent).children != Section::periodic || n_periods == nullptr) continue;
    if (number_of(*n_periods, "val", Kind::integer) > 1.0) stages[next - 1].repeats_from = static_cast<int>(first);
  }
}

}  // namespace

double number_of(const TiXmlElement& element, const char* attribute, Kind kind) {
  double value = std::numeric_limits<double>::quiet_NaN();
  if (const char* text = element.Attribute(attribute)) read_number(text, kind, value);
  return value;
}

const TiXmlElement* Reading::good_element(Section section, const char* name) const {
  const Row* row = find_row(section, name);
  const auto found = outside_stages.find(row);
  return found == outside_stages.end() || faulty.count(row) != 0 ? nullptr : found->second;
}

std::string list_prefix(const Row& row, const TiXmlElement& list) {
  if (row.section == Section::periodic) return list.ValueStr() + "_";
  return {row.name, std::strlen(row.name) - 1};
}

std::string stage_count_words(Section section, const TiXmlElement& list) {
  for (const Row* row : rows_of(section)) {
    const TiXmlElement* count = list.FirstChildElement(row->name);
    const bool is_count = row->kind == Kind::integer && row->rejection_above != nullptr;
    const char* number = is_count && count != nullptr ? count->Attribute("val") : nullptr;
    if (number != nullptr) return fmt::format("{} is {}", row->name, number);
  }
  return "";
}

std::string value_hint(const Row& row) {
  const std::string unit = *row.unit != '\0' && row.kind != Kind::arrhenius ? std::string(" ") + row.unit : "";
  return plain(fmt::format("{}: {}{}", row.meaning, allowed_words(row), unit));
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
  Reading reading;
  Collection collection{reading, {}};
  read_document(document, reading.recipe, {&collection, collect_fault, collect_element, collect_stage});
  mark_repetitions(reading);
  check_recipe_as_a_whole(reading);
  reading.model_is_next = reading.errors.empty();
  predict_model_faults(reading);
  reading.errors.insert(reading.errors.end(), collection.late_errors.begin(), collection.late_errors.end());
  return reading;
}

}  // namespace vorlen::recipe
