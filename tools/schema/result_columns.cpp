// The columns of a result file for docs/result-format.md and for the Python package.
#include <fmt/core.h>

#include <span>
#include <string_view>

#include "results/columns.h"
#include "schema/result_columns.h"

namespace {

using vorlen::Column;

struct ColumnTable {
  std::string_view name;  // in the page
  const char* variable;   // in the Python module
  std::size_t first;      // number of the first column, from 1
  std::span<const Column> rows;
};

constexpr std::size_t FIRST_SURFACE = vorlen::N_RESULT_COLUMNS + 1;
const ColumnTable TABLES[] = {
    {"result columns", "RESULT_COLUMNS", 1, vorlen::RESULT_COLUMNS},
    {"surface columns", "SURFACE_COLUMNS", FIRST_SURFACE, vorlen::SURFACE_COLUMNS},
    {"relaxation columns", "RELAXATION_COLUMNS", FIRST_SURFACE + vorlen::N_SURFACE_COLUMNS, vorlen::RELAXATION_COLUMNS},
};

std::string without_backticks(std::string_view markdown) {
  std::string text;
  for (const char c : markdown) {
    if (c != '`') text += c;
  }
  return text;
}

}  // namespace

std::string result_columns_table(std::string_view name) {
  for (const ColumnTable& table : TABLES) {
    if (table.name != name) continue;
    std::string text = "| no. | heading | name | unit | content |\n|---|---|---|---|---|\n";
    std::size_t number = table.first;
    for (const Column& column : table.rows) {
      text += fmt::format("| {} | `{}` | `{}` | {} | {} |\n", number++, column.heading, column.name, column.unit,
                          column.meaning);
    }
    return text;
  }
  return "";
}

std::string result_columns_module() {
  std::string text = R"(# Written by write_recipe_files from src/results/columns.h: change it there.
"""The columns of a result file."""

from typing import NamedTuple


class Column(NamedTuple):
    heading: str  # in the file
    name: str  # of the column of a data frame
    unit: str  # "1" if dimensionless
    words: str  # in messages
    meaning: str
)";
  for (const ColumnTable& table : TABLES) {
    text += fmt::format("\n\n{} = (\n", table.variable);
    for (const Column& column : table.rows) {
      text += fmt::format("    Column(\"{}\", \"{}\", \"{}\", \"{}\", \"{}\"),\n", column.heading, column.name,
                          *column.unit == '\0' ? "1" : column.unit, column.words, without_backticks(column.meaning));
    }
    text += ")\n";
  }
  return text;
}
