// The residual of the growth model, the right-hand side f of M y' = f(t, y): gas fluxes through the transport layer,
// desorption, incorporation, composition of the solid and growth rate.
//
// In order: constants, state vector, rate constants and activities, eval_rhs.
#include <cmath>

#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

constexpr double R_kJ = 8314.0 * 0.001;        // gas constant of the equilibrium constants, J/(mol K)
constexpr double R_J = 8314.0;                 // gas constant of the transport, J/(kmol K)
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
void compute_activity(SurfChemNonst& m) {
  static const double C_cell = std::sqrt(3.0) * 0.25 * 6.02214e+26;  // lattice cell factor, 1/kmol
  const double B_0 = m.bulk_species[InN_b].M * 1000000000.0;         // biaxial moduli, Pa
  const double B_1 = m.bulk_species[GaN_b].M * 1000000000.0;
  const double B_2 = m.bulk_species[AlN_b].M * 1000000000.0;
  const double B[N_BULK] = {B_0, B_1, B_2};

  const std::array<double, N_BULK>& x_b = m.x_b;
  const double Q[N_BULK] = {
      W_InGa * x_b[1] * x_b[1] + W_InAl * x_b[2] * x_b[2] + W_x0 * x_b[1] * x_b[2],
      W_InGa * x_b[0] * x_b[0] + W_GaAl * x_b[2] * x_b[2] + W_x1 * x_b[0] * x_b[2],
      W_InAl * x_b[0] * x_b[0] + W_GaAl * x_b[1] * x_b[1] + W_x2 * x_b[0] * x_b[1],
  };
  const double B_mix = B[0] * x_b[0] + B[1] * x_b[1] + B[2] * x_b[2];
  double mismatch = -1.0;
  if (m.stress_model == STRESS_V_dislocation) {
    m.r = m.relative_mismatch();
    mismatch = m.r;
  }
  double a[N_BULK];
  for (int k = 0; k < N_BULK; ++k) a[k] = (mismatch * m.bulk_species[k].a + m.a_ref) * 1e-10;
  const double a_mix = a[0] * x_b[0] + a[1] * x_b[1] + a[2] * x_b[2];
  for (int k = 0; k < N_BULK; ++k) {
    const double E = ((m.c_ref * 1e-10) * C_cell * a_mix) * (a_mix * B[k] + (a[k] - a_mix) * 2.0 * B_mix);
    m.activity[k] = std::exp((Q[k] + E) / (R_act * m.T));
  }
}

// Equilibrium constants of ammonia and of the bulk species at T, from the free energies.
void compute_equilibria(SurfChemNonst& m) {
  static const double P_K = std::pow(100000.0, 1.5);  // pressure factor of K_eq
  std::array<double, N_GAS>& G = m.G_gas;
  for (int i = N2_g; i <= Al_g; ++i) G[i] = gibbs_energy(m.gas_species[i], m.T);
  for (int b = 0; b < N_BULK; ++b) m.G_bulk[b] = gibbs_energy(m.bulk_species[b], m.T);
  m.K_NH3 = std::exp(-(G[NH3_g] - 0.5 * G[N2_g] - 1.5 * G[H2_g]) / (R_kJ * m.T)) * BAR_PER_PA;
  for (int b = 0; b < N_BULK; ++b) {
    m.K_eq[b] = std::exp(-((0.5 * G[N2_g] + G[In_g + b]) - m.G_bulk[b]) / (R_kJ * m.T)) * P_K;
  }
}

}  // namespace

double SurfChemNonst::k_plus(int b) const { return rate_constant(K_plus_A[b], K_plus_Ta[b], K_plus_Tn[b], T); }

void SurfChemNonst::unpack_state(const double* y) {
  for (double& c : c_a) c = *y++;
  z = *y++;
  if (z < z_start) z = z_start;
  if (stress_model == STRESS_V_dislocation) {
    for (double* v : {&h, &I0, &I1, &J0_0, &J0_1}) *v = *y++;
  }
  for (int k = 0; k < N_BULK; ++k) {
    x_b[k] = *y++;
    x_b_clip[k] = clamp_fraction(x_b[k]);
  }
  GR = *y;
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
  if (conditions_vary) {
    const std::int32_t code = update_conditions(t_new, false);
    if (code != 0) return code;
  }
  unpack_state(y);

  N2_mix = 1.0;
  for (int b = 0; b < N_BULK; ++b) N2_mix *= std::pow(N2_mix_A[b] * std::exp(-N2_mix_T[b] / T), x_b_clip[b]);
  for (int i = 0; i < N_GAS; ++i) {
    if (gas_index[i] >= 0) v_kin[i] = 1.0 / std::sqrt(R_kin * gas_species[i].molar_mass * T);
  }
  v_kin[N2_g] *= N2_mix;
  mix_diffusion(T, P, x.data(), D.data());
  if (transport_model == TRANSPORT_thick_GaN) scale_delta();
  compute_activity(*this);
  compute_equilibria(*this);
  for (int k = 0; k < N_ADSORBED; ++k) {
    Kd[k] = rate_constant(Kd_A[k], Kd_Ta[k], Kd_Tn[k], T) / v_kin[DESORBS_AS[k]];
  }
  const double s_N2 = std::sqrt(Kd[3]);
  K_NH3_des = std::pow(Kd[4], 1.5) * (K_NH3 * s_N2);

  if (vacancy_model == VACANCY_In) {
    const double s = 1.0 - c_a[In_a] / c_In_max;
    site_bulk[InN_b] = s;
    for (GasSpecies i : {In_g, TMInNH3_g, MMIn_g, TMIn_g}) site_gas[i] = s;
  }

  // Gas fluxes: driving pressure less desorption, over the resistance of transport and surface.
  for (int i = 0; i < N_GAS; ++i) {
    if (gas_index[i] < 0) continue;
    R_gas[i] = (R_J * T) * delta[i] / D[i] * site_gas[i] + 1.0 / v_kin[i];
    J[i] = p[i] * site_gas[i];
  }
  J[In_g] -= Kd[0] * c_a[In_a];
  J[Ga_g] -= Kd[1] * c_a[Ga_a];
  J[Al_g] -= Kd[2] * c_a[Al_a];
  J[NH3_g] -= K_NH3_des * c_a[N_a] * (c_a[H_a] * c_a[H_a] * c_a[H_a]);
  J[N2_g] = -Kd[3] * c_a[N_a] * c_a[N_a];  // nitrogen gas only leaves the surface
  J[H2_g] -= Kd[4] * (c_a[H_a] * c_a[H_a]);
  for (int i = 0; i < N_GAS; ++i) {
    if (gas_index[i] >= 0) J[i] = J[i] / R_gas[i];
  }

  // Incorporation and growth rate.
  double GR_calc = 0.0;
  for (int b = 0; b < N_BULK; ++b) {
    const double k_forward = k_plus(b);
    const double k_minus = k_forward / (Kd[b] * s_N2) * K_eq[b];
    R_b[b] = k_forward * c_a[b] * c_a[N_a] - k_minus * activity[b] * x_b[b] * site_bulk[b];
    GR_calc += R_b[b] * bulk_species[b].molar_mass / bulk_species[b].rho;
  }

  f[0] = J[TMIn_g] + J[MMIn_g] + J[TMInNH3_g] + J[In_g] - R_b[InN_b];
  f[1] = J[TMGa_g] + J[MMGa_g] + J[TEGa_g] + J[TEGaNH3_g] + J[Ga_g] - R_b[GaN_b];
  f[2] = J[TMAl_g] + J[Al_g] - R_b[AlN_b];
  f[3] = 2.0 * J[N2_g] + J[NH3_g];
  f[4] = 3.0 * J[NH3_g] + 2.0 * J[H2_g];
  f[5] = GR_calc;
  if (stress_model == STRESS_V_dislocation) relaxation_rows(GR_calc, f + 6);

  // The solid has the composition of its incorporation rates.
  double* g = f + (n_state() - N_ALGEBRAIC);
  g[0] = x_b[0] * R_b[1] - x_b[1] * R_b[0];
  g[1] = x_b[1] * R_b[2] - x_b[2] * R_b[1];
  g[2] = 1.0 - x_b[0] - x_b[1] - x_b[2];
  g[3] = GR - GR_calc;
  return 0;
}

}  // namespace vorlen
