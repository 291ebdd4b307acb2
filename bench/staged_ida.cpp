// Integrates the equations of the staged scheme with SUNDIALS IDA (variable-order BDF) and compares the layers with
// those of the project's own integrator:
//   vorlen_bench_staged_ida [--tolerance X] [--ida-tolerance X] [--exchange-layer X] [--summary] RECIPE...
// Prints a table for each recipe with thickness and final composition of each stage, and a line with the largest
// difference; --summary prints only the line. --exchange-layer sets the size of IDA's exchange layer in monolayers, to
// see its effect. The exit status is 1 if a run fails or a difference exceeds LIMIT.
//
// IDA solves F(t, y, y') = y' - f(t, y) with its own step control, difference quotients and dense output, and finds the
// opening of V-defects as the zero of a root function. f, the film and the V-defect density are those of the library.
#include <ida/ida.h>
#include <nvector/nvector_serial.h>
#include <sunlinsol/sunlinsol_dense.h>
#include <sunmatrix/sunmatrix_dense.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/staged_equations.h"
#include "api/staged_run.h"
#include "recipe/read_recipe.h"
#include "strain/v_defect_density.h"

namespace {

using vorlen::StagedEquations;
using vorlen::StagedVector;
using vorlen::SurfChemNonst;

constexpr double OWN_TOLERANCE = 1e-8;
constexpr double IDA_TOLERANCE = 1e-9;
constexpr double LIMIT = 1e-6;             // of a difference
constexpr double LEAST_THICKNESS = 1.0;    // nm; differences of thinner layers are relative to this
constexpr long MAX_IDA_STEPS = 1000000;    // of a stage
constexpr int MAX_RESTARTS = 20;           // of a stage, after failures of IDA
constexpr double RESTART_STEP = 1e-9;      // s
constexpr double KNOT_SPACING = 2.5e-10;   // of the film, m
constexpr double MAX_KNOTS_PER_STEP = 64;  // of the film
constexpr int RECOVERABLE = 1;             // return value of a residual that makes IDA try a smaller step
constexpr std::size_t Y_Z = vorlen::STAGED_Z;

struct Settings {
  double own_tolerance = OWN_TOLERANCE, ida_tolerance = IDA_TOLERANCE;
  double exchange_layer = vorlen::EXCHANGE_LAYER;  // of IDA, monolayers
  bool summary = false;
};

// A grown stage.
struct Layer {
  double thickness = 0.0;  // nm
  double x_In = 0.0;       // of the surface at the end
  double x_Al = 0.0;
};

struct Outcome {
  std::string fault;  // empty if the run reached the end
  std::vector<Layer> layers;
  double rho_VD = 0.0;  // at the end, m^-2
  long steps = 0;
  long evaluations = 0;
  int restarts = 0;
};

Outcome run_own(const vorlen::ProcessRecipe& recipe, double tolerance) {
  Outcome outcome;
  std::int32_t err = 0;
  SurfChemNonst model(recipe, "", err);
  if (err != 0) {
    outcome.fault = model.error_text;
    return outcome;
  }
  vorlen::RunCounters counters;
  vorlen::run_staged(model, tolerance, {}, counters, outcome.fault);
  outcome.steps = counters.step_count;
  outcome.evaluations = static_cast<long>(model.eval_rhs_calls);
  if (!outcome.fault.empty()) return outcome;
  // The last row of a stage is at its end; the first row of the next one is later.
  double z_from = model.z_start;
  for (const vorlen::StageRecord& stage : model.active_stages) {
    const auto after = std::upper_bound(model.history.t.begin(), model.history.t.end(), stage.end_time());
    const auto row = static_cast<std::size_t>(after - model.history.t.begin()) - 1;
    outcome.layers.push_back({1e9 * (model.history.z[row] - z_from), model.history.x_In[row], model.history.x_Al[row]});
    z_from = model.history.z[row];
  }
  outcome.rho_VD = model.rho_VD;
  return outcome;
}

int residual(realtype t, N_Vector y, N_Vector yp, N_Vector F, void* context) {
  StagedEquations& e = *static_cast<StagedEquations*>(context);
  StagedVector f{};
  vorlen::staged_rhs(e, t, N_VGetArrayPointer(y), f.data());
  const double* rate = N_VGetArrayPointer(yp);
  double* out = N_VGetArrayPointer(F);
  for (std::int32_t i = 0; i < vorlen::n_staged(e.layer.model); ++i) {
    if (!std::isfinite(f[static_cast<std::size_t>(i)])) return RECOVERABLE;
    out[i] = rate[i] - f[static_cast<std::size_t>(i)];
  }
  return 0;
}

// Root function: 1 before V-defects open, -1 after. The film includes the state while the balance is evaluated.
int opening(realtype, N_Vector y, N_Vector, realtype* g, void* context) {
  StagedEquations& e = *static_cast<StagedEquations*>(context);
  vorlen::unpack_staged(e, N_VGetArrayPointer(y));
  const std::size_t knots = e.layer.film.z.size();
  if (e.z > vorlen::film_top(e.layer.film)) vorlen::film_add(e.layer.film, vorlen::surface_point(e));
  g[0] = vorlen::v_defects_open(e.layer) ? -1.0 : 1.0;
  vorlen::film_truncate(e.layer.film, knots);
  return 0;
}

void say_nothing(int, const char*, const char*, char*, void*) {}

// IDA and its objects for one run.
class Ida {
 public:
  Ida(StagedEquations& equations, double tolerance) : equations_(equations), tolerance_(tolerance) {
    const sunindextype n = vorlen::n_staged(equations.layer.model);
    SUNContext_Create(nullptr, &context_);
    y_ = N_VNew_Serial(n, context_);
    yp_ = N_VNew_Serial(n, context_);
    at_ = N_VNew_Serial(n, context_);
    atol_ = N_VNew_Serial(n, context_);
    matrix_ = SUNDenseMatrix(n, n, context_);
    linear_solver_ = SUNLinSol_Dense(y_, matrix_, context_);
  }
  ~Ida() {
    if (ida_ != nullptr) IDAFree(&ida_);
    SUNLinSolFree(linear_solver_);
    SUNMatDestroy(matrix_);
    for (N_Vector vector : {y_, yp_, at_, atol_}) N_VDestroy(vector);
    SUNContext_Free(&context_);
  }
  Ida(const Ida&) = delete;
  Ida& operator=(const Ida&) = delete;

  // Integrates a stage of length tau [s] from y, and sets y to the state at its end. Returns an error text, or "".
  std::string run_stage(double tau, StagedVector& y, Outcome& outcome);

 private:
  void start(double t, double first_step);
  void follow(double t_from, double t_to, double z_from);

  StagedEquations& equations_;
  double tolerance_;
  SUNContext context_ = nullptr;
  N_Vector y_ = nullptr, yp_ = nullptr, at_ = nullptr, atol_ = nullptr;
  SUNMatrix matrix_ = nullptr;
  SUNLinearSolver linear_solver_ = nullptr;
  void* ida_ = nullptr;
};

// Starts IDA at the state in y_.
void Ida::start(double t, double first_step) {
  StagedVector rtol{}, f{};
  vorlen::staged_tolerances(equations_, tolerance_, rtol.data(), N_VGetArrayPointer(atol_));
  vorlen::staged_rhs(equations_, t, N_VGetArrayPointer(y_), f.data());
  std::copy_n(f.begin(), vorlen::n_staged(equations_.layer.model), N_VGetArrayPointer(yp_));
  if (ida_ == nullptr) {
    ida_ = IDACreate(context_);
    IDASetErrHandlerFn(ida_, say_nothing, nullptr);
    IDAInit(ida_, residual, t, y_, yp_);
    IDASetUserData(ida_, &equations_);
    IDASetLinearSolver(ida_, linear_solver_, matrix_);
    IDASetMaxNumSteps(ida_, MAX_IDA_STEPS);
  } else {
    IDAReInit(ida_, t, y_, yp_);
  }
  IDASVtolerances(ida_, tolerance_, atol_);
  IDASetInitStep(ida_, first_step);
  const bool watch = equations_.layer.model.stress_model == vorlen::STRESS_V_dislocation && !equations_.layer.open;
  IDARootInit(ida_, watch ? 1 : 0, watch ? opening : nullptr);
}

// Updates film and V-defects from t_from to the state in y_ at t_to.
void Ida::follow(double t_from, double t_to, double z_from) {
  StagedEquations& e = equations_;
  const double growth = 1e-9 * std::abs(N_VGetArrayPointer(y_)[Y_Z] - z_from);
  const int count = static_cast<int>(std::clamp(std::ceil(growth / KNOT_SPACING), 1.0, MAX_KNOTS_PER_STEP));
  for (int j = 1; j <= count; ++j) {
    const double* y = N_VGetArrayPointer(y_);
    if (j < count && IDAGetDky(ida_, t_from + (t_to - t_from) * j / count, 0, at_) == IDA_SUCCESS) {
      y = N_VGetArrayPointer(at_);
    }
    vorlen::unpack_staged(e, y);
    const double top = vorlen::film_top(e.layer.film);
    if (e.z < top) {
      vorlen::film_cut(e.layer.film, e.z);
    } else if (e.z > top) {
      vorlen::film_add(e.layer.film, vorlen::surface_point(e));
    }
  }
  vorlen::accept_v_defects(e.layer);
}

std::string Ida::run_stage(double tau, StagedVector& y, Outcome& outcome) {
  double* state = N_VGetArrayPointer(y_);
  std::copy_n(y.begin(), vorlen::n_staged(equations_.layer.model), state);
  double t = 0.0;
  start(t, RESTART_STEP);
  long steps = 0;
  int restarts = 0;
  while (t < tau) {
    const double t_from = t, z_from = state[Y_Z];
    std::copy_n(state, vorlen::n_staged(equations_.layer.model), y.begin());
    IDASetStopTime(ida_, tau);
    const int flag = IDASolve(ida_, tau, &t, y_, yp_, IDA_ONE_STEP);
    if (flag < 0) {
      if (++restarts > MAX_RESTARTS) return "IDA code " + std::to_string(flag);
      ++outcome.restarts;
      std::copy_n(y.begin(), vorlen::n_staged(equations_.layer.model), state);
      t = t_from;
      start(t, RESTART_STEP);
      continue;
    }
    if (++steps > MAX_IDA_STEPS) return "too many steps";
    follow(t_from, t, z_from);
    if (flag == IDA_ROOT_RETURN) {
      vorlen::open_v_defects(equations_.layer);
      vorlen::unpack_staged(equations_, state);
      vorlen::accept_v_defects(equations_.layer);
      start(t, RESTART_STEP);
    }
  }
  outcome.steps += steps;
  std::copy_n(state, vorlen::n_staged(equations_.layer.model), y.begin());
  vorlen::unpack_staged(equations_, y.data());
  return "";
}

Outcome run_ida(const vorlen::ProcessRecipe& recipe, double tolerance, double exchange_layer) {
  Outcome outcome;
  std::int32_t err = 0;
  SurfChemNonst model(recipe, "", err);
  if (err != 0) {
    outcome.fault = model.error_text;
    return outcome;
  }
  StagedVector y{};
  StagedEquations equations = vorlen::staged_equations(model, y);
  equations.gamma = exchange_layer * vorlen::MONOLAYER;
  Ida ida(equations, tolerance);
  for (std::size_t k = 0; k < model.active_stages.size() && outcome.fault.empty(); ++k) {
    vorlen::start_stage(equations, k, y);
    outcome.fault = ida.run_stage(model.active_stages[k].tau, y, outcome);
    outcome.layers.push_back({y[Y_Z], model.x_b[vorlen::InN_b], model.x_b[vorlen::AlN_b]});
  }
  outcome.rho_VD = model.rho_VD;
  outcome.evaluations = static_cast<long>(model.eval_rhs_calls);
  return outcome;
}

// Compares and prints a recipe. False if a run failed or a difference exceeds LIMIT.
bool compare(const std::string& path, const Settings& settings) {
  vorlen::ProcessRecipe recipe;
  std::string error;
  if (vorlen::read_recipe(path.c_str(), recipe, error) != 0) {
    std::printf("%s: %s\n", path.c_str(), error.c_str());
    return false;
  }
  recipe.scheme = vorlen::SCHEME_staged;
  const Outcome own = run_own(recipe, settings.own_tolerance),
                ida = run_ida(recipe, settings.ida_tolerance, settings.exchange_layer);
  if (!own.fault.empty() || !ida.fault.empty()) {
    std::printf("%s: staged: %s; IDA: %s in stage %zu\n", path.c_str(), own.fault.empty() ? "ok" : own.fault.c_str(),
                ida.fault.empty() ? "ok" : ida.fault.c_str(), ida.layers.size());
    return false;
  }
  if (!settings.summary) {
    std::printf("\n%s\n\n", path.c_str());
    std::printf(
        "| stage | thickness, nm | IDA | difference | x_In | IDA | x_Al | IDA |\n|---|---|---|---|---|---|---|---|\n");
  }
  double worst_thickness = 0.0, worst_fraction = 0.0;
  for (std::size_t k = 0; k < own.layers.size(); ++k) {
    const Layer &a = own.layers[k], &b = ida.layers[k];
    const double scale = std::max(std::abs(b.thickness), LEAST_THICKNESS);
    const double difference = std::abs(a.thickness - b.thickness) / scale;
    worst_thickness = std::max(worst_thickness, difference);
    worst_fraction = std::max({worst_fraction, std::abs(a.x_In - b.x_In), std::abs(a.x_Al - b.x_Al)});
    if (!settings.summary) {
      std::printf("| %zu %s | %.9g | %.9g | %.1e | %.8f | %.8f | %.8f | %.8f |\n", k + 1,
                  recipe.active_stages[k].name.c_str(), a.thickness, b.thickness, difference, a.x_In, b.x_In, a.x_Al,
                  b.x_Al);
    }
  }
  const double rho = std::max(own.rho_VD, ida.rho_VD);
  const double rho_difference = rho > 0.0 ? std::abs(own.rho_VD - ida.rho_VD) / rho : 0.0;
  const bool within = worst_thickness <= LIMIT && worst_fraction <= LIMIT;
  std::printf(
      "%s: thickness %.1e, fractions %.1e, density of V-defects %.9g and %.9g cm^-2 (%.1e); evaluations %ld and %ld, "
      "steps %ld and %ld, restarts of IDA %d%s\n",
      path.c_str(), worst_thickness, worst_fraction, 1e-4 * own.rho_VD, 1e-4 * ida.rho_VD, rho_difference,
      own.evaluations, ida.evaluations, own.steps, ida.steps, ida.restarts, within ? "" : "; ABOVE THE LIMIT");
  std::fflush(stdout);
  return within;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  bool all_within = true;
  int i = 1;
  for (; i < argc && std::strncmp(argv[i], "--", 2) == 0; ++i) {
    const std::string option = argv[i];
    if (option == "--summary") {
      settings.summary = true;
    } else if (option == "--tolerance" && i + 1 < argc) {
      settings.own_tolerance = std::stod(argv[++i]);
    } else if (option == "--ida-tolerance" && i + 1 < argc) {
      settings.ida_tolerance = std::stod(argv[++i]);
    } else if (option == "--exchange-layer" && i + 1 < argc) {
      settings.exchange_layer = std::stod(argv[++i]);
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }
  if (i == argc) {
    std::fprintf(stderr, "usage: vorlen_bench_staged_ida [OPTIONS] RECIPE...\n");
    return 2;
  }
  for (; i < argc; ++i) all_within = compare(argv[i], settings) && all_within;
  return all_within ? 0 : 1;
}
