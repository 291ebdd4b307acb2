// The terms of the energy balance of V-defects (docs/physics.md, section 8), as sums over the segments of growth.
#include "strain/v_defect_energy.h"

namespace vorlen {

namespace {

constexpr double SEGMENT_CUT = 1e-6;  // smallest k x of F_segment; below it the closed form cancels
constexpr double K_MIN = 1e-10;       // smallest k of J2_of, 1/m

}  // namespace

double F_segment(double k, double x) {
  if (x * k < SEGMENT_CUT) return 0.0;
  const double q = 1.0 / k;
  return 0.5 * x * q - 0.25 * x * x - std::log(k * x + 1.0) * 0.5 * (q * q - x * x);
}

double J2_factor(const SurfChemNonst& m) { return m.tan_V * modulus_M() * m.b_burgers * m.b_burgers * INV_L_TD; }

double J2_k(const SurfChemNonst& m, double rho) { return L_TD * m.tan_V * (2.0 * rho + m.rho_TD_z0); }

double J2_of(const SurfChemNonst& m, double rho) {
  const double k = J2_k(m, rho);
  if (k < K_MIN) return 0.0;
  const Segments& segments = m.segments;
  double S = 0.0;
  for (std::size_t i = segments.relaxing_first; i < segments.relaxing.size(); ++i) {
    const DepthSegment& s = segments.relaxing[i];
    const double d = m.z0 + s.h_from - m.h_z0;
    S += F_segment(k, s.z_to - d) - F_segment(k, s.z_from - d);
  }
  // Under tension the effective thickness does not grow.
  for (std::size_t i = segments.tensile_first; i < segments.tensile.size(); ++i) {
    const DepthSegment& s = segments.tensile[i];
    const double w = w_above_z0(m, s.z_from, s.h_from);
    S += std::log(k * w + 1.0) * w * (s.z_to - s.z_from);
  }
  return S * J2_factor(m);
}

double J0_of(const SurfChemNonst& m) {
  return (m.J0_1 - m.J0_1_z0) * (m.h_z0 - (m.z0 - m.z_start)) + (m.J0_0 - m.J0_0_z0);
}

double stiff_relieved(const SurfChemNonst& m) { return 2.0 * m.tan_V * modulus_M() * m.b_burgers * m.eps_r_z0; }

double energy_balance(const SurfChemNonst& m, double E, double rho) { return E + m.J0 + m.J1 + J2_of(m, rho); }

void set_state_at_z0(SurfChemNonst& m, double h_at, double J0_0_at, double J0_1_at) {
  m.h_z0 = h_at;
  m.J0_0_z0 = J0_0_at;
  m.J0_1_z0 = J0_1_at;
  m.rho_TD_z0 = RHO_MIN <= m.rho_TD0 ? 1.0 / (1.0 / m.rho_TD0 + (m.z0 - m.z_start - m.h_z0) * L_TD * m.tan_V) : 0.0;
  m.rho_VD = 0.0;
  m.eps_r_z0 = m.eps_relaxed(m.rho_VD, m.z0, m.h_z0);
}

}  // namespace vorlen
