// Problems from recipes. The model keeps its current stage between evaluations, so each run starts by setting it.
#include "work_precision/growth_problems.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "recipe/read_recipe.h"

namespace vorlen::bench {

namespace {

constexpr double DT_FIRST = 0.0001;  // of the driver, s
constexpr double DT_MAX = 10.0;      // of the driver, s
constexpr double DRIVER_SCALE = 1e-14 / 1e-10;

// Size of the components in the recipes used, the smaller end: surface concentrations in kmol/m^2, z in m, GR in m/s.
constexpr double SCALE_C = 1e-9;
constexpr double SCALE_Z = 1e-9;
constexpr double SCALE_X = 1.0;
constexpr double SCALE_GR = 1e-10;
constexpr double TRANSIENT = 0.02;  // s
constexpr int POS_Z = 5;
constexpr int POS_X = 6;

void model_rhs(std::int32_t, double t, const double* y, double* f, void*, void* context) {
  static_cast<SurfChemNonst*>(context)->eval_rhs(t, y, f);
}

// With the boundary itself in the segment's own stage: the model would otherwise stay in the stage before for 1e-8 s.
void enter_stage(void* context, std::size_t segment) {
  SurfChemNonst& model = *static_cast<SurfChemNonst*>(context);
  model.stage_index = static_cast<std::uint32_t>(segment);
  model.update_conditions(model.active_stages[segment].begin_time(), true);
}

}  // namespace

Problem growth_problem(const std::string& name, const std::string& path, GrowthForm form,
                       std::vector<std::unique_ptr<SurfChemNonst>>& models) {
  ProcessRecipe recipe;
  std::string error;
  std::int32_t status = read_recipe(path.c_str(), recipe, error);
  if (status == 0) {
    models.push_back(std::make_unique<SurfChemNonst>(recipe, "", status));
    error = models.back()->error_text;
  }
  if (status != 0 || recipe.stress_model == STRESS_V_dislocation) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), status != 0 ? error.c_str() : "relaxes, which is not compared");
    std::exit(1);
  }
  SurfChemNonst& model = *models.back();

  Problem problem;
  problem.name = name;
  problem.group = "growth";
  problem.n = model.n_state();
  problem.rhs = model_rhs;
  problem.context = &model;
  for (std::int32_t i = 0; i < problem.n - N_ALGEBRAIC; ++i) problem.mass.push_back({i, i, 1.0});
  problem.index_counts = {problem.n - N_ALGEBRAIC, N_ALGEBRAIC, 0};
  problem.t0 = model.t_begin;
  if (form == GrowthForm::restarted) {
    for (const StageRecord& stage : model.active_stages) problem.segment_ends.push_back(stage.end_time());
  } else {
    problem.segment_ends.push_back(form == GrowthForm::transient ? model.t_begin + TRANSIENT : model.t_end);
  }
  problem.enter_segment = enter_stage;
  problem.y0.resize(N_STATE_MAX);
  model.init_state(problem.y0.data());
  problem.y0.resize(static_cast<std::size_t>(problem.n));
  problem.consistent_start = false;
  problem.first_step = DT_FIRST;
  problem.max_step = DT_MAX;

  problem.scale = {SCALE_C, SCALE_C, SCALE_C, SCALE_C, SCALE_C, SCALE_Z, SCALE_X, SCALE_X, SCALE_X, SCALE_GR};
  if (form == GrowthForm::driver_tolerances) std::fill(problem.scale.begin(), problem.scale.end(), DRIVER_SCALE);
  return problem;
}

void set_growth_reference(Problem& problem, GrowthForm form, const std::vector<double>& end_values) {
  problem.reference = end_values;
  problem.error_scale.assign(end_values.size(), 0.0);
  if (form == GrowthForm::transient) {
    for (std::size_t i = 0; i < end_values.size(); ++i) {
      problem.error_scale[i] = std::abs(end_values[i]) + problem.scale[i];
    }
  }
  problem.error_scale[POS_Z] = end_values[POS_Z] - problem.y0[POS_Z];
  std::fill_n(problem.error_scale.begin() + POS_X, N_BULK, SCALE_X);
}

}  // namespace vorlen::bench
