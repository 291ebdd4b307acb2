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

void keep_energy_terms(SurfChemNonst& m) {
  // The zero removes the second term, but lets a NaN through.
  const double K = m.I1 - m.history.I1[0] - (m.I0 - m.history.I0[0]) * 0.0;
  const double balance = m.z0 <= Z0_FOUND ? K + loop_energy(m, m.z - m.z_start, 0.0)
                                          : energy_balance(m, loop_energy(m, m.z, m.z0), m.rho_VD);
  m.history.deltaE.push_back(ENERGY_SCALE * balance);
  m.history.K1.push_back(ENERGY_SCALE * K);
  m.history.J0.push_back(ENERGY_SCALE * m.J0);
  m.history.J1.push_back(ENERGY_SCALE * m.J1);
  m.history.J2.push_back(ENERGY_SCALE * m.J2);
  m.history.E_V_loop.push_back(ENERGY_SCALE * loop_energy(m, m.z, m.z0));
  m.history.r.push_back(m.surface.mismatch);
}

void follow_V_defects(SurfChemNonst& m, double eps_xx) {
  if (m.z0 < 0.0) {
    find_z0(m);
    if (m.z0 < 0.0) {
      m.history.I0.push_back(m.I0);
      m.history.I1.push_back(m.I1);
      m.history.J0_0.push_back(m.J0_0);
      m.history.J0_1.push_back(m.J0_1);
    } else {
      start_V_defects(m);
    }
  }
  if (Z0_FOUND < m.z0) update_V_defects(m, eps_xx);
  m.history.h.push_back(m.h);
  m.history.rho_VD.push_back(m.rho_VD);
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
    History& history = m.history;
    history.t.push_back(t_new);
    history.z.push_back(m.z);
    history.Vg.push_back(m.Vg);
    history.x_In.push_back(m.x_b[InN_b]);
    history.x_Ga.push_back(m.x_b[GaN_b]);
    history.x_Al.push_back(m.x_b[AlN_b]);
    if (m.detail_output) {
      history.c_In.push_back(m.c_a[In_a]);
      history.c_Ga.push_back(m.c_a[Ga_a]);
      history.c_Al.push_back(m.c_a[Al_a]);
      history.c_N.push_back(m.c_a[N_a]);
      history.c_H.push_back(m.c_a[H_a]);
    }
    if (relaxes) {
      follow_V_defects(m, eps_xx);
      if (m.detail_output) keep_energy_terms(m);
    }
  }

  m.z_prev = m.z;
  m.h_prev = m.h;
  m.t_prev = t_new;
}

}  // namespace vorlen
