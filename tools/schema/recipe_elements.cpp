// The elements of a recipe for the Python package.
#include "schema/recipe_elements.h"

#include <fmt/core.h>

#include <string_view>

#include "check/recipe_words.h"

namespace vorlen::recipe {

namespace {

const char* kind_name(Kind kind) {
  switch (kind) {
    case Kind::container:
      return "container";
    case Kind::stage_list:
      return "stages";
    case Kind::text:
      return "text";
    case Kind::keyword:
      return "keyword";
    case Kind::integer:
      return "integer";
    case Kind::real:
      return "real";
    case Kind::range:
      return "range";
    case Kind::arrhenius:
      return "arrhenius";
  }
  return "";
}

std::string quoted(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') literal += '\\';
    literal += c;
  }
  return literal + "\"";
}

// ("val",) or ("val", "end").
template <typename Texts, typename TextOf>
std::string tuple(const Texts& texts, const TextOf& text_of) {
  std::string words;
  for (const auto& text : texts) words += (words.empty() ? "" : ", ") + quoted(text_of(text));
  return "(" + words + (texts.size() == 1 ? ",)" : ")");
}

void append(std::string& out, const std::string& path, const Row& row) {
  out += fmt::format("    Element({}, {}, {}, {}, {}, {}, {}, {}, {}),\n", quoted(path), quoted(kind_name(row.kind)),
                     quoted(row.unit), tuple(attributes_of(row), [](const char* name) { return name; }),
                     row.condition == Condition::optional ? "True" : "False", quoted(row.default_value),
                     tuple(row.keywords, [](const vorlen::Keyword& word) { return word.text; }),
                     quoted(plain(allowed_words(row))), quoted(plain(row.meaning)));
}

// The rows of a section and of what it contains. A stage is listed once as a single one; a periodic one follows,
// without its type and with sub-stages that have the elements of a single one.
void append_section(std::string& out, Section section, const std::string& prefix) {
  for (const Row* row : rows_of(section)) {
    const std::string path = prefix + row->name;
    if (section == Section::periodic && find_row(Section::stage, row->name) != nullptr) continue;
    append(out, path, *row);
    if (section == Section::periodic) continue;
    append_section(out, row->children, path + "/");
    if (row->children == Section::stage) append_section(out, Section::periodic, path + "/");
  }
}

}  // namespace

std::string recipe_elements_module() {
  std::string text = R"(# Written by write_recipe_files from src/recipe/recipe_table.cpp: change it there.
"""The elements of a recipe."""

from typing import NamedTuple


class Element(NamedTuple):
    path: str  # below the root; # is the number of a stage, N_# the numbers of a periodic stage and its sub-stage
    kind: str  # container, stages, text, keyword, integer, real, range or arrhenius
    unit: str  # "" if dimensionless or without a number
    attributes: tuple[str, ...]
    optional: bool
    default: str  # of an optional value
    keywords: tuple[str, ...]
    allowed: str  # in words
    meaning: str

)";
  text += fmt::format("\nROOT = {}\n\nELEMENTS = (\n", quoted(root_name()));
  append_section(text, Section::root, "");
  return text + ")\n";
}

}  // namespace vorlen::recipe
