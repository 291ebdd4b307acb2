// The exported function: pointers, buffer, texts, paths, locale.
#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <locale>
#include <string>

#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

const RecipeOptions STRESS_OFF = {.stress_model = "relax"};

class Interface : public testing::Test {
 protected:
  // A recipe that runs quickly.
  std::string good_recipe() const { return RecipeBuilder(STRESS_OFF).write(folder.path("good.xml")); }
  const TempFolder folder;
};

TEST_F(Interface, ASuccessDoesNotTouchTheBuffer) {
  const CallOutcome got = call_library(good_recipe(), folder.path("out.txt"));
  EXPECT_EQ(0, got.result);
  EXPECT_TRUE(got.untouched);
  EXPECT_TRUE(got.guarded);
  EXPECT_TRUE(std::filesystem::exists(folder.path("out.txt")));
}

TEST_F(Interface, ANullInputPathIsRejectedFirst) {
  char text[VORLEN_ERROR_BUFFER_SIZE];
  EXPECT_EQ(1, runSurfChem(nullptr, nullptr, text));
  EXPECT_STREQ("Input path is not specified", text);
  EXPECT_EQ(1, runSurfChem(nullptr, "", nullptr));
}

TEST_F(Interface, ANullOutputPathIsRejectedBeforeTheRecipeIsRead) {
  char text[VORLEN_ERROR_BUFFER_SIZE];
  EXPECT_EQ(1, runSurfChem("no such file", nullptr, text));
  EXPECT_STREQ("Output path is not specified", text);
}

TEST_F(Interface, ANullBufferIsIgnored) { EXPECT_EQ(1, runSurfChem("no such file", "", nullptr)); }

TEST_F(Interface, AnEmptyOutputPathRunsWithoutAFile) {
  EXPECT_EQ(0, call_library(good_recipe(), "").result);
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) ++files;
  EXPECT_EQ(1u, files);  // the recipe
}

TEST_F(Interface, ADirectoryAsRecipeIsReportedLikeAMissingFile) {
  const CallOutcome got = call_library(folder.path(), "");
  EXPECT_EQ(1, got.result);
  EXPECT_EQ("Error reading file " + folder.path() + "\nFailed to open file", got.text);
}

TEST_F(Interface, AnErrorOfTheReaderDoesNotTouchTheOutputFile) {
  write_file(folder.path("out.txt"), "earlier result");
  const std::string recipe = RecipeBuilder(STRESS_OFF).remove("material").write(folder.path("bad.xml"));
  EXPECT_EQ("Element NonstSurfChem:material is not found", call_library(recipe, folder.path("out.txt")).text);
  EXPECT_EQ("earlier result", read_file(folder.path("out.txt")));
}

TEST_F(Interface, AnErrorOfTheConstructionLeavesAnEmptyOutputFile) {
  write_file(folder.path("out.txt"), "earlier result");
  const std::string recipe = RecipeBuilder(STRESS_OFF)
                                 .set("pre_stages/pre_stage_1/dislocations/disl_model", "inherited")
                                 .write(folder.path("bad.xml"));
  const CallOutcome got = call_library(recipe, folder.path("out.txt"));
  EXPECT_EQ(1, got.result);  // although the code of the construction is -1
  EXPECT_EQ("Cannot inherit dislocation density for first pre-stage", got.text);
  EXPECT_EQ("", read_file(folder.path("out.txt")));
}

TEST_F(Interface, AnOutputFileThatCannotBeOpenedIsNamed) {
  const std::string output = folder.path("none/out.txt");
  const CallOutcome got = call_library(good_recipe(), output);
  EXPECT_EQ(1, got.result);
  EXPECT_EQ("Unable to open file " + output + " for writing", got.text);
  EXPECT_EQ("Unable to open file " + folder.path() + " for writing", call_library(good_recipe(), folder.path()).text);
}

TEST_F(Interface, ATransportModelWithoutALayerIsRejected) {
  const std::string recipe =
      RecipeBuilder({.stress_model = "relax", .transport_model = "InGaN_GR"}).write(folder.path("r.xml"));
  EXPECT_EQ("Transport model InGaN_GR is not supported: it defines no transport layer", call_library(recipe, "").text);
}

// A system locale with a decimal comma and grouping, if there is one, and a C++ global locale with a decimal comma,
// which needs no system locale.
struct CommaPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(Interface, TheHostsLocaleHasNoInfluence) {
  const std::string recipe = good_recipe();
  ASSERT_EQ(0, call_library(recipe, folder.path("classic.txt")).result);
  const std::string bad =
      RecipeBuilder(STRESS_OFF).set("process_stages/stage_1/tau", "x1,5").write(folder.path("bad.xml"));
  const std::string text = call_library(bad, "").text;

  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
  const char* comma = std::setlocale(LC_ALL, "de_DE.UTF-8");
  const CallOutcome run = call_library(recipe, folder.path("comma.txt"));
  const std::string same_text = call_library(bad, "").text;
  const std::string locale_after = std::setlocale(LC_ALL, nullptr);
  std::setlocale(LC_ALL, "C");
  std::locale::global(before);

  EXPECT_EQ(0, run.result);
  EXPECT_EQ(read_file(folder.path("classic.txt")), read_file(folder.path("comma.txt")));
  EXPECT_EQ(text, same_text);
  if (comma == nullptr) {
    std::cout << "locale de_DE.UTF-8 is not installed: tested with the C++ locale alone\n";
  } else {
    EXPECT_NE(std::string::npos, locale_after.find("de_DE")) << "the call changed the locale of the process";
  }
}

}  // namespace
}  // namespace vorlen_test
