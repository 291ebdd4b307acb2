// Comparison of a result file with a stored one: byte for byte if the C library rounds like the one used for the stored
// file (libm_probe.h), otherwise with tolerances for the interpolated columns.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vorlen_test {

// The texts are the same except for the sign of NaNs, which depends on the order of operands.
testing::AssertionResult same_text(const std::string& expected, const std::string& actual);

// The same layers and, on the times of expected, the same columns. A thickness may differ by tolerance of the largest
// thickness; a column, interpolated linearly in time, by tolerance of its largest value (fractions: of 1, strains: of
// at least 1e-3) from the values between the rows around it. Rows are not compared one by one: their times follow the
// step sizes of the integrator, which react to a last bit.
testing::AssertionResult same_layers_and_columns(const std::string& expected, const std::string& actual,
                                                 double tolerance);

// same_text, or same_layers_and_columns if libm_matches_reference() is false; the output then says so.
testing::AssertionResult same_result(const std::string& expected, const std::string& actual, double tolerance = 1e-6);

}  // namespace vorlen_test
