// vorlen timeline RECIPE: the stages of a process on its time axis, periodic ones expanded.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "check/expected_growth.h"
#include "check/recipe_words.h"
#include "commands.h"
#include "model/surfchem_nonst.h"
#include "platform/terminal.h"
#include "recipe/process_recipe.h"
#include "recipe/read_recipe.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/printable.h"
#include "terminal/row_groups.h"
#include "terminal/table.h"

namespace {

using vorlen::PrePostStageRecord;
using vorlen::ProcessRecipe;
using vorlen::StageRecord;
using vorlen::ValueRange;
using vorlen::recipe::ExpectedGrowth;
using vorlen::recipe::Flow;

struct TimelineOptions {
  std::string recipe;
  bool csv = false;
  bool all = false;
};

// A time or duration: ten digits hide the rounding error of the sum of many durations.
std::string time_words(double value) { return fmt::format("{:.10g}", value); }
std::string value_words(double value) { return fmt::format("{:.6g}", value); }

std::string ramp_words(const ValueRange& range) {
  const std::string begin = value_words(range.val);
  return range.val == range.end ? begin : begin + " -> " + value_words(range.end);
}

using Row = std::vector<std::string>;

constexpr std::size_t N_TIMES = 2;  // columns after the names: start and end

template <typename Record>
Row begin_row(const Record& stage) {
  const std::string period = stage.period > 0 ? fmt::format(" (period {})", stage.period) : "";
  return {stage.label + period, printable(stage.name), time_words(stage.begin_time()), time_words(stage.end_time()),
          time_words(stage.tau)};
}

Table begin_table(const char* kind) {
  return {{{kind, true}, {"name", true}, {"start, s"}, {"end, s"}, {"duration, s"}}, {}, 2};
}

std::string layer_table(const char* kind, const std::vector<PrePostStageRecord>& layers) {
  Table table = begin_table(kind);
  for (const char* heading : {"thickness, nm", "In", "Ga", "Al"}) table.columns.push_back({heading});
  for (const PrePostStageRecord& layer : layers) {
    Row row = begin_row(layer);
    for (double value : {layer.thickness, layer.X_In_average, layer.X_Ga_average, layer.X_Al_average}) {
      row.push_back(value_words(value));
    }
    table.rows.push_back(std::move(row));
  }
  return table_for_stdout(table);
}

// One row for the periods of each stage that differ only in their times. Returns whether there are fewer rows now.
bool keep_first_periods(Table& table, const std::vector<StageRecord>& stages) {
  std::vector<std::string> keys;
  for (std::size_t k = 0; k < stages.size(); ++k) {
    keys.push_back(stages[k].label + '\n' + row_key(table.rows[k], table.names + N_TIMES));
  }
  std::vector<Row> rows;
  for (const Indices& group : equal_keys(keys)) {
    rows.push_back(table.rows[group.front()]);
    if (group.size() == 1) continue;
    Indices periods;
    for (const std::size_t k : group) periods.push_back(static_cast<std::size_t>(stages[k].period) - 1);
    rows.back().front() = fmt::format("{} (periods {})", stages[group.front()].label, numbers_text(periods));
  }
  const bool fewer = rows.size() < table.rows.size();
  table.rows = std::move(rows);
  return fewer;
}

// Four digits; "-" without a number.
std::string growth_words(const std::vector<ExpectedGrowth>& growth, std::size_t stage, double ExpectedGrowth::*value) {
  return growth.empty() || !std::isfinite(growth[stage].*value) ? "-" : fmt::format("{:.4g}", growth[stage].*value);
}

// Without gases that never flow, and without the rotation when no stage has one. all: a row for each period.
std::string stage_table(const std::vector<StageRecord>& stages, const std::vector<ExpectedGrowth>& growth, bool all) {
  std::vector<Flow> flows;
  for (const Flow& flow : recipe::flows()) {
    const bool used = std::any_of(stages.begin(), stages.end(), [&flow](const StageRecord& stage) {
      return stage.Q[flow.species].val != 0.0 || stage.Q[flow.species].end != 0.0;
    });
    if (used) flows.push_back(flow);
  }
  const bool rotates =
      std::any_of(stages.begin(), stages.end(), [](const StageRecord& stage) { return !stage.omega_TDR.undefined(); });
  Table table = begin_table("stage");
  table.columns.push_back({"T, K"});
  table.columns.push_back({"P, Pa"});
  for (const Flow& flow : flows) table.columns.push_back({std::string(flow.name) + ", sccm"});
  if (rotates) table.columns.push_back({"rotation, rpm"});
  table.columns.push_back({"expected nm/s"});
  table.columns.push_back({"expected nm"});
  for (std::size_t k = 0; k < stages.size(); ++k) {
    const StageRecord& stage = stages[k];
    Row row = begin_row(stage);
    row.push_back(ramp_words(stage.T));
    row.push_back(ramp_words(stage.P));
    for (const Flow& flow : flows) row.push_back(ramp_words(stage.Q[flow.species]));
    if (rotates) row.push_back(ramp_words(stage.omega_TDR));
    row.push_back(growth_words(growth, k, &ExpectedGrowth::rate));
    row.push_back(growth_words(growth, k, &ExpectedGrowth::thickness));
    table.rows.push_back(std::move(row));
  }
  const bool fewer = !all && keep_first_periods(table, stages);
  return table_for_stdout(table) +
         (fewer ? "Of several periods, start and end are those of the first; --all lists each.\n" : "");
}

std::string table_of(const ProcessRecipe& recipe, const std::vector<ExpectedGrowth>& growth, bool all) {
  std::string out;
  if (!recipe.pre_stages.empty()) out += layer_table("pre-stage", recipe.pre_stages) + "\n";
  out += stage_table(recipe.active_stages, growth, all);
  if (!recipe.post_stages.empty()) out += "\n" + layer_table("post-stage", recipe.post_stages);
  return out;
}

// ---- Comma-separated values: all columns, all digits; a quantity that a layer does not have is empty

void append_ramp(Row& row, const ValueRange& range) {
  row.push_back(range.undefined() ? "" : exact_number(range.val));
  row.push_back(range.undefined() ? "" : exact_number(range.end));
}

template <typename Record>
Row begin_csv_row(const char* kind, const Record& stage) {
  return {kind,
          stage.label,
          stage.period > 0 ? std::to_string(stage.period) : "",
          stage.name,
          exact_number(stage.begin_time()),
          exact_number(stage.end_time()),
          exact_number(stage.tau)};
}

Row layer_csv_row(const char* kind, const PrePostStageRecord& layer) {
  Row row = begin_csv_row(kind, layer);
  row.resize(row.size() + 2 * (2 + recipe::flows().size() + 1));  // temperature, pressure, flows and rotation
  for (double value : {layer.thickness, layer.X_In_average, layer.X_Ga_average, layer.X_Al_average}) {
    row.push_back(exact_number(value));
  }
  row.resize(row.size() + 2);  // expected growth
  return row;
}

std::string csv_of(const ProcessRecipe& recipe, const std::vector<ExpectedGrowth>& growth) {
  Table table;
  for (const char* heading : {"kind", "stage", "period", "name", "begin_s", "end_s", "duration_s", "T_begin_K",
                              "T_end_K", "P_begin_Pa", "P_end_Pa"}) {
    table.columns.push_back({heading});
  }
  for (const Flow& flow : recipe::flows()) {
    for (const char* end : {"_begin_sccm", "_end_sccm"}) table.columns.push_back({std::string(flow.name) + end});
  }
  for (const char* heading : {"omega_TDR_begin_rpm", "omega_TDR_end_rpm", "thickness_nm", "x_in", "x_ga", "x_al",
                              "expected_rate_nm_s", "expected_thickness_nm"}) {
    table.columns.push_back({heading});
  }
  for (const PrePostStageRecord& layer : recipe.pre_stages) table.rows.push_back(layer_csv_row("pre", layer));
  for (std::size_t k = 0; k < recipe.active_stages.size(); ++k) {
    const StageRecord& stage = recipe.active_stages[k];
    Row row = begin_csv_row("active", stage);
    append_ramp(row, stage.T);
    append_ramp(row, stage.P);
    for (const Flow& flow : recipe::flows()) append_ramp(row, stage.Q[flow.species]);
    append_ramp(row, stage.omega_TDR);
    row.resize(row.size() + 4);  // thickness and composition
    row.push_back(growth.empty() ? "" : exact_number(growth[k].rate));
    row.push_back(growth.empty() ? "" : exact_number(growth[k].thickness));
    table.rows.push_back(std::move(row));
  }
  for (const PrePostStageRecord& layer : recipe.post_stages) table.rows.push_back(layer_csv_row("post", layer));
  return csv_text(table);
}

// Layers without a name get the one that they have in the result file.
void name_layers(ProcessRecipe& recipe) {
  std::size_t number = 0;
  const auto name_all = [&number](auto& stages) {
    for (auto& stage : stages) {
      ++number;
      if (stage.name.empty()) stage.name = "Layer" + std::to_string(number);
    }
  };
  name_all(recipe.pre_stages);
  name_all(recipe.active_stages);
  name_all(recipe.post_stages);
}

// Empty if the model rejects the recipe.
std::vector<ExpectedGrowth> growth_of(const ProcessRecipe& recipe) {
  std::int32_t err = 0;
  vorlen::SurfChemNonst model(recipe, "", err);
  if (err != 0) return {};
  return recipe::expected_growth(model);
}

int show_timeline(const TimelineOptions& options) {
  ProcessRecipe recipe;
  std::string error;
  if (vorlen::read_recipe(options.recipe.c_str(), recipe, error) != 0 || !recipe.validate_recipe(error)) {
    return fail(error);
  }
  name_layers(recipe);
  const std::vector<ExpectedGrowth> growth = growth_of(recipe);
  if (options.csv) return print_out(csv_of(recipe, growth));
  return print_out(table_of(recipe, growth, options.all || !platform::is_terminal(stdout)));
}

}  // namespace

void add_timeline_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<TimelineOptions>();
  CLI::App* timeline =
      app.add_subcommand("timeline", "Show the stages of a recipe on the time axis, periodic ones expanded");
  timeline->add_option("RECIPE", options->recipe, "Recipe, an XML file")->required()->check(not_empty());
  timeline->add_flag("--csv", options->csv, "Comma-separated values with all columns and all digits");
  timeline->add_flag("--all", options->all, "A separate line for each period, also on a terminal");
  timeline->footer(
      "A ramp is shown as start -> end. The expected growth takes in all metals that reach the\n"
      "surface.\n\nExample:\n  vorlen timeline --csv recipe.xml > timeline.csv");
  timeline->callback([options, &status] { status = show_timeline(*options); });
}
