// No metal is lost under the staged scheme: what arrives at the surface and does not leave it is in the adsorbed layer,
// in the exchange layer or in the film.
#include <gtest/gtest.h>

#include <cmath>

#include "physics/model_fixture.h"
#include "physics/stage_loop.h"
#include "physics/staged_growth.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

constexpr std::size_t METALS = 3;
const char* const METAL[] = {"indium", "gallium", "aluminium"};
using Amounts = std::array<double, METALS>;  // kmol/m^2 of In, Ga, Al

// AlInGaN, an interruption, a well of InGaN under a cap, and a hot pause in which cap and part of the well evaporate.
std::vector<StagePlan> stages() {
  Conditions well = ingan_in_nitrogen(), barrier = well, quaternary = well;
  barrier.TMIn = 0.0;
  quaternary.TMAl = 0.1;
  const Conditions hot{.T = 1400.0, .P = 10000.0, .NH3 = 3000.0, .H2 = 10000.0};
  return {constant(60.0, barrier),
          {30.0, well, quaternary},
          constant(20.0, quaternary),
          constant(20.0, without_metals(well)),
          constant(30.0, well),
          constant(40.0, barrier),
          {20.0, without_metals(well), hot},
          constant(19.5, hot)};
}

// Volume of a kmol of each nitride, m^3.
double molar_volume(const SurfChemNonst& m, std::size_t k) {
  return m.bulk_species[k].molar_mass / m.bulk_species[k].rho;
}

class MetalBalance : public testing::TestWithParam<const char*> {};

TEST_P(MetalBalance, HoldsInEachStage) {
  const RecipeBuilder recipe = process_recipe(GetParam(), stages());
  const Grown driver = grow_staged(recipe, 1e-9);
  ASSERT_EQ(driver.layer_nm.size(), stages().size());
  ASSERT_EQ(driver.model->rho_VD, 0.0) << "V-defects open, which the loop does not notice";
  StageLoop loop(make_model(recipe));
  SurfChemNonst& m = loop.model();
  const auto present = [&] {
    Amounts n{};
    for (std::size_t k = 0; k < METALS; ++k) n[k] = m.c_a[k] + loop.equations.gamma * m.x_b[k];
    return n;
  };
  for (std::size_t stage = 0; stage < stages().size(); ++stage) {
    SCOPED_TRACE("stage " + std::to_string(stage + 1));
    unpack_staged(loop.equations, loop.y.data());
    const Amounts before = present();
    Amounts arrived{}, left{}, film{};
    const double nm = loop.run_stage([&](const SurfChemNonst& s, const std::array<double, 3>& into_film, double dt) {
      arrived[0] += dt * (s.surface.J[TMIn_g] + s.surface.J[MMIn_g] + s.surface.J[TMInNH3_g]);
      arrived[1] += dt * (s.surface.J[TMGa_g] + s.surface.J[MMGa_g] + s.surface.J[TEGa_g] + s.surface.J[TEGaNH3_g]);
      arrived[2] += dt * s.surface.J[TMAl_g];
      for (std::size_t k = 0; k < METALS; ++k) {
        left[k] -= dt * s.surface.J[In_g + k];
        film[k] += dt * into_film[k];
      }
    });
    const Amounts after = present();
    double volume = 0.0;
    for (std::size_t k = 0; k < METALS; ++k) {
      const double stays = film[k] + (after[k] - before[k]);
      const double scale = std::max({arrived[k], std::abs(left[k]), std::abs(film[k]), 1e-3 * MONOLAYER});
      EXPECT_NEAR(arrived[k], left[k] + stays, 1e-6 * scale) << METAL[k];
      volume += film[k] * molar_volume(m, k);
    }
    // The solid is the film and the exchange layer, whose volume changes by less than a third of its 0.0025 nm.
    EXPECT_NEAR(volume * 1e9, nm, 1e-3);
    EXPECT_NEAR(driver.layer_nm[stage], nm, 1e-6 * std::max(std::abs(nm), 1.0)) << "the driver";
  }
  const auto& nm = driver.layer_nm;
  EXPECT_LT(nm[6] + nm[7], -nm[5] - 0.5) << "the hot pause does not reach the well";
  EXPECT_GT(nm[6] + nm[7], -nm[5] - nm[4]) << "the hot pause goes through the well";
}

INSTANTIATE_TEST_SUITE_P(Stress, MetalBalance, testing::Values("off", "V_dislocation"));

// The film's record of its composition by depth holds the metals that passed into it.
TEST_P(MetalBalance, HoldsForTheCompositionByDepth) {
  StageLoop loop(make_model(process_recipe(GetParam(), stages())));
  const SurfChemNonst& m = loop.model();
  Amounts film{};
  double evaporated = 0.0;
  for (std::size_t stage = 0; stage < stages().size(); ++stage) {
    loop.run_stage([&](const SurfChemNonst&, const std::array<double, 3>& into_film, double dt) {
      for (std::size_t k = 0; k < METALS; ++k) film[k] += dt * into_film[k];
      evaporated += std::max(0.0, -dt * (into_film[0] + into_film[1] + into_film[2]));
    });
    const Film& record = loop.equations.layer.film;
    Amounts by_depth{};
    for (std::size_t i = 1; i < record.z.size(); ++i) {
      const double x_In = 0.5 * (record.x_In[i - 1] + record.x_In[i]),
                   x_Al = 0.5 * (record.x_Al[i - 1] + record.x_Al[i]);
      const Amounts x = {x_In, 1.0 - x_In - x_Al, x_Al};
      double volume = 0.0;
      for (std::size_t k = 0; k < METALS; ++k) volume += x[k] * molar_volume(m, k);
      for (std::size_t k = 0; k < METALS; ++k) by_depth[k] += x[k] * (record.z[i] - record.z[i - 1]) / volume;
    }
    // Heights include the exchange layer, whose volume depends on its composition by up to a quarter.
    for (std::size_t k = 0; k < METALS; ++k) {
      EXPECT_NEAR(film[k], by_depth[k], 0.25 * loop.equations.gamma) << METAL[k] << " after stage " << stage + 1;
    }
  }
  EXPECT_GT(evaporated, 9.0 * MONOLAYER);
}

}  // namespace
}  // namespace vorlen
