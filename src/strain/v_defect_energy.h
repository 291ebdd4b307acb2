// Energy balance of V-defects, docs/physics.md, section 8. A defect that reaches down to the depth z0 costs the energy
// of a dislocation loop, and its inclined lines gain the work of the strain in the layer above z0. Energies are those
// of one defect, J.
//
// Before V-defects open, the balance of a candidate depth is its loop energy and K1. Once they are open it is
//   F = loop energy + J0 + J1 + J2,
// with the mismatch in J0, the strain relieved up to z0 in J1 and the strain that the defects relieve in J2. w is the
// effective thickness above z0, that grown outside tension.
#pragma once

#include <cmath>

#include "model/constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

// Energy of the dislocation loop around a defect that reaches from z_base to z_at [m]:
//   d E_line ln((d / b - 1) sin(V) + 1), d = z_at - z_base.
inline double loop_energy(const SurfChemNonst& m, double z_at, double z_base) {
  const double d = z_at - z_base;
  return d * m.E_line * std::log((d / BURGERS - 1.0) * m.sin_V + 1.0);
}

// Work of the strain in the layer above z_at, from h [m] and the integrals I0 [J/m] and I1 [J] when z_at was the
// surface.
inline double K1_of(const SurfChemNonst& m, double z_at, double h_at, double I0_at, double I1_at) {
  return (m.I1 - I1_at) - (m.I0 - I0_at) * (z_at - m.z_start - h_at);
}

// Balance of defects that would reach down to z_at. The arguments are those of K1_of.
inline double candidate_balance(const SurfChemNonst& m, double z_at, double h_at, double I0_at, double I1_at) {
  return loop_energy(m, m.z, z_at) + K1_of(m, z_at, h_at, I0_at, I1_at);
}

// Effective thickness above z0 [m] at the thickness z_at with the tension thickness h_at [m].
inline double w_above_z0(const SurfChemNonst& m, double z_at, double h_at) { return z_at - m.z0 - h_at + m.h_z0; }

// Integral of x ln(1 + k x) from 0 to x; 0 for k x < 1e-6.
double F_segment(double k, double x);

// J2 is J2_factor times the integral of w ln(1 + k w) over the film above z0, with k = J2_k(rho) [1/m].
double J2_factor(const SurfChemNonst& m);
double J2_k(const SurfChemNonst& m, double rho);

// J2 of V-defects of density rho [m^-2], summed over the segments above z0.
double J2_of(const SurfChemNonst& m, double rho);

// J0 at the present integrals.
double J0_of(const SurfChemNonst& m);

// Factor of J1: the bending stiffness times the strain relieved up to z0, multiplied in another order.
double stiff_relieved(const SurfChemNonst& m);

// Balance of defects with the loop energy E and the density rho; negative while more of them relieve the layer.
double energy_balance(const SurfChemNonst& m, double E, double rho);

// Keeps the state at z0: the thickness grown in tension [m] and two of the integrals. The density starts at 0.
void set_state_at_z0(SurfChemNonst& m, double h_at, double J0_0_at, double J0_1_at);

}  // namespace vorlen
