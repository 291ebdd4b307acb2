// The matrix forms of the stage equations: what a matrix_case number says about storage and elimination.
#pragma once

#include <cstdint>

#include "integrator/stage_system.h"

namespace vorlen {

// Form of Jacobian and mass matrix, without the block structure. A name with one part has an identity mass matrix.
enum class MatrixForm { FULL, BAND, FULL_BAND_MASS, BAND_BAND_MASS, FULL_FULL_MASS, HESSENBERG, NONE };

inline constexpr std::int32_t BLOCK_CASES = 10;  // added to the matrix_case of a problem with block structure

inline bool HasBlocks(std::int32_t matrix_case) { return matrix_case > BLOCK_CASES && matrix_case <= BLOCK_CASES + 5; }

inline MatrixForm FormOf(std::int32_t matrix_case) {
  switch (HasBlocks(matrix_case) ? matrix_case - BLOCK_CASES : matrix_case) {
    case 2:
      return MatrixForm::BAND;
    case 3:
      return MatrixForm::FULL_BAND_MASS;
    case 4:
      return MatrixForm::BAND_BAND_MASS;
    case 5:
      return MatrixForm::FULL_FULL_MASS;
    case 7:
      return MatrixForm::HESSENBERG;
    case 6:
    case 8:
    case 9:
    case 10:
      return MatrixForm::NONE;
    default:
      return MatrixForm::FULL;
  }
}

inline bool IsBanded(MatrixForm form) { return form == MatrixForm::BAND || form == MatrixForm::BAND_BAND_MASS; }

inline bool HasMass(MatrixForm form) {
  return form == MatrixForm::FULL_BAND_MASS || form == MatrixForm::BAND_BAND_MASS || form == MatrixForm::FULL_FULL_MASS;
}

// True if the mass matrix is stored as a diagonal.
inline bool IsDiagonalMass(const StageSystem& system, MatrixForm form) {
  return form == MatrixForm::FULL_BAND_MASS && system.mlmas == 0 && system.mumas == 0;
}

// Order of the linear systems.
inline std::int32_t OrderOf(const StageSystem& system) {
  return HasBlocks(system.matrix_case) ? system.n_reduced : system.n;
}

// Leading components that the block structure eliminates.
inline std::int32_t LeadingCount(const StageSystem& system) {
  return HasBlocks(system.matrix_case) ? system.block_count : 0;
}

}  // namespace vorlen
