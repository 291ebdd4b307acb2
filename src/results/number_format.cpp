// Numbers of the result file.
#include "results/number_format.h"

#include <charconv>
#include <cmath>

namespace vorlen {

namespace {

constexpr int PRECISION = 16;
constexpr std::size_t LONGEST = 32;  // sign, digit, point, 16 digits, e, sign, 3 digits

}  // namespace

void append_general(std::string& text, double value) {
  char buffer[LONGEST];
  const auto end = std::to_chars(buffer, buffer + LONGEST, value, std::chars_format::general, PRECISION).ptr;
  text.append(buffer, end);
}

void append_row_format(std::string& text, double value) {
  char buffer[LONGEST];
  const auto end = std::to_chars(buffer, buffer + LONGEST, value, std::chars_format::scientific, PRECISION).ptr;
  const bool two_digit_exponent = std::isfinite(value) && (end[-4] == 'e');
  if (!two_digit_exponent) {
    text.append(buffer, end);
    return;
  }
  text.append(buffer, end - 2);
  text += '0';
  text.append(end - 2, end);
}

void append_columns(std::string& text, std::initializer_list<double> values) {
  bool first = true;
  for (double value : values) {
    if (!first) text += ' ';
    first = false;
    append_row_format(text, value);
  }
}

}  // namespace vorlen
