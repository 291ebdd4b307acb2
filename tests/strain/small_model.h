// Models built from the smallest recipe that construction accepts, for tests that set fields and call one operation.
//
//   auto m = small_model(STRESS_V_dislocation);
//   m->history.z = {...};
//   find_z0(*m);
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>

#include "model/surfchem_nonst.h"
#include "strain/record_step.h"

namespace vorlen_test {

inline constexpr double B_BURGERS = 3.189e-10;     // m
inline constexpr double REACTION_LENGTH = 3.1e-8;  // L_TD, m
inline constexpr double MODULUS = 4.3088e11;       // biaxial modulus of In0.1Ga0.9N, Pa
inline constexpr double ANGLE = 45.0;              // V_angle_05 of the small recipe, degree
inline constexpr double X_REF = 0.1;               // X_ref of the small recipe

// 0.2 sccm TMIn and 0.5 sccm TEGa in nitrogen and ammonia at 1030 K and 40 kPa.
inline vorlen::StageRecord small_stage(double tau) {
  vorlen::StageRecord stage;
  stage.label = "stage_1";
  stage.tau = tau;
  stage.T = {1030.0, 1030.0};
  stage.P = {40000.0, 40000.0};
  stage.delta = 0.008;
  stage.disl_model = vorlen::DISL_given;
  stage.rho_D = {5e8, 5e8};
  stage.Q[vorlen::TMIn_g] = {0.2, 0.2};
  stage.Q[vorlen::TEGa_g] = {0.5, 0.5};
  stage.Q[vorlen::N2_g] = {8000.0, 8000.0};
  stage.Q[vorlen::NH3_g] = {8000.0, 8000.0};
  return stage;
}

// GaN, 100 nm in 10 s, with a given density of 5e8 cm^-2.
inline vorlen::PrePostStageRecord small_layer(double stress_state) {
  vorlen::PrePostStageRecord layer;
  layer.tau = 10.0;
  layer.X_In_average = 0.0;
  layer.X_Ga_average = 1.0;
  layer.X_Al_average = 0.0;
  layer.thickness = 100.0;
  layer.disl_model = vorlen::DISL_given;
  layer.rho_D = 5e8;
  layer.stress_state = stress_state;
  return layer;
}

// Options and constants of the small recipe, without any stage.
inline vorlen::ProcessRecipe bare_recipe(std::int32_t stress_model) {
  vorlen::ProcessRecipe recipe;
  recipe.material = vorlen::MATERIAL_InGaN;
  recipe.stress_model = stress_model;
  recipe.V_angle_05 = ANGLE;
  recipe.X_ref = X_REF;
  recipe.transport_model = vorlen::TRANSPORT_fixed_thickness;
  recipe.Kd_A = {1e13, 1e13, 1e13, 5e20, 5e20};
  recipe.Kd_Ta = {23200.0, 32500.0, 39500.0, 19700.0, 13900.0};
  recipe.K_plus_A = {5e20, 1e18, 1e18};
  recipe.K_plus_Ta = {26700.0, 22000.0, 22000.0};
  return recipe;
}

inline void add(vorlen::ProcessRecipe& recipe, const vorlen::StageRecord& stage) {
  std::string error;
  EXPECT_TRUE(recipe.add_active_stage(stage, error)) << error;
}

inline void add_pre(vorlen::ProcessRecipe& recipe, const vorlen::PrePostStageRecord& layer) {
  recipe.add_pre_stage(layer);
}

inline void add_post(vorlen::ProcessRecipe& recipe, const vorlen::PrePostStageRecord& layer) {
  recipe.add_post_stage(layer);
}

// One GaN pre-stage with the lattice constant 3.189 (0 to 10 s, 0 to 100 nm), one active stage from 10 to 20 s.
inline vorlen::ProcessRecipe small_recipe(std::int32_t stress_model) {
  vorlen::ProcessRecipe recipe = bare_recipe(stress_model);
  add_pre(recipe, small_layer(3.189));
  add(recipe, small_stage(10.0));
  return recipe;
}

// The model of a recipe that construction must accept; without a result file unless a path is given.
inline std::unique_ptr<vorlen::SurfChemNonst> model_of(const vorlen::ProcessRecipe& recipe,
                                                       const std::string& output_path = "") {
  std::int32_t err = -99;
  auto model = std::make_unique<vorlen::SurfChemNonst>(recipe, output_path.c_str(), err);
  EXPECT_EQ(err, 0) << model->error_text;
  return model;
}

inline std::unique_ptr<vorlen::SurfChemNonst> small_model(std::int32_t stress_model) {
  return model_of(small_recipe(stress_model));
}

// One point of the solution; by default GaN without growth.
struct Point {
  double z = 0.0;
  double h = 0.0, I0 = 0.0, I1 = 0.0, J0_0 = 0.0, J0_1 = 0.0;
  std::array<double, 3> x_b = {0.0, 1.0, 0.0};
  std::array<double, 5> c_a = {};
  double GR = 0.0;
};

// Hands the point to the model as an accepted step at time t.
inline void accept(vorlen::SurfChemNonst& m, double t, const Point& p) {
  std::array<double, 15> y = {};
  double* next = std::copy(p.c_a.begin(), p.c_a.end(), y.begin());
  *next++ = p.z;
  if (m.stress_model == vorlen::STRESS_V_dislocation) {
    for (double v : {p.h, p.I0, p.I1, p.J0_0, p.J0_1}) *next++ = v;
  }
  next = std::copy(p.x_b.begin(), p.x_b.end(), next);
  *next = p.GR;
  vorlen::record_step(m, t, y.data());
}

// Equal within a fraction of the expected value: for numbers from a formula other than that of the code.
inline testing::AssertionResult close_to(double expected, double actual, double relative = 1e-13) {
  if (std::fabs(actual - expected) <= relative * std::fabs(expected)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "expected " << expected << ", got " << actual << ", relative difference "
                                     << (actual - expected) / expected;
}

// Integral of f from a to b by Simpson's rule with n (even) intervals.
template <typename Function>
double simpson(Function f, double a, double b, int n = 2000) {
  const double w = (b - a) / n;
  double sum = f(a) + f(b);
  for (int i = 1; i < n; ++i) sum += f(a + i * w) * (i % 2 == 1 ? 4.0 : 2.0);
  return sum * w / 3.0;
}

}  // namespace vorlen_test
