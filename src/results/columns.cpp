// The heading of the result file and the lookup of columns.
#include "results/columns.h"

namespace vorlen {

namespace {

void append_headings(std::string& text, std::span<const Column> columns) {
  for (const Column& column : columns) {
    text += text.empty() ? "#" : " ";
    text += column.heading;
  }
}

}  // namespace

std::string result_heading(bool detail, bool relaxes) {
  std::string text;
  append_headings(text, RESULT_COLUMNS);
  if (detail) append_headings(text, SURFACE_COLUMNS);
  if (detail && relaxes) append_headings(text, RELAXATION_COLUMNS);
  return text;
}

std::size_t column_count(bool detail, bool relaxes) {
  if (!detail) return N_RESULT_COLUMNS;
  return N_RESULT_COLUMNS + N_SURFACE_COLUMNS + (relaxes ? N_RELAXATION_COLUMNS : 0);
}

const Column& column_at(std::size_t index) {
  if (index < N_RESULT_COLUMNS) return RESULT_COLUMNS[index];
  index -= N_RESULT_COLUMNS;
  return index < N_SURFACE_COLUMNS ? SURFACE_COLUMNS[index] : RELAXATION_COLUMNS[index - N_SURFACE_COLUMNS];
}

}  // namespace vorlen
