// Gaussian elimination with partial pivoting for the iteration matrices of the integrator: dense, Hessenberg and band
// matrices, real and complex, and the reduction of a matrix to Hessenberg form.
//
// Common to all routines:
// - Matrices are stored by columns with the leading dimension ndim: entry (i, j), indices from 1, is
//   A[(i - 1) + (j - 1) * ndim]. A complex matrix is two real ones of the same shape, AR and AI, a complex vector is
//   two real ones, BR and BI. No pointer may be null. Nothing is allocated.
// - IP holds n integers. IP(k), k < n, is the row (from 1) that step k exchanged with row k. IP(n) is +1 or -1, the
//   sign of the row permutation, or 0 when the matrix was found singular.
// - A factorisation leaves U on and above the diagonal and, below it, the multipliers with their signs changed, so that
//   a solve adds. A row exchange moves the entries of the current and later columns only; the multipliers of earlier
//   columns stay where they were computed.
// - zero_pivot is 0 on success, or k (from 1) when the pivot of step k is exactly zero; then IP(n) is 0 and the columns
//   after k are as the previous steps left them. A pivot close to zero passes, and so does NaN.
// - The pivot is the largest entry; among equals, the topmost. The size of an entry is abs(a), of a
//   complex one abs(re) + abs(im).
#pragma once

#include <cstdint>

namespace vorlen {

// Factorises the n x n matrix A (ndim >= n) in place.
void LuDecompose(std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, std::int32_t& zero_pivot);

// Solves A x = B with the factors of LuDecompose; B (n reals) becomes x.
void LuSolve(std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP);

// The same for a complex matrix. Real and imaginary entries of a pivot row take fewer operations.
void LuDecomposeComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t* IP,
                        std::int32_t& zero_pivot);
void LuSolveComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, double* BR, double* BI,
                    const std::int32_t* IP);

// The same for a matrix whose entries below its given number of subdiagonals (1: Hessenberg form) are zero; those
// entries are neither read nor written.
void LuDecomposeHess(std::int32_t n, std::int32_t ndim, double* A, std::int32_t subdiagonals, std::int32_t* IP,
                     std::int32_t& zero_pivot);
void LuSolveHess(std::int32_t n, std::int32_t ndim, const double* A, std::int32_t subdiagonals, double* B,
                 const std::int32_t* IP);
void LuDecomposeHessComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t subdiagonals,
                            std::int32_t* IP, std::int32_t& zero_pivot);
void LuSolveHessComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI,
                        std::int32_t subdiagonals, double* BR, double* BI, const std::int32_t* IP);

// The same for a band matrix with lower and upper bandwidth. Matrix entry (i, j) is A(i - j + diag_row, j) with
// diag_row = lower + upper + 1; ndim >= 2 * lower + upper + 1. The first lower rows of A are room for the fill of the
// row exchanges and need no values at entry; corners outside of the matrix are never read.
// With lower = 0 nothing is eliminated: only IP(n) is set and only the last pivot is tested for zero.
void LuDecomposeBand(std::int32_t n, std::int32_t ndim, double* A, std::int32_t lower, std::int32_t upper,
                     std::int32_t* IP, std::int32_t& zero_pivot);
void LuSolveBand(std::int32_t n, std::int32_t ndim, const double* A, std::int32_t lower, std::int32_t upper, double* B,
                 const std::int32_t* IP);
void LuDecomposeBandComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t lower,
                            std::int32_t upper, std::int32_t* IP, std::int32_t& zero_pivot);
void LuSolveBandComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, std::int32_t lower,
                        std::int32_t upper, double* BR, double* BI, const std::int32_t* IP);

// Reduces rows and columns first to last (from 1) of the n x n matrix A (ndim >= n) to Hessenberg form by a similarity
// with stabilised elementary matrices. The multipliers stay below the first subdiagonal; INT(m), m = first + 1 to
// last - 1, is the row and column exchanged with m. INT holds n integers, the others are not touched.
void ReduceToHessenberg(std::int32_t ndim, std::int32_t n, std::int32_t first, std::int32_t last, double* A,
                        std::int32_t* INT);

}  // namespace vorlen
