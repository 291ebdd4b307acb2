// Gaussian elimination for the two dense matrices of the stage equations together, one real and one complex of the same
// order. At the orders of the growth model, 10 and 15, their operations alternate, so that the divisions and sums of
// one matrix fill the latencies of the other. At any other order the kernels of matrix_kernels.h are called. Either way
// each number goes through the same operations in the same sequence and has the same bits.
//
// Storage, pivots and singular matrices are as described in matrix_kernels.h.
#pragma once

#include <cstdint>

namespace vorlen {

// Factorises A and AR + i AI in place, n x n each. IP and IP_complex hold n integers. zero_pivot is 0, or
// the index of a zero pivot of either matrix; then neither has usable factors.
void LuDecomposePair(std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, double* AR, double* AI,
                     std::int32_t* IP_complex, std::int32_t& zero_pivot);

// Solves A x = B and (AR + i AI) x = BR + i BI with the factors of LuDecomposePair; B, BR, BI (n reals) become x.
void LuSolvePair(std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP,
                 const double* AR, const double* AI, double* BR, double* BI, const std::int32_t* IP_complex);

}  // namespace vorlen
