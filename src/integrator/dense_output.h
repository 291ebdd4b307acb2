// Dense output: the record with which RadauDenseValue evaluates the polynomial of the step just accepted.
#pragma once

#include <cstdint>

namespace vorlen {

struct DenseOutput {
  std::int32_t n = 0;  // number of components; the divided differences of order k are in CONT from k n on
  double x_sol = 0.0;  // end of the step
  double h_sol = 0.0;  // length of the step
};

// One record per thread, so that integrations on different threads are independent.
extern constinit thread_local DenseOutput dense_output;

}  // namespace vorlen
