// vorlen diff A B: where two result files differ most, column by column.
#include <fmt/color.h>
#include <fmt/core.h>

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "results/result_check.h"
#include "results/result_diff.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace {

constexpr int EXIT_DIFFERENT = 1;
constexpr int EXIT_TROUBLE = 2;  // as cmp and diff do

struct DiffOptions {
  std::string a;
  std::string b;
  double tolerance = 0.0;
  bool json = false;
};

std::string unit_of(std::size_t column) {
  const char* unit = vorlen::column_at(column).unit;
  return std::strcmp(unit, "angstrom") == 0 ? unit_names().angstrom : unit;
}

std::string text_of(const ResultDifference& difference, std::size_t rows_a, std::size_t rows_b) {
  const bool colour = use_colour(stdout);
  std::string text;
  for (const std::string& sentence : difference.structure) text += sentence + '\n';
  if (difference.columns.empty()) return text;
  if (difference.row_by_row) {
    text += fmt::format("{} rows, compared one by one\n", rows_a);
  } else {
    text += fmt::format("{} rows and {}, compared by height from {} to {} nm\n", rows_a, rows_b,
                        fixed_number(difference.z_begin, 3), fixed_number(difference.z_end, 3));
  }
  Table table{{{"Column", true},
               {"Unit", true},
               {"Largest deviation"},
               {"Relative"},
               {"at z, nm"},
               {"in the first"},
               {"in the second"},
               {"Layer", true}},
              {}};
  for (const ColumnDeviation& found : difference.columns) {
    if (found.largest == 0.0) continue;
    table.rows.push_back({vorlen::column_at(found.column).name, unit_of(found.column), short_number(found.largest),
                          short_number(found.relative), fixed_number(found.z, 3), fmt::format("{:.10g}", found.a),
                          fmt::format("{:.10g}", found.b), printable(found.layer)});
  }
  text += table.rows.empty() ? "No column differs.\n" : '\n' + table_text(table, colour) + '\n';
  const std::string verdict = difference.same ? "The same within the tolerance." : "Different.";
  if (!table.rows.empty() || !difference.same) {
    text += colour && !difference.same ? fmt::format(fmt::fg(fmt::terminal_color::red), "{}", verdict) : verdict;
    text += '\n';
  }
  return text;
}

std::string json_of(const DiffOptions& options, const ResultDifference& difference, std::size_t rows_a,
                    std::size_t rows_b) {
  nlohmann::ordered_json columns = nlohmann::ordered_json::array();
  for (const ColumnDeviation& found : difference.columns) {
    columns.push_back({{"column", vorlen::column_at(found.column).name},
                       {"unit", vorlen::column_at(found.column).unit},
                       {"largest", found.largest},
                       {"relative", found.relative},
                       {"z", found.z},
                       {"layer", found.layer},
                       {"a", found.a},
                       {"b", found.b}});
  }
  const nlohmann::ordered_json document = {{"a", options.a},
                                           {"b", options.b},
                                           {"same", difference.same},
                                           {"tolerance", options.tolerance},
                                           {"structure", difference.structure},
                                           {"rows", {rows_a, rows_b}},
                                           {"row_by_row", difference.row_by_row},
                                           {"z_range", {difference.z_begin, difference.z_end}},
                                           {"columns", columns}};
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

void warn_of_unphysical_rows(const std::string& path, const ResultFile& result) {
  const std::string text = unphysical_text(result, stages_of(result));
  if (!text.empty()) warn(path + ": " + text);
}

int compare_files(const DiffOptions& options) {
  ResultFile a;
  ResultFile b;
  std::string error;
  if (!read_result_file(options.a, a, error) || !read_result_file(options.b, b, error)) {
    return fail(error, EXIT_TROUBLE);
  }
  warn_of_unphysical_rows(options.a, a);
  warn_of_unphysical_rows(options.b, b);
  const ResultDifference difference = compare_results(a, b, options.tolerance);
  const std::string text = options.json ? json_of(options, difference, a.rows.size(), b.rows.size())
                                        : text_of(difference, a.rows.size(), b.rows.size());
  if (print_out(text) != EXIT_OK) return EXIT_TROUBLE;
  return difference.same ? EXIT_OK : EXIT_DIFFERENT;
}

}  // namespace

void add_diff_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* diff = app.add_subcommand("diff", "Compare two result files, layer by layer and column by column");
  diff->add_option("A", options->a, "Result file")->required()->type_name("")->check(not_empty());
  diff->add_option("B", options->b, "Result file to compare with it")->required()->type_name("")->check(not_empty());
  diff->add_option("--tolerance", options->tolerance,
                   "Relative deviation to ignore (default: 0). Deviations of a column are relative\n"
                   "to its largest magnitude in both files")
      ->type_name("X")
      ->check(non_negative_number());
  diff->add_flag("--json", options->json, "JSON, with all digits and all columns");
  diff->footer(
      "Exit status: 0 the same, 1 different, 2 a file cannot be read.\n\n"
      "Example:\n  vorlen diff yesterday.result.txt today.result.txt --tolerance 1e-6");
  diff->callback([options, &status] { status = compare_files(*options); });
}
