// Dense output: the record with which RadauDenseValue evaluates the polynomial of the step just accepted.
#pragma once

#include <cstdint>

namespace vorlen {

struct DenseOutput {
  std::int32_t n = 0;        // number of components; offset of the first divided differences in CONT
  std::int32_t two_n = 0;    // 2 n, offset of the second ones
  std::int32_t three_n = 0;  // 3 n, offset of the third ones
  double x_sol = 0.0;        // end of the step
  double h_sol = 0.0;        // length of the step
  double c2_minus_1 = 0.0;   // second node - 1
  double c1_minus_1 = 0.0;   // first node - 1
};

// One record per thread, so that integrations on different threads are independent.
extern constinit thread_local DenseOutput dense_output;

}  // namespace vorlen
