// Gaussian elimination with partial pivoting for dense matrices, real and complex, and the complex substitution. The
// same code serves matrices with few subdiagonals, whose columns only end earlier. Loops run down columns. Rows and
// columns count from 0 here, the entries of IP from 1.
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
using elimination::RowEnd;
using elimination::SetMultipliers;
using elimination::SetMultipliersComplex;

void LuDecomposeHess(std::int32_t n, std::int32_t ndim, double* A, std::int32_t subdiagonals, std::int32_t* IP,
                     std::int32_t& zero_pivot) {
  zero_pivot = 0;
  IP[n - 1] = 1;
  for (std::int32_t k = 0; k < n - 1; ++k) {
    const std::int32_t row_end = RowEnd(n, subdiagonals, k);
    double* column_k = Column(A, ndim, k);
    const std::int32_t m = PivotRow(column_k, k, row_end);
    IP[k] = m + 1;
    const double pivot = column_k[m];
    if (m != k) {
      IP[n - 1] = -IP[n - 1];
      column_k[m] = column_k[k];
      column_k[k] = pivot;
    }
    if (pivot == 0.0) {
      MarkSingular(n, k, IP, zero_pivot);
      return;
    }
    SetMultipliers(column_k, k + 1, row_end, pivot);
    for (std::int32_t j = k + 1; j < n; ++j) {
      double* column_j = Column(A, ndim, j);
      const double t = column_j[m];
      column_j[m] = column_j[k];
      column_j[k] = t;
      AddMultiple(column_k, k + 1, row_end, t, column_j);
    }
  }
  if (Column(A, ndim, n - 1)[n - 1] == 0.0) MarkSingular(n, n - 1, IP, zero_pivot);
}

void LuDecomposeHessComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t subdiagonals,
                            std::int32_t* IP, std::int32_t& zero_pivot) {
  zero_pivot = 0;
  IP[n - 1] = 1;
  for (std::int32_t k = 0; k < n - 1; ++k) {
    const std::int32_t row_end = RowEnd(n, subdiagonals, k);
    double* re_k = Column(AR, ndim, k);
    double* im_k = Column(AI, ndim, k);
    const std::int32_t m = PivotRowComplex(re_k, im_k, k, row_end);
    IP[k] = m + 1;
    const double pivot_re = re_k[m];
    const double pivot_im = im_k[m];
    if (m != k) {
      IP[n - 1] = -IP[n - 1];
      re_k[m] = re_k[k];
      im_k[m] = im_k[k];
      re_k[k] = pivot_re;
      im_k[k] = pivot_im;
    }
    if (std::abs(pivot_re) + std::abs(pivot_im) == 0.0) {
      MarkSingular(n, k, IP, zero_pivot);
      return;
    }
    SetMultipliersComplex(re_k, im_k, k + 1, row_end, pivot_re, pivot_im);
    for (std::int32_t j = k + 1; j < n; ++j) {
      double* re_j = Column(AR, ndim, j);
      double* im_j = Column(AI, ndim, j);
      const double t_re = re_j[m];
      const double t_im = im_j[m];
      re_j[m] = re_j[k];
      im_j[m] = im_j[k];
      re_j[k] = t_re;
      im_j[k] = t_im;
      AddMultipleComplex(re_k, im_k, k + 1, row_end, t_re, t_im, re_j, im_j);
    }
  }
  const double last_re = Column(AR, ndim, n - 1)[n - 1];
  const double last_im = Column(AI, ndim, n - 1)[n - 1];
  if (std::abs(last_re) + std::abs(last_im) == 0.0) MarkSingular(n, n - 1, IP, zero_pivot);
}

void LuSolveHessComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI,
                        std::int32_t subdiagonals, double* BR, double* BI, const std::int32_t* IP) {
  for (std::int32_t k = 0; k < n - 1; ++k) {
    const std::int32_t row_end = RowEnd(n, subdiagonals, k);
    const double* re_k = Column(AR, ndim, k);
    const double* im_k = Column(AI, ndim, k);
    const std::int32_t m = IP[k] - 1;
    const double t_re = BR[m];
    const double t_im = BI[m];
    BR[m] = BR[k];
    BI[m] = BI[k];
    BR[k] = t_re;
    BI[k] = t_im;
    for (std::int32_t i = k + 1; i < row_end; ++i) {
      BR[i] += re_k[i] * t_re - im_k[i] * t_im;
      BI[i] += im_k[i] * t_re + re_k[i] * t_im;
    }
  }
  for (std::int32_t k = n - 1; k > 0; --k) {
    const double* re_k = Column(AR, ndim, k);
    const double* im_k = Column(AI, ndim, k);
    DivideComplex(re_k[k], im_k[k], BR[k], BI[k]);
    const double t_re = -BR[k];
    const double t_im = -BI[k];
    for (std::int32_t i = 0; i < k; ++i) {
      BR[i] += re_k[i] * t_re - im_k[i] * t_im;
      BI[i] += im_k[i] * t_re + re_k[i] * t_im;
    }
  }
  DivideComplex(AR[0], AI[0], BR[0], BI[0]);
}

void LuDecompose(std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, std::int32_t& zero_pivot) {
  LuDecomposeHess(n, ndim, A, n - 1, IP, zero_pivot);
}

void LuDecomposeComplex(std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t* IP,
                        std::int32_t& zero_pivot) {
  LuDecomposeHessComplex(n, ndim, AR, AI, n - 1, IP, zero_pivot);
}

void LuSolveComplex(std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, double* BR, double* BI,
                    const std::int32_t* IP) {
  LuSolveHessComplex(n, ndim, AR, AI, n - 1, BR, BI, IP);
}

}  // namespace vorlen
