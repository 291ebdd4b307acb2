// V-defects of the continuous scheme: opened and updated at the recorded points (docs/physics.md, section 8). From the
// opening on their density rises just so far that the energy balance is zero; it never falls.
#pragma once

#include "model/surfchem_nonst.h"

namespace vorlen {

// Keeps the state at z0 and cuts the segments there; directly after find_z0 has set z0.
void start_V_defects(SurfChemNonst& m);

// Brings the balance terms and rho_VD up to the present point. eps_xx decides how the last step counts for J1: above 0
// as growth under tension.
void update_V_defects(SurfChemNonst& m, double eps_xx);

// The density at which the balance is zero, m^-2: found by bisection, not below rho_VD and at most RHO_VD_MAX.
double solve_rho_VD(const SurfChemNonst& m);

}  // namespace vorlen
