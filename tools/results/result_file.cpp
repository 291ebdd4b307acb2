// Reader of result files. Layer names may hold anything, quotes and line breaks included, lines that look like the
// format's own too. So the end of the layers is looked for from the rows, which hold numbers alone; a layer is taken
// apart from the right, and goes on over as many lines as it needs.
#include "results/result_file.h"

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

// Where </LAYERS> stands: the last place where it has a line of its own and the heading follows. npos if there is none.
std::size_t end_of_layers(std::string_view text) {
  const std::string wanted = std::string(LAYERS_END) + '\n' + std::string(HEADING) + '\n';
  std::size_t found = std::string_view::npos;
  for (std::size_t at = text.find(wanted); at != std::string_view::npos; at = text.find(wanted, at + 1)) {
    if (at == 0 || text[at - 1] == '\n') found = at;
  }
  return found;
}

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

// The layers, from the lines between <LAYERS> and </LAYERS>; line_number is that of the first. Returns the number of a
// line that is part of no layer, 0 if there is none. A layer ends where its text is one and the next line begins with
// the quote of another.
std::size_t parse_layers(std::string_view text, std::size_t line_number, std::vector<ResultLayer>& layers) {
  std::size_t last_begin = 0;  // of the last of the layers in text
  std::size_t begin = 0;
  std::size_t begin_line = line_number;
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', end + 1)) {
    ++line_number;
    const bool last = end + 1 == text.size();
    if (!last && text[end + 1] != '"') continue;
    ResultLayer layer;
    if (parse_layer(text.substr(begin, end - begin), layer)) {
      layers.push_back(layer);
      last_begin = begin;
      begin = end + 1;
      begin_line = line_number;
    } else if (!layers.empty() && parse_layer(text.substr(last_begin, end - last_begin), layer)) {
      layers.back() = layer;  // what looked like the layer before was the begin of this one's name
      begin = end + 1;
      begin_line = line_number;
    } else if (last) {
      return begin_line;
    }
  }
  return 0;
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
  std::string_view line;
  const auto fail = [&path, &error](std::size_t line_number, const std::string& text) {
    error = path + ", line " + std::to_string(line_number) + ": " + text;
    return false;
  };
  if (!source.take(line) || line != TITLE) {
    error = path + " is not a result file: its first line is not " + std::string(TITLE);
    return false;
  }
  if (!source.take(line) || line != LAYERS_BEGIN) return fail(2, "expected " + std::string(LAYERS_BEGIN));
  const std::size_t layers_end = end_of_layers(source.rest);
  if (layers_end == std::string_view::npos) {
    while (source.take(line)) {
      if (line == LAYERS_END) return fail(source.number + 1, "expected " + std::string(HEADING));
    }
    return fail(source.number, "the list of layers has no end");
  }
  const std::string_view layers = source.rest.substr(0, layers_end);
  const std::size_t fault = parse_layers(layers, source.number + 1, result.layers);
  if (fault != 0) return fail(fault, "this is no layer");
  while (source.rest.data() != layers.data() + layers.size()) source.take(line);
  source.take(line);  // </LAYERS>
  source.take(line);  // the heading
  while (source.take(line)) {
    ResultRow row;
    if (!parse_row(line, row)) return fail(source.number, "this is no row of 19 numbers");
    result.rows.push_back(row);
  }
  return source.rest.empty() || fail(source.number + 1, "the last line is cut off");
}
