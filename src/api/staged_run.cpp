// A stage is integrated in one or more spans. Each span is a call of the integrator that ends at the end of the stage
// or at an event.
#include "api/staged_run.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "api/staged_step.h"
#include "integrator/radau_integrator.h"
#include "strain/v_defect_density.h"

namespace vorlen {

namespace {

constexpr double FIRST_STEP = 1e-6;      // s
constexpr double SMALLEST_STEP = 1e-14;  // s, after failures
constexpr int MAX_RESTARTS = 5;          // in a row without progress, of a span that failed
constexpr double RESTART_FACTOR = 1e-3;  // of the step
constexpr double STEP_TOWARDS_EVENT =
    0.1;  // of the step: a new span has no predictor, and accepts large steps too easily
constexpr double RESTART_AFTER_PEAK = 0.1;  // of the step
constexpr double END_ROUNDING = 1e-14;      // of the time
constexpr std::int64_t MAX_COUNT = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t STEPS_PER_STAGE = 200;  // allowed in addition to those of the whole run

enum class SpanEnd { REACHED, EVENT, NOT_FINITE, FAILED };

// A call of the integrator. Keeps the last evaluation of f, because the integrator evaluates an accepted state again.
struct Span {
  StagedRun& run;
  SpanEnd end = SpanEnd::REACHED;
  bool has_evaluation = false;
  double t = 0.0;
  double GR = 0.0;
  StagedVector y{}, f{};
};

bool is_finite(const StagedVector& v) {
  return std::all_of(v.begin(), v.end(), [](double value) { return std::isfinite(value); });
}

void evaluate(Span& span, double t, const double* y) {
  const StagedRun& run = span.run;
  if (span.has_evaluation && run.equations.layer.model.reuse_terms && span.t == t &&
      std::equal(y, y + run.n, span.y.begin())) {
    return;
  }
  span.GR = staged_rhs(span.run.equations, t, y, span.f.data());
  std::copy_n(y, run.n, span.y.begin());
  span.t = t;
  span.has_evaluation = true;
}

void rhs_callback(std::int32_t n, double t, const double* y, double* f, void*, void* context) {
  Span& span = *static_cast<Span*>(context);
  evaluate(span, t, y);
  std::copy_n(span.f.begin(), n, f);
}

void step_callback(std::int32_t accepted_index, double t_old, double t, const double* y, const double* CONT,
                   std::int32_t cont_size, std::int32_t n, void*, void* context, std::int32_t& stop_flag) {
  Span& span = *static_cast<Span*>(context);
  StagedRun& run = span.run;
  if (accepted_index == 1) {
    evaluate(span, t, y);
    if (is_finite(span.f)) {
      start_span(run, t, y, span.GR);
    } else {
      span.end = SpanEnd::NOT_FINITE;
      stop_flag = -1;
    }
    return;
  }
  const Step step{t_old, t, y, CONT, cont_size};
  stop_flag = -1;
  span.end = SpanEnd::NOT_FINITE;
  if (!std::all_of(y, y + n, [](double value) { return std::isfinite(value); })) return;
  span.end = SpanEnd::EVENT;
  if (find_event(run, step)) return;
  follow_step(run, step);
  span.has_evaluation = false;  // the film and the density have moved
  evaluate(span, t, y);
  span.end = SpanEnd::NOT_FINITE;
  if (!is_finite(span.f) || !std::isfinite(run.equations.layer.model.rho_VD)) return;
  finish_step(run, step, span.GR);
  stop_flag = 1;
  span.end = SpanEnd::REACHED;
}

// Integrates from the last accepted state to t_end [s]. idid receives the code of the integrator.
SpanEnd integrate(StagedRun& run, double t_end, double first_step, std::int32_t max_steps, RunCounters& counters,
                  std::int32_t& idid) {
  const auto n = static_cast<std::int32_t>(run.n);
  const std::int32_t lwork = n * (4 * n + 12) + 20;
  const std::int32_t liwork = 3 * n + 20;
  std::vector<double> WORK(static_cast<std::size_t>(lwork), 0.0);
  std::vector<std::int32_t> IWORK(static_cast<std::size_t>(liwork), 0);
  WORK[7 - 1] = run.max_step;
  IWORK[2 - 1] = max_steps;
  StagedVector rtol{}, atol{};
  staged_tolerances(run.equations, run.tolerance, rtol.data(), atol.data());
  StagedVector y = run.y;
  double t = run.t;
  double h = first_step;
  std::int32_t mljac = n, mujac = n, mumas = 0;
  Span span{.run = run};
  RadauIntegrator(n, rhs_callback, t, y.data(), t_end, h, rtol.data(), atol.data(), /*itol=*/1,
                  /*jacobian_callback=*/nullptr, /*ijac=*/0, mljac, mujac, /*mass_callback=*/nullptr, /*imas=*/0,
                  /*mlmas=*/0, mumas, step_callback, /*iout=*/1, WORK.data(), lwork, IWORK.data(), liwork,
                  /*real_context=*/nullptr, &span, idid);
  add_counters(counters, IWORK.data());
  // The last step may end a rounding error short of t_end. No step from there is large enough.
  if (idid == RADAU_STEP_TOO_SMALL && t_end - run.t <= END_ROUNDING * t_end) return SpanEnd::REACHED;
  return idid < 0 ? SpanEnd::FAILED : span.end;
}

// Opens V-defects at the last accepted state. The rows before it end here; the next ones have the new density.
void open_here(StagedRun& run) {
  StagedEquations& e = run.equations;
  unpack_staged(e, run.y.data());
  finish_rows(e.layer.model, run.rows);
  open_v_defects(e.layer);
  add_rows_at_z0(e.layer.model);
  unpack_staged(e, run.y.data());
  accept_v_defects(e.layer);
}

// Integrates one stage to its end. Returns RADAU_DONE, RADAU_STOPPED for a state that is not finite, or the
// integrator's code of a failure.
std::int32_t run_stage(StagedRun& run, double tau, std::int64_t max_steps, RunCounters& counters) {
  run.t = 0.0;
  run.event = Event::NONE;
  double first_step = FIRST_STEP;
  int restarts = 0;
  while (true) {
    const Event at_end = run.event;
    const double t_end = at_end == Event::NONE ? tau : run.t_event;
    run.watch_events = at_end == Event::NONE && run.equations.layer.model.stress_model == STRESS_V_dislocation;
    const std::int64_t left = max_steps - counters.step_count;
    if (left <= 0) return RADAU_TOO_MANY_STEPS;
    const double t_before = run.t;
    std::int32_t idid = 0;
    switch (integrate(run, t_end, first_step, static_cast<std::int32_t>(std::min(left, MAX_COUNT)), counters, idid)) {
      case SpanEnd::REACHED:
        if (at_end == Event::NONE) {
          run.rows.samples.back().t = tau;
          return RADAU_DONE;
        }
        run.event = Event::NONE;
        if (at_end == Event::OPENING) open_here(run);
        first_step = at_end == Event::OPENING ? FIRST_STEP : std::max(RESTART_AFTER_PEAK * run.last_step, FIRST_STEP);
        break;
      case SpanEnd::EVENT:
        first_step = std::max(STEP_TOWARDS_EVENT * run.last_step, FIRST_STEP);
        break;
      case SpanEnd::NOT_FINITE:
      case SpanEnd::FAILED:
        if (run.t > t_before) restarts = 0;
        if (idid == RADAU_TOO_MANY_STEPS || idid == RADAU_REFUSED || ++restarts > MAX_RESTARTS) return idid;
        first_step = std::max(SMALLEST_STEP, std::max(run.last_step, FIRST_STEP) * std::pow(RESTART_FACTOR, restarts));
        break;
    }
  }
}

}  // namespace

std::int32_t run_staged(SurfChemNonst& m, double tolerance, const RunOptions& options, RunCounters& counters,
                        std::string& error) {
  StagedVector y{};
  StagedRun run{staged_equations(m, y)};
  run.y = y;
  run.tolerance = tolerance;
  run.max_step = options.max_step;
  run.n = static_cast<std::size_t>(n_staged(m));
  std::int64_t max_steps = options.max_steps;
  // The equations use the time since the start of the stage, so a start that is not finite would only show in the rows.
  const bool starts = std::isfinite(m.t_begin) && std::isfinite(m.t_end) && std::isfinite(m.z_start);
  std::int32_t idid = starts ? RADAU_DONE : RADAU_STOPPED;
  for (std::size_t k = 0; k < m.active_stages.size() && idid == RADAU_DONE; ++k) {
    const StageRecord& stage = m.active_stages[k];
    start_stage(run.equations, k, run.y);
    run.rows.begin = stage.begin_time();
    max_steps += STEPS_PER_STAGE;
    idid = run_stage(run, stage.tau, max_steps, counters);
    finish_rows(m, run.rows);
  }
  counters.idid = idid;
  unpack_staged(run.equations, run.y.data());
  m.z = run.equations.z;
  if (idid == RADAU_STOPPED) {
    error = "State is not finite";
    return RUN_NOT_FINITE;
  }
  return run_status_of(idid, error);
}

}  // namespace vorlen
