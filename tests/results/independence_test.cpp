// What has no influence on the result file: the host's locale, and the cut angle of the substrate.
#include <gtest/gtest.h>

#include <clocale>
#include <locale>

#include "results/written_file.h"
#include "strain/record_step.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

// Decimal comma and groups of three digits.
struct CommaPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// A named recipe with 12345.5 s stages, evaluated by the residual at two points, in both layouts of the file.
std::string written(std::int32_t stress_model, std::int32_t mode, double cut_angle = 0.0) {
  ProcessRecipe recipe = bare_recipe(stress_model);
  recipe.cut_angle = cut_angle;
  add_pre(recipe, small_layer(3.189));
  add(recipe, small_stage(12345.5));
  add_post(recipe, small_layer(0.5));
  WritingModel model(recipe);
  model->single_point.selected = mode == 1;
  model->detail_output = true;
  model->single_point.species = {N2_g};
  double y[N_STATE_MAX] = {};
  model->init_state(y);
  double f[N_STATE_MAX] = {};
  for (double t : {10.0, 1000.0, 12355.5}) {
    model->eval_rhs(t, y, f);
    record_step(*model, t, y);
    y[5] += 1e-9;
  }
  write_results(*model, true);
  return read_file(model.path);
}

struct Settings {
  std::int32_t stress_model;
  std::int32_t mode;
  const char* name;
};
void PrintTo(const Settings& settings, std::ostream* stream) { *stream << settings.name; }
struct Independence : testing::TestWithParam<Settings> {};

TEST_P(Independence, TheFileHasPointsWhateverTheGlobalLocaleOfCpp) {
  const auto [stress_model, mode, name] = GetParam();
  const std::string expected = written(stress_model, mode);
  ASSERT_NE(expected.find(mode == 0 ? "\"Layer2\" 12345.5 " : "1030 40000 0.008"), std::string::npos);
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
  std::ostringstream check;
  check << 1234.5;
  const std::string actual = written(stress_model, mode);
  std::locale::global(before);
  ASSERT_EQ(check.str(), "1.234,5") << "the test's own locale is not in force";
  EXPECT_EQ(actual, expected);
}

TEST_P(Independence, TheFileHasPointsWhateverTheLocaleOfC) {
  const auto [stress_model, mode, name] = GetParam();
  const std::string expected = written(stress_model, mode);
  const std::string before = std::setlocale(LC_ALL, nullptr);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr && std::setlocale(LC_ALL, "German") == nullptr) {
    GTEST_SKIP() << "no locale de_DE.UTF-8 on this machine";
  }
  char check[16];
  std::snprintf(check, sizeof check, "%.1f", 0.5);
  const std::string actual = written(stress_model, mode);
  std::setlocale(LC_ALL, before.c_str());
  ASSERT_STREQ(check, "0,5") << "the locale has no decimal comma";
  EXPECT_EQ(actual, expected);
}

TEST_P(Independence, TheCutAngleChangesNoNumber) {
  const auto [stress_model, mode, name] = GetParam();
  EXPECT_EQ(written(stress_model, mode, 4.0), written(stress_model, mode));
}

INSTANTIATE_TEST_SUITE_P(ResultFile, Independence,
                         testing::Values(Settings{STRESS_OFF, 0, "WithoutRelaxation"},
                                         Settings{STRESS_V_dislocation, 0, "WithRelaxation"},
                                         Settings{STRESS_OFF, 1, "SinglePoint"}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace vorlen_test
