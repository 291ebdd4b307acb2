// V-defects of the staged scheme, docs/integration.md, "V-defects": their opening as an event, and their density as the
// root of the energy balance at each state. The terms of the balance are those of both schemes (v_defect_energy.h).
//
// With the effective thickness w = z - z0 - h + h_z0, for which dw + dh = dz, the sums of the balance are the integrals
//   J1 = 2 M b tan(V) eps_r_z0 int w dz           since the opening,
//   J2 = M b^2 tan(V) / L_TD int w ln(1 + k w) dz above z0;
// the parts over dw have closed forms, those over dh are summed over the steps.
#pragma once

#include <cstddef>
#include <vector>

#include "model/film.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

// Thickness dh [m] grown in tension above z0, all at the effective thickness w [m].
struct TensionSegment {
  double w = 0.0;
  double dh = 0.0;
};

// A layer grown under the staged scheme: the model at the present state, the film by depth, and the V-defects in it.
struct StagedLayer {
  SurfChemNonst& model;
  Film film;
  std::size_t lowest_knot = 0;  // of the film, with the lowest balance at the last search
  // V-defects, once open
  bool open = false;
  double w_open = 0.0;                    // effective thickness above z0 when they opened, m
  double w_accepted = 0.0;                // at the last accepted state, m
  double h_accepted = 0.0;                // thickness grown in tension at the last accepted state, m
  double rho_accepted = 0.0;              // the density never falls below this, m^-2
  std::vector<TensionSegment> tension{};  // from z0 up
  double J1_tension = 0.0;                // integral of w dh since they opened, m^2
};

// Whether a depth of the film has a negative balance at the state in the model.
bool v_defects_open(StagedLayer& layer);

// Opens V-defects at the depth with the lowest balance, at the state in the model.
void open_v_defects(StagedLayer& layer);

// The density of V-defects at the state in the model, m^-2; V-defects must be open. It is not below that of the last
// accepted state, and at most RHO_VD_MAX; NaN if the balance is NaN. While the surface is below that of the opening it
// stays as it is. Otherwise sets J0 and J1 of the model to those of the state.
double v_defect_density(StagedLayer& layer);

// The balance term J2 [J] at the state in the model, with its density; V-defects must be open.
double v_defect_J2(const StagedLayer& layer);

// Accepts the state in the model, with its density.
void accept_v_defects(StagedLayer& layer);

}  // namespace vorlen
