// What an accepted step leaves behind: its growth rate, its depth interval under compression or tension, and, for
// recorded points, an entry in the history. The residual runs at trial points and leaves no trace; this is the only
// place at which the history grows.
#include <cmath>

#include "model/dislocation_constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

constexpr double RECORD_SPACING = 0.0009999999999;  // recorded points lie further apart than this, s
constexpr double END_TOLERANCE = 1e-10;             // a point this close to the end is the last one, s
constexpr double SEGMENT_GAP = 1e-14;               // a step that begins no further behind a segment continues it, m

bool is_recorded(SurfChemNonst& m, double t) {
  if (m.mode != 0) return m.out.is_open();
  if (m.first_point) {
    m.first_point = false;
    return true;
  }
  return t - m.history.t.back() > RECORD_SPACING || std::abs(m.t_end - t) < END_TOLERANCE;
}

void keep_energy_terms(SurfChemNonst& m) {
  // The zero takes the second term out, but lets a not-a-number through.
  const double K = m.I1 - m.history.I1[0] - (m.I0 - m.history.I0[0]) * 0.0;
  const double balance =
      m.z0 <= Z0_FOUND ? K + m.loop_energy(m.z - m.z_start, 0.0) : m.energy_balance(m.loop_energy(m.z, m.z0), m.rho_VD);
  m.history.deltaE.push_back(ENERGY_SCALE * balance);
  m.history.K1.push_back(ENERGY_SCALE * K);
  m.history.J0.push_back(ENERGY_SCALE * m.J0);
  m.history.J1.push_back(ENERGY_SCALE * m.J1);
  m.history.J2.push_back(ENERGY_SCALE * m.J2);
  m.history.E_V_loop.push_back(ENERGY_SCALE * m.loop_energy(m.z, m.z0));
  m.history.r.push_back(m.r);
}

void follow_V_defects(SurfChemNonst& m) {
  if (m.z0 < 0.0) {
    m.find_z0();
    if (m.z0 < 0.0) {
      m.history.I0.push_back(m.I0);
      m.history.I1.push_back(m.I1);
      m.history.J0_0.push_back(m.J0_0);
      m.history.J0_1.push_back(m.J0_1);
    } else {
      m.start_V_defects();
    }
  }
  if (Z0_FOUND < m.z0) m.update_V_defects();
  m.history.h.push_back(m.h);
  m.history.rho_VD.push_back(m.rho_VD);
}

}  // namespace

void SurfChemNonst::append_segment(std::vector<DepthSegment>& list) const {
  if (!list.empty() && z_prev - list.back().z_to < SEGMENT_GAP) {
    list.back().z_to = z;
  } else {
    list.push_back(DepthSegment{z_prev, z, h_prev});
  }
}

void SurfChemNonst::record_step(double t_new, const double* y) {
  unpack_state(y);
  Vg = 0.0;
  if (t_prev < t_new) Vg = (z - z_prev) / (t_new - t_prev);
  const bool relaxes = stress_model == STRESS_V_dislocation;
  if (relaxes) append_segment(0.0 < eps_xx ? segments.tensile : segments.relaxing);

  if (is_recorded(*this, t_new)) {
    history.t.push_back(t_new);
    history.z.push_back(z);
    history.Vg.push_back(Vg);
    history.x_In.push_back(x_b[InN_b]);
    history.x_Ga.push_back(x_b[GaN_b]);
    history.x_Al.push_back(x_b[AlN_b]);
    if (detail_output) {
      history.c_In.push_back(c_a[In_a]);
      history.c_Ga.push_back(c_a[Ga_a]);
      history.c_Al.push_back(c_a[Al_a]);
      history.c_N.push_back(c_a[N_a]);
      history.c_H.push_back(c_a[H_a]);
    }
    if (relaxes) {
      follow_V_defects(*this);
      if (detail_output) keep_energy_terms(*this);
    }
  }

  z_prev = z;
  h_prev = h;
  t_prev = t_new;
}

}  // namespace vorlen
