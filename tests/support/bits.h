// Comparison of doubles by their bits, with both numbers readable when they differ, and the tolerant form for C
// libraries whose exp, log and pow differ in the last bit from the one used for the reference values.
//
//   EXPECT_TRUE(same_bits(expected, actual)) << "species N2_g";
//   EXPECT_TRUE(same_as_reference(expected, actual)) << "species N2_g";
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/libm_probe.h"

namespace vorlen_test {

// The double of 16 hexadecimal digits, most significant first.
inline double from_bits(const std::string& digits) {
  return std::bit_cast<double>(static_cast<std::uint64_t>(std::strtoull(digits.c_str(), nullptr, 16)));
}

// Shortest sufficient decimal and the bits, as 0.1 [3fb999999999999a].
inline std::string show_double(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.17g [%016llx]", value,
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
  return text;
}

// Equal bit for bit. All NaNs are equal, because their sign and payload depend on the order of operands.
inline testing::AssertionResult same_bits(double expected, double actual) {
  if (std::isnan(expected) && std::isnan(actual)) return testing::AssertionSuccess();
  if (std::bit_cast<std::uint64_t>(expected) == std::bit_cast<std::uint64_t>(actual)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "expected " << show_double(expected) << ", got " << show_double(actual)
                                     << ", difference " << actual - expected;
}

// For values computed with exp, log, pow, sin or cos: equal bit for bit if the C library rounds like the one used for
// the reference values (libm_probe.h), otherwise within relative_tolerance of expected. A test program prints once
// which comparison it uses.
inline testing::AssertionResult same_as_reference(double expected, double actual, double relative_tolerance = 1e-12) {
  if (announced_libm_matches_reference()) return same_bits(expected, actual);
  if (std::isnan(expected) && std::isnan(actual)) return testing::AssertionSuccess();
  if (expected == actual || std::fabs(actual - expected) <= relative_tolerance * std::fabs(expected)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "expected " << show_double(expected) << ", got " << show_double(actual)
                                     << ", relative difference " << (actual - expected) / expected
                                     << " above the tolerance " << relative_tolerance;
}

}  // namespace vorlen_test
