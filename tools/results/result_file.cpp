// Layer names may contain anything: quotes, line breaks, even lines that look like the format's own. So the end of the
// list of layers is found from the rows, which contain only numbers, and a layer is parsed from the right and may span
// several lines.
#include "results/result_file.h"

#include <fast_float/fast_float.h>

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

namespace {

constexpr std::string_view TITLE = "\"VORLEN output file, version 2.0\"";
constexpr std::string_view LAYERS_BEGIN = "<LAYERS>";
constexpr std::string_view LAYERS_END = "</LAYERS>";
// The headings of the three kinds of file.
struct Heading {
  bool detail;
  bool relaxes;
};
constexpr Heading HEADINGS[] = {{false, false}, {true, false}, {true, true}};

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

// The end of the list of layers: the last line </LAYERS> that a heading follows.
struct LayersEnd {
  std::size_t at = std::string_view::npos;  // npos if there is none
  std::size_t column_count = 0;
};

LayersEnd end_of_layers(std::string_view text) {
  LayersEnd end;
  for (std::size_t at = text.find(LAYERS_END); at != std::string_view::npos; at = text.find(LAYERS_END, at + 1)) {
    if (at > 0 && text[at - 1] != '\n') continue;
    const std::string_view after = text.substr(at + LAYERS_END.size());
    for (const Heading& heading : HEADINGS) {
      if (after.starts_with('\n' + vorlen::result_heading(heading.detail, heading.relaxes) + '\n')) {
        end = {at, vorlen::column_count(heading.detail, heading.relaxes)};
      }
    }
  }
  return end;
}

// The whole of text as a number, the point being the decimal separator whatever the locale is. A number beyond the
// range of double is none. Not by std::from_chars, which not every standard library has for double.
bool parse_number(std::string_view text, double& value) {
  const char* end = text.data() + text.size();
  const fast_float::from_chars_result parsed = fast_float::from_chars(text.data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end) return false;
  return !std::isinf(value) || text.find_first_of("iI") != std::string_view::npos;
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
      layers.back() = layer;  // the previous "layer" was the start of this one's name
      begin = end + 1;
      begin_line = line_number;
    } else if (last) {
      return begin_line;
    }
  }
  return 0;
}

// A row of a pre-stage or post-stage in a file with detail: the surface has a sum of 1 and no adsorbed atoms.
bool is_stage_row(const ResultRow& row) {
  return row.detail[0] == 1.0 &&
         std::all_of(row.detail.begin() + 1, row.detail.end(), [](double value) { return value == 0.0; });
}

// Numbers separated by one blank. An active row has a blank at its end, except in the widest table.
bool parse_row(std::string_view line, std::size_t column_count, ResultRow& row) {
  row.active = !line.empty() && line.back() == ' ';
  if (row.active) line.remove_suffix(1);
  row.detail.resize(column_count - vorlen::N_RESULT_COLUMNS);
  for (std::size_t column = 0; column < column_count; ++column) {
    const bool last = column + 1 == column_count;
    const std::size_t length = last ? line.size() : line.find(' ');
    double value = 0.0;
    if (length == std::string_view::npos || !parse_number(line.substr(0, length), value)) return false;
    (column < vorlen::N_RESULT_COLUMNS ? row.values[column] : row.detail[column - vorlen::N_RESULT_COLUMNS]) = value;
    if (!last) line.remove_prefix(length + 1);
  }
  if (column_count == vorlen::column_count(true, true)) {
    if (row.active) return false;
    row.active = !is_stage_row(row);
  }
  return true;
}

}  // namespace

bool read_result_text(const std::string& path, std::string_view content, ResultFile& result, std::string& error) {
  result = ResultFile();
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
  const LayersEnd layers_end = end_of_layers(source.rest);
  if (layers_end.at == std::string_view::npos) {
    while (source.take(line)) {
      if (line == LAYERS_END) return fail(source.number + 1, "expected " + vorlen::result_heading(false, false));
    }
    return fail(source.number, "the list of layers has no end");
  }
  result.column_count = layers_end.column_count;
  const std::string_view layers = source.rest.substr(0, layers_end.at);
  const std::size_t fault = parse_layers(layers, source.number + 1, result.layers);
  if (fault != 0) return fail(fault, "not a layer");
  while (source.rest.data() != layers.data() + layers.size()) source.take(line);
  source.take(line);  // </LAYERS>
  source.take(line);  // the heading
  while (source.take(line)) {
    ResultRow row;
    if (!parse_row(line, result.column_count, row)) {
      return fail(source.number, "not a row of " + std::to_string(result.column_count) + " numbers");
    }
    result.rows.push_back(std::move(row));
  }
  return source.rest.empty() || fail(source.number + 1, "the last line is cut off");
}
