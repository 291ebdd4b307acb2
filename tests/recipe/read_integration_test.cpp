// The optional element integration: its values, its defaults, and its faults, which are kept apart from the others.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

using vorlen::SCHEME_continuous;
using vorlen::SCHEME_staged;

// The recipe with xml placed before its first element, in the middle, or after its last element.
enum class Place { first, middle, last };
std::string text_with(const std::string& xml, Place place = Place::last) {
  std::string text = RecipeBuilder().text();
  const char* before = place == Place::first ? "<material" : place == Place::middle ? "<pre_stages" : "</NonstSurfChem";
  return text.insert(text.find(before), xml);
}

// Reads a recipe with that element, which must not stop the reading.
ReadOutcome read_with(const std::string& xml, Place place = Place::last) {
  ReadOutcome outcome = read_text(text_with(xml, place));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.recipe.active_stages.size(), 1u);
  return outcome;
}

std::string fault_of(const std::string& xml) { return read_with(xml).recipe.late_fault; }

ReadOutcome read_scheme(const std::string& word) { return read(RecipeBuilder().set("integration/scheme", word)); }

ReadOutcome read_tolerance(const std::string& text, const std::string& scheme = "staged") {
  return read(RecipeBuilder().set("integration/scheme", scheme).set("integration/tolerance", text));
}

// The next double after value towards other, with all its digits.
std::string next_to(double value, double other) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", std::nextafter(value, other));
  return text;
}

constexpr const char* OUT_OF_RANGE = "Integration tolerance is beyond [1e-10;1e-3]";

TEST(ReadIntegration, IsContinuousWith1eMinus6WhenNothingIsGiven) {
  for (const char* xml :
       {"", "<integration/>", "<integration></integration>", "<integration> text <other/></integration>",
        "<integration scheme=\"staged\" tolerance=\"2\"/>"}) {
    const ReadOutcome outcome = read_with(xml);
    EXPECT_EQ(outcome.recipe.scheme, SCHEME_continuous) << xml;
    EXPECT_EQ(outcome.recipe.tolerance, 1e-6) << xml;
    EXPECT_EQ(outcome.recipe.late_fault, "") << xml;
  }
}

TEST(ReadIntegration, TheSchemeIsOneOfTwoWordsInAnyCase) {
  struct Case {
    const char* word;
    std::int32_t value;
  };
  for (const Case& c : {Case{"continuous", SCHEME_continuous}, Case{"CONTINUOUS", SCHEME_continuous},
                        Case{"staged", SCHEME_staged}, Case{"Staged", SCHEME_staged}, Case{"sTAGED", SCHEME_staged}}) {
    const ReadOutcome outcome = read_scheme(c.word);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.recipe.scheme, c.value) << c.word;
    EXPECT_EQ(outcome.recipe.tolerance, 1e-6) << c.word;
    EXPECT_EQ(outcome.recipe.late_fault, "") << c.word;
  }
}

TEST(ReadIntegration, AnyOtherWordIsNotRecognized) {
  for (const std::string word : {"xyz", "", "stage", "stagedd", " staged", "staged ", "0", "1"}) {
    EXPECT_EQ(read_scheme(word).recipe.late_fault, "Integration scheme \"" + word + "\" is not recognized");
  }
}

TEST(ReadIntegration, TheToleranceIsReadUnderBothSchemesAndWithoutOne) {
  EXPECT_EQ(read_tolerance("1e-8").recipe.tolerance, 1e-8);
  EXPECT_EQ(read_tolerance("0.00025", "continuous").recipe.tolerance, 0.00025);
  const ReadOutcome alone = read_with("<integration><tolerance val=\"2e-5\"/></integration>");
  EXPECT_EQ(alone.recipe.tolerance, 2e-5);
  EXPECT_EQ(alone.recipe.scheme, SCHEME_continuous);
  EXPECT_EQ(alone.recipe.late_fault, "");
  EXPECT_EQ(read_tolerance(" 1e-5 relative").recipe.tolerance, 1e-5) << "as every number";
}

TEST(ReadIntegration, TheLimitsOfTheToleranceAreAllowedAndTheirNeighboursNot) {
  for (const std::string& inside :
       {std::string("1e-10"), std::string("1e-3"), std::string("0.001"), next_to(1e-10, 1.0), next_to(1e-3, 0.0)}) {
    EXPECT_EQ(read_tolerance(inside).recipe.late_fault, "") << inside;
  }
  for (const std::string& outside :
       {next_to(1e-10, 0.0), next_to(1e-3, 1.0), std::string("0"), std::string("-1e-6"), std::string("1"),
        std::string("inf"), std::string("-inf"), std::string("1e-400"), std::string("1e400")}) {
    EXPECT_EQ(read_tolerance(outside).recipe.late_fault, OUT_OF_RANGE) << outside;
    EXPECT_EQ(read_tolerance(outside, "continuous").recipe.late_fault, OUT_OF_RANGE) << outside;
  }
}

TEST(ReadIntegration, ANaNToleranceIsOutOfRange) {
  for (const char* nan : {"nan", "-nan", "NaN"}) {
    EXPECT_EQ(read_tolerance(nan).recipe.late_fault, OUT_OF_RANGE) << nan;
  }
}

TEST(ReadIntegration, AttributesAndNumbersHaveTheTextsOfAllElements) {
  EXPECT_EQ(fault_of("<integration><scheme/></integration>"),
            "Attribute val of element NonstSurfChem:integration:scheme is not found");
  EXPECT_EQ(fault_of("<integration><tolerance value=\"1e-5\"/></integration>"),
            "Attribute val of element NonstSurfChem:integration:tolerance is not found");
  for (const std::string text : {"", "abc", "e-6", ","}) {
    EXPECT_EQ(read_tolerance(text).recipe.late_fault,
              "Failed to get real number from value \"" + text +
                  "\" of attribute val in element NonstSurfChem:integration:tolerance");
  }
}

TEST(ReadIntegration, TheSchemeIsReadBeforeTheTolerance) {
  const std::string both = "<integration><tolerance val=\"1\"/><scheme val=\"xyz\"/></integration>";
  EXPECT_EQ(fault_of(both), "Integration scheme \"xyz\" is not recognized");
  EXPECT_EQ(fault_of("<integration><tolerance val=\"1\"/><scheme val=\"staged\"/></integration>"), OUT_OF_RANGE);
}

TEST(ReadIntegration, OfTwoElementsWithOneNameTheFirstCounts) {
  const ReadOutcome schemes = read_with(
      "<integration><scheme val=\"staged\"/><scheme val=\"xyz\"/><tolerance val=\"1e-4\"/><tolerance/></integration>");
  EXPECT_EQ(schemes.recipe.scheme, SCHEME_staged);
  EXPECT_EQ(schemes.recipe.tolerance, 1e-4);
  EXPECT_EQ(schemes.recipe.late_fault, "");
  const ReadOutcome elements = read_with("<integration/><integration><scheme val=\"staged\"/></integration>");
  EXPECT_EQ(elements.recipe.scheme, SCHEME_continuous);
}

TEST(ReadIntegration, ItsPlaceInTheRecipeIsFree) {
  for (const Place place : {Place::first, Place::middle, Place::last}) {
    const ReadOutcome outcome =
        read_with("<integration><tolerance val=\"1e-7\"/><scheme val=\"staged\"/></integration>", place);
    EXPECT_EQ(outcome.recipe.scheme, SCHEME_staged);
    EXPECT_EQ(outcome.recipe.tolerance, 1e-7);
  }
}

TEST(ReadIntegration, OutsideOfItsElementNothingIsRead) {
  std::string text =
      text_with("<scheme val=\"staged\"/><tolerance val=\"1\"/><Integration><scheme val=\"x\"/></Integration>");
  text.insert(text.find("<cut_angle"), "<integration><scheme val=\"staged\"/></integration>");
  const ReadOutcome outcome = read_text(text);
  EXPECT_EQ(outcome.recipe.scheme, SCHEME_continuous);
  EXPECT_EQ(outcome.recipe.late_fault, "");
}

// The faults of everything else are returned; that of the element is not even looked for then.
TEST(ReadIntegration, IsReadAfterEverythingElse) {
  RecipeBuilder recipe;
  recipe.set("integration/scheme", "xyz").remove("post_stages");
  const ReadOutcome outcome = read(recipe);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "Element NonstSurfChem:post_stages is not found");
  EXPECT_EQ(outcome.recipe.late_fault, "");
}

}  // namespace
}  // namespace vorlen_test
