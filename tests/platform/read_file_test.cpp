// The file level of the reader: what can't be opened or parsed, the form of the XML, and the locale.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

// The texts after "Error reading file" and the line and column are those of TinyXML 2.6.2.

TEST(ReadFile, AMissingFileIsReportedWithoutALine) {
  const TempFolder folder;
  const std::string path = folder.path("none.xml");
  const ReadOutcome outcome = read_recipe_file(path);
  EXPECT_EQ(outcome.status, -1);
  EXPECT_EQ(outcome.error, "Error reading file " + path + "\nFailed to open file");
}

TEST(ReadFile, ADirectoryIsReportedLikeAMissingFile) {
  const TempFolder folder;
  const ReadOutcome outcome = read_recipe_file(folder.path());
  EXPECT_EQ(outcome.status, -1);
  EXPECT_EQ(outcome.error, "Error reading file " + folder.path() + "\nFailed to open file");
}

TEST(ReadFile, AnEmptyPathIsReportedLikeAMissingFile) {
  const ReadOutcome outcome = read_recipe_file("");
  EXPECT_EQ(outcome.status, -1);
  EXPECT_EQ(outcome.error, "Error reading file \nFailed to open file");
}

TEST(ReadFile, AnEmptyFileIsReported) {
  const TempFolder folder;
  const std::string path = write_file(folder.path("empty.xml"), "");
  const ReadOutcome outcome = read_recipe_file(path);
  EXPECT_EQ(outcome.status, -1);
  EXPECT_EQ(outcome.error, "Error reading file " + path + "\nError document empty.");
}

TEST(ReadFile, MalformedXmlIsReportedWithLineAndColumnRightAfterTheText) {
  const TempFolder folder;
  // The "<" of line 3 is where an attribute is expected.
  const std::string path = write_file(folder.path("bad.xml"), "<NonstSurfChem>\n  <material val=\"InGaN\"\n</x>\n");
  const ReadOutcome outcome = read_recipe_file(path);
  EXPECT_EQ(outcome.status, -1);
  EXPECT_EQ(outcome.error, "Error reading file " + path + "\nError reading Attributes.Line:3\nColumn:1\n");
}

TEST(ReadFile, AnElementThatIsNotClosedIsReported) {
  const TempFolder folder;
  const std::string path = write_file(folder.path("bad.xml"), "<NonstSurfChem>\n <chemistry>\n</NonstSurfChem>\n");
  const ReadOutcome outcome = read_recipe_file(path);
  EXPECT_EQ(outcome.status, -1);
  EXPECT_THAT(outcome.error, testing::StartsWith("Error reading file " + path + "\nError reading end tag.Line:"));
}

TEST(ReadFile, AnotherRootIsNotARecipe) {
  const ReadOutcome outcome = read_text("<Recipe/>");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "Element NonstSurfChem is not found");
}

TEST(ReadFile, TheFirstRootOfThatNameCounts) {
  RecipeBuilder second;
  second.set("material", "AlGaN");
  std::string two = "<Other/>" + RecipeBuilder().text().substr(RecipeBuilder().text().find("<NonstSurfChem")) +
                    second.text().substr(second.text().find("<NonstSurfChem"));
  const ReadOutcome outcome = read_text(two);
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.material, vorlen::MATERIAL_InGaN);
}

TEST(ReadFile, OrderOfSiblingsTextUnknownElementsAndUnknownAttributesDoNotMatter) {
  RecipeBuilder recipe;
  recipe.remove("material").set("material", "AlInN");  // now after post_stages
  recipe.add_text("chemistry", "text is not read").set("comment", "not asked for").set("stress/unknown", "1");
  recipe.set("process_stages/stage_1/tau", "unit", "s");
  const ReadOutcome outcome = read(recipe);
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.material, vorlen::MATERIAL_AlInN);
}

TEST(ReadFile, OfTwoSiblingsWithOneNameTheFirstCounts) {
  std::string text = RecipeBuilder().text();
  const std::string original = "<tau val=\"10\" />";
  const std::size_t place = text.rfind(original);  // that of stage_1, after the pre-stage
  ASSERT_NE(place, std::string::npos);
  text.insert(place, "<tau val=\"7\"/>");
  const ReadOutcome outcome = read_text(text);
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.active_stages.at(0).tau, 7.0);
}

TEST(ReadFile, LineEndsOfOtherSystemsAndAByteOrderMarkAreTaken) {
  std::string text = "\xEF\xBB\xBF";
  for (char c : RecipeBuilder().text()) text += c == '\n' ? std::string("\r\n") : std::string(1, c);
  const ReadOutcome outcome = read_text(text);
  EXPECT_EQ(outcome.status, 0) << outcome.error;
}

// Gives the process a locale with a comma as decimal separator. False if this machine has none.
bool set_comma_locale() {
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "ru_RU.UTF-8", "nl_NL.UTF-8", "German"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) return true;
  }
  return false;
}

double parse(const char* text) { return std::strtod(text, nullptr); }

TEST(ReadFileLocale, ThePointSeparatesWhateverTheProcessHasSet) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  if (!set_comma_locale()) {
    GTEST_SKIP() << "no locale with a decimal comma is installed (de_DE.UTF-8, package locales)";
  }
  ASSERT_EQ(parse("0.5"), 0.0) << "the point ends a number in this locale";
  const ReadOutcome outcome = read(RecipeBuilder());
  const double after = parse("0,5");
  std::setlocale(LC_ALL, before.c_str());
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  EXPECT_EQ(outcome.recipe.X_ref, 0.1);
  EXPECT_EQ(outcome.recipe.active_stages.at(0).delta, 0.008);
  EXPECT_EQ(after, 0.5) << "the process's locale stays";
}

}  // namespace
}  // namespace vorlen_test
