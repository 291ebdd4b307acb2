// The generated tables of docs/recipe-format.md, docs/result-format.md and docs/checking-a-recipe.md.
#include <fmt/core.h>

#include <string_view>
#include <vector>

#include "check/recipe_check.h"
#include "check/recipe_words.h"
#include "check/usual_ranges.h"
#include "schema/recipe_files.h"
#include "schema/result_columns.h"

namespace vorlen::recipe {

namespace {

// A part of a table: the rows of a section and of the containers in it.
struct Part {
  const char* table;
  Section section;
  const char* prefix;  // of the paths
  const char* only;    // the one row of the section that is meant; empty for all
};

constexpr Part PARTS[] = {
    {"material and chemistry", Section::root, "", "material"},
    {"material and chemistry", Section::root, "", "chemistry"},
    {"stress", Section::root, "", "stress"},
    {"transport", Section::root, "", "transport"},
    {"integration", Section::root, "", "integration"},
    {"output", Section::root, "", "output"},
    {"lists of stages", Section::root, "", "pre_stages"},
    {"lists of stages", Section::root, "", "process_stages"},
    {"lists of stages", Section::root, "", "post_stages"},
    {"pre-stages and post-stages", Section::layer, "", ""},
    {"active stages", Section::stage, "", ""},
    {"periodic stages", Section::periodic, "", ""},
};

std::string attribute_words(const Row& row) {
  std::string words;
  for (const char* attribute : attributes_of(row))
    words += (words.empty() ? "`" : ", `") + std::string(attribute) + "`";
  return words;
}

std::string line(const std::string& path, const Row& row) {
  return fmt::format("| {} | {} | {} | {} | {} | {} |\n", path, attribute_words(row), row.unit, allowed_words(row),
                     read_words(row), row.meaning);
}

std::string numbered_path(const std::string& prefix, const Row& row) {
  const std::string name = row.name;
  return fmt::format("`{}{}1` and on", prefix, name.substr(0, name.size() - 1));
}

void append_rows(std::string& out, Section section, const std::string& prefix, std::string_view only) {
  for (const Row* row : rows_of(section)) {
    if (!only.empty() && row->name != only) continue;
    const std::string path = prefix + row->name;
    if (row->kind == Kind::stage_list) {
      out += line(numbered_path(prefix, *row), *row);
      continue;
    }
    const bool is_list = row->kind == Kind::container && path.ends_with("_stages");
    if (row->kind != Kind::container || is_list) out += line("`" + path + "`", *row);
    if (row->kind == Kind::container) append_rows(out, row->children, path + ":", "");
  }
}

std::string kinds_table() {
  std::string table = "| kind | what is silently accepted |\n|---|---|\n";
  for (const WarningKind& kind : warning_kinds()) table += fmt::format("| `{}` | {} |\n", kind.name, kind.meaning);
  return table;
}

// The table of that name; empty for an unknown name.
std::string table_text(std::string_view name) {
  if (name == "kinds of warnings") return kinds_table();
  if (name == "usual ranges") return usual_ranges_table();
  std::string lines;
  for (const Part& part : PARTS) {
    if (part.table == name) append_rows(lines, part.section, part.prefix, part.only);
  }
  if (lines.empty()) return lines;
  return "| path | attribute | unit | allowed values | read | meaning |\n|---|---|---|---|---|---|\n" + lines;
}

}  // namespace

std::string page_with_tables(const std::string& page, std::string& error) {
  constexpr std::string_view BEGIN = "<!-- table: ";
  constexpr std::string_view BEGIN_CLOSE = " -->\n";
  constexpr std::string_view END = "<!-- end of table -->\n";
  std::string out;
  std::size_t at = 0;
  error.clear();
  while (true) {
    const std::size_t begin = page.find(BEGIN, at);
    if (begin == std::string::npos) return out + page.substr(at);
    const std::size_t close = page.find(BEGIN_CLOSE, begin);
    const std::size_t end = page.find(END, begin);
    const std::string name =
        close == std::string::npos ? "" : page.substr(begin + BEGIN.size(), close - begin - BEGIN.size());
    const std::string recipe_table = table_text(name);
    const std::string table = recipe_table.empty() ? result_columns_table(name) : recipe_table;
    if (table.empty() || end == std::string::npos) {
      error = "no table \"" + name + "\", or its end is missing";
      return out + page.substr(at);
    }
    out += page.substr(at, close + BEGIN_CLOSE.size() - at) + "\n" + table + "\n";
    at = end;
  }
}

}  // namespace vorlen::recipe
