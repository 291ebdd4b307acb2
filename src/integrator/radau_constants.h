// Constants of the three-stage Radau IIA method of order 5: the nodes, the matrix that transforms the stage equations
// to real block-diagonal form and its inverse, the eigenvalues of the inverse coefficient matrix, and the weights of
// the error estimate. They have no unit.
#pragma once

namespace vorlen::radau {

inline constexpr double root6 = 2.449489742783178;

// Nodes; the third is 1.
inline constexpr double c1 = (4.0 - root6) / 10.0;
inline constexpr double c2 = (4.0 + root6) / 10.0;
inline constexpr double c1_minus_1 = c1 - 1.0;
inline constexpr double c2_minus_1 = c2 - 1.0;
inline constexpr double c1_minus_c2 = c1 - c2;

// Weights of the stage increments in the error estimate.
inline constexpr double err_d1 = -(13.0 + 7.0 * root6) / 3.0;
inline constexpr double err_d2 = (-13.0 + 7.0 * root6) / 3.0;
inline constexpr double err_d3 = -0.3333333333333333;

// Eigenvalues of the inverse of the coefficient matrix: one real, one complex pair, from the eigenvalues of the matrix.
inline constexpr double eig_real = 0.27488882959567734;
inline constexpr double eig_re = 0.16255558520216132;
inline constexpr double eig_im = 0.18494932440714076;
inline constexpr double eig_norm2 = eig_re * eig_re + eig_im * eig_im;
inline constexpr double real_eigenvalue = 1.0 / eig_real;
inline constexpr double complex_eigenvalue_re = eig_re / eig_norm2;
inline constexpr double complex_eigenvalue_im = eig_im / eig_norm2;

// T, from transformed to stage variables. Row 3 is (T31, 1, 0).
inline constexpr double T11 = 0.09123239487089295;
inline constexpr double T12 = -0.1412552950209542;
inline constexpr double T13 = -0.030029194105147424;
inline constexpr double T21 = 0.241717932707107;
inline constexpr double T22 = 0.20412935229379994;
inline constexpr double T23 = 0.3829421127572619;
inline constexpr double T31 = 0.966048182615093;

// TI, its inverse, from stage to transformed variables.
inline constexpr double TI11 = 4.325579890063155;
inline constexpr double TI12 = 0.33919925181580984;
inline constexpr double TI13 = 0.5417705399358749;
inline constexpr double TI21 = -4.178718591551905;
inline constexpr double TI22 = -0.32768282076106237;
inline constexpr double TI23 = 0.47662355450055044;
inline constexpr double TI31 = -0.5028726349457868;
inline constexpr double TI32 = 2.571926949855605;
inline constexpr double TI33 = -0.5960392048282249;

}  // namespace vorlen::radau
