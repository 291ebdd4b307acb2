// Tables, as text with aligned columns for people and as CSV for programs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct TableColumn {
  std::string heading;
  bool left = false;  // aligned to the left, as words are; numbers are aligned to the right
};

struct Table {
  std::vector<TableColumn> columns;
  std::vector<std::vector<std::string>> rows;  // each with one cell for each column
};

// One line for the headings and one for each row: two blanks in front, two between columns, none at the end. In colour
// the headings are bold; cells may hold colours of their own, and line breaks in them become blanks.
std::string table_text(const Table& table, bool colour);

// Comma-separated values: a line of headings, then the rows; cells are quoted where they need it, lines end with \n.
std::string csv_text(const Table& table);

// Columns that text takes on a terminal. Sequences that set colours take none.
std::size_t display_width(const std::string& text);

// text on one line: line breaks and other control characters become blanks.
std::string printable(std::string text);

// value with so many decimals, without the sign of a value that rounds to zero; "-" for a not-a-number.
std::string fixed_number(double value, int decimals);

// value with up to three significant digits, as 6e+08; "-" for a not-a-number.
std::string short_number(double value);

// value with as many digits as bring it back exactly; an empty text for a not-a-number.
std::string exact_number(double value);
