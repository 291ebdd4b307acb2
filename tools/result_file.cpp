// Reader of result files. Layer names may hold anything, quotes and line breaks included, so that a layer's line is
// taken apart from the right, and goes on over as many lines as it needs.
#include "result_file.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace {

constexpr std::string_view TITLE = "\"VORLEN output file, version 2.0\"";
constexpr std::string_view LAYERS_BEGIN = "<LAYERS>";
constexpr std::string_view LAYERS_END = "</LAYERS>";
constexpr std::string_view HEADING =
    "#time(sec) z(nm) Vg xIn xGa xAl rho_TD(t) rho_VD0(t) a_eff(t) eps_xx(t) eps_yy(t) eps_zz(t) eps_yz(t) "
    "rho_TD(z) a_eff(z) eps_xx(z) eps_yy(z) eps_zz(z) eps_yz(z)";

// Walks through a text line by line.
struct LineSource {
  std::string_view rest;
  std::size_t number = 0;  // of the last line taken, from 1

  // False at the end, and for a last line without a line end: such a line was cut off.
  bool take(std::string_view& line) {
    const std::size_t length = rest.find('\n');
    if (length == std::string_view::npos) return false;
    line = rest.substr(0, length);
    rest.remove_prefix(length + 1);
    ++number;
    return true;
  }
};

// The whole of text as a number, the point being the decimal separator whatever the locale is.
bool parse_number(std::string_view text, double& value) {
  const char* end = text.data() + text.size();
  const std::from_chars_result parsed = std::from_chars(text.data(), end, value);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

// "NAME" DURATION THICKNESS
bool parse_layer(std::string_view text, ResultLayer& layer) {
  const std::size_t before_thickness = text.rfind(' ');
  if (before_thickness == std::string_view::npos || before_thickness == 0) return false;
  const std::size_t before_duration = text.rfind(' ', before_thickness - 1);
  if (before_duration == std::string_view::npos || before_duration < 2) return false;
  if (text.front() != '"' || text[before_duration - 1] != '"') return false;
  layer.name = text.substr(1, before_duration - 2);
  return parse_number(text.substr(before_duration + 1, before_thickness - before_duration - 1), layer.duration) &&
         parse_number(text.substr(before_thickness + 1), layer.thickness);
}

// Numbers with one blank between them, and one behind the last in an active row.
bool parse_row(std::string_view line, ResultRow& row) {
  row.active = !line.empty() && line.back() == ' ';
  if (row.active) line.remove_suffix(1);
  for (std::size_t column = 0; column + 1 < RESULT_COLUMN_COUNT; ++column) {
    const std::size_t length = line.find(' ');
    if (length == std::string_view::npos || !parse_number(line.substr(0, length), row.values[column])) return false;
    line.remove_prefix(length + 1);
  }
  return parse_number(line, row.values.back());
}

bool read_whole_file(const std::string& path, std::string& content, std::string& error) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) {
    error = path + " is not a regular file: there is no result to show";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) {
    error = path + " can't be read, or is empty";
    return false;
  }
  content = text.str();
  return true;
}

}  // namespace

bool read_result_file(const std::string& path, ResultFile& result, std::string& error) {
  result = ResultFile();
  std::string content;
  if (!read_whole_file(path, content, error)) return false;

  LineSource source{content};
  const auto fail = [&path, &error](std::size_t line_number, const std::string& text) {
    error = path + ", line " + std::to_string(line_number) + ": " + text;
    return false;
  };
  const auto expect = [&source, &fail](std::string_view expected) {
    std::string_view line;
    return (source.take(line) && line == expected) || fail(source.number, "expected " + std::string(expected));
  };

  if (!expect(TITLE) || !expect(LAYERS_BEGIN)) return false;
  std::string_view line;
  while (true) {
    if (!source.take(line)) return fail(source.number, "the list of layers has no end");
    if (line == LAYERS_END) break;
    const std::size_t first = source.number;
    ResultLayer layer;
    std::string_view text = line;
    while (!parse_layer(text, layer)) {
      if (!source.take(line)) return fail(first, "this is no layer");
      text = std::string_view(text.data(), text.size() + 1 + line.size());
    }
    result.layers.push_back(layer);
  }
  if (!expect(HEADING)) return false;
  while (source.take(line)) {
    ResultRow row;
    if (!parse_row(line, row)) return fail(source.number, "this is no row of 19 numbers");
    result.rows.push_back(row);
  }
  return source.rest.empty() || fail(source.number + 1, "the last line is cut off");
}
