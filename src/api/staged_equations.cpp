// The equations of the staged scheme; docs/integration.md derives them.
//
// In order: the state vector, switches between growth and evaporation and between tension and relaxation, the first
// state, the start of a stage, unpacking, the right-hand side, tolerances.
#include "api/staged_equations.h"

#include <algorithm>
#include <cmath>

#include "model/constants.h"

namespace vorlen {

namespace {

constexpr double C_UNIT = 1e-9;  // of the surface concentrations, kmol/m^2

// The components of the state.
constexpr std::size_t Y_c = 0, Y_x = N_ADSORBED, Y_z = STAGED_Z;
constexpr std::size_t Y_h = Y_z + 1, Y_I0 = Y_z + 2, Y_I1 = Y_z + 3, Y_J0_0 = Y_z + 4, Y_J0_1 = Y_z + 5;

// Below about this growth rate, kmol/(m^2 s), the exchange layer passes on the film's composition, as in evaporation,
// so that the equations are smooth where growth turns into evaporation. It is a hundred-thousandth of usual growth and
// adds nothing to the film.
constexpr double SLOW_GROWTH = 3.7e-13;

// The switch between growth in tension and growth that relaxes takes this much strain. A jump would make layers slide
// along it.
constexpr double SWITCH_WIDTH = 1e-6;

double tension_share(double eps_xx) { return 0.5 * (1.0 + std::tanh((eps_xx - TENSION_THRESHOLD) / SWITCH_WIDTH)); }

bool relaxes(const SurfChemNonst& m) { return m.stress_model == STRESS_V_dislocation; }

}  // namespace

std::int32_t n_staged(const SurfChemNonst& model) {
  return relaxes(model) ? N_STAGED_MAX : static_cast<std::int32_t>(Y_h);
}

StagedEquations staged_equations(SurfChemNonst& m, StagedVector& y) {
  std::array<double, N_STATE_MAX> first{};
  m.init_state(first.data());
  StagedEquations e{.layer = {.model = m, .film = film_on(m.pre_stages, m.z_start, relaxes(m))}};
  e.start.z = m.z_start;
  e.z = m.z_start;
  FilmPoint top = film_at(e.layer.film, m.z_start);
  film_add(e.layer.film, top);
  y.fill(0.0);
  for (std::size_t k = 0; k < N_ADSORBED; ++k) y[Y_c + k] = m.c_a[k] / C_UNIT;
  y[Y_x + InN_b] = top.x_In;
  y[Y_x + GaN_b] = 1.0 - top.x_In - top.x_Al;
  y[Y_x + AlN_b] = top.x_Al;
  return e;
}

void start_stage(StagedEquations& e, std::size_t k, StagedVector& y) {
  SurfChemNonst& m = e.layer.model;
  unpack_staged(e, y.data());
  e.start = {e.z, m.h, m.z - m.z_start - m.h, m.I0, m.I1, m.J0_0, m.J0_1};
  std::fill(y.begin() + Y_z, y.end(), 0.0);
  m.stage_index = static_cast<std::uint32_t>(k);
  m.t = m.active_stages[k].begin_time();
  m.set_conditions(0.0, true);
  e.t_conditions = 0.0;
}

void unpack_staged(StagedEquations& e, const double* y) {
  SurfChemNonst& m = e.layer.model;
  for (std::size_t k = 0; k < N_ADSORBED; ++k) m.c_a[k] = C_UNIT * y[Y_c + k];
  const double sum = y[Y_x + InN_b] + y[Y_x + GaN_b] + y[Y_x + AlN_b];
  for (std::size_t k = 0; k < N_BULK; ++k) {
    m.x_b[k] = y[Y_x + k] / sum;
    m.x_b_clip[k] = clamp_fraction(m.x_b[k]);
  }
  m.a_bulk = m.lattice_a(m.x_b_clip.data());
  e.z = e.start.z + NM * y[Y_z];
  m.z = e.z;
  if (!relaxes(m)) return;
  // The laws of the dislocations hold for an effective thickness that is not negative.
  m.h = std::min(e.start.h + NM * y[Y_h], m.z - m.z_start);
  if (e.layer.open) m.h = std::min(m.h, m.z - m.z0 + m.h_z0);
  const double stiff = m.bending_stiffness();
  const double I0 = (stiff * NM) * y[Y_I0];
  const double J0_1 = (stiff * NM) * y[Y_J0_1];
  m.I0 = e.start.I0 + I0;
  m.I1 = e.start.I1 + (e.start.w * I0 + (stiff * NM * NM) * y[Y_I1]);
  m.J0_1 = e.start.J0_1 + J0_1;
  m.J0_0 = e.start.J0_0 + (e.start.w * J0_1 + (stiff * NM * NM) * y[Y_J0_0]);
  if (e.layer.open) m.rho_VD = v_defect_density(e.layer);
}

FilmPoint surface_point(StagedEquations& e) {
  SurfChemNonst& m = e.layer.model;
  FilmPoint p{.z = e.z, .x_In = m.x_b[InN_b], .x_Al = m.x_b[AlN_b]};
  if (!relaxes(m)) return p;
  const RelaxationRates rates = m.relaxation_rates(1.0);
  p.h = m.h;
  p.I0 = m.I0;
  p.I1 = m.I1;
  p.J0_0 = m.J0_0;
  p.J0_1 = m.J0_1;
  p.w = rates.z_rel;
  p.R = rates.R_disl;
  p.S = rates.S_disl;
  return p;
}

double staged_rhs(StagedEquations& e, double t, const double* y, double* f) {
  SurfChemNonst& m = e.layer.model;
  ++m.eval_rhs_calls;
  if (t != e.t_conditions) {
    const StageRecord& stage = m.active_stages[m.stage_index];
    m.t = stage.begin_time() + t;
    m.set_conditions(t / stage.tau, false);
    e.t_conditions = t;
  }
  unpack_staged(e, y);
  const SurfaceRates& surface = m.surface_rates();
  for (std::size_t k = 0; k < N_ADSORBED; ++k) f[Y_c + k] = surface.dc_a[k] / C_UNIT;

  const double S = surface.R_b[InN_b] + surface.R_b[GaN_b] + surface.R_b[AlN_b];
  const double share = S > 0.0 ? std::exp(-S / SLOW_GROWTH) : 1.0;  // of the film's composition in what passes
  const FilmPoint film = share > 0.0 ? film_at(e.layer.film, e.z) : FilmPoint{};
  const double below[N_BULK] = {film.x_In, 1.0 - film.x_In - film.x_Al, film.x_Al};
  for (std::size_t k = 0; k < N_BULK; ++k) {
    const double x = m.x_b[k];
    f[Y_x + k] = (surface.R_b[k] - S * (x + share * (below[k] - x))) / e.gamma;
  }
  f[Y_z] = surface.GR / NM;
  if (!relaxes(m)) return surface.GR;

  const double stiff = m.bending_stiffness();
  if (surface.GR < 0.0) {
    // Evaporation takes back what the growth of this depth had added.
    const FilmPoint p = film_at(e.layer.film, e.z);
    f[Y_h] = surface.GR * film_tension(e.layer.film, e.z) / NM;
    f[Y_I0] = surface.GR * p.R / (stiff * NM);
    f[Y_J0_1] = surface.GR * p.S / (stiff * NM);
    f[Y_I1] = (p.w - e.start.w) * surface.GR * p.R / (stiff * NM * NM);
    f[Y_J0_0] = (p.w - e.start.w) * surface.GR * p.S / (stiff * NM * NM);
    return surface.GR;
  }
  const RelaxationRates rates = m.relaxation_rates(surface.GR);
  f[Y_h] = tension_share(rates.eps_xx) * surface.GR / NM;
  f[Y_I0] = rates.R_disl / (stiff * NM);
  f[Y_J0_1] = rates.S_disl / (stiff * NM);
  f[Y_I1] = (rates.z_rel - e.start.w) * rates.R_disl / (stiff * NM * NM);
  f[Y_J0_0] = (rates.z_rel - e.start.w) * rates.S_disl / (stiff * NM * NM);
  return surface.GR;
}

void staged_tolerances(const StagedEquations& e, double tolerance, double* rtol, double* atol) {
  constexpr double OF_CONCENTRATIONS = 1e-3;  // 1e-12 kmol/m^2, a ten-thousandth of a monolayer
  constexpr double OF_FRACTIONS = 1e-4;
  constexpr double OF_THICKNESS = 0.1;  // of z and h, in nm
  constexpr double OF_INTEGRALS = 1e-3;
  const auto n = static_cast<std::size_t>(n_staged(e.layer.model));
  std::fill_n(rtol, n, tolerance);
  for (std::size_t i = 0; i < n; ++i) {
    atol[i] = tolerance * (i < Y_x    ? OF_CONCENTRATIONS
                           : i < Y_z  ? OF_FRACTIONS
                           : i < Y_I0 ? OF_THICKNESS
                                      : OF_INTEGRALS);
  }
}

}  // namespace vorlen
