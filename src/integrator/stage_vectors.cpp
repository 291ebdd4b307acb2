// The loops over the components of the stage vectors. Each is written for one component, and the pointers are declared
// without overlap so that the compiler can process several components at a time. It must not reorder sums, so the two
// sums are written in pairs explicitly: divisions and squares in pairs, terms added one after the other.
#include "integrator/stage_vectors.h"

#include "integrator/radau_constants.h"
#include "integrator/unrolled_rows.h"

namespace vorlen {

using unrolled::RowPair;
using unrolled::Two;

namespace {

// (a, b, c) := TI (z1, z2, z3)
void ApplyTI(double z1, double z2, double z3, double& a, double& b, double& c) {
  a = radau::TI11 * z1 + radau::TI12 * z2 + radau::TI13 * z3;
  b = radau::TI21 * z1 + radau::TI22 * z2 + radau::TI23 * z3;
  c = radau::TI31 * z1 + radau::TI32 * z2 + radau::TI33 * z3;
}

// minus_mass(i, value) is the negative of the mass of component i times the value.
template <typename MinusMass>
[[gnu::always_inline]] inline void AddShifted(std::int32_t n, StageShifts shifts, MinusMass minus_mass,
                                              const double* __restrict F1, const double* __restrict F2,
                                              const double* __restrict F3, double* __restrict Z1, double* __restrict Z2,
                                              double* __restrict Z3) {
  for (std::int32_t i = 0; i < n; ++i) {
    const double r1 = minus_mass(i, F1[i]);
    const double r2 = minus_mass(i, F2[i]);
    const double r3 = minus_mass(i, F3[i]);
    Z1[i] += r1 * shifts.real;
    Z2[i] = Z2[i] + r2 * shifts.complex_re - r3 * shifts.complex_im;
    Z3[i] = Z3[i] + r3 * shifts.complex_re + r2 * shifts.complex_im;
  }
}

}  // namespace

void AddVectors(std::int32_t n, const double* __restrict y, const double* __restrict Z, double* __restrict state) {
  for (std::int32_t i = 0; i < n; ++i) {
    state[i] = y[i] + Z[i];
  }
}

void ExtrapolateStages(std::int32_t n, const double q[3], const double* __restrict B1, const double* __restrict B2,
                       const double* __restrict B3, double* __restrict Z1, double* __restrict Z2, double* __restrict Z3,
                       double* __restrict F1, double* __restrict F2, double* __restrict F3) {
  const double q1 = q[0];
  const double q2 = q[1];
  const double q3 = q[2];
  for (std::int32_t i = 0; i < n; ++i) {
    const double b1 = B1[i];
    const double b2 = B2[i];
    const double b3 = B3[i];
    const double z1 = q1 * (b1 + (q1 - radau::c2_minus_1) * (b2 + (q1 - radau::c1_minus_1) * b3));
    const double z2 = q2 * (b1 + (q2 - radau::c2_minus_1) * (b2 + (q2 - radau::c1_minus_1) * b3));
    const double z3 = q3 * (b1 + (q3 - radau::c2_minus_1) * (b2 + (q3 - radau::c1_minus_1) * b3));
    Z1[i] = z1;
    Z2[i] = z2;
    Z3[i] = z3;
    ApplyTI(z1, z2, z3, F1[i], F2[i], F3[i]);
  }
}

void ToTransformed(std::int32_t n, double* __restrict Z1, double* __restrict Z2, double* __restrict Z3) {
  for (std::int32_t i = 0; i < n; ++i) {
    ApplyTI(Z1[i], Z2[i], Z3[i], Z1[i], Z2[i], Z3[i]);
  }
}

void AddUpdate(std::int32_t n, double* __restrict Z1, double* __restrict Z2, double* __restrict Z3,
               double* __restrict F1, double* __restrict F2, double* __restrict F3) {
  for (std::int32_t i = 0; i < n; ++i) {
    const double w1 = F1[i] + Z1[i];
    const double w2 = F2[i] + Z2[i];
    const double w3 = F3[i] + Z3[i];
    F1[i] = w1;
    F2[i] = w2;
    F3[i] = w3;
    Z1[i] = radau::T11 * w1 + radau::T12 * w2 + radau::T13 * w3;
    Z2[i] = radau::T21 * w1 + radau::T22 * w2 + radau::T23 * w3;
    Z3[i] = radau::T31 * w1 + w2;
  }
}

void AdvanceState(std::int32_t n, const double* __restrict Z1, const double* __restrict Z2, const double* __restrict Z3,
                  double* __restrict y, double* __restrict B1, double* __restrict B2, double* __restrict B3) {
  for (std::int32_t i = 0; i < n; ++i) {
    const double z1 = Z1[i];
    const double z2 = Z2[i];
    const double z3 = Z3[i];
    y[i] += z3;
    const double first = (z2 - z3) / radau::c2_minus_1;
    const double slope = (z1 - z2) / radau::c1_minus_c2;
    const double third = (slope - z1 / radau::c1) / radau::c2;
    const double second = (slope - first) / radau::c1_minus_1;
    B1[i] = first;
    B2[i] = second;
    B3[i] = second - third;
  }
}

void AddShiftedIdentity(std::int32_t n, const StageShifts& shifts, const double* F1, const double* F2, const double* F3,
                        double* Z1, double* Z2, double* Z3) {
  AddShifted(
      n, shifts, [](std::int32_t, double value) { return -value; }, F1, F2, F3, Z1, Z2, Z3);
}

// Zero minus a product, not the negated product: the two differ where the product is zero.
void AddShiftedDiagonal(std::int32_t n, const StageShifts& shifts, const double* __restrict M, const double* F1,
                        const double* F2, const double* F3, double* Z1, double* Z2, double* Z3) {
  AddShifted(
      n, shifts, [M](std::int32_t i, double value) { return 0.0 - M[i] * value; }, F1, F2, F3, Z1, Z2, Z3);
}

// As a sum that starts with zero: a product -0 becomes 0.
void MultiplyByDiagonal(std::int32_t n, const double* __restrict M, const double* __restrict F, double* __restrict MF) {
  for (std::int32_t i = 0; i < n; ++i) {
    MF[i] = 0.0 + M[i] * F[i];
  }
}

double SumOfScaledSquares(std::int32_t n, const double* Z1, const double* Z2, const double* Z3, const double* SCAL) {
  double sum = 0.0;
  std::int32_t i = 0;
  for (; i + 1 < n; i += 2) {
    const RowPair scale = Two::Load(SCAL + i);
    const RowPair z1 = Two::Load(Z1 + i) / scale;
    const RowPair z2 = Two::Load(Z2 + i) / scale;
    const RowPair z3 = Two::Load(Z3 + i) / scale;
    const RowPair square1 = z1 * z1;
    const RowPair square2 = z2 * z2;
    const RowPair square3 = z3 * z3;
    sum = sum + square1[0] + square2[0] + square3[0];
    sum = sum + square1[1] + square2[1] + square3[1];
  }
  if (i < n) {
    const double z1 = Z1[i] / SCAL[i];
    const double z2 = Z2[i] / SCAL[i];
    const double z3 = Z3[i] / SCAL[i];
    sum = sum + z1 * z1 + z2 * z2 + z3 * z3;
  }
  return sum;
}

double SumOfScaledSquares(std::int32_t n, const double* Z, const double* SCAL) {
  double sum = 0.0;
  std::int32_t i = 0;
  for (; i + 1 < n; i += 2) {
    const RowPair scaled = Two::Load(Z + i) / Two::Load(SCAL + i);
    const RowPair square = scaled * scaled;
    sum = sum + square[0] + square[1];
  }
  if (i < n) {
    const double scaled = Z[i] / SCAL[i];
    sum += scaled * scaled;
  }
  return sum;
}

void DifferenceQuotients(std::int32_t n, const double* __restrict f, const double* __restrict f0, double delta,
                         double* __restrict column) {
  for (std::int32_t i = 0; i < n; ++i) {
    column[i] = (f[i] - f0[i]) / delta;
  }
}

void CombineStages(std::int32_t n, const double d[3], const double* __restrict Z1, const double* __restrict Z2,
                   const double* __restrict Z3, double* __restrict F) {
  const double d1 = d[0];
  const double d2 = d[1];
  const double d3 = d[2];
  for (std::int32_t i = 0; i < n; ++i) {
    F[i] = d1 * Z1[i] + d2 * Z2[i] + d3 * Z3[i];
  }
}

}  // namespace vorlen
