// The recipe level of the reader: material, chemistry, stress, transport, the counts of the three lists, and the walk.
#include <gtest/gtest.h>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

using vorlen::ProcessRecipe;

RecipeOptions thick_GaN(const std::string& reactor) {
  RecipeOptions options;
  options.transport_model = "thick_GaN";
  options.reactor = reactor;
  return options;
}

TEST(ReadRecipe, StoresEveryValueInItsField) {
  RecipeBuilder recipe(thick_GaN("TDR"));
  recipe.set("stress/cut_angle", "4").set("pre_stages/t0", "5");
  const char* const Kd[] = {"Kd_In", "Kd_Ga", "Kd_Al", "Kd_N2", "Kd_H2"};
  for (int i = 0; i < 5; ++i) {
    const std::string path = std::string("chemistry/") + Kd[i];
    recipe.set(path, "A", std::to_string(10 + i)).set(path, "Ta", std::to_string(20 + i));
    recipe.set(path, "Tn", std::to_string(30 + i));
  }
  const char* const K_plus[] = {"K_InN_plus", "K_GaN_plus", "K_AlN_plus"};
  for (int i = 0; i < 3; ++i) {
    const std::string path = std::string("chemistry/") + K_plus[i];
    recipe.set(path, "A", std::to_string(40 + i)).set(path, "Ta", std::to_string(50 + i));
    recipe.set(path, "Tn", std::to_string(60 + i));
  }
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.error, "");
  const ProcessRecipe& r = outcome.recipe;
  EXPECT_EQ(r.material, vorlen::MATERIAL_InGaN);
  EXPECT_EQ(r.vacancy_model, vorlen::VACANCY_In);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(r.Kd_A[i], 10.0 + static_cast<double>(i));
    EXPECT_EQ(r.Kd_Ta[i], 20.0 + static_cast<double>(i));
    EXPECT_EQ(r.Kd_Tn[i], 30.0 + static_cast<double>(i));
  }
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(r.K_plus_A[i], 40.0 + static_cast<double>(i));
    EXPECT_EQ(r.K_plus_Ta[i], 50.0 + static_cast<double>(i));
    EXPECT_EQ(r.K_plus_Tn[i], 60.0 + static_cast<double>(i));
  }
  EXPECT_EQ(r.stress_model, vorlen::STRESS_V_dislocation);
  EXPECT_EQ(r.cut_angle, 4.0);
  EXPECT_EQ(r.V_angle_05, 17.0);
  EXPECT_EQ(r.X_ref, 0.1);
  EXPECT_EQ(r.transport_model, vorlen::TRANSPORT_thick_GaN);
  EXPECT_EQ(r.reactor, vorlen::REACTOR_TDR);
  EXPECT_EQ(r.GR_ref, 0.5);
  EXPECT_EQ(r.P_ref, 20000.0);
  EXPECT_EQ(r.T_ref, 1300.0);
  EXPECT_EQ(r.omega_TDR_ref, 800.0);
  const std::array<double, 11> Q_ref = {0, 0, 0, 1, 0, 0, 0, 0, 1000, 8000, 5000};
  EXPECT_EQ(r.Q_ref, Q_ref);
  EXPECT_EQ(r.t0, 5.0);
  EXPECT_EQ(r.pre_stages.size(), 1u);
  EXPECT_EQ(r.active_stages.size(), 1u);
  EXPECT_TRUE(r.post_stages.empty());
}

TEST(ReadRecipe, EveryElementAndAttributeOfTheRecipeLevelIsRequired) {
  std::vector<RequiredElement> elements = {
      {"material", {"val"}, nullptr},
      {"chemistry", {}, nullptr},
      {"chemistry/vacancy_model", {"val"}, nullptr},
  };
  for (const char* constant : {"chemistry/Kd_In", "chemistry/K_InN_plus", "chemistry/Kd_Ga", "chemistry/K_GaN_plus",
                               "chemistry/Kd_Al", "chemistry/K_AlN_plus", "chemistry/Kd_N2", "chemistry/Kd_H2"}) {
    elements.push_back({constant, {"A", "Ta", "Tn"}, "real"});
  }
  elements.push_back({"stress", {}, nullptr});
  elements.push_back({"stress/model", {"val"}, nullptr});
  for (const char* real : {"stress/cut_angle", "stress/V_angle_05", "stress/X_ref"}) {
    elements.push_back({real, {"val"}, "real"});
  }
  elements.push_back({"transport", {}, nullptr});
  elements.push_back({"transport/model", {"val"}, nullptr});
  elements.push_back({"transport/parameters", {}, nullptr});
  elements.push_back({"transport/parameters/reactor", {"val"}, nullptr});
  for (const char* real : {"transport/parameters/GR_ref", "transport/parameters/P_ref", "transport/parameters/T_ref",
                           "transport/parameters/omega_TDR_ref"}) {
    elements.push_back({real, {"val"}, "real"});
  }
  elements.push_back({"transport/parameters/Q_ref", {}, nullptr});
  for (const char* real : {"transport/parameters/Q_ref/N2", "transport/parameters/Q_ref/H2",
                           "transport/parameters/Q_ref/NH3", "transport/parameters/Q_ref/TMGa"}) {
    elements.push_back({real, {"val"}, "real"});
  }
  elements.push_back({"pre_stages", {}, nullptr});
  elements.push_back({"pre_stages/t0", {"val"}, "real"});
  elements.push_back({"pre_stages/n_pre_stages", {"val"}, "integer"});
  elements.push_back({"pre_stages/pre_stage_1", {}, nullptr});
  elements.push_back({"process_stages", {}, nullptr});
  elements.push_back({"process_stages/n_stages", {"val"}, "integer"});
  elements.push_back({"process_stages/stage_1", {}, nullptr});
  elements.push_back({"post_stages", {}, nullptr});
  elements.push_back({"post_stages/n_post_stages", {"val"}, "integer"});
  expect_all_required(thick_GaN("TDR"), elements);
}

// The first fault in reading order is reported.
TEST(ReadRecipe, ReadsInItsOwnOrder) {
  const char* const order[] = {"material",
                               "chemistry/vacancy_model",
                               "chemistry/Kd_In",
                               "chemistry/K_InN_plus",
                               "chemistry/Kd_Ga",
                               "chemistry/K_GaN_plus",
                               "chemistry/Kd_Al",
                               "chemistry/K_AlN_plus",
                               "chemistry/Kd_N2",
                               "chemistry/Kd_H2",
                               "stress/model",
                               "stress/cut_angle",
                               "stress/V_angle_05",
                               "stress/X_ref",
                               "transport/model",
                               "transport/parameters/reactor",
                               "transport/parameters/GR_ref",
                               "transport/parameters/P_ref",
                               "transport/parameters/T_ref",
                               "transport/parameters/omega_TDR_ref",
                               "transport/parameters/Q_ref/N2",
                               "transport/parameters/Q_ref/H2",
                               "transport/parameters/Q_ref/NH3",
                               "transport/parameters/Q_ref/TMGa",
                               "pre_stages/t0",
                               "pre_stages/n_pre_stages",
                               "pre_stages/pre_stage_1",
                               "process_stages/n_stages",
                               "process_stages/stage_1",
                               "post_stages/n_post_stages"};
  RecipeBuilder recipe(thick_GaN("TDR"));
  // From the last to the first: the message of each removal must come before those of the later elements.
  for (std::size_t i = std::size(order); i-- > 0;) {
    recipe.remove(order[i]);
    expect_refused(recipe, "Element " + full_name(order[i]) + " is not found");
  }
}

TEST(ReadRecipe, KeywordsInAnyCaseSelectTheirValue) {
  struct Case {
    const char* text;
    std::int32_t value;
  };
  for (const Case& c : {Case{"InGaN", 0}, Case{"algan", 1}, Case{"ALINN", 2}, Case{"aLiNgAn", 3}}) {
    EXPECT_EQ(read(RecipeBuilder().set("material", c.text)).recipe.material, c.value) << c.text;
  }
  for (const Case& c :
       {Case{"vacancy_In", 0}, Case{"VACANCY_IN", 0}, Case{"vacancy_none", -1}, Case{"Vacancy_None", -1}}) {
    const ReadOutcome outcome = read(RecipeBuilder().set("chemistry/vacancy_model", c.text));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.recipe.vacancy_model, c.value) << c.text;
  }
  EXPECT_EQ(read(RecipeBuilder().set("stress/model", "v_DISLOCATION")).recipe.stress_model, 0);
  for (const Case& c : {Case{"ccs", 0}, Case{"Tdr", 1}, Case{"hFr", 2}}) {
    EXPECT_EQ(read(RecipeBuilder(thick_GaN("TDR")).set("transport/parameters/reactor", c.text)).recipe.reactor, c.value)
        << c.text;
  }
  for (const Case& c : {Case{"fixed_thickness", 0}, Case{"thick_GaN", 1}, Case{"InGaN_GR_X", 2}, Case{"InGaN_GR", 3}}) {
    RecipeOptions options;
    options.transport_model = c.text;
    RecipeBuilder recipe(options);
    EXPECT_EQ(read(recipe).recipe.transport_model, c.value) << c.text;
    std::string upper = c.text;
    for (char& letter : upper) letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    const ReadOutcome outcome = read(recipe.set("transport/model", upper));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.recipe.transport_model, c.value) << upper;
  }
}

TEST(ReadRecipe, UnknownKeywordsAreReported) {
  expect_refused(RecipeBuilder().set("material", "GaN"), "Material \"GaN\" is not recognized");
  expect_refused(RecipeBuilder().set("material", ""), "Material \"\" is not recognized");
  expect_refused(RecipeBuilder().set("chemistry/vacancy_model", "vacancy"),
                 "chemistry:vacancy_model \"vacancy\" is not recognized");
  expect_refused(RecipeBuilder().set("transport/model", "InGaN_GR_"),
                 "Transport model \"InGaN_GR_\" is not recognized");
  expect_refused(RecipeBuilder(thick_GaN("CCS")).set("transport/parameters/reactor", "XYZ"),
                 "Reactor type \"XYZ\" is not recognized");
}

TEST(ReadRecipe, AnyOtherStressModelIsTakenAsNone) {
  for (const char* model : {"relax", "none", "", "V_dislocations"}) {
    RecipeOptions options;
    options.stress_model = model;
    const ReadOutcome outcome = read(RecipeBuilder(options));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.recipe.stress_model, -1) << model;
  }
}

TEST(ReadRecipe, WithoutTheStressModelItsParametersAreNotRead) {
  RecipeOptions options;
  options.stress_model = "off";
  RecipeBuilder recipe(options);
  const ReadOutcome outcome = read(recipe.set("stress/V_angle_05", "abc").set("stress/X_ref", "0.3"));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.V_angle_05, 0.0);
  EXPECT_EQ(outcome.recipe.X_ref, -1.0);
}

TEST(ReadRecipe, OnlyReactorTDRNeedsAReferenceRotationRate) {
  for (const char* reactor : {"CCS", "HFR"}) {
    RecipeBuilder recipe(thick_GaN(reactor));
    expect_read(recipe);
    EXPECT_EQ(read(recipe.set("transport/parameters/omega_TDR_ref", "5")).recipe.omega_TDR_ref, 0.0)
        << "not read for " << reactor;
  }
}

TEST(ReadRecipe, OnlyThickGaNReadsParameters) {
  const ReadOutcome outcome = read(RecipeBuilder().set("transport/parameters/GR_ref", "abc"));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.GR_ref, 0.0);
}

TEST(ReadRecipe, TheStartTimeMustNotBeNegative) {
  expect_read(RecipeBuilder().set("pre_stages/t0", "0"));
  expect_refused(RecipeBuilder().set("pre_stages/t0", "-1e-300"), "Begin time t0 is negative");
}

TEST(ReadRecipe, NumbersOfStagesBelowTheirLimitsAreReported) {
  expect_refused(RecipeBuilder().set("pre_stages/n_pre_stages", "-1"), "Number of pre-stages is negative");
  expect_refused(RecipeBuilder().set("process_stages/n_stages", "0"), "Number of active stages should be positive");
  expect_refused(RecipeBuilder().set("process_stages/n_stages", "-1"), "Number of active stages should be positive");
  expect_refused(RecipeBuilder().set("post_stages/n_post_stages", "-1"), "Number of post-stages is negative");
}

TEST(ReadRecipe, NumbersOfStagesAbove9999AreReported) {
  for (const char* path : {"pre_stages/n_pre_stages", "process_stages/n_stages", "post_stages/n_post_stages"}) {
    expect_refused(RecipeBuilder().set(path, "10000"), "Number of stages is greater than 9999: " + full_name(path));
  }
  // 9999 passes the check, and the first missing stage is reported.
  expect_refused(RecipeBuilder().set("pre_stages/n_pre_stages", "9999"),
                 "Element NonstSurfChem:pre_stages:pre_stage_2 is not found");
  expect_refused(RecipeBuilder().set("process_stages/n_stages", "9999"),
                 "Element NonstSurfChem:process_stages:stage_2 is not found");
  expect_refused(RecipeBuilder().set("post_stages/n_post_stages", "9999"),
                 "Element NonstSurfChem:post_stages:post_stage_1 is not found");
}

TEST(ReadRecipe, WithoutPreAndPostStagesTheirElementsMustStillExist) {
  RecipeOptions options;
  options.n_pre_stages = 0;
  const RecipeBuilder recipe(options);
  expect_read(recipe);
  for (const char* path : {"pre_stages", "pre_stages/t0", "pre_stages/n_pre_stages", "post_stages"}) {
    expect_refused(RecipeBuilder(recipe).remove(path), "Element " + full_name(path) + " is not found");
  }
}

TEST(ReadRecipe, StagesBeyondTheirNumberAreIgnored) {
  RecipeOptions options;
  options.n_stages = 3;
  options.n_pre_stages = 2;
  options.n_post_stages = 2;
  RecipeBuilder recipe(options);
  recipe.set("process_stages/n_stages", "2").set("pre_stages/n_pre_stages", "1").set("post_stages/n_post_stages", "0");
  const ReadOutcome outcome = read(recipe.set("process_stages/stage_3/tau", "abc"));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages.size(), 2u);
  EXPECT_EQ(outcome.recipe.pre_stages.size(), 1u);
  EXPECT_TRUE(outcome.recipe.post_stages.empty());
}

TEST(ReadRecipe, AllStagesAreOnOneTimeAxis) {
  RecipeOptions options;
  options.n_pre_stages = 2;
  options.n_stages = 2;
  options.n_post_stages = 2;
  const ReadOutcome outcome = read(RecipeBuilder(options).set("pre_stages/t0", "5"));
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  double time = 5.0;  // every stage of the built recipe takes 10 s
  const auto expect_next = [&](const auto& stage) {
    EXPECT_EQ(stage.begin_time(), time) << stage.label;
    time += 10.0;
    EXPECT_EQ(stage.end_time(), time) << stage.label;
  };
  for (const auto& stage : outcome.recipe.pre_stages) expect_next(stage);
  for (const auto& stage : outcome.recipe.active_stages) expect_next(stage);
  for (const auto& stage : outcome.recipe.post_stages) expect_next(stage);
  EXPECT_EQ(time, 65.0);
}

TEST(ReadRecipe, ANumberMayHaveLeadingBlanksAndEndsAtTheFirstOtherCharacter) {
  // The forms that the pattern %lf takes in the C locale.
  for (const auto& [text, value] : {std::pair{"  12", 12.0}, std::pair{"12abc", 12.0}, std::pair{"1e-3 K", 1e-3},
                                    std::pair{"1,5", 1.0}, std::pair{"0x10", 16.0}}) {
    const ReadOutcome outcome = read(RecipeBuilder().set("pre_stages/t0", text));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.recipe.t0, value) << text;
  }
  EXPECT_EQ(read(RecipeBuilder().set("pre_stages/t0", "")).error,
            "Failed to get real number from value \"\" of attribute val in element NonstSurfChem:pre_stages:t0");
}

TEST(ReadRecipe, AnIntegerMayHaveLeadingBlanksAndEndsAtTheFirstOtherCharacter) {
  RecipeOptions options;
  options.n_stages = 2;
  for (const char* text : {" 2", "2.9", "2abc"}) {
    const ReadOutcome outcome = read(RecipeBuilder(options).set("process_stages/n_stages", text));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.recipe.active_stages.size(), 2u) << text;
  }
  EXPECT_EQ(read(RecipeBuilder(options).set("process_stages/n_stages", " -3abc")).error,
            "Number of active stages should be positive");
}

TEST(ReadRecipe, NaNPassesTheReadersLimits) {
  const ReadOutcome outcome = read(RecipeBuilder()
                                       .set("pre_stages/t0", "nan")
                                       .set("process_stages/stage_1/tau", "nan")
                                       .set("process_stages/stage_1/delta", "nan"));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  std::string error;
  EXPECT_FALSE(outcome.recipe.validate_recipe(error));
  EXPECT_EQ(error, "Begin time is not specified");
}

// The reader stops with a message but without a failure; the validation then finds no active stage.
TEST(ReadRecipe, ARelaxationDegreeInTheFirstPreStageEndsTheReadingWith0) {
  const ReadOutcome outcome = read(RecipeBuilder().set("pre_stages/pre_stage_1/stress_state", "1"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error,
            "Provide lattice constant 'a' for first pre-stage, not the relaxation degree: stress_state should be > 1");
  EXPECT_EQ(outcome.recipe.pre_stages.size(), 1u);
  EXPECT_TRUE(outcome.recipe.active_stages.empty());
  std::string error;
  EXPECT_FALSE(outcome.recipe.validate_recipe(error));
  EXPECT_EQ(error, "Number of stages is zero");
}

TEST(ReadRecipe, AFirstPreStageOfExactly1_0000000001IsALatticeConstant) {
  const ReadOutcome outcome = read(RecipeBuilder().set("pre_stages/pre_stage_1/stress_state", "1.0000000001"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.recipe.active_stages.size(), 1u);
}

}  // namespace
}  // namespace vorlen_test
