// Strained layers with dislocations and V-defects, on whole simulations: where the V-defects open, what the columns of
// the moment and of the finished structure say, and that no growth is lost between the stages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "physics/growth_run.h"

namespace vorlen {
namespace {

using namespace vorlen_test;

constexpr double PRE_STAGE_NM = 100.0;
constexpr double BURGERS = 3.189e-10;  // m
constexpr double DEGREE = 3.141592653589793 / 180.0;

const std::string IN_FLOW_OF_STAGE[] = {"", "process_stages/stage_1/gas_species/Q/TMIn",
                                        "process_stages/stage_2/gas_species/Q/TMIn",
                                        "process_stages/stage_3/gas_species/Q/TMIn"};

// In0.2Ga0.8N directly on GaN with 5e8 cm^-2, the dislocations inclined by 17 degrees, and a cap of GaN. The two
// InGaN stages are alike.
RunResult run_without_spacer() {
  RecipeBuilder recipe({.n_stages = 3});
  recipe.set("process_stages/stage_1/tau", "130").set("process_stages/stage_2/tau", "150");
  recipe.set("process_stages/stage_3/tau", "3").set_range(IN_FLOW_OF_STAGE[3], "0", "0");
  return run_recipe(recipe);
}

// The same layer on 5 nm of GaN, with 10 degrees.
RunResult run_with_spacer() {
  RecipeBuilder recipe({.n_stages = 3});
  recipe.set("stress/V_angle_05", "10");
  recipe.set("process_stages/stage_1/tau", "150").set_range(IN_FLOW_OF_STAGE[1], "0", "0");
  recipe.set("process_stages/stage_2/tau", "160");
  recipe.set("process_stages/stage_3/tau", "3").set_range(IN_FLOW_OF_STAGE[3], "0", "0");
  return run_recipe(recipe);
}

// The rows of the active stages; the recipes here have one pre-stage and no post-stage.
std::vector<Row> active_rows(const RunResult& run) {
  return run.rows.size() < 2 ? std::vector<Row>{} : std::vector<Row>(run.rows.begin() + 2, run.rows.end());
}

// The first row with V-defects.
std::size_t opening(const std::vector<Row>& rows) {
  const auto open = [](const Row& row) { return row[RHO_VD0_T] > 0.0; };
  return static_cast<std::size_t>(std::find_if(rows.begin(), rows.end(), open) - rows.begin());
}

class DefectRun : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    plain = new RunResult(run_without_spacer());
    spaced = new RunResult(run_with_spacer());
  }
  static void TearDownTestSuite() {
    delete plain;
    delete spaced;
  }
  void SetUp() override {
    for (const RunResult* run : {plain, spaced}) {
      const std::vector<Row> rows = active_rows(*run);
      ASSERT_GT(rows.size(), 100u);
      ASSERT_GT(opening(rows), 10u);
      ASSERT_LT(opening(rows), rows.size());
    }
  }

  static RunResult* plain;   // without a spacer
  static RunResult* spaced;  // with a spacer
};

RunResult* DefectRun::plain = nullptr;
RunResult* DefectRun::spaced = nullptr;

// Computed independently: V-defects open after 118 s and 5.6 nm, their density is 3e15 m^-2 within the next 0.1 nm and
// reaches the cap of 1e17 m^-2 at 13.9 nm. The column holds two times the density, in cm^-2.
TEST_F(DefectRun, OpensVDefectsAtTheIndependentThickness) {
  const std::vector<Row> rows = active_rows(*plain);
  const std::size_t open = opening(rows);
  EXPECT_NEAR(rows[open][TIME] - rows.front()[TIME], 118.0, 0.5);
  EXPECT_NEAR(rows[open][DEPTH] - PRE_STAGE_NM, 5.6, 0.05);

  const double z_open = rows[open][DEPTH];
  const auto later = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r[DEPTH] > z_open + 0.1; });
  ASSERT_NE(later, rows.end());
  EXPECT_NEAR((*later)[RHO_VD0_T] * 1e4 / 2.0, 3e15, 0.5e15);

  const auto cap = std::find_if(rows.begin(), rows.end(), [](const Row& r) { return r[RHO_VD0_T] >= 2e13 * 0.999999; });
  ASSERT_NE(cap, rows.end());
  EXPECT_NEAR((*cap)[DEPTH] - PRE_STAGE_NM, 13.9, 0.05);
}

// The energy balance, computed manually from the columns of depth and strain and typed-in constants. A V-defect from
// the bottom of the layer up costs the loop's energy d E_line ln((d/b - 1) sin(alpha) + 1) with E_line = 2 * 1.08521 G
// b^2 / (4 pi (1 - nu) cos(alpha)); it gains the work of the strain on the inclined line, 2 M tan(alpha) b times the
// integral of strain times height. It opens in the first recorded step in which the gain is larger.
TEST_F(DefectRun, OpensVDefectsWhenTheStrainPaysForTheLoop) {
  const double alpha = 17.0 * DEGREE;
  const double G = 0.5 * (0.9 * (367e9 - 135e9) + 0.1 * (223e9 - 115e9));
  const double M = 0.9 * 449.6e9 + 0.1 * 262.4e9;
  const double E_line =
      2.0 * 1.08521 * G * BURGERS * BURGERS / (4.0 * 3.141592653589793 * (1.0 - 0.243)) / std::cos(alpha);
  const std::vector<Row> rows = active_rows(*plain);
  const std::size_t open = opening(rows);

  double gain = 0.0;
  std::size_t compared = 0;
  // The strain of the opening row holds the relief by the V-defects already; one row before, it serves for both.
  for (std::size_t k = 1; k <= open; ++k) {
    const double d = (rows[k][DEPTH] - PRE_STAGE_NM) * 1e-9;
    const double d_before = (rows[k - 1][DEPTH] - PRE_STAGE_NM) * 1e-9;
    const double eps_before = rows[k - 1][EPS_XX_T];
    const double eps = k < open ? rows[k][EPS_XX_T] : eps_before;
    gain -= 2.0 * M * std::tan(alpha) * BURGERS * 0.5 * (eps * d + eps_before * d_before) * (d - d_before);
    if (d < 3.0 * BURGERS) continue;
    ++compared;
    const double cost = d * E_line * std::log((d / BURGERS - 1.0) * std::sin(alpha) + 1.0);
    if (k < open) {
      EXPECT_GT(cost, gain) << "at " << d << " m";
    } else {
      EXPECT_LT(cost, gain) << "at " << d << " m";
    }
  }
  EXPECT_GT(compared, 5u);
}

TEST_F(DefectRun, NeverLosesVDefects) {
  const std::vector<Row> rows = active_rows(*plain);
  for (std::size_t k = 1; k < rows.size(); ++k) ASSERT_GE(rows[k][RHO_VD0_T], rows[k - 1][RHO_VD0_T]) << "row " << k;
}

// Before the V-defects the density follows 1/rho = 1/rho_0 + L tan(alpha) w, L = 31 nm, with w the whole thickness: all
// of it grew in compression.
TEST_F(DefectRun, ThinsTheDislocationsByTheReactionLawBeforeTheVDefects) {
  const std::vector<Row> rows = active_rows(*plain);
  const Row& row = rows[opening(rows) - 1];
  const double w_cm = (row[DEPTH] - PRE_STAGE_NM) * 1e-7;
  const double expected = 1.0 / (1.0 / 5e8 + 31e-7 * std::tan(17.0 * DEGREE) * w_cm);
  EXPECT_NEAR(row[RHO_TD_T] / expected, 1.0, 1e-9);
}

// The columns of the moment and of the finished structure part at the depth at which the V-defects start: below it
// the defects that came later change nothing; above it there are more of them at the end than at the moment, so the
// strain has moved up, the lattice is wider and the density higher. The spacer's V-defects start inside it.
TEST_F(DefectRun, HasTheSameColumnsOfBothMomentsBelowTheVDefectsAndMoreReliefAtTheLaterOneAbove) {
  for (const RunResult* run : {plain, spaced}) {
    const std::vector<Row> rows = active_rows(*run);
    const auto parted = [](const Row& row) { return row[EPS_XX_T] != row[EPS_XX_Z]; };
    const auto first = std::find_if(rows.begin(), rows.end(), parted);
    ASSERT_NE(first, rows.end());
    const double z_parted = (*first)[DEPTH];
    EXPECT_LT(z_parted, rows[opening(rows)][DEPTH]);
    std::size_t wider = 0;
    for (const Row& row : rows) {
      if (row[DEPTH] < z_parted) {
        EXPECT_EQ(row[EPS_XX_T], row[EPS_XX_Z]);
        EXPECT_EQ(row[EPS_ZZ_T], row[EPS_ZZ_Z]);
        EXPECT_EQ(row[A_EFF_T], row[A_EFF_Z]);
        continue;
      }
      ASSERT_GE(row[EPS_XX_Z], row[EPS_XX_T] - 1e-10 * std::abs(row[EPS_XX_T]));
      ASSERT_GE(row[A_EFF_Z], row[A_EFF_T] * (1.0 - 1e-10));
      ASSERT_GE(row[RHO_TD_Z], row[RHO_TD_T] * (1.0 - 1e-10));
      if (row[A_EFF_Z] > row[A_EFF_T]) ++wider;
    }
    EXPECT_GT(wider, rows.size() / 2);
  }
  // The first rows of the spacer lie below its V-defects, and their densities are the same as well.
  const std::vector<Row> rows = active_rows(*spaced);
  ASSERT_EQ(rows[4][EPS_XX_T], rows[4][EPS_XX_Z]);
  for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(rows[k][RHO_TD_T], rows[k][RHO_TD_Z]) << "row " << k;
}

// Growth is shared out among the stages without loss, also where a step crosses from one to the next. 1e-9 nm is the
// rounding of some ten thousand sums of 1e-5 nm.
TEST_F(DefectRun, StageThicknessesAddUpToTheThicknessGrown) {
  for (const RunResult* run : {plain, spaced}) {
    const std::vector<Row> rows = active_rows(*run);
    ASSERT_EQ(run->layer_nm.size(), 4u);
    EXPECT_EQ(run->layer_nm.front(), PRE_STAGE_NM);
    const double active = std::accumulate(run->layer_nm.begin() + 1, run->layer_nm.end(), 0.0);
    const double grown = rows.back()[DEPTH] - rows.front()[DEPTH];
    EXPECT_GT(grown, 5.0);
    EXPECT_NEAR(active, grown, 1e-9);
    for (std::size_t i = 1; i < 4; ++i) EXPECT_GT(run->layer_nm[i], 0.0) << "stage " << i;
  }
}

// Inclined dislocations relieve compression. Under tension nothing is relieved and the density stays what it was:
// Al0.25Ga0.75N on GaN, strained by a_GaN/a - 1 by Vegard's law.
TEST(TensileRun, OfAlGaNOnGaNKeepsItsDislocationsAndItsStrain) {
  RecipeBuilder strained({.material = "AlGaN"});
  const std::string stage = "process_stages/stage_1";
  strained.set(stage + "/tau", "60").set(stage + "/delta", "0.006");
  strained.set_range(stage + "/T", "1300", "1300").set_range(stage + "/P", "10000", "10000");
  const auto flow = [&](const char* species, const char* value) {
    strained.set_range(stage + "/gas_species/Q/" + species, value, value);
  };
  flow("TMIn", "0");
  flow("TEGa", "0");
  flow("TMGa", "1");
  flow("TMAl", "0.3");
  flow("N2", "0");
  flow("NH3", "4000");
  flow("H2", "10000");
  const std::vector<Row> rows = active_rows(run_recipe(strained));
  ASSERT_GT(rows.size(), 10u);
  const Row& last = rows.back();
  EXPECT_GT(last[DEPTH] - PRE_STAGE_NM, 20.0);
  const double a = 3.189 * last[X_GA] + 3.112 * last[X_AL] + 3.54 * last[X_IN];
  EXPECT_GT(last[EPS_XX_T], 0.004);
  // What grew before the first step was over counts as relieving; it is far below a nanometre.
  EXPECT_NEAR(last[EPS_XX_T], 3.189 / a - 1.0, 1e-7);
  EXPECT_NEAR(last[RHO_TD_T] / 5e8, 1.0, 1e-4);
  EXPECT_EQ(last[RHO_VD0_T], 0.0);
}

}  // namespace
}  // namespace vorlen
