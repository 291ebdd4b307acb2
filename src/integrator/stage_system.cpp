// The linear systems of the simplified Newton iteration and the error estimate. A solve has three steps: transform the
// right-hand side to the basis of the factors (the Hessenberg basis, or the lower block with the leading components
// eliminated), solve, and transform back. Rows and columns count from 0 here.
#include "integrator/stage_system.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_form.h"
#include "integrator/matrix_kernels.h"
#include "integrator/ordered_minmax.h"
#include "integrator/pair_kernels.h"
#include "integrator/radau_constants.h"
#include "integrator/stage_vectors.h"

namespace vorlen {

using elimination::Column;

constinit thread_local BandDims band_dims;

namespace {

constexpr double MIN_ERR = 1e-10;  // keeps the step ratio bounded

// Row i of the mass matrix: entry j is row[j * stride], j = first .. last.
struct MassRow {
  const double* row;      // where entry 0 would be
  std::ptrdiff_t stride;  // distance of two entries of the row
  std::int32_t first;     // first column within the band
  std::int32_t last;      // last column within the band
};

MassRow RowOfMass(const StageSystem& system, MatrixForm form, std::int32_t i) {
  const std::int32_t order = OrderOf(system);
  if (form == MatrixForm::FULL_FULL_MASS) return {system.FMAS + i, system.mass_rows, 0, order - 1};
  return {system.FMAS + i + band_dims.mass_diag_row - 1, system.mass_rows - 1, std::max(0, i - system.mlmas),
          std::min(order - 1, i + system.mumas)};
}

// Components whose equation has an identity mass: all, or the leading ones of the block structure.
std::int32_t IdentityCount(const StageSystem& system, MatrixForm form) {
  return HasMass(form) ? LeadingCount(system) : system.n;
}

void ToHessenbergBasis(const StageSystem& system, double* v) {
  for (std::int32_t p = 1; p < system.n - 1; ++p) {
    std::swap(v[p], v[system.IPHES[p] - 1]);
    const double* multipliers = Column(system.FJAC, system.jac_rows, p - 1);
    for (std::int32_t i = p + 1; i < system.n; ++i) {
      v[i] -= multipliers[i] * v[p];
    }
  }
}

void FromHessenbergBasis(const StageSystem& system, double* v) {
  for (std::int32_t p = system.n - 2; p > 0; --p) {
    const double* multipliers = Column(system.FJAC, system.jac_rows, p - 1);
    for (std::int32_t i = p + 1; i < system.n; ++i) {
      v[i] += multipliers[i] * v[p];
    }
    std::swap(v[p], v[system.IPHES[p] - 1]);
  }
}

// Adds column col of the Jacobian times factor to the lower part of v; j is the column's position in its block.
void AddJacobianColumn(const StageSystem& system, MatrixForm form, std::int32_t j, std::int32_t col, double factor,
                       double* v) {
  const double* jac = Column(system.FJAC, system.jac_rows, col);
  double* lower_part = v + system.block_count;
  if (IsBanded(form)) {
    const std::int32_t row_first = std::max(0, j - system.mujac);
    const std::int32_t row_last = std::min(system.n_reduced - 1, j + system.mljac);
    for (std::int32_t i = row_first; i <= row_last; ++i) {
      lower_part[i] += jac[i - j + system.mujac] * factor;
    }
  } else {
    for (std::int32_t i = 0; i < system.n_reduced; ++i) {
      lower_part[i] += jac[i] * factor;
    }
  }
}

void EliminateLeading(const StageSystem& system, MatrixForm form, double* v) {
  const std::int32_t blocks = system.block_count / system.block_stride;
  for (std::int32_t j = 0; j < system.block_stride; ++j) {
    double sum = 0.0;
    for (std::int32_t k = blocks - 1; k >= 0; --k) {
      const std::int32_t col = j + k * system.block_stride;
      sum = (v[col] + sum) / system.real_shift;
      AddJacobianColumn(system, form, j, col, sum, v);
    }
  }
}

void RecoverLeading(const StageSystem& system, double* v) {
  for (std::int32_t i = system.block_count - 1; i >= 0; --i) {
    v[i] = (v[i] + v[system.block_stride + i]) / system.real_shift;
  }
}

void EliminateLeadingComplex(const StageSystem& system, MatrixForm form, double* v_re, double* v_im) {
  const std::int32_t blocks = system.block_count / system.block_stride;
  for (std::int32_t j = 0; j < system.block_stride; ++j) {
    double sum_re = 0.0;
    double sum_im = 0.0;
    for (std::int32_t k = blocks - 1; k >= 0; --k) {
      const std::int32_t col = j + k * system.block_stride;
      sum_re = v_re[col] + sum_re;
      sum_im = v_im[col] + sum_im;
      elimination::DivideComplex(system.complex_shift_re, system.complex_shift_im, sum_re, sum_im);
      AddJacobianColumn(system, form, j, col, sum_re, v_re);
      AddJacobianColumn(system, form, j, col, sum_im, v_im);
    }
  }
}

void RecoverLeadingComplex(const StageSystem& system, double* v_re, double* v_im) {
  for (std::int32_t i = system.block_count - 1; i >= 0; --i) {
    v_re[i] = v_re[i] + v_re[system.block_stride + i];
    v_im[i] = v_im[i] + v_im[system.block_stride + i];
    elimination::DivideComplex(system.complex_shift_re, system.complex_shift_im, v_re[i], v_im[i]);
  }
}

// v := E1^-1 v
void SolveReal(const StageSystem& system, MatrixForm form, double* v) {
  const std::int32_t order = OrderOf(system);
  const bool has_blocks = HasBlocks(system.matrix_case);
  if (has_blocks) EliminateLeading(system, form, v);
  double* unknown = v + LeadingCount(system);
  if (IsBanded(form)) {
    LuSolveBand(order, system.factor_rows, system.E1, band_dims.factor_lower, band_dims.factor_upper, unknown,
                system.IP_real);
  } else if (form == MatrixForm::HESSENBERG) {
    ToHessenbergBasis(system, unknown);
    LuSolveHess(order, system.factor_rows, system.E1, 1, unknown, system.IP_real);
    FromHessenbergBasis(system, unknown);
  } else {
    LuSolve(order, system.factor_rows, system.E1, unknown, system.IP_real);
  }
  if (has_blocks) RecoverLeading(system, v);
}

// v_re + i v_im := (E2R + i E2I)^-1 (v_re + i v_im)
void SolveComplex(const StageSystem& system, MatrixForm form, double* v_re, double* v_im) {
  const std::int32_t order = OrderOf(system);
  const bool has_blocks = HasBlocks(system.matrix_case);
  if (has_blocks) EliminateLeadingComplex(system, form, v_re, v_im);
  double* unknown_re = v_re + LeadingCount(system);
  double* unknown_im = v_im + LeadingCount(system);
  if (IsBanded(form)) {
    LuSolveBandComplex(order, system.factor_rows, system.E2R, system.E2I, band_dims.factor_lower,
                       band_dims.factor_upper, unknown_re, unknown_im, system.IP_complex);
  } else if (form == MatrixForm::HESSENBERG) {
    ToHessenbergBasis(system, unknown_re);
    ToHessenbergBasis(system, unknown_im);
    LuSolveHessComplex(order, system.factor_rows, system.E2R, system.E2I, 1, unknown_re, unknown_im, system.IP_complex);
    FromHessenbergBasis(system, unknown_re);
    FromHessenbergBasis(system, unknown_im);
  } else {
    LuSolveComplex(order, system.factor_rows, system.E2R, system.E2I, unknown_re, unknown_im, system.IP_complex);
  }
  if (has_blocks) RecoverLeadingComplex(system, v_re, v_im);
}

// Adds the shifted increments of the equations with a mass matrix that is not diagonal; they follow the equations with
// an identity mass.
void AddShiftedMass(const StageSystem& system, MatrixForm form, const StageArrays& arrays) {
  const std::int32_t identity_count = IdentityCount(system, form);
  for (std::int32_t i = identity_count; i < system.n; ++i) {
    double r1 = 0.0;
    double r2 = 0.0;
    double r3 = 0.0;
    const MassRow mass = RowOfMass(system, form, i - identity_count);
    for (std::int32_t j = mass.first; j <= mass.last; ++j) {
      const double m_ij = mass.row[j * mass.stride];
      r1 -= m_ij * arrays.F1[j + identity_count];
      r2 -= m_ij * arrays.F2[j + identity_count];
      r3 -= m_ij * arrays.F3[j + identity_count];
    }
    arrays.Z1[i] += r1 * system.real_shift;
    arrays.Z2[i] = arrays.Z2[i] + r2 * system.complex_shift_re - r3 * system.complex_shift_im;
    arrays.Z3[i] = arrays.Z3[i] + r3 * system.complex_shift_re + r2 * system.complex_shift_im;
  }
}

// MF := M F
void MultiplyByMass(const StageSystem& system, MatrixForm form, const double* F, double* MF) {
  const std::int32_t identity_count = IdentityCount(system, form);
  std::copy(F, F + identity_count, MF);
  if (IsDiagonalMass(system, form)) {
    MultiplyByDiagonal(system.n - identity_count, system.FMAS, F + identity_count, MF + identity_count);
    return;
  }
  for (std::int32_t i = identity_count; i < system.n; ++i) {
    const MassRow mass = RowOfMass(system, form, i - identity_count);
    double sum = 0.0;
    for (std::int32_t j = mass.first; j <= mass.last; ++j) {
      sum += mass.row[j * mass.stride] * F[j + identity_count];
    }
    MF[i] = sum;
  }
}

double ErrorNorm(std::int32_t n, const double* error, const double* SCAL) {
  return OrderedMax(std::sqrt(SumOfScaledSquares(n, error, SCAL) / n), MIN_ERR);
}

}  // namespace

void SolveStageSystem(const StageSystem& system, const StageArrays& arrays) {
  const MatrixForm form = FormOf(system.matrix_case);
  if (form == MatrixForm::NONE) return;

  const StageShifts shifts = {system.real_shift, system.complex_shift_re, system.complex_shift_im};
  const std::int32_t identity_count = IdentityCount(system, form);
  AddShiftedIdentity(identity_count, shifts, arrays.F1, arrays.F2, arrays.F3, arrays.Z1, arrays.Z2, arrays.Z3);
  if (IsDiagonalMass(system, form)) {
    const std::int32_t c = identity_count;
    AddShiftedDiagonal(system.n - c, shifts, system.FMAS, arrays.F1 + c, arrays.F2 + c, arrays.F3 + c, arrays.Z1 + c,
                       arrays.Z2 + c, arrays.Z3 + c);
  } else {
    AddShiftedMass(system, form, arrays);
  }
  if (IsBanded(form) || form == MatrixForm::HESSENBERG || HasBlocks(system.matrix_case)) {
    SolveReal(system, form, arrays.Z1);
    SolveComplex(system, form, arrays.Z2, arrays.Z3);
    return;
  }
  LuSolvePair(system.n, system.factor_rows, system.E1, arrays.Z1, system.IP_real, system.E2R, system.E2I, arrays.Z2,
              arrays.Z3, system.IP_complex);
}

void EstimateError(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs, double x,
                   const double* y, double h, bool first_step, bool rejected, std::int32_t& rhs_calls, double& err) {
  const MatrixForm form = FormOf(system.matrix_case);
  if (form == MatrixForm::NONE) return;
  const std::int32_t n = system.n;
  double* CONT = arrays.CONT;
  double* F1 = arrays.F1;
  double* F2 = arrays.F2;

  const double d[3] = {radau::err_d1 / h, radau::err_d2 / h, radau::err_d3 / h};
  CombineStages(n, d, arrays.Z1, arrays.Z2, arrays.Z3, F1);
  MultiplyByMass(system, form, F1, F2);
  AddVectors(n, F2, arrays.Y0, CONT);
  SolveReal(system, form, CONT);
  err = ErrorNorm(n, CONT, arrays.SCAL);

  if (err < 1.0) return;
  if (!(first_step || rejected)) return;
  for (std::int32_t i = 0; i < n; ++i) {
    CONT[i] = y[i] + CONT[i];
  }
  rhs.callback(n, x, CONT, F1, rhs.real_context, rhs.model_context);
  rhs_calls += 1;
  for (std::int32_t i = 0; i < n; ++i) {
    CONT[i] = F1[i] + F2[i];
  }
  SolveReal(system, form, CONT);
  err = ErrorNorm(n, CONT, arrays.SCAL);
}

}  // namespace vorlen
