// Error over cost of the Radau IIA integrator and of SUNDIALS IDA (variable-order BDF) on the same problems:
//   work_precision RECIPES GROWTH_RECIPES OUTPUT.csv [PROBLEM...]
// RECIPES is the folder of the test recipes, GROWTH_RECIPES the folder of this benchmark's recipes. With problem names,
// only those are run.
//
// For each problem and tolerance the solvers alternate over several rounds, so that a change of the machine's speed
// affects all of them; the time of a run is the median of the rounds. One row of the table is one solver at one
// tolerance.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "work_precision/growth_problems.h"
#include "work_precision/published_problems.h"
#include "work_precision/solvers.h"

namespace vorlen::bench {

double error_of(const Problem& problem, const std::vector<double>& y) {
  double worst = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    if (problem.error_scale[i] == 0.0) continue;
    const double error = std::abs(y[i] - problem.reference[i]) / problem.error_scale[i];
    if (!std::isfinite(error)) return std::numeric_limits<double>::infinity();
    worst = std::max(worst, error);
  }
  return worst;
}

namespace {

constexpr int ROUNDS = 7;
constexpr int ROUNDS_OF_LONG_RUNS = 3;
constexpr double LONG_RUN = 0.5;       // s
constexpr double SHORT_RUN = 0.002;    // s; shorter runs are repeated up to this time within a round
constexpr int MAX_REPEATS = 20;        // of a short run within a round
constexpr int STEPS_PER_DECADE = 2;    // of the tolerance
constexpr int FIRST_EXPONENT = 4;      // tolerances from 1e-4 ..
constexpr int LAST_EXPONENT = 10;      // .. to 1e-10
constexpr double TIGHT_RADAU = 1e-13;  // tolerance of a reference
constexpr double TIGHT_IDA = 1e-12;    // tolerance of its cross-check

enum class Solver { radau, radau_index_1, ida, ida_suppress };
constexpr Solver ALL_SOLVERS[] = {Solver::radau, Solver::radau_index_1, Solver::ida, Solver::ida_suppress};

const char* name_of(Solver solver) {
  switch (solver) {
    case Solver::radau:
      return "radau";
    case Solver::radau_index_1:
      return "radau_index_1";
    case Solver::ida:
      return "ida";
    case Solver::ida_suppress:
      return "ida_suppress";
  }
  return "";
}

bool has_algebraic(const Problem& problem) {
  std::vector<bool> differential(problem.y0.size(), false);
  for (const MassEntry& entry : problem.mass) differential[static_cast<std::size_t>(entry.column)] = true;
  return std::find(differential.begin(), differential.end(), false) != differential.end();
}

// Without algebraic components there is nothing to suppress, and the index counts that differ are the growth model's:
// its system has index 1, its driver calls four components index 2.
bool applies(Solver solver, const Problem& problem) {
  if (solver == Solver::ida_suppress) return has_algebraic(problem);
  if (solver == Solver::radau_index_1) return problem.group == "growth";
  return true;
}

RunRecord run(Solver solver, const Problem& problem, double tolerance) {
  switch (solver) {
    case Solver::radau:
      return run_radau(problem, tolerance);
    case Solver::radau_index_1: {
      Problem changed = problem;
      changed.index_counts = {problem.n, 0, 0};
      return run_radau(changed, tolerance);
    }
    case Solver::ida:
      return run_ida(problem, tolerance, false);
    case Solver::ida_suppress:
      return run_ida(problem, tolerance, true);
  }
  return {};
}

// A solver that failed keeps the time of its one run.
struct Timed {
  Solver solver;
  RunRecord record;
  int repeats;
  std::vector<double> seconds;
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void compare(const Problem& problem, double tolerance, std::FILE* table) {
  std::vector<Timed> all;
  int rounds = ROUNDS;
  for (Solver solver : ALL_SOLVERS) {
    if (!applies(solver, problem)) continue;
    Timed timed{solver, run(solver, problem, tolerance), 1, {}};
    const double first = timed.record.seconds;
    if (first > LONG_RUN) rounds = ROUNDS_OF_LONG_RUNS;
    timed.repeats = std::clamp(static_cast<int>(SHORT_RUN / std::max(first, 1e-9)), 1, MAX_REPEATS);
    all.push_back(timed);
  }
  for (int round = 0; round < rounds; ++round) {
    for (Timed& timed : all) {
      if (timed.record.status != "ok") continue;
      double sum = 0.0;
      for (int k = 0; k < timed.repeats; ++k) sum += run(timed.solver, problem, tolerance).seconds;
      timed.seconds.push_back(sum / timed.repeats);
    }
  }
  for (const Timed& timed : all) {
    const RunRecord& r = timed.record;
    std::fprintf(table, "%s,%s,%s,%.3e,%s,%.4e,%.4e,%ld,%ld,%ld,%ld,%ld,%ld,%ld\n", problem.group.c_str(),
                 problem.name.c_str(), name_of(timed.solver), tolerance, r.status.c_str(), error_of(problem, r.y),
                 timed.seconds.empty() ? r.seconds : median(timed.seconds), r.steps, r.rejected, r.newton_failed,
                 r.rhs_calls, r.jacobians, r.factorisations, r.solves);
    std::fflush(table);
  }
}

// The reference of a recipe: this integrator at a tight tolerance, restarted at the stage boundaries if there are any.
// Prints how far a looser run and IDA at a tight tolerance are from it.
std::vector<double> growth_reference(const std::string& path, GrowthForm form,
                                     std::vector<std::unique_ptr<SurfChemNonst>>& models) {
  const GrowthForm own_form = form == GrowthForm::transient ? form : GrowthForm::restarted;
  Problem problem = growth_problem("reference", path, own_form, models);
  const RunRecord radau = run_radau(problem, TIGHT_RADAU);
  if (radau.status != "ok") {
    std::fprintf(stderr, "%s: no reference, %s\n", path.c_str(), radau.status.c_str());
    std::exit(1);
  }
  set_growth_reference(problem, own_form, radau.y);
  const RunRecord looser = run_radau(problem, 10.0 * TIGHT_RADAU);
  const RunRecord ida = run_ida(problem, TIGHT_IDA, false);
  std::printf("reference of %s%s: at ten times the tolerance %.1e away, IDA (%s) %.1e\n", path.c_str(),
              form == GrowthForm::transient ? ", begin" : "", error_of(problem, looser.y), ida.status.c_str(),
              error_of(problem, ida.y));
  return radau.y;
}

struct GrowthCase {
  const char* name;
  bool own_recipe;
  const char* file;
  GrowthForm form;
};

constexpr GrowthCase GROWTH_CASES[] = {
    {"gan_constant", true, "gan_constant.xml", GrowthForm::one_call},
    {"gan_transient", true, "gan_constant.xml", GrowthForm::transient},
    {"gan_ramps", true, "gan_ramps.xml", GrowthForm::one_call},
    {"alinn_hemt", false, "alinn_gan_hemt.xml", GrowthForm::one_call},
    {"alinn_hemt_restarted", false, "alinn_gan_hemt.xml", GrowthForm::restarted},
    {"alinn_hemt_driver_atol", false, "alinn_gan_hemt.xml", GrowthForm::driver_tolerances},
    {"ingan_mqw", false, "ingan_gan_mqw_periodic.xml", GrowthForm::one_call},
    {"ingan_mqw_restarted", false, "ingan_gan_mqw_periodic.xml", GrowthForm::restarted},
    {"ingan_mqw_driver_atol", false, "ingan_gan_mqw_periodic.xml", GrowthForm::driver_tolerances},
    {"gan_template", false, "gan_template_ccs.xml", GrowthForm::one_call},
};

}  // namespace

int compare_all(const std::string& recipes, const std::string& own_recipes, const char* output,
                const std::vector<std::string>& names) {
  std::FILE* table = std::fopen(output, "w");
  if (table == nullptr) {
    std::fprintf(stderr, "can't write %s\n", output);
    return 1;
  }
  std::fprintf(table,
               "group,problem,solver,tolerance,status,error,seconds,steps,rejected,newton_failed,rhs_calls,jacobians,"
               "factorisations,solves\n");
  const auto wanted = [&names](const std::string& name) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
  };

  std::vector<Problem> problems = published_problems();
  std::vector<std::unique_ptr<SurfChemNonst>> models;
  std::map<std::string, std::vector<double>> references;
  for (const GrowthCase& entry : GROWTH_CASES) {
    if (!wanted(entry.name)) continue;
    const std::string path = (entry.own_recipe ? own_recipes : recipes) + "/" + entry.file;
    problems.push_back(growth_problem(entry.name, path, entry.form, models));
    const std::string key = path + (entry.form == GrowthForm::transient ? " transient" : "");
    if (!references.contains(key)) references[key] = growth_reference(path, entry.form, models);
    set_growth_reference(problems.back(), entry.form, references[key]);
  }

  for (const Problem& problem : problems) {
    if (!wanted(problem.name)) continue;
    std::printf("%s\n", problem.name.c_str());
    std::fflush(stdout);
    for (int k = FIRST_EXPONENT * STEPS_PER_DECADE; k <= LAST_EXPONENT * STEPS_PER_DECADE; ++k) {
      compare(problem, std::pow(10.0, -static_cast<double>(k) / STEPS_PER_DECADE), table);
    }
  }
  std::fclose(table);
  return 0;
}

}  // namespace vorlen::bench

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: work_precision RECIPES GROWTH_RECIPES OUTPUT.csv [PROBLEM...]\n");
    return 2;
  }
  return vorlen::bench::compare_all(argv[1], argv[2], argv[3], std::vector<std::string>(argv + 4, argv + argc));
}
