// The two number formats of the result file, independent of any locale.
#pragma once

#include <initializer_list>
#include <string>

namespace vorlen {

// General format: the shorter of fixed and scientific notation with 16 significant digits, no trailing zeros.
void append_general(std::string& text, double value);

// Row format: one digit, the point, 16 digits, e, sign and three digits of the exponent: 1.2500000000000000e+002.
void append_row_format(std::string& text, double value);

// The values in row format, separated by one blank.
void append_columns(std::string& text, std::initializer_list<double> values);

}  // namespace vorlen
