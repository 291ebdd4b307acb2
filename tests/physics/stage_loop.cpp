#include "physics/stage_loop.h"

#include <gtest/gtest.h>

#include "integrator/radau_integrator.h"
#include "strain/v_defect_density.h"

namespace vorlen_test {

using namespace vorlen;

namespace {

// Gauss-Legendre nodes on 0 to 1, and their weights.
constexpr double NODES[] = {0.04691007703066802, 0.23076534494715845, 0.5, 0.76923465505284155, 0.95308992296933198};
constexpr double WEIGHTS[] = {0.11846344252809454, 0.23931433524968324, 0.28444444444444444, 0.23931433524968324,
                              0.11846344252809454};
constexpr int KNOTS = 16;  // of the film, for each step

struct Context {
  StagedEquations& equations;
  const StageLoop::Node& node;
  std::size_t n;
};

void rhs(std::int32_t, double t, const double* y, double* f, void*, void* context) {
  staged_rhs(static_cast<Context*>(context)->equations, t, y, f);
}

void follow(StagedEquations& e) {
  const double top = film_top(e.layer.film);
  if (e.z < top) {
    film_cut(e.layer.film, e.z);
  } else if (e.z > top) {
    film_add(e.layer.film, surface_point(e));
  }
}

void step(std::int32_t number, double t_old, double t, const double*, const double* CONT, std::int32_t cont_size,
          std::int32_t, void*, void* context, std::int32_t&) {
  if (number == 1) return;
  const Context& c = *static_cast<Context*>(context);
  StagedEquations& e = c.equations;
  SurfChemNonst& m = e.layer.model;
  StagedVector at{}, f{};
  const auto state_at = [&](double time) {
    for (std::size_t i = 0; i < c.n; ++i)
      at[i] = RadauDenseValue(static_cast<std::int32_t>(i) + 1, time, CONT, cont_size);
  };
  for (std::size_t i = 0; c.node && i < std::size(NODES); ++i) {
    const double time = t_old + (t - t_old) * NODES[i];
    state_at(time);
    staged_rhs(e, time, at.data(), f.data());
    const double S = m.surface.R_b[InN_b] + m.surface.R_b[GaN_b] + m.surface.R_b[AlN_b];
    std::array<double, 3> x = m.x_b;
    if (S < 0.0) {
      const FilmPoint under = film_at(e.layer.film, e.z);
      x = {under.x_In, 1.0 - under.x_In - under.x_Al, under.x_Al};
    }
    c.node(m, {S * x[0], S * x[1], S * x[2]}, (t - t_old) * WEIGHTS[i]);
  }
  for (int j = 1; j <= KNOTS; ++j) {
    state_at(t_old + (t - t_old) * j / KNOTS);
    unpack_staged(e, at.data());
    follow(e);
  }
  accept_v_defects(e.layer);
}

}  // namespace

StageLoop::StageLoop(std::unique_ptr<SurfChemNonst> model)
    : equations(staged_equations(*model, y)), model_(std::move(model)) {}

double StageLoop::run_stage(const Node& node, double tolerance) {
  const double z_before = equations.z;
  start_stage(equations, next_stage_, y);
  const double tau = model_->active_stages[next_stage_++].tau;
  const std::int32_t n = n_staged(*model_);
  Context context{equations, node, static_cast<std::size_t>(n)};
  std::vector<double> work(static_cast<std::size_t>(n * (4 * n + 12) + 20), 0.0);
  std::vector<std::int32_t> iwork(static_cast<std::size_t>(3 * n + 20), 0);
  StagedVector rtol{}, atol{};
  staged_tolerances(equations, tolerance, rtol.data(), atol.data());
  double t = 0.0, h = 1e-6;
  std::int32_t mljac = n, mujac = n, mumas = 0, idid = 0;
  RadauIntegrator(n, rhs, t, y.data(), tau, h, rtol.data(), atol.data(), 1, nullptr, 0, mljac, mujac, nullptr, 0, 0,
                  mumas, step, 1, work.data(), static_cast<std::int32_t>(work.size()), iwork.data(),
                  static_cast<std::int32_t>(iwork.size()), nullptr, &context, idid);
  EXPECT_EQ(idid, RADAU_DONE);
  unpack_staged(equations, y.data());
  return (equations.z - z_before) * 1e9;
}

}  // namespace vorlen_test
