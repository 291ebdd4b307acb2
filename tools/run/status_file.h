// The status file of a result: how its run ended, and fingerprints that show whether anything has changed since.
// Described in docs/result-format.md.
#pragma once

#include <string>

struct RunStatus {
  int result = 1;          // 0: the run ended normally and its file is complete; otherwise 1
  std::string text;        // why not; empty with result 0
  double wall_time = 0.0;  // s
  std::string version;     // of the tool
  std::string recipe;      // its path, as returned by path_in_status()
  std::string recipe_sha256;
  std::string scheme;         // of the integration; empty in files of versions without schemes
  std::string result_file;    // path of the rows, likewise; with result 1 that of the failed rows, if any
  std::string result_sha256;  // empty: no file
  std::string host;
  std::string finished;  // 2026-01-31T12:00:00Z
};

// Returns false, with a message in error, if it cannot be written.
bool write_status_file(const std::string& path, const RunStatus& status, std::string& error);

// The path as the status file at status_path contains it: relative to the folder of the status file if it is in or
// below that folder, otherwise absolute. Bytes that are not valid UTF-8 are replaced.
std::string path_in_status(const std::string& path, const std::string& status_path);

// The path that text in the status file at status_path stands for.
std::string path_from_status(const std::string& text, const std::string& status_path);

// False if the file does not exist or is not understood.
bool read_status_file(const std::string& path, RunStatus& status);

std::string utc_now();
