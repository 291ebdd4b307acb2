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

// Longest number in row format: sign, digit, point, 16 digits, e, sign, 3 digits.
inline constexpr std::size_t ROW_FORMAT_MAX = 24;

// Row format: one digit, the point, 16 digits, e, sign and three digits of the exponent: 1.2500000000000000e+002.
void append_row_format(std::string& text, double value);

// The values in row format, separated by one blank.
void append_columns(std::string& text, std::initializer_list<double> values);

// Writes a table row by row. It keeps the text of the last row and rewrites only the columns whose values have changed,
// by a copy if an earlier column of the row has the same value: the one just before, or the column (t) that a column
// (z) repeats, which is seven columns before the first of them and six before the others (there is no rho_VD0(z)).
class ColumnWriter {
 public:
  ColumnWriter();

  // Writes one row of 1 to 25 values in row format, separated by one blank, and returns its end. There is room for
  // ROW_FORMAT_MAX characters and a blank for each value.
  char* write_row(char* buffer, std::initializer_list<double> values);

 private:
  static constexpr std::size_t MAX_COLUMNS = 25;

  // A column before this one that holds the same value, bit for bit; the column itself if there is none.
  std::size_t equal_column(std::size_t column) const;

  // Makes room for length characters in a column, moving the columns after it.
  void resize(std::size_t column, std::size_t length);

  // The last row, initially zeros, with a blank after each column.
  std::array<std::uint64_t, MAX_COLUMNS> bits_{};     // of the values
  std::array<std::size_t, MAX_COLUMNS + 1> begin_{};  // of each column in text_; at the end its length
  std::array<char, MAX_COLUMNS*(ROW_FORMAT_MAX + 1)> text_;
};

}  // namespace vorlen
