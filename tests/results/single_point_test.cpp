// The single-point layout, byte for byte.
#include <gtest/gtest.h>

#include "results/written_file.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

struct SinglePoint : testing::Test {
  WritingModel model{small_recipe(STRESS_OFF)};
  SinglePoint() {
    model->single_point.selected = true;
    model->detail_output = true;
    model->T = 1030.0;
    model->P = 40000.5;
    model->transport_model = TRANSPORT_InGaN_GR_X;
    model->active_stages[0].delta_species.fill(0.008);
    model->active_stages[0].delta_species[0] = 1e-5;
    model->p[TMGa_g] = 0.25;
    model->p[NH3_g] = 20000.0;
    model->surface.J[TMGa_g] = 1.5e-6;
    model->surface.J[NH3_g] = -2.0;
  }
  std::string written() {
    write_results(*model, true);
    return read_file(model.path);
  }
};

const std::string HISTORY_HEADING = "t(s) In Ga Al N H GR(mkm/hr) X z(nm)\n";

TEST_F(SinglePoint, WithoutReportedSpeciesAndHistoryTwoHeadingsAreLeft) {
  EXPECT_EQ(written(), "T P delta \n1030 40000.5 1e-05 \n\n" + HISTORY_HEADING);
  EXPECT_FALSE(model->out.is_open());
}

TEST_F(SinglePoint, WithReportedSpeciesTheirPressuresAndFluxesAreInTheFile) {
  model->single_point.species = {TMGa_g, NH3_g};
  EXPECT_EQ(written(), "T P delta TMGa_g NH3_g \n1030 40000.5 1e-05 0.25 20000 \n\n" + HISTORY_HEADING +
                           "\nMolar fluxes: TMGa_g NH3_g \n"
                           "1.5000000000000000e-006 -2.0000000000000000e+000 \n");
}

TEST_F(SinglePoint, TheHistoryHasOneRowForEachPointWithoutABlankAtItsEnd) {
  model->history.t = {0.0, 0.5};
  model->history.c_In = {1.0, 2.0};
  model->history.c_Ga = {3.0, 4.0};
  model->history.c_Al = {5.0, 6.0};
  model->history.c_N = {7.0, 8.0};
  model->history.c_H = {9.0, 0.0};
  model->history.Vg = {0.0, 1.0};  // 1 m/s is 3.6e9 mkm/hr
  model->history.x_In = {0.25, 0.5};
  model->history.z = {1.0, 2.0};
  EXPECT_EQ(written(),
            "T P delta \n1030 40000.5 1e-05 \n\n" + HISTORY_HEADING +
                "0.0000000000000000e+000 1.0000000000000000e+000 3.0000000000000000e+000 5.0000000000000000e+000 "
                "7.0000000000000000e+000 9.0000000000000000e+000 0.0000000000000000e+000 2.5000000000000000e-001 "
                "1.0000000000000000e+009\n"
                "5.0000000000000000e-001 2.0000000000000000e+000 4.0000000000000000e+000 6.0000000000000000e+000 "
                "8.0000000000000000e+000 0.0000000000000000e+000 3.6000000000000000e+009 5.0000000000000000e-001 "
                "2.0000000000000000e+009\n");
}

TEST_F(SinglePoint, AFailedRunIsWrittenAlike) {
  model->single_point.species = {TMGa_g};
  write_results(*model, false);
  EXPECT_EQ(read_file(model.path), "T P delta TMGa_g \n1030 40000.5 1e-05 0.25 \n\n" + HISTORY_HEADING +
                                       "\nMolar fluxes: TMGa_g \n1.5000000000000000e-006 \n");
}

TEST_F(SinglePoint, AClosedFileIsLeftAlone) {
  model->out.close();
  EXPECT_EQ(written(), "");
}

TEST_F(SinglePoint, ThePointsOfARunAreWritten) {
  accept(*model, 10.0, {.z = 1e-7, .x_b = {0.25, 0.75, 0.0}, .c_a = {1e-8, 2e-8, 3e-8, 4e-8, 5e-8}});
  accept(*model, 10.0 + 1e-6, {.z = 1e-7});
  const std::vector<std::string> lines = lines_of(written());
  ASSERT_EQ(lines.size(), 6u);
  const std::vector<double> row = numbers_of(lines[4]);
  ASSERT_EQ(row.size(), 9u);
  EXPECT_EQ(row[0], 10.0);
  EXPECT_EQ(row[5], 5e-8);
  EXPECT_EQ(row[7], 0.25);
  EXPECT_DOUBLE_EQ(row[8], 100.0);
}

}  // namespace
}  // namespace vorlen_test
