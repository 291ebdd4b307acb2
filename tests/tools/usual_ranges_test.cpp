// The table of usual ranges, and readings in other units against manual conversions.
#include "check/usual_ranges.h"

#include <gtest/gtest.h>

#include <cmath>

#include "check/recipe_check.h"

namespace vorlen_test {
namespace {

using recipe::other_reading;
using recipe::Quantity;
using recipe::side_of;
using recipe::usual_range;

TEST(UsualRanges, HaveARowForEachQuantityInOrder) {
  EXPECT_EQ(recipe::usual_ranges().size(), static_cast<std::size_t>(Quantity::V_angle) + 1);
  std::size_t k = 0;
  for (const recipe::UsualRange& range : recipe::usual_ranges()) {
    EXPECT_EQ(static_cast<std::size_t>(range.quantity), k++) << range.name;
    EXPECT_LT(range.low, range.high) << range.name;
    EXPECT_NE(*range.reason, '\0') << range.name;
  }
}

TEST(UsualRanges, IncludeTheirEnds) {
  const recipe::UsualRange& P = usual_range(Quantity::P);
  EXPECT_EQ(side_of(P, P.low), 0);
  EXPECT_EQ(side_of(P, P.high), 0);
  EXPECT_EQ(side_of(P, std::nextafter(P.low, 0.0)), -1);
  EXPECT_EQ(side_of(P, std::nextafter(P.high, 1e9)), 1);
  EXPECT_EQ(side_of(P, std::nan("")), 0);
}

TEST(UsualRanges, ReadValuesInOtherUnits) {
  EXPECT_EQ(other_reading(usual_range(Quantity::T_indium), 757), "757 °C is 1030.15 K");
  EXPECT_EQ(other_reading(usual_range(Quantity::T_gallium), 1623.15), "1623.15 K is 1350 K + 273.15");
  EXPECT_EQ(other_reading(usual_range(Quantity::P), 400), "400 mbar is 40000 Pa, 400 Torr is 53328.8 Pa");
  EXPECT_EQ(other_reading(usual_range(Quantity::P), 4e6), "4000000 Pa is 40000 Pa times 100");
  EXPECT_EQ(other_reading(usual_range(Quantity::delta), 8), "8 mm is 0.008 m");
  EXPECT_EQ(other_reading(usual_range(Quantity::delta), 8e-6), "8e-6 m is 0.008 m / 1000");
  EXPECT_EQ(other_reading(usual_range(Quantity::TEGa), 22.3), "22.3 µmol/min is 0.499832 sccm");
  EXPECT_EQ(other_reading(usual_range(Quantity::total_flow), 16.5), "16.5 slm is 16500 sccm");
  EXPECT_EQ(other_reading(usual_range(Quantity::rho_D), 5e12), "5e12 m⁻² is 5e8 cm⁻²");
  EXPECT_EQ(other_reading(usual_range(Quantity::lattice), 0.3189), "0.3189 nm is 3.189 Å");
  EXPECT_EQ(other_reading(usual_range(Quantity::V_angle), 0.26), "0.26 rad is 14.8969 degrees");
}

TEST(UsualRanges, HaveNoReadingThatIsNotUsualEither) {
  EXPECT_EQ(other_reading(usual_range(Quantity::T_indium), 3000), "");
  EXPECT_EQ(other_reading(usual_range(Quantity::P), 1e-3), "");
  EXPECT_EQ(other_reading(usual_range(Quantity::V_III_indium), 1), "");
  EXPECT_EQ(other_reading(usual_range(Quantity::delta), 0.0), "");
}

TEST(UsualRanges, ShowNumbersShortly) {
  EXPECT_EQ(recipe::value_words(40000), "40000");
  EXPECT_EQ(recipe::value_words(4e6), "4000000");
  EXPECT_EQ(recipe::value_words(1e12), "1e12");
  EXPECT_EQ(recipe::value_words(2.5e-5), "2.5e-5");
  EXPECT_EQ(recipe::value_words(1e-12), "1e-12");
  EXPECT_EQ(recipe::value_words(1e100), "1e100");
  EXPECT_EQ(recipe::value_words(0.0005), "0.0005");
  EXPECT_EQ(recipe::value_words(1.0 / 3.0), "0.333333");
  EXPECT_EQ(recipe::value_words(std::nan("")), "nan");
  EXPECT_EQ(recipe::value_words(HUGE_VAL), "inf");
}

}  // namespace
}  // namespace vorlen_test
