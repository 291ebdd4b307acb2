// Parts of the residual that are kept from one evaluation to the next: what follows from the process conditions alone,
// what follows from the composition of the solid under these conditions, with the powers in it one by one, and what
// follows from the depth.
//
// The integrator evaluates at few conditions many times: the three stages of a step in each Newton iteration, and the
// begin of the step for every column of the Jacobian, of which most leave the composition alone. The key of a kept set
// is every input of its formulas, compared bit by bit (equal conditions may be told by the number of their mixture
// instead), and the values are stored as they were computed; so an evaluation has the same bits as one that computes
// everything anew.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <limits>

#include "recipe/process_recipe.h"

namespace vorlen {

inline bool equal_bits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// Everything that the condition terms are computed from, or that this follows from: partial pressures follow from x and
// P, and the free sites of the species concerned stay 1. The first value of an empty set equals no number.
struct ConditionKey {
  double T = std::numeric_limits<double>::quiet_NaN(), P = 0.0, Q_total = 0.0, omega_TDR = 0.0;
  std::uint64_t mixture = 0;                        // number of the mixture: equal ones have the values below in common
  double stage_delta = 0.0, stage_delta_ref = 0.0;  // of the current stage, where the reactor scales the layer
  std::array<double, N_GAS> x{};                    // mole fractions in the inlet gas
  std::array<double, N_GAS> delta{};                // layer thicknesses, where the reactor does not scale them
};

struct ConditionTerms {
  std::uint64_t number = 0;  // a new one for each set computed; 0: nothing kept
  ConditionKey key;
  std::array<double, N_GAS> D{}, delta{}, v_kin{}, G_gas{};  // v_kin without the nitrogen factor
  std::array<double, N_BULK> G_bulk{}, K_eq{};
  std::array<double, N_ADSORBED> Kd{};  // the entry of nitrogen before its division by v_kin
  double K_NH3 = 0.0;
  double K_H2_des = 0.0;                    // Kd of hydrogen to the power 1.5
  std::array<double, N_GAS> R_transport{};  // transport resistance without free sites
  std::array<double, N_GAS> R_kinetic{};    // 1 / v_kin
  // Of the species that carry no indium. In the model the fluxes of those that desorb are overwritten, and the
  // resistance of nitrogen.
  std::array<double, N_GAS> R_gas{}, J{};  // resistance, flux without desorption
  double Ga_supply = 0.0;                  // flux of all gallium precursors
  std::array<double, N_BULK> N2_factor{};  // base of each power in the nitrogen factor
  std::array<double, N_BULK> k_plus{};     // rate constants of incorporation
};

// Everything that the composition terms are computed from.
struct CompositionKey {
  std::uint64_t conditions = 0;  // number of the condition terms
  double mismatch = 0.0;         // relative lattice mismatch of the surface
  std::array<double, N_BULK> x_b{};
};

struct CompositionTerms {
  CompositionKey key;
  double N2_mix = 0.0;
  double v_kin_N2 = 0.0;
  double R_gas_N2 = 0.0;
  double Kd_N2 = 0.0;
  double K_NH3_des = 0.0;
  std::array<double, N_BULK> activity{};
  std::array<double, N_BULK> k_minus{};
};

// A power in the nitrogen factor. The composition moves in one component at a time in the columns of the Jacobian.
struct NitrogenPowerKey {
  std::uint64_t conditions = 0;  // number of the condition terms
  double x = 0.0;                // exponent, the clipped fraction of the solid
};

struct NitrogenPower {
  NitrogenPowerKey key;
  double value = 1.0;
};

// Everything that moves in the laws of the dislocations at the surface. What construction sets is not in it.
struct DepthKey {
  bool is_set = false;
  double z = 0.0, h = 0.0;
  double rho_VD = 0.0, z0 = 0.0, h_z0 = 0.0, rho_TD_z0 = 0.0, eps_r_z0 = 0.0;  // of the V-defects
};

// What follows from the depth alone: all logarithms of the relaxation.
struct DepthTerms {
  DepthKey key;
  double mismatch = 0.0;  // relative lattice mismatch of the surface
  double relaxed = 0.0;   // strain relieved at the surface
  double reacted = 0.0;   // strain relieved by the dislocations from below, without V-defects
};

// A few sets of terms; a new one takes the place of the oldest.
template <class Terms, std::size_t KEPT>
struct TermsStore {
  std::array<Terms, KEPT> kept;
  std::size_t current = 0;
  std::size_t oldest = 0;

  // The set for which matches(set.key) holds, the one used last first; null if there is none.
  template <class Matches>
  Terms* find(Matches matches) {
    if (matches(kept[current].key)) return &kept[current];
    for (std::size_t i = 0; i < KEPT; ++i) {
      if (i != current && matches(kept[i].key)) {
        current = i;
        return &kept[i];
      }
    }
    return nullptr;
  }

  Terms& replace_oldest() {
    current = oldest;
    oldest = (oldest + 1) % KEPT;
    return kept[current];
  }
};

struct ResidualTerms {
  // The begin of a step and its three stages; the columns of the Jacobian that move the composition, and the others.
  TermsStore<ConditionTerms, 4> conditions;
  TermsStore<CompositionTerms, 4> compositions;
  std::array<TermsStore<NitrogenPower, 2>, N_BULK> nitrogen_powers;  // of the state and of its column of the Jacobian
  TermsStore<DepthTerms, 3> depths;  // of the state, and of the columns that move z and h
  // Flows that the mole fractions and pressure that the partial pressures were formed of; at first equal to none.
  std::array<double, N_FLOWS> Q_of_x{std::numeric_limits<double>::quiet_NaN()};
  double P_of_p = std::numeric_limits<double>::quiet_NaN();
  double t_of_conditions = std::numeric_limits<double>::quiet_NaN();  // time of the last look-up by the residual
  std::uint64_t mixture = 1;  // a new number with each look-up that forms mole fractions, pressures or layers anew
  bool is_steady = false;     // nothing moves within the present stage
  std::uint64_t numbers_given = 0;
  std::uint64_t in_model = 0;  // number of the condition terms that stand in the model
};

}  // namespace vorlen
