// The Jacobian by forward differences: column by column, or for a band in groups of columns that have no row in common.
// Rows and columns count from 0 here.
#include "integrator/numerical_jacobian.h"

#include <algorithm>
#include <cmath>

#include "integrator/elimination_helpers.h"
#include "integrator/ordered_minmax.h"
#include "integrator/stage_vectors.h"

namespace vorlen {

using elimination::Column;

namespace {

constexpr double Y_FLOOR = 1e-5;  // lower bound of the magnitude that scales the perturbation

double Perturbation(double unit_roundoff, double y) {
  return std::sqrt(unit_roundoff * OrderedMax(Y_FLOOR, std::abs(y)));
}

void FullJacobian(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs, double unit_roundoff,
                  double x, double* y) {
  for (std::int32_t i = 0; i < system.n; ++i) {
    const double y_saved = y[i];
    const double delta = Perturbation(unit_roundoff, y_saved);
    y[i] = y_saved + delta;
    rhs.callback(system.n, x, y, arrays.CONT, rhs.real_context, rhs.model_context);
    double* column = Column(system.FJAC, system.jac_rows, i);
    DifferenceQuotients(system.n - system.block_count, arrays.CONT + system.block_count, arrays.Y0 + system.block_count,
                        delta, column);
    y[i] = y_saved;
  }
}

void BandJacobian(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs, double unit_roundoff,
                  double x, double* y) {
  double* y_saved = arrays.F1;
  double* delta = arrays.F2;
  const double* f = arrays.CONT + system.block_count;
  const double* f0 = arrays.Y0 + system.block_count;
  const std::int32_t group = std::min(system.mljac + system.mujac + 1, system.block_stride);
  const std::int32_t last_block = system.block_count / system.block_stride;
  for (std::int32_t block = 0; block <= last_block; ++block) {
    const std::int32_t block_start = block * system.block_stride;
    for (std::int32_t k = 0; k < group; ++k) {
      for (std::int32_t c = k; c < system.block_stride; c += group) {
        const std::int32_t col = block_start + c;
        y_saved[col] = y[col];
        delta[col] = Perturbation(unit_roundoff, y[col]);
        y[col] += delta[col];
      }
      rhs.callback(system.n, x, y, arrays.CONT, rhs.real_context, rhs.model_context);
      for (std::int32_t c = k; c < system.block_stride; c += group) {
        const std::int32_t col = block_start + c;
        y[col] = y_saved[col];
        double* column = Column(system.FJAC, system.jac_rows, col);
        const std::int32_t row_first = std::max(0, c - system.mujac);
        const std::int32_t row_last = std::min(system.n_reduced - 1, c + system.mljac);
        for (std::int32_t r = row_first; r <= row_last; ++r) {
          column[r - c + system.mujac] = (f[r] - f0[r]) / delta[col];
        }
      }
    }
  }
}

}  // namespace

void NumericalJacobian(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs,
                       double unit_roundoff, double x, double* y) {
  if (system.mljac < system.n_reduced) {
    BandJacobian(system, arrays, rhs, unit_roundoff, x, y);
  } else {
    FullJacobian(system, arrays, rhs, unit_roundoff, x, y);
  }
}

}  // namespace vorlen
