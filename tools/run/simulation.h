// One simulation and its files. A run writes to a temporary file beside the result; the file is checked, and only a
// complete one takes the result's place. Of a run that fails under way the rows are kept beside it, as NAME.failed.txt.
#pragma once

#include <array>
#include <cstddef>
#include <string>

// The files of a result NAME.result.txt, or NAME.txt.
struct ResultPaths {
  std::string result;
  std::string status;  // NAME.status.json
  std::string failed;  // NAME.failed.txt: the rows of a run that failed
};
ResultPaths result_paths(const std::string& result);

enum class JobState { WAITING, RUNNING, DONE, SKIPPED, FAILED };

// A recipe of a batch.
struct Job {
  std::string recipe;
  ResultPaths paths;
  std::string scheme;  // of the integration, whatever the recipe asks for; empty: as the recipe asks
  JobState state = JobState::WAITING;
  std::string text;        // why it failed
  double wall_time = 0.0;  // s
};

// The scheme that a job's recipe runs under.
std::string scheme_of(const Job& job);

// What a worker process tells of its simulation, as plain bytes.
struct SimulationReport {
  int result = 1;          // as RunStatus
  bool keep_rows = false;  // the temporary file holds rows; those of a run that failed are kept apart
  double wall_time = 0.0;  // s
  std::array<char, 16> scheme{};
  std::array<char, 65> recipe_sha256{};
  std::array<char, 65> result_sha256{};
  std::array<char, 4096> text{};
};

// Simulates the job's recipe into the file temporary, and checks the file: it must be whole, and its rows physical.
SimulationReport simulate(const Job& job, const std::string& temporary);

// Puts the files of a simulation in place, with the status file, and sets state, text and wall time of the job.
void finish_job(Job& job, const std::string& temporary, const SimulationReport& report);

// For a simulation whose process ended before its report: as finish_job().
void finish_crashed_job(Job& job, const std::string& temporary, const std::string& text, double wall_time);

// True when the status file says that this version has made this result from this recipe under the job's scheme, and
// both are unchanged.
bool is_up_to_date(const Job& job);

// A text when the result can't or must not be written to its place; else empty.
std::string refusal_of_target(const Job& job);
