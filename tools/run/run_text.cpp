// Tables of runs.
#include "run/run_text.h"

#include <fmt/color.h>
#include <fmt/core.h>

#include <cmath>
#include <cstdio>
#include <iterator>

#include "platform/terminal.h"
#include "run/status_file.h"
#include "terminal/printable.h"
#include "terminal/row_groups.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace {

std::string layer_table(const ResultFile& result) {
  Table table{{{" No."}, {"Layer", true}, {"Duration, s"}, {"Thickness, nm"}}, {}};
  for (const ResultLayer& layer : result.layers) {
    table.rows.push_back({std::to_string(table.rows.size() + 1), printable(layer.name),
                          fmt::format("{:.10g}", layer.duration), fixed_number(layer.thickness, 3)});
  }
  table.names = 2;
  if (platform::is_terminal(stdout)) {
    std::vector<std::string> keys;
    for (const std::vector<std::string>& row : table.rows) keys.push_back(row_key(row, 1));
    keep_groups(table, equal_keys(keys));
  }
  return table_for_stdout(table);
}

std::string last_row_text(const ResultRow& row) {
  std::string text;
  auto out = std::back_inserter(text);
  const double strain = row.at(ResultColumn::EPS_XX_T);
  const char* direction = strain > 0.0 ? ", stretched" : ", compressed";
  // A pre-stage or post-stage was not simulated: its rate is the recipe's own number.
  const std::string rate_unit =
      row.active ? "nm/s" : std::string(unit_names().micrometres_per_hour) + ", as the recipe gives it";
  fmt::format_to(out, "At the end, {:.10g} s:\n", row.at(ResultColumn::TIME));
  fmt::format_to(out, "  total thickness      {} nm\n", fixed_number(row.at(ResultColumn::Z), 3));
  fmt::format_to(out, "  growth rate          {:.4f} {}\n", row.at(ResultColumn::RATE), rate_unit);
  fmt::format_to(out, "  composition          In {}, Ga {}, Al {}\n", fixed_number(row.at(ResultColumn::X_IN), 3),
                 fixed_number(row.at(ResultColumn::X_GA), 3), fixed_number(row.at(ResultColumn::X_AL), 3));
  fmt::format_to(out, "  in-plane strain      {} %{}\n", fixed_number(100.0 * strain, 3),
                 std::fabs(strain) < 5e-6 ? "" : direction);
  fmt::format_to(out, "  dislocation density  {:.3g} cm^-2\n", row.at(ResultColumn::RHO_TD_T));
  // The column holds two times the density.
  const double v_defects = row.at(ResultColumn::RHO_VD0_T) / 2.0;
  if (v_defects > 0.0) fmt::format_to(out, "  V-defects            {:.3g} cm^-2\n", v_defects);
  return text;
}

struct StateWord {
  const char* word;
  fmt::terminal_color colour;
};

StateWord word_of(JobState state) {
  switch (state) {
    case JobState::DONE:
      return {"done", fmt::terminal_color::green};
    case JobState::SKIPPED:
      return {"up to date", fmt::terminal_color::green};
    case JobState::FAILED:
      return {"failed", fmt::terminal_color::red};
    case JobState::WAITING:
    case JobState::RUNNING:
      break;
  }
  return {"not run", fmt::terminal_color::yellow};
}

}  // namespace

std::string run_text(const ResultFile& result, const Job& job) {
  std::string how = fmt::format("Simulated in {:.2f} s, {} scheme.", job.wall_time, scheme_of(job));
  RunStatus status;
  if (job.state == JobState::SKIPPED && read_status_file(job.paths.status, status)) {
    how = fmt::format("Up to date, simulated on {} at {} in {:.2f} s, {} scheme (--force runs it again).",
                      printable(status.host), printable(status.finished), status.wall_time, scheme_of(job));
  }
  return layer_table(result) + '\n' + last_row_text(result.rows.back()) +
         fmt::format("\n{} {} rows in {}\n", how, result.rows.size(), printable(job.paths.result));
}

std::string batch_text(const std::vector<Job>& jobs) {
  const bool colour = use_colour(stdout);
  Table table{{{"Recipe", true}, {"Run", true}, {"Time, s"}, {"Result", true}}, {}};
  for (const Job& job : jobs) {
    const StateWord state = word_of(job.state);
    const bool has_result = job.state == JobState::DONE || job.state == JobState::SKIPPED;
    const bool has_run = job.state == JobState::DONE || job.state == JobState::FAILED;
    table.rows.push_back(
        {printable(job.recipe), colour ? fmt::format(fmt::fg(state.colour), "{}", state.word) : state.word,
         has_run ? fmt::format("{:.2f}", job.wall_time) : "-", has_result ? printable(job.paths.result) : "-"});
  }
  return table_for_stdout(table);
}
