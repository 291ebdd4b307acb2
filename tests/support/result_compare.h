// Comparison of a result file with a stored one: by bytes where the C library gives the last bits that the stored file
// was computed with (libm_probe.h), otherwise by column tolerances on interpolated columns.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vorlen_test {

// The texts are the same but for the sign of not-a-numbers, which follows the order of operands.
testing::AssertionResult same_text(const std::string& expected, const std::string& actual);

// The same layers and, on the times of expected, the same columns. A thickness may differ by tolerance of the largest
// thickness; a column, interpolated linearly in time, by tolerance of its largest value (fractions: of 1, strains: of
// at least 1e-3) from the values between the rows around it. Rows are not compared one by one: their times follow the
// step sizes of the integrator, which react to a last bit.
testing::AssertionResult same_layers_and_columns(const std::string& expected, const std::string& actual,
                                                 double tolerance);

// same_text, or same_layers_and_columns where libm_matches_reference() says no; the output then says so.
testing::AssertionResult same_result(const std::string& expected, const std::string& actual, double tolerance = 1e-6);

}  // namespace vorlen_test
