// The Jacobian of the right-hand side by forward differences.
#pragma once

#include "integrator/stage_system.h"

namespace vorlen {

// Fills system.FJAC with the Jacobian at (x, y) from arrays.Y0 = f(x, y); full when mljac = n_reduced, else banded.
// Component i is perturbed by sqrt(unit_roundoff * max(1e-5, abs(y(i)))) and restored to its exact value; y (n
// elements) is unchanged at return. CONT, and for a band F1 and F2, are overwritten. The evaluations are not counted.
void NumericalJacobian(const StageSystem& system, const StageArrays& arrays, const RhsFunction& rhs,
                       double unit_roundoff, double x, double* y);

}  // namespace vorlen
