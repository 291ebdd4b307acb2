// vorlen timeline RECIPE: the stages of a process on its time axis, periodic ones expanded.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "recipe/process_recipe.h"
#include "recipe/read_recipe.h"
#include "recipe/species_data.h"
#include "tool_output.h"

namespace {

using vorlen::PrePostStageRecord;
using vorlen::ProcessRecipe;
using vorlen::StageRecord;
using vorlen::ValueRange;

struct TimelineOptions {
  std::string recipe;
  bool csv = false;
};

struct Flow {
  const char* name;
  vorlen::GasSpecies species;
};
constexpr std::array<Flow, 7> FLOWS = {{{"TMIn", vorlen::TMIn_g},
                                        {"TMGa", vorlen::TMGa_g},
                                        {"TEGa", vorlen::TEGa_g},
                                        {"TMAl", vorlen::TMAl_g},
                                        {"N2", vorlen::N2_g},
                                        {"NH3", vorlen::NH3_g},
                                        {"H2", vorlen::H2_g}}};

const ValueRange& flow_of(const StageRecord& stage, const Flow& flow) {
  return stage.Q[static_cast<std::size_t>(flow.species)];
}

// A table of texts, printed with aligned columns. The first TEXT_COLUMNS columns are aligned to the left.
using Line = std::vector<std::string>;
constexpr std::size_t TEXT_COLUMNS = 2;

// A time or duration: ten digits hide what the sum of many durations is off by.
std::string time_words(double value) { return fmt::format("{:.10g}", value); }

std::string ramp_words(const ValueRange& range) {
  const std::string begin = fmt::format("{:.6g}", range.val);
  return range.val == range.end ? begin : begin + " -> " + fmt::format("{:.6g}", range.end);
}

template <typename Record>
Line begin_line(const Record& stage) {
  std::string label = stage.label;
  if (stage.period > 0) label += fmt::format(" (period {})", stage.period);
  return {label, one_line(stage.name), time_words(stage.begin_time()), time_words(stage.end_time()),
          time_words(stage.tau)};
}

void append_table(std::string& out, const std::vector<Line>& lines) {
  std::vector<std::size_t> widths(lines.front().size(), 0);
  for (const Line& line : lines) {
    for (std::size_t k = 0; k < line.size(); ++k) widths[k] = std::max(widths[k], columns_of(line[k]));
  }
  for (const Line& line : lines) {
    std::string text;
    for (std::size_t k = 0; k < line.size(); ++k) {
      const std::string fill(widths[k] - columns_of(line[k]), ' ');
      text += (k == 0 ? "" : "  ") + (k < TEXT_COLUMNS ? line[k] + fill : fill + line[k]);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out += text + "\n";
  }
}

void append_layers(std::string& out, const char* heading, const std::vector<PrePostStageRecord>& layers) {
  if (layers.empty()) return;
  std::vector<Line> lines = {{heading, "name", "begin, s", "end, s", "duration, s", "thickness, nm", "In", "Ga", "Al"}};
  for (const PrePostStageRecord& layer : layers) {
    Line line = begin_line(layer);
    for (double value : {layer.thickness, layer.X_In_average, layer.X_Ga_average, layer.X_Al_average}) {
      line.push_back(fmt::format("{:.6g}", value));
    }
    lines.push_back(std::move(line));
  }
  append_table(out, lines);
  out += '\n';
}

// The table leaves out gases that never flow, and the rotation when no stage has one.
std::string table_of(const ProcessRecipe& recipe) {
  std::string out;
  append_layers(out, "pre-stage", recipe.pre_stages);

  std::vector<Flow> flows;
  for (const Flow& flow : FLOWS) {
    const bool used = std::any_of(recipe.active_stages.begin(), recipe.active_stages.end(), [&flow](const auto& stage) {
      return flow_of(stage, flow).val != 0.0 || flow_of(stage, flow).end != 0.0;
    });
    if (used) flows.push_back(flow);
  }
  const bool rotates = std::any_of(recipe.active_stages.begin(), recipe.active_stages.end(),
                                   [](const StageRecord& stage) { return !stage.omega_TDR.undefined(); });
  Line heading = {"stage", "name", "begin, s", "end, s", "duration, s", "T, K", "P, Pa"};
  for (const Flow& flow : flows) heading.push_back(std::string(flow.name) + ", sccm");
  if (rotates) heading.emplace_back("rotation, rpm");
  std::vector<Line> lines = {heading};
  for (const StageRecord& stage : recipe.active_stages) {
    Line line = begin_line(stage);
    line.push_back(ramp_words(stage.T));
    line.push_back(ramp_words(stage.P));
    for (const Flow& flow : flows) line.push_back(ramp_words(flow_of(stage, flow)));
    if (rotates) line.push_back(ramp_words(stage.omega_TDR));
    lines.push_back(std::move(line));
  }
  append_table(out, lines);
  if (!recipe.post_stages.empty()) out += '\n';
  append_layers(out, "post-stage", recipe.post_stages);
  if (out.ends_with("\n\n")) out.pop_back();
  return out;
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

// The shortest digits that read back as the same number.
std::string csv_number(double value) { return fmt::format("{}", value); }

std::string csv_ramp(const ValueRange& range) {
  return range.undefined() ? "," : csv_number(range.val) + "," + csv_number(range.end);
}

template <typename Record>
std::string csv_begin(const char* kind, const Record& stage) {
  const std::string period = stage.period > 0 ? std::to_string(stage.period) : "";
  return fmt::format("{},{},{},{},{},{},{}", kind, stage.label, period, csv_field(stage.name),
                     csv_number(stage.begin_time()), csv_number(stage.end_time()), csv_number(stage.tau));
}

std::string csv_layer(const char* kind, const PrePostStageRecord& layer) {
  // Temperature, pressure, seven flows and rotation stay empty.
  return csv_begin(kind, layer) + std::string(20, ',') +
         fmt::format(",{},{},{},{}\n", csv_number(layer.thickness), csv_number(layer.X_In_average),
                     csv_number(layer.X_Ga_average), csv_number(layer.X_Al_average));
}

std::string csv_of(const ProcessRecipe& recipe) {
  std::string out = "kind,stage,period,name,begin_s,end_s,duration_s,T_begin_K,T_end_K,P_begin_Pa,P_end_Pa";
  for (const Flow& flow : FLOWS) out += fmt::format(",{0}_begin_sccm,{0}_end_sccm", flow.name);
  out += ",omega_TDR_begin_rpm,omega_TDR_end_rpm,thickness_nm,x_in,x_ga,x_al\n";
  for (const PrePostStageRecord& layer : recipe.pre_stages) out += csv_layer("pre", layer);
  for (const StageRecord& stage : recipe.active_stages) {
    out += csv_begin("active", stage) + "," + csv_ramp(stage.T) + "," + csv_ramp(stage.P);
    for (const Flow& flow : FLOWS) out += "," + csv_ramp(flow_of(stage, flow));
    out += "," + csv_ramp(stage.omega_TDR) + ",,,,\n";
  }
  for (const PrePostStageRecord& layer : recipe.post_stages) out += csv_layer("post", layer);
  return out;
}

int show_timeline(const TimelineOptions& options) {
  ProcessRecipe recipe;
  std::string error;
  if (vorlen::read_recipe(options.recipe.c_str(), recipe, error) != 0 || !recipe.validate_recipe(error)) {
    return report_failure(error);
  }
  return print_data(options.csv ? csv_of(recipe) : table_of(recipe));
}

}  // namespace

void add_timeline_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<TimelineOptions>();
  CLI::App* timeline = app.add_subcommand("timeline", "Show the stages of a recipe in time, periodic ones expanded");
  timeline->add_option("RECIPE", options->recipe, "Recipe, an XML file")->required();
  timeline->add_flag("--csv", options->csv, "Comma-separated values with all columns and all digits");
  timeline->footer("A ramp is shown as begin -> end.\nExample: vorlen timeline --csv recipe.xml > timeline.csv");
  timeline->callback([options, &status] { status = show_timeline(*options); });
}
