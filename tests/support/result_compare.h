// Comparison of a result file with a stored one: byte for byte if the C library rounds like the one used for the stored
// file (libm_probe.h), otherwise with tolerances for the interpolated columns.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vorlen_test {

// The texts are the same except for the sign of NaNs, which depends on the order of operands.
testing::AssertionResult same_text(const std::string& expected, const std::string& actual);

// How far the numbers may be apart.
struct ResultTolerance {
  double thickness = 1e-6;      // of a layer, of the largest thickness
  double column = 1e-6;         // of a value, of the largest value of its column (strains: of at least 1e-3)
  double fraction = 1e-6;       // of one of the three fractions
  double mean_fraction = 1e-6;  // of its mean over the depth of the whole file
};

// The same layers, the same end of the rows and, on the times of expected, the same columns, NaNs included. A value is
// compared, linearly interpolated in time, with the values between the rows around it. Rows are not compared one by
// one: their times follow the step sizes of the integrator, which react to a last bit.
testing::AssertionResult same_layers_and_columns(const std::string& expected, const std::string& actual,
                                                 const ResultTolerance& tolerance = {});

// same_text, or same_layers_and_columns if libm_matches_reference() is false; the output then says so.
testing::AssertionResult same_result(const std::string& expected, const std::string& actual,
                                     const ResultTolerance& tolerance = {});

}  // namespace vorlen_test
