// The four callbacks of RadauIntegrator. real_context and model_context are the caller's pointers, passed on untouched.
// A callback must not start another integration on the same thread.
//
// Matrices are stored by columns and indices count from 1: element (r, c) of an array A with `rows` rows, row r and
// column c, is A[(r - 1) + (c - 1) * rows]. For a band with lower bandwidth 2 and upper bandwidth 1 and order 5 (each
// column of the matrix becomes a column of the array, * is not read):
//
//                matrix                            array
//       | 11  12   .   .   . |         row 1 |  *  12  23  34  45 |   superdiagonal
//       | 21  22  23   .   . |         row 2 | 11  22  33  44  55 |   diagonal
//       | 31  32  33  34   . |         row 3 | 21  32  43  54   * |   first subdiagonal
//       |  .  42  43  44  45 |         row 4 | 31  42  53   *   * |   second subdiagonal
//       |  .   .  53  54  55 |
//
// Matrix element (i, j) of a band is array element (i - j + upper bandwidth + 1, j).
#pragma once

#include <cstdint>

namespace vorlen {

// Writes the right-hand side f(x, y) into f. y and f have n elements; y is a state, a state perturbed for a difference
// quotient, or the state of a stage.
using RadauRhsCallback = void (*)(std::int32_t n, double x, const double* y, double* f, void* real_context,
                                  void* model_context);

// Writes the Jacobian J at (x, y) into FJAC, which has jac_rows rows and n columns. J(i, j) is the derivative of f(i)
// by y(j): row i is the equation, column j the component.
//
//   full    jac_rows = n               J(i, j) is FJAC(i, j)
//   band    jac_rows = mljac+mujac+1   J(i, j) is FJAC(i - j + mujac + 1, j), for -mujac <= i - j <= mljac only
//
// With block structure the first block_count equations are not stored. Equation i has row r = i - block_count, and in a
// band column j has position c in its block of block_stride columns, c = (j - 1) % block_stride + 1:
//
//   full    jac_rows = n - block_count   J(i, j) is FJAC(r, j)
//   band    jac_rows = mljac+mujac+1     J(i, j) is FJAC(r - c + mujac + 1, j), for -mujac <= r - c <= mljac only
//
// The array is not cleared before the call: write every element that belongs to the matrix, zeros included.
using RadauJacobianCallback = void (*)(std::int32_t n, double x, const double* y, double* FJAC, std::int32_t jac_rows,
                                       void* real_context, void* model_context);

// Writes the constant mass matrix M of the last n_reduced = n - block_count equations into FMAS, which has mass_rows
// rows and n_reduced columns. Called once, before the first step. The array is not cleared before the call.
//
//   full    mass_rows = n_reduced       M(i, j) is FMAS(i, j)
//   band    mass_rows = mlmas+mumas+1   M(i, j) is FMAS(i - j + mumas + 1, j), for -mumas <= i - j <= mlmas only
using RadauMassCallback = void (*)(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void* real_context,
                                   void* model_context);

// Called at the start (accepted_index 1, x_old = x) and after each accepted step (accepted_index = accepted steps + 1)
// with the state y (n elements) at x. CONT (cont_size = 4 * n elements) is for RadauDenseValue, which from the second
// call on gives the solution anywhere in [x_old, x]. A negative stop_flag on return ends the integration at x; the flag
// is set to 1 once, before the first call.
using RadauStepCallback = void (*)(std::int32_t accepted_index, double x_old, double x, const double* y,
                                   const double* CONT, std::int32_t cont_size, std::int32_t n, void* real_context,
                                   void* model_context, std::int32_t& stop_flag);

}  // namespace vorlen
