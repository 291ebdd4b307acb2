// The equations of the staged scheme: those of the surface, the lattice and the dislocations are the model's own; here
// are the ones that differ from the continuous scheme, and the state vector. docs/integration.md derives them.
//
// Composition. The solid meets the gas through an exchange layer of GAMMA [kmol/m^2], a small part of a monolayer. With
// the incorporation rates R_k and S = R_In + R_Ga + R_Al its composition x follows
//   GAMMA dx_k/dt = R_k - S x_ex,k,
// where x_ex is what passes between layer and film: x itself while the film grows (S > 0), and the composition of the
// film at that depth while it evaporates. In steady growth x_k = R_k / S, as in the continuous scheme; without growth x
// keeps its value. No metal is lost: what enters is in the layer or in the film.
//
// Each fraction is a separate component, so that a small one has its own tolerance; the model takes them divided by
// their sum, which the equations keep at 1.
//
// V-defects. Once they are open, their density is not a component but the root of the energy balance at each state.
//
// All components are differential: y' = f(t, y), with t from the start of the stage. y holds
//   c_a[5] in 1e-9 kmol/m^2, the three fractions x, z in nm from its value at the start of the stage,
// and under V_dislocation, from their values at that start, h in nm and the integrals I0, I1, J0_0, J0_1, the two first
// moments with the distance to the w = z - z_start - h of that start, in the units of the film's stiffness and nm.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "model/film.h"
#include "model/surfchem_nonst.h"
#include "strain/v_defect_density.h"

namespace vorlen {

inline constexpr int N_STAGED_MAX = 14;
inline constexpr std::size_t STAGED_Z = N_ADSORBED + N_BULK;  // the component z
inline constexpr double MONOLAYER = 1.9e-8;                   // metal atoms of a monolayer, kmol/m^2
inline constexpr double EXCHANGE_LAYER = 0.001;               // GAMMA as a part of a monolayer
using StagedVector = std::array<double, N_STAGED_MAX>;

// Where the state of a stage starts from.
struct StageStart {
  double z = 0.0;  // m
  double h = 0.0;  // m
  double w = 0.0;  // z - z_start - h, m
  double I0 = 0.0, I1 = 0.0, J0_0 = 0.0, J0_1 = 0.0;
};

// The growing layer and what its equations need besides.
struct StagedEquations {
  StagedLayer layer;
  StageStart start{};
  double gamma = EXCHANGE_LAYER * MONOLAYER;  // exchange layer, kmol/m^2
  double z = 0.0;                             // height of the film at the state last unpacked, m; may be below z_start
  double t_conditions = -1.0;  // time of the conditions in the model, s from the start of the stage; negative: none
};

// Number of components, 9 or 14.
std::int32_t n_staged(const SurfChemNonst& model);

// The equations at the start of the process, on the pre-stages, and the first state y.
StagedEquations staged_equations(SurfChemNonst& model, StagedVector& y);

// Moves to stage k: takes its conditions and lets the state start from the present one.
void start_stage(StagedEquations& equations, std::size_t k, StagedVector& y);

// Puts the state y into the model, with the density of V-defects that belongs to it.
void unpack_staged(StagedEquations& equations, const double* y);

// The state last unpacked as a point of the film. x of the surface.
FilmPoint surface_point(StagedEquations& equations);

// f(t, y), t in s from the start of the stage. Returns the growth rate, m/s.
double staged_rhs(StagedEquations& equations, double t, const double* y, double* f);

// Tolerances of each component for the relative tolerance.
void staged_tolerances(const StagedEquations& equations, double tolerance, double* rtol, double* atol);

}  // namespace vorlen
