// The residual of the growth model, the right-hand side f of M y' = f(t, y): gas fluxes through the transport layer,
// desorption, incorporation, composition of the solid and growth rate (docs/physics.md, sections 1, 4 and 5).
//
// In order: rate constants, activities, equilibria, terms of the conditions, terms of the composition, state vector,
// residual, rates of the surface. Which terms are kept from one evaluation to the next: model/residual_terms.h.
#include <cmath>

#include "model/constants.h"
#include "model/residual_terms.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

// The gas species that carry indium are the only ones whose share of free sites follows the surface; that of the others
// stays 1.
constexpr GasSpecies INDIUM_PRECURSORS[] = {TMIn_g, MMIn_g, TMInNH3_g};
constexpr bool carries_indium(std::size_t i) { return i <= TMInNH3_g || i == In_g; }

// The gas species into which adsorbed species k desorbs. For k = In, Ga, Al it is In_g + k, and the nitride is bulk
// species k.
constexpr GasSpecies DESORBS_AS[N_ADSORBED] = {In_g, Ga_g, Al_g, N2_g, H2_g};

// A * exp(-Ta/T) * T^Tn; a Ta or Tn of exactly 0 leaves its factor out.
double rate_constant(double A, double Ta, double Tn, double T) {
  double k = A;
  if (Ta != 0.0) k *= std::exp(-Ta / T);
  if (Tn != 0.0) k *= std::pow(T, Tn);
  return k;
}

// Activities of the bulk species in the solid: a strictly regular solution (enthalpies of mixing Q) with the elastic
// energy E of the lattice imposed on it, both J/kmol (docs/physics.md, section 5).
std::array<double, N_BULK> activities(const SurfChemNonst& m, double mismatch) {
  constexpr double W_In = (W_InGa + W_InAl) - W_GaAl;  // of the products of the two other fractions
  constexpr double W_Ga = (W_InGa + W_GaAl) - W_InAl;
  constexpr double W_Al = (W_InAl + W_GaAl) - W_InGa;
  static const double cells = std::sqrt(3.0) * 0.25 * AVOGADRO;  // volume of a kmol of wurtzite over a^2 c

  const double x_In = m.x_b[InN_b];
  const double x_Ga = m.x_b[GaN_b];
  const double x_Al = m.x_b[AlN_b];
  const double Q[N_BULK] = {
      W_InGa * x_Ga * x_Ga + W_InAl * x_Al * x_Al + W_In * x_Ga * x_Al,
      W_InGa * x_In * x_In + W_GaAl * x_Al * x_Al + W_Ga * x_In * x_Al,
      W_InAl * x_In * x_In + W_GaAl * x_Ga * x_Ga + W_Al * x_In * x_Ga,
  };
  double B[N_BULK];  // biaxial moduli, Pa
  double a[N_BULK];  // imposed lattice less that of the species, m
  for (std::size_t k = 0; k < N_BULK; ++k) {
    B[k] = m.bulk_species[k].M * GPA;
    a[k] = (mismatch * m.bulk_species[k].a + m.a_ref) * ANGSTROM;
  }
  const double B_mix = B[InN_b] * x_In + B[GaN_b] * x_Ga + B[AlN_b] * x_Al;
  const double a_mix = a[InN_b] * x_In + a[GaN_b] * x_Ga + a[AlN_b] * x_Al;
  std::array<double, N_BULK> activity;
  for (std::size_t k = 0; k < N_BULK; ++k) {
    const double E = ((m.c_ref * ANGSTROM) * cells * a_mix) * (a_mix * B[k] + (a[k] - a_mix) * 2.0 * B_mix);
    activity[k] = std::exp((Q[k] + E) / (R_ACTIVITY * m.T));
  }
  return activity;
}

// Equilibrium constants of ammonia and of the bulk species at T [K], from the free energies.
void set_equilibria(const SurfChemNonst& m, double T, ConditionTerms& c) {
  static const double P_K_eq = std::pow(PA_PER_BAR, 1.5);
  const FreeEnergyPowers powers(T);
  std::array<double, N_GAS>& G = c.G_gas;
  for (std::size_t i = N2_g; i <= Al_g; ++i) G[i] = gibbs_energy(m.gas_species[i], powers);
  for (std::size_t b = 0; b < N_BULK; ++b) c.G_bulk[b] = gibbs_energy(m.bulk_species[b], powers);
  c.K_NH3 = std::exp(-(G[NH3_g] - 0.5 * G[N2_g] - 1.5 * G[H2_g]) / (R_EQUILIBRIUM * T)) * BAR_PER_PA;
  for (std::size_t b = 0; b < N_BULK; ++b) {
    c.K_eq[b] = std::exp(-((0.5 * G[N2_g] + G[In_g + b]) - c.G_bulk[b]) / (R_EQUILIBRIUM * T)) * P_K_eq;
  }
}

// ---- Terms of the conditions

// Desorption constants of the adsorbed species. That of nitrogen needs the composition too.
void set_desorption(const SurfChemNonst& m, double T, ConditionTerms& c) {
  for (std::size_t k = 0; k < N_ADSORBED; ++k) {
    c.Kd[k] = rate_constant(m.Kd_A[k], m.Kd_Ta[k], m.Kd_Tn[k], T);
    if (k != N_a) c.Kd[k] /= c.v_kin[DESORBS_AS[k]];
  }
  c.K_H2_des = std::pow(c.Kd[H_a], 1.5);
}

// Resistances of transport and surface, and the fluxes that they let through from the inlet gas.
void set_resistances(const SurfChemNonst& m, double T, ConditionTerms& c) {
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (!m.gas_present[i]) continue;
    c.R_transport[i] = (R_TRANSPORT * T) * c.delta[i] / c.D[i];
    c.R_kinetic[i] = 1.0 / c.v_kin[i];
    if (carries_indium(i)) continue;
    c.R_gas[i] = c.R_transport[i] + c.R_kinetic[i];
    c.J[i] = m.p[i] / c.R_gas[i];
  }
  c.Ga_supply = c.J[TMGa_g] + c.J[MMGa_g] + c.J[TEGa_g] + c.J[TEGaNH3_g];
}

void compute_condition_terms(const SurfChemNonst& m, ConditionTerms& c) {
  const double T = m.T;
  for (std::size_t b = 0; b < N_BULK; ++b) {
    c.N2_factor[b] = N2_MIX_A[b] * std::exp(-N2_MIX_T[b] / T);
    c.k_plus[b] = m.k_plus(b);
  }
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (m.gas_present[i]) c.v_kin[i] = 1.0 / std::sqrt(HERTZ_KNUDSEN * m.gas_species[i].molar_mass * T);
  }
  m.mix_diffusion(T, m.P, m.terms.mixtures.last().x.data(), c.D.data());
  c.delta = m.transport_layers(c.D);
  set_equilibria(m, T, c);
  set_desorption(m, T, c);
  set_resistances(m, T, c);
}

// ---- Terms of the composition

// The factor of bulk species b in the nitrogen flux, at its fraction x in the solid.
double nitrogen_power(ConditionTerms& c, std::size_t b, double x, bool reuse) {
  if (x == 0.0) return 1.0;  // as the power is, exactly
  const double base = c.N2_factor[b];
  return c.nitrogen_powers[b].get(x, reuse, [base, x](double& power) { power = std::pow(base, x); });
}

void compute_composition_terms(const SurfChemNonst& m, double mismatch, ConditionTerms& c, CompositionTerms& s) {
  s.mismatch = mismatch;
  s.N2_mix = 1.0;
  for (std::size_t b = 0; b < N_BULK; ++b) s.N2_mix *= nitrogen_power(c, b, m.x_b_clip[b], m.reuse_terms);
  s.v_kin_N2 = c.v_kin[N2_g] * s.N2_mix;
  s.R_gas_N2 = c.R_transport[N2_g] + 1.0 / s.v_kin_N2;
  s.activity = activities(m, mismatch);
  s.Kd_N2 = c.Kd[N_a] / s.v_kin_N2;
  const double sqrt_Kd_N2 = std::sqrt(s.Kd_N2);
  s.K_NH3_des = c.K_H2_des * (c.K_NH3 * sqrt_Kd_N2);
  for (std::size_t b = 0; b < N_BULK; ++b) s.k_minus[b] = c.k_plus[b] / (c.Kd[b] * sqrt_Kd_N2) * c.K_eq[b];
}

// Inlined in surface_rates, which calls it at each evaluation.
[[gnu::always_inline]] inline const CompositionTerms& find_composition_terms(SurfChemNonst& m, ConditionTerms& c) {
  const double mismatch = m.stress_model == STRESS_V_dislocation ? m.depth_terms().mismatch : -1.0;
  return c.compositions.get(CompositionInputs{mismatch, m.x_b}, m.reuse_terms,
                            [&m, &c, mismatch](CompositionTerms& s) { compute_composition_terms(m, mismatch, c, s); });
}

}  // namespace

double SurfChemNonst::k_plus(std::size_t b) const { return rate_constant(K_plus_A[b], K_plus_Ta[b], K_plus_Tn[b], T); }

ConditionTerms& SurfChemNonst::condition_terms() {
  if (terms.have_terms && reuse_terms) return terms.conditions.last();
  terms.have_terms = true;
  return terms.conditions.get(ConditionInputs{T, P, omega_TDR, stage_index, Q}, reuse_terms,
                              [this](ConditionTerms& c) { compute_condition_terms(*this, c); });
}

const CompositionTerms& SurfChemNonst::composition_terms(ConditionTerms& c) { return find_composition_terms(*this, c); }

// One by one: a block copy loads several components at once, and would wait for the store of the one that the Jacobian
// has just moved.
void SurfChemNonst::unpack_state(const double* y) {
  c_a[In_a] = y[STATE_C_A + In_a];
  c_a[Ga_a] = y[STATE_C_A + Ga_a];
  c_a[Al_a] = y[STATE_C_A + Al_a];
  c_a[N_a] = y[STATE_C_A + N_a];
  c_a[H_a] = y[STATE_C_A + H_a];
  z = y[STATE_Z] < z_start ? z_start : y[STATE_Z];
  if (stress_model == STRESS_V_dislocation) {
    h = y[STATE_H];
    I0 = y[STATE_I0];
    I1 = y[STATE_I1];
    J0_0 = y[STATE_J0_0];
    J0_1 = y[STATE_J0_1];
  }
  const double* algebraic = y + first_algebraic();
  for (std::size_t k = 0; k < N_BULK; ++k) {
    x_b[k] = algebraic[ALGEBRAIC_X_B + k];
    x_b_clip[k] = clamp_fraction(x_b[k]);
  }
  GR = algebraic[ALGEBRAIC_GR];
  a_bulk = lattice_a(x_b_clip.data());
}

void SurfChemNonst::pack_state(double* y) const {
  for (std::size_t k = 0; k < N_ADSORBED; ++k) y[STATE_C_A + k] = c_a[k];
  y[STATE_Z] = z;
  if (stress_model == STRESS_V_dislocation) {
    y[STATE_H] = h;
    y[STATE_I0] = I0;
    y[STATE_I1] = I1;
    y[STATE_J0_0] = J0_0;
    y[STATE_J0_1] = J0_1;
  }
  double* algebraic = y + first_algebraic();
  for (std::size_t k = 0; k < N_BULK; ++k) algebraic[ALGEBRAIC_X_B + k] = x_b[k];
  algebraic[ALGEBRAIC_GR] = GR;
}

std::int32_t SurfChemNonst::eval_rhs(double t_new, const double* y, double* f) {
  ++eval_rhs_calls;
  if (conditions_vary) {
    if (reuse_terms && t_new == terms.t_conditions) {
      t = t_new;  // the conditions at a time are the same at each lookup
    } else if (const std::int32_t code = update_conditions(t_new, false); code != 0) {
      return code;
    }
  }
  unpack_state(y);
  const SurfaceRates& s = surface_rates();
  for (std::size_t k = 0; k < N_ADSORBED; ++k) f[STATE_C_A + k] = s.dc_a[k];
  f[STATE_Z] = s.GR;
  if (stress_model == STRESS_V_dislocation) relaxation_rows(s.GR, f + STATE_H);

  // The solid has the composition of its incorporation rates.
  double* algebraic = f + first_algebraic();
  algebraic[ALGEBRAIC_X_B + InN_b] = x_b[InN_b] * s.R_b[GaN_b] - x_b[GaN_b] * s.R_b[InN_b];
  algebraic[ALGEBRAIC_X_B + GaN_b] = x_b[GaN_b] * s.R_b[AlN_b] - x_b[AlN_b] * s.R_b[GaN_b];
  algebraic[ALGEBRAIC_X_B + AlN_b] = 1.0 - x_b[InN_b] - x_b[GaN_b] - x_b[AlN_b];
  algebraic[ALGEBRAIC_GR] = GR - s.GR;
  return 0;
}

const SurfaceRates& SurfChemNonst::surface_rates() {
  ConditionTerms& conditions = condition_terms();
  const CompositionTerms& composition = find_composition_terms(*this, conditions);
  SurfaceRates& s = surface;
  s.mismatch = composition.mismatch;
  if (vacancy_model == VACANCY_In) s.free_sites = 1.0 - c_a[In_a] / C_IN_MAX;
  const double free_sites = s.free_sites;

  // Gas fluxes: driving pressure less desorption, over the resistance of transport and surface. Here those that depend
  // on the state; the others are among the terms of the conditions.
  s.R_gas = conditions.R_gas;
  s.J = conditions.J;
  for (GasSpecies i : INDIUM_PRECURSORS) {
    if (!gas_present[i]) continue;
    s.R_gas[i] = conditions.R_transport[i] * free_sites + conditions.R_kinetic[i];
    s.J[i] = p[i] * free_sites / s.R_gas[i];
  }
  s.R_gas[In_g] = conditions.R_transport[In_g] * free_sites + conditions.R_kinetic[In_g];
  s.R_gas[N2_g] = composition.R_gas_N2;
  const double c_N = c_a[N_a];
  const double c_H = c_a[H_a];
  s.J[In_g] = (p[In_g] * free_sites - conditions.Kd[In_a] * c_a[In_a]) / s.R_gas[In_g];
  s.J[Ga_g] = (p[Ga_g] - conditions.Kd[Ga_a] * c_a[Ga_a]) / conditions.R_gas[Ga_g];
  s.J[Al_g] = (p[Al_g] - conditions.Kd[Al_a] * c_a[Al_a]) / conditions.R_gas[Al_g];
  s.J[NH3_g] = (p[NH3_g] - composition.K_NH3_des * c_N * (c_H * c_H * c_H)) / conditions.R_gas[NH3_g];
  s.J[N2_g] = -composition.Kd_N2 * c_N * c_N / s.R_gas[N2_g];  // nitrogen gas only leaves the surface
  s.J[H2_g] = (p[H2_g] - conditions.Kd[H_a] * (c_H * c_H)) / conditions.R_gas[H2_g];

  // Incorporation and growth rate.
  const double share[N_BULK] = {free_sites, 1.0, 1.0};
  s.GR = 0.0;
  for (std::size_t b = 0; b < N_BULK; ++b) {
    s.R_b[b] =
        conditions.k_plus[b] * c_a[b] * c_N - composition.k_minus[b] * composition.activity[b] * x_b[b] * share[b];
    s.GR += s.R_b[b] * bulk_species[b].molar_mass / bulk_species[b].rho;
  }

  s.dc_a[In_a] = s.J[TMIn_g] + s.J[MMIn_g] + s.J[TMInNH3_g] + s.J[In_g] - s.R_b[InN_b];
  s.dc_a[Ga_a] = conditions.Ga_supply + s.J[Ga_g] - s.R_b[GaN_b];
  s.dc_a[Al_a] = s.J[TMAl_g] + s.J[Al_g] - s.R_b[AlN_b];
  s.dc_a[N_a] = 2.0 * s.J[N2_g] + s.J[NH3_g];
  s.dc_a[H_a] = 3.0 * s.J[NH3_g] + 2.0 * s.J[H2_g];
  return s;
}

}  // namespace vorlen
