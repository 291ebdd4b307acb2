// V-defects of the staged scheme: their opening as an event, and their density as the root of the energy balance at
// each state. The terms of the balance are the model's own (strain/v_defects.cpp).
//
// With the effective thickness w = z - z0 - h + h_z0, of which dw + dh = dz, the sums of the balance are the integrals
//   J1 = 2 M b tan(V) eps_r_z0 int w dz           from the opening on,
//   J2 = M b^2 tan(V) / L_TD int w ln(1 + k w) dz from z0 on;
// the parts over dw have a closed form, those over dh are summed over the steps.
#pragma once

namespace vorlen {

struct StagedEquations;

// Whether a depth of the film has a negative balance at the state in the model.
bool v_defects_open(StagedEquations& equations);

// Opens V-defects at the depth with the lowest balance, at the state in the model.
void open_v_defects(StagedEquations& equations);

// The density of V-defects at the state in the model, m^-2; V-defects must be open. Never below that of the last
// accepted state. At most RHO_VD_MAX; NaN if the balance is. Below the height of the surface at the opening it stays.
double v_defect_density(const StagedEquations& equations);

// The balance term J2 [J] at the state in the model, with its density; V-defects must be open.
double v_defect_J2(const StagedEquations& equations);

// Takes the state in the model, with its density, as accepted.
void accept_v_defects(StagedEquations& equations);

}  // namespace vorlen
