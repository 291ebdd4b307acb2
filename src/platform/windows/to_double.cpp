// Not by strtod, which depends on a locale that only the whole process has.
#include "platform/to_double.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

namespace vorlen {

namespace {

// Whether a number that is not zero is above 1, from the place of its first digit that is not zero and its exponent.
// Enough to know on which side of the range of double it is outside.
bool is_large(const char* first, const char* last, bool is_hexadecimal) {
  const char* const exponent =
      std::find_if(first, last, [&](char c) { return is_hexadecimal ? c == 'p' || c == 'P' : c == 'e' || c == 'E'; });
  const char* const point = std::find(first, exponent, '.');
  const char* const digit = std::find_if(first, exponent, [](char c) { return c != '0' && c != '.'; });
  std::int64_t order = (digit < point ? point - digit : point - digit + 1) * (is_hexadecimal ? 4 : 1);
  if (exponent != last) {
    std::int64_t power = 0;
    const char* const digits = exponent + (exponent[1] == '+' || exponent[1] == '-' ? 2 : 1);
    constexpr std::int64_t FAR = std::int64_t{1} << 40;  // longer than any text
    for (const char* c = digits; c != last; ++c) power = std::min(FAR, 10 * power + (*c - '0'));
    order += exponent[1] == '-' ? -power : power;
  }
  return order > 0;
}

}  // namespace

double to_double(const char* first, const char* last, bool is_hexadecimal) {
  const bool is_negative = *first == '-';
  if (*first == '-' || *first == '+') ++first;
  if (is_hexadecimal) first += 2;
  double value = 0.0;
  const auto format = is_hexadecimal ? std::chars_format::hex : std::chars_format::general;
  if (std::from_chars(first, last, value, format).ec == std::errc::result_out_of_range) {
    value = is_large(first, last, is_hexadecimal) ? std::numeric_limits<double>::infinity() : 0.0;
  }
  return is_negative ? -value : value;
}

}  // namespace vorlen
