// vorlen run RECIPE [-o RESULT]: one simulation, and what it grew.
#include <fmt/core.h>
#include <vorlen_solver.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>

#include "commands.h"
#include "result_file.h"

namespace {

namespace fs = std::filesystem;

struct RunOptions {
  std::string recipe;
  std::string result;  // empty: default_result_path()
};

int fail(const std::string& text) {
  std::fputs(("vorlen: " + text + "\n").c_str(), stderr);
  return EXIT_FAILED;
}

// The recipe's file name with .result.txt in place of its extension, in the current directory.
std::string default_result_path(const std::string& recipe) { return fs::path(recipe).stem().string() + ".result.txt"; }

// Columns that text takes on a terminal: its characters in UTF-8.
std::size_t display_width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

// A layer name on one line: line breaks and other control characters become blanks.
std::string printable(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20U || c == 0x7f; }, ' ');
  return name;
}

// value with three decimals, without the sign of a value that rounds to zero.
std::string three_decimals(double value) { return fmt::format("{:.3f}", std::fabs(value) < 0.0005 ? 0.0 : value); }

void append_layer_table(std::string& text, const ResultFile& result) {
  const std::string heading = "Layer";
  std::size_t name_width = heading.size();
  for (const ResultLayer& layer : result.layers) {
    name_width = std::max(name_width, display_width(printable(layer.name)));
  }
  auto out = std::back_inserter(text);
  fmt::format_to(out, "{:>5}  {}{:{}}  {:>12}  {:>14}\n", "No.", heading, "", name_width - heading.size(),
                 "Duration, s", "Thickness, nm");
  std::size_t number = 0;
  for (const ResultLayer& layer : result.layers) {
    const std::string name = printable(layer.name);
    fmt::format_to(out, "{:>5}  {}{:{}}  {:>12}  {:>14}\n", ++number, name, "", name_width - display_width(name),
                   fmt::format("{:.10g}", layer.duration), three_decimals(layer.thickness));
  }
}

void append_last_row(std::string& text, const ResultRow& row) {
  const auto column = [&row](ResultColumn c) { return row.values[static_cast<std::size_t>(c)]; };
  auto out = std::back_inserter(text);
  const double strain = column(ResultColumn::EPS_XX_T);
  const char* direction = strain > 0.0 ? "stretched" : "compressed";
  // A pre-stage or post-stage was not simulated: its rate is the recipe's own number.
  const char* rate_unit = row.active ? "nm/s" : "um/h, as the recipe gives it";
  fmt::format_to(out, "At the end, {:.10g} s:\n", column(ResultColumn::TIME));
  fmt::format_to(out, "  total thickness      {} nm\n", three_decimals(column(ResultColumn::Z)));
  fmt::format_to(out, "  growth rate          {:.4f} {}\n", column(ResultColumn::RATE), rate_unit);
  fmt::format_to(out, "  composition          In {}, Ga {}, Al {}\n", three_decimals(column(ResultColumn::X_IN)),
                 three_decimals(column(ResultColumn::X_GA)), three_decimals(column(ResultColumn::X_AL)));
  fmt::format_to(out, "  in-plane strain      {} %{}{}\n", three_decimals(100.0 * strain),
                 std::fabs(strain) < 5e-6 ? "" : ", ", std::fabs(strain) < 5e-6 ? "" : direction);
  fmt::format_to(out, "  dislocation density  {:.3g} cm^-2\n", column(ResultColumn::RHO_TD_T));
  // The column holds two times the density.
  const double v_defects = column(ResultColumn::RHO_VD0_T) / 2.0;
  if (v_defects > 0.0) fmt::format_to(out, "  V-defects            {:.3g} cm^-2\n", v_defects);
}

// True when the table covers the durations of all layers; a file cut off between two rows does not.
bool covers_all_layers(const ResultFile& result) {
  double duration = 0.0;
  for (const ResultLayer& layer : result.layers) {
    duration += layer.duration;
  }
  const auto time = static_cast<std::size_t>(ResultColumn::TIME);
  const double end = result.rows.back().values[time];
  const double gap = std::fabs(end - result.rows.front().values[time] - duration);
  return !(gap > 1e-9 * std::fabs(end));  // the rounding of a long sum; a not-a-number passes
}

// Puts text on stdout as a whole. False when it could not be written.
bool print_out(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int run_recipe(const RunOptions& options) {
  const std::string result_path = options.result.empty() ? default_result_path(options.recipe) : options.result;
  std::error_code ignored;
  if (fs::equivalent(options.recipe, result_path, ignored)) {
    return fail("the result would overwrite the recipe " + options.recipe);
  }

  std::array<char, VORLEN_ERROR_BUFFER_SIZE> error_text{};
  const auto start = std::chrono::steady_clock::now();
  const bool success = runSurfChem(options.recipe.c_str(), result_path.c_str(), error_text.data()) == 0;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!success) return fail(error_text.data());

  ResultFile result;
  std::string error;
  if (!read_result_file(result_path, result, error)) return fail(error);
  if (result.rows.empty() || !covers_all_layers(result)) {
    return fail(result_path + ": the file ends before the run does. Is the disk full?");
  }

  std::string text;
  append_layer_table(text, result);
  text += '\n';
  append_last_row(text, result.rows.back());
  fmt::format_to(std::back_inserter(text), "\nSimulated in {:.2f} s. {} rows in {}\n", elapsed.count(),
                 result.rows.size(), result_path);
  return print_out(text) ? EXIT_OK : fail("standard output can't be written");
}

}  // namespace

void add_run_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<RunOptions>();
  CLI::App* run = app.add_subcommand("run", "Run a recipe, write the result file and show what grew");
  run->add_option("RECIPE", options->recipe, "Recipe, an XML file")->required();
  const CLI::Validator not_empty([](const std::string& value) { return value.empty() ? "is an empty text" : ""; }, "");
  run->add_option("-o,--output", options->result,
                  "Result file to write (default: the recipe's name with .result.txt in place of its\n"
                  "extension, in the current directory). An existing file is overwritten")
      ->type_name("RESULT")
      ->check(not_empty);
  run->callback([options, &status] { status = run_recipe(*options); });
}
