// The tasks of worker processes.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "platform/process.h"

// Simulates a recipe; the report is a SimulationReport.
extern const platform::NamedTask SIMULATION_TASK;

// Checks a recipe before it is run; the report is a WarningReport (recipe_warnings.cpp).
extern const platform::NamedTask WARNING_TASK;

// All of them.
std::vector<platform::NamedTask> worker_tasks();

// A report is a record of plain bytes.
template <class Report>
std::string bytes_of(const Report& report) {
  return {reinterpret_cast<const char*>(&report), sizeof report};
}
// False if bytes are not those of a whole record.
template <class Report>
bool from_bytes(const std::string& bytes, Report& report) {
  if (bytes.size() != sizeof report) return false;
  std::memcpy(&report, bytes.data(), sizeof report);
  return true;
}
