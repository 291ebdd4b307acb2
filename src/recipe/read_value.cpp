// One element of the recipe: its attributes are read, converted, checked against the row of the table and stored.
//
// Values are stored only when all attributes of the element are good. Limits are checked as "outside is a fault", so
// NaN passes where the row does not say otherwise.
#include "recipe/read_value.h"

#include <string_view>

#include "recipe/keywords.h"
#include "recipe/number_text.h"
#include "recipe/xml_lookup.h"

namespace vorlen::recipe {

namespace {

// Null with the fault passed on in go_on.
const char* attribute_text(ReadState& state, const TiXmlElement& element, const Row& row, const char* attribute,
                           bool& go_on) {
  const char* text = element.Attribute(attribute);
  if (text == nullptr) {
    go_on =
        report(state, FaultKind::missing_attribute, element, &row, attribute,
               std::string("Attribute ") + attribute + " of element " + element_full_name(&element) + " is not found");
  }
  return text;
}

bool read_text(ReadState& state, const TiXmlElement& element, const Row& row) {
  bool go_on = true;
  const char* text = attribute_text(state, element, row, "val", go_on);
  if (text != nullptr) *row.field(state.records).text = text;
  return go_on;
}

bool read_keyword(ReadState& state, const TiXmlElement& element, const Row& row) {
  bool go_on = true;
  const char* text = attribute_text(state, element, row, "val", go_on);
  if (text == nullptr) return go_on;
  if (row.section == Section::stress) state.stress_known = true;
  std::int32_t value = 0;
  if (!find_keyword(row.keywords, text, value)) {
    if (*row.rejection == '\0') return true;
    return report(state, FaultKind::unknown_keyword, element, &row, "val", filled(row.rejection, state, element, text));
  }
  const Field field = row.field(state.records);
  if (field.flag != nullptr) {
    *field.flag = value != 0;
  } else {
    *field.word = value;
  }
  return true;
}

bool read_numbers(ReadState& state, const TiXmlElement& element, const Row& row) {
  const std::span<const char* const> attributes = attributes_of(row);
  std::array<double, 3> values{};
  bool complete = true;
  const char* rejection = nullptr;
  for (std::size_t k = 0; k < attributes.size(); ++k) {
    bool go_on = true;
    const char* text = attribute_text(state, element, row, attributes[k], go_on);
    if (text != nullptr && read_number(text, row.kind, values[k]) == nullptr) {
      go_on = report(state, FaultKind::no_number, element, &row, attributes[k],
                     std::string("Failed to get ") + (row.kind == Kind::integer ? "integer" : "real") +
                         " number from value \"" + text + "\" of attribute " + attributes[k] + " in element " +
                         element_full_name(&element));
      text = nullptr;
    }
    if (!go_on) return false;
    if (text == nullptr) {
      complete = false;
    } else if (!row.limits.late && !row.limits.allows(values[k])) {
      const bool above = row.rejection_above != nullptr && values[k] > *row.limits.high;
      rejection = above ? row.rejection_above : row.rejection;
    }
  }
  if (rejection != nullptr) {
    return report(state, FaultKind::not_allowed, element, &row, "val", filled(rejection, state, element));
  }
  if (!complete) return true;
  const Field field = row.field(state.records);
  if (field.word != nullptr) *field.word = static_cast<std::int32_t>(values[0]);
  for (std::size_t k = 0; k < attributes.size() && field.numbers[k] != nullptr; ++k) {
    *field.numbers[k] = row.limits.negative_is_zero && values[k] < 0.0 ? 0.0 : values[k];
  }
  return true;
}

}  // namespace

bool report(ReadState& state, FaultKind kind, const TiXmlNode& node, const Row* row, const char* attribute,
            std::string text, const char* name) {
  ++state.n_faults;
  if (state.names_model) {
    const Row& model = *find_row(Section::transport, "model");
    text += std::string(" (model ") + keyword_of(model, state.records.recipe.transport_model) + ")";
  }
  return state.sink.fault(state.sink.context, {kind, node, row, attribute, name, std::move(text), state.late});
}

bool report_missing(ReadState& state, const TiXmlNode& parent, const Row& row, const char* name) {
  return report(state, FaultKind::missing_element, parent, &row, nullptr,
                "Element " + child_full_name(parent, name) + " is not found", name);
}

std::string filled(const char* pattern, const ReadState& state, const TiXmlElement& element, const char* value) {
  std::string text;
  for (std::string_view rest = pattern; !rest.empty();) {
    if (rest.starts_with("{value}")) {
      text += value;
    } else if (rest.starts_with("{name}")) {
      text += element.ValueStr();
    } else if (rest.starts_with("{path}")) {
      text += element_full_name(&element);
    } else if (rest.starts_with("{stage}")) {
      text += state.records.stage != nullptr ? state.records.stage->label : state.records.layer->label;
    } else {
      text += rest.front();
      rest.remove_prefix(1);
      continue;
    }
    rest.remove_prefix(rest.find('}') + 1);
  }
  return text;
}

const char* read_number(const char* text, Kind kind, double& value) {
  if (kind != Kind::integer) return read_real(text, value);
  std::int32_t whole = 0;
  const char* const end = read_integer(text, whole);
  if (end != nullptr) value = whole;
  return end;
}

bool read_value(ReadState& state, const TiXmlElement& element, const Row& row) {
  switch (row.kind) {
    case Kind::text:
      return read_text(state, element, row);
    case Kind::keyword:
      return read_keyword(state, element, row);
    default:
      return read_numbers(state, element, row);
  }
}

}  // namespace vorlen::recipe
