// The result file line by line: header, layer block, heading, which rows it has and how they end.
#include <gtest/gtest.h>

#include <filesystem>

#include "results/written_file.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

// A named and an unnamed pre-stage, two active stages and a post-stage.
ProcessRecipe layered_recipe(std::int32_t stress_model) {
  ProcessRecipe recipe = bare_recipe(stress_model);
  PrePostStageRecord buffer = small_layer(3.189);
  buffer.name = "buffer";
  add_pre(recipe, buffer);
  add_pre(recipe, small_layer(0.0));
  StageRecord first = small_stage(2.5);
  add(recipe, first);
  StageRecord second = small_stage(120.0);
  second.name = "well";
  add(recipe, second);
  PrePostStageRecord cap = small_layer(1.0);
  cap.tau = 0.1;
  cap.thickness = 35.5;
  add_post(recipe, cap);
  return recipe;
}

// Points at the start, at the boundary of the two stages and at the end.
void fill_history(SurfChemNonst& m) {
  add_history(m, 20.0, 2e-7);
  add_history(m, 22.5, 2.1e-7);
  add_history(m, 142.5, 2.4e-7);
  m.z = 2.4e-7;
}

TEST(FileLayout, TheFileIsOpenAndEmptyUntilItIsWritten) {
  WritingModel model(layered_recipe(STRESS_OFF));
  fill_history(*model);
  EXPECT_EQ(read_file(model.path), "");
  EXPECT_TRUE(std::filesystem::exists(model.path));
  EXPECT_TRUE(model->out.is_open());
  write_results(*model, true);
  EXPECT_FALSE(model->out.is_open());
  EXPECT_NE(read_file(model.path), "");
}

TEST(FileLayout, AnExistingFileIsEmptiedAtConstruction) {
  const TempFolder folder;
  const std::string path = write_file(folder.path("old.txt"), "old content\n");
  const auto m = model_of(small_recipe(STRESS_OFF), path);
  EXPECT_EQ(read_file(path), "");
}

TEST(FileLayout, AnEmptyPathMakesNoFile) {
  const auto m = small_model(STRESS_OFF);
  add_history(*m, 10.0, 1e-7);
  write_results(*m, true);
  EXPECT_FALSE(m->out.is_open());
  EXPECT_EQ(m->active_stages[0].thickness, 0.0);
}

TEST(FileLayout, AFileThatCannotBeOpenedIsRefused) {
  const TempFolder folder;
  const std::string path = folder.path("missing/result.txt");
  std::int32_t err = 0;
  const SurfChemNonst m(small_recipe(STRESS_OFF), path.c_str(), err);
  EXPECT_EQ(err, 1);
  EXPECT_EQ(m.error_text, "Unable to open file " + path + " for writing");
}

TEST(FileLayout, ASecondCallFindsTheFileClosedAndLeavesIt) {
  WritingModel model(layered_recipe(STRESS_OFF));
  fill_history(*model);
  const std::string text = model.write().text;
  write_results(*model, true);
  EXPECT_EQ(read_file(model.path), text);
}

TEST(FileLayout, TheLayersAreNumberedThroughAllThreeGroups) {
  WritingModel model(layered_recipe(STRESS_OFF));
  fill_history(*model);
  const WrittenFile file = model.write();
  // 10 nm up to the boundary, 30 nm after it.
  const double first = (2.1e-7 - 2e-7) * 1e9;
  const double second = (2.4e-7 - 2.1e-7) * 1e9;
  std::ostringstream expected;
  expected.precision(16);
  expected << "\"buffer\" 10 100|\"Layer2\" 10 100|\"Layer3\" 2.5 " << first << "|\"well\" 120 " << second
           << "|\"Layer5\" 0.1 35.5|";
  std::string actual;
  for (const std::string& line : file.layers) actual += line + '|';
  EXPECT_EQ(actual, expected.str());
}

TEST(FileLayout, ASingleNamedPreStageStillCounts) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  PrePostStageRecord named = small_layer(3.189);
  named.name = "the first \"one\"";
  add_pre(recipe, named);
  add(recipe, small_stage(120.0));
  WritingModel model(recipe);
  const WrittenFile file = model.write();
  EXPECT_EQ(file.layers, (std::vector<std::string>{"\"the first \"one\"\" 10 100", "\"Layer2\" 120 0"}));
}

TEST(FileLayout, TheFileBeginsByteForByteLikeThis) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  StageRecord stage = small_stage(120.0);
  add(recipe, stage);
  WritingModel model(recipe);
  model->active_stages[0].thickness = 35.5;  // without a history nothing is added
  EXPECT_EQ(model.write().text,
            "\"VORLEN output file, version 2.0\"\n<LAYERS>\n\"Layer1\" 120 35.5\n</LAYERS>\n" + COLUMNS + "\n");
}

struct Flags {
  bool detail;
  std::int32_t stress_model;
  std::size_t columns;
};
void PrintTo(const Flags& flags, std::ostream* stream) { *stream << flags.columns << " columns"; }
struct AllFlags : testing::TestWithParam<Flags> {};

TEST_P(AllFlags, HeadingColumnsAndRowEndsBelongTogether) {
  const auto [detail, stress_model, columns] = GetParam();
  WritingModel model(layered_recipe(stress_model));
  model->detail_output = detail;
  fill_history(*model);
  const WrittenFile file = model.write();

  std::string heading = COLUMNS;
  if (detail) heading += DETAIL_COLUMNS;
  if (columns == 39) heading += RELAXATION_COLUMNS;
  EXPECT_EQ(file.heading, heading);

  ASSERT_EQ(file.rows.size(), 4u + 3u + 2u);
  for (std::size_t i = 0; i < file.rows.size(); ++i) {
    SCOPED_TRACE(i);
    const bool active = i >= 4 && i < 7;
    EXPECT_EQ(file.rows[i].size(), columns);
    const std::string& line = file.row_lines[i];
    EXPECT_EQ(line.find("  "), std::string::npos);
    EXPECT_NE(line.front(), ' ');
    EXPECT_EQ(line.back() == ' ', active && columns != 39);
  }
}

INSTANTIATE_TEST_SUITE_P(FileLayout, AllFlags,
                         testing::Values(Flags{false, STRESS_OFF, 19}, Flags{false, STRESS_V_dislocation, 19},
                                         Flags{true, STRESS_OFF, 25}, Flags{true, STRESS_V_dislocation, 39}),
                         [](const auto& instance) {
                           return std::string(instance.param.detail ? "Detail" : "Plain") +
                                  (instance.param.stress_model == STRESS_OFF ? "WithoutRelaxation" : "WithRelaxation");
                         });

TEST(FileLayout, AFailedRunLacksThePostStageRowsAlone) {
  WritingModel good(layered_recipe(STRESS_OFF));
  WritingModel bad(layered_recipe(STRESS_OFF));
  fill_history(*good);
  fill_history(*bad);
  const WrittenFile complete = good.write(true);
  const WrittenFile failed = bad.write(false);
  EXPECT_EQ(failed.layers, complete.layers);
  EXPECT_EQ(failed.heading, complete.heading);
  ASSERT_EQ(complete.row_lines.size(), 9u);
  EXPECT_EQ(failed.row_lines, std::vector<std::string>(complete.row_lines.begin(), complete.row_lines.begin() + 7));
}

TEST(FileLayout, WithoutPreStagesTheTableBeginsWithTheFirstRecordedPoint) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add(recipe, small_stage(10.0));
  WritingModel model(recipe);
  add_history(*model, 0.0, 0.0);
  const WrittenFile file = model.write();
  ASSERT_EQ(file.rows.size(), 1u);
  EXPECT_EQ(file.rows[0][0], 0.0);
}

TEST(FileLayout, AnEmptyHistoryLeavesTheStageRows) {
  WritingModel model(layered_recipe(STRESS_V_dislocation));
  const WrittenFile file = model.write();
  EXPECT_EQ(file.rows.size(), 6u);
}

TEST(FileLayout, ALongHistoryIsWrittenWhole) {
  // More than fits into one block of the writer.
  WritingModel model(small_recipe(STRESS_OFF));
  constexpr std::size_t POINTS = 5000;
  for (std::size_t i = 0; i < POINTS; ++i) add_history(*model, 10.0 + double(i) * 0.002, 1e-7 + double(i) * 2e-12);
  const WrittenFile file = model.write();
  ASSERT_EQ(file.rows.size(), POINTS + 2);
  for (std::size_t i = 0; i < POINTS; ++i) ASSERT_EQ(file.rows[i + 2][0], model->history.t[i]);
}

// Rows of all 39 columns. A sign makes a row longer by one, so that each block ends at another place in a row.
TEST(FileLayout, LongRowsEndWithinTheBlocks) {
  WritingModel model(small_recipe(STRESS_V_dislocation));
  model->detail_output = true;
  constexpr std::size_t POINTS = 6000;
  for (std::size_t i = 0; i < POINTS; ++i) {
    add_history(*model, 10.0 + double(i) * 0.002, 1e-7 + double(i) * 2e-12);
    const double value = 1.25 + double(i);
    std::vector<double>* const lists[] = {&model->history.c_In, &model->history.c_Ga, &model->history.c_Al,
                                          &model->history.c_N,  &model->history.c_H,  &model->history.J0,
                                          &model->history.J1,   &model->history.r};
    for (std::size_t k = 0; k < std::size(lists); ++k) lists[k]->back() = k < i / 700 ? -value : value;
  }
  const WrittenFile file = model.write();
  ASSERT_EQ(file.rows.size(), POINTS + 2);
  for (std::size_t i = 0; i < POINTS; ++i) {
    ASSERT_EQ(file.rows[i + 2].size(), 39u);
    ASSERT_EQ(file.rows[i + 2][0], model->history.t[i]);
    ASSERT_EQ(file.rows[i + 2][38], model->history.r[i]);
  }
}

}  // namespace
}  // namespace vorlen_test
