// Numbers of the result file.
#include "results/number_format.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>

namespace vorlen {

namespace {

constexpr int PRECISION = 16;

// Writes value in row format to buffer, which holds ROW_FORMAT_MAX characters, and returns the end.
char* write_row_format(char* buffer, double value) {
  char* end = std::to_chars(buffer, buffer + ROW_FORMAT_MAX, value, std::chars_format::scientific, PRECISION).ptr;
  const bool two_digit_exponent = std::isfinite(value) && end[-4] == 'e';
  if (two_digit_exponent) {
    end[0] = end[-1];
    end[-1] = end[-2];
    end[-2] = '0';
    ++end;
  }
  return end;
}

}  // namespace

void append_general(std::string& text, double value) {
  char buffer[ROW_FORMAT_MAX];
  const auto end = std::to_chars(buffer, buffer + ROW_FORMAT_MAX, value, std::chars_format::general, PRECISION).ptr;
  text.append(buffer, end);
}

void append_row_format(std::string& text, double value) {
  char buffer[ROW_FORMAT_MAX];
  text.append(buffer, write_row_format(buffer, value));
}

void append_columns(std::string& text, std::initializer_list<double> values) {
  bool first = true;
  for (double value : values) {
    if (!first) text += ' ';
    first = false;
    append_row_format(text, value);
  }
}

void ColumnWriter::append(std::string& text, std::initializer_list<double> values) {
  const auto bits = [](double value) { return std::bit_cast<std::uint64_t>(value); };
  char row[MAX_COLUMNS * ROW_FORMAT_MAX];
  char* end = row;
  int number = 0;
  for (double value : values) {
    Column& column = columns_[static_cast<std::size_t>(number)];
    if (column.length == 0 || bits(value) != bits(column.value)) {
      const Column* same = nullptr;
      for (int back : {1, GROUP}) {
        if (number >= back && bits(columns_[static_cast<std::size_t>(number - back)].value) == bits(value)) {
          same = &columns_[static_cast<std::size_t>(number - back)];
        }
      }
      if (same != nullptr) {
        column = *same;
      } else {
        column.value = value;
        column.length = static_cast<std::uint32_t>(write_row_format(column.text, value) - column.text);
      }
    }
    if (number++ > 0) *end++ = ' ';
    end = std::copy_n(column.text, column.length, end);
  }
  text.append(row, end);
}

}  // namespace vorlen
