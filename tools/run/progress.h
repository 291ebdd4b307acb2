// The progress of a batch on stderr: one line that is rewritten on a terminal, otherwise a new line every second.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "run/simulation.h"

struct Progress {
  std::chrono::steady_clock::time_point start;
  bool in_place = false;     // stderr is a terminal
  bool of_several = false;   // a single recipe shows progress on a terminal only
  std::string shown;         // the line on the terminal
  double last_shown = -1.0;  // s
};

Progress begin_progress(std::size_t job_count);

// Seconds since the start.
double elapsed(const Progress& progress);

// Shows the line when it is due. At the end it is always shown, and stays if there are several recipes.
void show_progress(Progress& progress, const std::vector<Job>& jobs, bool at_end);

// Erases the line to make room for a message.
void clear_progress(Progress& progress);
