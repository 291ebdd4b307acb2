// Rows of the staged scheme compared with those of a finer run, whose stages are split into 60 short ones and whose
// tolerance is a thousandth. Linear interpolation between rows must agree within a thousandth of the range of a column.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double PROMISED = 1e-3;
constexpr int PARTS = 60;
constexpr double FIRST_PART = 1e-6;  // of the stage; the next ones are longer by a constant factor
constexpr const char* COLUMNS[] = {"t",         "z",         "Vg",         "xIn",       "xGa",
                                   "xAl",       "rho_TD(t)", "rho_VD0(t)", "a_eff(t)",  "eps_xx(t)",
                                   "eps_yy(t)", "eps_zz(t)", "eps_yz(t)",  "rho_TD(z)", "a_eff(z)",
                                   "eps_xx(z)", "eps_yy(z)", "eps_zz(z)",  "eps_yz(z)"};
constexpr std::size_t N_COLUMNS = std::size(COLUMNS);
// Smallest range that counts, and whether a fraction of the value counts instead: the same as in the selection of rows.
constexpr double LEAST_RANGE[N_COLUMNS] = {0,    1e-2, 1e-5, 1e-4, 1e-4, 1e-4, 1e-4, 1e-4, 1e-5, 1e-6,
                                           1e-6, 1e-6, 1.0,  1e-4, 1e-5, 1e-6, 1e-6, 1e-6, 1.0};
constexpr bool COUNTS_BY_VALUE[N_COLUMNS] = {false, false, true,  false, false, false, true,  true,  false, false,
                                             false, false, false, true,  false, false, false, false, false};

using Row = std::vector<double>;

std::vector<Row> active_rows(const ProcessRecipe& recipe) {
  const TempFolder folder;
  std::string error;
  EXPECT_EQ(0, run_simulation(recipe, folder.path("out.txt").c_str(), error)) << error;
  const std::string text = read_file(folder.path("out.txt"));
  std::istringstream file(text.substr(text.find("#time")));
  std::string line;
  std::getline(file, line);
  std::vector<Row> rows;
  while (std::getline(file, line)) {
    std::istringstream words(line);
    Row row;
    for (std::string word; words >> word;) row.push_back(std::stod(word));
    rows.push_back(row);
  }
  rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(2 * recipe.pre_stages.size()));
  rows.resize(rows.size() - 2 * recipe.post_stages.size());
  return rows;
}

// The recipe with each stage split into short ones, whose ends form a geometric series.
ProcessRecipe finer(const ProcessRecipe& recipe) {
  ProcessRecipe fine = recipe;
  fine.tolerance = 1e-3 * recipe.tolerance;
  fine.active_stages.clear();
  const double ratio = std::pow(1.0 / FIRST_PART, 1.0 / (PARTS - 1));
  for (const StageRecord& stage : recipe.active_stages) {
    double from = 0.0;
    for (int k = 0; k < PARTS; ++k) {
      const double to = k == PARTS - 1 ? 1.0 : FIRST_PART * std::pow(ratio, k);
      StageRecord part = stage;
      part.tau = (to - from) * stage.tau;
      const auto take = [from, to](ValueRange& range) {
        range = {range.val + from * (range.end - range.val), range.val + to * (range.end - range.val)};
      };
      for (ValueRange* range : {&part.T, &part.P, &part.rho_D, &part.omega_TDR}) take(*range);
      for (ValueRange& flow : part.Q) take(flow);
      std::string error;
      EXPECT_TRUE(fine.add_active_stage(part, error)) << error;
      from = to;
    }
  }
  return fine;
}

// Range of a column in the run.
double range_of(const std::vector<Row>& rows, std::size_t c) {
  double low = rows[0][c], high = low, largest = 0.0;
  for (const Row& row : rows) {
    low = std::min(low, row[c]);
    high = std::max(high, row[c]);
    largest = std::max(largest, std::abs(row[c]));
  }
  const double range = std::max(high - low, LEAST_RANGE[c]);
  return COUNTS_BY_VALUE[c] ? std::max(range, 1e-4 * largest) : range;
}

// Height at which V-defects start, where the density of dislocations in the finished structure has a step, nm; NaN
// without V-defects.
double height_of_step(const std::vector<Row>& rows) {
  constexpr std::size_t Z = 1, RHO_TD_Z = 13;
  for (std::size_t i = 1; i < rows.size(); ++i) {
    if (std::abs(rows[i][RHO_TD_Z] - rows[i - 1][RHO_TD_Z]) > 0.5 * range_of(rows, RHO_TD_Z)) return rows[i][Z];
  }
  return std::nan("");
}

void expect_rows_follow(ProcessRecipe recipe) {
  recipe.scheme = SCHEME_staged;
  const std::vector<Row> rows = active_rows(recipe), fine = active_rows(finer(recipe));
  std::size_t first_row = 0, first_fine = 0;
  const double z_step = height_of_step(rows);
  for (const StageRecord& stage : recipe.active_stages) {
    const auto end_of = [&stage](const std::vector<Row>& list, std::size_t from) {
      while (from < list.size() && list[from][0] <= stage.time.end) ++from;
      return from;
    };
    const std::size_t end_row = end_of(rows, first_row), end_fine = end_of(fine, first_fine);
    EXPECT_LE(end_row - first_row, 2000u);
    for (std::size_t c = 1; c < N_COLUMNS; ++c) {
      double worst = 0.0, t_worst = 0.0;
      std::size_t k = first_row + 1;
      for (std::size_t i = first_fine; i < end_fine; ++i) {
        const double t = fine[i][0], value = fine[i][c];
        if (std::abs(fine[i][1] - z_step) < 0.01) continue;  // nm
        if (t < stage.time.val + 1e-9) continue;             // times of short stages are sums with rounding errors
        while (k + 1 < end_row && rows[k][0] < t) ++k;
        const Row &a = rows[k - 1], &b = rows[k];
        const double share = std::clamp((t - a[0]) / (b[0] - a[0]), 0.0, 1.0);
        const double error = std::abs(a[c] + share * (b[c] - a[c]) - value);
        if (error > worst) {
          worst = error;
          t_worst = t;
        }
      }
      const double range = range_of(fine, c);
      EXPECT_LE(worst, PROMISED * range) << COLUMNS[c] << " of " << stage.label << " \"" << stage.name << "\", "
                                         << t_worst - stage.time.val << " s after its start: " << worst / range;
    }
    first_row = end_row;
    first_fine = end_fine;
  }
}

class RowFidelity : public testing::TestWithParam<const char*> {};

TEST_P(RowFidelity, IsAThousandthOfEachRange) {
  ProcessRecipe recipe;
  std::string error;
  ASSERT_EQ(0, read_recipe((VORLEN_TEST_DATA "/recipes/" + std::string(GetParam()) + ".xml").c_str(), recipe, error));
  expect_rows_follow(recipe);
}

INSTANTIATE_TEST_SUITE_P(Recipe, RowFidelity,
                         testing::Values("algan_gan_hemt", "algan_gan_mirror_tdr", "alinn_gan_hemt", "gan_template_ccs",
                                         "ingan_gan_mqw_periodic", "ingan_led_hfr", "ingan_v_defects",
                                         "ingan_wells_gr_x"),
                         [](const auto& instance) { return std::string(instance.param); });

}  // namespace
}  // namespace vorlen_test
