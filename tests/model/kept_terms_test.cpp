// Terms of the residual that are kept from one evaluation to the next change no bit: a model that keeps them and one
// that always computes them get the same calls, and all values in the two models are compared after each call.
#include <random>

#include "model/reference_values.h"
#include "strain/record_step.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

class TwoModels {
 public:
  explicit TwoModels(const ProcessRecipe& recipe) : keeping_(recipe), fresh_(recipe) {
    EXPECT_EQ(keeping_.err, 0) << keeping_->error_text;
    EXPECT_TRUE(keeping_->reuse_terms);
    fresh_->reuse_terms = false;
    keeping_->init_state(start.data());
    std::array<double, N_STATE_MAX> y{};
    fresh_->init_state(y.data());
    EXPECT_EQ(start, y);
    compare("init_state");
  }

  void evaluate(double t, const std::array<double, N_STATE_MAX>& y) {
    std::array<double, N_STATE_MAX> f_keeping, f_fresh;
    f_keeping.fill(-77.0);
    f_fresh.fill(-77.0);
    const std::int32_t expected = fresh_->eval_rhs(t, y.data(), f_fresh.data());
    EXPECT_EQ(keeping_->eval_rhs(t, y.data(), f_keeping.data()), expected);
    for (std::size_t i = 0; i < f_fresh.size(); ++i) EXPECT_TRUE(same_bits(f_fresh[i], f_keeping[i])) << "f " << i;
    compare("t " + std::to_string(t));
  }

  void record(double t, const std::array<double, N_STATE_MAX>& y) {
    record_step(keeping_.m, t, y.data());
    record_step(fresh_.m, t, y.data());
    compare("record_step");
  }

  // A lookup that the residual does not make itself.
  void look_up(double t, bool stage_changed) {
    EXPECT_EQ(keeping_->update_conditions(t, stage_changed), fresh_->update_conditions(t, stage_changed));
  }

  // Sets the same in both.
  template <class Change>
  void change(Change set) {
    set(keeping_.m);
    set(fresh_.m);
  }

  SurfChemNonst* operator->() { return &fresh_.m; }
  std::array<double, N_STATE_MAX> start{};

 private:
  void compare(const std::string& what) {
    EXPECT_EQ(keeping_->stage_index, fresh_->stage_index) << what;
    for (const char* name :
         {"Q",    "x",     "p",         "D",      "delta", "v_kin", "R_gas",    "J", "G_gas",     "site_gas", "G_bulk",
          "K_eq", "K_NH3", "K_NH3_des", "N2_mix", "Kd",    "R_b",   "activity", "r", "site_bulk", "x_b_clip"}) {
      const std::vector<double> expected = computed_values(fresh_.m, name);
      const std::vector<double> actual = computed_values(keeping_.m, name);
      ASSERT_FALSE(expected.empty()) << name;
      for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(same_bits(expected[i], actual[i])) << what << ' ' << name << ' ' << i;
    }
    for (const char* name : {"T", "P", "rho_D", "Q_total", "omega_TDR", "a_bulk", "eps_xx", "rho_VD", "z", "h"}) {
      EXPECT_TRUE(same_bits(*scalar_field(fresh_.m, name), *scalar_field(keeping_.m, name))) << what << ' ' << name;
    }
  }

  BuiltModel keeping_;
  BuiltModel fresh_;
};

// A recipe that varies whatever it can: T, P, flows, the rotation, and the layer from stage to stage.
ProcessRecipe varying(const RecipeOptions& options) {
  ProcessRecipe recipe = recipe_of(options);
  double step = 0.0;
  for (StageRecord& stage : recipe.active_stages) {
    step += 1.0;
    stage.T.end += 10.0 * step;
    stage.P.val += 1000.0 * step;
    stage.Q[TMAl_g] = {0.0, 0.1 * step};
    stage.omega_TDR.end += 50.0;
    stage.delta *= step;
    stage.flows_vary = true;
  }
  // The last stage is steady.
  recipe.active_stages.back().T.set_both(1050.0);
  recipe.active_stages.back().P.set_both(30000.0);
  recipe.conditions_vary = true;
  return recipe;
}

// Calls as an integrator makes them: steps with three stages and several iterations, columns of a Jacobian at the start
// of a step, rejected steps, boundaries of stages in both directions, accepted points.
void walk(const ProcessRecipe& recipe) {
  TwoModels models(recipe);
  const std::size_t n = static_cast<std::size_t>(models->n_state());
  std::mt19937 random(1);
  std::uniform_real_distribution<double> part(0.0, 1.0);
  std::array<double, N_STATE_MAX> y = models.start;
  double t = models->t_begin;
  const double dt = (models->t_end - models->t_begin) / 37.0;
  for (int step = 0; step < 36 && !testing::Test::HasFailure(); ++step) {
    models.evaluate(t, y);
    for (std::size_t column = 0; column < n; ++column) {
      std::array<double, N_STATE_MAX> moved = y;
      moved[column] += 1e-8 * (std::fabs(moved[column]) + 1e-12);
      models.evaluate(t, moved);
    }
    const bool rejected = part(random) < 0.3;
    std::array<double, N_STATE_MAX> stage_y = y;
    for (int iteration = 0; iteration < 3; ++iteration) {
      for (double node : {0.155, 0.645, 1.0}) {
        for (std::size_t i = 0; i < n; ++i) stage_y[i] = y[i] * (1.0 + 1e-3 * part(random));
        stage_y[In_a] += 1e-11 * part(random);
        stage_y[STATE_Z] = y[STATE_Z] + node * 1e-10;
        if (iteration < 2) stage_y[n - 4] = y[n - 4] + 0.01 * part(random);
        models.evaluate(t + node * dt, stage_y);
      }
    }
    if (part(random) < 0.2) models.look_up(t, part(random) < 0.5);
    if (part(random) < 0.2) models.evaluate(models->t_end + 1.0, y);
    if (rejected) continue;
    t += dt;
    y = stage_y;
    models.evaluate(t, y);
    models.record(t, y);
  }
}

}  // namespace

TEST(KeptTerms, ChangeNoBitUnderAnyTransportModel) {
  for (const char* stress_model : {"off", "V_dislocation"}) {
    for (const char* transport_model : {"fixed_thickness", "thick_GaN", "InGaN_GR_X"}) {
      for (const char* reactor : {"CCS", "TDR", "HFR"}) {
        SCOPED_TRACE(std::string(stress_model) + ' ' + transport_model + ' ' + reactor);
        walk(varying(
            {.stress_model = stress_model, .transport_model = transport_model, .reactor = reactor, .n_stages = 4}));
      }
    }
  }
}

TEST(KeptTerms, ChangeNoBitWithEveryPrecursorInTheGas) {
  for (const char* stress_model : {"off", "V_dislocation"}) {
    ProcessRecipe recipe = varying({.stress_model = stress_model, .n_stages = 3});
    for (StageRecord& stage : recipe.active_stages) {
      for (std::size_t i = TMIn_g; i <= TMAl_g; ++i) {
        stage.Q[i] = {0.1 + 0.01 * static_cast<double>(i), 0.2 - 0.01 * static_cast<double>(i)};
      }
    }
    walk(recipe);
  }
}

TEST(KeptTerms, ChangeNoBitOfAConstantProcess) { walk(recipe_of(RecipeOptions{})); }

TEST(KeptTerms, ChangeNoBitOfTheReferenceRecipes) {
  for (const char* name : REFERENCE_RECIPES) walk(reference_recipe(name));
}

TEST(KeptTerms, DifferBetweenStagesThatDifferInTheirLayerAlone) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off", .n_stages = 2});
  recipe.active_stages[1].delta *= 2.0;
  recipe.conditions_vary = true;
  TwoModels models(recipe);
  for (double t : {15.0, 25.0, 15.0, 25.0}) {
    models.evaluate(t, models.start);
    EXPECT_EQ(models->condition_terms().delta[0], t < 20.0 ? 0.008 : 0.016);
  }
}

TEST(KeptTerms, DifferBetweenConditionsThatDifferInOneQuantityAlone) {
  // Each of these enters the terms; the state stays as it is.
  using Change = void (*)(StageRecord&);
  const Change changes[] = {
      [](StageRecord& s) { s.T.end += 50.0; },
      [](StageRecord& s) { s.P.end += 5000.0; },
      [](StageRecord& s) { s.Q[H2_g].end += 1000.0; },
      [](StageRecord& s) {  // the mixture alone, the total stays
        s.Q[H2_g].end += 1000.0;
        s.Q[NH3_g].end -= 1000.0;
      },
      [](StageRecord& s) { s.omega_TDR.end += 100.0; },
      [](StageRecord& s) { s.rho_D.end += 1e8; },
      [](StageRecord& s) {
        for (ValueRange& flow : s.Q) flow.end *= 2.0;  // the total alone
      },
  };
  for (const char* reactor : {"CCS", "TDR", "HFR"}) {
    for (std::size_t k = 0; k < std::size(changes); ++k) {
      SCOPED_TRACE(std::string(reactor) + ' ' + std::to_string(k));
      ProcessRecipe recipe =
          recipe_of(RecipeOptions{.stress_model = "off", .transport_model = "thick_GaN", .reactor = reactor});
      changes[k](recipe.active_stages[0]);
      recipe.active_stages[0].flows_vary = true;
      recipe.conditions_vary = true;
      TwoModels models(recipe);
      for (double t : {10.0, 20.0, 15.0, 20.0, 10.0}) models.evaluate(t, models.start);
    }
  }
}

TEST(KeptTerms, FollowFlowsOnlyInAStageThatVariesThem) {
  for (bool flows_vary : {true, false}) {
    ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off"});
    recipe.active_stages[0].Q[H2_g] = {1000.0, 3000.0};
    recipe.active_stages[0].flows_vary = flows_vary;
    recipe.conditions_vary = true;
    TwoModels models(recipe);
    const double H2_first = models->Q[H2_g];
    for (double t : {10.0, 20.0, 15.0}) {
      models.evaluate(t, models.start);
      EXPECT_EQ(models->Q[H2_g] != H2_first, flows_vary && t > models->t_begin) << t;
    }
  }
}

TEST(KeptTerms, OfASteadyStageEndWithTheStage) {
  // Steady stages that differ. The times return to the first one, as a rejected step does.
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off", .n_stages = 3});
  recipe.active_stages[1].T.set_both(1100.0);
  recipe.active_stages[2].P.set_both(30000.0);
  recipe.conditions_vary = true;
  TwoModels models(recipe);
  for (double t : {12.0, 18.0, 22.0, 12.0, 27.0, 35.0, 38.0, 22.0, 35.0, 12.0}) {
    models.evaluate(t, models.start);
    const StageRecord& stage = models->active_stages[t < 20.0 ? 0 : t < 30.0 ? 1 : 2];
    EXPECT_EQ(models->T, stage.T.val) << t;
    EXPECT_EQ(models->P, stage.P.val) << t;
  }
}

TEST(KeptTerms, DifferBetweenDepthsThatDifferInOneQuantityAlone) {
  // z and h are of the state; the others change when V-defects open or grow. Each of them must move the strain or the
  // mismatch, or the case would prove nothing.
  TwoModels models(recipe_of(RecipeOptions{}));
  models.change([](SurfChemNonst& m) {
    m.z0 = m.z_start + 1e-8;
    m.h_z0 = 1e-9;
    m.rho_TD_z0 = 0.5 * m.rho_TD0;
    m.eps_r_z0 = 1e-4;
    m.rho_VD = 1e12;
  });
  std::array<double, N_STATE_MAX> y = models.start;
  y[STATE_Z] += 1e-7;
  y[STATE_H] = 2e-9;
  const auto differs_after = [&](auto&& next) {
    models.evaluate(models->t_begin, y);
    const double before[] = {models->surface.mismatch, models->eps_xx_last_trial};
    next();
    models.evaluate(models->t_begin, y);
    return before[0] != models->surface.mismatch || before[1] != models->eps_xx_last_trial;
  };
  EXPECT_TRUE(differs_after([&y] { y[STATE_Z] += 1e-9; })) << "z";
  EXPECT_TRUE(differs_after([&y] { y[STATE_H] += 1e-9; })) << "h";
  for (const char* name : {"z0", "h_z0", "rho_TD_z0", "eps_r_z0", "rho_VD"}) {
    for (double factor : {1.01, 1.0 / 1.01}) {
      EXPECT_TRUE(differs_after([&] { models.change([&](SurfChemNonst& m) { *scalar_field(m, name) *= factor; }); }))
          << name;
    }
  }
}

TEST(KeptTerms, OfTheDepthAreFoundByTheColumnsThatLeaveItAlone) {
  // The order of the columns of the Jacobian: the state, z moved, h moved, the others.
  TwoModels models(recipe_of(RecipeOptions{}));
  std::array<double, N_STATE_MAX> y = models.start;
  y[STATE_Z] += 1e-7;
  for (int column : {-1, 0, 4, 5, 6, 7, 10, 11, 12, 13, 14, -1}) {
    std::array<double, N_STATE_MAX> moved = y;
    if (column >= 0) moved[static_cast<std::size_t>(column)] += 1e-9;
    models.evaluate(models->t_begin, moved);
  }
}

TEST(KeptTerms, AreNotTakenForATimeOutsideTheProcess) {
  TwoModels models(varying({.stress_model = "off", .n_stages = 2}));
  for (double t : {15.0, 100.0, 100.0, 15.0, 0.0, 0.0, 15.0}) models.evaluate(t, models.start);
}

TEST(KeptTerms, DifferBetweenZerosOfEitherSign) {
  TwoModels models(recipe_of(RecipeOptions{.stress_model = "off"}));
  std::array<double, N_STATE_MAX> y = models.start;
  for (double zero : {0.0, -0.0, 0.0}) {
    y[models->first_algebraic() + ALGEBRAIC_X_B + InN_b] = zero;
    models.evaluate(models->t_begin, y);
  }
}

TEST(KeptTerms, OfAStateWithNaNAreNotUsedForAGoodOne) {
  TwoModels models(recipe_of(RecipeOptions{}));
  std::array<double, N_STATE_MAX> bad = models.start;
  bad[12] = std::nan("");
  for (const auto& y : {bad, models.start, bad, models.start}) models.evaluate(models->t_begin, y);
}

TEST(KeptTerms, FollowFlowsAndPressureThatTheCallerSets) {
  // Mole fraction and partial pressure by their definitions, for flows and pressures that come, stay and return.
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off"}));
  SurfChemNonst& m = model.m;
  for (double H2 : {1000.0, 1000.0, 3000.0, 1000.0, 1000.0}) {
    for (double P : {20000.0, 20000.0, 30000.0}) {
      m.Q.fill(0.0);
      m.Q[H2_g] = H2;
      m.Q[NH3_g] = 1000.0;
      m.active_stages[0].P.set_both(P);
      ASSERT_EQ(m.update_conditions(m.t_begin + 1.0, false), 0);
      EXPECT_EQ(m.terms.mixtures.last().Q_total, H2 + 1000.0);
      EXPECT_EQ(m.terms.mixtures.last().x[H2_g], H2 / (H2 + 1000.0));
      EXPECT_EQ(m.p[H2_g], H2 / (H2 + 1000.0) * P);
    }
  }
}
