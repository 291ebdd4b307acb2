#include "model/history.h"

#include "recipe/species_data.h"

namespace vorlen {

void append_point(History& history, const HistoryPoint& point, const HistoryLists& kept) {
  history.t.push_back(point.t);
  history.z.push_back(point.z);
  history.Vg.push_back(point.GR);
  history.x_In.push_back(point.x_b[InN_b]);
  history.x_Ga.push_back(point.x_b[GaN_b]);
  history.x_Al.push_back(point.x_b[AlN_b]);
  const HistoryDetail& d = point.detail;
  if (kept.relaxation) {
    history.h.push_back(point.h);
    history.rho_VD.push_back(point.rho_VD);
  }
  if (kept.integrals) {
    history.I0.push_back(d.I0);
    history.I1.push_back(d.I1);
    history.J0_0.push_back(d.J0_0);
    history.J0_1.push_back(d.J0_1);
  }
  if (!kept.detail) return;
  history.c_In.push_back(d.c_a[In_a]);
  history.c_Ga.push_back(d.c_a[Ga_a]);
  history.c_Al.push_back(d.c_a[Al_a]);
  history.c_N.push_back(d.c_a[N_a]);
  history.c_H.push_back(d.c_a[H_a]);
  if (!kept.relaxation) return;
  history.J0.push_back(ENERGY_SCALE * d.J0);
  history.J1.push_back(ENERGY_SCALE * d.J1);
  history.J2.push_back(ENERGY_SCALE * d.J2);
  history.deltaE.push_back(ENERGY_SCALE * d.deltaE);
  history.E_V_loop.push_back(ENERGY_SCALE * d.E_V_loop);
  history.K1.push_back(ENERGY_SCALE * d.K1);
  history.r.push_back(d.r);
}

}  // namespace vorlen
