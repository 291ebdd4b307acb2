// Widths are those on a terminal: by wcwidth() if the locale is UTF-8, otherwise one column per UTF-8 character.
#include "terminal/table.h"

#include <fmt/color.h>
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <iterator>

#include "terminal/terminal.h"

namespace {

constexpr char ESCAPE = '\033';
constexpr const char* GAP = "  ";

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
  if (!use_utf8()) return character_count(plain);
  std::size_t width = 0;
  std::mbstate_t state{};
  const char* at = plain.data();
  const char* end = at + plain.size();
  while (at < end) {
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, at, static_cast<std::size_t>(end - at), &state);
    if (length == 0 || length > plain.size()) return character_count(plain);  // not valid UTF-8
    const int columns = wcwidth(character);
    width += columns < 0 ? 1U : static_cast<std::size_t>(columns);
    at += length;
  }
  return width;
}

std::string printable(std::string text) {
  std::replace_if(text.begin(), text.end(), is_control, ' ');
  return text;
}

std::string printable_lines(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return is_control(c) && c != '\n' && c != '\t'; }, ' ');
  return text;
}

std::string table_text(const Table& table, bool colour) {
  std::vector<std::size_t> widths;
  for (const TableColumn& column : table.columns) widths.push_back(display_width(column.heading));
  std::vector<std::vector<std::string>> rows = table.rows;
  for (std::vector<std::string>& row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      std::replace_if(
          row[i].begin(), row[i].end(), [](char c) { return is_control(c) && c != ESCAPE; }, ' ');
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }

  std::string heading;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    append_cell(heading, table.columns[i].heading, widths[i], table.columns[i].left);
  }
  std::string text;
  append_line(text, heading);
  if (colour) text = fmt::format(fmt::emphasis::bold, "{}", text.substr(0, text.size() - 1)) + '\n';
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) append_cell(line, row[i], widths[i], table.columns[i].left);
    append_line(text, line);
  }
  return text;
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

std::string fixed_number(double value, int decimals) {
  if (std::isnan(value)) return "-";
  const bool rounds_to_zero = std::fabs(value) < 0.5 * std::pow(10.0, -decimals);
  return fmt::format("{:.{}f}", rounds_to_zero ? 0.0 : value, decimals);
}

std::string short_number(double value) { return std::isnan(value) ? "-" : fmt::format("{:.3g}", value); }

std::string exact_number(double value) { return std::isnan(value) ? "" : fmt::format("{}", value); }
