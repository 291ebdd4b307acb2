// simulate() runs in a worker process (batch.h), the other functions in the process that waits for it.
#include "run/simulation.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "api/vorlen_solver.h"
#include "platform/files.h"
#include "platform/program.h"
#include "recipe/read_recipe.h"
#include "results/result_check.h"
#include "results/result_file.h"
#include "run/scheme.h"
#include "run/status_file.h"
#include "terminal/files.h"

namespace {

constexpr std::string_view STATUS_ENDING = ".status.json";

template <std::size_t size>
void copy_text(const std::string& text, std::array<char, size>& target) {
  target.fill('\0');
  text.copy(target.data(), size - 1);
}

// text with the name of the temporary file replaced.
std::string renamed(std::string text, const std::string& temporary, const std::string& name) {
  const std::size_t place = text.find(temporary);
  return place == std::string::npos ? text : text.replace(place, temporary.size(), name);
}

bool exists(const std::string& path) { return platform::file_state(path).kind != platform::FileKind::NONE; }

// The recipe that produced the rows; nothing if it has changed since.
std::optional<vorlen::ProcessRecipe> recipe_of_rows(const Job& job, const SimulationReport& report) {
  vorlen::ProcessRecipe recipe;
  std::string ignored;
  if (sha256_of_file(job.recipe) != report.recipe_sha256.data() ||
      vorlen::read_recipe(job.recipe.c_str(), recipe, ignored) != 0) {
    return std::nullopt;
  }
  return recipe;
}

// The time at which the last stage ends, s; NaN if the recipe is not known.
double end_of_process(const std::optional<vorlen::ProcessRecipe>& recipe) {
  if (!recipe || recipe->active_stages.empty()) return NAN;
  return recipe->post_stages.empty() ? recipe->active_stages.back().end_time() : recipe->post_stages.back().end_time();
}

// Removes an incomplete last line, which is left when a file could not be written to its end. Returns whether there
// was one.
bool drop_cut_line(const std::string& path) {
  const std::uintmax_t size = platform::file_size(path);
  if (size == 0) return false;
  constexpr std::uintmax_t ROW_SIZE_MAX = 1024;  // no row is longer
  std::string end(static_cast<std::size_t>(std::min(size, ROW_SIZE_MAX)), '\0');
  std::ifstream in(platform::stream_path(path), std::ios::binary);
  in.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
  if (!in.read(end.data(), static_cast<std::streamsize>(end.size())) || end.back() == '\n') return false;
  in.close();
  const std::size_t last = end.rfind('\n');
  if (last != std::string::npos) platform::shorten_file(path, size - end.size() + last + 1);
  return true;
}

// What is wrong with the file of a run that ended normally; empty if nothing. end_time: of the process by the recipe, s
// (NaN: not known). cut: the last line was incomplete.
std::string fault_of_file(const std::vector<ResultRow>& rows, bool cut, double end_time, const std::string& name) {
  std::string cut_off = name + ": the file ends before the run does. Is the disk full?";
  if (rows.empty()) return cut_off + "\nNo row could be written";
  // A file may end between two rows; then only the recipe shows that rows are missing.
  const double gap = std::fabs(rows.back().at(ResultColumn::TIME) - end_time);
  return cut || gap > 1e-9 * std::fabs(end_time) ? cut_off : "";  // NaN passes
}

// The message of a failed run with what the rows show about the failure; empty if nothing failed. text: of the library,
// empty if the run ended normally.
std::string text_with_rows(const std::string& text, const ResultFile& result,
                           const std::optional<vorlen::ProcessRecipe>& recipe, const std::string& scheme) {
  const RunFailure failure = failure_of_run(text, result, recipe, scheme);
  std::string lines;
  for (const std::string& line : {failure.text, failure.end, failure.unphysical, failure.remedy}) {
    if (!lines.empty() && !line.empty()) lines += '\n';
    lines += line;
  }
  return lines;
}

void write_status(Job& job, const SimulationReport& report, const std::string& rows) {
  RunStatus status;
  status.result = report.result;
  status.text = report.text.data();
  status.wall_time = report.wall_time;
  status.version = VORLEN_VERSION;
  status.recipe = path_in_status(job.recipe, job.paths.status);
  status.recipe_sha256 = report.recipe_sha256.data();
  status.scheme = report.scheme.data();
  status.result_file = path_in_status(rows.empty() ? job.paths.result : rows, job.paths.status);
  if (!rows.empty()) status.result_sha256 = report.result_sha256.data();
  status.host = platform::host_name();
  status.finished = utc_now();
  std::string error;
  if (write_status_file(job.paths.status, status, error)) return;
  job.text = job.state == JobState::FAILED ? job.text + '\n' + error : error + "; the result itself is in place";
  job.state = JobState::FAILED;
}

// The other results that have the same status file: NAME, NAME.txt and NAME.result.txt.
std::vector<std::string> twins_of(const ResultPaths& paths) {
  const std::string stem = paths.status.substr(0, paths.status.size() - STATUS_ENDING.size());
  std::vector<std::string> twins = {stem, stem + ".txt", stem + ".result.txt"};
  std::erase_if(twins, [&paths](const std::string& twin) { return part_path(twin) == part_path(paths.result); });
  return twins;
}

// True if the status file names the file at path, or a file that has been renamed to it together with the status file.
bool names_file(const RunStatus& status, const std::string& status_path, const std::string& path) {
  if (status.result_file.empty()) return false;
  if (status.result_file == path_in_status(path, status_path)) return true;
  const std::string named = path_from_status(status.result_file, status_path);
  if (exists(named)) return platform::is_same_file(named, path);
  return !status.result_sha256.empty() && status.result_sha256 == sha256_of_file(path);
}

// Rows of failed runs do not show to which of several results they belong: those of the same recipe are replaced.
bool has_recipe_of(const Job& job, const RunStatus& status) {
  return status.recipe == path_in_status(job.recipe, job.paths.status) ||
         (!status.recipe_sha256.empty() && status.recipe_sha256 == sha256_of_file(job.recipe));
}

// Why the status file or the rows of a failed run that exist must not be replaced; empty if they are of this result.
std::string foreign_file(const Job& job) {
  const ResultPaths& paths = job.paths;
  constexpr const char* REMEDY = "move it away, or choose another output";
  const bool has_status = exists(paths.status);
  const bool has_rows = exists(paths.failed);
  RunStatus status;
  if (has_status && !read_status_file(paths.status, status)) {
    return fmt::format("{} is not a status file: {}", paths.status, REMEDY);
  }
  const bool names_rows = names_file(status, paths.status, paths.failed);
  if (has_status && !names_rows && !names_file(status, paths.status, paths.result)) {
    return fmt::format("{} is the status file of {}, not of {}: {}", paths.status,
                       status.result_file.empty() ? "another file" : status.result_file, paths.result, REMEDY);
  }
  if (!has_rows || (names_rows && has_recipe_of(job, status))) return "";
  return fmt::format("{} {}: {}", paths.failed,
                     names_rows ? "has the rows of " + (status.recipe.empty() ? "another recipe" : status.recipe)
                                : "is not from a known run of " + paths.result,
                     REMEDY);
}

}  // namespace

ResultPaths result_paths(const std::string& result) {
  std::string stem = result;
  const auto drop = [&stem](const std::string& ending) {
    const bool ends_so = stem.size() > ending.size() && stem.ends_with(ending) &&
                         !platform::is_separator(stem[stem.size() - ending.size() - 1]);
    if (ends_so) stem.resize(stem.size() - ending.size());
    return ends_so;
  };
  if (drop(".txt")) drop(".result");
  return {result, stem + std::string(STATUS_ENDING), stem + ".failed.txt"};
}

SimulationReport simulate(const Job& job, const std::string& temporary) {
  SimulationReport report;
  copy_text(sha256_of_file(job.recipe), report.recipe_sha256);
  const std::string scheme = scheme_of(job);
  copy_text(scheme, report.scheme);
  std::string recipe = job.recipe;
  std::optional<platform::PrivateFile> copy;
  try {
    const std::string content = job.scheme.empty() ? "" : recipe_under_scheme(job.recipe, job.scheme);
    if (!content.empty()) recipe = path_of_copy(copy.emplace(content));
  } catch (const std::runtime_error& error) {
    copy_text(error.what(), report.text);
    return report;
  }
  std::array<char, VORLEN_ERROR_BUFFER_SIZE> buffer{};
  const auto start = std::chrono::steady_clock::now();
  report.result = runSurfChem(recipe.c_str(), temporary.c_str(), buffer.data());
  report.wall_time = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const bool cut = drop_cut_line(temporary);
  ResultFile result;
  std::string ignored;
  if (!read_result_file(temporary, result, ignored)) result.rows.clear();
  report.keep_rows = !result.rows.empty();
  std::optional<vorlen::ProcessRecipe> process;
  if (report.keep_rows) process = recipe_of_rows(job, report);
  std::string text;
  if (report.result != 0) {
    text = renamed(renamed(buffer.data(), temporary, job.paths.result), recipe, job.recipe);
  } else {
    text = fault_of_file(result.rows, cut, end_of_process(process), job.paths.result);
  }
  text = text_with_rows(text, result, process, scheme);
  if (!text.empty()) report.result = 1;
  copy_text(text, report.text);
  copy_text(sha256_of_file(temporary), report.result_sha256);
  return report;
}

void finish_job(Job& job, const std::string& temporary, const SimulationReport& report) {
  std::string rows = report.result == 0 ? job.paths.result : (report.keep_rows ? job.paths.failed : "");
  job.state = report.result == 0 ? JobState::DONE : JobState::FAILED;
  job.text = report.text.data();
  job.wall_time = report.wall_time;
  if (report.result != 0 && rows.empty() && report.recipe_sha256.front() == '\0') {
    // Without a recipe nothing was run. The files of an earlier run are kept, including its status file and failed
    // rows.
    platform::remove_file(temporary);
    return;
  }
  std::string error;
  if (rows.empty()) {
    platform::remove_file(temporary);
  } else if (!put_in_place(temporary, rows, error)) {
    rows.clear();
    error += "; the rows are in " + set_aside(temporary, job.paths.result);
    job.state = JobState::FAILED;
    job.text += (job.text.empty() ? "" : "\n") + error;
  } else if (rows == job.paths.failed) {
    job.text += "\nThe rows up to there are in " + rows;
  }
  if (error.empty() && rows != job.paths.failed) platform::remove_file(job.paths.failed);  // from an earlier run
  SimulationReport final_report = report;
  if (job.state == JobState::FAILED && report.result == 0) {
    final_report.result = 1;
    copy_text(error, final_report.text);
  }
  write_status(job, final_report, rows);
}

std::string scheme_of(const Job& job) { return job.scheme.empty() ? scheme_of_recipe(job.recipe) : job.scheme; }

void finish_crashed_job(Job& job, const std::string& temporary, const std::string& text, double wall_time) {
  SimulationReport report;
  report.wall_time = wall_time;
  copy_text(text, report.text);
  copy_text(sha256_of_file(job.recipe), report.recipe_sha256);
  copy_text(scheme_of(job), report.scheme);
  finish_job(job, temporary, report);
}

bool is_up_to_date(const Job& job) {
  RunStatus status;
  return read_status_file(job.paths.status, status) && status.result == 0 && status.version == VORLEN_VERSION &&
         !status.recipe_sha256.empty() && status.recipe_sha256 == sha256_of_file(job.recipe) &&
         !status.result_sha256.empty() && status.result_sha256 == sha256_of_file(job.paths.result) &&
         status.scheme == scheme_of(job);
}

std::string problem_with_target(const Job& job) {
  const ResultPaths& paths = job.paths;
  for (const std::string& path : {paths.result, paths.status, paths.failed}) {
    std::string problem = problem_with_output(path);
    if (!problem.empty()) return problem;
  }
  for (const char* ending : {".failed.txt", ".status.json", ".part"}) {
    if (paths.result.ends_with(ending) || platform::link_target(paths.result).ends_with(ending)) {
      return fmt::format("{}: names ending in {} are for other files of a run; choose another output", paths.result,
                         ending);
    }
  }
  for (const std::string& twin : twins_of(paths)) {
    if (is_part_locked(twin)) {
      return fmt::format("another run is writing {}, which has the same {}", twin, paths.status);
    }
  }
  return foreign_file(job);
}
