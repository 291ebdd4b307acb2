// The status file beside a result: how its run ended, and by what it can be told that nothing has changed since.
// docs/result-format.md describes it.
#pragma once

#include <string>

struct RunStatus {
  int result = 1;          // 0 the run has ended normally and its file is whole, 1 in every other case
  std::string text;        // why not; empty with result 0
  double wall_time = 0.0;  // s
  std::string version;     // of the tool
  std::string recipe;      // path as it was given
  std::string recipe_sha256;
  std::string scheme;         // of the integration; empty in the files of versions that did not know it
  std::string result_file;    // path of the rows; with result 1 they lie apart from the result, if there are any
  std::string result_sha256;  // empty: there is no file
  std::string host;
  std::string finished;  // 2026-01-31T12:00:00Z
};

// Returns false with a text in error.
bool write_status_file(const std::string& path, const RunStatus& status, std::string& error);

// False when there is none, or none that can be understood.
bool read_status_file(const std::string& path, RunStatus& status);

std::string host_name();
std::string utc_now();
