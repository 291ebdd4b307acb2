// What a run keeps of its accepted steps: the recorded points, from which the rows of the result file are made, and the
// intervals of growth, over which the balance term J2 of V-defects is summed (docs/physics.md, section 8).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "model/candidate_blocks.h"
#include "recipe/process_recipe.h"

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

// What only the detail columns show. Energies of one V-defect, J.
struct HistoryDetail {
  std::array<double, N_ADSORBED> c_a{};  // kmol/m^2
  // Under V_dislocation
  double I0 = 0.0, I1 = 0.0, J0_0 = 0.0, J0_1 = 0.0;
  double J0 = 0.0, J1 = 0.0, J2 = 0.0;
  double deltaE = 0.0;
  double E_V_loop = 0.0;
  double K1 = 0.0;
  double r = 0.0;
};

// The model at one moment.
struct HistoryPoint {
  double t = 0.0;       // s
  double z = 0.0;       // m
  double h = 0.0;       // thickness grown in tension, m
  double GR = 0.0;      // growth rate, m/s
  double rho_VD = 0.0;  // m^-2
  std::array<double, N_BULK> x_b{};
  HistoryDetail detail{};
};

// The groups of lists that a run keeps.
struct HistoryLists {
  bool relaxation = false;  // h and rho_VD
  bool integrals = false;   // I0, I1, J0_0, J0_1
  bool detail = false;      // surface concentrations; with relaxation the energies and r
};

// Appends a point to the lists that are kept.
void append_point(History& history, const HistoryPoint& point, const HistoryLists& kept);

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
