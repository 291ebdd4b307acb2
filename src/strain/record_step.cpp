// An accepted step of the continuous scheme: the interval of growth, the recorded point, and the V-defects at it.
#include "strain/record_step.h"

#include <cmath>

#include "strain/v_defect_energy.h"
#include "strain/v_defects.h"
#include "strain/z0_search.h"

namespace vorlen {

namespace {

constexpr double RECORD_SPACING = 0.0009999999999;  // recorded points are further apart than this, s
constexpr double END_TOLERANCE = 1e-10;             // a point this close to the end is the last one, s
constexpr double SEGMENT_GAP = 1e-14;               // a step that starts no further above a segment continues it, m

bool is_recorded(const SurfChemNonst& m, double t) {
  if (m.single_point.selected) return m.out.is_open();
  if (m.history.t.empty()) return true;
  return t - m.history.t.back() > RECORD_SPACING || std::abs(m.t_end - t) < END_TOLERANCE;
}

HistoryDetail detail_of(const SurfChemNonst& m) {
  HistoryDetail d{.c_a = m.c_a, .I0 = m.I0, .I1 = m.I1, .J0_0 = m.J0_0, .J0_1 = m.J0_1};
  if (m.stress_model != STRESS_V_dislocation || !m.detail_output) return d;
  const bool is_first = m.history.I1.empty();
  // The zero removes the second term, but lets a NaN through.
  d.K1 = m.I1 - (is_first ? m.I1 : m.history.I1[0]) - (m.I0 - (is_first ? m.I0 : m.history.I0[0])) * 0.0;
  d.E_V_loop = loop_energy(m, m.z, m.z0);
  d.deltaE = m.z0 <= Z0_FOUND ? d.K1 + loop_energy(m, m.z - m.z_start, 0.0) : energy_balance(m, d.E_V_loop, m.rho_VD);
  d.J0 = m.J0;
  d.J1 = m.J1;
  d.J2 = m.J2;
  d.r = m.surface.mismatch;
  return d;
}

void follow_V_defects(SurfChemNonst& m, double eps_xx) {
  if (m.z0 < 0.0) {
    find_z0(m);
    if (!(m.z0 < 0.0)) start_V_defects(m);
  }
  if (Z0_FOUND < m.z0) update_V_defects(m, eps_xx);
}

}  // namespace

void file_segment(SurfChemNonst& m, double eps_xx) {
  std::vector<DepthSegment>& list = 0.0 < eps_xx ? m.segments.tensile : m.segments.relaxing;
  if (!list.empty() && m.z_prev - list.back().z_to < SEGMENT_GAP) {
    list.back().z_to = m.z;
  } else {
    list.push_back(DepthSegment{m.z_prev, m.z, m.h_prev});
  }
}

void record_step(SurfChemNonst& m, double t_new, const double* y) {
  m.unpack_state(y);
  m.Vg = 0.0;
  if (m.t_prev < t_new) m.Vg = (m.z - m.z_prev) / (t_new - m.t_prev);
  const bool relaxes = m.stress_model == STRESS_V_dislocation;
  // The strain that sorts the step is not that of the accepted state: the residual ran last at a trial state near it.
  const double eps_xx = m.eps_xx_last_trial;
  if (relaxes) file_segment(m, eps_xx);

  if (is_recorded(m, t_new)) {
    if (relaxes) follow_V_defects(m, eps_xx);
    append_point(m.history, {t_new, m.z, m.h, m.Vg, m.rho_VD, m.x_b, detail_of(m)},
                 {.relaxation = relaxes, .integrals = relaxes && m.z0 < 0.0, .detail = m.detail_output});
  }

  m.z_prev = m.z;
  m.h_prev = m.h;
  m.t_prev = t_new;
}

}  // namespace vorlen
