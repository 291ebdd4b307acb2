// The RELAX NG schema of a recipe, one named pattern per section of the table.
//
// The schema describes recipes that `vorlen check` accepts without complaint, not everything the library lets pass: the
// library ignores unknown, repeated and unused elements and reads "12,5" as 12, and an editor should point these out.
// RELAX NG has no patterns for names and cannot relate distant elements. Therefore every element of a list of stages
// that is not one of its other children counts as a stage, whatever its name; the number of stages is not compared with
// n_stages; and the children of a stage that depend on the models of stress and transport are optional.
#include <fmt/core.h>

#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

#include "check/recipe_words.h"
#include "schema/recipe_files.h"

namespace vorlen::recipe {

namespace {

// ---- XML

struct Node {
  std::string tag;
  std::string attributes;  // as written in the tag, with a leading space: ` name="T"`
  std::vector<Node> children;
  std::string text;  // instead of children
};

using Nodes = std::vector<Node>;

std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else {
      out += c;
    }
  }
  return out;
}

std::string one_line(const Node& node) {
  std::string content = escaped(node.text);
  for (const Node& child : node.children) content += one_line(child);
  const std::string tag = node.tag + node.attributes;
  return content.empty() ? "<" + tag + "/>" : "<" + tag + ">" + content + "</" + node.tag + ">";
}

// Elements that fit on one line are written on one line.
void append_xml(std::string& out, const Node& node, std::size_t depth) {
  constexpr std::size_t LINE = 120;
  const std::string indent(2 * depth, ' ');
  const std::string line = one_line(node);
  if (node.children.empty() || (indent.size() + line.size() <= LINE && line.find("a:doc") == std::string::npos)) {
    out += indent + line + "\n";
    return;
  }
  out += indent + "<" + node.tag + node.attributes + ">\n";
  for (const Node& child : node.children) append_xml(out, child, depth + 1);
  out += indent + "</" + node.tag + ">\n";
}

// ---- Parts of RELAX NG

Node group(const char* tag, Nodes patterns) { return {tag, "", std::move(patterns), ""}; }
Node named(const char* tag, std::string_view name, Nodes patterns = {}) {
  return {tag, fmt::format(" name=\"{}\"", name), std::move(patterns), ""};
}
Node text(const char* tag, std::string content) { return {tag, "", {}, std::move(content)}; }

Node data(const char* type, Nodes facets = {}) {
  return {"data", fmt::format(" type=\"{}\"", type), std::move(facets), ""};
}
Node facet(const char* name, std::string value) {
  return {"param", fmt::format(" name=\"{}\"", name), {}, std::move(value)};
}

// The patterns in any order.
Node interleave(Nodes patterns) {
  return patterns.size() == 1 ? patterns.front() : group("interleave", std::move(patterns));
}

Node optional_if(bool is_optional, Node pattern) {
  return is_optional ? group("optional", {std::move(pattern)}) : pattern;
}

// ---- Values

// A regular expression that matches the word in upper and lower case.
std::string any_case(std::string_view word) {
  std::string out;
  for (const char c : word) {
    const auto letter = static_cast<unsigned char>(c);
    if (std::isalpha(letter) != 0) {
      out += fmt::format("[{}{}]", static_cast<char>(std::toupper(letter)), static_cast<char>(std::tolower(letter)));
    } else {
      out += c;
    }
  }
  return out;
}

Node words_pattern(std::span<const vorlen::Keyword> words) {
  std::string expression;
  for (const vorlen::Keyword& word : words) expression += (expression.empty() ? "" : "|") + any_case(word.text);
  return data("string", {facet("pattern", std::move(expression))});
}

// The words as documented, which editors can complete, or in other letters.
Node words_type(std::span<const vorlen::Keyword> words) {
  Nodes forms;
  for (const vorlen::Keyword& word : words) forms.push_back({"value", " type=\"string\"", {}, word.text});
  forms.push_back(words_pattern(words));
  return group("choice", std::move(forms));
}
Node word_type(const char* word) {
  const vorlen::Keyword keyword{word, 0};
  return words_type({&keyword, 1});
}

Node number_type(const char* type, const Limits& limits) {
  Nodes facets;
  if (limits.low)
    facets.push_back(facet(limits.low_inclusive ? "minInclusive" : "minExclusive", number_words(*limits.low)));
  if (limits.high) {
    facets.push_back(facet(limits.high_inclusive ? "maxInclusive" : "maxExclusive", number_words(*limits.high)));
  }
  if (limits.not_zero) facets.push_back(group("except", {{"value", " type=\"double\"", {}, "0"}}));
  return data(type, std::move(facets));
}

Node value_type(const Row& row) {
  switch (row.kind) {
    case Kind::keyword:
      return words_type(row.keywords);
    case Kind::text:
      return group("text", {});
    case Kind::integer:
      return number_type("integer", row.limits);
    default:
      return number_type("double", row.limits);
  }
}

// ---- Elements

Node documentation(const Row& row) {
  std::string words = row.meaning;
  if (*row.unit != '\0') words += fmt::format(" [{}]", row.unit);
  const std::string allowed = row.kind == Kind::keyword ? "" : allowed_words(row);
  if (!allowed.empty() && allowed != "any") words += ": " + allowed;
  return text("a:documentation", plain(words));
}

// The element of a row without children, whose attributes have this type.
Node value_element(const Row& row, const Node& type) {
  Nodes content = {documentation(row)};
  for (const char* name : attributes_of(row)) content.push_back(named("attribute", name, {type}));
  return named("element", row.name, std::move(content));
}

constexpr const char* ARRHENIUS = "Arrhenius";

Node arrhenius_pattern(const Row& row) {
  Nodes attributes;
  for (const char* name : attributes_of(row)) attributes.push_back(named("attribute", name, {data("double")}));
  return named("define", ARRHENIUS, std::move(attributes));
}

// The pattern of a section is named by the path of its elements; layer, stage and periodic begin a path.
std::string pattern_name(const std::string& section, const Row& row) {
  return section.empty() ? row.name : section + "." + row.name;
}

Node element(const Row& row, const std::string& section) {
  if (row.kind == Kind::container) {
    return named("element", row.name, {documentation(row), named("ref", pattern_name(section, row))});
  }
  if (row.kind == Kind::arrhenius) {
    return named("element", row.name, {documentation(row), named("ref", ARRHENIUS)});
  }
  return value_element(row, value_type(row));
}

const char* stage_pattern(Section list) {
  switch (list) {
    case Section::process_stages:
      return "single-or-periodic";
    case Section::periodic:
      return "stage";
    default:
      return "layer";
  }
}

// The stages of a list: elements of any name except those of the other children.
Node stages(Section list) {
  Nodes others;
  for (const Row* row : rows_of(list)) {
    if (row->kind != Kind::stage_list) others.push_back(text("name", row->name));
  }
  const bool may_be_empty = list == Section::pre_stages || list == Section::post_stages;
  return group(
      may_be_empty ? "zeroOrMore" : "oneOrMore",
      {group("element", {group("anyName", {group("except", std::move(others))}), named("ref", stage_pattern(list))})});
}

bool is_always_read(Condition condition) {
  return condition == Condition::always || condition == Condition::name_of_layer;
}

// The keyword on which other elements of a section depend: with `word` those of `condition` are read, otherwise not.
struct Switch {
  Section section;
  const char* keyword;
  const char* word;
  Condition condition;
};

constexpr Switch SWITCHES[] = {
    {Section::stress, "model", "V_dislocation", Condition::stress_on},
    {Section::transport, "model", "thick_GaN", Condition::thick_GaN},
    {Section::parameters, "reactor", "TDR", Condition::thick_GaN_TDR},
    {Section::layer_dislocations, "disl_model", "given", Condition::given},
    {Section::stage_dislocations, "disl_model", "given", Condition::given},
};

const Switch* switch_of(Section section) {
  for (const Switch& one : SWITCHES) {
    if (one.section == section) return &one;
  }
  return nullptr;
}

// The type of the switch's keyword when the dependent elements are not read.
Node other_word_type(const Row& row, const char* word) {
  const vorlen::Keyword this_one{word, 0};
  if (*row.rejection == '\0')
    return data("string", {group("except", {words_pattern({&this_one, 1})})});  // any other text
  std::vector<vorlen::Keyword> others;
  for (const vorlen::Keyword& keyword : row.keywords) {
    if (std::string_view(keyword.text) != word) others.push_back(keyword);
  }
  return words_type(others);
}

// The two forms of a switch: the word with the elements that depend on it, or another word without them.
Node switch_forms(const Switch& one, const std::string& section) {
  const Row& keyword = *find_row(one.section, one.keyword);
  Nodes with = {value_element(keyword, word_type(one.word))};
  for (const Row* row : rows_of(one.section)) {
    if (row->condition == one.condition) with.push_back(element(*row, section));
  }
  return group("choice", {interleave(std::move(with)), value_element(keyword, other_word_type(keyword, one.word))});
}

// The pattern of a section and of the containers in it.
void add_section(Nodes& out, Section section, const std::string& name) {
  const Switch* const one = switch_of(section);
  Nodes children;
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::stage_list) {
      children.push_back(stages(section));
    } else if (one != nullptr && std::string_view(row->name) == one->keyword) {
      children.push_back(switch_forms(*one, name));
    } else if (std::string_view(row->name) == "type") {
      const bool is_single = section == Section::stage;
      children.push_back(optional_if(is_single, value_element(*row, word_type(is_single ? "single" : "periodic"))));
    } else if (one == nullptr || row->condition != one->condition) {
      children.push_back(optional_if(!is_always_read(row->condition), element(*row, name)));
    }
  }
  out.push_back(named("define", name.empty() ? "recipe" : name, {interleave(std::move(children))}));
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::container) add_section(out, row->children, pattern_name(name, *row));
  }
}

constexpr const char* HEAD = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- RELAX NG schema of a VorlenSolver recipe; see docs/recipe-format.md.
     It accepts tidy recipes. Unknown, repeated and unused elements, and characters that follow a number, are errors
     here, although the library ignores them. `vorlen check` finds what this schema cannot express: numbers of stages,
     elements of a stage that its models require, values that must fit together. -->
)";

}  // namespace

std::string rng_text() {
  Nodes patterns;
  // Attributes of another namespace, such as the place of a schema.
  const Node foreign = group(
      "zeroOrMore",
      {group("attribute", {group("anyName", {group("except", {{"nsName", " ns=\"\"", {}, ""}})}), group("text", {})})});
  patterns.push_back(group("start", {named("element", root_name(), {foreign, named("ref", "recipe")})}));
  add_section(patterns, Section::root, "");
  patterns.push_back(arrhenius_pattern(*find_row(Section::chemistry, "Kd_In")));
  patterns.push_back(
      named("define", "single-or-periodic", {group("choice", {named("ref", "stage"), named("ref", "periodic")})}));
  add_section(patterns, Section::layer, "layer");
  add_section(patterns, Section::stage, "stage");
  add_section(patterns, Section::periodic, "periodic");
  const Node grammar = {"grammar",
                        " xmlns=\"http://relaxng.org/ns/structure/1.0\"\n"
                        "         xmlns:a=\"http://relaxng.org/ns/compatibility/annotations/1.0\"\n"
                        "         datatypeLibrary=\"http://www.w3.org/2001/XMLSchema-datatypes\"",
                        std::move(patterns), ""};
  std::string out = HEAD;
  append_xml(out, grammar, 0);
  return out;
}

}  // namespace vorlen::recipe
