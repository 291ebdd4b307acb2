// The residual of the growth model, the right-hand side f of M y' = f(t, y): gas fluxes through the transport layer,
// desorption, incorporation, composition of the solid and growth rate.
//
// In order: constants, rate constants and activities, state vector, eval_rhs, rates of the surface.
#include <cmath>
#include <limits>

#include "model/residual_terms.h"
#include "model/surfchem_nonst.h"
#include "model/transport.h"

namespace vorlen {

namespace {

constexpr double R_kJ = 8314.0 * 0.001;        // gas constant of the equilibrium constants, J/(mol K)
constexpr double R_act = 8314.47;              // gas constant of the activities, J/(kmol K)
constexpr double R_kin = (2.0 * PI) * 8314.0;  // factor of the Hertz-Knudsen flux
constexpr double c_In_max = 1.901e-08;         // saturation of c_a[In_a] in the vacancy law, kmol/m^2
constexpr double BAR_PER_PA = 1e-05;           // pressure factor of K_NH3

// Interaction parameters of the regular solution, J/kmol.
constexpr double W_InGa = 25700000.0;
constexpr double W_InAl = 90000000.0;
constexpr double W_GaAl = 5610000.0;
constexpr double W_x0 = (W_InGa + W_InAl) - W_GaAl;
constexpr double W_x1 = (W_InGa + W_GaAl) - W_InAl;
constexpr double W_x2 = (W_InAl + W_GaAl) - W_InGa;

// The gas species that carry indium are the only ones whose share of free sites follows the surface; that of the others
// stays 1.
constexpr GasSpecies INDIUM_PRECURSORS[] = {TMIn_g, MMIn_g, TMInNH3_g};
constexpr bool carries_indium(std::size_t i) { return i <= TMInNH3_g || i == In_g; }

// The gas species into which adsorbed species k desorbs.
constexpr GasSpecies DESORBS_AS[N_ADSORBED] = {In_g, Ga_g, Al_g, N2_g, H2_g};

// A * exp(-Ta/T) * T^Tn; a Ta or Tn of exactly 0 leaves its factor out.
double rate_constant(double A, double Ta, double Tn, double T) {
  double k = A;
  if (Ta != 0.0) k *= std::exp(-Ta / T);
  if (Tn != 0.0) k *= std::pow(T, Tn);
  return k;
}

// Activities of the bulk species in the solid: a regular solution with the elastic energy of the lattice imposed on it.
void compute_activity(const SurfChemNonst& m, double mismatch, std::array<double, N_BULK>& activity) {
  static const double C_cell = std::sqrt(3.0) * 0.25 * 6.02214e+26;  // lattice cell factor, 1/kmol
  const double B[N_BULK] = {m.bulk_species[InN_b].M * 1000000000.0,  // biaxial moduli, Pa
                            m.bulk_species[GaN_b].M * 1000000000.0, m.bulk_species[AlN_b].M * 1000000000.0};

  const std::array<double, N_BULK>& x_b = m.x_b;
  const double Q[N_BULK] = {
      W_InGa * x_b[1] * x_b[1] + W_InAl * x_b[2] * x_b[2] + W_x0 * x_b[1] * x_b[2],
      W_InGa * x_b[0] * x_b[0] + W_GaAl * x_b[2] * x_b[2] + W_x1 * x_b[0] * x_b[2],
      W_InAl * x_b[0] * x_b[0] + W_GaAl * x_b[1] * x_b[1] + W_x2 * x_b[0] * x_b[1],
  };
  const double B_mix = B[0] * x_b[0] + B[1] * x_b[1] + B[2] * x_b[2];
  double a[N_BULK];
  for (std::size_t k = 0; k < N_BULK; ++k) a[k] = (mismatch * m.bulk_species[k].a + m.a_ref) * 1e-10;
  const double a_mix = a[0] * x_b[0] + a[1] * x_b[1] + a[2] * x_b[2];
  for (std::size_t k = 0; k < N_BULK; ++k) {
    const double E = ((m.c_ref * 1e-10) * C_cell * a_mix) * (a_mix * B[k] + (a[k] - a_mix) * 2.0 * B_mix);
    activity[k] = std::exp((Q[k] + E) / (R_act * m.T));
  }
}

// Equilibrium constants of ammonia and of the bulk species at T, from the free energies.
void compute_equilibria(const SurfChemNonst& m, ConditionTerms& c) {
  static const double P_K = std::pow(100000.0, 1.5);  // pressure factor of K_eq
  const FreeEnergyPowers powers(m.T);
  std::array<double, N_GAS>& G = c.G_gas;
  for (std::size_t i = N2_g; i <= Al_g; ++i) G[i] = gibbs_energy(m.gas_species[i], powers);
  for (std::size_t b = 0; b < N_BULK; ++b) c.G_bulk[b] = gibbs_energy(m.bulk_species[b], powers);
  c.K_NH3 = std::exp(-(G[NH3_g] - 0.5 * G[N2_g] - 1.5 * G[H2_g]) / (R_kJ * m.T)) * BAR_PER_PA;
  for (std::size_t b = 0; b < N_BULK; ++b) {
    c.K_eq[b] = std::exp(-((0.5 * G[N2_g] + G[In_g + b]) - c.G_bulk[b]) / (R_kJ * m.T)) * P_K;
  }
}

// Transport, free energies and rate constants: what follows from the conditions alone.
void compute_condition_terms(SurfChemNonst& m, ConditionTerms& c) {
  const double T = m.T;
  for (std::size_t b = 0; b < N_BULK; ++b) c.N2_factor[b] = m.N2_mix_A[b] * std::exp(-m.N2_mix_T[b] / T);
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (m.gas_index[i] >= 0) c.v_kin[i] = 1.0 / std::sqrt(R_kin * m.gas_species[i].molar_mass * T);
  }
  m.mix_diffusion(T, m.P, m.x.data(), m.D.data());
  if (m.transport_model == TRANSPORT_thick_GaN) m.scale_delta();
  c.D = m.D;
  c.delta = m.delta;
  compute_equilibria(m, c);
  for (std::size_t k = 0; k < N_ADSORBED; ++k) {
    c.Kd[k] = rate_constant(m.Kd_A[k], m.Kd_Ta[k], m.Kd_Tn[k], T);
    if (DESORBS_AS[k] != N2_g) c.Kd[k] /= c.v_kin[DESORBS_AS[k]];
  }
  c.K_H2_des = std::pow(c.Kd[4], 1.5);
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (m.gas_index[i] < 0) continue;
    c.R_transport[i] = (R_J * T) * c.delta[i] / c.D[i];
    c.R_kinetic[i] = 1.0 / c.v_kin[i];
    if (carries_indium(i)) continue;
    c.R_gas[i] = c.R_transport[i] * m.site_gas[i] + c.R_kinetic[i];
    c.J[i] = m.p[i] * m.site_gas[i] / c.R_gas[i];
  }
  c.Ga_supply = c.J[TMGa_g] + c.J[MMGa_g] + c.J[TEGa_g] + c.J[TEGaNH3_g];
  for (std::size_t b = 0; b < N_BULK; ++b) c.k_plus[b] = m.k_plus(b);
}

bool layer_is_scaled(const SurfChemNonst& m) {
  return m.transport_model == TRANSPORT_thick_GaN && m.reactor != REACTOR_CCS;
}

void set_condition_key(const SurfChemNonst& m, ConditionKey& key) {
  key.T = m.T;
  key.P = m.P;
  key.Q_total = m.Q_total;
  key.omega_TDR = m.omega_TDR;
  key.mixture = m.terms.mixture;
  key.x = m.x;
  if (layer_is_scaled(m)) {
    key.stage_delta = m.active_stages[m.stage_index].delta;
    key.stage_delta_ref = m.active_stages[m.stage_index].delta_ref;
  } else {
    key.delta = m.delta;
  }
}

// Whether the key is that of the present conditions. No value is ever -0, so equal ones have equal bits.
bool is_present(const ConditionKey& key, const SurfChemNonst& m) {
  if (!(key.T == m.T && key.P == m.P && key.Q_total == m.Q_total && key.omega_TDR == m.omega_TDR)) return false;
  if (key.mixture == m.terms.mixture) return true;
  if (key.x != m.x) return false;
  if (!layer_is_scaled(m)) return key.delta == m.delta;
  const StageRecord& stage = m.active_stages[m.stage_index];
  return key.stage_delta == stage.delta && key.stage_delta_ref == stage.delta_ref;
}

// Puts the kept or newly computed terms of the present conditions into the model and returns them.
const ConditionTerms& condition_terms(SurfChemNonst& m) {
  const std::uint64_t in_model = m.terms.in_model;
  const auto matches = [&m](const ConditionKey& key) { return is_present(key, m); };
  ConditionTerms* c = m.reuse_terms ? m.terms.conditions.find(matches) : nullptr;
  if (c != nullptr) {
    c->key.mixture = m.terms.mixture;
  } else {
    c = &m.terms.conditions.replace_oldest();
    c->number = ++m.terms.numbers_given;
    set_condition_key(m, c->key);
    compute_condition_terms(m, *c);
  }
  if (c->number != in_model) {
    m.terms.in_model = c->number;
    m.D = c->D;
    m.delta = c->delta;
    m.v_kin = c->v_kin;
    m.G_gas = c->G_gas;
    m.G_bulk = c->G_bulk;
    m.R_gas = c->R_gas;
    m.J = c->J;
    m.K_NH3 = c->K_NH3;
    m.K_eq = c->K_eq;
    m.Kd = c->Kd;
  }
  return *c;
}

// The factor of bulk species b in the nitrogen mix.
double nitrogen_power(SurfChemNonst& m, const ConditionTerms& c, std::size_t b) {
  const double x = m.x_b_clip[b];
  if (x == 0.0) return 1.0;  // as the power is, exactly
  TermsStore<NitrogenPower, 2>& powers = m.terms.nitrogen_powers[b];
  const auto matches = [&c, x](const NitrogenPowerKey& key) { return key.conditions == c.number && key.x == x; };
  if (m.reuse_terms) {
    if (const NitrogenPower* kept = powers.find(matches)) return kept->value;
  }
  NitrogenPower& power = powers.replace_oldest();
  power.key.conditions = c.number;
  power.key.x = x;
  power.value = std::pow(c.N2_factor[b], x);
  return power.value;
}

// Nitrogen factor, activities and the constants that they enter: what follows from the composition of the solid.
void compute_composition_terms(SurfChemNonst& m, const ConditionTerms& c, CompositionTerms& s) {
  s.N2_mix = 1.0;
  for (std::size_t b = 0; b < N_BULK; ++b) s.N2_mix *= nitrogen_power(m, c, b);
  s.v_kin_N2 = c.v_kin[N2_g] * s.N2_mix;
  s.R_gas_N2 = c.R_transport[N2_g] * m.site_gas[N2_g] + 1.0 / s.v_kin_N2;
  compute_activity(m, s.key.mismatch, s.activity);
  s.Kd_N2 = c.Kd[3] / s.v_kin_N2;
  const double s_N2 = std::sqrt(s.Kd_N2);
  s.K_NH3_des = c.K_H2_des * (c.K_NH3 * s_N2);
  for (std::size_t b = 0; b < N_BULK; ++b) s.k_minus[b] = c.k_plus[b] / (c.Kd[b] * s_N2) * c.K_eq[b];
}

// Puts the kept or newly computed terms of the present composition into the model and returns them.
const CompositionTerms& composition_terms(SurfChemNonst& m, const ConditionTerms& c) {
  double mismatch = -1.0;
  if (m.stress_model == STRESS_V_dislocation) {
    mismatch = m.depth_terms().mismatch;
    m.r = mismatch;
  }
  const auto matches = [&m, &c, mismatch](const CompositionKey& kept) {
    return kept.conditions == c.number && equal_bits(kept.mismatch, mismatch) && equal_bits(kept.x_b[0], m.x_b[0]) &&
           equal_bits(kept.x_b[1], m.x_b[1]) && equal_bits(kept.x_b[2], m.x_b[2]);
  };
  const CompositionTerms* s = m.reuse_terms ? m.terms.compositions.find(matches) : nullptr;
  if (s == nullptr) {
    CompositionTerms& computed = m.terms.compositions.replace_oldest();
    computed.key.conditions = c.number;
    computed.key.mismatch = mismatch;
    computed.key.x_b = m.x_b;
    compute_composition_terms(m, c, computed);
    s = &computed;
  }
  m.N2_mix = s->N2_mix;
  m.v_kin[N2_g] = s->v_kin_N2;
  m.R_gas[N2_g] = s->R_gas_N2;
  m.Kd[3] = s->Kd_N2;
  m.K_NH3_des = s->K_NH3_des;
  m.activity = s->activity;
  return *s;
}

}  // namespace

double SurfChemNonst::k_plus(std::size_t b) const { return rate_constant(K_plus_A[b], K_plus_Ta[b], K_plus_Tn[b], T); }

// One by one: a block copy loads several components at once, and would wait for the store of the one that the Jacobian
// has just moved.
void SurfChemNonst::unpack_state(const double* y) {
  c_a[In_a] = y[0];
  c_a[Ga_a] = y[1];
  c_a[Al_a] = y[2];
  c_a[N_a] = y[3];
  c_a[H_a] = y[4];
  z = y[5] < z_start ? z_start : y[5];
  if (stress_model == STRESS_V_dislocation) {
    h = y[6];
    I0 = y[7];
    I1 = y[8];
    J0_0 = y[9];
    J0_1 = y[10];
  }
  y += n_state() - N_ALGEBRAIC;
  for (std::size_t k = 0; k < N_BULK; ++k) {
    x_b[k] = y[k];
    x_b_clip[k] = clamp_fraction(y[k]);
  }
  GR = y[3];
  a_bulk = lattice_a(x_b_clip.data());
}

void SurfChemNonst::pack_state(double* y) const {
  for (double c : c_a) *y++ = c;
  *y++ = z;
  if (stress_model == STRESS_V_dislocation) {
    for (double v : {h, I0, I1, J0_0, J0_1}) *y++ = v;
  }
  for (double v : x_b) *y++ = v;
  *y = GR;
}

std::int32_t SurfChemNonst::eval_rhs(double t_new, const double* y, double* f) {
  ++eval_rhs_calls;
  // The conditions at a time are the same at each look-up: none is needed where the last evaluation was.
  if (conditions_vary && !(reuse_terms && t_new == t && t_new == terms.t_of_conditions)) {
    terms.t_of_conditions = std::numeric_limits<double>::quiet_NaN();
    const std::int32_t code = update_conditions(t_new, false);
    if (code != 0) return code;
    terms.t_of_conditions = t_new;
  }
  unpack_state(y);
  const SurfaceRates rates = surface_rates();
  for (std::size_t k = 0; k < N_ADSORBED; ++k) f[k] = rates.dc_a[k];
  f[5] = rates.GR;
  if (stress_model == STRESS_V_dislocation) relaxation_rows(rates.GR, f + 6);

  // The solid has the composition of its incorporation rates.
  double* g = f + (n_state() - N_ALGEBRAIC);
  g[0] = x_b[0] * R_b[1] - x_b[1] * R_b[0];
  g[1] = x_b[1] * R_b[2] - x_b[2] * R_b[1];
  g[2] = 1.0 - x_b[0] - x_b[1] - x_b[2];
  g[3] = GR - rates.GR;
  return 0;
}

SurfaceRates SurfChemNonst::surface_rates() {
  const ConditionTerms& conditions = condition_terms(*this);
  const CompositionTerms& composition = composition_terms(*this, conditions);

  if (vacancy_model == VACANCY_In) {
    const double s = 1.0 - c_a[In_a] / c_In_max;
    site_bulk[InN_b] = s;
    for (GasSpecies i : INDIUM_PRECURSORS) site_gas[i] = s;
    site_gas[In_g] = s;
  }

  // Gas fluxes: driving pressure less desorption, over the resistance of transport and surface. Here those that depend
  // on the state; the others are among the terms of the conditions.
  for (GasSpecies i : INDIUM_PRECURSORS) {
    if (gas_index[i] < 0) continue;
    R_gas[i] = conditions.R_transport[i] * site_gas[i] + conditions.R_kinetic[i];
    J[i] = p[i] * site_gas[i] / R_gas[i];
  }
  R_gas[In_g] = conditions.R_transport[In_g] * site_gas[In_g] + conditions.R_kinetic[In_g];
  const double c_N = c_a[N_a];
  const double c_H = c_a[H_a];
  const double J_In = (p[In_g] * site_gas[In_g] - conditions.Kd[0] * c_a[In_a]) / R_gas[In_g];
  const double J_Ga = (p[Ga_g] * site_gas[Ga_g] - conditions.Kd[1] * c_a[Ga_a]) / conditions.R_gas[Ga_g];
  const double J_Al = (p[Al_g] * site_gas[Al_g] - conditions.Kd[2] * c_a[Al_a]) / conditions.R_gas[Al_g];
  const double J_NH3 =
      (p[NH3_g] * site_gas[NH3_g] - composition.K_NH3_des * c_N * (c_H * c_H * c_H)) / conditions.R_gas[NH3_g];
  const double J_N2 = -composition.Kd_N2 * c_N * c_N / composition.R_gas_N2;  // nitrogen gas only leaves the surface
  const double J_H2 = (p[H2_g] * site_gas[H2_g] - conditions.Kd[4] * (c_H * c_H)) / conditions.R_gas[H2_g];
  J[In_g] = J_In;
  J[Ga_g] = J_Ga;
  J[Al_g] = J_Al;
  J[NH3_g] = J_NH3;
  J[N2_g] = J_N2;
  J[H2_g] = J_H2;

  // Incorporation and growth rate.
  std::array<double, N_BULK> rate;
  double GR_calc = 0.0;
  for (std::size_t b = 0; b < N_BULK; ++b) {
    rate[b] = conditions.k_plus[b] * c_a[b] * c_a[N_a] -
              composition.k_minus[b] * composition.activity[b] * x_b[b] * site_bulk[b];
    GR_calc += rate[b] * bulk_species[b].molar_mass / bulk_species[b].rho;
  }
  R_b = rate;

  SurfaceRates rates;
  rates.dc_a[In_a] = J[TMIn_g] + J[MMIn_g] + J[TMInNH3_g] + J_In - rate[InN_b];
  rates.dc_a[Ga_a] = conditions.Ga_supply + J_Ga - rate[GaN_b];
  rates.dc_a[Al_a] = J[TMAl_g] + J_Al - rate[AlN_b];
  rates.dc_a[N_a] = 2.0 * J_N2 + J_NH3;
  rates.dc_a[H_a] = 3.0 * J_NH3 + 2.0 * J_H2;
  rates.GR = GR_calc;
  return rates;
}

}  // namespace vorlen
