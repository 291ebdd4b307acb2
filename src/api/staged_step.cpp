// Contents: moments of a step; search for the opening of V-defects; search for a maximum of their density; film and
// rows.
#include "api/staged_step.h"

#include <algorithm>
#include <cmath>

#include "integrator/radau_integrator.h"
#include "model/constants.h"
#include "strain/v_defect_density.h"
#include "strain/v_defect_energy.h"

namespace vorlen {

namespace {

constexpr double KNOT_SPACING = 2.5e-10;  // largest growth between two knots of the film, m
constexpr double SEARCH_SPACING = 1e-9;   // a step with less growth is checked for an opening at its end only, m
constexpr double NO_FRACTION = 1e-15;
constexpr double OVERSHOOT = 1e-4;  // of a fraction below 0; more is an error
constexpr int MAX_MOMENTS_PER_SAMPLE = 8;
constexpr int SEARCHES = 4;         // in a step with more growth; must divide SAMPLES_PER_STEP
constexpr int MAX_HALVINGS = 60;    // bisections of the time of an event
constexpr double PEAK_DROP = 1e-7;  // relative drop of the density after a maximum; less is rounding error
constexpr int MAX_THIRDS = 50;      // ternary-search steps for the time of a maximum

double growth_of(const StagedRun& run, const Step& step) { return (step.y[STAGED_Z] - run.y[STAGED_Z]) * NM; }

// Moments per sample, so many that the knots of the film are close together.
int moments_per_sample(const StagedRun& run, const Step& step) {
  const double wanted = std::ceil(std::abs(growth_of(run, step)) / KNOT_SPACING / SAMPLES_PER_STEP);
  if (!(wanted > 1.0)) return 1;
  return static_cast<int>(std::min(wanted, double{MAX_MOMENTS_PER_SAMPLE}));
}

int moment_count(const StagedRun& run, const Step& step) { return SAMPLES_PER_STEP * moments_per_sample(run, step); }

double moment(const Step& step, int j, int count) {
  return j == count ? step.t_to : step.t_from + (step.t_to - step.t_from) * j / count;
}

// Puts the state at time t of the step into the model.
void unpack_at(StagedRun& run, const Step& step, double t) {
  StagedVector y{};
  if (t == step.t_to) {
    std::copy_n(step.y, run.n, y.begin());
  } else {
    for (std::size_t i = 0; i < run.n; ++i) {
      y[i] = RadauDenseValue(static_cast<std::int32_t>(i) + 1, t, step.CONT, step.cont_size);
    }
  }
  unpack_staged(run.equations, y.data());
}

bool find_opening(StagedRun& run, const Step& step) {
  StagedEquations& e = run.equations;
  const double growth = growth_of(run, step);
  if (!(growth > 0.0)) return false;
  const int count = moment_count(run, step);
  const int searches = growth < SEARCH_SPACING ? 1 : SEARCHES;
  const std::size_t knots = e.layer.film.z.size();
  FilmPoint surface = run.surface;
  bool found = false;
  double low = step.t_from;
  for (int j = 1; j <= count && !found; ++j) {
    double high = moment(step, j, count);
    unpack_at(run, step, high);
    if (e.z > film_top(e.layer.film)) film_grow(e.layer.film, surface, surface_point(e));
    surface = surface_point(e);
    if (j % (count / searches) != 0) continue;
    found = v_defects_open(e.layer);
    for (int k = 0; found && k < MAX_HALVINGS; ++k) {
      const double middle = 0.5 * (low + high);
      if (!(low < middle && middle < high)) break;
      unpack_at(run, step, middle);
      (v_defects_open(e.layer) ? high : low) = middle;
    }
    low = high;
  }
  run.t_event = low;
  film_truncate(e.layer.film, knots);
  return found;
}

bool find_peak(StagedRun& run, const Step& step) {
  const int count = moment_count(run, step);
  const auto density_at = [&](double t) {
    unpack_at(run, step, t);
    return run.equations.layer.model.rho_VD;
  };
  double previous = run.equations.layer.rho_accepted;
  for (int j = 1; j <= count; ++j) {
    const double density = density_at(moment(step, j, count));
    if (!(density < previous * (1.0 - PEAK_DROP))) {
      previous = density;
      continue;
    }
    double low = moment(step, std::max(j - 2, 0), count);
    double high = moment(step, j, count);
    for (int k = 0; k < MAX_THIRDS; ++k) {
      const double third = (high - low) / 3.0;
      if (density_at(low + third) < density_at(high - third)) {
        low += third;
      } else {
        high -= third;
      }
    }
    run.t_event = 0.5 * (low + high);
    return run.t_event > step.t_from && run.t_event < step.t_to;
  }
  return false;
}

// The values of the detail columns at the state in the model.
HistoryDetail detail_of(const StagedEquations& e) {
  const SurfChemNonst& m = e.layer.model;
  HistoryDetail d{.c_a = m.c_a};
  if (m.stress_model != STRESS_V_dislocation) return d;
  d.I0 = m.I0;
  d.I1 = m.I1;
  d.K1 = m.I1;  // which starts at 0
  d.J0_0 = m.J0_0;
  d.J0_1 = m.J0_1;
  d.r = m.relative_mismatch();
  d.E_V_loop = loop_energy(m, m.z, m.z0);
  d.deltaE = m.I1 + loop_energy(m, m.z - m.z_start, 0.0);
  if (!e.layer.open) return d;
  d.J0 = m.J0;
  d.J1 = m.J1;
  d.J2 = v_defect_J2(e.layer);
  d.deltaE = d.E_V_loop + d.J0 + d.J1 + d.J2;
  return d;
}

HistoryPoint sample_of(const StagedEquations& e, double t, double GR) {
  const SurfChemNonst& m = e.layer.model;
  HistoryPoint sample{.t = t, .z = e.z, .h = m.h, .GR = GR, .rho_VD = m.rho_VD, .x_b = m.x_b};
  // Inside a step the interpolation may undershoot a fraction that falls to 0. An absent metal leaves rounding errors.
  double sum = 0.0;
  for (double& x : sample.x_b) {
    if (x < NO_FRACTION && x > -OVERSHOOT) x = 0.0;
    sum += x;
  }
  for (double& x : sample.x_b) x /= sum;
  if (m.detail_output) sample.detail = detail_of(e);
  return sample;
}

// Growth rate at time t of the step, m/s: the derivative of the cubic Hermite interpolant of the thickness.
double rate_at(const StagedRun& run, const Step& step, double GR, double t) {
  if (t == step.t_to) return GR;
  const double dt = step.t_to - step.t_from;
  const double s = (t - step.t_from) / dt;
  return 6.0 * s * (1.0 - s) * growth_of(run, step) / dt + (1.0 - s) * (1.0 - 3.0 * s) * run.GR +
         s * (3.0 * s - 2.0) * GR;
}

}  // namespace

void start_span(StagedRun& run, double t, const double* y, double GR) {
  unpack_staged(run.equations, y);
  run.GR = GR;
  run.surface = surface_point(run.equations);
  if (run.rows.samples.empty()) add_sample(run.equations.layer.model, run.rows, sample_of(run.equations, t, GR));
}

bool find_event(StagedRun& run, const Step& step) {
  if (!run.watch_events) return false;
  if (run.equations.layer.open ? find_peak(run, step) : find_opening(run, step)) {
    run.event = run.equations.layer.open ? Event::PEAK : Event::OPENING;
    return true;
  }
  return false;
}

void follow_step(StagedRun& run, const Step& step) {
  StagedEquations& e = run.equations;
  const int stride = moments_per_sample(run, step);
  const int count = SAMPLES_PER_STEP * stride;
  run.step_samples = 0;
  for (int j = 1; j <= count; ++j) {
    const double t = moment(step, j, count);
    unpack_at(run, step, t);
    const FilmPoint surface = surface_point(e);
    const double top = film_top(e.layer.film);
    if (e.z < top) film_cut(e.layer.film, e.z);
    if (e.z > top) film_grow(e.layer.film, run.surface, surface);
    run.surface = surface;
    if (j % stride == 0) run.samples[run.step_samples++] = sample_of(e, t, 0.0);
  }
  accept_v_defects(e.layer);
}

void finish_step(StagedRun& run, const Step& step, double GR) {
  for (std::size_t i = 0; i < run.step_samples; ++i) {
    HistoryPoint& s = run.samples[i];
    s.GR = rate_at(run, step, GR, s.t);
    add_sample(run.equations.layer.model, run.rows, s);
  }
  run.last_step = step.t_to - step.t_from;
  std::copy_n(step.y, run.n, run.y.begin());
  run.t = step.t_to;
  run.GR = GR;
}

}  // namespace vorlen
