// Errors in the element integration: they end the call before the first step, but any other error in the recipe or of
// the output file is reported instead.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "api/run_support.h"
#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr const char* UNKNOWN_SCHEME = "Integration scheme \"xyz\" is not recognized";

class IntegrationFaults : public testing::Test {
 protected:
  CallOutcome call(const RecipeBuilder& recipe, const std::string& output) const {
    return call_library(recipe.write(folder.path("recipe.xml")), output);
  }
  const TempFolder folder;
};

RecipeBuilder with_unknown_scheme(const RecipeOptions& options = {.stress_model = "relax"}) {
  return RecipeBuilder(options).set("integration/scheme", "xyz");
}

TEST_F(IntegrationFaults, EachGives1AndItsText) {
  struct Case {
    const char* path;
    const char* attribute;
    const char* value;
    const char* text;
  };
  for (const Case& c : {Case{"integration/scheme", "val", "xyz", UNKNOWN_SCHEME},
                        Case{"integration/scheme", "value", "staged",
                             "Attribute val of element NonstSurfChem:integration:scheme is not found"},
                        Case{"integration/tolerance", "val", "0.01", "Integration tolerance is beyond [1e-10;1e-3]"},
                        Case{"integration/tolerance", "val", "nan", "Integration tolerance is beyond [1e-10;1e-3]"},
                        Case{"integration/tolerance", "end", "1e-6",
                             "Attribute val of element NonstSurfChem:integration:tolerance is not found"},
                        Case{"integration/tolerance", "val", "tight",
                             "Failed to get real number from value \"tight\" of attribute val in element "
                             "NonstSurfChem:integration:tolerance"}}) {
    SCOPED_TRACE(c.value);
    const RecipeBuilder recipe = RecipeBuilder({.stress_model = "relax"}).set(c.path, c.attribute, c.value);
    const CallOutcome got = call(recipe, folder.path("out.txt"));
    EXPECT_EQ(1, got.result);
    EXPECT_EQ(c.text, got.text);
    EXPECT_TRUE(got.guarded);
    // As after an error of the construction: created, and empty.
    EXPECT_TRUE(std::filesystem::exists(folder.path("out.txt")));
    EXPECT_EQ("", read_file(folder.path("out.txt")));
    EXPECT_EQ(c.text, call(recipe, "").text);
  }
}

TEST_F(IntegrationFaults, ComeAfterFaultsOfReadingAndOfTheWholeRecipe) {
  struct Case {
    const char* path;
    const char* value;
    const char* text;
  };
  for (const Case& c :
       {Case{"material", "GaN", "Material \"GaN\" is not recognized"},
        Case{"post_stages/n_post_stages", "-1", "Number of post-stages is negative"},
        Case{"pre_stages/pre_stage_1/stress_state", "1", "Number of stages is zero"},
        Case{"pre_stages/t0", "nan", "Begin time is not specified"},
        Case{"stress/V_angle_05", "90", "Dislocation angle is beyond [0;90] degrees or not specified"}}) {
    EXPECT_EQ(c.text, call(with_unknown_scheme({}).set(c.path, c.value), "").text);
  }
}

TEST_F(IntegrationFaults, ComeAfterFaultsOfTheConstruction) {
  RecipeBuilder inherited = with_unknown_scheme();
  inherited.set("pre_stages/pre_stage_1/dislocations/disl_model", "inherited");
  EXPECT_EQ("Cannot inherit dislocation density for first pre-stage", call(inherited, "").text);
  EXPECT_EQ("Transport model InGaN_GR is not supported: it defines no transport layer",
            call(with_unknown_scheme({.stress_model = "relax", .transport_model = "InGaN_GR"}), "").text);
  RecipeBuilder flows = with_unknown_scheme({.stress_model = "relax", .transport_model = "thick_GaN"});
  flows.set("transport/parameters/Q_ref/TMGa", "1e-11");
  EXPECT_EQ("Refence flow rates of TMGa and TEGa are less than 1e-10 sccm", call(flows, "").text);
}

TEST_F(IntegrationFaults, ComeAfterAnOutputFileThatCannotBeOpened) {
  const std::string output = folder.path("none/out.txt");
  EXPECT_EQ("Unable to open file " + output + " for writing", call(with_unknown_scheme(), output).text);
}

TEST_F(IntegrationFaults, AreNotReportedForAFileThatCannotBeRead) {
  std::string text = with_unknown_scheme().text();
  const std::string path = write_file(folder.path("recipe.xml"), text.substr(0, text.size() - 5));
  EXPECT_EQ(0u, call_library(path, "").text.find("Error reading file " + path));
}

TEST_F(IntegrationFaults, TheDriverHasAStatusForThem) {
  vorlen::ProcessRecipe recipe;
  std::string error;
  const std::string path = with_unknown_scheme().write(folder.path("recipe.xml"));
  ASSERT_EQ(0, vorlen::read_recipe(path.c_str(), recipe, error)) << error;
  vorlen::RunCounters counters;
  EXPECT_EQ(vorlen::RUN_LATE_FAULT, vorlen::run_simulation(recipe, "", error, &counters));
  EXPECT_EQ(UNKNOWN_SCHEME, error);
  EXPECT_EQ(0, counters.step_count);
}

// A recipe without the element runs under the continuous scheme.
TEST_F(IntegrationFaults, TheContinuousSchemeGivesTheBytesOfARecipeWithoutTheElement) {
  const RecipeBuilder plain({.stress_model = "relax"});
  ASSERT_EQ(0, call(plain, folder.path("plain.txt")).result);
  RecipeBuilder named({.stress_model = "relax"});
  named.set("integration/scheme", "continuous").set("integration/tolerance", "1e-3");
  ASSERT_EQ(0, call(named, folder.path("named.txt")).result);
  EXPECT_FALSE(read_file(folder.path("plain.txt")).empty());
  EXPECT_EQ(read_file(folder.path("plain.txt")), read_file(folder.path("named.txt")));
}

}  // namespace
}  // namespace vorlen_test
