// The published and closed-form problems of the integrator's tests, with additional data for a comparison: the size
// of the components, which sets absolute tolerances and the scale of errors, and the first step of the Radau
// integrator.
#include "work_precision/published_problems.h"

#include <algorithm>
#include <cmath>

#include "integrator/stiff_problems.h"

namespace vorlen::bench {

namespace {

struct PublishedCase {
  const char* id;
  double scale;
  double first_step;
};

// The scale is that of the smaller components that matter.
constexpr PublishedCase CASES[] = {
    {"hires", 1e-4, 1e-6},   {"pollu", 1e-6, 1e-6}, {"ringmod", 1e-6, 1e-12}, {"rober", 1e-10, 1e-6},
    {"e5", 1e-24, 1e-6},     {"orego", 1e-3, 1e-6}, {"vdpol", 1e-2, 1e-10},   {"chemakzo", 1e-4, 1e-6},
    {"transamp", 1.0, 1e-6}, {"water", 1e-3, 1e-6}, {"caraxis", 1e-2, 1e-6},
};

// The published end values of E5 violate y2 - y3 - y4 = 0 by 7e-4; these come from an integration with 30 digits.
const std::vector<double> E5_REFERENCE = {0.0, 8.8612335e-23, 8.8612335e-23, 0.0};

std::vector<MassEntry> mass_of(test::IntegratorCall& call) {
  std::vector<MassEntry> entries;
  if (call.imas == 0) {
    for (std::int32_t i = 0; i < call.n; ++i) entries.push_back({i, i, 1.0});
    return entries;
  }
  const std::int32_t rows = call.mlmas + call.mumas + 1;
  std::vector<double> band(static_cast<std::size_t>(rows * call.n));
  call.mass_callback(call.n, band.data(), rows, call.real_context, nullptr);
  for (std::int32_t j = 0; j < call.n; ++j) {
    for (std::int32_t r = 0; r < rows; ++r) {
      const std::int32_t i = r + j - call.mumas;
      const double value = band[static_cast<std::size_t>(r + j * rows)];
      if (i >= 0 && i < call.n && value != 0.0) entries.push_back({i, j, value});
    }
  }
  return entries;
}

Problem take(const std::string& name, test::StiffProblem source, double scale, double first_step) {
  Problem problem;
  problem.name = name;
  problem.group = "published";
  problem.n = source.call.n;
  problem.rhs = source.call.rhs_callback;
  problem.context = source.call.model_context;
  problem.mass = mass_of(source.call);
  for (std::int32_t i = 0; i < 3; ++i) problem.index_counts[static_cast<std::size_t>(i)] = source.call.Iwork(5 + i);
  problem.t0 = source.call.x;
  problem.segment_ends = {source.call.x_end};
  problem.y0 = source.call.y;
  problem.first_step = first_step;
  problem.scale.assign(problem.y0.size(), scale);
  problem.reference = source.reference;
  return problem;
}

void set_error_scale(Problem& problem) {
  for (std::size_t i = 0; i < problem.reference.size(); ++i) {
    problem.error_scale.push_back(std::abs(problem.reference[i]) + problem.scale[i]);
  }
}

Problem take_closed_form(const std::string& name, const test::StiffProblem& source, double scale) {
  Problem problem = take(name, source, scale, source.call.h);
  problem.group = "closed_form";
  problem.identity_mass = true;
  if (source.call.mljac < problem.n) {
    problem.lower = source.call.mljac;
    problem.upper = source.call.mujac;
    problem.block_count = source.call.IWORK[9 - 1];
  }
  set_error_scale(problem);
  return problem;
}

// The chain with each mass's velocity right after its position, so that the whole Jacobian is a band.
void interleaved_chain_rhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  for (std::int32_t i = 0; i < n; i += 2) {
    f[i] = y[i + 1];
    const double left = i > 0 ? y[i - 2] : 0.0;
    const double right = i < n - 2 ? y[i + 2] : 0.0;
    f[i + 1] = 100.0 * (left - 2.0 * y[i] + right);
  }
}

std::vector<double> interleave(const std::vector<double>& blocks) {
  std::vector<double> mixed;
  const std::size_t half = blocks.size() / 2;
  for (std::size_t i = 0; i < half; ++i) mixed.insert(mixed.end(), {blocks[i], blocks[i + half]});
  return mixed;
}

Problem interleaved(const std::string& name, Problem chain) {
  chain.name = name;
  chain.rhs = interleaved_chain_rhs;
  chain.block_count = 0;
  chain.lower = 3;  // from a velocity to the position of the mass before
  chain.upper = 1;
  for (std::vector<double>* values : {&chain.y0, &chain.reference, &chain.error_scale}) *values = interleave(*values);
  return chain;
}

}  // namespace

std::vector<Problem> published_problems() {
  std::vector<Problem> problems;
  for (const PublishedCase& entry : CASES) {
    Problem problem = take(entry.id, test::LoadStiffProblem(entry.id), entry.scale, entry.first_step);
    // From a state of zeros IDA's own first step is far too long: at tight tolerances it fails there.
    if (problem.name == "ringmod") problem.ida_first_step = problem.first_step;
    if (problem.name == "e5") problem.reference = E5_REFERENCE;
    set_error_scale(problem);
    if (problem.name == "e5") problem.error_scale.front() = problem.error_scale.back() = 0.0;
    problems.push_back(problem);
  }

  struct PendulumForm {
    const char* name;
    RadauRhsCallback rhs;  // null: as loaded
    std::array<std::int32_t, 3> index_counts;
  };
  const PendulumForm forms[] = {{"pendulum_index_1", test::PendulumIndex1Rhs, {5, 0, 0}},
                                {"pendulum_index_2", test::PendulumIndex2FormRhs, {4, 1, 0}},
                                {"pendulum_index_3", nullptr, {2, 2, 1}}};
  const test::ReferencePoint end = test::PendulumPoints().back();
  for (const PendulumForm& form : forms) {
    Problem problem = take(form.name, test::LoadStiffProblem("pendulum"), 1.0, 1e-6);
    if (form.rhs != nullptr) problem.rhs = form.rhs;
    problem.index_counts = form.index_counts;
    problem.segment_ends = {end.t};
    problem.reference = end.values;
    set_error_scale(problem);
    problems.push_back(problem);
  }

  constexpr double STIFFNESS = -1e6;
  problems.push_back(take_closed_form("prothero_robinson", test::ProtheroRobinson(STIFFNESS), 1.0));
  problems.push_back(take_closed_form("heat", test::HeatEquation(), 1e-2));
  problems.push_back(take_closed_form("chain", test::SpringChain(), 1.0));
  problems.push_back(interleaved("chain_interleaved", problems.back()));
  return problems;
}

}  // namespace vorlen::bench
