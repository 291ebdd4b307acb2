// Numbers of the result file.
#include "results/number_format.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "results/decimal_digits.h"

namespace vorlen {

namespace {

constexpr int PRECISION = 16;
constexpr std::size_t GENERAL_FORMAT_MAX = 24;  // sign, digit, point, 15 digits, e, sign, 3 digits: 23

// All pairs of digits, 00 to 99.
constexpr std::array<char, 200> DIGIT_PAIRS = [] {
  std::array<char, 200> pairs{};
  for (std::size_t k = 0; k < 100; ++k) {
    pairs[2 * k] = static_cast<char>('0' + k / 10);
    pairs[2 * k + 1] = static_cast<char>('0' + k % 10);
  }
  return pairs;
}();

void write_pair(char* buffer, std::uint64_t number) {
  std::memcpy(buffer, &DIGIT_PAIRS[static_cast<std::size_t>(2 * number)], 2);
}

// A number below 10^9 as a multiple of 10^8, with the point before the 57th bit: the digit before the point is the
// first of nine. Too large by less than 10^9 units.
constexpr int POINT = 57;
constexpr std::uint64_t ONE = std::uint64_t{1} << POINT;
constexpr std::uint64_t TEN_TO_8 = 100000000;
std::uint64_t in_10_to_8(std::uint64_t number) { return number * (ONE / TEN_TO_8 + 1); }

// Writes the eight digits after the point. Each product by 100 moves the next two in front of it; after all four the
// number is too large by less than 10^17 units, and these are less than one.
void write_eight_digits(char* buffer, std::uint64_t number) {
  for (int k = 0; k < 8; k += 2) {
    number = number % ONE * 100;
    write_pair(buffer + k, number >> POINT);
  }
}

std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

// Characters of value in row format. What is not finite is inf or nan, with its sign.
std::size_t row_format_length(double value) {
  return (std::isfinite(value) ? ROW_FORMAT_MAX - 1 : 3) + (bits_of(value) >> 63);
}

// Row format of all that decimal_digits leaves open.
void write_undecided(char* buffer, double value) {
  char text[ROW_FORMAT_MAX];
  char* end = std::to_chars(text, text + ROW_FORMAT_MAX, value, std::chars_format::scientific, PRECISION).ptr;
  const bool two_digit_exponent = std::isfinite(value) && end[-4] == 'e';
  if (two_digit_exponent) {
    end[0] = end[-1];
    end[-1] = end[-2];
    end[-2] = '0';
    ++end;
  }
  std::copy(text, end, buffer);
}

// Writes value in row format to buffer, which holds row_format_length(value) characters.
void write_row_format(char* buffer, double value) {
  const DecimalDigits number = decimal_digits(value);
  if (!number.is_decided) {
    write_undecided(buffer, value);
    return;
  }
  *buffer = '-';
  buffer += std::signbit(value) ? 1 : 0;
  const std::uint64_t first_nine = in_10_to_8(number.digits / TEN_TO_8);
  buffer[0] = static_cast<char>('0' + (first_nine >> POINT));
  buffer[1] = '.';
  write_eight_digits(buffer + 2, first_nine);
  write_eight_digits(buffer + 10, in_10_to_8(number.digits % TEN_TO_8));
  buffer[18] = 'e';
  buffer[19] = number.exponent < 0 ? '-' : '+';
  const auto exponent = static_cast<std::uint32_t>(std::abs(number.exponent));
  buffer[20] = static_cast<char>('0' + exponent / 100);
  write_pair(buffer + 21, exponent % 100);
}

}  // namespace

void append_general(std::string& text, double value) {
  char buffer[GENERAL_FORMAT_MAX];
  const auto end = std::to_chars(buffer, buffer + GENERAL_FORMAT_MAX, value, std::chars_format::general, PRECISION).ptr;
  text.append(buffer, end);
}

void append_row_format(std::string& text, double value) {
  char buffer[ROW_FORMAT_MAX];
  write_row_format(buffer, value);
  text.append(buffer, row_format_length(value));
}

void append_columns(std::string& text, std::initializer_list<double> values) {
  bool first = true;
  for (double value : values) {
    if (!first) text += ' ';
    first = false;
    append_row_format(text, value);
  }
}

ColumnWriter::ColumnWriter() {
  char* end = text_.data();
  for (std::size_t column = 0; column < MAX_COLUMNS; ++column) {
    write_row_format(end, 0.0);
    end += row_format_length(0.0);
    *end++ = ' ';
    begin_[column + 1] = static_cast<std::size_t>(end - text_.data());
  }
}

char* ColumnWriter::write_row(char* buffer, std::initializer_list<double> values) {
  std::size_t column = 0;
  for (double value : values) {
    const std::uint64_t bits = bits_of(value);
    const std::size_t k = column++;
    if (bits == bits_[k]) continue;
    bits_[k] = bits;
    const std::size_t length = row_format_length(value);
    if (begin_[k] + length + 1 != begin_[k + 1]) resize(k, length);
    char* text = &text_[begin_[k]];
    if (const std::size_t same = equal_column(k); same != k) {
      std::memcpy(text, &text_[begin_[same]], length);
    } else {
      write_row_format(text, value);
    }
  }
  const std::size_t length = begin_[column] - 1;
  std::memcpy(buffer, text_.data(), length);
  return buffer + length;
}

std::size_t ColumnWriter::equal_column(std::size_t column) const {
  for (const std::size_t back : {6U, 1U, 7U}) {
    if (column >= back && bits_[column - back] == bits_[column]) return column - back;
  }
  return column;
}

void ColumnWriter::resize(std::size_t column, std::size_t length) {
  const std::size_t old_end = begin_[column + 1];
  const std::size_t end = begin_[column] + length + 1;
  std::memmove(text_.data() + end, text_.data() + old_end, begin_.back() - old_end);
  for (std::size_t k = column + 1; k <= MAX_COLUMNS; ++k) begin_[k] += end - old_end;
  text_[end - 1] = ' ';
}

}  // namespace vorlen
