// The line on stderr that tells how far a batch is: in place on a terminal, else a line now and then.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "run/simulation.h"

struct Progress {
  std::chrono::steady_clock::time_point start;
  bool in_place = false;     // stderr is a terminal
  bool of_several = false;   // one recipe alone has no line but on a terminal
  std::string shown;         // the line that stands there
  double last_shown = -1.0;  // s
};

Progress begin_progress(std::size_t job_count);

// Seconds since the begin.
double elapsed(const Progress& progress);

// Shows the line if it is time to; at the end always, and then for good (on a terminal, of several recipes).
void show_progress(Progress& progress, const std::vector<Job>& jobs, bool at_end);

// Takes the line away, for a text that is to be printed there.
void clear_progress(Progress& progress);
