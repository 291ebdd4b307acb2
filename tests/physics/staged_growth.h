// Processes of several stages, grown under the staged scheme, with the model as the run leaves it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "model/surfchem_nonst.h"
#include "physics/growth_run.h"

namespace vorlen_test {

// A stage with conditions that move linearly from one set to the other.
struct StagePlan {
  double tau = 10.0;  // s
  Conditions from, to;
};
StagePlan constant(double tau, const Conditions& conditions);

// The conditions with the flows of all metals off.
Conditions without_metals(Conditions conditions);

// Stages on 100 nm of relaxed GaN, from t0 [s] on. stress_model: "off" or "V_dislocation".
RecipeBuilder process_recipe(const std::string& stress_model, const std::vector<StagePlan>& stages, double t0 = 0.0);

struct Grown {
  std::unique_ptr<vorlen::SurfChemNonst> model;
  vorlen::RunCounters counters;
  std::vector<double> layer_nm;  // of the active stages
};

// Runs the process. The test fails, and the layers are empty, if the run does not end normally.
Grown grow_staged(const RecipeBuilder& recipe, double tolerance = vorlen::TOLERANCE_DEFAULT);
// The same for a model that has been built; t is the time in its conditions.
Grown grow_staged(std::unique_ptr<vorlen::SurfChemNonst> model, double tolerance = vorlen::TOLERANCE_DEFAULT);

}  // namespace vorlen_test
