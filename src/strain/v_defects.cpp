// V-defects of the continuous scheme: the state at z0, the balance terms by steps, and the density by bisection.
#include "strain/v_defects.h"

#include <algorithm>
#include <cmath>

#include "model/constants.h"
#include "strain/v_defect_energy.h"

namespace vorlen {

namespace {

// The first segment that reaches above depth: its number, or the length of the list.
std::uint32_t first_above(const std::vector<DepthSegment>& list, double depth) {
  const auto reaches = [depth](const DepthSegment& s) { return depth < s.z_to; };
  return static_cast<std::uint32_t>(std::find_if(list.begin(), list.end(), reaches) - list.begin());
}

}  // namespace

void start_V_defects(SurfChemNonst& m) {
  const History& history = m.history;
  set_state_at_z0(m, history.h[m.z0_index], history.J0_0[m.z0_index], history.J0_1[m.z0_index]);

  // What grew below z0 no longer counts. A compressive segment is cut at z0; a tensile one starts at z0 in any case.
  Segments& segments = m.segments;
  segments.relaxing_first = first_above(segments.relaxing, m.z0);
  if (segments.relaxing_first < segments.relaxing.size()) {
    DepthSegment& s = segments.relaxing[segments.relaxing_first];
    if (s.z_from < m.z0) s.z_from = m.z0;
  }
  segments.tensile_first = first_above(segments.tensile, m.z0);
  if (segments.tensile_first < segments.tensile.size()) {
    DepthSegment& s = segments.tensile[segments.tensile_first];
    if (s.z_from < m.z0) s.h_from += m.z0 - s.z_from;
    s.z_from = m.z0;
  }
}

void update_V_defects(SurfChemNonst& m, double eps_xx) {
  m.J0 = J0_of(m);
  const double stiff = stiff_relieved(m);
  if (0.0 < eps_xx) {
    m.J1 += stiff * (m.z - m.z_prev) * w_above_z0(m, m.z_prev, m.h_prev);
  } else {
    const double grown = m.z - m.z_start;
    const double grown_prev = m.z_prev - m.z_start;
    m.J1 += stiff * ((grown * grown - grown_prev * grown_prev) * 0.5 +
                     (m.z - m.z_prev) * (m.h_z0 - m.h_prev - (m.z0 - m.z_start)));
  }
  m.J2 = J2_of(m, m.rho_VD);
  m.rho_VD = solve_rho_VD(m);
}

double solve_rho_VD(const SurfChemNonst& m) {
  constexpr double RHO_VD_B_MIN = 1e8;         // smallest starting point of the upper bracket, m^-2
  constexpr double F_PRECISION = 1e6;          // smallest tolerance of the density, m^-2
  constexpr double RELATIVE_TOLERANCE = 1e-4;  // of the larger bracket end
  constexpr double BRACKET_GROWTH = 10.0;
  constexpr int MAX_HALVINGS = 20;

  if (m.rho_VD >= RHO_VD_MAX) return RHO_VD_MAX;
  const double E = loop_energy(m, m.z, m.z0);
  const auto F = [&m, E](double rho) { return energy_balance(m, E, rho); };

  // A balance that is not negative leaves the density as it is.
  if (-BALANCE_ZERO < F(m.rho_VD)) return m.rho_VD;

  double rho_VD_A = m.rho_VD;
  double rho_VD_B = std::max(rho_VD_A, RHO_VD_B_MIN);
  bool bracketed = false;
  do {
    rho_VD_B = std::min(BRACKET_GROWTH * rho_VD_B, RHO_VD_MAX);
    const double F_B = F(rho_VD_B);
    if (std::abs(F_B) < BALANCE_ZERO) return rho_VD_B;
    if (0.0 < F_B) {
      bracketed = true;
      break;
    }
    rho_VD_A = rho_VD_B;
  } while (rho_VD_B < RHO_VD_MAX);
  if (rho_VD_B > RHO_VD_MAX - RHO_VD_B_MIN && !bracketed) return RHO_VD_MAX;

  double rho_VD_C = (rho_VD_A + rho_VD_B) * 0.5;
  double F_C = F(rho_VD_C);
  const double tol = std::max(RELATIVE_TOLERANCE * std::max(std::abs(rho_VD_A), std::abs(rho_VD_B)), F_PRECISION);
  for (int k = 0; k < MAX_HALVINGS && !(std::abs(rho_VD_A - rho_VD_B) <= tol); ++k) {
    (0.0 < F_C ? rho_VD_B : rho_VD_A) = rho_VD_C;
    rho_VD_C = (rho_VD_A + rho_VD_B) * 0.5;
    F_C = F(rho_VD_C);
  }
  return rho_VD_C;
}

}  // namespace vorlen
