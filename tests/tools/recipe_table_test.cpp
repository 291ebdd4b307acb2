// Lookup in the table of the recipe, its cells in words, its defaults, and the tables of the page.
#include "recipe/recipe_table.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "check/recipe_words.h"
#include "schema/recipe_files.h"

namespace vorlen_test {
namespace {

using recipe::find_row;
using recipe::Section;

TEST(RecipeTable, HasEachNameOnceInASection) {
  std::set<std::pair<Section, std::string>> names;
  for (const recipe::Row& row : recipe::rows()) EXPECT_TRUE(names.emplace(row.section, row.name).second) << row.name;
}

TEST(RecipeTable, HasAMeaningForEachRow) {
  for (const recipe::Row& row : recipe::rows()) {
    EXPECT_NE(*row.meaning, '\0') << row.name;
    EXPECT_EQ(std::string(row.meaning).find('\n'), std::string::npos) << row.name;
  }
}

TEST(RecipeTable, FindsNumberedStages) {
  EXPECT_EQ(recipe::stage_number("pre_stage_#", "pre_stage_12"), 12);
  EXPECT_EQ(recipe::stage_number("stage_#", "stage_9999"), 9999);
  for (const char* name : {"stage_", "stage_0", "stage_01", "stage_1x", "stage_1_2", "stage_10000", "Stage_1"}) {
    EXPECT_EQ(recipe::stage_number("stage_#", name), 0) << name;
  }
  EXPECT_EQ(find_row(Section::process_stages, "stage_3"), find_row(Section::process_stages, "stage_#"));
  EXPECT_EQ(find_row(Section::process_stages, "pre_stage_3"), nullptr);
  EXPECT_EQ(find_row(Section::stage, "t"), nullptr);
}

TEST(RecipeTable, PutsLimitsIntoWords) {
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::stage, "tau")), "at least 1e-4");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::stress, "V_angle_05")), "above 0 and below 89.99");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::stage, "XIn_average")), "1e-10 to 0.99999");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::parameters, "T_ref")), "not 0");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::chemistry, "Kd_In")), "any");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::parameters, "reactor")), "`CCS`, `TDR`, `HFR`");
  EXPECT_EQ(recipe::allowed_words(*find_row(Section::integration, "tolerance")), "1e-10 to 1e-3");
}

TEST(RecipeTable, PutsConditionsIntoWords) {
  EXPECT_EQ(recipe::read_words(*find_row(Section::stage, "tau")), "required");
  EXPECT_EQ(recipe::read_words(*find_row(Section::Q_ref, "H2")), "model `thick_GaN`");
  EXPECT_EQ(recipe::read_words(*find_row(Section::stage_dislocations, "disl_model")), "unless `V_dislocation`");
  EXPECT_EQ(recipe::read_words(*find_row(Section::integration, "scheme")), "optional, default `continuous`");
}

TEST(Limits, LetNaNPassWhereTheReaderDoes) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(find_row(Section::stage, "tau")->limits.allows(nan));
  EXPECT_FALSE(find_row(Section::stress, "X_ref")->limits.allows(nan));
  EXPECT_FALSE(find_row(Section::integration, "tolerance")->limits.allows(nan));
}

TEST(RecipeTable, NamesTheKeywordOfAValue) {
  const recipe::Row& model = *find_row(Section::transport, "model");
  EXPECT_STREQ(recipe::keyword_of(model, vorlen::TRANSPORT_InGaN_GR), "InGaN_GR");
  EXPECT_STREQ(recipe::keyword_of(model, vorlen::NOT_SPECIFIED), "");
}

TEST(RecipeTable, RowsOfASectionAreInTheOrderOfTheTable) {
  const recipe::Row* next = recipe::rows().data();
  for (int k = 0; k < static_cast<int>(Section::none); ++k) {
    const auto section = static_cast<Section>(k);
    EXPECT_FALSE(recipe::rows_of(section).empty()) << k;
    for (const recipe::Row* row : recipe::rows_of(section)) {
      EXPECT_EQ(row, next++);
      EXPECT_EQ(row->section, section);
    }
  }
  EXPECT_EQ(next, recipe::rows().data() + recipe::rows().size());
  EXPECT_TRUE(recipe::rows_of(Section::none).empty());
}

// A record without the element has the value that the element with its default would give.
TEST(RecipeTable, DefaultsAreThoseOfTheRecords) {
  std::size_t n_defaults = 0;
  for (const recipe::Row& row : recipe::rows()) {
    if (*row.default_value == '\0') continue;
    ++n_defaults;
    EXPECT_EQ(row.condition, recipe::Condition::optional) << row.name;
    vorlen::ProcessRecipe fresh;
    recipe::Records records{.recipe = fresh};
    const recipe::Field field = row.field(records);
    std::int32_t word = 0;
    if (row.kind == recipe::Kind::real) {
      EXPECT_EQ(*field.numbers[0], std::stod(row.default_value)) << row.name;
    } else {
      ASSERT_TRUE(vorlen::find_keyword(row.keywords, row.default_value, word)) << row.name;
      EXPECT_EQ(field.flag != nullptr ? std::int32_t{*field.flag} : *field.word, word) << row.name;
    }
  }
  EXPECT_EQ(n_defaults, 4u);
}

TEST(RecipePage, HasItsTablesReplacedAndTheRestLeftAlone) {
  std::string error;
  const std::string page = "before\n<!-- table: stress -->\nold\n<!-- end of table -->\nbehind\n";
  const std::string written = recipe::page_with_tables(page, error);
  EXPECT_EQ(error, "");
  EXPECT_EQ(written.find("before\n<!-- table: stress -->\n\n| path |"), 0u);
  EXPECT_EQ(written.find("old"), std::string::npos);
  EXPECT_NE(written.find("| `stress:X_ref` | `val` | fraction | 0 to 1 | with `V_dislocation` |"), std::string::npos);
  EXPECT_TRUE(written.ends_with("\n\n<!-- end of table -->\nbehind\n"));
  EXPECT_EQ(recipe::page_with_tables(written, error), written);
}

TEST(RecipePage, IsLeftAloneWhenATableIsNotKnownOrNotEnded) {
  std::string error;
  const std::string unknown = "<!-- table: colours -->\n<!-- end of table -->\n";
  EXPECT_EQ(recipe::page_with_tables(unknown, error), unknown);
  EXPECT_NE(error, "");
  const std::string open = "<!-- table: stress -->\nold\n";
  EXPECT_EQ(recipe::page_with_tables(open, error), open);
  EXPECT_NE(error, "");
}

}  // namespace
}  // namespace vorlen_test
