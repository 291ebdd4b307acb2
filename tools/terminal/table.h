// Tables, as text with aligned columns for people and as CSV for programs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct TableColumn {
  std::string heading;
  bool left = false;    // left-aligned (words); otherwise right-aligned (numbers)
  bool joined = false;  // belongs to the column on its left, and is printed beside it
};

struct Table {
  std::vector<TableColumn> columns;
  std::vector<std::vector<std::string>> rows;  // each with one cell for each column
  std::size_t names = 1;                       // columns at the left that name a row, such as number and layer
};

// One line for the headings and one for each row, indented by two blanks, with two blanks between columns and none at
// the end. With colour the headings are bold. Cells may contain colour codes; line breaks in them become blanks.
// width: columns of the terminal. In a table that is wider, headings take several lines; if that is not enough, the
// columns are printed in parts, one below the other, each with the names of its rows. 0: any width.
std::string table_text(const Table& table, bool colour, std::size_t width = 0);

// table_text() as stdout can show it.
std::string table_for_stdout(const Table& table);

// Comma-separated values: a line of headings, then the rows. Cells are quoted where needed, lines end with \n.
std::string csv_text(const Table& table);

// Number of terminal columns that text occupies. Colour codes occupy none.
std::size_t display_width(const std::string& text);
