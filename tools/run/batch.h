// Runs recipes in worker processes, so that a crash affects one recipe only.
#pragma once

#include <cstddef>
#include <vector>

#include "run/simulation.h"

struct BatchOptions {
  std::size_t workers = 1;
  bool keep_going = false;  // otherwise no recipe is started after the first failure
  bool force = false;       // otherwise results that are up to date are skipped
};

// Runs the jobs in order until each is DONE, SKIPPED or FAILED; after a failure or an interruption the remaining jobs
// stay WAITING. Progress (one line) and failures are written to stderr, failures with the recipe's name if there are
// several jobs. Returns 0, or the number of the signal (SIGINT, SIGTERM, SIGHUP) that interrupted the batch. In that
// case finished results are kept, and no workers or temporary files are left.
int run_batch(std::vector<Job>& jobs, const BatchOptions& options);
