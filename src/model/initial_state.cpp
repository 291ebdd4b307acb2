// The first state vector (docs/physics.md, section 1). The system is stiff and differential-algebraic, and the first
// steps fail with surface concentrations that are far off. They are estimated from the balance of fluxes at the start
// of the process, with a bare surface of GaN as the source of the resistances.
#include <cmath>

#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {
constexpr double C_FLOOR = 1e-15;  // kmol/m^2, of nitrogen and hydrogen when the estimate fails
}

void SurfChemNonst::init_state(double* y) {
  if (update_conditions(t_begin, true) != 0) return;

  // Pure gallium nitride with a bare surface: the source of the resistances and of the growth rate.
  x_b = {0.0, 1.0, 0.0};
  x_b_clip = x_b;
  c_a.fill(0.0);
  if (stress_model == STRESS_V_dislocation) {
    for (double* v : {&h, &I0, &I1, &J0_0, &J0_1}) *v = 0.0;
  }
  a_bulk = lattice_a(x_b_clip.data());
  std::array<double, N_STATE_MAX> f{};
  pack_state(y);
  eval_rhs(t, y, f.data());
  GR = -f[first_algebraic() + ALGEBRAIC_GR];  // the row is GR less the rate, and GR is 0 so far
  pack_state(y);

  // Nitrogen and hydrogen, from the balance of ammonia with the two gases.
  double c_N = C_FLOOR;
  double c_H = C_FLOOR;
  ConditionTerms& conditions = condition_terms();
  const CompositionTerms& composition = composition_terms(conditions);
  const std::array<double, N_GAS>& R = surface.R_gas;
  const double Kd_N2 = composition.Kd_N2;
  const double w = std::sqrt(3.0 * R[H2_g] / R[N2_g] * Kd_N2 / conditions.Kd[H_a]);
  const double A = (Kd_N2 / composition.K_NH3_des) * R[NH3_g] / (R[N2_g] * w * w * w);
  const double B = p[NH3_g] / (composition.K_NH3_des * w * w * w);
  const double r_NH = std::sqrt(A * A + B) - A;
  if (r_NH > 0.0) {
    c_N = std::sqrt(r_NH);
    c_H = w * c_N;
  }

  // Gallium and aluminium. Both escape as gallium does.
  const double k_Ga = conditions.k_plus[GaN_b];
  const double k_Al = conditions.k_plus[AlN_b];
  const double escape = conditions.Kd[Ga_a] / R[Ga_g];
  const double d = composition.k_minus[GaN_b] * composition.activity[GaN_b] * x_b[GaN_b];
  const double c_Ga = (p[TMGa_g] / R[TMGa_g] + p[TEGa_g] / R[TEGa_g] + d) / (escape + k_Ga * c_N);
  const double c_Al = (p[TMAl_g] / R[TMAl_g]) / (escape + k_Al * c_N);
  const double r_Ga = k_Ga * c_Ga * c_N - d;
  const double r_Al = k_Al * c_Al * c_N;

  double X_Ga = r_Ga / (r_Ga + r_Al);
  double X_Al = r_Al / (r_Ga + r_Al);
  if (!(r_Al > 0.0)) {
    X_Ga = 1.0;
    X_Al = 0.0;
  } else if (!(r_Ga > 0.0)) {
    X_Ga = 0.0;
    X_Al = 1.0;
  }

  x_b = {0.0, X_Ga, X_Al};
  x_b_clip = x_b;
  c_a = {0.0, c_Ga, c_Al, c_N, c_H};
  pack_state(y);
  eval_rhs(t, y, f.data());
}

}  // namespace vorlen
