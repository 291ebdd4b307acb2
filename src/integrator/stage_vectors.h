// The loops over the components of the stage vectors. Components are independent of each other except in the two sums,
// which run in the order of the components. A loop may therefore process two components at a time; each still goes
// through its own operations in sequence. No two arrays may overlap; n elements each.
#pragma once

#include <cstdint>

namespace vorlen {

// state := y + Z
void AddVectors(std::int32_t n, const double* y, const double* Z, double* state);

// (Z1, Z2, Z3) := the polynomial of the last step at q1, q2, q3 past its end, minus its value there;
// (F1, F2, F3) := TI (Z1, Z2, Z3). B1, B2 and B3 are the coefficients.
void ExtrapolateStages(std::int32_t n, const double q[3], const double* B1, const double* B2, const double* B3,
                       double* Z1, double* Z2, double* Z3, double* F1, double* F2, double* F3);

// (Z1, Z2, Z3) := TI (Z1, Z2, Z3)
void ToTransformed(std::int32_t n, double* Z1, double* Z2, double* Z3);

// (F1, F2, F3) += (Z1, Z2, Z3), then (Z1, Z2, Z3) := T (F1, F2, F3)
void AddUpdate(std::int32_t n, double* Z1, double* Z2, double* Z3, double* F1, double* F2, double* F3);

// y += Z3; B1, B2, B3 := the coefficients of the polynomial through the stages
void AdvanceState(std::int32_t n, const double* Z1, const double* Z2, const double* Z3, double* y, double* B1,
                  double* B2, double* B3);

// Eigenvalues divided by the step.
struct StageShifts {
  double real = 0.0;        // real eigenvalue / step
  double complex_re = 0.0;  // real part of the complex eigenvalue / step
  double complex_im = 0.0;  // imaginary part of the complex eigenvalue / step
};

// Adds the shifted increments to the transformed values of f: Z1 -= real M F1 and
// Z2 + i Z3 -= (complex_re + i complex_im) M (F2 + i F3), M the identity or a diagonal.
void AddShiftedIdentity(std::int32_t n, const StageShifts& shifts, const double* F1, const double* F2, const double* F3,
                        double* Z1, double* Z2, double* Z3);
void AddShiftedDiagonal(std::int32_t n, const StageShifts& shifts, const double* M, const double* F1, const double* F2,
                        const double* F3, double* Z1, double* Z2, double* Z3);

// MF := M F, M a diagonal
void MultiplyByDiagonal(std::int32_t n, const double* M, const double* F, double* MF);

// Sum of (Z1 / SCAL)^2 + (Z2 / SCAL)^2 + (Z3 / SCAL)^2
double SumOfScaledSquares(std::int32_t n, const double* Z1, const double* Z2, const double* Z3, const double* SCAL);

// Sum of (Z / SCAL)^2
double SumOfScaledSquares(std::int32_t n, const double* Z, const double* SCAL);

// column := (f - f0) / delta
void DifferenceQuotients(std::int32_t n, const double* f, const double* f0, double delta, double* column);

// F := d[0] Z1 + d[1] Z2 + d[2] Z3
void CombineStages(std::int32_t n, const double d[3], const double* Z1, const double* Z2, const double* Z3, double* F);

}  // namespace vorlen
