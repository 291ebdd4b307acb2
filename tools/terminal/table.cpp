// Widths are those on a terminal if output is in UTF-8, otherwise one column per UTF-8 character.
#include "terminal/table.h"

#include <fmt/color.h>
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <sstream>

#include "platform/terminal.h"
#include "terminal/terminal.h"

namespace {

constexpr char ESCAPE = '\033';
constexpr const char* GAP = "  ";
constexpr std::size_t HEADING_WIDTH = 9;  // of headings that take several lines

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20U || c == 0x7f; }

// Characters of UTF-8: bytes that do not continue one.
std::size_t character_count(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

// text without the sequences ESC [ ... m.
std::string without_colours(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ESCAPE) {
      i = std::min(text.find('m', i), text.size() - 1);
    } else {
      plain += text[i];
    }
  }
  return plain;
}

void append_cell(std::string& line, const std::string& cell, std::size_t width, bool left) {
  const std::size_t shown = display_width(cell);
  const std::string padding(width > shown ? width - shown : 0, ' ');
  line += left ? GAP + cell + padding : GAP + padding + cell;
}

void append_line(std::string& text, std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  text += line + '\n';
}

// A table, of which some columns are printed.
struct TableParts {
  std::vector<std::vector<std::string>> headings;  // of each column in lines
  std::vector<std::size_t> widths;
  std::vector<std::vector<std::string>> rows;
};

std::size_t width_of(const TableParts& parts, const std::vector<std::size_t>& columns) {
  std::size_t width = 0;
  for (const std::size_t i : columns) width += std::strlen(GAP) + parts.widths[i];
  return width;
}

std::string part_text(const Table& table, const TableParts& parts, const std::vector<std::size_t>& columns,
                      bool colour) {
  std::size_t height = 1;
  for (const std::size_t i : columns) height = std::max(height, parts.headings[i].size());
  std::string text;
  for (std::size_t k = 0; k < height; ++k) {
    std::string line;
    for (const std::size_t i : columns) {
      const std::vector<std::string>& heading = parts.headings[i];
      const std::size_t above = height - heading.size();  // empty lines
      append_cell(line, k < above ? "" : heading[k - above], parts.widths[i], table.columns[i].left);
    }
    std::string heading;
    append_line(heading, line);
    text += colour ? fmt::format(fmt::emphasis::bold, "{}", heading.substr(0, heading.size() - 1)) + '\n' : heading;
  }
  for (const std::vector<std::string>& row : parts.rows) {
    std::string line;
    for (const std::size_t i : columns) append_cell(line, row[i], parts.widths[i], table.columns[i].left);
    append_line(text, line);
  }
  return text;
}

// A heading in lines of at most that width, or of one word.
std::vector<std::string> heading_lines(const std::string& heading, std::size_t width) {
  std::vector<std::string> lines;
  std::istringstream words(heading);
  for (std::string word; words >> word;) {
    if (!lines.empty() && display_width(lines.back()) + 1 + display_width(word) <= width) {
      lines.back() += ' ' + word;
    } else {
      lines.push_back(word);
    }
  }
  return lines;
}

// The columns of each part: those with the names, and as many others as fit, at least one.
std::vector<std::vector<std::size_t>> columns_of_parts(const Table& table, const TableParts& parts, std::size_t width) {
  std::vector<std::size_t> names(std::min(table.names, table.columns.size()));
  std::iota(names.begin(), names.end(), std::size_t{0});
  std::vector<std::vector<std::size_t>> all = {names};
  for (std::size_t i = names.size(); i < table.columns.size();) {
    std::vector<std::size_t> longer = all.back();
    do {
      longer.push_back(i++);
    } while (i < table.columns.size() && table.columns[i].joined);
    if (all.back().size() > names.size() && width_of(parts, longer) > width) {
      longer.erase(longer.begin() + static_cast<std::ptrdiff_t>(names.size()),
                   longer.begin() + static_cast<std::ptrdiff_t>(all.back().size()));
      all.push_back(longer);
    } else {
      all.back() = longer;
    }
  }
  return all;
}

void append_csv_cell(std::string& text, const std::string& cell) {
  if (cell.find_first_of(",\"\r\n") == std::string::npos) {
    text += cell;
    return;
  }
  text += '"';
  for (const char c : cell) {
    if (c == '"') text += '"';
    text += c;
  }
  text += '"';
}

}  // namespace

std::size_t display_width(const std::string& text) {
  const std::string plain = without_colours(text);
  if (!platform::uses_utf8()) return character_count(plain);
  return platform::utf8_width(plain).value_or(character_count(plain));
}

std::string table_text(const Table& table, bool colour, std::size_t width) {
  TableParts parts;
  parts.rows = table.rows;
  std::vector<std::size_t> cells(table.columns.size(), 0);  // the widest ones
  for (std::vector<std::string>& row : parts.rows) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      std::replace_if(
          row[i].begin(), row[i].end(), [](char c) { return is_control(c) && c != ESCAPE; }, ' ');
      cells[i] = std::max(cells[i], display_width(row[i]));
    }
  }
  std::vector<std::size_t> all;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    all.push_back(i);
    parts.headings.push_back({table.columns[i].heading});
    parts.widths.push_back(std::max(cells[i], display_width(table.columns[i].heading)));
  }
  if (width == 0 || width_of(parts, all) <= width) return part_text(table, parts, all, colour);

  for (std::size_t i = 0; i < cells.size(); ++i) {
    parts.headings[i] = heading_lines(table.columns[i].heading, std::max(cells[i], HEADING_WIDTH));
    parts.widths[i] = cells[i];
    for (const std::string& line : parts.headings[i]) {
      parts.widths[i] = std::max(parts.widths[i], display_width(line));
    }
  }
  std::string text;
  for (const std::vector<std::size_t>& columns : columns_of_parts(table, parts, width)) {
    text += (text.empty() ? "" : "\n") + part_text(table, parts, columns, colour);
  }
  return text;
}

std::string table_for_stdout(const Table& table) {
  return table_text(table, use_colour(stdout), platform::terminal_width(stdout));
}

std::string csv_text(const Table& table) {
  std::string text;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (i > 0) text += ',';
    append_csv_cell(text, table.columns[i].heading);
  }
  text += '\n';
  for (const std::vector<std::string>& row : table.rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) text += ',';
      append_csv_cell(text, row[i]);
    }
    text += '\n';
  }
  return text;
}
