// The state vector of the staged scheme and its equations.
//
// Rates are compared with those of the model's own rows: unpacking is linear in y, so the state at y + f less that at y
// is the rate of the model's quantities in SI units.
#include "api/staged_equations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "api/staged_run.h"
#include "strain/small_model.h"
#include "strain/v_defect_energy.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double NM = 1e-9;

// The components, as the header lists them.
enum Component : std::size_t { C_In, C_Ga, C_Al, C_N, C_H, X_In, X_Ga, X_Al, Z, H, I0, I1, J0_0, J0_1 };

ProcessRecipe two_stages(std::int32_t stress_model) {
  ProcessRecipe recipe = small_recipe(stress_model);
  StageRecord second = small_stage(20.0);
  second.T = {1000.0, 1100.0};
  second.Q[TMIn_g] = {0.0, 0.0};
  add(recipe, second);
  return recipe;
}

struct Started {
  std::unique_ptr<SurfChemNonst> model;
  StagedVector y{};
  StagedEquations equations;

  explicit Started(const ProcessRecipe& recipe) : model(model_of(recipe)), equations(staged_equations(*model, y)) {
    start_stage(equations, 0, y);
  }
  explicit Started(std::int32_t stress_model) : Started(two_stages(stress_model)) {}
  SurfChemNonst* operator->() { return model.get(); }
};

void set_fractions(StagedVector& y, double In, double Al) {
  y[X_In] = In;
  y[X_Ga] = 1.0 - In - Al;
  y[X_Al] = Al;
}

// A surface on which metals and nitrogen meet, 3 nm above the start of the stage.
StagedVector growing_state(const StagedVector& first) {
  StagedVector y = first;
  y[C_In] = 5.0;
  y[C_Ga] = 4.0;
  set_fractions(y, 0.2, 0.01);
  y[Z] = 3.0;
  y[H] = 0.5;
  y[I0] = 2.0;
  y[I1] = 3.0;
  y[J0_0] = -1.0;
  y[J0_1] = -2.0;
  return y;
}

TEST(StagedState, HasNineComponentsOrFourteen) {
  EXPECT_EQ(9, n_staged(*small_model(STRESS_OFF)));
  EXPECT_EQ(14, n_staged(*small_model(STRESS_V_dislocation)));
  EXPECT_EQ(std::size_t{Z}, STAGED_Z);
}

TEST(StagedState, StartsWithTheFirstConcentrationsOfTheModelOnTheCompositionOfThePreStage) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  PrePostStageRecord layer = small_layer(3.189);
  layer.X_In_average = 0.1;
  layer.X_Al_average = 0.2;
  layer.X_Ga_average = 0.7;
  add_pre(recipe, layer);
  add(recipe, small_stage(10.0));
  const auto reference = model_of(recipe);
  std::array<double, N_STATE_MAX> first{};
  reference->init_state(first.data());
  Started s(recipe);
  for (std::size_t k = 0; k < 5; ++k) EXPECT_TRUE(close_to(first[k], 1e-9 * s.y[k])) << k;
  EXPECT_NEAR(0.1, s.y[X_In], 1e-12);
  EXPECT_NEAR(0.2, s.y[X_Al], 1e-12);
  for (std::size_t k = Z; k < s.y.size(); ++k) EXPECT_EQ(0.0, s.y[k]);
  EXPECT_EQ(100.0 * NM, s.equations.z);
}

TEST(StagedState, HasItsUnits) {
  Started s(STRESS_V_dislocation);
  const StagedVector y = growing_state(s.y);
  unpack_staged(s.equations, y.data());
  EXPECT_TRUE(close_to(5e-9, s->c_a[In_a]));
  EXPECT_TRUE(close_to(4e-9, s->c_a[Ga_a]));
  EXPECT_TRUE(close_to(100.0 * NM + 3.0 * NM, s.equations.z));
  EXPECT_TRUE(close_to(100.0 * NM + 3.0 * NM, s->z));
  EXPECT_TRUE(close_to(0.5 * NM, s->h));
  // The stiffness 2 M b tan(45 degrees) per nm of growth, and once more nm for the moments.
  const double unit = 2.0 * MODULUS * B_BURGERS * NM;
  EXPECT_TRUE(close_to(2.0 * unit, s->I0, 1e-12));
  EXPECT_TRUE(close_to(-2.0 * unit, s->J0_1, 1e-12));
  EXPECT_TRUE(close_to(3.0 * unit * NM, s->I1, 1e-12));
  EXPECT_TRUE(close_to(-1.0 * unit * NM, s->J0_0, 1e-12));
}

TEST(StagedState, TheFractionsHaveTheSumOneAndTheLatticeIsThatOfClippedOnes) {
  Started s(STRESS_OFF);
  for (const auto& [In, Al] : {std::pair{0.2, 0.3}, {0.0, 0.0}, {1.0, 0.0}, {-1e-9, 0.5}, {0.7, 0.4}}) {
    StagedVector y = s.y;
    set_fractions(y, In, Al);
    unpack_staged(s.equations, y.data());
    EXPECT_NEAR(1.0, s->x_b[InN_b] + s->x_b[GaN_b] + s->x_b[AlN_b], 2e-16);
    EXPECT_NEAR(In, s->x_b[InN_b], 1e-15);
    EXPECT_NEAR(Al, s->x_b[AlN_b], 1e-15);
    EXPECT_EQ(s->lattice_a(s->x_b_clip.data()), s->a_bulk);
    for (double x : s->x_b_clip) EXPECT_TRUE(x >= 0.0 && x <= 1.0) << x;
  }
}

TEST(StagedState, TheModelTakesTheFractionsDividedByTheirSum) {
  Started s(STRESS_OFF);
  StagedVector y = s.y;
  y[X_In] = 0.2;
  y[X_Ga] = 0.5;
  y[X_Al] = 0.1;
  unpack_staged(s.equations, y.data());
  EXPECT_NEAR(0.25, s->x_b[InN_b], 1e-15);
  EXPECT_NEAR(0.625, s->x_b[GaN_b], 1e-15);
  EXPECT_NEAR(0.125, s->x_b[AlN_b], 1e-15);
}

TEST(StartStage, KeepsTheStateOfTheModelAndTakesTheConditionsOfTheStage) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    Started s(stress_model);
    StagedVector y = growing_state(s.y);
    unpack_staged(s.equations, y.data());
    const double values[] = {s->z, s->h, s->I0, s->I1, s->J0_0, s->J0_1, s->c_a[In_a], s->x_b[InN_b], s->x_b[AlN_b]};
    EXPECT_EQ(1030.0, s->T);
    start_stage(s.equations, 1, y);
    EXPECT_EQ(1000.0, s->T);
    EXPECT_EQ(0.0, s->Q[TMIn_g]);
    EXPECT_EQ(1u, s->stage_index);
    for (std::size_t k = Z; k < y.size(); ++k) EXPECT_EQ(0.0, y[k]);
    unpack_staged(s.equations, y.data());
    const double after[] = {s->z, s->h, s->I0, s->I1, s->J0_0, s->J0_1, s->c_a[In_a], s->x_b[InN_b], s->x_b[AlN_b]};
    for (std::size_t k = 0; k < std::size(values); ++k) EXPECT_TRUE(same_bits(values[k], after[k])) << k;
    EXPECT_EQ(s->z, s.equations.start.z);
    EXPECT_TRUE(close_to(s->z - s->z_start - s->h, s.equations.start.w));
  }
}

TEST(StagedRhs, TakesTheConditionsAtTheTimeSinceTheStartOfTheStage) {
  Started s(STRESS_OFF);
  start_stage(s.equations, 1, s.y);
  StagedVector f{};
  for (double t : {0.0, 5.0, 20.0, 10.0, 0.0}) {
    staged_rhs(s.equations, t, s.y.data(), f.data());
    EXPECT_TRUE(close_to(1000.0 + 100.0 * t / 20.0, s->T)) << t;
    EXPECT_TRUE(close_to(20.0 + t, s->t)) << t;
  }
}

// What the rates of y mean for the model, SI units.
struct Rates {
  std::array<double, 5> dc_a{};
  double z, h, I0, I1, J0_0, J0_1;
};

Rates rates_of(Started& s, const StagedVector& y, const StagedVector& f) {
  const auto state = [&s](const StagedVector& v) {
    unpack_staged(s.equations, v.data());
    return Rates{s->c_a, s.equations.z, s->h, s->I0, s->I1, s->J0_0, s->J0_1};
  };
  StagedVector moved = y;
  for (std::size_t k = 0; k < y.size(); ++k) moved[k] += f[k];
  const Rates from = state(y), to = state(moved);
  Rates rates{{}, to.z - from.z, to.h - from.h, to.I0 - from.I0, to.I1 - from.I1, to.J0_0 - from.J0_0, 0.0};
  rates.J0_1 = to.J0_1 - from.J0_1;
  for (std::size_t k = 0; k < 5; ++k) rates.dc_a[k] = to.dc_a[k] - from.dc_a[k];
  return rates;
}

TEST(StagedRhs, SurfaceAndHeightFollowTheRatesOfTheModel) {
  Started s(STRESS_OFF);
  const StagedVector y = growing_state(s.y);
  StagedVector f{};
  const double GR = staged_rhs(s.equations, 0.0, y.data(), f.data());
  const SurfaceRates surface = s->surface_rates();
  EXPECT_EQ(surface.GR, GR);
  ASSERT_LT(0.0, GR);
  const Rates rates = rates_of(s, y, f);
  for (std::size_t k = 0; k < 5; ++k) EXPECT_TRUE(close_to(surface.dc_a[k], rates.dc_a[k], 1e-6)) << k;
  EXPECT_TRUE(close_to(GR / NM, f[Z]));
}

// Away from the switch between tension and compression. In the second stage the moments have another origin.
TEST(StagedRhs, TheRowsOfTheRelaxationAreThoseOfTheModel) {
  for (const bool tension : {false, true}) {
    for (const bool second_stage : {false, true}) {
      SCOPED_TRACE(testing::Message() << "tension " << tension << ", second stage " << second_stage);
      Started s(STRESS_V_dislocation);
      StagedVector y = growing_state(s.y);
      if (second_stage) {
        start_stage(s.equations, 1, y);
        ASSERT_LT(2e-9, s.equations.start.w);
        y = growing_state(y);
      }
      set_fractions(y, tension ? 0.0 : 0.2, tension ? 0.3 : 0.0);
      StagedVector f{};
      const double GR = staged_rhs(s.equations, 0.0, y.data(), f.data());
      ASSERT_LT(0.0, GR);
      const double eps = s->relaxation_rates(1.0).eps_xx;
      ASSERT_EQ(tension, eps > 0.0);
      ASSERT_LT(1e-3, std::abs(eps));
      std::array<double, 5> rows{};
      s->relaxation_rows(GR, rows.data());
      const Rates rates = rates_of(s, y, f);
      EXPECT_NEAR(rows[0], rates.h, 1e-9 * GR);
      EXPECT_EQ(tension ? GR : 0.0, rows[0]);
      EXPECT_TRUE(close_to(rows[1], rates.I0, 1e-9));
      EXPECT_TRUE(close_to(rows[2], rates.I1, 1e-9));
      EXPECT_TRUE(close_to(rows[3], rates.J0_0, 1e-9));
      EXPECT_TRUE(close_to(rows[4], rates.J0_1, 1e-9));
    }
  }
}

// The switch itself: half of the growth counts as grown in tension at a strain of 1e-4, all of it 1e-5 above.
TEST(StagedRhs, TheSwitchToTensionIsSmooth) {
  Started s(STRESS_V_dislocation);
  StagedVector y = s.y;
  y[C_Ga] = 1.0;
  StagedVector f{};
  const auto share_at = [&](double eps) {
    // At the start of growth nothing is relieved: the strain is a_ref / a - 1.
    staged_rhs(s.equations, 0.0, y.data(), f.data());
    s->a_ref = (1.0 + eps) * s->a_bulk;
    const double GR = staged_rhs(s.equations, 0.0, y.data(), f.data());
    EXPECT_NEAR(eps, s->relaxation_rates(1.0).eps_xx, 1e-15);
    EXPECT_LT(0.0, GR);
    return f[H] * NM / GR;
  };
  EXPECT_NEAR(0.5, share_at(1e-4), 1e-9);
  EXPECT_NEAR(1.0, share_at(1.1e-4), 1e-8);
  EXPECT_NEAR(0.0, share_at(0.9e-4), 1e-8);
  EXPECT_NEAR(0.5 * (1.0 + std::tanh(1.0)), share_at(1.01e-4), 1e-9);
}

TEST(ExchangeLayer, DoesNotMoveWhenAllRatesAreZero) {
  const auto model = model_of(two_stages(STRESS_V_dislocation));
  model->K_plus_A.fill(0.0);
  StagedVector y{}, f{};
  StagedEquations e = staged_equations(*model, y);
  start_stage(e, 0, y);
  for (double x : {0.0, 0.2, 1.0}) {
    set_fractions(y, x, 0.3);
    EXPECT_EQ(0.0, staged_rhs(e, 0.0, y.data(), f.data()));
    for (std::size_t k = X_In; k <= X_Al; ++k) EXPECT_EQ(0.0, f[k]) << k;
    for (std::size_t k = Z; k < f.size(); ++k) EXPECT_EQ(0.0, f[k]) << k;
  }
}

TEST(ExchangeLayer, KeepsWhatGrowthDoesNotCarryOff) {
  Started s(STRESS_OFF);
  const StagedVector y = growing_state(s.y);
  StagedVector f{};
  staged_rhs(s.equations, 0.0, y.data(), f.data());
  const double S = s->surface.R_b[0] + s->surface.R_b[1] + s->surface.R_b[2];
  ASSERT_LT(0.0, S);
  // A thousandth of 1.9e-8 kmol/m^2.
  const double gamma = 1.9e-11;
  EXPECT_TRUE(close_to(s->surface.R_b[InN_b] - S * 0.2, gamma * f[X_In], 1e-12));
  EXPECT_TRUE(close_to(s->surface.R_b[AlN_b] - S * 0.01, gamma * f[X_Al], 1e-12));
  EXPECT_TRUE(close_to(s->surface.R_b[GaN_b] - S * 0.79, gamma * f[X_Ga], 1e-9));
}

// What the layer gains in one metal it loses in others, growing or evaporating.
TEST(ExchangeLayer, KeepsTheSumOfItsFractions) {
  Started s(STRESS_OFF);
  for (double c : {0.0, 0.1, 1.0, 1.37, 4.0, 100.0}) {
    StagedVector y = growing_state(s.y), f{};
    y[C_Ga] = c;
    staged_rhs(s.equations, 0.0, y.data(), f.data());
    const double largest = std::max({std::abs(f[X_In]), std::abs(f[X_Ga]), std::abs(f[X_Al])});
    EXPECT_NEAR(0.0, f[X_In] + f[X_Ga] + f[X_Al], 1e-12 * largest) << c;
  }
}

// Where growth turns into evaporation the equations have no kink: the slopes on both sides agree.
TEST(ExchangeLayer, HasASlopeWhereGrowthTurnsIntoEvaporation) {
  Started s(STRESS_OFF);
  const auto at = [&s](double c) {
    StagedVector y = growing_state(s.y), f{};
    y[C_Ga] = c;
    staged_rhs(s.equations, 0.0, y.data(), f.data());
    return std::pair{s->surface.R_b[0] + s->surface.R_b[1] + s->surface.R_b[2], f[X_In]};
  };
  double low = 0.0, high = 100.0;
  for (int i = 0; i < 100; ++i) {
    const double middle = 0.5 * (low + high);
    (at(middle).first < 0.0 ? low : high) = middle;
  }
  const auto [S_0, f_0] = at(low);
  const double dc = 1e-15 / (at(low + 1e-3).first - at(low).first) * 1e-3;  // S of 1e-15, far below slow growth
  const auto [S_up, f_up] = at(low + dc);
  const auto [S_down, f_down] = at(low - dc);
  ASSERT_NEAR(1e-15, S_up - S_0, 1e-16);
  const double up = (f_up - f_0) / (S_up - S_0), down = (f_0 - f_down) / (S_0 - S_down);
  EXPECT_NEAR(up, down, 0.01 * std::abs(down));
}

// A bare surface evaporates: c = 0 leaves the reverse rates alone.
TEST(ExchangeLayer, EvaporationUncoversTheFilmAtItsDepth) {
  ProcessRecipe recipe = bare_recipe(STRESS_V_dislocation);
  PrePostStageRecord layer = small_layer(3.189);
  layer.X_In_average = 0.05;
  layer.X_Ga_average = 0.85;
  layer.X_Al_average = 0.1;
  add_pre(recipe, layer);
  add(recipe, small_stage(10.0));
  Started s(recipe);
  FilmPoint knot{.z = 110.0 * NM, .x_In = 0.45, .x_Al = 0.2};
  knot.h = 5.0 * NM;
  knot.w = 5.0 * NM;
  knot.I0 = -1.0;
  knot.R = -2.0;
  knot.S = -3.0;
  film_add(s.equations.layer.film, knot);
  struct Depth {
    double z_nm, In, Al;
  };
  for (const Depth& d : {Depth{10.0, 0.45, 0.2}, {5.0, 0.25, 0.15}, {12.0, 0.45, 0.2}, {-20.0, 0.05, 0.1}}) {
    SCOPED_TRACE(d.z_nm);
    StagedVector y = s.y, f{};
    std::fill_n(y.begin(), 5, 0.0);
    set_fractions(y, 0.3, 0.3);
    y[Z] = d.z_nm;
    const double GR = staged_rhs(s.equations, 0.0, y.data(), f.data());
    ASSERT_GT(0.0, GR);
    const double S = s->surface.R_b[0] + s->surface.R_b[1] + s->surface.R_b[2];
    EXPECT_TRUE(close_to(s->surface.R_b[InN_b] - S * d.In, 1.9e-11 * f[X_In], 1e-9));
    EXPECT_TRUE(close_to(s->surface.R_b[AlN_b] - S * d.Al, 1.9e-11 * f[X_Al], 1e-9));
    EXPECT_TRUE(close_to(s->surface.R_b[GaN_b] - S * (1.0 - d.In - d.Al), 1.9e-11 * f[X_Ga], 1e-9));
    // h and the integrals go back as they came. In the template h falls with z, so that the effective thickness stays
    // 0.
    const FilmPoint p = film_at(s.equations.layer.film, s.equations.z);
    const double unit = 2.0 * MODULUS * B_BURGERS * NM;
    EXPECT_NEAR((d.z_nm < 0.0 ? 1.0 : 0.5) * GR / NM, f[H], 1e-9 * std::abs(GR) / NM);
    EXPECT_NEAR(GR * p.R / unit, f[I0], 1e-9 * std::abs(f[I0]));
    EXPECT_NEAR(GR * p.S / unit, f[J0_1], 1e-9 * std::abs(f[J0_1]));
    EXPECT_NEAR(GR * p.w * p.R / (unit * NM), f[I1], 1e-9 * std::abs(f[I1]));
    EXPECT_NEAR(GR * p.w * p.S / (unit * NM), f[J0_0], 1e-9 * std::abs(f[J0_0]));
  }
}

TEST(ExchangeLayer, InSteadyGrowthTheCompositionIsThatOfTheRates) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    ProcessRecipe recipe = bare_recipe(stress_model);
    add_pre(recipe, small_layer(3.189));
    add(recipe, small_stage(60.0));
    const auto m = model_of(recipe);
    RunCounters counters;
    std::string error;
    ASSERT_EQ(0, run_staged(*m, 1e-6, {}, counters, error)) << error;
    m->surface_rates();
    const double S = m->surface.R_b[0] + m->surface.R_b[1] + m->surface.R_b[2];
    // Under stress the composition still moves, and the layer lags by the time that it takes to fill.
    const std::size_t last = m->history.t.size() - 1;
    const double slope =
        (m->history.x_In[last] - m->history.x_In[last - 1]) / (m->history.t[last] - m->history.t[last - 1]);
    const double lag = stress_model == STRESS_OFF ? 0.0 : 1.9e-11 / S * slope;
    // The slope is that of the chord between the last two rows.
    const double bound = 2e-6 + 0.1 * std::abs(lag);
    EXPECT_NEAR(m->surface.R_b[InN_b] / S, m->x_b[InN_b] + lag, bound);
    EXPECT_NEAR(m->surface.R_b[GaN_b] / S, m->x_b[GaN_b] - lag, bound);
    EXPECT_NEAR(m->surface.R_b[AlN_b] / S, m->x_b[AlN_b], 2e-6);
    EXPECT_NEAR(1.0, m->x_b[0] + m->x_b[1] + m->x_b[2], 1e-15);
    EXPECT_LT(0.1, m->x_b[InN_b]);
  }
}

// The laws of the dislocations take logarithms of effective thicknesses.
TEST(StagedState, AnHBeyondTheThicknessGrownIsClamped) {
  Started s(STRESS_V_dislocation);
  for (double z : {3.0, 0.0, -5.0}) {
    StagedVector y = growing_state(s.y), f{};
    y[Z] = z;
    y[H] = 1000.0;
    staged_rhs(s.equations, 0.0, y.data(), f.data());
    EXPECT_EQ(s->z - s->z_start, s->h);
    EXPECT_EQ(s.equations.z, s->z);
    for (double rate : f) EXPECT_TRUE(std::isfinite(rate));
    EXPECT_TRUE(std::isfinite(s->relative_mismatch()));
  }
}

TEST(StagedState, AboveOpenVDefectsHIsClampedThere) {
  Started s(STRESS_V_dislocation);
  StagedVector y = growing_state(s.y), f{};
  y[Z] = 30.0;
  for (double h : {0.0, 100.0}) {
    s->z0 = s->z_start + 10.0 * NM;
    set_state_at_z0(*s.model, 2.0 * NM, 0.0, 0.0);
    s.equations.layer.open = true;
    s.equations.layer.rho_accepted = 1e14;
    y[H] = h;
    staged_rhs(s.equations, 0.0, y.data(), f.data());
    // 20 nm above z0, where h was 2 nm.
    EXPECT_NEAR(h == 0.0 ? 0.0 : 22.0 * NM, s->h, 1e-20);
    for (double rate : f) EXPECT_TRUE(std::isfinite(rate));
  }
}

TEST(StagedTolerances, AreProportionalToTheTolerance) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    Started s(stress_model);
    StagedVector rtol_1{}, atol_1{}, rtol_2{}, atol_2{};
    staged_tolerances(s.equations, 1e-6, rtol_1.data(), atol_1.data());
    staged_tolerances(s.equations, 1e-3, rtol_2.data(), atol_2.data());
    for (std::size_t k = 0; k < static_cast<std::size_t>(n_staged(*s.model)); ++k) {
      EXPECT_TRUE(rtol_1[k] > 0.0 && rtol_1[k] <= 1e-6) << k;
      EXPECT_LT(0.0, atol_1[k]) << k;
      EXPECT_TRUE(close_to(1e3 * rtol_1[k], rtol_2[k])) << k;
      EXPECT_TRUE(close_to(1e3 * atol_1[k], atol_2[k])) << k;
    }
    for (std::size_t k = static_cast<std::size_t>(n_staged(*s.model)); k < atol_1.size(); ++k)
      EXPECT_EQ(0.0, atol_1[k]);
  }
}

TEST(SurfacePoint, IsTheStateAsAKnotOfTheFilm) {
  Started s(STRESS_V_dislocation);
  const StagedVector y = growing_state(s.y);
  unpack_staged(s.equations, y.data());
  const FilmPoint p = surface_point(s.equations);
  EXPECT_EQ(s.equations.z, p.z);
  EXPECT_NEAR(0.2, p.x_In, 1e-15);
  EXPECT_NEAR(0.01, p.x_Al, 1e-15);
  EXPECT_EQ(s->h, p.h);
  EXPECT_EQ(s->I0, p.I0);
  EXPECT_EQ(s->I1, p.I1);
  EXPECT_EQ(s->J0_0, p.J0_0);
  EXPECT_EQ(s->J0_1, p.J0_1);
  // Slopes are the rates at a growth of 1 m/s.
  std::array<double, 5> rows{};
  s->relaxation_rows(1.0, rows.data());
  EXPECT_TRUE(close_to(rows[1], p.R));
  EXPECT_TRUE(close_to(rows[4], p.S));
  EXPECT_TRUE(close_to(2.5 * NM, p.w, 1e-12));
}

}  // namespace
}  // namespace vorlen_test
