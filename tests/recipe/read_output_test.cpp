// The optional element output: its value, its default, and its faults, which are reported after all others.
#include <gtest/gtest.h>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

// Reads a recipe with that element, which must not stop the reading.
ReadOutcome read_with(const std::string& xml, const char* before = "</NonstSurfChem") {
  std::string text = RecipeBuilder().text();
  ReadOutcome outcome = read_text(text.insert(text.find(before), xml));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.recipe.active_stages.size(), 1u);
  return outcome;
}

std::string detail(const std::string& word) { return "<output><detail val=\"" + word + "\"/></output>"; }

TEST(ReadOutput, IsWithoutDetailWhenNothingIsGiven) {
  for (const char* xml : {"", "<output/>", "<output> text <other/></output>", "<output detail=\"true\"/>",
                          "<detail val=\"true\"/>", "<Output><detail val=\"true\"/></Output>"}) {
    const ReadOutcome outcome = read_with(xml);
    EXPECT_FALSE(outcome.recipe.detail_output) << xml;
    EXPECT_EQ(outcome.recipe.late_fault, "") << xml;
  }
}

TEST(ReadOutput, DetailIsTrueOrFalseInAnyCase) {
  for (const char* word : {"true", "TRUE", "True"}) {
    const ReadOutcome outcome = read_with(detail(word));
    EXPECT_TRUE(outcome.recipe.detail_output) << word;
    EXPECT_EQ(outcome.recipe.late_fault, "") << word;
  }
  for (const char* word : {"false", "FALSE", "False"}) {
    const ReadOutcome outcome = read_with(detail(word));
    EXPECT_FALSE(outcome.recipe.detail_output) << word;
    EXPECT_EQ(outcome.recipe.late_fault, "") << word;
  }
}

TEST(ReadOutput, AnyOtherWordIsNotRecognized) {
  for (const std::string word : {"x", "", "1", "0", "yes", "no", " true", "true ", "truee", "{value}"}) {
    const ReadOutcome outcome = read_with(detail(word));
    EXPECT_EQ(outcome.recipe.late_fault, "Output detail \"" + word + "\" is not recognized");
    EXPECT_FALSE(outcome.recipe.detail_output) << word;
  }
}

TEST(ReadOutput, AMissingValueHasTheTextOfAllElements) {
  EXPECT_EQ(read_with("<output><detail value=\"true\"/></output>").recipe.late_fault,
            "Attribute val of element NonstSurfChem:output:detail is not found");
}

TEST(ReadOutput, ItsPlaceInTheRecipeIsFreeAndTheFirstElementCounts) {
  for (const char* before : {"<material", "<pre_stages", "</NonstSurfChem"}) {
    EXPECT_TRUE(read_with(detail("true"), before).recipe.detail_output) << before;
  }
  EXPECT_TRUE(read_with(detail("true") + detail("x")).recipe.detail_output);
  EXPECT_FALSE(read_with("<output/>" + detail("true")).recipe.detail_output);
}

TEST(ReadOutput, IsReadAfterTheIntegration) {
  const std::string bad_integration = "<integration><scheme val=\"xyz\"/></integration>";
  EXPECT_EQ(read_with(detail("x") + bad_integration).recipe.late_fault, "Integration scheme \"xyz\" is not recognized");
  const ReadOutcome outcome =
      read_with(detail("x") + "<integration><scheme val=\"staged\"/><tolerance val=\"1e-5\"/></integration>");
  EXPECT_EQ(outcome.recipe.scheme, vorlen::SCHEME_staged);
  EXPECT_EQ(outcome.recipe.tolerance, 1e-5);
  EXPECT_EQ(outcome.recipe.late_fault, "Output detail \"x\" is not recognized");
}

// The faults of everything else are returned; that of the element is not even looked for then.
TEST(ReadOutput, IsReadAfterEverythingElse) {
  std::string text = RecipeBuilder().remove("post_stages").text();
  const ReadOutcome outcome = read_text(text.insert(text.find("<material"), detail("x")));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "Element NonstSurfChem:post_stages is not found");
  EXPECT_EQ(outcome.recipe.late_fault, "");
}

}  // namespace
}  // namespace vorlen_test
