// The four functions through which the integrator asks its caller. real_context and model_context are the caller's
// pointers, handed through untouched. A callback must not start another integration on the same thread.
#pragma once

#include <cstdint>

namespace vorlen {

// Writes the right-hand side f(x, y) into f. y and f hold n reals; y is a state, a perturbed state or a stage state.
using RadauRhsCallback = void (*)(std::int32_t n, double x, const double* y, double* f, void* real_context,
                                  void* model_context);

// Writes the Jacobian of f at (x, y) into FJAC, n columns of jac_rows reals; entry J(i, j), the derivative of f(i) by
// y(j), from 1, goes to
//   full:   FJAC(i - block_count, j),
//   banded: FJAC(r - c + mujac + 1, j) with r = i - block_count and c the position of j in its block of block_stride
//           columns (r = i and c = j without block structure), for r - mlmas .. within the band only.
// The rows of the block_count leading equations are not stored.
using RadauJacobianCallback = void (*)(std::int32_t n, double x, const double* y, double* FJAC, std::int32_t jac_rows,
                                       void* real_context, void* model_context);

// Writes the constant mass matrix of the n_reduced equations behind the block structure into FMAS, n_reduced columns
// of mass_rows reals: M(i, j), from 1, goes to FMAS(i - j + mumas + 1, j), for a full matrix to FMAS(i, j).
// Called once, before the first step.
using RadauMassCallback = void (*)(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void* real_context,
                                   void* model_context);

// Called at the start (accepted_index 1, x_old = x) and after each accepted step (accepted_index = accepted steps + 1)
// with the state y (n reals) at x. CONT (cont_size = 4 * n reals) is for RadauDenseValue, which from the second call on
// gives the solution anywhere in [x_old, x]. A negative stop_flag on return ends the integration at x; the flag is set
// to 1 once, before the first call.
using RadauStepCallback = void (*)(std::int32_t accepted_index, double x_old, double x, const double* y,
                                   const double* CONT, std::int32_t cont_size, std::int32_t n, void* real_context,
                                   void* model_context, std::int32_t& stop_flag);

}  // namespace vorlen
