// What "vorlen run" prints about its results.
#pragma once

#include <string>
#include <vector>

#include "results/result_file.h"
#include "run/simulation.h"

// One run: its layers, the last row, and a closing line with the path of the result.
std::string run_text(const ResultFile& result, const Job& job);

// Several runs: one line for each.
std::string batch_text(const std::vector<Job>& jobs);
