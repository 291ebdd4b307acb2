// Which texts are numbers is what "%lf" and "%d" of the C library scanf take. These two depend on the C library in
// the rare cases: a word that starts like infinity, 0x without digits, an integer that is too long.
#include "recipe/number_text.h"

#include <cmath>
#include <limits>
#include <string_view>

#include "platform/to_double.h"

namespace vorlen {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char lower(char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); }

bool is_hexadecimal_digit(char c) { return is_digit(c) || (lower(c) >= 'a' && lower(c) <= 'f'); }

const char* after_blanks(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  return text;
}

bool starts_with(const char* text, std::string_view word) {
  for (const char c : word) {
    if (lower(*text++) != c) return false;
  }
  return true;
}

// Reads inf, infinity or nan and returns its end; null for another text. A longer start of infinity than inf has to be
// all of it.
const char* read_word(const char* text, double& value) {
  constexpr std::string_view LONG_WORD = "infinity";
  constexpr std::size_t SHORT_SIZE = 3;  // of inf and nan
  if (starts_with(text, "nan")) {
    value = std::numeric_limits<double>::quiet_NaN();
    return text + SHORT_SIZE;
  }
  if (!starts_with(text, "inf")) return nullptr;
  const bool is_long = lower(text[SHORT_SIZE]) == LONG_WORD[SHORT_SIZE];
  if (is_long && !starts_with(text, LONG_WORD)) return nullptr;
  value = std::numeric_limits<double>::infinity();
  return text + (is_long ? LONG_WORD.size() : SHORT_SIZE);
}

// The end of the digits from text on, with at most one point among them. Sets has_digits if there are any.
template <class IsDigit>
const char* end_of_digits(const char* text, IsDigit is_one, bool& has_digits) {
  bool has_point = false;
  for (; is_one(*text) || (*text == '.' && !has_point); ++text) {
    if (*text == '.') {
      has_point = true;
    } else {
      has_digits = true;
    }
  }
  return text;
}

// The end of an exponent that starts with letter; text itself if there is none.
const char* end_of_exponent(const char* text, char letter) {
  if (lower(*text) != letter) return text;
  const char* end = text + (text[1] == '+' || text[1] == '-' ? 2 : 1);
  if (!is_digit(*end)) return text;
  while (is_digit(*end)) ++end;
  return end;
}

}  // namespace

const char* read_real(const char* text, double& value) {
  const char* const first = after_blanks(text);
  const bool is_negative = *first == '-';
  const char* const number = first + (is_negative || *first == '+' ? 1 : 0);
  double word = 0.0;
  if (const char* const end = read_word(number, word)) {
    value = std::copysign(word, is_negative ? -1.0 : 1.0);
    return end;
  }
  const bool is_hexadecimal = starts_with(number, "0x");
  const char* const digits = is_hexadecimal ? number + 2 : number;
  bool has_digits = false;
  const char* end = end_of_digits(digits, is_hexadecimal ? is_hexadecimal_digit : is_digit, has_digits);
  if (is_hexadecimal ? end == digits : !has_digits) return nullptr;
  if (!has_digits) {
    value = is_negative ? -0.0 : 0.0;  // 0x.
    return end;
  }
  end = end_of_exponent(end, is_hexadecimal ? 'p' : 'e');
  value = to_double(first, end, is_hexadecimal);
  return end;
}

const char* read_integer(const char* text, std::int32_t& value) {
  text = after_blanks(text);
  const bool is_negative = *text == '-';
  if (is_negative || *text == '+') ++text;
  if (!is_digit(*text)) return nullptr;
  // Negative, because the range has one more negative number.
  constexpr std::int64_t LEAST = std::numeric_limits<std::int64_t>::min();
  std::int64_t number = 0;
  for (; is_digit(*text); ++text) {
    const int digit = *text - '0';
    number = number < (LEAST + digit) / 10 ? LEAST : 10 * number - digit;
  }
  if (!is_negative) number = number == LEAST ? std::numeric_limits<std::int64_t>::max() : -number;
  value = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(number)));
  return text;
}

}  // namespace vorlen
