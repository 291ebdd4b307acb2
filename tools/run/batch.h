// Runs recipes in worker processes, so that a crash of one costs that recipe alone.
#pragma once

#include <cstddef>
#include <vector>

#include "run/simulation.h"

struct BatchOptions {
  std::size_t workers = 1;
  bool keep_going = false;  // else no recipe is begun after the first failure
  bool force = false;       // else what is_up_to_date() is skipped
};

// Runs jobs in their order, each to state DONE, SKIPPED or FAILED; WAITING is left where a failure or an interruption
// came first. Progress goes to stderr, on one line; so do the texts of failures, with the recipe's name if there are
// several jobs. Returns 0, or the number of the signal (SIGINT, SIGTERM, SIGHUP) that has interrupted it: then no
// worker is left, nor a temporary file, and what was finished stays.
int run_batch(std::vector<Job>& jobs, const BatchOptions& options);
