// Which attributes are numbers, and which ones. The expected values of the table follow from the definition of the
// formats of scanf; where that leaves a choice, they are what the C library of GNU does, which is also compared here
// wherever the tests run with it.
#include "recipe/number_text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace vorlen_test {
namespace {

using vorlen::read_integer;
using vorlen::read_real;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double LEFT = 7.5;  // value before the call; kept if the text does not start with a number

struct RealCase {
  const char* text;
  bool accepted;
  double value = LEFT;
};

const RealCase REALS[] = {
    {"", false},
    {" ", false},
    {"\t\n\v\f\r 1.5", true, 1.5},
    {"1.5", true, 1.5},
    {"+1.5", true, 1.5},
    {"-1.5", true, -1.5},
    {"+-1", false},
    {"--1", false},
    {"- 1", false},
    {"+", false},
    {"-", false},
    {".", false},
    {"+.", false},
    {"-.e1", false},
    {".e5", false},
    {"e5", false},
    {"E", false},
    {".5", true, 0.5},
    {"5.", true, 5.0},
    {"5.e1", true, 50.0},
    {"1..2", true, 1.0},
    {"1.5.7", true, 1.5},
    {"1,5", true, 1.0},
    {",5", false},
    {"1 000", true, 1.0},
    {"1'000", true, 1.0},
    {"1_000", true, 1.0},
    {"007", true, 7.0},
    {"1e5", true, 1e5},
    {"1E+5", true, 1e5},
    {"1e-5", true, 1e-5},
    {"1e", true, 1.0},
    {"1e+", true, 1.0},
    {"1e-", true, 1.0},
    {"1e+-5", true, 1.0},
    {"1e 5", true, 1.0},
    {"1e5.5", true, 1e5},
    {"1e5e5", true, 1e5},
    {"1d5", true, 1.0},
    {"1.5 nm", true, 1.5},
    {"1.5nm", true, 1.5},
    {"1.5f", true, 1.5},
    {"-0", true, -0.0},
    {"-0.0e400", true, -0.0},
    {"0e999999999999999999999", true, 0.0},
    {"1e308", true, 1e308},
    {"1e309", true, INF},
    {"-1e309", true, -INF},
    {"1e99999999999999999999999", true, INF},
    {"1e-99999999999999999999999", true, 0.0},
    {"-1e-400", true, -0.0},
    {"1e-320", true, 1e-320},
    {"4.9e-324", true, 4.9e-324},
    {"2.4e-324", true, 0.0},
    {"1.7976931348623158e308", true, std::numeric_limits<double>::max()},
    {"1.7976931348623159e308", true, INF},
    {"2.2250738585072012e-308", true, std::numeric_limits<double>::min()},
    {"0.1", true, 0.1},
    {"inf", true, INF},
    {"-Inf", true, -INF},
    {"+INFINITY", true, INF},
    {"infx", true, INF},
    {"inf inity", true, INF},
    {"infi", false},
    {"infinit", false},
    {"infinityx", true, INF},
    {"in", false},
    {"i", false},
    {"nan", true, NOT_A_NUMBER},
    {"NaN", true, NOT_A_NUMBER},
    {"-nan", true, -NOT_A_NUMBER},
    {"nan(123)", true, NOT_A_NUMBER},
    {"nanometre", true, NOT_A_NUMBER},
    {"na", false},
    {"0x10", true, 16.0},
    {"0X1P4", true, 16.0},
    {"-0x1.8p1", true, -3.0},
    {"0x.8", true, 0.5},
    {"0x", false},
    {"-0x", false},
    {"0xg", false},
    {"0xp1", false},
    {"0x.", true, 0.0},
    {"-0x.", true, -0.0},
    {"0x.p1", true, 0.0},
    {"0x1p", true, 1.0},
    {"0x1p+", true, 1.0},
    {"0x1e5", true, 485.0},
    {"0x1p1.5", true, 2.0},
    {"0x1p1024", true, INF},
    {"-0x1p99999999999999999999", true, -INF},
    {"0x1p-1074", true, 4.9e-324},
    {"0x1p-1076", true, 0.0},
    {"0x0.0000000000000000000000000000000000000001p200", true, 0x1p40},
    {"00x10", true, 0.0},
    {"0 x10", true, 0.0},
    {"one", false},
    {"%lf", false},
    {"\xc3\xa0 1", false},
    {"\xa0 1", false},  // a blank in ISO 8859-1
    {"1\xc2\xa0", true, 1.0},
};

std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

std::string shown(double value) { return std::to_string(value) + " " + std::to_string(bits_of(value)); }

TEST(NumberText, EachRealNumberIsReadAsItIsWritten) {
  for (const RealCase& expected : REALS) {
    double value = LEFT;
    EXPECT_EQ(read_real(expected.text, value) != nullptr, expected.accepted) << "\"" << expected.text << "\"";
    EXPECT_EQ(bits_of(value), bits_of(expected.value)) << "\"" << expected.text << "\": " << shown(value);
  }
}

struct IntegerCase {
  const char* text;
  bool accepted;
  std::int32_t value = 7;
};

const IntegerCase INTEGERS[] = {
    {"", false},
    {" ", false},
    {"\t\n\v\f\r 15", true, 15},
    {"+15", true, 15},
    {"-15", true, -15},
    {"- 15", false},
    {"+-15", false},
    {"-", false},
    {"015", true, 15},
    {"0x15", true, 0},
    {"1.9", true, 1},
    {"1e3", true, 1},
    {"3 periods", true, 3},
    {".5", false},
    {"x", false},
    {"inf", false},
    {"2147483647", true, 2147483647},
    {"-2147483648", true, std::numeric_limits<std::int32_t>::min()},
    {"2147483648", true, std::numeric_limits<std::int32_t>::min()},  // the lower 32 bits
    {"4294967297", true, 1},
    {"-4294967297", true, -1},
    {"9223372036854775807", true, -1},
    {"9223372036854775808", true, -1},  // the greatest of 64 bits has all lower bits set
    {"-9223372036854775808", true, 0},  // the least has none
    {"-9223372036854775809", true, 0},
    {"99999999999999999999999999999999", true, -1},
};

TEST(NumberText, EachIntegerIsReadAsItIsWritten) {
  for (const IntegerCase& expected : INTEGERS) {
    std::int32_t value = 7;
    EXPECT_EQ(read_integer(expected.text, value) != nullptr, expected.accepted) << "\"" << expected.text << "\"";
    EXPECT_EQ(value, expected.value) << "\"" << expected.text << "\"";
  }
}

struct EndCase {
  const char* text;
  const char* rest;
};

TEST(NumberText, ARealNumberEndsWhereItsNotationDoes) {
  constexpr EndCase CASES[] = {
      {"1.5", ""},       {" -5. ", " "},    {"12,5", ",5"},          {"1e5.5", ".5"}, {"1e", "e"},
      {"1e+x", "e+x"},   {"0x1Fg", "g"},    {"0x1p", "p"},           {"0x.p1", "p1"}, {"infx", "x"},
      {"-infinity", ""}, {"nan(1)", "(1)"}, {"+NaNometre", "ometre"}};
  for (const EndCase& expected : CASES) {
    double value = LEFT;
    EXPECT_STREQ(read_real(expected.text, value), expected.rest) << "\"" << expected.text << "\"";
  }
}

TEST(NumberText, AnIntegerEndsAfterItsDigits) {
  constexpr EndCase CASES[] = {{"15", ""}, {" +3.7", ".7"}, {"0x15", "x15"}, {"99999999999999999999 x", " x"}};
  for (const EndCase& expected : CASES) {
    std::int32_t value = 7;
    EXPECT_STREQ(read_integer(expected.text, value), expected.rest) << "\"" << expected.text << "\"";
  }
}

// Texts that look like numbers, with what may go wrong in them.
class RandomTexts {
 public:
  // Anything.
  std::string next() {
    switch (below(4)) {
      case 0:
        return pieces();
      case 1:
        return written();
      case 2:
        return halfway();
      default:
        return characters();
    }
  }

  // A number.
  std::string next_number() { return below(2) == 0 ? written() : halfway(); }

 private:
  std::size_t below(std::size_t n) { return random_() % n; }

  std::string pieces() {
    static const char* const PIECES[] = {
        "0",  "1",  "9",  ".",   "e",        "E",    "+",     "-",           "0x",   "0X",      "p",
        "P",  "a",  "F",  "inf", "infinity", "nan",  "i",     "n",           " ",    "\t",      "\n",
        ",",  "(",  "00", "17",  "308",      "-324", "1e30",  "x",           "f",    "_",       "'",
        "\r", "5.", ".5", "INF", "NaN",      "1023", "-1074", "99999999999", "\xa0", "\xc3\xa4"};
    std::string text;
    for (std::size_t k = below(8); k > 0; --k) text += PIECES[below(std::size(PIECES))];
    return text;
  }

  std::string characters() {
    static const char CHARACTERS[] = "0123456789.eE+-xXpPaAbBfF ";
    std::string text;
    for (std::size_t k = below(24); k > 0; --k) text += CHARACTERS[below(sizeof CHARACTERS - 1)];
    return text;
  }

  // Any double in any notation.
  std::string written() {
    static const char* const FORMATS[] = {"%.17g", "%.16e", "%.3f", "%a", "%.5a", "%.30g", "%g"};
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, FORMATS[below(std::size(FORMATS))], any_double());
    return buffer;
  }

  // Next to the middle between two doubles, with many digits: the hardest to round.
  std::string halfway() {
    std::uint64_t mantissa = random_() >> 11 | std::uint64_t{1} << 52;
    mantissa = 2 * mantissa + 1;
    std::string digits = std::to_string(mantissa);
    if (below(2) == 0) digits += "." + std::string(below(800), '0') + (below(2) == 0 ? "1" : "");
    return digits + "e" + std::to_string(static_cast<int>(below(40)) - 20);
  }

  double any_double() {
    const auto value = std::bit_cast<double>(random_());
    return std::isfinite(value) ? value : 1.0;
  }

  std::mt19937_64 random_{20260};
};

#ifdef __GLIBC__
TEST(NumberText, RealNumbersAreThoseOfScanf) {
  RandomTexts texts;
  for (int k = 0; k < 300000; ++k) {
    const std::string text = texts.next();
    double value = LEFT, expected = LEFT;
    const bool accepted = read_real(text.c_str(), value) != nullptr;
    ASSERT_EQ(accepted, std::sscanf(text.c_str(), "%lf", &expected) == 1) << "\"" << text << "\"";
    ASSERT_EQ(bits_of(value), bits_of(expected)) << "\"" << text << "\": " << shown(value) << ", " << shown(expected);
  }
  for (const RealCase& listed : REALS) {
    double expected = LEFT;
    EXPECT_EQ(std::sscanf(listed.text, "%lf", &expected) == 1, listed.accepted) << "\"" << listed.text << "\"";
    EXPECT_EQ(bits_of(listed.value), bits_of(expected)) << "\"" << listed.text << "\"";
  }
}

TEST(NumberText, IntegersAreThoseOfScanf) {
  RandomTexts texts;
  for (int k = 0; k < 300000; ++k) {
    const std::string text = texts.next();
    std::int32_t value = 7, expected = 7;
    const bool accepted = read_integer(text.c_str(), value) != nullptr;
    ASSERT_EQ(accepted, std::sscanf(text.c_str(), "%d", &expected) == 1) << "\"" << text << "\"";
    ASSERT_EQ(value, expected) << "\"" << text << "\"";
  }
  for (const IntegerCase& listed : INTEGERS) {
    std::int32_t expected = 7;
    EXPECT_EQ(std::sscanf(listed.text, "%d", &expected) == 1, listed.accepted) << "\"" << listed.text << "\"";
    EXPECT_EQ(listed.value, expected) << "\"" << listed.text << "\"";
  }
}
#else
// Where scanf of the C library is another, but its strtod rounds to the nearest.
TEST(NumberText, RealNumbersAreThoseOfStrtod) {
  RandomTexts texts;
  for (int k = 0; k < 100000; ++k) {
    const std::string text = texts.next_number();
    double value = LEFT;
    ASSERT_NE(read_real(text.c_str(), value), nullptr) << "\"" << text << "\"";
    const double expected = std::strtod(text.c_str(), nullptr);
    ASSERT_EQ(bits_of(value), bits_of(expected)) << "\"" << text << "\": " << shown(value) << ", " << shown(expected);
  }
}
#endif

}  // namespace
}  // namespace vorlen_test
