// The two number formats against what a stream in the classic locale writes.
#include "results/number_format.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <vector>

namespace vorlen_test {
namespace {

using namespace vorlen;

std::string general(double value) {
  std::string text;
  append_general(text, value);
  return text;
}

std::string row(double value) {
  std::string text;
  append_row_format(text, value);
  return text;
}

// Not every C library writes the sign of NaN.
std::string sign_of_nan(double value) { return std::isnan(value) && std::signbit(value) ? "-" : ""; }

std::string stream_general(double value) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream << sign_of_nan(value) << std::setprecision(16) << (std::isnan(value) ? std::fabs(value) : value);
  return stream.str();
}

// The stream's scientific form, with a two-digit exponent widened to three.
std::string stream_row(double value) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream << sign_of_nan(value) << std::showpoint << std::scientific << std::setprecision(16)
         << (std::isnan(value) ? std::fabs(value) : value);
  std::string text = stream.str();
  const std::size_t e = text.find('e');
  if (e != std::string::npos && text.size() - e == 4) text.insert(e + 2, 1, '0');
  return text;
}

// Numbers with short decimals, limits, and random bit patterns of every exponent.
std::vector<double> samples() {
  constexpr double INF = std::numeric_limits<double>::infinity();
  std::vector<double> values = {
      0.0,
      -0.0,
      1.0,
      120.0,
      35.5,
      0.1,
      1e-4,
      1e-5,
      9.9999999999999995e-5,
      0.00012345,
      1e15,
      1e16,
      1e17,
      1e22,
      1e-99,
      1e99,
      1e100,
      1e-100,
      1e-310,
      5e-324,
      -1e20,
      1.0 / 3.0,
      INF,
      -INF,
      std::numeric_limits<double>::quiet_NaN(),
      -std::numeric_limits<double>::quiet_NaN(),
      std::numeric_limits<double>::max(),
      std::numeric_limits<double>::min(),
  };
  std::mt19937_64 random(20240229);
  for (int k = 0; k < 50000; ++k) values.push_back(std::bit_cast<double>(random()));
  // The same number of values of the sizes that occur, rounded to few digits or not.
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-20, 20);
  for (int k = 0; k < 50000; ++k) {
    const double value = mantissa(random) * std::pow(10.0, exponent(random));
    values.push_back(k % 2 == 0 ? value : std::round(value * 1000.0) / 1000.0);
  }
  return values;
}

TEST(GeneralFormat, KnownNumbersHaveTheShorterOfBothNotations) {
  EXPECT_EQ(general(120.0), "120");
  EXPECT_EQ(general(35.5), "35.5");
  EXPECT_EQ(general(0.1), "0.1");
  EXPECT_EQ(general(0.0), "0");
  EXPECT_EQ(general(-0.0), "-0");
  EXPECT_EQ(general(0.0001), "0.0001");
  EXPECT_EQ(general(1e-5), "1e-05");
  EXPECT_EQ(general(1e15), "1000000000000000");
  EXPECT_EQ(general(1e16), "1e+16");
  EXPECT_EQ(general(1e17), "1e+17");
  EXPECT_EQ(general(1.0 / 3.0), "0.3333333333333333");
  EXPECT_EQ(general(2.0 / 3.0), "0.6666666666666666");
  EXPECT_EQ(general(123456789.01234567), "123456789.0123457");
  EXPECT_EQ(general(-1e100), "-1e+100");
}

TEST(GeneralFormat, ItIsWhatAStreamWritesWithSixteenDigits) {
  for (double value : samples()) ASSERT_EQ(general(value), stream_general(value));
}

TEST(RowFormat, KnownNumbersHaveSixteenDigitsAndAnExponentOfThree) {
  EXPECT_EQ(row(125.0), "1.2500000000000000e+002");
  EXPECT_EQ(row(0.0), "0.0000000000000000e+000");
  EXPECT_EQ(row(-0.0), "-0.0000000000000000e+000");
  EXPECT_EQ(row(-0.5), "-5.0000000000000000e-001");
  EXPECT_EQ(row(1e-99), "1.0000000000000000e-099");
  EXPECT_EQ(row(1e-100), "1.0000000000000000e-100");
  EXPECT_EQ(row(1e100), "1.0000000000000000e+100");
  EXPECT_EQ(row(-1e20), "-1.0000000000000000e+020");
  EXPECT_EQ(row(5e-324), "4.9406564584124654e-324");
  EXPECT_EQ(row(9.99999999999999999e22), "9.9999999999999992e+022");
}

TEST(RowFormat, WhatIsNoFiniteNumberIsWrittenAsTheStreamDoes) {
  constexpr double INF = std::numeric_limits<double>::infinity();
  constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(row(INF), "inf");
  EXPECT_EQ(row(-INF), "-inf");
  EXPECT_EQ(row(NOT_A_NUMBER), "nan");
  EXPECT_EQ(row(-NOT_A_NUMBER), "-nan");
}

TEST(RowFormat, ItIsTheStreamsScientificFormWithAWiderExponent) {
  for (double value : samples()) ASSERT_EQ(row(value), stream_row(value));
}

TEST(RowFormat, ColumnsArePartedByOneBlank) {
  std::string text = "before ";
  append_columns(text, {1.0, -0.0});
  EXPECT_EQ(text, "before 1.0000000000000000e+000 -0.0000000000000000e+000");
  append_columns(text, {});
  EXPECT_EQ(text, "before 1.0000000000000000e+000 -0.0000000000000000e+000");
}

// Rows of 19 columns through a ColumnWriter, and the same rows with each value formatted by itself.
void expect_rows_alike(const std::vector<std::array<double, 19>>& rows) {
  ColumnWriter writer;
  for (const std::array<double, 19>& v : rows) {
    char text[19 * (ROW_FORMAT_MAX + 1)];
    const char* end = writer.write_row(text, {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11],
                                              v[12], v[13], v[14], v[15], v[16], v[17], v[18]});
    std::string expected;
    for (std::size_t k = 0; k < v.size(); ++k) {
      if (k > 0) expected += ' ';
      expected += stream_row(v[k]);
    }
    ASSERT_EQ(std::string(text, static_cast<std::size_t>(end - text)), expected);
  }
}

TEST(ColumnWriter, ItTellsZerosAndNotANumbersApartByTheirSign) {
  constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
  std::array<double, 19> row{};
  std::vector<std::array<double, 19>> rows = {row};
  for (std::size_t k : {0u, 1u, 7u, 8u, 18u}) {
    for (double value : {-0.0, 0.0, NOT_A_NUMBER, -NOT_A_NUMBER, 1e-300, -1e-3}) {
      row[k] = value;
      rows.push_back(row);
    }
  }
  expect_rows_alike(rows);
}

TEST(ColumnWriter, RepeatedValuesAreWrittenLikeNewOnes) {
  // Few distinct values, so that a column repeats itself, its neighbour or the column seven before at random.
  constexpr double VALUES[] = {0.0, -0.0, 1.0, 3.189, -1e20, 1e-100, 2.5e-3};
  std::mt19937_64 random(7);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(VALUES) - 1);
  std::vector<std::array<double, 19>> rows(3000);
  for (auto& row : rows) {
    for (double& value : row) value = VALUES[pick(random)];
  }
  expect_rows_alike(rows);
}

TEST(ColumnWriter, DistinctValuesOfEveryLengthAreWrittenAsTheyAre) {
  std::mt19937_64 random(8);
  std::vector<std::array<double, 19>> rows(3000);
  for (auto& row : rows) {
    for (double& value : row) value = std::bit_cast<double>(random());
  }
  expect_rows_alike(rows);
}

}  // namespace
}  // namespace vorlen_test
