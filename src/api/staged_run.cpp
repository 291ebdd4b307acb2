// One stage is one or more spans, each a call of the integrator: a span ends at the end of the stage, or where
// V-defects open. After each accepted step the film, the rows and the V-defects follow the solution at a few moments of
// the step.
#include "api/staged_run.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "integrator/radau_integrator.h"
#include "model/staged_equations.h"
#include "results/row_selection.h"
#include "strain/v_defect_density.h"

namespace vorlen {

namespace {

constexpr double FIRST_STEP = 1e-6;         // s
constexpr double SMALLEST_STEP = 1e-14;     // s, after failures
constexpr double MOMENT_SPACING = 2.5e-10;  // growth between two moments of a step, m
constexpr double SEARCH_SPACING = 1e-9;     // growth between two searches for an opening, m
constexpr int MIN_MOMENTS = 4;
constexpr int MAX_MOMENTS = 64;
constexpr int MAX_RESTARTS = 5;             // of a span that failed
constexpr double RESTART_FACTOR = 1e-3;     // of the step
constexpr double RESTART_AFTER_PEAK = 0.1;  // of the step
constexpr double PEAK_DROP = 1e-7;          // relative, of the density after a maximum; below are roundings
constexpr double PEAK_PRECISION = 1e-9;     // of the time of a maximum, over the step
constexpr double END_ROUNDING = 1e-14;      // of the time
constexpr int MAX_HALVINGS = 60;            // of the time of an opening

enum class SpanEnd { REACHED, EVENT, NOT_FINITE, FAILED };

// What a span ends at before the end of its stage.
enum class Event {
  NONE,
  OPENING,  // of V-defects
  PEAK      // their density stops rising
};

// The last evaluation of f; the integrator asks for that of an accepted state once more.
struct LastEvaluation {
  bool is_set = false;
  double t = 0.0;
  double GR = 0.0;
  StagedVector y{}, f{};
};

struct StagedRun {
  SurfChemNonst& model;
  StagedEquations equations;
  double tolerance;  // relative
  StagedVector y{};  // last accepted state
  double t = 0.0;    // its time, s from the start of the stage
  double GR = 0.0;   // its growth rate, m/s
  RowSelection rows;
  LastEvaluation last;
  SpanEnd end = SpanEnd::REACHED;
  bool watch_events = false;
  Event event = Event::NONE;
  double t_event = 0.0;
  double last_step = 0.0;
  std::size_t n = 0;
};

bool is_finite(const double* y, std::size_t n) {
  return std::all_of(y, y + n, [](double v) { return std::isfinite(v); });
}

double evaluate(StagedRun& run, double t, const double* y, double* f) {
  LastEvaluation& last = run.last;
  if (!(last.is_set && last.t == t && std::equal(y, y + run.n, last.y.begin()))) {
    last.GR = staged_rhs(run.equations, t, y, last.f.data());
    std::copy(y, y + run.n, last.y.begin());
    last.t = t;
    last.is_set = true;
  }
  std::copy(last.f.begin(), last.f.begin() + static_cast<std::ptrdiff_t>(run.n), f);
  return last.GR;
}

RowSample sample_of(StagedRun& run, double t, double GR) {
  const SurfChemNonst& m = run.model;
  return {t, run.equations.z, m.h, GR, m.rho_VD, m.x_b, m.c_a, {m.I0, m.I1, m.J0_0, m.J0_1}, {m.J0, m.J1, m.J2}, m.r};
}

// Brings the film up to the state last unpacked.
void follow_film(StagedEquations& e) {
  const double top = film_top(e.film);
  if (e.z < top) {
    film_cut(e.film, e.z);
  } else if (e.z > top) {
    film_add(e.film, surface_point(e));
  }
}

// One step of the integrator.
struct Step {
  double t_from, t_to;
  double z_from, z_to;    // nm in the stage
  double GR_from, GR_to;  // m/s
  const double* y_to;
  const double* CONT;
  std::int32_t cont_size;
};

void state_at(const StagedRun& run, const Step& step, double t, StagedVector& y) {
  if (t == step.t_to) {
    std::copy(step.y_to, step.y_to + run.n, y.begin());
    return;
  }
  for (std::size_t i = 0; i < run.n; ++i) {
    y[i] = RadauDenseValue(static_cast<std::int32_t>(i) + 1, t, step.CONT, step.cont_size);
  }
}

// Growth rate within the step: the derivative of the cubic that has thickness and rate in common with both ends.
double rate_at(const Step& step, double t) {
  if (t == step.t_to) return step.GR_to;
  const double dt = step.t_to - step.t_from;
  const double s = (t - step.t_from) / dt;
  const double mean = (step.z_to - step.z_from) * 1e-9 / dt;
  return 6.0 * s * (1.0 - s) * mean + (1.0 - s) * (1.0 - 3.0 * s) * step.GR_from + s * (3.0 * s - 2.0) * step.GR_to;
}

int moments_of(const Step& step) {
  const double growth = std::abs(step.z_to - step.z_from) * 1e-9;
  const double count = std::clamp(std::ceil(growth / MOMENT_SPACING), double{MIN_MOMENTS}, double{MAX_MOMENTS});
  return static_cast<int>(count);
}

double moment(const Step& step, int j, int count) {
  return j == count ? step.t_to : step.t_from + (step.t_to - step.t_from) * j / count;
}

void unpack_at(StagedRun& run, const Step& step, double t) {
  StagedVector y{};
  state_at(run, step, t, y);
  unpack_staged(run.equations, y.data());
}

// Whether V-defects open within the step; then the time is kept. The film gets the knots of the step for the search.
bool find_opening(StagedRun& run, const Step& step, int count) {
  StagedEquations& e = run.equations;
  const std::size_t knots = e.film.z.size();
  const auto opens_at = [&](double t) {
    unpack_at(run, step, t);
    return v_defects_open(e);
  };
  const double growth = (step.z_to - step.z_from) * 1e-9;
  const int checks = growth < SEARCH_SPACING ? 1 : MIN_MOMENTS;
  bool found = false;
  double low = step.t_from;
  for (int j = 1; j <= count && !found; ++j) {
    double high = moment(step, j, count);
    unpack_at(run, step, high);
    if (e.z > film_top(e.film)) film_add(e.film, surface_point(e));
    if (j % (MIN_MOMENTS * (count / MIN_MOMENTS) / checks) != 0 && j != count) continue;
    found = v_defects_open(e);
    if (found) {
      for (int k = 0; k < MAX_HALVINGS; ++k) {
        const double middle = 0.5 * (low + high);
        if (!(low < middle && middle < high)) break;
        (opens_at(middle) ? high : low) = middle;
      }
      run.t_event = high;
    }
    low = high;
  }
  film_truncate(e.film, knots);  // the step is gone through again
  return found;
}

// Whether the density of V-defects has a maximum within the step; then its time is kept.
bool find_peak(StagedRun& run, const Step& step, int count) {
  const auto density_at = [&](double t) {
    unpack_at(run, step, t);
    return run.model.rho_VD;
  };
  double previous = run.equations.rho_accepted;
  for (int j = 1; j <= count; ++j) {
    const double rho = density_at(moment(step, j, count));
    if (rho < previous * (1.0 - PEAK_DROP)) {
      double low = moment(step, std::max(j - 2, 0), count), high = moment(step, j, count);
      for (int k = 0; k < MAX_HALVINGS && high - low > PEAK_PRECISION * (step.t_to - step.t_from); ++k) {
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
    previous = rho;
  }
  return false;
}

bool find_event(StagedRun& run, const Step& step, int count) {
  if (!run.watch_events) return false;
  if (run.equations.open) {
    if (!find_peak(run, step, count)) return false;
    run.event = Event::PEAK;
  } else {
    if (!(step.z_to > step.z_from) || !find_opening(run, step, count)) return false;
    run.event = Event::OPENING;
  }
  return true;
}

void rhs_callback(std::int32_t, double t, const double* y, double* f, void*, void* context) {
  evaluate(*static_cast<StagedRun*>(context), t, y, f);
}

void step_callback(std::int32_t accepted_index, double t_old, double t, const double* y, const double* CONT,
                   std::int32_t cont_size, std::int32_t, void*, void* context, std::int32_t& stop_flag) {
  StagedRun& run = *static_cast<StagedRun*>(context);
  StagedEquations& e = run.equations;
  StagedVector f{};
  if (accepted_index == 1) {
    run.GR = evaluate(run, t, y, f.data());
    if (run.rows.samples.empty()) add_sample(run.model, run.rows, sample_of(run, t, run.GR));
    return;
  }
  if (!is_finite(y, run.n)) {
    run.end = SpanEnd::NOT_FINITE;
    stop_flag = -1;
    return;
  }
  const std::size_t Z = N_ADSORBED + 2;
  Step step{t_old, t, run.y[Z], y[Z], run.GR, 0.0, y, CONT, cont_size};
  const int count = moments_of(step);
  if (find_event(run, step, count)) {
    run.end = SpanEnd::EVENT;
    stop_flag = -1;
    return;
  }
  StagedVector at{};
  std::vector<RowSample> samples;
  for (int j = 1; j <= count; ++j) {
    const double tj = moment(step, j, count);
    state_at(run, step, tj, at);
    unpack_staged(e, at.data());
    follow_film(e);
    if (j % (count / MIN_MOMENTS) == 0 || j == count) samples.push_back(sample_of(run, tj, 0.0));
  }
  accept_v_defects(e);
  run.last.is_set = false;
  step.GR_to = evaluate(run, t, y, f.data());
  if (!std::isfinite(step.GR_to) || !is_finite(f.data(), run.n)) {
    run.end = SpanEnd::NOT_FINITE;
    stop_flag = -1;
    return;
  }
  for (RowSample& s : samples) {
    s.GR = rate_at(step, s.t);
    add_sample(run.model, run.rows, s);
  }
  run.last_step = t - t_old;
  std::copy(y, y + run.n, run.y.begin());
  run.t = t;
  run.GR = step.GR_to;
}

void add_counters(RunCounters& sum, const std::int32_t* IWORK) {
  sum.rhs_calls += IWORK[14 - 1];
  sum.jacobian_count += IWORK[15 - 1];
  sum.step_count += IWORK[16 - 1];
  sum.accepted_count += IWORK[17 - 1];
  sum.rejected_count += IWORK[18 - 1];
  sum.factorisation_count += IWORK[19 - 1];
  sum.solve_count += IWORK[20 - 1];
}

// Integrates from the last accepted state to t_end; returns the integrator's code.
std::int32_t integrate(StagedRun& run, double t_end, double first_step, std::int32_t max_steps, RunCounters& counters) {
  const auto n = static_cast<std::int32_t>(run.n);
  const std::int32_t lwork = n * (4 * n + 12) + 20;
  const std::int32_t liwork = 3 * n + 20;
  std::vector<double> WORK(static_cast<std::size_t>(lwork), 0.0);
  std::vector<std::int32_t> IWORK(static_cast<std::size_t>(liwork), 0);
  IWORK[2 - 1] = max_steps;
  StagedVector rtol{}, atol{};
  staged_tolerances(run.equations, run.tolerance, rtol.data(), atol.data());
  StagedVector y = run.y;
  double t = run.t;
  double h = first_step;
  std::int32_t mljac = n, mujac = n, mumas = 0, idid = 0;
  run.end = SpanEnd::REACHED;
  run.last.is_set = false;
  RadauIntegrator(n, rhs_callback, t, y.data(), t_end, h, rtol.data(), atol.data(), /*itol=*/1,
                  /*jacobian_callback=*/nullptr, /*ijac=*/0, mljac, mujac, /*mass_callback=*/nullptr, /*imas=*/0,
                  /*mlmas=*/0, mumas, step_callback, /*iout=*/1, WORK.data(), lwork, IWORK.data(), liwork,
                  /*real_context=*/nullptr, &run, idid);
  add_counters(counters, IWORK.data());
  // A step may end a rounding short of t_end, which is as good.
  if (idid == RADAU_STEP_TOO_SMALL && t_end - run.t <= END_ROUNDING * t_end) idid = RADAU_DONE;
  if (idid < 0) run.end = SpanEnd::FAILED;
  return idid;
}

// Opens V-defects at the last accepted state. Rows end here and go on with the density after it.
void open_here(StagedRun& run) {
  unpack_staged(run.equations, run.y.data());
  finish_rows(run.model, run.rows);
  open_v_defects(run.equations);
  unpack_staged(run.equations, run.y.data());
  accept_v_defects(run.equations);
}

// Integrates one stage to its end. Returns the integrator's code of a failure, 2 for a state that is not finite, or 1.
std::int32_t run_stage(StagedRun& run, double tau, std::int32_t max_steps, RunCounters& counters) {
  run.t = 0.0;
  run.event = Event::NONE;
  double first_step = FIRST_STEP;
  int restarts = 0;
  while (true) {
    const bool to_event = run.event != Event::NONE;
    const double t_end = to_event ? run.t_event : tau;
    run.watch_events = !to_event && run.model.stress_model == STRESS_V_dislocation;
    const std::int32_t left = max_steps - counters.step_count;
    if (left <= 0) return RADAU_TOO_MANY_STEPS;
    const double t_before = run.t;
    const std::int32_t idid = integrate(run, t_end, first_step, left, counters);
    switch (run.end) {
      case SpanEnd::REACHED:
        if (!to_event) {
          run.rows.samples.back().t = tau;
          return RADAU_DONE;
        }
        if (run.event == Event::OPENING) open_here(run);
        first_step =
            run.event == Event::OPENING ? FIRST_STEP : std::max(RESTART_AFTER_PEAK * run.last_step, FIRST_STEP);
        run.event = Event::NONE;
        continue;
      case SpanEnd::EVENT:
        first_step = std::max(run.last_step, FIRST_STEP);
        continue;
      case SpanEnd::NOT_FINITE:
      case SpanEnd::FAILED:
        if (run.t > t_before) restarts = 0;
        if (idid == RADAU_TOO_MANY_STEPS || ++restarts > MAX_RESTARTS) return idid;
        first_step = std::max(SMALLEST_STEP, std::max(run.last_step, FIRST_STEP) * std::pow(RESTART_FACTOR, restarts));
        continue;
    }
  }
}

}  // namespace

std::int32_t run_staged(SurfChemNonst& m, double tolerance, const RunOptions& options, RunCounters& counters,
                        std::string& error) {
  StagedVector y{};
  StagedEquations equations = staged_equations(m, y);
  StagedRun run{.model = m, .equations = std::move(equations), .tolerance = tolerance, .rows = {}, .last = {}};
  run.y = y;
  run.n = static_cast<std::size_t>(n_staged(m));
  std::int32_t idid = 1;
  for (std::size_t k = 0; k < m.active_stages.size() && idid == 1; ++k) {
    start_stage(run.equations, k, run.y);
    run.rows.begin = m.active_stages[k].begin_time();
    idid = run_stage(run, m.active_stages[k].tau, options.max_steps, counters);
    finish_rows(m, run.rows);
  }
  counters.idid = idid;
  unpack_staged(run.equations, run.y.data());
  m.z = run.equations.z;
  if (idid == 2) {
    error = "State is not finite";
    return RUN_NOT_FINITE;
  }
  return run_status_of(idid, "", error);
}

}  // namespace vorlen
