// V-defects under both schemes. The continuous one looks for their opening and brings their density up to date at
// recorded points, so its results depend on its largest step. As that falls, they approach those of the staged scheme.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "integrator/radau_integrator.h"
#include "physics/staged_growth.h"
#include "recipe/read_recipe.h"
#include "strain/record_step.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

ProcessRecipe read(const std::string& path) {
  ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(read_recipe(path.c_str(), recipe, error), 0) << error;
  return recipe;
}

ProcessRecipe example() { return read(VORLEN_EXAMPLES "/ingan_v_defects.xml"); }

// In0.35Ga0.65N on a spacer of GaN: the density is still rising steeply at the end, so it shows every delay.
ProcessRecipe steep() {
  const Conditions gan{
      .T = 993.489, .P = 60000.0, .delta = 0.00627638, .TEGa = 0.236674, .N2 = 9907.08, .NH3 = 4019.66};
  Conditions ingan = gan;
  ingan.TMIn = 0.237408;
  RecipeBuilder recipe = process_recipe("V_dislocation", {constant(54.2234, gan), constant(99.796, ingan)});
  recipe.set("stress/V_angle_05", "5.872").set("pre_stages/pre_stage_1/dislocations/rho_D", "1.737e8");
  const TempFolder folder;
  return read(recipe.write(folder.path("recipe.xml")));
}

void rhs(std::int32_t, double t, const double* y, double* f, void*, void* model) {
  static_cast<SurfChemNonst*>(model)->eval_rhs(t, y, f);
}

void mass(std::int32_t n, double* FMAS, std::int32_t rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) FMAS[j * rows] = j < n - N_ALGEBRAIC ? 1.0 : 0.0;
}

void step(std::int32_t, double, double t, const double* y, const double*, std::int32_t, std::int32_t, void*,
          void* model, std::int32_t&) {
  record_step(*static_cast<SurfChemNonst*>(model), t, y);
}

// The continuous scheme with a largest step [s], with the model as the run leaves it.
std::unique_ptr<SurfChemNonst> grow_continuous(const ProcessRecipe& recipe, double max_step) {
  std::int32_t err = 0;
  auto m = std::make_unique<SurfChemNonst>(recipe, "", err);
  EXPECT_EQ(err, 0) << m->error_text;
  std::int32_t n = m->n_state();
  std::array<double, N_STATE_MAX> y{};
  m->init_state(y.data());
  std::vector<double> work(static_cast<std::size_t>(n * (5 * n + 12) + 20), 0.0);
  std::vector<std::int32_t> iwork(static_cast<std::size_t>(5 * n + 20), 0);
  work[7 - 1] = max_step;
  iwork[2 - 1] = 1000000;
  iwork[5 - 1] = n - N_ALGEBRAIC;
  iwork[6 - 1] = N_ALGEBRAIC;
  double t = m->t_begin, h = 1e-4, rtol = 1e-10, atol = 1e-14;
  std::int32_t mljac = n, mujac = n, mumas = 0, idid = 0;
  RadauIntegrator(n, rhs, t, y.data(), m->t_end, h, &rtol, &atol, 0, nullptr, 0, mljac, mujac, mass, 1, 0, mumas, step,
                  1, work.data(), static_cast<std::int32_t>(work.size()), iwork.data(),
                  static_cast<std::int32_t>(iwork.size()), nullptr, m.get(), idid);
  EXPECT_EQ(idid, RADAU_DONE);
  return m;
}

struct VDefects {
  double opening = 0.0;  // s
  double z0 = 0.0;       // nm
  double density = 0.0;  // at the end, m^-2
};

VDefects v_defects_of(const SurfChemNonst& m) {
  const auto open =
      std::find_if(m.history.rho_VD.begin(), m.history.rho_VD.end(), [](double rho) { return rho > 0.0; });
  EXPECT_NE(open, m.history.rho_VD.end()) << "no V-defects open";
  return {m.history.t[static_cast<std::size_t>(open - m.history.rho_VD.begin())] - m.t_begin, m.z0 * 1e9, m.rho_VD};
}

VDefects staged_v_defects(const ProcessRecipe& recipe) {
  std::int32_t err = 0;
  const Grown grown = grow_staged(std::make_unique<SurfChemNonst>(recipe, "", err), 1e-8);
  return v_defects_of(*grown.model);
}

// The limit is that of the staged scheme but for its exchange layer, whose composition lags by the time in which it
// grows, a hundredth of a monolayer or 0.0026 nm, here about 0.05 s. With a layer a tenth as thick the rest vanishes.
constexpr double EXCHANGE_TIME = 0.06;  // s
constexpr double FASTEST = 0.05;        // growth, nm/s

void expect_first_order(const ProcessRecipe& recipe, double density_rest) {
  const VDefects exact = staged_v_defects(recipe);
  VDefects first, last;
  for (const double max_step : {10.0, 3.0, 1.0, 0.3, 0.1, 0.03, 0.01}) {
    SCOPED_TRACE(max_step);
    const VDefects v = v_defects_of(*grow_continuous(recipe, max_step));
    // The search finds an opening at the first recorded point after it, or at the second.
    const double late = 2.0 * max_step + EXCHANGE_TIME;
    EXPECT_NEAR(v.opening, exact.opening, late);
    EXPECT_NEAR(v.z0, exact.z0, late * FASTEST);
    if (max_step <= 1.0) {
      EXPECT_NEAR(v.density, exact.density, (max_step + density_rest) * exact.density);
    }
    last = {std::abs(v.opening - exact.opening), std::abs(v.z0 - exact.z0), std::abs(v.density - exact.density)};
    if (max_step == 10.0) first = last;
  }
  EXPECT_LT(last.opening, 0.05 * first.opening);
  EXPECT_LE(last.z0, 0.05 * first.z0);
  EXPECT_LT(last.density, 0.05 * first.density);
}

TEST(ContinuousLimit, TheVDefectsOfTheExampleApproachThoseOfTheStagedScheme) {
  // The root search of the continuous scheme leaves the density uncertain by a thousandth.
  expect_first_order(example(), 2e-3);
}

TEST(ContinuousLimit, ADensityThatRisesSteeplyApproachesThatOfTheStagedScheme) {
  // In the time of the exchange layer the density rises by a few per cent.
  expect_first_order(steep(), 0.02);
}

}  // namespace
}  // namespace vorlen
