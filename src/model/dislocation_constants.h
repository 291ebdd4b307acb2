// Constants of the dislocations, shared by the relaxation, the V-defects and the result rows. They are part of the
// model (docs/physics.md, sections 7 and 8).
#pragma once

#include "recipe/species_data.h"

namespace vorlen {

inline constexpr double BURGERS_ANGSTROM = A_GaN;            // length of the Burgers vector, a of GaN, angstrom
inline constexpr double BURGERS = BURGERS_ANGSTROM * 1e-10;  // m
inline constexpr double L_TD = 2.0 * 1.55e-8;                // length of the reaction law of dislocations, m
inline constexpr double INV_L_TD = 1.0 / L_TD;               // 1/m
inline constexpr double RHO_MIN = 1e-5;                      // m^-2; a smaller density counts as zero
inline constexpr double M2_TO_CM2 = 0.0001;                  // of a density: m^-2 to cm^-2
inline constexpr double TENSION_THRESHOLD = 0.0001;          // strain above which thickness counts as grown in tension
// Smallest depth of z0 below the surface, m: three Burgers vectors.
inline constexpr double CANDIDATE_DEPTH = 3e-10 * BURGERS_ANGSTROM;
inline constexpr double RHO_VD_MAX = 1e17;     // upper limit of the density of V-defects, m^-2
inline constexpr double BALANCE_ZERO = 1e-40;  // an energy balance of this size is zero, J
inline constexpr double Z0_FOUND = -1e-20;     // z0 above this: V-defects have opened

}  // namespace vorlen
