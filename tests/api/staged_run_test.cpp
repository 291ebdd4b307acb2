// Runs under the staged scheme: rows, counters, texts and the result file.
#include "api/staged_run.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "api/run_support.h"
#include "recipe/read_recipe.h"
#include "results/row_selection.h"
#include "strain/small_model.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

// A barrier, a pause without metals in which the temperature ramps, and a well.
ProcessRecipe three_stages(std::int32_t stress_model, double tau = 10.0) {
  ProcessRecipe recipe = bare_recipe(stress_model);
  add_pre(recipe, small_layer(3.189));
  StageRecord barrier = small_stage(tau);
  barrier.T = {1060.0, 1060.0};
  barrier.Q[TMIn_g] = {0.0, 0.0};
  StageRecord pause = barrier;
  pause.T = {1060.0, 1030.0};
  pause.Q[TEGa_g] = {0.0, 0.0};
  pause.tau = 0.7 * tau;
  StageRecord well = small_stage(1.3 * tau);
  add(recipe, barrier);
  add(recipe, pause);
  add(recipe, well);
  recipe.scheme = SCHEME_staged;
  return recipe;
}

struct Grown {
  std::unique_ptr<SurfChemNonst> model;
  RunCounters counters;
  std::string error;
  std::int32_t status;
};

Grown run(const ProcessRecipe& recipe, const RunOptions& options = {}) {
  Grown r;
  r.model = model_of(recipe);
  r.model->reuse_terms = options.reuse_terms;
  r.status = run_staged(*r.model, recipe.tolerance, options, r.counters, r.error);
  return r;
}

TEST(StagedRun, HasRowsAtTheFirstAndTheLastInstantOfEachStage) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    const Grown r = run(three_stages(stress_model));
    ASSERT_EQ(0, r.status) << r.error;
    const std::vector<double>& t = r.model->history.t;
    EXPECT_EQ(r.model->active_stages.front().begin_time(), t.front());
    EXPECT_EQ(r.model->active_stages.back().end_time(), t.back());
    for (const StageRecord& stage : r.model->active_stages) {
      EXPECT_EQ(1, std::count(t.begin(), t.end(), stage.end_time()));
      if (stage.end_time() == t.back()) continue;
      const auto end = std::find(t.begin(), t.end(), stage.end_time());
      // The next stage starts at the next double, with the same film.
      ASSERT_NE(t.end(), end + 1);
      EXPECT_EQ(std::nextafter(*end, 1e9), *(end + 1));
      const auto i = static_cast<std::size_t>(end - t.begin());
      EXPECT_EQ(r.model->history.z[i], r.model->history.z[i + 1]);
      EXPECT_EQ(r.model->history.x_In[i], r.model->history.x_In[i + 1]);
    }
    for (std::size_t i = 1; i < t.size(); ++i) EXPECT_LT(t[i - 1], t[i]);
    const std::size_t n = t.size();
    for (const auto* list : {&r.model->history.z, &r.model->history.Vg, &r.model->history.x_In, &r.model->history.x_Ga,
                             &r.model->history.x_Al}) {
      EXPECT_EQ(n, list->size());
    }
    EXPECT_EQ(stress_model == STRESS_OFF ? 0 : n, r.model->history.h.size());
    EXPECT_EQ(stress_model == STRESS_OFF ? 0 : n, r.model->history.rho_VD.size());
    EXPECT_LE(n, 3 * MAX_ROWS_PER_STAGE);
  }
}

TEST(StagedRun, NothingGrowsInAPauseAndTheRestIsTheSumOfItsStages) {
  const TempFolder folder;
  ProcessRecipe recipe = three_stages(STRESS_OFF, 100.0);
  std::string error;
  ASSERT_EQ(0, run_simulation(recipe, folder.path("out.txt").c_str(), error)) << error;
  std::istringstream file(read_file(folder.path("out.txt")));
  std::vector<double> thickness;
  double z_last = 0.0;
  bool rows = false;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("#time", 0) == 0) rows = true;
    std::istringstream words(line);
    std::string name;
    double t, value;
    if (!rows && line[0] == '"' && (words >> name >> t >> value)) thickness.push_back(value);
    if (rows && (words >> t >> value)) z_last = value;
  }
  ASSERT_EQ(4u, thickness.size());
  EXPECT_EQ(100.0, thickness[0]);
  EXPECT_LT(1.0, thickness[1]);
  EXPECT_LT(std::abs(thickness[2]), 0.05 * thickness[1]);
  EXPECT_NEAR(z_last, thickness[0] + thickness[1] + thickness[2] + thickness[3], 1e-4);
}

TEST(StagedRun, WritesTheLayoutOfTheContinuousScheme) {
  const TempFolder folder;
  for (const char* stress_model : {"off", "V_dislocation"}) {
    RecipeBuilder builder({.stress_model = stress_model, .n_pre_stages = 2, .n_stages = 2, .n_post_stages = 1});
    std::vector<std::string> heads;
    for (const char* scheme : {"continuous", "staged"}) {
      builder.set("integration/scheme", scheme);
      ASSERT_EQ(0, call_library(builder.write(folder.path("r.xml")), folder.path("out.txt")).result);
      const std::string text = read_file(folder.path("out.txt"));
      std::istringstream file(text);
      std::string head, line;
      std::size_t columns = 0;
      for (bool rows = false; std::getline(file, line);) {
        if (line.rfind("#time", 0) == 0) {
          head += line;
          rows = true;
          columns = static_cast<std::size_t>(std::count(line.begin(), line.end(), ' ')) + 1;
        } else if (rows) {
          std::istringstream words(line);
          std::size_t count = 0;
          for (std::string word; words >> word;) ++count;
          EXPECT_EQ(columns, count);
        } else {
          head += line.substr(0, line.find_last_of(' ')) + "\n";  // without the thickness
        }
      }
      EXPECT_EQ(19u, columns);
      heads.push_back(head);
    }
    EXPECT_EQ(heads[0], heads[1]);
  }
}

TEST(StagedRun, CountsWhatTheIntegratorDidInAllStages) {
  RunCounters counters;
  std::string error;
  ProcessRecipe recipe = three_stages(STRESS_V_dislocation);
  ASSERT_EQ(0, run_simulation(recipe, "", error, &counters)) << error;
  EXPECT_EQ(1, counters.idid);
  EXPECT_LT(30, counters.step_count);
  EXPECT_LE(counters.accepted_count + counters.rejected_count, counters.step_count);
  EXPECT_LT(0, counters.accepted_count);
  EXPECT_LT(0, counters.jacobian_count);
  EXPECT_LE(counters.jacobian_count, counters.step_count);
  EXPECT_LT(counters.step_count, counters.rhs_calls);
  // A Jacobian takes one evaluation for each of the 14 components.
  EXPECT_LT(counters.rhs_calls / 2, counters.eval_rhs_calls);
  EXPECT_LE(counters.eval_rhs_calls,
            counters.rhs_calls + 14 * counters.jacobian_count + 10 * counters.step_count + 100);
}

TEST(StagedRun, TooManyStepsGiveATextAndTheRowsUpToThere) {
  const TempFolder folder;
  // Each stage may take 200 more steps.
  RunCounters counters;
  std::string error;
  ProcessRecipe steep = three_stages(STRESS_V_dislocation, 1000.0);
  steep.tolerance = 1e-10;
  EXPECT_EQ(RUN_GAVE_UP_ON_STEPS,
            run_simulation(steep, folder.path("out.txt").c_str(), error, &counters, {.max_steps = 5}));
  EXPECT_EQ("Maximum number of time steps reached", error);
  EXPECT_EQ(-2, counters.idid);
  const std::string text = read_file(folder.path("out.txt"));
  EXPECT_EQ(0u, text.find("\"VORLEN output file, version 2.0\"\n"));
  EXPECT_LT(2, std::count(text.begin() + static_cast<std::ptrdiff_t>(text.find("#time")), text.end(), '\n') - 2);
  EXPECT_EQ(std::string::npos, text.find("nan"));
}

// Pure ammonia has no diffusion coefficient in itself: 0/0.
TEST(StagedRun, AStateThatIsNotFiniteGivesATextAndNoSuchRow) {
  const TempFolder folder;
  for (const char* stress_model : {"off", "V_dislocation"}) {
    for (int bad_stage : {1, 2}) {
      RecipeBuilder builder({.stress_model = stress_model, .n_stages = 2});
      builder.set("integration/scheme", "staged");
      for (const char* flow : {"TMIn", "TEGa", "TMAl", "N2", "H2", "TMGa"}) {
        builder.set_range("process_stages/stage_" + std::to_string(bad_stage) + "/gas_species/Q/" + flow, "0", "0");
      }
      const CallOutcome got = call_library(builder.write(folder.path("r.xml")), folder.path("out.txt"));
      EXPECT_EQ(1, got.result);
      EXPECT_EQ("State is not finite", got.text);
      const std::string text = read_file(folder.path("out.txt"));
      EXPECT_EQ(0u, text.find("\"VORLEN output file, version 2.0\"\n"));
      EXPECT_EQ(std::string::npos, text.find("nan")) << text;
    }
  }
}

TEST(StagedRun, AnIntervalThatRampsIntoSuchAStateGivesATextToo) {
  const TempFolder folder;
  RecipeBuilder builder({.stress_model = "off"});
  builder.set("integration/scheme", "staged");
  for (const char* flow : {"TMIn", "TEGa", "TMAl", "N2", "H2", "TMGa"}) {
    builder.set("process_stages/stage_1/gas_species/Q/" + std::string(flow), "end", "0");
  }
  const CallOutcome got = call_library(builder.write(folder.path("r.xml")), folder.path("out.txt"));
  EXPECT_EQ(1, got.result);
  EXPECT_NE("", got.text);
  EXPECT_EQ(std::string::npos, read_file(folder.path("out.txt")).find("nan"));
}

TEST(StagedRun, ReusingTermsChangesNoByte) {
  const TempFolder folder;
  std::vector<std::string> recipes;
  for (const char* stress_model : {"off", "V_dislocation"}) {
    for (const char* transport_model : {"fixed_thickness", "thick_GaN", "InGaN_GR_X"}) {
      for (const char* reactor : {"CCS", "TDR", "HFR"}) {
        if (std::string(transport_model) != "thick_GaN" && std::string(reactor) != "CCS") continue;
        RecipeBuilder builder(
            {.stress_model = stress_model, .transport_model = transport_model, .reactor = reactor, .n_stages = 3});
        builder.set("process_stages/stage_2/T", "end", "1050").set("process_stages/stage_3/gas_species/Q/TEGa", "0");
        recipes.push_back(builder.write(folder.path(std::to_string(recipes.size()) + ".xml")));
      }
    }
  }
  for (const char* name : {"ingan_v_defects", "ingan_gan_mqw_periodic", "algan_gan_mirror_tdr", "ingan_led_hfr"}) {
    recipes.push_back(VORLEN_TEST_DATA "/recipes/" + std::string(name) + ".xml");
  }
  for (const std::string& path : recipes) {
    SCOPED_TRACE(path);
    ProcessRecipe recipe;
    std::string error;
    ASSERT_EQ(0, read_recipe(path.c_str(), recipe, error)) << error;
    recipe.scheme = SCHEME_staged;
    std::string files[2];
    for (const bool reuse : {false, true}) {
      EXPECT_EQ(0, run_simulation(recipe, folder.path("out.txt").c_str(), error, nullptr, {.reuse_terms = reuse}))
          << error;
      files[reuse] = read_file(folder.path("out.txt"));
    }
    EXPECT_LT(1000u, files[0].size());
    EXPECT_TRUE(files[0] == files[1]) << "other bytes with kept terms";
  }
}

// Late in time, few doubles lie in a stage of a millisecond. Times still increase, and the film is that of an early
// stage.
TEST(StagedRun, GrowsTheSameLateInTime) {
  double z[2];
  for (const double t0 : {0.0, 1e7}) {
    ProcessRecipe recipe = bare_recipe(STRESS_V_dislocation);
    recipe.t0 = t0;
    add_pre(recipe, small_layer(3.189));
    StageRecord stage = small_stage(0.001);
    for (int i = 0; i < 20; ++i) {
      stage.Q[TMIn_g] = i % 2 == 0 ? ValueRange{0.2, 0.2} : ValueRange{0.0, 0.0};
      add(recipe, stage);
    }
    const Grown r = run(recipe);
    ASSERT_EQ(0, r.status) << r.error;
    for (std::size_t i = 1; i < r.model->history.t.size(); ++i)
      ASSERT_LT(r.model->history.t[i - 1], r.model->history.t[i]);
    z[t0 > 0.0] = r.model->z - r.model->z_start;
  }
  // Durations are tau: the times of the stages are rounded, but not their lengths.
  EXPECT_TRUE(close_to(z[0], z[1], 1e-12));
}

TEST(StagedRun, TheResultHardlyDependsOnTheTolerance) {
  double z[3];
  for (int k = 0; k < 3; ++k) {
    ProcessRecipe recipe = three_stages(STRESS_V_dislocation, 100.0);
    recipe.tolerance = std::pow(10.0, -5 - k);
    const Grown r = run(recipe);
    ASSERT_EQ(0, r.status) << r.error;
    z[k] = r.model->z - r.model->z_start;
  }
  EXPECT_TRUE(close_to(z[2], z[0], 1e-3));
  EXPECT_TRUE(close_to(z[2], z[1], 1e-4));
}

// A span that leads to an opening or a maximum ends there. If the event were watched for once more on the way, it might
// be found a little earlier each time, without end.
TEST(StagedRun, AnEventIsFoundOnce) {
  ProcessRecipe recipe = bare_recipe(STRESS_V_dislocation);
  recipe.vacancy_model = VACANCY_In;
  recipe.V_angle_05 = 15.0;
  recipe.scheme = SCHEME_staged;
  PrePostStageRecord substrate = small_layer(3.189);
  substrate.tau = 3600.0;
  substrate.thickness = 2000.0;
  substrate.rho_D = 1e7;
  add_pre(recipe, substrate);
  StageRecord well = small_stage(50.0);
  well.T = {1000.0, 1000.0};
  well.Q[TMIn_g] = {0.15, 0.15};
  well.disl_model = DISL_inherited;
  StageRecord barrier = small_stage(100.0);
  barrier.T = {1070.0, 1070.0};
  barrier.Q[TMIn_g] = {0.0, 0.0};
  barrier.disl_model = DISL_inherited;
  for (int period = 0; period < 6; ++period) {
    add(recipe, well);
    add(recipe, barrier);
  }
  // At most 200 steps for each of the 12 stages, and 1 for the run.
  const Grown r = run(recipe, {.max_steps = 1});
  EXPECT_EQ(0, r.status) << r.error;
  EXPECT_LT(0.0, r.model->rho_VD);
}

}  // namespace
}  // namespace vorlen_test
