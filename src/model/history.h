// What a run keeps of its accepted steps: the recorded points, from which the rows of the result file are made, and the
// intervals of growth, over which the balance term J2 of V-defects is summed (docs/physics.md, section 8).
#pragma once

#include <cstdint>
#include <vector>

#include "model/candidate_blocks.h"

namespace vorlen {

// Energies of the history are in units of 1e-10 J: their values in J times this.
inline constexpr double ENERGY_SCALE = 1e10;

// The recorded points, one entry of each list per point.
struct History {
  // Always
  std::vector<double> t;                 // time, s
  std::vector<double> z;                 // total thickness, m
  std::vector<double> Vg;                // growth rate over the step that ended here, m/s
  std::vector<double> x_In, x_Ga, x_Al;  // composition of the solid, fractions

  // Under V_dislocation
  std::vector<double> h;             // thickness grown in tension, m
  std::vector<double> rho_VD;        // density of V-defects, m^-2
  std::vector<double> I0, J0_1;      // integrals of the relaxation, J/m; up to the point at which z0 is found
  std::vector<double> I1, J0_0;      // their first moments, J; likewise
  CandidateBlocks candidate_blocks;  // bounds on blocks of z, h, I0 and I1, for the search of z0

  // With detail_output
  std::vector<double> c_In, c_Ga, c_Al, c_N, c_H;  // surface concentrations, kmol/m^2

  // With detail_output under V_dislocation; energies of one defect, 1e-10 J
  std::vector<double> J0, J1, J2;  // balance terms
  std::vector<double> deltaE;      // energy balance
  std::vector<double> E_V_loop;    // energy of the dislocation loop
  std::vector<double> K1;          // integral term
  std::vector<double> r;           // relative lattice mismatch of the surface
};

// One interval of growth.
struct DepthSegment {
  double z_from = 0.0;  // z at the start of the interval, m
  double z_to = 0.0;    // z at the end, m
  double h_from = 0.0;  // h at the start, m
};

// All growth so far, from the bottom up, in two lists.
struct Segments {
  std::vector<DepthSegment> relaxing;  // growth under compression or without strain
  std::vector<DepthSegment> tensile;   // growth under tension
  std::uint32_t relaxing_first = 0;    // the first relaxing segment above z0
  std::uint32_t tensile_first = 0;     // the first tensile segment above z0
};

}  // namespace vorlen
