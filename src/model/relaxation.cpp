// Threading dislocations and the strain that they relieve: the law of inclined dislocations (A. E. Romanov, J. S.
// Speck, Applied Physics Letters 83, 2569 (2003)) with reactions, docs/physics.md, section 7. Dislocations that meet
// react, so their density falls with the thickness grown outside tension, w = z - z_start - h:
//   1/rho(w) = 1/rho(0) + L_TD tan(V) w
//   relieved strain = 1/2 b tan(V) int rho dw = b/(2 L_TD) ln(1 + rho(0) L_TD tan(V) w).
// Once V-defects have opened at z0, both laws start again there with two more dislocations for each defect.
//
// The logarithm of relative_mismatch takes its factors in another order than those of the strain, and differs in the
// last bits: the two cannot share a product.
#include <cmath>

#include "model/constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

// Rows of the relaxation in the residual, counted from that of h.
enum Row : std::size_t {
  ROW_H,
  ROW_I0 = STATE_I0 - STATE_H,
  ROW_I1 = STATE_I1 - STATE_H,
  ROW_J0_0 = STATE_J0_0 - STATE_H,
  ROW_J0_1 = STATE_J0_1 - STATE_H
};

}  // namespace

// Of InN and GaN, Pa; average for 10 % indium (docs/physics.md, section 8).
double modulus_M() {
  constexpr double M_InN = 2.624e11, M_GaN = 4.496e11, X_In = 0.1;
  return M_InN * X_In + M_GaN * (1.0 - X_In);
}

double SurfChemNonst::bending_stiffness() const { return modulus_M() * (2.0 * tan_V * b_burgers); }

double SurfChemNonst::rho_TD_at(double rho, double z_at, double h_at) const {
  if (Z0_FOUND < z0 && z0 <= z_at && 0.0 < rho) {
    const double d = 2.0 * rho + rho_TD_z0;
    if (d < RHO_MIN) return 0.0;
    return M2_TO_CM2 / (L_TD * tan_V * (z_at - z0 - h_at + h_z0) + 1.0 / d);
  }
  if (rho_TD0 < RHO_MIN) return 0.0;
  return M2_TO_CM2 / (L_TD * tan_V * (z_at - z_start - h_at) + 1.0 / rho_TD0);
}

double SurfChemNonst::eps_relaxed(double rho, double z_at, double h_at) const {
  if (Z0_FOUND < z0 && z0 < z_at && 0.0 < rho) {
    return std::log((2.0 * rho + rho_TD_z0) * L_TD * tan_V * (z_at - z0 - h_at + h_z0) + 1.0) *
               (0.5 * b_burgers * INV_L_TD) +
           eps_r_z0;
  }
  // A film that has grown in a hole of the template, under the staged scheme, has h below 0.
  return z_start > z_at && !(h_at < 0.0) ? 0.0 : eps_reacted(z_at, h_at);
}

double SurfChemNonst::eps_reacted(double z_at, double h_at) const {
  return std::log(rho_TD0 * L_TD * tan_V * (z_at - z_start - h_at) + 1.0) * (0.5 * b_burgers * INV_L_TD);
}

const DepthTerms& SurfChemNonst::depth_terms() {
  const DepthInputs inputs{z, h, rho_VD, z0, h_z0, rho_TD_z0, eps_r_z0};
  return terms.depths.get(inputs, reuse_terms, [this](DepthTerms& d) {
    d = {relative_mismatch(), eps_relaxed(rho_VD, z, h), eps_reacted(z, h)};
  });
}

RelaxationRates SurfChemNonst::relaxation_rates(double GR_calc) {
  const DepthTerms& depth = depth_terms();
  const double eps_0 = a_ref / a_bulk - 1.0;
  const double stiff = bending_stiffness();
  return {z - z_start - h, (depth.reacted + eps_0) * stiff * GR_calc, stiff * eps_0 * GR_calc, eps_0 + depth.relaxed};
}

void SurfChemNonst::relaxation_rows(double GR_calc, double* f) {
  const RelaxationRates rates = relaxation_rates(GR_calc);
  eps_xx_last_trial = rates.eps_xx;
  f[ROW_H] = rates.eps_xx > TENSION_THRESHOLD ? GR_calc : 0.0;
  f[ROW_I0] = rates.R_disl;
  f[ROW_I1] = rates.z_rel * rates.R_disl;
  f[ROW_J0_0] = rates.z_rel * rates.S_disl;
  f[ROW_J0_1] = rates.S_disl;
}

double SurfChemNonst::relative_mismatch() const {
  const double A = a_ref * 1e-10 * 0.5 * INV_L_TD;
  if (z0 <= Z0_FOUND) {
    return std::log((z - z_start - h) * rho_TD0 * L_TD * tan_V + 1.0) * A - 1.0;
  }
  return (std::log((z - z0 - h + h_z0) * (2.0 * rho_VD + rho_TD_z0) * L_TD * tan_V + 1.0) +
          std::log((z0 - z_start - h_z0) * rho_TD0 * L_TD * tan_V + 1.0)) *
             A -
         1.0;
}

}  // namespace vorlen
