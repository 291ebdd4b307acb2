// Slot interface of the integrator for stiff systems of differential-algebraic equations
//
//   M y' = f(x, y),   y(x) given,   M constant, possibly singular,
//
// by the three-stage Radau IIA method of order 5 with adaptive step size, simplified Newton iteration and dense output.
// It allocates nothing, writes no text and keeps nothing between calls that a later call reads. Calls on different
// threads are independent.
//
// Programs outside of the tree use vorlen_radau.h, which fills these slots. docs/integrator.md describes both.
#pragma once

#include <cstdint>

#include "integrator/radau_callbacks.h"
#include "integrator/radau_step_loop.h"

namespace vorlen {

// Integrates from x to x_end.
//
//   n                  number of components, above 0
//   rhs_callback       f
//   x                  in: start; out: last accepted point
//   y[n]               in: state at the start; out: state at x. Changed and restored during the run.
//   x_end              end; below x the integration runs backward
//   h                  in: first step to try (sign ignored, 1e-6 if negligible); out: proposal for the next step
//                      (idid 1), or the step in use when the run ended
//   rtol, atol         relative and absolute tolerance: one number each with itol 0, else n each. Overwritten during
//                      the run and restored up to rounding; after idid -1 they may stay transformed.
//                      Each atol must be above 0 and each rtol above 10 * unit_roundoff.
//   itol               0: one tolerance for all components, else n
//   jacobian_callback  analytic Jacobian, used when ijac is not 0; else it may be null
//   mljac, mujac       lower and upper bandwidth of the Jacobian; mljac >= n_reduced means full, then both return as
//                      n_reduced (n, or n - block_count with block structure)
//   mass_callback      mass matrix, used when imas is not 0; else M is the identity and it may be null
//   mlmas, mumas       lower and upper bandwidth of M, not above those of the Jacobian; mlmas = n_reduced means full,
//                      then mumas returns as n_reduced. Read only when imas is not 0.
//   step_callback      called at the start and after each accepted step when iout is not 0; else it may be null
//   WORK[lwork]        slots 1 to 9 are parameters, 10 to 20 are not read, the others are storage:
//                      lwork >= 20 + 12 n + n jac_rows + n_reduced mass_rows + 3 n_reduced factor_rows
//   IWORK[liwork]      slots 1 to 10 are parameters, 11 to 13 are not read, 14 to 20 receive the counters, the others
//                      are storage: liwork >= 20 + 3 n_reduced
//   real_context, model_context   passed to every callback; may be null
//   idid               out: 1 x_end reached, 2 stopped by step_callback, -1 an argument is out of range (no callback
//                      was called), -2 too many steps, -3 step too small, -4 matrix repeatedly singular
//
// jac_rows and factor_rows are n_reduced, and for a band mljac + mujac + 1 and 2 mljac + mujac + 1; mass_rows is 0
// without M, mlmas + mumas + 1 for a band, n_reduced for a full M.
//
// A 0 in a parameter slot selects the default. The last column lists the other values that are rejected with idid -1.
// NaN is not rejected. tol is rtol(1) after its transformation, 0.1 * rtol^(2/3).
//
//   slot      name                   meaning                                              default at 0   rejected
//   WORK(1)   unit_roundoff          relative accuracy of the arithmetic                  1e-16          <= 1e-19, >= 1
//   WORK(2)   safety_factor          of the step-size controller                          0.9            <= 0.001, >= 1
//   WORK(3)   jacobian_reuse_limit   contraction up to which the Jacobian is kept;        0.001          >= 1
//                                    negative: a new one after each accepted step
//   WORK(4)   newton_stop_factor     of the Newton iteration       max(10 unit_roundoff / tol, min(0.03, tol^0.5))
//                                                                                         <= unit_roundoff / tol
//   WORK(5)   keep_step_low          step ratios from here ..                             1              > 1
//   WORK(6)   keep_step_high         .. to here keep step and factorisation               1.2            < 1
//   WORK(7)   max_step               largest step, sign ignored                           x_end - x
//   WORK(8)   1 / quot_max           smallest factor of the step in one change            1 / 5          > 1, < 0
//   WORK(9)   1 / quot_min           largest factor of the step in one change             1 / 0.125      0 < .. < 1
//   IWORK(1)  hessenberg_switch      not 0: Hessenberg form (full Jacobian, no M, n > 2)  0              with blocks
//   IWORK(2)  max_steps              largest number of steps attempted                    100000         < 0
//   IWORK(3)  max_newton_iterations  per step attempted                                   7              < 0
//   IWORK(4)  zero_start             not 0: Newton starts from zero                       0
//   IWORK(5)  index1_count           components of index 1, the first                     n              < 0, sum not n
//   IWORK(6)  index2_count           components of index 2, after those                   0              < 0, sum not n
//   IWORK(7)  index3_count           components of index 3, the last                      0              < 0, sum not n
//   IWORK(8)  controller             <= 1 predictive, >= 2 classical                      predictive
//   IWORK(9)  block_count            leading components with y'(i) = y(i + block_stride)  0              < 0
//   IWORK(10) block_stride           a divisor of block_count                             block_count    < 0,
//                                    (not read when that is 0)                            not a divisor,
//                                                                                         block_count + it > n;
//                                                                                         band: < n
//   IWORK(14) rhs_calls (without those of a numerical Jacobian)   (15) jacobian_count
//   IWORK(16) step_count (max_steps + 1 with idid -2)   (17) accepted_count
//   IWORK(18) rejected_count (after the first accepted step)   (19) factorisation_count   (20) solve_count
void RadauIntegrator(std::int32_t n, RadauRhsCallback rhs_callback, double& x, double* y, double x_end, double& h,
                     double* rtol, double* atol, std::int32_t itol, RadauJacobianCallback jacobian_callback,
                     std::int32_t ijac, std::int32_t& mljac, std::int32_t& mujac, RadauMassCallback mass_callback,
                     std::int32_t imas, std::int32_t mlmas, std::int32_t& mumas, RadauStepCallback step_callback,
                     std::int32_t iout, double* WORK, std::int32_t lwork, std::int32_t* IWORK, std::int32_t liwork,
                     void* real_context, void* model_context, std::int32_t& idid);

// Component i (from 1) of the solution at t in the step just accepted; only inside step_callback, from its second call
// on, with CONT and cont_size as received. A t outside of the step extrapolates its polynomial.
double RadauDenseValue(std::int32_t i, double t, const double* CONT, std::int32_t cont_size);

}  // namespace vorlen
