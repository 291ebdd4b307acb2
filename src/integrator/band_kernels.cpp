// Gaussian elimination with partial pivoting for band matrices, real and complex, and the substitution with the
// factors. In each column of the storage the diagonal is in row diag_row = lower + upper, so the pivot row of step k is
// one row higher in each following column. Rows and columns count from 0 here, the entries of IP from 1.
#include <algorithm>
#include <cmath>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_kernels.h"

namespace vorlen {

using elimination::AddMultiple;
using elimination::AddMultipleComplex;
using elimination::Column;
using elimination::DivideComplex;
using elimination::MarkSingular;
using elimination::PivotRow;
using elimination::PivotRowComplex;
using elimination::SetMultipliers;
using elimination::SetMultipliersComplex;

namespace {

void ClearFillRows(std::int32_t n, std::int32_t ndim, double* A, std::int32_t lower, std::int32_t upper) {
  for (std::int32_t j = upper + 1; j < n; ++j) {
    double* column = Column(A, ndim, j);
    std::fill(column, column + lower, 0.0);
  }
}

}  // namespace

void LuDecomposeBand(std::int32_t n, std::int32_t ndim, double* A, std::int32_t lower, std::int32_t upper,
                     std::int32_t* IP, std::int32_t& zero_pivot) {
  zero_pivot = 0;
  IP[n - 1] = 1;
  const std::int32_t diag_row = lower + upper;
  const std::int32_t first_sub = diag_row + 1;
  if (lower != 0 && n != 1) {
    ClearFillRows(n, ndim, A, lower, upper);
    std::int32_t col_end = 0;  // one past the last column that a pivot row has reached so far
    for (std::int32_t k = 0; k < n - 1; ++k) {
      double* column_k = Column(A, ndim, k);
      const std::int32_t sub_end = std::min(lower, n - 1 - k) + diag_row + 1;
      std::int32_t m = PivotRow(column_k, diag_row, sub_end);
      IP[k] = m + k - diag_row + 1;
      const double pivot = column_k[m];
      if (m != diag_row) {
        IP[n - 1] = -IP[n - 1];
        column_k[m] = column_k[diag_row];
        column_k[diag_row] = pivot;
      }
      if (pivot == 0.0) {
        MarkSingular(n, k, IP, zero_pivot);
        return;
      }
      SetMultipliers(column_k, first_sub, sub_end, pivot);
      col_end = std::min(std::max(col_end, upper + IP[k]), n);
      std::int32_t row_k = diag_row;
      for (std::int32_t j = k + 1; j < col_end; ++j) {
        double* column_j = Column(A, ndim, j);
        --m;
        --row_k;
        const double t = column_j[m];
        column_j[m] = column_j[row_k];
        column_j[row_k] = t;
        AddMultiple(column_k, first_sub, sub_end, t, column_j - (j - k));
      }
    }
  }
  if (Column(A, ndim, n - 1)[diag_row] == 0.0) MarkSingular(n, n - 1, IP, zero_pivot);
}

void LuSolveBand(std::int32_t n, std::int32_t ndim, const double* A, std::int32_t lower, std::int32_t upper, double* B,
                 const std::int32_t* IP) {
  const std::int32_t diag_row = lower + upper;
  const std::int32_t first_sub = diag_row + 1;
  const std::int32_t last_super = diag_row - 1;
  if (lower != 0 && n != 1) {
    for (std::int32_t k = 0; k < n - 1; ++k) {
      const double* column_k = Column(A, ndim, k);
      const std::int32_t m = IP[k] - 1;
      const double t = B[m];
      B[m] = B[k];
      B[k] = t;
      const std::int32_t last_sub = std::min(lower, n - 1 - k) + diag_row;
      for (std::int32_t i = first_sub; i <= last_sub; ++i) {
        B[i + k - diag_row] += column_k[i] * t;
      }
    }
  }
  for (std::int32_t k = n - 1; k > 0; --k) {
    const double* column_k = Column(A, ndim, k);
    B[k] = B[k] / column_k[diag_row];
    const double t = -B[k];
    for (std::int32_t i = std::max(diag_row - k, 0); i <= last_super; ++i) {
      B[i + k - diag_row] += column_k[i] * t;
    }
  }
  B[0] = B[0] / A[diag_row];
}

void LuDecomposeBandComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t lower,
                            std::int32_t upper, std::int32_t* IP, std::int32_t& zero_pivot) {
  zero_pivot = 0;
  IP[n - 1] = 1;
  const std::int32_t diag_row = lower + upper;
  const std::int32_t first_sub = diag_row + 1;
  if (lower != 0 && n != 1) {
    ClearFillRows(n, ndim, AR, lower, upper);
    ClearFillRows(n, ndim, AI, lower, upper);
    std::int32_t col_end = 0;  // one past the last column that a pivot row has reached so far
    for (std::int32_t k = 0; k < n - 1; ++k) {
      double* re_k = Column(AR, ndim, k);
      double* im_k = Column(AI, ndim, k);
      const std::int32_t sub_end = std::min(lower, n - 1 - k) + diag_row + 1;
      std::int32_t m = PivotRowComplex(re_k, im_k, diag_row, sub_end);
      IP[k] = m + k - diag_row + 1;
      const double pivot_re = re_k[m];
      const double pivot_im = im_k[m];
      if (m != diag_row) {
        IP[n - 1] = -IP[n - 1];
        re_k[m] = re_k[diag_row];
        im_k[m] = im_k[diag_row];
        re_k[diag_row] = pivot_re;
        im_k[diag_row] = pivot_im;
      }
      if (std::abs(pivot_re) + std::abs(pivot_im) == 0.0) {
        MarkSingular(n, k, IP, zero_pivot);
        return;
      }
      SetMultipliersComplex(re_k, im_k, first_sub, sub_end, pivot_re, pivot_im);
      col_end = std::min(std::max(col_end, upper + IP[k]), n);
      std::int32_t row_k = diag_row;
      for (std::int32_t j = k + 1; j < col_end; ++j) {
        double* re_j = Column(AR, ndim, j);
        double* im_j = Column(AI, ndim, j);
        --m;
        --row_k;
        const double t_re = re_j[m];
        const double t_im = im_j[m];
        re_j[m] = re_j[row_k];
        im_j[m] = im_j[row_k];
        re_j[row_k] = t_re;
        im_j[row_k] = t_im;
        AddMultipleComplex(re_k, im_k, first_sub, sub_end, t_re, t_im, re_j - (j - k), im_j - (j - k));
      }
    }
  }
  if (std::abs(Column(AR, ndim, n - 1)[diag_row]) + std::abs(Column(AI, ndim, n - 1)[diag_row]) == 0.0) {
    MarkSingular(n, n - 1, IP, zero_pivot);
  }
}

void LuSolveBandComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, std::int32_t lower,
                        std::int32_t upper, double* BR, double* BI, const std::int32_t* IP) {
  const std::int32_t diag_row = lower + upper;
  const std::int32_t first_sub = diag_row + 1;
  const std::int32_t last_super = diag_row - 1;
  if (lower != 0 && n != 1) {
    for (std::int32_t k = 0; k < n - 1; ++k) {
      const double* re_k = Column(AR, ndim, k);
      const double* im_k = Column(AI, ndim, k);
      const std::int32_t m = IP[k] - 1;
      const double t_re = BR[m];
      const double t_im = BI[m];
      BR[m] = BR[k];
      BI[m] = BI[k];
      BR[k] = t_re;
      BI[k] = t_im;
      const std::int32_t last_sub = std::min(lower, n - 1 - k) + diag_row;
      for (std::int32_t i = first_sub; i <= last_sub; ++i) {
        BR[i + k - diag_row] += re_k[i] * t_re - im_k[i] * t_im;
        BI[i + k - diag_row] += im_k[i] * t_re + re_k[i] * t_im;
      }
    }
  }
  for (std::int32_t k = n - 1; k > 0; --k) {
    const double* re_k = Column(AR, ndim, k);
    const double* im_k = Column(AI, ndim, k);
    DivideComplex(re_k[diag_row], im_k[diag_row], BR[k], BI[k]);
    const double t_re = -BR[k];
    const double t_im = -BI[k];
    for (std::int32_t i = std::max(diag_row - k, 0); i <= last_super; ++i) {
      BR[i + k - diag_row] += re_k[i] * t_re - im_k[i] * t_im;
      BI[i + k - diag_row] += im_k[i] * t_re + re_k[i] * t_im;
    }
  }
  DivideComplex(AR[diag_row], AI[diag_row], BR[0], BI[0]);
}

}  // namespace vorlen
