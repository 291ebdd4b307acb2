// The two number formats of the result file, independent of any locale.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace vorlen {

// General format: the shorter of fixed and scientific notation with 16 significant digits, no trailing zeros.
void append_general(std::string& text, double value);

// Longest number in row format: sign, digit, point, 16 digits, e, sign, 3 digits; with room to widen the exponent.
inline constexpr std::size_t ROW_FORMAT_MAX = 28;

// Row format: one digit, the point, 16 digits, e, sign and three digits of the exponent: 1.2500000000000000e+002.
void append_row_format(std::string& text, double value);

// The values in row format, separated by one blank.
void append_columns(std::string& text, std::initializer_list<double> values);

// Writes the columns of a table row by row. A value that stands in the same column of the row before, in the column
// before, or seven columns before (where the columns (z) repeat the columns (t)) is copied instead of formatted anew.
class ColumnWriter {
 public:
  // Appends one row of at most 25 values in row format, separated by one blank.
  void append(std::string& text, std::initializer_list<double> values);

 private:
  static constexpr int MAX_COLUMNS = 25;
  static constexpr int GROUP = 7;
  struct Column {
    double value = 0.0;
    std::uint32_t length = 0;  // 0: not written yet
    char text[ROW_FORMAT_MAX];
  };
  std::array<Column, MAX_COLUMNS> columns_;
};

}  // namespace vorlen
