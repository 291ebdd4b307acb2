// Constants shared by the relaxation and the V-defects.
#pragma once

namespace vorlen {

inline constexpr double L_TD = 2.0 * 1.55e-8;   // length of the reaction law of dislocations, m
inline constexpr double INV_L_TD = 1.0 / L_TD;  // 1/m
inline constexpr double Z0_FOUND = -1e-20;      // z0 above this: V-defects have set in

}  // namespace vorlen
