// One simulation and its files. A run writes to a temporary file in the folder of the result. The file is checked and
// replaces the result only if it is complete. If a run fails, its rows are kept in NAME.failed.txt.
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
  std::string scheme;     // overrides the recipe's integration scheme; empty: the recipe's
  bool rejected = false;  // the check has found errors in the recipe
  JobState state = JobState::WAITING;
  std::string text;        // why it failed
  double wall_time = 0.0;  // s
};

// The scheme with which a job's recipe is run.
std::string scheme_of(const Job& job);

// What a worker process reports about its simulation, as plain bytes.
struct SimulationReport {
  int result = 1;          // as RunStatus
  bool keep_rows = false;  // the temporary file has rows to keep, of a failed run in NAME.failed.txt
  double wall_time = 0.0;  // s
  std::array<char, 16> scheme{};
  std::array<char, 65> recipe_sha256{};
  std::array<char, 65> result_sha256{};
  std::array<char, 4096> text{};
};

// Runs the job's recipe with the result in the file temporary, and checks that it is complete and its rows physical.
SimulationReport simulate(const Job& job, const std::string& temporary);

// Moves the files of a simulation into place, writes the status file, and sets state, text and wall time of the job.
void finish_job(Job& job, const std::string& temporary, const SimulationReport& report);

// The same for a simulation whose process ended without a report.
void finish_crashed_job(Job& job, const std::string& temporary, const std::string& text, double wall_time);

// True if, by the status file, this version computed the result from this recipe with the job's scheme, and neither
// file has changed since.
bool is_up_to_date(const Job& job);

// Why the files of the job must not be written: not regular files, no rights, or those of another result. Empty if they
// can be.
std::string problem_with_target(const Job& job);
