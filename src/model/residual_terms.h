// Terms of the residual that several evaluations have in common, and the memos that keep them: terms of the process
// conditions, terms that also depend on the composition of the solid, and terms of the depth. model/residual.cpp and
// model/relaxation.cpp hold their formulas.
//
// The integrator evaluates at few conditions many times: the three stages of a step in each Newton iteration, and the
// start of the step for every column of the Jacobian. Most of these columns leave the composition and the depth alone.
#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "model/memo.h"
#include "recipe/process_recipe.h"

namespace vorlen {

// The inlet gas, for given flows.
struct Mixture {
  double Q_total;                 // sccm
  std::array<double, N_GAS> x{};  // mole fractions; 0 for absent species
};

// Process conditions. Mole fractions and partial pressures follow from the flows and P, the transport layers from the
// stage and the conditions.
struct ConditionInputs {
  double T, P;       // K, Pa
  double omega_TDR;  // rpm
  std::uint64_t stage;
  std::array<double, N_FLOWS> Q;  // sccm
};

// The solid under given conditions.
struct CompositionInputs {
  double mismatch;  // relative lattice mismatch of the surface
  std::array<double, N_BULK> x_b;
};

struct CompositionTerms {
  double mismatch;   // that of the inputs
  double N2_mix;     // composition-weighted factor of the nitrogen flux
  double v_kin_N2;   // Hertz-Knudsen factor of nitrogen with it
  double R_gas_N2;   // resistance of nitrogen
  double Kd_N2;      // desorption constant of nitrogen
  double K_NH3_des;  // desorption constant of ammonia
  std::array<double, N_BULK> activity;
  std::array<double, N_BULK> k_minus;  // rate constants of the reverse of incorporation
};

// Of absent species D, v_kin, R_gas and J are 0, and R_transport and R_kinetic are not set.
struct ConditionTerms {
  std::array<double, N_GAS> D{};            // diffusion coefficient in the mixture, m^2/s
  std::array<double, N_GAS> delta;          // thickness of the transport layer, m
  std::array<double, N_GAS> v_kin{};        // Hertz-Knudsen factor, of nitrogen without N2_mix
  std::array<double, N_GAS> G_gas{};        // free energy, J/mol
  std::array<double, N_BULK> G_bulk, K_eq;  // free energy, J/mol; equilibrium constant, Pa^1.5
  std::array<double, N_ADSORBED> Kd;        // desorption constant, of nitrogen before its division by v_kin
  double K_NH3;                             // equilibrium constant of ammonia, 1/Pa
  double K_H2_des;                          // Kd of hydrogen to the power 1.5
  std::array<double, N_GAS> R_transport;    // transport resistance without free sites
  std::array<double, N_GAS> R_kinetic;      // 1 / v_kin
  std::array<double, N_BULK> N2_factor;     // base of each power in the nitrogen factor
  std::array<double, N_BULK> k_plus;        // rate constants of incorporation
  double Ga_supply;                         // flux of all gallium precursors, kmol/(m^2 s)
  // Resistance and flux without desorption, of the species that carry no indium. That of nitrogen is without N2_mix.
  std::array<double, N_GAS> R_gas{}, J{};

  // Terms that depend on the composition as well. They belong to these conditions, which therefore are not among their
  // inputs. Four compositions: those of the three columns of the Jacobian that move it, and that of all others. Two
  // powers of each base: that of the state, and that of its column of the Jacobian.
  Memo<CompositionInputs, CompositionTerms, 4> compositions;
  std::array<Memo<double, double, 2>, N_BULK> nitrogen_powers;  // N2_factor to the power x
};

// Everything that changes in the laws of the dislocations at the surface during a run.
struct DepthInputs {
  double z, h;                                   // m
  double rho_VD, z0, h_z0, rho_TD_z0, eps_r_z0;  // of the V-defects
};

// The logarithms of the relaxation.
struct DepthTerms {
  double mismatch;  // relative lattice mismatch of the surface
  double relaxed;   // strain relieved at the surface
  double reacted;   // strain relieved by the dislocations from below, without V-defects
};

struct ResidualTerms {
  Memo<std::array<double, N_FLOWS>, Mixture, 1> mixtures;  // by the flows, which stay in most ramps of T and P
  Memo<ConditionInputs, ConditionTerms, 4> conditions;     // of the start of a step and its three stages
  Memo<DepthInputs, DepthTerms, 3> depths;                 // of the state, and of the columns that move z and h
  // Of the process conditions in the model:
  bool have_terms = false;                                         // the last value of conditions is theirs
  double t_conditions = std::numeric_limits<double>::quiet_NaN();  // their time, s; NaN before the first lookup
  bool stage_is_steady = false;                                    // they stay for the whole current stage
};

}  // namespace vorlen
