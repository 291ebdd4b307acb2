// The driver of a run, and the continuous scheme: one call of the integrator over the whole process. Stage boundaries
// do not restart it, and the model looks up its conditions by time.
#include "api/run_simulation.h"

#include <vector>

#include "api/staged_run.h"
#include "integrator/radau_integrator.h"
#include "model/surfchem_nonst.h"
#include "results/write_results.h"
#include "strain/record_step.h"

namespace vorlen {

namespace {

constexpr double DT_FIRST = 0.0001;  // first step size, s
constexpr double DT_MAX = 10.0;      // largest step size, s
constexpr double RTOL = 1e-10;
constexpr double ATOL = 1e-14;

SurfChemNonst& model_of(void* model_context) { return *static_cast<SurfChemNonst*>(model_context); }

// If the lookup of the conditions fails, f is unchanged and the integrator continues with it.
void model_rhs_callback(std::int32_t, double x, const double* y, double* f, void*, void* model_context) {
  model_of(model_context).eval_rhs(x, y, f);
}

void mass_callback(std::int32_t n, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) FMAS[j * mass_rows] = j < n - N_ALGEBRAIC ? 1.0 : 0.0;
}

void model_step_callback(std::int32_t, double, double x, const double* y, const double*, std::int32_t, std::int32_t,
                         void*, void* model_context, std::int32_t&) {
  record_step(model_of(model_context), x, y);
}

// Integrates the process and fills the history of the model. Returns a RunStatus, and sets error if that is not RUN_OK.
// counters receives the work of the integrator.
std::int32_t run_continuous(SurfChemNonst& m, const RunOptions& options, RunCounters& counters, std::string& error) {
  const std::int32_t n = m.n_state();
  double t = m.t_begin;
  const double t_end = m.t_end;
  double y[N_STATE_MAX] = {};
  m.init_state(y);

  const std::int32_t lwork = n * (5 * n + 12) + 20;
  const std::int32_t liwork = 5 * n + 20;
  std::vector<double> WORK(static_cast<std::size_t>(lwork), 0.0);
  std::vector<std::int32_t> IWORK(static_cast<std::size_t>(liwork), 0);
  WORK[7 - 1] = options.max_step > 0.0 ? options.max_step : DT_MAX;
  IWORK[2 - 1] = options.max_steps;
  IWORK[5 - 1] = n - N_ALGEBRAIC;
  IWORK[6 - 1] = N_ALGEBRAIC;

  double dt_last = DT_FIRST;
  double rtol = RTOL;
  double atol = ATOL;
  std::int32_t mljac = n;
  std::int32_t mujac = n;
  std::int32_t mumas = 0;
  std::int32_t idid = 0;
  RadauIntegrator(n, model_rhs_callback, t, y, t_end, dt_last, &rtol, &atol, /*itol=*/0, /*jacobian_callback=*/nullptr,
                  /*ijac=*/0, mljac, mujac, mass_callback, /*imas=*/1, /*mlmas=*/0, mumas, model_step_callback,
                  /*iout=*/1, WORK.data(), lwork, IWORK.data(), liwork, /*real_context=*/nullptr, &m, idid);
  counters.idid = idid;
  add_counters(counters, IWORK.data());
  return run_status_of(idid, error);
}

}  // namespace

std::int32_t run_status_of(std::int32_t idid, std::string& error) {
  switch (idid) {
    case RADAU_TOO_MANY_STEPS:
      error = "Maximum number of time steps reached";
      return RUN_GAVE_UP_ON_STEPS;
    case RADAU_STEP_TOO_SMALL:
      error = "Step size has become too small";
      return RUN_GAVE_UP_ON_STEPS;
    case RADAU_REPEATEDLY_SINGULAR:
      error = "Matrix is repeatedly singular";
      return RUN_SINGULAR;
    case RADAU_REFUSED:
      error = "Integrator rejected its arguments";
      return RUN_REJECTED;
    default:
      return RUN_OK;
  }
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

std::int32_t run_simulation(const ProcessRecipe& recipe, const char* output_path, std::string& error,
                            RunCounters* counters, const RunOptions& options, std::string* output_text) {
  error.clear();
  std::int32_t err = 0;
  SurfChemNonst surfchem_nonst(recipe, output_path, err, output_text);
  if (err != 0) {
    error = surfchem_nonst.error_text;
    return err;
  }
  // Faults that the construction finds have priority.
  if (!recipe.late_fault.empty()) {
    error = recipe.late_fault;
    return RUN_LATE_FAULT;
  }

  surfchem_nonst.reuse_terms = options.reuse_terms;
  RunCounters work;
  const std::int32_t status = recipe.scheme == SCHEME_staged
                                  ? run_staged(surfchem_nonst, recipe.tolerance, options, work, error)
                                  : run_continuous(surfchem_nonst, options, work, error);
  work.eval_rhs_calls = surfchem_nonst.eval_rhs_calls;
  if (counters != nullptr) *counters = work;
  write_results(surfchem_nonst, status == RUN_OK);
  return status;
}

}  // namespace vorlen
