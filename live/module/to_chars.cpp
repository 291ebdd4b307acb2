// Takes the place of the function of libc++, whose tables have 105 kB. The library writes few numbers with it:
// settings, and what decimal_digits leaves open. A negative NaN is -nan as in libstdc++, not -nan(ind), for which a row
// has no place.
#include <charconv>
#include <cstdio>
#include <cstring>

std::to_chars_result std::to_chars(char* first, char* last, double value, std::chars_format format, int precision) {
  char text[64];
  const char* const conversion = format == std::chars_format::scientific ? "%.*e" : "%.*g";
  const auto length = static_cast<std::size_t>(std::snprintf(text, sizeof text, conversion, precision, value));
  if (length > static_cast<std::size_t>(last - first)) return {last, std::errc::value_too_large};
  std::memcpy(first, text, length);
  return {first + length, std::errc()};
}
