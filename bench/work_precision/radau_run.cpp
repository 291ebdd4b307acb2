// A run by the Radau IIA integrator: numerical Jacobian, full or banded, and mass matrix in band form or identity.
#include <algorithm>

#include "integrator/vorlen_radau.h"
#include "work_precision/processor_clock.h"
#include "work_precision/solvers.h"

namespace vorlen::bench {

namespace {

constexpr std::int32_t MAX_RADAU_STEPS = 1000000;

// The user pointer of the callbacks.
struct RadauContext {
  const Problem* problem;
  std::int32_t mass_upper;  // upper bandwidth of the mass matrix
};

void evaluate_rhs(std::int32_t n, double t, const double* y, double* f, void* user) {
  const Problem& problem = *static_cast<RadauContext*>(user)->problem;
  problem.rhs(n, t, y, f, nullptr, problem.context);
}

void write_mass(std::int32_t, double* A, std::int32_t rows, void* user) {
  const RadauContext& context = *static_cast<RadauContext*>(user);
  for (const MassEntry& entry : context.problem->mass) {
    A[entry.column * rows + (entry.row - entry.column + context.mass_upper)] = entry.value;
  }
}

}  // namespace

RunRecord run_radau(const Problem& problem, double tolerance) {
  std::int32_t mass_lower = 0;
  std::int32_t mass_upper = 0;
  for (const MassEntry& entry : problem.mass) {
    mass_lower = std::max(mass_lower, entry.row - entry.column);
    mass_upper = std::max(mass_upper, entry.column - entry.row);
  }
  RadauContext context{&problem, mass_upper};
  radau::Problem equations;
  equations.n = problem.n;
  equations.rhs = evaluate_rhs;
  equations.mass = problem.identity_mass ? nullptr : write_mass;
  equations.user = &context;

  const std::vector<double> rtol(problem.y0.size(), tolerance);
  std::vector<double> atol(problem.y0.size());
  for (std::size_t i = 0; i < atol.size(); ++i) atol[i] = tolerance * problem.scale[i];
  radau::Options options;
  options.relative_tolerances = rtol.data();
  options.absolute_tolerances = atol.data();
  if (problem.lower >= 0) options.jacobian_shape = radau::Band(problem.lower, problem.upper);
  options.mass_shape = radau::Band(mass_lower, mass_upper);
  options.block_count = problem.block_count;
  options.index1_count = problem.index_counts[0];
  options.index2_count = problem.index_counts[1];
  options.index3_count = problem.index_counts[2];
  options.max_step = problem.max_step;
  options.max_steps = MAX_RADAU_STEPS;

  const radau::WorkspaceSize size = radau::RequiredWorkspace(equations, options);
  std::vector<double> reals(static_cast<std::size_t>(size.reals));
  std::vector<std::int32_t> integers(static_cast<std::size_t>(size.integers));
  const radau::Workspace workspace = {reals.data(), size.reals, integers.data(), size.integers};

  RunRecord record;
  record.y = problem.y0;
  record.newton_failed = -1;
  record.status = "ok";
  radau::State state;
  state.x = problem.t0;
  state.y = record.y.data();
  for (std::size_t k = 0; k < problem.segment_ends.size() && record.status == "ok"; ++k) {
    state.step = problem.first_step;
    const double start = processor_seconds();
    if (problem.enter_segment != nullptr) problem.enter_segment(problem.context, k);
    const radau::Result result = radau::Integrate(equations, options, problem.segment_ends[k], state, workspace);
    record.seconds += processor_seconds() - start;
    if (result != radau::Result::REACHED_END) record.status = radau::Describe(result);
    const radau::Counters& work = state.counters;
    record.rhs_calls += work.rhs_calls + work.jacobian_rhs_calls;
    record.jacobians += work.jacobian_count;
    record.steps += work.accepted_count;
    record.rejected += work.rejected_count;
    record.factorisations += work.factorisation_count;
    record.solves += work.solve_count;
  }
  return record;
}

}  // namespace vorlen::bench
