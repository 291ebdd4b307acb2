// The report on a recipe against the library: for good recipes of every choice of models, with each element removed,
// each attribute removed, and each attribute set to many values, among them its limits and the values next to them, the
// first error is the text of the library, and there is none where the library accepts.
#include "check/recipe_check.h"
#include "check/recipe_reading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "model/surfchem_nonst.h"
#include "recipe/read_recipe.h"
#include "recipe/xml_lookup.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

// The text with which the library rejects the file; empty if it would run it.
std::string rejection_of(const std::string& path) {
  vorlen::ProcessRecipe recipe;
  std::string error;
  if (vorlen::read_recipe(path.c_str(), recipe, error) != 0) return error;
  std::int32_t err = 0;
  const vorlen::SurfChemNonst model(recipe, "", err);
  return err != 0 ? model.error_text : recipe.late_fault;
}

// The first error found without setting up the model.
std::string first_error_of(const std::string& path) {
  TiXmlDocument document(path.c_str());
  document.LoadFile();
  const recipe::Reading reading = recipe::read_all(document);
  return reading.errors.empty() ? "" : reading.errors.front().text;
}

// Only the calculation of the reference layer shows this; the report takes it from the model.
bool is_computed(const std::string& text) { return text.find("Refence diffusion coefficients") == 0; }

std::string digits(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::vector<std::string> values_for(const recipe::Row& row) {
  if (row.kind == recipe::Kind::text) return {"", "a name"};
  if (row.kind == recipe::Kind::keyword) {
    std::vector<std::string> words = {"", "abc", "Inherited", "periodic", "v_DISLOCATION", "InGaN_GR"};
    for (const vorlen::Keyword& keyword : row.keywords) words.emplace_back(keyword.text);
    return words;
  }
  std::vector<std::string> values = {"",      "abc", "-1",  "0",     "-0.0",  "2",     "0.5",
                                     "1e-12", "nan", "inf", "12abc", "1e300", "10000", " 0x10 "};
  const double infinity = std::numeric_limits<double>::infinity();
  for (const auto& limit : {row.limits.low, row.limits.high}) {
    if (!limit) continue;
    for (double value : {*limit, std::nextafter(*limit, -infinity), std::nextafter(*limit, infinity)}) {
      values.push_back(digits(value));
    }
  }
  return values;
}

std::vector<std::string> base_recipes() {
  std::vector<std::string> bases;
  for (const char* model : {"fixed_thickness", "thick_GaN CCS", "thick_GaN TDR", "InGaN_GR_X"}) {
    const std::string words = model;
    RecipeOptions options;
    options.stress_model = bases.size() % 2 == 0 ? "V_dislocation" : "none";
    options.transport_model = words.substr(0, words.find(' '));
    options.reactor = words.ends_with("TDR") ? "TDR" : "CCS";
    options.n_pre_stages = 2;
    options.n_stages = 2;
    options.n_post_stages = 1;
    RecipeBuilder builder(options);
    builder.make_periodic(2, 2, 2).set("process_stages/stage_1/type", "single");
    builder.set("integration/scheme", "staged").set("integration/tolerance", "1e-6");
    builder.set("output/detail", "true");
    bases.push_back(builder.text());
  }
  RecipeOptions unsupported;
  unsupported.transport_model = "InGaN_GR";
  bases.push_back(RecipeBuilder(unsupported).set("process_stages/stage_1/GR_average", "0.1").text());
  RecipeOptions bare;
  bare.n_pre_stages = 0;
  bare.stress_model = "none";
  bases.push_back(RecipeBuilder(bare).text());
  return bases;
}

// Compares both verdicts on the document in its current state.
void expect_same_verdict(const TiXmlDocument& document, const std::string& path, const std::string& what) {
  TiXmlPrinter printer;
  document.Accept(&printer);
  write_file(path, printer.Str());
  const std::string rejection = rejection_of(path);
  if (is_computed(rejection)) return;
  EXPECT_EQ(first_error_of(path), rejection) << what;
}

TEST(RecipeCheck, ReportsTheLibrarysTextFirstForEveryFaultOfEveryElement) {
  const TempFolder folder;
  const std::string path = folder.path("recipe.xml");
  std::set<const recipe::Row*> met;
  std::size_t n_recipes = 0;
  for (const std::string& base : base_recipes()) {
    TiXmlDocument document;
    document.Parse(base.c_str());
    ASSERT_FALSE(document.Error());
    expect_same_verdict(document, path, "the recipe itself");
    const recipe::Reading reading = recipe::read_all(document);
    for (const auto& [constant, read] : reading.elements) {
      // The second sub-stage is as the first.
      if (read.row == nullptr || read.place.label == "stage_2_2") continue;
      auto* element = const_cast<TiXmlElement*>(constant);
      const std::string name = vorlen::element_full_name(element);
      SCOPED_TRACE(name);
      met.insert(read.row);
      for (const char* attribute : recipe::attributes_of(*read.row)) {
        const std::string kept = element->Attribute(attribute);
        for (const std::string& value : values_for(*read.row)) {
          element->SetAttribute(attribute, value.c_str());
          expect_same_verdict(document, path, std::string(attribute) + "=" + value);
          ++n_recipes;
        }
        element->RemoveAttribute(attribute);
        expect_same_verdict(document, path, std::string("without ") + attribute);
        element->SetAttribute(attribute, kept.c_str());
      }
      if (element->Parent() == &document) continue;
      const std::string value = element->Value();
      element->SetValue("renamed");
      expect_same_verdict(document, path, "without the element");
      element->SetValue(value.c_str());
    }
  }
  EXPECT_GT(n_recipes, 3000u);
  // Every row of the table has been tested.
  for (const recipe::Row& row : recipe::rows()) {
    // The type of a periodic stage is read by the row of single stages.
    const bool is_type_of_periodic = row.section == recipe::Section::periodic && std::string(row.name) == "type";
    EXPECT_TRUE(met.count(&row) != 0 || is_type_of_periodic) << row.name;
  }
}

std::vector<recipe::Problem> problems_of(const RecipeBuilder& builder) {
  const TempFolder folder;
  return recipe::check_recipe(builder.write(folder.path("recipe.xml")));
}

TEST(RecipeCheck, FindsNothingInGoodRecipes) {
  EXPECT_TRUE(problems_of(RecipeBuilder()).empty());
  EXPECT_TRUE(problems_of(RecipeBuilder({.stress_model = "none", .n_pre_stages = 2, .n_stages = 3, .n_post_stages = 2}))
                  .empty());
}

TEST(RecipeCheck, ReportsTheFaultsOfAllStagesAndOfTheWholeAtOnce) {
  RecipeBuilder builder({.n_stages = 3});
  builder.set("process_stages/stage_1/tau", "0").set("process_stages/stage_3/gas_species/Q/TMAl", "end", "-1");
  builder.set("stress/V_angle_05", "90").remove("process_stages/stage_2/T");
  std::vector<std::string> texts;
  for (const recipe::Problem& problem : problems_of(builder)) texts.push_back(problem.text);
  EXPECT_EQ(texts, (std::vector<std::string>{"Duration tau is less than 1e-4 s in stage_1",
                                             "Element NonstSurfChem:process_stages:stage_2:T is not found",
                                             "Negative input value for species TMAl in stage_3",
                                             "Dislocation angle is beyond [0;90] degrees or not specified"}));
}

TEST(RecipeCheck, ReportsFaultsOfIntegrationAndOutputAfterAllOthers) {
  RecipeBuilder builder;
  builder.set("integration/scheme", "stagd").set("integration/tolerance", "0.1").set("output/detail", "yes");
  builder.set("pre_stages/pre_stage_1/dislocations/disl_model", "inherited").set("stress/X_ref", "2");
  builder.remove("pre_stages/pre_stage_1/dislocations/rho_D");
  std::vector<std::string> texts;
  for (const recipe::Problem& problem : problems_of(builder)) texts.push_back(problem.text);
  EXPECT_EQ(texts, (std::vector<std::string>{
                       "Reference solid composition for relaxation model is beyond [0;1] or not specified",
                       "Cannot inherit dislocation density for first pre-stage",
                       "Integration scheme \"stagd\" is not recognized", "Integration tolerance is beyond [1e-10;1e-3]",
                       "Output detail \"yes\" is not recognized"}));
}

// Names of 64 KiB: 4096 of them are 256 MiB.
TEST(RecipeCheck, AddsUpTheNamesOfAllPeriodsAsTheLibraryDoes) {
  const TempFolder folder;
  RecipeBuilder builder({.n_stages = 2});
  for (const char* stage : {"stage_1", "stage_2"}) {
    builder.make_periodic(stage[6] - '0', 2048, 1);
    builder.set(std::string("process_stages/") + stage + "/" + stage + "_1/name", std::string(1 << 16, 'x'));
  }
  EXPECT_TRUE(problems_of(builder).empty());
  const std::string path = builder.set("process_stages/stage_2/n_periods", "2049").write(folder.path("recipe.xml"));
  EXPECT_EQ(first_error_of(path), "Names of all periods take more than 256 MiB: NonstSurfChem:process_stages:stage_2");
  EXPECT_EQ(first_error_of(path), rejection_of(path));
}

}  // namespace
}  // namespace vorlen_test
