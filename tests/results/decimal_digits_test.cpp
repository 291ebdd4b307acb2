// The 17 digits of the row format against the C library's printf, which computes with as many digits as a number has.
#include "results/decimal_digits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include "results/number_format.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

std::string row(double value) {
  std::string text;
  append_row_format(text, value);
  return text;
}

std::string printed(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.16e", value);
  std::string text = buffer;
  const std::size_t e = text.find('e');
  if (std::isfinite(value) && text.size() - e == 4) text.insert(e + 2, 1, '0');
  return text;
}

// The number itself, and two neighbours on either side.
void expect_neighbours_as_printed(double value) {
  double near = value;
  for (int k = 0; k < 2; ++k) near = std::nextafter(near, 0.0);
  for (int k = 0; k < 5; ++k) {
    ASSERT_EQ(row(near), printed(near));
    near = std::nextafter(near, std::numeric_limits<double>::infinity());
  }
}

// Whole multiples of 5^power / 2, in which the 18th digit of multiple 2^-(power + 1) is its last and a 5. Odd ones
// below 2^53 exist for 1 <= power <= 24 only: the 17 digits begin at 10^16.
constexpr int LEAST_HALVED_POWER = 1;
constexpr int GREATEST_HALVED_POWER = 24;

double random_halfway_number(int power, std::mt19937_64& random) {
  const double five = std::pow(5.0, power);
  const auto least = static_cast<std::uint64_t>(std::ceil(2e16 / five));
  const auto greatest = std::min(static_cast<std::uint64_t>(2e17 / five), (std::uint64_t{1} << 53) - 1);
  const std::uint64_t odd = std::uniform_int_distribution<std::uint64_t>(least, greatest)(random) | 1;
  return std::ldexp(static_cast<double>(odd <= greatest ? odd : odd - 2), -(power + 1));
}

TEST(DecimalDigits, KnownNumbersHaveTheirDigits) {
  const DecimalDigits quarter = decimal_digits(-0.25);
  EXPECT_TRUE(quarter.is_decided);
  EXPECT_EQ(quarter.digits, 25000000000000000U);
  EXPECT_EQ(quarter.exponent, -1);
  const DecimalDigits tenth = decimal_digits(0.1);  // 0.1000000000000000055511151231257827
  EXPECT_EQ(tenth.digits, 10000000000000001U);
  EXPECT_EQ(tenth.exponent, -1);
  const DecimalDigits below_one = decimal_digits(std::nextafter(1.0, 0.0));  // 0.99999999999999988897769753748
  EXPECT_EQ(below_one.digits, 99999999999999989U);
  EXPECT_EQ(below_one.exponent, -1);
}

TEST(DecimalDigits, ZeroHasNoDigitsAndWhatIsNotFiniteIsLeftOpen) {
  for (double zero : {0.0, -0.0}) {
    EXPECT_TRUE(decimal_digits(zero).is_decided);
    EXPECT_EQ(decimal_digits(zero).digits, 0U);
    EXPECT_EQ(decimal_digits(zero).exponent, 0);
  }
  EXPECT_FALSE(decimal_digits(std::numeric_limits<double>::infinity()).is_decided);
  EXPECT_FALSE(decimal_digits(std::numeric_limits<double>::quiet_NaN()).is_decided);
}

TEST(DecimalDigits, EveryBinaryExponentIsWrittenAsPrinted) {
  constexpr int MANTISSAS = 200;
  std::mt19937_64 random(1);
  for (std::uint64_t exponent = 0; exponent < 0x7ff; ++exponent) {
    for (int k = 0; k < MANTISSAS; ++k) {
      const double value = std::bit_cast<double>((exponent << 52) | (random() >> 12));
      ASSERT_EQ(row(value), printed(value));
    }
  }
}

TEST(DecimalDigits, PowersOfTwoAndTheirNeighboursAreWrittenAsPrinted) {
  for (int exponent = -1074; exponent <= 1023; ++exponent) expect_neighbours_as_printed(std::ldexp(1.0, exponent));
}

TEST(DecimalDigits, MultiplesOfPowersOfTenAndTheirNeighboursAreWrittenAsPrinted) {
  for (int exponent = -324; exponent <= 308; ++exponent) {
    for (const char* factor : {"1", "1.5", "2", "5", "9", "9.9999999999999999", "9.99999999999999995"}) {
      const double value = std::strtod((factor + ("e" + std::to_string(exponent))).c_str(), nullptr);
      if (std::isfinite(value)) expect_neighbours_as_printed(value);
    }
  }
}

TEST(DecimalDigits, DenormalNumbersOfEveryLengthAreWrittenAsPrinted) {
  for (std::uint64_t bits = 1; bits <= 2000; ++bits) {
    const double value = std::bit_cast<double>(bits);
    ASSERT_EQ(row(value), printed(value));
  }
  std::mt19937_64 random(2);
  for (int length = 1; length <= 52; ++length) {
    for (int k = 0; k < 100; ++k) {
      const double value = std::bit_cast<double>(random() >> (64 - length));
      ASSERT_EQ(row(value), printed(value));
    }
  }
}

TEST(DecimalDigits, NumbersHalfwayBetweenTwoOfSeventeenDigitsAreLeftOpenAndGoToTheEvenOne) {
  EXPECT_EQ(row(std::ldexp(1.0, -25)), "2.9802322387695312e-008");  // 2.98023223876953125e-8
  EXPECT_EQ(row(std::ldexp(3.0, -25)), "8.9406967163085938e-008");  // 8.94069671630859375e-8
  std::mt19937_64 random(3);
  for (int power = LEAST_HALVED_POWER; power <= GREATEST_HALVED_POWER; ++power) {
    for (int k = 0; k < 200; ++k) {
      const double value = random_halfway_number(power, random);
      ASSERT_FALSE(decimal_digits(value).is_decided) << printed(value);
      ASSERT_EQ(row(value), printed(value));
      ASSERT_EQ(row(-value), printed(-value));
      for (double near : {std::nextafter(value, 0.0), std::nextafter(value, 1e300)}) {
        ASSERT_EQ(row(near), printed(near));
      }
    }
  }
}

TEST(DecimalDigits, NumbersNearestToHalfwayAreWrittenAsPrinted) {
  // Of all normal numbers these come nearest to halfway without lying there, found by continued fractions of the powers
  // of ten: between 0.04 and 1.3 units of 2^-60 of the last digit, on either side.
  for (double value :
       {0x1.3de005bd620dfp+216, 0x1.7c0747bd76fa1p-814, 0x1.3de005bd620dfp+215, 0x1.7c0747bd76fa1p-815,
        0x1.59a2783ce70abp-329, 0x1.edac8039173c0p+532, 0x1.348bd023ae858p+536, 0x1.81aec42c9a26ep+539,
        0x1.1d467e94b856ep-752, 0x1.6e22db4568793p-247, 0x1.e735b3003e352p+455, 0x1.491daad0ba280p+530,
        0x1.9b651584e8b20p+533, 0x1.011f2d73116f4p+537, 0x1.4166f8cfd5cb1p+540, 0x1.e16ee5d60cf47p-785,
        0x1.0d9b828199006p-908, 0x1.1ff9f576a2e30p+534, 0x1.a999ddec72acap+599, 0x1.a3d8d5e503e59p-975}) {
    ASSERT_EQ(row(value), printed(value));
  }
  EXPECT_FALSE(decimal_digits(0x1.3de005bd620dfp+216).is_decided);  // 0.04 units above halfway
  EXPECT_FALSE(decimal_digits(0x1.edac8039173c0p+532).is_decided);  // 0.52 units below
}

TEST(DecimalDigits, NumbersOfUsualSizesAreHardlyEverLeftOpen) {
  // Halfway numbers below 2^34 have a one followed by at least 11 zero bits: one in 2^12 of any binary exponent.
  std::mt19937_64 random(4);
  std::uniform_int_distribution<int> exponent(-100, 33);
  int open_count = 0;
  constexpr int COUNT = 100000;
  for (int k = 0; k < COUNT; ++k) {
    const double mantissa = static_cast<double>((random() >> 12) | (std::uint64_t{1} << 52));
    if (!decimal_digits(std::ldexp(mantissa, exponent(random) - 52)).is_decided) ++open_count;
  }
  EXPECT_LE(open_count, COUNT >> 12);
}

}  // namespace
}  // namespace vorlen_test
