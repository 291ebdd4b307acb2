// Published stiff problems with their end values, and problems with a closed-form solution.
#pragma once

#include <vector>

#include "work_precision/problem.h"

namespace vorlen::bench {

std::vector<Problem> published_problems();

}  // namespace vorlen::bench
