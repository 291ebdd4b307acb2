// vorlen diff A B: what differs between the layers of two result files, or where their columns differ most.
#include <fmt/color.h>
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "results/layer_diff.h"
#include "results/result_check.h"
#include "results/result_diff.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/printable.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace {

constexpr int EXIT_DIFFERENT = 1;
constexpr int EXIT_TROUBLE = 2;  // as cmp and diff do

struct DiffOptions {
  std::string a;
  std::string b;
  double tolerance = 0.0;
  bool columns = false;
  bool json = false;
};

std::string unit_of(std::size_t column) {
  const char* unit = vorlen::column_at(column).unit;
  return std::strcmp(unit, "angstrom") == 0 ? unit_names().angstrom : unit;
}

std::string columns_text(const ResultDifference& difference, std::size_t rows_a, std::size_t rows_b) {
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
  text += table.rows.empty() ? "No column differs.\n" : '\n' + table_for_stdout(table) + '\n';
  const std::string verdict = difference.same ? "The same within the tolerance." : "Different.";
  if (!table.rows.empty() || !difference.same) {
    text += colour && !difference.same ? fmt::format(fmt::fg(fmt::terminal_color::red), "{}", verdict) : verdict;
    text += '\n';
  }
  return text;
}

// The largest relative deviation of a column, for files whose layers agree in the digits shown.
std::string deviation_text(const ResultDifference& difference) {
  const ColumnDeviation* largest = nullptr;
  for (const ColumnDeviation& found : difference.columns) {
    if (found.largest > 0.0 && (largest == nullptr || found.relative > largest->relative)) largest = &found;
  }
  if (largest == nullptr) return {};
  return fmt::format("The largest relative deviation of a column is {}, of {} at {} nm, in {} (--columns lists all).\n",
                     short_number(largest->relative), vorlen::column_at(largest->column).name,
                     fixed_number(largest->z, 3), printable(largest->layer));
}

std::string layers_text(const DiffOptions& options, const ResultDifference& difference,
                        const LayerComparison& comparison, const ResultFile& a, const ResultFile& b) {
  const bool nothing_deviates = std::all_of(difference.columns.begin(), difference.columns.end(),
                                            [](const ColumnDeviation& found) { return found.largest == 0.0; });
  if (difference.same && nothing_deviates && a.rows.size() == b.rows.size()) {
    return fmt::format("No difference in {} layers and {} rows.\n", a.layers.size(), a.rows.size());
  }
  if (difference.same) {
    return fmt::format("The same within the tolerance of {:g}.\n", options.tolerance) + deviation_text(difference);
  }
  std::string text = layer_table_text(comparison);
  if (a.column_count != b.column_count) {
    text += fmt::format("The first has {} columns, the second {}.\n", a.column_count, b.column_count);
  }
  const std::string change = largest_change(comparison);
  if (!change.empty()) return text + change + '\n';
  if (a.rows.size() != b.rows.size()) {
    text += fmt::format("The first has {} rows, the second {}.\n", a.rows.size(), b.rows.size());
  }
  return text + deviation_text(difference);
}

// A record for each pair of layers; a layer that is only in one has null for the other.
nlohmann::ordered_json layers_json(const LayerComparison& comparison) {
  const auto& quantities = compared_quantities();
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const ComparedLayer& layer : comparison.layers) {
    nlohmann::ordered_json values;
    for (std::size_t q = 0; q < N_COMPARED; ++q) {
      const ComparedValue& value = layer.values[q];
      values[quantities[q].identifier] = {{"a", value.a},
                                          {"b", value.b},
                                          {"difference", value.b - value.a},
                                          {"visible", value.visible},
                                          {"text", {value.text_a, value.text_b, value.change}}};
    }
    const auto describe = [](const std::vector<LayerValues>& layers, std::size_t index) -> nlohmann::ordered_json {
      if (index == NO_LAYER) return nullptr;
      return {{"number", index + 1}, {"name", layers[index].name}, {"kind", layer_kind_name(layers[index].kind)}};
    };
    list.push_back(
        {{"a", describe(comparison.a, layer.pair.a)}, {"b", describe(comparison.b, layer.pair.b)}, {"values", values}});
  }
  return list;
}

nlohmann::ordered_json quantities_json(const LayerComparison& comparison) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (std::size_t q = 0; q < N_COMPARED; ++q) {
    const ComparedQuantity& quantity = compared_quantities()[q];
    list.push_back({{"quantity", quantity.identifier}, {"heading", quantity.heading}, {"shown", comparison.shown[q]}});
  }
  return list;
}

std::string json_of(const DiffOptions& options, const ResultDifference& difference, const LayerComparison& comparison,
                    std::size_t rows_a, std::size_t rows_b) {
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
                                           {"columns", columns},
                                           {"quantities", quantities_json(comparison)},
                                           {"layers", layers_json(comparison)},
                                           {"largest_change", largest_change(comparison)}};
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

void warn_of_faults(const std::string& path, const ResultFile& result) {
  constexpr double TOLERANCE = 1e-9;  // of the end, for sums of durations that were rounded otherwise
  const std::vector<ProcessStage> stages = stages_of(result);
  const std::string text = unphysical_text(result, stages);
  if (!text.empty()) warn(path + ": " + text);
  if (result.rows.empty() || stages.empty()) return;
  const double missing = stages.back().end - result.rows.back().at(ResultColumn::TIME);
  if (missing > TOLERANCE * std::fabs(stages.back().end)) warn(path + ": " + end_text(result, stages));
}

int compare_files(const DiffOptions& options) {
  ResultFile a;
  ResultFile b;
  std::string error;
  if (!read_result_file(options.a, a, error) || !read_result_file(options.b, b, error)) {
    return fail(error, EXIT_TROUBLE);
  }
  warn_of_faults(options.a, a);
  warn_of_faults(options.b, b);
  const ResultDifference difference = compare_results(a, b, options.tolerance);
  const LayerComparison comparison = compare_layer_values(a, b, options.tolerance);
  std::string text;
  if (options.json) {
    text = json_of(options, difference, comparison, a.rows.size(), b.rows.size());
  } else if (options.columns) {
    text = columns_text(difference, a.rows.size(), b.rows.size());
  } else {
    text = layers_text(options, difference, comparison, a, b);
  }
  if (print_out(text) != EXIT_OK) return EXIT_TROUBLE;
  return difference.same ? EXIT_OK : EXIT_DIFFERENT;
}

}  // namespace

void add_diff_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* diff = app.add_subcommand("diff", "Compare the layers of two result files");
  diff->add_option("A", options->a, "Result file")->required()->type_name("")->check(not_empty());
  diff->add_option("B", options->b, "Result file to compare with it")->required()->type_name("")->check(not_empty());
  diff->add_option("--tolerance", options->tolerance,
                   "Relative deviation to ignore (default: 0). Deviations of a column are relative\n"
                   "to its largest magnitude in both files")
      ->type_name("X")
      ->check(non_negative_number());
  CLI::Option* columns = diff->add_flag("--columns", options->columns,
                                        "The largest deviation of each column of the tables over time and depth,\n"
                                        "instead of the layers");
  diff->add_flag("--json", options->json, "JSON, with all digits, all layers and all columns")->excludes(columns);
  diff->footer(
      "Exit status: 0 the same, 1 different, 2 a file cannot be read.\n\n"
      "Example:\n  vorlen diff yesterday.result.txt today.result.txt --tolerance 1e-6");
  diff->callback([options, &status] { status = compare_files(*options); });
}
