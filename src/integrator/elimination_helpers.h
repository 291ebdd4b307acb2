// Small pieces that the elimination routines share. Rows and columns count from 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorlen::elimination {

inline double* Column(double* A, std::int32_t ndim, std::int32_t j) {
  return A + static_cast<std::ptrdiff_t>(j) * ndim;
}

inline const double* Column(const double* A, std::int32_t ndim, std::int32_t j) {
  return A + static_cast<std::ptrdiff_t>(j) * ndim;
}

// One behind the last row that takes part in step k of an elimination with so many subdiagonals.
inline std::int32_t RowEnd(std::int32_t n, std::int32_t subdiagonals, std::int32_t k) {
  return subdiagonals < n - 1 - k ? k + subdiagonals + 1 : n;
}

// Marks the factorisation of order n as singular in column k.
inline void MarkSingular(std::int32_t n, std::int32_t k, std::int32_t* IP, std::int32_t& zero_pivot) {
  zero_pivot = k + 1;
  IP[n - 1] = 0;
}

// (b_re + i b_im) := (b_re + i b_im) / (pivot_re + i pivot_im)
inline void DivideComplex(double pivot_re, double pivot_im, double& b_re, double& b_im) {
  const double modulus2 = pivot_re * pivot_re + pivot_im * pivot_im;
  const double p_re = b_re * pivot_re + b_im * pivot_im;
  const double p_im = b_im * pivot_re - b_re * pivot_im;
  b_re = p_re / modulus2;
  b_im = p_im / modulus2;
}

}  // namespace vorlen::elimination
