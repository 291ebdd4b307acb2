// Active stages: every element, every limit on both sides, every message, each transport model, and periodic stages.
#include <gtest/gtest.h>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

const std::string STAGE = "process_stages/stage_1/";

RecipeOptions with_transport(const std::string& model, const std::string& reactor = "TDR") {
  RecipeOptions options;
  options.transport_model = model;
  options.reactor = reactor;
  return options;
}

RecipeOptions without_stress() {
  RecipeOptions options;
  options.stress_model = "off";
  return options;
}

// Each single value at the limit passes, each single value beyond it gives the message.
void expect_limit(const RecipeOptions& options, const std::string& child, const std::vector<const char*>& attributes,
                  const char* limit, const char* beyond, const std::string& text) {
  for (const char* attribute : attributes) {
    expect_read(RecipeBuilder(options).set(STAGE + child, attribute, limit));
    expect_refused(RecipeBuilder(options).set(STAGE + child, attribute, beyond), text);
  }
}

const std::vector<const char*> VAL = {"val"};
const std::vector<const char*> VAL_END = {"val", "end"};
const char* const FLOWS[] = {"TMIn", "TMGa", "TEGa", "TMAl", "N2", "NH3", "H2"};  // in reading order

TEST(ReadStages, StoreEveryValueInItsField) {
  RecipeBuilder recipe(without_stress());
  recipe.set(STAGE + "name", "well").set(STAGE + "tau", "30").set(STAGE + "delta", "0.005");
  recipe.set_range(STAGE + "T", "1000", "1001").set_range(STAGE + "P", "10000", "10001");
  recipe.set_range(STAGE + "dislocations/rho_D", "1e8", "2e8");
  for (std::size_t i = 0; i < 7; ++i) {
    recipe.set_range(STAGE + "gas_species/Q/" + FLOWS[i], std::to_string(i), std::to_string(10 + i));
  }
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  ASSERT_EQ(outcome.recipe.active_stages.size(), 1u);
  const vorlen::StageRecord& stage = outcome.recipe.active_stages[0];
  EXPECT_EQ(stage.label, "stage_1");
  EXPECT_EQ(stage.name, "well");
  EXPECT_EQ(stage.period, -1);
  EXPECT_EQ(stage.tau, 30.0);
  EXPECT_EQ(stage.T.val, 1000.0);
  EXPECT_EQ(stage.T.end, 1001.0);
  EXPECT_EQ(stage.P.val, 10000.0);
  EXPECT_EQ(stage.P.end, 10001.0);
  EXPECT_EQ(stage.disl_model, vorlen::DISL_given);
  EXPECT_EQ(stage.rho_D.val, 1e8);
  EXPECT_EQ(stage.rho_D.end, 2e8);
  EXPECT_EQ(stage.delta, 0.005);
  const int index[] = {0, 3, 5, 7, 8, 10, 9};  // flow numbers of FLOWS
  for (std::size_t i = 0; i < 7; ++i) {
    const vorlen::ValueRange& flow = stage.Q[static_cast<std::size_t>(index[i])];
    EXPECT_EQ(flow.val, static_cast<double>(i)) << FLOWS[i];
    EXPECT_EQ(flow.end, static_cast<double>(10 + i)) << FLOWS[i];
  }
  for (std::size_t absent : {1u, 2u, 4u, 6u}) EXPECT_TRUE(stage.Q[absent].undefined());
  EXPECT_TRUE(stage.flows_vary);
  EXPECT_TRUE(outcome.recipe.conditions_vary);
}

TEST(ReadStages, EveryElementAndAttributeIsRequired) {
  std::vector<std::string> paths;
  std::vector<RequiredElement> elements;
  paths.reserve(32);  // the elements point into the strings
  const auto add = [&](const std::string& child, const std::vector<const char*>& attributes, const char* number,
                       const char* suffix) {
    paths.push_back(STAGE + child);
    elements.push_back({paths.back().c_str(), attributes, number, suffix});
  };
  add("name", VAL, nullptr, "");
  add("tau", VAL, "real", "");
  add("T", VAL_END, "real", "");
  add("P", VAL_END, "real", "");
  add("dislocations", {}, nullptr, "");
  add("dislocations/disl_model", VAL, nullptr, "");
  add("dislocations/rho_D", VAL_END, "real", "");
  add("delta", VAL, "real", " (model fixed_thickness)");
  add("gas_species", {}, nullptr, "");
  add("gas_species/Q", {}, nullptr, "");
  for (const char* flow : FLOWS) add(std::string("gas_species/Q/") + flow, VAL_END, "real", "");
  expect_all_required(without_stress(), elements);
}

TEST(ReadStages, EveryElementOfTheOtherTransportModelsIsRequiredAndItsMessagesNameTheModel) {
  const std::string omega = STAGE + "omega_TDR";
  const std::string GR = STAGE + "GR_average";
  const std::string XIn = STAGE + "XIn_average";
  const std::string XAl = STAGE + "XAl_average";
  expect_all_required(with_transport("thick_GaN"), {{omega.c_str(), VAL_END, "real", " (model thick_GaN)"}});
  expect_all_required(with_transport("InGaN_GR"), {{GR.c_str(), VAL, "real", " (model InGaN_GR)"}});
  expect_all_required(with_transport("InGaN_GR_X"), {{GR.c_str(), VAL, "real", " (model InGaN_GR_X)"},
                                                     {XIn.c_str(), VAL, "real", " (model InGaN_GR_X)"},
                                                     {XAl.c_str(), VAL, "real", " (model InGaN_GR_X)"}});
}

TEST(ReadStages, TheSuffixHasTheModelsOwnSpellingWhateverTheFilesCase) {
  expect_refused(RecipeBuilder().set("transport/model", "FIXED_THICKNESS").remove(STAGE + "delta"),
                 "Element NonstSurfChem:process_stages:stage_1:delta is not found (model fixed_thickness)");
}

TEST(ReadStages, FlowMessagesHaveNoSuffix) {
  expect_refused(RecipeBuilder(with_transport("InGaN_GR_X")).remove(STAGE + "gas_species"),
                 "Element NonstSurfChem:process_stages:stage_1:gas_species is not found");
}

TEST(ReadStages, DurationTemperatureAndPressureHaveLowerLimits) {
  expect_limit({}, "tau", VAL, "1e-4", "0.9999e-4", "Duration tau is less than 1e-4 s in stage_1");
  expect_limit({}, "T", VAL_END, "1e-4", "0.9999e-4", "Very low or negative temperature in stage_1");
  expect_limit({}, "P", VAL_END, "1", "0.9999", "Very low or negative pressure in stage_1");
}

TEST(ReadStages, AGivenDislocationDensityHasALowerLimit) {
  expect_limit(without_stress(), "dislocations/rho_D", VAL_END, "1000", "999.99",
               "Given dislocation density is less than 1e3 cm^-2 in stage_1");
}

TEST(ReadStages, AnUnknownDislocationModelIsReportedWithItsFullName) {
  expect_refused(RecipeBuilder(without_stress()).set(STAGE + "dislocations/disl_model", "copied"),
                 "Unknown dislocation model: NonstSurfChem:process_stages:stage_1:dislocations:disl_model");
}

TEST(ReadStages, InheritedNeedsNoDensity) {
  RecipeBuilder recipe(without_stress());
  recipe.set(STAGE + "dislocations/disl_model", "Inherited").remove(STAGE + "dislocations/rho_D");
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages[0].disl_model, vorlen::DISL_inherited);
  EXPECT_EQ(outcome.recipe.active_stages[0].rho_D.val, -1.0);
}

TEST(ReadStages, UnderTheStressModelDislocationsAreIgnored) {
  const ReadOutcome outcome = read(RecipeBuilder().set(STAGE + "dislocations/disl_model", "nonsense"));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages.at(0).disl_model, -1);
}

TEST(ReadStages, TransportChildrenHaveLimits) {
  expect_limit({}, "delta", VAL, "1e-6", "0.9999e-6", "delta is less than 1e-6 m in stage_1 (model fixed_thickness)");
  expect_limit(with_transport("thick_GaN"), "omega_TDR", VAL_END, "1", "0.9999",
               "omega_TDR is less than 1 rpm in stage_1 (model thick_GaN)");
  expect_limit(with_transport("InGaN_GR"), "GR_average", VAL, "1e-5", "0.9999e-5",
               "GR_average is less than 1e-5 mkm/hr in stage_1 (model InGaN_GR)");
  expect_limit(with_transport("InGaN_GR_X"), "GR_average", VAL, "1e-5", "0.9999e-5",
               "GR_average is less than 1e-5 mkm/hr in stage_1 (model InGaN_GR_X)");
  for (const char* fraction : {"XIn_average", "XAl_average"}) {
    const std::string text = std::string(fraction) + " should be between 0 and 1 in stage_1 (model InGaN_GR_X)";
    expect_limit(with_transport("InGaN_GR_X"), fraction, VAL, "1e-10", "0.9999e-10", text);
    expect_limit(with_transport("InGaN_GR_X"), fraction, VAL, "0.99999", "0.999991", text);
  }
}

TEST(ReadStages, AnAluminiumFractionOf0IsRejectedWhateverTheMaterial) {
  expect_refused(RecipeBuilder(with_transport("InGaN_GR_X")).set(STAGE + "XAl_average", "0"),
                 "XAl_average should be between 0 and 1 in stage_1 (model InGaN_GR_X)");
}

TEST(ReadStages, EachModelReadsItsOwnChildrenOnly) {
  for (const char* reactor : {"CCS", "HFR"}) {
    RecipeBuilder recipe(with_transport("thick_GaN", reactor));
    const ReadOutcome outcome = read(recipe.set_range(STAGE + "omega_TDR", "abc", "abc"));
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.recipe.active_stages.at(0).omega_TDR.val, -1.0);
  }
  const ReadOutcome InGaN_GR = read(RecipeBuilder(with_transport("InGaN_GR")).set(STAGE + "XIn_average", "abc"));
  EXPECT_EQ(InGaN_GR.status, 0) << InGaN_GR.error;
  EXPECT_EQ(InGaN_GR.recipe.active_stages.at(0).XIn_average, -1.0);
  EXPECT_EQ(InGaN_GR.recipe.active_stages.at(0).XAl_average, 0.0);
  const ReadOutcome fixed = read(RecipeBuilder().set(STAGE + "GR_average", "abc"));
  EXPECT_EQ(fixed.status, 0) << fixed.error;
  EXPECT_EQ(fixed.recipe.active_stages.at(0).GR_average, -1e20);
}

TEST(ReadStages, AFlowFromMinus1e10UpTo0CountsAs0) {
  for (const char* flow : FLOWS) {
    const std::string child = std::string("gas_species/Q/") + flow;
    expect_limit({}, child, VAL_END, "-1e-10", "-1e-9",
                 std::string("Negative input value for species ") + flow + " in stage_1");
  }
  const ReadOutcome outcome = read(RecipeBuilder().set_range(STAGE + "gas_species/Q/TMAl", "-1e-11", "-1e-11"));
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages[0].Q[7].val, 0.0);
  EXPECT_EQ(outcome.recipe.active_stages[0].Q[7].end, 0.0);
}

TEST(ReadStages, TheFirstFaultInReadingOrderIsReported) {
  const char* const order[] = {"tau",
                               "T",
                               "P",
                               "dislocations",
                               "delta",
                               "gas_species/Q/TMIn",
                               "gas_species/Q/TMGa",
                               "gas_species/Q/TEGa",
                               "gas_species/Q/TMAl",
                               "gas_species/Q/N2",
                               "gas_species/Q/NH3",
                               "gas_species/Q/H2"};
  RecipeBuilder recipe(without_stress());
  for (std::size_t i = std::size(order); i-- > 0;) {
    recipe.remove(STAGE + order[i]);
    const std::string suffix = std::string(order[i]) == "delta" ? " (model fixed_thickness)" : "";
    expect_refused(recipe, "Element " + full_name(STAGE + order[i]) + " is not found" + suffix);
  }
}

TEST(ReadStages, UnderTheStressModelAMissingNameIsNotAFault) {
  const ReadOutcome outcome = read(RecipeBuilder().remove(STAGE + "name"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.recipe.active_stages.at(0).name, "");
}

TEST(ReadStages, ANameWithoutValEndsTheReading) {
  expect_refused(RecipeBuilder().remove_attribute(STAGE + "name", "val"),
                 "Attribute val of element NonstSurfChem:process_stages:stage_1:name is not found");
}

TEST(ReadStages, WithoutTheStressModelAMissingNameEndsTheReadingAtTheDislocations) {
  const std::string name = "Element NonstSurfChem:process_stages:stage_1:name is not found";
  const std::string model = "Element NonstSurfChem:process_stages:stage_1:dislocations:disl_model is not found";
  const auto nameless = [] { return RecipeBuilder(without_stress()).remove(STAGE + "name"); };
  expect_refused(nameless(), name);
  expect_refused(nameless().remove(STAGE + "delta"), name);
  expect_refused(nameless().remove_attribute(STAGE + "dislocations/disl_model", "val"), name);
  expect_refused(nameless().set(STAGE + "dislocations/disl_model", "nonsense"), name);
  expect_refused(nameless().remove(STAGE + "dislocations/disl_model"), model);
  expect_refused(nameless().set(STAGE + "tau", "0"), "Duration tau is less than 1e-4 s in stage_1");
}

TEST(ReadStages, WithoutTypeAStageIsSingleAndLeavesNoError) {
  const ReadOutcome outcome = read(RecipeBuilder());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.recipe.active_stages.at(0).period, -1);
}

TEST(ReadStages, TypeIsSingleOrPeriodicInAnyCase) {
  expect_read(RecipeBuilder().set(STAGE + "type", "SINGLE"));
  expect_read(RecipeBuilder().make_periodic(1, 2, 1).set(STAGE + "type", "Periodic"));
  expect_refused(RecipeBuilder().set(STAGE + "type", "double"),
                 "Stage type can be either \"single\" or \"periodic\": NonstSurfChem:process_stages:stage_1:type");
  expect_refused(RecipeBuilder().set(STAGE + "type", "val", "x").remove_attribute(STAGE + "type", "val"),
                 "Attribute val of element NonstSurfChem:process_stages:stage_1:type is not found");
}

TEST(ReadPeriodicStages, AreExpandedPeriodByPeriod) {
  RecipeOptions options;
  options.n_stages = 3;
  options.n_pre_stages = 0;
  RecipeBuilder recipe(options);
  recipe.make_periodic(2, 3, 2);
  recipe.set("process_stages/stage_2/stage_2_1/tau", "1").set("process_stages/stage_2/stage_2_2/tau", "2");
  recipe.set_range("process_stages/stage_2/stage_2_2/T", "1040", "1040");
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.error, "");
  struct Expected {
    const char* label;
    std::int32_t period;
    double begin, end;
  };
  const Expected expected[] = {{"stage_1", -1, 0, 10},   {"stage_2_1", 1, 10, 11}, {"stage_2_2", 1, 11, 13},
                               {"stage_2_1", 2, 13, 14}, {"stage_2_2", 2, 14, 16}, {"stage_2_1", 3, 16, 17},
                               {"stage_2_2", 3, 17, 19}, {"stage_3", -1, 19, 29}};
  ASSERT_EQ(outcome.recipe.active_stages.size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    const vorlen::StageRecord& stage = outcome.recipe.active_stages[i];
    EXPECT_EQ(stage.label, expected[i].label) << i;
    EXPECT_EQ(stage.period, expected[i].period) << i;
    EXPECT_EQ(stage.begin_time(), expected[i].begin) << i;
    EXPECT_EQ(stage.end_time(), expected[i].end) << i;
  }
  EXPECT_TRUE(outcome.recipe.conditions_vary);
}

// Flows that change within the period make the first sub-stage of the next period differ from the last of this one.
TEST(ReadPeriodicStages, TheFirstSubStageIsComparedWithTheLastOfThePeriodBefore) {
  RecipeBuilder recipe;
  recipe.make_periodic(1, 2, 2).set_range(STAGE + "stage_1_2/gas_species/Q/TMIn", "0", "0");
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  ASSERT_EQ(outcome.recipe.active_stages.size(), 4u);
  EXPECT_FALSE(outcome.recipe.active_stages[0].flows_vary);
  for (std::size_t i = 1; i < 4; ++i) EXPECT_TRUE(outcome.recipe.active_stages[i].flows_vary) << i;
}

TEST(ReadPeriodicStages, CarryNothingButTypeAndCounts) {
  RecipeBuilder recipe;
  recipe.make_periodic(1, 2, 1).set(STAGE + "name", "x").remove_attribute(STAGE + "name", "val");
  expect_read(recipe.set(STAGE + "tau", "abc").set(STAGE + "dislocations/disl_model", "nonsense"));
}

TEST(ReadPeriodicStages, EveryElementIsRequired) {
  for (const char* count : {"n_periods", "n_stages"}) {
    const std::string name = full_name(STAGE + count);
    const auto periodic = [] { return RecipeBuilder().make_periodic(1, 2, 1); };
    expect_refused(periodic().remove(STAGE + count), "Element " + name + " is not found");
    expect_refused(periodic().remove_attribute(STAGE + count, "val"),
                   "Attribute val of element " + name + " is not found");
    expect_refused(periodic().set(STAGE + count, "abc"),
                   "Failed to get integer number from value \"abc\" of attribute val in element " + name);
  }
  expect_refused(RecipeBuilder().make_periodic(1, 2, 2).remove(STAGE + "stage_1_2"),
                 "Element NonstSurfChem:process_stages:stage_1:stage_1_2 is not found");
}

TEST(ReadPeriodicStages, MessagesNameTheSubStage) {
  RecipeBuilder recipe;
  recipe.make_periodic(1, 2, 2);
  expect_refused(RecipeBuilder(recipe).set(STAGE + "stage_1_2/tau", "0"),
                 "Duration tau is less than 1e-4 s in stage_1_2");
  expect_refused(RecipeBuilder(recipe).remove(STAGE + "stage_1_2/delta"),
                 "Element NonstSurfChem:process_stages:stage_1:stage_1_2:delta is not found (model fixed_thickness)");
}

TEST(ReadPeriodicStages, AreNotNested) {
  RecipeBuilder recipe;
  recipe.make_periodic(1, 2, 2).set(STAGE + "stage_1_2/type", "PERIODIC");
  expect_refused(recipe,
                 "Nested periodic stages are not supported: NonstSurfChem:process_stages:stage_1:stage_1_2:type");
  expect_refused(recipe.set(STAGE + "stage_1_2/type", "triple"),
                 "Stage type can be either \"single\" or \"periodic\": "
                 "NonstSurfChem:process_stages:stage_1:stage_1_2:type");
}

// The message is that of a stage without name and duration.
TEST(ReadPeriodicStages, CountsBelow1GiveAnEmptyStage) {
  for (const char* count : {"n_periods", "n_stages"}) {
    for (const char* value : {"0", "-1"}) {
      expect_refused(RecipeBuilder().make_periodic(1, 2, 1).set(STAGE + count, value),
                     "Active stage  is not set correctly. Stage duration is zero or not specified");
    }
  }
}

TEST(ReadPeriodicStages, SubStagesAbove9999AreReported) {
  const auto periodic = [] { return RecipeBuilder().make_periodic(1, 2, 1); };
  expect_refused(periodic().set(STAGE + "n_stages", "10000"),
                 "Number of stages is greater than 9999: NonstSurfChem:process_stages:stage_1:n_stages");
  expect_refused(periodic().set(STAGE + "n_stages", "9999"),
                 "Element NonstSurfChem:process_stages:stage_1:stage_1_2 is not found");
}

TEST(ReadPeriodicStages, PeriodsAreLimitedByTheTotalOfStagesOnly) {
  RecipeOptions options;
  options.n_stages = 2;
  const auto total = [&](int n_periods, int n_sub_stages) {
    return RecipeBuilder(options).make_periodic(2, n_periods, n_sub_stages);
  };
  const ReadOutcome many = read(total(10000, 1));
  EXPECT_EQ(many.status, 0) << many.error;
  EXPECT_EQ(many.recipe.active_stages.size(), 10001u);
  const std::string text = "Number of active stages is greater than 1000000";
  // stage_1 counts: 1 + 999999 is the most.
  expect_refused(total(1000000, 1), text);
  // 2 * 2147483647 is -2 in 32 bits.
  expect_refused(total(2147483647, 2), text);
}

TEST(ReadPeriodicStages, OneMillionStagesPass) {
  RecipeOptions options;
  options.n_stages = 2;
  const ReadOutcome outcome = read(RecipeBuilder(options).make_periodic(2, 999999, 1));
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages.size(), 1000000u);
}

TEST(ReadPeriodicStages, NamesThatWouldFillTheMemoryAreRejected) {
  const auto named = [](std::size_t length, int n_periods) {
    return RecipeBuilder().make_periodic(1, n_periods, 1).set(STAGE + "stage_1_1/name", std::string(length, 'x'));
  };
  // 256 MiB are 4096 names of 64 KiB.
  expect_read(named(1 << 16, 4096));
  expect_refused(named(1 << 16, 4097),
                 "Names of all periods take more than 256 MiB: NonstSurfChem:process_stages:stage_1");
}

TEST(ReadPeriodicStages, NamesOfAllPeriodicStagesCountTogether) {
  RecipeOptions options;
  options.n_stages = 10;
  RecipeBuilder recipe(options);
  for (int i = 1; i <= 10; ++i) {
    const std::string stage = "stage_" + std::to_string(i);
    recipe.make_periodic(i, 512, 1);  // 32 MiB of names in each
    recipe.set("process_stages/" + stage + "/" + stage + "_1/name", std::string(1 << 16, 'x'));
  }
  expect_refused(recipe, "Names of all periods take more than 256 MiB: NonstSurfChem:process_stages:stage_9");
  expect_read(recipe.set("process_stages/n_stages", "8"));
}

TEST(ReadPeriodicStages, NamesOfTheLargestCountsAreAddedUp) {
  // 9999 bytes times 999999 periods are more than 32 bits hold.
  expect_refused(RecipeBuilder().make_periodic(1, 999999, 1).set(STAGE + "stage_1_1/name", std::string(9999, 'x')),
                 "Names of all periods take more than 256 MiB: NonstSurfChem:process_stages:stage_1");
}

TEST(ReadPeriodicStages, ABadSubStageIsReportedBeforeTheTotal) {
  expect_refused(RecipeBuilder().make_periodic(1, 2147483647, 1).set(STAGE + "stage_1_1/tau", "0"),
                 "Duration tau is less than 1e-4 s in stage_1_1");
}

}  // namespace
}  // namespace vorlen_test
