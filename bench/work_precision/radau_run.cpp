// A run by the Radau IIA integrator: numerical Jacobian, full or banded, and mass matrix in band form or identity.
#include <algorithm>
#include <cstdlib>

#include "integrator/radau_integrator.h"
#include "work_precision/processor_clock.h"
#include "work_precision/solvers.h"

namespace vorlen::bench {

namespace {

constexpr std::int32_t MAX_RADAU_STEPS = 1000000;
constexpr std::int32_t N_PARAMETERS = 20;  // slots of WORK and IWORK in front of the storage

struct CountedProblem {
  const Problem* problem;
  std::int32_t mumas;
  long rhs_calls;
};

void counted_rhs(std::int32_t n, double t, const double* y, double* f, void*, void* context) {
  CountedProblem& counted = *static_cast<CountedProblem*>(context);
  ++counted.rhs_calls;
  counted.problem->rhs(n, t, y, f, nullptr, counted.problem->context);
}

void banded_mass(std::int32_t n, double* FMAS, std::int32_t mass_rows, void*, void* context) {
  const CountedProblem& counted = *static_cast<CountedProblem*>(context);
  std::fill_n(FMAS, n * mass_rows, 0.0);
  for (const MassEntry& entry : counted.problem->mass) {
    FMAS[entry.column * mass_rows + (entry.row - entry.column + counted.mumas)] = entry.value;
  }
}

std::string status_of(std::int32_t idid) {
  switch (idid) {
    case 1:
      return "ok";
    case -1:
      return "refused";
    case -2:
      return "too many steps";
    case -3:
      return "step too small";
    case -4:
      return "singular";
    default:
      return "idid " + std::to_string(idid);
  }
}

}  // namespace

RunRecord run_radau(const Problem& problem, double tolerance) {
  std::int32_t n = problem.n;
  std::int32_t mlmas = 0;
  std::int32_t mumas = 0;
  for (const MassEntry& entry : problem.mass) {
    mlmas = std::max(mlmas, entry.row - entry.column);
    mumas = std::max(mumas, entry.column - entry.row);
  }
  CountedProblem counted{&problem, mumas, 0};

  // Enough for any form: full Jacobian, or banded with its factors, and the mass matrix.
  const std::int32_t lower = problem.lower < 0 ? n : problem.lower;
  const std::int32_t upper = problem.upper < 0 ? n : problem.upper;
  const std::int32_t rows = std::max(n, 2 * lower + upper + 1);
  const std::int32_t lwork = N_PARAMETERS + n * (12 + rows + (mlmas + mumas + 1) + 3 * rows);
  const std::int32_t liwork = N_PARAMETERS + 3 * n;
  std::vector<double> WORK(static_cast<std::size_t>(lwork));
  std::vector<std::int32_t> IWORK(static_cast<std::size_t>(liwork));
  std::vector<double> rtol(problem.y0.size());
  std::vector<double> atol(problem.y0.size());

  RunRecord record;
  record.y = problem.y0;
  record.newton_failed = -1;
  record.status = "ok";
  double t = problem.t0;
  for (std::size_t k = 0; k < problem.segment_ends.size() && record.status == "ok"; ++k) {
    std::fill(WORK.begin(), WORK.end(), 0.0);
    std::fill(IWORK.begin(), IWORK.end(), 0);
    WORK[7 - 1] = problem.max_step;
    IWORK[2 - 1] = MAX_RADAU_STEPS;
    for (std::size_t i = 0; i < 3; ++i) IWORK[4 + i] = problem.index_counts[i];
    IWORK[9 - 1] = problem.block_count;
    for (std::size_t i = 0; i < rtol.size(); ++i) {
      rtol[i] = tolerance;
      atol[i] = tolerance * problem.scale[i];
    }
    std::int32_t mljac = lower;
    std::int32_t mujac = upper;
    std::int32_t idid = 0;
    double h = problem.first_step;
    const double begin = processor_seconds();
    if (problem.enter_segment != nullptr) problem.enter_segment(problem.context, k);
    RadauIntegrator(n, counted_rhs, t, record.y.data(), problem.segment_ends[k], h, rtol.data(), atol.data(),
                    /*itol=*/1, /*jacobian_callback=*/nullptr, /*ijac=*/0, mljac, mujac, banded_mass,
                    problem.identity_mass ? 0 : 1, mlmas, mumas, /*step_callback=*/nullptr, /*iout=*/0, WORK.data(),
                    lwork, IWORK.data(), liwork,
                    /*real_context=*/nullptr, &counted, idid);
    record.seconds += processor_seconds() - begin;
    record.status = status_of(idid);
    record.jacobians += IWORK[15 - 1];
    record.steps += IWORK[17 - 1];
    record.rejected += IWORK[18 - 1];
    record.factorisations += IWORK[19 - 1];
    record.solves += IWORK[20 - 1];
  }
  record.rhs_calls = counted.rhs_calls;
  return record;
}

}  // namespace vorlen::bench
