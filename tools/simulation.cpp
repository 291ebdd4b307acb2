// A simulation runs in a process of its own (batch.h): simulate() there, the rest in the process that waits for it.
#include "simulation.h"

#include <fmt/core.h>
#include <unistd.h>
#include <vorlen_solver.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "files.h"
#include "result_file.h"
#include "status_file.h"

namespace fs = std::filesystem;

namespace {

template <std::size_t size>
void copy_text(const std::string& text, std::array<char, size>& target) {
  target.fill('\0');
  text.copy(target.data(), size - 1);
}

// text, with name in place of the temporary file's.
std::string renamed(std::string text, const std::string& temporary, const std::string& name) {
  const std::size_t place = text.find(temporary);
  return place == std::string::npos ? text : text.replace(place, temporary.size(), name);
}

// True when the table covers the durations of all layers; a file cut off between two rows does not.
bool covers_all_layers(const ResultFile& result) {
  double duration = 0.0;
  for (const ResultLayer& layer : result.layers) duration += layer.duration;
  const double end = result.rows.back().at(ResultColumn::TIME);
  const double gap = std::fabs(end - result.rows.front().at(ResultColumn::TIME) - duration);
  return !(gap > 1e-9 * std::fabs(end));  // the rounding of a long sum; a not-a-number passes
}

// What is wrong with the file of a run that has ended normally; empty if nothing. keep_rows: it is whole all the same.
std::string check_result(const std::string& temporary, const std::string& name, bool& keep_rows) {
  ResultFile result;
  std::string error;
  const std::string cut_off = ": the file ends before the run does. Is the disk full?";
  if (!read_result_file(temporary, result, error)) return renamed(error, temporary, name) + cut_off;
  if (result.rows.empty() || !covers_all_layers(result)) return name + cut_off;
  for (std::size_t i = 0; i < result.rows.size(); ++i) {
    const ResultRow& row = result.rows[i];
    if (std::all_of(row.values.begin(), row.values.end(), [](double value) { return std::isfinite(value); })) continue;
    keep_rows = true;
    return fmt::format("{}: row {} of {}, at {:.10g} s, holds values that are no finite numbers", name, i + 1,
                       result.rows.size(), row.at(ResultColumn::TIME));
  }
  return "";
}

void write_status(Job& job, const SimulationReport& report, const std::string& rows) {
  RunStatus status;
  status.result = report.result;
  status.text = report.text.data();
  status.wall_time = report.wall_time;
  status.version = VORLEN_VERSION;
  status.recipe = job.recipe;
  status.recipe_sha256 = report.recipe_sha256.data();
  status.result_file = rows.empty() ? job.paths.result : rows;
  if (!rows.empty()) status.result_sha256 = report.result_sha256.data();
  status.host = host_name();
  status.finished = utc_now();
  std::string error;
  if (write_status_file(job.paths.status, status, error) || job.state == JobState::FAILED) return;
  job.state = JobState::FAILED;
  job.text = error + "; the result itself is in place";
}

}  // namespace

ResultPaths result_paths(const std::string& result) {
  std::string stem = result;
  const auto drop = [&stem](const std::string& ending) {
    const bool ends_so =
        stem.size() > ending.size() && stem.ends_with(ending) && stem[stem.size() - ending.size() - 1] != '/';
    if (ends_so) stem.resize(stem.size() - ending.size());
    return ends_so;
  };
  if (drop(".txt")) drop(".result");
  return {result, stem + ".status.json", stem + ".failed.txt"};
}

SimulationReport simulate(const Job& job, const std::string& temporary) {
  SimulationReport report;
  copy_text(sha256_of_file(job.recipe), report.recipe_sha256);
  std::array<char, VORLEN_ERROR_BUFFER_SIZE> text{};
  const auto start = std::chrono::steady_clock::now();
  report.result = runSurfChem(job.recipe.c_str(), temporary.c_str(), text.data());
  report.wall_time = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (report.result == 0) {
    const std::string fault = check_result(temporary, job.paths.result, report.keep_rows);
    report.result = fault.empty() ? 0 : 1;
    copy_text(fault, report.text);
  } else {
    ResultFile result;
    std::string ignored;
    report.keep_rows = read_result_file(temporary, result, ignored) && !result.rows.empty();
    copy_text(renamed(text.data(), temporary, job.paths.result), report.text);
  }
  copy_text(sha256_of_file(temporary), report.result_sha256);
  return report;
}

void finish_job(Job& job, const std::string& temporary, const SimulationReport& report) {
  std::string rows = report.result == 0 ? job.paths.result : (report.keep_rows ? job.paths.failed : "");
  job.state = report.result == 0 ? JobState::DONE : JobState::FAILED;
  job.text = report.text.data();
  job.wall_time = report.wall_time;
  std::string error;
  bool stranded = false;  // the rows could not be put in place, and stay under their temporary name
  if (!rows.empty() && put_in_place(temporary, rows, error)) {
    if (rows == job.paths.failed) job.text += "\nThe rows up to the end of the run are in " + rows;
  } else if (!rows.empty()) {
    rows.clear();
    stranded = true;
    error += "; the rows are in " + temporary;
    job.state = JobState::FAILED;
    job.text += (job.text.empty() ? "" : "\n") + error;
  }
  if (!stranded) {
    if (rows != job.paths.failed) remove_file(job.paths.failed);  // of an earlier run
    remove_file(temporary);
  }
  // Without a recipe there is nothing to tell about a place that may have been mistyped.
  if (report.recipe_sha256.front() == '\0') return;
  SimulationReport told = report;
  if (job.state == JobState::FAILED && report.result == 0) {
    told.result = 1;
    copy_text(error, told.text);
  }
  write_status(job, told, rows);
}

void finish_crashed_job(Job& job, const std::string& temporary, const std::string& text, double wall_time) {
  SimulationReport report;
  report.wall_time = wall_time;
  copy_text(text, report.text);
  copy_text(sha256_of_file(job.recipe), report.recipe_sha256);
  finish_job(job, temporary, report);
}

bool is_up_to_date(const Job& job) {
  RunStatus status;
  return read_status_file(job.paths.status, status) && status.result == 0 && status.version == VORLEN_VERSION &&
         !status.recipe_sha256.empty() && status.recipe_sha256 == sha256_of_file(job.recipe) &&
         !status.result_sha256.empty() && status.result_sha256 == sha256_of_file(job.paths.result);
}

std::string refusal_of_target(const Job& job) {
  const std::string& path = job.paths.result;
  std::error_code ignored;
  const fs::file_status there = fs::status(path, ignored);
  if (!fs::exists(there)) return "";
  // The library's own text for a file that can't be written; a rename would not notice.
  if (fs::is_directory(there) || (fs::is_regular_file(there) && access(path.c_str(), W_OK) != 0)) {
    return "Unable to open file " + path + " for writing";
  }
  return fs::is_regular_file(there) ? "" : path + " is not a regular file: no result can be kept there";
}
