// The two iteration matrices of the simplified Newton iteration: set up from Jacobian, mass matrix and shift, then
// factorised. With block structure the leading components are eliminated first: their columns of the Jacobian are added
// to the lower right block, divided once more by the shift for each block. Rows and columns count from 0 here.
#include <algorithm>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_form.h"
#include "integrator/matrix_kernels.h"
#include "integrator/pair_kernels.h"
#include "integrator/stage_system.h"

namespace vorlen {

using elimination::Column;

namespace {

// E := -J in the storage of the factors. Hessenberg form uses only the entries on and above the first subdiagonal.
void SetNegatedJacobian(const StageSystem& system, MatrixForm form, double* E) {
  const std::int32_t order = OrderOf(system);
  for (std::int32_t j = 0; j < order; ++j) {
    const double* jac = Column(system.FJAC, system.jac_rows, j + LeadingCount(system));
    double* factor = Column(E, system.factor_rows, j);
    std::int32_t rows = order;
    if (IsBanded(form)) {
      factor += band_dims.factor_lower;
      rows = band_dims.jac_band_rows;
    } else if (form == MatrixForm::HESSENBERG) {
      rows = std::min(j + 2, order);
    }
    for (std::int32_t i = 0; i < rows; ++i) {
      factor[i] = -jac[i];
    }
  }
}

void SetZero(const StageSystem& system, MatrixForm form, double* E) {
  const std::int32_t order = OrderOf(system);
  for (std::int32_t j = 0; j < order; ++j) {
    double* factor = Column(E, system.factor_rows, j);
    if (IsBanded(form)) {
      std::fill(factor + band_dims.factor_lower, factor + band_dims.factor_lower + band_dims.jac_band_rows, 0.0);
    } else {
      std::fill(factor, factor + order, 0.0);
    }
  }
}

// E := shift * M - J for a full mass matrix.
void SetFullMassMatrix(const StageSystem& system, double shift, double* E) {
  const std::int32_t order = OrderOf(system);
  for (std::int32_t j = 0; j < order; ++j) {
    const double* jac = Column(system.FJAC, system.jac_rows, j + LeadingCount(system));
    const double* mass = Column(system.FMAS, system.mass_rows, j);
    double* factor = Column(E, system.factor_rows, j);
    for (std::int32_t i = 0; i < order; ++i) {
      factor[i] = mass[i] * shift - jac[i];
    }
  }
}

// E := shift * M for a full mass matrix.
void SetFullShiftedMass(const StageSystem& system, double shift, double* E) {
  const std::int32_t order = OrderOf(system);
  for (std::int32_t j = 0; j < order; ++j) {
    const double* mass = Column(system.FMAS, system.mass_rows, j);
    double* factor = Column(E, system.factor_rows, j);
    for (std::int32_t i = 0; i < order; ++i) {
      factor[i] = mass[i] * shift;
    }
  }
}

// Calls visit(entry of the factors, entry of the mass matrix) for every entry of a mass matrix that is not full.
template <typename Visit>
void ForEachMassEntry(const StageSystem& system, MatrixForm form, double* E, Visit visit) {
  const std::int32_t order = OrderOf(system);
  for (std::int32_t j = 0; j < order; ++j) {
    double* factor = Column(E, system.factor_rows, j);
    if (!HasMass(form)) {
      visit(factor[IsBanded(form) ? band_dims.factor_diag_row - 1 : j], 1.0);
      continue;
    }
    const double* mass = Column(system.FMAS, system.mass_rows, j);
    if (form == MatrixForm::BAND_BAND_MASS) {
      for (std::int32_t i = 0; i < band_dims.mass_band_rows; ++i) {
        visit(factor[i + band_dims.mass_row_offset], mass[i]);
      }
    } else {
      const std::int32_t row_first = std::max(0, j - system.mumas);
      const std::int32_t row_last = std::min(order - 1, j + system.mlmas);
      for (std::int32_t i = row_first; i <= row_last; ++i) {
        visit(factor[i], mass[i - j + band_dims.mass_diag_row - 1]);
      }
    }
  }
}

// E := shift * M - J
void SetRealPart(const StageSystem& system, MatrixForm form, double shift, double* E) {
  if (form == MatrixForm::FULL_FULL_MASS) {
    SetFullMassMatrix(system, shift, E);
    return;
  }
  SetNegatedJacobian(system, form, E);
  ForEachMassEntry(system, form, E, [shift](double& entry, double m_ij) { entry += shift * m_ij; });
}

// E := shift * M
void SetImaginaryPart(const StageSystem& system, MatrixForm form, double shift, double* E) {
  if (form == MatrixForm::FULL_FULL_MASS) {
    SetFullShiftedMass(system, shift, E);
    return;
  }
  SetZero(system, form, E);
  ForEachMassEntry(system, form, E, [shift](double& entry, double m_ij) { entry = shift * m_ij; });
}

// The rows of the Jacobian that are added to the factors, and the row of the factors where they start.
std::int32_t FoldedRows(const StageSystem& system, MatrixForm form) {
  return IsBanded(form) ? band_dims.jac_band_rows : system.n_reduced;
}

std::int32_t FoldedRowStart(MatrixForm form) { return IsBanded(form) ? band_dims.factor_lower : 0; }

void FoldLeadingColumns(const StageSystem& system, MatrixForm form) {
  const std::int32_t blocks = system.block_count / system.block_stride;
  const std::int32_t rows = FoldedRows(system, form);
  for (std::int32_t j = 0; j < system.block_stride; ++j) {
    double* factor = Column(system.E1, system.factor_rows, j) + FoldedRowStart(form);
    for (std::int32_t i = 0; i < rows; ++i) {
      double sum = 0.0;
      for (std::int32_t k = 0; k < blocks; ++k) {
        sum = (sum + Column(system.FJAC, system.jac_rows, j + k * system.block_stride)[i]) / system.real_shift;
      }
      factor[i] -= sum;
    }
  }
}

void FoldLeadingColumnsComplex(const StageSystem& system, MatrixForm form) {
  const std::int32_t blocks = system.block_count / system.block_stride;
  const std::int32_t rows = FoldedRows(system, form);
  for (std::int32_t j = 0; j < system.block_stride; ++j) {
    double* factor_re = Column(system.E2R, system.factor_rows, j) + FoldedRowStart(form);
    double* factor_im = Column(system.E2I, system.factor_rows, j) + FoldedRowStart(form);
    for (std::int32_t i = 0; i < rows; ++i) {
      double sum_re = 0.0;
      double sum_im = 0.0;
      for (std::int32_t k = 0; k < blocks; ++k) {
        sum_re += Column(system.FJAC, system.jac_rows, j + k * system.block_stride)[i];
        elimination::DivideComplex(system.complex_shift_re, system.complex_shift_im, sum_re, sum_im);
      }
      factor_re[i] -= sum_re;
      factor_im[i] -= sum_im;
    }
  }
}

void SetRealMatrix(const StageSystem& system, MatrixForm form) {
  SetRealPart(system, form, system.real_shift, system.E1);
  if (HasBlocks(system.matrix_case)) FoldLeadingColumns(system, form);
}

void SetComplexMatrix(const StageSystem& system, MatrixForm form) {
  SetRealPart(system, form, system.complex_shift_re, system.E2R);
  SetImaginaryPart(system, form, system.complex_shift_im, system.E2I);
  if (HasBlocks(system.matrix_case)) FoldLeadingColumnsComplex(system, form);
}

// Both matrices in one pass, for a diagonal mass matrix and matrices without gaps between their columns. Off the
// diagonal both are -J, and the imaginary part is zero.
void SetDiagonalMassPair(const StageSystem& system, MatrixForm form) {
  const std::int32_t n = system.n;
  const double* __restrict jac = system.FJAC;
  double* __restrict E1 = system.E1;
  double* __restrict E2R = system.E2R;
  double* __restrict E2I = system.E2I;
  for (std::int32_t i = 0; i < n * n; ++i) {
    const double negated = -jac[i];
    E1[i] = negated;
    E2R[i] = negated;
    E2I[i] = 0.0;
  }
  for (std::int32_t j = 0; j < n; ++j) {
    const double m_jj = HasMass(form) ? system.FMAS[j] : 1.0;
    const std::int32_t diagonal = j * (n + 1);
    E1[diagonal] += system.real_shift * m_jj;
    E2R[diagonal] += system.complex_shift_re * m_jj;
    E2I[diagonal] = system.complex_shift_im * m_jj;
  }
}

void SetPair(const StageSystem& system, MatrixForm form) {
  const bool no_gaps = system.jac_rows == system.n && system.factor_rows == system.n && LeadingCount(system) == 0;
  if (no_gaps && (!HasMass(form) || IsDiagonalMass(system, form))) {
    SetDiagonalMassPair(system, form);
    return;
  }
  SetRealMatrix(system, form);
  SetComplexMatrix(system, form);
}

}  // namespace

void FormRealMatrix(StageSystem& system, std::int32_t& zero_pivot) {
  const MatrixForm form = FormOf(system.matrix_case);
  if (form == MatrixForm::NONE) return;
  const std::int32_t order = OrderOf(system);
  if (form == MatrixForm::HESSENBERG && system.hessenberg_due) {
    ReduceToHessenberg(system.jac_rows, order, 1, order, system.FJAC, system.IPHES);
    system.hessenberg_due = false;
  }
  SetRealMatrix(system, form);
  if (IsBanded(form)) {
    LuDecomposeBand(order, system.factor_rows, system.E1, band_dims.factor_lower, band_dims.factor_upper,
                    system.IP_real, zero_pivot);
  } else if (form == MatrixForm::HESSENBERG) {
    LuDecomposeHess(order, system.factor_rows, system.E1, 1, system.IP_real, zero_pivot);
  } else {
    LuDecompose(order, system.factor_rows, system.E1, system.IP_real, zero_pivot);
  }
}

void FormComplexMatrix(StageSystem& system, std::int32_t& zero_pivot) {
  const MatrixForm form = FormOf(system.matrix_case);
  if (form == MatrixForm::NONE) return;
  const std::int32_t order = OrderOf(system);
  SetComplexMatrix(system, form);
  if (IsBanded(form)) {
    LuDecomposeBandComplex(order, system.factor_rows, system.E2R, system.E2I, band_dims.factor_lower,
                           band_dims.factor_upper, system.IP_complex, zero_pivot);
  } else if (form == MatrixForm::HESSENBERG) {
    LuDecomposeHessComplex(order, system.factor_rows, system.E2R, system.E2I, 1, system.IP_complex, zero_pivot);
  } else {
    LuDecomposeComplex(order, system.factor_rows, system.E2R, system.E2I, system.IP_complex, zero_pivot);
  }
}

void FormMatrices(StageSystem& system, std::int32_t& zero_pivot) {
  const MatrixForm form = FormOf(system.matrix_case);
  if (form != MatrixForm::NONE && form != MatrixForm::HESSENBERG && !IsBanded(form)) {
    SetPair(system, form);
    LuDecomposePair(OrderOf(system), system.factor_rows, system.E1, system.IP_real, system.E2R, system.E2I,
                    system.IP_complex, zero_pivot);
    return;
  }
  FormRealMatrix(system, zero_pivot);
  if (zero_pivot == 0) FormComplexMatrix(system, zero_pivot);
}

}  // namespace vorlen
