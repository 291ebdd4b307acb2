// What the library silently ignores: elements, attributes and texts that are not read.
#include <fmt/core.h>

#include <cstring>
#include <string_view>
#include <unordered_map>

#include "check/nearest_word.h"
#include "check/recipe_reading.h"
#include "check/stage_conditions.h"
#include "recipe/xml_lookup.h"

namespace vorlen::recipe {

namespace {

// The row of a child, also in lists of stages; null for an unknown element.
const Row* row_of_child(Section section, const TiXmlElement& parent, const TiXmlElement& child) {
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::stage_list) {
      if (stage_number(list_prefix(*row, parent) + "#", child.Value()) > 0) return row;
    } else if (child.ValueStr() == row->name) {
      return row;
    }
  }
  return nullptr;
}

// Why an element of the table is not read here; empty when that is not known.
std::string reason_of(const Row& row, const Reading& reading) {
  if (row.condition == Condition::given) return "it is read only with disl_model given";
  if (asked(row.condition, reading.recipe, reading.stress_known) != Asked::no) return "";
  if (row.condition == Condition::stress_off) return "with V_dislocation the density follows from the last pre-stage";
  if (row.condition == Condition::stress_on) return "it is read only with V_dislocation";
  return "it is read only with the transport " + plain(condition_words(row.condition));
}

struct Unread {
  const Reading& reading;
  std::vector<Problem>& warnings;
  Causes causes{};
  Causes uncounted{};  // stages, by their list

  void warn(const char* kind, const TiXmlElement& element, const char* attribute, const StagePlace& place,
            std::string text, std::string hint, int number = 1);
  void look_at_attributes(const TiXmlElement& element, const ReadElement& read);
  void look_at_repeated(const TiXmlElement& child, const ReadElement& read, const TiXmlElement& first, int number);
  void look_at_child(const TiXmlElement& child, const TiXmlElement& parent, const ReadElement& read);
  void look_at(const TiXmlElement& element);
};

// The names from below the stage down to the element; empty for the stage itself.
std::string path_in_stage(const TiXmlElement& element, const StagePlace& place) {
  const std::string path = vorlen::element_full_name(&element);
  const std::size_t stage = path.rfind(place.label + ":");
  return stage == std::string::npos ? "" : path.substr(stage + place.label.size());
}

// In stages, one warning for all elements of the same name and number, or for all attributes of the same name there.
void Unread::warn(const char* kind, const TiXmlElement& element, const char* attribute, const StagePlace& place,
                  std::string text, std::string hint, int number) {
  Problem problem = problem_at(Severity::warning, kind, element, attribute, place, std::move(text), std::move(hint));
  if (place.label.empty()) {
    warnings.push_back(std::move(problem));
  } else {
    const std::string name = path_in_stage(element, place);
    causes.add(fmt::format("{} {} {} {}", kind, name, number, attribute == nullptr ? "" : attribute),
               std::move(problem));
  }
}

void Unread::look_at_attributes(const TiXmlElement& element, const ReadElement& read) {
  const std::span<const char* const> known = attributes_of(*read.row);
  for (const TiXmlAttribute* one = element.FirstAttribute(); one != nullptr; one = one->Next()) {
    const std::string_view name = one->Name();
    bool is_known = false;
    for (const char* attribute : known) is_known = is_known || name == attribute;
    // Those of schemas and editors.
    if (is_known || name.starts_with("xml") || name.starts_with("xsi:")) continue;
    const std::string_view nearest = nearest_word(name, {known.begin(), known.end()});
    std::string hint;
    if (!nearest.empty()) {
      hint = fmt::format("did you mean {}?", nearest);
    } else if (known.empty()) {
      hint = "the element has no attributes";
    } else {
      for (const char* attribute : known) hint += (hint.empty() ? "allowed: " : ", ") + std::string(attribute);
    }
    warn("unknown-attribute", element, one->Name(), read.place,
         fmt::format("attribute {} of element {} is not read", name, vorlen::element_full_name(&element)), hint);
  }
}

// The element of that number of its name, from 2 on.
void Unread::look_at_repeated(const TiXmlElement& child, const ReadElement& read, const TiXmlElement& first,
                              int number) {
  if (reading.elements.count(&first) == 0) return;  // the first one has a warning already
  warn(
      "duplicate", child, nullptr, read.place,
      fmt::format("{} element {} is not read", number == 2 ? "a second" : "another", vorlen::element_full_name(&child)),
      fmt::format("the first one, on line {}, is used", first.Row()), number);
}

void Unread::look_at_child(const TiXmlElement& child, const TiXmlElement& parent, const ReadElement& read) {
  const std::string path = vorlen::element_full_name(&child);
  const Row* row = row_of_child(read.children, parent, child);
  if (row == nullptr) {
    std::vector<std::string_view> names;
    for (const Row* known : rows_of(read.children)) {
      if (known->kind != Kind::stage_list) names.emplace_back(known->name);
    }
    const std::string_view nearest = nearest_word(child.Value(), names);
    std::string hint = nearest.empty() ? "" : fmt::format("did you mean {}?", nearest);
    if (read.children == Section::root && find_row(Section::integration, child.Value()) != nullptr) {
      hint = "it belongs in integration";
    } else if (read.children == Section::root && find_row(Section::output, child.Value()) != nullptr) {
      hint = "it belongs in output";
    } else if (read.children == Section::periodic && find_row(Section::stage, child.Value()) != nullptr) {
      hint = fmt::format("it belongs in {}_1 and the other sub-stages", parent.Value());
    } else if (read.row->kind != Kind::container && read.row->kind != Kind::stage_list) {
      hint = "values are given in attributes";
    }
    warn("unknown-element", child, nullptr, read.place, fmt::format("unknown element {} is ignored", path), hint);
    return;
  }
  if (row->kind == Kind::stage_list) {
    const TiXmlElement* name = child.FirstChildElement("name");
    const char* users_name = name == nullptr ? nullptr : name->Attribute("val");
    const StagePlace place{child.ValueStr(), users_name == nullptr ? "" : users_name};
    uncounted.add(parent.ValueStr(),
                  problem_at(Severity::warning, "uncounted-stage", child, nullptr, place,
                             fmt::format("element {} is not read", path), stage_count_words(read.children, parent)));
    return;
  }
  const std::string reason = reason_of(*row, reading);
  if (!reason.empty()) {
    // The same in every stage of a recipe.
    causes.add(row->name + reason, problem_at(Severity::warning, "not-read", child, nullptr, read.place,
                                              fmt::format("element {} is not read", path), reason));
  }
}

void Unread::look_at(const TiXmlElement& element) {
  const ReadElement& read = reading.elements.at(&element);
  look_at_attributes(element, read);
  // A nested periodic stage, whose children have no meaning.
  if (read.row->kind == Kind::stage_list && read.children == Section::none) return;
  struct Named {
    const TiXmlElement* first = nullptr;
    int count = 0;
  };
  std::unordered_map<std::string_view, Named> names;
  for (const TiXmlNode* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
    if (const TiXmlText* text = node->ToText(); text != nullptr && !is_blank(text->Value())) {
      Problem problem = problem_at(Severity::warning, "stray-text", element, nullptr, read.place,
                                   fmt::format("text in element {} is not read", vorlen::element_full_name(&element)),
                                   "values are given in attributes");
      problem.line = text->Row();
      problem.column = text->Column();
      warnings.push_back(std::move(problem));
    }
    const TiXmlElement* child = node->ToElement();
    if (child == nullptr) continue;
    Named& named = names[child->ValueStr()];
    if (++named.count == 1) named.first = child;
    if (reading.elements.count(child) != 0) {
      look_at(*child);
    } else if (named.count > 1) {
      look_at_repeated(*child, read, *named.first, named.count);
    } else {
      look_at_child(*child, element, read);
    }
  }
}

}  // namespace

void warn_of_unread(const TiXmlDocument& document, const Reading& reading, std::vector<Problem>& warnings) {
  Unread unread{reading, warnings};
  for (const TiXmlElement* top = document.FirstChildElement(); top != nullptr; top = top->NextSiblingElement()) {
    if (reading.elements.count(top) != 0) {
      unread.look_at(*top);
      continue;
    }
    const std::string_view nearest = nearest_word(top->Value(), {root_name()});
    unread.warn("unknown-element", *top, nullptr, {},
                fmt::format("element {} outside of the root is not read", top->Value()),
                nearest.empty() || top->ValueStr() == nearest ? "a recipe has one root, NonstSurfChem"
                                                              : "did you mean NonstSurfChem?");
  }
  unread.causes.report(warnings);
  unread.uncounted.report(warnings, "nor");
}

}  // namespace vorlen::recipe
