// The linear systems of one simplified Newton iteration in transformed variables, one real and one complex of the order
// of the reduced problem, and the error estimate, which uses the factors of the real one.
//
//   E1        = real_shift * M - J
//   E2R+i*E2I = (complex_shift_re + i * complex_shift_im) * M - J,   the unknown is Z2 + i * Z3
//
// matrix_case selects storage and elimination:
//    1 full Jacobian, identity mass         2 band Jacobian, identity mass
//    3 full Jacobian, band mass             4 band Jacobian, band mass
//    5 full Jacobian, full mass             7 full Jacobian in Hessenberg form, identity mass
//   11 to 15 as 1 to 5 on the lower right block, when the block_count leading equations are
//            y'(i) = y(i + block_stride) and are eliminated beforehand.
// 6, 8, 9 and 10 do nothing; any other value acts as 1. No routine allocates.
#pragma once

#include <cstdint>

#include "integrator/radau_callbacks.h"

namespace vorlen {

// Shapes of the band storage, set once per integration. Rows count from 1.
struct BandDims {
  std::int32_t factor_lower = 0;     // lower bandwidth of the Jacobian
  std::int32_t factor_upper = 0;     // upper bandwidth of the Jacobian
  std::int32_t jac_band_rows = 0;    // rows of the Jacobian's band
  std::int32_t mass_band_rows = 0;   // rows of the mass matrix's band
  std::int32_t factor_diag_row = 0;  // row of the diagonal in the band factors
  std::int32_t mass_row_offset = 0;  // row i of the band mass adds to row i + mass_row_offset of the band factors
  std::int32_t mass_diag_row = 0;    // row of the diagonal in the band mass
};

// One record per thread, so that integrations on different threads are independent.
extern constinit thread_local BandDims band_dims;

// Matrices, pivots and shifts of the stage equations. The arrays are the caller's; matrices are stored by columns.
struct StageSystem {
  std::int32_t n = 0;             // number of components
  std::int32_t matrix_case = 0;   // as listed above
  std::int32_t block_count = 0;   // leading components with y'(i) = y(i + block_stride)
  std::int32_t block_stride = 0;  // n without such components
  std::int32_t n_reduced = 0;     // n - block_count

  double* FJAC = nullptr;  // Jacobian, jac_rows x n; case 7 holds it in Hessenberg form after the first factorisation
  std::int32_t jac_rows = 0;  // rows of FJAC
  std::int32_t mljac = 0;     // lower bandwidth of the Jacobian, n_reduced: full
  std::int32_t mujac = 0;     // upper bandwidth of the Jacobian, n_reduced: full

  double* FMAS = nullptr;      // mass matrix, mass_rows x n_reduced; not read with an identity mass
  std::int32_t mass_rows = 0;  // rows of FMAS
  std::int32_t mlmas = 0;      // lower bandwidth of the mass matrix, n_reduced: full
  std::int32_t mumas = 0;      // upper bandwidth of the mass matrix, n_reduced: full

  double* E1 = nullptr;                // real matrix or its factors, factor_rows x n_reduced
  double* E2R = nullptr;               // real part of the complex matrix or its factors
  double* E2I = nullptr;               // imaginary part
  std::int32_t factor_rows = 0;        // rows of E1, E2R and E2I
  std::int32_t* IP_real = nullptr;     // pivots of E1, n_reduced
  std::int32_t* IP_complex = nullptr;  // pivots of E2R + i E2I, n_reduced
  std::int32_t* IPHES = nullptr;       // interchanges of the reduction to Hessenberg form

  double real_shift = 0.0;        // real eigenvalue / step
  double complex_shift_re = 0.0;  // real part of the complex eigenvalue / step
  double complex_shift_im = 0.0;  // imaginary part of the complex eigenvalue / step
  bool hessenberg_due = false;    // FJAC is fresh and not yet in Hessenberg form
};

// Work vectors of a step, n elements each; CONT has 4 n.
struct StageArrays {
  double* Z1 = nullptr;    // first stage: increment, value of f, or Newton update
  double* Z2 = nullptr;    // second stage, the same
  double* Z3 = nullptr;    // third stage, the same
  double* Y0 = nullptr;    // f(x, y) at the start of the step
  double* SCAL = nullptr;  // error scale of each component
  double* F1 = nullptr;    // first transformed stage increment; overwritten by the error estimate
  double* F2 = nullptr;    // second transformed stage increment; overwritten by the error estimate
  double* F3 = nullptr;    // third transformed stage increment
  double* CONT = nullptr;  // stage state during the Newton iteration, coefficients of the dense output between steps
};

// The right-hand side and the caller's pointers it is called with.
struct RhsFunction {
  RadauRhsCallback callback = nullptr;  // f
  void* real_context = nullptr;         // caller's pointer
  void* model_context = nullptr;        // caller's pointer
};

// Sets E1 and factorises it. zero_pivot is 0, or the index of a pivot that is exactly zero.
void FormRealMatrix(StageSystem& system, std::int32_t& zero_pivot);

// Sets E2R and E2I and factorises them. zero_pivot as above.
void FormComplexMatrix(StageSystem& system, std::int32_t& zero_pivot);

// Both, a pair of dense matrices together. zero_pivot as above, of either matrix; then neither has factors.
void FormMatrices(StageSystem& system, std::int32_t& zero_pivot);

// Turns Z1, Z2, Z3 from the transformed values of f at the stages into the Newton update of the transformed increments
// F1, F2, F3, which are not changed.
void SolveStageSystem(const StageSystem& system, const StageArrays& arrays);

// Estimates the error of the step from x with length h in the norm of SCAL; at least 1e-10, which is also the result
// for NaN. A first estimate of 1 or more on the first step or after a rejection is replaced by a second one, which
// costs one evaluation (counted in rhs_calls) and one solve. Overwrites F1, F2 and CONT.
void EstimateError(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs, double x,
                   const double* y, double h, bool first_step, bool rejected, std::int32_t& rhs_calls, double& err);

}  // namespace vorlen
