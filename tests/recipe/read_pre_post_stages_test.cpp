// Pre-stages and post-stages: every element, every limit on both sides, every message.
#include <gtest/gtest.h>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

const RecipeOptions OPTIONS = [] {
  RecipeOptions options;
  options.n_pre_stages = 2;
  options.n_post_stages = 1;
  return options;
}();

// One kind of layer: the path of its element and its label.
struct Layer {
  std::string path;
  std::string label;
};
const Layer LAYERS[] = {{"pre_stages/pre_stage_1/", "pre_stage_1"},
                        {"pre_stages/pre_stage_2/", "pre_stage_2"},
                        {"post_stages/post_stage_1/", "post_stage_1"}};

RecipeBuilder with(const Layer& layer, const std::string& child, const std::string& value) {
  return RecipeBuilder(OPTIONS).set(layer.path + child, value);
}

TEST(ReadPrePostStages, StoreEveryValueInItsField) {
  RecipeBuilder recipe(OPTIONS);
  const std::string path = "pre_stages/pre_stage_2/";
  recipe.set(path + "name", "buffer")
      .set(path + "tau", "20")
      .set(path + "GR_average", "3")
      .set(path + "thickness", "7");
  recipe.set(path + "X_In_average", "0.25").set(path + "X_Ga_average", "0.5").set(path + "X_Al_average", "0.25");
  recipe.set(path + "dislocations/rho_D", "4e8").set(path + "stress_state", "0.75");
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  ASSERT_EQ(outcome.recipe.pre_stages.size(), 2u);
  const vorlen::PrePostStageRecord& stage = outcome.recipe.pre_stages[1];
  EXPECT_EQ(stage.label, "pre_stage_2");
  EXPECT_EQ(stage.name, "buffer");
  EXPECT_EQ(stage.period, -1);
  EXPECT_EQ(stage.tau, 20.0);
  EXPECT_EQ(stage.GR_average, 3.0);
  EXPECT_EQ(stage.thickness, 7.0);
  EXPECT_EQ(stage.X_In_average, 0.25);
  EXPECT_EQ(stage.X_Ga_average, 0.5);
  EXPECT_EQ(stage.X_Al_average, 0.25);
  EXPECT_EQ(stage.disl_model, vorlen::DISL_given);
  EXPECT_EQ(stage.rho_D, 4e8);
  EXPECT_EQ(stage.stress_state, 0.75);
  EXPECT_EQ(outcome.recipe.post_stages.at(0).label, "post_stage_1");
}

TEST(ReadPrePostStages, EveryElementAndAttributeIsRequired) {
  for (const Layer& layer : LAYERS) {
    const std::string& p = layer.path;
    const std::string children[] = {p + "name",
                                    p + "tau",
                                    p + "GR_average",
                                    p + "thickness",
                                    p + "X_In_average",
                                    p + "X_Ga_average",
                                    p + "X_Al_average",
                                    p + "dislocations",
                                    p + "dislocations/disl_model",
                                    p + "dislocations/rho_D",
                                    p + "stress_state"};
    std::vector<RequiredElement> elements;
    for (const std::string& child : children) {
      const bool group = child.ends_with("dislocations");
      const bool text = child.ends_with("name") || child.ends_with("disl_model");
      std::vector<const char*> attributes;
      if (!group) attributes.push_back("val");
      elements.push_back({child.c_str(), attributes, group || text ? nullptr : "real"});
    }
    expect_all_required(OPTIONS, elements);
  }
}

TEST(ReadPrePostStages, ADurationBelow1e4IsReported) {
  for (const Layer& layer : LAYERS) {
    expect_read(with(layer, "tau", "1e-4"));
    expect_refused(with(layer, "tau", "0.9999e-4"), "Duration tau is less than 1e-4 s in " + layer.label);
  }
}

TEST(ReadPrePostStages, ANegativeGrowthRateIsReported) {
  for (const Layer& layer : LAYERS) {
    expect_read(with(layer, "GR_average", "0"));
    expect_refused(with(layer, "GR_average", "-1e-300"), "GR_average is negative in " + layer.label);
  }
}

TEST(ReadPrePostStages, AThicknessBelow1e4IsReported) {
  for (const Layer& layer : LAYERS) {
    expect_read(with(layer, "thickness", "1e-4"));
    expect_refused(with(layer, "thickness", "0.9999e-4"), "Layer thickness is less than 1e-4 nm in " + layer.label);
  }
}

TEST(ReadPrePostStages, FractionsOutsideOf0To1AreReported) {
  for (const Layer& layer : LAYERS) {
    for (const char* value : {"-1e-300", "1.0000000000000003"}) {
      expect_refused(with(layer, "X_In_average", value), "X_In_average is not between 0 and 1 in " + layer.label);
      expect_refused(with(layer, "X_Ga_average", value),
                     "X_Ga_averageX_Ga_average is not between 0 and 1 in " + layer.label);
      expect_refused(with(layer, "X_Al_average", value),
                     "X_Al_averageX_Al_average is not between 0 and 1 in " + layer.label);
    }
    // 0 and 1 themselves pass for each of the three; the sum is 1 in these.
    expect_read(with(layer, "X_In_average", "1").set(layer.path + "X_Ga_average", "0"));
    expect_read(with(layer, "X_Al_average", "1").set(layer.path + "X_Ga_average", "0"));
  }
}

TEST(ReadPrePostStages, ASumOutsideOf0_9999To1_0001IsReportedWithoutABlankBeforeTheLabel) {
  for (const Layer& layer : LAYERS) {
    const std::string text = "Sum of X_In_average, X_Ga_average, and X_Al_average is not 1.0000" + layer.label;
    expect_read(with(layer, "X_Ga_average", "0.9999"));
    expect_refused(with(layer, "X_Ga_average", "0.99989999"), text);
    expect_read(with(layer, "X_In_average", "0.0001"));
    expect_refused(with(layer, "X_In_average", "0.00010001"), text);
  }
}

TEST(ReadPrePostStages, ADislocationDensityBelow1000IsReported) {
  for (const Layer& layer : LAYERS) {
    expect_read(with(layer, "dislocations/rho_D", "1000"));
    expect_refused(with(layer, "dislocations/rho_D", "999.99"),
                   "Given dislocation density is less than 1e3 cm^-2 in " + layer.label);
  }
}

TEST(ReadPrePostStages, AnUnknownDislocationModelIsReportedWithItsFullName) {
  for (const Layer& layer : LAYERS) {
    expect_refused(with(layer, "dislocations/disl_model", "copied"),
                   "Unknown dislocation model: " + full_name(layer.path + "dislocations/disl_model"));
  }
}

TEST(ReadPrePostStages, InheritedNeedsNoDensityAndReadsNone) {
  RecipeBuilder recipe(OPTIONS);
  recipe.set("pre_stages/pre_stage_2/dislocations/disl_model", "INHERITED");
  recipe.set("pre_stages/pre_stage_2/dislocations/rho_D", "abc");
  recipe.set("post_stages/post_stage_1/dislocations/disl_model", "inherited");
  recipe.remove("post_stages/post_stage_1/dislocations/rho_D");
  const ReadOutcome outcome = read(recipe);
  ASSERT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.pre_stages[1].disl_model, vorlen::DISL_inherited);
  EXPECT_EQ(outcome.recipe.pre_stages[1].rho_D, -1.0);
  EXPECT_EQ(outcome.recipe.post_stages[0].disl_model, vorlen::DISL_inherited);
}

TEST(ReadPrePostStages, ANegativeStressStateIsReported) {
  for (const Layer& layer : LAYERS) {
    if (layer.label != "pre_stage_1") expect_read(with(layer, "stress_state", "0"));
    expect_refused(with(layer, "stress_state", "-1e-300"), "Value of stress state is negative in " + layer.label);
  }
}

TEST(ReadPrePostStages, OnlyTheFirstPreStageMustHaveALatticeConstant) {
  expect_read(with(LAYERS[1], "stress_state", "0.5"));
  expect_read(with(LAYERS[2], "stress_state", "0.5"));
}

TEST(ReadPrePostStages, TheFirstFaultInReadingOrderIsReported) {
  const char* const order[] = {"tau",          "GR_average",   "thickness",          "X_In_average",
                               "X_Ga_average", "X_Al_average", "dislocations/rho_D", "stress_state"};
  for (const Layer& layer : LAYERS) {
    RecipeBuilder recipe(OPTIONS);
    for (std::size_t i = std::size(order); i-- > 0;) {
      recipe.remove(layer.path + order[i]);
      expect_refused(recipe, "Element " + full_name(layer.path + order[i]) + " is not found");
    }
  }
}

// Reading continues after a missing name and ends at the dislocations.
TEST(ReadPrePostStages, AMissingNameGivesWayToEarlierFaultsOfTheSameStage) {
  for (const Layer& layer : LAYERS) {
    const std::string& p = layer.path;
    expect_refused(RecipeBuilder(OPTIONS).remove(p + "name").set(p + "tau", "0"),
                   "Duration tau is less than 1e-4 s in " + layer.label);
    expect_refused(RecipeBuilder(OPTIONS).remove(p + "name").remove(p + "dislocations"),
                   "Element " + full_name(p + "dislocations") + " is not found");
    expect_refused(RecipeBuilder(OPTIONS).remove(p + "name").remove(p + "dislocations/disl_model"),
                   "Element " + full_name(p + "dislocations/disl_model") + " is not found");
    expect_refused(RecipeBuilder(OPTIONS).remove(p + "name").remove_attribute(p + "dislocations/disl_model", "val"),
                   "Element " + full_name(p + "name") + " is not found");
    expect_refused(RecipeBuilder(OPTIONS).remove(p + "name").remove(p + "stress_state"),
                   "Element " + full_name(p + "name") + " is not found");
  }
}

}  // namespace
}  // namespace vorlen_test
