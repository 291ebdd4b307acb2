// vorlen show RESULT: the layers of a result file as text, CSV or JSON, or its rows as CSV.
#include <fmt/core.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "platform/terminal.h"
#include "results/layer_json.h"
#include "results/layer_values.h"
#include "results/result_check.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/printable.h"
#include "terminal/row_groups.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace {

struct ShowOptions {
  std::string result;
  bool csv = false;
  bool json = false;
  bool rows = false;
  bool all = false;
};

constexpr double SMALLEST_SHOWN_FRACTION = 0.0005;
constexpr double UM_PER_H = 3.6;  // 1 nm/s in um/h

// The formula of the alloy: "GaN", "In0.152Ga0.848N". Metals that round to nothing are left out.
std::string formula(const std::array<double, 3>& x) {
  static constexpr std::array<const char*, 3> SYMBOLS = {"In", "Ga", "Al"};
  static constexpr std::array<std::size_t, 3> ORDER = {0, 2, 1};  // as the alloys are named: In, Al, Ga
  if (std::isnan(x[0] + x[1] + x[2])) return "-";
  std::string text;
  for (const std::size_t metal : ORDER) {
    if (std::fabs(x[metal]) < SMALLEST_SHOWN_FRACTION) continue;
    text += SYMBOLS[metal];
    if (std::fabs(x[metal] - 1.0) >= SMALLEST_SHOWN_FRACTION) text += fmt::format("{:.3f}", x[metal]);
  }
  return text + 'N';
}

// all: a line for each layer; otherwise one for those with the same values.
std::string text_of(const std::vector<LayerValues>& layers, bool all) {
  const std::string um_per_h = std::string("Rate, ") + unit_names().micrometres_per_hour;
  Table growth{{{" No."},
                {"Layer", true},
                {"Stage", true},
                {"Duration, s"},
                {"Thickness, nm"},
                {"Rate, nm/s"},
                {um_per_h},
                {"Mean composition", true},
                {"At its end", true}},
               {},
               2};
  Table strain{{{" No."},
                {"Layer", true},
                {"Strain as grown, %"},
                {"at the end, %"},
                {"Relaxation, %"},
                {"Dislocations as grown, cm^-2"},
                {"at the end, cm^-2"},
                {"V-defects, cm^-2"}},
               {},
               2};
  std::vector<std::string> keys;
  std::size_t number = 0;
  for (const LayerValues& layer : layers) {
    const std::string label = std::to_string(++number);
    const std::string name = printable(layer.name);
    growth.rows.push_back({label, name, layer_kind_name(layer.kind), fmt::format("{:.10g}", layer.duration),
                           fixed_number(layer.thickness, 3), fixed_number(layer.mean_rate, 4),
                           fixed_number(UM_PER_H * layer.mean_rate, 3), formula(layer.x), formula(layer.x_end)});
    strain.rows.push_back({label, name, fixed_number(100.0 * layer.eps_xx_t, 3),
                           fixed_number(100.0 * layer.eps_xx_z, 3), fixed_number(100.0 * layer.relaxation, 1),
                           short_number(layer.rho_td_t), short_number(layer.rho_td_z),
                           short_number(layer.v_defects_t)});
    keys.push_back(row_key(growth.rows.back(), 1) + row_key(strain.rows.back(), 1));
  }
  const std::vector<Indices> groups = equal_keys(keys);
  const bool grouped = !all && groups.size() < layers.size();
  if (grouped) {
    keep_groups(growth, groups);
    keep_groups(strain, groups);
  }
  return table_for_stdout(growth) + '\n' + table_for_stdout(strain) +
         (grouped ? "\nLayers with the same values are one line; --all lists each.\n" : "");
}

std::string csv_of(const std::vector<LayerValues>& layers) {
  Table table{{{"number"}, {"name"}, {"kind"}}, {}};
  for (const auto& [identifier, value] : layer_numbers(LayerValues())) table.columns.push_back({identifier});
  for (const LayerValues& layer : layers) {
    std::vector<std::string> row = {std::to_string(table.rows.size() + 1), layer.name, layer_kind_name(layer.kind)};
    for (const auto& [identifier, value] : layer_numbers(layer)) row.push_back(exact_number(value));
    table.rows.push_back(row);
  }
  return csv_text(table);
}

// Every row with all columns of the file.
std::string rows_csv_of(const ResultFile& result) {
  Table table{{{"active"}}, {}};
  for (std::size_t c = 0; c < result.column_count; ++c) table.columns.push_back({vorlen::column_at(c).name});
  for (const ResultRow& row : result.rows) {
    std::vector<std::string> cells = {row.active ? "1" : "0"};
    for (std::size_t c = 0; c < result.column_count; ++c) cells.push_back(exact_number(row.at(c)));
    table.rows.push_back(std::move(cells));
  }
  return csv_text(table);
}

int show_result(const ShowOptions& options) {
  ResultFile result;
  std::string error;
  if (!read_result_file(options.result, result, error)) return fail(error);
  const std::vector<LayerValues> layers = layer_values(result);
  const std::string unphysical = unphysical_text(result, stages_of(result));
  if (!unphysical.empty()) warn(options.result + ": " + unphysical);
  if (options.rows) return print_out(rows_csv_of(result));
  if (options.csv) return print_out(csv_of(layers));
  if (options.json) return print_out(layers_json_text(options.result, layers, unphysical));
  return print_out(text_of(layers, options.all || !platform::is_terminal(stdout)));
}

}  // namespace

void add_show_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<ShowOptions>();
  CLI::App* show = app.add_subcommand("show", "Show the layers of a result file");
  show->add_option("RESULT", options->result, "Result file")->required()->type_name("")->check(not_empty());
  CLI::Option* csv = show->add_flag("--csv", options->csv, "Comma-separated values with all digits");
  CLI::Option* json = show->add_flag("--json", options->json, "JSON with all digits; undefined values are null");
  json->excludes(csv);
  show->add_flag("--rows", options->rows,
                 "The rows instead of the layers: all columns, comma-separated, with all digits")
      ->excludes(csv)
      ->excludes(json);
  show->add_flag("--all", options->all, "A separate line for each layer, also on a terminal");
  show->footer("Example:\n  vorlen show algan_gan_hemt.result.txt");
  show->callback([options, &status] { status = show_result(*options); });
}
