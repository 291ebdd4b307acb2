// Numbers and texts of files as people and programs can read them.
#pragma once

#include <string>

// text on one line: line breaks and other control characters become blanks.
std::string printable(std::string text);
// The same with line breaks and tabs as they are.
std::string printable_lines(std::string text);

// value with the given number of decimals, without a sign if it rounds to zero; "-" for NaN.
std::string fixed_number(double value, int decimals);

// value with up to three significant digits, such as 6e+08; "-" for NaN.
std::string short_number(double value);

// value with as many digits as are needed to read it back exactly; an empty text for NaN.
std::string exact_number(double value);
