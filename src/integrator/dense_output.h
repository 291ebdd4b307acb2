// The record that lets RadauDenseValue read the coefficients of the step just accepted.
#pragma once

#include <cstdint>

namespace vorlen {

struct DenseOutput {
  std::int32_t n = 0;
  std::int32_t two_n = 0;
  std::int32_t three_n = 0;
  double x_sol = 0.0;  // end of the step
  double h_sol = 0.0;  // length of the step
  double c2_minus_1 = 0.0;
  double c1_minus_1 = 0.0;
};

// One record per thread: integrations on different threads do not meet.
extern constinit thread_local DenseOutput dense_output;

}  // namespace vorlen
