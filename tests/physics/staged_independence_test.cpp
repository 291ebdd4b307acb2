// What must not matter to a run under the staged scheme: where a stage is divided, where the time starts, whether
// periods are written out, and stages too short to do anything.
//
// The bound. A division lets the integrator start once more, with other steps, so two runs differ as two runs of other
// tolerances do: at the default of 1e-6 layers are right within about 1e-7 of their thickness, and not better than 1e-6
// of the absolute tolerance of 1e-7 nm for each start. V-defects make this larger, as the moment of their opening
// follows from a difference of energies.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "physics/staged_growth.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

double bound(double nm) { return 1e-6 * std::max(std::abs(nm), 1.0); }

Conditions gan() {
  Conditions c = ingan_in_nitrogen();
  c.TMIn = 0.0;
  return c;
}

// A barrier, a ramp down, a well, an interruption, a ramp up and a barrier; then what evaporates.
std::vector<StagePlan> stages() {
  Conditions warm = gan(), well = ingan_in_nitrogen();
  warm.T += 50.0;
  const Conditions hot{.T = 1380.0, .P = 40000.0, .delta = 0.008, .NH3 = 4000.0, .H2 = 9000.0};
  return {constant(60.0, warm),
          {20.0, warm, gan()},
          constant(140.0, well),
          constant(15.0, without_metals(well)),
          {20.0, gan(), warm},
          constant(40.0, warm),
          {30.0, without_metals(warm), hot},
          constant(20.0, hot)};
}

// The conditions at a share of a stage.
Conditions between(const StagePlan& plan, double share) {
  Conditions c = plan.from;
  for (double Conditions::*v : {&Conditions::T, &Conditions::P, &Conditions::TMIn, &Conditions::TMGa, &Conditions::TEGa,
                                &Conditions::TMAl, &Conditions::N2, &Conditions::NH3, &Conditions::H2}) {
    c.*v += share * (plan.to.*v - plan.from.*v);
  }
  return c;
}

class StagedIndependence : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    plain = grow_staged(process_recipe(GetParam(), stages()));
    ASSERT_EQ(plain.layer_nm.size(), stages().size());
    if (std::string(GetParam()) == "V_dislocation") {
      ASSERT_GT(plain.model->rho_VD, 0.0) << "no V-defects open";
    }
    ASSERT_LT(plain.layer_nm.back(), -0.1) << "nothing evaporates";
  }

  // layers: the numbers of the layers of the other run that make up each layer of the plain one.
  void expect_same(const Grown& other, const std::vector<std::vector<std::size_t>>& layers) const {
    ASSERT_FALSE(other.layer_nm.empty());
    ASSERT_EQ(layers.size(), plain.layer_nm.size());
    for (std::size_t k = 0; k < layers.size(); ++k) {
      double nm = 0.0;
      for (std::size_t i : layers[k]) nm += other.layer_nm.at(i);
      EXPECT_NEAR(nm, plain.layer_nm[k], bound(plain.layer_nm[k])) << "layer " << k + 1;
    }
    for (std::size_t b = 0; b < N_BULK; ++b) EXPECT_NEAR(other.model->x_b[b], plain.model->x_b[b], 1e-6);
    EXPECT_NEAR(other.model->rho_VD, plain.model->rho_VD, 1e-3 * plain.model->rho_VD);
  }

  Grown plain;
};

INSTANTIATE_TEST_SUITE_P(Stress, StagedIndependence, testing::Values("off", "V_dislocation"));

TEST_P(StagedIndependence, AStageMayBeDividedInTwo) {
  for (std::size_t divided = 0; divided < stages().size(); ++divided) {
    SCOPED_TRACE("stage " + std::to_string(divided + 1));
    std::vector<StagePlan> plans;
    std::vector<std::vector<std::size_t>> layers;
    for (std::size_t k = 0; k < stages().size(); ++k) {
      StagePlan plan = stages()[k];
      layers.push_back({plans.size()});
      if (k == divided) {
        const Conditions middle = between(plan, 0.5);
        plans.push_back({0.5 * plan.tau, plan.from, middle});
        layers.back().push_back(plans.size());
        plan = {0.5 * plan.tau, middle, plan.to};
      }
      plans.push_back(plan);
    }
    expect_same(grow_staged(process_recipe(GetParam(), plans)), layers);
  }
}

// The first or the last millisecond of a stage as a stage: a millisecond of what was there anyway.
TEST_P(StagedIndependence, AStageOfAMillisecondWithTheSameConditionsChangesNothing) {
  constexpr double SHORT = 1e-3;
  for (std::size_t divided = 0; divided < stages().size(); ++divided) {
    SCOPED_TRACE("stage " + std::to_string(divided + 1));
    std::vector<StagePlan> plans;
    std::vector<std::vector<std::size_t>> layers;
    for (std::size_t k = 0; k < stages().size(); ++k) {
      StagePlan plan = stages()[k];
      layers.push_back({plans.size()});
      if (k == divided) {
        const Conditions at = between(plan, 1.0 - SHORT / plan.tau);
        plans.push_back({plan.tau - SHORT, plan.from, at});
        layers.back().push_back(plans.size());
        plan = {SHORT, at, plan.to};
      }
      plans.push_back(plan);
    }
    expect_same(grow_staged(process_recipe(GetParam(), plans)), layers);
  }
}

// A millisecond without metals: no layer misses more than the growth of that millisecond.
TEST_P(StagedIndependence, APauseOfAMillisecondChangesNoMoreThanItsOwnGrowth) {
  constexpr double SHORT = 1e-3;
  const std::vector<double>& rates = plain.model->history.Vg;
  const double fastest = *std::max_element(rates.begin(), rates.end()) * 1e9;  // nm/s
  ASSERT_LT(fastest, 0.1);
  for (const std::size_t after : {std::size_t{0}, std::size_t{2}}) {
    SCOPED_TRACE("stage " + std::to_string(after + 1));
    std::vector<StagePlan> plans = stages();
    plans[after].tau -= SHORT;
    plans.insert(plans.begin() + static_cast<std::ptrdiff_t>(after) + 1,
                 constant(SHORT, without_metals(plans[after].to)));
    const Grown other = grow_staged(process_recipe(GetParam(), plans));
    ASSERT_EQ(other.layer_nm.size(), plans.size());
    for (std::size_t k = 0; k < stages().size(); ++k) {
      const double nm = other.layer_nm[k > after ? k + 1 : k] + (k == after ? other.layer_nm[after + 1] : 0.0);
      const double own = k == after || k == after + 1 ? fastest * SHORT : 0.0;
      EXPECT_NEAR(nm, plain.layer_nm[k], own + bound(plain.layer_nm[k])) << "layer " << k + 1;
    }
  }
}

TEST_P(StagedIndependence, TheTimeOriginDoesNotMatter) {
  std::vector<std::vector<std::size_t>> same;
  for (std::size_t k = 0; k < stages().size(); ++k) same.push_back({k});
  for (const double t0 : {1e3, 1e6}) {
    SCOPED_TRACE(t0);
    expect_same(grow_staged(process_recipe(GetParam(), stages(), t0)), same);
  }
}

TEST_P(StagedIndependence, PeriodsMayBeWrittenOut) {
  // All stages of the builder are alike: three periods of two stages of InGaN are six stages.
  RecipeBuilder periodic({.stress_model = GetParam()}), written_out({.stress_model = GetParam(), .n_stages = 6});
  periodic.make_periodic(1, 3, 2);
  const std::string q = "/gas_species/Q/TMIn";
  periodic.set_range("process_stages/stage_1/stage_1_1" + q, "0", "0");
  for (int k : {1, 3, 5}) written_out.set_range("process_stages/stage_" + std::to_string(k) + q, "0", "0");
  const Grown a = grow_staged(periodic), b = grow_staged(written_out);
  ASSERT_EQ(a.layer_nm.size(), 6u);
  ASSERT_EQ(b.layer_nm.size(), 6u);
  for (std::size_t k = 0; k < 6; ++k) EXPECT_EQ(a.layer_nm[k], b.layer_nm[k]) << "layer " << k + 1;
  EXPECT_NE(a.layer_nm[0], a.layer_nm[1]);
}

}  // namespace
}  // namespace vorlen
