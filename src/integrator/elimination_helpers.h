// Gaussian elimination: the operations on columns that all kernels share. Rows and columns count from 0.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace vorlen::elimination {

inline double* Column(double* A, std::int32_t ndim, std::int32_t j) {
  return A + static_cast<std::ptrdiff_t>(j) * ndim;
}

inline const double* Column(const double* A, std::int32_t ndim, std::int32_t j) {
  return A + static_cast<std::ptrdiff_t>(j) * ndim;
}

// One past the last row that step k touches, for a matrix with the given number of subdiagonals.
inline std::int32_t RowEnd(std::int32_t n, std::int32_t subdiagonals, std::int32_t k) {
  return subdiagonals < n - 1 - k ? k + subdiagonals + 1 : n;
}

// Row of the largest entry of a column in rows first .. end - 1; on a tie the topmost.
inline std::int32_t PivotRow(const double* column, std::int32_t first, std::int32_t end) {
  std::int32_t m = first;
  for (std::int32_t i = first + 1; i < end; ++i) {
    if (std::abs(column[i]) > std::abs(column[m])) m = i;
  }
  return m;
}

// The same for complex entries; the size of an entry is abs(re) + abs(im).
inline std::int32_t PivotRowComplex(const double* re, const double* im, std::int32_t first, std::int32_t end) {
  std::int32_t m = first;
  for (std::int32_t i = first + 1; i < end; ++i) {
    if (std::abs(re[i]) + std::abs(im[i]) > std::abs(re[m]) + std::abs(im[m])) m = i;
  }
  return m;
}

// Divides the entries of a column in rows first .. end - 1 by the negative of the pivot, which makes them multipliers.
inline void SetMultipliers(double* column, std::int32_t first, std::int32_t end, double pivot) {
  const double inverse = 1.0 / pivot;
  for (std::int32_t i = first; i < end; ++i) {
    column[i] = -column[i] * inverse;
  }
}

inline void SetMultipliersComplex(double* re, double* im, std::int32_t first, std::int32_t end, double pivot_re,
                                  double pivot_im) {
  const double modulus2 = pivot_re * pivot_re + pivot_im * pivot_im;
  const double inverse_re = pivot_re / modulus2;
  const double inverse_im = -pivot_im / modulus2;
  for (std::int32_t i = first; i < end; ++i) {
    const double p_re = re[i] * inverse_re - im[i] * inverse_im;
    const double p_im = im[i] * inverse_re + re[i] * inverse_im;
    re[i] = -p_re;
    im[i] = -p_im;
  }
}

// Adds t times the multipliers in rows first .. end - 1 to the target; does nothing for t = 0.
inline void AddMultiple(const double* multipliers, std::int32_t first, std::int32_t end, double t, double* target) {
  if (t == 0.0) return;
  for (std::int32_t i = first; i < end; ++i) {
    target[i] += multipliers[i] * t;
  }
}

// The same for t = t_re + i t_im. t is often real or imaginary: then half of the products are left out.
inline void AddMultipleComplex(const double* re, const double* im, std::int32_t first, std::int32_t end, double t_re,
                               double t_im, double* target_re, double* target_im) {
  if (std::abs(t_re) + std::abs(t_im) == 0.0) return;
  if (t_im == 0.0) {
    for (std::int32_t i = first; i < end; ++i) {
      target_re[i] += re[i] * t_re;
      target_im[i] += im[i] * t_re;
    }
  } else if (t_re == 0.0) {
    for (std::int32_t i = first; i < end; ++i) {
      target_re[i] += -im[i] * t_im;
      target_im[i] += re[i] * t_im;
    }
  } else {
    for (std::int32_t i = first; i < end; ++i) {
      target_re[i] += re[i] * t_re - im[i] * t_im;
      target_im[i] += im[i] * t_re + re[i] * t_im;
    }
  }
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
