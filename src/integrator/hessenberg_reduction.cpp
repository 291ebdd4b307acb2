// Reduction of a matrix to upper Hessenberg form by stabilised elementary similarity transformations: each step moves
// the largest entry below the diagonal of a column to the subdiagonal, eliminates the others with it, and applies the
// inverse to the columns, which keeps the eigenvalues. Rows and columns count from 0 here; first, last and the entries
// of INT from 1.
#include <cmath>
#include <utility>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_kernels.h"

namespace vorlen {

using elimination::Column;

void ReduceToHessenberg(std::int32_t ndim, std::int32_t n, std::int32_t first, std::int32_t last, double* A,
                        std::int32_t* INT) {
  for (std::int32_t m = first; m < last - 1; ++m) {
    double* column_prev = Column(A, ndim, m - 1);
    double* column_m = Column(A, ndim, m);
    double pivot = 0.0;
    std::int32_t i_pivot = m;
    for (std::int32_t j = m; j < last; ++j) {
      if (std::abs(column_prev[j]) > std::abs(pivot)) {
        pivot = column_prev[j];
        i_pivot = j;
      }
    }
    INT[m] = i_pivot + 1;
    if (i_pivot != m) {
      for (std::int32_t j = m - 1; j < n; ++j) {
        double* column_j = Column(A, ndim, j);
        std::swap(column_j[i_pivot], column_j[m]);
      }
      double* column_i = Column(A, ndim, i_pivot);
      for (std::int32_t j = 0; j < last; ++j) {
        std::swap(column_i[j], column_m[j]);
      }
    }
    if (pivot == 0.0) continue;
    for (std::int32_t i = m + 1; i < last; ++i) {
      double factor = column_prev[i];
      if (factor == 0.0) continue;
      factor = factor / pivot;
      column_prev[i] = factor;
      for (std::int32_t j = m; j < n; ++j) {
        double* column_j = Column(A, ndim, j);
        column_j[i] -= factor * column_j[m];
      }
      const double* column_i = Column(A, ndim, i);
      for (std::int32_t j = 0; j < last; ++j) {
        column_m[j] += factor * column_i[j];
      }
    }
  }
}

}  // namespace vorlen
